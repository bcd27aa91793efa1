// The decoder of BC7. A mode is a template argument, so that all of its field positions are constants. The
// scalar form is the definition; the vector form unpacks all end-points of a subset in one vector, and
// interpolates by one multiply-add of an end-point pair and a weight pair a channel.
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

using simd::I16x8, simd::U16x8, simd::U8, simd::U8x16;

// Where a subset's end-points lie, in 16-bit lanes r0 r1 g0 g1 b0 b1 a0 a1: the two bytes that hold a value,
// and the factor that brings it to the top of the lane; then the same for its p-bit.
struct EndPointLanes {
  uint8_t bytes[16] = {}, pBytes[16] = {};
  uint16_t toTop[8] = {}, pToTop[8] = {}, top[8] = {}, expand[8] = {}, opaque[8] = {};
};
template <int kMode, int kSubset>
constexpr EndPointLanes endPointLanes() {
  constexpr Layout kLayout{kMode};
  EndPointLanes lanes;
  for (int lane = 0; lane < 8; ++lane) {
    const int channel = lane / 2, endPoint = 2 * kSubset + lane % 2, bits = kLayout.bits(channel);
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
    lanes.pToTop[lane] = uint16_t(1 << (15 - p % 8));
    lanes.top[lane] = uint16_t(0xFFFF << (16 - bits));
    lanes.expand[lane] = uint16_t(256 + (1 << (8 - bits - kLayout.mode.pBits())));
  }
  return lanes;
}
template <int kMode, int kSubset>
[[maybe_unused]] constexpr EndPointLanes kEndPointLanes = endPointLanes<kMode, kSubset>();

// A value of n bits at the top of a lane expands to 8 as the high half of its product with 2^8 + 2^(8-n).
template <int kMode, int kSubset>
inline I16x8 unpackEndPoints(U8x16 block) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  const EndPointLanes& lanes = kEndPointLanes<kMode, kSubset>;
  const auto at = [](const uint16_t(&of)[8]) { return simd::blockLanes<U16x8>(of); };
  U16x8 values =
      (as<U16x8>(shuffleBytes(block, simd::blockPattern<U8x16>(lanes.bytes))) * at(lanes.toTop)) & at(lanes.top);
  if constexpr (kOf.pBits() != 0) {
    const U16x8 p = as<U16x8>(shuffleBytes(block, simd::blockPattern<U8x16>(lanes.pBytes))) * at(lanes.pToTop);
    values |= (p & uint16_t(0x8000)) >> kOf.colourBits;
  }
  values = mulHi(values, at(lanes.expand));
  if constexpr (kOf.alphaBits == 0) values |= at(lanes.opaque);
  return as<I16x8>(values);
}

// Spreads what is known of a pixel over the 8 bytes r0 r1 g0 g1 b0 b1 a0 a1 of its interpolation. Vector `half` of a
// step holds pixels 2 half and 2 half + 1 of a row in each 16 bytes, so that a pack of both gives whole rows.
struct PixelSpread {
  alignas(32) uint8_t pixel[4 / kAcross][2][simd::kBytes] = {};   // from 16 bytes, one a pixel
  alignas(32) uint8_t weight[4 / kAcross][2][simd::kBytes] = {};  // from 8 pairs of weights
  alignas(32) uint8_t colour[4 / kAcross][2][simd::kBytes] = {};  // the same, without the alpha bytes
  alignas(32) uint8_t alpha[4 / kAcross][2][simd::kBytes] = {};   // and with nothing else
  constexpr PixelSpread() {
    for (int step = 0; step < 4 / kAcross; ++step)
      for (int half = 0; half < 2; ++half)
        for (int k = 0; k < simd::kBytes; ++k) {
          const int i = 4 * (kAcross * step + k / 16) + 2 * half + k % 16 / 8;
          const auto pair = uint8_t(i % 8 * 2 + k % 2);
          pixel[step][half][k] = uint8_t(i);
          weight[step][half][k] = pair;
          colour[step][half][k] = k % 8 < 6 ? pair : 0x80;
          alpha[step][half][k] = k % 8 < 6 ? 0x80 : pair;
        }
  }
};
constexpr PixelSpread kSpread;

