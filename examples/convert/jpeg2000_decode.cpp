// Code-blocks to the samples of components.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
#include <optional>

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
    const int coded = band.planes - b.zeroPlanes, half = coding.reversible || coded > 30 ? 0 : 1, planes = coded + half;
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
    const Bytes data = b.data.empty() ? b.inFile : Bytes(b.data);
    const QelStatus status = qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(
        data.empty() ? &none : data.data(), samples.data(), 4 * w, {w, h}, libraryBand(band.kind), uint32_t(planes),
        std::min(passes, most), lengths.data(), int32_t(lengths.size()),
        libraryStyle(coding.style) | qelCodeStyleKeepMidPoint, nullptr, state.data());
    if (coding.roiShift) lowerRegion(coding.roiShift, half);
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

 private:
  // Magnitudes in the region of interest lie above the planes of all others (H.1), `half` of which is below the lowest.
  void lowerRegion(int shift, int half) {
    if (shift + half > 30) return;
    for (int32_t& sample : samples) {
      const int32_t magnitude = sample & INT32_MAX;
      if (magnitude >> (shift + half)) sample = (sample & INT32_MIN) | magnitude >> shift;
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

// Where the samples of a component go: into a plane of its own or among the others of a picture.
struct Target {
  const Shape* shape = nullptr;  // none: nobody wants them
  Rows* rows = nullptr;
  size_t channel = 0;
};

// What a sample of so many bits is moved by, its largest value, and its bits beyond those of pictures.
struct Depth {
  explicit Depth(int bits) : shift(1 << (bits - 1)), top((1 << bits) - 1), extra(std::max(bits - 16, 0)) {}
  int32_t shift, top;
  int extra;
};

template <class Sample, class Value>
void storePlane(const Value* from, Depth depth, Sample* to, size_t channels, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    int32_t v;
    if constexpr (std::is_same_v<Value, float>) v = int32_t(std::floor(std::clamp(from[x], -1e9f, 1e9f) + 0.5f));
    else v = from[x];
    to[size_t(x) * channels] =
        Sample((std::clamp(v, -depth.shift, depth.top - depth.shift) + depth.shift) >> depth.extra);
  }
}

// Rows `first` to `end` of a tile's component, of which `from` is the first one.
template <class Value>
void storeSamples(const Parameters& p, size_t component, const Area& area, const Value* from, int32_t first,
                  int32_t end, Target to) {
  if (!to.shape) return;
  const Area whole = p.areaOf(component);
  const Depth depth(p.bits[component]);
  const auto channels = size_t(to.shape->channels());
  for (int32_t y = first; y < end; ++y, from += area.width()) {
    uint8_t* row = to.rows->row(area.y0 + y - whole.y0) + size_t(area.x0 - whole.x0) * size_t(to.shape->pixelBytes());
    if (to.shape->sampleBytes() == 1) storePlane(from, depth, row + to.channel, channels, area.width());
    else storePlane(from, depth, reinterpret_cast<uint16_t*>(row) + to.channel, channels, area.width());
  }
}

// Rows `first` to `end` of components `begin` to `begin` + `count`, alike in size and wavelet: the three of a colour
// transform, or one.
void storeRows(const Parameters& p, Tile& tile, size_t begin, size_t count, const std::vector<Target>& targets,
               int32_t first, int32_t end) {
  auto& c = tile.components;
  const Area& area = c[begin].area;
  const int32_t w = area.width(), step = 4 * w;
  const size_t start = size_t(first) * size_t(w), samples = size_t(end - first) * size_t(w);
  if (p.coding[begin].reversible) {
    if (count == 3) {
      int32_t* planes[3] = {&c[0].data[start], &c[1].data[start], &c[2].data[start]};
      expectOk(qeliRCTInv_JPEG2K_32s_P3IR(planes, step, {w, end - first}), "the colour transform");
    }
    for (size_t i = begin; i < begin + count; ++i) storeSamples(p, i, area, &c[i].data[start], first, end, targets[i]);
    return;
  }
  std::vector<float> floats[3];
  for (size_t i = 0; i < count; ++i) {
    const float scale = float(std::ldexp(1.0, -fractionBits(p.bits[begin + i])));
    floats[i].resize(samples);
    for (size_t k = 0; k < samples; ++k) floats[i][k] = float(c[begin + i].data[start + k]) * scale;
  }
  if (count == 3) {
    float* planes[3] = {floats[0].data(), floats[1].data(), floats[2].data()};
    expectOk(qeliICTInv_JPEG2K_32f_P3IR(planes, step, {w, end - first}), "the colour transform");
  }
  for (size_t i = 0; i < count; ++i) storeSamples(p, begin + i, area, floats[i].data(), first, end, targets[begin + i]);
}

// Decodes tiles one at a time on all cores, or as many at a time as there are cores.
class TileDecoder {
 public:
  // Of a file that is mapped, what is done with is let go.
  TileDecoder(const Codestream& stream, const Limits& limits, const std::vector<Target>& targets, Stages* stages,
              const Contents* file = nullptr)
      : stream_(stream),
        file_(file),
        p_(stream.parameters),
        limits_(limits),
        targets_(targets),
        stages_(stages),
        wrong_(limits) {}

  void decode(int32_t index) {
    const auto& parts = stream_.tileParts[size_t(index)];
    if (parts.empty()) {
      wrong_.note(size_t(index), "tiles are missing");
      return fillGrey(index);
    }
    const Parameters& p = stream_.parametersOf(index);
    Tile tile = transformed(index);
    time("transforms", [&] {
      byTransform(p, tile, [&](size_t begin, size_t count) {
        const Area& area = tile.components[begin].area;
        inStrips(area.width(), area.height(),
                 [&](int32_t first, int32_t end) { storeRows(p, tile, begin, count, targets_, first, end); });
      });
    });
  }

  // A tile that is there, behind its wavelets.
  Tile transformed(int32_t index) {
    const auto& parts = stream_.tileParts[size_t(index)];
    const Parameters& p = stream_.parametersOf(index);
    const std::vector<bool> wanted = wantedOf(p);
    Tile tile;
    time("packets", [&] {
      tile = layOut(p, index);
      tile.coded = parts[0];
      if (parts.size() > 1) {
        for (const Bytes part : parts) tile.joined.insert(tile.joined.end(), part.begin(), part.end());
        tile.coded = tile.joined;
      }
      const auto headers = stream_.packedHeaders.find(index);
      tile.headersPacked = stream_.headersPacked || headers != stream_.packedHeaders.end();
      if (headers != stream_.packedHeaders.end()) tile.packedHeaders = headers->second;
      const std::string wrong = readPackets(p, tile, limits_, visits_);
      if (!wrong.empty()) wrong_.note(size_t(index), wrong);
      for (size_t c = 0; c < tile.components.size(); ++c) {
        TileComponent& component = tile.components[c];
        if (wanted[c]) component.data.resize(size_t(component.area.width()) * size_t(component.area.height()));
        else component.resolutions.clear();
      }
    });
    time("block decoding", [&] {
      auto jobs = allBlocks({&tile, 1});
      const auto placeOf = [](const BlockJob& job) { return job.block->inFile.data(); };
      const Contents* const file = tile.joined.empty() ? file_ : nullptr;
      if (file)
        std::sort(jobs.begin(), jobs.end(),
                  [&](const BlockJob& a, const BlockJob& b) { return std::less<>()(placeOf(a), placeOf(b)); });
      std::vector<BlockDecoder> decoders{size_t(omp_get_max_threads())};
      // As they lie in the file, of which what is done with is let go by parts that are worth a loop of their own.
      const size_t atOnce = file ? 1024 : jobs.size();
      for (size_t first = 0; first < jobs.size(); first += atOnce) {
        if (file && placeOf(jobs[first])) file->forget(size_t(placeOf(jobs[first]) - file->bytes().data()));
        inParallel(std::min(atOnce, jobs.size() - first), [&](size_t i) {
          const BlockJob& job = jobs[first + i];
          BlockDecoder& decoder = decoders[size_t(omp_get_thread_num())];
          if (!decoder.decode(p.coding[job.componentIndex], p.bits[job.componentIndex], *job.component, *job.band,
                              *job.block))
            wrong_.note(size_t(index), "a code-block is damaged");
        });
      }
      if (file) file->forget(file->bytes().size());
    });
    time("transforms", [&] {
      inParallel(tile.components.size(), [&](size_t c) {
        if (wanted[c] && !tile.components[c].area.empty()) invertWavelet(p.coding[c], tile.components[c]);
      });
    });
    return tile;
  }

  // work(begin, count) for components that belong to one transform, or have none.
  template <class Work>
  void byTransform(const Parameters& p, const Tile& tile, Work&& work) const {
    const std::vector<bool> wanted = wantedOf(p);
    for (size_t c = 0, count; c < tile.components.size(); c += count) {
      count = c == 0 && p.colourTransform ? 3 : 1;
      if (wanted[c] && !tile.components[c].area.empty()) work(c, count);
    }
  }

  const FirstWrong& wrong() const { return wrong_; }

 private:
  template <class Work>
  void time(const char* name, Work&& work) {
    stages_ ? stages_->time(name, work) : work();
  }

  // The components that something is made of.
  std::vector<bool> wantedOf(const Parameters& p) const {
    std::vector<bool> wanted;
    for (const Target& target : targets_) wanted.push_back(target.shape != nullptr);
    if (p.colourTransform && (wanted[0] || wanted[1] || wanted[2])) wanted[0] = wanted[1] = wanted[2] = true;
    return wanted;
  }

  // The middle of the range, as a tile without coefficients.
  void fillGrey(int32_t index) {
    for (size_t c = 0; c < targets_.size(); ++c) {
      const Target& to = targets_[c];
      if (!to.shape) continue;
      const Area a = p_.areaOf(c, tileArea(p_, index));
      const std::vector<int32_t> middle(size_t(std::max(a.width(), 0)));
      for (int32_t y = 0; y < a.height(); ++y) storeSamples(p_, c, a, middle.data(), y, y + 1, to);
    }
  }

  const Codestream& stream_;
  const Contents* file_;
  const Parameters& p_;
  const Limits& limits_;
  const std::vector<Target>& targets_;
  Stages* stages_;  // null where tiles are decoded side by side
  std::atomic<uint64_t> visits_ = 0;
  FirstWrong wrong_;
};

}  // namespace

