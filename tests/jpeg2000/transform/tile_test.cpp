#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

template <class T>
using Line = std::vector<T>;

// --- one line, written out: extend, lift, take apart
// --------------------------------------------------------------

// A line by coordinate, extended symmetrically: periodic with 2(n - 1), and even about both ends.
template <class T>
struct Extended {
  Line<T> samples;
  int first;
  T& operator[](int coordinate) {
    const int n = int(samples.size()), period = 2 * (n - 1);
    int k = ((coordinate - first) % period + period) % period;
    return samples[size_t(k < n ? k : period - k)];
  }
};

// The value of one lifting step at each coordinate of one parity, over the whole line.
template <class T, class Step>
void lift(Extended<T>& line, int parity, Step step) {
  const auto before = line;
  auto source = before;
  for (int c = line.first; c < line.first + int(line.samples.size()); ++c)
    if ((c & 1) == parity) line[c] = step(source[c], source[c - 1], source[c + 1]);
}

int32_t wrap(int64_t x) { return int32_t(uint32_t(x)); }
template <class T>
struct B53 {
  static void forward(Extended<T>& l) {
    lift(l, 1, [](T x, T a, T b) { return T(wrap(int64_t(x) - (wrap(int64_t(a) + b) >> 1))); });
    lift(l, 0, [](T x, T a, T b) { return T(wrap(int64_t(x) + (wrap(int64_t(a) + b + 2) >> 2))); });
  }
  static void inverse(Extended<T>& l) {
    lift(l, 0, [](T x, T a, T b) { return T(wrap(int64_t(x) - (wrap(int64_t(a) + b + 2) >> 2))); });
    lift(l, 1, [](T x, T a, T b) { return T(wrap(int64_t(x) + (wrap(int64_t(a) + b) >> 1))); });
  }
};

template <class T>
struct D97;
template <>
struct D97<int16_t> {
  static int32_t r14(int64_t v) { return int32_t((v + 8192) >> 14); }
  template <int c>
  static int16_t step(int16_t x, int16_t a, int16_t b) {
    return int16_t(x + r14(c * (int64_t(a) + b)));
  }
  static void forward(Extended<int16_t>& l) {
    lift(l, 1, step<-25987>);
    lift(l, 0, step<-868>);
    lift(l, 1, step<14466>);
    lift(l, 0, step<7266>);
    lift(l, 0, [](int16_t x, int16_t, int16_t) { return int16_t(r14(13318 * x)); });
    lift(l, 1, [](int16_t x, int16_t, int16_t) { return int16_t(r14(20155 * x)); });
  }
  static void inverse(Extended<int16_t>& l) {
    lift(l, 1, [](int16_t x, int16_t, int16_t) { return int16_t(r14(13318 * x)); });
    lift(l, 0, [](int16_t x, int16_t a, int16_t b) {
      return int16_t(r14(20155 * x) - r14(7266 * (int64_t(a) + b)));
    });
    const auto minus = [](int c) {
      return [c](int16_t x, int16_t a, int16_t b) { return int16_t(x - r14(c * (int64_t(a) + b))); };
    };
    lift(l, 1, minus(14466));
    lift(l, 0, minus(-868));
    lift(l, 1, minus(-25987));
  }
};
template <>
struct D97<int32_t> {
  static constexpr float alpha = -1.5861343f, beta = -0.052980117f, gamma = 0.8829111f, delta = 0.44350687f,
                         k = 1.2301741f, ik = 0.8128931f;
  static int32_t cut(float x) {
    return x >= 2147483648.0f ? INT32_MAX : x < -2147483648.0f ? INT32_MIN : int32_t(x);
  }
  // Products and sums are stored, so that each is rounded by itself.
  static float step(float x, float c, float sum) {
    volatile const float product = c * sum;
    return x + product;
  }
  static void forward(Extended<int32_t>& l) {
    Extended<float> f{Line<float>(l.samples.begin(), l.samples.end()), l.first};
    for (int c = l.first; c < l.first + int(l.samples.size()); ++c)
      if (c & 1) f[c] = step(float(l[c]), alpha, float(wrap(int64_t(l[c - 1]) + l[c + 1])));
    lift(f, 0, [](float x, float a, float b) { return step(x, beta, a + b); });
    lift(f, 1, [](float x, float a, float b) { return step(x, gamma, a + b); });
    lift(f, 0, [](float x, float a, float b) { return step(x, delta, a + b) * ik; });
    lift(f, 1, [](float x, float, float) { return x * k; });
    std::transform(f.samples.begin(), f.samples.end(), l.samples.begin(), cut);
  }
  static void inverse(Extended<int32_t>& l) {
    Extended<float> f{Line<float>(l.samples.begin(), l.samples.end()), l.first};
    lift(f, 0, [](float x, float, float) { return k * x; });
    lift(f, 1, [](float x, float, float) { return ik * x; });
    lift(f, 0, [](float x, float a, float b) { return step(x, -delta, a + b); });
    lift(f, 1, [](float x, float a, float b) { return step(x, -gamma, a + b); });
    lift(f, 0, [](float x, float a, float b) { return step(x, -beta, a + b); });
    lift(f, 1, [](float x, float a, float b) { return step(x, -alpha, a + b); });
    std::transform(f.samples.begin(), f.samples.end(), l.samples.begin(), cut);
  }
};

