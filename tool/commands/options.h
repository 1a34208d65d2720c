// The command line: what it asks for.
#pragma once

#include <string>
#include <variant>

#include "commands/job.h"

namespace rast::tool {

// A job, or a text to be printed.
using CommandLine = std::variant<Job, std::string>;

CommandLine parseCommandLine(int argc, char** argv);

}  // namespace rast::tool
