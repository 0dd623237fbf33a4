// The colour kernels: every level of each family against its scalar twin
// (kernel_harness.h), counts being groups or pixels; and the twins against a
// bit-by-bit reading of the samples, every channel sum and hand-written bytes.
#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "colour_signal/colour_rules.h"
#include "colour_signal/rgb12.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Bytes;
using kernel_test::Call;
using kernel_test::Random;

// In place, or into a buffer of its own.
Call<vek::Rgb12Table> rgb12(size_t groups, Random& random) {
  bool apart = random.one_in(2);
  std::vector<kernel_test::Buffer> buffers = {{random.bytes(9 * groups)}};
  if (apart) buffers.push_back({random.bytes(6 * groups)});
  return {buffers,
          [=](const vek::Rgb12Table& t, uint8_t* const* p) { return t.convert(p[0], p[apart], groups), uint64_t{0}; },
          apart ? "into another buffer" : "in place"};
}

// Bands that reach below 0, above 255, hold one value, hold none, or take the
// whole 32-bit range, next to ordinary ones.
struct Band {
  int32_t lo, hi;
};
const Band kBands[] = {{0, 255},   {180, 220}, {90, 110},  {45, 55},   {0, 0},     {255, 255},
                       {2, 3},     {-5, 3},    {250, 300}, {3, 2},     {-10, -1},  {256, 400},
                       {INT32_MIN, INT32_MAX}, {INT32_MIN, INT32_MIN}, {100, 100}, {-1, 0}};

// Pixels near the chosen bands, so that whole pixels match often.
Call<vek::ReplaceColourTable> replace_colour(size_t pixels, Random& random) {
  std::array<int32_t, 4> lo{}, hi{};
  std::array<uint8_t, 4> dest{};
  for (int k = 0; k < 4; ++k) {
    const Band& band = kBands[random.one_in(4) ? random.in(0, std::size(kBands) - 1) : random.in(0, 3)];
    lo[k] = band.lo, hi[k] = band.hi, dest[k] = static_cast<uint8_t>(random());
  }
  Bytes bytes(4 * pixels);
  for (size_t i = 0; i < bytes.size(); ++i) {
    uint32_t r = random();
    int64_t centre = r % 4 == 0 ? (r >> 8) & 0xFF : r % 4 == 1 ? lo[i % 4] : hi[i % 4];
    bytes[i] = static_cast<uint8_t>(std::clamp<int64_t>(centre + (r >> 16) % 5 - 2, 0, 255));
  }
  return {{{bytes}}, [=](const vek::ReplaceColourTable& t, uint8_t* const* p) {
            return t.replace(p[0], pixels, lo.data(), hi.data(), dest.data()), uint64_t{0};
          }};
}

const int32_t kBudgets[] = {INT32_MIN, -1, 0, 1, 100, 254, 255, 256, 600, 765, 766,
                            1019, 1020, 1021, 1274, 1275, 1276, INT32_MAX};

// Random pixels among ones with sums of 0 and small sums.
kernel_test::Generator<vek::ComplementTable> complement(
    void (*vek::ComplementTable::*kernel)(uint8_t*, size_t, int32_t, bool) noexcept) {
  return [kernel](size_t pixels, Random& random) -> Call<vek::ComplementTable> {
    int32_t budget = kBudgets[random.in(0, std::size(kBudgets) - 1)];
    bool with_sum0 = random.one_in(2);
    Bytes bytes = random.bytes(4 * pixels);
    for (size_t i = 0; i < bytes.size(); i += 4) {
      if (random.one_in(4)) std::fill_n(bytes.begin() + i, random.one_in(4) ? 4 : 3, 0);
      else if (random.one_in(4)) std::fill_n(bytes.begin() + i, 4, random() % 64);
    }
    return {{{bytes}},
            [=](const vek::ComplementTable& t, uint8_t* const* p) { return (t.*kernel)(p[0], pixels, budget, with_sum0), uint64_t{0}; },
            kernel_test::text("budget ", budget, with_sum0 ? ", WithSum0" : "")};
  };
}

using kernel_test::family;
const bool registered =
    family("Rgb12", vek::rgb12_kernels, {vek::rgb12_to_rgb8_scalar}, rgb12) &&
    family("ReplaceColour", vek::replace_colour_kernels, {vek::replace_colour_scalar}, replace_colour) &&
    family("ComplementCmy", vek::complement_kernels, {vek::complement_cmy_scalar, vek::complement_cmyk_scalar},
           complement(&vek::ComplementTable::cmy)) &&
    family("ComplementCmyk", vek::complement_kernels, {vek::complement_cmy_scalar, vek::complement_cmyk_scalar},
           complement(&vek::ComplementTable::cmyk));

// -- the twins against oracles ---------------------------------------------------

// The packed samples read bit by bit.
TEST(Rgb12Kernel, ScalarKeepsTheUpperEightBitsOfEverySample) {
  Random random(3);
  Bytes packed = random.bytes(9 * 40), expected;
  for (size_t sample = 0; sample < packed.size() * 8 / 12; ++sample) {
    unsigned value = 0;
    for (size_t bit = sample * 12; bit < sample * 12 + 12; ++bit) value = value << 1 | ((packed[bit / 8] >> (7 - bit % 8)) & 1u);
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

// A pixel is replaced only when every channel lies within its band, bounds
// included.
TEST(ReplaceColourKernel, ScalarReplacesWholePixelsWithinTheBands) {
  const int32_t lo[4] = {10, -5, 200, INT32_MIN}, hi[4] = {20, 0, 300, INT32_MAX};
  const uint8_t dest[4] = {1, 2, 3, 4};
  Bytes pixels = {10, 0, 255, 9, 20, 0, 200, 0, 21, 0, 200, 0, 15, 1, 250, 0, 9, 0, 250, 0};
  vek::replace_colour_scalar(pixels.data(), 5, lo, hi, dest);
  EXPECT_EQ(pixels, (Bytes{1, 2, 3, 4, 1, 2, 3, 4, 21, 0, 200, 0, 15, 1, 250, 0, 9, 0, 250, 0}));
}

// The fourth byte as "budget minus sum, clamped to 0..255, and 0 for an empty
// pixel with WithSum0", over every reachable sum and every budget above.
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
