// As many pixels of three or four bytes as a vector has lanes, between interleaved memory and one vector a channel.
#ifndef QELJ_FRAME_SIMD_PIXELS_H
#define QELJ_FRAME_SIMD_PIXELS_H

#include <algorithm>

#include "frame/simd/plain.h"

namespace qelj::simd {

namespace detail {
// Where byte `offset` of each block of 16 pixels lies. `at` is where the pixels begin, whose blocks are kApart bytes apart;
// or a function that tells for each block where it begins.
template <int kApart>
QELJ_INLINE auto blocksOf(auto at, int offset) {
  return [at, offset](int block) QELJ_INLINE_LAMBDA {
    if constexpr (std::is_pointer_v<decltype(at)>) return at + kApart * block + offset;
    else return at(block) + offset;
  };
}
}  // namespace detail

// Part i of the blocks of pixels of two bytes: eight pixels of each.
template <class V>
QELJ_INLINE V gatherPart(auto from, int i) {
  return gatherBlocks<V>(detail::blocksOf<32>(from, 16 * i));
}
template <class V, class Store = PlainStore>
QELJ_INLINE void scatterPart(auto to, int i, V v, Store put = {}) {
  scatterBlocks(detail::blocksOf<32>(to, 16 * i), v, put);
}

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

// Three vectors whose block b holds bytes 16p..16p+15 (p = 0, 1, 2) of the b-th 48 bytes.
template <class V>
QELJ_INLINE Triples<V> loadParts3(auto from) {
  const auto part = [&](int i) QELJ_INLINE_LAMBDA { return gatherBlocks<V>(blocksOf<48>(from, 16 * i)); };
  return {part(0), part(1), part(2)};
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
template <class V>
QELJ_INLINE Triples<V> splitParts3(Triples<With<uint8_t, V>> parts) {
  using B = With<uint8_t, V>;
  const auto channel = [&](int c) QELJ_INLINE_LAMBDA {
    const auto& s = kShuffle3<Lane<V>>.split[c];
    return as<V>(shuffleBytes(parts.c0, blockPattern<B>(s[0])) | shuffleBytes(parts.c1, blockPattern<B>(s[1])) |
                 shuffleBytes(parts.c2, blockPattern<B>(s[2])));
  };
  return {channel(0), channel(1), channel(2)};
}
// By blocks, where stores are what there is room for.
template <class V, class Store>
QELJ_INLINE void scatterParts3(auto to, Triples<V> v, Store put) {
  scatterBlocks(blocksOf<48>(to, 0), v.c0, put);
  scatterBlocks(blocksOf<48>(to, 16), v.c1, put);
  scatterBlocks(blocksOf<48>(to, 32), v.c2, put);
}
}  // namespace detail

template <class V>
QELJ_INLINE Triples<V> loadTriples(const void* p) {
  if constexpr (!kShuffles) {
    Lane<V> lanes[3][kLanes<V>];
    for (int i = 0; i < kLanes<V>; ++i)
      for (int c = 0; c < 3; ++c) lanes[c][i] = at(static_cast<const Lane<V>*>(p), 3 * i + c);
    return {load<V>(lanes[0]), load<V>(lanes[1]), load<V>(lanes[2])};
  }
  return detail::splitParts3<V>(detail::loadParts3<With<uint8_t, V>>(static_cast<const uint8_t*>(p)));
}
template <class V, class Blocks>
  requires(!std::is_pointer_v<Blocks>)
QELJ_INLINE Triples<V> loadTriples(Blocks at) {
  return detail::splitParts3<V>(detail::loadParts3<With<uint8_t, V>>(at));
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

namespace detail {
struct MergeWords3 {
  uint8_t low[3][16], high[3][16], last[3][16];  // [part]: from channels 0 and 1 of either half, from channel 2
  uint8_t both[16];  // part 1, from the even 32-bit lanes of the upper half and the odd ones of the lower half
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
  for (int i = 0; i < 16; ++i) m.both[i] = uint8_t(std::min(m.low[1][i], m.high[1][i]));
  return m;
}();
}  // namespace detail
// Triples of bytes, clamped, from 16-bit lanes that stand as unpackLow and unpackHigh leave them: two channels are packed
// into one vector where each half of the pixels needs both, which spares shuffles.
template <class V, class Store = PlainStore>
QELJ_INLINE void storeTriplesClamped(auto to, Halves<V> c0, Halves<V> c1, Halves<V> c2, Store put = {}) {
  using B = With<uint8_t, V>;
  const auto& m = detail::kMergeWords3;
  const B last = packU8(c2.low, c2.high);
  if constexpr (!kShuffles) {
    storeTriples<B>(to, {packU8(c0.low, c0.high), packU8(c1.low, c1.high), last}, put);
  } else {
    const B low = packU8(c0.low, c1.low), high = packU8(c0.high, c1.high);
    // What part 1 needs of either half lies in other 32-bit lanes.
    const B both = as<uint8_t>(evenAndOdd(as<uint32_t>(high), as<uint32_t>(low)));
    const auto from = [](B v, const uint8_t(&places)[16])
                          QELJ_INLINE_LAMBDA { return shuffleBytes(v, blockPattern<B>(places)); };
    const Triples<B> parts{from(low, m.low[0]) | from(last, m.last[0]), from(both, m.both) | from(last, m.last[1]),
                           from(high, m.high[2]) | from(last, m.last[2])};
    if constexpr (std::is_pointer_v<decltype(to)> && requires { put.streams; })
      if (put.streams) return detail::storeParts3(to, parts, put);  // past the caches, by vectors that fill lines
    detail::scatterParts3(to, parts, put);
  }
}

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
// Of pixels of three bytes, channels 0 and 1 and channels 2 and 1 as pairs of bytes, half of a block's pixels each: as
// unpackLow and unpackHigh would leave them, of fewer shuffles.
template <class V>
QELJ_INLINE BytePairs3<V> loadBytePairs3(auto from) {
  const auto parts = detail::loadParts3<V>(from);
  const auto pairs = [&](int pair) QELJ_INLINE_LAMBDA {
    const auto& s = detail::kSplitPairs3.places[pair];
    return Halves<V>{
        shuffleBytes(parts.c0, blockPattern<V>(s[0][0])) | shuffleBytes(parts.c1, blockPattern<V>(s[0][1])),
        shuffleBytes(parts.c1, blockPattern<V>(s[1][1])) | shuffleBytes(parts.c2, blockPattern<V>(s[1][2]))};
  };
  return {pairs(0), pairs(1)};
}

// Of bytes.
template <class V, class From>
QELJ_INLINE Quadruples<V> loadQuadruples(From p) {
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
  const auto part = [&](int i) QELJ_INLINE_LAMBDA {
    constexpr uint8_t kByChannel[16] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
    return as<uint32_t>(shuffleBytes(gatherBlocks<V>(detail::blocksOf<64>(p, 16 * i)), blockPattern<V>(kByChannel)));
  };
  const auto p0 = part(0), p1 = part(1), p2 = part(2), p3 = part(3);
  const auto low01 = as<uint64_t>(unpackLow(p0, p1)), low23 = as<uint64_t>(unpackLow(p2, p3));      // channels 0 and 1
  const auto high01 = as<uint64_t>(unpackHigh(p0, p1)), high23 = as<uint64_t>(unpackHigh(p2, p3));  // channels 2 and 3
  return {as<V>(unpackLow(low01, low23)), as<V>(unpackHigh(low01, low23)), as<V>(unpackLow(high01, high23)),
          as<V>(unpackHigh(high01, high23))};
}
template <class V, class Store = PlainStore>
QELJ_INLINE void storeQuadruples(auto to, Quadruples<V> v, Store put = {}) {
  constexpr int kVector = int(sizeof(V));
  const auto low01 = as<uint16_t>(unpackLow(v.c0, v.c1)), high01 = as<uint16_t>(unpackHigh(v.c0, v.c1));
  const auto low23 = as<uint16_t>(unpackLow(v.c2, v.c3)), high23 = as<uint16_t>(unpackHigh(v.c2, v.c3));
  // Part i: pixels 4i..4i+3 of each block.
  const auto p0 = unpackLow(low01, low23), p1 = unpackHigh(low01, low23);
  const auto p2 = unpackLow(high01, high23), p3 = unpackHigh(high01, high23);
  if constexpr (kVector == 16 || !std::is_pointer_v<decltype(to)>) {
    const auto part = [&](int i, auto pixels)
                          QELJ_INLINE_LAMBDA { scatterBlocks(detail::blocksOf<64>(to, 16 * i), pixels, put); };
    part(0, p0), part(1, p1), part(2, p2), part(3, p3);
  } else if constexpr (kVector == 32) {
    put(to, lowBlocks(p0, p1)), put(to + 32, lowBlocks(p2, p3));
    put(to + 64, highBlocks(p0, p1)), put(to + 96, highBlocks(p2, p3));
  } else {
    // Blocks of two parts in turn, as pairs of blocks: those of the two pairs of parts in turn.
    const auto a = as<uint64_t>(lowBlocks(p0, p1)), b = as<uint64_t>(lowBlocks(p2, p3));
    const auto c = as<uint64_t>(highBlocks(p0, p1)), d = as<uint64_t>(highBlocks(p2, p3));
    put(to, __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11));
    put(to + 64, __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15));
    put(to + 128, __builtin_shufflevector(c, d, 0, 1, 2, 3, 8, 9, 10, 11));
    put(to + 192, __builtin_shufflevector(c, d, 4, 5, 6, 7, 12, 13, 14, 15));
  }
}

}  // namespace qelj::simd

#endif
