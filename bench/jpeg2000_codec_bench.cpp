// Whole JPEG 2000 codestreams, memory to memory: the converter's format beside OpenJPEG. One tile, five levels,
// blocks of 64 x 64, one layer; lossless by the 5/3 wavelet, and the 9/7 wavelet at 2 bits a pixel. Each side
// decodes the peer's codestream.
#include "format.h"
#include "support/openjpeg_peer.h"

namespace qelconv {
extern const Format kJpeg2000;
}

namespace qelj::bench {
namespace {

struct Case {
  const char* name;
  Photo photo;
};

void rows(std::vector<Case>& all, double bitsPerPixel, const std::string& how, double goal) {
  for (const bool decoding : {false, true}) {
    road("whole JPEG 2000, " + how + (decoding ? ", decoding" : ", encoding"), "MPix/s", "OpenJPEG", goal);
    for (Case& c : all) {
      if (!wanted(c.name)) continue;
      qelconv::Image image(c.photo.width, c.photo.height, qelconv::Colour::rgb);
      image.data = c.photo.rgb;
      qelconv::Options options;
      if (bitsPerPixel > 0) {
        options.set("irreversible", "");
        options.set("rate", std::to_string(bitsPerPixel));
      }
      qelconv::Stages stages;
      std::vector<uint8_t> theirs, decoded(c.photo.rgb.size());
      openjpegEncode(c.photo, bitsPerPixel, theirs);
      auto ours = qelconv::kJpeg2000.write(image, options, stages);
      openjpegDecode(ours, decoded);
      const auto read = qelconv::kJpeg2000.read(theirs, {}, stages).data;
      require(bitsPerPixel > 0 || (decoded == c.photo.rgb && read == c.photo.rgb),
              "a lossless codestream lost something");
      const std::string note = bitsPerPixel > 0
                                   ? text("PSNR %.2f, %.2f dB", psnr(decoded, c.photo.rgb), psnr(read, c.photo.rgb))
                                   : text("bytes %zu, %zu", ours.size(), theirs.size());
      if (decoding)
        row(
            c.name, c.photo.megapixels(),
            [&] {
              qelconv::Stages s;
              keep(qelconv::kJpeg2000.read(theirs, {}, s));
            },
            [&] { openjpegDecode(theirs, decoded); });
      else
        row(
            c.name, c.photo.megapixels(),
            [&] {
              qelconv::Stages s;
              keep(qelconv::kJpeg2000.write(image, options, s));
            },
            [&] { openjpegEncode(c.photo, bitsPerPixel, theirs); }, {}, note);
    }
  }
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  begin(argc, argv);
  std::vector<Case> all = {{"raccoon", loadPhoto("raccoon.png")}, {"coffee", loadPhoto("coffee.png")}};
  rows(all, 0, "lossless", 1.8);
  rows(all, 2, "9/7 at 2 bits a pixel", 0);
  return finish();
}
