// The macroblock layer of JPEG XR (ITU-T T.832) that the encoder and the decoder share: what stands between
// the library's block coders and a codestream.
#ifndef QELCONV_JPEGXR_H
#define QELCONV_JPEGXR_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>

#include "file_limits.h"
#include "rows.h"

namespace qelconv::jxr {

// The standard's numbers. A tile's packets in frequency mode come in the order of Band.
enum Band { kDC, kLP, kHP, kFlex };
enum class Bands : uint8_t { all, noFlex, noHighPass, dcOnly };
enum class Coded : uint8_t { grey, yuv420, yuv422, yuv444, cmyk };
enum class Output : uint8_t { grey = 0, cmyk = 4, rgb = 7 };
enum class Depth : uint8_t { bits8 = 1, bits16 = 2, half = 4, bits5 = 8, bits10 = 9 };

inline int bitsOf(Depth depth) {
  return depth == Depth::bits5 ? 5 : depth == Depth::bits8 ? 8 : depth == Depth::bits10 ? 10 : 16;
}
// The value that is coded as 0.
inline int32_t centreOf(Depth depth) { return depth == Depth::half ? 0 : 1 << (bitsOf(depth) - 1); }

inline constexpr int kMaxPlanes = 4;
inline constexpr int kFractionalBits = 3;  // of samples on their way to quantisers

// The blocks of a macroblock's plane: two or four in either direction.
struct Grid {
  int32_t across, down;
  int32_t count() const { return across * down; }
  int32_t row(int place) const { return place >> across / 2; }
  int32_t column(int place) const { return place & (across - 1); }
};

// The picture, or its alpha.
struct PlaneHeader {
  Coded coded = Coded::yuv444;
  bool scaled = false;  // samples carry fractional bits
  Bands bands = Bands::all;
  int dropped = 0;                        // low bits of 16-bit samples that are not coded
  uint8_t quantizer[3][kMaxPlanes] = {};  // by band and plane
  int planes() const { return coded == Coded::grey ? 1 : coded == Coded::cmyk ? 4 : 3; }
  bool yuv() const { return planes() == 3; }
  bool subsampled() const { return coded == Coded::yuv420 || coded == Coded::yuv422; }
  Grid grid(int plane) const {
    if (plane == 0 || !subsampled()) return {4, 4};
    return {2, coded == Coded::yuv420 ? 2 : 4};
  }
  int packets() const { return 4 - int(bands); }
  int fraction() const { return scaled ? kFractionalBits : 0; }
  // Planes of chroma are a bit wider than the first: their DC and low-pass values are kept at half their size.
  bool halved(int plane) const { return scaled && plane > 0; }
};

// What the headers of a codestream say.
struct Header {
  int32_t width = 0, height = 0, left = 0, top = 0;  // the picture in the coded area
  int overlap = 0;                                   // how many levels of overlap filters
  bool hardTiles = false;                            // they stop at the edges of tiles
  bool frequency = false, indexTable = false, trimFlag = false;
  bool alphaPlane = false, premultiplied = false;
  Output output = Output::rgb;
  Depth depth = Depth::bits8;
  std::vector<int32_t> columns, rows;  // where tiles begin, in macroblocks, and where the last one ends
  PlaneHeader main, alpha;
  int32_t across() const { return columns.back(); }
  int32_t down() const { return rows.back(); }
  size_t tiles() const { return (columns.size() - 1) * (rows.size() - 1); }
  // Between rows of macroblocks there is an edge that overlap filters don't cross.
  bool isEdge(int32_t row) const {
    return row == 0 || row == down() || (hardTiles && std::find(rows.begin(), rows.end(), row) != rows.end());
  }
  std::vector<int32_t> edges() const { return hardTiles ? columns : std::vector<int32_t>{0, across()}; }
  // By how many rows of macroblocks the first transform's filters, and those of the second one, put off what comes
  // behind them: a row takes its last part in them with the next one.
  int32_t sampleLag() const { return overlap > 0; }
  int32_t lowLag() const { return overlap > 1; }
};

// A quantiser's step (T.832, 9.8.1).
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
// The blocks of a full plane in coding order, by twos in either direction: row * 4 + column. Those of a subsampled
// plane come row by row.
inline constexpr uint8_t kBlocks[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};

// Rows of a plane, of which the last ones are kept: those of so many macroblock rows. Those of one lie one behind
// another, a line of the cache further apart than they are wide: so many samples in a row are often a power of two, and
// then all rows of a block would fall to the same few places of the nearest cache.
class LastRows {
 public:
  LastRows(int32_t width, int32_t perMacroblock, int32_t kept)
      : width_(width),
        perMacroblock_(perMacroblock),
        kept_(perMacroblock * kept),
        data_(size_t(apart()) * size_t(kept_)) {}
  int32_t* operator[](int32_t y) { return &data_[size_t(y % kept_) * size_t(apart())]; }
  int32_t width() const { return width_; }
  int32_t apart() const { return width_ + 16; }
  int32_t perMacroblock() const { return perMacroblock_; }
  int32_t step() const { return apart() * int32_t(sizeof(int32_t)); }

