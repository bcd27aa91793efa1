// The encoder of BC7. A candidate (a mode, a shape, a pair of end-points for each subset) is judged by decoding it with
// the format's own arithmetic, so that errors are exact: the squared difference over red, green, blue and alpha, all
// weighing the same.
//
// A candidate starts from the line through its pixels' main axis. Indices and end-points then improve each other:
// indices are the nearest points on the line, end-points the least-squares solution for the indices, p-bits those whose
// rounded end-points are nearest. Shapes are ranked by the error that the best lines through their subsets would leave.
//
// The lanes of a vector are blocks of one kind, which are gathered until there are as many as lanes: no step moves
// lanes, sums them or fills but a part of them, and what one block waits for is done for all.
#include <algorithm>
#include <cstring>
#include <limits>

#include "frame/fronts.h"
#include "frame/rounding.h"
#include "texture/bc7_tables.h"
#include "texture/encode_walk.h"
#include "texture/indices.h"

namespace qelj {
namespace texture {
namespace {

using bc7::Layout;

using F = simd::Wide<float>;    // a number of each block,
using I = simd::Wide<int32_t>;  // or a mask
using I16 = simd::Wide<int16_t>;
constexpr int kLanes = simd::kLanes<F>;

// --- small vector helpers ----------------------------------------------------------------------------------

// Where neither is below 0, floats are in the order of their bits; what is below 0 has bits below 0.
QELJ_INLINE F atLeastZero(F a) { return as<F>(max(as<I>(a), I{})); }
QELJ_INLINE F lesserUnsigned(F a, F b) { return as<F>(min(as<I>(a), as<I>(b))); }
QELJ_INLINE F greaterUnsigned(F a, F b) { return as<F>(max(as<I>(a), as<I>(b))); }
QELJ_INLINE I isAboveZero(F a) { return as<int32_t>(a > F{}); }
// The bits of floats as integers in the same order, and back.
QELJ_INLINE I inOrder(I bits) { return bits ^ (bits >> 31 & 0x7FFFFFFF); }
// x / y, and 0 for a y of 0. There is no division by 0 to raise a flag, or to trap.
QELJ_INLINE F ratio(F x, F y) {
  const I some = isAboveZero(y);
  return as<F>(as<I>(x) & some) / select(some, y, all<F>(1));
}
// The product of numbers of 16 bits; the upper half of b is 0.
QELJ_INLINE I mulAdd(I a, I b) { return simd::mulAddPairs(as<int16_t>(a), as<int16_t>(b)); }
// The sum of the halves of a lane.
QELJ_INLINE I bothHalves(I v) { return mulAdd(v, all<I>(0x10001)); }
// a b - c d as a float, rounded once.
QELJ_INLINE F differenceOfProducts(I a, I b, I c, I d) {
  const auto half = [](auto w, auto x, auto y, auto z) QELJ_INLINE_LAMBDA {
    return convert<float>(convert<double>(w) * convert<double>(x) - convert<double>(y) * convert<double>(z));
  };
  using simd::lower, simd::upper;
  return simd::join(half(lower(a), lower(b), lower(c), lower(d)), half(upper(a), upper(b), upper(c), upper(d)));
}
template <class V>
QELJ_INLINE auto lane(const V& v, int i) {
  return load<simd::Lane<V>>(reinterpret_cast<const char*>(&v) + sizeof(simd::Lane<V>) * size_t(i));
}

// --- blocks ------------------------------------------------------------------------------------------------

// What a block may become.
struct Candidate {
  int32_t error = std::numeric_limits<int32_t>::max();
  uint8_t mode = 6, shape = 0;
  bool selection = false;
  uint8_t fields[2][2][4] = {};  // [subset][end][channel], as stored, without p-bits
  uint8_t p[2][2] = {};
  uint64_t indices = 0, alphaIndices = 0;  // of all pixels; the latter in modes 4 and 5
};

// Blocks that wait until there are as many as lanes.
struct Queue {
  alignas(F) int32_t pixels[16][kLanes] = {};
  Candidate best[kLanes];
  uint8_t* dst[kLanes];
  int count = 0;

  bool isFull() const { return count == kLanes; }
  // Pixels that are `step` apart.
  void add(const int32_t* from, int step, const Candidate& candidate, uint8_t* to) {
    for (int i = 0; i < 16; ++i) pixels[i][count] = from[step * i];
    best[count] = candidate;
    dst[count++] = to;
  }
};

// A pair has what belongs to pixels i and i + 8 in the halves of a lane. This one has the lower halves of a and b.
QELJ_INLINE I pairOf(I a, I b) { return as<I>(simd::evenAndOdd(as<int16_t>(a), as<int16_t>(b << 16))); }

// The pixels of a queue in the forms that fits take.
struct Pixels {
  F value[4][16];
  I pairs[4][8];
  I sum[4];

