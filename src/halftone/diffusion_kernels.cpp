// The multi-level diffusion chain with the four inks in the 16-bit lanes of one vector. Per dot:
//   gathered error  g = F + 2 C2 + 4 C1 (16 bits), F the previous row's 4-2-1 window;
//   quotient        q = g / 16 toward zero, as |g| >> 4 with g's sign;
//   decisions       compare masks of q against each threshold (in the q domain: q > t + 4 - a ...);
//   error           the candidates q + offset are selected by the masks, innermost threshold first.
// The amounts 0 and 255 are the same two candidates around the floor f (q > f: -32, else +32; the
// amount 0 is clamped to at most 0), so every lane takes its kind's thresholds and candidates from
// blends, and no lane branches. Bits are collected by shifting the decision masks into 16-bit lanes.
//
// The 16-bit lanes are exact while amounts, thresholds and floors stay within +-1024 (so no
// candidate or threshold leaves 16 bits); VectorChainInRange checks the tables once, and the renderer
// keeps its own loop otherwise.
#include <cstring>

#include "src/data/tables.h"
#include "src/device/plane_geometry.h"
#include "src/halftone/kernels.h"

#if INKWEAVE_X86_KERNELS
#include <immintrin.h>
#endif

namespace inkweave::detail {
namespace {

// The keys that differ from the one before them, one at a time (every key is stored; the count moves
// by those that differ).
int DistinctKeysPortable(const std::uint32_t* keys, int count, std::uint32_t last, std::uint32_t* fresh) {
  int distinct = 0;
  for (int i = 0; i < count; ++i) {
    fresh[distinct] = keys[i];
    distinct += keys[i] != last;
    last = keys[i];
  }
  return distinct;
}

// The walk along a stretch one key at a time.
void WalkStretchPortable(const std::uint32_t* keys, int count, std::uint32_t last, std::uint64_t word,
                         const std::uint64_t* words, std::uint64_t* amounts, int stride) {
  for (int i = 0, next = 0; i < count; ++i) {
    if (keys[i] != last) last = keys[i], word = words[next++];
    amounts[std::ptrdiff_t{i} * stride] = word;
  }
}

#if INKWEAVE_X86_KERNELS

constexpr int kYellowLane = kYellowPlane;  // ink k in lane k of a word

bool VectorChainInRange() {
  constexpr int kLimit = 1024;
  for (const auto& table : InkSplitTable)
    for (const auto& row : table)
      for (const std::int16_t v : row)
        if (v < -kLimit || v > kLimit) return false;
  for (const std::int32_t v : ThresholdJitterWide)
    if ((v >> 4) + 200 < -kLimit || (v >> 4) + 200 > kLimit) return false;
  for (const std::int16_t v : DiffusionSeedErrors)
    if (v < -kLimit || v > kLimit) return false;
  return true;
}

// The cells of positions lo..lo + count - 1 of four rows (position p at row[2 (p + 2)], the other
// row's cells between) side by side: out[k] holds the four rows' cells of position lo + k. Four
// positions a step; a step reads one cell past its fourth position, so it runs only while a further
// position follows, the rest one cell at a time.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void GatherRows(const std::int16_t* const* rows, int lo, int count,
                                                                    std::int16_t (*out)[4]) {
  const __m128i evens = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 0, 1, 4, 5, 8, 9, 12, 13);
  int k = 0;
  for (; k + 4 < count; k += 4) {
    const int cell = 2 * (lo + k + 2);
    __m128i v[4];
    for (int r = 0; r < 4; ++r)
      v[r] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[r] + cell)), evens);
    const __m128i rows01 = _mm_unpacklo_epi16(v[0], v[1]);
    const __m128i rows23 = _mm_unpacklo_epi16(v[2], v[3]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out[k]), _mm_unpacklo_epi32(rows01, rows23));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out[k + 2]), _mm_unpackhi_epi32(rows01, rows23));
  }
  for (; k < count; ++k)
    for (int r = 0; r < 4; ++r) out[k][r] = rows[r][2 * (lo + k + 2)];
}

// The inverse: in[k] into the four rows' cells of position lo + k, the other row's cells kept.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void ScatterRows(std::int16_t* const* rows, int lo, int count,
                                                                     const std::int16_t (*in)[4]) {
  int k = 0;
  for (; k + 4 < count; k += 4) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in[k]));      // positions 0, 1
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in[k + 2]));  // positions 2, 3
    const __m128i ab0 = _mm_unpacklo_epi16(a, b);       // r0p0 r0p2 r1p0 r1p2 r2p0 r2p2 r3p0 r3p2
    const __m128i ab1 = _mm_unpackhi_epi16(a, b);       // the same for positions 1 and 3
    const __m128i low = _mm_unpacklo_epi16(ab0, ab1);   // r0: p0 p1 p2 p3, r1: p0 p1 p2 p3
    const __m128i high = _mm_unpackhi_epi16(ab0, ab1);  // r2, r3
    const __m128i byRow[4] = {_mm_unpacklo_epi64(low, low), _mm_unpackhi_epi64(low, low),
                              _mm_unpacklo_epi64(high, high), _mm_unpackhi_epi64(high, high)};
    const int cell = 2 * (lo + k + 2);
    for (int r = 0; r < 4; ++r) {
      __m128i* at = reinterpret_cast<__m128i*>(rows[r] + cell);
      const __m128i values = _mm_unpacklo_epi16(byRow[r], byRow[r]);
      _mm_storeu_si128(at, _mm_blend_epi16(_mm_loadu_si128(at), values, 0x55));
    }
  }
  for (; k < count; ++k)
    for (int r = 0; r < 4; ++r) rows[r][2 * (lo + k + 2)] = in[k][r];
}

// The same eight positions a step in 256 bits: each row's 32 bytes of cells hold eight positions,
// their even cells four positions to a 128-bit half. Hands the rest to GatherRows.
[[gnu::always_inline]] INKWEAVE_TARGET_AVX2 inline void GatherRowsAvx2(const std::int16_t* const* rows, int lo,
                                                                       int count, std::int16_t (*out)[4]) {
  const __m256i evens = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 0, 1, 4, 5, 8, 9, 12, 13,  //
                                         0, 1, 4, 5, 8, 9, 12, 13, 0, 1, 4, 5, 8, 9, 12, 13);
  int k = 0;
  for (; k + 8 < count; k += 8) {
    const int cell = 2 * (lo + k + 2);
    __m256i v[4];
    for (int r = 0; r < 4; ++r)
      v[r] = _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[r] + cell)), evens);
    const __m256i rows01 = _mm256_unpacklo_epi16(v[0], v[1]);
    const __m256i rows23 = _mm256_unpacklo_epi16(v[2], v[3]);
    const __m256i first = _mm256_unpacklo_epi32(rows01, rows23);   // positions 0, 1 | 4, 5
    const __m256i second = _mm256_unpackhi_epi32(rows01, rows23);  // positions 2, 3 | 6, 7
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[k]), _mm256_permute2x128_si256(first, second, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out[k + 4]), _mm256_permute2x128_si256(first, second, 0x31));
  }
  GatherRows(rows, lo + k, count - k, out + k);
}

