// The bit and byte-order kernels: every level of each family against its
// scalar twin on random bytes, at every size 0..300 and a few large ones and
// every misalignment 0..63, in guarded memory whose range ends at a PROT_NONE
// page or starts after one (so a stray read or write faults), with a plain
// copy for the twin. A level this CPU lacks is skipped, by name. The twins
// themselves are checked against independent oracles.
#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <cstring>
#include <random>
#include <vector>

#include "bitops/mirror.h"
#include "bitops/strided.h"
#include "bitops/swap_bytes.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/kernel_levels.h"
#include "tests/support/sweep.h"

namespace vek {
// Failure messages name the level.
void PrintTo(Level level, std::ostream* os) { *os << level_name(level); }
}  // namespace vek

namespace {
using Bytes = std::vector<uint8_t>;
using vek::Level;

// -- levels ------------------------------------------------------------------------

// A suite run once per level of a family; a level this CPU lacks is skipped.
class LevelTest : public testing::TestWithParam<Level> {
 protected:
  void SetUp() override {
    if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  }
};

// `size` bytes in guarded memory with `slack` bytes on the side away from the
// guard page, and the same random bytes in a plain buffer for the twin.
class Arena {
 public:
  Arena(size_t size, size_t slack, GuardSide side, std::mt19937& gen)
      : guarded_(size + slack, side), offset_(side == GuardSide::After ? 0 : slack), plain_(size + slack) {
    for (uint8_t& b : plain_) b = static_cast<uint8_t>(gen());
    if (!plain_.empty()) std::memcpy(guarded_.data(), plain_.data(), plain_.size());
  }
  uint8_t* fast() { return guarded_.data() + offset_; }
  uint8_t* twin() { return plain_.data() + offset_; }
  bool same() const { return plain_.empty() || std::memcmp(guarded_.data(), plain_.data(), plain_.size()) == 0; }

