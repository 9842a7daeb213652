#include "tools/table_print.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "decode/decoder.h"
#include "src/data/tables.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"

namespace inkweave::tables {
namespace {

// ---------------------------------------------------------------------------------------------------
// The error-diffusion renderers' response to flat amounts
// ---------------------------------------------------------------------------------------------------

constexpr int kSteps = 17;  // amounts 0, 16, ..., 240, 255
constexpr double kAmount[kSteps] = {0, 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176, 192, 208, 224, 240, 255};

struct Response {
  std::array<double, kSteps> Ink{};                         // mean ink per cell (1 = a full dot) of an amount
  std::array<double, kSteps> BlackCells{};                  // share of cells holding black, by black's amount
  std::array<std::array<double, kSteps>, kSteps> Hidden{};  // [colour][black]: colour ink in black cells per cell
};

struct Renderer {
  BandRendererFn Render;
  std::uint8_t PrintMode;
  int StripeLines;  // source lines a call
  int Scale;        // output dots per source pixel each way
  int Dpi;
  int BitsPerDot;
};

Renderer RendererOf(Screen screen) {
  switch (screen) {
    case Screen::DiffuseLow: return {&DiffuseLowPortrait, kLevel150, kStripeLines, 1, 150, 1};
    case Screen::DiffuseMid: return {&DiffuseMidPortrait, kPrintModeFlag | kLevel300, kStripeLines, 1, 300, 2};
    case Screen::DiffuseHigh: return {&DiffuseHighPortrait, kPrintModeFlag | kLevel600, kStripeLines, 1, 600, 2};
    default: return {&DiffuseTopPortrait, kLevelHigh, kStripeLinesHigh, 2, 1200, 1};
  }
}

// Sums over the measured part of one flat patch.
struct PatchSums {
  std::array<double, 4> Ink{};     // dot ink, 1/255 of a cell
  std::array<double, 3> Hidden{};  // colour dot ink in cells holding black
  double BlackCells = 0;
  double Cells = 0;
};

// Renders a flat patch of the amounts (each 0..255) through the renderer, as the band driver drives it
// from the top of a page: the colour table holds one entry everywhere, and a colour mode other than
// 1 and 2 converts through it and splits by the rule (all grey into black), so the amounts arrive as
// given.
PatchSums RenderFlat(const Renderer& r, const std::array<int, 4>& amounts) {
  constexpr int kAcross = 128;  // source pixels
  constexpr int kDown = 64;     // source lines
  constexpr int kSettle = 16;   // output lines left out at the top while the error settles
  constexpr int kEdge = 8;      // output dots left out at each end of a line
  DeviceState state{};
  state.ColorMode = 0;
  state.PrintMode = r.PrintMode;
  state.PrintQuality = r.Scale == 2 ? 600 : 300;
  state.PageWidth = kAcross;
  const std::size_t errorCells = (4 * std::size_t{kAcross} * (r.Scale == 2 ? 2 : 1) + 16) / 2;
  std::vector<std::int16_t> lines[4];
  for (int j = 0; j < 4; ++j) {
    lines[j].assign(errorCells, 0);
    state.LineBuffers[j] = lines[j].data();
  }
  std::vector<std::uint8_t> planes[2];
  for (int b = 0; b < 2; ++b) {
    planes[b].assign(kPlaneBufferBytes, 0);
    state.PlaneBuffer[b] = planes[b].data();
  }
  std::vector<std::uint8_t> curves(kToneCurveBytes);
  for (std::size_t i = 0; i < curves.size(); ++i) curves[i] = static_cast<std::uint8_t>(i);
  state.ToneCurves = curves.data();
  const int k = amounts[3];
  const std::uint8_t entry[4] = {static_cast<std::uint8_t>(amounts[0] + k), static_cast<std::uint8_t>(amounts[1] + k),
                                 static_cast<std::uint8_t>(amounts[2] + k), static_cast<std::uint8_t>(k)};
  std::vector<std::uint8_t> lut(kColorTableBytes);
  for (std::size_t i = 0; i < lut.size(); ++i) lut[i] = entry[i % 4];
  state.ColorLut = lut.data();

  // A colour that is neither white, a corner nor neutral, so that it interpolates the one entry.
  const std::int32_t stride = ((kAcross + 1) * 3) & ~3;
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(stride) * kDown);
  for (int y = 0; y < kDown; ++y)
    for (int x = 0; x < kAcross; ++x) {
      std::uint8_t* p = &pixels[static_cast<std::size_t>(y * stride + 3 * x)];
      p[0] = 100;
      p[1] = 120;
      p[2] = 140;
    }
  BandInfo band{};
  band.Header.biSize = 40;
  band.Header.biWidth = kAcross;
  band.Header.biHeight = kDown;
  band.Header.biPlanes = 1;
  band.Header.biBitCount = 24;
  band.Bits = pixels.data();
  band.Stride = stride;
  IPPARAMS params{};
  params.dwSize = sizeof(IPPARAMS);

