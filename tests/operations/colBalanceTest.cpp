#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "rast.h"
#include "support/call.h"
#include "support/color.h"

namespace rast::test {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr size_t kCurves = 1024;
constexpr size_t kBufferSize = 1025;
constexpr RastColBalanceParam kNeutral = {4, {5, 5, 5, 5}};

struct Call : ColorCall {
  explicit Call(int32_t width = 16, int32_t height = 1) : ColorCall(width, height) {}
  explicit Call(const std::vector<Pixel>& pixels) : ColorCall(pixels) {}

  uint32_t run() {
    return rastColBalance(areaOrNull(), planesOrNull(), useParam ? &param : nullptr,
                          lut.empty() ? nullptr : lut.data());
  }
  /// A buffer of garbage, with a byte behind it that is not part of it.
  void useBuffer(uint8_t flag) {
    lut.assign(kBufferSize + 1, 0xCD);
    lut[kCurves] = flag;
  }

  RastColBalanceParam param = kNeutral;
  Samples lut;
  bool useParam = true;
};

/// The curves of `param`, as a call shows them in its buffer.
Samples curvesOf(const RastColBalanceParam& param) {
  Call call;
  call.param = param;
  call.useBuffer(0);
  EXPECT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.lut[kCurves], 1);
  EXPECT_EQ(call.lut[kBufferSize], 0xCD) << "behind the buffer";
  call.lut.resize(kCurves);
  return call.lut;
}

Samples curveOf(uint8_t tone, int16_t level) {
  const Samples curves = curvesOf({tone, {level, level, level, level}});
  Samples first(curves.begin(), curves.begin() + 256);
  for (size_t i = 256; i < kCurves; ++i) EXPECT_EQ(curves[i], first[i % 256]);
  return first;
}

Samples toneCurve(uint8_t tone) { return curveOf(tone, 5); }
Samples levelCurve(int16_t level) { return curveOf(4, level); }

std::vector<Samples> all(size_t count, Samples (*curve)(size_t)) {
  std::vector<Samples> curves;
  for (size_t i = 0; i < count; ++i) curves.push_back(curve(i));
  return curves;
}

const std::vector<Samples>& toneCurves() {
  static const auto curves = all(5, [](size_t i) { return toneCurve(static_cast<uint8_t>(i)); });
  return curves;
}

const std::vector<Samples>& levelCurves() {
  static const auto curves = all(12, [](size_t i) { return levelCurve(static_cast<int16_t>(i)); });
  return curves;
}

uint32_t checksum(const std::vector<Samples>& curves) {
  Samples joined;
  for (const Samples& curve : curves) joined.insert(joined.end(), curve.begin(), curve.end());
  return crc32(joined);
}

/// `curve(channel, i)`, channel 3 being the gray part.
template <class Curve>
Pixel model(const Pixel& p, Curve curve) {
  const int least = std::min({p[0], p[1], p[2]});
  const int gray = curve(3, least);
  Pixel out;
  for (size_t k = 0; k < 3; ++k) {
    const int chroma = least == 255 ? 255 : std::min(255, (p[k] - least) * 256 / (255 - least));
    out[k] = std::min(255, (255 - gray) * curve(k, chroma) / 256 + gray);
  }
  return out;
}

Pixel model(const Pixel& p, const RastColBalanceParam& param) {
  return model(p, [&](size_t channel, int i) -> int {
    const uint8_t toned = toneCurves()[param.nCurve][static_cast<size_t>(i)];
    return levelCurves()[static_cast<size_t>(param.nLevel[channel])][toned];
  });
}

Pixel model(const Pixel& p, const Samples& lut) {
  return model(
      p, [&](size_t channel, int i) -> int { return lut[channel * 256 + static_cast<size_t>(i)]; });
}

/// The same pixel from the tables and through a buffer.
Pixel balanced(const Pixel& pixel, const RastColBalanceParam& param = kNeutral) {
  Call direct({pixel});
  Call buffered({pixel});
  direct.param = buffered.param = param;
  buffered.useBuffer(0);
  EXPECT_EQ(direct.run(), RAST_OK);
  EXPECT_EQ(buffered.run(), RAST_OK);
  EXPECT_EQ(direct.output(0), buffered.output(0));
  return direct.output(0);
}

