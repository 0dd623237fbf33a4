#include <array>
#include <string>

#include "tools/call.h"
#include "tools/tour.h"

namespace {
using B = REALmemoryBlock;
using S = REALstring;
using F = REALfolderItem;

void tour_search(Tour& tour) {

  tour.section("compare and search");
  B b = tour.block({0, 0, 7, 1, 2, 7, 1, 2});
  B t = tour.block({7, 1, 2});
  tour.dump("b", b);
  tour.dump("t", t);
  tour.show("b.BytesEqualVEK(3, 2, b, 6)", tour.call("BytesEqualVEK", b, 3, 2, b, 6));
  tour.show("b.BytesEqualVEK(2, 4, b, 5)", tour.call("BytesEqualVEK", b, 2, 4, b, 5));
  tour.show("b.BytesZeroVEK(0, 2)", tour.call("BytesZeroVEK", b, 0, 2));
  tour.show("b.BytesZeroVEK(0, 3)", tour.call("BytesZeroVEK", b, 0, 3));
  tour.show("b.FindByteVEK(3, 5, 7)", tour.call("FindByteVEK", b, 3, 5, 7));
  tour.show("b.FindByteVEK(0, 8, 263)", tour.call("FindByteVEK", b, 0, 8, 263));
  tour.show("b.FindByteVEK(0, 8, 9)", tour.call("FindByteVEK", b, 0, 8, 9));
  tour.show("b.FindNotByteVEK(0, 8, 0)", tour.call("FindNotByteVEK", b, 0, 8, 0));
  tour.show("b.FindBytesVEK(0, 0, t, 0, 0)", tour.call("FindBytesVEK", b, 0, 0, t, 0, 0));
  tour.show("b.FindBytesVEK(3, 0, t, 0, 0)", tour.call("FindBytesVEK", b, 3, 0, t, 0, 0));
  tour.show("b.FindBytesVEK(0, 4, t, 0, 0)", tour.call("FindBytesVEK", b, 0, 4, t, 0, 0));
  tour.show("b.FindBytesVEK(0, 0, t, 1, 0)", tour.call("FindBytesVEK", b, 0, 0, t, 1, 0));
  tour.show("b.FindBytesVEK(8, 0, t, 0, 0)", tour.call("FindBytesVEK", b, 8, 0, t, 0, 0));
  S seven_one = tour.host().newString("\x07\x01", 0x600);
  tour.line("s", quoted("\x07\x01") + " (ASCII)");
  tour.show("b.FindStringVEK(0, 0, s)", tour.call("FindStringVEK", b, 0, 0, seven_one));
  tour.host().release(seven_one);
  tour.show("b.FindStringVEK(0, 0, nil)", tour.call("FindStringVEK", b, 0, 0, nullptr));
  tour.show("nil.FindByteVEK(0, 8, 7)", tour.call("FindByteVEK", nullptr, 0, 8, 7));
  tour.raised();
}

void tour_fields(Tour& tour) {
  SimHost& host = tour.host();

  tour.section("text and file-reference fields");
  B b = tour.block(10);
  S abc = host.newString("abc", 0x600);
  S abcdef = host.newString("abcdef", 0x600);
  tour.in_place("b.SetStringVEK(\"abc\", 2)", "SetStringVEK", b, abc, 2);
  tour.in_place("b.SetStringVEK(\"abcdef\", 7)", "SetStringVEK", b, abcdef, 7);
  tour.show("b.GetStringVEK(2, 3)", tour.call("GetStringVEK", b, 2, 3));
  tour.show("b.GetStringVEK(8, 100)", tour.call("GetStringVEK", b, 8, 100));
  tour.show("b.GetStringVEK(10, 5)", tour.call("GetStringVEK", b, 10, 5));
  host.release(abc);
  host.release(abcdef);

  B code = tour.block(10);
  S text = host.newString("TEXT", 0x600);
  S ab = host.newString("ab", 0x600);
  S accented = host.newString("\xC3\xA9t\xC3\xA9", 0x08000100);  // UTF-8
  // Each code assigned, then read back.
  const struct {
    int32_t offset;
    S code;
    const char* label;
  } assignments[] = {{0, text, "\"TEXT\""}, {0, ab, "\"ab\""}, {4, accented, "\"été\" (UTF-8)"}, {7, text, "\"TEXT\""}};
  for (const auto& [offset, assigned, label] : assignments) {
    tour.set("OSTypeVEK", code, offset, assigned);
    const std::string call = "b.OSTypeVEK(" + std::to_string(offset) + ")";
    tour.dump((call + " = " + label).c_str(), code);
    tour.show(call.c_str(), tour.call("OSTypeVEK", code, offset));
  }
  host.release(text);
  host.release(ab);
  host.release(accented);

  std::array<uint8_t, 70> record{};
  for (size_t i = 0; i < record.size(); ++i) record[i] = static_cast<uint8_t>(i + 1);
  F item = host.newFolderItem(record);
  B spec = tour.block(70);
  tour.set("FSSpecVEK", spec, 0, item);
  tour.dump("s.FSSpecVEK(0) = f", spec);
  F read = tour.call("FSSpecVEK", spec, 0);
  tour.line("s.FSSpecVEK(0)", read != nullptr && host.spec(read) == record ? "a FolderItem of the same record" : "nil");
  host.adopt(read);
  host.release(read);
  B short_spec = tour.block(69);
  F none = tour.call("FSSpecVEK", short_spec, 0);
  tour.line("(69 bytes).FSSpecVEK(0)", none != nullptr ? "a FolderItem" : "nil");
  host.release(item);
  tour.show("nil.GetStringVEK(0, 4)", tour.call("GetStringVEK", nullptr, 0, 4));
}
}  // namespace

void tour_search_fields(Tour& tour) {
  tour_search(tour);
  tour_fields(tour);
}
