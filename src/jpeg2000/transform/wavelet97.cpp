// The irreversible 9/7 wavelet by rows, by columns and by single steps (ISO/IEC 15444-1, F.4.8.2 and F.3.8.2.2), in
// single precision, in 16.16 fixed point, and on 16-bit samples. The last has two arithmetics: one of saturating 16-bit
// lanes for the steps down columns and the interior of a row, a wider one for the ends of a row.
#include "frame/fronts.h"
#include "jpeg2000/transform/region.h"

namespace qelj {
namespace {

using namespace jpeg2000::lifting;

// --- single precision --------------------------------------------------------------------------------------

struct Forward32f {
  using Sample = float;
  static constexpr int kStages = 4;
  static constexpr bool kHasStart = false, kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = left + right;
    if constexpr (t == 1) return all<V>(kAlpha) * sum + x;
    if constexpr (t == 2) return all<V>(kBeta) * sum + x;
    if constexpr (t == 3) return all<V>(kGamma) * sum + x;
    if constexpr (t == 4) return (all<V>(kDelta) * sum + x) * all<V>(kInvK);
  }
  template <class V>
  static V start(V x) {
    return x;
  }
  template <class V>
  static V finish(V x) {
    return x * all<V>(kK);
  }
};
struct Inverse32f : Forward32f {
  static constexpr bool kHasFinish = false;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = left + right;
    if constexpr (t == 1) return all<V>(kK) * x - all<V>(kDeltaOverK) * sum;
    if constexpr (t == 2) return all<V>(kInvK) * x - all<V>(kGamma) * sum;
    if constexpr (t == 3) return x - all<V>(kBeta) * sum;
    if constexpr (t == 4) return x - all<V>(kAlpha) * sum;
  }
  template <class V>
  static V finish(V x) {
    return x;
  }
};

// --- 16.16 fixed point -------------------------------------------------------------------------------------

constexpr int32_t kAlpha16 = -103949, kBeta16 = -3472, kGamma16 = 57862, kDelta16 = 29066;
constexpr int32_t kInvK16 = 53274, kK16 = 80621, kDeltaOverK16 = 23627;

// (c * x + 32768) >> 16 with a product of 64 bits; the low 32 bits of the result.
constexpr int32_t q16(int64_t c, int64_t x) { return int32_t(uint32_t(uint64_t((c * x + 32768) >> 16))); }

// (cx * x + c * left + c * right + 32768) >> 16 likewise.
template <int32_t cx, int32_t c, class V>
inline V weighted(V x, V left, V right) {
  if constexpr (OneSample<V>) {
    return q16(1, cx * int64_t(x) + c * (int64_t(left) + right));
  } else {
    using W = simd::With<int64_t, V>;
    const auto sum = [](V a, V b, V d) {
      W products = simd::mulEven(a, all<V>(cx));
      if constexpr (c != 0) products += simd::mulEven(b, all<V>(c)) + simd::mulEven(d, all<V>(c));
      return products + 32768;
    };
    const auto odd = [](V v) { return V(as<uint64_t>(v) >> 32); };
    // The bits 16 to 47 of the even lanes' sums move down to theirs, those of the odd lanes' sums up.
    const V low = V(as<uint64_t>(sum(x, left, right)) >> 16);
    const V high = V(as<uint64_t>(sum(odd(x), odd(left), odd(right))) << 16);
    return select(V(all<W>(0xFFFFFFFF)), low, high);
  }
}
template <int32_t c, class V>
inline V q16(V x) {
  return weighted<c, 0>(x, x, x);
}

