// What to say about a name that is not known.
#ifndef RAST_TOOL_ADVICE_H
#define RAST_TOOL_ADVICE_H

#include <string>
#include <vector>

// "; did you mean 'x'?" when a known name is close, else the other words.
std::string advice(const std::string& given, const std::vector<std::string>& known,
                   const std::string& otherwise);

#endif
