// Pixels to code-blocks, and the passes of the blocks to layers.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "jpeg2000.h"
#include "jpeg2000_parallel.h"

namespace qelconv::jpeg2000 {
namespace {

// --- tile-components: level shift, component transform, wavelet --------------------------------------------

// Rows `first` to `end` of the tile.
void loadSamples(const Image& image, const Parameters& p, Tile& tile, int32_t first, int32_t end) {
  const size_t channels = tile.components.size();
  const int32_t shift = 1 << (p.bits[0] - 1), w = tile.area.width();
  for (size_t c = 0; c < channels; ++c) {
    auto& data = tile.components[c].data;
    for (int32_t y = first; y < end; ++y) {
      const size_t from = (size_t(tile.area.y0 + y) * size_t(image.width) + size_t(tile.area.x0)) * channels + c;
      int32_t* to = &data[size_t(y) * size_t(w)];
      if (image.sampleBytes() == 1)
        for (int32_t x = 0; x < w; ++x) to[x] = image.data[from + size_t(x) * channels] - shift;
      else
        for (int32_t x = 0; x < w; ++x) to[x] = int32_t(image.sample(from + size_t(x) * channels)) - shift;
    }
  }
}

void transformColour(const Parameters& p, Tile& tile, int32_t first, int32_t end) {
  const QelSize size{tile.area.width(), end - first};
  const int32_t step = 4 * size.width;
  const size_t start = size_t(first) * size_t(size.width), samples = size_t(size.width) * size_t(size.height);
  auto& c = tile.components;
  if (p.coding[0].reversible) {
    if (!p.colourTransform) return;
    int32_t* planes[3] = {&c[0].data[start], &c[1].data[start], &c[2].data[start]};
    expectOk(qeliRCTFwd_JPEG2K_32s_P3IR(planes, step, size), "the colour transform");
    return;
  }
  std::vector<std::vector<float>> floats;
  for (auto& component : c) {
    const int32_t* const from = &component.data[start];
    floats.emplace_back(from, from + samples);
  }
  if (p.colourTransform) {
    float* planes[3] = {floats[0].data(), floats[1].data(), floats[2].data()};
    expectOk(qeliICTFwd_JPEG2K_32f_P3IR(planes, step, size), "the colour transform");
  }
  // The irreversible wavelet keeps whole numbers between its passes: give it fractions to round.
  const float scale = float(1 << fractionBits(p.bits[0]));
  for (size_t i = 0; i < c.size(); ++i)
    for (size_t k = 0; k < samples; ++k) c[i].data[start + k] = int32_t(std::lrintf(floats[i][k] * scale));
}

void transformWavelet(const Coding& coding, TileComponent& c) {
  std::vector<uint8_t> buffer(workBytes(coding, c));
  for (int r = coding.levels; r >= 1; --r) {
    const Area& a = c.resolutions[size_t(r)].area;
    if (a.empty()) continue;
    const QelRect rect{a.x0, a.y0, a.width(), a.height()};
    const auto work = coding.reversible ? qeliWTFwd_B53_JPEG2K_32s_C1IR : qeliWTFwd_D97_JPEG2K_32s_C1IR;
    expectOk(work(c.data.data(), 4 * c.area.width(), &rect, buffer.data()), "the wavelet");
  }
}

// --- code-blocks -------------------------------------------------------------------------------------------

class BlockCoder {
 public:
  BlockCoder(const Coding& coding, bool measure) : measure_(measure) {
    QelEncodeStateJPEG2K* state = nullptr;
    expectOk(qeliEncodeInitAlloc_JPEG2K(&state, {1 << coding.blockWidthLog2, 1 << coding.blockHeightLog2}),
             "making a block coder");
    state_.reset(state);
  }

