// Vectors of 16, 32 and 64 bytes, and the few operations on them that codecs need.
//
// A vector is a compiler vector type, so + - * & | ^ ~ << >> and the comparisons (which give a mask of 0 and -1
// lanes) are the language's own. Signed lanes must not overflow: use addWrap, subWrap, mulWrap, or unsigned
// lanes. What the language lacks is here, each operation once, with its processor form and a plain form with the
// same lanes. Operations marked "by blocks" work in each 16 bytes of a vector separately, as processors do.
//
//   kBytes     bytes of this image's natural vector
//   kWideBytes bytes of its widest one: of 64 in the image for AVX-512, else kBytes. A kernel takes it (as Wide<T>) where
//              that gains a fifth or more: short functions and those that shuffle much are as fast with kBytes
//   kEnabled   false in the image that runs every kernel in its scalar form; a kernel's vector loop starts with
//              `if constexpr (simd::kEnabled)`
//   kShuffles  whether byte shuffles and masks are instructions; where they are loops, a kernel that lives on them
//              does better in its scalar form
#ifndef QELJ_FRAME_SIMD_H
#define QELJ_FRAME_SIMD_H

#include <cstdint>
#include <cstring>
#include <limits>
#include <tuple>

#include "frame/arith.h"

#if !defined(QELJ_PORTABLE) && defined(__SSE4_1__)
#  define QELJ_HAS_SSE41 1
// GCC 12 takes the register whose contents don't matter, in its own definitions of 64-byte operations, for a mistake.
#  pragma GCC diagnostic push
#  pragma GCC diagnostic ignored "-Wuninitialized"
#  if !defined(__clang__)
#    pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#  endif
#  include <immintrin.h>
#  pragma GCC diagnostic pop
#else
#  define QELJ_HAS_SSE41 0
#endif
#if !defined(QELJ_PORTABLE) && defined(__AVX2__)
#  define QELJ_HAS_AVX2 1
#else
#  define QELJ_HAS_AVX2 0
#endif
#if !defined(QELJ_PORTABLE) && defined(__AVX512BW__) && defined(__AVX512DQ__) && defined(__AVX512VL__)
#  define QELJ_HAS_AVX512 1
#else
#  define QELJ_HAS_AVX512 0
#endif

namespace qelj::simd {

#if defined(QELJ_SCALAR)
inline constexpr bool kEnabled = false;
#else
inline constexpr bool kEnabled = true;
#endif
inline constexpr bool kShuffles = QELJ_HAS_SSE41;
inline constexpr int kBytes = QELJ_HAS_AVX2 ? 32 : 16;
inline constexpr int kWideBytes = QELJ_HAS_AVX512 ? 64 : kBytes;

template <class T, int Bytes>
struct VecOf {
  typedef T Type __attribute__((vector_size(Bytes)));
};
template <class T, int Bytes = kBytes>
using Vec = typename VecOf<T, Bytes>::Type;

using U8 = Vec<uint8_t>;
using I8 = Vec<int8_t>;
using U16 = Vec<uint16_t>;
using I16 = Vec<int16_t>;
using U32 = Vec<uint32_t>;
using I32 = Vec<int32_t>;
using U64 = Vec<uint64_t>;
using I64 = Vec<int64_t>;
using F32 = Vec<float>;
template <class T>
using Wide = Vec<T, kWideBytes>;
// Of 16 and of 32 bytes in every image.
using U8x16 = Vec<uint8_t, 16>;
using U16x8 = Vec<uint16_t, 16>;
using I16x8 = Vec<int16_t, 16>;
using U32x4 = Vec<uint32_t, 16>;
using I32x4 = Vec<int32_t, 16>;
using F32x4 = Vec<float, 16>;
using U64x2 = Vec<uint64_t, 16>;
using U8x32 = Vec<uint8_t, 32>;
using I16x16 = Vec<int16_t, 32>;
using I32x8 = Vec<int32_t, 32>;
using F32x8 = Vec<float, 32>;

template <class V>
concept Vector = !std::is_scalar_v<V> && requires(V v) {
  v + v;
  v[0];
};
template <Vector V>
using Lane = std::remove_cvref_t<decltype(V{}[0])>;
template <class V>
inline constexpr int kLanes = int(sizeof(V) / sizeof(Lane<V>));
// The vector of V's size with lanes of another type.
template <class T, class V>
using With = Vec<T, int(sizeof(V))>;

// Calls f with the numbers 0 to N - 1 as compile-time constants.
template <int N, class F>
inline void unroll(F&& f) {
  [&]<int... i>(std::integer_sequence<int, i...>) {
    (f(std::integral_constant<int, i>{}), ...);
  }(std::make_integer_sequence<int, N>{});
}

// --- memory, constants, halves -----------------------------------------------------------------------------

using qelj::load, qelj::store;
// Every lane x.
template <Vector V>
inline V all(Lane<V> x) {
  if constexpr (std::is_integral_v<Lane<V>>) return V{} + x;
  else  // a sum would change the sign of -0
    return [x]<int... i>(std::integer_sequence<int, i...>) {
      return V{(void(i), x)...};
    }(std::make_integer_sequence<int, kLanes<V>>{});
}
// The same bits seen as lanes of type T, or as the vector T.
template <class T, Vector V>
inline auto as(V v) {
  if constexpr (Vector<T>) return (T)v;
  else return (With<T, V>)v;
}
namespace detail {
template <class V>
struct LaneArray {
  explicit LaneArray(V v) { store(lanes, v); }
  Lane<V> lanes[kLanes<V>];
};
// Lanes First, First + 1, ... of the lanes of a, then those of b. (By way of memcpy, halves would pass through memory.)
template <int First, class V, int... i>
inline auto consecutive(V a, V b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (First + i)...);
}
// Lanes First, First + Step, ... of the lanes of a, then those of b.
template <int First, int Step, class V, int... i>
inline V everyNth(V a, V b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (First + Step * i)...);
}
template <int First, int Step, class V>
inline V everyNth(V a, V b) {
  return everyNth<First, Step>(a, b, std::make_integer_sequence<int, kLanes<V>>{});
}
// a[First] b[First] a[First + 1] b[First + 1] ...
template <int First, class V, int... i>
inline V interleaved(V a, V b, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(a, b, (First + i / 2 + (i % 2) * kLanes<V>)...);
}
template <int First, class V>
inline V interleaved(V a, V b) {
  return interleaved<First>(a, b, std::make_integer_sequence<int, kLanes<V>>{});
}
// The lanes that the numbers in `lanes` choose in the first blocks of a and b, and likewise in their further blocks.
template <class V, int... lane>
inline V byBlocks(V a, V b, std::integer_sequence<int, lane...> lanes) {
  constexpr int kLane[] = {lane...}, kCount = int(lanes.size());
  return [=]<int... i>(std::integer_sequence<int, i...>) {
    return __builtin_shufflevector(a, b, (kLane[i % kCount] + i / kCount * kCount)...);
  }(std::make_integer_sequence<int, kLanes<V>>{});
}
// f of every lane, by way of arrays, which compilers vectorise where they can't see through lanes.
template <class R, class F, class... V>
inline R mapLanes(F f, V... v) {
  Lane<R> results[kLanes<R>];
  const auto lanes = std::make_tuple(LaneArray<V>(v)...);
  for (int i = 0; i < kLanes<R>; ++i)
    results[i] = std::apply([&](const auto&... a) { return f(a.lanes[i]...); }, lanes);
  return load<R>(results);
}
}  // namespace detail
// GCC makes wide permutations of the plain forms.
template <class V>
inline Vec<Lane<V>, int(sizeof(V)) / 2> lower(V v) {
  using H = Vec<Lane<V>, int(sizeof(V)) / 2>;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (H)_mm512_castsi512_si256((__m512i)v);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (H)_mm256_castsi256_si128((__m256i)v);
#endif
  return detail::consecutive<0>(v, v, std::make_integer_sequence<int, kLanes<H>>{});
}
template <class V>
inline Vec<Lane<V>, int(sizeof(V)) / 2> upper(V v) {
  using H = Vec<Lane<V>, int(sizeof(V)) / 2>;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (H)_mm512_extracti64x4_epi64((__m512i)v, 1);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (H)_mm256_extracti128_si256((__m256i)v, 1);
#endif
  return detail::consecutive<kLanes<H>>(v, v, std::make_integer_sequence<int, kLanes<H>>{});
}
template <class H>
inline Vec<Lane<H>, 2 * int(sizeof(H))> join(H low, H high) {
  using V = Vec<Lane<H>, 2 * int(sizeof(H))>;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(H) == 32) return (V)_mm512_inserti64x4(_mm512_castsi256_si512((__m256i)low), (__m256i)high, 1);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(H) == 16)
    return (V)_mm256_inserti128_si256(_mm256_castsi128_si256((__m128i)low), (__m128i)high, 1);
