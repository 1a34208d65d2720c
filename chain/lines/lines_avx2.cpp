// The AVX2 level; built with -mavx2.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "lines/lines.h"

namespace rast::avx2 {
#include "lines/lines.inl"
}
