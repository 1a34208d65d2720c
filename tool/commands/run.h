// Carries out an operation: every chosen page of the input, band by band, through the filter to the
// output.
#pragma once

#include "commands/job.h"
#include "text/failure.h"

namespace rast::tool {

ExitCode run(const Job& job);

}  // namespace rast::tool
