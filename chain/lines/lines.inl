// The row kernels for lines at one level. Included by the level's own file inside the level's
// namespace, after the C headers and intrinsics, as frame/rows.inl is.

namespace {

#include "frame/simd.h"

// Runs along a row of at least a block; the last block is taken back to end with the row, and what
// it shares with the block before is written twice. Shorter rows get the definition.
template <size_t kBlock, size_t N, size_t M, class Work>
inline void eachBlock(const Row<N, M>& row,
                      void (*const chain::Lines::*definition)(const Row<N, M>&), Work work) {
  if (row.width < kBlock) return (chain::definition::lines()->*definition)(row);
  size_t x = 0;
  for (; x + kBlock <= row.width; x += kBlock) work(x);
  if (x < row.width) work(row.width - kBlock);
}

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
