#include "steps/interleave.h"

namespace rast::chain {

void splitLines(const std::uint8_t* pixels, const Planes& planes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t c = 0; c < planes.count; ++c) planes.at[c][i] = *pixels++;
  }
}

void joinLines(const Planes& planes, std::uint8_t* pixels, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t c = 0; c < planes.count; ++c) *pixels++ = planes.at[c][i];
  }
}

}  // namespace rast::chain
