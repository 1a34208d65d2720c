// Tells what pages there are in a stream.
#ifndef RAST_TOOL_INFO_H
#define RAST_TOOL_INFO_H

#include "commands/job.h"
#include "formats/error.h"

ExitCode info(const Job& job);

#endif
