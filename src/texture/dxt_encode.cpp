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

using simd::blockLanes;
using simd::blockPattern;
using simd::shuffleBytes;
using V = simd::U8;
using V16 = simd::U16;
using I16 = simd::I16;
using V32 = simd::U32;
using V64 = simd::U64;

// A value at or below t of the seven thresholds takes ramp entry kRampIndex[t]. The largest values take entry
// 0 and the smallest entry 1.
constexpr uint8_t kRampIndex[16] = {0, 2, 3, 4, 5, 6, 7, 1};

// Groups of DXT5 find indices by a division instead of comparisons: step t of the span takes this entry.
constexpr uint8_t kColourStepIndex[16] = {1, 3, 2, 0};
constexpr uint8_t kAlphaStepIndex[16] = {1, 7, 6, 5, 4, 3, 2, 0};

// The reciprocals of that division, of span + 1, in 16 bits with their sign: those that don't fit have wrapped.
template <int kNumerator, int kSpans>
struct Reciprocals {
  int16_t of[kSpans];
  constexpr Reciprocals() : of{} {
    for (int span = 0; span < kSpans; ++span) of[span] = int16_t(uint16_t(kNumerator / (span + 1)));
  }
};
constexpr Reciprocals<32768, 3 * 255 + 1> kColourReciprocals;
constexpr Reciprocals<65536, 255 + 1> kAlphaReciprocals;

// --- scalar form -------------------------------------------------------------------------------------------

struct Extremes {
  int min, max;
  int inset() const { return (max - min) >> 4; }
  int low() const { return min + inset(); }
  int high() const { return max - inset(); }
};

Extremes ownExtremes(const uint8_t* values) {
  const auto [min, max] = std::minmax_element(values, values + 16);
  return {*min, *max};
}

// The 16 samples of each channel.
template <int kChannels>
struct Planes {
  uint8_t of[kChannels][16];
  Planes(const uint8_t* src, ptrdiff_t srcStep) {
    for (int i = 0; i < 16; ++i)
      for (int c = 0; c < kChannels; ++c) of[c][i] = row(src, srcStep, i / 4)[i % 4 * kChannels + c];
  }
};

template <int kBits>
constexpr int ownExpand(int value) {  // to 8 bits again, from the upper kBits of 8
  return (value & (0xFF << (8 - kBits) & 0xFF)) | value >> kBits;
}
constexpr uint32_t ownPack565(int r, int g, int b) { return uint32_t(r >> 3 << 11 | g >> 2 << 5 | b >> 3); }

// Sixteen 2-bit indices: the nearest palette entry by the sum of absolute differences, ties going by the
// order in which the five comparisons combine.
template <int kChannels>
uint32_t ownColourIndices(const uint8_t (*planes)[16], const int (&high)[kChannels], const int (&low)[kChannels]) {
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
  Extremes r, g, b;
  explicit ColourEnds(const Planes<4>& planes)
      : r(ownExtremes(planes.of[0])), g(ownExtremes(planes.of[1])), b(ownExtremes(planes.of[2])) {}
  uint32_t packed() const {
    return ownPack565(r.high(), g.high(), b.high()) | ownPack565(r.low(), g.low(), b.low()) << 16;
  }
};

uint64_t ownColourBlock(const Planes<4>& planes) {
  const ColourEnds ends(planes);
  const auto indices = ownColourIndices<3>(
      planes.of, {ownExpand<5>(ends.r.high()), ownExpand<6>(ends.g.high()), ownExpand<5>(ends.b.high())},
      {ownExpand<5>(ends.r.low()), ownExpand<6>(ends.g.low()), ownExpand<5>(ends.b.low())});
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
  const Extremes ends = ownExtremes(values);
  return ownRampBlock(values, ends.high(), ends.low());
}

// A block of DXT5 in a group: the position of a pixel's sum of channels within the block's span gives its index.
[[maybe_unused]] void ownGroupedDxt5Block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
  const Planes<4> planes(src, srcStep);
  const ColourEnds ends(planes);
  const Extremes alpha = ownExtremes(planes.of[3]);
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

