// The command line: what it asks for, and the help that describes it.
#ifndef RAST_TOOL_OPTIONS_H
#define RAST_TOOL_OPTIONS_H

#include <cstdint>
#include <string>

#include "chain.h"
#include "error.h"
#include "format.h"
#include "meter.h"
#include "page_list.h"

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
  bool toGray = false;  // before the chain
  bool json = false;
  bool stats = false;
  ProgressMode progress = ProgressMode::whenTerminal;
};

struct CommandLine {
  std::string text;  // to be printed instead of doing a job, unless empty
  Job job;
};

CommandLine parseCommandLine(int argc, char** argv);

#endif
