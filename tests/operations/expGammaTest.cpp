#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/call.h"
#include "support/levels.h"

namespace rast::test {
namespace {

const std::string kSizeMessage = "[RAST EXPGAMMA ERROR] size <= 0!!! [../rastExpGamma : 316]\n";

/// The curve as a rational number would give it: the truncated product in 64 bits, then saturation.
int expected(int threshold, int offset, int gain, int x) {
  if (x <= threshold) return 0;
  const int64_t lifted = int64_t{x - threshold} * gain / 256 + offset;
  return static_cast<int>(std::min<int64_t>(lifted, 255));
}

/// A good call on a line of all 256 samples.
struct Call : Planes {
  explicit Call(RastExpGammaParam p = {0, 0, 256}) : Planes(256), param(p) {
    std::iota(in[3].begin(), in[3].end(), uint8_t{0});
    useMono();
  }
  // Copies would leave the pointers of the plane set behind.
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  uint32_t run() {
    return rastExpGamma(useArea ? &area : nullptr, usePlanes ? &set : nullptr,
                        useParam ? &param : nullptr, useLut ? lut.data() : nullptr);
  }

  RastExpGammaParam param;
  std::vector<uint8_t> lut = std::vector<uint8_t>(257, 0);
  bool useArea = true;
  bool usePlanes = true;
  bool useParam = true;
  bool useLut = false;
};

TEST(ExpGamma, WorkedNumbers) {
  Call call({10, 200, 512});
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.out[3][10], 0);
  EXPECT_EQ(call.out[3][11], 202);
  EXPECT_EQ(call.out[3][37], 254);
  EXPECT_EQ(call.out[3][38], 255);
}

TEST(ExpGamma, HighestThresholdGivesZero) {
  Call call({255, 200, 65535});
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(call.out[3], testing::Each(0));
}

TEST(ExpGamma, NoGainGivesTheOffset) {
  Call call({99, 77, 0});
  ASSERT_EQ(call.run(), RAST_OK);
  for (int x = 0; x < 256; ++x) EXPECT_EQ(call.out[3][static_cast<size_t>(x)], x <= 99 ? 0 : 77);
}

TEST(ExpGamma, UnitGainIsTheIdentity) {
  Call call({0, 0, 256});
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.out[3], call.in[3]);
}

TEST(ExpGamma, EveryThresholdAndOffsetWithTellingGains) {
  for (const int gain : {0, 1, 255, 256, 257, 300, 512, 32767, 32768, 65535}) {
    for (int threshold = 0; threshold < 256; ++threshold) {
      for (int offset = 0; offset < 256; offset += threshold % 16 ? 51 : 1) {
        Call direct({static_cast<uint8_t>(threshold), static_cast<uint8_t>(offset),
                     static_cast<uint16_t>(gain)});
        Call table(direct.param);
        table.useLut = true;
        ASSERT_EQ(direct.run(), RAST_OK);
        ASSERT_EQ(table.run(), RAST_OK);
        ASSERT_EQ(direct.out[3], table.out[3]);
        for (int x = 0; x < 256; ++x) {
          ASSERT_EQ(direct.out[3][static_cast<size_t>(x)], expected(threshold, offset, gain, x))
              << threshold << ' ' << offset << ' ' << gain << ' ' << x;
        }
      }
    }
  }
}

TEST(ExpGamma, EveryGainAtEveryLevel) {
  const RastExpGammaParam tellingParams[] = {{0, 0, 0}, {254, 255, 0}, {0, 255, 0}, {127, 128, 0}};
  Call call;
  for (const Rows* rows : levelsAndDefinition()) {
    for (int gain = 0; gain <= 65535; ++gain) {
      call.param = tellingParams[gain % 4];
      call.param.nGain = static_cast<uint16_t>(gain);
      ASSERT_EQ(expGamma(rows, &call.area, &call.set, &call.param, nullptr), RAST_OK);
      for (int x = 0; x < 256; ++x) {
        ASSERT_EQ(call.out[3][static_cast<size_t>(x)],
                  expected(call.param.nThreshold, call.param.nOffset, gain, x))
            << +call.param.nThreshold << ' ' << gain << ' ' << x;
      }
    }
  }
}

TEST(ExpGamma, UnbuiltTableIsFilledAndTheFlagLeftAlone) {
  Call call({10, 200, 512});
  call.useLut = true;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.lut[256], 0);
  for (size_t x = 0; x < 256; ++x)
    EXPECT_EQ(call.lut[x], expected(10, 200, 512, static_cast<int>(x)));
  call.param = {0, 0, 256};
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.out[3], call.in[3]) << "with the flag at zero the table is built again";
}

TEST(ExpGamma, BuiltTableIsTrustedForAnyFlag) {
  for (const int flag : {1, 2, 128, 255}) {
    Call call({10, 200, 512});
    call.useLut = true;
    call.useParam = flag != 2;
    for (size_t x = 0; x < 256; ++x) call.lut[x] = static_cast<uint8_t>(x * 7 + 3);
    call.lut[256] = static_cast<uint8_t>(flag);
    const auto before = call.lut;
    ASSERT_EQ(call.run(), RAST_OK);
    EXPECT_EQ(call.lut, before);
    for (size_t x = 0; x < 256; ++x) EXPECT_EQ(call.out[3][x], before[x]);
  }
}