  const std::array<int, 4> dotInk = decode::DotInkOf(r.Dpi, r.BitsPerDot);
  const int dots = kAcross * r.Scale;
  const int planeBytes = kPlaneBytes * r.Scale;
  const int lineBytes = kPlanes * planeBytes;
  SeedDiffusionLines(state, 4, dots);
  PatchSums sums;
  for (int first = 0; first < kDown; first += r.StripeLines) {
    r.Render(state, first, kAcross, band, r.StripeLines, 0, kAcross, &params);
    for (int l = 0; l < r.StripeLines * r.Scale; ++l) {
      if (first * r.Scale + l < kSettle) continue;
      for (int x = kEdge; x < dots - kEdge; ++x) {
        const std::size_t byte = static_cast<std::size_t>(l * lineBytes + x / 8);
        const int mask = 0x80 >> (x % 8);
        int value[4];
        for (int p = 0; p < 4; ++p) {
          const std::size_t at = byte + static_cast<std::size_t>(p * planeBytes);
          value[p] = ((planes[0][at] & mask) ? 1 : 0) + (r.BitsPerDot == 2 && (planes[1][at] & mask) ? 2 : 0);
          sums.Ink[static_cast<std::size_t>(p)] += dotInk[static_cast<std::size_t>(value[p])];
        }
        if (value[3] != 0) {
          sums.BlackCells += 1;
          for (std::size_t p = 0; p < 3; ++p) sums.Hidden[p] += dotInk[static_cast<std::size_t>(value[p])];
        }
        sums.Cells += 1;
      }
    }
  }
  return sums;
}

// Every black amount of the grid with every colour amount, three colours a patch. One colour-table
// entry can ask for no more than 255 of colour and black together (the rule split takes all grey into
// black); where a colour amount lies beyond that, its ink under black is the measured ink at the most
// that can be asked, and the rest is taken to fall on black cells in proportion to their share.
Response Measure(Screen screen) {
  const Renderer r = RendererOf(screen);
  Response response;
  std::array<double, kSteps> inkSum{}, inkCount{};
  for (int kb = 0; kb < kSteps; ++kb) {
    const auto kbIndex = static_cast<std::size_t>(kb);
    const int black = static_cast<int>(kAmount[kb]);
    double beyond[kSteps] = {};  // amounts past the most, by colour step: 0 where measured as asked
    for (int first = 0; first < kSteps; first += 3) {
      std::array<int, 4> amounts{};
      int index[3];
      for (int i = 0; i < 3; ++i) {
        index[i] = std::min(first + i, kSteps - 1);
        const int wanted = static_cast<int>(kAmount[index[i]]);
        amounts[static_cast<std::size_t>(i)] = std::min(wanted, 255 - black);
        beyond[index[i]] = wanted - amounts[static_cast<std::size_t>(i)];
      }
      amounts[3] = black;
      const PatchSums sums = RenderFlat(r, amounts);
      response.BlackCells[kbIndex] = sums.BlackCells / sums.Cells;
      for (std::size_t i = 0; i < 3; ++i) {
        const auto c = static_cast<std::size_t>(index[i]);
        response.Hidden[c][kbIndex] = sums.Hidden[i] / (255.0 * sums.Cells);
        if (beyond[c] > 0) continue;
        inkSum[c] += sums.Ink[i] / (255.0 * sums.Cells);
        inkCount[c] += 1;
      }
    }
    for (std::size_t c = 0; c < kSteps; ++c)
      response.Hidden[c][kbIndex] += beyond[c] / 255.0 * response.BlackCells[kbIndex];
  }
  // Colour and black are diffused alike: the mean ink of an amount over every patch that asked it.
  for (std::size_t i = 0; i < kSteps; ++i) response.Ink[i] = inkSum[i] / inkCount[i];
  return response;
}

const Response& ResponseOf(Screen screen) {
  static const Response responses[4] = {Measure(Screen::DiffuseLow), Measure(Screen::DiffuseMid),
                                        Measure(Screen::DiffuseHigh), Measure(Screen::DiffuseTop)};
  return responses[static_cast<int>(screen) - static_cast<int>(Screen::DiffuseLow)];
}

// Where an amount falls on the grid: the step below and the share of the way to the next.
struct Place {
  std::size_t Below;
  double Share;
};

Place PlaceOf(double amount) {
  const double a = std::clamp(amount, 0.0, 255.0);
  std::size_t i = std::min<std::size_t>(static_cast<std::size_t>(a / 16), kSteps - 2);
  return {i, (a - kAmount[i]) / (kAmount[i + 1] - kAmount[i])};
}

double Along(const std::array<double, kSteps>& curve, double amount) {
  const Place p = PlaceOf(amount);
  return curve[p.Below] + p.Share * (curve[p.Below + 1] - curve[p.Below]);
}

// Share of the cells an ordered-dither ink covers: thresholds 3..255 sixteen times each in a tile of
// 4096 cells, and 2 forty-eight times, so a/256 of the cells up to 253 and every cell from 254 on.
double DitherShare(double amount) {
  const double a = std::clamp(amount, 0.0, 255.0);
  return a <= 253 ? a / 256 : std::min(1.0, 253.0 / 256 + (a - 253) * (3.0 / 256));
}

// ---------------------------------------------------------------------------------------------------
// Colorimetry
// ---------------------------------------------------------------------------------------------------

using Matrix = std::array<std::array<double, 3>, 3>;
using Vector = std::array<double, 3>;

constexpr Vector kD50 = {0.9642, 1.0, 0.8249};

Vector Times(const Matrix& m, const Vector& v) {
  Vector out{};
  for (std::size_t r = 0; r < 3; ++r) out[r] = m[r][0] * v[0] + m[r][1] * v[1] + m[r][2] * v[2];
  return out;
}

Matrix Times(const Matrix& a, const Matrix& b) {
  Matrix out{};
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 3; ++c) out[r][c] = a[r][0] * b[0][c] + a[r][1] * b[1][c] + a[r][2] * b[2][c];
  return out;
}

