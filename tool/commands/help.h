// The help of the command.
#pragma once

#include <string>

namespace rast::tool {

std::string help();
// The help of a command or an operation.
std::string help(const std::string& name);
// All texts of the help as a JSON object.
std::string helpJson();

}  // namespace rast::tool
