#include <cstdio>
#include <cstring>

#include "tools/tour.h"

namespace {
// A table of float pairs, one record a line, the first beside the label.
void records(Tour& tour, const char* label, REALmemoryBlock block) {
  auto bytes = tour.host().bytes(block);
  char pair[48];
  for (size_t at = 0; at + 8 <= bytes.size(); at += 8) {
    float first, second;
    std::memcpy(&first, bytes.data() + at, 4);
    std::memcpy(&second, bytes.data() + at + 4, 4);
    std::snprintf(pair, sizeof pair, "(%.7g, %.7g)", first, second);
    tour.line(at == 0 ? label : "", pair);
  }
}
}  // namespace

void tour_colour_signal(Tour& tour) {

  tour.section("12-bit to 8-bit RGB");
  REALmemoryBlock packed = tour.block({0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC});
  tour.dump("packed", packed);
  tour.in_place("packed.ConvertRGB12BitTo8BitVEK(1)", "ConvertRGB12BitTo8BitVEK", packed, 1);
  tour.call("ConvertRGB12BitTo8BitVEK", nullptr, 1);
  tour.line("nil.ConvertRGB12BitTo8BitVEK(1)", "");
  tour.raised();

  tour.section("colour replacement and channel-sum complement");
  REALmemoryBlock pixels = tour.block({180, 110, 45, 0, 179, 100, 50, 0, 200, 100, 50, 1});
  tour.dump("pixels", pixels);
  tour.in_place("pixels._Calc3te(200, 100, 50, 0,", "_Calc3te", pixels, 200, 100, 50, 0, 255, 255, 255, 0, 0.1, 0, 0);
  tour.line("  255, 255, 255, 0, 0.1)", "(bands 180..220, 90..110, 45..55, 0..0)");
  REALmemoryBlock cmy_pixels = tour.block({10, 20, 30, 0, 100, 100, 100, 0, 0, 0, 0, 0});
  tour.dump("cmy", cmy_pixels);
  tour.in_place("cmy._Calc2teCMY()", "_Calc2teCMY", cmy_pixels, 255, 0, 0, 1);
  REALmemoryBlock cmyk_pixels = tour.block({10, 20, 30, 40, 0, 0, 0, 0, 1, 2});
  tour.dump("cmyk", cmyk_pixels);
  tour.in_place("cmyk._Calc2teCMYK(255,0,0,False)", "_Calc2teCMYK", cmyk_pixels, 255, 0, 0, 0);
  tour.line("", "(the partial pixel at byte 8 is skipped)");
  tour.call("_Calc2teCMYK", cmyk_pixels, 255, -4, 0, 1);
  tour.line("cmyk._Calc2teCMYK(255, -4)", "");
  tour.raised();

  tour.section("log-sweep table and polar/cartesian conversion");
  REALmemoryBlock table = tour.block(40);
  tour.call("_CalcLogSweepTableVEK", table, 0, 5, 1, 2, 4.0);
  tour.line("table._CalcLogSweepTableVEK(", "");
  records(tour, "  0, 5, 1, 2, 4.0)", table);
  REALmemoryBlock points = tour.block(40);
  tour.call("_ConvertPolarToCartesian", points, 0, 5, table);
  tour.line("points._ConvertPolarToCartesian(", "");
  records(tour, "  0, 5, table)", points);
  tour.call("_ConvertCartesianToPolar", points, 0, 5, points);
  tour.line("points._ConvertCartesianToPolar(", "");
  records(tour, "  0, 5, points)", points);
  REALmemoryBlock xy = tour.block({0, 0, 0x40, 0x40, 0, 0, 0x80, 0x40});  // (3, 4)
  tour.call("_ConvertCartesianToPolar", xy, 0, 1, xy);
  records(tour, "(3, 4) to polar, in place", xy);
  tour.call("_ConvertCartesianToPolar", xy, 0, 1, nullptr);
  tour.line("xy._ConvertCartesianToPolar(", "");
  tour.line("  0, 1, nil)", "nothing, quietly");
  tour.raised();
}
