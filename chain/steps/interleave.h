// Interleaved pixels split into planes, and joined again.
#pragma once

#include <cstddef>
#include <cstdint>

#include "steps/planes.h"

namespace rast::chain {

// Split and join `count` pixels of three or four components. Pixels and planes do not overlap.
void splitLines(const std::uint8_t* pixels, const Planes& planes, std::size_t count);
void joinLines(const Planes& planes, std::uint8_t* pixels, std::size_t count);

}  // namespace rast::chain
