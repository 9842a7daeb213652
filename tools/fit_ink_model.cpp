// Fits the printer model's inks and dot gain (decode/ink.h) to the design's own evidence, once, and
// writes decode/generated/ink_model.cpp; the derivation (evidence, fitted values, residuals) goes to
// standard output. Deterministic: a fixed start, a fixed number of damped Gauss-Newton steps, no
// random numbers. Usage: fit-ink-model OUTPUT.cpp
//
// Evidence (read from the given rows of the compiled tables; the rows between them are not evidence),
// each printed through the halftoner that prints it (tools/table_print.h: the dots the core's renderers
// make for those amounts, colour gathered under black as they gather it):
//  - neutral balance: what each measured ink-split table leaves of a neutral at g = 64, 128, 192
//    (cyan g - T[g][0], magenta g - T[g][1], yellow g - T[g][2], black g - T[g][3]) prints a* = b* = 0;
//  - hues: the red, green and blue rows of the given colour tables print the hue of sRGB red, green and
//    blue;
//  - lightness: the grey row (8, 8, 8) prints the lightness of sRGB 128 (after black-point
//    compensation): with black ink alone where the dither path prints it (every ink equal, so the
//    colour dots coincide and turn black), and with the ink split of g where the high-resolution mode
//    diffuses it.
// Physics (priors, not fitted): each medium's black (L* of a solid relative to the paper) and its
// Yule-Nielsen n; the cyan, magenta and yellow solids of typical dye inks on plain paper, which the fit
// may move; coated media hold the ink at the surface and raise every ink's density alike.
#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "decode/colorimetry.h"
#include "decode/ink.h"
#include "src/data/tables.h"
#include "tools/table_print.h"

namespace {

using inkweave::decode::InkModel;
using inkweave::decode::Lab;
using inkweave::decode::Reflectance;
using inkweave::tables::Screen;
namespace dec = inkweave::decode;

enum Medium { kPlain, kInkjet, kGlossy, kPhoto, kOther, kMediaCount };
constexpr int kResolutions[4] = {150, 300, 600, 1200};

struct MediumPrior {
  const char* Name;
  double BlackL;       // L* of a solid black relative to the paper
  double YuleNielsen;  // n
};
constexpr MediumPrior kMedia[kMediaCount] = {
    {"plain", 28, 2.0}, {"inkjet", 18, 1.8}, {"glossy", 10, 1.5}, {"photographic", 8, 1.5}, {"media 4 and 5", 28, 2.0}};

// Typical cyan, magenta and yellow dye-ink solids on plain paper, relative to the paper.
constexpr Lab kInkPrior[3] = {{56, -30, -44}, {50, 60, -6}, {86, -4, 78}};
constexpr const char* kInkNames[4] = {"cyan", "magenta", "yellow", "black"};

// Fitted spreads (dot area in cells), by the evidence that fixes each.
enum Spread { kPlain300, kPlain600, kPhoto300, kOther300, kPlain1200, kInkjet1200, kPhoto1200, kSpreads };
constexpr const char* kSpreadNames[kSpreads] = {"plain 150/300",
                                                "plain 600",
                                                "photographic 150/300",
                                                "media 4/5 150/300",
                                                "plain 1200 (high-res)",
                                                "inkjet 1200 (high-res)",
                                                "photographic 1200 (high-res)"};
constexpr int kDensities = 9;  // cyan, magenta, yellow x red, green, blue channel
constexpr int kParameters = kDensities + kSpreads;
using Parameters = std::array<double, kParameters>;

double DensityOfLightness(double L) {
  const double f = (L + 16.0) / 116.0;
  return -std::log10(f * f * f);
}

Reflectance RommOf(const Lab& lab) {
  // Inverse of LabOfReflectance through lcms: Lab D50 to linear ROMM.
  static const cmsHTRANSFORM toRomm = [] {
    const cmsCIExyYTRIPLE primaries = {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}};
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    cmsHPROFILE romm = cmsCreateRGBProfile(cmsD50_xyY(), &primaries, curves);
    cmsHPROFILE labProfile = cmsCreateLab4Profile(cmsD50_xyY());
    cmsHTRANSFORM t = cmsCreateTransform(labProfile, TYPE_Lab_DBL, romm, TYPE_RGB_DBL, INTENT_RELATIVE_COLORIMETRIC,
                                         cmsFLAGS_NOCACHE | cmsFLAGS_NOOPTIMIZE);
    cmsFreeToneCurve(linear);
    cmsCloseProfile(romm);
    cmsCloseProfile(labProfile);
    return t;
  }();
  const cmsCIELab in = {lab.L, lab.a, lab.b};
  Reflectance out;
  cmsDoTransform(toRomm, &in, out.data(), 1);
  return out;
}

