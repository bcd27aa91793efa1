// Colour conversion of full resolution and level shifts, beside the AVX2 row functions of libjpeg-turbo and beside
// memcpy; and what a call costs at the least.
#include <algorithm>
#include <array>
#include <cstring>

#include "qelj.h"
#include "support/pair.h"
#include "support/pictures.h"

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

constexpr const char* kPeer = "libjpeg-turbo";

// A picture as pixels of three and of four bytes and as planes, and room for the same.
struct Pixels {
  QelSize size;
  Samples rgb, rgbx, out3, out4;
  std::array<Samples, 4> planes, out;
  uint8_t *in[4], *to[4];
  uint8_t **peerIn[3], **peerOut[3];

  explicit Pixels(const Photo& photo)
      : size{photo.width, photo.height},
        rgb(photo),
        rgbx(photo.width * 4, photo.height),
        out3(photo.width * 3, photo.height),
        out4(photo.width * 4, photo.height),
        planes{plane(), plane(), plane(), plane()},
        out{plane(), plane(), plane(), plane()} {
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) std::memcpy(rgbx.row(y) + 4 * x, photo.row(y) + 3 * x, 3);
    for (size_t i = 0; i < 4; ++i) in[i] = planes[i].row(0), to[i] = out[i].row(0);
    for (size_t i = 0; i < 3; ++i) peerIn[i] = planes[i].rows(), peerOut[i] = out[i].rows();
    qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb.row(0), rgb.step(), in, step(), size);
  }
  Samples plane() const { return Samples(size.width, size.height); }
  int32_t step() const { return planes[0].step(); }
  unsigned width() const { return unsigned(size.width); }
  double megapixels() const { return 1e-6 * size.width * size.height; }
  // Touches as many bytes as a conversion of so many bytes a pixel to as many.
  Work copy(int bytes) {
    return [this, bytes] {
      const Samples &from = bytes == 3 ? rgb : rgbx, &dst = bytes == 3 ? out3 : out4;
      std::memcpy(dst.row(0), from.row(0), size_t(from.step()) * size_t(size.height));
    };
  }

  void toYcc() { qeliRGBToYCbCr_JPEG_8u_C3P3R(rgb.row(0), rgb.step(), to, step(), size); }
  void toRgb() { qeliYCbCrToRGB_JPEG_8u_P3C3R(in, step(), out3.row(0), out3.step(), size); }
  void peerToYcc() { jsimd_rgb_ycc_convert_avx2(width(), rgb.rows(), peerOut, 0, size.height); }
  void peerToRgb() { jsimd_ycc_rgb_convert_avx2(width(), peerIn, 0, out3.rows(), size.height); }
};

using Method = void (Pixels::*)();
struct Direction {
  const char* name;
  Method ours, peer;
  double goal;
};
constexpr Direction kDirections[] = {{"RGB to YCbCr", &Pixels::toYcc, &Pixels::peerToYcc, 1.6},
                                     {"YCbCr to RGB", &Pixels::toRgb, &Pixels::peerToRgb, 1.7}};

void besidePeer(const std::vector<std::pair<std::string, Pixels*>>& pictures, const char* where, bool hasGoal) {
  const auto rows = [&](const std::string& name, double goal, auto ours, auto peer, int bytes) {
    road(name + where, "MPix/s", kPeer, hasGoal ? goal : 0);
    for (const auto& [input, p] : pictures)
      row(input, p->megapixels(), [&, q = p] { ours(*q); }, [&, q = p] { peer(*q); }, p->copy(bytes));
  };
  for (const Direction& d : kDirections)
    rows(d.name, d.goal, [&](Pixels& p) { (p.*d.ours)(); }, [&](Pixels& p) { (p.*d.peer)(); }, 3);
  rows(
      "RGBX to YCbCr", 0,
      [](Pixels& p) { qeliRGBToYCbCr_JPEG_8u_C4P3R(p.rgbx.row(0), p.rgbx.step(), p.to, p.step(), p.size); },
      [](Pixels& p) { jsimd_extrgbx_ycc_convert_avx2(p.width(), p.rgbx.rows(), p.peerOut, 0, p.size.height); }, 4);
  rows(
      "YCbCr to RGBX", 0,
      [](Pixels& p) { qeliYCbCrToRGB_JPEG_8u_P3C4R(p.in, p.step(), p.out4.row(0), p.out4.step(), p.size, 255); },
      [](Pixels& p) { jsimd_ycc_extrgbx_convert_avx2(p.width(), p.peerIn, 0, p.out4.rows(), p.size.height); }, 4);
  rows(
      "RGB to Y", 0, [](Pixels& p) { qeliRGBToY_JPEG_8u_C3C1R(p.rgb.row(0), p.rgb.step(), p.to[0], p.step(), p.size); },
      [](Pixels& p) { jsimd_rgb_gray_convert_avx2(p.width(), p.rgb.rows(), p.peerOut, 0, p.size.height); }, 3);
}

