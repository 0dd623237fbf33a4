// Buffers for kernel tests: `size` bytes whose last byte sits right before a
// PROT_NONE page (or whose first byte sits right after one), so that a kernel
// reading or writing one byte outside its range faults.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>

enum class GuardSide { After, Before };

class GuardedBuffer {
 public:
  GuardedBuffer(size_t size, GuardSide side = GuardSide::After) : size_(size) {
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t data_pages = (size + page - 1) / page;
    length_ = (data_pages + 1) * page;
    void* map = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (map == MAP_FAILED) throw std::runtime_error("mmap failed");
    base_ = static_cast<uint8_t*>(map);
    if (side == GuardSide::After) {
      mprotect(base_ + data_pages * page, page, PROT_NONE);
      data_ = base_ + data_pages * page - size;
    } else {
      mprotect(base_, page, PROT_NONE);
      data_ = base_ + page;
    }
  }
  ~GuardedBuffer() { munmap(base_, length_); }
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
