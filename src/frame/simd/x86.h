// The forms of x86-64: SSE4.1's for 16 bytes, AVX2's for 32 and AVX-512's (BW, DQ, VL) for 64, as far as an image has
// them. The list is that of plain.h, which says what each operation is.
#ifndef QELJ_FRAME_SIMD_X86_H
#define QELJ_FRAME_SIMD_X86_H

// GCC 12 takes the register whose contents don't matter, in its own definitions of 64-byte operations, for a mistake.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#  pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#include "frame/simd/vector.h"

namespace qelj::simd {

// QELJ_FORM(lanes of the result, name, lanes of a, lanes of b, operation): in each size that the image has.
#define QELJ_FORM_OF(BYTES, REGISTER, INSTRUCTION, R, NAME, A, B) \
  inline Vec<R, BYTES> NAME(Vec<A, BYTES> a, Vec<B, BYTES> b) {   \
    return (Vec<R, BYTES>)INSTRUCTION((REGISTER)a, (REGISTER)b);  \
  }
#define QELJ_FORM_16(R, NAME, A, B, OPERATION) QELJ_FORM_OF(16, __m128i, _mm_##OPERATION, R, NAME, A, B)
#ifdef QELJ_HAS_AVX2
#  define QELJ_FORM_32(R, NAME, A, B, OPERATION) QELJ_FORM_OF(32, __m256i, _mm256_##OPERATION, R, NAME, A, B)
#else
#  define QELJ_FORM_32(R, NAME, A, B, OPERATION)
#endif
#ifdef QELJ_HAS_AVX512
#  define QELJ_FORM_64(R, NAME, A, B, OPERATION) QELJ_FORM_OF(64, __m512i, _mm512_##OPERATION, R, NAME, A, B)
#else
#  define QELJ_FORM_64(R, NAME, A, B, OPERATION)
#endif
#define QELJ_FORM(R, NAME, A, B, OPERATION) \
  QELJ_FORM_16(R, NAME, A, B, OPERATION)    \
  QELJ_FORM_32(R, NAME, A, B, OPERATION)    \
  QELJ_FORM_64(R, NAME, A, B, OPERATION)
#define QELJ_LANES2(NAME, T, OPERATION) QELJ_FORM(T, NAME, T, T, OPERATION)

// --- halves, conversions -----------------------------------------------------------------------------------
// GCC makes wide permutations of the definitions.

#ifdef QELJ_HAS_AVX2
template <class V>
  requires(sizeof(V) == 32)
inline Vec<Lane<V>, 16> lower(V v) {
  return (Vec<Lane<V>, 16>)_mm256_castsi256_si128((__m256i)v);
}
template <class V>
  requires(sizeof(V) == 32)
inline Vec<Lane<V>, 16> upper(V v) {
  return (Vec<Lane<V>, 16>)_mm256_extracti128_si256((__m256i)v, 1);
}
template <class H>
  requires(sizeof(H) == 16)
inline Vec<Lane<H>, 32> join(H low, H high) {
  return (Vec<Lane<H>, 32>)_mm256_inserti128_si256(_mm256_castsi128_si256((__m128i)low), (__m128i)high, 1);
}
#endif
#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(V) == 64)
inline Vec<Lane<V>, 32> lower(V v) {
  return (Vec<Lane<V>, 32>)_mm512_castsi512_si256((__m512i)v);
}
template <class V>
  requires(sizeof(V) == 64)
inline Vec<Lane<V>, 32> upper(V v) {
  return (Vec<Lane<V>, 32>)_mm512_extracti64x4_epi64((__m512i)v, 1);
}
template <class H>
  requires(sizeof(H) == 32)
inline Vec<Lane<H>, 64> join(H low, H high) {
  return (Vec<Lane<H>, 64>)_mm512_inserti64x4(_mm512_castsi256_si512((__m256i)low), (__m256i)high, 1);
}

// Compilers split these in two.
template <class T, Vector V>
  requires(sizeof(V) == 32 && std::is_integral_v<T> && sizeof(T) == 2 && sizeof(Lane<V>) == 1)
inline Vec<T, 64> convert(V v) {
  if constexpr (std::is_unsigned_v<Lane<V>>) return (Vec<T, 64>)_mm512_cvtepu8_epi16((__m256i)v);
  else return (Vec<T, 64>)_mm512_cvtepi8_epi16((__m256i)v);
}
template <class T, Vector V>
  requires(sizeof(V) == 32 && std::is_integral_v<T> && sizeof(T) == 4 && sizeof(Lane<V>) == 2)
inline Vec<T, 64> convert(V v) {
  if constexpr (std::is_unsigned_v<Lane<V>>) return (Vec<T, 64>)_mm512_cvtepu16_epi32((__m256i)v);
  else return (Vec<T, 64>)_mm512_cvtepi16_epi32((__m256i)v);
}
#endif

// From eight bytes; compilers split these in two.
template <class V, class From>
  requires(sizeof(V) == 16 && sizeof(Lane<V>) == 2 * sizeof(From) && sizeof(From) <= 2)
inline V loadAs(const void* p) {
  const __m128i eight = _mm_loadl_epi64(static_cast<const __m128i*>(p));
  if constexpr (std::is_same_v<From, uint8_t>) return (V)_mm_cvtepu8_epi16(eight);
  if constexpr (std::is_same_v<From, int8_t>) return (V)_mm_cvtepi8_epi16(eight);
  if constexpr (std::is_same_v<From, uint16_t>) return (V)_mm_cvtepu16_epi32(eight);
  if constexpr (std::is_same_v<From, int16_t>) return (V)_mm_cvtepi16_epi32(eight);
}

// --- lane-wise operations ----------------------------------------------------------------------------------

#ifndef __AVX512VL__
// One blend. Not by its intrinsic, whose bytes are plain chars: GCC 12 folds it away where those are unsigned. With
// AVX-512 the definition is one instruction; and GCC 12 gets a blend by an unsigned comparison wrong there.
template <Vector M, Vector V>
  requires(sizeof(V) <= kBytes)
inline V select(M mask, V a, V b) {
  using S = With<int8_t, V>;
  return as<V>(as<S>(mask) < 0 ? as<S>(a) : as<S>(b));
}
#endif

QELJ_LANES2(addSat, int16_t, adds_epi16)
QELJ_LANES2(addSat, uint16_t, adds_epu16)
QELJ_LANES2(addSat, int8_t, adds_epi8)
QELJ_LANES2(addSat, uint8_t, adds_epu8)
QELJ_LANES2(subSat, int16_t, subs_epi16)
QELJ_LANES2(subSat, uint16_t, subs_epu16)
QELJ_LANES2(subSat, int8_t, subs_epi8)
QELJ_LANES2(subSat, uint8_t, subs_epu8)
QELJ_LANES2(mulHi, int16_t, mulhi_epi16)
QELJ_LANES2(mulHi, uint16_t, mulhi_epu16)
QELJ_LANES2(mulHiRound, int16_t, mulhrs_epi16)
QELJ_LANES2(average, uint8_t, avg_epu8)
QELJ_LANES2(average, uint16_t, avg_epu16)
QELJ_LANES2(min, uint8_t, min_epu8)
QELJ_LANES2(min, int8_t, min_epi8)
QELJ_LANES2(min, uint16_t, min_epu16)
QELJ_LANES2(min, int16_t, min_epi16)
QELJ_LANES2(min, uint32_t, min_epu32)
QELJ_LANES2(min, int32_t, min_epi32)
QELJ_LANES2(max, uint8_t, max_epu8)
QELJ_LANES2(max, int8_t, max_epi8)
QELJ_LANES2(max, uint16_t, max_epu16)
QELJ_LANES2(max, int16_t, max_epi16)
QELJ_LANES2(max, uint32_t, max_epu32)
QELJ_LANES2(max, int32_t, max_epi32)

QELJ_FORM_16(int16_t, signAs, int16_t, int16_t, sign_epi16)
QELJ_FORM_32(int16_t, signAs, int16_t, int16_t, sign_epi16)

// Of one vector.
#define QELJ_LANES1(BYTES, R, NAME, A, REGISTER, INSTRUCTION) \
  inline Vec<R, BYTES> NAME(Vec<A, BYTES> a) { return (Vec<R, BYTES>)INSTRUCTION((REGISTER)a); }
QELJ_LANES1(16, int16_t, absWrap, int16_t, __m128i, _mm_abs_epi16)
QELJ_LANES1(16, int32_t, absWrap, int32_t, __m128i, _mm_abs_epi32)
QELJ_LANES1(16, int32_t, roundToInt, float, __m128, _mm_cvtps_epi32)
QELJ_LANES1(16, int32_t, truncateToInt, float, __m128, _mm_cvttps_epi32)
#ifdef QELJ_HAS_AVX2
QELJ_LANES1(32, int16_t, absWrap, int16_t, __m256i, _mm256_abs_epi16)
QELJ_LANES1(32, int32_t, absWrap, int32_t, __m256i, _mm256_abs_epi32)
QELJ_LANES1(32, int32_t, roundToInt, float, __m256, _mm256_cvtps_epi32)
QELJ_LANES1(32, int32_t, truncateToInt, float, __m256, _mm256_cvttps_epi32)
#endif
#ifdef QELJ_HAS_AVX512
QELJ_LANES1(64, int16_t, absWrap, int16_t, __m512i, _mm512_abs_epi16)
QELJ_LANES1(64, int32_t, absWrap, int32_t, __m512i, _mm512_abs_epi32)
QELJ_LANES1(64, int32_t, roundToInt, float, __m512, _mm512_cvtps_epi32)
QELJ_LANES1(64, int32_t, truncateToInt, float, __m512, _mm512_cvttps_epi32)
#endif
#undef QELJ_LANES1

// --- operations on pairs of lanes --------------------------------------------------------------------------

QELJ_FORM(int32_t, mulAddPairs, int16_t, int16_t, madd_epi16)
QELJ_FORM(int16_t, mulAddBytes, uint8_t, int8_t, maddubs_epi16)
QELJ_FORM(int64_t, mulEven, int32_t, int32_t, mul_epi32)
QELJ_FORM(uint64_t, mulEven, uint32_t, uint32_t, mul_epu32)
QELJ_FORM(uint64_t, sumAbsDiff8, uint8_t, uint8_t, sad_epu8)
QELJ_FORM_16(int32_t, addNeighbours, int32_t, int32_t, hadd_epi32)
QELJ_FORM_16(uint32_t, addNeighbours, uint32_t, uint32_t, hadd_epi32)
QELJ_FORM_32(int32_t, addNeighbours, int32_t, int32_t, hadd_epi32)
QELJ_FORM_32(uint32_t, addNeighbours, uint32_t, uint32_t, hadd_epi32)
#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(V) == 64)
inline V addNeighbours(V a, V b) {
  return addWrap((V)_mm512_shuffle_ps((__m512)a, (__m512)b, 0x88), (V)_mm512_shuffle_ps((__m512)a, (__m512)b, 0xDD));
}
#endif

// --- packing -----------------------------------------------------------------------------------------------

QELJ_FORM(uint8_t, packU8, int16_t, int16_t, packus_epi16)
QELJ_FORM(int8_t, packI8, int16_t, int16_t, packs_epi16)
QELJ_FORM(int16_t, packI16, int32_t, int32_t, packs_epi32)
QELJ_FORM(uint16_t, packU16, int32_t, int32_t, packus_epi32)

// --- moving lanes ------------------------------------------------------------------------------------------

#ifdef QELJ_HAS_AVX2
template <class V>
  requires(sizeof(V) == 32)
inline V orderPacked(V v) {
  return (V)_mm256_permute4x64_epi64((__m256i)v, 0xD8);
}
#endif
#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(V) == 64)
inline V orderPacked(V v) {
  return (V)_mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), (__m512i)v);
}
#endif

