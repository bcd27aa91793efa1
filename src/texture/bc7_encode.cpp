// The encoder of BC7. A block's 16 pixels are the lanes of one vector a channel, and a candidate (a mode, a
// shape, a pair of end-points for each subset) is judged by decoding it with the format's own arithmetic, so
// that errors are exact: the squared difference over red, green, blue and alpha, all weighing the same.
//
// A candidate starts from the line through its pixels' main axis. Indices and end-points then improve each other:
// indices are the nearest points on the line, end-points the least-squares solution for the indices, p-bits those whose
// rounded end-points are nearest. Shapes are ranked by the error that the best lines through their subsets would leave.
#include <cstring>
#include <limits>
#include <utility>

#include "frame/fronts.h"
#include "frame/rounding.h"
#include "texture/bc7_tables.h"
#include "texture/encode_walk.h"

namespace qelj {
namespace texture {
namespace {

using bc7::Layout;

using Pixels16 = simd::Vec<int16_t, 32>;  // one channel of the 16 pixels, or a mask of them
using I32x8 = simd::Vec<int32_t, 32>;
using F32x8 = simd::Vec<float, 32>;
using I32x4 = simd::Vec<int32_t, 16>;  // one value a channel
using F32x4 = simd::Vec<float, 16>;

// --- small vector helpers ----------------------------------------------------------------------------------

// The sums of the lanes of four vectors.
inline I32x4 ownSums(I32x8 a, I32x8 b, I32x8 c, I32x8 d) {
  using I64x4 = simd::Vec<int64_t, 32>;
  const I32x8 ab = simd::unpackLow(a, b) + simd::unpackHigh(a, b), cd = simd::unpackLow(c, d) + simd::unpackHigh(c, d);
  const I32x8 all = (I32x8)simd::unpackLow((I64x4)ab, (I64x4)cd) + (I32x8)simd::unpackHigh((I64x4)ab, (I64x4)cd);
  return simd::lower(all) + simd::upper(all);
}
inline F32x8 ownBroadcast(float x) { return F32x8{x, x, x, x, x, x, x, x}; }
inline F32x8 ownMin(F32x8 a, F32x8 b) { return select(a < b, a, b); }
inline F32x8 ownMax(F32x8 a, F32x8 b) { return select(a > b, a, b); }
// x / y, and 0 for a y of 0. There is no division by 0 to raise a flag, or to trap, where a compiler computes both
// sides of a choice.
inline float ownRatio(float x, float y) { return (y > 0 ? x : 0) / (y > 0 ? y : 1); }
inline float ownLowest(F32x8 v) {
  F32x4 half = simd::lower(v);
  const F32x4 other = simd::upper(v);
  half = select(half < other, half, other);
  const float a = half[0] < half[1] ? half[0] : half[1], b = half[2] < half[3] ? half[2] : half[3];
  return a < b ? a : b;
}

// --- a block and its statistics ----------------------------------------------------------------------------

struct Block {
  Pixels16 channel[4];
  F32x8 low[4], high[4];  // pixels 0 to 7 and 8 to 15 as floats