// The inverse, eight positions a step. Hands the rest to ScatterRows.
[[gnu::always_inline]] INKWEAVE_TARGET_AVX2 inline void ScatterRowsAvx2(std::int16_t* const* rows, int lo, int count,
                                                                        const std::int16_t (*in)[4]) {
  int k = 0;
  for (; k + 8 < count; k += 8) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in[k]));      // positions 0, 1 | 2, 3
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in[k + 4]));  // positions 4, 5 | 6, 7
    const __m256i front = _mm256_permute2x128_si256(a, b, 0x20);                        // 0, 1 | 4, 5
    const __m256i back = _mm256_permute2x128_si256(a, b, 0x31);                         // 2, 3 | 6, 7
    const __m256i ab0 = _mm256_unpacklo_epi16(front, back);  // r0p0 r0p2 r1p0 r1p2 .. | the same for 4, 6
    const __m256i ab1 = _mm256_unpackhi_epi16(front, back);  // for positions 1, 3 | 5, 7
    const __m256i low = _mm256_unpacklo_epi16(ab0, ab1);     // r0: p0 p1 p2 p3, r1: p0..p3 | r0, r1: p4..p7
    const __m256i high = _mm256_unpackhi_epi16(ab0, ab1);    // r2, r3
    const __m256i values[4] = {_mm256_unpacklo_epi16(low, low), _mm256_unpackhi_epi16(low, low),
                               _mm256_unpacklo_epi16(high, high), _mm256_unpackhi_epi16(high, high)};
    const int cell = 2 * (lo + k + 2);
    for (int r = 0; r < 4; ++r) {
      __m256i* at = reinterpret_cast<__m256i*>(rows[r] + cell);
      _mm256_storeu_si256(at, _mm256_blend_epi16(_mm256_loadu_si256(at), values[r], 0x55));
    }
  }
  ScatterRows(rows, lo + k, count - k, in + k);
}

// A value the compiler may not take apart: it keeps the sums off the chain from being reassociated
// into it (the chain is the loop's latency, everything else runs beside it).
[[gnu::always_inline]] inline __m128i Settled(__m128i v) {
  asm("" : "+x"(v));
  return v;
}

// The four 16-bit cells at `at` in lanes 0..3, the other lanes 0.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline __m128i LoadCells(const void* at) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(at));
}

// A dot's error and the masks of its first and second bits, from the previous row's window f, the
// errors c1 and c2 of the two dots before, the floors, the amounts a and the thresholds (read unless
// kBlank). Lane by lane: the four inks of one dot in lanes 0..3, of another beside it in lanes 4..7.
struct DotOutcome {
  __m128i Error, First, Second;
};
template <Quantiser kQ, bool kBlank>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline DotOutcome DotMath(__m128i f, __m128i c1, __m128i c2, __m128i floor,
                                                                       __m128i a, __m128i threshold) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i big = _mm_set1_epi16(0x7FFF);
  const __m128i c255 = _mm_set1_epi16(255);
  const __m128i known = Settled(_mm_add_epi16(f, _mm_add_epi16(c2, c2)));
  const __m128i g = _mm_add_epi16(known, _mm_slli_epi16(c1, 2));
  const __m128i q = _mm_sign_epi16(_mm_srli_epi16(_mm_abs_epi16(g), 4), g);

  __m128i r, first = zero, second = zero;
  if constexpr (kBlank) {
    // Every amount 0: q > f: q - step, else min(q + step, 0); no dot. The decisions come from g
    // itself, before its division: q > f exactly where g > 16 f (+ 15 when f >= 0), and
    // q + step > 0 where g > -16 step; the error is then q + (-step or +step), or 0.
    constexpr std::int16_t kStepSize = kQ == Quantiser::Top ? 16 : 32;
    const __m128i limit =
        _mm_add_epi16(_mm_slli_epi16(floor, 4), _mm_andnot_si128(_mm_cmpgt_epi16(zero, floor), _mm_set1_epi16(15)));
    const __m128i above = _mm_cmpgt_epi16(g, limit);
    const __m128i clamp = _mm_andnot_si128(above, _mm_cmpgt_epi16(g, _mm_set1_epi16(-16 * kStepSize)));
    const __m128i offset = _mm_blendv_epi8(_mm_set1_epi16(kStepSize), _mm_set1_epi16(-kStepSize), above);
    r = _mm_andnot_si128(clamp, _mm_add_epi16(q, offset));
  } else {
    const __m128i ta = _mm_sub_epi16(threshold, a);
    const __m128i none = _mm_cmpeq_epi16(a, zero);

    if constexpr (kQ == Quantiser::Top) {
      // Amount 0: q > f: q - 16, else min(q + 16, 0). Others: q + a >= t + 5: a dot, q + a - 350.
      const __m128i k1 = _mm_blendv_epi8(_mm_add_epi16(ta, _mm_set1_epi16(4)), floor, none);
      const __m128i x0 = _mm_min_epi16(_mm_add_epi16(q, Settled(_mm_blendv_epi8(a, _mm_set1_epi16(16), none))),
                                       _mm_andnot_si128(none, big));
      const __m128i x1 =
          _mm_add_epi16(q, Settled(_mm_blendv_epi8(_mm_sub_epi16(a, _mm_set1_epi16(350)), _mm_set1_epi16(-16), none)));
      const __m128i m1 = _mm_cmpgt_epi16(q, k1);
      r = _mm_blendv_epi8(x0, x1, m1);
      first = _mm_andnot_si128(none, m1);
    } else {
      // Amounts 0 and 255: q > f: -32, else +32 (amount 0: at most 0). Between: the thresholds
      // t + 5, then t + 208 and t + 255 (three sizes) or t + 200 (two sizes).
      constexpr bool kMid = kQ == Quantiser::Mid;
      const __m128i full = _mm_cmpeq_epi16(a, c255);
      const __m128i edge = _mm_or_si128(none, full);
      const __m128i k1 = _mm_blendv_epi8(_mm_add_epi16(ta, _mm_set1_epi16(4)), floor, edge);
      const __m128i k2 = _mm_blendv_epi8(_mm_add_epi16(ta, _mm_set1_epi16(kMid ? 207 : 199)), big, edge);
      const __m128i x0 = _mm_min_epi16(_mm_add_epi16(q, Settled(_mm_blendv_epi8(a, _mm_set1_epi16(32), edge))),
                                       _mm_andnot_si128(none, big));
      const __m128i x1 = _mm_add_epi16(
          q, Settled(_mm_blendv_epi8(_mm_sub_epi16(a, _mm_set1_epi16(kMid ? 100 : 212)), _mm_set1_epi16(-32), edge)));
      const __m128i x2 = _mm_add_epi16(q, Settled(_mm_sub_epi16(a, _mm_set1_epi16(kMid ? 248 : 255))));
      const __m128i m1 = _mm_cmpgt_epi16(q, k1);
      const __m128i m2 = _mm_cmpgt_epi16(q, k2);
      const __m128i small = _mm_andnot_si128(edge, _mm_andnot_si128(m2, m1));
      first = _mm_or_si128(m2, full);
      if constexpr (kMid) {
        const __m128i k3 = _mm_blendv_epi8(_mm_add_epi16(ta, _mm_set1_epi16(254)), big, edge);
        const __m128i x3 = _mm_add_epi16(q, Settled(_mm_sub_epi16(a, c255)));
        const __m128i m3 = _mm_cmpgt_epi16(q, k3);
        r = _mm_blendv_epi8(x0, _mm_blendv_epi8(x1, _mm_blendv_epi8(x2, x3, m3), m2), m1);
        second = _mm_or_si128(_mm_or_si128(small, m3), full);
      } else {
        r = _mm_blendv_epi8(x0, _mm_blendv_epi8(x1, x2, m2), m1);
        second = small;
      }
    }
  }

  return {r, first, second};
}

// A dot's bits shifted in, the first buffer's in lanes 0..3 and the second's in lanes 4..7.
template <int kStep>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline __m128i ShiftIn(__m128i bits, __m128i dots) {
  const __m128i bitIn = _mm_set1_epi16(kStep > 0 ? 1 : 0x80);
  return _mm_or_si128(kStep > 0 ? _mm_slli_epi16(bits, 1) : _mm_srli_epi16(bits, 1), _mm_and_si128(dots, bitIn));
}

// One dot of a run: dot i, whose column's floors are at `floors` and whose previous row's window is
// window[i * kStep]. The chain and the bits move on.
template <Quantiser kQ, int kStep, bool kBlank>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void ChainDot(
    const std::int16_t (*window)[4], std::int16_t (*current)[4], const std::uint64_t* amount,
    const std::uint64_t* threshold, const std::int16_t* floors, int i, __m128i& c1, __m128i& c2, __m128i& bits) {
  const __m128i a = kBlank ? _mm_setzero_si128() : LoadCells(&amount[i]);
  const __m128i t = kBlank ? _mm_setzero_si128() : LoadCells(&threshold[i]);
  const DotOutcome d = DotMath<kQ, kBlank>(LoadCells(window[i * kStep]), c1, c2, LoadCells(floors), a, t);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(current[i * kStep]), d.Error);
  c2 = c1;
  c1 = d.Error;
  bits = ShiftIn<kStep>(bits, _mm_unpacklo_epi64(d.First, d.Second));
}

