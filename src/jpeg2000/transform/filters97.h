// The filters of the irreversible 9/7 wavelet (ISO/IEC 15444-1, F.4.8.2 and F.3.8.2.2), as lifting.h asks for them:
//
//   forward  B += alpha s, A += beta s, B += gamma s, A = (A + delta s) / K, B *= K
//   inverse  A /= K, B = K B - delta s, A -= gamma s, B -= beta s, A -= alpha s
//
// where s is the sum of the two neighbours. Five arithmetics are in use, and give results of their own:
//
//   Float         samples are floats, and so is every product and every sum
//   Wide          32-bit samples times constants of 16 fractional bits, in 64 bits, which hold both
//   High          16-bit samples, of whose products with 16-bit constants the high half is kept, which is one
//                 instruction; sums saturate
//   Cut           16-bit samples times constants of 14 fractional bits, in 32 bits, cut to 16 behind every product;
//                 sums wrap
//   ThroughFloat  32-bit samples, which are floats between the first stage and the last, where no rounding to integers
//                 comes in between
//
// The first three are those of rows, columns and steps, the last two those of whole tiles.
#ifndef QELJ_JPEG2000_TRANSFORM_FILTERS97_H
#define QELJ_JPEG2000_TRANSFORM_FILTERS97_H

#include "frame/fixed_point.h"
#include "jpeg2000/transform/lifting.h"

namespace qelj::jpeg2000::lifting {

// The irrational numbers of the filter (Table F.4), in single precision.
inline constexpr float kAlpha = -1.5861343f, kBeta = -0.052980117f, kGamma = 0.8829111f, kDelta = 0.44350687f;
inline constexpr float kK = 1.2301741f, kInvK = 0.8128931f, kDeltaOverK = 0.36052364f;
static_assert(bitCast<uint32_t>(kAlpha) == 0xBFCB0673 && bitCast<uint32_t>(kBeta) == 0xBD5901AE &&
              bitCast<uint32_t>(kGamma) == 0x3F620676 && bitCast<uint32_t>(kDelta) == 0x3EE31355 &&
              bitCast<uint32_t>(kK) == 0x3F9D7658 && bitCast<uint32_t>(kInvK) == 0x3F5019C3 &&
              bitCast<uint32_t>(kDeltaOverK) == 0x3EB8968E);

// --- Float: single precision -------------------------------------------------------------------------------

// A scaling is done by a stage that changes the same sample anyway: the last of forward, and the first two of inverse,
// of which the first meets neighbours that are still K times too large.
struct Forward97Float : Unscaled<float, 4> {
  static constexpr bool kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = left + right;
    if constexpr (t == 1) return kAlpha * sum + x;
    if constexpr (t == 2) return kBeta * sum + x;
    if constexpr (t == 3) return kGamma * sum + x;
    if constexpr (t == 4) return (kDelta * sum + x) * kInvK;
  }
  template <class V>
  static V finish(V x) {
    return x * kK;
  }
};
struct Inverse97Float : Unscaled<float, 4> {
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = left + right;
    if constexpr (t == 1) return kK * x - kDeltaOverK * sum;
    if constexpr (t == 2) return kInvK * x - kGamma * sum;
    if constexpr (t == 3) return x - kBeta * sum;
    if constexpr (t == 4) return x - kAlpha * sum;
  }
};

// --- Wide: 32-bit samples, 64-bit products, rounded once ---------------------------------------------------

inline constexpr int32_t kAlpha16 = q16(kAlpha), kBeta16 = q16(kBeta), kGamma16 = q16(kGamma), kDelta16 = q16(kDelta);
inline constexpr int32_t kK16 = q16(kK), kInvK16 = q16(kInvK), kDeltaOverK16 = q16(kDeltaOverK);

// (sum + 32768) >> 16, of which the low 32 bits are kept: no sample can overflow what stands in front of the shift.
constexpr int32_t rounded16(int64_t sum) { return int32_t(uint32_t(uint64_t((sum + 32768) >> 16))); }
constexpr int32_t product16(int64_t c, int64_t x) { return rounded16(c * x); }

