// _CalcLogSweepTableVEK, _ConvertPolarToCartesian and _ConvertCartesianToPolar
// through the simulated host.
#include <bit>
#include <cmath>
#include <cstring>
#include <math.h>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kSweep =
    "_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)";
constexpr const char* kToCartesian =
    "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)";
constexpr const char* kToPolar =
    "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)";
using Sweep = void(REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, double);
using Convert = void(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock);

constexpr float kPi = 3.14159265358979323846f;
constexpr float kHalfPi = 1.57079632679489661923f;

Bytes records(std::initializer_list<float> values) {
  Bytes bytes(values.size() * 4);
  std::memcpy(bytes.data(), std::data(values), bytes.size());
  return bytes;
}

float float_at(const Bytes& bytes, size_t index) {
  float value;
  std::memcpy(&value, bytes.data() + 4 * index, 4);
  return value;
}

uint32_t bits(float value) { return std::bit_cast<uint32_t>(value); }

class FloatTables : public PluginTest {
 protected:
  void sweep(REALmemoryBlock block, int32_t offset, int32_t z, int32_t lw1, int32_t lw2, double t) {
    plugin().method<Sweep>(kSweep)(block, offset, z, lw1, lw2, t);
  }
  void convert(const char* declaration, REALmemoryBlock block, int32_t offset, int32_t z, REALmemoryBlock source) {
    plugin().method<Convert>(declaration)(block, offset, z, source);
  }
};

// -- the sweep ------------------------------------------------------------------

// lw1 1, lw2 2, T 4, Z 5: each float within half a unit of the last digit
// given for it.
struct Approx {
  double value, within;
};
const Approx kSweepRecords[5][2] = {
    {{0.0, 0.0}, {0.0, 0.0}},
    {{0.93419, 5e-6}, {25.13274, 5e-6}},
    {{-0.54321, 5e-6}, {50.26548, 5e-6}},
    {{-0.096989, 5e-7}, {75.39822, 5e-6}},
    {{0.33260, 5e-6}, {100.53097, 5e-6}},
};

TEST_P(FloatTables, SweepWorkedExample) {
  REALmemoryBlock block = host().newBlock(40, 0xEE);
  sweep(block, 0, 5, 1, 2, 4.0);
  Bytes table = bytes(block);
  for (size_t i = 0; i < 5; ++i) {
    for (size_t k = 0; k < 2; ++k) {
      EXPECT_NEAR(float_at(table, 2 * i + k), kSweepRecords[i][k].value, kSweepRecords[i][k].within)
          << "record " << i << " float " << k;
    }
  }
  EXPECT_EQ(bits(float_at(table, 0)), 0u) << "record 0 is (+0, +0)";
  EXPECT_EQ(bits(float_at(table, 1)), 0u);
  // record T: sixteen turns of the literal, rounded once to a float
  EXPECT_EQ(float_at(table, 9), 100.53096771240234f);
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// The stored bits follow the precision of each step: time, exponent argument,
// phase and angle in double, exponential, phase offset and sine in single
// precision. Checked against those steps written out, for sweeps whose
// results would differ were any step done in the other precision.
TEST_P(FloatTables, SweepPrecisionOfEveryStep) {
  struct Params {
    int32_t lw1, lw2;
    double t;
    int32_t z;
  };
  for (Params p : {Params{1, 2, 4.0, 9}, Params{20, 20000, 48000.0, 200}, Params{3, 7, 3.0, 40},
                   Params{100, 50, 1000.5, 64}, Params{1, 1000, 7.0, 30}}) {
    SCOPED_TRACE(testing::Message() << p.lw1 << " to " << p.lw2 << " over " << p.t);
    REALmemoryBlock block = host().newBlock(8 * static_cast<size_t>(p.z));
    sweep(block, 0, p.z, p.lw1, p.lw2, p.t);
    Bytes table = bytes(block);
    const double L = std::log(static_cast<double>(p.lw2) / static_cast<double>(p.lw1));
    const double K = (static_cast<double>(p.lw1) * 6.28318530718) / L;
    double t = 0.0;
    for (int32_t i = 0; i < p.z; ++i, t += 1.0) {
      double tau = t / p.t;
      float e = expf(static_cast<float>(L * tau));
      float phase = static_cast<float>(static_cast<double>(e + -1.0f) * K);
      float sample = sinf(phase) * 0.944f;
      float angle = static_cast<float>(tau * 100.53096491488);
      ASSERT_EQ(bits(float_at(table, 2 * i)), bits(sample)) << "sample " << i;
      ASSERT_EQ(bits(float_at(table, 2 * i + 1)), bits(angle)) << "angle " << i;
    }
    EXPECT_BALANCED(host());
  }
}

TEST_P(FloatTables, SweepStoresNaNsAsTheyCome) {
  REALmemoryBlock block = host().newBlock(24);
  sweep(block, 0, 3, 5, 5, 4.0);  // L = 0, K infinite
  Bytes table = bytes(block);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(std::isnan(float_at(table, 2 * i))) << "record " << i;
    EXPECT_EQ(float_at(table, 2 * i + 1), static_cast<float>(i / 4.0 * 100.53096491488));
  }
  EXPECT_NOTHING_RAISED(host());
}

