#include "frame/frame.h"

#include <gtest/gtest.h>

#include <climits>

#include "frame/overlap.h"
#include "support/levels.h"

namespace rast::test {
namespace {

TEST(Frame, LineOffsetFollowsThePitch) {
  const RastArea area{100, 7, 10, 3, 5};
  EXPECT_EQ(lineOffset(area, 0), 307);
  EXPECT_EQ(lineOffset(area, 4), 707);
}

TEST(Frame, LineOffsetIsNegativeAboveAndLeftOfThePlane) {
  EXPECT_EQ(lineOffset(RastArea{100, -1, 10, 0, 1}, 0), -1);
  EXPECT_EQ(lineOffset(RastArea{100, 0, 10, -2, 1}, 0), -200);
  EXPECT_EQ(lineOffset(RastArea{100, 0, 10, -2, 3}, 2), 0);
}

TEST(Frame, LineOffsetWrapsAt32BitsAndIsApplied) {
  EXPECT_EQ(lineOffset(RastArea{65536, 5, 1, 65536, 1}, 0), 5);
  EXPECT_EQ(lineOffset(RastArea{65536, 0, 1, 32768, 1}, 0), INT32_MIN);
  EXPECT_EQ(lineOffset(RastArea{1, 0, 1, INT32_MAX, 2}, 1), INT32_MIN);
  EXPECT_EQ(lineOffset(RastArea{-3, 0, 1, 2, 1}, 0), -6);
}

TEST(Frame, LineFitComparesTheWrappedSum) {
  EXPECT_TRUE(fitsLine(RastArea{10, 4, 6, 0, 1}));
  EXPECT_FALSE(fitsLine(RastArea{9, 4, 6, 0, 1}));
  EXPECT_TRUE(fitsLine(RastArea{10, -1, 11, 0, 1}));
  EXPECT_TRUE(fitsLine(RastArea{10, INT32_MAX, 1, 0, 1}));
}

TEST(Frame, ExtentNeedsPitchWidthAndHeight) {
  EXPECT_TRUE(hasExtent(RastArea{1, 0, 1, 0, 1}));
  EXPECT_FALSE(hasExtent(RastArea{0, 0, 1, 0, 1}));
  EXPECT_FALSE(hasExtent(RastArea{1, 0, 0, 0, 1}));
  EXPECT_FALSE(hasExtent(RastArea{1, 0, 1, 0, 0}));
}

TEST(Overlap, ApartIsExactAtBothEnds) {
  uint8_t bytes[64] = {};
  for (size_t a = 0; a < 32; ++a) {
    for (size_t b = 0; b < 32; ++b) {
      const bool disjoint = a + 7 <= b || b + 5 <= a;
      EXPECT_EQ(apart(bytes + a, 7, bytes + b, 5), disjoint) << a << ' ' << b;
    }
  }
}

TEST(Overlap, PlanesMayBeInPlaceAndNothingElse) {
  uint8_t bytes[64] = {};
  uint8_t* const a = bytes;
  uint8_t* const b = bytes + 16;
  EXPECT_TRUE(planesApart<2>({a, b}, {a, b}, 16));
  EXPECT_TRUE(planesApart<2>({a, b}, {bytes + 32, bytes + 48}, 16));
  EXPECT_FALSE(planesApart<2>({a, b}, {b, a}, 16)) << "crossed";
  EXPECT_FALSE(planesApart<2>({a, b}, {bytes + 32, bytes + 32}, 16)) << "two outputs on one plane";
  EXPECT_FALSE(planesApart<2>({a, b}, {bytes + 32, bytes + 47}, 16)) << "outputs share a byte";
  EXPECT_FALSE(planesApart<1>({a}, {a + 1}, 16));
  EXPECT_FALSE(planesApart<1>({b}, {b - 15}, 16));
  EXPECT_TRUE(planesApart<1>({b}, {b - 16}, 16));
}

TEST(Overlap, LinesApartLooksAtEveryLineAndNotBetweenThem) {
  uint8_t plane[100] = {};
  const RastArea area{20, 2, 5, 1, 3};
  for (size_t at = 0; at < 97; ++at) {
    bool touched = false;
    for (size_t r = 1; r <= 3; ++r) touched |= at + 3 > r * 20 + 2 && at < r * 20 + 7;
    EXPECT_EQ(linesApart<1>(area, {plane}, plane + at, 3), !touched) << at;
  }
}

TEST(Frame, TheBestLevelIsChosen) {
  ASSERT_FALSE(levels().empty());
  EXPECT_EQ(rows(), levels().back().rows);
}

}  // namespace
}  // namespace rast::test
