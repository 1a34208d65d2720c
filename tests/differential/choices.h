// A byte string read as choices. Any string will do: what is missing reads as 0, and a choice made
// by zero bytes is the simplest one.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <span>

namespace rast::test {

class Choices {
 public:
  explicit Choices(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  /// A whole number in lowest .. highest, the one nearest to 0 where the bytes are.
  template <class T = int32_t>
  T pick(int64_t lowest, int64_t highest) {
    const auto span = static_cast<uint64_t>(highest - lowest);
    const int64_t nearest = std::clamp<int64_t>(0, lowest, highest);
    const auto step = static_cast<int64_t>(number(span) % (span + 1));
    const int64_t above = highest - nearest;
    return static_cast<T>(step <= above ? nearest + step : nearest + above - step);
  }

  /// Any value of a type of at most 32 bits.
  template <class T>
  T any() {
    return pick<T>(std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
  }

  /// True once in `n` times.
  bool oneIn(int32_t n) { return pick(0, n - 1) == n - 1; }

 private:
  uint64_t number(uint64_t highest) {
    uint64_t value = 0;
    for (; highest != 0; highest >>= 8) {
      value = value << 8 | (used_ < bytes_.size() ? bytes_[used_++] : 0U);
    }
    return value;
  }

  std::span<const uint8_t> bytes_;
  size_t used_ = 0;
};

}  // namespace rast::test