// -- the conversions --------------------------------------------------------------

struct ConversionCase {
  const char* name;
  const char* declaration;
  Bytes source;
  Bytes expected;   // exact
  double near_x = 0, within_x = -1;  // a first float given approximately, when within_x >= 0
  double near_y = 0, within_y = -1;
};

const ConversionCase kConversionCases[] = {
    {"polar (2, π/2) — cos of the float nearest π/2 is not 0", kToCartesian, records({2.0f, kHalfPi}), {},
     -8.7423e-8, 0.00005e-8, 2.0, 0.0},
    {"polar (1, 0)", kToCartesian, records({1.0f, 0.0f}), records({1.0f, 0.0f})},
    {"polar (0, π): both zeros negative", kToCartesian, records({0.0f, kPi}), records({-0.0f, -0.0f})},
    {"cartesian (3, 4)", kToPolar, records({3.0f, 4.0f}), {}, 5.0, 0.0, 0.9272952, 0.00000005},
    {"cartesian (-1, 0)", kToPolar, records({-1.0f, 0.0f}), records({1.0f, kPi})},
    {"cartesian (-1, -0)", kToPolar, records({-1.0f, -0.0f}), records({1.0f, -kPi})},
    {"cartesian (0, 0)", kToPolar, records({0.0f, 0.0f}), records({0.0f, 0.0f})},
};

TEST_P(FloatTables, ConversionWorkedExamples) {
  for (const ConversionCase& c : kConversionCases) {
    SCOPED_TRACE(c.name);
    REALmemoryBlock source = block(c.source);
    REALmemoryBlock dest = host().newBlock(8, 0xEE);
    convert(c.declaration, dest, 0, 1, source);
    Bytes result = bytes(dest);
    if (c.within_x < 0) {
      EXPECT_EQ(result, c.expected);  // bit for bit, signs of zero included
    } else {
      EXPECT_NEAR(float_at(result, 0), c.near_x, c.within_x);
      EXPECT_NEAR(float_at(result, 1), c.near_y, c.within_y);
    }
    EXPECT_EQ(bytes(source), c.source);
    EXPECT_NOTHING_RAISED(host());
    EXPECT_BALANCED(host());
  }
}

