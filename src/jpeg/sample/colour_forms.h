// The arithmetic of the colour conversions, each form once. A form has a scalar face, which is its definition, and a
// vector face with 16-bit lanes, which gives the same numbers. Results are not yet clamped to a byte.
//
// One conversion may use two forms, one for the main part of a row and one for its last pixels; they differ by a unit
// for some colours, and the position decides which one holds.
#ifndef QELJ_JPEG_SAMPLE_COLOUR_FORMS_H
#define QELJ_JPEG_SAMPLE_COLOUR_FORMS_H

#include <array>
#include <cmath>
#include <cstdint>

#include "frame/arith.h"
#include "frame/lanes.h"
#include "frame/ycbcr_weights.h"

namespace qelj::jpeg::colour {

template <class T>
struct Rgb {
  T r, g, b;
};
template <class T>
struct Ycc {
  T y, cb, cr;
};
template <class T>
struct CbCr {
  T cb, cr;
};

// --- Fixed-point matrices ----------------------------------------------------------------------------------

// One output: (r R + g G + b B + round) >> shift. Chroma comes centred on 0; the 128 of a stored plane is added behind
// the shift, which is the same as adding 128 << shift to the rounding term.
struct Weights {
  int32_t r, g, b, round;
};
struct Matrix {
  int shift;
  Weights y, cb, cr;
};
// Luma's weights are the nearest integers. In chroma, G has what is left to a sum of 0: a grey has no colour.
template <int kShift>
constexpr Matrix matrix(int32_t yRound, int32_t cbRound, int32_t crRound,
                        int32_t cbR = fixedPoint<kShift>(ycbcr::kCbR)) {
  constexpr int32_t kHalf = 1 << (kShift - 1), kCrB = fixedPoint<kShift>(ycbcr::kCrB);
  static_assert(-kHalf - kCrB == fixedPoint<kShift>(ycbcr::kCrG));
  return {kShift,
          {fixedPoint<kShift>(ycbcr::kYR), fixedPoint<kShift>(ycbcr::kYG), fixedPoint<kShift>(ycbcr::kYB), yRound},
          {cbR, -kHalf - cbR, kHalf, cbRound},
          {kHalf, -kHalf - kCrB, kCrB, crRound}};
}
constexpr int32_t sum(Weights w) { return w.r + w.g + w.b; }

// Luma's weights sum to a unit and one; the rounding term, short of a half, keeps white at 255. R weighs a little less
// in Cb than the standard's digits say, and Cr rounds 16 up.
inline constexpr Matrix kQ15 = matrix<15>(16266, 16384, 16400, q15(ycbcr::kCbR) + 1);
static_assert(sum(kQ15.y) == (1 << 15) + 1 && kQ15.cb.r == -5529 && kQ15.cb.g == q15(ycbcr::kCbG));
// In Cb, R weighs one less than the nearest, and G one more.
inline constexpr Matrix kQ14 = matrix<14>(8192, 8192, 8192, q14(ycbcr::kCbR) + 1);
static_assert(sum(kQ14.y) == 1 << 14 && kQ14.cb.r == -2764 && kQ14.cb.g == q14(ycbcr::kCbG) - 1);
// Partners of the truncated form, with its chroma weights. The first rounds chroma by a quarter, so that it stays below
// 256 without a clamp.
inline constexpr Matrix kQ14Quarter = matrix<14>(8192, 4096, 4096);
inline constexpr Matrix kQ14Half = matrix<14>(8192, 8192, 8192);
static_assert(kQ14Half.cb.g == q14(ycbcr::kCbG));
// Chroma rounds by one less than a half, for the same reason.
inline constexpr Matrix kQ16 = matrix<16>(32768, 32767, 32767);
static_assert(sum(kQ16.y) == 1 << 16 && kQ16.cb.g == q16(ycbcr::kCbG));

// The weights of chroma sum to 0 and those of luma to a unit, give or take one: vectors multiply the differences from G,
// which needs two products a sum.
template <Vector V>
struct Differences {
  V r, g, b;  // R - G, G, B - G
};
// Whether the high half of (scale d + add) factor / scale is (w d + more) >> (shift - 1) for all differences d.
constexpr bool highHalfAgrees(int32_t w, int32_t more, int shift, int32_t scale, int32_t add) {
  const int32_t factor = w * (1 << (17 - shift)) / scale;
  for (int32_t d = -255; d <= 255; ++d)
    if (((scale * d + add) * factor) >> 16 != (w * d + more) >> (shift - 1)) return false;
  return true;
}
template <const Matrix& M>
struct MatrixForm {
  // kLog2: chroma from the sums of 2^kLog2 pixels.
  template <int kLog2>
  static int32_t weigh(const Weights& w, Rgb<int32_t> p) {
    return (w.r * p.r + w.g * p.g + w.b * p.b + (w.round << kLog2)) >> (M.shift + kLog2);
  }

