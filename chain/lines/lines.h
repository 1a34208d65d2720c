// The row kernels that split interleaved lines into planes and join planes to interleaved lines.
#pragma once

#include "frame/rows.h"

namespace rast::chain {

/// One function per row kernel. A line holds `width` pixels, the samples of each pixel one after
/// the other; a plane holds the `width` samples of one component. A kernel reads and writes nothing
/// else. The line and the planes share no byte.
struct Lines {
  /// out[k][x] = in[0][3 * x + k] for k < 3, and out[k][x] = in[0][4 * x + k] for k < 4.
  void (*split3)(const Row<1, 3>& row);
  void (*split4)(const Row<1, 4>& row);

  /// out[0][3 * x + k] = in[k][x] for k < 3, and out[0][4 * x + k] = in[k][x] for k < 4.
  void (*join3)(const Row<3, 1>& row);
  void (*join4)(const Row<4, 1>& row);
};

namespace definition {
const Lines* lines();
}

/// The best level that was built and that this machine runs.
const Lines* lines();

}  // namespace rast::chain

namespace rast {

namespace baseline {
template <>
const chain::Lines* kernels<chain::Lines>();
}
namespace avx2 {
template <>
const chain::Lines* kernels<chain::Lines>();
}
namespace avx512 {
template <>
const chain::Lines* kernels<chain::Lines>();
}
namespace neon {
template <>
const chain::Lines* kernels<chain::Lines>();
}

}  // namespace rast
