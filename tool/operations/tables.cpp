#include "operations/tables.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "formats/error.h"
#include "numbers/elementary.h"

namespace {

constexpr std::int64_t one = 256;  // 1.0 in a matrix

struct MatrixPreset {
  const char* name;
  std::int64_t rows[3][3];
};

constexpr MatrixPreset matrixPresets[] = {
    {"identity", {{256, 0, 0}, {0, 256, 0}, {0, 0, 256}}},
    // ITU-R BT.601 luma, the weights adding up to 256.
    {"grayscale", {{77, 150, 29}, {77, 150, 29}, {77, 150, 29}}},
    // The sepia filter of the W3C filter effects recommendation at its full amount.
    {"sepia", {{101, 197, 48}, {89, 176, 43}, {70, 137, 34}}},
    {"swap-rb", {{0, 0, 256}, {0, 256, 0}, {256, 0, 0}}},
};

Value withoutOffsets(const std::int64_t (&rows)[3][3]) {
  Value matrix;
  for (const auto& row : rows) {
    matrix.insert(matrix.end(), std::begin(row), std::end(row));
    matrix.insert(matrix.end(), {0, 0});
  }
  return matrix;
}

// The hueRotate matrix of feColorMatrix in the W3C filter effects recommendation, which keeps the
// luma of ITU-R BT.709. Each row adds up to exactly 1.0, so that greys stay what they are.
Value rotation(double degrees) {
  constexpr double luma[3] = {0.213, 0.715, 0.072};
  constexpr double sines[3][3] = {
      {-0.213, -0.715, 0.928}, {0.143, 0.140, -0.283}, {-0.787, 0.715, 0.072}};
  const Direction angle = directionAt(degrees);
  std::int64_t rows[3][3] = {};
  for (std::size_t k = 0; k < 3; ++k) {
    std::int64_t others = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      if (j == k) continue;
      const double weight = luma[j] - luma[j] * angle.cosine + sines[k][j] * angle.sine;
      rows[k][j] = nearest(weight * one);
      others += rows[k][j];
    }
    rows[k][k] = one - others;
  }
  return withoutOffsets(rows);
}

Value gammaCurve(double gamma) {
  Value curve;
  for (int i = 0; i < 256; ++i) {
    curve.push_back(nearest(255 * power(i / 255.0, 1 / gamma)));
  }
  return curve;
}

Value inverted() {
  Value curve;
  for (int i = 0; i < 256; ++i) curve.push_back(255 - i);
  return curve;
}

// X when the text is "key=X".
std::optional<double> keyed(const Parameter& parameter, const std::string& text,
                            const std::string& key, double low, double high) {
  if (!text.starts_with(key + '=')) return {};
  return parseDecimal(join(optionName(parameter), ' ', key), text.substr(key.size() + 1), low,
                      high);
}

std::optional<Value> presetNamed(const Parameter& parameter, const std::string& text) {
  for (Preset& preset : presetsOf(parameter)) {
    if (preset.name == text) return std::move(preset.numbers);
  }
  return {};
}

}  // namespace

Value readCurve(const Parameter& parameter, const std::string& text) {
  if (auto preset = presetNamed(parameter, text)) return *std::move(preset);
  if (const auto gamma = keyed(parameter, text, "gamma", 0.1, 10)) return gammaCurve(*gamma);
  return readNumberFile(parameter, text, 256, knownWords(parameter));
}

Value readMatrix(const Parameter& parameter, const std::string& text) {
  if (auto preset = presetNamed(parameter, text)) return *std::move(preset);
  if (const auto angle = keyed(parameter, text, "rotate", -360, 360)) return rotation(*angle);
  return readNumberFile(parameter, text, 15, knownWords(parameter));
}

std::vector<Preset> presetsOf(const Parameter& parameter) {
  if (parameter.read == readCurve) return {{"invert", inverted()}};
  std::vector<Preset> presets;
  if (parameter.read != readMatrix) return presets;
  for (const MatrixPreset& known : matrixPresets) {
    presets.push_back({known.name, withoutOffsets(known.rows)});
  }
  return presets;
}

std::vector<std::string> knownWords(const Parameter& parameter) {
  std::vector<std::string> words;
  if (parameter.read == readChoice) words = wordsOf(parameter.argument);
  for (const Preset& preset : presetsOf(parameter)) words.push_back(preset.name);
  if (parameter.read == readCurve) words.emplace_back("gamma=");
  if (parameter.read == readMatrix) words.emplace_back("rotate=");
  return words;
}

bool takesFile(const Parameter& parameter) {
  return parameter.read == readText || parameter.read == readCurve || parameter.read == readMatrix;
}

bool isKnownWord(const Parameter& parameter, const std::string& text) {
  return std::ranges::any_of(knownWords(parameter), [&text](const std::string& word) {
    return word.ends_with('=') ? text.starts_with(word) : text == word;
  });
}

bool namesFile(const Parameter& parameter, const std::string& text) {
  return takesFile(parameter) && !isKnownWord(parameter, text);
}
