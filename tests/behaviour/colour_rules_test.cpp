// _Calc3te, _Calc2teCMY and _Calc2teCMYK through the simulated host.
#include <limits>

#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kCalc3te =
    "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, "
    "Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length as "
    "integer = 0)";
constexpr const char* kCmy =
    "_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = "
    "true)";
constexpr const char* kCmyk =
    "_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean = "
    "true)";

// -- _Calc3te -----------------------------------------------------------------

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

const InPlaceCase kReplaceCases[] = {
    {"bands 180..220, 90..110, 45..55, 0..0", kCalc3te,
     {180, 110, 45, 0, 179, 100, 50, 0, 200, 100, 50, 1, 220, 90, 55, 0}, {200, 100, 50, 0, 1, 2, 3, 4, 0.1, 0, 0},
     {1, 2, 3, 4, 179, 100, 50, 0, 200, 100, 50, 1, 1, 2, 3, 4}},
    {"truncation narrows the top and widens the bottom: 3 gives 2..3", kCalc3te, {2, 2, 2, 2, 4, 3, 3, 3, 3, 3, 3, 3},
     {3, 3, 3, 3, 9, 9, 9, 9, 0.1, 0, 0}, {9, 9, 9, 9, 4, 3, 3, 3, 9, 9, 9, 9}},
    {"tolerance 0 replaces exact matches only", kCalc3te, {10, 20, 30, 40, 10, 20, 30, 41, 11, 20, 30, 40},
     {10, 20, 30, 40, 0, 0, 0, 0, 0.0, 0, 0}, {0, 0, 0, 0, 10, 20, 30, 41, 11, 20, 30, 40}},
    {"negative tolerance leaves every band empty", kCalc3te, {10, 20, 30, 40, 5, 10, 15, 20},
     {10, 20, 30, 40, 0, 0, 0, 0, -0.5, 0, 0}, {10, 20, 30, 40, 5, 10, 15, 20}},
    {"negative tolerance still matches all-zero", kCalc3te, {0, 0, 0, 0, 1, 0, 0, 0},
     {0, 0, 0, 0, 7, 7, 7, 7, -0.5, 0, 0}, {7, 7, 7, 7, 1, 0, 0, 0}},
    {"destinations keep their low 8 bits", kCalc3te, {5, 5, 5, 5}, {5, 5, 5, 5, 256, -1, 0x1234, -256, 0.0, 0, 0},
     {0, 255, 0x34, 0}},
    // Bounds truncated toward zero to 32 bits; a product past the range gives
    // -2147483648, so an upper bound past it matches nothing.
    {"upper bound just inside 32 bits", kCalc3te, {0, 0, 0, 0, 255, 0, 0, 0}, {2, 0, 0, 0, 1, 1, 1, 1, 1e9, 0, 0},
     {1, 1, 1, 1, 1, 1, 1, 1}},
    {"upper bound past 32 bits", kCalc3te, {0, 0, 0, 0, 255, 0, 0, 0}, {2, 0, 0, 0, 1, 1, 1, 1, 2e9, 0, 0},
     {0, 0, 0, 0, 255, 0, 0, 0}},
    {"NaN tolerance matches nothing", kCalc3te, {0, 0, 0, 0}, {0, 0, 0, 0, 1, 1, 1, 1, kNaN, 0, 0}, {0, 0, 0, 0}},
};

class ColourRules : public PluginTest {
 protected:
  // Each method turns an all-zero pixel's fourth byte to 255: the
  // complements with WithSum0 false, _Calc3te by replacing 0, 0, 0, 0.
  void mark(const char* declaration, REALmemoryBlock block, int32_t offset, int32_t length) {
    if (declaration == kCalc3te) call(kCalc3te, block, 0, 0, 0, 0, 0, 0, 0, 255, 0.0, offset, length);
    else call(declaration, block, 255, offset, length, false);
  }
};

TEST_P(ColourRules, ReplaceColour) { expect_in_place(kReplaceCases); }

