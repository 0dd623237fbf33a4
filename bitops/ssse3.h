// SSSE3 helpers of the bit and byte-order kernels: byte shuffles and
// 16-entry table lookups by pshufb. Each is target-attributed, so only the
// SSSE3 and AVX2 levels, which the CPU was checked for, can inline them.
#pragma once

#include "frame/target.h"
#if VEK_X86
#include <immintrin.h>

#include <cstdint>

namespace vek::ssse3 {

// Byte i of the result is byte order[i] of v.
[[gnu::target("ssse3"), gnu::always_inline]] inline __m128i shuffle(__m128i v, __m128i order) {
  return _mm_shuffle_epi8(v, order);
}

inline __m128i reversed_order() { return _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0); }
inline __m128i swap16_order() { return _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14); }
inline __m128i swap32_order() { return _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12); }

// Mirror images of the sixteen nibbles, placed in the high nibble (for the
// low nibble of a byte) and in the low nibble (for the high one).
inline __m128i mirrored_low_nibbles() {
  return _mm_setr_epi8(0x00, char(0x80), 0x40, char(0xC0), 0x20, char(0xA0), 0x60, char(0xE0), 0x10, char(0x90), 0x50,
                       char(0xD0), 0x30, char(0xB0), 0x70, char(0xF0));
}
inline __m128i mirrored_high_nibbles() {
  return _mm_setr_epi8(0x0, 0x8, 0x4, 0xC, 0x2, 0xA, 0x6, 0xE, 0x1, 0x9, 0x5, 0xD, 0x3, 0xB, 0x7, 0xF);
}

// The eight bits of every byte in reverse order, a table lookup per nibble.
[[gnu::target("ssse3"), gnu::always_inline]] inline __m128i mirror_in_bytes(__m128i v) {
  const __m128i nibble = _mm_set1_epi8(0x0F);
  __m128i low = _mm_and_si128(v, nibble);
  __m128i high = _mm_and_si128(_mm_srli_epi16(v, 4), nibble);
  return _mm_or_si128(_mm_shuffle_epi8(mirrored_low_nibbles(), low), _mm_shuffle_epi8(mirrored_high_nibbles(), high));
}

}  // namespace vek::ssse3
#endif  // VEK_X86
