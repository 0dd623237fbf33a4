// MultiplyUInt8VEK and MultiplyUInt16VEK through the simulated host.
#include <cmath>
#include <limits>
#include <random>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kMul8 = "MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)";
constexpr const char* kMul16 = "MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)";
using Multiply = void(REALmemoryBlock, double, int32_t, int32_t);

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int32_t kMax = 2147483647;

struct ScaleCase {
  const char* name;
  const char* declaration;
  Bytes block;
  double factor;
  int32_t offset, length;
  Bytes expected;
};

const Bytes kFour = {1, 2, 3, 4};
const Bytes kSix16 = {0x00, 0x80, 0xFF, 0x7F, 0x34, 0x12};

const ScaleCase kCases[] = {
    {"8: doubled, held at 255", kMul8, {0x00, 0x01, 0x7F, 0x80, 0xFF}, 2.0, 0, 0, {0x00, 0x02, 0xFE, 0xFF, 0xFF}},
    {"8: halved", kMul8, {0x00, 0x01, 0x02, 0x03, 0xFF}, 0.5, 0, 0, {0x00, 0x00, 0x01, 0x01, 0x7F}},
    {"8: a range inside", kMul8, {0x10, 0x10, 0x10, 0x10}, 1.5, 1, 2, {0x10, 0x18, 0x18, 0x10}},
    {"8: minus one wraps", kMul8, {0x00, 0x01, 0x02}, -1.0, 0, 0, {0x00, 0xFF, 0xFE}},
    {"8: a huge factor is held", kMul8, {0xFF}, 1.0E7, 0, 0, {0xFF}},
    {"8: one changes nothing", kMul8, {0x00, 0x7F, 0xFF}, 1.0, 0, 0, {0x00, 0x7F, 0xFF}},
    {"8: zero clears", kMul8, {0x00, 0x7F, 0xFF}, 0.0, 0, 0, {0x00, 0x00, 0x00}},
    {"8: not a number clears", kMul8, {0x01, 0x80, 0xFF}, kNaN, 0, 0, {0x00, 0x00, 0x00}},
    {"8: infinity holds all but 0", kMul8, {0x00, 0x01, 0x80}, kInf, 0, 0, {0x00, 0xFF, 0xFF}},
    {"8: minus infinity clears", kMul8, {0x00, 0x01, 0x80}, -kInf, 0, 0, {0x00, 0x00, 0x00}},
    {"8: below the 32-bit range still wraps", kMul8, {0x00, 0x01, 0x02}, -3000000001.0, 0, 0, {0x00, 0xFF, 0xFE}},
    {"8: negative length is the rest", kMul8, kFour, 2.0, 1, -5, {1, 4, 6, 8}},
    {"8: offset at the end", kMul8, kFour, 2.0, 4, 0, kFour},
    {"8: offset past the end", kMul8, kFour, 2.0, 10, 0, kFour},
    {"8: length cut back at the end", kMul8, kFour, 2.0, 2, 100, {1, 2, 6, 8}},
    {"8: huge length cannot overflow", kMul8, kFour, 2.0, 3, kMax, {1, 2, 3, 8}},
    {"8: explicit length from the end", kMul8, kFour, 2.0, 4, 3, kFour},
    {"8: explicit length past the end", kMul8, kFour, 2.0, 9, 3, kFour},
    {"16: doubled, held at 65535", kMul16, kSix16, 2.0, 0, 0, {0xFF, 0xFF, 0xFE, 0xFF, 0x68, 0x24}},
    {"16: halved", kMul16, {0x03, 0x00, 0xFF, 0xFF}, 0.5, 0, 0, {0x01, 0x00, 0xFF, 0x7F}},
    {"16: a huge factor is held", kMul16, {0xFF, 0xFF}, 40000.0, 0, 0, {0xFF, 0xFF}},
    {"16: negative factor changes nothing", kMul16, kSix16, -2.0, 0, 0, kSix16},
    {"16: not a number changes nothing", kMul16, kSix16, kNaN, 0, 0, kSix16},
    {"16: minus infinity changes nothing", kMul16, kSix16, -kInf, 0, 0, kSix16},
    {"16: infinity holds all but 0", kMul16, {0x00, 0x00, 0x01, 0x00, 0x00, 0x80}, kInf, 0, 0,
     {0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}},
    {"16: zero clears", kMul16, kSix16, 0.0, 0, 0, {0, 0, 0, 0, 0, 0}},
    {"16: from an odd offset", kMul16, {0xAA, 0x01, 0x00, 0x02, 0x00, 0xBB}, 3.0, 1, 0,
     {0xAA, 0x03, 0x00, 0x06, 0x00, 0xBB}},
    {"16: one byte holds no value", kMul16, {0x01, 0x00}, 2.0, 0, 1, {0x01, 0x00}},
    {"16: one changes nothing", kMul16, kSix16, 1.0, 0, 0, kSix16},
    {"16: a last odd byte stays", kMul16, {0x01, 0x00, 0x02, 0x00, 0x03}, 2.0, 0, 0, {0x02, 0x00, 0x04, 0x00, 0x03}},
    {"16: length cut back to whole values", kMul16, {0x01, 0x00, 0x02, 0x00, 0x03}, 2.0, 2, 100,
     {0x01, 0x00, 0x04, 0x00, 0x03}},
    {"16: huge length cannot overflow", kMul16, kFour, 2.0, 1, kMax, {1, 4, 6, 4}},
    {"16: offset past the end", kMul16, kFour, 2.0, 10, 0, kFour},
    {"16: explicit length past the end", kMul16, kFour, 2.0, 9, 2, kFour},
};

