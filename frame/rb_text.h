// rbText: one host string, read as zero-terminated Mac Roman bytes.
//
// The conversion runs on first access and its result is kept until the
// rbText goes out of scope, which gives back the string, any converted string
// and any text record the host lent, and frees any copy it made.
#pragma once

#include <cstdint>

#include "frame/rb_handles.h"
#include "frame/records.h"

class rbText {
 public:
  enum class Source {
    Pinned,   // a string the caller holds: pinned here
    Direct,   // the same, for plain ASCII (or empty) bytes taken as they are
    Adopted,  // a string the caller just built: its reference is taken over
  };

  rbText(REALstring string, Source source);
  ~rbText();
  rbText(const rbText&) = delete;
  rbText& operator=(const rbText&) = delete;

  const uint8_t* macRomanData();
  int32_t macRomanLength();
  bool conversionFailed() const { return conversion_failed_; }

 private:
  void ConvertMacRoman();
  void keep_text_or_empty();

  REALstring source_ = nullptr;
  bool owns_source_ = false;        // a reference of ours to give back: not when the host could not pin it
  REALstring converted_ = nullptr;  // from "REALConvertString" on old hosts
  int32_t length_ = -1;             // -1: not converted yet
  const uint8_t* data_;             // always zero-terminated text
  uint8_t* owned_copy_ = nullptr;
  StringDataRecord record_{};
  bool record_held_ = false;
  bool direct_ = false;
  bool conversion_failed_ = false;
};
