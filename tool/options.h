// The command line: what it asks for, and the help that describes it.
#ifndef RAST_TOOL_OPTIONS_H
#define RAST_TOOL_OPTIONS_H

#include <cstdint>
#include <string>

#include "operations.h"
#include "page.h"

enum class ProgressMode { whenTerminal, always, never };

struct Job {
  const Operation* operation = nullptr;
  Values values;
  std::string inPath = "-";
  std::string outPath = "-";
  Format format = Format::pnm;
  std::uint32_t bandLines = 64;
  bool toGray = false;
  ProgressMode progress = ProgressMode::whenTerminal;
};

struct CommandLine {
  std::string text;  // to be printed instead of doing a job, unless empty
  Job job;
};

CommandLine parseCommandLine(int argc, char** argv);

#endif
