// The row kernel of the threshold-gain curve. Each level includes this file once.

// min(excess * gain / 256 + offset, 255). The quotient is at most 65279, so no offset makes 16 bits
// wrap.
#if defined(__ARM_NEON)

inline uint8x8_t gained(uint8x8_t excess, const ThresholdGain& curve) {
  const uint16x8_t high =
      vmlal_u8(vdupq_n_u16(curve.offset), excess, vdup_n_u8((uint8_t)(curve.gain >> 8)));
  const uint16x8_t low = vmull_u8(excess, vdup_n_u8((uint8_t)curve.gain));
  return vqmovn_u16(vsraq_n_u16(high, low, 8));
}

inline U8 gained(U8 excess, const ThresholdGain& curve) {
  return (U8)vcombine_u8(gained(vget_low_u8((uint8x16_t)excess), curve),
                         gained(vget_high_u8((uint8x16_t)excess), curve));
}

#else

inline I16 gained(U16 excess, const ThresholdGain& curve) {
  return (I16)lesser(mulHigh(excess << 8, splat(curve.gain)) + curve.offset, splat(uint16_t{255}));
}

inline U8 gained(U8 excess, const ThresholdGain& curve) {
  return narrow(gained(widenLow(excess), curve), gained(widenHigh(excess), curve));
}

#endif

void thresholdGainRow(const MonoRow& whole, const ThresholdGain& curve) {
  const U8 threshold = splat(curve.threshold);
  sweep(Order::straight, whole, [&](const MonoRow& row) {
    for (size_t x = 0; x < row.width; x += kBytes) {
      const U8 excess = greater(load(row.in[0] + x), threshold) - threshold;
      store(row.out[0] + x, gained(excess, curve) & (U8)(excess != 0));
    }
  });
}
