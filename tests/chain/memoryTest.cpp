// The memory of pages: what is planned is enough, less is rejected, and no more is taken.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "allocations.h"
#include "pages.h"
#include "reference.h"

namespace rast::test {
namespace {

constexpr const char* kTexts[] = {
    "colgamma invert",
    "expgamma gain=300",
    "gray",
    "satadjust raise",
    "hueadjust rotate=30 mirror : colbalance level=6,5,4,5 : binconv color=3",
    "zoom x=500",
    "zoom y=500",
    "zoom percent=99.9",
    "zoom x=1 y=333",
    "shift x=2 y=1",
    "shift x=100 size=3000x70",
    "shift size=20x20",
    "rotate cw",
    "rotate ccw : zoom percent=33.3 : gray : shift y=3",
    "overlay logo.ppm at=2,3",
    "overlayrgb logo.ppm size=2000x40",
    "gray : overlay logo.ppm : colgamma gamma=2",
};

/// What is neither lines nor part of a page: records of steps and the like.
constexpr int64_t roomFor(const std::string& text) {
  const auto steps = 1 + static_cast<int64_t>(std::count(text.begin(), text.end(), ':'));
  return 4096 + steps * 8192;
}

int dropLines(void*, const RastChainLines*) { return 0; }

class MemoryOf : public testing::TestWithParam<std::tuple<const char*, uint32_t>> {
 protected:
  /// Null where the operations do not take pages of this kind.
  ChainPointer open(uint64_t memory, uint32_t lines, bool writes) {
    const auto [text, components] = GetParam();
    const bool isGrayThere = std::string(text).starts_with("gray : overlay");
    image_.picture = overlayImage(isGrayThere ? 1 : components);
    RastChainSettings settings = settingsFor(image_);
    settings.nMemory = memory;
    settings.nLines = lines;
    if (writes) settings.pWriteLines = dropLines;
    ChainPointer chain = openChain(text, &settings);
    const RastChainPage page = Picture(30, 30, components).page();
    RastChainPage out = {};
    const bool takes = rastChainPlan(chain.get(), &page, &out, nullptr) == RAST_CHAIN_OK;
    return takes ? std::move(chain) : nullptr;
  }

