// Prediction of lossless JPEG (ISO/IEC 10918-1, H.1.2.1, Table H.1): rows of samples to and from differences, modulo
// 2^16. With a the sample on the left, b the one above, c the one above on the left.
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"

namespace qelj {
namespace {

using simd::I16;

// The halves of exact 17-bit sums and differences: of one sample in 32 bits, of vectors in 16-bit lanes, where what the
// low bits carry or borrow comes last.
inline int32_t halfSum(int32_t a, int32_t b) { return (a + b) >> 1; }
inline int32_t halfDifference(int32_t a, int32_t b) { return (a - b) >> 1; }
template <Vector V>
inline V halfSum(V a, V b) {
  return addWrap(addWrap(a >> 1, b >> 1), a & b & 1);
}
template <Vector V>
inline V halfDifference(V a, V b) {
  return subWrap(subWrap(a >> 1, b >> 1), ~a & b & 1);
}

template <int kPredictor, class V>
inline V ownPredict(V a, V b, V c) {
  switch (kPredictor) {
    case 1:
      return a;
    case 2:
      return b;
    case 3:
      return c;
    case 4:
      return addWrap(a, subWrap(b, c));
    case 5:
      return addWrap(a, halfDifference(b, c));
    case 6:
      return addWrap(b, halfDifference(a, c));
    default:
      return halfSum(a, b);
  }
}

// --- differences: all of a row's samples are known ---------------------------------------------------------

// From right to left, so that dst may be src or prevRow. `first` predicts the leftmost sample.
template <int kPredictor>
void ownDiffRow(const int16_t* src, const int16_t* prevRow, int16_t* dst, int32_t width, int32_t first) {
  constexpr int kGroup = simd::kLanes<I16>;
  const auto group = [](const int16_t* samples, int32_t x) { return load<I16>(offset(samples, x)); };
  int32_t x = width;
  if constexpr (simd::kEnabled)
    for (; x - kGroup >= 1; x -= kGroup) {
      const int32_t i = x - kGroup;
      const I16 p = ownPredict<kPredictor>(group(src, i - 1), group(prevRow, i), group(prevRow, i - 1));
      store(offset(dst, i), subWrap(group(src, i), p));
    }
  for (--x; x >= 1; --x)
    put(dst, x,
        int16_t(at(src, x) - ownPredict<kPredictor, int32_t>(at(src, x - 1), at(prevRow, x), at(prevRow, x - 1))));
  put(dst, 0, int16_t(at(src, 0) - first));
}

// --- reconstruction: every sample feeds the next -----------------------------------------------------------

using Eight = simd::Vec<int16_t, 16>;

inline Eight lastInAll(Eight v) { return simd::shuffle8<7, 7, 7, 7, 7, 7, 7, 7>(v); }
inline Eight runningSum(Eight v) {
  v = addWrap(v, simd::moveUp<1>(v));
  v = addWrap(v, simd::moveUp<2>(v));
  return addWrap(v, simd::moveUp<4>(v));
}

// Predictors 1 to 5 make rows of sums: 2 and 3 of the row above alone; 1, 4 and 5 running sums of what does not depend
// on the row itself (4: of the differences, for dst - b). 6 and 7 go sample by sample. A sample of the row above is
// read before dst is written there, so that dst may be src or prevRow. `first` predicts the leftmost sample.
template <int kPredictor>
void ownReconstructRow(const int16_t* src, const int16_t* prevRow, int16_t* dst, ptrdiff_t width, int32_t first) {
  int16_t c = at(prevRow, 0);
  int16_t a = int16_t(at(src, 0) + first);
  put(dst, 0, a);
  ptrdiff_t x = 1;
  if constexpr (simd::kEnabled && kPredictor <= 5) {
    Eight sum = Eight{} + (kPredictor == 4 ? subWrap(a, c) : a);
    for (; x + 8 <= width; x += 8) {
      Eight d = load<Eight>(offset(src, x));
      const Eight above = kPredictor == 1 ? Eight{} : load<Eight>(offset(prevRow, x));
      const Eight left = simd::moveUp<1>(above) | Eight{c, 0, 0, 0, 0, 0, 0, 0};
      c = above[7];
      if constexpr (kPredictor == 2) d = addWrap(d, above);
      if constexpr (kPredictor == 3) d = addWrap(d, left);
      if constexpr (kPredictor == 5) d = addWrap(d, halfDifference(above, left));
      if constexpr (kPredictor == 1 || kPredictor >= 4) {
        d = addWrap(runningSum(d), sum);
        sum = lastInAll(d);
      }
      if constexpr (kPredictor == 4) d = addWrap(d, above);
      store(offset(dst, x), d);
      a = d[7];
    }
  }
  for (; x < width; ++x) {
    const int16_t b = at(prevRow, x);
    a = int16_t(at(src, x) + ownPredict<kPredictor, int32_t>(a, b, c));
    put(dst, x, a);
    c = b;
  }
}

// The row's kernel for a predictor of Table H.1.
template <class Kernel>
inline QelStatus ownWithPredictor(int32_t predictor, Kernel&& kernel) {
  return require(withConstant<1, 7>(predictor, kernel), qelStatusBadArg);
}

constexpr QelStatus checkFirstRow(const int16_t* src, const int16_t* dst, int32_t width, int32_t precision,
                                  int32_t pointTransform) {
  return check(
      nonNull(src, dst), length(width),
      require(precision >= 2 && precision <= 16 && pointTransform >= 0 && pointTransform < precision, qelStatusBadArg));
}

}  // namespace

QelStatus qeliDiffPredFirstRow_JPEG_16s_C1(const int16_t* src, int16_t* dst, int32_t width, int32_t precision,
                                           int32_t pointTransform) {
  if (auto s = checkFirstRow(src, dst, width, precision, pointTransform); s) return s;
  ownDiffRow<1>(src, src, dst, width, 1 << (precision - pointTransform - 1));
  return qelStatusOk;
}

QelStatus qeliReconstructPredFirstRow_JPEG_16s_C1(const int16_t* src, int16_t* dst, int32_t width, int32_t precision,
                                                  int32_t pointTransform) {
  if (auto s = checkFirstRow(src, dst, width, precision, pointTransform); s) return s;
  ownReconstructRow<1>(src, src, dst, width, 1 << (precision - pointTransform - 1));
  return qelStatusOk;
}

QelStatus qeliDiffPredRow_JPEG_16s_C1(const int16_t* src, const int16_t* prevRow, int16_t* dst, int32_t width,
                                      int32_t predictor) {
  if (auto s = check(nonNull(src, prevRow, dst), length(width)); s) return s;
  return ownWithPredictor(predictor, [&](auto p) { ownDiffRow<p>(src, prevRow, dst, width, at(prevRow, 0)); });
}

QelStatus qeliReconstructPredRow_JPEG_16s_C1(const int16_t* src, const int16_t* prevRow, int16_t* dst, int32_t width,
                                             int32_t predictor) {
  if (auto s = check(nonNull(src, prevRow, dst), length(width)); s) return s;
  return ownWithPredictor(predictor, [&](auto p) { ownReconstructRow<p>(src, prevRow, dst, width, at(prevRow, 0)); });
}

}  // namespace qelj
