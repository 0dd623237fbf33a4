// Kernels of the byte-swapping methods. Each takes a pointer and a byte count
// and touches no byte outside [p, p + n); the SSE2 levels give the same bytes
// as their scalar twins for every n and alignment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek {

// The n bytes at p in reverse order.
void reverse_bytes_scalar(uint8_t* p, size_t n) noexcept;
void reverse_bytes_sse2(uint8_t* p, size_t n) noexcept;

// The two bytes of each of the n / 2 16-bit words at p exchanged; a last odd
// byte stays.
void swap_bytes16_scalar(uint8_t* p, size_t n) noexcept;
void swap_bytes16_sse2(uint8_t* p, size_t n) noexcept;

// The four bytes of each of the n / 4 32-bit words at p reversed; one to
// three trailing bytes stay.
void swap_bytes32_scalar(uint8_t* p, size_t n) noexcept;
void swap_bytes32_sse2(uint8_t* p, size_t n) noexcept;

}  // namespace vek
