// Writes the ICC profile of the printer as the driver prints on one paper type: RGB in (what the
// driver is handed), CIELAB D50 out relative to the paper, measured on the printer model (decode/) from
// a grid of colour patches printed through the plug-in at 300 dpi with dither, the queue's defaults.
//
// The device-to-PCS table (AToB0) is the measured grid itself, 17 levels a channel. The PCS-to-device
// table (BToA0, used for every intent) is its inverse on a 17-level Lab grid: for each Lab node the RGB
// whose printed colour is nearest (CIE76), found from the nearest grid patch by a shrinking pattern
// search over the trilinear interpolation of the measurements; colours outside the gamut so map to the
// nearest printable one.
//
//   make-icc-profile [--plugin libinkweave.so] <folder>    writes <folder>/inkweave-<paper type>.icc
#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/proof.h"
#include "decode/colorimetry.h"
#include "host/choices.h"

namespace {

namespace cli = inkweave::cli;
namespace decode = inkweave::decode;
namespace host = inkweave::host;

constexpr int kLevels = 17;     // RGB grid levels a channel
constexpr int kLabLevels = 17;  // Lab grid levels an axis

using Lab = decode::Lab;

int Index(int r, int g, int b) { return (r * kLevels + g) * kLevels + b; }

// The printed colour of any RGB (0..1 each), trilinear between the measured grid's nodes.
Lab Interpolate(const std::vector<Lab>& grid, const std::array<double, 3>& rgb) {
  std::array<int, 3> base{};
  std::array<double, 3> frac{};
  for (int c = 0; c < 3; ++c) {
    const double x = std::clamp(rgb[static_cast<std::size_t>(c)], 0.0, 1.0) * (kLevels - 1);
    base[static_cast<std::size_t>(c)] = std::min(kLevels - 2, static_cast<int>(x));
    frac[static_cast<std::size_t>(c)] = x - base[static_cast<std::size_t>(c)];
  }
  Lab out;
  for (int corner = 0; corner < 8; ++corner) {
    double weight = 1;
    std::array<int, 3> at{};
    for (int c = 0; c < 3; ++c) {
      const bool up = (corner >> c) & 1;
      const auto i = static_cast<std::size_t>(c);
      at[i] = base[i] + (up ? 1 : 0);
      weight *= up ? frac[i] : 1 - frac[i];
    }
    const Lab& node = grid[static_cast<std::size_t>(Index(at[0], at[1], at[2]))];
    out.L += weight * node.L;
    out.a += weight * node.a;
    out.b += weight * node.b;
  }
  return out;
}

double Distance(const Lab& x, const Lab& y) { return std::hypot(x.L - y.L, x.a - y.a, x.b - y.b); }

// The RGB whose printed colour is nearest `want`.
std::array<double, 3> Invert(const std::vector<Lab>& grid, const Lab& want) {
  std::array<double, 3> best{};
  double bestDistance = 1e300;
  for (int r = 0; r < kLevels; ++r)
    for (int g = 0; g < kLevels; ++g)
      for (int b = 0; b < kLevels; ++b) {
        const double d = Distance(grid[static_cast<std::size_t>(Index(r, g, b))], want);
        if (d < bestDistance) {
          bestDistance = d;
          best = {r / (kLevels - 1.0), g / (kLevels - 1.0), b / (kLevels - 1.0)};
        }
      }
  for (double step = 0.5 / (kLevels - 1); step > 1e-4; step /= 2) {
    for (bool moved = true; moved;) {
      moved = false;
      for (std::size_t c = 0; c < 3; ++c)
        for (double sign : {-1.0, 1.0}) {
          std::array<double, 3> trial = best;
          trial[c] = std::clamp(trial[c] + sign * step, 0.0, 1.0);
          const double d = Distance(Interpolate(grid, trial), want);
          if (d < bestDistance - 1e-9) {
            bestDistance = d;
            best = trial;
            moved = true;
          }
        }
    }
  }
  return best;
}

cmsUInt16Number Word(double unit) {
  return static_cast<cmsUInt16Number>(std::lround(std::clamp(unit, 0.0, 1.0) * 65535.0));
}

bool Fail(const std::string& message) {
  std::fprintf(stderr, "make-icc-profile: %s\n", message.c_str());
  return false;
}

// A 3-to-3 table between identity curves (the shape a v4 lutAtoB or lutBtoA tag takes).
cmsPipeline* TablePipeline(int levels, const std::vector<cmsUInt16Number>& table) {
  cmsPipeline* pipeline = cmsPipelineAlloc(nullptr, 3, 3);
  cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
  cmsPipelineInsertStage(pipeline, cmsAT_END,
                         cmsStageAllocCLut16bit(nullptr, static_cast<cmsUInt32Number>(levels), 3, 3, table.data()));
  cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
  return pipeline;
}

bool WriteProfile(const std::vector<Lab>& grid, const std::string& description, const char* path) {
  cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
  cmsSetProfileVersion(profile, 4.3);
  cmsSetDeviceClass(profile, cmsSigOutputClass);
  cmsSetColorSpace(profile, cmsSigRgbData);
  cmsSetPCS(profile, cmsSigLabData);
  cmsSetHeaderRenderingIntent(profile, INTENT_PERCEPTUAL);

  // AToB0: RGB → Lab, the measured grid (Lab in its 16-bit encoding).
  std::vector<cmsUInt16Number> forward;
  for (const Lab& lab : grid) {
    cmsCIELab value{lab.L, lab.a, lab.b};
    cmsUInt16Number encoded[3];
    cmsFloat2LabEncoded(encoded, &value);
    forward.insert(forward.end(), encoded, encoded + 3);
  }
  cmsPipeline* aToB = TablePipeline(kLevels, forward);

  // BToA0: Lab → RGB, the inverse on a Lab grid (the same 16-bit encoding on the way in).
  std::vector<cmsUInt16Number> inverse;
  for (int l = 0; l < kLabLevels; ++l)
    for (int a = 0; a < kLabLevels; ++a)
      for (int b = 0; b < kLabLevels; ++b) {
        const cmsUInt16Number encoded[3] = {Word(l / (kLabLevels - 1.0)), Word(a / (kLabLevels - 1.0)),
                                            Word(b / (kLabLevels - 1.0))};
        cmsCIELab value;
        cmsLabEncoded2Float(&value, encoded);
        const auto rgb = Invert(grid, Lab{value.L, value.a, value.b});
        for (double channel : rgb) inverse.push_back(Word(channel));
      }
  cmsPipeline* bToA = TablePipeline(kLabLevels, inverse);

  cmsMLU* text = cmsMLUalloc(nullptr, 1);
  cmsMLUsetASCII(text, "en", "US", description.c_str());
  cmsMLU* copyright = cmsMLUalloc(nullptr, 1);
  cmsMLUsetASCII(copyright, "en", "US", "No copyright, use freely");
  const struct {
    cmsTagSignature Tag;
    const void* Data;
  } tags[] = {
      {cmsSigAToB0Tag, aToB},
      {cmsSigBToA0Tag, bToA},
      {cmsSigBToA1Tag, bToA},
      {cmsSigBToA2Tag, bToA},
      {cmsSigProfileDescriptionTag, text},
      {cmsSigCopyrightTag, copyright},
      {cmsSigMediaWhitePointTag, cmsD50_XYZ()},
  };
  bool ok = true;
  for (const auto& tag : tags) {
    if (!cmsWriteTag(profile, tag.Tag, tag.Data)) ok = Fail("cannot write the tag " + std::to_string(tag.Tag));
  }
  ok = ok && cmsMD5computeID(profile) && cmsSaveProfileToFile(profile, path);
  cmsMLUfree(text);
  cmsMLUfree(copyright);
  cmsPipelineFree(aToB);
  cmsPipelineFree(bToA);
  cmsCloseProfile(profile);
  return ok || Fail(std::string("cannot write ") + path);
}

}  // namespace

