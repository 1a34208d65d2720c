// out[x] = table[in[x]]
void curve(uint8_t* out, const uint8_t* in, size_t width, const uint8_t* table) {
  const Lookup lookup(table);
  size_t x = 0;
  for (; x + kBytes <= width; x += kBytes) store(out + x, lookup(load(in + x)));
  if (x < width) storePart(out + x, lookup(loadPart(in + x, width - x)), width - x);
}
