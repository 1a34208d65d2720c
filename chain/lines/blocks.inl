// The loop of the row kernels for lines, in blocks of registers. Each level includes this file
// once, after frame/simd.inl.

// The number of pixels, smaller than a register, before the first pixel whose store is aligned.
// Where no store is, any number is right.
template <size_t N>
inline size_t unaligned(const Row<1, N>& row) {
  return -(uintptr_t)row.out[0] % kBytes;
}
inline size_t unaligned(const Row<3, 1>& row) {
  constexpr size_t third = 171;  // 3 * 171 mod 64 is 1
  return -(uintptr_t)row.out[0] * third % kBytes;
}
inline size_t unaligned(const Row<4, 1>& row) { return -(uintptr_t)row.out[0] % kBytes / 4; }

// Runs along a row of at least a block. The first block starts with the row, the last one ends with
// it, and the blocks between store to aligned addresses. Samples that two blocks share are written
// twice. A shorter row gets the definition.
template <size_t kBlock, size_t N, size_t M, class Work>
inline void eachBlock(const Row<N, M>& row,
                      void (*const chain::Lines::*definition)(const Row<N, M>&), Work work) {
  if (row.width < kBlock) return (chain::definition::lines()->*definition)(row);
  const size_t last = row.width - kBlock;
  size_t step = unaligned(row);
  if (step == 0) step = kBlock;
  for (size_t x = 0; x < last; x += step, step = kBlock) work(x);
  work(last);
}
