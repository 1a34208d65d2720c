// Random rectangles, and planes placed so that every line of the rectangle lies in a slot.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frame/frame.h"
#include "support/memory.h"
#include "support/random.h"

namespace rast::test {

struct Geometry {
  RastArea area;
  ptrdiff_t lowest;  // offset of the rectangle's lowest byte from a plane's pointer
  ptrdiff_t extent;  // from the lowest byte to the one past the highest

  explicit Geometry(const RastArea& a) : area(a), lowest(lineOffset(a, 0)) {
    ptrdiff_t highest = lowest;
    for (int32_t r = 1; r < a.nHeight; ++r) {
      lowest = std::min(lowest, lineOffset(a, r));
      highest = std::max(highest, lineOffset(a, r));
    }
    extent = highest + std::max(a.nWidth, 0) - lowest;
  }
};

/// A rectangle of up to `maxWidth` x 4: mostly apart in its pitch, sometimes with lines that touch
/// or overlap one another, which a negative start lets through the line-fit check.
inline Geometry randomGeometry(Random& random, ptrdiff_t maxWidth) {
  RastArea area;
  area.nWidth = static_cast<int32_t>(random.pick(1, maxWidth));
  area.nHeight = static_cast<int32_t>(random.pick(1, 4));
  area.nStartX =
      static_cast<int32_t>(random.oneIn(8) ? -random.pick(1, 2 * area.nWidth) : random.pick(0, 20));
  area.nStartY = static_cast<int32_t>(random.pick(-3, 3));
  const int32_t tightest = std::max(1, area.nStartX + area.nWidth);
  area.nLineWidth = static_cast<int32_t>(tightest + (random.oneIn(2) ? random.pick(0, 80) : 0));
  return Geometry(area);
}

/// The offset, within a slot, of a plane's first used byte: against either protected page, or
/// anywhere.
inline ptrdiff_t randomPlace(Random& random, const Geometry& geometry, size_t slotSize) {
  const auto last = static_cast<ptrdiff_t>(slotSize) - geometry.extent;
  switch (random.pick(0, 2)) {
    case 0:
      return 0;
    case 1:
      return last;
    default:
      return random.pick(0, last);
  }
}

}  // namespace rast::test
