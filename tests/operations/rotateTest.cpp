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
  Bytes out(1000);
  RastRotateBand to{};
  to.pOut[0] = out.data();
  to.nLines = 5;
  EXPECT_EQ(rastRotateSockOutput(&to, ctx.get()), RAST_OK)
      << "the row past the table is not followed";
  EXPECT_EQ(out, Bytes(1000));
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
    // Lines of the planes that take turns, as in a line-interleaved page.
    const bool turns = random.oneIn(5);
    if (turns) left->nOutLineWidth = right->nOutLineWidth = planes * band.nOutLineWidth;

    for (int32_t page = 0; page < band.nOutHeight + 5;) {
      RastRotateBand to{};
      to.nLines = static_cast<int32_t>(random.pick(0, turns || random.oneIn(2) ? 70 : 290));
      // A band from above that passes the image's end would read beyond the rectangle.
      if (left->nOutPos < band.nOutStartY)
        to.nLines = std::min(to.nLines, band.nOutHeight - left->nOutPos);
      to.nOutLineWidth = left->nOutLineWidth;
      const auto close = turns ? band.nOutLineWidth : random.oneIn(8) ? random.pick(0, 40) : 0;
      RastRotateBand from = to;
      for (int32_t p = 0; p < planes; ++p) {
        const auto slot = static_cast<size_t>(close ? 0 : p);
        const ptrdiff_t at = close ? p * close : 30;
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

}  // namespace
}  // namespace rast::test
