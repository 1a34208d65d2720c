// The command line: what it asks for, and the help that describes it.
#ifndef RAST_TOOL_OPTIONS_H
#define RAST_TOOL_OPTIONS_H

#include <cstdint>
#include <string>

#include "error.h"
#include "operations.h"
#include "page.h"
#include "page_list.h"

enum class ProgressMode { whenTerminal, always, never };

struct Job {
  ExitCode (*carryOut)(const Job& job) = nullptr;
  const Operation* operation = nullptr;  // null for commands that are none
  Values values;
  std::string inPath = "-";
  std::string otherPath = "-";  // of the stream to compare with
  std::string outPath = "-";    // of the picture of differences: empty if none is wanted
  Format format = Format::pnm;
  std::uint32_t bandLines = 64;
  PageList pages;
  bool toGray = false;
  bool json = false;
  ProgressMode progress = ProgressMode::whenTerminal;
};

struct CommandLine {
  std::string text;  // to be printed instead of doing a job, unless empty
  Job job;
};

CommandLine parseCommandLine(int argc, char** argv);

#endif
