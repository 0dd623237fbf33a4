// MultiplyUInt8VEK and MultiplyUInt16VEK through the simulated host. The
// products of every value and many factors (not a number and the infinities
// too), at every kernel level, are the kernel tests' part; here the ranges,
// the refusals and the reference's examples.
#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kMul8 = "MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)";
constexpr const char* kMul16 = "MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)";

constexpr int32_t kMax = 2147483647;

const Bytes kFour = {1, 2, 3, 4};
const Bytes kSix16 = {0x00, 0x80, 0xFF, 0x7F, 0x34, 0x12};

const InPlaceCase kCases[] = {
    {"8: doubled, held at 255", kMul8, {0x00, 0x01, 0x7F, 0x80, 0xFF}, {2.0, 0, 0}, {0x00, 0x02, 0xFE, 0xFF, 0xFF}},
    {"8: a range inside", kMul8, {0x10, 0x10, 0x10, 0x10}, {1.5, 1, 2}, {0x10, 0x18, 0x18, 0x10}},
    {"8: minus one wraps", kMul8, {0x00, 0x01, 0x02}, {-1.0, 0, 0}, {0x00, 0xFF, 0xFE}},
    {"8: negative length is the rest", kMul8, kFour, {2.0, 1, -5}, {1, 4, 6, 8}},
    {"8: length cut back at the end", kMul8, kFour, {2.0, 2, 100}, {1, 2, 6, 8}},
    {"8: huge length cannot overflow", kMul8, kFour, {2.0, 3, kMax}, {1, 2, 3, 8}},
    {"8: offset at the end", kMul8, kFour, {2.0, 4, 0}, kFour},
    {"8: explicit length from the end", kMul8, kFour, {2.0, 4, 3}, kFour},
    {"16: doubled, held at 65535", kMul16, kSix16, {2.0, 0, 0}, {0xFF, 0xFF, 0xFE, 0xFF, 0x68, 0x24}},
    {"16: halved", kMul16, {0x03, 0x00, 0xFF, 0xFF}, {0.5, 0, 0}, {0x01, 0x00, 0xFF, 0x7F}},
    {"16: negative factor changes nothing", kMul16, kSix16, {-2.0, 0, 0}, kSix16},
    {"16: from an odd offset", kMul16, {0xAA, 0x01, 0x00, 0x02, 0x00, 0xBB}, {3.0, 1, 0},
     {0xAA, 0x03, 0x00, 0x06, 0x00, 0xBB}},
    {"16: one byte holds no value", kMul16, {0x01, 0x00}, {2.0, 0, 1}, {0x01, 0x00}},
    {"16: a last odd byte stays", kMul16, {0x01, 0x00, 0x02, 0x00, 0x03}, {2.0, 0, 0}, {0x02, 0x00, 0x04, 0x00, 0x03}},
    {"16: length cut back to whole values", kMul16, {0x01, 0x00, 0x02, 0x00, 0x03}, {2.0, 2, 100},
     {0x01, 0x00, 0x04, 0x00, 0x03}},
    {"16: huge length cannot overflow", kMul16, kFour, {2.0, 1, kMax}, {1, 4, 6, 4}},
    {"16: explicit length past the end", kMul16, kFour, {2.0, 9, 2}, kFour},
    // A block over a raw address has no known size: an explicit length is
    // the caller's; the rest of such a block is nothing.
    {"8: raw address, the rest", kMul8, kSix16, {2.0, 0, 0}, kSix16, Storage::RawAddress},
    {"8: raw address", kMul8, kFour, {2.0, 1, 3}, {1, 4, 6, 8}, Storage::RawAddress},
    {"16: raw address, the rest", kMul16, kSix16, {2.0, 0, 0}, kSix16, Storage::RawAddress},
    {"16: raw address", kMul16, kSix16, {0.5, 2, 4}, {0x00, 0x80, 0xFF, 0x3F, 0x1A, 0x09}, Storage::RawAddress},
};

class Scaling : public PluginTest {};

TEST_P(Scaling, Cases) { expect_in_place(kCases); }

INSTANTIATE_ON_EVERY_HOST(Scaling);
}  // namespace
