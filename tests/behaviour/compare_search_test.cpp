// BytesEqualVEK, BytesZeroVEK, FindByteVEK, FindNotByteVEK, FindStringVEK and
// FindBytesVEK through the simulated host.
#include <climits>
#include <optional>
#include <string>

#include "tests/support/plugin_test.h"

namespace {
using B = REALmemoryBlock;
using S = REALstring;

constexpr const char* kEqual =
    "BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean";
constexpr const char* kZero = "BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean";
constexpr const char* kFindNot = "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer";
constexpr const char* kFind = "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer";
constexpr const char* kFindString = "FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer";
constexpr const char* kFindBytes =
    "FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as "
    "Integer) as Integer";

using EqualFn = bool(B, int32_t, int32_t, B, int32_t);
using ZeroFn = bool(B, int32_t, int32_t);
using FindFn = int32_t(B, int32_t, int32_t, int32_t);
using FindStringFn = int32_t(B, int32_t, int32_t, S);
using FindBytesFn = int32_t(B, int32_t, int32_t, B, int32_t, int32_t);

const Bytes kBlock = {0, 0, 7, 1, 2, 7, 1, 2};

class CompareSearch : public PluginTest {
 protected:
  bool equal(B block, int32_t srcOfs, int32_t numBytes, B dest, int32_t destOfs) {
    return plugin().method<EqualFn>(kEqual)(block, srcOfs, numBytes, dest, destOfs);
  }
  bool zero(B block, int32_t srcOfs, int32_t numBytes) { return plugin().method<ZeroFn>(kZero)(block, srcOfs, numBytes); }
  int32_t find(const char* declaration, B block, int32_t srcOfs, int32_t numBytes, int32_t value) {
    return plugin().method<FindFn>(declaration)(block, srcOfs, numBytes, value);
  }
  int32_t find_string(B block, int32_t srcOfs, int32_t maxBytes, S target) {
    return plugin().method<FindStringFn>(kFindString)(block, srcOfs, maxBytes, target);
  }
  int32_t find_bytes(B block, int32_t srcOfs, int32_t maxBytes, B target, int32_t targOfs, int32_t targLen) {
    return plugin().method<FindBytesFn>(kFindBytes)(block, srcOfs, maxBytes, target, targOfs, targLen);
  }
  // A block whose host gives no data pointer.
  B without_data(const Bytes& bytes) {
    B b = block(bytes);
    host().overrideReportedData(b, nullptr);
    return b;
  }
};

// -- BytesZeroVEK ------------------------------------------------------------

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
    {"one non-zero byte", kBlock, 2, 1, false},
    {"zero tail", {5, 0, 0, 0}, 1, 3, true},
    {"a run past the end is cut back", {5, 0, 0, 0}, 1, 100, true},
    {"the largest count is cut back", {5, 0, 0, 0}, 1, INT_MAX, true},
    {"cut back, a non-zero byte inside", {5, 0, 0, 0}, 0, 100, false},
    {"starts at the end", {5, 0, 0, 0}, 4, 1, false},
    {"starts past the end", {5, 0, 0, 0}, 40, 1, false},
    {"starts before the block", {5, 0, 0, 0}, -1, 2, false},
};

TEST_P(CompareSearch, BytesZero) {
  for (const ZeroCase& c : kZeroCases) {
    SCOPED_TRACE(c.name);
    B b = block(c.block);
    EXPECT_EQ(zero(b, c.srcOfs, c.numBytes), c.expected);
    EXPECT_EQ(bytes(b), c.block);
  }
}

// -- FindByteVEK, FindNotByteVEK -----------------------------------------------

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
    {"a negative value's low byte", kFind, 0, 8, -249, 2},
    {"zero at the start", kFind, 0, 8, 0, 0},
    {"not there", kFind, 0, 8, 9, -1},
    {"not in the range", kFind, 6, 2, 7, -1},
    {"the last byte", kFind, 7, 1, 2, 7},
    {"no bytes", kFind, 0, 0, 0, -1},
    {"negative count", kFind, 0, -1, 0, -1},
    {"a run past the end is cut back", kFind, 4, 100, 7, 5},
    {"the largest count is cut back", kFind, 3, INT_MAX, 7, 5},
    {"cut back, not there", kFind, 6, INT_MAX, 7, -1},
    {"starts at the end", kFind, 8, 1, 0, -1},
    {"starts before the block", kFind, -1, 8, 7, -1},
    {"most negative offset", kFind, INT_MIN, 8, 7, -1},
    {"first non-zero", kFindNot, 0, 8, 0, 2},
    {"all zero", kFindNot, 0, 2, 0, -1},
    {"all 7", kFindNot, 2, 1, 7, -1},
    {"first non-7 after a 7", kFindNot, 2, 6, 7, 3},
    {"only the low byte of the value counts", kFindNot, 0, 8, 256, 2},
    {"non-1 near the end, cut back", kFindNot, 6, 100, 1, 7},
    {"no bytes", kFindNot, 0, 0, 5, -1},
    {"starts at the end", kFindNot, 8, 1, 0, -1},
    {"starts before the block", kFindNot, -1, 3, 0, -1},
};

