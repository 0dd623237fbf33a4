// Kernels of _Calc3te, _Calc2teCMY and _Calc2teCMYK: rules applied to
// `count` four-byte pixels from `pixels` on, in place.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {

// A pixel whose channel k lies within lo[k] .. hi[k] (bounds included) for
// all four channels becomes dest[0..3]; other pixels keep their bytes.
void replace_colour_scalar(uint8_t* pixels, size_t count, const int32_t lo[4], const int32_t hi[4],
                           const uint8_t dest[4]) noexcept;
void replace_colour_sse2(uint8_t* pixels, size_t count, const int32_t lo[4], const int32_t hi[4],
                         const uint8_t dest[4]) noexcept;
void replace_colour_avx2(uint8_t* pixels, size_t count, const int32_t lo[4], const int32_t hi[4],
                         const uint8_t dest[4]) noexcept;

struct ReplaceColourTable {
  void (*replace)(uint8_t* pixels, size_t count, const int32_t lo[4], const int32_t hi[4],
                  const uint8_t dest[4]) noexcept;
};
extern KernelFamily<ReplaceColourTable> replace_colour_kernels;

// The fourth byte becomes byte_max minus the sum of the first three
// (complement_cmy) or of all four (complement_cmyk) bytes, clamped to
// 0..255; with `with_sum0` a pixel whose summed bytes are all 0 gets 0.
void complement_cmy_scalar(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;
void complement_cmy_sse2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;
void complement_cmyk_scalar(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;
void complement_cmyk_sse2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;
void complement_cmy_avx2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;
void complement_cmyk_avx2(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;

struct ComplementTable {
  void (*cmy)(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;
  void (*cmyk)(uint8_t* pixels, size_t count, int32_t byte_max, bool with_sum0) noexcept;
};
extern KernelFamily<ComplementTable> complement_kernels;

}  // namespace vek