TEST(ExpGamma, OnlyTheRectangleIsWritten) {
  std::vector<uint8_t> in(20 * 10, 50);
  std::vector<uint8_t> out(20 * 10, 7);
  Call call({10, 3, 256});
  call.area = {20, 4, 9, 2, 5};
  call.set.pIn[3] = in.data();
  call.set.pOut[3] = out.data();
  ASSERT_EQ(call.run(), RAST_OK);
  for (size_t i = 0; i < out.size(); ++i) {
    const bool inside = i / 20 >= 2 && i / 20 < 7 && i % 20 >= 4 && i % 20 < 13;
    EXPECT_EQ(out[i], inside ? 43 : 7) << i;
  }
}

TEST(ExpGamma, NegativeStartThatFitsIsTaken) {
  std::vector<uint8_t> in(8);
  std::iota(in.begin(), in.end(), uint8_t{1});
  std::vector<uint8_t> out(8, 0);
  Call call;
  call.area = {4, -1, 5, 0, 1};
  call.set.pIn[3] = in.data() + 1;
  call.set.pOut[3] = out.data() + 1;
  ASSERT_EQ(call.run(), RAST_OK);
  EXPECT_THAT(out, testing::ElementsAre(1, 2, 3, 4, 5, 0, 0, 0));
}

TEST(ExpGamma, AnyPositiveSizeWillDo) {
  Call call;
  call.set.nSize = 1;
  EXPECT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.out[3], call.in[3]);
}

TEST(ExpGamma, TheGlobalsChangeNothing) {
  void** const globals[] = {&fp_prm, &fpo_c, &fpo_m,   &fpo_y,   &fpo_k,  &fpi_c,
                            &fpi_m,  &fpi_y, &fp_tbl1, &fp_tbl2, &fp_tbl3};
  Call before({10, 200, 512});
  ASSERT_EQ(before.run(), RAST_OK);
  for (void** global : globals) {
    EXPECT_EQ(*global, nullptr);
    *global = &before;
  }
  Call after({10, 200, 512});
  EXPECT_EQ(after.run(), RAST_OK);
  EXPECT_EQ(before.out[3], after.out[3]);
  for (void** global : globals) {
    EXPECT_EQ(*global, &before);
    *global = nullptr;
  }
}

uint8_t elsewhere[1];

TEST(ExpGamma, EachCheckAloneAndBeforeTheLaterOnes) {
  const std::vector<Check<Call>> checks = {
      {"area null", [](Call& c) { c.useArea = false; }},
      {"line fit", [](Call& c) { c.area.nStartX = 1 << 20; }},
      {"planes null", [](Call& c) { c.usePlanes = false; }},
      {"pIn[0] set", [](Call& c) { c.set.pIn[0] = elsewhere; }},
      {"pIn[1] set", [](Call& c) { c.set.pIn[1] = elsewhere; }},
      {"pIn[2] set", [](Call& c) { c.set.pIn[2] = elsewhere; }},
      {"pOut[0] set", [](Call& c) { c.set.pOut[0] = elsewhere; }},
      {"pOut[1] set", [](Call& c) { c.set.pOut[1] = elsewhere; }},
      {"pOut[2] set", [](Call& c) { c.set.pOut[2] = elsewhere; }},
      {"pIn[3] null", [](Call& c) { c.set.pIn[3] = nullptr; }},
      {"pOut[3] null", [](Call& c) { c.set.pOut[3] = nullptr; }},
      {"size 0", [](Call& c) { c.set.nSize = 0; }, kSizeMessage},
      {"size lowest", [](Call& c) { c.set.nSize = INT_MIN; }, kSizeMessage},
      {"pitch 0",
       [](Call& c) {
         c.area = {0, -256, 256, 0, 1};
       }},
      {"pitch negative",
       [](Call& c) {
         c.area = {-8, -264, 256, 0, 1};
       }},
      {"width 0", [](Call& c) { c.area.nWidth = 0; }},
      {"width negative", [](Call& c) { c.area.nWidth = -5; }},
      {"height 0", [](Call& c) { c.area.nHeight = 0; }},
      {"height negative", [](Call& c) { c.area.nHeight = -1; }},
      {"param null", [](Call& c) { c.useParam = false; }},
  };
  for (const bool useLut : {false, true}) {
    expectChecksInOrder<Call>(
        checks,
        [useLut](Call& c) {
          c.useLut = useLut;
          return c.run();
        },
        [](const Call& c) { return c.untouched() && c.lut == std::vector<uint8_t>(257, 0); });
  }
}

TEST(ExpGamma, TheLineFitIsTightAtOne) {
  Call call;
  call.area.nWidth = 255;
  call.area.nStartX = 1;
  EXPECT_EQ(call.run(), RAST_OK);
  call.area.nStartX = 2;
  EXPECT_EQ(call.run(), RAST_ERR_INVALID_ARG);
}

}  // namespace
}  // namespace rast::test
