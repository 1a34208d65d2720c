// Measures a job: reports progress while it runs, and figures at its end.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "files/input.h"
#include "progress/progress.h"

namespace rast::tool {

class Meter {
 public:
  // The number of pages that will be worked on, where it is known.
  Meter(ProgressMode mode, const Input& in, std::optional<std::uint64_t> pages);

  void beginPage(std::uint32_t linesToRead);
  // To be called as soon as the number is known; 0 where pages are only read.
  void beginOutput(std::uint32_t linesToWrite) { toWrite_ = linesToWrite; }
  void endPage(std::uint32_t copies);
  void linesRead(std::uint32_t lines, std::uint64_t bytes);
  void linesWritten(std::uint32_t lines, std::uint64_t bytes);

  // These return the result of the call and count its time as spent in the library or in files.
  // Another thread may write lines at the same time.
  template <class Call>
  auto inLibrary(const Call& call) {
    const Timed timed(library_);
    return call();
  }
  template <class Call>
  auto inFiles(const Call& call) {
    const Timed timed(files_);
    return call();
  }
  template <class Call>
  auto inOutput(const Call& call) {
    const Timed timed(output_);
    return call();
  }

  // Reports a fact that the user should know. The advice says what to do on a command line.
  void note(const std::string& text, const std::string& advice) const;

  void end();
  // On standard error.
  void printFigures() const;

 private:
  using Clock = std::chrono::steady_clock;
  using Seconds = std::chrono::duration<double>;

  class Timed {
   public:
    explicit Timed(Seconds& total) : total_(total) {}
    ~Timed() { total_ += Clock::now() - start_; }
    Timed(const Timed&) = delete;
    Timed& operator=(const Timed&) = delete;

   private:
    Seconds& total_;
    Clock::time_point start_ = Clock::now();
  };

  // Parts of the page, or of the whole stream where its size is known, that are done.
  double partOfPage() const;
  std::optional<double> partOfStream() const;
  double secondsSoFar() const { return Seconds(Clock::now() - start_).count(); }
  double megabytesPerSecond() const;
  void show();

  const Input& in_;
  bool quiet_;
  std::unique_ptr<Progress> progress_;  // null if none is shown
  std::optional<std::uint64_t> expected_;

  Clock::time_point start_ = Clock::now();
  Seconds library_ = Seconds(0);
  Seconds files_ = Seconds(0);
  Seconds output_ = Seconds(0);
  std::uint64_t pages_ = 0;
  std::uint64_t bytesRead_ = 0;
  std::uint64_t bytesWritten_ = 0;

  // State of the page in work.
  double before_ = 0;  // part of the stream
  std::uint64_t toRead_ = 0;
  std::uint64_t toWrite_ = 0;
  std::uint64_t read_ = 0;
  std::uint64_t written_ = 0;

  // Figures that were shown last.
  Clock::time_point shownAt_ = start_;
  int percent_ = -1;
  int percentOfPage_ = -1;
};

}  // namespace rast::tool
