// Elementary functions, made of sums, products and square roots alone: these are rounded alike
// wherever numbers are those of IEEE 754, so curves and matrices are the same to the bit on every
// machine, which no library of mathematics promises. Nor is one loaded, which would take more memory
// than the lines of a page.
#ifndef RAST_TOOL_ELEMENTARY_H
#define RAST_TOOL_ELEMENTARY_H

#include <complex>
#include <cstdint>

// The nearest whole number, halves away from zero.
constexpr std::int64_t nearest(double number) {
  return static_cast<std::int64_t>(number < 0 ? number - 0.5 : number + 0.5);
}

// Of numbers that are not negative.
double power(double base, double exponent);

// The point of the unit circle at an angle of up to 360 degrees to either side: cosine and sine.
std::complex<double> unit(double degrees);

// Ten times the decimal logarithm of a ratio of at least 1.
double decibels(double ratio);

#endif
