// The reduced inverse DCTs, against the whole transform and against the model.
#include <gtest/gtest.h>

#include "jpeg/dct/model.h"
#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

using model::Block;
using model::Table;

struct Input {
  Block coefficients;
  Table table;

  explicit Input(Random& random) {
    const int64_t range = int64_t(1) << random.in(1, 15), high = random.chance(50) ? 64 : 65535;
    for (auto& x : coefficients) x = int16_t(random.in(-range, range - 1));
    for (auto& t : table) t = uint16_t(random.in(0, high));
  }
};

// Runs on odd addresses; checks that nothing but the size x size samples is written.
std::vector<uint8_t> run(decltype(qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R) function, size_t size,
                         const Input& input) {
  static Random random;
  Guarded src(random, 128, 1, 0, size_t(random.in(0, 33))),
      table(random, 128, 1, 0, size_t(random.in(0, 33)));
  Guarded dst(random, size, size, size + size_t(random.in(0, 20)), size_t(random.in(0, 33)));
  std::memcpy(src.data(), input.coefficients.data(), 128);
  std::memcpy(table.data(), input.table.data(), 128);
  EXPECT_EQ(qelStatusOk, function(src.data<int16_t>(), dst.data(), dst.step(), table.data<uint16_t>()));
  EXPECT_TRUE(dst.intact());
  std::vector<uint8_t> samples(size * size);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = dst.data(i / size)[i % size];
  return samples;
}
auto one(const Input& input) { return run(qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, 8, input); }
auto toTwo(const Input& input) { return run(qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, 2, input); }
auto toFour(const Input& input) { return run(qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, 4, input); }

TEST(ReducedDct, CornersEqualTheWholeTransform) {
  Random random;
  for (int round = 0; round < 2000; ++round) {
    const Input input(random);
    for (const size_t size : {2u, 4u}) {
      Input zeroed = input;
      for (size_t i = 0; i < 64; ++i)
        if (i / 8 >= size || i % 8 >= size) zeroed.coefficients[i] = 0;
      ASSERT_EQ(
          run(qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R, 8, zeroed),
          run(size == 2 ? qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R : qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R,
              8, input));
    }
  }
}

TEST(ReducedDct, OfTheDcAlone) {
  Random random;
  Input input(random);
  const auto of = [&](int16_t dc, uint16_t t) {
    input.coefficients[0] = dc;
    input.table[0] = t;
    const auto samples = one(input);
    EXPECT_EQ(std::vector<uint8_t>(64, samples[0]), samples);
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

TEST(ReducedDct, SmallerBlocks) {
  Random random;
  for (int round = 0; round < 4000; ++round) {
    const Input input(random);
    ASSERT_EQ(model::reduced(input.coefficients, input.table, 2), toTwo(input));
    ASSERT_EQ(model::reduced(input.coefficients, input.table, 4), toFour(input));
    // The coefficients that they leave out.
    Input two = input, four = input;
    for (size_t i = 0; i < 64; ++i) {
      const auto even = [](size_t k) { return k == 2 || k == 4 || k == 6; };
      if (even(i / 8) || even(i % 8)) ++two.coefficients[i];
      if (i / 8 == 4 || i % 8 == 4) ++four.coefficients[i];
    }
    ASSERT_EQ(toTwo(input), toTwo(two));
    ASSERT_EQ(toFour(input), toFour(four));
  }
}

TEST(ReducedDct, SmallerBlocksAreMeansOfTheWholeBlock) {
  Random random;
  for (int round = 0; round < 500; ++round) {
    Input input(random);
    input.table.fill(1);
    for (size_t i = 0; i < 64; ++i)
      input.coefficients[i] = int16_t(random.in(-60, 60) / int64_t(1 + i / 8 + i % 8));
    Block whole;
    qeliDCTQuantInv8x8_JPEG_16s_C1(input.coefficients.data(), whole.data(), input.table.data());
    for (const size_t size : {2u, 4u}) {
      const auto samples = size == 2 ? toTwo(input) : toFour(input);
      const size_t square = 8 / size;
      std::vector<double> means(samples.size(), 128);
      for (size_t i = 0; i < 64; ++i)
        means[i / 8 / square * size + i % 8 / square] += whole[i] / double(square * square);
      for (size_t i = 0; i < samples.size(); ++i) EXPECT_NEAR(means[i], samples[i], 1.1);
    }
  }
}

}  // namespace
}  // namespace qelj::test