  static int32_t luma(Rgb<int32_t> p) { return weigh<0>(M.y, p); }
  template <Vector V>
  static QELJ_INLINE V luma(Differences<V> p) {
    constexpr Weights w = M.y;
    if constexpr (M.shift < 16) {
      return luma(p, own<V>());
    } else {
      static_assert(sum(w) == 1 << M.shift);
      const V weights = simd::pairs<V>(w.r, w.b);
      const auto weigh = [=](V pairs) { return (simd::mulAddPairs(pairs, weights) + w.round) >> M.shift; };
      return simd::packI16(weigh(simd::unpackLow(p.r, p.b)), weigh(simd::unpackHigh(p.r, p.b))) + p.g;
    }
  }

  template <int kLog2 = 0>
  static CbCr<int32_t> centredChroma(Rgb<int32_t> sum) {
    return {weigh<kLog2>(M.cb, sum), weigh<kLog2>(M.cr, sum)};
  }
  template <int kLog2 = 0>
  static CbCr<int32_t> chroma(Rgb<int32_t> sum) {
    const auto c = centredChroma<kLog2>(sum);
    return {c.cb + 128, c.cr + 128};
  }
  static Ycc<int32_t> ycc(Rgb<int32_t> p) {
    const auto c = chroma(p);
    return {luma(p), c.cb, c.cr};
  }
  template <Vector V>
  static QELJ_INLINE Ycc<V> ycc(Differences<V> p) {
    return {luma(p), withHalf<M.cb.r, M.cb.round>(p.r, p.b), withHalf<M.cr.b, M.cr.round>(p.b, p.r)};
  }
  template <Vector V>
  static QELJ_INLINE V luma(Rgb<V> p) {
    return luma(Differences<V>{p.r - p.g, p.g, p.b - p.g});
  }
  template <Vector V>
  static QELJ_INLINE Ycc<V> ycc(Rgb<V> p) {
    return ycc(Differences<V>{p.r - p.g, p.g, p.b - p.g});
  }

  // The constants in 16-bit lanes, for a vector whose lanes may be of different forms: constant(k) is the vector of
  // kConstants[k]. Only where chroma is of the shape that it has in ycc() below.
  enum Constant { kLumaR, kLumaB, kLumaG, kLumaRound, kCb, kCr, kCrAdd, kConstantCount };
  static constexpr int32_t kHalf = 1 << (M.shift - 1), kCbMore = M.cb.round - kHalf, kCrMore = M.cr.round - kHalf;
  static constexpr int32_t kAdd = highHalfAgrees(M.cr.b, kCrMore, M.shift, 32, 0) ? 0 : -1;
  static constexpr bool kByLanes = M.shift < 16 && highHalfAgrees(M.cb.r, kCbMore, M.shift, 1, 0) &&
                                   highHalfAgrees(M.cr.b, kCrMore, M.shift, 32, kAdd);
  static constexpr int kUp = M.shift < 16 ? 16 - M.shift : 1;
  static constexpr std::array<int16_t, kConstantCount> kConstants = {int16_t(M.y.r << kUp),
                                                                     int16_t(M.y.b << kUp),
                                                                     int16_t(sum(M.y) == 1 << M.shift ? 0 : -1),
                                                                     int16_t((M.y.round << (kUp - 1)) - 1),
                                                                     int16_t(M.cb.r * (1 << (17 - M.shift))),
                                                                     int16_t(M.cr.b * (1 << (17 - M.shift)) / 32),
                                                                     int16_t(kAdd)};
  static constexpr std::array<uint8_t, 0> kByteConstants = {};

