// Pixels of the colour conversions in memory: readers and writers of one row, one pixel or one vector at a time, and
// the loops over a row and over an image that all conversions share. pixel() takes bytes as they lie, group() a vector
// of them through the shuffles of simd::, so that each is written by itself.
#ifndef QELJ_JPEG_SAMPLE_PIXELS_H
#define QELJ_JPEG_SAMPLE_PIXELS_H

#include <algorithm>
#include <array>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/lanes.h"
#include "frame/memory.h"
#include "frame/rows.h"
#include "jpeg/sample/colour_forms.h"

namespace qelj::jpeg::colour {

// Conversions gain from vectors of 64 bytes. These are a group of pixels, and the lanes of its arithmetic.
using Bytes = simd::Wide<uint8_t>;
using Words = simd::Wide<uint16_t>;
using Lanes = simd::Wide<int16_t>;
inline constexpr int kGroup = simd::kWideBytes;

struct RgbOrder {
  static constexpr int r = 0, b = 2;
};
struct BgrOrder {
  static constexpr int r = 2, b = 0;
};

using simd::Halves;

// A group's colours in 16-bit lanes, not yet clamped: as unpacking its bytes leaves them, and packing takes them back.
using RgbLanes = Rgb<Halves<Lanes>>;
QELJ_INLINE Bytes pack(Halves<Lanes> v) { return simd::packU8(v.low, v.high); }
QELJ_INLINE Rgb<Bytes> pack(const RgbLanes& v) { return {pack(v.r), pack(v.g), pack(v.b)}; }
struct RgbLanesK {
  RgbLanes rgb;
  Bytes k;
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

// Where the pixels of a row lie: in one plane or several.
template <class Byte, int Planes, int PixelBytes = 1>
struct RowPlanes {
  static constexpr int kPlanes = Planes, kPixelBytes = PixelBytes;
  Byte* plane[kPlanes];

  template <class Base>
  RowPlanes(Base base, int32_t step, int32_t y) {
    if constexpr (Planes == 1) plane[0] = reinterpret_cast<Byte*>(row(base, step, y));
    else
      for (int i = 0; i < kPlanes; ++i) plane[i] = row(base[i], step, y);
  }
  template <class Base>
  static QelStatus valid(Base base) {
    if constexpr (Planes == 1) return nonNull(base);
    else return planes(base, kPlanes);
  }
};

// --- Sources of RGB ----------------------------------------------------------------------------------------

template <class Order, int kChannels>
struct PixelSource : RowPlanes<const uint8_t, 1, kChannels> {
  using PixelSource::RowPlanes::plane;
  using PixelSource::RowPlanes::RowPlanes;

  RgbK<int32_t> pixel(ptrdiff_t x) const {
    const uint8_t* at = plane[0] + kChannels * x;
    return {{at[Order::r], at[1], at[Order::b]}, 0};
  }
  QELJ_INLINE RgbK<Bytes> group(ptrdiff_t x) const {
    const auto order = [](const auto& v) QELJ_INLINE_LAMBDA {
      return Order::r == 0 ? RgbK<Bytes>{{v.c0, v.c1, v.c2}, Bytes{}} : RgbK<Bytes>{{v.c2, v.c1, v.c0}, Bytes{}};
    };
    if constexpr (kChannels == 3) return order(simd::loadTriples<Bytes>(plane[0] + 3 * x));
    else return order(simd::loadQuadruples<Bytes>(plane[0] + 4 * x));
  }
  // The same for forms that start from differences.
  QELJ_INLINE Halves<Differences<Lanes>> differences(ptrdiff_t x) const
    requires(kChannels == 3 && simd::kBytePairs)
  {
    const auto pairs = simd::loadBytePairs3<Bytes>(plane[0] + 3 * x);
    const auto of = [](Bytes c01, Bytes c21) QELJ_INLINE_LAMBDA {
      const auto minus = as<int8_t>(all<Words>(0xFF01));  // 1, -1
      const Lanes first = simd::mulAddBytes(c01, minus), last = simd::mulAddBytes(c21, minus);
      const Lanes g = as<int16_t>(as<uint16_t>(c01) >> 8);
      return Order::r == 0 ? Differences<Lanes>{first, g, last} : Differences<Lanes>{last, g, first};
    };
    return {of(pairs.c01.low, pairs.c21.low), of(pairs.c01.high, pairs.c21.high)};
  }
};

struct PlaneSource : RowPlanes<const uint8_t, 3> {
  using RowPlanes::RowPlanes;

