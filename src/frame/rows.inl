// All row kernels of one level. Included by the level's own file inside the level's namespace, after
// the C headers and intrinsics, so that nothing here is shared between levels: no name in it has
// external linkage but rows(), and it uses no C++ library header.

namespace {

#include "frame/simd.h"

#include "tone/curve.rows.inl"

constexpr Rows table{
    .curve = curve,
};

}  // namespace

const Rows* rows() { return &table; }
