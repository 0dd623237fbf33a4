// Block size, fill and invert: the property BytesVEK reports a block's size;
// FillBytesVEK sets a run of bytes to one value and InvertBytesVEK replaces a
// run by its bitwise complement, both in place.
//
// On a 10-byte block of zeros:
//   BytesVEK                -> 10
//   FillBytesVEK(2, 3, 65)  -> 00 00 41 41 41 00 00 00 00 00
//   FillBytesVEK(0, 0, 511) -> every byte FF (a count of 0 or less: the whole block)
//   InvertBytesVEK(0, 8)    -> FF FF FF FF FF FF FF FF 00 00
// A run that starts inside the block and runs past its end is cut back to the
// end; one that starts at or past the end, or at a negative offset, changes
// nothing. A nil block raises "NilObjectException". A block of size 0 (one
// over a raw address) has no known end: the caller's run is trusted there.
#include "blockops/size_fill_invert.h"

#if VEK_X86
#include <immintrin.h>
#endif

#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"

int32_t GetBlockSize(REALmemoryBlock block, int32_t) {
  if (block == nullptr) return 0;
  return REALMemoryBlockGetSize(block);
}

void fillbytes(REALmemoryBlock block, int32_t offset, int32_t count, int32_t value) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  int32_t size = REALMemoryBlockGetSize(block);
  if (count <= 0) count = size;  // the rest of the block from `offset`, cut back below
  if (count <= 0) return;
  if (offset < 0) return;
  count = static_cast<int32_t>(vek::run_refusing_negative_size(size, offset, count));
  if (count <= 0) return;
  auto* data = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return;
  std::memset(data + offset, value & 0xFF, static_cast<size_t>(count));
}

void InvertBytesVEK(REALmemoryBlock block, int32_t offset, int32_t count) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return;
  }
  if (count <= 0) return;
  if (offset < 0) return;
  count = static_cast<int32_t>(vek::run_refusing_negative_size(REALMemoryBlockGetSize(block), offset, count));
  if (count <= 0) return;
  auto* data = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data == nullptr) return;
  vek::invert_bytes_kernels.best().invert(data + offset, static_cast<size_t>(count));
}

namespace vek {
namespace {
template <typename Word>
[[gnu::always_inline]] inline void complement_words(uint8_t* data, size_t count) noexcept {
  for (size_t i = 0; i < count; i += sizeof(Word)) {
    Word word;
    std::memcpy(&word, data + i, sizeof word);
    word = static_cast<Word>(~word);
    std::memcpy(data + i, &word, sizeof word);
  }
}

#if VEK_X86
// The last 0..15 bytes of a vector level, by the twin's word steps: one
// 64-bit, one 32-bit, one 16-bit word and one byte, as the count's bits say.
[[gnu::always_inline]] inline void invert_tail(uint8_t* data, size_t count) noexcept {
  complement_words<uint64_t>(data, count & 8);
  data += count & 8;
  complement_words<uint32_t>(data, count & 4);
  data += count & 4;
  complement_words<uint16_t>(data, count & 2);
  data += count & 2;
  complement_words<uint8_t>(data, count & 1);
}
#endif
}  // namespace

// The width follows the count alone: 64-bit words when it is a multiple of 8,
// 32-bit words when a multiple of 4, else single bytes; no head alignment.
void invert_bytes_scalar(uint8_t* data, size_t count) noexcept {
  if (count % 8 == 0) {
    complement_words<uint64_t>(data, count);
  } else if (count % 4 == 0) {
    complement_words<uint32_t>(data, count);
  } else {
    complement_words<uint8_t>(data, count);
  }
}

#if VEK_X86
// Four unaligned vectors per step keep two loads and two stores in flight;
// the last 0..15 bytes go to the twin's word steps.
void invert_bytes_sse2(uint8_t* data, size_t count) noexcept {
  const __m128i ones = _mm_set1_epi32(-1);
  size_t i = 0;
  // main loop: 64 bytes at a time
  for (; i + 64 <= count; i += 64) {
    auto* p = reinterpret_cast<__m128i*>(data + i);
    __m128i a = _mm_loadu_si128(p);
    __m128i b = _mm_loadu_si128(p + 1);
    __m128i c = _mm_loadu_si128(p + 2);
    __m128i d = _mm_loadu_si128(p + 3);
    _mm_storeu_si128(p, _mm_xor_si128(a, ones));
    _mm_storeu_si128(p + 1, _mm_xor_si128(b, ones));
    _mm_storeu_si128(p + 2, _mm_xor_si128(c, ones));
    _mm_storeu_si128(p + 3, _mm_xor_si128(d, ones));
  }
  // whole vectors left
  for (; i + 16 <= count; i += 16) {
    auto* p = reinterpret_cast<__m128i*>(data + i);
    _mm_storeu_si128(p, _mm_xor_si128(_mm_loadu_si128(p), ones));
  }
  invert_tail(data + i, count - i);
}

// Four 32-byte vectors per step. Short runs go to the SSE2 level whole (the
// shortest straight to its tail). On a
// long run the bytes before the first 32-byte boundary go to the SSE2 level
// first, so that no store of the vector loop straddles a cache line; the last
// 0..31 bytes go there too.
[[gnu::target("avx2")]] void invert_bytes_avx2(uint8_t* data, size_t count) noexcept {
  if (count < 16) {
    if (count != 0) invert_tail(data, count);
    return;
  }
  if (count < 64) {
    invert_bytes_sse2(data, count);
    return;
  }
  size_t i = 0;
  if (count >= 256) {
    i = (32 - reinterpret_cast<uintptr_t>(data) % 32) % 32;
    if (i != 0) invert_bytes_sse2(data, i);
  }
  const __m256i ones = _mm256_set1_epi32(-1);
  for (; i + 128 <= count; i += 128) {
    auto* p = reinterpret_cast<__m256i*>(data + i);
    __m256i a = _mm256_loadu_si256(p);
    __m256i b = _mm256_loadu_si256(p + 1);
    __m256i c = _mm256_loadu_si256(p + 2);
    __m256i d = _mm256_loadu_si256(p + 3);
    _mm256_storeu_si256(p, _mm256_xor_si256(a, ones));
    _mm256_storeu_si256(p + 1, _mm256_xor_si256(b, ones));
    _mm256_storeu_si256(p + 2, _mm256_xor_si256(c, ones));
    _mm256_storeu_si256(p + 3, _mm256_xor_si256(d, ones));
  }
  for (; i + 32 <= count; i += 32) {
    auto* p = reinterpret_cast<__m256i*>(data + i);
    _mm256_storeu_si256(p, _mm256_xor_si256(_mm256_loadu_si256(p), ones));
  }
  // SSE code run while the upper halves are dirty is several times slower,
  // here and in the caller, and the compiler leaves them dirty before a tail
  // call.
  _mm256_zeroupper();
  if (i != count) invert_bytes_sse2(data + i, count - i);
}
#endif

constinit KernelFamily<InvertBytesTable> invert_bytes_kernels{
#if VEK_X86
    {Level::AVX2, {invert_bytes_avx2}},
    {Level::SSE2, {invert_bytes_sse2}},
#endif
    {Level::Scalar, {invert_bytes_scalar}},
};
}  // namespace vek
