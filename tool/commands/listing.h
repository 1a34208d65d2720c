// Tells what operations there are.
#ifndef RAST_TOOL_LISTING_H
#define RAST_TOOL_LISTING_H

#include <string>

#include "commands/command.h"
#include "formats/error.h"

// Name, summary and what pages it takes.
std::string headline(const Operation& operation);

ExitCode listOperations(const Job& job);

#endif