#define QELJ_UNPACK(BYTES, PREFIX, REGISTER, NAME, WHICH)                                                        \
  template <class V>                                                                                             \
    requires(sizeof(V) == BYTES)                                                                                 \
  inline V NAME(V a, V b) {                                                                                      \
    if constexpr (sizeof(Lane<V>) == 1) return (V)PREFIX##_unpack##WHICH##_epi8((REGISTER)a, (REGISTER)b);       \
    else if constexpr (sizeof(Lane<V>) == 2) return (V)PREFIX##_unpack##WHICH##_epi16((REGISTER)a, (REGISTER)b); \
    else if constexpr (sizeof(Lane<V>) == 4) return (V)PREFIX##_unpack##WHICH##_epi32((REGISTER)a, (REGISTER)b); \
    else return (V)PREFIX##_unpack##WHICH##_epi64((REGISTER)a, (REGISTER)b);                                     \
  }
QELJ_UNPACK(16, _mm, __m128i, unpackLow, lo)
QELJ_UNPACK(16, _mm, __m128i, unpackHigh, hi)
#ifdef QELJ_HAS_AVX2
QELJ_UNPACK(32, _mm256, __m256i, unpackLow, lo)
QELJ_UNPACK(32, _mm256, __m256i, unpackHigh, hi)
#endif
#ifdef QELJ_HAS_AVX512
QELJ_UNPACK(64, _mm512, __m512i, unpackLow, lo)
QELJ_UNPACK(64, _mm512, __m512i, unpackHigh, hi)
#endif
#undef QELJ_UNPACK

