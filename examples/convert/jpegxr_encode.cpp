// The encoder's side of JPEG XR's macroblock layer.
#include <cmath>
#include <optional>

#include "jpegxr_overlap.h"

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
  void reserve(size_t bytes) { stream = packet_.room(stream, bytes); }
  Packet finish() {
    reserve(4);
    for (; bitCount > 0; bitCount -= 8, bitBuffer <<= 8) *stream++ = uint8_t(bitBuffer >> 24);
    packet_.close(stream);
    return std::move(packet_);
  }

 private:
  Packet packet_;
};

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

// A tile's packets as they grow.
struct Tile {
  std::vector<BitOut> out;  // one, or one a band
  Adaptation adaptation;
  BitOut& at(Band band) { return out[std::min(size_t(band), out.size() - 1)]; }
};

// From the picture to rows of samples around 0, colours by the lossless rotations, the last column and row repeated.
class Load {
 public:
  Load(const Shape& shape, const Header& header, const Rows& rows) : shape_(shape), header_(header), rows_(rows) {}

  void row(std::vector<Plane>& planes, int32_t row) {
    const int32_t width = 16 * header_.across();
    const PlaneHeader& plane = header_.main;
    const bool halfRows = plane.coded == Coded::yuv420;
    for (int32_t r = 0; r < 16; ++r) {
      const int32_t y = 16 * row + r;
      const uint8_t* const from = rows_.row(std::min(y, shape_.height - 1));
      int32_t* to[kMaxPlanes];
      for (int p = 0; p < plane.planes(); ++p) {
        if (p && plane.subsampled()) {
          full_[p - 1].resize(size_t(width));
          to[p] = full_[p - 1].data();
        } else {
          to[p] = planes[size_t(p)].samples[y];
        }
      }
      convert(from, to);
      for (int p = 0; p < plane.planes(); ++p) std::fill(to[p] + shape_.width, to[p] + width, to[p][shape_.width - 1]);
      if (!plane.subsampled()) continue;
      for (int p = 1; p < 3; ++p) {
        auto& line = lines_[p - 1][y & 1];
        narrow(full_[p - 1], line);
        LastRows& samples = planes[size_t(p)].samples;
        // Of 4:2:0 a row is the weighted mean of three, the last of which comes behind it.
        if (!halfRows) {
          for (size_t x = 0; x < line.size(); ++x) samples[y][x] = (line[x] + 2) >> 2;
        } else if (r % 2 == 0) {
          auto& above = lines_[p - 1][1];
          if (y == 0) above = line;
          for (size_t x = 0; x < line.size(); ++x) samples[y / 2][x] = above[x] + 2 * line[x] + 8;
        } else {
          for (size_t x = 0; x < line.size(); ++x) samples[y / 2][x] = (samples[y / 2][x] + line[x]) >> 4;
        }
      }
    }
  }

 private:
  // The weighted sum of a sample and its neighbours, at every second one.
  static void narrow(const std::vector<int32_t>& from, std::vector<int32_t>& to) {
    to.resize(from.size() / 2);
    for (size_t x = 0; x < to.size(); ++x) to[x] = from[2 * x - (x > 0)] + 2 * from[2 * x] + from[2 * x + 1];
  }

  int32_t sample(const uint8_t* row, size_t i) const {
    if (shape_.bits <= 8) return row[i];
    uint16_t v;
    std::memcpy(&v, row + 2 * i, 2);
    return shape_.half && v & 0x8000 ? -(v & 0x7FFF) : v;
  }

