// Element-wise minimum and maximum: MinVEK and MaxVEK write into a range of
// the block, element by element, the smaller (larger) of the elements of two
// arrays at raw addresses. The sources are read from their first byte,
// whatever the offset in the block; the element is 8, 16, 32 or 64 bits,
// signed or not, little-endian, at any alignment.
//
//   first 80 7F 00 FF, second 7F 80 01 FE:
//     MinVEK(first, second)             -> 7F 7F 00 FE  (unsigned bytes)
//     MinVEK(first, second, 8, True)    -> 80 80 00 FE  (-128, -128, 0, -2)
//     MaxVEK(first, second, 16)         -> 7F 80 00 FF  (0x807F, 0xFF00)
//
// Returns False for an element size other than 8, 16, 32 or 64 bits and
// True otherwise, also when the range holds no whole element. A nil block or
// a nil address raises "NilObjectException", a negative offset
// "UnsupportedOperationException". A destination that overlaps a source is
// worked element by element in ascending order, each element seeing the ones
// written before it.
#include "numeric/minmax.h"

#if VEK_X86
#include <immintrin.h>
#endif

#include <cstring>
#include <type_traits>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/ranges.h"
#include "frame/rb_bytes.h"

namespace vek {
namespace {
template <class T, Extreme E>
void minmax_scalar(uint8_t* dst, const uint8_t* first, const uint8_t* second, size_t count) noexcept {
  for (size_t i = 0; i < count; ++i) {
    T a, b;
    std::memcpy(&a, first + i * sizeof(T), sizeof(T));
    std::memcpy(&b, second + i * sizeof(T), sizeof(T));
    T result = E == Extreme::Min ? (a <= b ? a : b) : (a >= b ? a : b);
    std::memcpy(dst + i * sizeof(T), &result, sizeof(T));
  }
}

#if VEK_X86
__m128i select(__m128i mask, __m128i if_set, __m128i if_clear) {
  return _mm_or_si128(_mm_and_si128(mask, if_set), _mm_andnot_si128(mask, if_clear));
}

// SSE2 compares only signed lanes; flipping the sign bit of both operands
// maps the unsigned order onto the signed one.
__m128i greater_u16_by_sign_flip(__m128i a, __m128i b) {
  const __m128i sign = _mm_set1_epi16(INT16_MIN);
  return _mm_cmpgt_epi16(_mm_xor_si128(a, sign), _mm_xor_si128(b, sign));
}

__m128i greater_u32_by_sign_flip(__m128i a, __m128i b) {
  const __m128i sign = _mm_set1_epi32(INT32_MIN);
  return _mm_cmpgt_epi32(_mm_xor_si128(a, sign), _mm_xor_si128(b, sign));
}

// SSE2 has no 64-bit compare. The high halves decide, signed or unsigned as
// the element is; where they are equal the low halves decide, always
// unsigned. One 32-bit compare serves both halves: the sign bit of every low
// half is flipped, and that of every high half too for unsigned elements.
template <bool Signed>
__m128i greater_64_from_halves(__m128i a, __m128i b) {
  const __m128i flip = Signed ? _mm_set_epi32(0, INT32_MIN, 0, INT32_MIN) : _mm_set1_epi32(INT32_MIN);
  __m128i greater = _mm_cmpgt_epi32(_mm_xor_si128(a, flip), _mm_xor_si128(b, flip));
  __m128i equal = _mm_cmpeq_epi32(a, b);
  // In each high half: high greater, or high equal and low greater (moved up).
  __m128i high = _mm_or_si128(greater, _mm_and_si128(equal, _mm_slli_epi64(greater, 32)));
  return _mm_shuffle_epi32(high, _MM_SHUFFLE(3, 3, 1, 1));
}

// All ones in each lane where a > b.
template <class T>
__m128i greater(__m128i a, __m128i b) {
  if constexpr (std::is_same_v<T, int8_t>) return _mm_cmpgt_epi8(a, b);
  else if constexpr (std::is_same_v<T, int32_t>) return _mm_cmpgt_epi32(a, b);
  else if constexpr (std::is_same_v<T, uint16_t>) return greater_u16_by_sign_flip(a, b);
  else if constexpr (std::is_same_v<T, uint32_t>) return greater_u32_by_sign_flip(a, b);
  else return greater_64_from_halves<std::is_signed_v<T>>(a, b);
}

// Unsigned bytes and signed 16-bit lanes have packed min and max of their own.
template <class T, Extreme E>
__m128i pick(__m128i a, __m128i b) {
  if constexpr (std::is_same_v<T, uint8_t>) {
    return E == Extreme::Min ? _mm_min_epu8(a, b) : _mm_max_epu8(a, b);
  } else if constexpr (std::is_same_v<T, int16_t>) {
    return E == Extreme::Min ? _mm_min_epi16(a, b) : _mm_max_epi16(a, b);
  } else {
    __m128i a_greater = greater<T>(a, b);
    return E == Extreme::Min ? select(a_greater, b, a) : select(a_greater, a, b);
  }
}

template <class T, Extreme E>
inline void minmax_vector(uint8_t* dst, const uint8_t* first, const uint8_t* second, size_t at) {
  __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first + at));
  __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(second + at));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + at), pick<T, E>(a, b));
}

