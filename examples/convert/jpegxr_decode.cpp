// The decoder's side of JPEG XR's macroblock layer.
#include <functional>
#include <optional>

#include "jpegxr_overlap.h"

namespace qelconv::jxr {
namespace {

// The end of a codestream, copied to where there are readable bytes behind it, as the library's coders need them. Decoding
// begins in the file and goes on here for the last macroblocks, so that no file is copied as a whole.
class Ending {
 public:
  explicit Ending(Bytes body) : bytes_(body.last(std::min(body.size(), kMargin))), copy_(bytes_.begin(), bytes_.end()) {
    copy_.resize(bytes_.size() + kMargin);
  }
  // How far a position in the file has to move, if it has.
  ptrdiff_t distanceOf(const uint8_t* at) const {
    const std::less_equal<> notBehind;
    return notBehind(bytes_.data(), at) && notBehind(at, bytes_.data() + bytes_.size()) ? copy_.data() - bytes_.data()
                                                                                        : 0;
  }
  // The same place in the file.
  const uint8_t* inFile(const uint8_t* at) const {
    const std::less_equal<> notBehind;
    const bool inCopy = notBehind(copy_.data(), at) && notBehind(at, copy_.data() + copy_.size());
    return inCopy ? bytes_.data() : at;
  }

 private:
  Bytes bytes_;
  std::vector<uint8_t> copy_;
};

// A bit position as the library's coders keep it, in a packet behind which there are readable bytes.
class BitIn {
 public:
  const uint8_t* stream = nullptr;
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0;

  BitIn(Bytes packet, const Ending& ending) : stream(packet.data()), end_(packet.data() + packet.size()) {
    keepMargin(ending);
    refill();
  }
  // In front of every macroblock.
  void keepMargin(const Ending& ending) {
    if (const ptrdiff_t distance = ending.distanceOf(stream)) [[unlikely]]
      stream += distance, end_ += distance;
  }
  // At most 16 bits.
  uint32_t peek(int count) const { return uint32_t(uint64_t(bitBuffer) >> (32 - count)); }
  void skip(int count) {
    bitBuffer <<= count;
    bitCount -= count;
    refill();
  }
  uint32_t take(int count) {
    const uint32_t bits = peek(count);
    skip(count);
    return bits;
  }
  uint32_t takeLong(int count) {
    const uint32_t high = count > 16 ? take(count - 16) << 16 : 0;
    return high | take(std::min(count, 16));
  }
  // The low bits of coefficients, behind their levels: eight bytes are read at once, as there is a margin.
  class LowBits {
   public:
    LowBits(BitIn& in, int bits)
        : in_(in), next_(in.stream), held_(uint64_t(in.bitBuffer) << 32), count_(in.bitCount), bits_(bits) {}
    void add(int32_t& v) {
      uint64_t more = 0;
      for (int i = 0; i < 8; ++i) more = more << 8 | next_[i];
      held_ |= more >> count_;
      next_ += (63 - count_) >> 3;
      count_ |= 56;
      const auto plain = uint32_t(held_ >> (64 - bits_));
      skip(bits_);
      // The sign: without a branch, as all of these are tosses of a coin.
      const int sent = int(v == 0) & int(plain != 0);
      const uint32_t minus = uint32_t(v >> 31) | (0u - (uint32_t(sent) & uint32_t(held_ >> 63)));
      skip(sent);
      v = int32_t(((uint32_t(magnitude(v)) << bits_ | plain) ^ minus) - minus);
    }
    ~LowBits() {
      // Back to two bytes at a time.
      const auto taken = 8 * (next_ - in_.stream) - count_;
      const auto units = std::max<std::ptrdiff_t>((taken + 31) >> 4, 0);
      in_.bitCount = int32_t(16 * units - taken);
      in_.bitBuffer = uint32_t(held_ >> (64 - in_.bitCount) << (32 - in_.bitCount));
      in_.stream += 2 * units;
    }

   private:
    void skip(int bits) { held_ <<= bits, count_ -= bits; }
    BitIn& in_;
    const uint8_t* next_;
    uint64_t held_;
    int count_, bits_;
  };

  // Whether more bits were taken than there are; units fetched in advance don't count.
  bool beyond() const { return 8 * (stream - end_) > bitCount; }

