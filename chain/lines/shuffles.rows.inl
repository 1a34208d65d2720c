// The row kernels for machines that shuffle bytes. Each level includes this file once at most. The
// pixels of a register's width fill one register for each component. A shuffle within a register
// moves each component to places where no other register has it; blends then gather the component,
// or the pixels, of all registers.

// `blend` gives b where the pattern has the place, otherwise a. Patterns and orders count within a
// lane and are the same in all lanes.
#if defined(__AVX512VBMI__)

constexpr size_t kLane = kBytes;

template <class Pattern>
constexpr uint64_t placesIn() {
  uint64_t places = 0;
  for (size_t i = 0; i < kBytes; ++i) places |= (uint64_t)Pattern::has(i) << i;
  return places;
}

// If clang knew the mask, it would merge blends and shuffles to shuffles of two registers, which
// take three operations each.
template <class Pattern>
inline U8 blend(U8 a, U8 b) {
  constexpr uint64_t places = placesIn<Pattern>();
  uint64_t mask = places;
  __asm__("" : "+r"(mask));
  return (U8)_mm512_mask_blend_epi8(mask, (__m512i)a, (__m512i)b);
}

inline U8 shuffle(U8 v, U8 places) {
  return (U8)_mm512_permutexvar_epi8((__m512i)places, (__m512i)v);
}

template <size_t N>
inline void loadLine(U8 (&v)[N], const uint8_t* line) {
  for (size_t i = 0; i < N; ++i) v[i] = load(line + i * kBytes);
}

template <size_t N>
inline void storeLine(uint8_t* line, const U8 (&v)[N]) {
  for (size_t i = 0; i < N; ++i) store(line + i * kBytes, v[i]);
}

#else

constexpr size_t kLane = kBytes / 2;

template <size_t... i>
struct Indices {};
template <size_t n, size_t... i>
struct IndicesBelow : IndicesBelow<n - 1, n - 1, i...> {};
template <size_t... i>
struct IndicesBelow<0, i...> {
  using Type = Indices<i...>;
};

template <class Pattern, size_t... i>
inline U8 blend(U8 a, U8 b, Indices<i...>) {
  return __builtin_shufflevector(a, b, (Pattern::has(i % kLane) ? kBytes + i : i)...);
}
template <class Pattern>
inline U8 blend(U8 a, U8 b) {
  return blend<Pattern>(a, b, IndicesBelow<kBytes>::Type());
}

inline U8 shuffle(U8 v, U8 places) { return (U8)_mm256_shuffle_epi8((__m256i)v, (__m256i)places); }

// The upper lanes hold the samples that follow the lower lanes of all registers.
template <size_t N>
inline void loadLine(U8 (&v)[N], const uint8_t* line) {
  for (size_t i = 0; i < N; ++i) {
    const uint8_t* const lower = line + i * kLane;
    v[i] = (U8)_mm256_loadu2_m128i((const __m128i*)(lower + N * kLane), (const __m128i*)lower);
  }
}

template <size_t N, size_t... i>
inline void storeLanes(uint8_t* line, const U8 (&v)[N], Indices<i...>) {
  (store(line + i * kBytes,
         (U8)_mm256_permute2x128_si256((__m256i)v[2 * i % N], (__m256i)v[(2 * i + 1) % N],
                                       2 * i / N | (2 + (2 * i + 1) / N) << 4)),
   ...);
}
template <size_t N>
inline void storeLine(uint8_t* line, const U8 (&v)[N]) {
  storeLanes(line, v, typename IndicesBelow<N>::Type());
}

#endif

struct Places {
  uint8_t at[kBytes];
};
template <class Order>
constexpr Places placesOf() {
  Places places{};
  for (size_t i = 0; i < kBytes; ++i) places.at[i] = (uint8_t)Order::from(i % kLane);
  return places;
}
template <class Order>
constexpr Places kPlaces = placesOf<Order>();

template <class Order>
inline U8 reorder(U8 v) {
  return shuffle(v, load(kPlaces<Order>.at));
}

// With three components, sample k of pixel x is at place (3 x + k) mod kLane of register (3 x + k)
// / kLane, and register r has component k at each third place from (k - r) mod 3 on.
static_assert(kLane % 3 == 1);

template <size_t first>
struct Thirds {
  static constexpr bool has(size_t place) { return place % 3 == first; }
};

template <size_t k>
struct Gathered {
  static constexpr size_t from(size_t x) { return (3 * x + k) % kLane; }
};

template <size_t k>
struct Spread {
  static constexpr size_t kThird = (2 * kLane + 1) / 3;  // 3 * kThird mod kLane is 1
  static constexpr size_t from(size_t place) { return (place + kLane - k) * kThird % kLane; }
};

