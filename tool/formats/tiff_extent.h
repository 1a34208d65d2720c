// How far into a TIFF file its directories and what they refer to reach.
#ifndef RAST_TOOL_TIFF_EXTENT_H
#define RAST_TOOL_TIFF_EXTENT_H

#include <cstdint>
#include <optional>

#include "formats/input.h"

// The place behind the last byte that is referred to, by thumbnails and metadata too; none where
// the directories do not tell. The chain of pages must have been found to end.
std::optional<std::uint64_t> tiffExtent(Input& in);

#endif
