// Ordered dither: the four simple band renderers.
//
// Each renderer turns one stripe of the host's band into dot planes by comparing ink lightness values
// (255 no ink, 0 full ink) against DitherMatrix: a dot is set where value < threshold.
//
//   DitherColorPortrait / DitherColorLandscape: 24-bit pixels through ConvertPixel, with a one-pixel
//     memory primed with white so that runs of equal pixels (and leading white) are not converted.
//     Only cyan, magenta and yellow are dithered (ORed into the planes); afterwards a black pass turns
//     every dot that all three share into one black dot.
//   DitherGrayPortrait / DitherGrayLandscape: one byte per pixel through curve 6 of ToneCurves, whole
//     bytes stored into the black plane. The last byte of a line carries the dots of up to seven
//     pixels past the width, dithered from whatever follows in the band; they are kept, not masked.
//
// Landscape renderers walk the band turned: output line l is source column (first line + l) and dot x
// is source row (width - 1 - x), so the band's bottom row lands at the left of the output line.
//
// Memory safety at the edges: a source pixel that lies outside the host's band memory (rows 0 to
// height - 1 at the band's stride) is never read and counts as white (no dot); every write and the
// black pass stop at the end of PlaneBuffer.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "src/color/color.h"
#include "src/color/instruction_set.h"
#include "src/color/kernels.h"
#include "src/data/tables.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/halftone.h"
#include "src/halftone/kernels.h"

