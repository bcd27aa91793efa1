// The encoder of BC7. A block's 16 pixels are the lanes of one vector a channel, and a candidate (a mode, a
// shape, a pair of end-points for each subset) is judged by decoding it with the format's own arithmetic, so
// that errors are exact: the squared difference over red, green, blue and alpha, all weighing the same.
//
// A candidate starts from the line through its pixels' main axis. Indices and end-points then improve each other:
// indices are the nearest points on the line, end-points the least-squares solution for the indices, p-bits those whose
// rounded end-points are nearest. Shapes are ranked by the error that the best lines through their subsets would leave.
#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "frame/fronts.h"
#include "frame/rounding.h"
#include "texture/bc7_tables.h"
#include "texture/encode_walk.h"
#include "texture/halves.h"
#include "texture/indices.h"

namespace qelj {
namespace texture {
namespace {

using bc7::Layout;

using Pixels16 = simd::I16x16;                // one channel of the 16 pixels, or a mask of them
using simd::F32x4, simd::I16x8, simd::I32x4;  // one value a channel, or a set of pixels
using simd::F32x8, simd::I32x8;               // of eight pixels, or of two end-points
using F64x4 = simd::Vec<double, 32>;          // exact products of sums

// --- small vector helpers ----------------------------------------------------------------------------------

using halves::greater, halves::isAboveZero, halves::isZero, halves::join, halves::lesser, halves::lower, halves::max;
using halves::min, halves::mulAddPairs, halves::mulHi, halves::packInOrder, halves::roundToInt, halves::shuffle4;
using halves::shuffleBytes, halves::toFloat, halves::twice, halves::unpackHigh, halves::unpackLow, halves::upper;
using halves::widen;

// x / y, and 0 for a y of 0. There is no division by 0 to raise a flag, or to trap.
template <class V>
inline V ratio(V x, V y) {
  const auto some = isAboveZero(y);
  return select(some, x, V{}) / select(some, y, all<V>(1));
}
// What op makes of the lanes of each of four vectors.
template <class V, class Op>
inline auto combineLanes(V a, V b, V c, V d, Op op) {
  const V ab = op(unpackLow(a, b), unpackHigh(a, b)), cd = op(unpackLow(c, d), unpackHigh(c, d));
  const V four =
      op(as<V>(unpackLow(as<uint64_t>(ab), as<uint64_t>(cd))), as<V>(unpackHigh(as<uint64_t>(ab), as<uint64_t>(cd))));
  return op(lower(four), upper(four));
}
inline I32x4 laneSums(I32x8 a, I32x8 b, I32x8 c, I32x8 d) {
  return combineLanes(a, b, c, d, [](auto x, auto y) { return x + y; });
}
inline int32_t laneSum(I32x8 v) {
  I32x4 half = lower(v) + upper(v);
  half += shuffle4<2, 3, 0, 1>(half);
  return half[0] + half[1];
}
// One value a channel from one a set: lane i of the results is channel i's.
inline void transpose(const F32x4 (&v)[4], F32x4 (&sets)[4]) {
  const auto low01 = as<uint64_t>(unpackLow(v[0], v[1])), low23 = as<uint64_t>(unpackLow(v[2], v[3]));
  const auto high01 = as<uint64_t>(unpackHigh(v[0], v[1])), high23 = as<uint64_t>(unpackHigh(v[2], v[3]));
  sets[0] = as<F32x4>(unpackLow(low01, low23)), sets[1] = as<F32x4>(unpackHigh(low01, low23));
  sets[2] = as<F32x4>(unpackLow(high01, high23)), sets[3] = as<F32x4>(unpackHigh(high01, high23));
}

// --- a block -----------------------------------------------------------------------------------------------

struct PixelBlock {
  Pixels16 channel[4];
  F32x8 low[4], high[4];  // pixels 0 to 7 and 8 to 15 as floats