TEST_P(CompareSearch, FindByteAndNotByte) {
  B b = block(kBlock);
  for (const FindCase& c : kFindCases) {
    SCOPED_TRACE(std::string(c.declaration) + ": " + c.name);
    EXPECT_EQ(find(c.declaration, b, c.srcOfs, c.numBytes, c.value), c.expected);
  }
  EXPECT_EQ(bytes(b), kBlock);
}

// -- BytesEqualVEK ---------------------------------------------------------------

enum class Dest { Self, Copy, Short, Nil, NoData };

struct EqualCase {
  const char* name;
  int32_t srcOfs, numBytes;
  Dest dest;
  int32_t destOfs;
  bool expected;
};

const EqualCase kEqualCases[] = {
    {"1, 2 against 1, 2 of the same block", 3, 2, Dest::Self, 6, true},
    {"no bytes", 0, 0, Dest::Self, 0, true},
    {"7, 1, 2 against 7, 1, 2", 2, 3, Dest::Self, 5, true},
    {"the whole of an equal block", 0, 8, Dest::Copy, 0, true},
    {"one byte differs", 0, 1, Dest::Self, 2, false},
    {"0 against 0", 1, 1, Dest::Self, 0, true},
    {"the other block is shorter, its bytes fit", 2, 2, Dest::Short, 0, true},
    {"needs bytes past the end of the other block", 2, 3, Dest::Short, 0, false},
    {"needs bytes past the end of destBlk, all present ones equal", 2, 4, Dest::Self, 5, false},
    {"needs bytes past the end of the receiver", 5, 4, Dest::Copy, 2, false},
    {"needs bytes past both ends", 0, 9, Dest::Copy, 0, false},
    {"starts at the end", 8, 1, Dest::Self, 0, false},
    {"no bytes at the end", 8, 0, Dest::Self, 8, true},
    {"no bytes, whatever the offsets", 9, 0, Dest::Self, -4, true},
    {"largest offset", INT_MAX, 1, Dest::Self, 0, false},
    {"largest count", 1, INT_MAX, Dest::Self, 1, false},
    {"negative source offset", -1, 2, Dest::Self, 0, false},
    {"negative destination offset", 0, 2, Dest::Self, -1, false},
    {"negative count", 0, -1, Dest::Self, 0, false},
    {"nil destBlk", 0, 2, Dest::Nil, 0, false},
    {"nil destBlk, no bytes", 0, 0, Dest::Nil, 0, false},
    {"destBlk without data", 0, 1, Dest::NoData, 0, false},
};

TEST_P(CompareSearch, BytesEqual) {
  B b = block(kBlock);
  for (const EqualCase& c : kEqualCases) {
    SCOPED_TRACE(c.name);
    B dest = nullptr;
    switch (c.dest) {
      case Dest::Self: dest = b; break;
      case Dest::Copy: dest = block(kBlock); break;
      case Dest::Short: dest = block({7, 1}); break;
      case Dest::Nil: break;
      case Dest::NoData: dest = without_data(kBlock); break;
    }
    EXPECT_EQ(equal(b, c.srcOfs, c.numBytes, dest, c.destOfs), c.expected);
  }
  EXPECT_EQ(bytes(b), kBlock);
}

// -- FindBytesVEK ------------------------------------------------------------------

enum class Target { T712, Other, Self, Nil, NoData };

struct FindBytesCase {
  const char* name;
  int32_t srcOfs, maxBytes;
  Target target;
  int32_t targOfs, targLen;
  int32_t expected;
};

