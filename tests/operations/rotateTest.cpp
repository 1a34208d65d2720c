#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "frame/operations.h"
#include "rast.h"
#include "support/call.h"
#include "support/levels.h"
#include "support/memory.h"
#include "support/nowhere.h"

namespace rast::test {
namespace {

using Bytes = std::vector<uint8_t>;

bool same(const RastRotateCtx& a, const RastRotateCtx& b) { return memcmp(&a, &b, sizeof a) == 0; }

/// A context of garbage that only its plane count declares empty.
std::unique_ptr<RastRotateCtx> freshContext() {
  auto ctx = std::make_unique<RastRotateCtx>();
  memset(ctx.get(), 0x5A, sizeof *ctx);
  ctx->nPlaneNum = 0;
  return ctx;
}

RastRotateBand inputBand(const uint8_t* plane, int32_t lines, int32_t pageWidth,
                         int32_t pageHeight) {
  RastRotateBand band{};
  band.nPlaneNum = 1;
  band.pIn[0] = plane;
  band.nLines = lines;
  band.nOutLineWidth = pageWidth;
  band.nOutHeight = pageHeight;
  return band;
}

const uint8_t kSample[1] = {};

TEST(RotateInput, ModeThreeIsNotMeasured) {
  const RastArea area{1000, 0, 1000, 0, 1000};
  const RastRotateBand band = inputBand(kSample, 1000, 10, 10);
  EXPECT_EQ(rastRotateInputAccumulate(&area, &band, freshContext().get(), 3),
            uint32_t{RAST_COMPLETE});
  for (const uint32_t mode : {0U, 1U, 2U}) {
    const auto ctx = freshContext();
    const auto before = std::make_unique<RastRotateCtx>(*ctx);
    EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), mode),
              uint32_t{RAST_ERR_INVALID_ARG});
    EXPECT_TRUE(same(*ctx, *before));
  }
}

TEST(RotateInput, TheTurnedImageMustFitExactly) {
  for (const uint32_t mode : {0U, 1U, 2U}) {
    for (const int32_t wider : {0, 1}) {
      for (const int32_t higher : {0, 1}) {
        const RastArea area{100, 0, 30 + wider, 0, 20 + higher};
        const bool turned = mode != 1;
        RastRotateBand band = inputBand(kSample, 50, turned ? 25 : 35, turned ? 37 : 27);
        band.nOutStartX = 5;
        band.nOutStartY = 7;
        const uint32_t expected =
            wider || higher ? uint32_t{RAST_ERR_INVALID_ARG} : uint32_t{RAST_COMPLETE};
        EXPECT_EQ(rastRotateInputAccumulate(&area, &band, freshContext().get(), mode), expected);
      }
    }
  }
}

TEST(RotateInput, TheFirstBandFillsTheContext) {
  for (const uint32_t mode : {0U, 1U, 2U, 3U}) {
    const auto ctx = freshContext();
    const int32_t untouchedX = ctx->nSrcX;
    const RastArea area{100, 3, 30, 4, 20};
    RastRotateBand band = inputBand(kSample, 10, 90, 80);
    band.nPlaneNum = 2;
    band.pIn[1] = kSample + 1;
    band.pIn[2] = reinterpret_cast<const uint8_t*>(16);
    band.nOutStartX = 5;
    band.nOutStartY = 6;
    band.nReserved = -77;
    ASSERT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), mode), RAST_OK);
    const bool turned = mode == 0 || mode == 2;
    EXPECT_EQ(ctx->nPlaneNum, 2);
    EXPECT_EQ(ctx->nOutStartX, 5);
    EXPECT_EQ(ctx->nOutStartY, 6);
    EXPECT_EQ(ctx->nOutLineWidth, 90);
    EXPECT_EQ(ctx->nOutHeight, 80);
    EXPECT_EQ(ctx->nRotWidth, turned ? 20 : 30);
    EXPECT_EQ(ctx->nRotHeight, turned ? 30 : 20);
    EXPECT_EQ(ctx->nReserved, -77);
    EXPECT_EQ(memcmp(&ctx->stArea, &area, sizeof area), 0);
    EXPECT_EQ(ctx->nRotate, static_cast<int32_t>(mode));
    EXPECT_EQ(ctx->nSrcX, mode == 0 ? 32 : mode == 2 ? 3 : untouchedX);
    EXPECT_EQ(ctx->nOutPos, 0);
    EXPECT_EQ(ctx->nBandNum, 1);
    EXPECT_EQ(ctx->nTotalLines, 10);
    EXPECT_EQ(ctx->stBand[0].pPlane[0], kSample);
    EXPECT_EQ(ctx->stBand[0].pPlane[1], kSample + 1);
    EXPECT_EQ(ctx->stBand[0].pPlane[2], freshContext()->stBand[0].pPlane[2])
        << "only the context's planes are written";
    EXPECT_EQ(ctx->stBand[0].nLines, 10);
  }
}