// rounded16(cx * x + c * left + c * right). Vectors have instructions for the products of every other lane only.
template <int32_t cx, int32_t c, class V>
inline V weighted16(V x, V left, V right) {
  if constexpr (OneSample<V>) {
    return rounded16(cx * int64_t(x) + c * (int64_t(left) + right));
  } else {
    const auto sum = [](V a, V b, V d) {
      auto products = simd::mulEven(a, all<V>(cx));
      if constexpr (c != 0) products += simd::mulEven(b, all<V>(c)) + simd::mulEven(d, all<V>(c));
      return as<uint64_t>(products + 32768);
    };
    const auto odd = [](V v) { return as<V>(as<uint64_t>(v) >> 32); };
    // The bits 16 to 47 of the even lanes' sums move down to theirs, those of the odd lanes' sums up.
    const V low = as<V>(sum(x, left, right) >> 16);
    const V high = as<V>(sum(odd(x), odd(left), odd(right)) << 16);
    return simd::evenAndOdd(low, high);
  }
}
template <int32_t c, class V>
inline V product16(V x) {
  return weighted16<c, 0>(x, x, x);
}

// A stage that scales x has both products in one sum; the sum of the neighbours alone wraps in front of its product.
struct Forward97Wide : Unscaled<int32_t, 4> {
  static constexpr bool kHasFinish = true, kLongProducts = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return addWrap(x, product16<kAlpha16>(addWrap(left, right)));
    if constexpr (t == 2) return addWrap(x, product16<kBeta16>(addWrap(left, right)));
    if constexpr (t == 3) return addWrap(x, product16<kGamma16>(addWrap(left, right)));
    if constexpr (t == 4) return weighted16<kInvK16, kDeltaOverK16>(x, left, right);
  }
  template <class V>
  static V finish(V x) {
    return product16<kK16>(x);
  }
};
struct Inverse97Wide : Unscaled<int32_t, 4> {
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return weighted16<kK16, -kDeltaOverK16>(x, left, right);
    if constexpr (t == 2) return weighted16<kInvK16, -kGamma16>(x, left, right);
    if constexpr (t == 3) return subWrap(x, product16<kBeta16>(addWrap(left, right)));
    if constexpr (t == 4) return subWrap(x, product16<kAlpha16>(addWrap(left, right)));
  }
};

// Along a row the last low samples are rounded twice, once as A + delta s and once scaled.
struct Forward97WideRow : Forward97Wide {
  static constexpr bool kHasEnds = true;
  template <int t>
  static Range inner(ptrdiff_t w, int lead) {
    return {PTRDIFF_MIN / 2, t == 4 ? w - 1 - lead : PTRDIFF_MAX / 2};
  }
  template <int t>
  static int32_t end(ptrdiff_t, ptrdiff_t, int, int32_t x, int32_t left, int32_t right) {
    static_assert(t >= 1);
    return product16(kInvK16, addWrap(x, product16(kDelta16, addWrap(left, right))));
  }
};

// --- High: 16-bit samples, the rounded high half of 16-bit products ----------------------------------------

// (c * x + 2^14) >> 15 with c below 1: what one instruction gives. A constant of 1 or more is halved, and x doubled,
// saturating, in front of it.
template <int32_t c, class V>
inline V product15(V x) {
  static_assert(c == int16_t(c));
  return mulHiRound(x, all<V>(int16_t(c)));
}
template <int32_t half, class V>
inline V product15Twice(V x) {
  return product15<half>(addSat(x, x));
}

inline constexpr int32_t kHalfAlpha15 = q15(kAlpha / 2), kBeta15 = q15(kBeta), kGamma15 = q15(kGamma);
inline constexpr int32_t kHalfK15 = q15(kK / 2), kInvK15 = q15(kInvK);
// A bit more than 15, which the shift behind the product takes away; the inner samples of an inverse row have that bit
// cut from the constant instead, 11813 where the nearest were 11814.
inline constexpr int32_t kTwiceDeltaOverK15 = q15(2 * kDeltaOverK), kCutDeltaOverK15 = kTwiceDeltaOverK15 / 2;
static_assert(kCutDeltaOverK15 == q15(kDeltaOverK) - 1);