#ifdef QELJ_HAS_AVX2
template <class V>
  requires(sizeof(V) == 32)
inline V lowBlocks(V a, V b) {
  return (V)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x20);
}
template <class V>
  requires(sizeof(V) == 32)
inline V highBlocks(V a, V b) {
  return (V)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x31);
}
#endif
#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(V) == 64)
inline V lowBlocks(V a, V b) {
  return (V)_mm512_permutex2var_epi64((__m512i)a, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), (__m512i)b);
}
template <class V>
  requires(sizeof(V) == 64)
inline V highBlocks(V a, V b) {
  return (V)_mm512_permutex2var_epi64((__m512i)a, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), (__m512i)b);
}
#endif

#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(Lane<V>) == 4 && sizeof(V) == 64)
inline VectorPair<V> interleave(V a, V b) {
  const auto lanes = [=](__m512i from) { return (V)_mm512_permutex2var_epi32((__m512i)a, from, (__m512i)b); };
  return {lanes(_mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23)),
          lanes(_mm512_setr_epi32(8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31))};
}
#endif

template <class V>
inline V orderPacked(V v);  // of 16 bytes by its definition
template <class V>
  requires(sizeof(Lane<V>) == 1 && sizeof(V) <= kWideBytes)
inline VectorPair<V> deinterleave(V first, V second) {
  using W = With<uint16_t, V>;
  using S = With<int16_t, V>;
  const W a = as<W>(first), b = as<W>(second);
  return {as<V>(orderPacked(packU8(as<S>(a & 0xFF), as<S>(b & 0xFF)))),
          as<V>(orderPacked(packU8(as<S>(a >> 8), as<S>(b >> 8))))};
}
template <class V>
  requires(sizeof(Lane<V>) == 2 && sizeof(V) <= kBytes)
