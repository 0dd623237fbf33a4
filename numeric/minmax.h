// Kernels of MinVEK and MaxVEK: the element-wise minimum or maximum of two
// arrays of integers written to a third. Elements are little-endian and may
// sit at any address.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {

enum class Extreme { Min, Max };

// Writes `count` elements at `dst`, element i from element i of `first` and
// of `second`. The scalar level goes in ascending order and reads both
// sources' element before writing it, so a destination overlapping a source
// sees the elements written before; the vector levels give the same bytes
// (they fall back to the scalar loop when the destination overlaps a source).
using MinMaxKernel = void (*)(uint8_t* dst, const uint8_t* first, const uint8_t* second, size_t count) noexcept;

// One kernel per element type, in the order u8, s8, u16, s16, u32, s32,
// u64, s64.
struct MinMaxTable {
  std::array<MinMaxKernel, 8> min;
  std::array<MinMaxKernel, 8> max;
};

extern constinit KernelFamily<MinMaxTable> minmax_kernels;

// The kernel of `table` for an element of `bitSize` bits (8, 16, 32 or 64),
// signed or not; null for any other bitSize.
MinMaxKernel minmax_kernel(const MinMaxTable& table, int32_t bitSize, bool isSigned, Extreme extreme) noexcept;

}  // namespace vek