  template <Vector V>
  static QELJ_INLINE Ycc<V> ycc(Differences<V> p, auto constant) {
    const V cr = (p.b << 5) + constant(kCrAdd);
    return {luma(p, constant), (mulHi(p.r, constant(kCb)) + p.b + int16_t(257)) >> 1,
            (mulHi(cr, constant(kCr)) + p.r + int16_t(257)) >> 1};
  }
  template <Vector V>
  static QELJ_INLINE Ycc<V> ycc(Rgb<V> p, auto constant) {
    return ycc(Differences<V>{p.r - p.g, p.g, p.b - p.g}, constant);
  }

 private:
  template <Vector V>
  static QELJ_INLINE auto own() {
    return [](int k) QELJ_INLINE_LAMBDA { return all<V>(kConstants[size_t(k)]); };
  }
  template <Vector V>
  static QELJ_INLINE V luma(Differences<V> p, auto constant) {
    static_assert(sum(M.y) == 1 << M.shift || (sum(M.y) == (1 << M.shift) + 1 && kUp == 1));
    // Products with 16 fraction bits, by halves of 16 bits: no lane is widened. The low halves are even, so that their
    // mean is half their sum; the mean of it and the rounding term, with which G's rest goes, has room for what they
    // carry.
    using U = With<uint16_t, V>;
    const V weightR = constant(kLumaR), weightB = constant(kLumaB);
    const U low = average(as<uint16_t>(mulWrap(p.r, weightR)), as<uint16_t>(mulWrap(p.b, weightB)));
    const U round = as<uint16_t>(p.g & constant(kLumaG)) + as<uint16_t>(constant(kLumaRound));
    const V carry = as<int16_t>(average(low, round) >> 14);
    return (mulHi(p.r, weightR) + mulHi(p.b, weightB)) + (p.g + carry);
  }

  // 128 + ((w d + half h + round) >> shift), for differences d and h. A half of h is added behind the product, and halved with
  // it: floor((floor(x) + n) / 2) is floor((x + n) / 2). So the product is all that needs fraction bits, and a high
  // multiplication has it. A rounding term beside the half is hidden in its operands.
  template <int32_t w, int32_t round, Vector V>
  static QELJ_INLINE V withHalf(V d, V h) {
    constexpr int32_t kMore = round - kHalf, kFactor = w * (1 << (17 - M.shift));
    constexpr auto agrees = [](int32_t scale, int32_t add) { return highHalfAgrees(w, kMore, M.shift, scale, add); };
    if constexpr (agrees(1, 0)) {
      return (mulHi(d, all<V>(int16_t(kFactor))) + h + int16_t(257)) >> 1;
    } else if constexpr (agrees(32, -1)) {
      return (mulHi((d << 5) - int16_t(1), all<V>(int16_t(kFactor / 32))) + h + int16_t(257)) >> 1;
    } else if constexpr (kMore == -1) {  // rounds the other way
      return int16_t(128) - ((mulHi(d, all<V>(int16_t(-kFactor))) - h + int16_t(1)) >> 1);
    } else {  // a quarter less than half
      static_assert(2 * kMore == -kHalf);
      return (mulHiRound(d, all<V>(int16_t(kFactor / 2))) + h + int16_t(256)) >> 1;
    }
  }
};

// --- Forward forms of their own shape ----------------------------------------------------------------------

// Every product is truncated by itself, to what a 16-bit high multiply keeps, before the sum.
struct TruncatedForm {
  // (v * weight) >> shift, for values of at most 15 - (16 - shift) bits: of a product of 32 bits, which costs a pixel
  // nothing, and as its high half in 16-bit lanes.
  template <int shift>
  static int32_t term(int32_t v, int32_t weight) {
    return (v * weight) >> shift;
  }
  template <int shift, Vector V>
  static QELJ_INLINE V term(V v, int32_t weight) {
    return mulHi(shlWrap(v, 16 - shift), all<V>(int16_t(weight)));
  }

