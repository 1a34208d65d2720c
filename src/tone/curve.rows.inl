// The row kernels of curves. Each level includes this file once.

// `n` registers of samples from column x on.
template <Order order, size_t n>
inline void curveAt(const MonoRow& row, const Lookup& lookup, size_t x) {
  U8 v[n];
  for (size_t k = 0; k < n; ++k) v[k] = load(row.in[0] + x + k * kBytes);
  replace(v, lookup);
  for (size_t k = 0; k < n; ++k) {
    const size_t at = x + k * kBytes;
    if (order == Order::mirrored) {
      store(row.out[0] + row.width - kBytes - at, mirror(v[k]));
    } else {
      store(row.out[0] + at, v[k]);
    }
  }
}

template <Order order>
void curveRow(const MonoRow& whole, const uint8_t* table) {
  constexpr size_t n = kLookupsTogether;
  const Lookup lookup(table);
  sweep<order>(whole, [&lookup](const MonoRow& row) {
    size_t x = 0;
    if (n > 1) {
      for (; row.width - x >= n * kBytes; x += n * kBytes) curveAt<order, n>(row, lookup, x);
    }
    for (; x < row.width; x += kBytes) curveAt<order, 1>(row, lookup, x);
  });
}
