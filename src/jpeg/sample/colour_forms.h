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

using simd::I16;
using simd::U8;

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

// The differences from G, as pairs (R - G, B - G): the weights of chroma sum to 0 and those of luma to a unit, so that
// one multiply-add of a pair makes a sum of three products.
struct DifferencePairs {
  I16 low, high;
  QELJ_INLINE explicit DifferencePairs(Rgb<I16> p)
      : low(simd::unpackLow(p.r - p.g, p.b - p.g)), high(simd::unpackHigh(p.r - p.g, p.b - p.g)) {}
};

// Products of 32 bits, one by one for a pixel; in vectors by pairs, of which each makes a sum.
template <const Matrix& M>
struct MatrixForm {
  // kLog2: chroma from the sums of 2^kLog2 pixels.
  template <int kLog2>
  static int32_t weigh(const Weights& w, Rgb<int32_t> p) {
    return (w.r * p.r + w.g * p.g + w.b * p.b + (w.round << kLog2)) >> (M.shift + kLog2);
  }
  template <int kLog2, Weights Matrix::* W>
  static QELJ_INLINE I16 weigh(const DifferencePairs& d, I16 g) {
    constexpr Weights w = M.*W;
    constexpr int kShift = M.shift + kLog2, kSum = sum(w);
    constexpr int kWhole = (kSum + (1 << (kShift - 1))) >> kShift, kRest = kSum - (kWhole << kShift);
    static_assert(kWhole == 0 || kWhole == 1);
    const auto pair = simd::pairs(w.r, w.b);
    auto low = simd::mulAddPairs(d.low, pair), high = simd::mulAddPairs(d.high, pair);
    if constexpr (kRest == 0) {
      const auto round = all<simd::I32>(w.round << kLog2);
      low += round, high += round;
    } else {
      const auto one = all<I16>(1), rest = simd::pairs(kRest, w.round << kLog2);
      low += simd::mulAddPairs(simd::unpackLow(g, one), rest);
      high += simd::mulAddPairs(simd::unpackHigh(g, one), rest);
    }
    const I16 weighed = simd::packI16(low >> kShift, high >> kShift);
    return kWhole ? weighed + g : weighed;
  }

  static int32_t luma(Rgb<int32_t> p) { return weigh<0>(M.y, p); }
  static QELJ_INLINE I16 luma(Rgb<I16> p) { return weigh<0, &Matrix::y>(DifferencePairs(p), p.g); }

  template <int kLog2 = 0>
  static CbCr<int32_t> centredChroma(Rgb<int32_t> sum) {
    return {weigh<kLog2>(M.cb, sum), weigh<kLog2>(M.cr, sum)};
  }
  template <int kLog2 = 0>
  static QELJ_INLINE CbCr<I16> centredChroma(Rgb<I16> sum) {
    const DifferencePairs d(sum);
    return {weigh<kLog2, &Matrix::cb>(d, sum.g), weigh<kLog2, &Matrix::cr>(d, sum.g)};
  }

  template <int kLog2 = 0, class T>
  static QELJ_INLINE CbCr<T> chroma(Rgb<T> sum) {
    const auto c = centredChroma<kLog2>(sum);
    return {T(c.cb + int16_t(128)), T(c.cr + int16_t(128))};
  }
  template <class T>
  static QELJ_INLINE Ycc<T> ycc(Rgb<T> p) {
    const auto c = chroma(p);
    return {luma(p), c.cb, c.cr};
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
  template <int shift>
  static QELJ_INLINE I16 term(I16 v, int32_t weight) {
    return mulHi(shlWrap(v, 16 - shift), all<I16>(int16_t(weight)));
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
  static QELJ_INLINE Ycc<I16> ycc(Rgb<I16> p) {
    const auto low = [](I16 v) { return as<int32_t>(simd::unpackLow(v, I16{})); };
    const auto high = [](I16 v) { return as<int32_t>(simd::unpackHigh(v, I16{})); };
    return {simd::packI16(roundToInt(weigh(low(p.r), low(p.g), low(p.b))),
                          roundToInt(weigh(high(p.r), high(p.g), high(p.b)))),
            I16{}, I16{}};
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
  QELJ_INLINE I16 operator()(I16 c) const { return (mulHiRound(c, all<I16>(laneWeight)) + all<I16>(laneRound)) >> 7; }
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
  static QELJ_INLINE I16 green(I16 cb, I16 cr) {
    const auto weights = simd::pairs(kCb, kCr);
    const auto round = all<simd::I32>(kRound << 8);
    return simd::packI16((simd::mulAddPairs(simd::unpackLow(cb, cr), weights) + round) >> 22,
                         (simd::mulAddPairs(simd::unpackHigh(cb, cr), weights) + round) >> 22);
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
};

// (stored * weight) >> 9, for chroma as stored (0..255), and what it is for a grey.
inline int32_t storedTerm(int32_t c, int32_t weight) { return ((c + 128) * weight) >> 9; }
QELJ_INLINE I16 storedTerm(I16 c, int32_t weight) {
  const auto stored = (as<uint16_t>(c) ^ uint16_t(0x8000)) >> 1;  // << 7
  return mulHi(as<int16_t>(stored), all<I16>(int16_t(weight)));
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
