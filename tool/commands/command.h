// The commands other than operations, and the options that commands and operations share.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "commands/job.h"
#include "operations/operations.h"

namespace rast::tool {

struct CommonOption {
  char letter;
  const char* name;
  const char* argument;  // null for a switch; with an equals sign in front, it may be left out
  const char* help;

  bool takesWord() const { return argument != nullptr && *argument != '='; }
  bool isAmong(const std::string& letters) const {
    return letters.find(letter) != std::string::npos;
  }
};

std::span<const CommonOption> commonOptions();

// The letters of the common options for operations; --gray is rejected where it makes no sense.
extern const char kOperationLetters[];
std::string optionLetters(const chain::Operation& operation);

using Path = std::string Job::*;

// The operands of operations.
std::span<const Path> operationPaths();

struct Command {
  const char* name;
  const char* operands;
  const char* summary;
  const char* details;
  const char* letters;  // of the common options that it takes
  const char* example;
  ExitCode (*carryOut)(const Job& job);
  std::span<const Path> paths = {};  // in the order of operands
  std::size_t requiredPaths = 0;
};

std::span<const Command> commands();

// Null when there is no such command.
const Command* findCommand(const std::string& name);

// The one of that name; the failure suggests commands too.
const chain::Operation& operationNamed(const std::string& name);

// "; did you mean 'x'?" where a known name is close, else the other words.
std::string advice(const std::string& given, const std::vector<std::string>& known,
                   const std::string& otherwise);

// The value of a result; a refusal is a usage error.
template <class T>
T valueOf(chain::Result<T> result) {
  if (!result) fail(ExitCode::usage, result.refusal().message);
  return std::move(*result);
}

}  // namespace rast::tool
