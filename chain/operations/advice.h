// The nearest known spelling of an unknown name.
#pragma once

#include <string>
#include <vector>

namespace rast::chain {

// Empty where no known name is close.
std::string nearestName(const std::string& given, const std::vector<std::string>& known);

// "; did you mean 'x'?", or the other words where no known name is close.
std::string advice(const std::string& nearest, const std::string& otherwise);

}  // namespace rast::chain
