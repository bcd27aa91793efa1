// The JPEG 2000 formats: options, codestream and JP2 files.
#include "jpeg2000.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <ostream>
#include <sstream>

#include "orientation.h"

namespace qelconv {
namespace {

using namespace jpeg2000;

bool recognisesCodestream(Bytes file) {
  return file.size() > 4 && file[0] == 0xFF && file[1] == 0x4F && file[2] == 0xFF && file[3] == 0x51;
}

// A profile of other colours is of no use.
void keepProfile(Metadata& metadata, Colour colour, Stages& stages) {
  if (metadata.profile.empty() || isProfileOf(metadata.profile, colour)) return;
  metadata.profile.clear();
  stages.lose("the colour profile is of other colours, and dropped");
}

// A file, and what becomes a picture of it.
struct Input {
  Input(Bytes file, const Options& options, Stages& stages)
      : stream(stages.time("markers", [&] { return parse(file); })),
        only(options.integer("component", -1, 0, kMostComponents - 1)),
        arrangement(arrange(stream, only)) {
    if (arrangement.lossy) stages.lose("components that are no colours are left out");
    for (const auto& source : arrangement.sources)
      if (const int bits = stream.parameters.bits[size_t(source.component)]; bits > 16)
        stages.lose(std::to_string(bits) + " bits become 16");
    if (stream.jp2.colourUnknown && only < 0)
      stages.lose(std::string("colours of an unknown kind are taken for ") + nameOf(arrangement.colour));
  }

  Metadata metadata(Colour colour, Stages& stages) const {
    Metadata data = stream.jp2.metadata;
    if (only < 0) keepProfile(data, colour, stages);
    else data.profile.clear();
    return data;
  }

