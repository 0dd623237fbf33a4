// The invert kernels: the scalar twin against a byte-by-byte oracle, and every
// level of the family against the twin over random bytes, sizes 0..300 and a
// few large ones, every start misalignment within a 64-byte line, in buffers
// with canaries and in buffers whose ends are guarded.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "blockops/size_fill_invert.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/sweep.h"

namespace {
using InvertLevel = vek::KernelLevel<vek::InvertBytesTable>;

std::vector<uint8_t> random_bytes(size_t size, std::mt19937& random) {
  std::vector<uint8_t> bytes(size);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(random());
  return bytes;
}

// 0..300 and a few sizes that run many times through the main loops.
std::vector<size_t> sizes() {
  std::vector<size_t> result;
  for (size_t size = 0; size <= 300; ++size) result.push_back(size);
  for (size_t size : {4096 + 37, 65536 + 5}) result.push_back(size);
  return result;
}

// All 256 values, at each of the three widths the twin picks by count.
TEST(InvertKernel, ScalarTwinComplementsEveryValue) {
  for (size_t count : {size_t{256}, size_t{260}, size_t{255}}) {  // 64-bit, 32-bit, bytes
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    std::vector<uint8_t> expected = bytes;
    for (uint8_t& b : expected) b = static_cast<uint8_t>(255 - b);
    vek::invert_bytes_scalar(bytes.data(), count);
    EXPECT_EQ(bytes, expected) << "count " << count;
  }
}

class InvertLevels : public ::testing::TestWithParam<InvertLevel> {
 protected:
  void SetUp() override {
    if (!vek::cpu_has(GetParam().level)) GTEST_SKIP() << "CPU lacks " << vek::level_name(GetParam().level);
  }
};

// The level against the twin, with canaries on both sides of the run.
TEST_P(InvertLevels, MatchesTwinAtEveryMisalignment) {
  std::mt19937 random(1);
  constexpr size_t kCanary = 64;  // keeps the run's start misalignment that of the offset in a 64-byte line
  for (size_t size : sizes()) {
    std::vector<uint8_t> storage(size + 3 * kCanary + 64);
    // The first byte of `line` sits on a 64-byte boundary.
    size_t lead = (64 - reinterpret_cast<uintptr_t>(storage.data()) % 64) % 64;
    for (size_t misalignment : sweep_misalignments()) {
      std::vector<uint8_t> original = random_bytes(storage.size(), random);
      std::vector<uint8_t> by_twin = original;
      std::memcpy(storage.data(), original.data(), storage.size());
      size_t start = lead + kCanary + misalignment;
      vek::invert_bytes_scalar(by_twin.data() + start, size);
      GetParam().table.invert(storage.data() + start, size);
      ASSERT_EQ(storage, by_twin) << "size " << size << ", misalignment " << misalignment;
    }
  }
}

// Runs that end at a PROT_NONE page, or start right after one (at each
// misalignment): a load or a store past the run faults.
TEST_P(InvertLevels, StaysInsideGuardedRuns) {
  std::mt19937 random(2);
  auto check = [&](size_t size, GuardSide side, size_t lead) {
    GuardedBuffer buffer(lead + size, side);
    uint8_t* run = buffer.data() + lead;
    std::vector<uint8_t> original = random_bytes(size, random);
    if (size != 0) std::memcpy(run, original.data(), size);
    GetParam().table.invert(run, size);
    for (size_t i = 0; i < size; ++i) {
      ASSERT_EQ(run[i], static_cast<uint8_t>(~original[i])) << "size " << size << ", lead " << lead << ", byte " << i;
    }
  };
  for (size_t size : sizes()) {
    check(size, GuardSide::After, 0);  // the start's misalignment follows from the size
    for (size_t lead : sweep_misalignments()) check(size, GuardSide::Before, lead);
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, InvertLevels,
                         ::testing::ValuesIn(vek::invert_bytes_kernels.levels().begin(),
                                             vek::invert_bytes_kernels.levels().end()),
                         [](const ::testing::TestParamInfo<InvertLevel>& info) {
                           return std::string(vek::level_name(info.param.level));
                         });

// The adapters' choice is one of the family's levels, the first this CPU runs.
TEST(InvertKernel, BestIsTheFirstLevelTheCpuRuns) {
  for (const InvertLevel& level : vek::invert_bytes_kernels.levels()) {
    if (vek::cpu_has(level.level)) {
      EXPECT_EQ(vek::invert_bytes_kernels.best().invert, level.table.invert) << vek::level_name(level.level);
      return;
    }
  }
  FAIL() << "no level this CPU runs";
}
}  // namespace
