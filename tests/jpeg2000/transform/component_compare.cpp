#include "support/compare.h"

namespace qelj::test {
namespace {

// Three planes and an image of pixels, of finite samples.
template <class T>
struct Images {
  QelSize size;
  Guarded a, b, c, pixels;

  explicit Images(Random& random)
      : Images(random, size_t(random.in(1, 120)), size_t(random.in(1, 9)), size_t(random.in(0, 9))) {}
  Images(Random& random, size_t width, size_t height, size_t gap)
      : size{int32_t(width), int32_t(height)},
        a(plane(random, width, height, gap)),
        b(plane(random, width, height, gap)),
        c(plane(random, width, height, gap)),
        pixels(random, 3 * width * sizeof(T), height, 3 * width * sizeof(T) + gap, size_t(random.in(0, 33))) {
    for (Guarded* buffer : {&a, &b, &c, &pixels})
      for (size_t y = 0; y < height; ++y)
        for (size_t x = 0; std::is_floating_point_v<T> && x < buffer->rowBytes() / sizeof(T); ++x) {
          const T value = T(random.in(-1000000, 1000000)) / T(64);
          std::memcpy(buffer->data(y) + x * sizeof(T), &value, sizeof value);
        }
  }
  static Guarded plane(Random& random, size_t width, size_t height, size_t gap) {
    return {random, width * sizeof(T), height, width * sizeof(T) + gap, size_t(random.in(0, 33))};
  }
};

template <class T>
constexpr auto planesInPlace = [](auto* function, Random& random, Trace& trace) {
  Images<T> i(random);
  T* const planes[3] = {i.a.template data<T>(), i.b.template data<T>(), i.c.template data<T>()};
  trace.status(function(planes, i.a.step(), i.size));
  for (const Guarded* plane : {&i.a, &i.b, &i.c}) trace.buffer(*plane);
};
template <class T>
constexpr auto toPlanes = [](auto* function, Random& random, Trace& trace) {
  Images<T> i(random);
  T* const planes[3] = {i.a.template data<T>(), i.b.template data<T>(), i.c.template data<T>()};
  trace.status(function(i.pixels.template data<T>(), i.pixels.step(), planes, i.a.step(), i.size));
  for (const Guarded* plane : {&i.a, &i.b, &i.c}) trace.buffer(*plane);
};
template <class T>
constexpr auto toPixels = [](auto* function, Random& random, Trace& trace) {
  Images<T> i(random);
  const T* const planes[3] = {i.a.template data<T>(), i.b.template data<T>(), i.c.template data<T>()};
  trace.status(function(planes, i.a.step(), i.pixels.template data<T>(), i.pixels.step(), i.size));
  trace.buffer(i.pixels);
};

QELJ_COMPARE(qeliRCTFwd_JPEG2K_16s_C3P3R, toPlanes<int16_t>);
QELJ_COMPARE(qeliRCTFwd_JPEG2K_32s_C3P3R, toPlanes<int32_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_32f_C3P3R, toPlanes<float>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_16s_P3C3R, toPixels<int16_t>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_32s_P3C3R, toPixels<int32_t>);
QELJ_COMPARE(qeliICTInv_JPEG2K_32f_P3C3R, toPixels<float>);
QELJ_COMPARE(qeliRCTFwd_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliRCTFwd_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_32f_P3IR, planesInPlace<float>);
QELJ_COMPARE(qeliICTInv_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliICTInv_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliICTInv_JPEG2K_32f_P3IR, planesInPlace<float>);

}  // namespace
}  // namespace qelj::test
