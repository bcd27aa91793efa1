// The arithmetic of the colour conversions, each form once. A form has a scalar face, which is its definition, and a
// vector face with 16-bit lanes, which gives the same numbers. Results are not yet clamped to a byte.
//
// One conversion may use two forms, one for the main part of a row and one for its last pixels; they differ by a unit
// for some colours, and the position decides which one holds.
#ifndef QELJ_JPEG_SAMPLE_COLOUR_FORMS_H
#define QELJ_JPEG_SAMPLE_COLOUR_FORMS_H

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
    constexpr int kRest = sum(w) - (1 << M.shift);
    static_assert(kRest == 0 || kRest == 1);
    if constexpr (M.shift < 16) {
      // Products with 16 fraction bits, by halves of 16 bits: no lane is widened. The low halves are even, so that their
      // mean is half their sum; the mean of it and the rounding term has room for what they carry.
      using U = With<uint16_t, V>;
      constexpr int kUp = 16 - M.shift;
      const V weightR = all<V>(int16_t(w.r << kUp)), weightB = all<V>(int16_t(w.b << kUp));
      const U low = average(as<uint16_t>(mulWrap(p.r, weightR)), as<uint16_t>(mulWrap(p.b, weightB)));
      const U round = as<uint16_t>(kRest * p.g << (kUp - 1)) + uint16_t((w.round << (kUp - 1)) - 1);
      const V carry = as<int16_t>(average(low, round) >> 14);
      return (mulHi(p.r, weightR) + mulHi(p.b, weightB)) + (p.g + carry);
    } else {
      static_assert(kRest == 0);
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

 private:
  // 128 + ((w d + half h + round) >> shift), for differences d and h. A half of h is added behind the product, and halved with
  // it: floor((floor(x) + n) / 2) is floor((x + n) / 2). So the product is all that needs fraction bits, and a high
  // multiplication has it. A rounding term beside the half is hidden in its operands.
  template <int32_t w, int32_t round, Vector V>
  static QELJ_INLINE V withHalf(V d, V h) {
    constexpr int32_t kHalf = 1 << (M.shift - 1), kMore = round - kHalf, kFactor = w * (1 << (17 - M.shift));
    constexpr auto agrees = [](int32_t scale, int32_t add) {
      for (int32_t x = -255; x <= 255; ++x)
        if (((scale * x + add) * (kFactor / scale)) >> 16 != (w * x + kMore) >> (M.shift - 1)) return false;
      return true;
    };
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
// sample share that. offset() counts in units of 2^-kFraction; what is left after adding is cut, not rounded. Vector
// lanes of chroma hold c << 8, which is how bytes unpack for nothing; what takes chroma itself has two forms therefore.

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

template <class Form, class T>
QELJ_INLINE T shade(T y, T offset) {
  if constexpr (Form::kFraction == 0) return y + offset;
  else return (y * int16_t(1 << Form::kFraction) + offset) >> Form::kFraction;
}

// (weight * c + round) >> 14; in 16-bit lanes by a rounded high multiply, with a weight and a rounding term of its own.
struct ChromaTerm {
  int32_t weight, round;
  int16_t laneWeight, laneRound;

  constexpr int32_t operator()(int32_t c) const { return (weight * c + round) >> 14; }
  template <Vector V>
  QELJ_INLINE V operator()(V c) const {
    return (mulHiRound(c, all<V>(laneWeight)) + laneRound) >> 7;
  }
  constexpr bool lanesAgree() const {
    for (int32_t c = -128; c < 128; ++c)
      if ((((c * laneWeight + 64) >> 7) + laneRound) >> 7 != (*this)(c)) return false;
    return true;
  }
};

// Rounding terms of somewhat less than a half. Blue, and the direction in which green is rounded, differ between pixels
// and planes.
template <bool kPixels>
struct InverseQ14Form {
  static constexpr int kFraction = 0;
  static constexpr int16_t kR = kChroma<14>.rCr, kB = kChroma<14>.bCb;
  static constexpr ChromaTerm kRed{kR, 8145, kR, 63};
  static constexpr ChromaTerm kBlue = kPixels ? ChromaTerm{kB, 8135, kB, 63} : ChromaTerm{kB, 7535, kB + 1, 59};
  static_assert(kRed.lanesAgree() && kBlue.lanesAgree());
  static constexpr int kSign = kPixels ? 1 : -1, kRound = kPixels ? 8302 : 8082;
  static constexpr int kCb = kSign * kChroma<14>.gCb, kCr = kSign * kChroma<14>.gCr;

  static int32_t green(int32_t cb, int32_t cr) { return (kCb * cb + kCr * cr + kRound) >> 14; }
  template <Vector V>
  static QELJ_INLINE V green(V cb, V cr) {
    const V weights = simd::pairs<V>(kCb, kCr);
    return simd::packI16((simd::mulAddPairs(simd::unpackLow(cb, cr), weights) + (kRound << 8)) >> 22,
                         (simd::mulAddPairs(simd::unpackHigh(cb, cr), weights) + (kRound << 8)) >> 22);
  }
  template <class T>
  static QELJ_INLINE Rgb<T> offset(CbCr<T> c) {
    const T g = green(c.cb, c.cr);
    return {kRed(c.cr), kPixels ? g : -g, kBlue(c.cb)};
  }
};
using PixelQ14Form = InverseQ14Form<true>;
using PlaneQ14Form = InverseQ14Form<false>;

// Sixteen bits of fraction, rounded to nearest: the form of a row's last pixels.
struct InverseQ16Form {
  static constexpr int kFraction = 0;
  static Rgb<int32_t> offset(CbCr<int32_t> c) {
    constexpr ChromaWeights w = kChromaQ16;
    return {(w.rCr * c.cr + 32768) >> 16, (w.gCr * c.cr + w.gCb * c.cb + 32768) >> 16, (w.bCb * c.cb + 32768) >> 16};
  }
  template <Vector V>
  static QELJ_INLINE Rgb<V> offset(CbCr<V> c) {
    constexpr ChromaWeights w = kChromaQ16;
    static_assert(w.gCb % 2 == 0 && w.gCr % 2 == 0);
    const V weights = simd::pairs<V>(w.gCb / 2, w.gCr / 2);
    const auto weigh = [&](V pairs) { return (simd::mulAddPairs(pairs, weights) + (16384 << 8)) >> 23; };
    return {term<w.rCr>(c.cr), simd::packI16(weigh(simd::unpackLow(c.cb, c.cr)), weigh(simd::unpackHigh(c.cb, c.cr))),
            term<w.bCb>(c.cb)};
  }

 private:
  // (weight c + 32768) >> 16, of a weight that is whole units and less than a half.
  template <int32_t weight, Vector V>
  static QELJ_INLINE V term(V c) {
    constexpr auto kWhole = int16_t((weight + 32768) >> 16);
    return ((mulHi(c, all<V>(int16_t(weight - kWhole * 65536))) + int16_t(128)) >> 8) + (c >> 8) * kWhole;
  }
};

// (stored * weight) >> 9, for chroma as stored (0..255), and what it is for a grey.
inline int32_t storedTerm(int32_t c, int32_t weight) { return ((c + 128) * weight) >> 9; }
template <Vector V>
QELJ_INLINE V storedTerm(V c, int32_t weight) {
  const auto stored = (as<uint16_t>(c) ^ uint16_t(0x8000)) >> 1;  // << 7
  return mulHi(as<int16_t>(stored), all<V>(int16_t(weight)));
}
constexpr int32_t greyTerm(int32_t weight) { return (128 * weight) >> 9; }

// Four bits of fraction; every product is truncated by itself.
struct InverseQ4Form {
  static constexpr int kFraction = 4;
  template <class T>
  static QELJ_INLINE Rgb<T> offset(CbCr<T> c) {
    constexpr ChromaWeights w = kChroma<13>;
    constexpr auto r = int16_t(8 - greyTerm(w.rCr)), g = int16_t(8 + greyTerm(-w.gCb - w.gCr)),
                   b = int16_t(8 - greyTerm(w.bCb));
    return {storedTerm(c.cr, w.rCr) + r, g - (storedTerm(c.cb, -w.gCb) + storedTerm(c.cr, -w.gCr)),
            storedTerm(c.cb, w.bCb) + b};
  }
};

// The same products at nine bits of fraction, floored before they are added; no rounding term.
struct InverseQ9Form {
  static constexpr int kFraction = 0;
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
