// Kernels of the compare and search methods (compare_search.cpp): loops over
// bytes that know nothing of the host. Each vector level leaves the bytes
// that do not fill a whole vector to a narrower level or the scalar twin; all
// levels give the same answer for every input. A position is counted from
// `data`; kNotFound means there is none.
//
// Each kernel family lists its levels, widest first; the methods call
// `best()`, tests and benchmarks walk `levels()`.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {
inline constexpr size_t kNotFound = static_cast<size_t>(-1);

// The first byte equal to `value`.
size_t find_byte_scalar(const uint8_t* data, size_t size, uint8_t value) noexcept;
size_t find_byte_sse2(const uint8_t* data, size_t size, uint8_t value) noexcept;
size_t find_byte_avx2(const uint8_t* data, size_t size, uint8_t value) noexcept;

// The first byte different from `value`.
size_t find_not_byte_scalar(const uint8_t* data, size_t size, uint8_t value) noexcept;
size_t find_not_byte_sse2(const uint8_t* data, size_t size, uint8_t value) noexcept;
size_t find_not_byte_avx2(const uint8_t* data, size_t size, uint8_t value) noexcept;

// Whether all `size` bytes are 0 (true for none).
bool all_zero_scalar(const uint8_t* data, size_t size) noexcept;
bool all_zero_sse2(const uint8_t* data, size_t size) noexcept;
bool all_zero_avx2(const uint8_t* data, size_t size) noexcept;

// Whether the `size` bytes at `a` equal those at `b` (true for none). The two
// runs may overlap.
bool bytes_equal_scalar(const uint8_t* a, const uint8_t* b, size_t size) noexcept;
bool bytes_equal_sse2(const uint8_t* a, const uint8_t* b, size_t size) noexcept;
bool bytes_equal_avx2(const uint8_t* a, const uint8_t* b, size_t size) noexcept;

// The first position at which all `length` bytes of `target` occur, the whole
// occurrence lying within the `size` bytes; 0 for an empty target.
size_t find_bytes_scalar(const uint8_t* data, size_t size, const uint8_t* target, size_t length) noexcept;
size_t find_bytes_sse2(const uint8_t* data, size_t size, const uint8_t* target, size_t length) noexcept;
size_t find_bytes_avx2(const uint8_t* data, size_t size, const uint8_t* target, size_t length) noexcept;

struct FindByteTable {
  size_t (*find_byte)(const uint8_t* data, size_t size, uint8_t value) noexcept;
};
struct FindNotByteTable {
  size_t (*find_not_byte)(const uint8_t* data, size_t size, uint8_t value) noexcept;
};
struct AllZeroTable {
  bool (*all_zero)(const uint8_t* data, size_t size) noexcept;
};
struct BytesEqualTable {
  bool (*bytes_equal)(const uint8_t* a, const uint8_t* b, size_t size) noexcept;
};
struct FindBytesTable {
  size_t (*find_bytes)(const uint8_t* data, size_t size, const uint8_t* target, size_t length) noexcept;
};

extern KernelFamily<FindByteTable> find_byte_kernels;
extern KernelFamily<FindNotByteTable> find_not_byte_kernels;
extern KernelFamily<AllZeroTable> all_zero_kernels;
extern KernelFamily<BytesEqualTable> bytes_equal_kernels;
extern KernelFamily<FindBytesTable> find_bytes_kernels;
}  // namespace vek