Parameters StartingPoint() {
  Parameters p{};
  for (int i = 0; i < 3; ++i) {
    const Reflectance solid = RommOf(kInkPrior[i]);
    for (int ch = 0; ch < 3; ++ch) p[static_cast<std::size_t>(3 * i + ch)] = std::log(-std::log10(solid[ch]));
  }
  for (int s = 0; s < kSpreads; ++s) p[static_cast<std::size_t>(kDensities + s)] = std::log(2.0);
  return p;
}

double SpreadOf(const Parameters& p, Spread s) { return 1.0 + std::exp(p[static_cast<std::size_t>(kDensities + s)]); }

// Dot gain of a medium at a resolution: fitted where the evidence speaks, carried over where it does not.
double SpreadFor(const Parameters& p, int medium, int dpi) {
  const double fine = SpreadOf(p, kPlain600) / SpreadOf(p, kPlain300);  // 600 against 300 dpi on plain paper
  const auto at = [&](Spread base, Spread high) {
    if (dpi == 1200) return SpreadOf(p, high);
    return dpi == 600 ? SpreadOf(p, base) * fine : SpreadOf(p, base);
  };
  switch (medium) {
    case kInkjet: {  // as plain paper, scaled by the high-resolution evidence of both
      const double ratio = SpreadOf(p, kInkjet1200) / SpreadOf(p, kPlain1200);
      return dpi == 1200 ? SpreadOf(p, kInkjet1200) : std::max(1.0, at(kPlain300, kPlain1200) * ratio);
    }
    case kGlossy:  // glossy and photographic paper share their tables in the fine modes
    case kPhoto: return at(kPhoto300, kPhoto1200);
    case kOther: {
      if (dpi != 1200) return at(kOther300, kPlain1200);
      return std::max(1.0, SpreadOf(p, kPlain1200) * SpreadOf(p, kOther300) / SpreadOf(p, kPlain300));
    }
    default: return at(kPlain300, kPlain1200);
  }
}

InkModel ModelFor(const Parameters& p, int medium, int dpi) {
  InkModel model;
  const double black = DensityOfLightness(kMedia[medium].BlackL);
  const double holdout = black / DensityOfLightness(kMedia[kPlain].BlackL);
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t ch = 0; ch < 3; ++ch) model.Solid[i][ch] = std::pow(10.0, -holdout * std::exp(p[3 * i + ch]));
  model.Solid[3] = {std::pow(10.0, -black), std::pow(10.0, -black), std::pow(10.0, -black)};
  model.Spread = SpreadFor(p, medium, dpi);
  model.YuleNielsen = kMedia[medium].YuleNielsen;
  return model;
}

// One piece of evidence: inks printed on a medium at a resolution, and what they must show.
enum class Kind { Neutral, Hue, Lightness };
struct Evidence {
  std::string Label;
  int Medium = kPlain;
  int Dpi = 300;
  Screen Halftone = Screen::Dither;
  std::array<double, 4> Amounts{};  // cyan, magenta, yellow, black as the halftoner gets them, 0..255
  Kind What = Kind::Neutral;
  double Target = 0;  // hue in degrees or L*
};

// The halftoner of the error-diffusion paths at a page resolution.
Screen DiffusionAt(int dpi) {
  return dpi == 1200 ? Screen::DiffuseTop : dpi == 600 ? Screen::DiffuseHigh : Screen::DiffuseMid;
}

Reflectance Printed(const InkModel& model, const Evidence& e) {
  return dec::PrintedColour(model, inkweave::tables::DotsFor(e.Halftone, e.Amounts));
}

const std::uint8_t* GridPoint(int table, int i, int j, int k) {
  return inkweave::ColorTable(table) + ((i * 17 + j) * 17 + k) * 4;
}

