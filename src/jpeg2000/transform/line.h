// A line and its two bands: all stages in one pass, in registers, or two and two or each by itself in long lines.
//
// The samples come in groups of as many of A and of B as a vector has lanes; here B[i] is the sample of B in front of
// A[i]. A stage takes the newest samples and, moved in by one lane, those of the group before, so that nothing passes
// through memory between the stages. What is finished is S / 2 samples behind the newest, S being the number of stages.
#ifndef QELJ_JPEG2000_TRANSFORM_LINE_H
#define QELJ_JPEG2000_TRANSFORM_LINE_H

#include <algorithm>
#include <utility>

#include "jpeg2000/transform/lifting.h"

namespace qelj::jpeg2000::lifting {

// --- groups: one sample of each band, or vectors of them ----------------------------------------------------

template <class V>
inline constexpr ptrdiff_t kGroup = ptrdiff_t(sizeof(V) / sizeof(Lane<V>));

// A stream of samples, one place late.
template <class V>
class OneLate : public simd::OneLate<V> {
  using simd::OneLate<V>::OneLate;
};
template <OneSample V>
class OneLate<V> {
  V kept_{};

 public:
  V last() const { return kept_; }
  V operator()(V x) { return std::exchange(kept_, x); }
};

// Alternating samples in memory.
template <class V>
struct Alternating {
  V first, second;
};
// And the samples in front of the second, where they lie together: loads save shuffles, of which a processor does fewer
// at a time.
template <class V>
struct WithLeft : Alternating<V> {
  V left;
};
template <class V>
QELJ_INLINE Alternating<V> loadAlternating(const Lane<V>* p) {
  if constexpr (OneSample<V>) {
    return {at(p, 0), at(p, 1)};
  } else {
    const auto pair = simd::loadPairs<V>(p);
    return {pair.first, pair.second};
  }
}
template <class V>
QELJ_INLINE void storeAlternating(Lane<V>* p, V first, V second) {
  if constexpr (OneSample<V>) {
    put(p, 0, first), put(p, 1, second);
  } else {
    simd::storePairs(p, first, second);
  }
}

// --- the stages --------------------------------------------------------------------------------------------

// `lead` is the position of A[0], and w the samples a band, which only a filter with ends asks for.
//
// Stages 3 and 4 have a function of their own, which takes the group before: beside stages 1 and 2 of the newest one
// they keep the processor busy where one chain of all four would make it wait for each product.
template <class Filter, class V, int lead>
class Stages {
  template <class, class, int>
  friend class Stages;
  static constexpr int S = Filter::kStages;
  ptrdiff_t w_, i_ = 0;
  OneLate<V> a0_, b1_, a2_, b3_;     // the values behind these stages
  V a_{}, b_{}, before_{}, late_{};  // behind stage 2: A and B, and both one place late

  // Stage t of sample k of its band, or what follows the last.
  template <int t>
  QELJ_INLINE V stage([[maybe_unused]] ptrdiff_t k, V x, V left, V right) const {
    if constexpr (HasEnds<Filter> && OneSample<V>) {
      const Range inner = Filter::template inner<t>(w_, lead);
      if (k < inner.from || k >= inner.to) return Filter::template end<t>(k, w_, lead, x, left, right);
    }
    if constexpr (t > S) return Filter::finish(x);
    else return Filter::template stage<t>(x, left, right);
  }

 public:
  // Finished samples: of A, S / 2 behind the newest one; of B, one less behind, and as many.
  struct Done {
    V a, early, late;
  };

  explicit Stages(ptrdiff_t w) : w_(w) {}
  // Goes on, by V's lanes at once, behind the samples that `one` has taken one by one.
  template <OneSample One>
  explicit Stages(const Stages<Filter, One, lead>& one)
      : w_(one.w_), a0_(one.a0_.last()), b1_(one.b1_.last()), a2_(one.a2_.last()), b3_(one.b3_.last()) {}