TEST(RotateInput, TheFirstLineIsLocated) {
  struct Case {
    int32_t startY;
    int32_t row;
    int32_t offset;
  };
  for (const Case& c : {Case{0, 0, 0},
                        {29, 0, 29},
                        {30, 0, 30},
                        {31, 1, 1},
                        {60, 1, 30},
                        {61, 2, 31},
                        {90, 2, 60},
                        {91, 3, 61}}) {
    const auto ctx = freshContext();
    const RastArea area{100, 0, 10, c.startY, 5};
    const RastRotateBand band = inputBand(kSample, 30, 100, 100);
    for (int i = 0; i < 3; ++i) rastRotateInputAccumulate(&area, &band, ctx.get(), 0);
    EXPECT_EQ(ctx->pCurBand - ctx->stBand, c.row) << c.startY;
    EXPECT_EQ(ctx->nCurLine, c.offset) << c.startY;
  }
}

TEST(RotateInput, CompletesWhenTheBandsReachTheEnd) {
  const auto ctx = freshContext();
  const RastArea area{100, 0, 10, 20, 40};
  const RastRotateBand band = inputBand(kSample, 30, 100, 100);
  EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 2), RAST_OK);
  EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 2), uint32_t{RAST_COMPLETE});
  EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 2), uint32_t{RAST_COMPLETE});
  EXPECT_EQ(ctx->nBandNum, 3);
}

TEST(RotateInput, LaterCallsKeepTheFirstValues) {
  const auto ctx = freshContext();
  const auto other = freshContext();
  const RastArea area{100, 0, 10, 0, 80};
  const RastArea different{50, 9, 5000, 3, 5000};
  const RastRotateBand band = inputBand(kSample, 30, 100, 100);
  ASSERT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 0), RAST_OK);
  ASSERT_EQ(rastRotateInputAccumulate(&area, &band, other.get(), 0), RAST_OK);
  EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 0), RAST_OK);
  EXPECT_EQ(rastRotateInputAccumulate(&different, &band, other.get(), 3), RAST_OK);
  other->pCurBand = ctx->pCurBand;  // each points into its own table
  EXPECT_TRUE(same(*ctx, *other));
  EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 7), uint32_t{RAST_ERR_INVALID_ARG});
}

struct InputCall {
  RastArea area{100, 0, 10, 0, 50};
  RastRotateBand band = inputBand(kSample, 30, 100, 100);
  std::unique_ptr<RastRotateCtx> ctx = freshContext();
  uint32_t mode = 0;
  bool useArea = true;
  bool useBand = true;
  bool useCtx = true;

  uint32_t run() {
    before = std::make_unique<RastRotateCtx>(*ctx);
    return rastRotateInputAccumulate(useArea ? &area : nullptr, useBand ? &band : nullptr,
                                     useCtx ? ctx.get() : nullptr, mode);
  }
  std::unique_ptr<RastRotateCtx> before;
};

TEST(RotateInput, EachCheckChangesNothing) {
  expectChecksInOrder<InputCall>(
      {
          {"area null", [](InputCall& c) { c.useArea = false; }},
          {"band null", [](InputCall& c) { c.useBand = false; }},
          {"context null", [](InputCall& c) { c.useCtx = false; }},
          {"mode 4", [](InputCall& c) { c.mode = 4; }},
          {"pIn[0] null", [](InputCall& c) { c.band.pIn[0] = nullptr; }},
          {"no planes", [](InputCall& c) { c.band.nPlaneNum = 0; }},
          {"negative planes", [](InputCall& c) { c.band.nPlaneNum = -1; }},
          {"five planes", [](InputCall& c) { c.band.nPlaneNum = 5; }},
          {"context of five planes", [](InputCall& c) { c.ctx->nPlaneNum = 5; }},
          {"context of negative planes", [](InputCall& c) { c.ctx->nPlaneNum = -1; }},
          {"full table", [](InputCall& c) { c.ctx->nPlaneNum = 1, c.ctx->nBandNum = 128; }},
          {"negative table", [](InputCall& c) { c.ctx->nPlaneNum = 1, c.ctx->nBandNum = -1; }},
          {"too wide", [](InputCall& c) { c.area.nWidth = 101; }},
      },
      [](InputCall& c) { return c.run(); },
      [](const InputCall& c) { return same(*c.ctx, *c.before); });
}

TEST(RotateInput, TakesAll128BandsAndNoMore) {
  const auto ctx = freshContext();
  const RastArea area{100, 0, 10, 200, 10};
  const RastRotateBand band = inputBand(kSample, 1, 100, 100);
  for (int i = 0; i < 128; ++i)
    ASSERT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 0), RAST_OK);
  EXPECT_EQ(ctx->pCurBand - ctx->stBand, 128);
  const auto before = std::make_unique<RastRotateCtx>(*ctx);
  EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 0), uint32_t{RAST_ERR_INVALID_ARG});
  EXPECT_TRUE(same(*ctx, *before));
  Bytes out(1000, 0xAA);
  RastRotateBand to{};
  to.pOut[0] = out.data();
  to.nLines = 5;
  EXPECT_EQ(rastRotateSockOutput(&to, ctx.get()), RAST_OK)
      << "the row past the table is not followed";
  EXPECT_EQ(out, Bytes(1000, 0xAA));
}