  void convert(const uint8_t* from, int32_t* const (&to)[kMaxPlanes]) const {
    const int shift = header_.main.fraction();
    const int32_t centre = centreOf(header_.depth) << shift;
    const auto n = size_t(shape_.channels());
    const auto value = [=, this](int32_t x, size_t c) { return sample(from, size_t(x) * n + c) << shift; };
    switch (header_.main.coded) {
      case Coded::grey:
        for (int32_t x = 0; x < shape_.width; ++x) to[0][x] = value(x, 0) - centre;
        break;
      case Coded::cmyk:
        for (int32_t x = 0; x < shape_.width; ++x) {
          int32_t c = value(x, 0), m = value(x, 1), y = value(x, 2), k = value(x, 3);
          y -= c;
          c += ((y + 1) >> 1) - m;
          m += (c >> 1) - k;
          k += (m + 1) >> 1;
          to[0][x] = centre - m, to[1][x] = c, to[2][x] = -y, to[3][x] = k;
        }
        break;
      default:
        if (shape_.bits == 8)
          rotate(
              [=](int32_t first, int32_t count, int32_t(&colours)[3][kSome]) {
                // Four bytes at a time, of which the last is the next pixel's.
                uint32_t pixels[kSome];
                const uint8_t* const some = from + 3 * first;
                for (int32_t x = 0; x + 1 < count; ++x) std::memcpy(pixels + x, some + 3 * x, 4);
                pixels[count - 1] = 0;
                std::memcpy(pixels + count - 1, some + 3 * (count - 1), 3);
                for (int32_t x = 0; x < count; ++x)
                  for (int c = 0; c < 3; ++c) colours[c][x] = int32_t(pixels[x] >> 8 * c & 0xFF);
              },
              to);
        else
          rotate(
              [=, this](int32_t first, int32_t count, int32_t(&colours)[3][kSome]) {
                for (int32_t x = 0; x < count; ++x)
                  for (int c = 0; c < 3; ++c) colours[c][x] = sample(from, size_t(first + x) * n + size_t(c));
              },
              to);
    }
  }

  // Some pixels at a time, in loops of one kind of work each, which compilers turn into vectors.
  static constexpr int32_t kSome = 256;
  template <class Split>  // split(first, count, colours): the colours of some pixels
  void rotate(Split&& split, int32_t* const (&to)[kMaxPlanes]) const {
    const int shift = header_.main.fraction();
    const int32_t width = shape_.width, centre = centreOf(header_.depth) << shift;
    int32_t colours[3][kSome];
    for (int32_t first = 0; first < width; first += kSome) {
      const int32_t n = std::min(width - first, kSome);
      split(first, n, colours);
      int32_t *const luma = to[0] + first, *const u = to[1] + first, *const v = to[2] + first;
      for (int32_t x = 0; x < n; ++x) {
        const int32_t red = colours[0][x] << shift, green = colours[1][x] << shift;
        const int32_t other = (colours[2][x] << shift) - red;
        const int32_t difference = green - red - ((other + 1) >> 1);
        luma[x] = green + (-difference >> 1) - centre;
        u[x] = difference;
        v[x] = other;
      }
    }
  }

  const Shape& shape_;
  const Header& header_;
  const Rows& rows_;
  std::vector<int32_t> full_[2], lines_[2][2];  // of chroma: a whole row, and narrow ones by their parity
};

class Encoder : public TileEncoder {
 public:
  Encoder(const Shape& shape, const Header& header) : shape_(shape), header_(header), plane_(header_.main) {
    for (int p = 0; p < plane_.planes(); ++p)
      for (const Band band : {kDC, kLP, kHP})
        quantizers_.emplace_back(plane_.quantizer[band][p], plane_.scaled, plane_.halved(p) && band != kHP);
  }

