// The kernels of the scaling and min/max methods: every level of each kernel
// family against its scalar twin over random data, sizes 0..300 bytes and a
// few large ones, start addresses at every offset 0..63 from a 64-byte
// boundary, in buffers fenced by a guard page; every level against
// std::min / std::max and over every input value; and the scalar twins
// against hand-written expectations and integer arithmetic.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/minmax.h"
#include "numeric/scaling.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/kernel_levels.h"
#include "tests/support/sweep.h"

namespace {
using Bytes = std::vector<uint8_t>;
using vek::Extreme;

constexpr size_t kMaxSize = 300;
constexpr size_t kAlignments = 64;
constexpr size_t kLargeSizes[] = {4096 + 37, 65536 + 5};

// Sizes 0..300, then the large ones.
std::vector<size_t> test_sizes() {
  std::vector<size_t> sizes;
  for (size_t size = 0; size <= kMaxSize; ++size) sizes.push_back(size);
  sizes.insert(sizes.end(), std::begin(kLargeSizes), std::end(kLargeSizes));
  return sizes;
}

// A suite per kernel family, one instance per level; a level this CPU lacks
// is skipped, not passed.
class LevelTest : public ::testing::TestWithParam<vek::Level> {
 protected:
  void SetUp() override {
    if (!vek::cpu_has(GetParam())) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam());
  }
};
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// `size` bytes starting `misalignment` bytes past a 64-byte boundary, as
// near the guard page as that allows: flush against it for one misalignment
// in 64 (GuardSide::After) or for misalignment 0 (GuardSide::Before).
struct Fenced {
  Fenced(size_t size, GuardSide side) : buffer(size + kAlignments - 1, side), size(size), side(side) {}
  uint8_t* at(size_t misalignment) const {
    auto low = reinterpret_cast<uintptr_t>(buffer.data());
    if (side == GuardSide::Before) return buffer.data() + ((misalignment - low) & (kAlignments - 1));
    uintptr_t latest = low + kAlignments - 1;  // the last start that keeps `size` bytes before the guard
    return buffer.data() + (kAlignments - 1) - ((latest - misalignment) & (kAlignments - 1));
  }
  GuardedBuffer buffer;
  size_t size;
  GuardSide side;
};

void fill_random(std::mt19937& random, uint8_t* data, size_t size) {
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(random());
}

// The second source near the first, element by element: unrelated, equal,
// equal in its upper half, or one byte apart, so that equal elements and
// 64-bit elements with equal high halves are common.
void fill_near(std::mt19937& random, const uint8_t* first, uint8_t* second, size_t size, size_t width) {
  for (size_t at = 0; at + width <= size; at += width) {
    std::memcpy(second + at, first + at, width);
    switch (random() % 4) {
      case 0: fill_random(random, second + at, width); break;
      case 1: break;
      case 2: fill_random(random, second + at, (width + 1) / 2); break;
      case 3: second[at + random() % width] = static_cast<uint8_t>(random()); break;
    }
  }
  fill_random(random, second + size / width * width, size % width);
}

const char* name_of(Extreme extreme) { return extreme == Extreme::Min ? "min" : "max"; }

// -- min / max ----------------------------------------------------------------

template <class T>
vek::MinMaxKernel kernel_for(const vek::MinMaxTable& table, Extreme extreme) {
  return vek::minmax_kernel(table, 8 * sizeof(T), std::is_signed_v<T>, extreme);
}

const vek::MinMaxTable& scalar_minmax() { return table_of(vek::minmax_kernels, vek::Level::Scalar); }

template <class T>
void check_minmax_twins(const vek::MinMaxTable& table, Extreme extreme) {
  vek::MinMaxKernel kernel = kernel_for<T>(table, extreme);
  vek::MinMaxKernel twin = kernel_for<T>(scalar_minmax(), extreme);
  ASSERT_NE(kernel, nullptr);
  std::mt19937 random(42);
  for (GuardSide side : {GuardSide::After, GuardSide::Before}) {
    for (size_t size : test_sizes()) {
      Fenced dst(size, side), first(size, side), second(size, side);
      for (size_t m : sweep_misalignments()) {
        uint8_t* d = dst.at(m);
        uint8_t* a = first.at((5 * m + 3) % kAlignments);
        uint8_t* b = second.at((11 * m + 7) % kAlignments);
        fill_random(random, a, size);
        fill_near(random, a, b, size, sizeof(T));
        fill_random(random, d, size);
        Bytes expected(d, d + size);
        twin(expected.data(), a, b, size / sizeof(T));
        kernel(d, a, b, size / sizeof(T));
        ASSERT_EQ(Bytes(d, d + size), expected)
            << name_of(extreme) << " size " << size << " misalignment " << m
            << (side == GuardSide::After ? " guard after" : " guard before");
      }
    }
  }
}

