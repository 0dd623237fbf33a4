#include "frame/rb_bytes.h"

#include "frame/host_services.h"

namespace {
struct HostStringRecord {
  intptr_t word0;
  const uint8_t* buffer;  // the text starts one byte further on
  intptr_t word2;
  intptr_t length;
};
}  // namespace

const uint8_t* host_string_record_text(REALstring string, int32_t* length) {
  const auto* record = reinterpret_cast<const HostStringRecord*>(string);
  *length = static_cast<int32_t>(record->length);
  return record->buffer + 1;
}

rbBytes::rbBytes(REALmemoryBlock block) {
  if (block == nullptr) return;
  if (REALLockObject(as_object(block))) held_object_ = as_object(block);  // only a reference taken is given back
  int32_t size = REALMemoryBlockGetSize(block);
  auto* data = static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
  if (data != nullptr) {
    data_ = data;
    size_ = size < 0 ? 0 : size;
  }
}

rbBytes::rbBytes(REALstring string) {
  if (string == nullptr) return;
  if (host_from(kHost2016)) {
    const uint8_t* data = REALGetStringContents(string, &size_);
    data_ = const_cast<uint8_t*>(data);
    if (REALLockString(string)) held_string_ = string;
  } else {
    if (REALLockString(string)) held_string_ = string;
    data_ = const_cast<uint8_t*>(host_string_record_text(string, &size_));
  }
}

rbBytes::~rbBytes() {
  if (held_string_ != nullptr) REALUnlockString(held_string_);
  if (held_object_ != nullptr) REALUnlockObject(held_object_);
}
