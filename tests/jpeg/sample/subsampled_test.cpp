// The conversions with subsampled chroma: what they share with those of full resolution, odd sizes, overlapping rows.
#include <gtest/gtest.h>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

constexpr int kWidth = 48, kHeight = 6, kPixels = kWidth * kHeight;
using Plane = std::vector<uint8_t>;
// Samples repeated across, and down.
Plane repeated(const Plane& half, int pixelBytes, int rows) {
  Plane all(size_t(kPixels * pixelBytes));
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      for (int i = 0; i < pixelBytes; ++i)
        all[size_t((y * kWidth + x) * pixelBytes + i)] =
            half[size_t((y / rows * (kWidth / 2) + x / 2) * pixelBytes + i)];
  return all;
}

constexpr QelSize kSize{kWidth, kHeight};
constexpr int32_t kSteps[] = {kWidth, kWidth / 2, kWidth / 2};

// Where the pixels of a chroma sample are alike there is nothing to average. rows: 1 for 422, 2 for 411.
TEST(Subsampled, ForwardOfRepeatedPixelsIsThatOfFullResolution) {
  Random random;
  const auto compare = [&](auto* subsampled, auto* full, int rows) {
    const Plane pixels = repeated(random.vector<uint8_t>(kPixels * 4, 0, 255), 4, rows);
    Plane y(kPixels), cb(kPixels), cr(kPixels), y2(kPixels), cb2(kPixels), cr2(kPixels);
    uint8_t *const all[] = {y.data(), cb.data(), cr.data()}, *const half[] = {y2.data(), cb2.data(),
                                                                              cr2.data()};
    ASSERT_EQ(qelStatusOk, full(pixels.data(), 4 * kWidth, all, kWidth, kSize));
    ASSERT_EQ(qelStatusOk, subsampled(pixels.data(), 4 * kWidth, half, kSteps, kSize));
    EXPECT_EQ(y, y2);
    EXPECT_EQ(cb, repeated(cb2, 1, rows));
    EXPECT_EQ(cr, repeated(cr2, 1, rows));
  };
  compare(qeliRGBToYCbCr422_JPEG_8u_C4P3R, qeliRGBToYCbCr_JPEG_8u_C4P3R, 1);
  compare(qeliBGRToYCbCr422_JPEG_8u_C4P3R, qeliBGRToYCbCr_JPEG_8u_C4P3R, 1);
  compare(qeliRGBToYCbCr411_JPEG_8u_C4P3R, qeliRGBToYCbCr_JPEG_8u_C4P3R, 2);
  compare(qeliBGRToYCbCr411_JPEG_8u_C4P3R, qeliBGRToYCbCr_JPEG_8u_C4P3R, 2);
}
TEST(Subsampled, InverseIsThatOfRepeatedChroma) {
  Random random;
  const auto compare = [&](auto* subsampled, auto* full, int rows) {
    const Plane y = random.vector<uint8_t>(kPixels, 0, 255), cb = random.vector<uint8_t>(kPixels, 0, 255),
                cr = random.vector<uint8_t>(kPixels, 0, 255), cb1 = repeated(cb, 1, rows),
                cr1 = repeated(cr, 1, rows);
    const uint8_t *const half[] = {y.data(), cb.data(), cr.data()}, *const all[] = {y.data(), cb1.data(),
                                                                                    cr1.data()};
    Plane a(kPixels * 4), b(kPixels * 4);
    ASSERT_EQ(qelStatusOk, full(all, kWidth, a.data(), 4 * kWidth, kSize, 9));
    ASSERT_EQ(qelStatusOk, subsampled(half, kSteps, b.data(), 4 * kWidth, kSize, 9));
    EXPECT_EQ(a, b);
  };
  compare(qeliYCbCr422ToRGB_JPEG_8u_P3C4R, qeliYCbCrToRGB_JPEG_8u_P3C4R, 1);
  compare(qeliYCbCr422ToBGR_JPEG_8u_P3C4R, qeliYCbCrToBGR_JPEG_8u_P3C4R, 1);
  compare(qeliYCbCr411ToRGB_JPEG_8u_P3C4R, qeliYCbCrToRGB_JPEG_8u_P3C4R, 2);
  compare(qeliYCbCr411ToBGR_JPEG_8u_P3C4R, qeliYCbCrToBGR_JPEG_8u_P3C4R, 2);
}

