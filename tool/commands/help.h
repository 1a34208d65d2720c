// The help of the command, and the texts that help and manual pages share.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "commands/command.h"

namespace rast::tool {

// An option or a parameter, as help shows it.
struct HelpItem {
  std::string names;     // "-b, --band"
  std::string argument;  // " LINES", "[=json]"
  std::string text;
  std::string limits;  // "0..255, default 0"
};

std::vector<HelpItem> parameterItems(const chain::Operation& operation);
std::vector<HelpItem> optionItems(const std::string& letters);

// Usage, a line each.
std::vector<std::string> usageLines();
std::string usageOf(const chain::Operation& operation);

extern const char kPurpose[];
extern const char kOperandsText[];
extern const char kFilesText[];
extern const char kStoredPagesText[];

struct ExitStatus {
  int status;
  const char* meaning;
};

std::span<const ExitStatus> exitStatuses();

std::string help();
std::string help(const std::string& name);

}  // namespace rast::tool