  // Codes a block; returns its squared error in the picture when all of it is sent, if that is asked for.
  double code(const Coding& coding, int bits, const TileComponent& c, const Band& band, double gain, Block& b) {
    const int32_t w = b.area.width(), h = b.area.height();
    const int32_t* source = &c.data[size_t(b.y) * size_t(c.area.width()) + size_t(b.x)];
    samples_.resize(size_t(w) * size_t(h));
    // Sign and magnitude, the lowest plane of the band at bit 31 - planes, fractions of it below.
    const int below = 31 - band.planes;
    const float weight = float(std::ldexp(1 / band.step, below - fractionBits(bits)));
    for (int32_t y = 0; y < h; ++y) {
      const int32_t* from = source + ptrdiff_t(y) * c.area.width();
      int32_t* to = &samples_[size_t(y) * size_t(w)];
      if (coding.reversible)
        for (int32_t x = 0; x < w; ++x) {
          const uint32_t sign = uint32_t(from[x]) >> 31;
          to[x] = int32_t(((uint32_t(from[x]) ^ (0 - sign)) + sign) << below | sign << 31);
        }
      else
        for (int32_t x = 0; x < w; ++x) {
          constexpr float kTop = 2147483520.0f;  // the last one below 2^31
          const float magnitude = std::abs(float(from[x])) * weight;
          to[x] = int32_t(magnitude < kTop ? magnitude : kTop) | (from[x] & INT32_MIN);
        }
    }

    int32_t planes = 0, passes = 0, segments = 0;
    // A lossless end is measured as one.
    const int32_t style = libraryStyle(coding.style) | (coding.reversible ? qelCodeStyleLossless : 0);
    expectOk(
        qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(samples_.data(), 4 * w, {w, h}, state_.get(), libraryBand(band.kind),
                                               band.planes, 0, 0, style, &planes, &passes, &segments),
        "coding a block");
    b.zeroPlanes = passes ? 31 - planes : band.planes;
    store(b);
    const double unit = band.step * band.step * gain;
    readPasses(coding.style, passes, unit, b);
    return measure_ && !coding.reversible ? remainingError(below) * unit : 0;
  }

 private:
  struct Release {
    void operator()(QelEncodeStateJPEG2K* state) const { qeliEncodeFree_JPEG2K(state); }
  };

  // Against the middles of the last intervals, in squares of the lowest plane.
  double remainingError(int below) const {
    double sum = 0;
    for (const int32_t s : samples_) {
      const double v = std::ldexp(double(s & INT32_MAX), -below);
      const double e = v < 1 ? v : v - std::floor(v) - 0.5;
      sum += e * e;
    }
    return sum;
  }

  void store(Block& b) {
    b.data.clear();
    for (int32_t more = 1; more;) {
      uint8_t bytes[8192];
      int32_t length = sizeof bytes;
      expectOk(qeliEncodeStoreBits_JPEG2K_1u(bytes, &length, state_.get(), &more), "storing a block");
      b.data.insert(b.data.end(), bytes, bytes + length);
    }
  }

  static bool raw(int style, int pass) { return style & kBypass && (pass + 2) / 3 >= 4 && (pass + 2) % 3 != 2; }

  void readPasses(int style, int count, double unit, Block& b) {
    b.passes.assign(size_t(count), {});
    int32_t segmentEnd = 0;
    int segment = 0;
    for (int p = 0; p < count; ++p) {
      auto& pass = b.passes[size_t(p)];
      double reduction = 0;
      expectOk(qeliEncodeGetDist_JPEG2K(state_.get(), p, &reduction), "asking for a distortion");
      pass.reduction = reduction * unit;
      pass.terminated = p + 1 == count || style & kTerminate || raw(style, p) != raw(style, p + 1);
      int32_t rate = 0;
      expectOk(qeliEncodeGetRate_JPEG2K(state_.get(), p, &rate), "asking for a rate");
      pass.end = rate;
      if (pass.terminated) {
        int32_t length = 0;
        expectOk(qeliEncodeGetTermPassLen_JPEG2K(state_.get(), segment++, &length), "asking for a length");
        pass.end = segmentEnd += length;
      }
    }
    // A pass cut at its reported rate decodes; never beyond its segment, nor before the pass in front.
    int32_t limit = segmentEnd;
    for (int p = count; p-- > 0;) {
      auto& pass = b.passes[size_t(p)];
      limit = pass.end = std::min(pass.end, limit);
    }
    findHull(b.passes);
  }