TEST(Subsampled, OddSizesLeaveTheLastColumnAndRow) {
  const Plane grey(7 * 3 * 3, 100);
  Plane y(21, 7), cb(9, 7), cr(9, 7);
  uint8_t* const ycc[] = {y.data(), cb.data(), cr.data()};
  const int32_t steps[] = {7, 3, 3};
  ASSERT_EQ(qelStatusOddSizeWarning, qeliRGBToYCbCr411_JPEG_8u_C3P3R(grey.data(), 21, ycc, steps, {7, 3}));
  const Plane row = {100, 100, 100, 100, 100, 100, 7};
  for (int i = 0; i < 21; ++i) EXPECT_EQ(i < 14 ? row[size_t(i % 7)] : 7, y[size_t(i)]) << i;
  for (const Plane& chroma : {cb, cr}) EXPECT_EQ((Plane{128, 128, 128, 7, 7, 7, 7, 7, 7}), chroma);
  ASSERT_EQ(qelStatusOddSizeWarning, qeliRGBToYCbCr422_JPEG_8u_C3P3R(grey.data(), 21, ycc, steps, {7, 3}));
  EXPECT_EQ((Plane(9, 128)), cb);
  Plane pixels(7 * 3 * 4, 7);
  ASSERT_EQ(qelStatusOddSizeWarning,
            qeliYCbCr411ToBGR_JPEG_8u_P3C4R(ycc, steps, pixels.data(), 28, {7, 3}, 0));
  EXPECT_EQ(0, pixels[28 + 23]);  // alpha of the last pixel written
  for (const size_t untouched : {24, 28 + 24, 56, 83}) EXPECT_EQ(7, pixels[untouched]) << untouched;
  // Sizes that divide give no warning.
  EXPECT_EQ(qelStatusOk, qeliRGBToYCbCr422_JPEG_8u_C3P3R(grey.data(), 21, ycc, steps, {6, 3}));
  EXPECT_EQ(qelStatusOddSizeWarning, qeliRGBToYCbCr411_JPEG_8u_C3P3R(grey.data(), 21, ycc, steps, {6, 3}));
}

TEST(Subsampled, StepsAreReadBehindTheChecks) {
  Plane p(64);
  uint8_t* const planes[] = {p.data(), p.data(), p.data()};
  EXPECT_EQ(qelStatusBadSize, qeliRGBToYCbCr422_JPEG_8u_C3P3R(p.data(), 3, planes, nullptr, {1, 1}));
  EXPECT_EQ(qelStatusBadSize, qeliYCbCr411ToRGB_JPEG_8u_P3C3R(planes, nullptr, p.data(), 3, {2, 1}));
}

TEST(Subsampled, PackedPairs) {
  // Neutral grey loses one in green in whole groups of eight pixels, and nothing behind them.
  const Plane grey(2 * 10, 128);
  Plane rgb(3 * 10);
  ASSERT_EQ(qelStatusOk, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(grey.data(), 20, rgb.data(), 30, {9, 1}));
  for (size_t i = 0; i < 30; ++i) EXPECT_EQ(i < 24 && i % 3 == 1 ? 127 : 128, rgb[i]) << i;
  // Rows without a gap: the pixel behind an odd width is overwritten by the next row, also in a large image.
  constexpr int kOdd = 101;
  Random random;
  const auto src = random.vector<uint8_t>(2 * (kOdd + 1) * kOdd, 0, 255);
  Plane gap(3 * (kOdd + 1) * kOdd), tight(3 * (kOdd * kOdd + 1));
  ASSERT_EQ(qelStatusOk, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(src.data(), 2 * (kOdd + 1), gap.data(),
                                                         3 * (kOdd + 1), {kOdd, kOdd}));
  ASSERT_EQ(qelStatusOk, qeliYCbCr422ToRGB_JPEG_8u_C2C3R(src.data(), 2 * (kOdd + 1), tight.data(), 3 * kOdd,
                                                         {kOdd, kOdd}));
  for (int y = 0; y < kOdd; ++y)
    EXPECT_TRUE(std::equal(&gap[size_t(3 * (kOdd + 1) * y)], &gap[size_t(3 * (kOdd + 1) * y + 3 * kOdd)],
                           &tight[size_t(3 * kOdd * y)]))
        << y;
}

}  // namespace
}  // namespace qelj::test
