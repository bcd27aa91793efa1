// The arithmetic of the colour conversions, each form once. A form has a scalar face, which is its definition, and a
// vector face with 16-bit lanes, which gives the same numbers. Results are not yet clamped to a byte.
//
// One conversion may use two forms, one for the main part of a row and one for its last pixels; they differ
// by a unit for some colours, and the position decides which one holds.
#ifndef QELJ_JPEG_SAMPLE_COLOUR_FORMS_H
#define QELJ_JPEG_SAMPLE_COLOUR_FORMS_H

#include <cmath>
#include <cstdint>
#include <type_traits>

#include "frame/arith.h"
#include "frame/lanes.h"

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
struct Chroma {
  T cb, cr;
};

// --- Fixed-point matrices ----------------------------------------------------------------------------------

// One output: (r R + g G + b B + round) >> shift. Chroma comes centred on 0; the 128 of a stored plane is
// added behind the shift, which is the same as adding 128 << shift to the rounding term.
struct Weights {
  int32_t r, g, b, round;
};
struct Matrix {
  int shift;
  Weights y, cb, cr;
};

// Luma's weights sum to a unit and one; the rounding term, short of a half, keeps white at 255. Cr rounds 16 up.
inline constexpr Matrix kQ15{
    15, {9798, 19235, 3736, 16266}, {-5529, -10855, 16384, 16384}, {16384, -13720, -2664, 16400}};
inline constexpr Matrix kQ14{14, {4899, 9617, 1868, 8192}, {-2764, -5428, 8192, 8192}, {8192, -6860, -1332, 8192}};
// Partners of the truncated form, with its chroma weights. The first rounds chroma by a quarter, so that it
// stays below 256 without a clamp.
inline constexpr Matrix kQ14Quarter{
    14, {4899, 9617, 1868, 8192}, {-2765, -5427, 8192, 4096}, {8192, -6860, -1332, 4096}};
inline constexpr Matrix kQ14Half{14, {4899, 9617, 1868, 8192}, {-2765, -5427, 8192, 8192}, {8192, -6860, -1332, 8192}};
// Chroma rounds by one less than a half, for the same reason.
inline constexpr Matrix kQ16{
    16, {19595, 38470, 7471, 32768}, {-11059, -21709, 32768, 32767}, {32768, -27439, -5329, 32767}};

