#include <gtest/gtest.h>

#include <cmath>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

template <class T>
struct Pct;
#define QELJ_PCT(T, tag)                                                                              \
  template <>                                                                                         \
  struct Pct<T> {                                                                                     \
    static constexpr auto fwd = qeliPCTFwd_JPEGXR_##tag##_C1IR, inv = qeliPCTInv_JPEGXR_##tag##_C1IR; \
  };
QELJ_PCT(int16_t, 16s)
QELJ_PCT(int32_t, 32s)
QELJ_PCT(float, 32f)

template <class T>
class PctIntegerTest : public testing::Test {};
using Integers = testing::Types<int16_t, int32_t>;
TYPED_TEST_SUITE(PctIntegerTest, Integers);

TYPED_TEST(PctIntegerTest, KnownBlocks) {
  using T = TypeParam;
  for (const int v : {100, -3}) {
    std::vector<T> block(16, T(v)), wanted(16, T(0));
    wanted[0] = T(4 * v);
    ASSERT_EQ(qelStatusOk, Pct<T>::fwd(block.data(), 4 * sizeof(T), {4, 4}));
    EXPECT_EQ(wanted, block);
    ASSERT_EQ(qelStatusOk, Pct<T>::inv(block.data(), 4 * sizeof(T), {4, 4}));
    EXPECT_EQ(std::vector<T>(16, T(v)), block);
  }
  // The rounding is not symmetric about zero.
  std::vector<T> up(16), down(16);
  up[0] = 1, down[0] = -1;
  Pct<T>::inv(up.data(), 4 * sizeof(T), {4, 4});
  Pct<T>::inv(down.data(), 4 * sizeof(T), {4, 4});
  EXPECT_EQ((std::vector<T>{0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), up);
  EXPECT_EQ((std::vector<T>{0, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, -1, 0, 0, -1}), down);
}

TYPED_TEST(PctIntegerTest, InverseUndoesForwardOverTheFullRange) {
  using T = TypeParam;
  Random random(1);
  for (int round = 0; round < 400; ++round) {
    const QelSize size{4 * int32_t(random.in(1, 14)), 4 * int32_t(random.in(1, 9))};
    const size_t rowBytes = size_t(size.width) * sizeof(T);
    Guarded image(random, rowBytes, size_t(size.height), rowBytes + size_t(random.in(0, 9)),
                  size_t(random.in(0, 33)));
    if (round % 4 == 0)  // extremes only
      for (int32_t y = 0; y < size.height; ++y)
        for (int32_t x = 0; x < size.width; ++x) {
          const T v = random.chance(50) ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
          std::memcpy(image.data(size_t(y)) + size_t(x) * sizeof v, &v, sizeof v);
        }
    const auto before = image.whole();
    ASSERT_EQ(qelStatusOk, Pct<T>::fwd(image.data<T>(), image.step(), size));
    EXPECT_TRUE(image.intact());
    EXPECT_NE(before, image.whole());
    ASSERT_EQ(qelStatusOk, Pct<T>::inv(image.data<T>(), image.step(), size));
    ASSERT_EQ(before, image.whole()) << size.width << "x" << size.height;
  }
}
TEST(PctFloat, LeavesAnUnpairedColumnOfBlocks) {
  for (const auto transform : {Pct<float>::fwd, Pct<float>::inv})
    for (const int32_t width : {4, 12, 20}) {
      Random random(3);
      const auto before = random.vector<float>(size_t(width) * 4, -9, 9);
      auto after = before;
      ASSERT_EQ(qelStatusOk, transform(after.data(), width * 4, {width, 4}));
      for (size_t i = 0; i < after.size(); ++i) {
        if (int(i) % width < width / 8 * 8) continue;
        EXPECT_EQ(before[i], after[i]);
      }
      EXPECT_EQ(width == 4, before == after);
    }
}

// On large values the integer transform's roundings don't count, and both forms are one linear map; forward,
// then inverse, gives the samples back.
TEST(PctFloat, IsTheIntegerTransformWithoutRounding) {
  Random random(4);
  for (const bool inverse : {false, true}) {
    auto whole = random.vector<int32_t>(256, -100000000, 100000000);
    std::vector<float> real(whole.begin(), whole.end());
    const auto first = real;
    (inverse ? Pct<int32_t>::inv : Pct<int32_t>::fwd)(whole.data(), 64, {16, 16});
    (inverse ? Pct<float>::inv : Pct<float>::fwd)(real.data(), 64, {16, 16});
    for (size_t i = 0; i < 256; ++i) EXPECT_NEAR(double(whole[i]), double(real[i]), 300) << i;
    (inverse ? Pct<float>::fwd : Pct<float>::inv)(real.data(), 64, {16, 16});
    for (size_t i = 0; i < 256; ++i) EXPECT_NEAR(double(first[i]), double(real[i]), 300) << i;
  }
}

// The butterfly's last output is (c' + d) - c, which in single precision is not the half difference itself:
// corners of -2^25 and 2^25 + 4 have the sum 4 and the half difference 2, but c' = 2 - d rounds to -2^25, and
// c' + d is 4. The low-pass input is 4 - 4 then, not 4 - 2.
TEST(PctFloat, RoundsInTheStatedOrder) {
  float block[32] = {-33554432.0f};
  block[8 * 3 + 3] = 33554436.0f;
  qeliPCTFwd_JPEGXR_32f_C1IR(block, 32, {8, 4});
  EXPECT_EQ(0.0f, block[0]);
}

}  // namespace
}  // namespace qelj::test
