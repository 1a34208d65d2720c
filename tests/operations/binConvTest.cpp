#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "rast.h"
#include "support/call.h"
#include "support/color.h"
#include "tone/rastBinConv.h"

namespace rast::test {
namespace {

using testing::Each;
using testing::ElementsAre;

const std::string kSizeMessage = "[RAST BCONV ERROR] size <= 0!!! [../rastBinConv : 2150]\n";

/// A good call on a line of saturated red.
struct Call : ColorCall {
  explicit Call(int32_t width = 16, int32_t height = 1) : ColorCall(width, height) { redden(); }
  explicit Call(const std::vector<Pixel>& pixels) : ColorCall(pixels) { set.pOut[3] = kWild; }

  uint32_t run() { return rastBinConv(areaOrNull(), planesOrNull(), color); }

  uint32_t color = 0;

 private:
  void redden() {
    set.pOut[3] = kWild;
    in[0].assign(in[0].size(), 255);
  }
};

Pixel converted(const Pixel& pixel, uint32_t color) {
  Call call({pixel});
  call.color = color;
  EXPECT_EQ(call.run(), RAST_OK);
  return call.output(0);
}

/// What `record` makes of the pixels, on which the plain code and the row kernels must agree.
std::vector<Pixel> convertedWith(const RastBinConvColor& record, const std::vector<Pixel>& pixels) {
  Call plain(pixels);
  Call fast(pixels);
  convertWithRecord(nullptr, plain.area, plain.set, record);
  convertWithRecord(rows(), fast.area, fast.set, record);
  std::vector<Pixel> out;
  for (size_t i = 0; i < pixels.size(); ++i) out.push_back(plain.output(i));
  for (size_t k = 0; k < 3; ++k) EXPECT_EQ(fast.out[k], plain.out[k]);
  return out;
}

Pixel convertedWith(const RastBinConvColor& record, const Pixel& pixel) {
  return convertedWith(record, std::vector{pixel})[0];
}

int hueWithin(int base, int behind, int ahead, int chroma) {
  if (chroma == 0) return base;
  if (behind <= ahead) return base - (ahead - behind) * 42 / chroma;
  return base + (behind - ahead) * 42 / chroma;
}

int hue(const Pixel& p) {
  const auto [r, g, b] = p;
  const auto [least, most] = std::minmax({r, g, b});
  if (r == least) return hueWithin(42, b, g, most - least);
  if (g == least) return hueWithin(127, r, b, most - least);
  return hueWithin(212, g, r, most - least);
}

/// The saturation limits as the conversion shows them, 0 for the hues that no pixel has: with the
/// largest component at 255 the saturation is the chroma, and only from the limit on an ink amount
/// of 255 comes out in full.
const std::array<uint8_t, 256>& limits() {
  static const auto all = [] {
    std::vector<Pixel> pixels;
    for (int a = 0; a < 256; ++a) {
      for (int b = 0; b < 256; ++b) {
        pixels.insert(pixels.end(), {{255, a, b}, {a, 255, b}, {a, b, 255}});
      }
    }
    const RastBinConvColor fullInk = {0, 0, {}, 0, {}, 255, {}, {256, 0, 0, 0}};
    const std::vector<Pixel> out = convertedWith(fullInk, pixels);
    std::array<uint8_t, 256> limit{};
    for (size_t i = 0; i < pixels.size(); ++i) {
      const auto [least, most] = std::minmax_element(pixels[i].begin(), pixels[i].end());
      uint8_t& known = limit[static_cast<size_t>(hue(pixels[i]))];
      const auto saturation = static_cast<uint8_t>(*most - *least);
      if (out[i][0] == 255 && (known == 0 || saturation < known)) known = saturation;
    }
    return limit;
  }();
  return all;
}

RastBinConvColor builtIn(uint32_t color) {
  constexpr uint16_t shares[6][3] = {{256, 0, 0},   {0, 256, 0},   {0, 0, 256},
                                     {0, 256, 256}, {256, 0, 256}, {256, 256, 0}};
  const auto& [c, m, y] = shares[color];
  return {0, 0, {77, 150, 29}, -30, {77, 150, 29}, -30, {0, 0, 0, 256}, {c, m, y, 0}};
}

/// Rounded down, for a divisor that is a power of two.
int64_t floored(int64_t v, int64_t divisor) {
  return v >= 0 ? v / divisor : -((-v + divisor - 1) / divisor);
}

int weight(const Pixel& p) {
  const auto [least, most] = std::minmax({p[0], p[1], p[2]});
  const int saturation = most == 0 ? 0 : (most - least) * 255 / most;
  if (saturation <= 15) return 0;
  const int limit = limits()[static_cast<size_t>(hue(p))];
  return limit < saturation ? 256 : (saturation * 256 - 3840) / (limit - 15);
}

int amount(bool largest, const int16_t (&coef)[3], int offset, const Pixel& p) {
  if (largest) return std::max({p[0], p[1], p[2]});
  int64_t sum = 0;
  for (size_t k = 0; k < 3; ++k) sum += int64_t{coef[k]} * p[k];
  return clamped(floored(sum, 256) + offset);
}

Pixel model(const RastBinConvColor& record, const Pixel& p) {
  const int w = weight(p);
  const int a = amount(record.bMaxA != 0, record.nCoefA, record.nOffsetA, p);
  const int b = amount(record.bMaxB != 0, record.nCoefB, record.nOffsetB, p);
  const int first = clamped(int64_t{65536 - 256 * w} * a / 65536);
  const int second = clamped(w * b / 256);
  Pixel out;
  for (size_t k = 0; k < 3; ++k) {
    out[k] = clamped((int64_t{record.nInkA[k]} * first + int64_t{record.nInkB[k]} * second) / 256);
  }
  return out;
}

TEST(BinConv, SaturationLimitsOfAllHues) {
  // No pixel has these: they lie beside the sectors' ends.
  constexpr size_t unseen[] = {85, 170, 254, 255};
  for (size_t h = 0; h < 256; ++h) {
    EXPECT_EQ(limits()[h] == 0, std::ranges::count(unseen, h) == 1) << h;
  }
  EXPECT_EQ(crc32(limits()), 0x6df994baU);
  EXPECT_THAT(std::span(limits()).first(16), ElementsAre(136, 136, 136, 137, 137, 137, 137, 137,
                                                         137, 138, 138, 138, 138, 138, 138, 139));
  EXPECT_EQ(limits()[84], 200);
  EXPECT_EQ(limits()[127], 84);
  EXPECT_EQ(limits()[169], 139);
  EXPECT_EQ(limits()[212], 120);
  EXPECT_EQ(limits()[253], 135);
}

TEST(BinConv, SaturatedRedFeedsWhatTheColorNames) {
  EXPECT_EQ(converted({255, 0, 0}, 0), (Pixel{46, 0, 0}));
  EXPECT_EQ(converted({255, 0, 0}, 1), (Pixel{0, 46, 0}));
  EXPECT_EQ(converted({255, 0, 0}, 2), (Pixel{0, 0, 46}));
  EXPECT_EQ(converted({255, 0, 0}, 3), (Pixel{0, 46, 46}));
  EXPECT_EQ(converted({255, 0, 0}, 4), (Pixel{46, 0, 46}));
  EXPECT_EQ(converted({255, 0, 0}, 5), (Pixel{46, 46, 0}));
}

TEST(BinConv, LuminanceOfEachComponent) {
  EXPECT_EQ(converted({0, 255, 0}, 0), (Pixel{119, 0, 0})) << "(150 * 255 >> 8) - 30";
  EXPECT_EQ(converted({0, 0, 255}, 0), (Pixel{0, 0, 0})) << "(29 * 255 >> 8) - 30 is below zero";
  EXPECT_EQ(converted({255, 255, 0}, 0), (Pixel{196, 0, 0}));
}

TEST(BinConv, UnknownColorsCountAsTheFirst) {
  for (const uint32_t color : {6U, 7U, 256U, 257U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_EQ(converted({255, 0, 0}, color), (Pixel{46, 0, 0})) << color;
  }
}

TEST(BinConv, GraysComeOutAsZero) {
  for (uint32_t color = 0; color < 6; ++color) {
    for (int gray = 0; gray < 256; ++gray) {
      EXPECT_EQ(converted({gray, gray, gray}, color), (Pixel{0, 0, 0})) << gray;
    }
  }
}

TEST(BinConv, RandomPixelsOfEveryColor) {
  const WildGlobals globals;
  for (uint32_t color = 0; color < 6; ++color) {
    Call call(103, 40);
    call.useRectangleWithin();
    call.color = color;
    call.randomize(color);
    ASSERT_EQ(call.run(), RAST_OK);
    expectColor(call, [&](const Pixel& p) { return model(builtIn(color), p); });
  }
}

/// The first ink alone, of which component 0 gets all, 1 half and 2 twice as much.
constexpr RastBinConvColor firstInk(const int16_t (&coef)[3], int16_t offset) {
  return {0, 0, {coef[0], coef[1], coef[2]}, offset, {}, 0, {256, 128, 512, 0}, {}};
}

TEST(BinConvRecord, NeutralPixelsGoToTheFirstInk) {
  const RastBinConvColor record = firstInk({256, 0, 0}, 5);
  EXPECT_EQ(convertedWith(record, {96, 96, 96}), (Pixel{101, 50, 202}));
  EXPECT_EQ(convertedWith(record, {250, 250, 250}), (Pixel{255, 127, 255}));
  EXPECT_EQ(convertedWith(record, {0, 0, 0}), (Pixel{5, 2, 10}));
  EXPECT_EQ(convertedWith(record, {255, 0, 0}), (Pixel{0, 0, 0})) << "saturated";
}

TEST(BinConvRecord, EachComponentHasItsOwnWeight) {
  const Pixel pixel{100, 101, 102};  // S = 4: neutral
  EXPECT_EQ(convertedWith(firstInk({256, 0, 0}, 0), pixel)[0], 100);
  EXPECT_EQ(convertedWith(firstInk({0, 256, 0}, 0), pixel)[0], 101);
  EXPECT_EQ(convertedWith(firstInk({0, 0, 256}, 0), pixel)[0], 102);
}

TEST(BinConvRecord, TheWeightedSumIsRoundedDown) {
  const RastBinConvColor record = firstInk({-1, 0, 0}, 5);
  EXPECT_EQ(convertedWith(record, {1, 1, 1})[0], 4);
  EXPECT_EQ(convertedWith(record, {0, 0, 0})[0], 5);
}

TEST(BinConvRecord, AmountsAreClampedAfterTheOffset) {
  EXPECT_EQ(convertedWith(firstInk({512, 512, 512}, -600), {110, 110, 110})[0], 60);
  EXPECT_EQ(convertedWith(firstInk({256, 0, 0}, -100), {99, 99, 99})[0], 0);
  EXPECT_EQ(convertedWith(firstInk({-32768, -32768, -32768}, 32767), {255, 255, 255})[0], 0);
  EXPECT_EQ(convertedWith(firstInk({32767, 32767, 32767}, -32768), {255, 255, 255})[0], 255);
}

TEST(BinConvRecord, AnOffsetOfTheWholeRangeLeavesNothingOrAll) {
  RastBinConvColor record = {};
  record.nCoefB[0] = record.nCoefB[1] = 128;
  record.nInkB[0] = 256;
  for (const auto& [offset, amount] :
       {std::pair{-254, 1}, {-255, 0}, {-256, 0}, {-32768, 0}, {-1, 254}}) {
    record.nOffsetB = static_cast<int16_t>(offset);
    EXPECT_EQ(convertedWith(record, {255, 255, 0})[0], amount) << offset;
  }
  for (const auto& [offset, amount] :
       {std::pair{254, 254}, {255, 255}, {256, 255}, {32767, 255}, {1, 1}}) {
    record.nOffsetB = static_cast<int16_t>(offset);
    EXPECT_EQ(convertedWith(record, {0, 0, 255})[0], amount) << offset;
  }
}

TEST(BinConvRecord, TheLargestComponentAsTheAmount) {
  for (const uint8_t set : Samples{1, 2, 255}) {
    RastBinConvColor record = firstInk({0, 0, 0}, 77);
    record.nCoefB[1] = 256;
    record.nInkB[1] = 256;
    record.bMaxA = set;
    EXPECT_EQ(convertedWith(record, {120, 121, 122}), (Pixel{122, 61, 244}));
    EXPECT_EQ(convertedWith(record, {200, 10, 0}), (Pixel{0, 10, 0})) << "the second ink";
    record.bMaxA = 0;
    record.bMaxB = set;
    EXPECT_EQ(convertedWith(record, {120, 121, 122}), (Pixel{77, 38, 154}));
    EXPECT_EQ(convertedWith(record, {200, 10, 0}), (Pixel{0, 200, 0}));
  }
}

TEST(BinConvRecord, SharesAreSixteenBitsWideAndTheResultIsClamped) {
  RastBinConvColor record = firstInk({256, 0, 0}, 0);
  record.nInkA[0] = 65535;
  record.nInkA[1] = 300;
  record.nInkA[2] = 257;
  EXPECT_EQ(convertedWith(record, {1, 1, 1}), (Pixel{255, 1, 1}));
  EXPECT_EQ(convertedWith(record, {255, 255, 255}), (Pixel{255, 255, 255}));
  EXPECT_EQ(convertedWith(record, {100, 100, 100}), (Pixel{255, 117, 100}));
}

TEST(BinConvRecord, SharesNextToNoneAndAll) {
  RastBinConvColor record = builtIn(3);
  record.nInkB[0] = record.nInkB[2] = 1;
  EXPECT_EQ(convertedWith(record, {255, 0, 0}), (Pixel{0, 46, 0}));
  record.nInkB[0] = 255;
  record.nInkB[2] = 257;
  EXPECT_EQ(convertedWith(record, {255, 0, 0}), (Pixel{45, 46, 46}));
  record.nInkB[0] = 0;
  record.nInkB[1] = record.nInkB[2] = 255;
  EXPECT_EQ(convertedWith(record, {255, 0, 0}), (Pixel{0, 45, 45}));
}

TEST(BinConvRecord, AWeightOfOneInTheSecondInk) {
  RastBinConvColor record = builtIn(0);
  for (int16_t& coefficient : record.nCoefB) coefficient = 0;
  record.nCoefB[0] = 256;
  EXPECT_EQ(convertedWith(record, {200, 0, 0}), (Pixel{170, 0, 0}));
}

TEST(BinConvRecord, TheFourthShareChangesNothing) {
  RastBinConvColor record = builtIn(3);
  record.nInkA[3] = 0;
  record.nInkB[3] = 65535;
  EXPECT_EQ(convertedWith(record, {255, 0, 0}), (Pixel{0, 46, 46}));
}

/// Each ink to a component of its own, both in the full amount of 255.
constexpr RastBinConvColor kBothInks = {0, 0, {}, 255, {}, 255, {256, 0, 256}, {0, 256, 256}};

TEST(BinConvRecord, TheWeightSplitsThePixel) {
  // Hue 0, limit 136. S = 16: w = (4096 - 3840) / 121 = 2, the first ink 65024 * 255 / 65536.
  EXPECT_EQ(convertedWith(kBothInks, {239, 255, 239}), (Pixel{253, 1, 254}));
  EXPECT_EQ(convertedWith(kBothInks, {240, 255, 240}), (Pixel{255, 0, 255})) << "S = 15: neutral";
  // S = 135: w = 253, S = 136 and on: 256.
  EXPECT_EQ(convertedWith(kBothInks, {120, 255, 120}), (Pixel{2, 252, 254}));
  EXPECT_EQ(convertedWith(kBothInks, {119, 255, 119}), (Pixel{0, 255, 255}));
  EXPECT_EQ(convertedWith(kBothInks, {118, 255, 118}), (Pixel{0, 255, 255}));
}

TEST(BinConvRecord, TheSaturationIsARatio) {
  // Chroma 8 of 128 is S = 15, 9 of 128 is 17 and w = (4352 - 3840) / 121 = 4.
  EXPECT_EQ(convertedWith(kBothInks, {120, 128, 120}), (Pixel{255, 0, 255}));
  EXPECT_EQ(convertedWith(kBothInks, {119, 128, 119}), (Pixel{251, 3, 254}));
}

TEST(BinConvRecord, TiesOfTheSmallestComponentGoToTheEarlier) {
  // The other choice would have a limit one higher and fall short of it.
  EXPECT_EQ(convertedWith(kBothInks, {55, 55, 255}), (Pixel{0, 255, 255})) << "R before G";
  EXPECT_EQ(convertedWith(kBothInks, {56, 56, 255}), (Pixel{1, 253, 254})) << "184 * 256 / 185";
  EXPECT_EQ(convertedWith(kBothInks, {255, 116, 116}), (Pixel{0, 255, 255})) << "G before B";
  EXPECT_EQ(convertedWith(kBothInks, {255, 117, 117}), (Pixel{2, 252, 254})) << "123 * 256 / 124";
}

TEST(BinConvRecord, RandomRecords) {
  Random random(9);
  Call source(64, 4);
  std::vector<Pixel> pixels;
  const auto word = [&] { return static_cast<int16_t>(random.pick(-400, 400)); };
  const auto share = [&] {
    return static_cast<uint16_t>(random.oneIn(9) ? 65535 : random.pick(0, 600));
  };
  for (int round = 0; round < 200; ++round) {
    source.randomize(static_cast<uint64_t>(round));
    pixels.clear();
    for (size_t i = 0; i < 256; ++i) pixels.push_back(source.input(i));
    RastBinConvColor record{};
    record.bMaxA = random.oneIn(3);
    record.bMaxB = random.oneIn(3);
    for (size_t k = 0; k < 3; ++k) {
      record.nCoefA[k] = word();
      record.nCoefB[k] = random.oneIn(2) ? static_cast<int16_t>(random.pick(0, 85)) : word();
      record.nInkA[k] = round % 3 ? 0 : share();
      record.nInkB[k] = round % 3 ? static_cast<uint16_t>(256 * random.pick(0, 1)) : share();
    }
    record.nOffsetA = word();
    record.nOffsetB = word();
    const std::vector<Pixel> out = convertedWith(record, pixels);
    for (size_t i = 0; i < 256; ++i) ASSERT_EQ(out[i], model(record, pixels[i])) << round;
  }
}

TEST(BinConv, InPlaceAndCrossed) {
  for (uint32_t color = 0; color < 6; ++color) {
    expectSameInPlaceAndCrossed([&](ColorCall& c) { return rastBinConv(&c.area, &c.set, color); });
  }
}

TEST(BinConv, CrossedPlanesAreReadBeforeTheyAreWritten) {
  Call call(3);
  call.set.pOut[0] = call.in[1].data();
  call.set.pOut[1] = call.in[0].data();
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.in[0], Each(0));
  EXPECT_THAT(call.in[1], Each(46));
}

TEST(BinConv, OutputOneAheadOfItsInputFeedsTheNextPosition) {
  Call call(4);
  call.area.nWidth = 3;
  call.set.pOut[0] = call.in[0].data() + 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.in[0], ElementsAre(255, 46, 0, 0)) << "(77 * 46 >> 8) - 30 is below zero";
}

TEST(BinConv, TheLastOfTheOutputsOnOnePlaneStays) {
  for (uint32_t color = 0; color < 6; ++color) {
    Call call(20);
    call.color = color;
    for (const size_t k : {1U, 2U}) call.set.pOut[k] = call.out[0].data();
    ASSERT_EQ(call.run(), RAST_OK);
    EXPECT_THAT(call.out[0], Each(color >= 2 && color <= 4 ? 46 : 0)) << color;
  }
}

TEST(BinConv, OutputsOneApartAreWrittenPositionByPosition) {
  Call call(4);
  call.area.nWidth = 3;
  call.set.pOut[1] = call.out[0].data() + 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[0], ElementsAre(46, 46, 46, 0)) << "each later sample of 0 covers one of 1";
}

