// Rules over four-byte pixels, in place, from offsetByte on:
//   _Calc3te      replaces every pixel whose four channels all lie within a
//                 relative tolerance of a source colour by a destination
//                 colour. Source (200, 100, 50, 0) with Tolerance 0.1 gives
//                 the bands 180..220, 90..110, 45..55, 0..0 (each bound
//                 truncated toward zero): (180, 110, 45, 0) is replaced,
//                 (179, 100, 50, 0) is not.
//   _Calc2teCMY   sets the fourth byte to iByteMax minus the sum of the first
//                 three, clamped to 0..255: (10, 20, 30, x) -> (10, 20, 30, 195)
//                 with iByteMax 255. With WithSum0, a sum of 0 gives 0.
//   _Calc2teCMYK  the same with the sum of all four bytes:
//                 (10, 20, 30, 40) -> (10, 20, 30, 155).
// The range is Length bytes, or the rest of the block when Length <= 0; it
// covers ⌈len/4⌉ pixels. Only the pixels wholly inside the block are touched:
// a partial last pixel is skipped. A block of size 0 (over a raw address) is
// trusted with all of them. A nil block raises "NilObjectException", a
// negative offsetByte "UnsupportedOperationException" "offset < 0".
#include "colour_signal/colour_rules.h"

#if VEK_X86
#include <immintrin.h>
#endif

#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/ranges.h"
#include "frame/rb_bytes.h"

namespace {
// The pixels of the range that may be touched: those wholly inside a block of
// known size, all ⌈len/4⌉ of them in a block of size 0, none without data.
size_t pixels_in_range(const rbBytes& bytes, int32_t offsetByte, int32_t length) {
  if (bytes.data() == nullptr) return 0;
  int64_t len = vek::length_or_rest(bytes.size(), offsetByte, length);
  if (len <= 0) return 0;
  // the last pixel may reach past the range
  return static_cast<size_t>(vek::items_trusting_unknown_size(bytes.size(), offsetByte, (len + 3) / 4, 4));
}

// A product outside the 32-bit range, or NaN, gives -2147483648, as the
// processor's truncating conversion does; C++ leaves that case undefined.
int32_t truncated_bound(double product) {
  if (product > -2147483649.0 && product < 2147483648.0) return static_cast<int32_t>(product);
  return INT32_MIN;
}
}  // namespace

void Calc3te(REALmemoryBlock block, int32_t source1, int32_t source2, int32_t source3, int32_t source4,
             int32_t dest1, int32_t dest2, int32_t dest3, int32_t dest4, double tolerance, int32_t offsetByte,
             int32_t length) {
  if (refuse_nil_block_or_negative_offset(block, offsetByte)) return;
  rbBytes bytes(block);
  size_t count = pixels_in_range(bytes, offsetByte, length);
  if (count == 0) return;
  const int32_t source[4] = {source1, source2, source3, source4};
  const uint8_t dest[4] = {static_cast<uint8_t>(dest1), static_cast<uint8_t>(dest2), static_cast<uint8_t>(dest3),
                           static_cast<uint8_t>(dest4)};
  const double upper = tolerance + 1.0;
  const double lower = 1.0 - tolerance;
  int32_t hi[4], lo[4];
  for (int k = 0; k < 4; ++k) {
    hi[k] = truncated_bound(source[k] * upper);
    lo[k] = truncated_bound(source[k] * lower);
  }
  vek::replace_colour_kernels.best().replace(bytes.data() + offsetByte, count, lo, hi, dest);
}

void Calc2teCMY(REALmemoryBlock block, int32_t iByteMax, int32_t offsetByte, int32_t length, uint8_t withSum0) {
  if (refuse_nil_block_or_negative_offset(block, offsetByte)) return;
  rbBytes bytes(block);
  size_t count = pixels_in_range(bytes, offsetByte, length);
  if (count == 0) return;
  vek::complement_kernels.best().cmy(bytes.data() + offsetByte, count, iByteMax, withSum0 != 0);
}

