// The decoder's side of JPEG XR's macroblock layer.
#include "jpegxr.h"

namespace qelconv::jxr {
namespace {

// A bit position as the library's coders keep it, in a packet behind which there are readable bytes.
class BitIn {
 public:
  const uint8_t* stream = nullptr;
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0;

  BitIn(const uint8_t* from, const uint8_t* end) : stream(from), end_(end) { refill(); }
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
  // Whether more bits were taken than there are; units fetched in advance don't count.
  bool beyond() const { return 8 * (stream - end_) > bitCount; }

 private:
  void refill() {
    if (bitCount >= 16) return;
    bitBuffer |= uint32_t(stream[0] << 8 | stream[1]) << (16 - bitCount);
    stream += 2;
    bitCount += 16;
  }
  const uint8_t* end_;
};

// More than a macroblock can take from any stream, damaged ones included.
constexpr size_t kMargin = 1 << 15;

[[noreturn]] void damaged() { throw Damaged("the coded data are damaged"); }

class Decoder {
 public:
  Decoder(const Header& header, const std::vector<Bytes>& packets, const Limits& limits)
      : header_(header),
        limits_(limits),
        image_(header.width, header.height, header.planes == 1 ? Colour::grey : Colour::rgb),
        bands_(header.packets()),
        a_(header) {
    size_t bytes = kMargin;
    for (const Bytes packet : packets) bytes += packet.size() + 1;
    bytes_.reserve(bytes);
    for (const Bytes packet : packets) {
      const size_t start = bytes_.size();
      bytes_.insert(bytes_.end(), packet.begin(), packet.end());
      in_.emplace_back(bytes_.data() + start, bytes_.data() + bytes_.size());
      if (!packet.empty()) startPacket(in_.back(), header.trimFlag && (packets.size() == 1 || in_.size() == 4));
    }
    bytes_.resize(bytes_.size() + kMargin);
    if (packets.back().empty()) bands_ = std::min<int>(bands_, kFlex);
    for (int p = 0; p < header.planes; ++p)
      for (const Band band : {kDC, kLP, kHP})
        steps_[p][band] = stepOf(header.quantizer[band][p], header.scaled, p > 0 && band != kHP);
  }

  // Entropy coding takes four fifths of the time and goes one way through the picture: other cores would
  // mostly wait, and on a busy machine waiting costs more than they bring.
  Image run(Stages& stages) {
    std::vector<Macroblock> row(size_t(header_.across()));
    for (int32_t y = 0; y < header_.down() && has(kDC); ++y) {
      int32_t count = 0;
      stages.time("decode", [&] {
        try {
          for (; count < header_.across(); ++count) decode(row[size_t(count)], count, y);
        } catch (const Damaged& e) {
          lose(kDC, e.what());
        }
      });
      stages.time("transform", [&] {
        for (int32_t x = 0; x < count; ++x) transform(row[size_t(x)], x, y);
      });
    }
    if (!wrong_.empty()) limits_.onlyPart(image_, wrong_);
    return std::move(image_);
  }

 private:
  BitIn& in(Band band) { return in_[std::min(size_t(band), in_.size() - 1)]; }

  // The bands are lost from `band` on: without DC there are no more macroblocks.
  bool has(Band band) const { return band < bands_; }
  void lose(Band band, const std::string& why) {
    limits_.expectWhole(why);
    if (wrong_.empty()) wrong_ = why;
    bands_ = band;
  }
  // Behind a macroblock's bits of a band: were they all there? A packet of its own is lost alone, and with it
  // the bands behind it.
  void check(Band band) {
    if (!in(band).beyond()) return;
    if (in_.size() == 1) throw Truncated();
    lose(band, Truncated().what());
  }

  void startPacket(BitIn& in, bool trimmed) {
    if (in.take(16) != 0 || in.take(8) != 1) throw Error("a packet doesn't begin with its start code");
    in.skip(8);
    if (trimmed) trim_ = int(in.take(4));
  }

  // --- from bits to coefficients ---

  void decode(Macroblock& mb, int32_t x, int32_t y) {
    const Neighbours n = a_.neighbours(x, y);
    const bool adapts = Adaptation::adaptsAt(x, header_);
    std::memset(mb.low, 0, sizeof mb.low);
    decodeDC(mb.low);
    if (in(kDC).beyond()) throw Truncated();
    if (has(kLP)) {
      a_.restartScans(x, 2);
      decodeLow(mb.low);
      check(kLP);
      if (!has(kLP))
        for (auto& low : mb.low) std::fill(low + 1, low + 16, 0);
    }
    if (adapts) a_.adaptDC(), qeliVLCAdapt_JPEGXR(a_.state(), qelVLCGroupLowPass);
    predictLow(mb.low, n, header_.planes, 1);

    uint32_t pattern[3] = {};
    if (has(kHP)) {
      const Predict how = predictHigh(mb.low, header_.planes);
      a_.restartScans(x, 0);
      a_.restartScans(x, 1);
      qeliVLCScanSet_JPEGXR(a_.state(), how == Predict::top ? qelVLCScanHighPassTop : qelVLCScanHighPass);
      decodePatterns(pattern, n);
      decodeHigh(mb, pattern);
      if (adapts) a_.adaptHigh();
      if (how == Predict::left || how == Predict::top)
        for (int p = 0; p < header_.planes; ++p)
          predict(mb.samples[p], how == Predict::left ? kHighFromLeft : kHighFromTop);
      if (has(kFlex)) check(kFlex);
      check(kHP);
    }
    if (!has(kHP)) std::memset(mb.samples, 0, sizeof mb.samples);
    a_.remember(x, mb.low, pattern);
  }

