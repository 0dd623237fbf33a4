// BytesVEK, FillBytesVEK and InvertBytesVEK through the simulated host.
#include <random>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kFill = "FillBytesVEK(offset as integer, count as integer, value as integer)";
constexpr const char* kInvert = "InvertBytesVEK(offset as integer, count as integer)";
using Fill = void(REALmemoryBlock, int32_t, int32_t, int32_t);
using Invert = void(REALmemoryBlock, int32_t, int32_t);
using SizeGetter = int32_t(REALmemoryBlock, int32_t);
constexpr int32_t kMax = 2147483647;

// The property's getter, or null where the host takes no class extension.
SizeGetter* bytes_vek_getter(const SimHost& host) {
  for (const ClassReg& extension : host.registry().extensions) {
    for (const PropertyReg& property : extension.properties) {
      if (property.name == "BytesVEK") return reinterpret_cast<SizeGetter*>(const_cast<void*>(property.getter));
    }
  }
  return nullptr;
}

// `bytes` with those in [first, last) complemented, one by one.
Bytes complemented(Bytes bytes, size_t first, size_t last) {
  for (size_t i = first; i < last; ++i) bytes[i] = static_cast<uint8_t>(255 - bytes[i]);
  return bytes;
}

class SizeFillInvert : public PluginTest {
 protected:
  void fill(REALmemoryBlock b, int32_t offset, int32_t count, int32_t value) {
    plugin().method<Fill>(kFill)(b, offset, count, value);
  }
  void invert(REALmemoryBlock b, int32_t offset, int32_t count) { plugin().method<Invert>(kInvert)(b, offset, count); }
};

