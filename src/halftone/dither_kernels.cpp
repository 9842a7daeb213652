// The colour dither's stretch kernels per instruction set. The compare of 32 positions: each position's
// packed lightness (cyan, magenta, yellow, black bytes) against its threshold minus 1 in all four bytes,
// ink <= limit, the dots gathered as the bits of plane bytes. The keys of 32 side-by-side pixels and
// which of them differ from the one before.
#include "src/color/kernels.h"
#include "src/halftone/kernels.h"

#if INKWEAVE_X86_KERNELS
#include <immintrin.h>
#endif

namespace inkweave::detail {
namespace {

void DitherStretchPortable(const std::uint32_t* inks, const std::uint32_t* limits, std::uint32_t* bits) {
  for (int k = 0; k < 3; ++k) {
    std::uint32_t b = 0;
    for (int j = 0; j < kDitherStretch; ++j) {
      const std::uint32_t ink = (inks[j] >> (8 * k)) & 0xFF;
      b |= static_cast<std::uint32_t>(ink <= (limits[j] & 0xFF)) << (j ^ 7);
    }
    bits[k] = b;
  }
}

std::uint32_t StretchKeysPortable(const std::uint8_t* pixels, std::uint32_t before, std::uint32_t* keys) {
  std::uint32_t differ = 0;
  for (int j = 0; j < kDitherStretch; ++j) {
    keys[j] = PixelKey(pixels + 3 * j);
    differ |= static_cast<std::uint32_t>(keys[j] != before) << j;
    before = keys[j];
  }
  return differ;
}

#if INKWEAVE_X86_KERNELS

// ink <= limit exactly where min(ink, limit) == ink. Per four positions the compare bytes of each ink
// are gathered last position first, so that the eight positions of a plane byte give its bits in
// order (position j at bit j ^ 7) when their two groups of four are put side by side.
INKWEAVE_TARGET_SSE41 inline __m128i InkGroups(__m128i inks, __m128i limits) {
  const __m128i byInk = _mm_setr_epi8(12, 8, 4, 0, 13, 9, 5, 1, 14, 10, 6, 2, 15, 11, 7, 3);
  return _mm_shuffle_epi8(_mm_cmpeq_epi8(_mm_min_epu8(inks, limits), inks), byInk);
}

INKWEAVE_TARGET_SSE41 void DitherStretchSse41(const std::uint32_t* inks, const std::uint32_t* limits,
                                              std::uint32_t* bits) {
  bits[0] = bits[1] = bits[2] = 0;
  for (int g = 0; g < kDitherStretch / 8; ++g) {
    const auto* in = reinterpret_cast<const __m128i*>(inks + 8 * g);
    const auto* limit = reinterpret_cast<const __m128i*>(limits + 8 * g);
    const __m128i first = InkGroups(_mm_loadu_si128(in), _mm_loadu_si128(limit));
    const __m128i second = InkGroups(_mm_loadu_si128(in + 1), _mm_loadu_si128(limit + 1));
    // Cyan and magenta bytes, then yellow and black: positions 7..4 before 3..0.
    const auto cm = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_unpacklo_epi32(second, first)));
    const auto yk = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_unpackhi_epi32(second, first)));
    bits[0] |= (cm & 0xFF) << (8 * g);
    bits[1] |= (cm >> 8) << (8 * g);
    bits[2] |= (yk & 0xFF) << (8 * g);
  }
}

INKWEAVE_TARGET_AVX2 void DitherStretchAvx2(const std::uint32_t* inks, const std::uint32_t* limits,
                                            std::uint32_t* bits) {
  const __m256i byInk = _mm256_setr_epi8(12, 8, 4, 0, 13, 9, 5, 1, 14, 10, 6, 2, 15, 11, 7, 3,  //
                                         12, 8, 4, 0, 13, 9, 5, 1, 14, 10, 6, 2, 15, 11, 7, 3);
  // Each ink's group of positions 7..4 (the upper half), then 3..0.
  const __m256i side = _mm256_setr_epi32(4, 0, 5, 1, 6, 2, 7, 3);
  bits[0] = bits[1] = bits[2] = 0;
  for (int g = 0; g < kDitherStretch / 8; ++g) {
    const __m256i in = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(inks + 8 * g));
    const __m256i limit = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(limits + 8 * g));
    const __m256i dots = _mm256_shuffle_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(in, limit), in), byInk);
    const auto mask = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_permutevar8x32_epi32(dots, side)));
    bits[0] |= (mask & 0xFF) << (8 * g);
    bits[1] |= ((mask >> 8) & 0xFF) << (8 * g);
    bits[2] |= ((mask >> 16) & 0xFF) << (8 * g);
  }
}

// Four pixels' three bytes from 16 bytes read at their first, each widened to a key.
INKWEAVE_TARGET_SSE41 inline __m128i KeysOf(const std::uint8_t* p) {
  const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), spread);
}

INKWEAVE_TARGET_SSE41 std::uint32_t StretchKeysSse41(const std::uint8_t* pixels, std::uint32_t before,
                                                     std::uint32_t* keys) {
  __m128i last = _mm_set1_epi32(static_cast<int>(before));
  std::uint32_t differ = 0;
  for (int g = 0; g < kDitherStretch / 4; ++g) {
    const __m128i k = KeysOf(pixels + 12 * g);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(keys + 4 * g), k);
    const __m128i equal = _mm_cmpeq_epi32(k, _mm_alignr_epi8(k, last, 12));  // against keys 4g-1 .. 4g+2
    differ |= (static_cast<std::uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(equal))) ^ 0xF) << (4 * g);
    last = k;
  }
  return differ;
}

INKWEAVE_TARGET_AVX2 std::uint32_t StretchKeysAvx2(const std::uint8_t* pixels, std::uint32_t before,
                                                   std::uint32_t* keys) {
  const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,  //
                                          0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const __m256i turn = _mm256_setr_epi32(7, 0, 1, 2, 3, 4, 5, 6);
  __m256i turned = _mm256_set1_epi32(static_cast<int>(before));  // lane 0: the key before the group
  std::uint32_t differ = 0;
  for (int g = 0; g < kDitherStretch / 8; ++g) {
    const std::uint8_t* p = pixels + 24 * g;
    const __m256i bytes =
        _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))),
                                _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12)), 1);
    const __m256i k = _mm256_shuffle_epi8(bytes, spread);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(keys + 8 * g), k);
    const __m256i next = _mm256_permutevar8x32_epi32(k, turn);  // keys 8g+7, 8g .. 8g+6
    const __m256i equal = _mm256_cmpeq_epi32(k, _mm256_blend_epi32(next, turned, 1));
    differ |= (static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(equal))) ^ 0xFF) << (8 * g);
    turned = next;
  }
  return differ;
}

#endif  // INKWEAVE_X86_KERNELS

}  // namespace

DitherStretchFn DitherStretchFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (set == InstructionSet::kAvx2) return &DitherStretchAvx2;
  if (set == InstructionSet::kSse41) return &DitherStretchSse41;
#endif
  static_cast<void>(set);
  return &DitherStretchPortable;
}

StretchKeysFn StretchKeysFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (set == InstructionSet::kAvx2) return &StretchKeysAvx2;
  if (set == InstructionSet::kSse41) return &StretchKeysSse41;
#endif
  static_cast<void>(set);
  return &StretchKeysPortable;
}

}  // namespace inkweave::detail