template <class Wavelet, class T>
Line<T> forwardLine(const Line<T>& in, int first) {
  Extended<T> line{in, first & 1};
  const int odd = first & 1;
  if (in.size() == 1) return {T(in[0] * (odd + 1))};
  if (std::is_same_v<Wavelet, B53<T>> && in.size() == 2) {
    const int64_t e = in[size_t(odd)], d = wrap(in[size_t(1 - odd)] - e);
    return {T(wrap(e + (wrap(d + 1) >> 1))), T(d)};
  }
  Wavelet::forward(line);
  Line<T> out;
  for (const int parity : {0, 1})
    for (int c = odd; c < odd + int(in.size()); ++c)
      if ((c & 1) == parity) out.push_back(line[c]);
  return out;
}
template <class Wavelet, class T>
Line<T> inverseLine(const Line<T>& in, int first) {
  const int odd = first & 1;
  if (in.size() == 1) return {T(in[0] / (odd + 1))};
  Extended<T> line{in, odd};
  size_t next = 0;
  for (const int parity : {0, 1})
    for (int c = odd; c < odd + int(in.size()); ++c)
      if ((c & 1) == parity) line[c] = in[next++];
  if (std::is_same_v<Wavelet, B53<T>> && in.size() == 2) {
    const int64_t e = wrap(in[0] - int64_t(wrap(in[1] + int64_t(1)) >> 1));
    line.samples[size_t(odd)] = T(e);
    line.samples[size_t(1 - odd)] = T(wrap(in[1] + e));
  } else {
    Wavelet::inverse(line);
  }
  return line.samples;
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

// --- the library beside it
// -------------------------------------------------------------------------------------------

template <class T>
struct Functions {
  QelStatus (*forward)(T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*inverse)(T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*toBands)(const T*, int32_t, const QelRect*, T* const*, const int32_t*, uint8_t*);
  QelStatus (*fromBands)(const T* const*, const int32_t*, T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*size)(const QelRect*, int32_t*);
  QelStatus (*sizeWithBands)(const QelRect*, int32_t*);
};
#define TILE_FUNCTIONS(wavelet, type)                                                                       \
  {                                                                                                         \
    qeliWTFwd_##wavelet##_JPEG2K_##type##_C1IR, qeliWTInv_##wavelet##_JPEG2K_##type##_C1IR,                 \
        qeliWTFwd_##wavelet##_JPEG2K_##type##_C1R, qeliWTInv_##wavelet##_JPEG2K_##type##_C1R,               \
        qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1IR, qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1R \
  }
template <class Wavelet>
Functions<int16_t> functions16s();
template <>
Functions<int16_t> functions16s<B53<int16_t>>() {
  return TILE_FUNCTIONS(B53, 16s);
}
template <>
Functions<int16_t> functions16s<D97<int16_t>>() {
  return TILE_FUNCTIONS(D97, 16s);
}
template <class Wavelet>
Functions<int32_t> functions32s();
template <>
Functions<int32_t> functions32s<B53<int32_t>>() {
  return TILE_FUNCTIONS(B53, 32s);
}
template <>
Functions<int32_t> functions32s<D97<int32_t>>() {
  return TILE_FUNCTIONS(D97, 32s);
}

template <class W, class T>
struct Case {
  using Wavelet = W;
  using Sample = T;
  static Functions<T> functions() {
    if constexpr (sizeof(T) == 2)
      return functions16s<W>();
    else
      return functions32s<W>();
  }
};

template <class C>
class Tile : public ::testing::Test {};
using Cases = ::testing::Types<Case<B53<int16_t>, int16_t>, Case<B53<int32_t>, int32_t>,
                               Case<D97<int16_t>, int16_t>, Case<D97<int32_t>, int32_t>>;
TYPED_TEST_SUITE(Tile, Cases);

// Every size and parity against the lines written out, over the whole range of the type; the work buffer ends
// at an inaccessible page behind the reported size.
TYPED_TEST(Tile, IsTheTransformOfItsLines) {
  using T = typename TypeParam::Sample;
  using W = typename TypeParam::Wavelet;
  const auto f = TypeParam::functions();
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
        const auto across = [&](const Line<T>& l) {
          return forward ? forwardLine<W>(l, tile.x) : inverseLine<W>(l, tile.x);
        };
        const auto down = [&](const Line<T>& l) {
          return forward ? forwardLine<W>(l, tile.y) : inverseLine<W>(l, tile.y);
        };
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
  const auto f = TypeParam::functions();
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

TEST(TileBuffer, Sizes) {
  const auto size = [](auto* function, int32_t w, int32_t h) {
    const QelRect tile{0, 0, w, h};
    int32_t bytes = -1;
    EXPECT_EQ(qelStatusOk, function(&tile, &bytes));
    return bytes;
  };
  EXPECT_EQ(0, size(qeliWTGetBufSize_B53_JPEG2K_16s_C1IR, 2, 2));
  EXPECT_EQ(14, size(qeliWTGetBufSize_B53_JPEG2K_16s_C1IR, 2, 3));
  EXPECT_EQ(28, size(qeliWTGetBufSize_B53_JPEG2K_32s_C1IR, 3, 1));
  EXPECT_EQ(0, size(qeliWTGetBufSize_D97_JPEG2K_16s_C1IR, 1, 1));
  EXPECT_EQ(20, size(qeliWTGetBufSize_D97_JPEG2K_16s_C1IR, 2, 1));
  EXPECT_EQ(40, size(qeliWTGetBufSize_D97_JPEG2K_32s_C1IR, 1, 2));
  EXPECT_EQ(32, size(qeliWTGetBufSize_B53_JPEG2K_16s_C1R, 1, 1));
  EXPECT_EQ(32, size(qeliWTGetBufSize_D97_JPEG2K_32s_C1R, 1, 1));
  EXPECT_EQ(3 * 96 + 17 * 4 + 16, size(qeliWTGetBufSize_B53_JPEG2K_32s_C1R, 17, 3));
  EXPECT_EQ(3 * 64 + 17 * 2 + 16, size(qeliWTGetBufSize_D97_JPEG2K_16s_C1R, 17, 3));
  EXPECT_EQ(8, size(qeliWTGetBufSize_B53_JPEG2K_16s_C1IR, -100, 3) - 6);
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

TEST(Tile97, SaturatesIn32BitsAndWrapsIn16) {
  const QelRect tile{0, 0, 4, 1};
  std::vector<uint8_t> work(64);
  int32_t wide[4] = {INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX};
  for (int i = 0; i < 4; ++i) wide[i] = i % 2 ? 1 << 30 : -(1 << 30);  // the sums -2^31 don't wrap
  qeliWTFwd_D97_JPEG2K_32s_C1IR(wide, 16, &tile, work.data());
  EXPECT_EQ(INT32_MAX, wide[2]);  // 2^30 at the highest frequency: doubled, so just past the range
  int16_t narrow[4] = {-30000, 30000, -30000, 30000};
  qeliWTFwd_D97_JPEG2K_16s_C1IR(narrow, 8, &tile, work.data());
  // d = 30000 + 1.586 * 60000 = 125168 loses its upper bits: -5904.
  EXPECT_LT(std::abs(narrow[2]), 32767);
}

}  // namespace
}  // namespace qelj::test