struct Forward32s {
  using Sample = int32_t;
  static constexpr int kStages = 4;
  static constexpr bool kHasStart = false, kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return addWrap(x, q16<kAlpha16>(addWrap(left, right)));
    if constexpr (t == 2) return addWrap(x, q16<kBeta16>(addWrap(left, right)));
    if constexpr (t == 3) return addWrap(x, q16<kGamma16>(addWrap(left, right)));
    if constexpr (t == 4) return weighted<kInvK16, kDeltaOverK16>(x, left, right);
  }
  template <class V>
  static V start(V x) {
    return x;
  }
  template <class V>
  static V finish(V x) {
    return q16<kK16>(x);
  }
};
struct Inverse32s : Forward32s {
  static constexpr bool kHasFinish = false;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return weighted<kK16, -kDeltaOverK16>(x, left, right);
    if constexpr (t == 2) return weighted<kInvK16, -kGamma16>(x, left, right);
    if constexpr (t == 3) return subWrap(x, q16<kBeta16>(addWrap(left, right)));
    if constexpr (t == 4) return subWrap(x, q16<kAlpha16>(addWrap(left, right)));
  }
  template <class V>
  static V finish(V x) {
    return x;
  }
};

// Along a row the last low samples are rounded twice, once as s and once scaled.
struct ForwardRow32s : Forward32s {
  static constexpr bool kHasEnds = true;
  template <int t>
  static Range inner(ptrdiff_t w, int lead) {
    return {PTRDIFF_MIN / 2, t == 4 ? w - 1 - lead : PTRDIFF_MAX / 2};
  }
  template <int t>
  static int32_t end(ptrdiff_t, ptrdiff_t, int, int32_t x, int32_t left, int32_t right) {
    static_assert(t >= 1);
    return q16<kInvK16>(addWrap(x, q16<kDelta16>(addWrap(left, right))));
  }
};

// --- 16-bit samples ----------------------------------------------------------------------------------------

inline int16_t sumSat(int16_t a, int16_t b) { return addSat<int16_t>(a, b); }
inline int16_t differenceSat(int16_t a, int16_t b) { return subSat<int16_t>(a, b); }
template <class V>
inline V sumSat(V a, V b) {
  return addSat(a, b);
}
template <class V>
inline V differenceSat(V a, V b) {
  return subSat(a, b);
}
// (x * c + 16384) >> 15. A factor of 1 or more is halved and x doubled, saturating.
template <int c, class V>
inline V mulrs(V x) {
  if constexpr (OneSample<V>) return int16_t((x * int16_t(c) + 16384) >> 15);
  else return mulHiRound(x, all<V>(int16_t(c)));
}
template <class V>
inline V twice(V x) {
  return sumSat(x, x);
}

struct Forward16s {
  using Sample = int16_t;
  static constexpr int kStages = 4;
  static constexpr bool kHasStart = false, kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = sumSat(left, right);
    if constexpr (t == 1) return sumSat(x, mulrs<-25987>(twice(sum)));
    if constexpr (t == 2) return sumSat(x, mulrs<-1736>(sum));
    if constexpr (t == 3) return sumSat(x, mulrs<28931>(sum));
    if constexpr (t == 4) return sumSat(shr(mulrs<23627>(sum), 1), mulrs<26637>(x));
  }
  template <class V>
  static V start(V x) {
    return x;
  }
  template <class V>
  static V finish(V x) {
    return mulrs<20155>(twice(x));
  }
};
struct Inverse16s : Forward16s {
  static constexpr bool kHasFinish = false;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = sumSat(left, right);
    if constexpr (t == 1) return differenceSat(mulrs<20155>(twice(x)), shr(mulrs<23627>(sum), 1));
    if constexpr (t == 2) return differenceSat(mulrs<26637>(x), mulrs<28931>(sum));
    if constexpr (t == 3) return sumSat(x, mulrs<1736>(sum));
    if constexpr (t == 4) return sumSat(x, mulrs<25987>(twice(sum)));
  }
  template <class V>
  static V finish(V x) {
    return x;
  }
};

// The range of a row's samples with the arithmetic above; the rest has 32-bit sums and 64-bit products.
template <int t>
inline Range innerOfRow16s(ptrdiff_t w, int lead) {
  if constexpr (t == 1) return {2, w};
  if constexpr (t == 2) return {2 - lead, w - lead};
  if constexpr (t == 3) return {1, w - 1};
  if constexpr (t == 4) return {1 - lead, w - 1 - lead};
  if constexpr (t == 5) return {0, w - 2};
}
inline int16_t sat16(int64_t x) { return saturate<int16_t>(x); }
// (a * x + b * y + 32768) >> 16 in 32 bits that wrap, as three places of the ends have it.
inline int32_t narrow16(int32_t a, int32_t x, int32_t b, int32_t y) {
  return addWrap(addWrap(mulWrap(a, x), mulWrap(b, y)), 32768) >> 16;
}