void Calc2teCMYK(REALmemoryBlock block, int32_t iByteMax, int32_t offsetByte, int32_t length, uint8_t withSum0) {
  if (refuse_nil_block_or_negative_offset(block, offsetByte)) return;
  rbBytes bytes(block);
  size_t count = pixels_in_range(bytes, offsetByte, length);
  if (count == 0) return;
  vek::complement_kernels.best().cmyk(bytes.data() + offsetByte, count, iByteMax, withSum0 != 0);
}

namespace vek {

// -- colour replacement -------------------------------------------------------

void replace_colour_scalar(uint8_t* pixels, size_t count, const int32_t lo[4], const int32_t hi[4],
                           const uint8_t dest[4]) noexcept {
  for (size_t i = 0; i < count; ++i, pixels += 4) {
    if (lo[0] <= pixels[0] && pixels[0] <= hi[0] && lo[1] <= pixels[1] && pixels[1] <= hi[1] &&
        lo[2] <= pixels[2] && pixels[2] <= hi[2] && lo[3] <= pixels[3] && pixels[3] <= hi[3]) {
      std::memcpy(pixels, dest, 4);
    }
  }
}

#if VEK_X86
namespace {
int32_t four_bytes(const uint8_t bytes[4]) {
  int32_t pixel;
  std::memcpy(&pixel, bytes, 4);
  return pixel;
}

// A channel is a byte, so its 32-bit band narrows to a byte band, or to none
// (false: no pixel matches).
[[gnu::always_inline]] inline bool byte_bands(const int32_t lo[4], const int32_t hi[4], uint8_t lo8[4],
                                               uint8_t hi8[4]) {
  for (int k = 0; k < 4; ++k) {
    if (lo[k] > hi[k] || hi[k] < 0 || lo[k] > 255) return false;
    lo8[k] = static_cast<uint8_t>(lo[k] < 0 ? 0 : lo[k]);
    hi8[k] = static_cast<uint8_t>(hi[k] > 255 ? 255 : hi[k]);
  }
  return true;
}

[[gnu::always_inline]] inline void replace_four(uint8_t* pixels, __m128i low, __m128i high, __m128i colour) {
  __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
  __m128i outside = _mm_or_si128(_mm_subs_epu8(v, high), _mm_subs_epu8(low, v));
  __m128i match = _mm_cmpeq_epi32(outside, _mm_setzero_si128());
  v = _mm_or_si128(_mm_and_si128(match, colour), _mm_andnot_si128(match, v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels), v);
}
}  // namespace

// A byte c lies in lo..hi exactly when both c - hi and lo - c saturate to 0,
// so a pixel matches when those differences, OR-ed, make a 32-bit 0.
void replace_colour_sse2(uint8_t* pixels, size_t count, const int32_t lo[4], const int32_t hi[4],
                         const uint8_t dest[4]) noexcept {
  uint8_t lo8[4], hi8[4];
  if (!byte_bands(lo, hi, lo8, hi8)) return;
  const __m128i low = _mm_set1_epi32(four_bytes(lo8)), high = _mm_set1_epi32(four_bytes(hi8));
  const __m128i colour = _mm_set1_epi32(four_bytes(dest));
  size_t i = 0;
  // main loop
  for (; i + 4 <= count; i += 4, pixels += 16) replace_four(pixels, low, high, colour);
  // remainder
  replace_colour_scalar(pixels, count - i, lo, hi, dest);
}

namespace {
[[gnu::target("avx2"), gnu::always_inline]] inline void replace_eight_avx2(uint8_t* pixels, __m256i low, __m256i high,
                                                                           __m256i colour) {
  __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
  __m256i outside = _mm256_or_si256(_mm256_subs_epu8(v, high), _mm256_subs_epu8(low, v));
  __m256i match = _mm256_cmpeq_epi32(outside, _mm256_setzero_si256());
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(pixels), _mm256_blendv_epi8(v, colour, match));
}
}  // namespace

