// What the 8-bit forward, inverse and reduced transforms share: their constants, the arithmetic of a column
// pass, and how a row pass takes its rows and weights as vectors.
//
// A column pass is a chain of high multiplications by tangents in 16 bits, on all eight columns at once. It leaves row
// k too small by a factor c(k), with c(0) = 1 and c(i) = sqrt(2) cos(i pi/16) = c(8 - i). The row pass, in 32-bit sums
// of products, makes up for it by a set of weights of its own for each row.
#ifndef QELJ_JPEG_DCT_TRANSFORM_H
#define QELJ_JPEG_DCT_TRANSFORM_H

#include <array>

#include "frame/arith.h"
#include "frame/fixed_point.h"
#include "frame/lanes.h"
#include "jpeg/dct/cosines.h"

namespace qelj::jpeg::dct {

// --- constants ---------------------------------------------------------------------------------------------

// A constant as a whole vector in memory. Its value stays out of this header on purpose: GCC builds a vector of a known
// value in registers, with three instructions each time, which is much for a function of one block.
template <class T>
struct alignas(32) LaneConstant {
  T lane[32 / sizeof(T)];
};
template <class V>
inline V lanes(const LaneConstant<Lane<V>>& constant) {  // one sample or a vector
  return load<V>(constant.lane);
}

#pragma GCC visibility push(hidden)
// High multipliers. Those above 1/2 stand without their 1, which is added behind the multiplication.
extern const LaneConstant<int16_t> kTan1;       // tan(pi/16)
extern const LaneConstant<int16_t> kTan2;       // tan(2 pi/16)
extern const LaneConstant<int16_t> kTan3Less1;  // tan(3 pi/16) - 1
extern const LaneConstant<int16_t> kCos4Less1;  // cos(4 pi/16) - 1
extern const LaneConstant<int16_t> kHalfCos4;   // cos(4 pi/16) / 2
extern const LaneConstant<int16_t> kTan1331;    // in each four lanes: kTan1, kTan3Less1, kTan3Less1, kTan1

// By halves, for two rows a vector; a half without one is multiplied by 0.
extern const LaneConstant<int16_t> kNoneTan1, kNoneTan3Less1, kTan2Tan1, kTan2Tan3Less1;

// By which pairs of bytes make 8 times their sum in the lower half, and 8 or 16 times their difference in the upper one.
extern const LaneConstant<int8_t> kSum8Difference8, kSum8Difference16;

extern const LaneConstant<int16_t> kMiddleLanes;  // in each four lanes: all bits of the middle two
extern const LaneConstant<int16_t> kOddOne;       // the lowest bit
extern const LaneConstant<int16_t> kHalfOf16;     // 8, to round a division by 16
extern const LaneConstant<int16_t> kOneOf16;      // 1/16 in 15 fraction bits
extern const LaneConstant<int16_t> kSecondBit;    // 0x4000
extern const LaneConstant<int16_t> kTopBit;       // 0x8000
extern const LaneConstant<uint8_t> kTopBits;
#pragma GCC visibility pop

// c(k) c(i) in 14 fraction bits, by k as the row's set and i.
struct RowWeights {
  int16_t of[4][8];
};
inline constexpr RowWeights kWeights = [] {
  RowWeights weights{};
  for (int k = 0; k < 4; ++k)
    for (int i = 0; i < 8; ++i) weights.of[k][i] = int16_t(q14(scaledCosine(k) * scaledCosine(i)));
  return weights;
}();
static_assert(kWeights.of[0][0] == 16384 && kWeights.of[1][1] == 31521 && kWeights.of[2][7] == 5906);

// The weight between sample n of a row (or its mirror 7 - n, with the opposite sign for odd u) and coefficient u of
// row k: c(k) c((2n + 1) u), by the symmetries of the cosine.
constexpr int16_t weight(int k, int n, int u) {
  const int turn = (2 * n + 1) * u % 32, half = turn > 16 ? 32 - turn : turn;
  const auto& w = kWeights.of[kWeightSet[k]];
  return half > 8 ? int16_t(-w[16 - half]) : w[half];
}

// --- column arithmetic -------------------------------------------------------------------------------------

// In 16 bits that saturate, on one sample or a vector of them.

// The lowest bit set: half a unit, on average, for the fraction that a high multiplication dropped.
template <class V>
inline Saturating<V> oddOne(Saturating<V> a) {
  return {V(a.v | lanes<V>(kOddOne))};
}
// The high half of the product.
template <class V>
inline Saturating<V> hi(Saturating<V> a, const LaneConstant<int16_t>& factor) {
  return {mulHi(a.v, lanes<V>(factor))};
}

// A row that is known to be zero: what it takes part in is left out when the kernel is compiled.
struct Zero {};
template <class V>
inline Saturating<V> operator+(Saturating<V> a, Zero) {
  return a;
}
template <class V>
inline Saturating<V> operator+(Zero, Saturating<V> b) {
  return b;
}
template <class V>
inline Saturating<V> operator-(Saturating<V> a, Zero) {
  return a;
}
template <class V>
inline Saturating<V> operator-(Zero, Saturating<V> b) {
  return Saturating<V>{} - b;
}
inline Zero operator+(Zero, Zero) { return {}; }
inline Zero operator-(Zero, Zero) { return {}; }
inline Zero hi(Zero, const LaneConstant<int16_t>&) { return {}; }

// --- rows as vectors ---------------------------------------------------------------------------------------

using BlockRow = simd::Vec<int16_t, 16>;  // one row of a block
using WideRows = simd::I16;               // one row or two, as wide as the image's vectors are
inline constexpr int kRows = simd::kLanes<WideRows> / 8;

// The vector of row k, or of rows k and k + 1: of a block or table in memory, and of rows one by one, to and fro.
inline WideRows loadRows(const void* block, int k) { return load<WideRows>(static_cast<const char*>(block) + 16 * k); }
template <class V = WideRows>
inline V joinRows(const Saturating<BlockRow>* row) {
  if constexpr (sizeof(V) == sizeof(BlockRow)) return row[0].v;
  else return simd::join(row[0].v, row[1].v);
}
template <class V>
inline void splitRows(V rows, Saturating<BlockRow>* row) {
  if constexpr (sizeof(V) == sizeof(BlockRow)) {
    row[0].v = rows;
  } else {
    row[0].v = simd::lower(rows);
    row[1].v = simd::upper(rows);
  }
}

}  // namespace qelj::jpeg::dct

#endif
