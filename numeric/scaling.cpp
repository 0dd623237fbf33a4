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

#if VEK_X86
#include <immintrin.h>
#endif

#include <cmath>
#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/ranges.h"
#include "frame/rb_bytes.h"

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

// Two entries per pass in double lanes when every product truncates within
// the 32-bit range: held at 255 first, or below 1.0 for |factor| < 2^23
// (255·2^23 < 2^31). Max gives its second operand, 0, for 0 times infinity;
// a product that is not a number truncates to 0x80000000, whose low byte is
// 0. Other factors one entry at a time: two per pass when holding, four when
// wrapping.
void build_scale_u8_table(double factor, uint8_t* table) {
  const bool holds = factor >= 1.0;
#if VEK_X86
  if (holds || std::fabs(factor) < 0x1p23 || std::isnan(factor)) {
    const __m128d wide_factor = _mm_set1_pd(factor);
    const __m128d two = _mm_set1_pd(2.0);
    __m128d values = _mm_set_pd(1.0, 0.0);
    for (int v = 0; v < 256; v += 2, values = _mm_add_pd(values, two)) {
      __m128d product = _mm_mul_pd(values, wide_factor);
      if (holds) product = _mm_min_pd(_mm_max_pd(product, _mm_setzero_pd()), _mm_set1_pd(255.0));
      __m128i truncated = _mm_cvttpd_epi32(product);
      table[v] = static_cast<uint8_t>(_mm_cvtsi128_si32(truncated));
      table[v + 1] = static_cast<uint8_t>(_mm_cvtsi128_si32(_mm_srli_si128(truncated, 4)));
    }
    return;
  }
#endif
  if (holds) {
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

namespace {
// Below this many bytes one product per byte costs less than the table's 256
// (BM_MultiplyUInt8VEK/best against /twin at sizes 0..300).
constexpr size_t kTableFrom = 256;
// Finding the fixed-point rule costs up to 768 steps; shorter ranges are
// looked up.
constexpr size_t kRuleFrom = 1024;

// Most tables are also a fixed-point product, which the vector levels
// compute faster than any lookup: entry v is h = floor(v·2^shift·multiplier /
// 2^16), held at 255 for a factor of 0 or more, and for a negative factor
// the low byte of h negated. The rule is only used when it gives all 256
// entries of the table.
struct ProductRule {
  bool negative;
  uint8_t shift;
  uint16_t multiplier;
};

uint8_t rule_entry(const ProductRule& rule, uint32_t high) {
  if (rule.negative) return static_cast<uint8_t>(0u - (high & 0xFF));
  return static_cast<uint8_t>(high < 255 ? high : 255);
}

bool rule_gives_table(const ProductRule& rule, const uint8_t* table) {
  const uint32_t step = uint32_t{rule.multiplier} << rule.shift;
  uint32_t product = 0;  // v·step, summed rather than multiplied
  for (int v = 0; v < 256; ++v, product += step) {
    if (rule_entry(rule, product >> 16) != table[v]) return false;
  }
  return true;
}

// The multipliers on either side of |factor|·2^(16 - shift), the shift the
// smallest that keeps it below 2^16; and 0, for the tables of zeros (a
// factor that is not a number, or a negative one beyond the 64-bit range).
// A factor from 256 up holds every entry but the first at 255.
bool find_product_rule(double factor, const uint8_t* table, ProductRule& rule) {
  double size = std::fabs(factor);
  double scaled = 65535.0;
  rule = {factor < 0.0, 8, 0};
  if (size < 256.0) {
    rule.shift = 0;
    while (size >= static_cast<double>(1u << rule.shift)) ++rule.shift;
    scaled = std::ldexp(size, 16 - rule.shift);
  }
  for (double multiplier : {std::ceil(scaled), std::floor(scaled), 0.0}) {
    rule.multiplier = static_cast<uint16_t>(multiplier < 65535.0 ? multiplier : 65535.0);
    if (rule_gives_table(rule, table)) return true;
  }
  return false;
}

#if VEK_X86
// 16 bytes by the rule. SSE2 has no unsigned 16-bit minimum: h - (h -sat 255) is one.
inline __m128i apply_rule_sse2(__m128i x, __m128i multiplier, __m128i shift, __m128i keep, __m128i negate) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i top = _mm_set1_epi16(255);
  __m128i low = _mm_mulhi_epu16(_mm_sll_epi16(_mm_unpacklo_epi8(x, zero), shift), multiplier);
  __m128i high = _mm_mulhi_epu16(_mm_sll_epi16(_mm_unpackhi_epi8(x, zero), shift), multiplier);
  low = _mm_and_si128(low, keep);
  high = _mm_and_si128(high, keep);
  low = _mm_sub_epi16(low, _mm_subs_epu16(low, top));
  high = _mm_sub_epi16(high, _mm_subs_epu16(high, top));
  __m128i bytes = _mm_packus_epi16(low, high);
  return _mm_sub_epi8(_mm_xor_si128(bytes, negate), negate);  // negated where negate is all ones
}

void scale_by_rule_sse2(uint8_t* data, size_t count, const ProductRule& rule, const uint8_t* table) {
  const __m128i multiplier = _mm_set1_epi16(static_cast<int16_t>(rule.multiplier));
  const __m128i shift = _mm_cvtsi32_si128(rule.shift);
  const __m128i keep = _mm_set1_epi16(rule.negative ? 0xFF : -1);
  const __m128i negate = _mm_set1_epi8(rule.negative ? -1 : 0);
  size_t at = 0;
  // main loop: 16 bytes per pass
  for (; count - at >= 16; at += 16) {
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(data + at), apply_rule_sse2(x, multiplier, shift, keep, negate));
  }
  // remainder: fewer than 16 bytes, one lookup each
  for (; at < count; ++at) data[at] = table[data[at]];
}
#endif

using ByRule = void (*)(uint8_t* data, size_t count, const ProductRule& rule, const uint8_t* table);
using ByTable = void (*)(uint8_t* data, size_t count, const uint8_t* table);

// Every level decides alike: a short run by the scalar twin; a longer one
// through the table of the 256 products (at most 256 multiplications
// whatever the length), applied by a fixed-point rule where one reproduces
// the table exactly and the level has one, else looked up.
void scale_u8_planned(uint8_t* data, size_t count, double factor, ByRule by_rule, ByTable by_table) {
  if (count < kTableFrom) {
    scale_u8_scalar(data, count, factor);
    return;
  }
  uint8_t table[256];
  build_scale_u8_table(factor, table);
  ProductRule rule;
  if (by_rule != nullptr && count >= kRuleFrom && find_product_rule(factor, table, rule)) {
    by_rule(data, count, rule, table);
    return;
  }
  by_table(data, count, table);
}

void lookup_table(uint8_t* data, size_t count, const uint8_t* table) {
  for (size_t i = 0; i < count; ++i) data[i] = table[data[i]];
}

void scale_u8_table(uint8_t* data, size_t count, double factor) noexcept {
  scale_u8_planned(data, count, factor, nullptr, lookup_table);
}

#if VEK_X86
void scale_u8_sse2(uint8_t* data, size_t count, double factor) noexcept {
  scale_u8_planned(data, count, factor, scale_by_rule_sse2, lookup_table);
}
#endif

#if VEK_X86
// Any table, as 16 slices of 16 entries for the shuffle levels, each slice
// XORed with the one before it within its half of the table (slices 0 and 8
// stay as they are). A byte x below 128 is looked up in slices 0, 1, 2, ...
// with x, x - 16, x - 32, ... (subtracted with signed saturation): the
// shuffle gives 0 for an index whose top bit is set, so only slices 0 up to
// x's own slice find something, and their XOR telescopes to x's entry. Bytes
// from 128 up do the same in slices 8..15 with x - 128.
void build_shuffle_slices(const uint8_t* table, uint8_t* slices) {
  for (int at = 0; at < 256; ++at) slices[at] = at % 128 < 16 ? table[at] : table[at] ^ table[at - 16];
}

[[gnu::target("ssse3")]] inline __m128i lookup_ssse3(__m128i x, const uint8_t* slices) {
  const __m128i step = _mm_set1_epi8(16);
  __m128i low = x;                                        // bytes from 128 up find nothing here
  __m128i high = _mm_xor_si128(x, _mm_set1_epi8(-128));  // nor bytes below 128 here
  __m128i found = _mm_setzero_si128();
  for (int k = 0; k < 8; ++k) {
    __m128i low_slice = _mm_load_si128(reinterpret_cast<const __m128i*>(slices + 16 * k));
    __m128i high_slice = _mm_load_si128(reinterpret_cast<const __m128i*>(slices + 128 + 16 * k));
    found = _mm_xor_si128(found, _mm_xor_si128(_mm_shuffle_epi8(low_slice, low), _mm_shuffle_epi8(high_slice, high)));
    low = _mm_subs_epi8(low, step);
    high = _mm_subs_epi8(high, step);
  }
  return found;
}

[[gnu::target("ssse3")]] void lookup_table_ssse3(uint8_t* data, size_t count, const uint8_t* table) {
  alignas(16) uint8_t slices[256];
  build_shuffle_slices(table, slices);
  size_t at = 0;
  // main loop: 16 bytes per pass
  for (; count - at >= 16; at += 16) {
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(data + at), lookup_ssse3(x, slices));
  }
  // remainder: fewer than 16 bytes, one lookup each
  for (; at < count; ++at) data[at] = table[data[at]];
}

