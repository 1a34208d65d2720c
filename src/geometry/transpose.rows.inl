// A transposition waits for memory at any width, so all levels work on blocks of 16 x 16.
constexpr size_t kSide = 16;
typedef uint8_t Side __attribute__((vector_size(kSide)));

inline Side zipLow(Side a, Side b) {
  return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}

inline Side zipHigh(Side a, Side b) {
  return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15,
                                 31);
}

// Merging register i of the lower half with register i of the upper half rotates the place of every
// sample, counted in bits (four of the register, four of the byte in it), by one.
inline void zipStage(Side (&v)[kSide]) {
  Side merged[kSide];
  for (size_t i = 0; i < kSide / 2; ++i) {
    merged[2 * i] = zipLow(v[i], v[i + kSide / 2]);
    merged[2 * i + 1] = zipHigh(v[i], v[i + kSide / 2]);
  }
  for (size_t i = 0; i < kSide; ++i) v[i] = merged[i];
}

// Four stages swap register and byte.
inline void transposeBlock(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines,
                           size_t column) {
  Side v[kSide];
  for (size_t i = 0; i < kSide; ++i) __builtin_memcpy(&v[i], lines[i] + column, kSide);
  for (int stage = 0; stage < 4; ++stage) zipStage(v);
  for (size_t i = 0; i < kSide; ++i) __builtin_memcpy(out + (ptrdiff_t)i * pitch, &v[i], kSide);
}

// Blocks that are cut at an edge go through copies, so that nothing outside is read or written.
void transposeEdge(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines, size_t count,
                   size_t column, size_t columns) {
  uint8_t copy[kSide][kSide] = {};
  uint8_t turned[kSide][kSide];
  const uint8_t* copied[kSide];
  for (size_t i = 0; i < kSide; ++i) {
    copied[i] = copy[i];
    if (i < count) __builtin_memcpy(copy[i], lines[i] + column, columns);
  }
  transposeBlock(turned[0], kSide, copied, 0);
  for (size_t j = 0; j < columns; ++j) {
    __builtin_memcpy(out + (ptrdiff_t)j * pitch, turned[j], count);
  }
}

// The lines of a group are taken one block after the other for the same output lines, which fills
// these a cache line at a time.
void transposeRows(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines, size_t count,
                   size_t columns) {
  for (size_t column = 0; column < columns; column += kSide) {
    const size_t columnCount = columns - column < kSide ? columns - column : kSide;
    for (size_t line = 0; line < count; line += kSide) {
      const size_t lineCount = count - line < kSide ? count - line : kSide;
      uint8_t* const to = out + (ptrdiff_t)column * pitch + (ptrdiff_t)line;
      if (lineCount == kSide && columnCount == kSide) {
        transposeBlock(to, pitch, lines + line, column);
      } else {
        transposeEdge(to, pitch, lines + line, lineCount, column, columnCount);
      }
    }
  }
}
