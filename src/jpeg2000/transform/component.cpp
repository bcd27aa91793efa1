// The multiple-component transforms (ISO/IEC 15444-1, Annex G): three components of a pixel at a time, from pixels or
// planes to planes, and back. The one kernel takes a transform, which holds the arithmetic for one pixel and for a
// vector of pixels, and a layout on each side.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "frame/rows.h"
#include "frame/ycbcr_weights.h"
#include "jpeg2000/transform/groups.h"
#include "jpeg2000/transform/half_sum.h"

namespace qelj {
namespace {

using namespace jpeg2000;
using namespace ycbcr;

template <class V>
struct Three {
  V a, b, c;
};

// --- transforms --------------------------------------------------------------------------------------------

// G.2. Sums of 32-bit samples wrap. Those of 16-bit samples are formed in 32 bits and cut on store.
struct RctForward {
  template <class V>
  static Three<V> apply(V r, V g, V b) {
    return {quarter(r, g, b), subWrap(b, g), subWrap(r, g)};
  }

 private:
  template <class V>
  static V quarter(V r, V g, V b) {  // (r + 2g + b) >> 2
    // Of 2 g + 2 halfSum(r, b) + a bit, that bit cannot carry.
    if constexpr (sizeof(Lane<V>) == 2) return halfSum(g, halfSum(r, b));
    else return shr(addWrap(addWrap(r, b), addWrap(g, g)), 2);
  }
};
struct RctInverse {
  template <class V>
  static Three<V> apply(V y, V u, V v) {
    const V g = subWrap(y, quarter(u, v));
    return {addWrap(v, g), g, addWrap(u, g)};
  }

