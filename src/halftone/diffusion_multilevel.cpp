// Multi-level and high-resolution error diffusion: the mid, high and top pairs.
//
//   DiffuseMid*   two bits a dot, three dot sizes (large: both buffers, medium: first, small: second);
//   DiffuseHigh*  two bits a dot, two dot sizes (large: first buffer, small: second);
//   DiffuseTop*   one bit a dot at the highest resolution: every source line and pixel is rendered
//                 twice, so 4 source lines of W pixels fill 8 output lines of 2W dots (four planes
//                 of 1,280 bytes, 5,120 bytes a line, first buffer only).
//
// All three take their base threshold from the fine map (DiffusionThresholdMapFine), replaced on a
// quarter of the columns of mid-tone amounts by a draw (ThresholdJitterWide >> 4) + 200; the draws
// start at DiffusionCursor in every call. Lines run serpentine (even output lines left to right).
//
// Each ink's error line holds two rows interleaved cell by cell: position X (an output dot) owns
// cells 2 (X + 2) and 2 (X + 2) + 1. On output line L the slot (ScanParity + L) & 1 holds the
// previous line's errors P and the other slot receives this line's errors; ScanParity advances by the
// output lines of the call, so the next stripe reads the rows this one wrote. A pixel gathers
//   E = 4 P[x] + 2 P[x-1] + 2 P[x+1] + P[x-2] + P[x+2] + 4 C1 + 2 C2     (16-bit sum)
// with C1, C2 the errors just stored for the one and two pixels before it on this line, and is
// quantised on v = amount + E / 16. The two positions beyond each end of the line (guard cells) of
// the row being written are set to 0 at the start of the line, so a line starts with C1 = C2 = 0 and
// the next line gathers no error from outside the page.
//
// Every byte a line touches is stored, the partial last byte of a left-to-right line included, with
// the bits past the line's end clear.
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "src/device/plane_geometry.h"
#include "src/halftone/diffusion.h"
#include "src/halftone/halftone.h"
#include "src/halftone/kernels.h"

