// The random source of the tests: seeded, and the same on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>

namespace rast::test {

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}

  /// A whole number in lowest .. highest.
  ptrdiff_t pick(ptrdiff_t lowest, ptrdiff_t highest) {
    const auto span = static_cast<uint64_t>(highest - lowest) + 1;
    return lowest + static_cast<ptrdiff_t>(engine_() % span);
  }

  /// True once in `n` times.
  bool oneIn(ptrdiff_t n) { return pick(1, n) == 1; }

  void fill(void* memory, size_t size) {
    auto* bytes = static_cast<uint8_t*>(memory);
    while (size > 0) {
      const uint64_t word = engine_();
      const size_t n = size < sizeof word ? size : sizeof word;
      memcpy(bytes, &word, n);
      bytes += n;
      size -= n;
    }
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace rast::test
