// The library's allocations, which the linker sends here (--wrap=malloc,--wrap=free).
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "support/memory.h"

namespace rast::test {

struct Heap {
  int failing = -1;  // the allocation that fails, counted from 0
  bool watched = false;
  bool fenced = false;  // each allocation ends at a protected page
  std::vector<size_t> requested;
  std::vector<std::pair<void*, size_t>> blocks;
  std::map<void*, std::unique_ptr<Memory>> fencedBlocks;

  void watch(int failingOne);

  /// Stops watching and frees what is left allocated; returns its sizes.
  std::vector<size_t> release();
};
extern Heap heap;

}  // namespace rast::test
