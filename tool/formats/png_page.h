// PNG: 8-bit gray and RGB, with palettes and low bit depths expanded on reading.
#ifndef RAST_TOOL_PNG_PAGE_H
#define RAST_TOOL_PNG_PAGE_H

#include <memory>

#include "formats/page.h"

inline constexpr int pngFirstByte = 0x89;

std::unique_ptr<PageReader> makePngReader(Input& in, const Transparency& transparency);
std::unique_ptr<PageWriter> makePngWriter(Output& out);

#endif
