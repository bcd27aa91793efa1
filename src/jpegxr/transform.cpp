// The photo core transform (ITU-T T.832, 9.9.7): the reversible transform of 4x4 blocks, in place.
#include <algorithm>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"

namespace qelj {
namespace {

// V is one sample, or one vector with a sample of many blocks. Integers wrap in the width of the sample at every step,
// which is what keeps the lifting reversible over the full range; floats round at every step.
template <class V>
inline constexpr bool kFloat = std::is_floating_point_v<Lane<V>>;

// (x + rounding) >> bits. Floats have no rounding term: each of these is one multiplication.
template <class V>
inline Wrapping<V> shifted(Wrapping<V> x, int rounding, int bits) {
  if (rounding) x = x + Wrapping<V>{all<V>(Lane<V>(rounding))};
  return {shr(x.v, bits)};
}
template <class V>
inline Wrapping<V> half(Wrapping<V> x, int rounding) {
  if constexpr (kFloat<V>) return {x.v * 0.5f};
  else return shifted(x, rounding, 1);
}
template <class V>
inline Wrapping<V> threeEighths(Wrapping<V> x, int rounding) {
  if constexpr (kFloat<V>) return {x.v * 0.375f};
  else return shifted(x + x + x, rounding, 3);
}
template <class V>
inline Wrapping<V> threeQuarters(Wrapping<V> x) {
  if constexpr (kFloat<V>) return {x.v * 0.75f};
  else return shifted(x + x + x, 3, 2);
}

// --- the lifting operations, in place ----------------------------------------------------------------------

// Its own inverse. The last difference is t - c; in float it keeps the form that rounds twice.
template <class V>
inline void butterfly(Wrapping<V>& a, Wrapping<V>& b, Wrapping<V>& c, Wrapping<V>& d, int rounding) {
  const auto s = a + d, u = b - c;
  const auto t = half(s - u, rounding);
  const auto c1 = t - d;
  d = (c1 + d) - c;
  c = c1;
  a = s - d;
  b = u + c;
}

template <class V>
inline void oddRotation(Wrapping<V>& a, Wrapping<V>& b, Wrapping<V>& c, Wrapping<V>& d) {
  b = b - c;
  a = a + d;
  c = c + half(b, 1);
  d = half(a, 1) - d;
  b = b - threeEighths(a, 4);
  a = a + threeEighths(b, 4);
  d = d - threeEighths(c, 4);
  c = c + threeEighths(d, 4);
  d = d + half(b, 0);
  c = c - half(a, 1);
  b = b - d;
  a = a + c;
}

template <class V>
inline void oddRotationInv(Wrapping<V>& a, Wrapping<V>& b, Wrapping<V>& c, Wrapping<V>& d) {
  b = b + d;
  a = a - c;
  d = d - half(b, 0);
  c = c + half(a, 1);
  a = a - threeEighths(b, 4);
  b = b + threeEighths(a, 4);
  c = c - threeEighths(d, 4);
  d = d + threeEighths(c, 4);
  c = c - half(b, 1);
  d = half(a, 1) - d;
  b = b + c;
  a = a - d;
}

template <class V>
inline void oddOddRotation(Wrapping<V>& p, Wrapping<V>& q, Wrapping<V>& r, Wrapping<V>& s) {
  const auto v = p + q, h1 = half(v, 0);
  const auto w = s - r, h2 = half(w, 0);
  auto m = q - h1, n = h2 - s;
  m = m + threeEighths(n, 4);
  n = n - threeQuarters(m);
  m = m + threeEighths(n, 3);
  p = m + h1;
  q = n - h2;
  r = q + w;
  s = v - p;
}

// The three rotation steps run backwards with the roundings of their forward partners.
template <class V>
inline void oddOddRotationInv(Wrapping<V>& e, Wrapping<V>& f, Wrapping<V>& g, Wrapping<V>& h) {
  const auto v = h + e, h1 = half(v, 0);
  const auto w = g - f, h2 = half(w, 0);
  auto m = e - h1, n = f + h2;
  m = m - threeEighths(n, 3);
  n = n + threeQuarters(m);
  m = m - threeEighths(n, 4);
  e = m + h1;
  f = v - e;
  g = n - h2;
  h = w + g;
}

// --- the transform of a block, or of one block a lane: x[row][column] --------------------------------------

struct ForwardPCT {
  template <class V>
  static void block(Wrapping<V> (&x)[4][4]) {
    butterfly(x[0][0], x[0][3], x[3][0], x[3][3], 0);
    butterfly(x[1][1], x[1][2], x[2][1], x[2][2], 0);
    butterfly(x[0][1], x[0][2], x[3][1], x[3][2], 0);
    butterfly(x[1][0], x[1][3], x[2][0], x[2][3], 0);
    // Every butterfly left its four results, low to high, at its own four corners.
    auto aP = x[0][0], bP = x[0][3], cP = x[3][0], dP = x[3][3];
    auto aQ = x[1][1], bQ = x[1][2], cQ = x[2][1], dQ = x[2][2];
    auto aR = x[0][1], bR = x[0][2], cR = x[3][1], dR = x[3][2];
    auto aS = x[1][0], bS = x[1][3], cS = x[2][0], dS = x[2][3];
    butterfly(aP, aR, aS, aQ, 1);
    oddRotation(bR, bP, bQ, bS);
    oddRotation(cS, cP, cQ, cR);
    oddOddRotation(dP, dQ, dR, dS);
    x[0][0] = aP, x[0][1] = aR, x[1][0] = aS, x[1][1] = aQ;
    x[0][2] = bR, x[0][3] = bP, x[1][2] = bQ, x[1][3] = bS;
    x[2][0] = cS, x[3][0] = cP, x[2][1] = cQ, x[3][1] = cR;
    x[2][2] = dP, x[2][3] = dQ, x[3][2] = dR, x[3][3] = dS;
  }
};

struct InversePCT {
  template <class V>
  static void block(Wrapping<V> (&y)[4][4]) {
    butterfly(y[0][0], y[0][1], y[1][0], y[1][1], 1);
    oddRotationInv(y[0][2], y[0][3], y[1][2], y[1][3]);
    oddRotationInv(y[2][0], y[3][0], y[2][1], y[3][1]);
    oddOddRotationInv(y[2][2], y[2][3], y[3][2], y[3][3]);
    auto a = y[0][0], b = y[0][1], c = y[1][0], d = y[1][1];
    auto a1 = y[0][2], b1 = y[0][3], c1 = y[1][2], d1 = y[1][3];
    auto a2 = y[2][0], b2 = y[3][0], c2 = y[2][1], d2 = y[3][1];
    auto e1 = y[2][2], e2 = y[2][3], e3 = -y[3][2], e4 = -y[3][3];
    butterfly(a, b1, b2, e2, 0);
    butterfly(b, a1, d2, e4, 0);
    butterfly(c, d1, a2, e3, 0);
    butterfly(d, c1, c2, e1, 0);
    y[0][0] = a, y[0][3] = b1, y[3][0] = b2, y[3][3] = e2;
    y[0][1] = b, y[0][2] = a1, y[3][1] = d2, y[3][2] = e4;
    y[1][0] = c, y[1][3] = d1, y[2][0] = a2, y[2][3] = e3;
    y[1][1] = d, y[1][2] = c1, y[2][1] = c2, y[2][2] = e1;
  }
};

// --- many blocks at once -----------------------------------------------------------------------------------

// Transposes the 4x4 squares that four vectors of four-sample groups make: behind it vector c holds sample c
// of every group. Its own inverse.
template <class V>
inline void transposeSquares(V (&v)[4]) {
  using simd::unpackHigh, simd::unpackLow;
  if constexpr (sizeof(Lane<V>) == 2) {
    const auto a = as<uint32_t>(unpackLow(v[0], v[1])), b = as<uint32_t>(unpackHigh(v[0], v[1]));
    const auto c = as<uint32_t>(unpackLow(v[2], v[3])), d = as<uint32_t>(unpackHigh(v[2], v[3]));
    const auto ac01 = as<uint64_t>(unpackLow(a, c)), ac23 = as<uint64_t>(unpackHigh(a, c));
    const auto bd01 = as<uint64_t>(unpackLow(b, d)), bd23 = as<uint64_t>(unpackHigh(b, d));
    v[0] = as<V>(unpackLow(ac01, bd01)), v[1] = as<V>(unpackHigh(ac01, bd01));
    v[2] = as<V>(unpackLow(ac23, bd23)), v[3] = as<V>(unpackHigh(ac23, bd23));
  } else {
    const auto ab01 = as<uint64_t>(unpackLow(v[0], v[1])), ab23 = as<uint64_t>(unpackHigh(v[0], v[1]));
    const auto cd01 = as<uint64_t>(unpackLow(v[2], v[3])), cd23 = as<uint64_t>(unpackHigh(v[2], v[3]));
    v[0] = as<V>(unpackLow(ab01, cd01)), v[1] = as<V>(unpackHigh(ab01, cd01));
    v[2] = as<V>(unpackLow(ab23, cd23)), v[3] = as<V>(unpackHigh(ab23, cd23));
  }
}

// The blocks in four cells, each a vector wide and four rows high. One cell may stand for several: it is
// transformed more than once, to the same values.
template <class Direction, class V, class T>
inline void ownCells(T* const (&cell)[4], ptrdiff_t step) {
  Wrapping<V> x[4][4];
  for (int r = 0; r < 4; ++r) {
    V v[4];
    for (int k = 0; k < 4; ++k) v[k] = load<V>(row(cell[k], step, r));
    transposeSquares(v);
    for (int c = 0; c < 4; ++c) x[r][c].v = v[c];
  }
  Direction::block(x);
  for (int r = 0; r < 4; ++r) {
    V v[4] = {x[r][0].v, x[r][1].v, x[r][2].v, x[r][3].v};
    transposeSquares(v);
    for (int k = 0; k < 4; ++k) store(row(cell[k], step, r), v[k]);
  }
}

template <class Direction, class T>
inline void ownBlock(T* block, ptrdiff_t step) {
  Wrapping<T> x[4][4];
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) x[r][c].v = at(row(block, step, r), c);
  Direction::block(x);
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) put(row(block, step, r), c, x[r][c].v);
}

