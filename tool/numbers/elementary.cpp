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
    root = __builtin_sqrt(root);
    exponent *= 2;
    if (exponent < 1) continue;
    result *= root;
    exponent -= 1;
  }
  return result;
}

// Taylor's series. At a full turn terms reach 85, and the first left out is 1e-16.
Direction directionAt(double degrees) {
  const double angle = degrees * std::numbers::pi / 180;
  Direction sum = {0, 0};
  Direction term = {1, 0};
  for (int n = 1; n <= 40; ++n) {
    sum.cosine += term.cosine;
    sum.sine += term.sine;
    term = {-term.sine * angle / n, term.cosine * angle / n};
  }
  return sum;
}

// Digit by digit: each division by ten counts one, and the tenth power of what is left brings up the
// next place.
double decibels(double ratio) {
  double sum = 0;
  double place = 10;
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
