// Kernels of MultiplyUInt8VEK and MultiplyUInt16VEK. They scale bytes in
// place, take only pointers, counts and the factor, and allocate nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {

// One byte times `factor`, truncated towards zero. A factor of 1.0 or more
// (infinity too) holds the result at 255; any other factor, negative or not a
// number, keeps the truncated product modulo 256 as a two's-complement byte.
// A product that is not a number or infinite gives 0.
uint8_t scale_u8_value(uint8_t value, double factor) noexcept;

// `count` bytes scaled, one product per byte: the twin of the levels of
// `scale_u8_kernels`, which build the 256-entry table once (for a range too
// short to pay for it they take the products too) and look each byte up:
// AVX2 and SSSE3 with byte shuffles, the plain level one byte at a time. The
// vector levels compute a fixed-point product instead where one gives every
// entry of the table.
void scale_u8_scalar(uint8_t* data, size_t count, double factor) noexcept;

// One little-endian 16-bit value times a factor of 0.0 or more, truncated
// towards zero and held at 65535. 0 times infinity gives 0.
uint16_t scale_u16_value(uint16_t value, double factor) noexcept;

// `count` unaligned little-endian 16-bit values at `data` scaled; a factor
// below 0.0 or not a number leaves them unchanged. The twin of the levels of
// `scale_u16_kernels` (AVX2 and SSE2 in double lanes).
void scale_u16_scalar(uint8_t* data, size_t count, double factor) noexcept;

struct ScaleTable {
  void (*scale)(uint8_t* data, size_t count, double factor) noexcept;
};

extern constinit KernelFamily<ScaleTable> scale_u8_kernels;
extern constinit KernelFamily<ScaleTable> scale_u16_kernels;

}  // namespace vek
