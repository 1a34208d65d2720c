// What every operation stands on: line addressing and the checks that operations share.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "rast.h"

namespace rast {

/// 32-bit addition that wraps, as the interface's arithmetic does.
constexpr int32_t wrappingAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

/// Byte offset of line `r` of the rectangle from each plane's pointer. The 32-bit value wraps and is
/// then applied signed, so a line above or left of the pointer is reached by a negative offset.
constexpr ptrdiff_t lineOffset(const RastArea& area, int32_t r) {
  const auto line = static_cast<uint32_t>(wrappingAdd(area.nStartY, r));
  const auto start = static_cast<uint32_t>(area.nStartX);
  return static_cast<int32_t>(line * static_cast<uint32_t>(area.nLineWidth) + start);
}

/// The line-fit check: the rectangle's right edge lies within the pitch.
constexpr bool fitsLine(const RastArea& area) {
  return area.nLineWidth >= wrappingAdd(area.nStartX, area.nWidth);
}

/// The extent check: pitch, width and height are all positive.
constexpr bool hasExtent(const RastArea& area) {
  return area.nLineWidth >= 1 && area.nWidth >= 1 && area.nHeight >= 1;
}

}  // namespace rast
