// The macroblock layer of JPEG XR (ITU-T T.832) that the encoder and the decoder share: what stands between
// the library's block coders and a codestream. One tile, no overlap filter, one component or three at full
// resolution.
#ifndef QELCONV_JPEGXR_H
#define QELCONV_JPEGXR_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>

#include "file_limits.h"
#include "format.h"

namespace qelconv::jxr {

// The standard's numbers. A tile's packets in frequency mode come in the order of Band.
enum Band { kDC, kLP, kHP, kFlex };
enum class Bands : uint8_t { all, noFlex, noHighPass, dcOnly };

// What the image header and the plane header say.
struct Header {
  int32_t width = 0, height = 0;
  int planes = 3;  // 1: grey, 3: YUV 4:4:4
  bool frequency = false, indexTable = false, trimFlag = false;
  bool scaled = false;  // samples carry three fractional bits
  Bands bands = Bands::all;
  uint8_t quantizer[3][3] = {};  // by band and plane
  int32_t across() const { return (width + 15) / 16; }
  int32_t down() const { return (height + 15) / 16; }
  int packets() const { return 4 - int(bands); }
};
inline constexpr int kFractionalBits = 3;

// A quantiser's step (T.832, 9.8.1). With fractional bits, the DC and low-pass bands of chroma have half the
// step: those values are kept at half their size.
inline int32_t stepOf(uint8_t index, bool scaled, bool halved) {
  const int mantissa = index < 16 ? index : 16 + index % 16, exponent = index < 16 ? 0 : index / 16 - 1;
  if (index == 0) return 1;
  if (scaled) return mantissa << (exponent + (halved ? 0 : 1));
  if (index < 32) return (index + 3) >> 2;
  return index < 48 ? (mantissa + 1) >> 1 : mantissa << (exponent - 2);
}

// --- places in a macroblock --------------------------------------------------------------------------------

// Where a coefficient of the standard's order 0..15 lies in a 4x4 block of the transform, row * 4 + column.
inline constexpr uint8_t kPlace[16] = {0, 2, 1, 7, 8, 15, 12, 11, 4, 3, 5, 6, 13, 14, 9, 10};
// Prediction from the left takes the first three, from the top the others.
inline constexpr uint8_t kFromLeft[3] = {1, 2, 3}, kFromTop[3] = {4, 8, 12};
// The blocks in coding order, by twos in either direction: row * 4 + column.
inline constexpr uint8_t kBlocks[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};

struct Macroblock {
  int32_t samples[3][256];  // 16 rows of 16
  int32_t low[3][16];       // DC and low-pass values, in the standard's order, quantised
};
// The first sample of block `b`, row * 4 + column.
inline int32_t* blockOf(int32_t* plane, int b) { return plane + b / 4 * 64 + b % 4 * 4; }

// --- prediction --------------------------------------------------------------------------------------------

// What later macroblocks see of one.
struct Seen {
  int32_t low[3][16];
  uint32_t pattern[3];  // coded-block patterns of the high-pass band
};

// The macroblock in hand and those that it is predicted from; null outside the tile.
struct Neighbours {
  const Seen *left = nullptr, *top = nullptr, *topLeft = nullptr;
};

enum class Predict { left, top, both, none };

// How much the values change from top to bottom, and from left to right: the direction of the smaller change,
// where it is clearly smaller.
inline Predict clearer(int64_t down, int64_t across, Predict otherwise) {
  return 4 * down < across ? Predict::top : 4 * across < down ? Predict::left : otherwise;
}

inline Predict predictDC(const Neighbours& n, int planes) {
  if (!n.left || !n.top) return n.left ? Predict::left : n.top ? Predict::top : Predict::none;
  const auto change = [&](const Seen& side) {
    int64_t sum = 0;
    for (int p = 0; p < planes; ++p)
      sum += std::abs(int64_t(n.topLeft->low[p][0]) - side.low[p][0]) * (p == 0 && planes > 1 ? 2 : 1);
    return sum;
  };
  return clearer(change(*n.left), change(*n.top), Predict::both);
}

// Sums of coefficients wrap where a damaged stream drives them out of range.
inline int32_t plus(int32_t a, int64_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }

// Adds the prediction of the DC and low-pass values, or with sign -1 takes it off.
inline void predictLow(int32_t (&low)[3][16], const Neighbours& n, int planes, int sign) {
  const Predict how = predictDC(n, planes);
  for (int p = 0; p < planes; ++p) {
    if (how == Predict::left || how == Predict::top) {
      const Seen& from = how == Predict::left ? *n.left : *n.top;
      low[p][0] = plus(low[p][0], int64_t(sign) * from.low[p][0]);
      for (const int k : how == Predict::left ? kFromLeft : kFromTop)
        low[p][k] = plus(low[p][k], int64_t(sign) * from.low[p][k]);
    } else if (how == Predict::both) {
      low[p][0] = plus(low[p][0], sign * ((int64_t(n.left->low[p][0]) + n.top->low[p][0]) >> 1));
    }
  }
}

inline int64_t magnitude(int32_t v) { return std::abs(int64_t(v)); }

// How the high-pass blocks of a macroblock are predicted from each other.
inline Predict predictHigh(const int32_t (&low)[3][16], int planes) {
  int64_t down = 0, across = 0;
  for (int i = 0; i < 3; ++i) down += magnitude(low[0][kFromLeft[i]]), across += magnitude(low[0][kFromTop[i]]);
  for (int p = 1; p < planes; ++p) down += magnitude(low[p][1]), across += magnitude(low[p][4]);
  return clearer(down, across, Predict::none);
}

// --- adaptation --------------------------------------------------------------------------------------------

// How many low bits of a band's coefficients are sent plainly, for luma and chroma (T.832, 8.10).
class Model {
 public:
  explicit Model(Band band) : band_(band) { bits_[0] = bits_[1] = band == kDC ? 8 : band == kLP ? 4 : 0; }
  int bits(int plane) const { return bits_[plane > 0]; }
  // `counts`: the coefficients of luma and of chroma in a macroblock that were more than their low bits.
  void update(const int (&counts)[2], int planes) {
    static constexpr int kLuma[3] = {240, 12, 1}, kChroma[3] = {120, 6, 8};
    adapt(0, counts[0] * kLuma[band_]);
    if (planes > 1) adapt(1, band_ == kHP ? counts[1] * kChroma[kHP] >> 4 : counts[1] * kChroma[band_]);
  }

