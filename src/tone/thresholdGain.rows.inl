// The row kernel of the threshold-gain curve. Each level includes this file once.

// A sample in the upper half of 16 bits times the gain has a product of 1/65536: its upper 16 bits
// are the product divided by 256, at most 65279, so that no offset makes it wrap.
inline U16 gained(U16 excess, const ThresholdGain& curve) {
  return lesser(mulHigh(excess << 8, splat(curve.gain)) + curve.offset, splat(uint16_t{255}));
}

void thresholdGainRow(const MonoRow& whole, const ThresholdGain& curve) {
  const U8 threshold = splat(curve.threshold);
  sweep<Order::straight>(whole, [&](const MonoRow& row) {
    for (size_t x = 0; x < row.width; x += kBytes) {
      const U8 excess = greater(load(row.in[0] + x), threshold) - threshold;
      const U8 v =
          narrow((I16)gained(widenLow(excess), curve), (I16)gained(widenHigh(excess), curve));
      store(row.out[0] + x, v & (U8)(excess != 0));
    }
  });
}
