// One level of the two-dimensional wavelet over a whole tile, with the symmetric extension inside (ISO/IEC
// 15444-1, F.3.2 and F.4.2).
//
// Both directions go over the tile twice. Down the columns the rows are lifted where they lie, low and high
// rows alternating, many columns at once. Along the rows each row is lifted on its way between its place
// among the alternating rows and its place in the band layout, by following the cycles of that permutation;
// so the work buffer need hold one row only.
#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/rounding.h"
#include "jpeg2000/transform/lifting.h"

namespace qelj {
namespace {

using namespace jpeg2000::lifting;

// --- filters -----------------------------------------------------------------------------------------------

// The 5/3 sums in 32 bits before they are cut. In 16-bit lanes, (a & b) + ((a ^ b) >> 1) is (a + b) >> 1
// without the overflow, and (a + b + 2) >> 2 is half of it, rounded up.
struct WideSums {
  template <class V>
  static V half(V a, V b) {
    if constexpr (OneSample<V>) return V((int32_t(a) + b) >> 1);
    else return addWrap(a & b, (a ^ b) >> 1);
  }
  template <class V>
  static V quarter(V a, V b) {
    if constexpr (OneSample<V>) {
      return V((int32_t(a) + b + 2) >> 2);
    } else {
      const V sum = half(a, b);
      return addWrap(sum >> 1, sum & 1);
    }
  }
};

// 9/7 on 16-bit samples, with 14 fractional bits. Products and sums have 32 bits; what a stage leaves is cut to 16.
namespace q14 {

// (c * a + c * b + 8192) >> 14, of which the low 16 bits are kept.
template <int c, class V>
inline V scaledSum(V a, V b) {
  if constexpr (OneSample<V>) {
    return V((c * (int32_t(a) + b) + 8192) >> 14);
  } else {
    using W = simd::With<int32_t, V>;
    const auto lanes = [](V pairs) {
      return W((simd::mulAddPairs(pairs, simd::pairs<V>(c, c)) + 8192) >> 14) & 0xFFFF;
    };
    return V(simd::packU16(lanes(simd::unpackLow(a, b)), lanes(simd::unpackHigh(a, b))));
  }
}
// (c * a + 8192) >> 14, likewise.
template <int c, class V>
inline V scaled(V a) {
  if constexpr (OneSample<V>) {
    return V((c * int32_t(a) + 8192) >> 14);
  } else {
    using W = simd::With<int32_t, V>;
    const V one = all<V>(1);
    const auto lanes = [](V pairs) { return W(simd::mulAddPairs(pairs, simd::pairs<V>(c, 8192)) >> 14) & 0xFFFF; };
    return V(simd::packU16(lanes(simd::unpackLow(a, one)), lanes(simd::unpackHigh(a, one))));
  }
}

constexpr int kAlpha = -25987, kBeta = -868, kGamma = 14466, kDelta = 7266, kInvK = 13318, kK = 20155;

struct Forward {
  using Sample = int16_t;
  static constexpr int kStages = 4;
  static constexpr bool kHasStart = false, kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 4) return scaled<kInvK>(addWrap(x, scaledSum<kDelta>(left, right)));
    else return addWrap(x, scaledSum < t == 1 ? kAlpha : t == 2 ? kBeta : kGamma > (left, right));
  }
  template <class V>
  static V start(V x) {
    return x;
  }
  template <class V>
  static V finish(V x) {
    return scaled<kK>(x);
  }
};
struct Inverse : Forward {
  static constexpr bool kHasStart = true, kHasFinish = false;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return subWrap(scaled<kK>(x), scaledSum<kDelta>(left, right));
    else return subWrap(x, scaledSum < t == 2 ? kGamma : t == 3 ? kBeta : kAlpha > (left, right));
  }
  template <class V>
  static V start(V x) {
    return scaled<kInvK>(x);
  }
  template <class V>
  static V finish(V x) {
    return x;
  }
};

}  // namespace q14