  void floatChannels() {
    for (int c = 0; c < 4; ++c) {
      low[c] = toFloat(widen(lower(channel[c])));
      high[c] = toFloat(widen(upper(channel[c])));
    }
  }
};

inline PixelBlock loadPixels(const uint8_t* src, ptrdiff_t step) {
  using simd::U64x2, simd::U8x16;
  const auto planar = [&](int y) {  // four bytes of each channel
    const U8x16 pixels = load<U8x16>(row(src, step, y));
    return as<I32x4>(
        shuffleBytes(pixels, simd::blockPattern<U8x16>({0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15})));
  };
  const I32x4 r0 = planar(0), r1 = planar(1), r2 = planar(2), r3 = planar(3);
  const U64x2 low01 = as<U64x2>(unpackLow(r0, r1)), low23 = as<U64x2>(unpackLow(r2, r3));
  const U64x2 high01 = as<U64x2>(unpackHigh(r0, r1)), high23 = as<U64x2>(unpackHigh(r2, r3));
  const U64x2 planes[4] = {unpackLow(low01, low23), unpackHigh(low01, low23), unpackLow(high01, high23),
                           unpackHigh(high01, high23)};
  PixelBlock block;
  for (int c = 0; c < 4; ++c) block.channel[c] = convert<int16_t>(as<U8x16>(planes[c]));
  return block;
}

// --- lines -------------------------------------------------------------------------------------------------

// Number, sums and second moments about the mean (covariance times number) of up to four sets of pixels, one a lane.
struct Moments {
  F32x4 count{};
  F32x4 sum[4]{};
  F32x4 column[4][4]{};  // the symmetric matrix
};

// The main axes of covariance matrices by power iteration; zero for pixels that are all the same.
inline void mainAxes(const Moments& m, F32x4 (&axis)[4]) {
  F32x4 widest = m.column[0][0];
  for (int c = 0; c < 4; ++c) axis[c] = m.column[0][c];
  for (int k = 1; k < 4; ++k) {
    const I32x4 wider = m.column[k][k] > widest;
    widest = select(wider, m.column[k][k], widest);
    for (int c = 0; c < 4; ++c) axis[c] = select(wider, m.column[k][c], axis[c]);
  }
  for (int i = 0; i < 4; ++i) {
    F32x4 largest{};
    for (int c = 0; c < 4; ++c) largest = greater(as<float>(as<int32_t>(axis[c]) & 0x7FFFFFFF), largest);
    const F32x4 scale = ratio(all<F32x4>(1), largest);
    for (int c = 0; c < 4; ++c) axis[c] *= scale;
    if (i == 3) break;
    const F32x4 a[4] = {axis[0], axis[1], axis[2], axis[3]};
    for (int c = 0; c < 4; ++c)
      axis[c] = (m.column[0][c] * a[0] + m.column[1][c] * a[1]) + (m.column[2][c] * a[2] + m.column[3][c] * a[3]);
  }
}

// What a fit starts from: of each subset the number of pixels, the sums of their channels, and the ends of the line
// along their main axis that holds them all, end 0 in lanes 0 to 3, end 1 in 4 to 7.
template <int kSubsets>
struct Start {
  float count[kSubsets];
  F32x4 sum[kSubsets];
  F32x8 line[kSubsets];
  Pixels16 second{};  // a mask of subset 1
};

// Of the subsets of kStarts parts, which are the sets of m in order.
template <int kSubsets, int kStarts>
inline void startsFrom(const PixelBlock& block, const Moments& m, Start<kSubsets>* starts) {
  F32x4 axis[4], mean[4];
  mainAxes(m, axis);
  const F32x4 per = all<F32x4>(1) / m.count;
  for (int c = 0; c < 4; ++c) mean[c] = m.sum[c] * per;
  F32x8 lowest[4]{}, highest[4]{};
  for (int i = 0; i < kStarts * kSubsets; ++i) {
    F32x8 low{}, high{};
    for (int c = 0; c < 4; ++c) {
      const F32x8 centre = all<F32x8>(mean[c][i]), along = all<F32x8>(axis[c][i]);
      low += (block.low[c] - centre) * along;
      high += (block.high[c] - centre) * along;
    }
    if constexpr (kSubsets == 1) {
      lowest[i] = lesser(low, high), highest[i] = greater(low, high);
    } else {
      const Pixels16 second = starts[i / 2].second, in = i % 2 ? second : ~second;
      const I32x8 inLow = widen(lower(in)), inHigh = widen(upper(in));
      const F32x8 huge = all<F32x8>(std::numeric_limits<float>::max());
      lowest[i] = lesser(select(inLow, low, huge), select(inHigh, high, huge));
      highest[i] = greater(select(inLow, low, -huge), select(inHigh, high, -huge));
    }
  }
  constexpr auto least = [](auto a, auto b) { return lesser(a, b); };
  constexpr auto most = [](auto a, auto b) { return greater(a, b); };
  const F32x4 length = (axis[0] * axis[0] + axis[1] * axis[1]) + (axis[2] * axis[2] + axis[3] * axis[3]);
  const F32x4 scale = ratio(all<F32x4>(1), length);
  const F32x4 from = combineLanes(lowest[0], lowest[1], lowest[2], lowest[3], least) * scale;
  const F32x4 to = combineLanes(highest[0], highest[1], highest[2], highest[3], most) * scale;
  F32x4 ends[2][4], first[4], last[4], sums[4];
  for (int c = 0; c < 4; ++c) ends[0][c] = mean[c] + axis[c] * from, ends[1][c] = mean[c] + axis[c] * to;
  transpose(ends[0], first), transpose(ends[1], last), transpose(m.sum, sums);
  for (int i = 0; i < kStarts * kSubsets; ++i) {
    Start<kSubsets>& start = starts[i / kSubsets];
    start.count[i % kSubsets] = m.count[i];
    start.sum[i % kSubsets] = sums[i];
    start.line[i % kSubsets] = join(first[i], last[i]);
  }
}

// --- end-points --------------------------------------------------------------------------------------------

// How a mode spends its p-bits: none, one a subset, one an end-point, or one an end-point fixed at 1 (so that
// an opaque block's alpha stays 255).
enum class PBits { none, shared, each, ones };

struct EndPoints {
  I32x8 fields;    // as stored, without p-bits
  I32x8 expanded;  // the 8-bit values that they stand for
  I32x8 p;         // each end's p-bit in its four lanes, as 0 or another number
};

// Rounds both ends of a line to `bits` bits and the best p-bits.
template <int kBits, PBits kPBits>
QELJ_INLINE EndPoints quantise(F32x8 ends) {
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
    return {fields, expand(fields), I32x8{}};
  } else {
    EndPoints with[2];
    F32x8 error[2];
    for (int p = kPBits == PBits::ones ? 1 : 0; p < 2; ++p) {
      I32x8 fields = roundToInt((scaled - all<F32x8>(float(p))) * all<F32x8>(0.5f));
      fields = min(max(fields, I32x8{}), all<I32x8>(kTop));
      with[p] = {fields, expand(fields * 2 + p), all<I32x8>(p)};
      error[p] = toFloat(with[p].expanded) - ends;
      error[p] *= error[p];
    }
    if constexpr (kPBits == PBits::ones) return with[1];
    F32x8 gain = error[0] - error[1];  // of p = 1: the sum over an end's channels, in each of its lanes
    gain += shuffle4<1, 0, 3, 2>(gain);
    gain += shuffle4<2, 3, 0, 1>(gain);
    if constexpr (kPBits == PBits::shared) gain += join(upper(gain), lower(gain));
    const I32x8 one = isAboveZero(gain);
    return {select(one, with[1].fields, with[0].fields), select(one, with[1].expanded, with[0].expanded), one};
  }
}

// --- judging a candidate -----------------------------------------------------------------------------------

template <int kBits>
inline Pixels16 weightsOf(Pixels16 indices) {
  uint8_t table[16];
  for (int i = 0; i < 16; ++i) table[i] = bc7::weights<kBits>()[i % (1 << kBits)];
  return as<Pixels16>(shuffleBytes(simd::blockPattern<simd::U8x32>(table), as<uint8_t>(indices | int16_t(-0x8000))));
}

// To each pixel the value of its subset: of kSubsets vectors of 16-bit or of float lanes, the lane of this number.
template <int kSubsets>
struct BySubset {
  Pixels16 second;
  I32x8 low, high;  // masks of subset 1

