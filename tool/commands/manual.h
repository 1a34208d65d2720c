// The manual pages of the command, from what its help is made of.
#ifndef RAST_TOOL_MANUAL_H
#define RAST_TOOL_MANUAL_H

#include <string>

// In the language of man: "rast", or "rast-ops" for the operations.
std::string manual(const std::string& page);

#endif
