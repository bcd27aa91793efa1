// Vectors as the language has them: their types, memory, lanes by number, and arithmetic that wraps. Nothing here is an
// instruction of one processor; everything else stands on it.
#ifndef QELJ_FRAME_SIMD_VECTOR_H
#define QELJ_FRAME_SIMD_VECTOR_H

#include <cstdint>
#include <cstring>
#include <limits>
#include <tuple>

#include "frame/arith.h"
#include "frame/simd/family.h"

namespace qelj::simd {

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
// Of 16 bytes in every image.
using U8x16 = Vec<uint8_t, 16>;
using U16x8 = Vec<uint16_t, 16>;
using I16x8 = Vec<int16_t, 16>;
using U32x4 = Vec<uint32_t, 16>;
using I32x4 = Vec<int32_t, 16>;
using F32x4 = Vec<float, 16>;
using U64x2 = Vec<uint64_t, 16>;

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

// --- memory, constants, lanes ------------------------------------------------------------------------------

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

// A 16-byte pattern repeated in every block.
template <class V = U8>
inline V blockPattern(const uint8_t (&pattern)[16]) {
  V v;
  for (int block = 0; block < int(sizeof(V)); block += 16)
    std::memcpy(reinterpret_cast<char*>(&v) + block, pattern, 16);
  return v;
}
// The same for lanes of any type: `lanes` are those of one block.
template <class V>
inline V blockLanes(const Lane<V> (&lanes)[16 / sizeof(Lane<V>)]) {
  V v;
  for (int block = 0; block < int(sizeof(V)); block += 16) std::memcpy(reinterpret_cast<char*>(&v) + block, lanes, 16);
  return v;
}

// --- wrap-around on signed lanes ----------------------------------------------------------------------------

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

// --- several vectors ---------------------------------------------------------------------------------------

template <class V>
struct VectorPair {
  V first, second;
};
template <class V>
struct Triples {
  V c0, c1, c2;
};
template <class V>
struct Quadruples {
  V c0, c1, c2, c3;
};
// As unpackLow and unpackHigh leave them.
template <class V>
struct Halves {
  V low, high;
};
// Of pixels of three bytes, channels 0 and 1 and channels 2 and 1 as pairs of bytes.
template <class V>
struct BytePairs3 {
  Halves<V> c01, c21;
};

// The lanes of a stream of vectors, one place late: of each vector that comes, the lanes one place before.
template <Vector V>
class OneLate;

// How a vector is stored; a caller may have a way of its own.
struct PlainStore {
  template <class V>
  QELJ_INLINE void operator()(void* p, V v) const {
    store(p, v);
  }
};

}  // namespace qelj::simd

#endif