  ImageSource image_;
};

TEST_P(MemoryOf, WhatIsPlannedIsEnoughAndLessIsNot) {
  const uint32_t components = std::get<1>(GetParam());
  for (const bool writes : {false, true}) {
    for (const auto& [width, height] :
         std::vector<std::array<uint32_t, 2>>{{1, 1}, {17, 1}, {30, 40}, {1000, 30}, {40, 3000}}) {
      if (height < 3 && std::string(std::get<0>(GetParam())).starts_with("shift x=2")) continue;
      RastChainPage page = Picture(width, height, components).page();
      RastChainPage planned = {};
      RastChainPage begun = {};
      const ChainPointer chain = open(0, 0, writes);
      if (chain == nullptr) return;
      const uint32_t code = rastChainPlan(chain.get(), &page, &planned, nullptr);
      if (code == RAST_CHAIN_ERR_PAGE) continue;
      ASSERT_EQ(code, RAST_CHAIN_OK);
      const uint64_t least = planned.nMemory;
      ASSERT_GT(least, 0U);
      page.nMemory = least;
      EXPECT_EQ(rastChainBegin(chain.get(), &page, &begun, nullptr), RAST_CHAIN_OK);
      EXPECT_EQ(begun.nMemory, least);
      page.nMemory = UINT64_MAX;
      EXPECT_EQ(rastChainPlan(chain.get(), &page, &planned, nullptr), RAST_CHAIN_OK);
      EXPECT_EQ(planned.nMemory, least);

      const ChainPointer capped = open(least, 0, writes);
      page.nMemory = 0;
      EXPECT_EQ(rastChainBegin(capped.get(), &page, &begun, nullptr), RAST_CHAIN_OK);
      if (least == 1) continue;
      page.nMemory = least - 1;
      RastChainError error = {};
      for (RastChain* one : {chain.get(), capped.get()}) {
        EXPECT_EQ(rastChainBegin(one, &page, &begun, &error), uint32_t{RAST_CHAIN_ERR_MEMORY});
        EXPECT_EQ(error.nNeeded, least);
        EXPECT_EQ(error.nStep, 0U);
        EXPECT_EQ(rastChainRun(one, nullptr, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_USE});
      }
      const ChainPointer tight = open(least - 1, 0, writes);
      page.nMemory = 0;
      EXPECT_EQ(rastChainBegin(tight.get(), &page, &begun, &error),
                uint32_t{RAST_CHAIN_ERR_MEMORY});
      EXPECT_EQ(error.nNeeded, least);
      page.nMemory = error.nNeeded;
      EXPECT_EQ(rastChainBegin(tight.get(), &page, &begun, &error), RAST_CHAIN_OK);
    }
  }
}

TEST_P(MemoryOf, StaysWithinTheCap) {
  const auto [text, components] = GetParam();
  Random random(1);
  const Picture in = randomPicture(2500, 90, components, random);
  for (const uint32_t lines : {0U, 1U, 65536U}) {
    for (const uint64_t times : {1U, 2U, 10U}) {
      for (int way = 0; way < 4; ++way) {
        const ChainPointer chain = open(0, lines, way == 3);
        if (chain == nullptr) return;
        const Layout layouts[] = {{}, {true, 0}, {true, 5}, {}};
        const Sheet sheet = sheetOf(in, layouts[way]);
        RastChainPage page = in.page();
        RastChainPage out = {};
        ASSERT_EQ(rastChainPlan(chain.get(), &page, &out, nullptr), RAST_CHAIN_OK);
        page.nMemory = times * out.nMemory;
        // Room for all lines, and for one at a time with a gap: the two ways of handing out.
        const Layout rooms[] = {{false, 7}, {true, 0}, {true, 7}, {}};
        Sheet result(out.nWidth, out.nHeight, out.nComponents, rooms[way]);
        RastChainLines linesIn = sheet.lines(0, in.height);
        RastChainLines linesOut = result.lines(0, out.nHeight);
        uint32_t code = 0;
        const Allocations allocations;
        code = rastChainBegin(chain.get(), &page, &out, nullptr);
        if (way == 3) {
          if (code == RAST_CHAIN_OK) code = rastChainWrite(chain.get(), &linesIn, nullptr);
        } else {
          if (code == RAST_CHAIN_OK) {
            code = rastChainRun(chain.get(), &linesIn, &linesOut, nullptr);
          }
        }
        const int64_t peak = allocations.peak();
        const int64_t left = allocations.live();
        EXPECT_EQ(code, uint32_t{RAST_CHAIN_DONE});
        EXPECT_LE(peak, static_cast<int64_t>(page.nMemory) + roomFor(text))
            << text << ", bands of " << lines << ", way " << way << ", " << times
            << " times the least of " << page.nMemory / times;
        EXPECT_EQ(left, 0) << "after the page";
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Chains, MemoryOf,
                         testing::Combine(testing::ValuesIn(kTexts), testing::Values(1U, 3U, 4U)));

TEST(Memory, OfHugePagesIsReportedBeforeItIsTaken) {
  for (const char* text : {"satadjust raise", "gray", "zoom x=100 : shift x=5"}) {
    const ChainPointer chain = openChain(text);
    RastChainPage page = {};
    page.nWidth = page.nHeight = INT32_MAX;
    page.nComponents = 3;
    RastChainPage out = {};
    ASSERT_EQ(rastChainPlan(chain.get(), &page, &out, nullptr), RAST_CHAIN_OK);
    EXPECT_GT(out.nMemory, uint64_t{INT32_MAX});
    RastChainError error = {};
    long count = 0;
    int64_t peak = 0;
    {
      const Allocations allocations;
      EXPECT_EQ(rastChainBegin(chain.get(), &page, nullptr, &error),
                uint32_t{RAST_CHAIN_ERR_MEMORY});
      count = allocations.count();
      peak = allocations.peak();
    }
    EXPECT_EQ(error.nNeeded, out.nMemory);
    EXPECT_LT(count, 100);
    EXPECT_LT(peak, 1 << 16);
  }
}

TEST(Memory, OfBandsIsNeverMoreThanThatOfThePage) {
  for (const char* text : {"gray", "zoom y=999", "zoom y=500", "shift y=1", "rotate cw", ""}) {
    for (const uint32_t height : {3U, 1500U}) {
      for (const bool writes : {false, true}) {
        const Picture in(1000, height, 3);
        const Sheet sheet = sheetOf(in, Layout());
        int64_t peaks[3] = {};
        for (int i = 0; i < 3; ++i) {
          RastChainSettings settings = {};
          settings.nLines = std::array{1500U, 65536U, UINT32_MAX}[static_cast<size_t>(i)];
          if (writes) settings.pWriteLines = dropLines;
          const ChainPointer chain = openChain(text, &settings);
          RastChainPage out = {};
          const RastChainPage page = in.page();
          ASSERT_EQ(rastChainPlan(chain.get(), &page, &out, nullptr), RAST_CHAIN_OK);
          Sheet result(out.nWidth, out.nHeight, out.nComponents, {false, 7});
          RastChainLines linesIn = sheet.lines(0, height);
          RastChainLines linesOut = result.lines(0, out.nHeight);
          uint32_t code = 0;
          const Allocations allocations;
          code = rastChainBegin(chain.get(), &page, nullptr, nullptr);
          if (code == RAST_CHAIN_OK) {
            code = writes ? rastChainWrite(chain.get(), &linesIn, nullptr)
                          : rastChainRun(chain.get(), &linesIn, &linesOut, nullptr);
          }
          peaks[i] = allocations.peak();
          EXPECT_EQ(code, uint32_t{RAST_CHAIN_DONE});
        }
        // Large allocations are rounded up to whole pages of memory, or not.
        EXPECT_LE(std::abs(peaks[1] - peaks[0]), 16384) << text << ", " << height << " lines";
        EXPECT_LE(std::abs(peaks[2] - peaks[0]), 16384) << text << ", " << height << " lines";
        const int64_t samples = 1000 * int64_t{height} * 3;
        EXPECT_LE(peaks[0], 5 * samples + 100000) << text << ", " << height << " lines";
      }
    }
  }
}

TEST(Memory, ThatTheCallerTakesMayBeAnyNumber) {
  const ChainPointer chain = openChain("satadjust raise");
  RastChainPage page = Picture(100, 100, 3).page();
  RastChainPage out = {};
  ASSERT_EQ(rastChainPlan(chain.get(), &page, &out, nullptr), RAST_CHAIN_OK);
  RastChainError error = {};
  page.nMemory = out.nMemory + 1000;
  page.nTaken = 1000;
  EXPECT_EQ(rastChainBegin(chain.get(), &page, nullptr, &error), RAST_CHAIN_OK);
  page.nTaken = 1001;
  EXPECT_EQ(rastChainBegin(chain.get(), &page, nullptr, &error), uint32_t{RAST_CHAIN_ERR_MEMORY});
  EXPECT_EQ(error.nNeeded, out.nMemory + 1001);
  page.nTaken = UINT64_MAX;
  EXPECT_EQ(rastChainBegin(chain.get(), &page, nullptr, &error), uint32_t{RAST_CHAIN_ERR_MEMORY});
  EXPECT_EQ(error.nNeeded, UINT64_MAX);
}

/// The library counts samples of a band in 32 bits.
TEST(Memory, OfBandsIsLimitedByTheirWiderSide) {
  for (const char* text : {"zoom x=1", "shift size=1x1"}) {
    RastChainSettings settings = {};
    settings.nSize = sizeof settings;
    settings.nLines = 65536;
    const ChainPointer chain = openChain(text, &settings);
    RastChainPage page = {};
    page.nWidth = 1000000;
    page.nHeight = 100000;
    page.nComponents = 1;
    page.nMemory = uint64_t{1} << 40;
    uint32_t code = 0;
    int64_t peak = 0;
    {
      const Allocations allocations;
      code = rastChainBegin(chain.get(), &page, nullptr, nullptr);
      peak = allocations.peak();
    }
    EXPECT_EQ(code, RAST_CHAIN_OK);
    EXPECT_LT(peak, int64_t{1} << 31);
  }
}

/// More memory than there is: no line is read or written.
TEST(Memory, ThatDoesNotExistIsAnError) {
  const ChainPointer chain = openChain("satadjust raise : zoom y=999");
  RastChainPage page = {};
  page.nWidth = 1000000;
  page.nHeight = INT32_MAX;
  page.nComponents = 3;
  page.nMemory = UINT64_MAX;
  for (long failing = 0; failing < 12; ++failing) {
    uint32_t code = 0;
    long count = 0;
    {
      const Allocations allocations(failing);
      code = rastChainBegin(chain.get(), &page, nullptr, nullptr);
      count = allocations.count();
    }
    if (count <= failing) {
      EXPECT_EQ(code, RAST_CHAIN_OK);
      return;
    }
    EXPECT_EQ(code, uint32_t{RAST_CHAIN_ERR_MEMORY});
    EXPECT_EQ(rastChainRun(chain.get(), nullptr, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_USE});
  }
  FAIL() << "no end of allocations";
}

}  // namespace
}  // namespace rast::test
