// All row kernels for lines of one level. The file of the level includes this one once, inside the
// namespace of the level, after the C headers and intrinsics, like frame/rows.inl.

namespace {

#include "frame/simd.inl"
#include "lines/blocks.inl"

#if defined(__AVX2__)

#include "lines/shuffles.rows.inl"

#elif defined(__ARM_NEON)

#include "lines/structures.rows.inl"

#elif defined(__SSE2__)

#include "lines/riffles.rows.inl"

#endif

#if defined(__AVX2__) || defined(__ARM_NEON) || defined(__SSE2__)

constexpr chain::Lines table{
    .split3 = split3,
    .split4 = split4,
    .join3 = join3,
    .join4 = join4,
};

}  // namespace

template <>
const chain::Lines* kernels<chain::Lines>() {
  return &table;
}

#else

}  // namespace

// Without vectors nothing is faster than the definition.
template <>
const chain::Lines* kernels<chain::Lines>() {
  return chain::definition::lines();
}

#endif
