// SwapBytesVEK, SwapBytes16VEK and SwapBytes32VEK through the simulated host.
#include <algorithm>
#include <random>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kSwap = "SwapBytesVEK(offset as Integer, numBytes as Integer)";
constexpr const char* kSwap16 = "SwapBytes16VEK(offset as Integer, numBytes as Integer)";
constexpr const char* kSwap32 = "SwapBytes32VEK(offset as Integer, numBytes as Integer)";
using Swap = void(REALmemoryBlock, int32_t, int32_t);
constexpr int32_t kMax = 2147483647;

const Bytes kOneToSix = {1, 2, 3, 4, 5, 6};

// 1, 2, .. n
Bytes counting(size_t n) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  return bytes;
}

// The bytes with every whole `word` of [offset, offset + count) reversed on
// its own; a word of 0 reverses the whole range.
Bytes reversed_words(Bytes bytes, size_t offset, size_t count, size_t word) {
  if (word == 0) word = count;
  for (size_t i = 0; word > 0 && i + word <= count; i += word) {
    std::reverse(bytes.begin() + static_cast<ptrdiff_t>(offset + i),
                 bytes.begin() + static_cast<ptrdiff_t>(offset + i + word));
  }
  return bytes;
}

struct SwapCase {
  const char* name;
  const char* declaration;
  Bytes block;
  int32_t offset, numBytes;
  Bytes expected;
};

const SwapCase kCases[] = {
    {"whole block reversed", kSwap, kOneToSix, 0, 6, {6, 5, 4, 3, 2, 1}},
    {"inner range reversed", kSwap, kOneToSix, 1, 3, {1, 4, 3, 2, 5, 6}},
    {"one byte stays", kSwap, kOneToSix, 0, 1, kOneToSix},
    {"cut back at the end", kSwap, kOneToSix, 2, 100, {1, 2, 6, 5, 4, 3}},
    {"largest count cannot overflow", kSwap, kOneToSix, 2, kMax, {1, 2, 6, 5, 4, 3}},
    {"offset at the size", kSwap, kOneToSix, 6, 1, kOneToSix},
    {"offset past the size", kSwap, kOneToSix, 7, 1, kOneToSix},
    {"negative offset", kSwap, kOneToSix, -1, 3, kOneToSix},
    {"most negative offset", kSwap, kOneToSix, INT32_MIN, kMax, kOneToSix},
    {"zero count", kSwap, kOneToSix, 0, 0, kOneToSix},
    {"negative count", kSwap, kOneToSix, 0, -6, kOneToSix},
    {"16: last odd byte stays", kSwap16, {1, 2, 3, 4, 5}, 0, 5, {2, 1, 4, 3, 5}},
    {"16: words at an odd offset", kSwap16, kOneToSix, 1, 4, {1, 3, 2, 5, 4, 6}},
    {"16: one byte stays", kSwap16, kOneToSix, 0, 1, kOneToSix},
    {"16: cut back at the end", kSwap16, kOneToSix, 1, 100, {1, 3, 2, 5, 4, 6}},
    {"16: offset at the size", kSwap16, kOneToSix, 6, 2, kOneToSix},
    {"16: negative offset", kSwap16, kOneToSix, -2, 4, kOneToSix},
    {"32: trailing bytes stay", kSwap32, kOneToSix, 0, 6, {4, 3, 2, 1, 5, 6}},
    {"32: three bytes stay", kSwap32, kOneToSix, 0, 3, kOneToSix},
    {"32: cut back at the end", kSwap32, kOneToSix, 2, 100, {1, 2, 6, 5, 4, 3}},
    {"32: cut back below a word", kSwap32, kOneToSix, 3, 100, kOneToSix},
    {"32: negative count", kSwap32, kOneToSix, 0, -1, kOneToSix},
    // Two whole 16-byte chunks and four single words; the 32-bit run is one
    // pair of chunks and a single word.
    {"16: 40 bytes word by word", kSwap16, counting(41), 1, 40, reversed_words(counting(41), 1, 40, 2)},
    {"32: 36 bytes word by word", kSwap32, counting(39), 3, 36, reversed_words(counting(39), 3, 36, 4)},
    {"long range reversed", kSwap, counting(200), 5, 190, reversed_words(counting(200), 5, 190, 0)},
};

class SwapBytes : public PluginTest {
 protected:
  Swap* method(const char* declaration) { return plugin().method<Swap>(declaration); }
};

TEST_P(SwapBytes, Cases) {
  for (const SwapCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block);
    method(c.declaration)(block, c.offset, c.numBytes);
    EXPECT_EQ(bytes(block), c.expected);
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_BALANCED(host());
}

// A missing pointer service, a nil block or a null data pointer: no effect
// and no exception. (The service is looked up on first use, so it goes
// missing before any call.)
TEST_P(SwapBytes, NothingToWorkOn) {
  REALmemoryBlock block = this->block(kOneToSix);
  host().setMissing("memoryBlockGetPtr", true);
  method(kSwap)(block, 0, 6);
  host().setMissing("memoryBlockGetPtr", false);
  host().overrideReportedData(block, nullptr);
  for (const char* declaration : {kSwap, kSwap16, kSwap32}) {
    method(declaration)(nullptr, 0, 4);
    method(declaration)(block, 0, 4);
  }
  EXPECT_EQ(bytes(block), kOneToSix);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// A block over a raw address reports size 0: its range is the caller's.
TEST_P(SwapBytes, RawAddressBlockTrustsTheRange) {
  uint8_t* raw = host().rawBuffer(8);
  std::copy(kOneToSix.begin(), kOneToSix.end(), raw);
  raw[6] = 7;
  raw[7] = 8;
  REALmemoryBlock over = host().ptrBlock(raw);
  method(kSwap)(over, 2, 6);
  EXPECT_EQ(Bytes(raw, raw + 8), (Bytes{1, 2, 8, 7, 6, 5, 4, 3}));
  method(kSwap32)(over, 0, 8);
  EXPECT_EQ(Bytes(raw, raw + 8), (Bytes{7, 8, 2, 1, 3, 4, 5, 6}));
  EXPECT_NOTHING_RAISED(host());
}

// Random ranges, inside, across the end and outside: once gives the bytes of
// the range as resolved (cut back at the end, refused when it starts outside),
// twice gives the block back.
TEST_P(SwapBytes, TwiceRestoresTheBlock) {
  std::mt19937 gen(41);
  const std::pair<const char*, size_t> methods[] = {{kSwap, 0}, {kSwap16, 2}, {kSwap32, 4}};
  for (int round = 0; round < 300; ++round) {
    auto size = static_cast<int32_t>(gen() % 80 + 1);
    Bytes original(static_cast<size_t>(size));
    for (uint8_t& b : original) b = static_cast<uint8_t>(gen());
    auto offset = static_cast<int32_t>(gen() % (size + 10)) - 5;
    auto count = static_cast<int32_t>(gen() % (size + 30)) - 5;
    auto [declaration, word] = methods[round % 3];
    SCOPED_TRACE(testing::Message() << declaration << " offset " << offset << ", count " << count << ", size " << size);

    Bytes expected = original;
    if (offset >= 0 && offset < size && count > 0) {
      size_t n = static_cast<size_t>(std::min(count, size - offset));
      expected = reversed_words(original, static_cast<size_t>(offset), n, word);
    }
    REALmemoryBlock block = this->block(original);
    method(declaration)(block, offset, count);
    ASSERT_EQ(bytes(block), expected);
    method(declaration)(block, offset, count);
    ASSERT_EQ(bytes(block), original);
  }
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(SwapBytes);
}  // namespace
