// The conversions with subsampled chroma: what they share with those of full resolution.
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
    uint8_t *const all[] = {y.data(), cb.data(), cr.data()}, *const half[] = {y2.data(), cb2.data(), cr2.data()};
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
                cr = random.vector<uint8_t>(kPixels, 0, 255), cb1 = repeated(cb, 1, rows), cr1 = repeated(cr, 1, rows);
    const uint8_t *const half[] = {y.data(), cb.data(), cr.data()}, *const all[] = {y.data(), cb1.data(), cr1.data()};
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

TEST(Subsampled, StepsAreReadBehindTheChecks) {
  Plane p(64);
  uint8_t* const planes[] = {p.data(), p.data(), p.data()};
  EXPECT_EQ(qelStatusBadSize, qeliRGBToYCbCr422_JPEG_8u_C3P3R(p.data(), 3, planes, nullptr, {1, 1}));
  EXPECT_EQ(qelStatusBadSize, qeliYCbCr411ToRGB_JPEG_8u_P3C3R(planes, nullptr, p.data(), 3, {2, 1}));
}

}  // namespace
}  // namespace qelj::test
