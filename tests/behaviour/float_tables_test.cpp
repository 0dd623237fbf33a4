// _CalcLogSweepTableVEK, _ConvertPolarToCartesian and _ConvertCartesianToPolar
// through the simulated host.
#include <cstring>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kSweep =
    "_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)";
constexpr const char* kToCartesian =
    "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)";
constexpr const char* kToPolar =
    "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)";

constexpr float kPi = 3.14159265358979323846f;
constexpr float kHalfPi = 1.57079632679489661923f;

Bytes records(const std::vector<float>& values) {
  Bytes bytes(values.size() * 4);
  std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

float float_at(const Bytes& bytes, size_t index) {
  float value;
  std::memcpy(&value, bytes.data() + 4 * index, 4);
  return value;
}

class FloatTables : public PluginTest {
 protected:
  // Any of the three on `to`; the sweep of 1 to 2 cycles over 4 records.
  void run(const char* declaration, REALmemoryBlock to, int32_t offset, int32_t z, REALmemoryBlock from) {
    if (declaration == kSweep) call(kSweep, to, offset, z, 1, 2, 4.0);
    else call(declaration, to, offset, z, from);
  }
};

// lw1 1, lw2 2, T 4, Z 5: each float within half a unit of the last digit
// given for it.
TEST_P(FloatTables, SweepWorkedExample) {
  const double expected[10] = {0.0,       0.0,      0.93419, 25.13274, -0.54321, 50.26548,
                               -0.096989, 75.39822, 0.33260, 100.53097};
  REALmemoryBlock block = host().newBlock(40, 0xEE);
  call(kSweep, block, 0, 5, 1, 2, 4.0);
  Bytes table = bytes(block);
  for (size_t i = 0; i < 10; ++i) EXPECT_NEAR(float_at(table, i), expected[i], i == 6 ? 5e-7 : 5e-6) << i;
  EXPECT_EQ(Bytes(table.begin(), table.begin() + 8), Bytes(8, 0)) << "record 0 is (+0, +0)";
  EXPECT_EQ(float_at(table, 9), 100.53096771240234f);  // sixteen turns of the literal, rounded once to a float
}

struct ConversionCase {
  const char* name;
  const char* declaration;
  std::vector<float> source, expected;
  double within = 0;  // 0: bit for bit, signs of zero included
};

const ConversionCase kConversionCases[] = {
    {"polar (2, π/2): the cosine of the float nearest π/2 is not 0", kToCartesian, {2.0f, kHalfPi},
     {-8.7423e-8f, 2.0f}, 0.00005e-8},
    {"polar (1, 0)", kToCartesian, {1.0f, 0.0f}, {1.0f, 0.0f}},
    {"polar (0, π): both zeros negative", kToCartesian, {0.0f, kPi}, {-0.0f, -0.0f}},
    {"cartesian (3, 4)", kToPolar, {3.0f, 4.0f}, {5.0f, 0.9272952f}, 0.00000005},
    {"cartesian (-1, 0)", kToPolar, {-1.0f, 0.0f}, {1.0f, kPi}},
    {"cartesian (-1, -0)", kToPolar, {-1.0f, -0.0f}, {1.0f, -kPi}},
    {"cartesian (0, 0)", kToPolar, {0.0f, 0.0f}, {0.0f, 0.0f}},
};

TEST_P(FloatTables, ConversionWorkedExamples) {
  for (const ConversionCase& c : kConversionCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock source = block(records(c.source));
    REALmemoryBlock dest = host().newBlock(8, 0xEE);
    call(c.declaration, dest, 0, 1, source);
    if (c.within == 0) {
      EXPECT_EQ(bytes(dest), records(c.expected));
    } else {
      EXPECT_NEAR(float_at(bytes(dest), 0), c.expected[0], c.within);
      EXPECT_NEAR(float_at(bytes(dest), 1), c.expected[1], c.within);
    }
    EXPECT_EQ(bytes(source), records(c.source));
    EXPECT_NOTHING_RAISED(host());
  }
}

// Records are converted in ascending order, each read before it is written:
// a source that overlaps the destination one record further on is read as
// the records before left it.
TEST_P(FloatTables, ConversionOverlapping) {
  for (const char* declaration : {kToPolar, kToCartesian}) {
    REALmemoryBlock turns = block(records({1.0f, 0.0f, 0, 0, 0, 0, 0, 0}));
    call(declaration, turns, 8, 3, turns);  // (1, 0) is (1, 0) either way; (0, 0) would show a later record first
    EXPECT_EQ(bytes(turns), records({1.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f})) << declaration;
  }
}

// Which records a call writes in a destination of `size` bytes from a
// source of `source_size` bytes: only whole records inside both (the sweep
// has no source).
struct RangeCase {
  const char* name;
  size_t size, source_size;
  int32_t offset, z;
  size_t first;                          // the first byte written
  size_t conversion_count, sweep_count;  // records written
  Storage storage = Storage::Block, source_storage = Storage::Block;
};

const RangeCase kRangeCases[] = {
    {"offset 8, Z 1 writes bytes 8-15 from source bytes 0-7", 24, 24, 8, 1, 8, 1, 1},
    {"whole block", 24, 24, 0, 3, 0, 3, 3},
    {"Z past the end of the destination", 20, 40, 0, 5, 0, 2, 2},
    {"Z past the end of the source", 40, 16, 0, 5, 0, 2, 5},
    {"largest Z", 24, 24, 8, INT32_MAX, 8, 2, 2},
    {"offset leaves no whole record", 20, 24, 13, 1, 0, 0, 0},
    {"offset at the size", 24, 24, 24, 1, 0, 0, 0},
    {"most positive offset", 24, 24, INT32_MAX, 1, 0, 0, 0},
    {"Z 0", 24, 24, 0, 0, 0, 0, 0},
    {"negative Z", 24, 24, 0, -1, 0, 0, 0},
    {"over a raw address, size 0 trusts Z", 24, 40, 8, 2, 8, 2, 2, Storage::RawAddress},
    {"a source without data is passed over", 24, 24, 0, 3, 0, 0, 3, Storage::Block, Storage::NoData},
};

// A (1, 0) record stays (1, 0) in either conversion; the sweep writes the
// first records of its table, wherever it starts.
TEST_P(FloatTables, Ranges) {
  REALmemoryBlock table = host().newBlock(40);
  call(kSweep, table, 0, 5, 1, 2, 4.0);
  const Bytes sweep = bytes(table), ones = records({1.0f, 0, 1.0f, 0, 1.0f, 0, 1.0f, 0, 1.0f, 0});
  for (const char* declaration : {kSweep, kToCartesian, kToPolar}) {
    for (const RangeCase& c : kRangeCases) {
      SCOPED_TRACE(testing::Message() << declaration << ": " << c.name);
      REALmemoryBlock dest = block(Bytes(c.size, 0xEE), c.storage);
      run(declaration, dest, c.offset, c.z, block(Bytes(ones.begin(), ones.begin() + c.source_size), c.source_storage));
      Bytes expected(c.size, 0xEE);
      size_t count = declaration == kSweep ? c.sweep_count : c.conversion_count;
      std::copy_n((declaration == kSweep ? sweep : ones).begin(), 8 * count, expected.begin() + c.first);
      EXPECT_EQ(bytes(dest), expected);
      EXPECT_NOTHING_RAISED(host());
    }
  }
}

INSTANTIATE_ON_EVERY_HOST(FloatTables);
}  // namespace
