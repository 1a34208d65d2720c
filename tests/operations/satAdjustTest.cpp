#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "rast.h"
#include "support/call.h"
#include "support/color.h"

namespace rast::test {
namespace {

using testing::Each;
using testing::ElementsAre;

const std::string kSizeMessage = "[RAST SATADJ ERROR] size <= 0!!! [../rastSatAdjust : 939]\n";

std::string modeMessage(const std::string& mode) {
  return "[RAST SATADJ ERROR] nMode is Invalid Argument (" + mode +
         ")!!! [../rastSatAdjust : 944]\n";
}

struct Call : ColorCall {
  explicit Call(int32_t width = 16, int32_t height = 1) : ColorCall(width, height) {
    set.pOut[3] = kWild;
  }
  Call(const std::vector<Pixel>& pixels, uint32_t m) : ColorCall(pixels), mode(m) {
    set.pOut[3] = kWild;
  }

  uint32_t run() { return rastSatAdjust(areaOrNull(), planesOrNull(), mode); }

  uint32_t mode = 0;
};

/// A pixel alone in its line stays in its column.
Pixel adjusted(const Pixel& pixel, uint32_t mode) {
  Call call({pixel}, mode);
  EXPECT_EQ(call.run(), RAST_OK);
  return call.output(0);
}

Pixel model(const Pixel& p, uint32_t mode) {
  const int gray = (70 * p[0] + 150 * p[1] + 29 * p[2]) / 256;
  Pixel out;
  for (size_t k = 0; k < 3; ++k) {
    const int distance = (p[k] - gray) * (mode == 0 ? 96 : 160);
    const int moved = distance < 0 ? -(-distance / 128) : distance / 128;
    out[k] = clamped(gray + moved);
  }
  return out;
}

/// Groups of four mirrored, what is left of the line in its place.
int32_t groupsMirrored(int32_t j, int32_t width) { return j < width / 4 * 4 ? j ^ 3 : j; }

TEST(SatAdjust, WorkedNumbers) {
  const struct {
    Pixel in, lowered, raised;
  } cases[] = {
      {{255, 255, 255}, {253, 253, 253}, {255, 255, 255}},
      {{128, 128, 128}, {127, 127, 127}, {129, 129, 129}},
      {{255, 0, 0}, {208, 18, 18}, {255, 0, 0}},
      {{200, 100, 50}, {179, 105, 67}, {220, 96, 33}},
      {{1, 1, 1}, {0, 0, 0}, {1, 1, 1}},
      {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}},
  };
  for (const auto& [in, lowered, raised] : cases) {
    EXPECT_EQ(adjusted(in, 0), lowered);
    EXPECT_EQ(adjusted(in, 1), raised);
  }
}

TEST(SatAdjust, GraysGetDarkerInModeZero) {
  for (int gray = 1; gray < 256; ++gray) {
    const Pixel out = adjusted({gray, gray, gray}, 0);
    EXPECT_LT(out[0], gray);
    EXPECT_EQ(out, (Pixel{out[0], out[0], out[0]}));
  }
}

TEST(SatAdjust, LowGraysAndWhiteStayInModeOne) {
  for (int gray = 0; gray < 256; ++gray) {
    const int out = adjusted({gray, gray, gray}, 1)[0];
    if (gray <= 109 || gray == 255) {
      EXPECT_EQ(out, gray);
    } else {
      EXPECT_GT(out, gray);
    }
  }
}

TEST(SatAdjust, RandomPixelsInEveryWidth) {
  const WildGlobals globals;
  for (const uint32_t mode : {0U, 1U}) {
    for (int32_t width = 6; width <= 140; ++width) {
      Call call(width, 7);
      call.mode = mode;
      call.useRectangleWithin();
      call.randomize(static_cast<uint64_t>(width));
      ASSERT_EQ(call.run(), RAST_OK);
      expectColor(
          call, [&](const Pixel& p) { return model(p, mode); }, groupsMirrored);
    }
  }
}

TEST(SatAdjust, EveryComponentAgainstEveryGrayLevel) {
  // Two equal components carry most of the weight, the third runs through its range.
  for (const uint32_t mode : {0U, 1U}) {
    for (size_t k = 0; k < 3; ++k) {
      Call call(256, 256);
      call.mode = mode;
      for (size_t i = 0; i < 65536; ++i) {
        Pixel pixel;
        pixel.fill(static_cast<int>(i / 256));
        pixel[k] = static_cast<int>(i % 256);
        call.setPixel(i, pixel);
      }
      ASSERT_EQ(call.run(), RAST_OK);
      expectColor(
          call, [&](const Pixel& p) { return model(p, mode); }, groupsMirrored);
    }
  }
}

TEST(SatAdjust, AGroupOfFourComesOutMirrored) {
  const Pixel white{255, 255, 255};
  const Pixel black{0, 0, 0};
  Call call({white, black, black, black, black}, 1);
  ASSERT_EQ(call.run(), RAST_OK);
  for (size_t k = 0; k < 3; ++k) EXPECT_THAT(call.out[k], ElementsAre(0, 0, 0, 255, 0));
}

TEST(SatAdjust, ThreePixelsAreNotMirrored) {
  Call call({{200, 100, 50}, {255, 0, 0}, {128, 128, 128}}, 0);
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], ElementsAre(179, 208, 127));
  EXPECT_THAT(call.out[1], ElementsAre(105, 18, 127));
  EXPECT_THAT(call.out[2], ElementsAre(67, 18, 127));
}

