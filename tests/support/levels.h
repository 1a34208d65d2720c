// The levels that were built and that this machine runs, for tests that go through each of them.
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
  const Rows* rows;
};

inline std::ostream& operator<<(std::ostream& stream, const Level& level) {
  return stream << level.name;
}

inline std::vector<Level> levels() {
  std::vector<Level> all;
#if RAST_HAS_BASELINE
  all.push_back({"baseline", baseline::rows()});
#endif
#if RAST_HAS_AVX2
  if (cpu::runsAvx2()) all.push_back({"avx2", avx2::rows()});
#endif
#if RAST_HAS_AVX512
  if (cpu::runsAvx512()) all.push_back({"avx512", avx512::rows()});
#endif
#if RAST_HAS_NEON && defined(__arm__)
  if (cpu::runsNeon(getauxval(AT_HWCAP))) all.push_back({"neon", neon::rows()});
#elif RAST_HAS_NEON
  all.push_back({"neon", neon::rows()});
#endif
  return all;
}

/// The rows of each level, and null for the definition.
inline std::vector<const Rows*> levelsAndDefinition() {
  std::vector<const Rows*> all = {nullptr};
  for (const Level& level : levels()) all.push_back(level.rows);
  return all;
}

}  // namespace rast::test