  template <int kChannels>
  void take(const Queue& from) {
    for (int c = 0; c < kChannels; ++c) {
      const auto channel = [&](int i) QELJ_INLINE_LAMBDA { return load<I>(from.pixels[i]) >> 8 * c & 0xFF; };
      I both{};
      for (int i = 0; i < 8; ++i) {
        const I low = channel(i), high = channel(i + 8);
        value[c][i] = convert<float>(low), value[c][i + 8] = convert<float>(high);
        pairs[c][i] = low | high << 16;
        both += pairs[c][i];
      }
      sum[c] = bothHalves(both);
    }
  }
};

// --- lines -------------------------------------------------------------------------------------------------

// The number of pixels of a set, their sums and their second moments about the mean (covariance times number).
template <int kChannels>
struct Moments {
  F count, sum[kChannels];
  F column[kChannels][kChannels];  // the symmetric matrix
};

// The sum of a value a channel, in pairs.
template <int kChannels, class Value>
QELJ_INLINE F channelSum(Value value) {
  static_assert(kChannels >= 3);
  if constexpr (kChannels == 3) return (value(0) + value(1)) + value(2);
  else return (value(0) + value(1)) + (value(2) + value(3));
}

// The main axis of a covariance matrix by power iteration; zero for pixels that are all the same.
template <int kChannels>
QELJ_INLINE void mainAxis(const Moments<kChannels>& m, F (&axis)[kChannels]) {
  F widest = m.column[0][0];
  for (int c = 0; c < kChannels; ++c) axis[c] = m.column[0][c];
  for (int k = 1; k < kChannels; ++k) {
    const I wider = as<int32_t>(m.column[k][k] > widest);
    widest = select(wider, m.column[k][k], widest);
    for (int c = 0; c < kChannels; ++c) axis[c] = select(wider, m.column[k][c], axis[c]);
  }
  // Moments of shapes may be a little below 0. Opaque alpha, whose moments are 0, is the widest channel then.
  if constexpr (kChannels == 3)
    for (F& of : axis) of = select(as<int32_t>(widest < F{}), F{}, of);
  for (int i = 0; i < 4; ++i) {
    F largest{};
    for (const F& of : axis) largest = greaterUnsigned(as<F>(as<I>(of) & 0x7FFFFFFF), largest);
    const F scale = ratio(all<F>(1), largest);
    F scaled[kChannels];
    for (int c = 0; c < kChannels; ++c) axis[c] = scaled[c] = axis[c] * scale;
    if (i == 3) break;
    for (int c = 0; c < kChannels; ++c)
      axis[c] = channelSum<kChannels>([&](int k) QELJ_INLINE_LAMBDA { return m.column[k][c] * scaled[k]; });
  }
}

// Of each of two subsets, or of all pixels, the one that a mask of subset 1 tells.
template <int kSubsets, class V>
struct BySubset {
  V first;
  I change;

