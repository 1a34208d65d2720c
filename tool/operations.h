// The table of operations: everything the command line knows about a filter of the library.
#ifndef RAST_TOOL_OPERATIONS_H
#define RAST_TOOL_OPERATIONS_H

#include <rast.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "parameters.h"

using Values = std::vector<Value>;  // in the order of Operation::parameters

// Applies an operation from the input planes of a band to its output planes, which lie apart;
// keeps what it needs from band to band.
using Filter = std::function<std::uint32_t(const RastArea&, const RastPlaneSet&)>;

enum class Takes { gray, colour, both };

struct Operation {
  const char* name;
  const char* summary;
  const char* details;
  Takes takes;
  std::span<const Parameter> parameters;
  const char* example;
  Filter (*makeFilter)(const Values& values);
};

std::span<const Operation> operations();

// Null when there is no such operation.
const Operation* findOperation(const std::string& name);

bool takesPage(const Operation& operation, bool colour);
const char* takenPages(const Operation& operation);

#endif
