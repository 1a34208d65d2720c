// The row kernels for NEON, whose loads split interleaved samples and whose stores join them. Each
// level includes this file once at most.

void split3(const Row<1, 3>& row) {
  eachBlock<kBytes>(row, &chain::Lines::split3, [=](size_t x) {
    const uint8x16x3_t v = vld3q_u8(row.in[0] + 3 * x);
    for (size_t k = 0; k < 3; ++k) vst1q_u8(row.out[k] + x, v.val[k]);
  });
}

void split4(const Row<1, 4>& row) {
  eachBlock<kBytes>(row, &chain::Lines::split4, [=](size_t x) {
    const uint8x16x4_t v = vld4q_u8(row.in[0] + 4 * x);
    for (size_t k = 0; k < 4; ++k) vst1q_u8(row.out[k] + x, v.val[k]);
  });
}

void join3(const Row<3, 1>& row) {
  eachBlock<kBytes>(row, &chain::Lines::join3, [=](size_t x) {
    uint8x16x3_t v;
    for (size_t k = 0; k < 3; ++k) v.val[k] = vld1q_u8(row.in[k] + x);
    vst3q_u8(row.out[0] + 3 * x, v);
  });
}

void join4(const Row<4, 1>& row) {
  eachBlock<kBytes>(row, &chain::Lines::join4, [=](size_t x) {
    uint8x16x4_t v;
    for (size_t k = 0; k < 4; ++k) v.val[k] = vld1q_u8(row.in[k] + x);
    vst4q_u8(row.out[0] + 4 * x, v);
  });
}
