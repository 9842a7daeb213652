// The batch pixel conversion per instruction set. The portable kernel is ConvertPixel in a loop. The
// SIMD kernels take the common case, trilinear interpolation, one pixel a step: the cell's eight
// corners arrive as four 8-byte loads (a corner and its neighbour one step further in blue lie side
// by side), their four inks widen to 16-bit lanes, are multiplied by the corner weights and summed,
// and the four sums are divided by 255 at once. The weights sum to 255, so no 16-bit lane can
// overflow and the result is the scalar formula's bit for bit. The base corner takes what the other
// seven weights leave of 255: the kernels read the weights from a copy of the table made when the
// library loads with byte 0 already raised by the rounding loss. White input, the six full-intensity corners
// and the pixels whose three fractions are alike (every neutral pixel and every grid point among them)
// go to ConvertPixel. A pixel's cell comes from three prepared parts, one per channel, that fold the
// device's tone curve into the cell's offset and weight index.
#include <cstring>

#include "src/color/color_internal.h"
#include "src/color/convert_pixel.h"
#include "src/color/kernels.h"
#include "src/data/tables.h"

#if INKWEAVE_X86_KERNELS
#include <immintrin.h>
#endif

namespace inkweave {
namespace {

std::uint32_t ConvertKey(std::uint32_t key, const DeviceState& state) {
  const std::uint8_t pixel[4] = {static_cast<std::uint8_t>(key), static_cast<std::uint8_t>(key >> 8),
                                 static_cast<std::uint8_t>(key >> 16), 0};
  std::uint8_t out[4];
  return ConvertPixelInline(pixel, out, state);
}

// Monochrome: the luminance through the gray curve, the same byte in all four inks.
inline std::uint32_t GrayInks(std::uint32_t key, const std::uint8_t* gray) {
  return gray[(30 * (key & 255) + 59 * ((key >> 8) & 255) + 11 * (key >> 16)) / 100] * 0x01010101u;
}

void ConvertPreparedPortable(const std::uint32_t* keys, int count, std::uint32_t* out, const DeviceState& state,
                             const ConvertParts& /*parts*/) {
  if (state.ColorMode == 1 && state.ToneCurves != nullptr) {
    const std::uint8_t* gray = state.ToneCurves + kCurveGray * 256;
    for (int i = 0; i < count; ++i) out[i] = GrayInks(keys[i], gray);
    return;
  }
  for (int i = 0; i < count; ++i) out[i] = ConvertKey(keys[i], state);
}

// What a curve output v contributes to its cell, per channel, so that the three channels' parts add up
// without carries: the grid offset of its cell (bits 0..15, at most 18,420), its place in the weight
// table's index (bits 16..27: red (v & 15) << 8, green << 4, blue << 0), and 1 << 29 when v is 0 or 255
// (bits 29..30 count the channels at a full-intensity end; PrepareConvertParts counts an input byte of
// 255 there too, so that white input counts three whatever its curves make of it).
constexpr std::uint32_t kPartExtreme = 1u << 29;
struct ChannelParts {
  std::uint32_t Of[3][256];
};
constexpr ChannelParts MakeChannelParts() {
  ChannelParts parts{};
  for (int v = 0; v < 256; ++v) {
    const std::uint32_t extreme = v == 0 || v == 255 ? kPartExtreme : 0;
    const auto low = static_cast<std::uint32_t>(v & 15);
    parts.Of[0][v] = static_cast<std::uint32_t>(GridOffset(v >> 4, 0, 0)) | low << 24 | extreme;
    parts.Of[1][v] = static_cast<std::uint32_t>(GridOffset(0, v >> 4, 0)) | low << 20 | extreme;
    parts.Of[2][v] = static_cast<std::uint32_t>(GridOffset(0, 0, v >> 4)) | low << 16 | extreme;
  }
  return parts;
}
constexpr ChannelParts kChannelParts = MakeChannelParts();
static_assert(GridOffset(15, 15, 15) < 1 << 16);

// InterpolationWeights with each entry's byte 0 raised to 255 minus the other seven (the weight the
// conversion gives the base corner), made once when the library loads. 32 KiB of data no call writes.
struct RaisedWeights {
  alignas(64) std::uint8_t Of[4096][8];
};
RaisedWeights MakeRaisedWeights() {
  RaisedWeights raised{};
  for (int index = 0; index < 4096; ++index) {
    int others = 0;
    for (int corner = 1; corner < 8; ++corner) others += raised.Of[index][corner] = InterpolationWeights[index][corner];
    raised.Of[index][0] = static_cast<std::uint8_t>(255 - others);
  }
  return raised;
}
const RaisedWeights kRaisedWeights = MakeRaisedWeights();

#if INKWEAVE_X86_KERNELS

// What the SIMD kernels need of a colour pixel: its cell's base grid point and its weights, or null
// when the pixel takes one of the special cases.
struct Cell {
  const std::uint8_t* Base;
  const std::uint8_t* Weights;
};

// A pixel's cell from its three prepared parts. The special cases are white input and the six
// full-intensity corners (both count three channels at an end) and neutral input; a pixel whose three
// fractions are equal (every neutral one) goes to ConvertPixel as well, which converts any pixel
// exactly, as it does the rare pixel that counts three only through an input byte of 255.
[[gnu::always_inline]] inline Cell CellOf(std::uint32_t key, const ConvertParts& parts, const std::uint8_t* lut) {
  const std::uint32_t cell = parts.Of[0][key & 255] + parts.Of[1][(key >> 8) & 255] + parts.Of[2][key >> 16];
  const bool corner = cell >= 3 * kPartExtreme;
  const bool even = ((cell ^ (cell >> 4)) & 0xFF0000) == 0;  // red, green and blue fractions alike
  if (corner | even) return {nullptr, nullptr};
  return {lut + (cell & 0xFFFF), kRaisedWeights.Of[(cell >> 16) & 0xFFF]};
}

// The weights of corners 0..7 in bytes 0..7 (the base corner's raised).
INKWEAVE_TARGET_SSE41 inline __m128i CornerWeights(const std::uint8_t* weights) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(weights));
}

