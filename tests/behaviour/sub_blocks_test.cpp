// MidVEK, LeftVEK, RightVEK and AppendVEK through the simulated host.
#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kMid1 = "MidVEK(offset as integer) as Memoryblock";
constexpr const char* kMid2 = "MidVEK(offset As Integer, length As Integer) as Memoryblock";
constexpr const char* kLeft = "LeftVEK(length as integer) as Memoryblock";
constexpr const char* kRight = "RightVEK(length As Integer) as Memoryblock";
constexpr const char* kAppend = "AppendVEK(other as Memoryblock) as Memoryblock";

const Bytes kOneToTen = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
constexpr int32_t kMax = 2147483647;

struct SubBlockCase {
  const char* name;
  const char* declaration;
  int32_t a, b;  // b only for the two-argument MidVEK
  std::optional<Bytes> expected;
};

const SubBlockCase kCases[] = {
    {"mid from 0 copies all", kMid1, 0, 0, kOneToTen},
    {"mid from the last byte", kMid1, 9, 0, Bytes{10}},
    {"mid at the size", kMid1, 10, 0, std::nullopt},
    {"mid negative offset", kMid1, -1, 0, std::nullopt},
    {"mid2 inside", kMid2, 2, 3, Bytes{3, 4, 5}},
    {"mid2 cut at the end", kMid2, 8, 100, Bytes{9, 10}},
    {"mid2 huge length cannot overflow", kMid2, 8, kMax, Bytes{9, 10}},
    {"mid2 the whole block", kMid2, 0, 10, kOneToTen},
    {"mid2 negative length", kMid2, 0, -3, std::nullopt},
    {"mid2 negative offset", kMid2, -1, 3, std::nullopt},
    {"mid2 offset at the size", kMid2, 10, 1, std::nullopt},
    {"left inside", kLeft, 3, 0, Bytes{1, 2, 3}},
    {"left longer than the block", kLeft, 100, 0, kOneToTen},
    {"left negative", kLeft, -5, 0, std::nullopt},
    {"right inside", kRight, 3, 0, Bytes{8, 9, 10}},
    {"right huge", kRight, kMax, 0, kOneToTen},
    {"right negative", kRight, -1, 0, std::nullopt},
};

class SubBlocks : public PluginTest {
 protected:
  void* sub(const SubBlockCase& c, REALmemoryBlock b) {
    return c.declaration == kMid2 ? call(kMid2, b, c.a, c.b).p : call(c.declaration, b, c.a).p;
  }
  std::optional<Bytes> taken(void* result) { return take_block(static_cast<REALmemoryBlock>(result)); }
};

// Every case on the ten bytes; the same arguments give nil quietly on blocks
// that hold no bytes here. (A nil receiver raises: the every-method sweep.)
TEST_P(SubBlocks, Cases) {
  REALmemoryBlock ten = block(kOneToTen);
  REALmemoryBlock negative = block(kOneToTen);
  host().overrideReportedSize(negative, -5);
  REALmemoryBlock no_bytes[] = {host().newBlock(0), host().ptrBlock(host().rawBuffer(16)), negative};
  for (const SubBlockCase& c : kCases) {
    SCOPED_TRACE(c.name);
    void* result = sub(c, ten);
    EXPECT_NE(result, ten) << "a result is always a new block";
    EXPECT_EQ(taken(result), c.expected);
    for (REALmemoryBlock b : no_bytes) EXPECT_EQ(sub(c, b), nullptr);
  }
  EXPECT_EQ(bytes(ten), kOneToTen);
}

TEST_P(SubBlocks, Append) {
  REALmemoryBlock ten = block(kOneToTen);
  REALmemoryBlock four = block({0xA, 0xB, 0xC, 0xD});
  REALmemoryBlock empty = host().newBlock(0);
  Bytes joined = kOneToTen;
  joined.insert(joined.end(), {0xA, 0xB, 0xC, 0xD});
  Bytes twice = kOneToTen;
  twice.insert(twice.end(), kOneToTen.begin(), kOneToTen.end());
  EXPECT_EQ(taken(call(kAppend, ten, four).p), joined);
  EXPECT_EQ(taken(call(kAppend, ten, ten).p), twice);
  EXPECT_EQ(taken(call(kAppend, empty, ten).p), kOneToTen);
  void* copy = call(kAppend, ten, empty).p;
  EXPECT_NE(copy, ten) << "a copy, not the receiver";
  EXPECT_EQ(taken(copy), kOneToTen);
  EXPECT_EQ(call(kAppend, empty, empty).p, nullptr);
  REALmemoryBlock no_data = block({1});
  host().overrideReportedData(no_data, nullptr);
  EXPECT_EQ(call(kAppend, ten, no_data).p, nullptr);
  EXPECT_EQ(call(kAppend, no_data, ten).p, nullptr);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_EQ(call(kAppend, ten, nullptr).p, nullptr);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
}

INSTANTIATE_ON_EVERY_HOST(SubBlocks);
}  // namespace
