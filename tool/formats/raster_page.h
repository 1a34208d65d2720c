// CUPS and PWG raster: chunky 8-bit pages of any gray or RGB colour space.
#ifndef RAST_TOOL_RASTER_PAGE_H
#define RAST_TOOL_RASTER_PAGE_H

#include <cups/raster.h>

#include <memory>

#include "formats/page.h"

struct RasterHeader {
  cups_page_header2_t page;
};

// Of the synchronization words of all versions, in both byte orders.
constexpr bool isRasterFirstByte(int byte) {
  return byte == 'R' || byte == 't' || (byte >= '1' && byte <= '3');
}

std::unique_ptr<PageStream> openRaster(Input& in);
std::unique_ptr<PageWriter> makeCupsWriter(Output& out);
std::unique_ptr<PageWriter> makePwgWriter(Output& out);

#endif