  RgbK<int32_t> pixel(ptrdiff_t x) const { return {{plane[0][x], plane[1][x], plane[2][x]}, 0}; }
  QELJ_INLINE RgbK<Bytes> group(ptrdiff_t x) const {
    return {{load<Bytes>(plane[0] + x), load<Bytes>(plane[1] + x), load<Bytes>(plane[2] + x)}, Bytes{}};
  }
};

// CMYK: R, G, B are the complements of C, M, Y.
struct CmykPixelSource : RowPlanes<const uint8_t, 1, 4> {
  using RowPlanes::RowPlanes;

  RgbK<int32_t> pixel(ptrdiff_t x) const {
    const uint8_t* at = plane[0] + 4 * x;
    return {{255 - at[0], 255 - at[1], 255 - at[2]}, at[3]};
  }
  QELJ_INLINE RgbK<Bytes> group(ptrdiff_t x) const {
    const auto v = simd::loadQuadruples<Bytes>(plane[0] + 4 * x);
    return {{~v.c0, ~v.c1, ~v.c2}, v.c3};
  }
};
struct CmykPlaneSource : RowPlanes<const uint8_t, 4> {
  using RowPlanes::RowPlanes;

  RgbK<int32_t> pixel(ptrdiff_t x) const {
    return {{255 - plane[0][x], 255 - plane[1][x], 255 - plane[2][x]}, plane[3][x]};
  }
  QELJ_INLINE RgbK<Bytes> group(ptrdiff_t x) const {
    return {{~load<Bytes>(plane[0] + x), ~load<Bytes>(plane[1] + x), ~load<Bytes>(plane[2] + x)},
            load<Bytes>(plane[3] + x)};
  }
};

// Packed 16-bit pixels: a 5-bit field in the low bits (red in RgbOrder), kGreenBits of green, a 5-bit field.
template <class Order, int kGreenBits>
struct PackedSource : RowPlanes<const uint8_t, 1, 2> {
  using RowPlanes::RowPlanes;

  // Fields widen to bytes by a left shift alone. T: an int32_t, or a vector of 16-bit lanes.
  template <class T>
  static Rgb<T> unpack(T v) {
    constexpr auto kGreenMask = uint16_t(0x100 - (0x100 >> kGreenBits));
    const T low = (v << 3) & uint16_t(0xF8), green = (v >> (kGreenBits - 3)) & kGreenMask,
            high = (v >> (kGreenBits + 2)) & uint16_t(0xF8);
    return Order::r == 0 ? Rgb<T>{low, green, high} : Rgb<T>{high, green, low};
  }
  RgbK<int32_t> pixel(ptrdiff_t x) const { return {unpack<int32_t>(load<uint16_t>(plane[0] + 2 * x)), 0}; }
  QELJ_INLINE RgbK<Bytes> group(ptrdiff_t x) const {
    const auto first = unpack(load<Words>(plane[0] + 2 * x)), second = unpack(load<Words>(plane[0] + 2 * x + kGroup));
    const auto bytes = [](Words a, Words b) { return simd::orderPacked(simd::packU8(as<int16_t>(a), as<int16_t>(b))); };
    const Rgb<Bytes> rgb{bytes(first.r, second.r), bytes(first.g, second.g), bytes(first.b, second.b)};
    return {rgb, Bytes{}};
  }
};

// --- How a result is stored --------------------------------------------------------------------------------

// An image larger than the caches would drive out everything else and not be there when it is read: interleaved pixels
// go past them. Planes do not: several such streams side by side are no faster than plain stores. From kStreamedFrom bytes
// on pixels do so with any cache: where the last one is larger, as that of a server, many cores share it, and of a picture
// and its result of 100 MB together (4096x4096 RGB) nothing was found in one of 300 MB.
struct Writer {
  static constexpr int64_t kStreamedFrom = int64_t(40) << 20;
  bool streams;