struct Forward97High : Unscaled<int16_t, 4> {
  static constexpr bool kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = addSat(left, right);
    if constexpr (t == 1) return addSat(x, product15Twice<kHalfAlpha15>(sum));
    if constexpr (t == 2) return addSat(x, product15<kBeta15>(sum));
    if constexpr (t == 3) return addSat(x, product15<kGamma15>(sum));
    if constexpr (t == 4) return addSat(shr(product15<kTwiceDeltaOverK15>(sum), 1), product15<kInvK15>(x));
  }
  template <class V>
  static V finish(V x) {
    return product15Twice<kHalfK15>(x);
  }
};
// The last two stages add the products of negated constants, which rounds ties otherwise than a difference would.
struct Inverse97High : Unscaled<int16_t, 4> {
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const V sum = addSat(left, right);
    if constexpr (t == 1) return subSat(product15Twice<kHalfK15>(x), shr(product15<kTwiceDeltaOverK15>(sum), 1));
    if constexpr (t == 2) return subSat(product15<kInvK15>(x), product15<kGamma15>(sum));
    if constexpr (t == 3) return addSat(x, product15<-kBeta15>(sum));
    if constexpr (t == 4) return addSat(x, product15Twice<-kHalfAlpha15>(sum));
  }
};

// Along a row this is the arithmetic of the inner samples. Those near the ends have the constants of the wide one, in
// 64 bits, and saturate; in three places the sum of products wraps at 32 bits.
inline int16_t sat16(int64_t x) { return saturate<int16_t>(x); }
// (a * x + b * y + 32768) >> 16 in 32 bits that wrap.
inline int32_t narrowSum16(int32_t a, int32_t x, int32_t b, int32_t y) {
  return addWrap(addWrap(mulWrap(a, x), mulWrap(b, y)), 32768) >> 16;
}
template <int t>
inline Range innerOfHighRow(ptrdiff_t w, int lead) {
  if constexpr (t == 1) return {2, w};
  if constexpr (t == 2) return {2 - lead, w - lead};
  if constexpr (t == 3) return {1, w - 1};
  if constexpr (t == 4) return {1 - lead, w - 1 - lead};
  if constexpr (t == 5) return {0, w - 2};
}

struct Forward97HighRow : Forward97High {
  static constexpr bool kHasEnds = true;
  template <int t>
  static Range inner(ptrdiff_t w, int lead) {
    return innerOfHighRow<t>(w, lead);
  }
  template <int t>
  static int16_t end(ptrdiff_t k, ptrdiff_t, int lead, int16_t x, int16_t left, int16_t right) {
    const int32_t sum = int32_t(left) + right;
    const bool first = k == (t == 3 ? -1 : 0) && lead == 0;
    if constexpr (t == 1) return sat16(x + product16(kAlpha16, sum));
    if constexpr (t == 2) return sat16(x + product16(kBeta16, sum));
    if constexpr (t == 3) return sat16(x + (first ? narrowSum16(kGamma16, sum, 0, 0) : product16(kGamma16, sum)));
    if constexpr (t == 4) {
      if (first) return sat16(rounded16(int64_t(kDeltaOverK16) * sum + int64_t(kInvK16) * x));
      return int16_t(product16(kInvK16, sat16(x + product16(kDelta16, sum))));
    }
    if constexpr (t == 5) return sat16(product16(kK16, x));
  }
};
struct Inverse97HighRow : Inverse97High {
  static constexpr bool kHasEnds = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return subSat(product15Twice<kHalfK15>(x), product15<kCutDeltaOverK15>(addSat(left, right)));
    else return Inverse97High::stage<t>(x, left, right);
  }
  template <int t>
  static Range inner(ptrdiff_t w, int lead) {
    return innerOfHighRow<t>(w, lead);
  }
  template <int t>
  static int16_t end(ptrdiff_t k, ptrdiff_t w, int lead, int16_t x, int16_t left, int16_t right) {
    const int32_t sum = int32_t(left) + right;
    const bool last = k == (t == 4 ? w - 1 : w) && lead == 1;
    if constexpr (t == 1) return sat16(rounded16(int64_t(kK16) * x - int64_t(kDeltaOverK16) * sum));
    if constexpr (t == 2)
      return sat16(last ? narrowSum16(kInvK16, x, -kGamma16, sum)
                        : rounded16(int64_t(kInvK16) * x - int64_t(kGamma16) * sum));
    if constexpr (t == 3) return sat16(x - product16(kBeta16, sum));
    if constexpr (t == 4) return sat16(x - (last ? narrowSum16(kAlpha16, sum, 0, 0) : product16(kAlpha16, sum)));
  }
};

