// The resamplers, held against their formulas.
#include <gtest/gtest.h>

#include <functional>

#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

using PlaneFunction = decltype(&qeliSampleDownH2V1_JPEG_8u_C1R);
using Sample = std::function<int(int x, int y)>;  // of the source; y counts from the function's first row

int tri1(const Sample& s, int x, int y) {
  const int k = x / 2;
  return x % 2 ? (3 * s(k, y) + s(k + 1, y) + 2) >> 2 : (s(k - 1, y) + 3 * s(k, y) + 1) >> 2;
}
int tri2(const Sample& s, int x, int near, int far) {
  const auto a = [&](int k) { return 3 * s(k, near) + s(k, far); };
  const int k = x / 2;
  return x % 2 ? (3 * a(k) + a(k + 1) + 7) >> 4 : (a(k - 1) + 3 * a(k) + 8) >> 4;
}
struct PlaneCase {
  PlaneFunction f;
  int (*model)(const Sample&, int, int);
};
const PlaneCase kPlanes[] = {
    {qeliSampleDownH2V1_JPEG_8u_C1R,
     [](const Sample& s, int x, int y) { return (s(2 * x, y) + s(2 * x + 1, y) + 1) >> 1; }},
    {qeliSampleDownH2V2_JPEG_8u_C1R,
     [](const Sample& s, int x, int y) {
       return (s(2 * x, 2 * y) + s(2 * x + 1, 2 * y) + s(2 * x, 2 * y + 1) + s(2 * x + 1, 2 * y + 1) + 3) >>
              2;
     }},
    {qeliSampleUpH2V1_JPEG_8u_C1R, tri1},
    {qeliSampleUpH2V2_JPEG_8u_C1R,
     [](const Sample& s, int x, int y) { return tri2(s, x, y / 2, y % 2 ? y / 2 + 1 : y / 2 - 1); }},
};

TEST(Resample, PlanesWriteTheDestinationWhateverTheSourceSize) {
  Random random;
  for (const PlaneCase& c : kPlanes)
    for (int width = 1; width <= 140; ++width) {
      const int height = 1 + width % 5;
      Guarded src(random, 300, 13, 0, 7), dst(random, size_t(width), size_t(height), 0, size_t(width) % 33);
      uint8_t* first = src.data(1) + 1;  // a border all around
      ASSERT_EQ(qelStatusOk, c.f(first, src.step(), {1, 1}, dst.data(), dst.step(), {width, height}));
      ASSERT_TRUE(dst.intact());
      const Sample sample = [&](int x, int y) { return first[y * src.step() + x]; };
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
          ASSERT_EQ(c.model(sample, x, y), dst.data(size_t(y))[x]) << width << " " << x;
    }
}

TEST(Resample, PlaneChecksInOrder) {
  uint8_t s[64] = {}, d[64] = {7};
  const QelSize good{1, 1}, bad{1, 0};
  for (const PlaneCase& c : kPlanes) {
    EXPECT_EQ(qelStatusNullPointer, c.f(nullptr, 0, bad, nullptr, 0, bad));
    EXPECT_EQ(qelStatusBadStep, c.f(s, 0, bad, nullptr, 0, bad));
    EXPECT_EQ(qelStatusBadSize, c.f(s, 1, bad, nullptr, 0, bad));
    EXPECT_EQ(qelStatusNullPointer, c.f(s, 1, good, nullptr, 0, bad));
    EXPECT_EQ(qelStatusBadStep, c.f(s, 1, good, d, -1, bad));
    EXPECT_EQ(qelStatusBadSize, c.f(s, 1, good, d, 1, bad));
    EXPECT_EQ(7, d[0]);
  }
}

