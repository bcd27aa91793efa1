// Two-to-one resampling of a plane or a row: box averages down, a triangle filter up.
#include <algorithm>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "frame/rows.h"
#include "jpeg/sample/pixels.h"

namespace qelj {
namespace {

using simd::Halves;

// --- Down: the mean of two or four samples -----------------------------------------------------------------

// The rounding terms of the means at even and odd places. Terms that alternate leave the plane's mean as it is.
struct MeanTerms {
  int even, odd;
};

// kRows rows of 2 * count samples to `count` means; `second` is for two rows.
template <int kRows>
void ownDownRow(const uint8_t* first, const uint8_t* second, uint8_t* dst, ptrdiff_t count, MeanTerms round) {
  constexpr int kShift = kRows == 2 ? 2 : 1;
  // An even number of means, so that the last vector too begins at an even place.
  ptrdiff_t k = simd::coverByWidest(0, count & ~ptrdiff_t(1), [&]<class V>(V, ptrdiff_t to) QELJ_INLINE_LAMBDA {
    const auto term = simd::pairs<With<int16_t, V>>(round.even, round.odd);
    const auto means = [&](ptrdiff_t from) QELJ_INLINE_LAMBDA {
      auto sum = simd::addBytePairs(load<V>(first + from));
      if constexpr (kRows == 2) sum += simd::addBytePairs(load<V>(second + from));
      return (sum + term) >> kShift;
    };
    store(dst + to, simd::orderPacked(simd::packU8(means(2 * to), means(2 * to + int(sizeof(V))))));
  });
  for (; k < count; ++k) {
    int sum = (k % 2 ? round.odd : round.even) + first[2 * k] + first[2 * k + 1];
    if constexpr (kRows == 2) sum += second[2 * k] + second[2 * k + 1];
    dst[k] = uint8_t(sum >> kShift);
  }
}

// --- Up: three parts of the near sample, one of the far one ------------------------------------------------

// The samples that are spread across: those of one row, or three parts of a near row and one of a far row. sum(k, far)
// is three parts of sample k and one of sample `far`; the vector face gives the results of a vector of samples from k
// on, those of the lower and of the upper halves of the blocks.
struct OneRow {
  const uint8_t* s;
  static constexpr int kShift = 2, kEven = 1, kOdd = 2;

  int sum(ptrdiff_t k, ptrdiff_t far) const { return 3 * s[k] + s[far]; }
  // (3 a + b + 2) >> 2 is the mean of a and their mean rounded down, (3 a + b + 1) >> 2 the one with the roundings
  // exchanged: bytes stay bytes.
  template <class V>
  QELJ_INLINE Halves<V> pairs(ptrdiff_t k) const {
    const auto averageDown = [](V a, V b) QELJ_INLINE_LAMBDA { return ~average(~a, ~b); };
    const V a = load<V>(s + k), before = load<V>(s + k - 1), after = load<V>(s + k + 1);
    const V even = averageDown(a, average(a, before)), odd = average(a, averageDown(a, after));
    return {simd::unpackLow(even, odd), simd::unpackHigh(even, odd)};
  }
};
struct TwoRows {
  const uint8_t *near, *far;
  static constexpr int kShift = 4, kEven = 8, kOdd = 7;

