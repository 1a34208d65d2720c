// The vector division over its whole domain: every 16-bit number by every sample but 0. Compiled
// once for each level, with its flags and its name as RAST_LEVEL; no header with functions to share
// between them.
#include <stddef.h>
#include <stdint.h>
#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

#include "frame/rows.h"

namespace rast::RAST_LEVEL {
namespace {
#include "frame/simd.inl"
}

/// How many of the 65,536 x 255 quotients are wrong.
uint32_t wrongQuotients() {
  const Reciprocals reciprocals;
  uint32_t wrong = 0;
  for (uint32_t d = 1; d < 256; ++d) {
    const U8 divisor = splat((uint8_t)d);
    U16 low;
    U16 high;
    reciprocals(divisor, low, high);
    for (uint32_t n = 0; n < 65536; n += kBytes / 2) {
      U16 number;
      for (uint32_t i = 0; i < kBytes / 2; ++i) number[i] = (uint16_t)(n + i);
      const U16 byLow = quotient(number, widenLow(divisor), low);
      const U16 byHigh = quotient(number, widenHigh(divisor), high);
      for (uint32_t i = 0; i < kBytes / 2; ++i) {
        wrong += byLow[i] != (n + i) / d;
        wrong += byHigh[i] != (n + i) / d;
      }
    }
  }
  return wrong;
}

}  // namespace rast::RAST_LEVEL
