// Code-blocks to pixels.
#include <omp.h>

#include <algorithm>
#include <cmath>

#include "jpeg2000.h"
#include "jpeg2000_parallel.h"

namespace qelconv::jpeg2000 {
namespace {

// One thread's memory for decoding blocks.
struct BlockDecoder {
  std::vector<uint8_t> state;
  std::vector<int32_t> samples;
  std::vector<uint32_t> lengths;

  // Decodes a block as far as it is whole; gives whether all of it is.
  bool decode(const Coding& coding, int bits, TileComponent& c, const Band& band, const Block& b) {
    if (!b.included || b.segments.empty()) return true;
    const int32_t w = b.area.width(), h = b.area.height();
    // Irreversible samples get one more plane below the lowest, for the middle of the last interval.
    const int half = coding.reversible ? 0 : 1;
    const int coded = band.planes - b.zeroPlanes, planes = coded + half;
    if (coded < 1 || planes > 31) return false;
    uint32_t passes = 0;
    lengths.clear();
    for (const Segment& s : b.segments) passes += uint32_t(s.passes), lengths.push_back(uint32_t(s.length));
    const uint32_t most = uint32_t(3 * coded - 2);

    int32_t bytes = 0;
    expectOk(qeliDecodeGetBufSize_JPEG2K({w, h}, &bytes), "asking for a block's state");
    state.resize(std::max(state.size(), size_t(bytes)));
    samples.resize(size_t(w) * size_t(h));
    // A corrupted segment ends the block: what was decoded of it stands.
    static const uint8_t none = 0;
    const QelStatus status = qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(
        b.data.empty() ? &none : b.data.data(), samples.data(), 4 * w, {w, h}, libraryBand(band.kind), uint32_t(planes),
        std::min(passes, most), lengths.data(), int32_t(lengths.size()),
        libraryStyle(coding.style) | qelCodeStyleKeepMidPoint, nullptr, state.data());
    const float scale = float(std::ldexp(band.step, fractionBits(bits) - half));
    for (int32_t y = 0; y < h; ++y) {
      const int32_t* from = &samples[size_t(y) * size_t(w)];
      int32_t* to = &c.data[size_t(b.y + y) * size_t(c.area.width()) + size_t(b.x)];
      if (coding.reversible)
        for (int32_t x = 0; x < w; ++x) {
          const int32_t magnitude = from[x] & INT32_MAX;
          to[x] = from[x] < 0 ? -magnitude : magnitude;
        }
      else
        for (int32_t x = 0; x < w; ++x) {
          const float magnitude = std::min(float(from[x] & INT32_MAX) * scale + 0.5f, 1.0e9f);
          to[x] = from[x] < 0 ? -int32_t(magnitude) : int32_t(magnitude);
        }
    }
    return status == qelStatusOk && passes <= most;
  }
};

void invertWavelet(const Coding& coding, TileComponent& c) {
  std::vector<uint8_t> buffer(workBytes(coding, c));
  for (int r = 1; r <= coding.levels; ++r) {
    const Area& a = c.resolutions[size_t(r)].area;
    if (a.empty()) continue;
    const QelRect rect{a.x0, a.y0, a.width(), a.height()};
    const auto work = coding.reversible ? qeliWTInv_B53_JPEG2K_32s_C1IR : qeliWTInv_D97_JPEG2K_32s_C1IR;
    expectOk(work(c.data.data(), 4 * c.area.width(), &rect, buffer.data()), "the wavelet");
  }
}

template <class Sample, class Value>
void storePlane(const Value* from, int32_t shift, Sample* to, size_t channels, int32_t width, int top) {
  for (int32_t x = 0; x < width; ++x) {
    int32_t v;
    if constexpr (std::is_same_v<Value, float>) v = int32_t(std::floor(std::clamp(from[x], -1e6f, 1e6f) + 0.5f));
    else v = from[x];
    to[size_t(x) * channels] = Sample(std::clamp(v + shift, 0, top));
  }
}

// Rows `first` to `end` of a tile's planes; planes[c] begins with the first of them.
template <class Value>
void storeSamples(const Parameters& p, const Tile& tile, const std::vector<const Value*>& planes, int32_t first,
                  int32_t end, Image& image) {
  const int32_t w = tile.area.width(), shift = 1 << (p.bits[0] - 1), top = (1 << p.bits[0]) - 1;
  const size_t channels = planes.size();
  for (size_t c = 0; c < channels; ++c)
    for (int32_t y = first; y < end; ++y) {
      const Value* from = planes[c] + size_t(y - first) * size_t(w);
      uint8_t* row = image.row(tile.area.y0 + y - p.y0) + size_t(tile.area.x0 - p.x0) * size_t(image.pixelBytes());
      if (image.sampleBytes() == 1) storePlane(from, shift, row + c, channels, w, top);
      else storePlane(from, shift, reinterpret_cast<uint16_t*>(row) + c, channels, w, top);
    }
}

void storePixels(const Parameters& p, Tile& tile, Image& image) {
  auto& c = tile.components;
  const int32_t w = tile.area.width(), step = 4 * w;
  bool reversible = true;
  for (const Coding& coding : p.coding) reversible &= coding.reversible;
  const float scale = 1.0f / float(1 << fractionBits(p.bits[0]));
  inStrips(w, tile.area.height(), [&](int32_t first, int32_t end) {
    const size_t start = size_t(first) * size_t(w), samples = size_t(end - first) * size_t(w);
    if (reversible) {
      if (p.colourTransform) {
        int32_t* planes[3] = {&c[0].data[start], &c[1].data[start], &c[2].data[start]};
        expectOk(qeliRCTInv_JPEG2K_32s_P3IR(planes, step, {w, end - first}), "the colour transform");
      }
      std::vector<const int32_t*> planes;
      for (auto& component : c) planes.push_back(&component.data[start]);
      return storeSamples(p, tile, planes, first, end, image);
    }
    std::vector<std::vector<float>> floats(c.size());
    for (size_t i = 0; i < c.size(); ++i) {
      floats[i].resize(samples);
      const float factor = p.coding[i].reversible ? 1.0f : scale;
      for (size_t k = 0; k < samples; ++k) floats[i][k] = float(c[i].data[start + k]) * factor;
    }
    if (p.colourTransform) {
      float* planes[3] = {floats[0].data(), floats[1].data(), floats[2].data()};
      expectOk(qeliICTInv_JPEG2K_32f_P3IR(planes, step, {w, end - first}), "the colour transform");
    }
    std::vector<const float*> planes;
    for (auto& f : floats) planes.push_back(f.data());
    storeSamples(p, tile, planes, first, end, image);
  });
}

// Decodes tiles one at a time on all cores, or as many at a time as there are cores.
class TileDecoder {
 public:
  TileDecoder(const Codestream& stream, const Limits& limits, Image& image, Stages* stages)
      : stream_(stream), p_(stream.parameters), limits_(limits), image_(image), stages_(stages), wrong_(limits) {}