TEST(ColBalance, ToneCurves) {
  EXPECT_EQ(checksum(toneCurves()), 0xc44aaa38U);
  EXPECT_EQ(crc32(toneCurves()[0]), 0x5b6eb653U);
  EXPECT_EQ(crc32(toneCurves()[1]), 0xf04ec89eU);
  EXPECT_EQ(crc32(toneCurves()[2]), 0xb17f9770U);
  EXPECT_EQ(crc32(toneCurves()[3]), 0x1799440bU);
  for (size_t i = 0; i < 256; ++i) EXPECT_EQ(toneCurves()[4][i], i);
}

TEST(ColBalance, ToneCurvesAtTheirTellingEntries) {
  const auto& contrast = toneCurves()[0];
  EXPECT_EQ(contrast[9], 0);
  EXPECT_EQ(contrast[10], 1);
  EXPECT_EQ(contrast[245], 254);
  EXPECT_EQ(contrast[246], 255);
  EXPECT_EQ(toneCurves()[1][255], 247);
  EXPECT_EQ(toneCurves()[2][128], 111);
  EXPECT_EQ(toneCurves()[3][128], 148);
  for (const Samples& curve : toneCurves()) EXPECT_TRUE(std::ranges::is_sorted(curve));
}

TEST(ColBalance, LevelCurves) {
  EXPECT_EQ(checksum(levelCurves()), 0x6f3fd661U);
  const std::vector<int> ramps[] = {
      {0, 1, 3, 4, 6, 7, 9, 10, 11, 12, 14, 15, 16, 17},
      {0, 2, 4, 6, 8, 9, 11, 13, 14, 16, 18, 19, 20, 22, 23, 24},
      {0, 2, 5, 7, 9, 12, 14, 16, 18, 19, 21, 23, 25, 26, 28, 29, 30},
      {0, 3, 6, 9, 11, 14, 16, 19, 21, 23, 25, 27, 29, 31, 32, 34, 35},
      {0, 3, 7, 10, 13, 16, 19, 21, 24, 26, 29, 31, 33, 35, 37, 38, 40, 41},
  };
  for (size_t level = 0; level <= 10; ++level) {
    for (size_t i = 0; i < 256; ++i) {
      const int shifted = clamped(static_cast<int>(i) + (static_cast<int>(level) - 5) * 5);
      const bool onRamp = level > 5 && i < ramps[level - 6].size();
      const int expected = onRamp ? ramps[level - 6][i] : shifted;
      EXPECT_EQ(levelCurves()[level][i], expected) << level << ' ' << i;
    }
  }
  EXPECT_EQ(levelCurves()[11], levelCurves()[10]);
}

TEST(ColBalance, NeutralCurvesStillTruncate) {
  EXPECT_EQ(balanced({255, 0, 0}), (Pixel{254, 0, 0}));
  EXPECT_EQ(balanced({200, 100, 50}), (Pixel{199, 99, 50}));
  EXPECT_EQ(balanced({50, 200, 100}), (Pixel{50, 199, 99}));
  EXPECT_EQ(balanced({255, 255, 255}), (Pixel{255, 255, 255}));
}

TEST(ColBalance, NeutralCurvesKeepGrays) {
  for (int gray = 0; gray < 256; ++gray) {
    EXPECT_EQ(balanced({gray, gray, gray}), (Pixel{gray, gray, gray}));
  }
}

TEST(ColBalance, EachLevelBelongsToItsChannel) {
  // Level 0 takes 25 away: from 255 * 255 >> 8 = 254 it leaves 255 * 230 >> 8 = 229.
  EXPECT_EQ(balanced({0, 255, 255}, {4, {0, 5, 5, 5}}), (Pixel{0, 254, 254}));
  EXPECT_EQ(balanced({255, 0, 255}, {4, {0, 5, 5, 5}}), (Pixel{229, 0, 254}));
  EXPECT_EQ(balanced({255, 0, 255}, {4, {5, 5, 0, 5}}), (Pixel{254, 0, 229}));
  EXPECT_EQ(balanced({0, 255, 255}, {4, {5, 0, 5, 5}}), (Pixel{0, 229, 254}));
  EXPECT_EQ(balanced({100, 100, 100}, {4, {5, 5, 5, 0}}), (Pixel{75, 75, 75}));
  EXPECT_EQ(balanced({100, 100, 100}, {0, {5, 5, 5, 5}}), (Pixel{98, 98, 98}));
}

