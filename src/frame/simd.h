// The vector types and primitives that row kernels are written in, at the width of the level that
// includes this file. Compiler vector extensions carry what they can; intrinsics the rest.

#if defined(__AVX512VBMI__)
constexpr size_t kBytes = 64;
#elif defined(__AVX2__)
constexpr size_t kBytes = 32;
#else
constexpr size_t kBytes = 16;
#endif

typedef uint8_t U8 __attribute__((vector_size(kBytes)));

inline U8 load(const uint8_t* p) {
  U8 v;
  __builtin_memcpy(&v, p, kBytes);
  return v;
}

inline void store(uint8_t* p, U8 v) { __builtin_memcpy(p, &v, kBytes); }

#if defined(__AVX512VBMI__)
inline __mmask64 firstLanes(size_t n) { return ~0ULL >> (kBytes - n); }
#endif

// The first n samples (0 < n < kBytes), zeros behind them; nothing past them is touched.
inline U8 loadPart(const uint8_t* p, size_t n) {
#if defined(__AVX512VBMI__)
  return (U8)_mm512_maskz_loadu_epi8(firstLanes(n), p);
#else
  uint8_t whole[kBytes] = {};
  __builtin_memcpy(whole, p, n);
  return load(whole);
#endif
}

inline void storePart(uint8_t* p, U8 v, size_t n) {
#if defined(__AVX512VBMI__)
  _mm512_mask_storeu_epi8(p, firstLanes(n), (__m512i)v);
#else
  uint8_t whole[kBytes];
  store(whole, v);
  __builtin_memcpy(p, whole, n);
#endif
}

// A table of 256 bytes, ready to be looked up for a register of samples at once. Each level has the
// form its instructions allow; where they allow none, samples are looked up one by one.
#if defined(__AVX512VBMI__)

class Lookup {
 public:
  explicit Lookup(const uint8_t* table) {
    for (int i = 0; i < 4; ++i) part[i] = (__m512i)load(table + 64 * i);
  }
  U8 operator()(U8 x) const {
    const __m512i low = _mm512_permutex2var_epi8(part[0], (__m512i)x, part[1]);
    const __m512i high = _mm512_permutex2var_epi8(part[2], (__m512i)x, part[3]);
    return (U8)_mm512_mask_blend_epi8(_mm512_movepi8_mask((__m512i)x), low, high);
  }

 private:
  __m512i part[4];
};

#elif defined(__AVX2__)

// A byte shuffle looks up 16 entries and gives 0 where the index is negative. Each half of the table is
// a chain of eight shuffles, 16 subtracted (saturating) from the index between them; entry k of the
// chain holds part k XOR part k - 1, so that what a sample gathers until it goes negative is its entry.
class Lookup {
 public:
  explicit Lookup(const uint8_t* table) {
    for (int i = 0; i < 16; ++i) {
      __m128i step = _mm_loadu_si128((const __m128i*)(table + 16 * i));
      if (i % 8) step = _mm_xor_si128(step, _mm_loadu_si128((const __m128i*)(table + 16 * (i - 1))));
      link[i] = _mm256_broadcastsi128_si256(step);
    }
  }
  U8 operator()(U8 x) const {
    __m256i low = (__m256i)x;
    __m256i high = (__m256i)(x ^ 0x80);
    __m256i sum = _mm256_xor_si256(_mm256_shuffle_epi8(link[0], low), _mm256_shuffle_epi8(link[8], high));
    for (int i = 1; i < 8; ++i) {
      low = _mm256_subs_epi8(low, _mm256_set1_epi8(16));
      high = _mm256_subs_epi8(high, _mm256_set1_epi8(16));
      sum = _mm256_xor_si256(sum, _mm256_shuffle_epi8(link[i], low));
      sum = _mm256_xor_si256(sum, _mm256_shuffle_epi8(link[i + 8], high));
    }
    return (U8)sum;
  }

 private:
  __m256i link[16];
};

#elif defined(__aarch64__)

class Lookup {
 public:
  explicit Lookup(const uint8_t* table) {
    for (int i = 0; i < 4; ++i) part[i] = vld1q_u8_x4(table + 64 * i);
  }
  U8 operator()(U8 x) const {
    U8 y = (U8)vqtbl4q_u8(part[0], (uint8x16_t)x);
    for (int i = 1; i < 4; ++i) {
      x -= 64;
      y = (U8)vqtbx4q_u8((uint8x16_t)y, part[i], (uint8x16_t)x);
    }
    return y;
  }

 private:
  uint8x16x4_t part[4];
};

#else

class Lookup {
 public:
  explicit Lookup(const uint8_t* entries) : table(entries) {}
  U8 operator()(U8 x) const {
    for (size_t i = 0; i < kBytes; ++i) x[i] = table[x[i]];
    return x;
  }

 private:
  const uint8_t* table;
};

#endif
