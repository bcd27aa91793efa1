// The lifting skeleton of both wavelets: which sample each step changes and which two neighbours it reads.
// What a step computes is the filter's, a struct of this shape:
//
//   struct Filter {
//     using Sample = int32_t;             // the type that lines hold, also for what a stage leaves behind
//     static constexpr int kStages = 2;   // 2 or 4
//     template <int t, class V> static V stage(V x, V left, V right);  // x after stage t = 1 .. kStages
//     template <class V> static V start(V x);   // the identity, or a scaling in front of stage 1
//     template <class V> static V finish(V x);  // the identity, or a scaling behind the last stage
//   };
//
// A line alternates between two bands, here A and B. Stage 1 changes B by its neighbours in A, stage 2 changes A by its
// neighbours in B, and so on; start() applies to A and finish() to B. Forward, A is the even positions, which become
// the low band; inverse, A is the odd positions, which were the high band. V is one sample or a vector of them.
//
// Every order below gives the same values, because a stage reads only what the stage before left.
#ifndef QELJ_JPEG2000_TRANSFORM_LIFTING_H
#define QELJ_JPEG2000_TRANSFORM_LIFTING_H

#include <bit>

#include "frame/arith.h"
#include "frame/lanes.h"

namespace qelj::jpeg2000::lifting {

// --- element by element over rows, columns' rows, or the halves of a line ----------------------------------

// dst[i] = operation(src[0][i], src[1][i], ...), where dst may be any of the sources.
template <class T, class Operation, class... Source>
inline void ownApply(ptrdiff_t count, Operation operation, T* dst, const Source*... src) {
  ptrdiff_t i = 0;
  if constexpr (simd::kEnabled) {
    using V = simd::Vec<T>;
    constexpr ptrdiff_t kGroup = simd::kLanes<V>;
    for (; i + 2 * kGroup <= count; i += 2 * kGroup) {
      const V first = operation(load<V>(offset(src, i))...);
      const V second = operation(load<V>(offset(src, i + kGroup))...);
      store(offset(dst, i), first);
      store(offset(dst, i + kGroup), second);
    }
    if (i + kGroup <= count) {
      store(offset(dst, i), operation(load<V>(offset(src, i))...));
      i += kGroup;
    }
  }
  for (; i < count; ++i) put(dst, i, operation(at(src, i)...));
}

template <class Filter, int t>
inline void ownStage(ptrdiff_t count, typename Filter::Sample* dst, const typename Filter::Sample* x,
                     const typename Filter::Sample* left, const typename Filter::Sample* right) {
  ownApply(count, [](auto a, auto b, auto c) { return Filter::template stage<t>(a, b, c); }, dst, x, left, right);
}
template <class Filter>
inline void ownStart(ptrdiff_t count, typename Filter::Sample* dst, const typename Filter::Sample* src) {
  ownApply(count, [](auto x) { return Filter::start(x); }, dst, src);
}
template <class Filter>
inline void ownFinish(ptrdiff_t count, typename Filter::Sample* dst, const typename Filter::Sample* src) {
  ownApply(count, [](auto x) { return Filter::finish(x); }, dst, src);
}

// All stages of one step down the columns, in one pass. Row 0 is the newest row (of A) and row j the one j
// positions before it. Stage t changes row t by rows t + 1 and t - 1; then row kStages + 1 is finished. Rows
// 0 to kStages + 1 are read at `src` and their new values written at `dst`; dst[j] may be src[j].
template <class Filter>
inline constexpr int kStepRows = Filter::kStages + 2;

template <class Filter>
inline void ownStep(ptrdiff_t count, const typename Filter::Sample* const (&srcRows)[kStepRows<Filter>],
                    typename Filter::Sample* const (&dstRows)[kStepRows<Filter>]) {
  using T = typename Filter::Sample;
  constexpr int S = Filter::kStages, kRows = kStepRows<Filter>;
  const T* src[kRows];
  T* dst[kRows];
  for (int j = 0; j < kRows; ++j) src[j] = srcRows[j], dst[j] = dstRows[j];
  const auto step = [&]<class V>(ptrdiff_t i, V*) {
    V r[kRows];
    for (int j = 0; j < kRows; ++j) r[j] = qelj::load<V>(offset(src[j], i));
    r[0] = Filter::start(r[0]);
    r[1] = Filter::template stage<1>(r[1], r[2], r[0]);
    r[2] = Filter::template stage<2>(r[2], r[3], r[1]);
    if constexpr (S == 4) {
      r[3] = Filter::template stage<3>(r[3], r[4], r[2]);
      r[4] = Filter::template stage<4>(r[4], r[5], r[3]);
    }
    r[S + 1] = Filter::finish(r[S + 1]);
    for (int j = Filter::kHasStart ? 0 : 1; j < (Filter::kHasFinish ? kRows : kRows - 1); ++j)
      qelj::store(offset(dst[j], i), r[j]);
  };
  ptrdiff_t i = 0;
  if constexpr (simd::kEnabled) {
    using V = simd::Vec<T>;
    for (; i + simd::kLanes<V> <= count; i += simd::kLanes<V>) step(i, static_cast<V*>(nullptr));
  }
  for (; i < count; ++i) step(i, static_cast<T*>(nullptr));
}

// --- between a line and its two bands ----------------------------------------------------------------------

// first[i] = src[2i], second[i] = src[2i + 1], for `count` samples in all.
template <class T>
inline void ownSplit(ptrdiff_t count, const T* src, T* first, T* second) {
  ptrdiff_t i = 0;
  if constexpr (simd::kEnabled) {
    using V = simd::Vec<std::conditional_t<sizeof(T) == 2, int16_t, int32_t>>;
    constexpr ptrdiff_t kGroup = simd::kLanes<V>;
    for (; 2 * (i + kGroup) <= count; i += kGroup) {
      const auto parts = simd::deinterleave(load<V>(offset(src, 2 * i)), load<V>(offset(src, 2 * i + kGroup)));
      store(offset(first, i), parts.first);
      store(offset(second, i), parts.second);
    }
  }
  for (; 2 * i + 1 < count; ++i) put(first, i, at(src, 2 * i)), put(second, i, at(src, 2 * i + 1));
  if (2 * i < count) put(first, i, at(src, 2 * i));
}

// The inverse.
template <class T>
inline void ownMerge(ptrdiff_t count, const T* first, const T* second, T* dst) {
  ptrdiff_t i = 0;
  if constexpr (simd::kEnabled) {
    using V = simd::Vec<std::conditional_t<sizeof(T) == 2, int16_t, int32_t>>;
    constexpr ptrdiff_t kGroup = simd::kLanes<V>;
    for (; 2 * (i + kGroup) <= count; i += kGroup) {
      const auto pair = simd::interleave(load<V>(offset(first, i)), load<V>(offset(second, i)));
      store(offset(dst, 2 * i), pair.first);
      store(offset(dst, 2 * i + kGroup), pair.second);
    }
  }
  for (; 2 * i + 1 < count; ++i) put(dst, 2 * i, at(first, i)), put(dst, 2 * i + 1, at(second, i));
  if (2 * i < count) put(dst, 2 * i, at(first, i));
}

// --- filters that more than one family uses ----------------------------------------------------------------

// The sums of the 5/3 filter, wrapping in the width of the sample: (a + b) >> 1 and (a + b + 2) >> 2.
struct WrappingSums {
  template <class V>
  static V half(V a, V b) {
    return shr(addWrap(a, b), 1);
  }
  template <class V>
  static V quarter(V a, V b) {
    return shr(addWrap(addWrap(a, b), all<V>(2)), 2);
  }
};

// ISO/IEC 15444-1, F.4.8.1 and F.3.8.2.1.
template <class T, class Sums = WrappingSums>
struct Forward53 {
  using Sample = T;
  static constexpr int kStages = 2;
  static constexpr bool kHasStart = false, kHasFinish = false;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return subWrap(x, Sums::half(left, right));
    else return addWrap(x, Sums::quarter(left, right));
  }
  template <class V>
  static V start(V x) {
    return x;
  }
  template <class V>
  static V finish(V x) {
    return x;
  }
};
template <class T, class Sums = WrappingSums>
struct Inverse53 : Forward53<T, Sums> {
  template <int t, class V>
  static V stage(V x, V left, V right) {
    if constexpr (t == 1) return subWrap(x, Sums::quarter(left, right));
    else return addWrap(x, Sums::half(left, right));
  }
};

// The irrational numbers of the 9/7 filter (ISO/IEC 15444-1, Table F.4), in single precision.
inline constexpr float kAlpha = -1.5861343f, kBeta = -0.052980117f, kGamma = 0.8829111f, kDelta = 0.44350687f;
inline constexpr float kK = 1.2301741f, kInvK = 0.8128931f, kDeltaOverK = 0.36052364f;
static_assert(std::bit_cast<uint32_t>(kAlpha) == 0xBFCB0673 && std::bit_cast<uint32_t>(kBeta) == 0xBD5901AE &&
              std::bit_cast<uint32_t>(kGamma) == 0x3F620676 && std::bit_cast<uint32_t>(kDelta) == 0x3EE31355 &&
              std::bit_cast<uint32_t>(kK) == 0x3F9D7658 && std::bit_cast<uint32_t>(kInvK) == 0x3F5019C3 &&
              std::bit_cast<uint32_t>(kDeltaOverK) == 0x3EB8968E);

}  // namespace qelj::jpeg2000::lifting

#endif