 private:
  void adapt(int i, int weighted) {
    int change = (weighted - 70) >> 2;
    if (change <= -8) {
      state_[i] += std::max(change + 4, -16);
      if (state_[i] < -8) {
        state_[i] = bits_[i] ? 0 : -8;
        bits_[i] -= bits_[i] > 0;
      }
    } else if (change >= 8) {
      state_[i] += std::min(change - 4, 15);
      if (state_[i] > 8) {
        state_[i] = bits_[i] < 15 ? 0 : 8;
        bits_[i] += bits_[i] < 15;
      }
    }
  }
  Band band_;
  int bits_[2], state_[2] = {0, 0};
};

// The prediction of coded-block patterns: block by block from the neighbours, not at all, or as all ones, by
// how full the last patterns were (T.832, 8.7.15).
class PatternModel {
 public:
  // The two directions: a pattern's difference, and the pattern of a difference.
  uint32_t differenceOf(uint32_t pattern, const Neighbours& n, int plane) {
    const uint32_t predicted = state_[plane > 0] == 0   ? pattern ^ spread(pattern, n, plane)
                               : state_[plane > 0] == 2 ? pattern ^ 0xFFFF
                                                        : pattern;
    update(plane > 0, pattern);
    return predicted;
  }
  uint32_t patternOf(uint32_t difference, const Neighbours& n, int plane) {
    uint32_t p = difference;
    if (state_[plane > 0] == 2) {
      p ^= 0xFFFF;
    } else if (state_[plane > 0] == 0) {
      p ^= first(n, plane);
      p ^= 0x02 & p << 1, p ^= 0x10 & p << 3, p ^= 0x20 & p << 1;
      p ^= (p & 0x33) << 2, p ^= (p & 0xCC) << 6, p ^= (p & 0x3300) << 2;
    }
    update(plane > 0, p);
    return p;
  }

