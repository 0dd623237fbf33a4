// MinVEK and MaxVEK through the simulated host. The sources are raw buffers
// of exactly the bytes a call may read, fenced by guard pages.
#include <algorithm>
#include <cstring>
#include <random>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kMin =
    "MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean";
constexpr const char* kMax =
    "MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean";
using MinMax = bool(REALmemoryBlock, void*, void*, int32_t, uint8_t, int32_t, int32_t);

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
};

const Bytes kAllOnes = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
const Bytes kOne = {0x01, 0, 0, 0, 0, 0, 0, 0};
const Bytes kLowTop = {0x00, 0x00, 0x00, 0x80, 0, 0, 0, 0};   // 0x0000000080000000
const Bytes kLowBelow = {0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0}; // 0x000000007FFFFFFF
const Bytes kEight = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
const Bytes kTen = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

const MinMaxCase kCases[] = {
    {"unsigned bytes by default", kMin, {0, 0, 0}, {0x80, 0x01, 0xFF}, {0x7F, 0x02, 0xFE}, 8, 0, 0, 0, {0x7F, 0x01, 0xFE}, true},
    {"signed bytes", kMin, {0, 0, 0}, {0x80, 0x01, 0xFF}, {0x7F, 0x02, 0xFE}, 8, 1, 0, 0, {0x80, 0x01, 0xFE}, true},
    {"max of unsigned bytes", kMax, {0, 0, 0}, {0x80, 0x01, 0xFF}, {0x7F, 0x02, 0xFE}, 8, 0, 0, 0, {0x80, 0x02, 0xFF}, true},
    {"max of signed bytes", kMax, {0, 0, 0}, {0x80, 0x01, 0xFF}, {0x7F, 0x02, 0xFE}, 8, 1, 0, 0, {0x7F, 0x02, 0xFF}, true},
    {"any non-zero Signed is true", kMin, {0}, {0x80}, {0x7F}, 8, 0x40, 0, 0, {0x80}, true},
    {"unsigned 16", kMin, {0, 0, 0, 0}, {0x00, 0x80, 0x02, 0x01}, {0xFF, 0x7F, 0x01, 0x02}, 16, 0, 0, 0, {0xFF, 0x7F, 0x02, 0x01}, true},
    {"signed 16", kMin, {0, 0, 0, 0}, {0x00, 0x80, 0x02, 0x01}, {0xFF, 0x7F, 0x01, 0x02}, 16, 1, 0, 0, {0x00, 0x80, 0x02, 0x01}, true},
    {"max of unsigned 16", kMax, {0, 0}, {0x00, 0x80}, {0xFF, 0x7F}, 16, 0, 0, 0, {0x00, 0x80}, true},
    {"max of signed 16", kMax, {0, 0}, {0x00, 0x80}, {0xFF, 0x7F}, 16, 1, 0, 0, {0xFF, 0x7F}, true},
    {"unsigned 32", kMin, {0, 0, 0, 0}, {0, 0, 0, 0x80}, {0xFF, 0xFF, 0xFF, 0x7F}, 32, 0, 0, 0, {0xFF, 0xFF, 0xFF, 0x7F}, true},
    {"signed 32", kMin, {0, 0, 0, 0}, {0, 0, 0, 0x80}, {0xFF, 0xFF, 0xFF, 0x7F}, 32, 1, 0, 0, {0, 0, 0, 0x80}, true},
    {"max of unsigned 32", kMax, {0, 0, 0, 0}, {0, 0, 0, 0x80}, {0xFF, 0xFF, 0xFF, 0x7F}, 32, 0, 0, 0, {0, 0, 0, 0x80}, true},
    {"max of signed 32", kMax, {0, 0, 0, 0}, {0, 0, 0, 0x80}, {0xFF, 0xFF, 0xFF, 0x7F}, 32, 1, 0, 0, {0xFF, 0xFF, 0xFF, 0x7F}, true},
    {"unsigned 64: min", kMin, kEight, kAllOnes, kOne, 64, 0, 0, 0, kOne, true},
    {"unsigned 64: max", kMax, kEight, kAllOnes, kOne, 64, 0, 0, 0, kAllOnes, true},
    {"signed 64: min", kMin, kEight, kAllOnes, kOne, 64, 1, 0, 0, kAllOnes, true},
    {"signed 64: max", kMax, kEight, kAllOnes, kOne, 64, 1, 0, 0, kOne, true},
    {"64: equal high halves, unsigned low halves", kMax, kEight, kLowBelow, kLowTop, 64, 0, 0, 0, kLowTop, true},
    {"64: the same when signed", kMax, kEight, kLowBelow, kLowTop, 64, 1, 0, 0, kLowTop, true},
    {"64: and the minimum", kMin, kEight, kLowTop, kLowBelow, 64, 1, 0, 0, kLowBelow, true},
    {"bit size 12", kMin, {0xEE, 0xEE}, {1, 1}, {2, 2}, 12, 0, 0, 0, {0xEE, 0xEE}, false},
    {"bit size 0", kMax, {0xEE, 0xEE}, {1, 1}, {2, 2}, 0, 1, 0, 0, {0xEE, 0xEE}, false},
    {"bit size -8", kMin, {0xEE, 0xEE}, {1, 1}, {2, 2}, -8, 0, 0, 0, {0xEE, 0xEE}, false},
    {"16 over 5 bytes: two elements", kMin, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE}, {1, 0, 2, 0}, {3, 0, 4, 0}, 16, 0, 0, 5,
     {1, 0, 2, 0, 0xEE}, true},
    {"16 over 1 byte: none", kMin, {0xEE, 0xEE}, {}, {}, 16, 0, 0, 1, {0xEE, 0xEE}, true},
    {"offset at the size", kMin, {0xEE, 0xEE}, {}, {}, 8, 0, 2, 0, {0xEE, 0xEE}, true},
    {"offset past the size", kMin, {0xEE, 0xEE}, {}, {}, 8, 0, 7, 0, {0xEE, 0xEE}, true},
    {"sources read from their start", kMin, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}, {5, 9}, {7, 3}, 8, 0, 4, 0,
     {0xEE, 0xEE, 0xEE, 0xEE, 5, 3}, true},
    {"length cut back to whole elements", kMax, kTen, {1, 0, 0, 0}, {2, 0, 0, 0}, 32, 0, 4, 100,
     {0xEE, 0xEE, 0xEE, 0xEE, 2, 0, 0, 0, 0xEE, 0xEE}, true},
    {"huge length cannot overflow", kMax, kTen, {1, 0, 0, 0, 5, 0, 0, 0}, {2, 0, 0, 0, 4, 0, 0, 0}, 32, 0, 1, kLargest,
     {0xEE, 2, 0, 0, 0, 5, 0, 0, 0, 0xEE}, true},
    {"explicit length from the end", kMin, kTen, {}, {}, 8, 0, 10, 4, kTen, true},
    {"explicit length past the end", kMin, kTen, {}, {}, 8, 0, 12, 4, kTen, true},
    {"bit size tested before the range", kMin, kTen, {}, {}, 24, 0, 12, 4, kTen, false},
};

