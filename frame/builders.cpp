#include "frame/builders.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/host_services.h"

namespace {
REALstring build_string(const uint8_t* bytes, int64_t length, uint32_t encoding, uint16_t*& scratch);

// Steps after the message string exists; it is given back here.
void raise_with_text(const char* exceptionClassName, REALstring text) {
  REALobject exception = REALnewInstance(exceptionClassName);
  if (exception == nullptr) exception = REALnewInstance("RuntimeException");
  if (exception != nullptr) {
    REALSetPropValueString(exception, "Message", text);
    REALSetPropValueInteger(exception, "ErrorNumber", 0);
    REALRaiseException(exception);
    REALUnlockObject(exception);  // the host keeps its own reference while raising
  }
  if (text != nullptr) REALUnlockString(text);
}

// The string builder's own failure report. Its message is built without the
// builder's catch, so a host that fails every string cannot recurse: the
// exception is then raised without a message.
void raise_string_allocation_failure() {
  static const char message[] = "Failed to allocate memory for a string.";
  REALstring text = nullptr;
  uint16_t* scratch = nullptr;
  try {
    text = build_string(reinterpret_cast<const uint8_t*>(message), sizeof message - 1, kEncodingASCII, scratch);
  } catch (const std::bad_alloc&) {
    text = nullptr;
  }
  raise_with_text("OutOfMemoryException", text);
}
}  // namespace

void RaiseException(const char* exceptionClassName, const char* message) {
  REALstring text = nullptr;
  if (message != nullptr) text = REALBuildUnicodeString(message, std::strlen(message), kEncodingASCII);
  raise_with_text(exceptionClassName, text);
}

bool refuse_nil_block_or_negative_offset(REALmemoryBlock block, int32_t offset) {
  if (block == nullptr) {
    RaiseException("NilObjectException", "memoryblock is nil");
    return true;
  }
  if (offset < 0) {
    RaiseException("UnsupportedOperationException", "offset < 0");
    return true;
  }
  return false;
}

namespace {
void raise_block_allocation_failure(int32_t size) {
  char message[200];
  std::snprintf(message, sizeof message, "Failed to allocate a memoryblock with %lld bytes in size.",
                static_cast<long long>(size));
  RaiseException("OutOfMemoryException", message);
}

REALmemoryBlock new_block_with_copy(const void* data, int32_t size) {
  if (size == 0x7FFFFFFF) return nullptr;  // the host could not address its last byte
  REALmemoryBlock block = REALNewMemoryBlockOriginal(size);
  if (block == nullptr) return nullptr;
  void* storage = REALMemoryBlockGetPtr(block);
  if (storage == nullptr) {
    REALUnlockObject(as_object(block));
    return nullptr;
  }
  std::memcpy(storage, data, static_cast<size_t>(size));
  return block;
}
}  // namespace

REALmemoryBlock REALBuildMemoryblock(const void* data, int32_t size) {
  if (data == nullptr || size < 1) return nullptr;
  REALmemoryBlock block = nullptr;
  try {
    block = new_block_with_copy(data, size);
    if (block == nullptr) raise_block_allocation_failure(size);
  } catch (const std::bad_alloc&) {
    raise_block_allocation_failure(size);
    block = nullptr;
  }
  return block;
}

namespace {
// The source converted to UTF-8; the source is given back on every path, also
// when the conversion throws.
REALstring convert_to_utf8(REALstring source) {
  REALstring utf8 = nullptr;
  try {
    utf8 = REALConvertString(source, kEncodingUTF8);  // asked even for a nil source
  } catch (...) {
    if (source != nullptr) REALUnlockString(source);
    throw;
  }
  if (source != nullptr) REALUnlockString(source);
  return utf8;
}
}  // namespace

REALstring REALBuildUnicodeStringUTF16(const void* data, int64_t length) {
  auto length32 = static_cast<int32_t>(length);
  if (host_from(kHost2012)) return convert_to_utf8(REALBuildStringWithEncoding(data, length32, kEncodingUTF16));
  REALstring utf16 = originalREALBuildString(data, length32);
  if (utf16 == nullptr) return nullptr;
  REALSetStringEncoding(utf16, kEncodingUTF16);
  return convert_to_utf8(utf16);
}

