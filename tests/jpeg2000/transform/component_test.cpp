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

// The three types are the same transform (G.3) but for rounding, and the inverse is one.
TEST(ComponentTransform, IrreversibleTypesAgreeAndComeBack) {
  Random random;
  for (int i = 0; i < 1000; ++i) {
    const auto in = random.vector<int16_t>(3, -8000, 8000);
    const auto f = inPlace(qeliICTFwd_JPEG2K_32f_P3IR, Pixel<float>{float(in[0]), float(in[1]), float(in[2])});
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

}  // namespace
}  // namespace qelj::test
