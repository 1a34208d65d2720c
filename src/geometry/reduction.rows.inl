// The kernels of reduction, for lines and across lines. Each level includes this file once.

// Runs along a line of at least a register; the last register is taken back to end with the line.
template <class Work>
inline void eachRegister(size_t width, Work work) {
  for (size_t x = 0; x < width; x += kBytes) work(x + kBytes <= width ? x : width - kBytes);
}

void addRow(uint8_t* out, const uint8_t* a, const uint8_t* b, size_t width) {
  eachRegister(width, [=](size_t x) { store(out + x, load(a + x) + load(b + x)); });
}

// Prefetches the lines of the next group, which are used after the lines of the other planes. The
// address is an integer, because the last group has no next one.
inline void prefetch(const uint8_t* samples, ptrdiff_t distance) {
  __builtin_prefetch((const void*)((uintptr_t)samples + (uintptr_t)distance));
}

template <class Divide>
inline void meanWith(uint8_t* mean, const uint8_t* lines, ptrdiff_t pitch, size_t count,
                     size_t width, Divide divide) {
  eachRegister(width, [=](size_t x) {
    U16 low{};
    U16 high{};
    size_t at = x;  // not a pointer, which would end past the last line
    for (size_t k = 0; k < count; ++k, at += (size_t)pitch) {
      const U8 samples = load(lines + at);
      prefetch(lines + at, (ptrdiff_t)count * pitch);
      low += widenLow(samples);
      high += widenHigh(samples);
    }
    store(mean + x, narrow((I16)divide(low), (I16)divide(high)));
  });
}

// For sums of up to 11 samples: n * (32768 / d + 1) / 32768 is less than 1 / d above n / d up to
// n = 255 d.
constexpr size_t kMostTerms = 11;
inline U16 quotientOfSum(U16 sum, U16 multiplier) { return mulHigh(sum + sum, multiplier); }

void meanRow(uint8_t* mean, const uint8_t* lines, ptrdiff_t pitch, size_t count, size_t width) {
  if (count == 2) {
    eachRegister(width, [=](size_t x) {
      const U8 a = load(lines + x);
      constexpr size_t cacheLine = 64;
      if (x % cacheLine < kBytes) {
        prefetch(lines + x, 2 * pitch);
        prefetch(lines + x, 3 * pitch);
      }
      const U8 b = load(lines + pitch + x);
      store(mean + x, (a & b) + ((a ^ b) >> 1));
    });
  } else if (count <= kMostTerms) {
    const U16 multiplier = splat((uint16_t)(32768 / count + 1));
    meanWith(mean, lines, pitch, count, width,
             [=](U16 sum) { return quotientOfSum(sum, multiplier); });
  } else {
    const U16 divisor = splat((uint16_t)count);
    const U16 reciprocal = splat((uint16_t)(65536 / count));
    meanWith(mean, lines, pitch, count, width,
             [=](U16 sum) { return quotient(sum, divisor, reciprocal); });
  }
}

typedef uint8_t Window __attribute__((vector_size(LinePlan::kWindow)));
constexpr size_t kLanes = kBytes / LinePlan::kWindow;

#if defined(__AVX512VBMI__)

inline U8 join(const Window (&lane)[kLanes]) {
  __m512i v = _mm512_castsi128_si512((__m128i)lane[0]);
  v = _mm512_inserti32x4(v, (__m128i)lane[1], 1);
  v = _mm512_inserti32x4(v, (__m128i)lane[2], 2);
  return (U8)_mm512_inserti32x4(v, (__m128i)lane[3], 3);
}

#elif defined(__AVX2__)

inline U8 join(const Window (&lane)[kLanes]) {
  return (U8)_mm256_set_m128i((__m128i)lane[1], (__m128i)lane[0]);
}

#else

inline U8 join(const Window (&lane)[kLanes]) { return lane[0]; }

#endif

