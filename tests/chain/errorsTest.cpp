// What is wrong is reported as the header says, and a chain can be used after it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "pages.h"
#include "reference.h"

namespace rast::test {
namespace {

using testing::HasSubstr;

bool isUtf8(const std::string& text) {
  for (size_t i = 0; i < text.size();) {
    const auto first = static_cast<unsigned char>(text[i]);
    const size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (first >= 0x80 && first < 0xC2) return false;
    for (size_t k = 1; k < length; ++k) {
      if (i + k >= text.size() || (text[i + k] & 0xC0) != 0x80) return false;
    }
    i += length;
  }
  return true;
}

/// The error record is filled from its first to its last byte.
RastChainError scribbled() {
  RastChainError error;
  memset(&error, 0x5A, sizeof error);
  return error;
}

struct WrongText {
  const char* text;
  const char* word;  // the wrong one; "": none
  uint32_t step;
  const char* operation;
  const char* suggestion;
  const char* message;  // a part of it
};

std::ostream& operator<<(std::ostream& stream, const WrongText& wrong) {
  return stream << wrong.text;
}

class WrongTexts : public testing::TestWithParam<WrongText> {};

TEST(Errors, TextsWithoutStepsPassPages) {
  for (const char* text : {"", " : \n\t: # gray\n", "::"}) {
    const ChainPointer chain = openChain(text);
    ASSERT_NE(chain, nullptr);
    EXPECT_EQ(rastChainSteps(chain.get()), 0U);
    Random random(1);
    const Picture in = randomPicture(7, 5, 3, random);
    const Outcome same = runPage(chain.get(), in, Feed(), random);
    EXPECT_EQ(same.code, uint32_t{RAST_CHAIN_DONE});
    EXPECT_EQ(same.page.nWidth, 7U);
  }
}

TEST_P(WrongTexts, AreReportedWithTheirPlace) {
  const auto& [text, word, step, operation, suggestion, message] = GetParam();
  RastChain* chain = reinterpret_cast<RastChain*>(1);
  RastChainError error = scribbled();
  EXPECT_EQ(rastChainOpen(text, nullptr, &chain, &error), uint32_t{RAST_CHAIN_ERR_TEXT});
  EXPECT_EQ(chain, nullptr);
  EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_TEXT});
  EXPECT_EQ(error.nStep, step);
  EXPECT_EQ(error.nNeeded, 0U);
  EXPECT_STREQ(error.sOperation, operation);
  EXPECT_STREQ(error.sSuggestion, suggestion);
  EXPECT_THAT(error.sMessage, HasSubstr(message));
  ASSERT_LE(error.nBegin, error.nEnd);
  ASSERT_LE(error.nEnd, strlen(text));
  EXPECT_EQ(std::string(text + error.nBegin, text + error.nEnd), word);
  EXPECT_EQ(rastChainOpen(text, nullptr, &chain, nullptr), uint32_t{RAST_CHAIN_ERR_TEXT});
}

