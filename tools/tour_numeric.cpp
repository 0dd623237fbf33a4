#include <algorithm>
#include <limits>

#include "tools/tour.h"

namespace {
// Raw memory for the Ptr arguments, shown like a block.
uint8_t* raw(Tour& tour, const char* label, std::initializer_list<uint8_t> bytes) {
  uint8_t* data = tour.host().rawBuffer(bytes.size());
  std::copy(bytes.begin(), bytes.end(), data);
  tour.line(label, " " + hex(data, bytes.size()));
  return data;
}
}  // namespace

void tour_numeric(Tour& tour) {

  tour.section("scaling");
  REALmemoryBlock bytes = tour.block({0x00, 0x01, 0x7F, 0x80, 0xFF});
  tour.dump("bytes", bytes);
  tour.in_place("bytes.MultiplyUInt8VEK(2.0)", "MultiplyUInt8VEK", bytes, 2.0, 0, 0);
  tour.in_place("bytes.MultiplyUInt8VEK(-1.0)", "MultiplyUInt8VEK", bytes, -1.0, 0, 0);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  tour.in_place("bytes.MultiplyUInt8VEK(NaN, 3)", "MultiplyUInt8VEK", bytes, nan, 3, 0);
  REALmemoryBlock words = tour.block({0x00, 0x80, 0xFF, 0x7F, 0x34, 0x12});
  tour.dump("w", words);
  tour.in_place("w.MultiplyUInt16VEK(2.0)", "MultiplyUInt16VEK", words, 2.0, 0, 0);
  tour.in_place("w.MultiplyUInt16VEK(0.5, 2, 100)", "MultiplyUInt16VEK", words, 0.5, 2, 100);
  tour.in_place("w.MultiplyUInt16VEK(-2.0)", "MultiplyUInt16VEK", words, -2.0, 0, 0);
  tour.in_place("w.MultiplyUInt16VEK(2.0, -1)", "MultiplyUInt16VEK", words, 2.0, -1, 0);
  tour.raised();

  tour.section("element-wise minimum and maximum");
  uint8_t* a = raw(tour, "a (Ptr)", {0x80, 0x7F, 0x00, 0xFF});
  uint8_t* b = raw(tour, "b (Ptr)", {0x7F, 0x80, 0x01, 0xFE});
  REALmemoryBlock out = tour.block(4, 0xEE);
  tour.show("out.MinVEK(a, b)", tour.call("MinVEK", out, a, b, 8, 0, 0, 0));
  tour.dump("out", out);
  tour.show("out.MinVEK(a, b, 8, True)", tour.call("MinVEK", out, a, b, 8, 1, 0, 0));
  tour.dump("out", out);
  tour.show("out.MaxVEK(a, b, 16)", tour.call("MaxVEK", out, a, b, 16, 0, 0, 0));
  tour.dump("out", out);
  tour.show("out.MaxVEK(a, b, 32, True)", tour.call("MaxVEK", out, a, b, 32, 1, 0, 0));
  tour.dump("out", out);
  tour.show("out.MinVEK(a, b, 12)", tour.call("MinVEK", out, a, b, 12, 0, 0, 0));
  tour.show("out.MaxVEK(a, b, 8, False, 2, 100)", tour.call("MaxVEK", out, a, b, 8, 0, 2, 100));
  tour.dump("out", out);
  tour.show("out.MinVEK(nil, b)", tour.call("MinVEK", out, nullptr, b, 8, 0, 0, 0));
  tour.raised();
}