 private:
  // The block at the top left is predicted from outside, those of the first row from their left, others from
  // their top.
  static uint32_t first(const Neighbours& n, int plane) {
    return n.left ? n.left->pattern[plane] >> 5 & 1 : n.top ? n.top->pattern[plane] >> 10 & 1 : 1;
  }
  static uint32_t spread(uint32_t p, const Neighbours& n, int plane) {
    return first(n, plane) | (0x02 & p << 1) | (0x10 & p << 3) | (0x20 & p << 1) | (p & 0x33) << 2 | (p & 0xCC) << 6 |
           (p & 0x3300) << 2;
  }
  void update(int i, uint32_t pattern) {
    const int ones = std::popcount(pattern);
    ones_[i] = std::clamp(ones_[i] + ones - 3, -16, 15);
    zeros_[i] = std::clamp(zeros_[i] + 16 - ones - 3, -16, 15);
    state_[i] = ones_[i] < 0 ? (ones_[i] < zeros_[i] ? 1 : 2) : zeros_[i] < 0 ? 2 : 0;
  }
  int state_[2] = {0, 0}, ones_[2] = {-4, -4}, zeros_[2] = {4, 4};
};

// Whether the low-pass patterns of three planes are sent as they are, or counted from none or from all
// (T.832, 8.7.13).
struct LowPatternModel {
  int full = 1, none = 1;
  bool counted() const { return none <= 0 || full < 0; }
  bool fromFull() const { return full < none; }
  void update(int pattern) {
    full = std::clamp(full + 1 - 4 * (pattern == 7), -8, 7);
    none = std::clamp(none + 1 - 4 * (pattern == 0), -8, 7);
  }
};

// The small codes that the library's record has no function for (T.832, 8.8): code and length a symbol, and
// the changes of the discriminant that chooses between two tables.
struct Alphabet {
  int symbols;
  uint8_t code[2][9], length[2][9];
  int8_t delta[9];
};
inline constexpr Alphabet kPatternCount = {
    5, {{1, 1, 1, 0, 1}, {1, 0, 1, 2, 3}}, {{1, 2, 3, 4, 4}, {1, 3, 3, 3, 3}}, {0, -1, 0, 1, 1}};
inline constexpr Alphabet kBlockPattern = {9,
                                           {{2, 0, 2, 1, 2, 1, 3, 3, 3}, {1, 1, 2, 1, 1, 3, 1, 0, 1}},
                                           {{3, 5, 4, 5, 5, 1, 3, 5, 4}, {1, 3, 3, 4, 6, 3, 5, 7, 7}},
                                           {2, 2, 1, 1, -1, -2, -2, -2, -3}};
inline constexpr Alphabet kLevel = {7,
                                    {{1, 2, 3, 1, 1, 0, 1}, {1, 1, 1, 1, 1, 0, 1}},
                                    {{2, 2, 2, 3, 4, 5, 5}, {1, 2, 3, 4, 5, 6, 6}},
                                    {1, 0, -1, -1, -1, -1, -1}};
inline constexpr Alphabet kChromaCount = {4, {{1, 1, 0, 1}, {}}, {{1, 2, 3, 3}, {}}, {}};
inline constexpr Alphabet kDCPattern = {8, {{2, 1, 1, 1, 3, 2, 0, 3}, {}}, {{2, 3, 5, 4, 2, 3, 5, 3}, {}}, {}};

class AdaptiveCode {
 public:
  explicit AdaptiveCode(const Alphabet& alphabet) : alphabet_(&alphabet) {}
  template <class Out>
  void put(Out& out, int symbol) {
    out.put(alphabet_->code[table_][symbol], alphabet_->length[table_][symbol]);
    discriminant_ += alphabet_->delta[symbol];
  }
  template <class In>
  int get(In& in) {
    int symbol = 0;
    while (in.peek(alphabet_->length[table_][symbol]) != alphabet_->code[table_][symbol])
      ++symbol;  // codes are complete
    in.skip(alphabet_->length[table_][symbol]);
    discriminant_ += alphabet_->delta[symbol];
    return symbol;
  }
  void adapt() {
    const int move = table_ && discriminant_ < -8 ? -1 : !table_ && discriminant_ > 8 ? 1 : 0;
    table_ += move;
    discriminant_ = move ? 0 : std::clamp(discriminant_, -64, 64);
  }

