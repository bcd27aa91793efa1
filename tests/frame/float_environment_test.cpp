// What a caller sets for its own float operations changes nothing in functions of integers: neither the rounding mode
// nor the flushing of denormal numbers, and none of the flags that a caller may trap is raised.
#include <gtest/gtest.h>

#include <bit>
#include <cfenv>

#include "frame/core_stub.h"
#include "qelj.h"
#include "support/random.h"

#if defined(__SSE2__)
#  include <xmmintrin.h>
#endif

namespace qelj::test {
namespace {

// Denormal numbers count as zero and become zero, on processors that can.
void setFlushing([[maybe_unused]] bool on) {
#if defined(__SSE2__)
  constexpr unsigned kBits = 0x8040;  // flush to zero, denormals are zero
  _mm_setcsr((_mm_getcsr() & ~kBits) | (on ? kBits : 0));
#elif defined(__aarch64__)
  constexpr uint64_t kBit = 1 << 24;
  uint64_t control = 0;
  asm volatile("mrs %0, fpcr" : "=r"(control));
  asm volatile("msr fpcr, %0" : : "r"((control & ~kBit) | (on ? kBit : 0)));
#endif
}

struct Environment {
  const char* name;
  int rounding;
  bool flushing;
};
constexpr Environment kEnvironments[] = {{"to nearest", FE_TONEAREST, false},
                                         {"upward", FE_UPWARD, false},
                                         {"downward", FE_DOWNWARD, false},
                                         {"toward zero", FE_TOWARDZERO, false},
                                         {"flushing", FE_TONEAREST, true}};

// What `call` leaves in `output`, and whether it leaves the environment as it was.
template <class T, class Call>
std::vector<T> outputIn(const Environment& e, std::vector<T>& output, const Call& call) {
  std::fill(output.begin(), output.end(), T(0x55));
  std::fenv_t before;
  std::fegetenv(&before);
  std::fesetround(e.rounding);
  setFlushing(e.flushing);
  std::feclearexcept(FE_ALL_EXCEPT);
  call();
  const int rounding = std::fegetround(), raised = std::fetestexcept(FE_ALL_EXCEPT & ~FE_INEXACT);
  std::fesetenv(&before);
  setFlushing(false);
  EXPECT_EQ(e.rounding, rounding) << e.name;
  EXPECT_EQ(0, raised) << e.name;
  return output;
}
template <class T, class Call>
void expectSameEverywhere(std::vector<T>& output, const Call& call) {
  const std::vector<T> expected = outputIn(kEnvironments[0], output, call);
  for (const Environment& e : kEnvironments) EXPECT_EQ(expected, outputIn(e, output, call)) << e.name;
}

// On several threads, each of which has a mode of its own.
TEST(FloatEnvironment, Luma) {
  Random random;
  const QelSize size{4 * 64 + 3, 60};
  const size_t pixels = size_t(size.width * size.height);
  std::vector<uint8_t> planes[3], luma(pixels);
  for (auto& plane : planes) plane = random.vector<uint8_t>(pixels, 0, 255);
  const uint8_t* const sources[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
  core.threads = 2;
  expectSameEverywhere(
      luma, [&] { qeliRGBToY_JPEG_8u_P3C1R(sources, size.width, luma.data(), size.width, size); });
}

TEST(FloatEnvironment, Dct12) {
  Random random;
  constexpr size_t kBlocks = 500;
  const auto samples = random.vector<uint16_t>(64 * kBlocks, 0, 4095);
  const auto coefficients = random.vector<int16_t>(64 * kBlocks, -90, 90);
  std::vector<float> divided, multiplied;
  for (const int q : random.vector<int>(64, 1, 40)) divided.push_back(1.0f / float(q)), multiplied.push_back(float(q));
  std::vector<int16_t> forward(samples.size());
  expectSameEverywhere(forward, [&] {
    for (size_t i = 0; i < samples.size(); i += 64)
      qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R(&samples[i], 16, &forward[i], divided.data());
  });
  std::vector<uint16_t> inverse(samples.size());
  expectSameEverywhere(inverse, [&] {
    for (size_t i = 0; i < samples.size(); i += 64)
      qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R(&coefficients[i], &inverse[i], 16, multiplied.data());
  });
}

// Whose arithmetic is that of floats, as far as the 9/7 filter goes; the results fit in 32 bits.
TEST(FloatEnvironment, WaveletOf32BitTiles) {
  Random random;
  const QelRect tile{1, 0, 75, 41};
  const size_t count = size_t(tile.width * tile.height);
  const int32_t step = tile.width * 4;
  const auto image = random.vector<int32_t>(count, -(1 << 24), 1 << 24);
  int32_t bytes = 0;
  qeliWTGetBufSize_D97_JPEG2K_32s_C1R(&tile, &bytes);
  std::vector<uint8_t> work(static_cast<size_t>(bytes));
  std::vector<int32_t> output(count);
  for (const auto transform : {qeliWTFwd_D97_JPEG2K_32s_C1IR, qeliWTInv_D97_JPEG2K_32s_C1IR})
    expectSameEverywhere(output, [&] {
      output = image;
      transform(output.data(), step, &tile, work.data());
    });
  int32_t steps[4] = {step, step, step, step};
  const size_t quarter = count / 4;
  std::vector<int32_t> bands(4 * count);
  int32_t* const planes[4] = {&bands[0], &bands[count], &bands[2 * count], &bands[3 * count]};
  expectSameEverywhere(bands, [&] {
    qeliWTFwd_D97_JPEG2K_32s_C1R(image.data(), step, &tile, planes, steps, work.data());
  });
  const int32_t* const sources[4] = {&image[0], &image[quarter], &image[quarter / 2], &image[quarter / 3]};
  expectSameEverywhere(output, [&] {
    qeliWTInv_D97_JPEG2K_32s_C1R(sources, steps, output.data(), step, &tile, work.data());
  });
}

// Planes so far apart that a double cannot hold the sum.
TEST(FloatEnvironment, DistortionOfACodeBlock) {
  Random random;
  const QelSize size{32, 32};
  const auto samples = random.vector<int32_t>(1024, INT32_MIN, INT32_MAX);
  QelEncodeStateJPEG2K* state = nullptr;
  int32_t planes = 0, passes = 0, segments = 0;
  ASSERT_EQ(qelStatusOk, qeliEncodeInitAlloc_JPEG2K(&state, size));
  ASSERT_EQ(qelStatusOk, qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(samples.data(), 4 * size.width, size, state, 0, 31, 0,
                                                                0, 0, &planes, &passes, &segments));
  std::vector<double> distortions(static_cast<size_t>(passes));
  expectSameEverywhere(distortions, [&] {
    for (int32_t i = 0; i < passes; ++i) qeliEncodeGetDist_JPEG2K(state, i, &distortions[size_t(i)]);
  });
  EXPECT_LT(50, passes);
  qeliEncodeFree_JPEG2K(state);
}

// Blocks of a few colours among them, whose end-points meet.
TEST(FloatEnvironment, TextureEncoder) {
  Random random;
  const QelSize size{256, 64};
  std::vector<uint8_t> pixels(size_t(size.width * size.height * 4));
  for (int y = 0; y < size.height; y += 4)
    for (int x = 0; x < size.width; x += 4) {
      const auto span = int64_t(1) << random.in(0, 8), base = random.in(0, 256 - span);
      const bool opaque = random.chance(50);
      for (int i = 0; i < 64; ++i)
        pixels[size_t(((y + i / 16) * size.width + x) * 4 + i % 16)] =
            uint8_t(opaque && i % 4 == 3 ? 255 : base + random.in(0, span - 1));
    }
  std::vector<uint8_t> blocks(pixels.size() / 4);
  expectSameEverywhere(blocks, [&] {
    qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(pixels.data(), 4 * size.width, size, blocks.data());
  });
}

// Integers only; but shifts by lane, which compilers make of float operations where the processor has none.
TEST(FloatEnvironment, TextureDecoder) {
  Random random;
  const auto blocks = random.vector<uint8_t>(16 * 1024, 0, 255);
  std::vector<uint16_t> pixels(size_t(128 * 128 * 3));
  expectSameEverywhere(pixels, [&] {
    qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R(blocks.data(), pixels.data(), 128 * 6, 128, 128);
  });
  expectSameEverywhere(pixels, [&] {
    qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R(blocks.data(), reinterpret_cast<int16_t*>(pixels.data()), 128 * 6, 128,
                                              128);
  });
}

}  // namespace
}  // namespace qelj::test