// The previous row around a run (x - 2 step .. x + (count + 1) step) side by side, in the order of the
// run, and this row's errors, collected the same way: the kernels gather the one before the chain and
// scatter the other back to the rows after it.
// Window[m] is the previous row's 4-2-1 window around Around[m] (m = 2 .. count + 1), worked out before
// the chain a vector at a time, which may run past the last (Around and Window are that much longer).
struct RunRows {
  alignas(32) std::int16_t Around[kRunDots + 8][4];
  alignas(32) std::int16_t Window[kRunDots + 8][4];
  alignas(32) std::int16_t Written[kRunDots][4];
};

// The windows of a run's count dots, two positions a step.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void Windows(RunRows& rows, int count) {
  for (int m = 2; m <= count + 1; m += 2) {
    const __m128i* at = reinterpret_cast<const __m128i*>(rows.Around[m]);  // two positions a vector
    const __m128i* before = reinterpret_cast<const __m128i*>(rows.Around[m - 1]);
    const __m128i* after = reinterpret_cast<const __m128i*>(rows.Around[m + 1]);
    const __m128i sum =
        _mm_add_epi16(_mm_add_epi16(_mm_load_si128(at - 1), _mm_load_si128(at + 1)),
                      _mm_add_epi16(_mm_slli_epi16(_mm_add_epi16(_mm_loadu_si128(before), _mm_loadu_si128(after)), 1),
                                    _mm_slli_epi16(_mm_load_si128(at), 2)));
    _mm_store_si128(reinterpret_cast<__m128i*>(rows.Window[m]), sum);
  }
}

// The same, four positions a step.
[[gnu::always_inline]] INKWEAVE_TARGET_AVX2 inline void WindowsAvx2(RunRows& rows, int count) {
  for (int m = 2; m <= count + 1; m += 4) {
    const __m256i sum = _mm256_add_epi16(
        _mm256_add_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows.Around[m - 2])),
                         _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows.Around[m + 2]))),
        _mm256_add_epi16(_mm256_slli_epi16(
                             _mm256_add_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows.Around[m - 1])),
                                              _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows.Around[m + 1]))),
                             1),
                         _mm256_slli_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows.Around[m])), 2)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(rows.Window[m]), sum);
  }
}

template <int kStep>
int AroundStart(const ChainRun& run) {
  return kStep > 0 ? run.X - 2 : run.X - run.Count - 1;
}
template <int kStep>
int WrittenStart(const ChainRun& run) {
  return kStep > 0 ? run.X : run.X - run.Count + 1;
}

// Stores the byte of the four inks' bits (lanes 0..3 into the first planes, 4..7 into the second);
// answers the bytes side by side.
template <Quantiser kQ>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline std::uint64_t StoreByte(std::uint8_t* planes0,
                                                                            std::uint8_t* planes1, int planeBytes,
                                                                            int byte, __m128i bits) {
  const auto bytes = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(bits, bits)));
  for (int ink = 0; ink < 4; ++ink) {
    planes0[ink * planeBytes + byte] = static_cast<std::uint8_t>(bytes >> (8 * ink));
    if constexpr (kQ != Quantiser::Top)
      planes1[ink * planeBytes + byte] = static_cast<std::uint8_t>(bytes >> (8 * ink + 32));
  }
  return bytes;
}

template <Quantiser kQ, int kStep, bool kBlank>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void ChainRunBody(const ChainRun& run, ChainState& state,
                                                                      RunRows& rows) {
  const __m128i zero = _mm_setzero_si128();

  __m128i c1 = LoadCells(state.C1);
  __m128i c2 = LoadCells(state.C2);
  __m128i bits = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state.Bits));
  std::uint64_t inked = 0;

  const int count = run.Count;
  const std::int16_t(*window)[4] = kStep > 0 ? rows.Window + 2 : rows.Window + count + 1;  // [i * kStep]: dot i
  std::int16_t(*current)[4] = kStep > 0 ? rows.Written : rows.Written + count - 1;         // [i * kStep]: dot i

  // The run's arrays in locals: the stores below could otherwise alias the record.
  const std::uint64_t* amount = run.Amount;
  const std::uint64_t* threshold = run.Threshold;
  std::uint8_t* const planes0 = run.Planes[0];
  std::uint8_t* const planes1 = run.Planes[1];
  const int planeBytes = run.PlaneBytes;
  int x = run.X;
  for (int i = 0; i < count;) {
    // The dots to the end of x's byte or of the run; within a byte the columns' floors lie side by
    // side ((4 x) & 255 does not wrap), and a byte is stored when the line leaves it.
    const int toByteEnd = kStep > 0 ? 8 - (x & 7) : (x & 7) + 1;
    const int n = count - i < toByteEnd ? count - i : toByteEnd;
    const std::int16_t* floors = &DiffusionSeedErrors[(4 * x) & 255];
    if (n == 8) {
#pragma GCC unroll 8
      for (int k = 0; k < 8; ++k)
        ChainDot<kQ, kStep, kBlank>(window, current, amount, threshold, floors + 4 * kStep * k, i + k, c1, c2, bits);
    } else {
      for (int k = 0; k < n; ++k)
        ChainDot<kQ, kStep, kBlank>(window, current, amount, threshold, floors + 4 * kStep * k, i + k, c1, c2, bits);
    }
    i += n;
    x += kStep * n;
    if (n == toByteEnd) {
      inked |= StoreByte<kQ>(planes0, planes1, planeBytes, (x - kStep) >> 3, bits);
      bits = zero;
    }
  }

  _mm_storel_epi64(reinterpret_cast<__m128i*>(state.C1), c1);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(state.C2), c2);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state.Bits), bits);
  if (inked != 0) state.Inked = 1;
}

// A long run in segments. A dot's error and bits depend on the two errors before it, and the run's
// inputs (the previous row, amounts and thresholds) alone: two chains that once leave a dot with the
// same two errors agree from there on. So the run's segments of 64 dots are chained side by side, two
// to a vector, each after the first starting from errors of 0. Then each segment after the first is
// run again, one dot at a time, from the errors its predecessor truly left, each dot's error and bits
// overwriting its guess, until two dots in a row match their guessed errors: the guesses are right from
// there on. A difference in the errors before a dot reaches its gathered error divided by 16 (4 C1 +
// 2 C2), so that mostly takes a few dots. Each segment starts a multiple of 64 positions after the
// first, where the floors repeat: the segments of a vector read one floor.
constexpr int kSegmentDots = 64;

// The cells at `low` in lanes 0..3, those at `high` in lanes 4..7.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline __m128i LoadPair(const void* low, const void* high) {
  return _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(LoadCells(low)), static_cast<const double*>(high)));
}

// A long run's dots by their order in the run: the masks of each dot's bits, the four inks' first
// bits in bytes 0..3 and second bits in 4..7.
struct RunOutcomes {
  alignas(16) std::uint64_t Bits[kRunDots];
};

// The bits of a dot and of its twin (lanes 4..7) as masks in bytes, [first 0..3, second 0..3] each,
// the dot's in the low half.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline __m128i OutcomeBytes(const DotOutcome& d) {
  return _mm_shuffle_epi32(_mm_packs_epi16(d.First, d.Second), _MM_SHUFFLE(3, 1, 2, 0));
}

