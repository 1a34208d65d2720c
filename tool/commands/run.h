// Runs a chain: the chosen pages of the input, band by band, into the output.
#pragma once

#include "commands/job.h"
#include "text/error.h"

namespace rast::tool {

ExitCode run(const Job& job);

}  // namespace rast::tool
