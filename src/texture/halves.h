// Operations on vectors of 32 bytes, under the names that the frame has for them, by halves where the processor has but
// 16: compilers keep such vectors in memory, and take them apart lane by lane for what isn't plain arithmetic.
#ifndef QELJ_TEXTURE_HALVES_H
#define QELJ_TEXTURE_HALVES_H

#include "frame/arith.h"
#include "frame/lanes.h"

namespace qelj::texture::halves {

template <class V>
inline constexpr bool kSplit = int(sizeof(V)) > simd::kWideBytes;

template <class H>
struct Both {
  H low, high;
};
template <class V>
using Half = simd::Vec<Lane<V>, int(sizeof(V)) / 2>;
template <class V>
QELJ_INLINE Half<V> lower(V v) {
  if constexpr (kSplit<V>) return bitCast<Both<Half<V>>>(v).low;
  else return simd::lower(v);
}
template <class V>
QELJ_INLINE Half<V> upper(V v) {
  if constexpr (kSplit<V>) return bitCast<Both<Half<V>>>(v).high;
  else return simd::upper(v);
}
template <class H>
QELJ_INLINE auto join(H low, H high) {
  using V = simd::Vec<Lane<H>, 2 * int(sizeof(H))>;
  if constexpr (kSplit<V>) return bitCast<V>(Both<H>{low, high});
  else return simd::join(low, high);
}

template <class Op, class... V>
QELJ_INLINE auto byHalves(Op op, V... v) {
  if constexpr ((kSplit<V> && ...)) return join(op(lower(v)...), op(upper(v)...));
  else return op(v...);
}
#define QELJ_BY_HALVES(NAME, OPERATION)                               \
  template <class... V>                                               \
  QELJ_INLINE auto NAME(V... v) {                                     \
    return byHalves([](auto... h) { return OPERATION(h...); }, v...); \
  }
QELJ_BY_HALVES(min, qelj::min)
QELJ_BY_HALVES(max, qelj::max)
QELJ_BY_HALVES(mulHi, qelj::mulHi)
QELJ_BY_HALVES(roundToInt, qelj::roundToInt)
QELJ_BY_HALVES(toFloat, convert<float>)
QELJ_BY_HALVES(mulAddPairs, simd::mulAddPairs)
QELJ_BY_HALVES(shuffleBytes, simd::shuffleBytes)
QELJ_BY_HALVES(unpackLow, simd::unpackLow)
QELJ_BY_HALVES(unpackHigh, simd::unpackHigh)
#undef QELJ_BY_HALVES
template <int A, int B, int C, int D, class V>
QELJ_INLINE V shuffle4(V v) {
  return byHalves([](auto h) { return simd::shuffle4<A, B, C, D>(h); }, v);
}
template <class V>
QELJ_INLINE V lesser(V a, V b) {
  return byHalves([](auto x, auto y) { return x < y ? x : y; }, a, b);
}
template <class V>
QELJ_INLINE V greater(V a, V b) {
  return byHalves([](auto x, auto y) { return x > y ? x : y; }, a, b);
}
template <class V>
QELJ_INLINE With<int32_t, V> isAboveZero(V a) {
  return byHalves([](auto x) { return as<int32_t>(x > decltype(x){}); }, a);
}
template <class V>
QELJ_INLINE bool isZero(V v) {
  if constexpr (kSplit<V>) return simd::isZero(lower(v) | upper(v));
  else return simd::isZero(v);
}
// A 16-byte block twice.
template <class H>
QELJ_INLINE auto twice(H block) {
  return join(block, block);
}
// To lanes of 32 bits.
QELJ_INLINE simd::I32x8 widen(simd::I16x8 a) {
  if constexpr (kSplit<simd::I32x8>)
    return join(as<int32_t>(simd::unpackLow(a, a)) >> 16, as<int32_t>(simd::unpackHigh(a, a)) >> 16);
  else return convert<int32_t>(a);
}
// The lanes of a, then those of b, saturated.
QELJ_INLINE simd::I16x16 packInOrder(simd::I32x8 a, simd::I32x8 b) {
  if constexpr (kSplit<simd::I32x8>) return join(simd::packI16(lower(a), upper(a)), simd::packI16(lower(b), upper(b)));
  else return simd::orderPacked(simd::packI16(a, b));
}

}  // namespace qelj::texture::halves

#endif
