// The encoder's side of JPEG XR's macroblock layer.
#include <cmath>

#include "jpegxr.h"

namespace qelconv::jxr {
namespace {

// A bit position as the library's coders keep it, on a buffer that grows between macroblocks.
class BitOut {
 public:
  uint8_t* stream = nullptr;
  uint32_t bitBuffer = 0;
  int32_t bitCount = 0;

  // The low `count` bits of `bits`, at most 16.
  void put(uint32_t bits, int count) {
    bitCount += count;
    bitBuffer |= uint32_t(uint64_t(bits & ((1u << count) - 1)) << (32 - bitCount));
    if (bitCount > 16) {
      *stream++ = uint8_t(bitBuffer >> 24);
      *stream++ = uint8_t(bitBuffer >> 16);
      bitBuffer <<= 16;
      bitCount -= 16;
    }
  }
  void putLong(uint32_t bits, int count) {
    if (count > 16) put(bits >> 16, count - 16);
    put(bits, std::min(count, 16));
  }
  void reserve(size_t bytes) {
    const size_t used = stream ? size_t(stream - bytes_.data()) : 0;
    if (bytes_.size() - used >= bytes) return;
    bytes_.resize(2 * bytes_.size() + bytes);
    stream = bytes_.data() + used;
  }
  std::vector<uint8_t> finish() {
    for (; bitCount > 0; bitCount -= 8, bitBuffer <<= 8) *stream++ = uint8_t(bitBuffer >> 24);
    bytes_.resize(size_t(stream - bytes_.data()));
    return std::move(bytes_);
  }

 private:
  std::vector<uint8_t> bytes_;
};

// More than a macroblock can take: 48 blocks of at most 104 bytes and their plain bits.
constexpr size_t kMostBytes = 1 << 14;

// Divides with a dead zone; any rule would do, the decoder only multiplies.
class Quantizer {
 public:
  Quantizer(uint8_t index, bool scaled, bool halved)
      : step_(stepOf(index, scaled, halved)), inverse_(1.0f / float(step_)) {}
  void apply(int32_t* values, int count) const {
    if (step_ == 1) return;
    for (int i = 0; i < count; ++i) {
      const float v = float(values[i]) * inverse_;
      values[i] = int32_t(v + std::copysign(0.375f, v));
    }
  }

 private:
  int32_t step_;
  float inverse_;
};

class Encoder {
 public:
  Encoder(const Image& image, const Header& header)
      : image_(image), header_(header), a_(header), pixels_(size_t(header.across()) * 16) {
    for (int p = 0; p < header.planes; ++p)
      for (const Band band : {kDC, kLP, kHP})
        quantizers_.emplace_back(header.quantizer[band][p], header.scaled, p > 0 && band != kHP);
  }

  std::vector<uint8_t> run(Stages& stages) {
    out_.reserve(kMostBytes);
    for (const uint32_t byte : {0, 0, 1, 0}) out_.put(byte, 8);  // the packet's start code
    std::vector<Macroblock> row(size_t(header_.across()));
    for (int32_t y = 0; y < header_.down(); ++y) {
      stages.time("transform", [&] {
        load(row, y);
        for (Macroblock& mb : row) transform(mb);
      });
      stages.time("code", [&] {
        for (int32_t x = 0; x < header_.across(); ++x) code(row[size_t(x)], x, y);
      });
    }
    return out_.finish();
  }

 private:
  // --- from samples to quantised coefficients ---

  void transform(Macroblock& mb) {
    for (int p = 0; p < header_.planes; ++p) {
      int32_t* const plane = mb.samples[p];
      qeliPCTFwd16x16_JPEGXR_32s_C1IR(plane, 64);
      int32_t dc[16];
      for (int b = 0; b < 16; ++b) {
        dc[b] = *blockOf(plane, b);
        *blockOf(plane, b) = 0;
      }
      qeliPCTFwd_JPEGXR_32s_C1IR(dc, 16, {4, 4});
      const int halving = header_.scaled && p > 0;
      for (int k = 0; k < 16; ++k) mb.low[p][k] = dc[kPlace[k]] >> halving;
      quantizers_[size_t(3 * p + kDC)].apply(mb.low[p], 1);
      quantizers_[size_t(3 * p + kLP)].apply(mb.low[p] + 1, 15);
      quantizers_[size_t(3 * p + kHP)].apply(plane, 256);
    }
  }

