// SwapBytesVEK, SwapBytes16VEK and SwapBytes32VEK through the simulated host.
// Long ranges, every size and alignment, are the kernel tests' part (against
// std::reverse); here the range each method resolves and the reference's
// examples.
#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kSwap = "SwapBytesVEK(offset as Integer, numBytes as Integer)";
constexpr const char* kSwap16 = "SwapBytes16VEK(offset as Integer, numBytes as Integer)";
constexpr const char* kSwap32 = "SwapBytes32VEK(offset as Integer, numBytes as Integer)";
constexpr int32_t kMax = 2147483647;

const Bytes k6 = {1, 2, 3, 4, 5, 6};

struct SwapCase {
  const char* name;
  const char* declaration;
  Bytes block;
  int32_t offset, numBytes;
  Bytes expected;
};

const SwapCase kCases[] = {
    {"whole block reversed", kSwap, k6, 0, 6, {6, 5, 4, 3, 2, 1}},
    {"inner range, middle byte stays", kSwap, k6, 1, 3, {1, 4, 3, 2, 5, 6}},
    {"cut back at the end", kSwap, k6, 2, 100, {1, 2, 6, 5, 4, 3}},
    {"largest count cannot overflow", kSwap, k6, 2, kMax, {1, 2, 6, 5, 4, 3}},
    {"last byte alone", kSwap, k6, 5, 1, k6},
    {"offset at the size", kSwap, k6, 6, 1, k6},
    {"negative offset", kSwap, k6, -1, 3, k6},
    {"most negative offset", kSwap, k6, INT32_MIN, kMax, k6},
    {"zero count", kSwap, k6, 0, 0, k6},
    {"negative count", kSwap, k6, 0, -6, k6},
    {"16: last odd byte stays", kSwap16, {1, 2, 3, 4, 5}, 0, 5, {2, 1, 4, 3, 5}},
    {"16: words at an odd offset, cut back", kSwap16, k6, 1, 100, {1, 3, 2, 5, 4, 6}},
    {"32: trailing bytes stay", kSwap32, k6, 0, 6, {4, 3, 2, 1, 5, 6}},
    {"32: cut back at the end", kSwap32, k6, 2, 100, {1, 2, 6, 5, 4, 3}},
    {"32: cut back below a word", kSwap32, k6, 3, 100, k6},
};

class SwapBytes : public PluginTest {};

// Each case twice: once gives the expected bytes, twice the block back.
TEST_P(SwapBytes, Cases) {
  for (const SwapCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block);
    call(c.declaration, block, c.offset, c.numBytes);
    EXPECT_EQ(bytes(block), c.expected);
    call(c.declaration, block, c.offset, c.numBytes);
    EXPECT_EQ(bytes(block), c.block);
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_BALANCED(host());
}

// A nil block or one without data: no effect and, unlike the mirrors, no
// exception.
TEST_P(SwapBytes, NothingToWorkOn) {
  REALmemoryBlock block = this->block(k6);
  host().overrideReportedData(block, nullptr);
  for (const char* declaration : {kSwap, kSwap16, kSwap32}) {
    call(declaration, nullptr, 0, 4);
    call(declaration, block, 0, 4);
  }
  EXPECT_EQ(bytes(block), k6);
  EXPECT_NOTHING_RAISED(host());
}

// A block over a raw address reports size 0: its range is the caller's.
TEST_P(SwapBytes, RawAddressBlockTrustsTheRange) {
  uint8_t* raw = host().rawBuffer(8);
  for (uint8_t i = 0; i < 8; ++i) raw[i] = static_cast<uint8_t>(i + 1);
  REALmemoryBlock over = host().ptrBlock(raw);
  call(kSwap, over, 2, 6);
  EXPECT_EQ(Bytes(raw, raw + 8), (Bytes{1, 2, 8, 7, 6, 5, 4, 3}));
  call(kSwap32, over, 0, 8);
  EXPECT_EQ(Bytes(raw, raw + 8), (Bytes{7, 8, 2, 1, 3, 4, 5, 6}));
  call(kSwap16, over, 1, 4);
  EXPECT_EQ(Bytes(raw, raw + 8), (Bytes{7, 2, 8, 3, 1, 4, 5, 6}));
  EXPECT_NOTHING_RAISED(host());
}

INSTANTIATE_ON_EVERY_HOST(SwapBytes);
}  // namespace
