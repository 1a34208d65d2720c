// Carries out a job: every page of the input, band by band, through the filter to the output.
#ifndef RAST_TOOL_RUN_H
#define RAST_TOOL_RUN_H

#include "options.h"

void run(const Job& job);

#endif