// 9/7 on 32-bit samples, in single precision. Between the stages a line holds the bits of floats.
namespace real {

template <class V, bool = OneSample<V>>
struct FloatOf {
  using Type = float;
};
template <class V>
struct FloatOf<V, false> {
  using Type = simd::With<float, V>;
};
template <class V>
using Float = typename FloatOf<V>::Type;

template <class V>
inline Float<V> asFloat(V bits) {
  return std::bit_cast<Float<V>>(bits);
}
template <class V>
inline Float<V> toFloat(V x) {
  if constexpr (OneSample<V>) return float(x);
  else return convert<float>(x);
}
template <class V, class F>
inline V bits(F x) {
  return std::bit_cast<V>(x);
}
// Cut towards zero; saturates at both ends.
template <class V, class F>
inline V toInt(F x) {
  if constexpr (OneSample<V>) {
    if (x >= 2147483648.0f) return INT32_MAX;
    if (x < -2147483648.0f) return INT32_MIN;
    return int32_t(x);
  } else {
    // Past either end the conversion gives INT32_MIN; the mask turns that of the upper end into INT32_MAX.
    return truncateToInt(x) ^ V(x >= 2147483648.0f);
  }
}

struct Forward {
  using Sample = int32_t;
  static constexpr int kStages = 4;
  static constexpr bool kHasStart = false, kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return bits<V>(toFloat(x) + kAlpha * toFloat(addWrap(left, right)));  // the integer sum wraps
    else if constexpr (t == 2) return bits<V>(toFloat(x) + kBeta * (asFloat(left) + asFloat(right)));
    else if constexpr (t == 3) return bits<V>(asFloat(x) + kGamma * (asFloat(left) + asFloat(right)));
    else return toInt<V>((asFloat(x) + kDelta * (asFloat(left) + asFloat(right))) * kInvK);
  }
  template <class V>
  static V start(V x) {
    return x;
  }
  template <class V>
  static V finish(V x) {
    return toInt<V>(asFloat(x) * kK);
  }
};
struct Inverse : Forward {
  static constexpr bool kHasStart = true, kHasFinish = true;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    const auto sum = asFloat(left) + asFloat(right);
    if constexpr (t == 1) return bits<V>(kK * toFloat(x) - kDelta * sum);
    else if constexpr (t == 2) return bits<V>(asFloat(x) - kGamma * sum);
    else if constexpr (t == 3) return bits<V>(asFloat(x) - kBeta * sum);
    else return toInt<V>(asFloat(x) - kAlpha * sum);
  }
  template <class V>
  static V start(V x) {
    return bits<V>(kInvK * toFloat(x));
  }
  template <class V>
  static V finish(V x) {
    return toInt<V>(asFloat(x));
  }
};

}  // namespace real

struct B53_16s {
  using Forward = Forward53<int16_t, WideSums>;
  using Inverse = Inverse53<int16_t, WideSums>;
  using Rounding = AnyRounding;
  static constexpr bool kPairForm = true;  // lines of two samples have a form of their own
  static constexpr int kMargin = 4;        // samples beside the line in the work buffer
};
struct B53_32s {
  using Forward = Forward53<int32_t>;
  using Inverse = Inverse53<int32_t>;
  using Rounding = AnyRounding;
  static constexpr bool kPairForm = true;
  static constexpr int kMargin = 4;
};
struct D97_16s {
  using Forward = q14::Forward;
  using Inverse = q14::Inverse;
  using Rounding = AnyRounding;
  static constexpr bool kPairForm = false;
  static constexpr int kMargin = 8;
};
struct D97_32s {
  using Forward = real::Forward;
  using Inverse = real::Inverse;
  using Rounding = RoundToNearest;
  static constexpr bool kPairForm = false;
  static constexpr int kMargin = 8;
};
template <class Wavelet>
using SampleOf = typename Wavelet::Forward::Sample;

// --- lines of one and two samples --------------------------------------------------------------------------

// A single sample stays at an even coordinate; at an odd one it is doubled, and halved towards zero on the way back.
template <class T>
void ownLiftOne(bool forward, bool odd, T* dst, const T* src, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    const T x = at(src, i);
    put(dst, i, !odd ? x : forward ? addWrap(x, x) : T(x / 2));
  }
}

