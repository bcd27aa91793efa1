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

// Where the blocks of a group lie in a row: one after another, or of a row that is shorter than a group at places of
// their own, which may overlap. Stores go in order, so that the last block holds.
inline constexpr int kBlock = 16, kBlocks = kGroup / kBlock;
struct Whole {
  ptrdiff_t x;
  template <int kPixelBytes, class Byte>
  QELJ_INLINE Byte* in(Byte* plane) const {
    return plane + kPixelBytes * x;
  }
};
struct Blocks {
  ptrdiff_t second = 0, third = 0, last = 0;

  Blocks() = default;
  // Of a row of at least a block: the last one ends with it, as does its upper half with half a group.
  QELJ_INLINE explicit Blocks(ptrdiff_t width)
      : second(width >= kGroup / 2 ? kBlock : 0),
        third(width >= kGroup / 2 ? width - kGroup / 2 : 0),
        last(width - kBlock) {}
  QELJ_INLINE ptrdiff_t operator()(int block) const {
    static_assert(kBlocks <= 4);
    return block == 0 ? 0 : block == kBlocks - 1 ? last : block == 1 ? second : third;
  }
  template <int kPixelBytes, class Byte>
  QELJ_INLINE auto in(Byte* plane) const {
    if constexpr (kBlocks == 1) return plane;
    else return [plane, at = *this](int block) QELJ_INLINE_LAMBDA { return plane + kPixelBytes * at(block); };
  }
};
template <class Place>
QELJ_INLINE Bytes loadBytes(const uint8_t* plane, Place at) {
  const auto from = at.template in<1>(plane);
  if constexpr (std::is_pointer_v<decltype(from)>) return load<Bytes>(from);
  else return simd::gatherBlocks<Bytes>(from);
}
// Of a plane with half the columns, widened.
template <class Place>
QELJ_INLINE Words loadHalfColumns(const uint8_t* plane, Place at) {
  if constexpr (std::is_same_v<Place, Whole>) {
    return simd::loadAs<Words, uint8_t>(plane + at.x / 2);
  } else {
    using Half = simd::Vec<uint64_t, kGroup / 2>;
    const auto block = [&](int i) QELJ_INLINE_LAMBDA { return load<uint64_t>(plane + at(i) / 2); };
    if constexpr (kBlocks == 1) return simd::loadAs<Words, uint8_t>(plane);
    else if constexpr (kBlocks == 2) return convert<uint16_t>(as<uint8_t>(Half{block(0), block(1)}));
    else return convert<uint16_t>(as<uint8_t>(Half{block(0), block(1), block(2), block(3)}));
  }
}
template <class Place>
QELJ_INLINE void storeBytes(uint8_t* plane, Place at, Bytes v) {
  const auto to = at.template in<1>(plane);
  if constexpr (std::is_pointer_v<decltype(to)>) store(to, v);
  else simd::scatterBlocks(to, v);
}

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
  QELJ_INLINE RgbK<Bytes> group(auto at) const {
    const auto order = [](const auto& v) QELJ_INLINE_LAMBDA {
      return Order::r == 0 ? RgbK<Bytes>{{v.c0, v.c1, v.c2}, Bytes{}} : RgbK<Bytes>{{v.c2, v.c1, v.c0}, Bytes{}};
    };
    if constexpr (kChannels == 3) return order(simd::loadTriples<Bytes>(at.template in<3>(plane[0])));
    else return order(simd::loadQuadruples<Bytes>(at.template in<4>(plane[0])));
  }
  // The same for forms that start from differences.
  QELJ_INLINE Halves<Differences<Lanes>> differences(auto at) const
    requires(kChannels == 3 && simd::kBytePairs)
  {
    const auto pairs = simd::loadBytePairs3<Bytes>(at.template in<3>(plane[0]));
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
  QELJ_INLINE RgbK<Bytes> group(auto at) const {
    return {{loadBytes(plane[0], at), loadBytes(plane[1], at), loadBytes(plane[2], at)}, Bytes{}};
  }
};

// CMYK: R, G, B are the complements of C, M, Y.
struct CmykPixelSource : RowPlanes<const uint8_t, 1, 4> {
  using RowPlanes::RowPlanes;

