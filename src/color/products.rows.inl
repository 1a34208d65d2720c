// The row kernel of hue adjustment by a table of products. Each level includes this file once.

#if defined(__AVX2__)

inline U32 gather(const int32_t* table, I32 index) {
#if defined(__AVX512VBMI__)
  return (U32)_mm512_i32gather_epi32((__m512i)index, table, 4);
#else
  return (U32)_mm256_i32gather_epi32(table, (__m256i)index, 4);
#endif
}

void productsRow(const ColorRow& whole, const RastHueLut& lut) {
  const I16 none{};
  const U8 invert = splat(lut.nReverse == 1 ? uint8_t{0xFF} : uint8_t{0});
  sweep<Order::straight>(whole, [&](ColorRow row) {
    for (size_t x = 0; x < row.width; x += kBytes) {
      I32 index[3][4];
      for (size_t j = 0; j < 3; ++j) {
        const U8 samples = load(row.in[j] + x);
        const I16 half[2] = {(I16)widenLow(samples), (I16)widenHigh(samples)};
        for (size_t i = 0; i < 4; ++i) {
          index[j][i] = (I32)(i % 2 ? zipHigh(half[i / 2], none) : zipLow(half[i / 2], none));
        }
      }
      for (size_t k = 0; k < 3; ++k) {
        U32 sum[4];
        for (size_t i = 0; i < 4; ++i) {
          sum[i] = gather(lut.row[k].nProd[0], index[0][i]) +
                   gather(lut.row[k].nProd[1], index[1][i]) +
                   gather(lut.row[k].nProd[2], index[2][i]);
        }
        const U32 offset = splat((uint32_t)lut.row[k].nOutOffset);
        store(row.out[k] + x, samplesOf(sum, offset, invert));
      }
    }
  });
}

#else

// Without a gather instruction the definition is as fast as anything.
constexpr void (*productsRow)(const ColorRow& row, const RastHueLut& lut) = nullptr;

#endif
