// CUPS and PWG raster: chunky 8-bit pages of any gray or RGB color space.
#pragma once

#include <cups/raster.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "text/failure.h"
#include "formats/page.h"

namespace rast::tool {

// Of the first four bytes of a stream, or of fewer where the stream ends.
bool isRaster(std::span<const std::uint8_t> start);

// Of a page that is sound, but of a kind that is not read.
struct UnsupportedRaster : Failure {
  bool isColor;
};

bool hasColor(const cups_page_header2_t& page);
// Why pages with such a header are not read, and what is; empty if they are.
std::string unsupportedIn(const cups_page_header2_t& page);

std::unique_ptr<PageStream> openRaster(PageInput& in, bool mayBeEmpty);
std::unique_ptr<PageWriter> makeCupsWriter(Output& out);
std::unique_ptr<PageWriter> makePwgWriter(Output& out);
// Of the two, what the pages were in; CUPS raster where they were in neither.
std::unique_ptr<PageWriter> makeRasterWriter(Output& out);

}  // namespace rast::tool