void split3(const Row<1, 3>& row) {
  eachBlock<kBytes>(row, &chain::Lines::split3, [=](size_t x) {
    U8 v[3];
    loadLine(v, row.in[0] + 3 * x);
    const U8 first = blend<Thirds<1>>(blend<Thirds<2>>(v[0], v[1]), v[2]);
    const U8 second = blend<Thirds<2>>(blend<Thirds<0>>(v[0], v[1]), v[2]);
    const U8 third = blend<Thirds<0>>(blend<Thirds<1>>(v[0], v[1]), v[2]);
    store(row.out[0] + x, reorder<Gathered<0>>(first));
    store(row.out[1] + x, reorder<Gathered<1>>(second));
    store(row.out[2] + x, reorder<Gathered<2>>(third));
  });
}

void join3(const Row<3, 1>& row) {
  eachBlock<kBytes>(row, &chain::Lines::join3, [=](size_t x) {
    const U8 first = reorder<Spread<0>>(load(row.in[0] + x));
    const U8 second = reorder<Spread<1>>(load(row.in[1] + x));
    const U8 third = reorder<Spread<2>>(load(row.in[2] + x));
    const U8 v[] = {blend<Thirds<2>>(blend<Thirds<1>>(first, second), third),
                    blend<Thirds<1>>(blend<Thirds<0>>(first, second), third),
                    blend<Thirds<0>>(blend<Thirds<2>>(first, second), third)};
    storeLine(row.out[0] + 3 * x, v);
  });
}

// With four components, a register of pixels is shuffled to quarters of one component each.
// Component k of register r is in quarter (k + r) mod 4.
constexpr size_t kQuarterLane = kLane / 4;

template <size_t r>
struct ToQuarters {
  static constexpr size_t from(size_t place) {
    return place % kQuarterLane * 4 + (place / kQuarterLane + 4 - r) % 4;
  }
};

template <size_t r>
struct FromQuarters {
  static constexpr size_t from(size_t place) { return (place + r) % 4 * kQuarterLane + place / 4; }
};

template <size_t quarters>
struct Rotated {
  static constexpr size_t from(size_t place) { return (place + quarters * kQuarterLane) % kLane; }
};

template <size_t a, size_t b>
struct Quarters {
  static constexpr bool has(size_t place) {
    return place / kQuarterLane == a || place / kQuarterLane == b;
  }
};

// Exchanges quarter (k + r) mod 4 of register r and of register k, for all r and k.
inline void exchangeQuarters(U8 (&v)[4]) {
  const U8 a = blend<Quarters<1, 3>>(v[0], v[1]);
  const U8 b = blend<Quarters<1, 3>>(v[1], v[0]);
  const U8 c = blend<Quarters<1, 3>>(v[2], v[3]);
  const U8 d = blend<Quarters<1, 3>>(v[3], v[2]);
  v[0] = blend<Quarters<2, 3>>(a, c);
  v[1] = blend<Quarters<1, 2>>(d, b);
  v[2] = blend<Quarters<2, 3>>(c, a);
  v[3] = blend<Quarters<1, 2>>(b, d);
}

void split4(const Row<1, 4>& row) {
  eachBlock<kBytes>(row, &chain::Lines::split4, [=](size_t x) {
    U8 v[4];
    loadLine(v, row.in[0] + 4 * x);
    v[0] = reorder<ToQuarters<0>>(v[0]);
    v[1] = reorder<ToQuarters<1>>(v[1]);
    v[2] = reorder<ToQuarters<2>>(v[2]);
    v[3] = reorder<ToQuarters<3>>(v[3]);
    exchangeQuarters(v);
    store(row.out[0] + x, v[0]);
    store(row.out[1] + x, reorder<Rotated<1>>(v[1]));
    store(row.out[2] + x, reorder<Rotated<2>>(v[2]));
    store(row.out[3] + x, reorder<Rotated<3>>(v[3]));
  });
}

void join4(const Row<4, 1>& row) {
  eachBlock<kBytes>(row, &chain::Lines::join4, [=](size_t x) {
    U8 v[] = {load(row.in[0] + x), reorder<Rotated<3>>(load(row.in[1] + x)),
              reorder<Rotated<2>>(load(row.in[2] + x)), reorder<Rotated<1>>(load(row.in[3] + x))};
    exchangeQuarters(v);
    v[0] = reorder<FromQuarters<0>>(v[0]);
    v[1] = reorder<FromQuarters<1>>(v[1]);
    v[2] = reorder<FromQuarters<2>>(v[2]);
    v[3] = reorder<FromQuarters<3>>(v[3]);
    storeLine(row.out[0] + 4 * x, v);
  });
}