  // Takes the group at A[i] through stages 1 and 2.
  template <class Group>
  QELJ_INLINE void take(ptrdiff_t i, const Group& group) {
    const V newest = Filter::start(group.second);
    V left;
    if constexpr (requires { group.left; } && !Filter::kHasStart) left = group.left;
    else left = a0_(newest);
    b_ = stage<1>(i - 1 + lead, group.first, left, newest);
    late_ = b1_(b_);
    a_ = stage<2>(i - 1, left, late_, b_);
    if constexpr (S == 4) before_ = a2_(a_);
    i_ = i;
  }
  // The rest for the group that was taken last.
  QELJ_INLINE Done finish() {
    Done done{a_, b_, late_};
    if constexpr (S == 4) {
      done.early = stage<3>(i_ - 2 + lead, late_, before_, a_);
      done.late = b3_(done.early);
      done.a = stage<4>(i_ - 2, before_, done.late, done.early);
    }
    if constexpr (Filter::kHasFinish) {
      done.early = stage<S + 1>(i_ - S / 2 + lead, done.early, done.early, done.early);
      done.late = stage<S + 1>(i_ - S / 2 - 1 + lead, done.late, done.late, done.late);
    }
    return done;
  }
};

// --- lines and bands ---------------------------------------------------------------------------------------

// Behind the ends of a line there is a border of its own, or the mirror image of what is inside.
enum class Ends { kBorder, kMirror };

// The sample that stands for sample i of a band, whose sample 0 has position `first` in a line of so many samples. atStart:
// i is not past the far end, nor its image.
template <Ends ends, bool atStart = false>
QELJ_INLINE ptrdiff_t inside(ptrdiff_t i, int first, ptrdiff_t length) {
  if constexpr (ends == Ends::kMirror && atStart) {
    return i < 0 ? -i - first : i;
  } else if constexpr (ends == Ends::kMirror) {
    const ptrdiff_t sum = length - 1 - first;  // of the numbers of two samples that mirror each other at the far end
    for (;;) {
      if (i < 0) i = -i - first;
      else if (2 * i + first >= length) i = sum - i;
      else break;
    }
  }
  return i;
}

// Asks for memory some way behind p before `bytes` of it are written: a store that finds its cache line far away, or
// two lines where it is not aligned, holds up those behind it. What lies behind a line is not touched, only fetched.
QELJ_INLINE void fetchAhead(const void* p, int bytes) {
  constexpr int kAhead = 512, kLine = 64;
  for (int i = 0; i < bytes; i += kLine) __builtin_prefetch(static_cast<const char*>(p) + kAhead + i, 1);
}

// The samples of a line as they alternate.
template <class T, int lead, Ends ends>
struct AlternatingLine {
  T* x;
  ptrdiff_t length;

  template <bool atStart = false>
  auto sampleOfA(ptrdiff_t i) const {
    return at(x, 2 * inside<ends, atStart>(i, lead, length) + lead);
  }
  template <bool atStart = false>
  auto sampleOfB(ptrdiff_t i) const {
    return at(x, 2 * inside<ends, atStart>(i, 1 - lead, length) + (1 - lead));
  }
  // The last i for which the group at A[i] lies inside.
  template <class V>
  ptrdiff_t lastInside() const {
    return ends == Ends::kBorder ? length : (length + 1 - lead) / 2 - kGroup<V>;
  }
  template <class V>
  QELJ_INLINE Alternating<V> group(ptrdiff_t i) const {
    return loadAlternating<V>(offset(x, 2 * i + lead - 1));
  }
  // A[i] and the sample of B behind it.
  template <class V>
  QELJ_INLINE Alternating<V> groupFrom(ptrdiff_t i) const {
    return loadAlternating<V>(offset(x, 2 * i + lead));
  }
  // The same for one that reaches past the end: the last samples of all, and one by one those behind. (By way of a copy,
  // loads would wait for stores of another width.)
  template <class V>
  QELJ_INLINE Alternating<V> lastGroup(ptrdiff_t i) const {
    auto group = loadAlternating<V>(offset(x, length - 2 * kGroup<V>));
    const ptrdiff_t end = lead - 1 + 2 * (i + kGroup<V>);
    for (ptrdiff_t m = length, mirror = length - 2; m < end; ++m, --mirror)
      group = {group.second, simd::oneAfter(group.first, all<V>(at(x, mirror)))};
    return group;
  }
  // A from number k on, and with them the samples of B in front of them (late) or behind.
  template <class V>
  QELJ_INLINE void set(ptrdiff_t k, bool late, V a, V b) const {
    if (late) storeAlternating<V>(offset(x, 2 * k + lead - 1), b, a);
    else storeAlternating<V>(offset(x, 2 * k + lead), a, b);
  }
  // Before `count` samples a band from number k on are set.
  QELJ_INLINE void fetch(ptrdiff_t k, int count) const { fetchAhead(offset(x, 2 * k), 2 * count * int(sizeof(T))); }
  void putA(ptrdiff_t k, std::remove_const_t<T> value) const { put(x, 2 * k + lead, value); }
  void putB(ptrdiff_t k, std::remove_const_t<T> value) const { put(x, 2 * k + 1 - lead, value); }
};

// The same of a line whose bands lie apart.
template <class T, int lead, Ends ends>
struct SplitLine {
  T *a, *b;
  ptrdiff_t aCount, bCount;