constexpr WrongText kWrongTexts[] = {
    {":,:", "", 1, "", "", "comma"},
    {"shift", "", 1, "shift", "", "nothing is given"},
    {"satadjst raise", "satadjst", 1, "", "satadjust", "unknown operation 'satadjst'"},
    {"gray : : quite : gray", "quite", 2, "", "", "unknown operation 'quite'"},
    {"gray : \"sat adjust\" raise", "\"sat adjust\"", 2, "", "satadjust", "'sat adjust'"},
    {"gray:zoom percent=50", "gray:zoom", 1, "", "", "colon"},
    {"GRAY", "GRAY", 1, "", "", "unknown"},
    {"satadjust", "", 1, "satadjust", "", "--mode"},
    {"gray : satadjust : gray", "", 2, "satadjust", "", "missing"},
    {"satadjust rais", "rais", 1, "satadjust", "raise", "'rais'"},
    {"satadjust mode=rais", "mode=rais", 1, "satadjust", "raise", "'rais'"},
    {"satadjust raise lower", "lower", 1, "satadjust", "", "twice"},
    {"rotate cw turn=ccw", "turn=ccw", 1, "rotate", "", "twice"},
    {"satadjust moed=raise", "moed=raise", 1, "satadjust", "mode", "'moed'"},
    {"shift 1", "1", 1, "shift", "", "'1'"},
    {"shift sizze=1x1", "sizze=1x1", 1, "shift", "size", "'sizze'"},
    {"shift x", "x", 1, "shift", "", "needs a value"},
    {"hueadjust mirror=1", "mirror=1", 1, "hueadjust", "", "takes no value"},
    {"gray sepia", "sepia", 1, "gray", "", "'sepia'"},
    {"shift x=1.5", "x=1.5", 1, "shift", "", "'1.5'"},
    {"shift x=+1", "x=+1", 1, "shift", "", "'+1'"},
    {"shift x=", "x=", 1, "shift", "", "''"},
    {"shift x=-2147483648", "x=-2147483648", 1, "shift", "", "out of range"},
    {"shift x=99999999999999999999", "x=99999999999999999999", 1, "shift", "", "out of range"},
    {"shift size=0x5", "size=0x5", 1, "shift", "", "'0'"},
    {"shift size=5", "size=5", 1, "shift", "", "too short"},
    {"shift size=5x5x5", "size=5x5x5", 1, "shift", "", "'5x5'"},
    {"shift fill=whit", "fill=whit", 1, "shift", "white", "'whit'"},
    {"expgamma gain=65536", "gain=65536", 1, "expgamma", "", "0..65535"},
    {"colbalance level=5,5,5", "level=5,5,5", 1, "colbalance", "", "too short"},
    {"colbalance level=5,5,5,12", "level=5,5,5,12", 1, "colbalance", "", "'12'"},
    {"binconv color=6", "color=6", 1, "binconv", "", "0..5"},
    {"zoom percent=0", "percent=0", 1, "zoom", "", "0.1..100"},
    {"zoom percent=100.1", "percent=100.1", 1, "zoom", "", "out of range"},
    {"zoom percent=33.33", "percent=33.33", 1, "zoom", "", "decimal"},
    {"zoom percent=nan", "percent=nan", 1, "zoom", "", "'nan'"},
    {"zoom percent=1e1", "percent=1e1", 1, "zoom", "", "'1e1'"},
    {"zoom x=1001", "x=1001", 1, "zoom", "", "1..1000"},
    {"colgamma gamma=0.05", "gamma=0.05", 1, "colgamma", "", "0.05"},
    {"colgamma gamma=", "gamma=", 1, "colgamma", "", "''"},
    {"hueadjust rotate=361", "rotate=361", 1, "hueadjust", "", "361"},
    // Files are not allowed, nor images where no function reads them.
    {"colgamma curve.txt", "curve.txt", 1, "colgamma", "", "not allowed"},
    {"colgamma ./invert", "./invert", 1, "colgamma", "invert", "not allowed"},
    {"colgamma inverrt", "inverrt", 1, "colgamma", "invert", "not allowed"},
    {"hueadjust matrix=serpia", "matrix=serpia", 1, "hueadjust", "sepia", "not allowed"},
    {"gray : overlay logo.ppm", "logo.ppm", 2, "overlay", "", "not allowed"},
    // A value without its name is close to names of switches only.
    {"overlay a", "a", 1, "overlay", "", "not allowed"},
    {"overlay whte logo.ppm", "whte", 1, "overlay", "white", "'whte'"},
    {"overlay a=1,2", "a=1,2", 1, "overlay", "at", "'a'"},
    // Several lines, comments and quotes before the wrong word.
    {"satadjust raise\n# to : gray\n\n  shift x=1 # far\n\trotate cww\ngray", "cww", 3, "rotate",
     "cw", "'cww'"},
    {"shift 'x'=\"1\" y='2' : shift 'y=z'", "'y=z'", 2, "shift", "", "'z'"},
    {"shift x=\"1 2\"", "x=\"1 2\"", 1, "shift", "", "'1 2'"},
    {"gray : zoom \"percent=5", "\"percent=5", 2, "zoom", "", "not closed"},
    {"gray\n'", "'", 2, "", "", "not closed"},
    // Without blanks.
    {"gray:zoom,percent=0", "percent=0", 2, "zoom", "", "out of range"},
    {"colbalance,level=6,5,4,55", "level=6,5,4,55", 1, "colbalance", "", "'55'"},
    {"gray:rotte,cw", "rotte", 2, "", "rotate", "'rotte'"},
    {"shift,x=1,'y=2", "'y=2", 1, "", "", "not closed"},
};
INSTANTIATE_TEST_SUITE_P(All, WrongTexts, testing::ValuesIn(kWrongTexts));

