#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

struct Picture {
  int32_t width, height;
  std::vector<uint8_t> pixels;
  uint8_t* at(int32_t x, int32_t y) { return &pixels[size_t(4 * (y * width + x))]; }
};

Picture roundTrip(Picture& picture, std::vector<uint8_t>& blocks) {
  const QelSize size{picture.width, picture.height};
  blocks.assign(size_t((size.width + 3) / 4 * ((size.height + 3) / 4)) * 16, 0);
  EXPECT_EQ(qelStatusOk, qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(picture.pixels.data(), 4 * size.width,
                                                                        size, blocks.data()));
  Picture back = picture;
  EXPECT_EQ(qelStatusOk, qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blocks.data(), back.pixels.data(),
                                                                   4 * size.width, size));
  return back;
}

// The error over many pictures.
class Quality {
 public:
  void add(const Picture& a, const Picture& b) {
    for (size_t i = 0; i < a.pixels.size(); ++i) sum_ += std::pow(double(a.pixels[i]) - b.pixels[i], 2);
    count_ += double(a.pixels.size());
  }
  double psnr() const { return 10 * std::log10(65025 * count_ / sum_); }

 private:
  double sum_ = 0, count_ = 0;
};

TEST(Bc7Encode, FlatBlocks) {
  Random random;
  std::vector<uint8_t> blocks;
  for (int round = 0; round < 4000; ++round) {
    const bool opaque = random.chance(60);
    uint8_t colour[4];
    for (auto& c : colour) c = uint8_t(random.chance(30) ? (random.chance(50) ? 0 : 255) : random.in(0, 255));
    if (opaque) colour[3] = 255;
    Picture flat{4, 4, std::vector<uint8_t>(64)};
    for (size_t i = 0; i < 64; ++i) flat.pixels[i] = colour[i % 4];
    const Picture back = roundTrip(flat, blocks);
    for (size_t i = 0; i < 64; ++i) {
      const bool exact = colour[3] == 255 && colour[i % 4] != 0;
      ASSERT_LE(std::abs(flat.pixels[i] - back.pixels[i]), exact ? 0 : 1) << int(colour[i % 4]);
    }
  }
}

// Two colours in halves, and gradients. The floors lie a little below what is reached: a change of the search may give
// other bytes, not a worse picture.
TEST(Bc7Encode, FindsTheModeThatFits) {
  Random random;
  std::vector<uint8_t> blocks;
  std::set<int> modes;
  Quality quality[2];  // opaque, with alpha
  for (int round = 0; round < 3000; ++round) {
    Picture p{4, 4, std::vector<uint8_t>(64)};
    const bool alpha = round % 2, split = round % 4 < 2;
    uint8_t a[2][4], b[2][4];
    for (int s = 0; s < 2; ++s)
      for (int c = 0; c < 4; ++c) a[s][c] = uint8_t(random.in(0, 255)), b[s][c] = uint8_t(random.in(0, 255));
    const bool columns = random.chance(50), smooth = random.chance(50);
    for (int i = 0; i < 16; ++i) {
      // Half a block is eight steps of a gradient, or two colours.
      const int s = split && (columns ? i % 4 : i / 4) >= 2;
      const int place = columns ? i / 4 * 2 + i % 2 : i / 4 % 2 * 4 + i % 4,
                t = smooth ? place : place / 4 * 7;
      for (int c = 0; c < 4; ++c)
        p.pixels[size_t(4 * i + c)] = uint8_t((a[s][c] * (7 - t) + b[s][c] * t) / 7);
      if (!alpha) p.pixels[size_t(4 * i + 3)] = 255;
    }
    const Picture back = roundTrip(p, blocks);
    modes.insert(__builtin_ctz(blocks[0]));
    for (size_t i = 3; i < 64 && !alpha; i += 4) ASSERT_EQ(255, back.pixels[i]);
    quality[alpha].add(p, back);
  }
  EXPECT_GT(quality[0].psnr(), 52.0);
  EXPECT_GT(quality[1].psnr(), 36.1);
  for (const int mode : {1, 3, 6, 7}) EXPECT_TRUE(modes.contains(mode)) << mode;
}

// Alpha that has nothing to do with the colours is what modes 4 and 5 are for.
TEST(Bc7Encode, AlphaOfItsOwn) {
  Random random;
  std::vector<uint8_t> blocks;
  std::set<int> modes;
  Quality quality;
  for (int round = 0; round < 500; ++round) {
    Picture p{4, 4, std::vector<uint8_t>(64)};
    for (int i = 0; i < 16; ++i) {
      for (int c = 0; c < 3; ++c) p.pixels[size_t(4 * i + c)] = uint8_t(40 * (c + 1) + 5 * (i % 4));
      p.pixels[size_t(4 * i + 3)] = uint8_t(random.chance(50) ? 20 : 230);
    }
    const Picture back = roundTrip(p, blocks);
    modes.insert(__builtin_ctz(blocks[0]));
    quality.add(p, back);
  }
  EXPECT_GT(quality.psnr(), 54.0);
  EXPECT_TRUE(modes.contains(4) || modes.contains(5));
}

}  // namespace
}  // namespace qelj::test