namespace {
// UTF-32 to UTF-16 in host byte order, for hosts that cannot build UTF-32
// strings themselves. Lone surrogates are dropped and code points beyond
// Unicode become U+FFFD. Returns the number of UTF-16 units written, then a
// terminating zero unit that is not counted.
size_t utf32_to_utf16(const uint8_t* data, size_t units, uint16_t* out) {
  size_t n = 0;
  for (size_t i = 0; i < units; ++i) {
    uint32_t u;
    std::memcpy(&u, data + 4 * i, 4);
    if (u <= 0xFFFF && u >= 0xD800 && u <= 0xDFFF) continue;
    if (u <= 0xFFFF) {
      out[n++] = static_cast<uint16_t>(u);
    } else if (u < 0x110000) {
      out[n++] = static_cast<uint16_t>(0xD800 + ((u - 0x10000) >> 10));
      out[n++] = static_cast<uint16_t>(0xDC00 | ((u - 0x10000) & 0x3FF));
    } else {
      out[n++] = 0xFFFD;
    }
  }
  out[n] = 0;
  return n;
}

constexpr int64_t kLocalUTF32Bytes = 799;  // up to this, no allocation

REALstring build_from_utf32_locally(const uint8_t* data, int64_t length, uint16_t*& scratch) {
  auto units = static_cast<size_t>(length / 4);
  size_t capacity = 2 * units + 1;  // a pair per code point, and the terminator
  uint16_t local[2 * (kLocalUTF32Bytes / 4) + 1];
  uint16_t* buffer = local;
  if (length > kLocalUTF32Bytes) {
    if (capacity * sizeof(uint16_t) > 0x7FFFFFFF) return nullptr;
    scratch = static_cast<uint16_t*>(std::calloc(capacity, sizeof(uint16_t)));
    if (scratch == nullptr) return nullptr;
    buffer = scratch;
  }
  size_t written = utf32_to_utf16(data, units, buffer);
  REALstring result = REALBuildUnicodeStringUTF16(buffer, static_cast<int64_t>(written * 2));
  std::free(scratch);
  scratch = nullptr;
  return result;
}

bool all_below_0x80(const uint8_t* data, int64_t length) {
  for (int64_t i = 0; i < length; ++i) {
    if (data[i] >= 0x80) return false;
  }
  return true;
}
}  // namespace

namespace {
REALstring build_string(const uint8_t* bytes, int64_t length, uint32_t encoding, uint16_t*& scratch) {
  if (encoding == kEncodingUTF16) return REALBuildUnicodeStringUTF16(bytes, length);
  if (encoding == kEncodingUTF32) {
    if (!host_from(kHost2013)) return build_from_utf32_locally(bytes, length, scratch);
    return convert_to_utf8(REALBuildStringWithEncoding(bytes, static_cast<int32_t>(length), kEncodingUTF32));
  }
  if ((encoding == kEncodingMacRoman || encoding == kEncodingWindowsLatin1 || encoding == kEncodingUnknown) &&
      all_below_0x80(bytes, length)) {
    encoding = kEncodingASCII;
  }
  REALstring string = originalREALBuildString(bytes, static_cast<int32_t>(length));
  if (string == nullptr) return nullptr;
  REALSetStringEncoding(string, encoding);
  return string;
}
}  // namespace

REALstring REALBuildUnicodeString(const void* data, int64_t length, uint32_t encoding) {
  if (data == nullptr || length <= 0 || length >= 0x80000000LL) return nullptr;
  uint16_t* scratch = nullptr;  // the UTF-32 path's buffer, freed here when a host service throws
  try {
    return build_string(static_cast<const uint8_t*>(data), length, encoding, scratch);
  } catch (const std::bad_alloc&) {
    std::free(scratch);
    raise_string_allocation_failure();
    return nullptr;
  }
}
