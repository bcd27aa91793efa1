// MCU conversion over a whole photograph. The forward functions leave level-shifted 16-bit blocks of the
// whole picture, the peer leaves 8-bit planes; the inverse ones start from the same. Where chroma is halved the peer is
// its merged conversion.
#include <turbojpeg.h>

#include "qelj.h"
#include "support/pair.h"
#include "support/pictures.h"

// Internal entry points of the peer: one row (h2v1) or two rows (h2v2) of RGB from rows of Y, Cb, Cr.
extern "C" {
void jsimd_h2v1_extrgb_merged_upsample_avx2(unsigned width, unsigned char*** input, unsigned group,
                                            unsigned char** output);
void jsimd_h2v2_extrgb_merged_upsample_avx2(unsigned width, unsigned char*** input, unsigned group,
                                            unsigned char** output);
}

namespace qelj::bench {
namespace {

struct Sampling {
  const char* name;
  int across, down, peer;
  QelStatus (*forward)(const uint8_t*, int32_t, int16_t* const*);
  QelStatus (*inverse)(const int16_t* const*, uint8_t*, int32_t);
  void (*merged)(unsigned, unsigned char***, unsigned, unsigned char**);
};
constexpr Sampling kSamplings[] = {
    {"444", 1, 1, TJSAMP_444, qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R, qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R, nullptr},
    {"422", 2, 1, TJSAMP_422, qeliRGBToYCbCr422LS_MCU_8u16s_C3P3R, qeliYCbCr422ToRGBLS_MCU_16s8u_P3C3R,
     jsimd_h2v1_extrgb_merged_upsample_avx2},
    {"411", 2, 2, TJSAMP_420, qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R, qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R,
     jsimd_h2v2_extrgb_merged_upsample_avx2},
};

struct Job {
  int width, height;
  std::vector<uint8_t> rgb, out;
  std::vector<uint8_t> plane[3];
  unsigned char* planes[3];
  std::vector<int16_t> block[3];
  tjhandle encoder = tjInitCompress(), decoder = tjInitDecompress();

  explicit Job(const Photo& photo) : width(photo.width / 16 * 16), height(photo.height / 16 * 16) {
    for (int y = 0; y < height; ++y) {
      const auto row = photo.rgb.begin() + std::ptrdiff_t(y) * photo.width * 3;
      rgb.insert(rgb.end(), row, row + width * 3);
    }
    out = rgb;
    for (int i = 0; i < 3; ++i) {
      plane[i].resize(size_t(width) * size_t(height));
      planes[i] = plane[i].data();
      block[i].resize(plane[i].size() + 32);
    }
  }

  // Calls the operation with the pixels and the blocks of every MCU. `reused` hands the same blocks to all.
  template <class Operation>
  void mcus(const Sampling& s, uint8_t* pixels, bool reused, Operation operation) {
    int16_t* blocks[3];
    for (int i = 0; i < 3; ++i)
      blocks[i] = reinterpret_cast<int16_t*>((reinterpret_cast<uintptr_t>(block[i].data()) + 63) / 64 * 64);
    for (int y = 0; y < height; y += 8 * s.down)
      for (int x = 0; x < width; x += 8 * s.across) {
        operation(pixels + (y * width + x) * 3, blocks);
        if (!reused) blocks[0] += 64 * s.across * s.down, blocks[1] += 64, blocks[2] += 64;
      }
  }
  void forward(const Sampling& s, bool reused) {
    mcus(s, rgb.data(), reused, [&](uint8_t* p, int16_t** blocks) { s.forward(p, width * 3, blocks); });
  }
  void inverse(const Sampling& s, bool reused) {
    mcus(s, out.data(), reused, [&](uint8_t* p, int16_t** blocks) { s.inverse(blocks, p, width * 3); });
  }
  void encodePlanes(const Sampling& s) {
    tjEncodeYUVPlanes(encoder, rgb.data(), width, 0, height, TJPF_RGB, planes, nullptr, s.peer, 0);
  }
  void decodePlanes(const Sampling& s) {
    const unsigned char* from[3] = {planes[0], planes[1], planes[2]};
    tjDecodeYUVPlanes(decoder, from, nullptr, s.peer, out.data(), width, 0, height, TJPF_RGB, TJFLAG_FASTUPSAMPLE);
  }
  void merged(const Sampling& s) {
    for (int y = 0; y < height; y += s.down) {
      unsigned char* luma[2] = {planes[0] + y * width, planes[0] + (y + s.down - 1) * width};
      unsigned char* cb[1] = {planes[1] + y / s.down * (width / 2)};
      unsigned char* cr[1] = {planes[2] + y / s.down * (width / 2)};
      unsigned char** input[3] = {luma, cb, cr};
      unsigned char* output[2] = {out.data() + y * width * 3, out.data() + (y + s.down - 1) * width * 3};
      s.merged(unsigned(width), input, 0, output);
    }
  }
};

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  begin(argc, argv);
  constexpr const char* kPeer = "libjpeg-turbo";
  Job job(loadPhoto("raccoon.png"));
  const double mpix = double(job.width) * job.height / 1e6;
  for (const Sampling& s : kSamplings) {
    // The planes that the peer converts from are those of this sampling.
    job.encodePlanes(s);
    road(std::string("RGB to MCU ") + s.name, "MPix/s", kPeer);
    const Work encode = [&] { job.encodePlanes(s); };
    row("blocks of the picture", mpix, [&] { job.forward(s, false); }, encode);
    row("one MCU's blocks reused", mpix, [&] { job.forward(s, true); }, encode);
    road(std::string("MCU ") + s.name + " to RGB", "MPix/s", kPeer);
    const Work decode = [&] { s.merged ? job.merged(s) : job.decodePlanes(s); };
    row("blocks of the picture", mpix, [&] { job.inverse(s, false); }, decode);
    row("one MCU's blocks reused", mpix, [&] { job.inverse(s, true); }, decode);
  }
  return finish();
}