// Dots from..to - 1 of a run one at a time from the two errors written before `from`, each writing its
// error over current[i * kStep] and its bits over out.Bits[i]. With `settle`, stops once two dots in a
// row found their error already there, the errors before `from` matching when `matched`.
template <Quantiser kQ, int kStep, bool kBlank>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void ChainFrom(const ChainRun& run, const std::int16_t (*window)[4],
                                                                   std::int16_t (*current)[4], RunOutcomes& out,
                                                                   int from, int to, bool settle, bool matched) {
  __m128i c1 = LoadCells(current[(from - 1) * kStep]), c2 = LoadCells(current[(from - 2) * kStep]);
  for (int i = from; i < to; ++i) {
    const int x = run.X + kStep * i;
    const __m128i a = kBlank ? _mm_setzero_si128() : LoadCells(&run.Amount[i]);
    const __m128i t = kBlank ? _mm_setzero_si128() : LoadCells(&run.Threshold[i]);
    const DotOutcome d =
        DotMath<kQ, kBlank>(LoadCells(window[i * kStep]), c1, c2, LoadCells(&DiffusionSeedErrors[(4 * x) & 255]), a, t);
    std::int16_t* at = current[i * kStep];
    const bool same = (_mm_movemask_epi8(_mm_cmpeq_epi16(d.Error, LoadCells(at))) & 0xFF) == 0xFF;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(at), d.Error);
    if constexpr (!kBlank) _mm_storel_epi64(reinterpret_cast<__m128i*>(&out.Bits[i]), OutcomeBytes(d));
    if (settle && same && matched) return;
    matched = same;
    c2 = c1;
    c1 = d.Error;
  }
}

// The first 64 dots of every segment, kPairs vectors of two segments side by side.
template <Quantiser kQ, int kStep, bool kBlank, int kPairs>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void ChainSegments(const ChainRun& run, const ChainState& state,
                                                                       const std::int16_t (*window)[4],
                                                                       std::int16_t (*current)[4], RunOutcomes& out,
                                                                       int segments) {
  // A place for a segment missing from the last vector (three segments): it repeats the first.
  alignas(16) std::int16_t asideErrors[kSegmentDots][4];
  alignas(16) std::uint64_t asideBits[kSegmentDots];
  const std::int16_t(*in[2 * kPairs])[4];
  std::int16_t(*errors[2 * kPairs])[4];
  int first[2 * kPairs];
  std::uint64_t* bits[2 * kPairs];
  for (int j = 0; j < 2 * kPairs; ++j) {
    const bool used = j < segments;
    first[j] = used ? kSegmentDots * j : 0;
    in[j] = window + kStep * first[j];
    errors[j] = used ? current + kStep * first[j] : kStep > 0 ? asideErrors : asideErrors + kSegmentDots - 1;
    bits[j] = used ? out.Bits + first[j] : asideBits;
  }
  __m128i c1[kPairs], c2[kPairs];
  for (int p = 0; p < kPairs; ++p) c1[p] = c2[p] = _mm_setzero_si128();
  c1[0] = LoadCells(state.C1);  // the first segment from the line's true errors, the second from 0
  c2[0] = LoadCells(state.C2);
  for (int i = 0; i < kSegmentDots; ++i) {
    const __m128i floor = _mm_castpd_si128(
        _mm_loaddup_pd(reinterpret_cast<const double*>(&DiffusionSeedErrors[(4 * (run.X + kStep * i)) & 255])));
#pragma GCC unroll 2
    for (int p = 0; p < kPairs; ++p) {
      const int lo = 2 * p, hi = 2 * p + 1;
      const __m128i a = kBlank ? _mm_setzero_si128() : LoadPair(&run.Amount[first[lo] + i], &run.Amount[first[hi] + i]);
      const __m128i t =
          kBlank ? _mm_setzero_si128() : LoadPair(&run.Threshold[first[lo] + i], &run.Threshold[first[hi] + i]);
      const DotOutcome d =
          DotMath<kQ, kBlank>(LoadPair(in[lo][i * kStep], in[hi][i * kStep]), c1[p], c2[p], floor, a, t);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(errors[lo][i * kStep]), d.Error);
      _mm_storeh_pd(reinterpret_cast<double*>(errors[hi][i * kStep]), _mm_castsi128_pd(d.Error));
      if constexpr (!kBlank) {
        const __m128i b = OutcomeBytes(d);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(&bits[lo][i]), b);
        _mm_storeh_pd(reinterpret_cast<double*>(&bits[hi][i]), _mm_castsi128_pd(b));
      }
      c2[p] = c1[p];
      c1[p] = d.Error;
    }
  }
}

template <Quantiser kQ, int kStep, bool kBlank>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void SegmentedRunBody(const ChainRun& run, ChainState& state,
                                                                          RunRows& rows) {
  const int count = run.Count;
  const std::int16_t(*window)[4] = kStep > 0 ? rows.Window + 2 : rows.Window + count + 1;  // [i * kStep]: dot i
  std::int16_t(*current)[4] = kStep > 0 ? rows.Written : rows.Written + count - 1;         // [i * kStep]: dot i
  const int segments = count / kSegmentDots < 4 ? count / kSegmentDots : 4;
  RunOutcomes out;
  if (segments > 2)
    ChainSegments<kQ, kStep, kBlank, 2>(run, state, window, current, out, segments);
  else
    ChainSegments<kQ, kStep, kBlank, 1>(run, state, window, current, out, segments);
  // Each later segment from its predecessor's true errors (guessed 0) until its guesses hold, then the
  // dots past the last segment.
  for (int j = 1; j <= segments; ++j) {
    const int from = kSegmentDots * j;
    const bool guessed =
        (_mm_movemask_epi8(_mm_cmpeq_epi16(LoadCells(current[(from - 1) * kStep]), _mm_setzero_si128())) & 0xFF) ==
        0xFF;
    ChainFrom<kQ, kStep, kBlank>(run, window, current, out, from, j < segments ? from + kSegmentDots : count,
                                 j < segments, guessed);
  }
  std::memcpy(state.C1, current[(count - 1) * kStep], sizeof state.C1);
  std::memcpy(state.C2, current[(count - 2) * kStep], sizeof state.C2);

  // The bits by byte: a byte is stored when the line leaves it (a white run's dots have none).
  __m128i bits = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state.Bits));
  std::uint64_t inked = 0;
  int x = run.X;
  for (int i = 0; i < count;) {
    const int toByteEnd = kStep > 0 ? 8 - (x & 7) : (x & 7) + 1;
    const int n = count - i < toByteEnd ? count - i : toByteEnd;
    if constexpr (kBlank) {
      const __m128i shift = _mm_cvtsi32_si128(n);
      bits = kStep > 0 ? _mm_sll_epi16(bits, shift) : _mm_srl_epi16(bits, shift);
    } else {
      for (int k = i; k < i + n; ++k) bits = ShiftIn<kStep>(bits, _mm_cvtepi8_epi16(LoadCells(&out.Bits[k])));
    }
    i += n;
    x += kStep * n;
    if (n == toByteEnd) {
      inked |= StoreByte<kQ>(run.Planes[0], run.Planes[1], run.PlaneBytes, (x - kStep) >> 3, bits);
      bits = _mm_setzero_si128();
    }
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state.Bits), bits);
  if (inked != 0) state.Inked = 1;
}

// A run of two segments or more goes in segments, a shorter one dot after dot.
template <Quantiser kQ, int kStep, bool kBlank>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void RunBody(const ChainRun& run, ChainState& state,
                                                                 RunRows& rows) {
  if (run.Count >= 2 * kSegmentDots)
    SegmentedRunBody<kQ, kStep, kBlank>(run, state, rows);
  else
    ChainRunBody<kQ, kStep, kBlank>(run, state, rows);
}

template <Quantiser kQ, int kStep, bool kBlank>
INKWEAVE_TARGET_SSE41 void ChainRunSse41(const ChainRun& run, ChainState& state) {
  RunRows rows;
  GatherRows(run.Previous, AroundStart<kStep>(run), run.Count + 4, rows.Around);
  Windows(rows, run.Count);
  RunBody<kQ, kStep, kBlank>(run, state, rows);
  ScatterRows(run.Current, WrittenStart<kStep>(run), run.Count, rows.Written);
}