TEST(ColBalance, TheToneCurveComesBeforeTheLevel) {
  const Samples curves = curvesOf({0, {6, 0, 7, 10}});
  EXPECT_EQ(curves[10], 1) << "10 is toned to 1, on level 6's ramp 1";
  EXPECT_EQ(curves[256 + 42], 36 - 25);
  EXPECT_EQ(curves[512 + 12], 6) << "3 on level 7's ramp";
  EXPECT_EQ(curves[768 + 9], 0);
  EXPECT_EQ(curves[768 + 230], 255);
}

TEST(ColBalance, ChromaIsCappedBeforeItsCurve) {
  // Above 254 there is one step of room: 1 * 256 / 1 counts as 255.
  Call call({{255, 254, 254}});
  call.useBuffer(1);
  std::fill_n(call.lut.begin(), kCurves, uint8_t{0});
  call.lut[255] = 200;
  call.lut[256] = 90;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.output(0), (Pixel{199, 89, 0}));
  EXPECT_EQ(balanced({255, 254, 254}), (Pixel{254, 254, 254}));
  EXPECT_EQ(balanced({255, 254, 254}, {4, {5, 5, 5, 0}}), (Pixel{254, 229, 229}));
}

TEST(ColBalance, WhiteHasFullChroma) {
  Call call({{255, 255, 255}});
  call.useBuffer(1);
  std::fill_n(call.lut.begin(), kCurves, uint8_t{0});
  call.lut[255] = 10;
  call.lut[511] = 100;
  call.lut[767] = 255;
  call.lut[1023] = 55;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.output(0), (Pixel{55 + 200 * 10 / 256, 55 + 200 * 100 / 256, 55 + 199}));
}

RastColBalanceParam randomParam(Random& random) {
  RastColBalanceParam param;
  param.nCurve = static_cast<uint8_t>(random.pick(0, 4));
  for (int16_t& level : param.nLevel) level = static_cast<int16_t>(random.pick(0, 11));
  return param;
}

TEST(ColBalance, RandomPixelsFromTheTablesAndThroughABuffer) {
  const WildGlobals globals;
  Random random(8);
  for (int round = 0; round < 40; ++round) {
    // Odd and even widths.
    Call call(70 + round % 2, 23);
    call.useRectangleWithin();
    call.randomize(static_cast<uint64_t>(round));
    call.param = randomParam(random);
    if (round % 4 < 2) call.useBuffer(0);
    ASSERT_EQ(call.run(), RAST_OK);
    expectColor(call, [&](const Pixel& p) { return model(p, call.param); });
  }
}

TEST(ColBalance, EveryGrayPartAndChroma) {
  for (const bool buffered : {false, true}) {
    Call call(256, 256);
    call.param = {3, {0, 9, 11, 7}};
    if (buffered) call.useBuffer(0);
    for (int i = 0; i < 65536; ++i) {
      Pixel pixel;
      pixel.fill(i / 256);
      pixel[static_cast<size_t>(i % 3)] = i % 256;
      call.setPixel(static_cast<size_t>(i), pixel);
    }
    ASSERT_EQ(call.run(), RAST_OK);
    expectColor(call, [&](const Pixel& p) { return model(p, call.param); });
  }
}

TEST(ColBalance, TheLastPixelOfAnOddLineIsDoneAlone) {
  for (const int32_t width : {1, 3, 5, 17, 33, 65}) {
    Call direct(width, 3);
    Call buffered(width, 3);
    direct.randomize(4);
    buffered.randomize(4);
    buffered.useBuffer(0);
    ASSERT_EQ(direct.run(), RAST_OK);
    ASSERT_EQ(buffered.run(), RAST_OK);
    for (size_t k = 0; k < 3; ++k) EXPECT_EQ(direct.out[k], buffered.out[k]);
    expectColor(direct, [&](const Pixel& p) { return model(p, kNeutral); });
  }
}

TEST(ColBalanceBuffer, AnUnbuiltBufferIsFilledAndMarked) {
  Random random(10);
  for (int round = 0; round < 50; ++round) {
    const RastColBalanceParam param = randomParam(random);
    const Samples curves = curvesOf(param);
    for (size_t i = 0; i < kCurves; ++i) {
      const uint8_t toned = toneCurves()[param.nCurve][i % 256];
      ASSERT_EQ(curves[i], levelCurves()[static_cast<size_t>(param.nLevel[i / 256])][toned]) << i;
    }
  }
}