 private:
  template <class V>
  static V quarter(V u, V v) {  // (u + v) >> 2
    if constexpr (sizeof(Lane<V>) == 2) return shr(halfSum(u, v), 1);
    else return shr(addWrap(u, v), 2);
  }
};

// G.3 in single precision: products first, then the sums from left to right.
struct IctForward32f {
  template <class V>
  static Three<V> apply(V r, V g, V b) {
    return {(r * float(kYR) + g * float(kYG)) + b * float(kYB), (r * float(kCbR) + g * float(kCbG)) + b * float(kCbB),
            (r * float(kCrR) + g * float(kCrG)) + b * float(kCrB)};
  }
};
struct IctInverse32f {
  template <class V>
  static Three<V> apply(V y, V cb, V cr) {
    return {cr * float(kRCr) + y, (cb * float(kGCb) + cr * float(kGCr)) + y, cb * float(kBCb) + y};
  }
};

// G.3 with 14 fractional bits.
constexpr int32_t kOne14 = 1 << 14, kHalf14 = kOne14 / 2;
constexpr int32_t kYR14 = q14(kYR), kYG14 = q14(kYG), kYB14 = q14(kYB);
constexpr int32_t kRCr14 = q14(kRCr), kGCb14 = q14(kGCb), kGCr14 = q14(kGCr), kBCb14 = q14(kBCb);

// 32-bit samples: everything wraps, nothing saturates.
template <class V>
inline V times(V x, int32_t factor) {
  return mulWrap(x, all<V>(factor));
}
template <class V>
inline V rounded(V sum) {
  return shr(addWrap(sum, all<V>(kHalf14)), 14);
}
struct IctForward32s {
  template <class V>
  static Three<V> apply(V r, V g, V b) {
    const auto sum = [&](int32_t cr, int32_t cg, int32_t cb) {
      return rounded(addWrap(addWrap(times(r, cr), times(g, cg)), times(b, cb)));
    };
    return {sum(kYR14, kYG14, kYB14), sum(q14(kCbR), q14(kCbG), q14(kCbB)), sum(q14(kCrR), q14(kCrG), q14(kCrB))};
  }
};
struct IctInverse32s {
  template <class V>
  static Three<V> apply(V y, V cb, V cr) {
    return {addWrap(y, rounded(times(cr, kRCr14))), addWrap(y, rounded(addWrap(times(cb, kGCb14), times(cr, kGCr14)))),
            addWrap(y, rounded(times(cb, kBCb14)))};
  }
};

// 16-bit samples: the chroma is a scaled difference from the luma, cut to 16 bits before it is scaled; results
// saturate. One sample has products of its own; vectors have multiply-adds of pairs.
constexpr int32_t kCbOfDifference14 = q14(kCbOfDifference), kCrOfDifference14 = q14(kCrOfDifference);

struct IctForward16s {
  static Three<int16_t> apply(int16_t r, int16_t g, int16_t b) {
    const int32_t luma = kYR14 * r + kYG14 * g + kYB14 * b;
    const auto chroma = [&](int32_t x, int32_t scale) {
      const auto difference = int16_t((x * kOne14 - luma + kHalf14) >> 14);
      return clampI16((difference * scale + kHalf14) >> 14);
    };
    return {clampI16((luma + kHalf14) >> 14), chroma(b, kCbOfDifference14), chroma(r, kCrOfDifference14)};
  }
  // The same sums of the pairs (r, g) and (b, 1); in chroma, the weight of the difference's own component is a unit
  // minus that in the luma.
  template <class V>
  static Three<V> apply(V r, V g, V b) {
    const V one = all<V>(1);
    const V rgLow = simd::unpackLow(r, g), rgHigh = simd::unpackHigh(r, g);
    const V bLow = simd::unpackLow(b, one), bHigh = simd::unpackHigh(b, one);
    const auto sum = [](V rg, V b1, int cr, int cg, int cb) {
      return (simd::mulAddPairs(rg, simd::pairs<V>(cr, cg)) + simd::mulAddPairs(b1, simd::pairs<V>(cb, kHalf14))) >> 14;
    };
    const auto chroma = [&](int cr, int cg, int cb, int scale) {
      const V difference =
          as<V>(simd::packU16(sum(rgLow, bLow, cr, cg, cb) & 0xFFFF, sum(rgHigh, bHigh, cr, cg, cb) & 0xFFFF));
      const V weights = simd::pairs<V>(scale, kHalf14);
      return simd::packI16(simd::mulAddPairs(simd::unpackLow(difference, one), weights) >> 14,
                           simd::mulAddPairs(simd::unpackHigh(difference, one), weights) >> 14);
    };
    return {simd::packI16(sum(rgLow, bLow, kYR14, kYG14, kYB14), sum(rgHigh, bHigh, kYR14, kYG14, kYB14)),
            chroma(-kYR14, -kYG14, kOne14 - kYB14, kCbOfDifference14),
            chroma(kOne14 - kYR14, -kYG14, -kYB14, kCrOfDifference14)};
  }
};
struct IctInverse16s {
  static Three<int16_t> apply(int16_t y, int16_t cb, int16_t cr) {
    // Green subtracts a rounded positive term; the 32-bit form adds a rounded negative one.
    return {clampI16(y + ((kRCr14 * cr + kHalf14) >> 14)),
            clampI16(y - ((-kGCb14 * cb + -kGCr14 * cr + kHalf14) >> 14)),
            clampI16(y + ((kBCb14 * cb + kHalf14) >> 14))};
  }
  template <class V>
  static Three<V> apply(V y, V cb, V cr) {
    const V one = all<V>(1);
    const auto yLow = as<int32_t>(simd::unpackLow(y, y)) >> 16, yHigh = as<int32_t>(simd::unpackHigh(y, y)) >> 16;
    const auto term = [](V pairs, int even, int odd) { return simd::mulAddPairs(pairs, simd::pairs<V>(even, odd)); };
    const auto plus = [&](V chroma, int factor) {
      return simd::packI16(yLow + (term(simd::unpackLow(chroma, one), factor, kHalf14) >> 14),
                           yHigh + (term(simd::unpackHigh(chroma, one), factor, kHalf14) >> 14));
    };
    const auto green = [&](V chroma) { return (term(chroma, -kGCb14, -kGCr14) + kHalf14) >> 14; };
    return {plus(cr, kRCr14),
            simd::packI16(yLow - green(simd::unpackLow(cb, cr)), yHigh - green(simd::unpackHigh(cb, cr))),
            plus(cb, kBCb14)};
  }
};

// --- layouts: row y of the three components ----------------------------------------------------------------

template <class T>
struct ThreePlanes {
  T* plane[3];
  ptrdiff_t step;

