// One level of the two-dimensional wavelet over a whole tile, with the symmetric extension inside (ISO/IEC 15444-1,
// F.3.2 and F.4.2).
//
// Both directions go over the tile twice. Down the columns the rows are lifted where they lie, low and high rows
// alternating, many columns at once. Along the rows each row is lifted on its way between its place among the
// alternating rows and its place in the band layout, by following the cycles of that permutation; so the work buffer
// need hold one row only.
#include <algorithm>
#include <cstring>
#include <utility>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/rounding.h"
#include "jpeg2000/transform/filters53.h"
#include "jpeg2000/transform/filters97.h"

namespace qelj {
namespace {

using namespace jpeg2000::lifting;

// --- the wavelets ------------------------------------------------------------------------------------------

struct B53_16s {
  using Forward = Forward53<int16_t, WideSums>;
  using Inverse = Inverse53<int16_t, WideSums>;
  using RoundingGuard = AnyRounding;
  static constexpr bool kPairForm = true;  // lines of two samples have a form of their own
  static constexpr int kMargin = 4;        // samples beside the line in the work buffer
};
struct B53_32s {
  using Forward = Forward53<int32_t>;
  using Inverse = Inverse53<int32_t>;
  using RoundingGuard = AnyRounding;
  static constexpr bool kPairForm = true;
  static constexpr int kMargin = 4;
};
struct D97_16s {
  using Forward = Forward97Cut;
  using Inverse = Inverse97Cut;
  using RoundingGuard = AnyRounding;
  static constexpr bool kPairForm = false;
  static constexpr int kMargin = 8;
};
struct D97_32s {
  using Forward = Forward97ThroughFloat;
  using Inverse = Inverse97ThroughFloat;
  using RoundingGuard = RoundToNearest;
  static constexpr bool kPairForm = false;
  static constexpr int kMargin = 8;
};
template <class Wavelet>
using SampleOf = typename Wavelet::Forward::Sample;

// --- lines of one and two samples --------------------------------------------------------------------------

// A single sample stays at an even coordinate; at an odd one it is doubled, and halved towards zero on the way back.
template <class T>
void liftOne(bool forward, bool odd, T* dst, const T* src, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    T x = at(src, i);
    if (odd) x = forward ? addWrap(x, x) : T(x / 2);
    put(dst, i, x);
  }
}

// --- along a row -------------------------------------------------------------------------------------------

// Where the low and the high band of a line lie, as positions in it.
struct BandSplit {
  int32_t length, parity, low;  // low: samples in the low band
  BandSplit(int32_t n, int32_t first) : length(n), parity(first & 1), low(int32_t((int64_t(n) + 1 - parity) >> 1)) {}
  // Of a position among the alternating samples, the position with the low band in front; and the inverse.
  int32_t toBands(int32_t m) const { return (m >> 1) + ((m + parity) % 2 ? low : 0); }
  int32_t fromBands(int32_t j) const { return j < low ? 2 * j + parity : 2 * (j - low) + (1 - parity); }
};

// Stage t over one band of a line, in place. Sample i of `x` stands between samples i + before and i + before + 1 of
// `other`; past either end of the line stands the mirror image.
template <class Filter, int t, class T>
inline void stageOfBand(T* x, ptrdiff_t count, const T* other, ptrdiff_t otherCount, int before) {
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
  applyStage<Filter, t>(to - from, middle, middle, offset(other, from + before), offset(other, from + before + 1));
}

// All stages on the bands A and B of a line of two samples or more that begins with A (lead 0) or B (lead 1).
template <class Filter, class T>
void liftBands(T* a, ptrdiff_t aCount, T* b, ptrdiff_t bCount, int lead) {
  if constexpr (Filter::kHasStart) applyStart<Filter>(aCount, a, a);
  stageOfBand<Filter, 1>(b, bCount, a, aCount, -lead);
  stageOfBand<Filter, 2>(a, aCount, b, bCount, lead - 1);
  if constexpr (Filter::kStages == 4) {
    stageOfBand<Filter, 3>(b, bCount, a, aCount, -lead);
    stageOfBand<Filter, 4>(a, aCount, b, bCount, lead - 1);
  }
  if constexpr (Filter::kHasFinish) applyFinish<Filter>(bCount, b, b);
}

// Transforms the line at `src` into its bands at `dst`, low then high. They must not overlap.
template <class Wavelet, class T>
void forwardLine(const T* src, T* dst, const BandSplit& line) {
  T* const low = dst;
  T* const high = offset(dst, line.low);
  const ptrdiff_t highs = line.length - line.low;
  if (line.length == 1) return liftOne(true, line.parity, dst, src, 1);
  if (line.parity) split(line.length, src, high, low);
  else split(line.length, src, low, high);
  if (Wavelet::kPairForm && line.length == 2) return liftPair53(true, low, high, 1);
  liftBands<typename Wavelet::Forward>(low, line.low, high, highs, line.parity);
}

// The inverse; lifts in place at `src` on the way.
template <class Wavelet, class T>
void inverseLine(T* src, T* dst, const BandSplit& line) {
  T* const low = src;
  T* const high = offset(src, line.low);
  const ptrdiff_t highs = line.length - line.low;
  if (line.length == 1) return liftOne(false, line.parity, dst, src, 1);
  if (Wavelet::kPairForm && line.length == 2) liftPair53(false, low, high, 1);
  else liftBands<typename Wavelet::Inverse>(high, highs, low, line.low, 1 - line.parity);
  if (line.parity) merge(line.length, high, low, dst);
  else merge(line.length, low, high, dst);
}

// --- down the columns --------------------------------------------------------------------------------------

// The rows of one strip of columns, lifted where they lie.
template <class T>
struct StripRows {
  T* base;
  ptrdiff_t step, count;
  T* operator[](ptrdiff_t m) const { return row(base, step, m); }
  // Past either end stands the mirror image.
  T* mirrored(ptrdiff_t m) const { return (*this)[m < 0 ? -m : m >= count ? 2 * (count - 1) - m : m]; }
  bool has(ptrdiff_t m) const { return m >= 0 && m < count; }
};

// Lifts `columns` columns of two rows or more, the first row being of A (lead 0) or B (lead 1). Calls fetch(m) before
// row m is first used, and deliver(m) when it is finished.
template <class Filter, class T, class Fetch, class Deliver>
void liftColumns(const StripRows<T>& rows, ptrdiff_t columns, int lead, Fetch fetch, Deliver deliver) {
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
      if (Filter::kHasStart && rows.has(q)) applyStart<Filter>(columns, rows[q], rows[q]);
      const auto stage = [&]<int t>(std::integral_constant<int, t>) {
        const ptrdiff_t m = q - t;
        if (rows.has(m)) applyStage<Filter, t>(columns, rows[m], rows[m], rows.mirrored(m - 1), rows.mirrored(m + 1));
      };
      [&]<int... t>(std::integer_sequence<int, t...>) {
        (stage(std::integral_constant<int, t + 1>{}), ...);
      }(std::make_integer_sequence<int, S>{});
      if (Filter::kHasFinish && rows.has(q - S - 1)) applyFinish<Filter>(columns, rows[q - S - 1], rows[q - S - 1]);
    }
    for (const ptrdiff_t m : {q - S - 1, q - S})
      if (rows.has(m)) deliver(m);
  }
}