// The amounts an ink-split table leaves of a neutral at g (given rows, linear between them below 64 and
// between the given rows elsewhere).
std::array<double, 4> SplitOfNeutral(int table, double g) {
  constexpr int kGiven[5] = {0, 64, 128, 192, 255};
  int lo = 0;
  while (lo < 3 && g > kGiven[lo + 1]) ++lo;
  const double t = (g - kGiven[lo]) / (kGiven[lo + 1] - kGiven[lo]);
  std::array<double, 4> ink{};
  for (std::size_t v = 0; v < 4; ++v) {
    const double removed =
        (1 - t) * inkweave::InkSplitTable[table][kGiven[lo]][v] + t * inkweave::InkSplitTable[table][kGiven[lo + 1]][v];
    ink[v] = g - removed;
  }
  return ink;
}

Lab GreyTarget(const InkModel& model) {
  return dec::CompensateBlack(dec::LabOfSrgb(128, 128, 128), dec::LabOfReflectance(model.Solid[3]));
}

std::vector<Evidence> GatherEvidence() {
  std::vector<Evidence> evidence;
  // Neutral balance of the measured ink-split tables, with the medium and resolution each serves.
  struct SplitUse {
    int Table, Medium, Dpi;
  };
  constexpr SplitUse kSplits[] = {{0, kPlain, 300}, {1, kPlain, 600},  {2, kInkjet, 600},  {4, kGlossy, 600},
                                  {6, kPhoto, 600}, {3, kPlain, 1200}, {5, kGlossy, 1200}, {7, kPhoto, 1200}};
  for (const SplitUse& use : kSplits)
    for (int g : {64, 128, 192})
      evidence.push_back({"ink split " + std::to_string(use.Table) + " at g " + std::to_string(g), use.Medium, use.Dpi,
                          DiffusionAt(use.Dpi), SplitOfNeutral(use.Table, g), Kind::Neutral, 0});
  // Hues and grey rows of the given colour tables.
  struct TableUse {
    int Table, Medium, Dpi;
    bool Hues;      // its red, green and blue rows speak for this medium and resolution
    int GreySplit;  // -1: the grey prints in black alone (dither); else the ink split that diffuses it
    bool Dithered;  // the table's colours print through the ordered dither there
  };
  constexpr TableUse kTables[] = {{1, kPlain, 300, true, -1, true},    {2, kPlain, 300, true, 0, false},
                                  {3, kPlain, 600, true, -1, true},    {2, kPlain, 1200, false, 3, false},
                                  {7, kInkjet, 1200, true, 3, false},  {13, kPhoto, 300, true, -1, true},
                                  {13, kPhoto, 1200, false, 7, false}, {15, kOther, 300, true, -1, true}};
  const struct {
    const char* Name;
    int I, J, K;
    std::uint8_t R, G, B;
  } kPrimaries[] = {{"red", 16, 0, 0, 255, 0, 0}, {"green", 0, 16, 0, 0, 255, 0}, {"blue", 0, 0, 16, 0, 0, 255}};
  for (const TableUse& use : kTables) {
    const std::string table = "colour table " + std::to_string(use.Table);
    const Screen screen = use.Dithered ? Screen::Dither : DiffusionAt(use.Dpi);
    for (const auto& primary : kPrimaries) {
      if (!use.Hues) break;
      const std::uint8_t* row = GridPoint(use.Table, primary.I, primary.J, primary.K);
      evidence.push_back({table + " " + primary.Name,
                          use.Medium,
                          use.Dpi,
                          screen,
                          {double(row[0]), double(row[1]), double(row[2]), double(row[3])},
                          Kind::Hue,
                          dec::Hue(dec::LabOfSrgb(primary.R, primary.G, primary.B))});
    }
    const double grey = GridPoint(use.Table, 8, 8, 8)[3];
    const std::array<double, 4> amounts =
        use.GreySplit < 0 ? std::array<double, 4>{grey, grey, grey, grey} : SplitOfNeutral(use.GreySplit, grey);
    evidence.push_back({table + " grey (8,8,8) " + (use.GreySplit < 0 ? "in black" : "split"), use.Medium, use.Dpi,
                        screen, amounts, Kind::Lightness, 0});
  }
  return evidence;
}

