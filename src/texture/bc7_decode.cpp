// The decoder of BC7. A mode is a template argument, so that all of its field positions are constants. The scalar form
// is the definition. The vector forms unpack all end-points of a subset in 16 bytes, and interpolate by one multiply-add
// of an end-point pair and a weight pair a channel: palettes, or, where pixels can't be picked from these, the pixels.
#include <algorithm>
#include <bit>
#include <utility>

#include "frame/fronts.h"
#include "texture/bc7_tables.h"
#include "texture/bits.h"
#include "texture/decode_walk.h"
#include "texture/indices.h"

namespace qelj {
namespace texture {
namespace {

using bc7::Layout;
using simd::shuffleBytes;

// The fields of a block that steer the rest.
template <int kMode>
struct Fields {
  static constexpr Layout kLayout{kMode};
  static constexpr bc7::Mode kOf = kLayout.mode;

  const bc7::Shape& shape;
  int rotation;
  bool exchanged;            // the second indices are the colours', and the first the alpha's
  uint64_t indices, second;  // each anchor's missing bit filled in

  explicit Fields(const Bits& bits)
      : shape(bc7::shape<kOf.subsets>(int(bits.at(kLayout.partition, kOf.partitionBits)))),
        rotation(int(bits.at(kLayout.rotation, kOf.rotationBits))),
        exchanged(bits.at(kLayout.indexSelection, kOf.indexSelectionBits) != 0),
        indices(insertAnchorBit<kOf.indexBits>(bits.at(kLayout.indices, 16 * kOf.indexBits - kOf.subsets), 0)),
        second(0) {
    if constexpr (kOf.subsets == 2) indices = insertAnchorBit<kOf.indexBits>(indices, shape.anchors[1]);
    if constexpr (kOf.subsets == 3) {
      const auto [first, last] = std::minmax(shape.anchors[1], shape.anchors[2]);
      indices = insertAnchorBit<kOf.indexBits>(insertAnchorBit<kOf.indexBits>(indices, first), last);
    }
    if constexpr (kOf.secondIndexBits != 0)
      second = insertAnchorBit<kOf.secondIndexBits>(bits.at(kLayout.secondIndices, 16 * kOf.secondIndexBits - 1), 0);
  }
};

// --- scalar form -------------------------------------------------------------------------------------------

// Moves an n-bit value to the top of a byte and repeats its high bits below.
[[maybe_unused]] constexpr int expand(int value, int bits) { return value << (8 - bits) | value >> (2 * bits - 8); }

template <int kMode>
void ownDecodeBlock(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
  constexpr Layout kLayout{kMode};
  constexpr bc7::Mode kOf = kLayout.mode;
  const Bits bits(src);
  const Fields<kMode> fields(bits);

  int ends[kOf.endPoints()][4];
  for (int e = 0; e < kOf.endPoints(); ++e)
    for (int c = 0; c < 4; ++c) {
      const int width = kLayout.bits(c);
      int value = int(bits.at(kLayout.position(c, e), width));
      if (kOf.pBits()) value = value << 1 | int(bits.at(kLayout.pBitPosition(e), 1));
      ends[e][c] = width == 0 ? 255 : expand(value, width + kOf.pBits());
    }

  for (int i = 0; i < 16; ++i) {
    int colour = bc7::weights<kOf.indexBits>()[indexAt<kOf.indexBits>(fields.indices, i)], alpha = colour;
    if constexpr (kOf.secondIndexBits != 0) {
      alpha = bc7::weights<kOf.secondIndexBits>()[indexAt<kOf.secondIndexBits>(fields.second, i)];
      if (fields.exchanged) std::swap(colour, alpha);
    }
    const auto& e0 = ends[2 * fields.shape.subset(i)];
    const auto& e1 = ends[2 * fields.shape.subset(i) + 1];
    uint8_t* pixel = row(dst, dstStep, i / 4) + i % 4 * 4;
    for (int c = 0; c < 4; ++c) {
      const int w = c < 3 ? colour : alpha;
      pixel[c] = uint8_t(((64 - w) * e0[c] + w * e1[c] + 32) >> 6);
    }
    if (fields.rotation) std::swap(pixel[fields.rotation - 1], pixel[3]);
  }
}

// --- vector form -------------------------------------------------------------------------------------------

using simd::I16x8, simd::U8, simd::U8x16;

// Where end-points lie, in 16-bit lanes r0 r1 g0 g1 b0 b1 a0 a1 of a subset in each block: the two bytes that hold a
// value, and the factor that brings it to the top of the lane; then the same for its p-bit, which comes behind it.
template <int kBlocks>
struct EndPointLanes {
  alignas(64) uint8_t bytes[16 * kBlocks] = {}, pBytes[16 * kBlocks] = {};
  uint16_t toTop[8 * kBlocks] = {}, pToPlace[8 * kBlocks] = {}, top[8 * kBlocks] = {}, expand[8 * kBlocks] = {},
                     opaque[8 * kBlocks] = {};
};
// Block `i` of a vector is for subset kSubset + i / kPerSubset, or for the last one.
template <int kMode, int kSubset, int kPerSubset, int kBlocks>
constexpr EndPointLanes<kBlocks> endPointLanes() {
  constexpr Layout kLayout{kMode};
  EndPointLanes<kBlocks> lanes;
  for (int lane = 0; lane < 8 * kBlocks; ++lane) {
    const int subset = std::min(kSubset + lane / 8 / kPerSubset, kLayout.mode.subsets - 1);
    const int channel = lane % 8 / 2, endPoint = 2 * subset + lane % 2, bits = kLayout.bits(channel);
    const int at = kLayout.position(channel, endPoint), p = kLayout.pBitPosition(endPoint);
    lanes.bytes[2 * lane] = uint8_t(at / 8);
    lanes.bytes[2 * lane + 1] = uint8_t(at / 8 + 1);
    lanes.pBytes[2 * lane] = uint8_t(p / 8);
    lanes.pBytes[2 * lane + 1] = 0x80;
    if (bits == 0) {
      lanes.opaque[lane] = 255;
      continue;
    }
    lanes.toTop[lane] = uint16_t(1 << (16 - bits - at % 8));
    if (kLayout.mode.pBits()) lanes.pToPlace[lane] = uint16_t(1 << (15 - bits - p % 8));
    lanes.top[lane] = uint16_t(0xFFFF << (16 - bits));
    lanes.expand[lane] = uint16_t(256 + (1 << (8 - bits - kLayout.mode.pBits())));
  }
  return lanes;
}
template <int kMode, int kSubset, int kPerSubset, int kBlocks>
[[maybe_unused]] constexpr auto kEndPointLanes = endPointLanes<kMode, kSubset, kPerSubset, kBlocks>();

// A value of n bits at the top of a lane expands to 8 as the high half of its product with 2^8 + 2^(8-n).
template <int kMode, int kSubset, int kPerSubset, class V>
QELJ_INLINE simd::With<int16_t, V> unpackEndPoints(V block) {
  using W = simd::With<uint16_t, V>;
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  const auto& lanes = kEndPointLanes<kMode, kSubset, kPerSubset, int(sizeof(V) / 16)>;
  W values = (as<W>(shuffleBytes(block, load<V>(lanes.bytes))) * load<W>(lanes.toTop)) & load<W>(lanes.top);
  if constexpr (kOf.pBits() != 0) {
    const W p = as<W>(shuffleBytes(block, load<V>(lanes.pBytes))) * load<W>(lanes.pToPlace);
    values |= p & uint16_t(0x8000 >> kOf.colourBits);
  }
  values = mulHi(values, load<W>(lanes.expand));
  if constexpr (kOf.alphaBits == 0) values |= load<W>(lanes.opaque);
  return as<int16_t>(values);
}

// --- vector form by palettes -------------------------------------------------------------------------------
// The subsets' palettes follow one another, and a pixel is a pick by its index behind the entries of the palettes before
// its own. Most palettes have fewer entries than there are pixels, and the weights of all are constants, where those of
// pixels must be looked up and spread. It takes picks from at least eight lanes.

constexpr bool kPalettes = simd::kBytes > 16;

// Of each block, four entries; the blocks of kBits bits' palette follow one another, from kFirst on, again and again.
template <int kBits, int kFirst, int kBlocks>
struct PaletteWeights {
  alignas(64) int8_t of[2][16 * kBlocks] = {};  // [first two entries, last two]
  constexpr PaletteWeights() {
    for (int half = 0; half < 2; ++half)
      for (int k = 0; k < 16 * kBlocks; ++k) {
        const int w = bc7::weights<kBits>()[((kFirst + k / 16) * 4 + 2 * half + k % 16 / 8) % (1 << kBits)];
        of[half][k] = int8_t(k % 2 ? w : 64 - w);
      }
  }
};
template <int kBits, int kFirst, int kBlocks>
[[maybe_unused]] constexpr PaletteWeights<kBits, kFirst, kBlocks> kPaletteWeights;

// From end-points twice in each block.
template <int kBits, int kFirst = 0, class V>
QELJ_INLINE V palette(V ends) {
  using S = simd::With<int16_t, V>;
  const auto half = [&](int h) QELJ_INLINE_LAMBDA {
    const auto weights = load<simd::With<int8_t, V>>(kPaletteWeights<kBits, kFirst, int(sizeof(V) / 16)>.of[h]);
    return mulHiRound(simd::mulAddBytes(ends, weights), all<S>(512));  // (sum + 32) >> 6
  };
  return simd::packU8(half(0), half(1));
}

// Indices from bit kFirst on. Those of pixels 0 to 7, and those of 8 to 15, lie in 32 bits from a byte on: in these, a
// pixel's place and what masks it.
template <int kSubsets, int kBits, int kFirst>
struct IndexPlaces {
  static constexpr int byteOf(int half) { return std::min(12, (kFirst + half * (8 * kBits - kSubsets)) / 8); }
  struct Places {
    alignas(64) uint32_t shift[16] = {}, mask[16] = {};
  };
  Places of[kAnchorSets<kSubsets>.count] = {};  // [set]
  constexpr IndexPlaces() {
    for (int set = 0; set < kAnchorSets<kSubsets>.count; ++set) {
      int at = kFirst;
      for (int i = 0; i < 16; ++i) {
        const int bits = kAnchorSets<kSubsets>.template bitsOf<kBits>(set, i);
        of[set].shift[i] = uint32_t(at - 8 * byteOf(i / 8));
        of[set].mask[i] = (1u << bits) - 1;
        at += bits;
      }
    }
  }
};
template <int kSubsets, int kBits, int kFirst>
[[maybe_unused]] constexpr IndexPlaces<kSubsets, kBits, kFirst> kIndexPlaces;

// How many entries stand in front of a pixel's palette.
template <int kSubsets, int kBits>
struct EntriesBefore {
  alignas(64) uint32_t of[64][16] = {};  // [shape]
  constexpr EntriesBefore() {
    for (int shape = 0; shape < 64; ++shape)
      for (int i = 0; i < 16; ++i) of[shape][i] = uint32_t(bc7::shape<kSubsets>(shape).subset(i) << kBits);
  }
};
template <int kSubsets, int kBits>
[[maybe_unused]] constexpr EntriesBefore<kSubsets, kBits> kEntriesBefore;

// The indices of part `part` of the pixels.
template <int kSubsets, int kBits, int kFirst, class Pixels>
QELJ_INLINE Pixels indicesAt(const uint8_t* src, int set, int part) {
  using Places = IndexPlaces<kSubsets, kBits, kFirst>;
  const auto& places = kIndexPlaces<kSubsets, kBits, kFirst>.of[set];
  const auto words = [&](int half) QELJ_INLINE_LAMBDA { return load<uint32_t>(src + Places::byteOf(half)); };
  Pixels indices = all<Pixels>(words(part));
  if constexpr (sizeof(Pixels) == 64 && Places::byteOf(0) != Places::byteOf(1))
    indices = simd::join(simd::lower(indices), all<simd::Vec<uint32_t, 32>>(words(1)));
  const int at = simd::kLanes<Pixels> * part;
  return indices >> load<Pixels>(places.shift + at) & load<Pixels>(places.mask + at);
}

// Rows of four pixels.
template <class Pixels>
QELJ_INLINE void storeRows(uint8_t* dst, ptrdiff_t dstStep, Pixels pixels) {
  if constexpr (sizeof(Pixels) == 16) {
    store(dst, pixels);
  } else {
    storeRows(dst, dstStep, simd::lower(pixels));
    storeRows(row(dst, dstStep, int(sizeof(Pixels)) / 32), dstStep, simd::upper(pixels));
  }
}

// Alpha trades places with red, green or blue.
constexpr uint8_t kRotations[4][4] = {{0, 1, 2, 3}, {3, 1, 2, 0}, {0, 3, 2, 1}, {0, 1, 3, 2}};
struct RotationPatterns {
  uint8_t whole[4][16] = {};
  uint8_t masked[2][4][16] = {};  // without alpha, and nothing but it
  constexpr RotationPatterns() {
    for (int rotation = 0; rotation < 4; ++rotation)
      for (int k = 0; k < 16; ++k) {
        const int from = kRotations[rotation][k % 4];
        whole[rotation][k] = uint8_t(k / 4 * 4 + from);
        for (int alpha = 0; alpha < 2; ++alpha)
          masked[alpha][rotation][k] = alpha == (from == 3) ? whole[rotation][k] : 0x80;
      }
  }
};
constexpr RotationPatterns kRotationPatterns;

template <int kMode>
QELJ_INLINE void ownDecodePalettes(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
  constexpr Layout kLayout{kMode};
  constexpr bc7::Mode kOf = kLayout.mode;
  constexpr int kBits = kOf.indexBits, kSubsets = kOf.subsets;
  // (Wider vectors than the palettes need are no faster.)
  using V = std::conditional_t<(kSubsets << kBits > 8), simd::Wide<uint8_t>, U8>;
  using Pixels = simd::With<uint32_t, V>;
  constexpr int kLanes = simd::kLanes<Pixels>, kParts = 16 / kLanes;
  constexpr int kBlocks = int(sizeof(V)) / 16, kPerSubset = (1 << kBits) / 4;
  const V block = simd::repeatBlock<V>(load<U8x16>(src));
  const Bits bits(src);
  if constexpr (kOf.secondIndexBits != 0) {
    constexpr int kSecond = kOf.secondIndexBits;
    const auto values = unpackEndPoints<kMode, 0, 1>(block);
    const V ends = simd::packU8(values, values);
    const int rotation = int(bits.at(kLayout.rotation, kOf.rotationBits));
    const int exchanged = int(bits.at(kLayout.indexSelection, kOf.indexSelectionBits));
    const auto only = [&](V of, int alpha) QELJ_INLINE_LAMBDA {
      return as<Pixels>(shuffleBytes(of, simd::repeatBlock<V>(load<U8x16>(kRotationPatterns.masked[alpha][rotation]))));
    };
    const V both = palette<kBits>(ends);
    const Pixels first = only(both, exchanged);
    const Pixels second = only(kSecond == kBits ? both : palette<kSecond>(ends), 1 - exchanged);
    for (int part = 0; part < kParts; ++part) {
      const Pixels index = indicesAt<1, kBits, kLayout.indices, Pixels>(src, 0, part);
      const Pixels index2 = indicesAt<1, kSecond, kLayout.secondIndices, Pixels>(src, 0, part);
      static_assert(kBits == 2);
      Pixels pixels = simd::pickLanes(first, index);
      if constexpr (kSecond == 2) pixels |= simd::pickLanes(second, index2);
      else pixels |= simd::pickAnyLanes(second, index2);
      storeRows(row(dst, dstStep, 4 / kParts * part), dstStep, pixels);
    }
  } else {
    constexpr int kCount = (kSubsets * kPerSubset + kBlocks - 1) / kBlocks;
    const int shape = int(bits.at(kLayout.partition, kOf.partitionBits));
    Pixels palettes[kCount];
    simd::unroll<kCount>([&](auto i) QELJ_INLINE_LAMBDA {
      // Where a vector is one subset's palette, those of two subsets unpack as one.
      constexpr bool kTwo = kBlocks == 2 && kPerSubset == 2;
      constexpr int kFirst = kTwo ? i / 2 * 2 : i * kBlocks / kPerSubset;
      const auto values = unpackEndPoints<kMode, kFirst, kTwo ? 1 : kPerSubset>(block);
      V ends = simd::packU8(values, values);
      if constexpr (kTwo) ends = i % 2 ? simd::highBlocks(ends, ends) : simd::lowBlocks(ends, ends);
      palettes[i] = as<Pixels>(palette<kBits, i * kBlocks % kPerSubset>(ends));
    });
    // As differences in bits, an index beyond a vector's lanes changes what the vectors before gave.
    for (int i = kCount - 1; i > 0; --i) palettes[i] ^= palettes[i - 1];
    const int set = kAnchorSets<kSubsets>.of[shape];
    for (int part = 0; part < kParts; ++part) {
      const Pixels index = indicesAt<kSubsets, kBits, kLayout.indices, Pixels>(src, set, part) |
                           load<Pixels>(kEntriesBefore<kSubsets, kBits>.of[shape] + kLanes * part);
      Pixels pixels = simd::pickAnyLanes(palettes[0], index);
      for (int i = 1; i < kCount; ++i)
        pixels ^= simd::pickAnyLanes(palettes[i], index) & as<Pixels>(as<int32_t>(index) >= kLanes * i);
      storeRows(row(dst, dstStep, 4 / kParts * part), dstStep, pixels);
    }
  }
}

// --- vector form by pixels ---------------------------------------------------------------------------------

// Spreads what is known of a pixel over the 8 bytes r0 r1 g0 g1 b0 b1 a0 a1 of its interpolation: pixels 0 and 1 of a
// row, and 2 and 3.
struct PixelSpread {
  uint8_t pixel[4][2][16] = {};   // [row] from 16 bytes, one a pixel
  uint8_t weight[2][2][16] = {};  // [row of two] from 8 pairs of weights
  uint8_t colour[2][2][16] = {};  // the same, without the alpha bytes
  uint8_t alpha[2][2][16] = {};   // and with nothing else
  constexpr PixelSpread() {
    for (int y = 0; y < 4; ++y)
      for (int half = 0; half < 2; ++half)
        for (int k = 0; k < 16; ++k) {
          const int i = 4 * y + 2 * half + k / 8;
          const auto pair = uint8_t(i % 8 * 2 + k % 2);
          pixel[y][half][k] = uint8_t(i);
          weight[y % 2][half][k] = pair;
          colour[y % 2][half][k] = k % 8 < 6 ? pair : 0x80;
          alpha[y % 2][half][k] = k % 8 < 6 ? 0x80 : pair;
        }
  }
};
[[maybe_unused]] constexpr PixelSpread kSpread;

template <int kMode>
QELJ_INLINE void ownDecodePixels(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  constexpr Layout kLayout{kMode};
  const Bits bits(src);
  const U8x16 block = load<U8x16>(src);
  const int shape = int(bits.at(kLayout.partition, kOf.partitionBits));
  const int rotation = int(bits.at(kLayout.rotation, kOf.rotationBits));

  // End-points of subsets 0 and 1, and of subset 2, 8 bytes each.
  const I16x8 first = unpackEndPoints<kMode, 0, 1>(block);
  I16x8 second = first, third = first;
  if constexpr (kOf.subsets > 1) second = unpackEndPoints<kMode, 1, 1>(block);
  if constexpr (kOf.subsets > 2) third = unpackEndPoints<kMode, 2, 1>(block);
  const U8x16 ends = simd::packU8(first, second), ends2 = simd::packU8(third, third);
  const U8x16 offsets = (load<U8x16>(bc7::shape<kOf.subsets>(shape).subsets) & uint8_t(3)) * uint8_t(8);

  // Of pixels 0 to 7 and of 8 to 15.
  U8x16 colour[2], alpha[2];
  weightPairs<kOf.subsets, kOf.indexBits, kLayout.indices>(block, kAnchorSets<kOf.subsets>.of[shape], colour);
  if constexpr (kOf.secondIndexBits != 0) weightPairs<1, kOf.secondIndexBits, kLayout.secondIndices>(block, 0, alpha);
  if (bits.at(kLayout.indexSelection, kOf.indexSelectionBits)) std::swap(colour, alpha);

  for (int y = 0; y < 4; ++y) {
    const auto half = [&](int h) {
      const auto weightsOf = [&](const U8x16(&pairs)[2], const uint8_t* spread) {
        return shuffleBytes(pairs[y / 2], load<U8x16>(spread));
      };
      U8x16 weights;
      if constexpr (kOf.secondIndexBits == 0) weights = weightsOf(colour, kSpread.weight[y % 2][h]);
      else weights = weightsOf(colour, kSpread.colour[y % 2][h]) | weightsOf(alpha, kSpread.alpha[y % 2][h]);

      U8x16 pairs = ends;
      if constexpr (kOf.subsets > 1) {
        const U8x16 at = shuffleBytes(offsets, load<U8x16>(kSpread.pixel[y][h])) +
                         simd::blockPattern<U8x16>({0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7});
        pairs = shuffleBytes(ends, at);
        if constexpr (kOf.subsets > 2) pairs = select(as<int8_t>(at) > int8_t(15), ends2, pairs);
      }
      // (sum + 32) >> 6
      return mulHiRound(simd::mulAddBytes(pairs, as<int8_t>(weights)), all<I16x8>(512));
    };
    U8x16 pixels = simd::packU8(half(0), half(1));
    // (A pattern put together in memory could not be read at once.)
    if constexpr (kOf.rotationBits != 0) pixels = shuffleBytes(pixels, load<U8x16>(kRotationPatterns.whole[rotation]));
    store(row(dst, dstStep, y), pixels);
  }
}

// --- format ------------------------------------------------------------------------------------------------

template <int kMode>
QELJ_INLINE void ownDecode(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
  if constexpr (kPalettes) ownDecodePalettes<kMode>(src, dst, dstStep);
  else if constexpr (simd::kShuffles) ownDecodePixels<kMode>(src, dst, dstStep);
  else ownDecodeBlock<kMode>(src, dst, dstStep);
}

struct Bc7Decoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4;
  // The modes, and what is reserved: transparent black.
  static constexpr int kKinds = 9;
  static constexpr int kindOf(uint8_t first) { return std::countr_zero(first | 256u); }
  template <int kKind>
  static U8 isOfKind(U8 first) {
    return as<U8>((first & -first) == uint8_t(1 << kKind));
  }
  template <int kKind>
  static QELJ_INLINE void ofKind(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    if constexpr (kKind < 8) {
      ownDecode<kKind>(src, dst, dstStep);
    } else {
      for (int y = 0; y < 4; ++y) std::memset(row(dst, dstStep, y), 0, 16);
    }
  }
};

}  // namespace
}  // namespace texture

QelStatus qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return texture::decodeBlocks<texture::Bc7Decoder>(src, dst, dstStep, size);
}

}  // namespace qelj