TEST(RotateInput, AContextOfNoBandsYetGoesOn) {
  InputCall call;
  call.ctx->nPlaneNum = 1;
  call.ctx->nBandNum = 0;
  call.ctx->nTotalLines = 0;
  call.ctx->stArea = call.area;
  EXPECT_EQ(call.run(), RAST_OK);
  EXPECT_EQ(call.ctx->nBandNum, 1);
}

/// A page of one plane, turned through bands of the given heights.
struct Turned {
  std::vector<Bytes> page;  // the output page's lines
  std::vector<uint32_t> results;
};

Turned turn(uint32_t mode, const RastArea& area, const Bytes& source,
            const std::vector<int32_t>& inBands, int32_t outX, int32_t outY, int32_t pageWidth,
            int32_t pageHeight, const std::vector<int32_t>& outBands) {
  const auto ctx = freshContext();
  RastRotateBand band = inputBand(source.data(), 0, pageWidth, pageHeight);
  band.nOutStartX = outX;
  band.nOutStartY = outY;
  for (const int32_t lines : inBands) {
    band.nLines = lines;
    EXPECT_FALSE(rastRotateInputAccumulate(&area, &band, ctx.get(), mode) & 0x8000);
    band.pIn[0] += lines * area.nLineWidth;
  }
  Turned turned;
  for (const int32_t lines : outBands) {
    Bytes plane(static_cast<size_t>(lines * pageWidth), 0xAA);
    RastRotateBand to{};
    to.pOut[0] = plane.data();
    to.nLines = lines;
    to.nOutLineWidth = pageWidth;
    turned.results.push_back(rastRotateSockOutput(&to, ctx.get()));
    for (int32_t i = 0; i < lines; ++i) {
      turned.page.emplace_back(plane.begin() + i * pageWidth, plane.begin() + (i + 1) * pageWidth);
    }
  }
  return turned;
}

const Bytes kThreeByFour = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

TEST(RotateOutput, ClockwiseInTwoBands) {
  const Turned turned = turn(2, {4, 0, 4, 0, 3}, kThreeByFour, {3}, 0, 0, 3, 4, {2, 2});
  EXPECT_EQ(turned.page, (std::vector<Bytes>{{9, 5, 1}, {10, 6, 2}, {11, 7, 3}, {12, 8, 4}}));
  EXPECT_EQ(turned.results, (std::vector<uint32_t>{RAST_OK, RAST_COMPLETE}));
}

TEST(RotateOutput, CounterClockwiseNeverAnswersComplete) {
  const Turned turned = turn(0, {4, 0, 4, 0, 3}, kThreeByFour, {1, 2}, 0, 0, 3, 4, {2, 2});
  EXPECT_EQ(turned.page, (std::vector<Bytes>{{4, 8, 12}, {3, 7, 11}, {2, 6, 10}, {1, 5, 9}}));
  EXPECT_EQ(turned.results, (std::vector<uint32_t>{RAST_OK, RAST_OK}));
}

TEST(RotateOutput, BandsAboveAcrossAndBelowTheImage) {
  // The image of 3 x 4 at (1, 3) of a page of 5 x 10.
  const Turned turned =
      turn(2, {4, 0, 4, 0, 3}, kThreeByFour, {3}, 1, 3, 5, 10, {1, 3, 2, 2, 1, 1});
  const Bytes none(5, 0xAA);
  const auto line = [](uint8_t a, uint8_t b, uint8_t c) { return Bytes{0xAA, a, b, c, 0xAA}; };
  EXPECT_EQ(turned.page, (std::vector<Bytes>{none, none, none, line(9, 5, 1), line(10, 6, 2),
                                             line(11, 7, 3), line(12, 8, 4), none, none, none}));
  EXPECT_EQ(turned.results,
            (std::vector<uint32_t>{RAST_OK, RAST_OK, RAST_OK, RAST_COMPLETE, RAST_OK, RAST_OK}));
}

TEST(RotateOutput, ABandThatEndsAtTheTopIsRefusedWithoutMovingOn) {
  // Refused at line 0; then one line above, and three that reach into the image.
  const Turned turned = turn(0, {4, 0, 4, 0, 3}, kThreeByFour, {3}, 0, 3, 3, 7, {3, 1, 3, 4});
  EXPECT_EQ(turned.results,
            (std::vector<uint32_t>{RAST_ERR_INVALID_ARG, RAST_OK, RAST_OK, RAST_OK}));
}

