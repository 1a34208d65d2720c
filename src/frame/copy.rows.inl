// The row kernel that copies. Each level includes this file once.

// On x86 the C library copies lines of some thousand samples by the processor's string move, which
// some processors do at a third of their speed where the output starts a few bytes after the input,
// modulo 4,096.
#if defined(__SSE2__)

void copyRow(uint8_t* out, const uint8_t* in, size_t width) {
  if (width < 2 * kBytes) {
    __builtin_memcpy(out, in, width);
    return;
  }
  store(out, load(in));
  const size_t last = width - kBytes;
  size_t x = kBytes - (uintptr_t)out % kBytes;
  for (; x + 4 * kBytes <= width; x += 4 * kBytes) {
    U8 v[4];
    for (size_t i = 0; i < 4; ++i) v[i] = load(in + x + i * kBytes);
    for (size_t i = 0; i < 4; ++i) store(out + x + i * kBytes, v[i]);
  }
  for (; x < last; x += kBytes) store(out + x, load(in + x));
  store(out + last, load(in + last));
}

#else

void copyRow(uint8_t* out, const uint8_t* in, size_t width) { __builtin_memcpy(out, in, width); }

#endif
