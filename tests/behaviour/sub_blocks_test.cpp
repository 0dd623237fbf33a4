// MidVEK, LeftVEK, RightVEK and AppendVEK through the simulated host.
#include <cstring>
#include <functional>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kMid1 = "MidVEK(offset as integer) as Memoryblock";
constexpr const char* kMid2 = "MidVEK(offset As Integer, length As Integer) as Memoryblock";
constexpr const char* kLeft = "LeftVEK(length as integer) as Memoryblock";
constexpr const char* kRight = "RightVEK(length As Integer) as Memoryblock";
constexpr const char* kAppend = "AppendVEK(other as Memoryblock) as Memoryblock";

using OneArg = REALmemoryBlock(REALmemoryBlock, int32_t);
using TwoArgs = REALmemoryBlock(REALmemoryBlock, int32_t, int32_t);
using Append = REALmemoryBlock(REALmemoryBlock, REALmemoryBlock);

const Bytes kOneToTen = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
constexpr int32_t kMax = 2147483647;

struct SubBlockCase {
  const char* name;
  const char* declaration;
  int32_t a, b;  // b is unused by the one-argument forms
  std::optional<Bytes> expected;
};

class SubBlocks : public PluginTest {
 protected:
  REALmemoryBlock call(const SubBlockCase& c, REALmemoryBlock block) {
    if (std::strcmp(c.declaration, kMid2) == 0) return plugin().method<TwoArgs>(kMid2)(block, c.a, c.b);
    return plugin().method<OneArg>(c.declaration)(block, c.a);
  }
};

const SubBlockCase kCases[] = {
    {"mid from 0 copies all", kMid1, 0, 0, kOneToTen},
    {"mid from the last byte", kMid1, 9, 0, Bytes{10}},
    {"mid at the size", kMid1, 10, 0, std::nullopt},
    {"mid past the size", kMid1, 11, 0, std::nullopt},
    {"mid negative offset", kMid1, -1, 0, std::nullopt},
    {"mid most negative offset", kMid1, INT32_MIN, 0, std::nullopt},
    {"mid2 inside", kMid2, 2, 3, Bytes{3, 4, 5}},
    {"mid2 cut at the end", kMid2, 8, 100, Bytes{9, 10}},
    {"mid2 huge length cannot overflow", kMid2, 8, kMax, Bytes{9, 10}},
    {"mid2 whole block", kMid2, 0, 10, kOneToTen},
    {"mid2 zero length", kMid2, 0, 0, std::nullopt},
    {"mid2 zero length before the offset test", kMid2, -1, 0, std::nullopt},
    {"mid2 negative length", kMid2, 0, -3, std::nullopt},
    {"mid2 negative offset", kMid2, -1, 3, std::nullopt},
    {"mid2 offset at the size", kMid2, 10, 1, std::nullopt},
    {"left inside", kLeft, 3, 0, Bytes{1, 2, 3}},
    {"left longer than the block", kLeft, 100, 0, kOneToTen},
    {"left zero", kLeft, 0, 0, std::nullopt},
    {"left negative", kLeft, -5, 0, std::nullopt},
    {"right inside", kRight, 3, 0, Bytes{8, 9, 10}},
    {"right longer than the block", kRight, 100, 0, kOneToTen},
    {"right huge", kRight, kMax, 0, kOneToTen},
    {"right zero", kRight, 0, 0, std::nullopt},
    {"right negative", kRight, -1, 0, std::nullopt},
};

