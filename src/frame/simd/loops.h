// Vectors over rows: their ends, and the loops that cover them.
#ifndef QELJ_FRAME_SIMD_LOOPS_H
#define QELJ_FRAME_SIMD_LOOPS_H

#include "frame/simd/plain.h"

namespace qelj::simd {

// Copies `count` bytes, 0 to kAll, with zeros behind them up to kAll; and without them. kAll is a multiple of kWideBytes.
template <int kAll>
QELJ_INLINE void copyPadded(uint8_t* to, const uint8_t* from, int count) {
  using V = Wide<uint8_t>;
  unroll<kAll / kWideBytes>([=](auto i) QELJ_INLINE_LAMBDA {
    const int left = count - i * kWideBytes;
    const V v =
        left >= kWideBytes ? load<V>(from + i * kWideBytes) : loadFirst<V>(from + i * kWideBytes, left > 0 ? left : 0);
    store(to + i * kWideBytes, v);
  });
}
template <int kAll>
QELJ_INLINE void copyFirst(uint8_t* to, const uint8_t* from, int count) {
  using V = Wide<uint8_t>;
  unroll<kAll / kWideBytes>([=](auto i) QELJ_INLINE_LAMBDA {
    const int left = count - i * kWideBytes;
    if (left >= kWideBytes) store(to + i * kWideBytes, load<V>(from + i * kWideBytes));
    else if (left > 0) storeFirst(to + i * kWideBytes, load<V>(from + i * kWideBytes), left);
  });
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

// The same with the widest vectors of bytes that fit: group(V(), x).
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
