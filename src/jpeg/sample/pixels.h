// Pixels of the colour conversions in memory: readers and writers of one row, one pixel or one vector at a time, and
// the loops over a row and over an image that all conversions share. pixel() takes bytes as they lie, group() a vector
// of them through the shuffles of simd::, so that each is written by itself.
#ifndef QELJ_JPEG_SAMPLE_PIXELS_H
#define QELJ_JPEG_SAMPLE_PIXELS_H

#include <algorithm>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/lanes.h"
#include "frame/memory.h"
#include "frame/rows.h"
#include "jpeg/sample/colour_forms.h"

namespace qelj::jpeg::colour {

inline constexpr int kVector = simd::kBytes;  // pixels in a vector of bytes

struct RgbOrder {
  static constexpr int r = 0, b = 2;
};
struct BgrOrder {
  static constexpr int r = 2, b = 0;
};

// A pixel, or a vector of them, with its fourth channel (K, or nothing).
template <class T>
struct RgbK {
  Rgb<T> rgb;
  T k;
};
template <class T>
struct YccK {
  Ycc<T> ycc;
  T k;
};

// --- Sources of RGB ----------------------------------------------------------------------------------------

template <class Order, int kChannels>
struct PixelSource {
  const uint8_t* p;
  PixelSource(const uint8_t* base, int32_t step, int32_t y) : p(row(base, step, y)) {}
  static QelStatus valid(const uint8_t* base) { return nonNull(base); }

  RgbK<int32_t> pixel(ptrdiff_t x) const {
    const uint8_t* at = p + kChannels * x;
    return {{at[Order::r], at[1], at[Order::b]}, 0};
  }
  QELJ_INLINE RgbK<U8> group(ptrdiff_t x) const {
    if constexpr (kChannels == 3) {
      const auto v = simd::loadTriples<U8>(p + 3 * x);
      return Order::r == 0 ? RgbK<U8>{{v.c0, v.c1, v.c2}, U8{}} : RgbK<U8>{{v.c2, v.c1, v.c0}, U8{}};
    } else {
      const auto v = simd::loadQuadruples<U8>(p + 4 * x);
      return Order::r == 0 ? RgbK<U8>{{v.c0, v.c1, v.c2}, U8{}} : RgbK<U8>{{v.c2, v.c1, v.c0}, U8{}};
    }
  }
};

struct PlaneSource {
  const uint8_t *r, *g, *b;
  PlaneSource(const uint8_t* const* base, int32_t step, int32_t y)
      : r(row(base[0], step, y)), g(row(base[1], step, y)), b(row(base[2], step, y)) {}
  static QelStatus valid(const uint8_t* const* base) { return planes(base, 3); }

  RgbK<int32_t> pixel(ptrdiff_t x) const { return {{r[x], g[x], b[x]}, 0}; }
  QELJ_INLINE RgbK<U8> group(ptrdiff_t x) const { return {{load<U8>(r + x), load<U8>(g + x), load<U8>(b + x)}, U8{}}; }
};

// CMYK: R, G, B are the complements of C, M, Y.
struct CmykPixelSource {
  const uint8_t* p;
  CmykPixelSource(const uint8_t* base, int32_t step, int32_t y) : p(row(base, step, y)) {}
  static QelStatus valid(const uint8_t* base) { return nonNull(base); }

  RgbK<int32_t> pixel(ptrdiff_t x) const {
    const uint8_t* at = p + 4 * x;
    return {{255 - at[0], 255 - at[1], 255 - at[2]}, at[3]};
  }
  QELJ_INLINE RgbK<U8> group(ptrdiff_t x) const {
    const auto v = simd::loadQuadruples<U8>(p + 4 * x);
    return {{~v.c0, ~v.c1, ~v.c2}, v.c3};
  }
};
struct CmykPlaneSource {
  const uint8_t *c, *m, *y, *k;
  CmykPlaneSource(const uint8_t* const* base, int32_t step, int32_t at)
      : c(row(base[0], step, at)), m(row(base[1], step, at)), y(row(base[2], step, at)), k(row(base[3], step, at)) {}
  static QelStatus valid(const uint8_t* const* base) { return planes(base, 4); }