// (x + 1) >> 1 of a sample or a difference of two, in 32 bits (which wrap for 32-bit samples). For 16-bit
// samples no sum stands in front of the shift: on AArch64 GCC 12 takes a wrapping sum of widened samples, once
// it is halved, for an average of unsigned ones.
template <class T>
constexpr int32_t halfUp(int32_t x) {
  if constexpr (sizeof(T) < 4) return (x >> 1) + (x & 1);
  else return addWrap(x, 1) >> 1;
}

// Two samples of 5/3, in 32 bits (which wrap for 32-bit samples). low and high are those of the even and the
// odd coordinate.
template <class T>
void ownLiftPair(bool forward, T* even, T* odd, ptrdiff_t count) {
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

// --- along a row -------------------------------------------------------------------------------------------

// Where the low and the high band of a line lie, as positions in it.
struct Split {
  int32_t length, parity, low;  // low: samples in the low band
  Split(int32_t n, int32_t first) : length(n), parity(first & 1), low(int32_t((int64_t(n) + 1 - parity) >> 1)) {}
  // Of a position among the alternating samples, the position with the low band in front; and the inverse.
  int32_t toBands(int32_t m) const { return (m >> 1) + ((m + parity) % 2 ? low : 0); }
  int32_t fromBands(int32_t j) const { return j < low ? 2 * j + parity : 2 * (j - low) + (1 - parity); }
};

// Stage t over one half of a line, in place. Sample i of `x` stands between samples i + before and i + before
// + 1 of `other`; past either end of the line stands the mirror image.
template <class Filter, int t, class T>
inline void ownStageOfHalf(T* x, ptrdiff_t count, const T* other, ptrdiff_t otherCount, int before) {
  ptrdiff_t from = 0, to = count;
  if (before < 0) {
    put(x, 0, Filter::template stage<t>(at(x, 0), at(other, 0), at(other, 0)));
    from = 1;
  }
  if (to - 1 + before + 1 >= otherCount && to > from) {
    --to;
    const T last = at(other, otherCount - 1);
    put(x, to, Filter::template stage<t>(at(x, to), last, last));
  }
  T* const middle = offset(x, from);
  ownStage<Filter, t>(to - from, middle, middle, offset(other, from + before), offset(other, from + before + 1));
}

// All stages on the bands A and B of a line of two samples or more that begins with A (lead 0) or B (lead
// 1).
template <class Filter, class T>
void ownLiftBands(T* a, ptrdiff_t aCount, T* b, ptrdiff_t bCount, int lead) {
  if constexpr (Filter::kHasStart) ownStart<Filter>(aCount, a, a);
  ownStageOfHalf<Filter, 1>(b, bCount, a, aCount, -lead);
  ownStageOfHalf<Filter, 2>(a, aCount, b, bCount, lead - 1);
  if constexpr (Filter::kStages == 4) {
    ownStageOfHalf<Filter, 3>(b, bCount, a, aCount, -lead);
    ownStageOfHalf<Filter, 4>(a, aCount, b, bCount, lead - 1);
  }
  if constexpr (Filter::kHasFinish) ownFinish<Filter>(bCount, b, b);
}

// Transforms the line at `src` into its bands at `dst`, low then high. They must not overlap.
template <class Wavelet, class T>
void ownForwardRow(const T* src, T* dst, const Split& line) {
  T* const low = dst;
  T* const high = offset(dst, line.low);
  const ptrdiff_t highs = line.length - line.low;
  if (line.length == 1) return ownLiftOne(true, line.parity, dst, src, 1);
  if (line.parity) ownSplit(line.length, src, high, low);
  else ownSplit(line.length, src, low, high);
  if (Wavelet::kPairForm && line.length == 2) return ownLiftPair(true, low, high, 1);
  ownLiftBands<typename Wavelet::Forward>(low, line.low, high, highs, line.parity);
}

// The inverse; lifts in place at `src` on the way.
template <class Wavelet, class T>
void ownInverseRow(T* src, T* dst, const Split& line) {
  T* const low = src;
  T* const high = offset(src, line.low);
  const ptrdiff_t highs = line.length - line.low;
  if (line.length == 1) return ownLiftOne(false, line.parity, dst, src, 1);
  if (Wavelet::kPairForm && line.length == 2) ownLiftPair(false, low, high, 1);
  else ownLiftBands<typename Wavelet::Inverse>(high, highs, low, line.low, 1 - line.parity);
  if (line.parity) ownMerge(line.length, high, low, dst);
  else ownMerge(line.length, low, high, dst);
}

// --- down the columns --------------------------------------------------------------------------------------

// The rows of one strip of columns, lifted where they lie.
template <class T>
struct Rows {
  T* base;
  ptrdiff_t step, count;
  T* operator[](ptrdiff_t m) const { return row(base, step, m); }
  // Past either end stands the mirror image.
  T* mirrored(ptrdiff_t m) const { return (*this)[m < 0 ? -m : m >= count ? 2 * (count - 1) - m : m]; }
  bool has(ptrdiff_t m) const { return m >= 0 && m < count; }
};

// Lifts `columns` columns of two rows or more, the first row being of A (lead 0) or B (lead 1). Calls
// fetch(m) before row m is first used, and deliver(m) when it is finished.
template <class Filter, class T, class Fetch, class Deliver>
void ownLiftColumns(const Rows<T>& rows, ptrdiff_t columns, int lead, Fetch fetch, Deliver deliver) {
  constexpr int S = Filter::kStages;
  const ptrdiff_t n = rows.count;
  // q is the newest row of each step; the rows of the last steps lie past the end.
  for (ptrdiff_t q = lead; q <= n + S; q += 2) {
    for (const ptrdiff_t m : {q - 1, q})
      if (rows.has(m)) fetch(m);
    if (q - S - 1 >= 0 && q < n) {
      const T* src[kStepRows<Filter>];
      T* dst[kStepRows<Filter>];
      for (int j = 0; j < kStepRows<Filter>; ++j) src[j] = dst[j] = rows[q - j];
      ownStep<Filter>(columns, src, dst);
    } else {
      if (Filter::kHasStart && rows.has(q)) ownStart<Filter>(columns, rows[q], rows[q]);
      const auto stage = [&]<int t>(std::integral_constant<int, t>) {
        const ptrdiff_t m = q - t;
        if (rows.has(m)) ownStage<Filter, t>(columns, rows[m], rows[m], rows.mirrored(m - 1), rows.mirrored(m + 1));
      };
      [&]<int... t>(std::integer_sequence<int, t...>) {
        (stage(std::integral_constant<int, t + 1>{}), ...);
      }(std::make_integer_sequence<int, S>{});
      if (Filter::kHasFinish && rows.has(q - S - 1)) ownFinish<Filter>(columns, rows[q - S - 1], rows[q - S - 1]);
    }
    for (const ptrdiff_t m : {q - S - 1, q - S})
      if (rows.has(m)) deliver(m);
  }
}

// The columns of the image at `base`, by strips whose rows fit the first-level cache together. fetch(m, x,
// count) and deliver(m, x, count) speak of `count` samples of row m from column x on.
constexpr ptrdiff_t kStripBytes = 2048;

template <class Wavelet, bool forward, class T, class Fetch, class Deliver>
void ownColumns(T* base, ptrdiff_t step, int32_t width, const Split& column, Fetch fetch, Deliver deliver) {
  constexpr ptrdiff_t kStrip = kStripBytes / ptrdiff_t(sizeof(T));
  for (ptrdiff_t x = 0; x < width; x += kStrip) {
    const ptrdiff_t count = std::min(kStrip, width - x);
    const Rows<T> rows{offset(base, x), step, column.length};
    const auto fetchRow = [&](ptrdiff_t m) { fetch(m, x, count); };
    const auto deliverRow = [&](ptrdiff_t m) { deliver(m, x, count); };
    if (column.length == 1) {
      fetchRow(0);
      ownLiftOne(forward, column.parity, rows[0], rows[0], count);
      deliverRow(0);
    } else if (Wavelet::kPairForm && column.length == 2) {
      fetchRow(0), fetchRow(1);
      ownLiftPair(forward, rows[column.parity], rows[1 - column.parity], count);
      deliverRow(0), deliverRow(1);
    } else if constexpr (forward) {
      ownLiftColumns<typename Wavelet::Forward>(rows, count, column.parity, fetchRow, deliverRow);
    } else {
      ownLiftColumns<typename Wavelet::Inverse>(rows, count, 1 - column.parity, fetchRow, deliverRow);
    }
  }
}

constexpr auto nothing = [](auto...) {};

// --- in place ----------------------------------------------------------------------------------------------

// Moves every row j of 0 .. count - 1 to its place: rowOperation(from, to), where `from` is row(source(to)),
// and `held` for the one row of each cycle whose place is overwritten first; hold(j) saves that row.
template <class Source, class Hold, class Move>
void ownPermute(int32_t count, Source source, Hold hold, Move move) {
  constexpr int32_t kHeld = -1;
  int32_t moved = 0;
  for (int32_t first = 0; moved < count; ++first) {
    int32_t j = source(first);
    while (j > first) j = source(j);
    if (j < first) continue;  // a cycle that an earlier row began
    hold(first);
    int32_t to = first;
    for (int32_t from; (from = source(to)) != first; to = from, ++moved) move(from, to);
    move(kHeld, to), ++moved;
  }
}

template <class Wavelet, bool forward>
void ownInPlace(SampleOf<Wavelet>* tile, ptrdiff_t step, const Split& rowSplit, const Split& columnSplit,
                SampleOf<Wavelet>* line) {
  using T = SampleOf<Wavelet>;
  const int32_t width = rowSplit.length;
  T few[2];  // such a row doesn't need the work buffer, which may be empty
  if (width <= 2) line = few;
  if constexpr (forward) ownColumns<Wavelet, forward>(tile, step, width, columnSplit, nothing, nothing);
  ownPermute(
      columnSplit.length, [&](int32_t j) { return forward ? columnSplit.fromBands(j) : columnSplit.toBands(j); },
      [&](int32_t j) { std::memcpy(line, row(tile, step, j), size_t(width) * sizeof(T)); },
      [&](int32_t from, int32_t to) {
        T* const src = from < 0 ? line : row(tile, step, from);
        T* const dst = row(tile, step, to);
        if constexpr (forward) ownForwardRow<Wavelet>(src, dst, rowSplit);
        else ownInverseRow<Wavelet>(src, dst, rowSplit);
      });
  if constexpr (!forward) ownColumns<Wavelet, forward>(tile, step, width, columnSplit, nothing, nothing);
}

template <class Wavelet, bool forward>
QelStatus inPlace(SampleOf<Wavelet>* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  if (auto s = check(nonNull(srcDst), step(srcDstStep), nonNull(tile, buffer)); s) return s;
  if (tile->width < 1 || tile->height < 1) return qelStatusOk;
  [[maybe_unused]] const typename Wavelet::Rounding rounding{};
  ownInPlace<Wavelet, forward>(srcDst, srcDstStep, {tile->width, tile->x}, {tile->height, tile->y},
                               reinterpret_cast<SampleOf<Wavelet>*>(buffer));
  return qelStatusOk;
}

// --- with four bands ---------------------------------------------------------------------------------------

// Bytes between the rows of the work image.
template <class T>
constexpr int64_t pitch(int32_t width) {
  return (int64_t(width) * int64_t(sizeof(T)) + 31) & ~int64_t(31);
}

// The line of the work image at `j` of the band layout, as its two pieces in the caller's planes. Planes are
// cut in the middle, rounded up, whatever the parity of the tile.
template <class T>
struct Bands {
  T* const* plane;
  const int32_t* step;
  int32_t width, height;
  int32_t cut() const { return width - width / 2; }
  template <class Piece>
  void forEachPiece(int32_t j, Piece piece) const {
    const int32_t upper = height - height / 2, index = j < upper ? 0 : 1, y = j < upper ? j : j - upper;
    piece(row(plane[index], step[index], y), 0, cut());
    if (width > 1) piece(row(plane[index + 2], step[index + 2], y), cut(), width - cut());
  }
};

template <class Wavelet, bool forward, class Image, class Plane>
void ownWithBands(Image* image, ptrdiff_t imageStep, const Bands<Plane>& bands, const Split& rowSplit,
                  const Split& columnSplit, uint8_t* buffer) {
  using T = SampleOf<Wavelet>;
  const int32_t width = rowSplit.length, height = columnSplit.length;
  const ptrdiff_t workStep = pitch<T>(width);
  T* const work = reinterpret_cast<T*>(buffer);
  T few[2];
  T* const line = width <= 2 ? few : row(work, workStep, height);
  if constexpr (forward) {
    const auto fetch = [&](ptrdiff_t m, ptrdiff_t x, ptrdiff_t count) {
      std::memcpy(offset(row(work, workStep, m), x), offset(row(image, imageStep, m), x), size_t(count) * sizeof(T));
    };
    ownColumns<Wavelet, forward>(work, workStep, width, columnSplit, fetch, nothing);
    for (int32_t m = 0; m < height; ++m) {
      ownForwardRow<Wavelet>(row(work, workStep, m), line, rowSplit);
      bands.forEachPiece(columnSplit.toBands(m), [&](Plane* piece, ptrdiff_t x, int32_t count) {
        std::memcpy(piece, offset(line, x), size_t(count) * sizeof(T));
      });
    }
  } else {
    for (int32_t m = 0; m < height; ++m) {
      bands.forEachPiece(columnSplit.toBands(m), [&](Plane* piece, ptrdiff_t x, int32_t count) {
        std::memcpy(offset(line, x), piece, size_t(count) * sizeof(T));
      });
      ownInverseRow<Wavelet>(line, row(work, workStep, m), rowSplit);
    }
    const auto deliver = [&](ptrdiff_t m, ptrdiff_t x, ptrdiff_t count) {
      std::memcpy(offset(row(image, imageStep, m), x), offset(row(work, workStep, m), x), size_t(count) * sizeof(T));
    };
    ownColumns<Wavelet, forward>(work, workStep, width, columnSplit, nothing, deliver);
  }
}

template <class Wavelet, bool forward, class Image, class Plane>
QelStatus withBands(Image* image, int32_t imageStep, Plane* const* plane, const int32_t* planeStep, const QelRect* tile,
                    uint8_t* buffer) {
  if (auto s = check(nonNull(image, plane, planeStep, tile, buffer), step(imageStep)); s) return s;
  if (auto s = check(planes(plane, 4), step(planeStep[0]), step(planeStep[1]), step(planeStep[2]), step(planeStep[3]),
                     area({tile->width, tile->height}));
      s)
    return s;
  [[maybe_unused]] const typename Wavelet::Rounding rounding{};
  ownWithBands<Wavelet, forward>(image, imageStep, Bands<Plane>{plane, planeStep, tile->width, tile->height},
                                 {tile->width, tile->x}, {tile->height, tile->y}, buffer);
  return qelStatusOk;
}

// --- sizes of the work buffer ------------------------------------------------------------------------------

// A line of the longer side with its margins; nothing where every line is short enough to do without. `width`
// and `height` are taken as they are, and the sums wrap at 32 bits.
template <class Wavelet>
int32_t lineBytes(const QelRect& tile) {
  constexpr int32_t kShort = Wavelet::kPairForm ? 3 : 2, kSample = sizeof(SampleOf<Wavelet>);
  if (tile.width < kShort && tile.height < kShort) return 0;
  const auto bytes = [](int32_t n) { return mulWrap(addWrap(n, Wavelet::kMargin), kSample); };
  return std::max(bytes(tile.width), bytes(tile.height));
}

template <class Wavelet, bool withBands>
QelStatus bufferSize(const QelRect* tile, int32_t* size) {
  if (auto s = nonNull(tile, size); s) return s;
  const int32_t image = withBands ? mulWrap(tile->height, int32_t(pitch<SampleOf<Wavelet>>(tile->width))) : 0;
  *size = addWrap(lineBytes<Wavelet>(*tile), image);
  return qelStatusOk;
}

}  // namespace

