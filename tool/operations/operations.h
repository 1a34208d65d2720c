// The table of operations: everything the command line knows about a filter of the library.
#ifndef RAST_TOOL_OPERATIONS_H
#define RAST_TOOL_OPERATIONS_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "operations/parameters.h"
#include "steps/step.h"

using Values = std::vector<Value>;  // in the order of Operation::parameters

enum class Takes { gray, colour, both };

struct Operation {
  const char* name;
  const char* summary;
  const char* details;
  std::span<const Parameter> parameters;
  const char* example;
  std::unique_ptr<Step> (*makeStep)(const Values& values);
  Takes takes;
  bool storesPages = false;     // not only bands of them
  bool needsParameter = false;  // any: without one it has nothing to do
};

std::span<const Operation> operations();

// Null when there is no such operation.
const Operation* findOperation(const std::string& name);

bool takesPage(const Operation& operation, bool colour);
const char* takenPages(const Operation& operation);

#endif
