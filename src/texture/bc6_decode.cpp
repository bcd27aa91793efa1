// The decoder of BC6 (BC6H): high dynamic range, three channels of half floats. The scalar form is the definition; the
// vector form reads the fields of any mode by tables, and interpolates a row's values in the order in which they are
// stored, by one multiply-add of an end-point pair and a weight pair a value.
#include <algorithm>
#include <array>
#include <utility>

#include "frame/fronts.h"
#include "texture/bc7_tables.h"
#include "texture/bits.h"
#include "texture/decode_walk.h"
#include "texture/indices.h"

namespace qelj {
namespace texture {
namespace {

// Behind the mode's code (2 bits in modes 0 and 1, 5 in the others) come these fields: g2[3:0] is bits 0 to 3
// of green of end-point 2, lowest first in the stream; with the smaller bit named first, as in r0[10:11], the
// highest comes first. End-points 0 and 1 are region 0's, 2 and 3 region 1's. Where deltaBits are given,
// end-points 1 to 3 are signed differences from end-point 0. The indices follow.
struct Bc6Mode {
  int regions, bits;
  int deltaBits[3];
  const char* fields;

  constexpr bool transformed() const { return deltaBits[0] != 0; }
  constexpr int indexBits() const { return regions == 2 ? 3 : 4; }
};
constexpr int kModeCount = 14;
// clang-format off
constexpr Bc6Mode kModes[kModeCount] = {
    {2, 10, {5, 5, 5},
     "g2[4] b2[4] b3[4] r0[9:0] g0[9:0] b0[9:0] r1[4:0] g3[4] g2[3:0] g1[4:0] b3[0] g3[3:0] b1[4:0] "
     "b3[1] b2[3:0] r2[4:0] b3[2] r3[4:0] b3[3] shape[4:0]"},
    {2, 7, {6, 6, 6},
     "g2[5] g3[4] g3[5] r0[6:0] b3[0] b3[1] b2[4] g0[6:0] b2[5] b3[2] g2[4] b0[6:0] b3[3] b3[5] b3[4] "
     "r1[5:0] g2[3:0] g1[5:0] g3[3:0] b1[5:0] b2[3:0] r2[5:0] r3[5:0] shape[4:0]"},
    {2, 11, {5, 4, 4},
     "r0[9:0] g0[9:0] b0[9:0] r1[4:0] r0[10] g2[3:0] g1[3:0] g0[10] b3[0] g3[3:0] b1[3:0] b0[10] "
     "b3[1] b2[3:0] r2[4:0] b3[2] r3[4:0] b3[3] shape[4:0]"},
    {2, 11, {4, 5, 4},
     "r0[9:0] g0[9:0] b0[9:0] r1[3:0] r0[10] g3[4] g2[3:0] g1[4:0] g0[10] g3[3:0] b1[3:0] b0[10] "
     "b3[1] b2[3:0] r2[3:0] b3[0] b3[2] r3[3:0] g2[4] b3[3] shape[4:0]"},
    {2, 11, {4, 4, 5},
     "r0[9:0] g0[9:0] b0[9:0] r1[3:0] r0[10] b2[4] g2[3:0] g1[3:0] g0[10] b3[0] g3[3:0] b1[4:0] "
     "b0[10] b2[3:0] r2[3:0] b3[1] b3[2] r3[3:0] b3[4] b3[3] shape[4:0]"},
    {2, 9, {5, 5, 5},
     "r0[8:0] b2[4] g0[8:0] g2[4] b0[8:0] b3[4] r1[4:0] g3[4] g2[3:0] g1[4:0] b3[0] g3[3:0] b1[4:0] "
     "b3[1] b2[3:0] r2[4:0] b3[2] r3[4:0] b3[3] shape[4:0]"},
    {2, 8, {6, 5, 5},
     "r0[7:0] g3[4] b2[4] g0[7:0] b3[2] g2[4] b0[7:0] b3[3] b3[4] r1[5:0] g2[3:0] g1[4:0] b3[0] "
     "g3[3:0] b1[4:0] b3[1] b2[3:0] r2[5:0] r3[5:0] shape[4:0]"},
    {2, 8, {5, 6, 5},
     "r0[7:0] b3[0] b2[4] g0[7:0] g2[5] g2[4] b0[7:0] g3[5] b3[4] r1[4:0] g3[4] g2[3:0] g1[5:0] "
     "g3[3:0] b1[4:0] b3[1] b2[3:0] r2[4:0] b3[2] r3[4:0] b3[3] shape[4:0]"},
    {2, 8, {5, 5, 6},
     "r0[7:0] b3[1] b2[4] g0[7:0] b2[5] g2[4] b0[7:0] b3[5] b3[4] r1[4:0] g3[4] g2[3:0] g1[4:0] b3[0] "
     "g3[3:0] b1[5:0] b2[3:0] r2[4:0] b3[2] r3[4:0] b3[3] shape[4:0]"},
    {2, 6, {0, 0, 0},
     "r0[5:0] g3[4] b3[0] b3[1] b2[4] g0[5:0] g2[5] b2[5] b3[2] g2[4] b0[5:0] g3[5] b3[3] b3[5] b3[4] "
     "r1[5:0] g2[3:0] g1[5:0] g3[3:0] b1[5:0] b2[3:0] r2[5:0] r3[5:0] shape[4:0]"},
    {1, 10, {0, 0, 0},
     "r0[9:0] g0[9:0] b0[9:0] r1[9:0] g1[9:0] b1[9:0]"},
    {1, 11, {9, 9, 9},
     "r0[9:0] g0[9:0] b0[9:0] r1[8:0] r0[10] g1[8:0] g0[10] b1[8:0] b0[10]"},
    {1, 12, {8, 8, 8},
     "r0[9:0] g0[9:0] b0[9:0] r1[7:0] r0[10:11] g1[7:0] g0[10:11] b1[7:0] b0[10:11]"},
    {1, 16, {4, 4, 4},
     "r0[9:0] g0[9:0] b0[9:0] r1[3:0] r0[10:15] g1[3:0] g0[10:15] b1[3:0] b0[10:15]"},
};
// clang-format on

// The modes of the codes in a block's first five bits; kModeCount is for what is reserved.
struct Numbers {
  uint8_t of[32] = {};
  constexpr Numbers() {
    for (int code = 0; code < 32; ++code)
      of[code] = uint8_t(std::min(kModeCount, code % 4 < 2    ? code % 4
                                              : code % 4 == 2 ? 2 + (code >> 2)
                                                              : 10 + (code >> 2)));
  }
};
constexpr Numbers kNumbers;
constexpr int modeOf(uint8_t first) { return kNumbers.of[first & 31]; }

// --- fields ------------------------------------------------------------------------------------------------

// What the fields of a block hold.
struct FieldValues {
  int32_t ends[4][3] = {};  // [end-point][r, g, b]
  int shape = 0;
};

// `count` bits of the block from `from` on are bits `to` and up of a value.
struct Run {
  int endPoint, channel, from, count, to;
};
struct Runs {
  Run of[64] = {};
  int count = 0, end = 0;
};
constexpr int kShapeChannel = 3, kShapeAt = 77, kShapeBits = 5;  // at the same place in all modes that have it

constexpr Runs parse(int mode) {
  Runs runs;
  int at = mode < 2 ? 2 : 5;
  const char* p = kModes[mode].fields;
  const auto number = [&] {
    int n = 0;
    for (; *p >= '0' && *p <= '9'; ++p) n = 10 * n + (*p - '0');
    return n;
  };
  const auto add = [&](Run run) {
    runs.of[runs.count++] = run;
    at += run.count;
  };
  while (*p) {
    int channel = 0;
    while (channel < kShapeChannel && "rgb"[channel] != *p) ++channel;
    while (*p >= 'a') ++p;
    const int endPoint = number();
    ++p;  // [
    const int first = number();
    int last = first;
    if (*p == ':') ++p, last = number();
    p += p[1] ? 2 : 1;  // ] and space
    if (first >= last) add({endPoint, channel, at, first - last + 1, last});
    else
      for (int bit = last; bit >= first; --bit) add({endPoint, channel, at, 1, bit});
  }
  runs.end = at;
  return runs;
}
template <int kMode>
constexpr Runs kRuns = parse(kMode);
static_assert(kRuns<0>.end == 82 && kRuns<9>.end == 82 && kRuns<10>.end == 65 && kRuns<13>.end == 65);

template <int kMode>
FieldValues readFields(const Bits& bits) {
  FieldValues values;
  [&]<size_t... i>(std::index_sequence<i...>) {
    const auto read = [&]<size_t kRun>() {
      constexpr Run kOf = kRuns<kMode>.of[kRun];
      const auto value = int32_t(bits.at(kOf.from, kOf.count)) << kOf.to;
      if constexpr (kOf.channel == kShapeChannel) values.shape |= value;
      else values.ends[kOf.endPoint][kOf.channel] |= value;
    };
    (read.template operator()<i>(), ...);
  }(std::make_index_sequence<size_t(kRuns<kMode>.count)>{});
  return values;
}
// kReadFields[mode](bits) is readFields<mode>(bits).
constexpr auto kReadFields = []<size_t... mode>(std::index_sequence<mode...>) {
  return std::array{readFields<int(mode)>...};
}(std::make_index_sequence<size_t(kModeCount)>{});

template <int kRegions>
uint64_t unpackedIndices(const Bits& bits, const bc7::Shape& shape) {
  if constexpr (kRegions == 1) return insertAnchorBit<4>(bits.at(65, 63), 0);
  else return insertAnchorBit<3>(insertAnchorBit<3>(bits.at(82, 46), 0), shape.anchors[1]);
}

// --- scalar form -------------------------------------------------------------------------------------------

[[maybe_unused]] constexpr int32_t signExtend(int32_t value, int bits) {
  return shlWrap(value, 32 - bits) >> (32 - bits);
}

// To 16 bits. The largest value of an n-bit end-point is the largest of 16, and nothing else is: the compare
// is for equality, and a signed magnitude one above it takes the formula.
template <bool kSigned>
constexpr int32_t unquantise(int32_t value, int bits) {
  const int n = bits - kSigned;
  if (n >= 15) return value;
  constexpr int kTop = kSigned ? 15 : 16;
  const int32_t sign = value >> 31, magnitude = (value ^ sign) - sign;  // no branch: signs can't be predicted
  int32_t wide = ((magnitude << kTop) + (1 << (kTop - 1))) >> n;
  wide = magnitude == (1 << n) - 1 ? (1 << kTop) - 1 : wide;
  wide = magnitude == 0 ? 0 : wide;
  return (wide ^ sign) - sign;
}

[[maybe_unused]] constexpr int32_t interpolate(int32_t a, int32_t b, int32_t weight) {
  return ((64 - weight) * a + weight * b + 32) >> 6;
}

// To the bit pattern of a half: 31/64 of the unsigned range, 31/32 of the signed magnitude below the sign.
template <bool kSigned>
constexpr int32_t finish(int32_t value) {
  if (!kSigned) return 31 * value >> 6;
  const int32_t sign = value >> 31;
  return 31 * ((value ^ sign) - sign) >> 5 | (sign & 0x8000);
}

template <bool kSigned, int kRegions>
void ownDecodeBlock(const Bits& bits, int number, uint8_t* dst, ptrdiff_t dstStep) {
  constexpr int kIndexBits = kRegions == 2 ? 3 : 4;
  if (number == kModeCount) {  // reserved
    for (int y = 0; y < 4; ++y) std::memset(row(dst, dstStep, y), 0, 24);
    return;
  }
  const Bc6Mode& mode = kModes[number];
  FieldValues values = kReadFields[size_t(number)](bits);
  auto& ends = values.ends;
  for (int c = 0; c < 3; ++c) {
    if (mode.transformed())
      for (int e = 1; e < 2 * kRegions; ++e)
        ends[e][c] = (ends[0][c] + signExtend(ends[e][c], mode.deltaBits[c])) & ((1 << mode.bits) - 1);
    for (int e = 0; e < 2 * kRegions; ++e) {
      if (kSigned) ends[e][c] = signExtend(ends[e][c], mode.bits);
      ends[e][c] = unquantise<kSigned>(ends[e][c], mode.bits);
    }
  }
  const bc7::Shape& shape = bc7::shape<kRegions>(values.shape);
  const uint64_t indices = unpackedIndices<kRegions>(bits, shape);
  for (int i = 0; i < 16; ++i) {
    const int w = bc7::weights<kIndexBits>()[indexAt<kIndexBits>(indices, i)], region = shape.subset(i);
    for (int c = 0; c < 3; ++c) {
      const int32_t value = interpolate(ends[2 * region][c], ends[2 * region + 1][c], w);
      store(row(dst, dstStep, i / 4) + 6 * (i % 4) + 2 * c, uint16_t(finish<kSigned>(value)));
    }
  }
}

// --- vector form -------------------------------------------------------------------------------------------

using simd::blockLanes, simd::blockPattern, simd::shuffleBytes;
using simd::I16, simd::I32, simd::U16, simd::U16x8, simd::U32, simd::U8, simd::U8x16;

// The end-points stand in 16-bit lanes: red, green, blue and a spare lane of end-point 0, then of 1, 2 and 3. A value
// of n bits has its top bit at the lane's, so that sums wrap as its n bits do, and one code serves all modes. The pieces
// of a field come to their places by steps: two bytes of the block a lane, a mask and a factor. Where a value has more
// pieces than there are steps, others of them come to a helper lane: blue's to the spare lane behind it, and those of a
// block with one region, whose upper 8 lanes are free, to the lane 8 above.
constexpr int kSteps = 4;  // three move up by the factor, the last one moves down by it
struct Step {
  uint8_t bytes[32];
  uint16_t mask[16], factor[16];
};
struct EndPointLanes {
  alignas(32) Step steps[kSteps] = {};
  alignas(32) uint16_t sign[16] = {};  // the top bit of a difference
  alignas(32) uint16_t base[16] = {};  // a mask: what end-point 0 is added to
  // The same in all lanes. (Constants that are not in a table of modes compilers make anew in each block, by shuffles.)
  alignas(32) uint16_t half[16] = {};       // half of what stands for 1
  alignas(32) uint16_t most[2][16] = {};    // what stands for the largest value [signed]
  alignas(32) uint16_t share[2][16] = {};   // of 65536, for the pattern of a half [signed]
  alignas(32) int32_t rounding[2][8] = {};  // of 64, and what unsigned blocks have been less [signed]
  bool complete = true;