TEST(Errors, ParametersThatAreMissingArePlacedAtTheEndOfTheirStep) {
  for (const auto& [text, place] :
       std::vector<std::pair<std::string, uint32_t>>{{"satadjust", 9},
                                                     {"satadjust  ", 9},
                                                     {"shift\n", 5},
                                                     {"gray : satadjust : gray", 16},
                                                     {"gray:satadjust:gray", 14},
                                                     {"satadjust # mode\n\ngray", 9},
                                                     {"overlay at=1,2 : gray", 14}}) {
    RastChainError error = scribbled();
    EXPECT_EQ(openChain(text, nullptr, &error), nullptr);
    EXPECT_EQ(error.nBegin, place) << text;
    EXPECT_EQ(error.nEnd, place) << text;
  }
}

TEST(Errors, LongTextsAreCutBetweenCharacters) {
  for (size_t shift = 0; shift < 4; ++shift) {
    std::string word(shift, 'x');
    for (int i = 0; i < 500; ++i) word += "\xE2\x82\xAC";
    for (const std::string& text : {word, "colgamma " + word, "shift size=" + word}) {
      RastChainError error = scribbled();
      EXPECT_EQ(openChain(text, nullptr, &error), nullptr);
      EXPECT_EQ(strnlen(error.sMessage, sizeof error.sMessage), strlen(error.sMessage));
      EXPECT_LT(strlen(error.sMessage), sizeof error.sMessage);
      EXPECT_TRUE(isUtf8(error.sMessage)) << error.sMessage;
      EXPECT_STREQ(error.sSuggestion, "");
      EXPECT_EQ(error.nEnd, text.size());
    }
  }
}

TEST(Errors, AHundredStepsAreTheMost) {
  std::string text = "gray";
  for (int i = 1; i < 100; ++i) text += " : gray";
  const ChainPointer chain = openChain(text);
  ASSERT_NE(chain, nullptr);
  Random random(1);
  const Picture in = randomPicture(9, 9, 1, random);
  EXPECT_EQ(runPage(chain.get(), in, Feed(), random).picture, in);
  RastChainError error = {};
  EXPECT_EQ(openChain(text + " : gray", nullptr, &error), nullptr);
  EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_TEXT});
  EXPECT_EQ(error.nStep, 101U);
}

TEST(Errors, FilesOfCurvesAndMatricesAreReadWhereTheyAreAllowed) {
  char path[] = "/tmp/chain-curve-XXXXXX";
  const int file = mkstemp(path);
  ASSERT_GE(file, 0);
  std::string numbers;
  for (int i = 0; i < 256; ++i) numbers += std::to_string(i / 2) + (i % 8 == 7 ? "\n" : ", ");
  ASSERT_EQ(write(file, numbers.data(), numbers.size()), std::ssize(numbers));
  RastChainSettings settings = {};
  settings.nSize = sizeof settings;
  RastChainError error = {};
  const std::string text = std::string("colgamma ") + path;
  EXPECT_EQ(openChain(text, &settings, &error), nullptr);
  EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_TEXT});
  settings.nFiles = 1;
  const ChainPointer chain = openChain(text, &settings, &error);
  ASSERT_NE(chain, nullptr) << error.sMessage;
  Random random(1);
  const Picture in = randomPicture(20, 20, 3, random);
  Picture halved = in;
  for (Plane& plane : halved.planes) {
    for (uint8_t& sample : plane) sample /= 2;
  }
  EXPECT_EQ(runPage(chain.get(), in, Feed(), random).picture, halved);

  ASSERT_EQ(write(file, "3x", 2), 2);
  EXPECT_EQ(openChain(text, &settings, &error), nullptr);
  EXPECT_THAT(error.sMessage, HasSubstr("line 33"));
  EXPECT_EQ(ftruncate(file, 10), 0);
  EXPECT_EQ(openChain(text, &settings, &error), nullptr);
  EXPECT_THAT(error.sMessage, HasSubstr("expected 256"));
  close(file);
  unlink(path);
  EXPECT_EQ(openChain(text, &settings, &error), nullptr);
  EXPECT_EQ(text.substr(error.nBegin, error.nEnd - error.nBegin), path);
  EXPECT_EQ(openChain("colgamma inverrt", &settings, &error), nullptr);
  EXPECT_STREQ(error.sSuggestion, "invert");
}