inline VectorPair<V> deinterleave(V first, V second) {
  // Sign-extended halves fit the saturating pack.
  using W = With<int32_t, V>;
  const W a = as<W>(first), b = as<W>(second);
  return {as<V>(orderPacked(packI16(shlWrap(a, 16) >> 16, shlWrap(b, 16) >> 16))),
          as<V>(orderPacked(packI16(a >> 16, b >> 16)))};
}
#ifdef QELJ_HAS_AVX2
template <class V>
  requires(sizeof(Lane<V>) == 4 && sizeof(V) == 32)
inline VectorPair<V> deinterleave(V first, V second) {
  return {orderPacked(__builtin_shufflevector(first, second, 0, 2, 8, 10, 4, 6, 12, 14)),
          orderPacked(__builtin_shufflevector(first, second, 1, 3, 9, 11, 5, 7, 13, 15))};
}
#endif

template <class V>
  requires(sizeof(V) == 16)
inline V oneBefore(V before, V v) {
  return (V)_mm_alignr_epi8((__m128i)v, (__m128i)before, 16 - int(sizeof(Lane<V>)));
}
template <class V>
  requires(sizeof(V) == 16)
inline V oneAfter(V v, V after) {
  return (V)_mm_alignr_epi8((__m128i)after, (__m128i)v, int(sizeof(Lane<V>)));
}
#ifdef QELJ_HAS_AVX2
template <class V>
  requires(sizeof(V) == 32)