namespace {

// Throws where the tiles can't be what the file says, or take more memory than it may ask for.
void expectTiles(const Codestream& stream, const Arrangement& arrangement, const Limits& limits) {
  const Parameters& p = stream.parameters;
  const size_t tiles = stream.tileParts.size();
  if (!stream.missing.empty()) limits.expectWhole(stream.missing);

  uint64_t tileBytes = 0;
  for (size_t t = 0; t < tiles; ++t) {
    size_t coded = 0;
    for (const Bytes part : stream.tileParts[t]) coded += part.size();
    if (stream.tileParts[t].empty()) continue;
    if (const auto headers = stream.packedHeaders.find(int32_t(t)); headers != stream.packedHeaders.end())
      coded += headers->second.size();
    const Extent extent = measure(stream.parametersOf(int32_t(t)), int32_t(t));
    limits.expectData(coded, extent.packets, 8);  // an empty one takes a byte
    tileBytes = std::max(tileBytes, extent.bytes);
  }
  const uint64_t atOnce = sideBySide(tiles) ? uint64_t(omp_get_max_threads()) : 1;
  // Coefficients of all components, and samples where they don't go into the picture at once.
  const bool direct = isDirect(p, arrangement);
  uint64_t working = atOnce * tileBytes;
  for (size_t c = 0; c < p.bits.size(); ++c)
    working += uint64_t(p.areaOf(c).width()) * uint64_t(p.areaOf(c).height()) * (direct ? 4 : 6);
  limits.expectPicture(arrangement.area.width(), arrangement.area.height(), channelsOf(arrangement.colour),
                       arrangement.bits, working);
}

// The channels of a picture whose components they are.
std::vector<Target> channelsIn(const Parameters& p, const Arrangement& arrangement, const Shape& shape, Rows& rows) {
  std::vector<Target> targets(p.bits.size());
  for (size_t i = 0; i < arrangement.sources.size(); ++i)
    targets[size_t(arrangement.sources[i].component)] = {&shape, &rows, i};
  return targets;
}

// The only tile of a picture. All of its coefficients are there before the first row; the picture is not.
class Source : public RowSource {
 public:
  Source(Codestream stream, Arrangement arrangement, Metadata metadata, const Limits& limits, const Contents& file,
         Stages& stages)
      : stream_(std::move(stream)),
        arrangement_(std::move(arrangement)),
        limits_(limits),
        file_(file),
        stages_(stages) {
    shape_ = {arrangement_.area.width(), arrangement_.area.height(), arrangement_.colour, arrangement_.bits, false,
              std::move(metadata)};
  }

