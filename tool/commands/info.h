// Lists the pages of a stream.
#pragma once

#include "commands/job.h"
#include "text/error.h"

namespace rast::tool {

ExitCode info(const Job& job);

}  // namespace rast::tool
