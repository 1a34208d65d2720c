#include "file_page.h"

#include <algorithm>

FilePage::FilePage(const Input& in, PageReader& reader, Meter& meter, std::uint32_t wantedLines,
                   std::size_t bands)
    : reader_(reader),
      meter_(meter),
      most_(::bandLines(in, reader.head(), wantedLines, bands)),
      pixels_(head().colour ? makeBytes(most_ * head().lineBytes()) : nullptr) {}

void FilePage::draw(Planes planes, std::uint32_t lines) {
  while (lines > 0) {
    const std::uint32_t count = std::min(lines, most_);
    const std::size_t samples = std::size_t{count} * head().width;
    std::uint8_t* const stored = pixels_ ? pixels_.get() : planes.at[0];
    meter_.inFiles([&] { reader_.readLines(stored, count); });
    if (pixels_) separate(stored, planes, samples);
    meter_.linesRead(count, count * head().lineBytes());
    planes.advance(samples);
    lines -= count;
  }
}