void scale_u8_ssse3(uint8_t* data, size_t count, double factor) noexcept {
  scale_u8_planned(data, count, factor, scale_by_rule_sse2, lookup_table_ssse3);
}

// How the AVX2 rule turns the 16-bit h into bytes: packing with unsigned
// saturation holds h at 255 by itself while h stays below 2^15 (a shift of
// 7 or less); a shift of 8 takes a minimum first; a negative factor keeps
// the low byte and negates it.
enum class RuleEnd { Pack, HoldThenPack, NegateLowByte };

template <RuleEnd End>
[[gnu::target("avx2")]] inline __m256i apply_rule_avx2(__m256i x, __m256i multiplier, __m128i shift) {
  const __m256i zero = _mm256_setzero_si256();
  __m256i low = _mm256_mulhi_epu16(_mm256_sll_epi16(_mm256_unpacklo_epi8(x, zero), shift), multiplier);
  __m256i high = _mm256_mulhi_epu16(_mm256_sll_epi16(_mm256_unpackhi_epi8(x, zero), shift), multiplier);
  if constexpr (End == RuleEnd::HoldThenPack) {
    low = _mm256_min_epu16(low, _mm256_set1_epi16(255));
    high = _mm256_min_epu16(high, _mm256_set1_epi16(255));
  } else if constexpr (End == RuleEnd::NegateLowByte) {
    low = _mm256_and_si256(low, _mm256_set1_epi16(0xFF));
    high = _mm256_and_si256(high, _mm256_set1_epi16(0xFF));
  }
  __m256i bytes = _mm256_packus_epi16(low, high);  // unpack and pack both work within 128-bit lanes
  return End == RuleEnd::NegateLowByte ? _mm256_sub_epi8(zero, bytes) : bytes;
}

