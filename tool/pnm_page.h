// Binary PGM and PPM (P5, P6).
#ifndef RAST_TOOL_PNM_PAGE_H
#define RAST_TOOL_PNM_PAGE_H

#include <memory>

#include "page.h"

inline constexpr int pnmFirstByte = 'P';

constexpr bool isPnmSpace(int byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

std::unique_ptr<PageReader> makePnmReader(Input& in);
std::unique_ptr<PageWriter> makePnmWriter(Output& out);

#endif
