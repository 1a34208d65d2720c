// The row kernel of saturation. Each level includes this file once.

// The gain of 96/128 or 160/128 is 3/4 or 5/4, so that a product fits 16 bits.
inline I16 moveFromGray(U16 component, U16 gray, int16_t quarters) {
  const I16 product = ((I16)component - (I16)gray) * quarters;
  const I16 towardsZero = (I16)((U16)(product >> 15) >> 14);  // 3 where negative
  return (I16)gray + ((product + towardsZero) >> 2);
}

void saturationRow(const ColorRow& whole, uint32_t mode) {
  const int16_t quarters = mode == 0 ? 3 : 5;
  sweep(Order::groupsMirrored, whole, [quarters](ColorRow row) {
    for (size_t x = 0; x < row.width; x += kBytes) {
      U16 low[3];
      U16 high[3];
      for (size_t k = 0; k < 3; ++k) {
        const U8 samples = load(row.in[k] + x);
        low[k] = widenLow(samples);
        high[k] = widenHigh(samples);
      }
      const U16 grayLow = (low[0] * 70 + low[1] * 150 + low[2] * 29) >> 8;
      const U16 grayHigh = (high[0] * 70 + high[1] * 150 + high[2] * 29) >> 8;
      for (size_t k = 0; k < 3; ++k) {
        const U8 v = narrow(moveFromGray(low[k], grayLow, quarters),
                            moveFromGray(high[k], grayHigh, quarters));
        store(row.out[k] + x, mirrorGroups(v));
      }
    }
  });
}
