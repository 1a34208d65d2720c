// Chains: operations with their parameters, one after the other.
#ifndef RAST_TOOL_CHAIN_H
#define RAST_TOOL_CHAIN_H

#include <cstddef>
#include <string>
#include <vector>

#include "operations/operations.h"

// An operation and what is given for its parameters.
struct Link {
  const Operation* operation;
  Values values;         // the presets to begin with
  bool isGiven = false;  // any of them

  explicit Link(const Operation& linked);
  void give(std::size_t index, const std::string& text);
  void requireParameters() const;
};

using Chain = std::vector<Link>;

// Whether parameters may name files.
enum class Files { allowed, refused };

// "satadjust mode=raise : colgamma gamma=1.8": a colon that stands alone, or the end of a line,
// ends a step. A word is name=value, the name of a parameter without value, or the value of the
// first parameter if that is named nowhere else. Quotation marks keep spaces together, and # at
// the start of a word begins a comment.
// "satadjust,mode=raise:colbalance,level=6,5,4,5": in a line without blanks, commas separate words,
// colons end steps, and a number goes on with the value before it.
Chain parseChain(const std::string& text, Files files = Files::allowed);

Chain readChain(const std::string& path);

const Operation& requireOperation(const std::string& name,
                                  const std::vector<std::string>& otherNames = {});

#endif
