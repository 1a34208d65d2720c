// The vector types and primitives that row kernels are written in, at the width of the level. The
// file of each level includes this one once, inside the namespace of the level, after stdint.h,
// stddef.h and the intrinsics. Compiler vector extensions carry most primitives; the others are
// intrinsics, with a plain loop for machines that have none.
//
// widen splits a register of samples into a low and a high half and zip merges two halves. A half
// is half of the register or of each of its lanes of 16 bytes: machines differ. narrow puts samples
// back where they were.

#if defined(__AVX512VBMI__)
constexpr size_t kBytes = 64;
#elif defined(__AVX2__)
constexpr size_t kBytes = 32;
#else
constexpr size_t kBytes = 16;
#endif

// Without vectors in the machine, compilers take arithmetic on them apart: it costs more than the
// definition's arithmetic, sample by sample.
#if defined(__AVX2__) || defined(__SSE2__) || defined(__ARM_NEON)
constexpr bool kHasVectors = true;
#else
constexpr bool kHasVectors = false;
#endif

typedef uint8_t U8 __attribute__((vector_size(kBytes)));
typedef uint16_t U16 __attribute__((vector_size(kBytes)));
typedef int16_t I16 __attribute__((vector_size(kBytes)));
typedef uint32_t U32 __attribute__((vector_size(kBytes)));
typedef int32_t I32 __attribute__((vector_size(kBytes)));
typedef float F32 __attribute__((vector_size(kBytes)));

inline U8 load(const uint8_t* p) {
  U8 v;
  __builtin_memcpy(&v, p, kBytes);
  return v;
}

inline void store(uint8_t* p, U8 v) { __builtin_memcpy(p, &v, kBytes); }

inline U8 splat(uint8_t v) { return U8{} + v; }
inline U16 splat(uint16_t v) { return U16{} + v; }
inline U32 splat(uint32_t v) { return U32{} + v; }

inline bool isZero(U8 v) {
#if defined(__AVX512VBMI__)
  return _mm512_test_epi8_mask((__m512i)v, (__m512i)v) == 0;
#elif defined(__AVX2__)
  return _mm256_testz_si256((__m256i)v, (__m256i)v) != 0;
#elif defined(__SSE2__)
  return _mm_movemask_epi8(_mm_cmpeq_epi8((__m128i)v, _mm_setzero_si128())) == 0xFFFF;
#else
  uint64_t words[kBytes / 8];
  __builtin_memcpy(words, &v, kBytes);
  uint64_t set = 0;
  for (const uint64_t word : words) set |= word;
  return set == 0;
#endif
}

inline U8 lesser(U8 a, U8 b) { return a < b ? a : b; }
inline U16 lesser(U16 a, U16 b) { return a < b ? a : b; }
inline U8 greater(U8 a, U8 b) { return a > b ? a : b; }
inline U8 select(U8 mask, U8 a, U8 b) { return (mask & a) | (~mask & b); }
inline U16 select(U16 mask, U16 a, U16 b) { return (mask & a) | (~mask & b); }

#if defined(__AVX512VBMI__)

inline U16 widenLow(U8 a) { return (U16)_mm512_unpacklo_epi8((__m512i)a, _mm512_setzero_si512()); }
inline U16 widenHigh(U8 a) { return (U16)_mm512_unpackhi_epi8((__m512i)a, _mm512_setzero_si512()); }
inline I16 zipLow(I16 a, I16 b) { return (I16)_mm512_unpacklo_epi16((__m512i)a, (__m512i)b); }
inline I16 zipHigh(I16 a, I16 b) { return (I16)_mm512_unpackhi_epi16((__m512i)a, (__m512i)b); }
inline U8 narrow(I16 a, I16 b) { return (U8)_mm512_packus_epi16((__m512i)a, (__m512i)b); }
inline I16 narrow(I32 a, I32 b) { return (I16)_mm512_packs_epi32((__m512i)a, (__m512i)b); }
inline I32 dotPairs(I16 a, I16 b) { return (I32)_mm512_madd_epi16((__m512i)a, (__m512i)b); }
inline U16 mulHigh(U16 a, U16 b) { return (U16)_mm512_mulhi_epu16((__m512i)a, (__m512i)b); }

