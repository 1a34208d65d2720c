#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/call.h"
#include "support/color.h"
#include "support/levels.h"

namespace rast::test {
namespace {

using testing::Each;
using testing::ElementsAre;

RastHueParam identity(int16_t reverse = 0, int16_t mirror = 0) {
  return {{{256, 0, 0, 0, 0}, {0, 256, 0, 0, 0}, {0, 0, 256, 0, 0}}, reverse, mirror};
}

RastHueParam randomParam(Random& random, ptrdiff_t span) {
  RastHueParam param{};
  for (auto& row : param.nMatrix) {
    for (int16_t& word : row) word = static_cast<int16_t>(random.pick(-span, span - 1));
  }
  return param;
}

/// Recognizable garbage, so that what is filled and what is left can be told.
std::unique_ptr<RastHueLut> garbageLut(int16_t built, int16_t reverse = 0) {
  auto lut = std::make_unique<RastHueLut>();
  memset(lut.get(), 0xCD, sizeof *lut);
  lut->nBuilt = built;
  lut->nReverse = reverse;
  return lut;
}

bool same(const RastHueLut& a, const RastHueLut& b) { return memcmp(&a, &b, sizeof a) == 0; }

struct Call : ColorCall {
  explicit Call(int32_t width = 16, int32_t height = 1) : ColorCall(width, height) {
    set.pOut[3] = kWild;
  }
  explicit Call(const std::vector<Pixel>& pixels) : ColorCall(pixels) { set.pOut[3] = kWild; }

  uint32_t run() {
    return rastHueAdjust(areaOrNull(), planesOrNull(), useParam ? &param : nullptr, lut.get());
  }
  /// Runs a good call and keeps its trace.
  void runWell() {
    traced = printedBy([&] { ASSERT_EQ(run(), RAST_OK); });
  }