#endif
  return detail::consecutive<0>(low, high, std::make_integer_sequence<int, kLanes<V>>{});
}

// Converts lane by lane to lanes of type T (widening, narrowing by truncation, integer to float); the vector
// grows or shrinks with the lanes.
template <class T, Vector V>
inline auto convert(V v) {
  using W = Vec<T, int(sizeof(T)) * kLanes<V>>;
#if QELJ_HAS_AVX512
  // Compilers split these in two.
  if constexpr (sizeof(V) == 32 && std::is_integral_v<T> && sizeof(W) == 64) {
    if constexpr (std::is_same_v<Lane<V>, uint8_t>) return (W)_mm512_cvtepu8_epi16((__m256i)v);
    if constexpr (std::is_same_v<Lane<V>, int8_t>) return (W)_mm512_cvtepi8_epi16((__m256i)v);
    if constexpr (std::is_same_v<Lane<V>, uint16_t>) return (W)_mm512_cvtepu16_epi32((__m256i)v);
    if constexpr (std::is_same_v<Lane<V>, int16_t>) return (W)_mm512_cvtepi16_epi32((__m256i)v);
  }
#endif
  return __builtin_convertvector(v, W);
}
// Reads kLanes<V> elements of type From and widens them to V's lanes.
template <class V, class From>
inline V loadAs(const void* p) {
#if QELJ_HAS_SSE41
  // From eight bytes; compilers split these in two.
  if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 2 * sizeof(From)) {
    const __m128i eight = _mm_loadl_epi64(static_cast<const __m128i*>(p));
    if constexpr (std::is_same_v<From, uint8_t>) return (V)_mm_cvtepu8_epi16(eight);
    if constexpr (std::is_same_v<From, int8_t>) return (V)_mm_cvtepi8_epi16(eight);
    if constexpr (std::is_same_v<From, uint16_t>) return (V)_mm_cvtepu16_epi32(eight);
    if constexpr (std::is_same_v<From, int16_t>) return (V)_mm_cvtepi16_epi32(eight);
  }
#endif
  if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 2 * sizeof(From)) {
    using N = Vec<From, 16>;
    N narrow{};
    std::memcpy(&narrow, p, 8);
    if constexpr (std::is_unsigned_v<From>) return as<V>(detail::interleaved<0>(narrow, N{}));
    else return as<V>(detail::interleaved<0>(narrow, narrow)) >> int(8 * sizeof(From));
  }
  return convert<Lane<V>>(load<Vec<From, int(sizeof(From)) * kLanes<V>>>(p));
}

// --- lane-wise operations ----------------------------------------------------------------------------------

// Wrap-around on signed lanes.
template <Vector V>
inline V addWrap(V a, V b) {
  using U = With<std::make_unsigned_t<Lane<V>>, V>;
  return as<V>(as<U>(a) + as<U>(b));
}
template <Vector V>
inline V subWrap(V a, V b) {
  using U = With<std::make_unsigned_t<Lane<V>>, V>;
  return as<V>(as<U>(a) - as<U>(b));
}
template <Vector V>
inline V mulWrap(V a, V b) {
  using U = With<std::make_unsigned_t<Lane<V>>, V>;
  return as<V>(as<U>(a) * as<U>(b));
}
template <Vector V>
inline V shlWrap(V a, int bits) {
  using U = With<std::make_unsigned_t<Lane<V>>, V>;
  return as<V>(as<U>(a) << Lane<U>(bits));
}
template <Vector V>
inline V negWrap(V a) {
  return subWrap(V{}, a);
}

// mask ? a : b, for a mask of whole lanes.
template <Vector M, Vector V>
inline V select(M mask, V a, V b) {
  static_assert(sizeof(M) == sizeof(V));
#if QELJ_HAS_SSE41 && !defined(__AVX512VL__)
  // One blend. Not by its intrinsic, whose bytes are plain chars: GCC 12 folds it away where those are unsigned. With
  // AVX-512 the expression below is one instruction; and GCC 12 gets a blend by an unsigned comparison wrong there.
  using S = With<int8_t, V>;
  if constexpr (sizeof(V) <= kBytes) return as<V>(as<S>(mask) < 0 ? as<S>(a) : as<S>(b));
#endif
  using U = With<uint8_t, V>;
  return as<V>((as<U>(mask) & as<U>(a)) | (~as<U>(mask) & as<U>(b)));
}

// Operations as expressions of whole vectors, from which compilers make instructions of any processor.
namespace plain {
// The even, and the odd, lanes of v in the lanes of W, which are twice as wide.
template <class W, class V>
inline W evenLanes(V v) {
  constexpr int kBits = 8 * sizeof(Lane<V>);
  if constexpr (std::is_unsigned_v<Lane<W>>) return as<W>(v) & std::numeric_limits<Unsigned<Lane<V>>>::max();
  else return shlWrap(as<W>(v), kBits) >> Lane<W>(kBits);
}
template <class W, class V>
inline W oddLanes(V v) {
  return as<W>(v) >> Lane<W>(8 * sizeof(Lane<V>));
}
template <class V>
inline V addSat(V a, V b) {
  const V sum = addWrap(a, b);
  if constexpr (std::is_unsigned_v<Lane<V>>) return sum | as<V>(sum < a);
  else {
    constexpr Lane<V> kMax = std::numeric_limits<Lane<V>>::max();
    return select(as<V>(((a ^ sum) & (b ^ sum)) < 0), as<V>(a < 0) ^ kMax, sum);
  }
}
template <class V>
inline V subSat(V a, V b) {
  const V difference = subWrap(a, b);
  if constexpr (std::is_unsigned_v<Lane<V>>) return difference & as<V>(a > b);
  else {
    constexpr Lane<V> kMax = std::numeric_limits<Lane<V>>::max();
    return select(as<V>(((a ^ b) & (a ^ difference)) < 0), as<V>(a < 0) ^ kMax, difference);
  }
}
// 16-bit lanes from what f makes of the 32-bit products of the even and of the odd ones.
template <class V, class F>
inline V fromProducts(V a, V b, F f) {
  using W = With<std::conditional_t<std::is_signed_v<Lane<V>>, int32_t, uint32_t>, V>;
  const W low = f(evenLanes<W>(a) * evenLanes<W>(b)), high = f(oddLanes<W>(a) * oddLanes<W>(b));
  return as<V>((low & 0xFFFF) | shlWrap(high, 16));
}
template <class V>
inline V mulHi(V a, V b) {
  return fromProducts(a, b, [](auto product) { return product >> 16; });
}
template <class V>
inline V mulHiRound(V a, V b) {
  return fromProducts(a, b, [](auto product) { return ((product >> 14) + 1) >> 1; });
}
template <class V>
inline V average(V a, V b) {
  return (a | b) - ((a ^ b) >> 1);
}
template <class V>
inline V min(V a, V b) {
  return select(as<V>(a < b), a, b);
}
template <class V>
inline V max(V a, V b) {
  return select(as<V>(a > b), a, b);
}
}  // namespace plain

// QELJ_LANES2(name, lane type, operation of the processor). What the processor lacks is done by halves.
#if QELJ_HAS_AVX512
#  define QELJ_LANES2_512(NAME, T, M512) \
    inline Vec<T, 64> NAME(Vec<T, 64> a, Vec<T, 64> b) { return (Vec<T, 64>)M512((__m512i)a, (__m512i)b); }
#else
#  define QELJ_LANES2_512(NAME, T, M512)                               \
    inline Vec<T, 64> NAME(Vec<T, 64> a, Vec<T, 64> b) {               \
      return join(NAME(lower(a), lower(b)), NAME(upper(a), upper(b))); \
    }
#endif
#if QELJ_HAS_AVX2
#  define QELJ_LANES2_256(NAME, T, M256) \
    inline Vec<T, 32> NAME(Vec<T, 32> a, Vec<T, 32> b) { return (Vec<T, 32>)M256((__m256i)a, (__m256i)b); }
#else
#  define QELJ_LANES2_256(NAME, T, M256)                               \
    inline Vec<T, 32> NAME(Vec<T, 32> a, Vec<T, 32> b) {               \
      return join(NAME(lower(a), lower(b)), NAME(upper(a), upper(b))); \
    }
#endif
#if QELJ_HAS_SSE41
#  define QELJ_LANES2_128(NAME, T, M128) \
    inline Vec<T, 16> NAME(Vec<T, 16> a, Vec<T, 16> b) { return (Vec<T, 16>)M128((__m128i)a, (__m128i)b); }
#else
#  define QELJ_LANES2_128(NAME, T, M128) \
    inline Vec<T, 16> NAME(Vec<T, 16> a, Vec<T, 16> b) { return plain::NAME(a, b); }
