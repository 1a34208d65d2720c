// CUPS and PWG raster: chunky 8-bit pages of any gray or RGB color space.
#pragma once

#include <cups/raster.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "text/error.h"
#include "files/output.h"
#include "formats/page.h"

namespace rast::tool {

// True where `start` may begin a raster stream; four bytes decide.
bool isRaster(std::span<const std::uint8_t> start);

// A sound page of a kind that is not read.
struct UnsupportedRaster : Error {
  bool isColor;
};

bool hasColor(const cups_page_header2_t& page);
// The reason why pages with such a header are not read, and the remedy; empty if they are read.
std::string unsupportedIn(const cups_page_header2_t& page);

// The stream must begin like raster.
std::unique_ptr<PageStream> openRaster(PageInput& in, bool mayBeEmpty);
std::unique_ptr<PageWriter> makeCupsWriter(Output& out);
std::unique_ptr<PageWriter> makePwgWriter(Output& out);
// Writes the one of the two formats that the first page was read from, or else CUPS raster.
std::unique_ptr<PageWriter> makeRasterWriter(Output& out);

}  // namespace rast::tool