inline V oneBefore(V before, V v) {
#  ifdef __AVX512VL__
  if constexpr (sizeof(Lane<V>) == 4) return (V)_mm256_alignr_epi32((__m256i)v, (__m256i)before, 7);
#  endif
  const __m256i middle = _mm256_permute2x128_si256((__m256i)before, (__m256i)v, 0x21);
  return (V)_mm256_alignr_epi8((__m256i)v, middle, 16 - int(sizeof(Lane<V>)));
}
template <class V>
  requires(sizeof(V) == 32)
inline V oneAfter(V v, V after) {
#  ifdef __AVX512VL__
  if constexpr (sizeof(Lane<V>) == 4) return (V)_mm256_alignr_epi32((__m256i)after, (__m256i)v, 1);
#  endif
  const __m256i middle = _mm256_permute2x128_si256((__m256i)v, (__m256i)after, 0x21);
  return (V)_mm256_alignr_epi8(middle, (__m256i)v, int(sizeof(Lane<V>)));
}
#  ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(V) == 64)
inline V oneBefore(V before, V v) {
  if constexpr (sizeof(Lane<V>) == 4) return (V)_mm512_alignr_epi32((__m512i)v, (__m512i)before, 15);
  const __m512i middle = _mm512_alignr_epi64((__m512i)v, (__m512i)before, 6);
  return (V)_mm512_alignr_epi8((__m512i)v, middle, 16 - int(sizeof(Lane<V>)));
}
template <class V>
  requires(sizeof(V) == 64)
inline V oneAfter(V v, V after) {
  if constexpr (sizeof(Lane<V>) == 4) return (V)_mm512_alignr_epi32((__m512i)after, (__m512i)v, 1);
  const __m512i middle = _mm512_alignr_epi64((__m512i)after, (__m512i)v, 2);
  return (V)_mm512_alignr_epi8(middle, (__m512i)v, int(sizeof(Lane<V>)));
}
#  endif
#  ifndef __AVX512VL__
// A turn by one lane and a blend with the turned vector before it are one shuffle, where oneBefore() takes two.
template <Vector V>
  requires(sizeof(V) == 32 && sizeof(Lane<V>) == 4)
class OneLate<V> {
  V kept_{};

 public:
  OneLate() = default;
  explicit OneLate(Lane<V> last) : kept_(all<V>(last)) {}
  QELJ_INLINE V operator()(V v) {
    const V turned = __builtin_shufflevector(v, v, 7, 0, 1, 2, 3, 4, 5, 6);
    const V before = __builtin_shufflevector(turned, kept_, 8, 1, 2, 3, 4, 5, 6, 7);
    kept_ = turned;
    return before;
  }
};
#  endif
#endif

// Compilers take three instructions for whole numbers, to stay clear of the float unit.
#define QELJ_SHUFFLE_TWO(BYTES, REGISTER, PREFIX)                                          \
  template <int A, int B, int C, int D, class V>                                           \
    requires(sizeof(V) == BYTES)                                                           \
  inline V shuffleTwo4(V a, V b) {                                                         \
    static_assert(sizeof(Lane<V>) == 4);                                                   \
    return (V)PREFIX##_shuffle_ps((REGISTER)a, (REGISTER)b, A | B << 2 | C << 4 | D << 6); \
  }
QELJ_SHUFFLE_TWO(16, __m128, _mm)
#ifdef QELJ_HAS_AVX2
QELJ_SHUFFLE_TWO(32, __m256, _mm256)
#endif
#ifdef QELJ_HAS_AVX512
QELJ_SHUFFLE_TWO(64, __m512, _mm512)
#endif
#undef QELJ_SHUFFLE_TWO

QELJ_LANES2(shuffleBytes, uint8_t, shuffle_epi8)