class MinMaxMethods : public PluginTest {
 protected:
  MinMax* method(const char* declaration) { return plugin().method<MinMax>(declaration); }
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
    REALmemoryBlock block = this->block(c.block);
    bool result = method(c.declaration)(block, source(c.first), source(c.second), c.bitSize, c.isSigned, c.offset,
                                        c.length);
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(bytes(block), c.expected);
    EXPECT_NOTHING_RAISED(host());
    EXPECT_BALANCED(host());
  }
}

TEST_P(MinMaxMethods, RefusedArgumentsRaise) {
  uint8_t* a = source({1, 2, 3, 4});
  uint8_t* b = source({4, 3, 2, 1});
  const Bytes start = {0xEE, 0xEE, 0xEE, 0xEE};
  for (const char* declaration : {kMin, kMax}) {
    SCOPED_TRACE(declaration);
    MinMax* call = method(declaration);
    REALmemoryBlock block = this->block(start);
    EXPECT_FALSE(call(nullptr, a, b, 8, 0, 0, 0));
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    EXPECT_FALSE(call(nullptr, nullptr, nullptr, 8, 0, -1, 0));  // the block first
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    EXPECT_FALSE(call(block, nullptr, b, 8, 0, 0, 0));
    EXPECT_RAISED(host(), "NilObjectException", "ptr is nil");
    EXPECT_FALSE(call(block, a, nullptr, 8, 0, 0, 0));
    EXPECT_RAISED(host(), "NilObjectException", "ptr is nil");
    EXPECT_FALSE(call(block, a, nullptr, 12, 0, -1, 0));  // the addresses before the offset
    EXPECT_RAISED(host(), "NilObjectException", "ptr is nil");
    EXPECT_FALSE(call(block, a, b, 8, 0, -1, 0));
    EXPECT_RAISED(host(), "UnsupportedOperationException", "offset < 0");
    EXPECT_FALSE(call(block, a, b, 12, 0, INT32_MIN, 4));
    EXPECT_RAISED(host(), "UnsupportedOperationException", "offset < 0");
    EXPECT_EQ(bytes(block), start);
    EXPECT_BALANCED(host());
  }
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
  EXPECT_TRUE(method(kMin)(block, data, fives, 8, 0, 1, 0));
  EXPECT_EQ(bytes(block), Bytes(41, 0x01));

  // In place, with the destination at the first source.
  std::vector<uint8_t> values(40);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint8_t>(i * 7);
  block = this->block(values);
  data = host().bytes(block).data();
  uint8_t* middle = source(Bytes(40, 0x80));
  EXPECT_TRUE(method(kMax)(block, data, middle, 8, 0, 0, 0));
  for (uint8_t& v : values) v = std::max<uint8_t>(v, 0x80);
  EXPECT_EQ(bytes(block), values);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// A block over a raw address has no known size: an explicit length is the
// caller's; the rest of such a block is nothing.
TEST_P(MinMaxMethods, RawAddressBlockTrustsTheLength) {
  uint8_t* raw = source({0xEE, 0xEE, 0xEE, 0xEE});
  REALmemoryBlock over = host().ptrBlock(raw);
  uint8_t* a = source({1, 0, 9, 0});
  uint8_t* b = source({2, 0, 3, 0});
  EXPECT_TRUE(method(kMin)(over, a, b, 16, 0, 0, 0));
  EXPECT_EQ(Bytes(raw, raw + 4), Bytes({0xEE, 0xEE, 0xEE, 0xEE}));
  EXPECT_TRUE(method(kMin)(over, a, b, 16, 0, 0, 4));
  EXPECT_EQ(Bytes(raw, raw + 4), Bytes({1, 0, 3, 0}));
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

TEST_P(MinMaxMethods, BlockWithoutDataIsLeftAlone) {
  REALmemoryBlock block = this->block({0xEE, 0xEE, 0xEE, 0xEE});
  host().overrideReportedData(block, nullptr);
  uint8_t* a = source({1, 2, 3, 4});
  uint8_t* b = source({4, 3, 2, 1});
  EXPECT_TRUE(method(kMin)(block, a, b, 8, 0, 0, 4));
  EXPECT_TRUE(method(kMax)(block, a, b, 8, 0, 0, 0));
  EXPECT_FALSE(method(kMax)(block, a, b, 9, 0, 0, 4));
  EXPECT_EQ(bytes(block), Bytes({0xEE, 0xEE, 0xEE, 0xEE}));
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

template <class T>
Bytes elementwise(const Bytes& a, const Bytes& b, bool max) {
  Bytes out(a.size());
  for (size_t at = 0; at + sizeof(T) <= a.size(); at += sizeof(T)) {
    T x, y;
    std::memcpy(&x, &a[at], sizeof x);
    std::memcpy(&y, &b[at], sizeof y);
    T r = max ? std::max(x, y) : std::min(x, y);
    std::memcpy(&out[at], &r, sizeof r);
  }
  return out;
}

// Long ranges at an odd offset, every element type, up to a guard page.
TEST_P(MinMaxMethods, LongRangesEveryType) {
  struct Type {
    int32_t bits;
    bool isSigned;
    Bytes (*expect)(const Bytes&, const Bytes&, bool);
  } types[] = {
      {8, false, elementwise<uint8_t>},   {8, true, elementwise<int8_t>},   {16, false, elementwise<uint16_t>},
      {16, true, elementwise<int16_t>},   {32, false, elementwise<uint32_t>}, {32, true, elementwise<int32_t>},
      {64, false, elementwise<uint64_t>}, {64, true, elementwise<int64_t>},
  };
  std::mt19937 random(9);
  const int32_t offset = 3;
  Bytes start(offset + 997);
  for (uint8_t& b : start) b = static_cast<uint8_t>(random());
  for (const Type& t : types) {
    for (bool max : {false, true}) {
      SCOPED_TRACE(std::to_string(t.bits) + (t.isSigned ? " signed " : " unsigned ") + (max ? "max" : "min"));
      size_t used = (start.size() - offset) / (t.bits / 8) * (t.bits / 8);
      Bytes a(used), b(used);
      for (size_t i = 0; i < used; ++i) {
        a[i] = static_cast<uint8_t>(random());
        b[i] = random() % 3 == 0 ? a[i] : static_cast<uint8_t>(random());  // equal bytes, often equal halves
      }
      REALmemoryBlock block = this->block(start);
      EXPECT_TRUE(method(max ? kMax : kMin)(block, source(a), source(b), t.bits, t.isSigned, offset, 0));
      Bytes expected = start;
      Bytes picked = t.expect(a, b, max);
      std::copy(picked.begin(), picked.end(), expected.begin() + offset);
      EXPECT_EQ(bytes(block), expected);
    }
  }
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(MinMaxMethods);
}  // namespace
