// The conversions with subsampled chroma, held against the formulas written out.
#include <gtest/gtest.h>

#include <algorithm>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

uint8_t clamp(int v) { return uint8_t(std::clamp(v, 0, 255)); }

// red: the byte of a pixel that holds R; rows: 1 for 422, 2 for 411.
struct Forward {
  decltype(&qeliRGBToYCbCr422_JPEG_8u_C3P3R) f;
  int red, channels, rows;
};
const Forward kForward[] = {
    {qeliRGBToYCbCr422_JPEG_8u_C3P3R, 0, 3, 1}, {qeliBGRToYCbCr422_JPEG_8u_C3P3R, 2, 3, 1},
    {qeliRGBToYCbCr422_JPEG_8u_C4P3R, 0, 4, 1}, {qeliBGRToYCbCr422_JPEG_8u_C4P3R, 2, 4, 1},
    {qeliRGBToYCbCr411_JPEG_8u_C3P3R, 0, 3, 2}, {qeliBGRToYCbCr411_JPEG_8u_C3P3R, 2, 3, 2},
    {qeliRGBToYCbCr411_JPEG_8u_C4P3R, 0, 4, 2}, {qeliBGRToYCbCr411_JPEG_8u_C4P3R, 2, 4, 2},
};
using InverseC3 = decltype(&qeliYCbCr422ToRGB_JPEG_8u_P3C3R);
using InverseC4 = decltype(&qeliYCbCr422ToRGB_JPEG_8u_P3C4R);
struct Inverse {
  InverseC3 f3;
  InverseC4 f4;
  int red, rows;
};
const Inverse kInverse[] = {
    {qeliYCbCr422ToRGB_JPEG_8u_P3C3R, qeliYCbCr422ToRGB_JPEG_8u_P3C4R, 0, 1},
    {qeliYCbCr422ToBGR_JPEG_8u_P3C3R, qeliYCbCr422ToBGR_JPEG_8u_P3C4R, 2, 1},
    {qeliYCbCr411ToRGB_JPEG_8u_P3C3R, qeliYCbCr411ToRGB_JPEG_8u_P3C4R, 0, 2},
    {qeliYCbCr411ToBGR_JPEG_8u_P3C3R, qeliYCbCr411ToBGR_JPEG_8u_P3C4R, 2, 2},
};

// Planes with just the samples that are converted, so that every other byte is a guard.
struct Planes {
  Guarded y, cb, cr;
  int32_t step[3];
  uint8_t* plane[3];
  Planes(Random& random, size_t width, size_t height, size_t rows)
      : y(random, width / 2 * 2, height / rows * rows, width + random.bits() % 5, random.bits() % 33),
        cb(random, width / 2, height / rows, width / 2 + random.bits() % 5, random.bits() % 33),
        cr(random, width / 2, height / rows, width / 2 + random.bits() % 5, random.bits() % 33),
        step{y.step(), cb.step(), cr.step()},
        plane{y.data(), cb.data(), cr.data()} {}
  bool intact() const { return y.intact() && cb.intact() && cr.intact(); }
};

QelStatus expectedStatus(size_t width, size_t height, int rows) {
  return width % 2 || (rows == 2 && height % 2) ? qelStatusOddSizeWarning : qelStatusOk;
}

