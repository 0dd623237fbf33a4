#include <array>
#include <cstdio>
#include <string>

#include "tools/tour.h"

namespace {
using B = REALmemoryBlock;
using S = REALstring;
using F = REALfolderItem;

std::string encoding_name(uint32_t encoding) {
  switch (encoding) {
    case 0x0000: return "Mac Roman";
    case 0x0600: return "ASCII";
    case 0xFFFF: return "no stated encoding";
    case 0x08000100: return "UTF-8";
    default: {
      char code[16];
      std::snprintf(code, sizeof code, "0x%X", encoding);
      return code;
    }
  }
}

// A string as text in quotes, bytes outside printable ASCII as \xNN.
std::string quoted(const std::string& bytes) {
  std::string text = "\"";
  for (unsigned char c : bytes) {
    if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
      text += static_cast<char>(c);
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02X", c);
      text += escape;
    }
  }
  return text + "\"";
}

// A method's string result, taken over, shown and given back.
void show_string(Tour& tour, const char* label, S result) {
  if (result == nullptr) {
    tour.line(label, "nil");
  } else {
    tour.host().adopt(result);
    tour.line(label, quoted(tour.host().text(result)) + " (" + encoding_name(tour.host().encoding(result)) + ")");
    tour.host().release(result);
  }
  tour.raised();
}

void show_number(Tour& tour, const char* label, int64_t value) { tour.line(label, std::to_string(value)); }
void show_truth(Tour& tour, const char* label, bool value) { tour.line(label, value ? "True" : "False"); }

void tour_search(Tour& tour) {
  const LoadedPlugin& plugin = tour.plugin();
  auto equal = plugin.method<bool(B, int32_t, int32_t, B, int32_t)>(
      "BytesEqualVEK(srcOfs as Integer, numBytes as Integer, destBlk as MemoryBlock, destOfs as Integer) as Boolean");
  auto zero = plugin.method<bool(B, int32_t, int32_t)>("BytesZeroVEK(srcOfs as Integer, numBytes as Integer) as Boolean");
  auto find = plugin.method<int32_t(B, int32_t, int32_t, int32_t)>(
      "FindByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer");
  auto find_not = plugin.method<int32_t(B, int32_t, int32_t, int32_t)>(
      "FindNotByteVEK(srcOfs as Integer, numBytes as Integer, byteValue as integer) as integer");
  auto find_string = plugin.method<int32_t(B, int32_t, int32_t, S)>(
      "FindStringVEK(srcOfs as Integer, maxBytes as Integer, target as String) as Integer");
  auto find_bytes = plugin.method<int32_t(B, int32_t, int32_t, B, int32_t, int32_t)>(
      "FindBytesVEK(srcOfs as Integer, maxBytes as Integer, target as MemoryBlock, targOfs as Integer, targLen as "
      "Integer) as Integer");

  tour.section("compare and search");
  B b = tour.block({0, 0, 7, 1, 2, 7, 1, 2});
  B t = tour.block({7, 1, 2});
  tour.dump("b", b);
  tour.dump("t", t);
  show_truth(tour, "b.BytesEqualVEK(3, 2, b, 6)", equal(b, 3, 2, b, 6));
  show_truth(tour, "b.BytesEqualVEK(2, 4, b, 5)", equal(b, 2, 4, b, 5));
  show_truth(tour, "b.BytesZeroVEK(0, 2)", zero(b, 0, 2));
  show_truth(tour, "b.BytesZeroVEK(0, 3)", zero(b, 0, 3));
  show_number(tour, "b.FindByteVEK(3, 5, 7)", find(b, 3, 5, 7));
  show_number(tour, "b.FindByteVEK(0, 8, 263)", find(b, 0, 8, 263));
  show_number(tour, "b.FindByteVEK(0, 8, 9)", find(b, 0, 8, 9));
  show_number(tour, "b.FindNotByteVEK(0, 8, 0)", find_not(b, 0, 8, 0));
  show_number(tour, "b.FindBytesVEK(0, 0, t, 0, 0)", find_bytes(b, 0, 0, t, 0, 0));
  show_number(tour, "b.FindBytesVEK(3, 0, t, 0, 0)", find_bytes(b, 3, 0, t, 0, 0));
  show_number(tour, "b.FindBytesVEK(0, 4, t, 0, 0)", find_bytes(b, 0, 4, t, 0, 0));
  show_number(tour, "b.FindBytesVEK(0, 0, t, 1, 0)", find_bytes(b, 0, 0, t, 1, 0));
  show_number(tour, "b.FindBytesVEK(8, 0, t, 0, 0)", find_bytes(b, 8, 0, t, 0, 0));
  S seven_one = tour.host().newString("\x07\x01", 0x600);
  tour.line("s", quoted("\x07\x01") + " (ASCII)");
  show_number(tour, "b.FindStringVEK(0, 0, s)", find_string(b, 0, 0, seven_one));
  tour.host().release(seven_one);
  show_number(tour, "b.FindStringVEK(0, 0, nil)", find_string(b, 0, 0, nullptr));
  show_number(tour, "nil.FindByteVEK(0, 8, 7)", find(nullptr, 0, 8, 7));
  tour.raised();
}

