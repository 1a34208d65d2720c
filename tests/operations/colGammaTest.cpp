#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <string>

#include "rast.h"
#include "support/call.h"
#include "support/color.h"

namespace rast::test {
namespace {

using testing::ElementsAre;

const std::string kSizeMessage = "[RAST GOLGAMMA ERROR] size <= 0!!! [../rastColGamma : 189]\n";

struct Call : ColorCall {
  explicit Call(int32_t width = 16, int32_t height = 1) : ColorCall(width, height) {
    Random random(5);
    random.fill(curve.data(), curve.size());
  }

  uint32_t run() {
    return rastColGamma(areaOrNull(), planesOrNull(), useCurve ? curve.data() : nullptr);
  }
  /// Entry v is v + step.
  void useSteps(int step) {
    for (size_t v = 0; v < 256; ++v) curve[v] = static_cast<uint8_t>(static_cast<int>(v) + step);
  }

  Samples curve = Samples(256);
  bool useCurve = true;
};

struct MonoCall : Call {
  MonoCall() { monoAmongWildPointers(); }
};

TEST(ColGamma, OneCurveForAllThreePlanes) {
  const WildGlobals globals;
  Call call(101, 43);
  call.useRectangleWithin();
  call.randomize(1);
  ASSERT_EQ(call.run(), RAST_OK);
  expectColor(call, [&](const Pixel& p) {
    return Pixel{call.curve.at(static_cast<size_t>(p[0])), call.curve.at(static_cast<size_t>(p[1])),
                 call.curve.at(static_cast<size_t>(p[2]))};
  });
}

TEST(ColGamma, EveryEntryInEveryPlaneAndMono) {
  Call color(256);
  for (auto& plane : color.in) std::iota(plane.begin(), plane.end(), uint8_t{0});
  ASSERT_EQ(color.run(), RAST_OK);
  for (size_t k = 0; k < 3; ++k) EXPECT_EQ(color.out[k], color.curve);
  Call mono(256);
  mono.in[3] = color.in[3];
  mono.mono();
  ASSERT_EQ(mono.run(), RAST_OK);
  EXPECT_EQ(mono.out[3], mono.curve);
}

TEST(ColGamma, MonoIgnoresTheOtherColorPointers) {
  const WildGlobals globals;
  Call call(101, 43);
  call.useRectangleWithin();
  call.randomize(2);
  call.monoAmongWildPointers();
  ASSERT_EQ(call.run(), RAST_OK);
  expectMono(call, [&](uint8_t sample) { return call.curve[sample]; });
}

TEST(ColGamma, MonoLeavesAValidColorOutputAlone) {
  Call call;
  call.mono();
  call.set.pOut[0] = call.out[0].data();
  ASSERT_EQ(call.run(), RAST_OK);
  expectMono(call, [&](uint8_t sample) { return call.curve[sample]; });
}

TEST(ColGamma, IdentityCurveCopies) {
  Call call(300, 2);
  call.useSteps(0);
  call.randomize(3);
  ASSERT_EQ(call.run(), RAST_OK);
  for (size_t k = 0; k < 3; ++k) EXPECT_EQ(call.out[k], call.in[k]);
}

TEST(ColGamma, TheCurveIsOnlyRead) {
  Call call;
  const Samples before = call.curve;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.curve, before);
}

TEST(ColGamma, InPlaceAndCrossed) {
  const Call call;
  expectSameInPlaceAndCrossed(
      [&](ColorCall& c) { return rastColGamma(&c.area, &c.set, call.curve.data()); });
}

TEST(ColGamma, CrossedPlanesAreReadBeforeTheyAreWritten) {
  Call call(3);
  call.useSteps(1);
  call.in[0] = {1, 2, 3};
  call.in[1] = {10, 20, 30};
  call.set.pOut[0] = call.in[1].data();
  call.set.pOut[1] = call.in[0].data();
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.in[0], ElementsAre(11, 21, 31));
  EXPECT_THAT(call.in[1], ElementsAre(2, 3, 4));
}

TEST(ColGamma, OutputOneAheadOfItsInputFeedsTheNextPosition) {
  Call color(5);
  color.useSteps(1);
  color.area.nWidth = 4;
  color.in[1] = {5, 0, 0, 0, 0};
  color.set.pOut[1] = color.in[1].data() + 1;
  ASSERT_EQ(color.run(), RAST_OK);
  EXPECT_THAT(color.in[1], ElementsAre(5, 6, 7, 8, 9));

  Call mono(5);
  mono.useSteps(1);
  mono.area.nWidth = 4;
  mono.mono();
  mono.in[3] = {5, 0, 0, 0, 0};
  mono.set.pOut[3] = mono.in[3].data() + 1;
  ASSERT_EQ(mono.run(), RAST_OK);
  EXPECT_THAT(mono.in[3], ElementsAre(5, 6, 7, 8, 9));
}

TEST(ColGamma, OutputOneAheadOfAnotherInput) {
  Call call(4);
  call.useSteps(1);
  call.area.nWidth = 3;
  call.in[0] = {5, 50, 90, 0};
  call.in[2] = {7, 0, 0, 0};
  call.set.pOut[0] = call.in[2].data() + 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.in[2], ElementsAre(7, 6, 51, 91));
  EXPECT_THAT(call.out[2], ElementsAre(8, 7, 52, Planes::kUntouched));
}

TEST(ColGamma, TheLastOfTheOutputsOnOnePlaneStays) {
  Call call(2);
  call.useSteps(1);
  call.in[0] = {1, 2};
  call.in[1] = {10, 20};
  call.in[2] = {100, 200};
  for (const size_t k : {1U, 2U}) call.set.pOut[k] = call.out[0].data();
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], ElementsAre(101, 201));
}

