// Compares two streams, page by page and sample by sample.
#ifndef RAST_TOOL_COMPARE_H
#define RAST_TOOL_COMPARE_H

#include "commands/job.h"
#include "formats/error.h"

// Different when a page is not the same in both.
ExitCode compare(const Job& job);

#endif
