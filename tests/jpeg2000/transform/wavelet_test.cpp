#include <gtest/gtest.h>

#include <cmath>

#include "jpeg2000/transform/model.h"
#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

// --- rows and columns against the formulas -----------------------------------------------------------------

template <class T>
T sample(Random& random, int64_t range) {
  return T(random.in(-range, range)) / T(std::is_floating_point_v<T> ? 32 : 1);
}

// Positions that a transform of w samples a band reads: of the signal, or of the bands as they alternate.
template <class Model>
std::pair<int, int> reads(bool forward, int w, int q) {
  const int s = Model::kStages;
  return forward ? std::pair{q - s, 2 * w + q + s - 2} : std::pair{1 - q - s, 2 * w - q + s - 1};
}

// A line whose first sample has position `first`, as the buffers of a Row (lines = 1) or of a Col (the
// transform runs down, `columns` alike lines beside each other), which end and begin at inaccessible pages.
template <class Model, class Forward, class Inverse>
void holdAgainstModel(Forward* forwardFunction, Inverse* inverseFunction, bool down, int64_t range) {
  using T = typename Model::Sample;
  Random random;
  std::vector<int> lengths = {511, 512, 513, 1100};
  for (int w = Model::kStages == 4 ? 2 : 1; w < 40; ++w) lengths.push_back(w);
  for (const int w : lengths)
    for (const int q : {0, 1})
      for (const bool forward : {true, false})
        for (const bool atStart : {false, true}) {
          SCOPED_TRACE(testing::Message() << w << " phase " << q << " forward " << forward);
          const int columns = down ? 1 + w % 23 : 1;
          const auto ends = reads<Model>(forward, w, q);
          const int first = ends.first, last = ends.second;
          std::vector<T> line;
          for (int m = first; m <= last; ++m) line.push_back(sample<T>(random, range));
          const auto expected = lifted<Model>(forward, line, first, w, q);

          // Every sample of one parity of positions, or of both, repeated over the columns.
          const auto gather = [&](int parity, PageBuffer& buffer, int& start) {
            size_t n = 0;
            for (int m = first; m <= last; ++m)
              if (parity < 0 || (m & 1) == parity) {
                if (!n) start = parity < 0 ? m : m >> 1;
                for (int x = 0; x < columns; ++x) buffer.data<T>()[n++] = line[size_t(m - first)];
              }
          };
          const auto count = [&](int parity) {
            size_t n = 0;
            for (int m = first; m <= last; ++m) n += parity < 0 || (m & 1) == parity;
            return n * size_t(columns) * sizeof(T);
          };
          const QelSize size = down ? QelSize{columns, w} : QelSize{w, 1};
          const auto step = int32_t(down ? size_t(columns) * sizeof(T) : 1);
          const uint32_t phase = q ? 0x80000000u : 0;
          PageBuffer low(forward ? size_t(w * columns) * sizeof(T) : count(q), atStart);
          PageBuffer high(forward ? size_t(w * columns) * sizeof(T) : count(1 - q), atStart);
          PageBuffer signal(forward ? count(-1) : size_t(2 * w * columns) * sizeof(T), atStart);
          int start = 0, highStart = 0;
          if (forward) {
            gather(-1, signal, start);
            ASSERT_EQ(qelStatusOk, forwardFunction(signal.data<T>() - start * columns, step, low.data<T>(),
                                                   step, high.data<T>(), step, size, phase));
          } else {
            gather(q, low, start), gather(1 - q, high, highStart);
            ASSERT_EQ(qelStatusOk, inverseFunction(low.data<T>() - start * columns, step,
                                                   high.data<T>() - highStart * columns, step, size,
                                                   signal.data<T>(), step, phase));
          }
          for (int m = 0; m < 2 * w; ++m)
            for (int x = 0; x < columns; ++x) {
              T* const got = forward ? ((m ^ q) & 1 ? high : low).data<T>() + m / 2 * columns
                                     : signal.data<T>() + m * columns;
              ASSERT_EQ(expected[size_t(m - first)], got[x]) << "position " << m << " column " << x;
            }
        }
}

