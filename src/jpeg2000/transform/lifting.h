// The lifting skeleton of both wavelets: which sample each step changes and which two neighbours it reads. What a step
// computes is the filter's, a struct of this shape:
//
//   struct Filter {
//     using Sample = int32_t;             // the type that lines hold, also for what a stage leaves behind
//     static constexpr int kStages = 2;   // 2 or 4
//     template <int t, class V> static V stage(V x, V left, V right);  // x after stage t = 1 .. kStages
//     static constexpr bool kHasStart, kHasFinish;  // whether these are more than the identity:
//     template <class V> static V start(V x);       // a scaling in front of stage 1
//     template <class V> static V finish(V x);      // a scaling behind the last stage
//     static constexpr bool kLongProducts;          // whether a vector's products take many instructions and registers
//   };
//
// A line alternates between two bands, here A and B. Stage 1 changes B by its neighbours in A, stage 2 changes A by its
// neighbours in B, and so on; start() applies to A and finish() to B. Forward, A is the even positions, which become
// the low band; inverse, A is the odd positions, which were the high band. V is one sample or a vector of them.
//
// Every order below gives the same values, because a stage reads only what the stage before left.
#ifndef QELJ_JPEG2000_TRANSFORM_LIFTING_H
#define QELJ_JPEG2000_TRANSFORM_LIFTING_H

#include "frame/arith.h"
#include "frame/lanes.h"
#include "jpeg2000/transform/groups.h"

namespace qelj::jpeg2000::lifting {

// --- what filters have in common ---------------------------------------------------------------------------

template <class T, int stages>
struct Unscaled {
  using Sample = T;
  static constexpr int kStages = stages;
  static constexpr bool kHasStart = false, kHasFinish = false, kLongProducts = false;
  template <class V>
  static V start(V x) {
    return x;
  }
  template <class V>
  static V finish(V x) {
    return x;
  }
};

// Along the rows of a region, a filter may compute the samples near the ends of a line otherwise. Then it has kHasEnds,
// which is true, and
//   inner<t>(w, lead)                   the range of sample numbers that have stage()'s form, in a line of w samples a
//                                       band; t = kStages + 1 stands for finish()
//   end<t>(k, w, lead, x, left, right)  stage t of sample k outside that range
// where `lead` is the position of A's sample 0.
template <class Filter>
concept HasEnds = requires { Filter::kHasEnds; };
struct Range {
  ptrdiff_t from, to;
};

// --- element by element over rows, columns' rows, or the halves of a line ----------------------------------

// dst[i] = operation(src[0][i], src[1][i], ...), where dst may be any of the sources.
template <class T, class Operation, class... Source>
inline void apply(ptrdiff_t count, Operation operation, T* dst, const Source*... src) {
  coverByGroups<T>(count, [=](ptrdiff_t i, auto memory) QELJ_INLINE_LAMBDA {
    memory.store(offset(dst, i), operation(memory.load(offset(src, i))...));
  });
}

template <class Filter, int t>
inline void applyStage(ptrdiff_t count, typename Filter::Sample* dst, const typename Filter::Sample* x,
                       const typename Filter::Sample* left, const typename Filter::Sample* right) {
  apply(count, [](auto a, auto b, auto c) { return Filter::template stage<t>(a, b, c); }, dst, x, left, right);
}
template <class Filter>
inline void applyStart(ptrdiff_t count, typename Filter::Sample* dst, const typename Filter::Sample* src) {
  apply(count, [](auto x) { return Filter::start(x); }, dst, src);
}
template <class Filter>
inline void applyFinish(ptrdiff_t count, typename Filter::Sample* dst, const typename Filter::Sample* src) {
  apply(count, [](auto x) { return Filter::finish(x); }, dst, src);
}

// All stages of one step down the columns, in one pass. Row 0 is the newest row (of A) and row j the one j positions
// before it. Stage t changes row t by rows t + 1 and t - 1; then row kStages + 1 is finished. Rows 0 to kStages + 1
// are read at `src` and their new values written at `dst`; dst[j] may be src[j]. (Inline, as a copy of pointers that
// have just been stored one by one would wait for them.)
template <class Filter>
inline constexpr int kStepRows = Filter::kStages + 2;

template <class Filter>
QELJ_INLINE void ownStep(ptrdiff_t count, const typename Filter::Sample* const (&srcRows)[kStepRows<Filter>],
                         typename Filter::Sample* const (&dstRows)[kStepRows<Filter>]) {
  using T = typename Filter::Sample;
  constexpr int S = Filter::kStages, kRows = kStepRows<Filter>;
  const T* src[kRows];
  T* dst[kRows];
  for (int j = 0; j < kRows; ++j) src[j] = srcRows[j], dst[j] = dstRows[j];
  coverByGroups<T>(count, [&](ptrdiff_t i, auto memory) QELJ_INLINE_LAMBDA {
    decltype(memory.load(nullptr)) r[kRows];
    for (int j = 0; j < kRows; ++j) r[j] = memory.load(offset(src[j], i));
    r[0] = Filter::start(r[0]);
    r[1] = Filter::template stage<1>(r[1], r[2], r[0]);
    r[2] = Filter::template stage<2>(r[2], r[3], r[1]);
    if constexpr (S == 4) {
      r[3] = Filter::template stage<3>(r[3], r[4], r[2]);
      r[4] = Filter::template stage<4>(r[4], r[5], r[3]);
    }
    r[S + 1] = Filter::finish(r[S + 1]);
    for (int j = Filter::kHasStart ? 0 : 1; j < (Filter::kHasFinish ? kRows : kRows - 1); ++j)
      memory.store(offset(dst[j], i), r[j]);
  });
}

}  // namespace qelj::jpeg2000::lifting

#endif
