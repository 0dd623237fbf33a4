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
  Storage storage = Storage::Block;
};

const Bytes k8 = {1, 2, 3, 4, 5, 6, 7, 8};

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
    // A block over a raw address reports size 0: its range is the caller's.
    {"raw address", kSwap, k8, 2, 6, {1, 2, 8, 7, 6, 5, 4, 3}, Storage::RawAddress},
    {"16: raw address", kSwap16, k8, 1, 6, {1, 3, 2, 5, 4, 7, 6, 8}, Storage::RawAddress},
    {"32: raw address", kSwap32, k8, 0, 8, {4, 3, 2, 1, 8, 7, 6, 5}, Storage::RawAddress},
    {"no data", kSwap, k6, 0, 6, k6, Storage::NoData},
    {"16: no data", kSwap16, k6, 0, 6, k6, Storage::NoData},
    {"32: no data", kSwap32, k6, 0, 6, k6, Storage::NoData},
};

class SwapBytes : public PluginTest {};

// Each case twice: once gives the expected bytes, twice the block back.
TEST_P(SwapBytes, Cases) {
  for (const SwapCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block, c.storage);
    call(c.declaration, block, c.offset, c.numBytes);
    EXPECT_EQ(bytes(block), c.expected);
    call(c.declaration, block, c.offset, c.numBytes);
    EXPECT_EQ(bytes(block), c.block);
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(SwapBytes);
}  // namespace
