#include "progress/meter.h"

#include <sys/resource.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "files/file.h"
#include "text/printable.h"

namespace rast::tool {

namespace {

// In KiB. The figure of getrusage may be that of the program that started this one.
std::uint64_t peakMemory() {
  const File status(std::fopen("/proc/self/status", "re"));
  std::uint64_t peak = 0;
  for (char line[256]; status && std::fgets(line, sizeof line, status.get()) != nullptr;) {
    if (std::sscanf(line, "VmHWM: %" SCNu64, &peak) == 1) return peak;
  }
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss);
}

}  // namespace

Meter::Meter(ProgressMode mode, const Input& in, std::optional<std::uint64_t> pages)
    : in_(in),
      quiet_(mode == ProgressMode::never),
      progress_(makeProgress(mode)),
      expected_(pages) {}

void Meter::beginPage(std::uint32_t linesToRead) {
  ++pages_;
  before_ = in_.portion().value_or(0);
  toRead_ = linesToRead;
  toWrite_ = linesToRead;  // until the steps are known
  read_ = 0;
  written_ = 0;
  percent_ = -1;
}

void Meter::endPage(std::uint32_t copies) {
  shownAt_ = {};
  show();
  if (progress_) progress_->endPage(pages_, copies);
}

void Meter::linesRead(std::uint32_t lines, std::uint64_t bytes) {
  read_ += lines;
  bytesRead_ += bytes;
  show();
}

void Meter::linesWritten(std::uint32_t lines, std::uint64_t bytes) {
  written_ += lines;
  bytesWritten_ += bytes;
  show();
}

double Meter::partOfPage() const {
  return static_cast<double>(read_ + written_) / static_cast<double>(toRead_ + toWrite_);
}

// The part of the page that is read shows how much of the stream the whole page takes.
std::optional<double> Meter::partOfStream() const {
  const std::optional<double> now = in_.portion();
  if (!now || read_ == 0) return now;
  const double page = (*now - before_) * static_cast<double>(toRead_) / static_cast<double>(read_);
  return std::clamp(before_ + page * partOfPage(), 0.0, 1.0);
}

double Meter::megabytesPerSecond() const {
  return static_cast<double>(bytesRead_ + bytesWritten_) / 1e6 / secondsSoFar();
}

void Meter::show() {
  constexpr auto interval = std::chrono::milliseconds(100);
  if (!progress_) return;
  const auto now = Clock::now();
  if (now - shownAt_ < interval) return;
  const std::optional<double> ofStream = partOfStream();
  const double part = ofStream.value_or(partOfPage());
  const auto percent = static_cast<int>(part * 100);
  const auto percentOfPage = static_cast<int>(partOfPage() * 100);
  if (percent == percent_ && percentOfPage == percentOfPage_) return;
  percent_ = percent;
  percentOfPage_ = percentOfPage;
  shownAt_ = now;
  std::optional<std::chrono::seconds> left;
  if (ofStream && part > 0) {
    left = std::chrono::ceil<std::chrono::seconds>(Seconds(secondsSoFar() * (1 - part) / part));
  }
  progress_->show({pages_, expected_, percent, percentOfPage, megabytesPerSecond(), left});
}

void Meter::note(const std::string& text, const std::string& advice) const {
  if (progress_) {
    progress_->note(text, advice);
  } else if (!quiet_) {
    printError(join("rast: ", text, advice, '\n'));
  }
}

void Meter::end() {
  if (progress_) progress_->end(pages_);
}

void Meter::printFigures() const {
  const double all = secondsSoFar();
  printError(join("pages: ", pages_, "\nsample bytes: ", bytesRead_, " read, ", bytesWritten_,
                  " written\nseconds: ", fixed(all, 3), " in all, ", fixed(library_.count(), 3),
                  " in the library, ", fixed((files_ + output_).count(), 3),
                  " in files\npeak memory: ", peakMemory(), " KiB\n"));
}

}  // namespace rast::tool
