// Kernels of the byte-swapping methods. Each takes a pointer and a byte count
// and touches no byte outside [p, p + n); every level gives the same bytes as
// its scalar twin for every n and alignment. The methods call the best level
// of each family this CPU runs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {

// The n bytes at p in reverse order.
void reverse_bytes_scalar(uint8_t* p, size_t n) noexcept;
void reverse_bytes_sse2(uint8_t* p, size_t n) noexcept;
void reverse_bytes_ssse3(uint8_t* p, size_t n) noexcept;
void reverse_bytes_avx2(uint8_t* p, size_t n) noexcept;

// The two bytes of each of the n / 2 16-bit words at p exchanged; a last odd
// byte stays.
void swap_bytes16_scalar(uint8_t* p, size_t n) noexcept;
void swap_bytes16_sse2(uint8_t* p, size_t n) noexcept;
void swap_bytes16_ssse3(uint8_t* p, size_t n) noexcept;
void swap_bytes16_avx2(uint8_t* p, size_t n) noexcept;

// The four bytes of each of the n / 4 32-bit words at p reversed; one to
// three trailing bytes stay.
void swap_bytes32_scalar(uint8_t* p, size_t n) noexcept;
void swap_bytes32_sse2(uint8_t* p, size_t n) noexcept;
void swap_bytes32_ssse3(uint8_t* p, size_t n) noexcept;
void swap_bytes32_avx2(uint8_t* p, size_t n) noexcept;

// The levels of each kernel, best first (SwapBytesVEK and MirrorBytesVEK
// share the reversal).
struct ReverseBytesTable {
  void (*reverse)(uint8_t* p, size_t n) noexcept;
};
struct SwapBytes16Table {
  void (*swap)(uint8_t* p, size_t n) noexcept;
};
struct SwapBytes32Table {
  void (*swap)(uint8_t* p, size_t n) noexcept;
};
extern constinit KernelFamily<ReverseBytesTable> reverse_bytes_kernels;
extern constinit KernelFamily<SwapBytes16Table> swap_bytes16_kernels;
extern constinit KernelFamily<SwapBytes32Table> swap_bytes32_kernels;

}  // namespace vek
