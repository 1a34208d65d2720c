// How far into a TIFF file its directories and what they refer to reach.
#pragma once

#include <cstdint>
#include <optional>

#include "files/input.h"

namespace rast::tool {

// The place behind the last byte that is referred to, by thumbnails and metadata too; none where
// the directories do not tell. The chain of pages must have been found to end.
std::optional<std::uint64_t> tiffExtent(Input& in);

}  // namespace rast::tool
