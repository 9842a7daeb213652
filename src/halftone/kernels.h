// The halftone stage's kernels, one per instruction set (src/color/instruction_set.h); the renderers
// take the kernels of the active set once per stripe. Every kernel answers exactly what its portable
// version answers: the tests run each against it on every instruction set the processor has.
#pragma once

#include <cstdint>

#include "src/color/instruction_set.h"

namespace inkweave::detail {

// Dots of a stretch of 32 ordered-dither positions. inks[k][j] is the lightness of ink k (cyan,
// magenta, yellow) and limits[j] the threshold minus 1 at position j; a dot is ink <= limit. Bit j of
// bits[k] is the dot at position j.
inline constexpr int kDitherStretch = 32;
using DitherStretchFn = void (*)(const std::uint8_t (*inks)[kDitherStretch], const std::uint8_t* limits,
                                 std::uint32_t* bits);

DitherStretchFn DitherStretchFor(InstructionSet set);

}  // namespace inkweave::detail
