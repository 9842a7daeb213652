// Pieces shared by the error-diffusion renderers: the ink-split table choice, the separation of a
// converted pixel into four ink amounts, the conversion cache, the source walk of a stripe line and
// the limits that keep a call inside the device's buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "src/color/color.h"
#include "src/color/convert_pixel.h"
#include "src/color/instruction_set.h"
#include "src/color/kernels.h"
#include "src/data/tables.h"
#include "src/device/band_info.h"
#include "src/device/device_state.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/kernels.h"

namespace inkweave::detail {

// Inks are indexed like the planes of a line (plane_geometry.h): the error lines and the floors too.
// Every pixel takes its inks in this order; they share one jitter sequence.
inline constexpr int kInkOrder[4] = {kBlackPlane, kCyanPlane, kMagentaPlane, kYellowPlane};

inline constexpr std::uint32_t kWhiteKey = 0x00FFFFFF;
inline constexpr int kFineMapRow = 128;  // the fine map's first row in DiffusionThresholdMaps

// The ink-split table (0..10) for the state's colour mode, resolution code and media.
int InkSplitTableIndex(const DeviceState& state);

// Cells in each error line as the device allocates it: (4 W + 16) bytes of 16-bit cells, W the page
// width, doubled at 600 dpi.
inline std::int64_t ErrorCellsAllocated(const DeviceState& state) {
  const std::int64_t w = std::int64_t{state.PageWidth} * (state.PrintQuality == 600 ? 2 : 1);
  return (4 * w + 16) / 2;
}

// True when every buffer a diffusion renderer writes is present.
inline bool DiffusionBuffersPresent(const DeviceState& state, bool bothPlaneBuffers) {
  for (const std::int16_t* line : state.LineBuffers) {
    if (line == nullptr) return false;
  }
  return state.PlaneBuffer[0] != nullptr && (!bothPlaneBuffers || state.PlaneBuffer[1] != nullptr);
}

// The band's position on the page in the renderer's scan: vertical in portrait, horizontal in
// landscape.
inline std::int32_t BandPosition(const IPPARAMS* params, bool landscape) {
  if (params == nullptr) return 0;
  return landscape ? params->ptOffset.x : params->ptOffset.y;
}

// The first threshold-map row of a stripe: (band position + first line) mod 128.
inline int StripeMapRow(std::int32_t position, int firstLine) {
  return static_cast<int>((static_cast<std::uint32_t>(position) + static_cast<std::uint32_t>(firstLine)) & 127u);
}

// Where pixel x of one stripe line lies in the band: at Origin + x * Step bytes from the band's first
// row. Portrait: line `line` of the band, left to right. Landscape: column `line` of the band, read
// upward from row `height` - 1.
struct SourceLine {
  std::ptrdiff_t Origin;  // bytes
  std::ptrdiff_t Step;    // bytes per pixel
};

inline SourceLine SourceLineOf(const BandInfo& band, int line, int height, bool landscape) {
  if (landscape) {
    return {std::ptrdiff_t{height - 1} * band.Stride + std::ptrdiff_t{line} * 3, -std::ptrdiff_t{band.Stride}};
  }
  return {std::ptrdiff_t{line} * band.Stride, 3};
}

// Ink amounts of the pixel last converted, by ink index; 0 no ink, 255 full ink (they may fall below
// 0 where a split value exceeds the colour).
struct InkAmounts {
  int Amount[4];
};

// Splits the converted lightness bytes (cyan, magenta, yellow, grey component; cyan lowest) into four
// amounts through the ink-split table; yellow is held at or below yellowCap.
inline InkAmounts SplitInks(const std::uint8_t* lightness, const std::int16_t (*split)[4], int yellowCap) {
  const int g = 255 - lightness[3];
  const std::int16_t* row = split[g];
  InkAmounts a;
  a.Amount[kCyanPlane] = (255 - lightness[0]) - row[0];
  a.Amount[kMagentaPlane] = (255 - lightness[1]) - row[1];
  const int yellow = (255 - lightness[2]) - row[2];
  a.Amount[kYellowPlane] = yellow < yellowCap ? yellow : yellowCap;
  a.Amount[kBlackPlane] = g - row[3];
  return a;
}

// The same from the conversion's packed result (cyan in the lowest byte).
inline InkAmounts SplitInks(std::uint32_t packed, const std::int16_t (*split)[4], int yellowCap) {
  const std::uint8_t lightness[4] = {static_cast<std::uint8_t>(packed), static_cast<std::uint8_t>(packed >> 8),
                                     static_cast<std::uint8_t>(packed >> 16), static_cast<std::uint8_t>(packed >> 24)};
  return SplitInks(lightness, split, yellowCap);
}

// The same in the 16-bit lanes of one word (lane k: ink k), for tables whose entries lie within
// +-1024 (the vector chain's range, VectorChainInRange). Every lane is (255 - lightness) - row, worked
// out without a borrow between lanes: the row's lanes with their low 15 bits flipped lie in
// 0x7BFF..0x83FF, so adding 0x100 and taking the lightness byte off stays inside each lane, and the
// result's top bit flipped is the amount.
inline std::uint64_t PackedInks(std::uint32_t packed, const std::int16_t (*split)[4], int yellowCap) {
  constexpr std::uint64_t kLanes = 0x0001000100010001u;
  std::uint64_t row;
  std::memcpy(&row, split[255 - (packed >> 24)], sizeof row);
  std::uint64_t lightness = packed;  // a byte to a lane
  lightness = (lightness | lightness << 16) & 0x0000FFFF0000FFFFu;
  lightness = (lightness | lightness << 8) & 0x00FF00FF00FF00FFu;
  std::uint64_t amounts = ((row ^ 0x7FFF * kLanes) + 0x100 * kLanes - lightness) ^ 0x8000 * kLanes;
  constexpr int kYellowShift = 16 * kYellowPlane;
  if (static_cast<std::int16_t>(amounts >> kYellowShift) > yellowCap)
    amounts = (amounts & ~(std::uint64_t{0xFFFF} << kYellowShift)) |
              std::uint64_t{static_cast<std::uint16_t>(yellowCap)} << kYellowShift;
  return amounts;
}

// The one-entry conversion cache of a call: a pixel equal to the last key reuses its amounts. It
// starts on white with no ink, so white never reaches ConvertPixel until another colour was seen.
struct ConversionCache {
  ConvertPreparedFn Convert;  // the active instruction set's conversion kernel
  ConvertParts Parts;         // its look-ups for this call's curves
  ColorMemory Colors;         // the colours converted lately
  std::uint32_t Key;          // PixelKey of the last pixel
  InkAmounts Amounts;
  std::uint64_t Packed;     // the same in 16-bit lanes (PackedInks), kept by AmountsOfStretchPacked only
  SplitInksFn SplitPacked;  // PackedInks of many pixels (null: none for the active instruction set)
  DistinctKeysFn Distinct;  // the keys that differ from the one before them
  WalkStretchFn Walk;       // and the words of a stretch's keys from theirs
  const std::int16_t (*Split)[4];
  int YellowCap;
};

// Chooses the ink-split table, converts black once for YellowCap and primes the cache with white.
inline ConversionCache StartConversion(const DeviceState& state) {
  ConversionCache cache;
  cache.Convert = ConvertPreparedFor(ActiveInstructionSet());
  cache.SplitPacked = SplitInksFor(ActiveInstructionSet());
  cache.Distinct = DistinctKeysFor(ActiveInstructionSet());
  cache.Walk = WalkStretchFor(ActiveInstructionSet());
  PrepareConvertParts(state, cache.Parts);
  ClearColorMemory(cache.Colors);
  cache.Split = InkSplitTable[InkSplitTableIndex(state)];
  std::uint8_t black[4] = {0, 0, 0, 0};
  std::uint8_t out[4];
  ConvertPixel(black, out, state);
  cache.YellowCap = 255 - out[2];
  cache.Key = kWhiteKey;
  cache.Amounts = SplitInks(0xFFFFFFFF, cache.Split, cache.YellowCap);
  cache.Packed = PackedInks(0xFFFFFFFF, cache.Split, cache.YellowCap);
  return cache;
}

// The amounts of the source pixel at p (three bytes, red first).
inline const InkAmounts& AmountsOf(ConversionCache& cache, const std::uint8_t* p, const DeviceState& state) {
  const std::uint32_t key = PixelKey(p);
  if (key != cache.Key) {
    // ConvertPixel reads four bytes; hand it a copy so the last pixel of a band is never overread.
    const std::uint8_t pixel[4] = {p[0], p[1], p[2], 0};
    std::uint8_t out[4];
    cache.Key = key;
    ConvertPixelInline(pixel, out, state);
    cache.Amounts = SplitInks(out, cache.Split, cache.YellowCap);
  }
  return cache.Amounts;
}

// The converted pixels of a stretch: fresh[0..distinct - 1] are the keys that differ from the one
// before them (the first from the remembered pixel), converted into converted[].
inline int ConvertFresh(ConversionCache& cache, const std::uint32_t* keys, int count, std::uint32_t* fresh,
                        std::uint32_t* converted, const DeviceState& state) {
  const int distinct = cache.Distinct(keys, count, cache.Key, fresh);
  const auto convert = [&cache, &state](const std::uint32_t* some, int n, std::uint32_t* to) {
    cache.Convert(some, n, to, state, cache.Parts);
  };
  // Monochrome converts for less than a look-up in the colour memory costs.
  if (state.ColorMode == 1)
    convert(fresh, distinct, converted);
  else
    ConvertThroughMemory(cache.Colors, convert, fresh, distinct, converted);
  return distinct;
}

// The most pixels a stretch (AmountsOfStretch, AmountsOfStretchPacked) may hold.
inline constexpr int kStretchPixels = 256;

// The amounts of a stretch of count <= kStretchPixels pixels given by their keys into amounts[i]: the
// pixels that differ from the one before them are converted in one call of the kernel. Answers the OR
// of every amount (0: the stretch is white).
inline std::int32_t AmountsOfStretch(ConversionCache& cache, const std::uint32_t* keys, int count,
                                     std::int32_t (*amounts)[4], const DeviceState& state) {
  if (count <= 0) return 0;
  std::uint32_t fresh[kStretchPixels];
  std::uint32_t converted[kStretchPixels];
  ConvertFresh(cache, keys, count, fresh, converted, state);
  const std::int32_t* a = cache.Amounts.Amount;
  std::int32_t any = keys[0] == cache.Key ? a[0] | a[1] | a[2] | a[3] : 0;  // the remembered pixel's
  for (int i = 0, next = 0; i < count; ++i) {
    if (keys[i] != cache.Key) {
      cache.Key = keys[i];
      cache.Amounts = SplitInks(converted[next++], cache.Split, cache.YellowCap);
      any |= a[0] | a[1] | a[2] | a[3];
    }
    std::memcpy(amounts[i], a, sizeof amounts[i]);
  }
  return any;
}

// The same with the amounts in 16-bit lanes (PackedInks): amounts[i * stride] is pixel i's word. Only
// for tables within PackedInks' range. Answers the OR of every word (0: the stretch is white).
inline std::uint64_t AmountsOfStretchPacked(ConversionCache& cache, const std::uint32_t* keys, int count,
                                            std::uint64_t* amounts, int stride, const DeviceState& state) {
  if (count <= 0) return 0;
  std::uint32_t fresh[kStretchPixels];
  std::uint32_t converted[kStretchPixels];
  const int distinct = ConvertFresh(cache, keys, count, fresh, converted, state);
  // The converted pixels' amounts first (many at a time where a kernel does it), then along the stretch.
  std::uint64_t words[kStretchPixels];
  std::uint64_t any = keys[0] == cache.Key ? cache.Packed : 0;  // the remembered pixel's
  if (cache.SplitPacked != nullptr) {
    any |= cache.SplitPacked(converted, distinct, cache.Split, cache.YellowCap, words);
  } else {
    for (int k = 0; k < distinct; ++k) any |= words[k] = PackedInks(converted[k], cache.Split, cache.YellowCap);
  }
  cache.Walk(keys, count, cache.Key, cache.Packed, words, amounts, stride);
  cache.Key = keys[count - 1];
  cache.Packed = amounts[std::ptrdiff_t{count - 1} * stride];
  return any;
}

// Wrapping 16-bit store of a cell value.
inline std::int16_t Wrap16(int v) { return static_cast<std::int16_t>(v); }

}  // namespace inkweave::detail
