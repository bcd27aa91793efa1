// Whole pictures, memory to memory, through the converter's formats, beside libraries that do the same work.
#include <turbojpeg.h>

#include "format.h"
#include "support/pair.h"

namespace qelconv {
extern const Format kJpeg;
}

namespace {

using namespace qelj::bench;
using namespace qelconv;

// JPEG with chroma halved both ways at quality 85: typical Huffman tables, the accurate integer DCT on both
// sides. The decoders spread chroma by the triangle filter.
void jpeg(const char* photograph, TJSAMP sampling, const char* name) {
  const Photo photo = loadPhoto(photograph);
  static std::vector<Image> images;  // the registered work outlives this function
  images.reserve(16);
  Image& image = images.emplace_back(photo.width, photo.height, Colour::rgb);
  image.data = photo.rgb;
  const double pixels = image.megapixels();
  const std::string label = std::string(photograph) + ", JPEG " + name;

  Options options;
  options.set("quality", "85");
  options.set("sampling", name);
  pair(
      label + " encode", pixels, "MPix/s",
      [&image, options] {
        Stages stages;
        benchmark::DoNotOptimize(kJpeg.write(image, options, stages));
      },
      [&image, sampling, compressor = tjInitCompress()] {
        unsigned char* file = nullptr;
        unsigned long bytes = 0;
        tjCompress2(compressor, image.data.data(), image.width, 0, image.height, TJPF_RGB, &file, &bytes, sampling, 85,
                    TJFLAG_ACCURATEDCT);
        tjFree(file);
      });

  Stages stages;
  const auto file = kJpeg.write(image, options, stages);
  pair(
      label + " decode", pixels, "MPix/s",
      [file] {
        Stages s;
        benchmark::DoNotOptimize(kJpeg.read(file, {}, s));
      },
      [file, width = image.width, height = image.height, decompressor = tjInitDecompress()] {
        std::vector<unsigned char> out(size_t(width) * size_t(height) * 3);
        tjDecompress2(decompressor, file.data(), file.size(), out.data(), width, 0, height, TJPF_RGB,
                      TJFLAG_ACCURATEDCT);
        benchmark::DoNotOptimize(out.data());
      });
}

}  // namespace

int main(int argc, char** argv) {
  for (const char* photograph : {"raccoon.png", "coffee.png"}) {
    jpeg(photograph, TJSAMP_420, "420");
    jpeg(photograph, TJSAMP_444, "444");
  }
  return runPairs(argc, argv);
}