inline U8 mirrorGroups(U8 v) {
  const __m128i order = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
  return (U8)_mm512_shuffle_epi8((__m512i)v, _mm512_broadcast_i32x4(order));
}

inline U8 mirror(U8 v) {
  U8 order;
  for (size_t i = 0; i < kBytes; ++i) order[i] = (uint8_t)(kBytes - 1 - i);
  return (U8)_mm512_permutexvar_epi8((__m512i)order, (__m512i)v);
}

#elif defined(__AVX2__)

inline U16 widenLow(U8 a) { return (U16)_mm256_unpacklo_epi8((__m256i)a, _mm256_setzero_si256()); }
inline U16 widenHigh(U8 a) { return (U16)_mm256_unpackhi_epi8((__m256i)a, _mm256_setzero_si256()); }
inline I16 zipLow(I16 a, I16 b) { return (I16)_mm256_unpacklo_epi16((__m256i)a, (__m256i)b); }
inline I16 zipHigh(I16 a, I16 b) { return (I16)_mm256_unpackhi_epi16((__m256i)a, (__m256i)b); }
inline U8 narrow(I16 a, I16 b) { return (U8)_mm256_packus_epi16((__m256i)a, (__m256i)b); }
inline I16 narrow(I32 a, I32 b) { return (I16)_mm256_packs_epi32((__m256i)a, (__m256i)b); }
inline I32 dotPairs(I16 a, I16 b) { return (I32)_mm256_madd_epi16((__m256i)a, (__m256i)b); }
inline U16 mulHigh(U16 a, U16 b) { return (U16)_mm256_mulhi_epu16((__m256i)a, (__m256i)b); }

inline U8 mirrorGroups(U8 v) {
  const __m128i order = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
  return (U8)_mm256_shuffle_epi8((__m256i)v, _mm256_broadcastsi128_si256(order));
}

inline U8 mirror(U8 v) {
  const __m128i order = _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  const __m256i lanes = _mm256_shuffle_epi8((__m256i)v, _mm256_broadcastsi128_si256(order));
  return (U8)_mm256_permute2x128_si256(lanes, lanes, 1);
}

#elif defined(__SSE2__)

inline U16 widenLow(U8 a) { return (U16)_mm_unpacklo_epi8((__m128i)a, _mm_setzero_si128()); }
inline U16 widenHigh(U8 a) { return (U16)_mm_unpackhi_epi8((__m128i)a, _mm_setzero_si128()); }
inline I16 zipLow(I16 a, I16 b) { return (I16)_mm_unpacklo_epi16((__m128i)a, (__m128i)b); }
inline I16 zipHigh(I16 a, I16 b) { return (I16)_mm_unpackhi_epi16((__m128i)a, (__m128i)b); }
inline U8 narrow(I16 a, I16 b) { return (U8)_mm_packus_epi16((__m128i)a, (__m128i)b); }
inline I16 narrow(I32 a, I32 b) { return (I16)_mm_packs_epi32((__m128i)a, (__m128i)b); }
inline I32 dotPairs(I16 a, I16 b) { return (I32)_mm_madd_epi16((__m128i)a, (__m128i)b); }
inline U16 mulHigh(U16 a, U16 b) { return (U16)_mm_mulhi_epu16((__m128i)a, (__m128i)b); }

// Without a byte shuffle: bytes within words, then words.
inline U16 swapBytes(U8 v) { return ((U16)v << 8) | ((U16)v >> 8); }

inline U8 mirrorGroups(U8 v) {
  const U32 words = (U32)swapBytes(v);
  return (U8)((words << 16) | (words >> 16));
}