  int down(ptrdiff_t k) const { return 3 * near[k] + far[k]; }
  int sum(ptrdiff_t k, ptrdiff_t other) const { return 3 * down(k) + down(other); }
  template <class V>
  QELJ_INLINE Halves<V> pairs(ptrdiff_t k) const {
    using Lanes = With<int16_t, V>;
    if constexpr (simd::kBytePairs) {
      const auto beside = [this](ptrdiff_t i) QELJ_INLINE_LAMBDA {
        const V n = load<V>(near + i), f = load<V>(far + i);
        return Halves<V>{simd::unpackLow(n, f), simd::unpackHigh(n, f)};
      };
      const auto weigh = [](V pairs, int16_t weights)
                             QELJ_INLINE_LAMBDA { return simd::mulAddBytes(pairs, as<int8_t>(all<Lanes>(weights))); };
      // Multiplied by 2^11 and rounded, x gives (x + 8) >> 4; by -2^11 it gives -((x + 7) >> 4).
      const auto results = [&](V at, V before, V after) QELJ_INLINE_LAMBDA {
        const Lanes three = weigh(at, 0x0309);
        const Lanes even = mulHiRound(three + weigh(before, 0x0103), all<Lanes>(1 << 11));
        const Lanes minusOdd = mulHiRound(three + weigh(after, 0x0103), all<Lanes>(-(1 << 11)));
        return as<V>(even - shlWrap(minusOdd, 8));
      };
      const auto at = beside(k), before = beside(k - 1), after = beside(k + 1);
      return {results(at.low, before.low, after.low), results(at.high, before.high, after.high)};
    } else {
      const auto sums = [this](ptrdiff_t i)
                            QELJ_INLINE_LAMBDA { return simd::weighBytes<3, 1>(load<V>(near + i), load<V>(far + i)); };
      const auto results = [](Lanes at, Lanes before, Lanes after) QELJ_INLINE_LAMBDA {
        const Lanes three = at * 3;
        const Lanes even = (three + before + kEven) >> kShift, odd = shlWrap(three + after + kOdd, 8 - kShift);
        return as<V>(even | (odd & int16_t(-256)));
      };
      const auto at = sums(k), before = sums(k - 1), after = sums(k + 1);
      return {results(at.low, before.low, after.low), results(at.high, before.high, after.high)};
    }
  }
};

template <class Source>
uint8_t ownEven(const Source& s, ptrdiff_t k, ptrdiff_t far) {
  return uint8_t((s.sum(k, far) + Source::kEven) >> Source::kShift);
}
template <class Source>
uint8_t ownOdd(const Source& s, ptrdiff_t k, ptrdiff_t far) {
  return uint8_t((s.sum(k, far) + Source::kOdd) >> Source::kShift);
}

// Samples 2k and 2k + 1 for k from `from` to `to` - 1. Reads source samples from - 1 to `to`.
template <class Source>
void ownUpSamples(const Source& s, uint8_t* dst, ptrdiff_t from, ptrdiff_t to) {
  ptrdiff_t k = simd::coverByWidest(from, to, [&]<class V>(V, ptrdiff_t at) QELJ_INLINE_LAMBDA {
    const auto pairs = s.template pairs<V>(at);
    store(dst + 2 * at, simd::lowBlocks(pairs.low, pairs.high));
    store(dst + 2 * at + int(sizeof(V)), simd::highBlocks(pairs.low, pairs.high));
  });
  for (; k < to; ++k) dst[2 * k] = ownEven(s, k, k - 1), dst[2 * k + 1] = ownOdd(s, k, k + 1);
}

// A row of a plane that has samples beyond both ends. An odd width ends with an even sample.
template <class Source>
void ownUpPlaneRow(const Source& s, uint8_t* dst, ptrdiff_t dstWidth) {
  const ptrdiff_t pairs = dstWidth / 2;
  ownUpSamples(s, dst, 0, pairs);
  if (dstWidth % 2) dst[2 * pairs] = ownEven(s, pairs, pairs - 1);
}

// A row by itself: its first and last samples stand in for their missing neighbours.
template <class Source>
void ownUpRow(const Source& s, uint8_t* dst, ptrdiff_t srcWidth) {
  const ptrdiff_t last = srcWidth - 1;
  dst[0] = ownEven(s, 0, 0);
  if (last > 0) {
    dst[1] = ownOdd(s, 0, 1);
    // The first vector has samples of its own: from the second on, the stores of an aligned row are aligned.
    constexpr ptrdiff_t kVector = simd::kWideBytes;
    const ptrdiff_t aligned = last >= 2 * kVector ? kVector : 1;
    if (aligned > 1) ownUpSamples(s, dst, 1, aligned + 1);
    ownUpSamples(s, dst, aligned, last);
    dst[2 * last] = ownEven(s, last, last - 1);
  }
  dst[2 * last + 1] = ownOdd(s, last, last);
}

QelStatus checkPlanes(const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst, int32_t dstStep,
                      QelSize dstSize) {
  return check(nonNull(src), step(srcStep), area(srcSize), nonNull(dst), step(dstStep), area(dstSize));
}

}  // namespace

QelStatus qeliSampleDownH2V1_JPEG_8u_C1R(const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst,
                                         int32_t dstStep, QelSize dstSize) {
  if (auto s = checkPlanes(src, srcStep, srcSize, dst, dstStep, dstSize); s) return s;
  return forEachRow(dstSize, [=](int32_t y) {
    ownDownRow<1>(row(src, srcStep, y), nullptr, row(dst, dstStep, y), dstSize.width, {1, 1});
  });
}

// Three, not two: the mean of four is rounded up from a quarter on.
QelStatus qeliSampleDownH2V2_JPEG_8u_C1R(const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst,
                                         int32_t dstStep, QelSize dstSize) {
  if (auto s = checkPlanes(src, srcStep, srcSize, dst, dstStep, dstSize); s) return s;
  return forEachRow(dstSize, [=](int32_t y) {
    const uint8_t* first = row(src, srcStep, 2 * ptrdiff_t(y));
    ownDownRow<2>(first, row(first, srcStep, 1), row(dst, dstStep, y), dstSize.width, {3, 3});
  });
}

QelStatus qeliSampleUpH2V1_JPEG_8u_C1R(const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst,
                                       int32_t dstStep, QelSize dstSize) {
  if (auto s = checkPlanes(src, srcStep, srcSize, dst, dstStep, dstSize); s) return s;
  return forEachRowSerial(
      dstSize, [=](int32_t y) { ownUpPlaneRow(OneRow{row(src, srcStep, y)}, row(dst, dstStep, y), dstSize.width); });
}

QelStatus qeliSampleUpH2V2_JPEG_8u_C1R(const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst,
                                       int32_t dstStep, QelSize dstSize) {
  if (auto s = checkPlanes(src, srcStep, srcSize, dst, dstStep, dstSize); s) return s;
  return forEachRow(dstSize, [=](int32_t y) {
    const uint8_t* near = row(src, srcStep, y / 2);
    ownUpPlaneRow(TwoRows{near, row(near, srcStep, y % 2 ? 1 : -1)}, row(dst, dstStep, y), dstSize.width);
  });
}

QelStatus qeliSampleDownRowH2V1_Box_JPEG_8u_C1(const uint8_t* src, int32_t srcWidth, uint8_t* dst) {
  if (auto s = check(nonNull(src, dst), length(srcWidth)); s) return s;
  const bool shortEven = srcWidth % 2 == 0 && srcWidth <= 14;
  const bool oddFirst = shortEven && srcWidth % 4 == 0;  // 4, 8, 12
  // Bytes to the next 16-byte boundary: a row that ends within twice as many loses them from its length.
  const auto lead = int32_t(-reinterpret_cast<uintptr_t>(dst) & 15);
  const bool cut = !shortEven && srcWidth <= 2 * lead;
  const int32_t count = cut ? std::max(srcWidth - lead, 0) / 2 : srcWidth / 2;
  ownDownRow<1>(src, nullptr, dst, count, oddFirst ? MeanTerms{1, 0} : MeanTerms{0, 1});
  return qelStatusOk;
}

QelStatus qeliSampleDownRowH2V2_Box_JPEG_8u_C1(const uint8_t* src1, const uint8_t* src2, int32_t srcWidth,
                                               uint8_t* dst) {
  if (auto s = check(nonNull(src1, src2, dst), length(srcWidth)); s) return s;
  ownDownRow<2>(src1, src2, dst, srcWidth < 32 ? (srcWidth + 1) / 2 : srcWidth / 2, {1, 2});
  return qelStatusOk;
}

QelStatus qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(const uint8_t* src, int32_t srcWidth, uint8_t* dst) {
  if (auto s = check(nonNull(src, dst), length(srcWidth)); s) return s;
  ownUpRow(OneRow{src}, dst, srcWidth);
  return qelStatusOk;
}

QelStatus qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(const uint8_t* src1, const uint8_t* src2, int32_t srcWidth,
                                                  uint8_t* dst) {
  if (auto s = check(nonNull(src1, src2, dst), length(srcWidth)); s) return s;
  ownUpRow(TwoRows{src1, src2}, dst, srcWidth);
  return qelStatusOk;
}

}  // namespace qelj
