// Buffers for kernel tests: `size` bytes whose last byte sits right before a
// page that faults when touched (or whose first byte sits right after one),
// so that a kernel reading or writing one byte outside its range faults.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "host/os.h"

enum class GuardSide { After, Before };

class GuardedBuffer {
 public:
  GuardedBuffer(size_t size, GuardSide side = GuardSide::After) : size_(size) {
    const size_t page = os::page_size();
    const size_t data_pages = (size + page - 1) / page;
    length_ = (data_pages + 1) * page;
    base_ = static_cast<uint8_t*>(os::reserve_pages(length_));
    uint8_t* first = side == GuardSide::After ? base_ : base_ + page;
    if (base_ == nullptr || (data_pages != 0 && !os::open_pages(first, data_pages * page))) {
      throw std::runtime_error("no pages for a guarded buffer");
    }
    data_ = side == GuardSide::After ? first + data_pages * page - size : first;
  }
  ~GuardedBuffer() { os::release_pages(base_, length_); }
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }

 private:
  uint8_t* base_ = nullptr;
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
  size_t length_ = 0;
};