#endif
#define QELJ_LANES2(NAME, T, OPERATION)        \
  QELJ_LANES2_128(NAME, T, _mm_##OPERATION)    \
  QELJ_LANES2_256(NAME, T, _mm256_##OPERATION) \
  QELJ_LANES2_512(NAME, T, _mm512_##OPERATION)

// Saturating sum and difference.
QELJ_LANES2(addSat, int16_t, adds_epi16)
QELJ_LANES2(addSat, uint16_t, adds_epu16)
QELJ_LANES2(addSat, int8_t, adds_epi8)
QELJ_LANES2(addSat, uint8_t, adds_epu8)
QELJ_LANES2(subSat, int16_t, subs_epi16)
QELJ_LANES2(subSat, uint16_t, subs_epu16)
QELJ_LANES2(subSat, int8_t, subs_epi8)
QELJ_LANES2(subSat, uint8_t, subs_epu8)
// High half of the product; with rounding: (a * b + 2^14) >> 15.
QELJ_LANES2(mulHi, int16_t, mulhi_epi16)
QELJ_LANES2(mulHi, uint16_t, mulhi_epu16)
QELJ_LANES2(mulHiRound, int16_t, mulhrs_epi16)
// (a + b + 1) >> 1 without overflow.
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

// x / kDivisor in unsigned 16-bit lanes of 0 to kMost: by the reciprocal, rounded up.
template <int kDivisor, int kMost, Vector V>
inline V divide(V x) {
  static_assert(std::is_same_v<Lane<V>, uint16_t>);
  constexpr int kReciprocal = 65536 / kDivisor + 1;
  static_assert([] {
    for (int value = 0; value <= kMost; ++value)
      if (value * kReciprocal >> 16 != value / kDivisor) return false;
    return true;
  }());
  return mulHi(x, all<V>(kReciprocal));
}

// The magnitude, wrapping for the most negative value.
template <Vector V>
inline V absWrap(V a) {
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64 && sizeof(Lane<V>) == 2) return (V)_mm512_abs_epi16((__m512i)a);
  if constexpr (sizeof(V) == 64 && sizeof(Lane<V>) == 4) return (V)_mm512_abs_epi32((__m512i)a);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32 && sizeof(Lane<V>) == 2) return (V)_mm256_abs_epi16((__m256i)a);
  if constexpr (sizeof(V) == 32 && sizeof(Lane<V>) == 4) return (V)_mm256_abs_epi32((__m256i)a);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 2) return (V)_mm_abs_epi16((__m128i)a);
  if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 4) return (V)_mm_abs_epi32((__m128i)a);
#endif
  const V sign = a < V{};
  return subWrap(a ^ sign, sign);
}

// Nearest integer, ties to even; lanes outside the 32-bit range and NaN give -2147483648.
template <Vector V>
inline With<int32_t, V> roundToInt(V a) {
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (Vec<int32_t, 64>)_mm512_cvtps_epi32((__m512)a);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (Vec<int32_t, 32>)_mm256_cvtps_epi32((__m256)a);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (Vec<int32_t, 16>)_mm_cvtps_epi32((__m128)a);
#endif
  return detail::mapLanes<With<int32_t, V>>([](float x) { return qelj::roundToInt(x); }, a);
}
// The same, cut towards zero.
template <Vector V>
inline With<int32_t, V> truncateToInt(V a) {
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (Vec<int32_t, 64>)_mm512_cvttps_epi32((__m512)a);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (Vec<int32_t, 32>)_mm256_cvttps_epi32((__m256)a);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (Vec<int32_t, 16>)_mm_cvttps_epi32((__m128)a);
#endif
  return detail::mapLanes<With<int32_t, V>>([](float x) { return qelj::truncateToInt(x); }, a);
}

// --- operations on pairs of lanes --------------------------------------------------------------------------

// a[2i] * b[2i] + a[2i+1] * b[2i+1] in 32 bits (wrapping in the one case of four times -32768).
template <class V>
inline With<int32_t, V> mulAddPairs(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int16_t>);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (Vec<int32_t, 64>)_mm512_madd_epi16((__m512i)a, (__m512i)b);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (Vec<int32_t, 32>)_mm256_madd_epi16((__m256i)a, (__m256i)b);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (Vec<int32_t, 16>)_mm_madd_epi16((__m128i)a, (__m128i)b);
#endif
  using W = With<int32_t, V>;
  using plain::evenLanes, plain::oddLanes;
  return addWrap(evenLanes<W>(a) * evenLanes<W>(b), oddLanes<W>(a) * oddLanes<W>(b));
}
// The pair (even, odd) of 16-bit weights in every pair of lanes.
template <class V = I16>
inline V pairs(int even, int odd) {
  return as<V>(all<With<int32_t, V>>(int32_t(uint32_t(uint16_t(even)) | uint32_t(uint16_t(odd)) << 16)));
}
// a[2i] * b[2i] + a[2i+1] * b[2i+1] of unsigned and signed bytes, saturated to 16 bits.
template <class V>
inline With<int16_t, V> mulAddBytes(V a, With<int8_t, V> b) {
  static_assert(std::is_same_v<Lane<V>, uint8_t>);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (Vec<int16_t, 64>)_mm512_maddubs_epi16((__m512i)a, (__m512i)b);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (Vec<int16_t, 32>)_mm256_maddubs_epi16((__m256i)a, (__m256i)b);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (Vec<int16_t, 16>)_mm_maddubs_epi16((__m128i)a, (__m128i)b);
#endif
  using S = With<int16_t, V>;
  using U = With<uint16_t, V>;
  using plain::evenLanes, plain::oddLanes;
  return addSat(as<S>(evenLanes<U>(a)) * evenLanes<S>(b), as<S>(oddLanes<U>(a)) * oddLanes<S>(b));
}
// a0 + a1, a2 + a3, b0 + b1, b2 + b3 of 32-bit lanes, by blocks, wrapping. With 16-bit values in the halves of the
// lanes, and no carry between them, it adds both halves.
template <class V>
inline V addNeighbours(V a, V b) {
  static_assert(sizeof(Lane<V>) == 4);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64)
    return addWrap((V)_mm512_shuffle_ps((__m512)a, (__m512)b, 0x88), (V)_mm512_shuffle_ps((__m512)a, (__m512)b, 0xDD));
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (V)_mm256_hadd_epi32((__m256i)a, (__m256i)b);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (V)_mm_hadd_epi32((__m128i)a, (__m128i)b);
#endif
  if constexpr (sizeof(V) > 16) return join(addNeighbours(lower(a), lower(b)), addNeighbours(upper(a), upper(b)));
  else return addWrap(detail::everyNth<0, 2>(a, b), detail::everyNth<1, 2>(a, b));
}
// Full 64-bit products of the even 32-bit lanes.
template <class V>
inline auto mulEven(V a, V b) {
  using Wide = std::conditional_t<std::is_signed_v<Lane<V>>, int64_t, uint64_t>;
  using W = With<Wide, V>;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64 && std::is_signed_v<Lane<V>>) return (W)_mm512_mul_epi32((__m512i)a, (__m512i)b);
  if constexpr (sizeof(V) == 64 && !std::is_signed_v<Lane<V>>) return (W)_mm512_mul_epu32((__m512i)a, (__m512i)b);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32 && std::is_signed_v<Lane<V>>) return (W)_mm256_mul_epi32((__m256i)a, (__m256i)b);
  if constexpr (sizeof(V) == 32 && !std::is_signed_v<Lane<V>>) return (W)_mm256_mul_epu32((__m256i)a, (__m256i)b);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16 && std::is_signed_v<Lane<V>>) return (W)_mm_mul_epi32((__m128i)a, (__m128i)b);
  if constexpr (sizeof(V) == 16 && !std::is_signed_v<Lane<V>>) return (W)_mm_mul_epu32((__m128i)a, (__m128i)b);
#endif
  return plain::evenLanes<W>(a) * plain::evenLanes<W>(b);
}
// Sums of |a - b| over every eight bytes, as 64-bit lanes.
template <class V>
inline With<uint64_t, V> sumAbsDiff8(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, uint8_t>);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (Vec<uint64_t, 64>)_mm512_sad_epu8((__m512i)a, (__m512i)b);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (Vec<uint64_t, 32>)_mm256_sad_epu8((__m256i)a, (__m256i)b);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (Vec<uint64_t, 16>)_mm_sad_epu8((__m128i)a, (__m128i)b);
#endif
  using W = With<uint64_t, V>;
  const W d = as<W>(plain::max(a, b) - plain::min(a, b));
  const W pairs = (d & 0x00FF00FF00FF00FF) + (d >> 8 & 0x00FF00FF00FF00FF);
  const W fours = (pairs & 0x0000FFFF0000FFFF) + (pairs >> 16 & 0x0000FFFF0000FFFF);
  return (fours & 0xFFFFFFFF) + (fours >> 32);
}

// --- packing: wide lanes to half as wide, saturated, by blocks ---------------------------------------------
// Each 16-byte block of the result holds that block's lanes of a, then those of b.