  template <class T>
  static QELJ_INLINE T luma(Rgb<T> p) {
    // Twice the weights at one bit more, which keeps the vector's factors positive and shared with chroma's.
    constexpr Weights w = kQ14Half.y;
    return (term<9>(p.r, 2 * w.r) + term<9>(p.g, 2 * w.g) + term<9>(p.b, 2 * w.b) + int16_t(32)) >> 6;
  }
  template <int kLog2 = 0, class T>
  static QELJ_INLINE CbCr<T> chroma(Rgb<T> sum) {
    constexpr int s = 9 + kLog2;
    constexpr Weights b = kQ14Half.cb, r = kQ14Half.cr;
    return {T((term<s>(sum.b, b.b) - (term<s>(sum.r, -b.r) + term<s>(sum.g, -b.g)) + int16_t(4112)) >> 5),
            T((term<s>(sum.r, r.r) - (term<s>(sum.g, -r.g) + term<s>(sum.b, -r.b)) + int16_t(4112)) >> 5)};
  }
  template <class T>
  static QELJ_INLINE Ycc<T> ycc(Rgb<T> p) {
    const auto c = chroma(p);
    return {luma(p), c.cb, c.cr};
  }
};

// Luma first; chroma is a multiple of the difference between a colour and the rounded luma.
struct DifferenceForm {
  // The multiples to four digits.
  static constexpr auto kCb = int16_t(q15(0.5643)), kCr = int16_t(q15(0.7133));
  static_assert(q15(ycbcr::kCbOfDifference) == kCb + 1 && q15(ycbcr::kCrOfDifference) == kCr - 1);

  template <class V>
  static QELJ_INLINE V scale(V v, int16_t weight) {
    using Lane16 = With<int16_t, V>;
    return mulHiRound(Lane16(v), all<Lane16>(weight));
  }
  template <class T>
  static QELJ_INLINE Ycc<T> ycc(Rgb<T> p) {
    const T y = MatrixForm<kQ16>::luma(p);
    return {y, T(scale(p.b - y, kCb) + int16_t(128)), T(scale(p.r - y, kCr) + int16_t(128))};
  }
};

// Luma alone, in single precision: (R + G) + B in this order, rounded to nearest, ties to even.
struct FloatLumaForm {
  static constexpr auto kR = float(ycbcr::kYR), kG = float(ycbcr::kYG), kB = float(ycbcr::kYB);
  template <class V>
  static QELJ_INLINE auto weigh(V r, V g, V b) {  // lanes of 32 bits
    return (convert<float>(r) * kR + convert<float>(g) * kG) + convert<float>(b) * kB;
  }
  static Ycc<int32_t> ycc(Rgb<int32_t> p) { return {int32_t(std::nearbyintf(weigh(p.r, p.g, p.b))), 0, 0}; }
  template <Vector V>
  static QELJ_INLINE Ycc<V> ycc(Rgb<V> p) {
    const auto low = [](V v) { return as<int32_t>(simd::unpackLow(v, V{})); };
    const auto high = [](V v) { return as<int32_t>(simd::unpackHigh(v, V{})); };
    return {simd::packI16(roundToInt(weigh(low(p.r), low(p.g), low(p.b))),
                          roundToInt(weigh(high(p.r), high(p.g), high(p.b)))),
            V{}, V{}};
  }
};

// --- Inverse forms -----------------------------------------------------------------------------------------

// An inverse form tells what chroma, centred on 0 (-128..127), adds to luma for each colour: pixels that share a chroma
// sample share that.

// What Cb and Cr add to R, G and B.
struct ChromaWeights {
  int32_t rCr, gCb, gCr, bCb;
};
template <int kBits>
constexpr ChromaWeights kChroma = {fixedPoint<kBits>(ycbcr::kRCr), fixedPoint<kBits>(ycbcr::kGCb),
                                   fixedPoint<kBits>(ycbcr::kGCr), fixedPoint<kBits>(ycbcr::kBCb)};
// With another fifth digit: Cb weighs 0.34414.
inline constexpr ChromaWeights kChromaQ16 = {kChroma<16>.rCr, q16(-0.34414), kChroma<16>.gCr, kChroma<16>.bCb};
static_assert(kChromaQ16.gCb == kChroma<16>.gCb - 1);

// (weight * c + round) >> shift. In 16-bit lanes by a rounded high multiply of (c << 8) + low: a byte's place below the
// chroma is room for a rounding term, which so costs nothing; laneRound is for the rest of it.
struct ChromaTerm {
  int32_t weight, round;
  int shift;
  int16_t laneWeight;
  uint8_t low;
  int16_t laneRound = 0;