TEST(Subsampled, ForwardByPosition) {
  Random random;
  for (const Forward& c : kForward)
    for (size_t width = 2; width <= 75; ++width) {
      const auto rows = size_t(c.rows), height = rows + width % 4, channels = size_t(c.channels);
      Guarded src(random, width * channels, height, 0, width % 7);
      if (width % 8 == 5)  // pure red, green, blue: chroma of whole groups of them reaches 256
        for (size_t x = 0; x < height * width * channels; ++x)
          src.data()[x] = x % channels == width % 3 ? 255 : 0;
      Planes dst(random, width, height, rows);
      ASSERT_EQ(expectedStatus(width, height, c.rows),
                c.f(src.data(), src.step(), dst.plane, dst.step, {int32_t(width), int32_t(height)}));
      ASSERT_TRUE(dst.intact());
      for (size_t y = 0; y < height / rows * rows; ++y)
        for (size_t x = 0; x < width / 2 * 2; ++x) {
          const uint8_t* p = src.data(y) + x * channels;
          const int r = p[c.red], g = p[1], b = p[2 - c.red];
          const bool main = x < width / 8 * 8;
          ASSERT_EQ(main ? (((r * 4899) >> 8) + ((g * 9617) >> 8) + ((b * 1868) >> 8) + 32) >> 6
                         : (4899 * r + 9617 * g + 1868 * b + 8192) >> 14,
                    dst.y.data(y)[x]);
          if (x % 2 || y % rows) continue;
          int rs = 0, gs = 0, bs = 0;
          for (size_t i = 0; i < 2 * rows; ++i) {
            const uint8_t* q = src.data(y + i / 2) + (x + i % 2) * channels;
            rs += q[c.red], gs += q[1], bs += q[2 - c.red];
          }
          const int sh = rows == 1 ? 10 : 11, tail = rows == 1 ? 15 : 16,
                    offset = rows == 1 ? 4210688 : 8421376;
          const int cb = main
                             ? (((bs * 8192) >> sh) - (((rs * 2765) >> sh) + ((gs * 5427) >> sh)) + 4112) >> 5
                             : (8192 * bs - 5427 * gs - 2765 * rs + offset) >> tail;
          const int cr = main
                             ? (((rs * 8192) >> sh) - (((gs * 6860) >> sh) + ((bs * 1332) >> sh)) + 4112) >> 5
                             : (8192 * rs - 6860 * gs - 1332 * bs + offset) >> tail;
          ASSERT_EQ(clamp(cb), dst.cb.data(y / rows)[x / 2]) << width << " " << x;
          ASSERT_EQ(clamp(cr), dst.cr.data(y / rows)[x / 2]) << width << " " << x;
        }
    }
}

TEST(Subsampled, InverseRepeatsChroma) {
  Random random;
  constexpr uint8_t kAlpha = 0x5A;
  for (const Inverse& c : kInverse)
    for (const size_t channels : {size_t(3), size_t(4)})
      for (size_t width = 2; width <= 75; ++width) {
        const auto rows = size_t(c.rows), height = rows + width % 4;
        Planes src(random, width, height, rows);
        Guarded dst(random, width / 2 * 2 * channels, height / rows * rows, width * channels + 1, width % 5);
        const QelSize size{int32_t(width), int32_t(height)};
        ASSERT_EQ(expectedStatus(width, height, c.rows),
                  channels == 3 ? c.f3(src.plane, src.step, dst.data(), dst.step(), size)
                                : c.f4(src.plane, src.step, dst.data(), dst.step(), size, kAlpha));
        ASSERT_TRUE(dst.intact());
        for (size_t y = 0; y < height / rows * rows; ++y)
          for (size_t x = 0; x < width / 2 * 2; ++x) {
            const int luma = src.y.data(y)[x], cb = src.cb.data(y / rows)[x / 2],
                      cr = src.cr.data(y / rows)[x / 2];
            const uint8_t* p = dst.data(y) + x * channels;
            ASSERT_EQ(clamp((luma * 16 + ((cr * 11485) >> 9) - 2871 + 8) >> 4), p[c.red]);
            ASSERT_EQ(clamp((luma * 16 + 2167 - (((cb * 2819) >> 9) + ((cr * 5850) >> 9)) + 8) >> 4), p[1]);
            ASSERT_EQ(clamp((luma * 16 + ((cb * 14516) >> 9) - 3629 + 8) >> 4), p[2 - c.red]);
            if (channels == 4) {
              ASSERT_EQ(kAlpha, p[3]);
            }
          }
      }
}

