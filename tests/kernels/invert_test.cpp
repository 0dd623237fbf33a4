// The invert kernel: the scalar twin against a byte-by-byte oracle, and the
// SSE2 level against the twin over random bytes, sizes 0..300 and every
// start misalignment, in buffers whose ends are guarded.
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "blockops/size_fill_invert.h"
#include "tests/support/guarded_buffer.h"

namespace {
using Kernel = void (*)(uint8_t*, size_t) noexcept;

std::vector<uint8_t> random_bytes(size_t size, std::mt19937& random) {
  std::vector<uint8_t> bytes(size);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(random());
  return bytes;
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

// Every level against the twin, with canaries around the run.
TEST(InvertKernel, Sse2MatchesTwinAtEveryMisalignment) {
  std::mt19937 random(1);
  constexpr size_t kCanary = 16;
  for (size_t size = 0; size <= 300; ++size) {
    for (size_t misalignment = 0; misalignment < 64; ++misalignment) {
      std::vector<uint8_t> original = random_bytes(64 + size + 2 * kCanary, random);
      std::vector<uint8_t> by_twin = original;
      std::vector<uint8_t> by_sse2 = original;
      // Storage is 16-byte aligned; the misalignment moves the start through a 64-byte line.
      vek::invert_bytes_scalar(by_twin.data() + kCanary + misalignment, size);
      vek::invert_bytes_sse2(by_sse2.data() + kCanary + misalignment, size);
      ASSERT_EQ(by_sse2, by_twin) << "size " << size << ", misalignment " << misalignment;
      ASSERT_EQ(std::memcmp(by_sse2.data(), original.data(), kCanary + misalignment), 0);
    }
  }
}

// Runs that end at a PROT_NONE page, or start right after one: a load or a
// store past the run faults.
TEST(InvertKernel, StaysInsideGuardedRuns) {
  std::mt19937 random(2);
  for (Kernel kernel : {&vek::invert_bytes_scalar, &vek::invert_bytes_sse2}) {
    for (GuardSide side : {GuardSide::After, GuardSide::Before}) {
      for (size_t size = 0; size <= 300; ++size) {
        GuardedBuffer buffer(size, side);
        std::vector<uint8_t> original = random_bytes(size, random);
        if (size != 0) std::memcpy(buffer.data(), original.data(), size);
        kernel(buffer.data(), size);
        for (size_t i = 0; i < size; ++i) {
          ASSERT_EQ(buffer.data()[i], static_cast<uint8_t>(~original[i])) << "size " << size << ", byte " << i;
        }
      }
    }
  }
}
}  // namespace
