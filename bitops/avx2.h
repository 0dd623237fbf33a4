// AVX2 helpers of the bit and byte-order kernels. Each is target-attributed
// and always inlined, so only the AVX2 levels, which the CPU was checked
// for, can use them; vpshufb shuffles within each 16-byte lane.
#pragma once

#include "frame/target.h"
#if VEK_X86
#include <immintrin.h>

#include <cstdint>

#include "bitops/ssse3.h"

namespace vek::avx2 {

[[gnu::target("avx2"), gnu::always_inline]] inline __m256i load(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
[[gnu::target("avx2"), gnu::always_inline]] inline void store(uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}
// The same 16 bytes in both lanes.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i both_lanes(__m128i v) {
  return _mm256_broadcastsi128_si256(v);
}

[[gnu::target("avx2"), gnu::always_inline]] inline __m256i shuffle_in_lanes(__m256i v, __m256i order) {
  return _mm256_shuffle_epi8(v, order);
}

// All 32 bytes in reverse order: each lane reversed, then the lanes swapped.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i reverse32(__m256i v, __m256i reversed) {
  return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, reversed), _MM_SHUFFLE(1, 0, 3, 2));
}

// The eight bits of every byte in reverse order, a table lookup per nibble.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i mirror_in_bytes(__m256i v, __m256i low_table,
                                                                           __m256i high_table) {
  const __m256i nibble = _mm256_set1_epi8(0x0F);
  __m256i low = _mm256_and_si256(v, nibble);
  __m256i high = _mm256_and_si256(_mm256_srli_epi16(v, 4), nibble);
  return _mm256_or_si256(_mm256_shuffle_epi8(low_table, low), _mm256_shuffle_epi8(high_table, high));
}

// Every byte shifted on its own by s (0..8) bits.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i shift_bytes_left(__m256i v, unsigned s) {
  __m256i shifted = _mm256_sll_epi16(v, _mm_cvtsi32_si128(static_cast<int>(s)));
  return _mm256_and_si256(shifted, _mm256_set1_epi8(static_cast<char>((0xFFu << s) & 0xFFu)));
}
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i shift_bytes_right(__m256i v, unsigned s) {
  __m256i shifted = _mm256_srl_epi16(v, _mm_cvtsi32_si128(static_cast<int>(s)));
  return _mm256_and_si256(shifted, _mm256_set1_epi8(static_cast<char>(0xFFu >> s)));
}

}  // namespace vek::avx2
#endif  // VEK_X86
