#include "frame/rb_text.h"

#include <cstdlib>
#include <cstring>

#include "frame/host_services.h"
#include "frame/rb_bytes.h"

namespace {
constexpr uint8_t kEmptyText[16] = {};
}

rbText::rbText(REALstring string, Source source) : data_(kEmptyText) {
  source_ = string;
  switch (source) {
    case Source::Direct:
      direct_ = true;
      [[fallthrough]];
    case Source::Pinned:
      owns_source_ = string != nullptr && REALLockString(string);
      break;
    case Source::Adopted:
      owns_source_ = true;
      conversion_failed_ = string == nullptr;
      break;
  }
}

rbText::~rbText() {
  if (source_ != nullptr && owns_source_) REALUnlockString(source_);
  if (converted_ != nullptr) REALUnlockString(converted_);
  if (record_held_) REALDisposeStringData(&record_);
  std::free(owned_copy_);
}

const uint8_t* rbText::macRomanData() {
  if (length_ == -1) ConvertMacRoman();
  return data_;
}

int32_t rbText::macRomanLength() {
  if (length_ == -1) ConvertMacRoman();
  return length_;
}

// A host that hands out no bytes, or a negative count, gives empty text.
void rbText::keep_text_or_empty() {
  if (data_ == nullptr || length_ < 0) {
    data_ = kEmptyText;
    length_ = 0;
  }
}

void rbText::ConvertMacRoman() {
  length_ = 0;
  data_ = kEmptyText;
  if (source_ == nullptr) return;

  if (direct_) {  // the string's own bytes, no copy
    if (host_from(kHost2012)) {
      data_ = REALGetStringContents(source_, &length_);
      record_held_ = false;
    } else {
      data_ = host_string_record_text(source_, &length_);
    }
    keep_text_or_empty();
    return;
  }

  if (host_from(kHost2012)) {
    if (REALGetStringData(source_, kEncodingMacRoman, &record_)) {
      record_held_ = true;
      length_ = static_cast<int32_t>(record_.length);
      data_ = static_cast<const uint8_t*>(record_.data);
    } else {
      conversion_failed_ = true;
    }
  } else {
    converted_ = REALConvertString(source_, kEncodingMacRoman);
    if (converted_ != nullptr) {
      data_ = host_string_record_text(converted_, &length_);
    } else {
      conversion_failed_ = true;
    }
  }

  keep_text_or_empty();
  // Callers rely on a terminator; copy the text when the host's has none.
  if (data_[length_] != 0) {
    int64_t copy_size = static_cast<int64_t>(length_) + 4;
    owned_copy_ = copy_size >= 1 && copy_size <= 0x7FFFFFFF
                      ? static_cast<uint8_t*>(std::calloc(static_cast<size_t>(copy_size), 1))
                      : nullptr;
    if (owned_copy_ != nullptr) {
      std::memcpy(owned_copy_, data_, static_cast<size_t>(length_));
      data_ = owned_copy_;
    } else {
      data_ = kEmptyText;
      length_ = 0;
    }
  }
}