// The columns of the image at `base`, by strips whose rows fit the first-level cache together. fetch(m, x, count) and
// deliver(m, x, count) speak of `count` samples of row m from column x on.
constexpr ptrdiff_t kStripBytes = 2048;

template <class Wavelet, bool forward, class T, class Fetch, class Deliver>
void liftStrips(T* base, ptrdiff_t step, int32_t width, const BandSplit& column, Fetch fetch, Deliver deliver) {
  constexpr ptrdiff_t kStrip = kStripBytes / ptrdiff_t(sizeof(T));
  for (ptrdiff_t x = 0; x < width; x += kStrip) {
    const ptrdiff_t count = std::min(kStrip, width - x);
    const StripRows<T> rows{offset(base, x), step, column.length};
    const auto fetchRow = [&](ptrdiff_t m) { fetch(m, x, count); };
    const auto deliverRow = [&](ptrdiff_t m) { deliver(m, x, count); };
    if (column.length == 1) {
      fetchRow(0);
      liftOne(forward, column.parity, rows[0], rows[0], count);
      deliverRow(0);
    } else if (Wavelet::kPairForm && column.length == 2) {
      fetchRow(0), fetchRow(1);
      liftPair53(forward, rows[column.parity], rows[1 - column.parity], count);
      deliverRow(0), deliverRow(1);
    } else if constexpr (forward) {
      liftColumns<typename Wavelet::Forward>(rows, count, column.parity, fetchRow, deliverRow);
    } else {
      liftColumns<typename Wavelet::Inverse>(rows, count, 1 - column.parity, fetchRow, deliverRow);
    }
  }
}

constexpr auto nothing = [](auto...) {};

// --- in place ----------------------------------------------------------------------------------------------