 private:
  // Without a branch, as no predictor learns where units end.
  void refill() {
    const int units = bitCount < 16;
    bitBuffer |= (0u - uint32_t(units)) & uint32_t(stream[0] << 8 | stream[1]) << 16 >> bitCount % 16;
    stream += 2 * units;
    bitCount += 16 * units;
  }
  const uint8_t* end_;
};

// Where a tile's coding stands.
struct Tile {
  std::vector<BitIn> in;  // one, or one a band
  int bands = 0;          // those that there still are
  int trim = 0;
  std::vector<Adaptation> planes;  // the picture, and its alpha

  bool has(Band band) const { return band < bands; }
  BitIn& at(Band band) { return in[std::min(size_t(band), in.size() - 1)]; }
};

[[noreturn]] void damaged() { throw Damaged("the coded data are damaged"); }

// What one tile's macroblock holds, on its way into a plane.
class PlaneDecoder {
 public:
  PlaneDecoder(const Header& header, const PlaneHeader& plane, int32_t kept) : header_(header), plane_(plane) {
    for (int p = 0; p < plane.planes(); ++p) {
      planes_.emplace_back(header, plane.grid(p), kept);
      for (const Band band : {kDC, kLP, kHP})
        steps_[p][band] = stepOf(plane.quantizer[band][p], plane.scaled, plane.halved(p) && band != kHP);
    }
  }

  const PlaneHeader& header() const { return plane_; }
  Plane& operator[](int p) { return planes_[size_t(p)]; }

  // --- from bits to coefficients ---

  // No coefficients yet in a row of macroblocks: cleared as a whole, in much larger pieces than one by one.
  void begin(int32_t row) {
    for (Plane& plane : planes_) {
      LastRows& samples = plane.samples;
      const int32_t rows = samples.perMacroblock();
      std::fill_n(samples[row * rows], ptrdiff_t(rows) * samples.apart(), 0);
    }
  }

  // A macroblock of the tile that begins at (left, top); `check` looks after a band whether its bits were there.
  template <class Check>
  void decode(Tile& tile, Adaptation& a, int32_t x, int32_t y, int32_t left, int32_t top, Check&& check) {
    auto& [low, pattern] = a.begin(x);
    const Neighbours n = a.neighbours(x, y);
    const bool adapts = a.adaptsAt(x);
    const int32_t column = left + x, row = top + y;
    decodeDC(tile.at(kDC), a, low);
    if (tile.at(kDC).beyond()) throw Truncated();
    if (has(tile, kLP)) {
      a.restartScans(x, qelVLCScanLowPass);
      decodeLow(tile.at(kLP), a, low);
      check(kLP);
      if (!tile.has(kLP))
        for (auto& plane : low) std::fill(plane + 1, plane + 16, 0);
    }
    if (adapts) a.adaptDC(), qeliVLCAdapt_JPEGXR(a.state(), qelVLCGroupLowPass);
    predictLow(low, n, plane_, 1);

    if (has(tile, kHP)) {
      const Predict how = predictHigh(low, plane_);
      a.restartScans(x, qelVLCScanHighPassTop);
      a.restartScans(x, qelVLCScanHighPass);
      qeliVLCScanSet_JPEGXR(a.state(), how == Predict::top ? qelVLCScanHighPassTop : qelVLCScanHighPass);
      decodePatterns(tile.at(kHP), a, pattern, n);
      decodeHigh(tile, a, column, row, pattern);
      if (adapts) a.adaptHigh();
      for (Plane& plane : planes_) predictHighBlocks(plane, column, row, how, 1);
      if (has(tile, kFlex)) check(kFlex);
      check(kHP);
    }
    if (!has(tile, kHP)) clearHigh(column, row);
    putLow(low, column, row);
  }

  // A macroblock of which nothing is known.
  void clear(int32_t column, int32_t row) {
    putLow({}, column, row);
    clearHigh(column, row);
  }

  // --- from coefficients to samples, a row of macroblocks at a time ---

  // What of the second transform can be done with row `row` there.
  void invertLow(int32_t row) {
    for (int p = 0; p < plane_.planes(); ++p) {
      Plane& plane = planes_[size_t(p)];
      if (row < header_.down()) {
        if (plane.grid.count() == 16)
          qeliPCTInv_JPEGXR_32s_C1IR(plane.low[4 * row], plane.low.step(), {plane.low.width(), 4});
        else invertSubsampled(plane, row);
        for (int r = 0; plane_.halved(p) && r < plane.grid.down; ++r) {
          int32_t* const values = plane.low[row * plane.grid.down + r];
          for (int32_t x = 0; x < plane.low.width(); ++x) values[x] = plus(values[x], values[x]);
        }
      }
      if (header_.overlap > 1) overlapLow(plane, header_, row, Filter::post);
    }
  }

