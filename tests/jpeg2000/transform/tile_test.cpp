#include <gtest/gtest.h>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

// 5/3 gives back everything whose sums stay in range, extremes of that range included.
TEST(Tile53, ReconstructsPerfectly) {
  Random random;
  for (int n = 1; n <= 40; ++n)
    for (int parity = 0; parity < 4; ++parity) {
      const QelRect tile{parity & 1, parity >> 1, n, 41 - n};
      // An odd single sample is doubled, and 16-bit columns must not leave the range.
      const auto samples = random.vector<int16_t>(size_t(n * (41 - n)), -4000, 4000);
      auto data = samples;
      std::vector<uint8_t> work(4096);
      qeliWTFwd_B53_JPEG2K_16s_C1IR(data.data(), 2 * n, &tile, work.data());
      qeliWTInv_B53_JPEG2K_16s_C1IR(data.data(), 2 * n, &tile, work.data());
      EXPECT_EQ(samples, data) << n << " " << parity;
      std::vector<int32_t> wide(samples.size());
      for (auto& x : wide) x = int32_t(random.in(0, 1) ? (1 << 27) : -(1 << 27));
      const auto before = wide;
      qeliWTFwd_B53_JPEG2K_32s_C1IR(wide.data(), 4 * n, &tile, work.data());
      qeliWTInv_B53_JPEG2K_32s_C1IR(wide.data(), 4 * n, &tile, work.data());
      EXPECT_EQ(before, wide) << n << " " << parity;
    }
}

TEST(Tile53, SingleSamples) {
  const QelRect even{2, -4, 1, 1}, odd{-1, 0, 1, 1}, both{1, 1, 1, 1};
  uint8_t unused;
  int32_t x = -3;
  qeliWTFwd_B53_JPEG2K_32s_C1IR(&x, 4, &even, &unused);
  EXPECT_EQ(-3, x);
  qeliWTInv_D97_JPEG2K_32s_C1IR(&x, 4, &odd, &unused);
  EXPECT_EQ(-1, x);
  qeliWTFwd_B53_JPEG2K_32s_C1IR(&x, 4, &odd, &unused);
  EXPECT_EQ(-2, x);
  qeliWTFwd_D97_JPEG2K_32s_C1IR(&x, 4, &both, &unused);
  EXPECT_EQ(-8, x);
}

// The planes are the tile transformed in place, cut in the middle, whatever its parity; and joined so on the way back.
template <class T>
void cutInTheMiddle(QelStatus (*forward)(T*, int32_t, const QelRect*, uint8_t*),
                    QelStatus (*inverse)(T*, int32_t, const QelRect*, uint8_t*),
                    QelStatus (*toBands)(const T*, int32_t, const QelRect*, T* const*, const int32_t*,
                                         uint8_t*),
                    QelStatus (*fromBands)(const T* const*, const int32_t*, T*, int32_t, const QelRect*,
                                           uint8_t*)) {
  Random random;
  for (int n = 0; n < 12 * 12 * 4; ++n) {
    const QelRect tile{n & 1, n >> 1 & 1, 1 + (n >> 2) % 12, 1 + (n >> 2) / 12};
    const size_t width = size_t(tile.width), height = size_t(tile.height), left = width - width / 2,
                 top = height - height / 2;
    const auto image = random.vector<T>(width * height, -5000, 5000);
    const auto step = int32_t(width * sizeof(T));
    auto inPlace = image, apart = image, back = image;
    std::vector<uint8_t> work(4096);
    // Planes that lie as the quadrants do.
    T* const bands[4] = {&apart[0], apart.data() + top * width, apart.data() + left,
                         apart.data() + top * width + left};
    const T* const sources[4] = {bands[0], bands[1], bands[2], bands[3]};
    const int32_t steps[4] = {step, step, step, step};
    ASSERT_EQ(qelStatusOk, forward(inPlace.data(), step, &tile, work.data()));
    ASSERT_EQ(qelStatusOk, toBands(image.data(), step, &tile, bands, steps, work.data()));
    EXPECT_EQ(inPlace, apart) << n;
    ASSERT_EQ(qelStatusOk, inverse(inPlace.data(), step, &tile, work.data()));
    ASSERT_EQ(qelStatusOk, fromBands(sources, steps, back.data(), step, &tile, work.data()));
    EXPECT_EQ(inPlace, back) << n;
  }
}
TEST(Tile, BandsAreTheTileCutInTheMiddle) {
  cutInTheMiddle<int16_t>(qeliWTFwd_B53_JPEG2K_16s_C1IR, qeliWTInv_B53_JPEG2K_16s_C1IR,
                          qeliWTFwd_B53_JPEG2K_16s_C1R, qeliWTInv_B53_JPEG2K_16s_C1R);
  cutInTheMiddle<int32_t>(qeliWTFwd_D97_JPEG2K_32s_C1IR, qeliWTInv_D97_JPEG2K_32s_C1IR,
                          qeliWTFwd_D97_JPEG2K_32s_C1R, qeliWTInv_D97_JPEG2K_32s_C1R);
}

}  // namespace
}  // namespace qelj::test
