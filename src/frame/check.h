// Argument checks that read as data. A front begins with one expression,
//   if (auto s = check(nonNull(src), step(srcStep), nonNull(dst), step(dstStep), area(size)); s) return s;
// whose first failure, from left to right, is the result. The checks have no side effect, so it doesn't
// matter that all of them are evaluated; compiled, they are plain compares.
#ifndef QELJ_FRAME_CHECK_H
#define QELJ_FRAME_CHECK_H

#include "qelj.h"

namespace qelj {

constexpr QelStatus require(bool condition, QelStatus failure) { return condition ? qelStatusOk : failure; }

template <class... Status>
constexpr QelStatus check(Status... results) {
  QelStatus first = qelStatusOk;
  (void)((first = results) || ...);
  return first;
}

template <class... T>
constexpr QelStatus nonNull(const T*... p) {
  return require(((p != nullptr) && ...), qelStatusNullPointer);
}

// A plane array: the array pointer, then its `count` elements.
template <class T>
constexpr QelStatus planes(T* const* array, int count) {
  if (!array) return qelStatusNullPointer;
  for (int i = 0; i < count; ++i)
    if (!array[i]) return qelStatusNullPointer;
  return qelStatusOk;
}

constexpr QelStatus step(int32_t bytes) { return require(bytes >= 1, qelStatusBadStep); }
constexpr QelStatus length(int32_t count) { return require(count >= 1, qelStatusBadSize); }
constexpr QelStatus area(QelSize size, int32_t minWidth = 1, int32_t minHeight = 1) {
  return require(size.width >= minWidth && size.height >= minHeight, qelStatusBadSize);
}

}  // namespace qelj

#endif
