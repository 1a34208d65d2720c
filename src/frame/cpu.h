// The levels that this processor runs. The functions keep no state and use nothing of libgcc's
// cached detection, so they may be called before relocation is done. They are static, so that the
// resolver never runs another file's instrumented copy.
#pragma once

#include <stdint.h>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace rast::cpu {

#if defined(__x86_64__)

/// The register state that the operating system saves, as XCR0 reports it; 0 where it cannot be
/// read.
static inline uint32_t savedState() {
  uint32_t a = 0;
  uint32_t b = 0;
  uint32_t c = 0;
  uint32_t d = 0;
  if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_OSXSAVE)) return 0;
  __asm__("xgetbv" : "=a"(a), "=d"(d) : "c"(0));
  return a;
}

/// True when leaf 7 has all the given bits and the operating system saves the given state.
static inline bool hasLeaf7(uint32_t ebx, uint32_t ecx, uint32_t state) {
  uint32_t a = 0;
  uint32_t b = 0;
  uint32_t c = 0;
  uint32_t d = 0;
  return (savedState() & state) == state && __get_cpuid_count(7, 0, &a, &b, &c, &d) &&
         (b & ebx) == ebx && (c & ecx) == ecx;
}

static inline bool runsAvx2() {
  constexpr uint32_t xmmYmm = 0x06;
  return hasLeaf7(bit_AVX2, 0, xmmYmm);
}

static inline bool runsAvx512() {
  constexpr uint32_t xmmYmmZmmMask = 0xe6;
  constexpr uint32_t features = bit_AVX2 | bit_AVX512F | bit_AVX512BW | bit_AVX512VL;
  return hasLeaf7(features, bit_AVX512VBMI, xmmYmmZmmMask);
}

#elif defined(__arm__)

/// `hwcap` as the loader passes it to ifunc resolvers and as getauxval(AT_HWCAP) gives it.
static inline bool runsNeon(unsigned long hwcap) {
  constexpr unsigned long neon = 1UL << 12;
  return (hwcap & neon) != 0;
}

#elif defined(__aarch64__)

static inline bool runsNeon(unsigned long) { return true; }

#endif

}  // namespace rast::cpu