template <RuleEnd End>
[[gnu::target("avx2")]] void scale_by_rule_avx2(uint8_t* data, size_t count, const ProductRule& rule,
                                                const uint8_t* table) {
  const __m256i multiplier = _mm256_set1_epi16(static_cast<int16_t>(rule.multiplier));
  const __m128i shift = _mm_cvtsi32_si128(rule.shift);
  size_t at = 0;
  // main loop: two vectors per pass
  for (; count - at >= 64; at += 64) {
    __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + at));
    __m256i y = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + at + 32));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(data + at), apply_rule_avx2<End>(x, multiplier, shift));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(data + at + 32), apply_rule_avx2<End>(y, multiplier, shift));
  }
  // remainder: fewer than 64 bytes by the SSE2 rule, once the upper halves
  // are clean (the compiler leaves the zeroupper out; legacy SSE code after
  // dirty upper halves is slowed by a lot)
  _mm256_zeroupper();
  scale_by_rule_sse2(data + at, count - at, rule, table);
}

[[gnu::target("avx2")]] inline __m256i lookup_avx2(__m256i x, const __m256i* slices) {
  const __m256i step = _mm256_set1_epi8(16);
  __m256i low = x;
  __m256i high = _mm256_xor_si256(x, _mm256_set1_epi8(-128));
  __m256i found = _mm256_setzero_si256();
  for (int k = 0; k < 8; ++k) {
    found = _mm256_xor_si256(found, _mm256_xor_si256(_mm256_shuffle_epi8(slices[k], low),
                                                     _mm256_shuffle_epi8(slices[8 + k], high)));
    low = _mm256_subs_epi8(low, step);
    high = _mm256_subs_epi8(high, step);
  }
  return found;
}