TEST(RotateOutput, ABandThatStartsAtTheEndAnswersAgain) {
  const Turned turned = turn(2, {4, 0, 4, 0, 3}, kThreeByFour, {3}, 0, 0, 3, 9, {4, 2, 2});
  EXPECT_EQ(turned.results, (std::vector<uint32_t>{RAST_COMPLETE, RAST_COMPLETE, RAST_OK}));
  for (size_t i = 4; i < 8; ++i) EXPECT_EQ(turned.page[i], Bytes(3, 0xAA));
}

TEST(RotateOutput, ABandFromAboveWritesOnPastTheEnd) {
  // The source columns right of the rectangle show below the image.
  const Turned turned = turn(2, {4, 0, 2, 0, 3}, kThreeByFour, {3}, 0, 1, 3, 5, {5});
  EXPECT_EQ(turned.page,
            (std::vector<Bytes>{Bytes(3, 0xAA), {9, 5, 1}, {10, 6, 2}, {11, 7, 3}, {12, 8, 4}}));
}

TEST(RotateOutput, LinesThatHaveNotComeAreLeftOut) {
  for (const uint32_t mode : {0U, 2U}) {
    RastRotateCtx ctx{};
    const RastArea area{4, 0, 4, 0, 3};
    const RastRotateBand band = inputBand(kThreeByFour.data(), 2, 3, 4);
    ASSERT_EQ(rastRotateInputAccumulate(&area, &band, &ctx, mode), RAST_OK);
    Bytes out(12, 0xAA);
    RastRotateBand to{};
    to.pOut[0] = out.data();
    to.nLines = 4;
    to.nOutLineWidth = 3;
    rastRotateSockOutput(&to, &ctx);
    EXPECT_EQ(out, mode == 0 ? (Bytes{4, 8, 0xAA, 3, 7, 0xAA, 2, 6, 0xAA, 1, 5, 0xAA})
                             : (Bytes{0xAA, 5, 1, 0xAA, 6, 2, 0xAA, 7, 3, 0xAA, 8, 4}));
  }
}

TEST(RotateOutput, PlanesOfWhichNothingIsTouchedNeedNotBeThere) {
  const Bytes source(40 * 30);
  const auto run = [&](const Rows* rows, uint32_t mode, int32_t lines, int32_t width,
                       const uint8_t* in, uint8_t* out, uint8_t* other) {
    const auto ctx = freshContext();
    const RastArea area{40, 3, 30, 0, 30};
    RastRotateBand band = inputBand(source.data(), 30, 100, 100);
    band.nPlaneNum = 2;
    band.pIn[1] = source.data();
    band.nOutStartX = 5;
    band.nOutStartY = 2;
    EXPECT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), mode), uint32_t{RAST_COMPLETE});
    ctx->nRotWidth = width;
    ctx->stBand[0].pPlane[0] = in;
    ctx->nOutPos = lines == 0 ? 2 : 0;
    RastRotateBand to{};
    to.nLines = lines;
    to.nOutLineWidth = 100;
    to.pOut[0] = out;
    to.pOut[1] = other;
    EXPECT_FALSE(rotateSockOutput(rows, &to, ctx.get()) & 0x8000);
  };
  for (const Rows* rows : levelsAndDefinition()) {
    for (uint8_t* out : kSetButNowhere) {
      for (uint8_t* other : kNowhere) {
        for (const uint32_t mode : {0U, 2U}) {
          run(rows, mode, 0, 30, source.data(), out, other);
          for (const int32_t none : {0, -1, INT32_MIN})
            run(rows, mode, 32, none, source.data(), out, other);
          run(rows, mode, 32, 30, nullptr, out, other);
        }
      }
    }
  }
}

TEST(RotateOutput, ModesThatAreNotTurns) {
  const Turned same = turn(1, {4, 0, 4, 0, 3}, kThreeByFour, {3}, 0, 0, 9, 9, {4});
  EXPECT_EQ(same.results, std::vector<uint32_t>{RAST_ERR_NOT_SUPPORTED});
  const Turned reserved = turn(3, {4, 0, 4, 0, 3}, kThreeByFour, {3}, 0, 0, 9, 9, {4});
  EXPECT_EQ(reserved.results, std::vector<uint32_t>{RAST_ERR_INVALID_ARG});
}

TEST(RotateOutput, TheStartOfACursorWrapsAt32Bits) {
  // Line 4 at a pitch of 2^30 is the plane's first sample again.
  const auto ctx = freshContext();
  const RastArea area{1 << 30, 1, 1, 4, 1};
  const RastRotateBand band = inputBand(kThreeByFour.data(), 5, 10, 10);
  ASSERT_EQ(rastRotateInputAccumulate(&area, &band, ctx.get(), 0), uint32_t{RAST_COMPLETE});
  Bytes out(1);
  RastRotateBand to{};
  to.pOut[0] = out.data();
  to.nLines = 1;
  ASSERT_EQ(rastRotateSockOutput(&to, ctx.get()), RAST_OK);
  EXPECT_EQ(out[0], kThreeByFour[1]);
}

