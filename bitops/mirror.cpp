// Mirroring: MirrorBitsInBytesVEK reverses the bits inside each byte of a
// range, MirrorBytesVEK reverses the order of the bytes of a range, and
// MirrorBitsVEK reverses the order of the bits of a bit range that may start
// and end anywhere inside a byte. Bit 0 is the most significant bit of byte 0.
//
//   01 F0 .MirrorBitsInBytesVEK(0, 2)  -> 80 0F
//   01 02 03 04 05 .MirrorBytesVEK()   -> 05 04 03 02 01   (defaults: all of it)
//   12 34 .MirrorBitsVEK(4, 8)         -> 1C 44            (only bits 4 to 11 move)
//   40 .MirrorBitsVEK(1, 6)            -> 02               (bits 0 and 7 stay)
// A nil block raises "NilObjectException"; a length of 0 or less, a negative
// offset or one at or past the end of the block change nothing, and a range
// that runs past the end is cut back to it. A block that reports size 0 (one
// over a raw address) has no known end: the caller's range is trusted.
// Applied twice with the same arguments, each method restores the block.
#include "bitops/avx2.h"
#include "bitops/mirror.h"
#include "bitops/sse2.h"
#include "bitops/swap_bytes.h"
#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

namespace vek {
#if VEK_X86
using namespace sse2;
#endif

namespace {
// Every single bit lands on its mirror place, and every entry is the OR of
// the entries of its bits: together these fix all 256 entries.
constexpr bool swap_is_the_mirror_table() {
  for (unsigned k = 0; k < 8; ++k) {
    if (swap[1u << k] != (0x80u >> k)) return false;
  }
  for (unsigned i = 0; i < 256; ++i) {
    unsigned expected = 0;
    for (unsigned k = 0; k < 8; ++k) {
      if (i & (1u << k)) expected |= swap[1u << k];
    }
    if (swap[i] != expected) return false;
  }
  return swap[0x01] == 0x80 && swap[0x03] == 0xC0 && swap[0xF0] == 0x0F;
}
static_assert(swap_is_the_mirror_table(), "swap[i] is i with its bits reversed");
}  // namespace

// -- bits inside each byte ----------------------------------------------------------

void mirror_bits_in_bytes_scalar(uint8_t* p, size_t n) noexcept {
  for (size_t i = 0; i < n; ++i) p[i] = swap[p[i]];
}

#if VEK_X86
void mirror_bits_in_bytes_sse2(uint8_t* p, size_t n) noexcept {
  size_t i = 0;
  // main loop: sixteen bytes at a time
  for (; i + 16 <= n; i += 16) store(p + i, mirror_in_bytes(load(p + i)));
  // remainder: by the table
  mirror_bits_in_bytes_scalar(p + i, n - i);
}

[[gnu::target("ssse3")]] void mirror_bits_in_bytes_ssse3(uint8_t* p, size_t n) noexcept {
  size_t i = 0;
  // main loop: two chunks per pass
  for (; i + 32 <= n; i += 32) {
    __m128i a = load(p + i), b = load(p + i + 16);
    store(p + i, ssse3::mirror_in_bytes(a));
    store(p + i + 16, ssse3::mirror_in_bytes(b));
  }
  // remainder: a chunk, then by the table
  if (i + 16 <= n) {
    store(p + i, ssse3::mirror_in_bytes(load(p + i)));
    i += 16;
  }
  mirror_bits_in_bytes_scalar(p + i, n - i);
}

[[gnu::target("avx2")]] void mirror_bits_in_bytes_avx2(uint8_t* p, size_t n) noexcept {
  const __m256i low_table = avx2::both_lanes(ssse3::mirrored_low_nibbles());
  const __m256i high_table = avx2::both_lanes(ssse3::mirrored_high_nibbles());
  size_t i = 0;
  // main loop: four 32-byte chunks per pass
  for (; i + 128 <= n; i += 128) {
    __m256i a = avx2::load(p + i), b = avx2::load(p + i + 32);
    __m256i c = avx2::load(p + i + 64), d = avx2::load(p + i + 96);
    avx2::store(p + i, avx2::mirror_in_bytes(a, low_table, high_table));
    avx2::store(p + i + 32, avx2::mirror_in_bytes(b, low_table, high_table));
    avx2::store(p + i + 64, avx2::mirror_in_bytes(c, low_table, high_table));
    avx2::store(p + i + 96, avx2::mirror_in_bytes(d, low_table, high_table));
  }
  // remainder: 16-byte chunks, then by the table
  for (; i + 16 <= n; i += 16) store(p + i, ssse3::mirror_in_bytes(load(p + i)));
  _mm256_zeroupper();
  mirror_bits_in_bytes_scalar(p + i, n - i);
}
#endif

constinit KernelFamily<MirrorBitsInBytesTable> mirror_bits_in_bytes_kernels{
#if VEK_X86
    {Level::AVX2, {mirror_bits_in_bytes_avx2}},
    {Level::SSSE3, {mirror_bits_in_bytes_ssse3}},
    {Level::SSE2, {mirror_bits_in_bytes_sse2}},
#endif
    {Level::Scalar, {mirror_bits_in_bytes_scalar}},
};

}  // namespace vek

