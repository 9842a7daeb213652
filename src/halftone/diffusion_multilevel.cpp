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

#include "src/halftone/diffusion.h"
#include "src/halftone/halftone.h"

namespace inkweave {
namespace {

using detail::ConversionCache;
using detail::InkAmounts;

enum class Quantiser { Mid, High, Top };

template <Quantiser kQ>
struct Layout {
  static constexpr int kScale = kQ == Quantiser::Top ? 2 : 1;            // output dots per source pixel
  static constexpr int kPlaneBytes = kQ == Quantiser::Top ? 1280 : 640;  // one plane of a line
  static constexpr int kLineBytes = 4 * kPlaneBytes;
  static constexpr int kPlaneDots = 8 * kPlaneBytes;
  static constexpr bool kTwoBits = kQ != Quantiser::Top;
  static constexpr int kSourceLines = kQ == Quantiser::Top ? detail::kTopStripeLines : detail::kStripeLines;
};

// One quantiser decision: the error left and the bits for the two buffers.
struct Dot {
  int Error;
  bool First;
  bool Second;
};

template <Quantiser kQ>
inline Dot Quantise(int amount, int v, int threshold, int floor) {
  if constexpr (kQ == Quantiser::Top) {
    if (amount == 0) {
      if (v > floor) return {v - 16, false, false};
      return {v + 16 > 0 ? 0 : v + 16, false, false};
    }
    if (v >= threshold + 5) return {v - 350, true, false};
    return {v, false, false};
  } else {
    if (amount == 0) {
      if (v <= floor) return {v + 32 > 0 ? 0 : v + 32, false, false};
      return {v - 32, false, false};
    }
    if (amount == 255) {
      v -= 255;
      v = v <= floor ? v + 32 : v - 32;
      return {v, true, kQ == Quantiser::Mid};
    }
    if constexpr (kQ == Quantiser::Mid) {
      if (v >= threshold + 255) return {v - 255, true, true};
      if (v >= threshold + 208) return {v - 248, true, false};
      if (v >= threshold + 5) return {v - 100, false, true};
      return {v, false, false};
    } else {
      if (v >= threshold + 200) return {v - 255, true, false};
      if (v >= threshold + 5) return {v - 212, false, true};
      return {v, false, false};
    }
  }
}

struct MultiStripe {
  DeviceState* State;
  ConversionCache Cache;
  const std::uint8_t* Source;  // the band's first row
  std::int16_t* Error[4];      // error lines by ink
  unsigned JitterIndex;        // 0..1023
  std::uint32_t Result;
};

// One ink's state along an output line: the five previous-row errors around the dot (a window that
// slides with the dot, so each dot reads one new cell), the two errors just stored on this line, and
// the dot bits collected for the current byte.
struct InkLine {
  const std::int16_t* Previous;  // the previous row's slot of the ink's error line
  std::int16_t* Current;         // this row's slot
  int Behind2, Behind1, Here, Ahead1;  // previous-row errors at x - 2 step .. x + step
  int C1, C2;
  unsigned Bits0, Bits1;
};

// What all inks of one dot share.
struct DotContext {
  int Cell;            // 2 (x + 2)
  int MapThreshold;
  bool JitterHere;
  int JitterLow, JitterHigh;
  unsigned Mask;       // the dot's bit within its byte
};

// Diffuses one ink of one dot; draws a jitter threshold from s when the ink asks for one.
template <Quantiser kQ, int kStep>
[[gnu::always_inline]] inline void DiffuseInk(MultiStripe& s, InkLine& ink, const DotContext& dot, int amount,
                                              int floor) {
  int threshold = dot.MapThreshold;
  if (dot.JitterHere && amount >= dot.JitterLow && amount <= dot.JitterHigh) {
    threshold = (ThresholdJitterWide[s.JitterIndex] >> 4) + 200;
    s.JitterIndex = (s.JitterIndex + 1) & 1023u;
  }

  // Gather the error (a 16-bit sum; the weights are symmetric, so the window's direction is free).
  const int ahead2 = ink.Previous[dot.Cell + 4 * kStep];
  const int gathered = detail::Wrap16(4 * ink.Here + 2 * ink.Behind1 + 2 * ink.Ahead1 + ink.Behind2 + ahead2 +
                                      4 * ink.C1 + 2 * ink.C2);
  const Dot result = Quantise<kQ>(amount, amount + gathered / 16, threshold, floor);

  // Store the error, slide the windows, collect the bits.
  const std::int16_t stored = detail::Wrap16(result.Error);
  ink.Current[dot.Cell] = stored;
  ink.C2 = ink.C1;
  ink.C1 = stored;
  ink.Behind2 = ink.Behind1;
  ink.Behind1 = ink.Here;
  ink.Here = ink.Ahead1;
  ink.Ahead1 = ahead2;
  if (result.First) ink.Bits0 |= dot.Mask;
  if constexpr (Layout<kQ>::kTwoBits) {
    if (result.Second) ink.Bits1 |= dot.Mask;
  }
}

// Output line `line` in the direction kStep over dots first..first + count - 1.
template <Quantiser kQ, int kStep>
void DiffuseMultiLine(MultiStripe& s, int line, const std::uint8_t* mapRow, detail::SourceLine src,
                      std::uint8_t* planes0, std::uint8_t* planes1, int first, int count, int previousSlot) {
  using L = Layout<kQ>;
  const int currentSlot = previousSlot ^ 1;
  const bool evenLine = (line & 1) == 0;
  const int jitterColumn = evenLine ? 0 : 2;
  DotContext dot{0, 0, false, evenLine ? 31 : 121, evenLine ? 165 : 199, 0};

  // The guard cells of the row being written, then each ink's state at the line's first dot.
  const int begin = kStep > 0 ? first : first + count - 1;
  const int end = kStep > 0 ? first + count : first - 1;
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
    const std::int16_t* p = state.Previous + 2 * (begin + 2);
    state.Behind2 = p[-4 * kStep];
    state.Behind1 = p[-2 * kStep];
    state.Here = p[0];
    state.Ahead1 = p[2 * kStep];
    state.C1 = state.C2 = 0;
    state.Bits0 = state.Bits1 = 0;
  }

