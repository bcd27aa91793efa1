#include <gtest/gtest.h>

#include <algorithm>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

// --- 9/7: the distance from the exact transform ------------------------------------------------------------

using Line = std::vector<double>;

size_t mirrored(int i, int n) {
  const int period = std::max(2 * (n - 1), 1), k = ((i % period) + period) % period;
  return size_t(k < n ? k : period - k);
}

// Lifting in double precision with mirrored ends, as a check of the constants and of what the types lose.
Line exact(Line x, int q) {
  const int n = int(x.size());
  constexpr double c[4] = {-1.586134342059924, -0.052980118572961, 0.882911075530934, 0.443506852043971};
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < n; ++i)
      if (((i + q) & 1) != (t & 1)) x[size_t(i)] += c[t] * (x[mirrored(i - 1, n)] + x[mirrored(i + 1, n)]);
  for (int i = 0; i < n; ++i) x[size_t(i)] *= (i + q) & 1 ? 1.230174104914001 : 1 / 1.230174104914001;
  return x;
}

template <class T, class Forward, class Inverse>
void holdAgainstExact(Forward* forward, Inverse* inverse, bool down, int w, double bound, double boundBack) {
  Random random;
  constexpr int kBorder = 8;
  constexpr int32_t kStep = sizeof(T);
  const int n = 2 * w;
  const QelSize size = down ? QelSize{1, w} : QelSize{w, 1};
  for (int repeat = 0; repeat < 40; ++repeat)
    for (const int q : {0, 1}) {
      const auto x = random.vector<double>(size_t(n), -3900, 3900);
      const auto bands = exact(x, q);
      std::vector<T> line, low(size_t(w), 0), high(low), lows, highs, back(x.size());
      for (int i = -kBorder; i < n + kBorder; ++i) line.push_back(T(x[mirrored(i, n)]));
      forward(line.data() + kBorder, kStep, low.data(), kStep, high.data(), kStep, size, uint32_t(q));
      for (int m = -kBorder; m < n + kBorder; ++m)
        ((m ^ q) & 1 ? highs : lows).push_back(((m ^ q) & 1 ? high : low)[mirrored(m, n) / 2]);
      inverse(lows.data() + kBorder / 2, kStep, highs.data() + kBorder / 2, kStep, size, back.data(), kStep,
              uint32_t(q));
      for (size_t i = 0; i < x.size(); ++i) {
        ASSERT_NEAR(bands[i], double(((int(i) + q) & 1 ? high : low)[i / 2]), bound) << w << " " << i;
        ASSERT_NEAR(x[i], double(back[i]), boundBack) << w << " " << i;
      }
    }
}
TEST(WaveletD97, IsCloseToTheExactTransform) {
  for (const int w : {1, 2, 3, 50}) {
    holdAgainstExact<float>(qeliWTFwdRow_D97_JPEG2K_32f_C1R, qeliWTInvRow_D97_JPEG2K_32f_C1R, false, w, 0.01,
                            0.01);
    holdAgainstExact<float>(qeliWTFwdCol_D97_JPEG2K_32f_C1R, qeliWTInvCol_D97_JPEG2K_32f_C1R, true, w, 0.01,
                            0.01);
    holdAgainstExact<int32_t>(qeliWTFwdRow_D97_JPEG2K_32s_C1R, qeliWTInvRow_D97_JPEG2K_32s_C1R, false, w, 3,
                              7);
    holdAgainstExact<int16_t>(qeliWTFwdRow_D97_JPEG2K_16s_C1R, qeliWTInvRow_D97_JPEG2K_16s_C1R, false, w, 5,
                              8);
  }
}

// --- single steps ------------------------------------------------------------------------------------------

constexpr int kWidth = 21, kHeight = 38, kBands = kHeight / 2;

// Line by line, as a caller would who has no tile in memory.
TEST(WaveletD97, StepsLineByLineAreTheColumns) {
  Random random;
  const auto image = random.vector<float>(kHeight * kWidth, -100000, 100000);
  std::vector<float> extended, low(kBands * kWidth), high(low);
  for (int y = -4; y < kHeight + 4; ++y)
    for (size_t x = 0; x < kWidth; ++x) extended.push_back(image[mirrored(y, kHeight) * kWidth + x]);
  constexpr int kStep = kWidth * sizeof(float);
  qeliWTFwdCol_D97_JPEG2K_32f_C1R(extended.data() + 4 * kWidth, kStep, low.data(), kStep, high.data(), kStep,
                                  {kWidth, kBands}, 0);
  std::vector<float> r[5];  // s; D, d; the new s and d
  for (auto& row : r) row.resize(kWidth);
  for (int k = -2; k <= kBands + 1; ++k) {
    const auto source = [&](int m) {
      return extended.data() + (std::clamp(m, -4, kHeight + 3) + 4) * kWidth;
    };
    ASSERT_EQ(qelStatusOk, qeliWTFwdColLift_D97_JPEG2K_32f_C1(source(2 * k), source(2 * k + 1),
                                                              source(2 * k + 2), r[0].data(), r[3].data(),
                                                              r[1].data(), r[2].data(), r[4].data(), kWidth));
    const bool lowDone = k >= 1 && k <= kBands, highDone = k >= 2;
    EXPECT_TRUE(!lowDone || std::equal(r[0].begin(), r[0].end(), &low[size_t(k - 1) * kWidth])) << k;
    EXPECT_TRUE(!highDone || std::equal(r[1].begin(), r[1].end(), &high[size_t(k - 2) * kWidth])) << k;
    std::swap(r[0], r[3]), std::swap(r[1], r[2]), std::swap(r[2], r[4]);
  }
}

}  // namespace
}  // namespace qelj::test
