#include <gtest/gtest.h>

#include <numeric>

#include "qelj.h"

namespace qelj::test {
namespace {

TEST(LevelShift, ThereAndBack) {
  uint8_t bytes[256], back[256];
  int16_t centred[256];
  std::iota(bytes, bytes + 256, uint8_t(0));
  ASSERT_EQ(qelStatusOk, qeliSub128_JPEG_8u16s_C1R(bytes, 256, centred, 512, {256, 1}));
  EXPECT_EQ(-128, centred[0]);
  EXPECT_EQ(127, centred[255]);
  ASSERT_EQ(qelStatusOk, qeliAdd128_JPEG_16s8u_C1R(centred, 512, back, 256, {256, 1}));
  EXPECT_TRUE(std::equal(bytes, bytes + 256, back));
}

TEST(LevelShift, Clamps) {
  const int16_t samples[] = {-32768, -129, -128, -127, 126, 127, 128, 32767};
  uint8_t bytes[8];
  ASSERT_EQ(qelStatusOk, qeliAdd128_JPEG_16s8u_C1R(samples, 1, bytes, 1, {8, 1}));
  const uint8_t expected[] = {0, 0, 0, 1, 254, 255, 255, 255};
  EXPECT_TRUE(std::equal(expected, expected + 8, bytes));
}

}  // namespace
}  // namespace qelj::test
