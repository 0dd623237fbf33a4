// The kernels of the scaling and min/max methods: every level of each family
// against its scalar twin (kernel_harness.h), and the twins against integer
// arithmetic, std::min / std::max and hand-written values.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "numeric/minmax.h"
#include "numeric/scaling.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Bytes;
using kernel_test::Call;
using kernel_test::Random;
using kernel_test::text;
using vek::Extreme;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// -- min / max ----------------------------------------------------------------

// The second source near the first, element by element: unrelated, equal,
// equal in its upper half, one byte apart, or an extreme of the type.
void make_near(Random& random, Bytes& first, Bytes& second, size_t width) {
  const Bytes other = second;
  second = first;
  for (size_t at = 0; at + width <= first.size(); at += width) {
    uint32_t r = random();
    switch (r % 5) {
      case 0: std::memcpy(&second[at], &other[at], width); break;
      case 1: break;
      case 2: std::memcpy(&second[at], &other[at], (width + 1) / 2); break;
      case 3: second[at + (r >> 8) % width] ^= static_cast<uint8_t>(r >> 16 | 1); break;
      case 4:
        for (uint8_t* element : {&first[at], &second[at]}) {  // 0, all ones, or their top bit flipped
          r >>= 8;
          std::memset(element, r & 1 ? 0x00 : 0xFF, width);
          if (r & 2) element[width - 1] ^= 0x80;
        }
    }
  }
}

// Both extremes into destinations of their own; or, one call in four, one
// extreme into a destination that overlaps a source, anywhere from 80 bytes
// around it to just touching it, every level as the twin's ascending loop.
kernel_test::Generator<vek::MinMaxTable> minmax(int bits, bool is_signed) {
  return [bits, is_signed](size_t n, Random& random) -> Call<vek::MinMaxTable> {
    size_t width = static_cast<size_t>(bits) / 8, count = n / width;
    Bytes first = random.bytes(n), second = random.bytes(n);
    make_near(random, first, second, width);
    if (random.one_in(4)) {
      Extreme extreme = random.one_in(2) ? Extreme::Min : Extreme::Max;
      auto base = static_cast<ptrdiff_t>(n + 88);
      ptrdiff_t to = random.one_in(2) ? static_cast<ptrdiff_t>(random.in(0, 160)) - 80
                                      : (random.one_in(2) ? 1 : -1) * (static_cast<ptrdiff_t>(n + random.in(0, 4)) - 2);
      ptrdiff_t from = random.one_in(3) ? -7 : static_cast<ptrdiff_t>(random.in(0, n));
      Bytes block = random.bytes(static_cast<size_t>(2 * base) + n);
      return {{{block}},
              [=](const vek::MinMaxTable& t, uint8_t* const* p) {
                vek::minmax_kernel(t, bits, is_signed, extreme)(p[0] + base + to, p[0] + base, p[0] + base + from, count);
                return uint64_t{0};
              },
              text(extreme == Extreme::Min ? "min" : "max", " to ", to, " from 0 and ", from)};
    }
    return {{{first}, {second}, {random.bytes(n)}, {random.bytes(n)}}, [=](const vek::MinMaxTable& t, uint8_t* const* p) {
              vek::minmax_kernel(t, bits, is_signed, Extreme::Min)(p[2], p[0], p[1], count);
              vek::minmax_kernel(t, bits, is_signed, Extreme::Max)(p[3], p[0], p[1], count);
              return uint64_t{0};
            }};
  };
}

const vek::MinMaxTable& minmax_twin() { return vek::minmax_kernels.levels().back().table; }

