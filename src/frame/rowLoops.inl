// The loops of row kernels, in whole registers and in blocks of registers. Each level includes this
// file once, after frame/simd.inl.

enum class Order {
  straight,       // out[x] from in[x]
  mirrored,       // out[width - 1 - x] from in[x]
  groupsMirrored  // whole groups of four mirrored in themselves, the rest of the row straight
};

// Stores the results for column x of a row of whole registers.
inline void storeResult(Order order, uint8_t* out, size_t width, size_t x, U8 v) {
  if (order == Order::mirrored) {
    store(out + width - kBytes - x, mirror(v));
  } else {
    store(out + x, v);
  }
}

// Runs a row through `body`, which takes rows of whole registers and applies the order itself. The
// rest of the row goes through it as a zero-filled copy: nothing outside the row is read or
// written.
template <size_t N, size_t M, class Body>
inline void sweep(Order order, const Row<N, M>& row, Body body) {
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

// Samples of a block of a row, which stay in the first-level cache while a kernel works in stages.
constexpr size_t kBlock = 512;

// True where the registers of samples at x of all planes are these.
template <size_t N, size_t M>
inline bool equals(const Row<N, M>& row, size_t x, const U8 (&samples)[N]) {
  U8 differences{};
  for (size_t k = 0; k < N; ++k) differences |= load(row.in[k] + x) ^ samples[k];
  return isZero(differences);
}

// The registers of samples of all planes that end at x.
template <size_t N, size_t M>
inline void loadBefore(U8 (&samples)[N], const Row<N, M>& row, size_t x) {
  for (size_t k = 0; k < N; ++k) samples[k] = load(row.in[k] + x - kBytes);
}

// True where the registers of samples at x of all planes are the same as those before. Most
// registers of a noisy page already differ in a word of the first plane.
template <size_t N, size_t M>
inline bool repeats(const Row<N, M>& row, size_t x) {
  uint64_t word;
  uint64_t before;
  __builtin_memcpy(&word, row.in[0] + x, sizeof word);
  __builtin_memcpy(&before, row.in[0] + x - kBytes, sizeof before);
  if (word != before) return false;
  U8 samples[N];
  loadBefore(samples, row, x);
  return equals(row, x, samples);
}

// Calls `work` with blocks of a row of whole registers, and copies what it wrote where registers of
// samples repeat the one before them, as on the paper of a page. Repeats are looked for at every
// 128th sample of a block: noise pays next to nothing, and paper goes on for a thousand samples and
// more. Samples are compared before `work` may overwrite them.
template <size_t N, size_t M, class Work>
inline void eachBlock(Order order, const Row<N, M>& row, Work work) {
  constexpr size_t kStep = 128;
  Row<N, M> block;
  for (size_t x = 0; x < row.width;) {
    const size_t most = row.width - x < kBlock ? row.width : x + kBlock;
    size_t end = x + kStep;
    while (end < most && !repeats(row, end)) end += kStep;
    const bool repeated = end < most;
    if (!repeated) end = most;
    for (size_t k = 0; k < N; ++k) block.in[k] = row.in[k] + x;
    for (size_t k = 0; k < M; ++k) {
      block.out[k] = row.out[k] + (order == Order::mirrored ? row.width - end : x);
    }
    block.width = end - x;
    x = end;
    U8 same[N];
    loadBefore(same, row, x);
    work(block);
    if (!repeated) continue;
    U8 result[M];
    for (size_t k = 0; k < M; ++k) {
      result[k] = load(block.out[k] + (order == Order::mirrored ? 0 : block.width - kBytes));
    }
    for (; x < row.width && equals(row, x, same); x += kBytes) {
      for (size_t k = 0; k < M; ++k) {
        store(row.out[k] + (order == Order::mirrored ? row.width - kBytes - x : x), result[k]);
      }
    }
  }
}

template <size_t n, class Table>
inline void lookUpAt(Order order, const MonoRow& row, const Table& table, size_t x) {
  U8 v[n];
  for (size_t k = 0; k < n; ++k) v[k] = load(row.in[0] + x + k * kBytes);
  table.replace(v);
  for (size_t k = 0; k < n; ++k) {
    storeResult(order, row.out[0], row.width, x + k * kBytes, v[k]);
  }
}

// Looks up a row sample by sample. Not inlined, for the sake of size.
template <class Table>
[[gnu::noinline]] void lookUpSamples(MonoRow row, Table table) {
  const uint8_t* const in = row.in[0];
  uint8_t* const out = row.out[0];
#pragma GCC unroll 16
  for (size_t x = 0; x < row.width; ++x) out[x] = table[in[x]];
}

// Looks up a row of whole registers. `Table` is Lookup, of which each level has one form.
template <class Table>
inline void lookUp(Order order, const MonoRow& row, const Table& table) {
  constexpr size_t n = Table::kTogether;
  if constexpr (n == 0) {
    if (order != Order::mirrored) return lookUpSamples(row, table);
    uint8_t* const last = row.out[0] + row.width - 1;
    for (size_t x = 0; x < row.width; ++x) *(last - x) = table[row.in[0][x]];
  } else {
    size_t x = 0;
    if (n > 1) {
      for (; row.width - x >= n * kBytes; x += n * kBytes) lookUpAt<n>(order, row, table, x);
    }
    for (; x < row.width; x += kBytes) lookUpAt<1>(order, row, table, x);
  }
}

// Looks up a block in place. Not inlined, for the sake of size.
[[gnu::noinline]] void lookUpBlock(uint8_t* block, size_t width, const Lookup& table) {
  lookUp(Order::straight, {{block}, {block}, width}, table);
}
