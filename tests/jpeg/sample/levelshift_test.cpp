#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

TEST(LevelShift, EveryValue) {
  std::vector<uint8_t> bytes(256);
  std::iota(bytes.begin(), bytes.end(), 0);
  std::vector<int16_t> centred(256);
  ASSERT_EQ(qelStatusOk, qeliSub128_JPEG_8u16s_C1R(bytes.data(), 256, centred.data(), 512, {256, 1}));
  for (int i = 0; i < 256; ++i) EXPECT_EQ(i - 128, centred[size_t(i)]);

  std::vector<int16_t> all(65536);
  std::iota(all.begin(), all.end(), int16_t(-32768));
  std::vector<uint8_t> shifted(65536);
  ASSERT_EQ(qelStatusOk, qeliAdd128_JPEG_16s8u_C1R(all.data(), 1, shifted.data(), 1, {65536, 1}));
  for (size_t i = 0; i < all.size(); ++i) ASSERT_EQ(std::clamp(all[i] + 128, 0, 255), shifted[i]) << all[i];
}

TEST(LevelShift, EveryWidthAndOffsetWritesItsRowsOnly) {
  Random random;
  for (size_t width = 1; width <= 70; ++width) {
    Guarded bytes(random, width, 3, width + width % 5, width % 7),
        back(random, width, 3, width + 3, width % 3);
    Guarded words(random, 2 * width, 3, 2 * width + width % 4, width % 9);
    const QelSize size{int32_t(width), 3};
    ASSERT_EQ(qelStatusOk, qeliSub128_JPEG_8u16s_C1R(bytes.data(), bytes.step(), words.data<int16_t>(),
                                                     words.step(), size));
    ASSERT_EQ(qelStatusOk,
              qeliAdd128_JPEG_16s8u_C1R(words.data<int16_t>(), words.step(), back.data(), back.step(), size));
    EXPECT_TRUE(words.intact() && back.intact()) << width;
    for (size_t y = 0; y < 3; ++y)
      EXPECT_TRUE(std::equal(bytes.data(y), bytes.data(y) + width, back.data(y))) << width;
  }
}

TEST(LevelShift, ChecksInOrder) {
  uint8_t bytes[4] = {};
  int16_t words[4] = {7, 7, 7, 7};
  const QelSize good{1, 1}, flat{0, 1}, thin{1, 0};
  EXPECT_EQ(qelStatusNullPointer, qeliSub128_JPEG_8u16s_C1R(nullptr, 0, nullptr, 0, flat));
  EXPECT_EQ(qelStatusBadStep, qeliSub128_JPEG_8u16s_C1R(bytes, 0, nullptr, 0, flat));
  EXPECT_EQ(qelStatusNullPointer, qeliSub128_JPEG_8u16s_C1R(bytes, 1, nullptr, 0, flat));
  EXPECT_EQ(qelStatusBadStep, qeliSub128_JPEG_8u16s_C1R(bytes, 1, words, -1, flat));
  EXPECT_EQ(qelStatusBadSize, qeliSub128_JPEG_8u16s_C1R(bytes, 1, words, 1, flat));
  EXPECT_EQ(qelStatusBadSize, qeliAdd128_JPEG_16s8u_C1R(words, 1, bytes, 1, thin));
  EXPECT_EQ(qelStatusBadStep, qeliAdd128_JPEG_16s8u_C1R(words, -5, nullptr, 1, good));
  EXPECT_EQ(7, words[0]);
}

}  // namespace
}  // namespace qelj::test