// Two registers become one of outputs, whose lanes are in order if each has the two halves of its
// samples in the same lane of both.
void halveRow(uint8_t* out, const uint8_t* line, size_t outputs) {
  eachRegister(outputs, [=](size_t x) {
    U16 mean[2];
    for (size_t half = 0; half < 2; ++half) {
      Window lane[kLanes];
      for (size_t i = 0; i < kLanes; ++i) {
        __builtin_memcpy(&lane[i], line + 2 * x + (2 * i + half) * sizeof(Window), sizeof(Window));
      }
      const U16 pairs = (U16)join(lane);
      mean[half] = ((pairs & 0xFF) + (pairs >> 8)) >> 1;
    }
    store(out + x, narrow((I16)mean[0], (I16)mean[1]));
  });
}

// NEON counts the bytes of a register from the other end where words are big-endian.
#if defined(__AVX2__) || (defined(__ARM_NEON) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)

#if defined(__AVX512VBMI__)

inline U8 pick(U8 lanes, U8 place) {
  return (U8)_mm512_shuffle_epi8((__m512i)lanes, (__m512i)place);
}
inline U16 addPairs(U8 v) { return (U16)_mm512_maddubs_epi16((__m512i)v, _mm512_set1_epi8(1)); }

#elif defined(__AVX2__)

inline U8 pick(U8 lanes, U8 place) {
  return (U8)_mm256_shuffle_epi8((__m256i)lanes, (__m256i)place);
}
inline U16 addPairs(U8 v) { return (U16)_mm256_maddubs_epi16((__m256i)v, _mm256_set1_epi8(1)); }

#else

inline U16 addPairs(U8 v) { return (U16)vpaddlq_u8((uint8x16_t)v); }

#if defined(__aarch64__)
inline U8 pick(U8 lanes, U8 place) { return (U8)vqtbl1q_u8((uint8x16_t)lanes, (uint8x16_t)place); }
#else
inline U8 pick(U8 lanes, U8 place) {
  const uint8x16_t from = (uint8x16_t)lanes;
  const uint8x16_t at = (uint8x16_t)place;
  const uint8x8x2_t halves = {{vget_low_u8(from), vget_high_u8(from)}};
  return (U8)vcombine_u8(vtbl2_u8(halves, vget_low_u8(at)), vtbl2_u8(halves, vget_high_u8(at)));
}
#endif

#endif

template <size_t terms, bool recalls>
void reduceWith(uint8_t* out, const uint8_t* period, const LinePlan& plan, size_t block,
                size_t end) {
  const I16 ones = (I16)splat(uint16_t{1});
  for (size_t window = block * terms * kLanes; block < end; ++block, out += kBytes) {
    U16 sum[terms];
    for (size_t k = 0; k < terms; ++k) {
      U8 place;
      __builtin_memcpy(&place, plan.place[window], kBytes);
      Window lane[kLanes];
      for (size_t i = 0; i < kLanes; ++i, ++window) {
        __builtin_memcpy(&lane[i], period + plan.start[window], sizeof(Window));
        if constexpr (recalls) lane[i][LinePlan::kWindow - 1] = period[plan.recalled[window]];
      }
      sum[k] = addPairs(pick(join(lane), place));
    }
    if constexpr (terms == 4) {
      for (size_t k = 0; k < 2; ++k) {
        sum[k] = (U16)narrow(dotPairs((I16)sum[2 * k], ones), dotPairs((I16)sum[2 * k + 1], ones));
      }
    }
    U16 low;
    U16 high;
    __builtin_memcpy(&low, plan.multiplier + block * kBytes, kBytes);
    __builtin_memcpy(&high, plan.multiplier + block * kBytes + kBytes / 2, kBytes);
    low = quotientOfSum(sum[0], low);
    high = quotientOfSum(sum[1], high);
    store(out, narrow((I16)(low & 0xFF), (I16)(high & 0xFF)));
  }
}

void reduceBlocks(uint8_t* out, const uint8_t* period, const LinePlan& plan, size_t block,
                  size_t end) {
  const auto with = plan.terms == 4 ? reduceWith<4, false>
                    : plan.recalls  ? reduceWith<2, true>
                                    : reduceWith<2, false>;
  with(out, period, plan, block, end);
}

#else

// Without a byte shuffle samples are summed one by one.
constexpr void (*reduceBlocks)(uint8_t* out, const uint8_t* period, const LinePlan& plan,
                               size_t block, size_t end) = nullptr;

#endif
