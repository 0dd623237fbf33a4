// The rule by which the byte-range methods fit a run to a block.
#pragma once

#include <cstdint>

// How much of a run of `count` bytes from `offset` lies in a block of `size`
// bytes: cut back at the end, 0 when it starts at or past the end or the size
// makes no sense. A size of 0 is not known, and the run is the caller's. The
// caller has refused a negative offset or count already.
inline int32_t run_in_block(int32_t offset, int32_t count, int32_t size) {
  if (size < 0) return 0;
  if (size == 0) return count;
  if (offset >= size) return 0;
  return count <= size - offset ? count : size - offset;
}
