#include <gtest/gtest.h>

#include <cstring>

#include "qelj.h"

namespace qelj::test {
namespace {

struct Block {
  uint8_t bytes[16] = {};
  Block& put(int at, unsigned value, int bits) {
    for (int i = 0; i < bits; ++i)
      if (value >> i & 1) bytes[(at + i) / 8] |= uint8_t(1 << (at + i) % 8);
    return *this;
  }
};
struct Pixels {
  uint16_t of[48];
  unsigned at(int pixel, int channel) const { return of[3 * pixel + channel]; }
};

Pixels unsignedPixels(const Block& block) {
  Pixels pixels;
  EXPECT_EQ(qelStatusOk, qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R(block.bytes, pixels.of, 24, 4, 4));
  return pixels;
}
Pixels signedPixels(const Block& block) {
  Pixels pixels;
  EXPECT_EQ(qelStatusOk, qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R(
                             block.bytes, reinterpret_cast<int16_t*>(pixels.of), 24, 4, 4));
  return pixels;
}

TEST(Bc6Decode, ReservedModesAreBlack) {
  for (unsigned code : {19u, 23u, 27u, 31u}) {
    Block block;
    std::memset(block.bytes, 0xFF, 16);
    block.bytes[0] = uint8_t(0xE0 | code);
    for (const Pixels& pixels : {unsignedPixels(block), signedPixels(block)})
      for (auto value : pixels.of) EXPECT_EQ(0, value);
  }
}

// One region of plain 10-bit end-points; pixel 1 has index 15, pixel 2 index 4, the others 0.
Block plain(unsigned r0, unsigned r1, unsigned g0, unsigned g1) {
  return Block()
      .put(0, 3, 5)
      .put(5, r0, 10)
      .put(15, g0, 10)
      .put(35, r1, 10)
      .put(45, g1, 10)
      .put(68, 15, 4)
      .put(72, 4, 4);
}

TEST(Bc6Decode, UnsignedRange) {
  const Pixels pixels = unsignedPixels(plain(0, 1023, 1, 512));
  EXPECT_EQ(0u, pixels.at(0, 0));
  EXPECT_EQ(0x7BFFu, pixels.at(1, 0));                                     // 65535 * 31 >> 6
  EXPECT_EQ(unsigned((17 * 65535 + 32) >> 6) * 31 >> 6, pixels.at(2, 0));  // index 4 has weight 17
  EXPECT_EQ(46u, pixels.at(0, 1));                                         // (65536 + 32768) >> 10 is 96
  EXPECT_EQ(32800u * 31 >> 6, pixels.at(1, 1));
  EXPECT_EQ(0u, pixels.at(1, 2));
}

TEST(Bc6Decode, SignedRange) {
  const Pixels pixels = signedPixels(plain(1023, 511, 512, 513));
  EXPECT_EQ(0x8000u | 93, pixels.at(0, 0));      // -1: 96, and 96 * 31 >> 5
  EXPECT_EQ(0x7BFFu, pixels.at(1, 0));           // the largest magnitude of 10 bits
  EXPECT_EQ(0x8000u | 0x7C1F, pixels.at(0, 1));  // one above it takes the formula: 32800
  EXPECT_EQ(0x8000u | 0x7BFF, pixels.at(1, 1));
  // (-96 * 47 + 32767 * 17 + 32) >> 6, an arithmetic shift.
  EXPECT_EQ(unsigned((-96 * 47 + 32767 * 17 + 32) >> 6) * 31 >> 5, pixels.at(2, 0));
}

// 16-bit end-points with 4-bit differences; the upper six bits of end-point 0 stand highest first.
TEST(Bc6Decode, SixteenBitsWithDifferences) {
  Block block;
  block.put(0, 15, 5).put(44, 1, 1).put(35, 15, 4).put(68, 15, 4);  // red 1024 and 1023, green and blue 0
  block.put(15, 0x3FF, 10).put(49, 63, 6);                          // green 65535, no difference
  block.put(55, 15, 4);                                             // blue 0 - 1
  Pixels pixels = unsignedPixels(block);
  EXPECT_EQ(1024u * 31 >> 6, pixels.at(0, 0));
  EXPECT_EQ(1023u * 31 >> 6, pixels.at(1, 0));
  EXPECT_EQ(0x7BFFu, pixels.at(0, 1));
  EXPECT_EQ(0u, pixels.at(0, 2));
  EXPECT_EQ(0x7BFFu, pixels.at(1, 2));  // wrapped to 65535
  pixels = signedPixels(block);
  EXPECT_EQ(1024u * 31 >> 5, pixels.at(0, 0));
  EXPECT_EQ(0x8000u, pixels.at(0, 1));  // -1 has magnitude 0
  EXPECT_EQ(0x8000u, pixels.at(1, 2));
}

// Two regions of plain 6-bit end-points, shape 17 (anchor 2): region 1 is pixels 1, 2, 3 and 7.
TEST(Bc6Decode, TwoRegions) {
  Block block;
  block.put(0, 30, 5).put(77, 17, 5);
  block.put(5, 63, 6).put(35, 63, 6);               // red of region 0: 63, 63
  block.put(65, 1, 6).put(71, 2, 6);                // red of region 1: 1, 2
  block.put(41, 1, 4).put(24, 1, 1).put(21, 1, 1);  // green of end-point 2: 1 + 16 + 32
  // Indices: pixel 0 two bits, pixel 1 three, pixel 2 two: pixel 3 starts at 82 + 7.
  block.put(89, 7, 3);
  const Pixels pixels = unsignedPixels(block);
  EXPECT_EQ(0x7BFFu, pixels.at(0, 0));
  EXPECT_EQ(1536u * 31 >> 6, pixels.at(1, 0));  // (65536 + 32768) >> 6
  EXPECT_EQ(2560u * 31 >> 6, pixels.at(3, 0));
  EXPECT_EQ(1536u * 31 >> 6, pixels.at(7, 0));
  EXPECT_EQ(0u, pixels.at(0, 1));
  EXPECT_EQ((((49u << 16) + 32768) >> 6) * 31 >> 6, pixels.at(2, 1));
}

}  // namespace
}  // namespace qelj::test
