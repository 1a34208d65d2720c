// Choosing the level of the operations' row kernels.
#include "frame/rows.h"

#include "frame/choice.h"

namespace rast {

#if RAST_LEVELS_BUILT == 1

const Rows* rows() { return RAST_LOWEST_LEVEL::kernels<Rows>(); }

#else

// Not in the namespace: the attribute below takes the name as the linker sees it.
extern "C" Kernels<Rows> rastChooseRows(unsigned long hwcap) { return best<Rows>(hwcap); }

[[gnu::ifunc("rastChooseRows")]] const Rows* rows();

#endif

}  // namespace rast