// A destination overlapping a source: every level runs the same sequential
// loop, in ascending order, over the same bytes.
template <class T>
void check_minmax_overlap(const vek::MinMaxTable& table, Extreme extreme) {
  vek::MinMaxKernel kernel = kernel_for<T>(table, extreme);
  vek::MinMaxKernel twin = kernel_for<T>(scalar_minmax(), extreme);
  std::mt19937 random(7);
  Bytes start(2000);
  for (ptrdiff_t shift = -80; shift <= 80; ++shift) {
    for (ptrdiff_t second_shift : {-7, 0, 300}) {
      for (size_t count : {1, 2, 3, 5, 16, 17, 40, 70}) {
        fill_random(random, start.data(), start.size());
        Bytes by_twin = start, by_level = start;
        const size_t first = 400;
        const size_t second = first + second_shift;
        const size_t dst = first + shift;
        twin(by_twin.data() + dst, by_twin.data() + first, by_twin.data() + second, count);
        kernel(by_level.data() + dst, by_level.data() + first, by_level.data() + second, count);
        ASSERT_EQ(by_level, by_twin) << name_of(extreme) << " shift " << shift << " second " << second_shift
                                     << " count " << count;
      }
    }
  }
}

// The level against std::min / std::max, with the type's extremes mixed in.
template <class T>
void check_minmax_oracle(const vek::MinMaxTable& table, Extreme extreme) {
  vek::MinMaxKernel kernel = kernel_for<T>(table, extreme);
  const T specials[] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), T(0), T(1), T(-1),
                        static_cast<T>(T(1) << (8 * sizeof(T) - 2))};
  std::mt19937_64 random(3);
  auto pick = [&]() { return random() % 3 == 0 ? specials[random() % std::size(specials)] : static_cast<T>(random()); };
  for (size_t count = 0; count <= 80; ++count) {
    std::vector<T> a(count), b(count), result(count);
    for (size_t i = 0; i < count; ++i) {
      a[i] = pick();
      b[i] = random() % 4 == 0 ? a[i] : pick();
    }
    kernel(reinterpret_cast<uint8_t*>(result.data()), reinterpret_cast<const uint8_t*>(a.data()),
           reinterpret_cast<const uint8_t*>(b.data()), count);
    for (size_t i = 0; i < count; ++i) {
      T expected = extreme == Extreme::Min ? std::min(a[i], b[i]) : std::max(a[i], b[i]);
      ASSERT_EQ(result[i], expected) << name_of(extreme) << " element " << i << " of " << count;
    }
  }
}

// The scalar level is the twin: it meets only the oracle, and the guard
// pages through the other levels' remainders.
template <class T>
void check_minmax(const vek::MinMaxTable& table, vek::Level level) {
  for (Extreme extreme : {Extreme::Min, Extreme::Max}) {
    ASSERT_NO_FATAL_FAILURE(check_minmax_oracle<T>(table, extreme));
    if (level == vek::Level::Scalar) continue;
    ASSERT_NO_FATAL_FAILURE(check_minmax_twins<T>(table, extreme));
    ASSERT_NO_FATAL_FAILURE(check_minmax_overlap<T>(table, extreme));
  }
}

class MinMaxLevel : public LevelTest {
 protected:
  const vek::MinMaxTable& table() const { return table_of(vek::minmax_kernels, GetParam()); }
};

TEST_P(MinMaxLevel, Unsigned8) { check_minmax<uint8_t>(table(), GetParam()); }
TEST_P(MinMaxLevel, Signed8) { check_minmax<int8_t>(table(), GetParam()); }
TEST_P(MinMaxLevel, Unsigned16) { check_minmax<uint16_t>(table(), GetParam()); }
TEST_P(MinMaxLevel, Signed16) { check_minmax<int16_t>(table(), GetParam()); }
TEST_P(MinMaxLevel, Unsigned32) { check_minmax<uint32_t>(table(), GetParam()); }
TEST_P(MinMaxLevel, Signed32) { check_minmax<int32_t>(table(), GetParam()); }
TEST_P(MinMaxLevel, Unsigned64) { check_minmax<uint64_t>(table(), GetParam()); }
TEST_P(MinMaxLevel, Signed64) { check_minmax<int64_t>(table(), GetParam()); }