  // Each step waits for the overlap with the next row.
  std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t slots) override {
    // The rows of macroblocks that are whole behind a strip.
    const auto end = [=, this](int32_t strip) {
      const int32_t there = strip < 0 ? 0 : strips.behind(strip);
      return there == shape_.height ? header_.down() : there / 16;
    };
    const int32_t lag = header_.sampleLag() + header_.lowLag();
    // From the last strip that may be in the works to the first one, and what that one looks back to.
    int32_t kept = 1;
    for (int32_t strip = 0; strip < strips.strips; ++strip)
      kept = std::max(kept, end(std::min(strip + slots - 1, strips.strips) - 1) - end(strip - 1) + lag);
    for (int p = 0; p < plane_.planes(); ++p) planes_.emplace_back(header_, plane_.grid(p), kept);
    load_.emplace(shape_, header_, rows);
    const auto isLast = [=](int32_t strip) { return strip + 1 == strips.strips; };
    return {{"transform", true,
             [=, this](int32_t strip) {
               const int32_t behind = end(strip) + (isLast(strip) ? header_.sampleLag() + header_.lowLag() : 0);
               for (int32_t y = end(strip - 1); y < behind; ++y) transformSamples(y);
             }},
            {"code", true, [=, this](int32_t strip) {
               for (int32_t y = end(strip - 1) - lag; y < end(strip) - (isLast(strip) ? 0 : lag); ++y)
                 if (y >= 0) codeRow(y);
             }}};
  }

 private:
  Quantizer& quantizer(int p, Band band) { return quantizers_[size_t(3 * p + band)]; }

  // --- from samples to quantised coefficients ---

  // With row `row` there, as far as each transform gets.
  void transformSamples(int32_t row) {
    if (row < header_.down()) load_->row(planes_, row);
    if (header_.overlap > 0 && row <= header_.down())
      for (Plane& plane : planes_) overlapSamples(plane, header_, row, Filter::pre);
    if (row >= header_.sampleLag()) transformLow(row - header_.sampleLag());
  }

  // The first transform of a row, and the filters of the second one.
  void transformLow(int32_t row) {
    for (int p = 0; p < plane_.planes(); ++p) {
      Plane& plane = planes_[size_t(p)];
      if (row < header_.down()) {
        const int rows = plane.samples.perMacroblock();
        qeliPCTFwd_JPEGXR_32s_C1IR(plane.samples[row * rows], plane.samples.step(), {plane.samples.width(), rows});
        for (int r = 0; r < plane.grid.down; ++r) {
          int32_t* const from = plane.samples[row * rows + 4 * r];
          int32_t* const to = plane.low[row * plane.grid.down + r];
          for (int32_t b = 0, width = plane.low.width(); b < width; ++b) to[b] = from[4 * b], from[4 * b] = 0;
        }
        for (int r = 0; r < rows; ++r) quantizer(p, kHP).apply(plane.samples[row * rows + r], plane.samples.width());
      }
      if (header_.overlap > 1) overlapLow(plane, header_, row, Filter::pre);
    }
  }

  void quantizedLow(Low& low, int32_t column, int32_t row) {
    for (int p = 0; p < plane_.planes(); ++p) {
      Plane& plane = planes_[size_t(p)];
      const int32_t* const from = plane.lowOf(column, row);
      for (int k = 0; k < plane.grid.count(); ++k) low[p][k] = from[plane.lowPlaces[size_t(k)]] >> plane_.halved(p);
      quantizer(p, kDC).apply(low[p], 1);
      quantizer(p, kLP).apply(low[p] + 1, plane.grid.count() - 1);
    }
  }

  void transformRow(int32_t row) {
    for (Plane& plane : planes_) {
      if (plane.grid.count() == 16) {
        qeliPCTFwd_JPEGXR_32s_C1IR(plane.low[4 * row], plane.low.step(), {plane.low.width(), 4});
        continue;
      }
      uint32_t* rows[4];
      for (int r = 0; r < plane.grid.down; ++r)
        rows[r] = reinterpret_cast<uint32_t*>(plane.low[row * plane.grid.down + r]);
      for (int32_t x = 0; x < plane.low.width(); x += 2) {
        for (int r = 0; r < plane.grid.down; r += 2)
          hadamard(rows[r][x], rows[r][x + 1], rows[r + 1][x], rows[r + 1][x + 1]);
        if (plane.grid.down == 4) rows[2][x] -= rows[0][x], rows[0][x] += sar(rows[2][x] + 1, 1);
      }
    }
  }

  // --- from coefficients to bits ---

  void codeRow(int32_t y) {
    transformRow(y);
    const auto above = std::upper_bound(header_.rows.begin(), header_.rows.end(), y) - 1;
    const size_t count = header_.columns.size() - 1;
    if (*above == y) {
      tiles_.clear();
      for (size_t t = 0; t < count; ++t) {
        tiles_.push_back({std::vector<BitOut>(header_.frequency ? 4 : 1),
                          Adaptation(plane_, header_.columns[t + 1] - header_.columns[t])});
        for (size_t i = 0; i < tiles_[t].out.size(); ++i) {
          tiles_[t].out[i].reserve(kMargin);
          for (const uint32_t byte : {0u, 0u, 1u, uint32_t(i)}) tiles_[t].out[i].put(byte, 8);  // the start code
        }
      }
    }
    for (size_t t = 0; t < count; ++t)
      for (int32_t x = header_.columns[t]; x < header_.columns[t + 1]; ++x)
        code(tiles_[t], x - header_.columns[t], y - *above, x, y);
    if (y + 1 == above[1])
      for (Tile& tile : tiles_) {
        packets.emplace_back();
        for (BitOut& out : tile.out) packets.back().push_back(out.finish());
      }
  }

  // Macroblock (x, y) of a tile.
  void code(Tile& tile, int32_t x, int32_t y, int32_t column, int32_t row) {
    for (BitOut& out : tile.out) out.reserve(kMargin);
    Adaptation& a = tile.adaptation;
    auto& [whole, pattern] = a.begin(x);
    const Neighbours n = a.neighbours(x, y);
    const bool adapts = a.adaptsAt(x);
    Low low;
    quantizedLow(whole, column, row);
    std::memcpy(low, whole, sizeof low);
    predictLow(low, n, plane_, -1);

    codeDC(tile.at(kDC), a, low);
    a.restartScans(x, qelVLCScanLowPass);
    codeLow(tile.at(kLP), a, low);
    if (adapts) a.adaptDC(), qeliVLCAdapt_JPEGXR(a.state(), qelVLCGroupLowPass);

    const Predict how = predictHigh(whole, plane_);
    for (Plane& plane : planes_) predictHighBlocks(plane, column, row, how, -1);
    a.restartScans(x, qelVLCScanHighPassTop);
    a.restartScans(x, qelVLCScanHighPass);
    qeliVLCScanSet_JPEGXR(a.state(), how == Predict::top ? qelVLCScanHighPassTop : qelVLCScanHighPass);
    for (int p = 0; p < plane_.planes(); ++p)
      pattern[p] = patternOf(planes_[size_t(p)], column, row, a.models[kHP].bits(p));
    codePatterns(tile.at(kHP), a, pattern, n);
    codeHigh(tile, column, row, pattern);
    if (adapts) a.adaptHigh();
  }

  static void codeLevel(BitOut& out, AdaptiveCode& code, uint32_t v) {
    if (v < 16) {
      const int symbol = v < 2 ? int(v) : v < 4 ? 2 : int(v / 4) + 2;
      code.put(out, symbol);
      out.put(v - kLevelBase[symbol], kLevelBits[symbol]);
      return;
    }
    code.put(out, 6);
    const int length = std::bit_width(v >> 5);
    out.put(uint32_t(std::min(length, 15)), 4);
    if (length >= 15) out.put(uint32_t(std::min(length - 15, 3)), 2);
    if (length >= 18) out.put(uint32_t(length - 18), 3);
    out.putLong(v & ((1u << (length + 4)) - 1), length + 4);
  }

  void codeDC(BitOut& out, Adaptation& a, const Low& low) {
    Model& model = a.models[kDC];
    int counts[2] = {};
    const auto significant = [&](int p) { return uint32_t(magnitude(low[p][0]) >> model.bits(p) != 0); };
    if (plane_.yuv()) a.dcPattern.put(out, int(4 * significant(0) + 2 * significant(1) + significant(2)));
    for (int p = 0; p < plane_.planes(); ++p) {
      if (!plane_.yuv()) out.put(significant(p), 1);
      const auto value = uint32_t(magnitude(low[p][0])), level = value >> model.bits(p);
      if (level) codeLevel(out, a.levelOf(p), level - 1), ++counts[p > 0];
      out.put(value, model.bits(p));
      if (value) out.put(low[p][0] < 0, 1);
    }
    model.update(counts);
  }

  void codeLow(BitOut& out, Adaptation& a, const Low& low) {
    Model& model = a.models[kLP];
    const int full = plane_.subsampled() ? 1 : plane_.planes();
    int32_t pairs[kMaxPlanes][32], pairCount[kMaxPlanes] = {};
    uint32_t residual[kMaxPlanes][16];
    int counts[2] = {}, pattern = 0;
    for (int p = 0; p < full; ++p) {
      qeliVLCScan4x4DC_JPEGXR_32s(low[p], uint32_t(model.bits(p)), residual[p], pairs[p], &pairCount[p], a.state());
      counts[p > 0] += pairCount[p];
    }
    if (plane_.subsampled()) counts[1] = pairCount[1] = chromaPairs(low, model.bits(1), pairs[1]);
    for (int p = 0; p < plane_.planes(); ++p) pattern |= (pairCount[p] != 0) << p;
    codeLowPattern(out, a, pattern);
    for (int p = 0; p < full; ++p) {
      if (pairCount[p])
        qeliVLCEncodeDC444_JPEGXR_32s1u(pairs[p], pairCount[p], p > 0, &out.stream, &out.bitBuffer, &out.bitCount,
                                        a.state());
      if (model.bits(p))
        for (int k = 1; k < 16; ++k) out.put(residual[p][k] >> 1, model.bits(p) + int(residual[p][k] & 1));
    }
    if (plane_.subsampled()) codeLowChroma(out, a, low, pairs[1], pairCount[1]);
    model.update(counts);
  }

  // Runs and levels of U and V in turns; returns their number.
  int32_t chromaPairs(const Low& low, int bits, int32_t (&pairs)[32]) const {
    int32_t count = 0, run = 0;
    for (const uint8_t place : lowPlaces(plane_.coded))
      for (const int p : {1, 2}) {
        const int32_t v = low[p][place], level = int32_t(magnitude(v) >> bits);
        if (!level) {
          ++run;
          continue;
        }
        pairs[2 * count] = run, pairs[2 * count + 1] = v < 0 ? -level : level;
        ++count, run = 0;
      }
    return count;
  }

  void codeLowChroma(BitOut& out, Adaptation& a, const Low& low, const int32_t* pairs, int32_t count) {
    const auto code = plane_.coded == Coded::yuv420 ? qeliVLCEncodeDC420_JPEGXR_32s1u : qeliVLCEncodeDC422_JPEGXR_32s1u;
    if (count) code(pairs, count, &out.stream, &out.bitBuffer, &out.bitCount, a.state());
    const int bits = a.models[kLP].bits(1);
    for (size_t k = 1; bits && k <= lowPlaces(plane_.coded).size(); ++k)
      for (const int p : {1, 2}) {
        const auto value = uint32_t(magnitude(low[p][k]));
        out.put(value, bits);
        if (value && !(value >> bits)) out.put(low[p][k] < 0, 1);
      }
  }

  void codeLowPattern(BitOut& out, Adaptation& a, int pattern) {
    if (!plane_.yuv()) {
      for (int p = 0; p < plane_.planes(); ++p) out.put(uint32_t(pattern >> p), 1);
      return;
    }
    LowPatternModel& model = a.lowPattern;
    if (model.counted()) {
      const int coded = model.fromFull() ? model.all() - pattern : pattern;
      out.put(coded != 0, 1);
      if (coded) out.put(uint32_t(coded) >> 1, model.bits - 1);
      if (coded > 1) out.put(uint32_t(coded), 1);
    } else {
      out.put(uint32_t(pattern), model.bits);
    }
    model.update(pattern);
  }

  // A bit for every block with a coefficient of more than its low bits, in coding order.
  static uint32_t patternOf(Plane& plane, int32_t column, int32_t row, int modelBits) {
    uint32_t pattern = 0;
    const int32_t* const first = plane.macroblock(column, row);
    for (int i = 0; i < plane.grid.count(); ++i) {
      const int32_t* const block = first + plane.blocks[size_t(i)];
      Lanes all = {};
      for (int r = 0; r < 4; ++r) {
        const Lanes v = lanesAt(block + r * plane.samples.apart()), sign = sar(v, 31);
        all |= (v ^ sign) - sign;
      }
      uint64_t halves[2];
      std::memcpy(halves, &all, sizeof all);
      const uint64_t two = halves[0] | halves[1];
      pattern |= uint32_t(uint32_t(two | two >> 32) >> modelBits != 0) << i;
    }
    return pattern;
  }

  // Which ones of four, less how many, which the symbol in front has told.
  static void codeMembers(BitOut& out, uint32_t four) {
    switch (std::popcount(four)) {
      case 1:
        return out.put(uint32_t(std::countr_zero(four)), 2);
      case 2:
        if (four == 3 || four == 5) return out.put(four == 5, 2);
        return out.put(four == 6 ? 4 : four == 9 ? 5 : four == 10 ? 6 : 7, 3);
      case 3:
        return out.put(uint32_t(std::countr_one(four)), 2);
      default:
        return;
    }
  }

  // The bits of a plane's pattern that belong to a quarter of the macroblock.
  uint32_t quarterOf(uint32_t pattern, int p, int q) const {
    switch (plane_.grid(p).count()) {
      case 16:
        return pattern >> 4 * q & 15;
      case 8:
        return pattern >> kPairs422[q] & 5;
      default:
        return pattern >> q & 1;
    }
  }

  void codePatterns(BitOut& out, Adaptation& a, const uint32_t (&pattern)[kMaxPlanes], const Neighbours& n) {
    uint32_t d[kMaxPlanes] = {};
    for (int p = 0; p < plane_.planes(); ++p)
      d[p] = a.highPattern.differenceOf(pattern[p], n, p, planes_[size_t(p)].grid);
    // Luma and chroma together, or planes one by one.
    for (int first = 0; first < (plane_.yuv() ? 1 : plane_.planes()); ++first) {
      const auto chroma = [&](int p, int q) { return plane_.yuv() ? quarterOf(d[p], p, q) : 0; };
      uint32_t quarters = 0;
      for (int q = 0; q < 4; ++q)
        quarters |= uint32_t(((d[first] >> 4 * q & 15) | chroma(1, q) | chroma(2, q)) != 0) << q;
      a.patternCount.put(out, std::popcount(quarters));
      codeMembers(out, quarters);
      for (int q = 0; q < 4; ++q)
        if (quarters >> q & 1) codeQuarter(out, a, d[first] >> 4 * q & 15, chroma(1, q), chroma(2, q));
    }
  }

  void codeQuarter(BitOut& out, Adaptation& a, uint32_t luma, uint32_t u, uint32_t v) {
    const int place = int(std::find(kQuarter, kQuarter + 16, luma) - kQuarter);
    int kind = 0;
    while (place < kQuarterFirst[kind] || place >= kQuarterFirst[kind] + (1 << kQuarterBits[kind])) ++kind;
    if (u | v) {
      a.blockPattern.put(out, std::min(kind, 3) + 5);
      out.put(!v, 1);  // U alone
      if (v) out.put(!u, 1);
      if (kind >= 3) out.put(kind == 3, 1);
      if (kind > 3) out.put(kind == 4, 1);
    } else {
      a.blockPattern.put(out, kind - 1);
    }
    out.put(uint32_t(place - kQuarterFirst[kind]), kQuarterBits[kind]);
    for (const uint32_t chroma : {u, v}) {
      if (!chroma || plane_.coded == Coded::yuv420) continue;
      if (plane_.coded == Coded::yuv422) {
        out.put(chroma == 1, 1);
        if (chroma != 1) out.put(chroma == 4, 1);
      } else {
        a.chromaCount.put(out, std::popcount(chroma) - 1);
        codeMembers(out, chroma);
      }
    }
  }

  void codeHigh(Tile& tile, int32_t column, int32_t row, const uint32_t (&pattern)[kMaxPlanes]) {
    BitOut &out = tile.at(kHP), &flex = tile.at(kFlex);
    Adaptation& a = tile.adaptation;
    Model& model = a.models[kHP];
    int counts[2] = {};
    for (int p = 0; p < plane_.planes(); ++p) {
      Plane& plane = planes_[size_t(p)];
      const auto bits = uint32_t(model.bits(p));
      const int32_t step = plane.samples.step();
      const int32_t* const first = plane.macroblock(column, row);
      for (int i = 0; i < plane.grid.count(); ++i) {
        const int32_t* const block = first + plane.blocks[size_t(i)];
        const bool coded = pattern[p] >> i & 1;
        uint32_t residual[16];
        int32_t count = 0;
        if (coded && bits)
          qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(block, step, p > 0, bits, 0, residual, &out.stream, &out.bitBuffer,
                                                &out.bitCount, &count, a.state());
        else if (coded)
          qeliVLCEncode4x4_JPEGXR_32s1u_C1R(block, step, p > 0, 0, &out.stream, &out.bitBuffer, &out.bitCount, &count,
                                            a.state());
        if (bits)
          qeliFLCEncode4x4_JPEGXR_32s1u_C1R(block, step, residual, &flex.stream, &flex.bitBuffer, &flex.bitCount, bits,
                                            0, coded);
        counts[p > 0] += count;
      }
    }
    model.update(counts);
  }

  const Shape shape_;
  const Header header_;
  const PlaneHeader& plane_;
  std::optional<Load> load_;
  std::vector<Plane> planes_;
  std::vector<Quantizer> quantizers_;  // by plane, then band
  std::vector<Tile> tiles_;            // of the current row
};

}  // namespace

std::unique_ptr<TileEncoder> encodeTiles(const Shape& shape, const Header& header) {
  return std::make_unique<Encoder>(shape, header);
}

}  // namespace qelconv::jxr