const FindBytesCase kFindBytesCases[] = {
    {"whole target, to the end", 0, 0, Target::T712, 0, 0, 2},
    {"counted from the start of the block", 3, 0, Target::T712, 0, 0, 5},
    {"the occurrence lies within maxBytes", 0, 5, Target::T712, 0, 0, 2},
    {"the occurrence reaches past maxBytes", 0, 4, Target::T712, 0, 0, -1},
    {"the rest of the target from targOfs", 0, 0, Target::T712, 1, 0, 3},
    {"targOfs at the target's size", 0, 0, Target::T712, 3, 0, -2},
    {"negative srcOfs", -1, 0, Target::T712, 0, 0, -2},
    {"srcOfs at the size", 8, 0, Target::T712, 0, 0, -2},
    {"negative maxBytes", 0, -1, Target::T712, 0, 0, -2},
    {"the target cannot fit: no position tried", 6, 0, Target::T712, 0, 0, -1},
    {"a given length", 0, 0, Target::T712, 0, 2, 2},
    {"a length past the target's end is cut back", 0, 0, Target::T712, 1, 100, 3},
    {"a negative length: the rest", 0, 0, Target::T712, 0, -5, 2},
    {"negative targOfs", 0, 0, Target::T712, -1, 2, -2},
    {"maxBytes past the end is cut back", 0, 100, Target::T712, 0, 0, 2},
    {"the largest maxBytes", 3, INT_MAX, Target::T712, 0, 0, 5},
    {"the largest srcOfs", INT_MAX, 1, Target::T712, 0, 0, -2},
    {"the last byte", 7, 0, Target::T712, 2, 1, 7},
    {"one byte of another block", 0, 0, Target::Other, 2, 1, 2},
    {"a byte that is not there", 0, 0, Target::Other, 3, 1, -1},
    {"the block in itself", 0, 0, Target::Self, 0, 0, 0},
    {"the block in itself, one byte on", 1, 0, Target::Self, 0, 0, -1},
    {"the block's own tail", 0, 0, Target::Self, 5, 0, 2},
    {"nil target with a length", 0, 0, Target::Nil, 0, 2, -2},
    {"nil target", 0, 0, Target::Nil, 0, 0, -2},
    {"target without data", 0, 0, Target::NoData, 0, 2, -2},
};

TEST_P(CompareSearch, FindBytes) {
  B b = block(kBlock);
  for (const FindBytesCase& c : kFindBytesCases) {
    SCOPED_TRACE(c.name);
    B target = nullptr;
    switch (c.target) {
      case Target::T712: target = block({7, 1, 2}); break;
      case Target::Other: target = block({1, 2, 7, 9}); break;
      case Target::Self: target = b; break;
      case Target::Nil: break;
      case Target::NoData: target = without_data({7, 1, 2}); break;
    }
    EXPECT_EQ(find_bytes(b, c.srcOfs, c.maxBytes, target, c.targOfs, c.targLen), c.expected);
  }
  EXPECT_EQ(bytes(b), kBlock);
}

// -- FindStringVEK -------------------------------------------------------------------

struct FindStringCase {
  const char* name;
  int32_t srcOfs, maxBytes;
  std::optional<std::string> text;  // nullopt: a nil string
  int32_t expected;
};

const FindStringCase kFindStringCases[] = {
    {"one byte, as FindByteVEK", 0, 0, std::string("\x07"), 2},
    {"one byte from an offset", 3, 0, std::string("\x07"), 5},
    {"three bytes within maxBytes", 0, 5, std::string("\x07\x01\x02"), 2},
    {"three bytes reaching past maxBytes", 0, 4, std::string("\x07\x01\x02"), -1},
    {"later occurrence", 0, 0, std::string("\x01\x02\x07"), 3},
    {"not there", 0, 0, std::string("\x02\x02"), -1},
    {"longer than the block", 0, 0, std::string(9, '\0'), -1},
    {"empty string", 0, 0, std::string(), -2},
    {"nil string", 0, 0, std::nullopt, -2},
    {"negative srcOfs", -1, 0, std::string("\x07"), -2},
    {"srcOfs at the size", 8, 0, std::string("\x07"), -2},
    {"negative maxBytes", 0, -1, std::string("\x07"), -2},
};

TEST_P(CompareSearch, FindString) {
  B b = block(kBlock);
  for (const FindStringCase& c : kFindStringCases) {
    SCOPED_TRACE(c.name);
    S text = c.text ? host().newString(*c.text, 0x600) : nullptr;
    EXPECT_EQ(find_string(b, c.srcOfs, c.maxBytes, text), c.expected);
    EXPECT_BALANCED(host());  // the string is given back, also when refused
    host().release(text);
  }
}

// The string's own bytes are searched, in its own encoding: no conversion.
TEST_P(CompareSearch, FindStringSearchesTheStringsOwnBytes) {
  B b = block({0x41, 0x8E, 0xC3, 0xA9});  // "A", e-acute in Mac Roman, then in UTF-8
  S utf8 = host().newString("\xC3\xA9", 0x08000100);
  S mac_roman = host().newString("\x8E", 0);
  EXPECT_EQ(find_string(b, 0, 0, utf8), 2);
  EXPECT_EQ(find_string(b, 0, 0, mac_roman), 1);
  host().release(utf8);
  host().release(mac_roman);
}

// -- refused receivers -----------------------------------------------------------------

