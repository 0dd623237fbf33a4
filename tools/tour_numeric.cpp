#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "tools/tour.h"

namespace {
// Raw memory for the Ptr arguments, shown like a block.
uint8_t* raw(Tour& tour, const char* label, std::initializer_list<uint8_t> bytes) {
  uint8_t* data = tour.host().rawBuffer(bytes.size());
  std::string text;
  char hex[4];
  for (uint8_t b : bytes) {
    *data++ = b;
    std::snprintf(hex, sizeof hex, " %02X", b);
    text += hex;
  }
  tour.line(label, text);
  return data - bytes.size();
}
}  // namespace

void tour_numeric(Tour& tour) {
  using Multiply = void(REALmemoryBlock, double, int32_t, int32_t);
  using MinMax = bool(REALmemoryBlock, void*, void*, int32_t, uint8_t, int32_t, int32_t);
  auto mul8 = tour.plugin().method<Multiply>(
      "MultiplyUInt8VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)");
  auto mul16 = tour.plugin().method<Multiply>(
      "MultiplyUInt16VEK(Factor as double, offsetByte as Integer = 0, lengthBytes as integer = 0)");
  auto min = tour.plugin().method<MinMax>(
      "MinVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean");
  auto max = tour.plugin().method<MinMax>(
      "MaxVEK(firstMem as Ptr, secondMem as Ptr, BitSize as integer = 8, Signed as Boolean = false, offsetByte as Integer = 0, lengthBytes as integer = 0) as boolean");

  tour.section("scaling");
  REALmemoryBlock bytes = tour.block({0x00, 0x01, 0x7F, 0x80, 0xFF});
  tour.dump("bytes", bytes);
  mul8(bytes, 2.0, 0, 0);
  tour.dump("bytes.MultiplyUInt8VEK(2.0)", bytes);
  mul8(bytes, -1.0, 0, 0);
  tour.dump("bytes.MultiplyUInt8VEK(-1.0)", bytes);
  mul8(bytes, std::numeric_limits<double>::quiet_NaN(), 3, 0);
  tour.dump("bytes.MultiplyUInt8VEK(NaN, 3)", bytes);
  REALmemoryBlock words = tour.block({0x00, 0x80, 0xFF, 0x7F, 0x34, 0x12});
  tour.dump("w", words);
  mul16(words, 2.0, 0, 0);
  tour.dump("w.MultiplyUInt16VEK(2.0)", words);
  mul16(words, 0.5, 2, 100);
  tour.dump("w.MultiplyUInt16VEK(0.5, 2, 100)", words);
  mul16(words, -2.0, 0, 0);
  tour.dump("w.MultiplyUInt16VEK(-2.0)", words);
  mul16(words, 2.0, -1, 0);
  tour.dump("w.MultiplyUInt16VEK(2.0, -1)", words);
  tour.raised();

  tour.section("element-wise minimum and maximum");
  uint8_t* a = raw(tour, "a (Ptr)", {0x80, 0x7F, 0x00, 0xFF});
  uint8_t* b = raw(tour, "b (Ptr)", {0x7F, 0x80, 0x01, 0xFE});
  REALmemoryBlock out = tour.block(4, 0xEE);
  auto result = [&](bool ok) { return std::string(ok ? "True" : "False"); };
  tour.line("out.MinVEK(a, b)", result(min(out, a, b, 8, 0, 0, 0)));
  tour.dump("out", out);
  tour.line("out.MinVEK(a, b, 8, True)", result(min(out, a, b, 8, 1, 0, 0)));
  tour.dump("out", out);
  tour.line("out.MaxVEK(a, b, 16)", result(max(out, a, b, 16, 0, 0, 0)));
  tour.dump("out", out);
  tour.line("out.MaxVEK(a, b, 32, True)", result(max(out, a, b, 32, 1, 0, 0)));
  tour.dump("out", out);
  tour.line("out.MinVEK(a, b, 12)", result(min(out, a, b, 12, 0, 0, 0)));
  tour.line("out.MaxVEK(a, b, 8, False, 2, 100)", result(max(out, a, b, 8, 0, 2, 100)));
  tour.dump("out", out);
  tour.line("out.MinVEK(nil, b)", result(min(out, nullptr, b, 8, 0, 0, 0)));
  tour.raised();
}
