// The pixel conversion, inline (ConvertPixel of color.h is this). One RGB pixel to four ink lightness
// values (255 no ink, 0 full ink): cyan, magenta, yellow, black.
//
// Monochrome: the luminance through the gray curve, the same in all four. Colour: the pixel through
// the red, green and blue curves, then the colour table, in a fixed order of cases:
//   1. a grid point (all three fractions 0) or white input: that grid point (white: the white one);
//   2. the six full-intensity corners (red, green, blue, cyan, magenta, yellow): their grid points,
//      which interpolation in cell 15 would reach only 15/16 of the way;
//   3. neutral input: the cyan ink of the two diagonal grid points, the top cell stretched over 15
//      steps so that 255 lands on the white grid point;
//   4. trilinear interpolation over the cell's eight corners with the table's weights (the last cell
//      is not stretched here).
// Integer arithmetic only, no allocation; reads exactly the three bytes of the pixel.
#pragma once

#include <cstddef>
#include <cstdint>

#include "src/color/color.h"
#include "src/color/color_internal.h"
#include "src/data/tables.h"

namespace inkweave {
namespace convert_detail {

// Byte distance from a cell's base grid point to its corner b (bit 1 red, 2 green, 4 blue further).
constexpr std::size_t kRedStep = GridOffset(1, 0, 0);
constexpr std::size_t kGreenStep = GridOffset(0, 1, 0);
constexpr std::size_t kBlueStep = GridOffset(0, 0, 1);
constexpr std::size_t kCornerOffset[8] = {0,
                                          kRedStep,
                                          kGreenStep,
                                          kRedStep + kGreenStep,
                                          kBlueStep,
                                          kRedStep + kBlueStep,
                                          kGreenStep + kBlueStep,
                                          kRedStep + kGreenStep + kBlueStep};

inline std::uint32_t Store(std::uint8_t* out, std::uint32_t c, std::uint32_t m, std::uint32_t y, std::uint32_t k) {
  out[0] = static_cast<std::uint8_t>(c);
  out[1] = static_cast<std::uint8_t>(m);
  out[2] = static_cast<std::uint8_t>(y);
  out[3] = static_cast<std::uint8_t>(k);
  return c | m << 8 | y << 16 | k << 24;
}

// The four ink bytes of a grid point spread into the 16-bit lanes of a 64-bit word, in the lane order
// cyan, yellow, magenta, black (bytes 0 and 2 stay where they are, bytes 1 and 3 move up 24 bits).
constexpr std::uint64_t kLaneOnes = 0x0001000100010001u;
constexpr std::uint64_t kLaneLowBytes = 0x00FF00FF00FF00FFu;

inline std::uint64_t Lanes(const std::uint8_t* point) {
  const std::uint32_t v =
      point[0] | std::uint32_t{point[1]} << 8 | std::uint32_t{point[2]} << 16 | std::uint32_t{point[3]} << 24;
  return (v & 0x00FF00FFu) | (std::uint64_t{v & 0xFF00FF00u} << 24);
}

// Stores four lanes of byte values (in the order of Lanes) as cyan, magenta, yellow, black.
inline std::uint32_t StoreLanes(std::uint8_t* out, std::uint64_t lanes) {
  const auto packed = static_cast<std::uint32_t>(lanes | (lanes >> 24));
  return Store(out, packed & 0xFF, (packed >> 8) & 0xFF, (packed >> 16) & 0xFF, packed >> 24);
}

// The complement of the four ink amounts of one grid point.
inline std::uint32_t StoreGridPoint(std::uint8_t* out, const std::uint8_t* point) {
  return Store(out, 255u - point[0], 255u - point[1], 255u - point[2], 255u - point[3]);
}

}  // namespace convert_detail

// ConvertPixel, inline: the renderers' loops call it per distinct pixel.
[[gnu::always_inline]] inline std::uint32_t ConvertPixelInline(const std::uint8_t* pixel, std::uint8_t* out,
                                                               const DeviceState& state) {
  using namespace convert_detail;
  const std::uint32_t red = pixel[0];
  const std::uint32_t green = pixel[1];
  const std::uint32_t blue = pixel[2];
  const std::uint8_t* curves = state.ToneCurves;
  const std::uint8_t* lut = state.ColorLut;
  // Without curves, or without a table in colour mode, there is nothing to convert by: no ink.
  if (curves == nullptr || (state.ColorMode != 1 && lut == nullptr)) return Store(out, 255, 255, 255, 255);

  if (state.ColorMode == 1) {
    const std::uint32_t v = curves[kCurveGray * 256 + (30 * red + 59 * green + 11 * blue) / 100];
    return Store(out, v, v, v, v);
  }

  const std::uint32_t r = curves[kCurveRed * 256 + red];
  const std::uint32_t g = curves[(kCurveRed + 1) * 256 + green];
  const std::uint32_t b = curves[(kCurveRed + 2) * 256 + blue];
  const int ir = static_cast<int>(r >> 4);
  const int ig = static_cast<int>(g >> 4);
  const int ib = static_cast<int>(b >> 4);
  const std::uint32_t fr = r & 15;
  const std::uint32_t fg = g & 15;
  const std::uint32_t fb = b & 15;
  const std::uint8_t* base = lut + GridOffset(ir, ig, ib);

  // Grid points and white input.
  if ((red & green & blue) == 255) return StoreGridPoint(out, lut + GridOffset(16, 16, 16));
  if ((fr | fg | fb) == 0) return StoreGridPoint(out, base);

  // The six full-intensity corners (every channel 0 or 255; white and black were grid points).
  if ((((r + 1) | (g + 1) | (b + 1)) & 0xFE) == 0) {
    switch (r << 16 | g << 8 | b) {
      case 0x0000FF: return StoreGridPoint(out, lut + GridOffset(0, 0, 16));
      case 0x00FF00: return StoreGridPoint(out, lut + GridOffset(0, 16, 0));
      case 0x00FFFF: return StoreGridPoint(out, lut + GridOffset(0, 16, 16));
      case 0xFF0000: return StoreGridPoint(out, lut + GridOffset(16, 0, 0));
      case 0xFF00FF: return StoreGridPoint(out, lut + GridOffset(16, 0, 16));
      case 0xFFFF00: return StoreGridPoint(out, lut + GridOffset(16, 16, 0));
      default: break;
    }
  }

  // Neutral: along the diagonal by the cyan ink alone; the top cell spans 15 steps.
  if (r == g && g == b) {
    const std::uint32_t d = ir < 15 ? 16 : 15;
    const std::uint32_t v = (base[kCornerOffset[7]] * fr + base[0] * (d - fr)) / d;
    return Store(out, 255 - v, 255 - v, 255 - v, 255 - v);
  }

  // Trilinear interpolation; the base corner takes what the other seven weights leave of 255. The
  // four inks run at once in the 16-bit lanes of one 64-bit word: the weights sum to 255, so no lane
  // exceeds 255 * 255 and no carry crosses into the next lane.
  const std::uint8_t* w = InterpolationWeights[(fr * 16 + fg) * 16 + fb];
  const std::uint64_t w0 = 255u - (w[1] + w[2] + w[3] + w[4] + w[5] + w[6] + w[7]);
  std::uint64_t sum = w0 * Lanes(base);
  for (int corner = 1; corner < 8; ++corner) sum += w[corner] * Lanes(base + kCornerOffset[corner]);

  // Each lane divided by 255 (exact up to 255 * 255), then the complement: lightness, not ink.
  const std::uint64_t quotient = ((sum + kLaneOnes + ((sum >> 8) & kLaneLowBytes)) >> 8) & kLaneLowBytes;
  return StoreLanes(out, kLaneLowBytes - quotient);
}

}  // namespace inkweave
