// Encoders of DXT1, DXT3, DXT5 (BC1 to BC3), BC4 and BC5, and of YCoCg images into DXT5.
//
// End-points are the corners of the block's bounding box, pulled inwards by a sixteenth; every pixel then picks its
// index by a fixed rule. Each step has a scalar form, which is the definition, and, for the blocks that the walk hands
// over in groups, a vector form for the kAcross blocks of a vector at once, each in its 16 bytes.
#include <cstdlib>

#include "frame/fronts.h"
#include "texture/encode_walk.h"
#include "texture/indices.h"

namespace qelj {
namespace texture {
namespace {

using simd::blockPattern, simd::shuffleBytes;
using simd::I16, simd::I32, simd::I8, simd::U16, simd::U32, simd::U64, simd::U8;

// A value at or below t of the seven thresholds takes ramp entry kRampIndex[t]. The largest values take entry
// 0 and the smallest entry 1.
constexpr uint8_t kRampIndex[16] = {0, 2, 3, 4, 5, 6, 7, 1};

// Groups of DXT5 find indices by a division instead of comparisons: step t of the span takes this entry.
constexpr uint8_t kColourStepIndex[16] = {1, 3, 2, 0};
constexpr uint8_t kAlphaStepIndex[16] = {1, 7, 6, 5, 4, 3, 2, 0};

// The reciprocals of that division: (8 position * reciprocal) >> 16 counts the steps of `span` + 1 values. They are
// 16 bits with their sign; those that don't fit have wrapped.
template <int kSteps, int kSpans>
struct Reciprocals {
  int16_t of[kSpans];
  constexpr Reciprocals() : of{} {
    for (int span = 0; span < kSpans; ++span) of[span] = int16_t(uint16_t(kSteps * 65536 / 8 / (span + 1)));
  }
};
constexpr Reciprocals<4, 3 * 255 + 1> kColourReciprocals;
constexpr Reciprocals<8, 255 + 1> kAlphaReciprocals;

// --- both forms --------------------------------------------------------------------------------------------

// Of one channel's samples; V is an int, or bytes that are the same throughout a block.
template <class V>
struct Extremes {
  V min, max;
  V inset() const { return shr(max - min, 4); }
  V low() const { return min + inset(); }
  V high() const { return max - inset(); }
};

// To 8 bits again, from the upper kBits of 8.
template <int kBits, class V>
constexpr V expand(V value) {
  return (value & all<V>(Lane<V>(0xFF << (8 - kBits) & 0xFF))) | shr(value, kBits);
}

// --- scalar form -------------------------------------------------------------------------------------------

Extremes<int> extremes(const uint8_t* values) {
  const auto [min, max] = std::minmax_element(values, values + 16);
  return {*min, *max};
}

// The 16 samples of each channel.
template <int kChannels>
struct BlockSamples {
  uint8_t of[kChannels][16];
  BlockSamples(const uint8_t* src, ptrdiff_t srcStep) {
    for (int i = 0; i < 16; ++i)
      for (int c = 0; c < kChannels; ++c) of[c][i] = row(src, srcStep, i / 4)[i % 4 * kChannels + c];
  }
};

constexpr uint32_t pack565(int r, int g, int b) { return uint32_t(r >> 3 << 11 | g >> 2 << 5 | b >> 3); }

// Sixteen 2-bit indices: the nearest palette entry by the sum of absolute differences, ties going by the
// order in which the five comparisons combine.
template <int kChannels>
uint32_t colourIndices(const uint8_t (*planes)[16], const int (&high)[kChannels], const int (&low)[kChannels]) {
  uint32_t indices = 0;
  for (int i = 0; i < 16; ++i) {
    int d0 = 0, d1 = 0, d2 = 0, d3 = 0;
    for (int c = 0; c < kChannels; ++c) {
      const int x = planes[c][i], p0 = high[c], p1 = low[c];
      d0 += std::abs(x - p0);
      d1 += std::abs(x - p1);
      d2 += std::abs(x - (2 * p0 + p1) / 3);
      d3 += std::abs(x - (p0 + 2 * p1) / 3);
    }
    const bool b0 = d0 > d3, b1 = d1 > d2, b2 = d0 > d2, b3 = d1 > d3, b4 = d2 > d3;
    indices |= uint32_t((b0 && b4) | ((b1 && b2) || (b0 && b3)) << 1) << 2 * i;
  }
  return indices;
}

struct ColourEnds {
  Extremes<int> r, g, b;
  explicit ColourEnds(const BlockSamples<4>& planes)
      : r(extremes(planes.of[0])), g(extremes(planes.of[1])), b(extremes(planes.of[2])) {}
  uint32_t packed() const { return pack565(r.high(), g.high(), b.high()) | pack565(r.low(), g.low(), b.low()) << 16; }
};

uint64_t ownColourBlock(const BlockSamples<4>& planes) {
  const ColourEnds ends(planes);
  const auto indices =
      colourIndices<3>(planes.of, {expand<5>(ends.r.high()), expand<6>(ends.g.high()), expand<5>(ends.b.high())},
                       {expand<5>(ends.r.low()), expand<6>(ends.g.low()), expand<5>(ends.b.low())});
  return ends.packed() | uint64_t(indices) << 32;
}

// a0 >= a1. The thresholds lie in the middle between the ramp's values, up to the truncations.
uint64_t ownRampBlock(const uint8_t* values, int a0, int a1) {
  const int middle = (a0 - a1) / 14;
  uint8_t thresholds[7] = {uint8_t(a1 + middle)};
  for (int i = 1; i < 7; ++i) thresholds[i] = uint8_t(((7 - i) * a0 + i * a1) / 7 + middle);
  uint64_t block = uint64_t(a0) | uint64_t(a1) << 8;
  for (int i = 0; i < 16; ++i) {
    int count = 0;
    for (int t = 0; t < 7; ++t) count += values[i] <= thresholds[t];
    block |= uint64_t(kRampIndex[count]) << (16 + 3 * i);
  }
  return block;
}
uint64_t ownRampBlock(const uint8_t* values) {
  const Extremes<int> ends = extremes(values);
  return ownRampBlock(values, ends.high(), ends.low());
}

// A block of DXT5 in a group: the position of a pixel's sum of channels within the block's span gives its index.
[[maybe_unused]] void ownGroupedDxt5Block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
  const BlockSamples<4> planes(src, srcStep);
  const ColourEnds ends(planes);
  const Extremes<int> alpha = extremes(planes.of[3]);
  const int minimum = ends.r.min + ends.g.min + ends.b.min;
  const int colourSpan = ends.r.max + ends.g.max + ends.b.max - minimum, alphaSpan = alpha.max - alpha.min;
  uint64_t alphas = uint64_t(alpha.high()) | uint64_t(alpha.low()) << 8;
  uint64_t colours = ends.packed();
  for (int i = 0; i < 16; ++i) {
    const int s = planes.of[0][i] + planes.of[1][i] + planes.of[2][i] - minimum, a = planes.of[3][i] - alpha.min;
    const int colourStep = std::max(0, 8 * s * kColourReciprocals.of[colourSpan] >> 16);
    const int alphaStep = std::max(0, 8 * a * kAlphaReciprocals.of[alphaSpan] >> 16);
    colours |= uint64_t(kColourStepIndex[colourStep]) << (32 + 2 * i);
    alphas |= uint64_t(kAlphaStepIndex[alphaStep]) << (16 + 3 * i);
  }
  store(dst, alphas);
  store(dst + 8, colours);
}

// --- vector form -------------------------------------------------------------------------------------------

inline U8 swapHalves(U8 v) {
  return shuffleBytes(v, blockPattern({8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7}));
}

// Combines all 16 bytes of each block (or its four pixels) by `op`; every byte (or pixel) holds the result.
template <class Op>
inline U8 reducePixels(U8 v, Op op) {
  v = op(v, swapHalves(v));
  return op(v, shuffleBytes(v, blockPattern({4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9, 10, 11})));
}
template <class Op>
inline U8 reduceBytes(U8 v, Op op) {
  v = reducePixels(v, op);
  v = op(v, shuffleBytes(v, blockPattern({2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13})));
  return op(v, shuffleBytes(v, blockPattern({1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14})));
}
constexpr auto kMin = [](U8 a, U8 b) { return min(a, b); };
constexpr auto kMax = [](U8 a, U8 b) { return max(a, b); };

using Box = Extremes<U8>;

inline Box extremes(U8 values) { return {reduceBytes(values, kMin), reduceBytes(values, kMax)}; }

// The rows of kAcross blocks of RGBA pixels side by side.
struct BlockRows {
  U8 of[4];
  BlockRows(const uint8_t* src, ptrdiff_t srcStep) {
    for (int y = 0; y < 4; ++y) of[y] = load<U8>(row(src, srcStep, y));
  }
  Box box() const {
    const U8 least = min(min(of[0], of[1]), min(of[2], of[3]));
    const U8 most = max(max(of[0], of[1]), max(of[2], of[3]));
    return {reducePixels(least, kMin), reducePixels(most, kMax)};
  }
  U8 alphas() const {
    const auto two = [&](int y) {
      return simd::packI16(as<I32>(as<U32>(of[y]) >> 24), as<I32>(as<U32>(of[y + 1]) >> 24));
    };
    return simd::packU8(two(0), two(2));
  }
};

// For 16 pixels of each block: weights (w, w, w, 0) on the differences of two rows from one pixel.
inline I16 sumRows(U8 first, U8 second, uint32_t w) {
  const auto weights = as<I8>(all<U32>(0x010101 * w));
  const auto ones = simd::pairs(1, 1);
  return simd::packI16(simd::mulAddPairs(simd::mulAddBytes(first, weights), ones),
                       simd::mulAddPairs(simd::mulAddBytes(second, weights), ones));
}

inline U8 distance(U8 a, U8 b) { return subSat(a, b) | subSat(b, a); }

// c0 and c1 in the low 32 bits of each block.
inline U64 packEnds(const Box& box) {
  const auto ends = as<U32>(simd::unpackLow(as<U32>(box.high()), as<U32>(box.low())));
  const auto packed = (ends << 8 & 0xF800u) | (ends >> 5 & 0x07E0u) | (ends >> 19 & 0x001Fu);
  return (as<U64>(packed) | as<U64>(packed) >> 16) & 0xFFFFFFFFu;
}

inline U8 expandEnds(U8 ends) {
  return (ends & as<U8>(all<U32>(0x00F8FCF8))) | (as<U8>(as<U16>(ends) >> 5) & as<U8>(all<U32>(0x00070007))) |
         (as<U8>(as<U16>(ends) >> 6) & as<U8>(all<U32>(0x00000300)));
}

// Palette entries 2 and 3, a third of the way from 0 to 1 and from 1 to 0, where all pixels of a block are the same.
inline void mixPalette(U8 (&palette)[4]) {
  const auto p0 = as<U16>(simd::unpackLow(palette[0], U8{})), p1 = as<U16>(simd::unpackLow(palette[1], U8{}));
  const auto p2 = as<I16>(simd::divide<3, 3 * 255>(p0 + p0 + p1)), p3 = as<I16>(simd::divide<3, 3 * 255>(p0 + p1 + p1));
  palette[2] = simd::packU8(p2, p2);
  palette[3] = simd::packU8(p3, p3);
}

inline I16 nearest(const I16 (&d)[4]) {
  const I16 b0 = d[0] > d[3], b1 = d[1] > d[2], b2 = d[0] > d[2], b3 = d[1] > d[3], b4 = d[2] > d[3];
  return (b0 & b4 & int16_t(1)) | (((b1 & b2) | (b0 & b3)) & int16_t(2));
}

inline U64 ownColourBlocks(const BlockRows& rows, const Box& box) {
  U8 palette[4] = {expandEnds(box.high()), expandEnds(box.low())};
  mixPalette(palette);
  const auto indicesOfRows = [&](U8 first, U8 second) {
    I16 d[4];
    for (int k = 0; k < 4; ++k) d[k] = sumRows(distance(first, palette[k]), distance(second, palette[k]), 1);
    return nearest(d);
  };
  const U8 indices = simd::packU8(indicesOfRows(rows.of[0], rows.of[1]), indicesOfRows(rows.of[2], rows.of[3]));
  return packEnds(box) | packIndices<2>(indices) << 32;
}

// Every byte of a block holds the block's a0 and a1.
inline U64 packRamps(U8 a0, U8 a1, U8 indices) {
  const auto ends = as<U64>(simd::unpackLow(a0, a1)) & 0xFFFFu;
  return ends | packIndices<3>(indices) << 16;
}

// Every byte of a block holds the block's a0 and a1.
inline U64 ownRampBlocks(U8 values, U8 a0, U8 a1) {
  const auto middle = simd::divide<14, 255>(as<U16>(a0 - a1) & uint16_t(0xFF));
  const auto sevenths = as<U16>(simd::mulAddBytes(
      simd::unpackLow(a0, a1), as<I8>(blockPattern({0, 7, 6, 1, 5, 2, 4, 3, 3, 4, 2, 5, 1, 6, 0, 0}))));
  const auto thresholds16 = as<I16>(simd::divide<7, 7 * 255>(sevenths) + middle);
  const U8 thresholds = simd::packU8(thresholds16, thresholds16);
  U8 count{};
  for (int t = 0; t < 7; ++t) {
    const U8 threshold = shuffleBytes(thresholds, all<U8>(uint8_t(t)));
    count -= as<U8>(min(values, threshold) == values);
  }
  return packRamps(a0, a1, shuffleBytes(blockPattern(kRampIndex), count));
}

inline U64 ownRampBlocks(U8 values) {
  const Box ends = extremes(values);
  return ownRampBlocks(values, ends.high(), ends.low());
}

// (8 * span position * reciprocal) >> 16, not below 0, mapped to indices.
inline U8 stepIndices(I16 low, I16 high, I16 reciprocal, const uint8_t (&map)[16]) {
  return shuffleBytes(blockPattern(map), simd::packU8(mulHi(low, reciprocal), mulHi(high, reciprocal)));
}

[[maybe_unused]] inline U8 ownGroupedDxt5Blocks(const BlockRows& rows) {
  const Box box = rows.box();
  uint8_t spans[simd::kBytes];
  store(spans, box.max - box.min);
  U64 reciprocals{};
  for (int i = 0; i < kAcross; ++i) {
    const uint8_t* span = spans + 16 * i;
    reciprocals[2 * i] = uint64_t(uint16_t(kColourReciprocals.of[span[0] + span[1] + span[2]])) |
                         uint64_t(uint16_t(kAlphaReciprocals.of[span[3]])) << 16;
  }
  const auto ofColour = as<I16>(shuffleBytes(as<U8>(reciprocals), as<U8>(all<U16>(0x0100))));
  const auto ofAlpha = as<I16>(shuffleBytes(as<U8>(reciprocals), as<U8>(all<U16>(0x0302))));

  const auto sums = [&](int y) { return sumRows(rows.of[y] - box.min, rows.of[y + 1] - box.min, 8); };
  const U8 colours = stepIndices(sums(0), sums(2), ofColour, kColourStepIndex);

  const U8 minimum = shuffleBytes(box.min, all<U8>(3)), maximum = shuffleBytes(box.max, all<U8>(3));
  const Box alphaBox{minimum, maximum};
  const U8 above = rows.alphas() - minimum;
  const U8 alphas = stepIndices(as<I16>(as<U16>(simd::unpackLow(above, U8{})) << 3),
                                as<I16>(as<U16>(simd::unpackHigh(above, U8{})) << 3), ofAlpha, kAlphaStepIndex);
  return as<U8>(simd::unpackLow(packRamps(alphaBox.high(), alphaBox.low(), alphas),
                                packEnds(box) | packIndices<2>(colours) << 32));
}

// Stores the 8-byte results that stand in the low halves of the vector's blocks.
inline void storeBlocks(uint8_t* dst, U64 blocks) {
  for (int i = 0; i < kAcross; ++i) store(dst + 8 * i, uint64_t(blocks[2 * i]));
}

// --- formats -----------------------------------------------------------------------------------------------

struct Dxt1Encoder {
  static constexpr int kBlockBytes = 8, kPixelBytes = 4, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    store(dst, ownColourBlock(BlockSamples<4>(src, srcStep)));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const BlockRows rows(src, srcStep);
    storeBlocks(dst, ownColourBlocks(rows, rows.box()));
  }
};

struct Dxt3Encoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const BlockSamples<4> planes(src, srcStep);
    uint64_t alphas = 0;
    for (int i = 0; i < 16; ++i) alphas |= uint64_t(planes.of[3][i] >> 4) << 4 * i;
    store(dst, alphas);
    store(dst + 8, ownColourBlock(planes));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const BlockRows rows(src, srcStep);
    const U8 alphas = as<U8>(as<U16>(rows.alphas()) >> 4) & uint8_t(0x0F);
    store(dst, simd::unpackLow(packIndices<4>(alphas), ownColourBlocks(rows, rows.box())));
  }
};

