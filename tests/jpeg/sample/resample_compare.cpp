#include "support/compare.h"

namespace qelj::test {
namespace {

constexpr auto plane = [](auto* function, Random& random, Trace& trace) {
  const auto width = size_t(random.in(1, 300)), height = size_t(random.in(1, 40));
  Guarded src(random, 2 * width + 4, 2 * height + 2, 0, size_t(random.in(0, 33)));
  Guarded dst(random, width, height, width + size_t(random.in(0, 9)), size_t(random.in(0, 33)));
  const QelSize size{int32_t(width), int32_t(height)};
  trace.status(function(src.data(1) + 1, src.step(), {1, 1}, dst.data(), dst.step(), size));
  trace.buffer(dst);
};
template <bool kTwoRows>
constexpr auto line = [](auto* function, Random& random, Trace& trace) {
  const auto width = int32_t(random.in(1, random.chance(50) ? 40 : 400));
  Guarded src(random, size_t(width) + 1, 2, 0, size_t(random.in(0, 33)));
  Guarded dst(random, 2 * size_t(width), 1, 0, size_t(random.in(0, 33)));
  if constexpr (kTwoRows)
    trace.status(function(src.data(), src.data(1), width, dst.data()));
  else
    trace.status(function(src.data(), width, dst.data()));
  trace.buffer(dst);
};

QELJ_COMPARE(qeliSampleDownH2V1_JPEG_8u_C1R, plane);
QELJ_COMPARE(qeliSampleDownH2V2_JPEG_8u_C1R, plane);
QELJ_COMPARE(qeliSampleUpH2V1_JPEG_8u_C1R, plane);
QELJ_COMPARE(qeliSampleUpH2V2_JPEG_8u_C1R, plane);
QELJ_COMPARE(qeliSampleDownRowH2V1_Box_JPEG_8u_C1, line<false>);
QELJ_COMPARE(qeliSampleDownRowH2V2_Box_JPEG_8u_C1, line<true>);
QELJ_COMPARE(qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1, line<false>);
QELJ_COMPARE(qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1, line<true>);

}  // namespace
}  // namespace qelj::test