  void floatChannels() {
    for (int c = 0; c < 4; ++c) {
      low[c] = convert<float>(convert<int32_t>(simd::lower(channel[c])));
      high[c] = convert<float>(convert<int32_t>(simd::upper(channel[c])));
    }
  }
};

inline Block ownLoad(const uint8_t* src, ptrdiff_t step) {
  using U8x16 = simd::Vec<uint8_t, 16>;
  const auto planar = [&](int y) {  // four bytes of each channel
    const U8x16 pixels = load<U8x16>(row(src, step, y));
    return (I32x4)simd::shuffleBytes(pixels,
                                     simd::blockPattern<U8x16>({0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15}));
  };
  using I64x2 = simd::Vec<int64_t, 16>;
  const I32x4 r0 = planar(0), r1 = planar(1), r2 = planar(2), r3 = planar(3);
  const I64x2 low01 = (I64x2)simd::unpackLow(r0, r1), low23 = (I64x2)simd::unpackLow(r2, r3);
  const I64x2 high01 = (I64x2)simd::unpackHigh(r0, r1), high23 = (I64x2)simd::unpackHigh(r2, r3);
  const I64x2 planes[4] = {simd::unpackLow(low01, low23), simd::unpackHigh(low01, low23),
                           simd::unpackLow(high01, high23), simd::unpackHigh(high01, high23)};
  Block block;
  for (int c = 0; c < 4; ++c) block.channel[c] = convert<int16_t>((U8x16)planes[c]);
  return block;
}

// Number, sums and centred second moments (covariance times number) of a subset's pixels.
struct Moments {
  float count = 0;
  F32x4 sum{};
  F32x4 column[4]{};  // the symmetric matrix
};

// The main axis of a covariance matrix by power iteration; zero for pixels that are all the same.
inline F32x4 ownAxis(const Moments& m) {
  int widest = 0;
  for (int c = 1; c < 4; ++c)
    if (m.column[c][c] > m.column[widest][widest]) widest = c;
  F32x4 axis = m.column[widest];
  for (int i = 0; i < 4; ++i) {
    float largest = 0;
    for (int c = 0; c < 4; ++c) largest = largest < std::abs(axis[c]) ? std::abs(axis[c]) : largest;
    if (largest == 0) return F32x4{};
    axis = axis * (1 / largest);
    if (i < 3) axis = (m.column[0] * axis[0] + m.column[1] * axis[1]) + (m.column[2] * axis[2] + m.column[3] * axis[3]);
  }
  return axis;
}

// The ends of the line along the axis that holds all pixels of the subset: end 0 in lanes 0 to 3, end 1 in 4 to 7.
inline F32x8 ownLine(const Block& block, const Moments& m, Pixels16 mask) {
  const F32x4 axis = ownAxis(m), mean = m.sum * (1 / m.count);
  F32x8 low{}, high{};
  for (int c = 0; c < 4; ++c) {
    low += (block.low[c] - ownBroadcast(mean[c])) * ownBroadcast(axis[c]);
    high += (block.high[c] - ownBroadcast(mean[c])) * ownBroadcast(axis[c]);
  }
  const I32x8 inLow = convert<int32_t>(simd::lower(mask)), inHigh = convert<int32_t>(simd::upper(mask));
  const F32x8 huge = ownBroadcast(1e30f);
  const float lowest = ownLowest(ownMin(select(inLow, low, huge), select(inHigh, high, huge)));
  const float highest = -ownLowest(ownMin(select(inLow, -low, huge), select(inHigh, -high, huge)));
  const F32x4 square = axis * axis;
  const float length = (square[0] + square[1]) + (square[2] + square[3]);
  const float scale = ownRatio(1, length);
  return simd::join(mean + axis * (lowest * scale), mean + axis * (highest * scale));
}

// --- end-points --------------------------------------------------------------------------------------------

// How a mode spends its p-bits: none, one a subset, one an end-point, or one an end-point fixed at 1 (so that
// an opaque block's alpha stays 255).
enum class PBits { none, shared, each, ones };

struct EndPoints {
  I32x8 fields;    // as stored, without p-bits
  I32x8 expanded;  // the 8-bit values that they stand for
  int p[2];
};

// Rounds both ends of a line, in lanes as ownLine gives them, to `bits` bits and the best p-bits.
template <int kBits, PBits kPBits>
inline EndPoints ownQuantise(F32x8 ends) {
  constexpr int kAll = kBits + (kPBits == PBits::none ? 0 : 1);
  constexpr int kTop = (1 << kBits) - 1;
  ends = ownMin(ownMax(ends, F32x8{}), ownBroadcast(255));
  const F32x8 scaled = ends * ownBroadcast(float((1 << kAll) - 1) / 255.0f);
  const auto expand = [](I32x8 v) {
    if constexpr (kAll == 8) return v;
    else return v << (8 - kAll) | v >> (2 * kAll - 8);
  };
  if constexpr (kPBits == PBits::none) {
    const I32x8 fields = roundToInt(scaled);
    return {fields, expand(fields), {0, 0}};
  } else {
    EndPoints with[2];
    F32x8 error[2];
    for (int p = kPBits == PBits::ones ? 1 : 0; p < 2; ++p) {
      I32x8 fields = roundToInt((scaled - ownBroadcast(float(p))) * ownBroadcast(0.5f));
      fields = min(max(fields, I32x8{}), I32x8{} + kTop);
      with[p] = {fields, expand(fields * 2 + p), {p, p}};
      error[p] = convert<float>(with[p].expanded) - ends;
      error[p] *= error[p];
    }
    if constexpr (kPBits == PBits::ones) return with[1];
    const F32x8 gain = error[0] - error[1];  // of p = 1
    const float first = (gain[0] + gain[1]) + (gain[2] + gain[3]), second = (gain[4] + gain[5]) + (gain[6] + gain[7]);
    if constexpr (kPBits == PBits::shared) return with[first + second > 0];
    const bool p0 = first > 0, p1 = second > 0;
    return {simd::join(simd::lower(with[p0].fields), simd::upper(with[p1].fields)),
            simd::join(simd::lower(with[p0].expanded), simd::upper(with[p1].expanded)),
            {p0, p1}};
  }
}

// --- judging a candidate -----------------------------------------------------------------------------------

struct Judgement {
  int32_t error;
  Pixels16 indices;
  // Sums over each subset of the weights, their squares, and their products with the channels.
  int32_t weight[2], square[2];
  I32x4 product[2];
};

template <int kBits>
inline Pixels16 ownWeights(Pixels16 indices) {
  uint8_t table[16];
  for (int i = 0; i < 16; ++i) table[i] = bc7::weights<kBits>()[i % (1 << kBits)];
  using Bytes = simd::Vec<uint8_t, 32>;
  return (Pixels16)simd::shuffleBytes(simd::blockPattern<Bytes>(table), (Bytes)(indices | int16_t(-0x8000)));
}

// Finds the indices of channels kFirst to kFirst + kCount - 1 for given end-points, and what they leave of
// error. `second` is the mask of subset 1.
template <int kFirst, int kCount, int kIndexBits, int kSubsets>
inline Judgement ownJudge(const Block& block, const EndPoints (&ends)[kSubsets], Pixels16 second) {
  constexpr float kTop = (1 << kIndexBits) - 1;
  // Place on the line: p . factor - offset, of each subset.
  float factor[kSubsets][4], offset[kSubsets];
  for (int s = 0; s < kSubsets; ++s) {
    const F32x4 e0 = convert<float>(simd::lower(ends[s].expanded));
    const F32x4 d = convert<float>(simd::upper(ends[s].expanded)) - e0;
    float length = 0, start = 0;
    for (int c = kFirst; c < kFirst + kCount; ++c) length += d[c] * d[c], start += e0[c] * d[c];
    const float scale = ownRatio(kTop, length);
    for (int c = kFirst; c < kFirst + kCount; ++c) factor[s][c] = d[c] * scale;
    offset[s] = start * scale;
  }
  F32x8 low, high;
  I32x8 inLow{}, inHigh{};
  const auto pick = [&](I32x8 mask, float a, float b) { return select(mask, ownBroadcast(b), ownBroadcast(a)); };
  if constexpr (kSubsets == 2) {
    inLow = convert<int32_t>(simd::lower(second)), inHigh = convert<int32_t>(simd::upper(second));
    low = -pick(inLow, offset[0], offset[1]), high = -pick(inHigh, offset[0], offset[1]);
  } else {
    low = high = -ownBroadcast(offset[0]);
  }
  for (int c = kFirst; c < kFirst + kCount; ++c) {
    if constexpr (kSubsets == 2) {
      low += block.low[c] * pick(inLow, factor[0][c], factor[1][c]);
      high += block.high[c] * pick(inHigh, factor[0][c], factor[1][c]);
    } else {
      low += block.low[c] * ownBroadcast(factor[0][c]);
      high += block.high[c] * ownBroadcast(factor[0][c]);
    }
  }
  Judgement j;
  j.indices = simd::orderPacked(simd::packI16(roundToInt(low), roundToInt(high)));
  j.indices = min(max(j.indices, Pixels16{}), Pixels16{} + int16_t(kTop));
  const Pixels16 w = ownWeights<kIndexBits>(j.indices);

  I32x8 error{};
  for (int c = kFirst; c < kFirst + kCount; ++c) {
    Pixels16 start = Pixels16{} + int16_t(ends[0].expanded[c] * 64 + 32);
    Pixels16 slope = Pixels16{} + int16_t(ends[0].expanded[c + 4] - ends[0].expanded[c]);
    if constexpr (kSubsets == 2) {
      start = select(second, Pixels16{} + int16_t(ends[1].expanded[c] * 64 + 32), start);
      slope = select(second, Pixels16{} + int16_t(ends[1].expanded[c + 4] - ends[1].expanded[c]), slope);
    }
    const Pixels16 d = ((start + w * slope) >> 6) - block.channel[c];
    error += simd::mulAddPairs(d, d);
  }
  const Pixels16 ones = Pixels16{} + int16_t(1);
  for (int s = 0; s < kSubsets; ++s) {
    const Pixels16 own = kSubsets == 1 ? w : s ? w & second : w & ~second;
    I32x8 product[4]{};
    for (int c = kFirst; c < kFirst + kCount; ++c) product[c] = simd::mulAddPairs(own, block.channel[c]);
    const I32x4 plain = ownSums(simd::mulAddPairs(own, ones), simd::mulAddPairs(own, own), error, error);
    j.weight[s] = plain[0], j.square[s] = plain[1], j.error = plain[2];
    j.product[s] = ownSums(product[0], product[1], product[2], product[3]);
  }
  return j;
}

// The least-squares ends for the indices of a judgement; the given ends where the indices don't tell.
template <int kFirst, int kCount>
inline F32x8 ownRefit(const Judgement& j, int s, const Moments& m, F32x8 ends) {
  const auto n = int64_t(m.count);
  const int64_t w = j.weight[s], far = j.square[s], mixed = 64 * w - far, near = 64 * 64 * n - 128 * w + far;
  const int64_t determinant = near * far - mixed * mixed;
  if (determinant <= 0) return ends;
  const float scale = 64.0f / float(determinant);
  for (int c = kFirst; c < kFirst + kCount; ++c) {
    const int64_t atFar = j.product[s][c], atNear = 64 * int64_t(m.sum[c]) - atFar;
    ends[c] = float(far * atNear - mixed * atFar) * scale;
    ends[c + 4] = float(near * atFar - mixed * atNear) * scale;
  }
  return ends;
}

// --- candidates --------------------------------------------------------------------------------------------

struct Candidate {
  int32_t error = std::numeric_limits<int32_t>::max();
  int mode = 6, shape = 0, rotation = 0, selection = 0;
  EndPoints colour[2];
  I32x8 alphaFields{};  // modes 4 and 5
  Pixels16 indices{}, alphaIndices{};
};

// Fits one part of a block (some channels, all pixels or two subsets) in a few rounds; the best round is left
// in ends and indices.
template <int kBits, PBits kPBits, int kFirst, int kCount, int kIndexBits, int kSubsets>
inline int32_t ownFit(const Block& block, const Moments (&m)[kSubsets], F32x8 (&lines)[kSubsets], Pixels16 second,
                      int rounds, EndPoints (&best)[kSubsets], Pixels16& indices) {
  indices = Pixels16{};
  int32_t lowest = std::numeric_limits<int32_t>::max();
  for (int round = 0; round < rounds; ++round) {
    EndPoints ends[kSubsets];
    for (int s = 0; s < kSubsets; ++s) ends[s] = ownQuantise<kBits, kPBits>(lines[s]);
    const Judgement j = ownJudge<kFirst, kCount, kIndexBits, kSubsets>(block, ends, second);
    if (j.error < lowest) {
      lowest = j.error, indices = j.indices;
      for (int s = 0; s < kSubsets; ++s) best[s] = ends[s];
    }
    if (j.error == 0) break;
    for (int s = 0; s < kSubsets; ++s) lines[s] = ownRefit<kFirst, kCount>(j, s, m[s], lines[s]);
  }
  return lowest;
}

// Tries a mode that has one set of indices for all of its channels.
template <int kMode, PBits kPBits, int kSubsets>
inline void ownTry(const Block& block, const Moments (&m)[kSubsets], int shape, Pixels16 second, int rounds,
                   Candidate& best) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  static_assert(kOf.subsets == kSubsets);
  constexpr int kCount = kOf.alphaBits ? 4 : 3;
  F32x8 lines[kSubsets];
  for (int s = 0; s < kSubsets; ++s)
    lines[s] = ownLine(block, m[s], kSubsets == 1 ? ~Pixels16{} : s ? second : ~second);
  EndPoints ends[kSubsets]{};
  Pixels16 indices;
  const int32_t error = ownFit<kOf.colourBits, kPBits, 0, kCount, kOf.indexBits, kSubsets>(block, m, lines, second,
                                                                                           rounds, ends, indices);
  if (error >= best.error) return;
  best.error = error, best.mode = kMode, best.shape = shape, best.rotation = best.selection = 0;
  for (int s = 0; s < kSubsets; ++s) best.colour[s] = ends[s];
  best.indices = indices;
}

// Tries mode 4 or 5: colour and alpha with indices of their own. kColourIndexBits tells which of mode 4's
// sets is whose.
template <int kMode, int kColourIndexBits>
inline void ownTrySeparate(const Block& block, const Moments& all, int rotation, Candidate& best) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  constexpr int kAlphaIndexBits = kOf.indexBits + kOf.secondIndexBits - kColourIndexBits;
  Moments colour = all;
  colour.column[3] = F32x4{};
  for (auto& column : colour.column) column[3] = 0;
  const Moments m[1] = {colour};
  F32x8 lines[1] = {ownLine(block, colour, ~Pixels16{})};
  EndPoints ends[1]{}, alphaEnds[1]{};
  Pixels16 indices, alphaIndices;
  int32_t error =
      ownFit<kOf.colourBits, PBits::none, 0, 3, kColourIndexBits, 1>(block, m, lines, Pixels16{}, 3, ends, indices);
  if (error >= best.error) return;

