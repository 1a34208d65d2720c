// The text of a chain, taken apart.
#pragma once

#include <string>
#include <vector>

#include "operations/operations.h"

namespace rast::chain {

// The help of chains as a whole, and a command line.
extern const char kChainDetails[];
extern const char kChainExample[];

// An operation and the values of its parameters.
struct Link {
  const Operation* operation;
  Values values;
};

using Chain = std::vector<Link>;

// "satadjust mode=raise : colgamma gamma=1.8": a colon between blanks or the end of a line ends a
// step. A word is name=value, the name of a flag, or the value of the first parameter if no
// parameter has that name. Quotation marks keep blanks together, and # at the start of a word
// begins a comment. In a line without blanks, "satadjust,mode=raise:colbalance,level=6,5,4,5",
// commas separate words, colons end steps, and a number continues the value before it.
Result<Chain> parseChain(const std::string& text, Files files);

}  // namespace rast::chain