int main(int argc, char** argv) {
  cli::ProofSettings settings;
  std::string folder;
  bool usage = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--plugin" && i + 1 < argc)
      settings.Plugin = argv[++i];
    else if (folder.empty() && arg[0] != '-')
      folder = arg;
    else
      usage = true;
  }
  if (usage || folder.empty()) {
    std::fprintf(stderr, "usage: make-icc-profile [--plugin PATH] <folder>\n");
    return 2;
  }
  settings.Quality = host::kDefaultQuality;
  settings.Method = host::kHalftones[0].Method;

  std::vector<cli::Colour> colours;
  const auto level = [](int i) { return static_cast<std::uint8_t>(std::lround(255.0 * i / (kLevels - 1))); };
  for (int r = 0; r < kLevels; ++r)
    for (int g = 0; g < kLevels; ++g)
      for (int b = 0; b < kLevels; ++b) colours.push_back({level(r), level(g), level(b)});
  for (const host::Medium& medium : host::kMedia) {
    settings.Media = medium.Name;
    std::string error;
    const auto printed = cli::PrintPatches(settings, colours, &error);
    if (!printed) return Fail(error), 1;
    std::vector<Lab> grid;
    for (const decode::Reflectance& colour : *printed) grid.push_back(decode::LabOfReflectance(colour));
    const std::string description = "Inkweave Colour Inkjet, " + std::string(medium.PpdName) + " paper, " +
                                    std::to_string(host::kDefaultQuality) + " dpi";
    if (!WriteProfile(grid, description, (folder + "/" + host::IccProfileName(medium)).c_str())) return 1;
  }
  return 0;
}