  // The first transform of a row, and the filters for which the row behind it isn't needed.
  void invertSamples(int32_t row) {
    for (Plane& plane : planes_) {
      if (row < header_.down()) {
        const int rows = plane.samples.perMacroblock();
        for (int r = 0; r < plane.grid.down; ++r) {
          const int32_t* const from = plane.low[row * plane.grid.down + r];
          int32_t* const to = plane.samples[row * rows + 4 * r];
          for (int32_t b = 0, width = plane.low.width(); b < width; ++b) to[4 * b] = from[b];
        }
        qeliPCTInv_JPEGXR_32s_C1IR(plane.samples[row * rows], plane.samples.step(), {plane.samples.width(), rows});
      }
      if (header_.overlap > 0) overlapSamples(plane, header_, row, Filter::post);
    }
  }

 private:
  bool has(const Tile& tile, Band band) const { return tile.has(band) && band < plane_.packets(); }

  uint32_t decodeLevel(AdaptiveCode& code, BitIn& in) {
    const int symbol = code.get(in);
    if (symbol < 6) return kLevelBase[symbol] + in.take(kLevelBits[symbol]);
    int length = int(in.take(4));
    if (length == 15) length += int(in.take(2));
    if (length == 18) length += int(in.take(3));
    return (1u << (length + 4)) + in.takeLong(length + 4);
  }

  void decodeDC(BitIn& in, Adaptation& a, Low& low) {
    Model& model = a.models[kDC];
    const uint32_t together = plane_.yuv() ? uint32_t(a.dcPattern.get(in)) : 0;
    int counts[2] = {};
    for (int p = 0; p < plane_.planes(); ++p) {
      const uint32_t significant = plane_.yuv() ? together >> (2 - p) & 1 : in.take(1);
      uint32_t value = 0;
      if (significant) value = decodeLevel(a.levelOf(p), in) + 1, ++counts[p > 0];
      value = value << model.bits(p) | in.take(model.bits(p));
      const uint32_t minus = 0u - in.take(value != 0);
      low[p][0] = int32_t((value ^ minus) - minus);
    }
    model.update(counts);
  }

  void decodeLow(BitIn& in, Adaptation& a, Low& low) {
    Model& model = a.models[kLP];
    const int pattern = decodeLowPattern(in, a);
    int counts[2] = {};
    for (int p = 0; p < (plane_.subsampled() ? 1 : plane_.planes()); ++p) {
      if (pattern >> p & 1) {
        int32_t count = 0;
        qeliVLCDecodeDC444_JPEGXR_1u32s(&in.stream, &in.bitBuffer, &in.bitCount, low[p], p > 0, &count, a.state());
        if (count == qelVLCCountOverrun) damaged();
        counts[p > 0] += count;
      }
      if (model.bits(p)) {
        BitIn::LowBits lowBits(in, model.bits(p));
        for (int k = 1; k < 16; ++k) lowBits.add(low[p][k]);
      }
    }
    if (plane_.subsampled()) counts[1] = decodeLowChroma(in, a, low, pattern >> 1 & 1);
    model.update(counts);
  }

  int decodeLowChroma(BitIn& in, Adaptation& a, Low& low, bool coded) {
    const auto places = lowPlaces(plane_.coded);
    int32_t count = 0;
    if (coded) {
      int32_t values[2 * std::size(kLow422)];
      constexpr int32_t kNone = -1;  // as which it stays where the stream runs over
      count = kNone;
      const auto decode =
          plane_.coded == Coded::yuv420 ? qeliVLCDecodeDC420_JPEGXR_1u32s : qeliVLCDecodeDC422_JPEGXR_1u32s;
      decode(&in.stream, &in.bitBuffer, &in.bitCount, values, &count, a.state());
      if (count == kNone) damaged();
      for (size_t i = 0; i < 2 * places.size(); ++i) low[1 + i % 2][places[i / 2]] = values[i];
    }
    if (const int bits = a.models[kLP].bits(1)) {
      BitIn::LowBits lowBits(in, bits);
      for (size_t k = 1; k <= places.size(); ++k)
        for (const int p : {1, 2}) lowBits.add(low[p][k]);
    }
    return count;
  }

