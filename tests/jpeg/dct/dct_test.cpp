// The transforms against a DCT in double precision, and what reduced ones leave out.
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
      out[size_t(a)] += in[size_t(b)] * factor(sample / 8, coefficient / 8) * factor(sample % 8, coefficient % 8);
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
  std::transform(exact.begin(), exact.end(), coefficients.begin(), [](double x) { return int16_t(std::lround(x)); });
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

// --- reduced inverses ----------------------------------------------------------------------------------------

template <size_t kSize>
std::array<uint8_t, kSize * kSize> run(decltype(qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R) function, const Block& block,
                                       const std::array<uint16_t, 64>& table) {
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
    const auto toTwo = qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, toFour = qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R;
    ASSERT_EQ(run<2>(toTwo, to2, table), run<2>(toTwo, all, table));
    ASSERT_EQ(run<4>(toFour, to4, table), run<4>(toFour, all, table));
  }
}

template <size_t kSize>
void expectMeans(const std::array<double, 64>& whole, const std::array<uint8_t, kSize * kSize>& samples) {
  constexpr size_t kSquare = 8 / kSize;
  std::array<double, kSize * kSize> means{};
  for (size_t i = 0; i < 64; ++i) means[i / 8 / kSquare * kSize + i % 8 / kSquare] += whole[i] / (kSquare * kSquare);
  for (size_t i = 0; i < means.size(); ++i) EXPECT_NEAR(std::clamp(means[i] + 128, 0.0, 255.0), samples[i], 0.75);
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
