// The level that every machine of the target runs; built with the target's own flags.
#if defined(__ARM_NEON)
#include <arm_neon.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif
#include <stddef.h>
#include <stdint.h>

#include "lines/lines.h"

namespace rast::baseline {
#include "lines/lines.inl"
}
