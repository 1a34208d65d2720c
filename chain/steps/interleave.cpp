#include "steps/interleave.h"

#include "lines/lines.h"

namespace rast::chain {

void splitLines(const std::uint8_t* pixels, const Planes& planes, std::size_t count) {
  const auto& [a, b, c, d] = planes.at;
  if (planes.count == 3) {
    lines()->split3({{pixels}, {a, b, c}, count});
  } else {
    lines()->split4({{pixels}, {a, b, c, d}, count});
  }
}

void joinLines(const Planes& planes, std::uint8_t* pixels, std::size_t count) {
  const auto& [a, b, c, d] = planes.at;
  if (planes.count == 3) {
    lines()->join3({{a, b, c}, {pixels}, count});
  } else {
    lines()->join4({{a, b, c, d}, {pixels}, count});
  }
}

}  // namespace rast::chain
