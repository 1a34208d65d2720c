// Lines as planes, which the library works on, and their way from interleaved lines and back.
#ifndef RAST_TOOL_PLANES_H
#define RAST_TOOL_PLANES_H

#include <rast.h>

#include <cstddef>
#include <cstdint>
#include <memory>

using Bytes = std::unique_ptr<std::uint8_t[]>;

// Left uninitialised, so that a header that promises much costs nothing until samples arrive.
inline Bytes makeBytes(std::size_t size) {
  return std::make_unique_for_overwrite<std::uint8_t[]>(size);
}

// One plane of gray samples, three planes of one component each, or one of pixels R G B.
enum class Layout { gray, planar, interleaved };

constexpr Layout planesOf(bool colour) { return colour ? Layout::planar : Layout::gray; }
constexpr std::size_t planeCount(Layout layout) { return layout == Layout::planar ? 3 : 1; }
constexpr std::size_t pixelBytes(Layout layout) { return layout == Layout::interleaved ? 3 : 1; }

// Where the first sample of each plane is.
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

// Memory for lines of a page, as planes that follow each other.
class Lines {
 public:
  Lines(std::uint32_t width, bool colour, std::uint32_t count)
      : planeBytes_(std::size_t{width} * count),
        bytes_(makeBytes(planeBytes_ * planeCount(planesOf(colour)))),
        planes_(planesOf(colour), bytes_.get(), planeBytes_) {}

  const Planes& planes() const { return planes_; }

 private:
  std::size_t planeBytes_;
  Bytes bytes_;
  Planes planes_;
};

// A band that is made whole, and drawn from as lines are asked for.
class LinesAhead {
 public:
  LinesAhead(std::uint32_t width, bool colour, std::uint32_t most)
      : width_(width), lines_(width, colour, most), next_(lines_.planes()) {}

  bool isEmpty() const { return left_ == 0; }
  // Where the next lines are to be made.
  const Planes& planes() const { return lines_.planes(); }
  void made(std::uint32_t count) {
    next_ = lines_.planes();
    left_ = count;
  }
  // How many lines it had, of those wanted.
  std::uint32_t draw(const Planes& planes, std::uint32_t wanted);

 private:
  std::uint32_t width_;
  Lines lines_;
  Planes next_;
  std::uint32_t left_ = 0;
};

// All of the planes, with a gray one at its index.
RastPlaneSet planeSet(const Planes& in, const Planes& out, std::size_t gray);

// All lines of packed planes.
inline RastArea wholeArea(std::uint32_t width, std::uint32_t lines) {
  const auto columns = static_cast<std::int32_t>(width);
  return {columns, 0, columns, 0, static_cast<std::int32_t>(lines)};
}

// Turns the lines of the output planes left to right, those of all planes that are set.
void mirrorLines(const RastArea& area, const RastPlaneSet& planes);

// From pixels R G B to three planes, and back.
void separate(const std::uint8_t* pixels, const Planes& planes, std::size_t count);
void interleave(const Planes& planes, std::uint8_t* pixels, std::size_t count);

// Samples of as many bytes from planes to planes of the same layout.
void copyPlanes(const Planes& from, const Planes& to, std::size_t bytes);

#endif
