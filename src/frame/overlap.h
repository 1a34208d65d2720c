// The only reasoning about overlapping memory: may row kernels serve a call?
//
// A row kernel reads a whole register of every input before it writes one, and finishes its line
// before the next begins. Lines are therefore never out of order, and only bytes shared within a
// line can tell a kernel from the sample-by-sample definition.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "frame/frame.h"

namespace rast {

/// True when [a, a + aSize) and [b, b + bSize) share no byte. Integers, because the two may belong to
/// unrelated objects.
inline bool apart(const void* a, size_t aSize, const void* b, size_t bSize) {
  const auto distance = reinterpret_cast<uintptr_t>(b) - reinterpret_cast<uintptr_t>(a);
  return distance >= aSize && uintptr_t{0} - distance >= bSize;
}

/// True when no output shares a byte of a line with another output or with an input other than its
/// own, and shares its own input's only by being that very plane. All planes have the same lines, so
/// one distance per pair decides for the whole call.
template <size_t N>
bool planesApart(const uint8_t* const (&in)[N], uint8_t* const (&out)[N], int32_t lineSize) {
  const auto size = static_cast<size_t>(lineSize);
  for (size_t o = 0; o < N; ++o) {
    for (size_t i = 0; i < N; ++i) {
      const bool inPlace = i == o && out[o] == in[i];
      if (!inPlace && !apart(out[o], size, in[i], size)) return false;
    }
    for (size_t other = o + 1; other < N; ++other) {
      if (!apart(out[o], size, out[other], size)) return false;
    }
  }
  return true;
}

/// True when no line of the rectangle in `out` touches the block: what is read throughout a call (a
/// table, a parameter block) then stays as it was before the first sample.
inline bool linesApart(const RastArea& area, const uint8_t* out, const void* block, size_t size) {
  const auto width = static_cast<size_t>(area.nWidth);
  for (int32_t r = 0; r < area.nHeight; ++r) {
    const auto line = reinterpret_cast<uintptr_t>(out) + static_cast<uintptr_t>(lineOffset(area, r));
    if (!apart(reinterpret_cast<const void*>(line), width, block, size)) return false;
  }
  return true;
}

}  // namespace rast
