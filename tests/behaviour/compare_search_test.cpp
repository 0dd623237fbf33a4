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
// kBlock, 07 01, 07 01 02, 01 02 07 09, or 07 01 02 without data or of a
// negative size.
enum class Other { Self, Nil, Copy, Short, T712, Mixed, NoData, Negative };

class CompareSearch : public PluginTest {
 protected:
  B make(Other o, B self) {
    if (o == Other::Self || o == Other::Nil) return o == Other::Self ? self : nullptr;
    B b = block(o == Other::Copy    ? kBlock
                : o == Other::Short ? Bytes{7, 1}
                : o == Other::Mixed ? Bytes{1, 2, 7, 9}
                                    : Bytes{7, 1, 2});
    if (o == Other::NoData) host().overrideReportedData(b, nullptr);
    if (o == Other::Negative) host().overrideReportedSize(b, -1);
    return b;
  }
  REALstring string(std::string_view bytes, uint32_t encoding = 0x600) { return host().newString(bytes, encoding); }
};

// BytesZeroVEK(srcOfs, numBytes) and the byte searches (srcOfs, numBytes,
// byteValue) over one block.
struct ScanCase {
  const char* name;
  const char* declaration;
  Bytes block;
  int32_t srcOfs, numBytes, value;
  int32_t expected;
};

const ScanCase kScans[] = {
    {"first two are zero", kZero, kBlock, 0, 2, 0, true},
    {"the third is not", kZero, kBlock, 0, 3, 0, false},
    {"negative count: no bytes", kZero, kBlock, 5, -3, 0, true},
    {"the count is tested before the offset", kZero, kBlock, -1, 0, 0, true},
    {"a run past the end is cut back", kZero, {5, 0, 0, 0}, 1, 100, 0, true},
    {"cut back, a non-zero byte inside", kZero, {5, 0, 0, 0}, 0, 100, 0, false},
    {"starts at the end", kZero, {5, 0, 0, 0}, 4, 1, 0, false},
    {"starts before the block", kZero, {5, 0, 0, 0}, -1, 2, 0, false},
    {"first 7", kFind, kBlock, 0, 8, 7, 2},
    {"counted from the start of the block", kFind, kBlock, 3, 5, 7, 5},
    {"only the low byte of the value counts", kFind, kBlock, 0, 8, 263, 2},
    {"not there", kFind, kBlock, 0, 8, 9, -1},
    {"not in the range", kFind, kBlock, 6, 2, 7, -1},
    {"the last byte", kFind, kBlock, 7, 1, 2, 7},
    {"no bytes", kFind, kBlock, 0, 0, 0, -1},
    {"the largest count is cut back", kFind, kBlock, 3, INT_MAX, 7, 5},
    {"starts at the end", kFind, kBlock, 8, 1, 0, -1},
    {"starts before the block", kFind, kBlock, -1, 8, 7, -1},
    {"first non-zero", kFindNot, kBlock, 0, 8, 0, 2},
    {"all zero", kFindNot, kBlock, 0, 2, 0, -1},
    {"first non-7 after a 7", kFindNot, kBlock, 2, 6, 7, 3},
    {"only the low byte of the value counts", kFindNot, kBlock, 0, 8, 256, 2},
    {"non-1 near the end, cut back", kFindNot, kBlock, 6, 100, 1, 7},
};

TEST_P(CompareSearch, Scans) {
  for (const ScanCase& c : kScans) {
    SCOPED_TRACE(std::string(c.declaration) + ": " + c.name);
    B b = block(c.block);
    auto result = c.declaration == kZero ? call(kZero, b, c.srcOfs, c.numBytes)
                                         : call(c.declaration, b, c.srcOfs, c.numBytes, c.value);
    EXPECT_EQ(result.i, c.expected);
    EXPECT_EQ(bytes(b), c.block);
  }
}

// BytesEqualVEK(srcOfs, numBytes, destBlk, destOfs) and FindBytesVEK(srcOfs,
// maxBytes, target, targOfs, targLen) on kBlock.
struct PairCase {
  const char* name;
  const char* declaration;
  int32_t srcOfs, count;
  Other other;
  int32_t otherOfs, targLen;
  int32_t expected;
};