// --- Cut: 16-bit samples, products of 14 fractional bits cut to 16 -----------------------------------------

inline constexpr int32_t kAlpha14 = q14(kAlpha), kBeta14 = q14(kBeta), kGamma14 = q14(kGamma), kDelta14 = q14(kDelta);
inline constexpr int32_t kK14 = q14(kK), kInvK14 = q14(kInvK);

// (sum + 8192) >> 14 of the 32-bit sums that belong to a vector's even and to its odd lanes, of which the low 16 bits are
// kept: the bits 14 to 29 move down to the even lanes, or up to the odd ones.
template <class V, class W>
inline V rounded14(W even, W odd) {
  return simd::evenAndOdd(as<V>(as<uint32_t>(even + 8192) >> 14), as<V>(shlWrap(odd + 8192, 2)));
}
// (c * a + c * b + 8192) >> 14, likewise. With 14 bits even alpha, -1.59, fits the 16-bit factors of a multiply-add of
// pairs, which is what vectors have. Along a row b is a, one lane ahead: then the pairs of a's lanes are those of the
// even sums as they are, and b's those of the odd ones. (Where a blend of both is no instruction, it is dearer than to
// unpack and pack.)
template <bool alongRow, int32_t c, class V>
inline V productOfSum14(V a, V b) {
  if constexpr (OneSample<V>) {
    return V((c * (int32_t(a) + b) + 8192) >> 14);
  } else {
    const auto sums = [](V pairs) { return simd::mulAddPairs(pairs, simd::pairs<V>(c, c)); };
    if constexpr (alongRow && simd::kShuffles) return rounded14<V>(sums(a), sums(b));
    const auto lanes = [&](V pairs) { return (sums(pairs) + 8192) >> 14 & 0xFFFF; };
    return as<V>(simd::packU16(lanes(simd::unpackLow(a, b)), lanes(simd::unpackHigh(a, b))));
  }
}
// (c * a + 8192) >> 14, likewise.
template <int32_t c, class V>
inline V product14(V a) {
  if constexpr (OneSample<V>) {
    return V((c * int32_t(a) + 8192) >> 14);
  } else if constexpr (!simd::kShuffles) {
    const auto lanes = [](V pairs) { return simd::mulAddPairs(pairs, simd::pairs<V>(c, 8192)) >> 14 & 0xFFFF; };
    const V one = all<V>(1);
    return as<V>(simd::packU16(lanes(simd::unpackLow(a, one)), lanes(simd::unpackHigh(a, one))));
  } else {
    return rounded14<V>(simd::mulAddPairs(a, simd::pairs<V>(c, 0)), simd::mulAddPairs(a, simd::pairs<V>(0, c)));
  }
}

