// Choosing the level of the row kernels for lines.
#include "lines/lines.h"

#include "frame/choice.h"

namespace rast::chain {

#if RAST_LEVELS_BUILT == 1

const Lines* lines() { return RAST_LOWEST_LEVEL::kernels<Lines>(); }

#else

// Not in the namespace: the attribute below takes the name as the linker sees it.
extern "C" Kernels<Lines> rastChooseLines(unsigned long hwcap) { return best<Lines>(hwcap); }

[[gnu::ifunc("rastChooseLines")]] const Lines* lines();

#endif

}  // namespace rast::chain
