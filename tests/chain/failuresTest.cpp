// Every allocation of a page's way fails in turn: the page is over or right, nothing is left behind,
// and the chain serves the next page.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "allocations.h"
#include "pages.h"
#include "reference.h"

namespace rast::test {
namespace {

/// All memory of the caller, so that no allocation but the engine's is counted.
struct Caller {
  RastChainPage imagePage;
  Sheet image;
  Sheet in;
  Sheet out;
  uint32_t received = 0;
  size_t lineBytes;
  bool ignoresErrors = false;  // in the function that reads the image

  Caller(const Picture& picture, const RastChainPage& made)
      : imagePage(overlayImage(made.nComponents).page()),
        image(sheetOf(overlayImage(made.nComponents), Layout())),
        in(sheetOf(picture, Layout())),
        out(made.nWidth, made.nHeight, made.nComponents, Layout()),
        lineBytes(size_t{made.nWidth} * made.nComponents) {}
};

int readFor(void* user, const char*, int, RastChainImage* image) {
  const auto& caller = *static_cast<Caller*>(user);
  if (rastChainImageBegin(image, &caller.imagePage) != RAST_CHAIN_OK) {
    return caller.ignoresErrors ? 0 : 1;
  }
  const RastChainLines lines = caller.image.lines(0, caller.imagePage.nHeight);
  const bool done = rastChainImageLines(image, &lines) == RAST_CHAIN_DONE;
  return done || caller.ignoresErrors ? 0 : 1;
}

int receiveFor(void* user, const RastChainLines* lines) {
  auto& caller = *static_cast<Caller*>(user);
  for (uint32_t i = 0; i < lines->nCount; ++i) {
    memcpy(caller.out.lines(caller.received++, 1).pPlane[0],
           lines->pPlane[0] + static_cast<ptrdiff_t>(i) * lines->nPitch, caller.lineBytes);
  }
  return 0;
}

struct Case {
  const char* text;
  uint32_t components;
};

std::ostream& operator<<(std::ostream& stream, const Case& which) {
  return stream << which.text << ", " << which.components;
}

class Failures : public testing::TestWithParam<std::tuple<Case, bool>> {};

TEST_P(Failures, OfEveryAllocationAreReported) {
  const Case which = std::get<0>(GetParam());
  const bool writes = std::get<1>(GetParam());
  const std::string text = which.text;
  Random random(1);
  const Picture in = randomPicture(40, 90, which.components, random);
  // What the chain makes, by one that nothing fails in.
  ImageSource source;
  source.picture = overlayImage(text.starts_with("gray") ? 1 : which.components);
  RastChainSettings settings = settingsFor(source);
  settings.nLines = 8;
  const Outcome expected = runPage(openChain(text, &settings).get(), in, Feed(), random);
  ASSERT_EQ(expected.code, RAST_CHAIN_DONE) << expected.error.sMessage;

  Caller caller(in, expected.page);
  settings.pUser = &caller;
  settings.pReadImage = readFor;
  if (writes) settings.pWriteLines = receiveFor;
  const RastChainPage page = in.page();
  for (long failing = 0;; ++failing) {
    ASSERT_LT(failing, 5000);
    caller.ignoresErrors = failing % 2 == 1;
    caller.received = 0;
    RastChain* chain = nullptr;
    RastChainError error = {};
    uint32_t code = 0;
    uint32_t after = RAST_CHAIN_ERR_USE;
    uint32_t again = RAST_CHAIN_DONE;
    bool failed = false;
    int64_t left = 0;
    {
      const Allocations allocations(failing);
      const auto run = [&](RastChainError* report) {
        caller.received = 0;
        uint32_t result = rastChainBegin(chain, &page, nullptr, report);
        RastChainLines linesIn = caller.in.lines(0, in.height);
        RastChainLines linesOut = caller.out.lines(0, expected.page.nHeight);
        if (result != RAST_CHAIN_OK) return result;
        return writes ? rastChainWrite(chain, &linesIn, report)
                      : rastChainRun(chain, &linesIn, &linesOut, report);
      };
      code = rastChainOpen(which.text, &settings, &chain, &error);
      if (code == RAST_CHAIN_OK) code = run(&error);
      failed = allocations.count() > failing;
      if (chain != nullptr) {
        after = rastChainRun(chain, nullptr, nullptr, nullptr);
        if (failed) again = run(nullptr);
      }
      rastChainClose(chain);
      left = allocations.live();
    }
    SCOPED_TRACE(testing::Message() << "allocation " << failing);
    if (failed && code != RAST_CHAIN_DONE) {
      EXPECT_EQ(code, uint32_t{RAST_CHAIN_ERR_MEMORY});
      EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_MEMORY});
      EXPECT_STRNE(error.sMessage, "");
    }
    EXPECT_EQ(after, uint32_t{RAST_CHAIN_ERR_USE}) << "the page is over";
    EXPECT_EQ(again, uint32_t{RAST_CHAIN_DONE}) << "the next page succeeds";
    if (chain != nullptr) {
      EXPECT_EQ(pictureOf(caller.out, expected.page), expected.picture);
    }
    // rastZoom leaves its working lines where the sums cannot be had.
    const bool mayLeave = text.find("zoom") != std::string::npos;
    if (left != 0 && !(mayLeave && left <= 4 * (90 + 16))) {
      ADD_FAILURE() << left << " bytes are left";
    }
    if (HasFailure()) return;
    if (!failed) {
      EXPECT_EQ(code, uint32_t{RAST_CHAIN_DONE});
      return;
    }
  }
}