  explicit BySubset(Pixels16 mask) : second(mask), low(widen(lower(mask))), high(widen(upper(mask))) {}
  // Lanes 0 to 3 are of subset 0, lanes 4 to 7 of subset 1.
  QELJ_INLINE Pixels16 words(I16x8 values, int lane) const {
    if constexpr (simd::kShuffles) {
      const auto place = all<Pixels16>(int16_t(0x0100 + 0x0202 * lane));
      const auto table = twice(as<uint8_t>(values));
      if constexpr (kSubsets == 1) return as<Pixels16>(shuffleBytes(table, as<uint8_t>(place)));
      else return as<Pixels16>(shuffleBytes(table, as<uint8_t>(place + (second & int16_t(0x0808)))));
    } else {
      const auto of0 = all<Pixels16>(values[lane]);
      if constexpr (kSubsets == 1) return of0;
      else return select(second, all<Pixels16>(values[lane + 4]), of0);
    }
  }
  struct Floats {
    F32x8 low, high;  // of pixels 0 to 7, and 8 to 15
  };
  QELJ_INLINE Floats floats(F32x8 values, int lane) const {
    if constexpr (kSubsets == 1) {
      const auto of = all<F32x8>(values[lane]);
      return {of, of};
    } else if constexpr (simd::kShuffles) {
      const F32x4 of0 = lower(values), of1 = upper(values);
      const F32x4 pairs = lane < 2 ? unpackLow(of0, of1) : unpackHigh(of0, of1);
      const auto table = twice(as<uint8_t>(pairs));
      const auto place = all<I32x8>(0x03020100 + 0x08080808 * (lane % 2));
      const auto of = [&](I32x8 mask) QELJ_INLINE_LAMBDA {
        return as<F32x8>(shuffleBytes(table, as<uint8_t>(place + (mask & 0x04040404))));
      };
      return {of(low), of(high)};
    } else {
      const F32x8 of0 = all<F32x8>(values[lane]), of1 = all<F32x8>(values[lane + 4]);
      return {select(low, of1, of0), select(high, of1, of0)};
    }
  }
};

// Fits one part of a block (some channels, all pixels or two subsets) in a few rounds; the best round is kept.
template <int kBits, PBits kPBits, int kFirst, int kCount, int kIndexBits, int kSubsets, int kRounds = 3>
struct Fit {
  const PixelBlock& block;
  const Start<kSubsets>& start;
  const BySubset<kSubsets> bySubset;
  F32x8 lines[kSubsets];

  // The best round so far.
  int32_t lowest = std::numeric_limits<int32_t>::max();
  I32x8 fields[kSubsets], p[kSubsets];
  Pixels16 indices{};

  // The present one.
  EndPoints ends[kSubsets];
  I32x8 end0, slopes;
  Pixels16 found, weights;

  Fit(const PixelBlock& of, const Start<kSubsets>& from) : block(of), start(from), bySubset(from.second) {
    for (int s = 0; s < kSubsets; ++s) lines[s] = from.line[s];
  }

  // Calls use(c) for the part's channels.
  template <class Use>
  static QELJ_INLINE void eachChannel(Use use) {
    simd::unroll<kCount>([&](auto i) QELJ_INLINE_LAMBDA { use(kFirst + i); });
  }
  static QELJ_INLINE I32x8 channels() {
    const auto in = [](int c) { return c >= kFirst && c < kFirst + kCount ? -1 : 0; };
    return I32x8{in(0), in(1), in(2), in(3), in(0), in(1), in(2), in(3)};
  }

  // One end of all subsets: subset 1 in lanes 4 to 7.
  QELJ_INLINE I32x8 endOf(int end) const {
    const auto of = [&](int s) { return end ? upper(ends[s].expanded) : lower(ends[s].expanded); };
    return join(of(0), of(kSubsets - 1));
  }

