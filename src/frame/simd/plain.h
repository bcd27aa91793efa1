// The operations' definitions, in the language alone: what they mean, and how a processor runs them that has no form of
// its own. Compilers make instructions of any processor of these expressions.
#ifndef QELJ_FRAME_SIMD_PLAIN_H
#define QELJ_FRAME_SIMD_PLAIN_H

#include "frame/simd/vector.h"
// The processor's forms, which stand in front so that the definitions see them.
#ifdef QELJ_SIMD_FORMS
#  include QELJ_SIMD_FORMS
#endif

namespace qelj::simd {

// Wider than what the processor has forms for.
template <class V>
inline constexpr bool kTooWide = kShuffles && sizeof(V) > kWideBytes;
template <class V>
inline constexpr bool kSplit = kSplits && kTooWide<V>;

// --- halves, conversions -----------------------------------------------------------------------------------

template <class V>
inline Vec<Lane<V>, int(sizeof(V)) / 2> lower(V v) {
  using H = Vec<Lane<V>, int(sizeof(V)) / 2>;
  return detail::consecutive<0>(v, v, std::make_integer_sequence<int, kLanes<H>>{});
}
template <class V>
inline Vec<Lane<V>, int(sizeof(V)) / 2> upper(V v) {
  using H = Vec<Lane<V>, int(sizeof(V)) / 2>;
  return detail::consecutive<kLanes<H>>(v, v, std::make_integer_sequence<int, kLanes<H>>{});
}
template <class H>
inline Vec<Lane<H>, 2 * int(sizeof(H))> join(H low, H high) {
  using V = Vec<Lane<H>, 2 * int(sizeof(H))>;
  return detail::consecutive<0>(low, high, std::make_integer_sequence<int, kLanes<V>>{});
}

// Converts lane by lane to lanes of type T (widening, narrowing by truncation, integer to float); the vector
// grows or shrinks with the lanes.
template <class T, Vector V>
inline auto convert(V v) {
  using W = Vec<T, int(sizeof(T)) * kLanes<V>>;
  if constexpr (kSplit<W> || kSplit<V>) return join(convert<T>(lower(v)), convert<T>(upper(v)));
  else return __builtin_convertvector(v, W);
}
// Reads kLanes<V> elements of type From and widens them to V's lanes.
template <class V, class From>
inline V loadAs(const void* p) {
  if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 2 * sizeof(From)) {
    using N = Vec<From, 16>;
    N narrow{};
    std::memcpy(&narrow, p, 8);
    if constexpr (std::is_unsigned_v<From>) return as<V>(detail::interleaved<0>(narrow, N{}));
    else return as<V>(detail::interleaved<0>(narrow, narrow)) >> int(8 * sizeof(From));
  }
  return convert<Lane<V>>(load<Vec<From, int(sizeof(From)) * kLanes<V>>>(p));
}

// What is wider than 16 bytes is done by halves.
#define QELJ_BY_HALVES(NAME) \
  if constexpr (sizeof(V) > 16) return join(NAME(lower(a), lower(b)), NAME(upper(a), upper(b)))

// --- lane-wise operations ----------------------------------------------------------------------------------

// mask ? a : b, for a mask of whole lanes.
template <Vector M, Vector V>
inline V select(M mask, V a, V b) {
  static_assert(sizeof(M) == sizeof(V));
  if constexpr (kSplit<V>)
    return join(select(lower(mask), lower(a), lower(b)), select(upper(mask), upper(a), upper(b)));
  using U = With<uint8_t, V>;
  return as<V>((as<U>(mask) & as<U>(a)) | (~as<U>(mask) & as<U>(b)));
}

// Saturating sum and difference.
template <Vector V>
inline V addSat(V a, V b) {
  QELJ_BY_HALVES(addSat);
  const V sum = addWrap(a, b);
  if constexpr (std::is_unsigned_v<Lane<V>>) return sum | as<V>(sum < a);
  else {
    constexpr Lane<V> kMax = std::numeric_limits<Lane<V>>::max();
    return select(as<V>(((a ^ sum) & (b ^ sum)) < 0), as<V>(a < 0) ^ kMax, sum);
  }
}
template <Vector V>
inline V subSat(V a, V b) {
  QELJ_BY_HALVES(subSat);
  const V difference = subWrap(a, b);
  if constexpr (std::is_unsigned_v<Lane<V>>) return difference & as<V>(a > b);
  else {
    constexpr Lane<V> kMax = std::numeric_limits<Lane<V>>::max();
    return select(as<V>(((a ^ b) & (a ^ difference)) < 0), as<V>(a < 0) ^ kMax, difference);
  }
}