 private:
  GuardedBuffer guarded_;
  size_t offset_;
  Bytes plain_;
};

// Calls check(n, misalignment, side) for every size, misalignment and side.
template <class Check>
void every_placement(Check check) {
  std::vector<size_t> sizes;
  for (size_t n = 0; n <= 300; ++n) sizes.push_back(n);
  sizes.push_back(4096 + 37);
  sizes.push_back(65536 + 5);
  for (size_t n : sizes) {
    for (size_t misalignment : sweep_misalignments()) {
      for (GuardSide side : {GuardSide::After, GuardSide::Before}) {
        SCOPED_TRACE(testing::Message() << "size " << n << ", misalignment " << misalignment << ", guard page "
                                        << (side == GuardSide::After ? "after" : "before"));
        check(n, misalignment, side);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

size_t pick(std::mt19937& gen, size_t low, size_t high) {  // inclusive
  return std::uniform_int_distribution<size_t>(low, high)(gen);
}

using InPlace = void (*)(uint8_t*, size_t) noexcept;

void expect_in_place_twins(InPlace fast, InPlace twin) {
  std::mt19937 gen(7);
  every_placement([&](size_t n, size_t misalignment, GuardSide side) {
    Arena arena(n, misalignment, side, gen);
    fast(arena.fast(), n);
    twin(arena.twin(), n);
    ASSERT_TRUE(arena.same());
  });
}

class ReverseBytesLevels : public LevelTest {};
TEST_P(ReverseBytesLevels, MatchTwin) {
  expect_in_place_twins(table_of(vek::reverse_bytes_kernels, GetParam()).reverse, vek::reverse_bytes_scalar);
}
INSTANTIATE_TEST_SUITE_P(Levels, ReverseBytesLevels, testing::ValuesIn(levels_of(vek::reverse_bytes_kernels)),
                         level_param_name);

class SwapBytes16Levels : public LevelTest {};
TEST_P(SwapBytes16Levels, MatchTwin) {
  expect_in_place_twins(table_of(vek::swap_bytes16_kernels, GetParam()).swap, vek::swap_bytes16_scalar);
}
INSTANTIATE_TEST_SUITE_P(Levels, SwapBytes16Levels, testing::ValuesIn(levels_of(vek::swap_bytes16_kernels)),
                         level_param_name);

class SwapBytes32Levels : public LevelTest {};
TEST_P(SwapBytes32Levels, MatchTwin) {
  expect_in_place_twins(table_of(vek::swap_bytes32_kernels, GetParam()).swap, vek::swap_bytes32_scalar);
}
INSTANTIATE_TEST_SUITE_P(Levels, SwapBytes32Levels, testing::ValuesIn(levels_of(vek::swap_bytes32_kernels)),
                         level_param_name);

class MirrorBitsInBytesLevels : public LevelTest {};
TEST_P(MirrorBitsInBytesLevels, MatchTwin) {
  expect_in_place_twins(table_of(vek::mirror_bits_in_bytes_kernels, GetParam()).mirror,
                        vek::mirror_bits_in_bytes_scalar);
}
INSTANTIATE_TEST_SUITE_P(Levels, MirrorBitsInBytesLevels,
                         testing::ValuesIn(levels_of(vek::mirror_bits_in_bytes_kernels)), level_param_name);

TEST(ByteSwapKernels, TwinsAgainstStdReverse) {
  Bytes in(37);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<uint8_t>(i * 7 + 1);
  Bytes whole = in, words16 = in, words32 = in;
  vek::reverse_bytes_scalar(whole.data(), whole.size());
  vek::swap_bytes16_scalar(words16.data(), words16.size());
  vek::swap_bytes32_scalar(words32.data(), words32.size());
  Bytes expected_whole = in, expected16 = in, expected32 = in;
  std::reverse(expected_whole.begin(), expected_whole.end());
  for (size_t i = 0; i + 2 <= in.size(); i += 2) std::reverse(expected16.begin() + i, expected16.begin() + i + 2);
  for (size_t i = 0; i + 4 <= in.size(); i += 4) std::reverse(expected32.begin() + i, expected32.begin() + i + 4);
  EXPECT_EQ(whole, expected_whole);
  EXPECT_EQ(words16, expected16);
  EXPECT_EQ(words32, expected32);
}

// -- mirroring ---------------------------------------------------------------------

TEST(MirrorKernels, TableMirrorsEveryByte) {
  for (unsigned i = 0; i < 256; ++i) {
    std::string bits = std::bitset<8>(i).to_string();
    std::reverse(bits.begin(), bits.end());
    EXPECT_EQ(vek::swap[i], std::bitset<8>(bits).to_ulong()) << "failed on " << i;
  }
}

// The bits of bytes p as a vector, bit 0 first.
std::vector<bool> bits_of(const Bytes& p) {
  std::vector<bool> bits;
  for (uint8_t byte : p) {
    for (int k = 7; k >= 0; --k) bits.push_back(((byte >> k) & 1) != 0);
  }
  return bits;
}

TEST(MirrorKernels, PairwiseTwinAgainstBitVector) {
  std::mt19937 gen(11);
  for (int round = 0; round < 2000; ++round) {
    Bytes data(pick(gen, 1, 9));
    for (uint8_t& b : data) b = static_cast<uint8_t>(gen());
    size_t first = pick(gen, 0, data.size() * 8 - 1);
    size_t count = pick(gen, 0, data.size() * 8 - first);
    std::vector<bool> expected = bits_of(data);
    std::reverse(expected.begin() + static_cast<ptrdiff_t>(first),
                 expected.begin() + static_cast<ptrdiff_t>(first + count));
    vek::mirror_bits_scalar(data.data(), first, count);
    ASSERT_EQ(bits_of(data), expected) << "first bit " << first << ", " << count << " bits";
  }
}

class MirrorBitsLevels : public LevelTest {};
TEST_P(MirrorBitsLevels, MatchTwin) {
  const auto& level = table_of(vek::mirror_bits_kernels, GetParam());
  std::mt19937 gen(13);
  every_placement([&](size_t n, size_t misalignment, GuardSide side) {
    // A range that touches exactly the n bytes, from any bit of the first.
    size_t first = 0, count = 0;
    if (n > 0) {
      first = pick(gen, 0, 7);
      count = pick(gen, std::max(first + 1, 8 * n - 7), 8 * n) - first;
    }
    Arena arena(n, misalignment, side, gen);
    level.mirror(arena.fast(), first, count);
    vek::mirror_bits_scalar(arena.twin(), first, count);
    ASSERT_TRUE(arena.same()) << "first bit " << first << ", " << count << " bits";
  });
}
INSTANTIATE_TEST_SUITE_P(Levels, MirrorBitsLevels, testing::ValuesIn(levels_of(vek::mirror_bits_kernels)), level_param_name);

// -- strided copies --------------------------------------------------------------------

class CopyNthBytesLevels : public LevelTest {};
TEST_P(CopyNthBytesLevels, MatchTwin) {
  const auto& level = table_of(vek::copy_nth_bytes_kernels, GetParam());
  std::mt19937 gen(17);
  every_placement([&](size_t n, size_t misalignment, GuardSide side) {
    // Runs whose source span fits in n bytes, forwards, in place or backwards;
    // every other case has runs close enough to share a 16-byte window.
    bool close = gen() % 2 == 0;
    size_t run = pick(gen, 1, std::max<size_t>(1, std::min<size_t>(n, close ? 15 : 48)));
    auto reach = static_cast<ptrdiff_t>(close ? 16 - run : run + 8);
    auto step = static_cast<ptrdiff_t>(pick(gen, 0, close ? 2 * reach : 3 * run + 16)) - reach;
    size_t runs = 0;
    if (n >= run) {
      size_t most = step == 0 ? 20 : (n - run) / static_cast<size_t>(std::abs(step)) + 1;
      runs = gen() % 2 ? most : pick(gen, 1, most);
    }
    size_t span = runs == 0 ? 0 : (runs - 1) * static_cast<size_t>(std::abs(step)) + run;
    size_t first_run = step < 0 && runs > 0 ? (runs - 1) * static_cast<size_t>(-step) : 0;
    Arena source(span, misalignment, side, gen);
    Arena dest(runs * run, misalignment, side, gen);
    level.gather(dest.fast(), source.fast() + first_run, run, step, runs);
    vek::copy_nth_bytes_scalar(dest.twin(), source.twin() + first_run, run, step, runs);
    ASSERT_TRUE(dest.same()) << runs << " runs of " << run << ", step " << step;
    ASSERT_TRUE(source.same());
  });
}
INSTANTIATE_TEST_SUITE_P(Levels, CopyNthBytesLevels, testing::ValuesIn(levels_of(vek::copy_nth_bytes_kernels)),
                         level_param_name);

// Bits available from `first` in a source of `bits` bits, in runs with gaps.
uint64_t bits_available(size_t bits, size_t first, size_t run, size_t gap) {
  size_t room = bits - first;
  size_t whole = room / (run + gap);
  return whole * run + std::min(run, room - whole * (run + gap));
}

class CopyNthBitsLevels : public LevelTest {};
TEST_P(CopyNthBitsLevels, MatchTwin) {
  const auto& level = table_of(vek::copy_nth_bits_kernels, GetParam());
  std::mt19937 gen(19);
  every_placement([&](size_t n, size_t misalignment, GuardSide side) {
    unsigned shape = gen() % 4;
    bool whole_bytes = shape == 0;  // the byte-gather path
    size_t unit = whole_bytes ? 8 : 1;
    size_t src_bit = n == 0 ? 0 : unit == 8 ? 0 : pick(gen, 0, 7);
    size_t dst_bit = unit == 8 ? 0 : pick(gen, 0, 7);
    size_t run = unit * pick(gen, 1, whole_bytes ? 8 : 70);
    size_t gap = unit * pick(gen, 0, whole_bytes ? 4 : 20);
    if (shape == 1) {  // periods that pack whole bytes into 64-bit lanes
      const size_t periods[] = {2, 3, 4, 6, 8, 12, 16, 20, 24, 32, 40, 64};
      size_t period = periods[pick(gen, 0, std::size(periods) - 1)];
      dst_bit = 0;
      run = pick(gen, 1, period);
      gap = period - run;
    }
    uint64_t total = n == 0 ? 0 : bits_available(8 * n, src_bit, run, gap);
    if (gen() % 2) total = pick(gen, 0, total) / unit * unit;
    Arena source(n, misalignment, side, gen);
    Arena dest((dst_bit + total + 7) / 8, misalignment, side, gen);
    level.gather(dest.fast(), dst_bit, source.fast(), src_bit, run, gap, total);
    vek::copy_nth_bits_scalar(dest.twin(), dst_bit, source.twin(), src_bit, run, gap, total);
    ASSERT_TRUE(dest.same()) << total << " bits in runs of " << run << ", gap " << gap << ", from bit " << src_bit
                             << " to bit " << dst_bit;
  });
}
INSTANTIATE_TEST_SUITE_P(Levels, CopyNthBitsLevels, testing::ValuesIn(levels_of(vek::copy_nth_bits_kernels)),
                         level_param_name);

TEST(StridedKernels, CopyNthBitsTwinAgainstBitVector) {
  std::mt19937 gen(23);
  for (int round = 0; round < 2000; ++round) {
    Bytes source(pick(gen, 1, 12));
    for (uint8_t& b : source) b = static_cast<uint8_t>(gen());
    size_t src_bit = pick(gen, 0, source.size() * 8 - 1);
    size_t dst_bit = pick(gen, 0, 15);
    size_t run = pick(gen, 1, 20), gap = pick(gen, 0, 9);
    uint64_t total = pick(gen, 0, bits_available(source.size() * 8, src_bit, run, gap));
    Bytes dest((dst_bit + total + 7) / 8 + 2, 0xFF);
    vek::copy_nth_bits_scalar(dest.data(), dst_bit, source.data(), src_bit, run, gap, total);

    std::vector<bool> in = bits_of(source), expected = bits_of(Bytes(dest.size(), 0xFF));
    size_t from = src_bit;
    for (uint64_t i = 0; i < total; ++i, ++from) {
      if (i > 0 && i % run == 0) from += gap;
      expected[dst_bit + i] = in[from];
    }
    // Zeros from the start of the first written byte to dst_bit, and after
    // the last bit to the end of its byte.
    size_t end = dst_bit + total;
    if (total > 0 || dst_bit % 8 != 0) {
      for (size_t b = dst_bit / 8 * 8; b < dst_bit; ++b) expected[b] = false;
      for (size_t b = end; b % 8 != 0; ++b) expected[b] = false;
    }
    ASSERT_EQ(bits_of(dest), expected) << total << " bits in runs of " << run << ", gap " << gap;
  }
}

// -- bit expansion ------------------------------------------------------------------

class ExpandBitsLevels : public LevelTest {};
TEST_P(ExpandBitsLevels, MatchTwin) {
  const auto& level = table_of(vek::expand_bits_kernels, GetParam());
  std::mt19937 gen(29);
  every_placement([&](size_t n, size_t misalignment, GuardSide side) {
    bool bytes_only = gen() % 2 == 0;
    auto value = [&] { return bytes_only ? static_cast<int32_t>(gen() % 256) : static_cast<int32_t>(gen()); };
    int32_t low = value(), high = value();
    Arena source(n, misalignment, side, gen);
    Arena dest(8 * n, misalignment, side, gen);
    level.expand(dest.fast(), source.fast(), n, low, high);
    vek::expand_bits_scalar(dest.twin(), source.twin(), n, low, high);
    ASSERT_TRUE(dest.same()) << "low " << low << ", high " << high;
  });
}
INSTANTIATE_TEST_SUITE_P(Levels, ExpandBitsLevels, testing::ValuesIn(levels_of(vek::expand_bits_kernels)), level_param_name);

TEST(StridedKernels, ExpandTwinSpillsWithinTheWord) {
  const uint8_t source[] = {0xFF, 0x0F};
  uint8_t dest[16];
  vek::expand_bits_scalar(dest, source, 2, 0, 256);
  const Bytes expected = {0, 1, 1, 1, 0, 1, 1, 1, 0, 0, 0, 0, 0, 1, 1, 1};
  EXPECT_EQ(Bytes(dest, dest + 16), expected);
  const uint8_t zero = 0;  // every word 0x0201 | 0x0201 << 8 | 0x0201 << 16 | 0x0201 << 24
  vek::expand_bits_scalar(dest, &zero, 1, 0x0201, 0);
  EXPECT_EQ(Bytes(dest, dest + 8), (Bytes{1, 3, 3, 3, 1, 3, 3, 3}));
}

}  // namespace