  // The nearest points on the lines, of 0 to kTop: p . factor - offset, of each subset.
  QELJ_INLINE Pixels16 nearest() const {
    constexpr int kTop = (1 << kIndexBits) - 1;
    // Whole numbers, and exact.
    const F32x8 d = toFloat(slopes & channels());
    const F32x8 squares = d * d, products = d * toFloat(end0);
    F32x8 sums = unpackLow(squares, products) + unpackHigh(squares, products);
    sums += shuffle4<2, 3, 0, 1>(sums);
    const F32x8 scale = ratio(all<F32x8>(kTop), shuffle4<0, 0, 0, 0>(sums));
    const F32x8 factors = d * scale, offsets = shuffle4<1, 1, 1, 1>(sums) * scale;
    const auto offset = bySubset.floats(offsets, 0);
    F32x8 low = -offset.low, high = -offset.high;
    eachChannel([&](int c) QELJ_INLINE_LAMBDA {
      const auto factor = bySubset.floats(factors, c);
      low += block.low[c] * factor.low;
      high += block.high[c] * factor.high;
    });
    const Pixels16 places = packInOrder(roundToInt(low), roundToInt(high));
    return min(max(places, Pixels16{}), all<Pixels16>(kTop));
  }

  // The squared differences from what the weights of the indices give.
  QELJ_INLINE int32_t error() const {
    const Pixels16 packed = packInOrder(end0 * 64 + 32, slopes);
    I32x8 sum{};
    eachChannel([&](int c) QELJ_INLINE_LAMBDA {
      const Pixels16 first = bySubset.words(lower(packed), c), slope = bySubset.words(upper(packed), c);
      const Pixels16 d = ((first + weights * slope) >> 6) - block.channel[c];
      sum += mulAddPairs(d, d);
    });
    return laneSum(sum);
  }

  // The least-squares ends for these weights; the given ends where the weights don't tell. All numbers before the
  // division are whole and below 2^53.
  QELJ_INLINE void refit() {
    I32x8 sums[2][2]{};  // of the weights, and of their squares
    I32x4 products[kSubsets];
    for (int s = 0; s < kSubsets; ++s) {
      const Pixels16 own = kSubsets == 1 ? weights : s ? weights & start.second : weights & ~start.second;
      I32x8 product[4]{};
      eachChannel([&](int c) QELJ_INLINE_LAMBDA { product[c] = mulAddPairs(own, block.channel[c]); });
      products[s] = laneSums(product[0], product[1], product[2], product[3]);
      sums[s][0] = mulAddPairs(own, all<Pixels16>(1)), sums[s][1] = mulAddPairs(own, own);
    }
    // Of subset 0, and in the upper lanes of subset 1.
    const F64x4 both = convert<double>(laneSums(sums[0][0], sums[0][1], sums[1][0], sums[1][1]));
    const double n0 = start.count[0], n1 = start.count[kSubsets - 1];
    const F64x4 w = __builtin_shufflevector(both, both, 0, 0, 2, 2),
                far = __builtin_shufflevector(both, both, 1, 1, 3, 3);
    const F64x4 mixed = w * 64 - far, near = F64x4{n0, n0, n1, n1} * 4096 - w * 128 + far;
    const F32x4 determinant = convert<float>(near * far - mixed * mixed);
    const I32x4 some = isAboveZero(determinant);
    const F32x4 scales = ratio(all<F32x4>(64), determinant);
    for (int s = 0; s < kSubsets; ++s) {
      const auto pick = [s](auto v) {
        return s ? __builtin_shufflevector(v, v, 2, 2, 2, 2) : __builtin_shufflevector(v, v, 0, 0, 0, 0);
      };
      const F64x4 atFar = convert<double>(products[s]), atNear = convert<double>(start.sum[s]) * 64 - atFar;
      const F64x4 farOf = pick(far), mixedOf = pick(mixed), nearOf = pick(near);
      const F32x4 scale = pick(scales);
      const F32x4 end0 = convert<float>(farOf * atNear - mixedOf * atFar) * scale;
      const F32x4 end1 = convert<float>(nearOf * atFar - mixedOf * atNear) * scale;
      const I32x4 told = pick(some);
      lines[s] = select(join(told, told) & channels(), join(end0, end1), lines[s]);
    }
  }

