#include "numbers/elementary.h"

#include <numbers>

// The whole part by products. Then each binary digit after the point stands for a further root.
double power(double base, double exponent) {
  double result = 1;
  while (exponent >= 1) {
    result *= base;
    exponent -= 1;
  }
  double root = base;
  while (exponent > 0) {
    root = __builtin_sqrt(root);  // an instruction, optimised or not
    exponent *= 2;
    if (exponent < 1) continue;
    result *= root;
    exponent -= 1;
  }
  return result;
}

// Taylor's series of the exponential function. At a full turn the last term is below 1e-16.
std::complex<double> unit(double degrees) {
  const double angle = degrees * std::numbers::pi / 180;
  std::complex<double> sum = 0;
  std::complex<double> term = 1;
  for (int n = 1; n <= 40; ++n) {
    sum += term;
    term *= std::complex<double>(0, angle / n);
  }
  return sum;
}

// Digit by digit: what is left of the ratio, to the tenth power, has the next one.
double decibels(double ratio) {
  double sum = 0;
  double place = 10;  // of the digit
  for (int digits = 0; digits < 11; ++digits) {
    while (ratio >= 10) {
      ratio /= 10;
      sum += place;
    }
    ratio = power(ratio, 10);
    place /= 10;
  }
  return sum;
}