// Residuals of the evidence (Lab units) and of the priors.
struct Fit {
  std::vector<Evidence> Items;
  static constexpr double kPriorWeight = 0.5;      // per unit of L*, a*, b* away from the typical ink
  static constexpr double kHueWeight = 0.5;        // per degree of hue
  static constexpr double kLightnessWeight = 2.0;  // per unit of L*

  std::vector<double> Residuals(const Parameters& p) const {
    std::vector<double> r;
    for (const auto& e : Items) {
      const InkModel model = ModelFor(p, e.Medium, e.Dpi);
      const Lab lab = dec::LabOfReflectance(Printed(model, e));
      switch (e.What) {
        case Kind::Neutral:
          r.push_back(lab.a);
          r.push_back(lab.b);
          break;
        case Kind::Hue: {
          r.push_back(kHueWeight * std::remainder(dec::Hue(lab) - e.Target, 360.0));
          break;
        }
        case Kind::Lightness: r.push_back(kLightnessWeight * (lab.L - GreyTarget(model).L)); break;
      }
    }
    const InkModel plain = ModelFor(p, kPlain, 300);
    for (std::size_t i = 0; i < 3; ++i) {
      const Lab lab = dec::LabOfReflectance(plain.Solid[i]);
      r.push_back(0.1 * kPriorWeight * (lab.L - kInkPrior[i].L));
      r.push_back(kPriorWeight * (lab.a - kInkPrior[i].a));
      r.push_back(kPriorWeight * (lab.b - kInkPrior[i].b));
    }
    return r;
  }
};

// Solves A x = b (n x n, row-major) by Gaussian elimination with partial pivoting.
std::vector<double> Solve(std::vector<double> a, std::vector<double> b) {
  const std::size_t n = b.size();
  for (std::size_t c = 0; c < n; ++c) {
    std::size_t pivot = c;
    for (std::size_t r = c + 1; r < n; ++r)
      if (std::fabs(a[r * n + c]) > std::fabs(a[pivot * n + c])) pivot = r;
    for (std::size_t k = 0; k < n; ++k) std::swap(a[c * n + k], a[pivot * n + k]);
    std::swap(b[c], b[pivot]);
    for (std::size_t r = c + 1; r < n; ++r) {
      const double f = a[r * n + c] / a[c * n + c];
      for (std::size_t k = c; k < n; ++k) a[r * n + k] -= f * a[c * n + k];
      b[r] -= f * b[c];
    }
  }
  std::vector<double> x(n);
  for (std::size_t c = n; c-- > 0;) {
    double sum = b[c];
    for (std::size_t k = c + 1; k < n; ++k) sum -= a[c * n + k] * x[k];
    x[c] = sum / a[c * n + c];
  }
  return x;
}

double SumOfSquares(const std::vector<double>& r) {
  double s = 0;
  for (double v : r) s += v * v;
  return s;
}

// Levenberg-Marquardt with forward-difference derivatives.
Parameters Minimise(const Fit& fit, Parameters p) {
  double lambda = 1e-2;
  std::vector<double> r = fit.Residuals(p);
  for (int step = 0; step < 200; ++step) {
    const std::size_t m = r.size(), n = p.size();
    std::vector<double> jac(m * n);
    for (std::size_t j = 0; j < n; ++j) {
      Parameters q = p;
      q[j] += 1e-6;
      const std::vector<double> rq = fit.Residuals(q);
      for (std::size_t i = 0; i < m; ++i) jac[i * n + j] = (rq[i] - r[i]) / 1e-6;
    }
    std::vector<double> jtj(n * n, 0.0), jtr(n, 0.0);
    for (std::size_t i = 0; i < m; ++i)
      for (std::size_t j = 0; j < n; ++j) {
        jtr[j] -= jac[i * n + j] * r[i];
        for (std::size_t k = 0; k < n; ++k) jtj[j * n + k] += jac[i * n + j] * jac[i * n + k];
      }
    for (std::size_t j = 0; j < n; ++j) jtj[j * n + j] *= 1 + lambda;
    const std::vector<double> delta = Solve(jtj, jtr);
    Parameters q = p;
    for (std::size_t j = 0; j < n; ++j) q[j] += std::clamp(delta[j], -1.0, 1.0);
    const std::vector<double> rq = fit.Residuals(q);
    if (SumOfSquares(rq) < SumOfSquares(r)) {
      p = q;
      r = rq;
      lambda = std::max(1e-6, lambda / 3);
    } else {
      lambda = std::min(1e6, lambda * 4);
    }
  }
  return p;
}

