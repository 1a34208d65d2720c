// Choosing the level. With several levels the choice is an ifunc, made once by the loader: nothing
// writable stays behind and no call pays a test. The resolver runs before relocation is done and
// before any sanitizer is up: it reads no table, and this file is built without sanitizers.
#include "frame/rows.h"

#include "frame/cpu.h"

namespace rast {

#if RAST_LEVELS_BUILT == 1

const Rows* rows() { return RAST_LOWEST_LEVEL::rows(); }

#else

// Not in the namespace: the attribute below takes the name as the linker sees it.
extern "C" {
using Choice = const Rows* (*)();

#if defined(__x86_64__)
Choice rastChooseRows() {
#if RAST_HAS_AVX512
  if (cpu::runsAvx512()) return avx512::rows;
#endif
#if RAST_HAS_AVX2
  if (cpu::runsAvx2()) return avx2::rows;
#endif
  return RAST_LOWEST_LEVEL::rows;
}
#elif defined(__arm__)
Choice rastChooseRows(unsigned long hwcap) {
  return cpu::runsNeon(hwcap) ? neon::rows : RAST_LOWEST_LEVEL::rows;
}
#endif
}

[[gnu::ifunc("rastChooseRows")]] const Rows* rows();

#endif

}  // namespace rast
