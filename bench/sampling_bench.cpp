// Subsampled colour conversion and resampling, beside libjpeg-turbo: its planar interface (which replicates
// chroma on the way back, as we do), its merged conversion, and its AVX2 resamplers.
#include <turbojpeg.h>

#include <array>
#include <memory>

#include "qelj.h"
#include "support/pair.h"
#include "support/samples.h"

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

std::vector<std::unique_ptr<Samples>> kept;  // the work runs after its function has returned
Samples* make(int rowBytes, int height, int border = 0) {
  kept.push_back(std::make_unique<Samples>(rowBytes, height, border));
  return kept.back().get();
}
Work copy(size_t bytes) {
  const auto *from = make(int(bytes / 64), 64), *to = make(int(bytes / 64), 64);
  return [=] { std::memcpy(to->row(0), from->row(0), bytes); };
}

void conversions(const std::string& image, const Photo& photo) {
  const int width = photo.width / 32 * 32, height = photo.height / 2 * 2;
  const QelSize size{width, height};
  const double mpix = width * 1e-6 * height;
  Samples *rgb = make(3 * width, height), *out = make(3 * width, height);
  for (int y = 0; y < height; ++y)
    std::memcpy(rgb->row(y), &photo.rgb[size_t(y) * size_t(photo.width) * 3], size_t(width) * 3);
  static const tjhandle encoder = tjInitCompress(), decoder = tjInitDecompress();

  const auto one = [&](const char* name, int rows, int subsampling, auto* forward, auto* inverse, PeerMerged* merged) {
    const std::array<Samples*, 3> p{make(width, height), make(width / 2, height / rows),
                                    make(width / 2, height / rows)};
    struct Args {
      uint8_t* plane[3];
      int32_t step[3];
      uint8_t** rows[3];
    };
    const Args a{{p[0]->row(0), p[1]->row(0), p[2]->row(0)},
                 {p[0]->step(), p[1]->step(), p[2]->step()},
                 {p[0]->rows(), p[1]->rows(), p[2]->rows()}};
    forward(rgb->row(0), rgb->step(), a.plane, a.step, size);
    const size_t bytes = size_t(width) * size_t(height) * 3;
    pair(
        "RGB to " + (name + (", " + image)), mpix, "MPix/s",
        [=] { forward(rgb->row(0), rgb->step(), a.plane, a.step, size); },
        [=] {
          tjEncodeYUVPlanes(encoder, rgb->row(0), width, rgb->step(), height, TJPF_RGB, const_cast<uint8_t**>(a.plane),
                            const_cast<int*>(a.step), subsampling, 0);
        },
        copy(bytes));
    pair(
        name + (" to RGB, planar interface, " + image), mpix, "MPix/s",
        [=] { inverse(a.plane, a.step, out->row(0), out->step(), size); },
        [=] {
          tjDecodeYUVPlanes(decoder, const_cast<const uint8_t**>(a.plane), a.step, subsampling, out->row(0), width,
                            out->step(), height, TJPF_RGB, TJFLAG_FASTUPSAMPLE);
        },
        copy(bytes));
    pair(
        name + (" to RGB, merged conversion, " + image), mpix, "MPix/s",
        [=] { inverse(a.plane, a.step, out->row(0), out->step(), size); },
        [=] {
          for (int y = 0; y < height; y += rows) {
            uint8_t** in[3] = {a.rows[0], a.rows[1], a.rows[2]};
            if (rows == 1) merged(unsigned(width), in, unsigned(y), out->rows(y));
            else merged(unsigned(width), in, unsigned(y / 2), out->rows(y));
          }
        });
  };
  one("4:2:2", 1, TJSAMP_422, qeliRGBToYCbCr422_JPEG_8u_C3P3R, qeliYCbCr422ToRGB_JPEG_8u_P3C3R,
      jsimd_h2v1_merged_upsample_avx2);
  one("4:2:0", 2, TJSAMP_420, qeliRGBToYCbCr411_JPEG_8u_C3P3R, qeliYCbCr411ToRGB_JPEG_8u_P3C3R,
      jsimd_h2v2_merged_upsample_avx2);
}