TEST_P(MinMaxLevel, OnlyWholeElementSizes) {
  for (int32_t bits : {0, 1, 7, 12, 24, 128, -8}) {
    for (bool isSigned : {false, true}) {
      EXPECT_EQ(vek::minmax_kernel(table(), bits, isSigned, Extreme::Min), nullptr) << bits;
      EXPECT_EQ(vek::minmax_kernel(table(), bits, isSigned, Extreme::Max), nullptr) << bits;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, MinMaxLevel, ::testing::ValuesIn(levels_of(vek::minmax_kernels)), level_param_name);

// -- scaling --------------------------------------------------------------------

const double kFactors[] = {2.0, 0.5, 1.5, -1.0, 1.0E7, 40000.0, 1.0, 0.0, -0.0, 0.999, 3.7, 1.0 / 3.0,
                           -3000000001.0, -1.0E300, 1.0E300, kInf, -kInf, kNaN, 255.5, 1.0000001};

using ScaleKernel = void (*)(uint8_t*, size_t, double) noexcept;

// `width`-byte values: the kernel against the twin; bytes behind the last
// whole value are left alone by both. Every size at every misalignment, the
// factors taken in turn, and then every factor at every size.
void check_scale_twins(ScaleKernel kernel, ScaleKernel twin, size_t width) {
  std::mt19937 random(11);
  size_t turn = 0;
  auto check = [&](const Fenced& data, size_t m, double factor) {
    uint8_t* d = data.at(m);
    fill_random(random, d, data.size);
    Bytes expected(d, d + data.size);
    twin(expected.data(), data.size / width, factor);
    kernel(d, data.size / width, factor);
    ASSERT_EQ(Bytes(d, d + data.size), expected)
        << "factor " << factor << " size " << data.size << " misalignment " << m;
  };
  for (GuardSide side : {GuardSide::After, GuardSide::Before}) {
    for (size_t size : test_sizes()) {
      Fenced data(size, side);
      for (size_t m : sweep_misalignments()) {
        ASSERT_NO_FATAL_FAILURE(check(data, m, kFactors[turn++ % std::size(kFactors)]));
      }
      for (double factor : kFactors) ASSERT_NO_FATAL_FAILURE(check(data, size % kAlignments, factor));
    }
  }
}

// The factors above and random ones across many magnitudes, both signs.
std::vector<double> many_factors() {
  std::vector<double> factors(std::begin(kFactors), std::end(kFactors));
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
  for (int i = 0; i < 200; ++i) factors.push_back(std::ldexp(mantissa(random), static_cast<int>(random() % 80) - 40));
  // factors of few significant bits, which the 16-bit AVX2 level multiplies in float
  for (double few_bits : {3.0, 0.75, 100.0, 255.0, 256.0, 0x1p-20, 0x1p20, 0x1p-100, 0x1p-101, 0x1.02p0, 0x1.01p-3}) {
    factors.push_back(few_bits);
  }
  for (double near : {1.0, 255.0, 65535.0, 1.0 / 255.0, 1.0 / 65535.0}) {
    factors.push_back(std::nextafter(near, 0.0));
    factors.push_back(std::nextafter(near, 2.0 * near));
  }
  return factors;
}

class ScaleU8Level : public LevelTest {
 protected:
  ScaleKernel kernel() const { return table_of(vek::scale_u8_kernels, GetParam()).scale; }
};

TEST_P(ScaleU8Level, MatchesTwin) { check_scale_twins(kernel(), vek::scale_u8_scalar, 1); }

// Every byte value, in a run long enough for the table, for each factor.
TEST_P(ScaleU8Level, EveryByteValue) {
  Bytes values(256 * 3 + 21);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint8_t>(i * 167 + i / 256);
  for (double factor : many_factors()) {
    Bytes expected = values, data = values;
    vek::scale_u8_scalar(expected.data(), expected.size(), factor);
    kernel()(data.data(), data.size(), factor);
    ASSERT_EQ(data, expected) << "factor " << factor;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, ScaleU8Level, ::testing::ValuesIn(levels_of(vek::scale_u8_kernels)),
                         level_param_name);

class ScaleU16Level : public LevelTest {
 protected:
  ScaleKernel kernel() const { return table_of(vek::scale_u16_kernels, GetParam()).scale; }
};

TEST_P(ScaleU16Level, MatchesTwin) { check_scale_twins(kernel(), vek::scale_u16_scalar, 2); }

// All 65536 values, one byte off a 16-byte boundary, for each factor.
TEST_P(ScaleU16Level, EveryValue) {
  Bytes values(2 * 65536 + 1);
  for (size_t w = 0; w < 65536; ++w) {
    values[1 + 2 * w] = static_cast<uint8_t>(w);
    values[2 + 2 * w] = static_cast<uint8_t>(w >> 8);
  }
  for (double factor : many_factors()) {
    Bytes expected = values, data = values;
    vek::scale_u16_scalar(expected.data() + 1, 65536, factor);
    kernel()(data.data() + 1, 65536, factor);
    ASSERT_EQ(data, expected) << "factor " << factor;
  }
}

TEST_P(ScaleU16Level, NegativeOrNaNFactorLeavesValuesAlone) {
  Bytes values(77);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint8_t>(i * 29 + 3);
  for (double factor : {-2.0, -0.5, -kInf, kNaN, -1.0E-300}) {
    Bytes data = values;
    kernel()(data.data(), data.size() / 2, factor);
    EXPECT_EQ(data, values) << "factor " << factor;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, ScaleU16Level, ::testing::ValuesIn(levels_of(vek::scale_u16_kernels)),
                         level_param_name);

// Every byte value against integer arithmetic: held at 255 from a factor of
// 1 up, wrapped modulo 256 below it.
TEST(ScaleKernels, BytesAgainstIntegerArithmetic) {
  for (int k : {1, 2, 3, 255, 256, 1000, 0, -1, -2, -7, -255}) {
    for (int v = 0; v < 256; ++v) {
      int product = v * k;
      auto expected = static_cast<uint8_t>(k >= 1 ? std::min(product, 255) : product & 0xFF);
      ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), k), expected) << "factor " << k << " value " << v;
    }
  }
  // Products below the 32-bit range wrap the same way: v·-(2^40 + 3) is exact
  // and leaves the residue of -3v.
  const double below = -(0x1p40 + 3.0);
  for (int v = 0; v < 256; ++v) {
    ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), below), static_cast<uint8_t>(-3 * v)) << v;
    ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), 0.5), v / 2) << v;
    ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), -0.5), static_cast<uint8_t>(-(v / 2))) << v;
  }
}