TEST_P(SizeFillInvert, BytesVEK) {
  SizeGetter* bytes_vek = bytes_vek_getter(host());
  if (GetParam().version == 2020.0) {
    EXPECT_EQ(bytes_vek, nullptr) << "module hosts are offered no property";
    return;
  }
  ASSERT_NE(bytes_vek, nullptr);
  REALmemoryBlock ten = host().newBlock(10);
  host().setMissing("memoryBlockGetSize", true);  // before the service is first looked up and kept
  EXPECT_EQ(bytes_vek(ten, 0), 0);
  host().setMissing("memoryBlockGetSize", false);
  EXPECT_EQ(bytes_vek(ten, 0), 10);
  EXPECT_EQ(bytes_vek(host().newBlock(0), 0), 0);
  EXPECT_EQ(bytes_vek(nullptr, 0), 0);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

struct FillCase {
  const char* name;
  int32_t offset, count, value;
  Bytes expected;  // from ten zero bytes
};

const FillCase kFillCases[] = {
    {"inside", 2, 3, 65, {0, 0, 65, 65, 65, 0, 0, 0, 0, 0}},
    {"count 0 is the whole block", 0, 0, 7, Bytes(10, 7)},
    {"negative count is the whole block", 0, -1, 7, Bytes(10, 7)},
    {"low 8 bits of the value", 0, 10, 511, Bytes(10, 255)},
    {"value -1", 0, 2, -1, {255, 255, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"value 256 + 65", 9, 1, 321, {0, 0, 0, 0, 0, 0, 0, 0, 0, 65}},
    {"negative offset", -1, 3, 1, Bytes(10, 0)},
    {"run past the end is cut back", 8, 5, 9, {0, 0, 0, 0, 0, 0, 0, 0, 9, 9}},
    {"huge count is cut back", 5, kMax, 9, {0, 0, 0, 0, 0, 9, 9, 9, 9, 9}},
    {"count 0 from an offset: to the end", 7, 0, 3, {0, 0, 0, 0, 0, 0, 0, 3, 3, 3}},
    {"offset at the end", 10, 1, 1, Bytes(10, 0)},
    {"offset past the end, count 0", 12, 0, 1, Bytes(10, 0)},
};

TEST_P(SizeFillInvert, Fill) {
  for (const FillCase& c : kFillCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = host().newBlock(10);
    fill(block, c.offset, c.count, c.value);
    EXPECT_EQ(bytes(block), c.expected);
  }
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

const Bytes kMixed = {0x00, 0x01, 0x0F, 0x10, 0x55, 0xAA, 0x7F, 0x80, 0xF0, 0xFF};

struct InvertCase {
  const char* name;
  int32_t offset, count;
  size_t first, last;  // the bytes of kMixed that change
};

const InvertCase kInvertCases[] = {
    {"count 10, bytewise", 0, 10, 0, 10},
    {"count 8, one 64-bit word", 0, 8, 0, 8},
    {"count 4 at offset 1, an unaligned 32-bit word", 1, 4, 1, 5},
    {"count 3", 7, 3, 7, 10},
    {"count 0", 0, 0, 0, 0},
    {"negative count", 0, -8, 0, 0},
    {"negative offset", -1, 4, 0, 0},
    {"run past the end is cut back", 6, 100, 6, 10},
    {"huge count is cut back", 9, kMax, 9, 10},
    {"offset at the end", 10, 1, 0, 0},
    {"offset past the end", 50, 2, 0, 0},
};

TEST_P(SizeFillInvert, Invert) {
  for (const InvertCase& c : kInvertCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(kMixed);
    invert(block, c.offset, c.count);
    EXPECT_EQ(bytes(block), complemented(kMixed, c.first, c.last));
    invert(block, c.offset, c.count);
    EXPECT_EQ(bytes(block), kMixed) << "twice restores";
  }
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// Runs long enough for the vector loop, ending at (or starting after) the
// guard page.
TEST_P(SizeFillInvert, InvertLongRuns) {
  std::mt19937 random(7);
  Bytes start(300);
  for (uint8_t& b : start) b = static_cast<uint8_t>(random());
  for (auto [offset, count] : {std::pair{0, 300}, {1, 299}, {5, 290}, {13, 287}, {0, 64}, {200, 1000}}) {
    SCOPED_TRACE(testing::Message() << offset << ", " << count);
    REALmemoryBlock block = this->block(start);
    invert(block, offset, count);
    size_t last = std::min<size_t>(300, static_cast<size_t>(offset) + static_cast<size_t>(count));
    EXPECT_EQ(bytes(block), complemented(start, static_cast<size_t>(offset), last));
  }
}

TEST_P(SizeFillInvert, NilBlock) {
  fill(nullptr, 0, 4, 1);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  invert(nullptr, 0, 4);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  EXPECT_BALANCED(host());
}

TEST_P(SizeFillInvert, EmptyBlockWithWholeBlockCount) {
  REALmemoryBlock empty = host().newBlock(0);
  fill(empty, 0, 0, 7);
  fill(empty, 0, -1, 7);
  invert(empty, 0, 0);
  EXPECT_NOTHING_RAISED(host());
}

// A block over a raw address reports size 0: the caller's run is trusted.
TEST_P(SizeFillInvert, BlockOverARawAddress) {
  uint8_t* raw = host().rawBuffer(8);
  std::fill(raw, raw + 8, 0);
  REALmemoryBlock over = host().ptrBlock(raw);
  fill(over, 2, 3, 9);
  EXPECT_EQ(Bytes(raw, raw + 8), Bytes({0, 0, 9, 9, 9, 0, 0, 0}));
  invert(over, 4, 4);
  EXPECT_EQ(Bytes(raw, raw + 8), Bytes({0, 0, 9, 9, 0xF6, 255, 255, 255}));
  fill(over, 0, 0, 1);  // the whole block of an unknown size: nothing
  EXPECT_EQ(raw[0], 0);
  EXPECT_NOTHING_RAISED(host());
}

// A host that reports a negative size or no data: nothing is touched.
TEST_P(SizeFillInvert, HostReportsNoUsableBlock) {
  REALmemoryBlock negative = block(kMixed);
  host().overrideReportedSize(negative, -5);
  REALmemoryBlock no_data = block(kMixed);
  host().overrideReportedData(no_data, nullptr);
  for (REALmemoryBlock b : {negative, no_data}) {
    fill(b, 0, 4, 1);
    fill(b, 0, 0, 1);
    invert(b, 0, 4);
    EXPECT_EQ(bytes(b), kMixed);
  }
  EXPECT_NOTHING_RAISED(host());
}

INSTANTIATE_ON_EVERY_HOST(SizeFillInvert);
}  // namespace