  // A row of macroblocks: samples around 0, colours by the lossless rotation, the last column and row
  // repeated.
  void load(std::vector<Macroblock>& row, int32_t y) {
    const int shift = header_.scaled ? kFractionalBits : 0;
    const int planes = header_.planes;
    for (int r = 0; r < 16; ++r) {
      const uint8_t* const from = image_.row(std::min(16 * y + r, image_.height - 1));
      for (int32_t x = 0; x < image_.width; ++x) {
        const uint8_t* const pixel = from + size_t(planes) * size_t(x);
        pixels_[size_t(x)] = planes == 1 ? pixel[0] : pixel[0] | pixel[1] << 8 | pixel[2] << 16;
      }
      std::fill(pixels_.begin() + image_.width, pixels_.end(), pixels_[size_t(image_.width - 1)]);
      for (int32_t x = 0; x < header_.across(); ++x) {
        const int32_t* const pixels = &pixels_[16 * size_t(x)];
        Macroblock& mb = row[size_t(x)];
        for (int c = 0; c < 16; ++c) {
          const int32_t red = (pixels[c] & 255) << shift;
          if (planes == 1) {
            mb.samples[0][16 * r + c] = red - (128 << shift);  // its grey value
            continue;
          }
          const int32_t green = (pixels[c] >> 8 & 255) << shift, v = ((pixels[c] >> 16) << shift) - red;
          const int32_t u = green - red - ((v + 1) >> 1);
          mb.samples[0][16 * r + c] = green + (-u >> 1) - (128 << shift);
          mb.samples[1][16 * r + c] = u;
          mb.samples[2][16 * r + c] = v;
        }
      }
    }
  }

  // --- from coefficients to bits ---

  void code(Macroblock& mb, int32_t x, int32_t y) {
    out_.reserve(kMostBytes);
    const Neighbours n = a_.neighbours(x, y);
    const bool adapts = Adaptation::adaptsAt(x, header_);
    int32_t low[3][16];
    std::memcpy(low, mb.low, sizeof low);
    predictLow(low, n, header_.planes, -1);

    codeDC(low);
    a_.restartScans(x, 2);
    codeLow(low);
    if (adapts) a_.adaptDC(), qeliVLCAdapt_JPEGXR(a_.state(), qelVLCGroupLowPass);

    const Predict how = predictHigh(mb.low, header_.planes);
    if (how == Predict::left || how == Predict::top)
      for (int p = 0; p < header_.planes; ++p)
        unpredict(mb.samples[p], how == Predict::left ? kHighFromLeft : kHighFromTop);
    a_.restartScans(x, 0);
    a_.restartScans(x, 1);
    qeliVLCScanSet_JPEGXR(a_.state(), how == Predict::top ? qelVLCScanHighPassTop : qelVLCScanHighPass);
    uint32_t pattern[3] = {};
    for (int p = 0; p < header_.planes; ++p) pattern[p] = patternOf(mb.samples[p], a_.models[kHP].bits(p));
    codePatterns(pattern, n);
    codeHigh(mb, pattern);
    if (adapts) a_.adaptHigh();
    a_.remember(x, mb.low, pattern);
  }

  static void unpredict(int32_t* plane, const HighPrediction& how) {
    for (size_t i = how.blocks.size(); i-- > 0;)  // from the last, so that what is taken off is still whole
      for (const int place : how.places) {
        int32_t* const at = blockOf(plane, how.blocks[i]) + place;
        *at -= at[-how.from];
      }
  }

