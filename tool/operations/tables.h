// The curve and the matrix that operations take: from a file, by name or by formula.
#ifndef RAST_TOOL_TABLES_H
#define RAST_TOOL_TABLES_H

#include <string>
#include <vector>

#include "operations/parameters.h"

// 256 samples.
Value readCurve(const Parameter& parameter, const std::string& text);

// 15 numbers, the rows of RastHueParam::nMatrix.
Value readMatrix(const Parameter& parameter, const std::string& text);

// A name for numbers.
struct Preset {
  std::string name;
  Value numbers;
};
std::vector<Preset> presetsOf(const Parameter& parameter);

// What may be given by name for a parameter; a word that ends in '=' goes on with a number.
std::vector<std::string> knownWords(const Parameter& parameter);

// Whether a file may be given for the parameter.
bool takesFile(const Parameter& parameter);

// Whether the text is one of these words, with its number.
bool isKnownWord(const Parameter& parameter, const std::string& text);

// Whether the text is the name of a file for this parameter.
bool namesFile(const Parameter& parameter, const std::string& text);

#endif
