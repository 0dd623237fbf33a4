// Kernels of the fill and invert methods, at each level, for the adapters in
// size_fill_invert.cpp, the kernel tests and the benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {
// Replaces each of the `count` bytes at `data` by its complement. The bytes
// may lie at any address; the result is the same at every level.
void invert_bytes_scalar(uint8_t* data, size_t count) noexcept;
void invert_bytes_sse2(uint8_t* data, size_t count) noexcept;
void invert_bytes_avx2(uint8_t* data, size_t count) noexcept;  // only where the CPU has AVX2

struct InvertBytesTable {
  void (*invert)(uint8_t* data, size_t count) noexcept;
};
// AVX2, SSE2, scalar: the adapter takes `best()`.
extern constinit KernelFamily<InvertBytesTable> invert_bytes_kernels;
}  // namespace vek
