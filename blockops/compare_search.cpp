// Compare and search: BytesEqualVEK, BytesZeroVEK, FindByteVEK,
// FindNotByteVEK, FindStringVEK and FindBytesVEK read the receiver's bytes
// and change nothing. Positions are counted from the start of the block.
//
// On the 8-byte block 00 00 07 01 02 07 01 02:
//   FindByteVEK(3, 5, 7)         -> 5      FindNotByteVEK(0, 8, 0) -> 2
//   BytesZeroVEK(0, 2)           -> true   BytesZeroVEK(0, 3)      -> false
//   FindBytesVEK(0, 0, t, 0, 0)  -> 2      (t = 07 01 02; maxBytes 0: to the end)
//   FindBytesVEK(0, 4, t, 0, 0)  -> -1     (the occurrence at 2 ends past byte 3)
//   BytesEqualVEK(3, 2, b, 6)    -> true   (01 02 against 01 02, b the block itself)
// Nothing is raised. A refused call gives false or -1, and the two
// substring searches give -2 for arguments they cannot use.
//
// Ranges are bounded by each block's own size when the host knows it (above
// 0): a run that starts outside is refused, one that runs past the end is cut
// back to it. A block of size 0 (made over a raw address) is trusted with the
// caller's range. A block whose host reports a negative size is refused.
#include "blockops/compare_search.h"

#if VEK_X86
#include <emmintrin.h>
#include <immintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstring>

#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"
#include "frame/rb_bytes.h"

namespace {
#if VEK_X86
inline __m128i load16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// An aligned load can be folded into the compare that uses it (an SSE2
// memory operand must be aligned), which saves an instruction per vector.
inline __m128i load16_aligned(const uint8_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }

// Where the main loops start once the first 16 bytes were done unaligned: the
// first 16-byte boundary after `p` (1 to 16 bytes on; a few bytes are looked
// at twice, which changes no answer).
inline size_t aligned_start(const uint8_t* p) { return 16 - reinterpret_cast<uintptr_t>(p) % 16; }

inline uint32_t byte_mask(__m128i v) { return static_cast<uint32_t>(_mm_movemask_epi8(v)); }

// Four 16-byte masks as one 64-bit mask, first byte lowest.
inline uint64_t byte_mask64(__m128i a, __m128i b, __m128i c, __m128i d) {
  return uint64_t{byte_mask(a)} | uint64_t{byte_mask(b)} << 16 | uint64_t{byte_mask(c)} << 32 |
         uint64_t{byte_mask(d)} << 48;
}

// Helpers of the AVX2 levels, compiled for AVX2 and inlined into them only,
// so that no AVX2 instruction runs unless a family chose that level.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i load32(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

[[gnu::target("avx2"), gnu::always_inline]] inline __m256i load32_aligned(const uint8_t* p) {
  return _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
}

[[gnu::target("avx2"), gnu::always_inline]] inline uint32_t byte_mask32(__m256i v) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(v));
}

[[gnu::target("avx2"), gnu::always_inline]] inline bool all_zero32(__m256i v) { return _mm256_testz_si256(v, v) != 0; }

// The AVX2 levels clear the upper halves of the wide registers before they
// hand a tail to SSE2 code: SSE2 instructions that meet dirty upper halves
// cost hundreds of cycles on some CPUs (about 110 ns a call here).
//
// The first 32-byte boundary after `p`, 1 to 32 bytes on (the AVX2 levels do
// their first 32 bytes unaligned, then go on from there).
inline size_t aligned_start32(const uint8_t* p) { return 32 - reinterpret_cast<uintptr_t>(p) % 32; }
#endif

// A position found by a kernel in the rest of the range, from its start.
inline size_t found_after(size_t start, size_t found) { return found == vek::kNotFound ? found : start + found; }

// How many of `count` (above 0) bytes from `offset` a scan may read, or -1
// when it may read none; in a block of unknown size, short of positions an
// Integer cannot hold.
int32_t scan_count(int32_t size, int32_t offset, int32_t count) {
  if (offset < 0) return -1;
  int64_t run = vek::run_refusing_negative_size(size, offset, count);
  if (run == 0) return -1;
  return static_cast<int32_t>(std::min(run, int64_t{INT32_MAX} - offset + 1));
}

