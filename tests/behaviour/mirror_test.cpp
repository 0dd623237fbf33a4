// MirrorBitsInBytesVEK, MirrorBytesVEK and MirrorBitsVEK through the
// simulated host. The kernels are checked against a bit vector in the kernel
// tests; here the ranges, the defaults and the documented examples.
#include <algorithm>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kInBytes = "MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)";
constexpr const char* kBytes = "MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)";
constexpr const char* kBits = "MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)";
constexpr int32_t kMax = 2147483647;

Bytes counting(size_t n) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  return bytes;
}

struct MirrorCase {
  const char* name;
  const char* declaration;
  Bytes block;
  int32_t offset, length;
  Bytes expected;
};

const MirrorCase kCases[] = {
    {"bits in bytes", kInBytes, {0x01, 0xF0}, 0, 2, {0x80, 0x0F}},
    {"bits in bytes, cut back", kInBytes, {0x01, 0x03, 0xF0}, 1, 100, {0x01, 0xC0, 0x0F}},
    {"bits in bytes, offset at the size", kInBytes, {0x01, 0x03}, 2, 1, {0x01, 0x03}},
    {"bits in bytes, negative offset", kInBytes, {0x01, 0x03}, -1, 2, {0x01, 0x03}},
    {"bits in bytes, zero length", kInBytes, {0x01, 0xF0}, 0, 0, {0x01, 0xF0}},
    {"bits in bytes, negative length", kInBytes, {0x01, 0xF0}, 0, -1, {0x01, 0xF0}},
    {"bytes, defaults", kBytes, counting(5), 0, -1, {5, 4, 3, 2, 1}},
    {"bytes, inner range", kBytes, counting(5), 1, 3, {1, 4, 3, 2, 5}},
    {"bytes, default length from an offset is cut back", kBytes, counting(6), 2, -1, {1, 2, 6, 5, 4, 3}},
    {"bytes, largest length is cut back", kBytes, counting(6), 1, kMax, {1, 6, 5, 4, 3, 2}},
    {"bytes, twelve", kBytes, counting(12), 0, 12, {12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}},
    {"bytes, offset at the size", kBytes, counting(6), 6, -1, counting(6)},
    {"bytes, negative offset", kBytes, counting(6), -2, 4, counting(6)},
    {"bytes, zero length", kBytes, counting(6), 0, 0, counting(6)},
    {"bits, two bytes", kBits, {0x12, 0x34}, 0, 16, {0x2C, 0x48}},
    {"bits, across a byte boundary", kBits, {0x12, 0x34}, 4, 8, {0x1C, 0x44}},
    {"bits, inside one byte", kBits, {0x40}, 1, 6, {0x02}},
    {"bits, a single bit", kBits, {0x40}, 5, 1, {0x40}},
    {"bits, cut back at the end", kBits, {0x12, 0x34}, 12, 100, {0x12, 0x32}},
    {"bits, offset at the end", kBits, {0x12, 0x34}, 16, 2, {0x12, 0x34}},
    {"bits, negative offset", kBits, {0x12, 0x34}, -1, 4, {0x12, 0x34}},
    {"bits, zero length", kBits, {0x12, 0x34}, 0, 0, {0x12, 0x34}},
    {"bits, negative length", kBits, {0x12, 0x34}, 0, -16, {0x12, 0x34}},
    {"bits, largest length is cut back", kBits, {0x01, 0x00, 0x00}, 7, kMax, {0x00, 0x00, 0x01}},
    // bits 1 and 10 go to 158 and 149; bits 0 and 159 stay
    {"bits, long odd range", kBits, {0xC0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01}, 1, 158,
     {0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x03}},
};

class Mirroring : public PluginTest {};

// Each case twice: once gives the expected bytes, twice the block back.
TEST_P(Mirroring, Cases) {
  for (const MirrorCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block);
    call(c.declaration, block, c.offset, c.length);
    EXPECT_EQ(bytes(block), c.expected);
    call(c.declaration, block, c.offset, c.length);
    EXPECT_EQ(bytes(block), c.block);
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_BALANCED(host());
}

// A nil block raises whatever the arguments; a null data pointer changes
// nothing and raises nothing.
TEST_P(Mirroring, NilAndNull) {
  REALmemoryBlock block = this->block({1, 2, 3, 4});
  host().overrideReportedData(block, nullptr);
  for (const char* declaration : {kInBytes, kBytes, kBits}) {
    SCOPED_TRACE(declaration);
    call(declaration, nullptr, 0, 8);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    call(declaration, nullptr, -1, 0);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    call(declaration, block, 0, 4);
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_EQ(bytes(block), (Bytes{1, 2, 3, 4}));
  EXPECT_BALANCED(host());
}

// A block over a raw address reports size 0: an explicit range is the
// caller's; the default length (the block's size) is then nothing.
TEST_P(Mirroring, RawAddressBlock) {
  uint8_t* raw = host().rawBuffer(4);
  std::copy_n(counting(4).begin(), 4, raw);
  REALmemoryBlock over = host().ptrBlock(raw);
  call(kBytes, over, 0, -1);
  EXPECT_EQ(Bytes(raw, raw + 4), counting(4));
  call(kBytes, over, 0, 4);
  EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{4, 3, 2, 1}));
  call(kBits, over, 28, 4);
  EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{4, 3, 2, 8}));
  call(kInBytes, over, 3, 1);
  EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{4, 3, 2, 0x10}));
  EXPECT_NOTHING_RAISED(host());
}

INSTANTIATE_ON_EVERY_HOST(Mirroring);
}  // namespace
