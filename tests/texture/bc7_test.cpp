#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qelj.h"

namespace qelj::test {
namespace {

struct Block {
  uint8_t bytes[16] = {};
  int used = 0;
  Block& put(unsigned value, int bits) {
    for (int i = 0; i < bits; ++i, ++used) bytes[used / 8] |= uint8_t((value >> i & 1) << used % 8);
    return *this;
  }
};
struct Pixels {
  uint8_t of[16][4];
  std::vector<uint8_t> operator[](int i) const { return {of[i], of[i] + 4}; }
};
using Pixel = std::vector<uint8_t>;

Pixels decode(const Block& block) {
  Pixels pixels;
  EXPECT_EQ(qelStatusOk, qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R(block.bytes, pixels.of[0], 16, {4, 4}));
  return pixels;
}

TEST(Bc7Decode, ReservedModeAndModeSix) {
  Block block;
  for (int i = 0; i < 16; ++i) EXPECT_EQ((Pixel{0, 0, 0, 0}), decode(block)[i]);
  block.bytes[9] = 0xFF;
  EXPECT_EQ((Pixel{0, 0, 0, 0}), decode(block)[7]);
  block.bytes[9] = 0;
  block.bytes[0] = 0x40;
  for (int i = 0; i < 16; ++i) EXPECT_EQ((Pixel{0, 0, 0, 0}), decode(block)[i]);
  // Red of end 0 lacks its lowest bit: 126, with the p-bit 253. Pixel 0 has index 7, weight 30 of 64.
  std::memset(block.bytes + 1, 0xFF, 15);
  EXPECT_EQ((Pixel{254, 255, 255, 255}), decode(block)[0]);
}

// Mode 5, 7-bit colour and 8-bit alpha; rotation 2 exchanges green and alpha.
TEST(Bc7Decode, RotationAndSeparateAlphaIndices) {
  Block block;
  block.put(1 << 5, 6).put(2, 2);
  block.put(0, 7).put(127, 7).put(64, 7).put(64, 7).put(127, 7).put(0, 7).put(10, 8).put(200, 8);
  for (int i = 0; i < 16; ++i) block.put(unsigned(i % 4), i ? 2 : 1);
  for (int i = 0; i < 16; ++i) block.put(unsigned(i / 4), i ? 2 : 1);
  ASSERT_EQ(128, block.used);
  const Pixels pixels = decode(block);
  // 64 of 7 bits is 129. Weights 0, 21, 43, 64.
  EXPECT_EQ((Pixel{0, 10, 255, 129}), pixels[0]);
  EXPECT_EQ((Pixel{84, 10, 171, 129}), pixels[1]);
  EXPECT_EQ((Pixel{171, 72, 84, 129}), pixels[6]);
  EXPECT_EQ((Pixel{255, 200, 0, 129}), pixels[15]);
}

// Mode 4: its index-selection bit hands the 3-bit indices to colour.
TEST(Bc7Decode, IndexSelection) {
  for (unsigned selection : {0u, 1u}) {
    Block block;
    block.put(1 << 4, 5).put(0, 2).put(selection, 1);
    for (int c = 0; c < 3; ++c) block.put(0, 5).put(31, 5);
    block.put(0, 6).put(63, 6);
    for (int i = 0; i < 16; ++i) block.put(1, i ? 2 : 1);
    for (int i = 0; i < 16; ++i) block.put(2, i ? 3 : 2);
    ASSERT_EQ(128, block.used);
    // Index 1 of two bits has weight 21, index 2 of three bits has weight 18.
    const uint8_t two = (21 * 255 + 32) >> 6, three = (18 * 255 + 32) >> 6;
    for (int i : {0, 1, 15})
      EXPECT_EQ(selection ? (Pixel{three, three, three, two}) : (Pixel{two, two, two, three}),
                decode(block)[i]);
  }
}

// Mode 0, shape 2: the anchors of subsets 1 and 2 are pixels 15 and 8, not in that order.
TEST(Bc7Decode, ThreeSubsetsWithAnchorsInFallingOrder) {
  const char* subsets = "0000200122112211";
  Block block;
  block.put(1, 1).put(2, 4);
  for (int c = 0; c < 3; ++c)
    for (int s = 0; s < 3; ++s)
      block.put(unsigned(5 * s + c), 4).put(unsigned(5 * s + c), 4);  // flat subsets
  block.put(0b100110, 6);  // p-bits 0 1, 1 0, 0 1: end 1 of subset 0, end 0 of subset 1, end 1 of subset 2
  for (int i = 0; i < 16; ++i) {
    const bool anchor = i == 0 || i == 15 || i == 8;
    block.put(anchor ? 0 : 7, anchor ? 2 : 3);
  }
  ASSERT_EQ(128, block.used);
  const Pixels pixels = decode(block);
  for (int i = 0; i < 16; ++i) {
    const int s = subsets[i] - '0';
    const bool last = !(i == 0 || i == 15 || i == 8), pBit = last == (s != 1);
    Pixel expected(4, 255);
    for (int c = 0; c < 3; ++c) {
      const int value = (5 * s + c) << 1 | pBit;
      expected[size_t(c)] = uint8_t(value << 3 | value >> 2);
    }
    EXPECT_EQ(expected, pixels[i]) << i;
  }
}

}  // namespace
}  // namespace qelj::test