  StripRows strips() const override {
    const int32_t rows = std::max(65536 / shape_.width / kMultiple * kMultiple, kMultiple);
    return {(shape_.height + rows - 1) / rows, rows, 0, shape_.height};
  }

  std::vector<Step> steps(Rows& rows, int32_t) override {
    const Parameters& p = stream_.parametersOf(0);
    targets_ = channelsIn(p, arrangement_, shape_, rows);
    decoder_.emplace(stream_, limits_, targets_, &stages_, &file_);
    tile_ = decoder_->transformed(0);
    return {{"transforms", false, [this, &p](int32_t strip) {
               const int32_t first = strips().first(strip), end = strips().behind(strip);
               decoder_->byTransform(p, tile_, [&](size_t begin, size_t count) {
                 storeRows(p, tile_, begin, count, targets_, first, end);
               });
             }}};
  }

 private:
  static constexpr int32_t kMultiple = 16;  // whole MCUs of what may take them
  const Codestream stream_;
  const Arrangement arrangement_;
  const Limits limits_;
  const Contents& file_;
  Stages& stages_;
  std::vector<Target> targets_;
  std::optional<TileDecoder> decoder_;
  Tile tile_;
};

}  // namespace

std::unique_ptr<RowSource> rowsOfTile(Codestream stream, Arrangement arrangement, Metadata metadata,
                                      const Limits& limits, const Contents& file, Stages& stages) {
  const bool whole = stream.tileParts.size() == 1 && !stream.tileParts[0].empty() && !limits.partial();
  if (!whole || !isDirect(stream.parameters, arrangement) || arrangement.multiplied) return nullptr;
  expectTiles(stream, arrangement, limits);
  return std::make_unique<Source>(std::move(stream), std::move(arrangement), std::move(metadata), limits, file, stages);
}