  RgbK<int32_t> pixel(ptrdiff_t x) const {
    const uint8_t* at = plane[0] + 4 * x;
    return {{255 - at[0], 255 - at[1], 255 - at[2]}, at[3]};
  }
  QELJ_INLINE RgbK<Bytes> group(auto at) const {
    const auto v = simd::loadQuadruples<Bytes>(at.template in<4>(plane[0]));
    return {{~v.c0, ~v.c1, ~v.c2}, v.c3};
  }
};
struct CmykPlaneSource : RowPlanes<const uint8_t, 4> {
  using RowPlanes::RowPlanes;

  RgbK<int32_t> pixel(ptrdiff_t x) const {
    return {{255 - plane[0][x], 255 - plane[1][x], 255 - plane[2][x]}, plane[3][x]};
  }
  QELJ_INLINE RgbK<Bytes> group(auto at) const {
    return {{~loadBytes(plane[0], at), ~loadBytes(plane[1], at), ~loadBytes(plane[2], at)}, loadBytes(plane[3], at)};
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
  QELJ_INLINE RgbK<Bytes> group(auto at) const {
    const auto from = at.template in<2>(plane[0]);
    const auto first = unpack(simd::gatherPart<Words>(from, 0)), second = unpack(simd::gatherPart<Words>(from, 1));
    const auto bytes = [](Words a, Words b) { return simd::packU8(as<int16_t>(a), as<int16_t>(b)); };
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
    const auto past = [](int64_t bytes) { return bytes >= kStreamedFrom || ownPastTheCaches(bytes); };
    // One comparison for a small image, which is at most 2 MiB of pixels of up to four bytes.
    streams = pixels > (1 << 19) && past(std::min(pixels, int64_t(1) << 40) * pixelBytes);  // far from overflow
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
  QELJ_INLINE void group(auto at, const RgbLanesK& v) const {
    const auto& [r, g, b] = v.rgb;
    simd::storeTriplesClamped(at.template in<3>(plane[0]), Order::r == 0 ? r : b, g, Order::r == 0 ? b : r, write);
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
  QELJ_INLINE void group(auto at, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    simd::storeQuadruples<Bytes>(at.template in<4>(plane[0]),
                                 {Order::r == 0 ? r : b, g, Order::r == 0 ? b : r, all<Bytes>(alpha)}, write);
  }
};

struct PlaneSink : Sink<3> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    plane[0][x] = v.rgb.r, plane[1][x] = v.rgb.g, plane[2][x] = v.rgb.b;
  }
  QELJ_INLINE void group(auto at, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    storeBytes(plane[0], at, r), storeBytes(plane[1], at, g), storeBytes(plane[2], at, b);
  }
};

struct CmykPixelSink : Sink<1, 4> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    uint8_t* at = plane[0] + 4 * x;
    at[0] = uint8_t(~v.rgb.r), at[1] = uint8_t(~v.rgb.g), at[2] = uint8_t(~v.rgb.b), at[3] = v.k;
  }
  QELJ_INLINE void group(auto at, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    simd::storeQuadruples<Bytes>(at.template in<4>(plane[0]), {~r, ~g, ~b, v.k}, write);
  }
};
struct CmykPlaneSink : Sink<4> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, RgbK<uint8_t> v) const {
    plane[0][x] = uint8_t(~v.rgb.r), plane[1][x] = uint8_t(~v.rgb.g), plane[2][x] = uint8_t(~v.rgb.b);
    plane[3][x] = v.k;
  }
  QELJ_INLINE void group(auto at, const RgbLanesK& v) const {
    const auto [r, g, b] = pack(v.rgb);
    storeBytes(plane[0], at, ~r), storeBytes(plane[1], at, ~g), storeBytes(plane[2], at, ~b),
        storeBytes(plane[3], at, v.k);
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
  QELJ_INLINE void group(auto at, const RgbLanesK& v) const {
    const auto [r, g, b] = colour::pack(v.rgb);
    const auto low = [](Bytes bytes) { return as<uint16_t>(simd::unpackLow(bytes, Bytes{})); };
    const auto high = [](Bytes bytes) { return as<uint16_t>(simd::unpackHigh(bytes, Bytes{})); };
    const auto first = pack(low(r), low(g), low(b)), second = pack(high(r), high(g), high(b));
    const auto to = at.template in<2>(plane[0]);
    simd::scatterPart(to, 0, first, write), simd::scatterPart(to, 1, second, write);
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
  QELJ_INLINE void group(auto at, YccK<Bytes> v) const {
    storeBytes(plane[0], at, v.ycc.y), storeBytes(plane[1], at, v.ycc.cb), storeBytes(plane[2], at, v.ycc.cr);
    if constexpr (Planes == 4) storeBytes(plane[3], at, v.k);
  }
};
struct LumaSink : Sink<1> {
  using Sink::Sink;

  void pixel(ptrdiff_t x, YccK<uint8_t> v) const { plane[0][x] = v.ycc.y; }
  QELJ_INLINE void group(auto at, YccK<Bytes> v) const { storeBytes(plane[0], at, v.ycc.y); }
};

template <int Planes>
struct YccSource : RowPlanes<const uint8_t, Planes> {
  using YccSource::RowPlanes::plane;
  using YccSource::RowPlanes::RowPlanes;

  YccK<uint8_t> pixel(ptrdiff_t x) const {
    return {{plane[0][x], plane[1][x], plane[2][x]}, Planes == 4 ? plane[Planes - 1][x] : uint8_t(0)};
  }
  QELJ_INLINE YccK<Bytes> group(auto at) const {
    return {{loadBytes(plane[0], at), loadBytes(plane[1], at), loadBytes(plane[2], at)},
            Planes == 4 ? loadBytes(plane[Planes - 1], at) : Bytes{}};
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
QELJ_INLINE Halves<Lanes> widenOver(Bytes low, Bytes v) {  // (v << 8) + low
  return {as<int16_t>(simd::unpackLow(low, v)), as<int16_t>(simd::unpackHigh(low, v))};
}
QELJ_INLINE Lanes storedLanes(Words chroma) { return as<int16_t>(chroma << 7); }

template <class Form>
QELJ_INLINE Ycc<uint8_t> toYcc(Rgb<int32_t> p) {
  const auto v = Form::ycc(p);
  return {clampU8(v.y), clampU8(v.cb), clampU8(v.cr)};
}
// A form whose constants may differ from lane to lane.
template <class Form>
concept ByLanes = requires { requires Form::kByLanes; };
// A form's constants, each in all lanes.
template <class Form>
struct ConstantsOf {
  static QELJ_INLINE auto low() {
    return [](int k) QELJ_INLINE_LAMBDA { return all<Lanes>(Form::kConstants[size_t(k)]); };
  }
  static QELJ_INLINE auto high() { return low(); }
  static QELJ_INLINE Bytes bytes(int k) { return all<Bytes>(Form::kByteConstants[size_t(k)]); }
};
// A group whose first `main` pixels are of one form, and the others of another. The others are fewer than eight: behind
// whole groups of four or eight pixels, or at the end. Those of Behind end a group, and lie in the upper half of its last
// block.
struct Within {
  int main;
};
struct Behind {
  int main;
};

// Constants of Main and of Tail, so that pixels of two forms cost little more than pixels of one. All come from memory,
// at places of which the compiler knows nothing: it would make vectors of equal lanes, again in each row.
template <class Main, class Tail>
class ConstantsOfTwo {
  static constexpr int kLanes = simd::kLanes<Lanes>, kCount = int(Main::kConstants.size()),
                       kByteCount = int(Main::kByteConstants.size());
  struct Table {
    alignas(64) int16_t lanes[kCount][2 * kLanes];
    alignas(64) uint8_t bytes[kByteCount + 1][2 * kGroup];
  };
  static constexpr Table kTable = [] {
    Table t{};
    for (int k = 0; k < kCount; ++k)
      for (int i = 0; i < 2 * kLanes; ++i)
        t.lanes[k][i] = (i < kLanes ? Main::kConstants : Tail::kConstants)[size_t(k)];
    for (int k = 0; k < kByteCount; ++k)
      for (int i = 0; i < 2 * kGroup; ++i)
        t.bytes[k][i] = (i < kGroup ? Main::kByteConstants : Tail::kByteConstants)[size_t(k)];
    return t;
  }();
  const int16_t *low_ = kTable.lanes[0], *high_ = low_;
  const uint8_t* bytes_ = kTable.bytes[0];
  static QELJ_INLINE auto lanesAt(const int16_t* lanes) {
    return [lanes](int k) QELJ_INLINE_LAMBDA { return load<Lanes>(lanes + 2 * kLanes * k); };
  }

 public:
  QELJ_INLINE explicit ConstantsOfTwo(Behind at) {
    bytes_ += kGroup - at.main, high_ += kGroup - at.main;
    asm("" : "+r"(low_), "+r"(high_), "+r"(bytes_));
  }
  QELJ_INLINE explicit ConstantsOfTwo(Within at) {
    // Unpacking takes eight pixels of each block to a half.
    bytes_ += kGroup - at.main;
    low_ += kLanes - (at.main / 16 * 8 + std::min(at.main % 16, 8));
    high_ += kLanes - (at.main / 16 * 8 + std::max(at.main % 16 - 8, 0));
  }
  QELJ_INLINE auto low() const { return lanesAt(low_); }
  QELJ_INLINE auto high() const { return lanesAt(high_); }
  QELJ_INLINE Bytes bytes(int k) const { return load<Bytes>(bytes_ + 2 * kGroup * k); }
};

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
concept OfDifferences = requires(Source source) { Form::ycc(source.differences(Whole{0}).low); };
template <class Form>
QELJ_INLINE Ycc<Bytes> toYcc(auto p) {
  const auto o = operands(p);
  return pack({Form::ycc(o.low), Form::ycc(o.high)});
}

// Luma with what chroma adds to it.
template <class Form>
QELJ_INLINE Rgb<uint8_t> toRgb(uint8_t y, Rgb<int32_t> offset) {
  const auto colour = [y](int32_t add) { return clampU8(y + add); };
  return {colour(offset.r), colour(offset.g), colour(offset.b)};
}
QELJ_INLINE RgbLanes toRgb(Bytes y, Rgb<Lanes> low, Rgb<Lanes> high) {
  const auto luma = widen(y);
  const auto colour = [&](Lanes addLow, Lanes addHigh)
                          QELJ_INLINE_LAMBDA { return Halves<Lanes>{luma.low + addLow, luma.high + addHigh}; };
  return {colour(low.r, high.r), colour(low.g, high.g), colour(low.b, high.b)};
}
template <class Form>
QELJ_INLINE Rgb<uint8_t> toRgb(Ycc<uint8_t> p) {
  return toRgb<Form>(p.y, Form::offset(CbCr<int32_t>{p.cb - 128, p.cr - 128}));
}

template <class Form>
QELJ_INLINE RgbLanes toRgb(Ycc<Bytes> p, const auto& constants) {
  const Bytes cb = p.cb ^ constants.bytes(Form::kCentre), cr = p.cr ^ constants.bytes(Form::kCentre);
  const auto blue = widenOver(constants.bytes(Form::kLowCb), cb), red = widenOver(constants.bytes(Form::kLowCr), cr),
             pairs = widenOver(cb, cr);
  return toRgb(p.y, Form::offset(ChromaLanes<Lanes>{blue.low, red.low, pairs.low}, constants.low()),
               Form::offset(ChromaLanes<Lanes>{blue.high, red.high, pairs.high}, constants.high()));
}
template <class Form>
QELJ_INLINE RgbLanes toRgb(Ycc<Bytes> p) {
  if constexpr (ByLanes<Form>) {
    return toRgb<Form>(p, ConstantsOf<Form>{});
  } else {
    const auto cb = widen(p.cb), cr = widen(p.cr);
    const auto offset = [](Lanes b, Lanes r) QELJ_INLINE_LAMBDA {
      return Form::offset(CbCr<Lanes>{storedLanes(as<uint16_t>(b)), storedLanes(as<uint16_t>(r))});
    };
    return toRgb(p.y, offset(cb.low, cr.low), offset(cb.high, cr.high));
  }
}

template <class Main, class Tail, class Split>
QELJ_INLINE RgbLanes toRgb(Ycc<Bytes> p, Split at) {
  if constexpr (std::is_same_v<Main, Tail>) return toRgb<Main>(p);
  else return toRgb<Main>(p, ConstantsOfTwo<Main, Tail>(at));
}

QELJ_INLINE Bytes lanesFrom(int main) {
  alignas(64) static constexpr auto kMasks = [] {
    std::array<uint8_t, 2 * kGroup> masks{};
    for (int i = kGroup; i < 2 * kGroup; ++i) masks[size_t(i)] = 0xFF;
    return masks;
  }();
  return load<Bytes>(kMasks.data() + kGroup - main);
}
template <class Main, class Tail, class Split>
QELJ_INLINE Ycc<Bytes> toYcc(auto p, Split at) {
  const auto o = operands(p);
  if constexpr (std::is_same_v<Main, Tail>) {
    return pack({Main::ycc(o.low), Main::ycc(o.high)});
  } else if constexpr (ByLanes<Main> && ByLanes<Tail>) {
    const ConstantsOfTwo<Main, Tail> constants(at);
    return pack({Main::ycc(o.low, constants.low()), Main::ycc(o.high, constants.high())});
  } else {
    Halves<Ycc<Lanes>> v{Main::ycc(o.low), Main::ycc(o.high)};
    const auto others = widenMask(lanesFrom(at.main));
    const auto replace = [](Lanes which, const auto& from, Ycc<Lanes>& to) QELJ_INLINE_LAMBDA {
      const auto tail = Tail::ycc(from);
      to = {select(which, tail.y, to.y), select(which, tail.cb, to.cb), select(which, tail.cr, to.cr)};
    };
    if (std::is_same_v<Split, Behind> || at.main & 8) replace(others.high, o.high, v.high);
    else replace(others.low, o.low, v.low);
    return pack(v);
  }
}

// --- Loops -------------------------------------------------------------------------------------------------

// A row of at most kPixels, in memory that is as long.
template <class Source, int kPixels = kBlock>
struct ShortSource {
  alignas(64) uint8_t bytes[Source::kPlanes][Source::kPixelBytes * kPixels];
  Source source;

  ShortSource(const Source& row, ptrdiff_t width) : source(row) {
    for (int i = 0; i < Source::kPlanes; ++i) {
      simd::copyPadded<Source::kPixelBytes * kPixels>(bytes[i], row.plane[i], int(width) * Source::kPixelBytes);
      source.plane[i] = bytes[i];
    }
  }
};
template <class To, int kPixels = kBlock>
struct ShortSink {
  alignas(64) uint8_t bytes[To::kPlanes][To::kPixelBytes * kPixels];
  To sink;

  explicit ShortSink(const To& row) : sink(row) {
    sink.write.keep();
    for (int i = 0; i < To::kPlanes; ++i) sink.plane[i] = bytes[i];
  }
  void copyTo(const To& row, ptrdiff_t width) const {
    for (int i = 0; i < To::kPlanes; ++i)
      simd::copyFirst<To::kPixelBytes * kPixels>(row.plane[i], bytes[i], int(width) * To::kPixelBytes);
  }
};

// A row of fewer pixels is converted one by one sooner than copied.
inline constexpr int kFewPixels = 4;

// A row's pixels by groups: group(source, sink, at) for those that lie whole in the row's first `main` pixels, and at last
// last(source, sink, at, count) for a group of which `count` pixels come in front of `main`. It overlaps the group before
// it. The blocks of a row shorter than a group overlap; one shorter than a block has memory of its own.
template <class Source, class To, class Group, class Last>
QELJ_INLINE void coverByGroups(const Source& source, const To& sink, ptrdiff_t width, ptrdiff_t main, Group&& group,
                               Last&& last) {
  // The last of several blocks ends with the row, or is one of less than 16 pixels.
  const auto end = [&](const auto& from, const auto& to, auto at, auto count) QELJ_INLINE_LAMBDA {
    if (main == width) group(from, to, at);
    else last(from, to, at, count);
  };
  const Behind behind{int(kGroup - (width - main))};
  if (width >= kGroup) {
    const ptrdiff_t covered = main == width ? width : main / kGroup * kGroup;
    simd::coverInOneLoop<kGroup>(0, covered, [&](ptrdiff_t x) QELJ_INLINE_LAMBDA { group(source, sink, Whole{x}); });
    if (covered != width) last(source, sink, Whole{width - kGroup}, behind);
  } else if (width >= kBlock) {
    end(source, sink, Blocks(width), behind);
  } else {
    const ShortSource<Source> from(source, width);
    ShortSink<To> to(sink);
    end(from.source, to.sink, Blocks{}, Within{int(kGroup - kBlock + main)});
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
