// The table of operations: everything the command line knows about a filter of the library.
#ifndef RAST_TOOL_OPERATIONS_H
#define RAST_TOOL_OPERATIONS_H

#include <rast.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "parameters.h"

class PageFilter;

using Values = std::vector<Value>;  // in the order of Operation::parameters

constexpr std::uint32_t wholeRatio = 1000;

// What so many samples or lines become: an accumulator grows by the ratio with each, at 1000 one is
// done, and what is left at the end is one too.
constexpr std::uint32_t reduced(std::uint32_t count, std::uint32_t ratio) {
  return static_cast<std::uint32_t>((count - 1) * std::uint64_t{ratio} / wholeRatio) + 1;
}

// An operation on bands.
struct Filter {
  // From the input planes of a band to its output planes, which lie apart; keeps what it needs from
  // band to band.
  std::function<std::uint32_t(const RastArea&, const RastPlaneSet&)> apply;
  // What becomes of the page's columns and lines, in thousandths: at most 1000.
  std::uint32_t ratioX = wholeRatio;
  std::uint32_t ratioY = wholeRatio;

  // After so many lines the accumulator is back at 0: bands of as many, or a multiple, give what
  // the whole page gives.
  std::uint32_t unitLines() const { return wholeRatio / std::gcd(wholeRatio, ratioY); }
};

enum class Takes { gray, colour, both };

struct Operation {
  const char* name;
  const char* summary;
  const char* details;
  Takes takes;
  std::span<const Parameter> parameters;
  const char* example;
  // One of the two: for an operation band by band, or on whole pages.
  Filter (*makeFilter)(const Values& values);
  std::unique_ptr<PageFilter> (*makePageFilter)(const Values& values) = nullptr;
};

std::span<const Operation> operations();

// Null when there is no such operation.
const Operation* findOperation(const std::string& name);

bool takesPage(const Operation& operation, bool colour);
const char* takenPages(const Operation& operation);

#endif
