// TIFF files of one page or several: 8-bit gray and RGB, with bilevel and palette images expanded
// on reading.
#ifndef RAST_TOOL_TIFF_PAGE_H
#define RAST_TOOL_TIFF_PAGE_H

#include <memory>

#include "formats/page.h"

constexpr bool isTiffFirstByte(int byte) { return byte == 'I' || byte == 'M'; }

std::unique_ptr<PageStream> openTiff(Input& in);
// BigTIFF where the pages may be more than TIFF can hold.
std::unique_ptr<PageWriter> makeTiffWriter(Output& out);
std::unique_ptr<PageWriter> makeBigTiffWriter(Output& out);

#endif
