// The row kernels of hue adjustment by a matrix. Each level includes this file once.

// The factors of two interleaved components.
inline I16 pairOf(int16_t even, int16_t odd) {
  I16 v;
  for (size_t i = 0; i < kBytes / 2; ++i) v[i] = i % 2 ? odd : even;
  return v;
}

template <Order order>
void matrixRow(const ColorRow& whole, const ColorMatrix& matrix) {
  const I16 none{};
  I16 first[3];
  I16 second[3];
  U32 constant[3];
  U32 offset[3];
  for (size_t k = 0; k < 3; ++k) {
    first[k] = pairOf(matrix.weight[k][0], matrix.weight[k][1]);
    second[k] = pairOf(matrix.weight[k][2], 0);
    constant[k] = splat((uint32_t)matrix.constant[k]);
    offset[k] = splat((uint32_t)matrix.offset[k]);
  }
  const U8 invert = splat(matrix.invert);
  sweep<order>(whole, [&](ColorRow row) {
    for (size_t x = 0; x < row.width; x += kBytes) {
      I16 half[3][2];
      for (size_t k = 0; k < 3; ++k) {
        const U8 samples = load(row.in[k] + x);
        half[k][0] = (I16)widenLow(samples);
        half[k][1] = (I16)widenHigh(samples);
      }
      I16 ab[4];
      I16 c[4];
      for (size_t i = 0; i < 2; ++i) {
        ab[2 * i] = zipLow(half[0][i], half[1][i]);
        ab[2 * i + 1] = zipHigh(half[0][i], half[1][i]);
        c[2 * i] = zipLow(half[2][i], none);
        c[2 * i + 1] = zipHigh(half[2][i], none);
      }
      for (size_t k = 0; k < 3; ++k) {
        U32 sum[4];
        for (size_t i = 0; i < 4; ++i) {
          sum[i] = (U32)dotPairs(ab[i], first[k]) + (U32)dotPairs(c[i], second[k]) + constant[k];
        }
        const U8 v = samplesOf(sum, offset[k], invert);
        if (order == Order::mirrored) {
          store(row.out[k] + row.width - kBytes - x, mirror(v));
        } else {
          store(row.out[k] + x, v);
        }
      }
    }
  });
}
