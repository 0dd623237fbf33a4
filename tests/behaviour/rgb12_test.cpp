// ConvertRGB12BitTo8BitVEK through the simulated host.
#include <algorithm>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kConvert = "ConvertRGB12BitTo8BitVEK(Width as Integer)";

const Bytes kGroup = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
const Bytes kGroupConverted = {0xAB, 0xDE, 0x12, 0x45, 0x78, 0xAB, 0x78, 0x9A, 0xBC};

Bytes counting(size_t n, uint8_t first) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(first + 7 * i);
  return bytes;
}

Bytes join(const Bytes& a, const Bytes& b) {
  Bytes all = a;
  all.insert(all.end(), b.begin(), b.end());
  return all;
}

// The upper 8 bits of every 12-bit sample of `groups` packed groups, read bit
// by bit, over the packed bytes.
Bytes converted(const Bytes& packed, size_t groups) {
  Bytes out = packed;
  for (size_t sample = 0; sample < groups * 6; ++sample) {
    unsigned value = 0;
    for (size_t bit = sample * 12; bit < sample * 12 + 12; ++bit) {
      value = value << 1 | ((packed[bit / 8] >> (7 - bit % 8)) & 1u);
    }
    out[sample] = static_cast<uint8_t>(value >> 4);
  }
  return out;
}

const Bytes kTwoGroups = join(kGroup, counting(9, 0x10));
const Bytes kForty = counting(360, 0x21);  // through the vector loop and its remainder

const struct {
  const char* name;
  Bytes block;
  int32_t width;
  Bytes expected;
} kCases[] = {
    {"one group", kGroup, 1, kGroupConverted},
    {"width 0 changes nothing", kGroup, 0, kGroup},
    {"negative width changes nothing", kGroup, -1, kGroup},
    {"first of two groups only", kTwoGroups, 1, join(kGroupConverted, counting(9, 0x10))},
    {"both groups", kTwoGroups, 2, converted(kTwoGroups, 2)},
    {"forty groups", kForty, 40, converted(kForty, 40)},
    // Only whole groups inside the block are converted.
    {"width past the end", join(kTwoGroups, {1, 2}), 5, join(converted(kTwoGroups, 2), {1, 2})},
    {"widest width", kGroup, INT32_MAX, kGroupConverted},
    {"no whole group", Bytes(kGroup.begin(), kGroup.end() - 1), 1, Bytes(kGroup.begin(), kGroup.end() - 1)},
};

class Rgb12 : public PluginTest {};

TEST_P(Rgb12, Cases) {
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block);
    call(kConvert, block, c.width);
    EXPECT_EQ(bytes(block), c.expected);
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_BALANCED(host());
}

// A nil block raises, whatever the width; a block without data is left alone.
TEST_P(Rgb12, NilBlockAndBlockWithoutData) {
  call(kConvert, nullptr, 0);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  REALmemoryBlock block = this->block(kGroup);
  host().overrideReportedData(block, nullptr);
  call(kConvert, block, 1);
  EXPECT_EQ(bytes(block), kGroup);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// A block over a raw address reports size 0: the caller's Width is trusted.
TEST_P(Rgb12, RawAddressBlockIsTrusted) {
  uint8_t* raw = host().rawBuffer(kTwoGroups.size());
  std::copy(kTwoGroups.begin(), kTwoGroups.end(), raw);
  call(kConvert, host().ptrBlock(raw), 2);
  EXPECT_EQ(Bytes(raw, raw + kTwoGroups.size()), converted(kTwoGroups, 2));
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(Rgb12);
}  // namespace