// Two ranges of the same length overlap when their starts are less than
// that length apart. The three are unrelated objects, so their addresses
// are compared as integers, whose wrap-around cannot miss an overlap.
bool overlaps(const uint8_t* a, const uint8_t* b, size_t bytes) {
  auto x = reinterpret_cast<uintptr_t>(a);
  auto y = reinterpret_cast<uintptr_t>(b);
  return x - y < bytes || y - x < bytes;
}

template <class T, Extreme E>
void minmax_sse2(uint8_t* dst, const uint8_t* first, const uint8_t* second, size_t count) noexcept {
  const size_t bytes = count * sizeof(T);
  if (overlaps(dst, first, bytes) || overlaps(dst, second, bytes)) {
    minmax_scalar<T, E>(dst, first, second, count);  // later elements must see earlier results
    return;
  }
  const size_t vector_bytes = bytes / 16 * 16;
  size_t at = 0;
  // head: a lone vector when the number of whole vectors is odd
  if (vector_bytes % 32 != 0) {
    minmax_vector<T, E>(dst, first, second, 0);
    at = 16;
  }
  // main loop: two vectors per pass
  for (; at < vector_bytes; at += 32) {
    minmax_vector<T, E>(dst, first, second, at);
    minmax_vector<T, E>(dst, first, second, at + 16);
  }
  // remainder: fewer than 16 bytes, element by element
  minmax_scalar<T, E>(dst + at, first + at, second + at, (bytes - at) / sizeof(T));
}

// The AVX2 level: every element type has a packed minimum and maximum
// except the 64-bit ones, which compare with vpcmpgtq (the sign bit flipped
// for unsigned elements) and blend.
template <class T, Extreme E>
[[gnu::target("avx2")]] inline __m256i pick_avx2(__m256i a, __m256i b) {
  constexpr bool kMin = E == Extreme::Min;
  if constexpr (std::is_same_v<T, uint8_t>) return kMin ? _mm256_min_epu8(a, b) : _mm256_max_epu8(a, b);
  else if constexpr (std::is_same_v<T, int8_t>) return kMin ? _mm256_min_epi8(a, b) : _mm256_max_epi8(a, b);
  else if constexpr (std::is_same_v<T, uint16_t>) return kMin ? _mm256_min_epu16(a, b) : _mm256_max_epu16(a, b);
  else if constexpr (std::is_same_v<T, int16_t>) return kMin ? _mm256_min_epi16(a, b) : _mm256_max_epi16(a, b);
  else if constexpr (std::is_same_v<T, uint32_t>) return kMin ? _mm256_min_epu32(a, b) : _mm256_max_epu32(a, b);
  else if constexpr (std::is_same_v<T, int32_t>) return kMin ? _mm256_min_epi32(a, b) : _mm256_max_epi32(a, b);
  else {
    const __m256i flip = _mm256_set1_epi64x(std::is_signed_v<T> ? 0 : INT64_MIN);
    __m256i a_greater = _mm256_cmpgt_epi64(_mm256_xor_si256(a, flip), _mm256_xor_si256(b, flip));
    return kMin ? _mm256_blendv_epi8(a, b, a_greater) : _mm256_blendv_epi8(b, a, a_greater);
  }
}

template <class T, Extreme E>
[[gnu::target("avx2")]] inline void minmax_vector_avx2(uint8_t* dst, const uint8_t* first, const uint8_t* second,
                                                       size_t at) {
  __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(first + at));
  __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(second + at));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + at), pick_avx2<T, E>(a, b));
}

// 16 bytes through the 32-byte step, the upper half zero and left unstored.
template <class T, Extreme E>
[[gnu::target("avx2")]] inline void minmax_half_vector_avx2(uint8_t* dst, const uint8_t* first,
                                                            const uint8_t* second, size_t at) {
  __m256i a = _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(first + at)));
  __m256i b = _mm256_zextsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(second + at)));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + at), _mm256_castsi256_si128(pick_avx2<T, E>(a, b)));
}

template <class T, Extreme E>
[[gnu::target("avx2")]] void minmax_avx2(uint8_t* dst, const uint8_t* first, const uint8_t* second,
                                         size_t count) noexcept {
  const size_t bytes = count * sizeof(T);
  // A few elements cost less one by one than with the vector set-up.
  if (bytes < 16 || count < 8 || overlaps(dst, first, bytes) || overlaps(dst, second, bytes)) {
    minmax_scalar<T, E>(dst, first, second, count);  // later elements must see earlier results
    return;
  }
  size_t at = 0;
  // main loop: two vectors per pass
  for (; bytes - at >= 64; at += 64) {
    minmax_vector_avx2<T, E>(dst, first, second, at);
    minmax_vector_avx2<T, E>(dst, first, second, at + 32);
  }
  // remainder: a lone 32-byte vector, a lone 16-byte one, then element by element
  if (bytes - at >= 32) {
    minmax_vector_avx2<T, E>(dst, first, second, at);
    at += 32;
  }
  if (bytes - at >= 16) {
    minmax_half_vector_avx2<T, E>(dst, first, second, at);
    at += 16;
  }
  // The compiler leaves this out here; SSE code run while the upper halves
  // are dirty (the caller's, say) is slowed by a lot (BM_MinVEK at 51 bytes).
  _mm256_zeroupper();
  minmax_scalar<T, E>(dst + at, first + at, second + at, (bytes - at) / sizeof(T));
}
#endif

