#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numeric>

#include "qelj.h"

namespace qelj::test {
namespace {

using Raw = std::array<uint8_t, 64>;
using Words = std::array<uint16_t, 64>;

Raw rawOf(uint8_t first, uint8_t second) {
  Raw raw;
  raw.fill(second);
  raw[0] = first;
  return raw;
}

TEST(QuantTable, Quality) {
  struct Case {
    int32_t quality;
    uint8_t in[2], out[2];
  };
  for (const Case& c : {Case{50, {0, 255}, {1, 255}},  // scale 100: nothing changes but the zero
                        {50, {16, 99}, {16, 99}},
                        {100, {0, 255}, {1, 1}},   // scale 0
                        {1, {5, 6}, {250, 255}},   // scale 5000
                        {49, {50, 49}, {51, 50}},  // scale 102: 51.5 and 50.48 are cut
                        {75, {1, 3}, {1, 2}},      // scale 50: 1.0 and 2.0
                        {75, {16, 255}, {8, 128}},
                        {99, {24, 25}, {1, 1}},    // scale 2: 0.98 becomes 1
                        {1000, {255, 3}, {1, 1}},  // negative scale
                        {4999, {1, 200}, {1, 1}},
                        {0x7FFFFFFF, {1, 255}, {2, 255}},  // 200 - 2 quality wraps to 202
                        {0x40000000, {0, 1}, {1, 1}}}) {   // and to -2147483448
    Raw raw = rawOf(c.in[0], c.in[1]);
    EXPECT_EQ(qelStatusOk, qeliQuantFwdRawTableInit_JPEG_8u(raw.data(), c.quality));
    EXPECT_EQ(rawOf(c.out[0], c.out[1]), raw) << c.quality;
  }
}

TEST(QuantTable, NaturalOrderAndReciprocals) {
  constexpr uint8_t kScan[64] = {0,  1,  5,  6,  14, 15, 27, 28, 2,  4,  7,  13, 16, 26, 29, 42,
                                 3,  8,  12, 17, 25, 30, 41, 43, 9,  11, 18, 24, 31, 40, 44, 53,
                                 10, 19, 23, 32, 39, 45, 52, 54, 20, 22, 33, 38, 46, 51, 55, 60,
                                 21, 34, 37, 47, 50, 56, 59, 61, 35, 36, 48, 49, 57, 58, 62, 63};
  Words forward, inverse;
  for (int base = 0; base < 256; base += 64) {
    Raw raw;
    std::iota(raw.begin(), raw.end(), uint8_t(base));
    EXPECT_EQ(base ? qelStatusOk : qelStatusZeroDivisorWarning,
              qeliQuantFwdTableInit_JPEG_8u16u(raw.data(), forward.data()));
    EXPECT_EQ(qelStatusOk, qeliQuantInvTableInit_JPEG_8u16u(raw.data(), inverse.data()));
    for (size_t n = 0; n < 64; ++n) {
      const int q = base + kScan[n];
      EXPECT_EQ(q, inverse[n]);
      EXPECT_EQ(q ? std::lround(32768.0 / q) : 0xFFFF, forward[n]) << q;
    }
  }
}

TEST(Quant, KnownAnswers) {
  struct Case {
    int16_t x;
    uint16_t t;
    int16_t y;
  };
  for (const Case& c : {Case{100, 2048, 6},
                        {-100, 2048, -6},
                        {100, 0x8000, 100},
                        {-4096, 0x8000, -4096},
                        {4096, 2048, -256},
                        {8192, 2048, 0},  // wrap
                        {8, 2048, 1},
                        {-8, 2048, 0},  // halves go up
                        {4095, 0xFFFF, 8190},
                        {3, 10923, 1},
                        {-1, 1, 0}}) {
    std::array<int16_t, 64> block;
    Words table;
    block.fill(c.x);
    table.fill(c.t);
    EXPECT_EQ(qelStatusOk, qeliQuantFwd8x8_JPEG_16s_C1I(block.data(), table.data()));
    for (const int16_t y : block) EXPECT_EQ(c.y, y) << c.x << " * " << c.t;
  }
}

}  // namespace
}  // namespace qelj::test
