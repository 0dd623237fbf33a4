// Text for the simulated host: conversion between the host's encodings and
// the printable forms of the ledger's messages.
#include <iconv.h>

#include <bit>
#include <cstdio>

#include "host/sim_host_objects.h"

static_assert(std::endian::native == std::endian::little,
              "host-order UTF-16 and UTF-32 are converted as little-endian");

namespace sim {
namespace {
const char* iconvName(uint32_t encoding) {
  switch (encoding) {
    case kEncodingMacRoman: return "MACINTOSH";
    case kEncodingUTF16: return "UTF-16LE";
    case kEncodingWindowsLatin1: return "CP1252";
    case kEncodingASCII: return "ASCII";
    case kEncodingUTF8: return "UTF-8";
    case kEncodingUTF32: return "UTF-32LE";
    default: return nullptr;
  }
}

}  // namespace

// Text without a stated encoding is taken byte for byte, in either direction.
std::optional<std::string> convertText(std::string_view text, uint32_t from, uint32_t to) {
  if (from == to || from == kEncodingUnknown || to == kEncodingUnknown) return std::string(text);
  const char* fromName = iconvName(from);
  const char* toName = iconvName(to);
  if (fromName == nullptr || toName == nullptr) return std::nullopt;
  iconv_t converter = iconv_open(toName, fromName);
  if (converter == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
  std::string out(text.size() * 4, '\0');  // no source unit grows past four bytes
  char* in = const_cast<char*>(text.data());
  size_t inLeft = text.size();
  char* outNext = out.data();
  size_t outLeft = out.size();
  const size_t result = inLeft == 0 ? 0 : iconv(converter, &in, &inLeft, &outNext, &outLeft);
  iconv_close(converter);
  if (result == static_cast<size_t>(-1)) return std::nullopt;  // unmappable or malformed
  out.resize(out.size() - outLeft);
  return out;
}

std::string hexAddress(const void* address) {
  char text[2 + 2 * sizeof(void*) + 1];
  std::snprintf(text, sizeof text, "%p", address);
  return text;
}

std::string printable(std::string_view bytes) {
  constexpr size_t kShown = 40;
  std::string out;
  for (unsigned char c : bytes.substr(0, kShown)) {
    if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
      out += static_cast<char>(c);
    } else {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
      out += escaped;
    }
  }
  if (bytes.size() > kShown) out += "...";
  return out;
}

}  // namespace sim
