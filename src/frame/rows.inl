// All row kernels of one level. The file of the level includes this one once, inside the namespace
// of the level, after the C headers and intrinsics, so that levels share no code: only the function
// for the table has external linkage, and no C++ library header is used.

namespace {

#include "frame/simd.inl"
#include "frame/rowLoops.inl"

#include "frame/copy.rows.inl"
#include "tone/curve.rows.inl"
#include "tone/thresholdGain.rows.inl"
#include "color/saturation.rows.inl"
#include "color/matrix.rows.inl"
#include "color/products.rows.inl"
#include "color/balance.rows.inl"
#include "tone/ink.rows.inl"
#include "overlay/overlay.rows.inl"
#include "geometry/transpose.rows.inl"
#include "geometry/reduction.rows.inl"

// With AVX-512 VBMI a curve is looked up as fast as memory delivers it, and NEON looks it up faster
// than it computes the 32-bit sums of a matrix.
#if defined(__AVX512VBMI__)
constexpr bool kComputesGain = false;
constexpr bool kComputesMonoMatrix = false;
#elif defined(__ARM_NEON)
constexpr bool kComputesGain = true;
constexpr bool kComputesMonoMatrix = false;
#else
constexpr bool kComputesGain = kHasVectors;
constexpr bool kComputesMonoMatrix = kHasVectors;
#endif

constexpr Rows table{
    .copy = copyRow,
    .curve = curveRow,
    .thresholdGain = kComputesGain ? thresholdGainRow : nullptr,
    .monoMatrix = kComputesMonoMatrix ? matrixRow<1> : nullptr,
    .saturation = kHasVectors ? saturationRow : nullptr,
    .matrix = kHasVectors ? matrixRow<3> : nullptr,
    .products = kHasVectors ? productsRow : nullptr,
    .balance = kHasVectors ? balanceRow : nullptr,
    .ink = kHasVectors ? inkRow : nullptr,
    .overlay = overlayRow<3, false>,
    .overlayMono = overlayRow<1, false>,
    .overlayOnBase = overlayRow<3, true>,
    .overlayOnBaseMono = overlayRow<1, true>,
    .transpose = transposeRows,
    .add = addRow,
    .mean = meanRow,
    .halve = halveRow,
    .reduce = reduceBlocks,
    .registerBytes = kBytes,
};

}  // namespace

template <>
const Rows* kernels<Rows>() {
  return &table;
}