void tour_fields(Tour& tour) {
  const LoadedPlugin& plugin = tour.plugin();
  auto get_string = plugin.method<S(B, int32_t, int32_t)>("GetStringVEK(offset as Integer, numBytes as Integer) as String");
  auto set_string = plugin.method<void(B, S, int32_t)>("SetStringVEK(str as String, offset as Integer)");
  auto get_code = plugin.method<S(B, int32_t)>("OSTypeVEK(offset as Integer) as String");
  auto set_code = plugin.setter<void(B, int32_t, S)>("OSTypeVEK(offset as Integer) as String");
  auto get_spec = plugin.method<F(B, int32_t)>("FSSpecVEK(offset as Integer) as FolderItem");
  auto set_spec = plugin.setter<void(B, int32_t, F)>("FSSpecVEK(offset as Integer) as FolderItem");
  SimHost& host = tour.host();

  tour.section("text and file-reference fields");
  B b = tour.block(10);
  S abc = host.newString("abc", 0x600);
  S abcdef = host.newString("abcdef", 0x600);
  set_string(b, abc, 2);
  tour.dump("b.SetStringVEK(\"abc\", 2)", b);
  set_string(b, abcdef, 7);
  tour.dump("b.SetStringVEK(\"abcdef\", 7)", b);
  show_string(tour, "b.GetStringVEK(2, 3)", get_string(b, 2, 3));
  show_string(tour, "b.GetStringVEK(8, 100)", get_string(b, 8, 100));
  show_string(tour, "b.GetStringVEK(10, 5)", get_string(b, 10, 5));
  host.release(abc);
  host.release(abcdef);

  B code = tour.block(10);
  S text = host.newString("TEXT", 0x600);
  S ab = host.newString("ab", 0x600);
  S accented = host.newString("\xC3\xA9t\xC3\xA9", 0x08000100);  // UTF-8
  set_code(code, 0, text);
  tour.dump("b.OSTypeVEK(0) = \"TEXT\"", code);
  show_string(tour, "b.OSTypeVEK(0)", get_code(code, 0));
  set_code(code, 0, ab);
  tour.dump("b.OSTypeVEK(0) = \"ab\"", code);
  show_string(tour, "b.OSTypeVEK(0)", get_code(code, 0));
  set_code(code, 4, accented);
  tour.dump("b.OSTypeVEK(4) = \"été\" (UTF-8)", code);
  show_string(tour, "b.OSTypeVEK(4)", get_code(code, 4));
  set_code(code, 7, text);
  tour.dump("b.OSTypeVEK(7) = \"TEXT\"", code);
  show_string(tour, "b.OSTypeVEK(7)", get_code(code, 7));
  host.release(text);
  host.release(ab);
  host.release(accented);

  std::array<uint8_t, 70> record{};
  for (size_t i = 0; i < record.size(); ++i) record[i] = static_cast<uint8_t>(i + 1);
  F item = host.newFolderItem(record);
  B spec = tour.block(70);
  set_spec(spec, 0, item);
  tour.dump("s.FSSpecVEK(0) = f", spec);
  F read = get_spec(spec, 0);
  tour.line("s.FSSpecVEK(0)", read != nullptr && host.spec(read) == record ? "a FolderItem of the same record" : "nil");
  host.adopt(read);
  host.release(read);
  B short_spec = tour.block(69);
  F none = get_spec(short_spec, 0);
  tour.line("(69 bytes).FSSpecVEK(0)", none != nullptr ? "a FolderItem" : "nil");
  host.release(item);
  show_string(tour, "nil.GetStringVEK(0, 4)", get_string(nullptr, 0, 4));
}
}  // namespace

void tour_search_fields(Tour& tour) {
  tour_search(tour);
  tour_fields(tour);
}