  Codestream stream;
  int only;  // this component alone, or -1
  Arrangement arrangement;
};

Image read(Bytes file, const Options& options, Stages& stages) {
  const Input input(file, options, stages);
  Image image = decodeTiles(input.stream, input.arrangement, Limits(file, options), stages);
  image.metadata = input.metadata(image.colour, stages);
  return image;
}

std::unique_ptr<RowSource> readRows(const Contents& contents, const Options& options, Stages& stages) {
  Input input(contents, options, stages);
  Metadata metadata = input.metadata(input.arrangement.colour, stages);
  return rowsOfTile(std::move(input.stream), std::move(input.arrangement), std::move(metadata),
                    Limits(contents, options), contents, stages);
}

std::vector<double> listOfNumbers(const Options& options, const char* name) {
  std::vector<double> numbers;
  std::istringstream words(options.text(name));
  for (std::string word; std::getline(words, word, ',');) {
    char* end = nullptr;
    const double number = std::strtod(word.c_str(), &end);
    if (word.empty() || *end || !(number > 0))
      throw Error(std::string("--") + name + " takes positive numbers, not \"" + word + "\"");
    if (!numbers.empty() && number <= numbers.back())
      throw Error(std::string("--") + name + " takes numbers in rising order");
    numbers.push_back(number);
  }
  return numbers;
}

int styleOption(const Options& options) {
  constexpr std::pair<const char*, int> kStyles[] = {{"bypass", kBypass},
                                                     {"reset", kReset},
                                                     {"terminate", kTerminate},
                                                     {"causal", kCausal},
                                                     {"segment", kSegmentSymbols}};
  int style = 0;
  std::istringstream words(options.text("style"));
  for (std::string word; std::getline(words, word, ',');) {
    const auto found = std::find_if(std::begin(kStyles), std::end(kStyles), [&](auto& s) { return word == s.first; });
    if (found == std::end(kStyles))
      throw Error("--style takes bypass, reset, terminate, causal and segment, not \"" + word + "\"");
    style |= found->second;
  }
  return style;
}

// Step sizes at which a quantiser's error costs as much in every band.
std::vector<StepSize> stepsFor(const Coding& coding, int bits) {
  std::vector<StepSize> steps;
  for (int band = 0; band <= 3 * coding.levels; ++band) {
    const int kind = band ? (band - 1) % 3 + 1 : 0;
    const int range = bits + (kind == 0 ? 0 : kind == 3 ? 2 : 1);
    if (coding.reversible) {
      steps.push_back({range, 0});
      continue;
    }
    const double step = 1 / std::sqrt(coding.gains[size_t(band)]);
    int power = int(std::floor(std::log2(step)));
    int mantissa = int(std::lround((std::ldexp(step, -power) - 1) * 2048));
    if (mantissa == 2048) mantissa = 0, ++power;
    steps.push_back({range - power, mantissa});
  }
  return steps;
}

Parameters makeParameters(const Image& image, const Options& options, const Goal& goal) {
  Parameters p;
  p.width = image.width, p.height = image.height;
  p.colour = image.colour;
  p.bits.assign(size_t(image.channels()), image.bits);
  p.spacing.resize(p.bits.size());
  const auto [tileWidth, tileHeight] = options.size("tiles", {0, 0});
  p.tileWidth = tileWidth ? std::min(tileWidth, p.width) : p.width;
  p.tileHeight = tileHeight ? std::min(tileHeight, p.height) : p.height;
  if (int64_t(p.tilesWide()) * p.tilesHigh() > 65535) throw Error("--tiles makes more than 65535 tiles");
  p.progression = Progression(options.choice("order", {"LRCP", "RLCP", "RPCL", "PCRL", "CPRL"}, 0));
  p.colourTransform = image.channels() >= 3;
  const int fromGoal = int(std::max(goal.bitsPerPixel.size(), goal.psnr.size()));
  p.layers = options.integer("layers", std::max(1, fromGoal), std::max(1, fromGoal), 1000);

  Coding coding;
  // A level more would find nothing but single samples.
  const int most = int(std::bit_width(unsigned(std::max(p.tileWidth, p.tileHeight) - 1)));
  coding.levels = options.integer("levels", std::min(5, most), 0, most);
  coding.reversible = !options.has("irreversible");
  coding.gains = synthesisGains(coding.reversible, coding.levels);
  coding.style = styleOption(options);
  const auto [w, h] = options.size("block", {64, 64});
  const auto isPower = [](int n) { return n >= 4 && n <= 1024 && (n & (n - 1)) == 0; };
  if (!isPower(w) || !isPower(h) || w * h > 4096)
    throw Error("--block takes powers of two from 4 to 1024, at most 4096 together");
  coding.blockWidthLog2 = std::bit_width(unsigned(w)) - 1, coding.blockHeightLog2 = std::bit_width(unsigned(h)) - 1;
  coding.precincts.fill(0xFF);
  // The lowest band of the 5/3 wavelet grows up to 2.8 times, and differences of colours are of a bit more; with few bits
  // it's rounding, at every level, that counts.
  if (coding.reversible && p.colourTransform) coding.guardBits = 3;
  if (coding.reversible && image.bits < 8) coding.guardBits = std::min(10 - image.bits, 7);
  coding.steps = stepsFor(coding, image.bits);
  p.coding.assign(p.bits.size(), coding);
  return p;
}

std::vector<uint8_t> writeCodestream(const Image& original, const Options& options, Stages& stages, Parameters& p) {
  Image adapted;
  const Image& image = adapt(original, adapted, stages, {Colour::rgb, Colour::rgba, Colour::grey, Colour::greyAlpha});
  Goal goal{listOfNumbers(options, "rate"), listOfNumbers(options, "psnr")};
  if (!goal.bitsPerPixel.empty() && !goal.psnr.empty()) throw Error("--rate and --psnr can't be had together");
  p = makeParameters(image, options, goal);
  std::vector<Tile> tiles;
  encodeTiles(image, p, goal, tiles, stages);
  return stages.time("packets", [&] {
    std::vector<uint8_t> out = writeMainHeader(p), packets;
    for (size_t t = 0; t < tiles.size(); ++t) {
      packets.clear();
      writePackets(packets, p, tiles[t]);
      writeTile(out, int32_t(t), packets);
    }
    out.push_back(0xFF), out.push_back(0xD9);
    return out;
  });
}

std::vector<uint8_t> writePlain(const Image& image, const Options& options, Stages& stages) {
  Parameters p;
  return writeCodestream(image, options, stages, p);
}

std::vector<uint8_t> writeBoxed(const Image& image, const Options& options, Stages& stages) {
  Parameters p;
  const auto codestream = writeCodestream(image, options, stages, p);
  Metadata metadata = image.metadata;
  keepProfile(metadata, p.colour, stages);
  return wrapJp2(p, metadata, codestream);
}

void describe(Bytes file, Facts& facts) {
  const Codestream stream = parse(file);
  const Parameters& p = stream.parameters;
  const Coding& c = p.coding[0];
  const Area area = arrange(stream, -1).area;
  constexpr const char* kOrders[] = {"LRCP", "RLCP", "RPCL", "PCRL", "CPRL"};
  facts.picture(isJp2(file) ? "JP2" : "JPEG 2000 codestream", area.width(), area.height(),
                std::to_string(p.bits.size()) + (p.bits.size() == 1 ? " component" : " components"), p.bits[0]);
  facts.add("wavelet", c.reversible ? "5/3" : "9/7")
      .add("levels", c.levels)
      .add("layers", p.layers)
      .add("tiles across", p.tilesWide())
      .add("tiles down", p.tilesHigh())
      .add("progression", kOrders[int(p.progression)])
      .add("code-blocks", std::to_string(1 << c.blockWidthLog2) + "x" + std::to_string(1 << c.blockHeightLog2))
      .add("colour transform", bool(p.colourTransform));
  if (const size_t bytes = stream.jp2.metadata.profile.size()) facts.add("colour profile bytes", bytes);
  if (const size_t bytes = stream.jp2.metadata.exif.size())
    facts.add("EXIF bytes", bytes).add("orientation", orientationOf(stream.jp2.metadata));
  if (!stream.tileParameters.empty()) facts.add("tiles with parameters of their own", stream.tileParameters.size());
}

}  // namespace

extern const Format kJpeg2000, kJp2;
const Format kJpeg2000 = {"JPEG 2000 codestream",
                          {".j2k", ".j2c"},
                          {{"irreversible", nullptr, "the 9/7 wavelet; without it the 5/3 one, lossless"},
                           {"rate", "LIST", "bits per pixel of each layer, rising, such as 0.5,1,2"},
                           {"psnr", "LIST", "quality of each layer in dB, rising"},
                           {"layers", "N", "quality layers (1)"},
                           {"levels", "N", "wavelet levels, as far as they split the tile (5)"},
                           {"tiles", "WxH", "tile size (one tile)"},
                           {"block", "WxH", "code-block size (64x64)"},
                           {"style", "LIST", "of bypass, reset, terminate, causal, segment"},
                           {"order", "NAME", "progression LRCP, RLCP, RPCL, PCRL or CPRL (LRCP)"},
                           {"component", "N", "when reading: this component alone, counted from 0"}},
                          recognisesCodestream,
                          read,
                          writePlain,
                          describe,
                          kNothing,
                          readRows};
const Format kJp2 = {"JP2", {".jp2"}, {}, isJp2, read, writeBoxed, describe, kProfile | kExif, readRows};

}  // namespace qelconv