namespace plain {
template <class To, class V>
inline With<To, V> pack(V a, V b) {
  using L = Lane<V>;
  using N = With<To, V>;
  const auto narrow = [](V v) {
    return as<N>(max(min(v, all<V>(L(std::numeric_limits<To>::max()))), all<V>(L(std::numeric_limits<To>::min()))));
  };
  return detail::everyNth<0, 2>(narrow(a), narrow(b));  // the low halves, which stand first
}
}  // namespace plain

#if QELJ_HAS_AVX512
#  define QELJ_PACK_512(NAME, FROM, TO, M512) \
    inline Vec<TO, 64> NAME(Vec<FROM, 64> a, Vec<FROM, 64> b) { return (Vec<TO, 64>)M512((__m512i)a, (__m512i)b); }
#else
#  define QELJ_PACK_512(NAME, FROM, TO, M512)                          \
    inline Vec<TO, 64> NAME(Vec<FROM, 64> a, Vec<FROM, 64> b) {        \
      return join(NAME(lower(a), lower(b)), NAME(upper(a), upper(b))); \
    }
#endif
#if QELJ_HAS_AVX2
#  define QELJ_PACK_256(NAME, FROM, TO, M256) \
    inline Vec<TO, 32> NAME(Vec<FROM, 32> a, Vec<FROM, 32> b) { return (Vec<TO, 32>)M256((__m256i)a, (__m256i)b); }
#else
#  define QELJ_PACK_256(NAME, FROM, TO, M256)                          \
    inline Vec<TO, 32> NAME(Vec<FROM, 32> a, Vec<FROM, 32> b) {        \
      return join(NAME(lower(a), lower(b)), NAME(upper(a), upper(b))); \
    }
#endif
#if QELJ_HAS_SSE41
#  define QELJ_PACK_128(NAME, FROM, TO, M128) \
    inline Vec<TO, 16> NAME(Vec<FROM, 16> a, Vec<FROM, 16> b) { return (Vec<TO, 16>)M128((__m128i)a, (__m128i)b); }
#else
#  define QELJ_PACK_128(NAME, FROM, TO, M128) \
    inline Vec<TO, 16> NAME(Vec<FROM, 16> a, Vec<FROM, 16> b) { return plain::pack<TO>(a, b); }
#endif
#define QELJ_PACK(NAME, FROM, TO, OPERATION)        \
  QELJ_PACK_128(NAME, FROM, TO, _mm_##OPERATION)    \
  QELJ_PACK_256(NAME, FROM, TO, _mm256_##OPERATION) \
  QELJ_PACK_512(NAME, FROM, TO, _mm512_##OPERATION)

QELJ_PACK(packU8, int16_t, uint8_t, packus_epi16)
QELJ_PACK(packI8, int16_t, int8_t, packs_epi16)
QELJ_PACK(packI16, int32_t, int16_t, packs_epi32)
QELJ_PACK(packU16, int32_t, uint16_t, packus_epi32)

// --- moving lanes ------------------------------------------------------------------------------------------

// Puts the half blocks of a packed vector in order: behind it, pack's result is a's lanes, then b's.
template <class V>
inline V orderPacked(V v) {
  if constexpr (sizeof(V) == 16) return v;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64)
    return (V)_mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), (__m512i)v);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (V)_mm256_permute4x64_epi64((__m256i)v, 0xD8);
#endif
  if constexpr (sizeof(V) > 16) {
    using Q = With<uint64_t, V>;
    constexpr int kHalf = int(sizeof(V)) / 16;
    const Q q = as<Q>(v);
    Q ordered;
    for (int i = 0; i < kHalf; ++i) ordered[i] = q[2 * i], ordered[kHalf + i] = q[2 * i + 1];
    return as<V>(ordered);
  }
}

// Interleaves the lower (upper) halves of a and b, by blocks: a0 b0 a1 b1 ...
template <class V>
inline V unpackLow(V a, V b) {
#define QELJ_UNPACK(BYTES, PREFIX, REGISTER, WHICH)                     \
  if constexpr (sizeof(V) == BYTES && sizeof(Lane<V>) == 1)             \
    return (V)PREFIX##_unpack##WHICH##_epi8((REGISTER)a, (REGISTER)b);  \
  if constexpr (sizeof(V) == BYTES && sizeof(Lane<V>) == 2)             \
    return (V)PREFIX##_unpack##WHICH##_epi16((REGISTER)a, (REGISTER)b); \
  if constexpr (sizeof(V) == BYTES && sizeof(Lane<V>) == 4)             \
    return (V)PREFIX##_unpack##WHICH##_epi32((REGISTER)a, (REGISTER)b); \
  if constexpr (sizeof(V) == BYTES && sizeof(Lane<V>) == 8)             \
    return (V)PREFIX##_unpack##WHICH##_epi64((REGISTER)a, (REGISTER)b);
#if QELJ_HAS_AVX512
  QELJ_UNPACK(64, _mm512, __m512i, lo)
#endif
#if QELJ_HAS_AVX2
  QELJ_UNPACK(32, _mm256, __m256i, lo)
#endif
#if QELJ_HAS_SSE41
  QELJ_UNPACK(16, _mm, __m128i, lo)
#endif
  if constexpr (sizeof(V) > 16) return join(unpackLow(lower(a), lower(b)), unpackLow(upper(a), upper(b)));
  else return detail::interleaved<0>(a, b);
}
template <class V>
inline V unpackHigh(V a, V b) {
#if QELJ_HAS_AVX512
  QELJ_UNPACK(64, _mm512, __m512i, hi)
#endif
#if QELJ_HAS_AVX2
  QELJ_UNPACK(32, _mm256, __m256i, hi)
#endif
#if QELJ_HAS_SSE41
  QELJ_UNPACK(16, _mm, __m128i, hi)
#endif
  if constexpr (sizeof(V) > 16) return join(unpackHigh(lower(a), lower(b)), unpackHigh(upper(a), upper(b)));
  else return detail::interleaved<kLanes<V> / 2>(a, b);
}
#undef QELJ_UNPACK

// The blocks of a and b in turn: of the lower halves, and of the upper halves. With 16-byte vectors there is one block:
// a itself, and b itself, so that a pair of unpacks followed by a pair of these is in order at any width.
template <class V>
inline V highBlocks(V a, V b);
template <class V>
inline V lowBlocks(V a, V b) {
  if constexpr (sizeof(V) == 16) return a;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64)
    return (V)_mm512_permutex2var_epi64((__m512i)a, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), (__m512i)b);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (V)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x20);
#endif
  if constexpr (sizeof(V) == 64) return join(lowBlocks(lower(a), lower(b)), highBlocks(lower(a), lower(b)));
  else return join(lower(a), lower(b));
}
template <class V>
inline V highBlocks(V a, V b) {
  if constexpr (sizeof(V) == 16) return b;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64)
    return (V)_mm512_permutex2var_epi64((__m512i)a, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), (__m512i)b);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (V)_mm256_permute2x128_si256((__m256i)a, (__m256i)b, 0x31);
#endif
  if constexpr (sizeof(V) == 64) return join(lowBlocks(upper(a), upper(b)), highBlocks(upper(a), upper(b)));
  else return join(upper(a), upper(b));
}

// a0 b0 a1 b1 ... over the whole vector: the first half of the 2n lanes, and the second.
template <class V>
struct VectorPair {
  V first, second;
};
template <class V>
inline VectorPair<V> interleave(V a, V b) {
  const V low = unpackLow(a, b), high = unpackHigh(a, b);
  return {lowBlocks(low, high), highBlocks(low, high)};
}
// The inverse: the even and the odd lanes of 2n consecutive lanes.
template <class V>
inline VectorPair<V> deinterleave(V first, V second) {
#if !QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return {detail::everyNth<0, 2>(first, second), detail::everyNth<1, 2>(first, second)};
#endif
  if constexpr (sizeof(V) == 64 && (sizeof(Lane<V>) == 4 || (QELJ_HAS_AVX512 && sizeof(Lane<V>) == 2))) {
    return {detail::everyNth<0, 2>(first, second), detail::everyNth<1, 2>(first, second)};
  } else if constexpr (sizeof(V) == 32 && sizeof(Lane<V>) == 4) {
    return {orderPacked(__builtin_shufflevector(first, second, 0, 2, 8, 10, 4, 6, 12, 14)),
            orderPacked(__builtin_shufflevector(first, second, 1, 3, 9, 11, 5, 7, 13, 15))};
  } else if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 4) {
    return {__builtin_shufflevector(first, second, 0, 2, 4, 6), __builtin_shufflevector(first, second, 1, 3, 5, 7)};
  } else if constexpr (sizeof(Lane<V>) == 2) {
    // Sign-extended halves fit the saturating pack.
    using W = With<int32_t, V>;
    const W a = as<W>(first), b = as<W>(second);
    return {as<V>(orderPacked(packI16(shlWrap(a, 16) >> 16, shlWrap(b, 16) >> 16))),
            as<V>(orderPacked(packI16(a >> 16, b >> 16)))};
  } else if constexpr (sizeof(Lane<V>) == 1) {
    using W = With<uint16_t, V>;
    using S = With<int16_t, V>;
    const W a = as<W>(first), b = as<W>(second);
    return {as<V>(orderPacked(packU8(as<S>(a & 0xFF), as<S>(b & 0xFF)))),
            as<V>(orderPacked(packU8(as<S>(a >> 8), as<S>(b >> 8))))};
  }
}