  // Slopes of the convex hull of reduction over length.
  static void findHull(std::vector<Block::Pass>& passes) {
    std::vector<size_t> hull;
    const auto slope = [&](size_t p) {
      const double from = hull.empty() ? 0 : passes[hull.back()].reduction;
      const int32_t start = hull.empty() ? 0 : passes[hull.back()].end;
      const int32_t length = passes[p].end - start;
      const double gained = passes[p].reduction - from;
      return length > 0 ? gained / length : gained > 0 ? 1e300 : 0.0;
    };
    for (size_t p = 0; p < passes.size(); ++p) {
      double s = slope(p);
      while (!hull.empty() && s >= passes[hull.back()].slope) {
        passes[hull.back()].slope = 0;
        hull.pop_back();
        s = slope(p);
      }
      if (s > 0) passes[p].slope = s, hull.push_back(p);
    }
  }

  bool measure_;
  std::unique_ptr<QelEncodeStateJPEG2K, Release> state_;
  std::vector<int32_t> samples_;
};

// What a unit error of a component costs over the picture's components (Annex G's inverse transforms).
double componentGain(const Parameters& p, size_t component) {
  if (!p.colourTransform || component > 2) return 1;
  constexpr double kReversible[] = {3, 0.6875, 0.6875};
  constexpr double kIrreversible[] = {3, 0.34413 * 0.34413 + 1.772 * 1.772, 1.402 * 1.402 + 0.71414 * 0.71414};
  return (p.coding[0].reversible ? kReversible : kIrreversible)[component];
}

// --- allocation --------------------------------------------------------------------------------------------

class Allocator {
 public:
  Allocator(const Parameters& p, std::vector<Tile>& tiles, std::vector<Block*> blocks, double remainingError,
            size_t header)
      : p_(p), tiles_(tiles), blocks_(std::move(blocks)), remainingError_(remainingError), header_(header) {
    for (const Block* b : blocks_)
      for (const auto& pass : b->passes)
        if (pass.slope > 0)
          lowest_ = std::min(lowest_, pass.slope), highest_ = std::max(highest_, std::min(pass.slope, 1e200));
  }

  void everything(int layer) {
    for (Block* b : blocks_) b->layerPasses[size_t(layer)] = int(b->passes.size());
  }
  // The flattest slope whose file up to this layer has at most `bytes` bytes, or an error of at least
  // `error`. Layers come one after the other, from the first one on.
  void upToBytes(int layer, double bytes) {
    if (layer == 0) {
      for (Tile& tile : tiles_) beginPackets(tile);
      sent_ = overhead();
    }
    search(layer, [&] { return double(sent_ + bytesOf(layer, false)) <= bytes; });
    sent_ += bytesOf(layer, true);
  }
  void downToError(int layer, double error) {
    search(layer, [&] { return errorOf(layer) >= error; });
  }
  // Of all layers.
  size_t fileBytes() {
    std::atomic<size_t> bytes = overhead();
    inParallel(tiles_.size(), [&](size_t t) {
      std::vector<uint8_t> packets;
      writePackets(packets, p_, tiles_[t]);
      bytes += packets.size();
    });
    return bytes;
  }

 private:
  // What a file has beside its packets.
  size_t overhead() const { return header_ + 2 + 14 * tiles_.size(); }
  size_t bytesOf(int layer, bool isSent) {
    std::atomic<size_t> bytes = 0;
    inParallel(tiles_.size(), [&](size_t t) { bytes += bytesOfLayer(tiles_[t], layer, isSent); });
    return bytes;
  }

  // Bisects the slope; `fits` gets easier as the slope rises.
  template <class Fits>
  void search(int layer, Fits&& fits) {
    double low = std::log(lowest_) - 1, high = std::log(highest_) + 1;
    cut(layer, low);
    if (fits()) return;
    for (int i = 0; i < 24 && high - low > 1e-4; ++i) {
      const double middle = (low + high) / 2;
      cut(layer, middle);
      (fits() ? high : low) = middle;
    }
    cut(layer, high);
  }

  void cut(int layer, double logSlope) {
    const double slope = std::exp(logSlope);
    for (Block* b : blocks_) {
      int n = layer ? b->layerPasses[size_t(layer - 1)] : 0;
      for (int p = n; p < int(b->passes.size()); ++p)
        if (b->passes[size_t(p)].slope >= slope) n = p + 1;
      b->layerPasses[size_t(layer)] = n;
    }
  }

