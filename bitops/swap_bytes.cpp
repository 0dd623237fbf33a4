// Byte swapping: SwapBytesVEK reverses the bytes of a range in place;
// SwapBytes16VEK and SwapBytes32VEK reverse the bytes of every 16-bit or
// 32-bit word in it, turning an array of integers from one byte order to the
// other. Words start at the range's first byte and need no alignment.
//
// On the 6-byte block 01 02 03 04 05 06:
//   SwapBytesVEK(0, 6)    -> 06 05 04 03 02 01
//   SwapBytesVEK(2, 100)  -> 01 02 06 05 04 03   (cut back at the end)
//   SwapBytes16VEK(1, 4)  -> 01 03 02 05 04 06   (words at odd offsets)
//   SwapBytes32VEK(0, 6)  -> 04 03 02 01 05 06   (the two bytes after the word stay)
// Nothing is ever raised. A nil block, a count of 0 or less, a negative
// offset or an offset at or past the end of the block leave it unchanged. A
// block that reports size 0 (one over a raw address) has no known end: the
// caller's range is taken as it is.
#include <cstring>

#include "bitops/avx2.h"
#include "bitops/sse2.h"
#include "bitops/swap_bytes.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

namespace vek {
#if VEK_X86
using namespace sse2;
#endif

// -- whole-range reversal -------------------------------------------------------

void reverse_bytes_scalar(uint8_t* p, size_t n) noexcept {
  if (n < 2) return;
  for (size_t i = 0, j = n - 1; i < j; ++i, --j) {
    uint8_t t = p[i];
    p[i] = p[j];
    p[j] = t;
  }
}

#if VEK_X86
void reverse_bytes_sse2(uint8_t* p, size_t n) noexcept {
  size_t lo = 0;
  size_t hi = n;
  // main loop: a chunk from each end, each reversed, change places
  while (hi - lo >= 32) {
    __m128i front = load(p + lo);
    __m128i back = load(p + hi - 16);
    store(p + lo, reverse16(back));
    store(p + hi - 16, reverse16(front));
    lo += 16;
    hi -= 16;
  }
  // remainder: the middle, under 32 bytes
  reverse_bytes_scalar(p + lo, hi - lo);
}

[[gnu::target("ssse3")]] void reverse_bytes_ssse3(uint8_t* p, size_t n) noexcept {
  const __m128i reversed = ssse3::reversed_order();
  size_t lo = 0;
  size_t hi = n;
  // main loop: two chunks from each end, each reversed, change places
  while (hi - lo >= 64) {
    __m128i front0 = load(p + lo), front1 = load(p + lo + 16);
    __m128i back0 = load(p + hi - 16), back1 = load(p + hi - 32);
    store(p + lo, ssse3::shuffle(back0, reversed));
    store(p + lo + 16, ssse3::shuffle(back1, reversed));
    store(p + hi - 16, ssse3::shuffle(front0, reversed));
    store(p + hi - 32, ssse3::shuffle(front1, reversed));
    lo += 32;
    hi -= 32;
  }
  // remainder: the middle, a chunk from each end while 32 bytes are left
  while (hi - lo >= 32) {
    __m128i front = load(p + lo);
    __m128i back = load(p + hi - 16);
    store(p + lo, ssse3::shuffle(back, reversed));
    store(p + hi - 16, ssse3::shuffle(front, reversed));
    lo += 16;
    hi -= 16;
  }
  reverse_bytes_scalar(p + lo, hi - lo);
}

[[gnu::target("avx2")]] void reverse_bytes_avx2(uint8_t* p, size_t n) noexcept {
  const __m256i reversed = avx2::both_lanes(ssse3::reversed_order());
  size_t lo = 0;
  size_t hi = n;
  // main loop: two 32-byte chunks from each end, each reversed, change places
  while (hi - lo >= 128) {
    __m256i front0 = avx2::load(p + lo), front1 = avx2::load(p + lo + 32);
    __m256i back0 = avx2::load(p + hi - 32), back1 = avx2::load(p + hi - 64);
    avx2::store(p + lo, avx2::reverse32(back0, reversed));
    avx2::store(p + lo + 32, avx2::reverse32(back1, reversed));
    avx2::store(p + hi - 32, avx2::reverse32(front0, reversed));
    avx2::store(p + hi - 64, avx2::reverse32(front1, reversed));
    lo += 64;
    hi -= 64;
  }
  // remainder: the middle, a chunk from each end while 32 bytes are left
  const __m128i reversed16 = ssse3::reversed_order();
  while (hi - lo >= 32) {
    __m128i front = load(p + lo);
    __m128i back = load(p + hi - 16);
    store(p + lo, ssse3::shuffle(back, reversed16));
    store(p + hi - 16, ssse3::shuffle(front, reversed16));
    lo += 16;
    hi -= 16;
  }
  _mm256_zeroupper();
  reverse_bytes_scalar(p + lo, hi - lo);
}
#endif

constinit KernelFamily<ReverseBytesTable> reverse_bytes_kernels{
#if VEK_X86
    {Level::AVX2, {reverse_bytes_avx2}},
    {Level::SSSE3, {reverse_bytes_ssse3}},
    {Level::SSE2, {reverse_bytes_sse2}},
#endif
    {Level::Scalar, {reverse_bytes_scalar}},
};

#if VEK_X86
// -- words of 16 and 32 bits by shuffles ------------------------------------------
namespace {
// Words of either size by one byte shuffle: four vectors per pass, then one,
// then the scalar twin.
[[gnu::target("ssse3")]] void swap_words_ssse3(uint8_t* p, size_t n, __m128i order,
                                               void (*scalar)(uint8_t*, size_t) noexcept) {
  size_t i = 0;
  // main loop: four chunks per pass
  for (; i + 64 <= n; i += 64) {
    __m128i a = load(p + i), b = load(p + i + 16), c = load(p + i + 32), d = load(p + i + 48);
    store(p + i, ssse3::shuffle(a, order));
    store(p + i + 16, ssse3::shuffle(b, order));
    store(p + i + 32, ssse3::shuffle(c, order));
    store(p + i + 48, ssse3::shuffle(d, order));
  }
  // remainder: chunks, then under 16 bytes
  for (; i + 16 <= n; i += 16) store(p + i, ssse3::shuffle(load(p + i), order));
  scalar(p + i, n - i);
}

[[gnu::target("avx2")]] void swap_words_avx2(uint8_t* p, size_t n, __m128i lane_order,
                                             void (*scalar)(uint8_t*, size_t) noexcept) {
  const __m256i order = avx2::both_lanes(lane_order);
  size_t i = 0;
  // main loop: four 32-byte chunks per pass
  for (; i + 128 <= n; i += 128) {
    __m256i a = avx2::load(p + i), b = avx2::load(p + i + 32);
    __m256i c = avx2::load(p + i + 64), d = avx2::load(p + i + 96);
    avx2::store(p + i, avx2::shuffle_in_lanes(a, order));
    avx2::store(p + i + 32, avx2::shuffle_in_lanes(b, order));
    avx2::store(p + i + 64, avx2::shuffle_in_lanes(c, order));
    avx2::store(p + i + 96, avx2::shuffle_in_lanes(d, order));
  }
  // remainder: 16-byte chunks, then under 16 bytes
  for (; i + 16 <= n; i += 16) store(p + i, ssse3::shuffle(load(p + i), lane_order));
  _mm256_zeroupper();
  scalar(p + i, n - i);
}
}  // namespace
#endif

// -- 16-bit words -----------------------------------------------------------------

void swap_bytes16_scalar(uint8_t* p, size_t n) noexcept {
  for (size_t i = 0; i + 2 <= n; i += 2) {
    uint8_t t = p[i];
    p[i] = p[i + 1];
    p[i + 1] = t;
  }
}

#if VEK_X86
void swap_bytes16_sse2(uint8_t* p, size_t n) noexcept {
  size_t chunks = n / 16;
  size_t i = 0;
  // head: the chunks beyond a multiple of four, one by one
  for (size_t k = chunks % 4; k > 0; --k, i += 16) store(p + i, swap_in_words16(load(p + i)));
  // main loop: four chunks per pass
  for (; i < chunks * 16; i += 64) {
    __m128i a = load(p + i), b = load(p + i + 16), c = load(p + i + 32), d = load(p + i + 48);
    store(p + i, swap_in_words16(a));
    store(p + i + 16, swap_in_words16(b));
    store(p + i + 32, swap_in_words16(c));
    store(p + i + 48, swap_in_words16(d));
  }
  // remainder: fewer than eight words
  swap_bytes16_scalar(p + i, n - i);
}

[[gnu::target("ssse3")]] void swap_bytes16_ssse3(uint8_t* p, size_t n) noexcept {
  swap_words_ssse3(p, n, ssse3::swap16_order(), swap_bytes16_scalar);
}

[[gnu::target("avx2")]] void swap_bytes16_avx2(uint8_t* p, size_t n) noexcept {
  swap_words_avx2(p, n, ssse3::swap16_order(), swap_bytes16_scalar);
}
#endif

constinit KernelFamily<SwapBytes16Table> swap_bytes16_kernels{
#if VEK_X86
    {Level::AVX2, {swap_bytes16_avx2}},
    {Level::SSSE3, {swap_bytes16_ssse3}},
    {Level::SSE2, {swap_bytes16_sse2}},
#endif
    {Level::Scalar, {swap_bytes16_scalar}},
};

// -- 32-bit words -----------------------------------------------------------------

void swap_bytes32_scalar(uint8_t* p, size_t n) noexcept {
  for (size_t i = 0; i + 4 <= n; i += 4) {
    uint32_t word;
    std::memcpy(&word, p + i, 4);
    word = __builtin_bswap32(word);
    std::memcpy(p + i, &word, 4);
  }
}

#if VEK_X86
void swap_bytes32_sse2(uint8_t* p, size_t n) noexcept {
  size_t pairs = n / 32;
  size_t i = 0;
  // head: a lone pair of chunks
  if (pairs % 2 != 0) {
    __m128i a = load(p), b = load(p + 16);
    store(p, swap_in_words32(a));
    store(p + 16, swap_in_words32(b));
    i = 32;
  }
  // main loop: two pairs of chunks per pass
  for (; i < pairs * 32; i += 64) {
    __m128i a = load(p + i), b = load(p + i + 16), c = load(p + i + 32), d = load(p + i + 48);
    store(p + i, swap_in_words32(a));
    store(p + i + 16, swap_in_words32(b));
    store(p + i + 32, swap_in_words32(c));
    store(p + i + 48, swap_in_words32(d));
  }
  // remainder: fewer than eight words
  swap_bytes32_scalar(p + i, n - i);
}

[[gnu::target("ssse3")]] void swap_bytes32_ssse3(uint8_t* p, size_t n) noexcept {
  swap_words_ssse3(p, n, ssse3::swap32_order(), swap_bytes32_scalar);
}

[[gnu::target("avx2")]] void swap_bytes32_avx2(uint8_t* p, size_t n) noexcept {
  swap_words_avx2(p, n, ssse3::swap32_order(), swap_bytes32_scalar);
}
#endif

constinit KernelFamily<SwapBytes32Table> swap_bytes32_kernels{
#if VEK_X86
    {Level::AVX2, {swap_bytes32_avx2}},
    {Level::SSSE3, {swap_bytes32_ssse3}},
    {Level::SSE2, {swap_bytes32_sse2}},
#endif
    {Level::Scalar, {swap_bytes32_scalar}},
};

}  // namespace vek