TEST(SatAdjust, GroupsCountFromTheFirstColumnOfTheRectangle) {
  Call call(8);
  call.area = {8, 1, 6, 0, 1};
  for (size_t i = 0; i < 8; ++i) {
    const int low = static_cast<int>(i);
    call.setPixel(i, {low, low, low});
  }
  call.mode = 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], ElementsAre(0xAA, 4, 3, 2, 1, 5, 6, 0xAA));
}

TEST(SatAdjust, InPlaceAndCrossed) {
  for (const uint32_t mode : {0U, 1U}) {
    expectSameInPlaceAndCrossed([&](ColorCall& c) { return rastSatAdjust(&c.area, &c.set, mode); });
  }
}

TEST(SatAdjust, CrossedPlanesAreReadBeforeTheyAreWritten) {
  for (const size_t pixels : {3U, 4U, 70U}) {
    Call call(std::vector<Pixel>(pixels, {200, 100, 50}), 0);
    call.set.pOut[0] = call.in[1].data();
    call.set.pOut[1] = call.in[2].data();
    call.set.pOut[2] = call.in[0].data();
    ASSERT_EQ(call.run(), RAST_OK);
    EXPECT_THAT(call.in[1], Each(179));
    EXPECT_THAT(call.in[2], Each(105));
    EXPECT_THAT(call.in[0], Each(67));
  }
}

TEST(SatAdjust, AGroupIsReadBeforeItIsWritten) {
  // The result of column 0 lands on column 4, which is done after the group: 208, 0, 0 has the gray
  // level 56 and becomes 56 + 114.
  Call call(6);
  call.area.nWidth = 5;
  call.in[0] = {255, 0, 0, 0, 0, 0};
  call.set.pOut[0] = call.in[0].data() + 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.in[0], ElementsAre(255, 0, 0, 0, 208, 170));
}

TEST(SatAdjust, LeftPixelsFollowOneAnother) {
  Call call(4);
  call.area.nWidth = 3;
  call.in[0] = {255, 0, 0, 0};
  call.set.pOut[0] = call.in[0].data() + 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.in[0], ElementsAre(255, 208, 170, model({170, 0, 0}, 0)[0]));
}

TEST(SatAdjust, TheLastOfTheOutputsOnOnePlaneStays) {
  Call call(std::vector<Pixel>(70, {200, 100, 50}), 0);
  for (const size_t k : {1U, 2U}) call.set.pOut[k] = call.out[0].data();
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], Each(67));
}

TEST(SatAdjust, AGroupIsWrittenPlaneByPlane) {
  Call call(std::vector<Pixel>(5, {200, 100, 50}), 0);
  call.area.nWidth = 4;
  call.set.pOut[0] = call.out[0].data() + 1;
  call.set.pOut[1] = call.out[0].data();
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], ElementsAre(105, 105, 105, 105, 179));
}