  template <bool atStart = false>
  auto sampleOfA(ptrdiff_t i) const {
    return at(a, inside<ends, atStart>(i, lead, aCount + bCount));
  }
  template <bool atStart = false>
  auto sampleOfB(ptrdiff_t i) const {
    return at(b, inside<ends, atStart>(i, 1 - lead, aCount + bCount));
  }
  template <class V>
  ptrdiff_t lastInside() const {
    return ends == Ends::kBorder ? aCount + bCount : std::min(aCount, bCount + 1 - lead) - kGroup<V>;
  }
  template <class V>
  QELJ_INLINE WithLeft<V> group(ptrdiff_t i) const {
    return {{load<V>(offset(b, i - 1 + lead)), load<V>(offset(a, i))}, load<V>(offset(a, i - 1))};
  }
  template <class V>
  QELJ_INLINE Alternating<V> groupFrom(ptrdiff_t i) const {
    return {load<V>(offset(a, i)), load<V>(offset(b, i + lead))};
  }
  template <class V>
  QELJ_INLINE WithLeft<V> lastGroup(ptrdiff_t i) const {
    const auto last = [](const T* band, ptrdiff_t count, ptrdiff_t end, ptrdiff_t mirror) QELJ_INLINE_LAMBDA {
      V v = load<V>(offset(band, std::min(count, end) - kGroup<V>));
      for (; count < end; ++count, --mirror) v = simd::oneAfter(v, all<V>(at(band, mirror)));
      return v;
    };
    const V second = last(a, aCount, i + kGroup<V>, bCount - 1 - lead);
    return {{last(b, bCount, i - 1 + lead + kGroup<V>, aCount - 2 + lead), second},
            simd::oneBefore(all<V>(at(a, i - 1)), second)};
  }
  template <class V>
  QELJ_INLINE void set(ptrdiff_t k, bool late, V aValues, V bValues) const {
    store(offset(a, k), aValues);
    store(offset(b, k + lead - late), bValues);
  }
  QELJ_INLINE void fetch(ptrdiff_t k, int count) const {
    fetchAhead(offset(a, k), count * int(sizeof(T)));
    fetchAhead(offset(b, k), count * int(sizeof(T)));
  }
  void putA(ptrdiff_t k, std::remove_const_t<T> value) const { put(a, k, value); }
  void putB(ptrdiff_t k, std::remove_const_t<T> value) const { put(b, k, value); }
};

// The same on the stack, which is near.
template <class T, int lead, Ends ends>
struct Piece : SplitLine<T, lead, ends> {
  void fetch(ptrdiff_t, int) const {}
};

// --- a line through all stages -----------------------------------------------------------------------------

// The stages, as of the groups that leave samples of A from number k on, ready to finish() the first of them.
template <class Filter, class V, int lead, class Source>
QELJ_INLINE Stages<Filter, V, lead> prepared(const Source& src, ptrdiff_t w, ptrdiff_t k) {
  using T = typename Filter::Sample;
  constexpr int S = Filter::kStages;
  constexpr ptrdiff_t n = kGroup<V>;
  const ptrdiff_t next = k + S / 2;
  // They depend on 2 * S - 1 samples in front of the first group.
  if constexpr (n >= S) {
    if (k >= n) {
      Stages<Filter, V, lead> stages(w);
      stages.take(next - n, src.template group<V>(next - n));
      stages.finish();
      return stages;
    }
  }
  constexpr bool kAtStart = n >= S;  // and the bands have a group or more
  Stages<Filter, T, lead> one(w);
  one.take(next - S, Alternating<T>{T(), src.template sampleOfA<kAtStart>(next - S)});
  for (ptrdiff_t i = next - S + 1; i < next; ++i) {
    one.finish();
    one.take(i, Alternating<T>{src.template sampleOfB<kAtStart>(i - 1 + lead), src.template sampleOfA<kAtStart>(i)});
  }
  one.finish();
  if constexpr (OneSample<V>) return one;
  else return Stages<Filter, V, lead>(one);
}

// Makes samples `from` to aTo - 1 of A and to bTo - 1 of B, of both a group or more, by V's lanes at once; the last
// group overlaps the one before it. Source and target don't overlap.
template <class Filter, class V, int lead, class Source, class Target>
QELJ_INLINE void ownLiftRange(const Source& src, const Target& dst, ptrdiff_t w, ptrdiff_t from, ptrdiff_t aTo,
                              ptrdiff_t bTo) {
  constexpr int S = Filter::kStages;
  constexpr ptrdiff_t n = kGroup<V>;
  const auto inside = [&](ptrdiff_t i) QELJ_INLINE_LAMBDA { return src.template group<V>(i); };
  const auto anywhere = [&](ptrdiff_t i) QELJ_INLINE_LAMBDA {
    if constexpr (n < S) return Alternating<V>{src.sampleOfB(i - 1 + lead), src.sampleOfA(i)};
    else return i <= src.template lastInside<V>() ? inside(i) : src.template lastGroup<V>(i);
  };

  auto stages = prepared<Filter, V, lead>(src, w, from);
  ptrdiff_t k = from;
  stages.take(k + S / 2, anywhere(k + S / 2));
  const auto leave = [&]() QELJ_INLINE_LAMBDA {
    const auto done = stages.finish();
    dst.template set<V>(k, lead, done.a, lead ? done.late : done.early);
    k += n;
  };
  const auto step = [&](auto groupAt) QELJ_INLINE_LAMBDA {
    const auto next = groupAt(k + n + S / 2);
    leave();
    stages.take(k + S / 2, next);
  };
  const ptrdiff_t both = std::min(aTo, bTo);
  if constexpr (n >= S) {
    const ptrdiff_t last = std::min(src.template lastInside<V>() - S / 2 - n, both - 2 * n);
    while (k + n <= last) {
      dst.fetch(k, 2 * int(n));
      step(inside), step(inside);
    }
  }
  while (k + 2 * n <= both) step(anywhere);
  leave();
  if (k < std::max(aTo, bTo)) {
    k = aTo - n;
    auto last = prepared<Filter, V, lead>(src, w, k);
    last.take(k + S / 2, anywhere(k + S / 2));
    const auto done = last.finish();
    if (aTo - bTo + lead) dst.template set<V>(k, true, done.a, done.late);
    else dst.template set<V>(k, false, done.a, done.early);
  }
}

// --- four stages in two passes -----------------------------------------------------------------------------

// The two stages of a filter of four that stand behind so many others, 0 or 2.
template <class Filter, int before>
struct TwoStages : Unscaled<typename Filter::Sample, 2> {
  static constexpr bool kHasStart = before == 0 && Filter::kHasStart, kHasFinish = before == 2 && Filter::kHasFinish;
  template <int t, class V>
  static V stage(V x, V left, V right) {
    return Filter::template stage<before + t>(x, left, right);
  }
  template <class V>
  static V start(V x) {
    if constexpr (kHasStart) return Filter::start(x);
    else return x;
  }
  template <class V>
  static V finish(V x) {
    if constexpr (kHasFinish) return Filter::finish(x);
    else return x;
  }
};

// ownLiftRange(), by pieces that wait between two passes on the stack, in the first-level cache. All four stages have
// more values in use than there are registers. The line has aCount and bCount samples.
template <class Filter, class V, int lead, Ends ends, class Source, class Target>
QELJ_INLINE void ownLiftPieces(const Source& src, const Target& dst, ptrdiff_t aCount, ptrdiff_t bCount, ptrdiff_t from,
                               ptrdiff_t aTo, ptrdiff_t bTo) {
  using T = typename Filter::Sample;
  constexpr ptrdiff_t n = kGroup<V>, kLength = 512;
  T a[kLength + 2 * n], b[kLength + 2 * n];
  for (ptrdiff_t i = from;; i += kLength) {
    const bool isLast = std::max(aTo, bTo) <= i + kLength;
    if (isLast) i = std::min(i, std::min(aTo, bTo) - n);
    const ptrdiff_t aEnd = isLast ? aTo : i + kLength, bEnd = isLast ? bTo : i + kLength;
    // The second pass depends on one more sample of each band on either side, and begins with the group in front.
    ptrdiff_t first = i >= n ? i - n : i - 1, aMade = aEnd + 1, bMade = bEnd + 1;
    if constexpr (ends == Ends::kMirror) {
      first = std::max<ptrdiff_t>(first, 0);
      aMade = std::min(aMade, aCount), bMade = std::min(bMade, bCount);
    }
    T *const aPiece = offset(a, -first), *const bPiece = offset(b, -first);
    ownLiftRange<TwoStages<Filter, 0>, V, lead>(src, Piece<T, lead, ends>{{aPiece, bPiece, aCount, bCount}}, aCount,
                                                first, aMade, bMade);
    ownLiftRange<TwoStages<Filter, 2>, V, lead>(SplitLine<const T, lead, ends>{aPiece, bPiece, aCount, bCount}, dst,
                                                aCount, i, aEnd, bEnd);
    if (isLast) return;
  }
}

// --- stage by stage ----------------------------------------------------------------------------------------

// ownLiftRange() by pieces that wait in the first-level cache between all stages. Neighbours are unaligned loads then,
// where registers need shuffles, and a stage has all registers for its products. It goes on to the end of the last
// vector, for a product along a row asks for whole ones; short lines would rather not wait for what is stored there
// one by one.
template <class Filter, class V, int lead, Ends ends, class Source, class Target>
QELJ_INLINE void ownLiftStages(const Source& src, const Target& dst, ptrdiff_t aCount, ptrdiff_t bCount, ptrdiff_t from,
                               ptrdiff_t aTo, ptrdiff_t bTo) {
  using T = typename Filter::Sample;
  constexpr int S = Filter::kStages;
  constexpr ptrdiff_t n = kGroup<V>, kLength = 512;
  constexpr bool kWhole = simd::kShuffles;  // elsewhere lines of any length come here
  // Here B[j] stands between A[j] and A[j + 1], A[0] and B[0] being samples i - S / 2 and i - S / 2 + lead of their
  // bands. Each stage lacks one sample more.
  T a[kLength + S + n], b[kLength + S + n];
  for (ptrdiff_t i = from; i < std::max(aTo, bTo); i += kLength) {
    const ptrdiff_t aEnd = std::min(aTo, i + kLength), bEnd = std::min(bTo, i + kLength);
    const ptrdiff_t count = std::max(aEnd, bEnd) - i, first = i - S / 2, end = first + count + S - 1;
    const auto load = [&]<class G>(ptrdiff_t j, G*) QELJ_INLINE_LAMBDA {
      const auto [x, y] = src.template groupFrom<G>(j);
      store(offset(a, j - first), Filter::start(x)), store(offset(b, j - first), y);
    };
    ptrdiff_t begin = first, stop = end;
    if constexpr (ends == Ends::kMirror) {
      begin = std::clamp<ptrdiff_t>(0, first, end);
      stop = std::clamp(std::min(aCount, bCount - lead), begin, end);
    }
    const auto mirrored = [&](ptrdiff_t j) {
      put(a, j - first, Filter::start(src.sampleOfA(j))), put(b, j - first, src.sampleOfB(j + lead));
    };
    ptrdiff_t j = first;
    for (; j < begin; ++j) mirrored(j);
    j = simd::coverByVectors<n>(j, stop, [&](ptrdiff_t g) QELJ_INLINE_LAMBDA { load(g, static_cast<V*>(nullptr)); });
    for (; j < stop; ++j) load(j, static_cast<T*>(nullptr));
    for (; j < end; ++j) mirrored(j);
    put(a, j - first, Filter::start(src.sampleOfA(j)));
    if constexpr (kWhole) store(offset(a, j + 1 - first), V{}), store(offset(b, j - first), V{});

    const auto whole = [](ptrdiff_t length) { return kWhole ? (length + n - 1) / n * n : length; };
    applyStage<Filter, 1>(whole(count + S - 1), b, b, a, a + 1);
    if constexpr (S == 4) {
      applyStage<Filter, 2>(whole(count + 2), a + 1, a + 1, b, b + 1);
      applyStage<Filter, 3>(whole(count + 1), b + 1, b + 1, a + 1, a + 2);
    }
    const T* const doneB = b + S / 2 - lead;
    const auto leave = [&]<class G>(ptrdiff_t k, G*) QELJ_INLINE_LAMBDA {
      const auto at = [k](const T* p) QELJ_INLINE_LAMBDA { return qelj::load<G>(offset(p, k)); };
      const G done = Filter::template stage<S>(at(a + S / 2), at(b + S / 2 - 1), at(b + S / 2));
      dst.template set<G>(i + k, lead, done, Filter::finish(at(doneB)));
    };
    const ptrdiff_t both = std::min(aEnd, bEnd) - i;
    ptrdiff_t k = simd::coverByVectors<n>(0, both, [&](ptrdiff_t g) QELJ_INLINE_LAMBDA {
      dst.fetch(i + g, int(n));
      leave(g, static_cast<V*>(nullptr));
    });
    for (; k < both; ++k) leave(k, static_cast<T*>(nullptr));
    if (k < aEnd - i)
      dst.putA(i + k, Filter::template stage<S>(at(a + S / 2, k), at(b + S / 2 - 1, k), at(b + S / 2, k)));
    if (k < bEnd - i) dst.putB(i + k, Filter::finish(at(doneB, k)));
  }
}

// --- lines of any length -----------------------------------------------------------------------------------

// ownLiftRange() in one pass, two, or one a stage, whichever is faster: pieces cost a start of their own. Where there
// are 32 registers, the stages of 32-bit samples find enough; those of 16 bits take more to move lanes. Without
// instructions that move integers from lane to lane, four stages of them are faster one by one at any length.
template <class Filter, class V, int lead, Ends ends, class Source, class Target>
QELJ_INLINE void ownLiftGroups(const Source& src, const Target& dst, ptrdiff_t aCount, ptrdiff_t bCount, ptrdiff_t from,
                               ptrdiff_t aTo, ptrdiff_t bTo) {
  constexpr ptrdiff_t kLong = 64;
  constexpr bool kEnough = sizeof(Lane<V>) == 4 && simd::kWideBytes == 64;
  constexpr bool kDearToMove = !simd::kShuffles && std::is_integral_v<Lane<V>> && Filter::kStages == 4;
  constexpr bool kShort = sizeof(V) < simd::kBytes;  // short vectors are for short lines
  if constexpr (!kShort && (kDearToMove || Filter::kLongProducts))
    if (kDearToMove || aTo - from >= 2 * kLong)
      return ownLiftStages<Filter, V, lead, ends>(src, dst, aCount, bCount, from, aTo, bTo);
  if constexpr (!kShort && Filter::kStages == 4 && !kEnough)
    if (aTo - from >= kLong) return ownLiftPieces<Filter, V, lead, ends>(src, dst, aCount, bCount, from, aTo, bTo);
  ownLiftRange<Filter, V, lead>(src, dst, aCount, from, aTo, bTo);
}

// The fewest samples a band that vectors serve: behind as many at either end as there are stages, nothing depends on a
// form of the ends.
template <class Filter>
inline constexpr ptrdiff_t kEnd = HasEnds<Filter> ? Filter::kStages : 0;
template <class Filter, class V>
inline constexpr ptrdiff_t kFewest = 2 * kEnd<Filter> + kGroup<V>;

// A line of aCount and bCount samples, at least one of each.
template <class Filter, class V, int lead, Ends ends, class Source, class Target>
QELJ_INLINE void ownLiftLine(const Source& src, const Target& dst, ptrdiff_t aCount, ptrdiff_t bCount) {
  using T = typename Filter::Sample;
  // (A filter with ends has bands of one length.)
  if (!simd::kEnabled || (HasEnds<Filter> ? aCount : std::min(aCount, bCount)) < kFewest<Filter, V>)
    return ownLiftRange<Filter, T, lead>(src, dst, aCount, 0, aCount, bCount);
  if constexpr (simd::kEnabled && HasEnds<Filter>) {
    constexpr ptrdiff_t from = kEnd<Filter>;
    const ptrdiff_t to = aCount - from;
    ownLiftRange<Filter, T, lead>(src, dst, aCount, 0, from, from);
    ownLiftGroups<Filter, V, lead, ends>(src, dst, aCount, bCount, from, to, to);
    ownLiftRange<Filter, T, lead>(src, dst, aCount, to, aCount, aCount);
  } else if constexpr (simd::kEnabled) {
    ownLiftGroups<Filter, V, lead, ends>(src, dst, aCount, bCount, 0, aCount, bCount);
  }
}

// Between the alternating samples of a line and its bands, of one sample or more each. (Functions with arguments, not
// closures: a short line takes less time than to find what those refer to.)
template <class Filter, class V, int lead, Ends ends, class T>
[[gnu::noinline]] void ownForwardLineBy(const T* src, T* low, ptrdiff_t lows, T* high, ptrdiff_t highs) {
  ownLiftLine<Filter, V, lead, ends>(AlternatingLine<const T, lead, ends>{src, lows + highs},
                                     SplitLine<T, lead, ends>{low, high, lows, highs}, lows, highs);
}
template <class Filter, class V, int lead, Ends ends, class T>
[[gnu::noinline]] void ownInverseLineBy(const T* low, ptrdiff_t lows, const T* high, ptrdiff_t highs, T* dst) {
  ownLiftLine<Filter, V, lead, ends>(SplitLine<const T, lead, ends>{high, low, highs, lows},
                                     AlternatingLine<T, lead, ends>{dst, lows + highs}, highs, lows);
}

// What choose(V()) gives for the widest vectors that a line has room for: for wide ones, between special ends, for two
// of them, as it takes long to begin a last one that overlaps the first; of 16-bit samples, for short ones where they are
// too few for the others. Each has functions of its own, without what wider vectors need at the start of a line.
template <class Filter, class Choose>
QELJ_INLINE auto chooseVector(ptrdiff_t lows, ptrdiff_t highs, Choose choose) {
  using T = typename Filter::Sample;
  using W = simd::Wide<T>;
  using V = simd::Vec<T>;
  using H = simd::Vec<T, 16>;
  const ptrdiff_t count = std::min(lows, highs);
  if constexpr (sizeof(W) > sizeof(V))
    if (count >= kFewest<Filter, W> + (HasEnds<Filter> ? kGroup<W> : 0)) return choose(W());
  if constexpr (sizeof(H) < sizeof(V) && sizeof(T) == 2)
    if (count >= kFewest<Filter, H> && count < kFewest<Filter, V>) return choose(H());
  return choose(V());
}
// The function for lines of such bands. q = 1 where the first sample is of the high band.
template <class Filter, Ends ends>
QELJ_INLINE auto forwardLineFor(ptrdiff_t lows, ptrdiff_t highs, int q) {
  return chooseVector<Filter>(lows, highs, [q]<class V>(V) QELJ_INLINE_LAMBDA {
    return q ? ownForwardLineBy<Filter, V, 1, ends, Lane<V>> : ownForwardLineBy<Filter, V, 0, ends, Lane<V>>;
  });
}
template <class Filter, Ends ends>
QELJ_INLINE auto inverseLineFor(ptrdiff_t lows, ptrdiff_t highs, int q) {
  return chooseVector<Filter>(lows, highs, [q]<class V>(V) QELJ_INLINE_LAMBDA {
    return q ? ownInverseLineBy<Filter, V, 0, ends, Lane<V>> : ownInverseLineBy<Filter, V, 1, ends, Lane<V>>;
  });
}

}  // namespace qelj::jpeg2000::lifting

#endif