TEST(Subsampled, PackedPairs) {
  Random random;
  const auto floorDiv = [](int a, int b) { return (a - ((a % b) + b) % b) / b; };
  for (size_t width = 1; width <= 75; ++width) {
    const size_t even = (width + 1) / 2 * 2;
    Guarded src(random, 2 * even, 2, 0, width % 7), dst(random, 3 * even, 2, 3 * even + 5, width % 5);
    const QelSize size{int32_t(width), 2};
    ASSERT_EQ(qelStatusOk,
              qeliYCbCr422ToRGB_JPEG_8u_C2C3R(src.data(), src.step(), dst.data(), dst.step(), size));
    ASSERT_TRUE(dst.intact());
    for (size_t y = 0; y < 2; ++y)
      for (size_t x = 0; x < even; ++x) {
        const uint8_t *s = src.data(y) + x / 2 * 4, *p = dst.data(y) + 3 * x;
        const int luma = s[x % 2 * 2], cb = s[1], cr = s[3];
        const bool main = x < width / 8 * 8;
        const int green = ((floorDiv(cr * -11700, 512) + floorDiv(cb * -5638, 512)) >> 5) + 135;
        const int u = cb - 128, v = cr - 128;
        ASSERT_EQ(clamp(luma + (main ? ((cr * 22970) >> 14) - 179 : (91881 * v + 32768) >> 16)), p[0])
            << width;
        ASSERT_EQ(clamp(luma + (main ? green : (-46802 * v - 22554 * u + 32768) >> 16)), p[1]) << width;
        ASSERT_EQ(clamp(luma + (main ? ((cb * 29032) >> 14) - 226 : (116130 * u + 32768) >> 16)), p[2])
            << width;
      }
  }
  // Rows without a gap: the pixel behind an odd width is overwritten by the next row, also in a large image.
  constexpr int kWidth = 101, kHeight = 101;
  Guarded src(random, 2 * (kWidth + 1), kHeight), gap(random, 3 * (kWidth + 1), kHeight),
      tight(random, 3 * (kWidth * kHeight + 1));
  ASSERT_EQ(qelStatusOk, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(src.data(), src.step(), gap.data(), gap.step(),
                                                         {kWidth, kHeight}));
  ASSERT_EQ(qelStatusOk, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(src.data(), src.step(), tight.data(), 3 * kWidth,
                                                         {kWidth, kHeight}));
  EXPECT_TRUE(tight.intact());
  for (size_t y = 0; y < kHeight; ++y)
    EXPECT_EQ(0, std::memcmp(gap.data(y), tight.data() + 3 * kWidth * y, 3 * kWidth)) << y;
}

TEST(Subsampled, ChecksInOrderAndAnyStep) {
  Random random;
  Guarded pixels(random, 64, 4);
  Planes p(random, 16, 4, 1);
  uint8_t* const holed[3] = {p.plane[0], p.plane[1], nullptr};
  const int32_t* none = nullptr;  // not read before the checks have passed
  for (const Forward& c : kForward) {
    EXPECT_EQ(qelStatusNullPointer, c.f(nullptr, 64, p.plane, none, {0, 0}));
    EXPECT_EQ(qelStatusNullPointer, c.f(pixels.data(), 64, nullptr, none, {0, 0}));
    EXPECT_EQ(qelStatusNullPointer, c.f(pixels.data(), 64, holed, none, {0, 0}));
    EXPECT_EQ(qelStatusBadSize, c.f(pixels.data(), 64, p.plane, none, {1, 4}));
    EXPECT_EQ(qelStatusBadSize, c.f(pixels.data(), 64, p.plane, none, {16, c.rows - 1}));
    EXPECT_TRUE(p.y.untouched() && p.cb.untouched() && p.cr.untouched());
  }
  for (const Inverse& c : kInverse) {
    EXPECT_EQ(qelStatusNullPointer, c.f3(nullptr, none, pixels.data(), 64, {0, 0}));
    EXPECT_EQ(qelStatusNullPointer, c.f3(p.plane, none, nullptr, 64, {0, 0}));
    EXPECT_EQ(qelStatusNullPointer, c.f4(holed, none, pixels.data(), 64, {0, 0}, 9));
    EXPECT_EQ(qelStatusBadSize, c.f4(p.plane, none, pixels.data(), 64, {1, 4}, 9));
    EXPECT_EQ(qelStatusBadSize, c.f3(p.plane, none, pixels.data(), 64, {16, c.rows - 1}));
    EXPECT_TRUE(pixels.untouched());
  }
  EXPECT_EQ(qelStatusNullPointer, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(nullptr, 0, pixels.data(), 0, {0, 1}));
  EXPECT_EQ(qelStatusNullPointer, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(p.plane[0], 0, nullptr, 0, {0, 1}));
  EXPECT_EQ(qelStatusBadSize, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(p.plane[0], 0, pixels.data(), 0, {0, 1}));
  // From the last row up into one and the same row.
  const int32_t still[3] = {0, 0, 0};
  EXPECT_EQ(qelStatusOk, kForward[0].f(pixels.data(3), -pixels.step(), p.plane, still, {16, 4}));
  const std::vector<uint8_t> first(p.y.data(), p.y.data() + 16);
  EXPECT_EQ(qelStatusOk, kForward[0].f(pixels.data(), pixels.step(), p.plane, p.step, {16, 1}));
  EXPECT_EQ(first, std::vector<uint8_t>(p.y.data(), p.y.data() + 16));
}

}  // namespace
}  // namespace qelj::test