TEST(SatAdjust, TheArgumentsAreReadOnce) {
  const auto run = [](const RastArea* area, const RastPlaneSet* planes, const uint32_t* mode) {
    return rastSatAdjust(area, planes, *mode);
  };
  for (const uint32_t mode : {0U, 1U}) expectArgumentsReadOnce(mode, run);
}

TEST(SatAdjust, NoHeightOrWidthWritesNothingAndIsNoError) {
  for (const int32_t below : {0, -1, INT32_MIN}) {
    for (const uint32_t mode : {0U, 1U}) {
      Call call(16, 4);
      call.mode = mode;
      call.area.nHeight = below;
      EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_OK); }), "");
      EXPECT_TRUE(call.untouched());
      call.area.nHeight = 4;
      call.area.nWidth = below;
      EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_OK); }), "");
      EXPECT_TRUE(call.untouched());
    }
  }
}

TEST(SatAdjust, TheWidthIsNotHeldAgainstThePitch) {
  Call call(std::vector<Pixel>(16, {200, 100, 50}), 0);
  call.area = {4, 3, 12, 0, 1};
  ASSERT_EQ(call.run(), RAST_OK);
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(call.out[2][i], i < 3 || i == 15 ? 0xAA : 67) << i;
}

TEST(SatAdjust, AnyPitchIsTaken) {
  Call still(std::vector<Pixel>(6, {200, 100, 50}), 0);
  still.area = {0, 1, 4, 0, 3};
  ASSERT_EQ(still.run(), RAST_OK);
  EXPECT_THAT(still.out[1], ElementsAre(0xAA, 105, 105, 105, 105, 0xAA));

  // Backwards: line 1 lies before line 0.
  Call back(8);
  back.mode = 1;
  for (size_t k = 0; k < 3; ++k) {
    back.in[k] = {1, 2, 3, 4, 5, 6, 7, 8};
    back.set.pIn[k] += 5;
    back.set.pOut[k] += 5;
  }
  back.area = {-5, 0, 2, 0, 2};
  ASSERT_EQ(back.run(), RAST_OK);
  EXPECT_THAT(back.out[0], ElementsAre(1, 2, 0xAA, 0xAA, 0xAA, 6, 7, 0xAA));
}

TEST(SatAdjust, AnyPositiveSizeWillDoAndNothingIsPrinted) {
  Call call(std::vector<Pixel>(16, {200, 100, 50}), 1);
  call.set.nSize = 1;
  EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_OK); }), "");
  expectColor(call, [](const Pixel&) { return Pixel{220, 96, 33}; });
}

TEST(SatAdjust, TheModeIsPrintedAsASignedNumber) {
  const struct {
    uint32_t mode;
    std::string printed;
  } cases[] = {{2, "2"},
               {256, "256"},
               {0x7FFFFFFF, "2147483647"},
               {0x80000000, "-2147483648"},
               {0xFFFFFFFF, "-1"}};
  for (const auto& [mode, printed] : cases) {
    Call call;
    call.mode = mode;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_ERR_INVALID_ARG); }),
              modeMessage(printed));
    EXPECT_TRUE(call.untouched());
  }
}

TEST(SatAdjust, ABadModeCountsEvenWithoutHeight) {
  Call call;
  call.mode = 2;
  call.area.nHeight = 0;
  EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_ERR_INVALID_ARG); }), modeMessage("2"));
}

TEST(SatAdjust, EachCheckAloneAndBeforeTheLaterOnes) {
  const Checks<Call> mono = {{"pIn[3] set", [](Call& c) { c.set.pIn[3] = kWild; }}};
  const Checks<Call> atEnd = {
      {"mode 2", [](Call& c) { c.mode = 2; }, modeMessage("2")},
      {"mode -1", [](Call& c) { c.mode = 0xFFFFFFFF; }, modeMessage("-1")},
      {"area null", [](Call& c) { c.useArea = false; }},
  };
  expectChecksInOrder<Call>(
      colorPlaneChecks<Call>() + mono + sizeChecks<Call>(kSizeMessage) + atEnd, &Call::run,
      &Call::untouched);
}

}  // namespace
}  // namespace rast::test
