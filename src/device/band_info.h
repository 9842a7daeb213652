// The band record: built by the band driver for every band and read by renderer selection, the
// renderers and the raster emitter. It lives here, below all of them, so none depends on a stage above.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace inkweave {

struct BandInfo {
  BITMAPINFOHEADER Header;   // copy of the host's bitmap header
  const std::uint8_t* Bits;  // the band's first source row
  std::int32_t Stride;       // bytes from one source row to the next: (width + 1) * 3 & ~3
};

// The row stride of a band: the 4-byte aligned length of a 24-bit row, whatever the bit count.
constexpr std::int32_t BandStride(std::int32_t width) { return ((width + 1) * 3) & ~3; }

}  // namespace inkweave
