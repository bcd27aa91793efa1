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

using Pixels16 = simd::I16x16;   // one channel of the 16 pixels, or a mask of them
using simd::F32x4, simd::I32x4;  // one value a channel
using simd::F32x8, simd::I32x8;  // of eight pixels, or of two end-points

// --- small vector helpers ----------------------------------------------------------------------------------

// The sums of the lanes of four vectors.
inline I32x4 laneSums(I32x8 a, I32x8 b, I32x8 c, I32x8 d) {
  const I32x8 ab = simd::unpackLow(a, b) + simd::unpackHigh(a, b), cd = simd::unpackLow(c, d) + simd::unpackHigh(c, d);
  const I32x8 four = as<I32x8>(simd::unpackLow(as<uint64_t>(ab), as<uint64_t>(cd))) +
                     as<I32x8>(simd::unpackHigh(as<uint64_t>(ab), as<uint64_t>(cd)));
  return simd::lower(four) + simd::upper(four);
}
inline F32x8 lesser(F32x8 a, F32x8 b) { return select(a < b, a, b); }
inline F32x8 greater(F32x8 a, F32x8 b) { return select(a > b, a, b); }
// x / y, and 0 for a y of 0. There is no division by 0 to raise a flag, or to trap, where a compiler computes both
// sides of a choice.
inline float ratio(float x, float y) { return (y > 0 ? x : 0) / (y > 0 ? y : 1); }
inline float lowestLane(F32x8 v) {
  F32x4 half = simd::lower(v);
  const F32x4 other = simd::upper(v);
  half = select(half < other, half, other);
  const float a = half[0] < half[1] ? half[0] : half[1], b = half[2] < half[3] ? half[2] : half[3];
  return a < b ? a : b;
}

// --- a block and its statistics ----------------------------------------------------------------------------

struct PixelBlock {
  Pixels16 channel[4];
  F32x8 low[4], high[4];  // pixels 0 to 7 and 8 to 15 as floats

  void floatChannels() {
    for (int c = 0; c < 4; ++c) {
      low[c] = convert<float>(convert<int32_t>(simd::lower(channel[c])));
      high[c] = convert<float>(convert<int32_t>(simd::upper(channel[c])));
    }
  }
};

inline PixelBlock loadPixels(const uint8_t* src, ptrdiff_t step) {
  using simd::U64x2, simd::U8x16;
  const auto planar = [&](int y) {  // four bytes of each channel
    const U8x16 pixels = load<U8x16>(row(src, step, y));
    return as<I32x4>(
        simd::shuffleBytes(pixels, simd::blockPattern<U8x16>({0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15})));
  };
  const I32x4 r0 = planar(0), r1 = planar(1), r2 = planar(2), r3 = planar(3);
  const U64x2 low01 = as<U64x2>(simd::unpackLow(r0, r1)), low23 = as<U64x2>(simd::unpackLow(r2, r3));
  const U64x2 high01 = as<U64x2>(simd::unpackHigh(r0, r1)), high23 = as<U64x2>(simd::unpackHigh(r2, r3));
  const U64x2 planes[4] = {simd::unpackLow(low01, low23), simd::unpackHigh(low01, low23),
                           simd::unpackLow(high01, high23), simd::unpackHigh(high01, high23)};
  PixelBlock block;
  for (int c = 0; c < 4; ++c) block.channel[c] = convert<int16_t>(as<U8x16>(planes[c]));
  return block;
}

// Number, sums and centred second moments (covariance times number) of a subset's pixels.
struct Moments {
  float count = 0;
  F32x4 sum{};
  F32x4 column[4]{};  // the symmetric matrix
};

