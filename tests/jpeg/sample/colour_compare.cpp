#include "jpeg/sample/operand.h"

namespace qelj::test {
namespace {

using Luma = Operand<uint8_t, 1, 0>;
using Pixels3 = Operand<uint8_t, 3, 0>;
using Pixels4 = Operand<uint8_t, 4, 0>;
using Packed = Operand<uint16_t, 1, 0>;
using Planes3 = Operand<uint8_t, 1, 3>;
using Planes4 = Operand<uint8_t, 1, 4>;

constexpr int kMany = 1000;

template <class From, class To, Tested kSteps = Tested::yes>
constexpr auto convert = []<class Src, class Dst, class... Alpha>(
                             QelStatus (*function)(Src, int32_t, Dst, int32_t, QelSize, Alpha...), Case& c) {
  const Extent extent = drawnExtent(c, To::kStreamedBytes);
  const From src = From::source(c, extent, kSteps);
  const To dst = To::destination(c, extent.size, kSteps);
  [[maybe_unused]] const auto alpha = uint8_t(c.in(0, 255));
  using S = std::conditional_t<kSteps == Tested::yes, Step, int32_t>;
  c.call(function, src.argument(), S{src.step}, dst.argument(), S{dst.step}, extent.size, Alpha(alpha)...);
};

QELJ_COMPARE_ORDERS(qeli, ToYCbCr_JPEG_8u_C3P3R, convert<Pixels3, Planes3>, kMany);
QELJ_COMPARE_ORDERS(qeli, ToYCbCr_JPEG_8u_C4P3R, convert<Pixels4, Planes3, Tested::no>, kMany);
QELJ_COMPARE_ORDERS(qeli, ToY_JPEG_8u_C3C1R, convert<Pixels3, Luma>, kMany);
QELJ_COMPARE_ORDERS(qeli, 555ToYCbCr_JPEG_16u8u_C3P3R, convert<Packed, Planes3>, kMany);
QELJ_COMPARE_ORDERS(qeli, 565ToYCbCr_JPEG_16u8u_C3P3R, convert<Packed, Planes3>, kMany);
QELJ_COMPARE(qeliRGBToYCbCr_JPEG_8u_P3R, convert<Planes3, Planes3>, kMany);
QELJ_COMPARE(qeliRGBToY_JPEG_8u_P3C1R, convert<Planes3, Luma>, kMany);
QELJ_COMPARE(qeliCMYKToYCCK_JPEG_8u_C4P4R, convert<Pixels4, Planes4>, kMany);
QELJ_COMPARE(qeliCMYKToYCCK_JPEG_8u_P4R, convert<Planes4, Planes4>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCrTo, _JPEG_8u_P3C3R, convert<Planes3, Pixels3>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCrTo, _JPEG_8u_P3C4R, convert<Planes3, Pixels4, Tested::no>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCrTo, 555_JPEG_8u16u_P3C3R, convert<Planes3, Packed>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCrTo, 565_JPEG_8u16u_P3C3R, convert<Planes3, Packed>, kMany);
QELJ_COMPARE(qeliYCbCrToRGB_JPEG_8u_P3R, convert<Planes3, Planes3>, kMany);
QELJ_COMPARE(qeliYCCKToCMYK_JPEG_8u_P4C4R, convert<Planes4, Pixels4>, kMany);
QELJ_COMPARE(qeliYCCKToCMYK_JPEG_8u_P4R, convert<Planes4, Planes4>, kMany);

}  // namespace
}  // namespace qelj::test