// Combines all 16 bytes of each block (or its four pixels) by `op`; every byte (or pixel) holds the result.
template <class Op>
inline V ownReducePixels(V v, Op op) {
  v = op(v, shuffleBytes(v, blockPattern({8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7})));
  return op(v, shuffleBytes(v, blockPattern({4, 5, 6, 7, 0, 1, 2, 3, 12, 13, 14, 15, 8, 9, 10, 11})));
}
template <class Op>
inline V ownReduceBytes(V v, Op op) {
  v = ownReducePixels(v, op);
  v = op(v, shuffleBytes(v, blockPattern({2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13})));
  return op(v, shuffleBytes(v, blockPattern({1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14})));
}
constexpr auto kMin = [](V a, V b) { return min(a, b); };
constexpr auto kMax = [](V a, V b) { return max(a, b); };

struct Box {
  V min, max;
  V inset() const { return (V)((V16)(max - min) >> 4) & uint8_t(0x0F); }
  V low() const { return min + inset(); }
  V high() const { return max - inset(); }
};

// The rows of kAcross blocks of RGBA pixels side by side.
struct Rows {
  V of[4];
  Rows(const uint8_t* src, ptrdiff_t srcStep) {
    for (int y = 0; y < 4; ++y) of[y] = load<V>(row(src, srcStep, y));
  }
  Box box() const {
    const V least = min(min(of[0], of[1]), min(of[2], of[3]));
    const V most = max(max(of[0], of[1]), max(of[2], of[3]));
    return {ownReducePixels(least, kMin), ownReducePixels(most, kMax)};
  }
  V alphas() const {
    const auto two = [&](int y) {
      return simd::packI16((simd::I32)((V32)of[y] >> 24), (simd::I32)((V32)of[y + 1] >> 24));
    };
    return simd::packU8(two(0), two(2));
  }
};

// For 16 pixels of each block: weights (w, w, w, 0) on the differences of two rows from one pixel.
inline I16 ownSumRows(V first, V second, int8_t w) {
  const auto weights =
      (simd::I8)blockPattern({uint8_t(w), uint8_t(w), uint8_t(w), 0, uint8_t(w), uint8_t(w), uint8_t(w), 0, uint8_t(w),
                              uint8_t(w), uint8_t(w), 0, uint8_t(w), uint8_t(w), uint8_t(w), 0});
  const auto ones = simd::pairs(1, 1);
  return simd::packI16(simd::mulAddPairs(simd::mulAddBytes(first, weights), ones),
                       simd::mulAddPairs(simd::mulAddBytes(second, weights), ones));
}

inline V ownDistance(V a, V b) { return subSat(a, b) | subSat(b, a); }

// c0 and c1 in the low 32 bits of each block.
inline V64 ownPackEnds(const Box& box) {
  const auto ends = (V32)simd::unpackLow((V32)box.high(), (V32)box.low());
  const auto packed = (ends << 8 & 0xF800u) | (ends >> 5 & 0x07E0u) | (ends >> 19 & 0x001Fu);
  return ((V64)packed | (V64)packed >> 16) & 0xFFFFFFFFu;
}

inline V ownExpandEnds(V ends) {
  return (ends & (V)all<V32>(0x00F8FCF8)) | ((V)((V16)ends >> 5) & (V)all<V32>(0x00070007)) |
         ((V)((V16)ends >> 6) & (V)all<V32>(0x00000300));
}

// Palette entries 2 and 3, a third of the way from 0 to 1 and from 1 to 0, where all pixels of a block are the same.
inline void ownMixPalette(V (&palette)[4]) {
  const auto p0 = (V16)simd::unpackLow(palette[0], V{}), p1 = (V16)simd::unpackLow(palette[1], V{});
  const auto third = all<V16>(0x5556);  // exact below 2^15
  const auto p2 = (I16)mulHi(p0 + p0 + p1, third), p3 = (I16)mulHi(p0 + p1 + p1, third);
  palette[2] = simd::packU8(p2, p2);
  palette[3] = simd::packU8(p3, p3);
}

