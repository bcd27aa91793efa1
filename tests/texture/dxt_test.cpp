#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qelj.h"

namespace qelj::test {
namespace {

using Bytes = std::vector<uint8_t>;
using Decode = decltype(&qeliTextureDecodeBlock_BC4_8u_C1R);
using Encode = decltype(&qeliTextureEncodeBlock_BC4_8u_C1R);

struct Format {
  Decode decode;
  Encode encode;
  size_t block, pixel;
};
const Format kDxt1{qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R,
                   8, 4};
const Format kDxt3{qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R,
                   16, 4};
const Format kDxt5{qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R,
                   16, 4};
const Format kBc4{qeliTextureDecodeBlock_BC4_8u_C1R, qeliTextureEncodeBlock_BC4_8u_C1R, 8, 1};
const Format kYCoCg{nullptr, qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R, 16, 3};

Bytes decode(const Format& f, const Bytes& blocks, int32_t width = 4, int32_t height = 4) {
  Bytes pixels(size_t(width * height) * f.pixel);
  EXPECT_EQ(qelStatusOk,
            f.decode(blocks.data(), pixels.data(), int32_t(size_t(width) * f.pixel), {width, height}));
  return pixels;
}
Bytes encode(const Format& f, const Bytes& pixels, int32_t width = 4, int32_t height = 4) {
  Bytes blocks(size_t((width + 3) / 4 * ((height + 3) / 4)) * f.block);
  EXPECT_EQ(qelStatusOk,
            f.encode(pixels.data(), int32_t(size_t(width) * f.pixel), {width, height}, blocks.data()));
  return blocks;
}
Bytes join(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
// Indices 0, 1, 2 ... (repeated) of the given width for 16 pixels.
Bytes countingIndices(int bits) {
  uint64_t all = 0;
  for (int i = 0; i < 16; ++i) all |= uint64_t(i % (1 << bits)) << bits * i;
  Bytes bytes(size_t(2 * bits));
  std::memcpy(bytes.data(), &all, bytes.size());
  return bytes;
}

TEST(DxtDecode, RampsRoundToNearest) {
  const auto ramp = [](uint8_t a0, uint8_t a1) {
    Bytes r = decode(kBc4, join({a0, a1}, countingIndices(3)));
    r.resize(8);
    return r;
  };
  EXPECT_EQ((Bytes{200, 50, 179, 157, 136, 114, 93, 71}), ramp(200, 50));
  EXPECT_EQ((Bytes{50, 200, 80, 110, 140, 170, 0, 255}), ramp(50, 200));
  EXPECT_EQ((Bytes{100, 100, 100, 100, 100, 100, 0, 255}), ramp(100, 100));
  EXPECT_EQ((Bytes{255, 0, 219, 182, 146, 109, 73, 36}), ramp(255, 0));
}

TEST(DxtDecode, ColourPalettes) {
  const auto palette = [](const Format& f, uint16_t c0, uint16_t c1) {
    Bytes block(f.block - 8, 0xFF);
    block = decode(f, join(join(block, {uint8_t(c0), uint8_t(c0 >> 8), uint8_t(c1), uint8_t(c1 >> 8)}),
                           countingIndices(2)));
    block.resize(16);
    return block;
  };
  // 0x1234 is (16, 69, 165): thirds truncate.
  EXPECT_EQ((Bytes{255, 0, 0, 255, 16, 69, 165, 255, 175, 23, 55, 255, 95, 46, 110, 255}),
            palette(kDxt1, 0xF800, 0x1234));
  // Ascending or equal: three colours and opaque white.
  EXPECT_EQ((Bytes{16, 69, 165, 255, 255, 0, 0, 255, 135, 34, 82, 255, 255, 255, 255, 255}),
            palette(kDxt1, 0x1234, 0xF800));
  EXPECT_EQ((Bytes{16, 69, 165, 255, 16, 69, 165, 255, 16, 69, 165, 255, 255, 255, 255, 255}),
            palette(kDxt1, 0x1234, 0x1234));
  // Four colours whatever their order. A four-bit alpha of 15 is 240; a ramp of 255 and 255 gives 255 at
  // index 7.
  EXPECT_EQ((Bytes{16, 69, 165, 240, 255, 0, 0, 240, 95, 46, 110, 240, 175, 23, 55, 240}),
            palette(kDxt3, 0x1234, 0xF800));
  EXPECT_EQ((Bytes{16, 69, 165, 255, 255, 0, 0, 255, 95, 46, 110, 255, 175, 23, 55, 255}),
            palette(kDxt5, 0x1234, 0xF800));
}
Bytes flat(const Format& f, const Bytes& pixel, int count = 16) {
  Bytes all;
  for (int i = 0; i < count; ++i) all = join(all, pixel);
  EXPECT_EQ(size_t(count) * f.pixel, all.size());
  return all;
}

TEST(DxtEncode, FlatBlocks) {
  const Bytes pixel{200, 100, 50, 255};
  const uint8_t colour[] = {0x26, 0xCB, 0x26, 0xCB};  // 25 << 11 | 25 << 5 | 6
  const Bytes zeros(4, 0), ones(4, 0x55),
      alpha{255, 255, 0x49, 0x92, 0x24, 0x49, 0x92, 0x24};  // all indices 1
  const Bytes ends(colour, colour + 4);
  EXPECT_EQ(join(ends, zeros), encode(kDxt1, flat(kDxt1, pixel)));
  EXPECT_EQ(join(join(Bytes(8, 0xFF), ends), zeros), encode(kDxt3, flat(kDxt3, pixel)));
  EXPECT_EQ(join(join(alpha, ends), zeros), encode(kDxt5, flat(kDxt5, pixel)));
  // In a group, a span of 0 is step 0, and that is index 1. A span of 1 in alpha too: its reciprocal has
  // wrapped.
  const Bytes grouped = join(join(alpha, ends), ones);
  Bytes image = flat(kDxt5, pixel, 20 * 5);
  Bytes blocks = encode(kDxt5, image, 20, 5);
  for (size_t b = 0; b < 10; ++b)
    EXPECT_EQ(b < 4 ? grouped : join(join(alpha, ends), zeros), Bytes(&blocks[16 * b], &blocks[16 * b] + 16))
        << b;
  image = flat(kDxt5, pixel, 16 * 4);
  image[3] = 254;
  blocks = encode(kDxt5, image, 16, 4);
  EXPECT_EQ((Bytes{255, 254, 0x49, 0x92, 0x24, 0x49, 0x92, 0x24}), Bytes(&blocks[0], &blocks[8]));
}

TEST(DxtEncode, InsetThresholdsAndGroupSteps) {
  // Values 0, 17, ... 255: inset 15, ends 240 and 15, middle 16; thresholds 31, 223, 191, 159, 127, 95, 63.
  Bytes ramp;
  for (int i = 0; i < 16; ++i) ramp.push_back(uint8_t(17 * i));
  const int expected[] = {1, 1, 7, 7, 6, 6, 5, 5, 4, 4, 3, 3, 2, 2, 0, 0};
  uint64_t indices = 0;
  for (int i = 0; i < 16; ++i) indices |= uint64_t(expected[i]) << 3 * i;
  const uint64_t block = 240 | 15 << 8 | indices << 16;
  const Bytes bytes = encode(kBc4, ramp);
  EXPECT_EQ(0, std::memcmp(&block, bytes.data(), 8));

  // The same ramp as grey and alpha of DXT5, alone and as the first block of a group.
  Bytes alone, image(16 * 4 * 4);
  for (int i = 0; i < 16; ++i) {
    const auto v = ramp[size_t(i)];
    alone = join(alone, {v, v, v, v});
    std::memset(&image[size_t((i / 4 * 16 + i % 4) * 4)], v, 4);
  }
  const Bytes single = encode(kDxt5, alone), group = encode(kDxt5, image, 16, 4);
  EXPECT_EQ(0, std::memcmp(&block, single.data(), 8));
  // Ends 240 and 15 pack to 0xF79E and 0x0861.
  const uint8_t ends[] = {0x9E, 0xF7, 0x61, 0x08};
  EXPECT_EQ(0, std::memcmp(ends, &single[8], 4));
  EXPECT_EQ(0, std::memcmp(ends, &group[8], 4));
  // Steps of four and of eight on the whole span: v * 3 * 8 * 42 >> 16, v * 8 * 256 >> 16.
  uint64_t colours = 0, alphas = 0;
  const int colourOf[] = {1, 3, 2, 0}, alphaOf[] = {1, 7, 6, 5, 4, 3, 2, 0};
  for (int i = 0; i < 16; ++i) {
    colours |= uint64_t(colourOf[17 * i * 24 * 42 >> 16]) << 2 * i;
    alphas |= uint64_t(alphaOf[17 * i * 8 * 256 >> 16]) << 3 * i;
  }
  EXPECT_EQ(0, std::memcmp(&colours, &group[12], 4));
  EXPECT_EQ(0, std::memcmp(&alphas, &group[2], 6));
}

TEST(DxtEncode, ColourTiesGoToTheLowerIndex) {
  // Black and white inset to (240, 240, 240) and (15, 15, 15); the expanded ends are 247, 247, 247 (5 bits:
  // 0xF0 | 7, 6 bits: 0xF0 | 3 = 243) and 8, 12, 8.
  Bytes pixels = flat(kDxt1, {0, 0, 0, 9});
  std::memset(&pixels[0], 255, 3);
  std::memset(&pixels[4], 170, 3);
  std::memset(&pixels[8], 85, 3);
  const Bytes block = encode(kDxt1, pixels);
  EXPECT_EQ((Bytes{0x9E, 0xF7, 0x61, 0x08, 0b01111000, 0x55, 0x55, 0x55}), block);
}
TEST(DxtEncode, YCoCgScaleDiagonalAndLuma) {
  const auto blueOf = [](uint8_t extreme) {
    Bytes pixels = flat(kYCoCg, {10, 128, 128});
    pixels[1] = extreme;
    pixels[0] = 240;
    const Bytes block = encode(kYCoCg, pixels);
    EXPECT_EQ(240, block[0]);  // no inset on Y
    EXPECT_EQ(10, block[1]);
    EXPECT_EQ(block[8] & 31, block[10] & 31);
    return block[8] & 31;
  };
  EXPECT_EQ(3, blueOf(159));
  EXPECT_EQ(3, blueOf(97));
  EXPECT_EQ(1, blueOf(160));
  EXPECT_EQ(1, blueOf(65));
  EXPECT_EQ(0, blueOf(192));
  EXPECT_EQ(0, blueOf(64));
  // A flat block: (16 * 128 - 7) >> 4 is 127 and (16 * 128 + 7) >> 4 is 128, so Co is 15 and 16 of 5 bits, Cg
  // 31 and 32.
  EXPECT_EQ((Bytes{50, 50, 0x49, 0x92, 0x24, 0x49, 0x92, 0x24, 0x03, 0x84, 0xE3, 0x7B}), [] {
    Bytes b = encode(kYCoCg, flat(kYCoCg, {50, 128, 128}));
    b.resize(12);
    return b;
  }());
  // Co and Cg run against each other: the ends of Cg trade places, and every pixel finds its corner.
  Bytes pixels;
  for (int i = 0; i < 16; ++i) pixels = join(pixels, i % 2 ? Bytes{0, 0, 255} : Bytes{0, 255, 0});
  const Bytes block = encode(kYCoCg, pixels);
  const auto c0 = unsigned(block[8] | block[9] << 8), c1 = unsigned(block[10] | block[11] << 8);
  EXPECT_GT(c0 >> 11, c1 >> 11);
  EXPECT_LT(c0 >> 5 & 63, c1 >> 5 & 63);
  EXPECT_EQ((Bytes{0x44, 0x44, 0x44, 0x44}), Bytes(&block[12], &block[12] + 4));
}

}  // namespace
}  // namespace qelj::test
