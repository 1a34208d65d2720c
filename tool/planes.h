// Lines as planes, which the library works on, and their way from page files and back.
#ifndef RAST_TOOL_PLANES_H
#define RAST_TOOL_PLANES_H

#include <rast.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "page.h"

using Bytes = std::unique_ptr<std::uint8_t[]>;

// Left uninitialised, so that a header that promises much costs nothing until samples arrive.
inline Bytes makeBytes(std::size_t size) {
  return std::make_unique_for_overwrite<std::uint8_t[]>(size);
}

// One plane of gray samples, three planes of one component each, or one of pixels R G B.
enum class Layout { gray, planar, interleaved };

constexpr std::size_t planeCount(Layout layout) { return layout == Layout::planar ? 3 : 1; }
constexpr std::size_t pixelBytes(Layout layout) { return layout == Layout::interleaved ? 3 : 1; }

// Packed lines: where the first one starts in each plane.
struct Planes {
  Layout layout;
  std::uint8_t* at[3];

  Planes(Layout planesLayout, std::uint8_t* first, std::size_t planeBytes) : layout(planesLayout) {
    for (std::size_t c = 0; c < 3; ++c) {
      at[c] = c < planeCount(layout) ? first + c * planeBytes : nullptr;
    }
  }
  void advance(std::size_t bytes) {
    for (std::size_t c = 0; c < planeCount(layout); ++c) at[c] += bytes;
  }
};

// All of the planes, with a gray one at its index.
RastPlaneSet planeSet(const Planes& in, const Planes& out, std::size_t gray);

// All lines of packed planes.
inline RastArea wholeArea(std::uint32_t width, std::uint32_t lines) {
  const auto columns = static_cast<std::int32_t>(width);
  return {columns, 0, columns, 0, static_cast<std::int32_t>(lines)};
}

// Takes lines from a page, or gives them to one, with the buffer that this takes. Colour is
// converted to gray where the planes are gray.
class Transfer {
 public:
  // For so many lines at most at a time, of a page like this one or smaller.
  Transfer(const PageHead& head, std::uint32_t lines)
      : stored_(head.colour ? makeBytes(lines * head.lineBytes()) : nullptr) {}

  void read(PageReader& reader, const Planes& planes, std::uint32_t lines);
  void write(PageWriter& writer, const PageHead& head, const Planes& planes, std::uint32_t lines);

 private:
  Bytes stored_;  // colour only
};

#endif
