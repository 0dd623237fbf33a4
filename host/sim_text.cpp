// Text for the simulated host: conversion between the host's encodings and
// the printable forms of the ledger's messages.
#include <bit>
#include <cstdio>

#include "host/os.h"
#include "host/sim_host_objects.h"

static_assert(std::endian::native == std::endian::little,
              "host-order UTF-16 and UTF-32 are converted as little-endian");

namespace sim {
namespace {
const char* encodingName(uint32_t encoding) {
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
  const char* fromName = encodingName(from);
  const char* toName = encodingName(to);
  if (fromName == nullptr || toName == nullptr) return std::nullopt;
  return os::convert_text(text, fromName, toName);
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