  // Stores the collected bytes of all inks at plane byte `byte`.
  auto store = [&](int byte) {
    for (int ink = 0; ink < 4; ++ink) {
      planes0[ink * L::kPlaneBytes + byte] = static_cast<std::uint8_t>(inks[ink].Bits0);
      if constexpr (L::kTwoBits) planes1[ink * L::kPlaneBytes + byte] = static_cast<std::uint8_t>(inks[ink].Bits1);
      if (inks[ink].Bits0 | inks[ink].Bits1) s.Result = 1;
      inks[ink].Bits0 = 0;
      inks[ink].Bits1 = 0;
    }
  };

  for (int x = begin; x != end; x += kStep) {
    // The dot's source pixel, threshold, jitter column and bit; the four inks in their fixed order.
    const InkAmounts& amounts = detail::AmountsOf(s.Cache, s.Source + (src.Origin + src.Step * (x / L::kScale)), *s.State);
    dot.Cell = 2 * (x + 2);
    dot.MapThreshold = mapRow[x & 127];
    dot.JitterHere = (x & 3) == jitterColumn;
    dot.Mask = 0x80u >> (x & 7);
    const std::int16_t* floors = DiffusionSeedErrors + ((4 * x) & 255);
    DiffuseInk<kQ, kStep>(s, inks[detail::kBlack], dot, amounts.Amount[detail::kBlack], floors[detail::kBlack]);
    DiffuseInk<kQ, kStep>(s, inks[detail::kCyan], dot, amounts.Amount[detail::kCyan], floors[detail::kCyan]);
    DiffuseInk<kQ, kStep>(s, inks[detail::kMagenta], dot, amounts.Amount[detail::kMagenta], floors[detail::kMagenta]);
    DiffuseInk<kQ, kStep>(s, inks[detail::kYellow], dot, amounts.Amount[detail::kYellow], floors[detail::kYellow]);
    if ((kStep > 0 && (x & 7) == 7) || (kStep < 0 && (x & 7) == 0)) store(x >> 3);
  }
  // The partial byte at the far end of the line (left to right: its last byte; right to left: the
  // byte of the first dot when the line does not start on a byte boundary).
  if (kStep > 0 && count > 0 && ((first + count) & 7) != 0) store((first + count - 1) >> 3);
  if (kStep < 0 && count > 0 && (first & 7) != 0) store(first >> 3);
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
  s.Cache = detail::StartConversion(state);
  s.Source = band.Bits;
  for (int ink = 0; ink < 4; ++ink) s.Error[ink] = state.LineBuffers[ink];
  s.JitterIndex = state.DiffusionCursor & 1023u;
  s.Result = 0;

  const std::int32_t position = detail::BandPosition(params, landscape);
  const int mapRow = detail::kFineMapRow +
                     (kQ == Quantiser::Top ? static_cast<int>((2u * (static_cast<std::uint32_t>(position) +
                                                                     static_cast<std::uint32_t>(firstLine))) & 127u)
                                           : detail::StripeMapRow(position, firstLine));
  for (int line = 0; line < outputLines; ++line) {
    const detail::SourceLine src = detail::SourceLineOf(band, firstLine + line / L::kScale, height, landscape);
    std::uint8_t* planes0 = state.PlaneBuffer[0] + line * L::kLineBytes;
    std::uint8_t* planes1 = L::kTwoBits ? state.PlaneBuffer[1] + line * L::kLineBytes : nullptr;
    const std::uint8_t* map = DiffusionThresholdMaps[mapRow + line];
    const int previousSlot = (parity + line) & 1;
    if ((line & 1) == 0) {
      DiffuseMultiLine<kQ, +1>(s, line, map, src, planes0, planes1, static_cast<int>(first), count, previousSlot);
    } else {
      DiffuseMultiLine<kQ, -1>(s, line, map, src, planes0, planes1, static_cast<int>(first), count, previousSlot);
    }
  }
  return s.Result;
}

}  // namespace

#define INKWEAVE_DIFFUSION_MEMBER(name, quantiser, landscape)                                                 \
  std::uint32_t name(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,      \
                     int firstPixel, int rowPixels, const IPPARAMS* params) {                                \
    return DiffuseMulti<quantiser>(state, firstLine, width, band, lineCount, firstPixel, rowPixels, params,   \
                                   landscape);                                                               \
  }

INKWEAVE_DIFFUSION_MEMBER(DiffuseMidPortrait, Quantiser::Mid, false)
INKWEAVE_DIFFUSION_MEMBER(DiffuseMidLandscape, Quantiser::Mid, true)
INKWEAVE_DIFFUSION_MEMBER(DiffuseHighPortrait, Quantiser::High, false)
INKWEAVE_DIFFUSION_MEMBER(DiffuseHighLandscape, Quantiser::High, true)
INKWEAVE_DIFFUSION_MEMBER(DiffuseTopPortrait, Quantiser::Top, false)
INKWEAVE_DIFFUSION_MEMBER(DiffuseTopLandscape, Quantiser::Top, true)

#undef INKWEAVE_DIFFUSION_MEMBER

}  // namespace inkweave
