// The halftone stage's kernels, one per instruction set (src/color/instruction_set.h); the renderers
// take the kernels of the active set once per stripe. Every kernel answers exactly what its portable
// version answers: the tests run each against it on every instruction set the processor has.
#pragma once

#include <cstdint>

#include "src/color/instruction_set.h"

namespace inkweave::detail {

// Dots of a stretch of 32 ordered-dither positions. inks[j] is the packed lightness of position j (cyan
// in the lowest byte, then magenta, yellow, black; 255 no ink) and limits[j] the threshold minus 1 at
// position j in each of its four bytes; a dot is ink <= limit. Bit j ^ 7 of bits[k] is the dot of ink k
// (cyan, magenta, yellow) at position j: byte b of bits[k] is the plane byte of positions 8b..8b+7.
inline constexpr int kDitherStretch = 32;
using DitherStretchFn = void (*)(const std::uint32_t* inks, const std::uint32_t* limits, std::uint32_t* bits);

DitherStretchFn DitherStretchFor(InstructionSet set);

// The keys of 32 pixels of three bytes side by side from `pixels` (keys[j] = PixelKey of pixel j), and
// which of them differ from the one before: bit j of the answer is set where keys[j] != keys[j - 1],
// `before` standing for keys[-1]. The vector kernels read kStretchKeysReach bytes from `pixels` (the
// last four pixels as one 16-byte load); the caller makes sure that they lie in the band.
inline constexpr int kStretchKeysReach = 100;
using StretchKeysFn = std::uint32_t (*)(const std::uint8_t* pixels, std::uint32_t before, std::uint32_t* keys);

StretchKeysFn StretchKeysFor(InstructionSet set);

}  // namespace inkweave::detail

namespace inkweave::detail {

// The multi-level quantisers: three dot sizes (two bits), two dot sizes (two bits), one dot size at the
// highest resolution.
enum class Quantiser { Mid, High, Top };

// The dots a multi-level run works through at most.
inline constexpr int kRunDots = 256;

// One run of a multi-level diffusion line, the four inks (cyan, magenta, yellow, black) side by side:
// dot i of the run is position X + i Step.
struct ChainRun {
  const std::uint64_t* Amount;      // [i]: the inks' amounts, ink k in the 16-bit lane k of the word
  const std::uint64_t* Threshold;   // [i]: the inks' thresholds (the map's or a jitter draw), the same way
  const std::int16_t* Previous[4];  // the inks' previous rows: position p at [2 (p + 2)]
  std::int16_t* Current[4];         // the inks' rows being written, the same way
  int X;
  int Count;
  std::uint8_t* Planes[2];  // the line's planes in the first and second PlaneBuffer (null when one bit)
  int PlaneBytes;           // bytes per plane
  // The black chain's inputs instead of Amount and Threshold: black's amount and threshold of dot i,
  // readable (any value) up to the next multiple of 8 dots.
  const std::int16_t* BlackAmount;
  const std::int16_t* BlackThreshold;
};

// What a line carries from run to run: the errors just stored for the one and two dots before, the
// dot bits of the byte being collected (first buffer in lanes 0..3, second in 4..7) and whether any
// byte stored held a dot.
struct ChainState {
  std::int16_t C1[4];
  std::int16_t C2[4];
  std::uint16_t Bits[8];
  std::uint32_t Inked;
};

// Diffuses one run; step +1 runs left to right, -1 right to left. A byte is stored when the run
// leaves it; the partial byte at a line's end stays in Bits, its last dot in bit 0 (left to right) or
// bit 7 (right to left). The blank kernel takes runs whose amounts are all 0 (white) and reads no
// threshold. Null for an instruction set without a kernel: the renderer's own loop runs.
using ChainRunFn = void (*)(const ChainRun& run, ChainState& state);

ChainRunFn ChainRunFor(InstructionSet set, Quantiser quantiser, int step, bool blank);

// The same chain for black alone, for a device whose stream carries black alone and whose other inks
// never have an amount (BlackAloneHasInk): it reads BlackAmount and BlackThreshold, reads and writes
// black's row and planes only, and keeps black's entries of the state. Null where ChainRunFor is.
ChainRunFn BlackChainRunFor(InstructionSet set, Quantiser quantiser, int step, bool blank);

// True when an ink-split table gives cyan, magenta and yellow an amount of 0 for every gray pixel (all
// four lightness bytes alike): (255 - g) - row[255 - g][ink] == 0.
bool BlackAloneHasInk(const std::int16_t (*split)[4]);

// The thresholds of a run of n dots from a threshold map's line: out[i] holds the byte at position
// (x + i step) & 127 of `doubled` (the line's 128 bytes twice over) in each of its four 16-bit lanes.
// Null where ChainRunFor is null.
using SpreadThresholdsFn = void (*)(const std::uint8_t* doubled, int x, int step, int n, std::uint64_t* out);

SpreadThresholdsFn SpreadThresholdsFor(InstructionSet set);

// The same for the black chain: out[i] = doubled[(x + i step) & 127] as a 16-bit value, written whole to
// the next multiple of sixteen dots. Null where ChainRunFor is null.
using SpreadBlackThresholdsFn = void (*)(const std::uint8_t* doubled, int x, int step, int n, std::int16_t* out);

SpreadBlackThresholdsFn SpreadBlackThresholdsFor(InstructionSet set);

// The amounts of n converted pixels (packed lightness, cyan in the lowest byte) through an ink-split
// table whose entries lie within +-1024, in 16-bit lanes: out[k] is PackedInks(converted[k], split,
// yellowCap) (src/halftone/diffusion.h). Answers the OR of every word. Null where ChainRunFor is null.
using SplitInksFn = std::uint64_t (*)(const std::uint32_t* converted, int n, const std::int16_t (*split)[4],
                                      int yellowCap, std::uint64_t* out);

SplitInksFn SplitInksFor(InstructionSet set);

// The keys of a stretch that differ from the one before them, `last` standing for keys[-1], in their
// order into fresh[] (room for count keys; past the answer it may hold anything); answers how many.
using DistinctKeysFn = int (*)(const std::uint32_t* keys, int count, std::uint32_t last, std::uint32_t* fresh);

DistinctKeysFn DistinctKeysFor(InstructionSet set);

// The walk along a stretch: amounts[i * stride] is the word of keys[i], where words[] holds in their order
// the words of the keys that differ from the one before them and `word` is the word of `last`, which
// stands for keys[-1] (DistinctKeysFn's keys with their amounts). Every instruction set has one.
using WalkStretchFn = void (*)(const std::uint32_t* keys, int count, std::uint32_t last, std::uint64_t word,
                               const std::uint64_t* words, std::uint64_t* amounts, int stride);

WalkStretchFn WalkStretchFor(InstructionSet set);

// The jitter draws of a run's dots start, start + 4, ... < n: each ink whose amount (16-bit lanes, ink k in
// lane k) lies in low..high takes the draw (ThresholdJitterWide[index] >> 4) + 200 as its threshold, in
// the fixed ink order black, cyan, magenta, yellow, the index moving on by one a draw (mod 1024).
// Answers the index after the run's last draw. Null where ChainRunFor is null.
using JitterDrawsFn = unsigned (*)(const std::uint64_t* amounts, int start, int n, int low, int high, unsigned index,
                                   std::uint64_t* thresholds);

JitterDrawsFn JitterDrawsFor(InstructionSet set);

}  // namespace inkweave::detail
