// Kernels of ConvertRGB12BitTo8BitVEK: packed 12-bit RGB to 8-bit RGB.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {

// Group g, nine bytes holding six 12-bit samples at in + 9g, becomes six
// bytes, the upper 8 bits of each sample, at out + 6g. `out` may be `in`
// itself (the conversion in place) or lie wholly apart from it: groups go
// in ascending order and every input byte is read before anything is
// written over it.
void rgb12_to_rgb8_scalar(const uint8_t* in, uint8_t* out, size_t groups) noexcept;
void rgb12_to_rgb8_sse2(const uint8_t* in, uint8_t* out, size_t groups) noexcept;
void rgb12_to_rgb8_ssse3(const uint8_t* in, uint8_t* out, size_t groups) noexcept;
void rgb12_to_rgb8_avx2(const uint8_t* in, uint8_t* out, size_t groups) noexcept;

struct Rgb12Table {
  void (*convert)(const uint8_t* in, uint8_t* out, size_t groups) noexcept;
};
extern KernelFamily<Rgb12Table> rgb12_kernels;

}  // namespace vek
