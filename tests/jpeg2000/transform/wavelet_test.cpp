#include <gtest/gtest.h>

#include <algorithm>

#include "../../../examples/tiny/column_lifting.h"
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
    holdAgainstExact<float>(qeliWTFwdRow_D97_JPEG2K_32f_C1R, qeliWTInvRow_D97_JPEG2K_32f_C1R, false, w, 0.01, 0.01);
    holdAgainstExact<float>(qeliWTFwdCol_D97_JPEG2K_32f_C1R, qeliWTInvCol_D97_JPEG2K_32f_C1R, true, w, 0.01, 0.01);
    holdAgainstExact<int32_t>(qeliWTFwdRow_D97_JPEG2K_32s_C1R, qeliWTInvRow_D97_JPEG2K_32s_C1R, false, w, 3, 7);
    holdAgainstExact<int16_t>(qeliWTFwdRow_D97_JPEG2K_16s_C1R, qeliWTInvRow_D97_JPEG2K_16s_C1R, false, w, 5, 8);
  }
}

// --- the steps in a pipeline: the loops of the example ----------------------------------------------------

constexpr int kWidth = 21;

template <class Check>
void forEachHeight(Check check) {
  for (const int rows : {2, 3, 4, 5, 6, 7, 38, 39})
    for (const int first : {0, 1}) {
      SCOPED_TRACE(testing::Message() << rows << " rows from " << first);
      check(rows, first);
    }
}

TEST(WaveletB53, PipelineIsTheTransformOfTheColumns) {
  Random random;
  forEachHeight([&](int rows, int first) {
    const auto picture = random.vector<int32_t>(size_t(rows * kWidth), INT32_MIN, INT32_MAX);
    std::vector<int32_t> low(picture.size()), high(low), back(low), work(3 * kWidth);
    ASSERT_EQ(qelStatusOk, forward53(picture.data(), kWidth, rows, first, low.data(), high.data(), work.data()));
    const QelRect column = {0, first, 1, rows};
    const int lows = (rows + 1 - first) / 2;
    for (int x = 0; x < kWidth; ++x) {
      std::vector<int32_t> line, bands;
      for (int y = 0; y < rows; ++y) {
        line.push_back(picture[size_t(y * kWidth + x)]);
        bands.push_back(y < lows ? low[size_t(y * kWidth + x)] : high[size_t((y - lows) * kWidth + x)]);
      }
      std::vector<uint8_t> buffer(4096);
      qeliWTFwd_B53_JPEG2K_32s_C1IR(line.data(), sizeof(int32_t), &column, buffer.data());
      if (rows > 2) {  // sums of two rows wrap otherwise than the difference that a pair takes
        ASSERT_EQ(line, bands);
      }
    }
    inverse53(low.data(), high.data(), kWidth, rows, first, back.data(), work.data());
    EXPECT_EQ(picture, back);
  });
}

TEST(WaveletD97, PipelineIsTheTransformOfTheColumns) {
  Random random;
  forEachHeight([&](int rows, int first) {
    const auto picture = random.vector<float>(size_t(rows * kWidth), -3900, 3900);
    std::vector<float> low(picture.size()), high(low), back(low), work(5 * kWidth);
    ASSERT_EQ(qelStatusOk, forward97(picture.data(), kWidth, rows, first, low.data(), high.data(), work.data()));
    // The longer band's length for both; a band of one sample is made otherwise.
    constexpr int kStep = kWidth * sizeof(float), kBorder = 5;
    const int w = (rows + 1) / 2, lows = (rows + 1 - first) / 2;
    std::vector<float> extended, allLow(size_t(w * kWidth)), allHigh(allLow);
    for (int y = -kBorder; y < rows + kBorder; ++y)
      for (size_t x = 0; x < kWidth; ++x) extended.push_back(picture[mirrored(y, rows) * kWidth + x]);
    qeliWTFwdCol_D97_JPEG2K_32f_C1R(extended.data() + kBorder * kWidth, kStep, allLow.data(), kStep, allHigh.data(),
                                    kStep, {kWidth, w}, uint32_t(first));
    if (w > 1) {
      EXPECT_TRUE(std::equal(low.begin(), low.begin() + lows * kWidth, allLow.begin()));
      EXPECT_TRUE(std::equal(high.begin(), high.begin() + (rows - lows) * kWidth, allHigh.begin()));
    }
    inverse97(low.data(), high.data(), kWidth, rows, first, back.data(), work.data());
    for (size_t i = 0; i < back.size(); ++i) ASSERT_NEAR(picture[i], back[i], 0.01);
  });
}

}  // namespace
}  // namespace qelj::test
