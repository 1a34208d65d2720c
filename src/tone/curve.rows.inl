template <Order order>
void curveRow(const MonoRow& whole, const uint8_t* table) {
  const Lookup lookup(table);
  sweep<order>(whole, [&lookup](MonoRow row) {
    for (size_t x = 0; x < row.width; x += kBytes) {
      const U8 v = lookup(load(row.in[0] + x));
      if (order == Order::mirrored) {
        store(row.out[0] + row.width - kBytes - x, mirror(v));
      } else {
        store(row.out[0] + x, v);
      }
    }
  });
}
