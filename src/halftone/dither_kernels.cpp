// The ordered-dither compare of 32 positions per instruction set: ink <= threshold - 1 for three inks,
// unsigned bytes, the dots gathered as bits.
#include "src/halftone/kernels.h"

#if INKWEAVE_X86_KERNELS
#include <immintrin.h>
#endif

namespace inkweave::detail {
namespace {

void DitherStretchPortable(const std::uint8_t (*inks)[kDitherStretch], const std::uint8_t* limits,
                           std::uint32_t* bits) {
  for (int k = 0; k < 3; ++k) {
    std::uint32_t b = 0;
    for (int j = 0; j < kDitherStretch; ++j) b |= static_cast<std::uint32_t>(inks[k][j] <= limits[j]) << j;
    bits[k] = b;
  }
}

#if INKWEAVE_X86_KERNELS

// ink <= limit exactly where min(ink, limit) == ink.
INKWEAVE_TARGET_SSE41 void DitherStretchSse41(const std::uint8_t (*inks)[kDitherStretch], const std::uint8_t* limits,
                                              std::uint32_t* bits) {
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(limits));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(limits + 16));
  for (int k = 0; k < 3; ++k) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(inks[k]));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(inks[k] + 16));
    const auto dotsLow = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(a, low), a)));
    const auto dotsHigh = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(b, high), b)));
    bits[k] = dotsLow | dotsHigh << 16;
  }
}

INKWEAVE_TARGET_AVX2 void DitherStretchAvx2(const std::uint8_t (*inks)[kDitherStretch], const std::uint8_t* limits,
                                            std::uint32_t* bits) {
  const __m256i limit = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(limits));
  for (int k = 0; k < 3; ++k) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(inks[k]));
    bits[k] = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(a, limit), a)));
  }
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

}  // namespace inkweave::detail