struct OutputCall {
  Bytes out = Bytes(64, 0xAA);
  std::unique_ptr<RastRotateCtx> ctx = freshContext();
  RastRotateBand band{};
  bool useBand = true;
  bool useCtx = true;
  std::unique_ptr<RastRotateCtx> before;

  OutputCall() {
    const RastArea area{4, 0, 4, 0, 3};
    const RastRotateBand first = inputBand(kThreeByFour.data(), 3, 8, 8);
    rastRotateInputAccumulate(&area, &first, ctx.get(), 2);
    band.pOut[0] = out.data();
    band.nLines = 4;
    band.nOutLineWidth = 8;
  }
  uint32_t run() {
    before = std::make_unique<RastRotateCtx>(*ctx);
    return rastRotateSockOutput(useBand ? &band : nullptr, useCtx ? ctx.get() : nullptr);
  }
};

TEST(RotateOutput, EachCheckChangesNothing) {
  expectChecksInOrder<OutputCall>(
      {
          {"band null", [](OutputCall& c) { c.useBand = false; }},
          {"context null", [](OutputCall& c) { c.useCtx = false; }},
          {"output null", [](OutputCall& c) { c.band.pOut[0] = nullptr; }},
          {"not begun", [](OutputCall& c) { c.ctx->nPlaneNum = 0; }},
          {"five planes", [](OutputCall& c) { c.ctx->nPlaneNum = 5; }},
          {"129 bands", [](OutputCall& c) { c.ctx->nBandNum = 129; }},
          {"negative bands", [](OutputCall& c) { c.ctx->nBandNum = -1; }},
          {"mode 3", [](OutputCall& c) { c.ctx->nRotate = 3; }},
          {"mode -1", [](OutputCall& c) { c.ctx->nRotate = -1; }},
          {"ends at the top", [](OutputCall& c) { c.ctx->nOutStartY = 4; }},
      },
      [](OutputCall& c) { return c.run(); },
      [](const OutputCall& c) { return same(*c.ctx, *c.before) && c.out == Bytes(64, 0xAA); });
}

TEST(RotateOutput, TheNumberOfBandsDoesNotMatter) {
  OutputCall call;
  call.ctx->nBandNum = 0;
  EXPECT_EQ(call.run(), uint32_t{RAST_COMPLETE});
  EXPECT_EQ(Bytes(call.out.begin(), call.out.begin() + 3), (Bytes{9, 5, 1}));
}

TEST(RotateOutput, ABandBelowTheEndChangesNothing) {
  OutputCall call;
  EXPECT_EQ(call.run(), uint32_t{RAST_COMPLETE});
  EXPECT_EQ(call.run(), uint32_t{RAST_COMPLETE});
  EXPECT_EQ(call.run(), RAST_OK);
  EXPECT_TRUE(same(*call.ctx, *call.before));
}

class RotateLevels : public testing::TestWithParam<Level> {};

INSTANTIATE_TEST_SUITE_P(, RotateLevels, testing::ValuesIn(levels()),
                         [](const auto& info) { return info.param.name; });