// As the SSE2 level, sixteen pixels a turn; fewer than eight go to the twin
// at once.
[[gnu::target("avx2")]] void replace_colour_avx2(uint8_t* pixels, size_t count, const int32_t lo[4],
                                                 const int32_t hi[4], const uint8_t dest[4]) noexcept {
  uint8_t lo8[4], hi8[4];
  if (count < 8) {
    replace_colour_scalar(pixels, count, lo, hi, dest);
    return;
  }
  if (!byte_bands(lo, hi, lo8, hi8)) return;
  const __m256i low = _mm256_set1_epi32(four_bytes(lo8)), high = _mm256_set1_epi32(four_bytes(hi8));
  const __m256i colour = _mm256_set1_epi32(four_bytes(dest));
  size_t i = 0;
  // main loop
  for (; i + 16 <= count; i += 16, pixels += 64) {
    replace_eight_avx2(pixels, low, high, colour);
    replace_eight_avx2(pixels + 32, low, high, colour);
  }
  // remainder: one more vector of each width, then the twin
  if (i + 8 <= count) {
    replace_eight_avx2(pixels, low, high, colour);
    i += 8, pixels += 32;
  }
  if (i + 4 <= count) {
    replace_four(pixels, _mm256_castsi256_si128(low), _mm256_castsi256_si128(high), _mm256_castsi256_si128(colour));
    i += 4, pixels += 16;
  }
  _mm256_zeroupper();  // the twin may be compiled to legacy SSE code
  replace_colour_scalar(pixels, count - i, lo, hi, dest);
}
#endif

constinit KernelFamily<ReplaceColourTable> replace_colour_kernels{
#if VEK_X86
    {Level::AVX2, {replace_colour_avx2}},
    {Level::SSE2, {replace_colour_sse2}},
#endif
    {Level::Scalar, {replace_colour_scalar}},
};

// -- channel-sum complement ---------------------------------------------------

namespace {
uint8_t complement(int32_t sum, int32_t byte_max, bool with_sum0) {
  if (sum >= byte_max) return 0;
  if (with_sum0 && sum == 0) return 0;
  if (byte_max - sum >= 255) return 255;
  if (byte_max - sum > 0) return static_cast<uint8_t>(byte_max - sum);
  return 0;
}

template <bool kFourth>
void complement_scalar(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) {
  for (size_t i = 0; i < count; ++i, pixels += 4) {
    int32_t sum = pixels[0] + pixels[1] + pixels[2] + (kFourth ? pixels[3] : 0);
    pixels[3] = complement(sum, byte_max, with_sum0);
  }
}

#if VEK_X86
// The sum s lies in 0..1020, so clamping byte_max - s to 0..255 gives the
// same with byte_max first clamped to 0..1275; then every difference fits in
// 16 bits and the clamp is a signed 16-bit minimum and maximum.
template <bool kFourth>
void complement_sse2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) {
  const __m128i budget = _mm_set1_epi32(byte_max < 0 ? 0 : byte_max > 1275 ? 1275 : byte_max);
  const __m128i first_three = _mm_set1_epi32(0x00FFFFFF);
  const __m128i even_bytes = _mm_set1_epi16(0x00FF);
  const __m128i ones = _mm_set1_epi16(1);
  const __m128i zero = _mm_setzero_si128();
  const __m128i byte_top = _mm_set1_epi32(255);  // 16-bit halves 255 and 0
  const __m128i empty_gives_0 = with_sum0 ? _mm_set1_epi32(-1) : zero;
  size_t i = 0;
  // main loop
  for (; i + 4 <= count; i += 4, pixels += 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
    __m128i summed = kFourth ? v : _mm_and_si128(v, first_three);
    __m128i pairs = _mm_add_epi16(_mm_and_si128(summed, even_bytes), _mm_srli_epi16(summed, 8));
    __m128i sum = _mm_madd_epi16(pairs, ones);  // one 32-bit sum per pixel
    __m128i fourth = _mm_min_epi16(_mm_max_epi16(_mm_sub_epi32(budget, sum), zero), byte_top);
    fourth = _mm_andnot_si128(_mm_and_si128(_mm_cmpeq_epi32(sum, zero), empty_gives_0), fourth);
    v = _mm_or_si128(_mm_and_si128(v, first_three), _mm_slli_epi32(fourth, 24));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels), v);
  }
  // remainder
  complement_scalar<kFourth>(pixels, count - i, byte_max, with_sum0);
}

