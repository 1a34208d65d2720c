// PNG: 8-bit gray and RGB, with palettes and low bit depths expanded on reading.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "files/output.h"
#include "formats/page.h"
#include "formats/signature.h"

namespace rast::tool {

// True where `start` may begin a PNG image; one byte decides, so that a damaged one is called so.
constexpr bool isPng(std::span<const std::uint8_t> start) { return beginsLike(start, "\x89"); }

std::unique_ptr<PageReader> makePngReader(PageInput& in, const Transparency& transparency);
std::unique_ptr<PageWriter> makePngWriter(Output& out);

}  // namespace rast::tool
