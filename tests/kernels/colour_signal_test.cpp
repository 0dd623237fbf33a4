// Every level of the colour kernels against their scalar twins, over random
// data, 0..300 groups or pixels and a few large counts, every start
// misalignment 0..63, and storage ending at (or starting after) a PROT_NONE
// page; the twins themselves against hand-written expectations and
// independent oracles.
#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "colour_signal/colour_rules.h"
#include "colour_signal/rgb12.h"
#include "frame/cpu.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/kernel_levels.h"
#include "tests/support/sweep.h"

namespace {
using Bytes = std::vector<uint8_t>;

const size_t kLargeCounts[] = {4096 + 37, 65536 + 5};

// Runs `vector` in place on guarded storage and `scalar` on a copy of the
// same bytes, for every element count 0..300 and the large ones: starting at
// every misalignment 0..63 after a PROT_NONE page, and ending right before
// one. `fill` makes the bytes and picks the call's other arguments, anew for
// every count.
void against_twin(size_t element_bytes, const std::function<void(std::mt19937&, Bytes&)>& fill,
                  const std::function<void(uint8_t*, size_t)>& scalar,
                  const std::function<void(uint8_t*, size_t)>& vector) {
  std::mt19937 random(20240607);
  std::vector<size_t> counts;
  for (size_t count = 0; count <= 300; ++count) counts.push_back(count);
  counts.insert(counts.end(), std::begin(kLargeCounts), std::end(kLargeCounts));
  for (size_t count : counts) {
    Bytes expected(count * element_bytes);
    fill(random, expected);
    const Bytes original = expected;
    scalar(expected.data(), count);
    auto check = [&](uint8_t* start, const char* where) {
      if (!original.empty()) std::memcpy(start, original.data(), original.size());
      vector(start, count);
      return std::equal(expected.begin(), expected.end(), start) ? testing::AssertionSuccess()
                                                                  : testing::AssertionFailure() << where;
    };
    GuardedBuffer after_guard(original.size() + 63, GuardSide::Before);
    for (size_t misalignment : sweep_misalignments()) {
      ASSERT_TRUE(check(after_guard.data() + misalignment, "after a guard page"))
          << "count " << count << ", misalignment " << misalignment;
    }
    GuardedBuffer before_guard(original.size(), GuardSide::After);
    ASSERT_TRUE(check(before_guard.data(), "before a guard page")) << "count " << count;
  }
}

void random_bytes(std::mt19937& random, Bytes& bytes) {
  std::uniform_int_distribution<int> byte(0, 255);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(byte(random));
}

// -- 12-bit to 8-bit RGB --------------------------------------------------------

class Rgb12Level : public testing::TestWithParam<vek::Level> {};

TEST_P(Rgb12Level, MatchesScalarInPlace) {
  if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  auto convert = table_of(vek::rgb12_kernels, GetParam()).convert;
  against_twin(
      9, random_bytes, [](uint8_t* p, size_t n) { vek::rgb12_to_rgb8_scalar(p, p, n); },
      [&](uint8_t* p, size_t n) { convert(p, p, n); });
}

TEST_P(Rgb12Level, MatchesScalarIntoAnotherBuffer) {
  if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  auto convert = table_of(vek::rgb12_kernels, GetParam()).convert;
  std::mt19937 random(7);
  for (GuardSide side : {GuardSide::After, GuardSide::Before}) {
    for (size_t groups = 0; groups <= 300; ++groups) {
      Bytes in(groups * 9);
      random_bytes(random, in);
      GuardedBuffer source(in.size(), side);
      if (!in.empty()) std::memcpy(source.data(), in.data(), in.size());
      GuardedBuffer out(groups * 6, side);
      Bytes expected(groups * 6);
      vek::rgb12_to_rgb8_scalar(in.data(), expected.data(), groups);
      convert(source.data(), out.data(), groups);
      ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.data())) << groups << " groups";
      ASSERT_TRUE(std::equal(in.begin(), in.end(), source.data())) << "the source changed";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Rgb12Level, testing::ValuesIn(levels_of(vek::rgb12_kernels)), level_param_name);

// The twin against a reading of the packed samples bit by bit.
TEST(Rgb12Kernel, ScalarKeepsTheUpperEightBitsOfEverySample) {
  std::mt19937 random(3);
  Bytes packed(9 * 40);
  random_bytes(random, packed);
  Bytes expected;
  for (size_t sample = 0; sample < packed.size() * 8 / 12; ++sample) {
    unsigned value = 0;
    for (size_t bit = sample * 12; bit < sample * 12 + 12; ++bit) {
      value = value << 1 | ((packed[bit / 8] >> (7 - bit % 8)) & 1u);
    }
    expected.push_back(static_cast<uint8_t>(value >> 4));
  }
  Bytes converted = packed;
  vek::rgb12_to_rgb8_scalar(converted.data(), converted.data(), 40);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), converted.begin()));
  EXPECT_TRUE(std::equal(packed.begin() + 240, packed.end(), converted.begin() + 240)) << "the tail keeps its bytes";

  Bytes group = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
  vek::rgb12_to_rgb8_scalar(group.data(), group.data(), 1);
  EXPECT_EQ(group, (Bytes{0xAB, 0xDE, 0x12, 0x45, 0x78, 0xAB, 0x78, 0x9A, 0xBC}));
}

// -- colour replacement -----------------------------------------------------------

struct Band {
  int32_t lo, hi;
};

