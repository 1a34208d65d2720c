// All reasoning about overlapping memory, which decides whether row kernels may serve a call.
//
// A row kernel reads a whole register of every input before it writes one, and finishes its line
// before the next begins. Lines are therefore never out of order, and only bytes shared within a
// line can tell a kernel from the sample-by-sample definition.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "frame/frame.h"

namespace rast {

/// True when [a, a + aSize) and [b, b + bSize) share no byte. Integers, because the two may belong
/// to unrelated objects.
inline bool apart(const void* a, size_t aSize, const void* b, size_t bSize) {
  const auto distance = reinterpret_cast<uintptr_t>(b) - reinterpret_cast<uintptr_t>(a);
  return distance >= aSize && uintptr_t{0} - distance >= bSize;
}

/// The address `offset` bytes from `base`, to be compared: nothing need be there.
inline const void* addressAt(const void* base, ptrdiff_t offset) {
  return reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(base) +
                                       static_cast<uintptr_t>(offset));
}

enum class InPlace { refused, served };

/// True when no output shares a byte of a line with an input or with another output. An output that
/// is the very plane of its own input passes where the kernel serves that. All planes have the same
/// lines, so one distance per pair decides for the whole call.
template <size_t N>
bool planesApart(const uint8_t* const (&in)[N], uint8_t* const (&out)[N], int32_t width,
                 InPlace inPlace = InPlace::served) {
  const auto size = static_cast<size_t>(width);
  for (size_t o = 0; o < N; ++o) {
    for (size_t i = 0; i < N; ++i) {
      if (i == o && out[o] == in[i] && inPlace == InPlace::served) continue;
      if (!apart(out[o], size, in[i], size)) return false;
    }
    for (size_t other = o + 1; other < N; ++other) {
      if (!apart(out[o], size, out[other], size)) return false;
    }
  }
  return true;
}

/// True when no line of the rectangle in any output touches the block, so that the bytes of it that
/// a kernel reads beforehand are the same at the end.
template <size_t N>
bool linesApart(const RastArea& area, uint8_t* const (&out)[N], const void* block, size_t size) {
  const auto width = static_cast<size_t>(area.nWidth);
  for (int32_t r = 0; r < area.nHeight; ++r) {
    for (const uint8_t* plane : out) {
      if (!apart(addressAt(plane, lineOffset(area, r)), width, block, size)) return false;
    }
  }
  return true;
}

}  // namespace rast
