// What the 8-bit forward, inverse and reduced transforms share: their constants, the arithmetic of a column
// pass, and how a row pass takes its rows and weights as vectors.
//
// A column pass is a chain of high multiplications by tangents in 16 bits, on all eight columns at once. It
// leaves row k too small by a factor c(k), with c(0) = 1 and c(i) = sqrt(2) cos(i pi/16) = c(8 - i). The row
// pass, in 32-bit sums of products, makes up for it by a set of weights of its own for each row.
#ifndef QELJ_JPEG_DCT_TRANSFORM_H
#define QELJ_JPEG_DCT_TRANSFORM_H

#include <array>

#include "frame/arith.h"
#include "frame/simd.h"

namespace qelj::dct {

// --- constants
// -----------------------------------------------------------------------------------------------

// High multipliers. Those above 1/2 stand without their 1, which is added behind the multiplication.
inline constexpr int16_t kTan1 = 13036;        // tan(pi/16)
inline constexpr int16_t kTan2 = 27146;        // tan(2 pi/16)
inline constexpr int16_t kTan3Less1 = -21746;  // tan(3 pi/16) - 1
inline constexpr int16_t kCos4Less1 = -19195;  // cos(4 pi/16) - 1
inline constexpr int16_t kHalfCos4 = 23170;    // cos(4 pi/16) / 2

// c(k) c(i) in 14 fraction bits, by k as the row's set and i.
inline constexpr int16_t kWeights[4][8] = {
    {16384, 22725, 21407, 19266, 16384, 12873, 8867, 4520},    // rows 0, 4
    {22725, 31521, 29692, 26722, 22725, 17855, 12299, 6270},   // rows 1, 7
    {21407, 29692, 27969, 25172, 21407, 16819, 11585, 5906},   // rows 2, 6
    {19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315}};  // rows 3, 5
inline constexpr int kWeightSet[8] = {0, 1, 2, 3, 0, 3, 2, 1};

// The weight between sample n of a row (or its mirror 7 - n, with the opposite sign for odd u) and
// coefficient u of row k: cos((2n + 1) u pi/16), by the symmetries of the cosine.
constexpr int16_t weight(int k, int n, int u) {
  const int turn = (2 * n + 1) * u % 32, half = turn > 16 ? 32 - turn : turn;
  const auto& w = kWeights[kWeightSet[k]];
  return half > 8 ? int16_t(-w[16 - half]) : w[half];
}

// --- column arithmetic
// -----------------------------------------------------------------------------------------

// Signed 16-bit arithmetic on one sample (V is int16_t) or a vector of them: + and - saturate, << drops what
// leaves at the top.
template <class V>
struct Sat16 {
  V v;
};
template <class V>
inline Sat16<V> operator+(Sat16<V> a, Sat16<V> b) {
  if constexpr (std::is_integral_v<V>)
    return {qelj::addSat(a.v, b.v)};
  else
    return {simd::addSat(a.v, b.v)};
}
template <class V>
inline Sat16<V> operator-(Sat16<V> a, Sat16<V> b) {
  if constexpr (std::is_integral_v<V>)
    return {qelj::subSat(a.v, b.v)};
  else
    return {simd::subSat(a.v, b.v)};
}
template <class V>
inline Sat16<V> operator<<(Sat16<V> a, int bits) {
  if constexpr (std::is_integral_v<V>)
    return {qelj::shlWrap(a.v, bits)};
  else
    return {simd::shlWrap(a.v, bits)};
}
template <class V>
inline Sat16<V> operator>>(Sat16<V> a, int bits) {
  return {V(a.v >> bits)};
}
// The lowest bit set: half a unit, on average, for the fraction that a high multiplication dropped.
template <class V>
inline Sat16<V> oddOne(Sat16<V> a) {
  return {V(a.v | int16_t(1))};
}
// The high half of the product.
template <class V>
inline Sat16<V> hi(Sat16<V> a, int16_t factor) {
  if constexpr (std::is_integral_v<V>)
    return {int16_t(int32_t(a.v) * factor >> 16)};
  else
    return {simd::mulHi(a.v, simd::splat<V>(factor))};
}

// A row that is known to be zero: what it takes part in is left out when the kernel is compiled.
struct Zero {};
template <class V>
inline Sat16<V> operator+(Sat16<V> a, Zero) {
  return a;
}
template <class V>
inline Sat16<V> operator+(Zero, Sat16<V> b) {
  return b;
}
template <class V>
inline Sat16<V> operator-(Sat16<V> a, Zero) {
  return a;
}
template <class V>
inline Sat16<V> operator-(Zero, Sat16<V> b) {
  return Sat16<V>{} - b;
}
inline Zero operator+(Zero, Zero) { return {}; }
inline Zero operator-(Zero, Zero) { return {}; }
inline Zero hi(Zero, int16_t) { return {}; }

// --- rows as vectors
// ---------------------------------------------------------------------------------------------

using Row = simd::Vec<int16_t, 16>;  // one row of a block
using Rows = simd::I16;              // one row or two, as wide as the image's vectors are
inline constexpr int kRows = simd::kLanes<Rows> / 8;

// The order in which row passes take the rows, so that two rows of one vector share their weights.
inline constexpr int kRowOrder[8] = {0, 4, 1, 7, 2, 6, 3, 5};

// Between one or two rows and the vector that holds them; where it holds one, the second is the first.
template <class V = Rows>
inline V joinRows(Row a, [[maybe_unused]] Row b) {
  if constexpr (sizeof(V) == sizeof(Row))
    return a;
  else
    return simd::join(a, b);
}
template <class V>
inline Row firstRow(V rows) {
  if constexpr (sizeof(V) == sizeof(Row))
    return rows;
  else
    return simd::lower(rows);
}
template <class V>
inline Row secondRow(V rows) {
  if constexpr (sizeof(V) == sizeof(Row))
    return rows;
  else
    return simd::upper(rows);
}
// Rows a and b of a block or of a table.
inline Rows loadRows(const void* block, int a, int b) {
  const auto* bytes = static_cast<const char*>(block);
  return joinRows(simd::load<Row>(bytes + 16 * a), simd::load<Row>(bytes + 16 * b));
}

}  // namespace qelj::dct

#endif