struct ForwardRow16s : Forward16s {
  static constexpr bool kHasEnds = true;
  template <int t>
  static Range inner(ptrdiff_t w, int lead) {
    return innerOfRow16s<t>(w, lead);
  }
  template <int t>
  static int16_t end(ptrdiff_t k, ptrdiff_t, int q, int16_t x, int16_t left, int16_t right) {
    const int32_t sum = int32_t(left) + right;
    if constexpr (t == 1) return sat16(x + q16(kAlpha16, sum));
    if constexpr (t == 2) return sat16(x + q16(kBeta16, sum));
    if constexpr (t == 3) return sat16(x + (k == -1 && q == 0 ? narrow16(kGamma16, sum, 0, 0) : q16(kGamma16, sum)));
    if constexpr (t == 4) {
      if (k == 0 && q == 0) return sat16(q16(1, int64_t(kDeltaOverK16) * sum + int64_t(kInvK16) * x));
      return int16_t(q16(kInvK16, sat16(x + q16(kDelta16, sum))));
    }
    if constexpr (t == 5) return sat16(q16(kK16, x));
  }
};
struct InverseRow16s : Inverse16s {
  static constexpr bool kHasEnds = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    // Half of 23627, cut: rounds otherwise than the halved product of a single step.
    if constexpr (t == 1) return differenceSat(mulrs<20155>(twice(x)), mulrs<11813>(sumSat(left, right)));
    else return Inverse16s::stage<t>(x, left, right);
  }
  template <int t>
  static Range inner(ptrdiff_t w, int lead) {
    return innerOfRow16s<t>(w, lead);
  }
  template <int t>
  static int16_t end(ptrdiff_t k, ptrdiff_t w, int lead, int16_t x, int16_t left, int16_t right) {
    const bool q = !lead;
    const int32_t sum = int32_t(left) + right;
    if constexpr (t == 1) return sat16(q16(1, int64_t(kK16) * x - int64_t(kDeltaOverK16) * sum));
    if constexpr (t == 2)
      return sat16(k == w && !q ? narrow16(kInvK16, x, -kGamma16, sum)
                                : q16(1, int64_t(kInvK16) * x - int64_t(kGamma16) * sum));
    if constexpr (t == 3) return sat16(x - q16(kBeta16, sum));
    if constexpr (t == 4) return sat16(x - (k == w - 1 && !q ? narrow16(kAlpha16, sum, 0, 0) : q16(kAlpha16, sum)));
  }
};

// --- one sample a band: the direct filter ------------------------------------------------------------------

// Taps from the centre outwards. The synthesis filter of an odd position does not mirror the analysis exactly.
constexpr float kLowTaps[] = {0.602949f, 0.26686412f, -0.078223266f, -0.01686412f, 0.026748758f};
constexpr float kHighTaps[] = {1.115087f, -0.59127176f, -0.057543527f, 0.091271766f};
constexpr float kEvenTaps[] = {1.115087f, -0.26686412f, -0.057543527f, 0.01686412f};
constexpr float kOddTaps[] = {0.602949f, 0.59127176f, -0.078223266f, -0.091271766f, 0.026748758f};
constexpr int32_t kLowTaps16[] = {39515, 17489, -5126, -1105, 1753};
constexpr int32_t kHighTaps16[] = {73078, -38749, -3771, 5982};
constexpr int32_t kEvenTaps16[] = {73078, -17489, -3771, 1105};
constexpr int32_t kOddTaps16[] = {39515, 38750, -5126, -5981, 1753};

