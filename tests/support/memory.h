// Memory for tests that compare two runs byte for byte: equal slots with a protected page on both
// sides of each, so that a read or write outside a slot ends the test at once.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "support/random.h"

namespace rast::test {

class Memory {
 public:
  /// `slotSize` is rounded up to whole pages.
  Memory(size_t slots, size_t slotSize)
      : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
        slots_(slots),
        slotSize_((slotSize + page_ - 1) / page_ * page_),
        mapped_(page_ + slots * (slotSize_ + page_)) {
    void* base = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) throw std::runtime_error("mmap failed");
    base_ = static_cast<uint8_t*>(base);
    for (size_t i = 0; i < slots_; ++i) {
      if (mprotect(slot(i), slotSize_, PROT_READ | PROT_WRITE) != 0) {
        throw std::runtime_error("mprotect failed");
      }
    }
  }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() { munmap(base_, mapped_); }

  uint8_t* slot(size_t i) const { return base_ + page_ + i * (slotSize_ + page_); }
  size_t slots() const { return slots_; }
  size_t slotSize() const { return slotSize_; }

  void fill(Random& random) {
    for (size_t i = 0; i < slots_; ++i) random.fill(slot(i), slotSize_);
  }

  void copyFrom(const Memory& other) {
    for (size_t i = 0; i < slots_; ++i) memcpy(slot(i), other.slot(i), slotSize_);
  }

  friend bool operator==(const Memory& a, const Memory& b) {
    for (size_t i = 0; i < a.slots_; ++i) {
      if (memcmp(a.slot(i), b.slot(i), a.slotSize_) != 0) return false;
    }
    return true;
  }

 private:
  size_t page_;
  size_t slots_;
  size_t slotSize_;
  size_t mapped_;
  uint8_t* base_;
};

}  // namespace rast::test
