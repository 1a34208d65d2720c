// The row kernel of the two-color conversion. Each level includes this file once.

// The hue circle and the gray floor of the two-color conversion: a base hue for each smallest
// component, 42 steps to either side of it; saturations up to 15 count as neutral.
constexpr uint8_t kHueBase[3] = {42, 127, 212};
constexpr uint16_t kHueSector = 42;
constexpr uint8_t kGrayFloor = 15;

// (n * factor) / d, truncated, if that fits a sample.
inline U8 scaledRatio(U8 n, uint16_t factor, U8 d, const Reciprocals& reciprocals) {
  U16 low;
  U16 high;
  reciprocals(d, low, high);
  return narrow((I16)quotient(widenLow(n) * factor, widenLow(d), low),
                (I16)quotient(widenHigh(n) * factor, widenHigh(d), high));
}

inline U8 hueOf(const U8 (&c)[3], U8 least, U8 chroma, const Reciprocals& reciprocals) {
  const U8 leastRed = (U8)(c[0] == least);
  const U8 leastGreen = (U8)(c[1] == least);
  const U8 behind = select(leastRed, c[2], select(leastGreen, c[0], c[1]));
  const U8 ahead = select(leastRed, c[1], select(leastGreen, c[2], c[0]));
  const U8 base = select(leastRed, splat(kHueBase[0]),
                         select(leastGreen, splat(kHueBase[1]), splat(kHueBase[2])));
  const U8 apart = greater(behind, ahead) - lesser(behind, ahead);
  const U8 steps = scaledRatio(apart, kHueSector, chroma, reciprocals);
  return select((U8)(behind > ahead), base + steps, base - steps);
}

// The ink of a half register: 0 up to the gray floor, all of it above the limit, in between in
// proportion.
inline U16 weighted(U16 amount, U16 saturation, U16 limit, U16 reciprocal) {
  const U16 proportion = quotient((saturation - kGrayFloor) << 8, limit - kGrayFloor, reciprocal);
  const U16 weight = select((U16)(saturation > limit), splat(uint16_t{256}), proportion);
  return (weight * amount >> 8) & (U16)(saturation > kGrayFloor);
}

void inkRow(const ColorRow& whole, const Ink& ink) {
  const Reciprocals reciprocals;
  const Lookup saturationLimit(ink.saturationLimit);
  sweep(Order::straight, whole, [&](const ColorRow& row) {
    eachBlock(Order::straight, row, [&](const ColorRow& block) {
      uint8_t limit[kBlock];
      uint8_t saturation[kBlock];
      uint8_t amount[kBlock];
      for (size_t x = 0; x < block.width; x += kBytes) {
        const U8 c[3] = {load(block.in[0] + x), load(block.in[1] + x), load(block.in[2] + x)};
        const U8 least = lesser(c[0], lesser(c[1], c[2]));
        const U8 most = greater(c[0], greater(c[1], c[2]));
        const U8 chroma = most - least;
        store(limit + x, hueOf(c, least, chroma, reciprocals));
        store(saturation + x, scaledRatio(chroma, 255, most, reciprocals));
        U16 low{};
        U16 high{};
        for (size_t k = 0; k < 3; ++k) {
          low += widenLow(c[k]) * ink.weight[k];
          high += widenHigh(c[k]) * ink.weight[k];
        }
        store(amount + x, narrow((I16)(low >> 8) + ink.offset, (I16)(high >> 8) + ink.offset));
      }
      lookUpBlock(limit, block.width, saturationLimit);
      for (size_t x = 0; x < block.width; x += kBytes) {
        const U8 s = load(saturation + x);
        const U8 t = load(limit + x);
        const U8 a = load(amount + x);
        U16 low;
        U16 high;
        reciprocals(t - kGrayFloor, low, high);
        const U8 v = narrow((I16)weighted(widenLow(a), widenLow(s), widenLow(t), low),
                            (I16)weighted(widenHigh(a), widenHigh(s), widenHigh(t), high));
        for (size_t k = 0; k < 3; ++k) store(block.out[k] + x, ink.feeds[k] ? v : U8{});
      }
    });
  });
}
