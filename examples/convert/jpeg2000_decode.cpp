// Code-blocks to pixels.
#include <omp.h>

#include <algorithm>
#include <cmath>

#include "jpeg2000.h"
#include "jpeg2000_parallel.h"

namespace qelconv::jpeg2000 {
namespace {

constexpr int32_t kKeepMidPoint = 0x40000;

// One thread's memory for decoding blocks.
struct BlockDecoder {
  std::vector<uint8_t> state;
  std::vector<int32_t> samples;
  std::vector<uint32_t> lengths;

  void decode(const Coding& coding, int bits, TileComponent& c, const Band& band, const Block& b) {
    if (!b.included || b.segments.empty()) return;
    const int32_t w = b.area.width(), h = b.area.height();
    // Irreversible samples get one more plane below the lowest, for the middle of the last interval.
    const int half = coding.reversible ? 0 : 1;
    const int planes = band.planes - b.zeroPlanes + half;
    if (planes < 1 || planes > 31) return;
    uint32_t passes = 0;
    lengths.clear();
    for (const Segment& s : b.segments) passes += uint32_t(s.passes), lengths.push_back(uint32_t(s.length));
    passes = std::min(passes, uint32_t(3 * (planes - half) - 2));

    int32_t bytes = 0;
    expectOk(qeliDecodeGetBufSize_JPEG2K({w, h}, &bytes), "asking for a block's state");
    state.resize(std::max(state.size(), size_t(bytes)));
    samples.resize(size_t(w) * size_t(h));
    // A damaged block keeps what was decoded of it: the status of the call is not looked at.
    static const uint8_t none = 0;
    qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(b.data.empty() ? &none : b.data.data(), samples.data(), 4 * w,
                                         {w, h}, libraryBand(band.kind), uint32_t(planes), passes,
                                         lengths.data(), int32_t(lengths.size()),
                                         libraryStyle(coding.style) | kKeepMidPoint, nullptr, state.data());
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
    if constexpr (std::is_same_v<Value, float>)
      v = int32_t(std::floor(std::clamp(from[x], -1e6f, 1e6f) + 0.5f));
    else
      v = from[x];
    to[size_t(x) * channels] = Sample(std::clamp(v + shift, 0, top));
  }
}

template <class Value>
void storeSamples(const Parameters& p, const Tile& tile, const std::vector<const Value*>& planes,
                  Image& image) {
  const int32_t w = tile.area.width(), shift = 1 << (p.bits[0] - 1), top = (1 << p.bits[0]) - 1;
  const size_t channels = planes.size();
  for (size_t c = 0; c < channels; ++c)
    for (int32_t y = 0; y < tile.area.height(); ++y) {
      const Value* from = planes[c] + size_t(y) * size_t(w);
      uint8_t* row =
          image.row(tile.area.y0 + y - p.y0) + size_t(tile.area.x0 - p.x0) * size_t(image.pixelBytes());
      if (image.sampleBytes() == 1)
        storePlane(from, shift, row + c, channels, w, top);
      else
        storePlane(from, shift, reinterpret_cast<uint16_t*>(row) + c, channels, w, top);
    }
}

void storePixels(const Parameters& p, Tile& tile, Image& image) {
  auto& c = tile.components;
  const QelSize size{tile.area.width(), tile.area.height()};
  const int32_t step = 4 * size.width;
  bool reversible = true;
  for (const Coding& coding : p.coding) reversible &= coding.reversible;
  if (reversible) {
    if (p.colourTransform) {
      int32_t* planes[3] = {c[0].data.data(), c[1].data.data(), c[2].data.data()};
      expectOk(qeliRCTInv_JPEG2K_32s_P3IR(planes, step, size), "the colour transform");
    }
    std::vector<const int32_t*> planes;
    for (auto& component : c) planes.push_back(component.data.data());
    return storeSamples(p, tile, planes, image);
  }
  std::vector<std::vector<float>> floats(c.size());
  const float scale = 1.0f / float(1 << fractionBits(p.bits[0]));
  for (size_t i = 0; i < c.size(); ++i) {
    floats[i].resize(c[i].data.size());
    const float factor = p.coding[i].reversible ? 1.0f : scale;
    for (size_t k = 0; k < floats[i].size(); ++k) floats[i][k] = float(c[i].data[k]) * factor;
  }
  if (p.colourTransform) {
    float* planes[3] = {floats[0].data(), floats[1].data(), floats[2].data()};
    expectOk(qeliICTInv_JPEG2K_32f_P3IR(planes, step, size), "the colour transform");
  }
  std::vector<const float*> planes;
  for (auto& f : floats) planes.push_back(f.data());
  storeSamples(p, tile, planes, image);
}

}  // namespace

Image decodeTiles(const Codestream& stream, Stages& stages) {
  const Parameters& p = stream.parameters;
  Image image(p.width - p.x0, p.height - p.y0, p.colour, p.bits[0]);
  std::vector<Tile> tiles;
  stages.time("packets", [&] {
    for (int32_t t = 0; t < p.tilesWide() * p.tilesHigh(); ++t) {
      tiles.push_back(layOut(p, t));
      Tile& tile = tiles.back();
      for (size_t part = 0; part < stream.tileParts.size(); ++part)
        if (stream.tileOfPart[part] == t)
          tile.coded.insert(tile.coded.end(), stream.tileParts[part].begin(), stream.tileParts[part].end());
      readPackets(p, tile);
      for (auto& c : tile.components) c.data.resize(size_t(c.area.width()) * size_t(c.area.height()));
    }
  });
  stages.time("block decoding", [&] {
    const auto jobs = allBlocks(tiles);
    std::vector<BlockDecoder> decoders{size_t(omp_get_max_threads())};
    inParallel(jobs.size(), [&](size_t i) {
      const BlockJob& job = jobs[i];
      decoders[size_t(omp_get_thread_num())].decode(p.coding[job.componentIndex], p.bits[0], *job.component,
                                                    *job.band, *job.block);
    });
  });
  stages.time("transforms", [&] {
    for (Tile& tile : tiles) {
      inParallel(tile.components.size(), [&](size_t c) { invertWavelet(p.coding[c], tile.components[c]); });
      storePixels(p, tile, image);
    }
  });
  return image;
}

}  // namespace qelconv::jpeg2000