inline I16 ownNearest(const I16 (&d)[4]) {
  const I16 b0 = d[0] > d[3], b1 = d[1] > d[2], b2 = d[0] > d[2], b3 = d[1] > d[3], b4 = d[2] > d[3];
  return (b0 & b4 & int16_t(1)) | (((b1 & b2) | (b0 & b3)) & int16_t(2));
}

inline V64 ownColourBlocks(const Rows& rows, const Box& box) {
  V palette[4] = {ownExpandEnds(box.high()), ownExpandEnds(box.low())};
  ownMixPalette(palette);
  const auto indicesOfRows = [&](V first, V second) {
    I16 d[4];
    for (int k = 0; k < 4; ++k) d[k] = ownSumRows(ownDistance(first, palette[k]), ownDistance(second, palette[k]), 1);
    return ownNearest(d);
  };
  const V indices = simd::packU8(indicesOfRows(rows.of[0], rows.of[1]), indicesOfRows(rows.of[2], rows.of[3]));
  return ownPackEnds(box) | packIndices<2>(indices) << 32;
}

// Every byte of a block holds the block's a0 and a1.
inline V64 ownPackRamps(V a0, V a1, V indices) {
  const auto ends = (V64)(simd::unpackLow(a0, a1)) & 0xFFFFu;
  return ends | packIndices<3>(indices) << 16;
}

// Every byte of a block holds the block's a0 and a1.
inline V64 ownRampBlocks(V values, V a0, V a1) {
  const auto middle = mulHi((V16)(a0 - a1) & uint16_t(0xFF), all<V16>(4682));  // / 14
  const auto sevenths = (V16)simd::mulAddBytes(
      simd::unpackLow(a0, a1), (simd::I8)blockPattern({0, 7, 6, 1, 5, 2, 4, 3, 3, 4, 2, 5, 1, 6, 0, 0}));
  const auto thresholds16 = (I16)(mulHi(sevenths, all<V16>(9363)) + middle);
  const V thresholds = simd::packU8(thresholds16, thresholds16);
  V count{};
  for (int t = 0; t < 7; ++t) {
    const V threshold = shuffleBytes(thresholds, all<V>(uint8_t(t)));
    count -= (V)(min(values, threshold) == values);
  }
  return ownPackRamps(a0, a1, shuffleBytes(blockPattern(kRampIndex), count));
}

inline V64 ownRampBlocks(V values) {
  const Box box{ownReduceBytes(values, kMin), ownReduceBytes(values, kMax)};
  return ownRampBlocks(values, box.high(), box.low());
}

// (8 * span position * reciprocal) >> 16, not below 0, mapped to indices.
inline V ownStepIndices(I16 low, I16 high, I16 reciprocal, const uint8_t (&map)[16]) {
  return shuffleBytes(blockPattern(map), simd::packU8(mulHi(low, reciprocal), mulHi(high, reciprocal)));
}

[[maybe_unused]] inline V ownGroupedDxt5Blocks(const Rows& rows) {
  const Box box = rows.box();
  uint8_t spans[simd::kBytes];
  store(spans, box.max - box.min);
  V64 reciprocals{};
  for (int i = 0; i < kAcross; ++i) {
    const uint8_t* span = spans + 16 * i;
    reciprocals[2 * i] = uint64_t(uint16_t(kColourReciprocals.of[span[0] + span[1] + span[2]])) |
                         uint64_t(uint16_t(kAlphaReciprocals.of[span[3]])) << 16;
  }
  const auto ofColour = (I16)shuffleBytes((V)reciprocals, (V)all<V16>(0x0100));
  const auto ofAlpha = (I16)shuffleBytes((V)reciprocals, (V)all<V16>(0x0302));

  const auto sums = [&](int y) { return ownSumRows(rows.of[y] - box.min, rows.of[y + 1] - box.min, 8); };
  const V colours = ownStepIndices(sums(0), sums(2), ofColour, kColourStepIndex);

  const V minimum = shuffleBytes(box.min, all<V>(3)), maximum = shuffleBytes(box.max, all<V>(3));
  const Box alphaBox{minimum, maximum};
  const V above = rows.alphas() - minimum;
  const V alphas = ownStepIndices((I16)((V16)simd::unpackLow(above, V{}) << 3),
                                  (I16)((V16)simd::unpackHigh(above, V{}) << 3), ofAlpha, kAlphaStepIndex);
  return (V)simd::unpackLow(ownPackRamps(alphaBox.high(), alphaBox.low(), alphas),
                            ownPackEnds(box) | packIndices<2>(colours) << 32);
}