template <bool alongRow>
struct Forward97Cut : Unscaled<int16_t, 4> {
  static constexpr bool kHasFinish = true, kLongProducts = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return addWrap(x, productOfSum14<alongRow, kAlpha14>(left, right));
    if constexpr (t == 2) return addWrap(x, productOfSum14<alongRow, kBeta14>(left, right));
    if constexpr (t == 3) return addWrap(x, productOfSum14<alongRow, kGamma14>(left, right));
    if constexpr (t == 4) return product14<kInvK14>(addWrap(x, productOfSum14<alongRow, kDelta14>(left, right)));
  }
  template <class V>
  static V finish(V x) {
    return product14<kK14>(x);
  }
};
template <bool alongRow>
struct Inverse97Cut : Unscaled<int16_t, 4> {
  static constexpr bool kHasStart = true, kLongProducts = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return subWrap(product14<kK14>(x), productOfSum14<alongRow, kDelta14>(left, right));
    if constexpr (t == 2) return subWrap(x, productOfSum14<alongRow, kGamma14>(left, right));
    if constexpr (t == 3) return subWrap(x, productOfSum14<alongRow, kBeta14>(left, right));
    if constexpr (t == 4) return subWrap(x, productOfSum14<alongRow, kAlpha14>(left, right));
  }
  template <class V>
  static V start(V x) {
    return product14<kInvK14>(x);
  }
};

// --- ThroughFloat: 32-bit samples through single precision -------------------------------------------------

// Between the stages a line holds the bits of floats; the integer sum of the first forward stage wraps.
template <class V>
inline auto floatSum(V left, V right) {
  return as<float>(left) + as<float>(right);
}
// Cut towards zero; saturates at both ends. Past either end a vector's conversion gives INT32_MIN, of which the mask
// makes INT32_MAX at the upper.
template <class F>
inline auto toSample(F x) {
  if constexpr (OneSample<F>) return x >= 2147483648.0f ? INT32_MAX : x < -2147483648.0f ? INT32_MIN : int32_t(x);
  else return truncateToInt(x) ^ as<int32_t>(x >= 2147483648.0f);
}

struct Forward97ThroughFloat : Unscaled<int32_t, 4> {
  static constexpr bool kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return as<V>(convert<float>(x) + kAlpha * convert<float>(addWrap(left, right)));
    if constexpr (t == 2) return as<V>(convert<float>(x) + kBeta * floatSum(left, right));
    if constexpr (t == 3) return as<V>(as<float>(x) + kGamma * floatSum(left, right));
    if constexpr (t == 4) return toSample((as<float>(x) + kDelta * floatSum(left, right)) * kInvK);
  }
  template <class V>
  static V finish(V x) {
    return toSample(as<float>(x) * kK);
  }
};
struct Inverse97ThroughFloat : Unscaled<int32_t, 4> {
  static constexpr bool kHasStart = true, kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const auto sum = floatSum(left, right);
    if constexpr (t == 1) return as<V>(kK * convert<float>(x) - kDelta * sum);
    if constexpr (t == 2) return as<V>(as<float>(x) - kGamma * sum);
    if constexpr (t == 3) return as<V>(as<float>(x) - kBeta * sum);
    if constexpr (t == 4) return toSample(as<float>(x) - kAlpha * sum);
  }
  template <class V>
  static V start(V x) {
    return as<V>(kInvK * convert<float>(x));
  }
  template <class V>
  static V finish(V x) {
    return toSample(as<float>(x));
  }
};

// --- one sample a band: the direct filter ------------------------------------------------------------------

