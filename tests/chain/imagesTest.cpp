// Images of overlays, as functions of the caller's give them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "pages.h"
#include "reference.h"

namespace rast::test {
namespace {

using testing::HasSubstr;

struct Fault {
  ImageSource::Fault fault;
  uint32_t code;       // of rastChainPlan and rastChainBegin
  uint32_t imageCode;  // of the last call that gave the image
};

std::ostream& operator<<(std::ostream& stream, const Fault& fault) {
  return stream << "fault " << fault.fault;
}

class FaultyImages : public testing::TestWithParam<std::tuple<Fault, const char*>> {};

TEST_P(FaultyImages, EndThePageAndAreReadAgain) {
  const auto& [fault, operation] = GetParam();
  ImageSource image;
  image.picture = overlayImage(3);
  const RastChainSettings settings = settingsFor(image);
  const ChainPointer chain = openChain("gray : " + std::string(operation) + " logo.ppm", &settings);
  EXPECT_EQ(image.calls, 0) << "no image is read before a page needs it";
  const ChainPointer colors = openChain(std::string(operation) + " logo.ppm at=1,1", &settings);
  Random random(1);
  const Picture in = randomPicture(20, 10, 3, random);
  const RastChainPage page = in.page();
  for (const auto call : {rastChainPlan, rastChainBegin}) {
    for (int round = 0; round < 2; ++round) {
      image.fault = fault.fault;
      image.calls = 0;
      RastChainPage out = {};
      RastChainError error = {};
      EXPECT_EQ(call(colors.get(), &page, &out, &error), fault.code);
      EXPECT_EQ(error.nCode, fault.code);
      EXPECT_EQ(error.nStep, 1U);
      EXPECT_STREQ(error.sOperation, operation);
      EXPECT_STRNE(error.sMessage, "");
      EXPECT_EQ(image.calls, 1);
      EXPECT_EQ(image.lastCode, fault.imageCode);
      EXPECT_EQ(rastChainRun(colors.get(), nullptr, nullptr, nullptr),
                uint32_t{RAST_CHAIN_ERR_USE});
    }
  }
  image.fault = ImageSource::none;
  const Outcome outcome = runPage(colors.get(), in, Feed(), random);
  EXPECT_EQ(outcome.code, RAST_CHAIN_DONE) << outcome.error.sMessage;
  image.calls = 0;
  EXPECT_EQ(runPage(colors.get(), in, Feed(), random).picture, outcome.picture);
  EXPECT_EQ(image.calls, 0);
}

constexpr Fault kFaults[] = {
    {ImageSource::fails, RAST_CHAIN_ERR_CALLER, RAST_CHAIN_DONE},
    {ImageSource::neverBegins, RAST_CHAIN_ERR_CALLER, 0},
    {ImageSource::tooFew, RAST_CHAIN_ERR_CALLER, RAST_CHAIN_OK},
    {ImageSource::tooMany, RAST_CHAIN_ERR_USE, RAST_CHAIN_ERR_USE},
    {ImageSource::beginsTwice, RAST_CHAIN_ERR_USE, RAST_CHAIN_ERR_USE},
    {ImageSource::noSize, RAST_CHAIN_ERR_USE, RAST_CHAIN_ERR_USE},
};
INSTANTIATE_TEST_SUITE_P(All, FaultyImages,
                         testing::Combine(testing::ValuesIn(kFaults),
                                          testing::Values("overlay", "overlayrgb")));

/// A function of the caller's that misuses what it is given.
int misuse(void* user, const char*, int, RastChainImage* image) {
  auto& codes = *static_cast<std::vector<uint32_t>*>(user);
  uint8_t samples[12] = {};
  RastChainLines lines = {{samples}, 6, 2, 0};
  codes.push_back(rastChainImageLines(image, &lines));
  return 0;
}

int misuseLines(void* user, const char*, int, RastChainImage* image) {
  auto& codes = *static_cast<std::vector<uint32_t>*>(user);
  uint8_t samples[12] = {};
  const RastChainPage page = Picture(2, 2, 3).page();
  codes.push_back(rastChainImageBegin(image, &page));
  RastChainLines lines = {{samples}, 5, 2, 0};
  codes.push_back(rastChainImageLines(image, &lines));
  lines.nPitch = 6;
  codes.push_back(rastChainImageLines(image, &lines));
  return 0;
}

int beginNull(void* user, const char*, int, RastChainImage* image) {
  auto& codes = *static_cast<std::vector<uint32_t>*>(user);
  codes.push_back(rastChainImageBegin(image, nullptr));
  codes.push_back(rastChainImageLines(image, nullptr));
  return 0;
}

TEST(Images, ErrorsInsideTheFunctionAreReportedByBeginToo) {
  for (const auto function : {misuse, misuseLines, beginNull}) {
    std::vector<uint32_t> codes;
    RastChainSettings settings = {};
    settings.pFolder = quickFolder();
    settings.pUser = &codes;
    settings.pReadImage = function;
    const ChainPointer chain = openChain("overlay logo.ppm", &settings);
    const RastChainPage page = Picture(5, 5, 3).page();
    RastChainError error = {};
    EXPECT_EQ(rastChainBegin(chain.get(), &page, nullptr, &error), uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_USE});
    ASSERT_FALSE(codes.empty());
    EXPECT_EQ(codes.back(), uint32_t{RAST_CHAIN_ERR_USE});
  }
}

TEST(Images, OfAnotherKindAreRejected) {
  for (const uint32_t page : {1U, 3U, 4U}) {
    for (const uint32_t kind : {1U, 3U, 4U}) {
      if (kind == page) continue;
      ImageSource image;
      image.picture = overlayImage(kind);
      const RastChainSettings settings = settingsFor(image);
      for (const char* text : {"overlay logo.ppm", "overlayrgb logo.ppm"}) {
        if (page != 3 && std::string(text) == "overlayrgb logo.ppm") continue;
        const ChainPointer chain = openChain(text, &settings);
        const RastChainPage in = Picture(5, 5, page).page();
        RastChainError error = {};
        EXPECT_EQ(rastChainBegin(chain.get(), &in, nullptr, &error),
                  uint32_t{RAST_CHAIN_ERR_UNSUPPORTED});
        EXPECT_THAT(error.sMessage, HasSubstr("logo.ppm"));
      }
    }
  }
}

TEST(Images, TheTextNamesTheirBackground) {
  const std::pair<const char*, int> cases[] = {{"overlay logo.ppm", RAST_CHAIN_NO_BACKGROUND},
                                               {"overlay logo.ppm flatten=black", 0},
                                               {"overlay logo.ppm flatten=white", 255},
                                               {"overlayrgb logo.ppm flatten=white white", 255}};
  for (const auto& [text, background] : cases) {
    ImageSource image;
    image.picture = overlayImage(3);
    const RastChainSettings settings = settingsFor(image);
    const ChainPointer chain = openChain(text, &settings);
    const RastChainPage in = Picture(5, 5, 3).page();
    EXPECT_EQ(rastChainBegin(chain.get(), &in, nullptr, nullptr), RAST_CHAIN_OK);
    EXPECT_EQ(image.background, background) << text;
    EXPECT_EQ(image.name, "logo.ppm");
  }
}

TEST(Images, MayHaveNamesThatAreCloseToParameters) {
  for (const char* name : {"a", "bt", "ize", "mod"}) {
    ImageSource image;
    image.picture = overlayImage(1);
    const RastChainSettings settings = settingsFor(image);
    const ChainPointer chain = openChain(std::string("overlay ") + name, &settings);
    const RastChainPage in = Picture(5, 5, 1).page();
    EXPECT_EQ(rastChainBegin(chain.get(), &in, nullptr, nullptr), RAST_CHAIN_OK);
    EXPECT_EQ(image.name, name);
  }
}

}  // namespace
}  // namespace rast::test
