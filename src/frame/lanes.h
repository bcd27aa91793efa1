// What a kernel's arithmetic is written with, under the same names for one sample and for a vector of them, so that it
// is written once, as a template of V, wherever both forms are the same. (What only vectors have is in simd::.)
//
//   addWrap subWrap mulWrap negWrap absWrap            integers, in the width of a lane
//   shlWrap shr                                        shifts, likewise
//   addSat subSat                                      saturating to the range of a lane
//   mulHi mulHiRound                                   of 16-bit lanes: the product's high half; (a b + 2^14) >> 15
//   average min max select                             select(condition, a, b); a vector's conditions are masks
//   roundToInt truncateToInt convert<T> as<T>          to nearest, cut, by value, by bits
//   all<V>(x)                                          every lane x
//   Wrapping<V> Saturating<V>                          numbers whose operators are these
#ifndef QELJ_FRAME_LANES_H
#define QELJ_FRAME_LANES_H

#include <bit>

#include "frame/arith.h"
#include "frame/simd.h"

namespace qelj {

using simd::Vector;

template <class V>
concept OneSample = std::is_arithmetic_v<V>;

namespace detail {
template <class V>
struct LaneOf {
  using Type = V;
};
template <Vector V>
struct LaneOf<V> {
  using Type = simd::Lane<V>;
};
template <class T, class V>
struct WithOf {
  using Type = T;
};
template <class T, Vector V>
struct WithOf<T, V> {
  using Type = simd::With<T, V>;
};
}  // namespace detail
template <class V>
using Lane = typename detail::LaneOf<V>::Type;
// The like of V with lanes of type T, of the same width.
template <class T, class V>
using With = typename detail::WithOf<T, V>::Type;

using simd::absWrap, simd::addSat, simd::addWrap, simd::all, simd::as, simd::average, simd::convert, simd::max,
    simd::min, simd::mulHi, simd::mulHiRound, simd::mulWrap, simd::negWrap, simd::roundToInt, simd::select,
    simd::shlWrap, simd::subSat, simd::subWrap, simd::truncateToInt;

template <class V>
constexpr V shr(V a, int bits) {
  return V(a >> Lane<V>(bits));
}
template <OneSample V>
constexpr V all(V x) {
  return x;
}
template <class T, OneSample V>
constexpr T as(V x) {
  return bitCast<T>(x);
}
template <class T, OneSample V>
constexpr T convert(V x) {
  return T(x);
}
template <OneSample V>
constexpr V absWrap(V x) {
  return x < 0 ? negWrap(x) : x;
}
template <OneSample V>
constexpr V min(V a, V b) {
  return b < a ? b : a;
}
template <OneSample V>
constexpr V max(V a, V b) {
  return a < b ? b : a;
}
template <OneSample V>
constexpr V select(bool condition, V a, V b) {
  return condition ? a : b;
}
template <OneSample V>
constexpr V mulHi(V a, std::type_identity_t<V> b) {
  static_assert(sizeof(V) == 2);
  return V(std::conditional_t<std::is_signed_v<V>, int32_t, uint32_t>(a) * b >> 16);
}
constexpr int16_t mulHiRound(int16_t a, int16_t b) { return int16_t((a * b + 0x4000) >> 15); }
template <OneSample V>
constexpr V average(V a, V b) {
  static_assert(std::is_unsigned_v<V> && sizeof(V) <= 2);
  return V((a + b + 1) >> 1);
}

// Sums and differences wrap; those of floats round.
template <class V>
struct Wrapping {
  V v;
  friend Wrapping operator+(Wrapping a, Wrapping b) {
    if constexpr (std::is_floating_point_v<Lane<V>>) return {a.v + b.v};
    else return {addWrap(a.v, b.v)};
  }
  friend Wrapping operator-(Wrapping a, Wrapping b) {
    if constexpr (std::is_floating_point_v<Lane<V>>) return {a.v - b.v};
    else return {subWrap(a.v, b.v)};
  }
  friend Wrapping operator-(Wrapping a) {
    if constexpr (std::is_floating_point_v<Lane<V>>) return {-a.v};
    else return {negWrap(a.v)};
  }
};

// Sums and differences saturate; << drops what leaves at the top.
template <class V>
struct Saturating {
  V v;
  friend Saturating operator+(Saturating a, Saturating b) { return {addSat(a.v, b.v)}; }
  friend Saturating operator-(Saturating a, Saturating b) { return {subSat(a.v, b.v)}; }
  friend Saturating operator<<(Saturating a, int bits) { return {shlWrap(a.v, bits)}; }
  friend Saturating operator>>(Saturating a, int bits) { return {shr(a.v, bits)}; }
};

}  // namespace qelj

#endif