// x(m) is the sample at position m of the line; forward reads the signal, inverse the bands as they alternate.
struct One32f {
  template <int n, class X>
  static float filter(const float (&taps)[n], X x, ptrdiff_t centre) {
    float sum = (x(centre - n + 1) + x(centre + n - 1)) * taps[n - 1];
    for (int i = n - 2; i > 0; --i) sum = sum + (x(centre - i) + x(centre + i)) * taps[i];
    return sum + x(centre) * taps[0];
  }
  template <class X>
  static void forward(X x, float* low, float* high, int q) {
    put(low, 0, filter(kLowTaps, x, q));
    put(high, 0, filter(kHighTaps, x, 1 - q));
  }
  template <class X>
  static void inverse(X x, float* even, float* odd, int q) {
    put(even, 0, filter(kEvenTaps, x, q));
    put(odd, 0, filter(kOddTaps, x, 1 - q));
  }
};

// Each tap is rounded by itself, on the sum of the two samples at its distance.
struct One32s {
  template <int n, class X>
  static int32_t filter(const int32_t (&taps)[n], X x, ptrdiff_t centre) {
    int32_t sum = q16(taps[0], x(centre));
    for (int i = 1; i < n; ++i) sum = addWrap(sum, q16(taps[i], addWrap(x(centre - i), x(centre + i))));
    return sum;
  }
  template <class X>
  static void forward(X x, int32_t* low, int32_t* high, int q) {
    put(low, 0, filter(kLowTaps16, x, q));
    put(high, 0, filter(kHighTaps16, x, 1 - q));
  }
  template <class X>
  static void inverse(X x, int32_t* even, int32_t* odd, int q) {
    put(even, 0, filter(kEvenTaps16, x, q));
    put(odd, 0, filter(kOddTaps16, x, 1 - q));
  }
};

// The sum is rounded once; that of the forward low sample has 32 bits and wraps.
struct One16s {
  template <int n, class X>
  static int64_t filter(const int32_t (&taps)[n], X x, ptrdiff_t centre) {
    int64_t sum = int64_t(taps[0]) * x(centre);
    for (int i = 1; i < n; ++i) sum += int64_t(taps[i]) * (int32_t(x(centre - i)) + x(centre + i));
    return sum + 32768;
  }
  template <class X>
  static void forward(X x, int16_t* low, int16_t* high, int q) {
    put(low, 0, int16_t(int32_t(uint32_t(uint64_t(filter(kLowTaps16, x, q)))) >> 16));
    put(high, 0, sat16(filter(kHighTaps16, x, 1 - q) >> 16));
  }
  template <class X>
  static void inverse(X x, int16_t* even, int16_t* odd, int q) {
    put(even, 0, sat16(filter(kEvenTaps16, x, q) >> 16));
    put(odd, 0, sat16(filter(kOddTaps16, x, 1 - q) >> 16));
  }
};

}  // namespace

