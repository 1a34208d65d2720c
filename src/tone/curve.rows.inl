// The row kernel of curves. Each level includes this file once.

void curveRow(const MonoRow& whole, const uint8_t* table, bool mirrored) {
  const Order order = mirrored ? Order::mirrored : Order::straight;
  const Lookup lookup(table);
  sweep(order, whole, [&](const MonoRow& row) {
    eachBlock(order, row, [&](const MonoRow& block) { lookUp(order, block, lookup); });
  });
}
