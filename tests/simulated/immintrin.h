// Stands before the compiler's own header where the AVX-512 level is built on simulated instructions
// (RAST_SIMULATED): its bytes are then tested on processors that lack them.
#pragma once

#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/x86/avx512.h>

// What version 0.7.4 lacks, or has with other parameters.
#undef _mm512_madd_epi16

namespace {

template <class Work>
inline __m512i inHalves(__m512i a, __m512i b, Work work) {
  __m256i x[2];
  __m256i y[2];
  __builtin_memcpy(x, &a, sizeof a);
  __builtin_memcpy(y, &b, sizeof b);
  for (int i = 0; i < 2; ++i) x[i] = work(x[i], y[i]);
  __builtin_memcpy(&a, x, sizeof a);
  return a;
}

inline __m512i _mm512_madd_epi16(__m512i a, __m512i b) {
  return inHalves(a, b, [](__m256i x, __m256i y) { return _mm256_madd_epi16(x, y); });
}

inline __m512i _mm512_mulhi_epu16(__m512i a, __m512i b) {
  return inHalves(a, b, [](__m256i x, __m256i y) { return _mm256_mulhi_epu16(x, y); });
}

inline __m512i _mm512_i32gather_epi32(__m512i index, const int32_t* table, int) {
  int32_t v[16];
  __builtin_memcpy(v, &index, sizeof v);
  for (int32_t& entry : v) entry = table[entry];
  __builtin_memcpy(&index, v, sizeof v);
  return index;
}

}  // namespace

// What the sources ask which level they are built for.
#define __AVX2__ 1
#define __AVX512VBMI__ 1
