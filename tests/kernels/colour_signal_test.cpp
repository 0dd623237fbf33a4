// The colour kernels, every level of each family against its scalar twin
// (kernel_harness.h); counts are groups or pixels.
#include <algorithm>
#include <array>
#include <vector>

#include "colour_signal/colour_rules.h"
#include "colour_signal/rgb12.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Bytes;
using kernel_test::Call;
using kernel_test::Random;

// Bands that reach below 0, above 255, hold one value, hold none, or take the
// whole 32-bit range, next to ordinary ones.
const std::array<int32_t, 2> kBands[] = {{0, 255},   {180, 220}, {90, 110},  {45, 55},   {0, 0},     {255, 255},
                                         {2, 3},     {-5, 3},    {250, 300}, {3, 2},     {-10, -1},  {256, 400},
                                         {INT32_MIN, INT32_MAX}, {INT32_MIN, INT32_MIN}, {100, 100}, {-1, 0}};

// Pixels near the chosen bands, so that whole pixels match often.
Call<vek::ReplaceColourTable> replace_colour(size_t pixels, Random& random) {
  std::array<int32_t, 4> lo{}, hi{};
  std::array<uint8_t, 4> dest{};
  for (int k = 0; k < 4; ++k) {
    auto [low, high] = kBands[random.one_in(4) ? random.in(0, std::size(kBands) - 1) : random.in(0, 3)];
    lo[k] = low, hi[k] = high, dest[k] = static_cast<uint8_t>(random());
  }
  Bytes bytes(4 * pixels);
  for (size_t i = 0; i < bytes.size(); ++i) {
    uint32_t r = random();
    int64_t centre = r % 4 == 0 ? (r >> 8) & 0xFF : r % 4 == 1 ? lo[i % 4] : hi[i % 4];
    bytes[i] = static_cast<uint8_t>(std::clamp<int64_t>(centre + (r >> 16) % 5 - 2, 0, 255));
  }
  return {{{bytes}}, [=](auto& t, auto p) { t.replace(p[0], pixels, lo.data(), hi.data(), dest.data()); }};
}

// Random pixels among ones with sums of 0 and small sums, budgets around
// the sums' edges.
kernel_test::Maker<vek::ComplementTable> complement(void (*vek::ComplementTable::*kernel)(uint8_t*, size_t, int32_t, bool) noexcept) {
  return [kernel](size_t pixels, Random& random) -> Call<vek::ComplementTable> {
    const int32_t budgets[] = {INT32_MIN, -1, 0, 1, 100, 254, 255, 256, 600, 765, 766,
                               1019, 1020, 1021, 1274, 1275, 1276, INT32_MAX};
    int32_t budget = budgets[random.in(0, std::size(budgets) - 1)];
    bool with_sum0 = random.one_in(2);
    Bytes bytes = random.bytes(4 * pixels);
    for (size_t i = 0; i < bytes.size(); i += 4) {
      if (random.one_in(4)) std::fill_n(bytes.begin() + i, random.one_in(4) ? 4 : 3, 0);
      else if (random.one_in(4)) std::fill_n(bytes.begin() + i, 4, random() % 64);
    }
    return {{{bytes}}, [=](auto& t, auto p) { (t.*kernel)(p[0], pixels, budget, with_sum0); },
            kernel_test::text("budget ", budget, with_sum0 ? ", WithSum0" : "")};
  };
}

using kernel_test::family;
const vek::ComplementTable kComplementTwin = {vek::complement_cmy_scalar, vek::complement_cmyk_scalar};
const bool registered =
    family("Rgb12", vek::rgb12_kernels, {vek::rgb12_to_rgb8_scalar}, [](size_t groups, Random& random) {
      bool apart = random.one_in(2);  // in place, or into a buffer of its own
      std::vector<kernel_test::Buffer> buffers = {{random.bytes(9 * groups)}};
      if (apart) buffers.push_back({random.bytes(6 * groups)});
      return Call<vek::Rgb12Table>(buffers, [=](auto& t, auto p) { t.convert(p[0], p[apart], groups); },
                                   apart ? "into another buffer" : "in place");
    }) &&
    family("ReplaceColour", vek::replace_colour_kernels, {vek::replace_colour_scalar}, replace_colour) &&
    family("ComplementCmy", vek::complement_kernels, kComplementTwin, complement(&vek::ComplementTable::cmy)) &&
    family("ComplementCmyk", vek::complement_kernels, kComplementTwin, complement(&vek::ComplementTable::cmyk));
}  // namespace