// Two corner pairs: the 8 bytes at p (corners c, c + 4) and at p + step (the next two) in 16 bytes.
INKWEAVE_TARGET_SSE41 inline __m128i CornerPairs(const std::uint8_t* p, std::size_t step) {
  const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
  return _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(low), reinterpret_cast<const double*>(p + step)));
}

// Four 16-bit ink sums (each at most 255 x 255) divided by 255, complemented and packed as cyan lowest.
// x / 255 is (x * 0x8081) >> 23 for every 16-bit x.
INKWEAVE_TARGET_SSE41 inline std::uint32_t Lightness(__m128i sums) {
  const __m128i q = _mm_srli_epi16(_mm_mulhi_epu16(sums, _mm_set1_epi16(static_cast<short>(0x8081))), 7);
  const __m128i light = _mm_sub_epi16(_mm_set1_epi16(255), q);
  return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(light, light)));
}

// Monochrome, four keys in the 32-bit lanes: the gray curve's index (30 red + 59 green + 11 blue) / 100,
// the division as (x * 5243) >> 19, exact for x up to 43,698 (here at most 25,500). Both products in
// 16-bit multiply-adds: red and blue are the key's 16-bit halves, green alone in the low half.
INKWEAVE_TARGET_SSE41 inline __m128i GrayIndex(__m128i keys) {
  const __m128i redBlue = _mm_and_si128(keys, _mm_set1_epi32(0x00FF00FF));
  const __m128i green = _mm_and_si128(_mm_srli_epi32(keys, 8), _mm_set1_epi32(0xFF));
  const __m128i luminance =
      _mm_add_epi32(_mm_madd_epi16(redBlue, _mm_set1_epi32(30 | 11 << 16)), _mm_madd_epi16(green, _mm_set1_epi32(59)));
  return _mm_srli_epi32(_mm_madd_epi16(luminance, _mm_set1_epi32(5243)), 19);
}