// The differences from G, as pairs (R - G, B - G): the weights of chroma sum to 0 and those of luma to a
// unit, so that one multiply-add of a pair makes a sum of three products.
struct DifferencePairs {
  I16 low, high;
  QELJ_INLINE explicit DifferencePairs(Rgb<I16> p)
      : low(simd::unpackLow(p.r - p.g, p.b - p.g)), high(simd::unpackHigh(p.r - p.g, p.b - p.g)) {}
};

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
    constexpr int kShift = M.shift + kLog2, kSum = w.r + w.g + w.b;
    constexpr int kWhole = (kSum + (1 << (kShift - 1))) >> kShift, kRest = kSum - (kWhole << kShift);
    static_assert(kWhole == 0 || kWhole == 1);
    const auto pair = simd::pairs(w.r, w.b);
    auto low = simd::mulAddPairs(d.low, pair), high = simd::mulAddPairs(d.high, pair);
    if constexpr (kRest == 0) {
      const auto round = all<simd::I32>(w.round << kLog2);
      low += round, high += round;
    } else {
      const auto one = all<I16>(1), rest = simd::pairs(kRest, w.round << kLog2);
      low += simd::mulAddPairs(simd::unpackLow(g, one), rest),
          high += simd::mulAddPairs(simd::unpackHigh(g, one), rest);
    }
    const I16 sum = simd::packI16(low >> kShift, high >> kShift);
    return kWhole ? sum + g : sum;
  }

  static int32_t luma(Rgb<int32_t> p) { return weigh<0>(M.y, p); }
  static QELJ_INLINE I16 luma(Rgb<I16> p) { return weigh<0, &Matrix::y>(DifferencePairs(p), p.g); }

  template <int kLog2 = 0>
  static Chroma<int32_t> centredChroma(Rgb<int32_t> sum) {
    return {weigh<kLog2>(M.cb, sum), weigh<kLog2>(M.cr, sum)};
  }
  template <int kLog2 = 0>
  static QELJ_INLINE Chroma<I16> centredChroma(Rgb<I16> sum) {
    const DifferencePairs d(sum);
    return {weigh<kLog2, &Matrix::cb>(d, sum.g), weigh<kLog2, &Matrix::cr>(d, sum.g)};
  }

  template <int kLog2 = 0, class T>
  static QELJ_INLINE Chroma<T> chroma(Rgb<T> sum) {
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
  // (v * weight) >> shift, for values of at most 15 - (16 - shift) bits.
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
    return (term<9>(p.r, 2 * 4899) + term<9>(p.g, 2 * 9617) + term<9>(p.b, 2 * 1868) + int16_t(32)) >> 6;
  }
  template <int kLog2 = 0, class T>
  static QELJ_INLINE Chroma<T> chroma(Rgb<T> sum) {
    constexpr int s = 9 + kLog2;
    return {T((term<s>(sum.b, 8192) - (term<s>(sum.r, 2765) + term<s>(sum.g, 5427)) + int16_t(4112)) >> 5),
            T((term<s>(sum.r, 8192) - (term<s>(sum.g, 6860) + term<s>(sum.b, 1332)) + int16_t(4112)) >> 5)};
  }
  template <class T>
  static QELJ_INLINE Ycc<T> ycc(Rgb<T> p) {
    const auto c = chroma(p);
    return {luma(p), c.cb, c.cr};
  }
};

// Luma first; chroma is a multiple of the difference between a colour and the rounded luma.
struct DifferenceForm {
  static int32_t scale(int32_t v, int16_t weight) { return (v * weight + 16384) >> 15; }
  static QELJ_INLINE I16 scale(I16 v, int16_t weight) { return mulHiRound(v, all<I16>(weight)); }
  template <class T>
  static QELJ_INLINE Ycc<T> ycc(Rgb<T> p) {
    const T y = MatrixForm<kQ16>::luma(p);
    return {y, T(scale(p.b - y, 18491) + int16_t(128)), T(scale(p.r - y, 23373) + int16_t(128))};
  }
};

// Luma alone, in single precision: (R + G) + B in this order, rounded to nearest, ties to even.
struct FloatLumaForm {
  static constexpr float kR = 0.29899999499320984f, kG = 0.5870000123977661f, kB = 0.11400000005960464f;
  static Ycc<int32_t> ycc(Rgb<int32_t> p) {
    return {int32_t(std::nearbyintf((float(p.r) * kR + float(p.g) * kG) + float(p.b) * kB)), 0, 0};
  }
  static QELJ_INLINE Ycc<I16> ycc(Rgb<I16> p) {
    using simd::F32;
    const auto sum = [](I16 r, I16 g, I16 b) {  // 16-bit samples in 32-bit lanes
      const auto floats = [](I16 v) { return convert<float>(as<int32_t>(v)); };
      return roundToInt((floats(r) * all<F32>(kR) + floats(g) * all<F32>(kG)) + floats(b) * all<F32>(kB));
    };
    const I16 zero{};
    return {simd::packI16(sum(simd::unpackLow(p.r, zero), simd::unpackLow(p.g, zero), simd::unpackLow(p.b, zero)),
                          sum(simd::unpackHigh(p.r, zero), simd::unpackHigh(p.g, zero), simd::unpackHigh(p.b, zero))),
            zero, zero};
  }
};

// --- Inverse forms -----------------------------------------------------------------------------------------

// An inverse form tells what chroma, centred on 0 (-128..127), adds to luma for each colour: pixels that
// share a chroma sample share that. offset() counts in units of 2^-kFraction; what is left after adding is
// cut, not rounded. Vector lanes of chroma hold c << 8, which is how bytes unpack for nothing.