namespace plain {
// The 16 bytes that begin kBytesUp in front of v's, behind those of `before`: x86-64 has no other way for whole vectors
// without byte shuffles.
template <int kBytesUp, class V>
inline V movedUp(V before, V v) {
  using Q = Vec<uint64_t, 16>;
  const Q q = as<Q>(v), middle = __builtin_shufflevector(as<Q>(before), q, 1, 2);
  if constexpr (kBytesUp < 8) return as<V>(q << 8 * kBytesUp | middle >> (64 - 8 * kBytesUp));
  else return as<V>(middle << 8 * (kBytesUp - 8) | as<Q>(before) >> (128 - 8 * kBytesUp));
}
}  // namespace plain
// Of lanes that go on from vector to vector: those one place before v's, and those one place after.
template <class V>
inline V oneBefore(V before, V v) {
#if QELJ_HAS_AVX2
#  if defined(__AVX512VL__)
  if constexpr (sizeof(V) == 32 && sizeof(Lane<V>) == 4) return (V)_mm256_alignr_epi32((__m256i)v, (__m256i)before, 7);
#  endif
  if constexpr (sizeof(V) == 32) {
    const __m256i middle = _mm256_permute2x128_si256((__m256i)before, (__m256i)v, 0x21);
    return (V)_mm256_alignr_epi8((__m256i)v, middle, 16 - int(sizeof(Lane<V>)));
  }
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (V)_mm_alignr_epi8((__m128i)v, (__m128i)before, 16 - int(sizeof(Lane<V>)));
#endif
#if defined(__x86_64__)
  if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 4) {  // as floats, whose shuffles take lanes of two vectors
    const auto f = as<float>(v), edge = __builtin_shufflevector(as<float>(before), f, 3, 3, 4, 4);
    return as<V>(__builtin_shufflevector(edge, f, 0, 2, 5, 6));
  }
  if constexpr (sizeof(V) == 16) return plain::movedUp<int(sizeof(Lane<V>))>(before, v);
#endif
  return detail::consecutive<kLanes<V> - 1>(before, v, std::make_integer_sequence<int, kLanes<V>>{});
}
template <class V>
inline V oneAfter(V v, V after) {
#if QELJ_HAS_AVX2
#  if defined(__AVX512VL__)
  if constexpr (sizeof(V) == 32 && sizeof(Lane<V>) == 4) return (V)_mm256_alignr_epi32((__m256i)after, (__m256i)v, 1);
#  endif
  if constexpr (sizeof(V) == 32) {
    const __m256i middle = _mm256_permute2x128_si256((__m256i)v, (__m256i)after, 0x21);
    return (V)_mm256_alignr_epi8(middle, (__m256i)v, int(sizeof(Lane<V>)));
  }
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (V)_mm_alignr_epi8((__m128i)after, (__m128i)v, int(sizeof(Lane<V>)));
#endif
#if defined(__x86_64__)
  if constexpr (sizeof(V) == 16) return plain::movedUp<16 - int(sizeof(Lane<V>))>(v, after);
#endif
  return detail::consecutive<1>(v, after, std::make_integer_sequence<int, kLanes<V>>{});
}

// The lanes of a stream of vectors, one place late: of each vector that comes, the lanes one place before.
template <Vector V>
class OneLate {
#if QELJ_HAS_AVX2 && !defined(__AVX512VL__)
  // A turn by one lane and a blend with the turned vector before it are one shuffle, where oneBefore() takes two.
  static constexpr bool kTurns = sizeof(V) == 32 && sizeof(Lane<V>) == 4;
#else
  static constexpr bool kTurns = false;
#endif
  V kept_{};

 public:
  OneLate() = default;
  explicit OneLate(Lane<V> last) : kept_(all<V>(last)) {}
  QELJ_INLINE V operator()(V v) {
    V before;
    if constexpr (kTurns) {
      const V turned = __builtin_shufflevector(v, v, 7, 0, 1, 2, 3, 4, 5, 6);
      before = __builtin_shufflevector(turned, kept_, 8, 1, 2, 3, 4, 5, 6, 7);
      kept_ = turned;
    } else {
      before = oneBefore(kept_, v);
      kept_ = v;
    }
    return before;
  }
};

// The even lanes of a and the odd ones of b.
template <class V>
inline V evenAndOdd(V a, V b) {
  return [=]<int... i>(std::integer_sequence<int, i...>) {
    return __builtin_shufflevector(a, b, (i % 2 * kLanes<V> + i)...);
  }(std::make_integer_sequence<int, kLanes<V>>{});
}

// The lanes A and B of a, then C and D of b, of 32 bits and by blocks.
template <int A, int B, int C, int D, class V>
inline V shuffleTwo4(V a, V b) {
  static_assert(sizeof(Lane<V>) == 4);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (V)_mm512_shuffle_ps((__m512)a, (__m512)b, A | B << 2 | C << 4 | D << 6);
#endif
#if QELJ_HAS_AVX2
  // Compilers take three instructions for whole numbers, to stay clear of the float unit.
  if constexpr (sizeof(V) == 32) return (V)_mm256_shuffle_ps((__m256)a, (__m256)b, A | B << 2 | C << 4 | D << 6);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (V)_mm_shuffle_ps((__m128)a, (__m128)b, A | B << 2 | C << 4 | D << 6);
#endif
  if constexpr (sizeof(V) == 16) return __builtin_shufflevector(a, b, A, B, C + 4, D + 4);
  else return detail::byBlocks(a, b, std::integer_sequence<int, A, B, C + kLanes<V>, D + kLanes<V>>{});
}