  Writer(QelSize size, int32_t pixelBytes) {
    const int64_t pixels = int64_t(size.width) * size.height;
    const int64_t bytes = std::min(pixels, int64_t(1) << 40) * pixelBytes;  // far from overflow
    streams = bytes >= kStreamedFrom || ownPastTheCaches(bytes);
  }
  template <class V>
  QELJ_INLINE void operator()(void* p, V v) const {
    if (streams) simd::stream(p, v);
    else store(p, v);
  }
  void keep() { streams = false; }
  // Behind every row, so that the thread that joins sees it.
  void endRow() const {
    if (streams) simd::streamFence();
  }
};
struct PlaneWriter {
  PlaneWriter(QelSize, int32_t) {}
  void keep() {}
  void endRow() const {}
};

// Where results go. What says how takes no room for planes, so that a row's pointers are handed over as they were stored.
template <int Planes, int PixelBytes = 1>
struct Sink : RowPlanes<uint8_t, Planes, PixelBytes> {
  using Write = std::conditional_t<Planes == 1 && (PixelBytes > 1), Writer, PlaneWriter>;
  [[no_unique_address]] Write write;

  template <class Base>
  Sink(Base base, int32_t step, int32_t y, Write w) : Sink::RowPlanes(base, step, y), write(w) {}
};

// --- Sinks of RGB ------------------------------------------------------------------------------------------

template <class Order>
struct PixelSink : Sink<1, 3> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    uint8_t* at = plane[0] + 3 * x;
    at[Order::r] = v.rgb.r, at[1] = v.rgb.g, at[Order::b] = v.rgb.b;
  }
  QELJ_INLINE void group(ptrdiff_t x, const RgbLanesK& v) const {
    const auto& [r, g, b] = v.rgb;
    simd::storeTriplesClamped(plane[0] + 3 * x, Order::r == 0 ? r : b, g, Order::r == 0 ? b : r, write);
  }
};

template <class Order>
struct AlphaPixelSink : Sink<1, 4> {
  // In the base's padding, beside `write`, both would be one word for the compiler, which then loads it for each group.
  alignas(void*) uint8_t alpha;
  AlphaPixelSink(uint8_t* base, int32_t step, int32_t y, Write w, uint8_t a) : Sink(base, step, y, w), alpha(a) {}

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    uint8_t* at = plane[0] + 4 * x;
    at[Order::r] = v.rgb.r, at[1] = v.rgb.g, at[Order::b] = v.rgb.b, at[3] = alpha;
  }
  QELJ_INLINE void group(ptrdiff_t x, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    simd::storeQuadruples<Bytes>(plane[0] + 4 * x, {Order::r == 0 ? r : b, g, Order::r == 0 ? b : r, all<Bytes>(alpha)},
                                 write);
  }
};

struct PlaneSink : Sink<3> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    plane[0][x] = v.rgb.r, plane[1][x] = v.rgb.g, plane[2][x] = v.rgb.b;
  }
  QELJ_INLINE void group(ptrdiff_t x, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    store(plane[0] + x, r), store(plane[1] + x, g), store(plane[2] + x, b);
  }
};

struct CmykPixelSink : Sink<1, 4> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    uint8_t* at = plane[0] + 4 * x;
    at[0] = uint8_t(~v.rgb.r), at[1] = uint8_t(~v.rgb.g), at[2] = uint8_t(~v.rgb.b), at[3] = v.k;
  }
  QELJ_INLINE void group(ptrdiff_t x, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    simd::storeQuadruples<Bytes>(plane[0] + 4 * x, {~r, ~g, ~b, v.k}, write);
  }
};
struct CmykPlaneSink : Sink<4> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    plane[0][x] = uint8_t(~v.rgb.r), plane[1][x] = uint8_t(~v.rgb.g), plane[2][x] = uint8_t(~v.rgb.b);
    plane[3][x] = v.k;
  }
  QELJ_INLINE void group(ptrdiff_t x, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    store(plane[0] + x, ~r), store(plane[1] + x, ~g), store(plane[2] + x, ~b), store(plane[3] + x, v.k);
  }
};

template <class Order, int kGreenBits>
struct PackedSink : Sink<1, 2> {
  using Sink::Sink;

