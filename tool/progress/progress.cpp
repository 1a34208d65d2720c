#include "progress/progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

#include "text/json.h"
#include "text/printable.h"

namespace rast::tool {

namespace {

// One line that is written over, and wiped when the work ends.
class TerminalLine final : public Progress {
 public:
  TerminalLine() = default;
  ~TerminalLine() override { wipe(); }
  TerminalLine(const TerminalLine&) = delete;
  TerminalLine& operator=(const TerminalLine&) = delete;

  void show(const Standing& s) override {
    std::string line =
        join("page ", s.page, s.pages ? join(" of ", *s.pages) : "", ": ",
             alignedRight(join(s.percent), 3), "%, ", fixed(s.megabytesPerSecond, 0), " MB/s");
    if (s.left) line += join(", ", s.left->count(), " s left");
    const std::size_t length = line.size();
    if (length < length_) line.append(length_ - length, ' ');
    length_ = length;
    printError('\r' + line);
  }

  void note(const std::string& text, const std::string& advice) override {
    wipe();
    printError(join("rast: ", text, advice, '\n'));
  }

  void end(std::uint64_t pages) override {
    wipe();
    printError(join(pages, pages == 1 ? " page" : " pages", " done\n"));
  }

 private:
  void wipe() {
    if (length_ != 0) printError('\r' + std::string(length_, ' ') + '\r');
    length_ = 0;
  }

  std::size_t length_ = 0;
};

class JsonLines final : public Progress {
 public:
  void show(const Standing& s) override {
    JsonObject line;
    line.add("page", s.page);
    if (s.pages) line.add("pages", *s.pages);
    line.add("percent", s.percent).addRaw("megabytes_per_second", fixed(s.megabytesPerSecond, 1));
    if (s.left) line.add("seconds_left", s.left->count());
    print(line);
  }

  void note(const std::string& text, const std::string& advice) override {
    print(JsonObject().add("note", text + advice));
  }

  void end(std::uint64_t pages) override {
    print(JsonObject().add("done", true).add("pages", pages));
  }

 private:
  static void print(const JsonObject& line) { printError(line.text() + '\n'); }
};

// The messages by which a filter of a print queue tells the scheduler.
class QueueMessages final : public Progress {
 public:
  explicit QueueMessages(bool logsPages) : logsPages_(logsPages) {}

  void show(const Standing& s) override {
    printError(join("ATTR: job-media-progress=", s.percentOfPage, '\n'));
  }
  void endPage(std::uint64_t page, std::uint32_t copies) override {
    if (logsPages_) printError(join("PAGE: ", page, ' ', copies, '\n'));
  }
  void note(const std::string& text, const std::string& /*advice*/) override {
    printError(join("WARNING: ", text, '\n'));
  }
  void end(std::uint64_t pages) override {
    printError(pages == 0 ? "INFO: the job has no pages\n"
                          : join("DEBUG: pages done: ", pages, '\n'));
  }

 private:
  bool logsPages_;
};

}  // namespace

ProgressMode besideReport(ProgressMode mode) {
  const bool isShown = mode == ProgressMode::whenTerminal && isatty(STDOUT_FILENO) != 0;
  return isShown ? ProgressMode::never : mode;
}

void printError(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

std::unique_ptr<Progress> makeProgress(ProgressMode mode) {
  switch (mode) {
    case ProgressMode::whenTerminal:
      if (isatty(STDERR_FILENO) == 0) return nullptr;
      [[fallthrough]];
    case ProgressMode::always:
      return std::make_unique<TerminalLine>();
    case ProgressMode::json:
      return std::make_unique<JsonLines>();
    case ProgressMode::printQueue:
    case ProgressMode::printQueueUncounted:
      return std::make_unique<QueueMessages>(mode == ProgressMode::printQueue);
    case ProgressMode::never:
      break;
  }
  return nullptr;
}

}  // namespace rast::tool
