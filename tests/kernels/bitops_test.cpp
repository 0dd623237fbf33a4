// The bit and byte-order kernels: every level of each family against its
// scalar twin (kernel_harness.h), and the twins against independent oracles:
// std::reverse, a bit-by-bit reading and hand-written words.
#include <algorithm>
#include <bitset>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "bitops/mirror.h"
#include "bitops/strided.h"
#include "bitops/swap_bytes.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Bytes;
using kernel_test::Call;
using kernel_test::Random;
using kernel_test::text;

// Bits available from `first` in a source of `bits` bits, in runs with gaps.
uint64_t bits_available(size_t bits, size_t first, size_t run, size_t gap) {
  size_t room = bits - first;
  size_t whole = room / (run + gap);
  return whole * run + std::min(run, room - whole * (run + gap));
}

// A range of bits that touches exactly the n bytes, from any bit of the first.
Call<vek::MirrorBitsTable> mirror_bits(size_t n, Random& random) {
  size_t first = n == 0 ? 0 : random.in(0, 7);
  size_t count = n == 0 ? 0 : random.in(std::max(first + 1, 8 * n - 7), 8 * n) - first;
  return {{{random.bytes(n)}},
          [=](const vek::MirrorBitsTable& t, uint8_t* const* p) { return t.mirror(p[0], first, count), uint64_t{0}; },
          text("first bit ", first, ", ", count, " bits")};
}

// Runs whose source span fits in n bytes, forwards, in place or backwards;
// every other call has runs close enough to share a 16-byte window.
Call<vek::CopyNthBytesTable> copy_nth_bytes(size_t n, Random& random) {
  bool close = random.one_in(2);
  size_t run = random.in(1, std::max<size_t>(1, std::min<size_t>(n, close ? 15 : 48)));
  auto reach = static_cast<ptrdiff_t>(close ? 16 - run : run + 8);
  ptrdiff_t step = static_cast<ptrdiff_t>(random.in(0, close ? 2 * reach : 3 * run + 16)) - reach;
  size_t stride = static_cast<size_t>(std::abs(step)), runs = 0;
  if (n >= run) {
    size_t most = step == 0 ? 20 : (n - run) / stride + 1;
    runs = random.one_in(2) ? most : random.in(1, most);
  }
  size_t span = runs == 0 ? 0 : (runs - 1) * stride + run;
  size_t first_run = step < 0 && runs > 0 ? (runs - 1) * stride : 0;
  return {{{random.bytes(span)}, {random.bytes(runs * run)}},
          [=](const vek::CopyNthBytesTable& t, uint8_t* const* p) {
            return t.gather(p[1], p[0] + first_run, run, step, runs), uint64_t{0};
          },
          text(runs, " runs of ", run, ", step ", step)};
}

Call<vek::CopyNthBitsTable> copy_nth_bits(size_t n, Random& random) {
  unsigned shape = random() % 4;
  bool whole_bytes = shape == 0;  // the byte-gather path
  size_t unit = whole_bytes ? 8 : 1;
  size_t src_bit = n == 0 || whole_bytes ? 0 : random.in(0, 7);
  size_t dst_bit = whole_bytes ? 0 : random.in(0, 7);
  size_t run = unit * random.in(1, whole_bytes ? 8 : 70);
  size_t gap = unit * random.in(0, whole_bytes ? 4 : 20);
  if (shape == 1) {  // periods that pack whole bytes into 64-bit lanes
    const size_t periods[] = {2, 3, 4, 6, 8, 12, 16, 20, 24, 32, 40, 64};
    size_t period = periods[random.in(0, std::size(periods) - 1)];
    dst_bit = 0;
    run = random.in(1, period);
    gap = period - run;
  }
  uint64_t total = n == 0 ? 0 : bits_available(8 * n, src_bit, run, gap);
  if (random.one_in(2)) total = random.in(0, total) / unit * unit;
  return {{{random.bytes(n)}, {random.bytes((dst_bit + total + 7) / 8)}},
          [=](const vek::CopyNthBitsTable& t, uint8_t* const* p) {
            return t.gather(p[1], dst_bit, p[0], src_bit, run, gap, total), uint64_t{0};
          },
          text(total, " bits in runs of ", run, ", gap ", gap, ", from bit ", src_bit, " to bit ", dst_bit)};
}

Call<vek::ExpandBitsTable> expand_bits(size_t n, Random& random) {
  bool bytes_only = random.one_in(2);
  auto value = [&] { return static_cast<int32_t>(bytes_only ? random() % 256 : random()); };
  int32_t low = value(), high = value();
  return {{{random.bytes(n)}, {random.bytes(8 * n)}},
          [=](const vek::ExpandBitsTable& t, uint8_t* const* p) { return t.expand(p[1], p[0], n, low, high), uint64_t{0}; },
          text("low ", low, ", high ", high)};
}

using kernel_test::family;
using kernel_test::in_place;
const bool registered =
    family("ReverseBytes", vek::reverse_bytes_kernels, {vek::reverse_bytes_scalar}, in_place(&vek::ReverseBytesTable::reverse)) &&
    family("SwapBytes16", vek::swap_bytes16_kernels, {vek::swap_bytes16_scalar}, in_place(&vek::SwapBytes16Table::swap)) &&
    family("SwapBytes32", vek::swap_bytes32_kernels, {vek::swap_bytes32_scalar}, in_place(&vek::SwapBytes32Table::swap)) &&
    family("MirrorBitsInBytes", vek::mirror_bits_in_bytes_kernels, {vek::mirror_bits_in_bytes_scalar},
           in_place(&vek::MirrorBitsInBytesTable::mirror)) &&
    family("MirrorBits", vek::mirror_bits_kernels, {vek::mirror_bits_scalar}, mirror_bits) &&
    family("CopyNthBytes", vek::copy_nth_bytes_kernels, {vek::copy_nth_bytes_scalar}, copy_nth_bytes) &&
    family("CopyNthBits", vek::copy_nth_bits_kernels, {vek::copy_nth_bits_scalar}, copy_nth_bits) &&
    family("ExpandBits", vek::expand_bits_kernels, {vek::expand_bits_scalar}, expand_bits);

