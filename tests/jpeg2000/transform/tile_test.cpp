#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

#include "jpeg2000/transform/model.h"
#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

template <class T>
using Line = std::vector<T>;

// One line of a tile, at coordinate `first`: extended symmetrically, lifted, taken apart; and the way back.
template <class Model, class T>
Line<T> liftLine(bool forward, const Line<T>& in, int first) {
  const int n = int(in.size()), odd = first & 1, period = 2 * (n - 1), lows = (n + 1 - odd) / 2;
  if (n == 1) return {T(forward ? int64_t(in[0]) * (odd + 1) : in[0] / (odd + 1))};
  // The place in the bands of the sample at position m of the line.
  const auto band = [&](int m) { return size_t((m + odd) % 2 ? lows + m / 2 : m / 2); };
  if (std::is_same_v<Model, Model53<T>> && n == 2) {
    if (forward) {
      const int64_t e = in[size_t(odd)], d = wrap(in[size_t(1 - odd)] - e);
      return {T(e + (wrap(d + 1) >> 1)), T(d)};
    }
    const int64_t e = wrap(in[0] - int64_t(wrap(in[1] + int64_t(1)) >> 1)), o = in[1] + e;
    return odd ? Line<T>{T(o), T(e)} : Line<T>{T(e), T(o)};
  }
  constexpr int kBorder = 5;
  Line<T> line, out(in.size());
  for (int m = -kBorder; m < n + kBorder; ++m) {
    const int k = ((m % period) + period) % period, reflected = k < n ? k : period - k;
    line.push_back(in[forward ? size_t(reflected) : band(reflected)]);
  }
  line = lifted<Model>(forward, line, -kBorder, n, odd);
  for (int m = 0; m < n; ++m) out[forward ? band(m) : size_t(m)] = line[size_t(m + kBorder)];
  return out;
}

template <class T>
struct Image {
  size_t width, height;
  std::vector<T> samples;
  void rows(const std::function<Line<T>(const Line<T>&)>& f) {
    for (size_t y = 0; y < height; ++y) {
      const auto out = f({samples.begin() + long(y * width), samples.begin() + long((y + 1) * width)});
      std::copy(out.begin(), out.end(), samples.begin() + long(y * width));
    }
  }
  void columns(const std::function<Line<T>(const Line<T>&)>& f) {
    for (size_t x = 0; x < width; ++x) {
      Line<T> in(height);
      for (size_t y = 0; y < height; ++y) in[y] = samples[y * width + x];
      const auto out = f(in);
      for (size_t y = 0; y < height; ++y) samples[y * width + x] = out[y];
    }
  }
};

// --- the library beside it ---------------------------------------------------------------------------------

template <class T>
struct Functions {
  QelStatus (*forward)(T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*inverse)(T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*toBands)(const T*, int32_t, const QelRect*, T* const*, const int32_t*, uint8_t*);
  QelStatus (*fromBands)(const T* const*, const int32_t*, T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*size)(const QelRect*, int32_t*);
  QelStatus (*sizeWithBands)(const QelRect*, int32_t*);
};
#define TILE_CASE(name, Model_, wavelet, type)                                                         \
  struct name {                                                                                        \
    using Model = Model_;                                                                              \
    using Sample = Model_::Sample;                                                                     \
    static constexpr Functions<Sample> functions = {qeliWTFwd_##wavelet##_JPEG2K_##type##_C1IR,        \
                                                    qeliWTInv_##wavelet##_JPEG2K_##type##_C1IR,        \
                                                    qeliWTFwd_##wavelet##_JPEG2K_##type##_C1R,         \
                                                    qeliWTInv_##wavelet##_JPEG2K_##type##_C1R,         \
                                                    qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1IR, \
                                                    qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1R}; \
  }
TILE_CASE(B53_16s, Model53<int16_t>, B53, 16s);
TILE_CASE(B53_32s, Model53<int32_t>, B53, 32s);
TILE_CASE(D97_16s, Tile97_16s, D97, 16s);
TILE_CASE(D97_32s, Tile97_32s, D97, 32s);

template <class C>
class Tile : public ::testing::Test {};
using Cases = ::testing::Types<B53_16s, B53_32s, D97_16s, D97_32s>;
TYPED_TEST_SUITE(Tile, Cases);

