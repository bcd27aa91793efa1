// YCbCr and YCCK planes of full resolution to RGB, BGR, packed and CMYK pixels or planes.
#include "frame/fronts.h"
#include "jpeg/sample/pixels.h"

namespace qelj {
namespace {
using namespace jpeg::colour;

// Whole groups of four pixels in the Main form, the last pixels of the row in the Tail form. A row's kernel is a
// variable, an argument of convertRows: read ownInverseRow<Main, Tail> as a function of (source, sink, width).
template <class Main, class Tail>
constexpr auto ownInverseRow = [](auto source, auto sink, ptrdiff_t width) {
  const ptrdiff_t main = std::is_same_v<Main, Tail> ? width : width / 4 * 4;
  if (simd::kEnabled && width >= kFewPixels)
    return coverByGroups(
        source, sink, width, main,
        [](const auto& from, const auto& to, auto at) QELJ_INLINE_LAMBDA {
          const auto p = from.group(at);
          to.group(at, {toRgb<Main>(p.ycc), p.k});
        },
        [](const auto& from, const auto& to, auto at, auto count) QELJ_INLINE_LAMBDA {
          const auto p = from.group(at);
          to.group(at, {toRgb<Main, Tail>(p.ycc, count), p.k});
        });
  ptrdiff_t x = 0;
  if constexpr (!simd::kEnabled)  // else a row that comes here has no whole group
    for (; x < main; ++x) {
      const auto p = source.pixel(x);
      sink.pixel(x, {toRgb<Main>(p.ycc), p.k});
    }
  for (; x < width; ++x) {
    const auto p = source.pixel(x);
    sink.pixel(x, {toRgb<Tail>(p.ycc), p.k});
  }
};

constexpr auto ownPixelsRow = ownInverseRow<PixelQ14Form, InverseQ16Form>;
constexpr auto ownPlanesRow = ownInverseRow<PlaneQ14Form, InverseQ16Form>;
constexpr auto ownAlphaPixelsRow = ownInverseRow<InverseQ4Form, InverseQ4Form>;

template <class Order>
QelStatus pixels3(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size) {
  return convertRows<RowWalk::kFork, YccSource<3>, PixelSink<Order>>(src, srcStep, dst, dstStep, size, ownPixelsRow);
}
template <class Order>
QelStatus pixels4(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size,
                  uint8_t alpha) {
  return convertRows<RowWalk::kSerialAnyStep, YccSource<3>, AlphaPixelSink<Order>>(src, srcStep, dst, dstStep, size,
                                                                                   ownAlphaPixelsRow, alpha);
}
template <class Order, int kGreenBits>
QelStatus packed(const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QelSize size) {
  return convertRows<RowWalk::kSerial, YccSource<3>, PackedSink<Order, kGreenBits>>(src, srcStep, dst, dstStep, size,
                                                                                    ownPlanesRow);
}

}  // namespace

QelStatus qeliYCbCrToRGB_JPEG_8u_P3C3R(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                       QelSize size) {
  return pixels3<RgbOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCrToBGR_JPEG_8u_P3C3R(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                       QelSize size) {
  return pixels3<BgrOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCrToRGB_JPEG_8u_P3R(const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                     QelSize size) {
  return convertRows<RowWalk::kFork, YccSource<3>, PlaneSink>(src, srcStep, dst, dstStep, size, ownPlanesRow);
}
QelStatus qeliYCbCrToRGB_JPEG_8u_P3C4R(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                       QelSize size, uint8_t alpha) {
  return pixels4<RgbOrder>(src, srcStep, dst, dstStep, size, alpha);
}
QelStatus qeliYCbCrToBGR_JPEG_8u_P3C4R(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                       QelSize size, uint8_t alpha) {
  return pixels4<BgrOrder>(src, srcStep, dst, dstStep, size, alpha);
}
QelStatus qeliYCCKToCMYK_JPEG_8u_P4C4R(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                       QelSize size) {
  return convertRows<RowWalk::kFork, YccSource<4>, CmykPixelSink>(src, srcStep, dst, dstStep, size, ownPlanesRow);
}
QelStatus qeliYCCKToCMYK_JPEG_8u_P4R(const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                     QelSize size) {
  return convertRows<RowWalk::kFork, YccSource<4>, CmykPlaneSink>(src, srcStep, dst, dstStep, size, ownPlanesRow);
}
QelStatus qeliYCbCrToRGB555_JPEG_8u16u_P3C3R(const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<RgbOrder, 5>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCrToBGR555_JPEG_8u16u_P3C3R(const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<BgrOrder, 5>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCrToRGB565_JPEG_8u16u_P3C3R(const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<RgbOrder, 6>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCrToBGR565_JPEG_8u16u_P3C3R(const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<BgrOrder, 6>(src, srcStep, dst, dstStep, size);
}

}  // namespace qelj
