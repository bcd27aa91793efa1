// The multiple-component transforms (ISO/IEC 15444-1, Annex G): three components of a pixel at a time, from
// pixels or planes to planes, and back. The one kernel takes a transform, which holds the arithmetic for one
// pixel and for a vector of pixels, and a layout on each side.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "frame/rows.h"
#include "jpeg2000/transform/lifting.h"

namespace qelj {
namespace {

using namespace jpeg2000;

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
    if constexpr (std::is_same_v<V, int16_t>) {
      return V((r + 2 * g + b) >> 2);
    } else if constexpr (sizeof(Lane<V>) == 2) {
      // h = (r + b) >> 1 without overflow; (2g + 2h + bit) >> 2 is (g + h) >> 1, for the bit cannot carry.
      const auto half = [](V x, V y) { return addWrap(x & y, (x ^ y) >> 1); };
      return half(g, half(r, b));
    } else {
      return shr(addWrap(addWrap(r, b), addWrap(g, g)), 2);
    }
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
    if constexpr (std::is_same_v<V, int16_t>) return V((u + v) >> 2);
    else if constexpr (sizeof(Lane<V>) == 2) return addWrap(u & v, (u ^ v) >> 1) >> 1;
    else return shr(addWrap(u, v), 2);
  }
};

// G.3 in single precision: products first, then the sums from left to right.
struct IctForward32f {
  template <class V>
  static Three<V> apply(V r, V g, V b) {
    return {(r * 0.299f + g * 0.587f) + b * 0.114f, (r * -0.16875f + g * -0.33126f) + b * 0.5f,
            (r * 0.5f + g * -0.41869f) + b * -0.08131f};
  }
};
struct IctInverse32f {
  template <class V>
  static Three<V> apply(V y, V cb, V cr) {
    return {cr * 1.402f + y, (cb * -0.34413f + cr * -0.71414f) + y, cb * 1.772f + y};
  }
};

// G.3 with 14 fractional bits. 32-bit samples: everything wraps, nothing saturates.
template <class V>
inline V times(V x, int32_t factor) {
  if constexpr (OneSample<V>) return mulWrap(x, factor);
  else return mulWrap(x, all<V>(factor));
}
template <class V>
inline V rounded(V sum) {
  return shr(addWrap(sum, all<V>(8192)), 14);
}
struct IctForward32s {
  template <class V>
  static Three<V> apply(V r, V g, V b) {
    const auto sum = [&](int32_t cr, int32_t cg, int32_t cb) {
      return rounded(addWrap(addWrap(times(r, cr), times(g, cg)), times(b, cb)));
    };
    return {sum(4899, 9617, 1868), sum(-2765, -5427, 1 << 13), sum(1 << 13, -6860, -1332)};
  }
};
struct IctInverse32s {
  template <class V>
  static Three<V> apply(V y, V cb, V cr) {
    return {addWrap(y, rounded(times(cr, 22970))), addWrap(y, rounded(addWrap(times(cb, -5638), times(cr, -11700)))),
            addWrap(y, rounded(times(cb, 29032)))};
  }
};

