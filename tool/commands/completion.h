// Completion of command lines, for shells.
#pragma once

#include <span>
#include <string>

namespace rast::tool {

// A line for each candidate that the last word may become: the candidate, a tab and what it means.
// A line that is a tab alone stands for the names of files.
std::string completion(std::span<char* const> words);

}  // namespace rast::tool