void scale_by_any_rule_avx2(uint8_t* data, size_t count, const ProductRule& rule, const uint8_t* table) {
  if (rule.negative) scale_by_rule_avx2<RuleEnd::NegateLowByte>(data, count, rule, table);
  else if (rule.shift == 8) scale_by_rule_avx2<RuleEnd::HoldThenPack>(data, count, rule, table);
  else scale_by_rule_avx2<RuleEnd::Pack>(data, count, rule, table);
}

[[gnu::target("avx2")]] void lookup_table_avx2(uint8_t* data, size_t count, const uint8_t* table) {
  alignas(16) uint8_t slices[256];
  build_shuffle_slices(table, slices);
  __m256i wide_slices[16];  // each slice in both 128-bit lanes, as vpshufb looks up within a lane
  for (int k = 0; k < 16; ++k) {
    wide_slices[k] = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(slices + 16 * k)));
  }
  size_t at = 0;
  // main loop: 32 bytes per pass
  for (; count - at >= 32; at += 32) {
    __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + at));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(data + at), lookup_avx2(x, wide_slices));
  }
  // remainder: a 16-byte vector, then one lookup per byte
  if (count - at >= 16) {
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(data + at), lookup_ssse3(x, slices));
    at += 16;
  }
  _mm256_zeroupper();  // for the caller's SSE code
  for (; at < count; ++at) data[at] = table[data[at]];
}

void scale_u8_avx2(uint8_t* data, size_t count, double factor) noexcept {
  scale_u8_planned(data, count, factor, scale_by_any_rule_avx2, lookup_table_avx2);
}
#endif
}  // namespace

constinit KernelFamily<ScaleTable> scale_u8_kernels{
#if VEK_X86
    {Level::AVX2, {scale_u8_avx2}},
    {Level::SSSE3, {scale_u8_ssse3}},
    {Level::SSE2, {scale_u8_sse2}},
#endif
    {Level::Scalar, {scale_u8_table}},
};
}  // namespace vek

void MultiplyUInt8VEK(REALmemoryBlock block, double factor, int32_t offsetByte, int32_t lengthBytes) {
  if (refuse_nil_block_or_negative_offset(block, offsetByte)) return;
  rbBytes bytes(block);
  if (bytes.data() == nullptr) return;
  int64_t length = vek::whole_items_in_length(bytes.size(), offsetByte, lengthBytes, 1);
  if (length == 0) return;
  vek::scale_u8_kernels.best().scale(bytes.data() + offsetByte, static_cast<size_t>(length), factor);
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
#if VEK_X86

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

// Eight values in two sets of four double lanes, with only as much clamping
// as the factor needs: none up to 1.0 (the product cannot pass the value),
// a ceiling of 65535 above, and for infinity a floor of 0 too, which max
// gives also for 0 times infinity (not a number). A float product in general
// rounds where the double one does not (65535 times a factor just below 1,
// for one); see float_products_exact for the factors where it cannot.
enum class Clamp { None, Top, Both };

template <Clamp C>
[[gnu::target("avx2")]] inline __m256d clamp_avx2(__m256d product) {
  if constexpr (C == Clamp::Both) product = _mm256_max_pd(product, _mm256_setzero_pd());
  if constexpr (C != Clamp::None) product = _mm256_min_pd(product, _mm256_set1_pd(65535.0));
  return product;
}

template <Clamp C>
[[gnu::target("avx2")]] inline __m128i scale_eight_u16_avx2(__m128i values, __m256d factor) {
  __m256i wide = _mm256_cvtepu16_epi32(values);
  __m256d low = clamp_avx2<C>(_mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(wide)), factor));
  __m256d high = clamp_avx2<C>(_mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(wide, 1)), factor));
  return _mm_packus_epi32(_mm256_cvttpd_epi32(low), _mm256_cvttpd_epi32(high));
}