TEST_P(CompareSearch, ReceiverWithoutBytes) {
  B nil = nullptr;
  B no_data = without_data(kBlock);
  B negative = block(kBlock);
  host().overrideReportedSize(negative, -1);
  B target = block({7, 1, 2});
  S text = host().newString("\x07", 0x600);
  for (B b : {nil, no_data, negative}) {
    SCOPED_TRACE(b == nil ? "nil" : b == no_data ? "no data" : "negative size");
    EXPECT_FALSE(zero(b, 0, 2));
    EXPECT_FALSE(equal(b, 0, 2, target, 0));
    EXPECT_FALSE(equal(target, 0, 2, b, 0));
    EXPECT_EQ(find(kFind, b, 0, 8, 7), -1);
    EXPECT_EQ(find(kFindNot, b, 0, 8, 0), -1);
    EXPECT_EQ(find_bytes(b, 0, 8, target, 0, 0), -2);
    EXPECT_EQ(find_bytes(b, 0, 0, target, 0, 0), -2);
    EXPECT_EQ(find_string(b, 0, 8, text), -2);
    EXPECT_EQ(find_bytes(target, 0, 0, b, 0, 3), -2);
  }
  // No bytes is true only for a block that has bytes.
  EXPECT_FALSE(zero(nil, 0, 0));
  EXPECT_FALSE(zero(no_data, 0, 0));
  EXPECT_FALSE(equal(nil, 0, 0, target, 0));
  EXPECT_FALSE(equal(no_data, 0, 0, target, 0));
  host().release(text);
}

// -- blocks of size 0: the caller's range is trusted -----------------------------------

TEST_P(CompareSearch, RawAddressBlockTrustsTheRange) {
  uint8_t* raw = host().rawBuffer(32);  // guarded as the host's blocks are
  for (int i = 0; i < 32; ++i) raw[i] = 0;
  raw[29] = 7, raw[30] = 1, raw[31] = 2;
  B over = host().ptrBlock(raw);
  B same = block(Bytes(raw, raw + 32));
  B target = block({7, 1, 2});
  B over_target = host().ptrBlock(raw + 29);
  S text = host().newString("\x01\x02", 0x600);

  EXPECT_EQ(find(kFind, over, 0, 32, 7), 29);
  EXPECT_EQ(find(kFindNot, over, 10, 22, 0), 29);
  EXPECT_TRUE(zero(over, 0, 29));
  EXPECT_FALSE(zero(over, 0, 30));
  EXPECT_TRUE(equal(over, 0, 32, same, 0));
  EXPECT_TRUE(equal(same, 29, 3, over_target, 0));
  EXPECT_EQ(find_bytes(over, 0, 32, target, 0, 0), 29);
  EXPECT_EQ(find_bytes(over, 0, 31, target, 0, 0), -1) << "the occurrence ends past maxBytes";
  EXPECT_EQ(find_bytes(over, 0, 0, target, 0, 0), -2) << "no size and no maxBytes";
  EXPECT_EQ(find_bytes(same, 0, 0, over_target, 0, 3), 29) << "a target of size 0 trusts targLen";
  EXPECT_EQ(find_bytes(same, 0, 0, over_target, 0, 0), -2) << "a target of size 0 has no rest";
  EXPECT_EQ(find_string(over, 20, 12, text), 30);
  host().release(text);
}

// Blocks long enough for the vector loops, through the host.
TEST_P(CompareSearch, LongBlocks) {
  constexpr int32_t kSize = 100003;
  Bytes data(kSize, 0x11);
  data[kSize - 5] = 0x22;
  data[70001] = 0x33;
  Bytes target(64, 0x44);
  Bytes near_miss = target;
  near_miss[40] = 0x45;
  std::copy(near_miss.begin(), near_miss.end(), data.begin() + 1000);
  std::copy(target.begin(), target.end(), data.begin() + 90000);
  B b = block(data);
  B t = block(target);
  EXPECT_EQ(find(kFind, b, 0, kSize, 0x22), kSize - 5);
  EXPECT_EQ(find(kFind, b, 0, kSize - 5, 0x22), -1);
  EXPECT_EQ(find(kFindNot, b, 2000, kSize, 0x11), 70001);
  EXPECT_EQ(find_bytes(b, 0, 0, t, 0, 0), 90000);
  EXPECT_EQ(find_bytes(b, 0, 90063, t, 0, 0), -1);
  B zeros = block(Bytes(kSize, 0));
  EXPECT_TRUE(zero(zeros, 0, kSize));
  host().bytes(zeros)[kSize - 1] = 1;
  EXPECT_FALSE(zero(zeros, 0, kSize));
  EXPECT_TRUE(zero(zeros, 0, kSize - 1));
  B copy = block(data);
  EXPECT_TRUE(equal(b, 0, kSize, copy, 0));
  host().bytes(copy)[kSize - 2] ^= 0x80;
  EXPECT_FALSE(equal(b, 0, kSize, copy, 0));
  EXPECT_TRUE(equal(b, 0, kSize - 2, copy, 0));
}

INSTANTIATE_ON_EVERY_HOST(CompareSearch);
}  // namespace