namespace inkweave {
namespace {

using detail::ConversionCache;
using detail::InkAmounts;

using detail::kRunDots;
using detail::Quantiser;

static_assert(kRunDots <= detail::kStretchPixels, "a run's pixels are converted as one stretch");

// Black's lane in a word of 16-bit amounts.
inline constexpr int kBlackShift = 16 * kBlackPlane;

// The plane layout of a quantiser: the top pair renders at level 6, the others below it.
template <Quantiser kQ>
struct Layout {
  static constexpr PlaneLayout kGeometry = PlaneLayoutOf(kQ == Quantiser::Top ? kLevelHigh : kLevel600);
  static constexpr int kScale = kGeometry.Scale;  // output dots per source pixel
  static constexpr int kPlaneBytes = kGeometry.PlaneBytes;
  static constexpr int kLineBytes = kGeometry.LineBytes;
  static constexpr int kPlaneDots = 8 * kPlaneBytes;
  static constexpr bool kTwoBits = kQ != Quantiser::Top;
  static constexpr int kSourceLines = kGeometry.StripeLines;
};

// One quantiser decision: the error left and the bits for the two buffers.
struct Dot {
  int Error;
  bool First;
  bool Second;
};

// c ? a : b without a branch: within one kind of amount the quantiser's decisions follow the error
// and the threshold, which no branch predictor can follow.
inline int Select(bool c, int a, int b) { return b ^ ((a ^ b) & -static_cast<int>(c)); }

// The quantiser on v = amount + gathered error / 16. The kind of amount (none, full, between) is a
// branch, as it follows the image; the decisions within a kind are selected without branches.
template <Quantiser kQ>
inline Dot Quantise(int amount, int v, int threshold, int floor) {
  if constexpr (kQ == Quantiser::Top) {
    if (amount == 0) {
      // v > floor ? v - 16 : min(v + 16, 0); no dot.
      const int rise = v + 16;
      return {Select(v > floor, v - 16, Select(rise > 0, 0, rise)), false, false};
    }
    // v >= threshold + 5: a dot, v - 350; otherwise v.
    const bool dot = v >= threshold + 5;
    return {v - Select(dot, 350, 0), dot, false};
  } else {
    if (amount == 0) {
      // v <= floor ? min(v + 32, 0) : v - 32; no dot.
      const int rise = v + 32;
      return {Select(v <= floor, Select(rise > 0, 0, rise), v - 32), false, false};
    }
    if (amount == 255) {
      // w = v - 255, w <= floor ? w + 32 : w - 32; the first bit (Mid: both).
      const int w = v - 255;
      return {Select(w <= floor, w + 32, w - 32), true, kQ == Quantiser::Mid};
    }
    // Between: the thresholds passed count the dot size, which picks what is taken off v and the bits.
    //   Mid:  + 5: v - 100, second bit; + 208: v - 248, first; + 255: v - 255, both.
    //   High: + 5: v - 212, second bit; + 200: v - 255, first.
    struct Size {
      int Taken;
      bool First, Second;
    };
    static constexpr Size kMidSizes[4] = {{0, false, false}, {100, false, true}, {248, true, false}, {255, true, true}};
    static constexpr Size kHighSizes[3] = {{0, false, false}, {212, false, true}, {255, true, false}};
    int passed = (v >= threshold + 5) + (v >= threshold + (kQ == Quantiser::Mid ? 208 : 200));
    if constexpr (kQ == Quantiser::Mid) passed += v >= threshold + 255;
    const Size& size = kQ == Quantiser::Mid ? kMidSizes[passed] : kHighSizes[passed];
    return {v - size.Taken, size.First, size.Second};
  }
}

struct MultiStripe {
  DeviceState* State;
  detail::ChainRunFn Chain[2][2];  // the vector chains [blank run][left to right, right to left] (null: none)
  ConversionCache Cache;
  const std::uint8_t* Source;  // the band's first row
  std::ptrdiff_t WideEnd;      // the last offset from Source whose four bytes lie in the band
  std::int16_t* Error[4];      // error lines by ink
  unsigned JitterIndex;        // 0..1023
  std::uint32_t Result;
  // With the vector chain: the thresholds' spreading kernel, and in monochrome (Gray) the amounts of
  // each gray byte, so that every pixel is converted (eight keys a step) and looked up with no cache walk.
  detail::SpreadThresholdsFn SpreadThresholds;
  detail::SpreadBlackThresholdsFn SpreadBlack;
  detail::JitterDrawsFn JitterDraws;  // in colour
  bool Gray;
  bool BlackOnly;  // the chain carries black alone (a monochrome device)
  std::uint64_t GrayAmounts[256];
  std::int16_t GrayBlack[256];  // black's lane of them
};

// One ink's state along an output line: its error rows and planes, the five previous-row errors
// around the dot (a window that slides with the dot, so each dot reads one new cell), the two errors
// just stored on this line, and the dot bits collected for the current byte.
struct InkLine {
  const std::int16_t* Previous;  // the previous row's slot of the ink's error line
  std::int16_t* Current;         // this row's slot
  std::uint8_t* Plane0;          // the ink's plane in the first and second buffer
  std::uint8_t* Plane1;
  int Behind2, Behind1, Here, Ahead1;  // previous-row errors at x - 2 step .. x + step
  int C1, C2;
  unsigned Bits0, Bits1;
};

// A line is worked through in runs of kRunDots dots: first the amounts and thresholds of every ink
// (the jitter draws in the fixed ink order), then the inks along the run: all four at once in the
// lanes of a vector (kernels.h), or two at a time with their state in registers.

// The amounts and thresholds of a run, by dot: for the renderer's own loop as 32-bit values, for the
// vector chain as 16-bit lanes (ink k in lane k of each word: amounts, then thresholds). A call uses one.
union RunInputs {
  struct {
    std::int32_t Amount[kRunDots][4];
    std::int32_t Threshold[kRunDots][4];
  } Wide;
  struct {
    std::uint64_t Amount[kRunDots];
    std::uint64_t Threshold[kRunDots];
  } Packed;
  struct {  // the black chain's (kernels.h): black's alone, whole groups of sixteen dots
    std::int16_t Amount[kRunDots + 16];
    std::int16_t Threshold[kRunDots + 16];
  } Black;
};

// Stores the collected bytes of one ink at plane byte `byte` and starts the next byte.
template <Quantiser kQ>
inline void StoreInkByte(InkLine& ink, int byte, std::uint32_t& result) {
  ink.Plane0[byte] = static_cast<std::uint8_t>(ink.Bits0);
  if constexpr (Layout<kQ>::kTwoBits) ink.Plane1[byte] = static_cast<std::uint8_t>(ink.Bits1);
  if (ink.Bits0 | ink.Bits1) result = 1;
  ink.Bits0 = 0;
  ink.Bits1 = 0;
}

// Diffuses dot x of one ink (index inkIndex); `mask` is the dot's bit in its byte.
template <Quantiser kQ, int kStep>
[[gnu::always_inline]] inline void DiffuseDot(InkLine& ink, int inkIndex, int amount, int threshold, int x,
                                              unsigned mask, std::uint32_t& inked) {
  // Gather the error (a 16-bit sum; the weights are symmetric, so the window's direction is free).
  // Everything but the last error is summed first: that one is the ink's critical path.
  const int cell = 2 * (x + 2);
  const int ahead2 = ink.Previous[cell + 4 * kStep];
  const int known = 4 * ink.Here + 2 * ink.Behind1 + 2 * ink.Ahead1 + ink.Behind2 + ahead2 + 2 * ink.C2;
  const int gathered = detail::Wrap16(known + 4 * ink.C1);
  const int floor = DiffusionSeedErrors[(4 * x + inkIndex) & 255];
  const Dot dot = Quantise<kQ>(amount, amount + gathered / 16, threshold, floor);

  // Store the error and slide the windows.
  const std::int16_t stored = detail::Wrap16(dot.Error);
  ink.Current[cell] = stored;
  ink.C2 = ink.C1;
  ink.C1 = stored;
  ink.Behind2 = ink.Behind1;
  ink.Behind1 = ink.Here;
  ink.Here = ink.Ahead1;
  ink.Ahead1 = ahead2;

  // Collect the bits; a byte is stored when the line leaves it (its last dot: mask 0x01 left to
  // right, 0x80 right to left).
  ink.Bits0 |= mask & -static_cast<unsigned>(dot.First);
  if constexpr (Layout<kQ>::kTwoBits) ink.Bits1 |= mask & -static_cast<unsigned>(dot.Second);
  if (mask == (kStep > 0 ? 0x01u : 0x80u)) StoreInkByte<kQ>(ink, x >> 3, inked);
}

// Diffuses inks a and b (indexes ia, ib) over the n dots x, x + kStep, ... of a run: two independent
// chains of errors, so that the processor works on one while the other waits for its last error.
template <Quantiser kQ, int kStep>
void DiffuseInkPair(InkLine& lineA, int ia, InkLine& lineB, int ib, const RunInputs& inputs, int x, int n,
                    std::uint32_t& result) {
  const auto& run = inputs.Wide;
  // The inks' states in locals, so that the loop keeps them in registers.
  InkLine a = lineA, b = lineB;
  std::uint32_t inked = 0;
  unsigned mask = 0x80u >> (x & 7);  // walks with the dot
  for (int i = 0; i < n; ++i, x += kStep) {
    DiffuseDot<kQ, kStep>(a, ia, run.Amount[i][ia], run.Threshold[i][ia], x, mask, inked);
    DiffuseDot<kQ, kStep>(b, ib, run.Amount[i][ib], run.Threshold[i][ib], x, mask, inked);
    if (kStep > 0)
      mask = mask == 0x01u ? 0x80u : mask >> 1;
    else
      mask = mask == 0x80u ? 0x01u : mask << 1;
  }
  if (inked) result = 1;
  lineA = a;
  lineB = b;
}

// Diffuses a run with the four inks in the lanes of one vector.
void DiffuseRunInLanes(detail::ChainRunFn chain, const InkLine (&inks)[4], const RunInputs& run, int x, int n,
                       std::uint8_t* planes0, std::uint8_t* planes1, int planeBytes, detail::ChainState& state) {
  chain({run.Packed.Amount,
         run.Packed.Threshold,
         {inks[0].Previous, inks[1].Previous, inks[2].Previous, inks[3].Previous},
         {inks[0].Current, inks[1].Current, inks[2].Current, inks[3].Current},
         x,
         n,
         {planes0, planes1},
         planeBytes,
         run.Black.Amount,
         run.Black.Threshold},
        state);
}

// The amounts of one source line's pixels, from pixel First on. At the highest resolution a source
// pixel is rendered on two dots of two output lines: with the vector chain, whose tables keep every
// amount within 16 bits, the line's pixels are converted once, on its first output line, and both
// lines read their amounts from here.
struct SourceAmounts {
  static constexpr int kPixels = Layout<Quantiser::Top>::kPlaneDots / 2;
  int First;
  union {
    std::uint64_t Amount[kPixels];  // 16-bit lanes (detail::PackedInks)
    std::int16_t Black[kPixels];    // the black chain's: black's alone
  };
};

// The amounts (16-bit lanes) of n <= kRunDots pixels given by their keys into amounts[i * stride]; the
// OR of them all (0: white).
std::uint64_t PackedAmountsOf(MultiStripe& s, const std::uint32_t* keys, int n, std::uint64_t* amounts, int stride) {
  if (!s.Gray || n == 0) return detail::AmountsOfStretchPacked(s.Cache, keys, n, amounts, stride, *s.State);
  // The pixels up to the first that differs from the remembered one take its amounts: until a call
  // has converted a colour, white keeps the no-ink amounts it started with, whatever the gray curve
  // makes of white. From there on every pixel is converted, which is what the cache would answer.
  int lead = 0;
  for (; lead < n && keys[lead] == s.Cache.Key; ++lead) amounts[std::ptrdiff_t{lead} * stride] = s.Cache.Packed;
  std::uint64_t any = lead > 0 ? s.Cache.Packed : 0;
  if (lead == n) return any;
  // Monochrome gives the gray byte in all four bytes of a conversion.
  std::uint32_t converted[kRunDots];
  s.Cache.Convert(keys + lead, n - lead, converted, *s.State, s.Cache.Parts);
  for (int i = lead; i < n; ++i) {
    const std::uint64_t packed = s.GrayAmounts[converted[i - lead] >> 24];
    amounts[std::ptrdiff_t{i} * stride] = packed;
    any |= packed;
  }
  s.Cache.Key = keys[n - 1];
  s.Cache.Packed = amounts[std::ptrdiff_t{n - 1} * stride];
  return any;
}

// The same for the black chain: black's amounts of n <= kRunDots pixels into amounts[i]; the OR of them.
int BlackAmountsOf(MultiStripe& s, const std::uint32_t* keys, int n, std::int16_t* amounts) {
  const auto remembered = static_cast<std::int16_t>(s.Cache.Packed >> kBlackShift);
  int lead = 0;
  for (; lead < n && keys[lead] == s.Cache.Key; ++lead) amounts[lead] = remembered;
  int any = lead > 0 ? remembered : 0;
  if (lead == n) return any;
  std::uint32_t converted[kRunDots];
  s.Cache.Convert(keys + lead, n - lead, converted, *s.State, s.Cache.Parts);
  for (int i = lead; i < n; ++i) any |= amounts[i] = s.GrayBlack[converted[i - lead] >> 24];
  s.Cache.Key = keys[n - 1];
  s.Cache.Packed = s.GrayAmounts[converted[n - 1 - lead] >> 24];
  return any;
}

// The keys of n pixels from offset `at` on, `step` bytes apart; each in one 4-byte load where the
// pixel's next byte lies in the band too. Answers the OR of each key XOR `remembered`.
std::uint32_t KeysAt(const MultiStripe& s, std::ptrdiff_t at, std::ptrdiff_t step, int n, std::uint32_t remembered,
                     std::uint32_t* keys) {
  std::uint32_t differs = 0;
  const std::ptrdiff_t last = at + step * (n - 1);
  if (n > 0 && (at < last ? at : last) >= 0 && (at < last ? last : at) <= s.WideEnd) {
    for (int i = 0; i < n; ++i, at += step) differs |= (keys[i] = PixelKeyWide(s.Source + at)) ^ remembered;
  } else {
    for (int i = 0; i < n; ++i, at += step) differs |= (keys[i] = PixelKey(s.Source + at)) ^ remembered;
  }
  return differs;
}

// Converts pixels first..first + count - 1 of a source line into `line`.
void ConvertSourceLine(MultiStripe& s, detail::SourceLine src, int first, int count, SourceAmounts& line) {
  line.First = first;
  std::uint32_t keys[kRunDots];
  for (int done = 0; done < count; done += kRunDots) {
    const int n = count - done < kRunDots ? count - done : kRunDots;
    KeysAt(s, src.Origin + src.Step * (first + done), src.Step, n, 0, keys);
    if (s.BlackOnly)
      BlackAmountsOf(s, keys, n, line.Black + done);
    else
      PackedAmountsOf(s, keys, n, line.Amount + done, 1);
  }
}

// The keys of a run's dots x, x + kStep, ...: two dots of a pixel share its key. Answers whether any
// differs from the remembered pixel's.
template <int kScale, int kStep>
bool RunKeys(const MultiStripe& s, detail::SourceLine src, int x, int n, std::uint32_t* keys) {
  std::uint32_t differs = 0;
  if constexpr (kScale == 1) {
    differs = KeysAt(s, src.Origin + src.Step * x, src.Step * kStep, n, s.Cache.Key, keys);
  } else {
    int lastPixel = -1;
    for (int i = 0; i < n; ++i, x += kStep) {
      const int pixel = x / kScale;
      if (pixel != lastPixel)
        keys[i] = PixelKey(s.Source + (src.Origin + src.Step * pixel)), lastPixel = pixel;
      else
        keys[i] = keys[i - 1];
      differs |= keys[i] ^ s.Cache.Key;
    }
  }
  return differs != 0;
}

// The lanes of every ink but black in a word of 16-bit amounts.
inline constexpr std::uint64_t kColourLanes = ~(std::uint64_t{0xFFFF} << (16 * kBlackPlane));

// The vector chain's inputs of a run of dots x, x + kStep, ... (16-bit lanes): the amounts from the
// source line's (`pixels`) or through the conversion, then, unless every amount is 0 (the blank chain
// takes the run and draws no jitter), the thresholds from `doubledMap` (the map's line twice over).
// Answers whether any amount is not 0.
template <Quantiser kQ, int kStep>
bool PrepareRunPacked(MultiStripe& s, detail::SourceLine src, const SourceAmounts* pixels,
                      const std::uint8_t* doubledMap, int jitterColumn, int jitterLow, int jitterHigh, int x, int n,
                      std::uint64_t* amounts, std::uint64_t* thresholds) {
  using L = Layout<kQ>;
  std::uint64_t any = 0;
  if (pixels != nullptr) {
    const std::uint64_t* amount = pixels->Amount;
    const int first = pixels->First;
    const int lo = (kStep > 0 ? x : x - n + 1) / L::kScale - first,
              hi = (kStep > 0 ? x + n - 1 : x) / L::kScale - first;
    for (int p = lo; p <= hi; ++p) any |= amount[p];
    if (any == 0) return false;
    if constexpr (L::kScale == 2) {
      // The dots of a pixel in pairs; the run's first dot alone when its pixel's other dot came before.
      int i = 0, at = x;
      if ((at & 1) == (kStep > 0 ? 1 : 0)) amounts[i++] = amount[(at >> 1) - first], at += kStep;
      for (; i + 1 < n; i += 2, at += 2 * kStep) amounts[i] = amounts[i + 1] = amount[(at >> 1) - first];
      if (i < n) amounts[i] = amount[(at >> 1) - first];
    } else {
      for (int i = 0, at = x; i < n; ++i, at += kStep) amounts[i] = amount[at / L::kScale - first];
    }
  } else {
    std::uint32_t keys[kRunDots];
    if (RunKeys<L::kScale, kStep>(s, src, x, n, keys)) {
      any = PackedAmountsOf(s, keys, n, amounts, 1);
    } else {
      any = s.Cache.Packed;  // a run of the remembered pixel
      if (any == 0) return false;
      for (int i = 0; i < n; ++i) amounts[i] = any;
    }
    if (any == 0) return false;
  }
  // An ink whose amounts are all 0 draws no jitter (the range starts above 0): where black alone has
  // ink (monochrome), only its lane is looked at.
  static_assert(detail::kInkOrder[0] == kBlackPlane, "black draws first");
  const int inks = (any & kColourLanes) == 0 ? 1 : 4;
  s.SpreadThresholds(doubledMap, x, kStep, n, thresholds);
  // The jitter columns (x & 3 == jitterColumn), every fourth dot of the run in its order: a draw for
  // each mid-tone ink, in the fixed ink order (in colour by the kernel, a dot a step without a branch).
  if (inks == 4) {
    s.JitterIndex =
        s.JitterDraws(amounts, (kStep * (jitterColumn - x)) & 3, n, jitterLow, jitterHigh, s.JitterIndex, thresholds);
    return true;
  }
  const auto span = static_cast<std::uint16_t>(jitterHigh - jitterLow);
  for (int i = (kStep * (jitterColumn - x)) & 3; i < n; i += 4) {
    for (int order = 0; order < inks; ++order) {
      const int shift = 16 * detail::kInkOrder[order];
      // jitterLow <= amount <= jitterHigh, in one unsigned compare of the lane
      if (static_cast<std::uint16_t>((amounts[i] >> shift) - jitterLow) <= span) {
        const auto draw = static_cast<std::uint16_t>((ThresholdJitterWide[s.JitterIndex] >> 4) + 200);
        thresholds[i] = (thresholds[i] & ~(std::uint64_t{0xFFFF} << shift)) | std::uint64_t{draw} << shift;
        s.JitterIndex = (s.JitterIndex + 1) & 1023u;
      }
    }
  }
  return true;
}

// The black chain's inputs of a run (a monochrome device), as PrepareRunPacked's black lane: black's
// amounts and thresholds by dot, each set whole to the next sixteen dots. Answers whether any amount is
// not 0.
template <Quantiser kQ, int kStep>
bool PrepareRunBlack(MultiStripe& s, detail::SourceLine src, const SourceAmounts* pixels,
                     const std::uint8_t* doubledMap, int jitterColumn, int jitterLow, int jitterHigh, int x, int n,
                     std::int16_t* amounts, std::int16_t* thresholds) {
  using L = Layout<kQ>;
  int any = 0;
  if (L::kScale == 2 && pixels != nullptr) {
    const std::int16_t* amount = pixels->Black;
    const int first = pixels->First;
    const int lo = (kStep > 0 ? x : x - n + 1) / L::kScale - first,
              hi = (kStep > 0 ? x + n - 1 : x) / L::kScale - first;
    for (int p = lo; p <= hi; ++p) any |= amount[p];
    if (any == 0) return false;
    // The dots of a pixel in pairs (only the highest resolution keeps a source line); the run's first
    // dot alone when its pixel's other dot came before.
    int i = 0, at = x;
    if ((at & 1) == (kStep > 0 ? 1 : 0)) amounts[i++] = amount[(at >> 1) - first], at += kStep;
    for (; i + 1 < n; i += 2, at += 2 * kStep) amounts[i] = amounts[i + 1] = amount[(at >> 1) - first];
    if (i < n) amounts[i] = amount[(at >> 1) - first];
  } else {
    std::uint32_t keys[kRunDots];
    if (RunKeys<L::kScale, kStep>(s, src, x, n, keys)) {
      any = BlackAmountsOf(s, keys, n, amounts);
    } else {
      any = static_cast<std::int16_t>(s.Cache.Packed >> kBlackShift);  // a run of the remembered pixel
      if (any == 0) return false;
      for (int i = 0; i < n; ++i) amounts[i] = static_cast<std::int16_t>(any);
    }
    if (any == 0) return false;
  }
  for (int i = n; i < ((n + 15) & ~15); ++i) amounts[i] = 0;
  s.SpreadBlack(doubledMap, x, kStep, n, thresholds);
  // The jitter columns, as PrepareRunPacked draws for black.
  const auto span = static_cast<std::uint16_t>(jitterHigh - jitterLow);
  for (int i = (kStep * (jitterColumn - x)) & 3; i < n; i += 4) {
    if (static_cast<std::uint16_t>(amounts[i] - jitterLow) <= span) {
      thresholds[i] = static_cast<std::int16_t>((ThresholdJitterWide[s.JitterIndex] >> 4) + 200);
      s.JitterIndex = (s.JitterIndex + 1) & 1023u;
    }
  }
  return true;
}

// Output line `line` in the direction kStep over dots first..first + count - 1. `pixels`, when given,
// holds the amounts of the line's source pixels (the highest resolution with the vector chain); they
// are converted first when `convert` is set (the source line's first output line).
template <Quantiser kQ, int kStep>
void DiffuseMultiLine(MultiStripe& s, int line, const std::uint8_t* mapRow, detail::SourceLine src,
                      std::uint8_t* planes0, std::uint8_t* planes1, int first, int count, int previousSlot,
                      SourceAmounts* pixels, bool convert) {
  using L = Layout<kQ>;
  const int currentSlot = previousSlot ^ 1;
  const bool evenLine = (line & 1) == 0;
  const int jitterColumn = evenLine ? 0 : 2;
  const int jitterLow = evenLine ? 31 : 121;
  const int jitterHigh = evenLine ? 165 : 199;

  // The guard cells of the row being written, then each ink's state at the line's first dot.
  const int begin = kStep > 0 ? first : first + count - 1;
  InkLine inks[4];
  for (int ink = 0; ink < 4; ++ink) {
    std::int16_t* row = s.Error[ink] + currentSlot;
    row[2 * first] = 0;
    row[2 * (first + 1)] = 0;
    row[2 * (first + count + 2)] = 0;
    row[2 * (first + count + 3)] = 0;
    InkLine& state = inks[ink];
    state.Previous = s.Error[ink] + previousSlot;
    state.Current = row;
    state.Plane0 = planes0 + ink * L::kPlaneBytes;
    state.Plane1 = L::kTwoBits ? planes1 + ink * L::kPlaneBytes : nullptr;
    const std::int16_t* p = state.Previous + 2 * (begin + 2);
    state.Behind2 = p[-4 * kStep];
    state.Behind1 = p[-2 * kStep];
    state.Here = p[0];
    state.Ahead1 = p[2 * kStep];
    state.C1 = state.C2 = 0;
    state.Bits0 = state.Bits1 = 0;
  }

  RunInputs run;
  if (pixels != nullptr && convert && count > 0) {
    const int firstPixel = first / L::kScale;
    ConvertSourceLine(s, src, firstPixel, (first + count - 1) / L::kScale - firstPixel + 1, *pixels);
  }
  const detail::ChainRunFn chain = s.Chain[0][kStep > 0 ? 0 : 1];
  detail::ChainState chainState{};
  std::uint8_t doubledMap[256];  // the vector chain's thresholds are spread from the map's line twice over
  if (chain != nullptr) std::memcpy(doubledMap, mapRow, 128), std::memcpy(doubledMap + 128, mapRow, 128);
  for (int done = 0; done < count; done += kRunDots) {
    const int n = count - done < kRunDots ? count - done : kRunDots;
    const int runStart = begin + kStep * done;
    if (chain != nullptr) {
      // The four inks in the lanes of a vector, or black alone; a white run takes the blank chain.
      const bool inked =
          s.BlackOnly ? PrepareRunBlack<kQ, kStep>(s, src, pixels, doubledMap, jitterColumn, jitterLow, jitterHigh,
                                                   runStart, n, run.Black.Amount, run.Black.Threshold)
                      : PrepareRunPacked<kQ, kStep>(s, src, pixels, doubledMap, jitterColumn, jitterLow, jitterHigh,
                                                    runStart, n, run.Packed.Amount, run.Packed.Threshold);
      DiffuseRunInLanes(s.Chain[inked ? 0 : 1][kStep > 0 ? 0 : 1], inks, run, runStart, n, planes0, planes1,
                        L::kPlaneBytes, chainState);
      continue;
    }

    // The run's amounts (through the conversion cache) and thresholds: the map's, or on the jitter
    // column a draw for each mid-tone ink, drawn in the fixed ink order. At the highest resolution two
    // dots share a pixel and its key.
    std::uint32_t keys[kRunDots];
    if (RunKeys<L::kScale, kStep>(s, src, runStart, n, keys)) {
      detail::AmountsOfStretch(s.Cache, keys, n, run.Wide.Amount, *s.State);
    } else {
      for (int i = 0; i < n; ++i) std::memcpy(run.Wide.Amount[i], s.Cache.Amounts.Amount, sizeof run.Wide.Amount[i]);
    }
    for (int i = 0, x = runStart; i < n; ++i, x += kStep) {
      const std::int32_t mapThreshold = mapRow[x & 127];
      for (int ink = 0; ink < 4; ++ink) run.Wide.Threshold[i][ink] = mapThreshold;
    }
    // The jitter columns (x & 3 == jitterColumn), every fourth dot of the run in its order.
    for (int i = (kStep * (jitterColumn - runStart)) & 3; i < n; i += 4) {
      for (const int ink : detail::kInkOrder) {
        const int amount = run.Wide.Amount[i][ink];
        if (amount >= jitterLow && amount <= jitterHigh) {
          run.Wide.Threshold[i][ink] = (ThresholdJitterWide[s.JitterIndex] >> 4) + 200;
          s.JitterIndex = (s.JitterIndex + 1) & 1023u;
        }
      }
    }
    // The inks along the run, two at a time.
    DiffuseInkPair<kQ, kStep>(inks[0], 0, inks[1], 1, run, runStart, n, s.Result);
    DiffuseInkPair<kQ, kStep>(inks[2], 2, inks[3], 3, run, runStart, n, s.Result);
  }

  // The partial byte at the far end of the line (left to right: its last byte; right to left: the
  // byte of the first dot when the line does not start on a byte boundary).
  if (chain != nullptr) {
    const int last = first + count - 1;
    const bool partial = count > 0 && (kStep > 0 ? (last & 7) != 7 : (first & 7) != 0);
    for (int ink = s.BlackOnly ? kBlackPlane : 0; ink < 4 && partial; ++ink) {
      // The vector chain's bits end at bit 0 (left to right) or bit 7 (right to left).
      InkLine& state = inks[ink];
      const unsigned b0 = chainState.Bits[ink], b1 = chainState.Bits[4 + ink];
      state.Bits0 = kStep > 0 ? b0 << (7 - (last & 7)) : b0 >> (first & 7);
      state.Bits1 = kStep > 0 ? b1 << (7 - (last & 7)) : b1 >> (first & 7);
      StoreInkByte<kQ>(state, (kStep > 0 ? last : first) >> 3, s.Result);
    }
    if (chainState.Inked) s.Result = 1;
    return;
  }
  for (InkLine& ink : inks) {
    if (kStep > 0 && count > 0 && ((first + count) & 7) != 0) StoreInkByte<kQ>(ink, (first + count - 1) >> 3, s.Result);
    if (kStep < 0 && count > 0 && (first & 7) != 0) StoreInkByte<kQ>(ink, first >> 3, s.Result);
  }
}

template <Quantiser kQ>
std::uint32_t DiffuseMulti(DeviceState& state, int firstLine, int height, const BandInfo& band, int lineCount,
                           int firstPixel, int rowPixels, const IPPARAMS* params, bool landscape) {
  using L = Layout<kQ>;
  if (lineCount > L::kSourceLines) lineCount = L::kSourceLines;
  const int outputLines = lineCount > 0 ? lineCount * L::kScale : 0;
  const int parity = state.ScanParity & 1;
  state.ScanParity = static_cast<std::int16_t>((parity + outputLines) & 1);
  if (outputLines == 0) return 0;
  if (!detail::DiffusionBuffersPresent(state, L::kTwoBits) || band.Bits == nullptr || firstPixel < 0) return 0;

  // Dots of a line: never past the plane, and two rows of (dots + 4) cells within the allocation.
  const std::int64_t first = std::int64_t{firstPixel} * L::kScale;
  std::int64_t last = first + std::int64_t{rowPixels > 0 ? rowPixels : 0} * L::kScale;
  std::int64_t limit = detail::ErrorCellsAllocated(state) / 2 - 4;
  if (limit > L::kPlaneDots) limit = L::kPlaneDots;
  if (first > limit) return 0;
  if (last > limit) last = limit;
  const int count = static_cast<int>(last - first);

  MultiStripe s;
  s.State = &state;
  const InstructionSet set = ActiveInstructionSet();
  s.Cache = detail::StartConversion(state);
  s.SpreadThresholds = detail::SpreadThresholdsFor(set);
  s.SpreadBlack = detail::SpreadBlackThresholdsFor(set);
  s.JitterDraws = detail::JitterDrawsFor(set);
  s.Gray = state.ColorMode == 1 && detail::ChainRunFor(set, kQ, +1, false) != nullptr;
  // A monochrome device's stream carries its black plane alone, and its ink split leaves the other inks
  // at 0 (no dot, no jitter draw): their error lines and planes can never reach the printer, so the
  // chain carries black alone and leaves them as they were.
  s.BlackOnly = s.Gray && detail::BlackAloneHasInk(s.Cache.Split);
  const auto chainFor = s.BlackOnly ? &detail::BlackChainRunFor : &detail::ChainRunFor;
  for (int blank = 0; blank < 2; ++blank) {
    s.Chain[blank][0] = chainFor(set, kQ, +1, blank != 0);
    s.Chain[blank][1] = chainFor(set, kQ, -1, blank != 0);
  }
  if (s.Gray) {
    for (std::uint32_t gray = 0; gray < 256; ++gray) {
      s.GrayAmounts[gray] = detail::PackedInks(gray * 0x01010101u, s.Cache.Split, s.Cache.YellowCap);
      s.GrayBlack[gray] = static_cast<std::int16_t>(s.GrayAmounts[gray] >> kBlackShift);
    }
  }
  s.Source = band.Bits;
  s.WideEnd = std::ptrdiff_t{band.Header.biHeight > 0 ? band.Header.biHeight : 0} * band.Stride - 4;
  for (int ink = 0; ink < 4; ++ink) s.Error[ink] = state.LineBuffers[ink];
  s.JitterIndex = state.DiffusionCursor & 1023u;
  s.Result = 0;

  const std::int32_t position = detail::BandPosition(params, landscape);
  const int mapRow =
      detail::kFineMapRow +
      (kQ == Quantiser::Top
           ? static_cast<int>((2u * (static_cast<std::uint32_t>(position) + static_cast<std::uint32_t>(firstLine))) &
                              127u)
           : detail::StripeMapRow(position, firstLine));
  // The highest resolution's source line (40 KiB; nothing below it).
  struct NoSourceLine {};
  [[maybe_unused]] std::conditional_t<kQ == Quantiser::Top, SourceAmounts, NoSourceLine> sourceLine;
  for (int line = 0; line < outputLines; ++line) {
    const detail::SourceLine src = detail::SourceLineOf(band, firstLine + line / L::kScale, height, landscape);
    std::uint8_t* planes0 = state.PlaneBuffer[0] + line * L::kLineBytes;
    std::uint8_t* planes1 = L::kTwoBits ? state.PlaneBuffer[1] + line * L::kLineBytes : nullptr;
    const std::uint8_t* map = DiffusionThresholdMaps[mapRow + line];
    const int previousSlot = (parity + line) & 1;
    SourceAmounts* pixels = nullptr;
    if constexpr (kQ == Quantiser::Top) pixels = s.Chain[0][0] != nullptr ? &sourceLine : nullptr;
    const bool convert = line % L::kScale == 0;
    if ((line & 1) == 0) {
      DiffuseMultiLine<kQ, +1>(s, line, map, src, planes0, planes1, static_cast<int>(first), count, previousSlot,
                               pixels, convert);
    } else {
      DiffuseMultiLine<kQ, -1>(s, line, map, src, planes0, planes1, static_cast<int>(first), count, previousSlot,
                               pixels, convert);
    }
  }
  return s.Result;
}

}  // namespace

#define INKWEAVE_DIFFUSION_MEMBER(name, quantiser, landscape)                                               \
  std::uint32_t name(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,     \
                     int firstPixel, int rowPixels, const IPPARAMS* params) {                               \
    return DiffuseMulti<quantiser>(state, firstLine, width, band, lineCount, firstPixel, rowPixels, params, \
                                   landscape);                                                              \
  }

INKWEAVE_DIFFUSION_MEMBER(DiffuseMidPortrait, Quantiser::Mid, false)
INKWEAVE_DIFFUSION_MEMBER(DiffuseMidLandscape, Quantiser::Mid, true)
INKWEAVE_DIFFUSION_MEMBER(DiffuseHighPortrait, Quantiser::High, false)
INKWEAVE_DIFFUSION_MEMBER(DiffuseHighLandscape, Quantiser::High, true)
INKWEAVE_DIFFUSION_MEMBER(DiffuseTopPortrait, Quantiser::Top, false)
INKWEAVE_DIFFUSION_MEMBER(DiffuseTopLandscape, Quantiser::Top, true)

#undef INKWEAVE_DIFFUSION_MEMBER

}  // namespace inkweave
