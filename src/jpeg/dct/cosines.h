// The cosines that every constant of the transforms comes from, for arithmetic at compile time.
#ifndef QELJ_JPEG_DCT_COSINES_H
#define QELJ_JPEG_DCT_COSINES_H

#include <numbers>

namespace qelj::jpeg::dct {

// cos(i pi/16), by its power series up to pi/2 and its symmetries beyond.
constexpr double cosine(int i) {
  const int turn = i % 32, half = turn > 16 ? 32 - turn : turn;
  if (half > 8) return -cosine(16 - half);
  const double x = half * std::numbers::pi / 16;
  double sum = 0, term = 1;
  for (int n = 1; n < 24; n += 2) {
    sum += term;
    term *= -x * x / (n * (n + 1));
  }
  return sum;
}
constexpr double tangent(int i) { return cosine(8 - i) / cosine(i); }  // i from 0 to 7

// c(i) = sqrt(2) cos(i pi/16), but 1 for i = 0.
constexpr double scaledCosine(int i) { return i == 0 ? 1 : std::numbers::sqrt2 * cosine(i); }

// A column pass leaves row k too small by the factor c(k) = c(8 - k): the set of weights that makes up for it.
inline constexpr int kWeightSet[8] = {0, 1, 2, 3, 0, 3, 2, 1};

}  // namespace qelj::jpeg::dct

#endif
