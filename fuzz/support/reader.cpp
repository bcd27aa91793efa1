// A reader of the converter, that of the files whose names end in QELJ_ENDING: any bytes give a picture or an Error that
// says why not, within the memory that they may ask for.
#include <sstream>

#include "exif.h"
#include "facts.h"
#include "format.h"
#include "support/fuzz.h"

namespace qelj::fuzz {

void run(Input input) {
  const uint8_t choices = input.take();
  const auto file = input.rest();
  const qelconv::Format* format = qelconv::formatOfContent(file);
  if (!format || !format->read) return;
  qelconv::Options options;
  options.set("max-memory", "16");
  if (choices & 1) options.set("partial", "1");
  if (choices & 6) options.set("scale", "1/" + std::to_string(1 << (choices >> 1 & 3)));
  if (choices & 8) options.set("filter", "box");
  try {
    qelconv::Stages stages;
    const qelconv::Image image = format->read(file, options, stages);
    FUZZ_EXPECT(image.width > 0 && image.height > 0);
    FUZZ_EXPECT(image.data.size() == size_t(image.step()) * size_t(image.height));
    FUZZ_EXPECT(image.missing.empty() || choices & 1);
  } catch (const qelconv::Error&) {
  }
  try {
    qelconv::Facts facts;
    format->describe(file, facts);
    std::ostringstream out;
    facts.print(out);
    facts.printJson(out);
  } catch (const qelconv::Error&) {
  }
}

// Files of the converter's own.
std::vector<Seed> seeds() {
  const struct {
    const char *ending, *options;
    qelconv::Colour colour = qelconv::Colour::rgb;
    int bits = 8;
    bool half = false;
  } kFiles[] = {{".jpg", ""},
                {".jpg", "sampling=422 restart=1 optimize=1"},
                {".jpg", "progressive=1"},
                {".jpg", "progressive=1", qelconv::Colour::grey},
                {".jpg", "plain-colour=1", qelconv::Colour::cmyk},
                {".jpg", "lossless=1 predictor=7", qelconv::Colour::rgb, 12},
                {".j2k", "layers=2"},
                {".j2k", "irreversible=1 tiles=16x16 style=bypass,reset,terminate,causal,segment"},
                {".j2k", "order=PCRL levels=2 block=4x8", qelconv::Colour::greyAlpha},
                {".j2k", "order=CPRL", qelconv::Colour::grey, 16},
                {".jp2", "order=RPCL", qelconv::Colour::rgba},
                {".jxr", "quality=100"},
                {".jxr", "quality=60"},
                {".jxr", "quality=80", qelconv::Colour::grey},
                {".jxr", "quality=90", qelconv::Colour::rgb, 16},
                {".tif", ""},
                {".tif", "packing=none big-endian=1", qelconv::Colour::rgba, 16},
                {".tif", "byte-planes=1", qelconv::Colour::grey, 16},
                {".dds", ""},
                {".dds", "dx10=1", qelconv::Colour::rgba},
                {".dds", "block=bc5"},
                {".dds", "block=bc7", qelconv::Colour::rgba},
                {".dds", "block=ycocg"},
                {".dds", "", qelconv::Colour::grey},
                {".ktx2", ""},
                {".ktx2", "block=bc3", qelconv::Colour::rgba},
                {".ktx2", "block=bc4", qelconv::Colour::grey},
                {".png", ""},
                {".png", "", qelconv::Colour::greyAlpha, 16},
                {".ppm", ""},
                {".ppm", "", qelconv::Colour::rgba, 16},
                {".pfm", "", qelconv::Colour::rgb, 16, true}};
  std::vector<Seed> all;
  const std::string own = QELJ_ENDING;
  for (const auto& file : kFiles) {
    // The endings of a family share a target.
    if (!(own == file.ending || (own == ".j2k" && !std::strcmp(file.ending, ".jp2")) ||
          (own == ".ppm" && file.ending[1] == 'p')))
      continue;
    qelconv::Image image(21, 19, file.colour, file.bits);
    image.half = file.half;
    image.metadata.exif =
        qelconv::makeExif({{{qelconv::kModel, qelconv::kText, {'a', 'n', 'y', ' ', 'o', 'n', 'e', 0}}},
                           {{0x8827, qelconv::kShort, {0, 200}}},
                           {}});
    for (size_t i = 0; i < image.data.size() / size_t(image.sampleBytes()); ++i)
      image.setSample(i, uint32_t(i * 37 / 5 + i / 61 * 3) & ((1u << (file.half ? 14 : file.bits)) - 1));
    qelconv::Options options;
    std::istringstream list(file.options);
    for (std::string option; list >> option;)
      options.set(option.substr(0, option.find('=')), option.substr(option.find('=') + 1));
    qelconv::Stages stages;
    const auto bytes = qelconv::formatOfName(file.ending)->write(image, options, stages);
    all.push_back(Seed().byte(0).bytes(bytes));
    // And a damaged one, of which there is something to be had.
    auto damaged = bytes;
    damaged[damaged.size() * 3 / 4] ^= 0x10;
    damaged.resize(damaged.size() - damaged.size() / 8);
    all.push_back(Seed().byte(1 | int(all.size()) << 1).bytes(damaged));
  }
  return all;
}

}  // namespace qelj::fuzz