// Bands that reach below 0, above 255, hold one value, hold none, or take the
// whole 32-bit range, next to ordinary ones.
const Band kBands[] = {{0, 255},     {180, 220},   {90, 110},   {45, 55},    {0, 0},      {255, 255},
                       {2, 3},       {-5, 3},      {250, 300},  {3, 2},      {-10, -1},   {256, 400},
                       {INT32_MIN, INT32_MAX},     {INT32_MIN, INT32_MIN},   {100, 100},  {-1, 0}};

class ReplaceColourLevel : public testing::TestWithParam<vek::Level> {};

TEST_P(ReplaceColourLevel, MatchesScalar) {
  if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  auto replace = table_of(vek::replace_colour_kernels, GetParam()).replace;
  int32_t lo[4], hi[4];
  uint8_t dest[4];
  // Pixels near the chosen bands, so that whole pixels match often.
  auto fill = [&](std::mt19937& random, Bytes& bytes) {
    std::uniform_int_distribution<size_t> band(0, std::size(kBands) - 1);
    std::uniform_int_distribution<int> byte(0, 255), near(-2, 2), pick(0, 3);
    for (int k = 0; k < 4; ++k) {
      const Band& b = kBands[pick(random) == 0 ? band(random) : band(random) % 4];
      lo[k] = b.lo;
      hi[k] = b.hi;
      dest[k] = static_cast<uint8_t>(byte(random));
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
      int64_t centre = pick(random) == 0 ? byte(random) : (pick(random) < 2 ? lo[i % 4] : hi[i % 4]);
      bytes[i] = static_cast<uint8_t>(std::clamp<int64_t>(centre + near(random), 0, 255));
    }
  };
  against_twin(
      4, fill, [&](uint8_t* p, size_t n) { vek::replace_colour_scalar(p, n, lo, hi, dest); },
      [&](uint8_t* p, size_t n) { replace(p, n, lo, hi, dest); });
}

INSTANTIATE_TEST_SUITE_P(Levels, ReplaceColourLevel, testing::ValuesIn(levels_of(vek::replace_colour_kernels)),
                         level_param_name);

// -- channel-sum complement -----------------------------------------------------

const int32_t kBudgets[] = {INT32_MIN, -1, 0, 1, 100, 254, 255, 256, 600, 765, 766,
                            1019, 1020, 1021, 1274, 1275, 1276, INT32_MAX};

void complement_twins(void (*scalar)(uint8_t*, size_t, int32_t, bool) noexcept,
                      void (*vector)(uint8_t*, size_t, int32_t, bool) noexcept) {
  int32_t budget = 255;
  bool with_sum0 = true;
  auto fill = [&](std::mt19937& random, Bytes& bytes) {
    std::uniform_int_distribution<size_t> which(0, std::size(kBudgets) - 1);
    std::uniform_int_distribution<int> byte(0, 255), pick(0, 3);
    budget = kBudgets[which(random)];
    with_sum0 = pick(random) < 2;
    random_bytes(random, bytes);
    for (size_t i = 0; i < bytes.size(); i += 4) {
      if (pick(random) == 0) std::fill_n(bytes.begin() + i, pick(random) == 0 ? 4 : 3, 0);  // sums of 0
      else if (pick(random) == 0) std::fill_n(bytes.begin() + i, 4, byte(random) / 4);       // small sums
    }
  };
  against_twin(
      4, fill, [&](uint8_t* p, size_t n) { scalar(p, n, budget, with_sum0); },
      [&](uint8_t* p, size_t n) { vector(p, n, budget, with_sum0); });
}

class ComplementLevel : public testing::TestWithParam<vek::Level> {};

TEST_P(ComplementLevel, CmyMatchesScalar) {
  if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  complement_twins(vek::complement_cmy_scalar, table_of(vek::complement_kernels, GetParam()).cmy);
}

TEST_P(ComplementLevel, CmykMatchesScalar) {
  if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  complement_twins(vek::complement_cmyk_scalar, table_of(vek::complement_kernels, GetParam()).cmyk);
}

INSTANTIATE_TEST_SUITE_P(Levels, ComplementLevel, testing::ValuesIn(levels_of(vek::complement_kernels)),
                         level_param_name);

// The twins over every reachable sum and every budget above, against the
// fourth byte as "budget minus sum, clamped to 0..255, and 0 for an empty
// pixel with WithSum0".
TEST(ComplementKernel, ScalarOverEverySum) {
  for (int32_t budget : kBudgets) {
    for (bool with_sum0 : {false, true}) {
      for (int sum = 0; sum <= 1020; ++sum) {
        uint8_t channels[4];
        int left = sum;
        for (uint8_t& c : channels) {
          c = static_cast<uint8_t>(std::min(left, 255));
          left -= c;
        }
        int64_t clamped = std::clamp<int64_t>(int64_t{budget} - sum, 0, 255);
        uint8_t expected = with_sum0 && sum == 0 ? 0 : static_cast<uint8_t>(clamped);
        uint8_t cmyk[4];
        std::memcpy(cmyk, channels, 4);
        vek::complement_cmyk_scalar(cmyk, 1, budget, with_sum0);
        EXPECT_EQ(cmyk[3], expected) << "CMYK sum " << sum << " budget " << budget << " WithSum0 " << with_sum0;
        EXPECT_EQ(0, std::memcmp(cmyk, channels, 3));
        if (sum <= 765) {
          uint8_t cmy[4] = {channels[0], channels[1], channels[2], 0x5A};  // the whole sum in the first three
          vek::complement_cmy_scalar(cmy, 1, budget, with_sum0);
          EXPECT_EQ(cmy[3], expected) << "CMY sum " << sum << " budget " << budget << " WithSum0 " << with_sum0;
        }
      }
    }
  }
}
}  // namespace