/// A random page of random bands through the definition and through a level: all of the output
/// memory, the results and the context are compared after every output band.
TEST_P(RotateLevels, RandomPages) {
  Random random(40);
  Memory source(4, 65536);
  Memory expected(4, 65536);
  Memory result(4, 65536);
  source.fill(random);
  for (int round = 0; round < 600; ++round) {
    expected.fill(random);
    result.copyFrom(expected);
    const auto mode = static_cast<uint32_t>(random.oneIn(2) ? RAST_ROTATE_CCW90 : RAST_ROTATE_CW90);
    RastArea area;
    area.nWidth = static_cast<int32_t>(random.pick(1, 300));
    area.nStartX = static_cast<int32_t>(random.pick(0, 10));
    area.nLineWidth = area.nStartX + area.nWidth + static_cast<int32_t>(random.pick(0, 40));
    area.nHeight = static_cast<int32_t>(random.pick(1, 150));
    const auto planes = static_cast<int32_t>(random.pick(1, 4));

    // Bands of unequal height, later ones sometimes empty; the rectangle starts within the first
    // one, where its first line is found as it is meant.
    std::vector<int32_t> bands = {static_cast<int32_t>(random.pick(1, 60))};
    int32_t lines = bands[0];
    const int32_t tallest = random.oneIn(2) ? 9 : 100;
    while (lines < 260) {
      bands.push_back(static_cast<int32_t>(random.pick(random.oneIn(6) ? 0 : 1, tallest)));
      lines += bands.back();
    }
    area.nStartY = static_cast<int32_t>(random.pick(0, bands[0] - 1));

    RastRotateBand band{};
    band.nPlaneNum = planes;
    band.nOutStartX = static_cast<int32_t>(random.pick(0, 20));
    band.nOutStartY = static_cast<int32_t>(random.pick(0, 9));
    // Mostly a pitch as wide as the image, sometimes one that makes output lines overlap later on.
    band.nOutLineWidth = band.nOutStartX + area.nHeight + static_cast<int32_t>(random.pick(0, 9));
    band.nOutHeight = band.nOutStartY + area.nWidth;
    const auto left = std::make_unique<RastRotateCtx>();
    const auto right = std::make_unique<RastRotateCtx>();
    for (const int32_t count : bands) {
      // Each plane's lines end at a protected page or lie anywhere. An empty band's line 0 is read.
      for (int32_t p = 0; p < planes; ++p) {
        const ptrdiff_t size = std::max<ptrdiff_t>(count, 1) * area.nLineWidth;
        const auto last = static_cast<ptrdiff_t>(source.slotSize()) - size;
        band.pIn[p] =
            source.slot(static_cast<size_t>(p)) + (random.oneIn(2) ? last : random.pick(0, last));
      }
      band.nLines = count;
      rastRotateInputAccumulate(&area, &band, left.get(), mode);
      if (rastRotateInputAccumulate(&area, &band, right.get(), mode) == RAST_COMPLETE) break;
    }
    if (random.oneIn(5)) {
      const auto narrow = static_cast<int32_t>(random.pick(1, area.nHeight));
      left->nOutLineWidth = right->nOutLineWidth = narrow;
    }
    // Lines of the planes that take turns, as in a line-interleaved page, or meet.
    const bool turns = random.oneIn(5);
    if (turns) left->nOutLineWidth = right->nOutLineWidth = planes * band.nOutLineWidth;

    for (int32_t page = 0; page < band.nOutHeight + 5;) {
      RastRotateBand to{};
      to.nLines = static_cast<int32_t>(random.pick(0, turns || random.oneIn(2) ? 70 : 290));
      // A band from above that passes the image's end would read beyond the rectangle.
      if (left->nOutPos < band.nOutStartY)
        to.nLines = std::min(to.nLines, band.nOutHeight - left->nOutPos);
      to.nOutLineWidth = left->nOutLineWidth;
      const ptrdiff_t apart =
          random.oneIn(2) ? band.nOutLineWidth : random.pick(0, 2 * left->nOutLineWidth);
      const ptrdiff_t close = turns ? apart : random.oneIn(8) ? random.pick(0, 40) : 0;
      const bool lastFirst = random.oneIn(2);
      RastRotateBand from = to;
      for (int32_t p = 0; p < planes; ++p) {
        const auto slot = static_cast<size_t>(close ? 0 : p);
        const ptrdiff_t at = close ? (lastFirst ? planes - 1 - p : p) * close : 30;
        from.pOut[p] = expected.slot(slot) + at;
        to.pOut[p] = result.slot(slot) + at;
      }
      ASSERT_EQ(rotateSockOutput(nullptr, &from, left.get()),
                rotateSockOutput(GetParam().rows, &to, right.get()));
      right->pCurBand =
          left->pCurBand + (right->pCurBand - right->stBand) - (left->pCurBand - left->stBand);
      ASSERT_TRUE(same(*left, *right));
      right->pCurBand = right->stBand + (left->pCurBand - left->stBand);
      ASSERT_TRUE(expected == result) << "round " << round;
      page += to.nLines + 1;
    }
  }
}

/// A page and its turned image in one memory, close enough to overlap, with pitches of either sign
/// and planes in any order, sometimes with a band that has no planes.
TEST_P(RotateLevels, OverTheSourceAndBackwards) {
  Random random(41);
  Memory expected(1, 65536);
  Memory result(1, 65536);
  for (int round = 0; round < 3000; ++round) {
    if (round % 50 == 0) expected.fill(random);
    result.copyFrom(expected);
    const auto mode = static_cast<uint32_t>(random.oneIn(2) ? RAST_ROTATE_CCW90 : RAST_ROTATE_CW90);
    const auto width = static_cast<int32_t>(random.pick(1, 60));
    const auto height = static_cast<int32_t>(random.pick(1, 60));
    const auto pitch = [&](int32_t least) {
      const auto wide = least + static_cast<int32_t>(random.pick(0, 8));
      return random.oneIn(4) ? -wide : wide;
    };
    const RastArea area{pitch(width), 0, width, 0, height};
    const int32_t outPitch = pitch(height);
    const auto planes = static_cast<int32_t>(random.pick(1, 3));
    const auto firstLines = static_cast<int32_t>(random.pick(1, height));
    const ptrdiff_t cut = random.pick(0, 15);  // the band without planes, if there is such a one
    const ptrdiff_t reach = random.oneIn(3) ? 100 : 12000;
    ptrdiff_t in[2][3];
    ptrdiff_t out[3];
    for (size_t p = 0; p < 3; ++p) {
      for (auto& band : in) band[p] = 32768 + random.pick(-reach, reach);
      out[p] = 32768 + random.pick(-reach, reach);
    }
    const auto run = [&](const Rows* rows, const Memory& memory) {
      const auto ctx = std::make_unique<RastRotateCtx>();
      RastRotateBand band{};
      band.nPlaneNum = planes;
      band.nOutLineWidth = height;
      band.nOutHeight = width;
      for (const auto& plane : in) {
        band.nLines = ctx->nBandNum == 0 ? firstLines : height;
        for (size_t p = 0; p < 3; ++p) band.pIn[p] = memory.slot(0) + plane[p];
        rastRotateInputAccumulate(&area, &band, ctx.get(), mode);
      }
      if (cut < 2) ctx->stBand[cut].pPlane[0] = nullptr;
      ctx->nOutLineWidth = outPitch;
      band.nOutLineWidth = outPitch;
      band.nLines = width;
      for (size_t p = 0; p < 3; ++p) band.pOut[p] = memory.slot(0) + out[p];
      return rotateSockOutput(rows, &band, ctx.get());
    };
    ASSERT_EQ(run(nullptr, expected), run(GetParam().rows, result));
    ASSERT_TRUE(expected == result) << "round " << round;
  }
}