// Bands of up to four rows of blocks, each in cells as wide as they fit, four cells at once: those on top of
// each other, or in a single row of blocks those side by side. The float transform takes blocks in pairs and
// leaves a single last column of blocks as it is.
template <class Direction, class T>
void ownPCT(T* srcDst, ptrdiff_t step, ptrdiff_t width, ptrdiff_t height) {
  if constexpr (std::is_floating_point_v<T>) width &= ~ptrdiff_t(7);
  for (ptrdiff_t y = 0; y < height; y += 16) {
    T* const band = row(srcDst, step, y);
    const int rows = int(std::min<ptrdiff_t>(height - y, 16) / 4);
    ptrdiff_t x = 0;
    const auto strip = [&](auto vector) {
      using V = decltype(vector);
      constexpr ptrdiff_t n = simd::kLanes<V>;
      const auto cell = [&](ptrdiff_t across, int down) {
        return offset(row(band, step, 4 * std::min(down, rows - 1)), x + across * n);
      };
      if (rows == 1)
        for (; x + 4 * n <= width; x += 4 * n)
          ownCells<Direction, V>({cell(0, 0), cell(1, 0), cell(2, 0), cell(3, 0)}, step);
      for (; x + n <= width; x += n) ownCells<Direction, V>({cell(0, 0), cell(0, 1), cell(0, 2), cell(0, 3)}, step);
    };
    if constexpr (simd::kEnabled) {
      if constexpr (simd::kBytes > 16) strip(simd::Vec<T>{});
      strip(simd::Vec<T, 16>{});
    }
    for (; x < width; x += 4)
      for (int k = 0; k < rows; ++k) ownBlock<Direction>(offset(row(band, step, 4 * k), x), step);
  }
}