Matrix Inverse(const Matrix& m) {
  const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                     m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                     m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  Matrix out{};
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 3; ++c) {
      const std::size_t r1 = (c + 1) % 3, r2 = (c + 2) % 3, c1 = (r + 1) % 3, c2 = (r + 2) % 3;
      out[r][c] = (m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1]) / det;
    }
  return out;
}

Vector XyzOfXy(double x, double y) { return {x / y, 1.0, (1 - x - y) / y}; }

// RGB to XYZ of three primaries (xy) and a white (XYZ).
Matrix RgbToXyz(const double (&xy)[3][2], const Vector& white) {
  Matrix p{};
  for (std::size_t i = 0; i < 3; ++i) {
    const Vector v = XyzOfXy(xy[i][0], xy[i][1]);
    for (std::size_t r = 0; r < 3; ++r) p[r][i] = v[r];
  }
  const Vector s = Times(Inverse(p), white);
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 3; ++c) p[r][c] *= s[c];
  return p;
}

const Matrix& RommToXyz() {
  static const Matrix m = RgbToXyz({{0.7347, 0.2653}, {0.1596, 0.8404}, {0.0366, 0.0001}}, kD50);
  return m;
}

// sRGB to XYZ adapted from D65 to D50 (Bradford), as an sRGB profile's colorants.
const Matrix& SrgbToXyzD50() {
  static const Matrix m = [] {
    const Vector d65 = XyzOfXy(0.3127, 0.3290);
    const Matrix toD65 = RgbToXyz({{0.64, 0.33}, {0.30, 0.60}, {0.15, 0.06}}, d65);
    const Matrix bradford = {{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};
    const Vector from = Times(bradford, d65), to = Times(bradford, kD50);
    Matrix scale{};
    for (std::size_t i = 0; i < 3; ++i) scale[i][i] = to[i] / from[i];
    return Times(Inverse(bradford), Times(scale, Times(bradford, toD65)));
  }();
  return m;
}

double LabF(double t) {
  constexpr double kDelta = 6.0 / 29;
  return t > kDelta * kDelta * kDelta ? std::cbrt(t) : t / (3 * kDelta * kDelta) + 4.0 / 29;
}

double LabFInverse(double f) {
  constexpr double kDelta = 6.0 / 29;
  return f > kDelta ? f * f * f : 3 * kDelta * kDelta * (f - 4.0 / 29);
}

Lab LabOfXyz(const Vector& xyz) {
  const double fx = LabF(xyz[0] / kD50[0]), fy = LabF(xyz[1] / kD50[1]), fz = LabF(xyz[2] / kD50[2]);
  return {116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)};
}

