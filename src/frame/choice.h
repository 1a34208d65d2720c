// Choosing the level of a table of kernels. With several levels the choice is an ifunc, made once
// by the loader: no writable data remains and no call makes a test. The resolver runs before
// relocation is done and before any sanitizer is up: it reads no table, and the files that hold one
// are built without sanitizers.
#pragma once

#include "frame/cpu.h"
#include "frame/rows.h"

namespace rast {

/// The function that returns a level's table.
template <class Table>
using Kernels = const Table* (*)();

/// Returns the function of the best level that was built and that this machine runs. `hwcap` is the
/// argument that the loader passes to resolvers on ARM; elsewhere it passes none, and none is read.
template <class Table>
static inline Kernels<Table> best([[maybe_unused]] unsigned long hwcap) {
#if RAST_HAS_AVX512
  if (cpu::runsAvx512()) return avx512::kernels<Table>;
#endif
#if RAST_HAS_AVX2
  if (cpu::runsAvx2()) return avx2::kernels<Table>;
#endif
#if RAST_HAS_NEON
  if (cpu::runsNeon(hwcap)) return neon::kernels<Table>;
#endif
  return RAST_LOWEST_LEVEL::kernels<Table>;
}

}  // namespace rast