  // The top bits of every byte; bit 15 of a 555 pixel is 0.
  template <class T>
  static T pack(T r, T g, T b) {
    const T low = Order::r == 0 ? r : b, high = Order::r == 0 ? b : r;
    return (low >> 3) | ((g >> (8 - kGreenBits)) << 5) | ((high >> 3) << (5 + kGreenBits));
  }
  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    store(plane[0] + 2 * x, uint16_t(pack<uint32_t>(v.rgb.r, v.rgb.g, v.rgb.b)));
  }
  QELJ_INLINE void group(ptrdiff_t x, const RgbLanesK& v) const {
    const auto [r, g, b] = colour::pack(v.rgb);
    const auto low = [](Bytes bytes) { return as<uint16_t>(simd::unpackLow(bytes, Bytes{})); };
    const auto high = [](Bytes bytes) { return as<uint16_t>(simd::unpackHigh(bytes, Bytes{})); };
    const auto first = pack(low(r), low(g), low(b)), second = pack(high(r), high(g), high(b));
    write(plane[0] + 2 * x, simd::lowBlocks(first, second));
    write(plane[0] + 2 * x + kGroup, simd::highBlocks(first, second));
  }
};

// --- Planes of Y, Cb, Cr, K --------------------------------------------------------------------------------

// Planes: 3, or 4 (with K).
template <int Planes>
struct YccSink : Sink<Planes> {
  using YccSink::Sink::plane;
  using YccSink::Sink::Sink;

  void pixel(ptrdiff_t x, YccK<uint8_t> v) const {
    plane[0][x] = v.ycc.y, plane[1][x] = v.ycc.cb, plane[2][x] = v.ycc.cr;
    if constexpr (Planes == 4) plane[3][x] = v.k;
  }
  QELJ_INLINE void group(ptrdiff_t x, YccK<Bytes> v) const {
    store(plane[0] + x, v.ycc.y), store(plane[1] + x, v.ycc.cb), store(plane[2] + x, v.ycc.cr);
    if constexpr (Planes == 4) store(plane[3] + x, v.k);
  }
};
struct LumaSink : Sink<1> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, YccK<uint8_t> v) const { plane[0][x] = v.ycc.y; }
  QELJ_INLINE void group(ptrdiff_t x, YccK<Bytes> v) const { store(plane[0] + x, v.ycc.y); }
};

template <int Planes>
struct YccSource : RowPlanes<const uint8_t, Planes> {
  using YccSource::RowPlanes::plane;
  using YccSource::RowPlanes::RowPlanes;

  YccK<uint8_t> pixel(ptrdiff_t x) const {
    return {{plane[0][x], plane[1][x], plane[2][x]}, Planes == 4 ? plane[Planes - 1][x] : uint8_t(0)};
  }
  QELJ_INLINE YccK<Bytes> group(ptrdiff_t x) const {
    return {{load<Bytes>(plane[0] + x), load<Bytes>(plane[1] + x), load<Bytes>(plane[2] + x)},
            Planes == 4 ? load<Bytes>(plane[Planes - 1] + x) : Bytes{}};
  }
};

// --- From bytes to a form's operands and back --------------------------------------------------------------

// A form works on one pixel, or on 16-bit lanes, half a vector of bytes at a time. Unpacking and packing both go by
// blocks, so that the pixels come back in order.
template <class B>
QELJ_INLINE auto widen(B v) {
  using V = With<int16_t, B>;
  return Halves<V>{as<V>(simd::unpackLow(v, B{})), as<V>(simd::unpackHigh(v, B{}))};
}
QELJ_INLINE Halves<Lanes> widenMask(Bytes mask) {
  return {as<int16_t>(simd::unpackLow(mask, mask)), as<int16_t>(simd::unpackHigh(mask, mask))};
}
QELJ_INLINE Halves<Lanes> widenCentred(Bytes chroma) {  // c << 8
  const Bytes centred = chroma ^ uint8_t(0x80);
  return {as<int16_t>(simd::unpackLow(Bytes{}, centred)), as<int16_t>(simd::unpackHigh(Bytes{}, centred))};
}