const uint8_t* block_data(REALmemoryBlock block) {
  return static_cast<const uint8_t*>(REALMemoryBlockGetPtr(block));  // null for a nil block
}
}  // namespace

// -- FindByteVEK, FindNotByteVEK ---------------------------------------------

namespace vek {
namespace {
// FindByteVEK looks for the first byte equal to the value (kEqual), and
// FindNotByteVEK for the first that differs: one loop, two tests.
template <bool kEqual>
size_t first_scalar(const uint8_t* data, size_t size, uint8_t value) noexcept {
  for (size_t i = 0; i < size; ++i) {
    if ((data[i] == value) == kEqual) return i;
  }
  return kNotFound;
}

#if VEK_X86
template <bool kEqual>
size_t first_sse2(const uint8_t* data, size_t size, uint8_t value) noexcept {
  if (size < 16) return first_scalar<kEqual>(data, size, value);
  const __m128i wanted = _mm_set1_epi8(static_cast<char>(value));
  auto hits = [&](__m128i v) { return byte_mask(_mm_cmpeq_epi8(v, wanted)) ^ (kEqual ? 0u : 0xFFFFu); };
  // head: the first 16 bytes, then on from a boundary
  uint32_t head = hits(load16(data));
  if (head != 0) return static_cast<size_t>(std::countr_zero(head));
  size_t i = aligned_start(data);
  // main loop: 64 bytes a round, one branch for the four compares (a lane of
  // 0 in the and of the compares is a differing byte)
  for (; i + 64 <= size; i += 64) {
    __m128i a = _mm_cmpeq_epi8(load16_aligned(data + i), wanted);
    __m128i b = _mm_cmpeq_epi8(load16_aligned(data + i + 16), wanted);
    __m128i c = _mm_cmpeq_epi8(load16_aligned(data + i + 32), wanted);
    __m128i d = _mm_cmpeq_epi8(load16_aligned(data + i + 48), wanted);
    if constexpr (kEqual) {
      if (byte_mask(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) != 0) break;  // found below
    } else {
      if (byte_mask(_mm_and_si128(_mm_and_si128(a, b), _mm_and_si128(c, d))) != 0xFFFF) break;
    }
  }
  // whole vectors left, and the round that holds a match
  for (; i + 16 <= size; i += 16) {
    uint32_t mask = hits(load16_aligned(data + i));
    if (mask != 0) return i + static_cast<size_t>(std::countr_zero(mask));
  }
  // remainder
  return found_after(i, first_scalar<kEqual>(data + i, size - i, value));
}

// The lanes that end the search, as a mask of bytes.
template <bool kEqual>
[[gnu::target("avx2"), gnu::always_inline]] inline uint32_t hits32(__m256i v, __m256i wanted) {
  return byte_mask32(_mm256_cmpeq_epi8(v, wanted)) ^ (kEqual ? 0u : ~0u);
}

template <bool kEqual>
[[gnu::target("avx2")]] size_t first_avx2(const uint8_t* data, size_t size, uint8_t value) noexcept {
  if (size < 32) return first_sse2<kEqual>(data, size, value);
  const __m256i wanted = _mm256_set1_epi8(static_cast<char>(value));
  // head: the first 32 bytes, then on from a boundary
  uint32_t head = hits32<kEqual>(load32(data), wanted);
  if (head != 0) return static_cast<size_t>(std::countr_zero(head));
  size_t i = aligned_start32(data);
  // main loop: 128 bytes a round, one test for the four compares
  for (; i + 128 <= size; i += 128) {
    __m256i a = _mm256_cmpeq_epi8(load32_aligned(data + i), wanted);
    __m256i b = _mm256_cmpeq_epi8(load32_aligned(data + i + 32), wanted);
    __m256i c = _mm256_cmpeq_epi8(load32_aligned(data + i + 64), wanted);
    __m256i d = _mm256_cmpeq_epi8(load32_aligned(data + i + 96), wanted);
    if constexpr (kEqual) {
      if (!all_zero32(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d)))) break;  // found below
    } else {
      if (~byte_mask32(_mm256_and_si256(_mm256_and_si256(a, b), _mm256_and_si256(c, d))) != 0) break;
    }
  }
  // whole vectors left, and the round that holds a match
  for (; i + 32 <= size; i += 32) {
    uint32_t mask = hits32<kEqual>(load32_aligned(data + i), wanted);
    if (mask != 0) return i + static_cast<size_t>(std::countr_zero(mask));
  }
  // remainder, fewer than 32 bytes, by the SSE2 level
  _mm256_zeroupper();
  return found_after(i, first_sse2<kEqual>(data + i, size - i, value));
}
#endif
}  // namespace