// Stores the 8-byte results that stand in the low halves of the vector's blocks.
inline void ownStoreBlocks(uint8_t* dst, V64 blocks) {
  for (int i = 0; i < kAcross; ++i) store(dst + 8 * i, uint64_t(blocks[2 * i]));
}

// --- formats -----------------------------------------------------------------------------------------------

struct Dxt1 {
  static constexpr int kBlockBytes = 8, kPixelBytes = 4, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    store(dst, ownColourBlock(Planes<4>(src, srcStep)));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const Rows rows(src, srcStep);
    ownStoreBlocks(dst, ownColourBlocks(rows, rows.box()));
  }
};

struct Dxt3 {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const Planes<4> planes(src, srcStep);
    uint64_t alphas = 0;
    for (int i = 0; i < 16; ++i) alphas |= uint64_t(planes.of[3][i] >> 4) << 4 * i;
    store(dst, alphas);
    store(dst + 8, ownColourBlock(planes));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const Rows rows(src, srcStep);
    const V alphas = (V)((V16)rows.alphas() >> 4) & uint8_t(0x0F);
    store(dst, simd::unpackLow(packIndices<4>(alphas), ownColourBlocks(rows, rows.box())));
  }
};

// The 16 columns of a group have the indices of ownGroupedDxt5Block, on every build.
struct Dxt5 {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4, kGroup = 4;
  static constexpr bool kGroupDiffers = true;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const Planes<4> planes(src, srcStep);
    store(dst, ownRampBlock(planes.of[3]));
    store(dst + 8, ownColourBlock(planes));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    if constexpr (simd::kEnabled) {
      for (int i = 0; i < kGroup; i += kAcross)
        store(dst + i * kBlockBytes, ownGroupedDxt5Blocks(Rows(src + i * 4 * kPixelBytes, srcStep)));
    } else {
      for (int i = 0; i < kGroup; ++i) ownGroupedDxt5Block(src + i * 4 * kPixelBytes, srcStep, dst + i * kBlockBytes);
    }
  }
};

struct Bc4 {
  static constexpr int kBlockBytes = 8, kPixelBytes = 1, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    store(dst, ownRampBlock(Planes<1>(src, srcStep).of[0]));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    V32 values{};
    for (int i = 0; i < kAcross; ++i)
      for (int y = 0; y < 4; ++y) values[4 * i + y] = load<uint32_t>(row(src, srcStep, y) + 4 * i);
    ownStoreBlocks(dst, ownRampBlocks((V)values));
  }
};

struct Bc5 {
  static constexpr int kBlockBytes = 16, kPixelBytes = 2, kGroup = kAcross;
  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const Planes<2> planes(src, srcStep);
    store(dst, ownRampBlock(planes.of[0]));
    store(dst + 8, ownRampBlock(planes.of[1]));
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const auto twoRows = [&](int y) {
      V64 v{};
      for (int i = 0; i < 2 * kAcross; ++i) v[i] = load<uint64_t>(row(src, srcStep, y + i % 2) + i / 2 * 8);
      return (V16)v;
    };
    const V16 upper = twoRows(0), lower = twoRows(2);
    const V red = simd::packU8((I16)(upper & uint16_t(0xFF)), (I16)(lower & uint16_t(0xFF)));
    const V green = simd::packU8((I16)(upper >> 8), (I16)(lower >> 8));
    store(dst, simd::unpackLow(ownRampBlocks(red), ownRampBlocks(green)));
  }
};

// Y goes to the alpha ramp, Co to red and Cg to green; blue tells by how much the chroma was scaled.
struct YCoCg {
  static constexpr int kBlockBytes = 16, kPixelBytes = 3, kGroup = kAcross;

