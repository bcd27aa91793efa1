// Constants in fixed point: q14(x) is the integer nearest to x * 2^14.
#ifndef QELJ_FRAME_FIXED_POINT_H
#define QELJ_FRAME_FIXED_POINT_H

#include <cstdint>

namespace qelj {

template <int bits>
constexpr int32_t fixedPoint(double x) {
  return int32_t(x * (int64_t(1) << bits) + (x < 0 ? -0.5 : 0.5));
}
constexpr int32_t q13(double x) { return fixedPoint<13>(x); }
constexpr int32_t q14(double x) { return fixedPoint<14>(x); }
constexpr int32_t q15(double x) { return fixedPoint<15>(x); }
constexpr int32_t q16(double x) { return fixedPoint<16>(x); }

}  // namespace qelj

#endif
