#include "support/compare.h"

namespace qelj::test {
namespace {

template <class From, class To>
constexpr auto shift = [](auto* function, Random& random, Trace& trace) {
  const auto width = size_t(random.in(1, 200)), height = size_t(random.in(1, 60));
  const auto gap = size_t(random.in(0, 9));
  Guarded src(random, width * sizeof(From), height, width * sizeof(From) + gap, size_t(random.in(0, 33)));
  Guarded dst(random, width * sizeof(To), height, width * sizeof(To) + gap, size_t(random.in(0, 33)));
  trace.status(
      function(src.data<From>(), src.step(), dst.data<To>(), dst.step(), {int32_t(width), int32_t(height)}));
  trace.buffer(dst);
};

QELJ_COMPARE(qeliSub128_JPEG_8u16s_C1R, shift<uint8_t, int16_t>);
QELJ_COMPARE(qeliAdd128_JPEG_16s8u_C1R, shift<int16_t, uint8_t>);

}  // namespace
}  // namespace qelj::test
