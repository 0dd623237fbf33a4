// The kernels of the scaling and min/max methods: every level of each family
// against its scalar twin (kernel_harness.h), and the scaling twins at the
// edges of their products.
#include <cmath>
#include <cstring>
#include <limits>
#include <tuple>
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
kernel_test::Maker<vek::MinMaxTable> minmax(int bits, bool is_signed) {
  return [bits, is_signed](size_t n, Random& random) -> Call<vek::MinMaxTable> {
    size_t width = static_cast<size_t>(bits) / 8, count = n / width;
    auto kernel = [=](auto& t, Extreme extreme) { return vek::minmax_kernel(t, bits, is_signed, extreme); };
    Bytes first = random.bytes(n), second = random.bytes(n);
    make_near(random, first, second, width);
    if (random.one_in(4)) {
      Extreme extreme = random.one_in(2) ? Extreme::Min : Extreme::Max;
      auto base = static_cast<ptrdiff_t>(n + 88);
      ptrdiff_t to = random.one_in(2) ? static_cast<ptrdiff_t>(random.in(0, 160)) - 80
                                      : (random.one_in(2) ? 1 : -1) * (static_cast<ptrdiff_t>(n + random.in(0, 4)) - 2);
      ptrdiff_t from = random.one_in(3) ? -7 : static_cast<ptrdiff_t>(random.in(0, n));
      return {{{random.bytes(static_cast<size_t>(2 * base) + n)}},
              [=](auto& t, auto p) { kernel(t, extreme)(p[0] + base + to, p[0] + base, p[0] + base + from, count); },
              text(extreme == Extreme::Min ? "min" : "max", " to ", to, " from 0 and ", from)};
    }
    return {{{first}, {second}, {random.bytes(n)}, {random.bytes(n)}}, [=](auto& t, auto p) {
              kernel(t, Extreme::Min)(p[2], p[0], p[1], count);
              kernel(t, Extreme::Max)(p[3], p[0], p[1], count);
            }};
  };
}

// Factors of every kind: special values, random ones across many magnitudes,
// ones of few significant bits (which the 16-bit AVX2 level multiplies in
// float), and neighbours of 1 and of the values' ranges.
const std::vector<double> kFactors = [] {
  std::vector<double> list = {2.0, 0.5, 1.5, -1.0, 1.0E7, 40000.0, 1.0, 0.0, -0.0, 0.999, 3.7, 1.0 / 3.0,
                              -3000000001.0, -1.0E300, 1.0E300, kInf, -kInf, kNaN, 255.5, 1.0000001,
                              3.0, 0.75, 100.0, 255.0, 256.0, 0x1p-20, 0x1p20, 0x1p-100, 0x1p-101, 0x1.02p0, 0x1.01p-3};
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
  for (int i = 0; i < 200; ++i) list.push_back(std::ldexp(mantissa(random), static_cast<int>(random() % 80) - 40));
  for (double near : {1.0, 255.0, 65535.0, 1.0 / 255.0, 1.0 / 65535.0}) {
    list.push_back(std::nextafter(near, 0.0));
    list.push_back(std::nextafter(near, 2.0 * near));
  }
  return list;
}();

// Random values, and in the longest row all 65536 16-bit values; the factors
// taken in turn, so that each meets one of the two long rows (which hold
// every byte value).
kernel_test::Maker<vek::ScaleTable> scale(size_t width) {
  return [width, turn = size_t{0}](size_t n, Random& random) mutable -> Call<vek::ScaleTable> {
    double factor = kFactors[turn++ % kFactors.size()];
    Bytes bytes = random.bytes(width == 2 && n > 4096 ? 2 * 65536 + 1 : n);
    for (size_t w = 0; width == 2 && n > 4096 && w < 65536; ++w) std::memcpy(&bytes[2 * w], &w, 2);  // little-endian
    size_t count = bytes.size() / width;
    return {{{bytes}}, [=](auto& t, auto p) { t.scale(p[0], count, factor); }, text("factor ", factor)};
  };
}

const bool registered = [] {
  const vek::MinMaxTable& twin = vek::minmax_kernels.levels().back().table;
  for (int bits : {8, 16, 32, 64}) {
    for (bool is_signed : {false, true}) {
      kernel_test::family(text("MinMax", is_signed ? "S" : "U", bits), vek::minmax_kernels, twin, minmax(bits, is_signed));
    }
  }
  kernel_test::family("ScaleU8", vek::scale_u8_kernels, {vek::scale_u8_scalar}, scale(1));
  return kernel_test::family("ScaleU16", vek::scale_u16_kernels, {vek::scale_u16_scalar}, scale(2));
}();

// Held at the top from a factor of 1 up (bytes) or 0 up (16-bit values);
// below, bytes keep the truncated product modulo 256, 16-bit values are left
// alone; a product that is not a number or infinite gives 0.
TEST(ScaleKernels, TwinsAtTheEdges) {
  const std::tuple<size_t, double, unsigned, unsigned> cases[] = {  // bytes, factor, value, result
      {1, 0.5, 0xFF, 0x7F},   {1, 1.0E7, 0xFF, 0xFF},   {1, kNaN, 0xFF, 0},       {1, kNaN, 0, 0},
      {1, kInf, 0, 0},        {1, kInf, 1, 0xFF},       {1, -kInf, 0, 0},         {1, -kInf, 7, 0},
      {1, 1.0E300, 1, 0xFF},  {1, -1.0E300, 1, 0},      {1, -3000000001.0, 1, 0xFF}, {1, -3000000001.0, 2, 0xFE},
      {1, 0.999, 0xFF, 0xFE}, {1, 255.5, 1, 0xFF},      {1, -0.0, 0xFF, 0},       {1, -0.5, 0xFF, 0x81},
      {1, 1000, 1, 0xFF},     {1, -(0x1p40 + 3.0), 0xFF, 0x03},  // exact: the residue of -3·255
      {2, 40000, 2, 0xFFFF},  {2, kInf, 0, 0},          {2, kInf, 1, 0xFFFF},     {2, -0.5, 7, 7},
      {2, -kInf, 7, 7},       {2, kNaN, 7, 7},          {2, -1.0E-300, 7, 7},     {2, 0.0, 0xFFFF, 0},
  };
  for (auto [width, factor, value, expected] : cases) {
    uint8_t data[2] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
    (width == 1 ? vek::scale_u8_scalar : vek::scale_u16_scalar)(data, 1, factor);
    EXPECT_EQ(data[0] | (width == 1 ? 0 : data[1] << 8), expected) << width << " bytes, factor " << factor << ", value " << value;
  }
}
}  // namespace
