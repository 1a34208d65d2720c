// The levels that were built, for tests that go through each of them.
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
  const Table* rows;  // null where this machine does not run it
};
using Level = LevelOf<Rows>;

template <class Table>
std::ostream& operator<<(std::ostream& stream, const LevelOf<Table>& level) {
  return stream << level.name;
}

template <class Table>
std::vector<LevelOf<Table>> builtLevelsOf() {
  std::vector<LevelOf<Table>> all;
#if RAST_HAS_BASELINE
  all.push_back({"baseline", baseline::kernels<Table>()});
#endif
#if RAST_HAS_AVX2
  all.push_back({"avx2", cpu::runsAvx2() ? avx2::kernels<Table>() : nullptr});
#endif
#if RAST_HAS_AVX512
  all.push_back(
      {"avx512", RAST_SIMULATED || cpu::runsAvx512() ? avx512::kernels<Table>() : nullptr});
#endif
#if RAST_HAS_NEON
  all.push_back({"neon", cpu::runsNeon(getauxval(AT_HWCAP)) ? neon::kernels<Table>() : nullptr});
#endif
  return all;
}

inline std::vector<Level> builtLevels() { return builtLevelsOf<Rows>(); }

/// Those that this machine runs.
template <class Table>
std::vector<LevelOf<Table>> levelsOf() {
  std::vector<LevelOf<Table>> all = builtLevelsOf<Table>();
  std::erase_if(all, [](const LevelOf<Table>& level) { return !level.rows; });
  return all;
}

inline std::vector<Level> levels() { return levelsOf<Rows>(); }

/// The rows of each level, and null for the definition.
inline std::vector<const Rows*> levelsAndDefinition() {
  std::vector<const Rows*> all = {nullptr};
  for (const Level& level : levels()) all.push_back(level.rows);
  return all;
}

}  // namespace rast::test
