#include "support/compare.h"

namespace qelj::test {
namespace {

// Three planes, chroma of half the columns and 1 / kRows of the rows.
struct Planes {
  Guarded y, cb, cr;
  int32_t step[3];
  uint8_t* plane[3];
  Planes(Random& random, size_t width, size_t height, size_t rows)
      : y(random, width, height, width + random.bits() % 9, random.bits() % 34),
        cb(random, width / 2, height / rows, width / 2 + random.bits() % 9, random.bits() % 34),
        cr(random, width / 2, height / rows, width / 2 + random.bits() % 9, random.bits() % 34),
        step{y.step(), cb.step(), cr.step()},
        plane{y.data(), cb.data(), cr.data()} {}
};

template <size_t kChannels, size_t kRows>
constexpr auto forward = [](auto* function, Random& random, Trace& trace) {
  const auto width = size_t(random.in(2, 200)), height = size_t(random.in(2, 12));
  Guarded src(random, width * kChannels, height, 0, size_t(random.in(0, 33)));
  if (random.chance(20))
    for (size_t i = 0; i < height * width * kChannels; ++i) src.data()[i] = random.chance(50) ? 0 : 255;
  Planes dst(random, width, height, kRows);
  trace.status(function(src.data(), src.step(), dst.plane, dst.step, {int32_t(width), int32_t(height)}));
  for (const auto* p : {&dst.y, &dst.cb, &dst.cr}) trace.buffer(*p);
};
template <size_t kChannels, size_t kRows>
constexpr auto inverse = []<class... Alpha>(QelStatus (*function)(const uint8_t* const*, const int32_t*,
                                                                  uint8_t*, int32_t, QelSize, Alpha...),
                                            Random& random, Trace& trace) {
  const auto width = size_t(random.in(2, 200)), height = size_t(random.in(2, 12));
  Planes src(random, width, height, kRows);
  Guarded dst(random, width * kChannels, height, width * kChannels + random.bits() % 9,
              size_t(random.in(0, 33)));
  const QelSize size{int32_t(width), int32_t(height)};
  trace.status(function(src.plane, src.step, dst.data(), dst.step(), size, Alpha(random.bits())...));
  trace.buffer(dst);
};

QELJ_COMPARE(qeliRGBToYCbCr422_JPEG_8u_C3P3R, forward<3, 1>);
QELJ_COMPARE(qeliBGRToYCbCr422_JPEG_8u_C3P3R, forward<3, 1>);
QELJ_COMPARE(qeliRGBToYCbCr422_JPEG_8u_C4P3R, forward<4, 1>);
QELJ_COMPARE(qeliBGRToYCbCr422_JPEG_8u_C4P3R, forward<4, 1>);
QELJ_COMPARE(qeliRGBToYCbCr411_JPEG_8u_C3P3R, forward<3, 2>);
QELJ_COMPARE(qeliBGRToYCbCr411_JPEG_8u_C3P3R, forward<3, 2>);
QELJ_COMPARE(qeliRGBToYCbCr411_JPEG_8u_C4P3R, forward<4, 2>);
QELJ_COMPARE(qeliBGRToYCbCr411_JPEG_8u_C4P3R, forward<4, 2>);
QELJ_COMPARE(qeliYCbCr422ToRGB_JPEG_8u_P3C3R, inverse<3, 1>);
QELJ_COMPARE(qeliYCbCr422ToBGR_JPEG_8u_P3C3R, inverse<3, 1>);
QELJ_COMPARE(qeliYCbCr422ToRGB_JPEG_8u_P3C4R, inverse<4, 1>);
QELJ_COMPARE(qeliYCbCr422ToBGR_JPEG_8u_P3C4R, inverse<4, 1>);
QELJ_COMPARE(qeliYCbCr411ToRGB_JPEG_8u_P3C3R, inverse<3, 2>);
QELJ_COMPARE(qeliYCbCr411ToBGR_JPEG_8u_P3C3R, inverse<3, 2>);
QELJ_COMPARE(qeliYCbCr411ToRGB_JPEG_8u_P3C4R, inverse<4, 2>);
QELJ_COMPARE(qeliYCbCr411ToBGR_JPEG_8u_P3C4R, inverse<4, 2>);
QELJ_COMPARE(qeliYCbCr422ToRGB_JPEG_8u_C2C3R, [](auto* function, Random& random, Trace& trace) {
  const auto width = size_t(random.in(1, 300)), height = size_t(random.in(1, 40)), even = (width + 1) / 2 * 2;
  Guarded src(random, 2 * even, height, 0, size_t(random.in(0, 33)));
  Guarded dst(random, 3 * even, height, 3 * width + size_t(random.in(0, 9)), size_t(random.in(0, 33)));
  trace.status(function(src.data(), src.step(), dst.data(), dst.step(), {int32_t(width), int32_t(height)}));
  trace.buffer(dst);
});

}  // namespace
}  // namespace qelj::test