template <class T>
void expect_minmax_twin_as_std() {
  const T specials[] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), T(0), T(1), T(-1),
                        static_cast<T>(T(1) << (8 * sizeof(T) - 2))};
  std::mt19937_64 random(3);
  auto pick = [&] { return random() % 3 == 0 ? specials[random() % std::size(specials)] : static_cast<T>(random()); };
  for (Extreme extreme : {Extreme::Min, Extreme::Max}) {
    auto kernel = vek::minmax_kernel(minmax_twin(), 8 * sizeof(T), std::is_signed_v<T>, extreme);
    for (size_t count = 0; count <= 80; ++count) {
      std::vector<T> a(count), b(count), result(count);
      for (size_t i = 0; i < count; ++i) a[i] = pick(), b[i] = random() % 4 == 0 ? a[i] : pick();
      kernel(reinterpret_cast<uint8_t*>(result.data()), reinterpret_cast<const uint8_t*>(a.data()),
             reinterpret_cast<const uint8_t*>(b.data()), count);
      for (size_t i = 0; i < count; ++i) {
        ASSERT_EQ(result[i], extreme == Extreme::Min ? std::min(a[i], b[i]) : std::max(a[i], b[i]))
            << 8 * sizeof(T) << (std::is_signed_v<T> ? " signed" : " unsigned") << ", element " << i << " of " << count;
      }
    }
  }
}

TEST(MinMaxKernels, TwinAgainstStdMinMax) {
  expect_minmax_twin_as_std<uint8_t>();
  expect_minmax_twin_as_std<int8_t>();
  expect_minmax_twin_as_std<uint16_t>();
  expect_minmax_twin_as_std<int16_t>();
  expect_minmax_twin_as_std<uint32_t>();
  expect_minmax_twin_as_std<int32_t>();
  expect_minmax_twin_as_std<uint64_t>();
  expect_minmax_twin_as_std<int64_t>();
}

TEST(MinMaxKernels, OnlyWholeElementSizes) {
  for (int32_t bits : {0, 1, 7, 12, 24, 128, -8}) {
    for (bool is_signed : {false, true}) {
      EXPECT_EQ(vek::minmax_kernel(minmax_twin(), bits, is_signed, Extreme::Min), nullptr) << bits;
      EXPECT_EQ(vek::minmax_kernel(minmax_twin(), bits, is_signed, Extreme::Max), nullptr) << bits;
    }
  }
}

// -- scaling --------------------------------------------------------------------

// Factors of every kind: special values, random ones across many magnitudes,
// ones of few significant bits (which the 16-bit AVX2 level multiplies in
// float), and neighbours of 1 and of the values' ranges.
const std::vector<double>& factors() {
  static const std::vector<double> factors = [] {
    std::vector<double> list = {2.0, 0.5, 1.5, -1.0, 1.0E7, 40000.0, 1.0, 0.0, -0.0, 0.999, 3.7, 1.0 / 3.0,
                                -3000000001.0, -1.0E300, 1.0E300, kInf, -kInf, kNaN, 255.5, 1.0000001};
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
    for (int i = 0; i < 200; ++i) list.push_back(std::ldexp(mantissa(random), static_cast<int>(random() % 80) - 40));
    for (double few_bits : {3.0, 0.75, 100.0, 255.0, 256.0, 0x1p-20, 0x1p20, 0x1p-100, 0x1p-101, 0x1.02p0, 0x1.01p-3}) {
      list.push_back(few_bits);
    }
    for (double near : {1.0, 255.0, 65535.0, 1.0 / 255.0, 1.0 / 65535.0}) {
      list.push_back(std::nextafter(near, 0.0));
      list.push_back(std::nextafter(near, 2.0 * near));
    }
    return list;
  }();
  return factors;
}

// Random values, or every value in a row (a long row: all 65536 16-bit
// values); the factors taken in turn, so that the long rows meet every one.
kernel_test::Generator<vek::ScaleTable> scale(size_t width) {
  return [width, turn = size_t{0}](size_t n, Random& random) mutable -> Call<vek::ScaleTable> {
    double factor = factors()[turn++ % factors().size()];
    Bytes bytes = random.bytes(width == 2 && n > 4096 ? 2 * 65536 + 1 : n);
    if (width == 1 && random.one_in(2)) {
      for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i * 167 + i / 256);
    } else if (width == 2 && n > 4096) {
      for (size_t w = 0; w < 65536; ++w) bytes[2 * w] = static_cast<uint8_t>(w), bytes[2 * w + 1] = static_cast<uint8_t>(w >> 8);
    }
    size_t count = bytes.size() / width;
    return {{{bytes}},
            [=](const vek::ScaleTable& t, uint8_t* const* p) { return t.scale(p[0], count, factor), uint64_t{0}; },
            text("factor ", factor)};
  };
}