  const float lowest = ownLowest(ownMin(block.low[3], block.high[3]));
  const float highest = -ownLowest(ownMin(-block.low[3], -block.high[3]));
  F32x8 alphaLine[1] = {{0, 0, 0, lowest, 0, 0, 0, highest}};
  error += ownFit<kOf.alphaBits, PBits::none, 3, 1, kAlphaIndexBits, 1>(block, m, alphaLine, Pixels16{}, 2, alphaEnds,
                                                                        alphaIndices);
  if (error >= best.error) return;
  best.error = error, best.mode = kMode, best.shape = 0, best.rotation = rotation;
  best.selection = kColourIndexBits == kOf.indexBits ? 0 : 1;
  best.colour[0] = ends[0], best.alphaFields = alphaEnds[0].fields;
  best.indices = indices, best.alphaIndices = alphaIndices;
}

// --- ranking shapes ----------------------------------------------------------------------------------------

// For every pair of pixels, the 64 shapes' membership in subset 1 as pairs of 0 and 1; and the masks of the shapes.
struct ShapeTables {
  alignas(32) int16_t pairs[8][8][16] = {};  // [pixel pair][group of 8 shapes][lane]
  alignas(32) int16_t masks[64][16] = {};
  alignas(32) float count[64] = {};
  constexpr ShapeTables() {
    for (int shape = 0; shape < 64; ++shape)
      for (int i = 0; i < 16; ++i) {
        const int in = bc7::kTwoSubsets[shape].subset(i);
        pairs[i / 2][shape / 8][2 * (shape % 8) + i % 2] = int16_t(in);
        masks[shape][i] = int16_t(-in);
        count[shape] += float(in);
      }
  }
};
constexpr ShapeTables kShapes;

// The sums and second moments of subset 1 of all shapes, of pixels centred on their mean. Products are
// halved, so that they fit 16 bits.
template <int kChannels>
struct ShapeMoments {
  static constexpr int kProducts = kChannels * (kChannels + 1) / 2;
  alignas(32) int32_t sum[kChannels][64];
  alignas(32) int32_t product[kProducts][64];
  int32_t totalSum[kChannels], totalProduct[kProducts];
  int16_t centre[kChannels];

