// ConvertRGB12BitTo8BitVEK(Width): packed 12-bit RGB data at the start of the
// block becomes 8-bit RGB in place, keeping the upper 8 bits of every sample.
//
// Two samples fill three bytes, most significant bits first; a group is nine
// bytes (two pixels) and gives six:
//   AB CD EF 12 34 56 78 9A BC  ->  AB DE 12 45 78 AB
// Group g is read from bytes 9g..9g+8 and written to 6g..6g+5, so bytes
// 6·Width..9·Width-1 keep the packed bytes that stood there. A Width of 0 or
// less converts nothing; a nil block raises "NilObjectException". Only the
// whole groups inside the block are converted; a block of size 0 (over a raw
// address) is trusted with all `Width` groups.
#include "colour_signal/rgb12.h"

#if VEK_X86
#include <immintrin.h>
#endif

#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/ranges.h"
#include "frame/rb_bytes.h"

void Convert12BitTo8Bit(REALmemoryBlock block, int32_t width) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  rbBytes bytes(block);
  if (width <= 0 || bytes.data() == nullptr) return;
  int64_t groups = vek::items_trusting_unknown_size(bytes.size(), 0, width, 9);  // whole groups of 9 bytes
  vek::rgb12_kernels.best().convert(bytes.data(), bytes.data(), static_cast<size_t>(groups));
}

namespace vek {

void rgb12_to_rgb8_scalar(const uint8_t* in, uint8_t* out, size_t groups) noexcept {
  for (size_t g = 0; g < groups; ++g, in += 9, out += 6) {
    uint8_t b[9];
    std::memcpy(b, in, sizeof b);  // the whole group before its first output byte
    out[0] = b[0];
    out[1] = static_cast<uint8_t>((b[1] << 4) | (b[2] >> 4));
    out[2] = b[3];
    out[3] = static_cast<uint8_t>((b[4] << 4) | (b[5] >> 4));
    out[4] = b[6];
    out[5] = static_cast<uint8_t>((b[7] << 4) | (b[8] >> 4));
  }
}

#if VEK_X86
namespace {
// Each 64-bit lane holds two packed triples in its bytes 0..5 (bytes 6 and 7
// are ignored); the lane's low four bytes become their four output bytes and
// its high four bytes 0.
__m128i pairs_to_rgb8(__m128i v) {
  const __m128i firsts = _mm_set1_epi64x(0x00000000FF0000FF);      // bytes 0 and 3 stay
  const __m128i high_nibbles = _mm_set1_epi64x(0x000000F00000F000);  // low nibbles of 1 and 4, moved up
  const __m128i low_nibbles = _mm_set1_epi64x(0x0000000F00000F00);   // high nibbles of 2 and 5, moved down
  __m128i t = _mm_or_si128(_mm_and_si128(v, firsts),
                           _mm_or_si128(_mm_and_si128(_mm_slli_epi64(v, 4), high_nibbles),
                                        _mm_and_si128(_mm_srli_epi64(v, 12), low_nibbles)));
  // bytes 0, 1, 3, 4 now hold the outputs; close the gap at byte 2
  return _mm_or_si128(_mm_and_si128(t, _mm_set1_epi64x(0xFFFF)),
                      _mm_and_si128(_mm_srli_epi64(t, 8), _mm_set1_epi64x(0xFFFF0000)));
}

__m128i load8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }

// Eight triples, in[0..23], to out[0..15]. Every load stays inside the 24
// bytes and comes before the store, so out may be in.
void eight_triples_sse2(const uint8_t* in, uint8_t* out) {
  __m128i pair0 = load8(in);
  __m128i pair1 = load8(in + 6);
  __m128i pair2 = load8(in + 12);
  __m128i pair3 = _mm_srli_epi64(load8(in + 16), 16);  // bytes 18..23 without reading past 23
  __m128i even = pairs_to_rgb8(_mm_unpacklo_epi64(pair0, pair2));
  __m128i odd = pairs_to_rgb8(_mm_unpacklo_epi64(pair1, pair3));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(even, _mm_slli_epi64(odd, 32)));
}
}  // namespace

// Eight groups per turn: three runs of eight triples, 72 bytes in, 48 out.
// Writing run r (out + 16r) never reaches an unread input (in + 24r on), as
// 16r + 16 <= 24r + 24 even when out is in.
void rgb12_to_rgb8_sse2(const uint8_t* in, uint8_t* out, size_t groups) noexcept {
  size_t g = 0;
  // main loop
  for (; g + 8 <= groups; g += 8, in += 72, out += 48) {
    eight_triples_sse2(in, out);
    eight_triples_sse2(in + 24, out + 16);
    eight_triples_sse2(in + 48, out + 32);
  }
  // remainder
  rgb12_to_rgb8_scalar(in, out, groups - g);
}