inline U8 mirror(U8 v) {
  const __m128i quarters = _mm_shuffle_epi32((__m128i)swapBytes(v), _MM_SHUFFLE(0, 1, 2, 3));
  const __m128i low = _mm_shufflelo_epi16(quarters, _MM_SHUFFLE(2, 3, 0, 1));
  return (U8)_mm_shufflehi_epi16(low, _MM_SHUFFLE(2, 3, 0, 1));
}

#else

inline U8 mirrorGroups(U8 v) {
  return __builtin_shufflevector(v, v, 3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
}

inline U8 mirror(U8 v) {
  return __builtin_shufflevector(v, v, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
}

#if defined(__ARM_NEON)

inline U16 widenLow(U8 a) { return (U16)vmovl_u8(vget_low_u8((uint8x16_t)a)); }
inline U16 widenHigh(U8 a) { return (U16)vmovl_u8(vget_high_u8((uint8x16_t)a)); }
inline I16 zipLow(I16 a, I16 b) { return (I16)vzipq_s16((int16x8_t)a, (int16x8_t)b).val[0]; }
inline I16 zipHigh(I16 a, I16 b) { return (I16)vzipq_s16((int16x8_t)a, (int16x8_t)b).val[1]; }
inline U8 narrow(I16 a, I16 b) {
  return (U8)vcombine_u8(vqmovun_s16((int16x8_t)a), vqmovun_s16((int16x8_t)b));
}
inline I16 narrow(I32 a, I32 b) {
  return (I16)vcombine_s16(vqmovn_s32((int32x4_t)a), vqmovn_s32((int32x4_t)b));
}
inline I32 dotPairs(I16 a, I16 b) {
  const int32x4_t low = vmull_s16(vget_low_s16((int16x8_t)a), vget_low_s16((int16x8_t)b));
  const int32x4_t high = vmull_s16(vget_high_s16((int16x8_t)a), vget_high_s16((int16x8_t)b));
  return (I32)vcombine_s32(vpadd_s32(vget_low_s32(low), vget_high_s32(low)),
                           vpadd_s32(vget_low_s32(high), vget_high_s32(high)));
}
inline U16 mulHigh(U16 a, U16 b) {
  const uint32x4_t low = vmull_u16(vget_low_u16((uint16x8_t)a), vget_low_u16((uint16x8_t)b));
  const uint32x4_t high = vmull_u16(vget_high_u16((uint16x8_t)a), vget_high_u16((uint16x8_t)b));
  return (U16)vcombine_u16(vshrn_n_u32(low, 16), vshrn_n_u32(high, 16));
}

#else

constexpr size_t kHalf = kBytes / 2;
constexpr size_t kQuarter = kBytes / 4;

inline U16 widenLow(U8 a) {
  U16 v;
  for (size_t i = 0; i < kHalf; ++i) v[i] = a[i];
  return v;
}
inline U16 widenHigh(U8 a) {
  U16 v;
  for (size_t i = 0; i < kHalf; ++i) v[i] = a[i + kHalf];
  return v;
}
inline I16 zipLow(I16 a, I16 b) {
  I16 v;
  for (size_t i = 0; i < kHalf; ++i) v[i] = i % 2 ? b[i / 2] : a[i / 2];
  return v;
}
inline I16 zipHigh(I16 a, I16 b) {
  I16 v;
  for (size_t i = 0; i < kHalf; ++i) v[i] = i % 2 ? b[i / 2 + kQuarter] : a[i / 2 + kQuarter];
  return v;
}
inline U8 narrow(I16 a, I16 b) {
  U8 v;
  for (size_t i = 0; i < kBytes; ++i) {
    const int16_t wide = i < kHalf ? a[i] : b[i - kHalf];
    v[i] = (uint8_t)(wide < 0 ? 0 : wide > 255 ? 255 : wide);
  }
  return v;
}
inline I16 narrow(I32 a, I32 b) {
  I16 v;
  for (size_t i = 0; i < kHalf; ++i) {
    const int32_t wide = i < kQuarter ? a[i] : b[i - kQuarter];
    v[i] = (int16_t)(wide < INT16_MIN ? INT16_MIN : wide > INT16_MAX ? INT16_MAX : wide);
  }
  return v;
}
inline I32 dotPairs(I16 a, I16 b) {
  I32 v;
  for (size_t i = 0; i < kQuarter; ++i) v[i] = a[2 * i] * b[2 * i] + a[2 * i + 1] * b[2 * i + 1];
  return v;
}
inline U16 mulHigh(U16 a, U16 b) {
  U16 v;
  for (size_t i = 0; i < kHalf; ++i) v[i] = (uint16_t)((uint32_t)a[i] * b[i] >> 16);
  return v;
}

#endif
#endif

// A table of 256 bytes, ready to be looked up for as many registers of samples at once as share the
// loads of the table's parts. Each level has the form that its instructions allow; where they allow
// none, samples are looked up one by one.
#if defined(__AVX512VBMI__)

class Lookup {
 public:
  static constexpr size_t kTogether = 1;

  explicit Lookup(const uint8_t* table) {
    for (int i = 0; i < 4; ++i) part[i] = (__m512i)load(table + 64 * i);
  }
  void replace(U8 (&v)[1]) const {
    const __m512i x = (__m512i)v[0];
    const __m512i low = _mm512_permutex2var_epi8(part[0], x, part[1]);
    const __m512i high = _mm512_permutex2var_epi8(part[2], x, part[3]);
    v[0] = (U8)_mm512_mask_blend_epi8(_mm512_movepi8_mask(x), low, high);
  }

 private:
  __m512i part[4];
};

#elif defined(__AVX2__)

// A byte shuffle looks up 16 entries and gives 0 where the index is negative. Each half of the
// table is a chain of eight shuffles, with 16 subtracted (saturating) from the index between them;
// entry k of the chain holds part k XOR part k - 1, so that the sum of a sample is its entry when
// the index becomes negative.
class Lookup {
 public:
  static constexpr size_t kTogether = 1;

  explicit Lookup(const uint8_t* table) {
    for (int i = 0; i < 16; ++i) {
      __m128i step = _mm_loadu_si128((const __m128i*)(table + 16 * i));
      if (i % 8)
        step = _mm_xor_si128(step, _mm_loadu_si128((const __m128i*)(table + 16 * (i - 1))));
      link[i] = _mm256_broadcastsi128_si256(step);
    }
  }
  void replace(U8 (&v)[1]) const {
    __m256i low = (__m256i)v[0];
    __m256i high = (__m256i)(v[0] ^ 0x80);
    __m256i sum =
        _mm256_xor_si256(_mm256_shuffle_epi8(link[0], low), _mm256_shuffle_epi8(link[8], high));
    for (int i = 1; i < 8; ++i) {
      low = _mm256_subs_epi8(low, _mm256_set1_epi8(16));
      high = _mm256_subs_epi8(high, _mm256_set1_epi8(16));
      sum = _mm256_xor_si256(sum, _mm256_shuffle_epi8(link[i], low));
      sum = _mm256_xor_si256(sum, _mm256_shuffle_epi8(link[i + 8], high));
    }
    v[0] = (U8)sum;
  }

 private:
  __m256i link[16];
};

#elif defined(__aarch64__)

class Lookup {
 public:
  static constexpr size_t kTogether = 4;

  explicit Lookup(const uint8_t* table) {
    for (int i = 0; i < 4; ++i) part[i] = vld1q_u8_x4(table + 64 * i);
  }
  template <size_t n>
  void replace(U8 (&v)[n]) const {
    U8 index[n];
    for (size_t k = 0; k < n; ++k) {
      index[k] = v[k];
      v[k] = (U8)vqtbl4q_u8(part[0], (uint8x16_t)index[k]);
    }
    for (int i = 1; i < 4; ++i) {
      const uint8x16x4_t entries = part[i];
      for (size_t k = 0; k < n; ++k) {
        index[k] -= 64;
        v[k] = (U8)vqtbx4q_u8((uint8x16_t)v[k], entries, (uint8x16_t)index[k]);
      }
    }
  }

 private:
  uint8x16x4_t part[4];
};

#else

class Lookup {
 public:
  static constexpr size_t kTogether = 0;

  explicit Lookup(const uint8_t* entries) : table(entries) {}
  uint8_t operator[](uint8_t x) const { return table[x]; }

 private:
  const uint8_t* table;
};

#endif

// 65536 / d, truncated, for every sample d > 1; 65535 for d = 1; anything for d = 0.
#if defined(__AVX512VBMI__) || defined(__aarch64__)

// Two look-ups take less time than the divisions of four floats at a time.
struct ReciprocalBytes {
  uint8_t low[256];
  uint8_t high[256];
};

constexpr ReciprocalBytes makeReciprocalBytes() {
  ReciprocalBytes bytes{};
  for (uint32_t d = 1; d < 256; ++d) {
    const uint32_t reciprocal = d == 1 ? 65535 : 65536 / d;
    bytes.low[d] = (uint8_t)reciprocal;
    bytes.high[d] = (uint8_t)(reciprocal >> 8);
  }
  return bytes;
}

constexpr ReciprocalBytes kReciprocalBytes = makeReciprocalBytes();

class Reciprocals {
 public:
  Reciprocals() : low(kReciprocalBytes.low), high(kReciprocalBytes.high) {}
  void operator()(U8 d, U16& ofLow, U16& ofHigh) const {
    U8 l[] = {d};
    U8 h[] = {d};
    low.replace(l);
    high.replace(h);
    ofLow = widenLow(l[0]) | widenLow(h[0]) << 8;
    ofHigh = widenHigh(l[0]) | widenHigh(h[0]) << 8;
  }

 private:
  Lookup low;
  Lookup high;
};

#else

// A float quotient, truncated: 65536 / d is an integer or at least 1 / d away from the next one,
// and its rounding error, in whatever mode the caller has set, is less than 1 / (64 d).
class Reciprocals {
 public:
  void operator()(U8 d, U16& ofLow, U16& ofHigh) const {
    d = greater(d,
                splat(uint8_t{1}));  // no division by zero, which the caller may have made to trap
    ofLow = ofHalf((I16)widenLow(d));
    ofHigh = ofHalf((I16)widenHigh(d));
  }

 private:
  // Narrowing saturates as signed, hence the shift of the range by 32768 and back; it also takes
  // the 65536 of d = 1 to 65535.
  static I32 ofQuarter(I16 d) {
    const F32 quotient = 65536.0f / __builtin_convertvector((I32)d, F32);
    return __builtin_convertvector(quotient, I32) - 32768;
  }
  static U16 ofHalf(I16 d) {
    const I16 zero{};
    return (U16)narrow(ofQuarter(zipLow(d, zero)), ofQuarter(zipHigh(d, zero))) ^ 0x8000;
  }
};

#endif

// n / d, truncated, for any n and a sample d > 0, given d's reciprocal. The estimate is the
// quotient or one less, since n * (65536 / d - reciprocal) < 65536.
inline U16 quotient(U16 n, U16 d, U16 reciprocal) {
  const U16 estimate = mulHigh(n, reciprocal);
  const U16 rest = n - estimate * d;
  return estimate - (U16)((I16)rest >= (I16)d);
}

// Four quarter registers of 32-bit sums, as widening and zipping leaves them, to samples: divided
// by 256 towards zero, offset, clamped and, with all bits set in `invert`, inverted.
inline U8 samplesOf(const U32 (&sum)[4], U32 offset, U8 invert) {
  I32 v[4];
  for (size_t i = 0; i < 4; ++i) {
    const U32 towardsZero = (U32)((I32)sum[i] >> 31) >> 24;  // 255 where negative
    v[i] = (I32)((U32)((I32)(sum[i] + towardsZero) >> 8) + offset);
  }
  return narrow(narrow(v[0], v[1]), narrow(v[2], v[3])) ^ invert;
}
