// The row kernels of hue adjustment by a matrix. Each level includes this file once.

// The factors of two interleaved components.
inline I16 pairOf(int16_t even, int16_t odd) {
  I16 v;
  for (size_t i = 0; i < kBytes / 2; ++i) v[i] = i % 2 ? odd : even;
  return v;
}

// Components are taken in pairs, of which the last may be one component and zeros.
template <size_t N>
void matrixRow(const Row<N>& whole, const Matrix<N>& matrix, bool mirrored) {
  const Order order = mirrored ? Order::mirrored : Order::straight;
  constexpr size_t kPairs = (N + 1) / 2;
  I16 factors[N][kPairs];
  U32 constant[N];
  U32 offset[N];
  for (size_t k = 0; k < N; ++k) {
    for (size_t p = 0; p < kPairs; ++p) {
      const size_t odd = 2 * p + 1;
      factors[k][p] = pairOf(matrix.weight[k][2 * p], odd < N ? matrix.weight[k][odd] : int16_t{0});
    }
    constant[k] = splat((uint32_t)matrix.constant[k]);
    offset[k] = splat((uint32_t)matrix.offset[k]);
  }
  const U8 invert = splat(matrix.invert);
  sweep(order, whole, [&](const Row<N>& row) {
    eachBlock(order, row, [&](const Row<N>& block) {
      for (size_t x = 0; x < block.width; x += kBytes) {
        I16 half[2 * kPairs][2] = {};
        for (size_t k = 0; k < N; ++k) {
          const U8 samples = load(block.in[k] + x);
          half[k][0] = (I16)widenLow(samples);
          half[k][1] = (I16)widenHigh(samples);
        }
        I16 pairs[kPairs][4];
        for (size_t p = 0; p < kPairs; ++p) {
          for (size_t i = 0; i < 2; ++i) {
            pairs[p][2 * i] = zipLow(half[2 * p][i], half[2 * p + 1][i]);
            pairs[p][2 * i + 1] = zipHigh(half[2 * p][i], half[2 * p + 1][i]);
          }
        }
        for (size_t k = 0; k < N; ++k) {
          U32 sum[4];
          for (size_t i = 0; i < 4; ++i) {
            sum[i] = constant[k];
            for (size_t p = 0; p < kPairs; ++p) {
              sum[i] += (U32)dotPairs(pairs[p][i], factors[k][p]);
            }
          }
          storeResult(order, block.out[k], block.width, x, samplesOf(sum, offset[k], invert));
        }
      }
    });
  });
}
