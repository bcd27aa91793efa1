// RGB, BGR, packed and CMYK pixels or planes to Y, YCbCr and YCCK planes of full resolution.
#include "frame/fronts.h"
#include "frame/rounding.h"
#include "jpeg/sample/pixels.h"

namespace qelj {
namespace {
using namespace jpeg::colour;

// Whole groups of kTogether pixels in the Main form, the last pixels of the row in the Tail form. A row's kernel is a
// variable, an argument of convertRows: read ownForwardRow<Main, Tail, kTogether> as a function of (source, sink, width).
template <class Main, class Tail, int kTogether>
constexpr auto ownForwardRow = [](auto source, auto sink, ptrdiff_t width) {
  const ptrdiff_t main = width / kTogether * kTogether;
  if (simd::kEnabled && width >= kFewPixels)
    return coverByGroups(
        source, sink, width, main,
        [](const auto& from, const auto& to, auto at) QELJ_INLINE_LAMBDA {
          if constexpr (OfDifferences<Main, decltype(from)>) {
            to.group(at, {toYcc<Main>(from.differences(at)), Bytes{}});
          } else {
            const auto p = from.group(at);
            to.group(at, {toYcc<Main>(p.rgb), p.k});
          }
        },
        [](const auto& from, const auto& to, auto at, auto count) QELJ_INLINE_LAMBDA {
          if constexpr (OfDifferences<Main, decltype(from)>) {
            to.group(at, {toYcc<Main, Tail>(from.differences(at), count), Bytes{}});
          } else {
            const auto p = from.group(at);
            to.group(at, {toYcc<Main, Tail>(p.rgb, count), p.k});
          }
        });
  ptrdiff_t x = 0;
  if constexpr (!simd::kEnabled || kTogether < kFewPixels)  // else a row that comes here has no whole group
    for (; x < main; ++x) {
      const auto p = source.pixel(x);
      sink.pixel(x, {toYcc<Main>(p.rgb), uint8_t(p.k)});
    }
  for (; x < width; ++x) {
    const auto p = source.pixel(x);
    sink.pixel(x, {toYcc<Tail>(p.rgb), uint8_t(p.k)});
  }
};

constexpr auto ownPixelsRow = ownForwardRow<MatrixForm<kQ15>, MatrixForm<kQ14>, 8>;
constexpr auto ownAlphaPixelsRow = ownForwardRow<TruncatedForm, MatrixForm<kQ14Quarter>, 8>;
constexpr auto ownPlanesRow = ownForwardRow<DifferenceForm, MatrixForm<kQ16>, 4>;
constexpr auto ownPixelLumaRow = ownForwardRow<MatrixForm<kQ15>, MatrixForm<kQ15>, 1>;
constexpr auto ownPlaneLumaRow = [](auto source, auto sink, ptrdiff_t width) {
  const RoundToNearest rounding;  // in the row, for every thread has a mode of its own
  ownForwardRow<FloatLumaForm, MatrixForm<kQ16>, 4>(source, sink, width);
};
constexpr auto ownQ14Row = ownForwardRow<MatrixForm<kQ14>, MatrixForm<kQ14>, 1>;

template <class Order>
QelStatus pixels3(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size) {
  return convertRows<RowWalk::kFork, PixelSource<Order, 3>, YccSink<3>>(src, srcStep, dst, dstStep, size, ownPixelsRow);
}
template <class Order>
QelStatus pixels4(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size) {
  return convertRows<RowWalk::kSerialAnyStep, PixelSource<Order, 4>, YccSink<3>>(src, srcStep, dst, dstStep, size,
                                                                                 ownAlphaPixelsRow);
}
template <class Order>
QelStatus luma(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size) {
  return convertRows<RowWalk::kFork, PixelSource<Order, 3>, LumaSink>(src, srcStep, dst, dstStep, size,
                                                                      ownPixelLumaRow);
}
template <class Order, int kGreenBits>
QelStatus packed(const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size) {
  return convertRows<RowWalk::kSerial, PackedSource<Order, kGreenBits>, YccSink<3>>(src, srcStep, dst, dstStep, size,
                                                                                    ownQ14Row);
}

}  // namespace

QelStatus qeliRGBToYCbCr_JPEG_8u_C3P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                       QelSize size) {
  return pixels3<RgbOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGRToYCbCr_JPEG_8u_C3P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                       QelSize size) {
  return pixels3<BgrOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRGBToYCbCr_JPEG_8u_C4P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                       QelSize size) {
  return pixels4<RgbOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGRToYCbCr_JPEG_8u_C4P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                       QelSize size) {
  return pixels4<BgrOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRGBToYCbCr_JPEG_8u_P3R(const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                     QelSize size) {
  return convertRows<RowWalk::kFork, PlaneSource, YccSink<3>>(src, srcStep, dst, dstStep, size, ownPlanesRow);
}
QelStatus qeliRGBToY_JPEG_8u_C3C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size) {
  return luma<RgbOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGRToY_JPEG_8u_C3C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size) {
  return luma<BgrOrder>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRGBToY_JPEG_8u_P3C1R(const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                   QelSize size) {
  return convertRows<RowWalk::kFork, PlaneSource, LumaSink>(src, srcStep, dst, dstStep, size, ownPlaneLumaRow);
}
QelStatus qeliCMYKToYCCK_JPEG_8u_C4P4R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                       QelSize size) {
  return convertRows<RowWalk::kFork, CmykPixelSource, YccSink<4>>(src, srcStep, dst, dstStep, size, ownQ14Row);
}
QelStatus qeliCMYKToYCCK_JPEG_8u_P4R(const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                     QelSize size) {
  return convertRows<RowWalk::kFork, CmykPlaneSource, YccSink<4>>(src, srcStep, dst, dstStep, size, ownPlanesRow);
}
QelStatus qeliRGB555ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<RgbOrder, 5>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGR555ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<BgrOrder, 5>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRGB565ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<RgbOrder, 6>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGR565ToYCbCr_JPEG_16u8u_C3P3R(const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep,
                                             QelSize size) {
  return packed<BgrOrder, 6>(src, srcStep, dst, dstStep, size);
}

}  // namespace qelj
