// The AVX2 level; built with -mavx2.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "frame/rows.h"

namespace rast::avx2 {
#include "frame/rows.inl"
}