QelStatus qeliWTFwd_B53_JPEG2K_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<B53_16s, true>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTInv_B53_JPEG2K_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<B53_16s, false>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTFwd_B53_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, const QelRect* tile, int16_t* const dst[4],
                                       const int32_t dstStep[4], uint8_t* buffer) {
  return withBands<B53_16s, true>(src, srcStep, dst, dstStep, tile, buffer);
}
QelStatus qeliWTInv_B53_JPEG2K_16s_C1R(const int16_t* const src[4], const int32_t srcStep[4], int16_t* dst,
                                       int32_t dstStep, const QelRect* tile, uint8_t* buffer) {
  return withBands<B53_16s, false>(dst, dstStep, src, srcStep, tile, buffer);
}
QelStatus qeliWTGetBufSize_B53_JPEG2K_16s_C1IR(const QelRect* tile, int32_t* size) {
  return bufferSize<B53_16s, false>(tile, size);
}
QelStatus qeliWTGetBufSize_B53_JPEG2K_16s_C1R(const QelRect* tile, int32_t* size) {
  return bufferSize<B53_16s, true>(tile, size);
}

QelStatus qeliWTFwd_B53_JPEG2K_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<B53_32s, true>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTInv_B53_JPEG2K_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<B53_32s, false>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTFwd_B53_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, const QelRect* tile, int32_t* const dst[4],
                                       const int32_t dstStep[4], uint8_t* buffer) {
  return withBands<B53_32s, true>(src, srcStep, dst, dstStep, tile, buffer);
}
QelStatus qeliWTInv_B53_JPEG2K_32s_C1R(const int32_t* const src[4], const int32_t srcStep[4], int32_t* dst,
                                       int32_t dstStep, const QelRect* tile, uint8_t* buffer) {
  return withBands<B53_32s, false>(dst, dstStep, src, srcStep, tile, buffer);
}
QelStatus qeliWTGetBufSize_B53_JPEG2K_32s_C1IR(const QelRect* tile, int32_t* size) {
  return bufferSize<B53_32s, false>(tile, size);
}
QelStatus qeliWTGetBufSize_B53_JPEG2K_32s_C1R(const QelRect* tile, int32_t* size) {
  return bufferSize<B53_32s, true>(tile, size);
}