// The same chain in the AVX encoding (three-operand instructions, no register copies); the rows
// gathered and scattered eight positions a step.
template <Quantiser kQ, int kStep, bool kBlank>
INKWEAVE_TARGET_AVX2 void ChainRunAvx2(const ChainRun& run, ChainState& state) {
  RunRows rows;
  GatherRowsAvx2(run.Previous, AroundStart<kStep>(run), run.Count + 4, rows.Around);
  WindowsAvx2(rows, run.Count);
  RunBody<kQ, kStep, kBlank>(run, state, rows);
  ScatterRowsAvx2(run.Current, WrittenStart<kStep>(run), run.Count, rows.Written);
}

// The chain for black alone. Every decision is taken from the gathered error g before its division:
// q > k exactly where g > 16 k (+ 15 when k >= 0), so a dot's thresholds, worked out before the chain
// as limits on g, are compared with g while q = g / 16 is divided beside them, and the dot's error is
// q plus the offset its outcome picks. An amount of 0 below the floor keeps min(q + step, 0): the
// 0 is a further range of g. The outcome's bits ride in the offset above its 16 bits (first buffer
// at bit 16, second at 24), which the 16-bit store and the next gathered sum drop.
constexpr int kNever = 1 << 20;  // a limit that no 16-bit g passes
constexpr int kFirstBit = 1 << 16;
constexpr int kSecondBit = 1 << 24;

// The same for a scalar: the sum off the chain stays out of it.
[[gnu::always_inline]] inline int SettledInt(int v) {
  asm("" : "+r"(v));
  return v;
}

// x > limit ? a : b, and x < limit (unsigned) ? a : b, as conditional moves: the outcomes follow the
// error, which no branch predictor follows, and the compiler would branch.
[[gnu::always_inline]] inline int IfGreater(int x, int limit, int a, int b) {
  asm("cmpl %[limit], %[x]\n\tcmovg %[a], %[b]" : [b] "+r"(b) : [x] "r"(x), [limit] "rm"(limit), [a] "rm"(a) : "cc");
  return b;
}
[[gnu::always_inline]] inline int IfBelow(std::uint32_t x, std::uint32_t limit, int a, int b) {
  asm("cmpl %[limit], %[x]\n\tcmovb %[a], %[b]" : [b] "+r"(b) : [x] "r"(x), [limit] "rm"(limit), [a] "rm"(a) : "cc");
  return b;
}

// Eight dots' values in the lanes of a vector (the compiler's vectors: SSE4.1 takes them in halves).
using I32x8 = std::int32_t __attribute__((vector_size(32)));
using I16x8 = std::int16_t __attribute__((vector_size(16)));

// Turns thresholds k of the quotient into limits of g (a reference: vectors by value change the ABI).
[[gnu::always_inline]] inline const I32x8& Limits(I32x8&& k) { return k = (k << 4) + ((k >= 0) & 15); }

// Black's floor of each position modulo 64, twice over.
struct BlackFloors {
  std::int16_t Floor[128];
};
BlackFloors MakeBlackFloors() {
  BlackFloors floors;
  for (int x = 0; x < 128; ++x) floors.Floor[x] = DiffusionSeedErrors[(4 * x + kBlackPlane) & 255];
  return floors;
}
const BlackFloors kBlackFloors = MakeBlackFloors();  // made once when the library loads

// A run's dots in the order of the run: the limits of the nested outcomes (g > L1, L2, L3), the range
// Zb <= g < Zb + Zs whose error is 0, and the offsets with their bits by outcome (worked out eight at
// a time, so a run's last eight are whole).
struct BlackDots {
  alignas(32) std::int32_t L1[kRunDots + 8], L2[kRunDots + 8], L3[kRunDots + 8], Zb[kRunDots + 8];
  alignas(32) std::uint32_t Zs[kRunDots + 8];
  alignas(32) std::int32_t V0[kRunDots + 8], V1[kRunDots + 8], V2[kRunDots + 8], V3[kRunDots + 8];
  // The previous row around the run by position (lo - 2 .. lo + count + 1, lo the run's leftmost), and
  // the 4-2-1 window of each of its positions (16-bit sums).
  alignas(32) std::int16_t Around[kRunDots + 8];
  alignas(32) std::int16_t Window[kRunDots + 8];
};

// The chain along a run whose outcomes are worked out in d; kZero when some dot has a range of g whose
// error is 0 (an amount of 0).
template <Quantiser kQ, int kStep, bool kZero>
[[gnu::always_inline]] inline void BlackChain(const ChainRun& run, ChainState& state, const BlackDots& d) {
  constexpr bool kTwoBits = kQ != Quantiser::Top;
  const int count = run.Count;
  const std::int16_t* window = d.Window + (kStep > 0 ? 0 : count - 1);  // [i * kStep]: dot i
  std::int16_t* current = run.Current[kBlackPlane] + 2 * (run.X + 2);   // [2 i kStep]: dot i
  std::uint8_t* const plane0 = run.Planes[0] + kBlackPlane * run.PlaneBytes;
  std::uint8_t* const plane1 = kTwoBits ? run.Planes[1] + kBlackPlane * run.PlaneBytes : nullptr;
  int c1 = state.C1[kBlackPlane], c2 = state.C2[kBlackPlane];
  unsigned bits = state.Bits[kBlackPlane] | unsigned{state.Bits[4 + kBlackPlane]} << 8;
  unsigned inked = 0;
  int x = run.X;
  for (int i = 0; i < count;) {
    // The dots to the end of x's byte or of the run; a byte is stored when the line leaves it.
    const int toByteEnd = kStep > 0 ? 8 - (x & 7) : (x & 7) + 1;
    const int n = count - i < toByteEnd ? count - i : toByteEnd;
    for (const int end = i + n; i < end; ++i) {
      const int g = static_cast<std::int16_t>(SettledInt(window[i * kStep] + 2 * c2) + 4 * c1);
      // The offset of the dot's outcome: the limits are nested, so a tree of moves picks it.
      const int low = IfGreater(g, d.L1[i], d.V1[i], d.V0[i]);
      int offset = low;
      if constexpr (kQ == Quantiser::Mid) offset = IfGreater(g, d.L2[i], IfGreater(g, d.L3[i], d.V3[i], d.V2[i]), low);
      if constexpr (kQ == Quantiser::High) offset = IfGreater(g, d.L2[i], d.V2[i], low);
      int r = offset + g / 16;
      if constexpr (kZero) r = IfBelow(static_cast<std::uint32_t>(g - d.Zb[i]), d.Zs[i], 0, r);
      current[2 * kStep * i] = static_cast<std::int16_t>(r);
      const unsigned dots = static_cast<unsigned>(r + 0x8000) >> 16;  // first | second << 8
      bits = kStep > 0 ? 2 * bits + dots : (bits >> 1) | dots << 7;
      c2 = c1;
      c1 = r;
    }
    x += kStep * n;
    if (n == toByteEnd) {
      const int byte = (x - kStep) >> 3;
      plane0[byte] = static_cast<std::uint8_t>(bits);
      if constexpr (kTwoBits) plane1[byte] = static_cast<std::uint8_t>(bits >> 8);
      inked |= bits;
      bits = 0;
    }
  }
  state.C1[kBlackPlane] = static_cast<std::int16_t>(c1);
  state.C2[kBlackPlane] = static_cast<std::int16_t>(c2);
  state.Bits[kBlackPlane] = static_cast<std::uint16_t>(bits & 0xFF);
  state.Bits[4 + kBlackPlane] = static_cast<std::uint16_t>(bits >> 8 & 0xFF);
  if (inked != 0) state.Inked = 1;
}

