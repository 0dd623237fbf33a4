// Scaling: MultiplyUInt8VEK and MultiplyUInt16VEK multiply, in place, every
// unsigned byte or every unsigned little-endian 16-bit value of a range by a
// factor, truncating towards zero.
//
//   MultiplyUInt8VEK(2.0)   on 00 01 7F 80 FF  -> 00 02 FE FF FF  (held at 255)
//   MultiplyUInt8VEK(-1.0)  on 00 01 02        -> 00 FF FE        (wraps modulo 256)
//   MultiplyUInt16VEK(2.0)  on 00 80 FF 7F 34 12 -> FF FF FE FF 68 24
//   MultiplyUInt16VEK(-2.0) changes nothing
//
// A factor of 1.0 or more holds the results at the type's maximum. Below
// 1.0 the 8-bit method wraps the product modulo 256 (a factor that is not a
// number gives 0), while the 16-bit method scales down for 0.0 up to 1.0 and
// leaves the values alone for a negative factor or one that is not a number.
// A nil block raises "NilObjectException", a negative offset
// "UnsupportedOperationException"; a length of 0 or less means the rest of
// the block.
#include "numeric/scaling.h"

#include <emmintrin.h>

#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/rb_bytes.h"
#include "numeric/block_range.h"

namespace vek {
namespace {
uint8_t saturated_u8(int value, double factor) {
  double product = value * factor;
  if (product >= 255.0) return 255;
  if (product >= 0.0) return static_cast<uint8_t>(static_cast<int32_t>(product));
  return 0;  // 0 times infinity
}

// Truncating an out-of-range double is undefined, so only products within
// ±2^63 are truncated; the low byte of the 64-bit result is the residue.
// Every double beyond is a multiple of 2048, whose residue is 0 as well.
uint8_t wrapped_u8(int value, double factor) {
  double product = value * factor;
  if (product > -0x1p63 && product < 0x1p63) return static_cast<uint8_t>(static_cast<int64_t>(product));
  return 0;  // not a number, infinite, or a multiple of 256
}

// Two entries per pass when holding, four when wrapping.
void build_scale_u8_table(double factor, uint8_t* table) {
  if (factor >= 1.0) {
    for (int v = 0; v < 256; v += 2) {
      table[v] = saturated_u8(v, factor);
      table[v + 1] = saturated_u8(v + 1, factor);
    }
  } else {
    for (int v = 0; v < 256; v += 4) {
      table[v] = wrapped_u8(v, factor);
      table[v + 1] = wrapped_u8(v + 1, factor);
      table[v + 2] = wrapped_u8(v + 2, factor);
      table[v + 3] = wrapped_u8(v + 3, factor);
    }
  }
}
}  // namespace

uint8_t scale_u8_value(uint8_t value, double factor) noexcept {
  return factor >= 1.0 ? saturated_u8(value, factor) : wrapped_u8(value, factor);
}

void scale_u8_scalar(uint8_t* data, size_t count, double factor) noexcept {
  for (size_t i = 0; i < count; ++i) data[i] = scale_u8_value(data[i], factor);
}

// At most 256 multiplications whatever the length.
void scale_u8_table(uint8_t* data, size_t count, double factor) noexcept {
  uint8_t table[256];
  build_scale_u8_table(factor, table);
  for (size_t i = 0; i < count; ++i) data[i] = table[data[i]];
}
}  // namespace vek

void MultiplyUInt8VEK(REALmemoryBlock block, double factor, int32_t offsetByte, int32_t lengthBytes) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (offsetByte < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return;
  }
  rbBytes bytes(block);
  size_t length = numeric_range(bytes.data(), bytes.size(), offsetByte, lengthBytes);
  if (length == 0) return;
  vek::scale_u8_table(bytes.data() + offsetByte, length, factor);
}

namespace vek {
uint16_t scale_u16_value(uint16_t value, double factor) noexcept {
  double product = value * factor;
  if (product >= 65535.0) return 65535;
  if (product >= 0.0) return static_cast<uint16_t>(static_cast<int32_t>(product));
  return 0;  // 0 times infinity
}

void scale_u16_scalar(uint8_t* data, size_t count, double factor) noexcept {
  if (!(factor >= 0.0)) return;
  for (size_t i = 0; i < count; ++i) {
    uint16_t value;
    std::memcpy(&value, data + 2 * i, 2);
    value = scale_u16_value(value, factor);
    std::memcpy(data + 2 * i, &value, 2);
  }
}

namespace {
// Four values in 32-bit lanes, two per double multiply. max(p, 0) turns the
// product 0 times infinity (not a number) into 0 and min holds at 65535, so
// the truncation below never sees a value out of range.
__m128i scale_four_u16(__m128i values, __m128d factor) {
  const __m128d zero = _mm_setzero_pd();
  const __m128d top = _mm_set1_pd(65535.0);
  __m128d low = _mm_mul_pd(_mm_cvtepi32_pd(values), factor);
  __m128d high = _mm_mul_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(values, _MM_SHUFFLE(1, 0, 3, 2))), factor);
  low = _mm_min_pd(_mm_max_pd(low, zero), top);
  high = _mm_min_pd(_mm_max_pd(high, zero), top);
  return _mm_unpacklo_epi64(_mm_cvttpd_epi32(low), _mm_cvttpd_epi32(high));
}
}  // namespace

void scale_u16_sse2(uint8_t* data, size_t count, double factor) noexcept {
  if (!(factor >= 0.0)) return;
  const __m128d wide_factor = _mm_set1_pd(factor);
  const __m128i zero = _mm_setzero_si128();
  // packs_epi32 saturates to the signed range: move 0..65535 down by 32768
  // before it and flip the sign bit back after.
  const __m128i down = _mm_set1_epi32(32768);
  const __m128i sign = _mm_set1_epi16(INT16_MIN);
  size_t i = 0;
  // main loop: eight values per vector
  for (; count - i >= 8; i += 8) {
    uint8_t* at = data + 2 * i;
    __m128i values = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    __m128i low = scale_four_u16(_mm_unpacklo_epi16(values, zero), wide_factor);
    __m128i high = scale_four_u16(_mm_unpackhi_epi16(values, zero), wide_factor);
    __m128i packed = _mm_packs_epi32(_mm_sub_epi32(low, down), _mm_sub_epi32(high, down));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(at), _mm_xor_si128(packed, sign));
  }
  // remainder: fewer than eight values
  scale_u16_scalar(data + 2 * i, count - i, factor);
}
}  // namespace vek

void MultiplyUInt16VEK(REALmemoryBlock block, double factor, int32_t offsetByte, int32_t lengthBytes) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (offsetByte < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return;
  }
  rbBytes bytes(block);
  size_t values = numeric_range(bytes.data(), bytes.size(), offsetByte, lengthBytes) / 2;
  if (values == 0) return;  // a last odd byte stays as it is
  vek::scale_u16_sse2(bytes.data() + offsetByte, values, factor);
}