  RgbK<int32_t> pixel(ptrdiff_t x) const { return {{255 - c[x], 255 - m[x], 255 - y[x]}, k[x]}; }
  QELJ_INLINE RgbK<U8> group(ptrdiff_t x) const {
    return {{~load<U8>(c + x), ~load<U8>(m + x), ~load<U8>(y + x)}, load<U8>(k + x)};
  }
};

// Packed 16-bit pixels: a 5-bit field in the low bits (red in RgbOrder), kGreenBits of green, a 5-bit field.
template <class Order, int kGreenBits>
struct PackedSource {
  const uint16_t* p;
  PackedSource(const uint16_t* base, int32_t step, int32_t y) : p(row(base, step, y)) {}
  static QelStatus valid(const uint16_t* base) { return nonNull(base); }

  // Fields widen to bytes by a left shift alone. T: an int32_t, or a vector of 16-bit lanes.
  template <class T>
  static Rgb<T> unpack(T v) {
    constexpr auto kGreenMask = uint16_t(0x100 - (0x100 >> kGreenBits));
    const T low = (v << 3) & uint16_t(0xF8), green = (v >> (kGreenBits - 3)) & kGreenMask,
            high = (v >> (kGreenBits + 2)) & uint16_t(0xF8);
    return Order::r == 0 ? Rgb<T>{low, green, high} : Rgb<T>{high, green, low};
  }
  RgbK<int32_t> pixel(ptrdiff_t x) const { return {unpack<int32_t>(at(p, x)), 0}; }
  QELJ_INLINE RgbK<U8> group(ptrdiff_t x) const {
    const auto first = unpack(load<simd::U16>(offset(p, x)));
    const auto second = unpack(load<simd::U16>(offset(p, x + kVector / 2)));
    const auto bytes = [](simd::U16 a, simd::U16 b) {
      return simd::orderPacked(simd::packU8(as<int16_t>(a), as<int16_t>(b)));
    };
    const Rgb<U8> rgb{bytes(first.r, second.r), bytes(first.g, second.g), bytes(first.b, second.b)};
    return {rgb, U8{}};
  }
};

// --- How a result is stored --------------------------------------------------------------------------------

// An image larger than the caches would drive out everything else and not be there when it is read: interleaved pixels
// go past them. Planes do not: several such streams side by side are no faster than plain stores.
struct Writer {
  bool streams;

  static Writer forImage(QelSize size, int32_t pixelBytes) {
    const int64_t pixels = int64_t(size.width) * size.height;
    return {ownPastTheCaches(std::min(pixels, int64_t(1) << 40) * pixelBytes)};  // far from overflow
  }
  template <class V>
  QELJ_INLINE void operator()(void* p, V v) const {
    if (streams) simd::stream(p, v);
    else store(p, v);
  }
  // Behind every row, so that the thread that joins sees it.
  void endRow() const {
    if (streams) simd::streamFence();
  }
};

// --- Sinks of RGB ------------------------------------------------------------------------------------------

template <class Order>
struct PixelSink {
  static constexpr int kStreamedBytes = 3;
  Writer write;
  uint8_t* p;
  PixelSink(uint8_t* base, int32_t step, int32_t y, Writer w) : write(w), p(row(base, step, y)) {}
  static QelStatus valid(uint8_t* base) { return nonNull(base); }

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    uint8_t* at = p + 3 * x;
    at[Order::r] = v.rgb.r, at[1] = v.rgb.g, at[Order::b] = v.rgb.b;
  }
  QELJ_INLINE void group(ptrdiff_t x, RgbK<U8> v) const {
    const auto& [r, g, b] = v.rgb;
    simd::storeTriples<U8>(p + 3 * x, {Order::r == 0 ? r : b, g, Order::r == 0 ? b : r}, write);
  }
};

