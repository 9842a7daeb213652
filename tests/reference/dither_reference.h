// Deliberately plain ordered-dither renderers for the tests: one dot at a time, bit by bit, written
// from the rules rather than from the fast code. They work on a separate plane image of the same size
// as PlaneBuffer and read the band only where a pixel lies inside it (rows 0..height-1 at the band's
// stride; positive strides only); a pixel outside counts as white, i.e. no dot.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "src/color/color.h"
#include "src/data/tables.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"

namespace inkweave::reference {

// Byte offset of a plane (cyan, magenta, yellow, black) in an output line below level 6.
inline constexpr long PlaneAt(int plane) { return long{plane} * kPlaneBytes; }

inline bool PixelInside(const BandInfo& band, long row, long byte, long size) {
  const long start = row * band.Stride + byte;
  return band.Bits != nullptr && band.Header.biHeight > 0 && start >= 0 &&
         start + size <= static_cast<long>(band.Header.biHeight) * band.Stride;
}

inline void SetDot(std::vector<std::uint8_t>& planes, long line, int plane, long x) {
  const long index = kLineBytes * line + PlaneAt(plane) + x / 8;
  if (index < static_cast<long>(planes.size())) planes[static_cast<std::size_t>(index)] |= 0x80 >> (x % 8);
}

// Colour renderer: per dot, the pixel (portrait: row first+l, column x; landscape: row width-1-x,
// column first+l), its inks (converted unless equal to the last pixel, which starts as white), three
// threshold compares; then the black pass, byte by byte, over width bytes of the line.
inline std::uint32_t DitherColor(const DeviceState& state, int firstLine, int width, const BandInfo& band,
                                 int lineCount, const IPPARAMS& params, bool landscape,
                                 std::vector<std::uint8_t>& planes) {
  const long offset = landscape ? params.ptOffset.x : params.ptOffset.y;
  std::uint8_t remembered[3] = {255, 255, 255};
  std::uint8_t ink[4] = {255, 255, 255, 255};
  bool any = false;
  for (long l = 0; l < lineCount && kLineBytes * l < static_cast<long>(planes.size()); ++l) {
    const long row = ((firstLine + l + offset) % 128 + 128) % 128;
    for (long x = 0; x < width; ++x) {
      const long sourceRow = landscape ? width - 1 - x : firstLine + l;
      const long sourceByte = landscape ? 3 * (firstLine + l) : 3 * x;
      if (!PixelInside(band, sourceRow, sourceByte, 3)) continue;
      const std::uint8_t* pixel = band.Bits + sourceRow * band.Stride + sourceByte;
      if (!std::equal(pixel, pixel + 3, remembered)) {
        ConvertPixel(pixel, ink, state);
        std::copy_n(pixel, 3, remembered);
      }
      const std::uint8_t threshold = DitherMatrix[row][x % 128];
      for (int plane = 0; plane < 3; ++plane) {
        if (ink[plane] < threshold) SetDot(planes, l, plane, x);
      }
    }
    for (long i = 0; i < width; ++i) {
      const long at = kLineBytes * l + i;
      if (at + PlaneAt(3) >= static_cast<long>(planes.size())) break;
      std::uint8_t* p = &planes[static_cast<std::size_t>(at)];
      any = any || (p[PlaneAt(0)] | p[PlaneAt(1)] | p[PlaneAt(2)]) != 0;
      p[PlaneAt(3)] = p[PlaneAt(0)] & p[PlaneAt(1)] & p[PlaneAt(2)];
      for (int plane = 0; plane < 3; ++plane) p[PlaneAt(plane)] &= static_cast<std::uint8_t>(~p[PlaneAt(3)]);
    }
  }
  return any ? 1 : 0;
}

// Gray renderer: per dot of (width - 1) / 8 + 1 whole bytes, curve 6 at the source byte against the
// threshold of row (first dither row + l), the rows after 127 taken from the rows stored behind.
inline std::uint32_t DitherGray(const DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                                const IPPARAMS& params, bool landscape, std::vector<std::uint8_t>& planes) {
  const long offset = landscape ? params.ptOffset.x : params.ptOffset.y;
  const std::uint8_t* curve = state.ToneCurves + 6 * 256;
  const long dots = 8 * ((width - 1) / 8 + 1);
  const long firstRow = ((firstLine + offset) % 128 + 128) % 128;
  bool any = false;
  for (long l = 0; l < lineCount && kLineBytes * l < static_cast<long>(planes.size()); ++l) {
    const long row = firstRow + l;
    for (long x = 0; x < dots; ++x) {
      const long index = kLineBytes * l + PlaneAt(3) + x / 8;
      if (index >= static_cast<long>(planes.size())) break;
      std::uint8_t& byte = planes[static_cast<std::size_t>(index)];
      if (x % 8 == 0) byte = 0;
      const long sourceRow = landscape ? width - 1 - x : firstLine + l;
      const long sourceByte = landscape ? firstLine + l : x;
      if (!PixelInside(band, sourceRow, sourceByte, 1)) continue;
      if (curve[band.Bits[sourceRow * band.Stride + sourceByte]] < DitherMatrix[row][x % 128]) {
        byte |= 0x80 >> (x % 8);
        any = true;
      }
    }
  }
  return any ? 1 : 0;
}

}  // namespace inkweave::reference