Vector XyzOfLab(const Lab& lab) {
  const double fy = (lab.L + 16) / 116;
  return {kD50[0] * LabFInverse(fy + lab.a / 500), kD50[1] * LabFInverse(fy), kD50[2] * LabFInverse(fy - lab.b / 200)};
}

double SrgbLinear(double value) {
  const double v = std::clamp(value / 255.0, 0.0, 1.0);
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}

}  // namespace

decode::AreaInk DotsFor(Screen screen, const std::array<double, 4>& amounts) {
  decode::AreaInk dots;
  if (screen == Screen::Dither) {
    const double common = DitherShare(std::min({amounts[0], amounts[1], amounts[2]}));
    for (std::size_t i = 0; i < 3; ++i) dots.Ink[i] = DitherShare(amounts[i]) - common;
    dots.Ink[3] = common;
    dots.BlackCells = common;
    return dots;
  }
  const Response& r = ResponseOf(screen);
  for (std::size_t i = 0; i < 4; ++i) dots.Ink[i] = amounts[i] > 0 ? Along(r.Ink, amounts[i]) : 0.0;
  if (amounts[3] <= 0) return dots;
  dots.BlackCells = Along(r.BlackCells, amounts[3]);
  const Place black = PlaceOf(amounts[3]);
  for (std::size_t i = 0; i < 3; ++i) {
    if (amounts[i] <= 0) continue;
    const Place colour = PlaceOf(amounts[i]);
    const auto& h = r.Hidden;
    const double low =
        h[colour.Below][black.Below] + colour.Share * (h[colour.Below + 1][black.Below] - h[colour.Below][black.Below]);
    const double high = h[colour.Below][black.Below + 1] +
                        colour.Share * (h[colour.Below + 1][black.Below + 1] - h[colour.Below][black.Below + 1]);
    const double hidden = low + black.Share * (high - low);
    dots.UnderBlack[i] = dots.BlackCells > 0 ? std::min(hidden / dots.BlackCells, 350.0 / 255) : 0.0;
  }
  return dots;
}

Lab PrintedAmounts(const Use& use, const std::array<double, 4>& amounts) {
  const decode::InkModel model = decode::InkModelFor(use.Medium, use.Dpi);
  return LabOfReflectance(decode::PrintedColour(model, DotsFor(use.Halftone, amounts)));
}

Lab PrintedEntry(const Use& use, const std::array<double, 4>& entry, int yellowCap) {
  if (use.Split < 0) return PrintedAmounts(use, entry);
  // The split of a grey component between two rows, in proportion.
  const double g = std::clamp(entry[3], 0.0, 255.0);
  const int below = std::min(254, static_cast<int>(g));
  const double share = g - below;
  std::array<double, 4> amounts{};
  for (std::size_t v = 0; v < 4; ++v) {
    const double removed =
        (1 - share) * InkSplitTable[use.Split][below][v] + share * InkSplitTable[use.Split][below + 1][v];
    amounts[v] = (v < 3 ? entry[v] : g) - removed;
  }
  amounts[2] = std::min(amounts[2], static_cast<double>(yellowCap));
  return PrintedAmounts(use, amounts);
}

Lab LabOfReflectance(const decode::Reflectance& colour) {
  const Vector rgb = {std::max(0.0, colour[0]), std::max(0.0, colour[1]), std::max(0.0, colour[2])};
  return LabOfXyz(Times(RommToXyz(), rgb));
}

Lab LabOfSrgb(double red, double green, double blue) {
  return LabOfXyz(Times(SrgbToXyzD50(), Vector{SrgbLinear(red), SrgbLinear(green), SrgbLinear(blue)}));
}

Lab CompensateBlack(const Lab& source, const Lab& black) {
  const Vector in = XyzOfLab(source), bk = XyzOfLab(black);
  Vector out{};
  for (std::size_t i = 0; i < 3; ++i) out[i] = in[i] * (1 - bk[i] / kD50[i]) + bk[i];
  return LabOfXyz(out);
}

