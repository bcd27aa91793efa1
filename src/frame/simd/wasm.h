// The forms of WebAssembly: its vectors of 16 bytes. The list is that of plain.h, which says what each operation is; what
// is missing here compilers make of the definition.
#ifndef QELJ_FRAME_SIMD_WASM_H
#define QELJ_FRAME_SIMD_WASM_H

#include <wasm_simd128.h>

#include "frame/simd/vector.h"

namespace qelj::simd {

#define QELJ_LANES2(NAME, T, INTRINSIC) \
  inline Vec<T, 16> NAME(Vec<T, 16> a, Vec<T, 16> b) { return (Vec<T, 16>)INTRINSIC((v128_t)a, (v128_t)b); }
#define QELJ_LANES1(NAME, T, INTRINSIC) \
  inline Vec<T, 16> NAME(Vec<T, 16> a) { return (Vec<T, 16>)INTRINSIC((v128_t)a); }

// --- conversions -------------------------------------------------------------------------------------------

template <class V, class From>
  requires(sizeof(V) == 16 && sizeof(Lane<V>) == 2 * sizeof(From) && std::is_integral_v<From> && sizeof(From) <= 2)
inline V loadAs(const void* p) {
  if constexpr (std::is_same_v<From, uint8_t>) return (V)wasm_u16x8_load8x8(p);
  else if constexpr (std::is_same_v<From, int8_t>) return (V)wasm_i16x8_load8x8(p);
  else if constexpr (std::is_same_v<From, uint16_t>) return (V)wasm_u32x4_load16x4(p);
  else return (V)wasm_i32x4_load16x4(p);
}

// --- lane-wise operations ----------------------------------------------------------------------------------

template <Vector M, Vector V>
  requires(sizeof(V) == 16)
inline V select(M mask, V a, V b) {
  static_assert(sizeof(M) == sizeof(V));
  return (V)wasm_v128_bitselect((v128_t)a, (v128_t)b, (v128_t)mask);
}

QELJ_LANES2(addSat, int16_t, wasm_i16x8_add_sat)
QELJ_LANES2(addSat, uint16_t, wasm_u16x8_add_sat)
QELJ_LANES2(addSat, int8_t, wasm_i8x16_add_sat)
QELJ_LANES2(addSat, uint8_t, wasm_u8x16_add_sat)
QELJ_LANES2(subSat, int16_t, wasm_i16x8_sub_sat)
QELJ_LANES2(subSat, uint16_t, wasm_u16x8_sub_sat)
QELJ_LANES2(subSat, int8_t, wasm_i8x16_sub_sat)
QELJ_LANES2(subSat, uint8_t, wasm_u8x16_sub_sat)

// Of the 32-bit products, the upper halves.
inline I16x8 mulHi(I16x8 a, I16x8 b) {
  const v128_t low = wasm_i32x4_extmul_low_i16x8((v128_t)a, (v128_t)b);
  const v128_t high = wasm_i32x4_extmul_high_i16x8((v128_t)a, (v128_t)b);
  return (I16x8)wasm_i16x8_shuffle(low, high, 1, 3, 5, 7, 9, 11, 13, 15);
}
inline U16x8 mulHi(U16x8 a, U16x8 b) {
  const v128_t low = wasm_u32x4_extmul_low_u16x8((v128_t)a, (v128_t)b);
  const v128_t high = wasm_u32x4_extmul_high_u16x8((v128_t)a, (v128_t)b);
  return (U16x8)wasm_i16x8_shuffle(low, high, 1, 3, 5, 7, 9, 11, 13, 15);
}
// The instruction saturates the square of -32768, which wraps by the definition. A factor that is constant takes the
// masks away.
inline I16x8 mulHiRound(I16x8 a, I16x8 b) {
  constexpr int16_t kMin = std::numeric_limits<int16_t>::min();
  return (I16x8)wasm_i16x8_q15mulr_sat((v128_t)a, (v128_t)b) ^ ((a == kMin) & (b == kMin));
}

QELJ_LANES2(average, uint8_t, wasm_u8x16_avgr)
QELJ_LANES2(average, uint16_t, wasm_u16x8_avgr)
QELJ_LANES2(min, uint8_t, wasm_u8x16_min)
QELJ_LANES2(min, int8_t, wasm_i8x16_min)
QELJ_LANES2(min, uint16_t, wasm_u16x8_min)
QELJ_LANES2(min, int16_t, wasm_i16x8_min)
QELJ_LANES2(min, uint32_t, wasm_u32x4_min)
QELJ_LANES2(min, int32_t, wasm_i32x4_min)
QELJ_LANES2(max, uint8_t, wasm_u8x16_max)
QELJ_LANES2(max, int8_t, wasm_i8x16_max)
QELJ_LANES2(max, uint16_t, wasm_u16x8_max)
QELJ_LANES2(max, int16_t, wasm_i16x8_max)
QELJ_LANES2(max, uint32_t, wasm_u32x4_max)
QELJ_LANES2(max, int32_t, wasm_i32x4_max)
QELJ_LANES1(absWrap, int8_t, wasm_i8x16_abs)
QELJ_LANES1(absWrap, int16_t, wasm_i16x8_abs)
QELJ_LANES1(absWrap, int32_t, wasm_i32x4_abs)

// The conversion saturates, and makes 0 of NaN: right below, but not from 2^31 on and for NaN.
inline I32x4 truncateToInt(F32x4 a) {
  return select(a < 2147483648.0f, (I32x4)wasm_i32x4_trunc_sat_f32x4((v128_t)a),
                all<I32x4>(std::numeric_limits<int32_t>::min()));
}
inline I32x4 roundToInt(F32x4 a) { return truncateToInt((F32x4)wasm_f32x4_nearest((v128_t)a)); }

// --- operations on pairs of lanes --------------------------------------------------------------------------

inline I32x4 mulAddPairs(I16x8 a, I16x8 b) { return (I32x4)wasm_i32x4_dot_i16x8((v128_t)a, (v128_t)b); }
inline Vec<int64_t, 16> mulEven(I32x4 a, I32x4 b) {
  const I32x4 even = __builtin_shufflevector(a, a, 0, 2, 1, 3), other = __builtin_shufflevector(b, b, 0, 2, 1, 3);
  return (Vec<int64_t, 16>)wasm_i64x2_extmul_low_i32x4((v128_t)even, (v128_t)other);
}
inline U64x2 mulEven(U32x4 a, U32x4 b) {
  const U32x4 even = __builtin_shufflevector(a, a, 0, 2, 1, 3), other = __builtin_shufflevector(b, b, 0, 2, 1, 3);
  return (U64x2)wasm_u64x2_extmul_low_u32x4((v128_t)even, (v128_t)other);
}
inline U64x2 sumAbsDiff8(U8x16 a, U8x16 b) {
  const v128_t difference = (v128_t)(subSat(a, b) | subSat(b, a));
  const auto fours = (U64x2)wasm_u32x4_extadd_pairwise_u16x8(wasm_u16x8_extadd_pairwise_u8x16(difference));
  return (fours & 0xFFFFFFFF) + (fours >> 32);
}

// --- packing -----------------------------------------------------------------------------------------------

inline U8x16 packU8(I16x8 a, I16x8 b) { return (U8x16)wasm_u8x16_narrow_i16x8((v128_t)a, (v128_t)b); }
inline Vec<int8_t, 16> packI8(I16x8 a, I16x8 b) {
  return (Vec<int8_t, 16>)wasm_i8x16_narrow_i16x8((v128_t)a, (v128_t)b);
}
inline I16x8 packI16(I32x4 a, I32x4 b) { return (I16x8)wasm_i16x8_narrow_i32x4((v128_t)a, (v128_t)b); }
inline U16x8 packU16(I32x4 a, I32x4 b) { return (U16x8)wasm_u16x8_narrow_i32x4((v128_t)a, (v128_t)b); }

// --- moving lanes ------------------------------------------------------------------------------------------

// The instruction gives 0 for every index from 16 on.
inline U8x16 shuffleBytes(U8x16 v, U8x16 index) { return (U8x16)wasm_i8x16_swizzle((v128_t)v, (v128_t)(index & 0x8F)); }
inline U32x4 pickLanes(U32x4 v, U32x4 index) {
  const U32x4 bytes = (index & 3) * 0x04040404 + 0x03020100;
  return (U32x4)wasm_i8x16_swizzle((v128_t)v, (v128_t)bytes);
}

// --- facts about a vector ----------------------------------------------------------------------------------

template <class V>
  requires(sizeof(V) == 16)
inline uint32_t topBits(V v) {
  return uint32_t(wasm_i8x16_bitmask((v128_t)v));
}
template <class V>
  requires(sizeof(V) == 16)
inline bool isZero(V v) {
  return !wasm_v128_any_true((v128_t)v);
}

// --- the beginning of a vector in memory -------------------------------------------------------------------

template <class V>
  requires(sizeof(V) == 16)
inline void storeHalves(void* low, void* high, V v) {
  wasm_v128_store64_lane(low, (v128_t)v, 0), wasm_v128_store64_lane(high, (v128_t)v, 1);
}

#undef QELJ_LANES1
#undef QELJ_LANES2

}  // namespace qelj::simd

#endif