namespace detail {
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
// 16-bit lanes from what f makes of the 32-bit products of the even and of the odd ones.
template <class V, class F>
inline V fromProducts(V a, V b, F f) {
  using W = With<std::conditional_t<std::is_signed_v<Lane<V>>, int32_t, uint32_t>, V>;
  const W low = f(evenLanes<W>(a) * evenLanes<W>(b)), high = f(oddLanes<W>(a) * oddLanes<W>(b));
  return as<V>((low & 0xFFFF) | shlWrap(high, 16));
}
}  // namespace detail
// High half of the product; with rounding: (a * b + 2^14) >> 15.
template <Vector V>
inline V mulHi(V a, V b) {
  static_assert(sizeof(Lane<V>) == 2);
  QELJ_BY_HALVES(mulHi);
  return detail::fromProducts(a, b, [](auto product) { return product >> 16; });
}
template <Vector V>
inline V mulHiRound(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int16_t>);
  QELJ_BY_HALVES(mulHiRound);
  return detail::fromProducts(a, b, [](auto product) { return ((product >> 14) + 1) >> 1; });
}
// (a + b + 1) >> 1 without overflow.
template <Vector V>
inline V average(V a, V b) {
  static_assert(std::is_unsigned_v<Lane<V>>);
  QELJ_BY_HALVES(average);
  return (a | b) - ((a ^ b) >> 1);
}
template <Vector V>
inline V min(V a, V b) {
  static_assert(std::is_integral_v<Lane<V>>);
  QELJ_BY_HALVES(min);
  return select(as<V>(a < b), a, b);
}
template <Vector V>
inline V max(V a, V b) {
  static_assert(std::is_integral_v<Lane<V>>);
  QELJ_BY_HALVES(max);
  return select(as<V>(a > b), a, b);
}

// a where b is above 0, -a (wrapping) where it is below, 0 where it is 0.
template <Vector V>
inline V signAs(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int16_t>);
  QELJ_BY_HALVES(signAs);
  const V below = b >> int16_t(15);
  return subWrap(a ^ below, below) & as<V>(b != 0);
}

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
  if constexpr (kSplit<V>) return join(absWrap(lower(a)), absWrap(upper(a)));
  const V sign = a < V{};
  return subWrap(a ^ sign, sign);
}

// Nearest integer, ties to even; lanes outside the 32-bit range and NaN give -2147483648.
template <Vector V>
inline With<int32_t, V> roundToInt(V a) {
  if constexpr (kSplit<V>) return join(roundToInt(lower(a)), roundToInt(upper(a)));
  return detail::mapLanes<With<int32_t, V>>([](float x) { return qelj::roundToInt(x); }, a);
}
// The same, cut towards zero.
template <Vector V>
inline With<int32_t, V> truncateToInt(V a) {
  if constexpr (kSplit<V>) return join(truncateToInt(lower(a)), truncateToInt(upper(a)));
  return detail::mapLanes<With<int32_t, V>>([](float x) { return qelj::truncateToInt(x); }, a);
}

// --- operations on pairs of lanes --------------------------------------------------------------------------

// a[2i] * b[2i] + a[2i+1] * b[2i+1] in 32 bits (wrapping in the one case of four times -32768).
template <class V>
inline With<int32_t, V> mulAddPairs(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int16_t>);
  if constexpr (kSplit<V>) return join(mulAddPairs(lower(a), lower(b)), mulAddPairs(upper(a), upper(b)));
  using W = With<int32_t, V>;
  using detail::evenLanes, detail::oddLanes;
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
  using S = With<int16_t, V>;
  using U = With<uint16_t, V>;
  using detail::evenLanes, detail::oddLanes;
  return addSat(as<S>(evenLanes<U>(a)) * evenLanes<S>(b), as<S>(oddLanes<U>(a)) * oddLanes<S>(b));
}
// a[2i] + a[2i+1] of bytes.
template <class V>
inline With<int16_t, V> addBytePairs(V a) {
  return mulAddBytes(a, all<With<int8_t, V>>(1));
}
// a0 + a1, a2 + a3, b0 + b1, b2 + b3 of 32-bit lanes, by blocks, wrapping. With 16-bit values in the halves of the
// lanes, and no carry between them, it adds both halves.
template <class V>
inline V addNeighbours(V a, V b) {
  static_assert(sizeof(Lane<V>) == 4);
  QELJ_BY_HALVES(addNeighbours);
  return addWrap(detail::everyNth<0, 2>(a, b), detail::everyNth<1, 2>(a, b));
}
// Full 64-bit products of the even 32-bit lanes.
template <class V>
inline auto mulEven(V a, V b) {
  using Wide = std::conditional_t<std::is_signed_v<Lane<V>>, int64_t, uint64_t>;
  using W = With<Wide, V>;
  return detail::evenLanes<W>(a) * detail::evenLanes<W>(b);
}
// Sums of |a - b| over every eight bytes, as 64-bit lanes.
template <class V>
inline With<uint64_t, V> sumAbsDiff8(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, uint8_t>);
  if constexpr (kSplit<V>) return join(sumAbsDiff8(lower(a), lower(b)), sumAbsDiff8(upper(a), upper(b)));
  using W = With<uint64_t, V>;
  const W d = as<W>(max(a, b) - min(a, b));
  const W pairs = (d & 0x00FF00FF00FF00FF) + (d >> 8 & 0x00FF00FF00FF00FF);
  const W fours = (pairs & 0x0000FFFF0000FFFF) + (pairs >> 16 & 0x0000FFFF0000FFFF);
  return (fours & 0xFFFFFFFF) + (fours >> 32);
}