// r[i] = v[index[i] & 15] of the same block, or 0 where the index has its top bit set.
template <class V>
inline V shuffleBytes(V v, V index) {
  static_assert(std::is_same_v<Lane<V>, uint8_t>);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (V)_mm512_shuffle_epi8((__m512i)v, (__m512i)index);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (V)_mm256_shuffle_epi8((__m256i)v, (__m256i)index);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return (V)_mm_shuffle_epi8((__m128i)v, (__m128i)index);
  if constexpr (sizeof(V) > 16) return join(shuffleBytes(lower(v), lower(index)), shuffleBytes(upper(v), upper(index)));
#endif
  uint8_t bytes[sizeof(V)], places[sizeof(V)], results[sizeof(V)];
  store(bytes, v), store(places, index & 15);
  for (int i = 0; i < int(sizeof(V)); ++i) results[i] = bytes[i / 16 * 16 + places[i]];
  return load<V>(results) & as<V>(index < 0x80);
}
// The lanes moved up by kMove within 16 bytes, zeros in front.
template <int kMove, class V>
inline V moveUp(V v) {
  static_assert(sizeof(V) == 16);
  return detail::consecutive<kLanes<V> - kMove>(V{}, v, std::make_integer_sequence<int, kLanes<V>>{});
}
// The 32-bit lanes A, B, C, D of each block, in this order.
template <int A, int B, int C, int D, class V>
inline V shuffle4(V v) {
  static_assert(sizeof(Lane<V>) == 4);
  return detail::byBlocks(v, v, std::integer_sequence<int, A, B, C, D>{});
}
// The 16-bit lanes A to H of each block, in this order.
template <int A, int B, int C, int D, int E, int F, int G, int H, class V>
inline V shuffle8(V v) {
  static_assert(sizeof(Lane<V>) == 2);
  return detail::byBlocks(v, v, std::integer_sequence<int, A, B, C, D, E, F, G, H>{});
}
// A 16-byte pattern repeated in every block.
template <class V = U8>
inline V blockPattern(const uint8_t (&pattern)[16]) {
  V v;
  for (int block = 0; block < int(sizeof(V)); block += 16)
    std::memcpy(reinterpret_cast<char*>(&v) + block, pattern, 16);
  return v;
}
// The even and the odd ones of the 2n lanes at p. The blocks are put in order as they are loaded, where that is cheaper.
template <class V>
inline VectorPair<V> loadPairs(const void* p) {
  if constexpr (!kShuffles || sizeof(Lane<V>) == 1 || sizeof(V) > kBytes) {
    return deinterleave(load<V>(p), load<V>(static_cast<const char*>(p) + sizeof(V)));
  } else {
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
}

// The inverse: a0 b0 a1 b1 ... at p. Stores of blocks in order save shuffles; 16-bit lanes have too little work between
// them for twice the stores.
template <class V>
inline void storePairs(void* p, V a, V b) {
  auto* const to = static_cast<char*>(p);
  if constexpr (sizeof(V) == 32 && sizeof(Lane<V>) == 4) {
    const V low = unpackLow(a, b), high = unpackHigh(a, b);
    store(to, lower(low)), store(to + 16, lower(high));
    store(to + 32, upper(low)), store(to + 48, upper(high));
  } else {
    const auto pair = interleave(a, b);
    store(to, pair.first), store(to + sizeof(V), pair.second);
  }
}

// The same for lanes of any type: `lanes` are those of one block.
template <class V>
inline V blockLanes(const Lane<V> (&lanes)[16 / sizeof(Lane<V>)]) {
  V v;
  for (int block = 0; block < int(sizeof(V)); block += 16) std::memcpy(reinterpret_cast<char*>(&v) + block, lanes, 16);
  return v;
}
// 16 bytes in every block.
template <class V = U8>
inline V repeatBlock(Vec<Lane<V>, 16> block) {
  if constexpr (sizeof(V) == 16) return block;
  else if constexpr (sizeof(V) == 32) return join(block, block);
  else return join(join(block, block), join(block, block));
}
// r[i] = v[index[i] & 3] of the same block: one of its four 32-bit lanes.
template <class V>
inline V pickLanes(V v, V index) {
  static_assert(std::is_same_v<Lane<V>, uint32_t>);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return (V)_mm512_permutevar_ps((__m512)v, (__m512i)index);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return (V)_mm256_permutevar_ps((__m256)v, (__m256i)index);
  if constexpr (sizeof(V) == 16) return (V)_mm_permutevar_ps((__m128)v, (__m128i)index);
#endif
  uint32_t lanes[kLanes<V>], places[kLanes<V>], results[kLanes<V>];
  store(lanes, v), store(places, index & 3);
  for (int i = 0; i < kLanes<V>; ++i) results[i] = lanes[i / 4 * 4 + int(places[i])];
  return load<V>(results);
}

// --- facts about a vector ----------------------------------------------------------------------------------

// The top bits of all bytes, byte 0 in bit 0; of 64 bytes as 64 bits.
template <class V>
inline auto topBits(V v) {
  using Bits = std::conditional_t<sizeof(V) == 64, uint64_t, uint32_t>;
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return Bits(_mm512_movepi8_mask((__m512i)v));
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return Bits(_mm256_movemask_epi8((__m256i)v));
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return Bits(_mm_movemask_epi8((__m128i)v));
  if constexpr (sizeof(V) > 16) return Bits(topBits(lower(v)) | Bits(topBits(upper(v))) << (sizeof(V) / 2));
#endif
  uint64_t words[sizeof(V) / 8];
  store(words, v);
  Bits bits = 0;
  for (int i = 0; i < int(sizeof(V)) / 8; ++i)  // the product gathers byte i's bit at 56 + i
    bits |= Bits((words[i] >> 7 & 0x0101010101010101) * 0x0102040810204080 >> 56) << (8 * i);
  return bits;
}
template <class V>
inline bool isZero(V v) {
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) return _mm512_test_epi64_mask((__m512i)v, (__m512i)v) == 0;
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32) return _mm256_testz_si256((__m256i)v, (__m256i)v);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16) return _mm_testz_si128((__m128i)v, (__m128i)v);
#endif
  const auto words = as<uint64_t>(v);
  uint64_t any = 0;
  for (int i = 0; i < int(sizeof(V)) / 8; ++i) any |= words[i];
  return any == 0;
}

// --- bits of a word ----------------------------------------------------------------------------------------

// The low bits of `bits`, in order, at the places where `mask` has ones.
inline uint64_t depositBits(uint64_t bits, uint64_t mask) {
#if QELJ_HAS_AVX2 && defined(__BMI2__)
  return _pdep_u64(bits, mask);
#else
  uint64_t result = 0;
  for (; mask; mask &= mask - 1, bits >>= 1) result |= mask & (0 - mask) & (0 - (bits & 1));
  return result;
#endif
}

// --- pixels of three and four bytes ------------------------------------------------------------------------
// As many pixels as a vector has lanes, between interleaved memory and one vector a channel.

template <class V>
struct Triples {
  V c0, c1, c2;
};
template <class V>
struct Quadruples {
  V c0, c1, c2, c3;
};

namespace detail {
// Bytes of channel `channel` within 16-byte part `part` of 48 bytes of three-channel pixels, and the inverse map.
struct Shuffle3 {
  uint8_t split[3][3][16];  // [channel][part]: which byte of the part each byte of the channel is, or 0x80
  uint8_t merge[3][3][16];  // [part][channel]: which byte of the channel each byte of the part is, or 0x80
};
constexpr Shuffle3 makeShuffle3(int sampleBytes) {
  Shuffle3 s{};
  for (int c = 0; c < 3; ++c)
    for (int part = 0; part < 3; ++part)
      for (int i = 0; i < 16; ++i) {
        const int from = (3 * (i / sampleBytes) + c) * sampleBytes + i % sampleBytes - 16 * part;
        const int sample = (16 * part + i) / sampleBytes, byte = (16 * part + i) % sampleBytes;
        s.split[c][part][i] = uint8_t(from >= 0 && from < 16 ? from : 0x80);
        s.merge[part][c][i] = uint8_t(sample % 3 == c ? sample / 3 * sampleBytes + byte : 0x80);
      }
  return s;
}
template <class T>
inline constexpr Shuffle3 kShuffle3 = makeShuffle3(int(sizeof(T)));

// The 16 bytes at p, p + kApart, ... in the blocks of a vector.
template <class V, int kApart>
QELJ_INLINE V gatherBlocks(const uint8_t* p) {
  if constexpr (sizeof(V) == 16) return load<V>(p);
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64) {  // masked, a broadcast is a load and a blend
    const auto block = [p](int i) QELJ_INLINE_LAMBDA { return _mm_loadu_si128((const __m128i_u*)(p + kApart * i)); };
    __m512i v = _mm512_castsi128_si512(block(0));
    v = _mm512_mask_broadcast_i32x4(v, 0x00F0, block(1));
    v = _mm512_mask_broadcast_i32x4(v, 0x0F00, block(2));
    return (V)_mm512_mask_broadcast_i32x4(v, 0xF000, block(3));
  }
#endif
  if constexpr (sizeof(V) > 16) {
    using H = Vec<Lane<V>, int(sizeof(V)) / 2>;
    return join(gatherBlocks<H, kApart>(p), gatherBlocks<H, kApart>(p + sizeof(V) / 32 * kApart));
  }
}
// Three vectors whose block b holds bytes 16p..16p+15 (p = 0, 1, 2) of the b-th 48 bytes.
template <class V>
QELJ_INLINE Triples<V> loadParts3(const uint8_t* p) {
  return {gatherBlocks<V, 48>(p), gatherBlocks<V, 48>(p + 16), gatherBlocks<V, 48>(p + 32)};
}
template <class V, class Store>
QELJ_INLINE void storeParts3(uint8_t* p, Triples<V> v, Store put) {
  if constexpr (sizeof(V) == 16) {
    put(p, v.c0), put(p + 16, v.c1), put(p + 32, v.c2);
  } else if constexpr (sizeof(V) == 32) {
    put(p, lowBlocks(v.c0, v.c1)), put(p + 32, join(lower(v.c2), upper(v.c0))), put(p + 64, highBlocks(v.c1, v.c2));
  } else {
    using Q = With<uint64_t, V>;
    const Q a = as<uint64_t>(v.c0), b = as<uint64_t>(v.c1), c = as<uint64_t>(v.c2);
    const Q ab = __builtin_shufflevector(a, b, 0, 1, 8, 9, 0, 1, 2, 3);  // of each vector two channels, then the third
    const Q bc = __builtin_shufflevector(b, c, 2, 3, 10, 11, 0, 1, 4, 5);
    const Q ca = __builtin_shufflevector(c, a, 4, 5, 14, 15, 0, 1, 6, 7);
    put(p, __builtin_shufflevector(ab, c, 0, 1, 2, 3, 8, 9, 6, 7));
    put(p + 64, __builtin_shufflevector(bc, a, 0, 1, 2, 3, 12, 13, 6, 7));
    put(p + 128, __builtin_shufflevector(ca, b, 0, 1, 2, 3, 14, 15, 6, 7));
  }
}
}  // namespace detail

// How a vector is stored; a caller may have a way of its own.
struct PlainStore {
  template <class V>
  QELJ_INLINE void operator()(void* p, V v) const {
    store(p, v);
  }
};

