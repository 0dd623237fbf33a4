// Small SSE2 helpers the bit and byte-order kernels share. Loads and stores
// are unaligned; SSE2 shifts whole 16-bit lanes, so the byte shifts mask off
// what crosses from one byte into the next.
#pragma once

#include "frame/target.h"
#if VEK_X86
#include <emmintrin.h>

#include <cstdint>

namespace vek::sse2 {

inline __m128i load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline __m128i bytes_of(unsigned value) { return _mm_set1_epi8(static_cast<char>(value)); }

// Every byte shifted on its own by s (0..8) bits.
inline __m128i shift_bytes_left(__m128i v, unsigned s) {
  return _mm_and_si128(_mm_sll_epi16(v, _mm_cvtsi32_si128(static_cast<int>(s))), bytes_of((0xFFu << s) & 0xFFu));
}
inline __m128i shift_bytes_right(__m128i v, unsigned s) {
  return _mm_and_si128(_mm_srl_epi16(v, _mm_cvtsi32_si128(static_cast<int>(s))), bytes_of(0xFFu >> s));
}

// b0 b1 -> b1 b0 in every 16-bit word.
inline __m128i swap_in_words16(__m128i v) { return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8)); }

// b0 b1 b2 b3 -> b3 b2 b1 b0 in every 32-bit word.
inline __m128i swap_in_words32(__m128i v) {
  v = swap_in_words16(v);
  v = _mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 3, 0, 1));
  return _mm_shufflehi_epi16(v, _MM_SHUFFLE(2, 3, 0, 1));
}

// All sixteen bytes in reverse order.
inline __m128i reverse16(__m128i v) { return _mm_shuffle_epi32(swap_in_words32(v), _MM_SHUFFLE(0, 1, 2, 3)); }

// The eight bits of every byte in reverse order: halves, then pairs, then
// single bits change places. Masking before each shift keeps bits from
// crossing into the neighbouring byte of the 16-bit lane.
inline __m128i mirror_in_bytes(__m128i v) {
  v = _mm_or_si128(_mm_srli_epi16(_mm_and_si128(v, bytes_of(0xF0)), 4),
                   _mm_slli_epi16(_mm_and_si128(v, bytes_of(0x0F)), 4));
  v = _mm_or_si128(_mm_srli_epi16(_mm_and_si128(v, bytes_of(0xCC)), 2),
                   _mm_slli_epi16(_mm_and_si128(v, bytes_of(0x33)), 2));
  __m128i odd = _mm_and_si128(v, bytes_of(0x55));
  return _mm_or_si128(_mm_srli_epi16(_mm_and_si128(v, bytes_of(0xAA)), 1), _mm_add_epi8(odd, odd));
}

}  // namespace vek::sse2
#endif  // VEK_X86
