// The row kernel of hue adjustment by a table of products. Each level includes this file once.

// The four quarter registers of sums of each output, for the samples from column x on.
#if defined(__AVX512VBMI__)

inline U32 gather(const int32_t* table, I32 index) {
  return (U32)_mm512_i32gather_epi32((__m512i)index, table, 4);
}

inline void addProducts(const ColorRow& row, size_t x, const RastHueLut& lut, U32 (&sum)[3][4]) {
  const I16 none{};
  I32 index[3][4];
  for (size_t j = 0; j < 3; ++j) {
    const U8 samples = load(row.in[j] + x);
    const I16 half[2] = {(I16)widenLow(samples), (I16)widenHigh(samples)};
    for (size_t i = 0; i < 4; ++i) {
      index[j][i] = (I32)(i % 2 ? zipHigh(half[i / 2], none) : zipLow(half[i / 2], none));
    }
  }
  for (size_t k = 0; k < 3; ++k) {
    for (size_t i = 0; i < 4; ++i) {
      sum[k][i] = gather(lut.row[k].nProd[0], index[0][i]) +
                  gather(lut.row[k].nProd[1], index[1][i]) +
                  gather(lut.row[k].nProd[2], index[2][i]);
    }
  }
}

#else

// One load an entry: gathers of 256 bits and less take longer on most processors.
inline void addProducts(const ColorRow& row, size_t x, const RastHueLut& lut, U32 (&sum)[3][4]) {
  constexpr size_t lane = 16;
  constexpr size_t quarter = lane / 4;
  uint32_t sums[3][4][kBytes / 4];
  for (size_t i = 0; i < kBytes; ++i) {
    const uint8_t c[3] = {row.in[0][x + i], row.in[1][x + i], row.in[2][x + i]};
    for (size_t k = 0; k < 3; ++k) {
      sums[k][i % lane / quarter][i / lane * quarter + i % quarter] =
          (uint32_t)lut.row[k].nProd[0][c[0]] + (uint32_t)lut.row[k].nProd[1][c[1]] +
          (uint32_t)lut.row[k].nProd[2][c[2]];
    }
  }
  __builtin_memcpy(sum, sums, sizeof sum);
}

#endif

void productsRow(const ColorRow& whole, const RastHueLut& lut) {
  const U8 invert = splat(lut.nReverse == 1 ? uint8_t{0xFF} : uint8_t{0});
  sweep(Order::straight, whole, [&](const ColorRow& row) {
    eachBlock(Order::straight, row, [&](const ColorRow& block) {
      for (size_t x = 0; x < block.width; x += kBytes) {
        U32 sum[3][4];
        addProducts(block, x, lut, sum);
        for (size_t k = 0; k < 3; ++k) {
          const U32 offset = splat((uint32_t)lut.row[k].nOutOffset);
          store(block.out[k] + x, samplesOf(sum[k], offset, invert));
        }
      }
    });
  });
}
