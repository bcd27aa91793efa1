// The 8-bit forward DCT (ISO/IEC 10918-1, A.3.3) with quantisation.
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/dct/transform.h"

namespace qelj {
namespace {

using namespace jpeg::dct;

// --- the source block --------------------------------------------------------------------------------------

// Vectors take samples by rows, as they stand: of what centres them, all but a part of row 0 goes away down the columns,
// and nothing saturates on the way there.
struct Centred {
  const int16_t* src;
  [[maybe_unused]] static constexpr bool kCentred = true;
  int16_t sample(int y, int x) const { return at(src, 8 * y + x); }
  BlockRow row(int y) const { return load<BlockRow>(qelj::row(src, 16, y)); }
  // Rows i and 7 - i: 8 times their sum in the lower half, and 8 or 16 times their difference in the upper one, as the
  // columns start.
  template <class V>
  Saturating<V> mirrored(int i) const {
    const Saturating<BlockRow> top = {row(i)}, bottom = {row(7 - i)}, difference = (top - bottom) << 3;
    return {simd::join(((top + bottom) << 3).v, (i == 1 || i == 2 ? difference << 1 : difference).v)};
  }
};
struct LevelShifted {
  const uint8_t* src;
  int32_t step;
  [[maybe_unused]] static constexpr bool kCentred = false;
  int16_t sample(int y, int x) const { return int16_t(qelj::row(src, step, y)[x] - 128); }
  BlockRow row(int y) const { return simd::loadAs<BlockRow, uint8_t>(qelj::row(src, step, y)); }
  template <class V>
  Saturating<V> mirrored(int i) const {
    const auto eight = [this](int y) {
      return as<uint8_t>(all<With<uint64_t, V>>(load<uint64_t>(qelj::row(src, step, y))));
    };
    const auto pairs = simd::unpackLow(eight(i), eight(7 - i));
    return {simd::mulAddBytes(pairs, lanes<With<int8_t, V>>(i == 1 || i == 2 ? kSum8Difference16 : kSum8Difference8))};
  }
};

// --- first pass, down the columns --------------------------------------------------------------------------

// The even rows, from the sums of rows 0 7, 1 6, 2 5, 3 4, times 8.
template <class S>
inline void ownForwardEven(S (&row)[8], S t0, S t1, S t2, S t3) {
  const S a0 = t0 + t3, a1 = t1 + t2, a2 = t1 - t2, a3 = t0 - t3;
  row[0] = a0 + a1;
  row[4] = a0 - a1;
  row[2] = oddOne(a3 + hi(a2, kTan2));
  row[6] = oddOne(hi(a3, kTan2) - a2);
}
// The odd rows, from the differences of rows 3 4, 2 5, 1 6, 0 7, times 8, 16, 16, 8.
template <class S>
inline void ownForwardOdd(S (&row)[8], S t4, S t5, S t6, S t7) {
  const S c0 = oddOne(hi(t6 + t5, kHalfCos4)), c1 = hi(t6 - t5, kHalfCos4);
  const S d0 = t7 + c0, d1 = t7 - c0, e0 = t4 + c1, e1 = t4 - c1;
  row[1] = oddOne(d0 + hi(e0, kTan1));
  row[7] = hi(d0, kTan1) - e0;
  row[5] = (hi(d1, kTan3Less1) + d1) + e1;
  row[3] = d1 - (hi(e1, kTan3Less1) + e1);
}
template <class S>
inline void ownForwardColumns(S (&row)[8]) {
  const S r0 = row[0], r1 = row[1], r2 = row[2], r3 = row[3], r4 = row[4], r5 = row[5], r6 = row[6], r7 = row[7];
  ownForwardEven(row, (r0 + r7) << 3, (r1 + r6) << 3, (r2 + r5) << 3, (r3 + r4) << 3);
  ownForwardOdd(row, (r3 - r4) << 3, (r2 - r5) << 4, (r1 - r6) << 4, (r0 - r7) << 3);
}

// --- second pass, along the rows, and quantisation ---------------------------------------------------------

constexpr int kShift = 20;
constexpr int32_t kRound = 1 << (kShift - 1);

// x t / 2^15 to nearest, ties to even.
inline int16_t ownQuantise(int16_t x, uint16_t t) {
  const int32_t p = x * int32_t(t);
  return clampI16((p + 16383 + (p >> 15 & 1)) >> 15);
}

[[maybe_unused]] void ownForwardRow(const Saturating<int16_t> (&x)[8], int k, int16_t* dst, const uint16_t* table) {
  for (int u = 0; u < 8; ++u) {
    uint32_t sum = kRound;
    for (int n = 0; n < 4; ++n) {
      const auto folded = u % 2 ? x[n] - x[7 - n] : x[n] + x[7 - n];
      sum += uint32_t(int32_t(folded.v) * weight(k, n, u));
    }
    put(dst, 8 * k + u, ownQuantise(clampI16(int32_t(sum) >> kShift), at(table, 8 * k + u)));
  }
}

// The rows that a vector holds: those that come out of the columns at the same time.
constexpr int kRowsOf[4][2] = {{0, 4}, {2, 6}, {1, 7}, {3, 5}};
constexpr int rowOf(int vector, int block) { return kRows == 1 ? vector : kRowsOf[vector][block]; }

// The same for the coefficients u of one or two rows. A vector of eight weights goes with the even or the odd
// coefficients and two folded samples for each: [odd][which two]. These are the first or the last two of the four for
// all; or, with less to move, as they stand in a row with its mirror image added or subtracted, and with neighbours
// exchanged: such a sum is the same from both ends, and a difference but for the sign. That needs differences that
// don't saturate, which those of samples that the caller has centred may.
template <class Source>
constexpr bool kAsTheyStand = simd::kShuffles && !Source::kCentred;
struct alignas(simd::kBytes) ForwardWeights {
  int16_t w[2][2][8 * kRows];
  int16_t centre[8 * kRows];
};
template <class Source>
constexpr auto kForwardWeights = [] {
  std::array<ForwardWeights, 8 / kRows> all{};
  for (int i = 0; i < 8; ++i) {
    auto& one = all[size_t(i / kRows)];
    const int k = rowOf(i / kRows, i % kRows), place = i % kRows * 8;
    for (int lane = 0; lane < 8; ++lane)
      for (int which = 0; which < 2; ++which) {
        const int u = lane / 2 * 2, from = kAsTheyStand<Source> ? lane ^ 2 * which : 2 * which + lane % 2;
        const int n = from < 4 ? from : 7 - from, sign = from < 4 ? 1 : -1;
        one.w[0][which][place + lane] = weight(k, n, u);
        one.w[1][which][place + lane] = int16_t(sign * weight(k, n, u + 1));
      }
    if (k == 0 && !Source::kCentred) one.centre[place] = int16_t(-64 * 128 * 8 * weight(0, 0, 0) >> 16);
  }
  return all;
}();

// A sum of 32 bits shifted right by 20 leaves a coefficient of 12 bits, so that neither the coefficient nor
// its product with t / 2^15 < 2 saturates. kAnyWhole: whether a t may be 1 or more.
template <bool kAnyWhole>
inline WideRows ownQuantise(WideRows x, WideRows t) {
  // mulHiRound rounds ties up, which is one too much where the integer part is even: where the low 16 bits of the product
  // are 0x4000. t as a signed number lacks 2 when it is at least 1.
  const WideRows rounded = mulHiRound(x, t) + (mulWrap(x, t) == lanes<WideRows>(kSecondBit));
  if constexpr (kAnyWhole) return rounded + ((x + x) & (t >> 15));
  else return rounded;
}

// Vector i of the rows. A sum's upper 16 bits are all that counts, for rounding as well.
template <class Source, int i>
inline WideRows ownForwardRows(WideRows x) {
  static_assert(kRound >> 16 == 1 << (kShift - 16 - 1));
  const auto& weights = kForwardWeights<Source>[i];
  const WideRows mirrored = simd::shuffle8<7, 6, 5, 4, 3, 2, 1, 0>(x);
  const auto four = [](WideRows folded, const auto& w) {
    const auto pairs = as<int32_t>(folded);
    const auto products = [](auto two, const int16_t* with) {
      return simd::mulAddPairs(as<int16_t>(two), load<WideRows>(with));
    };
    if constexpr (kAsTheyStand<Source>)
      return addWrap(products(pairs, w[0]), products(simd::shuffle4<1, 0, 3, 2>(pairs), w[1]));
    else
      return addWrap(products(simd::shuffle4<0, 0, 0, 0>(pairs), w[0]),
                     products(simd::shuffle4<1, 1, 1, 1>(pairs), w[1]));
  };
  const auto even = four(addSat(x, mirrored), weights.w[0]), odd = four(subSat(x, mirrored), weights.w[1]);
  WideRows upper = simd::evenAndOdd(as<int16_t>(as<uint32_t>(even) >> 16), as<int16_t>(odd));
  if constexpr (i == 0 && !Source::kCentred) upper = addWrap(upper, load<WideRows>(weights.centre));
  // The same without the wrap of the sum, which again only the caller's samples can cause.
  if constexpr (kAsTheyStand<Source>) return mulHiRound(upper, lanes<WideRows>(kOneOf16));
  else return addWrap(upper, lanes<WideRows>(kHalfOf16)) >> (kShift - 16);
}

// Of vectors that hold one row each; or, of two rows a vector, the even rows in lower halves and the odd ones in upper
// halves.
template <bool kAnyWhole, class Source>
inline void ownForwardRows(const Saturating<WideRows> (&rows)[8], int16_t* dst, const uint16_t* table) {
  simd::unroll<8 / kRows>([&](auto i) {
    constexpr int k = rowOf(i, 0), k2 = rowOf(i, 1);
    if constexpr (kRows == 1) {
      store(row(dst, 16, k), ownQuantise<kAnyWhole>(ownForwardRows<Source, i>(rows[k].v), loadRows(table, k)));
    } else {
      const WideRows x = k % 2 == 0 ? simd::lowBlocks(rows[k].v, rows[k2].v) : simd::highBlocks(rows[k].v, rows[k2].v);
      const auto t = simd::join(load<BlockRow>(row(table, 16, k)), load<BlockRow>(row(table, 16, k2)));
      const WideRows quantised = ownQuantise<kAnyWhole>(ownForwardRows<Source, i>(x), t);
      store(row(dst, 16, k), simd::lower(quantised)), store(row(dst, 16, k2), simd::upper(quantised));
    }
  });
}

template <class Source>
QELJ_INLINE void ownForward(Source source, int16_t* dst, const uint16_t* table) {
  if constexpr (simd::kEnabled) {
    Saturating<WideRows> rows[8];
    if constexpr (kRows == 1) {
      simd::unroll<8>([&](auto k) { rows[k] = {source.row(k)}; });
      ownForwardColumns(rows);
    } else {
      const auto mirrored = [&](int i) { return source.template mirrored<WideRows>(i); };
      const auto t07 = mirrored(0), t16 = mirrored(1), t25 = mirrored(2), t34 = mirrored(3);
      ownForwardEven(rows, t07, t16, t25, t34);
      ownForwardOdd(rows, t34, t25, t16, t07);
    }
    // Only divisors of 1 ask for factors from 1 on.
    WideRows any{};
    for (int k = 0; k < 8; k += kRows) any |= loadRows(table, k);
    if (simd::isZero(any & lanes<WideRows>(kTopBit))) ownForwardRows<false, Source>(rows, dst, table);
    else ownForwardRows<true, Source>(rows, dst, table);
  } else {
    Saturating<int16_t> rows[8][8];
    for (int x = 0; x < 8; ++x) {
      Saturating<int16_t> column[8];
      for (int y = 0; y < 8; ++y) column[y] = {source.sample(y, x)};
      ownForwardColumns(column);
      for (int y = 0; y < 8; ++y) rows[y][x] = column[y];
    }
    for (int k = 0; k < 8; ++k) ownForwardRow(rows[k], k, dst, table);
  }
}

}  // namespace

QelStatus qeliDCTQuantFwd8x8_JPEG_16s_C1(const int16_t* src, int16_t* dst, const uint16_t* table) {
  if (auto s = nonNull(src, dst, table); s) return s;
  ownForward(Centred{src}, dst, table);
  return qelStatusOk;
}

QelStatus qeliDCTQuantFwd8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table) {
  return qeliDCTQuantFwd8x8_JPEG_16s_C1(srcDst, srcDst, table);
}

QelStatus qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(const uint8_t* src, int32_t srcStep, int16_t* dst,
                                              const uint16_t* table) {
  if (auto s = check(nonNull(src, dst), step(srcStep), nonNull(table)); s) return s;
  ownForward(LevelShifted{src, srcStep}, dst, table);
  return qelStatusOk;
}

}  // namespace qelj