#define HOLD(wavelet, type, Model, range)                                                \
  TEST(Wavelet##wavelet, Rows_##type) {                                                  \
    holdAgainstModel<Model>(qeliWTFwdRow_##wavelet##_JPEG2K_##type##_C1R,                \
                            qeliWTInvRow_##wavelet##_JPEG2K_##type##_C1R, false, range); \
  }
#define HOLD_COLUMNS(wavelet, type, Model, range)                                       \
  TEST(Wavelet##wavelet, Columns_##type) {                                              \
    holdAgainstModel<Model>(qeliWTFwdCol_##wavelet##_JPEG2K_##type##_C1R,               \
                            qeliWTInvCol_##wavelet##_JPEG2K_##type##_C1R, true, range); \
  }
HOLD(B53, 16s, Model53<int16_t>, 5000)  // 16-bit sums must not overflow
HOLD(B53, 32s, Model53<int32_t>, INT32_MAX)
HOLD(D97, 16s, Model97_16s<false>, 32767)
HOLD(D97, 32s, Model97_32s, INT32_MAX)
HOLD(D97, 32f, Model97_32f, 100000)
HOLD_COLUMNS(B53, 16s, Model53<int16_t>, 5000)
HOLD_COLUMNS(B53, 32s, Model53<int32_t>, INT32_MAX)
HOLD_COLUMNS(D97, 32f, Model97_32f, 100000)

// --- single steps ------------------------------------------------------------------------------------------

template <class Model, class T>
T stage(bool forward, int t, T x, T l, T r) {
  return Model::step({forward, 1000, 5000, 0}, t, x, l, r);  // as in the interior of a long row
}

// Line by line over an image, as a caller would who has no tile in memory: the same as the tile driver, and
// for 9/7 the same as the columns.
constexpr int kWidth = 21, kHeight = 38, kBands = kHeight / 2;

int mirror(int m) { return m < 0 ? -m : m >= kHeight ? 2 * (kHeight - 1) - m : m; }

template <class T>
using Lines = std::vector<std::vector<T>>;
template <class T>
Lines<T> randomLines(int64_t range) {
  Random random;
  Lines<T> lines(kHeight + 8, std::vector<T>(kWidth));
  for (auto& line : lines)
    for (T& x : line) x = sample<T>(random, range);
  return lines;
}

template <class T, class Forward, class Inverse, class Driver>
void driveSteps53(Forward* forward, Inverse* inverse, Driver* driver, int64_t range) {
  auto lines = randomLines<T>(range), low = lines, high = lines, back = lines;
  // Row by row of one column each, the driver transforms the columns only.
  std::vector<uint8_t> work(1024);
  for (int x = 0; x < kWidth; ++x) {
    std::vector<T> column;
    for (int y = 0; y < kHeight; ++y) column.push_back(lines[size_t(y)][size_t(x)]);
    const QelRect tile{0, 0, 1, kHeight};
    driver(column.data(), sizeof(T), &tile, work.data());
    for (int y = 0; y < kHeight; ++y) back[size_t(y)][size_t(x)] = column[size_t(y)];
  }
  const auto row = [](Lines<T>& from, int m) { return from[size_t(m)].data(); };
  for (int k = -1; k < kBands; ++k)  // high[k + 1] is H[k], low[k + 1] is L[k]
    ASSERT_EQ(qelStatusOk,
              forward(row(lines, mirror(2 * k)), row(lines, mirror(2 * k + 1)), row(lines, mirror(2 * k + 2)),
                      row(low, k + 1), row(high, std::max(k, 0)), row(high, k < 0 ? 0 : k + 1), kWidth));
  for (int k = 0; k < kBands; ++k) {
    EXPECT_EQ(back[size_t(k)], low[size_t(k + 1)]);
    EXPECT_EQ(back[size_t(kBands + k)], high[size_t(k + 1)]);
  }
  const auto l = [&](int k) { return row(low, mirror(2 * k) / 2 + 1); };
  const auto h = [&](int k) { return row(high, mirror(2 * k + 1) / 2 + 1); };
  for (int k = 0; k <= kBands; ++k)  // back[2k + 1] becomes row 2k
    ASSERT_EQ(qelStatusOk, inverse(l(k), h(k - 1), h(k), row(back, std::max(2 * k - 1, kHeight * !k)),
                                   row(back, 2 * k), row(back, 2 * k + 1), kWidth));
  for (int y = 0; y < kHeight; ++y) EXPECT_EQ(lines[size_t(y)], back[size_t(y + 1)]);
}
TEST(WaveletB53, StepsLineByLineAreTheTransform) {
  driveSteps53<int16_t>(qeliWTFwdColLift_B53_JPEG2K_16s_C1, qeliWTInvColLift_B53_JPEG2K_16s_C1,
                        qeliWTFwd_B53_JPEG2K_16s_C1IR, 5000);
  driveSteps53<int32_t>(qeliWTFwdColLift_B53_JPEG2K_32s_C1, qeliWTInvColLift_B53_JPEG2K_32s_C1,
                        qeliWTFwd_B53_JPEG2K_32s_C1IR, INT32_MAX);
}
TEST(WaveletB53, SixteenBitStepsWrap) {
  const int16_t a = 30000, b = 1, c = -30000;
  int16_t low, high;
  qeliWTFwdColLift_B53_JPEG2K_16s_C1(&a, &b, &a, &low, &c, &high, 1);
  EXPECT_EQ(1 - (60000 - 65536) / 2, high);
  EXPECT_EQ(30000 + ((-30000 + 2769 + 2) >> 2), low);
}

TEST(WaveletD97, StepsLineByLineAreTheColumns) {
  auto lines = randomLines<float>(100000);
  std::vector<float> extended, low(kBands * kWidth), high(low);
  for (int y = -4; y < kHeight + 4; ++y)
    for (const float x : lines[size_t(mirror(y))]) extended.push_back(x);
  constexpr int kStep = kWidth * sizeof(float);
  qeliWTFwdCol_D97_JPEG2K_32f_C1R(extended.data() + 4 * kWidth, kStep, low.data(), kStep, high.data(), kStep,
                                  {kWidth, kBands}, 0);
  Lines<float> r(5, std::vector<float>(kWidth));  // s; D, d; the new s and d
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

template <class Model, class Forward, class Inverse>
void holdSteps97(Forward* forward, Inverse* inverse, int64_t range) {
  using T = typename Model::Sample;
  Random random;
  for (int width = 1; width < 70; ++width) {
    std::vector<T> r[8];
    for (auto& row : r)
      for (int i = 0; i < width; ++i) row.push_back(sample<T>(random, range));
    std::vector<T> in[8], *out = r;
    std::copy(r, r + 8, in);
    T* p[8];
    for (int i = 0; i < 8; ++i) p[i] = r[i].data();
    ASSERT_EQ(qelStatusOk, forward(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], width));
    for (size_t i = 0; i < size_t(width); ++i) {
      const T d = stage<Model>(true, 1, in[1][i], in[0][i], in[2][i]),
              s = stage<Model>(true, 2, in[0][i], in[6][i], d);
      const T d2 = stage<Model>(true, 3, in[6][i], in[3][i], s);
      ASSERT_EQ(d, out[7][i]);
      ASSERT_EQ(s, out[4][i]);
      ASSERT_EQ(d2, out[6][i]);
      ASSERT_EQ(stage<Model>(true, 4, in[3][i], in[5][i], d2), out[3][i]);
      ASSERT_EQ(stage<Model>(true, 5, in[5][i], T(), T()), out[5][i]);
    }
    std::copy(in, in + 8, r);
    for (int i = 0; i < 8; ++i) p[i] = r[i].data();
    ASSERT_EQ(qelStatusOk, inverse(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], width));
    for (size_t i = 0; i < size_t(width); ++i) {
      const T e = stage<Model>(false, 1, in[0][i], in[1][i], in[2][i]),
              o = stage<Model>(false, 2, in[1][i], in[5][i], e);
      const T e2 = stage<Model>(false, 3, in[5][i], in[4][i], o);
      ASSERT_EQ(e, out[7][i]);
      ASSERT_EQ(o, out[6][i]);
      ASSERT_EQ(e2, out[5][i]);
      ASSERT_EQ(stage<Model>(false, 4, in[4][i], in[3][i], e2), out[4][i]);
    }
  }
}
TEST(WaveletD97, StepsHaveTheArithmeticOfTheirType) {
  holdSteps97<Model97_32f>(qeliWTFwdColLift_D97_JPEG2K_32f_C1, qeliWTInvColLift_D97_JPEG2K_32f_C1, 100000);
  holdSteps97<Model97_32s>(qeliWTFwdColLift_D97_JPEG2K_32s_C1, qeliWTInvColLift_D97_JPEG2K_32s_C1, INT32_MAX);
  holdSteps97<Model97_16s<true>>(qeliWTFwdColLift_D97_JPEG2K_16s_C1, qeliWTInvColLift_D97_JPEG2K_16s_C1,
                                 32767);
}

// --- the direct filter of one sample a band, and the distance from the exact transform ---------------------

// Lifting in double precision with mirrored ends, as a check of the constants and of what the types lose.
std::vector<double> exact(std::vector<double> x, int q) {
  const int n = int(x.size());
  constexpr double c[4] = {-1.586134342059924, -0.052980118572961, 0.882911075530934, 0.443506852043971};
  const auto at = [&](int i) { return x[size_t(i < 0 ? -i : i >= n ? 2 * (n - 1) - i : i)]; };
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < n; ++i)
      if (((i + q) & 1) != (t & 1)) x[size_t(i)] += c[t] * (at(i - 1) + at(i + 1));
  for (int i = 0; i < n; ++i) x[size_t(i)] *= (i + q) & 1 ? 1.230174104914001 : 1 / 1.230174104914001;
  return x;
}