  int decodeLowPattern(BitIn& in, Adaptation& a) {
    int pattern = 0;
    if (!plane_.yuv()) {
      for (int p = 0; p < plane_.planes(); ++p) pattern |= int(in.take(1)) << p;
      return pattern;
    }
    LowPatternModel& model = a.lowPattern;
    if (model.counted()) {
      if (in.take(1)) {
        const int high = int(in.take(model.bits - 1));
        pattern = high ? 2 * high + int(in.take(1)) : 1;
      }
      if (model.fromFull()) pattern = model.all() - pattern;
    } else {
      pattern = int(in.take(model.bits));
    }
    model.update(pattern);
    return pattern;
  }

  static uint32_t decodeMembers(BitIn& in, int count) {
    static constexpr uint8_t kTwo[4] = {6, 9, 10, 12};
    switch (count) {
      case 0:
        return 0;
      case 1:
        return 1u << in.take(2);
      case 2: {
        const uint32_t first = in.take(2);
        return first == 0 ? 3 : first == 1 ? 5 : kTwo[2 * (first - 2) + in.take(1)];
      }
      case 3:
        return 15 ^ 1u << in.take(2);
      default:
        return 15;
    }
  }

  void decodePatterns(BitIn& in, Adaptation& a, uint32_t (&pattern)[kMaxPlanes], const Neighbours& n) {
    uint32_t d[kMaxPlanes] = {};
    // Luma and chroma together, or planes one by one.
    for (int first = 0; first < (plane_.yuv() ? 1 : plane_.planes()); ++first) {
      const uint32_t quarters = decodeMembers(in, a.patternCount.get(in));
      for (int q = 0; q < 4; ++q) {
        if (!(quarters >> q & 1)) continue;
        int kind = a.blockPattern.get(in) + 1;
        uint32_t chroma = 0;  // bit 0: U, bit 1: V
        if (kind > 5) {
          chroma = in.take(1) ? 1 : in.take(1) ? 2 : 3;
          kind -= 6;
          if (kind == 3) kind += in.take(1) ? 0 : in.take(1) ? 1 : 2;
        }
        d[first] |= uint32_t(kQuarter[kQuarterFirst[kind] + in.take(kQuarterBits[kind])]) << 4 * q;
        for (int p = 1; p < 3; ++p)
          if (chroma >> (p - 1) & 1) d[p] |= decodeChromaQuarter(in, a, q);
      }
    }
    for (int p = 0; p < plane_.planes(); ++p) pattern[p] = a.highPattern.patternOf(d[p], n, p, planes_[size_t(p)].grid);
  }

  uint32_t decodeChromaQuarter(BitIn& in, Adaptation& a, int q) {
    if (plane_.coded == Coded::yuv420) return 1u << q;
    if (plane_.coded == Coded::yuv422) return (in.take(1) ? 1u : in.take(1) ? 4u : 5u) << kPairs422[q];
    return decodeMembers(in, a.chromaCount.get(in) + 1) << 4 * q;
  }

  void decodeHigh(Tile& tile, Adaptation& a, int32_t column, int32_t row, const uint32_t (&pattern)[kMaxPlanes]) {
    BitIn &in = tile.at(kHP), &flex = tile.at(kFlex);
    Model& model = a.models[kHP];
    int counts[2] = {};
    for (int p = 0; p < plane_.planes(); ++p) {
      Plane& plane = planes_[size_t(p)];
      const int bits = model.bits(p);
      const int plain = has(tile, kFlex) ? std::max(bits - tile.trim, 0) : 0;
      const auto step = uint32_t(steps_[p][kHP]);
      const int32_t rowStep = plane.samples.step();
      int32_t* const first = plane.macroblock(column, row);
      const auto blockAt = [&](int i) { return first + plane.blocks[size_t(i)]; };
      const auto take = [&](int32_t* block) {
        int32_t count = 0;
        qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&in.stream, &in.bitBuffer, &in.bitCount, int32_t(step << bits), block,
                                          rowStep, p > 0, &count, a.state());
        if (count == qelVLCCountOverrun) damaged();
        counts[p > 0] += count;
      };
      const auto takePlain = [&](int32_t* block, bool coded) {
        qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(&flex.stream, &flex.bitBuffer, &flex.bitCount, block, rowStep,
                                           uint32_t(plain), int32_t(step << tile.trim), coded);
      };
      // Which blocks are coded is a toss of a coin each: without plain bits, only those that are get visited.
      if (!plain) {
        for (uint32_t coded = pattern[p]; coded; coded &= coded - 1) take(blockAt(std::countr_zero(coded)));
        continue;
      }
      for (int i = 0; i < plane.grid.count(); ++i) {
        const bool coded = pattern[p] >> i & 1;
        if (coded) take(blockAt(i));
        takePlain(blockAt(i), coded);
      }
    }
    model.update(counts);
  }