  RastHueParam param = identity();
  std::unique_ptr<RastHueLut> lut;
  bool useParam = true;
  std::string traced;
};

struct MonoCall : Call {
  explicit MonoCall(Samples samples = Samples(16)) : Call(static_cast<int32_t>(samples.size())) {
    in[3] = std::move(samples);
    monoAmongWildPointers();
  }
};

/// The last steps, from a sum that has been reduced to 32 bits.
int finished(int32_t sum, int32_t offset, bool reverse) {
  const int v = clamped(int64_t{sum} / 256 + offset);
  return reverse ? 255 - v : v;
}

Pixel model(const RastHueParam& param, const Pixel& p) {
  Pixel out;
  for (size_t k = 0; k < 3; ++k) {
    int64_t sum = 0;
    for (size_t j = 0; j < 3; ++j) sum += int64_t{p[j] + param.nMatrix[j][3]} * param.nMatrix[k][j];
    out[k] = finished(static_cast<int32_t>(sum), param.nMatrix[k][4], param.nReverse == 1);
  }
  return out;
}

int model(const RastHueParam& param, uint8_t sample) {
  const int64_t sum = int64_t{sample + param.nMatrix[0][3]} * param.nMatrix[0][0];
  return finished(static_cast<int32_t>(sum), param.nMatrix[0][4], param.nReverse == 1);
}

Pixel model(const RastHueLut& lut, const Pixel& p) {
  Pixel out;
  for (size_t k = 0; k < 3; ++k) {
    int64_t sum = 0;
    for (size_t j = 0; j < 3; ++j) sum += lut.row[k].nProd[j][p[j]];
    out[k] = finished(static_cast<int32_t>(sum), lut.row[k].nOutOffset, lut.nReverse == 1);
  }
  return out;
}

/// The same pixel through the parameters and through a buffer made of them.
Pixel adjusted(const RastHueParam& param, const Pixel& pixel) {
  Call direct({pixel});
  Call table({pixel});
  direct.param = table.param = param;
  table.lut = garbageLut(0, param.nReverse);
  direct.runWell();
  table.runWell();
  EXPECT_EQ(direct.output(0), table.output(0));
  return direct.output(0);
}

TEST(HueAdjust, IdentityCopies) {
  Call call(300);
  call.randomize(1);
  call.runWell();
  expectColor(call, [](const Pixel& p) { return p; });
  EXPECT_EQ(adjusted(identity(), {1, 128, 255}), (Pixel{1, 128, 255}));
}

TEST(HueAdjust, ReverseInvertsOnlyWhenItIsOne) {
  EXPECT_EQ(adjusted(identity(1), {0, 100, 255}), (Pixel{255, 155, 0}));
  for (const int16_t other : Words{-32768, -1, 0, 2, 256, 257, 32767}) {
    EXPECT_EQ(adjusted(identity(other), {0, 100, 255}), (Pixel{0, 100, 255})) << other;
  }
}

TEST(HueAdjust, QuotientsLoseTheirFractionTowardsZero) {
  RastHueParam param = identity();
  const int16_t row[5] = {-128, 0, 0, 0, 10};
  std::copy_n(row, 5, param.nMatrix[0]);
  EXPECT_EQ(adjusted(param, {3, 77, 200})[0], 9) << "-384 / 256 is -1";
  EXPECT_EQ(adjusted(param, {1, 77, 200})[0], 10) << "-128 / 256 is 0";
  EXPECT_EQ(adjusted(param, {2, 77, 200})[0], 9);
}

TEST(HueAdjust, ResultsAreClampedBeforeTheyAreInverted) {
  for (const int16_t reverse : Words{0, 1}) {
    RastHueParam param = identity(reverse);
    param.nMatrix[0][4] = 100;
    param.nMatrix[1][4] = -100;
    const int full = reverse ? 0 : 255;
    EXPECT_EQ(adjusted(param, {156, 99, 0}), (Pixel{full, 255 - full, 255 - full}));
    EXPECT_EQ(adjusted(param, {155, 100, 0})[0], full) << "255 exactly";
    EXPECT_EQ(adjusted(param, {154, 101, 0})[0], reverse ? 1 : 254);
    EXPECT_EQ(adjusted(param, {154, 101, 0})[1], reverse ? 254 : 1);
  }
}

TEST(HueAdjust, InputOffsetsStandOnTheDiagonalAndCountInEveryRow) {
  RastHueParam param{};
  for (size_t k = 0; k < 3; ++k) {
    param.nMatrix[k][0] = 256;
    param.nMatrix[k][1] = 512;
    param.nMatrix[k][2] = 1024;
  }
  param.nMatrix[0][3] = 1;
  param.nMatrix[1][3] = 3;
  param.nMatrix[2][3] = -2;
  EXPECT_EQ(adjusted(param, {10, 20, 30}), (Pixel{169, 169, 169})) << "11 + 2 * 23 + 4 * 28";
}

TEST(HueAdjust, EachCoefficientJoinsItsInputToItsOutput) {
  for (size_t k = 0; k < 3; ++k) {
    for (size_t j = 0; j < 3; ++j) {
      RastHueParam param{};
      param.nMatrix[k][j] = 256;
      Pixel expected{0, 0, 0};
      expected[k] = 10 * (static_cast<int>(j) + 1);
      EXPECT_EQ(adjusted(param, {10, 20, 30}), expected);
    }
  }
}

TEST(HueAdjust, SumsWrapAt32Bits) {
  RastHueParam param{};
  for (auto& row : param.nMatrix) std::fill_n(row, 5, int16_t{32767});
  // Each product fits, their sum is above 2^31 and counts as negative: far below any offset.
  for (const int sample : {0, 128, 255}) {
    EXPECT_EQ(adjusted(param, {sample, sample, sample}), (Pixel{0, 0, 0}));
  }
  param.nReverse = 1;
  EXPECT_EQ(adjusted(param, {255, 255, 255}), (Pixel{255, 255, 255}));
  // The sum of two products just fits for black.
  param.nMatrix[0][2] = 0;
  EXPECT_EQ(adjusted(param, {0, 0, 0}), (Pixel{0, 255, 255}));
  EXPECT_EQ(adjusted(param, {1, 1, 1}), (Pixel{0, 255, 255}));
  EXPECT_EQ(adjusted(param, {3, 3, 3}), (Pixel{255, 255, 255}));
  for (auto& row : param.nMatrix) std::fill_n(row, 5, int16_t{-32768});
  param.nReverse = 0;
  // 3 * 2^30 wraps to -2^30, and the offset is negative too.
  EXPECT_EQ(adjusted(param, {0, 0, 0}), (Pixel{0, 0, 0}));
}

TEST(HueAdjust, RandomParametersDirectly) {
  const WildGlobals globals;
  Random random(3);
  for (int round = 0; round < 60; ++round) {
    Call call(71, 23);
    call.useRectangleWithin();
    call.randomize(static_cast<uint64_t>(round));
    call.param = randomParam(random, round % 3 ? 400 : 32768);
    call.param.nReverse = static_cast<int16_t>(round % 4);
    call.param.nMirror = static_cast<int16_t>(round % 5 - 2);
    call.runWell();
    expectColor(
        call, [&](const Pixel& p) { return model(call.param, p); },
        call.param.nMirror != 0 ? mirrored : straight);
    call.out[3].assign(call.out[3].size(), Planes::kUntouched);
    for (size_t k = 0; k < 3; ++k) call.out[k] = call.out[3];
    call.monoAmongWildPointers();
    call.runWell();
    expectMono(
        call, [&](uint8_t sample) { return model(call.param, sample); },
        call.param.nMirror != 0 ? mirrored : straight);
  }
}

TEST(HueAdjust, RandomParametersThroughABuffer) {
  const WildGlobals globals;
  Random random(4);
  for (int round = 0; round < 60; ++round) {
    Call call(71, 23);
    call.useRectangleWithin();
    call.randomize(static_cast<uint64_t>(round));
    call.param = randomParam(random, round % 3 ? 400 : 32768);
    call.lut = garbageLut(0, static_cast<int16_t>(round % 3));
    RastHueParam shown = call.param;
    shown.nReverse = call.lut->nReverse;
    // Neither counts with a buffer.
    call.param.nReverse = static_cast<int16_t>(round % 2);
    call.param.nMirror = 1;
    call.runWell();
    EXPECT_EQ(call.traced, "");
    expectColor(call, [&](const Pixel& p) { return model(shown, p); });
    for (auto& plane : call.out) plane.assign(plane.size(), Planes::kUntouched);
    call.monoAmongWildPointers();
    call.runWell();
    EXPECT_EQ(call.traced, "");
    expectMono(call, [&](uint8_t sample) { return model(shown, sample); });
  }
}

TEST(HueAdjust, MonoWordsAtTheirEndsAtEveryLevel) {
  const Words ends = {INT16_MIN, INT16_MIN + 1, -257, -256, -255,          -1,       0,
                      1,         255,           256,  257,  INT16_MAX - 1, INT16_MAX};
  Samples every(256 + 37);
  for (size_t i = 0; i < every.size(); ++i) every[i] = static_cast<uint8_t>(i);
  MonoCall call(every);
  for (const Rows* rows : levelsAndDefinition()) {
    for (const int16_t coefficient : ends) {
      for (const int16_t inOffset : ends) {
        for (const int16_t outOffset : ends) {
          call.param.nMatrix[0][0] = coefficient;
          call.param.nMatrix[0][3] = inOffset;
          call.param.nMatrix[0][4] = outOffset;
          call.param.nReverse = outOffset % 2 != 0;
          call.param.nMirror = inOffset % 2 != 0;
          printedBy([&] { hueAdjust(rows, &call.area, &call.set, &call.param, nullptr); });
          for (size_t i = 0; i < every.size(); ++i) {
            ASSERT_EQ(call.out[3][call.param.nMirror ? every.size() - 1 - i : i],
                      model(call.param, every[i]))
                << coefficient << ' ' << inOffset << ' ' << outOffset << ' ' << i;
          }
        }
      }
    }
  }
}

TEST(HueAdjustLut, AnUnbuiltBufferIsFilledInColorAndMono) {
  Random random(6);
  for (const bool mono : {false, true}) {
    for (const int16_t reverse : Words{0, 1, -1, 77}) {
      Call call;
      if (mono) call.monoAmongWildPointers();
      call.param = randomParam(random, 32768);
      call.lut = garbageLut(0, reverse);
      call.runWell();
      const auto& m = call.param.nMatrix;
      for (size_t k = 0; k < 3; ++k) {
        for (size_t j = 0; j < 3; ++j) {
          for (int i = 0; i < 256; ++i) {
            ASSERT_EQ(call.lut->row[k].nProd[j][i], (i + m[j][3]) * m[k][j]) << k << j << ' ' << i;
          }
        }
        EXPECT_EQ(call.lut->row[k].nOutOffset, m[k][4]);
      }
      EXPECT_EQ(call.lut->nBuilt, 1);
      EXPECT_EQ(call.lut->nReverse, reverse) << "the caller's";
    }
  }
}

TEST(HueAdjustLut, ABuiltBufferIsTrustedWhateverIsInIt) {
  Random random(7);
  for (const int16_t built : Words{1, 2, -1, 256, -32768}) {
    for (const int16_t reverse : Words{0, 1, 2, -1, 257}) {
      Call call(64, 16);
      call.randomize(static_cast<uint64_t>(reverse + 1));
      call.param = identity(1, 1);
      call.lut = garbageLut(built, reverse);
      // Small products, or any at all, whose sums wrap.
      const int32_t span = built == 2 ? INT32_MAX : 60000;
      const auto any = [&](int32_t most) { return static_cast<int32_t>(random.pick(-most, most)); };
      for (auto& row : call.lut->row) {
        for (auto& products : row.nProd) {
          for (int32_t& product : products) product = any(span);
        }
        row.nOutOffset = any(span / 256);
      }
      const RastHueLut before = *call.lut;
      call.runWell();
      EXPECT_EQ(call.traced, "");
      EXPECT_TRUE(same(*call.lut, before));
      expectColor(call, [&](const Pixel& p) { return model(before, p); });
      for (auto& plane : call.out) plane.assign(plane.size(), Planes::kUntouched);
      call.monoAmongWildPointers();
      call.runWell();
      EXPECT_TRUE(same(*call.lut, before));
      expectMono(call, [&](uint8_t sample) {
        return finished(before.row[0].nProd[0][sample], before.row[0].nOutOffset, reverse == 1);
      });
    }
  }
}

TEST(HueAdjustLut, OneProductOffTheStraightLineIsUsedAsItStands) {
  for (size_t k = 0; k < 3; ++k) {
    for (size_t j = 0; j < 3; ++j) {
      for (const size_t i : {0U, 1U, 2U, 100U, 255U}) {
        Call call(67);
        call.randomize(i);
        call.in[j].assign(67, static_cast<uint8_t>(i));
        call.lut = garbageLut(0);
        call.runWell();
        call.lut->row[k].nProd[j][i] += 256 * (i < 128 ? 9 : -9);
        call.runWell();
        expectColor(call, [&](const Pixel& p) { return model(*call.lut, p); });
      }
    }
  }
}

TEST(HueAdjustLut, StraightLinesMayBeSteeperThanAnyCoefficient) {
  for (const int32_t slope : {32767, 32768, -32768, -32769, 1 << 20}) {
    Call call(300, 4);
    call.randomize(7);
    call.lut = std::make_unique<RastHueLut>();
    call.lut->nBuilt = 1;
    for (auto& row : call.lut->row) {
      for (int32_t i = 0; i < 256; ++i) row.nProd[1][i] = (i - 128) * slope;
      row.nOutOffset = 100;
    }
    call.runWell();
    expectColor(call, [&](const Pixel& p) { return model(*call.lut, p); });
  }
}

TEST(HueAdjustLut, TheOutputOffsetIsAddedIn32Bits) {
  Call call(std::vector<Pixel>{{0, 0, 0}, {1, 1, 1}});
  call.lut = std::make_unique<RastHueLut>();
  call.lut->nBuilt = 1;
  for (auto& row : call.lut->row) {
    row.nProd[2][1] = 256;
    row.nOutOffset = INT32_MAX;
  }
  call.runWell();
  for (size_t k = 0; k < 3; ++k) EXPECT_THAT(call.out[k], ElementsAre(255, 0));
  call.monoAmongWildPointers();
  call.lut->row[0].nProd[0][1] = 256;
  call.in[3] = {0, 1};
  call.runWell();
  EXPECT_THAT(call.out[3], ElementsAre(255, 0));
}

TEST(HueAdjustLut, WithABuiltBufferNothingIsReadOfTheParameters) {
  for (const bool mono : {false, true}) {
    Call call(16);
    call.randomize(1);
    call.lut = garbageLut(0);
    call.runWell();
    call.out[0].assign(16, Planes::kUntouched);
    if (mono) call.mono();
    const auto* param = reinterpret_cast<const RastHueParam*>(kWild);
    ASSERT_EQ(rastHueAdjust(&call.area, &call.set, param, call.lut.get()), RAST_OK);
    EXPECT_EQ(call.out[mono ? 3 : 0], call.in[mono ? 3 : 0]);
  }
}

TEST(HueAdjustLut, ABuiltBufferOutlivesItsParameters) {
  Call call(std::vector<Pixel>(5, {10, 20, 30}));
  call.lut = garbageLut(0);
  call.runWell();
  call.param.nMatrix[0][4] = 50;
  call.runWell();
  EXPECT_THAT(call.out[0], Each(10)) << "never compared with the parameters";
  call.lut->nBuilt = 0;
  call.runWell();
  EXPECT_THAT(call.out[0], Each(60)) << "built again";
}

TEST(HueAdjust, ColorTrace) {
  Call call;
  call.runWell();
  EXPECT_EQ(call.traced, "   Case color. \n   Reverse effect 0.\n   Mirror effect off. \n");
  call.param = identity(2, 1);
  call.runWell();
  EXPECT_EQ(call.traced, "   Case color. \n   Reverse effect 2.\n   Mirror effect on. \n");
  call.param = identity(-1, -32768);
  call.runWell();
  EXPECT_EQ(call.traced, "   Case color. \n   Reverse effect -1.\n   Mirror effect on. \n");
}

TEST(HueAdjust, MonoTrace) {
  MonoCall call;
  call.runWell();
  EXPECT_EQ(call.traced, "   Case monochrome. \n   Reverse effect 0.\nMirror effect OFF.\n");
  call.param = identity(1, 2);
  call.runWell();
  EXPECT_EQ(call.traced, "   Case monochrome. \n   Reverse effect 1.\nMirror effect ON.\n");
  call.param = identity(-32768, -1);
  call.runWell();
  EXPECT_EQ(call.traced, "   Case monochrome. \n   Reverse effect -32768.\nMirror effect ON.\n");
}

TEST(HueAdjust, MirrorTurnsEachLineOfTheRectangle) {
  for (const int16_t mirror : Words{1, 2, -1, 256, -32768}) {
    Call call(std::vector<Pixel>{{1, 10, 100}, {2, 20, 200}, {3, 30, 44}});
    call.param = identity(0, mirror);
    call.runWell();
    EXPECT_THAT(call.out[0], ElementsAre(3, 2, 1));
    EXPECT_THAT(call.out[1], ElementsAre(30, 20, 10));
    EXPECT_THAT(call.out[2], ElementsAre(44, 200, 100));

    MonoCall mono({1, 2, 3});
    mono.param = identity(1, mirror);
    mono.runWell();
    EXPECT_THAT(mono.out[3], ElementsAre(252, 253, 254));
  }
}

TEST(HueAdjust, NothingIsMirroredThroughABuffer) {
  Call call(std::vector<Pixel>{{1, 10, 100}, {2, 20, 200}, {3, 30, 44}});
  call.param = identity(1, 1);
  call.lut = garbageLut(0);
  call.runWell();
  EXPECT_THAT(call.out[0], ElementsAre(1, 2, 3));
  MonoCall mono({1, 2, 3});
  mono.param = identity(1, 1);
  mono.lut = garbageLut(0);
  mono.runWell();
  EXPECT_THAT(mono.out[3], ElementsAre(1, 2, 3));
}

TEST(HueAdjust, MirroredInPlaceTheSecondHalfReadsTheFirst) {
  Call call(std::vector<Pixel>{{1, 10, 100}, {2, 20, 200}, {3, 30, 44}, {4, 40, 55}, {5, 50, 66}});
  call.param = identity(0, 1);
  call.inPlace();
  call.runWell();
  EXPECT_THAT(call.in[0], ElementsAre(1, 2, 3, 2, 1));
  EXPECT_THAT(call.in[1], ElementsAre(10, 20, 30, 20, 10));
  EXPECT_THAT(call.in[2], ElementsAre(100, 200, 44, 200, 100));

  MonoCall mono({1, 2, 3, 4});
  mono.param = identity(1, 1);
  mono.inPlace();
  mono.runWell();
  EXPECT_THAT(mono.in[3], ElementsAre(1, 2, 253, 254));
}

TEST(HueAdjust, PlanesAreValidatedByOnePointerAndComputedByAnother) {
  // All eight: color, and the mono planes are neither read nor written.
  Call all(std::vector<Pixel>(9, {1, 2, 3}));
  all.set.pIn[3] = kWild;
  all.runWell();
  EXPECT_EQ(all.traced.substr(0, 16), "   Case color. \n");
  expectColor(all, [](const Pixel& p) { return p; });

  MonoCall mono({1, 2, 3});
  mono.runWell();
  EXPECT_EQ(mono.traced.substr(0, 21), "   Case monochrome. \n");
  expectMono(mono, [](uint8_t sample) { return sample; });

  // Mono needs an output of its own even where color is computed.
  Call without;
  without.set.pIn[3] = kWild;
  without.set.pOut[3] = nullptr;
  EXPECT_EQ(printedBy([&] { EXPECT_EQ(without.run(), RAST_ERR_INVALID_ARG); }), "");
}

template <class Change>
void expectHueInPlaceAndCrossed(Change change) {
  expectSameInPlaceAndCrossed([&](ColorCall& c) {
    RastHueParam param = identity(1);
    param.nMatrix[0][1] = 100;
    param.nMatrix[2][0] = -50;
    const std::unique_ptr<RastHueLut> lut = change();
    uint32_t result = RAST_OK;
    printedBy([&] { result = rastHueAdjust(&c.area, &c.set, &param, lut.get()); });
    return result;
  });
}

/// Runs over a page of random pixels but for red, with a buffer of straight tables that begin at 1,
/// 255 and 0.
void expectTakenAsItIs(uint8_t red, int32_t slope, int32_t bentBy) {
  Call call(64, 40);
  call.randomize(21);
  std::ranges::fill(call.in[0], red);
  call.lut = garbageLut(1);
  for (auto& row : call.lut->row) {
    for (size_t j = 0; j < 3; ++j) {
      constexpr int32_t first[] = {1, 255, 0};
      for (int32_t i = 0; i < 256; ++i) row.nProd[j][i] = first[j] + i * slope;
      row.nProd[j][77] ^= bentBy;
    }
    row.nOutOffset = -100;
  }
  call.runWell();
  expectColor(call, [&](const Pixel& p) { return model(*call.lut, p); });
}

/// What no matrix could have made: slopes that need more than 16 bits, bends of 1, of which red's takes away 1.
TEST(HueAdjust, ABuiltBufferIsTakenAsItIs) {
  expectTakenAsItIs(1, 65537, 0);
  expectTakenAsItIs(1, 40000, 0);
  expectTakenAsItIs(1, -40000, 0);
  expectTakenAsItIs(77, 256, 1);
}

TEST(HueAdjust, InPlaceAndCrossed) {
  expectHueInPlaceAndCrossed([] { return nullptr; });
  expectHueInPlaceAndCrossed([] { return garbageLut(0, 1); });
}

TEST(HueAdjust, OverlapsFollowThePlainOrder) {
  for (const bool useLut : {false, true}) {
    SCOPED_TRACE(useLut);
    const auto start = [useLut](Call& call) {
      if (useLut) call.lut = garbageLut(0);
      call.param.nMatrix[0][4] = 1;
      call.in[0] = {5, 50, 90, 0};
      call.in[1] = {10, 20, 30, 0};
      call.area.nWidth = 3;
    };
    Call crossed(4);
    start(crossed);
    crossed.set.pOut[0] = crossed.in[1].data();
    crossed.set.pOut[1] = crossed.in[0].data();
    crossed.runWell();
    EXPECT_THAT(crossed.in[0], ElementsAre(10, 20, 30, 0));
    EXPECT_THAT(crossed.in[1], ElementsAre(6, 51, 91, 0));

    Call ahead(4);
    start(ahead);
    ahead.set.pOut[0] = ahead.in[0].data() + 1;
    ahead.runWell();
    EXPECT_THAT(ahead.in[0], ElementsAre(5, 6, 7, 8));

    Call together(4);
    start(together);
    for (const size_t k : {1U, 2U}) together.set.pOut[k] = together.out[0].data();
    together.in[2] = {7, 8, 9, 0};
    together.runWell();
    EXPECT_THAT(together.out[0], ElementsAre(7, 8, 9, 0xAA));

    Call oneApart(4);
    start(oneApart);
    oneApart.set.pOut[1] = oneApart.out[0].data() + 1;
    oneApart.runWell();
    EXPECT_THAT(oneApart.out[0], ElementsAre(6, 51, 91, 30));

    MonoCall mono({5, 0, 0, 0});
    mono.param.nMatrix[0][4] = 1;
    if (useLut) mono.lut = garbageLut(0);
    mono.area.nWidth = 3;
    mono.set.pOut[3] = mono.in[3].data() + 1;
    mono.runWell();
    EXPECT_THAT(mono.in[3], ElementsAre(5, 6, 7, 8));
  }
}

TEST(HueAdjustLut, TheBufferIsReadSampleBySample) {
  // Four samples make zeros over a product, or over the offset, that the fifth one needs.
  const auto start = [](auto& call) {
    call.lut = std::make_unique<RastHueLut>();
    call.lut->nBuilt = 1;
    call.lut->row[0].nProd[0][1] = 50 * 256;
  };
  MonoCall product({0, 0, 0, 0, 1});
  start(product);
  product.set.pOut[3] = reinterpret_cast<uint8_t*>(&product.lut->row[0].nProd[0][1]);
  product.runWell();
  EXPECT_EQ(product.lut->row[0].nProd[0][1], 0);
  EXPECT_EQ(product.lut->row[0].nProd[0][2], 0) << "the fifth";

  MonoCall offset({2, 2, 2, 2, 1});
  start(offset);
  offset.lut->row[0].nOutOffset = 40;
  offset.lut->row[0].nProd[0][2] = -256 * 40;
  offset.set.pOut[3] = reinterpret_cast<uint8_t*>(&offset.lut->row[0].nOutOffset);
  offset.runWell();
  EXPECT_EQ(offset.lut->row[0].nOutOffset, 0);
  uint8_t fifth = 0;
  memcpy(&fifth, &offset.lut->row[1], 1);
  EXPECT_EQ(fifth, 50);

  Call color(std::vector<Pixel>{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {1, 0, 0}});
  start(color);
  color.set.pOut[2] = reinterpret_cast<uint8_t*>(&color.lut->row[0].nProd[0][1]);
  color.runWell();
  EXPECT_THAT(color.out[0], Each(0));
}

TEST(HueAdjust, TheArgumentsAreReadOnce) {
  RastHueParam param = identity(1);
  param.nMatrix[0][1] = 77;
  param.nMatrix[2][4] = -9;
  for (const bool useLut : {false, true}) {
    for (const int16_t mirror : Words{0, 1}) {
      param.nMirror = mirror;
      expectArgumentsReadOnce(
          param, [&](const RastArea* area, const RastPlaneSet* planes, const RastHueParam* p) {
            const auto lut = useLut ? garbageLut(0) : nullptr;
            uint32_t result = RAST_OK;
            printedBy([&] { result = rastHueAdjust(area, planes, p, lut.get()); });
            return result;
          });
    }
  }
}

TEST(HueAdjust, NegativeStartThatFitsIsTaken) {
  MonoCall call({1, 2, 3, 4, 5, 6, 7, 8});
  call.area = {4, -1, 5, 0, 1};
  ++call.set.pIn[3];
  ++call.set.pOut[3];
  call.runWell();
  EXPECT_THAT(call.out[3], ElementsAre(1, 2, 3, 4, 5, 0xAA, 0xAA, 0xAA));
}

TEST(HueAdjust, TheLineFitIsTightAtOne) {
  Call call;
  call.area.nWidth = 15;
  call.area.nStartX = 1;
  call.runWell();
  call.area.nStartX = 2;
  EXPECT_EQ(call.run(), RAST_ERR_INVALID_ARG);
}

TEST(HueAdjust, AnyPositiveSizeWillDo) {
  Call call(16, 4);
  call.set.nSize = 1;
  call.runWell();
  expectColor(call, [](const Pixel& p) { return p; });
}

/// Every check fails silently, with no buffer, an unbuilt one and a built one.
template <class C>
void expectSilentChecks(const Checks<C>& planes) {
  const Checks<C> param = {{"param null", [](C& c) { c.useParam = false; }}};
  const auto checks = lineFitChecks<C>() + planes + sizeChecks<C>() + param + extentChecks<C>();
  for (const int16_t built : Words{-1, 0, 1}) {
    const auto lut = [built] { return built < 0 ? nullptr : garbageLut(built); };
    const auto run = [&](C& c) {
      c.lut = lut();
      return c.run();
    };
    expectChecksInOrder<C>(
        checks, run, [&](const C& c) { return c.untouched() && (!c.lut || same(*c.lut, *lut())); });
  }
}

TEST(HueAdjust, ColorChecksAloneAndBeforeTheLaterOnes) {
  expectSilentChecks<Call>(colorPlaneChecks<Call>());
}

TEST(HueAdjust, MonoChecksAloneAndBeforeTheLaterOnes) {
  expectSilentChecks<MonoCall>({
      {"planes null", [](MonoCall& c) { c.usePlanes = false; }},
      {"pIn[3] null", [](MonoCall& c) { c.set.pIn[3] = nullptr; }},
      {"pOut[3] null", [](MonoCall& c) { c.set.pOut[3] = nullptr; }},
  });
}

}  // namespace
}  // namespace rast::test
