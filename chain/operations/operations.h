// The operations: everything that callers, help and checks know about them.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "operations/parameters.h"
#include "steps/step.h"

namespace rast::chain {

using Values = std::vector<Value>;  // in the order of Operation::parameters

// Kinds of pages that an operation takes, by their components.
struct Takes {
  bool gray;
  bool color;
  bool cmyk;

  bool holds(std::uint32_t components) const {
    return components == 1 ? gray : components == 3 ? color : cmyk;
  }
};

struct Operation {
  const char* name;
  const char* summary;
  const char* details;
  std::span<const Parameter> parameters;
  const char* example;
  std::unique_ptr<Step> (*makeStep)(const Values& values, const ReadImage& readImage);
  Takes takes;
  bool keepsPages = false;      // whole, in temporary files
  bool needsParameter = false;  // any: without one it has nothing to do
};

std::span<const Operation> operations();

// Errors of programs that read the image of an overlay from files: a name for standard input, and the
// remedy for a transparent image without a background.
extern const char kImageFromStandardInput[];
extern const char kBackgroundRemedy[];

// Null where there is no such operation.
const Operation* findOperation(const std::string& name);

// The names of all operations.
std::vector<std::string> operationNames();

// "gray pages", "gray and color pages".
const char* takenPages(const Operation& operation);

// Describes all operations as a JSON array.
std::string describeOperations();

}  // namespace rast::chain