  // --- into the planes ---

  static void clearHigh(Plane& plane, int32_t column, int32_t row) {
    int32_t* at = plane.macroblock(column, row);
    for (int r = 0; r < plane.samples.perMacroblock(); ++r, at += plane.samples.apart()) {
      std::memset(at, 0, 32);
      if (plane.grid.across == 4) std::memset(at + 8, 0, 32);
    }
  }
  void clearHigh(int32_t column, int32_t row) {
    for (Plane& plane : planes_) clearHigh(plane, column, row);
  }

  void putLow(const Low& low, int32_t column, int32_t row) {
    for (int p = 0; p < plane_.planes(); ++p) {
      Plane& plane = planes_[size_t(p)];
      int32_t* const to = plane.lowOf(column, row);
      const auto step = uint32_t(steps_[p][kLP]);
      for (int k = 1; k < plane.grid.count(); ++k) to[plane.lowPlaces[size_t(k)]] = int32_t(uint32_t(low[p][k]) * step);
      *to = int32_t(uint32_t(low[p][0]) * uint32_t(steps_[p][kDC]));
    }
  }

  static void invertSubsampled(Plane& plane, int32_t row) {
    uint32_t* rows[4];
    for (int r = 0; r < plane.grid.down; ++r)
      rows[r] = reinterpret_cast<uint32_t*>(plane.low[row * plane.grid.down + r]);
    for (int32_t x = 0; x < plane.low.width(); x += 2) {
      if (plane.grid.down == 4) rows[0][x] -= sar(rows[2][x] + 1, 1), rows[2][x] += rows[0][x];
      for (int r = 0; r < plane.grid.down; r += 2)
        hadamard(rows[r][x], rows[r][x + 1], rows[r + 1][x], rows[r + 1][x + 1]);
    }
  }

  const Header& header_;
  const PlaneHeader& plane_;
  std::vector<Plane> planes_;
  int32_t steps_[kMaxPlanes][3] = {};
};

// From rows of samples to the picture.
class Store {
 public:
  Store(const Header& header, const Shape& shape, Rows& rows) : header_(header), shape_(shape), rows_(rows) {}

  // The rows of a macroblock row that lie in the picture.
  void put(PlaneDecoder& main, PlaneDecoder* alpha, int32_t row) {
    const int32_t first = std::max(16 * row, header_.top), end = std::min(16 * row + 16, header_.top + header_.height);
    for (int32_t y = first; y < end; ++y) {
      uint8_t* const to = rows_.row(y - header_.top);
      const PlaneHeader& plane = main.header();
      if (plane.yuv()) putYuv(main, y, to);
      else if (plane.planes() == 4) putCmyk(main, y, to);
      else putChannels(main[0].samples[y], plane, 0, shape_.channels() - shape_.hasAlpha(), to);
      if (alpha) putChannels((*alpha)[0].samples[y], alpha->header(), shape_.channels() - 1, 1, to);
    }
  }

 private:
  // What is added to a sample in front of its rounding.
  int32_t half(const PlaneHeader& plane) const {
    return plane.scaled ? (1 << (kFractionalBits - 1)) - (header_.depth != Depth::bits16) : 0;
  }
  int32_t bias(const PlaneHeader& plane) const {
    return (centreOf(header_.depth) >> plane.dropped << plane.fraction()) + half(plane);
  }

  // A value of the file's depth, from one with fractional bits.
  uint32_t valueOf(uint32_t v, const PlaneHeader& plane) const {
    const int32_t whole = int32_t(v) >> plane.fraction();
    if (header_.depth == Depth::half) return halfOf(whole);
    const int32_t top = (1 << shape_.bits) - 1;
    return uint32_t(std::clamp<int64_t>(int64_t(whole) << plane.dropped, 0, top));
  }
  // Half-floats are coded as whole numbers in their order.
  static uint32_t halfOf(int32_t v) {
    return v < 0 ? 0x8000u | uint32_t(std::min<int64_t>(-int64_t(v), 0x7FFF)) : uint32_t(std::min(v, 0x7FFF));
  }