/// Two planes that are written to one memory: their lines lie apart, take turns or overlap.
TEST_P(RotateLevels, TwoPlanesAnyLinesAndColumnsApart) {
  Random random(42);
  Memory source(1, 8192);
  Memory expected(1, 16384);
  Memory result(1, 16384);
  source.fill(random);
  for (int round = 0; round < 2000; ++round) {
    if (round % 50 == 0) {
      expected.fill(random);
      result.copyFrom(expected);
    }
    const auto mode = static_cast<uint32_t>(random.oneIn(2) ? RAST_ROTATE_CCW90 : RAST_ROTATE_CW90);
    const auto width = static_cast<int32_t>(random.pick(12, 70));
    const auto height = static_cast<int32_t>(random.pick(12, 40));
    const RastArea area{width, 0, width, 0, height};
    const auto pitch = static_cast<int32_t>(height * random.pick(1, 3) + random.pick(0, 9));
    const ptrdiff_t distance = random.pick(0, 40) * pitch + random.pick(0, pitch);
    const bool lastFirst = random.oneIn(2);
    const auto run = [&](const Rows* rows, const Memory& memory) {
      RastRotateCtx ctx{};
      RastRotateBand band = inputBand(source.slot(0), height, pitch, width);
      band.nPlaneNum = 2;
      band.pIn[1] = source.slot(0) + 4096;
      rastRotateInputAccumulate(&area, &band, &ctx, mode);
      band.nLines = width;
      for (const bool second : {false, true})
        band.pOut[second] = memory.slot(0) + (second == lastFirst ? 0 : distance);
      return rotateSockOutput(rows, &band, &ctx);
    };
    ASSERT_EQ(run(nullptr, expected), run(GetParam().rows, result));
    ASSERT_TRUE(expected == result) << "round " << round;
  }
}

