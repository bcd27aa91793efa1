#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

template <class T>
using Pixel = std::array<T, 3>;

// One pixel in the middle of a row of 23, so that the main part, its end and the rest are all met.
template <class T, class Function>
Pixel<T> inPlace(Function* function, Pixel<T> pixel) {
  std::array<std::vector<T>, 3> planes;
  for (size_t i = 0; i < 3; ++i) planes[i].assign(23, pixel[i]);
  T* const pointers[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
  EXPECT_EQ(qelStatusOk, function(pointers, int32_t(23 * sizeof(T)), {23, 1}));
  for (const auto& plane : planes) EXPECT_EQ(23, std::count(plane.begin(), plane.end(), plane[0]));
  return {planes[0][0], planes[1][0], planes[2][0]};
}

TEST(ComponentTransform, Reversible) {
  using P = Pixel<int16_t>;
  using Q = Pixel<int32_t>;
  EXPECT_EQ((P{77, 0, 0}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{77, 77, 77}));
  EXPECT_EQ((P{-1, 0, -1}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{-1, 0, 0}));
  EXPECT_EQ((P{-1, -1, -1}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{32767, -32768, 32767}));
  EXPECT_EQ((P{32767, 0, 0}), inPlace(qeliRCTFwd_JPEG2K_16s_P3IR, P{32767, 32767, 32767}));  // in 32 bits
  EXPECT_EQ((Q{-1, 0, 0}), inPlace(qeliRCTFwd_JPEG2K_32s_P3IR, Q{INT32_MAX, INT32_MAX, INT32_MAX}));  // wraps
  EXPECT_EQ((Q{0, -1, -1}), inPlace(qeliRCTInv_JPEG2K_32s_P3IR, Q{-1, 0, 1}));
}

// The formulas by themselves.
int16_t sat(int64_t x) { return int16_t(std::clamp<int64_t>(x, -32768, 32767)); }
int64_t r14(int64_t x) { return (x + 8192) >> 14; }

TEST(ComponentTransform, Irreversible16s) {
  Random random;
  for (int i = 0; i < 3000; ++i) {
    const int range = i % 2 ? 32767 : 300;
    const auto in = random.vector<int16_t>(3, -range - 1, range);
    const int64_t a = in[0], b = in[1], c = in[2], t = 4899 * a + 9617 * b + 1868 * c;
    const auto u = int16_t(r14((c << 14) - t)), v = int16_t(r14((a << 14) - t));
    const Pixel<int16_t> pixel{in[0], in[1], in[2]};
    ASSERT_EQ((Pixel<int16_t>{sat(r14(t)), sat(r14(u * 9246)), sat(r14(v * 11686))}),
              inPlace(qeliICTFwd_JPEG2K_16s_P3IR, pixel));
    ASSERT_EQ((Pixel<int16_t>{sat(a + r14(22970 * c)), sat(a - r14(5638 * b + 11700 * c)),
                              sat(a + r14(29032 * b))}),
              inPlace(qeliICTInv_JPEG2K_16s_P3IR, pixel));
  }
  // Blue - luma = 58063 folds to -7473 before it is scaled.
  EXPECT_EQ(-4217, inPlace(qeliICTFwd_JPEG2K_16s_P3IR, Pixel<int16_t>{-32768, -32768, 32767})[1]);
  // 1409.5: green of 16 bits subtracts a rounded term, green of 32 bits adds one, and the half goes up in
  // both.
  EXPECT_EQ(-1410, inPlace(qeliICTInv_JPEG2K_16s_P3IR, Pixel<int16_t>{0, 4096, 0})[1]);
  EXPECT_EQ(-1409, inPlace(qeliICTInv_JPEG2K_32s_P3IR, Pixel<int32_t>{0, 4096, 0})[1]);
  EXPECT_EQ(inPlace(qeliICTInv_JPEG2K_32s_P3IR, Pixel<int32_t>{32000, 0, 32767})[0], 32000 + 45939);
}

TEST(ComponentTransform, Irreversible32s) {
  Random random;
  for (int i = 0; i < 1000; ++i) {
    const auto in = random.vector<int32_t>(3, -(1 << 16), 1 << 16);
    const int64_t a = in[0], b = in[1], c = in[2];
    const Pixel<int32_t> pixel{in[0], in[1], in[2]};
    ASSERT_EQ((Pixel<int32_t>{int32_t(r14(4899 * a + 9617 * b + 1868 * c)),
                              int32_t(r14(-2765 * a - 5427 * b + 8192 * c)),
                              int32_t(r14(8192 * a - 6860 * b - 1332 * c))}),
              inPlace(qeliICTFwd_JPEG2K_32s_P3IR, pixel));
    ASSERT_EQ((Pixel<int32_t>{int32_t(a + r14(22970 * c)), int32_t(a + r14(-5638 * b - 11700 * c)),
                              int32_t(a + r14(29032 * b))}),
              inPlace(qeliICTInv_JPEG2K_32s_P3IR, pixel));
  }
  EXPECT_EQ(int32_t(uint32_t(4899) * uint32_t(INT32_MAX) + 8192u) >> 14,
            inPlace(qeliICTFwd_JPEG2K_32s_P3IR, Pixel<int32_t>{INT32_MAX, 0, 0})[0]);
}

TEST(ComponentTransform, IrreversibleFloat) {
  Random random;
  for (int i = 0; i < 300; ++i) {
    Pixel<float> in;
    for (float& x : in) x = float(random.in(-100000, 100000)) / 256;
    const auto sum = [](float x, float y, float z) {
      volatile float s = x + y;  // rounded before the next sum
      return s + z;
    };
    const auto [r, g, b] = in;
    ASSERT_EQ(
        (Pixel<float>{sum(r * 0.299f, g * 0.587f, b * 0.114f), sum(r * -0.16875f, g * -0.33126f, b * 0.5f),
                      sum(r * 0.5f, g * -0.41869f, b * -0.08131f)}),
        inPlace(qeliICTFwd_JPEG2K_32f_P3IR, in));
    ASSERT_EQ(
        (Pixel<float>{sum(b * 1.402f, r, 0), sum(g * -0.34413f, b * -0.71414f, r), sum(g * 1.772f, r, 0)}),
        inPlace(qeliICTInv_JPEG2K_32f_P3IR, in));
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
    const size_t height = 3;
    const QelSize size{int32_t(width), int32_t(height)};
    const int32_t planeStep = int32_t(width * sizeof(T)), pixelStep = 3 * planeStep;
    const auto pixels = random.vector<T>(3 * width * height, -16000, 16000);
    std::array<std::vector<T>, 3> planes, split;
    for (size_t i = 0; i < pixels.size(); ++i) planes[i % 3].push_back(pixels[i]);
    for (auto& plane : split) plane.resize(width * height);
    T* const inPlacePlanes[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
    T* const to[3] = {split[0].data(), split[1].data(), split[2].data()};
    ASSERT_EQ(qelStatusOk, toPlanes(pixels.data(), pixelStep, to, planeStep, size));
    ASSERT_EQ(qelStatusOk, forward(inPlacePlanes, planeStep, size));
    EXPECT_EQ(planes, split) << width;

    const T* const from[3] = {to[0], to[1], to[2]};
    std::vector<T> joined(pixels.size());
    ASSERT_EQ(qelStatusOk, toPixels(from, planeStep, joined.data(), pixelStep, size));
    ASSERT_EQ(qelStatusOk, inverse(inPlacePlanes, planeStep, size));
    for (size_t i = 0; i < joined.size(); ++i) ASSERT_EQ(planes[i % 3][i / 3], joined[i]) << width;
    if (std::is_integral_v<T>) {
      EXPECT_EQ(pixels, joined);
    }
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

TEST(ComponentTransform, ChecksInOrder) {
  int16_t s[12] = {9};
  int16_t* const planes[3] = {s, s + 4, s + 8};
  int16_t* const broken[3] = {s, s + 4, nullptr};
  const int16_t* const brokenSource[3] = {nullptr, s, s};
  EXPECT_EQ(qelStatusNullPointer, qeliRCTFwd_JPEG2K_16s_C3P3R(nullptr, 0, planes, 0, {0, 0}));
  EXPECT_EQ(qelStatusNullPointer, qeliRCTFwd_JPEG2K_16s_C3P3R(s, 0, broken, 0, {0, 0}));
  EXPECT_EQ(qelStatusBadStep, qeliRCTFwd_JPEG2K_16s_C3P3R(s, 6, planes, 0, {0, 0}));
  EXPECT_EQ(qelStatusBadSize, qeliRCTFwd_JPEG2K_16s_C3P3R(s, 6, planes, 2, {1, 0}));
  EXPECT_EQ(qelStatusNullPointer, qeliRCTInv_JPEG2K_16s_P3C3R(brokenSource, 0, s, 0, {0, 0}));
  EXPECT_EQ(qelStatusNullPointer, qeliRCTInv_JPEG2K_16s_P3C3R(planes, 0, nullptr, 0, {0, 0}));
  EXPECT_EQ(qelStatusBadStep, qeliRCTInv_JPEG2K_16s_P3C3R(planes, 0, s, 6, {0, 0}));
  EXPECT_EQ(qelStatusNullPointer, qeliICTInv_JPEG2K_16s_P3IR(nullptr, 0, {0, 0}));
  EXPECT_EQ(qelStatusNullPointer, qeliICTInv_JPEG2K_16s_P3IR(broken, 0, {0, 0}));
  EXPECT_EQ(qelStatusBadStep, qeliICTInv_JPEG2K_16s_P3IR(planes, -2, {0, 0}));
  EXPECT_EQ(qelStatusBadSize, qeliICTInv_JPEG2K_16s_P3IR(planes, 2, {0, 1}));
  EXPECT_EQ(9, s[0]);
}

}  // namespace
}  // namespace qelj::test