  constexpr EndPointLanes() {
    for (uint16_t& of : share[0]) of = 31 << 10;
    for (uint16_t& of : share[1]) of = 31 << 11;
    for (int32_t& of : rounding[0]) of = 32 + 64 * 32768;
    for (int32_t& of : rounding[1]) of = 32;
  }
};

constexpr bool placePiece(Step& step, int lane, int from, int count, int to, bool down) {
  int bit = from % 8;
  bool inUpper = false;  // the piece lies in the second byte, with nothing in the first
  if (down && bit <= to && bit + 8 + count <= 16) bit += 8, inUpper = true;
  if (step.mask[lane] != 0 || bit + count > 16 || (down ? bit <= to : bit > to)) return false;
  step.bytes[2 * lane] = uint8_t(inUpper ? 0x80 : from / 8);
  step.bytes[2 * lane + 1] = uint8_t(inUpper ? from / 8 : from / 8 + 1);
  step.mask[lane] = uint16_t(((1 << count) - 1) << bit);
  step.factor[lane] = uint16_t(down ? 1 << (16 + to - bit) : 1 << (to - bit));
  return true;
}

constexpr EndPointLanes endPointLanes(int number) {
  EndPointLanes lanes;
  for (Step& step : lanes.steps)
    for (uint8_t& byte : step.bytes) byte = 0x80;
  if (number == kModeCount) return lanes;  // reserved: all values are 0, and so are the pixels
  const Bc6Mode& mode = kModes[number];
  const Runs runs = parse(number);
  const auto place = [&](Run run, int from, int count) {
    const int lane = 4 * run.endPoint + run.channel, to = run.to + (from - run.from) + 16 - mode.bits;
    const int helper = mode.regions == 1 ? lane + 8 : run.channel == 2 ? lane + 1 : lane;
    for (int i = 0; i < kSteps; ++i)
      for (const int at : {lane, helper})
        if (placePiece(lanes.steps[i], at, from, count, to, i == kSteps - 1)) return true;
    return false;
  };
  for (int i = 0; i < runs.count; ++i) {
    const Run& run = runs.of[i];
    if (run.channel == kShapeChannel) continue;
    const int fit = std::min(run.count, 16 - run.from % 8);  // in two bytes
    lanes.complete = lanes.complete && place(run, run.from, fit);
    if (fit < run.count) lanes.complete = lanes.complete && place(run, run.from + fit, run.count - fit);
  }
  if (mode.transformed())
    for (int e = 1; e < 2 * mode.regions; ++e)
      for (int c = 0; c < 3; ++c) {
        lanes.sign[4 * e + c] = uint16_t(1 << (16 - mode.bits + mode.deltaBits[c] - 1));
        lanes.base[4 * e + c] = 0xFFFF;
      }
  const auto most = uint16_t(0xFFFF << (16 - mode.bits));
  for (int lane = 0; lane < 16; ++lane) {
    lanes.half[lane] = uint16_t(0x8000 >> mode.bits);
    lanes.most[0][lane] = most, lanes.most[1][lane] = uint16_t(most >> 1 & most);
  }
  return lanes;
}
// By the number of the mode; the last one is for all that are reserved.
constexpr auto kEndPointLanes = []<size_t... number>(std::index_sequence<number...>) {
  return std::array{endPointLanes(int(number))...};
}(std::make_index_sequence<size_t(kModeCount) + 1>{});
static_assert([] {
  for (const EndPointLanes& lanes : kEndPointLanes)
    if (!lanes.complete) return false;
  return true;
}());

// All lanes of a vector from lane `at` on.
template <class V>
QELJ_INLINE V gatherFields(simd::With<uint8_t, V> blocks, const EndPointLanes& lanes, int at) {
  const auto masked = [&](const Step& step) {
    const auto bytes = load<simd::With<uint8_t, V>>(step.bytes + 2 * at);
    return as<V>(shuffleBytes(blocks, bytes)) & load<V>(step.mask + at);
  };
  const auto up = [&](const Step& step) { return masked(step) * load<V>(step.factor + at); };
  const Step& down = lanes.steps[kSteps - 1];
  static_assert(kSteps == 4);
  return ((up(lanes.steps[0]) | up(lanes.steps[1])) | up(lanes.steps[2])) |
         mulHi(masked(down), load<V>(down.factor + at));
}

// From fields to values of 16 bits; `first` holds the fields of end-point 0. Tells in `least` which signed ones are
// the least of their mode, for that is lanes.half below -32768.
template <bool kSigned, class V>
inline V endPoints(V fields, U16x8 first, const EndPointLanes& lanes, int at, V& least) {
  const auto twice = as<uint16_t>(simd::unpackLow(as<uint64_t>(first), as<uint64_t>(first)));
  const V sign = load<V>(lanes.sign + at);
  const V ends = (fields ^ sign) - sign + (simd::repeatBlock<V>(twice) & load<V>(lanes.base + at));
  const V half = load<V>(lanes.half), most = load<V>(lanes.most[kSigned]);
  if constexpr (kSigned) {
    using S = simd::With<int16_t, V>;
    least = as<V>(ends == uint16_t(0x8000));
    const V magnitude = as<V>(absWrap(as<S>(ends)));  // (that of a value of 0 comes to nothing below)
    return as<V>(simd::signAs(as<S>((magnitude | half) | as<V>(magnitude == most) >> 1), as<S>(ends)));
  } else {
    return min((ends | half) | as<V>(ends == most), addSat(ends, ends));  // 0 stays 0, and nothing else is below half
  }
}

// What goes to the 12 values of a row: its first four, middle four and last four in 32-bit lanes; for two rows.
struct Spread {
  uint8_t ends[3][16] = {};        // from the lanes of a region: the pair of a value's end-points
  uint8_t weights[2][3][16] = {};  // [row] from 8 pairs of weights: the pair of a value's pixel
  constexpr Spread() {
    for (int part = 0; part < 3; ++part)
      for (int i = 0; i < 16; ++i) {
        const int value = 4 * part + i / 4;
        ends[part][i] = uint8_t(i % 4 / 2 * 8 + value % 3 * 2 + i % 2);
        for (int y = 0; y < 2; ++y) weights[y][part][i] = uint8_t(i % 2 ? 0x80 : 2 * (4 * y + value / 3) + i % 4 / 2);
      }
  }
};
constexpr Spread kSpread;

// Where in a vector of end-point pairs those of the values of rows y and y + 2 stand, in the same order: four lanes are a
// region. Without picks from eight lanes: masks of the values of region 1.
constexpr bool kPicks = kAcross > 1;
struct RegionLanes {
  alignas(32) uint32_t of[1 << kShapeBits][2][3][8] = {};  // [shape][y][part]
  constexpr RegionLanes() {
    for (int shape = 0; shape < 1 << kShapeBits; ++shape)
      for (int value = 0; value < 48; ++value) {
        const int y = value / 12, part = value % 12 / 4, region = bc7::kTwoSubsets[shape].subset(value / 3);
        of[shape][y % 2][part][y / 2 * 4 + value % 4] =
            kPicks ? uint32_t(4 * region + value % 3) : 0u - uint32_t(region);
      }
  }
};
constexpr RegionLanes kRegionLanes;

// A vector has two blocks of 8 lanes or one: the end-points of two regions in one vector or in two. Those of one region
// are 8 lanes.
constexpr int kHalves = 2 / kAcross;
template <int kRegions>
struct RegionEnds {
  using Type = std::conditional_t<kRegions == 2, U16, U16x8>;
  static constexpr int kCount = kRegions == 2 ? kHalves : 1;
  Type of[kCount];
};

// The end-points of a vector's values. In two vectors, those of region 1 are differences in bits from region 0's.
template <int kRegions>
struct ValueEnds {
  static constexpr bool kPicked = kPicks && kRegions == 2;
  I16 of[kRegions][3];

