#include "planes.h"

namespace {

// ITU-R BT.601 luma: 0.299 R + 0.587 G + 0.114 B, rounded to nearest.
std::uint8_t luma(const std::uint8_t* rgb) {
  return static_cast<std::uint8_t>((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
}

}  // namespace

RastPlaneSet planeSet(const Planes& in, const Planes& out, std::size_t gray) {
  RastPlaneSet set = {};
  set.nSize = INT32_MAX;
  const std::size_t first = in.layout == Layout::planar ? 0 : gray;
  for (std::size_t c = 0; c < planeCount(in.layout); ++c) {
    set.pIn[first + c] = in.at[c];
    set.pOut[first + c] = out.at[c];
  }
  return set;
}

void Transfer::read(PageReader& reader, const Planes& planes, std::uint32_t lines) {
  const PageHead& head = reader.head();
  if (!head.colour || planes.layout == Layout::interleaved) {
    return reader.readLines(planes.at[0], lines);
  }
  reader.readLines(stored_.get(), lines);
  const std::uint8_t* rgb = stored_.get();
  for (std::size_t i = 0; i < std::size_t{lines} * head.width; ++i, rgb += 3) {
    if (planes.layout == Layout::planar) {
      for (std::size_t c = 0; c < 3; ++c) planes.at[c][i] = rgb[c];
    } else {
      planes.at[0][i] = luma(rgb);
    }
  }
}

void Transfer::write(PageWriter& writer, const PageHead& head, const Planes& planes,
                     std::uint32_t lines) {
  if (planes.layout != Layout::planar) return writer.writeLines(planes.at[0], lines);
  std::uint8_t* rgb = stored_.get();
  for (std::size_t i = 0; i < std::size_t{lines} * head.width; ++i, rgb += 3) {
    for (std::size_t c = 0; c < 3; ++c) rgb[c] = planes.at[c][i];
  }
  writer.writeLines(stored_.get(), lines);
}