// The gray curve read at each index, the same byte in all four inks.
inline void GrayInksAt(const std::uint32_t* index, int count, std::uint32_t* out, const std::uint8_t* gray) {
  for (int j = 0; j < count; ++j) out[j] = gray[index[j]] * 0x01010101u;
}

[[gnu::noinline]] INKWEAVE_TARGET_SSE41 void GrayPixelsSse41(const std::uint32_t* keys, int count, std::uint32_t* out,
                                                             const std::uint8_t* gray) {
  int i = 0;
  for (; i + 4 <= count; i += 4) {
    alignas(16) std::uint32_t index[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(index),
                    GrayIndex(_mm_loadu_si128(reinterpret_cast<const __m128i*>(keys + i))));
    GrayInksAt(index, 4, out + i, gray);
  }
  for (; i < count; ++i) out[i] = GrayInks(keys[i], gray);
}

[[gnu::noinline]] INKWEAVE_TARGET_AVX2 void GrayPixelsAvx2(const std::uint32_t* keys, int count, std::uint32_t* out,
                                                           const std::uint8_t* gray) {
  int i = 0;
  for (; i + 8 <= count; i += 8) {
    const __m256i k = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys + i));
    alignas(32) std::uint32_t index[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(index), GrayIndex(_mm256_castsi256_si128(k)));
    _mm_store_si128(reinterpret_cast<__m128i*>(index + 4), GrayIndex(_mm256_extracti128_si256(k, 1)));
    GrayInksAt(index, 8, out + i, gray);
  }
  GrayPixelsSse41(keys + i, count - i, out + i, gray);
}

constexpr std::size_t kRedStep = GridOffset(1, 0, 0);
constexpr std::size_t kGreenStep = GridOffset(0, 1, 0);

INKWEAVE_TARGET_SSE41 void ConvertPreparedSse41(const std::uint32_t* keys, int count, std::uint32_t* out,
                                                const DeviceState& state, const ConvertParts& parts) {
  const std::uint8_t* curves = state.ToneCurves;
  const std::uint8_t* lut = state.ColorLut;
  if (state.ColorMode == 1 || curves == nullptr || lut == nullptr) {
    if (state.ColorMode == 1 && curves != nullptr) return GrayPixelsSse41(keys, count, out, curves + kCurveGray * 256);
    return ConvertPreparedPortable(keys, count, out, state, parts);
  }
  // Each corner's weight in the four 16-bit lanes of its inks (-1: a zero byte).
  const __m128i spread04 = _mm_setr_epi8(0, -1, 0, -1, 0, -1, 0, -1, 4, -1, 4, -1, 4, -1, 4, -1);
  const __m128i spread15 = _mm_setr_epi8(1, -1, 1, -1, 1, -1, 1, -1, 5, -1, 5, -1, 5, -1, 5, -1);
  const __m128i spread26 = _mm_setr_epi8(2, -1, 2, -1, 2, -1, 2, -1, 6, -1, 6, -1, 6, -1, 6, -1);
  const __m128i spread37 = _mm_setr_epi8(3, -1, 3, -1, 3, -1, 3, -1, 7, -1, 7, -1, 7, -1, 7, -1);
  const __m128i zero = _mm_setzero_si128();
  for (int i = 0; i < count; ++i) {
    const Cell cell = CellOf(keys[i], parts, lut);
    if (cell.Base == nullptr) {
      out[i] = ConvertKey(keys[i], state);
      continue;
    }
    const __m128i a = CornerPairs(cell.Base, kRedStep);               // corners 0, 4 | 1, 5
    const __m128i b = CornerPairs(cell.Base + kGreenStep, kRedStep);  // corners 2, 6 | 3, 7
    const __m128i w = CornerWeights(cell.Weights);
    __m128i sums = _mm_mullo_epi16(_mm_unpacklo_epi8(a, zero), _mm_shuffle_epi8(w, spread04));
    sums = _mm_add_epi16(sums, _mm_mullo_epi16(_mm_unpackhi_epi8(a, zero), _mm_shuffle_epi8(w, spread15)));
    sums = _mm_add_epi16(sums, _mm_mullo_epi16(_mm_unpacklo_epi8(b, zero), _mm_shuffle_epi8(w, spread26)));
    sums = _mm_add_epi16(sums, _mm_mullo_epi16(_mm_unpackhi_epi8(b, zero), _mm_shuffle_epi8(w, spread37)));
    out[i] = Lightness(_mm_add_epi16(sums, _mm_unpackhi_epi64(sums, sums)));
  }
}