size_t find_byte_scalar(const uint8_t* data, size_t size, uint8_t value) noexcept {
  return first_scalar<true>(data, size, value);
}
#if VEK_X86
size_t find_byte_sse2(const uint8_t* data, size_t size, uint8_t value) noexcept {
  return first_sse2<true>(data, size, value);
}
size_t find_byte_avx2(const uint8_t* data, size_t size, uint8_t value) noexcept {
  return first_avx2<true>(data, size, value);
}
#endif
size_t find_not_byte_scalar(const uint8_t* data, size_t size, uint8_t value) noexcept {
  return first_scalar<false>(data, size, value);
}
#if VEK_X86
size_t find_not_byte_sse2(const uint8_t* data, size_t size, uint8_t value) noexcept {
  return first_sse2<false>(data, size, value);
}
size_t find_not_byte_avx2(const uint8_t* data, size_t size, uint8_t value) noexcept {
  return first_avx2<false>(data, size, value);
}
#endif

constinit KernelFamily<FindByteTable> find_byte_kernels{
#if VEK_X86
    {Level::AVX2, {find_byte_avx2}},
    {Level::SSE2, {find_byte_sse2}},
#endif
    {Level::Scalar, {find_byte_scalar}},
};
constinit KernelFamily<FindNotByteTable> find_not_byte_kernels{
#if VEK_X86
    {Level::AVX2, {find_not_byte_avx2}},
    {Level::SSE2, {find_not_byte_sse2}},
#endif
    {Level::Scalar, {find_not_byte_scalar}},
};
}  // namespace vek

namespace {
// The two byte searches differ only in their kernel.
int32_t find_in_block(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, int32_t byteValue,
                      size_t (*kernel)(const uint8_t*, size_t, uint8_t) noexcept) {
  if (block == nullptr) return -1;
  const uint8_t* data = block_data(block);
  if (data == nullptr) return -1;
  if (numBytes <= 0) return -1;
  int32_t count = scan_count(REALMemoryBlockGetSize(block), srcOfs, numBytes);
  if (count < 0) return -1;
  size_t found = kernel(data + srcOfs, static_cast<size_t>(count), static_cast<uint8_t>(byteValue));
  return found == vek::kNotFound ? -1 : srcOfs + static_cast<int32_t>(found);
}
}  // namespace

int32_t FindByteVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, int32_t byteValue) {
  return find_in_block(block, srcOfs, numBytes, byteValue, vek::find_byte_kernels.best().find_byte);
}

int32_t FindNotByteVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, int32_t byteValue) {
  return find_in_block(block, srcOfs, numBytes, byteValue, vek::find_not_byte_kernels.best().find_not_byte);
}

// -- BytesZeroVEK ------------------------------------------------------------