TEST(BinConv, TheArgumentsAreReadOnce) {
  const auto run = [](const RastArea* area, const RastPlaneSet* planes, const uint32_t* color) {
    return rastBinConv(area, planes, *color);
  };
  for (uint32_t color = 0; color < 6; ++color) expectArgumentsReadOnce(color, run);
}

TEST(BinConv, TheWidthIsNotHeldAgainstThePitch) {
  Call call(16);
  call.area = {4, 3, 12, 0, 1};
  ASSERT_EQ(call.run(), RAST_OK);
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(call.out[0][i], i < 3 || i == 15 ? 0xAA : 46) << i;
}

TEST(BinConv, LinesThatOverlapAreDoneInOrder) {
  // In place with pitch 2 and width 3, the second line starts at the first one's last result.
  Call call(5);
  call.area = {2, 0, 3, 0, 2};
  call.set.pOut[0] = call.in[0].data();
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.in[0], ElementsAre(46, 46, 0, 46, 46));
}

TEST(BinConv, AnyPositiveSizeWillDoAndNothingIsPrinted) {
  Call call(16, 4);
  call.set.nSize = 1;
  EXPECT_EQ(printedBy([&] { EXPECT_EQ(call.run(), RAST_OK); }), "");
  expectColor(call, [](const Pixel&) { return Pixel{46, 0, 0}; });
}

TEST(BinConv, EachCheckAloneAndBeforeTheLaterOnes) {
  const Checks<Call> mono = {{"pIn[3] set", [](Call& c) { c.set.pIn[3] = kWild; }}};
  const Checks<Call> noArea = {{"area null", [](Call& c) { c.useArea = false; }}};
  expectChecksInOrder<Call>(colorPlaneChecks<Call>() + mono + sizeChecks<Call>(kSizeMessage) +
                                noArea + extentChecks<Call>(),
                            &Call::run, &Call::untouched);
}

}  // namespace
}  // namespace rast::test
