#include "jpeg/sample/operand.h"

namespace qelj::test {
namespace {

template <class From, class To>
constexpr auto shift = [](auto* function, Case& c) {
  const QelSize size = drawnExtent(c).size;
  const int32_t srcStep = drawnStep(c, size.width * int32_t(sizeof(From)), Overlap::yes, Tested::yes);
  const int32_t dstStep = drawnStep(c, size.width * int32_t(sizeof(To)), Overlap::no, Tested::yes);
  auto& src = c.region<From>(size.width, size.height, srcStep);
  auto& dst = c.region<To>(size.width, size.height, dstStep);
  if (sizeof(From) == 2 && c.chance(60)) src.fill([&] { return c.in(-150, 150); });
  c.call(function, src.data(), Step{srcStep}, dst.data(), Step{dstStep}, size);
};

QELJ_COMPARE(qeliSub128_JPEG_8u16s_C1R, shift<uint8_t, int16_t>);
QELJ_COMPARE(qeliAdd128_JPEG_16s8u_C1R, shift<int16_t, uint8_t>);

}  // namespace
}  // namespace qelj::test