 private:
  const Alphabet* alphabet_;
  int table_ = 0, discriminant_ = 0;
};

// The blocks of a quarter of luma that are coded, as a class and bits behind it.
inline constexpr uint8_t kQuarterBits[6] = {0, 2, 1, 2, 2, 0}, kQuarterFirst[6] = {0, 4, 2, 8, 12, 1};
inline constexpr uint8_t kQuarter[16] = {0, 15, 3, 12, 1, 2, 4, 8, 5, 6, 9, 10, 7, 11, 13, 14};

// A level of a DC value, symbol and bits behind it, below an escape.
inline constexpr uint8_t kLevelBits[6] = {0, 0, 1, 2, 2, 2}, kLevelBase[6] = {0, 1, 2, 4, 8, 12};

// --- all that adapts, from the start of a tile -------------------------------------------------------------

struct Adaptation {
  std::vector<uint64_t> record;
  Model models[3] = {Model(kDC), Model(kLP), Model(kHP)};
  LowPatternModel lowPattern;
  PatternModel highPattern;
  AdaptiveCode dcPattern{kDCPattern}, dcLevel[2] = {AdaptiveCode(kLevel), AdaptiveCode(kLevel)};
  AdaptiveCode patternCount{kPatternCount}, blockPattern, chromaCount{kChromaCount};
  std::vector<Seen> row;  // the last macroblock of every column
  Seen left, topLeft;

  explicit Adaptation(const Header& header)
      : blockPattern(header.planes > 1 ? kBlockPattern : kPatternCount), row(size_t(header.across())) {
    int32_t size = 0;
    expectOk(qeliVLCGetStateSize_JPEGXR(&size), "the coder's record");
    record.resize(size_t(size) / 8 + 1);
    expectOk(qeliVLCInit_JPEGXR(state()), "the coder's record");
  }
  VLCState* state() { return reinterpret_cast<VLCState*>(record.data()); }

  Neighbours neighbours(int32_t x, int32_t y) {
    return {x ? &left : nullptr, y ? &row[size_t(x)] : nullptr, x && y ? &topLeft : nullptr};
  }
  void remember(int32_t x, const int32_t (&low)[3][16], const uint32_t (&pattern)[3]) {
    topLeft = row[size_t(x)];
    std::memcpy(left.low, low, sizeof low);
    std::memcpy(left.pattern, pattern, sizeof pattern);
    row[size_t(x)] = left;
  }
  // Every sixteen macroblocks of a row the counts of the scans start anew, and the code tables are chosen
  // anew; the tables at the end of a row as well.
  void restartScans(int32_t x, int scan) {
    if (x % 16 == 0) qeliVLCScanReset_JPEGXR(state(), scan);
  }
  static bool adaptsAt(int32_t x, const Header& header) { return x % 16 == 0 || x == header.across() - 1; }
  void adaptDC() { dcLevel[0].adapt(), dcLevel[1].adapt(); }
  void adaptHigh() {
    patternCount.adapt(), blockPattern.adapt();
    qeliVLCAdapt_JPEGXR(state(), qelVLCGroupHighPass);
  }
};

// The high-pass blocks that are predicted, each from the one to its left or on top of it; `places` of a
// block.
struct HighPrediction {
  std::array<uint8_t, 12> blocks;
  std::array<uint8_t, 3> places;
  int from;  // samples between a block and the one that it is predicted from
};
inline constexpr HighPrediction kHighFromLeft = {{1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15}, {1, 2, 16 + 3}, 4};
inline constexpr HighPrediction kHighFromTop = {{4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, {16, 32, 48 + 1}, 64};

// The tile of a picture in spatial mode.
std::vector<uint8_t> encodeTile(const Image& image, const Header& header, Stages& stages);
// `packets`: the tile in spatial mode, or one packet a band in frequency mode.
Image decodeTile(const Header& header, const std::vector<Bytes>& packets, const Limits& limits, Stages& stages);

}  // namespace qelconv::jxr

#endif