constexpr Case kCases[] = {
    {"satadjust raise : colgamma gamma=1.8", 3},
    {"hueadjust rotate=30 mirror : colbalance level=6,5,4,5 : gray", 3},
    {"zoom percent=60 : shift x=1 y=1", 3},
    {"zoom y=333", 4},
    {"rotate cw", 1},
    {"rotate ccw : zoom percent=33.3 : rotate ccw", 3},
    {"overlay logo.ppm at=2,3", 3},
    {"overlay logo.ppm at=2,3 : overlayrgb logo.ppm white size=60x95", 3},
    {"overlay logo.ppm : expgamma gain=300", 4},
};
INSTANTIATE_TEST_SUITE_P(Chains, Failures,
                         testing::Combine(testing::ValuesIn(kCases), testing::Bool()));

/// Goes on in spite of errors.
struct Stubborn {
  RastChainPage page;
  Sheet image;
  std::array<uint32_t, 8> codes = {};
};

int readStubbornly(void* user, const char*, int, RastChainImage* image) {
  auto& stubborn = *static_cast<Stubborn*>(user);
  stubborn.codes = {rastChainImageBegin(image, &stubborn.page)};
  for (uint32_t line = 0; line < 7; ++line) {
    const RastChainLines lines = stubborn.image.lines(line, 1);
    stubborn.codes[line + 1] = rastChainImageLines(image, &lines);
  }
  return 0;
}

TEST(Failures, OfImagesAreReportedByEveryLaterCall) {
  Random random(1);
  const Picture image = randomPicture(9, 7, 3, random);
  Stubborn stubborn = {image.page(), sheetOf(image, Layout())};
  RastChainSettings settings = {};
  settings.pFolder = quickFolder();
  settings.pUser = &stubborn;
  settings.pReadImage = readStubbornly;
  const RastChainPage page = Picture(12, 12, 3).page();
  for (long failing = 0;; ++failing) {
    const ChainPointer chain = openChain("overlayrgb logo.ppm", &settings);
    stubborn.codes = {};
    RastChainPage out = {};
    uint32_t code = 0;
    bool failed = false;
    {
      const Allocations allocations(failing);
      code = rastChainPlan(chain.get(), &page, &out, nullptr);
      failed = allocations.count() > failing;
    }
    EXPECT_EQ(code, failed ? uint32_t{RAST_CHAIN_ERR_MEMORY} : uint32_t{RAST_CHAIN_OK});
    const auto first = std::ranges::find(stubborn.codes, uint32_t{RAST_CHAIN_ERR_MEMORY});
    EXPECT_TRUE(std::all_of(first, stubborn.codes.end(), [](uint32_t each) {
      return each == uint32_t{RAST_CHAIN_ERR_MEMORY};
    })) << testing::PrintToString(stubborn.codes);
    if (!failed) break;
  }
  EXPECT_EQ(stubborn.codes.back(), uint32_t{RAST_CHAIN_DONE});
}

TEST(Failures, OfTextsAndDescriptionsAreReported) {
  for (const char* text : {"satadjst raise", "gray : rotate cww", "shift x='1", "overlay a",
                           "colgamma nofile", "shift,x=1,y=2:rotate,cw:gray,1"}) {
    for (long failing = 0;; ++failing) {
      RastChain* chain = reinterpret_cast<RastChain*>(1);
      RastChainError error = {};
      uint32_t code = 0;
      bool failed = false;
      int64_t left = 0;
      {
        const Allocations allocations(failing);
        code = rastChainOpen(text, nullptr, &chain, &error);
        failed = allocations.count() > failing;
        left = allocations.live();
      }
      EXPECT_EQ(code, error.nCode);
      EXPECT_EQ(code, failed ? uint32_t{RAST_CHAIN_ERR_MEMORY} : uint32_t{RAST_CHAIN_ERR_TEXT});
      EXPECT_EQ(chain, nullptr);
      EXPECT_EQ(left, 0);
      if (!failed) break;
    }
  }
  for (long failing = 0;; failing += 7) {
    char buffer[8] = "unset..";
    size_t length = 0;
    bool failed = false;
    {
      const Allocations allocations(failing);
      length = rastChainDescribe(buffer, sizeof buffer);
      failed = allocations.count() > failing;
    }
    EXPECT_STREQ(buffer, failed ? "" : "[{\"name");
    if (!failed) break;
    EXPECT_EQ(length, 0U);
  }
}

}  // namespace
}  // namespace rast::test
