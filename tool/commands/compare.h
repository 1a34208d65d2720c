// Compares two streams, page by page and sample by sample.
#pragma once

#include "commands/job.h"
#include "text/error.h"

namespace rast::tool {

// Different when a page is not the same in both.
ExitCode compare(const Job& job);

}  // namespace rast::tool