  void set(uint8_t* to, int32_t x, int channel, uint32_t value) const {
    const size_t i = size_t(x) * size_t(shape_.channels()) + size_t(channel);
    if (shape_.bits > 8) {
      const auto v = uint16_t(value);
      std::memcpy(to + 2 * i, &v, 2);
    } else {
      to[i] = uint8_t(value);
    }
  }

  void putChannels(const int32_t* from, const PlaneHeader& plane, int channel, int count, uint8_t* to) const {
    const auto offset = uint32_t(bias(plane));
    for (int32_t x = 0; x < shape_.width; ++x) {
      const uint32_t v = valueOf(uint32_t(from[header_.left + x]) + offset, plane);
      for (int c = 0; c < count; ++c) set(to, x, channel + c, v);
    }
  }

  void putYuv(PlaneDecoder& main, int32_t y, uint8_t* to) {
    const PlaneHeader& plane = main.header();
    const int32_t* const luma = main[0].samples[y] + header_.left;
    const int32_t *u = chroma(main, 1, y) + header_.left, *v = chroma(main, 2, y) + header_.left;
    const auto offset = uint32_t(bias(plane));
    const auto rgb = [=](int32_t x) {
      const uint32_t minus = 0u - uint32_t(u[x]), blueness = uint32_t(v[x]);
      const uint32_t green = uint32_t(luma[x]) + offset - uint32_t(int32_t(minus) >> 1);
      const uint32_t red = minus + green - uint32_t(int32_t(blueness + 1) >> 1);
      return std::array<uint32_t, 3>{red, green, blueness + red};
    };
    if (header_.depth == Depth::bits8 && shape_.channels() == 3) {
      // Some pixels at a time, in loops of one kind of work each, which compilers turn into vectors: four bytes a
      // pixel, of which the last one is left out. Where a sample has to be clamped, which is seldom, all of them are.
      constexpr int32_t kSome = 32;
      const int shift = plane.fraction();
      uint32_t pixels[kSome];
      for (int32_t first = 0; first < shape_.width; first += kSome) {
        const int32_t n = std::min(shape_.width - first, kSome);
        const auto pack = [&](auto&& sample) {
          uint32_t all = 0;
          for (int32_t x = 0; x < n; ++x) {
            const auto [red, green, blue] = rgb(first + x);
            const uint32_t r = sample(sar(red, shift)), g = sample(sar(green, shift)), b = sample(sar(blue, shift));
            all |= r | g | b;
            pixels[x] = r | g << 8 | b << 16;
          }
          return all;
        };
        if (pack([](uint32_t value) { return value; }) > 255)
          pack([](uint32_t value) { return uint32_t(std::clamp(int32_t(value), 0, 255)); });
        uint8_t* const out = to + 3 * first;
        int32_t x = 0;
        for (; x + 4 <= n; x += 4) {
          uint64_t two[2];
          std::memcpy(two, pixels + x, sizeof two);
          for (uint64_t& p : two) p = (p & 0xFFFFFF) | p >> 32 << 24;
          const uint64_t low = two[0] | two[1] << 48;
          const auto high = uint32_t(two[1] >> 16);
          std::memcpy(out + 3 * x, &low, sizeof low), std::memcpy(out + 3 * x + 8, &high, sizeof high);
        }
        for (; x + 1 < n; ++x) std::memcpy(out + 3 * x, pixels + x, 4);
        if (x < n) std::memcpy(out + 3 * x, pixels + x, 3);
      }
      return;
    }
    for (int32_t x = 0; x < shape_.width; ++x) {
      auto value = rgb(x);
      for (int c = 0; c < 3; ++c) set(to, x, c, valueOf(value[size_t(c)], plane));
    }
  }

  // A row of chroma, spread to the width of luma: every second sample is the mean of its neighbours in either
  // direction.
  const int32_t* chroma(PlaneDecoder& main, int p, int32_t y) {
    Plane& plane = main[p];
    if (!main.header().subsampled()) return plane.samples[y];
    const int32_t width = plane.samples.width();
    auto& row = chroma_[size_t(p - 1)];
    row.resize(size_t(2 * width));
    const auto mean = [](int32_t a, int32_t b) { return plus(plus(a, b), 1) >> 1; };
    const bool halfRows = main.header().coded == Coded::yuv420;
    const int32_t top = halfRows ? y / 2 : y, height = plane.samples.perMacroblock() * header_.down();
    const bool between = halfRows && y % 2 && top + 1 < height;
    const int32_t *const up = plane.samples[top], *const down = plane.samples[between ? top + 1 : top];
    for (int32_t x = 0; x < width; ++x) row[size_t(2 * x)] = between ? mean(up[x], down[x]) : up[x];
    for (int32_t x = 0; x < width; ++x)
      row[size_t(2 * x + 1)] = x + 1 < width ? mean(row[size_t(2 * x)], row[size_t(2 * x + 2)]) : row[size_t(2 * x)];
    return row.data();
  }

