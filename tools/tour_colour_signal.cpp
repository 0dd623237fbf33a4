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
  using Convert12 = void(REALmemoryBlock, int32_t);
  using Replace = void(REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
                       double, int32_t, int32_t);
  using Complement = void(REALmemoryBlock, int32_t, int32_t, int32_t, uint8_t);
  using Sweep = void(REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, double);
  using Convert = void(REALmemoryBlock, int32_t, int32_t, REALmemoryBlock);
  auto rgb12 = tour.plugin().method<Convert12>("ConvertRGB12BitTo8BitVEK(Width as Integer)");
  auto calc3te = tour.plugin().method<Replace>(
      "_Calc3te(Source1 as Integer, Source2 as Integer, Source3 as Integer, Source4 as Integer, Dest1 as Integer, "
      "Dest2 as Integer, Dest3 as Integer, Dest4 as Integer, Tolerance as double, offsetByte as Integer = 0, Length "
      "as integer = 0)");
  auto cmy = tour.plugin().method<Complement>(
      "_Calc2teCMY(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as boolean "
      "= true)");
  auto cmyk = tour.plugin().method<Complement>(
      "_Calc2teCMYK(iByteMax as integer = 255, offsetByte as Integer = 0, Length as integer = 0, WithSum0 as "
      "boolean = true)");
  auto sweep = tour.plugin().method<Sweep>(
      "_CalcLogSweepTableVEK(offsetByte as Integer, Z as integer, lw1 as integer, lw2 as integer, T as double)");
  auto to_cartesian = tour.plugin().method<Convert>(
      "_ConvertPolarToCartesian(offsetByte as Integer, Z as integer, polarData as Memoryblock)");
  auto to_polar = tour.plugin().method<Convert>(
      "_ConvertCartesianToPolar(offsetByte as Integer, Z as integer, CartesianData as Memoryblock)");

  tour.section("12-bit to 8-bit RGB");
  REALmemoryBlock packed = tour.block({0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC});
  tour.dump("packed", packed);
  rgb12(packed, 1);
  tour.dump("packed.ConvertRGB12BitTo8BitVEK(1)", packed);
  rgb12(nullptr, 1);
  tour.line("nil.ConvertRGB12BitTo8BitVEK(1)", "");
  tour.raised();

  tour.section("colour replacement and channel-sum complement");
  REALmemoryBlock pixels = tour.block({180, 110, 45, 0, 179, 100, 50, 0, 200, 100, 50, 1});
  tour.dump("pixels", pixels);
  calc3te(pixels, 200, 100, 50, 0, 255, 255, 255, 0, 0.1, 0, 0);
  tour.dump("pixels._Calc3te(200, 100, 50, 0,", pixels);
  tour.line("  255, 255, 255, 0, 0.1)", "(bands 180..220, 90..110, 45..55, 0..0)");
  REALmemoryBlock cmy_pixels = tour.block({10, 20, 30, 0, 100, 100, 100, 0, 0, 0, 0, 0});
  tour.dump("cmy", cmy_pixels);
  cmy(cmy_pixels, 255, 0, 0, 1);
  tour.dump("cmy._Calc2teCMY()", cmy_pixels);
  REALmemoryBlock cmyk_pixels = tour.block({10, 20, 30, 40, 0, 0, 0, 0, 1, 2});
  tour.dump("cmyk", cmyk_pixels);
  cmyk(cmyk_pixels, 255, 0, 0, 0);
  tour.dump("cmyk._Calc2teCMYK(255,0,0,False)", cmyk_pixels);
  tour.line("", "(the partial pixel at byte 8 is skipped)");
  cmyk(cmyk_pixels, 255, -4, 0, 1);
  tour.line("cmyk._Calc2teCMYK(255, -4)", "");
  tour.raised();

  tour.section("log-sweep table and polar/cartesian conversion");
  REALmemoryBlock table = tour.block(40);
  sweep(table, 0, 5, 1, 2, 4.0);
  tour.line("table._CalcLogSweepTableVEK(", "");
  records(tour, "  0, 5, 1, 2, 4.0)", table);
  REALmemoryBlock points = tour.block(40);
  to_cartesian(points, 0, 5, table);
  tour.line("points._ConvertPolarToCartesian(", "");
  records(tour, "  0, 5, table)", points);
  to_polar(points, 0, 5, points);
  tour.line("points._ConvertCartesianToPolar(", "");
  records(tour, "  0, 5, points)", points);
  REALmemoryBlock xy = tour.block({0, 0, 0x40, 0x40, 0, 0, 0x80, 0x40});  // (3, 4)
  to_polar(xy, 0, 1, xy);
  records(tour, "(3, 4) to polar, in place", xy);
  to_polar(xy, 0, 1, nullptr);
  tour.line("xy._ConvertCartesianToPolar(", "");
  tour.line("  0, 1, nil)", "nothing, quietly");
  tour.raised();
}