  static constexpr int index(int a, int b) { return b * (b + 1) / 2 + a; }  // a <= b
};

template <int kChannels>
inline void ownMeasureShapes(const Block& block, ShapeMoments<kChannels>& m) {
  const auto measure = [](Pixels16 values, int32_t(&of)[64], int32_t& total) {
    I32x8 group[8]{};
    alignas(32) int32_t pairs[8];
    std::memcpy(pairs, &values, sizeof pairs);
    for (int pair = 0; pair < 8; ++pair) {
      const Pixels16 both = (Pixels16)(I32x8{} + pairs[pair]);
      for (int g = 0; g < 8; ++g) group[g] += simd::mulAddPairs(load<Pixels16>(kShapes.pairs[pair][g]), both);
    }
    for (int g = 0; g < 8; ++g) store(of + 8 * g, group[g]);
    const I32x8 all = simd::mulAddPairs(values, Pixels16{} + int16_t(1));
    total = ownSums(all, all, all, all)[0];
  };
  Pixels16 centred[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    const I32x8 all = simd::mulAddPairs(block.channel[c], Pixels16{} + int16_t(1));
    m.centre[c] = int16_t((ownSums(all, all, all, all)[0] + 8) >> 4);
    centred[c] = block.channel[c] - m.centre[c];
    measure(centred[c], m.sum[c], m.totalSum[c]);
  }
  using Words = simd::Vec<uint16_t, 32>;
  for (int b = 0; b < kChannels; ++b)
    for (int a = 0; a <= b; ++a) {
      // The product's 17 bits with a sign, one less.
      const Pixels16 low = mulWrap(centred[a], centred[b]), high = mulHi(centred[a], centred[b]);
      const Pixels16 half = (Pixels16)((Words)low >> 1) | shlWrap(high, 15);
      constexpr auto index = ShapeMoments<kChannels>::index;
      measure(half, m.product[index(a, b)], m.totalProduct[index(a, b)]);
    }
}

// What the best line through a subset leaves: the trace of the moments less their largest eigenvalue, which
// is near tr(M^4) / tr(M^3). Of the spread along the line the indices' steps leave about a hundredth.
constexpr float kOnLine = 0.99f;
template <int kChannels>
inline F32x8 ownResidual(const F32x8 (&m)[kChannels][kChannels]) {
  F32x8 trace{}, cubes{}, fourths{};
  for (int a = 0; a < kChannels; ++a) {
    trace += m[a][a];
    for (int b = 0; b <= a; ++b) {
      F32x8 square{};
      for (int k = 0; k < kChannels; ++k) square += m[a][k] * m[k][b];
      const F32x8 weight = ownBroadcast(a == b ? 1 : 2);
      cubes += square * m[a][b] * weight;
      fourths += square * square * weight;
    }
  }
  return trace - ownBroadcast(kOnLine) * fourths / (cubes + ownBroadcast(1e-6f));
}

// The shapes that promise the least error, best first.
template <int kChannels, int kWanted>
inline void ownRankShapes(const ShapeMoments<kChannels>& m, int (&shapes)[kWanted]) {
  constexpr auto index = ShapeMoments<kChannels>::index;
  I32x8 keys[8];
  for (int g = 0; g < 8; ++g) {
    const F32x8 n1 = load<F32x8>(kShapes.count + 8 * g);
    const F32x8 one = ownBroadcast(1), per1 = one / n1, per0 = one / (ownBroadcast(16) - n1);
    F32x8 sum1[kChannels], sum0[kChannels], m1[kChannels][kChannels], m0[kChannels][kChannels];
    for (int c = 0; c < kChannels; ++c) {
      sum1[c] = convert<float>(load<I32x8>(m.sum[c] + 8 * g));
      sum0[c] = ownBroadcast(float(m.totalSum[c])) - sum1[c];
    }
    for (int b = 0; b < kChannels; ++b)
      for (int a = 0; a <= b; ++a) {
        const I32x8 in1 = load<I32x8>(m.product[index(a, b)] + 8 * g);
        const F32x8 product1 = convert<float>(in1 * 2);
        const F32x8 product0 = convert<float>((I32x8{} + m.totalProduct[index(a, b)] - in1) * 2);
        m1[a][b] = m1[b][a] = product1 - sum1[a] * sum1[b] * per1;
        m0[a][b] = m0[b][a] = product0 - sum0[a] * sum0[b] * per0;
      }
    const F32x8 residual = ownMax(ownResidual<kChannels>(m1) + ownResidual<kChannels>(m0), F32x8{});
    // Floats from 0 up sort like their bits; the lowest six bits make room for the shape's number.
    const I32x8 number = I32x8{0, 1, 2, 3, 4, 5, 6, 7} + 8 * g;
    keys[g] = (roundToInt(ownMin(residual * ownBroadcast(4), ownBroadcast(3e7f))) << 6) | number;
  }
  for (int w = 0; w < kWanted; ++w) {
    I32x8 lowest = keys[0];
    for (int g = 1; g < 8; ++g) lowest = min(lowest, keys[g]);
    int32_t key = lowest[0];
    for (int i = 1; i < 8; ++i) key = key < lowest[i] ? key : lowest[i];
    shapes[w] = key & 63;
    for (int g = 0; g < 8; ++g)
      keys[g] = select(keys[g] == I32x8{} + key, I32x8{} + std::numeric_limits<int32_t>::max(), keys[g]);
  }
}

// The moments of one shape's subsets, of the pixels as they are.
template <int kChannels>
inline void ownMomentsOf(const ShapeMoments<kChannels>& all, int shape, Moments (&m)[2]) {
  const float n = kShapes.count[shape];
  m[1].count = n, m[0].count = 16 - n;
  for (int s = 0; s < 2; ++s) {
    const float per = 1 / m[s].count;
    float sums[kChannels];
    for (int c = 0; c < kChannels; ++c) {
      const int32_t sum1 = all.sum[c][shape], sum = s ? sum1 : all.totalSum[c] - sum1;
      sums[c] = float(sum);
      m[s].sum[c] = float(sum) + m[s].count * float(all.centre[c]);
    }
    for (int b = 0; b < kChannels; ++b)
      for (int a = 0; a <= b; ++a) {
        const int at = ShapeMoments<kChannels>::index(a, b);
        const int32_t product = s ? all.product[at][shape] : all.totalProduct[at] - all.product[at][shape];
        m[s].column[a][b] = m[s].column[b][a] = float(2 * product) - sums[a] * sums[b] * per;
      }
  }
}

inline Moments ownMoments(const Block& block) {
  const Pixels16 ones = Pixels16{} + int16_t(1);
  I32x8 sums[4];
  for (int c = 0; c < 4; ++c) sums[c] = simd::mulAddPairs(block.channel[c], ones);
  const I32x4 sum = ownSums(sums[0], sums[1], sums[2], sums[3]);
  Moments m;
  m.count = 16;
  m.sum = convert<float>(sum);
  Pixels16 centred[4];
  for (int c = 0; c < 4; ++c) centred[c] = block.channel[c] - int16_t((sum[c] + 8) >> 4);
  for (int a = 0; a < 4; ++a) {
    I32x8 products[4];
    for (int b = 0; b < 4; ++b) products[b] = simd::mulAddPairs(centred[a], centred[b]);
    m.column[a] = convert<float>(ownSums(products[0], products[1], products[2], products[3]));
  }
  return m;
}

// --- the bits of a block -----------------------------------------------------------------------------------

struct BitField {
  uint64_t word[2] = {0, 0};
  void put(int position, uint64_t value) {  // up to 64 bits; the rest of the value must be 0
    word[position / 64] |= value << position % 64;
    if (position < 64 && position > 0) word[1] |= value >> (64 - position);
  }
};

// The indices of pixels 0 to 15 with the anchors' top bits left out.
template <int kBits, int kSubsets>
inline uint64_t ownPackIndices(const int16_t (&indices)[16], const bc7::Shape& shape) {
  uint64_t packed = 0;
  int at = 0;
  for (int i = 0; i < 16; ++i) {
    packed |= uint64_t(indices[i]) << at;
    at += kBits - (i == 0 || (kSubsets == 2 && i == shape.anchors[1]));
  }
  return packed;
}

// Exchanges the ends of subsets whose anchor's index has its top bit set.
template <int kBits, int kSubsets>
inline void ownTurn(Pixels16 lanes, const bc7::Shape& shape, int16_t (&indices)[16], bool (&turned)[2]) {
  std::memcpy(indices, &lanes, sizeof indices);
  for (int s = 0; s < kSubsets; ++s) turned[s] = indices[s ? shape.anchors[1] : 0] >> (kBits - 1);
  constexpr int16_t kTop = (1 << kBits) - 1;
  for (int i = 0; i < 16; ++i)
    if (turned[kSubsets == 2 ? shape.subset(i) : 0]) indices[i] = int16_t(kTop - indices[i]);
}

template <int kMode>
inline void ownStore(const Candidate& best, uint8_t* dst) {
  constexpr Layout kLayout{kMode};
  constexpr bc7::Mode kOf = kLayout.mode;
  const bc7::Shape& shape = bc7::shape<kOf.subsets>(best.shape);
  BitField bits;
  bits.put(kMode, 1);
  bits.put(kLayout.partition, uint64_t(best.shape));
  bits.put(kLayout.rotation, uint64_t(best.rotation));
  bits.put(kLayout.indexSelection, uint64_t(best.selection));

  bool turned[2] = {}, alphaTurned[2] = {};
  int16_t indices[16];
  if constexpr (kOf.secondIndexBits == 0) {
    ownTurn<kOf.indexBits, kOf.subsets>(best.indices, shape, indices, turned);
    bits.put(kLayout.indices, ownPackIndices<kOf.indexBits, kOf.subsets>(indices, shape));
  } else {
    const Pixels16 first = best.selection ? best.alphaIndices : best.indices;
    const Pixels16 other = best.selection ? best.indices : best.alphaIndices;
    ownTurn<kOf.indexBits, 1>(first, shape, indices, best.selection ? alphaTurned : turned);
    bits.put(kLayout.indices, ownPackIndices<kOf.indexBits, 1>(indices, shape));
    ownTurn<kOf.secondIndexBits, 1>(other, shape, indices, best.selection ? turned : alphaTurned);
    bits.put(kLayout.secondIndices, ownPackIndices<kOf.secondIndexBits, 1>(indices, shape));
  }
  for (int s = 0; s < kOf.subsets; ++s)
    for (int e = 0; e < 2; ++e) {
      const int from = 4 * (e ^ int(turned[s])), alphaFrom = 4 * (e ^ int(alphaTurned[s]));
      for (int c = 0; c < 3; ++c) bits.put(kLayout.position(c, 2 * s + e), uint64_t(best.colour[s].fields[c + from]));
      if constexpr (kOf.secondIndexBits != 0)
        bits.put(kLayout.position(3, e), uint64_t(best.alphaFields[3 + alphaFrom]));
      else if constexpr (kOf.alphaBits != 0)
        bits.put(kLayout.position(3, 2 * s + e), uint64_t(best.colour[s].fields[3 + from]));
      if constexpr (kOf.endPointPBits != 0)
        bits.put(kLayout.pBitPosition(2 * s + e), uint64_t(best.colour[s].p[from / 4]));
      else if constexpr (kOf.subsetPBits != 0)
        if (e == 0) bits.put(kLayout.pBitPosition(2 * s), uint64_t(best.colour[s].p[0]));
    }
  store(dst, bits.word[0]);
  store(dst + 8, bits.word[1]);
}

void ownStoreBest(const Candidate& best, uint8_t* dst) {
  switch (best.mode) {
    case 1:
      return ownStore<1>(best, dst);
    case 3:
      return ownStore<3>(best, dst);
    case 4:
      return ownStore<4>(best, dst);
    case 5:
      return ownStore<5>(best, dst);
    case 7:
      return ownStore<7>(best, dst);
    default:
      return ownStore<6>(best, dst);
  }
}

// --- the choice of modes -----------------------------------------------------------------------------------

// All pixels the same: mode 6 half-way between the two values beside it. Exact for opaque blocks but for 0,
// which mode 6 with its alpha at 255 stores as 1; within 1 otherwise.
inline Candidate ownFlat(const uint8_t* pixel) {
  Candidate flat;
  flat.indices = Pixels16{} + int16_t(7);  // a weight of 30 in 64
  const bool opaque = pixel[3] == 255;
  flat.colour[0].p[0] = opaque, flat.colour[0].p[1] = 1;
  for (int c = 0; c < 4; ++c) {
    const int v = pixel[c];
    // Opaque: two odd values around v. Else: an even one and the odd one above it. The upper one is v | 1 in both.
    const int first = opaque ? (v & 1 || v == 0 ? v | 1 : v - 1) : v & ~1;
    flat.colour[0].fields[c] = first >> 1, flat.colour[0].fields[c + 4] = v >> 1;
  }
  return flat;
}

// attempt(rank, shape, moments of the two subsets, the second subset) for the shapes that part the block best.
template <int kChannels, class Attempt>
inline void ownWithBestShapes(const Block& block, Attempt&& attempt) {
  ShapeMoments<kChannels> shapes;
  int ranked[2];
  ownMeasureShapes(block, shapes);
  ownRankShapes(shapes, ranked);
  for (int rank = 0; rank < 2; ++rank) {
    Moments m[2];
    ownMomentsOf(shapes, ranked[rank], m);
    attempt(rank, ranked[rank], m, load<Pixels16>(kShapes.masks[ranked[rank]]));
  }
}

// An error (over 16 pixels) below which no other mode is tried.
constexpr int32_t kGoodEnough = 24;

inline void ownEncodeOpaque(const Block& block, const Moments (&all)[1], Candidate& best) {
  ownTry<6, PBits::ones, 1>(block, all, 0, Pixels16{}, 3, best);
  if (best.error <= kGoodEnough) return;
  ownWithBestShapes<3>(block, [&](int rank, int shape, const Moments(&m)[2], Pixels16 second) QELJ_INLINE_LAMBDA {
    ownTry<1, PBits::shared, 2>(block, m, shape, second, 3, best);
    if (rank == 0) ownTry<3, PBits::each, 2>(block, m, shape, second, 2, best);
  });
}

inline void ownEncodeAlpha(const Block& block, const Moments (&all)[1], Candidate& best) {
  ownTry<6, PBits::each, 1>(block, all, 0, Pixels16{}, 3, best);
  if (best.error <= kGoodEnough) return;
  ownTrySeparate<5, 2>(block, all[0], 0, best);
  ownTrySeparate<4, 3>(block, all[0], 0, best);
  ownTrySeparate<4, 2>(block, all[0], 0, best);
  ownWithBestShapes<4>(block, [&](int, int shape, const Moments(&m)[2], Pixels16 second)
                                  QELJ_INLINE_LAMBDA { ownTry<7, PBits::each, 2>(block, m, shape, second, 3, best); });
}

struct Bc7Encoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4;

  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    Block block = ownLoad(src, srcStep);
    Pixels16 differs{};
    for (const Pixels16& c : block.channel) differs |= c ^ (Pixels16{} + int16_t(c[0]));
    if (simd::isZero(differs)) return ownStoreBest(ownFlat(src), dst);
    block.floatChannels();
    const Moments all[1] = {ownMoments(block)};
    Candidate best;
    if (simd::isZero(block.channel[3] ^ (Pixels16{} + int16_t(255)))) ownEncodeOpaque(block, all, best);
    else ownEncodeAlpha(block, all, best);
    ownStoreBest(best, dst);
  }
};

}  // namespace
}  // namespace texture

QelStatus qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                         uint8_t* dst) {
  const RoundToNearest rounding;
  return texture::encodeBlocks<texture::Bc7Encoder>(src, srcStep, size, dst);
}

}  // namespace qelj