template <class T, class Forward, class Inverse>
void holdAgainstExact(Forward* forward, Inverse* inverse, bool down, int w, double bound, double bound2) {
  Random random;
  constexpr int kBorder = 8;
  const int n = 2 * w;
  const QelSize size = down ? QelSize{1, w} : QelSize{w, 1};
  constexpr int32_t kStep = sizeof(T);
  for (int repeat = 0; repeat < 40; ++repeat)
    for (const int q : {0, 1}) {
      std::vector<double> x(size_t(n), 0);
      for (auto& v : x) v = double(random.in(-3900, 3900));
      const auto mirror = [&](int i) {
        const int period = std::max(2 * (n - 1), 1), k = ((i % period) + period) % period;
        return size_t(k < n ? k : period - k);
      };
      const auto transformed = exact(x, q);
      std::vector<T> line, low(size_t(w), 0), high(low), lows, highs, back(x.size());
      for (int i = -kBorder; i < n + kBorder; ++i) line.push_back(T(x[mirror(i)]));
      ASSERT_EQ(qelStatusOk, forward(line.data() + kBorder, kStep, low.data(), kStep, high.data(), kStep,
                                     size, uint32_t(q)));
      for (int i = 0; i < n; ++i)
        ASSERT_NEAR(transformed[size_t(i)], double(((i + q) & 1 ? high : low)[size_t(i / 2)]), bound)
            << w << " " << i;
      for (int m = -kBorder; m < n + kBorder; ++m)
        ((m ^ q) & 1 ? highs : lows).push_back(((m ^ q) & 1 ? high : low)[mirror(m) / 2]);
      ASSERT_EQ(qelStatusOk, inverse(lows.data() + kBorder / 2, kStep, highs.data() + kBorder / 2, kStep,
                                     size, back.data(), kStep, uint32_t(q)));
      for (size_t i = 0; i < back.size(); ++i) ASSERT_NEAR(x[i], double(back[i]), bound2) << w << " " << i;
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

TEST(Wavelet, ChecksInOrder) {
  int32_t x[64] = {};
  int32_t* const p = x + 8;
  const auto f = qeliWTFwdRow_B53_JPEG2K_32s_C1R;
  EXPECT_EQ(qelStatusNullPointer, f(p, 0, nullptr, 0, p, 0, {0, 0}, 0));
  EXPECT_EQ(qelStatusBadStep, f(p, 4, p, 4, p, 0, {0, 0}, 0));
  EXPECT_EQ(qelStatusBadSize, f(p, 4, p, 4, p, 4, {1, 0}, 0));
  const auto g = qeliWTInvRow_D97_JPEG2K_32s_C1R;
  EXPECT_EQ(qelStatusNullPointer, g(p, 0, p, 0, {0, 0}, nullptr, 0, 0));
  EXPECT_EQ(qelStatusBadStep, g(p, 4, p, -1, {0, 0}, p, 4, 0));
  EXPECT_EQ(qelStatusBadSize, g(p, 4, p, 4, {0, 1}, p, 4, 0));
  EXPECT_EQ(qelStatusNullPointer, qeliWTFwdColLift_B53_JPEG2K_32s_C1(p, p, p, p, p, nullptr, 0));
  EXPECT_EQ(qelStatusNullPointer, qeliWTInvColLift_B53_JPEG2K_32s_C1(p, p, p, p, nullptr, p, 0));
  EXPECT_EQ(qelStatusNullPointer, qeliWTFwdColLift_D97_JPEG2K_32s_C1(p, p, p, p, nullptr, p, p, p, 0));
  EXPECT_EQ(qelStatusNullPointer, qeliWTInvColLift_D97_JPEG2K_32s_C1(p, p, p, nullptr, p, p, p, p, 0));
  EXPECT_EQ(qelStatusBadSize, qeliWTInvColLift_D97_JPEG2K_32s_C1(p, p, p, p, p, p, p, p, 0));
}

}  // namespace
}  // namespace qelj::test
