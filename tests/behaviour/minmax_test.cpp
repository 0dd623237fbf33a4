// MinVEK and MaxVEK through the simulated host. The sources are raw buffers
// of exactly the bytes a call may read, fenced by guard pages.
#include <algorithm>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kMin =
    "MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean";
constexpr const char* kMax =
    "MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean";
constexpr int32_t kLargest = 2147483647;

struct MinMaxCase {
  const char* name;
  const char* declaration;
  Bytes block, first, second;
  int32_t bitSize;
  uint8_t isSigned;
  int32_t offset, length;
  Bytes expected;
  bool result;
  Storage storage = Storage::Block;
};

const Bytes kFirst = {0x80, 0x7F, 0x00, 0xFF}, kSecond = {0x7F, 0x80, 0x01, 0xFE};  // the reference's
const Bytes kAllOnes = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
const Bytes kOne = {0x01, 0, 0, 0, 0, 0, 0, 0};
const Bytes kLowTop = {0x00, 0x00, 0x00, 0x80, 0, 0, 0, 0};    // 0x0000000080000000
const Bytes kLowBelow = {0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0};  // 0x000000007FFFFFFF
const Bytes kEE4 = Bytes(4, 0xEE), kEE8 = Bytes(8, 0xEE), kTen = Bytes(10, 0xEE);

// One element type after the other, signed and unsigned telling apart.
const MinMaxCase kCases[] = {
    {"unsigned bytes", kMin, kEE4, kFirst, kSecond, 8, 0, 0, 0, {0x7F, 0x7F, 0x00, 0xFE}, true},
    {"signed bytes", kMin, kEE4, kFirst, kSecond, 8, 1, 0, 0, {0x80, 0x80, 0x00, 0xFE}, true},
    {"any non-zero Signed is true", kMin, kEE4, kFirst, kSecond, 8, 0x40, 0, 0, {0x80, 0x80, 0x00, 0xFE}, true},
    {"unsigned 16", kMax, kEE4, kFirst, kSecond, 16, 0, 0, 0, {0x7F, 0x80, 0x00, 0xFF}, true},
    {"signed 16", kMax, kEE4, kFirst, kSecond, 16, 1, 0, 0, {0x80, 0x7F, 0x00, 0xFF}, true},
    {"unsigned 32", kMin, kEE4, {0, 0, 0, 0x80}, {0xFF, 0xFF, 0xFF, 0x7F}, 32, 0, 0, 0, {0xFF, 0xFF, 0xFF, 0x7F}, true},
    {"signed 32", kMax, kEE4, {0, 0, 0, 0x80}, {0xFF, 0xFF, 0xFF, 0x7F}, 32, 1, 0, 0, {0xFF, 0xFF, 0xFF, 0x7F}, true},
    {"unsigned 64", kMax, kEE8, kAllOnes, kOne, 64, 0, 0, 0, kAllOnes, true},
    {"signed 64", kMin, kEE8, kAllOnes, kOne, 64, 1, 0, 0, kAllOnes, true},
    {"64: equal high halves, unsigned low halves", kMax, kEE8, kLowBelow, kLowTop, 64, 1, 0, 0, kLowTop, true},
    {"64: and the minimum", kMin, kEE8, kLowTop, kLowBelow, 64, 1, 0, 0, kLowBelow, true},
    {"bit size 12", kMin, {0xEE, 0xEE}, {1, 1}, {2, 2}, 12, 0, 0, 0, {0xEE, 0xEE}, false},
    {"bit size 0", kMax, {0xEE, 0xEE}, {1, 1}, {2, 2}, 0, 1, 0, 0, {0xEE, 0xEE}, false},
    {"16 over 5 bytes: two elements", kMin, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE}, {1, 0, 2, 0}, {3, 0, 4, 0}, 16, 0, 0, 5,
     {1, 0, 2, 0, 0xEE}, true},
    {"16 over 1 byte: none", kMin, {0xEE, 0xEE}, {}, {}, 16, 0, 0, 1, {0xEE, 0xEE}, true},
    {"offset at the size", kMax, {0xEE, 0xEE}, {}, {}, 8, 0, 2, 0, {0xEE, 0xEE}, true},
    {"sources read from their start", kMin, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}, {5, 9}, {7, 3}, 8, 0, 4, 0,
     {0xEE, 0xEE, 0xEE, 0xEE, 5, 3}, true},
    {"length cut back to whole elements", kMax, kTen, {1, 0, 0, 0}, {2, 0, 0, 0}, 32, 0, 4, 100,
     {0xEE, 0xEE, 0xEE, 0xEE, 2, 0, 0, 0, 0xEE, 0xEE}, true},
    {"huge length cannot overflow", kMax, kTen, {1, 0, 0, 0, 5, 0, 0, 0}, {2, 0, 0, 0, 4, 0, 0, 0}, 32, 0, 1, kLargest,
     {0xEE, 2, 0, 0, 0, 5, 0, 0, 0, 0xEE}, true},
    {"explicit length from the end", kMin, kTen, {}, {}, 8, 0, 10, 4, kTen, true},
    {"bit size tested before the range", kMin, kTen, {}, {}, 24, 0, 12, 4, kTen, false},
    // A block over a raw address has no known size: an explicit length is
    // the caller's; the rest of such a block is nothing.
    {"raw address, the rest", kMin, kEE4, {}, {}, 16, 0, 0, 0, kEE4, true, Storage::RawAddress},
    {"raw address", kMin, kEE4, {1, 0, 9, 0}, {2, 0, 3, 0}, 16, 0, 0, 4, {1, 0, 3, 0}, true, Storage::RawAddress},
    {"no data, bit size 9", kMax, kEE4, {}, {}, 9, 0, 0, 4, kEE4, false, Storage::NoData},
};