TEST(ColBalanceBuffer, ABuiltBufferIsTrustedForAnyFlag) {
  Random random(11);
  for (const uint8_t flag : Samples{1, 2, 128, 255}) {
    Call call(61, 40);
    call.randomize(flag);
    call.useBuffer(flag);
    random.fill(call.lut.data(), kCurves);
    const Samples before = call.lut;
    ASSERT_EQ(call.run(), RAST_OK);
    EXPECT_EQ(call.lut, before);
    expectColor(call, [&](const Pixel& p) { return model(p, before); });
  }
}

TEST(ColBalanceBuffer, ABuiltBufferOutlivesItsParameters) {
  Call call(std::vector<Pixel>(5, {100, 100, 100}));
  call.useBuffer(0);
  ASSERT_EQ(call.run(), RAST_OK);
  call.param.nLevel[3] = 0;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], Each(100));
  call.lut[kCurves] = 0;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], Each(75));
}

TEST(ColBalance, InPlaceAndCrossed) {
  Random random(12);
  for (int round = 0; round < 10; ++round) {
    const bool buffered = round % 2 == 0;
    const RastColBalanceParam param = randomParam(random);
    expectSameInPlaceAndCrossed([&](ColorCall& c) {
      Samples lut(kBufferSize);
      return rastColBalance(&c.area, &c.set, &param, buffered ? lut.data() : nullptr);
    });
  }
}

TEST(ColBalance, CrossedPlanesAreReadBeforeTheyAreWritten) {
  for (const bool buffered : {false, true}) {
    Call call(std::vector<Pixel>(5, {200, 100, 50}));
    if (buffered) call.useBuffer(0);
    call.set.pOut[0] = call.in[1].data();
    call.set.pOut[1] = call.in[2].data();
    call.set.pOut[2] = call.in[0].data();
    ASSERT_EQ(call.run(), RAST_OK);
    EXPECT_THAT(call.in[1], Each(199));
    EXPECT_THAT(call.in[2], Each(99));
    EXPECT_THAT(call.in[0], Each(50));
  }
}

TEST(ColBalance, TheLastOfTheOutputsOnOnePlaneStays) {
  for (const bool buffered : {false, true}) {
    Call call(std::vector<Pixel>(5, {200, 100, 50}));
    if (buffered) call.useBuffer(0);
    for (const size_t k : {1U, 2U}) call.set.pOut[k] = call.out[0].data();
    ASSERT_EQ(call.run(), RAST_OK);
    EXPECT_THAT(call.out[0], Each(50));
  }
}

/// Pixels of red, each of which comes out one darker, written one column ahead.
Samples redOneAhead(bool buffered, int32_t width = 5) {
  Call call(6);
  call.area.nWidth = width;
  call.in[0] = {100, 50, 30, 20, 10, 5};
  if (buffered) call.useBuffer(0);
  call.set.pOut[0] = call.in[0].data() + 1;
  EXPECT_EQ(call.run(), RAST_OK);
  return call.in[0];
}

TEST(ColBalance, OutputOneAheadOfItsInput) {
  EXPECT_THAT(redOneAhead(true), ElementsAre(100, 99, 98, 97, 96, 95)) << "pixel by pixel";
  EXPECT_THAT(redOneAhead(false), ElementsAre(100, 99, 49, 48, 19, 18)) << "in pairs";
  EXPECT_THAT(redOneAhead(false, 4), ElementsAre(100, 99, 49, 48, 19, 5)) << "to the last pair";
}

/// Outputs 0 and 1 of three pixels, 199 and 99, one column apart in one plane.
Samples outputsOneApart(bool buffered) {
  Call call(std::vector<Pixel>(4, {200, 100, 50}));
  call.area.nWidth = 3;
  if (buffered) call.useBuffer(0);
  call.set.pOut[1] = call.out[0].data() + 1;
  EXPECT_EQ(call.run(), RAST_OK);
  return call.out[0];
}

TEST(ColBalance, OutputsOneApart) {
  EXPECT_THAT(outputsOneApart(true), ElementsAre(199, 199, 199, 99)) << "pixel by pixel";
  EXPECT_THAT(outputsOneApart(false), ElementsAre(199, 99, 199, 99)) << "a pair plane by plane";
}