namespace vek {
bool all_zero_scalar(const uint8_t* data, size_t size) noexcept {
  for (size_t i = 0; i < size; ++i) {
    if (data[i] != 0) return false;
  }
  return true;
}

#if VEK_X86
bool all_zero_sse2(const uint8_t* data, size_t size) noexcept {
  if (size < 16) return all_zero_scalar(data, size);
  const __m128i zero = _mm_setzero_si128();
  // head: the first 16 bytes, then on from a boundary
  if (byte_mask(_mm_cmpeq_epi8(load16(data), zero)) != 0xFFFF) return false;
  size_t i = aligned_start(data);
  // main loop: 64 bytes or-ed together, one test a round
  for (; i + 64 <= size; i += 64) {
    __m128i any = _mm_or_si128(_mm_or_si128(load16_aligned(data + i), load16_aligned(data + i + 16)),
                               _mm_or_si128(load16_aligned(data + i + 32), load16_aligned(data + i + 48)));
    if (byte_mask(_mm_cmpeq_epi8(any, zero)) != 0xFFFF) return false;
  }
  // whole vectors left
  for (; i + 16 <= size; i += 16) {
    if (byte_mask(_mm_cmpeq_epi8(load16_aligned(data + i), zero)) != 0xFFFF) return false;
  }
  // remainder
  return all_zero_scalar(data + i, size - i);
}

[[gnu::target("avx2")]] bool all_zero_avx2(const uint8_t* data, size_t size) noexcept {
  if (size < 32) return all_zero_sse2(data, size);
  // head: the first 32 bytes, then on from a boundary
  if (!all_zero32(load32(data))) return false;
  size_t i = aligned_start32(data);
  // main loop: 128 bytes or-ed together, one test a round
  for (; i + 128 <= size; i += 128) {
    __m256i any = _mm256_or_si256(_mm256_or_si256(load32_aligned(data + i), load32_aligned(data + i + 32)),
                                  _mm256_or_si256(load32_aligned(data + i + 64), load32_aligned(data + i + 96)));
    if (!all_zero32(any)) return false;
  }
  // whole vectors left
  for (; i + 32 <= size; i += 32) {
    if (!all_zero32(load32_aligned(data + i))) return false;
  }
  // remainder, fewer than 32 bytes, by the SSE2 level
  _mm256_zeroupper();
  return all_zero_sse2(data + i, size - i);
}
#endif

constinit KernelFamily<AllZeroTable> all_zero_kernels{
#if VEK_X86
    {Level::AVX2, {all_zero_avx2}},
    {Level::SSE2, {all_zero_sse2}},
#endif
    {Level::Scalar, {all_zero_scalar}},
};
}  // namespace vek

bool BytesZeroVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes) {
  if (block == nullptr) return false;
  const uint8_t* data = block_data(block);
  if (data == nullptr) return false;
  if (numBytes <= 0) return true;  // no bytes, none of them non-zero
  int32_t count = scan_count(REALMemoryBlockGetSize(block), srcOfs, numBytes);
  if (count < 0) return false;
  return vek::all_zero_kernels.best().all_zero(data + srcOfs, static_cast<size_t>(count));
}

// -- BytesEqualVEK -------------------------------------------------------------

