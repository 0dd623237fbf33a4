// Kernels of the strided copies and the bit expansion. Bits are numbered from
// the most significant bit of the first byte. No kernel reads or writes a
// byte outside the runs it is given (for the byte gather: outside the span
// from its lowest to its highest source byte and its destination bytes);
// every level gives the same bytes as its scalar twin. The methods call the
// best level of each family this CPU runs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {

// `runs` runs of `run_bytes` bytes, run k copied from src + k * step to
// dst + k * run_bytes, in ascending order of k. A negative step walks the
// source backwards.
void copy_nth_bytes_scalar(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t runs) noexcept;
void copy_nth_bytes_sse2(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t runs) noexcept;
// Runs of 1..15 bytes whose stride puts two or more in 16 bytes: pshufb.
void copy_nth_bytes_ssse3(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t runs) noexcept;
void copy_nth_bytes_avx2(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t runs) noexcept;

// Runs of `run_bits` bits from the bit stream at src (from bit `src_bit`),
// `gap` bits passed over after each run, packed from bit `dst_bit` of dst,
// until `total` bits are copied. The destination is written a whole byte at
// a time from an accumulator that starts at 0 and is never read: in the
// first byte the bits before dst_bit become 0, in the last one the bits after
// the last copied bit; with nothing to copy, a dst_bit inside a byte clears
// that byte. Only source bytes that hold copied bits are read.
// The words level moves up to 32 bits at a time through 64-bit windows and
// hands byte-aligned gathers to copy_nth_bytes_sse2.
void copy_nth_bits_scalar(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                          size_t gap, uint64_t total) noexcept;
void copy_nth_bits_words(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                         size_t gap, uint64_t total) noexcept;
// Short runs whose period packs whole bytes into a 64-bit lane, into a
// destination from a byte's first bit: two or four lanes at a time, packed
// by shifts and byte shuffles; the rest as the words level does it.
void copy_nth_bits_ssse3(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                         size_t gap, uint64_t total) noexcept;
void copy_nth_bits_avx2(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits,
                        size_t gap, uint64_t total) noexcept;

// Each of the n bytes at src as 8 bytes at dst, one per bit from the most
// significant: `high` for a 1, `low` for a 0. Every 4 destination bytes are
// one little-endian word V0 | V1 << 8 | V2 << 16 | V3 << 24 (mod 2^32) of
// the chosen values, so a value outside 0..255 also sets bits in the
// following bytes of its word.
void expand_bits_scalar(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept;
void expand_bits_sse2(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept;
void expand_bits_avx2(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept;

// The levels of each kernel, best first.
struct CopyNthBytesTable {
  void (*gather)(uint8_t* dst, const uint8_t* src, size_t run_bytes, ptrdiff_t step, size_t runs) noexcept;
};
struct CopyNthBitsTable {
  void (*gather)(uint8_t* dst, size_t dst_bit, const uint8_t* src, size_t src_bit, size_t run_bits, size_t gap,
                 uint64_t total) noexcept;
};
struct ExpandBitsTable {
  void (*expand)(uint8_t* dst, const uint8_t* src, size_t n, int32_t low, int32_t high) noexcept;
};
extern constinit KernelFamily<CopyNthBytesTable> copy_nth_bytes_kernels;
extern constinit KernelFamily<CopyNthBitsTable> copy_nth_bits_kernels;
extern constinit KernelFamily<ExpandBitsTable> expand_bits_kernels;

}  // namespace vek
