// The resamplers: numbers worked out by hand, above all at the ends of rows.
#include <gtest/gtest.h>

#include <numeric>

#include "qelj.h"

namespace qelj::test {
namespace {

using Samples = std::vector<uint8_t>;

TEST(Resample, ConstantPlanesStay) {
  const Samples src(80, 77);
  for (const auto f : {qeliSampleDownH2V1_JPEG_8u_C1R, qeliSampleDownH2V2_JPEG_8u_C1R,
                       qeliSampleUpH2V1_JPEG_8u_C1R, qeliSampleUpH2V2_JPEG_8u_C1R}) {
    Samples dst(9);
    ASSERT_EQ(qelStatusOk, f(&src[25], 8, {1, 1}, dst.data(), 3, {3, 3}));  // whatever the source's size
    EXPECT_EQ(Samples(9, 77), dst);
  }
}

TEST(Resample, PlanesByHand) {
  const Samples src = {0, 1, 2, 4, 10, 20, 30, 41};  // two rows of four
  Samples dst(2);
  ASSERT_EQ(qelStatusOk, qeliSampleDownH2V1_JPEG_8u_C1R(src.data(), 4, {1, 1}, dst.data(), 2, {2, 1}));
  EXPECT_EQ((Samples{1, 3}), dst);  // halves go up
  ASSERT_EQ(qelStatusOk, qeliSampleDownH2V2_JPEG_8u_C1R(src.data(), 4, {1, 1}, dst.data(), 2, {2, 1}));
  EXPECT_EQ((Samples{8, 20}), dst);  // 7.75 and 19.25: quarters do too
  ASSERT_EQ(qelStatusOk, qeliSampleUpH2V1_JPEG_8u_C1R(&src[5], 4, {1, 1}, dst.data(), 2, {2, 1}));
  EXPECT_EQ((Samples{17, 23}), dst);  // 17.5 down, 22.5 up
  ASSERT_EQ(qelStatusOk, qeliSampleUpH2V2_JPEG_8u_C1R(&src[5], 4, {1, 1}, dst.data(), 2, {2, 1}));
  EXPECT_EQ((Samples{13, 17}), dst);  // rows 7.5, 15.25, 23: 13.3125 and 17.1875
}

TEST(Resample, RowsDownAlternateTheirRounding) {
  alignas(16) uint8_t dst[64];
  Samples src(64);
  for (size_t i = 0; i < 64; ++i) src[i] = i % 2;
  const auto down = [&](int width, size_t offset = 0) {
    std::fill_n(dst, 64, uint8_t(9));
    EXPECT_EQ(qelStatusOk, qeliSampleDownRowH2V1_Box_JPEG_8u_C1(src.data(), width, dst + offset));
    return Samples(dst + offset, std::find(dst + offset, dst + 64, 9));
  };
  EXPECT_EQ((Samples{0, 1, 0, 1, 0, 1, 0, 1}), down(16));
  EXPECT_EQ((Samples{1, 0, 1, 0}), down(8));
  EXPECT_EQ((Samples{0, 1, 0, 1, 0}), down(10));
  EXPECT_EQ((Samples{}), down(1));
  EXPECT_EQ(8u, down(17).size());
  // Off its boundary, a row that is not much longer than the way to the next one is cut by it.
  EXPECT_EQ(5u, down(26, 1).size());
  EXPECT_EQ(7u, down(30, 1).size());
  EXPECT_EQ(15u, down(31, 1).size());
  EXPECT_EQ(7u, down(14, 1).size());
  EXPECT_EQ(0u, down(13, 1).size());

  const auto downTwo = [&](int width) {
    std::fill_n(dst, 64, uint8_t(9));
    EXPECT_EQ(qelStatusOk, qeliSampleDownRowH2V2_Box_JPEG_8u_C1(src.data(), src.data(), width, dst));
    return Samples(dst, std::find(dst, dst + 64, 9));
  };
  EXPECT_EQ((Samples{0, 1, 0}), downTwo(5));  // the sample behind the row counts
  EXPECT_EQ(16u, downTwo(31).size());
  EXPECT_EQ(16u, downTwo(33).size());
}

TEST(Resample, RowsUpKeepTheirEnds) {
  const Samples src = {10, 21, 32}, far = {50, 61, 72};
  Samples dst(6);
  ASSERT_EQ(qelStatusOk, qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(src.data(), 3, dst.data()));
  EXPECT_EQ((Samples{10, 13, 18, 24, 29, 32}), dst);
  ASSERT_EQ(qelStatusOk, qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(src.data(), far.data(), 3, dst.data()));
  EXPECT_EQ((Samples{20, 23, 28, 34, 39, 42}), dst);  // a quarter of the way to the far row: 10 more
  ASSERT_EQ(qelStatusOk, qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(src.data(), 1, dst.data()));
  EXPECT_EQ((Samples{10, 10}), Samples(dst.begin(), dst.begin() + 2));
}

}  // namespace
}  // namespace qelj::test
