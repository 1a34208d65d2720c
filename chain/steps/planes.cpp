#include "steps/planes.h"

#include <cstring>

namespace rast::chain {

void copyPlanes(const Planes& from, const Planes& to, std::size_t bytes) {
  for (std::size_t c = 0; c < from.count; ++c) std::memcpy(to.at[c], from.at[c], bytes);
}

RastPlaneSet planeSet(const Planes& in, const Planes& out, std::size_t gray) {
  RastPlaneSet set = {};
  set.nSize = INT32_MAX;
  const std::size_t first = in.count == 1 ? gray : 0;
  for (std::size_t c = 0; c < in.count; ++c) {
    set.pIn[first + c] = in.at[c];
    set.pOut[first + c] = out.at[c];
  }
  return set;
}

RastArea wholeArea(std::uint32_t width, std::uint32_t lines) {
  const auto columns = static_cast<std::int32_t>(width);
  return {columns, 0, columns, 0, static_cast<std::int32_t>(lines)};
}

}  // namespace rast::chain