// Every byte value against integer arithmetic: held at 255 from a factor of
// 1 up, wrapped modulo 256 below it.
TEST(ScaleKernels, BytesAgainstIntegerArithmetic) {
  for (int k : {1, 2, 3, 255, 256, 1000, 0, -1, -2, -7, -255}) {
    for (int v = 0; v < 256; ++v) {
      auto expected = static_cast<uint8_t>(k >= 1 ? std::min(v * k, 255) : v * k & 0xFF);
      ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), k), expected) << "factor " << k << " value " << v;
    }
  }
  // Products below the 32-bit range wrap the same way: v·-(2^40 + 3) is exact
  // and leaves the residue of -3v.
  for (int v = 0; v < 256; ++v) {
    ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), -(0x1p40 + 3.0)), static_cast<uint8_t>(-3 * v)) << v;
    ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), 0.5), v / 2) << v;
    ASSERT_EQ(vek::scale_u8_value(static_cast<uint8_t>(v), -0.5), static_cast<uint8_t>(-(v / 2))) << v;
  }
  Bytes every(256), expected(256);
  for (int v = 0; v < 256; ++v) every[v] = static_cast<uint8_t>(v), expected[v] = static_cast<uint8_t>(std::min(3 * v, 255));
  vek::scale_u8_scalar(every.data(), every.size(), 3.0);
  EXPECT_EQ(every, expected);
}

TEST(ScaleKernels, BytesAtTheEdges) {
  const struct {
    double factor;
    uint8_t value, expected;
  } cases[] = {
      {2.0, 0x7F, 0xFE},   {2.0, 0x80, 0xFF},   {0.5, 0xFF, 0x7F},     {1.5, 0x10, 0x18},
      {-1.0, 1, 0xFF},     {-1.0, 2, 0xFE},     {1.0E7, 0xFF, 0xFF},   {kNaN, 0xFF, 0},
      {kNaN, 0, 0},        {kInf, 0, 0},        {kInf, 1, 0xFF},       {-kInf, 0, 0},
      {-kInf, 7, 0},       {1.0E300, 1, 0xFF},  {-1.0E300, 1, 0},      {-3000000001.0, 1, 0xFF},
      {-3000000001.0, 2, 0xFE}, {0.999, 0xFF, 0xFE}, {255.5, 1, 0xFF},  {-0.0, 0xFF, 0},
  };
  for (const auto& c : cases) {
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
  // Unaligned little-endian values; a negative or NaN factor leaves them alone.
  const Bytes values = {0x01, 0x34, 0x12, 0xFF, 0xFF, 0x07};
  for (double factor : {2.0, -2.0, -0.5, -kInf, kNaN, -1.0E-300}) {
    Bytes data = values;
    vek::scale_u16_scalar(data.data() + 1, 2, factor);
    EXPECT_EQ(data, factor > 0 ? (Bytes{0x01, 0x68, 0x24, 0xFF, 0xFF, 0x07}) : values) << "factor " << factor;
  }
}

const bool registered = [] {
  for (int bits : {8, 16, 32, 64}) {
    for (bool is_signed : {false, true}) {
      std::string suite = text("MinMax", is_signed ? "S" : "U", bits);
      kernel_test::family(suite.c_str(), vek::minmax_kernels, minmax_twin(), minmax(bits, is_signed));
    }
  }
  kernel_test::family("ScaleU8", vek::scale_u8_kernels, {vek::scale_u8_scalar}, scale(1));
  return kernel_test::family("ScaleU16", vek::scale_u16_kernels, {vek::scale_u16_scalar}, scale(2));
}();
}  // namespace
