// The filters of the reversible 5/3 wavelet (ISO/IEC 15444-1, F.4.8.1 and F.3.8.2.1), as lifting.h asks for them:
//
//   forward  B -= (left + right) >> 1, A += (left + right + 2) >> 2
//   inverse  B -= (left + right + 2) >> 2, A += (left + right) >> 1
//
// in two arithmetics, which differ in the sums of neighbours. Differences wrap in the width of a sample in both.
#ifndef QELJ_JPEG2000_TRANSFORM_FILTERS53_H
#define QELJ_JPEG2000_TRANSFORM_FILTERS53_H

#include "jpeg2000/transform/half_sum.h"
#include "jpeg2000/transform/lifting.h"

namespace qelj::jpeg2000::lifting {

// Sums that wrap in the width of the sample: those of rows, columns and steps, and of tiles of 32-bit samples.
struct WrappingSums {
  template <class V>
  static V half(V a, V b) {
    return shr(addWrap(a, b), 1);
  }
  template <class V>
  static V quarter(V a, V b) {
    return shr(addWrap(addWrap(a, b), all<V>(2)), 2);
  }
};
// Sums that do not overflow: those of tiles of 16-bit samples. One sample has room for them in 32 bits; of vectors,
// (a + b + 2) >> 2 is half of (a + b) >> 1, rounded up.
struct WideSums {
  template <class V>
  static V half(V a, V b) {
    return halfSum(a, b);
  }
  template <class V>
  static V quarter(V a, V b) {
    if constexpr (OneSample<V>) {
      return V((int32_t(a) + b + 2) >> 2);
    } else {
      const V sum = halfSum(a, b);
      return addWrap(sum >> 1, sum & 1);
    }
  }
};

template <class T, class Sums = WrappingSums>
struct Forward53 : Unscaled<T, 2> {
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return subWrap(x, Sums::half(left, right));
    else return addWrap(x, Sums::quarter(left, right));
  }
};
template <class T, class Sums = WrappingSums>
struct Inverse53 : Unscaled<T, 2> {
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return subWrap(x, Sums::quarter(left, right));
    else return addWrap(x, Sums::half(left, right));
  }
};

// --- two samples of a tile ---------------------------------------------------------------------------------

// (x + 1) >> 1 of a sample or a difference of two, in 32 bits (which wrap for 32-bit samples). For 16-bit samples no
// sum stands in front of the shift: on AArch64 GCC 12 takes a wrapping sum of widened samples, once it is halved, for
// an average of unsigned ones.
template <class T>
constexpr int32_t halfUp(int32_t x) {
  if constexpr (sizeof(T) < 4) return (x >> 1) + (x & 1);
  else return addWrap(x, 1) >> 1;
}

// A line of two samples has a form of its own, in 32 bits (which wrap for 32-bit samples); here are `count` such lines
// side by side. The low sample is that of the even coordinate, the high one that of the odd.
template <class T>
void liftPair53(bool forward, T* even, T* odd, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    const int32_t a = at(even, i), b = at(odd, i);
    if (forward) {
      const int32_t high = subWrap(b, a);
      put(even, i, T(addWrap(a, halfUp<T>(high))));
      put(odd, i, T(high));
    } else {
      const int32_t e = subWrap(a, halfUp<T>(b));
      put(even, i, T(e));
      put(odd, i, T(addWrap(b, e)));
    }
  }
}

}  // namespace qelj::jpeg2000::lifting

#endif