TEST(Errors, NullPointersAreRejected) {
  RastChainError error = scribbled();
  const auto expectUse = [&error](uint32_t code) {
    EXPECT_EQ(code, uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(error.nStep, 0U);
    EXPECT_EQ(error.nBegin, error.nEnd);
    EXPECT_STRNE(error.sMessage, "");
    error = scribbled();
  };
  RastChain* chain = reinterpret_cast<RastChain*>(1);
  expectUse(rastChainOpen(nullptr, nullptr, &chain, &error));
  EXPECT_EQ(chain, nullptr);
  expectUse(rastChainOpen("gray", nullptr, nullptr, &error));
  EXPECT_EQ(rastChainOpen(nullptr, nullptr, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_USE});

  const ChainPointer owner = openChain("gray");
  chain = owner.get();
  const RastChainPage page = Picture(2, 2, 1).page();
  RastChainPage out = {};
  expectUse(rastChainPlan(nullptr, &page, &out, &error));
  expectUse(rastChainPlan(chain, nullptr, &out, &error));
  expectUse(rastChainBegin(nullptr, &page, &out, &error));
  expectUse(rastChainBegin(chain, nullptr, &out, &error));
  RastChainLines lines = {};
  expectUse(rastChainRun(nullptr, &lines, &lines, &error));
  expectUse(rastChainWrite(nullptr, &lines, &error));
  ASSERT_EQ(rastChainBegin(chain, &page, &out, &error), RAST_CHAIN_OK);
  EXPECT_EQ(rastChainRun(chain, nullptr, nullptr, &error), RAST_CHAIN_OK);
  expectUse(rastChainWrite(chain, nullptr, &error));
  expectUse(rastChainWrite(chain, &lines, &error));
  ASSERT_EQ(rastChainBegin(chain, &page, &out, &error), RAST_CHAIN_OK);
  expectUse(rastChainBegin(chain, nullptr, &out, &error));
  expectUse(rastChainRun(chain, nullptr, nullptr, &error));
  rastChainAbandon(nullptr);
  rastChainClose(nullptr);
  EXPECT_EQ(rastChainImageBegin(nullptr, &page), uint32_t{RAST_CHAIN_ERR_USE});
  EXPECT_EQ(rastChainImageLines(nullptr, &lines), uint32_t{RAST_CHAIN_ERR_USE});
}

TEST(Errors, PagesOfNoSizeOrKindAreRejected) {
  const ChainPointer chain = openChain("gray");
  for (const auto& [width, height, components] :
       std::vector<std::array<uint32_t, 3>>{{0, 5, 1},
                                            {5, 0, 1},
                                            {5, 5, 0},
                                            {5, 5, 2},
                                            {5, 5, 5},
                                            {5, 5, UINT32_MAX},
                                            {0x80000000, 5, 1},
                                            {5, 0x80000000, 1},
                                            {UINT32_MAX, UINT32_MAX, 3}}) {
    RastChainPage page = {};
    page.nWidth = width;
    page.nHeight = height;
    page.nComponents = components;
    RastChainPage out = {};
    RastChainError error = scribbled();
    EXPECT_EQ(rastChainPlan(chain.get(), &page, &out, &error), uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(rastChainBegin(chain.get(), &page, &out, &error), uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(rastChainRun(chain.get(), nullptr, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_USE});
  }
}

struct WrongPage {
  const char* text;
  uint32_t width;
  uint32_t height;
  uint32_t components;
  uint32_t code;
  uint32_t step;
  const char* operation;
  const char* message;
};

std::ostream& operator<<(std::ostream& stream, const WrongPage& wrong) {
  return stream << wrong.text << ", " << wrong.width << " x " << wrong.height << " x "
                << wrong.components;
}

class WrongPages : public testing::TestWithParam<WrongPage> {};

TEST_P(WrongPages, AreReportedByPlanAndBegin) {
  const auto& [text, width, height, components, code, step, operation, message] = GetParam();
  ImageSource image;
  image.picture = overlayImage(components == 1 ? 3 : 1);
  const RastChainSettings settings = settingsFor(image);
  const ChainPointer chain = openChain(text, &settings);
  ASSERT_NE(chain, nullptr);
  RastChainPage page = {};
  page.nWidth = width;
  page.nHeight = height;
  page.nComponents = components;
  for (const auto call : {rastChainPlan, rastChainBegin}) {
    RastChainPage out = {};
    RastChainError error = scribbled();
    EXPECT_EQ(call(chain.get(), &page, &out, &error), code);
    EXPECT_EQ(error.nCode, code);
    EXPECT_EQ(error.nStep, step);
    EXPECT_STREQ(error.sOperation, operation);
    EXPECT_STREQ(error.sSuggestion, std::string(operation) == "expgamma" ? "gray" : "");
    EXPECT_THAT(error.sMessage, HasSubstr(message));
    EXPECT_EQ(call(chain.get(), &page, &out, nullptr), code);
  }
}

constexpr WrongPage kWrongPages[] = {
    {"satadjust raise", 5, 5, 1, RAST_CHAIN_ERR_UNSUPPORTED, 1, "satadjust", "gray"},
    {"colgamma invert : binconv", 5, 5, 4, RAST_CHAIN_ERR_UNSUPPORTED, 2, "binconv", "CMYK"},
    {"expgamma gain=9", 5, 5, 3, RAST_CHAIN_ERR_UNSUPPORTED, 1, "expgamma", "gray"},
    {"gray : colbalance curve=1", 5, 5, 3, RAST_CHAIN_ERR_UNSUPPORTED, 2, "colbalance", "gray"},
    {"hueadjust sepia", 5, 5, 4, RAST_CHAIN_ERR_UNSUPPORTED, 1, "hueadjust", "CMYK"},
    {"gray", 5, 5, 4, RAST_CHAIN_ERR_UNSUPPORTED, 1, "gray", "CMYK"},
    {"overlayrgb logo.ppm", 5, 5, 4, RAST_CHAIN_ERR_UNSUPPORTED, 1, "overlayrgb", "CMYK"},
    {"overlay logo.ppm", 5, 5, 3, RAST_CHAIN_ERR_UNSUPPORTED, 1, "overlay", "logo.ppm"},
    {"overlay logo.ppm", 5, 5, 1, RAST_CHAIN_ERR_UNSUPPORTED, 1, "overlay", "logo.ppm"},
    {"rotate cw : shift x=6", 9, 5, 1, RAST_CHAIN_ERR_PAGE, 2, "shift", "5"},
    {"shift y=10", 9, 9, 1, RAST_CHAIN_ERR_PAGE, 1, "shift", "9"},
    {"shift y=-1", 9, 9, 1, RAST_CHAIN_ERR_PAGE, 1, "shift", "y"},
    {"shift x=-1 y=1", 9, 9, 1, RAST_CHAIN_ERR_PAGE, 1, "shift", "y"},
    {"shift x=-9", 9, 9, 1, RAST_CHAIN_ERR_PAGE, 1, "shift", "9"},
    {"shift x=-1 y=-9", 9, 9, 1, RAST_CHAIN_ERR_PAGE, 1, "shift", "9"},
    {"shift x=-1 size=7x9", 9, 9, 1, RAST_CHAIN_ERR_PAGE, 1, "shift", "8"},
    {"shift x=-1 size=9x8", 9, 9, 1, RAST_CHAIN_ERR_PAGE, 1, "shift", "9"},
    {"shift x=2147483647 size=2147483647x1", 9, 1, 1, RAST_CHAIN_ERR_PAGE, 1, "shift",
     "2147483647"},
    // Pages that no temporary file may hold are known before any line goes in.
    {"rotate cw", 65536, 32768, 1, RAST_CHAIN_ERR_UNSUPPORTED, 1, "rotate", "too large"},
    {"gray : rotate cw", 2147483647, 2, 1, RAST_CHAIN_ERR_UNSUPPORTED, 2, "rotate", "too large"},
};
INSTANTIATE_TEST_SUITE_P(All, WrongPages, testing::ValuesIn(kWrongPages));

TEST(Errors, OverlaysOfPagesThatAreTooLargeAreKnownBefore) {
  ImageSource image;
  image.picture = overlayImage(1);
  const RastChainSettings settings = settingsFor(image);
  for (const char* text :
       {"overlay logo.ppm", "shift size=9x9 : overlay logo.ppm size=65536x65536"}) {
    const ChainPointer chain = openChain(text, &settings);
    RastChainPage page = {};
    page.nWidth = page.nHeight = 65536;
    page.nComponents = 1;
    for (const auto call : {rastChainPlan, rastChainBegin}) {
      RastChainPage out = {};
      EXPECT_EQ(call(chain.get(), &page, &out, nullptr), uint32_t{RAST_CHAIN_ERR_UNSUPPORTED});
    }
  }
}

/// Calls that are wrong inside a page of 6 x 4 RGB.
struct WrongCall {
  const char* name;
  void (*bend)(RastChainLines& in, RastChainLines& out);
  bool ofRoom = false;  // which rastChainWrite does not get
};

std::ostream& operator<<(std::ostream& stream, const WrongCall& wrong) {
  return stream << wrong.name;
}

class WrongCalls : public testing::TestWithParam<WrongCall> {};

TEST_P(WrongCalls, EndThePageAndNotTheChain) {
  Received received;
  RastChainSettings settings = {};
  settings.nSize = sizeof settings;
  settings.pUser = &received;
  settings.pWriteLines = receiveLines;
  const ChainPointer chain = openChain("satadjust raise : gray : zoom y=500", &settings);
  Random random(1);
  const Picture in = randomPicture(6, 4, 3, random);
  const Sheet sheetIn = sheetOf(in, Layout());
  const RastChainPage page = in.page();
  const Outcome expected = runPage(chain.get(), in, Feed(), random);
  ASSERT_EQ(expected.code, RAST_CHAIN_DONE);
  for (const bool writes : {false, true}) {
    RastChainPage out = {};
    ASSERT_EQ(rastChainBegin(chain.get(), &page, &out, nullptr), RAST_CHAIN_OK);
    received.page = out;
    received.picture = Picture(out.nWidth, out.nHeight, 1);
    const Sheet sheetOut(out.nWidth, out.nHeight, 1, Layout());
    RastChainLines linesIn = sheetIn.lines(0, 3);
    RastChainLines linesOut = sheetOut.lines(0, 2);
    GetParam().bend(linesIn, linesOut);
    if (writes && GetParam().ofRoom) continue;
    RastChainError error = scribbled();
    const uint32_t code = writes ? rastChainWrite(chain.get(), &linesIn, &error)
                                 : rastChainRun(chain.get(), &linesIn, &linesOut, &error);
    EXPECT_EQ(code, uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_STRNE(error.sMessage, "");
    // The page is over.
    linesIn = sheetIn.lines(0, 1);
    EXPECT_EQ(rastChainRun(chain.get(), &linesIn, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(linesIn.nCount, 1U);
    const Outcome again = runPage(chain.get(), in, Feed(), random);
    EXPECT_EQ(again.code, RAST_CHAIN_DONE);
    EXPECT_EQ(again.picture, expected.picture);
  }
}

constexpr WrongCall kWrongCalls[] = {
    {"too many lines", [](RastChainLines& in, RastChainLines&) { in.nCount = 5; }},
    {"far too many lines", [](RastChainLines& in, RastChainLines&) { in.nCount = UINT32_MAX; }},
    {"no plane", [](RastChainLines& in, RastChainLines&) { in.pPlane[0] = nullptr; }},
    {"a plane is missing", [](RastChainLines& in, RastChainLines&) { in.nPlanar = 1; }},
    {"lines overlap", [](RastChainLines& in, RastChainLines&) { in.nPitch = 17; }},
    {"lines overlap upwards", [](RastChainLines& in, RastChainLines&) { in.nPitch = -17; }},
    {"no pitch", [](RastChainLines& in, RastChainLines&) { in.nPitch = 0; }},
    {"the smallest pitch", [](RastChainLines& in, RastChainLines&) { in.nPitch = PTRDIFF_MIN; }},
    {"the smallest pitch of one line",
     [](RastChainLines& in, RastChainLines&) { in.nCount = 1, in.nPitch = PTRDIFF_MIN; }},
    {"lines beyond all addresses",
     [](RastChainLines& in, RastChainLines&) { in.nPitch = PTRDIFF_MAX / 3 + 1; }},
    {"lines before all addresses",
     [](RastChainLines& in, RastChainLines&) { in.nPitch = PTRDIFF_MIN / 2; }},
    {"room beyond all addresses",
     [](RastChainLines&, RastChainLines& out) { out.nPitch = PTRDIFF_MAX / 2 + 1; }, true},
    {"no room", [](RastChainLines&, RastChainLines& out) { out.pPlane[0] = nullptr; }, true},
    {"room overlaps", [](RastChainLines&, RastChainLines& out) { out.nPitch = 5; }, true},
};
INSTANTIATE_TEST_SUITE_P(All, WrongCalls, testing::ValuesIn(kWrongCalls));

TEST(Errors, OneLineMayHaveAnyPitch) {
  const ChainPointer chain = openChain("colgamma invert");
  for (const ptrdiff_t pitch : {0, 1, -1, -100}) {
    RastChainPage page = Picture(4, 1, 1).page();
    ASSERT_EQ(rastChainBegin(chain.get(), &page, &page, nullptr), RAST_CHAIN_OK);
    uint8_t samples[4] = {1, 2, 3, 4};
    uint8_t result[4] = {};
    RastChainLines in = {{samples}, pitch, 1, 0};
    RastChainLines out = {{result}, pitch, 1, 0};
    EXPECT_EQ(rastChainRun(chain.get(), &in, &out, nullptr), RAST_CHAIN_DONE);
    EXPECT_EQ(result[3], 251);
  }
}

TEST(Errors, InterleavedLinesLieInTheFirstPlaneAlone) {
  const ChainPointer chain = openChain("satadjust raise");
  Random random(1);
  const Picture in = randomPicture(5, 4, 3, random);
  const Sheet sheet = sheetOf(in, Layout());
  Sheet result(5, 4, 3, Layout());
  const RastChainPage page = in.page();
  ASSERT_EQ(rastChainBegin(chain.get(), &page, nullptr, nullptr), RAST_CHAIN_OK);
  RastChainLines linesIn = sheet.lines(0, 4);
  RastChainLines linesOut = result.lines(0, 4);
  auto* const wild = reinterpret_cast<uint8_t*>(UINTPTR_MAX - 3);
  for (size_t c = 1; c < 4; ++c) linesIn.pPlane[c] = linesOut.pPlane[c] = wild;
  EXPECT_EQ(rastChainRun(chain.get(), &linesIn, &linesOut, nullptr), RAST_CHAIN_DONE);
  for (size_t c = 1; c < 4; ++c) {
    EXPECT_EQ(linesIn.pPlane[c], wild);
    EXPECT_EQ(linesOut.pPlane[c], wild);
  }
}

TEST(Errors, CallsOutsideOfAPageAreRejected) {
  Received received;
  RastChainSettings settings = {};
  settings.pUser = &received;
  settings.pWriteLines = receiveLines;
  const ChainPointer chain = openChain("gray", &settings);
  Random random(1);
  const Picture in = randomPicture(5, 4, 1, random);
  const Sheet sheet = sheetOf(in, Layout());
  const auto expectNoPage = [&] {
    RastChainLines lines = sheet.lines(0, 1);
    RastChainError error = scribbled();
    EXPECT_EQ(rastChainRun(chain.get(), &lines, nullptr, &error), uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(rastChainWrite(chain.get(), &lines, &error), uint32_t{RAST_CHAIN_ERR_USE});
    EXPECT_EQ(lines.nCount, 1U);
  };
  expectNoPage();
  rastChainAbandon(chain.get());
  expectNoPage();
  EXPECT_EQ(runPage(chain.get(), in, Feed(), random).code, RAST_CHAIN_DONE);
  expectNoPage();
  Feed feed;
  feed.writes = true;
  EXPECT_EQ(runPage(chain.get(), in, feed, random, &received).code, RAST_CHAIN_DONE);
  expectNoPage();
  const RastChainPage page = in.page();
  ASSERT_EQ(rastChainBegin(chain.get(), &page, nullptr, nullptr), RAST_CHAIN_OK);
  rastChainAbandon(chain.get());
  expectNoPage();
}

TEST(Errors, PlansDoNotTouchThePageInWork) {
  const ChainPointer chain = openChain("colgamma invert : rotate cw : zoom y=500");
  Random random(1);
  const Picture in = randomPicture(12, 9, 3, random);
  const Outcome expected = runPage(chain.get(), in, Feed(), random);
  const Sheet sheet = sheetOf(in, Layout());
  Sheet result(expected.page.nWidth, expected.page.nHeight, 3, Layout());
  const RastChainPage page = in.page();
  ASSERT_EQ(rastChainBegin(chain.get(), &page, nullptr, nullptr), RAST_CHAIN_OK);
  RastChainLines linesIn = sheet.lines(0, 9);
  uint32_t code = RAST_CHAIN_OK;
  for (uint32_t line = 0; line < expected.page.nHeight; ++line) {
    RastChainPage other = Picture(30 - line, 1 + line, 1 + 2 * (line % 2)).page();
    RastChainPage out = {};
    EXPECT_EQ(rastChainPlan(chain.get(), &other, &out, nullptr), RAST_CHAIN_OK);
    other.nWidth = 0;
    EXPECT_EQ(rastChainPlan(chain.get(), &other, &out, nullptr), uint32_t{RAST_CHAIN_ERR_USE});
    other.nWidth = 65536;
    other.nHeight = 65536;
    EXPECT_NE(rastChainPlan(chain.get(), &other, &out, nullptr), RAST_CHAIN_OK);
    RastChainLines linesOut = result.lines(line, 1);
    code = rastChainRun(chain.get(), &linesIn, &linesOut, nullptr);
  }
  EXPECT_EQ(code, RAST_CHAIN_DONE);
  EXPECT_EQ(pictureOf(result, expected.page), expected.picture);
}

TEST(Errors, AReceiverThatFailsEndsThePage) {
  Received received;
  RastChainSettings settings = {};
  settings.nLines = 1;
  settings.pUser = &received;
  settings.pWriteLines = receiveLines;
  const ChainPointer chain = openChain("colgamma invert", &settings);
  Random random(1);
  const Picture in = randomPicture(5, 6, 3, random);
  Feed feed;
  feed.writes = true;
  const Outcome expected = runPage(chain.get(), in, feed, random, &received);
  ASSERT_EQ(expected.code, RAST_CHAIN_DONE);
  const uint32_t calls = received.calls;
  EXPECT_EQ(calls, 6U);
  for (uint32_t i = 0; i < calls; ++i) {
    received.failingCall = i;
    const Outcome failed = runPage(chain.get(), in, feed, random, &received);
    EXPECT_EQ(failed.code, uint32_t{RAST_CHAIN_ERR_CALLER});
    EXPECT_EQ(failed.error.nCode, uint32_t{RAST_CHAIN_ERR_CALLER});
    EXPECT_EQ(received.calls, i + 1) << "none after the one that failed";
    EXPECT_EQ(rastChainRun(chain.get(), nullptr, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_USE});
    received.failingCall = UINT32_MAX;
    EXPECT_EQ(runPage(chain.get(), in, feed, random, &received).picture, expected.picture);
  }
}

TEST(Errors, ShorterSettingsMeanZeroForTheRest) {
  // As of a caller who knows no member after nLines.
  struct {
    size_t size;
    uint64_t memory;
    uint32_t lines;
    uint8_t rest[sizeof(RastChainSettings)];
  } shorter = {offsetof(RastChainSettings, nGray), 12, 0, {}};
  memset(shorter.rest, 0xFF, sizeof shorter.rest);
  const ChainPointer chain =
      openChain("satadjust raise", reinterpret_cast<const RastChainSettings*>(&shorter));
  ASSERT_NE(chain, nullptr);
  RastChainPage page = Picture(5, 4, 3).page();
  EXPECT_EQ(rastChainBegin(chain.get(), &page, &page, nullptr), uint32_t{RAST_CHAIN_ERR_MEMORY});
  page.nMemory = 1000;
  EXPECT_EQ(rastChainBegin(chain.get(), &page, &page, nullptr), RAST_CHAIN_OK);
  // And of one who knows more.
  struct {
    RastChainSettings known;
    uint8_t rest[64];
  } longer = {};
  longer.known.nSize = sizeof longer;
  memset(longer.rest, 0xFF, sizeof longer.rest);
  EXPECT_NE(openChain("gray", &longer.known), nullptr);
  // No member fits.
  longer.known.nSize = 1;
  longer.known.nMemory = 1;
  const ChainPointer plain = openChain("satadjust raise", &longer.known);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(rastChainBegin(plain.get(), &page, &page, nullptr), RAST_CHAIN_OK);
}

TEST(Errors, RoomMayBeMoreThanThePageNeeds) {
  const ChainPointer chain = openChain("colgamma invert");
  RastChainPage page = Picture(4, 2, 1).page();
  ASSERT_EQ(rastChainBegin(chain.get(), &page, &page, nullptr), RAST_CHAIN_OK);
  uint8_t samples[8] = {};
  uint8_t result[8] = {};
  RastChainLines in = {{samples}, 4, 2, 0};
  RastChainLines out = {{result}, 4, UINT32_MAX, 0};
  EXPECT_EQ(rastChainRun(chain.get(), &in, &out, nullptr), RAST_CHAIN_DONE);
  EXPECT_EQ(result[7], 255);
  EXPECT_EQ(out.nCount, UINT32_MAX - 2);
}

TEST(Errors, SettingsAndNamesAreCopied) {
  Random random(1);
  ImageSource image;
  image.picture = overlayImage(3);
  auto settings = std::make_unique<RastChainSettings>();
  std::string folder = quickFolder() != nullptr ? quickFolder() : "/tmp";
  settings->nSize = sizeof *settings;
  settings->pFolder = folder.c_str();
  settings->pUser = &image;
  settings->pReadImage = readImageOnly;
  auto text = std::make_unique<std::string>("overlay 'a name' at=1,1 flatten=white");
  const ChainPointer chain = openChain(*text, settings.get());
  text.reset();
  settings.reset();
  folder.assign(folder.size(), '?');
  const Picture in = randomPicture(12, 9, 3, random);
  EXPECT_EQ(runPage(chain.get(), in, Feed(), random).code, RAST_CHAIN_DONE);
  EXPECT_EQ(image.name, "a name");
  EXPECT_EQ(image.background, 255);
}

}  // namespace
}  // namespace rast::test