  QELJ_INLINE BySubset() = default;
  template <class Of>
  QELJ_INLINE explicit BySubset(Of of) : first(of(0)) {
    if constexpr (kSubsets == 2) change = as<I>(first) ^ as<I>(of(1));
  }
  QELJ_INLINE V at(I second) const {
    if constexpr (kSubsets == 1) return first;
    else return as<V>(as<I>(first) ^ (change & second));
  }
};

// What a fit starts from: of each subset the number of pixels, the sums of their channels, and the ends of the line
// along their main axis that holds them all; and masks of the pixels of subset 1.
template <int kSubsets>
struct Start {
  I count[kSubsets], sum[kSubsets][4];
  F line[kSubsets][2][4];
  I second[16], secondPairs[8];
};

template <int kSubsets, int kChannels>
[[gnu::noinline]] void startFrom(const Pixels& pixels, const Moments<kChannels> (&moments)[kSubsets],
                                 Start<kSubsets>& start) {
  F axis[kSubsets][kChannels], mean[kSubsets][kChannels];
  I lowest[kSubsets], highest[kSubsets];
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  for (int s = 0; s < kSubsets; ++s) {
    const Moments<kChannels>& m = moments[s];
    mainAxis(m, axis[s]);
    const F per = all<F>(1) / m.count;
    for (int c = 0; c < kChannels; ++c) mean[s][c] = m.sum[c] * per;
    lowest[s] = all<I>(kMost), highest[s] = all<I>(~kMost);
    start.count[s] = convert<int32_t>(m.count);
    for (int c = 0; c < kChannels; ++c) start.sum[s][c] = convert<int32_t>(m.sum[c]);
  }
  BySubset<kSubsets, F> centre[kChannels], along[kChannels];
  for (int c = 0; c < kChannels; ++c) {
    centre[c] = BySubset<kSubsets, F>([&](int s) { return mean[s][c]; });
    along[c] = BySubset<kSubsets, F>([&](int s) { return axis[s][c]; });
  }
  for (int i = 0; i < 16; ++i) {
    const I second = kSubsets == 2 ? start.second[i] : I{};
    F place{};
    for (int c = 0; c < kChannels; ++c) place += (pixels.value[c][i] - centre[c].at(second)) * along[c].at(second);
    // What is most, or least, of the other subset leaves its own as they are.
    const I order = inOrder(as<I>(place)), least = second ^ kMost, most = ~least;
    if constexpr (kSubsets == 1) {
      lowest[0] = min(lowest[0], order), highest[0] = max(highest[0], order);
    } else {
      lowest[0] = min(lowest[0], max(order, most)), highest[0] = max(highest[0], min(order, least));
      lowest[1] = min(lowest[1], max(order, least)), highest[1] = max(highest[1], min(order, most));
    }
  }
  for (int s = 0; s < kSubsets; ++s) {
    const F length = channelSum<kChannels>([&](int c) QELJ_INLINE_LAMBDA { return axis[s][c] * axis[s][c]; });
    const F scale = ratio(all<F>(1), length);
    for (int c = 0; c < kChannels; ++c) {
      start.line[s][0][c] = mean[s][c] + axis[s][c] * (as<F>(inOrder(lowest[s])) * scale);
      start.line[s][1][c] = mean[s][c] + axis[s][c] * (as<F>(inOrder(highest[s])) * scale);
    }
  }
}

// --- end-points --------------------------------------------------------------------------------------------

// How a mode spends its p-bits: none, one a subset, one an end-point, or one an end-point fixed at 1 (so that
// an opaque block's alpha stays 255).
enum class PBits { none, shared, each, ones };

// Of one end-point.
template <int kChannels>
struct EndPoint {
  I fields[kChannels];    // as stored, without p-bits
  I expanded[kChannels];  // the 8-bit values that they stand for
  I p;                    // a mask
};

// Rounds both ends of a line to `bits` bits and the best p-bits.
template <int kBits, PBits kPBits, int kChannels>
QELJ_INLINE void quantise(const F (&line)[2][kChannels], EndPoint<kChannels> (&ends)[2]) {
  constexpr int kAll = kBits + (kPBits == PBits::none ? 0 : 1);
  constexpr bool kChoice = kPBits == PBits::shared || kPBits == PBits::each;
  constexpr auto expand = [](auto v) {
    if constexpr (kAll == 8) return v;
    else return v << (8 - kAll) | v >> (2 * kAll - 8);
  };
  I with[2][2][kChannels];  // [end][p]
  F gain[2];                // of p = 1
  for (int e = 0; e < 2; ++e) {
    F gains[4];
    for (int c = 0; c < kChannels; ++c) {
      const F value = lesserUnsigned(atLeastZero(line[e][c]), all<F>(255));
      const F scaled = value * all<F>(float((1 << kAll) - 1) / 255.0f);
      if constexpr (kPBits == PBits::none) {
        ends[e].fields[c] = roundToInt(scaled);
        ends[e].expanded[c] = expand(ends[e].fields[c]);
        continue;
      }
      F error[2]{};
      for (int p = kPBits == PBits::ones ? 1 : 0; p < 2; ++p) {
        // (With p = 1, half below the lowest rounds to even, 0, and nothing is above the largest.)
        with[e][p][c] = roundToInt((scaled - all<F>(float(p))) * all<F>(0.5f));
        if (p == 0) with[e][p][c] = min(with[e][p][c], all<I>((1 << kBits) - 1));
        error[p] = convert<float>(expand(with[e][p][c] * 2 + p)) - value;
        error[p] *= error[p];
      }
      gains[c] = error[0] - error[1];
    }
    // Colours alone count with an alpha of 0, which p = 1 would not keep.
    if constexpr (kChoice && kChannels == 3) gains[3] = all<F>(-float(expand(1) * expand(1)));
    if constexpr (kChoice) gain[e] = channelSum<4>([&](int c) QELJ_INLINE_LAMBDA { return gains[c]; });
  }
  if constexpr (kPBits == PBits::shared) gain[0] = gain[1] = gain[0] + gain[1];
  if constexpr (kPBits != PBits::none)
    for (int e = 0; e < 2; ++e) {
      ends[e].p = kPBits == PBits::ones ? ~I{} : isAboveZero(gain[e]);
      for (int c = 0; c < kChannels; ++c) {
        ends[e].fields[c] = kPBits == PBits::ones ? with[e][1][c] : select(ends[e].p, with[e][1][c], with[e][0][c]);
        ends[e].expanded[c] = expand(ends[e].fields[c] * 2 - ends[e].p);
      }
    }
}

// --- fits --------------------------------------------------------------------------------------------------

// The weights of pairs of indices.
template <int kBits>
QELJ_INLINE I weightsOf(I indices) {
  if constexpr (simd::kShuffles) {  // 0, which the other bytes are, has a weight of 0
    uint8_t table[16];
    for (int i = 0; i < 16; ++i) table[i] = bc7::weights<kBits>()[i % (1 << kBits)];
    return as<I>(simd::shuffleBytes(simd::blockPattern<With<uint8_t, I>>(table), as<uint8_t>(indices)));
  } else {
    constexpr int kShift = kBits == 2 ? 1 : kBits == 3 ? 3 : 4, kFactor = kBits == 2 ? 43 : kBits == 3 ? 73 : 68;
    constexpr int kHalf = kBits == 2 ? 0 : 1 << (kShift - 1);
    static_assert([] {
      for (int i = 0; i < 1 << kBits; ++i)
        if ((i * kFactor + kHalf) >> kShift != bc7::weights<kBits>()[i]) return false;
      return true;
    }());
    return as<I>((as<int16_t>(indices) * int16_t(kFactor) + int16_t(kHalf)) >> kShift);
  }
}

// Fits one part of blocks (some channels, all pixels or two subsets) in a few rounds; the best round is kept.
template <int kBits, PBits kPBits, int kFirst, int kChannels, int kIndexBits, int kSubsets, int kRounds = 3>
struct Fit {
  // The best round.
  I lowest = all<I>(std::numeric_limits<int32_t>::max());
  EndPoint<kChannels> ends[kSubsets][2];
  I indices[2];  // of pixels 0 to 3 and 4 to 7, and in the upper halves 8 to 11 and 12 to 15

  [[gnu::noinline]] Fit(const Pixels& pixels, const Start<kSubsets>& start) {
    F line[kSubsets][2][kChannels];
    for (int s = 0; s < kSubsets; ++s)
      for (int e = 0; e < 2; ++e)
        for (int c = 0; c < kChannels; ++c) line[s][e][c] = start.line[s][e][kFirst + c];
    for (int round = 0; round < kRounds; ++round) {
      EndPoint<kChannels> tried[kSubsets][2];
      for (int s = 0; s < kSubsets; ++s) quantise<kBits, kPBits>(line[s], tried[s]);
      I found[2], weights[8];
      const I error = place(pixels, start, tried, found, weights), better = as<int32_t>(error < lowest);
      lowest = min(error, lowest);
      for (int half = 0; half < 2; ++half) indices[half] = select(better, found[half], indices[half]);
      for (int s = 0; s < kSubsets; ++s)
        for (int e = 0; e < 2; ++e) {
          EndPoint<kChannels>&best = ends[s][e], &now = tried[s][e];
          if constexpr (kPBits == PBits::shared || kPBits == PBits::each) best.p = select(better, now.p, best.p);
          for (int c = 0; c < kChannels; ++c) best.fields[c] = select(better, now.fields[c], best.fields[c]);
        }
      if (round < kRounds - 1) solve(pixels, start, weights, line);
    }
  }

