// The binary formats of Netpbm: PBM, PGM, PPM and PAM (P4 to P7).
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "files/output.h"
#include "formats/page.h"
#include "formats/signature.h"

namespace rast::tool {

// True where `start` may begin an image of the Netpbm formats; one byte decides.
constexpr bool isPnm(std::span<const std::uint8_t> start) { return beginsLike(start, "P"); }

constexpr bool isPnmSpace(int byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

std::unique_ptr<PageReader> makePnmReader(PageInput& in);

// PGM or PPM, whatever the page is.
std::unique_ptr<PageWriter> makePnmWriter(Output& out);
// Rejects samples that are neither black nor white.
std::unique_ptr<PageWriter> makePbmWriter(Output& out);
std::unique_ptr<PageWriter> makePamWriter(Output& out);

}  // namespace rast::tool
