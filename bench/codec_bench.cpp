// Whole JPEG files, memory to memory, through the converter's formats, beside libjpeg-turbo: quality 85, typical
// Huffman tables, the accurate integer DCT on both sides. The decoders spread chroma by the triangle filter.
//
// Both sides decode into pictures that they are given, which stay from call to call. The peer encodes into memory that
// it is given, too, and we make a new vector for each file, which costs no page fault. With fresh memory both sides'
// large buffers are made anew in each call.
#include <turbojpeg.h>

#include <memory>

#include "format.h"
#include "rows.h"
#include "support/pair.h"
#include "support/pictures.h"

namespace qelconv {
extern const Format kJpeg;
}

namespace {

using namespace qelj::bench;
using namespace qelconv;

struct Sampling {
  const char* name;
  TJSAMP peer;
  double encodeGoal;
};
constexpr Sampling kSamplings[] = {{"420", TJSAMP_420, 1.4}, {"444", TJSAMP_444, 1.3}};

void jpeg(const Sampling& sampling, bool decoding, bool fresh, double goal) {
  const std::string name = std::string(decoding ? "whole JPEG, decoding " : "whole JPEG, encoding ") + sampling.name +
                           (fresh ? ", fresh memory" : "");
  road(name, "MPix/s", "libjpeg-turbo", goal);
  allocate(fresh ? Buffers::fresh : Buffers::warm);
  static const tjhandle compressor = tjInitCompress(), decompressor = tjInitDecompress();
  struct Input {
    const char* name;
    Photo (*make)();
  };
  for (const Input& input : {Input{"coffee", [] { return loadPhoto("coffee.png"); }},
                             {"raccoon", [] { return loadPhoto("raccoon.png"); }},
                             {"raccoon halved, 2048x2048", [] { return codedPictures()[0].make(); }},
                             {"1/f noise, 2048x2048", [] { return codedPictures()[2].make(); }}}) {
    if (!wanted(input.name)) continue;
    const Photo photo = input.make();
    Image image(photo.width, photo.height, Colour::rgb);
    image.data = photo.rgb;
    Options options;
    options.set("quality", "85");
    options.set("sampling", sampling.name);
    Stages stages;
    const auto file = kJpeg.write(image, options, stages);
    std::vector<unsigned char> out(photo.rgb.size());
    const auto theirFile = [&](unsigned char* to, unsigned long room) {
      tjCompress2(compressor, photo.rgb.data(), photo.width, 0, photo.height, TJPF_RGB, &to, &room, sampling.peer, 85,
                  TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC);
      return room;
    };
    const auto theirPicture = [&](std::vector<unsigned char>& to) {
      tjDecompress2(decompressor, file.data(), file.size(), to.data(), photo.width, 0, photo.height, TJPF_RGB,
                    TJFLAG_ACCURATEDCT);
    };
    std::vector<unsigned char> kept(tjBufSize(photo.width, photo.height, sampling.peer));
    const std::string note = decoding ? "" : text("bytes %zu, %lu", file.size(), theirFile(kept.data(), kept.size()));
    const Contents contents{Bytes(file)};
    const auto ourPicture = [&](Image& to) {
      Stages s;
      readInto(to, *kJpeg.readRows(contents, {}, s), s);
    };
    if (decoding) {
      ourPicture(image);
      require(image.data == kJpeg.read(file, {}, stages).data, name + ": the picture depends on the road");
      row(
          input.name, photo.megapixels(),
          [&] {
            if (!fresh) return ourPicture(image);
            Stages s;
            keep(kJpeg.read(file, {}, s));
          },
          [&] {
            if (!fresh) return theirPicture(out);
            std::vector<unsigned char> made(photo.rgb.size());
            theirPicture(made);
          });
    } else {
      row(
          input.name, photo.megapixels(),
          [&] {
            Stages s;
            keep(kJpeg.write(image, options, s));
          },
          [&] {
            if (!fresh) return void(theirFile(kept.data(), kept.size()));
            const std::unique_ptr<unsigned char[]> made(new unsigned char[kept.size()]);
            theirFile(made.get(), kept.size());
          },
          {}, note);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  begin(argc, argv);
  for (const bool fresh : {true, false})
    for (const Sampling& sampling : kSamplings) {
      jpeg(sampling, false, fresh, fresh ? 0 : sampling.encodeGoal);
      jpeg(sampling, true, fresh, fresh ? 0 : 1.25);
    }
  return finish();
}