std::array<double, 3> Difference(const Lab& wanted, const Lab& printed, double hueWeight) {
  const double c1 = std::hypot(wanted.a, wanted.b), c2 = std::hypot(printed.a, printed.b);
  const double da = printed.a - wanted.a, db = printed.b - wanted.b, dc = c2 - c1;
  const double dh2 = std::max(0.0, da * da + db * db - dc * dc);
  // The hue difference carries the sign of the turn from the wanted hue to the printed one.
  const double turn = wanted.a * printed.b - wanted.b * printed.a;
  const double dh = turn < 0 ? -std::sqrt(dh2) : std::sqrt(dh2);
  return {printed.L - wanted.L, dc / (1 + 0.045 * c1), hueWeight * dh / (1 + 0.015 * c1)};
}

namespace {

double SumOfSquares(const std::vector<double>& r) {
  double sum = 0;
  for (double v : r) sum += v * v;
  return sum;
}

}  // namespace

std::array<double, 3> MinimiseInBox(const Residuals& residuals, std::array<double, 3> start, double low, double high,
                                    int steps) {
  constexpr double kDelta = 1e-3;
  std::array<double, 3> x = start;
  for (double& v : x) v = std::clamp(v, low, high);
  std::vector<double> r = residuals(x);
  double lambda = 1e-3;
  for (int step = 0; step < steps; ++step) {
    // Derivatives, each toward the inside of the box.
    const std::size_t m = r.size();
    std::vector<std::array<double, 3>> jac(m);
    for (std::size_t j = 0; j < 3; ++j) {
      std::array<double, 3> y = x;
      const double h = y[j] + kDelta <= high ? kDelta : -kDelta;
      y[j] += h;
      const std::vector<double> ry = residuals(y);
      for (std::size_t i = 0; i < m; ++i) jac[i][j] = (ry[i] - r[i]) / h;
    }
    double a[3][3] = {}, g[3] = {};
    for (std::size_t i = 0; i < m; ++i)
      for (std::size_t j = 0; j < 3; ++j) {
        g[j] -= jac[i][j] * r[i];
        for (std::size_t k = 0; k < 3; ++k) a[j][k] += jac[i][j] * jac[i][k];
      }
    bool improved = false;
    while (lambda < 1e8) {
      double d[3][4];
      for (std::size_t j = 0; j < 3; ++j) {
        for (std::size_t k = 0; k < 3; ++k) d[j][k] = a[j][k] + (j == k ? lambda * (a[j][j] + 1e-9) : 0.0);
        d[j][3] = g[j];
      }
      // Gaussian elimination with partial pivoting on the 3 x 3 system.
      for (std::size_t c = 0; c < 3; ++c) {
        std::size_t pivot = c;
        for (std::size_t row = c + 1; row < 3; ++row)
          if (std::fabs(d[row][c]) > std::fabs(d[pivot][c])) pivot = row;
        for (std::size_t k = 0; k < 4; ++k) std::swap(d[c][k], d[pivot][k]);
        for (std::size_t row = c + 1; row < 3; ++row) {
          const double f = d[c][c] != 0 ? d[row][c] / d[c][c] : 0.0;
          for (std::size_t k = c; k < 4; ++k) d[row][k] -= f * d[c][k];
        }
      }
      std::array<double, 3> delta{};
      for (std::size_t c = 3; c-- > 0;) {
        double sum = d[c][3];
        for (std::size_t k = c + 1; k < 3; ++k) sum -= d[c][k] * delta[k];
        delta[c] = d[c][c] != 0 ? sum / d[c][c] : 0.0;
      }
      std::array<double, 3> y = x;
      for (std::size_t j = 0; j < 3; ++j) y[j] = std::clamp(x[j] + delta[j], low, high);
      const std::vector<double> ry = residuals(y);
      const double before = SumOfSquares(r), after = SumOfSquares(ry);
      if (after < before) {
        x = y;
        r = ry;
        lambda = std::max(1e-7, lambda / 4);
        improved = before - after > 1e-6 * before + 1e-12;  // stop once a step gains next to nothing
        break;
      }
      lambda *= 8;
    }
    if (!improved) break;
  }
  return x;
}

}  // namespace inkweave::tables
