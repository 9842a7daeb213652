// The colour stage's batch kernels, one per instruction set (instruction_set.h): the renderers convert
// the pixels of a stretch that their conversion memory cannot answer in one call.
#pragma once

#include <cstdint>

#include "src/color/instruction_set.h"
#include "src/device/device_state.h"

namespace inkweave {

// A pixel as a key: red | green << 8 | blue << 16, the top byte 0.
inline constexpr std::uint32_t PixelKey(const std::uint8_t* pixel) {
  return pixel[0] | std::uint32_t{pixel[1]} << 8 | std::uint32_t{pixel[2]} << 16;
}

// Converts count pixels, given as keys, into out[i] exactly as ConvertPixel would (its packed result:
// cyan in the lowest byte).
using ConvertPixelsFn = void (*)(const std::uint32_t* keys, int count, std::uint32_t* out, const DeviceState& state);

// The conversion kernel of an instruction set (the portable one for a set this build has no kernel for).
ConvertPixelsFn ConvertPixelsFor(InstructionSet set);

}  // namespace inkweave
