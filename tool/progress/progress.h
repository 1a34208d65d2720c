// Reports on standard error how far a job is.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace rast::tool {

enum class ProgressMode {
  whenTerminal,
  always,
  json,
  printQueue,           // messages to the scheduler, page log included
  printQueueUncounted,  // without, where another filter of the queue logs pages
  never,
};

struct Standing {
  std::uint64_t page;                  // of those worked on
  std::optional<std::uint64_t> pages;  // where it is known how many there will be
  int percent;                         // of all, or of this page where the whole is not known
  int percentOfPage;
  double megabytesPerSecond;
  std::optional<std::chrono::seconds> left;
};

class Progress {
 public:
  virtual ~Progress() = default;
  virtual void show(const Standing& standing) = 0;
  virtual void endPage(std::uint64_t /*page*/, std::uint32_t /*copies*/) {}
  // The advice is for command lines.
  virtual void note(const std::string& text, const std::string& advice) = 0;
  virtual void end(std::uint64_t pages) = 0;
};

// The mode of a job that writes a report: on a terminal, the report is progress enough.
ProgressMode besideReport(ProgressMode mode);

// In one write, so that lines of several programs do not mix.
void printError(const std::string& text);

// Null where none is to be shown.
std::unique_ptr<Progress> makeProgress(ProgressMode mode);

}  // namespace rast::tool