template <class Form>
QELJ_INLINE Ycc<uint8_t> toYcc(Rgb<int32_t> p) {
  const auto v = Form::ycc(p);
  return {clampU8(v.y), clampU8(v.cb), clampU8(v.cr)};
}
// A form's operands in 16-bit lanes.
QELJ_INLINE Halves<Rgb<Lanes>> operands(Rgb<Bytes> p) {
  const auto r = widen(p.r), g = widen(p.g), b = widen(p.b);
  return {{r.low, g.low, b.low}, {r.high, g.high, b.high}};
}
QELJ_INLINE Halves<Differences<Lanes>> operands(const Halves<Differences<Lanes>>& p) { return p; }
QELJ_INLINE Ycc<Bytes> pack(const Halves<Ycc<Lanes>>& v) {
  return {simd::packU8(v.low.y, v.high.y), simd::packU8(v.low.cb, v.high.cb), simd::packU8(v.low.cr, v.high.cr)};
}
// Whether a form starts from differences that a source has.
template <class Form, class Source>
concept OfDifferences = requires(Source source) { Form::ycc(source.differences(0).low); };
template <class Form>
QELJ_INLINE Ycc<Bytes> toYcc(auto p) {
  const auto o = operands(p);
  return pack({Form::ycc(o.low), Form::ycc(o.high)});
}

// Luma with what chroma adds to it.
template <class Form>
QELJ_INLINE Rgb<uint8_t> toRgb(uint8_t y, Rgb<int32_t> offset) {
  const auto colour = [y](int32_t add) { return clampU8(shade<Form>(int32_t(y), add)); };
  return {colour(offset.r), colour(offset.g), colour(offset.b)};
}
template <class Form>
QELJ_INLINE RgbLanes toRgb(Bytes y, Rgb<Lanes> low, Rgb<Lanes> high) {
  const auto luma = widen(y);
  const auto colour = [&](Lanes addLow, Lanes addHigh) QELJ_INLINE_LAMBDA {
    return Halves<Lanes>{shade<Form>(luma.low, addLow), shade<Form>(luma.high, addHigh)};
  };
  return {colour(low.r, high.r), colour(low.g, high.g), colour(low.b, high.b)};
}
template <class Form>
QELJ_INLINE Rgb<uint8_t> toRgb(Ycc<uint8_t> p) {
  return toRgb<Form>(p.y, Form::offset(CbCr<int32_t>{p.cb - 128, p.cr - 128}));
}
template <class Form>
QELJ_INLINE RgbLanes toRgb(Ycc<Bytes> p) {
  const auto cb = widenCentred(p.cb), cr = widenCentred(p.cr);
  return toRgb<Form>(p.y, Form::offset(CbCr<Lanes>{cb.low, cr.low}), Form::offset(CbCr<Lanes>{cb.high, cr.high}));
}

// Of the first `main` pixels of a group in one form, of the others in another. The others are fewer than eight, and lie
// in the same half: behind whole groups of four or eight pixels, or at the end.
QELJ_INLINE Bytes lanesFrom(int main) {
  alignas(64) static constexpr auto kMasks = [] {
    std::array<uint8_t, 2 * kGroup> masks{};
    for (int i = kGroup; i < 2 * kGroup; ++i) masks[size_t(i)] = 0xFF;
    return masks;
  }();
  return load<Bytes>(kMasks.data() + kGroup - main);
}
template <class Main, class Tail>
QELJ_INLINE Ycc<Bytes> toYcc(auto p, int main) {
  const auto o = operands(p);
  Halves<Ycc<Lanes>> v{Main::ycc(o.low), Main::ycc(o.high)};
  if constexpr (!std::is_same_v<Main, Tail>) {
    const auto others = widenMask(lanesFrom(main));
    const auto replace = [](Lanes which, const auto& from, Ycc<Lanes>& to) QELJ_INLINE_LAMBDA {
      const auto tail = Tail::ycc(from);
      to = {select(which, tail.y, to.y), select(which, tail.cb, to.cb), select(which, tail.cr, to.cr)};
    };
    if (main & 8) replace(others.high, o.high, v.high);
    else replace(others.low, o.low, v.low);
  }
  return pack(v);
}
template <class Main, class Tail>
QELJ_INLINE RgbLanes toRgb(Ycc<Bytes> p, int main) {
  auto v = toRgb<Main>(p);
  if constexpr (std::is_same_v<Main, Tail>) return v;
  const auto others = widenMask(lanesFrom(main)), luma = widen(p.y);
  const auto cb = widenCentred(p.cb), cr = widenCentred(p.cr);
  const auto replace = [](Lanes which, Lanes y, CbCr<Lanes> c, Lanes& r, Lanes& g, Lanes& b) QELJ_INLINE_LAMBDA {
    const Rgb<Lanes> add = Tail::offset(c);
    r = select(which, shade<Tail>(y, add.r), r);
    g = select(which, shade<Tail>(y, add.g), g);
    b = select(which, shade<Tail>(y, add.b), b);
  };
  if (main & 8) replace(others.high, luma.high, {cb.high, cr.high}, v.r.high, v.g.high, v.b.high);
  else replace(others.low, luma.low, {cb.low, cr.low}, v.r.low, v.g.low, v.b.low);
  return v;
}

