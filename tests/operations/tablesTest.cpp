#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

#include "rast.h"

namespace rast::test {
namespace {

constexpr size_t at(size_t a, size_t b) { return a * 256 + b; }

template <class Entry>
void expectEntries(const uint8_t (&table)[65536], Entry entry) {
  for (unsigned a = 0; a < 256; ++a) {
    for (unsigned b = 0; b < 256; ++b) {
      ASSERT_EQ(table[at(a, b)], entry(a, b)) << a << ' ' << b;
    }
  }
}

TEST(Tables, SmallerEntryByEntry) {
  expectEntries(g_rastMinCompareTbl, [](unsigned a, unsigned b) { return std::min(a, b); });
  EXPECT_EQ(g_rastMinCompareTbl[0], 0);
  EXPECT_EQ(g_rastMinCompareTbl[at(255, 255)], 255);
  EXPECT_EQ(g_rastMinCompareTbl[at(7, 200)], 7);
  EXPECT_EQ(g_rastMinCompareTbl[at(200, 7)], 7);
}

TEST(Tables, LargerEntryByEntry) {
  expectEntries(g_rastMaxCompareTbl, [](unsigned a, unsigned b) { return std::max(a, b); });
  EXPECT_EQ(g_rastMaxCompareTbl[at(7, 200)], 200);
  EXPECT_EQ(g_rastMaxCompareTbl[at(200, 7)], 200);
}

/// The quotient by repeated subtraction, which knows nothing of division.
unsigned ratio(unsigned a, unsigned b) {
  if (a == 0) return 0;
  unsigned quotient = 0;
  for (unsigned rest = b * 255; rest >= a; rest -= a) ++quotient;
  return quotient & 255;
}

TEST(Tables, RatioEntryByEntry) { expectEntries(g_SatCompareTbl, ratio); }

TEST(Tables, RatioTellingEntries) {
  EXPECT_EQ(g_SatCompareTbl[at(1, 1)], 255);
  EXPECT_EQ(g_SatCompareTbl[at(2, 1)], 127);
  EXPECT_EQ(g_SatCompareTbl[at(3, 2)], 170);
  EXPECT_EQ(g_SatCompareTbl[at(1, 2)], 254) << "510 without its upper bits";
  EXPECT_EQ(g_SatCompareTbl[at(100, 200)], 254);
  EXPECT_EQ(g_SatCompareTbl[at(128, 255)], 252);
  EXPECT_EQ(g_SatCompareTbl[at(255, 255)], 255);
  EXPECT_EQ(g_SatCompareTbl[at(0, 5)], 0);
}

TEST(Tables, RatioRowColumnAndDiagonal) {
  for (size_t i = 0; i < 256; ++i) {
    EXPECT_EQ(g_SatCompareTbl[at(0, i)], 0);
    EXPECT_EQ(g_SatCompareTbl[at(i, 0)], 0);
    EXPECT_EQ(g_SatCompareTbl[at(i, i)], i == 0 ? 0 : 255);
  }
}

TEST(Tables, RatioRisesAlongARowUpToTheDiagonal) {
  for (size_t a = 1; a < 256; ++a) {
    for (size_t b = 1; b <= a; ++b) {
      ASSERT_GE(g_SatCompareTbl[at(a, b)], g_SatCompareTbl[at(a, b - 1)]) << a << ' ' << b;
    }
  }
}

TEST(Tables, ThreeSamplesByNesting) {
  for (size_t r = 0; r < 256; r += 5) {
    for (size_t g = 0; g < 256; g += 3) {
      for (size_t b = 0; b < 256; b += 7) {
        ASSERT_EQ(g_rastMinCompareTbl[at(r, g_rastMinCompareTbl[at(g, b)])], std::min({r, g, b}));
        ASSERT_EQ(g_rastMaxCompareTbl[at(r, g_rastMaxCompareTbl[at(g, b)])], std::max({r, g, b}));
      }
    }
  }
}

}  // namespace
}  // namespace rast::test
