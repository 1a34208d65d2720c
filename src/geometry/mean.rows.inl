// Whole registers of sums are kept as widening leaves them; what is left of a line is in order.
inline void storeSums(uint16_t* sums, U16 low, U16 high) {
  __builtin_memcpy(sums, &low, kBytes);
  __builtin_memcpy(sums + kBytes / 2, &high, kBytes);
}

inline void loadSums(const uint16_t* sums, U16& low, U16& high) {
  __builtin_memcpy(&low, sums, kBytes);
  __builtin_memcpy(&high, sums + kBytes / 2, kBytes);
}

void sumRow(uint16_t* sums, const uint8_t* line, size_t width, bool first) {
  size_t x = 0;
  for (; x + kBytes <= width; x += kBytes) {
    const U8 samples = load(line + x);
    U16 low{};
    U16 high{};
    if (!first) loadSums(sums + x, low, high);
    storeSums(sums + x, low + widenLow(samples), high + widenHigh(samples));
  }
  for (; x < width; ++x) sums[x] = (uint16_t)(first ? line[x] : sums[x] + line[x]);
}

void meanRow(uint8_t* mean, const uint16_t* sums, const uint8_t* line, size_t width,
             uint16_t count) {
  const U16 divisor = splat(count);
  const U16 reciprocal = splat((uint16_t)(count == 1 ? 65535 : 65536 / count));
  size_t x = 0;
  for (; x + kBytes <= width; x += kBytes) {
    const U8 samples = line ? load(line + x) : U8{};
    U16 low;
    U16 high;
    loadSums(sums + x, low, high);
    low = quotient(low + widenLow(samples), divisor, reciprocal);
    high = quotient(high + widenHigh(samples), divisor, reciprocal);
    store(mean + x, narrow((I16)(low & 0xFF), (I16)(high & 0xFF)));
  }
  for (; x < width; ++x) mean[x] = (uint8_t)((sums[x] + (line ? line[x] : 0)) / count);
}