// The 16 columns of a group have the indices of ownGroupedDxt5Block, on every build.
struct Dxt5Encoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4, kGroup = 4;
  static constexpr bool kGroupDiffers = true;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const BlockSamples<4> planes(src, srcStep);
    store(dst, ownRampBlock(planes.of[3]));
    store(dst + 8, ownColourBlock(planes));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    if constexpr (simd::kEnabled) {
      for (int i = 0; i < kGroup; i += kAcross)
        store(dst + i * kBlockBytes, ownGroupedDxt5Blocks(BlockRows(src + i * 4 * kPixelBytes, srcStep)));
    } else {
      for (int i = 0; i < kGroup; ++i) ownGroupedDxt5Block(src + i * 4 * kPixelBytes, srcStep, dst + i * kBlockBytes);
    }
  }
};

struct Bc4Encoder {
  static constexpr int kBlockBytes = 8, kPixelBytes = 1, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    store(dst, ownRampBlock(BlockSamples<1>(src, srcStep).of[0]));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    U32 values{};
    for (int i = 0; i < kAcross; ++i)
      for (int y = 0; y < 4; ++y) values[4 * i + y] = load<uint32_t>(row(src, srcStep, y) + 4 * i);
    storeBlocks(dst, ownRampBlocks(as<U8>(values)));
  }
};