// One pixel in the AVX2 encoding; the special cases through ConvertPixel.
INKWEAVE_TARGET_AVX2 inline std::uint32_t ConvertOneAvx2(std::uint32_t key, const Cell& cell, const DeviceState& state,
                                                         __m256i spreadA, __m256i spreadB) {
  if (cell.Base == nullptr) return ConvertKey(key, state);
  const __m256i a = _mm256_cvtepu8_epi16(CornerPairs(cell.Base, kRedStep));
  const __m256i b = _mm256_cvtepu8_epi16(CornerPairs(cell.Base + kGreenStep, kRedStep));
  std::int64_t weights;
  std::memcpy(&weights, cell.Weights, sizeof weights);
  const __m256i w = _mm256_set1_epi64x(weights);
  const __m256i products = _mm256_add_epi16(_mm256_mullo_epi16(a, _mm256_shuffle_epi8(w, spreadA)),
                                            _mm256_mullo_epi16(b, _mm256_shuffle_epi8(w, spreadB)));
  const __m128i sums = _mm_add_epi16(_mm256_castsi256_si128(products), _mm256_extracti128_si256(products, 1));
  return Lightness(_mm_add_epi16(sums, _mm_unpackhi_epi64(sums, sums)));
}

INKWEAVE_TARGET_AVX2 void ConvertPreparedAvx2(const std::uint32_t* keys, int count, std::uint32_t* out,
                                              const DeviceState& state, const ConvertParts& parts) {
  const std::uint8_t* curves = state.ToneCurves;
  const std::uint8_t* lut = state.ColorLut;
  if (state.ColorMode == 1 || curves == nullptr || lut == nullptr) {
    if (state.ColorMode == 1 && curves != nullptr) return GrayPixelsAvx2(keys, count, out, curves + kCurveGray * 256);
    return ConvertPreparedPortable(keys, count, out, state, parts);
  }
  // Lanes 0..7 hold corners 0 and 4 (2 and 6), lanes 8..15 corners 1 and 5 (3 and 7).
  const __m256i spreadA = _mm256_setr_epi8(0, -1, 0, -1, 0, -1, 0, -1, 4, -1, 4, -1, 4, -1, 4, -1,  //
                                           1, -1, 1, -1, 1, -1, 1, -1, 5, -1, 5, -1, 5, -1, 5, -1);
  const __m256i spreadB = _mm256_setr_epi8(2, -1, 2, -1, 2, -1, 2, -1, 6, -1, 6, -1, 6, -1, 6, -1,  //
                                           3, -1, 3, -1, 3, -1, 3, -1, 7, -1, 7, -1, 7, -1, 7, -1);
  for (int i = 0; i < count; ++i)
    out[i] = ConvertOneAvx2(keys[i], CellOf(keys[i], parts, lut), state, spreadA, spreadB);
}

#endif  // INKWEAVE_X86_KERNELS

}  // namespace

void PrepareConvertParts(const DeviceState& state, ConvertParts& parts) {
  if (state.ColorMode == 1 || state.ToneCurves == nullptr) return;
  for (int c = 0; c < 3; ++c) {
    const std::uint8_t* curve = state.ToneCurves + (kCurveRed + c) * 256;
    for (int v = 0; v < 256; ++v) parts.Of[c][v] = kChannelParts.Of[c][curve[v]];
    parts.Of[c][255] |= kPartExtreme;  // white input counts three
  }
}

ConvertPreparedFn ConvertPreparedFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (set == InstructionSet::kAvx2) return &ConvertPreparedAvx2;
  if (set == InstructionSet::kSse41) return &ConvertPreparedSse41;
#endif
  static_cast<void>(set);
  return &ConvertPreparedPortable;
}

}  // namespace inkweave