// Alpha trades places with red, green or blue.
constexpr uint8_t kRotations[4][16] = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
                                       {3, 1, 2, 0, 7, 5, 6, 4, 11, 9, 10, 8, 15, 13, 14, 12},
                                       {0, 3, 2, 1, 4, 7, 6, 5, 8, 11, 10, 9, 12, 15, 14, 13},
                                       {0, 1, 3, 2, 4, 5, 7, 6, 8, 9, 11, 10, 12, 13, 15, 14}};

template <int kMode>
inline void ownDecodeVectors(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  const Fields<kMode> fields{Bits(src)};
  const U8x16 block = load<U8x16>(src);

  // End-points of subsets 0 and 1, and of subset 2, 8 bytes each.
  const I16x8 first = unpackEndPoints<kMode, 0>(block);
  I16x8 second = first, third = first;
  if constexpr (kOf.subsets > 1) second = unpackEndPoints<kMode, 1>(block);
  if constexpr (kOf.subsets > 2) third = unpackEndPoints<kMode, 2>(block);
  const U8 ends = simd::repeatBlock(simd::packU8(first, second)), ends2 = simd::repeatBlock(simd::packU8(third, third));
  const U8 offsets = simd::repeatBlock((load<U8x16>(fields.shape.subsets) & uint8_t(3)) * uint8_t(8));

  PixelPairs colour = weightPairs<kOf.indexBits>(fields.indices), alpha = colour;
  if constexpr (kOf.secondIndexBits != 0) {
    alpha = weightPairs<kOf.secondIndexBits>(fields.second);
    if (fields.exchanged) std::swap(colour, alpha);
  }

  for (int step = 0; step < 4 / kAcross; ++step) {
    const auto half = [&](int h) {
      const auto weightsOf = [&](const PixelPairs& pairs, const uint8_t* spread) {
        return shuffleBytes(simd::repeatBlock(kAcross * step < 2 ? pairs.low : pairs.high), load<U8>(spread));
      };
      U8 weights;
      if constexpr (kOf.secondIndexBits == 0) weights = weightsOf(colour, kSpread.weight[step][h]);
      else weights = weightsOf(colour, kSpread.colour[step][h]) | weightsOf(alpha, kSpread.alpha[step][h]);

      U8 pairs = ends;
      if constexpr (kOf.subsets > 1) {
        const U8 at = shuffleBytes(offsets, load<U8>(kSpread.pixel[step][h])) +
                      simd::blockPattern({0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7});
        pairs = shuffleBytes(ends, at);
        if constexpr (kOf.subsets > 2) pairs = select(as<simd::I8>(at) > int8_t(15), ends2, pairs);
      }
      // (sum + 32) >> 6
      return mulHiRound(simd::mulAddBytes(pairs, as<simd::I8>(weights)), all<simd::I16>(512));
    };
    U8 pixels = simd::packU8(half(0), half(1));
    // (A pattern put together in memory could not be read at once.)
    if constexpr (kOf.rotationBits != 0)
      pixels = shuffleBytes(pixels, simd::repeatBlock(load<U8x16>(kRotations[fields.rotation])));
    uint8_t* to = row(dst, dstStep, kAcross * step);
    if constexpr (kAcross == 1) {
      store(to, pixels);
    } else {
      store(to, simd::lower(pixels));
      store(row(to, dstStep, 1), simd::upper(pixels));
    }
  }
}

// --- format ------------------------------------------------------------------------------------------------

template <int kMode>
void ownDecode(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
  if constexpr (simd::kShuffles) ownDecodeVectors<kMode>(src, dst, dstStep);
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
  static void ofKind(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
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