  // One chroma channel's end-points: inset by about a sixteenth, with rounding, and expanded again. An inset
  // below 0 wraps to 255.
  struct Chroma {
    int low, high;
    template <int kBits>
    static Chroma of(int min, int max) {
      const int span = max - min;
      const auto low = uint8_t((16 * min + span - 7) >> 4), high = uint8_t((16 * max - (span - 7)) >> 4);
      return {ownExpand<kBits>(low), ownExpand<kBits>(high)};
    }
    int middle() const { return (low + high + 1) >> 1; }
  };

  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    Planes<3> planes(src, srcStep);
    const Extremes y = ownExtremes(planes.of[0]), rawCo = ownExtremes(planes.of[1]), rawCg = ownExtremes(planes.of[2]);
    const int widest = std::max(
        {std::abs(rawCo.min - 128), std::abs(rawCo.max - 128), std::abs(rawCg.min - 128), std::abs(rawCg.max - 128)});
    const int code = (widest < 64 ? 1 : 0) + (widest < 32 ? 2 : 0), factor = code + 1;
    const auto scaled = [&](int x) { return uint8_t(factor * (x - 128) + 128); };
    for (int c = 1; c < 3; ++c)
      for (auto& x : planes.of[c]) x = scaled(x);

    const Chroma co = Chroma::of<5>(scaled(rawCo.min), scaled(rawCo.max));
    Chroma cg = Chroma::of<6>(scaled(rawCg.min), scaled(rawCg.max));
    // The box has two diagonals. Most pixels on opposite sides of the middle: take the falling one.
    int opposite = 0;
    for (int i = 0; i < 16; ++i) opposite += (planes.of[1][i] >= co.middle()) != (planes.of[2][i] >= cg.middle());
    if (opposite > 8) std::swap(cg.low, cg.high);