class MinMaxMethods : public PluginTest {
 protected:
  // A guarded copy of `bytes` the call may read and nothing around it.
  uint8_t* source(const Bytes& bytes) {
    uint8_t* raw = host().rawBuffer(bytes.size());
    std::copy(bytes.begin(), bytes.end(), raw);
    return raw;
  }
};

TEST_P(MinMaxMethods, Cases) {
  for (const MinMaxCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block, c.storage);
    auto result = call(c.declaration, block, source(c.first), source(c.second), c.bitSize, c.isSigned, c.offset,
                       c.length);
    EXPECT_EQ(result.i != 0, c.result);
    EXPECT_EQ(bytes(block), c.expected);
    EXPECT_NOTHING_RAISED(host());
  }
}

// Either address alone is refused (the sweep of every method gives both as
// nil, and a nil block or a negative offset).
TEST_P(MinMaxMethods, EitherAddressNilRaises) {
  REALmemoryBlock block = this->block({0xEE});
  EXPECT_FALSE(call(kMin, block, nullptr, source({1}), 8, 0, 0, 0).i);
  EXPECT_RAISED(host(), "NilObjectException", "ptr is nil");
  EXPECT_FALSE(call(kMax, block, source({1}), nullptr, 8, 0, 0, 0).i);
  EXPECT_RAISED(host(), "NilObjectException", "ptr is nil");
  EXPECT_EQ(bytes(block), Bytes{0xEE});
}

// The destination one byte after the first source: each element is worked
// out from the sources as the earlier elements left them, so the 01 at the
// start runs through the whole range (a vector loop would give 05 from the
// third byte on).
TEST_P(MinMaxMethods, DestinationOverlappingASource) {
  Bytes start(41, 0x09);
  start[0] = 0x01;
  REALmemoryBlock block = this->block(start);
  uint8_t* data = host().bytes(block).data();
  uint8_t* fives = source(Bytes(40, 0x05));
  EXPECT_TRUE(call(kMin, block, data, fives, 8, 0, 1, 0).i);
  EXPECT_EQ(bytes(block), Bytes(41, 0x01));
}

INSTANTIATE_ON_EVERY_HOST(MinMaxMethods);
}  // namespace
