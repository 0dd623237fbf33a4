// The rules by which a method fits the range it is given to a block. Every
// rule takes (size, offset, count) in the same units, with the offset and
// count already checked not to be negative, and answers how much of the
// range to work on (0: nothing, the call is refused or has nothing to do).
//
// A block's size is what the host reports. Above 0 it is known. 0 is not
// known: a block made over a raw address reports it, and so does every block
// on a host without "memoryBlockGetSize". Which rule a method follows is the
// row of its family in the reference's range table.
#pragma once

#include <cstdint>

namespace vek {

// The byte-range methods (fill and invert, compare and search, copies,
// fields): a run cut back at the block's end; nothing when it starts at or
// past the end, or when the host reports a negative size; the caller's count
// where the size is not known.
constexpr int64_t run_refusing_negative_size(int64_t size, int64_t offset, int64_t count) {
  if (size < 0) return 0;
  if (size == 0) return count;
  if (offset >= size) return 0;
  return count < size - offset ? count : size - offset;
}

// The sub-blocks, which copy what they take into a new block: a run cut back
// at the block's end; nothing when it starts at or past the end, or where
// the size is 0 or less (no bytes anybody knows of).
constexpr int64_t run_in_known_size(int64_t size, int64_t offset, int64_t count) {
  if (offset >= size) return 0;
  return count < size - offset ? count : size - offset;
}

// The bit, numeric, colour and signal methods: `count` items of `width`
// units each from `offset`; those wholly inside the block, none when the
// offset is at or past its end, all of them where the size is 0 or less
// (not known).
constexpr int64_t items_trusting_unknown_size(int64_t size, int64_t offset, int64_t count, int64_t width = 1) {
  if (size <= 0) return count;
  if (offset >= size) return 0;
  int64_t whole = (size - offset) / width;
  return count < whole ? count : whole;
}

// The rest of the block from `offset`; nothing in a block of unknown size.
constexpr int64_t rest_of_block(int64_t size, int64_t offset) { return offset < size ? size - offset : 0; }

// The numeric and colour methods' length in bytes: 0 or less means the rest
// of the block from `offset`.
constexpr int64_t length_or_rest(int64_t size, int64_t offset, int64_t length) {
  return length > 0 ? length : rest_of_block(size, offset);
}

// The numeric methods: the whole items of `width` bytes in `length` bytes
// from `offset` (0 or less: the rest of the block), as far as the block
// holds them.
constexpr int64_t whole_items_in_length(int64_t size, int64_t offset, int64_t length, int64_t width) {
  return items_trusting_unknown_size(size, offset, length_or_rest(size, offset, length) / width, width);
}

}  // namespace vek
