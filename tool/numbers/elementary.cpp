#include "numbers/elementary.h"

#include <numbers>

// The whole part by products. Then each binary digit after the point stands for a further root.
double power(double base, double exponent) {
  double result = 1;
  for (; exponent >= 1; exponent -= 1) result *= base;
  for (double root = base; exponent > 0;) {
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
  for (double digit = 10; digit > 1e-10; digit /= 10) {
    for (; ratio >= 10; ratio /= 10) sum += digit;
    ratio = power(ratio, 10);
  }
  return sum;
}
