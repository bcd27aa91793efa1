// Vectors over rows: their ends, and the loops that cover them.
#ifndef QELJ_FRAME_SIMD_LOOPS_H
#define QELJ_FRAME_SIMD_LOOPS_H

#include "frame/simd/plain.h"

namespace qelj::simd {

// Copies `count` bytes, 0 to kAll, with zeros behind them up to kAll; and without them. Blocks of 16 bytes: wider vectors
// could not be loaded from what was stored by blocks a moment ago.
template <int kAll>
QELJ_INLINE void copyPadded(uint8_t* to, const uint8_t* from, int count) {
  store(to, count >= 16 ? load<U8x16>(from) : loadFirst<U8x16>(from, count > 0 ? count : 0));
  if constexpr (kAll > 16) copyPadded<kAll - 16>(to + 16, from + 16, count - 16);
}
template <int kAll>
QELJ_INLINE void copyFirst(uint8_t* to, const uint8_t* from, int count) {
  if (count >= 16) store(to, load<U8x16>(from));
  else if (count > 0) storeFirst(to, load<U8x16>(from), count);
  if constexpr (kAll > 16) copyFirst<kAll - 16>(to + 16, from + 16, count - 16);
}

// --- loops -------------------------------------------------------------------------------------------------

// Calls group(x) for vectors of kGroup elements that together cover first..end-1; the last one overlaps the one
// before it. Returns the first element that is not done: `end`, or `first` when there are too few for a vector. For
// kernels whose result doesn't depend on what they write.
template <int kGroup = kBytes, class Group>
QELJ_INLINE ptrdiff_t coverByVectors(ptrdiff_t first, ptrdiff_t end, Group&& group) {
  if (!kEnabled || end - first < kGroup) return first;
  ptrdiff_t x = first;
  for (; x <= end - kGroup; x += kGroup) group(x);
  if (x < end) group(end - kGroup);
  return end;
}

// The same for a range of at least one vector, by one piece of code: for long groups and short ranges, which a piece of
// its own for the last vector makes slower.
template <int kGroup, class Group>
QELJ_INLINE void coverInOneLoop(ptrdiff_t first, ptrdiff_t end, Group&& group) {
  const ptrdiff_t last = end - kGroup;
  for (ptrdiff_t x = first;; x = x + kGroup < last ? x + kGroup : last) {
    group(x);
    if (x == last) return;
  }
}

// coverByVectors with the widest vectors of bytes that fit: group(V(), x).
template <class Group>
QELJ_INLINE ptrdiff_t coverByWidest(ptrdiff_t first, ptrdiff_t end, Group&& group) {
  const auto cover = [&]<class V>(V) QELJ_INLINE_LAMBDA {
    return coverByVectors<int(sizeof(V))>(first, end, [&](ptrdiff_t x) QELJ_INLINE_LAMBDA { group(V(), x); });
  };
  const ptrdiff_t x = cover(Wide<uint8_t>());
  return kWideBytes == kBytes || x > first ? x : cover(U8());
}

}  // namespace qelj::simd

#endif