// Every record is read before it is written, in ascending order: the source
// may be the destination itself, or overlap it one record further on.
TEST_P(FloatTables, ConversionInPlaceAndOverlapping) {
  REALmemoryBlock same = block(records({3.0f, 4.0f, -1.0f, 0.0f}));
  convert(kToPolar, same, 0, 2, same);
  EXPECT_EQ(bytes(same), records({5.0f, atan2f(4.0f, 3.0f), 1.0f, kPi}));

  // record i is read from bytes 8i.., written to 8i+8..: each reads what the
  // one before it wrote
  REALmemoryBlock chain = block(records({3.0f, 4.0f, 0, 0, 0, 0, 0, 0}));
  convert(kToPolar, chain, 8, 3, chain);
  float x = 3.0f, y = 4.0f;
  Bytes expected = records({3.0f, 4.0f});
  for (int i = 0; i < 3; ++i) {
    float r = sqrtf(y * y + x * x), theta = atan2f(y, x);
    Bytes record = records({r, theta});
    expected.insert(expected.end(), record.begin(), record.end());
    x = r;
    y = theta;
  }
  EXPECT_EQ(bytes(chain), expected);

  REALmemoryBlock turns = block(records({1.0f, 0.0f, 0, 0, 0, 0, 0, 0, 0, 0}));
  convert(kToCartesian, turns, 8, 4, turns);
  EXPECT_EQ(bytes(turns), records({1.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f, 1.0f, 0.0f}));
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

// -- ranges ------------------------------------------------------------------------

// Which records a call writes in a destination of `size` bytes (filled with
// 0xEE) from a source of `source_size` bytes: only whole records inside both
// (the sweep has no source).
struct RangeCase {
  const char* name;
  size_t size, source_size;
  int32_t offset, z;
  size_t first;                         // the first byte written
  size_t conversion_count, sweep_count;  // records written
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
};

TEST_P(FloatTables, Ranges) {
  for (const char* declaration : {kSweep, kToCartesian, kToPolar}) {
    for (const RangeCase& c : kRangeCases) {
      SCOPED_TRACE(testing::Message() << declaration << ": " << c.name);
      REALmemoryBlock dest = host().newBlock(c.size, 0xEE);
      Bytes source_bytes;
      for (size_t i = 0; i + 8 <= c.source_size; i += 8) {
        Bytes record = records({1.0f, 0.0f});  // (1, 0) in either form
        source_bytes.insert(source_bytes.end(), record.begin(), record.end());
      }
      REALmemoryBlock source = block(source_bytes);
      size_t count = declaration == kSweep ? c.sweep_count : c.conversion_count;
      if (declaration == kSweep) sweep(dest, c.offset, c.z, 1, 2, 4.0);
      else convert(declaration, dest, c.offset, c.z, source);

      Bytes result = bytes(dest);
      for (size_t i = 0; i < c.size; ++i) {
        bool written = i >= c.first && i < c.first + 8 * count;
        if (!written) {
          EXPECT_EQ(result[i], 0xEE) << "byte " << i << " changed";
        }
      }
      for (size_t r = 0; r < count; ++r) {
        const uint8_t* record = result.data() + c.first + 8 * r;
        EXPECT_NE(Bytes(record, record + 8), Bytes(8, 0xEE)) << "record " << r << " not written";
      }
      EXPECT_NOTHING_RAISED(host());
      EXPECT_BALANCED(host());
    }
  }
}

TEST_P(FloatTables, Refusals) {
  REALmemoryBlock dest = host().newBlock(16, 0xEE);
  REALmemoryBlock source = block(records({1.0f, 0.0f, 1.0f, 0.0f}));
  sweep(nullptr, 0, 1, 1, 2, 4.0);
  EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
  sweep(dest, -8, 1, 1, 2, 4.0);
  EXPECT_RAISED(host(), "UnsupportedOperationException", "offset < 0");
  for (const char* declaration : {kToCartesian, kToPolar}) {
    SCOPED_TRACE(declaration);
    convert(declaration, nullptr, 0, 1, source);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    convert(declaration, nullptr, 0, 1, nullptr);
    EXPECT_RAISED(host(), "NilObjectException", "memoryblock is nil");
    convert(declaration, dest, 0, 1, nullptr);  // a nil source does nothing, quietly
    EXPECT_NOTHING_RAISED(host());
    convert(declaration, dest, -1, 1, source);
    EXPECT_RAISED(host(), "UnsupportedOperationException", "offset < 0");
  }
  EXPECT_EQ(bytes(dest), Bytes(16, 0xEE));
  EXPECT_BALANCED(host());
}

// A destination over a raw address reports size 0: Z records are trusted.
// A block without data is left alone.
TEST_P(FloatTables, RawAddressAndBlockWithoutData) {
  uint8_t* raw = host().rawBuffer(24);
  std::fill_n(raw, 24, 0xEE);
  REALmemoryBlock over = host().ptrBlock(raw);
  REALmemoryBlock source = block(records({3.0f, 4.0f, 3.0f, 4.0f, 3.0f, 4.0f}));
  convert(kToPolar, over, 8, 2, source);
  EXPECT_EQ(Bytes(raw, raw + 8), Bytes(8, 0xEE));
  EXPECT_EQ(float_at(Bytes(raw, raw + 24), 2), 5.0f);
  EXPECT_EQ(float_at(Bytes(raw, raw + 24), 4), 5.0f);
  sweep(over, 0, 1, 1, 2, 4.0);
  EXPECT_EQ(float_at(Bytes(raw, raw + 24), 0), 0.0f);

  REALmemoryBlock dest = host().newBlock(8, 0xEE);
  host().overrideReportedData(dest, nullptr);
  convert(kToPolar, dest, 0, 1, source);
  sweep(dest, 0, 1, 1, 2, 4.0);
  host().overrideReportedData(source, nullptr);
  REALmemoryBlock other = host().newBlock(8, 0xEE);
  convert(kToCartesian, other, 0, 1, source);
  EXPECT_EQ(bytes(dest), Bytes(8, 0xEE));
  EXPECT_EQ(bytes(other), Bytes(8, 0xEE));
  EXPECT_NOTHING_RAISED(host());
  EXPECT_BALANCED(host());
}

INSTANTIATE_ON_EVERY_HOST(FloatTables);
}  // namespace
