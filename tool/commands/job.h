// A job: the request of a command line or a print queue.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "commands/engine.h"
#include "commands/pageList.h"
#include "text/error.h"
#include "formats/format.h"
#include "formats/memoryCap.h"
#include "formats/page.h"
#include "progress/progress.h"

namespace rast::tool {

struct Job {
  ExitCode (*carryOut)(const Job& job) = nullptr;
  std::string chainText;           // as an operand
  std::shared_ptr<Engine> engine;  // with the chain opened
  std::string inPath = "-";
  std::string otherPath = "-";  // of the stream to compare with
  std::string outPath = "-";    // of the picture of differences: empty if none is wanted
  const Format* format = nullptr;
  std::uint32_t bandLines = 0;  // 0: as many as are quick
  MemoryCap memory;
  PageList pages;
  Resolution resolution;    // of the pages that come in; where it is not known, their own
  bool mayBeEmpty = false;  // no pages at all
  bool json = false;
  bool stats = false;
  ProgressMode progress = ProgressMode::whenTerminal;
  std::string printOptions;  // of a job in a print queue, as the scheduler gives them
};

}  // namespace rast::tool