template <class Order>
struct AlphaPixelSink {
  static constexpr int kStreamedBytes = 4;
  Writer write;
  uint8_t* p;
  uint8_t alpha;
  AlphaPixelSink(uint8_t* base, int32_t step, int32_t y, Writer w, uint8_t a)
      : write(w), p(row(base, step, y)), alpha(a) {}
  static QelStatus valid(uint8_t* base) { return nonNull(base); }

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    uint8_t* at = p + 4 * x;
    at[Order::r] = v.rgb.r, at[1] = v.rgb.g, at[Order::b] = v.rgb.b, at[3] = alpha;
  }
  QELJ_INLINE void group(ptrdiff_t x, RgbK<U8> v) const {
    const auto& [r, g, b] = v.rgb;
    simd::storeQuadruples<U8>(p + 4 * x, {Order::r == 0 ? r : b, g, Order::r == 0 ? b : r, all<U8>(alpha)}, write);
  }
};

struct PlaneSink {
  static constexpr int kStreamedBytes = 0;
  uint8_t *r, *g, *b;
  PlaneSink(uint8_t* const* base, int32_t step, int32_t y, Writer)
      : r(row(base[0], step, y)), g(row(base[1], step, y)), b(row(base[2], step, y)) {}
  static QelStatus valid(uint8_t* const* base) { return planes(base, 3); }

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const { r[x] = v.rgb.r, g[x] = v.rgb.g, b[x] = v.rgb.b; }
  QELJ_INLINE void group(ptrdiff_t x, RgbK<U8> v) const {
    store(r + x, v.rgb.r), store(g + x, v.rgb.g), store(b + x, v.rgb.b);
  }
};

struct CmykPixelSink {
  static constexpr int kStreamedBytes = 4;
  Writer write;
  uint8_t* p;
  CmykPixelSink(uint8_t* base, int32_t step, int32_t y, Writer w) : write(w), p(row(base, step, y)) {}
  static QelStatus valid(uint8_t* base) { return nonNull(base); }

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    uint8_t* at = p + 4 * x;
    at[0] = uint8_t(~v.rgb.r), at[1] = uint8_t(~v.rgb.g), at[2] = uint8_t(~v.rgb.b), at[3] = v.k;
  }
  QELJ_INLINE void group(ptrdiff_t x, RgbK<U8> v) const {
    simd::storeQuadruples<U8>(p + 4 * x, {~v.rgb.r, ~v.rgb.g, ~v.rgb.b, v.k}, write);
  }
};
struct CmykPlaneSink {
  static constexpr int kStreamedBytes = 0;
  uint8_t *c, *m, *y, *k;
  CmykPlaneSink(uint8_t* const* base, int32_t step, int32_t at, Writer)
      : c(row(base[0], step, at)), m(row(base[1], step, at)), y(row(base[2], step, at)), k(row(base[3], step, at)) {}
  static QelStatus valid(uint8_t* const* base) { return planes(base, 4); }

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    c[x] = uint8_t(~v.rgb.r), m[x] = uint8_t(~v.rgb.g), y[x] = uint8_t(~v.rgb.b), k[x] = v.k;
  }
  QELJ_INLINE void group(ptrdiff_t x, RgbK<U8> v) const {
    store(c + x, ~v.rgb.r), store(m + x, ~v.rgb.g), store(y + x, ~v.rgb.b), store(k + x, v.k);
  }
};

template <class Order, int kGreenBits>
struct PackedSink {
  static constexpr int kStreamedBytes = 2;
  Writer write;
  uint16_t* p;
  PackedSink(uint16_t* base, int32_t step, int32_t y, Writer w) : write(w), p(row(base, step, y)) {}
  static QelStatus valid(uint16_t* base) { return nonNull(base); }

