// The AVX-512 VBMI level; built with -mavx512f -mavx512bw -mavx512vl -mavx512vbmi.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "frame/rows.h"

namespace rast::avx512 {
#include "frame/rows.inl"
}
