// The error of a chain or a page, as a value.
#pragma once

#include <rast_chain.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>

#include "text/text.h"

namespace rast::chain {

// The message where an allocation fails.
inline constexpr char kNoMemory[] = "not enough memory";

struct Refusal {
  std::uint32_t code;
  std::string message;
  std::string suggestion = {};  // nearest spelling of a wrong word
  std::uint64_t needed = 0;     // the least memory cap
  std::size_t step = 0;         // from 1; 0: no single step
  std::string operation = {};
  std::uint32_t line = 0;  // from 1, of the step's output; 0: no single line
  std::size_t begin = 0;   // of the wrong word in the text
  std::size_t end = 0;
};

template <class... Parts>
Refusal refusal(std::uint32_t code, const Parts&... parts) {
  return {code, join(parts...)};
}
template <class... Parts>
Refusal wrongText(const Parts&... parts) {
  return refusal(RAST_CHAIN_ERR_TEXT, parts...);
}

// A value, or an error in its place.
template <class T>
class Result {
 public:
  Result(T value) : held_(std::move(value)) {}
  Result(Refusal refusal) : held_(std::move(refusal)) {}

  explicit operator bool() const { return held_.index() == 0; }
  T& operator*() { return *std::get_if<0>(&held_); }
  T* operator->() { return std::get_if<0>(&held_); }
  Refusal& refusal() { return *std::get_if<1>(&held_); }

 private:
  std::variant<T, Refusal> held_;
};

}  // namespace rast::chain
