// What a command line or a print queue asks for.
#ifndef RAST_TOOL_JOB_H
#define RAST_TOOL_JOB_H

#include <cstdint>
#include <string>

#include "commands/page_list.h"
#include "formats/error.h"
#include "formats/format.h"
#include "operations/chain.h"
#include "progress/meter.h"

struct Job {
  ExitCode (*carryOut)(const Job& job) = nullptr;
  Chain chain;
  std::string chainText;  // that it was parsed from, unless it is an operation alone
  std::string inPath = "-";
  std::string otherPath = "-";  // of the stream to compare with
  std::string outPath = "-";    // of the picture of differences: empty if none is wanted
  const Format* format = nullptr;
  std::uint32_t bandLines = 0;  // 0: as many as are quick
  std::uint64_t memory = defaultMemory;
  PageList pages;
  bool toGray = false;      // before the chain
  bool mayBeEmpty = false;  // no pages at all
  bool json = false;
  bool stats = false;
  ProgressMode progress = ProgressMode::whenTerminal;
  std::string printOptions;  // of a job in a print queue, as the scheduler gives them
};

#endif