namespace vek {
bool bytes_equal_scalar(const uint8_t* a, const uint8_t* b, size_t size) noexcept {
  for (size_t i = 0; i < size; ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

#if VEK_X86
bool bytes_equal_sse2(const uint8_t* a, const uint8_t* b, size_t size) noexcept {
  if (size < 16) return bytes_equal_scalar(a, b, size);
  // head: the first 16 bytes, then on from a boundary of `a` (`b` stays unaligned)
  if (byte_mask(_mm_cmpeq_epi8(load16(a), load16(b))) != 0xFFFF) return false;
  size_t i = aligned_start(a);
  // main loop: 64 bytes a round, the four compares and-ed into one test
  for (; i + 64 <= size; i += 64) {
    __m128i e0 = _mm_cmpeq_epi8(load16_aligned(a + i), load16(b + i));
    __m128i e1 = _mm_cmpeq_epi8(load16_aligned(a + i + 16), load16(b + i + 16));
    __m128i e2 = _mm_cmpeq_epi8(load16_aligned(a + i + 32), load16(b + i + 32));
    __m128i e3 = _mm_cmpeq_epi8(load16_aligned(a + i + 48), load16(b + i + 48));
    if (byte_mask(_mm_and_si128(_mm_and_si128(e0, e1), _mm_and_si128(e2, e3))) != 0xFFFF) return false;
  }
  // whole vectors left
  for (; i + 16 <= size; i += 16) {
    if (byte_mask(_mm_cmpeq_epi8(load16_aligned(a + i), load16(b + i))) != 0xFFFF) return false;
  }
  // remainder
  return bytes_equal_scalar(a + i, b + i, size - i);
}

// A lane that differs leaves bits in the exclusive or of the two vectors.
[[gnu::target("avx2")]] bool bytes_equal_avx2(const uint8_t* a, const uint8_t* b, size_t size) noexcept {
  if (size < 32) return bytes_equal_sse2(a, b, size);
  // head: the first 32 bytes, then on from a boundary of `a` (`b` stays unaligned)
  if (!all_zero32(_mm256_xor_si256(load32(a), load32(b)))) return false;
  size_t i = aligned_start32(a);
  // main loop: 128 bytes a round, the four differences or-ed into one test
  for (; i + 128 <= size; i += 128) {
    __m256i d0 = _mm256_xor_si256(load32_aligned(a + i), load32(b + i));
    __m256i d1 = _mm256_xor_si256(load32_aligned(a + i + 32), load32(b + i + 32));
    __m256i d2 = _mm256_xor_si256(load32_aligned(a + i + 64), load32(b + i + 64));
    __m256i d3 = _mm256_xor_si256(load32_aligned(a + i + 96), load32(b + i + 96));
    if (!all_zero32(_mm256_or_si256(_mm256_or_si256(d0, d1), _mm256_or_si256(d2, d3)))) return false;
  }
  // whole vectors left
  for (; i + 32 <= size; i += 32) {
    if (!all_zero32(_mm256_xor_si256(load32_aligned(a + i), load32(b + i)))) return false;
  }
  // remainder, fewer than 32 bytes, by the SSE2 level
  _mm256_zeroupper();
  return bytes_equal_sse2(a + i, b + i, size - i);
}
#endif

constinit KernelFamily<BytesEqualTable> bytes_equal_kernels{
#if VEK_X86
    {Level::AVX2, {bytes_equal_avx2}},
    {Level::SSE2, {bytes_equal_sse2}},
#endif
    {Level::Scalar, {bytes_equal_scalar}},
};
}  // namespace vek

namespace {
// Whether `count` (above 0) bytes from `offset` lie wholly within a block.
bool run_fits(int32_t size, int32_t offset, int32_t count) {
  return vek::run_refusing_negative_size(size, offset, count) == count;
}
}  // namespace

// A run that reaches past the end of either block is not equal to anything:
// the bytes it would need are not there.
bool BytesEqualVEK(REALmemoryBlock block, int32_t srcOfs, int32_t numBytes, REALmemoryBlock destBlk,
                   int32_t destOfs) {
  if (block == nullptr || destBlk == nullptr) return false;
  const uint8_t* data = block_data(block);
  const uint8_t* dest = block_data(destBlk);
  if (data == nullptr || dest == nullptr) return false;
  if (numBytes == 0) return true;
  if (numBytes < 0 || srcOfs < 0 || destOfs < 0) return false;
  if (!run_fits(REALMemoryBlockGetSize(block), srcOfs, numBytes)) return false;
  if (!run_fits(REALMemoryBlockGetSize(destBlk), destOfs, numBytes)) return false;
  return vek::bytes_equal_kernels.best().bytes_equal(data + srcOfs, dest + destOfs, static_cast<size_t>(numBytes));
}

// -- FindStringVEK, FindBytesVEK -----------------------------------------------

namespace vek {
// Every start position in turn; the rest of the target is compared only
// after its first byte matched.
size_t find_bytes_scalar(const uint8_t* data, size_t size, const uint8_t* target, size_t length) noexcept {
  if (length == 0) return 0;
  if (length > size) return kNotFound;
  const size_t last = size - length;
  for (size_t p = 0; p <= last; ++p) {
    if (data[p] != target[0]) continue;
    size_t k = 1;
    while (k < length && data[p + k] == target[k]) ++k;
    if (k == length) return p;
  }
  return kNotFound;
}

#if VEK_X86
// A start position is a candidate when both the target's first and its last
// byte match there; only candidates are compared in full, lowest first, so
// the first occurrence is the one found.
namespace {
// The SSE2 search proper, for targets of 2 bytes or more and 16 positions or
// more; kept out of line so that a short search does not pay for its setup.
[[gnu::noinline]] size_t find_bytes_sse2_wide(const uint8_t* data, size_t size, const uint8_t* target,
                                              size_t length) noexcept {
  const __m128i first = _mm_set1_epi8(static_cast<char>(target[0]));
  const __m128i last = _mm_set1_epi8(static_cast<char>(target[length - 1]));
  auto candidates = [&](__m128i starts, size_t at) {  // 16 start positions from `at`
    return _mm_and_si128(_mm_cmpeq_epi8(starts, first), _mm_cmpeq_epi8(load16(data + at + length - 1), last));
  };
  auto aligned_candidates = [&](size_t at) { return candidates(load16_aligned(data + at), at); };
  auto confirm = [&](size_t at, uint64_t mask) {  // the first candidate that is a match
    for (; mask != 0; mask &= mask - 1) {
      size_t p = at + static_cast<size_t>(std::countr_zero(mask));
      if (std::memcmp(data + p + 1, target + 1, length - 2) == 0) return p;
    }
    return kNotFound;
  };
  const size_t positions = size - length + 1;
  // head: the first 16 positions, then on from a boundary
  size_t found = confirm(0, byte_mask(candidates(load16(data), 0)));
  if (found != kNotFound) return found;
  size_t i = aligned_start(data);
  // main loop: 64 positions a round; every load ends within the range while
  // i + 64 <= positions
  for (; i + 64 <= positions; i += 64) {
    __m128i a = aligned_candidates(i), b = aligned_candidates(i + 16), c = aligned_candidates(i + 32),
            d = aligned_candidates(i + 48);
    if (byte_mask(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0) continue;
    found = confirm(i, byte_mask64(a, b, c, d));
    if (found != kNotFound) return found;
  }
  // 16 positions a round
  for (; i + 16 <= positions; i += 16) {
    found = confirm(i, byte_mask(aligned_candidates(i)));
    if (found != kNotFound) return found;
  }
  // remainder: the last positions, fewer than sixteen
  return found_after(i, find_bytes_scalar(data + i, size - i, target, length));
}
}  // namespace

size_t find_bytes_sse2(const uint8_t* data, size_t size, const uint8_t* target, size_t length) noexcept {
  if (length == 0) return 0;
  if (length > size) return kNotFound;
  if (length == 1) return find_byte_sse2(data, size, target[0]);
  if (size - length + 1 < 16) return find_bytes_scalar(data, size, target, length);
  return find_bytes_sse2_wide(data, size, target, length);
}
#endif
}  // namespace vek

#if VEK_X86
namespace {
// Where the first and last byte of the target match, for 32 start positions:
// `starts` holds the bytes at the positions, `ends` points at the byte the
// first position's occurrence would end on.
[[gnu::target("avx2"), gnu::always_inline]] inline __m256i candidates32(__m256i starts, const uint8_t* ends,
                                                                        __m256i first, __m256i last) {
  return _mm256_and_si256(_mm256_cmpeq_epi8(starts, first), _mm256_cmpeq_epi8(load32(ends), last));
}

// The first candidate in `mask` (bit k: position at + k) that is a match; the
// first and last byte are known to match already.
inline size_t first_match(const uint8_t* data, size_t at, uint64_t mask, const uint8_t* target, size_t length) {
  if (mask == 0) return vek::kNotFound;
  if (length <= 2) return at + static_cast<size_t>(std::countr_zero(mask));
  for (; mask != 0; mask &= mask - 1) {
    size_t p = at + static_cast<size_t>(std::countr_zero(mask));
    if (std::memcmp(data + p + 1, target + 1, length - 2) == 0) return p;
  }
  return vek::kNotFound;
}
}  // namespace
#endif

namespace vek {
#if VEK_X86
namespace {
// The AVX2 search proper, for targets of 2 bytes or more and 32 positions or
// more; kept out of line so that a short search does not pay for its setup.
[[gnu::target("avx2"), gnu::noinline]] size_t find_bytes_avx2_wide(const uint8_t* data, size_t size,
                                                                  const uint8_t* target, size_t length) noexcept {
  const size_t positions = size - length + 1;
  const __m256i first = _mm256_set1_epi8(static_cast<char>(target[0]));
  const __m256i last = _mm256_set1_epi8(static_cast<char>(target[length - 1]));
  const uint8_t* ends = data + length - 1;
  // head: the first 32 positions, then on from a boundary
  size_t found = first_match(data, 0, byte_mask32(candidates32(load32(data), ends, first, last)), target, length);
  if (found != kNotFound) return found;
  size_t i = aligned_start32(data);
  // main loop: 128 positions a round, one test for the four vectors; every
  // load ends within the range while i + 128 <= positions
  for (; i + 128 <= positions; i += 128) {
    __m256i a = candidates32(load32_aligned(data + i), ends + i, first, last);
    __m256i b = candidates32(load32_aligned(data + i + 32), ends + i + 32, first, last);
    __m256i c = candidates32(load32_aligned(data + i + 64), ends + i + 64, first, last);
    __m256i d = candidates32(load32_aligned(data + i + 96), ends + i + 96, first, last);
    if (all_zero32(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d)))) continue;
    found = first_match(data, i, uint64_t{byte_mask32(a)} | uint64_t{byte_mask32(b)} << 32, target, length);
    if (found != kNotFound) return found;
    found = first_match(data, i + 64, uint64_t{byte_mask32(c)} | uint64_t{byte_mask32(d)} << 32, target, length);
    if (found != kNotFound) return found;
  }
  // 32 positions a round
  for (; i + 32 <= positions; i += 32) {
    found = first_match(data, i, byte_mask32(candidates32(load32_aligned(data + i), ends + i, first, last)), target,
                        length);
    if (found != kNotFound) return found;
  }
  // remainder: the last positions, fewer than 32, by the SSE2 level
  _mm256_zeroupper();
  return found_after(i, find_bytes_sse2(data + i, size - i, target, length));
}
}  // namespace

[[gnu::target("avx2")]] size_t find_bytes_avx2(const uint8_t* data, size_t size, const uint8_t* target,
                                               size_t length) noexcept {
  if (length == 0) return 0;
  if (length > size) return kNotFound;
  if (length == 1) return find_byte_avx2(data, size, target[0]);
  if (size - length + 1 < 32) return find_bytes_sse2(data, size, target, length);
  return find_bytes_avx2_wide(data, size, target, length);
}
#endif

constinit KernelFamily<FindBytesTable> find_bytes_kernels{
#if VEK_X86
    {Level::AVX2, {find_bytes_avx2}},
    {Level::SSE2, {find_bytes_sse2}},
#endif
    {Level::Scalar, {find_bytes_scalar}},
};
}  // namespace vek

namespace {
// What the two searches share once the target's bytes are known: the range
// of the receiver (maxBytes counts from srcOfs, 0 meaning to the end of the
// block; a block of size 0 is taken to hold maxBytes bytes), then the scan.
int32_t search_block(REALmemoryBlock block, int32_t srcOfs, int32_t maxBytes, const uint8_t* target,
                     int64_t length) {
  int32_t size = REALMemoryBlockGetSize(block);  // 0 for a nil block
  const uint8_t* data = block_data(block);
  int64_t max = maxBytes != 0 ? maxBytes : size;
  if (length <= 0 || max <= 0 || srcOfs < 0) return -2;
  int64_t run = vek::run_refusing_negative_size(size, srcOfs, max);
  if (run == 0) return -2;
  if (data == nullptr || target == nullptr) return -2;  // nothing there to read
  run = std::min(run, int64_t{INT32_MAX} - srcOfs);  // positions an Integer can hold
  if (run < length) return -1;  // the target does not fit: no position is tried
  size_t found = vek::find_bytes_kernels.best().find_bytes(data + srcOfs, static_cast<size_t>(run), target,
                                                           static_cast<size_t>(length));
  return found == vek::kNotFound ? -1 : srcOfs + static_cast<int32_t>(found);
}
}  // namespace

int32_t findBytes1(REALmemoryBlock block, int32_t srcOfs, int32_t maxBytes, REALstring target) {
  rbBytes text(target);  // the string's own bytes, no conversion; a nil string has none
  return search_block(block, srcOfs, maxBytes, text.data(), text.size());
}

int32_t findBytes2(REALmemoryBlock block, int32_t srcOfs, int32_t maxBytes, REALmemoryBlock target, int32_t targOfs,
                   int32_t targLen) {
  int32_t target_size = REALMemoryBlockGetSize(target);  // 0 for a nil target
  const uint8_t* target_data = block_data(target);
  if (targOfs < 0) return -2;
  int64_t length = targLen > 0 ? vek::run_refusing_negative_size(target_size, targOfs, targLen)
                               : vek::rest_of_block(target_size, targOfs);  // 0 or less: the rest
  if (length <= 0) return -2;
  if (target_data == nullptr) return -2;
  return search_block(block, srcOfs, maxBytes, target_data + targOfs, length);
}
