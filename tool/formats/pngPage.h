// PNG: 8-bit gray and RGB, with palettes and low bit depths expanded on reading.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "formats/page.h"

namespace rast::tool {

// True where a stream may begin so.
constexpr bool isPng(std::span<const std::uint8_t> start) { return start[0] == 0x89; }

std::unique_ptr<PageReader> makePngReader(PageInput& in, const Transparency& transparency);
std::unique_ptr<PageWriter> makePngWriter(Output& out);

}  // namespace rast::tool