struct Bc5Encoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 2, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const BlockSamples<2> planes(src, srcStep);
    store(dst, ownRampBlock(planes.of[0]));
    store(dst + 8, ownRampBlock(planes.of[1]));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const auto twoRows = [&](int y) {
      U64 v{};
      for (int i = 0; i < 2 * kAcross; ++i) v[i] = load<uint64_t>(row(src, srcStep, y + i % 2) + i / 2 * 8);
      return as<U16>(v);
    };
    const U16 upper = twoRows(0), lower = twoRows(2);
    const U8 red = simd::packU8(as<I16>(upper & uint16_t(0xFF)), as<I16>(lower & uint16_t(0xFF)));
    const U8 green = simd::packU8(as<I16>(upper >> 8), as<I16>(lower >> 8));
    store(dst, simd::unpackLow(ownRampBlocks(red), ownRampBlocks(green)));
  }
};

// Y goes to the alpha ramp, Co to red and Cg to green; blue tells by how much the chroma was scaled.
struct YCoCgEncoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 3, kGroup = kAcross;

  // One chroma channel's end-points: inset by about a sixteenth, with rounding, and expanded again. An inset
  // below 0 wraps to 255.
  template <class V>
  struct ChromaEnds {
    V low, high;
  };
  template <int kBits>
  static ChromaEnds<int> chromaEnds(int min, int max) {
    const int span = max - min;
    const auto low = uint8_t((16 * min + span - 7) >> 4), high = uint8_t((16 * max - (span - 7)) >> 4);
    return {expand<kBits>(low), expand<kBits>(high)};
  }

  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    BlockSamples<3> planes(src, srcStep);
    const Extremes<int> y = extremes(planes.of[0]), rawCo = extremes(planes.of[1]), rawCg = extremes(planes.of[2]);
    const int widest = std::max(
        {std::abs(rawCo.min - 128), std::abs(rawCo.max - 128), std::abs(rawCg.min - 128), std::abs(rawCg.max - 128)});
    const int code = (widest < 64 ? 1 : 0) + (widest < 32 ? 2 : 0), factor = code + 1;
    const auto scaled = [&](int x) { return uint8_t(factor * (x - 128) + 128); };
    for (int c = 1; c < 3; ++c)
      for (auto& x : planes.of[c]) x = scaled(x);

    const auto co = chromaEnds<5>(scaled(rawCo.min), scaled(rawCo.max));
    auto cg = chromaEnds<6>(scaled(rawCg.min), scaled(rawCg.max));
    // The box has two diagonals. Most pixels on opposite sides of the middle: take the falling one.
    const int middleCo = (co.low + co.high + 1) >> 1, middleCg = (cg.low + cg.high + 1) >> 1;
    int opposite = 0;
    for (int i = 0; i < 16; ++i) opposite += (planes.of[1][i] >= middleCo) != (planes.of[2][i] >= middleCg);
    if (opposite > 8) std::swap(cg.low, cg.high);

    const auto packed = [&](int o, int g) { return uint32_t(o >> 3 << 11 | g >> 2 << 5 | code); };
    const auto ends = packed(co.high, cg.high) | packed(co.low, cg.low) << 16;
    const auto indices = colourIndices<2>(planes.of + 1, {co.high, cg.high}, {co.low, cg.low});
    store(dst, ownRampBlock(planes.of[0], y.max, y.min));  // the ramp of Y has no inset
    store(dst + 8, ends | uint64_t(indices) << 32);
  }

  // The steps of block() for a group.

  static void loadPlanes(const uint8_t* src, ptrdiff_t srcStep, U8 (&planes)[3]) {
    const auto pixels = [&](int y) {  // the 12 bytes of a row of each block
      U64 v{};
      for (int i = 0; i < 2 * kAcross; ++i) {
        const uint8_t* from = row(src, srcStep, y) + i / 2 * 12;
        v[i] = i % 2 ? load<uint32_t>(from + 8) : load<uint64_t>(from);
      }
      return as<U8>(v);
    };
    const U8 rows[4] = {pixels(0), pixels(1), pixels(2), pixels(3)};
    for (int c = 0; c < 3; ++c) {
      // (A pattern put together in memory could not be read at once.)
      const auto part = [&](int y) {
        return shuffleBytes(rows[y], simd::repeatBlock(load<simd::U8x16>(kRowsToPlanes.of[y][c])));
      };
      planes[c] = (part(0) | part(1)) | (part(2) | part(3));
    }
  }

  // Doubles the distance from 128 once or twice, where that fits 8 bits.
  struct Scale {
    U8 below64, below32;  // masks of blocks
    Scale(const Box& co, const Box& cg) {
      const U8 centre = all<U8>(128);
      const U8 widest = max(max(distance(co.min, centre), distance(co.max, centre)),
                            max(distance(cg.min, centre), distance(cg.max, centre)));
      below64 = as<U8>(min(widest, all<U8>(63)) == widest);
      below32 = as<U8>(min(widest, all<U8>(31)) == widest);
    }
    U8 of(U8 x) const {
      const U8 centre = all<U8>(128);
      x ^= centre;
      x = select(below64, x + x, x);
      return select(below32, x + x, x) ^ centre;
    }
    U8 code() const { return (below64 & uint8_t(1)) + (below32 & uint8_t(2)); }
  };

  template <int kBits>
  static ChromaEnds<U8> chromaEnds(U8 least, U8 most) {
    const auto min = as<I16>(simd::unpackLow(least, U8{})), max = as<I16>(simd::unpackLow(most, U8{}));
    const I16 span = max - min - int16_t(7);
    const I16 low = ((min << 4) + span) >> 4 & int16_t(0xFF), high = ((max << 4) - span) >> 4 & int16_t(0xFF);
    return {expand<kBits>(simd::packU8(low, low)), expand<kBits>(simd::packU8(high, high))};
  }

  // A mask of the blocks in which the falling diagonal is the better one.
  static U8 fallsOf(U8 cos, U8 cgs, const ChromaEnds<U8>& co, const ChromaEnds<U8>& cg) {
    const auto notBelow = [](U8 a, U8 b) { return as<U8>(max(a, b) == a); };
    const U8 sides = notBelow(cos, average(co.low, co.high)) ^ notBelow(cgs, average(cg.low, cg.high));
    U64 opposite = simd::sumAbsDiff8(sides & uint8_t(1), U8{});
    opposite += as<U64>(swapHalves(as<U8>(opposite)));
    return as<U8>(as<simd::I64>(opposite) > 8);
  }

  static U64 packChromaEnds(const ChromaEnds<U8>& co, const ChromaEnds<U8>& cg, U8 code) {
    // Bytes are the same throughout a block: a 16-bit lane is one times 257.
    const auto packed = [&](U8 o, U8 g) {
      return (as<U16>(o) << 8 & uint16_t(0xF800)) | (as<U16>(g) << 3 & uint16_t(0x07E0)) |
             (as<U16>(code) & uint16_t(0x1F));
    };
    return as<U64>(simd::unpackLow(packed(co.high, cg.high), packed(co.low, cg.low))) & 0xFFFFFFFFu;
  }

  static U8 nearestOf(U8 cos, U8 cgs, const ChromaEnds<U8>& co, const ChromaEnds<U8>& cg) {
    U8 reds[4] = {co.high, co.low}, greens[4] = {cg.high, cg.low};
    mixPalette(reds);
    mixPalette(greens);
    I16 first[4], second[4];
    for (int k = 0; k < 4; ++k) {
      const U8 red = distance(cos, reds[k]), green = distance(cgs, greens[k]);
      const auto ones = all<I8>(1);
      first[k] = simd::mulAddBytes(simd::unpackLow(red, green), ones);
      second[k] = simd::mulAddBytes(simd::unpackHigh(red, green), ones);
    }
    return simd::packU8(nearest(first), nearest(second));
  }

  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    U8 planes[3];
    loadPlanes(src, srcStep, planes);
    const Box y = extremes(planes[0]), rawCo = extremes(planes[1]), rawCg = extremes(planes[2]);
    const Scale scale(rawCo, rawCg);
    const U8 cos = scale.of(planes[1]), cgs = scale.of(planes[2]);

    const auto co = chromaEnds<5>(scale.of(rawCo.min), scale.of(rawCo.max));
    auto cg = chromaEnds<6>(scale.of(rawCg.min), scale.of(rawCg.max));
    const U8 falls = fallsOf(cos, cgs, co, cg);
    cg = {select(falls, cg.high, cg.low), select(falls, cg.low, cg.high)};

    const U64 ends = packChromaEnds(co, cg, scale.code());
    const U64 indices = packIndices<2>(nearestOf(cos, cgs, co, cg));
    store(dst, simd::unpackLow(ownRampBlocks(planes[0], y.max, y.min), ends | indices << 32));
  }

  // From 12 bytes of a row to the 4 bytes of that row in a plane.
  struct RowsToPlanes {
    uint8_t of[4][3][16];
    constexpr RowsToPlanes() : of{} {
      for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 3; ++c)
          for (int i = 0; i < 16; ++i) of[r][c][i] = uint8_t(i / 4 == r ? 3 * (i % 4) + c : 0x80);
    }
  };
  static const RowsToPlanes kRowsToPlanes;
};
constexpr YCoCgEncoder::RowsToPlanes YCoCgEncoder::kRowsToPlanes;

}  // namespace
}  // namespace texture

QelStatus qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                       uint8_t* dst) {
  return texture::encodeBlocks<texture::Dxt1Encoder>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                       uint8_t* dst) {
  return texture::encodeBlocks<texture::Dxt3Encoder>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                       uint8_t* dst) {
  return texture::encodeBlocks<texture::Dxt5Encoder>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlock_BC4_8u_C1R(const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst) {
  return texture::encodeBlocks<texture::Bc4Encoder>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R(const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst) {
  return texture::encodeBlocks<texture::Bc5Encoder>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                        uint8_t* dst) {
  return texture::encodeBlocks<texture::YCoCgEncoder>(src, srcStep, size, dst);
}

}  // namespace qelj
