// The levels that were built and that this machine runs, for tests that go through each of them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#if RAST_HAS_NEON
#include <sys/auxv.h>
#endif

#include "frame/cpu.h"
#include "frame/rows.h"

namespace rast::test {

/// A level of a table of kernels.
template <class Table>
struct LevelOf {
  std::string name;
  const Table* rows;
};
using Level = LevelOf<Rows>;

template <class Table>
std::ostream& operator<<(std::ostream& stream, const LevelOf<Table>& level) {
  return stream << level.name;
}

template <class Table>
std::vector<LevelOf<Table>> levelsOf() {
  std::vector<LevelOf<Table>> all;
#if RAST_HAS_BASELINE
  all.push_back({"baseline", baseline::kernels<Table>()});
#endif
#if RAST_HAS_AVX2
  if (cpu::runsAvx2()) all.push_back({"avx2", avx2::kernels<Table>()});
#endif
#if RAST_HAS_AVX512
  if (cpu::runsAvx512()) all.push_back({"avx512", avx512::kernels<Table>()});
#endif
#if RAST_HAS_NEON
  if (cpu::runsNeon(getauxval(AT_HWCAP))) all.push_back({"neon", neon::kernels<Table>()});
#endif
  return all;
}

inline std::vector<Level> levels() { return levelsOf<Rows>(); }

}  // namespace rast::test
