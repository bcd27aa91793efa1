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

// The shapes that leave out the same pixels' bits are one set: there are few.
template <int kSubsets>
struct AnchorSets {
  uint8_t of[64] = {}, shapes[64] = {};  // a shape's set; a shape of the set
  int count = 0;
  static constexpr bool isAnchor(int shape, int pixel) {
    for (int i = 0; i < kSubsets; ++i)
      if (bc7::shape<kSubsets>(shape).anchors[i] == pixel) return true;
    return false;
  }
  static constexpr bool same(int a, int b) {
    for (int pixel = 0; pixel < 16; ++pixel)
      if (isAnchor(a, pixel) != isAnchor(b, pixel)) return false;
    return true;
  }
  // How many of kBits bits of a pixel's index are in the block.
  template <int kBits>
  constexpr int bitsOf(int set, int pixel) const {
    return kBits - isAnchor(shapes[set], pixel);
  }
  constexpr AnchorSets() {
    for (int shape = 0; shape < 64; ++shape) {
      int set = 0;
      while (set < count && !same(shapes[set], shape)) ++set;
      if (set == count) shapes[count++] = uint8_t(shape);
      of[shape] = uint8_t(set);
    }
  }
};
template <int kSubsets>
inline constexpr AnchorSets<kSubsets> kAnchorSets;

// Where the indices of a set lie whose first bit is kFirst: in two bytes a lane, above their lowest bit, with what masks
// them and the factor that brings them to the bottom of the lane above.
template <int kSubsets, int kBits, int kFirst>
struct IndexWords {
  struct Words {
    alignas(32) uint8_t bytes[32] = {};
    uint16_t mask[16] = {}, factor[16] = {};
  };
  Words of[kAnchorSets<kSubsets>.count] = {};  // [set]
  constexpr IndexWords() {
    for (int set = 0; set < kAnchorSets<kSubsets>.count; ++set) {
      int at = kFirst;
      for (int i = 0; i < 16; ++i) {
        const int bits = kAnchorSets<kSubsets>.template bitsOf<kBits>(set, i), byte = (at - 1) / 8, bit = at - 8 * byte;
        of[set].bytes[2 * i] = uint8_t(byte);
        of[set].bytes[2 * i + 1] = uint8_t(byte < 15 ? byte + 1 : 0x80);
        of[set].mask[i] = uint16_t(((1 << bits) - 1) << bit);
        of[set].factor[i] = uint16_t(1 << (16 - bit));
        at += bits;
      }
    }
  }
};
template <int kSubsets, int kBits, int kFirst>
inline constexpr IndexWords<kSubsets, kBits, kFirst> kIndexWords;

// The interpolation weights 64 - w, w of end-points 0 and 1 (BC6, BC7), two bytes a pixel, from a vector whose blocks are
// the same. The weight that an index leaves for end-point 0 is that of the index's complement.
template <int kSubsets, int kBits, int kFirst, class V>
QELJ_INLINE void weightPairs(V block, int set, V (&pairs)[32 / sizeof(V)]) {
  using W = simd::With<uint16_t, V>;
  constexpr auto kTable = [] {
    struct {
      uint8_t of[16] = {};
    } table;
    for (int i = 0; i < 1 << kBits; ++i) {
      table.of[i] = bc7::weights<kBits>()[i];
      table.of[15 - i] = uint8_t(64 - bc7::weights<kBits>()[i]);
    }
    return table;
  }();
  const V table = simd::blockPattern<V>(kTable.of);
  const auto& words = kIndexWords<kSubsets, kBits, kFirst>.of[set];
  const auto indices = [&](int from) QELJ_INLINE_LAMBDA {
    const W fields = as<W>(simd::shuffleBytes(block, load<V>(words.bytes + 2 * from))) & load<W>(words.mask + from);
    return mulHi(fields, load<W>(words.factor + from));
  };
  for (int i = 0; i < int(32 / sizeof(V)); ++i)
    pairs[i] = simd::shuffleBytes(table, as<V>((indices(8 * i) * uint16_t(0x0101)) ^ uint16_t(0x000F)));
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
