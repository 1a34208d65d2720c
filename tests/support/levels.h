// The levels that were built, for tests that go through each of them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#if defined(__arm__)
#include <sys/auxv.h>
#endif

#include "frame/cpu.h"
#include "frame/rows.h"

namespace rast::test {

struct Level {
  std::string name;
  const Rows* rows;  // null where this machine does not run it
};

inline std::ostream& operator<<(std::ostream& stream, const Level& level) {
  return stream << level.name;
}

inline std::vector<Level> builtLevels() {
  std::vector<Level> all;
#if RAST_HAS_BASELINE
  all.push_back({"baseline", baseline::rows()});
#endif
#if RAST_HAS_AVX2
  all.push_back({"avx2", cpu::runsAvx2() ? avx2::rows() : nullptr});
#endif
#if RAST_HAS_AVX512
  all.push_back({"avx512", RAST_SIMULATED || cpu::runsAvx512() ? avx512::rows() : nullptr});
#endif
#if RAST_HAS_NEON && defined(__arm__)
  all.push_back({"neon", cpu::runsNeon(getauxval(AT_HWCAP)) ? neon::rows() : nullptr});
#elif RAST_HAS_NEON
  all.push_back({"neon", neon::rows()});
#endif
  return all;
}

/// Those that this machine runs.
inline std::vector<Level> levels() {
  std::vector<Level> all = builtLevels();
  std::erase_if(all, [](const Level& level) { return !level.rows; });
  return all;
}

/// The rows of each level, and null for the definition.
inline std::vector<const Rows*> levelsAndDefinition() {
  std::vector<const Rows*> all = {nullptr};
  for (const Level& level : levels()) all.push_back(level.rows);
  return all;
}

}  // namespace rast::test
