// Text and file-reference fields: GetStringVEK and SetStringVEK read and
// write a run of bytes as a string, OSTypeVEK reads and assigns a
// four-character code, FSSpecVEK reads and assigns a 70-byte FSSpec record
// (a classic file reference) that the host makes from, or turns into, a FolderItem.
//
// On a 10-byte block of zeros (little-endian machine):
//   SetStringVEK("abc", 2)     -> 00 00 61 62 63 00 00 00 00 00
//   GetStringVEK(2, 3)         -> "abc";   GetStringVEK(8, 100) -> the 2 bytes at 8 and 9
//   OSTypeVEK(0) = "ab"        -> 20 20 62 61 ...  (the code "ab  ", first character
//                                 most significant in a 32-bit value)
//   OSTypeVEK(0)               -> "ab  "
// Nothing is raised. A refused call gives nil or changes nothing, a nil
// receiver included: it has no bytes to read or write.
//
// A range is bounded by the block's size when the host knows it (above 0):
// one that starts outside is refused; a string run past the end is cut back
// to it, while a code or a record must lie wholly inside. A block of size 0
// (made over a raw address) is trusted with the caller's offset. A block whose
// host reports a negative size is refused.
#include <algorithm>
#include <cstring>

#include "frame/builders.h"
#include "frame/entry_points.h"
#include "frame/host_services.h"
#include "frame/ranges.h"
#include "frame/rb_bytes.h"
#include "frame/rb_text.h"

namespace {
constexpr int32_t kCodeBytes = 4;
constexpr int32_t kSpecBytes = 70;  // a classic FSSpec record

uint8_t* block_data(REALmemoryBlock block) { return static_cast<uint8_t*>(REALMemoryBlockGetPtr(block)); }

// Whether a field of `width` bytes at `offset` lies wholly inside a block.
bool field_fits(int32_t size, int32_t offset, int32_t width) {
  return offset >= 0 && vek::run_refusing_negative_size(size, offset, width) == width;
}
}  // namespace

// -- GetStringVEK, SetStringVEK -------------------------------------------------

REALstring getString(REALmemoryBlock block, int32_t offset, int32_t numBytes) {
  if (block == nullptr) return nullptr;
  if (offset < 0 || numBytes < 0) return nullptr;
  int64_t count = vek::run_refusing_negative_size(REALMemoryBlockGetSize(block), offset, numBytes);
  if (count <= 0) return nullptr;  // also what building no bytes gives
  const uint8_t* data = block_data(block);
  if (data == nullptr) return nullptr;
  return REALBuildUnicodeString(data + offset, count, kEncodingUnknown);  // plain ASCII comes back as ASCII
}

void setString(REALmemoryBlock block, REALstring str, int32_t offset) {
  if (block == nullptr) return;
  int32_t size = REALMemoryBlockGetSize(block);
  if (str == nullptr) return;
  rbBytes text(str);  // its own bytes in its own encoding; no terminator is written
  if (text.size() <= 0 || text.data() == nullptr) return;
  if (offset < 0) return;
  int64_t count = vek::run_refusing_negative_size(size, offset, text.size());
  if (count <= 0) return;
  uint8_t* data = block_data(block);
  if (data == nullptr) return;
  std::memmove(data + offset, text.data(), static_cast<size_t>(count));
}

// -- OSTypeVEK -------------------------------------------------------------------
// The code is a 32-bit value in the machine's byte order whose most
// significant byte is the first character.

REALstring getOSType(REALmemoryBlock block, int32_t offset) {
  if (block == nullptr) return nullptr;
  if (!field_fits(REALMemoryBlockGetSize(block), offset, kCodeBytes)) return nullptr;
  const uint8_t* data = block_data(block);
  if (data == nullptr) return nullptr;
  uint32_t code;
  std::memcpy(&code, data + offset, sizeof code);
  const uint8_t characters[kCodeBytes] = {static_cast<uint8_t>(code >> 24), static_cast<uint8_t>(code >> 16),
                                          static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code)};
  bool plain = std::all_of(characters, characters + kCodeBytes, [](uint8_t c) { return c < 0x80; });
  return REALBuildUnicodeString(characters, kCodeBytes, plain ? kEncodingASCII : kEncodingMacRoman);
}

namespace {
// The string whose Mac Roman bytes make the code, and how the rbText is to
// hold it. Bytes of no stated encoding are taken as Mac Roman: plain ASCII as
// it is, anything else through a new string labelled Mac Roman.
struct CodeText {
  REALstring string;
  rbText::Source source;
};

CodeText code_text(REALstring value) {
  if (REALGetStringEncoding(value) != kEncodingUnknown) return {value, rbText::Source::Pinned};
  rbBytes bytes(value);  // given back before the conversion
  const uint8_t* data = bytes.data();
  int32_t count = data != nullptr ? bytes.size() : 0;
  if (count <= 0 || std::all_of(data, data + count, [](uint8_t b) { return b < 0x80; })) {
    return {value, rbText::Source::Direct};
  }
  if (int64_t{count} + 3 >= 0x7FFFFFFF) return {nullptr, rbText::Source::Adopted};
  return {REALBuildUnicodeString(data, count, kEncodingMacRoman), rbText::Source::Adopted};
}
}  // namespace

void setOSType(REALmemoryBlock block, int32_t offset, REALstring value) {
  if (block == nullptr) return;
  if (!field_fits(REALMemoryBlockGetSize(block), offset, kCodeBytes)) return;
  uint8_t characters[kCodeBytes] = {' ', ' ', ' ', ' '};  // a short or missing text is padded with spaces
  if (value != nullptr) {
    CodeText source = code_text(value);
    rbText text(source.string, source.source);
    int32_t n = text.macRomanLength();
    if (n > 0) std::memcpy(characters, text.macRomanData(), static_cast<size_t>(std::min(n, kCodeBytes)));
  }
  uint8_t* data = block_data(block);
  if (data == nullptr) return;
  uint32_t code = uint32_t{characters[0]} << 24 | uint32_t{characters[1]} << 16 | uint32_t{characters[2]} << 8 |
                  characters[3];
  std::memcpy(data + offset, &code, sizeof code);
}

// -- FSSpecVEK ---------------------------------------------------------------------
// The record is the host's to read and fill; the plug-in only finds it.

REALfolderItem getFSSpec(REALmemoryBlock block, int32_t offset) {
  if (block == nullptr) return nullptr;
  if (!field_fits(REALMemoryBlockGetSize(block), offset, kSpecBytes)) return nullptr;
  const uint8_t* data = block_data(block);
  if (data == nullptr) return nullptr;
  return REALFolderItemFromFSSpec(data + offset);  // nil when the host lacks the service or makes none
}

void setFSSpec(REALmemoryBlock block, int32_t offset, REALfolderItem value) {
  if (block == nullptr) return;
  if (!field_fits(REALMemoryBlockGetSize(block), offset, kSpecBytes)) return;
  uint8_t* data = block_data(block);
  if (data == nullptr) return;
  REALFSSpecFromFolderItem(data + offset, value);  // a nil value is the host's to refuse
}
