// The integer transforms against a model written out from their formulas, and all transforms against a DCT in
// double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "jpeg/dct/model.h"
#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

using model::Block;

// A.3.3: coefficients of samples, or samples of coefficients.
std::array<double, 64> exactDct(const Block& in, bool inverse) {
  const auto factor = [](int n, int u) {
    return std::cos((2 * n + 1) * u * std::numbers::pi / 16) * (u ? 0.5 : std::numbers::sqrt2 / 4);
  };
  std::array<double, 64> out{};
  for (int a = 0; a < 64; ++a)
    for (int b = 0; b < 64; ++b) {
      const int sample = inverse ? a : b, coefficient = inverse ? b : a;
      out[size_t(a)] +=
          in[size_t(b)] * factor(sample / 8, coefficient / 8) * factor(sample % 8, coefficient % 8);
    }
  return out;
}

Block randomBlock(Random& random, int64_t low, int64_t high) {
  Block block;
  for (auto& x : block) x = int16_t(random.in(low, high));
  return block;
}
model::Table randomTable(Random& random) {
  model::Table table;
  const int64_t high = random.chance(50) ? 255 : 65535;
  for (auto& t : table) t = uint16_t(random.in(0, high));
  return table;
}
template <class T, size_t N>
std::array<T, N> filled(T value) {
  std::array<T, N> all;
  all.fill(value);
  return all;
}
const auto kOnes = filled<uint16_t, 64>(1), kReciprocalsOfOne = filled<uint16_t, 64>(0x8000);

// Ranges of samples or coefficients, from tame to saturating.
constexpr int kRanges[] = {2, 128, 1024, 4096, 32767};

TEST(ForwardDct, EqualsTheModel) {
  Random random;
  for (int round = 0; round < 2000; ++round) {
    const int range = kRanges[round % std::size(kRanges)];
    const Block samples = randomBlock(random, -range - (range > 2), range);
    auto table = randomTable(random);
    const Block expected = model::forward(samples, table);
    Guarded src(random, 128, 1, 0, size_t(random.in(0, 33))),
        dst(random, 128, 1, 0, size_t(random.in(0, 33)));
    std::memcpy(src.data(), samples.data(), 128);
    ASSERT_EQ(qelStatusOk,
              qeliDCTQuantFwd8x8_JPEG_16s_C1(src.data<int16_t>(), dst.data<int16_t>(), table.data()));
    ASSERT_EQ(0, std::memcmp(dst.data(), expected.data(), 128)) << "range " << range;
    ASSERT_EQ(qelStatusOk, qeliDCTQuantFwd8x8_JPEG_16s_C1I(src.data<int16_t>(), table.data()));
    ASSERT_EQ(0, std::memcmp(src.data(), expected.data(), 128));
    EXPECT_TRUE(src.intact() && dst.intact());
  }
}

TEST(ForwardDct, LevelShiftedFlatBlocks) {
  for (int v = 0; v < 256; ++v) {
    // All rows are the same one: a step of one byte and a long row.
    const auto samples = filled<uint8_t, 16>(uint8_t(v));
    Block out = filled<int16_t, 64>(99), expected{};
    expected[0] = int16_t(8 * (v - 128));
    ASSERT_EQ(qelStatusOk,
              qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples.data(), 1, out.data(), kReciprocalsOfOne.data()));
    EXPECT_EQ(expected, out) << v;
    // Ties go to the even number: 8 v / 16.
    const auto sixteen = filled<uint16_t, 64>(2048);
    qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples.data(), 1, out.data(), sixteen.data());
    EXPECT_EQ(std::nearbyint((v - 128) / 2.0), out[0]) << v;
  }
}

TEST(ForwardDct, NearTheExactDct) {
  Random random;
  double worst = 0, sum = 0;
  for (int round = 0; round < 500; ++round) {
    Guarded image(random, 8, 8, 8 + size_t(round % 9), size_t(round % 5));
    Block samples, out;
    for (size_t i = 0; i < 64; ++i) samples[i] = int16_t(image.data(i / 8)[i % 8] - 128);
    qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(image.data(), image.step(), out.data(), kReciprocalsOfOne.data());
    EXPECT_EQ(model::forward(samples, kReciprocalsOfOne), out);
    const auto exact = exactDct(samples, false);
    for (size_t i = 0; i < 64; ++i) {
      worst = std::max(worst, std::abs(out[i] - exact[i]));
      sum += out[i] - exact[i];
    }
  }
  EXPECT_LT(worst, 0.75);
  EXPECT_LT(std::abs(sum / 32000), 0.01);
}

