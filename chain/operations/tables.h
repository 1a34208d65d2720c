// Curves and matrices: from a file, by name or by formula.
#pragma once

#include <cstddef>
#include <string>

#include "operations/parameters.h"

namespace rast::chain {

// Numbers that are computed from one number X, given as "name=X".
struct Formula {
  const char* name;
  double low;
  double high;
  double neutral;  // changes no sample
  Numbers (*numbers)(double);
};

// The numbers of a curve or a matrix.
struct Table {
  std::size_t count;  // of numbers
  Formula formula;
};

inline bool isTable(const Parameter& parameter) {
  return parameter.kind == Kind::curve || parameter.kind == Kind::matrix;
}
const Table& tableOf(const Parameter& parameter);

Result<Value> readTable(const Parameter& parameter, const std::string& text);

}  // namespace rast::chain