// A plane of width x height (multiples of 64) down and up.
void resampling(const std::string& image, int width, int height) {
  const int half = width / 2, low = height / 2;
  const QelSize full{width, height}, across{half, height}, both{half, low};
  const double samples = width * 1e-6 * height;
  Samples *large = make(width, height, 64), *small = make(half, height, 64);
  for (int y = -1; y <= height; ++y)
    for (int x = 0; x < half; ++x) small->row(y)[x] = uint8_t(x * 7 + y * 13);
  const auto blocks = unsigned(half / 8);
  const auto add = [&](const char* name, Work ours, Work peer, size_t bytes) {
    pair(name + (", " + image), samples, "MSample/s", std::move(ours), std::move(peer), copy(bytes));
  };
  const size_t area = size_t(width) * size_t(height);
  add(
      "H2V1 down, plane",
      [=] { qeliSampleDownH2V1_JPEG_8u_C1R(large->row(0), large->step(), full, small->row(0), small->step(), across); },
      [=] {
        jsimd_h2v1_downsample_avx2(unsigned(width), height, unsigned(height), blocks, large->rows(), small->rows());
      },
      area * 3 / 4);
  add(
      "H2V1 down, rows",
      [=] {
        for (int y = 0; y < height; ++y) qeliSampleDownRowH2V1_Box_JPEG_8u_C1(large->row(y), width, small->row(y));
      },
      [=] {
        jsimd_h2v1_downsample_avx2(unsigned(width), height, unsigned(height), blocks, large->rows(), small->rows());
      },
      area * 3 / 4);
  add(
      "H2V2 down, plane",
      [=] { qeliSampleDownH2V2_JPEG_8u_C1R(large->row(0), large->step(), full, small->row(0), small->step(), both); },
      [=] { jsimd_h2v2_downsample_avx2(unsigned(width), height, unsigned(low), blocks, large->rows(), small->rows()); },
      area * 5 / 8);
  add(
      "H2V2 down, rows",
      [=] {
        for (int y = 0; y < low; ++y)
          qeliSampleDownRowH2V2_Box_JPEG_8u_C1(large->row(2 * y), large->row(2 * y + 1), width, small->row(y));
      },
      [=] { jsimd_h2v2_downsample_avx2(unsigned(width), height, unsigned(low), blocks, large->rows(), small->rows()); },
      area * 5 / 8);

  const auto fancy1 = [=] {
    uint8_t** out = large->rows();
    jsimd_h2v1_fancy_upsample_avx2(height, unsigned(half), small->rows(), &out);
  };
  const auto fancy2 = [=] {
    uint8_t** out = large->rows();
    jsimd_h2v2_fancy_upsample_avx2(height, unsigned(half), small->rows(), &out);
  };
  add(
      "H2V1 triangle up, plane",
      [=] { qeliSampleUpH2V1_JPEG_8u_C1R(small->row(0), small->step(), across, large->row(0), large->step(), full); },
      fancy1, area * 3 / 4);
  add(
      "H2V1 triangle up, rows",
      [=] {
        for (int y = 0; y < height; ++y) qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(small->row(y), half, large->row(y));
      },
      fancy1, area * 3 / 4);
  add(
      "H2V2 triangle up, plane",
      [=] { qeliSampleUpH2V2_JPEG_8u_C1R(small->row(0), small->step(), both, large->row(0), large->step(), full); },
      fancy2, area * 5 / 8);
  add(
      "H2V2 triangle up, rows",
      [=] {
        for (int y = 0; y < height; ++y)
          qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(small->row(y / 2), small->row(y / 2 + (y % 2 ? 1 : -1)), half,
                                                  large->row(y));
      },
      fancy2, area * 5 / 8);
}

}  // namespace

int main(int argc, char** argv) {
  const Photo photo = loadPhoto("raccoon.png");
  conversions("photograph", photo);
  conversions("4096x4096", noise(4096, 4096));
  resampling("photograph's size", photo.width / 64 * 64, photo.height / 64 * 64);
  resampling("4096x4096", 4096, 4096);
  return runPairs(argc, argv);
}