// --- fronts ------------------------------------------------------------------------------------------------

// The step counts as unsigned: a negative one passes, and the rows go upwards.
template <class T>
QelStatus rowFits(int32_t srcDstStep, int32_t width) {
  return require(uint64_t(uint32_t(srcDstStep)) >= uint64_t(width) * sizeof(T), qelStatusBadStep);
}

template <class Direction, class T>
QelStatus pct(T* srcDst, int32_t srcDstStep, QelSize size) {
  if (auto s = check(nonNull(srcDst), area(size), rowFits<T>(srcDstStep, size.width),
                     require(size.width % 4 == 0 && size.height % 4 == 0, qelStatusBadSize));
      s)
    return s;
  ownPCT<Direction>(srcDst, srcDstStep, size.width, size.height);
  return qelStatusOk;
}

template <class Direction, int width, int height, class T>
QelStatus pct(T* srcDst, int32_t srcDstStep) {
  if (auto s = check(nonNull(srcDst), rowFits<T>(srcDstStep, width)); s) return s;
  ownPCT<Direction>(srcDst, srcDstStep, width, height);
  return qelStatusOk;
}

}  // namespace

QelStatus qeliPCTFwd_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, QelSize size) {
  return pct<ForwardPCT>(srcDst, srcDstStep, size);
}
QelStatus qeliPCTFwd_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, QelSize size) {
  return pct<ForwardPCT>(srcDst, srcDstStep, size);
}
QelStatus qeliPCTFwd_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep, QelSize size) {
  return pct<ForwardPCT>(srcDst, srcDstStep, size);
}
QelStatus qeliPCTFwd16x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 16, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd16x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 16, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd16x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 16, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd8x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 8, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd8x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 8, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd8x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 8, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd8x8_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 8, 8>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd8x8_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 8, 8>(srcDst, srcDstStep);
}
QelStatus qeliPCTFwd8x8_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep) {
  return pct<ForwardPCT, 8, 8>(srcDst, srcDstStep);
}

QelStatus qeliPCTInv_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, QelSize size) {
  return pct<InversePCT>(srcDst, srcDstStep, size);
}
QelStatus qeliPCTInv_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, QelSize size) {
  return pct<InversePCT>(srcDst, srcDstStep, size);
}
QelStatus qeliPCTInv_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep, QelSize size) {
  return pct<InversePCT>(srcDst, srcDstStep, size);
}
QelStatus qeliPCTInv16x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 16, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv16x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 16, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv16x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 16, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv8x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 8, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv8x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 8, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv8x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 8, 16>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv8x8_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 8, 8>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv8x8_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 8, 8>(srcDst, srcDstStep);
}
QelStatus qeliPCTInv8x8_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep) {
  return pct<InversePCT, 8, 8>(srcDst, srcDstStep);
}

}  // namespace qelj
