// libFuzzer target for chains: a text, a page, and two divisions of it that must make no difference.
#include <rast_chain.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "pages.h"

namespace {

using namespace rast::test;

/// The number that follows in the input; 0 after its end.
class Numbers {
 public:
  Numbers(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint8_t next() { return at_ < size_ ? data_[at_++] : 0; }
  std::string rest() const { return {reinterpret_cast<const char*>(data_ + at_), size_ - at_}; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

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

[[noreturn]] void report(const std::string& text, const Feed& feed, const std::string& what) {
  std::cerr << text << '\n' << feed << '\n' << what << '\n';
  abort();
}

void checkError(const std::string& text, uint32_t code, const RastChainError& error) {
  const bool isSound =
      error.nCode == code && code >= RAST_CHAIN_ERR_TEXT && code <= RAST_CHAIN_ERR_USE &&
      error.nBegin <= error.nEnd && error.nEnd <= text.size() && error.sMessage[0] != '\0' &&
      strnlen(error.sMessage, sizeof error.sMessage) < sizeof error.sMessage && error.nStep <= 101;
  if (!isSound) report(text, Feed(), "an error record that makes no sense");
}

/// Pages so large that the work would take long are only planned.
bool isSmall(const RastChainPage& page) { return uint64_t{page.nWidth} * page.nHeight < 1 << 16; }

struct Made {
  uint32_t code = 0;
  Picture picture;
};

Made make(const std::string& text, const Picture& in, const Feed& feed, uint32_t lines,
          ImageSource::Fault fault, uint64_t seed) {
  User user;
  Random random(seed);
  Random ofImage(7);
  user.image.picture = randomPicture(5, 4, in.components(), ofImage);
  user.image.fault = fault;
  user.image.layout = feed.in;
  RastChainSettings settings = {};
  settings.nSize = sizeof settings;
  settings.nLines = lines;
  settings.nMemory = 1 << 24;
  settings.pFolder = quickFolder();
  settings.pUser = &user;
  settings.pReadImage = readFor;
  if (feed.writes) settings.pWriteLines = receiveFor;
  RastChain* chain = nullptr;
  RastChainError error = {};
  const uint32_t opened = rastChainOpen(text.c_str(), &settings, &chain, &error);
  const ChainPointer owner(chain);
  if ((opened == RAST_CHAIN_OK) != (chain != nullptr))
    report(text, feed, "neither chain nor error");
  if (opened != RAST_CHAIN_OK) {
    checkError(text, opened, error);
    return {opened, {}};
  }
  const RastChainPage page = in.page();
  RastChainPage planned = {};
  const uint32_t plan = rastChainPlan(chain, &page, &planned, &error);
  if (plan != RAST_CHAIN_OK) {
    checkError(text, plan, error);
    RastChainPage out = {};
    const uint32_t begun = rastChainBegin(chain, &page, &out, &error);
    if (begun == RAST_CHAIN_OK) report(text, feed, "begun and not planned");
    return {plan, {}};
  }
  if (!isSmall(planned)) return {plan, {}};
  const Outcome outcome =
      runPage(chain, in, feed, random, &user.received, random.oneIn(2) ? planned.nMemory : 0);
  if (!outcome.broken.empty()) report(text, feed, outcome.broken);
  if (outcome.code != RAST_CHAIN_DONE && outcome.code != RAST_CHAIN_ERR_MEMORY) {
    report(text, feed, std::string("planned and not made: ") + outcome.error.sMessage);
  }
  // Another page, abandoned somewhere.
  if (rastChainBegin(chain, &page, &planned, nullptr) == RAST_CHAIN_OK) {
    const Sheet sheet = sheetOf(in, feed.in);
    RastChainLines some = sheet.lines(0, feed.divisionIn.next(in.height, random));
    Sheet room(planned.nWidth, planned.nHeight, planned.nComponents, feed.out);
    RastChainLines taken = room.lines(0, feed.divisionOut.next(planned.nHeight, random));
    rastChainRun(chain, &some, &taken, nullptr);
  }
  return {outcome.code, outcome.picture};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Numbers numbers(data, size);
  Random random(numbers.next());
  constexpr uint32_t kKinds[] = {1, 3, 3, 4};
  const uint32_t components = kKinds[numbers.next() % 4];
  const uint32_t width = 1 + numbers.next() % 70;
  const uint32_t height = 1 + numbers.next() % 70;
  const Picture in = randomPicture(width, height, components, random);
  const Feed one = randomFeed(random);
  const Feed other = randomFeed(random);
  const uint8_t choice = numbers.next();
  constexpr uint32_t kLines[] = {0, 1, 7, 65536};
  const auto fault =
      choice % 16 == 15 ? static_cast<ImageSource::Fault>(choice / 16 % 7) : ImageSource::none;
  std::string text = numbers.rest();
  text.resize(std::min(text.size(), text.find('\0')));

  const Made first = make(text, in, one, kLines[choice % 4], fault, 1);
  const Made second = make(text, in, other, kLines[choice / 4 % 4], fault, 2);
  const bool hadMemory =
      first.code != RAST_CHAIN_ERR_MEMORY && second.code != RAST_CHAIN_ERR_MEMORY;
  if (hadMemory && first.code != second.code) report(text, other, "another result code");
  if (hadMemory && first.picture != second.picture) report(text, other, "another page");
  return 0;
}