// --- packing: wide lanes to half as wide, saturated, by blocks ---------------------------------------------
// Each 16-byte block of the result holds that block's lanes of a, then those of b.

namespace detail {
template <class To, class V>
inline With<To, V> pack(V a, V b) {
  using L = Lane<V>;
  using N = With<To, V>;
  const auto narrow = [](V v) {
    return as<N>(max(min(v, all<V>(L(std::numeric_limits<To>::max()))), all<V>(L(std::numeric_limits<To>::min()))));
  };
  return everyNth<0, 2>(narrow(a), narrow(b));  // the low halves, which stand first
}
}  // namespace detail
template <class V>
inline With<uint8_t, V> packU8(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int16_t>);
  QELJ_BY_HALVES(packU8);
  return detail::pack<uint8_t>(a, b);
}
template <class V>
inline With<int8_t, V> packI8(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int16_t>);
  QELJ_BY_HALVES(packI8);
  return detail::pack<int8_t>(a, b);
}
template <class V>
inline With<int16_t, V> packI16(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int32_t>);
  QELJ_BY_HALVES(packI16);
  return detail::pack<int16_t>(a, b);
}
template <class V>
inline With<uint16_t, V> packU16(V a, V b) {
  static_assert(std::is_same_v<Lane<V>, int32_t>);
  QELJ_BY_HALVES(packU16);
  return detail::pack<uint16_t>(a, b);
}

// --- moving lanes ------------------------------------------------------------------------------------------