TEST(ScaleKernels, BytesAtTheEdges) {
  struct Case {
    double factor;
    uint8_t value, expected;
  } cases[] = {
      {2.0, 0x7F, 0xFE},   {2.0, 0x80, 0xFF},   {0.5, 0xFF, 0x7F},     {1.5, 0x10, 0x18},
      {-1.0, 1, 0xFF},     {-1.0, 2, 0xFE},     {1.0E7, 0xFF, 0xFF},   {kNaN, 0xFF, 0},
      {kNaN, 0, 0},        {kInf, 0, 0},        {kInf, 1, 0xFF},       {-kInf, 0, 0},
      {-kInf, 7, 0},       {1.0E300, 1, 0xFF},  {-1.0E300, 1, 0},      {-3000000001.0, 1, 0xFF},
      {-3000000001.0, 2, 0xFE}, {0.999, 0xFF, 0xFE}, {255.5, 1, 0xFF},  {-0.0, 0xFF, 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(vek::scale_u8_value(c.value, c.factor), c.expected) << "factor " << c.factor << " value " << +c.value;
  }
}

TEST(ScaleKernels, Values16AgainstIntegerArithmetic) {
  for (int k : {0, 1, 2, 3, 40000}) {
    for (int w = 0; w < 65536; ++w) {
      auto expected = static_cast<uint16_t>(std::min<int64_t>(int64_t{w} * k, 65535));
      ASSERT_EQ(vek::scale_u16_value(static_cast<uint16_t>(w), k), expected) << "factor " << k << " value " << w;
    }
  }
  for (int w = 0; w < 65536; ++w) {
    ASSERT_EQ(vek::scale_u16_value(static_cast<uint16_t>(w), 0.5), w / 2) << w;
    ASSERT_EQ(vek::scale_u16_value(static_cast<uint16_t>(w), kInf), w == 0 ? 0 : 65535) << w;
  }
}
}  // namespace