TEST(ColGamma, OutputsOneApartAreWrittenPositionByPosition) {
  Call call(4);
  call.useSteps(1);
  call.area.nWidth = 3;
  call.in[0] = {1, 2, 3, 0};
  call.in[1] = {10, 20, 30, 0};
  call.set.pOut[1] = call.out[0].data() + 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], ElementsAre(2, 3, 4, 31)) << "each later sample of 0 covers one of 1";
}

TEST(ColGamma, TheCurveIsReadSampleBySample) {
  Call mono(3);
  mono.mono();
  mono.in[3] = {1, 0, 2};
  mono.curve = {5, 9, 6};
  mono.curve.resize(256, 0);
  mono.set.pOut[3] = mono.curve.data();
  ASSERT_EQ(mono.run(), RAST_OK);
  EXPECT_THAT(std::vector(mono.curve.begin(), mono.curve.begin() + 4), ElementsAre(9, 9, 6, 0));

  Call last(2);
  last.mono();
  last.in[3] = {255, 254};
  last.curve[254] = 1;
  last.curve[255] = 2;
  last.set.pOut[3] = last.curve.data() + 254;
  ASSERT_EQ(last.run(), RAST_OK);
  EXPECT_EQ(last.curve[254], 2);
  EXPECT_EQ(last.curve[255], 2) << "entry 254 was written just before";

  Call color(2);
  color.curve = {5, 9, 6};
  color.curve.resize(256, 0);
  color.in[0] = {1, 1};
  color.in[1] = {0, 0};
  color.in[2] = {2, 0};
  color.set.pOut[0] = color.curve.data();
  ASSERT_EQ(color.run(), RAST_OK);
  EXPECT_EQ(color.curve[0], 9);
  EXPECT_EQ(color.curve[1], 9);
  EXPECT_THAT(color.out[1], ElementsAre(9, 9)) << "entry 0 was written just before";
  EXPECT_THAT(color.out[2], ElementsAre(6, 9));
}

TEST(ColGamma, TheArgumentsAreReadOnce) {
  const Call call;
  expectArgumentsReadOnce(0, [&](const RastArea* area, const RastPlaneSet* planes, const int*) {
    return rastColGamma(area, planes, call.curve.data());
  });
}

TEST(ColGamma, NegativeStartThatFitsIsTaken) {
  Call call(8);
  call.useSteps(1);
  call.mono();
  call.in[3] = {1, 2, 3, 4, 5, 6, 7, 8};
  call.area = {4, -1, 5, 0, 1};
  ++call.set.pIn[3];
  ++call.set.pOut[3];
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[3], ElementsAre(2, 3, 4, 5, 6, 0xAA, 0xAA, 0xAA));
}

TEST(ColGamma, TheLineFitIsTightAtOneAndWraps) {
  Call call(16);
  call.area.nWidth = 15;
  call.area.nStartX = 1;
  EXPECT_EQ(call.run(), RAST_OK);
  call.area.nStartX = 2;
  EXPECT_EQ(call.run(), RAST_ERR_INVALID_ARG);
  // A start whose sum wraps passes: only the later size check stops the call.
  call.area.nStartX = INT32_MAX;
  call.set.nSize = 0;
  EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_ERR_INVALID_ARG); }), kSizeMessage);
}

TEST(ColGamma, AnyPositiveSizeWillDoAndNothingIsPrinted) {
  Call call(16, 4);
  call.set.nSize = 1;
  EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_OK); }), "");
  const int zero = call.curve[0];
  expectColor(call, [&](const Pixel&) { return Pixel{zero, zero, zero}; });
}

bool unchanged(const Call& call) { return call.untouched() && call.curve == Call().curve; }

TEST(ColGamma, ColorChecksAloneAndBeforeTheLaterOnes) {
  const Checks<Call> atStart = {{"curve null", [](Call& c) { c.useCurve = false; }}};
  const Checks<Call> modes = {
      {"planes null", [](Call& c) { c.usePlanes = false; }},
      {"pIn[0] and pIn[3] set", [](Call& c) { c.set.pIn[3] = kWild; }},
      {"pIn[0] and pIn[3] null", [](Call& c) { c.set.pIn[0] = nullptr; }},
      {"pOut[3] set", [](Call& c) { c.set.pOut[3] = kWild; }},
  };
  expectChecksInOrder<Call>(atStart + lineFitChecks<Call>() + modes + colorPlaneChecks<Call>() +
                                sizeChecks<Call>(kSizeMessage) + extentChecks<Call>(),
                            &Call::run, unchanged);
}

TEST(ColGamma, MonoChecksAloneAndBeforeTheLaterOnes) {
  using C = MonoCall;
  const Checks<C> atStart = {{"curve null", [](C& c) { c.useCurve = false; }}};
  const Checks<C> planes = {
      {"planes null", [](C& c) { c.usePlanes = false; }},
      {"pIn[0] and pIn[3] set", [](C& c) { c.set.pIn[0] = kWild; }},
      {"pIn[0] and pIn[3] null", [](C& c) { c.set.pIn[3] = nullptr; }},
      {"pOut[3] null", [](C& c) { c.set.pOut[3] = nullptr; }},
  };
  expectChecksInOrder<C>(
      atStart + lineFitChecks<C>() + planes + sizeChecks<C>(kSizeMessage) + extentChecks<C>(),
      &C::run, unchanged);
}

}  // namespace
}  // namespace rast::test
