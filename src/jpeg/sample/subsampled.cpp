// RGB and BGR pixels to and from YCbCr planes (or packed 4:2:2) whose chroma has half the columns, or half
// the columns and half the rows.
#include <cstdlib>
#include <cstring>

#include "frame/fronts.h"
#include "jpeg/sample/pixels.h"

namespace qelj {
namespace {
using namespace jpeg::colour;

// --- Forward: the colours of a chroma sample's pixels are added up first, then converted -------------------

using ForwardMain = TruncatedForm;         // pixels in whole groups of eight
using ForwardTail = MatrixForm<kQ14Half>;  // the pairs behind them

struct YccRows {
  uint8_t *y[2], *cb, *cr;
};

template <int kRows, class Source>
QELJ_INLINE void ownForwardGroup(const Source (&source)[2], const YccRows& dst, auto at) {
  constexpr int kLog2 = kRows == 2 ? 2 : 1;
  Rgb<Lanes> sum{};
  for (int row = 0; row < kRows; ++row) {
    const Rgb<Bytes> p = source[row].group(at).rgb;
    sum.r += simd::addBytePairs(p.r), sum.g += simd::addBytePairs(p.g), sum.b += simd::addBytePairs(p.b);
    const auto r = widen(p.r), g = widen(p.g), b = widen(p.b);
    storeBytes(dst.y[row], at,
               simd::packU8(ForwardMain::luma(Rgb<Lanes>{r.low, g.low, b.low}),
                            ForwardMain::luma(Rgb<Lanes>{r.high, g.high, b.high})));
  }
  const auto c = ForwardMain::chroma<kLog2>(sum);
  const Bytes blocks = simd::packU8(c.cb, c.cr);  // of each block eight of Cb, then of Cr
  if constexpr (std::is_same_v<decltype(at), Whole>) {
    const Bytes both = simd::orderPacked(blocks);
    store(dst.cb + at.x / 2, simd::lower(both)), store(dst.cr + at.x / 2, simd::upper(both));
  } else {
    simd::scatterBlocks([&](int block) QELJ_INLINE_LAMBDA { return at(block) / 2; }, blocks,
                        [&](ptrdiff_t x, auto v) QELJ_INLINE_LAMBDA { simd::storeHalves(dst.cb + x, dst.cr + x, v); });
  }
}

// kRows rows of pixels to as many rows of luma and one of chroma. Whole pairs only.
template <int kRows, class Source>
void ownForwardRows(const Source (&source)[2], const YccRows& dst, ptrdiff_t width) {
  constexpr int kLog2 = kRows == 2 ? 2 : 1;
  const auto pair = [&]<class Form>(Form, ptrdiff_t x) {
    Rgb<int32_t> sum{};
    for (int row = 0; row < kRows; ++row)
      for (int i = 0; i < 2; ++i) {
        const Rgb<int32_t> p = source[row].pixel(x + i).rgb;
        sum.r += p.r, sum.g += p.g, sum.b += p.b;
        dst.y[row][x + i] = clampU8(Form::luma(p));
      }
    const auto c = Form::template chroma<kLog2>(sum);
    dst.cb[x / 2] = clampU8(c.cb), dst.cr[x / 2] = clampU8(c.cr);
  };
  const ptrdiff_t main = width / 8 * 8;
  ptrdiff_t x = 0;
  if (simd::kEnabled && main > 0) {
    if (main >= kGroup) {
      simd::coverInOneLoop<kGroup>(
          0, main, [&](ptrdiff_t at) QELJ_INLINE_LAMBDA { ownForwardGroup<kRows>(source, dst, Whole{at}); });
    } else if (main >= kBlock) {
      ownForwardGroup<kRows>(source, dst, Blocks(main));
    } else {  // eight pixels
      const ShortSource<Source> first(source[0], 8), second(source[kRows - 1], kRows == 2 ? 8 : 0);
      uint8_t y[2][kBlock], cb[kBlock / 2], cr[kBlock / 2];
      ownForwardGroup<kRows>({first.source, second.source}, {{y[0], y[1]}, cb, cr}, Blocks());
      for (int row = 0; row < kRows; ++row) std::memcpy(dst.y[row], y[row], 8);
      std::memcpy(dst.cb, cb, 4), std::memcpy(dst.cr, cr, 4);
    }
    x = main;
  }
  for (; x < main; x += 2) pair(ForwardMain{}, x);
  for (; x + 1 < width; x += 2) pair(ForwardTail{}, x);
}

constexpr QelStatus oddSize(QelSize size, int rows) {
  return size.width % 2 != 0 || (rows == 2 && size.height % 2 != 0) ? qelStatusOddSizeWarning : qelStatusOk;
}

template <int kRows, class Source>
QelStatus forward(const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size) {
  if (auto s = check(nonNull(src), planes(dst, 3), area(size, 2, kRows)); s) return s;
  for (int32_t y = 0; y <= size.height - kRows; y += kRows) {
    const int32_t last = y + kRows - 1;
    const Source source[2] = {{src, srcStep, y}, {src, srcStep, last}};
    ownForwardRows<kRows>(source,
                          {{row(dst[0], dstStep[0], y), row(dst[0], dstStep[0], last)},
                           row(dst[1], dstStep[1], y / kRows),
                           row(dst[2], dstStep[2], y / kRows)},
                          size.width);
  }
  return oddSize(size, kRows);
}

// --- Inverse: a chroma sample serves all its pixels as it is -----------------------------------------------

// What a vector of chroma pairs adds to the pixels in the lower and the upper halves of the blocks of a group.
struct PairOffsets {
  Rgb<Lanes> low, high;
  QELJ_INLINE explicit PairOffsets(const Rgb<Lanes>& o) {
    low = {simd::unpackLow(o.r, o.r), simd::unpackLow(o.g, o.g), simd::unpackLow(o.b, o.b)};
    high = {simd::unpackHigh(o.r, o.r), simd::unpackHigh(o.g, o.g), simd::unpackHigh(o.b, o.b)};
  }
};
using PlaneRow = RowPlanes<const uint8_t, 1>;

template <int kRows, class To>
void ownInverseRows(const PlaneRow (&y)[2], const PlaneRow& cb, const PlaneRow& cr, const To (&sink)[2],
                    ptrdiff_t width) {
  using Form = InverseQ4Form;
  const auto group = [](const auto& fromY, const PlaneRow& fromCb, const PlaneRow& fromCr, const auto& to, auto at)
                         QELJ_INLINE_LAMBDA {
                           const auto chroma = [at](const PlaneRow& p) QELJ_INLINE_LAMBDA {
                             return storedLanes(loadHalfColumns(p.plane[0], at));
                           };
                           const PairOffsets add(Form::offset(CbCr<Lanes>{chroma(fromCb), chroma(fromCr)}));
                           for (int row = 0; row < kRows; ++row)
                             to[row].group(at, {toRgb(loadBytes(fromY[row].plane[0], at), add.low, add.high), Bytes{}});
                         };
  const ptrdiff_t main = width / 2 * 2;
  if constexpr (simd::kEnabled) {
    if (main >= kGroup)
      return simd::coverInOneLoop<kGroup>(0, main,
                                          [&](ptrdiff_t x) QELJ_INLINE_LAMBDA { group(y, cb, cr, sink, Whole{x}); });
    if (main >= kBlock) return group(y, cb, cr, sink, Blocks(main));
    const ShortSource<PlaneRow> y0(y[0], main), y1(y[kRows - 1], kRows == 2 ? main : 0), shortCb(cb, main / 2),
        shortCr(cr, main / 2);
    ShortSink<To> to0(sink[0]), to1(sink[1]);
    const PlaneRow shortY[2] = {y0.source, y1.source};
    const To to[2] = {to0.sink, to1.sink};
    group(shortY, shortCb.source, shortCr.source, to, Blocks());
    to0.copyTo(sink[0], main);
    if constexpr (kRows == 2) to1.copyTo(sink[1], main);
    return;
  }
  ptrdiff_t x = 0;
  for (; x < main; x += 2) {
    const auto add = Form::offset(CbCr<int32_t>{cb.plane[0][x / 2] - 128, cr.plane[0][x / 2] - 128});
    for (int row = 0; row < kRows; ++row)
      for (int i = 0; i < 2; ++i) sink[row].pixel(x + i, {toRgb<Form>(y[row].plane[0][x + i], add), 0});
  }
}

template <int kRows, class To, class... Alpha>
QelStatus inverse(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst, int32_t dstStep, QelSize size,
                  Alpha... alpha) {
  if (auto s = check(nonNull(dst), planes(src, 3), area(size, 2, kRows)); s) return s;
  const Writer write(size, To::kPixelBytes);
  for (int32_t y = 0; y <= size.height - kRows; y += kRows) {
    const int32_t last = y + kRows - 1;
    const PlaneRow luma[2] = {{src[0], srcStep[0], y}, {src[0], srcStep[0], last}};
    const To sink[2] = {{dst, dstStep, y, write, alpha...}, {dst, dstStep, last, write, alpha...}};
    ownInverseRows<kRows>(luma, {src[1], srcStep[1], y / kRows}, {src[2], srcStep[2], y / kRows}, sink, size.width);
    write.endRow();
  }
  return oddSize(size, kRows);
}

// Packed 4:2:2: Y0, Cb, Y1, Cr. Whole groups of eight pixels, then pairs in another form; the pair that an
// odd width begins is read and written whole.
using PackedRow = RowPlanes<const uint8_t, 1, 2>;
template <class Form>
QELJ_INLINE Rgb<Lanes> pairOffset(Words chroma) {  // Cb in the low bytes, Cr in the high ones
  if constexpr (ByLanes<Form>) {
    const auto low = [](int k) { return uint16_t(Form::kByteConstants[size_t(k)]); };
    const Words centred = chroma ^ uint16_t(0x8080);
    const Words cb = centred << 8 | low(Form::kLowCb), cr = (centred & uint16_t(0xFF00)) | low(Form::kLowCr);
    return Form::offset(ChromaLanes<Lanes>{as<int16_t>(cb), as<int16_t>(cr), as<int16_t>(centred)},
                        ConstantsOf<Form>::low());
  } else {
    return Form::offset(CbCr<Lanes>{storedLanes(chroma & uint16_t(0xFF)), storedLanes(chroma >> 8)});
  }
}
void ownPackedRow(const PackedRow& src, const PixelSink<RgbOrder>& sink, ptrdiff_t width) {
  const ptrdiff_t main = width / 8 * 8;
  const auto pair = [&]<class Form>(Form, ptrdiff_t x) {
    const uint8_t* p = src.plane[0] + 2 * x;
    const auto add = Form::offset(CbCr<int32_t>{p[1] - 128, p[3] - 128});
    const uint8_t y1 = p[2];
    sink.pixel(x, {toRgb<Form>(p[0], add), 0}), sink.pixel(x + 1, {toRgb<Form>(y1, add), 0});
  };
  const auto group = []<class Form>(Form, const PackedRow& from, const PixelSink<RgbOrder>& to,
                                    auto at) QELJ_INLINE_LAMBDA {
    const auto p = at.template in<2>(from.plane[0]);
    const auto first = simd::gatherPart<Words>(p, 0), second = simd::gatherPart<Words>(p, 1);
    const auto pack = [](Words a, Words b) { return simd::packU8(as<int16_t>(a), as<int16_t>(b)); };
    const auto chroma = as<uint16_t>(pack(first >> 8, second >> 8));  // Cb in the low bytes, Cr in the high ones
    const PairOffsets add(pairOffset<Form>(chroma));
    to.group(at, {toRgb(pack(first & uint16_t(0xFF), second & uint16_t(0xFF)), add.low, add.high), Bytes{}});
  };
  // Pixels that are fewer than a block.
  const auto few = [&]<class Form>(Form form, ptrdiff_t x, ptrdiff_t count) {
    PackedRow row = src;
    PixelSink<RgbOrder> place = sink;
    row.plane[0] += 2 * x, place.plane[0] += 3 * x;
    const ShortSource<PackedRow> from(row, count);
    ShortSink<PixelSink<RgbOrder>> to(place);
    group(form, from.source, to.sink, Blocks());
    to.copyTo(place, count);
  };
  if constexpr (simd::kEnabled) {
    const InverseQ9Form form;
    if (main >= kGroup)
      simd::coverInOneLoop<kGroup>(0, main, [&](ptrdiff_t x) QELJ_INLINE_LAMBDA { group(form, src, sink, Whole{x}); });
    else if (main >= kBlock) group(form, src, sink, Blocks(main));
    else if (main > 0) few(form, 0, main);
    if (main < width) few(InverseQ16Form{}, main, (width - main + 1) / 2 * 2);
    return;
  }
  ptrdiff_t x = 0;
  for (; x < main; x += 2) pair(InverseQ9Form{}, x);
  for (; x < width; x += 2) pair(InverseQ16Form{}, x);
}

}  // namespace

QelStatus qeliYCbCr422ToRGB_JPEG_8u_C2C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                          QelSize size) {
  if (auto s = check(nonNull(src, dst), area(size)); s) return s;
  const Writer write(size, PixelSink<RgbOrder>::kPixelBytes);
  const auto oneRow = [=](int32_t y) {
    ownPackedRow({src, srcStep, y}, {dst, dstStep, y, write}, size.width);
    write.endRow();
  };
  // An odd width writes a pixel more. Where that reaches into the next row, the rows go in order, as one.
  const bool overlap = std::abs(int64_t(dstStep)) < 3 * (int64_t(size.width) + size.width % 2);
  if (overlap) return forEachRow({1, 1}, [=](int32_t) { forEachRowSerial(size, oneRow); });
  return forEachRow(size, oneRow);
}