// Every width at every alignment of the destination, on pages that end with the row.
TEST(Resample, RowsDown) {
  Random random;
  for (int width = 1; width <= 140; ++width)
    for (size_t offset = 0; offset < 16; ++offset) {
      const int cutBy = int(-offset & 15);
      const bool shortEven = width % 2 == 0 && width <= 14;
      int count = width / 2;
      if (cutBy > 0 && !shortEven && width <= 2 * cutBy) count = std::max(width - cutBy, 0) / 2;
      const int start = width == 4 || width == 8 || width == 12;
      PageBuffer a(size_t(width) & ~size_t(1)), b(size_t(width) & ~size_t(1));
      random.fill(a.data(), a.size()), random.fill(b.data(), b.size());
      Guarded one(random, size_t(count), 1, 0, offset);
      ASSERT_EQ(qelStatusOk, qeliSampleDownRowH2V1_Box_JPEG_8u_C1(a.data(), width, one.data()));
      ASSERT_TRUE(one.intact()) << width << " " << offset;
      for (int k = 0; k < count; ++k)
        ASSERT_EQ((a.data()[2 * k] + a.data()[2 * k + 1] + (start + k) % 2) >> 1, one.data()[k])
            << width << " " << k;

      const int count2 = width < 32 ? (width + 1) / 2 : width / 2;
      PageBuffer c(size_t(count2) * 2), d(size_t(count2) * 2);
      random.fill(c.data(), c.size()), random.fill(d.data(), d.size());
      Guarded two(random, size_t(count2), 1, 0, offset);
      ASSERT_EQ(qelStatusOk, qeliSampleDownRowH2V2_Box_JPEG_8u_C1(c.data(), d.data(), width, two.data()));
      ASSERT_TRUE(two.intact());
      for (int k = 0; k < count2; ++k)
        ASSERT_EQ(
            (c.data()[2 * k] + c.data()[2 * k + 1] + d.data()[2 * k] + d.data()[2 * k + 1] + 1 + k % 2) >> 2,
            two.data()[k]);
    }
}

TEST(Resample, RowsUpReadNothingOutside) {
  Random random;
  for (int width = 1; width <= 140; ++width)
    for (const bool atStart : {false, true}) {
      PageBuffer near(size_t(width), atStart), far(size_t(width), atStart);
      random.fill(near.data(), near.size()), random.fill(far.data(), far.size());
      Guarded one(random, 2 * size_t(width), 1, 0, size_t(width) % 17),
          two(random, 2 * size_t(width), 1, 0, size_t(width) % 7);
      ASSERT_EQ(qelStatusOk, qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(near.data(), width, one.data()));
      ASSERT_EQ(qelStatusOk,
                qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(near.data(), far.data(), width, two.data()));
      ASSERT_TRUE(one.intact() && two.intact());
      const Sample clamped = [&](int x, int y) {
        return (y ? far : near).data()[std::clamp(x, 0, width - 1)];
      };
      for (int x = 0; x < 2 * width; ++x) {
        ASSERT_EQ(tri1(clamped, x, 0), one.data()[x]) << width << " " << x;
        ASSERT_EQ(tri2(clamped, x, 0, 1), two.data()[x]) << width << " " << x;
      }
      EXPECT_EQ(near.data()[0], one.data()[0]);
      EXPECT_EQ((4 * (3 * near.data()[width - 1] + far.data()[width - 1]) + 7) >> 4,
                two.data()[2 * width - 1]);
    }
  uint8_t byte = 3;
  EXPECT_EQ(qelStatusNullPointer, qeliSampleDownRowH2V1_Box_JPEG_8u_C1(&byte, 0, nullptr));
  EXPECT_EQ(qelStatusBadSize, qeliSampleDownRowH2V1_Box_JPEG_8u_C1(&byte, 0, &byte));
  EXPECT_EQ(qelStatusNullPointer, qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(nullptr, 0, &byte));
  EXPECT_EQ(qelStatusBadSize, qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(&byte, -4, &byte));
  for (auto* f : {qeliSampleDownRowH2V2_Box_JPEG_8u_C1, qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1}) {
    EXPECT_EQ(qelStatusNullPointer, f(&byte, nullptr, 0, &byte));
    EXPECT_EQ(qelStatusBadSize, f(&byte, &byte, 0, &byte));
  }
}

}  // namespace
}  // namespace qelj::test
