// One RGB pixel to four ink lightness values; the conversion itself is in convert_pixel.h.
#include "src/color/convert_pixel.h"

namespace inkweave {

std::uint32_t ConvertPixel(const std::uint8_t* pixel, std::uint8_t* out, const DeviceState& state) {
  return ConvertPixelInline(pixel, out, state);
}

}  // namespace inkweave
