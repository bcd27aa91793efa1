#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

template <class T>
using Pixel = std::array<T, 3>;

// One pixel in a row of 23, so that the main part, its end and the rest are all met.
template <class T, class Function>
Pixel<T> inPlace(Function* function, Pixel<T> pixel) {
  std::array<std::vector<T>, 3> planes;
  for (size_t i = 0; i < 3; ++i) planes[i].assign(23, pixel[i]);
  T* const pointers[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
  EXPECT_EQ(qelStatusOk, function(pointers, int32_t(23 * sizeof(T)), {23, 1}));
  for (const auto& plane : planes) EXPECT_EQ(23, std::count(plane.begin(), plane.end(), plane[0]));
  return {planes[0][0], planes[1][0], planes[2][0]};
}
using P = Pixel<int16_t>;
using Q = Pixel<int32_t>;

TEST(ComponentTransform, Reversible) {
  EXPECT_EQ((P{77, 0, 0}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{77, 77, 77}));
  EXPECT_EQ((P{-1, 0, -1}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{-1, 0, 0}));
  EXPECT_EQ((P{-1, -1, -1}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{32767, -32768, 32767}));
  EXPECT_EQ((P{32767, 0, 0}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{32767, 32767, 32767}));  // in 32 bits
  EXPECT_EQ((Q{-1, 0, 0}), inPlace(qeliRCTFwd_JPEG2K_32s_P3IR, Q{INT32_MAX, INT32_MAX, INT32_MAX}));  // wraps
  EXPECT_EQ((Q{0, -1, -1}), inPlace(qeliRCTInv_JPEG2K_32s_P3IR, Q{-1, 0, 1}));
}

TEST(ComponentTransform, IrreversibleAtItsLimits) {
  // Blue - luma = 58063 folds to -7473 before it is scaled.
  EXPECT_EQ(-4217, inPlace(qeliICTFwd_JPEG2K_16s_P3IR, P{-32768, -32768, 32767})[1]);
  // 1409.5: green of 16 bits subtracts a rounded term, green of 32 bits adds one, and the half goes up in both.
  EXPECT_EQ(-1410, inPlace(qeliICTInv_JPEG2K_16s_P3IR, P{0, 4096, 0})[1]);
  EXPECT_EQ(-1409, inPlace(qeliICTInv_JPEG2K_32s_P3IR, Q{0, 4096, 0})[1]);
  EXPECT_EQ(32767, inPlace(qeliICTInv_JPEG2K_16s_P3IR, P{32000, 0, 32767})[0]);
  EXPECT_EQ(32000 + 45939, inPlace(qeliICTInv_JPEG2K_32s_P3IR, Q{32000, 0, 32767})[0]);
  EXPECT_EQ(int32_t(uint32_t(4899) * uint32_t(INT32_MAX) + 8192u) >> 14,
            inPlace(qeliICTFwd_JPEG2K_32s_P3IR, Q{INT32_MAX, 0, 0})[0]);
}

// The three types are the same transform (G.3) but for rounding, and the inverse is one.
TEST(ComponentTransform, IrreversibleTypesAgreeAndComeBack) {
  Random random;
  for (int i = 0; i < 1000; ++i) {
    const auto in = random.vector<int16_t>(3, -8000, 8000);
    const auto f =
        inPlace(qeliICTFwd_JPEG2K_32f_P3IR, Pixel<float>{float(in[0]), float(in[1]), float(in[2])});
    const auto q = inPlace(qeliICTFwd_JPEG2K_32s_P3IR, Q{in[0], in[1], in[2]});
    const auto p = inPlace(qeliICTFwd_JPEG2K_16s_P3IR, P{in[0], in[1], in[2]});
    EXPECT_NEAR(f[0], 0.299 * in[0] + 0.587 * in[1] + 0.114 * in[2], 0.01);
    for (size_t k = 0; k < 3; ++k) {
      EXPECT_NEAR(q[k], f[k], 1.2);
      EXPECT_NEAR(p[k], f[k], 1.2);
      EXPECT_NEAR(inPlace(qeliICTInv_JPEG2K_32f_P3IR, f)[k], in[k], 0.5);
      EXPECT_NEAR(inPlace(qeliICTInv_JPEG2K_32s_P3IR, q)[k], in[k], 2.5);
      EXPECT_NEAR(inPlace(qeliICTInv_JPEG2K_16s_P3IR, p)[k], in[k], 2.5);
    }
  }
}

// Pixels to planes and back agree with the planes in place, at every width.
template <class T>
void layoutsAgree(QelStatus (*toPlanes)(const T*, int32_t, T* const*, int32_t, QelSize),
                  QelStatus (*toPixels)(const T* const*, int32_t, T*, int32_t, QelSize),
                  QelStatus (*forward)(T* const*, int32_t, QelSize),
                  QelStatus (*inverse)(T* const*, int32_t, QelSize)) {
  Random random;
  for (size_t width = 1; width <= 40; ++width) {
    const size_t all = 3 * width;
    const QelSize size{int32_t(width), 3};
    const auto planeStep = int32_t(width * sizeof(T)), pixelStep = 3 * planeStep;
    const auto pixels = random.vector<T>(3 * all, -16000, 16000);
    std::vector<T> inPlace, apart(3 * all), back(3 * all);
    for (size_t i = 0; i < 3 * all; ++i) inPlace.push_back(pixels[i % all * 3 + i / all]);
    T* const planes[3] = {&inPlace[0], &inPlace[all], &inPlace[2 * all]};
    T* const to[3] = {&apart[0], &apart[all], &apart[2 * all]};
    const T* const from[3] = {to[0], to[1], to[2]};
    toPlanes(pixels.data(), pixelStep, to, planeStep, size);
    forward(planes, planeStep, size);
    ASSERT_EQ(inPlace, apart) << width;
    toPixels(from, planeStep, back.data(), pixelStep, size);
    inverse(planes, planeStep, size);
    for (size_t i = 0; i < 3 * all; ++i) ASSERT_EQ(inPlace[i], back[i % all * 3 + i / all]) << width;
    EXPECT_TRUE(pixels == back || !std::is_integral_v<T>);
  }
}
TEST(ComponentTransform, LayoutsAgree) {
  layoutsAgree<int16_t>(qeliRCTFwd_JPEG2K_16s_C3P3R, qeliRCTInv_JPEG2K_16s_P3C3R, qeliRCTFwd_JPEG2K_16s_P3IR,
                        qeliRCTInv_JPEG2K_16s_P3IR);
  layoutsAgree<int32_t>(qeliRCTFwd_JPEG2K_32s_C3P3R, qeliRCTInv_JPEG2K_32s_P3C3R, qeliRCTFwd_JPEG2K_32s_P3IR,
                        qeliRCTInv_JPEG2K_32s_P3IR);
  layoutsAgree<float>(qeliICTFwd_JPEG2K_32f_C3P3R, qeliICTInv_JPEG2K_32f_P3C3R, qeliICTFwd_JPEG2K_32f_P3IR,
                      qeliICTInv_JPEG2K_32f_P3IR);
}

}  // namespace
}  // namespace qelj::test