  // A round's first half: ends, indices and weights.
  [[gnu::noinline]] void propose() {
    if (lowest == 0) return;
    for (int s = 0; s < kSubsets; ++s) ends[s] = quantise<kBits, kPBits>(lines[s]);
    end0 = endOf(0), slopes = endOf(1) - end0;
    found = nearest(), weights = weightsOf<kIndexBits>(found);
  }
  // Its second half: the error, and the next round's lines.
  template <bool kLast>
  [[gnu::noinline]] void judge() {
    if (lowest == 0) return;
    if constexpr (!kLast) refit();
    const int32_t left = error();
    // Not by a branch, which nothing could predict.
    const auto better = all<I32x8>(-int32_t(left < lowest));
    lowest = std::min(lowest, left);
    indices = select(better, found, indices);
    for (int s = 0; s < kSubsets; ++s) {
      fields[s] = select(better, ends[s].fields, fields[s]);
      p[s] = select(better, ends[s].p, p[s]);
    }
  }
  template <int kRound>
  void proposeIn() {
    if constexpr (kRound < kRounds) propose();
  }
  template <int kRound>
  void judgeIn() {
    if constexpr (kRound < kRounds) judge<kRound == kRounds - 1>();
  }
};

// Takes the rounds of some fits by turns: each step of one waits for its own results, while those of the others keep the
// processor busy.
template <class... Fits>
inline void takeRounds(Fits&... fits) {
  simd::unroll<3>([&](auto round) {
    (fits.template proposeIn<round>(), ...);
    (fits.template judgeIn<round>(), ...);
  });
}

// --- candidates --------------------------------------------------------------------------------------------

struct Candidate {
  int32_t error = std::numeric_limits<int32_t>::max();
  int mode = 6, shape = 0, selection = 0;
  I32x8 fields[2], p[2];
  I32x8 alphaFields{};  // modes 4 and 5
  Pixels16 indices{}, alphaIndices{};
};

// A mode that has one set of indices for all of its channels.
template <int kMode, PBits kPBits, int kRounds = 3>
using FitOf = Fit<bc7::kModes[kMode].colourBits, kPBits, 0, bc7::kModes[kMode].alphaBits ? 4 : 3,
                  bc7::kModes[kMode].indexBits, bc7::kModes[kMode].subsets, kRounds>;
template <int kMode, class Fit>
inline void keepBetter(const Fit& fit, int shape, Candidate& best) {
  if (fit.lowest >= best.error) return;
  constexpr int kSubsets = bc7::kModes[kMode].subsets;
  best.error = fit.lowest, best.mode = kMode, best.shape = shape, best.selection = 0;
  for (int s = 0; s < kSubsets; ++s) best.fields[s] = fit.fields[s], best.p[s] = fit.p[s];
  best.indices = fit.indices;
}

// Modes 4 and 5 have colour and alpha with indices of their own. kColourIndexBits tells which of mode 4's sets is whose.
template <int kMode, int kColourIndexBits>
using ColourFit = Fit<bc7::kModes[kMode].colourBits, PBits::none, 0, 3, kColourIndexBits, 1>;
template <int kMode, int kColourIndexBits>
inline void trySeparate(const ColourFit<kMode, kColourIndexBits>& fit, const Start<1>& alpha, Candidate& best) {
  constexpr bc7::Mode kOf = bc7::kModes[kMode];
  constexpr int kAlphaIndexBits = kOf.indexBits + kOf.secondIndexBits - kColourIndexBits;
  if (fit.lowest >= best.error) return;
  Fit<kOf.alphaBits, PBits::none, 3, 1, kAlphaIndexBits, 1, 2> alphaFit(fit.block, alpha);
  takeRounds(alphaFit);
  const int32_t error = fit.lowest + alphaFit.lowest;
  if (error >= best.error) return;
  best.error = error, best.mode = kMode, best.shape = 0;
  best.selection = kColourIndexBits == kOf.indexBits ? 0 : 1;
  best.fields[0] = fit.fields[0], best.alphaFields = alphaFit.fields[0];
  best.indices = fit.indices, best.alphaIndices = alphaFit.indices;
}

// --- ranking shapes ----------------------------------------------------------------------------------------

using W16 = simd::Wide<int16_t>;  // a pair of pixels, for each of the shapes in
using W32 = simd::Wide<int32_t>;  // whole numbers and
using WF = simd::Wide<float>;     // floats
constexpr int kShapeCount = 64, kGroup = simd::kLanes<W32>, kGroups = kShapeCount / kGroup;

// For every pair of pixels, the 64 shapes' membership in subset 1 as pairs of 0 and 1; and the masks of the shapes.
struct ShapeTables {
  alignas(64) int16_t pairs[kGroups][8][2 * kGroup] = {};  // [group][pixel pair][lane]
  alignas(64) int16_t masks[kShapeCount][16] = {};
  alignas(64) float count[kShapeCount] = {};
  alignas(64) float perPixel[2][kShapeCount] = {};  // 1 / the number of pixels [subset]
  constexpr ShapeTables() {
    for (int shape = 0; shape < 64; ++shape)
      for (int i = 0; i < 16; ++i) {
        const int in = bc7::kTwoSubsets[shape].subset(i);
        pairs[shape / kGroup][i / 2][2 * (shape % kGroup) + i % 2] = int16_t(in);
        masks[shape][i] = int16_t(-in);
        count[shape] += float(in);
      }
    for (int shape = 0; shape < kShapeCount; ++shape)
      perPixel[0][shape] = 1 / (16 - count[shape]), perPixel[1][shape] = 1 / count[shape];
  }
};
constexpr ShapeTables kShapes;

// The sums and second moments of subset 1 of all shapes, of pixels centred on their mean. Products are
// halved, so that they fit 16 bits; their sums are not. All are whole numbers, and exact.
template <int kChannels>
struct ShapeMoments {
  static constexpr int kProducts = kChannels * (kChannels + 1) / 2;
  alignas(64) float sum[kChannels][kShapeCount];
  alignas(64) float product[kProducts][kShapeCount];
  float totalSum[kChannels], totalProduct[kProducts];
  int16_t centre[kChannels];