void MirrorBitsInBytesVEK(REALmemoryBlock block, int32_t offsetByte, int32_t lengthByte) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (lengthByte <= 0) return;
  if (offsetByte < 0) return;
  int64_t count = vek::items_trusting_unknown_size(REALMemoryBlockGetSize(block), offsetByte, lengthByte);
  if (count == 0) return;
  auto* data = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return;
  vek::mirror_bits_in_bytes_kernels.best().mirror(data + offsetByte, static_cast<size_t>(count));
}

// -- the order of the bytes (the kernel is SwapBytesVEK's reversal) ----------------

void MirrorBytesVEK(REALmemoryBlock block, int32_t offsetByte, int32_t lengthByte) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  int32_t size = REALMemoryBlockGetSize(block);
  int32_t length = lengthByte < 0 ? size : lengthByte;  // a negative length: as many bytes as the block holds
  if (length <= 0) return;
  if (offsetByte < 0) return;
  int64_t count = vek::items_trusting_unknown_size(size, offsetByte, length);
  if (count == 0) return;
  auto* data = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return;
  vek::reverse_bytes_kernels.best().reverse(data + offsetByte, static_cast<size_t>(count));
}

// -- the order of the bits of a bit range ----------------------------------------------

namespace vek {

void mirror_bits_scalar(uint8_t* p, size_t first_bit, size_t bit_count) noexcept {
  for (size_t i = 0; i < bit_count / 2; ++i) {
    size_t left = first_bit + i;
    size_t right = first_bit + bit_count - 1 - i;
    auto left_mask = static_cast<uint8_t>(0x80u >> (left % 8));
    auto right_mask = static_cast<uint8_t>(0x80u >> (right % 8));
    bool left_set = (p[left / 8] & left_mask) != 0;
    bool right_set = (p[right / 8] & right_mask) != 0;
    uint8_t r = p[right / 8];
    p[right / 8] = static_cast<uint8_t>(left_set ? r | right_mask : r & ~right_mask);
    uint8_t l = p[left / 8];  // read again: the two bits may share a byte
    p[left / 8] = static_cast<uint8_t>(right_set ? l | left_mask : l & ~left_mask);
  }
}

#if VEK_X86
namespace {
// The n bytes at p as one stream of 8n bits, put in reverse order.
void reverse_bits(uint8_t* p, size_t n) {
  size_t lo = 0;
  size_t hi = n;
  // main loop: a chunk from each end, reversed bit for bit, change places
  while (hi - lo >= 32) {
    __m128i front = load(p + lo);
    __m128i back = load(p + hi - 16);
    store(p + lo, mirror_in_bytes(reverse16(back)));
    store(p + hi - 16, mirror_in_bytes(reverse16(front)));
    lo += 16;
    hi -= 16;
  }
  // remainder: the middle, under 32 bytes
  reverse_bytes_scalar(p + lo, hi - lo);
  mirror_bits_in_bytes_scalar(p + lo, hi - lo);
}

// The bit stream of the n bytes at p moved s bits (1..7) towards its end:
// s zero bits come in at the start, the last s bits drop out. Worked from
// the end, so every byte still reads its neighbour's old bits.
void shift_towards_end(uint8_t* p, size_t n, unsigned s) {
  size_t i = n;
  // main loop: byte j takes bits from bytes j and j - 1
  while (i >= 17) {
    i -= 16;
    __m128i here = load(p + i);
    __m128i before = load(p + i - 1);
    store(p + i, _mm_or_si128(shift_bytes_right(here, s), shift_bytes_left(before, 8 - s)));
  }
  // remainder: the first bytes
  while (i > 0) {
    --i;
    unsigned carried = i > 0 ? static_cast<unsigned>(p[i - 1]) << (8 - s) : 0u;
    p[i] = static_cast<uint8_t>((p[i] >> s) | carried);
  }
}

// The same towards the start, worked from the start.
void shift_towards_start(uint8_t* p, size_t n, unsigned s) {
  size_t i = 0;
  // main loop: byte j takes bits from bytes j and j + 1
  for (; i + 17 <= n; i += 16) {
    __m128i here = load(p + i);
    __m128i after = load(p + i + 1);
    store(p + i, _mm_or_si128(shift_bytes_left(here, s), shift_bytes_right(after, 8 - s)));
  }
  // remainder: the last bytes
  for (; i < n; ++i) {
    unsigned carried = i + 1 < n ? static_cast<unsigned>(p[i + 1]) >> (8 - s) : 0u;
    p[i] = static_cast<uint8_t>((p[i] << s) | carried);
  }
}

[[gnu::target("avx2")]] void reverse_bits_avx2(uint8_t* p, size_t n) {
  const __m256i reversed = avx2::both_lanes(ssse3::reversed_order());
  const __m256i low_table = avx2::both_lanes(ssse3::mirrored_low_nibbles());
  const __m256i high_table = avx2::both_lanes(ssse3::mirrored_high_nibbles());
  size_t lo = 0;
  size_t hi = n;
  // main loop: a 32-byte chunk from each end, reversed bit for bit, change places
  while (hi - lo >= 64) {
    __m256i front = avx2::load(p + lo);
    __m256i back = avx2::load(p + hi - 32);
    avx2::store(p + lo, avx2::mirror_in_bytes(avx2::reverse32(back, reversed), low_table, high_table));
    avx2::store(p + hi - 32, avx2::mirror_in_bytes(avx2::reverse32(front, reversed), low_table, high_table));
    lo += 32;
    hi -= 32;
  }
  // remainder: the middle, under 64 bytes
  _mm256_zeroupper();  // the narrower levels run legacy SSE code
  reverse_bits(p + lo, hi - lo);
}

[[gnu::target("avx2")]] void shift_towards_end_avx2(uint8_t* p, size_t n, unsigned s) {
  size_t i = n;
  // main loop: byte j takes bits from bytes j and j - 1
  while (i >= 33) {
    i -= 32;
    __m256i here = avx2::load(p + i);
    __m256i before = avx2::load(p + i - 1);
    avx2::store(p + i, _mm256_or_si256(avx2::shift_bytes_right(here, s), avx2::shift_bytes_left(before, 8 - s)));
  }
  // remainder: the first bytes, whose neighbours after them are still as they were
  _mm256_zeroupper();  // the narrower levels run legacy SSE code
  shift_towards_end(p, i, s);
}

[[gnu::target("avx2")]] void shift_towards_start_avx2(uint8_t* p, size_t n, unsigned s) {
  size_t i = 0;
  // main loop: byte j takes bits from bytes j and j + 1
  for (; i + 33 <= n; i += 32) {
    __m256i here = avx2::load(p + i);
    __m256i after = avx2::load(p + i + 1);
    avx2::store(p + i, _mm256_or_si256(avx2::shift_bytes_left(here, s), avx2::shift_bytes_right(after, 8 - s)));
  }
  // remainder: the last bytes
  _mm256_zeroupper();  // the narrower levels run legacy SSE code
  shift_towards_start(p + i, n - i, s);
}

// The bytes the range touches, and the bits of its first and last byte that
// lie outside it.
struct BitRange {
  uint8_t* bytes;
  size_t count;
  unsigned head;  // bits before the range in its first byte
  unsigned tail;  // bits after it in its last byte
  uint8_t first;
  uint8_t last;
};

BitRange bit_range(uint8_t* p, size_t first_bit, size_t bit_count) {
  p += first_bit / 8;
  auto head = static_cast<unsigned>(first_bit % 8);
  size_t end_bit = head + bit_count;
  size_t bytes = (end_bit + 7) / 8;
  auto tail = static_cast<unsigned>(bytes * 8 - end_bit);
  return {p, bytes, head, tail, p[0], p[bytes - 1]};
}

// The bits outside the range put back.
void restore_outside(const BitRange& range) {
  uint8_t* p = range.bytes;
  auto outside_head = static_cast<uint8_t>(0xFF00u >> range.head);
  p[0] = static_cast<uint8_t>((p[0] & ~outside_head) | (range.first & outside_head));
  auto outside_tail = static_cast<uint8_t>((1u << range.tail) - 1);
  size_t last = range.count - 1;
  p[last] = static_cast<uint8_t>((p[last] & ~outside_tail) | (range.last & outside_tail));
}
}  // namespace

// Reversing every bit of the bytes the range touches leaves the range `tail`
// bits from the start instead of `head`; one shift of the whole stream puts
// it back, and the few bits outside the range are restored from the copies
// of the first and last byte. Two passes over the bytes, whatever the offset.
void mirror_bits_sse2(uint8_t* p, size_t first_bit, size_t bit_count) noexcept {
  if (bit_count < 2) return;
  BitRange range = bit_range(p, first_bit, bit_count);
  reverse_bits(range.bytes, range.count);
  if (range.head > range.tail) shift_towards_end(range.bytes, range.count, range.head - range.tail);
  if (range.tail > range.head) shift_towards_start(range.bytes, range.count, range.tail - range.head);
  restore_outside(range);
}

[[gnu::target("avx2")]] void mirror_bits_avx2(uint8_t* p, size_t first_bit, size_t bit_count) noexcept {
  if (bit_count < 2) return;
  BitRange range = bit_range(p, first_bit, bit_count);
  reverse_bits_avx2(range.bytes, range.count);
  if (range.head > range.tail) shift_towards_end_avx2(range.bytes, range.count, range.head - range.tail);
  if (range.tail > range.head) shift_towards_start_avx2(range.bytes, range.count, range.tail - range.head);
  restore_outside(range);
}
#endif

constinit KernelFamily<MirrorBitsTable> mirror_bits_kernels{
#if VEK_X86
    {Level::AVX2, {mirror_bits_avx2}},
    {Level::SSE2, {mirror_bits_sse2}},
#endif
    {Level::Scalar, {mirror_bits_scalar}},
};

}  // namespace vek

void MirrorBitsVEK(REALmemoryBlock block, int32_t offsetBit, int32_t lengthBit) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (lengthBit <= 0) return;
  if (offsetBit < 0) return;
  int64_t bits_in_block = int64_t{REALMemoryBlockGetSize(block)} * 8;
  int64_t count = vek::items_trusting_unknown_size(bits_in_block, offsetBit, lengthBit);
  if (count < 2) return;  // no pair of bits to exchange
  auto* data = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return;
  vek::mirror_bits_kernels.best().mirror(data + offsetBit / 8, static_cast<size_t>(offsetBit % 8),
                                         static_cast<size_t>(count));
}
