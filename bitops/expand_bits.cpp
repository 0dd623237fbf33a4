// ExpandBitsVEK: every bit of the block the method is called on becomes one
// byte of `dest`, LowValue for a 0 and HighValue for a 1.
//
//   block A5 01 00 80:  ExpandBitsVEK(dest, 4) writes FF 00 FF 00 00 FF 00 FF, 00 .. 00 FF, ...
// Nothing here raises: a nil block, a count of 0 or less, or a block without
// data answers False.
#include <cstring>

#include "bitops/avx2.h"
#include "bitops/sse2.h"
#include "bitops/strided.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

namespace vek {
#if VEK_X86
using namespace sse2;
#endif

void expand_bits_scalar(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept {
  for (size_t i = 0; i < n; ++i) {
    for (unsigned half = 0; half < 2; ++half) {
      uint32_t word = 0;
      for (unsigned j = 0; j < 4; ++j) {
        bool set = ((src[i] >> (7 - 4 * half - j)) & 1u) != 0;
        word |= static_cast<uint32_t>(set ? high : low) << (8 * j);
      }
      uint8_t* out = dst + 8 * i + 4 * half;
      for (unsigned j = 0; j < 4; ++j) out[j] = static_cast<uint8_t>(word >> (8 * j));
    }
  }
}

#if VEK_X86
namespace {
// One of the two values per bit, when both fit in a byte.
__m128i pick_bytes(__m128i set, __m128i high, __m128i low) {
  return _mm_or_si128(_mm_and_si128(set, high), _mm_andnot_si128(set, low));
}

// The same for values of any size: byte j of each 32-bit word contributes
// its value shifted by 8j, ORed into the word, carry bits and all.
__m128i pick_words(__m128i set, const __m128i (&high)[4], const __m128i (&low)[4]) {
  __m128i j0 = _mm_srai_epi32(_mm_slli_epi32(set, 24), 24);
  __m128i j1 = _mm_srai_epi32(_mm_slli_epi32(set, 16), 24);
  __m128i j2 = _mm_srai_epi32(_mm_slli_epi32(set, 8), 24);
  __m128i j3 = _mm_srai_epi32(set, 24);
  __m128i word = pick_bytes(j0, high[0], low[0]);
  word = _mm_or_si128(word, pick_bytes(j1, high[1], low[1]));
  word = _mm_or_si128(word, pick_bytes(j2, high[2], low[2]));
  return _mm_or_si128(word, pick_bytes(j3, high[3], low[3]));
}
}  // namespace

void expand_bits_sse2(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept {
  const __m128i bit_of_byte = _mm_setr_epi8(static_cast<char>(0x80), 0x40, 0x20, 0x10, 8, 4, 2, 1,
                                            static_cast<char>(0x80), 0x40, 0x20, 0x10, 8, 4, 2, 1);
  if (n < 4) {  // no group of four
    expand_bits_scalar(dst, src, n, low, high);
    return;
  }
  const bool bytes_only = low >= 0 && low <= 255 && high >= 0 && high <= 255;
  const __m128i high_bytes = bytes_of(static_cast<unsigned>(high));
  const __m128i low_bytes = bytes_of(static_cast<unsigned>(low));
  __m128i highs[4], lows[4];
  for (int j = 0; j < 4; ++j) {
    highs[j] = _mm_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(high) << (8 * j)));
    lows[j] = _mm_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(low) << (8 * j)));
  }
  size_t i = 0;
  // main loop: four source bytes, two 16-byte stores
  for (; i + 4 <= n; i += 4) {
    uint32_t four;
    std::memcpy(&four, src + i, 4);
    __m128i x = _mm_cvtsi32_si128(static_cast<int>(four));
    x = _mm_unpacklo_epi8(x, x);
    x = _mm_unpacklo_epi16(x, x);  // each source byte four times
    __m128i set01 = _mm_unpacklo_epi32(x, x);  // bytes 0 and 1 eight times each
    __m128i set23 = _mm_unpackhi_epi32(x, x);
    set01 = _mm_cmpeq_epi8(_mm_and_si128(set01, bit_of_byte), bit_of_byte);
    set23 = _mm_cmpeq_epi8(_mm_and_si128(set23, bit_of_byte), bit_of_byte);
    if (bytes_only) {
      store(dst + 8 * i, pick_bytes(set01, high_bytes, low_bytes));
      store(dst + 8 * i + 16, pick_bytes(set23, high_bytes, low_bytes));
    } else {
      store(dst + 8 * i, pick_words(set01, highs, lows));
      store(dst + 8 * i + 16, pick_words(set23, highs, lows));
    }
  }
  // remainder: up to three source bytes
  expand_bits_scalar(dst + 8 * i, src + i, n - i, low, high);
}

