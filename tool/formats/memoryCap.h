// The memory that a job may use.
#pragma once

#include <cstdint>

namespace rast::tool {

class MemoryCap {
 public:
  // The part of the cap that the program and the libraries for page files use.
  static constexpr std::uint64_t kForOthers = std::uint64_t{16} << 20;

  static constexpr std::uint64_t kLeast = std::uint64_t{20} << 20;
  static constexpr std::uint64_t kUsual = std::uint64_t{256} << 20;

  // In bytes, for the whole process; at least kLeast.
  explicit constexpr MemoryCap(std::uint64_t bytes = kUsual) : bytes_(bytes) {}

  std::uint64_t bytes() const { return bytes_; }
  // For all lines in work.
  std::uint64_t forLines() const { return bytes_ - kForOthers; }

  // The least cap, in MiB, that leaves `lineBytes` bytes for lines.
  static constexpr std::uint64_t megabytesFor(std::uint64_t lineBytes) {
    constexpr unsigned megabyte = 20;  // as a power of two
    return ((lineBytes + kForOthers - 1) >> megabyte) + 1;
  }

 private:
  std::uint64_t bytes_;
};

}  // namespace rast::tool