// The main axis of a covariance matrix by power iteration; zero for pixels that are all the same.
inline F32x4 mainAxis(const Moments& m) {
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
inline F32x8 lineThrough(const PixelBlock& block, const Moments& m, Pixels16 mask) {
  const F32x4 axis = mainAxis(m), mean = m.sum * (1 / m.count);
  F32x8 low{}, high{};
  for (int c = 0; c < 4; ++c) {
    low += (block.low[c] - all<F32x8>(mean[c])) * all<F32x8>(axis[c]);
    high += (block.high[c] - all<F32x8>(mean[c])) * all<F32x8>(axis[c]);
  }
  const I32x8 inLow = convert<int32_t>(simd::lower(mask)), inHigh = convert<int32_t>(simd::upper(mask));
  const F32x8 huge = all<F32x8>(std::numeric_limits<float>::max());
  const float lowest = lowestLane(lesser(select(inLow, low, huge), select(inHigh, high, huge)));
  const float highest = -lowestLane(lesser(select(inLow, -low, huge), select(inHigh, -high, huge)));
  const F32x4 square = axis * axis;
  const float length = (square[0] + square[1]) + (square[2] + square[3]);
  const float scale = ratio(1, length);
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

// Rounds both ends of a line, in lanes as lineThrough gives them, to `bits` bits and the best p-bits.
template <int kBits, PBits kPBits>
inline EndPoints quantise(F32x8 ends) {
  constexpr int kAll = kBits + (kPBits == PBits::none ? 0 : 1);
  constexpr int kTop = (1 << kBits) - 1;
  ends = lesser(greater(ends, F32x8{}), all<F32x8>(255));
  const F32x8 scaled = ends * all<F32x8>(float((1 << kAll) - 1) / 255.0f);
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
      I32x8 fields = roundToInt((scaled - all<F32x8>(float(p))) * all<F32x8>(0.5f));
      fields = min(max(fields, I32x8{}), all<I32x8>(kTop));
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
inline Pixels16 weightsOf(Pixels16 indices) {
  uint8_t table[16];
  for (int i = 0; i < 16; ++i) table[i] = bc7::weights<kBits>()[i % (1 << kBits)];
  return as<Pixels16>(
      simd::shuffleBytes(simd::blockPattern<simd::U8x32>(table), as<uint8_t>(indices | int16_t(-0x8000))));
}

// The steps of ownJudge, for channels kFirst to kFirst + kCount - 1. `second` is the mask of subset 1.
template <int kFirst, int kCount, int kSubsets>
struct Judge {
  const PixelBlock& block;
  const EndPoints (&ends)[kSubsets];
  const Pixels16 second;

  // The nearest points on the lines, of 0 to kTop: p . factor - offset, of each subset.
  template <int kTop>
  QELJ_INLINE Pixels16 indices() const {
    float factor[kSubsets][4], offset[kSubsets];
    for (int s = 0; s < kSubsets; ++s) {
      const F32x4 e0 = convert<float>(simd::lower(ends[s].expanded));
      const F32x4 d = convert<float>(simd::upper(ends[s].expanded)) - e0;
      float length = 0, start = 0;
      for (int c = kFirst; c < kFirst + kCount; ++c) length += d[c] * d[c], start += e0[c] * d[c];
      const float scale = ratio(kTop, length);
      for (int c = kFirst; c < kFirst + kCount; ++c) factor[s][c] = d[c] * scale;
      offset[s] = start * scale;
    }
    const auto places = [&](const F32x8(&channel)[4], I32x8 in1) QELJ_INLINE_LAMBDA {
      const auto pick = [&](float of0, float of1) QELJ_INLINE_LAMBDA {
        if constexpr (kSubsets == 2) return select(in1, all<F32x8>(of1), all<F32x8>(of0));
        else return all<F32x8>(of0);
      };
      F32x8 place = -pick(offset[0], offset[kSubsets - 1]);
      for (int c = kFirst; c < kFirst + kCount; ++c) place += channel[c] * pick(factor[0][c], factor[kSubsets - 1][c]);
      return roundToInt(place);
    };
    const I32x8 low = places(block.low, convert<int32_t>(simd::lower(second)));
    const I32x8 high = places(block.high, convert<int32_t>(simd::upper(second)));
    return min(max(simd::orderPacked(simd::packI16(low, high)), Pixels16{}), all<Pixels16>(kTop));
  }

  // The squared differences from what the weights of the indices give.
  QELJ_INLINE I32x8 error(Pixels16 weights) const {
    I32x8 error{};
    for (int c = kFirst; c < kFirst + kCount; ++c) {
      const auto pick = [&](auto value) QELJ_INLINE_LAMBDA {  // of the subset's end-points
        const auto of0 = all<Pixels16>(int16_t(value(ends[0].expanded)));
        if constexpr (kSubsets == 2) return select(second, all<Pixels16>(int16_t(value(ends[1].expanded))), of0);
        else return of0;
      };
      const Pixels16 start = pick([c](const I32x8& e) { return e[c] * 64 + 32; });
      const Pixels16 slope = pick([c](const I32x8& e) { return e[c + 4] - e[c]; });
      const Pixels16 d = ((start + weights * slope) >> 6) - block.channel[c];
      error += simd::mulAddPairs(d, d);
    }
    return error;
  }
};

// Finds the indices for given end-points, and what they leave of error.
template <int kFirst, int kCount, int kIndexBits, int kSubsets>
inline Judgement ownJudge(const PixelBlock& block, const EndPoints (&ends)[kSubsets], Pixels16 second) {
  const Judge<kFirst, kCount, kSubsets> judge{block, ends, second};
  Judgement j;
  j.indices = judge.template indices<(1 << kIndexBits) - 1>();
  const Pixels16 weights = weightsOf<kIndexBits>(j.indices);
  const I32x8 error = judge.error(weights);
  for (int s = 0; s < kSubsets; ++s) {
    const Pixels16 own = kSubsets == 1 ? weights : s ? weights & second : weights & ~second;
    I32x8 product[4]{};
    for (int c = kFirst; c < kFirst + kCount; ++c) product[c] = simd::mulAddPairs(own, block.channel[c]);
    const I32x4 plain = laneSums(simd::mulAddPairs(own, all<Pixels16>(1)), simd::mulAddPairs(own, own), error, error);
    j.weight[s] = plain[0], j.square[s] = plain[1], j.error = plain[2];
    j.product[s] = laneSums(product[0], product[1], product[2], product[3]);
  }
  return j;
}

// The least-squares ends for the indices of a judgement; the given ends where the indices don't tell.
template <int kFirst, int kCount>
inline F32x8 refit(const Judgement& j, int s, const Moments& m, F32x8 ends) {
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
  int mode = 6, shape = 0, selection = 0;
  EndPoints colour[2];
  I32x8 alphaFields{};  // modes 4 and 5
  Pixels16 indices{}, alphaIndices{};
};

// Fits one part of a block (some channels, all pixels or two subsets) in a few rounds; the best round is left
// in ends and indices.
template <int kBits, PBits kPBits, int kFirst, int kCount, int kIndexBits, int kSubsets>
inline int32_t ownFit(const PixelBlock& block, const Moments (&m)[kSubsets], F32x8 (&lines)[kSubsets], Pixels16 second,
                      int rounds, EndPoints (&best)[kSubsets], Pixels16& indices) {
  indices = Pixels16{};
  int32_t lowest = std::numeric_limits<int32_t>::max();
  for (int round = 0; round < rounds; ++round) {
    EndPoints ends[kSubsets];
    for (int s = 0; s < kSubsets; ++s) ends[s] = quantise<kBits, kPBits>(lines[s]);
    const Judgement j = ownJudge<kFirst, kCount, kIndexBits, kSubsets>(block, ends, second);
    if (j.error < lowest) {
      lowest = j.error, indices = j.indices;
      for (int s = 0; s < kSubsets; ++s) best[s] = ends[s];
    }
    if (j.error == 0) break;
    for (int s = 0; s < kSubsets; ++s) lines[s] = refit<kFirst, kCount>(j, s, m[s], lines[s]);
  }
  return lowest;
}

// Tries a mode that has one set of indices for all of its channels.
template <int kMode, PBits kPBits, int kSubsets>
inline void ownTry(const PixelBlock& block, const Moments (&m)[kSubsets], int shape, Pixels16 second, int rounds,
                   Candidate& best) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  static_assert(kOf.subsets == kSubsets);
  constexpr int kCount = kOf.alphaBits ? 4 : 3;
  F32x8 lines[kSubsets];
  for (int s = 0; s < kSubsets; ++s)
    lines[s] = lineThrough(block, m[s], kSubsets == 1 ? ~Pixels16{} : s ? second : ~second);
  EndPoints ends[kSubsets]{};
  Pixels16 indices;
  const int32_t error = ownFit<kOf.colourBits, kPBits, 0, kCount, kOf.indexBits, kSubsets>(block, m, lines, second,
                                                                                           rounds, ends, indices);
  if (error >= best.error) return;
  best.error = error, best.mode = kMode, best.shape = shape, best.selection = 0;
  for (int s = 0; s < kSubsets; ++s) best.colour[s] = ends[s];
  best.indices = indices;
}

// Tries mode 4 or 5: colour and alpha with indices of their own. kColourIndexBits tells which of mode 4's
// sets is whose.
template <int kMode, int kColourIndexBits>
inline void ownTrySeparate(const PixelBlock& block, const Moments& whole, Candidate& best) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  constexpr int kAlphaIndexBits = kOf.indexBits + kOf.secondIndexBits - kColourIndexBits;
  Moments colour = whole;
  colour.column[3] = F32x4{};
  for (auto& column : colour.column) column[3] = 0;
  const Moments m[1] = {colour};
  F32x8 lines[1] = {lineThrough(block, colour, ~Pixels16{})};
  EndPoints ends[1]{}, alphaEnds[1]{};
  Pixels16 indices, alphaIndices;
  int32_t error =
      ownFit<kOf.colourBits, PBits::none, 0, 3, kColourIndexBits, 1>(block, m, lines, Pixels16{}, 3, ends, indices);
  if (error >= best.error) return;

  const float lowest = lowestLane(lesser(block.low[3], block.high[3]));
  const float highest = -lowestLane(lesser(-block.low[3], -block.high[3]));
  F32x8 alphaLine[1] = {{0, 0, 0, lowest, 0, 0, 0, highest}};
  error += ownFit<kOf.alphaBits, PBits::none, 3, 1, kAlphaIndexBits, 1>(block, m, alphaLine, Pixels16{}, 2, alphaEnds,
                                                                        alphaIndices);
  if (error >= best.error) return;
  best.error = error, best.mode = kMode, best.shape = 0;
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
inline void measureShapes(const PixelBlock& block, ShapeMoments<kChannels>& m) {
  const auto measure = [](Pixels16 values, int32_t(&of)[64], int32_t& total) {
    I32x8 group[8]{};
    alignas(32) int32_t pairs[8];
    std::memcpy(pairs, &values, sizeof pairs);
    for (int pair = 0; pair < 8; ++pair) {
      const Pixels16 both = as<Pixels16>(all<I32x8>(pairs[pair]));
      for (int g = 0; g < 8; ++g) group[g] += simd::mulAddPairs(load<Pixels16>(kShapes.pairs[pair][g]), both);
    }
    for (int g = 0; g < 8; ++g) store(of + 8 * g, group[g]);
    const I32x8 parts = simd::mulAddPairs(values, all<Pixels16>(1));
    total = laneSums(parts, parts, parts, parts)[0];
  };
  Pixels16 centred[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    const I32x8 parts = simd::mulAddPairs(block.channel[c], all<Pixels16>(1));
    m.centre[c] = int16_t((laneSums(parts, parts, parts, parts)[0] + 8) >> 4);
    centred[c] = block.channel[c] - m.centre[c];
    measure(centred[c], m.sum[c], m.totalSum[c]);
  }
  for (int b = 0; b < kChannels; ++b)
    for (int a = 0; a <= b; ++a) {
      // The product's 17 bits with a sign, one less.
      const Pixels16 low = mulWrap(centred[a], centred[b]), high = mulHi(centred[a], centred[b]);
      const Pixels16 half = as<Pixels16>(as<uint16_t>(low) >> 1) | shlWrap(high, 15);
      constexpr auto index = ShapeMoments<kChannels>::index;
      measure(half, m.product[index(a, b)], m.totalProduct[index(a, b)]);
    }
}

// What the best line through a subset leaves: the trace of the moments less their largest eigenvalue, which is near
// tr(M^4) / tr(M^3). Of the spread along the line the indices' steps leave about a hundredth: steps of a seventh of its
// length l leave l^2 / (12 * 49) a pixel, and pixels on it spread by l^2 / 12 (evenly) to l^2 / 4 (at both ends), of
// which that is a 49th to a 147th.
constexpr float kOnLine = 0.99f;
// Keeps the division from 0 / 0 where all pixels are the same. (One channel's moment of n pixels is a multiple of
// 1 / n, and the cube of that above 2^-12.)
constexpr float kNextToNothing = 1e-6f;
template <int kChannels>
inline F32x8 lineResidual(const F32x8 (&m)[kChannels][kChannels]) {
  F32x8 trace{}, cubes{}, fourths{};
  for (int a = 0; a < kChannels; ++a) {
    trace += m[a][a];
    for (int b = 0; b <= a; ++b) {
      F32x8 square{};
      for (int k = 0; k < kChannels; ++k) square += m[a][k] * m[k][b];
      const F32x8 weight = all<F32x8>(a == b ? 1 : 2);
      cubes += square * m[a][b] * weight;
      fourths += square * square * weight;
    }
  }
  return trace - all<F32x8>(kOnLine) * fourths / (cubes + all<F32x8>(kNextToNothing));
}

// What a sort key has room for: 31 bits less the six of a shape's number. Residuals end below 16 * 4 * 128^2 (a quarter
// of this is 7 times that), but for those of a division by next to nothing.
constexpr float kMostQuarters = 3e7f;
static_assert(kMostQuarters < 1 << (31 - 6));

// The shapes that promise the least error, best first.
template <int kChannels, int kWanted>
inline void rankShapes(const ShapeMoments<kChannels>& m, int (&shapes)[kWanted]) {
  constexpr auto index = ShapeMoments<kChannels>::index;
  I32x8 keys[8];
  for (int g = 0; g < 8; ++g) {
    const F32x8 n1 = load<F32x8>(kShapes.count + 8 * g);
    const F32x8 one = all<F32x8>(1), per1 = one / n1, per0 = one / (all<F32x8>(16) - n1);
    F32x8 sum1[kChannels], sum0[kChannels], m1[kChannels][kChannels], m0[kChannels][kChannels];
    for (int c = 0; c < kChannels; ++c) {
      sum1[c] = convert<float>(load<I32x8>(m.sum[c] + 8 * g));
      sum0[c] = all<F32x8>(float(m.totalSum[c])) - sum1[c];
    }
    for (int b = 0; b < kChannels; ++b)
      for (int a = 0; a <= b; ++a) {
        const I32x8 in1 = load<I32x8>(m.product[index(a, b)] + 8 * g);
        const F32x8 product1 = convert<float>(in1 * 2);
        const F32x8 product0 = convert<float>((all<I32x8>(m.totalProduct[index(a, b)]) - in1) * 2);
        m1[a][b] = m1[b][a] = product1 - sum1[a] * sum1[b] * per1;
        m0[a][b] = m0[b][a] = product0 - sum0[a] * sum0[b] * per0;
      }
    const F32x8 residual = greater(lineResidual<kChannels>(m1) + lineResidual<kChannels>(m0), F32x8{});
    // In quarters, above the six bits of the shape's number.
    const I32x8 number = I32x8{0, 1, 2, 3, 4, 5, 6, 7} + 8 * g;
    keys[g] = (roundToInt(lesser(residual * all<F32x8>(4), all<F32x8>(kMostQuarters))) << 6) | number;
  }
  for (int w = 0; w < kWanted; ++w) {
    I32x8 lowest = keys[0];
    for (int g = 1; g < 8; ++g) lowest = min(lowest, keys[g]);
    int32_t key = lowest[0];
    for (int i = 1; i < 8; ++i) key = key < lowest[i] ? key : lowest[i];
    shapes[w] = key & 63;
    for (int g = 0; g < 8; ++g)
      keys[g] = select(keys[g] == all<I32x8>(key), all<I32x8>(std::numeric_limits<int32_t>::max()), keys[g]);
  }
}

// The moments of one shape's subsets, of the pixels as they are.
template <int kChannels>
inline void momentsOfShape(const ShapeMoments<kChannels>& of, int shape, Moments (&m)[2]) {
  const float n = kShapes.count[shape];
  m[1].count = n, m[0].count = 16 - n;
  for (int s = 0; s < 2; ++s) {
    const float per = 1 / m[s].count;
    float sums[kChannels];
    for (int c = 0; c < kChannels; ++c) {
      const int32_t sum1 = of.sum[c][shape], sum = s ? sum1 : of.totalSum[c] - sum1;
      sums[c] = float(sum);
      m[s].sum[c] = float(sum) + m[s].count * float(of.centre[c]);
    }
    for (int b = 0; b < kChannels; ++b)
      for (int a = 0; a <= b; ++a) {
        const int at = ShapeMoments<kChannels>::index(a, b);
        const int32_t product = s ? of.product[at][shape] : of.totalProduct[at] - of.product[at][shape];
        m[s].column[a][b] = m[s].column[b][a] = float(2 * product) - sums[a] * sums[b] * per;
      }
  }
}

inline Moments momentsOf(const PixelBlock& block) {
  const Pixels16 ones = all<Pixels16>(1);
  I32x8 sums[4];
  for (int c = 0; c < 4; ++c) sums[c] = simd::mulAddPairs(block.channel[c], ones);
  const I32x4 sum = laneSums(sums[0], sums[1], sums[2], sums[3]);
  Moments m;
  m.count = 16;
  m.sum = convert<float>(sum);
  Pixels16 centred[4];
  for (int c = 0; c < 4; ++c) centred[c] = block.channel[c] - int16_t((sum[c] + 8) >> 4);
  for (int a = 0; a < 4; ++a) {
    I32x8 products[4];
    for (int b = 0; b < 4; ++b) products[b] = simd::mulAddPairs(centred[a], centred[b]);
    m.column[a] = convert<float>(laneSums(products[0], products[1], products[2], products[3]));
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
inline uint64_t packAnchored(const int16_t (&indices)[16], const bc7::Shape& shape) {
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
inline void turnSubsets(Pixels16 lanes, const bc7::Shape& shape, int16_t (&indices)[16], bool (&turned)[2]) {
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
  bits.put(kLayout.indexSelection, uint64_t(best.selection));  // the rotation, in front of it, stays 0

  bool turned[2] = {}, alphaTurned[2] = {};
  int16_t indices[16];
  if constexpr (kOf.secondIndexBits == 0) {
    turnSubsets<kOf.indexBits, kOf.subsets>(best.indices, shape, indices, turned);
    bits.put(kLayout.indices, packAnchored<kOf.indexBits, kOf.subsets>(indices, shape));
  } else {
    const Pixels16 first = best.selection ? best.alphaIndices : best.indices;
    const Pixels16 other = best.selection ? best.indices : best.alphaIndices;
    turnSubsets<kOf.indexBits, 1>(first, shape, indices, best.selection ? alphaTurned : turned);
    bits.put(kLayout.indices, packAnchored<kOf.indexBits, 1>(indices, shape));
    turnSubsets<kOf.secondIndexBits, 1>(other, shape, indices, best.selection ? turned : alphaTurned);
    bits.put(kLayout.secondIndices, packAnchored<kOf.secondIndexBits, 1>(indices, shape));
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
inline Candidate flatCandidate(const uint8_t* pixel) {
  Candidate flat;
  flat.indices = all<Pixels16>(7);  // a weight of 30 in 64
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
inline void withBestShapes(const PixelBlock& block, Attempt&& attempt) {
  ShapeMoments<kChannels> shapes;
  int ranked[2];
  measureShapes(block, shapes);
  rankShapes(shapes, ranked);
  for (int rank = 0; rank < 2; ++rank) {
    Moments m[2];
    momentsOfShape(shapes, ranked[rank], m);
    attempt(rank, ranked[rank], m, load<Pixels16>(kShapes.masks[ranked[rank]]));
  }
}

// An error of a block up to which no other mode is tried: one and a half a pixel, over its four channels 52 dB.
constexpr int32_t kGoodEnough = 16 * 3 / 2;

inline void ownEncodeOpaque(const PixelBlock& block, const Moments (&whole)[1], Candidate& best) {
  ownTry<6, PBits::ones, 1>(block, whole, 0, Pixels16{}, 3, best);
  if (best.error <= kGoodEnough) return;
  withBestShapes<3>(block, [&](int rank, int shape, const Moments(&m)[2], Pixels16 second) QELJ_INLINE_LAMBDA {
    ownTry<1, PBits::shared, 2>(block, m, shape, second, 3, best);
    if (rank == 0) ownTry<3, PBits::each, 2>(block, m, shape, second, 2, best);
  });
}

inline void ownEncodeAlpha(const PixelBlock& block, const Moments (&whole)[1], Candidate& best) {
  ownTry<6, PBits::each, 1>(block, whole, 0, Pixels16{}, 3, best);
  if (best.error <= kGoodEnough) return;
  ownTrySeparate<5, 2>(block, whole[0], best);
  ownTrySeparate<4, 3>(block, whole[0], best);
  ownTrySeparate<4, 2>(block, whole[0], best);
  withBestShapes<4>(block, [&](int, int shape, const Moments(&m)[2], Pixels16 second)
                               QELJ_INLINE_LAMBDA { ownTry<7, PBits::each, 2>(block, m, shape, second, 3, best); });
}

struct Bc7Encoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4;

  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    PixelBlock block = loadPixels(src, srcStep);
    Pixels16 differs{};
    for (const Pixels16& c : block.channel) differs |= c ^ (all<Pixels16>(int16_t(c[0])));
    if (simd::isZero(differs)) return ownStoreBest(flatCandidate(src), dst);
    block.floatChannels();
    const Moments whole[1] = {momentsOf(block)};
    Candidate best;
    if (simd::isZero(block.channel[3] ^ (all<Pixels16>(255)))) ownEncodeOpaque(block, whole, best);
    else ownEncodeAlpha(block, whole, best);
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