// Every size and parity against the lines written out, over the whole range of the type; the work buffer ends
// at an inaccessible page behind the reported size.
TYPED_TEST(Tile, IsTheTransformOfItsLines) {
  using T = typename TypeParam::Sample;
  using Model = typename TypeParam::Model;
  const auto f = TypeParam::functions;
  Random random;
  std::vector<std::pair<int, int>> sizes = {{600, 5}, {5, 600}, {67, 131}, {128, 64}};
  for (int w = 1; w <= 12; ++w)
    for (int h = 1; h <= 12; ++h) sizes.emplace_back(w, h);
  for (const auto& [width, height] : sizes)
    for (int parity = 0; parity < 4; ++parity) {
      const QelRect tile{-3 + (parity & 1), 6 + parity / 2, width, height};
      const size_t w = size_t(width), h = size_t(height);
      const int64_t range = random.chance(50) ? 5000 : std::numeric_limits<T>::max();
      Image<T> image{w, h, random.vector<T>(w * h, -range, range)};
      const auto original = image;
      int32_t bytes = -1;
      ASSERT_EQ(qelStatusOk, f.size(&tile, &bytes));
      PageBuffer work{size_t(bytes)};

      for (const bool forward : {true, false}) {
        SCOPED_TRACE(testing::Message()
                     << width << "x" << height << " parity " << parity << " forward " << forward);
        const auto across = [&](const Line<T>& l) { return liftLine<Model>(forward, l, tile.x); };
        const auto down = [&](const Line<T>& l) { return liftLine<Model>(forward, l, tile.y); };
        auto expected = original;
        if (forward) expected.columns(down), expected.rows(across);
        if (!forward) expected.rows(across), expected.columns(down);

        Guarded data(random, w * sizeof(T), h, w * sizeof(T) + 6, 1);
        for (size_t y = 0; y < h; ++y) std::memcpy(data.data(y), &original.samples[y * w], w * sizeof(T));
        ASSERT_EQ(qelStatusOk, (forward ? f.forward : f.inverse)(data.template data<T>(), data.step(), &tile,
                                                                 work.data()));
        for (size_t y = 0; y < h; ++y)
          ASSERT_EQ(0, std::memcmp(data.data(y), &expected.samples[y * w], w * sizeof(T))) << "row " << y;
        EXPECT_TRUE(data.intact());

        // The planes are the work image cut in the middle, whatever the parity.
        int32_t bandBytes = 0;
        ASSERT_EQ(qelStatusOk, f.sizeWithBands(&tile, &bandBytes));
        PageBuffer bandWork{size_t(bandBytes)};
        const size_t left = w - w / 2, top = h - h / 2;
        std::vector<Guarded> bands;
        T* planes[4];
        int32_t steps[4];
        for (size_t i = 0; i < 4; ++i) {
          const size_t bw = i / 2 ? w - left : left, bh = i % 2 ? h - top : top;
          bands.emplace_back(random, bw * sizeof(T), bh, bw * sizeof(T) + 3 + i);
          for (size_t y = 0; y < bh && bw; ++y)
            std::memcpy(bands[i].data(y), &original.samples[(i % 2 * top + y) * w + i / 2 * left],
                        bw * sizeof(T));
        }
        for (size_t i = 0; i < 4; ++i) planes[i] = bands[i].template data<T>(), steps[i] = bands[i].step();
        if (forward) {
          ASSERT_EQ(qelStatusOk, f.toBands(original.samples.data(), int32_t(w * sizeof(T)), &tile, planes,
                                           steps, bandWork.data()));
          for (size_t i = 0; i < 4; ++i)
            for (size_t y = 0; y < bands[i].rows() && bands[i].rowBytes(); ++y)
              ASSERT_EQ(0,
                        std::memcmp(bands[i].data(y), &expected.samples[(i % 2 * top + y) * w + i / 2 * left],
                                    bands[i].rowBytes()))
                  << "band " << i << " row " << y;
        } else {
          ASSERT_EQ(qelStatusOk,
                    f.fromBands(planes, steps, data.template data<T>(), data.step(), &tile, bandWork.data()));
          for (size_t y = 0; y < h; ++y)
            ASSERT_EQ(0, std::memcmp(data.data(y), &expected.samples[y * w], w * sizeof(T))) << "row " << y;
          EXPECT_TRUE(data.intact());
        }
      }
    }
}

TYPED_TEST(Tile, ChecksInOrder) {
  using T = typename TypeParam::Sample;
  const auto f = TypeParam::functions;
  T image[4] = {1, 2, 3, 4}, band[4][4] = {};
  T* planes[4] = {band[0], band[1], band[2], band[3]};
  int32_t steps[4] = {8, 8, 8, 8}, size = 77;
  const QelRect tile{0, 0, 2, 2}, flat{0, 0, 2, 0}, negative{0, 0, -5, 3};
  uint8_t buffer[256];
  EXPECT_EQ(qelStatusNullPointer, f.forward(nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(qelStatusBadStep, f.forward(image, 0, nullptr, nullptr));
  EXPECT_EQ(qelStatusNullPointer, f.forward(image, 8, nullptr, buffer));
  EXPECT_EQ(qelStatusNullPointer, f.inverse(image, 8, &tile, nullptr));
  for (const QelRect* none : {&flat, &negative}) {
    EXPECT_EQ(qelStatusOk, f.forward(image, 8, none, buffer));
    EXPECT_EQ(qelStatusOk, f.inverse(image, 8, none, buffer));
  }
  EXPECT_EQ(qelStatusNullPointer, f.toBands(image, 0, &tile, nullptr, steps, buffer));
  EXPECT_EQ(qelStatusNullPointer, f.fromBands(planes, steps, image, 0, &tile, nullptr));
  T* broken[4] = {band[0], band[1], band[2], nullptr};
  int32_t flatSteps[4] = {8, 8, 8, 0};
  EXPECT_EQ(qelStatusBadStep, f.toBands(image, 0, &flat, broken, flatSteps, buffer));
  EXPECT_EQ(qelStatusNullPointer, f.toBands(image, 8, &flat, broken, flatSteps, buffer));
  EXPECT_EQ(qelStatusBadStep, f.fromBands(planes, flatSteps, image, 8, &flat, buffer));
  EXPECT_EQ(qelStatusBadSize, f.fromBands(planes, steps, image, 8, &flat, buffer));
  EXPECT_EQ(qelStatusNullPointer, f.size(nullptr, &size));
  EXPECT_EQ(qelStatusNullPointer, f.sizeWithBands(&tile, nullptr));
  EXPECT_EQ(77, size);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(i + 1, image[i]);
}

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

}  // namespace
}  // namespace qelj::test
