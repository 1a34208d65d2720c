// Lines as planes, which the library works on.
#pragma once

#include <rast.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace rast::chain {

inline constexpr std::size_t kMostPlanes = 4;

// Offsets inside a plane of a band stay below 2^31, whatever the memory cap.
inline constexpr std::uint64_t kLongestBand = std::uint64_t{1} << 30;

// Lines that are quick to work on at a time: they stay in the first-level cache.
constexpr std::uint32_t quickLines(std::uint64_t lineBytes) {
  constexpr std::uint64_t quickBytes = 1 << 15;
  return static_cast<std::uint32_t>(std::max<std::uint64_t>(quickBytes / lineBytes, 1));
}

using Bytes = std::unique_ptr<std::uint8_t[]>;

// Not initialized, so that no memory of a large page is touched until its samples arrive.
inline Bytes makeBytes(std::size_t size) {
  return std::make_unique_for_overwrite<std::uint8_t[]>(size);
}

// The first sample of the next line in each plane: one of a gray page, three of a color page, four
// of a CMYK page. Lines are packed.
struct Planes {
  std::size_t count = 0;
  std::uint8_t* at[kMostPlanes] = {};

  Planes() = default;
  Planes(std::size_t planes, std::uint8_t* first, std::size_t planeBytes) : count(planes) {
    for (std::size_t c = 0; c < count; ++c) at[c] = first + c * planeBytes;
  }
  void advance(std::size_t bytes) {
    for (std::size_t c = 0; c < count; ++c) at[c] += bytes;
  }
  Planes from(std::size_t bytes) const {
    Planes planes = *this;
    planes.advance(bytes);
    return planes;
  }
};

// Memory for lines of a page, one plane after the other.
class PackedLines {
 public:
  PackedLines(std::size_t width, std::size_t planes, std::size_t lines)
      : bytes_(makeBytes(width * lines * planes)), planes_(planes, bytes_.get(), width * lines) {}

  const Planes& planes() const { return planes_; }

 private:
  Bytes bytes_;
  Planes planes_;
};

void copyPlanes(const Planes& from, const Planes& to, std::size_t bytes);

// Lines of a band that are made and not drawn yet.
struct ReadyLines {
  Planes planes;
  std::uint32_t count = 0;

  // Draws up to `lines` of them. Returns their number.
  std::uint32_t draw(const Planes& to, std::uint32_t lines, std::size_t width) {
    lines = std::min(lines, count);
    copyPlanes(planes, to, lines * width);
    planes.advance(lines * width);
    count -= lines;
    return lines;
  }
};

// The planes of a gray page at index `gray`, those of a color page at 0 .. 2.
RastPlaneSet planeSet(const Planes& in, const Planes& out, std::size_t gray);

// All lines of packed planes.
RastArea wholeArea(std::uint32_t width, std::uint32_t lines);

}  // namespace rast::chain