// --- Loops -------------------------------------------------------------------------------------------------

// A row that is shorter than a group, in memory that is as long as one.
template <class Source>
struct ShortSource {
  alignas(64) uint8_t bytes[Source::kPlanes][Source::kPixelBytes * kGroup];
  Source source;

  ShortSource(const Source& row, ptrdiff_t width) : source(row) {
    for (int i = 0; i < Source::kPlanes; ++i) {
      simd::copyPadded<Source::kPixelBytes * kGroup>(bytes[i], row.plane[i], int(width) * Source::kPixelBytes);
      source.plane[i] = bytes[i];
    }
  }
};
template <class To>
struct ShortSink {
  alignas(64) uint8_t bytes[To::kPlanes][To::kPixelBytes * kGroup];
  To sink;

  explicit ShortSink(const To& row) : sink(row) {
    sink.write.keep();
    for (int i = 0; i < To::kPlanes; ++i) sink.plane[i] = bytes[i];
  }
  void copyTo(const To& row, ptrdiff_t width) const {
    for (int i = 0; i < To::kPlanes; ++i)
      simd::copyFirst<To::kPixelBytes * kGroup>(row.plane[i], bytes[i], int(width) * To::kPixelBytes);
  }
};

// A row of fewer pixels is converted one by one sooner than copied.
inline constexpr int kFewPixels = 4;

// A row's pixels by groups: group(source, sink, x) for those that lie whole in the row's first `main` pixels, and at last
// last(source, sink, x, count) for a group of which `count` pixels come in front of `main`. It overlaps the group before
// it, or has a short row to itself.
template <class Source, class To, class Group, class Last>
QELJ_INLINE void coverByGroups(const Source& source, const To& sink, ptrdiff_t width, ptrdiff_t main, Group&& group,
                               Last&& last) {
  if (width >= kGroup) {
    ptrdiff_t x = 0;
    for (; x + kGroup <= main; x += kGroup) group(source, sink, x);
    if (x == width) return;
    if (main == width) group(source, sink, width - kGroup);
    else last(source, sink, width - kGroup, int(main - (width - kGroup)));
  } else {
    const ShortSource<Source> from(source, width);
    ShortSink<To> to(sink);
    if (main == width) group(from.source, to.sink, 0);
    else last(from.source, to.sink, 0, int(main));
    to.copyTo(sink, width);
  }
}

enum class RowWalk { kFork, kSerial, kSerialAnyStep };

// The front of a whole-image conversion: checks, then rowOperation(source, sink, width) for every row.
template <RowWalk kRows, class Source, class To, class From, class Into, class RowOperation, class... SinkArgument>
QelStatus convertRows(const From* src, int32_t srcStep, Into* dst, int32_t dstStep, QelSize size,
                      RowOperation rowOperation, SinkArgument... sinkArgument) {
  const auto usable = [](int32_t s) { return kRows == RowWalk::kSerialAnyStep ? qelStatusOk : step(s); };
  if (auto s = check(Source::valid(src), To::valid(dst), usable(srcStep), usable(dstStep), area(size)); s) return s;
  const typename To::Write write(size, To::kPixelBytes);
  const auto oneRow = [=](int32_t y) {
    rowOperation(Source(src, srcStep, y), To(dst, dstStep, y, write, sinkArgument...), size.width);
    write.endRow();
  };
  return kRows == RowWalk::kFork ? forEachRow(size, oneRow) : forEachRowSerial(size, oneRow);
}

}  // namespace qelj::jpeg::colour

#endif
