#include "support/compare.h"

namespace qelj::test {
namespace {

// Planes on or off their 16-byte boundaries.
template <int Across, int Down, int Planes>
std::vector<Guarded> blocks(Random& random) {
  std::vector<Guarded> all;
  const bool aligned = random.chance(50);
  for (int i = 0; i < Planes; ++i)
    all.emplace_back(random, (i % 3 == 0 ? Across * Down : 1) * 128, 1, 0,
                     size_t(aligned || random.chance(50) ? 16 : random.in(0, 31)));
  return all;
}

template <int PixelBytes, int Across, int Down, int Planes = 3>
constexpr auto forward = [](auto* function, Random& random, Trace& trace) {
  Guarded src(random, 8 * Across * PixelBytes, 8 * Down, 8 * Across * PixelBytes + size_t(random.in(0, 9)),
              size_t(random.in(0, 33)));
  auto planes = blocks<Across, Down, Planes>(random);
  int16_t* dst[Planes];
  for (size_t i = 0; i < Planes; ++i) dst[i] = planes[i].template data<int16_t>();
  using Sample = std::conditional_t<std::is_invocable_v<decltype(*function), uint8_t*, int32_t, int16_t**>,
                                    uint8_t, uint16_t>;
  trace.status(function(src.data<Sample>(), src.step(), dst));
  for (const auto& plane : planes) trace.buffer(plane);
};

template <int PixelBytes, int Across, int Down, int Planes = 3>
constexpr auto inverse = [](auto* function, Random& random, Trace& trace) {
  Guarded dst(
      random, 8 * Across * PixelBytes, 8 * Down,
      8 * Across * PixelBytes - size_t(random.chance(10) ? random.in(1, 15) : 0) + size_t(random.in(0, 9)),
      size_t(random.in(0, 33)));
  auto planes = blocks<Across, Down, Planes>(random);
  const int16_t* src[Planes];
  const int64_t range = random.chance(50) ? 200 : 32768;
  for (size_t i = 0; i < Planes; ++i) {
    const auto samples = random.vector<int16_t>(planes[i].rowBytes() / 2, -range, range - 1);
    std::memcpy(planes[i].data(), samples.data(), planes[i].rowBytes());
    src[i] = planes[i].template data<int16_t>();
  }
  using Sample = std::conditional_t<std::is_invocable_v<decltype(*function), int16_t**, uint8_t*, int32_t>,
                                    uint8_t, uint16_t>;
  trace.status(function(src, dst.data<Sample>(), dst.step()));
  trace.buffer(dst);
};

QELJ_COMPARE(qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R, forward<3, 1, 1>);
QELJ_COMPARE(qeliRGBToYCbCr422LS_MCU_8u16s_C3P3R, forward<3, 2, 1>);
QELJ_COMPARE(qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R, forward<3, 2, 2>);
QELJ_COMPARE(qeliBGRToYCbCr444LS_MCU_8u16s_C3P3R, forward<3, 1, 1>);
QELJ_COMPARE(qeliBGRToYCbCr422LS_MCU_8u16s_C3P3R, forward<3, 2, 1>);
QELJ_COMPARE(qeliBGRToYCbCr411LS_MCU_8u16s_C3P3R, forward<3, 2, 2>);
QELJ_COMPARE(qeliBGR555ToYCbCr444LS_MCU_16u16s_C3P3R, forward<2, 1, 1>);
QELJ_COMPARE(qeliBGR555ToYCbCr422LS_MCU_16u16s_C3P3R, forward<2, 2, 1>);
QELJ_COMPARE(qeliBGR555ToYCbCr411LS_MCU_16u16s_C3P3R, forward<2, 2, 2>);
QELJ_COMPARE(qeliBGR565ToYCbCr444LS_MCU_16u16s_C3P3R, forward<2, 1, 1>);
QELJ_COMPARE(qeliBGR565ToYCbCr422LS_MCU_16u16s_C3P3R, forward<2, 2, 1>);
QELJ_COMPARE(qeliBGR565ToYCbCr411LS_MCU_16u16s_C3P3R, forward<2, 2, 2>);
QELJ_COMPARE(qeliCMYKToYCCK444LS_MCU_8u16s_C4P4R, forward<4, 1, 1, 4>);
QELJ_COMPARE(qeliCMYKToYCCK422LS_MCU_8u16s_C4P4R, forward<4, 2, 1, 4>);
QELJ_COMPARE(qeliCMYKToYCCK411LS_MCU_8u16s_C4P4R, forward<4, 2, 2, 4>);
QELJ_COMPARE(qeliSampleDown444LS_MCU_8u16s_C3P3R, forward<3, 1, 1>);
QELJ_COMPARE(qeliSampleDown422LS_MCU_8u16s_C3P3R, forward<3, 2, 1>);
QELJ_COMPARE(qeliSampleDown411LS_MCU_8u16s_C3P3R, forward<3, 2, 2>);
QELJ_COMPARE(qeliSplit422LS_MCU_8u16s_C2P3R, forward<2, 2, 1>);

QELJ_COMPARE(qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R, inverse<3, 1, 1>);
QELJ_COMPARE(qeliYCbCr422ToRGBLS_MCU_16s8u_P3C3R, inverse<3, 2, 1>);
QELJ_COMPARE(qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R, inverse<3, 2, 2>);
QELJ_COMPARE(qeliYCbCr444ToBGRLS_MCU_16s8u_P3C3R, inverse<3, 1, 1>);
QELJ_COMPARE(qeliYCbCr422ToBGRLS_MCU_16s8u_P3C3R, inverse<3, 2, 1>);
QELJ_COMPARE(qeliYCbCr411ToBGRLS_MCU_16s8u_P3C3R, inverse<3, 2, 2>);
QELJ_COMPARE(qeliYCbCr444ToBGR555LS_MCU_16s16u_P3C3R, inverse<2, 1, 1>);
QELJ_COMPARE(qeliYCbCr422ToBGR555LS_MCU_16s16u_P3C3R, inverse<2, 2, 1>);
QELJ_COMPARE(qeliYCbCr411ToBGR555LS_MCU_16s16u_P3C3R, inverse<2, 2, 2>);
QELJ_COMPARE(qeliYCbCr444ToBGR565LS_MCU_16s16u_P3C3R, inverse<2, 1, 1>);
QELJ_COMPARE(qeliYCbCr422ToBGR565LS_MCU_16s16u_P3C3R, inverse<2, 2, 1>);
QELJ_COMPARE(qeliYCbCr411ToBGR565LS_MCU_16s16u_P3C3R, inverse<2, 2, 2>);
QELJ_COMPARE(qeliYCCK444ToCMYKLS_MCU_16s8u_P4C4R, inverse<4, 1, 1, 4>);
QELJ_COMPARE(qeliYCCK422ToCMYKLS_MCU_16s8u_P4C4R, inverse<4, 2, 1, 4>);
QELJ_COMPARE(qeliYCCK411ToCMYKLS_MCU_16s8u_P4C4R, inverse<4, 2, 2, 4>);
QELJ_COMPARE(qeliSampleUp444LS_MCU_16s8u_P3C3R, inverse<3, 1, 1>);
QELJ_COMPARE(qeliSampleUp422LS_MCU_16s8u_P3C3R, inverse<3, 2, 1>);
QELJ_COMPARE(qeliSampleUp411LS_MCU_16s8u_P3C3R, inverse<3, 2, 2>);
QELJ_COMPARE(qeliJoin422LS_MCU_16s8u_P3C2R, inverse<2, 2, 1>);

}  // namespace
}  // namespace qelj::test
