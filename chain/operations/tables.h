// Curves and matrices: from a file, by name or by formula.
#pragma once

#include <string>

#include "operations/parameters.h"

namespace rast::chain {

Result<Value> readCurve(const Parameter& parameter, const std::string& text);
Result<Value> readMatrix(const Parameter& parameter, const std::string& text);

}  // namespace rast::chain
