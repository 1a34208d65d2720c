// The curve and the matrix that operations take: from a file, by name or by formula.
#ifndef RAST_TOOL_TABLES_H
#define RAST_TOOL_TABLES_H

#include "parameters.h"

// 256 samples.
Value readCurve(const Parameter& parameter, const std::string& text);

// 15 numbers, the rows of RastHueParam::nMatrix.
Value readMatrix(const Parameter& parameter, const std::string& text);

// Whether the text is the name of a file for this parameter.
bool namesFile(const Parameter& parameter, const std::string& text);

#endif
