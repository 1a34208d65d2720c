// The binary formats of Netpbm: PBM, PGM, PPM and PAM (P4 to P7).
#ifndef RAST_TOOL_PNM_PAGE_H
#define RAST_TOOL_PNM_PAGE_H

#include <memory>

#include "formats/page.h"

inline constexpr int pnmFirstByte = 'P';

constexpr bool isPnmSpace(int byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

std::unique_ptr<PageReader> makePnmReader(Input& in);

// PGM or PPM, whatever the page is.
std::unique_ptr<PageWriter> makePnmWriter(Output& out);
// Refuses samples that are neither black nor white.
std::unique_ptr<PageWriter> makePbmWriter(Output& out);
std::unique_ptr<PageWriter> makePamWriter(Output& out);

#endif
