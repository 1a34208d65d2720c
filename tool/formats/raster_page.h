// CUPS and PWG raster: chunky 8-bit pages of any gray or RGB colour space.
#ifndef RAST_TOOL_RASTER_PAGE_H
#define RAST_TOOL_RASTER_PAGE_H

#include <cups/raster.h>

#include <memory>
#include <string>

#include "formats/error.h"
#include "formats/page.h"

struct RasterHeader {
  cups_page_header2_t page;
};

// Of the synchronization words of all versions, in both byte orders.
constexpr bool isRasterFirstByte(int byte) {
  return byte == 'R' || byte == 't' || (byte >= '1' && byte <= '3');
}

// Of a page that is sound, but of a kind that is not read.
struct UnsupportedRaster : Failure {
  bool colour;
};

bool hasColour(const cups_page_header2_t& page);
// Why pages with such a header are not read, and what is; empty if they are.
std::string unsupportedIn(const cups_page_header2_t& page);

std::unique_ptr<PageStream> openRaster(Input& in, bool mayBeEmpty);
std::unique_ptr<PageWriter> makeCupsWriter(Output& out);
std::unique_ptr<PageWriter> makePwgWriter(Output& out);
// Of the two, what the pages were in; CUPS raster where they were in neither.
std::unique_ptr<PageWriter> makeRasterWriter(Output& out);

#endif
