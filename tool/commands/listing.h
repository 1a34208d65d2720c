// Tells what operations there are.
#pragma once

#include <string>

#include "commands/job.h"
#include "operations/operations.h"
#include "text/failure.h"

namespace rast::tool {

// Name, summary and what pages it takes.
std::string headline(const chain::Operation& operation);

ExitCode listOperations(const Job& job);

}  // namespace rast::tool