// Eight pixels in one vector: their sums by multiply-adds of the bytes with
// weights 1 (0 for a fourth byte left out), then budget - sum saturated at 0
// and capped at 255 in the low 16 bits of each pixel (the high 16 stay 0).
// With kEmptyGives0 the cap is 255 times the sign of the sum, so 0 for an
// empty pixel.
template <bool kFourth, bool kEmptyGives0>
[[gnu::target("avx2"), gnu::always_inline]] inline void complement_eight_avx2(uint8_t* pixels, __m256i budget) {
  const __m256i weights = _mm256_set1_epi32(kFourth ? 0x01010101 : 0x00010101);
  const __m256i byte_top = _mm256_set1_epi32(255);
  __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
  __m256i sum = _mm256_madd_epi16(_mm256_maddubs_epi16(v, weights), _mm256_set1_epi16(1));
  __m256i cap = kEmptyGives0 ? _mm256_sign_epi16(byte_top, sum) : byte_top;
  __m256i fourth = _mm256_min_epi16(_mm256_subs_epu16(budget, sum), cap);
  v = _mm256_blendv_epi8(v, _mm256_slli_epi32(fourth, 24), _mm256_set1_epi32(static_cast<int32_t>(0xFF000000)));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(pixels), v);
}

template <bool kFourth, bool kEmptyGives0>
[[gnu::target("avx2")]] size_t complement_avx2_loop(uint8_t* pixels, size_t count, int32_t budget) {
  const __m256i budgets = _mm256_set1_epi32(budget);
  size_t i = 0;
  for (; i + 16 <= count; i += 16, pixels += 64) {
    complement_eight_avx2<kFourth, kEmptyGives0>(pixels, budgets);
    complement_eight_avx2<kFourth, kEmptyGives0>(pixels + 32, budgets);
  }
  if (i + 8 <= count) {
    complement_eight_avx2<kFourth, kEmptyGives0>(pixels, budgets);
    i += 8;
  }
  return i;
}

// Sixteen pixels a turn, with the budget clamped to 0..1275 as for SSE2;
// fewer than eight go to the twin at once.
template <bool kFourth>
[[gnu::target("avx2")]] void complement_avx2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) {
  if (count < 8) {
    complement_scalar<kFourth>(pixels, count, byte_max, with_sum0);
    return;
  }
  int32_t budget = byte_max < 0 ? 0 : byte_max > 1275 ? 1275 : byte_max;
  // main loop, and one more vector
  size_t done = with_sum0 ? complement_avx2_loop<kFourth, true>(pixels, count, budget)
                          : complement_avx2_loop<kFourth, false>(pixels, count, budget);
  // remainder
  _mm256_zeroupper();  // the twin may be compiled to legacy SSE code
  complement_scalar<kFourth>(pixels + 4 * done, count - done, byte_max, with_sum0);
}
#endif
}  // namespace

void complement_cmy_scalar(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_scalar<false>(pixels, count, byte_max, with_sum0);
}
#if VEK_X86
void complement_cmy_sse2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_sse2<false>(pixels, count, byte_max, with_sum0);
}
void complement_cmy_avx2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_avx2<false>(pixels, count, byte_max, with_sum0);
}
#endif
void complement_cmyk_scalar(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_scalar<true>(pixels, count, byte_max, with_sum0);
}
#if VEK_X86
void complement_cmyk_sse2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_sse2<true>(pixels, count, byte_max, with_sum0);
}
void complement_cmyk_avx2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_avx2<true>(pixels, count, byte_max, with_sum0);
}
#endif

constinit KernelFamily<ComplementTable> complement_kernels{
#if VEK_X86
    {Level::AVX2, {complement_cmy_avx2, complement_cmyk_avx2}},
    {Level::SSE2, {complement_cmy_sse2, complement_cmyk_sse2}},
#endif
    {Level::Scalar, {complement_cmy_scalar, complement_cmyk_scalar}},
};

}  // namespace vek
