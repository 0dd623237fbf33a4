// MirrorBitsInBytesVEK, MirrorBytesVEK and MirrorBitsVEK through the
// simulated host.
#include <algorithm>
#include <random>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kInBytes = "MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)";
constexpr const char* kBytes = "MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)";
constexpr const char* kBits = "MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)";
using Mirror = void(REALmemoryBlock, int32_t, int32_t);
constexpr int32_t kMax = 2147483647;

Bytes counting(size_t n) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  return bytes;
}

Bytes counting_down(size_t n) {
  Bytes bytes = counting(n);
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

struct MirrorCase {
  const char* name;
  const char* declaration;
  Bytes block;
  int32_t offset, length;
  Bytes expected;
};

const MirrorCase kCases[] = {
    {"bits in bytes", kInBytes, {0x01, 0xF0}, 0, 2, {0x80, 0x0F}},
    {"bits in bytes, zero length", kInBytes, {0x01, 0xF0}, 0, 0, {0x01, 0xF0}},
    {"bits in bytes, cut back", kInBytes, {0x01, 0x03, 0xF0}, 1, 100, {0x01, 0xC0, 0x0F}},
    {"bits in bytes, offset at the size", kInBytes, {0x01, 0x03}, 2, 1, {0x01, 0x03}},
    {"bits in bytes, negative offset", kInBytes, {0x01, 0x03}, -1, 2, {0x01, 0x03}},
    {"bits in bytes, negative length", kInBytes, {0x01, 0x03}, 0, -1, {0x01, 0x03}},
    {"bytes, defaults", kBytes, counting(5), 0, -1, counting_down(5)},
    {"bytes, one word", kBytes, counting(4), 0, 4, counting_down(4)},
    {"bytes, two words", kBytes, counting(8), 0, 8, counting_down(8)},
    {"bytes, three words", kBytes, counting(12), 0, 12, counting_down(12)},
    {"bytes, inner range", kBytes, counting(6), 2, 3, {1, 2, 5, 4, 3, 6}},
    {"bytes, default length from an offset is cut back", kBytes, counting(6), 2, -1, {1, 2, 6, 5, 4, 3}},
    {"bytes, largest length is cut back", kBytes, counting(6), 1, kMax, {1, 6, 5, 4, 3, 2}},
    {"bytes, offset at the size", kBytes, counting(6), 6, -1, counting(6)},
    {"bytes, negative offset", kBytes, counting(6), -2, 4, counting(6)},
    {"bytes, zero length", kBytes, counting(6), 0, 0, counting(6)},
    {"bits, one byte", kBits, {0x01}, 0, 8, {0x80}},
    {"bits, two bytes", kBits, {0x12, 0x34}, 0, 16, {0x2C, 0x48}},
    {"bits, across a byte boundary", kBits, {0x12, 0x34}, 4, 8, {0x1C, 0x44}},
    {"bits, inside one byte", kBits, {0x40}, 1, 6, {0x02}},
    {"bits, a single bit", kBits, {0x40}, 5, 1, {0x40}},
    {"bits, cut back at the end", kBits, {0x12, 0x34}, 12, 100, {0x12, 0x32}},
    {"bits, offset at the end", kBits, {0x12, 0x34}, 16, 2, {0x12, 0x34}},
    {"bits, negative offset", kBits, {0x12, 0x34}, -1, 4, {0x12, 0x34}},
    {"bits, zero length", kBits, {0x12, 0x34}, 0, 0, {0x12, 0x34}},
    {"bits, largest length is cut back", kBits, {0x01, 0x00, 0x00}, 7, kMax, {0x00, 0x00, 0x01}},
    // bits 1 and 10 go to 158 and 149; bits 0 and 159 stay
    {"bits, long odd range", kBits, {0xC0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01}, 1, 158,
     {0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x03}},
};

class Mirroring : public PluginTest {
 protected:
  Mirror* method(const char* declaration) { return plugin().method<Mirror>(declaration); }
};

TEST_P(Mirroring, Cases) {
  for (const MirrorCase& c : kCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock block = this->block(c.block);
    method(c.declaration)(block, c.offset, c.length);
    EXPECT_EQ(bytes(block), c.expected);
    EXPECT_NOTHING_RAISED(host());
  }
  EXPECT_BALANCED(host());
}

TEST_P(Mirroring, MirrorBitsMatchesMirrorBitsInBytes) {
  REALmemoryBlock a = block({0x01});
  REALmemoryBlock b = block({0x01});
  method(kBits)(a, 0, 8);
  method(kInBytes)(b, 0, 1);
  EXPECT_EQ(bytes(a), Bytes{0x80});
  EXPECT_EQ(bytes(b), Bytes{0x80});
}

// A nil block raises whatever the arguments; a null data pointer changes
// nothing and raises nothing.
TEST_P(Mirroring, NilAndNull) {
  for (const char* declaration : {kInBytes, kBytes, kBits}) {
    SCOPED_TRACE(declaration);
    method(declaration)(nullptr, 0, 8);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    method(declaration)(nullptr, -1, 0);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    REALmemoryBlock block = this->block({1, 2, 3, 4});
    host().overrideReportedData(block, nullptr);
    method(declaration)(block, 0, 4);
    EXPECT_NOTHING_RAISED(host());
    EXPECT_EQ(bytes(block), (Bytes{1, 2, 3, 4}));
  }
  EXPECT_BALANCED(host());
}

// A block over a raw address reports size 0: an explicit range is the
// caller's; the default length (the block's size) is then nothing.
TEST_P(Mirroring, RawAddressBlock) {
  uint8_t* raw = host().rawBuffer(4);
  std::copy_n(counting(4).begin(), 4, raw);
  REALmemoryBlock over = host().ptrBlock(raw);
  method(kBytes)(over, 0, -1);
  EXPECT_EQ(Bytes(raw, raw + 4), counting(4));
  method(kBytes)(over, 0, 4);
  EXPECT_EQ(Bytes(raw, raw + 4), counting_down(4));
  method(kBits)(over, 28, 4);
  EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{4, 3, 2, 8}));
  method(kInBytes)(over, 3, 1);
  EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{4, 3, 2, 0x10}));
  EXPECT_NOTHING_RAISED(host());
}

