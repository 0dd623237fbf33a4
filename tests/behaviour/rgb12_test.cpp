// ConvertRGB12BitTo8BitVEK through the simulated host.
#include <optional>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kConvert = "ConvertRGB12BitTo8BitVEK(Width as Integer)";
using Convert = void(REALmemoryBlock, int32_t);

const Bytes kGroup = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
const Bytes kGroupConverted = {0xAB, 0xDE, 0x12, 0x45, 0x78, 0xAB};

Bytes join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes counting(size_t n, uint8_t first) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(first + 7 * i);
  return bytes;
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

struct Rgb12Case {
  const char* name;
  Bytes block;
  int32_t width;
  Bytes expected;
};

const Bytes kTwoGroups = join({kGroup, counting(9, 0x10)});
const Bytes kForty = counting(360, 0x21);  // through the vector loop and its remainder

const Rgb12Case kCases[] = {
    {"one group", kGroup, 1, join({kGroupConverted, {0x78, 0x9A, 0xBC}})},
    {"width 0 changes nothing", kGroup, 0, kGroup},
    {"negative width changes nothing", kGroup, -1, kGroup},
    {"most negative width", kGroup, INT32_MIN, kGroup},
    {"first of two groups only", kTwoGroups, 1, join({kGroupConverted, {0x78, 0x9A, 0xBC}, counting(9, 0x10)})},
    {"both groups", kTwoGroups, 2, converted(kTwoGroups, 2)},
    {"forty groups", kForty, 40, converted(kForty, 40)},
    {"thirty-three of forty", kForty, 33, converted(kForty, 33)},
    // Only whole groups inside the block are converted.
    {"width past the end", join({kTwoGroups, {1, 2}}), 5, join({converted(kTwoGroups, 2), {1, 2}})},
    {"widest width", kGroup, INT32_MAX, join({kGroupConverted, {0x78, 0x9A, 0xBC}})},
    {"no whole group", Bytes(kGroup.begin(), kGroup.end() - 1), 1, Bytes(kGroup.begin(), kGroup.end() - 1)},
};

class Rgb12 : public PluginTest {
 protected:
  void convert(REALmemoryBlock block, int32_t width) { plugin().method<Convert>(kConvert)(block, width); }
};

TEST_P(Rgb12, Cases) {
  for (const Rgb12Case& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block);
    convert(block, c.width);
    EXPECT_EQ(bytes(block), c.expected);
    EXPECT_NOTHING_RAISED(host());
    EXPECT_BALANCED(host());
  }
}

TEST_P(Rgb12, NilBlockRaises) {
  convert(nullptr, 1);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  convert(nullptr, 0);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  EXPECT_BALANCED(host());
}

// A block over a raw address reports size 0: the caller's Width is trusted.
TEST_P(Rgb12, RawAddressBlockIsTrusted) {
  uint8_t* raw = host().rawBuffer(kTwoGroups.size());
  std::copy(kTwoGroups.begin(), kTwoGroups.end(), raw);
  REALmemoryBlock over = host().ptrBlock(raw);
  convert(over, 2);
  EXPECT_EQ(Bytes(raw, raw + kTwoGroups.size()), converted(kTwoGroups, 2));
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

TEST_P(Rgb12, BlockWithoutDataIsLeftAlone) {
  REALmemoryBlock block = this->block(kGroup);
  host().overrideReportedData(block, nullptr);
  convert(block, 1);
  EXPECT_EQ(bytes(block), kGroup);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(Rgb12);
}  // namespace
