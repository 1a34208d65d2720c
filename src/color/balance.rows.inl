// The row kernel of color balance. Each level includes this file once.

// (above * 256) / room, at most 255.
inline U8 scaledChroma(U8 above, const U16 (&room)[2], const U16 (&reciprocal)[2]) {
  return narrow((I16)quotient(widenLow(above) << 8, room[0], reciprocal[0]),
                (I16)quotient(widenHigh(above) << 8, room[1], reciprocal[1]));
}

inline U16 mixed(U16 gray, U16 chroma) { return (((255 - gray) * chroma) >> 8) + gray; }

void balanceRow(const ColorRow& whole, const uint8_t* curves) {
  const Reciprocals reciprocals;
  const Lookup lookups[] = {Lookup(curves), Lookup(curves + 256), Lookup(curves + 2 * 256),
                            Lookup(curves + 3 * 256)};
  sweep(Order::straight, whole, [&](const ColorRow& row) {
    eachBlock(Order::straight, row, [&](const ColorRow& block) {
      uint8_t chroma[3][kBlock];
      uint8_t gray[kBlock];
      for (size_t x = 0; x < block.width; x += kBytes) {
        const U8 c[3] = {load(block.in[0] + x), load(block.in[1] + x), load(block.in[2] + x)};
        const U8 least = lesser(c[0], lesser(c[1], c[2]));
        const U8 above = 255 - least;
        const U16 room[2] = {widenLow(above), widenHigh(above)};
        U16 reciprocal[2];
        reciprocals(above, reciprocal[0], reciprocal[1]);
        const U8 white = (U8)(least == 255);
        for (size_t k = 0; k < 3; ++k) {
          store(chroma[k] + x, scaledChroma(c[k] - least, room, reciprocal) | white);
        }
        store(gray + x, least);
      }
      for (size_t k = 0; k < 3; ++k) lookUpBlock(chroma[k], block.width, lookups[k]);
      lookUpBlock(gray, block.width, lookups[3]);
      for (size_t x = 0; x < block.width; x += kBytes) {
        const U8 g = load(gray + x);
        for (size_t k = 0; k < 3; ++k) {
          const U8 c = load(chroma[k] + x);
          store(block.out[k] + x, narrow((I16)mixed(widenLow(g), widenLow(c)),
                                         (I16)mixed(widenHigh(g), widenHigh(c))));
        }
      }
    });
  });
}
