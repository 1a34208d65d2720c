// Elementary functions, made of sums, products and square roots alone: these are rounded alike
// wherever a double is computed as one, so curves and matrices are the same on every machine, which
// no library of mathematics promises. Nor is one loaded, which would take more memory than the lines
// of a page.
#ifndef RAST_TOOL_ELEMENTARY_H
#define RAST_TOOL_ELEMENTARY_H

#include <cstdint>

// The nearest whole number, halves away from zero.
constexpr std::int64_t nearest(double number) {
  const auto whole = static_cast<std::int64_t>(number);
  const double rest = number - static_cast<double>(whole);
  return whole + (rest >= 0.5 ? 1 : 0) - (rest <= -0.5 ? 1 : 0);
}

// Of numbers that are not negative.
double power(double base, double exponent);

struct Direction {
  double cosine;
  double sine;
};

// Of an angle up to 360 degrees to either side, to 1e-13.
Direction directionAt(double degrees);

// Ten times the decimal logarithm of a ratio of at least 1, cut after nine decimals.
double decibels(double ratio);

#endif
