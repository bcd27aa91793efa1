// The decoder of BC6 (BC6H): high dynamic range, three channels of half floats.
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

// The mode of a block's first byte; kModeCount and above are reserved.
constexpr int modeOf(uint8_t first) {
  const int code = first & 31;
  return code % 4 < 2 ? code % 4 : code % 4 == 2 ? 2 + (code >> 2) : 10 + (code >> 2);
}

// --- fields ------------------------------------------------------------------------------------------------

// What the fields of a block hold.
struct FieldValues {
  int32_t ends[4][4] = {};  // [end-point][r, g, b, 0]
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
constexpr int kShapeChannel = 3;

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

// --- both forms: of one value (V is int32_t) or of a vector of them ----------------------------------------

template <class V>
inline V signExtend(V value, int bits) {
  return shr(shlWrap(value, 32 - bits), 32 - bits);
}

// To 16 bits. The largest value of an n-bit end-point is the largest of 16, and nothing else is: the compare
// is for equality, and a signed magnitude one above it takes the formula.
template <bool kSigned, class V>
inline V unquantise(V value, int bits) {
  const int n = bits - kSigned;
  if (n >= 15) return value;
  constexpr int kTop = kSigned ? 15 : 16;
  const V sign = kSigned ? shr(value, 31) : V{}, magnitude = (value ^ sign) - sign;
  V wide = shr((magnitude << kTop) + (1 << (kTop - 1)), n);
  wide = select(magnitude == all<V>((1 << n) - 1), all<V>((1 << kTop) - 1), wide);
  wide = select(magnitude == V{}, V{}, wide);
  return (wide ^ sign) - sign;
}

template <class V>
inline V interpolate(V a, V b, V weight) {
  return shr(shlWrap(a, 6) + weight * (b - a) + 32, 6);
}

// To the bit pattern of a half: 31/64 of the unsigned range, 31/32 of the signed magnitude below the sign.
template <bool kSigned, class V>
inline V finish(V value) {
  const auto times31 = [](V v) { return (v << 5) - v; };
  if constexpr (!kSigned) return shr(times31(value), 6);
  const V sign = shr(value, 31), magnitude = (value ^ sign) - sign;
  return shr(times31(magnitude), 5) | (sign & 0x8000);
}

// --- scalar form -------------------------------------------------------------------------------------------

template <bool kSigned, int kRegions>
void ownDecodeBlock(const Bits& bits, const Bc6Mode& mode, FieldValues values, uint8_t* dst, ptrdiff_t dstStep) {
  constexpr int kIndexBits = kRegions == 2 ? 3 : 4;
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

using simd::I32;    // of kAcross palette entries
using simd::I32x4;  // the channels of an end-point
using simd::U8x16;

// The weights of palette entries i + 2 block + j, for a vector i of two: packed, the two vectors are in order.
template <int kIndexBits>
struct PaletteWeights {
  alignas(32) int32_t of[16 / (2 * kAcross)][2][4 * kAcross];
  constexpr PaletteWeights() : of{} {
    for (int i = 0; i < 16; i += 2 * kAcross)
      for (int j = 0; j < 2; ++j)
        for (int k = 0; k < 4 * kAcross; ++k)
          of[i / (2 * kAcross)][j][k] = bc7::weights<kIndexBits>()[(i + k / 4 * 2 + j) % (1 << kIndexBits)];
  }
};
template <int kIndexBits>
[[maybe_unused]] constexpr PaletteWeights<kIndexBits> kPaletteWeights;

template <bool kSigned, int kRegions>
inline void ownDecodeVectors(const Bits& bits, const Bc6Mode& mode, const FieldValues& values, uint8_t* dst,
                             ptrdiff_t dstStep) {
  constexpr int kIndexBits = kRegions == 2 ? 3 : 4;
  I32x4 ends[2 * kRegions];
  for (int e = 0; e < 2 * kRegions; ++e) ends[e] = load<I32x4>(values.ends[e]);
  if (mode.transformed()) {
    // The last lane holds nothing, and does what its neighbour does.
    const I32x4 unused = 32 - I32x4{mode.deltaBits[0], mode.deltaBits[1], mode.deltaBits[2], mode.deltaBits[2]};
    for (int e = 1; e < 2 * kRegions; ++e)
      ends[e] =
          (ends[0] + (as<int32_t>(as<uint32_t>(ends[e]) << as<uint32_t>(unused)) >> unused)) & ((1 << mode.bits) - 1);
  }
  for (I32x4& end : ends) {
    if constexpr (kSigned) end = signExtend(end, mode.bits);
    end = unquantise<kSigned>(end, mode.bits);
  }

  // 16 entries of four 16-bit lanes: the 16 of the one region, or 8 of each.
  alignas(32) uint64_t palette[16];
  for (int i = 0; i < 16; i += 2 * kAcross) {
    const int region = kRegions == 2 ? i / 8 : 0;
    const I32 a = simd::repeatBlock<I32>(ends[2 * region]), b = simd::repeatBlock<I32>(ends[2 * region + 1]);
    const auto entries = [&](int j) {
      return finish<kSigned>(interpolate(a, b, load<I32>(kPaletteWeights<kIndexBits>.of[i / (2 * kAcross)][j])));
    };
    store(palette + i, simd::packU16(entries(0), entries(1)));
  }

  const bc7::Shape& shape = bc7::shape<kRegions>(values.shape);
  U8x16 entry = unpackIndices<kIndexBits, 0>(as<uint8_t>(simd::U64x2{unpackedIndices<kRegions>(bits, shape), 0}));
  if constexpr (kRegions == 2) entry |= (load<U8x16>(shape.subsets) & uint8_t(1)) << 3;
  uint8_t entries[16];
  store(entries, entry);
  for (int y = 0; y < 4; ++y) {
    const auto at = [&](int x) { return palette[entries[4 * y + x]]; };
    uint8_t* to = row(dst, dstStep, y);
    store(to, at(0) | at(1) << 48);
    store(to + 8, at(1) >> 16 | at(2) << 32);
    store(to + 16, at(2) >> 32 | at(3) << 16);
  }
}

// --- format ------------------------------------------------------------------------------------------------

template <bool kSigned>
struct Bc6Decoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 6;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const int number = modeOf(src[0]);
    if (number >= kModeCount) {
      for (int y = 0; y < 4; ++y) std::memset(row(dst, dstStep, y), 0, 24);
      return;
    }
    const Bits bits(src);
    const Bc6Mode& mode = kModes[number];
    const FieldValues values = kReadFields[size_t(number)](bits);
    if (mode.regions == 2) decode<2>(bits, mode, values, dst, dstStep);
    else decode<1>(bits, mode, values, dst, dstStep);
  }
  template <int kRegions>
  static void decode(const Bits& bits, const Bc6Mode& mode, const FieldValues& values, uint8_t* dst,
                     ptrdiff_t dstStep) {
    if constexpr (simd::kEnabled) ownDecodeVectors<kSigned, kRegions>(bits, mode, values, dst, dstStep);
    else ownDecodeBlock<kSigned, kRegions>(bits, mode, values, dst, dstStep);
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