  QELJ_INLINE explicit ValueEnds(const RegionEnds<kRegions>& ends) {
    if constexpr (kPicked) {
      const auto pairs = blockPattern({0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15});
      of[0][0] = as<I16>(shuffleBytes(as<uint8_t>(ends.of[0]), pairs));
    } else {
      for (int region = 0; region < kRegions; ++region)
        for (int part = 0; part < 3; ++part)
          of[region][part] = as<I16>(
              shuffleBytes(simd::repeatBlock<U8>(as<uint8_t>(ends.of[region])), blockPattern(kSpread.ends[part])));
      if constexpr (kRegions == 2)
        for (int part = 0; part < 3; ++part) of[1][part] ^= of[0][part];
    }
  }
  QELJ_INLINE I16 at(int part, const uint32_t* regions) const {
    if constexpr (kPicked) return as<I16>(simd::pickAnyLanes(as<U32>(of[0][0]), load<U32>(regions)));
    else if constexpr (kRegions == 2) return of[0][part] ^ (of[1][part] & load<I16>(regions));
    else return of[0][part];
  }
};

// The rows of a vector's halves of a block, from end-points as signed numbers: those of unsigned blocks are 32768 less.
// Of signed ones, those in the mask `least` are lanes.half below -32768, if there are any.
template <bool kSigned, int kRegions, bool kLeast = false>
QELJ_INLINE void ownInterpolate(const RegionEnds<kRegions>& ends, U8 weights, const EndPointLanes& lanes, int shape,
                                int half, uint8_t* dst, ptrdiff_t dstStep, const RegionEnds<kRegions>& least = {}) {
  const ValueEnds<kRegions> of(ends);
  RegionEnds<kRegions> missing;
  if constexpr (kLeast)
    for (int i = 0; i < missing.kCount; ++i)
      missing.of[i] = least.of[i] & -load<typename RegionEnds<kRegions>::Type>(lanes.half);
  const auto values = [&](int y, int part) QELJ_INLINE_LAMBDA {
    const uint32_t* regions = kRegionLanes.of[shape][y][part] + 4 * half;
    const auto weight = as<I16>(shuffleBytes(weights, blockPattern(kSpread.weights[y][part])));
    I32 sum = simd::mulAddPairs(of.at(part, regions), weight) + load<I32>(lanes.rounding[kSigned]);
    if constexpr (kLeast) sum += simd::mulAddPairs(ValueEnds<kRegions>(missing).at(part, regions), weight);
    return sum >> 6;
  };
  // To the bit pattern of a half, as finish() says.
  const auto finished = [&](I32 a, I32 b) QELJ_INLINE_LAMBDA {
    const U16 share = load<U16>(lanes.share[kSigned]);
    if constexpr (!kSigned) return mulHi(simd::packU16(a, b), share);
    const I16 packed = simd::packI16(a, b);
    const U16 magnitude = kLeast ? simd::packU16(absWrap(a), absWrap(b)) : as<U16>(absWrap(packed));
    return mulHi(magnitude, share) | as<U16>(packed & int16_t(-0x8000));
  };
  const U16 row0 = finished(values(0, 0), values(0, 1)), row1 = finished(values(1, 0), values(1, 1));
  const U16 last = finished(values(0, 2), values(1, 2));
  const auto put = [&](U16x8 first, U16x8 second, U16x8 rest, uint8_t* to) QELJ_INLINE_LAMBDA {
    store(to, first), store(row(to, dstStep, 1), second);
    simd::storeHalves(to + 16, row(to, dstStep, 1) + 16, rest);
  };
  if constexpr (kAcross == 2) {
    put(simd::lower(row0), simd::lower(row1), simd::lower(last), dst);
    put(simd::upper(row0), simd::upper(row1), simd::upper(last), row(dst, dstStep, 2));
  } else {
    put(row0, row1, last, dst);
  }
}

// Out of the way of the others.
template <int kRegions>
[[gnu::noinline]] void ownInterpolateLeast(const RegionEnds<kRegions>& ends, const RegionEnds<kRegions>& least,
                                           const U8 (&weights)[kHalves], const EndPointLanes& lanes, int shape,
                                           uint8_t* dst, ptrdiff_t dstStep) {
  using V = typename RegionEnds<kRegions>::Type;
  RegionEnds<kRegions> most;
  for (int i = 0; i < most.kCount; ++i) most.of[i] = select(least.of[i], all<V>(0x8000), ends.of[i]);
  for (int half = 0; half < kHalves; ++half)
    ownInterpolate<true, kRegions, true>(most, weights[half], lanes, shape, half, row(dst, dstStep, 2 * half), dstStep,
                                         least);
}

template <bool kSigned, int kRegions>
QELJ_INLINE void ownDecodeVectors(const uint8_t* src, int number, uint8_t* dst, ptrdiff_t dstStep) {
  const EndPointLanes& lanes = kEndPointLanes[size_t(number)];
  const int shape = int(Bits(src).at(kShapeAt, kShapeBits));
  const U8 block = simd::repeatBlock(load<U8x16>(src));
  U16 fields[kHalves];
  for (int half = 0; half < kHalves; ++half) fields[half] = gatherFields<U16>(block, lanes, 8 * half);
  U8 weights[kHalves];
  if constexpr (kRegions == 1) weightPairs<1, 4, 65>(block, 0, weights);
  else weightPairs<2, 3, 82>(block, kAnchorSets<2>.of[shape], weights);
  const auto blockOf = [&](int i) QELJ_INLINE_LAMBDA {
    if constexpr (kHalves == 1) return i ? simd::upper(fields[0]) : simd::lower(fields[0]);
    else return fields[i];
  };

  RegionEnds<kRegions> ends, least;
  if constexpr (kRegions == 1) {
    const U16x8 both = blockOf(0) | blockOf(1);
    ends.of[0] = endPoints<kSigned>(both, both, lanes, 0, least.of[0]);
  } else {
    for (U16& of : fields) of |= as<U16>(as<U32>(of) >> 16 & blockLanes<U32>({0, 0xFFFF, 0, 0xFFFF}));
    const U16x8 first = blockOf(0);
    for (int half = 0; half < kHalves; ++half)
      ends.of[half] = endPoints<kSigned>(fields[half], first, lanes, 8 * half, least.of[half]);
  }
  if constexpr (kSigned) {
    using V = typename RegionEnds<kRegions>::Type;
    const V used = blockLanes<V>({0xFFFF, 0xFFFF, 0xFFFF, 0, 0xFFFF, 0xFFFF, 0xFFFF, 0});
    V any = least.of[0] & used;
    for (int i = 1; i < least.kCount; ++i) any |= least.of[i] & used;
    if (!simd::isZero(any)) return ownInterpolateLeast(ends, least, weights, lanes, shape, dst, dstStep);
  } else {
    for (auto& of : ends.of) of ^= uint16_t(0x8000);
  }
  for (int half = 0; half < kHalves; ++half)
    ownInterpolate<kSigned>(ends, weights[half], lanes, shape, half, row(dst, dstStep, 2 * half), dstStep);
}

// --- format ------------------------------------------------------------------------------------------------

template <bool kSigned>
struct Bc6Decoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 6;
  // Modes 10 to 13 have one region; the others, and what is reserved, are decoded with two.
  static constexpr int kKinds = 2;
  static constexpr int kindOf(uint8_t first) { return (first & 0x13) == 3 ? 0 : 1; }
  template <int kKind>
  static U8 isOfKind(U8 first) {
    return as<U8>((first & uint8_t(0x13)) == 3) ^ uint8_t(-kKind);
  }
  template <int kKind>
  static QELJ_INLINE void ofKind(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    constexpr int kRegions = kKind + 1;
    const int number = modeOf(src[0]);
    if constexpr (simd::kShuffles) ownDecodeVectors<kSigned, kRegions>(src, number, dst, dstStep);
    else ownDecodeBlock<kSigned, kRegions>(Bits(src), number, dst, dstStep);
  }
};

}  // namespace
}  // namespace texture

QelStatus qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R(const uint8_t* src, uint16_t* dst, int32_t dstStep, int32_t width,
                                                    int32_t height) {
  return texture::decodeBlocks<texture::Bc6Decoder<false>>(src, dst, dstStep, {width, height});
}
QelStatus qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R(const uint8_t* src, int16_t* dst, int32_t dstStep, int32_t width,
                                                    int32_t height) {
  return texture::decodeBlocks<texture::Bc6Decoder<true>>(src, dst, dstStep, {width, height});
}

}  // namespace qelj
