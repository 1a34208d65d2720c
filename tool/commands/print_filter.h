// The command as a filter of a print queue: CUPS raster in and out, a chain from the job or the
// PPD file.
#ifndef RAST_TOOL_PRINT_FILTER_H
#define RAST_TOOL_PRINT_FILTER_H

#include "commands/job.h"

inline constexpr char printFilterName[] = "rasttoraster";

// From the arguments that a scheduler gives to its filters.
Job printJob(int argc, char** argv);

#endif