// 16-bit samples: the chroma is a scaled difference from the luma, cut to 16 bits before it is scaled;
// results saturate.
struct IctForward16s {
  static Three<int16_t> apply(int16_t r, int16_t g, int16_t b) {
    const int32_t luma = 4899 * r + 9617 * g + 1868 * b;
    const auto chroma = [&](int32_t x, int32_t scale) {
      const auto difference = int16_t((x * (1 << 14) - luma + 8192) >> 14);
      return clampI16((difference * scale + 8192) >> 14);
    };
    return {clampI16((luma + 8192) >> 14), chroma(b, 9246), chroma(r, 11686)};
  }
  // The same sums as multiply-adds of pairs, (r, g) and (b, 1); the weight of the difference's own component
  // is 1 << 14 less that in the luma.
  template <class V>
  static Three<V> apply(V r, V g, V b) {
    using W = simd::With<int32_t, V>;
    const V one = all<V>(1);
    const V rgLow = simd::unpackLow(r, g), rgHigh = simd::unpackHigh(r, g);
    const V bLow = simd::unpackLow(b, one), bHigh = simd::unpackHigh(b, one);
    const auto sum = [](V rg, V b1, int cr, int cg, int cb) {
      return W((simd::mulAddPairs(rg, simd::pairs<V>(cr, cg)) + simd::mulAddPairs(b1, simd::pairs<V>(cb, 8192))) >> 14);
    };
    const auto chroma = [&](int cr, int cg, int cb, int scale) {
      const V difference =
          V(simd::packU16(sum(rgLow, bLow, cr, cg, cb) & 0xFFFF, sum(rgHigh, bHigh, cr, cg, cb) & 0xFFFF));
      const V weights = simd::pairs<V>(scale, 8192);
      return simd::packI16(W(simd::mulAddPairs(simd::unpackLow(difference, one), weights) >> 14),
                           W(simd::mulAddPairs(simd::unpackHigh(difference, one), weights) >> 14));
    };
    constexpr int k1 = 1 << 14;
    return {simd::packI16(sum(rgLow, bLow, 4899, 9617, 1868), sum(rgHigh, bHigh, 4899, 9617, 1868)),
            chroma(-4899, -9617, k1 - 1868, 9246), chroma(k1 - 4899, -9617, -1868, 11686)};
  }
};
struct IctInverse16s {
  static Three<int16_t> apply(int16_t y, int16_t cb, int16_t cr) {
    // Green subtracts a rounded positive term; the 32-bit form adds a rounded negative one.
    return {clampI16(y + ((22970 * cr + 8192) >> 14)), clampI16(y - ((5638 * cb + 11700 * cr + 8192) >> 14)),
            clampI16(y + ((29032 * cb + 8192) >> 14))};
  }
  template <class V>
  static Three<V> apply(V y, V cb, V cr) {
    using W = simd::With<int32_t, V>;
    const V one = all<V>(1);
    const W yLow = W(simd::unpackLow(y, y)) >> 16, yHigh = W(simd::unpackHigh(y, y)) >> 16;
    const auto term = [](V pairs, int even, int odd) { return simd::mulAddPairs(pairs, simd::pairs<V>(even, odd)); };
    const auto plus = [&](V chroma, int factor) {
      return simd::packI16(W(yLow + (term(simd::unpackLow(chroma, one), factor, 8192) >> 14)),
                           W(yHigh + (term(simd::unpackHigh(chroma, one), factor, 8192) >> 14)));
    };
    const V green = simd::packI16(W(yLow - ((term(simd::unpackLow(cb, cr), 5638, 11700) + 8192) >> 14)),
                                  W(yHigh - ((term(simd::unpackHigh(cb, cr), 5638, 11700) + 8192) >> 14)));
    return {plus(cr, 22970), green, plus(cb, 29032)};
  }
};

// --- layouts: row y of the three components ----------------------------------------------------------------

template <class T>
struct Planes {
  T* plane[3];
  ptrdiff_t step;

  Planes(T* const* p, ptrdiff_t s) : plane{p[0], p[1], p[2]}, step(s) {}
  struct Row {
    T *a, *b, *c;
    template <class V>
    Three<V> get(ptrdiff_t x) const {
      return {load<V>(offset(a, x)), load<V>(offset(b, x)), load<V>(offset(c, x))};
    }
    template <class V>
    void set(ptrdiff_t x, Three<V> v) const {
      store(offset(a, x), v.a), store(offset(b, x), v.b), store(offset(c, x), v.c);
    }
  };
  Row operator[](ptrdiff_t y) const { return {row(plane[0], step, y), row(plane[1], step, y), row(plane[2], step, y)}; }
};

template <class T>
struct Pixels {
  T* pixel;
  ptrdiff_t step;

  struct Row {
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
  Row operator[](ptrdiff_t y) const { return {row(pixel, step, y)}; }
};

// --- the kernel --------------------------------------------------------------------------------------------

template <class Transform, class T, class SrcRow, class DstRow>
void ownComponentRow(const SrcRow src, const DstRow dst, int32_t width) {
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

template <class Transform, class T>
QelStatus pixelsToPlanes(const T* src, int32_t srcStep, T* const* dst, int32_t dstStep, QelSize size) {
  if (auto s = check(nonNull(src), planes(dst, 3), step(srcStep), step(dstStep), area(size)); s) return s;
  const Pixels<const T> from{src, srcStep};
  const Planes<T> to(dst, dstStep);
  return forEachRowSerial(size, [&](int32_t y) { ownComponentRow<Transform, T>(from[y], to[y], size.width); });
}

template <class Transform, class T>
QelStatus planesToPixels(const T* const* src, int32_t srcStep, T* dst, int32_t dstStep, QelSize size) {
  if (auto s = check(planes(src, 3), nonNull(dst), step(srcStep), step(dstStep), area(size)); s) return s;
  const Planes<const T> from(src, srcStep);
  const Pixels<T> to{dst, dstStep};
  return forEachRowSerial(size, [&](int32_t y) { ownComponentRow<Transform, T>(from[y], to[y], size.width); });
}

template <class Transform, class T>
QelStatus planesInPlace(T* const* srcDst, int32_t srcDstStep, QelSize size) {
  if (auto s = check(planes(srcDst, 3), step(srcDstStep), area(size)); s) return s;
  const Planes<T> image(srcDst, srcDstStep);
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
