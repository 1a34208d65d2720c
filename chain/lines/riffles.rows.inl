// The row kernels for SSE2, which has no byte shuffle. Each level includes this file once at most.
// A riffle takes samples of the first half of several registers and of the second half in turn: it
// moves sample i of n to place 2 i mod (n - 1). Undone, it takes every second sample, then the
// others.

inline U8 zipLow(U8 a, U8 b) { return (U8)_mm_unpacklo_epi8((__m128i)a, (__m128i)b); }
inline U8 zipHigh(U8 a, U8 b) { return (U8)_mm_unpackhi_epi8((__m128i)a, (__m128i)b); }

template <int times, size_t n>
inline void riffle(U8 (&v)[n]) {
  for (int i = 0; i < times; ++i) {
    U8 riffled[n];
    for (size_t k = 0; k < n / 2; ++k) {
      riffled[2 * k] = zipLow(v[k], v[k + n / 2]);
      riffled[2 * k + 1] = zipHigh(v[k], v[k + n / 2]);
    }
    for (size_t k = 0; k < n; ++k) v[k] = riffled[k];
  }
}

template <int times, size_t n>
inline void undoRiffle(U8 (&v)[n]) {
  for (int i = 0; i < times; ++i) {
    U16 half[2 * n];
    for (size_t k = 0; k < n; ++k) {
      half[k] = (U16)v[k] & 0xFF;
      half[n + k] = (U16)v[k] >> 8;
    }
    for (size_t k = 0; k < n; ++k) v[k] = narrow((I16)half[2 * k], (I16)half[2 * k + 1]);
  }
}

// Five riffles move sample 3 x + k of 96 to place 32 (3 x + k) mod 95 = x + 32 k.
void split3(const Row<1, 3>& row) {
  eachBlock<2 * kBytes>(row, &chain::Lines::split3, [=](size_t x) {
    U8 v[6];
    for (size_t i = 0; i < 6; ++i) v[i] = load(row.in[0] + 3 * x + i * kBytes);
    riffle<5>(v);
    for (size_t i = 0; i < 6; ++i) store(row.out[i / 2] + x + i % 2 * kBytes, v[i]);
  });
}

// 16 times 3 x + k mod 47 is x + 16 k, so four riffles undone join 48 samples.
void join3(const Row<3, 1>& row) {
  eachBlock<kBytes>(row, &chain::Lines::join3, [=](size_t x) {
    U8 v[] = {load(row.in[0] + x), load(row.in[1] + x), load(row.in[2] + x)};
    undoRiffle<4>(v);
    for (size_t i = 0; i < 3; ++i) store(row.out[0] + 3 * x + i * kBytes, v[i]);
  });
}

// 4 times x + 16 k mod 63 is 4 x + k: two riffles join 64 samples, and split them undone.
void split4(const Row<1, 4>& row) {
  eachBlock<kBytes>(row, &chain::Lines::split4, [=](size_t x) {
    U8 v[4];
    for (size_t i = 0; i < 4; ++i) v[i] = load(row.in[0] + 4 * x + i * kBytes);
    undoRiffle<2>(v);
    for (size_t i = 0; i < 4; ++i) store(row.out[i] + x, v[i]);
  });
}

void join4(const Row<4, 1>& row) {
  eachBlock<kBytes>(row, &chain::Lines::join4, [=](size_t x) {
    U8 v[4];
    for (size_t i = 0; i < 4; ++i) v[i] = load(row.in[i] + x);
    riffle<2>(v);
    for (size_t i = 0; i < 4; ++i) store(row.out[0] + 4 * x + i * kBytes, v[i]);
  });
}