 private:
  // Finds the indices of the points nearest to the pixels, and their weights by pairs of pixels; returns the squared
  // differences from what they give.
  static QELJ_INLINE I place(const Pixels& pixels, const Start<kSubsets>& start,
                             const EndPoint<kChannels> (&ends)[kSubsets][2], I (&indices)[2], I (&weights)[8]) {
    constexpr int kTop = (1 << kIndexBits) - 1;
    // A pixel's place is p . factor - offset. The sums are whole numbers, and exact.
    F factors[kSubsets][kChannels], offsets[kSubsets];
    I bases[kSubsets][kChannels], slopes[kSubsets][kChannels];  // pairs
    for (int s = 0; s < kSubsets; ++s) {
      F squares{}, products{};
      for (int c = 0; c < kChannels; ++c) {
        const I end0 = ends[s][0].expanded[c], slope = ends[s][1].expanded[c] - end0, base = end0 * 64 + 32;
        const F d = factors[s][c] = convert<float>(slope);
        squares += d * d, products += d * convert<float>(end0);
        bases[s][c] = base | base << 16, slopes[s][c] = pairOf(slope, slope);
      }
      const F scale = ratio(all<F>(kTop), squares);
      for (F& factor : factors[s]) factor *= scale;
      offsets[s] = -(products * scale);
    }
    const BySubset<kSubsets, F> offset([&](int s) { return offsets[s]; });
    BySubset<kSubsets, F> factor[kChannels];
    BySubset<kSubsets, I> base[kChannels], slope[kChannels];
    for (int c = 0; c < kChannels; ++c) {
      factor[c] = BySubset<kSubsets, F>([&](int s) { return factors[s][c]; });
      base[c] = BySubset<kSubsets, I>([&](int s) { return bases[s][c]; });
      slope[c] = BySubset<kSubsets, I>([&](int s) { return slopes[s][c]; });
    }
    const auto placeOf = [&](int i) QELJ_INLINE_LAMBDA {
      const I second = kSubsets == 2 ? start.second[i] : I{};
      F at = offset.at(second);
      for (int c = 0; c < kChannels; ++c) at += pixels.value[kFirst + c][i] * factor[c].at(second);
      return roundToInt(at);
    };
    I error{};
    for (int part = 0; part < 2; ++part) {
      I16 four{};
      for (int i = 4 * part + 3; i >= 4 * part; --i) {
        // Places fit 16 bits: differences of pixels are below 512 long, and lines 1 or more, or 0 with no factor.
        const auto places = as<int16_t>(pairOf(placeOf(i), placeOf(i + 8)));
        const auto index = min(max(places, I16{}), all<I16>(kTop));
        four = four << kIndexBits | index;
        const I weight = weights[i] = weightsOf<kIndexBits>(as<I>(index));
        const I second = kSubsets == 2 ? start.secondPairs[i] : I{};
        for (int c = 0; c < kChannels; ++c) {
          const auto sum = as<int16_t>(slope[c].at(second)) * as<int16_t>(weight) + as<int16_t>(base[c].at(second));
          const auto d = (sum >> 6) - as<int16_t>(pixels.pairs[kFirst + c][i]);
          error += simd::mulAddPairs(d, d);
        }
      }
      indices[part] = as<I>(four);
    }
    return error;
  }