template <Clamp C>
[[gnu::target("avx2")]] void scale_u16_clamped_avx2(uint8_t* data, size_t count, double factor) {
  const __m256d wide_factor = _mm256_set1_pd(factor);
  size_t i = 0;
  // main loop: sixteen values per pass
  for (; count - i >= 16; i += 16) {
    uint8_t* at = data + 2 * i;
    __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(at), scale_eight_u16_avx2<C>(first, wide_factor));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(at + 16), scale_eight_u16_avx2<C>(second, wide_factor));
  }
  // remainder: fewer than sixteen values, once the upper halves are clean
  _mm256_zeroupper();
  scale_u16_sse2(data + 2 * i, count - i, factor);
}

// A factor of at most 8 significant bits, in float's normal range, times a
// value of 16 bits is exact in float's 24-bit significand as it is in
// double: for such factors (whole numbers up to 256, halves, quarters, ...)
// float lanes give the same bytes, twice as many per vector.
bool float_products_exact(double factor) {
  if (factor == 0.0) return true;
  if (!(factor >= 0x1p-100 && factor <= 0x1p100)) return false;
  int exponent;
  double significand = std::ldexp(std::frexp(factor, &exponent), 8);
  return significand == std::floor(significand);
}

template <Clamp C>
[[gnu::target("avx2")]] inline __m256i scale_sixteen_u16_float_avx2(__m256i values, __m256 factor) {
  const __m256i zero = _mm256_setzero_si256();
  __m256 low = _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_unpacklo_epi16(values, zero)), factor);
  __m256 high = _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_unpackhi_epi16(values, zero)), factor);
  if constexpr (C == Clamp::Top) {
    low = _mm256_min_ps(low, _mm256_set1_ps(65535.0f));
    high = _mm256_min_ps(high, _mm256_set1_ps(65535.0f));
  }
  // unpack and pack both work within 128-bit lanes, so the order comes back
  return _mm256_packus_epi32(_mm256_cvttps_epi32(low), _mm256_cvttps_epi32(high));
}

template <Clamp C>
[[gnu::target("avx2")]] void scale_u16_float_avx2(uint8_t* data, size_t count, double factor) {
  const __m256 narrow_factor = _mm256_set1_ps(static_cast<float>(factor));
  size_t i = 0;
  // main loop: two vectors of sixteen values per pass
  for (; count - i >= 32; i += 32) {
    uint8_t* at = data + 2 * i;
    __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
    __m256i second = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at + 32));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(at), scale_sixteen_u16_float_avx2<C>(first, narrow_factor));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(at + 32), scale_sixteen_u16_float_avx2<C>(second, narrow_factor));
  }
  // remainder: fewer than 32 values in double lanes
  scale_u16_clamped_avx2<C>(data + 2 * i, count - i, factor);
}

[[gnu::target("avx2")]] void scale_u16_avx2(uint8_t* data, size_t count, double factor) noexcept {
  if (!(factor >= 0.0)) return;
  if (count < 16) {
    scale_u16_scalar(data, count, factor);
    return;
  }
  if (float_products_exact(factor)) {
    if (factor <= 1.0) scale_u16_float_avx2<Clamp::None>(data, count, factor);
    else scale_u16_float_avx2<Clamp::Top>(data, count, factor);
    return;
  }
  if (factor <= 1.0) scale_u16_clamped_avx2<Clamp::None>(data, count, factor);
  else if (factor < HUGE_VAL) scale_u16_clamped_avx2<Clamp::Top>(data, count, factor);
  else scale_u16_clamped_avx2<Clamp::Both>(data, count, factor);
}
#endif
}  // namespace

constinit KernelFamily<ScaleTable> scale_u16_kernels{
#if VEK_X86
    {Level::AVX2, {scale_u16_avx2}},
    {Level::SSE2, {scale_u16_sse2}},
#endif
    {Level::Scalar, {scale_u16_scalar}},
};
}  // namespace vek

void MultiplyUInt16VEK(REALmemoryBlock block, double factor, int32_t offsetByte, int32_t lengthBytes) {
  if (refuse_nil_block_or_negative_offset(block, offsetByte)) return;
  rbBytes bytes(block);
  if (bytes.data() == nullptr) return;
  int64_t values = vek::whole_items_in_length(bytes.size(), offsetByte, lengthBytes, 2);
  if (values == 0) return;  // a last odd byte stays as it is
  vek::scale_u16_kernels.best().scale(bytes.data() + offsetByte, static_cast<size_t>(values), factor);
}
