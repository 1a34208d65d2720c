// Parameters of operations: what may be given for one, and how it becomes numbers.
#ifndef RAST_TOOL_PARAMETERS_H
#define RAST_TOOL_PARAMETERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The numbers that a parameter stands for; none when it was not given and has no preset.
using Value = std::vector<std::int64_t>;

// Given as --name ARGUMENT, or as --name alone, which is --name 1, when there is no argument.
struct Parameter {
  const char* name;
  const char* argument;  // as the help shows it, or null
  Value (*read)(const Parameter& parameter, const std::string& text);
  std::int64_t low;  // of every number of the value
  std::int64_t high;
  const char* preset;  // the argument that stands for none; "": none is needed; null: one is
  const char* help;
  bool operand = false;  // of the first parameter: it may be given as an operand before IN

  // In a chain, as the first parameter.
  bool mayBeUnnamed() const;
};

std::string optionName(const Parameter& parameter);

// The text must be a number low..high as a whole; else a usage error that names the option.
std::int64_t parseNumber(const std::string& option, const std::string& text, std::int64_t low,
                         std::int64_t high);
// A number of bytes, with K, M or G for powers of 1024; low is a number of M.
std::uint64_t parseBytes(const std::string& option, const std::string& text, std::uint64_t low);
double parseDecimal(const std::string& option, const std::string& text, double low, double high);

// Of a list such as "pnm|png".
std::vector<std::string> wordsOf(const std::string& list);

// The place of the text among such words.
std::size_t parseChoice(const std::string& option, const std::string& text,
                        const std::string& list);

// Readers for the table. As many numbers as the argument has names between commas: "N", "R,G,B".
Value readNumbers(const Parameter& parameter, const std::string& text);
// Two numbers: "WxH".
Value readSize(const Parameter& parameter, const std::string& text);
// Ten times a decimal number with at most one decimal.
Value readTenths(const Parameter& parameter, const std::string& text);
// The bytes of the text.
Value readText(const Parameter& parameter, const std::string& text);
// The place of the text among the words of the argument.
Value readChoice(const Parameter& parameter, const std::string& text);

// Numbers from a text file: between white space and commas, '#' starting a comment. The presets
// are what else could have been meant where there is no such file.
Value readNumberFile(const Parameter& parameter, const std::string& path, std::size_t count,
                     const std::vector<std::string>& presets);

#endif
