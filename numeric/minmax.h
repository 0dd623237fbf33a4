// Kernels of MinVEK and MaxVEK: the element-wise minimum or maximum of two
// arrays of integers written to a third. Elements are little-endian and may
// sit at any address.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek {

enum class Extreme { Min, Max };

// Writes `count` elements at `dst`, element i from element i of `first` and
// of `second`. The scalar level goes in ascending order and reads both
// sources' element before writing it, so a destination overlapping a source
// sees the elements written before; the SSE2 level gives the same bytes (it
// falls back to the scalar loop when the destination overlaps a source).
using MinMaxKernel = void (*)(uint8_t* dst, const uint8_t* first, const uint8_t* second, size_t count) noexcept;

struct MinMaxLevels {
  MinMaxKernel scalar;
  MinMaxKernel sse2;
};

// Both levels for an element of `bitSize` bits (8, 16, 32 or 64), signed or
// not; null levels for any other bitSize.
MinMaxLevels minmax_levels(int32_t bitSize, bool isSigned, Extreme extreme) noexcept;

}  // namespace vek