template <Quantiser kQ, int kStep, bool kBlank>
[[gnu::always_inline]] inline void BlackRunBody(const ChainRun& run, ChainState& state, BlackDots& d) {
  constexpr bool kTwoBits = kQ != Quantiser::Top;
  constexpr bool kMid = kQ == Quantiser::Mid;
  constexpr int kStepSize = kTwoBits ? 32 : 16;
  const int count = run.Count;
  const int lo = kStep > 0 ? run.X : run.X - count + 1;

  // The previous row's windows, by position.
  const std::int16_t* previous = run.Previous[kBlackPlane] + 2 * lo;  // position lo - 2
  for (int k = 0; k < count + 4; ++k) d.Around[k] = previous[2 * k];
  for (int k = 0; k < count; ++k)
    d.Window[k] = static_cast<std::int16_t>(4 * d.Around[k + 2] + 2 * (d.Around[k + 1] + d.Around[k + 3]) +
                                            d.Around[k] + d.Around[k + 4]);

  // The outcomes of every dot, eight at a time (the floors from black's columns by position, twice
  // over, so that eight positions read as one; right to left reversed).
  const I32x8 never = I32x8{} + kNever, zero = I32x8{};
  const I32x8 kLanes = {0, 1, 2, 3, 4, 5, 6, 7};
  I32x8 zeroRanges{};
  for (int i = 0; i < count; i += 8) {
    const int x = run.X + kStep * i;
    I16x8 floors8;
    std::memcpy(&floors8, &kBlackFloors.Floor[kStep > 0 ? x & 63 : (x - 7) & 63], sizeof floors8);
    if constexpr (kStep < 0) floors8 = __builtin_shufflevector(floors8, floors8, 7, 6, 5, 4, 3, 2, 1, 0);
    const I32x8 f = __builtin_convertvector(floors8, I32x8);
    I16x8 a8{}, t8{};
    if constexpr (!kBlank) {
      std::memcpy(&a8, run.BlackAmount + i, sizeof a8);
      std::memcpy(&t8, run.BlackThreshold + i, sizeof t8);
    }
    const I32x8 a = __builtin_convertvector(a8, I32x8), t = __builtin_convertvector(t8, I32x8);
    const I32x8 none = a == 0;
    const I32x8 full = kTwoBits ? a == 255 : zero;
    const I32x8 edge = none | full;
    const I32x8 l1 = Limits(edge ? f : t + 4 - a);
    const I32x8 l2 = kTwoBits ? (edge ? never : Limits(t + (kMid ? 207 : 199) - a)) : never;
    const I32x8 l3 = kMid ? (edge ? never : Limits(t + 254 - a)) : never;
    const I32x8 zeroLimit = I32x8{} + -16 * kStepSize;  // min(q + step, 0) is 0 where g > this
    const I32x8 zeroFrom = (none ? (l1 < zeroLimit ? l1 : zeroLimit) : l1) + 1;
    constexpr int kFullBits = kMid ? kFirstBit + kSecondBit : kFirstBit;
    const I32x8 v0 = none ? I32x8{} + kStepSize : full ? I32x8{} + (kStepSize + kFullBits) : a;
    const I32x8 v1 = none   ? I32x8{} - kStepSize
                     : full ? I32x8{} + (kFullBits - kStepSize)
                            : a + ((kTwoBits ? kSecondBit : kFirstBit) - (kMid       ? 100
                                                                          : kTwoBits ? 212
                                                                                     : 350));
    const I32x8 v2 = a + (kFirstBit - (kMid ? 248 : 255));
    const I32x8 v3 = a + (kFirstBit + kSecondBit - 255);
    const I32x8 zs = l1 + 1 - zeroFrom;
    std::memcpy(&d.L1[i], &l1, sizeof l1);
    if constexpr (kTwoBits) std::memcpy(&d.L2[i], &l2, sizeof l2), std::memcpy(&d.V2[i], &v2, sizeof v2);
    if constexpr (kMid) std::memcpy(&d.L3[i], &l3, sizeof l3), std::memcpy(&d.V3[i], &v3, sizeof v3);
    std::memcpy(&d.Zb[i], &zeroFrom, sizeof zeroFrom);
    std::memcpy(&d.Zs[i], &zs, sizeof zs);
    zeroRanges |= (kLanes < count - i) & zs;  // (dots past the run do not count)
    std::memcpy(&d.V0[i], &v0, sizeof v0);
    std::memcpy(&d.V1[i], &v1, sizeof v1);
  }

  std::uint32_t zeros = 0;
  for (int k = 0; k < 8; ++k) zeros |= static_cast<std::uint32_t>(zeroRanges[k]);
  // The chain; a run without an amount of 0 (most inked runs) has no range to clear.
  if (zeros != 0)
    BlackChain<kQ, kStep, true>(run, state, d);
  else
    BlackChain<kQ, kStep, false>(run, state, d);
}

template <Quantiser kQ, int kStep, bool kBlank>
INKWEAVE_TARGET_SSE41 void BlackRunSse41(const ChainRun& run, ChainState& state) {
  BlackDots dots;
  BlackRunBody<kQ, kStep, kBlank>(run, state, dots);
}

template <Quantiser kQ, int kStep, bool kBlank>
INKWEAVE_TARGET_AVX2 void BlackRunAvx2(const ChainRun& run, ChainState& state) {
  BlackDots dots;
  BlackRunBody<kQ, kStep, kBlank>(run, state, dots);
}

// Sixteen dots a step: the map's bytes of the next sixteen positions in one load (reversed right to
// left), each byte spread over the four 16-bit lanes of its dot's word, two dots a store.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void SpreadThresholdsBody(const std::uint8_t* doubled, int x,
                                                                              int step, int n, std::uint64_t* out) {
  const __m128i reverse = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  const __m128i pair = _mm_setr_epi8(0, -1, 0, -1, 0, -1, 0, -1, 1, -1, 1, -1, 1, -1, 1, -1);
  int i = 0;
  for (; i + 16 <= n; i += 16, x += 16 * step) {
    // Positions x .. x + 15 lie at doubled[x & 127 ..]; x .. x - 15 at doubled[(x & 127) + 113 ..].
    __m128i bytes;
    if (step > 0) {
      bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(doubled + (x & 127)));
    } else {
      bytes = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(doubled + (x & 127) + 113)), reverse);
    }
    for (int k = 0; k < 16; k += 2, bytes = _mm_srli_si128(bytes, 2))
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + k), _mm_shuffle_epi8(bytes, pair));
  }
  for (; i < n; ++i, x += step) out[i] = doubled[x & 127] * std::uint64_t{0x0001000100010001};
}

INKWEAVE_TARGET_SSE41 void SpreadThresholdsSse41(const std::uint8_t* doubled, int x, int step, int n,
                                                 std::uint64_t* out) {
  SpreadThresholdsBody(doubled, x, step, n, out);
}

INKWEAVE_TARGET_AVX2 void SpreadThresholdsAvx2(const std::uint8_t* doubled, int x, int step, int n,
                                               std::uint64_t* out) {
  SpreadThresholdsBody(doubled, x, step, n, out);
}

// The same for black alone: sixteen dots a step, each byte widened to a 16-bit value.
template <int kStep>
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline void SpreadBlackBody(const std::uint8_t* doubled, int x, int n,
                                                                         std::int16_t* out) {
  using U8x16 = std::uint8_t __attribute__((vector_size(16)));
  using I16x16 = std::int16_t __attribute__((vector_size(32)));
  for (int i = 0; i < n; i += 16, x += 16 * kStep) {
    U8x16 bytes;
    std::memcpy(&bytes, doubled + (x & 127) + (kStep > 0 ? 0 : 113), sizeof bytes);
    if constexpr (kStep < 0)
      bytes = __builtin_shufflevector(bytes, bytes, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
    const I16x16 words = __builtin_convertvector(bytes, I16x16);
    std::memcpy(out + i, &words, sizeof words);
  }
}

INKWEAVE_TARGET_SSE41 void SpreadBlackThresholdsSse41(const std::uint8_t* doubled, int x, int step, int n,
                                                      std::int16_t* out) {
  step > 0 ? SpreadBlackBody<1>(doubled, x, n, out) : SpreadBlackBody<-1>(doubled, x, n, out);
}

INKWEAVE_TARGET_AVX2 void SpreadBlackThresholdsAvx2(const std::uint8_t* doubled, int x, int step, int n,
                                                    std::int16_t* out) {
  step > 0 ? SpreadBlackBody<1>(doubled, x, n, out) : SpreadBlackBody<-1>(doubled, x, n, out);
}

// Four pixels a step (two in 128 bits): the lightness bytes widen to the 16-bit lanes of their words,
// each pixel's split row is one 8-byte load, and every lane is (255 - lightness) - row, yellow capped.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline __m128i SplitTwo(const std::uint32_t* converted,
                                                                     const std::int16_t (*split)[4], __m128i cap) {
  const __m128i lightness = _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(converted)));
  const __m128i rows =
      _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(split[255 - (converted[0] >> 24)])),
                         _mm_loadl_epi64(reinterpret_cast<const __m128i*>(split[255 - (converted[1] >> 24)])));
  return _mm_min_epi16(_mm_sub_epi16(_mm_sub_epi16(_mm_set1_epi16(255), lightness), rows), cap);
}

