// The NEON level; built with -mfpu=neon on 32-bit ARM, where the baseline may lack it.
#include <arm_neon.h>
#include <stddef.h>
#include <stdint.h>

#include "lines/lines.h"

namespace rast::neon {
#include "lines/lines.inl"
}