 private:
  int32_t width_, perMacroblock_, kept_;
  std::vector<int32_t> data_;
};

// The samples or coefficients of a plane, and those of the second transform: a block's DC in each.
struct Plane {
  Grid grid;
  LastRows samples, low;
  // From the first sample of a macroblock to its blocks in coding order, and from the DC of its first block to the
  // values of the standard's order.
  std::array<int32_t, 16> blocks, lowPlaces;

  Plane(const Header& header, Grid grid_, int32_t kept)
      : grid(grid_),
        samples(4 * grid.across * header.across(), 4 * grid.down, kept),
        low(grid.across * header.across(), grid.down, kept) {
    for (int i = 0; i < grid.count(); ++i) {
      const int b = grid.across == 4 ? kBlocks[i] : i, place = grid.across == 4 ? kPlace[i] : i;
      blocks[size_t(i)] = 4 * (grid.row(b) * samples.apart() + grid.column(b));
      lowPlaces[size_t(i)] = grid.row(place) * low.apart() + grid.column(place);
    }
  }
  // The first sample of macroblock (x, y), and the DC of its first block.
  int32_t* macroblock(int32_t x, int32_t y) { return samples[4 * grid.down * y] + 4 * grid.across * x; }
  int32_t* lowOf(int32_t x, int32_t y) { return low[grid.down * y] + grid.across * x; }
};

// DC and low-pass values of a macroblock, in the standard's order, quantised.
using Low = int32_t[kMaxPlanes][16];

// --- steps of transforms -----------------------------------------------------------------------------------

// Arithmetic shifts of sums that wrap, as a damaged stream can have any coefficients: one, or four at a time, as many
// as any processor's vectors hold.
inline constexpr int kLanes = 4;
using Lanes = uint32_t __attribute__((vector_size(4 * kLanes)));
using SignedLanes = int32_t __attribute__((vector_size(4 * kLanes)));
inline uint32_t sar(uint32_t v, int n) { return uint32_t(int32_t(v) >> n); }
inline Lanes sar(Lanes v, int n) { return Lanes(SignedLanes(v) >> n); }
inline Lanes lanesAt(const void* p) {
  Lanes v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// The Hadamard transform of two by two; its own inverse.
template <class T>
void hadamard(T& a, T& b, T& c, T& d) {
  a += d, b -= c;
  const T half = sar(a - b, 1), other = half - d;
  d = half - c, c = other;
  a -= d, b += c;
}

// --- prediction --------------------------------------------------------------------------------------------

// What later macroblocks see of one.
struct Seen {
  Low low;
  uint32_t pattern[kMaxPlanes];  // coded-block patterns of the high-pass band
};

// The macroblock in hand and those that it is predicted from; null outside the tile.
struct Neighbours {
  const Seen *left = nullptr, *top = nullptr, *topLeft = nullptr;
};

enum class Predict { left, top, both, none };

inline int64_t magnitude(int32_t v) { return std::abs(int64_t(v)); }

// Sums of coefficients wrap where a damaged stream drives them out of range.
inline int32_t plus(int32_t a, int64_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }

// How much the values change from top to bottom, and from left to right: the direction of the smaller change,
// where it is clearly smaller.
inline Predict clearer(int64_t down, int64_t across, Predict otherwise) {
  return 4 * down < across ? Predict::top : 4 * across < down ? Predict::left : otherwise;
}

inline Predict predictDC(const Neighbours& n, const PlaneHeader& header) {
  if (!n.left || !n.top) return n.left ? Predict::left : n.top ? Predict::top : Predict::none;
  const int lumaWeight = header.coded == Coded::yuv420 ? 8 : header.coded == Coded::yuv422 ? 4 : 2;
  const auto change = [&](const Seen& side) {
    int64_t sum = std::abs(int64_t(n.topLeft->low[0][0]) - side.low[0][0]);
    if (header.planes() > 1) sum *= lumaWeight;
    for (int p = 1; p < std::min(header.planes(), 3); ++p)
      sum += std::abs(int64_t(n.topLeft->low[p][0]) - side.low[p][0]);
    return sum;
  };
  return clearer(change(*n.left), change(*n.top), Predict::both);
}

// One of the low-pass values that are predicted from a neighbour's: its place, and that in the neighbour. The order is
// a decoder's: a value may be predicted from another one of the same macroblock, which has its prediction by then.
struct LowPrediction {
  uint8_t place, from;
  bool own = false;
};
inline std::span<const LowPrediction> lowPredictions(Grid grid, Predict how) {
  static constexpr LowPrediction kLeft[] = {{1, 1}, {2, 2}, {3, 3}}, kTop[] = {{4, 4}, {8, 8}, {12, 12}};
  static constexpr LowPrediction kLeft420[] = {{1, 1}}, kTop420[] = {{2, 2}};
  // Of 4:2:2 the places 0 to 3 are the upper half's, 4 to 7 the lower one's.
  static constexpr LowPrediction kLeft422[] = {{4, 4}, {1, 1}, {5, 5}}, kTop422[] = {{4, 4}, {2, 6}, {6, 2, true}};
  const bool left = how == Predict::left;
  switch (grid.count()) {
    case 16:
      return left ? kLeft : kTop;
    case 8:
      return left ? kLeft422 : kTop422;
    default:
      return left ? std::span<const LowPrediction>(kLeft420) : kTop420;
  }
}

// Adds the prediction of the DC and low-pass values, or with sign -1 takes it off.
inline void predictLow(Low& low, const Neighbours& n, const PlaneHeader& header, int sign) {
  const Predict how = predictDC(n, header);
  if (how == Predict::none) return;
  for (int p = 0; p < header.planes(); ++p) {
    if (how == Predict::both) {
      const int64_t rounding = p > 0 && header.subsampled();
      low[p][0] = plus(low[p][0], sign * ((int64_t(n.left->low[p][0]) + n.top->low[p][0] + rounding) >> 1));
      continue;
    }
    const Seen& side = how == Predict::left ? *n.left : *n.top;
    const auto predict = [&](const LowPrediction& l) {
      low[p][l.place] = plus(low[p][l.place], int64_t(sign) * (l.own ? low[p] : side.low[p])[l.from]);
    };
    low[p][0] = plus(low[p][0], int64_t(sign) * side.low[p][0]);
    const auto values = lowPredictions(header.grid(p), how);
    if (sign > 0) std::for_each(values.begin(), values.end(), predict);
    else std::for_each(values.rbegin(), values.rend(), predict);
  }
}

// How the high-pass blocks of a macroblock are predicted from each other.
inline Predict predictHigh(const Low& low, const PlaneHeader& header) {
  const auto sum = [&](int p, std::initializer_list<int> places) {
    int64_t total = 0;
    for (const int k : places) total += magnitude(low[p][k]);
    return total;
  };
  int64_t down = sum(0, {1, 2, 3}), across = sum(0, {4, 8, 12});
  for (int p = 1; p < std::min(header.planes(), 3); ++p) {
    switch (header.grid(p).count()) {
      case 16:
        down += sum(p, {1}), across += sum(p, {4});
        break;
      case 8:
        down += sum(p, {1, 5}), across += sum(p, {2, 6});
        break;
      default:
        down += sum(p, {1}), across += sum(p, {2});
    }
  }
  return clearer(down, across, Predict::none);
}

// --- adaptation --------------------------------------------------------------------------------------------

// How many low bits of a band's coefficients are sent plainly, for luma and chroma (T.832, 8.10).
class Model {
 public:
  Model(Band band, const PlaneHeader& header) {
    bits_[0] = bits_[1] = band == kDC ? 8 : band == kLP ? 4 : 0;
    // The weight of a chroma coefficient falls with their number.
    static constexpr int kLuma[3] = {240, 12, 1}, k420[3] = {120, 37, 2}, k422[3] = {120, 18, 1};
    static constexpr int kThree[3] = {120, 6, 8}, kFour[3] = {80, 4, 5};
    weights_[0] = kLuma[band];
    weights_[1] = header.planes() == 4            ? kFour[band]
                  : header.coded == Coded::yuv420 ? k420[band]
                  : header.coded == Coded::yuv422 ? k422[band]
                                                  : kThree[band];
    chromaShift_ = band == kHP && !header.subsampled() ? 4 : 0;
    chroma_ = header.planes() > 1;
  }
  int bits(int plane) const { return bits_[plane > 0]; }
  // `counts`: the coefficients of luma and of chroma in a macroblock that were more than their low bits.
  void update(const int (&counts)[2]) {
    adapt(0, counts[0] * weights_[0]);
    if (chroma_) adapt(1, counts[1] * weights_[1] >> chromaShift_);
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
  int bits_[2], weights_[2], chromaShift_, state_[2] = {0, 0};
  bool chroma_;
};

// The prediction of coded-block patterns: block by block from the neighbours, not at all, or as all ones, by
// how full the last patterns were (T.832, 8.7.15).
class PatternModel {
 public:
  // The two directions: a pattern's difference, and the pattern of a difference.
  uint32_t differenceOf(uint32_t pattern, const Neighbours& n, int plane, Grid grid) {
    const int state = state_[plane > 0];
    update(plane > 0, pattern, grid);
    return state == 2   ? pattern ^ all(grid)
           : state == 0 ? pattern ^ predicted(pattern, first(n, plane, grid), grid)
                        : pattern;
  }
  uint32_t patternOf(uint32_t difference, const Neighbours& n, int plane, Grid grid) {
    uint32_t p = difference;
    if (state_[plane > 0] == 2) {
      p ^= all(grid);
    } else if (state_[plane > 0] == 0) {
      p ^= first(n, plane, grid);
      p ^= 0x02 & p << 1;
      if (grid.across == 2) {
        for (const uint32_t row : {0x0Cu, 0x30u, 0xC0u}) p ^= row & all(grid) & p << 2;
      } else {
        p ^= 0x10 & p << 3, p ^= 0x20 & p << 1;
        p ^= (p & 0x33) << 2, p ^= (p & 0xCC) << 6, p ^= (p & 0x3300) << 2;
      }
    }
    update(plane > 0, p, grid);
    return p;
  }

 private:
  static uint32_t all(Grid grid) { return (1u << grid.count()) - 1; }
  // The block at the top left is predicted from outside, those of the first row from their left, others from
  // their top.
  static uint32_t first(const Neighbours& n, int plane, Grid grid) {
    const int right = grid.across == 4 ? 5 : 1, bottom = grid.across == 4 ? 10 : grid.count() - 2;
    return n.left ? n.left->pattern[plane] >> right & 1 : n.top ? n.top->pattern[plane] >> bottom & 1 : 1;
  }
  static uint32_t predicted(uint32_t p, uint32_t first, Grid grid) {
    if (grid.across == 2) return first | (0x02 & p << 1) | (0xFC & all(grid) & p << 2);
    return first | (0x02 & p << 1) | (0x10 & p << 3) | (0x20 & p << 1) | (p & 0x33) << 2 | (p & 0xCC) << 6 |
           (p & 0x3300) << 2;
  }
  void update(int i, uint32_t pattern, Grid grid) {
    const int ones = std::popcount(pattern) * (16 / grid.count());
    ones_[i] = std::clamp(ones_[i] + ones - 3, -16, 15);
    zeros_[i] = std::clamp(zeros_[i] + 16 - ones - 3, -16, 15);
    state_[i] = ones_[i] < 0 ? (ones_[i] < zeros_[i] ? 1 : 2) : zeros_[i] < 0 ? 2 : 0;
  }
  int state_[2] = {0, 0}, ones_[2] = {-4, -4}, zeros_[2] = {4, 4};
};

// Whether the low-pass patterns of luma and chroma are sent as they are, or counted from none or from all
// (T.832, 8.7.13). The planes of subsampled chroma share a bit.
struct LowPatternModel {
  explicit LowPatternModel(const PlaneHeader& header) : bits(header.subsampled() ? 2 : 3) {}
  int bits, full = 1, none = 1;
  int all() const { return (1 << bits) - 1; }
  bool counted() const { return none <= 0 || full < 0; }
  bool fromFull() const { return full < none; }
  void update(int pattern) {
    full = std::clamp(full + 1 - 4 * (pattern == all()), -8, 7);
    none = std::clamp(none + 1 - 4 * (pattern == 0), -8, 7);
  }
};

// The small codes that the library's record has no function for (T.832, 8.8): code and length a symbol, and
// the changes of the discriminant that chooses between two tables.
struct Codes {
  int symbols;
  uint8_t code[2][9], length[2][9];
  int8_t delta[9];
};
// The same with the symbol that the next bits begin with.
inline constexpr int kLongestCode = 7;
struct Alphabet : Codes {
  uint8_t symbolOf[2][1 << kLongestCode] = {};
  constexpr Alphabet(const Codes& codes) : Codes(codes) {
    for (int t = 0; t < 2; ++t)
      for (int s = 0; s < symbols; ++s)
        for (int bits = 0; length[t][s] && bits < 1 << kLongestCode; ++bits)
          if (bits >> (kLongestCode - length[t][s]) == code[t][s]) symbolOf[t][bits] = uint8_t(s);
  }
};
inline constexpr Alphabet kPatternCount =
    Codes{5, {{1, 1, 1, 0, 1}, {1, 0, 1, 2, 3}}, {{1, 2, 3, 4, 4}, {1, 3, 3, 3, 3}}, {0, -1, 0, 1, 1}};
inline constexpr Alphabet kBlockPattern = Codes{9,
                                                {{2, 0, 2, 1, 2, 1, 3, 3, 3}, {1, 1, 2, 1, 1, 3, 1, 0, 1}},
                                                {{3, 5, 4, 5, 5, 1, 3, 5, 4}, {1, 3, 3, 4, 6, 3, 5, 7, 7}},
                                                {2, 2, 1, 1, -1, -2, -2, -2, -3}};
inline constexpr Alphabet kLevel = Codes{7,
                                         {{1, 2, 3, 1, 1, 0, 1}, {1, 1, 1, 1, 1, 0, 1}},
                                         {{2, 2, 2, 3, 4, 5, 5}, {1, 2, 3, 4, 5, 6, 6}},
                                         {1, 0, -1, -1, -1, -1, -1}};
inline constexpr Alphabet kChromaCount = Codes{4, {{1, 1, 0, 1}, {}}, {{1, 2, 3, 3}, {}}, {}};
inline constexpr Alphabet kDCPattern = Codes{8, {{2, 1, 1, 1, 3, 2, 0, 3}, {}}, {{2, 3, 5, 4, 2, 3, 5, 3}, {}}, {}};

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
    const int symbol = alphabet_->symbolOf[table_][in.peek(kLongestCode)];  // codes are complete
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

// The low-pass values of subsampled chroma are coded together: U and V in turns, by these places.
inline constexpr uint8_t kLow420[] = {1, 2, 3}, kLow422[] = {4, 1, 2, 3, 5, 6, 7};
inline std::span<const uint8_t> lowPlaces(Coded coded) {
  return coded == Coded::yuv420 ? std::span<const uint8_t>(kLow420) : kLow422;
}

// The blocks of a quarter of 4:2:2 chroma, one on top of the other; of 4:2:0 there is one.
inline constexpr uint8_t kPairs422[4] = {0, 1, 4, 5};

struct Adaptation {
  const PlaneHeader& header;
  const int32_t across;  // macroblocks of the tile
  std::vector<uint64_t> record;
  Model models[3] = {Model(kDC, header), Model(kLP, header), Model(kHP, header)};
  LowPatternModel lowPattern{header};
  PatternModel highPattern;
  AdaptiveCode dcPattern{kDCPattern}, dcLevel[2] = {AdaptiveCode(kLevel), AdaptiveCode(kLevel)};
  AdaptiveCode patternCount{kPatternCount}, blockPattern, chromaCount{kChromaCount};
  std::vector<Seen> row, above;  // of macroblocks, that in hand and the one before

  Adaptation(const PlaneHeader& header_, int32_t across_)
      : header(header_),
        across(across_),
        blockPattern(header.yuv() ? kBlockPattern : kPatternCount),
        row(size_t(across)),
        above(size_t(across)) {
    int32_t size = 0;
    expectOk(qeliVLCGetStateSize_JPEGXR(&size), "the coder's record");
    record.resize(size_t(size) / 8 + 1);
    expectOk(qeliVLCInit_JPEGXR(state()), "the coder's record");
  }
  VLCState* state() { return reinterpret_cast<VLCState*>(record.data()); }

  // Columns and rows of macroblocks are counted from the tile's. What later ones will see of the next one, all 0.
  Seen& begin(int32_t x) {
    if (x == 0) std::swap(row, above);
    Seen& seen = row[size_t(x)];
    for (auto& plane : seen.low) std::fill(plane, plane + 16, 0);
    std::fill(seen.pattern, seen.pattern + kMaxPlanes, 0);
    return seen;
  }
  Neighbours neighbours(int32_t x, int32_t y) const {
    const auto at = size_t(x);
    return {x ? &row[at - 1] : nullptr, y ? &above[at] : nullptr, x && y ? &above[at - 1] : nullptr};
  }
  // Every sixteen macroblocks of a row the counts of the scans start anew, and the code tables are chosen
  // anew; the tables at the end of a row as well.
  void restartScans(int32_t x, int scan) {
    if (x % 16 == 0) qeliVLCScanReset_JPEGXR(state(), scan);
  }
  bool adaptsAt(int32_t x) const { return x % 16 == 0 || x == across - 1; }
  // Inks share the code of the first one.
  AdaptiveCode& levelOf(int plane) { return dcLevel[plane > 0 && header.yuv()]; }
  void adaptDC() { dcLevel[0].adapt(), dcLevel[1].adapt(); }
  void adaptHigh() {
    patternCount.adapt(), blockPattern.adapt();
    qeliVLCAdapt_JPEGXR(state(), qelVLCGroupHighPass);
  }
};

// The coefficients of a high-pass block that are predicted from the block to its left or on top of it, as rows and
// columns; forwards for a decoder with sign 1, backwards for an encoder with sign -1, so that what is taken off is
// still whole.
inline void predictHighBlocks(Plane& plane, int32_t x, int32_t y, Predict how, int sign) {
  if (how != Predict::left && how != Predict::top) return;
  const bool left = how == Predict::left;
  const ptrdiff_t apart = plane.samples.apart(), back = left ? 4 : 4 * apart;
  const ptrdiff_t places[3] = {left ? 1 : apart, left ? 2 : 2 * apart, left ? apart + 3 : 3 * apart + 1};
  const Grid grid = plane.grid;
  int32_t* const first = plane.macroblock(x, y);
  for (int i = 0; i < grid.count(); ++i) {
    const int b = sign > 0 ? i : grid.count() - 1 - i;
    if ((left ? grid.column(b) : grid.row(b)) == 0) continue;
    int32_t* const block = first + 4 * (grid.row(b) * apart + grid.column(b));
    for (const ptrdiff_t place : places) {
      const auto from = uint32_t(block[place - back]);
      block[place] = int32_t(uint32_t(block[place]) + (sign > 0 ? from : 0u - from));
    }
  }
}

// More than a macroblock can take from any stream, damaged ones included, or give to one: 64 blocks and their plain
// bits.
inline constexpr size_t kMargin = 1 << 15;

// A codestream as it lies in a file. Its tiles come from left to right and top to bottom; of each there is one packet
// in spatial mode, or one a band. One that is empty holds nothing, and one without data lies behind the place where a
// file was cut.
struct Codestream {
  Metadata metadata;  // of the container
  Header header;
  Bytes body;
  std::vector<std::vector<Bytes>> packets;
};
// Its picture. The file, of which the codestream is a part, stays until the end.
std::unique_ptr<RowSource> decodeTiles(Codestream c, const Contents& file, const Limits& limits);

// Coded bytes as they grow, in pieces that stay where they are: so much is not copied time and again.
class Packet {
 public:
  // Where the next bytes go, as many as asked for at least; `end` is where those of before end.
  uint8_t* room(uint8_t* end, size_t bytes) {
    if (!pieces_.empty()) {
      Piece& last = pieces_.back();
      if (size_t(last.bytes.get() + last.room - end) >= bytes) return end;
      last.size = size_t(end - last.bytes.get());
    }
    constexpr size_t kMost = 1 << 20;
    const size_t size = std::max(bytes, pieces_.empty() ? 2 * kMargin : std::min(2 * pieces_.back().room, kMost));
    pieces_.push_back({unset(size), size});
    return pieces_.back().bytes.get();
  }
  // There are no more; a piece that is hardly used, as there may be many packets, gives its room back.
  void close(const uint8_t* end) {
    Piece& last = pieces_.back();
    last.size = size_t(end - last.bytes.get());
    if (last.size > last.room / 2) return;
    auto fitting = unset(last.size);
    std::copy_n(last.bytes.get(), last.size, fitting.get());
    last.bytes = std::move(fitting);
  }
  size_t size() const {
    size_t sum = 0;
    for (const Piece& piece : pieces_) sum += piece.size;
    return sum;
  }
  void putInto(Destination& out) const {
    for (const Piece& piece : pieces_) out.put({piece.bytes.get(), piece.size});
  }

 private:
  // std::make_unique_for_overwrite, which the C++ library of Clang 13 does not have.
  static std::unique_ptr<uint8_t[]> unset(size_t size) { return std::unique_ptr<uint8_t[]>(new uint8_t[size]); }

  struct Piece {
    std::unique_ptr<uint8_t[]> bytes;
    size_t room, size = 0;
  };
  std::vector<Piece> pieces_;
};

// The packets of a picture in the order of a codestream, once it has been taken.
class TileEncoder : public RowSink {
 public:
  std::vector<std::vector<Packet>> packets;
  void finish() override {}
};
std::unique_ptr<TileEncoder> encodeTiles(const Shape& shape, const Header& header);

}  // namespace qelconv::jxr

#endif