namespace inkweave {
namespace {

// PlaneBuffer below level 6 (plane_geometry.h): byte offsets of a line's planes, the line stride.
constexpr std::ptrdiff_t kLine = kLineBytes;
constexpr std::ptrdiff_t kCyanAt = kCyanPlane * kPlaneBytes;
constexpr std::ptrdiff_t kMagentaAt = kMagentaPlane * kPlaneBytes;
constexpr std::ptrdiff_t kYellowAt = kYellowPlane * kPlaneBytes;
constexpr std::ptrdiff_t kBlackAt = kBlackPlane * kPlaneBytes;
constexpr std::ptrdiff_t kBufferBytes = kPlaneBufferBytes;

constexpr std::uint32_t kWhiteKey = 0xFFFFFF;
constexpr int kGrayCurve = 6;

// The host's band as a byte range relative to BandInfo::Bits: [lo, hi).
struct BandWindow {
  std::ptrdiff_t lo;
  std::ptrdiff_t hi;
};

BandWindow WindowOf(const BandInfo& band) {
  const std::ptrdiff_t rows = band.Header.biHeight > 0 ? band.Header.biHeight : 0;
  const std::ptrdiff_t stride = band.Stride;
  if (band.Bits == nullptr || rows == 0) return {0, 0};
  const std::ptrdiff_t lo = stride < 0 ? (rows - 1) * stride : 0;
  return {lo, lo + rows * (stride < 0 ? -stride : stride)};
}

std::ptrdiff_t FloorDiv(std::ptrdiff_t a, std::ptrdiff_t b) {  // b > 0
  return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// The dots i in [first, last) of 0..count-1 whose pixel (size bytes at base + step * i) lies wholly
// inside the window. The offsets are monotone in i, so the inside dots form one run.
struct DotRun {
  int first;
  int last;
};

DotRun InsideRun(const BandWindow& w, std::ptrdiff_t base, std::ptrdiff_t step, std::ptrdiff_t size, int count) {
  const std::ptrdiff_t lo = w.lo;
  const std::ptrdiff_t hi = w.hi - size;  // last allowed offset
  if (count <= 0 || hi < lo) return {0, 0};
  std::ptrdiff_t first = 0;
  std::ptrdiff_t last = count;
  if (step == 0) {
    if (base < lo || base > hi) return {0, 0};
  } else if (step > 0) {
    first = std::max(first, -FloorDiv(base - lo, step));  // ceil((lo - base) / step)
    last = std::min(last, FloorDiv(hi - base, step) + 1);
  } else {
    first = std::max(first, -FloorDiv(hi - base, -step));  // ceil((base - hi) / -step)
    last = std::min(last, FloorDiv(base - lo, -step) + 1);
  }
  if (last <= first) return {0, 0};
  return {static_cast<int>(first), static_cast<int>(last)};
}

// The band's offset on the page along the output lines (y in portrait, x in landscape).
std::int32_t PageOffset(const IPPARAMS* params, bool landscape) {
  if (params == nullptr) return 0;
  return landscape ? params->ptOffset.x : params->ptOffset.y;
}

const std::uint8_t* ThresholdRow(std::int64_t row) { return DitherMatrix[row]; }

// ORs a byte of dots into plane byte `index` of the buffer; bytes past its end are dropped.
inline void OrDots(std::uint8_t* planes, std::ptrdiff_t index, std::uint32_t bits) {
  if (bits != 0 && index < kBufferBytes) planes[index] |= static_cast<std::uint8_t>(bits);
}

// ORs the four plane bytes of a stretch, given as one little-endian word, into the plane at `at`.
inline void OrStretch(std::uint8_t* at, std::uint32_t bits) {
  std::uint32_t word;
  std::memcpy(&word, at, 4);
  word |= bits;
  std::memcpy(at, &word, 4);
}

// The black pass of one colour line: over bytes i = 0..width-1 from the line's start, the bits common
// to cyan, magenta and yellow byte i move to black byte i. Answers the OR of the colour bytes before
// the removal. The pass stops where black byte i would lie past the buffer.
//
// Past i = 640 the byte addressing runs on into the following planes and lines. Every byte read
// there has already been read by the first 640 steps (as magenta or yellow) or overwritten as a black
// byte before it is read, so those steps find no common bits and no new flag bits: all they do is
// store 0 as black byte i, i.e. clear bytes 2560..1920+width-1 from the line's start. That is what is
// done for them here; the byte-by-byte reference in the tests pins the equivalence, dirty planes
// included.
std::uint64_t ExtractBlack(std::uint8_t* planes, std::ptrdiff_t lineStart, int width) {
  const std::ptrdiff_t room = kBufferBytes - (lineStart + kBlackAt);
  const std::ptrdiff_t n = std::min<std::ptrdiff_t>(width, room);
  const std::ptrdiff_t own = std::min<std::ptrdiff_t>(n, kPlaneBytes);
  std::uint8_t* line = planes + lineStart;
  std::uint64_t flag = 0;
  std::ptrdiff_t i = 0;
  for (; i + 8 <= own; i += 8) {
    std::uint64_t c, m, y;
    std::memcpy(&c, line + kCyanAt + i, 8);
    std::memcpy(&m, line + kMagentaAt + i, 8);
    std::memcpy(&y, line + kYellowAt + i, 8);
    flag |= c | m | y;
    const std::uint64_t common = c & m & y;
    std::memcpy(line + kBlackAt + i, &common, 8);
    if (common != 0) {
      c &= ~common;
      m &= ~common;
      y &= ~common;
      std::memcpy(line + kCyanAt + i, &c, 8);
      std::memcpy(line + kMagentaAt + i, &m, 8);
      std::memcpy(line + kYellowAt + i, &y, 8);
    }
  }
  for (; i < own; ++i) {
    const std::uint8_t c = line[kCyanAt + i];
    const std::uint8_t m = line[kMagentaAt + i];
    const std::uint8_t y = line[kYellowAt + i];
    flag |= static_cast<std::uint64_t>(c | m | y);
    const auto common = static_cast<std::uint8_t>(c & m & y);
    line[kBlackAt + i] = common;
    line[kCyanAt + i] = static_cast<std::uint8_t>(c & ~common);
    line[kMagentaAt + i] = static_cast<std::uint8_t>(m & ~common);
    line[kYellowAt + i] = static_cast<std::uint8_t>(y & ~common);
  }
  if (n > own) std::memset(line + kBlackAt + own, 0, static_cast<std::size_t>(n - own));
  return flag;
}

// The conversion memory of a colour stripe: the last pixel converted and its inks (cyan lowest). It
// starts as white with no ink, so that white pixels are not converted until another colour was seen;
// from the first conversion on, its inks are always its key's conversion (`converted`).
struct PixelMemory {
  std::uint32_t key = kWhiteKey;
  std::uint32_t inks = 0xFFFFFFFF;
  bool converted = false;
};

// Whether some ink of count packed lightness values is below 255 (a dot can be set).
bool AnyInk(const std::uint32_t* inks, int count) {
  std::uint32_t all = 0xFFFFFFFF;
  for (int i = 0; i < count; ++i) all &= inks[i];
  return (all & 0xFFFFFF) != 0xFFFFFF;
}

// What a colour stripe works with: its kernels and its conversion memory.
struct ColorStripe {
  const DeviceState* state;
  ConvertPreparedFn convert;
  detail::DitherStretchFn dither;
  detail::StretchKeysFn keys;
  PixelMemory memory;
  ColorMemory colors;  // not used in monochrome, where a conversion costs less than a look-up
  ConvertParts parts;
};

void ConvertStretch(ColorStripe& s, const std::uint32_t* keys, int count, std::uint32_t* out) {
  const auto convert = [&s](const std::uint32_t* some, int n, std::uint32_t* to) {
    s.convert(some, n, to, *s.state, s.parts);
  };
  if (s.state->ColorMode == 1)
    convert(keys, count, out);
  else
    ConvertThroughMemory(s.colors, convert, keys, count, out);
}

// A stretch of one colour: one memory look-up, and nothing at all when it is white.
bool OneColour(ColorStripe& s, std::uint32_t key, std::uint32_t* inks) {
  if (key != s.memory.key) ConvertStretch(s, &key, 1, &s.memory.inks), s.memory.key = key, s.memory.converted = true;
  const std::uint32_t v = s.memory.inks;
  if ((v & 0xFFFFFF) == 0xFFFFFF) return false;
  std::fill(inks, inks + detail::kDitherStretch, v);
  return true;
}

// The packed lightness of one stretch of dots x0..x0+31 into inks, dot x at index x - x0; dots outside
// lo..hi-1 stay white (255 in every byte). The pixels that differ from the one before them are converted
// in one call. `wide`: every pixel of the stretch may be read as four bytes (its next byte lies in the
// band too); `keyed`: the stretch is whole and its keys kernel's reach lies in the band. Answers false
// when no dot of the stretch can be set (all white).
bool FillStretch(ColorStripe& s, const std::uint8_t* bits, std::ptrdiff_t base, std::ptrdiff_t step, int x0, int lo,
                 int hi, bool wide, bool keyed, std::uint32_t* inks) {
  constexpr int kStretch = detail::kDitherStretch;
  const std::uint8_t* first = bits + base + step * lo;
  const bool whole = hi - lo == kStretch;
  if (!whole) std::fill(inks, inks + kStretch, 0xFFFFFFFFu);

  // The keys, and bit x - x0 set where dot x's key differs from the one before (the memory's before lo).
  std::uint32_t keys[kStretch];
  std::uint32_t differ = 0;
  if (keyed) {
    differ = s.keys(first, s.memory.key, keys);
  } else {
    std::uint32_t last = s.memory.key;
    for (int x = lo; x < hi; ++x) {
      const std::uint8_t* pixel = bits + base + step * x;
      const std::uint32_t key = wide ? PixelKeyWide(pixel) : PixelKey(pixel);
      keys[x - x0] = key;
      differ |= static_cast<std::uint32_t>(key != last) << (x - x0);
      last = key;
    }
  }
  if (whole && (differ & ~1u) == 0) return OneColour(s, keys[0], inks);

  // Monochrome: every pixel converted (its conversion costs less than the look-ups that would spare
  // it), then a pixel equal to the one before takes its inks, as the memory rule has it (the white
  // that the memory starts with is not converted); the three inks alike.
  if (s.state->ColorMode == 1) {
    std::uint32_t* light = inks + (lo - x0);
    const std::uint32_t* own = keys + (lo - x0);
    const int count = hi - lo;
    s.convert(own, count, light, *s.state, s.parts);
    if (!s.memory.converted) {
      for (int i = 0; i < count; ++i) {
        if (own[i] == s.memory.key)
          light[i] = s.memory.inks;
        else
          s.memory = {own[i], light[i], true};
      }
    }
    // A converted memory gives an equal pixel what converting it gives.
    if (s.memory.converted) s.memory = {own[count - 1], light[count - 1], true};
    return AnyInk(light, count);
  }

  // Every pixel differs from the one before it (photographs): the conversions are the inks.
  if (differ == 0xFFFFFFFFu) {
    ConvertStretch(s, keys, kStretch, inks);
    s.memory = {keys[kStretch - 1], inks[kStretch - 1], true};
    return AnyInk(inks, kStretch);
  }
  std::uint32_t fresh[kStretch];
  int count = 0;
  for (std::uint32_t d = differ; d != 0; d &= d - 1) fresh[count++] = keys[std::countr_zero(d)];
  std::uint32_t converted[kStretch];
  if (count > 0) ConvertStretch(s, fresh, count, converted);

  // Each run of equal pixels takes its conversion (the memory's inks before the first new key).
  std::uint32_t v = s.memory.inks;
  std::uint32_t white = 0xFFFFFF;
  int x = lo - x0;
  int next = 0;
  for (std::uint32_t d = differ; d != 0; d &= d - 1) {
    const int at = std::countr_zero(d);
    if (at > x) std::fill(inks + x, inks + at, v), white &= v;
    v = converted[next++];
    x = at;
  }
  std::fill(inks + x, inks + (hi - x0), v);
  white &= v;
  s.memory = {count > 0 ? fresh[count - 1] : s.memory.key, v, s.memory.converted || count > 0};
  return white != 0xFFFFFF;
}

std::uint32_t DitherColor(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                          const IPPARAMS* params, bool landscape) {
  if (lineCount < 1) return 0;
  constexpr int kStretch = detail::kDitherStretch;
  std::uint8_t* planes = state.PlaneBuffer[0];
  const BandWindow window = WindowOf(band);
  const std::ptrdiff_t stride = band.Stride;
  const std::int64_t offset = PageOffset(params, landscape);
  const InstructionSet set = ActiveInstructionSet();
  ColorStripe s{&state, ConvertPreparedFor(set), detail::DitherStretchFor(set), detail::StretchKeysFor(set), {}, {},
                {}};
  ClearColorMemory(s.colors);
  PrepareConvertParts(state, s.parts);
  std::uint64_t flag = 0;

  for (int l = 0; l < lineCount; ++l) {
    const std::ptrdiff_t lineStart = kLine * l;
    if (lineStart >= kBufferBytes) break;

    // The thresholds minus 1, each in the four bytes of a packed lightness.
    const std::uint8_t* threshold = ThresholdRow((firstLine + l + offset) & 127);
    alignas(32) std::uint32_t limits[kDitherSize];
    for (int i = 0; i < kDitherSize; ++i) limits[i] = static_cast<std::uint8_t>(threshold[i] - 1) * 0x01010101u;

    // Where dot x's pixel lies in the band.
    const std::ptrdiff_t line = firstLine + l;
    const std::ptrdiff_t base =
        landscape ? (static_cast<std::ptrdiff_t>(width) - 1) * stride + 3 * line : line * stride;
    const std::ptrdiff_t step = landscape ? -stride : 3;
    const DotRun run = InsideRun(window, base, step, 3, width);
    const DotRun wide = InsideRun(window, base, step, 4, width);  // a pixel's next byte is in the band too
    // Portrait: the stretches whose keys kernel reads nothing outside the band (its last pixel's reach).
    const DotRun keyed =
        landscape ? DotRun{0, 0} : InsideRun(window, base, step, detail::kStretchKeysReach - 3 * (kStretch - 1), width);

    // Cyan, magenta and yellow dots, a stretch of 32 at a time, ORed into the planes.
    for (int x0 = run.first & ~(kStretch - 1); x0 < run.last; x0 += kStretch) {
      alignas(32) std::uint32_t inks[kStretch];
      const int lo = std::max(x0, run.first);
      const int hi = std::min(x0 + kStretch, run.last);
      if (!FillStretch(s, band.Bits, base, step, x0, lo, hi, x0 >= wide.first && x0 + kStretch <= wide.last,
                       hi - lo == kStretch && x0 >= keyed.first && x0 + kStretch <= keyed.last, inks))
        continue;
      std::uint32_t dots[3];
      s.dither(inks, limits + (x0 & (kDitherSize - 1)), dots);
      const std::ptrdiff_t byte = lineStart + (x0 >> 3);
      if (std::endian::native == std::endian::little && byte + kYellowAt + kStretch / 8 <= kBufferBytes) {
        OrStretch(planes + byte + kCyanAt, dots[0]);  // byte b of the word: positions 8b..8b+7
        OrStretch(planes + byte + kMagentaAt, dots[1]);
        OrStretch(planes + byte + kYellowAt, dots[2]);
      } else {
        for (int b = 0; b < kStretch / 8; ++b) {
          OrDots(planes, byte + b + kCyanAt, (dots[0] >> (8 * b)) & 0xFF);
          OrDots(planes, byte + b + kMagentaAt, (dots[1] >> (8 * b)) & 0xFF);
          OrDots(planes, byte + b + kYellowAt, (dots[2] >> (8 * b)) & 0xFF);
        }
      }
    }

    flag |= ExtractBlack(planes, lineStart, width);
  }
  return flag != 0 ? 1 : 0;
}

std::uint32_t DitherGray(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                         const IPPARAMS* params, bool landscape) {
  if (lineCount < 1) return 0;
  std::uint8_t* planes = state.PlaneBuffer[0];
  const std::uint8_t* curve = state.ToneCurves + 256 * kGrayCurve;
  const BandWindow window = WindowOf(band);
  const std::ptrdiff_t stride = band.Stride;
  const int groups = (width - 1) / 8 + 1;  // the last group may reach seven dots past the width
  const std::int64_t firstRow = (firstLine + PageOffset(params, landscape)) & 127;
  std::uint32_t flag = 0;

  for (int l = 0; l < lineCount; ++l) {
    const std::ptrdiff_t lineStart = kLine * l;
    if (lineStart >= kBufferBytes) break;
    // Not reduced after the stripe's first line: rows 128..142 are stored behind the matrix. A
    // stripe longer than sixteen lines wraps back into the tile.
    std::int64_t row = firstRow + l;
    if (row >= kDitherRowsStored) row &= 127;
    const std::uint8_t* threshold = ThresholdRow(row);

    const std::ptrdiff_t line = firstLine + l;
    const std::ptrdiff_t base = landscape ? (static_cast<std::ptrdiff_t>(width) - 1) * stride + line : line * stride;
    const std::ptrdiff_t step = landscape ? -stride : 1;
    const DotRun run = InsideRun(window, base, step, 1, groups > 0 ? groups * 8 : 0);

    std::uint8_t* black = planes + lineStart + kBlackAt;
    const std::ptrdiff_t room = kBufferBytes - (lineStart + kBlackAt);
    const int storedGroups = static_cast<int>(std::min<std::ptrdiff_t>(groups, room));
    for (int g = 0; g < storedGroups; ++g) {
      const int x0 = 8 * g;
      std::uint32_t bits = 0;
      if (x0 >= run.first && x0 + 8 <= run.last) {
        const std::ptrdiff_t at = base + step * x0;
        for (int k = 0; k < 8; ++k) {
          const std::uint32_t value = curve[band.Bits[at + step * k]];
          bits = (bits << 1) | static_cast<std::uint32_t>(value < threshold[(x0 + k) & 127]);
        }
      } else {
        for (int k = 0; k < 8; ++k) {
          const int x = x0 + k;
          std::uint32_t dot = 0;
          if (x >= run.first && x < run.last) {
            dot = static_cast<std::uint32_t>(curve[band.Bits[base + step * x]] < threshold[x & 127]);
          }
          bits = (bits << 1) | dot;
        }
      }
      black[g] = static_cast<std::uint8_t>(bits);
      flag |= bits;
    }
  }
  return flag != 0 ? 1 : 0;
}

}  // namespace

std::uint32_t DitherColorPortrait(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                                  int /*firstPixel*/, int /*rowPixels*/, const IPPARAMS* params) {
  return DitherColor(state, firstLine, width, band, lineCount, params, false);
}

std::uint32_t DitherColorLandscape(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                                   int /*firstPixel*/, int /*rowPixels*/, const IPPARAMS* params) {
  return DitherColor(state, firstLine, width, band, lineCount, params, true);
}

std::uint32_t DitherGrayPortrait(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                                 int /*firstPixel*/, int /*rowPixels*/, const IPPARAMS* params) {
  return DitherGray(state, firstLine, width, band, lineCount, params, false);
}

std::uint32_t DitherGrayLandscape(DeviceState& state, int firstLine, int width, const BandInfo& band, int lineCount,
                                  int /*firstPixel*/, int /*rowPixels*/, const IPPARAMS* params) {
  return DitherGray(state, firstLine, width, band, lineCount, params, true);
}

}  // namespace inkweave
