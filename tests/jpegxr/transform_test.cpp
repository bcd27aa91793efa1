#include <gtest/gtest.h>

#include <limits>

#include "qelj.h"
#include "support/random.h"

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
}

TYPED_TEST(PctIntegerTest, InverseUndoesForwardOverTheFullRange) {
  using T = TypeParam;
  using Limits = std::numeric_limits<T>;
  Random random(1);
  for (int round = 0; round < 400; ++round) {
    const QelSize size{4 * int32_t(random.in(1, 14)), 4 * int32_t(random.in(1, 9))};
    auto image = random.vector<T>(size_t(size.width) * size_t(size.height), Limits::min(), Limits::max());
    if (round % 4 == 0)
      for (auto& v : image) v = random.chance(50) ? Limits::min() : Limits::max();
    const auto before = image;
    const auto step = int32_t(size_t(size.width) * sizeof(T));
    ASSERT_EQ(qelStatusOk, Pct<T>::fwd(image.data(), step, size));
    EXPECT_NE(before, image);
    ASSERT_EQ(qelStatusOk, Pct<T>::inv(image.data(), step, size));
    ASSERT_EQ(before, image) << size.width << "x" << size.height;
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

}  // namespace
}  // namespace qelj::test