// -- the methods ------------------------------------------------------------------

namespace {
struct SwapRange {
  uint8_t* start = nullptr;
  size_t count = 0;  // 0: nothing to do
};

// The range the three swaps share, resolved in the one order they share.
SwapRange swap_range(REALmemoryBlock block, int32_t offset, int32_t numBytes) {
  auto* data = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  int32_t size = REALMemoryBlockGetSize(block);
  if (numBytes <= 0) return {};
  if (offset < 0) return {};
  int64_t count = vek::items_trusting_unknown_size(size, offset, numBytes);
  if (count == 0) return {};
  if (data == nullptr) return {};
  return {data + offset, static_cast<size_t>(count)};
}
}  // namespace

void swapBytes(REALmemoryBlock block, int32_t offset, int32_t numBytes) {
  SwapRange range = swap_range(block, offset, numBytes);
  if (range.count == 0) return;
  vek::reverse_bytes_kernels.best().reverse(range.start, range.count);
}

void swapBytes16(REALmemoryBlock block, int32_t offset, int32_t numBytes) {
  SwapRange range = swap_range(block, offset, numBytes);
  if (range.count == 0) return;
  vek::swap_bytes16_kernels.best().swap(range.start, range.count);
}

void swapBytes32(REALmemoryBlock block, int32_t offset, int32_t numBytes) {
  SwapRange range = swap_range(block, offset, numBytes);
  if (range.count == 0) return;
  vek::swap_bytes32_kernels.best().swap(range.start, range.count);
}
