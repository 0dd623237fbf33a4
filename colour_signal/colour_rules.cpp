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

#include <emmintrin.h>

#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/rb_bytes.h"

namespace {
// The pixels of the range that may be touched: those wholly inside a block of
// known size, all ⌈len/4⌉ of them in a block of size 0, none without data.
size_t pixels_in_range(const rbBytes& bytes, int32_t offsetByte, int32_t length) {
  if (bytes.data() == nullptr) return 0;
  int64_t size = bytes.size();
  int64_t len = length > 0 ? length : size - offsetByte;
  if (len <= 0) return 0;
  int64_t pixels = (len + 3) / 4;  // the last one may reach past the range
  if (size == 0) return static_cast<size_t>(pixels);
  int64_t whole = offsetByte < size ? (size - offsetByte) / 4 : 0;
  return static_cast<size_t>(pixels < whole ? pixels : whole);
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
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (offsetByte < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return;
  }
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
  vek::replace_colour_sse2(bytes.data() + offsetByte, count, lo, hi, dest);
}

void Calc2teCMY(REALmemoryBlock block, int32_t iByteMax, int32_t offsetByte, int32_t length, uint8_t withSum0) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (offsetByte < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return;
  }
  rbBytes bytes(block);
  size_t count = pixels_in_range(bytes, offsetByte, length);
  if (count == 0) return;
  vek::complement_cmy_sse2(bytes.data() + offsetByte, count, iByteMax, withSum0 != 0);
}

void Calc2teCMYK(REALmemoryBlock block, int32_t iByteMax, int32_t offsetByte, int32_t length, uint8_t withSum0) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (offsetByte < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return;
  }
  rbBytes bytes(block);
  size_t count = pixels_in_range(bytes, offsetByte, length);
  if (count == 0) return;
  vek::complement_cmyk_sse2(bytes.data() + offsetByte, count, iByteMax, withSum0 != 0);
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

namespace {
__m128i four_times(const uint8_t bytes[4]) {
  int32_t pixel;
  std::memcpy(&pixel, bytes, 4);
  return _mm_set1_epi32(pixel);
}
}  // namespace

// A channel is a byte, so its 32-bit band narrows to a byte band (or to none)
// and the tests become unsigned byte minima and maxima, four pixels a turn.
void replace_colour_sse2(uint8_t* pixels, size_t count, const int32_t lo[4], const int32_t hi[4],
                         const uint8_t dest[4]) noexcept {
  uint8_t lo8[4], hi8[4];
  for (int k = 0; k < 4; ++k) {
    if (lo[k] > hi[k] || hi[k] < 0 || lo[k] > 255) return;  // no byte lies in this band: no pixel matches
    lo8[k] = static_cast<uint8_t>(lo[k] < 0 ? 0 : lo[k]);
    hi8[k] = static_cast<uint8_t>(hi[k] > 255 ? 255 : hi[k]);
  }
  const __m128i low = four_times(lo8), high = four_times(hi8), colour = four_times(dest);
  const __m128i all = _mm_set1_epi32(-1);
  size_t i = 0;
  // main loop
  for (; i + 4 <= count; i += 4, pixels += 16) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
    __m128i inside = _mm_and_si128(_mm_cmpeq_epi8(_mm_max_epu8(v, low), v), _mm_cmpeq_epi8(_mm_min_epu8(v, high), v));
    __m128i match = _mm_cmpeq_epi32(inside, all);  // all four channels inside
    v = _mm_or_si128(_mm_and_si128(match, colour), _mm_andnot_si128(match, v));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pixels), v);
  }
  // remainder
  replace_colour_scalar(pixels, count - i, lo, hi, dest);
}

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
}  // namespace

void complement_cmy_scalar(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_scalar<false>(pixels, count, byte_max, with_sum0);
}
void complement_cmy_sse2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_sse2<false>(pixels, count, byte_max, with_sum0);
}
void complement_cmyk_scalar(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_scalar<true>(pixels, count, byte_max, with_sum0);
}
void complement_cmyk_sse2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept {
  complement_sse2<true>(pixels, count, byte_max, with_sum0);
}

}  // namespace vek
