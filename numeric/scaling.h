// Kernels of MultiplyUInt8VEK and MultiplyUInt16VEK. They scale bytes in
// place, take only pointers, counts and the factor, and allocate nothing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek {

// One byte times `factor`, truncated towards zero. A factor of 1.0 or more
// (infinity too) holds the result at 255; any other factor, negative or not a
// number, keeps the truncated product modulo 256 as a two's-complement byte.
// A product that is not a number or infinite gives 0.
uint8_t scale_u8_value(uint8_t value, double factor) noexcept;

// `count` bytes scaled: the twin computes one product per byte; the kernel
// builds the table once and looks each byte up.
void scale_u8_scalar(uint8_t* data, size_t count, double factor) noexcept;
void scale_u8_table(uint8_t* data, size_t count, double factor) noexcept;

// One little-endian 16-bit value times a factor of 0.0 or more, truncated
// towards zero and held at 65535. 0 times infinity gives 0.
uint16_t scale_u16_value(uint16_t value, double factor) noexcept;

// `count` unaligned little-endian 16-bit values at `data` scaled; a factor
// below 0.0 or not a number leaves them unchanged.
void scale_u16_scalar(uint8_t* data, size_t count, double factor) noexcept;
void scale_u16_sse2(uint8_t* data, size_t count, double factor) noexcept;

}  // namespace vek
