#include "compare.h"

#include <algorithm>
#include <cmath>

#include "format.h"

namespace qelconv {
namespace {

// The similarity of one window of a channel (Wang and others, 2004), with equal weights.
double similarity(const Image& a, const Image& b, int32_t x, int32_t y, int channel, int32_t across, int32_t down) {
  double sumA = 0, sumB = 0, squaresA = 0, squaresB = 0, products = 0;
  for (int32_t r = y; r < y + down; ++r)
    for (int32_t c = x; c < x + across; ++c) {
      const size_t i = (size_t(r) * size_t(a.width) + size_t(c)) * size_t(a.channels()) + size_t(channel);
      const double va = a.sample(i), vb = b.sample(i);
      sumA += va, sumB += vb;
      squaresA += va * va, squaresB += vb * vb, products += va * vb;
    }
  const double n = double(across) * down, meanA = sumA / n, meanB = sumB / n;
  const double varianceA = squaresA / n - meanA * meanA, varianceB = squaresB / n - meanB * meanB;
  const double covariance = products / n - meanA * meanB, top = (1u << a.bits) - 1;
  const double c1 = std::pow(0.01 * top, 2), c2 = std::pow(0.03 * top, 2);
  return (2 * meanA * meanB + c1) * (2 * covariance + c2) /
         ((meanA * meanA + meanB * meanB + c1) * (varianceA + varianceB + c2));
}

}  // namespace

Difference compare(const Image& a, const Image& original) {
  Stages stages;
  if (a.width != original.width || a.height != original.height) throw Error("the pictures differ in size");
  Image adapted;
  const Image& b = adapt(original, adapted, stages, {a.colour}, a.bits);
  if (a.bits != b.bits) throw Error("the pictures differ in depth");
  Difference d;
  const size_t samples = a.data.size() / size_t(a.sampleBytes());
  double squares = 0;
  for (size_t i = 0; i < samples; ++i) {
    const int32_t difference = int32_t(a.sample(i)) - int32_t(b.sample(i));
    squares += double(difference) * difference;
    d.largest = std::max(d.largest, uint32_t(std::abs(difference)));
  }
  const double top = (1u << a.bits) - 1;
  d.psnr = 10 * std::log10(top * top * double(samples) / squares);

  constexpr int32_t kWindow = 8, kStep = 4;
  const int32_t across = std::min(kWindow, a.width), down = std::min(kWindow, a.height);
  double sum = 0;
  size_t windows = 0;
  for (int32_t y = 0; y + down <= a.height; y += kStep)
    for (int32_t x = 0; x + across <= a.width; x += kStep)
      for (int c = 0; c < a.channels(); ++c, ++windows) sum += similarity(a, b, x, y, c, across, down);
  d.ssim = sum / double(windows);
  return d;
}

}  // namespace qelconv