// The yellow cap in yellow's lanes, the largest value in the others.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline __m128i YellowCap(int yellowCap) {
  alignas(16) std::int16_t lanes[8];
  for (int k = 0; k < 8; ++k) lanes[k] = static_cast<std::int16_t>(k % 4 == kYellowLane ? yellowCap : 0x7FFF);
  return _mm_load_si128(reinterpret_cast<const __m128i*>(lanes));
}

INKWEAVE_TARGET_SSE41 std::uint64_t SplitInksSse41(const std::uint32_t* converted, int n,
                                                   const std::int16_t (*split)[4], int yellowCap, std::uint64_t* out) {
  const __m128i cap = YellowCap(yellowCap);
  __m128i any = _mm_setzero_si128();
  int k = 0;
  for (; k + 2 <= n; k += 2) {
    const __m128i words = SplitTwo(converted + k, split, cap);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k), words);
    any = _mm_or_si128(any, words);
  }
  if (k < n) {
    const std::uint32_t last[2] = {converted[k], converted[k]};
    const __m128i words = SplitTwo(last, split, cap);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + k), words);
    any = _mm_or_si128(any, words);
  }
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_or_si128(any, _mm_unpackhi_epi64(any, any))));
}

INKWEAVE_TARGET_AVX2 std::uint64_t SplitInksAvx2(const std::uint32_t* converted, int n, const std::int16_t (*split)[4],
                                                 int yellowCap, std::uint64_t* out) {
  const __m128i cap128 = YellowCap(yellowCap);
  const __m256i cap = _mm256_broadcastsi128_si256(cap128);
  __m256i any = _mm256_setzero_si256();
  int k = 0;
  for (; k + 4 <= n; k += 4) {
    const __m256i lightness = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(converted + k)));
    __m128i rows[2];
    for (int h = 0; h < 2; ++h)
      rows[h] = _mm_unpacklo_epi64(
          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(split[255 - (converted[k + 2 * h] >> 24)])),
          _mm_loadl_epi64(reinterpret_cast<const __m128i*>(split[255 - (converted[k + 2 * h + 1] >> 24)])));
    const __m256i words = _mm256_min_epi16(
        _mm256_sub_epi16(_mm256_sub_epi16(_mm256_set1_epi16(255), lightness), _mm256_set_m128i(rows[1], rows[0])), cap);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + k), words);
    any = _mm256_or_si256(any, words);
  }
  const __m128i half = _mm_or_si128(_mm256_castsi256_si128(any), _mm256_extracti128_si256(any, 1));
  return static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_or_si128(half, _mm_unpackhi_epi64(half, half)))) |
         SplitInksSse41(converted + k, n - k, split, yellowCap, out + k);
}

// For each 8-bit mask, the positions of its set bits in order (the rest 0): the lane permutation that
// packs the keys a mask keeps to the front of a vector.
struct KeptLanes {
  std::uint8_t Lane[256][8];
};
constexpr KeptLanes MakeKeptLanes() {
  KeptLanes kept{};
  for (int mask = 0; mask < 256; ++mask)
    for (int bit = 0, n = 0; bit < 8; ++bit)
      if (mask >> bit & 1) kept.Lane[mask][n++] = static_cast<std::uint8_t>(bit);
  return kept;
}
constexpr KeptLanes kKeptLanes = MakeKeptLanes();

// Eight keys a step: compared with the keys one before them, the mask of those that differ picks a
// permutation that packs them to the front, and all eight are stored (the count moves by the kept).
INKWEAVE_TARGET_AVX2 int DistinctKeysAvx2(const std::uint32_t* keys, int count, std::uint32_t last,
                                          std::uint32_t* fresh) {
  int distinct = 0;
  int i = 0;
  if (count >= 8) {
    // The first eight against last and their own first seven.
    const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys));
    __m256i before = _mm256_permutevar8x32_epi32(first, _mm256_setr_epi32(0, 0, 1, 2, 3, 4, 5, 6));
    before = _mm256_blend_epi32(before, _mm256_set1_epi32(static_cast<int>(last)), 1);
    for (;;) {
      const __m256i now = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys + i));
      const auto differ =
          static_cast<unsigned>(~_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(now, before))) & 0xFF);
      const __m256i lanes =
          _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(kKeptLanes.Lane[differ])));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(fresh + distinct), _mm256_permutevar8x32_epi32(now, lanes));
      distinct += __builtin_popcount(differ);
      i += 8;
      if (i + 8 > count) break;
      before = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys + i - 1));
    }
    last = keys[i - 1];
  }
  return distinct + DistinctKeysPortable(keys + i, count - i, last, fresh + distinct);
}

// Eight keys a step, compared with the keys one before them: a group whose every key differs takes the
// next eight words as they lie, a group of one key its word eight times, the rest a key at a time.
INKWEAVE_TARGET_AVX2 void WalkStretchAvx2(const std::uint32_t* keys, int count, std::uint32_t last, std::uint64_t word,
                                          const std::uint64_t* words, std::uint64_t* amounts, int stride) {
  if (stride != 1 || count < 8) return WalkStretchPortable(keys, count, last, word, words, amounts, stride);
  const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys));
  __m256i before = _mm256_permutevar8x32_epi32(first, _mm256_setr_epi32(0, 0, 1, 2, 3, 4, 5, 6));
  before = _mm256_blend_epi32(before, _mm256_set1_epi32(static_cast<int>(last)), 1);
  int i = 0, next = 0;
  for (;;) {
    const __m256i now = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys + i));
    const auto differ =
        static_cast<unsigned>(~_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(now, before))) & 0xFF);
    auto* out = reinterpret_cast<__m256i*>(amounts + i);
    if (differ == 0xFF) {
      _mm256_storeu_si256(out, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words + next)));
      _mm256_storeu_si256(out + 1, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words + next + 4)));
      word = words[next + 7];
      next += 8;
    } else if (differ == 0) {
      const __m256i same = _mm256_set1_epi64x(static_cast<long long>(word));
      _mm256_storeu_si256(out, same);
      _mm256_storeu_si256(out + 1, same);
    } else {
      for (int j = 0; j < 8; ++j) {
        if (differ >> j & 1) word = words[next++];
        amounts[i + j] = word;
      }
    }
    i += 8;
    if (i + 8 > count) break;
    before = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys + i - 1));
  }
  WalkStretchPortable(keys + i, count - i, keys[i - 1], word, words + next, amounts + i, 1);
}

// The jitter draws as thresholds, (ThresholdJitterWide[j] >> 4) + 200 in 16 bits (the vector chain's
// range keeps them there), the first three again behind the last so that four draws from any index are
// one load; 2 KiB built when the library loads.
struct JitterDrawTable {
  std::int16_t Draw[1024 + 3];
};
JitterDrawTable MakeJitterDraws() {
  JitterDrawTable table{};
  for (int j = 0; j < 1024 + 3; ++j)
    table.Draw[j] = static_cast<std::int16_t>((ThresholdJitterWide[j & 1023] >> 4) + 200);
  return table;
}
const JitterDrawTable kJitterDraws = MakeJitterDraws();