QelStatus qeliWTFwdRow_D97_JPEG2K_32f_C1R(const float* src, int32_t srcStep, float* dstLow, int32_t dstLowStep,
                                          float* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<Forward32f, One32f>(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, size, phase);
}
QelStatus qeliWTInvRow_D97_JPEG2K_32f_C1R(const float* srcLow, int32_t srcLowStep, const float* srcHigh,
                                          int32_t srcHighStep, QelSize size, float* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<Inverse32f, One32f>(srcLow, srcLowStep, srcHigh, srcHighStep, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdCol_D97_JPEG2K_32f_C1R(const float* src, int32_t srcStep, float* dstLow, int32_t dstLowStep,
                                          float* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardColumns<Forward32f, One32f>(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, size, phase);
}
QelStatus qeliWTInvCol_D97_JPEG2K_32f_C1R(const float* srcLow, int32_t srcLowStep, const float* srcHigh,
                                          int32_t srcHighStep, QelSize size, float* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseColumns<Inverse32f, One32f>(srcLow, srcLowStep, srcHigh, srcHighStep, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdColLift_D97_JPEG2K_32f_C1(const float* srcEven, const float* srcOdd, const float* srcEvenNext,
                                             float* srcDstLow, float* dstLowNext, float* srcDstHigh,
                                             float* srcDstHighNext, float* dstHighNext, int32_t width) {
  return liftRows<Forward32f>({srcEvenNext, srcOdd, srcEven, srcDstHighNext, srcDstLow, srcDstHigh},
                              {nullptr, dstHighNext, dstLowNext, srcDstHighNext, srcDstLow, srcDstHigh}, width);
}
QelStatus qeliWTInvColLift_D97_JPEG2K_32f_C1(const float* srcLow, const float* srcHighPrev, const float* srcHigh,
                                             const float* srcEvenDone, float* srcDstOdd, float* srcDstEven,
                                             float* dstOddNext, float* dstEvenNext, int32_t width) {
  return liftRows<Inverse32f>({srcHigh, srcLow, srcHighPrev, srcDstEven, srcDstOdd, srcEvenDone},
                              {nullptr, dstEvenNext, dstOddNext, srcDstEven, srcDstOdd, nullptr}, width);
}

QelStatus qeliWTFwdRow_D97_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, int32_t* dstLow, int32_t dstLowStep,
                                          int32_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<ForwardRow32s, One32s>(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, size, phase);
}
QelStatus qeliWTInvRow_D97_JPEG2K_32s_C1R(const int32_t* srcLow, int32_t srcLowStep, const int32_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int32_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<Inverse32s, One32s>(srcLow, srcLowStep, srcHigh, srcHighStep, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdColLift_D97_JPEG2K_32s_C1(const int32_t* srcEven, const int32_t* srcOdd, const int32_t* srcEvenNext,
                                             int32_t* srcDstLow, int32_t* dstLowNext, int32_t* srcDstHigh,
                                             int32_t* srcDstHighNext, int32_t* dstHighNext, int32_t width) {
  return liftRows<Forward32s>({srcEvenNext, srcOdd, srcEven, srcDstHighNext, srcDstLow, srcDstHigh},
                              {nullptr, dstHighNext, dstLowNext, srcDstHighNext, srcDstLow, srcDstHigh}, width);
}
QelStatus qeliWTInvColLift_D97_JPEG2K_32s_C1(const int32_t* srcLow, const int32_t* srcHighPrev, const int32_t* srcHigh,
                                             const int32_t* srcEvenDone, int32_t* srcDstOdd, int32_t* srcDstEven,
                                             int32_t* dstOddNext, int32_t* dstEvenNext, int32_t width) {
  return liftRows<Inverse32s>({srcHigh, srcLow, srcHighPrev, srcDstEven, srcDstOdd, srcEvenDone},
                              {nullptr, dstEvenNext, dstOddNext, srcDstEven, srcDstOdd, nullptr}, width);
}

QelStatus qeliWTFwdRow_D97_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dstLow, int32_t dstLowStep,
                                          int16_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<ForwardRow16s, One16s>(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, size, phase);
}
QelStatus qeliWTInvRow_D97_JPEG2K_16s_C1R(const int16_t* srcLow, int32_t srcLowStep, const int16_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int16_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<InverseRow16s, One16s>(srcLow, srcLowStep, srcHigh, srcHighStep, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdColLift_D97_JPEG2K_16s_C1(const int16_t* srcEven, const int16_t* srcOdd, const int16_t* srcEvenNext,
                                             int16_t* srcDstLow, int16_t* dstLowNext, int16_t* srcDstHigh,
                                             int16_t* srcDstHighNext, int16_t* dstHighNext, int32_t width) {
  return liftRows<Forward16s>({srcEvenNext, srcOdd, srcEven, srcDstHighNext, srcDstLow, srcDstHigh},
                              {nullptr, dstHighNext, dstLowNext, srcDstHighNext, srcDstLow, srcDstHigh}, width);
}
QelStatus qeliWTInvColLift_D97_JPEG2K_16s_C1(const int16_t* srcLow, const int16_t* srcHighPrev, const int16_t* srcHigh,
                                             const int16_t* srcEvenDone, int16_t* srcDstOdd, int16_t* srcDstEven,
                                             int16_t* dstOddNext, int16_t* dstEvenNext, int32_t width) {
  return liftRows<Inverse16s>({srcHigh, srcLow, srcHighPrev, srcDstEven, srcDstOdd, srcEvenDone},
                              {nullptr, dstEvenNext, dstOddNext, srcDstEven, srcDstOdd, nullptr}, width);
}

}  // namespace qelj