template <class V>
QELJ_INLINE Triples<V> loadTriples(const void* p) {
  if constexpr (!kShuffles) {
    Lane<V> lanes[3][kLanes<V>];
    for (int i = 0; i < kLanes<V>; ++i)
      for (int c = 0; c < 3; ++c) lanes[c][i] = at(static_cast<const Lane<V>*>(p), 3 * i + c);
    return {load<V>(lanes[0]), load<V>(lanes[1]), load<V>(lanes[2])};
  }
  using B = With<uint8_t, V>;
  const auto parts = detail::loadParts3<B>(static_cast<const uint8_t*>(p));
  const auto channel = [&](int c) QELJ_INLINE_LAMBDA {
    const auto& s = detail::kShuffle3<Lane<V>>.split[c];
    return as<V>(shuffleBytes(parts.c0, blockPattern<B>(s[0])) | shuffleBytes(parts.c1, blockPattern<B>(s[1])) |
                 shuffleBytes(parts.c2, blockPattern<B>(s[2])));
  };
  return {channel(0), channel(1), channel(2)};
}
template <class V, class Store = PlainStore>
QELJ_INLINE void storeTriples(void* p, Triples<V> v, Store put = {}) {
  using B = With<uint8_t, V>;
  if constexpr (!kShuffles) {
    const detail::LaneArray<V> channels[3] = {detail::LaneArray<V>(v.c0), detail::LaneArray<V>(v.c1),
                                              detail::LaneArray<V>(v.c2)};
    Lane<V> lanes[3 * kLanes<V>];
    for (int i = 0; i < kLanes<V>; ++i)
      for (int c = 0; c < 3; ++c) lanes[3 * i + c] = channels[c].lanes[i];
    const auto* bytes = reinterpret_cast<const uint8_t*>(lanes);
    return detail::storeParts3(static_cast<uint8_t*>(p), detail::loadParts3<B>(bytes), put);
  }
  const auto part = [&](int i) QELJ_INLINE_LAMBDA {
    const auto& s = detail::kShuffle3<Lane<V>>.merge[i];
    return shuffleBytes(as<B>(v.c0), blockPattern<B>(s[0])) | shuffleBytes(as<B>(v.c1), blockPattern<B>(s[1])) |
           shuffleBytes(as<B>(v.c2), blockPattern<B>(s[2]));
  };
  detail::storeParts3(static_cast<uint8_t*>(p), Triples<B>{part(0), part(1), part(2)}, put);
}
// Triples of bytes, clamped, from 16-bit lanes that stand as unpackLow and unpackHigh leave them: two channels are packed
// into one vector where each half of the pixels needs both, which spares shuffles.
template <class V>
struct Halves {
  V low, high;
};
namespace detail {
struct MergeWords3 {
  uint8_t low[3][16], high[3][16], last[3][16];  // [part]: from channels 0 and 1 of either half, from channel 2
};
inline constexpr MergeWords3 kMergeWords3 = [] {
  MergeWords3 m{};
  for (int i = 0; i < 48; ++i) {
    const int pixel = i / 3, channel = i % 3, part = i / 16, byte = i % 16;
    const auto place = uint8_t(pixel % 8 + 8 * channel);
    m.low[part][byte] = channel < 2 && pixel < 8 ? place : 0x80;
    m.high[part][byte] = channel < 2 && pixel >= 8 ? place : 0x80;
    m.last[part][byte] = channel == 2 ? uint8_t(pixel) : 0x80;
  }
  return m;
}();
}  // namespace detail
template <class V, class Store = PlainStore>
QELJ_INLINE void storeTriplesClamped(uint8_t* p, Halves<V> c0, Halves<V> c1, Halves<V> c2, Store put = {}) {
  using B = With<uint8_t, V>;
  const auto& m = detail::kMergeWords3;
  const B last = packU8(c2.low, c2.high);
  if constexpr (!kShuffles) {
    storeTriples<B>(p, {packU8(c0.low, c0.high), packU8(c1.low, c1.high), last}, put);
  } else {
    const B low = packU8(c0.low, c1.low), high = packU8(c0.high, c1.high);
    const auto from = [](B v, const uint8_t(&places)[16])
                          QELJ_INLINE_LAMBDA { return shuffleBytes(v, blockPattern<B>(places)); };
    const Triples<B> parts{from(low, m.low[0]) | from(last, m.last[0]),
                           from(low, m.low[1]) | from(high, m.high[1]) | from(last, m.last[1]),
                           from(high, m.high[2]) | from(last, m.last[2])};
    detail::storeParts3(p, parts, put);
  }
}

// Of pixels of three bytes, channels 0 and 1 and channels 2 and 1 as pairs of bytes, half of a block's pixels each: as
// unpackLow and unpackHigh would leave them, of fewer shuffles.
template <class V>
struct BytePairs3 {
  Halves<V> c01, c21;
};
namespace detail {
struct SplitPairs3 {
  uint8_t places[2][2][3][16];  // [c01, c21][half][part]: which byte of the part each byte is, or 0x80
};
inline constexpr SplitPairs3 kSplitPairs3 = [] {
  SplitPairs3 s{};
  for (int pair = 0; pair < 2; ++pair)
    for (int half = 0; half < 2; ++half)
      for (int part = 0; part < 3; ++part)
        for (int i = 0; i < 16; ++i) {
          const int from = 3 * (8 * half + i / 2) + (i % 2 ? 1 : 2 * pair) - 16 * part;
          s.places[pair][half][part][i] = uint8_t(from >= 0 && from < 16 ? from : 0x80);
        }
  return s;
}();
}  // namespace detail
template <class V>
QELJ_INLINE BytePairs3<V> loadBytePairs3(const uint8_t* p) {
  const auto parts = detail::loadParts3<V>(p);
  const auto pairs = [&](int pair) QELJ_INLINE_LAMBDA {
    const auto& s = detail::kSplitPairs3.places[pair];
    return Halves<V>{
        shuffleBytes(parts.c0, blockPattern<V>(s[0][0])) | shuffleBytes(parts.c1, blockPattern<V>(s[0][1])),
        shuffleBytes(parts.c1, blockPattern<V>(s[1][1])) | shuffleBytes(parts.c2, blockPattern<V>(s[1][2]))};
  };
  return {pairs(0), pairs(1)};
}

// Of bytes.
template <class V>
QELJ_INLINE Quadruples<V> loadQuadruples(const uint8_t* p) {
  if constexpr (!kShuffles) {
    const auto channel = [p](int c) QELJ_INLINE_LAMBDA {
      using W = With<uint32_t, V>;
      const auto quarter = [&](int i) { return as<int32_t>(load<W>(p + int(sizeof(V)) * i) >> 8 * c & 0xFF); };
      const auto half = [&](int i) { return orderPacked(packI16(quarter(i), quarter(i + 1))); };
      return orderPacked(packU8(half(0), half(2)));
    };
    return {channel(0), channel(1), channel(2), channel(3)};
  }
  // Part i: four pixels of each block, as four bytes of each channel. A block's pixels are neighbours.
  const auto part = [p](int i) QELJ_INLINE_LAMBDA {
    constexpr uint8_t kByChannel[16] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
    return as<uint32_t>(shuffleBytes(detail::gatherBlocks<V, 64>(p + 16 * i), blockPattern<V>(kByChannel)));
  };
  const auto p0 = part(0), p1 = part(1), p2 = part(2), p3 = part(3);
  const auto low01 = as<uint64_t>(unpackLow(p0, p1)), low23 = as<uint64_t>(unpackLow(p2, p3));      // channels 0 and 1
  const auto high01 = as<uint64_t>(unpackHigh(p0, p1)), high23 = as<uint64_t>(unpackHigh(p2, p3));  // channels 2 and 3
  return {as<V>(unpackLow(low01, low23)), as<V>(unpackHigh(low01, low23)), as<V>(unpackLow(high01, high23)),
          as<V>(unpackHigh(high01, high23))};
}
template <class V, class Store = PlainStore>
QELJ_INLINE void storeQuadruples(uint8_t* p, Quadruples<V> v, Store put = {}) {
  constexpr int kVector = int(sizeof(V));
  const auto low01 = as<uint16_t>(unpackLow(v.c0, v.c1)), high01 = as<uint16_t>(unpackHigh(v.c0, v.c1));
  const auto low23 = as<uint16_t>(unpackLow(v.c2, v.c3)), high23 = as<uint16_t>(unpackHigh(v.c2, v.c3));
  // Part i: pixels 4i..4i+3 of each block.
  const auto p0 = unpackLow(low01, low23), p1 = unpackHigh(low01, low23);
  const auto p2 = unpackLow(high01, high23), p3 = unpackHigh(high01, high23);
  if constexpr (kVector == 16) {
    put(p, p0), put(p + 16, p1), put(p + 32, p2), put(p + 48, p3);
  } else if constexpr (kVector == 32) {
    put(p, lowBlocks(p0, p1)), put(p + 32, lowBlocks(p2, p3));
    put(p + 64, highBlocks(p0, p1)), put(p + 96, highBlocks(p2, p3));
  } else {
    // Blocks of two parts in turn, as pairs of blocks: those of the two pairs of parts in turn.
    const auto a = as<uint64_t>(lowBlocks(p0, p1)), b = as<uint64_t>(lowBlocks(p2, p3));
    const auto c = as<uint64_t>(highBlocks(p0, p1)), d = as<uint64_t>(highBlocks(p2, p3));
    put(p, __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11));
    put(p + 64, __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15));
    put(p + 128, __builtin_shufflevector(c, d, 0, 1, 2, 3, 8, 9, 10, 11));
    put(p + 192, __builtin_shufflevector(c, d, 4, 5, 6, 7, 12, 13, 14, 15));
  }
}

