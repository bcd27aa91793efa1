// The transforms against a DCT in double precision, and numbers worked out by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

using Block = std::array<int16_t, 64>;

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
// Coefficients as coders see them: those of random samples, rounded.
Block randomCoefficients(Random& random) {
  const auto exact = exactDct(randomBlock(random, -128, 127), false);
  Block coefficients;
  std::transform(exact.begin(), exact.end(), coefficients.begin(),
                 [](double x) { return int16_t(std::lround(x)); });
  return coefficients;
}
template <class T, size_t N>
std::array<T, N> filled(T value) {
  std::array<T, N> all;
  all.fill(value);
  return all;
}
const auto kOnes = filled<uint16_t, 64>(1), kReciprocalsOfOne = filled<uint16_t, 64>(0x8000);

// Errors are small, and as often above as below.
class Errors {
 public:
  void add(double error) { worst_ = std::max(worst_, std::abs(error)), sum_ += error, ++count_; }
  ~Errors() {
    EXPECT_LT(worst_, 0.75);
    EXPECT_LT(std::abs(sum_ / count_), 0.01);
  }

 private:
  double worst_ = 0, sum_ = 0;
  int count_ = 0;
};

TEST(ForwardDct, NearTheExactDctInEveryForm) {
  Random random;
  Errors errors;
  for (int round = 0; round < 500; ++round) {
    const auto image = random.vector<uint8_t>(64, 0, 255);
    Block samples, shifted, out;
    for (size_t i = 0; i < 64; ++i) samples[i] = int16_t(image[i] - 128);
    qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(image.data(), 8, shifted.data(), kReciprocalsOfOne.data());
    const auto exact = exactDct(samples, false);
    for (size_t i = 0; i < 64; ++i) errors.add(shifted[i] - exact[i]);
    qeliDCTQuantFwd8x8_JPEG_16s_C1(samples.data(), out.data(), kReciprocalsOfOne.data());
    EXPECT_EQ(shifted, out);
    qeliDCTQuantFwd8x8_JPEG_16s_C1I(samples.data(), kReciprocalsOfOne.data());
    EXPECT_EQ(shifted, samples);
  }
}

TEST(ForwardDct, FlatBlocks) {
  const auto sixteen = filled<uint16_t, 64>(2048);
  for (int v = 0; v < 256; ++v) {
    // All rows are the same one: a step of one byte and a long row.
    const auto samples = filled<uint8_t, 16>(uint8_t(v));
    Block out, expected{};
    expected[0] = int16_t(8 * (v - 128));
    qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples.data(), 1, out.data(), kReciprocalsOfOne.data());
    EXPECT_EQ(expected, out) << v;
    // Ties go to the even number: 8 v / 16.
    qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples.data(), 1, out.data(), sixteen.data());
    EXPECT_EQ(std::nearbyint((v - 128) / 2.0), out[0]) << v;
  }
}

TEST(InverseDct, NearTheExactDctInEveryForm) {
  Random random;
  Errors errors;
  for (int round = 0; round < 500; ++round) {
    Block coefficients = randomCoefficients(random), out;
    const auto exact = exactDct(coefficients, true);
    qeliDCTQuantInv8x8_JPEG_16s_C1(coefficients.data(), out.data(), kOnes.data());
    for (size_t i = 0; i < 64; ++i) errors.add(out[i] - exact[i]);
    std::array<uint8_t, 64> image;
    qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R(coefficients.data(), image.data(), 8, kOnes.data());
    for (size_t i = 0; i < 64; ++i) EXPECT_EQ(std::clamp(out[i] + 128, 0, 255), image[i]);
    qeliDCTQuantInv8x8_JPEG_16s_C1I(coefficients.data(), kOnes.data());
    EXPECT_EQ(out, coefficients);
  }
}