// Puts the half blocks of a packed vector in order: behind it, pack's result is a's lanes, then b's.
template <class V>
inline V orderPacked(V v) {
  if constexpr (sizeof(V) == 16) {
    return v;
  } else {
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
  QELJ_BY_HALVES(unpackLow);
  return detail::interleaved<0>(a, b);
}
template <class V>
inline V unpackHigh(V a, V b) {
  QELJ_BY_HALVES(unpackHigh);
  return detail::interleaved<kLanes<V> / 2>(a, b);
}

// kA a + kB b of bytes, in halves as unpackLow and unpackHigh leave them.
template <int kA, int kB, class V>
inline Halves<With<int16_t, V>> weighBytes(V a, V b) {
  static_assert(kA >= 0 && kB >= 0 && kA + kB < 128);
  using S = With<int16_t, V>;
  if constexpr (kBytePairs) {
    const auto weights = as<int8_t>(all<S>(int16_t(kA | kB << 8)));
    return {mulAddBytes(unpackLow(a, b), weights), mulAddBytes(unpackHigh(a, b), weights)};
  } else {
    return {as<S>(unpackLow(a, V{})) * int16_t(kA) + as<S>(unpackLow(b, V{})) * int16_t(kB),
            as<S>(unpackHigh(a, V{})) * int16_t(kA) + as<S>(unpackHigh(b, V{})) * int16_t(kB)};
  }
}

// The blocks of a and b in turn: of the lower halves, and of the upper halves. With 16-byte vectors there is one block:
// a itself, and b itself, so that a pair of unpacks followed by a pair of these is in order at any width.
template <class V>
inline V highBlocks(V a, V b);
template <class V>
inline V lowBlocks(V a, V b) {
  if constexpr (sizeof(V) == 16) return a;
  if constexpr (sizeof(V) == 64) return join(lowBlocks(lower(a), lower(b)), highBlocks(lower(a), lower(b)));
  else return join(lower(a), lower(b));
}
template <class V>
inline V highBlocks(V a, V b) {
  if constexpr (sizeof(V) == 16) return b;
  if constexpr (sizeof(V) == 64) return join(lowBlocks(upper(a), upper(b)), highBlocks(upper(a), upper(b)));
  else return join(upper(a), upper(b));
}

// a0 b0 a1 b1 ... over the whole vector: the first half of the 2n lanes, and the second.
template <class V>
inline VectorPair<V> interleave(V a, V b) {
  const V low = unpackLow(a, b), high = unpackHigh(a, b);
  return {lowBlocks(low, high), highBlocks(low, high)};
}
// The inverse: the even and the odd lanes of 2n consecutive lanes.
template <class V>
inline VectorPair<V> deinterleave(V first, V second) {
  return {detail::everyNth<0, 2>(first, second), detail::everyNth<1, 2>(first, second)};
}

namespace detail {
// The 16 bytes that begin kBytesUp in front of v's, behind those of `before`: x86-64 has no other way for whole vectors
// without byte shuffles.
template <int kBytesUp, class V>
inline V movedUp(V before, V v) {
  using Q = Vec<uint64_t, 16>;
  const Q q = as<Q>(v), middle = __builtin_shufflevector(as<Q>(before), q, 1, 2);
  if constexpr (kBytesUp < 8) return as<V>(q << 8 * kBytesUp | middle >> (64 - 8 * kBytesUp));
  else return as<V>(middle << 8 * (kBytesUp - 8) | as<Q>(before) >> (128 - 8 * kBytesUp));
}
}  // namespace detail
// Of lanes that go on from vector to vector: those one place before v's, and those one place after.
template <class V>
inline V oneBefore(V before, V v) {
#if defined(__x86_64__)
  if constexpr (sizeof(V) == 16 && sizeof(Lane<V>) == 4) {  // as floats, whose shuffles take lanes of two vectors
    const auto f = as<float>(v), edge = __builtin_shufflevector(as<float>(before), f, 3, 3, 4, 4);
    return as<V>(__builtin_shufflevector(edge, f, 0, 2, 5, 6));
  }
  if constexpr (sizeof(V) == 16) return detail::movedUp<int(sizeof(Lane<V>))>(before, v);
#endif
  return detail::consecutive<kLanes<V> - 1>(before, v, std::make_integer_sequence<int, kLanes<V>>{});
}
template <class V>
inline V oneAfter(V v, V after) {
#if defined(__x86_64__)
  if constexpr (sizeof(V) == 16) return detail::movedUp<16 - int(sizeof(Lane<V>))>(v, after);
#endif
  return detail::consecutive<1>(v, after, std::make_integer_sequence<int, kLanes<V>>{});
}

template <Vector V>
class OneLate {
  V kept_{};

 public:
  OneLate() = default;
  explicit OneLate(Lane<V> last) : kept_(all<V>(last)) {}
  QELJ_INLINE V operator()(V v) {
    const V before = oneBefore(kept_, v);
    kept_ = v;
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

// The lower half of a and the upper one of b.
template <class V>
inline V lowerAndUpper(V a, V b) {
  return [=]<int... i>(std::integer_sequence<int, i...>) {
    return __builtin_shufflevector(a, b, (i < kLanes<V> / 2 ? i : kLanes<V> + i)...);
  }(std::make_integer_sequence<int, kLanes<V>>{});
}

// The lanes A and B of a, then C and D of b, of 32 bits and by blocks.
template <int A, int B, int C, int D, class V>
inline V shuffleTwo4(V a, V b) {
  static_assert(sizeof(Lane<V>) == 4);
  if constexpr (sizeof(V) == 16) return __builtin_shufflevector(a, b, A, B, C + 4, D + 4);
  else return detail::byBlocks(a, b, std::integer_sequence<int, A, B, C + kLanes<V>, D + kLanes<V>>{});
}

// r[i] = v[index[i] & 15] of the same block, or 0 where the index has its top bit set.
template <class V>
inline V shuffleBytes(V v, V index) {
  static_assert(std::is_same_v<Lane<V>, uint8_t>);
  if constexpr (kTooWide<V>) return join(shuffleBytes(lower(v), lower(index)), shuffleBytes(upper(v), upper(index)));
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
// The even and the odd ones of the 2n lanes at p.
template <class V>
inline VectorPair<V> loadPairs(const void* p) {
  return deinterleave(load<V>(p), load<V>(static_cast<const char*>(p) + sizeof(V)));
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
  uint32_t lanes[kLanes<V>], places[kLanes<V>], results[kLanes<V>];
  store(lanes, v), store(places, index & 3);
  for (int i = 0; i < kLanes<V>; ++i) results[i] = lanes[i / 4 * 4 + int(places[i])];
  return load<V>(results);
}

// r[i] = v[index[i] mod their number]: any of the vector's 32-bit lanes.
template <class V>
inline V pickAnyLanes(V v, V index) {
  static_assert(std::is_same_v<Lane<V>, uint32_t>);
  uint32_t lanes[kLanes<V>], places[kLanes<V>], results[kLanes<V>];
  store(lanes, v), store(places, index & uint32_t(kLanes<V> - 1));
  for (int i = 0; i < kLanes<V>; ++i) results[i] = lanes[places[i]];
  return load<V>(results);
}

// 16 bytes from each of the places `where` begins with, in the blocks of a vector.
template <class V, class Where>
QELJ_INLINE V gatherBlocks(Where where) {
  if constexpr (sizeof(V) == 16) {
    return load<V>(where(0));
  } else {
    using H = Vec<Lane<V>, int(sizeof(V)) / 2>;
    constexpr int kHalf = int(sizeof(V)) / 32;
    return join(gatherBlocks<H>(where),
                gatherBlocks<H>([&](int block) QELJ_INLINE_LAMBDA { return where(kHalf + block); }));
  }
}
// The inverse. Upper blocks go to memory without a shuffle.
template <class V, class Where, class Store = PlainStore>
QELJ_INLINE void scatterBlocks(Where where, V v, Store put = {}) {
  if constexpr (sizeof(V) == 16) {
    put(where(0), v);
  } else {
    constexpr int kHalf = int(sizeof(V)) / 32;
    scatterBlocks(where, lower(v), put);
    scatterBlocks([&](int block) QELJ_INLINE_LAMBDA { return where(kHalf + block); }, upper(v), put);
  }
}

// --- facts about a vector ----------------------------------------------------------------------------------

// The top bits of all bytes, byte 0 in bit 0; of 64 bytes as 64 bits.
template <class V>
inline auto topBits(V v) {
  using Bits = std::conditional_t<sizeof(V) == 64, uint64_t, uint32_t>;
  if constexpr (kTooWide<V>) return Bits(topBits(lower(v)) | Bits(topBits(upper(v))) << (sizeof(V) / 2));
  uint64_t words[sizeof(V) / 8];
  store(words, v);
  Bits bits = 0;
  for (int i = 0; i < int(sizeof(V)) / 8; ++i)  // the product gathers byte i's bit at 56 + i
    bits |= Bits((words[i] >> 7 & 0x0101010101010101) * 0x0102040810204080 >> 56) << (8 * i);
  return bits;
}
template <class V>
inline bool isZero(V v) {
  const auto words = as<uint64_t>(v);
  uint64_t any = 0;
  for (int i = 0; i < int(sizeof(V)) / 8; ++i) any |= words[i];
  return any == 0;
}

// --- bits of a word ----------------------------------------------------------------------------------------

// The low bits of `bits`, in order, at the places where `mask` has ones. (A template, as all definitions, so that a
// processor's form comes first.)
template <class = void>
inline uint64_t depositBits(uint64_t bits, uint64_t mask) {
  uint64_t result = 0;
  for (; mask; mask &= mask - 1, bits >>= 1) result |= mask & (0 - mask) & (0 - (bits & 1));
  return result;
}

// The bits of a word at the places where `mask` has ones, in order, as the low bits of the result.
template <class = void>
inline uint64_t extractBits(uint64_t bits, uint64_t mask) {
  uint64_t result = 0;
  for (int i = 0; mask; mask &= mask - 1, ++i) result |= uint64_t((bits & mask & (0 - mask)) != 0) << i;
  return result;
}

// The low `count` bits of a word, 0 to 31. (GCC 12 takes three operations for it where what it masks is a complement.)
template <class = void>
inline uint32_t lowBits(uint32_t word, uint32_t count) {
  return word & ((1u << count) - 1);
}

// --- the beginning of a vector in memory -------------------------------------------------------------------

// The first `count` lanes, 0 to all, of a vector in memory; the others are 0, and nothing is touched behind.
template <class V>
QELJ_INLINE V loadFirst(const void* p, int count) {
  const int bytes = count * int(sizeof(Lane<V>));
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
  store(low, lower(v)), store(high, upper(v));
}

// --- memory past the caches --------------------------------------------------------------------------------

// Stores past the caches where p is aligned to the vector. Other threads see the stores behind a streamFence.
template <class V>
QELJ_INLINE void stream(void* p, V v) {
  store(p, v);
}
template <class = void>
inline void streamFence() {}

#undef QELJ_BY_HALVES

}  // namespace qelj::simd

#endif
