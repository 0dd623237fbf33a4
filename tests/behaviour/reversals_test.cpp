// The byte swaps (SwapBytesVEK, SwapBytes16VEK, SwapBytes32VEK) and the
// mirrors (MirrorBitsInBytesVEK, MirrorBytesVEK, MirrorBitsVEK) through the
// simulated host: each undoes itself, so every case runs twice. Long ranges,
// every size and alignment, are the kernel tests' part; here the range each
// method resolves, the defaults and the reference's examples.
#include "tests/support/plugin_test.h"

namespace {
constexpr const char* kSwap = "SwapBytesVEK(offset as Integer, numBytes as Integer)";
constexpr const char* kSwap16 = "SwapBytes16VEK(offset as Integer, numBytes as Integer)";
constexpr const char* kSwap32 = "SwapBytes32VEK(offset as Integer, numBytes as Integer)";
constexpr const char* kInBytes = "MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)";
constexpr const char* kBytes = "MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)";
constexpr const char* kBits = "MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)";
constexpr int32_t kMax = 2147483647;

const Bytes k6 = {1, 2, 3, 4, 5, 6};
const Bytes k8 = {1, 2, 3, 4, 5, 6, 7, 8};

Bytes counting(size_t n) {
  Bytes bytes(n);
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  return bytes;
}

const InPlaceCase kCases[] = {
    {"whole block reversed", kSwap, k6, {0, 6}, {6, 5, 4, 3, 2, 1}},
    {"inner range, middle byte stays", kSwap, k6, {1, 3}, {1, 4, 3, 2, 5, 6}},
    {"cut back at the end", kSwap, k6, {2, 100}, {1, 2, 6, 5, 4, 3}},
    {"largest count cannot overflow", kSwap, k6, {2, kMax}, {1, 2, 6, 5, 4, 3}},
    {"last byte alone", kSwap, k6, {5, 1}, k6},
    {"offset at the size", kSwap, k6, {6, 1}, k6},
    {"negative offset", kSwap, k6, {-1, 3}, k6},
    {"most negative offset", kSwap, k6, {INT32_MIN, kMax}, k6},
    {"zero count", kSwap, k6, {0, 0}, k6},
    {"negative count", kSwap, k6, {0, -6}, k6},
    {"16: last odd byte stays", kSwap16, {1, 2, 3, 4, 5}, {0, 5}, {2, 1, 4, 3, 5}},
    {"16: words at an odd offset, cut back", kSwap16, k6, {1, 100}, {1, 3, 2, 5, 4, 6}},
    {"32: trailing bytes stay", kSwap32, k6, {0, 6}, {4, 3, 2, 1, 5, 6}},
    {"32: cut back at the end", kSwap32, k6, {2, 100}, {1, 2, 6, 5, 4, 3}},
    {"32: cut back below a word", kSwap32, k6, {3, 100}, k6},
    // A block over a raw address reports size 0: its range is the caller's.
    {"raw address", kSwap, k8, {2, 6}, {1, 2, 8, 7, 6, 5, 4, 3}, Storage::RawAddress},
    {"16: raw address", kSwap16, k8, {1, 6}, {1, 3, 2, 5, 4, 7, 6, 8}, Storage::RawAddress},
    {"32: raw address", kSwap32, k8, {0, 8}, {4, 3, 2, 1, 8, 7, 6, 5}, Storage::RawAddress},
    {"bits in bytes", kInBytes, {0x01, 0xF0}, {0, 2}, {0x80, 0x0F}},
    {"bits in bytes, cut back", kInBytes, {0x01, 0x03, 0xF0}, {1, 100}, {0x01, 0xC0, 0x0F}},
    {"bits in bytes, offset at the size", kInBytes, {0x01, 0x03}, {2, 1}, {0x01, 0x03}},
    {"bits in bytes, negative offset", kInBytes, {0x01, 0x03}, {-1, 2}, {0x01, 0x03}},
    {"bits in bytes, zero length", kInBytes, {0x01, 0xF0}, {0, 0}, {0x01, 0xF0}},
    {"bits in bytes, negative length", kInBytes, {0x01, 0xF0}, {0, -1}, {0x01, 0xF0}},
    {"bytes, defaults", kBytes, counting(5), {0, -1}, {5, 4, 3, 2, 1}},
    {"bytes, inner range", kBytes, counting(5), {1, 3}, {1, 4, 3, 2, 5}},
    {"bytes, default length from an offset is cut back", kBytes, counting(6), {2, -1}, {1, 2, 6, 5, 4, 3}},
    {"bytes, largest length is cut back", kBytes, counting(6), {1, kMax}, {1, 6, 5, 4, 3, 2}},
    {"bytes, twelve", kBytes, counting(12), {0, 12}, {12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}},
    {"bytes, offset at the size", kBytes, counting(6), {6, -1}, counting(6)},
    {"bytes, zero length", kBytes, counting(6), {0, 0}, counting(6)},
    {"bits, two bytes", kBits, {0x12, 0x34}, {0, 16}, {0x2C, 0x48}},
    {"bits, across a byte boundary", kBits, {0x12, 0x34}, {4, 8}, {0x1C, 0x44}},
    {"bits, inside one byte", kBits, {0x40}, {1, 6}, {0x02}},
    {"bits, a single bit", kBits, {0x40}, {5, 1}, {0x40}},
    {"bits, cut back at the end", kBits, {0x12, 0x34}, {12, 100}, {0x12, 0x32}},
    {"bits, offset at the end", kBits, {0x12, 0x34}, {16, 2}, {0x12, 0x34}},
    {"bits, negative offset", kBits, {0x12, 0x34}, {-1, 4}, {0x12, 0x34}},
    {"bits, zero length", kBits, {0x12, 0x34}, {0, 0}, {0x12, 0x34}},
    {"bits, negative length", kBits, {0x12, 0x34}, {0, -16}, {0x12, 0x34}},
    {"bits, largest length is cut back", kBits, {0x01, 0x00, 0x00}, {7, kMax}, {0x00, 0x00, 0x01}},
    // bits 1 and 10 go to 158 and 149; bits 0 and 159 stay
    {"bits, long odd range", kBits, {0xC0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01}, {1, 158},
     {0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x03}},
    // A block over a raw address reports size 0: an explicit range is the
    // caller's; the default length (the block's size) is then nothing.
    {"bytes, raw address, default length", kBytes, counting(4), {0, -1}, counting(4), Storage::RawAddress},
    {"bytes, raw address", kBytes, counting(4), {0, 4}, {4, 3, 2, 1}, Storage::RawAddress},
    {"bits, raw address", kBits, counting(4), {28, 4}, {1, 2, 3, 2}, Storage::RawAddress},
    {"bits in bytes, raw address", kInBytes, counting(4), {3, 1}, {1, 2, 3, 0x20}, Storage::RawAddress},
};

class Reversals : public PluginTest {};

// Each case twice: once gives the expected bytes, twice the block back. A nil
// block, a block without data and -1 arguments are the every-method sweep's.
TEST_P(Reversals, Cases) { expect_in_place(kCases, true); }

INSTANTIATE_ON_EVERY_HOST(Reversals);
}  // namespace
