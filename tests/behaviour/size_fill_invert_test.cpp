// BytesVEK, FillBytesVEK and InvertBytesVEK through the simulated host. The
// invert kernels' widths and vector loops are the kernel test's.
#include <stdexcept>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kFill = "FillBytesVEK(offset as integer, count as integer, value as integer)";
constexpr const char* kInvert = "InvertBytesVEK(offset as integer, count as integer)";
constexpr int32_t kMax = 2147483647;

class SizeFillInvert : public PluginTest {
 protected:
  int64_t bytes_vek(REALmemoryBlock b) { return call_as(caller::Role::Getter, "BytesVEK", {b, 0}).i; }
};

TEST_P(SizeFillInvert, BytesVEK) {
  if (GetParam().version == 2020.0) {
    EXPECT_THROW(bytes_vek(nullptr), std::invalid_argument) << "module hosts are offered no property";
    return;
  }
  REALmemoryBlock negative = host().newBlock(10);
  host().overrideReportedSize(negative, -5);
  EXPECT_EQ(bytes_vek(host().newBlock(10)), 10);
  EXPECT_EQ(bytes_vek(host().newBlock(0)), 0);
  EXPECT_EQ(bytes_vek(nullptr), 0);
  EXPECT_EQ(bytes_vek(negative), -5);
}

const Bytes kTen(10);  // the block each fill starts from

const InPlaceCase kFillCases[] = {
    {"inside", kFill, kTen, {2, 3, 65}, {0, 0, 65, 65, 65, 0, 0, 0, 0, 0}},
    {"count 0 is the whole block", kFill, kTen, {0, 0, 7}, Bytes(10, 7)},
    {"negative count is the whole block", kFill, kTen, {0, -1, 7}, Bytes(10, 7)},
    {"count 0 from an offset: to the end", kFill, kTen, {7, 0, 3}, {0, 0, 0, 0, 0, 0, 0, 3, 3, 3}},
    {"low 8 bits of the value", kFill, kTen, {0, 10, 511}, Bytes(10, 255)},
    {"run past the end is cut back", kFill, kTen, {8, 5, 9}, {0, 0, 0, 0, 0, 0, 0, 0, 9, 9}},
    {"huge count is cut back", kFill, kTen, {5, kMax, 9}, {0, 0, 0, 0, 0, 9, 9, 9, 9, 9}},
    {"offset at the end", kFill, kTen, {10, 1, 1}, Bytes(10, 0)},
};

TEST_P(SizeFillInvert, Fill) { expect_in_place(kFillCases); }

const Bytes kMixed = {0x00, 0x01, 0x0F, 0x10, 0x55, 0xAA, 0x7F, 0x80, 0xF0, 0xFF};

struct InvertCase {
  const char* name;
  int32_t offset, count;
  size_t first, last;  // the bytes of kMixed that change
};

const InvertCase kInvertCases[] = {
    {"the whole block", 0, 10, 0, 10},
    {"inside", 1, 4, 1, 5},
    {"to the end", 7, 3, 7, 10},
    {"count 0", 0, 0, 0, 0},
    {"negative count", 0, -8, 0, 0},
    {"negative offset", -1, 4, 0, 0},
    {"run past the end is cut back", 6, 100, 6, 10},
    {"huge count is cut back", 9, kMax, 9, 10},
    {"offset at the end", 10, 1, 0, 0},
};

TEST_P(SizeFillInvert, Invert) {
  for (const InvertCase& c : kInvertCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(kMixed);
    call(kInvert, block, c.offset, c.count);
    Bytes expected = kMixed;
    for (size_t i = c.first; i < c.last; ++i) expected[i] = static_cast<uint8_t>(255 - expected[i]);
    EXPECT_EQ(bytes(block), expected);
    call(kInvert, block, c.offset, c.count);
    EXPECT_EQ(bytes(block), kMixed) << "twice restores";
  }
}

// A block over a raw address reports size 0: a positive count is trusted,
// and the whole of an unknown size is nothing.
TEST_P(SizeFillInvert, BlockOverARawAddress) {
  uint8_t* raw = host().rawBuffer(8);
  std::fill(raw, raw + 8, 0);
  REALmemoryBlock over = host().ptrBlock(raw);
  call(kFill, over, 2, 3, 9);
  call(kInvert, over, 4, 4);
  call(kFill, over, 0, 0, 1);
  EXPECT_EQ(Bytes(raw, raw + 8), Bytes({0, 0, 9, 9, 0xF6, 255, 255, 255}));
}

// A host that reports a negative size: nothing is touched.
TEST_P(SizeFillInvert, NegativeSize) {
  REALmemoryBlock negative = block(kMixed);
  host().overrideReportedSize(negative, -5);
  call(kFill, negative, 0, 4, 1);
  call(kFill, negative, 0, 0, 1);
  call(kInvert, negative, 0, 4);
  EXPECT_EQ(bytes(negative), kMixed);
}

INSTANTIATE_ON_EVERY_HOST(SizeFillInvert);
}  // namespace
