// The manual pages of the command, from what its help is made of.
#pragma once

#include <string>

namespace rast::tool {

// In the language of man: "rast", or "rast-ops" for the operations.
std::string manual(const std::string& page);

}  // namespace rast::tool
