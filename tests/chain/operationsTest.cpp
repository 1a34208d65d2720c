// Every operation, alone and in chains, gives what calls of librast on whole planes give, however
// the page is handed over.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "pages.h"
#include "reference.h"
#include "support/call.h"

namespace rast::test {
namespace {

struct User {
  ImageSource image;
  Received received;
};

int readFor(void* user, const char* name, int background, RastChainImage* image) {
  return readImage(static_cast<User*>(user)->image, name, background, image);
}

int receiveFor(void* user, const RastChainLines* lines) {
  return receiveLines(&static_cast<User*>(user)->received, lines);
}

constexpr std::array<std::array<uint32_t, 2>, 13> kSizes = {{{1, 1},
                                                             {1, 7},
                                                             {7, 1},
                                                             {1, 150},
                                                             {150, 1},
                                                             {2, 2},
                                                             {3, 5},
                                                             {4, 4},
                                                             {17, 13},
                                                             {64, 9},
                                                             {33, 100},
                                                             {5, 300},
                                                             {1031, 3}}};

class Chains : public testing::Test {
 protected:
  /// A chain of the settings that one in so many uses.
  ChainPointer open(const std::string& text, uint32_t components, uint32_t lines, uint64_t memory,
                    bool writes) {
    user_.image.picture = overlayImage(components);
    user_.image.layout = {random_.oneIn(2), random_.oneIn(2) ? size_t{5} : 0, random_.oneIn(2)};
    RastChainSettings settings = {};
    settings.nSize = sizeof settings;
    settings.nLines = lines;
    settings.nMemory = memory;
    settings.pFolder = quickFolder();
    settings.pUser = &user_;
    settings.pReadImage = readFor;
    if (writes) settings.pWriteLines = receiveFor;
    RastChainError error = {};
    ChainPointer chain = openChain(text, &settings, &error);
    EXPECT_NE(chain, nullptr) << text << ": " << error.sMessage;
    return chain;
  }

  void expectSame(const std::string& text, const Picture& in, const std::optional<Picture>& out,
                  const Feed& feed, uint32_t lines, bool leastMemory) {
    SCOPED_TRACE(testing::Message() << text << ", " << in << ", " << feed << ", bands of " << lines
                                    << (leastMemory ? ", least memory" : ""));
    const ChainPointer chain = open(text, in.components(), lines, 0, feed.writes);
    ASSERT_NE(chain, nullptr);
    RastChainPage planned = {};
    RastChainError error = {};
    const RastChainPage page = in.page();
    const uint32_t plan = rastChainPlan(chain.get(), &page, &planned, &error);
    const uint64_t memory = leastMemory ? planned.nMemory : 0;
    const Outcome outcome = runPage(chain.get(), in, feed, random_, &user_.received, memory);
    if (!out) {
      EXPECT_TRUE(outcome.code == RAST_CHAIN_ERR_UNSUPPORTED || outcome.code == RAST_CHAIN_ERR_PAGE)
          << outcome.code;
      EXPECT_EQ(plan, outcome.code);
      EXPECT_STREQ(error.sMessage, outcome.error.sMessage);
      return;
    }
    EXPECT_EQ(plan, RAST_CHAIN_OK) << error.sMessage;
    ASSERT_EQ(outcome.code, RAST_CHAIN_DONE) << outcome.error.sMessage;
    EXPECT_EQ(outcome.broken, "");
    EXPECT_EQ(planned.nWidth, out->width);
    EXPECT_EQ(planned.nHeight, out->height);
    EXPECT_EQ(planned.nComponents, out->components());
    EXPECT_EQ(outcome.page.nWidth, out->width);
    EXPECT_EQ(outcome.page.nHeight, out->height);
    EXPECT_EQ(outcome.page.nMemory, planned.nMemory);
    EXPECT_EQ(outcome.picture, *out);
  }

  /// In several ways, drawn at random.
  void expectSameInManyWays(const std::string& text, const Picture& in,
                            const std::optional<Picture>& out, int ways) {
    constexpr uint32_t lines[] = {0, 1, 7, 65536};
    for (int i = 0; i < ways; ++i) {
      const Feed feed = randomFeed(random_);
      expectSame(text, in, out, feed, lines[random_.pick(0, 3)], random_.oneIn(2));
      if (HasFatalFailure()) return;
    }
  }