  constexpr int32_t operator()(int32_t c) const { return (weight * c + round) >> shift; }
  constexpr bool lanesAgree() const {
    for (int32_t c = -128; c < 128; ++c)
      if (((((256 * c + low) * laneWeight + (1 << 14)) >> 15) + laneRound) >> 7 != (*this)(c)) return false;
    return true;
  }
};
// What chroma takes from green: (cb * Cb + cr * Cr + round) >> shift.
struct GreenTerm {
  int32_t cb, cr, round;
  int shift;

  constexpr int32_t operator()(int32_t b, int32_t r) const { return (cb * b + cr * r + round) >> shift; }
  // The same with 15 bits behind the point, as a sum of products of bytes: the upper bytes of both weights are common to
  // all forms, the lower bytes and the rounding term a form's own.
  static constexpr int kBits = 15, kUpperCb = 44, kUpperCr = 91;
  constexpr int32_t scaled(int32_t weight) const {
    return shift < kBits ? weight << (kBits - shift) : weight >> (shift - kBits);
  }
  constexpr int32_t lowerCb() const { return scaled(cb) - (kUpperCb << 8); }
  constexpr int32_t lowerCr() const { return scaled(cr) - (kUpperCr << 8); }
  constexpr bool lanesAgree() const {
    const bool even =
        shift <= kBits || (cb % 2 == 0 && cr % 2 == 0 && shift == kBits + 1);  // nothing is cut from weights
    const int32_t lower = lowerCb() + lowerCr();
    return even && lowerCb() >= 0 && lowerCr() >= 0 && lower * 128 + scaled(round) < 32768;  // no lane overflows
  }
};

// Chroma in 16-bit lanes: (c << 8) + a form's low byte, and, where there are sums of products of bytes, the bytes Cb and
// Cr themselves.
template <Vector V>
struct ChromaLanes {
  V cb, cr, pairs;
};

struct Rounded {
  ChromaTerm red, blue;
  GreenTerm green;
  constexpr bool lanesAgree() const {
    return red.lanesAgree() && blue.lanesAgree() && green.lanesAgree() && red.laneRound == 0;
  }
};
// Every colour is rounded by itself. The vector face takes its constants lane by lane, so that the lanes may be of
// different forms.
template <const Rounded& R>
struct RoundedForm {
  static_assert(R.lanesAgree());
  static Rgb<int32_t> offset(CbCr<int32_t> c) { return {R.red(c.cr), -R.green(c.cb, c.cr), R.blue(c.cb)}; }

  enum Constant { kRed, kBlue, kBlueRound, kGreenLower, kGreenRound, kConstantCount };
  static constexpr bool kByLanes = true;
  static constexpr std::array<int16_t, kConstantCount> kConstants = {
      R.red.laneWeight, R.blue.laneWeight, R.blue.laneRound, int16_t(R.green.lowerCb() | R.green.lowerCr() << 8),
      int16_t(R.green.scaled(R.green.round))};
  enum ByteConstant { kLowCb, kLowCr, kCentre };  // below Cb and Cr; what centres them
  static constexpr std::array<uint8_t, 3> kByteConstants = {R.blue.low, R.red.low, 0x80};

  // constant(k) is the vector of kConstants[k].
  template <Vector V>
  static QELJ_INLINE Rgb<V> offset(const ChromaLanes<V>& c, auto constant) {
    return {mulHiRound(c.cr, constant(kRed)) >> 7, -green(c, constant(kGreenLower), constant(kGreenRound)),
            (mulHiRound(c.cb, constant(kBlue)) + constant(kBlueRound)) >> 7};
  }

