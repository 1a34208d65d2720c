// Lists the operations.
#pragma once

#include <string>

#include "commands/job.h"
#include "operations/operations.h"
#include "text/error.h"

namespace rast::tool {

// Name, summary and the kinds of pages.
std::string headline(const chain::Operation& operation);

ExitCode listOperations(const Job& job);

}  // namespace rast::tool
