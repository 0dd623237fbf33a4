// BytesEqualVEK, BytesZeroVEK, FindByteVEK, FindNotByteVEK, FindStringVEK and
// FindBytesVEK through the simulated host. The vector loops are the kernel
// test's.
#include <climits>
#include <string>

#include "tests/support/plugin_test.h"

namespace {
using B = REALmemoryBlock;

constexpr const char* kEqual =
    "BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean";
constexpr const char* kZero = "BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean";
constexpr const char* kFindNot = "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer";
constexpr const char* kFind = "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer";
constexpr const char* kFindString = "FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer";
constexpr const char* kFindBytes =
    "FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as "
    "Integer) as Integer";

const Bytes kBlock = {0, 0, 7, 1, 2, 7, 1, 2};

// The other block of a case: the receiver itself, nil, or a new block of
// kBlock, 07 01, 07 01 02, 01 02 07 09, or 07 01 02 without data.
enum class Other { Self, Nil, Copy, Short, T712, Mixed, NoData };

class CompareSearch : public PluginTest {
 protected:
  B make(Other o, B self) {
    if (o == Other::Self || o == Other::Nil) return o == Other::Self ? self : nullptr;
    B b = block(o == Other::Copy    ? kBlock
                : o == Other::Short ? Bytes{7, 1}
                : o == Other::Mixed ? Bytes{1, 2, 7, 9}
                                    : Bytes{7, 1, 2});
    if (o == Other::NoData) host().overrideReportedData(b, nullptr);
    return b;
  }
  REALstring string(std::string_view bytes, uint32_t encoding = 0x600) { return host().newString(bytes, encoding); }
};

struct ZeroCase {
  const char* name;
  Bytes block;
  int32_t srcOfs, numBytes;
  bool expected;
};

const ZeroCase kZeroCases[] = {
    {"first two are zero", kBlock, 0, 2, true},
    {"the third is not", kBlock, 0, 3, false},
    {"no bytes", kBlock, 5, 0, true},
    {"negative count: no bytes", kBlock, 5, -3, true},
    {"the count is tested before the offset", kBlock, -1, 0, true},
    {"a run past the end is cut back", {5, 0, 0, 0}, 1, 100, true},
    {"cut back, a non-zero byte inside", {5, 0, 0, 0}, 0, 100, false},
    {"starts at the end", {5, 0, 0, 0}, 4, 1, false},
    {"starts before the block", {5, 0, 0, 0}, -1, 2, false},
};

TEST_P(CompareSearch, BytesZero) {
  for (const ZeroCase& c : kZeroCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(call(kZero, block(c.block), c.srcOfs, c.numBytes).i, c.expected);
  }
}

struct FindCase {
  const char* name;
  const char* declaration;
  int32_t srcOfs, numBytes, value;
  int32_t expected;
};

const FindCase kFindCases[] = {
    {"first 7", kFind, 0, 8, 7, 2},
    {"counted from the start of the block", kFind, 3, 5, 7, 5},
    {"only the low byte of the value counts", kFind, 0, 8, 263, 2},
    {"not there", kFind, 0, 8, 9, -1},
    {"not in the range", kFind, 6, 2, 7, -1},
    {"the last byte", kFind, 7, 1, 2, 7},
    {"no bytes", kFind, 0, 0, 0, -1},
    {"the largest count is cut back", kFind, 3, INT_MAX, 7, 5},
    {"cut back, not there", kFind, 6, INT_MAX, 7, -1},
    {"starts at the end", kFind, 8, 1, 0, -1},
    {"starts before the block", kFind, -1, 8, 7, -1},
    {"first non-zero", kFindNot, 0, 8, 0, 2},
    {"all zero", kFindNot, 0, 2, 0, -1},
    {"first non-7 after a 7", kFindNot, 2, 6, 7, 3},
    {"only the low byte of the value counts", kFindNot, 0, 8, 256, 2},
    {"non-1 near the end, cut back", kFindNot, 6, 100, 1, 7},
};

TEST_P(CompareSearch, FindByteAndNotByte) {
  B b = block(kBlock);
  for (const FindCase& c : kFindCases) {
    SCOPED_TRACE(std::string(c.declaration) + ": " + c.name);
    EXPECT_EQ(call(c.declaration, b, c.srcOfs, c.numBytes, c.value).i, c.expected);
  }
  EXPECT_EQ(bytes(b), kBlock);
}

struct EqualCase {
  const char* name;
  int32_t srcOfs, numBytes;
  Other dest;
  int32_t destOfs;
  bool expected;
};

const EqualCase kEqualCases[] = {
    {"1, 2 against 1, 2 of the same block", 3, 2, Other::Self, 6, true},
    {"7, 1, 2 against 7, 1, 2", 2, 3, Other::Self, 5, true},
    {"the whole of an equal block", 0, 8, Other::Copy, 0, true},
    {"one byte differs", 0, 1, Other::Self, 2, false},
    {"no bytes", 0, 0, Other::Self, 0, true},
    {"no bytes, whatever the offsets", 9, 0, Other::Self, -4, true},
    {"the other block is shorter, its bytes fit", 2, 2, Other::Short, 0, true},
    {"needs bytes past the end of the other block", 2, 3, Other::Short, 0, false},
    {"needs bytes past the end of destBlk, all present ones equal", 2, 4, Other::Self, 5, false},
    {"needs bytes past the end of the receiver", 5, 4, Other::Copy, 2, false},
    {"negative source offset", -1, 2, Other::Self, 0, false},
    {"negative destination offset", 0, 2, Other::Self, -1, false},
    {"negative count", 0, -1, Other::Self, 0, false},
    {"nil destBlk, no bytes", 0, 0, Other::Nil, 0, false},
    {"destBlk without data, no bytes", 0, 0, Other::NoData, 0, false},
};

TEST_P(CompareSearch, BytesEqual) {
  B b = block(kBlock);
  for (const EqualCase& c : kEqualCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(call(kEqual, b, c.srcOfs, c.numBytes, make(c.dest, b), c.destOfs).i, c.expected);
  }
  EXPECT_EQ(bytes(b), kBlock);
}

struct FindBytesCase {
  const char* name;
  int32_t srcOfs, maxBytes;
  Other target;
  int32_t targOfs, targLen;
  int32_t expected;
};

const FindBytesCase kFindBytesCases[] = {
    {"whole target, to the end", 0, 0, Other::T712, 0, 0, 2},
    {"counted from the start of the block", 3, 0, Other::T712, 0, 0, 5},
    {"the occurrence lies within maxBytes", 0, 5, Other::T712, 0, 0, 2},
    {"the occurrence reaches past maxBytes", 0, 4, Other::T712, 0, 0, -1},
    {"the rest of the target from targOfs", 0, 0, Other::T712, 1, 0, 3},
    {"targOfs at the target's size", 0, 0, Other::T712, 3, 0, -2},
    {"negative srcOfs", -1, 0, Other::T712, 0, 0, -2},
    {"srcOfs at the size", 8, 0, Other::T712, 0, 0, -2},
    {"negative maxBytes", 0, -1, Other::T712, 0, 0, -2},
    {"the target cannot fit: no position tried", 6, 0, Other::T712, 0, 0, -1},
    {"a given length", 0, 0, Other::T712, 0, 2, 2},
    {"a length past the target's end is cut back", 0, 0, Other::T712, 1, 100, 3},
    {"a negative length: the rest", 0, 0, Other::T712, 0, -5, 2},
    {"negative targOfs", 0, 0, Other::T712, -1, 2, -2},
    {"maxBytes past the end is cut back", 0, 100, Other::T712, 0, 0, 2},
    {"the last byte", 7, 0, Other::T712, 2, 1, 7},
    {"one byte of another block", 0, 0, Other::Mixed, 2, 1, 2},
    {"the block in itself", 0, 0, Other::Self, 0, 0, 0},
    {"the block's own tail", 0, 0, Other::Self, 5, 0, 2},
    {"nil target with a length", 0, 0, Other::Nil, 0, 2, -2},
    {"target without data", 0, 0, Other::NoData, 0, 2, -2},
};

TEST_P(CompareSearch, FindBytes) {
  B b = block(kBlock);
  for (const FindBytesCase& c : kFindBytesCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(call(kFindBytes, b, c.srcOfs, c.maxBytes, make(c.target, b), c.targOfs, c.targLen).i, c.expected);
  }
  EXPECT_EQ(bytes(b), kBlock);
}

// The string's own bytes are searched, in its own encoding: no conversion.
TEST_P(CompareSearch, FindString) {
  B b = block(kBlock);
  EXPECT_EQ(call(kFindString, b, 0, 0, string("\x07")).i, 2);
  EXPECT_EQ(call(kFindString, b, 0, 4, string("\x07\x01\x02")).i, -1) << "the occurrence reaches past maxBytes";
  EXPECT_EQ(call(kFindString, b, 0, 0, string("\x02\x02")).i, -1);
  EXPECT_EQ(call(kFindString, b, 0, 0, string("")).i, -2);
  EXPECT_EQ(call(kFindString, b, 0, 0, nullptr).i, -2);
  B accents = block({0x41, 0x8E, 0xC3, 0xA9});  // "A", e-acute in Mac Roman, then in UTF-8
  EXPECT_EQ(call(kFindString, accents, 0, 0, string("\xC3\xA9", 0x08000100)).i, 2);
  EXPECT_EQ(call(kFindString, accents, 0, 0, string("\x8E", 0)).i, 1);
}

// A receiver without data or of a negative size is refused, a count of 0
// included; so is either as destBlk or target.
TEST_P(CompareSearch, ReceiverWithoutBytes) {
  B no_data = make(Other::NoData, nullptr);
  B negative = block(kBlock);
  host().overrideReportedSize(negative, -1);
  B target = block({7, 1, 2});
  REALstring text = string("\x07");
  for (B b : {no_data, negative}) {
    SCOPED_TRACE(b == no_data ? "no data" : "negative size");
    EXPECT_FALSE(call(kZero, b, 0, 2).i);
    EXPECT_FALSE(call(kEqual, b, 0, 2, target, 0).i);
    EXPECT_FALSE(call(kEqual, target, 0, 2, b, 0).i);
    EXPECT_EQ(call(kFind, b, 0, 8, 7).i, -1);
    EXPECT_EQ(call(kFindNot, b, 0, 8, 0).i, -1);
    EXPECT_EQ(call(kFindBytes, b, 0, 8, target, 0, 0).i, -2);
    EXPECT_EQ(call(kFindString, b, 0, 8, text).i, -2);
    EXPECT_EQ(call(kFindBytes, target, 0, 0, b, 0, 3).i, -2);
  }
  EXPECT_FALSE(call(kZero, no_data, 0, 0).i);
  EXPECT_FALSE(call(kEqual, no_data, 0, 0, target, 0).i);
}

// Blocks of size 0 are trusted with the caller's range.
TEST_P(CompareSearch, RawAddressBlockTrustsTheRange) {
  uint8_t* raw = host().rawBuffer(32);  // guarded as the host's blocks are
  std::fill(raw, raw + 32, 0);
  raw[29] = 7, raw[30] = 1, raw[31] = 2;
  B over = host().ptrBlock(raw);
  B same = block(Bytes(raw, raw + 32));
  B target = block({7, 1, 2});
  B over_target = host().ptrBlock(raw + 29);

  EXPECT_EQ(call(kFind, over, 0, 32, 7).i, 29);
  EXPECT_EQ(call(kFindNot, over, 10, 22, 0).i, 29);
  EXPECT_TRUE(call(kZero, over, 0, 29).i);
  EXPECT_TRUE(call(kEqual, over, 0, 32, same, 0).i);
  EXPECT_TRUE(call(kEqual, same, 29, 3, over_target, 0).i);
  EXPECT_EQ(call(kFindBytes, over, 0, 32, target, 0, 0).i, 29);
  EXPECT_EQ(call(kFindBytes, over, 0, 31, target, 0, 0).i, -1) << "the occurrence ends past maxBytes";
  EXPECT_EQ(call(kFindBytes, over, 0, 0, target, 0, 0).i, -2) << "no size and no maxBytes";
  EXPECT_EQ(call(kFindBytes, same, 0, 0, over_target, 0, 3).i, 29) << "a target of size 0 trusts targLen";
  EXPECT_EQ(call(kFindBytes, same, 0, 0, over_target, 0, 0).i, -2) << "a target of size 0 has no rest";
  EXPECT_EQ(call(kFindString, over, 20, 12, string("\x01\x02")).i, 30);
}

INSTANTIATE_ON_EVERY_HOST(CompareSearch);
}  // namespace