 private:
  template <Vector V>
  static QELJ_INLINE V green(const ChromaLanes<V>& c, V lowerWeights, V round) {
    using G = GreenTerm;
    V upper, lower;
    if constexpr (simd::kBytePairs) {
      using U = With<uint8_t, V>;
      using S = With<int8_t, V>;
      upper = simd::mulAddBytes(as<U>(all<V>(int16_t(G::kUpperCb | G::kUpperCr << 8))), as<S>(c.pairs));
      lower = simd::mulAddBytes(as<U>(lowerWeights), as<S>(c.pairs));
    } else {
      const V cb = c.cb >> 8, cr = c.cr >> 8;
      upper = cb * int16_t(G::kUpperCb) + cr * int16_t(G::kUpperCr);
      lower = cb * (lowerWeights & int16_t(0xFF)) + cr * (lowerWeights >> 8);
    }
    return (upper + ((lower + round) >> 8)) >> (G::kBits - 8);
  }
};

// Rounding terms of somewhat less than a half. Blue, and the direction in which green is rounded, differ between pixels
// and planes.
constexpr Rounded roundedQ14(int32_t blueRound, uint8_t blueLow, int32_t greenRound) {
  constexpr ChromaWeights w = kChroma<14>;
  return {{w.rCr, 8145, 14, int16_t(w.rCr), 90},
          {w.bCb, blueRound, 14, int16_t(w.bCb), blueLow},
          {-w.gCb, -w.gCr, greenRound, 14}};
}
inline constexpr Rounded kPixelQ14 = roundedQ14(8135, 71, 8081), kPlaneQ14 = roundedQ14(7535, 66, 8082);
using PixelQ14Form = RoundedForm<kPixelQ14>;
using PlaneQ14Form = RoundedForm<kPlaneQ14>;

// Sixteen bits of fraction, rounded to nearest: the form of a row's last pixels. What is taken from green is rounded the
// other way.
inline constexpr Rounded kQ16Inverse = {{kChromaQ16.rCr, 32768, 16, kChroma<14>.rCr + 1, 90},
                                        {kChromaQ16.bCb, 32768, 16, kChroma<14>.bCb + 1, 67, 4},
                                        {-kChromaQ16.gCb, -kChromaQ16.gCr, 32767, 16}};
using InverseQ16Form = RoundedForm<kQ16Inverse>;

// (stored * weight) >> 9, for chroma as stored (0..255), and what it is for a grey. Vector lanes of chroma hold
// stored << 7.
inline int32_t storedTerm(int32_t c, int32_t weight) { return ((c + 128) * weight) >> 9; }
template <Vector V>
QELJ_INLINE V storedTerm(V stored, int32_t weight) {
  return mulHi(stored, all<V>(int16_t(weight)));
}
constexpr int32_t greyTerm(int32_t weight) { return (128 * weight) >> 9; }

// Every product is truncated by itself, to four bits of fraction.
struct InverseQ4Form {
  template <class T>
  static QELJ_INLINE Rgb<T> offset(CbCr<T> c) {
    constexpr ChromaWeights w = kChroma<13>;
    constexpr auto r = int16_t(8 - greyTerm(w.rCr)), g = int16_t(8 + greyTerm(-w.gCb - w.gCr)),
                   b = int16_t(8 - greyTerm(w.bCb));
    return {(storedTerm(c.cr, w.rCr) + r) >> 4, (g - (storedTerm(c.cb, -w.gCb) + storedTerm(c.cr, -w.gCr))) >> 4,
            (storedTerm(c.cb, w.bCb) + b) >> 4};
  }
};

// The same products at nine bits of fraction, floored before they are added; no rounding term.
struct InverseQ9Form {
  template <class T>
  static QELJ_INLINE Rgb<T> offset(CbCr<T> c) {
    constexpr ChromaWeights w = kChroma<14>;
    constexpr auto r = int16_t(greyTerm(w.rCr) >> 5), g = int16_t(greyTerm(-w.gCb - w.gCr) >> 5),
                   b = int16_t(greyTerm(w.bCb) >> 5);
    return {(storedTerm(c.cr, w.rCr) >> 5) - r, ((storedTerm(c.cr, w.gCr) + storedTerm(c.cb, w.gCb)) >> 5) + g,
            (storedTerm(c.cb, w.bCb) >> 5) - b};
  }
};

}  // namespace qelj::jpeg::colour

#endif
