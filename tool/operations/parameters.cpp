#include "operations/parameters.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "formats/error.h"
#include "formats/file.h"
#include "numbers/elementary.h"
#include "operations/advice.h"

namespace {

std::from_chars_result fromChars(const char* text, const char* end, std::int64_t& number) {
  return std::from_chars(text, end, number);
}

// That of the C++ runtime sets the way of rounding, for which it needs the library of mathematics.
std::from_chars_result fromChars(const char* text, const char* end, double& number) {
  const bool negative = text != end && *text == '-';
  bool hasDigits = false;
  double digits = 0;
  double scale = 0;  // of the digits; 0 before the point
  for (const char* at = negative ? text + 1 : text; at != end; ++at) {
    if (*at == '.' && scale == 0) {
      scale = 1;
      continue;
    }
    if (*at < '0' || *at > '9') return {text, std::errc::invalid_argument};
    hasDigits = true;
    if (scale >= 1e22) continue;  // the last power of ten that is exact
    digits = digits * 10 + (*at - '0');
    scale *= 10;
  }
  if (!hasDigits) return {text, std::errc::invalid_argument};
  number = (negative ? -digits : digits) / (scale == 0 ? 1 : scale);
  return {end, std::errc()};
}

template <class Number>
Number parse(const std::string& option, const std::string& text, Number low, Number high,
             const char* kind) {
  Number value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = fromChars(text.data(), end, value);
  const bool isNumber = stop == end && error != std::errc::invalid_argument;
  const bool fits = error == std::errc() && value >= low && value <= high;
  if (!isNumber || !fits) {
    const std::string fault = isNumber ? "out of range" : join("no ", kind, " number");
    fail(ExitCode::usage, option, ": '", text, "' is ", fault, "; expected ", low, "..", high);
  }
  return value;
}

// A text file as tokens; knows the line for messages.
class Tokens {
 public:
  explicit Tokens(File file) : file_(std::move(file)) {}

  // The next one, empty at the end of the file. An overlong one is cut and no number any more.
  std::string next() {
    constexpr std::size_t longest = 40;
    std::string token;
    for (int byte = get(); byte != EOF; byte = get()) {
      if (byte == '#') {
        while (byte != '\n' && byte != EOF) byte = get();
      }
      if (!separates(byte)) {
        token += static_cast<char>(byte);
        if (token.size() == longest) return token + "...";
      } else if (!token.empty()) {
        break;
      }
    }
    return token;
  }

  // Of the last token.
  std::uint64_t line() const { return line_; }
  bool failed() const { return std::ferror(file_.get()) != 0; }

 private:
  static bool separates(int byte) {
    return byte == EOF || byte == ' ' || byte == ',' || (byte >= '\t' && byte <= '\r');
  }

  int get() {
    if (last_ == '\n') ++line_;
    return last_ = std::getc(file_.get());
  }

  File file_;
  std::uint64_t line_ = 1;
  int last_ = 0;
};

// As many numbers between separators.
Value readSeparated(const Parameter& parameter, const std::string& text, char separator,
                    std::size_t count) {
  const std::string option = optionName(parameter);
  Value value;
  for (std::size_t start = 0; value.size() < count;) {
    const bool isLast = value.size() + 1 == count;
    const std::size_t end = isLast ? text.size() : text.find(separator, start);
    if (end == std::string::npos) {
      fail(ExitCode::usage, option, ": '", text, "' is too short; expected ", parameter.argument);
    }
    value.push_back(
        parseNumber(option, text.substr(start, end - start), parameter.low, parameter.high));
    start = end + 1;
  }
  return value;
}

}  // namespace

// Numbers are told apart by their names alone.
bool Parameter::mayBeUnnamed() const {
  return argument != nullptr && read != readNumbers && read != readSize && read != readTenths;
}

std::string optionName(const Parameter& parameter) { return join("--", parameter.name); }