class Scaling : public PluginTest {
 protected:
  Multiply* method(const char* declaration) { return plugin().method<Multiply>(declaration); }
};

TEST_P(Scaling, Cases) {
  for (const ScaleCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block);
    method(c.declaration)(block, c.factor, c.offset, c.length);
    EXPECT_EQ(bytes(block), c.expected);
    EXPECT_NOTHING_RAISED(host());
    EXPECT_BALANCED(host());
  }
}

TEST_P(Scaling, NilBlockAndNegativeOffsetRaise) {
  for (const char* declaration : {kMul8, kMul16}) {
    SCOPED_TRACE(declaration);
    method(declaration)(nullptr, 2.0, 0, 0);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    method(declaration)(nullptr, 2.0, -1, 0);  // the block is tested first
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    REALmemoryBlock block = this->block(kFour);
    for (int32_t offset : {-1, INT32_MIN}) {
      method(declaration)(block, 2.0, offset, 2);
      EXPECT_RAISED(host(), "UnsupportedOperationException", "offset < 0");
    }
    EXPECT_EQ(bytes(block), kFour);
    EXPECT_BALANCED(host());
  }
}

// A block over a raw address has no known size: an explicit length is the
// caller's; the rest of such a block is nothing.
TEST_P(Scaling, RawAddressBlockTrustsTheLength) {
  uint8_t* raw = host().rawBuffer(6);
  REALmemoryBlock over = host().ptrBlock(raw);
  Bytes start = {0x10, 0x00, 0x20, 0x00, 0x30, 0x00};
  std::copy(start.begin(), start.end(), raw);
  method(kMul8)(over, 2.0, 0, 0);
  EXPECT_EQ(Bytes(raw, raw + 6), start);
  method(kMul8)(over, 2.0, 0, 6);
  EXPECT_EQ(Bytes(raw, raw + 6), Bytes({0x20, 0x00, 0x40, 0x00, 0x60, 0x00}));
  method(kMul16)(over, 0.5, 2, 4);
  EXPECT_EQ(Bytes(raw, raw + 6), Bytes({0x20, 0x00, 0x20, 0x00, 0x30, 0x00}));
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

TEST_P(Scaling, BlockWithoutDataIsLeftAlone) {
  REALmemoryBlock block = this->block(kFour);
  host().overrideReportedData(block, nullptr);
  for (const char* declaration : {kMul8, kMul16}) {
    method(declaration)(block, 2.0, 0, 4);
    method(declaration)(block, 2.0, 0, 0);
  }
  EXPECT_EQ(bytes(block), kFour);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// Long ranges at odd offsets, up to a guard page, against the rule written
// out in floating point.
TEST_P(Scaling, LongRanges) {
  std::mt19937 random(5);
  Bytes start(1001);
  for (uint8_t& b : start) b = static_cast<uint8_t>(random());
  for (double factor : {0.37, 1.7, 300.0, -2.5}) {
    SCOPED_TRACE(factor);
    REALmemoryBlock block = this->block(start);
    method(kMul8)(block, factor, 3, 0);
    Bytes expected = start;
    for (size_t i = 3; i < expected.size(); ++i) {
      double product = std::trunc(expected[i] * factor);
      expected[i] = static_cast<uint8_t>(factor >= 1.0 ? std::min(product, 255.0)
                                                       : std::fmod(std::fmod(product, 256.0) + 256.0, 256.0));
    }
    EXPECT_EQ(bytes(block), expected);

    block = this->block(start);
    method(kMul16)(block, factor, 1, 0);
    expected = start;
    for (size_t i = 1; factor >= 0.0 && i + 1 < expected.size(); i += 2) {
      double product = std::min(std::trunc((expected[i] | expected[i + 1] << 8) * factor), 65535.0);
      expected[i] = static_cast<uint8_t>(static_cast<int>(product) & 0xFF);
      expected[i + 1] = static_cast<uint8_t>(static_cast<int>(product) >> 8);
    }
    EXPECT_EQ(bytes(block), expected);
  }
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(Scaling);
}  // namespace