  void codeLevel(AdaptiveCode& code, uint32_t a) {
    if (a < 16) {
      const int symbol = a < 2 ? int(a) : a < 4 ? 2 : int(a / 4) + 2;
      code.put(out_, symbol);
      out_.put(a - kLevelBase[symbol], kLevelBits[symbol]);
      return;
    }
    code.put(out_, 6);
    const int length = std::bit_width(a >> 5);
    out_.put(uint32_t(std::min(length, 15)), 4);
    if (length >= 15) out_.put(uint32_t(std::min(length - 15, 3)), 2);
    if (length >= 18) out_.put(uint32_t(length - 18), 3);
    out_.putLong(a & ((1u << (length + 4)) - 1), length + 4);
  }

  void codeDC(const int32_t (&low)[3][16]) {
    Model& model = a_.models[kDC];
    int counts[2] = {}, significant = 0;
    for (int p = 0; p < header_.planes; ++p)
      significant = 2 * significant + (magnitude(low[p][0]) >> model.bits(p) != 0);
    if (header_.planes > 1) a_.dcPattern.put(out_, significant);
    else out_.put(uint32_t(significant), 1);
    for (int p = 0; p < header_.planes; ++p) {
      const auto value = uint32_t(magnitude(low[p][0])), level = value >> model.bits(p);
      if (level) codeLevel(a_.dcLevel[p > 0], level - 1), ++counts[p > 0];
      out_.put(value, model.bits(p));
      if (value) out_.put(low[p][0] < 0, 1);
    }
    model.update(counts, header_.planes);
  }

  void codeLow(const int32_t (&low)[3][16]) {
    Model& model = a_.models[kLP];
    int32_t pairs[3][32] = {}, pairCount[3] = {};
    uint32_t residual[3][16];
    int counts[2] = {}, pattern = 0;
    for (int p = 0; p < header_.planes; ++p) {
      qeliVLCScan4x4DC_JPEGXR_32s(low[p], uint32_t(model.bits(p)), residual[p], pairs[p], &pairCount[p], a_.state());
      pattern |= (pairCount[p] != 0) << p;
      counts[p > 0] += pairCount[p];
    }
    codeLowPattern(pattern);
    for (int p = 0; p < header_.planes; ++p) {
      if (pairCount[p])
        qeliVLCEncodeDC444_JPEGXR_32s1u(pairs[p], pairCount[p], p > 0, &out_.stream, &out_.bitBuffer, &out_.bitCount,
                                        a_.state());
      if (model.bits(p))
        for (int k = 1; k < 16; ++k) out_.put(residual[p][k] >> 1, model.bits(p) + int(residual[p][k] & 1));
    }
    model.update(counts, header_.planes);
  }

  void codeLowPattern(int pattern) {
    if (header_.planes == 1) return out_.put(uint32_t(pattern), 1);
    LowPatternModel& model = a_.lowPattern;
    if (model.counted()) {
      const int coded = model.fromFull() ? 7 - pattern : pattern;
      out_.put(coded != 0, 1);
      if (coded) out_.put(uint32_t(coded) >> 1, 2);
      if (coded > 1) out_.put(uint32_t(coded), 1);
    } else {
      out_.put(uint32_t(pattern), 3);
    }
    model.update(pattern);
  }

  // Bit i for block kBlocks[i] with a coefficient of more than its low bits.
  static uint32_t patternOf(const int32_t* plane, int modelBits) {
    uint32_t pattern = 0;
    for (int by = 0; by < 4; ++by) {
      uint32_t any[16] = {};
      for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 16; ++c) any[c] |= uint32_t(std::abs(plane[64 * by + 16 * r + c]));
      for (int bx = 0; bx < 4; ++bx)
        if ((any[4 * bx] | any[4 * bx + 1] | any[4 * bx + 2] | any[4 * bx + 3]) >> modelBits)
          pattern |= 1u << (by / 2 * 8 + bx / 2 * 4 + by % 2 * 2 + bx % 2);
    }
    return pattern;
  }

