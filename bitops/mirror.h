// Kernels of the mirroring methods. Bits are numbered from the most
// significant bit of the first byte: bit b is the bit with mask
// 0x80 >> (b % 8) in byte b / 8. No kernel touches a byte outside the range
// it is given; every level gives the same bytes as its scalar twin. The
// methods call the best level of each family this CPU runs.
// Mirroring a byte range reuses reverse_bytes of bitops/swap_bytes.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "frame/dispatch.h"

namespace vek {

constexpr std::array<uint8_t, 256> mirrored_bytes() {
  std::array<uint8_t, 256> table{};
  for (unsigned i = 0; i < 256; ++i) {
    unsigned mirrored = 0;
    for (unsigned k = 0; k < 8; ++k) mirrored |= ((i >> k) & 1u) << (7 - k);
    table[i] = static_cast<uint8_t>(mirrored);
  }
  return table;
}

// Entry i is i with its eight bits in reverse order: swap[0x01] == 0x80,
// swap[0xF0] == 0x0F.
inline constexpr std::array<uint8_t, 256> swap = mirrored_bytes();

// Each of the n bytes at p replaced by its mirror image.
void mirror_bits_in_bytes_scalar(uint8_t* p, size_t n) noexcept;
void mirror_bits_in_bytes_sse2(uint8_t* p, size_t n) noexcept;
void mirror_bits_in_bytes_ssse3(uint8_t* p, size_t n) noexcept;
void mirror_bits_in_bytes_avx2(uint8_t* p, size_t n) noexcept;

// The bit_count bits from bit first_bit of p put in reverse order; every
// other bit, also those sharing a byte with the range, keeps its value.
// The scalar twin exchanges one pair of bits at a time.
void mirror_bits_scalar(uint8_t* p, size_t first_bit, size_t bit_count) noexcept;
void mirror_bits_sse2(uint8_t* p, size_t first_bit, size_t bit_count) noexcept;
void mirror_bits_avx2(uint8_t* p, size_t first_bit, size_t bit_count) noexcept;

// The levels of each kernel, best first.
struct MirrorBitsInBytesTable {
  void (*mirror)(uint8_t* p, size_t n) noexcept;
};
struct MirrorBitsTable {
  void (*mirror)(uint8_t* p, size_t first_bit, size_t bit_count) noexcept;
};
extern constinit KernelFamily<MirrorBitsInBytesTable> mirror_bits_in_bytes_kernels;
extern constinit KernelFamily<MirrorBitsTable> mirror_bits_kernels;

}  // namespace vek