TEST_P(SubBlocks, TenByteBlock) {
  REALmemoryBlock block = this->block(kOneToTen);
  for (const SubBlockCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock result = call(c, block);
    EXPECT_NE(result, block) << "a result is always a new block";
    EXPECT_EQ(take_block(result), c.expected);
    EXPECT_BALANCED(host());
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_EQ(bytes(block), kOneToTen);
}

TEST_P(SubBlocks, EmptyBlockGivesNilQuietly) {
  REALmemoryBlock empty = host().newBlock(0);
  for (const SubBlockCase& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(call(c, empty), nullptr);
    EXPECT_NOTHING_RAISED(host());
  }
  REALmemoryBlock ten = block(kOneToTen);
  EXPECT_EQ(take_block(plugin().method<Append>(kAppend)(empty, ten)), kOneToTen);
  EXPECT_EQ(plugin().method<Append>(kAppend)(empty, empty), nullptr);
  EXPECT_NOTHING_RAISED(host());
}

TEST_P(SubBlocks, NilBlockRaises) {
  for (const SubBlockCase& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(call(c, nullptr), nullptr);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  }
  REALmemoryBlock ten = block(kOneToTen);
  auto append = plugin().method<Append>(kAppend);
  EXPECT_EQ(append(nullptr, ten), nullptr);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  EXPECT_EQ(append(ten, nullptr), nullptr);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  EXPECT_BALANCED(host());
}

TEST_P(SubBlocks, ResultsAreCopies) {
  REALmemoryBlock block = this->block(kOneToTen);
  REALmemoryBlock whole = plugin().method<OneArg>(kMid1)(block, 0);
  ASSERT_NE(whole, nullptr);
  take_block(whole);
  host().bytes(whole)[0] = 0xEE;
  EXPECT_EQ(bytes(block), kOneToTen);
}

TEST_P(SubBlocks, Append) {
  REALmemoryBlock ten = block(kOneToTen);
  REALmemoryBlock four = block({0xA, 0xB, 0xC, 0xD});
  REALmemoryBlock empty = host().newBlock(0);
  auto append = plugin().method<Append>(kAppend);

  Bytes joined = kOneToTen;
  joined.insert(joined.end(), {0xA, 0xB, 0xC, 0xD});
  EXPECT_EQ(take_block(append(ten, four)), joined);

  REALmemoryBlock copy = append(ten, empty);
  EXPECT_NE(copy, ten) << "a copy, not the receiver";
  EXPECT_EQ(take_block(copy), kOneToTen);

  Bytes twice = kOneToTen;
  twice.insert(twice.end(), kOneToTen.begin(), kOneToTen.end());
  EXPECT_EQ(take_block(append(ten, ten)), twice);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// A block over a raw address reports size 0: the sub-block methods take it
// as empty.
TEST_P(SubBlocks, RawAddressBlockIsEmpty) {
  uint8_t* raw = host().rawBuffer(16);
  REALmemoryBlock over = host().ptrBlock(raw);
  EXPECT_EQ(plugin().method<OneArg>(kMid1)(over, 0), nullptr);
  EXPECT_EQ(plugin().method<OneArg>(kLeft)(over, 4), nullptr);
  EXPECT_NOTHING_RAISED(host());
}

// The host cannot make the result: the copy methods raise, the joining case
// of AppendVEK gives nil quietly.
TEST_P(SubBlocks, HostCannotMakeTheResult) {
  REALmemoryBlock ten = block(kOneToTen);
  REALmemoryBlock four = block({1, 2, 3, 4});
  for (NewBlockFailure failure : {NewBlockFailure::ReturnNull, NewBlockFailure::ThrowBadAlloc}) {
    host().failNewMemoryBlock(failure);
    EXPECT_EQ(plugin().method<TwoArgs>(kMid2)(ten, 2, 3), nullptr);
    EXPECT_RAISED(host(), "OutOfMemoryException", "Failed to allocate a memoryblock with 3 bytes in size.");
    EXPECT_EQ(plugin().method<OneArg>(kRight)(ten, 100), nullptr);
    EXPECT_RAISED(host(), "OutOfMemoryException", "Failed to allocate a memoryblock with 10 bytes in size.");
    if (failure == NewBlockFailure::ReturnNull) {
      EXPECT_EQ(plugin().method<Append>(kAppend)(ten, four), nullptr);
      EXPECT_NOTHING_RAISED(host());
    }
    EXPECT_BALANCED(host());
  }
  host().failNewMemoryBlock(NewBlockFailure::None);
}

INSTANTIATE_ON_EVERY_HOST(SubBlocks);
}  // namespace
