// Lists the pages of a stream.
#pragma once

#include "commands/job.h"
#include "text/failure.h"

namespace rast::tool {

ExitCode info(const Job& job);

}  // namespace rast::tool