  void putCmyk(PlaneDecoder& main, int32_t y, uint8_t* to) const {
    const PlaneHeader& plane = main.header();
    const int32_t* planes[4];
    for (int p = 0; p < 4; ++p) planes[p] = main[p].samples[y] + header_.left;
    const auto centre = uint32_t(centreOf(header_.depth) >> plane.dropped << plane.fraction());
    const auto rounding = uint32_t(half(plane));
    for (int32_t x = 0; x < shape_.width; ++x) {
      uint32_t m = centre - uint32_t(planes[0][x]), c = uint32_t(planes[1][x]);
      uint32_t yellow = 0u - uint32_t(planes[2][x]), k = uint32_t(planes[3][x]);
      k -= sar(m + 1, 1);
      m -= sar(c, 1) - k;
      c -= sar(yellow + 1, 1) - m;
      yellow += c;
      int channel = 0;
      for (const uint32_t ink : {c, m, yellow, k}) set(to, x, channel++, valueOf(ink + rounding, plane));
    }
  }

  const Header& header_;
  const Shape& shape_;
  Rows& rows_;
  std::vector<int32_t> chroma_[2];
};

Shape shapeOf(const Header& header) {
  const Colour colour = header.output == Output::cmyk  ? Colour::cmyk
                        : header.output == Output::rgb ? (header.alphaPlane ? Colour::rgba : Colour::rgb)
                                                       : (header.alphaPlane ? Colour::greyAlpha : Colour::grey);
  return {header.width, header.height, colour, bitsOf(header.depth), header.depth == Depth::half};
}

class Source : public RowSource {
 public:
  Source(Codestream c, const Contents& file, const Limits& limits)
      : codestream_(std::move(c)),
        header_(codestream_.header),
        file_(file),
        limits_(limits),
        ending_(codestream_.body) {
    shape_ = shapeOf(header_);
    shape_.metadata = codestream_.metadata;
    // Chroma of 4:2:0 takes a row of the next row of macroblocks.
    lag_ = header_.lowLag() + std::max(header_.sampleLag(), int32_t(header_.main.coded == Coded::yuv420));
  }

  StripRows strips() const override { return {header_.down(), 16, 16 * lag_ + header_.top, shape_.height}; }

  std::vector<Step> steps(Rows& rows, int32_t slots) override {
    const int32_t kept = std::min(slots - 1 + lag_, header_.down());
    planes_.emplace_back(header_, header_.main, kept);
    if (header_.alphaPlane) planes_.emplace_back(header_, header_.alpha, kept);
    store_.emplace(header_, shape_, rows);
    return {{"decode", true, [this](int32_t strip) { decodeRow(strip); }},
            {"transform", true, [this](int32_t strip) {
               const int32_t end = strip + 1 == header_.down() ? strip + 1 + lag_ : strip + 1;
               for (int32_t y = strip; y < end; ++y) transformRow(y);
             }}};
  }

  std::string missing() const override { return wrong_; }

 private:
  // With row `y` there, as far as each step gets.
  void transformRow(int32_t y) {
    for (PlaneDecoder& plane : planes_) {
      if (y <= header_.down()) plane.invertLow(y);
      if (const int32_t row = y - header_.lowLag(); row >= 0 && row <= header_.down()) plane.invertSamples(row);
    }
    if (y >= lag_) store_->put(planes_[0], header_.alphaPlane ? &planes_[1] : nullptr, y - lag_);
  }

  // The bands are lost from `band` on: without DC there are no more macroblocks.
  void lose(Tile& tile, Band band, const std::string& why) {
    limits_.expectWhole(why);
    if (wrong_.empty()) wrong_ = why;
    tile.bands = band;
  }