/// The bands of the source lie about in the memory that is written, some of them right beside the
/// output; sometimes the last ones never come. Output lines follow one another downwards or upwards.
TEST_P(RotateLevels, OutputsOverAndBesideTheSource) {
  Random random(41);
  Memory expected(3, 32768);
  Memory result(3, 32768);
  for (int round = 0; round < 3000; ++round) {
    if (round % 50 == 0) {
      expected.fill(random);
      result.copyFrom(expected);
    }
    const auto mode = static_cast<uint32_t>(random.oneIn(2) ? RAST_ROTATE_CCW90 : RAST_ROTATE_CW90);
    const auto planes = static_cast<int32_t>(random.pick(1, 3));
    const auto width = static_cast<int32_t>(random.pick(12, 70));
    const auto height = static_cast<int32_t>(random.pick(12, 90));
    const auto startX = static_cast<int32_t>(random.pick(0, 5));
    const RastArea area{startX + width + static_cast<int32_t>(random.pick(0, 9)), startX, width, 0,
                        height};
    const int32_t pitch = height + static_cast<int32_t>(random.pick(0, 9));
    constexpr ptrdiff_t outAt = 13000;
    const ptrdiff_t outSize = (width - 1) * pitch + height;

    RastRotateBand band{};
    band.nPlaneNum = planes;
    band.nOutLineWidth = pitch;
    band.nOutHeight = width;
    RastRotateCtx left{};
    RastRotateCtx right{};
    for (int32_t lines = 0; lines < height && !random.oneIn(25); lines += band.nLines) {
      band.nLines = static_cast<int32_t>(random.pick(1, 60));
      const ptrdiff_t size =
          (std::min(band.nLines, height - lines) - 1) * area.nLineWidth + startX + width;
      RastRotateBand other = band;
      for (int32_t p = 0; p < planes; ++p) {
        const ptrdiff_t distance = random.oneIn(2) ? random.pick(-3, 3) : random.pick(-300, 300);
        ptrdiff_t at = random.oneIn(2) ? random.pick(0, 5000) : random.pick(21000, 26000);
        if (random.oneIn(4)) at = outAt - size + distance;
        if (random.oneIn(4)) at = outAt + outSize - startX + distance;
        const auto slot = static_cast<size_t>(random.oneIn(3) ? random.pick(0, 2) : p);
        band.pIn[p] = expected.slot(slot) + at;
        other.pIn[p] = result.slot(slot) + at;
      }
      ASSERT_EQ(rastRotateInputAccumulate(&area, &band, &left, mode),
                rastRotateInputAccumulate(&area, &other, &right, mode));
    }
    if (left.nBandNum == 0) continue;

    const int32_t step = random.oneIn(4) ? -pitch : pitch;
    left.nOutLineWidth = right.nOutLineWidth = step;
    ptrdiff_t at = step < 0 ? outAt + (width - 1) * pitch : outAt;
    const auto upper = static_cast<int32_t>(random.oneIn(2) ? width : random.pick(1, width));
    for (const int32_t lines : {upper, width - upper}) {
      RastRotateBand from{};
      from.nLines = lines;
      RastRotateBand to = from;
      for (int32_t p = 0; p < planes; ++p) {
        from.pOut[p] = expected.slot(static_cast<size_t>(p)) + at;
        to.pOut[p] = result.slot(static_cast<size_t>(p)) + at;
      }
      ASSERT_EQ(rotateSockOutput(nullptr, &from, &left),
                rotateSockOutput(GetParam().rows, &to, &right));
      at += lines * step;
    }
    ASSERT_TRUE(expected == result) << "round " << round;
  }
}

/// One band of a source reaches into the output by a few samples, the others lie beside it. Some
/// have no lines or fewer, and lines of a band may overlap.
TEST_P(RotateLevels, OneBandOverTheOutput) {
  Random random(43);
  Memory expected(1, 32768);
  Memory result(1, 32768);
  for (int round = 0; round < 4000; ++round) {
    if (round % 50 == 0) {
      expected.fill(random);
      result.copyFrom(expected);
    }
    const auto mode = static_cast<uint32_t>(random.oneIn(2) ? RAST_ROTATE_CCW90 : RAST_ROTATE_CW90);
    const auto width = static_cast<int32_t>(random.pick(16, 40));
    const auto height = static_cast<int32_t>(random.pick(16, 60));
    const auto pitch = static_cast<int32_t>(height + random.pick(0, 3));
    const ptrdiff_t outSize = (width - 1) * pitch + height;
    constexpr ptrdiff_t outAt = 12000;

    struct Band {
      int32_t lines;
      int32_t read;
    };
    std::vector<Band> bands;
    const int32_t tallest = random.oneIn(2) ? 2 : 60;
    for (int32_t lines = 0, read = 0; read < height;) {
      const bool empty = read > 0 && random.oneIn(4);
      const auto count = static_cast<int32_t>(empty ? random.pick(-4, 0) : random.pick(1, tallest));
      // An empty band's line 0 is read all the same, and the next band gives one less.
      bands.push_back({count, std::min(std::max(lines + count - read, 1), height - read)});
      lines += count;
      read += bands.back().read;
    }
    const auto over = static_cast<size_t>(random.pick(0, static_cast<ptrdiff_t>(bands.size()) - 1));
    const auto step = static_cast<int32_t>(random.oneIn(2) ? width : random.pick(1, 3));
    const bool backwards = random.oneIn(4);
    const bool above = random.oneIn(2);
    const RastArea area{backwards ? -step : step, 0, width, 0, height};
    const ptrdiff_t reach = random.pick(-1, 6);

    const auto run = [&](const Rows* rows, const Memory& memory) {
      RastRotateCtx ctx{};
      RastRotateBand band = inputBand(nullptr, 0, height, width);
      for (size_t i = 0; i < bands.size(); ++i) {
        const ptrdiff_t behind = (bands[i].read - 1) * step;
        const ptrdiff_t within = i == over ? reach : -60;
        const ptrdiff_t at = above ? outAt - behind - width + within : outAt + outSize - within;
        band.pIn[0] = memory.slot(0) + at + (backwards ? behind : 0);
        band.nLines = bands[i].lines;
        rastRotateInputAccumulate(&area, &band, &ctx, mode);
      }
      ctx.nOutLineWidth = pitch;
      band.pOut[0] = memory.slot(0) + outAt;
      band.nLines = width;
      return rotateSockOutput(rows, &band, &ctx);
    };
    ASSERT_EQ(run(nullptr, expected), run(GetParam().rows, result));
    ASSERT_TRUE(expected == result) << "round " << round;
  }
}

}  // namespace
}  // namespace rast::test
