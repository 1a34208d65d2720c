// The AVX-512 VBMI level; built with -mavx512f -mavx512bw -mavx512vl -mavx512vbmi.
#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "lines/lines.h"

namespace rast::avx512 {
#include "lines/lines.inl"
}
