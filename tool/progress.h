// One line of progress on standard error, wiped when the work ends.
#ifndef RAST_TOOL_PROGRESS_H
#define RAST_TOOL_PROGRESS_H

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "options.h"

class Progress {
 public:
  explicit Progress(ProgressMode mode)
      : on_(mode == ProgressMode::always ||
            (mode == ProgressMode::whenTerminal && isatty(STDERR_FILENO) != 0)) {}
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", width, "");
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // A line that stays.
  void announce(std::uint64_t page, std::uint32_t width, std::uint32_t height) {
    if (!on_) return;
    std::fprintf(stderr, "%spage %llu: output of %lu x %lu pixels\n", shown_ ? "\r" : "",
                 static_cast<unsigned long long>(page), static_cast<unsigned long>(width),
                 static_cast<unsigned long>(height));
  }

  void show(std::uint64_t page, std::uint64_t done, std::uint64_t height) {
    const auto percent = static_cast<int>(done * 100 / height);
    if (!on_ || (page == page_ && percent == percent_)) return;
    page_ = page;
    percent_ = percent;
    shown_ = true;
    std::fprintf(stderr, "\rpage %llu: %3d%%", static_cast<unsigned long long>(page), percent);
  }

 private:
  static constexpr int width = 32;
  bool on_;
  bool shown_ = false;
  std::uint64_t page_ = 0;
  int percent_ = -1;
};

#endif
