// The invert kernels: every level against the scalar twin (kernel_harness.h),
// the twin against every byte value, and the adapters' choice of level.
#include <vector>

#include <gtest/gtest.h>

#include "blockops/size_fill_invert.h"
#include "tests/support/kernel_harness.h"

namespace {
using kernel_test::Bytes;

const bool registered = kernel_test::family("InvertBytes", vek::invert_bytes_kernels, {vek::invert_bytes_scalar},
                                            kernel_test::in_place(&vek::InvertBytesTable::invert));

// All 256 values, at each of the three widths the twin picks by count.
TEST(InvertKernel, ScalarTwinComplementsEveryValue) {
  for (size_t count : {size_t{256}, size_t{260}, size_t{255}}) {  // 64-bit, 32-bit, bytes
    Bytes bytes(count), expected(count);
    for (size_t i = 0; i < count; ++i) {
      bytes[i] = static_cast<uint8_t>(i * 7);
      expected[i] = static_cast<uint8_t>(255 - bytes[i]);
    }
    vek::invert_bytes_scalar(bytes.data(), count);
    EXPECT_EQ(bytes, expected) << "count " << count;
  }
}

// The adapters' choice is the first level of the family this CPU runs.
TEST(InvertKernel, BestIsTheFirstLevelTheCpuRuns) {
  for (const auto& level : vek::invert_bytes_kernels.levels()) {
    if (vek::cpu_has(level.level)) {
      EXPECT_EQ(vek::invert_bytes_kernels.best().invert, level.table.invert) << vek::level_name(level.level);
      return;
    }
  }
  FAIL() << "no level this CPU runs";
}
}  // namespace