// The peer has nothing of these.
void alone(Pixels& p) {
  road("without a peer, rows in cache", "MPix/s");
  const auto one = [&](const char* name, int bytes, const Work& work) {
    row(name, p.megapixels(), work, {}, p.copy(bytes));
  };
  one("RGB planes to YCbCr", 3, [&] { qeliRGBToYCbCr_JPEG_8u_P3R(p.in, p.step(), p.to, p.step(), p.size); });
  one("RGB planes to Y", 3, [&] { qeliRGBToY_JPEG_8u_P3C1R(p.in, p.step(), p.to[0], p.step(), p.size); });
  one("YCbCr to RGB planes", 3, [&] { qeliYCbCrToRGB_JPEG_8u_P3R(p.in, p.step(), p.to, p.step(), p.size); });
  one("CMYK to YCCK", 4, [&] { qeliCMYKToYCCK_JPEG_8u_C4P4R(p.rgbx.row(0), p.rgbx.step(), p.to, p.step(), p.size); });
  one("YCCK to CMYK", 4, [&] { qeliYCCKToCMYK_JPEG_8u_P4C4R(p.in, p.step(), p.out4.row(0), p.out4.step(), p.size); });
}

// Calls of 1,000 rows of 1 to 63 pixels: the slowest one of each few widths beside rows of 64 pixels.
void narrow(Pixels& p) {
  for (const Direction& d : kDirections) {
    road(d.name + std::string(", rows of 1 to 63 pixels, 1000 a call"), "calls/s", "rows of 64 pixels", 1);
    const auto calls = [&](int width) {
      return [&p, &d, width] {
        p.size.width = width;
        (p.*d.ours)();
      };
    };
    for (int first = 1; first < 64; first += 8) {
      const std::string input = text("%d to %d pixels", first, std::min(first + 7, 63));
      if (!wanted(input)) continue;
      int slowest = first;
      double ratio = 1e9;
      for (int width = first; width < std::min(first + 8, 64); ++width) {
        const Seconds s = measure(calls(width), calls(64));
        if (s.ratio < ratio) ratio = s.ratio, slowest = width;
      }
      row(input, 1, calls(slowest), calls(64), {}, text("slowest: %d", slowest));
    }
  }
}

// A row a call, as a codec that works row by row.
void aRowACall(Pixels& p) {
  for (const Direction& d : kDirections) {
    road(d.name + std::string(", a row of 512 pixels a call"), "MPix/s", kPeer);
    p.size = {512, 1};
    const auto one = [&](const char* input) {
      row(input, p.megapixels(), [&] { (p.*d.ours)(); }, [&] { (p.*d.peer)(); });
    };
    one("thread count set");
    const ThreadsUnset unset;
    one("thread count unset");
  }
}

void smallest() {
  Pixels p(noise(64, 1));
  p.size = {1, 1};
  int16_t coefficients[64];
  road("smallest calls", "ns a call", "", 10);
  const auto one = [&](const char* name, auto call) {
    constexpr int kCalls = 64;
    row(name + std::string(", thread count unset"), kCalls, [&] {
      for (int i = 0; i < kCalls; ++i) call();
    });
  };
  const ThreadsUnset unset;
  one("RGB to YCbCr", [&] { p.toYcc(); });
  one("YCbCr to RGB", [&] { p.toRgb(); });
  one("RGB to Y", [&] { qeliRGBToY_JPEG_8u_C3C1R(p.rgb.row(0), 192, p.to[0], 64, p.size); });
  one("level shift", [&] { qeliSub128_JPEG_8u16s_C1R(p.rgb.row(0), 64, coefficients, 128, p.size); });
}

// Blocks of a picture between samples and 16 bits, in the second cache.
void shares(Pixels& p) {
  constexpr int kSide = 256;
  static Samples bytes(kSide, kSide), words(2 * kSide, kSide), copy(2 * kSide, kSide);
  const auto* from = words.row(0);
  road("level shift, in the second cache", "MSample/s", "memcpy of the bytes touched", 0.6);
  const auto one = [&](const char* name, const Work& ours) {
    row(name, 1e-6 * kSide * kSide, ours, [&] { std::memcpy(copy.row(0), from, kSide * kSide * 3 / 2); });
  };
  auto* coefficients = reinterpret_cast<int16_t*>(words.row(0));
  one("to 16 bits",
      [&] { qeliSub128_JPEG_8u16s_C1R(bytes.row(0), bytes.step(), coefficients, words.step(), {kSide, kSide}); });
  one("to 8 bits",
      [&] { qeliAdd128_JPEG_16s8u_C1R(coefficients, words.step(), bytes.row(0), bytes.step(), {kSide, kSide}); });
  road("colour, in the second cache", "MPix/s", "memcpy of the bytes touched", 0.16);
  for (const Direction& d : kDirections) row(d.name, p.megapixels(), [&] { (p.*d.ours)(); }, p.copy(3));
}

}  // namespace

int main(int argc, char** argv) {
  begin(argc, argv);
  Pixels small(noise(512, 16)), strip(noise(1920, 16)), square(noise(256, 256)), rows(noise(64, 1000));
  besidePeer({{"512x16", &small}, {"1920x16", &strip}, {"256x256", &square}}, ", rows in cache", true);
  Pixels photograph(loadPhoto("raccoon.png"));
  {
    Pixels large(noise(4096, 4096));
    besidePeer({{"photograph", &photograph}, {"4096x4096", &large}}, ", whole pictures", false);
  }
  alone(small);
  narrow(rows);
  shares(square);
  smallest();
  aRowACall(small);
  return finish();
}
