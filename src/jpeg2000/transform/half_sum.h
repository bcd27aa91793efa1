// The one sum of both reversible transforms.
#ifndef QELJ_JPEG2000_TRANSFORM_HALF_SUM_H
#define QELJ_JPEG2000_TRANSFORM_HALF_SUM_H

#include "frame/lanes.h"

namespace qelj::jpeg2000 {

// (a + b) >> 1 of signed 16-bit lanes, whose sum does not overflow.
template <class V>
inline V halfSum(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int16_t>);
  if constexpr (OneSample<V>) return V((a + b) >> 1);
  else return addWrap(a & b, (a ^ b) >> 1);
}

}  // namespace qelj::jpeg2000

#endif