    const auto packed = [&](int o, int g) { return uint32_t(o >> 3 << 11 | g >> 2 << 5 | code); };
    const auto ends = packed(co.high, cg.high) | packed(co.low, cg.low) << 16;
    const auto indices = ownColourIndices<2>(planes.of + 1, {co.high, cg.high}, {co.low, cg.low});
    store(dst, ownRampBlock(planes.of[0], y.max, y.min));  // the ramp of Y has no inset
    store(dst + 8, ends | uint64_t(indices) << 32);
  }

  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    const auto pixels = [&](int y) {  // the 12 bytes of a row of each block
      V64 v{};
      for (int i = 0; i < 2 * kAcross; ++i) {
        const uint8_t* from = row(src, srcStep, y) + i / 2 * 12;
        v[i] = i % 2 ? load<uint32_t>(from + 8) : load<uint64_t>(from);
      }
      return (V)v;
    };
    const V rows[4] = {pixels(0), pixels(1), pixels(2), pixels(3)};
    const auto plane = [&](int c) {
      const auto part = [&](int y) { return shuffleBytes(rows[y], blockPattern(kSplit.of[y][c])); };
      return (part(0) | part(1)) | (part(2) | part(3));
    };
    const V planes[3] = {plane(0), plane(1), plane(2)};
    const auto box = [](V v) { return Box{ownReduceBytes(v, kMin), ownReduceBytes(v, kMax)}; };
    const Box y = box(planes[0]), rawCo = box(planes[1]), rawCg = box(planes[2]);
    const V centre = all<V>(128);
    const V widest = max(max(ownDistance(rawCo.min, centre), ownDistance(rawCo.max, centre)),
                         max(ownDistance(rawCg.min, centre), ownDistance(rawCg.max, centre)));
    const V below64 = (V)(min(widest, all<V>(63)) == widest);
    const V below32 = (V)(min(widest, all<V>(31)) == widest);
    const auto scaled = [&](V x) {  // around 128, in 8 bits
      x ^= centre;
      x = select(below64, x + x, x);
      return select(below32, x + x, x) ^ centre;
    };
    const V cos = scaled(planes[1]), cgs = scaled(planes[2]);

    struct Ends {
      V low, high;
    };
    const auto inset = [&](const Box& raw) {
      const auto min = (I16)simd::unpackLow(scaled(raw.min), V{}), max = (I16)simd::unpackLow(scaled(raw.max), V{});
      const I16 span = max - min - int16_t(7);
      const I16 low = ((min << 4) + span) >> 4 & int16_t(0xFF), high = ((max << 4) - span) >> 4 & int16_t(0xFF);
      return Ends{simd::packU8(low, low), simd::packU8(high, high)};
    };
    const auto expand = [](const Ends& ends, int bits) {
      const auto top = all<V>(uint8_t(0xFF << (8 - bits))), below = all<V>(uint8_t(0xFF >> bits));
      const auto of = [&](V v) { return (v & top) | ((V)((V16)v >> uint16_t(bits)) & below); };
      return Ends{of(ends.low), of(ends.high)};
    };
    const Ends co = expand(inset(rawCo), 5);
    Ends cg = expand(inset(rawCg), 6);
    const auto notBelow = [](V a, V b) { return (V)(max(a, b) == a); };
    const V sides = notBelow(cos, average(co.low, co.high)) ^ notBelow(cgs, average(cg.low, cg.high));
    auto opposite = simd::sumAbsDiff8(sides & uint8_t(1), V{});
    opposite += (V64)shuffleBytes((V)opposite, blockPattern({8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7}));
    const V swap = (V)((simd::I64)opposite > 8);
    cg = {select(swap, cg.high, cg.low), select(swap, cg.low, cg.high)};

    const V code = (below64 & uint8_t(1)) + (below32 & uint8_t(2));
    const auto packed = [&](V o,
                            V g) {  // bytes are the same throughout a block: a 16-bit lane is one times 257
      return (((V16)o << 8) & uint16_t(0xF800)) | (((V16)g << 3) & uint16_t(0x07E0)) | ((V16)code & uint16_t(0x1F));
    };
    const auto ends = (V64)simd::unpackLow(packed(co.high, cg.high), packed(co.low, cg.low)) & 0xFFFFFFFFu;

    V reds[4] = {co.high, co.low}, greens[4] = {cg.high, cg.low};
    ownMixPalette(reds);
    ownMixPalette(greens);
    I16 first[4], second[4];
    for (int k = 0; k < 4; ++k) {
      const V red = ownDistance(cos, reds[k]), green = ownDistance(cgs, greens[k]);
      const auto ones = all<simd::I8>(1);
      first[k] = simd::mulAddBytes(simd::unpackLow(red, green), ones);
      second[k] = simd::mulAddBytes(simd::unpackHigh(red, green), ones);
    }
    const V indices = simd::packU8(ownNearest(first), ownNearest(second));
    store(dst, simd::unpackLow(ownRampBlocks(planes[0], y.max, y.min), ends | packIndices<2>(indices) << 32));
  }

  // From 12 bytes of a row to the 4 bytes of that row in a plane.
  struct Split {
    uint8_t of[4][3][16];
    constexpr Split() : of{} {
      for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 3; ++c)
          for (int i = 0; i < 16; ++i) of[r][c][i] = uint8_t(i / 4 == r ? 3 * (i % 4) + c : 0x80);
    }
  };
  static const Split kSplit;
};
constexpr YCoCg::Split YCoCg::kSplit;

}  // namespace
}  // namespace texture

QelStatus qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                       uint8_t* dst) {
  return texture::encodeBlocks<texture::Dxt1>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                       uint8_t* dst) {
  return texture::encodeBlocks<texture::Dxt3>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                       uint8_t* dst) {
  return texture::encodeBlocks<texture::Dxt5>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlock_BC4_8u_C1R(const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst) {
  return texture::encodeBlocks<texture::Bc4>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R(const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst) {
  return texture::encodeBlocks<texture::Bc5>(src, srcStep, size, dst);
}
QelStatus qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                        uint8_t* dst) {
  return texture::encodeBlocks<texture::YCoCg>(src, srcStep, size, dst);
}

}  // namespace qelj