  double errorOf(int layer) const {
    double error = remainingError_;
    for (const Block* b : blocks_)
      if (!b->passes.empty()) {
        const int n = b->layerPasses[size_t(layer)];
        error += b->passes.back().reduction - (n ? b->passes[size_t(n - 1)].reduction : 0);
      }
    return error;
  }

  const Parameters& p_;
  std::vector<Tile>& tiles_;
  std::vector<Block*> blocks_;
  double remainingError_;
  size_t header_, sent_ = 0;
  double lowest_ = 1e200, highest_ = 1e-200;
};

void allocate(Allocator& allocator, const Image& image, const Parameters& p, const Goal& goal) {
  const double samples = double(image.width) * image.height * image.channels();
  for (int layer = 0; layer < p.layers; ++layer) {
    const auto l = size_t(layer);
    if (l < goal.bitsPerPixel.size()) {
      allocator.upToBytes(layer, goal.bitsPerPixel[l] * image.width * image.height / 8);
    } else if (l < goal.psnr.size()) {
      const double top = (1u << image.bits) - 1;
      allocator.downToError(layer, top * top * samples / std::pow(10, goal.psnr[l] / 10));
    } else {
      allocator.everything(layer);
    }
  }
}

}  // namespace

void encodeTiles(const Image& image, const Parameters& p, const Goal& goal, std::vector<Tile>& tiles, Stages& stages) {
  stages.time("transforms", [&] {
    tiles.resize(size_t(p.tilesWide()) * size_t(p.tilesHigh()));
    const auto transform = [&](size_t t) {
      Tile& tile = tiles[t];
      tile = layOut(p, int32_t(t));
      for (auto& c : tile.components) c.data.resize(size_t(c.area.width()) * size_t(c.area.height()));
      inStrips(tile.area.width(), tile.area.height(), [&](int32_t first, int32_t end) {
        loadSamples(image, p, tile, first, end);
        transformColour(p, tile, first, end);
      });
      inParallel(tile.components.size(), [&](size_t c) { transformWavelet(p.coding[c], tile.components[c]); });
    };
    if (sideBySide(tiles.size())) inParallel(tiles.size(), transform);
    else
      for (size_t t = 0; t < tiles.size(); ++t) transform(t);
  });
  const auto jobs = allBlocks(tiles);
  std::vector<Block*> blocks;
  for (const BlockJob& job : jobs) blocks.push_back(job.block);
  double remainingError = 0;
  stages.time("block coding", [&] {
    std::vector<double> errors(jobs.size());
    std::vector<std::unique_ptr<BlockCoder>> coders{size_t(omp_get_max_threads())};
    inParallel(jobs.size(), [&](size_t i) {
      auto& coder = coders[size_t(omp_get_thread_num())];
      if (!coder) coder = std::make_unique<BlockCoder>(p.coding[0], !goal.psnr.empty());
      const BlockJob& job = jobs[i];
      const Coding& coding = p.coding[job.componentIndex];
      errors[i] = coder->code(coding, p.bits[0], *job.component, *job.band,
                              job.band->gain * componentGain(p, job.componentIndex), *job.block);
      job.block->layerPasses.assign(size_t(p.layers), 0);
    });
    for (const double e : errors) remainingError += e;
    for (Tile& tile : tiles)
      for (auto& c : tile.components) std::vector<int32_t>().swap(c.data);
  });
  stages.time("rate allocation", [&] {
    Allocator allocator(p, tiles, blocks, remainingError, writeMainHeader(p).size());
    Goal g = goal;
    if (p.layers > 1 && g.bitsPerPixel.empty() && g.psnr.empty()) {
      // Each layer doubles the file; the last one has everything.
      allocator.everything(p.layers - 1);
      const double all = 8.0 * double(allocator.fileBytes()) / (double(image.width) * image.height);
      for (int l = 1; l < p.layers; ++l) g.bitsPerPixel.push_back(std::ldexp(all, l - p.layers));
    }
    allocate(allocator, image, p, g);
  });
}

}  // namespace qelconv::jpeg2000
