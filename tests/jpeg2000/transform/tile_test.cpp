#include <gtest/gtest.h>

#include "qelj.h"
#include "support/random.h"

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

// The planes are the tile transformed in place, cut in the middle, whatever its parity; and joined so on the way back.
TEST(Tile53, BandsAreTheTileCutInTheMiddle) {
  Random random;
  for (int n = 0; n < 12 * 12 * 4; ++n) {
    const QelRect tile{n & 1, n >> 1 & 1, 1 + (n >> 2) % 12, 1 + (n >> 2) / 12};
    const int width = tile.width, left = width - width / 2, top = (tile.height - tile.height / 2) * width;
    const auto image = random.vector<int16_t>(size_t(width * tile.height), -5000, 5000);
    auto inPlace = image, apart = image, back = image;
    std::vector<uint8_t> work(4096);
    // Planes that lie as the quadrants do.
    int16_t* const first = apart.data();
    int16_t* const bands[4] = {first, first + top, first + left, first + top + left};
    const int16_t* const sources[4] = {first, first + top, first + left, first + top + left};
    const int32_t step = 2 * width, steps[4] = {step, step, step, step};
    qeliWTFwd_B53_JPEG2K_16s_C1IR(inPlace.data(), step, &tile, work.data());
    qeliWTFwd_B53_JPEG2K_16s_C1R(image.data(), step, &tile, bands, steps, work.data());
    EXPECT_EQ(inPlace, apart) << n;
    qeliWTInv_B53_JPEG2K_16s_C1IR(inPlace.data(), step, &tile, work.data());
    qeliWTInv_B53_JPEG2K_16s_C1R(sources, steps, back.data(), step, &tile, work.data());
    EXPECT_EQ(inPlace, back) << n;
  }
}

}  // namespace
}  // namespace qelj::test
