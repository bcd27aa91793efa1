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

template <int PixelBytes, int Across, int Down, int Planes>
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

template <int PixelBytes, int Across, int Down, int Planes>
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

#define COMPARE_THREE(before, after, operation, pixelBytes, planes)      \
  QELJ_COMPARE(before##444##after, operation<pixelBytes, 1, 1, planes>); \
  QELJ_COMPARE(before##422##after, operation<pixelBytes, 2, 1, planes>); \
  QELJ_COMPARE(before##411##after, operation<pixelBytes, 2, 2, planes>)

COMPARE_THREE(qeliRGBToYCbCr, LS_MCU_8u16s_C3P3R, forward, 3, 3);
COMPARE_THREE(qeliBGRToYCbCr, LS_MCU_8u16s_C3P3R, forward, 3, 3);
COMPARE_THREE(qeliBGR555ToYCbCr, LS_MCU_16u16s_C3P3R, forward, 2, 3);
COMPARE_THREE(qeliBGR565ToYCbCr, LS_MCU_16u16s_C3P3R, forward, 2, 3);
COMPARE_THREE(qeliCMYKToYCCK, LS_MCU_8u16s_C4P4R, forward, 4, 4);
COMPARE_THREE(qeliSampleDown, LS_MCU_8u16s_C3P3R, forward, 3, 3);
QELJ_COMPARE(qeliSplit422LS_MCU_8u16s_C2P3R, forward<2, 2, 1, 3>);
COMPARE_THREE(qeliYCbCr, ToRGBLS_MCU_16s8u_P3C3R, inverse, 3, 3);
COMPARE_THREE(qeliYCbCr, ToBGRLS_MCU_16s8u_P3C3R, inverse, 3, 3);
COMPARE_THREE(qeliYCbCr, ToBGR555LS_MCU_16s16u_P3C3R, inverse, 2, 3);
COMPARE_THREE(qeliYCbCr, ToBGR565LS_MCU_16s16u_P3C3R, inverse, 2, 3);
COMPARE_THREE(qeliYCCK, ToCMYKLS_MCU_16s8u_P4C4R, inverse, 4, 4);
COMPARE_THREE(qeliSampleUp, LS_MCU_16s8u_P3C3R, inverse, 3, 3);
QELJ_COMPARE(qeliJoin422LS_MCU_16s8u_P3C2R, inverse<2, 2, 1, 3>);

}  // namespace
}  // namespace qelj::test