  // The top bits of every byte; bit 15 of a 555 pixel is 0.
  template <class T>
  static T pack(T r, T g, T b) {
    const T low = Order::r == 0 ? r : b, high = Order::r == 0 ? b : r;
    return (low >> 3) | ((g >> (8 - kGreenBits)) << 5) | ((high >> 3) << (5 + kGreenBits));
  }
  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const { put(p, x, uint16_t(pack<uint32_t>(v.rgb.r, v.rgb.g, v.rgb.b))); }
  QELJ_INLINE void group(ptrdiff_t x, RgbK<U8> v) const {
    const auto low = [](U8 bytes) { return as<uint16_t>(simd::unpackLow(bytes, U8{})); };
    const auto high = [](U8 bytes) { return as<uint16_t>(simd::unpackHigh(bytes, U8{})); };
    const auto first = pack(low(v.rgb.r), low(v.rgb.g), low(v.rgb.b));
    const auto second = pack(high(v.rgb.r), high(v.rgb.g), high(v.rgb.b));
    write(offset(p, x), simd::lowBlocks(first, second));
    write(offset(p, x + kVector / 2), simd::highBlocks(first, second));
  }
};

// --- Planes of Y, Cb, Cr, K --------------------------------------------------------------------------------

// kPlanes: 1 (Y alone), 3, or 4 (with K).
template <int kPlanes>
struct YccSink {
  static constexpr int kStreamedBytes = 0;
  uint8_t* plane[kPlanes];
  YccSink(uint8_t* const* base, int32_t step, int32_t y, Writer) {
    for (int i = 0; i < kPlanes; ++i) plane[i] = row(base[i], step, y);
  }
  static QelStatus valid(uint8_t* const* base) { return planes(base, kPlanes); }

  void pixel(ptrdiff_t x, YccK<uint8_t> v) const {
    plane[0][x] = v.ycc.y, plane[1][x] = v.ycc.cb, plane[2][x] = v.ycc.cr;
    if constexpr (kPlanes == 4) plane[3][x] = v.k;
  }
  QELJ_INLINE void group(ptrdiff_t x, YccK<U8> v) const {
    store(plane[0] + x, v.ycc.y), store(plane[1] + x, v.ycc.cb), store(plane[2] + x, v.ycc.cr);
    if constexpr (kPlanes == 4) store(plane[3] + x, v.k);
  }
};
struct LumaSink {
  static constexpr int kStreamedBytes = 0;
  uint8_t* p;
  LumaSink(uint8_t* base, int32_t step, int32_t y, Writer) : p(row(base, step, y)) {}
  static QelStatus valid(uint8_t* base) { return nonNull(base); }

  void pixel(ptrdiff_t x, YccK<uint8_t> v) const { p[x] = v.ycc.y; }
  QELJ_INLINE void group(ptrdiff_t x, YccK<U8> v) const { store(p + x, v.ycc.y); }
};

template <int kPlanes>
struct YccSource {
  const uint8_t* plane[kPlanes];
  YccSource(const uint8_t* const* base, int32_t step, int32_t y) {
    for (int i = 0; i < kPlanes; ++i) plane[i] = row(base[i], step, y);
  }
  static QelStatus valid(const uint8_t* const* base) { return planes(base, kPlanes); }

  YccK<uint8_t> pixel(ptrdiff_t x) const {
    return {{plane[0][x], plane[1][x], plane[2][x]}, kPlanes == 4 ? plane[kPlanes - 1][x] : uint8_t(0)};
  }
  QELJ_INLINE YccK<U8> group(ptrdiff_t x) const {
    return {{load<U8>(plane[0] + x), load<U8>(plane[1] + x), load<U8>(plane[2] + x)},
            kPlanes == 4 ? load<U8>(plane[kPlanes - 1] + x) : U8{}};
  }
};

// --- From bytes to a form's operands and back --------------------------------------------------------------

