// Carries out an operation: every chosen page of the input, band by band, through the filter to the
// output.
#ifndef RAST_TOOL_RUN_H
#define RAST_TOOL_RUN_H

#include "commands/job.h"
#include "formats/error.h"

ExitCode run(const Job& job);

#endif
