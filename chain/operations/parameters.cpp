#include "operations/parameters.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "operations/advice.h"
#include "operations/tables.h"

namespace rast::chain {

namespace {

std::from_chars_result fromChars(const char* text, const char* end, std::int64_t& number) {
  return std::from_chars(text, end, number);
}

// Rejects exponents, hexadecimal digits and words.
std::from_chars_result fromChars(const char* text, const char* end, double& number) {
  if (std::any_of(text, end, [](char c) { return c != '-' && c != '.' && (c < '0' || c > '9'); })) {
    return {text, std::errc::invalid_argument};
  }
#ifdef __cpp_lib_to_chars
  return std::from_chars(text, end, number, std::chars_format::fixed);
#else
  // The text ends with a null byte and holds no character that depends on the locale.
  char* stop = nullptr;
  number = std::strtod(text, &stop);
  return {stop, stop == text ? std::errc::invalid_argument : std::errc()};
#endif
}

template <class Number>
Result<Number> parse(const std::string& option, const std::string& text, Number low, Number high,
                     const char* kind) {
  Number value = 0;
  const char* end = text.c_str() + text.size();
  const auto [stop, error] = fromChars(text.c_str(), end, value);
  const bool isNumber = stop == end && error != std::errc::invalid_argument;
  if (isNumber && error == std::errc() && value >= low && value <= high) return value;
  const std::string fault = isNumber ? "out of range" : join("no ", kind, " number");
  return wrongText(option, ": ", quoted(text), " is ", fault, "; expected ", low, "..", high);
}

// Reads `count` numbers between separators.
Result<Value> readSeparated(const Parameter& parameter, const std::string& text, char separator,
                            std::size_t count) {
  const std::string option = optionName(parameter);
  Numbers numbers;
  for (std::size_t start = 0; numbers.size() < count;) {
    const bool isLast = numbers.size() + 1 == count;
    const std::size_t end = isLast ? text.size() : text.find(separator, start);
    if (end == std::string::npos) {
      return wrongText(option, ": ", quoted(text), " is too short; expected ", parameter.argument);
    }
    Result<std::int64_t> number =
        parseNumber(option, text.substr(start, end - start), parameter.low, parameter.high);
    if (!number) return std::move(number.refusal());
    numbers.push_back(*number);
    start = end + 1;
  }
  return Value(std::move(numbers));
}

Result<Value> readNumbers(const Parameter& parameter, const std::string& text) {
  const std::string names = parameter.argument != nullptr ? parameter.argument : "";
  const auto count = static_cast<std::size_t>(std::ranges::count(names, ',')) + 1;
  return readSeparated(parameter, text, ',', count);
}

Result<Value> readTenths(const Parameter& parameter, const std::string& text) {
  const std::string option = optionName(parameter);
  const auto tenths = [](std::int64_t v) { return static_cast<double>(v) / 10; };
  Result<double> value = parseDecimal(option, text, tenths(parameter.low), tenths(parameter.high));
  if (!value) return std::move(value.refusal());
  const std::size_t point = std::min(text.find('.'), text.size());
  // Zeros after the first decimal change nothing.
  if (text.find_first_not_of('0', std::min(point + 2, text.size())) != std::string::npos) {
    return wrongText(option, ": ", quoted(text), " has more than one decimal");
  }
  return Value(Numbers{std::llround(*value * 10)});
}

Result<Value> readChoice(const Parameter& parameter, const std::string& text) {
  Result<std::size_t> place = parseChoice(optionName(parameter), text, parameter.argument);
  if (!place) return std::move(place.refusal());
  return Value(Numbers{static_cast<std::int64_t>(*place)});
}

}  // namespace

bool Parameter::mayBeUnnamed() const {
  return kind == Kind::choice || kind == Kind::curve || kind == Kind::matrix || kind == Kind::image;
}

std::string optionName(const Parameter& parameter) { return join("--", parameter.name); }

Result<std::int64_t> parseNumber(const std::string& option, const std::string& text,
                                 std::int64_t low, std::int64_t high) {
  return parse(option, text, low, high, "whole");
}

Result<double> parseDecimal(const std::string& option, const std::string& text, double low,
                            double high) {
  return parse(option, text, low, high, "decimal");
}

std::vector<std::string> wordsOf(const std::string& list) { return split(list, '|'); }

Result<std::size_t> parseChoice(const std::string& option, const std::string& text,
                                const std::string& list) {
  const std::vector<std::string> words = wordsOf(list);
  const auto found = std::ranges::find(words, text);
  if (found != words.end()) return static_cast<std::size_t>(found - words.begin());
  std::string expected;
  for (const std::string& word : words) expected += (expected.empty() ? "" : " or ") + word;
  Refusal refused = wrongText(option, ": ", quoted(text), " is unknown; expected ", expected);
  refused.suggestion = nearestName(text, words);
  return refused;
}

Result<Value> readValue(const Parameter& parameter, const std::string& text, Files files) {
  const bool isAllowed = parameter.kind == Kind::image ? files.images : files.tables;
  if (!isAllowed && namesFile(parameter, text)) {
    Refusal refused =
        wrongText("'", parameter.name, "' names a file, and files are not allowed here");
    refused.suggestion = nearestName(text, knownWords(parameter));
    return refused;
  }
  switch (parameter.kind) {
    case Kind::flag:
    case Kind::numbers:
      return readNumbers(parameter, text);
    case Kind::size:
      return readSeparated(parameter, text, 'x', 2);
    case Kind::decimal:
      return readTenths(parameter, text);
    case Kind::choice:
      return readChoice(parameter, text);
    case Kind::curve:
    case Kind::matrix:
      return readTable(parameter, text);
    case Kind::image:
      break;
  }
  return Value(text);
}

std::vector<std::string> knownWords(const Parameter& parameter) {
  std::vector<std::string> words;
  if (parameter.kind == Kind::choice) words = wordsOf(parameter.argument);
  for (const Preset& preset : presetsOf(parameter)) words.push_back(preset.name);
  if (isTable(parameter)) words.push_back(join(tableOf(parameter).formula.name, '='));
  return words;
}

bool takesFile(const Parameter& parameter) {
  return parameter.kind == Kind::image || isTable(parameter);
}

bool isKnownWord(const Parameter& parameter, const std::string& text) {
  return std::ranges::any_of(knownWords(parameter), [&text](const std::string& word) {
    return word.ends_with('=') ? text.starts_with(word) : text == word;
  });
}

bool namesFile(const Parameter& parameter, const std::string& text) {
  return takesFile(parameter) && !isKnownWord(parameter, text);
}

}  // namespace rast::chain
