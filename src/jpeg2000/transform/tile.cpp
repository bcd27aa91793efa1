// One level of the two-dimensional wavelet over a whole tile, with the symmetric extension inside (ISO/IEC 15444-1,
// F.3.2 and F.4.2).
//
// With four bands, both passes go over the tile's memory once. Forward, the columns stream through a few rows of the work
// buffer, and each row goes to its bands as soon as it is finished. Inverse, each row comes from its bands to the image
// just before the columns use it, and is lifted there.
//
// In place, both directions go over the tile twice. Down the columns the rows are lifted where they lie, low and high
// rows alternating, many columns at once. Along the rows each row is lifted on its way between its place among the
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
#include "jpeg2000/transform/line.h"

namespace qelj {
namespace {

using namespace jpeg2000::lifting;

// --- the wavelets ------------------------------------------------------------------------------------------

struct B53_16s {
  using Forward = Forward53<int16_t, WideSums>;
  using Inverse = Inverse53<int16_t, WideSums>;
  using ForwardRow = Forward;
  using InverseRow = Inverse;
  using RoundingGuard = AnyRounding;
  static constexpr bool kPairForm = true;  // lines of two samples have a form of their own
  static constexpr int kMargin = 4;        // samples beside the line in the work buffer
};
struct B53_32s {
  using Forward = Forward53<int32_t>;
  using Inverse = Inverse53<int32_t>;
  using ForwardRow = Forward;
  using InverseRow = Inverse;
  using RoundingGuard = AnyRounding;
  static constexpr bool kPairForm = true;
  static constexpr int kMargin = 4;
};
struct D97_16s {
  using Forward = Forward97Cut<false>;
  using Inverse = Inverse97Cut<false>;
  using ForwardRow = Forward97Cut<true>;
  using InverseRow = Inverse97Cut<true>;
  using RoundingGuard = AnyRounding;
  static constexpr bool kPairForm = false;
  static constexpr int kMargin = 8;
};
struct D97_32s {
  using Forward = Forward97ThroughFloat;
  using Inverse = Inverse97ThroughFloat;
  using ForwardRow = Forward;
  using InverseRow = Inverse;
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

// The function for all lines of a tile that are longer than two samples.
template <class Wavelet, bool forward>
auto lineFor(const BandSplit& line) {
  const int32_t highs = line.length - line.low;
  if constexpr (forward)
    return forwardLineFor<typename Wavelet::ForwardRow, Ends::kMirror>(line.low, highs, line.parity);
  else return inverseLineFor<typename Wavelet::InverseRow, Ends::kMirror>(line.low, highs, line.parity);
}
// The line at `src` to its bands, and back, by that function.
template <class Wavelet, class T, class Lift>
void forwardLine(const T* src, T* low, T* high, const BandSplit& line, Lift lift) {
  if (line.length == 1) return liftOne(true, line.parity, line.parity ? high : low, src, 1);
  if (Wavelet::kPairForm && line.length == 2) {
    put(low, 0, at(src, line.parity)), put(high, 0, at(src, 1 - line.parity));
    return liftPair53(true, low, high, 1);
  }
  lift(src, low, line.low, high, line.length - line.low);
}
template <class Wavelet, class T, class Lift>
void inverseLine(const T* low, const T* high, T* dst, const BandSplit& line, Lift lift) {
  if (line.length == 1) return liftOne(false, line.parity, dst, line.parity ? high : low, 1);
  if (Wavelet::kPairForm && line.length == 2) {
    T *const even = offset(dst, line.parity), *const odd = offset(dst, 1 - line.parity);
    put(even, 0, at(low, 0)), put(odd, 0, at(high, 0));
    return liftPair53(false, even, odd, 1);
  }
  lift(low, line.low, high, line.length - line.low, dst);
}

// --- down the columns --------------------------------------------------------------------------------------

// Lifts `columns` columns of n rows, two or more, the first row being of A (lead 0) or B (lead 1). Row m is read at
// source(m), and lies at home(m, t) behind stage t; behind 1 also what start() makes of a row of A. Calls fetch(m)
// before row m is first used, and deliver(m) when it is finished.
template <class Filter, class Source, class Home, class Fetch, class Deliver>
void liftColumns(ptrdiff_t n, ptrdiff_t columns, int lead, Source source, Home home, Fetch fetch, Deliver deliver) {
  using T = typename Filter::Sample;
  constexpr int S = Filter::kStages;
  const auto has = [n](ptrdiff_t m) { return m >= 0 && m < n; };
  // Row m as stage t finds it when it changes the row (own), and when it changes a neighbour.
  const auto started = [&](ptrdiff_t m) -> const T* { return Filter::kHasStart ? home(m, 1) : source(m); };
  const auto own = [&](ptrdiff_t m, int t) -> const T* {
    return t == 1 ? source(m) : t == 2 ? started(m) : home(m, t - 2);
  };
  const auto beside = [&](ptrdiff_t m, int t) -> const T* {
    m = m < 0 ? -m : m >= n ? 2 * (n - 1) - m : m;  // past either end stands the mirror image
    return t == 1 ? started(m) : home(m, t - 1);
  };
  // q is the newest row of each step; the rows of the last steps lie past the end.
  for (ptrdiff_t q = lead; q <= n + S; q += 2) {
    for (const ptrdiff_t m : {q - 1, q})
      if (has(m)) fetch(m);
    if (q - S - 1 >= 0 && q < n) {
      const T* src[kStepRows<Filter>] = {source(q)};
      T* dst[kStepRows<Filter>] = {home(q, 1)};
      for (int j = 1; j < kStepRows<Filter>; ++j) src[j] = own(q - j, j), dst[j] = home(q - j, j);
      ownStep<Filter>(columns, src, dst);
    } else {
      if (Filter::kHasStart && has(q)) applyStart<Filter>(columns, home(q, 1), source(q));
      const auto stage = [&]<int t>(std::integral_constant<int, t>) {
        const ptrdiff_t m = q - t;
        if (has(m)) applyStage<Filter, t>(columns, home(m, t), own(m, t), beside(m - 1, t), beside(m + 1, t));
      };
      [&]<int... t>(std::integer_sequence<int, t...>) {
        (stage(std::integral_constant<int, t + 1>{}), ...);
      }(std::make_integer_sequence<int, S>{});
      if (const ptrdiff_t m = q - S - 1; Filter::kHasFinish && has(m))
        applyFinish<Filter>(columns, home(m, S + 1), own(m, S + 1));
    }
    for (const ptrdiff_t m : {q - S - 1, q - S})
      if (has(m)) deliver(m);
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

// Strips of columns whose rows fit the first-level cache together.
constexpr ptrdiff_t kStripBytes = 2048;

template <class Wavelet, bool forward>
void ownColumnsInPlace(SampleOf<Wavelet>* tile, ptrdiff_t step, int32_t width, const BandSplit& column) {
  using T = SampleOf<Wavelet>;
  using Filter = std::conditional_t<forward, typename Wavelet::Forward, typename Wavelet::Inverse>;
  constexpr ptrdiff_t kStrip = kStripBytes / ptrdiff_t(sizeof(T));
  for (ptrdiff_t x = 0; x < width; x += kStrip) {
    const ptrdiff_t count = std::min(kStrip, width - x);
    const auto place = [&](ptrdiff_t m, int = 0) { return offset(row(tile, step, m), x); };
    if (column.length == 1) liftOne(forward, column.parity, place(0), place(0), count);
    else if (Wavelet::kPairForm && column.length == 2)
      liftPair53(forward, place(column.parity), place(1 - column.parity), count);
    else
      liftColumns<Filter>(column.length, count, forward ? column.parity : 1 - column.parity, place, place, nothing,
                          nothing);
  }
}

template <class Wavelet, bool forward>
void ownInPlace(SampleOf<Wavelet>* tile, ptrdiff_t step, const BandSplit& rowSplit, const BandSplit& columnSplit,
                SampleOf<Wavelet>* line) {
  using T = SampleOf<Wavelet>;
  const int32_t width = rowSplit.length;
  T few[2];  // such a row doesn't need the work buffer, which may be empty
  if (width <= 2) line = few;
  const auto lift = lineFor<Wavelet, forward>(rowSplit);
  if constexpr (forward) ownColumnsInPlace<Wavelet, forward>(tile, step, width, columnSplit);
  permuteRows(
      columnSplit.length, [&](int32_t j) { return forward ? columnSplit.fromBands(j) : columnSplit.toBands(j); },
      [&](int32_t j) { std::memcpy(line, row(tile, step, j), size_t(width) * sizeof(T)); },
      [&](int32_t from, int32_t to) {
        T* const src = from < 0 ? line : row(tile, step, from);
        T* const dst = row(tile, step, to);
        if constexpr (forward) forwardLine<Wavelet>(src, dst, offset(dst, rowSplit.low), rowSplit, lift);
        else inverseLine<Wavelet>(src, offset(src, rowSplit.low), dst, rowSplit, lift);
      });
  if constexpr (!forward) ownColumnsInPlace<Wavelet, forward>(tile, step, width, columnSplit);
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

// The caller's planes, which are cut in the middle, rounded up, whatever the parity of the tile.
template <class T>
struct Bands {
  T* const* plane;
  const int32_t* step;
  int32_t width, height;
  int32_t cut() const { return width - width / 2; }
  // Line j of the band layout, as its two pieces. The right one may be empty, and its plane without memory.
  struct Line {
    T *left, *right;
  };
  Line line(int32_t j) const {
    const int32_t upper = height - height / 2, index = j < upper ? 0 : 1, y = j < upper ? j : j - upper;
    return {row(plane[index], step[index], y), row(plane[index + 2], step[index + 2], y)};
  }
};

// Rows on their forward way down the columns: so many, from the newest on, are in use at a time. They lie in the work
// image, of which the others are not touched, so that what is between the two passes stays in the caches.
template <class Wavelet>
constexpr ptrdiff_t kRingRows = Wavelet::Forward::kStages == 2 ? 4 : 8;

template <class Wavelet, bool forward, class Image, class Plane>
void ownWithBands(Image* image, ptrdiff_t imageStep, const Bands<Plane>& bands, const BandSplit& rowSplit,
                  const BandSplit& columnSplit, uint8_t* buffer) {
  using T = SampleOf<Wavelet>;
  using Filter = std::conditional_t<forward, typename Wavelet::Forward, typename Wavelet::Inverse>;
  const int32_t width = rowSplit.length, height = columnSplit.length;
  const ptrdiff_t workStep = ptrdiff_t(pitch<T>(width));
  T* const work = reinterpret_cast<T*>(buffer);
  T few[2];
  T* const line = width <= 2 ? few : row(work, workStep, height);
  const auto imageRow = [&](ptrdiff_t m) { return row(image, imageStep, m); };
  // Where row m is lifted down the columns. Rows of the ring begin at cache lines wherever the work image is high enough:
  // vectors across lines cost twice.
  constexpr ptrdiff_t kLine = 64, kRows = kRingRows<Wavelet>;
  const ptrdiff_t lineStep = (workStep + kLine - 1) & -kLine;
  const bool aligned = kLine + kRows * lineStep <= height * workStep;
  const ptrdiff_t ringStep = aligned ? lineStep : workStep;
  T* const ring = aligned ? reinterpret_cast<T*>(buffer + (-reinterpret_cast<uintptr_t>(buffer) & (kLine - 1))) : work;
  const auto home = [&](ptrdiff_t m, int = 0) -> T* {
    if constexpr (forward) return row(ring, ringStep, m & (kRows - 1));
    else return imageRow(m);
  };

  // Row m between its home and its bands. Where the planes are cut elsewhere than the bands, the line that they make up
  // is in between.
  const int32_t cut = bands.cut(), rest = width - cut;
  const bool asBands = cut == rowSplit.low;
  const auto lift = lineFor<Wavelet, forward>(rowSplit);
  const auto moveRow = [&](ptrdiff_t m) {
    const auto piece = bands.line(columnSplit.toBands(int32_t(m)));
    T* const lineHigh = offset(line, rowSplit.low);
    if constexpr (forward) {
      if (asBands) return forwardLine<Wavelet>(home(m), piece.left, piece.right, rowSplit, lift);
      forwardLine<Wavelet>(home(m), line, lineHigh, rowSplit, lift);
      std::memcpy(piece.left, line, size_t(cut) * sizeof(T));
      if (rest) std::memcpy(piece.right, offset(line, cut), size_t(rest) * sizeof(T));
    } else {
      if (asBands) return inverseLine<Wavelet>(piece.left, piece.right, imageRow(m), rowSplit, lift);
      std::memcpy(line, piece.left, size_t(cut) * sizeof(T));
      if (rest) std::memcpy(offset(line, cut), piece.right, size_t(rest) * sizeof(T));
      inverseLine<Wavelet>(line, lineHigh, imageRow(m), rowSplit, lift);
    }
  };

  const bool pair = Wavelet::kPairForm && height == 2;
  if (height > 1 && !pair) {
    const int lead = forward ? columnSplit.parity : 1 - columnSplit.parity;
    if constexpr (forward) liftColumns<Filter>(height, width, lead, imageRow, home, nothing, moveRow);
    else liftColumns<Filter>(height, width, lead, home, home, moveRow, nothing);
    return;
  }
  for (int32_t m = 0; m < height; ++m) {
    if constexpr (forward) std::memcpy(home(m), imageRow(m), size_t(width) * sizeof(T));
    else moveRow(m);
  }
  if (pair) liftPair53(forward, home(columnSplit.parity), home(1 - columnSplit.parity), width);
  else liftOne(forward, columnSplit.parity, home(0), home(0), width);
  if constexpr (forward)
    for (int32_t m = 0; m < height; ++m) moveRow(m);
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