// The byte shuffles: a triple b0 b1 b2 gives b0 and (b1 << 4 | b2 >> 4),
// the high byte of the 16-bit lane (b2, b1) shifted left by 4. One shuffle
// gathers, from 16 bytes, four triples' lanes (b2, b1) into its low half and
// their b0 into its high half.
namespace {
// From in[0..15], the triples at 0, 3, 6, 9.
[[gnu::target("ssse3")]] __m128i first_four_triples() {
  return _mm_setr_epi8(2, 1, 5, 4, 8, 7, 11, 10, 0, -128, 3, -128, 6, -128, 9, -128);
}
// From in[8..23], the triples at 12, 15, 18, 21 (a load that ends where the
// eight triples end).
[[gnu::target("ssse3")]] __m128i last_four_triples() {
  return _mm_setr_epi8(6, 5, 9, 8, 12, 11, 15, 14, 4, -128, 7, -128, 10, -128, 13, -128);
}

// Two gathered halves (four triples each) to their eight output pairs.
[[gnu::target("ssse3")]] __m128i joined_pairs(__m128i first, __m128i last) {
  __m128i lanes = _mm_unpacklo_epi64(first, last);
  __m128i leads = _mm_unpackhi_epi64(first, last);
  return _mm_or_si128(_mm_and_si128(_mm_slli_epi16(lanes, 4), _mm_set1_epi16(static_cast<int16_t>(0xFF00))), leads);
}

// Eight triples, in[0..23], to out[0..15]; both loads come before the store.
[[gnu::target("ssse3")]] void eight_triples_ssse3(const uint8_t* in, uint8_t* out) {
  __m128i first = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)), first_four_triples());
  __m128i last = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 8)), last_four_triples());
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), joined_pairs(first, last));
}

// Sixteen triples, in[0..47], to out[0..31]: eight in each 128-bit lane, the
// lanes loaded as in[0..15] | in[24..39] and in[8..23] | in[32..47].
[[gnu::target("avx2")]] void sixteen_triples_avx2(const uint8_t* in, uint8_t* out) {
  const __m256i first_mask = _mm256_broadcastsi128_si256(first_four_triples());
  const __m256i last_mask = _mm256_broadcastsi128_si256(last_four_triples());
  __m256i first = _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(in + 24), reinterpret_cast<const __m128i*>(in));
  __m256i last =
      _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(in + 32), reinterpret_cast<const __m128i*>(in + 8));
  first = _mm256_shuffle_epi8(first, first_mask);
  last = _mm256_shuffle_epi8(last, last_mask);
  __m256i lanes = _mm256_unpacklo_epi64(first, last);
  __m256i leads = _mm256_unpackhi_epi64(first, last);
  __m256i pairs = _mm256_or_si256(
      _mm256_and_si256(_mm256_slli_epi16(lanes, 4), _mm256_set1_epi16(static_cast<int16_t>(0xFF00))), leads);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), pairs);
}
}  // namespace

// Eight groups per turn, as the SSE2 level: out + 16r never reaches the
// unread in + 24(r + 1).
[[gnu::target("ssse3")]] void rgb12_to_rgb8_ssse3(const uint8_t* in, uint8_t* out, size_t groups) noexcept {
  size_t g = 0;
  // main loop
  for (; g + 8 <= groups; g += 8, in += 72, out += 48) {
    eight_triples_ssse3(in, out);
    eight_triples_ssse3(in + 24, out + 16);
    eight_triples_ssse3(in + 48, out + 32);
  }
  // remainder
  rgb12_to_rgb8_scalar(in, out, groups - g);
}

// Sixteen groups per turn: three runs of sixteen triples, 144 bytes in, 96
// out; run r writes out + 32r .. +31, below the unread in + 48(r + 1).
[[gnu::target("avx2")]] void rgb12_to_rgb8_avx2(const uint8_t* in, uint8_t* out, size_t groups) noexcept {
  size_t g = 0;
  // main loop
  for (; g + 16 <= groups; g += 16, in += 144, out += 96) {
    sixteen_triples_avx2(in, out);
    sixteen_triples_avx2(in + 48, out + 32);
    sixteen_triples_avx2(in + 96, out + 64);
  }
  // remainder: eight groups in 16-byte vectors, then the twin
  if (g + 8 <= groups) {
    eight_triples_ssse3(in, out);
    eight_triples_ssse3(in + 24, out + 16);
    eight_triples_ssse3(in + 48, out + 32);
    g += 8, in += 72, out += 48;
  }
  _mm256_zeroupper();  // the twin may be compiled to legacy SSE code
  rgb12_to_rgb8_scalar(in, out, groups - g);
}
#endif

constinit KernelFamily<Rgb12Table> rgb12_kernels{
#if VEK_X86
    {Level::AVX2, {rgb12_to_rgb8_avx2}},
    {Level::SSSE3, {rgb12_to_rgb8_ssse3}},
    {Level::SSE2, {rgb12_to_rgb8_sse2}},
#endif
    {Level::Scalar, {rgb12_to_rgb8_scalar}},
};

}  // namespace vek