// For each byte mask of the inks that draw (bits 2k and 2k + 1: ink k; only masks with both or neither
// occur), the byte shuffle that hands the r-th draw to the r-th of them in the order black, cyan,
// magenta, yellow (0x80 where an ink does not draw), and how many draw. 2,304 bytes.
struct DrawLanes {
  std::uint8_t Shuffle[256][8];
  std::uint8_t Count[256];
};
constexpr DrawLanes MakeDrawLanes() {
  constexpr int kOrder[4] = {kBlackPlane, kCyanPlane, kMagentaPlane, kYellowPlane};
  DrawLanes lanes{};
  for (int mask = 0; mask < 256; ++mask) {
    int rank = 0;
    for (const int ink : kOrder) {
      const bool draws = (mask >> (2 * ink) & 1) != 0;
      lanes.Shuffle[mask][2 * ink] = static_cast<std::uint8_t>(draws ? 2 * rank : 0x80);
      lanes.Shuffle[mask][2 * ink + 1] = static_cast<std::uint8_t>(draws ? 2 * rank + 1 : 0x80);
      rank += draws ? 1 : 0;
    }
    lanes.Count[mask] = static_cast<std::uint8_t>(rank);
  }
  return lanes;
}
constexpr DrawLanes kDrawLanes = MakeDrawLanes();

// A jitter dot a step, without a branch on its inks: their range as a compare mask, the next four draws
// in one load shuffled to the inks that draw, blended into the dot's thresholds by the mask.
[[gnu::always_inline]] INKWEAVE_TARGET_SSE41 inline unsigned JitterDrawsBody(const std::uint64_t* amounts, int start,
                                                                             int n, int low, int high, unsigned index,
                                                                             std::uint64_t* thresholds) {
  // The upper four lanes (no ink) never lie in the range: nothing exceeds 0x7FFF.
  const __m128i below = _mm_unpacklo_epi64(_mm_set1_epi16(static_cast<short>(low - 1)), _mm_set1_epi16(0x7FFF));
  const __m128i above = _mm_set1_epi16(static_cast<short>(high + 1));
  std::size_t at = index;
  for (int i = start; i < n; i += 4) {
    const __m128i amount = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(amounts + i));
    const __m128i in = _mm_and_si128(_mm_cmpgt_epi16(amount, below), _mm_cmplt_epi16(amount, above));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(in));
    const __m128i draws = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kJitterDraws.Draw + at));
    const __m128i placed =
        _mm_shuffle_epi8(draws, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(kDrawLanes.Shuffle[mask])));
    auto* threshold = reinterpret_cast<__m128i*>(thresholds + i);
    _mm_storel_epi64(threshold, _mm_blendv_epi8(_mm_loadl_epi64(threshold), placed, in));
    at = (at + kDrawLanes.Count[mask]) & 1023u;
  }
  return static_cast<unsigned>(at);
}

INKWEAVE_TARGET_SSE41 unsigned JitterDrawsSse41(const std::uint64_t* amounts, int start, int n, int low, int high,
                                                unsigned index, std::uint64_t* thresholds) {
  return JitterDrawsBody(amounts, start, n, low, high, index, thresholds);
}

INKWEAVE_TARGET_AVX2 unsigned JitterDrawsAvx2(const std::uint64_t* amounts, int start, int n, int low, int high,
                                              unsigned index, std::uint64_t* thresholds) {
  return JitterDrawsBody(amounts, start, n, low, high, index, thresholds);
}

template <Quantiser kQ, bool kBlank>
ChainRunFn Pick(InstructionSet set, int step) {
  if (set == InstructionSet::kAvx2) return step > 0 ? &ChainRunAvx2<kQ, 1, kBlank> : &ChainRunAvx2<kQ, -1, kBlank>;
  return step > 0 ? &ChainRunSse41<kQ, 1, kBlank> : &ChainRunSse41<kQ, -1, kBlank>;
}

template <Quantiser kQ>
ChainRunFn Pick(InstructionSet set, int step, bool blank) {
  return blank ? Pick<kQ, true>(set, step) : Pick<kQ, false>(set, step);
}

template <Quantiser kQ, bool kBlank>
ChainRunFn PickBlack(InstructionSet set, int step) {
  if (set == InstructionSet::kAvx2) return step > 0 ? &BlackRunAvx2<kQ, 1, kBlank> : &BlackRunAvx2<kQ, -1, kBlank>;
  return step > 0 ? &BlackRunSse41<kQ, 1, kBlank> : &BlackRunSse41<kQ, -1, kBlank>;
}

template <Quantiser kQ>
ChainRunFn PickBlack(InstructionSet set, int step, bool blank) {
  return blank ? PickBlack<kQ, true>(set, step) : PickBlack<kQ, false>(set, step);
}

#endif  // INKWEAVE_X86_KERNELS

}  // namespace

ChainRunFn ChainRunFor(InstructionSet set, Quantiser quantiser, int step, bool blank) {
#if INKWEAVE_X86_KERNELS
  static const bool inRange = VectorChainInRange();
  if (set == InstructionSet::kPortable || !inRange) return nullptr;
  switch (quantiser) {
    case Quantiser::Mid: return Pick<Quantiser::Mid>(set, step, blank);
    case Quantiser::High: return Pick<Quantiser::High>(set, step, blank);
    case Quantiser::Top: return Pick<Quantiser::Top>(set, step, blank);
  }
#endif
  static_cast<void>(set), static_cast<void>(quantiser), static_cast<void>(step), static_cast<void>(blank);
  return nullptr;
}

ChainRunFn BlackChainRunFor(InstructionSet set, Quantiser quantiser, int step, bool blank) {
#if INKWEAVE_X86_KERNELS
  if (ChainRunFor(set, quantiser, step, blank) == nullptr) return nullptr;
  switch (quantiser) {
    case Quantiser::Mid: return PickBlack<Quantiser::Mid>(set, step, blank);
    case Quantiser::High: return PickBlack<Quantiser::High>(set, step, blank);
    case Quantiser::Top: return PickBlack<Quantiser::Top>(set, step, blank);
  }
#endif
  static_cast<void>(set), static_cast<void>(quantiser), static_cast<void>(step), static_cast<void>(blank);
  return nullptr;
}

bool BlackAloneHasInk(const std::int16_t (*split)[4]) {
  for (int k = 0; k < 256; ++k)
    for (int ink : {kCyanPlane, kMagentaPlane, kYellowPlane})
      if (split[k][ink] != k) return false;
  return true;
}

DistinctKeysFn DistinctKeysFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (set == InstructionSet::kAvx2) return &DistinctKeysAvx2;
#endif
  static_cast<void>(set);
  return &DistinctKeysPortable;
}

WalkStretchFn WalkStretchFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (set == InstructionSet::kAvx2) return &WalkStretchAvx2;
#endif
  static_cast<void>(set);
  return &WalkStretchPortable;
}

JitterDrawsFn JitterDrawsFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (ChainRunFor(set, Quantiser::Mid, 1, false) == nullptr) return nullptr;
  return set == InstructionSet::kAvx2 ? &JitterDrawsAvx2 : &JitterDrawsSse41;
#else
  static_cast<void>(set);
  return nullptr;
#endif
}

SplitInksFn SplitInksFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (ChainRunFor(set, Quantiser::Mid, 1, false) == nullptr) return nullptr;
  return set == InstructionSet::kAvx2 ? &SplitInksAvx2 : &SplitInksSse41;
#else
  static_cast<void>(set);
  return nullptr;
#endif
}

SpreadBlackThresholdsFn SpreadBlackThresholdsFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (ChainRunFor(set, Quantiser::Mid, 1, false) == nullptr) return nullptr;
  return set == InstructionSet::kAvx2 ? &SpreadBlackThresholdsAvx2 : &SpreadBlackThresholdsSse41;
#else
  static_cast<void>(set);
  return nullptr;
#endif
}

SpreadThresholdsFn SpreadThresholdsFor(InstructionSet set) {
#if INKWEAVE_X86_KERNELS
  if (ChainRunFor(set, Quantiser::Mid, 1, false) == nullptr) return nullptr;
  return set == InstructionSet::kAvx2 ? &SpreadThresholdsAvx2 : &SpreadThresholdsSse41;
#else
  static_cast<void>(set);
  return nullptr;
#endif
}

}  // namespace inkweave::detail