namespace {
// Every byte all ones where its bit of the four source bytes is set.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i avx2_bits_set(const uint8_t* four_bytes, __m256i spread,
                                                                         __m256i bit_of_byte) {
  int32_t four;
  std::memcpy(&four, four_bytes, 4);
  __m256i x = _mm256_shuffle_epi8(_mm256_set1_epi32(four), spread);
  return _mm256_cmpeq_epi8(_mm256_and_si256(x, bit_of_byte), bit_of_byte);
}

// Values of any size: the whole word chosen by byte j's bit, for each j.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i avx2_pick_words(__m256i set, const __m256i (&high)[4],
                                                                           const __m256i (&low)[4]) {
  __m256i j0 = _mm256_srai_epi32(_mm256_slli_epi32(set, 24), 24);
  __m256i j1 = _mm256_srai_epi32(_mm256_slli_epi32(set, 16), 24);
  __m256i j2 = _mm256_srai_epi32(_mm256_slli_epi32(set, 8), 24);
  __m256i j3 = _mm256_srai_epi32(set, 24);
  __m256i word = _mm256_blendv_epi8(low[0], high[0], j0);
  word = _mm256_or_si256(word, _mm256_blendv_epi8(low[1], high[1], j1));
  word = _mm256_or_si256(word, _mm256_blendv_epi8(low[2], high[2], j2));
  return _mm256_or_si256(word, _mm256_blendv_epi8(low[3], high[3], j3));
}
}  // namespace

[[gnu::target("avx2")]] void expand_bits_avx2(uint8_t* dst, const uint8_t* src, size_t n, int32_t low,
                                              int32_t high) noexcept {
  // Four source bytes in every lane; the shuffle gives each its eight bytes.
  const __m256i spread = _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1,  //
                                          2, 2, 2, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3);
  const __m256i bit_of_byte = _mm256_set1_epi64x(0x0102040810204080);
  if (n < 8) {  // no group of eight
    _mm256_zeroupper();  // the constants above may already sit in ymm registers
    expand_bits_sse2(dst, src, n, low, high);
    return;
  }
  const bool bytes_only = low >= 0 && low <= 255 && high >= 0 && high <= 255;
  const __m256i high_bytes = _mm256_set1_epi8(static_cast<char>(high));
  const __m256i low_bytes = _mm256_set1_epi8(static_cast<char>(low));
  __m256i highs[4], lows[4];
  for (int j = 0; j < 4; ++j) {
    highs[j] = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(high) << (8 * j)));
    lows[j] = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(low) << (8 * j)));
  }
  size_t i = 0;
  // main loop: eight source bytes, two 32-byte stores
  if (bytes_only) {
    for (; i + 8 <= n; i += 8) {
      __m256i set0 = avx2_bits_set(src + i, spread, bit_of_byte);
      __m256i set1 = avx2_bits_set(src + i + 4, spread, bit_of_byte);
      avx2::store(dst + 8 * i, _mm256_blendv_epi8(low_bytes, high_bytes, set0));
      avx2::store(dst + 8 * i + 32, _mm256_blendv_epi8(low_bytes, high_bytes, set1));
    }
  } else {
    for (; i + 8 <= n; i += 8) {
      __m256i set0 = avx2_bits_set(src + i, spread, bit_of_byte);
      __m256i set1 = avx2_bits_set(src + i + 4, spread, bit_of_byte);
      avx2::store(dst + 8 * i, avx2_pick_words(set0, highs, lows));
      avx2::store(dst + 8 * i + 32, avx2_pick_words(set1, highs, lows));
    }
  }
  // remainder: up to seven source bytes
  _mm256_zeroupper();  // the narrower levels run legacy SSE code
  expand_bits_sse2(dst + 8 * i, src + i, n - i, low, high);
}
#endif

constinit KernelFamily<ExpandBitsTable> expand_bits_kernels{
#if VEK_X86
    {Level::AVX2, {expand_bits_avx2}},
    {Level::SSE2, {expand_bits_sse2}},
#endif
    {Level::Scalar, {expand_bits_scalar}},
};

}  // namespace vek

bool ExpandBitsVEK(REALmemoryBlock block, REALmemoryBlock dest, int32_t sourceByteCount, int32_t lowValue,
                   int32_t highValue) {
  if (sourceByteCount <= 0) return false;
  if (block == nullptr || dest == nullptr) return false;
  auto* src = static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));
  auto* dst = static_cast<uint8_t*>(REALMemoryBlockGetPtr(dest));
  if (src == nullptr || dst == nullptr) return false;
  // Whole groups of four source bytes, cut back to the bytes the source holds
  // and to those whose eight bytes the destination holds.
  int64_t count = (int64_t{sourceByteCount} + 3) / 4 * 4;
  count = vek::items_trusting_unknown_size(REALMemoryBlockGetSize(block), 0, count);
  count = vek::items_trusting_unknown_size(REALMemoryBlockGetSize(dest), 0, count, 8);
  if (count == 0) return false;
  vek::expand_bits_kernels.best().expand(dst, src, static_cast<size_t>(count), lowValue, highValue);
  return true;
}

