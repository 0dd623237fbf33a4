// CopyNthBytesVEK, CopyNthBitsVEK and ExpandBitsVEK through the simulated
// host.
#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kNthBytes =
    "CopyNthBytesVEK(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, "
    "ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean";
constexpr const char* kNthBits =
    "CopyNthBitsVEK(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, "
    "BitCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean";
constexpr const char* kExpand =
    "ExpandBitsVEK(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = "
    "255) as boolean";
constexpr int32_t kMax = 2147483647;

Bytes counting(size_t n) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  return bytes;
}

// `head`, then `fill` up to `total` bytes
Bytes repeated(std::initializer_list<uint8_t> head, size_t total = 8, uint8_t fill = 0xEE) {
  Bytes bytes(head);
  bytes.resize(total, fill);
  return bytes;
}

struct GatherCase {
  const char* name;
  const char* declaration;
  Bytes source;
  Bytes dest;
  int32_t sourceOffset, destOffset, count, step, steps;
  bool result;
  Bytes expected;  // the destination afterwards
  Storage destStorage = Storage::Block, sourceStorage = Storage::Block;
};

const Bytes kEE = Bytes(8, 0xEE);
const Bytes k12 = counting(12);

const GatherCase kGathers[] = {
    // -- bytes ------------------------------------------------------------------
    {"every fourth pair", kNthBytes, k12, kEE, 0, 0, 2, 4, 3, true, repeated({1, 2, 5, 6, 9, 10})},
    {"step 0 repeats a run", kNthBytes, k12, kEE, 0, 0, 2, 0, 3, true, repeated({1, 2, 1, 2, 1, 2})},
    {"negative step walks back", kNthBytes, k12, kEE, 8, 0, 2, -4, 3, true, repeated({9, 10, 5, 6, 1, 2})},
    {"to a destination offset", kNthBytes, k12, kEE, 1, 5, 1, 3, 3, true, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 2, 5, 8}},
    {"no steps", kNthBytes, k12, kEE, 0, 0, 2, 4, 0, true, kEE},
    {"negative steps", kNthBytes, k12, kEE, 0, 0, 2, 4, -3, true, kEE},
    {"no steps from a negative offset", kNthBytes, k12, kEE, -1, -1, 2, 4, 0, true, kEE},
    {"empty runs from a negative offset", kNthBytes, k12, kEE, -1, 0, 0, 4, 3, true, kEE},
    {"negative byte count", kNthBytes, k12, kEE, 0, 0, -2, 4, 3, false, kEE},
    {"negative source offset", kNthBytes, k12, kEE, -1, 0, 2, 4, 3, false, kEE},
    {"negative destination offset", kNthBytes, k12, kEE, 0, -1, 2, 4, 3, false, kEE},
    {"source offset at its end", kNthBytes, k12, kEE, 12, 0, 2, 4, 3, false, kEE},
    {"destination offset at its end", kNthBytes, k12, kEE, 0, 8, 2, 4, 3, false, kEE},
    {"backward walk below the source", kNthBytes, k12, kEE, 4, 0, 2, -4, 3, false, kEE},
    {"output cut at the destination's end", kNthBytes, k12, Bytes(5, 0xEE), 0, 0, 2, 4, 3, true, {1, 2, 5, 6, 9}},
    {"huge run count cut at the destination's end", kNthBytes, k12, kEE, 0, 0, 1, 1, kMax, true, counting(8)},
    {"runs past the source's end are not copied", kNthBytes, k12, kEE, 0, 0, 2, 5, 4, true,
     repeated({1, 2, 6, 7, 11, 12})},
    {"a run across the source's end is cut", kNthBytes, k12, Bytes(9, 0xEE), 0, 0, 3, 5, 3, true,
     {1, 2, 3, 6, 7, 8, 11, 12, 0xEE}},
    {"first runs of a backward walk cut at the end", kNthBytes, k12, kEE, 10, 0, 4, -5, 2, true,
     {11, 12, 0xEE, 0xEE, 6, 7, 8, 9}},

    // -- bits -------------------------------------------------------------------
    {"bits 3..6, 9..12, 15..18", kNthBits, {0x12, 0x34, 0xAB, 0xCD}, {0xFF, 0xFF, 0xFF}, 3, 0, 4, 2, 3, true,
     {0x96, 0x50, 0xFF}},
    {"every other byte", kNthBits, {0xA5, 0xC3, 0xF0, 0x0F, 0x12}, {0, 0, 0, 0xEE}, 0, 0, 8, 8, 3, true,
     {0xA5, 0xF0, 0x12, 0xEE}},
    {"sixteen bits from bit 1", kNthBits, {0xA5, 0xC3, 0xF0}, {0, 0, 0xEE}, 1, 0, 1, 0, 16, true, {0x4B, 0x87, 0xEE}},
    {"bits around the run become 0", kNthBits, {0xFF, 0xFF}, {0xFF, 0xFF}, 0, 3, 7, 0, 1, true, {0x1F, 0xC0}},
    {"nothing copied clears the offset's byte", kNthBits, {0xFF, 0xFF}, {0xFF, 0xFF}, 0, 3, 4, 1, 0, true,
     {0x00, 0xFF}},
    {"nothing copied on a byte boundary", kNthBits, {0xFF, 0xFF}, {0xFF, 0xFF}, 0, 8, 4, 1, 0, true, {0xFF, 0xFF}},
    {"negative bit count copies nothing", kNthBits, {0xFF, 0xFF}, {0xFF, 0xFF}, 0, 11, -4, 1, 3, true, {0xFF, 0x00}},
    {"negative step counts as 0", kNthBits, {0xA5, 0xC3}, {0, 0}, 0, 0, 4, -4, 4, true, {0xA5, 0xC3}},
    {"bits: negative source offset", kNthBits, {0xFF}, {0xEE}, -1, 0, 4, 0, 1, false, {0xEE}},
    {"bits: negative destination offset", kNthBits, {0xFF}, {0xEE}, 0, -8, 4, 0, 1, false, {0xEE}},
    {"bits: source offset at its end", kNthBits, {0xFF}, {0xEE}, 8, 0, 4, 0, 1, false, {0xEE}},
    {"bits: destination offset at its end", kNthBits, {0xFF}, {0xEE}, 0, 9, 4, 0, 1, false, {0xEE}},
    {"bits: cut at the destination's end", kNthBits, {0xFF, 0xFF, 0xFF}, {0x00, 0x00}, 0, 4, 16, 0, 1, true,
     {0x0F, 0xFF}},
    {"bits: stop at the source's end", kNthBits, {0xA5}, {0xFF, 0xFF}, 0, 0, 4, 4, 3, true, {0xA0, 0xFF}},
    {"bits: a run cut at the source's end", kNthBits, {0xA5}, {0xFF, 0xFF}, 4, 0, 8, 0, 1, true, {0x50, 0xFF}},
    {"bits: huge counts cut at both ends", kNthBits, {0xA5, 0x5A}, {0xEE, 0xEE, 0xEE}, 4, 0, kMax, kMax, kMax, true,
     {0x55, 0xA0, 0xEE}},

    // -- a destination over a raw address reports size 0: its range is the caller's
    {"raw destination", kNthBytes, k12, Bytes(6, 0xEE), 0, 0, 2, 4, 3, true, {1, 2, 5, 6, 9, 10}, Storage::RawAddress},
    {"raw destination: two runs from the source's end, not 2147483647", kNthBytes, k12, Bytes(6, 0xEE), 10, 0, 1, 1,
     kMax, true, {11, 12, 0xEE, 0xEE, 0xEE, 0xEE}, Storage::RawAddress},
    {"bits: raw destination", kNthBits, k12, Bytes(6, 0xEE), 4, 4, 4, 4, 8, true, {0x01, 0x23, 0x45, 0x67, 0x80, 0xEE},
     Storage::RawAddress},

    // -- no data: refused, unless there is no run to copy and no byte to clear
    {"source without data", kNthBytes, k12, kEE, 0, 0, 1, 1, 1, false, kEE, Storage::Block, Storage::NoData},
    {"bits: source without data", kNthBits, k12, kEE, 0, 0, 1, 1, 1, false, kEE, Storage::Block, Storage::NoData},
    {"no steps into no data", kNthBytes, k12, kEE, 0, 3, 1, 1, 0, true, kEE, Storage::NoData},
    {"bits: no steps into no data", kNthBits, k12, kEE, 0, 3, 1, 1, 0, true, kEE, Storage::NoData},
    {"no bytes into no data", kNthBytes, k12, kEE, 0, 3, 0, 1, 1, true, kEE, Storage::NoData},
    {"bits: no bits into no data", kNthBits, k12, kEE, 0, 3, 0, 1, 1, true, kEE, Storage::NoData},
};

