// ConvertRGB12BitTo8BitVEK through the simulated host.
#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kConvert = "ConvertRGB12BitTo8BitVEK(Width as Integer)";

const Bytes kGroup = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
const Bytes kGroupConverted = {0xAB, 0xDE, 0x12, 0x45, 0x78, 0xAB, 0x78, 0x9A, 0xBC};
const Bytes kTwoGroups = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC,
                          0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70, 0x80, 0x90};
const Bytes kTwoConverted = {0xAB, 0xDE, 0x12, 0x45, 0x78, 0xAB, 0x10, 0x03, 0x40,
                             0x06, 0x70, 0x09, 0x40, 0x50, 0x60, 0x70, 0x80, 0x90};

Bytes join(const Bytes& a, const Bytes& b) {
  Bytes all = a;
  all.insert(all.end(), b.begin(), b.end());
  return all;
}

// Every sample against a reading bit by bit is the kernel tests' part; here
// the reference's example, a second group and the range.
const InPlaceCase kCases[] = {
    {"one group", kConvert, kGroup, {1}, kGroupConverted},
    {"width 0 changes nothing", kConvert, kGroup, {0}, kGroup},
    {"first of two groups only", kConvert, kTwoGroups, {1},
     join(kGroupConverted, Bytes(kTwoGroups.begin() + 9, kTwoGroups.end()))},
    {"both groups", kConvert, kTwoGroups, {2}, kTwoConverted},
    // Only whole groups inside the block are converted.
    {"width past the end", kConvert, join(kTwoGroups, {1, 2}), {5}, join(kTwoConverted, {1, 2})},
    {"widest width", kConvert, kGroup, {INT32_MAX}, kGroupConverted},
    {"no whole group", kConvert, Bytes(kGroup.begin(), kGroup.end() - 1), {1}, Bytes(kGroup.begin(), kGroup.end() - 1)},
    // A block over a raw address reports size 0: the caller's Width is trusted.
    {"raw address", kConvert, kTwoGroups, {2}, kTwoConverted, Storage::RawAddress},
};

class Rgb12 : public PluginTest {};

TEST_P(Rgb12, Cases) { expect_in_place(kCases); }

INSTANTIATE_ON_EVERY_HOST(Rgb12);
}  // namespace
