// Colour conversion of full resolution, beside the AVX2 row functions of libjpeg-turbo.
#include <array>

#include "qelj.h"
#include "support/pair.h"
#include "support/samples.h"

// The peer's internal entry points (its own rows must be aligned to 32 bytes and may be read and written up
// to the next multiple of 32 pixels).
extern "C" {
using PeerForward = void(unsigned width, uint8_t** in, uint8_t*** out, unsigned outRow, int rows);
using PeerInverse = void(unsigned width, uint8_t*** in, unsigned inRow, uint8_t** out, int rows);
PeerForward jsimd_rgb_ycc_convert_avx2, jsimd_extrgbx_ycc_convert_avx2, jsimd_rgb_gray_convert_avx2;
PeerInverse jsimd_ycc_rgb_convert_avx2, jsimd_ycc_extrgbx_convert_avx2;
}

namespace {
using namespace qelj::bench;

void measure(const std::string& image, const Photo& photo) {
  const QelSize size{photo.width, photo.height};
  const double mpix = photo.width * 1e-6 * photo.height;
  const auto width = unsigned(photo.width);
  static std::vector<std::unique_ptr<Samples>> kept;  // the work runs after this function has returned
  const auto make = [&](int bytes) {
    kept.push_back(std::make_unique<Samples>(photo.width * bytes, photo.height));
    return kept.back().get();
  };
  Samples *rgb = make(3), *rgbx = make(4), *out3 = make(3), *out4 = make(4);
  const std::array<Samples*, 3> rgbPlanes{make(1), make(1), make(1)}, ycc{make(1), make(1), make(1)},
      out{make(1), make(1), make(1)};
  for (int y = 0; y < photo.height; ++y)
    for (int x = 0; x < photo.width; ++x)
      for (int c = 0; c < 3; ++c) {
        const uint8_t v = photo.rgb[(size_t(y) * width + x) * 3 + c];
        rgb->row(y)[3 * x + c] = rgbx->row(y)[4 * x + c] = rgbPlanes[c]->row(y)[x] = v;
      }
  uint8_t* const yccIn[] = {ycc[0]->row(0), ycc[1]->row(0), ycc[2]->row(0)};
  qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb->row(0), rgb->step(), yccIn, ycc[0]->step(), size);

  struct Planes {
    uint8_t* ours[3];
    uint8_t** peer[3];
  };
  const auto planesOf = [](const std::array<Samples*, 3>& p) {
    return Planes{{p[0]->row(0), p[1]->row(0), p[2]->row(0)}, {p[0]->rows(), p[1]->rows(), p[2]->rows()}};
  };
  const Planes from = planesOf(ycc), to = planesOf(out), planesRgb = planesOf(rgbPlanes);
  const int step = ycc[0]->step();

  const auto copy = [=](const Samples* a, Samples* b, int planes) {
    return [=] {
      for (int i = 0; i < planes; ++i) std::memcpy(b->row(0), a->row(0), size_t(a->step()) * size.height);
    };
  };
  const auto forward = [&](const std::string& name, auto* ours, const Samples* src, PeerForward* peer) {
    pair(
        name + ", " + image, mpix, "MPix/s", [=] { ours(src->row(0), src->step(), to.ours, step, size); },
        [=] { peer(width, src->rows(), const_cast<uint8_t***>(to.peer), 0, size.height); }, copy(rgb, out3, 1));
  };
  const auto inverse = [&](const std::string& name, auto ours, Samples* dst, PeerInverse* peer) {
    pair(
        name + ", " + image, mpix, "MPix/s", [=] { ours(from.ours, step, dst->row(0), dst->step(), size); },
        [=] { peer(width, const_cast<uint8_t***>(from.peer), 0, dst->rows(), size.height); }, copy(rgb, out3, 1));
  };
  forward("RGB to YCbCr", qeliRGBToYCbCr_JPEG_8u_C3P3R, rgb, jsimd_rgb_ycc_convert_avx2);
  forward("RGBX to YCbCr", qeliRGBToYCbCr_JPEG_8u_C4P3R, rgbx, jsimd_extrgbx_ycc_convert_avx2);
  pair(
      "RGB to Y, " + image, mpix, "MPix/s",
      [=] { qeliRGBToY_JPEG_8u_C3C1R(rgb->row(0), rgb->step(), to.ours[0], step, size); },
      [=] { jsimd_rgb_gray_convert_avx2(width, rgb->rows(), const_cast<uint8_t***>(to.peer), 0, size.height); });
  inverse("YCbCr to RGB", qeliYCbCrToRGB_JPEG_8u_P3C3R, out3, jsimd_ycc_rgb_convert_avx2);
  inverse(
      "YCbCr to RGBX", [](auto... a) { return qeliYCbCrToRGB_JPEG_8u_P3C4R(a..., 255); }, out4,
      jsimd_ycc_extrgbx_convert_avx2);

  // The peer has nothing of these.
  const auto alone = [&](const std::string& name, Work work, int bytes) {
    pair(name + ", " + image, mpix, "MPix/s", std::move(work), {},
         bytes == 3 ? Work(copy(rgb, out3, 1)) : Work(copy(rgbx, out4, 1)));
  };
  alone("RGB planes to YCbCr", [=] { qeliRGBToYCbCr_JPEG_8u_P3R(planesRgb.ours, step, to.ours, step, size); }, 3);
  alone("RGB planes to Y", [=] { qeliRGBToY_JPEG_8u_P3C1R(planesRgb.ours, step, to.ours[0], step, size); }, 3);
  alone("YCbCr to RGB planes", [=] { qeliYCbCrToRGB_JPEG_8u_P3R(from.ours, step, to.ours, step, size); }, 3);
  const Samples* k = make(1);
  Samples* kOut = make(1);
  const std::array<uint8_t*, 4> from4{from.ours[0], from.ours[1], from.ours[2], k->row(0)},
      to4{to.ours[0], to.ours[1], to.ours[2], kOut->row(0)};
  alone("CMYK to YCCK", [=] { qeliCMYKToYCCK_JPEG_8u_C4P4R(rgbx->row(0), rgbx->step(), to4.data(), step, size); }, 4);
  alone("YCCK to CMYK", [=] { qeliYCCKToCMYK_JPEG_8u_P4C4R(from4.data(), step, out4->row(0), out4->step(), size); }, 4);
}

}  // namespace

int main(int argc, char** argv) {
  measure("photograph", loadPhoto("raccoon.png"));
  measure("4096x4096", noise(4096, 4096));
  return runPairs(argc, argv);
}