// Moves every row of 0 .. count - 1 to its place by move(from, to), where `from` is source(to), or negative for the one
// row of each cycle whose place is overwritten first; hold(j) saves that row.
template <class Source, class Hold, class Move>
void permuteRows(int32_t count, Source source, Hold hold, Move move) {
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
void ownInPlace(SampleOf<Wavelet>* tile, ptrdiff_t step, const BandSplit& rowSplit, const BandSplit& columnSplit,
                SampleOf<Wavelet>* line) {
  using T = SampleOf<Wavelet>;
  const int32_t width = rowSplit.length;
  T few[2];  // such a row doesn't need the work buffer, which may be empty
  if (width <= 2) line = few;
  if constexpr (forward) liftStrips<Wavelet, forward>(tile, step, width, columnSplit, nothing, nothing);
  permuteRows(
      columnSplit.length, [&](int32_t j) { return forward ? columnSplit.fromBands(j) : columnSplit.toBands(j); },
      [&](int32_t j) { std::memcpy(line, row(tile, step, j), size_t(width) * sizeof(T)); },
      [&](int32_t from, int32_t to) {
        T* const src = from < 0 ? line : row(tile, step, from);
        T* const dst = row(tile, step, to);
        if constexpr (forward) forwardLine<Wavelet>(src, dst, rowSplit);
        else inverseLine<Wavelet>(src, dst, rowSplit);
      });
  if constexpr (!forward) liftStrips<Wavelet, forward>(tile, step, width, columnSplit, nothing, nothing);
}

template <class Wavelet, bool forward>
QelStatus inPlace(SampleOf<Wavelet>* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer) {
  if (auto s = check(nonNull(srcDst), step(srcDstStep), nonNull(tile, buffer)); s) return s;
  if (tile->width < 1 || tile->height < 1) return qelStatusOk;
  [[maybe_unused]] const typename Wavelet::RoundingGuard rounding{};
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

// The line of the work image at `j` of the band layout, as its two pieces in the caller's planes. Planes are cut in the
// middle, rounded up, whatever the parity of the tile.
template <class T>
struct Bands {
  T* const* plane;
  const int32_t* step;
  int32_t width, height;
  int32_t cut() const { return width - width / 2; }
  template <class Operation>
  void forEachPiece(int32_t j, Operation piece) const {
    const int32_t upper = height - height / 2, index = j < upper ? 0 : 1, y = j < upper ? j : j - upper;
    piece(row(plane[index], step[index], y), 0, cut());
    if (width > 1) piece(row(plane[index + 2], step[index + 2], y), cut(), width - cut());
  }
};

template <class Wavelet, bool forward, class Image, class Plane>
void ownWithBands(Image* image, ptrdiff_t imageStep, const Bands<Plane>& bands, const BandSplit& rowSplit,
                  const BandSplit& columnSplit, uint8_t* buffer) {
  using T = SampleOf<Wavelet>;
  const int32_t width = rowSplit.length, height = columnSplit.length;
  const ptrdiff_t workStep = ptrdiff_t(pitch<T>(width));
  T* const work = reinterpret_cast<T*>(buffer);
  T few[2];
  T* const line = width <= 2 ? few : row(work, workStep, height);
  if constexpr (forward) {
    const auto fetch = [&](ptrdiff_t m, ptrdiff_t x, ptrdiff_t count) {
      std::memcpy(offset(row(work, workStep, m), x), offset(row(image, imageStep, m), x), size_t(count) * sizeof(T));
    };
    liftStrips<Wavelet, forward>(work, workStep, width, columnSplit, fetch, nothing);
    for (int32_t m = 0; m < height; ++m) {
      forwardLine<Wavelet>(row(work, workStep, m), line, rowSplit);
      bands.forEachPiece(columnSplit.toBands(m), [&](Plane* piece, ptrdiff_t x, int32_t count) {
        std::memcpy(piece, offset(line, x), size_t(count) * sizeof(T));
      });
    }
  } else {
    for (int32_t m = 0; m < height; ++m) {
      bands.forEachPiece(columnSplit.toBands(m), [&](Plane* piece, ptrdiff_t x, int32_t count) {
        std::memcpy(offset(line, x), piece, size_t(count) * sizeof(T));
      });
      inverseLine<Wavelet>(line, row(work, workStep, m), rowSplit);
    }
    const auto deliver = [&](ptrdiff_t m, ptrdiff_t x, ptrdiff_t count) {
      std::memcpy(offset(row(image, imageStep, m), x), offset(row(work, workStep, m), x), size_t(count) * sizeof(T));
    };
    liftStrips<Wavelet, forward>(work, workStep, width, columnSplit, nothing, deliver);
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
  [[maybe_unused]] const typename Wavelet::RoundingGuard rounding{};
  ownWithBands<Wavelet, forward>(image, imageStep, Bands<Plane>{plane, planeStep, tile->width, tile->height},
                                 {tile->width, tile->x}, {tile->height, tile->y}, buffer);
  return qelStatusOk;
}

// --- sizes of the work buffer ------------------------------------------------------------------------------

// A line of the longer side with its margins; nothing where every line is short enough to do without. `width` and
// `height` are taken as they are, and the sums wrap at 32 bits.
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