// -- _Calc2teCMY, _Calc2teCMYK ---------------------------------------------------

const InPlaceCase kComplementCases[] = {
    {"CMY defaults", kCmy, {10, 20, 30, 99, 100, 100, 100, 99, 0, 0, 0, 99}, {255, 0, 0, true},
     {10, 20, 30, 195, 100, 100, 100, 0, 0, 0, 0, 0}},
    {"CMY an empty pixel without WithSum0", kCmy, {0, 0, 0, 99}, {255, 0, 0, false}, {0, 0, 0, 255}},
    {"CMY budget 600", kCmy, {0, 0, 10, 1, 200, 200, 190, 1}, {600, 0, 0, true}, {0, 0, 10, 255, 200, 200, 190, 10}},
    {"CMY ignores the fourth byte", kCmy, {10, 20, 30, 255}, {255, 0, 0, true}, {10, 20, 30, 195}},
    {"CMYK defaults", kCmyk, {10, 20, 30, 40, 0, 0, 0, 0}, {255, 0, 0, true}, {10, 20, 30, 155, 0, 0, 0, 0}},
    {"CMYK an empty pixel without WithSum0", kCmyk, {0, 0, 0, 0}, {255, 0, 0, false}, {0, 0, 0, 255}},
    {"CMYK sum past the budget", kCmyk, {100, 100, 50, 10}, {255, 0, 0, true}, {100, 100, 50, 0}},
    {"CMYK negative budget", kCmyk, {0, 0, 0, 9, 1, 2, 3, 9}, {-5, 0, 0, false}, {0, 0, 0, 0, 1, 2, 3, 0}},
    {"CMYK largest budget", kCmyk, {255, 255, 255, 255}, {INT32_MAX, 0, 0, true}, {255, 255, 255, 255}},
};

TEST_P(ColourRules, ChannelSumComplement) { expect_in_place(kComplementCases); }

// -- the range and the refusals, shared by all three ----------------------------

// Which pixels a call touches, by the marks it leaves on zero pixels.
struct RangeCase {
  const char* name;
  size_t size;
  int32_t offset, length;
  std::vector<size_t> touched;  // first bytes of the pixels touched
  Storage storage = Storage::Block;
};

const RangeCase kRangeCases[] = {
    {"the rest of the block", 12, 0, 0, {0, 4, 8}},
    {"Length 5 covers two pixels", 12, 0, 5, {0, 4}},
    {"Length 4 covers one", 12, 0, 4, {0}},
    {"from an unaligned offset", 12, 2, 0, {2, 6}},  // the pixel at 10 would reach past the end
    {"partial last pixel skipped", 10, 0, 0, {0, 4}},
    {"Length past the end is cut to whole pixels", 12, 4, 100, {4, 8}},
    {"largest Length", 12, 4, INT32_MAX, {4, 8}},
    {"offset at the size", 12, 12, 0, {}},
    {"offset near the end, no whole pixel", 12, 9, 0, {}},
    {"most positive offset", 12, INT32_MAX, 4, {}},
    // A block over a raw address reports size 0: an explicit Length is
    // trusted, and the default Length leaves nothing to do.
    {"raw address", 12, 4, 5, {4, 8}, Storage::RawAddress},
    {"raw address, the rest", 12, 0, 0, {}, Storage::RawAddress},
};

const char* const kAll[] = {kCalc3te, kCmy, kCmyk};

TEST_P(ColourRules, Range) {
  for (const RangeCase& c : kRangeCases) {
    SCOPED_TRACE(c.name);
    Bytes marked(c.size, 0);
    for (size_t at : c.touched) marked[at + 3] = 255;
    for (const char* declaration : kAll) {
      REALmemoryBlock block = this->block(Bytes(c.size, 0), c.storage);
      mark(declaration, block, c.offset, c.length);
      EXPECT_EQ(bytes(block), marked) << declaration;
    }
    EXPECT_NOTHING_RAISED(host());
  }
}

INSTANTIATE_ON_EVERY_HOST(ColourRules);
}  // namespace
