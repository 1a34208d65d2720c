// Parameters of operations: their kinds, and how a text becomes a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "operations/refusal.h"

namespace rast::chain {

enum class Kind {
  flag,     // given by its name alone
  numbers,  // whole numbers, as many as the argument has names between commas: "N", "R,G,B"
  size,     // two numbers: "WxH"
  decimal,  // a decimal number with at most one decimal, held as tenths
  choice,   // one word of the argument: "cw|ccw"
  curve,    // 256 samples
  matrix,   // 15 numbers, the rows of RastHueParam::nMatrix
  image,    // the name of an image, read by the caller
};

using Numbers = std::vector<std::int64_t>;

// Empty where the parameter was not given and has no preset.
using Value = std::variant<std::monostate, Numbers, std::string>;

inline bool isGiven(const Value& value) { return value.index() != 0; }
inline const Numbers& numbersOf(const Value& value) { return *std::get_if<Numbers>(&value); }
inline std::int64_t numberOf(const Value& value) { return numbersOf(value)[0]; }
inline const std::string& nameOf(const Value& value) { return *std::get_if<std::string>(&value); }

struct Parameter {
  const char* name;
  Kind kind;
  const char* argument;  // as help shows it; null for a flag
  std::int64_t low;      // of every number of the value
  std::int64_t high;
  const char* preset;  // the argument used where none is given; "": none; null: required
  const char* help;
  bool operand = false;  // the first parameter of the command, which may precede IN

  // True where a chain may give the value of the first parameter without its name.
  bool mayBeUnnamed() const;
  bool isRequired() const { return preset == nullptr; }
  bool hasPreset() const { return preset != nullptr && *preset != '\0'; }
};

std::string optionName(const Parameter& parameter);

// The files that a chain may name.
struct Files {
  bool tables = false;  // curves and matrices, which the engine opens
  bool images = false;  // overlays, which the caller opens
};

Result<Value> readValue(const Parameter& parameter, const std::string& text, Files files);

// The words of a list such as "cw|ccw".
std::vector<std::string> wordsOf(const std::string& list);

// The text as a number low..high; a refusal names the option.
Result<std::int64_t> parseNumber(const std::string& option, const std::string& text,
                                 std::int64_t low, std::int64_t high);
Result<double> parseDecimal(const std::string& option, const std::string& text, double low,
                            double high);
// The place of the text among the words of the list.
Result<std::size_t> parseChoice(const std::string& option, const std::string& text,
                                const std::string& list);

// A name for numbers.
struct Preset {
  std::string name;
  Numbers numbers;
};
std::vector<Preset> presetsOf(const Parameter& parameter);

// The words that a parameter knows; a word that ends with '=' continues with a number.
std::vector<std::string> knownWords(const Parameter& parameter);

// True where the text is one of these words, with its number.
bool isKnownWord(const Parameter& parameter, const std::string& text);

// True where the value may be the name of a file.
bool takesFile(const Parameter& parameter);
// True where this text is the name of a file.
bool namesFile(const Parameter& parameter, const std::string& text);

}  // namespace rast::chain
