// The row kernels of overlays. Each level includes this file once.

// The inputs are `Planes` planes of the overlay, then as many of the base where there is one.
template <size_t Planes, bool onBase>
void overlayRow(const Row<onBase ? 2 * Planes : Planes, Planes>& whole, const Blend& blend) {
  const uint16_t scale = blend.scale;
  const U8 threshold = splat(blend.threshold);
  const U8 maximum = splat(blend.maximum ? uint8_t{0xFF} : uint8_t{0});
  sweep(Order::straight, whole, [=](auto row) {
    for (size_t x = 0; x < row.width; x += kBytes) {
      U8 weakened[Planes];
      U8 largest{};
      for (size_t k = 0; k < Planes; ++k) {
        const U8 v = load(row.in[k] + x);
        weakened[k] = narrow((I16)((widenLow(v) * scale) >> 8), (I16)((widenHigh(v) * scale) >> 8));
        largest = greater(largest, weakened[k]);
      }
      const U8 transparent = (U8)(largest < threshold);
      for (size_t k = 0; k < Planes; ++k) {
        const U8 below = onBase ? load(row.in[onBase ? Planes + k : k] + x) : U8{};
        store(row.out[k] + x, select(transparent, below, greater(weakened[k], below & maximum)));
      }
    }
  });
}