  ThreePlanes(T* const* p, ptrdiff_t s) : plane{p[0], p[1], p[2]}, step(s) {}
  struct Line {
    T *a, *b, *c;
    template <class V, class Memory = Whole<V>>
    Three<V> get(ptrdiff_t x, Memory memory = {}) const {
      return {memory.load(offset(a, x)), memory.load(offset(b, x)), memory.load(offset(c, x))};
    }
    template <class V, class Memory = Whole<V>>
    void set(ptrdiff_t x, Three<V> v, Memory memory = {}) const {
      memory.store(offset(a, x), v.a), memory.store(offset(b, x), v.b), memory.store(offset(c, x), v.c);
    }
  };
  Line operator[](ptrdiff_t y) const {
    return {row(plane[0], step, y), row(plane[1], step, y), row(plane[2], step, y)};
  }
};

template <class T>
struct TriplePixels {
  T* pixel;
  ptrdiff_t step;

  struct Line {
    T* first;
    template <class V>
    Three<V> get(ptrdiff_t x) const {
      const void* p = offset(first, 3 * x);
      if constexpr (OneSample<V>) {
        const auto v = load<Three<V>>(p);
        return {v.a, v.b, v.c};
      } else {
        const auto v = simd::loadTriples<V>(p);
        return {v.c0, v.c1, v.c2};
      }
    }
    template <class V>
    void set(ptrdiff_t x, Three<V> v) const {
      void* p = offset(first, 3 * x);
      if constexpr (OneSample<V>) store(p, v);
      else simd::storeTriples<V>(p, {v.a, v.b, v.c});
    }
  };
  Line operator[](ptrdiff_t y) const { return {row(pixel, step, y)}; }
};

// --- the kernel --------------------------------------------------------------------------------------------

template <class Transform, class T, class SrcRow, class DstRow>
void ownComponentRow(const SrcRow src, const DstRow dst, int32_t width) {
  if constexpr (simd::kMasks && std::is_same_v<SrcRow, DstRow>) {  // planes in place
    return coverByGroups<T>(width, [&](ptrdiff_t i, auto memory) QELJ_INLINE_LAMBDA {
      using V = decltype(memory.load(nullptr));
      const auto in = src.template get<V>(i, memory);
      dst.template set<V>(i, Transform::apply(in.a, in.b, in.c), memory);
    });
  }
  ptrdiff_t x = 0;
  if constexpr (simd::kEnabled) {
    using V = simd::Vec<T>;
    constexpr int32_t kGroup = simd::kLanes<V>;
    for (; x + 2 * kGroup <= width; x += 2 * kGroup) {  // a cache line of each plane at once
      const auto a = src.template get<V>(x), b = src.template get<V>(x + kGroup);
      dst.template set<V>(x, Transform::apply(a.a, a.b, a.c));
      dst.template set<V>(x + kGroup, Transform::apply(b.a, b.b, b.c));
    }
    if (x + kGroup <= width) {
      const auto a = src.template get<V>(x);
      dst.template set<V>(x, Transform::apply(a.a, a.b, a.c));
      x += kGroup;
    }
  }
  for (; x < width; ++x) {
    const auto in = src.template get<T>(x);
    dst.template set<T>(x, Transform::apply(in.a, in.b, in.c));
  }
}

// Rows that follow one another without a gap are one long row, which saves the ends of short ones.
constexpr QelSize asOneRow(QelSize size, bool dense) {
  const int64_t pixels = int64_t(size.width) * size.height;
  return dense && pixels <= INT32_MAX ? QelSize{int32_t(pixels), 1} : size;
}
template <class T>
constexpr bool isDense(int32_t step, QelSize size, int channels) {
  return step == int64_t(size.width) * channels * int64_t(sizeof(T));
}

template <class Transform, class T>
QelStatus pixelsToPlanes(const T* src, int32_t srcStep, T* const* dst, int32_t dstStep, QelSize size) {
  if (auto s = check(nonNull(src), planes(dst, 3), step(srcStep), step(dstStep), area(size)); s) return s;
  size = asOneRow(size, isDense<T>(srcStep, size, 3) && isDense<T>(dstStep, size, 1));
  const TriplePixels<const T> from{src, srcStep};
  const ThreePlanes<T> to(dst, dstStep);
  return forEachRowSerial(size, [&](int32_t y) { ownComponentRow<Transform, T>(from[y], to[y], size.width); });
}

template <class Transform, class T>
QelStatus planesToPixels(const T* const* src, int32_t srcStep, T* dst, int32_t dstStep, QelSize size) {
  if (auto s = check(planes(src, 3), nonNull(dst), step(srcStep), step(dstStep), area(size)); s) return s;
  size = asOneRow(size, isDense<T>(srcStep, size, 1) && isDense<T>(dstStep, size, 3));
  const ThreePlanes<const T> from(src, srcStep);
  const TriplePixels<T> to{dst, dstStep};
  return forEachRowSerial(size, [&](int32_t y) { ownComponentRow<Transform, T>(from[y], to[y], size.width); });
}

template <class Transform, class T>
QelStatus planesInPlace(T* const* srcDst, int32_t srcDstStep, QelSize size) {
  if (auto s = check(planes(srcDst, 3), step(srcDstStep), area(size)); s) return s;
  size = asOneRow(size, isDense<T>(srcDstStep, size, 1));
  const ThreePlanes<T> image(srcDst, srcDstStep);
  return forEachRowSerial(size, [&](int32_t y) { ownComponentRow<Transform, T>(image[y], image[y], size.width); });
}

}  // namespace

QelStatus qeliRCTFwd_JPEG2K_16s_C3P3R(const int16_t* src, int32_t srcStep, int16_t* const dst[3], int32_t dstStep,
                                      QelSize size) {
  return pixelsToPlanes<RctForward>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRCTInv_JPEG2K_16s_P3C3R(const int16_t* const src[3], int32_t srcStep, int16_t* dst, int32_t dstStep,
                                      QelSize size) {
  return planesToPixels<RctInverse>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRCTFwd_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<RctForward>(srcDst, srcDstStep, size);
}
QelStatus qeliRCTInv_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<RctInverse>(srcDst, srcDstStep, size);
}

QelStatus qeliRCTFwd_JPEG2K_32s_C3P3R(const int32_t* src, int32_t srcStep, int32_t* const dst[3], int32_t dstStep,
                                      QelSize size) {
  return pixelsToPlanes<RctForward>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRCTInv_JPEG2K_32s_P3C3R(const int32_t* const src[3], int32_t srcStep, int32_t* dst, int32_t dstStep,
                                      QelSize size) {
  return planesToPixels<RctInverse>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliRCTFwd_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<RctForward>(srcDst, srcDstStep, size);
}
QelStatus qeliRCTInv_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<RctInverse>(srcDst, srcDstStep, size);
}

QelStatus qeliICTFwd_JPEG2K_32f_C3P3R(const float* src, int32_t srcStep, float* const dst[3], int32_t dstStep,
                                      QelSize size) {
  return pixelsToPlanes<IctForward32f>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliICTInv_JPEG2K_32f_P3C3R(const float* const src[3], int32_t srcStep, float* dst, int32_t dstStep,
                                      QelSize size) {
  return planesToPixels<IctInverse32f>(src, srcStep, dst, dstStep, size);
}
QelStatus qeliICTFwd_JPEG2K_32f_P3IR(float* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<IctForward32f>(srcDst, srcDstStep, size);
}
QelStatus qeliICTInv_JPEG2K_32f_P3IR(float* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<IctInverse32f>(srcDst, srcDstStep, size);
}
QelStatus qeliICTFwd_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<IctForward32s>(srcDst, srcDstStep, size);
}
QelStatus qeliICTInv_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<IctInverse32s>(srcDst, srcDstStep, size);
}
QelStatus qeliICTFwd_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<IctForward16s>(srcDst, srcDstStep, size);
}
QelStatus qeliICTInv_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size) {
  return planesInPlace<IctInverse16s>(srcDst, srcDstStep, size);
}

}  // namespace qelj
