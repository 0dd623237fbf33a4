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

#include <emmintrin.h>

#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/rb_bytes.h"

void Convert12BitTo8Bit(REALmemoryBlock block, int32_t width) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  rbBytes bytes(block);
  if (width <= 0 || bytes.data() == nullptr) return;
  size_t groups = static_cast<size_t>(width);
  size_t fit = static_cast<size_t>(bytes.size()) / 9;
  if (bytes.size() > 0 && fit < groups) groups = fit;  // size 0: the caller's Width is trusted
  vek::rgb12_to_rgb8_sse2(bytes.data(), bytes.data(), groups);
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

}  // namespace vek