template <class Form, class T>
QELJ_INLINE T shade(T y, T offset) {
  if constexpr (Form::kFraction == 0) return y + offset;
  else return (y * int16_t(1 << Form::kFraction) + offset) >> Form::kFraction;
}

// (weight * c + round) >> 14. In 16-bit lanes that takes a rounded high multiply, a weight and a rounding
// term of their own.
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

// Blue, and the direction in which green is rounded, differ between pixels and planes.
template <bool kPixels>
struct InverseQ14Form {
  static constexpr int kFraction = 0;
  static constexpr ChromaTerm kRed{22970, 8145, 22970, 63};
  static constexpr ChromaTerm kBlue = kPixels ? ChromaTerm{29032, 8135, 29032, 63} : ChromaTerm{29032, 7535, 29033, 59};
  static_assert(kRed.lanesAgree() && kBlue.lanesAgree());
  static constexpr int kSign = kPixels ? -1 : 1, kCb = kSign * 5638, kCr = kSign * 11700,
                       kRound = kPixels ? 8302 : 8082;

  static int32_t green(int32_t cb, int32_t cr) { return (kCb * cb + kCr * cr + kRound) >> 14; }
  static QELJ_INLINE I16 green(I16 cb, I16 cr) {
    const auto weights = simd::pairs(kCb, kCr);
    const auto round = all<simd::I32>(kRound << 8);
    return simd::packI16((simd::mulAddPairs(simd::unpackLow(cb, cr), weights) + round) >> 22,
                         (simd::mulAddPairs(simd::unpackHigh(cb, cr), weights) + round) >> 22);
  }
  template <class T>
  static QELJ_INLINE Rgb<T> offset(Chroma<T> c) {
    const T g = green(c.cb, c.cr);
    return {kRed(c.cr), kPixels ? g : -g, kBlue(c.cb)};
  }
};
using PixelQ14Form = InverseQ14Form<true>;
using PlaneQ14Form = InverseQ14Form<false>;

// Sixteen bits of fraction, rounded to nearest: the form of a row's last pixels.
struct InverseQ16Form {
  static constexpr int kFraction = 0;
  static Rgb<int32_t> offset(Chroma<int32_t> c) {
    return {(91881 * c.cr + 32768) >> 16, (-46802 * c.cr - 22554 * c.cb + 32768) >> 16, (116130 * c.cb + 32768) >> 16};
  }
};

// (stored * weight) >> 9, for chroma as stored (0..255).
inline int32_t storedTerm(int32_t c, int32_t weight) { return ((c + 128) * weight) >> 9; }
QELJ_INLINE I16 storedTerm(I16 c, int32_t weight) {
  const auto stored = (as<uint16_t>(c) ^ uint16_t(0x8000)) >> 1;  // << 7
  return mulHi(as<int16_t>(stored), all<I16>(int16_t(weight)));
}

// Four bits of fraction; every product is truncated by itself.
struct InverseQ4Form {
  static constexpr int kFraction = 4;
  template <class T>
  static QELJ_INLINE Rgb<T> offset(Chroma<T> c) {
    return {storedTerm(c.cr, 11485) + int16_t(8 - 2871),
            int16_t(8 + 2167) - (storedTerm(c.cb, 2819) + storedTerm(c.cr, 5850)),
            storedTerm(c.cb, 14516) + int16_t(8 - 3629)};
  }
};

// The same products at nine bits of fraction, floored before they are added; no rounding term.
struct InverseQ9Form {
  static constexpr int kFraction = 0;
  template <class T>
  static QELJ_INLINE Rgb<T> offset(Chroma<T> c) {
    return {(storedTerm(c.cr, 22970) >> 5) - int16_t(179),
            ((storedTerm(c.cr, -11700) + storedTerm(c.cb, -5638)) >> 5) + int16_t(135),
            (storedTerm(c.cb, 29032) >> 5) - int16_t(226)};
  }
};

}  // namespace qelj::jpeg::colour

#endif