#ifdef QELJ_HAS_AVX2
inline U32x4 pickLanes(U32x4 v, U32x4 index) { return (U32x4)_mm_permutevar_ps((__m128)v, (__m128i)index); }
inline Vec<uint32_t, 32> pickLanes(Vec<uint32_t, 32> v, Vec<uint32_t, 32> index) {
  return (Vec<uint32_t, 32>)_mm256_permutevar_ps((__m256)v, (__m256i)index);
}
inline Vec<uint32_t, 32> pickAnyLanes(Vec<uint32_t, 32> v, Vec<uint32_t, 32> index) {
  return (Vec<uint32_t, 32>)_mm256_permutevar8x32_epi32((__m256i)v, (__m256i)index);
}
#endif
#ifdef QELJ_HAS_AVX512
inline Vec<uint32_t, 64> pickLanes(Vec<uint32_t, 64> v, Vec<uint32_t, 64> index) {
  return (Vec<uint32_t, 64>)_mm512_permutevar_ps((__m512)v, (__m512i)index);
}
inline Vec<uint32_t, 64> pickAnyLanes(Vec<uint32_t, 64> v, Vec<uint32_t, 64> index) {
  return (Vec<uint32_t, 64>)_mm512_permutexvar_epi32((__m512i)index, (__m512i)v);
}
#endif

// The blocks are put in order as they are loaded, where that is cheaper.
template <class V>
  requires(sizeof(Lane<V>) > 1 && sizeof(V) <= kBytes)
inline VectorPair<V> loadPairs(const void* p) {
  const auto blocks = [p](int first) {
    using H = Vec<Lane<V>, 16>;
    const auto* const from = static_cast<const char*>(p) + 16 * first;
    if constexpr (sizeof(V) == 16) return load<H>(from);
    else return join(load<H>(from), load<H>(from + 32));
  };
  const V a = blocks(0), b = blocks(1);
  if constexpr (sizeof(Lane<V>) == 4) {
    return {shuffleTwo4<0, 2, 0, 2>(a, b), shuffleTwo4<1, 3, 1, 3>(a, b)};
  } else {
    using U = With<uint8_t, V>;
    constexpr uint8_t kApart[16] = {0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15};
    const auto apart = [&](V v) { return as<uint64_t>(shuffleBytes(as<U>(v), blockPattern<U>(kApart))); };
    return {as<V>(unpackLow(apart(a), apart(b))), as<V>(unpackHigh(apart(a), apart(b)))};
  }
}

#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(Lane<V>) == 2 && sizeof(V) == 64)
inline VectorPair<V> loadPairs(const void* p) {
  using U = With<uint8_t, V>;
  constexpr uint8_t kApart[16] = {0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15};
  const auto apart = [&](int i) {
    return (__m512i)shuffleBytes(load<U>(static_cast<const char*>(p) + i), blockPattern<U>(kApart));
  };
  const __m512i a = apart(0), b = apart(64);
  return {(V)_mm512_permutex2var_epi64(a, _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14), b),
          (V)_mm512_permutex2var_epi64(a, _mm512_setr_epi64(1, 3, 5, 7, 9, 11, 13, 15), b)};
}

template <class V, class Where>
  requires(sizeof(V) == 64)
QELJ_INLINE V gatherBlocks(Where where) {  // masked, a broadcast is a load and a blend
  const auto block = [&](int i) QELJ_INLINE_LAMBDA { return _mm_loadu_si128((const __m128i_u*)where(i)); };
  __m512i v = _mm512_castsi128_si512(block(0));
  v = _mm512_mask_broadcast_i32x4(v, 0x00F0, block(1));
  v = _mm512_mask_broadcast_i32x4(v, 0x0F00, block(2));
  return (V)_mm512_mask_broadcast_i32x4(v, 0xF000, block(3));
}
template <class V, class Where, class Store = PlainStore>
  requires(sizeof(V) == 64)
QELJ_INLINE void scatterBlocks(Where where, V v, Store put = {}) {
  const auto block = [](__m128i b) { return (Vec<Lane<V>, 16>)b; };
  put(where(0), block(_mm512_castsi512_si128((__m512i)v)));
  put(where(1), block(_mm512_extracti32x4_epi32((__m512i)v, 1)));
  put(where(2), block(_mm512_extracti32x4_epi32((__m512i)v, 2)));
  put(where(3), block(_mm512_extracti32x4_epi32((__m512i)v, 3)));
}
#endif

// --- facts about a vector ----------------------------------------------------------------------------------

template <class V>
  requires(sizeof(V) == 16)
