// Subsampled colour conversion and resampling, beside libjpeg-turbo: its planar interface (which replicates
// chroma on the way back, as we do), its merged conversion, and its AVX2 resamplers.
#include <turbojpeg.h>

#include <array>
#include <cstring>

#include "qelj.h"
#include "support/pair.h"
#include "support/pictures.h"

// The peer's internal entry points. Its rows are aligned to 32 bytes and may be read and written up to the
// next multiple of 64 samples. Fancy up-sampling reads rows -1 and `rows` of its source.
extern "C" {
using PeerMerged = void(unsigned outWidth, uint8_t*** in, unsigned inRow, uint8_t** out);
using PeerDown = void(unsigned imageWidth, int maxV, unsigned v, unsigned widthInBlocks, uint8_t** in, uint8_t** out);
using PeerUp = void(int maxV, unsigned downsampledWidth, uint8_t** in, uint8_t*** out);
PeerMerged jsimd_h2v1_merged_upsample_avx2, jsimd_h2v2_merged_upsample_avx2;
PeerDown jsimd_h2v1_downsample_avx2, jsimd_h2v2_downsample_avx2;
PeerUp jsimd_h2v1_fancy_upsample_avx2, jsimd_h2v2_fancy_upsample_avx2;
}

namespace {
using namespace qelj::bench;

constexpr const char* kPeer = "libjpeg-turbo";

Work copy(Samples& from, Samples& to, size_t bytes) {
  return [&, bytes] { std::memcpy(to.row(0), from.row(0), bytes); };
}

// Each picture at each sampling; a peer's row of merged conversion makes one or two rows of pixels.
struct Sampling {
  const char* name;
  int down, peer;
  QelStatus (*forward)(const uint8_t*, int32_t, uint8_t* const*, const int32_t*, QelSize);
  QelStatus (*inverse)(const uint8_t* const*, const int32_t*, uint8_t*, int32_t, QelSize);
  PeerMerged* merged;
};
constexpr Sampling kSamplings[] = {
    {"4:2:2", 1, TJSAMP_422, qeliRGBToYCbCr422_JPEG_8u_C3P3R, qeliYCbCr422ToRGB_JPEG_8u_P3C3R,
     jsimd_h2v1_merged_upsample_avx2},
    {"4:2:0", 2, TJSAMP_420, qeliRGBToYCbCr411_JPEG_8u_C3P3R, qeliYCbCr411ToRGB_JPEG_8u_P3C3R,
     jsimd_h2v2_merged_upsample_avx2},
};
enum class Way { forward, planar, merged };

void conversion(const std::string& input, const Photo& photo, const Sampling& s, Way way) {
  if (!wanted(input)) return;
  const int width = photo.width / 32 * 32, height = photo.height / 2 * 2;
  const QelSize size{width, height};
  Samples rgb(photo), out(3 * width, height);
  Samples p[] = {{width, height}, {width / 2, height / s.down}, {width / 2, height / s.down}};
  uint8_t* const planes[] = {p[0].row(0), p[1].row(0), p[2].row(0)};
  const int32_t steps[] = {p[0].step(), p[1].step(), p[2].step()};
  static const tjhandle encoder = tjInitCompress(), decoder = tjInitDecompress();

  const Work forward = [&] { s.forward(rgb.row(0), rgb.step(), planes, steps, size); };
  const Work inverse = [&] { s.inverse(planes, steps, out.row(0), out.step(), size); };
  const Work peers[] = {[&] {
                          tjEncodeYUVPlanes(encoder, rgb.row(0), width, rgb.step(), height, TJPF_RGB,
                                            const_cast<uint8_t**>(planes), const_cast<int*>(steps), s.peer, 0);
                        },
                        [&] {
                          tjDecodeYUVPlanes(decoder, const_cast<const uint8_t**>(planes), steps, s.peer, out.row(0),
                                            width, out.step(), height, TJPF_RGB, TJFLAG_FASTUPSAMPLE);
                        },
                        [&] {
                          for (int y = 0; y < height; y += s.down) {
                            uint8_t** in[3] = {p[0].rows(), p[1].rows(), p[2].rows()};
                            s.merged(unsigned(width), in, unsigned(y / s.down), out.rows(y));
                          }
                        }};
  forward();
  // A picture of three bytes a pixel, and planes of 2 or 1.5.
  const size_t bytes = size_t(rgb.step()) * size_t(height) * (s.down == 1 ? 10 : 9) / 12;
  row(input, 1e-6 * width * height, way == Way::forward ? forward : inverse, peers[int(way)], copy(rgb, out, bytes));
}

// A plane down and up: whole planes, and rows, of which the peer's functions have no other form.
void resampling() {
  struct Plane {
    std::string name;
    int width, height;
    Samples large, small;
    Plane(const char* n, int w, int h) : name(n), width(w), height(h), large(w, h, 64), small(w / 2, h, 64) {
      for (int y = -1; y <= h; ++y)
        for (int x = 0; x < w / 2; ++x) small.row(y)[x] = uint8_t(x * 7 + y * 13);
    }
    QelSize full() const { return {width, height}; }
    QelSize across() const { return {width / 2, height}; }
    QelSize both() const { return {width / 2, height / 2}; }
  };
  Plane cached("1024x64", 1024, 64), photograph("1024x768", 1024, 768);
  struct Kind {
    const char* name;
    double goal;
    int bytes;  // touched, in eighths of the large plane
    void (*plane)(Plane&);
    void (*rows)(Plane&);
    void (*peer)(Plane&);
  };
  constexpr Kind kKinds[] = {
      {"H2V1 down", 1.0, 12,
       [](Plane& p) {
         qeliSampleDownH2V1_JPEG_8u_C1R(p.large.row(0), p.large.step(), p.full(), p.small.row(0), p.small.step(),
                                        p.across());
       },
       [](Plane& p) {
         for (int y = 0; y < p.height; ++y)
           qeliSampleDownRowH2V1_Box_JPEG_8u_C1(p.large.row(y), p.width, p.small.row(y));
       },
       [](Plane& p) {
         jsimd_h2v1_downsample_avx2(unsigned(p.width), p.height, unsigned(p.height), unsigned(p.width / 16),
                                    p.large.rows(), p.small.rows());
       }},
      {"H2V2 down", 1.0, 10,
       [](Plane& p) {
         qeliSampleDownH2V2_JPEG_8u_C1R(p.large.row(0), p.large.step(), p.full(), p.small.row(0), p.small.step(),
                                        p.both());
       },
       [](Plane& p) {
         for (int y = 0; y < p.height / 2; ++y)
           qeliSampleDownRowH2V2_Box_JPEG_8u_C1(p.large.row(2 * y), p.large.row(2 * y + 1), p.width, p.small.row(y));
       },
       [](Plane& p) {
         jsimd_h2v2_downsample_avx2(unsigned(p.width), p.height, unsigned(p.height / 2), unsigned(p.width / 16),
                                    p.large.rows(), p.small.rows());
       }},
      {"H2V1 triangle up", 1.5, 12,
       [](Plane& p) {
         qeliSampleUpH2V1_JPEG_8u_C1R(p.small.row(0), p.small.step(), p.across(), p.large.row(0), p.large.step(),
                                      p.full());
       },
       [](Plane& p) {
         for (int y = 0; y < p.height; ++y)
           qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(p.small.row(y), p.width / 2, p.large.row(y));
       },
       [](Plane& p) {
         uint8_t** out = p.large.rows();
         jsimd_h2v1_fancy_upsample_avx2(p.height, unsigned(p.width / 2), p.small.rows(), &out);
       }},
      {"H2V2 triangle up", 1.5, 10,
       [](Plane& p) {
         qeliSampleUpH2V2_JPEG_8u_C1R(p.small.row(0), p.small.step(), p.both(), p.large.row(0), p.large.step(),
                                      p.full());
       },
       [](Plane& p) {
         for (int y = 0; y < p.height; ++y)
           qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(p.small.row(y / 2), p.small.row(y / 2 + (y % 2 ? 1 : -1)),
                                                   p.width / 2, p.large.row(y));
       },
       [](Plane& p) {
         uint8_t** out = p.large.rows();
         jsimd_h2v2_fancy_upsample_avx2(p.height, unsigned(p.width / 2), p.small.rows(), &out);
       }},
  };
  Samples from(1024, 1024), to(1024, 1024);
  for (const Kind& k : kKinds) {
    road(k.name, "MSample/s", kPeer, k.goal);
    for (Plane* p : {&cached, &photograph}) {
      const size_t bytes = size_t(p->width) * size_t(p->height) * size_t(k.bytes) / 16;
      const double samples = 1e-6 * p->width * p->height;
      const Work peer = [&] { k.peer(*p); };
      row("rows, " + p->name, samples, [&] { k.rows(*p); }, peer, copy(from, to, bytes));
      row("plane, " + p->name, samples, [&] { k.plane(*p); }, peer, copy(from, to, bytes));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  begin(argc, argv);
  resampling();
  const Photo photo = loadPhoto("raccoon.png");
  Photo strip = photo, large = noise(4096, 4096);
  strip.height = 16;
  struct Kind {
    const char* name;
    Way way;
    double goal;  // for a destination larger than the last cache
  };
  for (const Sampling& s : kSamplings)
    for (const Kind& k : {Kind{"RGB to ", Way::forward, 0},
                          {" to RGB beside merged conversion", Way::merged, 1.2},
                          {" to RGB beside planar conversion", Way::planar, 0}}) {
      const std::string name = k.way == Way::forward ? k.name + std::string(s.name) : s.name + std::string(k.name);
      road(name + ", cached", "MPix/s", kPeer);
      conversion("1024x16", strip, s, k.way);
      conversion("photograph", photo, s, k.way);
      road(name + ", 4096x4096", "MPix/s", kPeer, k.goal);
      conversion("noise", large, s, k.way);
    }
  return finish();
}