  // The least-squares ends for these weights; the given ends where the weights don't tell. All numbers before the
  // division are whole and below 2^53.
  static QELJ_INLINE void solve(const Pixels& pixels, const Start<kSubsets>& start, const I (&weights)[8],
                                F (&line)[kSubsets][2][kChannels]) {
    // Of all pixels, and of subset 1.
    I halves[kSubsets]{}, squares[kSubsets]{}, products[kSubsets][kChannels]{};
    for (int i = 0; i < 8; ++i)
      for (int s = 0; s < kSubsets; ++s) {
        const auto pair = as<int16_t>(s ? weights[i] & start.secondPairs[i] : weights[i]);
        halves[s] += as<I>(pair);
        squares[s] += simd::mulAddPairs(pair, pair);
        for (int c = 0; c < kChannels; ++c)
          products[s][c] += simd::mulAddPairs(pair, as<int16_t>(pixels.pairs[kFirst + c][i]));
      }
    I sums[kSubsets];
    for (int s = 0; s < kSubsets; ++s) sums[s] = bothHalves(halves[s]);
    if constexpr (kSubsets == 2) {
      sums[0] -= sums[1], squares[0] -= squares[1];
      for (int c = 0; c < kChannels; ++c) products[0][c] -= products[1][c];
    }
    for (int s = 0; s < kSubsets; ++s) {
      const I far = squares[s], mixed = sums[s] * 64 - far, near = start.count[s] * 4096 - sums[s] * 128 + far;
      const F determinant = differenceOfProducts(near, far, mixed, mixed), scale = ratio(all<F>(64), determinant);
      const I told = isAboveZero(determinant);
      for (int c = 0; c < kChannels; ++c) {
        const I atFar = products[s][c], atNear = start.sum[s][kFirst + c] * 64 - atFar;
        F &end0 = line[s][0][c], &end1 = line[s][1][c];
        end0 = select(told, differenceOfProducts(far, atNear, mixed, atFar) * scale, end0);
        end1 = select(told, differenceOfProducts(near, atFar, mixed, atNear) * scale, end1);
      }
    }
  }
};

// A mode that has one set of indices for all of its channels.
template <int kMode, PBits kPBits, int kChannels, int kRounds = 3>
using FitOf = Fit<bc7::kModes[kMode].colourBits, kPBits, 0, kChannels, bc7::kModes[kMode].indexBits,
                  bc7::kModes[kMode].subsets, kRounds>;
// Modes 4 and 5 have colour and alpha with indices of their own. kColourIndexBits tells which of mode 4's sets is whose.
template <int kMode, int kColourIndexBits>
using ColourFit = Fit<bc7::kModes[kMode].colourBits, PBits::none, 0, 3, kColourIndexBits, 1>;
template <int kMode, int kColourIndexBits>
using AlphaFit = Fit<bc7::kModes[kMode].alphaBits, PBits::none, 3, 1,
                     bc7::kModes[kMode].indexBits + bc7::kModes[kMode].secondIndexBits - kColourIndexBits, 1, 2>;

// --- candidates --------------------------------------------------------------------------------------------

template <int kBits, PBits kPBits, int kFirst, int kChannels, int kIndexBits, int kSubsets, int kRounds>
inline uint64_t readFit(const Fit<kBits, kPBits, kFirst, kChannels, kIndexBits, kSubsets, kRounds>& fit, int block,
                        Candidate& to) {
  for (int s = 0; s < kSubsets; ++s)
    for (int e = 0; e < 2; ++e) {
      const EndPoint<kChannels>& end = fit.ends[s][e];
      for (int c = 0; c < kChannels; ++c) to.fields[s][e][kFirst + c] = uint8_t(lane(end.fields[c], block));
      if constexpr (kPBits == PBits::ones) to.p[s][e] = 1;
      else if constexpr (kPBits != PBits::none) to.p[s][e] = uint8_t(lane(end.p, block) & 1);
    }
  const auto first = uint32_t(lane(fit.indices[0], block)), second = uint32_t(lane(fit.indices[1], block));
  return (first & 0xFFFF) | uint64_t(second & 0xFFFF) << 4 * kIndexBits | uint64_t(first >> 16) << 8 * kIndexBits |
         uint64_t(second >> 16) << 12 * kIndexBits;
}

template <int kMode, class Fit>
inline void keepBetter(const Fit& fit, int block, int shape, Candidate& best) {
  const int32_t error = lane(fit.lowest, block);
  if (error >= best.error) return;
  best.error = error, best.mode = kMode, best.shape = uint8_t(shape), best.selection = false;
  best.indices = readFit(fit, block, best);
}
template <int kMode, int kColourIndexBits>
inline void keepBetter(const ColourFit<kMode, kColourIndexBits>& colour, const AlphaFit<kMode, kColourIndexBits>& alpha,
                       int block, Candidate& best) {
  const int32_t error = lane(colour.lowest, block) + lane(alpha.lowest, block);
  if (error >= best.error) return;
  best.error = error, best.mode = kMode, best.shape = 0;
  best.selection = kColourIndexBits != bc7::kModes[kMode].indexBits;
  best.indices = readFit(colour, block, best), best.alphaIndices = readFit(alpha, block, best);
}

// --- ranking shapes ----------------------------------------------------------------------------------------

constexpr int kShapeCount = 64;

struct Shape {
  uint8_t rows[4] = {};     // of each row the pixels in subset 1, the leftmost one in bit 0
  int32_t second = 0;       // of all pixels
  float perPixel[2] = {};   // 1 / the number of pixels [subset]
  uint64_t places[2] = {};  // ones for the indices of subset 1, of 2 and of 3 bits
};
struct Shapes {
  Shape of[kShapeCount];
  constexpr Shapes() {
    for (int number = 0; number < kShapeCount; ++number) {
      Shape& shape = of[number];
      int count = 0;
      for (int i = 0; i < 16; ++i) {
        const int in = bc7::kTwoSubsets[number].subset(i);
        shape.rows[i / 4] = uint8_t(shape.rows[i / 4] | in << i % 4);
        shape.second |= in << i;
        shape.places[0] |= uint64_t(3 * in) << 2 * i, shape.places[1] |= uint64_t(7 * in) << 3 * i;
        count += in;
      }
      shape.perPixel[0] = 1 / float(16 - count), shape.perPixel[1] = 1 / float(count);
    }
  }
};
constexpr Shapes kShapes;

// Sums and second moments of pixels centred on their mean. Products lose their lowest bit. All are whole numbers,
// and exact.
template <int kChannels>
struct ShapeMoments {
  static constexpr int kProducts = kChannels * (kChannels + 1) / 2, kValues = kChannels + kProducts;
  static constexpr int product(int a, int b) { return kChannels + b * (b + 1) / 2 + a; }  // a <= b
  F centre[kChannels];
  F rows[4][16][kValues];  // of the pixels of a row that are chosen by the bits of a number
  F total[kValues];

