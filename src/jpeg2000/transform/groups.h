// Rows that are changed in place, by vectors.
#ifndef QELJ_JPEG2000_TRANSFORM_GROUPS_H
#define QELJ_JPEG2000_TRANSFORM_GROUPS_H

#include "frame/lanes.h"

namespace qelj::jpeg2000 {

// Where a group of samples lies in memory: V's lanes, or the first of them, others being 0.
template <class V>
struct Whole {
  QELJ_INLINE V load(const Lane<V>* p) const { return qelj::load<V>(p); }
  QELJ_INLINE void store(Lane<V>* p, V v) const { qelj::store(p, v); }
};
template <class V>
struct First {
  int count;
  QELJ_INLINE V load(const Lane<V>* p) const { return simd::loadFirst<V>(p, count); }
  QELJ_INLINE void store(Lane<V>* p, V v) const { simd::storeFirst(p, v, count); }
};

// Calls group(i, Whole or First) for groups that together are the samples 0 .. count - 1. No lane of a group may
// depend on another. A kernel that changes samples in place can't have a last vector that overlaps the one before.
// With masks it has one of the first lanes, of which there are as few as can be: what is stored by a mask can be
// loaded again only when it has left for the cache, and rows of a small tile are.
template <class T, class Group>
QELJ_INLINE void coverByGroups(ptrdiff_t count, Group group) {
  ptrdiff_t i = 0;
  [[maybe_unused]] const auto groups = [&]<class V>(Whole<V> whole) QELJ_INLINE_LAMBDA {
    constexpr auto kStep = ptrdiff_t(sizeof(V) / sizeof(T));
    for (; i + kStep <= count; i += kStep) group(i, whole);
  };
  if constexpr (simd::kMasks) {
    const auto oneGroup = [&]<class V>(Whole<V> whole) QELJ_INLINE_LAMBDA {
      if (i + simd::kLanes<V> <= count) group(i, whole), i += simd::kLanes<V>;
    };
    using H = simd::Vec<T, 16>;
    groups(Whole<simd::Wide<T>>());
    oneGroup(Whole<simd::Vec<T>>());
    oneGroup(Whole<H>());
    if (i < count) group(i, First<H>{int(count - i)});
  } else {
    if constexpr (simd::kEnabled) groups(Whole<simd::Vec<T>>());
    groups(Whole<T>());
  }
}

}  // namespace qelj::jpeg2000

#endif
