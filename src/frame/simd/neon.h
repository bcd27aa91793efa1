// The forms of AArch64: NEON's, for 16 bytes. The list is that of plain.h, which says what each operation is; what is
// missing here (zip, unzip, ext and table look-ups of constant places among it) compilers make of the definition.
#ifndef QELJ_FRAME_SIMD_NEON_H
#define QELJ_FRAME_SIMD_NEON_H

#include <arm_neon.h>

#include "frame/simd/vector.h"

namespace qelj::simd {

// QELJ_FORM(lanes of the result, name, lanes and register of both operands, intrinsic)
#define QELJ_FORM(R, NAME, T, REGISTER, INTRINSIC) \
  inline Vec<R, 16> NAME(Vec<T, 16> a, Vec<T, 16> b) { return (Vec<R, 16>)INTRINSIC((REGISTER)a, (REGISTER)b); }
#define QELJ_LANES2(NAME, T, REGISTER, INTRINSIC) QELJ_FORM(T, NAME, T, REGISTER, INTRINSIC)
#define QELJ_LANES1(NAME, T, REGISTER, INTRINSIC) \
  inline Vec<T, 16> NAME(Vec<T, 16> a) { return (Vec<T, 16>)INTRINSIC((REGISTER)a); }

// --- halves, conversions -----------------------------------------------------------------------------------

template <class V>
  requires(sizeof(V) == 16)
inline Vec<Lane<V>, 8> lower(V v) {
  return (Vec<Lane<V>, 8>)vget_low_u8((uint8x16_t)v);
}
template <class V>
  requires(sizeof(V) == 16)
inline Vec<Lane<V>, 8> upper(V v) {
  return (Vec<Lane<V>, 8>)vget_high_u8((uint8x16_t)v);
}
template <class H>
  requires(sizeof(H) == 8)
inline Vec<Lane<H>, 16> join(H low, H high) {
  return (Vec<Lane<H>, 16>)vcombine_u8((uint8x8_t)low, (uint8x8_t)high);
}

namespace detail {
// Eight bytes, widened to lanes twice as wide.
template <class From>
inline auto widened(Vec<From, 8> v) {
  if constexpr (std::is_same_v<From, uint8_t>) return (U16x8)vmovl_u8((uint8x8_t)v);
  else if constexpr (std::is_same_v<From, int8_t>) return (I16x8)vmovl_s8((int8x8_t)v);
  else if constexpr (std::is_same_v<From, uint16_t>) return (U32x4)vmovl_u16((uint16x4_t)v);
  else return (I32x4)vmovl_s16((int16x4_t)v);
}
template <class From>
concept Widens = std::is_same_v<From, uint8_t> || std::is_same_v<From, int8_t> || std::is_same_v<From, uint16_t> ||
                 std::is_same_v<From, int16_t>;
}  // namespace detail
template <class T, Vector V>
  requires(sizeof(V) == 8 && std::is_integral_v<T> && sizeof(T) == 2 * sizeof(Lane<V>) && detail::Widens<Lane<V>>)
inline Vec<T, 16> convert(V v) {
  return (Vec<T, 16>)detail::widened<Lane<V>>(v);
}
template <class V, class From>
  requires(sizeof(V) == 16 && sizeof(Lane<V>) == 2 * sizeof(From) && detail::Widens<From>)
inline V loadAs(const void* p) {
  return as<V>(detail::widened<From>(load<Vec<From, 8>>(p)));
}

// --- lane-wise operations ----------------------------------------------------------------------------------

template <Vector M, Vector V>
  requires(sizeof(V) == 16)
inline V select(M mask, V a, V b) {
  static_assert(sizeof(M) == sizeof(V));
  return (V)vbslq_u8((uint8x16_t)mask, (uint8x16_t)a, (uint8x16_t)b);
}

QELJ_LANES2(addSat, int16_t, int16x8_t, vqaddq_s16)
QELJ_LANES2(addSat, uint16_t, uint16x8_t, vqaddq_u16)
QELJ_LANES2(addSat, int8_t, int8x16_t, vqaddq_s8)
QELJ_LANES2(addSat, uint8_t, uint8x16_t, vqaddq_u8)
QELJ_LANES2(subSat, int16_t, int16x8_t, vqsubq_s16)
QELJ_LANES2(subSat, uint16_t, uint16x8_t, vqsubq_u16)
QELJ_LANES2(subSat, int8_t, int8x16_t, vqsubq_s8)
QELJ_LANES2(subSat, uint8_t, uint8x16_t, vqsubq_u8)

// Of the 32-bit products, the upper halves.
inline I16x8 mulHi(I16x8 a, I16x8 b) {
  const int32x4_t low = vmull_s16(vget_low_s16((int16x8_t)a), vget_low_s16((int16x8_t)b));
  const int32x4_t high = vmull_high_s16((int16x8_t)a, (int16x8_t)b);
  return (I16x8)vuzp2q_s16((int16x8_t)low, (int16x8_t)high);
}
inline U16x8 mulHi(U16x8 a, U16x8 b) {
  const uint32x4_t low = vmull_u16(vget_low_u16((uint16x8_t)a), vget_low_u16((uint16x8_t)b));
  const uint32x4_t high = vmull_high_u16((uint16x8_t)a, (uint16x8_t)b);
  return (U16x8)vuzp2q_u16((uint16x8_t)low, (uint16x8_t)high);
}
// The instruction saturates the square of -32768, which wraps by the definition. A factor that is constant takes the
// masks away.
inline I16x8 mulHiRound(I16x8 a, I16x8 b) {
  constexpr int16_t kMin = std::numeric_limits<int16_t>::min();
  return (I16x8)vqrdmulhq_s16((int16x8_t)a, (int16x8_t)b) ^ ((a == kMin) & (b == kMin));
}

QELJ_LANES2(average, uint8_t, uint8x16_t, vrhaddq_u8)
QELJ_LANES2(average, uint16_t, uint16x8_t, vrhaddq_u16)
QELJ_LANES2(min, uint8_t, uint8x16_t, vminq_u8)
QELJ_LANES2(min, int8_t, int8x16_t, vminq_s8)
QELJ_LANES2(min, uint16_t, uint16x8_t, vminq_u16)
QELJ_LANES2(min, int16_t, int16x8_t, vminq_s16)
QELJ_LANES2(min, uint32_t, uint32x4_t, vminq_u32)
QELJ_LANES2(min, int32_t, int32x4_t, vminq_s32)
QELJ_LANES2(max, uint8_t, uint8x16_t, vmaxq_u8)
QELJ_LANES2(max, int8_t, int8x16_t, vmaxq_s8)
QELJ_LANES2(max, uint16_t, uint16x8_t, vmaxq_u16)
QELJ_LANES2(max, int16_t, int16x8_t, vmaxq_s16)
QELJ_LANES2(max, uint32_t, uint32x4_t, vmaxq_u32)
QELJ_LANES2(max, int32_t, int32x4_t, vmaxq_s32)
QELJ_LANES1(absWrap, int8_t, int8x16_t, vabsq_s8)
QELJ_LANES1(absWrap, int16_t, int16x8_t, vabsq_s16)
QELJ_LANES1(absWrap, int32_t, int32x4_t, vabsq_s32)

// The instructions saturate, and make 0 of NaN: right below, but not from 2^31 on and for NaN.
namespace detail {
inline I32x4 whereFits(int32x4_t converted, F32x4 a) {
  return select(a < 2147483648.0f, (I32x4)converted, all<I32x4>(std::numeric_limits<int32_t>::min()));
}
}  // namespace detail
inline I32x4 roundToInt(F32x4 a) { return detail::whereFits(vcvtnq_s32_f32((float32x4_t)a), a); }
inline I32x4 truncateToInt(F32x4 a) { return detail::whereFits(vcvtq_s32_f32((float32x4_t)a), a); }

// --- operations on pairs of lanes --------------------------------------------------------------------------

inline I32x4 mulAddPairs(I16x8 a, I16x8 b) {
  const int32x4_t low = vmull_s16(vget_low_s16((int16x8_t)a), vget_low_s16((int16x8_t)b));
  const int32x4_t high = vmull_high_s16((int16x8_t)a, (int16x8_t)b);
  return (I32x4)vpaddq_s32(low, high);
}
inline Vec<int64_t, 16> mulEven(I32x4 a, I32x4 b) {
  return (Vec<int64_t, 16>)vmull_s32(vmovn_s64((int64x2_t)a), vmovn_s64((int64x2_t)b));
}
inline U64x2 mulEven(U32x4 a, U32x4 b) { return (U64x2)vmull_u32(vmovn_u64((uint64x2_t)a), vmovn_u64((uint64x2_t)b)); }
inline U64x2 sumAbsDiff8(U8x16 a, U8x16 b) {
  const uint8x16_t difference = vabdq_u8((uint8x16_t)a, (uint8x16_t)b);
  return (U64x2)vpaddlq_u32(vpaddlq_u16(vpaddlq_u8(difference)));
}
inline I16x8 addBytePairs(U8x16 a) { return (I16x8)vpaddlq_u8((uint8x16_t)a); }
QELJ_LANES2(addNeighbours, int32_t, int32x4_t, vpaddq_s32)
QELJ_LANES2(addNeighbours, uint32_t, uint32x4_t, vpaddq_u32)

// --- packing -----------------------------------------------------------------------------------------------

#define QELJ_PACK(NAME, FROM, REGISTER, TO, LOW, HIGH) \
  inline Vec<TO, 16> NAME(Vec<FROM, 16> a, Vec<FROM, 16> b) { return (Vec<TO, 16>)HIGH(LOW((REGISTER)a), (REGISTER)b); }
QELJ_PACK(packU8, int16_t, int16x8_t, uint8_t, vqmovun_s16, vqmovun_high_s16)
QELJ_PACK(packI8, int16_t, int16x8_t, int8_t, vqmovn_s16, vqmovn_high_s16)
QELJ_PACK(packI16, int32_t, int32x4_t, int16_t, vqmovn_s32, vqmovn_high_s32)
QELJ_PACK(packU16, int32_t, int32x4_t, uint16_t, vqmovun_s32, vqmovun_high_s32)
#undef QELJ_PACK

// --- moving lanes ------------------------------------------------------------------------------------------

// The instruction gives 0 for every index from 16 on.
inline U8x16 shuffleBytes(U8x16 v, U8x16 index) { return (U8x16)vqtbl1q_u8((uint8x16_t)v, (uint8x16_t)(index & 0x8F)); }
inline U32x4 pickLanes(U32x4 v, U32x4 index) {
  const U32x4 bytes = (index & 3) * 0x04040404 + 0x03020100;
  return (U32x4)vqtbl1q_u8((uint8x16_t)v, (uint8x16_t)bytes);
}
template <int kA, int kB>
inline Halves<I16x8> weighBytes(U8x16 a, U8x16 b) {
  const uint8x16_t weightA = vdupq_n_u8(kA), weightB = vdupq_n_u8(kB), x = (uint8x16_t)a, y = (uint8x16_t)b;
  const uint16x8_t low = vmull_u8(vget_low_u8(x), vget_low_u8(weightA)), high = vmull_high_u8(x, weightA);
  return {(I16x8)vmlal_u8(low, vget_low_u8(y), vget_low_u8(weightB)), (I16x8)vmlal_high_u8(high, y, weightB)};
}
template <class V>
  requires(sizeof(V) == 16)
inline V evenAndOdd(V a, V b) {
  struct Odd {
    uint8_t bytes[16];
    constexpr Odd() : bytes{} {
      for (int i = 0; i < 16; ++i) bytes[i] = i / int(sizeof(Lane<V>)) % 2 ? 0xFF : 0;
    }
  };
  static constexpr Odd kOdd;
  return select(load<U8x16>(kOdd.bytes), b, a);
}

// Instructions take lanes that lie in turn in memory apart, and put them together.
template <class V>
  requires(sizeof(V) == 16 && sizeof(Lane<V>) <= 4)
inline VectorPair<V> loadPairs(const void* p) {
  const auto pair = [](auto v) { return VectorPair<V>{(V)v.val[0], (V)v.val[1]}; };
  if constexpr (sizeof(Lane<V>) == 1) return pair(vld2q_u8(static_cast<const uint8_t*>(p)));
  else if constexpr (sizeof(Lane<V>) == 2) return pair(vld2q_u16(static_cast<const uint16_t*>(p)));
  else return pair(vld2q_u32(static_cast<const uint32_t*>(p)));
}
template <class V>
  requires(sizeof(V) == 16 && sizeof(Lane<V>) <= 4)
inline void storePairs(void* p, V a, V b) {
  if constexpr (sizeof(Lane<V>) == 1) {
    vst2q_u8(static_cast<uint8_t*>(p), (uint8x16x2_t{{(uint8x16_t)a, (uint8x16_t)b}}));
  } else if constexpr (sizeof(Lane<V>) == 2) {
    vst2q_u16(static_cast<uint16_t*>(p), (uint16x8x2_t{{(uint16x8_t)a, (uint16x8_t)b}}));
  } else {
    vst2q_u32(static_cast<uint32_t*>(p), (uint32x4x2_t{{(uint32x4_t)a, (uint32x4_t)b}}));
  }
}

// --- facts about a vector ----------------------------------------------------------------------------------

// Bit i mod 8 of byte i, and sums of neighbours three times: eight bytes are one then.
namespace detail {
inline uint8x16_t ownBits(uint8x16_t v) {
  constexpr uint8_t kBit[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
  return (uint8x16_t)(((Vec<int8_t, 16>)v < 0) & (Vec<int8_t, 16>)load<U8x16>(kBit));
}
}  // namespace detail
template <class V>
  requires(sizeof(V) == 16)
inline uint32_t topBits(V v) {
  uint8x16_t bits = detail::ownBits((uint8x16_t)v);
  for (int i = 0; i < 3; ++i) bits = vpaddq_u8(bits, bits);
  return vgetq_lane_u16((uint16x8_t)bits, 0);
}
template <class V>
  requires(sizeof(V) == 16)
inline bool isZero(V v) {
  return vmaxvq_u32((uint32x4_t)v) == 0;
}

// --- the beginning of a vector in memory -------------------------------------------------------------------

template <class V>
  requires(sizeof(V) == 16)
inline void storeHalves(void* low, void* high, V v) {
  store(low, lower(v)), vst1q_lane_u64(static_cast<uint64_t*>(high), (uint64x2_t)v, 1);
}

// --- pixels of three and four bytes ------------------------------------------------------------------------
// No store goes past the caches here, so that callers' ways of storing are all one.

template <class V>
  requires(sizeof(V) == 16 && sizeof(Lane<V>) <= 4)
QELJ_INLINE Triples<V> loadTriples(const void* p) {
  const auto triple = [](auto v) { return Triples<V>{(V)v.val[0], (V)v.val[1], (V)v.val[2]}; };
  if constexpr (sizeof(Lane<V>) == 1) return triple(vld3q_u8(static_cast<const uint8_t*>(p)));
  else if constexpr (sizeof(Lane<V>) == 2) return triple(vld3q_u16(static_cast<const uint16_t*>(p)));
  else return triple(vld3q_u32(static_cast<const uint32_t*>(p)));
}
template <class V, class Store = PlainStore>
  requires(sizeof(V) == 16 && sizeof(Lane<V>) <= 4)
QELJ_INLINE void storeTriples(void* p, Triples<V> v, Store = {}) {
  if constexpr (sizeof(Lane<V>) == 1) {
    vst3q_u8(static_cast<uint8_t*>(p), (uint8x16x3_t{{(uint8x16_t)v.c0, (uint8x16_t)v.c1, (uint8x16_t)v.c2}}));
  } else if constexpr (sizeof(Lane<V>) == 2) {
    vst3q_u16(static_cast<uint16_t*>(p), (uint16x8x3_t{{(uint16x8_t)v.c0, (uint16x8_t)v.c1, (uint16x8_t)v.c2}}));
  } else {
    vst3q_u32(static_cast<uint32_t*>(p), (uint32x4x3_t{{(uint32x4_t)v.c0, (uint32x4_t)v.c1, (uint32x4_t)v.c2}}));
  }
}
template <class V, class Store = PlainStore>
  requires(sizeof(V) == 16)
QELJ_INLINE void storeTriplesClamped(uint8_t* p, Halves<V> c0, Halves<V> c1, Halves<V> c2, Store = {}) {
  storeTriples<U8x16>(p, {packU8(c0.low, c0.high), packU8(c1.low, c1.high), packU8(c2.low, c2.high)});
}
template <class V>
  requires(sizeof(V) == 16)
QELJ_INLINE BytePairs3<V> loadBytePairs3(const uint8_t* p) {
  const uint8x16x3_t v = vld3q_u8(p);
  const auto pairs = [&](int other) QELJ_INLINE_LAMBDA {
    return Halves<V>{(V)vzip1q_u8(v.val[other], v.val[1]), (V)vzip2q_u8(v.val[other], v.val[1])};
  };
  return {pairs(0), pairs(2)};
}
template <class V>
  requires(sizeof(V) == 16)
QELJ_INLINE Quadruples<V> loadQuadruples(const uint8_t* p) {
  const uint8x16x4_t v = vld4q_u8(p);
  return {(V)v.val[0], (V)v.val[1], (V)v.val[2], (V)v.val[3]};
}
template <class V, class Store = PlainStore>
  requires(sizeof(V) == 16)
QELJ_INLINE void storeQuadruples(uint8_t* p, Quadruples<V> v, Store = {}) {
  vst4q_u8(p, (uint8x16x4_t{{(uint8x16_t)v.c0, (uint8x16_t)v.c1, (uint8x16_t)v.c2, (uint8x16_t)v.c3}}));
}

#undef QELJ_LANES1
#undef QELJ_LANES2
#undef QELJ_FORM

}  // namespace qelj::simd

#endif