  void decode(int32_t index) {
    const auto& parts = stream_.tileParts[size_t(index)];
    if (parts.empty()) {
      wrong_.note(size_t(index), "tiles are missing");
      return fillGrey(index);
    }
    Tile tile;
    time("packets", [&] {
      tile = layOut(p_, index);
      for (const Bytes part : parts) tile.coded.insert(tile.coded.end(), part.begin(), part.end());
      const std::string wrong = readPackets(p_, tile, limits_, visits_);
      if (!wrong.empty()) wrong_.note(size_t(index), wrong);
      for (auto& c : tile.components) c.data.resize(size_t(c.area.width()) * size_t(c.area.height()));
    });
    time("block decoding", [&] {
      const auto jobs = allBlocks({&tile, 1});
      std::vector<BlockDecoder> decoders{size_t(omp_get_max_threads())};
      inParallel(jobs.size(), [&](size_t i) {
        const BlockJob& job = jobs[i];
        BlockDecoder& decoder = decoders[size_t(omp_get_thread_num())];
        if (!decoder.decode(p_.coding[job.componentIndex], p_.bits[0], *job.component, *job.band, *job.block))
          wrong_.note(size_t(index), "a code-block is damaged");
      });
    });
    time("transforms", [&] {
      inParallel(tile.components.size(), [&](size_t c) { invertWavelet(p_.coding[c], tile.components[c]); });
      storePixels(p_, tile, image_);
    });
  }

  const FirstWrong& wrong() const { return wrong_; }

 private:
  template <class Work>
  void time(const char* name, Work&& work) {
    stages_ ? stages_->time(name, work) : work();
  }

  // The middle of the range, as a tile without coefficients.
  void fillGrey(int32_t index) {
    const Area a = tileArea(p_, index);
    const size_t samples = size_t(a.width()) * p_.bits.size();
    for (int32_t y = a.y0; y < a.y1; ++y) {
      const size_t first = (size_t(y - p_.y0) * size_t(image_.width) + size_t(a.x0 - p_.x0)) * p_.bits.size();
      for (size_t i = 0; i < samples; ++i) image_.setSample(first + i, 1u << (p_.bits[0] - 1));
    }
  }

  const Codestream& stream_;
  const Parameters& p_;
  const Limits& limits_;
  Image& image_;
  Stages* stages_;  // null where tiles are decoded side by side
  std::atomic<uint64_t> visits_ = 0;
  FirstWrong wrong_;
};

}  // namespace

Image decodeTiles(const Codestream& stream, const Limits& limits, Stages& stages) {
  const Parameters& p = stream.parameters;
  const int32_t width = p.width - p.x0, height = p.height - p.y0;
  const auto channels = int(p.bits.size());
  const size_t tiles = stream.tileParts.size();
  if (!stream.missing.empty()) limits.expectWhole(stream.missing);

  uint64_t tileBytes = 0;
  for (size_t t = 0; t < tiles; ++t) {
    size_t coded = 0;
    for (const Bytes part : stream.tileParts[t]) coded += part.size();
    if (stream.tileParts[t].empty()) continue;
    const Extent extent = measure(p, int32_t(t));
    limits.expectData(coded, extent.packets, 8);  // an empty one takes a byte
    tileBytes = std::max(tileBytes, extent.bytes);
  }
  const bool together = sideBySide(tiles);
  const uint64_t atOnce = together ? uint64_t(omp_get_max_threads()) : 1;
  const uint64_t coefficients = uint64_t(width) * uint64_t(height) * uint64_t(channels);
  limits.expectPicture(width, height, channels, p.bits[0], sizeof(int32_t) * coefficients + atOnce * tileBytes);

  Image image(width, height, p.colour, p.bits[0]);
  TileDecoder decoder(stream, limits, image, together ? nullptr : &stages);
  if (together) stages.time("tiles", [&] { inParallel(tiles, [&](size_t t) { decoder.decode(int32_t(t)); }); });
  else
    for (size_t t = 0; t < tiles; ++t) decoder.decode(int32_t(t));
  decoder.wrong().settle(image);
  if (!stream.missing.empty()) limits.onlyPart(image, stream.missing);
  return image;
}

}  // namespace qelconv::jpeg2000
