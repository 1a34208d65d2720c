// The command line: what it asks for.
#ifndef RAST_TOOL_OPTIONS_H
#define RAST_TOOL_OPTIONS_H

#include <string>
#include <variant>

#include "commands/job.h"

// A job, or a text to be printed.
using CommandLine = std::variant<Job, std::string>;

CommandLine parseCommandLine(int argc, char** argv);

#endif