// -- the twins against oracles ---------------------------------------------------

TEST(ByteSwapKernels, TwinsAgainstStdReverse) {
  Bytes in(37);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint8_t>(i * 7 + 1);
  const struct {
    void (*twin)(uint8_t*, size_t) noexcept;
    size_t word;
  } twins[] = {{vek::reverse_bytes_scalar, in.size()}, {vek::swap_bytes16_scalar, 2}, {vek::swap_bytes32_scalar, 4}};
  for (const auto& [twin, word] : twins) {
    Bytes bytes = in, expected = in;
    twin(bytes.data(), bytes.size());
    for (size_t i = 0; i + word <= in.size(); i += word) std::reverse(expected.begin() + i, expected.begin() + i + word);
    EXPECT_EQ(bytes, expected) << word << "-byte words";
  }
}

// Every byte value, against its bits reversed as a string.
TEST(MirrorKernels, EveryByteMirrored) {
  Bytes every(256);
  for (unsigned i = 0; i < 256; ++i) every[i] = static_cast<uint8_t>(i);
  vek::mirror_bits_in_bytes_scalar(every.data(), every.size());
  for (unsigned i = 0; i < 256; ++i) {
    std::string bits = std::bitset<8>(i).to_string();
    std::reverse(bits.begin(), bits.end());
    EXPECT_EQ(vek::swap[i], std::bitset<8>(bits).to_ulong()) << i;
    EXPECT_EQ(every[i], std::bitset<8>(bits).to_ulong()) << i;
  }
}

// The bits of `bytes`, bit 0 (the first byte's most significant) first.
std::vector<bool> bits_of(const Bytes& bytes) {
  std::vector<bool> bits;
  for (uint8_t byte : bytes) {
    for (int k = 7; k >= 0; --k) bits.push_back(((byte >> k) & 1) != 0);
  }
  return bits;
}

TEST(MirrorKernels, PairwiseTwinAgainstBitVector) {
  Random random(11);
  for (int round = 0; round < 2000; ++round) {
    Bytes data = random.bytes(random.in(1, 9));
    size_t first = random.in(0, data.size() * 8 - 1);
    size_t count = random.in(0, data.size() * 8 - first);
    std::vector<bool> expected = bits_of(data);
    std::reverse(expected.begin() + static_cast<ptrdiff_t>(first), expected.begin() + static_cast<ptrdiff_t>(first + count));
    vek::mirror_bits_scalar(data.data(), first, count);
    ASSERT_EQ(bits_of(data), expected) << "first bit " << first << ", " << count << " bits";
  }
}

TEST(StridedKernels, CopyNthBitsTwinAgainstBitVector) {
  Random random(23);
  for (int round = 0; round < 2000; ++round) {
    Bytes source = random.bytes(random.in(1, 12));
    size_t src_bit = random.in(0, source.size() * 8 - 1), dst_bit = random.in(0, 15);
    size_t run = random.in(1, 20), gap = random.in(0, 9);
    uint64_t total = random.in(0, bits_available(source.size() * 8, src_bit, run, gap));
    Bytes dest((dst_bit + total + 7) / 8 + 2, 0xFF);
    vek::copy_nth_bits_scalar(dest.data(), dst_bit, source.data(), src_bit, run, gap, total);

    std::vector<bool> in = bits_of(source), expected = bits_of(Bytes(dest.size(), 0xFF));
    for (uint64_t i = 0, from = src_bit; i < total; ++i, ++from) {
      if (i > 0 && i % run == 0) from += gap;
      expected[dst_bit + i] = in[from];
    }
    // Zeros from the start of the first written byte to dst_bit, and after
    // the last bit to the end of its byte.
    if (total > 0 || dst_bit % 8 != 0) {
      for (size_t b = dst_bit / 8 * 8; b < dst_bit; ++b) expected[b] = false;
      for (size_t b = dst_bit + total; b % 8 != 0; ++b) expected[b] = false;
    }
    ASSERT_EQ(bits_of(dest), expected) << total << " bits in runs of " << run << ", gap " << gap;
  }
}

TEST(StridedKernels, ExpandTwinSpillsWithinTheWord) {
  const uint8_t source[] = {0xFF, 0x0F};
  uint8_t dest[16];
  vek::expand_bits_scalar(dest, source, 2, 0, 256);
  EXPECT_EQ(Bytes(dest, dest + 16), (Bytes{0, 1, 1, 1, 0, 1, 1, 1, 0, 0, 0, 0, 0, 1, 1, 1}));
  const uint8_t zero = 0;  // every word 0x0201 | 0x0201 << 8 | 0x0201 << 16 | 0x0201 << 24
  vek::expand_bits_scalar(dest, &zero, 1, 0x0201, 0);
  EXPECT_EQ(Bytes(dest, dest + 8), (Bytes{1, 3, 3, 3, 1, 3, 3, 3}));
}
}  // namespace
