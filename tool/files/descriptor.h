// An open file, read and written without a stream in between: bands go straight to their memory.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstddef>
#include <span>
#include <utility>

namespace rast::tool {

class Descriptor {
 public:
  // A negative number stands for none.
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  explicit operator bool() const { return number_ >= 0; }
  int number() const { return number_; }

  // These report failures in errno and repeat interrupted calls.
  // The number of bytes read, at most `size`; 0 at the end, -1 after a failure.
  ssize_t read(void* data, std::size_t size) const noexcept;
  // Writes the parts one after the other, to the last byte, and changes their records.
  bool write(std::span<iovec> parts) const noexcept;
  bool write(const void* data, std::size_t size) const noexcept;
  bool writeAt(off_t offset, const void* data, std::size_t size) const noexcept;
  bool close() noexcept { return number_ < 0 || ::close(std::exchange(number_, -1)) == 0; }

 private:
  int number_;
};

}  // namespace rast::tool
