#include "support/compare.h"

namespace qelj::test {
namespace {

template <class From, class To>
constexpr auto shift = [](auto* function, Case& c) {
  const QelSize size = c.size(300, 40);
  auto& src = c.rows<From>(size.width, size.height);
  auto& dst = c.rows<To>(size.width, size.height);
  c.call(function, src.data(), Step{src.step()}, dst.data(), Step{dst.step()}, size);
};

QELJ_COMPARE(qeliSub128_JPEG_8u16s_C1R, shift<uint8_t, int16_t>);
QELJ_COMPARE(qeliAdd128_JPEG_16s8u_C1R, shift<int16_t, uint8_t>);

}  // namespace
}  // namespace qelj::test