QelStatus qeliRGBToYCbCr422_JPEG_8u_C3P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<1, PixelSource<RgbOrder, 3>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGRToYCbCr422_JPEG_8u_C3P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<1, PixelSource<BgrOrder, 3>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRGBToYCbCr422_JPEG_8u_C4P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<1, PixelSource<RgbOrder, 4>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGRToYCbCr422_JPEG_8u_C4P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<1, PixelSource<BgrOrder, 4>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRGBToYCbCr411_JPEG_8u_C3P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<2, PixelSource<RgbOrder, 3>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGRToYCbCr411_JPEG_8u_C3P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<2, PixelSource<BgrOrder, 3>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRGBToYCbCr411_JPEG_8u_C4P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<2, PixelSource<RgbOrder, 4>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliBGRToYCbCr411_JPEG_8u_C4P3R(const uint8_t* src, int32_t srcStep, uint8_t* const* dst,
                                          const int32_t* dstStep, QelSize size) {
  return forward<2, PixelSource<BgrOrder, 4>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCr422ToRGB_JPEG_8u_P3C3R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size) {
  return inverse<1, PixelSink<RgbOrder>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCr422ToBGR_JPEG_8u_P3C3R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size) {
  return inverse<1, PixelSink<BgrOrder>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCr422ToRGB_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size, uint8_t alpha) {
  return inverse<1, AlphaPixelSink<RgbOrder>>(src, srcStep, dst, dstStep, size, alpha);
}
QelStatus qeliYCbCr422ToBGR_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size, uint8_t alpha) {
  return inverse<1, AlphaPixelSink<BgrOrder>>(src, srcStep, dst, dstStep, size, alpha);
}
QelStatus qeliYCbCr411ToRGB_JPEG_8u_P3C3R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size) {
  return inverse<2, PixelSink<RgbOrder>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCr411ToBGR_JPEG_8u_P3C3R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size) {
  return inverse<2, PixelSink<BgrOrder>>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliYCbCr411ToRGB_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size, uint8_t alpha) {
  return inverse<2, AlphaPixelSink<RgbOrder>>(src, srcStep, dst, dstStep, size, alpha);
}
QelStatus qeliYCbCr411ToBGR_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst,
                                          int32_t dstStep, QelSize size, uint8_t alpha) {
  return inverse<2, AlphaPixelSink<BgrOrder>>(src, srcStep, dst, dstStep, size, alpha);
}

}  // namespace qelj