void Report(const Fit& fit, const Parameters& p) {
  std::printf("# Ink-model fit\n\nEvidence and residuals (model value against what the design asks):\n\n");
  std::printf(
      "| evidence | medium | dpi | C M Y K amounts | printed L* a* b* | asked | residual "
      "|\n|---|---|---|---|---|---|---|\n");
  for (const auto& e : fit.Items) {
    const InkModel model = ModelFor(p, e.Medium, e.Dpi);
    const Lab lab = dec::LabOfReflectance(Printed(model, e));
    std::printf("| %s | %s | %d | %.0f %.0f %.0f %.0f | %.1f %.1f %.1f | ", e.Label.c_str(), kMedia[e.Medium].Name,
                e.Dpi, e.Amounts[0], e.Amounts[1], e.Amounts[2], e.Amounts[3], lab.L, lab.a, lab.b);
    switch (e.What) {
      case Kind::Neutral: std::printf("a* = b* = 0 | %.1f |\n", std::hypot(lab.a, lab.b)); break;
      case Kind::Hue:
        std::printf("hue %.1f | %+.1f deg |\n", e.Target, std::remainder(dec::Hue(lab) - e.Target, 360.0));
        break;
      case Kind::Lightness: {
        const double target = GreyTarget(model).L;
        std::printf("L* %.1f | %+.1f |\n", target, lab.L - target);
        break;
      }
    }
  }
  std::printf("\nFitted solids on plain paper (L* a* b* relative to the paper), against the prior:\n\n");
  const InkModel plain = ModelFor(p, kPlain, 300);
  for (int i = 0; i < 4; ++i) {
    const Lab lab = dec::LabOfReflectance(plain.Solid[static_cast<std::size_t>(i)]);
    std::printf("- %s: %.1f %.1f %.1f", kInkNames[i], lab.L, lab.a, lab.b);
    if (i < 3) std::printf(" (prior %.0f %.0f %.0f)", kInkPrior[i].L, kInkPrior[i].a, kInkPrior[i].b);
    std::printf("\n");
  }
  std::printf("\nFitted spreads (area of a full dot in cells):\n\n");
  for (int s = 0; s < kSpreads; ++s) std::printf("- %s: %.2f\n", kSpreadNames[s], SpreadOf(p, static_cast<Spread>(s)));
}

bool Write(const char* path, const Parameters& p) {
  FILE* out = std::fopen(path, "w");
  if (!out) return false;
  std::fprintf(out,
               "// Generated by tools/fit_ink_model.cpp. Do not edit.\n"
               "// The printer model's inks and dot gain per medium and resolution, fitted to the design's evidence\n"
               "// (see docs/ink-model.md): solids as linear ROMM RGB relative to the paper, spread, Yule-Nielsen n.\n"
               "#include \"decode/ink.h\"\n\nnamespace inkweave::decode {\n\n"
               "const std::array<FittedInkModel, 4 * kMediaCodes> kFittedInkModels = {{\n");
  for (int m = 0; m < kMediaCount; ++m) {
    for (int dpi : kResolutions) {
      const InkModel model = ModelFor(p, m, dpi);
      std::fprintf(out, "    {%d, %d, {{{", m, dpi);
      for (std::size_t i = 0; i < 4; ++i)
        std::fprintf(out, "%s{%.6f, %.6f, %.6f}", i ? ", " : "", model.Solid[i][0], model.Solid[i][1],
                     model.Solid[i][2]);
      std::fprintf(out, "}}, %.4f, %.2f}},\n", model.Spread, model.YuleNielsen);
    }
  }
  std::fprintf(out, "}};\n\n}  // namespace inkweave::decode\n");
  return std::fclose(out) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fit-ink-model OUTPUT.cpp\n");
    return 2;
  }
  Fit fit;
  fit.Items = GatherEvidence();
  const Parameters p = Minimise(fit, StartingPoint());
  Report(fit, p);
  if (!Write(argv[1], p)) {
    std::fprintf(stderr, "fit-ink-model: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
