#include "operations/tables.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <numbers>
#include <optional>
#include <utility>

#include "operations/advice.h"

namespace rast::chain {

namespace {

constexpr std::int64_t kOne = 256;  // 1.0 in a matrix

struct MatrixPreset {
  const char* name;
  std::int64_t rows[3][3];
};

constexpr MatrixPreset kMatrixPresets[] = {
    {"identity", {{256, 0, 0}, {0, 256, 0}, {0, 0, 256}}},
    // ITU-R BT.601 luma, with weights that add up to 256.
    {"grayscale", {{77, 150, 29}, {77, 150, 29}, {77, 150, 29}}},
    // The sepia filter of the W3C filter effects recommendation at its full amount.
    {"sepia", {{101, 197, 48}, {89, 176, 43}, {70, 137, 34}}},
    {"swap-rb", {{0, 0, 256}, {0, 256, 0}, {256, 0, 0}}},
};

Numbers withoutOffsets(const std::int64_t (&rows)[3][3]) {
  Numbers matrix;
  for (const auto& row : rows) {
    matrix.insert(matrix.end(), std::begin(row), std::end(row));
    matrix.insert(matrix.end(), {0, 0});
  }
  return matrix;
}

// The hueRotate matrix of feColorMatrix in the W3C filter effects recommendation, which keeps the
// luma of ITU-R BT.709. Each row adds up to exactly 1.0, so grays do not change.
Numbers rotation(double degrees) {
  constexpr double luma[3] = {0.213, 0.715, 0.072};
  constexpr double sines[3][3] = {
      {-0.213, -0.715, 0.928}, {0.143, 0.140, -0.283}, {-0.787, 0.715, 0.072}};
  const double angle = degrees * std::numbers::pi / 180;
  const double cosine = std::cos(angle);
  const double sine = std::sin(angle);
  std::int64_t rows[3][3] = {};
  for (std::size_t k = 0; k < 3; ++k) {
    std::int64_t others = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      if (j == k) continue;
      const double weight = luma[j] - luma[j] * cosine + sines[k][j] * sine;
      rows[k][j] = std::llround(weight * kOne);
      others += rows[k][j];
    }
    rows[k][k] = kOne - others;
  }
  return withoutOffsets(rows);
}

Numbers gammaCurve(double gamma) {
  Numbers curve;
  for (int i = 0; i < 256; ++i) {
    curve.push_back(std::llround(255 * std::pow(i / 255.0, 1 / gamma)));
  }
  return curve;
}

constexpr Table kCurve = {256, {"gamma", 0.1, 10, 1, gammaCurve}};
constexpr Table kMatrix = {15, {"rotate", -360, 360, 0, rotation}};

Numbers inverted() {
  Numbers curve;
  for (int i = 0; i < 256; ++i) curve.push_back(255 - i);
  return curve;
}

struct Closes {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closes>;

// Reads a text file token by token and counts its lines.
class Tokens {
 public:
  explicit Tokens(std::FILE* file) : file_(file) {}

  // The next token; empty at the end of the file. An overlong token is cut, and is no number then.
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

  // The line of the last token.
  std::uint64_t line() const { return line_; }
  bool failed() const { return std::ferror(file_) != 0; }

 private:
  static bool separates(int byte) {
    return byte == EOF || byte == ' ' || byte == ',' || (byte >= '\t' && byte <= '\r');
  }

  int get() {
    if (last_ == '\n') ++line_;
    return last_ = std::getc(file_);
  }

  std::FILE* file_;
  std::uint64_t line_ = 1;
  int last_ = 0;
};

Result<Value> readNumberFile(const Parameter& parameter, const std::string& path,
                             std::size_t count) {
  const std::string option = optionName(parameter);
  const File file(std::fopen(path.c_str(), "rbe"));
  if (!file) {
    const std::string reason = std::strerror(errno);
    const std::string nearest = nearestName(path, knownWords(parameter));
    Refusal refused = wrongText(option, ": ", quoted(path), " cannot be opened: ", reason,
                                advice(nearest, join("; expected ", parameter.argument)));
    refused.suggestion = nearest;
    return refused;
  }
  Tokens tokens(file.get());
  Numbers numbers;
  for (std::string token = tokens.next(); !token.empty(); token = tokens.next()) {
    const std::string place = join(option, ": ", path, ", line ", tokens.line());
    if (numbers.size() == count) {
      return wrongText(place, ": ", quoted(token), " is too much after ", count, " numbers");
    }
    Result<std::int64_t> number = parseNumber(place, token, parameter.low, parameter.high);
    if (!number) return std::move(number.refusal());
    numbers.push_back(*number);
  }
  if (tokens.failed()) {
    return wrongText(option, ": ", path, ": cannot be read: ", std::strerror(errno));
  }
  if (numbers.size() < count) {
    return wrongText(option, ": ", path, ": holds ", numbers.size(), " numbers; expected ", count);
  }
  return Value(std::move(numbers));
}

std::optional<Value> presetNamed(const Parameter& parameter, const std::string& text) {
  for (Preset& preset : presetsOf(parameter)) {
    if (preset.name == text) return Value(std::move(preset.numbers));
  }
  return {};
}

}  // namespace

const Table& tableOf(const Parameter& parameter) {
  return parameter.kind == Kind::curve ? kCurve : kMatrix;
}

Result<Value> readTable(const Parameter& parameter, const std::string& text) {
  if (auto preset = presetNamed(parameter, text)) return *std::move(preset);
  const auto& [count, formula] = tableOf(parameter);
  const std::string key = join(formula.name, '=');
  if (!text.starts_with(key)) return readNumberFile(parameter, text, count);
  Result<double> number = parseDecimal(join(optionName(parameter), ' ', formula.name),
                                       text.substr(key.size()), formula.low, formula.high);
  if (!number) return std::move(number.refusal());
  return Value(formula.numbers(*number));
}

std::vector<Preset> presetsOf(const Parameter& parameter) {
  if (parameter.kind == Kind::curve) return {{"invert", inverted()}};
  std::vector<Preset> presets;
  if (parameter.kind != Kind::matrix) return presets;
  for (const MatrixPreset& known : kMatrixPresets) {
    presets.push_back({known.name, withoutOffsets(known.rows)});
  }
  return presets;
}

}  // namespace rast::chain
