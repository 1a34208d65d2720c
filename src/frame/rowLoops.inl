// The loops of row kernels, in whole registers and in blocks of registers. Each level includes this
// file once, after frame/simd.inl.

enum class Order {
  straight,       // out[x] from in[x]
  mirrored,       // out[width - 1 - x] from in[x]
  groupsMirrored  // whole groups of four mirrored in themselves, the rest of the row straight
};

// Runs a row through `body`, which takes rows of whole registers and applies the order itself. The
// rest of the row goes through it as a zero-filled copy: nothing outside the row is read or
// written.
template <Order order, size_t N, size_t M, class Body>
inline void sweep(const Row<N, M>& row, Body body) {
  const size_t rest = row.width % kBytes;
  const size_t whole = row.width - rest;
  Row<N, M> part = row;
  part.width = whole;
  if (order == Order::mirrored) {
    for (uint8_t*& out : part.out) out += rest;
  }
  uint8_t copy[N][kBytes];
  uint8_t result[M][kBytes];
  // One call of the body, as it is inlined, is half the code of two.
  for (bool atRest = whole == 0;; atRest = true) {
    if (atRest) {
      if (!rest) return;
      part.width = kBytes;
      for (size_t k = 0; k < N; ++k) {
        __builtin_memset(copy[k], 0, kBytes);
        __builtin_memcpy(copy[k], row.in[k] + whole, rest);
        part.in[k] = copy[k];
      }
      for (size_t k = 0; k < M; ++k) part.out[k] = result[k];
    }
    body(part);
    if (atRest) break;
  }
  for (size_t k = 0; k < M; ++k) {
    if (order == Order::mirrored) {
      __builtin_memcpy(row.out[k], result[k] + kBytes - rest, rest);
      continue;
    }
    __builtin_memcpy(row.out[k] + whole, result[k], rest);
    if (order == Order::groupsMirrored) {
      const size_t groups = rest / 4 * 4;
      for (size_t j = 0; j < rest % 4; ++j)
        row.out[k][whole + groups + j] = result[k][groups + 3 - j];
    }
  }
}

// A block of a row in short stages, each with few enough constants for the registers; the block
// stays in the first-level cache.
constexpr size_t kBlock = 512;

// Looks up all samples of a block of whole registers, in place.
inline void lookUpBlock(uint8_t* block, size_t width, const uint8_t* table) {
  const Lookup lookup(table);
  for (size_t x = 0; x < width; x += kBytes) store(block + x, lookup(load(block + x)));
}

// Calls `work` with each block of a row of whole registers.
template <class Work>
inline void eachBlock(const ColorRow& row, Work work) {
  ColorRow block = row;
  for (size_t x = 0; x < row.width; x += kBlock) {
    for (size_t k = 0; k < 3; ++k) {
      block.in[k] = row.in[k] + x;
      block.out[k] = row.out[k] + x;
    }
    block.width = row.width - x < kBlock ? row.width - x : kBlock;
    work(block);
  }
}
