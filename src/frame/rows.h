// The row kernels of one instruction-set level, and the choice of the level that calls use.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace rast {

/// One function per row kernel. A kernel reads and writes nothing outside the `width` bytes of its
/// row, and its output may be its own input but overlap nothing else.
struct Rows {
  /// out[x] = table[in[x]] for a table of 256 bytes.
  void (*curve)(uint8_t* out, const uint8_t* in, size_t width, const uint8_t* table);
};

namespace baseline {
const Rows* rows();
}
namespace avx2 {
const Rows* rows();
}
namespace avx512 {
const Rows* rows();
}
namespace neon {
const Rows* rows();
}

/// The best level that was built and that this machine runs.
const Rows* rows();

}  // namespace rast