std::int64_t parseNumber(const std::string& option, const std::string& text, std::int64_t low,
                         std::int64_t high) {
  return parse(option, text, low, high, "whole");
}

double parseDecimal(const std::string& option, const std::string& text, double low, double high) {
  return parse(option, text, low, high, "decimal");
}

std::uint64_t parseBytes(const std::string& option, const std::string& text, std::uint64_t low) {
  const std::string units = "KMG";
  std::uint64_t count = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, count);
  const std::size_t unit = stop == end ? 0 : units.find(*stop) + 1;  // 0 for no unit, or none known
  const unsigned shift = static_cast<unsigned>(unit) * 10;
  const bool isSize = error == std::errc() && stop + (unit == 0 ? 0 : 1) == end;
  if (!isSize || count > std::uint64_t{INT64_MAX} >> shift || count << shift < low) {
    fail(ExitCode::usage, option, ": '", text,
         "' is no possible size; expected bytes, or a number with ", "K, M or G, at least ",
         low >> 20, 'M');
  }
  return count << shift;
}

std::vector<std::string> wordsOf(const std::string& list) { return split(list, '|'); }

std::size_t parseChoice(const std::string& option, const std::string& text,
                        const std::string& list) {
  const std::vector<std::string> words = wordsOf(list);
  const auto found = std::ranges::find(words, text);
  if (found != words.end()) return static_cast<std::size_t>(found - words.begin());
  std::string expected;
  for (const std::string& word : words) expected += (expected.empty() ? "" : " or ") + word;
  fail(ExitCode::usage, option, ": '", text, "' is unknown; expected ", expected);
}

Value readNumbers(const Parameter& parameter, const std::string& text) {
  const std::string names = parameter.argument != nullptr ? parameter.argument : "";
  const auto count = static_cast<std::size_t>(std::ranges::count(names, ',')) + 1;
  return readSeparated(parameter, text, ',', count);
}

Value readSize(const Parameter& parameter, const std::string& text) {
  return readSeparated(parameter, text, 'x', 2);
}

Value readTenths(const Parameter& parameter, const std::string& text) {
  const std::string option = optionName(parameter);
  const auto tenths = [](std::int64_t v) { return static_cast<double>(v) / 10; };
  const double value = parseDecimal(option, text, tenths(parameter.low), tenths(parameter.high));
  const std::int64_t number = nearest(value * 10);
  if (tenths(number) != value) {
    fail(ExitCode::usage, option, ": '", text, "' has more than one decimal");
  }
  return {number};
}

Value readText(const Parameter&, const std::string& text) { return {text.begin(), text.end()}; }

Value readChoice(const Parameter& parameter, const std::string& text) {
  const std::size_t place = parseChoice(optionName(parameter), text, parameter.argument);
  return {static_cast<std::int64_t>(place)};
}

Value readNumberFile(const Parameter& parameter, const std::string& path, std::size_t count,
                     const std::vector<std::string>& presets) {
  const std::string option = optionName(parameter);
  File file(std::fopen(path.c_str(), "rbe"));
  if (!file) {
    const std::string reason = std::strerror(errno);
    fail(ExitCode::usage, option, ": '", path, "' cannot be opened: ", reason,
         advice(path, presets, join("; expected ", parameter.argument)));
  }
  Tokens tokens(std::move(file));
  Value value;
  for (std::string token = tokens.next(); !token.empty(); token = tokens.next()) {
    const std::string place = join(option, ": ", path, ", line ", tokens.line());
    if (value.size() == count) {
      fail(ExitCode::usage, place, ": '", token, "' is too much after ", count, " numbers");
    }
    value.push_back(parseNumber(place, token, parameter.low, parameter.high));
  }
  if (tokens.failed()) {
    fail(ExitCode::usage, option, ": ", path, ": cannot be read: ", std::strerror(errno));
  }
  if (value.size() < count) {
    fail(ExitCode::usage, option, ": ", path, ": holds ", value.size(), " numbers; expected ",
         count);
  }
  return value;
}