const PairCase kPairs[] = {
    {"1, 2 against 1, 2 of the same block", kEqual, 3, 2, Other::Self, 6, 0, true},
    {"the whole of an equal block", kEqual, 0, 8, Other::Copy, 0, 0, true},
    {"one byte differs", kEqual, 0, 1, Other::Self, 2, 0, false},
    {"no bytes, whatever the offsets", kEqual, 9, 0, Other::Self, -4, 0, true},
    {"the other block is shorter, its bytes fit", kEqual, 2, 2, Other::Short, 0, 0, true},
    {"needs bytes past the end of the other block", kEqual, 2, 3, Other::Short, 0, 0, false},
    {"needs bytes past the end of destBlk, all present ones equal", kEqual, 2, 4, Other::Self, 5, 0, false},
    {"needs bytes past the end of the receiver", kEqual, 5, 4, Other::Copy, 2, 0, false},
    {"negative source offset", kEqual, -1, 2, Other::Self, 0, 0, false},
    {"negative destination offset", kEqual, 0, 2, Other::Self, -1, 0, false},
    {"negative count", kEqual, 0, -1, Other::Self, 0, 0, false},
    {"nil destBlk, no bytes", kEqual, 0, 0, Other::Nil, 0, 0, false},
    {"destBlk without data, no bytes", kEqual, 0, 0, Other::NoData, 0, 0, false},
    {"destBlk of a negative size", kEqual, 2, 2, Other::Negative, 0, 0, false},
    {"whole target, to the end", kFindBytes, 0, 0, Other::T712, 0, 0, 2},
    {"counted from the start of the block", kFindBytes, 3, 0, Other::T712, 0, 0, 5},
    {"the occurrence lies within maxBytes", kFindBytes, 0, 5, Other::T712, 0, 0, 2},
    {"the occurrence reaches past maxBytes", kFindBytes, 0, 4, Other::T712, 0, 0, -1},
    {"the rest of the target from targOfs", kFindBytes, 0, 0, Other::T712, 1, 0, 3},
    {"targOfs at the target's size", kFindBytes, 0, 0, Other::T712, 3, 0, -2},
    {"negative srcOfs", kFindBytes, -1, 0, Other::T712, 0, 0, -2},
    {"srcOfs at the size", kFindBytes, 8, 0, Other::T712, 0, 0, -2},
    {"negative maxBytes", kFindBytes, 0, -1, Other::T712, 0, 0, -2},
    {"the target cannot fit: no position tried", kFindBytes, 6, 0, Other::T712, 0, 0, -1},
    {"a given length", kFindBytes, 0, 0, Other::T712, 0, 2, 2},
    {"a length past the target's end is cut back", kFindBytes, 0, 0, Other::T712, 1, 100, 3},
    {"a negative length: the rest", kFindBytes, 0, 0, Other::T712, 0, -5, 2},
    {"negative targOfs", kFindBytes, 0, 0, Other::T712, -1, 2, -2},
    {"maxBytes past the end is cut back", kFindBytes, 0, 100, Other::T712, 0, 0, 2},
    {"the last byte", kFindBytes, 7, 0, Other::T712, 2, 1, 7},
    {"one byte of another block", kFindBytes, 0, 0, Other::Mixed, 2, 1, 2},
    {"the block in itself", kFindBytes, 0, 0, Other::Self, 0, 0, 0},
    {"the block's own tail", kFindBytes, 0, 0, Other::Self, 5, 0, 2},
    {"nil target with a length", kFindBytes, 0, 0, Other::Nil, 0, 2, -2},
    {"target without data", kFindBytes, 0, 0, Other::NoData, 0, 2, -2},
    {"target of a negative size", kFindBytes, 0, 0, Other::Negative, 0, 2, -2},
};

TEST_P(CompareSearch, AgainstAnotherBlock) {
  B b = block(kBlock);
  for (const PairCase& c : kPairs) {
    SCOPED_TRACE(std::string(c.declaration) + ": " + c.name);
    B other = make(c.other, b);
    auto result = c.declaration == kEqual ? call(kEqual, b, c.srcOfs, c.count, other, c.otherOfs)
                                          : call(kFindBytes, b, c.srcOfs, c.count, other, c.otherOfs, c.targLen);
    EXPECT_EQ(result.i, c.expected);
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

// A receiver without data or of a negative size is refused (without data,
// a count of 0 too).
TEST_P(CompareSearch, ReceiverWithoutBytes) {
  B no_data = make(Other::NoData, nullptr);
  B target = block({7, 1, 2});
  for (B b : {no_data, make(Other::Negative, nullptr)}) {
    SCOPED_TRACE(b == no_data ? "no data" : "negative size");
    EXPECT_FALSE(call(kZero, b, 0, 2).i);
    EXPECT_FALSE(call(kEqual, b, 0, 2, target, 0).i);
    EXPECT_EQ(call(kFind, b, 0, 2, 7).i, -1);
    EXPECT_EQ(call(kFindNot, b, 0, 2, 0).i, -1);
    EXPECT_EQ(call(kFindBytes, b, 0, 3, target, 0, 0).i, -2);
    EXPECT_EQ(call(kFindString, b, 0, 3, string("\x07")).i, -2);
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
  EXPECT_TRUE(call(kZero, over, 0, 29).i);
  EXPECT_TRUE(call(kEqual, same, 29, 3, over_target, 0).i);
  EXPECT_EQ(call(kFindBytes, over, 0, 32, target, 0, 0).i, 29);
  EXPECT_EQ(call(kFindBytes, over, 0, 0, target, 0, 0).i, -2) << "no size and no maxBytes";
  EXPECT_EQ(call(kFindBytes, same, 0, 0, over_target, 0, 3).i, 29) << "a target of size 0 trusts targLen";
  EXPECT_EQ(call(kFindBytes, same, 0, 0, over_target, 0, 0).i, -2) << "a target of size 0 has no rest";
  EXPECT_EQ(call(kFindString, over, 20, 12, string("\x01\x02")).i, 30);
}

INSTANTIATE_ON_EVERY_HOST(CompareSearch);
}  // namespace
