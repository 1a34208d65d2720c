// The places of the two images of an overlay in the output, shared by both overlay operations.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "frame/frame.h"
#include "rast.h"

namespace rast {

enum class Cover { none, base, overlay, both };

/// Consecutive pixels of one line that have the same cover.
struct Run {
  Cover cover;
  size_t length;
};

/// The runs of a line between the left and right margins.
struct Runs {
  Run run[5];
  size_t count = 0;
};

/// A half-open interval of columns or lines.
struct Span {
  int32_t begin;
  int32_t end;

  constexpr Span(int32_t start, int32_t size) : begin(start), end(wrappingAdd(start, size)) {}
  constexpr bool holds(int32_t v) const { return begin <= v && v < end; }
};

struct Placement {
  Span baseColumns;
  Span baseLines;
  Span overlayColumns;
  Span overlayLines;
  int32_t left;
  int32_t right;
  int32_t top;
  int32_t bottom;
  int32_t outWidth;
  int32_t outHeight;

  Placement(const RastArea& area, const RastOverlayParam& param)
      : baseColumns(param.nBaseX, area.nWidth),
        baseLines(param.nBaseY, area.nHeight),
        overlayColumns(param.nOvlX, param.nOvlWidth),
        overlayLines(param.nOvlY, param.nOvlHeight),
        left(lesser(baseColumns.begin, overlayColumns.begin)),
        right(lesser(param.nOutWidth, greater(baseColumns.end, overlayColumns.end))),
        // The base's column is used where its line would be expected: the interface is so.
        top(lesser(baseColumns.begin, overlayLines.begin)),
        bottom(lesser(param.nOutHeight, greater(baseLines.end, overlayLines.end))),
        outWidth(param.nOutWidth),
        outHeight(param.nOutHeight) {}

  Cover coverAt(int32_t x, int32_t y) const {
    const bool inBase = baseColumns.holds(x) && baseLines.holds(y);
    const bool inOverlay = overlayColumns.holds(x) && overlayLines.holds(y);
    if (inBase) return inOverlay ? Cover::both : Cover::base;
    return inOverlay ? Cover::overlay : Cover::none;
  }

  /// Line y as runs: its cover changes at the edges of the rectangles that hold the line, nowhere
  /// else.
  Runs runsOf(int32_t y) const {
    const int32_t edges[] = {baseColumns.begin, baseColumns.end, overlayColumns.begin,
                             overlayColumns.end};
    Runs runs;
    for (int32_t x = left; x < right;) {
      int32_t next = right;
      for (const int32_t edge : edges) {
        if (x < edge && edge < next) next = edge;
      }
      runs.run[runs.count++] = {coverAt(x, y), static_cast<size_t>(int64_t{next} - x)};
      x = next;
    }
    return runs;
  }

  size_t leftMargin() const { return length(left); }
  size_t rightMargin() const { return length(wrappingSubtract(outWidth, right)); }
  size_t wholeLine() const { return length(outWidth); }

 private:
  static constexpr int32_t lesser(int32_t a, int32_t b) { return a < b ? a : b; }
  static constexpr int32_t greater(int32_t a, int32_t b) { return a > b ? a : b; }
  static constexpr size_t length(int32_t v) { return v > 0 ? static_cast<size_t>(v) : 0; }
};

/// The order in which an output is written: `fill(n)` for each margin of n background pixels,
/// `line(y)` for the pixels between the left and right margins of line y.
template <class Fill, class Line>
void compose(const Placement& placement, Fill fill, Line line) {
  int32_t y = 0;
  for (; y < placement.top; ++y) fill(placement.wholeLine());
  for (; y < placement.bottom; ++y) {
    fill(placement.leftMargin());
    line(y);
    fill(placement.rightMargin());
  }
  for (; y < placement.outHeight; ++y) fill(placement.wholeLine());
}

/// The next place to read in an image of N planes, as an offset: an image that does not show need
/// not be there.
template <size_t N>
struct Cursor {
  const uint8_t* planes[N]{};
  uintptr_t offset{};  // wraps, as addresses do

  const uint8_t* at(size_t k = 0) const { return planes[k] + static_cast<ptrdiff_t>(offset); }
  void advance(ptrdiff_t bytes) { offset += static_cast<uintptr_t>(bytes); }
};

/// Offset of the overlay rectangle's first pixel in its image.
inline ptrdiff_t overlayStart(const RastOverlayParam& param) {
  return lineOffset(
      {param.nOvlLineWidth, param.nOvlStartX, param.nOvlWidth, param.nOvlStartY, param.nOvlHeight},
      0);
}

}  // namespace rast