inline uint32_t topBits(V v) {
  return uint32_t(_mm_movemask_epi8((__m128i)v));
}
template <class V>
  requires(sizeof(V) == 16)
inline bool isZero(V v) {
  return _mm_testz_si128((__m128i)v, (__m128i)v);
}
#ifdef QELJ_HAS_AVX2
template <class V>
  requires(sizeof(V) == 32)
inline uint32_t topBits(V v) {
  return uint32_t(_mm256_movemask_epi8((__m256i)v));
}
template <class V>
  requires(sizeof(V) == 32)
inline bool isZero(V v) {
  return _mm256_testz_si256((__m256i)v, (__m256i)v);
}
#endif
#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(V) == 64)
inline uint64_t topBits(V v) {
  return _mm512_movepi8_mask((__m512i)v);
}
template <class V>
  requires(sizeof(V) == 64)
inline bool isZero(V v) {
  return _mm512_test_epi64_mask((__m512i)v, (__m512i)v) == 0;
}
#endif

// --- bits of a word ----------------------------------------------------------------------------------------

#if defined(QELJ_HAS_AVX2) && defined(__BMI2__)
inline uint64_t depositBits(uint64_t bits, uint64_t mask) { return _pdep_u64(bits, mask); }
inline uint64_t extractBits(uint64_t bits, uint64_t mask) { return _pext_u64(bits, mask); }
#endif
#ifdef __BMI2__
inline uint32_t lowBits(uint32_t word, uint32_t count) { return _bzhi_u32(word, count); }
#endif

// --- the beginning of a vector in memory -------------------------------------------------------------------

#ifdef QELJ_HAS_AVX512
template <class V>
  requires(sizeof(V) >= 16)
QELJ_INLINE V loadFirst(const void* p, int count) {
  const uint64_t mask = _bzhi_u64(~uint64_t(0), unsigned(count * int(sizeof(Lane<V>))));
  if constexpr (sizeof(V) == 64) return (V)_mm512_maskz_loadu_epi8(mask, p);
  else if constexpr (sizeof(V) == 32) return (V)_mm256_maskz_loadu_epi8(__mmask32(mask), p);
  else return (V)_mm_maskz_loadu_epi8(__mmask16(mask), p);
}
template <class V>
  requires(sizeof(V) >= 16)
QELJ_INLINE void storeFirst(void* p, V v, int count) {
  const uint64_t mask = _bzhi_u64(~uint64_t(0), unsigned(count * int(sizeof(Lane<V>))));
  if constexpr (sizeof(V) == 64) _mm512_mask_storeu_epi8(p, mask, (__m512i)v);
  else if constexpr (sizeof(V) == 32) _mm256_mask_storeu_epi8(p, __mmask32(mask), (__m256i)v);
  else _mm_mask_storeu_epi8(p, __mmask16(mask), (__m128i)v);
}
#endif

template <class V>
  requires(sizeof(V) == 16)
inline void storeHalves(void* low, void* high, V v) {
  _mm_storel_pi((__m64*)low, (__m128)v), _mm_storeh_pi((__m64*)high, (__m128)v);
}

// --- memory past the caches --------------------------------------------------------------------------------

#define QELJ_STREAM(BYTES, REGISTER, INSTRUCTION)                                                   \
  template <class V>                                                                                \
    requires(sizeof(V) == BYTES)                                                                    \
  QELJ_INLINE void stream(void* p, V v) {                                                           \
    if (reinterpret_cast<uintptr_t>(p) % BYTES == 0) return INSTRUCTION((REGISTER*)p, (REGISTER)v); \
    store(p, v);                                                                                    \
  }
QELJ_STREAM(16, __m128i, _mm_stream_si128)
#ifdef QELJ_HAS_AVX2
QELJ_STREAM(32, __m256i, _mm256_stream_si256)
#endif
#ifdef QELJ_HAS_AVX512
QELJ_STREAM(64, __m512i, _mm512_stream_si512)
#endif
#undef QELJ_STREAM
inline void streamFence() { _mm_sfence(); }

#undef QELJ_LANES2
#undef QELJ_FORM
#undef QELJ_FORM_64
#undef QELJ_FORM_32
#undef QELJ_FORM_16
#undef QELJ_FORM_OF

}  // namespace qelj::simd

#endif
