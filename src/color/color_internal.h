// Internals of the colour stage shared by the table choice and the pixel conversion.
#pragma once

#include <cstddef>
#include <cstdint>

namespace inkweave {

// The seven tone curves of ToneCurves, curve k at byte 256 k.
inline constexpr int kCurveBrightness = 0;
inline constexpr int kCurveContrast = 1;
inline constexpr int kCurveRed = 2;  // green 3, blue 4
inline constexpr int kCurveGray = 5;
inline constexpr int kCurveGrayBand = 6;  // filled by the band driver for 8-bit bands

// Byte offset of grid point (i, j, k) of a colour table (red slowest, four bytes a point).
inline constexpr std::size_t GridOffset(int i, int j, int k) {
  return static_cast<std::size_t>(((i * 17 + j) * 17 + k) * 4);
}

// x / 255 for any 32-bit unsigned x, by the reciprocal multiply.
inline constexpr std::uint32_t DivideBy255(std::uint32_t x) {
  return static_cast<std::uint32_t>((std::uint64_t{x} * 0x80808081u) >> 39);
}

}  // namespace inkweave