  Random random_{1};
  User user_;
};

TEST_F(Chains, OfOneStepGiveWhatTheLibraryGives) {
  for (const ReferenceStep& step : referenceSteps()) {
    for (const uint32_t components : {1U, 3U, 4U}) {
      for (const auto& [width, height] : kSizes) {
        const Picture in = randomPicture(width, height, components, random_);
        expectSameInManyWays(step.text, in, step.apply(in), 4);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_F(Chains, OfSeveralStepsGiveWhatTheirStepsGive) {
  const std::vector<ReferenceStep> steps = referenceSteps();
  for (int i = 0; i < 1500; ++i) {
    constexpr uint32_t kinds[] = {1, 3, 4};
    const Picture in = randomPicture(static_cast<uint32_t>(random_.pick(1, 40)),
                                     static_cast<uint32_t>(random_.pick(1, 40)),
                                     kinds[random_.pick(0, 2)], random_);
    std::string text;
    std::optional<Picture> out = in;
    const uint32_t components = in.components();
    for (ptrdiff_t count = random_.pick(2, 6); count > 0 && out; --count) {
      const ReferenceStep& step =
          steps[static_cast<size_t>(random_.pick(0, std::ssize(steps) - 1))];
      const std::optional<Picture> next = step.apply(*out);
      // Most chains are to run; and the images are of the kind that comes in.
      if (!next && !random_.oneIn(20)) continue;
      if (out->components() != components && step.text.starts_with("overlay")) continue;
      text += (text.empty() ? "" : " : ") + step.text;
      out = next;
    }
    if (text.empty()) continue;
    expectSameInManyWays(text, in, out, 2);
    if (HasFatalFailure()) return;
  }
}

TEST_F(Chains, EveryDivisionOfEveryLayoutGivesTheSame) {
  constexpr const char* kText =
      "satadjust raise : shift x=3 y=2 size=40x50 : zoom x=700 y=600 : rotate cw : "
      "overlay logo.ppm at=2,1 : colgamma gamma=1.8";
  const std::vector<ReferenceStep> steps = referenceSteps();
  const Picture in = randomPicture(31, 37, 3, random_);
  const ChainPointer whole = open(kText, 3, 0, 0, false);
  const Outcome expected = runPage(whole.get(), in, Feed(), random_);
  ASSERT_EQ(expected.code, RAST_CHAIN_DONE) << expected.error.sMessage;
  for (int i = 0; i < 2 * 2 * 2 * 2 * 4 * 4 * 3; ++i) {
    int rest = i;
    const auto digit = [&rest](int base) {
      const int value = rest % base;
      rest /= base;
      return value;
    };
    constexpr int divisions[] = {0, 1, 7, -1};
    Feed feed;
    feed.in.planar = digit(2);
    feed.out.planar = digit(2);
    feed.in.padding = digit(2) ? 3 : 0;
    feed.out.padding = digit(2) ? 3 : 0;
    feed.divisionIn.lines = divisions[digit(4)];
    feed.divisionOut.lines = divisions[digit(4)];
    const int way = digit(3);
    feed.in.upwards = feed.out.upwards = way == 1;
    feed.writes = way == 2;
    constexpr uint32_t lines[] = {1, 7, 65536};
    expectSame(kText, in, expected.picture, feed, lines[i % 3], i % 2 == 0);
    if (HasFatalFailure()) return;
  }
}

TEST_F(Chains, AnyNumberOfPagesOfAnySizeFollow) {
  const std::vector<ReferenceStep> steps = referenceSteps();
  for (const ReferenceStep& step : steps) {
    const ChainPointer chain = open(step.text, 3, 0, 0, true);
    for (int i = 0; i < 12; ++i) {
      const Picture in = randomPicture(static_cast<uint32_t>(random_.pick(1, 60)),
                                       static_cast<uint32_t>(random_.pick(1, 60)), 3, random_);
      const Feed feed = randomFeed(random_);
      SCOPED_TRACE(testing::Message() << step.text << ", page " << i << ", " << in << ", " << feed);
      const std::optional<Picture> out = step.apply(in);
      const Outcome outcome = runPage(chain.get(), in, feed, random_, &user_.received);
      EXPECT_EQ(outcome.broken, "");
      if (out) {
        ASSERT_EQ(outcome.code, RAST_CHAIN_DONE) << outcome.error.sMessage;
        ASSERT_EQ(outcome.picture, *out);
      } else {
        ASSERT_GE(outcome.code, uint32_t{RAST_CHAIN_ERR_TEXT});
      }
    }
    const bool hasOverlay = step.text.starts_with("overlay");
    EXPECT_EQ(user_.image.calls, hasOverlay ? 1 : 0) << "the image is read once";
    user_.image.calls = 0;
  }
}

TEST_F(Chains, PrintNothing) {
  const std::string printed = printedBy([&] {
    for (const char* text : {"hueadjust mirror", "hueadjust rotate=30", "satadjust raise",
                             "hueadjust sepia reverse mirror : overlayrgb logo.ppm : zoom y=1"}) {
      const ChainPointer chain = open(text, 3, 0, 0, false);
      const Picture in = randomPicture(20, 10, 3, random_);
      EXPECT_EQ(runPage(chain.get(), in, Feed(), random_).code, uint32_t{RAST_CHAIN_DONE});
    }
    for (const char* text : {"satadjust", "hueadjust mirrow", "overlay", "colgamma /"}) {
      EXPECT_EQ(openChain(text), nullptr);
    }
  });
  EXPECT_EQ(printed, "");
}

TEST_F(Chains, WithoutBlanksAreSplitAtCommas) {
  const std::pair<const char*, const char*> same[] = {
      {"shift,x=40,y=20:rotate,cw", "shift x=40 y=20 : rotate cw"},
      {"colbalance,level=6,5,4,5:overlay,logo.ppm,at=20,10",
       "colbalance level=6,5,4,5 : overlay logo.ppm at=20,10"},
      {"overlay,at=20,10,logo.ppm,white,size=50x60", "overlay at=20,10 logo.ppm white size=50x60"},
      {"gray", "gray"},
      {"shift,x=40,y=20:rotate,cw\n", "shift x=40 y=20 : rotate cw"},
      {" \n\trotate,cw \r\n\n# the end", "rotate cw"},
      {"::gray:::zoom,percent=33.3:", "gray : zoom percent=33.3"},
      {"hueadjust,matrix=rotate=-30,mirror", "hueadjust matrix=rotate=-30 mirror"},
      {"shift,x=-1,y=-2,fill=black", "shift x=-1 y=-2 fill=black"},
      {"overlay,'logo, with a: colon.ppm',at=1,2", "overlay 'logo, with a: colon.ppm' at=1,2"},
  };
  for (const auto& [compact, spelled] : same) {
    SCOPED_TRACE(compact);
    const Picture in = randomPicture(50, 40, 3, random_);
    const ChainPointer one = open(compact, 3, 0, 0, false);
    ASSERT_NE(one, nullptr);
    const Outcome got = runPage(one.get(), in, Feed(), random_);
    const std::string name = user_.image.name;
    const ChainPointer other = open(spelled, 3, 0, 0, false);
    const Outcome expected = runPage(other.get(), in, Feed(), random_);
    ASSERT_EQ(expected.code, RAST_CHAIN_DONE) << expected.error.sMessage;
    EXPECT_EQ(got.code, RAST_CHAIN_DONE) << got.error.sMessage;
    EXPECT_EQ(got.picture, expected.picture);
    EXPECT_EQ(name, user_.image.name);
  }
}

TEST_F(Chains, TurnsAndResolutionFollowThePage) {
  RastChainPage in = Picture(40, 30, 3).page();
  in.nResolutionX = 600;
  in.nResolutionY = 300;
  const struct {
    const char* text;
    double x;
    double y;
    uint32_t turns;
  } cases[] = {{"satadjust raise", 600, 300, 0},
               {"rotate cw", 300, 600, 1},
               {"rotate ccw", 300, 600, 3},
               {"rotate cw : rotate cw", 600, 300, 2},
               {"rotate cw : rotate ccw", 600, 300, 0},
               {"rotate ccw : rotate ccw : rotate ccw : rotate ccw", 600, 300, 0},
               {"zoom percent=50", 300, 150, 0},
               {"zoom x=250 y=500 : rotate cw", 150, 150, 1},
               {"shift x=1 size=90x80", 600, 300, 0},
               {"gray : overlay logo.ppm", 600, 300, 0}};
  for (const auto& [text, x, y, turns] : cases) {
    SCOPED_TRACE(text);
    const ChainPointer chain = open(text, 1, 0, 0, false);
    RastChainPage planned = {};
    RastChainPage begun = {};
    ASSERT_EQ(rastChainPlan(chain.get(), &in, &planned, nullptr), RAST_CHAIN_OK);
    ASSERT_EQ(rastChainBegin(chain.get(), &in, &begun, nullptr), RAST_CHAIN_OK);
    for (const RastChainPage& out : {planned, begun}) {
      EXPECT_EQ(out.nResolutionX, x);
      EXPECT_EQ(out.nResolutionY, y);
      EXPECT_EQ(out.nTurns, turns);
    }
  }
}

TEST_F(Chains, OneRecordServesForThePageInAndThePageOut) {
  const ChainPointer chain = open("rotate cw : zoom percent=50", 3, 0, 0, false);
  RastChainPage page = Picture(40, 30, 3).page();
  ASSERT_EQ(rastChainPlan(chain.get(), &page, &page, nullptr), RAST_CHAIN_OK);
  EXPECT_EQ(page.nWidth, 15U);
  EXPECT_EQ(page.nHeight, 20U);
  page = Picture(40, 30, 3).page();
  ASSERT_EQ(rastChainBegin(chain.get(), &page, &page, nullptr), RAST_CHAIN_OK);
  EXPECT_EQ(page.nWidth, 15U);
  EXPECT_EQ(page.nHeight, 20U);
}

}  // namespace
}  // namespace rast::test
