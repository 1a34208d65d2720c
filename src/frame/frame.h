// Line addressing and the checks that operations share.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "frame/rows.h"
#include "rast.h"

namespace rast {

/// 32-bit addition that wraps, as the interface's arithmetic does.
constexpr int32_t wrappingAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

/// 32-bit subtraction that wraps.
constexpr int32_t wrappingSubtract(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

/// 32-bit multiplication that wraps.
constexpr int32_t wrappingMultiply(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

/// Byte offset of line `r` of the rectangle from each plane's pointer. The 32-bit value wraps and
/// is then applied signed, so a line above or left of the pointer is reached by a negative offset.
constexpr ptrdiff_t lineOffset(const RastArea& area, int32_t r) {
  const int32_t line = wrappingMultiply(wrappingAdd(area.nStartY, r), area.nLineWidth);
  return wrappingAdd(line, area.nStartX);
}

/// Calls `work` with the offset of each line, top to bottom.
template <class Work>
void eachLine(const RastArea& area, Work work) {
  for (int32_t r = 0; r < area.nHeight; ++r) work(lineOffset(area, r));
}

/// The color planes of a call, as they were before anything was written.
struct ColorPlanes {
  const uint8_t* in[3];
  uint8_t* out[3];

  explicit ColorPlanes(const RastPlaneSet& set)
      : in{set.pIn[0], set.pIn[1], set.pIn[2]}, out{set.pOut[0], set.pOut[1], set.pOut[2]} {}
};

/// True when all six color planes are there.
constexpr bool hasColorPlanes(const RastPlaneSet& set) {
  return set.pIn[0] && set.pIn[1] && set.pIn[2] && set.pOut[0] && set.pOut[1] && set.pOut[2];
}

/// The row that starts at offset `line` of each plane.
template <size_t N>
Row<N> rowOf(const uint8_t* const (&in)[N], uint8_t* const (&out)[N], ptrdiff_t line,
             int32_t width) {
  Row<N> row;
  for (size_t k = 0; k < N; ++k) {
    row.in[k] = in[k] + line;
    row.out[k] = out[k] + line;
  }
  row.width = static_cast<size_t>(width);
  return row;
}

inline ColorRow rowOf(const ColorPlanes& planes, ptrdiff_t line, int32_t width) {
  return rowOf(planes.in, planes.out, line, width);
}

constexpr uint8_t clampToSample(int32_t v) {
  return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
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
