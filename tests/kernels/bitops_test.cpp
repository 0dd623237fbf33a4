// The bit and byte-order kernels, every level of each family against its
// scalar twin (kernel_harness.h).
#include <algorithm>
#include <cstdlib>

#include "bitops/mirror.h"
#include "bitops/strided.h"
#include "bitops/swap_bytes.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Call;
using kernel_test::Random;
using kernel_test::text;

// A range of bits that touches exactly the n bytes, from any bit of the first,
// given from up to two bytes before them.
Call<vek::MirrorBitsTable> mirror_bits(size_t n, Random& random) {
  size_t first = n == 0 ? 0 : random.in(0, 7), skip = random.in(0, 2);
  size_t count = n == 0 ? 0 : random.in(std::max(first + 1, 8 * n - 7), 8 * n) - first;
  return {{{random.bytes(n)}}, [=](auto& t, auto p) { t.mirror(p[0] - skip, 8 * skip + first, count); },
          text("first bit ", 8 * skip + first, ", ", count, " bits")};
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
          [=](auto& t, auto p) { t.gather(p[1], p[0] + first_run, run, step, runs); },
          text(runs, " runs of ", run, ", step ", step)};
}

// Whole bytes (the byte-gather path), periods that pack whole bytes into
// 64-bit lanes, or any runs and gaps between any bits.
Call<vek::CopyNthBitsTable> copy_nth_bits(size_t n, Random& random) {
  unsigned shape = random() % 4;
  size_t unit = shape == 0 ? 8 : 1;
  size_t src_bit = n == 0 || shape == 0 ? 0 : random.in(0, 7);
  size_t dst_bit = shape <= 1 ? 0 : random.in(0, 7);
  size_t run = unit * random.in(1, shape == 0 ? 8 : 70), gap = unit * random.in(0, shape == 0 ? 4 : 20);
  if (shape == 1) {
    const size_t periods[] = {2, 3, 4, 6, 8, 12, 16, 20, 24, 32, 40, 64};
    size_t period = periods[random.in(0, std::size(periods) - 1)];
    run = random.in(1, period);
    gap = period - run;
  }
  uint64_t total = 0;  // the bits available from src_bit, in runs with gaps
  if (n > 0) {
    size_t room = 8 * n - src_bit, whole = room / (run + gap);
    total = whole * run + std::min(run, room - whole * (run + gap));
  }
  if (random.one_in(2)) total = random.in(0, total) / unit * unit;
  return {{{random.bytes(n)}, {random.bytes((dst_bit + total + 7) / 8)}},
          [=](auto& t, auto p) { t.gather(p[1], dst_bit, p[0], src_bit, run, gap, total); },
          text(total, " bits in runs of ", run, ", gap ", gap, ", from bit ", src_bit, " to bit ", dst_bit)};
}

// Values of a byte, or of any 32 bits.
Call<vek::ExpandBitsTable> expand_bits(size_t n, Random& random) {
  uint32_t mask = random.one_in(2) ? 0xFF : 0xFFFFFFFF;
  auto low = static_cast<int32_t>(random() & mask), high = static_cast<int32_t>(random() & mask);
  return {{{random.bytes(n)}, {random.bytes(8 * n)}}, [=](auto& t, auto p) { t.expand(p[1], p[0], n, low, high); },
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
}  // namespace
