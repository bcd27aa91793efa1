// The 8-bit inverse DCT (ISO/IEC 10918-1, A.3.3) with dequantisation, for blocks with all coefficients or
// with those of the top left corner only.
#ifndef QELJ_JPEG_DCT_INVERSE_H
#define QELJ_JPEG_DCT_INVERSE_H

#include "jpeg/dct/transform.h"

namespace qelj::jpeg::dct {

inline constexpr int kInverseShift = 11;  // of the row pass; the column pass takes the other 6 bits
// Each row has a rounding term of its own. The term of row 0, 2^16, is also the half of the final shift for
// all the block: 2^16 >> 11 is 32, which is 2^6 / 2.
inline constexpr int32_t kInverseRound[8] = {65536, 2901, 2260, 1704, 1024, 455, 512, 373};

// --- dequantisation: the product wraps at 16 bits ----------------------------------------------------------

inline int16_t ownDequantise(const int16_t* src, const uint16_t* table, int i) {
  return mulWrap(at(src, i), int16_t(at(table, i)));
}
inline WideRows ownDequantiseRows(const int16_t* src, const uint16_t* table, int k) {
  return mulWrap(loadRows(src, k), loadRows(table, k));
}

// --- first pass, along the rows ----------------------------------------------------------------------------

inline void ownInverseRow(const int16_t (&x)[8], int k, int16_t (&y)[8]) {
  for (int n = 0; n < 4; ++n) {
    uint32_t even = uint32_t(kInverseRound[k]), odd = 0;
    for (int u = 0; u < 8; u += 2) {
      even += uint32_t(weight(k, n, u) * x[u]);
      odd += uint32_t(weight(k, n, u + 1) * x[u + 1]);
    }
    y[n] = clampI16(int32_t(even + odd) >> kInverseShift);
    y[7 - n] = clampI16(int32_t(even - odd) >> kInverseShift);
  }
}

// The same for one or two rows. A vector of eight weights goes with four samples and the coefficients 0 2, 4
// 6, 1 3 or 5 7.
struct alignas(simd::kBytes) InverseWeights {
  int16_t even[2][8 * kRows], odd[2][8 * kRows];
  int32_t round[4 * kRows];
};
inline constexpr auto kInverseWeights = [] {
  std::array<InverseWeights, 8 / kRows> all{};
  for (int k = 0; k < 8; ++k)
    for (int n = 0; n < 4; ++n) {
      auto& one = all[size_t(k / kRows)];
      for (int u = 0; u < 8; u += 2) {
        const int place = k % kRows * 8 + 2 * n + u / 2 % 2;
        one.even[u / 4][place] = weight(k, n, u);
        one.odd[u / 4][place] = weight(k, n, u + 1);
      }
      one.round[k % kRows * 4 + n] = kInverseRound[k];
    }
  return all;
}();

// Of rows that have kCount coefficients, 4 or 8; with 4, the other lanes of x don't matter. Samples 4 to 7 of a row stand
// the other way round: inOrder() turns them.
template <int kCount>
inline WideRows ownInverseRows(WideRows x, const InverseWeights& weights) {
  using Sums = simd::With<uint32_t, WideRows>;
  const auto products = [](WideRows pairs, const int16_t* w) {
    return as<uint32_t>(simd::mulAddPairs(pairs, load<WideRows>(w)));
  };
  Sums even = products(simd::shuffle8<0, 2, 0, 2, 0, 2, 0, 2>(x), weights.even[0]) + load<Sums>(weights.round);
  Sums odd = products(simd::shuffle8<1, 3, 1, 3, 1, 3, 1, 3>(x), weights.odd[0]);
  if constexpr (kCount == 8) {
    even += products(simd::shuffle8<4, 6, 4, 6, 4, 6, 4, 6>(x), weights.even[1]);
    odd += products(simd::shuffle8<5, 7, 5, 7, 5, 7, 5, 7>(x), weights.odd[1]);
  }
  return simd::packI16(as<int32_t>(even + odd) >> kInverseShift, as<int32_t>(even - odd) >> kInverseShift);
}
inline WideRows inOrder(WideRows y) { return simd::shuffle8<0, 1, 2, 3, 7, 6, 5, 4>(y); }

// --- second pass, down the columns -------------------------------------------------------------------------

// What the odd rows make of a column; y3 to y7 may be Zero.
template <class S>
struct OddPart {
  S e0, e1, e2, e3;
};
template <class S>
inline OddPart<S> ownOddRows(S y1, auto y3, auto y5, auto y7) {
  const auto a = (hi(y5, kTan3Less1) + y5) + y3;
  const auto b = y5 - (hi(y3, kTan3Less1) + y3);
  const S p = y1 + hi(y7, kTan1), q = hi(y1, kTan1) - y7;
  return {p + a, p - a, q + b, q - b};
}
template <class S>
inline S timesCos4(S x) {
  return hi(x, kCos4Less1) + x;
}

// Every row is an argument of its own, as y3 to y7 may be Zero.
template <class S>
inline void ownInverseColumns(S (&row)[8], S y0, S y1, S y2, auto y3, auto y4, auto y5, auto y6, auto y7) {
  const auto [e0, e1, e2, e3] = ownOddRows(y1, y3, y5, y7);
  const S h0 = timesCos4(e1 - e3), h1 = timesCos4(e1 + e3);
  const S g0 = y2 + hi(y6, kTan2), g1 = hi(y2, kTan2) - y6;
  const S s0 = y0 + y4, s1 = y0 - y4;
  const S f0 = s0 + g0, f3 = s0 - g0, f1 = s1 + g1, f2 = s1 - g1;
  row[0] = (f0 + e0) >> 6;
  row[1] = (f1 + h1) >> 6;
  row[2] = (f2 + h0) >> 6;
  row[3] = (f3 + e2) >> 6;
  row[4] = (f3 - e2) >> 6;
  row[5] = (f2 - h0) >> 6;
  row[6] = (f1 - h1) >> 6;
  row[7] = (f0 - e0) >> 6;
}

// The same of two rows a vector: what becomes of even rows stands in lower halves, and of odd rows in upper ones, so that
// one operation serves both. Names and comments go from the lower half to the upper one.
template <class S>
struct RowPairs {
  S r02, r13, r64, r75;
};
template <class S>
inline RowPairs<S> ownInverseColumns(S y01, S y23, S y45, S y67) {
  const auto halves = [](S low, S high) { return S{simd::lowerAndUpper(low.v, high.v)}; };
  const S h01 = hi(y01, kNoneTan1), h23 = hi(y23, kTan2Tan3Less1), h67 = hi(y67, kTan2Tan1);
  const S m23 = h23 + y23, m45 = hi(y45, kNoneTan3Less1) + y45;  // -, tan 3 times y3; y4, tan 3 times y5
  const S s0p = y01 + halves(y45, h67), s1q = halves(y01, h01) - halves(y45, y67);
  const S g0a = y23 + halves(h67, m45), g1b = halves(h23, y45) - halves(y67, m23);
  const S f0e0 = s0p + g0a, f3e1 = s0p - g0a, f1e2 = s1q + g1b, f2e3 = s1q - g1b;
  const S h1h0 = timesCos4(S{simd::highBlocks((f3e1 + f2e3).v, (f3e1 - f2e3).v)});
  const S f0f2 = {simd::lowBlocks(f0e0.v, f2e3.v)}, e0h0 = {simd::highBlocks(f0e0.v, h1h0.v)};
  const S f1f3 = {simd::lowBlocks(f1e2.v, f3e1.v)}, h1e2 = halves(h1h0, f1e2);
  return {(f0f2 + e0h0) >> 6, (f1f3 + h1e2) >> 6, (f1f3 - h1e2) >> 6, (f0f2 - e0h0) >> 6};
}

// --- the destination block ---------------------------------------------------------------------------------

struct CentredOut {
  int16_t* dst;
  void sample(int y, int x, int16_t v) const { put(dst, 8 * y + x, v); }
  void rows(const Saturating<BlockRow> (&r)[8]) const {
    simd::unroll<8>([&](auto y) { store(row(dst, 16, y), r[y].v); });
  }
  template <class S>
  void rows(const RowPairs<S>& r) const {
    const auto pair = [this](int low, int high, S v) {
      const auto rows = inOrder(v.v);
      store(row(dst, 16, low), simd::lower(rows)), store(row(dst, 16, high), simd::upper(rows));
    };
    pair(0, 2, r.r02), pair(1, 3, r.r13), pair(6, 4, r.r64), pair(7, 5, r.r75);
  }
};
// With 128 added, clamped to 0..255.
struct LevelShiftedOut {
  uint8_t* dst;
  int32_t step;
  void sample(int y, int x, int16_t v) const { row(dst, step, y)[x] = clampU8(v + 128); }
  // Saturated to a signed byte, a sample needs only its top bit turned over.
  template <class V>
  static auto bytes(V a, V b) {
    using U = With<uint8_t, V>;
    return as<U>(simd::packI8(a, b)) ^ lanes<U>(kTopBits);
  }
  void rows(const Saturating<BlockRow> (&r)[8]) const {
    simd::unroll<4>([&](auto i) {
      simd::storeHalves(row(dst, step, 2 * i), row(dst, step, 2 * i + 1), bytes(r[2 * i].v, r[2 * i + 1].v));
    });
  }
  template <class S>
  void rows(const RowPairs<S>& r) const {
    static constexpr uint8_t kInOrder[16] = {0, 1, 2, 3, 7, 6, 5, 4, 8, 9, 10, 11, 15, 14, 13, 12};
    const auto four = [](S a, S b) {
      const auto v = bytes(a.v, b.v);
      return simd::shuffleBytes(v, simd::blockPattern<decltype(+v)>(kInOrder));
    };
    const auto pair = [this](int y, auto v) { simd::storeHalves(row(dst, step, y), row(dst, step, y + 1), v); };
    const auto top = four(r.r02, r.r13), bottom = four(r.r64, r.r75);
    pair(0, simd::lower(top)), pair(2, simd::upper(top)), pair(4, simd::upper(bottom)), pair(6, simd::lower(bottom));
  }
};

// The whole transform in its scalar form, of dequantised coefficients. Samples go out row after row: with a step
// shorter than a row, the later one stays.
template <class Destination>
inline void ownInverseScalar(const int16_t (&coefficients)[8][8], Destination destination) {
  int16_t rows[8][8];
  for (int k = 0; k < 8; ++k) ownInverseRow(coefficients[k], k, rows[k]);
  for (int x = 0; x < 8; ++x) {
    Saturating<int16_t> y[8], column[8];
    for (int k = 0; k < 8; ++k) y[k] = {rows[k][x]};
    ownInverseColumns(column, y[0], y[1], y[2], y[3], y[4], y[5], y[6], y[7]);
    for (int k = 0; k < 8; ++k) rows[k][x] = column[k].v;
  }
  for (int i = 0; i < 64; ++i) destination.sample(i / 8, i % 8, rows[i / 8][i % 8]);
}

}  // namespace qelj::jpeg::dct

#endif
