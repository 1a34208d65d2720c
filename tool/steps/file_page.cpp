#include "steps/file_page.h"

#include <algorithm>

FilePage::FilePage(const Input& in, PageReader& reader, Meter& meter, std::uint32_t wantedLines)
    : reader_(reader),
      meter_(meter),
      most_(::bandLines(in, reader.head(), wantedLines)),
      pixels_(head().colour ? makeBytes(most_ * head().lineBytes()) : nullptr) {}

std::uint32_t FilePage::drawSome(const Planes& planes, std::uint32_t lines) {
  const std::uint32_t count = std::min(lines, most_);
  std::uint8_t* const stored = pixels_ ? pixels_.get() : planes.at[0];
  meter_.inFiles([&] { reader_.readLines(stored, count); });
  if (pixels_) separate(stored, planes, std::size_t{count} * head().width);
  meter_.linesRead(count, count * head().lineBytes());
  return count;
}