class Strided : public PluginTest {};

TEST_P(Strided, Gathers) {
  for (const GatherCase& c : kGathers) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock source = block(c.source, c.sourceStorage);
    REALmemoryBlock dest = block(c.dest, c.destStorage);
    bool result = call(c.declaration, dest, source, c.sourceOffset, c.destOffset, c.count, c.step, c.steps).i != 0;
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(bytes(dest), c.expected);
    EXPECT_EQ(bytes(source), c.source);
    EXPECT_NOTHING_RAISED(host());
  }
}

// The source may be the destination block itself, where the runs do not
// overlap the bytes they are written to.
TEST_P(Strided, GatherWithinOneBlock) {
  REALmemoryBlock one = block(counting(12));
  EXPECT_TRUE(call(kNthBytes, one, one, 0, 8, 1, 2, 4).i);
  EXPECT_EQ(bytes(one), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 1, 3, 5, 7}));
  EXPECT_TRUE(call(kNthBits, one, one, 4, 64, 4, 4, 4).i);  // the low halves of bytes 0..3
  EXPECT_EQ(bytes(one), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0x12, 0x34, 5, 7}));
}

struct ExpandCase {
  const char* name;
  Bytes source;
  size_t destSize;
  int32_t count, low, high;
  bool result;
  Bytes expected;  // the destination afterwards; bytes past it stay 0xEE
  Storage sourceStorage = Storage::Block;
};