  // Which ones of four, less how many, which the symbol in front has told.
  void codeMembers(uint32_t four) {
    switch (std::popcount(four)) {
      case 1:
        return out_.put(uint32_t(std::countr_zero(four)), 2);
      case 2:
        if (four == 3 || four == 5) return out_.put(four == 5, 2);
        return out_.put(four == 6 ? 4 : four == 9 ? 5 : four == 10 ? 6 : 7, 3);
      case 3:
        return out_.put(uint32_t(std::countr_one(four)), 2);
      default:
        return;
    }
  }

  void codePatterns(const uint32_t (&pattern)[3], const Neighbours& n) {
    uint32_t d[3] = {}, any = 0, quarters = 0;
    for (int p = 0; p < header_.planes; ++p) any |= d[p] = a_.highPattern.differenceOf(pattern[p], n, p);
    for (int q = 0; q < 4; ++q) quarters |= uint32_t((any >> 4 * q & 15) != 0) << q;
    a_.patternCount.put(out_, std::popcount(quarters));
    codeMembers(quarters);
    for (int q = 0; q < 4; ++q) {
      if (!(quarters >> q & 1)) continue;
      const uint32_t y = d[0] >> 4 * q & 15, u = d[1] >> 4 * q & 15, v = d[2] >> 4 * q & 15;
      const int place = int(std::find(kQuarter, kQuarter + 16, y) - kQuarter);
      int kind = 0;
      while (place < kQuarterFirst[kind] || place >= kQuarterFirst[kind] + (1 << kQuarterBits[kind])) ++kind;
      if (u | v) {
        a_.blockPattern.put(out_, std::min(kind, 3) + 5);
        out_.put(!v, 1);  // U alone
        if (v) out_.put(!u, 1);
        if (kind >= 3) out_.put(kind == 3, 1);
        if (kind > 3) out_.put(kind == 4, 1);
      } else {
        a_.blockPattern.put(out_, kind - 1);
      }
      out_.put(uint32_t(place - kQuarterFirst[kind]), kQuarterBits[kind]);
      for (const uint32_t chroma : {u, v})
        if (chroma) {
          a_.chromaCount.put(out_, std::popcount(chroma) - 1);
          codeMembers(chroma);
        }
    }
  }

  void codeHigh(Macroblock& mb, const uint32_t (&pattern)[3]) {
    Model& model = a_.models[kHP];
    int counts[2] = {};
    for (int p = 0; p < header_.planes; ++p) {
      const auto bits = uint32_t(model.bits(p));
      for (int i = 0; i < 16; ++i) {
        const int32_t* const block = blockOf(mb.samples[p], kBlocks[i]);
        const bool coded = pattern[p] >> i & 1;
        uint32_t residual[16];
        int32_t count = 0;
        if (coded && bits)
          qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(block, 64, p > 0, bits, 0, residual, &out_.stream, &out_.bitBuffer,
                                                &out_.bitCount, &count, a_.state());
        else if (coded)
          qeliVLCEncode4x4_JPEGXR_32s1u_C1R(block, 64, p > 0, 0, &out_.stream, &out_.bitBuffer, &out_.bitCount, &count,
                                            a_.state());
        if (bits)
          qeliFLCEncode4x4_JPEGXR_32s1u_C1R(block, 64, residual, &out_.stream, &out_.bitBuffer, &out_.bitCount, bits, 0,
                                            coded);
        counts[p > 0] += count;
      }
    }
    model.update(counts, header_.planes);
  }

  const Image& image_;
  const Header& header_;
  Adaptation a_;
  std::vector<Quantizer> quantizers_;  // by plane, then band
  std::vector<int32_t> pixels_;        // one row
  BitOut out_;
};

}  // namespace

std::vector<uint8_t> encodeTile(const Image& image, const Header& header, Stages& stages) {
  return Encoder(image, header).run(stages);
}

}  // namespace qelconv::jxr
