// The kernel that turns groups of lines. Each level includes this file once.

// A lane of 16 samples for each of 16 lines makes a square. Registers of two lanes turn two squares
// at once, that of the 16 lines below in the upper lane; wider ones measured no faster, because a
// transposition waits for memory.
constexpr size_t kSide = LineGroup::kLeast;

#if defined(__AVX2__)

typedef uint8_t Lanes __attribute__((vector_size(2 * kSide)));

inline Lanes zipLow(Lanes a, Lanes b) {
  return (Lanes)_mm256_unpacklo_epi8((__m256i)a, (__m256i)b);
}
inline Lanes zipHigh(Lanes a, Lanes b) {
  return (Lanes)_mm256_unpackhi_epi8((__m256i)a, (__m256i)b);
}
inline Lanes loadLanes(const uint8_t* lower, const uint8_t* upper) {
  return (Lanes)_mm256_loadu2_m128i((const __m128i*)upper, (const __m128i*)lower);
}

#else

typedef uint8_t Lanes __attribute__((vector_size(kSide)));

inline Lanes zipLow(Lanes a, Lanes b) {
  return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
inline Lanes zipHigh(Lanes a, Lanes b) {
  return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15,
                                 31);
}
inline Lanes loadLanes(const uint8_t* line, const uint8_t*) {
  Lanes v;
  __builtin_memcpy(&v, line, kSide);
  return v;
}

#endif

// Without vectors, squares of four samples are turned in words: pairs of samples of two lines, then
// pairs of pairs. The first sample is the lowest byte, whatever the machine's order.
inline uint32_t loadWord(const uint8_t* p) {
  return p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

inline void storeWord(uint8_t* p, uint32_t word) {
  for (size_t i = 0; i < sizeof word; ++i) p[i] = (uint8_t)(word >> 8 * i);
}

inline void transposeWords(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines,
                           size_t column) {
  constexpr uint32_t even = 0x00FF00FF;
  const uint32_t a = loadWord(lines[0] + column);
  const uint32_t b = loadWord(lines[1] + column);
  const uint32_t c = loadWord(lines[2] + column);
  const uint32_t d = loadWord(lines[3] + column);
  const uint32_t ab[2] = {(a & even) | (b & even) << 8, (a >> 8 & even) | (b & ~even)};
  const uint32_t cd[2] = {(c & even) | (d & even) << 8, (c >> 8 & even) | (d & ~even)};
  for (int i = 0; i < 2; ++i) {
    storeWord(out + i * pitch, (ab[i] & 0xFFFF) | cd[i] << 16);
    storeWord(out + (i + 2) * pitch, ab[i] >> 16 | (cd[i] & 0xFFFF0000));
  }
}

// Merging register i of the lower half with register i of the upper half rotates the place of every
// sample, counted in bits (four of the register, four of the byte in its lane), by one.
inline void zipStage(Lanes (&v)[kSide]) {
  Lanes merged[kSide];
#pragma GCC unroll 16
  for (size_t i = 0; i < kSide / 2; ++i) {
    merged[2 * i] = zipLow(v[i], v[i + kSide / 2]);
    merged[2 * i + 1] = zipHigh(v[i], v[i + kSide / 2]);
  }
#pragma GCC unroll 16
  for (size_t i = 0; i < kSide; ++i) v[i] = merged[i];
}

// Four stages swap register and byte. One lane of lines fills all lanes of the registers alike. The
// loops are unrolled by request: g++ keeps the array in memory otherwise, where each square's
// registers are written again after every stage.
template <size_t kLines>
inline void transposeBlock(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines,
                           size_t column) {
  if (!kHasVectors) {
    for (size_t x = 0; x < kSide; x += 4) {
      for (size_t i = 0; i < kSide; i += 4) {
        transposeWords(out + (ptrdiff_t)x * pitch + i, pitch, lines + i, column + x);
      }
    }
    return;
  }
  Lanes v[kSide];
#pragma GCC unroll 16
  for (size_t i = 0; i < kSide; ++i) {
    v[i] = loadLanes(lines[i] + column, lines[i + kLines - kSide] + column);
  }
#pragma GCC unroll 4
  for (int stage = 0; stage < 4; ++stage) zipStage(v);
#pragma GCC unroll 16
  for (size_t i = 0; i < kSide; ++i) __builtin_memcpy(out + (ptrdiff_t)i * pitch, &v[i], kLines);
}

// A last block that would reach past the end is moved back to end there: the samples that it shares
// with the block before are written twice.
inline size_t blockStart(size_t at, size_t end, size_t size) {
  return at + size <= end ? at : end - size;
}

template <size_t kLines>
inline void transposeColumns(uint8_t* out, ptrdiff_t pitch, const LineGroup& group, size_t column) {
  for (size_t i = 0; i < group.count; i += kLines) {
    const size_t line = blockStart(i, group.count, kLines);
    transposeBlock<kLines>(out + line, pitch, group.lines + line, column);
  }
}

// The lines of a group are taken one block after the other for the same output lines, which fills
// these a cache line at a time.
void transposeRows(uint8_t* out, ptrdiff_t pitch, const LineGroup& group, const LineGroup& next,
                   size_t columns) {
  constexpr size_t cacheLine = 64;
  if (group.count < kSide) {
    for (size_t j = 0; j < columns; ++j) {
      for (size_t i = 0; i < group.count; ++i)
        out[(ptrdiff_t)j * pitch + (ptrdiff_t)i] = group.lines[i][j];
    }
    return;
  }
  const size_t share = next.count / (columns / kSide) + 1;
  size_t asked = 0;
  for (size_t strip = 0; strip < columns; strip += kSide) {
    for (size_t end = asked + share; asked < end && asked < next.count; ++asked) {
      const uint8_t* const line = next.lines[asked];
      for (size_t x = 0; x < columns; x += cacheLine) __builtin_prefetch(line + x);
      __builtin_prefetch(line + columns - 1);
    }
    const size_t column = blockStart(strip, columns, kSide);
    uint8_t* const to = out + (ptrdiff_t)column * pitch;
    if (group.count < sizeof(Lanes)) {
      transposeColumns<kSide>(to, pitch, group, column);
    } else {
      transposeColumns<sizeof(Lanes)>(to, pitch, group, column);
    }
  }
}
