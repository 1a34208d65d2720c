// TIFF files of one page or several: 8-bit gray and RGB, with bilevel and palette images expanded
// on reading.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "formats/page.h"

namespace rast::tool {

// True where a stream may begin so.
constexpr bool isTiff(std::span<const std::uint8_t> start) {
  return start[0] == 'I' || start[0] == 'M';
}

std::unique_ptr<PageStream> openTiff(PageInput& in);
// BigTIFF where the pages may be more than TIFF can hold.
std::unique_ptr<PageWriter> makeTiffWriter(Output& out);
std::unique_ptr<PageWriter> makeBigTiffWriter(Output& out);

}  // namespace rast::tool
