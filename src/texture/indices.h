// The indices of a block: 16 numbers of 2, 3 or 4 bits, pixel 0 in the lowest bits.
#ifndef QELJ_TEXTURE_INDICES_H
#define QELJ_TEXTURE_INDICES_H

#include "frame/arith.h"
#include "frame/lanes.h"
#include "texture/bc7_tables.h"

namespace qelj::texture {

inline constexpr int kAcross = simd::kBytes / 16;  // blocks that a vector of one block in each 16 bytes holds

// Makes room for the top bit that the index of pixel `anchor` leaves out: it is 0.
template <int kBits>
constexpr uint64_t insertAnchorBit(uint64_t indices, int anchor) {
  const uint64_t above = ~uint64_t(0) << (kBits * anchor + kBits - 1);
  return indices + (indices & above);  // adding the upper part to itself moves it up by one
}

// The inverse.
template <int kBits>
constexpr uint64_t removeAnchorBit(uint64_t indices, int anchor) {
  const uint64_t below = (uint64_t(1) << (kBits * anchor + kBits - 1)) - 1;
  return (indices & below) | (indices >> 1 & ~below);
}

template <int kBits>
constexpr int indexAt(uint64_t indices, int pixel) {
  return int(indices >> kBits * pixel & ((1u << kBits) - 1));
}

// Vector form: the 16 indices of every 16-byte block of the vector as bytes; they start at byte `kFrom` of the block.
// An index lies in two neighbouring bytes; a multiplication by a power of two brings it to the top of 16 bits.
namespace detail {
template <int kBits, int kFrom>
struct IndexLanes {
  uint8_t bytes[2][16];
  uint16_t toTop[2][8];
  constexpr IndexLanes() : bytes{}, toTop{} {
    for (int i = 0; i < 16; ++i) {
      const int bit = 8 * kFrom + kBits * i, next = bit / 8 + 1;
      bytes[i / 8][2 * (i % 8)] = uint8_t(bit / 8);
      bytes[i / 8][2 * (i % 8) + 1] = uint8_t(next < 16 ? next : 0x80);
      toTop[i / 8][i % 8] = uint16_t(1 << (16 - kBits - bit % 8));
    }
  }
};
template <int kBits, int kFrom>
inline constexpr IndexLanes<kBits, kFrom> kIndexLanes;
}  // namespace detail

template <int kBits, int kFrom, class V>
inline V unpackIndices(V blocks) {
  using W = simd::With<uint16_t, V>;
  const auto& lanes = detail::kIndexLanes<kBits, kFrom>;
  const auto half = [&](int h) {
    const W words = as<W>(simd::shuffleBytes(blocks, simd::blockPattern<V>(lanes.bytes[h])));
    return as<int16_t>(words * simd::blockLanes<W>(lanes.toTop[h]) >> uint16_t(16 - kBits));
  };
  return simd::packU8(half(0), half(1));
}

// Two bytes a pixel, of pixels 0 to 7 and 8 to 15.
struct PixelPairs {
  simd::U8x16 low, high;
};
// The interpolation weights 64 - w, w of end-points 0 and 1 (BC6, BC7).
template <int kBits>
inline PixelPairs weightPairs(uint64_t indices) {
  uint8_t table[16];
  for (int i = 0; i < 16; ++i) table[i] = bc7::weights<kBits>()[i % (1 << kBits)];
  const simd::U8x16 w = simd::shuffleBytes(simd::blockPattern<simd::U8x16>(table),
                                           unpackIndices<kBits, 0>(as<uint8_t>(simd::U64x2{indices, 0})));
  return {simd::unpackLow(uint8_t(64) - w, w), simd::unpackHigh(uint8_t(64) - w, w)};
}

// The inverse of unpackIndices: 16 bytes below 2^kBits of every block as one number in the low 16 * kBits bits of the block.
template <int kBits, class V>
inline simd::With<uint64_t, V> packIndices(V indices) {
  using Q = simd::With<uint64_t, V>;
  const auto pairs = simd::mulAddBytes(indices, as<int8_t>(all<simd::With<uint16_t, V>>(1 | 256 << kBits)));
  const auto fours = simd::mulAddPairs(pairs, simd::pairs<simd::With<int16_t, V>>(1, 1 << 2 * kBits));
  const Q eights = (as<Q>(fours) & 0xFFFFFFFFu) | as<Q>(fours) >> (32 - 4 * kBits);
  const Q lowHalf = as<Q>(simd::blockPattern<V>({255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0}));
  const Q upper = as<Q>(simd::shuffleBytes(
      as<V>(eights), simd::blockPattern<V>({8, 9, 10, 11, 12, 13, 14, 15, 128, 128, 128, 128, 128, 128, 128, 128})));
  return (eights & lowHalf) | upper << (8 * kBits);
}

}  // namespace qelj::texture

#endif