// A region of one sample a band is filtered at once, not lifted, by the taps of analysis, from the centre outwards.
// Those of synthesis are the same with every other sign changed.
template <class T>
struct DirectTaps {
  T low[5], high[4], even[4], odd[5];
};
inline constexpr DirectTaps<float> kDirectTaps = [] {
  DirectTaps<float> taps{{0.602949f, 0.26686412f, -0.078223266f, -0.01686412f, 0.026748758f},
                         {1.115087f, -0.59127176f, -0.057543527f, 0.091271766f},
                         {},
                         {}};
  for (int i = 0; i < 4; ++i) taps.even[i] = i % 2 ? -taps.low[i] : taps.high[i];
  for (int i = 0; i < 5; ++i) taps.odd[i] = i % 2 ? -taps.high[i] : taps.low[i];
  return taps;
}();
// The nearest integers, but for two, which do not mirror their partners: -38749 where the nearest is -38750, and -5981
// where it is -5982.
inline constexpr DirectTaps<int32_t> kDirectTaps16 = [] {
  DirectTaps<int32_t> taps{};
  for (int i = 0; i < 5; ++i) taps.low[i] = q16(kDirectTaps.low[i]), taps.odd[i] = q16(kDirectTaps.odd[i]);
  for (int i = 0; i < 4; ++i) taps.high[i] = q16(kDirectTaps.high[i]), taps.even[i] = q16(kDirectTaps.even[i]);
  ++taps.high[1], ++taps.odd[3];
  return taps;
}();
static_assert(kDirectTaps16.high[1] == -38749 && kDirectTaps16.odd[1] == 38750 && kDirectTaps16.high[3] == 5982 &&
              kDirectTaps16.odd[3] == -5981);

// x(m) is the sample at position m of the line; forward reads the signal, inverse the bands as they alternate.
template <class Arithmetic>
struct Direct97 {
  template <class X, class T>
  static void forward(X x, T* low, T* high, int q) {
    put(low, 0, Arithmetic::low(x, q));
    put(high, 0, Arithmetic::filter(Arithmetic::kTaps.high, x, 1 - q));
  }
  template <class X, class T>
  static void inverse(X x, T* even, T* odd, int q) {
    put(even, 0, Arithmetic::filter(Arithmetic::kTaps.even, x, q));
    put(odd, 0, Arithmetic::filter(Arithmetic::kTaps.odd, x, 1 - q));
  }
};

struct DirectFloat {
  static constexpr DirectTaps<float> kTaps = kDirectTaps;
  template <int n, class X>
  static float filter(const float (&taps)[n], X x, ptrdiff_t centre) {
    float sum = (x(centre - n + 1) + x(centre + n - 1)) * taps[n - 1];
    for (int i = n - 2; i > 0; --i) sum = sum + (x(centre - i) + x(centre + i)) * taps[i];
    return sum + x(centre) * taps[0];
  }
  template <class X>
  static float low(X x, ptrdiff_t centre) {
    return filter(kTaps.low, x, centre);
  }
};
// Each tap is rounded by itself, on the sum of the two samples at its distance.
struct DirectWide {
  static constexpr DirectTaps<int32_t> kTaps = kDirectTaps16;
  template <int n, class X>
  static int32_t filter(const int32_t (&taps)[n], X x, ptrdiff_t centre) {
    int32_t sum = product16(taps[0], x(centre));
    for (int i = 1; i < n; ++i) sum = addWrap(sum, product16(taps[i], addWrap(x(centre - i), x(centre + i))));
    return sum;
  }
  template <class X>
  static int32_t low(X x, ptrdiff_t centre) {
    return filter(kTaps.low, x, centre);
  }
};
// The sum is rounded once and saturates; that of the low sample has 32 bits and wraps.
struct DirectHigh {
  static constexpr DirectTaps<int32_t> kTaps = kDirectTaps16;
  template <int n, class X>
  static int64_t roundedSum(const int32_t (&taps)[n], X x, ptrdiff_t centre) {
    int64_t sum = int64_t(taps[0]) * x(centre);
    for (int i = 1; i < n; ++i) sum += int64_t(taps[i]) * (int32_t(x(centre - i)) + x(centre + i));
    return sum + 32768;
  }
  template <int n, class X>
  static int16_t filter(const int32_t (&taps)[n], X x, ptrdiff_t centre) {
    return sat16(roundedSum(taps, x, centre) >> 16);
  }
  template <class X>
  static int16_t low(X x, ptrdiff_t centre) {
    return int16_t(int32_t(uint32_t(uint64_t(roundedSum(kTaps.low, x, centre)))) >> 16);
  }
};

}  // namespace qelj::jpeg2000::lifting

#endif
