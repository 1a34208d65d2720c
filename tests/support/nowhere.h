// Pointers to memory that a call must not touch.
#pragma once

#include <cstdint>

namespace rast::test {

/// Null and the two ends of the address space: an offset added to one of these is one that the
/// sanitizers report, where it has the sign that leaves the address space.
inline uint8_t* const kNowhere[] = {nullptr, reinterpret_cast<uint8_t*>(uintptr_t{16}),
                                    reinterpret_cast<uint8_t*>(~uintptr_t{15})};

/// The same for a pointer that must not be null.
inline uint8_t* const kSetButNowhere[] = {kNowhere[1], kNowhere[2]};

}  // namespace rast::test
