// The row kernels of curves. Each level includes this file once.

template <Order order>
void curveRow(const MonoRow& whole, const uint8_t* table) {
  const Lookup lookup(table);
  sweep<order>(whole, [&lookup](const MonoRow& row) {
    eachBlock<order>(row, [&lookup](const MonoRow& block) { lookUp<order>(block, lookup); });
  });
}
