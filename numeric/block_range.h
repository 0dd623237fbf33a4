// The byte range a numeric method works on, from its offset and length
// arguments and the pinned block.
#pragma once

#include <cstddef>
#include <cstdint>

// `offset` is not negative (the callers raise before this). A length of 0 or
// less means the rest of the block from `offset`. An explicit length is cut
// back to the end of a block of known size; a block of size 0 is one over a
// raw address whose size nobody knows, so its caller's length is trusted. A
// block without data, or an offset at or past the end, gives 0 bytes.
inline size_t numeric_range(const uint8_t* data, int32_t size, int32_t offset, int32_t lengthBytes) {
  if (data == nullptr) return 0;
  if (lengthBytes <= 0) return offset < size ? static_cast<size_t>(size - offset) : 0;
  if (size == 0) return static_cast<size_t>(lengthBytes);
  if (offset >= size) return 0;
  int32_t left = size - offset;
  return static_cast<size_t>(lengthBytes < left ? lengthBytes : left);
}