  [[gnu::noinline]] explicit ShapeMoments(const Pixels& pixels) {
    I middle[kChannels];
    for (int c = 0; c < kChannels; ++c) middle[c] = (pixels.sum[c] + 8) >> 4, centre[c] = convert<float>(middle[c]);
    for (int i = 0; i < 16; ++i) {
      F(&of)[kValues] = rows[i / 4][1 << i % 4];
      I centred[kChannels];
      for (int c = 0; c < kChannels; ++c) {
        const I from = convert<int32_t>(pixels.value[c][i]) - middle[c];
        of[c] = convert<float>(from);
        centred[c] = from & 0xFFFF;
      }
      for (int b = 0; b < kChannels; ++b)
        for (int a = 0; a <= b; ++a) of[product(a, b)] = convert<float>(mulAdd(centred[a], centred[b]) & ~1);
    }
    for (auto& row : rows)
      for (int bits = 0; bits < 16; ++bits) {
        const int rest = bits & (bits - 1);
        for (int v = 0; v < kValues; ++v)
          if (bits == 0) row[bits][v] = F{};
          else if (rest != 0) row[bits][v] = row[rest][v] + row[bits - rest][v];
      }
    for (int v = 0; v < kValues; ++v) total[v] = (rows[0][15][v] + rows[1][15][v]) + (rows[2][15][v] + rows[3][15][v]);
  }
};

// What the best line through a subset leaves: the trace of the moments less their largest eigenvalue, which is near
// tr(M^4) / tr(M^3). Of the spread along the line the indices' steps leave about a hundredth: steps of a seventh of its
// length l leave l^2 / (12 * 49) a pixel, and pixels on it spread by l^2 / 12 (evenly) to l^2 / 4 (at both ends), of
// which that is a 49th to a 147th.
constexpr float kOnLine = 0.99f;
// Keeps the division from 0 / 0 where all pixels are the same. (One channel's moment of n pixels is a multiple of
// 1 / n, and the cube of that above 2^-12.)
constexpr float kNextToNothing = 1e-6f;
struct Spectrum {
  F trace, cubes, fourths;  // of the moments, and of their powers
};
QELJ_INLINE F lineResidual(const Spectrum& of) {
  return of.trace - all<F>(kOnLine) * of.fourths / (of.cubes + all<F>(kNextToNothing));
}
template <int kChannels>
QELJ_INLINE Spectrum spectrum(const F (&m)[kChannels][kChannels]) {
  F trace = m[0][0], cubes{}, fourths{};
  for (int a = 0; a < kChannels; ++a) {
    if (a > 0) trace += m[a][a];
    for (int b = 0; b <= a; ++b) {
      F square = m[a][0] * m[0][b];
      for (int k = 1; k < kChannels; ++k) square += m[a][k] * m[k][b];
      const F weighed = a == b ? square : square + square;  // (of both places in the matrix)
      const F cube = weighed * m[a][b], fourth = weighed * square;
      cubes = a == 0 ? cube : cubes + cube;
      fourths = a == 0 ? fourth : fourths + fourth;
    }
  }
  return {trace, cubes, fourths};
}

// What a sort key has room for: 31 bits less the six of a shape's number. Residuals end below 16 * 4 * 128^2 (a quarter
// of this is 7 times that), but for those of a division by next to nothing.
constexpr float kMostQuarters = 3e7f;
static_assert(kMostQuarters < 1 << (31 - 6));

// The two shapes that promise the least error, the better one first.
template <int kChannels>
[[gnu::noinline]] void rankShapes(const ShapeMoments<kChannels>& m, I (&shapes)[2]) {
  using Of = ShapeMoments<kChannels>;
  I first = all<I>(std::numeric_limits<int32_t>::max()), second = first;
  constexpr int kGroup = 8;  // the divisions of some shapes together, which don't wait for one another
  for (int group = 0; group < kShapeCount; group += kGroup) {
    Spectrum spectra[kGroup][2];
    for (int i = 0; i < kGroup; ++i) {
      const Shape& shape = kShapes.of[group + i];
      const auto &row0 = m.rows[0][shape.rows[0]], &row1 = m.rows[1][shape.rows[1]];
      const auto &row2 = m.rows[2][shape.rows[2]], &row3 = m.rows[3][shape.rows[3]];
      F values[Of::kValues];
      for (int v = 0; v < Of::kValues; ++v) values[v] = row0[v] + row1[v] + row2[v] + row3[v];
      const auto spectrumOf = [&](int subset) QELJ_INLINE_LAMBDA {
        const F per = all<F>(shape.perPixel[subset]);
        F moments[kChannels][kChannels];
        for (int b = 0; b < kChannels; ++b)
          for (int a = 0; a <= b; ++a)
            moments[a][b] = moments[b][a] = values[Of::product(a, b)] - values[a] * values[b] * per;
        return spectrum<kChannels>(moments);
      };
      spectra[i][1] = spectrumOf(1);
      for (int v = 0; v < Of::kValues; ++v) values[v] = m.total[v] - values[v];
      spectra[i][0] = spectrumOf(0);
    }
    for (int i = 0; i < kGroup; ++i) {
      const F residual = atLeastZero(lineResidual(spectra[i][1]) + lineResidual(spectra[i][0]));
      // In quarters, above the six bits of the shape's number.
      const F quarters = lesserUnsigned(residual * all<F>(4), all<F>(kMostQuarters));
      const I key = roundToInt(quarters) << 6 | (group + i);
      second = min(second, max(first, key));
      first = min(first, key);
    }
  }
  shapes[0] = first & 63, shapes[1] = second & 63;
}

// Where the fits of a shape start, each block's own one.
template <int kChannels>
[[gnu::noinline]] void startShape(const Pixels& pixels, const ShapeMoments<kChannels>& of, I shapes, Start<2>& start) {
  using Of = ShapeMoments<kChannels>;
  int32_t bits[kLanes];
  for (int i = 0; i < kLanes; ++i) bits[i] = kShapes.of[lane(shapes, i)].second;
  F values[2][Of::kValues]{};
  I number{};
  for (int i = 0; i < 16; ++i) {
    const I second = start.second[i] = load<I>(bits) << (31 - i) >> 31;
    if (i >= 8) start.secondPairs[i - 8] = pairOf(start.second[i - 8], second);
    number -= second;
    for (int v = 0; v < Of::kValues; ++v) values[1][v] += as<F>(as<I>(of.rows[i / 4][1 << i % 4][v]) & second);
  }
  for (int v = 0; v < Of::kValues; ++v) values[0][v] = of.total[v] - values[1][v];
  Moments<kChannels> moments[2];
  for (int s = 0; s < 2; ++s) {
    Moments<kChannels>& m = moments[s];
    m.count = convert<float>(s ? number : 16 - number);
    const F per = all<F>(1) / m.count;
    for (int c = 0; c < kChannels; ++c) m.sum[c] = values[s][c] + m.count * of.centre[c];
    for (int b = 0; b < kChannels; ++b)
      for (int a = 0; a <= b; ++a)
        m.column[a][b] = m.column[b][a] = values[s][Of::product(a, b)] - values[s][a] * values[s][b] * per;
  }
  startFrom(pixels, moments, start);
}

// Where those of all pixels start.
template <int kChannels>
[[gnu::noinline]] void startAll(const Pixels& pixels, Start<1>& start) {
  Moments<kChannels> moments[1];
  Moments<kChannels>& m = moments[0];
  m.count = all<F>(16);
  I centre[kChannels], products[kChannels][kChannels]{};
  for (int c = 0; c < kChannels; ++c) {
    m.sum[c] = convert<float>(pixels.sum[c]);
    const I middle = (pixels.sum[c] + 8) >> 4;
    centre[c] = middle | middle << 16;
  }
  for (int i = 0; i < 8; ++i) {
    I16 centred[kChannels];
    for (int c = 0; c < kChannels; ++c) centred[c] = as<int16_t>(pixels.pairs[c][i]) - as<int16_t>(centre[c]);
    for (int a = 0; a < kChannels; ++a)
      for (int b = 0; b <= a; ++b) products[a][b] += simd::mulAddPairs(centred[a], centred[b]);
  }
  for (int a = 0; a < kChannels; ++a)
    for (int b = 0; b <= a; ++b) m.column[a][b] = m.column[b][a] = convert<float>(products[a][b]);
  startFrom(pixels, moments, start);
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
inline uint64_t packAnchored(uint64_t indices, int shapeNumber, bool (&turned)[2]) {
  constexpr uint64_t kAll = ~uint64_t(0) >> (64 - 16 * kBits);
  const int anchor = bc7::shape<kSubsets>(shapeNumber).anchors[1];
  const auto turn = [&](int subset, int at, uint64_t places) {
    turned[subset] = indexAt<kBits>(indices, at) >> (kBits - 1);
    return places & -uint64_t(turned[subset]);
  };
  uint64_t second = 0, turns = 0;
  if constexpr (kSubsets == 2) {
    second = kShapes.of[shapeNumber].places[kBits - 2];
    turns = turn(1, anchor, second);
  }
  indices ^= turn(0, 0, kAll & ~second) | turns;
  if constexpr (kSubsets == 2) indices = removeAnchorBit<kBits>(indices, anchor);
  return removeAnchorBit<kBits>(indices, 0);
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
    const uint64_t first = best.selection ? best.alphaIndices : best.indices;
    const uint64_t other = best.selection ? best.indices : best.alphaIndices;
    bits.put(kLayout.indices, packAnchored<kOf.indexBits, 1>(first, 0, best.selection ? alphaTurned : turned));
    bits.put(kLayout.secondIndices,
             packAnchored<kOf.secondIndexBits, 1>(other, 0, best.selection ? turned : alphaTurned));
  }
  for (int s = 0; s < kOf.subsets; ++s)
    for (int e = 0; e < 2; ++e) {
      const int from = e ^ int(turned[s]), alphaFrom = kOf.secondIndexBits ? e ^ int(alphaTurned[s]) : from;
      for (int c = 0; c < 3; ++c) bits.put(kLayout.position(c, 2 * s + e), uint64_t(best.fields[s][from][c]));
      if constexpr (kOf.alphaBits != 0)
        bits.put(kLayout.position(3, 2 * s + e), uint64_t(best.fields[s][alphaFrom][3]));
      if constexpr (kOf.endPointPBits != 0) bits.put(kLayout.pBitPosition(2 * s + e), uint64_t(best.p[s][from]));
      else if constexpr (kOf.subsetPBits != 0)
        if (e == 0) bits.put(kLayout.pBitPosition(2 * s), uint64_t(best.p[s][0]));
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
inline Candidate flatCandidate(uint32_t pixel) {
  Candidate flat;
  flat.indices = 0x7777777777777777;  // a weight of 30 in 64
  const bool opaque = pixel >> 24 == 255;
  flat.p[0][0] = opaque, flat.p[0][1] = 1;
  for (int c = 0; c < 4; ++c) {
    const int v = pixel >> 8 * c & 255;
    // Opaque: two odd values around v. Else: an even one and the odd one above it. The upper one is v | 1 in both.
    const int first = opaque ? (v & 1 || v == 0 ? v | 1 : v - 1) : v & ~1;
    flat.fields[0][0][c] = uint8_t(first >> 1), flat.fields[0][1][c] = uint8_t(v >> 1);
  }
  return flat;
}

// An error of a block up to which no other mode is tried: one and a half a pixel, over its four channels 52 dB.
constexpr int32_t kGoodEnough = 16 * 3 / 2;

// Mode 6; `rest` takes the blocks that want others.
template <bool kOpaque, class Rest>
[[gnu::noinline]] void trySix(Queue& queue, Rest rest) {
  constexpr int kChannels = kOpaque ? 3 : 4;
  Pixels pixels;
  pixels.take<kChannels>(queue);
  Start<1> start;
  startAll<kChannels>(pixels, start);
  const FitOf<6, kOpaque ? PBits::ones : PBits::each, kChannels> six(pixels, start);
  for (int i = 0; i < queue.count; ++i) {
    Candidate& best = queue.best[i];
    keepBetter<6>(six, i, 0, best);
    // The largest value, whose p-bits are 1.
    if constexpr (kOpaque) best.fields[0][0][3] = best.fields[0][1][3] = 127;
    if (best.error > kGoodEnough) rest(i);
    else ownStoreBest(best, queue.dst[i]);
  }
}

template <int kChannels>
struct TwoShapes {
  I shapes[2];
  Start<2> starts[2];
  explicit TwoShapes(const Pixels& pixels) {
    const ShapeMoments<kChannels> moments(pixels);
    rankShapes(moments, shapes);
    for (int rank = 0; rank < 2; ++rank) startShape(pixels, moments, shapes[rank], starts[rank]);
  }
};

[[gnu::noinline]] void tryOthersOpaque(Queue& queue) {
  Pixels pixels;
  pixels.take<3>(queue);
  const TwoShapes<3> two(pixels);
  const FitOf<1, PBits::shared, 3> first(pixels, two.starts[0]), second(pixels, two.starts[1]);
  const FitOf<3, PBits::each, 3, 2> third(pixels, two.starts[0]);
  for (int i = 0; i < queue.count; ++i) {
    Candidate& best = queue.best[i];
    keepBetter<1>(first, i, lane(two.shapes[0], i), best);
    keepBetter<3>(third, i, lane(two.shapes[0], i), best);
    keepBetter<1>(second, i, lane(two.shapes[1], i), best);
    ownStoreBest(best, queue.dst[i]);
  }
}

[[gnu::noinline]] void tryOthersAlpha(Queue& queue) {
  Pixels pixels;
  pixels.take<4>(queue);
  Start<1> start;
  startAll<3>(pixels, start);
  F lowest = pixels.value[3][0], highest = lowest;
  for (const F& alpha : pixels.value[3])
    lowest = lesserUnsigned(alpha, lowest), highest = greaterUnsigned(alpha, highest);
  start.line[0][0][3] = lowest, start.line[0][1][3] = highest;
  start.sum[0][3] = pixels.sum[3];
  const ColourFit<5, 2> five(pixels, start);
  const ColourFit<4, 3> four3(pixels, start);
  const ColourFit<4, 2> four2(pixels, start);
  const AlphaFit<5, 2> fiveAlpha(pixels, start);
  const AlphaFit<4, 3> four3Alpha(pixels, start);
  const AlphaFit<4, 2> four2Alpha(pixels, start);
  const TwoShapes<4> two(pixels);
  const FitOf<7, PBits::each, 4> first(pixels, two.starts[0]), second(pixels, two.starts[1]);
  for (int i = 0; i < queue.count; ++i) {
    Candidate& best = queue.best[i];
    keepBetter<5, 2>(five, fiveAlpha, i, best);
    keepBetter<4, 3>(four3, four3Alpha, i, best);
    keepBetter<4, 2>(four2, four2Alpha, i, best);
    keepBetter<7>(first, i, lane(two.shapes[0], i), best);
    keepBetter<7>(second, i, lane(two.shapes[1], i), best);
    ownStoreBest(best, queue.dst[i]);
  }
}

class Bc7Encoder {
 public:
  static constexpr int kBlockBytes = 16, kPixelBytes = 4;

  void block(const uint8_t* src, ptrdiff_t srcStep, uint8_t* dst) {
    int32_t pixels[16];
    int32_t differs = 0, opaque = -1;
    for (int y = 0; y < 4; ++y) std::memcpy(pixels + 4 * y, row(src, srcStep, y), 16);
    for (const int32_t pixel : pixels) differs |= pixel ^ pixels[0], opaque &= pixel;
    if (differs == 0) return ownStoreBest(flatCandidate(uint32_t(pixels[0])), dst);
    const int kind = uint32_t(opaque) >> 24 == 255;
    waiting_[kind].add(pixels, 1, {}, dst);
    if (waiting_[kind].isFull()) kind ? trySix<true>() : trySix<false>();
  }
  // What waits still.
  void finish() {
    if (waiting_[0].count > 0) trySix<false>();
    if (waiting_[1].count > 0) trySix<true>();
    if (wanting_[0].count > 0) tryOthersAlpha(wanting_[0]);
    if (wanting_[1].count > 0) tryOthersOpaque(wanting_[1]);
  }

 private:
  template <bool kOpaque>
  void trySix() {
    Queue &from = waiting_[kOpaque], &to = wanting_[kOpaque];
    texture::trySix<kOpaque>(from, [&](int i) {
      to.add(&from.pixels[0][i], kLanes, from.best[i], from.dst[i]);
      if (!to.isFull()) return;
      kOpaque ? tryOthersOpaque(to) : tryOthersAlpha(to);
      to.count = 0;
    });
    from.count = 0;
  }

  Queue waiting_[2], wanting_[2];  // for mode 6, for others; [opaque]
};

}  // namespace
}  // namespace texture

QelStatus qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(const uint8_t* src, int32_t srcStep, QelSize size,
                                                         uint8_t* dst) {
  const RoundToNearest rounding;
  return texture::encodeBlocks<texture::Bc7Encoder>(src, srcStep, size, dst);
}

}  // namespace qelj