// A form works on one pixel, or on 16-bit lanes, half a vector of bytes at a time. Unpacking and packing both go by
// blocks, so that the pixels come back in order.
struct Halves16 {
  I16 low, high;
};
QELJ_INLINE Halves16 widen(U8 v) {
  return {as<int16_t>(simd::unpackLow(v, U8{})), as<int16_t>(simd::unpackHigh(v, U8{}))};
}
QELJ_INLINE Halves16 widenCentred(U8 chroma) {  // c << 8
  const U8 centred = chroma ^ uint8_t(0x80);
  return {as<int16_t>(simd::unpackLow(U8{}, centred)), as<int16_t>(simd::unpackHigh(U8{}, centred))};
}
QELJ_INLINE Rgb<Halves16> widen(Rgb<U8> p) { return {widen(p.r), widen(p.g), widen(p.b)}; }

template <class Form>
QELJ_INLINE Ycc<uint8_t> toYcc(Rgb<int32_t> p) {
  const auto v = Form::ycc(p);
  return {clampU8(v.y), clampU8(v.cb), clampU8(v.cr)};
}
template <class Form>
QELJ_INLINE Ycc<U8> toYcc(Rgb<U8> p) {
  const auto [r, g, b] = widen(p);
  const auto low = Form::ycc(Rgb<I16>{r.low, g.low, b.low}), high = Form::ycc(Rgb<I16>{r.high, g.high, b.high});
  return {simd::packU8(low.y, high.y), simd::packU8(low.cb, high.cb), simd::packU8(low.cr, high.cr)};
}

// Luma with what chroma adds to it.
template <class Form>
QELJ_INLINE Rgb<uint8_t> toRgb(uint8_t y, Rgb<int32_t> offset) {
  const auto colour = [y](int32_t add) { return clampU8(shade<Form>(int32_t(y), add)); };
  return {colour(offset.r), colour(offset.g), colour(offset.b)};
}
template <class Form>
QELJ_INLINE Rgb<U8> toRgb(U8 y, Rgb<I16> low, Rgb<I16> high) {
  const Halves16 luma = widen(y);
  const auto colour = [&](I16 addLow, I16 addHigh) QELJ_INLINE_LAMBDA {
    return simd::packU8(shade<Form>(luma.low, addLow), shade<Form>(luma.high, addHigh));
  };
  return {colour(low.r, high.r), colour(low.g, high.g), colour(low.b, high.b)};
}
template <class Form>
QELJ_INLINE Rgb<uint8_t> toRgb(Ycc<uint8_t> p) {
  return toRgb<Form>(p.y, Form::offset(CbCr<int32_t>{p.cb - 128, p.cr - 128}));
}
template <class Form>
QELJ_INLINE Rgb<U8> toRgb(Ycc<U8> p) {
  const Halves16 cb = widenCentred(p.cb), cr = widenCentred(p.cr);
  return toRgb<Form>(p.y, Form::offset(CbCr<I16>{cb.low, cr.low}), Form::offset(CbCr<I16>{cb.high, cr.high}));
}

// --- Loops -------------------------------------------------------------------------------------------------

enum class RowWalk { kFork, kSerial, kSerialAnyStep };

// The front of a whole-image conversion: checks, then rowOperation(source, sink, width) for every row.
template <RowWalk kRows, class Source, class Sink, class From, class To, class RowOperation, class... SinkArgument>
QelStatus convertRows(const From* src, int32_t srcStep, To* dst, int32_t dstStep, QelSize size,
                      RowOperation rowOperation, SinkArgument... sinkArgument) {
  const auto usable = [](int32_t s) { return kRows == RowWalk::kSerialAnyStep ? qelStatusOk : step(s); };
  if (auto s = check(Source::valid(src), Sink::valid(dst), usable(srcStep), usable(dstStep), area(size)); s) return s;
  const Writer write = Writer::forImage(size, Sink::kStreamedBytes);
  const auto oneRow = [=](int32_t y) {
    rowOperation(Source(src, srcStep, y), Sink(dst, dstStep, y, write, sinkArgument...), size.width);
    write.endRow();
  };
  return kRows == RowWalk::kFork ? forEachRow(size, oneRow) : forEachRowSerial(size, oneRow);
}

}  // namespace qelj::jpeg::colour

#endif