template <Extreme E>
constexpr std::array<MinMaxKernel, 8> scalar_kernels{
    &minmax_scalar<uint8_t, E>,  &minmax_scalar<int8_t, E>,  &minmax_scalar<uint16_t, E>, &minmax_scalar<int16_t, E>,
    &minmax_scalar<uint32_t, E>, &minmax_scalar<int32_t, E>, &minmax_scalar<uint64_t, E>, &minmax_scalar<int64_t, E>};

#if VEK_X86
template <Extreme E>
constexpr std::array<MinMaxKernel, 8> sse2_kernels{
    &minmax_sse2<uint8_t, E>,  &minmax_sse2<int8_t, E>,  &minmax_sse2<uint16_t, E>, &minmax_sse2<int16_t, E>,
    &minmax_sse2<uint32_t, E>, &minmax_sse2<int32_t, E>, &minmax_sse2<uint64_t, E>, &minmax_sse2<int64_t, E>};

template <Extreme E>
constexpr std::array<MinMaxKernel, 8> avx2_kernels{
    &minmax_avx2<uint8_t, E>,  &minmax_avx2<int8_t, E>,  &minmax_avx2<uint16_t, E>, &minmax_avx2<int16_t, E>,
    &minmax_avx2<uint32_t, E>, &minmax_avx2<int32_t, E>, &minmax_avx2<uint64_t, E>, &minmax_avx2<int64_t, E>};
#endif
}  // namespace

constinit KernelFamily<MinMaxTable> minmax_kernels{
#if VEK_X86
    {Level::AVX2, {avx2_kernels<Extreme::Min>, avx2_kernels<Extreme::Max>}},
    {Level::SSE2, {sse2_kernels<Extreme::Min>, sse2_kernels<Extreme::Max>}},
#endif
    {Level::Scalar, {scalar_kernels<Extreme::Min>, scalar_kernels<Extreme::Max>}},
};

MinMaxKernel minmax_kernel(const MinMaxTable& table, int32_t bitSize, bool isSigned, Extreme extreme) noexcept {
  size_t slot;
  switch (bitSize) {
    case 8: slot = 0; break;
    case 16: slot = 2; break;
    case 32: slot = 4; break;
    case 64: slot = 6; break;
    default: return nullptr;
  }
  slot += isSigned ? 1 : 0;
  return extreme == Extreme::Min ? table.min[slot] : table.max[slot];
}
}  // namespace vek

namespace {
// MinVEK and MaxVEK differ only in the kernel they pick.
bool elementwise(vek::Extreme extreme, REALmemoryBlock block, void* firstMem, void* secondMem, int32_t bitSize,
                 uint8_t isSigned, int32_t offsetByte, int32_t lengthBytes) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return false;
  }
  if (firstMem == nullptr || secondMem == nullptr) {
    RaiseException("NilObjectException", "ptr is nil");
    return false;
  }
  if (offsetByte < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return false;
  }
  rbBytes bytes(block);
  vek::MinMaxKernel kernel = vek::minmax_kernel(vek::minmax_kernels.best(), bitSize, isSigned != 0, extreme);
  if (kernel == nullptr) return false;  // not an element size; the view still gives the block back
  if (bytes.data() == nullptr) return true;  // no bytes, nothing to do
  int64_t count = vek::whole_items_in_length(bytes.size(), offsetByte, lengthBytes, bitSize / 8);
  if (count == 0) return true;  // bytes behind the last whole element stay as they are
  kernel(bytes.data() + offsetByte, static_cast<const uint8_t*>(firstMem), static_cast<const uint8_t*>(secondMem),
         static_cast<size_t>(count));
  return true;
}
}  // namespace

bool MinVEK(REALmemoryBlock block, void* firstMem, void* secondMem, int32_t bitSize, uint8_t isSigned,
            int32_t offsetByte, int32_t lengthBytes) {
  return elementwise(vek::Extreme::Min, block, firstMem, secondMem, bitSize, isSigned, offsetByte, lengthBytes);
}

bool MaxVEK(REALmemoryBlock block, void* firstMem, void* secondMem, int32_t bitSize, uint8_t isSigned,
            int32_t offsetByte, int32_t lengthBytes) {
  return elementwise(vek::Extreme::Max, block, firstMem, secondMem, bitSize, isSigned, offsetByte, lengthBytes);
}