TEST(InverseDct, KnownAnswers) {
  Block block{}, out;
  std::array<uint8_t, 64> image;
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

TEST(Dct12, NearTheExactDctAndBack) {
  Random random;
  const auto ones = filled<float, 64>(1.0f);
  for (int round = 0; round < 300; ++round) {
    const auto image = random.vector<uint16_t>(64, 0, 4095);
    Block samples, coefficients;
    for (size_t i = 0; i < 64; ++i) samples[i] = int16_t(image[i] - 2048);
    qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R(image.data(), 16, coefficients.data(), ones.data());
    const auto exact = exactDct(samples, false);
    for (size_t i = 0; i < 64; ++i) EXPECT_LT(std::abs(coefficients[i] - exact[i]), 0.51);
    std::array<uint16_t, 64> back;
    qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R(coefficients.data(), back.data(), 16, ones.data());
    const auto exactBack = exactDct(coefficients, true);
    for (size_t i = 0; i < 64; ++i)  // cut, not rounded
      EXPECT_LT(std::abs(back[i] + 0.5 - std::clamp(exactBack[i] + 2048, 0.5, 4095.5)), 0.51);
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

// --- reduced inverses ----------------------------------------------------------------------------------------

template <size_t kSize>
std::array<uint8_t, kSize * kSize> run(decltype(qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R) function,
                                       const Block& block, const std::array<uint16_t, 64>& table) {
  std::array<uint8_t, kSize * kSize> samples;
  EXPECT_EQ(qelStatusOk, function(block.data(), samples.data(), kSize, table.data()));
  return samples;
}

// What is left out: coefficients outside the corner count as zero, however large; smaller blocks skip some rows and
// columns.
TEST(ReducedDct, LeavesOutCoefficients) {
  Random random;
  for (int round = 0; round < 300; ++round) {
    const int64_t range = int64_t(1) << random.in(1, 15), high = random.chance(50) ? 64 : 65535;
    const Block all = randomBlock(random, -range, range - 1);
    std::array<uint16_t, 64> table;
    for (auto& t : table) t = uint16_t(random.in(0, high));
    Block corner2 = all, corner4 = all, to2 = all, to4 = all;
    for (size_t i = 0; i < 64; ++i) {
      const size_t v = i / 8, u = i % 8;
      const auto even = [](size_t k) { return k == 2 || k == 4 || k == 6; };
      if (v >= 2 || u >= 2) corner2[i] = 0;
      if (v >= 4 || u >= 4) corner4[i] = 0;
      if (even(v) || even(u)) ++to2[i];
      if (v == 4 || u == 4) ++to4[i];
    }
    const auto whole = qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R;
    ASSERT_EQ(run<8>(whole, corner2, table), run<8>(qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, all, table));
    ASSERT_EQ(run<8>(whole, corner4, table), run<8>(qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, all, table));
    const auto toTwo = qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R,
               toFour = qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R;
    ASSERT_EQ(run<2>(toTwo, to2, table), run<2>(toTwo, all, table));
    ASSERT_EQ(run<4>(toFour, to4, table), run<4>(toFour, all, table));
  }
}

TEST(ReducedDct, OfTheDcAlone) {
  const auto of = [](int16_t dc, uint16_t t) {
    const auto samples = run<8>(qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, {dc, 1000}, {t, 7});
    EXPECT_EQ((filled<uint8_t, 64>(samples[0])), samples);
    return int(samples[0]);
  };
  EXPECT_EQ(128, of(7, 1));
  EXPECT_EQ(129, of(8, 1));
  EXPECT_EQ(127, of(-1, 1));
  EXPECT_EQ(255, of(1016, 1));
  EXPECT_EQ(0, of(-32768, 8));
  EXPECT_EQ(255, of(29013, 9));       // 261117: as it should be
  EXPECT_EQ(0, of(32640, 8));         // 261120: wraps
  EXPECT_EQ(255, of(-32768, 65535));  // wraps to 4096 + 128
}

template <size_t kSize>
void expectMeans(const std::array<double, 64>& whole, const std::array<uint8_t, kSize * kSize>& samples) {
  constexpr size_t kSquare = 8 / kSize;
  std::array<double, kSize * kSize> means{};
  for (size_t i = 0; i < 64; ++i)
    means[i / 8 / kSquare * kSize + i % 8 / kSquare] += whole[i] / (kSquare * kSquare);
  for (size_t i = 0; i < means.size(); ++i)
    EXPECT_NEAR(std::clamp(means[i] + 128, 0.0, 255.0), samples[i], 0.75);
}
TEST(ReducedDct, SmallerBlocksAreMeansOfTheWholeBlock) {
  Random random;
  for (int round = 0; round < 500; ++round) {
    const Block coefficients = randomCoefficients(random);
    const auto whole = exactDct(coefficients, true);
    expectMeans<2>(whole, run<2>(qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, coefficients, kOnes));
    expectMeans<4>(whole, run<4>(qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, coefficients, kOnes));
  }
}

}  // namespace
}  // namespace qelj::test