Image decodeTiles(const Codestream& stream, const Arrangement& arrangement, const Limits& limits, Stages& stages) {
  expectTiles(stream, arrangement, limits);
  const Parameters& p = stream.parameters;
  const size_t tiles = stream.tileParts.size();
  const bool together = sideBySide(tiles), direct = isDirect(p, arrangement);
  Image image(arrangement.area.width(), arrangement.area.height(), arrangement.colour, arrangement.bits);
  std::deque<Rows> rows;
  std::vector<Image> planes(p.bits.size());
  std::vector<Target> targets(p.bits.size());
  if (direct) targets = channelsIn(p, arrangement, image, rows.emplace_back(image));
  for (size_t i = 0; !direct && i < arrangement.sources.size(); ++i) {
    const auto c = size_t(arrangement.sources[i].component);
    if (targets[c].shape) continue;
    planes[c] = Image(p.areaOf(c).width(), p.areaOf(c).height(), Colour::grey, std::min(p.bits[c], 16));
    targets[c] = {&planes[c], &rows.emplace_back(planes[c]), 0};
  }
  TileDecoder decoder(stream, limits, targets, together ? nullptr : &stages);
  if (together) stages.time("tiles", [&] { inParallel(tiles, [&](size_t t) { decoder.decode(int32_t(t)); }); });
  else
    for (size_t t = 0; t < tiles; ++t) decoder.decode(int32_t(t));
  if (!direct) stages.time("channels", [&] { assemble(stream, arrangement, planes, image); });
  if (arrangement.multiplied) divideByAlpha(image);
  decoder.wrong().settle(image);
  if (!stream.missing.empty()) limits.onlyPart(image, stream.missing);
  return image;
}

}  // namespace qelconv::jpeg2000