TEST(InverseDct, EqualsTheModel) {
  Random random;
  for (int round = 0; round < 2000; ++round) {
    const int range = kRanges[round % std::size(kRanges)];
    Block coefficients = randomBlock(random, -range - (range > 2), range);
    if (round % 3 == 0) std::fill(coefficients.begin() + random.in(0, 63), coefficients.end(), int16_t(0));
    const auto table = round % 2 ? randomTable(random) : kOnes;
    const Block expected = model::inverse(coefficients, table);
    Guarded src(random, 128, 1, 0, size_t(random.in(0, 33))),
        dst(random, 128, 1, 0, size_t(random.in(0, 33)));
    Guarded image(random, 8, 8, 8 + size_t(random.in(0, 40)), size_t(random.in(0, 33)));
    std::memcpy(src.data(), coefficients.data(), 128);
    ASSERT_EQ(qelStatusOk,
              qeliDCTQuantInv8x8_JPEG_16s_C1(src.data<int16_t>(), dst.data<int16_t>(), table.data()));
    ASSERT_EQ(0, std::memcmp(dst.data(), expected.data(), 128)) << "range " << range;
    ASSERT_EQ(qelStatusOk, qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R(src.data<int16_t>(), image.data(),
                                                               image.step(), table.data()));
    for (size_t i = 0; i < 64; ++i)
      ASSERT_EQ(std::clamp(expected[i] + 128, 0, 255), image.data(i / 8)[i % 8]);
    ASSERT_EQ(0, std::memcmp(src.data(), coefficients.data(), 128));
    ASSERT_EQ(qelStatusOk, qeliDCTQuantInv8x8_JPEG_16s_C1I(src.data<int16_t>(), table.data()));
    ASSERT_EQ(0, std::memcmp(src.data(), expected.data(), 128));
    EXPECT_TRUE(src.intact() && dst.intact() && image.intact());
  }
}

TEST(InverseDct, KnownAnswers) {
  Block block{}, out;
  std::array<uint8_t, 64> image;
  qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R(block.data(), image.data(), 8, kOnes.data());
  EXPECT_EQ((filled<uint8_t, 64>(128)), image);
  for (int v = -200; v <= 200; ++v) {
    block[0] = int16_t(8 * v);
    qeliDCTQuantInv8x8_JPEG_16s_C1(block.data(), out.data(), kOnes.data());
    EXPECT_EQ((filled<int16_t, 64>(int16_t(v))), out);
  }
  // 4096 * 8 wraps to -32768 before the transform.
  block[0] = 4096;
  qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R(block.data(), image.data(), 8, filled<uint16_t, 64>(8).data());
  EXPECT_EQ((filled<uint8_t, 64>(0)), image);
}

TEST(InverseDct, NearTheExactDct) {
  Random random;
  double worst = 0, sum = 0;
  for (int round = 0; round < 500; ++round) {
    const auto samples = exactDct(randomBlock(random, -128, 127), false);
    Block coefficients, out;
    std::transform(samples.begin(), samples.end(), coefficients.begin(),
                   [](double x) { return int16_t(std::lround(x)); });
    qeliDCTQuantInv8x8_JPEG_16s_C1(coefficients.data(), out.data(), kOnes.data());
    const auto exact = exactDct(coefficients, true);
    for (size_t i = 0; i < 64; ++i) {
      worst = std::max(worst, std::abs(out[i] - exact[i]));
      sum += out[i] - exact[i];
    }
  }
  EXPECT_LT(worst, 0.75);
  EXPECT_LT(std::abs(sum / 32000), 0.01);
}

TEST(Dct12, NearTheExactDctAndBack) {
  Random random;
  const auto ones = filled<float, 64>(1.0f);
  for (int round = 0; round < 300; ++round) {
    Guarded image(random, 16, 8, 16 + size_t(round % 9), size_t(round % 5)),
        back(random, 16, 8, 16 + size_t(round % 3), size_t(round % 7));
    Block samples, coefficients;
    for (size_t i = 0; i < 64; ++i) {
      const uint16_t sample = uint16_t(random.in(0, 4095));
      samples[i] = int16_t(sample - 2048);
      std::memcpy(image.data(i / 8) + i % 8 * 2, &sample, 2);
    }
    ASSERT_EQ(qelStatusOk, qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R(image.data<uint16_t>(), image.step(),
                                                                coefficients.data(), ones.data()));
    const auto exact = exactDct(samples, false);
    for (size_t i = 0; i < 64; ++i) EXPECT_LT(std::abs(coefficients[i] - exact[i]), 0.51);
    ASSERT_EQ(qelStatusOk, qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R(coefficients.data(), back.data<uint16_t>(),
                                                                back.step(), ones.data()));
    const auto exactBack = exactDct(coefficients, true);
    for (size_t i = 0; i < 64; ++i) {
      uint16_t sample;
      std::memcpy(&sample, back.data(i / 8) + i % 8 * 2, 2);
      EXPECT_LT(std::abs(sample + 0.5 - std::clamp(exactBack[i] + 2048, 0.5, 4095.5)),
                0.51);  // cut, not rounded
    }
    EXPECT_TRUE(back.intact());
  }
}