  static void predict(int32_t* plane, const HighPrediction& how) {
    for (const int b : how.blocks)
      for (const int place : how.places) {
        int32_t* const at = blockOf(plane, b) + place;
        *at = plus(*at, at[-how.from]);
      }
  }

  uint32_t decodeLevel(AdaptiveCode& code, BitIn& in) {
    const int symbol = code.get(in);
    if (symbol < 6) return kLevelBase[symbol] + in.take(kLevelBits[symbol]);
    int length = int(in.take(4));
    if (length == 15) length += int(in.take(2));
    if (length == 18) length += int(in.take(3));
    return (1u << (length + 4)) + in.takeLong(length + 4);
  }

  void decodeDC(int32_t (&low)[3][16]) {
    BitIn& in = this->in(kDC);
    Model& model = a_.models[kDC];
    const uint32_t significant = header_.planes > 1 ? uint32_t(a_.dcPattern.get(in)) : in.take(1);
    int counts[2] = {};
    for (int p = 0; p < header_.planes; ++p) {
      uint32_t value = 0;
      if (significant >> (header_.planes - 1 - p) & 1) value = decodeLevel(a_.dcLevel[p > 0], in) + 1, ++counts[p > 0];
      value = value << model.bits(p) | in.take(model.bits(p));
      low[p][0] = int32_t(value && in.take(1) ? 0u - value : value);
    }
    model.update(counts, header_.planes);
  }

  void decodeLow(int32_t (&low)[3][16]) {
    BitIn& in = this->in(kLP);
    Model& model = a_.models[kLP];
    const int pattern = decodeLowPattern(in);
    int counts[2] = {};
    for (int p = 0; p < header_.planes; ++p) {
      const int bits = model.bits(p);
      if (pattern >> p & 1) {
        int32_t count = 0;
        qeliVLCDecodeDC444_JPEGXR_1u32s(&in.stream, &in.bitBuffer, &in.bitCount, low[p], p > 0, &count, a_.state());
        if (count == qelVLCCountOverrun) damaged();
        counts[p > 0] += count;
      }
      for (int k = 1; bits && k < 16; ++k) {
        const int32_t v = low[p][k];
        const uint32_t plain = in.take(bits);
        const uint32_t whole = uint32_t(magnitude(v)) << bits | plain;
        const bool negative = v ? v < 0 : plain && in.take(1);
        low[p][k] = int32_t(negative ? 0u - whole : whole);
      }
    }
    model.update(counts, header_.planes);
  }