  void decodeRow(int32_t y) {
    const auto above = std::upper_bound(header_.rows.begin(), header_.rows.end(), y) - 1;
    if (*above == y) startTiles(size_t(above - header_.rows.begin()));
    for (PlaneDecoder& plane : planes_) plane.begin(y);
    for (size_t t = 0; t < tiles_.size(); ++t)
      decodeRow(tiles_[t], header_.columns[t], header_.columns[t + 1], *above, y);
    forget();
  }

  // What no packet needs any more.
  void forget() {
    const uint8_t* first = nullptr;
    for (const Tile& tile : tiles_)
      for (const BitIn& in : tile.in) {
        const uint8_t* const at = ending_.inFile(in.stream);
        if (!first || std::less<>()(at, first)) first = at;
      }
    if (first) file_.forget(size_t(first - file_.bytes().data()));
  }

  void decodeRow(Tile& tile, int32_t first, int32_t end, int32_t top, int32_t y) {
    int32_t x = first;
    try {
      for (; x < end && tile.has(kDC); ++x) {
        for (BitIn& in : tile.in) in.keepMargin(ending_);
        for (size_t i = 0; i < planes_.size(); ++i)
          // A packet of its own is lost alone, and with it the bands behind it.
          planes_[i].decode(tile, tile.planes[i], x - first, y - top, first, top, [&](Band band) {
            if (!tile.at(band).beyond()) return;
            if (tile.in.size() == 1) throw Truncated();
            lose(tile, band, Truncated().what());
          });
      }
    } catch (const Damaged& e) {
      lose(tile, kDC, e.what());
    }
    for (; x < end; ++x)
      for (PlaneDecoder& plane : planes_) plane.clear(x, y);
  }

  void startTiles(size_t row) {
    const size_t count = header_.columns.size() - 1;
    tiles_.clear();
    tiles_.resize(count);
    for (size_t t = 0; t < count; ++t) {
      Tile& tile = tiles_[t];
      for (PlaneDecoder& plane : planes_)
        tile.planes.emplace_back(plane.header(), header_.columns[t + 1] - header_.columns[t]);
      start(tile, codestream_.packets[row * count + t]);
    }
  }

  void start(Tile& tile, const std::vector<Bytes>& packets) {
    tile.bands = header_.main.packets();
    for (size_t i = 0; i < packets.size(); ++i) {
      const Bytes packet = packets[i];
      if (packet.empty()) tile.bands = std::min(tile.bands, int(i));
      if (!packet.data()) break;  // the file is cut in front of it
      tile.in.emplace_back(packet, ending_);
      if (!packet.empty()) startPacket(tile, header_.trimFlag && (packets.size() == 1 || i == kFlex));
    }
    if (tile.in.empty()) lose(tile, kDC, Truncated().what());
  }

  void startPacket(Tile& tile, bool trimmed) {
    BitIn& in = tile.in.back();
    if (in.take(16) != 0 || in.take(8) != 1) throw Error("a packet doesn't begin with its start code");
    in.skip(8);
    if (trimmed) tile.trim = int(in.take(4));
  }

  const Codestream codestream_;
  const Header& header_;
  const Contents& file_;
  const Limits limits_;
  const Ending ending_;
  int32_t lag_ = 0;  // by how many rows of macroblocks the picture comes behind what is decoded
  std::optional<Store> store_;
  std::vector<PlaneDecoder> planes_;
  std::vector<Tile> tiles_;  // of the current row
  std::string wrong_;        // why something is gone
};

}  // namespace

std::unique_ptr<RowSource> decodeTiles(Codestream c, const Contents& file, const Limits& limits) {
  // A macroblock takes a bit a band at least, and one more for the DC values of three planes.
  const Header& header = c.header;
  const uint64_t macroblocks = uint64_t(header.across()) * uint64_t(header.down());
  limits.expectData(c.body.size(), macroblocks,
                    uint64_t(std::min(header.main.packets(), 3) + (header.main.planes() > 1)));
  // Some rows of macroblocks are in the works, with gaps between their rows of samples.
  constexpr uint64_t kMostRows = 11;
  const int planes = header.main.planes() + header.alphaPlane;
  const uint64_t working = uint64_t(header.across() + 2) * std::min(kMostRows, uint64_t(header.down())) * 272 *
                           sizeof(int32_t) * uint64_t(planes);
  // Grey planes may stand for RGB.
  const int channels = header.output == Output::rgb ? 3 + header.alphaPlane : planes;
  limits.expectPicture(header.width, header.height, channels, bitsOf(header.depth), working);
  return std::make_unique<Source>(std::move(c), file, limits);
}

}  // namespace qelconv::jxr
