// The one rule by which the bit and byte-order methods fit a range to a block.
#pragma once

#include <cstdint>

namespace vek {

// How much of [offset, offset + count) a block of `size` units holds: the
// count cut back at the block's end, or 0 when the range starts at or past
// it. A size of 0 or less is not known (a block over a raw address): the
// count is the caller's and is taken as it is. The caller has refused a
// negative offset or count already.
inline int64_t count_in_block(int64_t offset, int64_t count, int64_t size) {
  if (size <= 0) return count;
  if (offset >= size) return 0;
  return count < size - offset ? count : size - offset;
}

}  // namespace vek