  int decodeLowPattern(BitIn& in) {
    if (header_.planes == 1) return int(in.take(1));
    LowPatternModel& model = a_.lowPattern;
    int pattern = 0;
    if (model.counted()) {
      if (in.take(1)) {
        const int high = int(in.take(2));
        pattern = high ? 2 * high + int(in.take(1)) : 1;
      }
      if (model.fromFull()) pattern = 7 - pattern;
    } else {
      pattern = int(in.take(3));
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

  void decodePatterns(uint32_t (&pattern)[3], const Neighbours& n) {
    BitIn& in = this->in(kHP);
    uint32_t d[3] = {};
    const uint32_t quarters = decodeMembers(in, a_.patternCount.get(in));
    for (int q = 0; q < 4; ++q) {
      if (!(quarters >> q & 1)) continue;
      int kind = a_.blockPattern.get(in) + 1;
      uint32_t chroma = 0;  // bit 0: U, bit 1: V
      if (kind > 5) {
        chroma = in.take(1) ? 1 : in.take(1) ? 2 : 3;
        kind -= 6;
        if (kind == 3) kind += in.take(1) ? 0 : in.take(1) ? 1 : 2;
      }
      d[0] |= uint32_t(kQuarter[kQuarterFirst[kind] + in.take(kQuarterBits[kind])]) << 4 * q;
      for (int p = 1; p < 3; ++p)
        if (chroma >> (p - 1) & 1) d[p] |= decodeMembers(in, a_.chromaCount.get(in) + 1) << 4 * q;
    }
    for (int p = 0; p < header_.planes; ++p) pattern[p] = a_.highPattern.patternOf(d[p], n, p);
  }

  void decodeHigh(Macroblock& mb, const uint32_t (&pattern)[3]) {
    BitIn &in = this->in(kHP), &flex = this->in(kFlex);
    Model& model = a_.models[kHP];
    int counts[2] = {};
    for (int p = 0; p < header_.planes; ++p) {
      const int bits = model.bits(p);
      const int plain = has(kFlex) ? std::max(bits - trim_, 0) : 0;
      const auto step = uint32_t(steps_[p][kHP]);
      for (int i = 0; i < 16; ++i) {
        int32_t* const block = blockOf(mb.samples[p], kBlocks[i]);
        const bool coded = pattern[p] >> i & 1;
        if (coded) {
          int32_t count = 0;
          qeliVLCDecode4x4_JPEGXR_1u32s_C1R(&in.stream, &in.bitBuffer, &in.bitCount, int32_t(step << bits), block, 64,
                                            p > 0, &count, a_.state());
          if (count == qelVLCCountOverrun) damaged();
          counts[p > 0] += count;
        } else {
          for (int r = 0; r < 4; ++r) std::memset(block + 16 * r, 0, 16);
        }
        if (plain)
          qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(&flex.stream, &flex.bitBuffer, &flex.bitCount, block, 64, uint32_t(plain),
                                             int32_t(step << trim_), coded);
      }
    }
    model.update(counts, header_.planes);
  }

  // --- from coefficients to samples ---

  void transform(Macroblock& mb, int32_t x, int32_t y) {
    for (int p = 0; p < header_.planes; ++p) {
      int32_t* const plane = mb.samples[p];
      int32_t dc[16];
      for (int k = 0; k < 16; ++k) dc[kPlace[k]] = int32_t(uint32_t(mb.low[p][k]) * uint32_t(steps_[p][k ? kLP : kDC]));
      qeliPCTInv_JPEGXR_32s_C1IR(dc, 16, {4, 4});
      const int doubling = header_.scaled && p > 0;
      for (int b = 0; b < 16; ++b) *blockOf(plane, b) = int32_t(uint32_t(dc[b]) << doubling);
      qeliPCTInv16x16_JPEGXR_32s_C1IR(plane, 64);
    }
    store(mb, x, y);
  }

  void store(const Macroblock& mb, int32_t x, int32_t y) {
    const int shift = header_.scaled ? kFractionalBits : 0;
    const int32_t centre = (128 << shift) + (shift ? (1 << (shift - 1)) - 1 : 0);  // a half rounds down
    const int32_t columns = std::min(16, header_.width - 16 * x), rows = std::min(16, header_.height - 16 * y);
    // Loops of one kind of work each, which compilers turn into vectors.
    const auto sample = [=](uint32_t v) { return std::clamp(int32_t(v) >> shift, 0, 255); };
    for (int r = 0; r < rows; ++r) {
      uint8_t pixels[48 + 1];
      const int32_t *luma = mb.samples[0] + 16 * r, *u = mb.samples[1] + 16 * r, *v = mb.samples[2] + 16 * r;
      if (header_.planes == 1) {
        for (int c = 0; c < 16; ++c) pixels[c] = uint8_t(sample(uint32_t(luma[c]) + uint32_t(centre)));
      } else {
        int32_t pixel[16];
        for (int c = 0; c < 16; ++c) {
          const uint32_t minus = 0u - uint32_t(u[c]), blueness = uint32_t(v[c]);
          const uint32_t green = uint32_t(luma[c]) + uint32_t(centre) - uint32_t(int32_t(minus) >> 1);
          const uint32_t red = minus + green - uint32_t(int32_t(blueness + 1) >> 1), blue = blueness + red;
          pixel[c] = sample(red) | sample(green) << 8 | sample(blue) << 16;
        }
        // Four bytes at a time, of which the last is the next pixel's.
        for (int c = 0; c < 16; ++c) std::memcpy(pixels + 3 * c, &pixel[c], 4);
      }
      const int channels = header_.planes;
      std::memcpy(image_.row(16 * y + r) + size_t(channels) * 16 * size_t(x), pixels, size_t(channels * columns));
    }
  }

  const Header& header_;
  const Limits& limits_;
  Image image_;
  int bands_;          // those that there still are
  std::string wrong_;  // why some are gone
  std::vector<uint8_t> bytes_;
  std::vector<BitIn> in_;  // one, or one a band
  int trim_ = 0;
  int32_t steps_[3][3] = {};
  Adaptation a_;
};

}  // namespace

Image decodeTile(const Header& header, const std::vector<Bytes>& packets, const Limits& limits, Stages& stages) {
  // A macroblock takes a bit a band at least, and one more for the DC values of three planes.
  size_t bytes = 0;
  for (const Bytes packet : packets) bytes = std::max(bytes, packet.size());
  const uint64_t macroblocks = uint64_t(header.across()) * uint64_t(header.down());
  limits.expectData(bytes, macroblocks, uint64_t(std::min(header.packets(), 3) + (header.planes > 1)));
  limits.expectPicture(header.width, header.height, header.planes, 8);
  return Decoder(header, packets, limits).run(stages);
}

}  // namespace qelconv::jxr
