// Compares two streams, page by page and sample by sample.
#pragma once

#include "commands/job.h"
#include "text/failure.h"

namespace rast::tool {

// Different when a page is not the same in both.
ExitCode compare(const Job& job);

}  // namespace rast::tool
