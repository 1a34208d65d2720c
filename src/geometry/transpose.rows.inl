// Merging register i of the lower half with register i of the upper half is a rotation of the place
// of every sample, counted in bits (four for the register, four for the lane's byte) by one: four
// of them swap register and byte.
inline void zipStage(U8 (&v)[kLane]) {
  U8 merged[kLane];
  for (size_t i = 0; i < kLane / 2; ++i) {
    merged[2 * i] = zipLow(v[i], v[i + kLane / 2]);
    merged[2 * i + 1] = zipHigh(v[i], v[i + kLane / 2]);
  }
  for (size_t i = 0; i < kLane; ++i) v[i] = merged[i];
}

// kBytes lines of kLane columns: lane k of the registers takes the k-th kLane lines, so that a
// register ends as kBytes samples of one column.
inline void transposeBlock(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines,
                           size_t column) {
  U8 v[kLane];
  for (size_t i = 0; i < kLane; ++i) {
    for (size_t lane = 0; lane < kBytes / kLane; ++lane) {
      __builtin_memcpy((uint8_t*)&v[i] + lane * kLane, lines[lane * kLane + i] + column, kLane);
    }
  }
  for (int stage = 0; stage < 4; ++stage) zipStage(v);
  for (size_t i = 0; i < kLane; ++i) store(out + (ptrdiff_t)i * pitch, v[i]);
}

// Blocks that are cut at an edge go through copies, so that nothing outside is read or written.
inline void transposeEdge(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines, size_t count,
                          size_t column, size_t columns) {
  uint8_t copy[kBytes][kLane] = {};
  uint8_t turned[kLane][kBytes];
  const uint8_t* copied[kBytes];
  for (size_t i = 0; i < kBytes; ++i) {
    copied[i] = copy[i];
    if (i < count) __builtin_memcpy(copy[i], lines[i] + column, columns);
  }
  transposeBlock(turned[0], kBytes, copied, 0);
  for (size_t j = 0; j < columns; ++j)
    __builtin_memcpy(out + (ptrdiff_t)j * pitch, turned[j], count);
}

void transposeRows(uint8_t* out, ptrdiff_t pitch, const uint8_t* const* lines, size_t count,
                   size_t columns) {
  for (size_t line = 0; line < count; line += kBytes) {
    const size_t lineCount = count - line < kBytes ? count - line : kBytes;
    for (size_t column = 0; column < columns; column += kLane) {
      const size_t columnCount = columns - column < kLane ? columns - column : kLane;
      uint8_t* const to = out + (ptrdiff_t)column * pitch + (ptrdiff_t)line;
      if (lineCount == kBytes && columnCount == kLane) {
        transposeBlock(to, pitch, lines + line, column);
      } else {
        transposeEdge(to, pitch, lines + line, lineCount, column, columnCount);
      }
    }
  }
}
