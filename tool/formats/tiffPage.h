// TIFF files of one page or several: 8-bit gray and RGB, with bilevel and palette images expanded
// on reading.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "files/output.h"
#include "formats/page.h"
#include "formats/signature.h"

namespace rast::tool {

// True where `start` may begin a TIFF file; one byte decides, so that a damaged one is called so.
constexpr bool isTiff(std::span<const std::uint8_t> start) {
  return beginsLike(start, "I") || beginsLike(start, "M");
}

std::unique_ptr<PageStream> openTiff(PageInput& in);
// BigTIFF where the pages may be more than TIFF can hold.
std::unique_ptr<PageWriter> makeTiffWriter(Output& out);
std::unique_ptr<PageWriter> makeBigTiffWriter(Output& out);

}  // namespace rast::tool