// --- the beginning of a vector in memory -------------------------------------------------------------------

// The first `count` lanes, 0 to all, of a vector in memory; the others are 0, and nothing is touched behind.
template <class V>
QELJ_INLINE V loadFirst(const void* p, int count) {
  const int bytes = count * int(sizeof(Lane<V>));
#if QELJ_HAS_AVX512
  const uint64_t mask = _bzhi_u64(~uint64_t(0), unsigned(bytes));
  if constexpr (sizeof(V) == 64) return (V)_mm512_maskz_loadu_epi8(mask, p);
  if constexpr (sizeof(V) == 32) return (V)_mm256_maskz_loadu_epi8(__mmask32(mask), p);
  if constexpr (sizeof(V) == 16) return (V)_mm_maskz_loadu_epi8(__mmask16(mask), p);
#endif
  const auto* from = static_cast<const uint8_t*>(p);
  if constexpr (sizeof(V) > 16) {
    using H = Vec<Lane<V>, int(sizeof(V)) / 2>;
    constexpr int kHalf = kLanes<H>;
    return count <= kHalf ? join(loadFirst<H>(from, count), H{})
                          : join(load<H>(from), loadFirst<H>(from + sizeof(H), count - kHalf));
  } else {
    // Two loads that overlap: what they share is the same in both. In registers, for a vector can't be loaded from what
    // has just been stored in pieces.
    if (bytes == 16) return load<V>(from);
    uint64_t low = 0, high = 0;
    if (bytes >= 8) {
      low = load<uint64_t>(from);
      high = load<uint64_t>(from + bytes - 8) >> (8 * (15 - bytes)) >> 8;
    } else if (bytes >= 4) {
      low = load<uint32_t>(from) | uint64_t(load<uint32_t>(from + bytes - 4)) << (8 * (bytes - 4));
    } else if (bytes >= 2) {
      low = load<uint16_t>(from) | uint64_t(load<uint16_t>(from + bytes - 2)) << (8 * (bytes - 2));
    } else if (bytes == 1) {
      low = *from;
    }
    return as<V>(U64x2{low, high});
  }
}
template <class V>
QELJ_INLINE void storeFirst(void* p, V v, int count) {
  const int bytes = count * int(sizeof(Lane<V>));
#if QELJ_HAS_AVX512
  const uint64_t mask = _bzhi_u64(~uint64_t(0), unsigned(bytes));
  if constexpr (sizeof(V) == 64) return _mm512_mask_storeu_epi8(p, mask, (__m512i)v);
  if constexpr (sizeof(V) == 32) return _mm256_mask_storeu_epi8(p, __mmask32(mask), (__m256i)v);
  if constexpr (sizeof(V) == 16) return _mm_mask_storeu_epi8(p, __mmask16(mask), (__m128i)v);
#endif
  auto* to = static_cast<uint8_t*>(p);
  if constexpr (sizeof(V) < 16) {
    storeFirst(to, join(v, V{}), count);
  } else if constexpr (sizeof(V) > 16) {
    constexpr int kHalf = kLanes<V> / 2;
    if (count <= kHalf) return storeFirst(to, lower(v), count);
    store(to, lower(v));
    storeFirst(to + sizeof(V) / 2, upper(v), count - kHalf);
  } else {
    // Two stores that overlap.
    if (bytes == 16) return store(to, v);
    const auto words = as<uint64_t>(v);
    uint64_t low = words[0];
    if (bytes >= 8) {
      store(to, low);
      low = low >> (8 * (bytes - 8)) | words[1] << (8 * (15 - bytes)) << 8;
      store(to + bytes - 8, low);
    } else if (bytes >= 4) {
      store(to, uint32_t(low)), store(to + bytes - 4, uint32_t(low >> (8 * (bytes - 4))));
    } else if (bytes >= 2) {
      store(to, uint16_t(low)), store(to + bytes - 2, uint16_t(low >> (8 * (bytes - 2))));
    } else if (bytes == 1) {
      *to = uint8_t(low);
    }
  }
}

// The halves of 16 bytes to two places: the upper one goes there without a shift.
template <class V>
inline void storeHalves(void* low, void* high, V v) {
  static_assert(sizeof(V) == 16);
#if QELJ_HAS_SSE41
  _mm_storel_pi((__m64*)low, (__m128)v), _mm_storeh_pi((__m64*)high, (__m128)v);
#else
  store(low, lower(v)), store(high, upper(v));
#endif
}

// Copies `count` bytes, 0 to kAll, with zeros behind them up to kAll; and without them. kAll is a multiple of kWideBytes.
template <int kAll>
QELJ_INLINE void copyPadded(uint8_t* to, const uint8_t* from, int count) {
  using V = Wide<uint8_t>;
  unroll<kAll / kWideBytes>([=](auto i) QELJ_INLINE_LAMBDA {
    const int left = count - i * kWideBytes;
    const V v =
        left >= kWideBytes ? load<V>(from + i * kWideBytes) : loadFirst<V>(from + i * kWideBytes, left > 0 ? left : 0);
    store(to + i * kWideBytes, v);
  });
}
template <int kAll>
QELJ_INLINE void copyFirst(uint8_t* to, const uint8_t* from, int count) {
  using V = Wide<uint8_t>;
  unroll<kAll / kWideBytes>([=](auto i) QELJ_INLINE_LAMBDA {
    const int left = count - i * kWideBytes;
    if (left >= kWideBytes) store(to + i * kWideBytes, load<V>(from + i * kWideBytes));
    else if (left > 0) storeFirst(to + i * kWideBytes, load<V>(from + i * kWideBytes), left);
  });
}

// --- memory past the caches --------------------------------------------------------------------------------

// Stores past the caches where p is aligned to the vector. Other threads see the stores behind a streamFence.
template <class V>
QELJ_INLINE void stream(void* p, V v) {
#if QELJ_HAS_AVX512
  if constexpr (sizeof(V) == 64)
    if (reinterpret_cast<uintptr_t>(p) % 64 == 0) return _mm512_stream_si512((__m512i*)p, (__m512i)v);
#endif
#if QELJ_HAS_AVX2
  if constexpr (sizeof(V) == 32)
    if (reinterpret_cast<uintptr_t>(p) % 32 == 0) return _mm256_stream_si256((__m256i*)p, (__m256i)v);
#endif
#if QELJ_HAS_SSE41
  if constexpr (sizeof(V) == 16)
    if (reinterpret_cast<uintptr_t>(p) % 16 == 0) return _mm_stream_si128((__m128i*)p, (__m128i)v);
#endif
  store(p, v);
}
inline void streamFence() {
#if QELJ_HAS_SSE41
  _mm_sfence();
#endif
}

// Calls for the cache lines of so many bytes at p, for a loop to come that does little but store there.
inline void prefetchForWriting(void* p, ptrdiff_t bytes) {
  constexpr ptrdiff_t kLine = 64;
  for (ptrdiff_t i = 0; i < bytes; i += kLine) __builtin_prefetch(static_cast<char*>(p) + i, 1);
}

// --- loops -------------------------------------------------------------------------------------------------

// Calls group(x) for vectors of kGroup elements that together cover first..end-1; the last one overlaps the one
// before it. Returns the first element that is not done: `end`, or `first` when there are too few for a vector. For
// kernels whose result doesn't depend on what they write.
template <int kGroup = kBytes, class Group>
QELJ_INLINE ptrdiff_t coverByVectors(ptrdiff_t first, ptrdiff_t end, Group&& group) {
  if (!kEnabled || end - first < kGroup) return first;
  ptrdiff_t x = first;
  for (; x <= end - kGroup; x += kGroup) group(x);
  if (x < end) group(end - kGroup);
  return end;
}

// The same with the widest vectors of bytes that fit: group(V(), x).
template <class Group>
QELJ_INLINE ptrdiff_t coverByWidest(ptrdiff_t first, ptrdiff_t end, Group&& group) {
  const auto cover = [&]<class V>(V) QELJ_INLINE_LAMBDA {
    return coverByVectors<int(sizeof(V))>(first, end, [&](ptrdiff_t x) QELJ_INLINE_LAMBDA { group(V(), x); });
  };
  const ptrdiff_t x = cover(Wide<uint8_t>());
  return kWideBytes == kBytes || x > first ? x : cover(U8());
}

}  // namespace qelj::simd

#endif
