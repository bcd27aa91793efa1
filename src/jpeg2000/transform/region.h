// The row, column and single-step functions of both wavelets, over any filter of the skeleton. A region is lifted out
// of place; the border that the filter needs is the caller's, and nothing is extended here.
//
// Both directions number a line's positions alike: the first sample of the region has position 0, position m belongs to
// sample m >> 1 of its band, and q = 1 when position 0 is odd. With the bands A and B of the skeleton, `lead` is the
// position of A's sample 0.
#ifndef QELJ_JPEG2000_TRANSFORM_REGION_H
#define QELJ_JPEG2000_TRANSFORM_REGION_H

#include <algorithm>

#include "frame/check.h"
#include "frame/rows.h"
#include "jpeg2000/transform/line.h"

namespace qelj::jpeg2000::lifting {

// Columns that are lifted together: their rows between the stages stay on the stack and in the first-level cache.
template <class T>
inline constexpr ptrdiff_t kStripOfRegion = 1024 / ptrdiff_t(sizeof(T));

// The two bands of a region.
template <class T>
struct BandPlanes {
  T* low;
  int32_t lowStep;
  T* high;
  int32_t highStep;

  // The row at position m of a column.
  T* line(ptrdiff_t m, int q) const { return (m ^ q) & 1 ? row(high, highStep, m >> 1) : row(low, lowStep, m >> 1); }
};

// --- down columns ------------------------------------------------------------------------------------------

// The values of a strip's rows, by position: what the caller gave, what a stage leaves for a later one, the result.
// source(m) is the row that is read at position m; result(m) is where its final value goes, or null for a position that
// is lifted only because others depend on it.
template <class Filter, class Source, class Result>
void liftStrip(ptrdiff_t columns, ptrdiff_t w, int lead, Source source, Result result) {
  using T = typename Filter::Sample;
  constexpr int S = Filter::kStages;
  constexpr int kFinal[2] = {S, Filter::kHasFinish ? S + 1 : S - 1};  // the last stage of A and of B
  constexpr ptrdiff_t kSlots = 8;                                     // more than the rows between two steps
  T slots[kSlots][kStripOfRegion<T>] = {};
  const auto home = [&](ptrdiff_t m, int t) -> T* {
    T* const done = t >= kFinal[(m ^ lead) & 1] ? result(m) : nullptr;
    return done ? done : slots[m & (kSlots - 1)];
  };
  // The steps at which the first and the last rows that matter become the newest one. Before them, a stage may lift
  // rows of zeros that nothing depends on.
  const ptrdiff_t first = lead - (S - 2), last = 2 * w + lead + (S - 2);
  for (ptrdiff_t q = first; q <= last; q += 2) {
    const T* src[kStepRows<Filter>];
    T* dst[kStepRows<Filter>];
    for (int j = 0; j < kStepRows<Filter>; ++j) {
      src[j] = j <= 2 ? source(q - j) : home(q - j, j - 2);
      dst[j] = home(q - j, j);
    }
    ownStep<Filter>(columns, src, dst);
  }
  if (const ptrdiff_t m = last - (S - 1); Filter::kHasFinish && result(m))
    applyFinish<Filter>(columns, result(m), slots[m & (kSlots - 1)]);
}

template <class Filter, class T = typename Filter::Sample>
void ownForwardColumns(const T* src, ptrdiff_t srcStep, const BandPlanes<T>& dst, QelSize size, int q) {
  for (ptrdiff_t x = 0; x < size.width; x += kStripOfRegion<T>)
    liftStrip<Filter>(
        std::min(kStripOfRegion<T>, size.width - x), size.height, q,
        [&](ptrdiff_t m) { return offset(row(src, srcStep, m), x); },
        [&](ptrdiff_t m) { return m < 0 || m >= 2 * ptrdiff_t(size.height) ? nullptr : offset(dst.line(m, q), x); });
}

template <class Filter, class T = typename Filter::Sample>
void ownInverseColumns(const BandPlanes<const T>& src, T* dst, ptrdiff_t dstStep, QelSize size, int q) {
  for (ptrdiff_t x = 0; x < size.width; x += kStripOfRegion<T>)
    liftStrip<Filter>(
        std::min(kStripOfRegion<T>, size.width - x), size.height, 1 - q,
        [&](ptrdiff_t m) { return offset(src.line(m, q), x); },
        [&](ptrdiff_t m) {
          return m < 0 || m >= 2 * ptrdiff_t(size.height) ? nullptr : offset(row(dst, dstStep, m), x);
        });
}

// --- fronts ------------------------------------------------------------------------------------------------

template <class T, class B>
constexpr QelStatus checkRegion(const T* image, int32_t imageStep, const BandPlanes<B>& bands, QelSize size) {
  return check(nonNull(image, bands.low, bands.high), step(imageStep), step(bands.lowStep), step(bands.highStep),
               area(size));
}

// A line of one sample a band is the work of One::forward and One::inverse, where the wavelet has such a form.
struct NoForm {};

template <class Filter, class One = NoForm, class T = typename Filter::Sample>
QelStatus forwardRows(const T* src, int32_t srcStep, const BandPlanes<T>& dst, QelSize size, uint32_t phase) {
  if (auto s = checkRegion(src, srcStep, dst, size); s) return s;
  const int q = phase != 0;
  const auto lift = forwardLineFor<Filter, Ends::kBorder>(size.width, size.width, q);
  return forEachRowSerial(size, [&](int32_t y) {
    const T* const x = row(src, srcStep, y);
    T *const low = row(dst.low, dst.lowStep, y), *const high = row(dst.high, dst.highStep, y);
    if constexpr (!std::is_same_v<One, NoForm>)
      if (size.width == 1) return One::forward([&](ptrdiff_t m) { return at(x, m); }, low, high, q);
    lift(x, low, size.width, high, size.width);
  });
}

template <class Filter, class One = NoForm, class T = typename Filter::Sample>
QelStatus inverseRows(const BandPlanes<const T>& src, QelSize size, T* dst, int32_t dstStep, uint32_t phase) {
  if (auto s = checkRegion(dst, dstStep, src, size); s) return s;
  const int q = phase != 0;
  const auto lift = inverseLineFor<Filter, Ends::kBorder>(size.width, size.width, q);
  return forEachRowSerial(size, [&](int32_t y) {
    const T *const low = row(src.low, src.lowStep, y), *const high = row(src.high, src.highStep, y);
    T* const x = row(dst, dstStep, y);
    if constexpr (!std::is_same_v<One, NoForm>)
      if (size.width == 1)
        return One::inverse([&](ptrdiff_t m) { return at((m ^ q) & 1 ? high : low, m >> 1); }, offset(x, q),
                            offset(x, 1 - q), q);
    lift(low, size.width, high, size.width, x);
  });
}

template <class Filter, class One = NoForm, class T = typename Filter::Sample>
QelStatus forwardColumns(const T* src, int32_t srcStep, const BandPlanes<T>& dst, QelSize size, uint32_t phase) {
  if (auto s = checkRegion(src, srcStep, dst, size); s) return s;
  const int q = phase != 0;
  if constexpr (!std::is_same_v<One, NoForm>)
    if (size.height == 1) {
      for (int32_t i = 0; i < size.width; ++i)
        One::forward([&](ptrdiff_t m) { return at(row(src, srcStep, m), i); }, offset(dst.low, i), offset(dst.high, i),
                     q);
      return qelStatusOk;
    }
  ownForwardColumns<Filter>(src, srcStep, dst, size, q);
  return qelStatusOk;
}

template <class Filter, class One = NoForm, class T = typename Filter::Sample>
QelStatus inverseColumns(const BandPlanes<const T>& src, QelSize size, T* dst, int32_t dstStep, uint32_t phase) {
  if (auto s = checkRegion(dst, dstStep, src, size); s) return s;
  const int q = phase != 0;
  if constexpr (!std::is_same_v<One, NoForm>)
    if (size.height == 1) {
      for (int32_t i = 0; i < size.width; ++i)
        One::inverse([&](ptrdiff_t m) { return at(src.line(m, q), i); }, offset(row(dst, dstStep, q), i),
                     offset(row(dst, dstStep, 1 - q), i), q);
      return qelStatusOk;
    }
  ownInverseColumns<Filter>(src, dst, dstStep, size, q);
  return qelStatusOk;
}

// One step down the columns on rows of the caller's, from the newest row on as ownStep() counts them.
template <class Filter>
QELJ_INLINE QelStatus liftRows(const typename Filter::Sample* const (&src)[kStepRows<Filter>],
                               typename Filter::Sample* const (&dst)[kStepRows<Filter>], int32_t width) {
  for (const void* p : src)
    if (!p) return qelStatusNullPointer;
  for (int j = 1; j < (Filter::kHasFinish ? kStepRows<Filter> : kStepRows<Filter> - 1); ++j)
    if (!dst[j]) return qelStatusNullPointer;
  if (auto s = check(length(width)); s) return s;
  ownStep<Filter>(width, src, dst);
  return qelStatusOk;
}

}  // namespace qelj::jpeg2000::lifting

#endif