const ExpandCase kExpansions[] = {
    {"four bytes", {0xA5, 0x01, 0x00, 0x80}, 32, 4, 0, 255, true,
     {0xFF, 0, 0xFF, 0, 0, 0xFF, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0}},
    {"chosen values", {0xA5}, 8, 1, 16, 32, true, {0x20, 0x10, 0x20, 0x10, 0x10, 0x20, 0x10, 0x20}},
    {"values past a byte spill into the word", {0xFF}, 8, 1, 0, 256, true, {0, 1, 1, 1, 0, 1, 1, 1}},
    {"the whole last group is expanded", {0x80, 0x01, 0x00, 0x00}, 32, 1, 0, 255, true,
     repeated({0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF}, 32, 0)},
    {"a group cut at the source's end", {0x80, 0x01}, 32, 3, 0, 255, true,
     repeated({0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF}, 32, 0xEE)},
    {"cut to the bytes the destination holds", {0x80, 0x01, 0x00, 0x00}, 12, 4, 0, 255, true,
     {0xFF, 0, 0, 0, 0, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE}},
    {"destination too short for one byte", {0x80}, 7, 1, 0, 255, false, Bytes(7, 0xEE)},
    {"zero count", {0x80}, 8, 0, 0, 255, false, Bytes(8, 0xEE)},
    {"huge count cut back", {0x80, 0x01}, 16, kMax, 7, 9, true, {9, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 9}},
    {"a source over a raw address is trusted", {1, 2, 3, 4}, 16, 2, 0, 1, true,
     {0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1, 0}, Storage::RawAddress},
};

TEST_P(Strided, Expansions) {
  auto expand = [&](auto... args) { return call(kExpand, args...).i != 0; };
  for (const ExpandCase& c : kExpansions) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock source = block(c.source, c.sourceStorage);
    REALmemoryBlock dest = block(Bytes(c.destSize, 0xEE));
    EXPECT_EQ(expand(source, dest, c.count, c.low, c.high), c.result);
    EXPECT_EQ(bytes(dest), c.expected);
    EXPECT_NOTHING_RAISED(host());
  }
}

INSTANTIATE_ON_EVERY_HOST(Strided);
}  // namespace
