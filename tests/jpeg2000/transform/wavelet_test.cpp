#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

// --- 9/7: the distance from the exact transform ------------------------------------------------------------

// A line between its samples and its bands as they alternate; position 0 is odd with q = 1.
using Line = std::vector<double>;
using Transform = std::function<Line(const Line&, int q)>;

size_t mirrored(int i, size_t length) {
  const int n = int(length), period = std::max(2 * (n - 1), 1), k = ((i % period) + period) % period;
  return size_t(k < n ? k : period - k);
}

// Lifting in double precision with mirrored ends, as a check of the constants and of what the types lose.
Line exact(Line x, int q) {
  constexpr double c[4] = {-1.586134342059924, -0.052980118572961, 0.882911075530934, 0.443506852043971};
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < int(x.size()); ++i)
      if (((i + q) & 1) != (t & 1))
        x[size_t(i)] += c[t] * (x[mirrored(i - 1, x.size())] + x[mirrored(i + 1, x.size())]);
  for (int i = 0; i < int(x.size()); ++i)
    x[size_t(i)] *= (i + q) & 1 ? 1.230174104914001 : 1 / 1.230174104914001;
  return x;
}

void holdAgainstExact(const std::vector<int>& lengths, const Transform& forward, const Transform& inverse,
                      double bound, double boundBack) {
  Random random;
  for (const int n : lengths)
    for (int repeat = 0; repeat < 40; ++repeat)
      for (const int q : {0, 1}) {
        const auto x = random.vector<double>(size_t(n), -3900, 3900);
        const Line bands = forward(x, q), expected = exact(x, q), back = inverse(bands, q);
        for (size_t i = 0; i < x.size(); ++i) {
          ASSERT_NEAR(expected[i], bands[i], bound) << n << " " << i;
          ASSERT_NEAR(x[i], back[i], boundBack) << n << " " << i;
        }
      }
}

constexpr int kBorder = 8;

template <class T, class Forward, class Inverse>
void holdRegion(Forward* forward, Inverse* inverse, bool down, double bound, double boundBack) {
  constexpr int32_t kStep = sizeof(T);
  const auto size = [=](size_t n) { return down ? QelSize{1, int32_t(n / 2)} : QelSize{int32_t(n / 2), 1}; };
  holdAgainstExact(
      {2, 4, 6, 100},
      [=](const Line& x, int q) {
        std::vector<T> line, low(x.size() / 2), high(low);
        for (int i = -kBorder; i < int(x.size()) + kBorder; ++i) line.push_back(T(x[mirrored(i, x.size())]));
        EXPECT_EQ(qelStatusOk, forward(line.data() + kBorder, kStep, low.data(), kStep, high.data(), kStep,
                                       size(x.size()), uint32_t(q)));
        Line bands;
        for (size_t i = 0; i < x.size(); ++i) bands.push_back((int(i) ^ q) & 1 ? high[i / 2] : low[i / 2]);
        return bands;
      },
      [=](const Line& bands, int q) {
        std::vector<T> band[2], line(bands.size());
        for (int m = -kBorder; m < int(bands.size()) + kBorder; ++m)
          band[(m ^ q) & 1].push_back(T(bands[mirrored(m, bands.size())]));
        EXPECT_EQ(qelStatusOk, inverse(band[0].data() + kBorder / 2, kStep, band[1].data() + kBorder / 2,
                                       kStep, size(bands.size()), line.data(), kStep, uint32_t(q)));
        return Line(line.begin(), line.end());
      },
      bound, boundBack);
}

// A tile of one row or column.
template <class T>
void holdTile(QelStatus (*forward)(T*, int32_t, const QelRect*, uint8_t*),
              QelStatus (*inverse)(T*, int32_t, const QelRect*, uint8_t*), bool down, double bound,
              double boundBack) {
  const auto run = [=](auto* function, std::vector<T>& line, int q) {
    const auto n = int32_t(line.size());
    const QelRect tile = down ? QelRect{0, q, 1, n} : QelRect{q, 0, n, 1};
    std::vector<uint8_t> work(1000);
    EXPECT_EQ(qelStatusOk, function(line.data(), sizeof(T), &tile, work.data()));
  };
  const auto place = [](size_t i, size_t n, int q) {  // in the bands
    return (int(i) ^ q) & 1 ? (n + 1 - size_t(q)) / 2 + i / 2 : i / 2;
  };
  holdAgainstExact(
      {2, 3, 4, 5, 7, 99},
      [=](const Line& x, int q) {
        std::vector<T> line(x.begin(), x.end());
        run(forward, line, q);
        Line bands;
        for (size_t i = 0; i < x.size(); ++i) bands.push_back(line[place(i, x.size(), q)]);
        return bands;
      },
      [=](const Line& bands, int q) {
        std::vector<T> line(bands.size());
        for (size_t i = 0; i < bands.size(); ++i) line[place(i, bands.size(), q)] = T(bands[i]);
        run(inverse, line, q);
        return Line(line.begin(), line.end());
      },
      bound, boundBack);
}

TEST(WaveletD97, IsCloseToTheExactTransform) {
  holdRegion<float>(qeliWTFwdRow_D97_JPEG2K_32f_C1R, qeliWTInvRow_D97_JPEG2K_32f_C1R, false, 0.01, 0.01);
  holdRegion<float>(qeliWTFwdCol_D97_JPEG2K_32f_C1R, qeliWTInvCol_D97_JPEG2K_32f_C1R, true, 0.01, 0.01);
  holdRegion<int32_t>(qeliWTFwdRow_D97_JPEG2K_32s_C1R, qeliWTInvRow_D97_JPEG2K_32s_C1R, false, 3, 7);
  holdRegion<int16_t>(qeliWTFwdRow_D97_JPEG2K_16s_C1R, qeliWTInvRow_D97_JPEG2K_16s_C1R, false, 5, 8);
  for (const bool down : {false, true}) {
    holdTile<int16_t>(qeliWTFwd_D97_JPEG2K_16s_C1IR, qeliWTInv_D97_JPEG2K_16s_C1IR, down, 4, 8);
    holdTile<int32_t>(qeliWTFwd_D97_JPEG2K_32s_C1IR, qeliWTInv_D97_JPEG2K_32s_C1IR, down, 1.1, 6);
  }
}

// --- single steps ------------------------------------------------------------------------------------------

constexpr int kWidth = 21, kHeight = 38, kBands = kHeight / 2;

TEST(WaveletB53, SixteenBitStepsWrap) {
  const int16_t a = 30000, b = 1, c = -30000;
  int16_t low, high;
  qeliWTFwdColLift_B53_JPEG2K_16s_C1(&a, &b, &a, &low, &c, &high, 1);
  EXPECT_EQ(1 - (60000 - 65536) / 2, high);
  EXPECT_EQ(30000 + ((-30000 + 2769 + 2) >> 2), low);
}

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