TEST(Dct12, RangesAndStrangeTables) {
  std::array<uint16_t, 64> back;
  auto table = filled<float, 64>(1.0f);
  Block out;
  const auto dc = [&](uint16_t sample, float multiplier) {
    table[0] = multiplier;
    qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R(filled<uint16_t, 64>(sample).data(), 16, out.data(), table.data());
    return int(out[0]);
  };
  EXPECT_EQ(0, dc(2048, 1));
  EXPECT_EQ(Block{}, out);
  EXPECT_EQ(8, dc(2049, 1));
  EXPECT_EQ(0, dc(2049, 1.0f / 16));  // 0.5 goes to even
  EXPECT_EQ(2, dc(2051, 1.0f / 16));
  EXPECT_EQ(-32768, dc(0xFFFF, 2));  // counts as -1: 8 * -2049 * 2
  EXPECT_EQ(32767, dc(4095, 1e5f));
  EXPECT_EQ(-32768, dc(4095, 1e6f));  // beyond 32 bits
  EXPECT_EQ(-32768, dc(2048, NAN));

  const auto flat = [&](int16_t coefficient, float multiplier) {
    Block block{};
    block[0] = coefficient;
    table[0] = multiplier;
    qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R(block.data(), back.data(), 16, table.data());
    EXPECT_EQ((filled<uint16_t, 64>(back[0])), back);
    return int(back[0]);
  };
  EXPECT_EQ(2048, flat(0, 1));
  EXPECT_EQ(2049, flat(1, 15.75f));  // 1.97 is cut
  EXPECT_EQ(2046, flat(-1, 9));      // 2046.875 is cut
  EXPECT_EQ(4095, flat(3, 10000));
  EXPECT_EQ(0, flat(-3, 10000));
  EXPECT_EQ(0, flat(32767, 1e6f));  // beyond 32 bits
  EXPECT_EQ(0, flat(0, NAN));
}

TEST(Dct, ChecksInOrder) {
  uint8_t bytes[64] = {};
  uint16_t words[64] = {}, table[64] = {};
  int16_t block[64] = {};
  float multipliers[64] = {};
  const auto forward = [](auto* f, auto* src, auto* dst, auto* t) {
    EXPECT_EQ(qelStatusNullPointer, f(nullptr, 0, dst, t));
    EXPECT_EQ(qelStatusNullPointer, f(src, 0, nullptr, t));
    EXPECT_EQ(qelStatusBadStep, f(src, 0, dst, nullptr));
    EXPECT_EQ(qelStatusNullPointer, f(src, 1, dst, nullptr));
  };
  const auto inverse = [](auto* f, auto* src, auto* dst, auto* t) {
    EXPECT_EQ(qelStatusNullPointer, f(nullptr, dst, 0, t));
    EXPECT_EQ(qelStatusNullPointer, f(src, nullptr, 0, t));
    EXPECT_EQ(qelStatusBadStep, f(src, dst, -1, nullptr));
    EXPECT_EQ(qelStatusNullPointer, f(src, dst, 1, nullptr));
  };
  forward(qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R, bytes, block, table);
  forward(qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R, words, block, multipliers);
  for (const auto f : {qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R, qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R,
                       qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R,
                       qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R})
    inverse(f, block, bytes, table);
  inverse(qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R, block, words, multipliers);
  for (const auto f : {qeliDCTQuantFwd8x8_JPEG_16s_C1, qeliDCTQuantInv8x8_JPEG_16s_C1}) {
    EXPECT_EQ(qelStatusNullPointer, f(nullptr, block, table));
    EXPECT_EQ(qelStatusNullPointer, f(block, nullptr, table));
    EXPECT_EQ(qelStatusNullPointer, f(block, block, nullptr));
  }
  for (const auto f : {qeliDCTQuantFwd8x8_JPEG_16s_C1I, qeliDCTQuantInv8x8_JPEG_16s_C1I}) {
    EXPECT_EQ(qelStatusNullPointer, f(nullptr, table));
    EXPECT_EQ(qelStatusNullPointer, f(block, nullptr));
  }
}

}  // namespace
}  // namespace qelj::test
