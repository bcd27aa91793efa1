// MCU conversion: numbers worked out by hand, of both forms where addresses decide, and there and back.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "qelj.h"

namespace qelj::test {
namespace {

using V = std::vector<int>;

// What a member makes of an MCU whose pixels are all `pixel`: one sample of each plane. The blocks lie at a 16-byte
// boundary, or two bytes behind it.
template <class Src>
V forward(QelStatus (*member)(const Src*, int32_t, int16_t* const*), std::vector<uint8_t> pixel,
          bool moved = false) {
  std::vector<uint8_t> pixels;
  for (int i = 0; i < 256; ++i) pixels.insert(pixels.end(), pixel.begin(), pixel.end());
  alignas(16) int16_t blocks[4][264] = {};
  int16_t* dst[4];
  for (int i = 0; i < 4; ++i) dst[i] = blocks[i] + moved;
  EXPECT_EQ(qelStatusOk,
            member(reinterpret_cast<const Src*>(pixels.data()), int32_t(16 * pixel.size()), dst));
  V samples;
  for (size_t i = 0; i < (pixel.size() == 4 ? 4u : 3u); ++i) samples.push_back(dst[i][63]);
  return samples;
}
// What it makes of flat blocks: the first pixel.
template <class Dst>
V inverse(QelStatus (*member)(const int16_t* const*, Dst*, int32_t), std::array<int16_t, 4> samples,
          bool moved = false, int pixelBytes = 3) {
  alignas(16) int16_t blocks[4][264];
  const int16_t* src[4];
  for (size_t i = 0; i < 4; ++i) std::fill_n(blocks[i], 264, samples[i]), src[i] = blocks[i] + moved;
  std::vector<uint8_t> pixels(16 * 64);
  EXPECT_EQ(qelStatusOk, member(src, reinterpret_cast<Dst*>(pixels.data()), 64));
  return {pixels.begin(), pixels.begin() + pixelBytes};
}

TEST(McuForward, KnownColours) {
  // No clamp: the chroma of pure blue is 127.5, rounded; off the boundary it is cut.
  EXPECT_EQ((V{-99, 128, -21}), forward(qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R, {0, 0, 255}));
  EXPECT_EQ((V{-99, 128, -21}), forward(qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R, {0, 0, 255}, true));
  EXPECT_EQ((V{-99, 128, -21}), forward(qeliBGRToYCbCr411LS_MCU_8u16s_C3P3R, {255, 0, 0}));
  EXPECT_EQ((V{-99, 127, -21}), forward(qeliBGRToYCbCr411LS_MCU_8u16s_C3P3R, {255, 0, 0}, true));
  EXPECT_EQ((V{-52, -44, 127}), forward(qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R, {255, 0, 0}, true));
  for (const int grey : {0, 1, 127, 128, 255})
    for (const auto member : {qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R, qeliRGBToYCbCr422LS_MCU_8u16s_C3P3R,
                              qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R, qeliBGRToYCbCr422LS_MCU_8u16s_C3P3R})
      EXPECT_EQ((V{grey - 128, 0, 0}), forward(member, std::vector<uint8_t>(3, uint8_t(grey)))) << grey;
  EXPECT_EQ((V{122, -1, -2}),
            forward(qeliBGR565ToYCbCr444LS_MCU_16u16s_C3P3R, {0xFF, 0xFF}));  // 248, 252, 248
  EXPECT_EQ((V{120, 0, 0}), forward(qeliBGR555ToYCbCr411LS_MCU_16u16s_C3P3R, {0xFF, 0xFF}));
  // 4:4:4 CMYK rounds blue's 127.5 down, 4:1:1 up. K of 0 and 255.
  EXPECT_EQ((V{-99, 127, -21, -128}), forward(qeliCMYKToYCCK444LS_MCU_8u16s_C4P4R, {255, 255, 0, 0}));
  EXPECT_EQ((V{-99, 128, -21, 127}), forward(qeliCMYKToYCCK411LS_MCU_8u16s_C4P4R, {255, 255, 0, 255}));
  // Y0 Cb Y1 Cr: the last luma sample of a row is Y1.
  EXPECT_EQ((V{-98, -108, -88, 0}), forward(qeliSplit422LS_MCU_8u16s_C2P3R, {10, 20, 30, 40}));
}

TEST(McuInverse, KnownColours) {
  const auto rgb444 = qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R, rgb411 = qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R;
  const auto cmyk = qeliYCCK444ToCMYKLS_MCU_16s8u_P4C4R;
  for (const bool moved : {false, true}) {
    EXPECT_EQ((V{128, 128, 128}), inverse(rgb444, {}, moved));
    EXPECT_EQ((V{0, 0, 0}), inverse(rgb411, {-200}, moved));
    EXPECT_EQ((V{255, 255, 255}), inverse(rgb411, {200}, moved));
    EXPECT_EQ((V{127, 127, 127, moved ? 72 : 255}), inverse(cmyk, {0, 0, 0, 200}, moved, 4));
    EXPECT_EQ((V{127, 127, 127, moved ? 255 : 0}), inverse(cmyk, {0, 0, 0, -129}, moved, 4));
    EXPECT_EQ((V{127, 127, 127, moved ? 0 : 255}), inverse(cmyk, {0, 0, 0, 128}, moved, 4));
  }
  EXPECT_EQ((V{0x10, 0x84}), inverse(qeliYCbCr444ToBGR565LS_MCU_16s16u_P3C3R, {}, false, 2));
  EXPECT_EQ((V{128, 100, 128, 200}), inverse(qeliJoin422LS_MCU_16s8u_P3C2R, {0, -28, 72}, false, 4));
  // Red of Cr = -1 is -1.402: 127 rounded, but 126 cut.
  EXPECT_EQ((V{127, 129, 128}), inverse(rgb444, {0, 0, -1}));
  EXPECT_EQ((V{126, 128, 128}), inverse(rgb444, {0, 0, -1}, true));
  // A chroma term beyond 16 bits saturates before luma is added: 39318 becomes 32767.
  EXPECT_EQ(0, inverse(rgb444, {-32768, 0, 28000})[0]);
  // A product beyond 32 bits wraps where nothing is rounded: 91881 * 30000 is 2756430000, which is negative.
  EXPECT_EQ(0, inverse(rgb444, {0, 0, 30000}, true)[0]);
}

// Green's two forms part where the weighted sum lies exactly on a half (which takes chroma beyond 8 bits).
TEST(McuInverse, GreenTies) {
  EXPECT_EQ(128, inverse(qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R, {0, 734, -353})[1]);  // 128.5 - 0.5
  EXPECT_EQ(127, inverse(qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R, {0, 734, -353})[1]);
  EXPECT_EQ(132, inverse(qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R, {0, 712, -348})[1]);  // 128.5 + 3.5
  EXPECT_EQ(131, inverse(qeliYCbCr422ToRGBLS_MCU_16s8u_P3C3R, {0, 712, -348})[1]);
}

// A picture of flat 2 x 2 squares survives every sampling, at its place.
TEST(Mcu, ThereAndBack) {
  std::array<uint8_t, 16 * 48> picture, back{};
  for (size_t i = 0; i < picture.size(); ++i)
    picture[i] = uint8_t(i / 96 * 29 + i % 48 / 6 * 23 + i % 3 * 40);
  const auto trip = [&](auto there, auto andBack, int32_t width, int32_t height) {
    alignas(16) int16_t blocks[3][256];
    int16_t* const planes[] = {blocks[0], blocks[1], blocks[2]};
    ASSERT_EQ(qelStatusOk, there(picture.data(), 48, planes));
    ASSERT_EQ(qelStatusOk, andBack(planes, back.data(), 48));
    for (int32_t y = 0; y < height; ++y)
      for (int32_t x = 0; x < 3 * width; ++x)
        ASSERT_LE(std::abs(picture[size_t(48 * y + x)] - back[size_t(48 * y + x)]), 2)
            << width << "x" << height;
  };
  trip(qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R, qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R, 8, 8);
  trip(qeliRGBToYCbCr422LS_MCU_8u16s_C3P3R, qeliYCbCr422ToRGBLS_MCU_16s8u_P3C3R, 16, 8);
  trip(qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R, qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R, 16, 16);
  trip(qeliBGRToYCbCr444LS_MCU_8u16s_C3P3R, qeliYCbCr444ToBGRLS_MCU_16s8u_P3C3R, 8, 8);
  trip(qeliBGRToYCbCr422LS_MCU_8u16s_C3P3R, qeliYCbCr422ToBGRLS_MCU_16s8u_P3C3R, 16, 8);
  trip(qeliBGRToYCbCr411LS_MCU_8u16s_C3P3R, qeliYCbCr411ToBGRLS_MCU_16s8u_P3C3R, 16, 16);
  trip(qeliSampleDown444LS_MCU_8u16s_C3P3R, qeliSampleUp444LS_MCU_16s8u_P3C3R, 8, 8);
  trip(qeliSampleDown422LS_MCU_8u16s_C3P3R, qeliSampleUp422LS_MCU_16s8u_P3C3R, 16, 8);
  trip(qeliSampleDown411LS_MCU_8u16s_C3P3R, qeliSampleUp411LS_MCU_16s8u_P3C3R, 16, 16);
}

}  // namespace
}  // namespace qelj::test
