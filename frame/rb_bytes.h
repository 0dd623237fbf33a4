// rbBytes: the bytes of a host block or string, pinned for one call.
//
// Over a block it holds a reference (REALLockObject) and exposes the data
// pointer and the size; a negative size reads as 0, and a block without data
// gives a null pointer and 0 while staying pinned. Over a string it exposes
// the string's own bytes in its own encoding, with no terminator. Whatever it
// pinned is given back when it goes out of scope, on every exit path.
#pragma once

#include <cstdint>

#include "frame/rb_handles.h"

class rbBytes {
 public:
  explicit rbBytes(REALmemoryBlock block);
  explicit rbBytes(REALstring string);
  ~rbBytes();
  rbBytes(const rbBytes&) = delete;
  rbBytes& operator=(const rbBytes&) = delete;

  uint8_t* data() const { return data_; }
  int32_t size() const { return size_; }

 private:
  REALstring held_string_ = nullptr;
  REALobject held_object_ = nullptr;
  uint8_t* data_ = nullptr;
  int32_t size_ = 0;
};

// Old hosts keep a string's text one byte after the buffer pointer in the
// second word of the string record, and its length in the fourth word.
const uint8_t* host_string_record_text(REALstring string, int32_t* length);
