// The memory that the calling thread allocates by new and, through the linker (--wrap), by malloc.
#pragma once

#include <cstddef>

namespace rast::test {

/// Watches while it lives. One at a time in a thread. Sizes are those of the heap, which rounds up.
class Allocations {
 public:
  /// The allocation that fails, counted from 0; below 0: none. All later ones succeed.
  explicit Allocations(long failing = -1);
  Allocations(const Allocations&) = delete;
  Allocations& operator=(const Allocations&) = delete;
  ~Allocations();

  long count() const;
  /// Bytes that are allocated now, less what was at the beginning.
  long live() const;
  /// The most that there were.
  long peak() const;
};

}  // namespace rast::test