TEST(ColBalanceBuffer, TheCurvesAreReadSampleBySample) {
  // Black pixels: output 0 is curve 3 at 0, over which the first pixel writes.
  Call call(2);
  call.useBuffer(1);
  std::fill_n(call.lut.begin(), kCurves, uint8_t{0});
  call.lut[0] = 128;
  call.lut[768] = 55;
  call.set.pOut[0] = call.lut.data() + 768;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.lut[768], 55 + 200 * 128 / 256);
  EXPECT_EQ(call.lut[769], 155 + 100 * 128 / 256);
  EXPECT_THAT(call.out[1], ElementsAre(55, 155));
}

TEST(ColBalance, TheArgumentsAreReadOnce) {
  const RastColBalanceParam param{2, {0, 9, 6, 7}};
  for (const bool buffered : {false, true}) {
    expectArgumentsReadOnce(param, [buffered](const RastArea* area, const RastPlaneSet* planes,
                                              const RastColBalanceParam* p) {
      Samples lut(kBufferSize);
      return rastColBalance(area, planes, p, buffered ? lut.data() : nullptr);
    });
  }
}

TEST(ColBalance, NegativeStartThatFitsIsTaken) {
  for (const bool buffered : {false, true}) {
    Call call(8);
    if (buffered) call.useBuffer(0);
    for (size_t k = 0; k < 3; ++k) {
      call.in[k] = {1, 2, 3, 4, 5, 6, 7, 8};
      ++call.set.pIn[k];
      ++call.set.pOut[k];
    }
    call.area = {4, -1, 5, 0, 1};
    ASSERT_EQ(call.run(), RAST_OK);
    for (size_t k = 0; k < 3; ++k) {
      EXPECT_THAT(call.out[k], ElementsAre(1, 2, 3, 4, 5, 0xAA, 0xAA, 0xAA));
    }
  }
}

TEST(ColBalance, TheLineFitIsTightAtOne) {
  Call call;
  call.area.nWidth = 15;
  call.area.nStartX = 1;
  EXPECT_EQ(call.run(), RAST_OK);
  call.area.nStartX = 2;
  EXPECT_EQ(call.run(), RAST_ERR_INVALID_ARG);
}

TEST(ColBalance, AnyPositiveSizeWillDoAndNothingIsPrinted) {
  Call call(16, 4);
  call.set.nSize = 1;
  EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_OK); }), "");
  expectColor(call, [](const Pixel& p) { return p; });
}

TEST(ColBalance, EveryCurveAndLevelWithinTheLimitsIsTaken) {
  for (uint8_t tone = 0; tone <= 4; ++tone) {
    for (int16_t level = 0; level <= 11; ++level) {
      for (size_t channel = 0; channel < 4; ++channel) {
        Call call;
        call.param.nCurve = tone;
        call.param.nLevel[channel] = level;
        EXPECT_EQ(call.run(), RAST_OK);
      }
    }
  }
}

TEST(ColBalance, EachCheckAloneAndBeforeTheLaterOnes) {
  const Checks<Call> mono = {
      {"pIn[3] set", [](Call& c) { c.set.pIn[3] = kWild; }},
      {"pOut[3] set", [](Call& c) { c.set.pOut[3] = kWild; }},
  };
  const Checks<Call> noParam = {{"param null", [](Call& c) { c.useParam = false; }}};
  Checks<Call> values = {
      {"curve 5", [](Call& c) { c.param.nCurve = 5; }},
      {"curve 255", [](Call& c) { c.param.nCurve = 255; }},
  };
  for (size_t channel = 0; channel < 4; ++channel) {
    for (const int16_t level : Words{-1, 12, 256, -32768, 32767}) {
      values.push_back({"level", [=](Call& c) { c.param.nLevel[channel] = level; }});
    }
  }
  const auto checks = lineFitChecks<Call>() + colorPlaneChecks<Call>() + mono + sizeChecks<Call>() +
                      noParam + extentChecks<Call>() + values;
  for (const int flag : {-1, 0, 1}) {
    const auto useBuffer = [flag](Call& c) {
      if (flag >= 0) c.useBuffer(static_cast<uint8_t>(flag));
    };
    const auto run = [&](Call& c) {
      useBuffer(c);
      return c.run();
    };
    expectChecksInOrder<Call>(checks, run, [&](const Call& c) {
      Call fresh;
      useBuffer(fresh);
      return c.untouched() && c.lut == fresh.lut;
    });
  }
}

}  // namespace
}  // namespace rast::test