std::vector<bool> bits_of(const Bytes& bytes) {
  std::vector<bool> bits;
  for (uint8_t byte : bytes) {
    for (int k = 7; k >= 0; --k) bits.push_back(((byte >> k) & 1) != 0);
  }
  return bits;
}

Bytes bytes_of(const std::vector<bool>& bits) {
  Bytes bytes(bits.size() / 8);
  for (size_t i = 0; i < bits.size(); ++i) bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] | bits[i] << (7 - i % 8));
  return bytes;
}

// What each method makes of a range, cut back at the end of the block and
// refused when it starts outside, by bit vector and std::reverse.
Bytes modelled(const char* declaration, const Bytes& block, int32_t offset, int32_t length) {
  auto size = static_cast<int32_t>(block.size());
  bool bits = declaration == kBits;
  int64_t units = bits ? int64_t{size} * 8 : size;
  if (declaration == kBytes && length < 0) length = size;
  if (length <= 0 || offset < 0 || offset >= units) return block;
  auto first = static_cast<size_t>(offset);
  auto last = static_cast<size_t>(std::min<int64_t>(units, int64_t{offset} + length));
  if (declaration == kBytes) {
    Bytes out = block;
    std::reverse(out.begin() + static_cast<ptrdiff_t>(first), out.begin() + static_cast<ptrdiff_t>(last));
    return out;
  }
  std::vector<bool> all = bits_of(block);
  if (bits) {
    std::reverse(all.begin() + static_cast<ptrdiff_t>(first), all.begin() + static_cast<ptrdiff_t>(last));
  } else {
    for (size_t i = first; i < last; ++i) std::reverse(all.begin() + static_cast<ptrdiff_t>(8 * i), all.begin() + static_cast<ptrdiff_t>(8 * i + 8));
  }
  return bytes_of(all);
}

TEST_P(Mirroring, TwiceRestoresTheBlock) {
  std::mt19937 gen(43);
  const char* methods[] = {kInBytes, kBytes, kBits};
  for (int round = 0; round < 300; ++round) {
    auto size = static_cast<int32_t>(gen() % 70 + 1);
    Bytes original(static_cast<size_t>(size));
    for (uint8_t& b : original) b = static_cast<uint8_t>(gen());
    const char* declaration = methods[round % 3];
    int32_t units = declaration == kBits ? size * 8 : size;
    auto offset = static_cast<int32_t>(gen() % static_cast<uint32_t>(units + 10)) - 5;
    auto length = static_cast<int32_t>(gen() % static_cast<uint32_t>(units + 30)) - 5;
    SCOPED_TRACE(testing::Message() << declaration << " offset " << offset << ", length " << length << ", size " << size);

    REALmemoryBlock block = this->block(original);
    method(declaration)(block, offset, length);
    ASSERT_EQ(bytes(block), modelled(declaration, original, offset, length));
    method(declaration)(block, offset, length);
    ASSERT_EQ(bytes(block), original);
  }
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(Mirroring);
}  // namespace