  static constexpr int index(int a, int b) { return b * (b + 1) / 2 + a; }  // a <= b
};

template <int kChannels>
[[gnu::noinline]] void measureShapes(const PixelBlock& block, ShapeMoments<kChannels>& m) {
  const auto measure = [](Pixels16 values, int factor, float(&of)[kShapeCount], float& total) QELJ_INLINE_LAMBDA {
    int32_t pairs[8];
    store(pairs, values);
    W16 both[8];
    for (int pair = 0; pair < 8; ++pair) both[pair] = as<W16>(all<W32>(pairs[pair]));
    for (int g = 0; g < kGroups; ++g) {
      W32 sum{};
      for (int pair = 0; pair < 8; ++pair) sum += mulAddPairs(load<W16>(kShapes.pairs[g][pair]), both[pair]);
      store(of + kGroup * g, convert<float>(sum * factor));
    }
    total = float(laneSum(mulAddPairs(values, all<Pixels16>(1))) * factor);
  };
  Pixels16 centred[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    m.centre[c] = int16_t((laneSum(mulAddPairs(block.channel[c], all<Pixels16>(1))) + 8) >> 4);
    centred[c] = block.channel[c] - m.centre[c];
    measure(centred[c], 1, m.sum[c], m.totalSum[c]);
  }
  for (int b = 0; b < kChannels; ++b)
    for (int a = 0; a <= b; ++a) {
      // The product's 17 bits with a sign, one less.
      const Pixels16 low = mulWrap(centred[a], centred[b]), high = mulHi(centred[a], centred[b]);
      const Pixels16 half = as<Pixels16>(as<uint16_t>(low) >> 1) | shlWrap(high, 15);
      constexpr auto index = ShapeMoments<kChannels>::index;
      measure(half, 2, m.product[index(a, b)], m.totalProduct[index(a, b)]);
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
inline WF lineResidual(const WF (&m)[kChannels][kChannels]) {
  WF trace = m[0][0], cubes{}, fourths{};
  for (int a = 0; a < kChannels; ++a) {
    if (a > 0) trace += m[a][a];
    for (int b = 0; b <= a; ++b) {
      WF square = m[a][0] * m[0][b];
      for (int k = 1; k < kChannels; ++k) square += m[a][k] * m[k][b];
      const WF weight = all<WF>(a == b ? 1 : 2);
      cubes += square * m[a][b] * weight;
      fourths += square * square * weight;
    }
  }
  return trace - all<WF>(kOnLine) * fourths / (cubes + all<WF>(kNextToNothing));
}

// What a sort key has room for: 31 bits less the six of a shape's number. Residuals end below 16 * 4 * 128^2 (a quarter
// of this is 7 times that), but for those of a division by next to nothing.
constexpr float kMostQuarters = 3e7f;
static_assert(kMostQuarters < 1 << (31 - 6));

// The shapes that promise the least error, best first.
template <int kChannels, int kWanted>
[[gnu::noinline]] void rankShapes(const ShapeMoments<kChannels>& m, int (&shapes)[kWanted]) {
  constexpr auto index = ShapeMoments<kChannels>::index;
  alignas(64) int32_t numbers[kGroup];
  for (int i = 0; i < kGroup; ++i) numbers[i] = i;
  W32 keys[kGroups];
  for (int g = 0; g < kGroups; ++g) {
    const auto residualOf = [&](int subset, auto sumOf, auto productOf) QELJ_INLINE_LAMBDA {
      const WF per = load<WF>(kShapes.perPixel[subset] + kGroup * g);
      WF sum[kChannels], moments[kChannels][kChannels];
      for (int c = 0; c < kChannels; ++c) sum[c] = sumOf(c);
      for (int b = 0; b < kChannels; ++b)
        for (int a = 0; a <= b; ++a) moments[a][b] = moments[b][a] = productOf(index(a, b)) - sum[a] * sum[b] * per;
      return lineResidual<kChannels>(moments);
    };
    const auto sum1 = [&](int c) QELJ_INLINE_LAMBDA { return load<WF>(m.sum[c] + kGroup * g); };
    const auto product1 = [&](int at) QELJ_INLINE_LAMBDA { return load<WF>(m.product[at] + kGroup * g); };
    const auto sum0 = [&](int c) QELJ_INLINE_LAMBDA { return all<WF>(m.totalSum[c]) - sum1(c); };
    const auto product0 = [&](int at) QELJ_INLINE_LAMBDA { return all<WF>(m.totalProduct[at]) - product1(at); };
    const WF ofSecond = residualOf(1, sum1, product1);
    const WF residual = greater(ofSecond + residualOf(0, sum0, product0), WF{});
    // In quarters, above the six bits of the shape's number.
    const W32 number = load<W32>(numbers) + kGroup * g;
    keys[g] = (roundToInt(lesser(residual * all<WF>(4), all<WF>(kMostQuarters))) << 6) | number;
  }
  for (int& shape : shapes) {
    W32 lowest = keys[0];
    for (int g = 1; g < kGroups; ++g) lowest = min(lowest, keys[g]);
    int32_t key = lowest[0];
    for (int i = 1; i < kGroup; ++i) key = std::min(key, int32_t(lowest[i]));
    shape = key & 63;
    for (W32& of : keys) of = select(of == all<W32>(key), all<W32>(std::numeric_limits<int32_t>::max()), of);
  }
}

// The moments of the subsets of two shapes in turn, of the pixels as they are.
template <int kChannels>
inline Moments momentsOfShapes(const ShapeMoments<kChannels>& of, const int (&shapes)[2]) {
  const float n0 = kShapes.count[shapes[0]], n1 = kShapes.count[shapes[1]];
  const auto sets = [&](const float(&second)[kShapeCount], float total) {
    const float a = second[shapes[0]], b = second[shapes[1]];
    return F32x4{total - a, a, total - b, b};
  };
  Moments m;
  m.count = F32x4{16 - n0, n0, 16 - n1, n1};
  const F32x4 per = all<F32x4>(1) / m.count;
  F32x4 sums[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    sums[c] = sets(of.sum[c], of.totalSum[c]);
    m.sum[c] = sums[c] + m.count * all<F32x4>(of.centre[c]);
  }
  for (int b = 0; b < kChannels; ++b)
    for (int a = 0; a <= b; ++a) {
      const int at = ShapeMoments<kChannels>::index(a, b);
      const F32x4 product = sets(of.product[at], of.totalProduct[at]);
      m.column[a][b] = m.column[b][a] = product - sums[a] * sums[b] * per;
    }
  return m;
}

// Of all pixels; in lane 1 without alpha's part in the second moments.
inline Moments momentsOf(const PixelBlock& block) {
  const Pixels16 ones = all<Pixels16>(1);
  I32x8 sums[4];
  for (int c = 0; c < 4; ++c) sums[c] = mulAddPairs(block.channel[c], ones);
  const I32x4 sum = laneSums(sums[0], sums[1], sums[2], sums[3]);
  Moments m;
  m.count = all<F32x4>(16);
  Pixels16 centred[4];
  for (int c = 0; c < 4; ++c) {
    m.sum[c] = all<F32x4>(float(sum[c]));
    centred[c] = block.channel[c] - int16_t((sum[c] + 8) >> 4);
  }
  for (int a = 0; a < 4; ++a) {
    I32x8 products[4];
    for (int b = 0; b < 4; ++b) products[b] = mulAddPairs(centred[a], centred[b]);
    const F32x4 column = convert<float>(laneSums(products[0], products[1], products[2], products[3]));
    for (int b = 0; b < 4; ++b) m.column[a][b] = F32x4{column[b], a == 3 || b == 3 ? 0 : column[b], 0, 0};
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

// The bits of a set of indices. Where an anchor's index has its top bit set, its subset's ends are exchanged (turned),
// and the indices count from the other one.
template <int kBits, int kSubsets>
inline uint64_t packAnchored(Pixels16 indices, int shapeNumber, bool (&turned)[2]) {
  const int anchor = bc7::shape<kSubsets>(shapeNumber).anchors[1];
  int16_t lanes[16];
  store(lanes, indices);
  turned[0] = lanes[0] >> (kBits - 1);
  Pixels16 turn = all<Pixels16>(int16_t(-turned[0]));
  if constexpr (kSubsets == 2) {
    turned[1] = lanes[anchor] >> (kBits - 1);
    turn = select(load<Pixels16>(kShapes.masks[shapeNumber]), all<Pixels16>(int16_t(-turned[1])), turn);
  }
  const Pixels16 places = indices ^ (turn & int16_t((1 << kBits) - 1));
  uint64_t packed = packIndices<kBits>(simd::packU8(lower(places), upper(places)))[0];
  if constexpr (kSubsets == 2) packed = removeAnchorBit<kBits>(packed, anchor);
  return removeAnchorBit<kBits>(packed, 0);
}

template <int kMode>
inline void ownStore(const Candidate& best, uint8_t* dst) {
  constexpr Layout kLayout{kMode};
  constexpr bc7::Mode kOf = kLayout.mode;
  BitField bits;
  bits.put(kMode, 1);
  bits.put(kLayout.partition, uint64_t(best.shape));
  bits.put(kLayout.indexSelection, uint64_t(best.selection));  // the rotation, in front of it, stays 0

  bool turned[2] = {}, alphaTurned[2] = {};
  if constexpr (kOf.secondIndexBits == 0) {
    bits.put(kLayout.indices, packAnchored<kOf.indexBits, kOf.subsets>(best.indices, best.shape, turned));
  } else {
    const Pixels16 first = best.selection ? best.alphaIndices : best.indices;
    const Pixels16 other = best.selection ? best.indices : best.alphaIndices;
    bits.put(kLayout.indices, packAnchored<kOf.indexBits, 1>(first, 0, best.selection ? alphaTurned : turned));
    bits.put(kLayout.secondIndices,
             packAnchored<kOf.secondIndexBits, 1>(other, 0, best.selection ? turned : alphaTurned));
  }
  int32_t alphaFields[8];
  store(alphaFields, best.alphaFields);
  for (int s = 0; s < kOf.subsets; ++s) {
    int32_t fields[8], p[8];
    store(fields, best.fields[s]), store(p, best.p[s]);
    for (int e = 0; e < 2; ++e) {
      const int from = 4 * (e ^ int(turned[s])), alphaFrom = 4 * (e ^ int(alphaTurned[s]));
      for (int c = 0; c < 3; ++c) bits.put(kLayout.position(c, 2 * s + e), uint64_t(fields[c + from]));
      if constexpr (kOf.secondIndexBits != 0) bits.put(kLayout.position(3, e), uint64_t(alphaFields[3 + alphaFrom]));
      else if constexpr (kOf.alphaBits != 0) bits.put(kLayout.position(3, 2 * s + e), uint64_t(fields[3 + from]));
      if constexpr (kOf.endPointPBits != 0) bits.put(kLayout.pBitPosition(2 * s + e), uint64_t(p[from] & 1));
      else if constexpr (kOf.subsetPBits != 0)
        if (e == 0) bits.put(kLayout.pBitPosition(2 * s), uint64_t(p[0] & 1));
    }
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
  flat.p[0] = I32x8{opaque, opaque, opaque, opaque, 1, 1, 1, 1};
  for (int c = 0; c < 4; ++c) {
    const int v = pixel[c];
    // Opaque: two odd values around v. Else: an even one and the odd one above it. The upper one is v | 1 in both.
    const int first = opaque ? (v & 1 || v == 0 ? v | 1 : v - 1) : v & ~1;
    flat.fields[0][c] = first >> 1, flat.fields[0][c + 4] = v >> 1;
  }
  return flat;
}

// The two shapes that part the block best, and where their fits start.
template <int kChannels>
inline void startShapes(const PixelBlock& block, int (&shapes)[2], Start<2> (&starts)[2]) {
  ShapeMoments<kChannels> moments;
  measureShapes(block, moments);
  rankShapes(moments, shapes);
  for (int rank = 0; rank < 2; ++rank) starts[rank].second = load<Pixels16>(kShapes.masks[shapes[rank]]);
  startsFrom<2, 2>(block, momentsOfShapes(moments, shapes), starts);
}

// An error of a block up to which no other mode is tried: one and a half a pixel, over its four channels 52 dB.
constexpr int32_t kGoodEnough = 16 * 3 / 2;

// A block on its way.
struct Work {
  PixelBlock pixels;
  Start<1> starts[2];  // of all channels, and of colour alone (where there is alpha)
  Candidate best;
};

// Mode 6 for blocks of one kind, by turns.
template <PBits kPBits, size_t... i>
inline void trySix(Work (&work)[sizeof...(i)], std::index_sequence<i...>) {
  constexpr int kStarts = kPBits == PBits::ones ? 1 : 2;
  (startsFrom<1, kStarts>(work[i].pixels, momentsOf(work[i].pixels), work[i].starts), ...);
  [&](auto... fits) {
    takeRounds(fits...);
    (keepBetter<6>(fits, 0, work[i].best), ...);
  }(FitOf<6, kPBits>(work[i].pixels, work[i].starts[0])...);
}

inline void tryOthersOpaque(Work& work) {
  int shapes[2];
  Start<2> starts[2];
  startShapes<3>(work.pixels, shapes, starts);
  FitOf<1, PBits::shared> first(work.pixels, starts[0]), second(work.pixels, starts[1]);
  FitOf<3, PBits::each, 2> third(work.pixels, starts[0]);
  takeRounds(first, second, third);
  keepBetter<1>(first, shapes[0], work.best);
  keepBetter<3>(third, shapes[0], work.best);
  keepBetter<1>(second, shapes[1], work.best);
}

inline void tryOthersAlpha(Work& work) {
  const PixelBlock& pixels = work.pixels;
  ColourFit<5, 2> five(pixels, work.starts[1]);
  ColourFit<4, 3> four3(pixels, work.starts[1]);
  ColourFit<4, 2> four2(pixels, work.starts[1]);
  takeRounds(five, four3, four2);

  Start<1> alpha = work.starts[0];
  const auto extreme = [&](auto op) {
    const F32x8 eight = op(pixels.low[3], pixels.high[3]);
    return float(combineLanes(eight, eight, eight, eight, op)[0]);
  };
  alpha.line[0] = F32x8{};
  alpha.line[0][3] = extreme([](auto a, auto b) { return lesser(a, b); });
  alpha.line[0][7] = extreme([](auto a, auto b) { return greater(a, b); });
  trySeparate<5, 2>(five, alpha, work.best);
  trySeparate<4, 3>(four3, alpha, work.best);
  trySeparate<4, 2>(four2, alpha, work.best);

  int shapes[2];
  Start<2> starts[2];
  startShapes<4>(pixels, shapes, starts);
  FitOf<7, PBits::each> first(pixels, starts[0]), second(pixels, starts[1]);
  takeRounds(first, second);
  keepBetter<7>(first, shapes[0], work.best);
  keepBetter<7>(second, shapes[1], work.best);
}

struct Bc7Encoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4, kGroup = 2;

  static bool isFlat(const PixelBlock& block) {
    Pixels16 differs{};
    for (const Pixels16& c : block.channel) differs |= c ^ (all<Pixels16>(int16_t(c[0])));
    return isZero(differs);
  }
  static bool isOpaque(const PixelBlock& block) { return isZero(block.channel[3] ^ (all<Pixels16>(255))); }

  // All of which are opaque, or none.
  template <int kBlocks>
  static void encode(Work (&work)[kBlocks], bool opaque, uint8_t* dst) {
    constexpr std::make_index_sequence<kBlocks> kAll;
    for (Work& of : work) of.pixels.floatChannels();
    if (opaque) trySix<PBits::ones>(work, kAll);
    else trySix<PBits::each>(work, kAll);
    for (Work& of : work) {
      if (of.best.error > kGoodEnough) opaque ? tryOthersOpaque(of) : tryOthersAlpha(of);
      ownStoreBest(of.best, dst);
      dst += kBlockBytes;
    }
  }

  static void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    Work work[1];
    work[0].pixels = loadPixels(src, srcStep);
    if (isFlat(work[0].pixels)) return ownStoreBest(flatCandidate(src), dst);
    encode(work, isOpaque(work[0].pixels), dst);
  }
  static void group(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    Work work[kGroup];
    bool together = true;
    for (int i = 0; i < kGroup; ++i) {
      work[i].pixels = loadPixels(src + i * 4 * kPixelBytes, srcStep);
      together = together && !isFlat(work[i].pixels) && isOpaque(work[i].pixels) == isOpaque(work[0].pixels);
    }
    if (together) return encode(work, isOpaque(work[0].pixels), dst);
    for (int i = 0; i < kGroup; ++i) block(src + i * 4 * kPixelBytes, srcStep, dst + i * kBlockBytes);
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
