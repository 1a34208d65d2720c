// The command as a filter of a print queue: CUPS raster in and out, a chain from the job or the
// PPD file.
#pragma once

#include "commands/job.h"

namespace rast::tool {

inline constexpr char kPrintFilterName[] = "rasttoraster";

// From the arguments that a scheduler gives to its filters.
Job printJob(int argc, char** argv);

}  // namespace rast::tool