QelStatus qeliWTFwd_D97_JPEG2K_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<D97_16s, true>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTInv_D97_JPEG2K_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<D97_16s, false>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTFwd_D97_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, const QelRect* tile, int16_t* const dst[4],
                                       const int32_t dstStep[4], uint8_t* buffer) {
  return withBands<D97_16s, true>(src, srcStep, dst, dstStep, tile, buffer);
}
QelStatus qeliWTInv_D97_JPEG2K_16s_C1R(const int16_t* const src[4], const int32_t srcStep[4], int16_t* dst,
                                       int32_t dstStep, const QelRect* tile, uint8_t* buffer) {
  return withBands<D97_16s, false>(dst, dstStep, src, srcStep, tile, buffer);
}
QelStatus qeliWTGetBufSize_D97_JPEG2K_16s_C1IR(const QelRect* tile, int32_t* size) {
  return bufferSize<D97_16s, false>(tile, size);
}
QelStatus qeliWTGetBufSize_D97_JPEG2K_16s_C1R(const QelRect* tile, int32_t* size) {
  return bufferSize<D97_16s, true>(tile, size);
}

QelStatus qeliWTFwd_D97_JPEG2K_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<D97_32s, true>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTInv_D97_JPEG2K_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  return inPlace<D97_32s, false>(srcDst, srcDstStep, tile, buffer);
}
QelStatus qeliWTFwd_D97_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, const QelRect* tile, int32_t* const dst[4],
                                       const int32_t dstStep[4], uint8_t* buffer) {
  return withBands<D97_32s, true>(src, srcStep, dst, dstStep, tile, buffer);
}
QelStatus qeliWTInv_D97_JPEG2K_32s_C1R(const int32_t* const src[4], const int32_t srcStep[4], int32_t* dst,
                                       int32_t dstStep, const QelRect* tile, uint8_t* buffer) {
  return withBands<D97_32s, false>(dst, dstStep, src, srcStep, tile, buffer);
}
QelStatus qeliWTGetBufSize_D97_JPEG2K_32s_C1IR(const QelRect* tile, int32_t* size) {
  return bufferSize<D97_32s, false>(tile, size);
}
QelStatus qeliWTGetBufSize_D97_JPEG2K_32s_C1R(const QelRect* tile, int32_t* size) {
  return bufferSize<D97_32s, true>(tile, size);
}

}  // namespace qelj
