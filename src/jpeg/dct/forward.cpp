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
  int16_t sample(int y, int x) const { return at(src, 8 * y + x); }
  BlockRow row(int y) const { return load<BlockRow>(qelj::row(src, 16, y)); }
  static BlockRow centred(BlockRow row0) { return row0; }
};
struct LevelShifted {
  const uint8_t* src;
  int32_t step;
  int16_t sample(int y, int x) const { return int16_t(qelj::row(src, step, y)[x] - 128); }
  BlockRow row(int y) const { return simd::loadAs<BlockRow, uint8_t>(qelj::row(src, step, y)); }
  static BlockRow centred(BlockRow row0) { return row0 - int16_t(8 * 8 * 128); }
};

// --- first pass, down the columns --------------------------------------------------------------------------

template <class S>
inline void ownForwardColumns(S (&row)[8]) {
  const S r0 = row[0], r1 = row[1], r2 = row[2], r3 = row[3], r4 = row[4], r5 = row[5], r6 = row[6], r7 = row[7];
  const S t0 = (r0 + r7) << 3, t1 = (r1 + r6) << 3, t2 = (r2 + r5) << 3, t3 = (r3 + r4) << 3;
  const S t4 = (r3 - r4) << 3, t7 = (r0 - r7) << 3, t5 = (r2 - r5) << 4, t6 = (r1 - r6) << 4;

  const S a0 = t0 + t3, a1 = t1 + t2, a2 = t1 - t2, a3 = t0 - t3;
  row[0] = a0 + a1;
  row[4] = a0 - a1;
  row[2] = oddOne(a3 + hi(a2, kTan2));
  row[6] = oddOne(hi(a3, kTan2) - a2);

  const S c0 = oddOne(hi(t6 + t5, kHalfCos4)), c1 = hi(t6 - t5, kHalfCos4);
  const S d0 = t7 + c0, d1 = t7 - c0, e0 = t4 + c1, e1 = t4 - c1;
  row[1] = oddOne(d0 + hi(e0, kTan1));
  row[7] = hi(d0, kTan1) - e0;
  row[5] = (hi(d1, kTan3Less1) + d1) + e1;
  row[3] = d1 - (hi(e1, kTan3Less1) + e1);
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

// The same for the coefficients u of one or two rows. A vector of eight weights goes with four coefficients
// and two samples: [which four][which two].
struct alignas(simd::kBytes) ForwardWeights {
  int16_t w[2][2][8 * kRows];
};
constexpr auto kForwardWeights = [] {
  std::array<ForwardWeights, 8 / kRows> all{};
  for (int i = 0; i < 8; ++i)
    for (int u = 0; u < 8; ++u)
      for (int n = 0; n < 4; ++n)
        all[size_t(i / kRows)].w[u / 4][n / 2][i % kRows * 8 + u % 4 * 2 + n % 2] = weight(i, n, u);
  return all;
}();

// A sum of 32 bits shifted right by 20 leaves a coefficient of 12 bits, so that neither the coefficient nor
// its product with t / 2^15 < 2 saturates.
inline WideRows ownQuantise(WideRows x, WideRows t) {
  // t as a signed number lacks 2 when it is at least 1. mulHiRound rounds ties up, which is one too much
  // where the integer part is even: where the low 16 bits of the product are 0x4000.
  const WideRows whole = (x + x) & (t >> 15);
  return mulHiRound(x, t) + whole + (mulWrap(x, t) == int16_t(0x4000));
}

inline WideRows ownForwardRows(WideRows x, const ForwardWeights& weights) {
  const WideRows mirrored = simd::shuffle8<7, 6, 5, 4, 3, 2, 1, 0>(x);
  const auto sums = as<int32_t>(addSat(x, mirrored)), differences = as<int32_t>(subSat(x, mirrored));
  const auto folded = simd::unpackLow(sums, differences);  // s0 s1, d0 d1, s2 s3, d2 d3
  const WideRows first = as<int16_t>(simd::shuffle4<0, 1, 0, 1>(folded));
  const WideRows second = as<int16_t>(simd::shuffle4<2, 3, 2, 3>(folded));
  const auto four = [&](const auto& w) {
    const auto sum = as<uint32_t>(simd::mulAddPairs(first, load<WideRows>(w[0]))) +
                     as<uint32_t>(simd::mulAddPairs(second, load<WideRows>(w[1]))) + uint32_t(kRound);
    return as<int32_t>(sum) >> kShift;
  };
  return simd::packI16(four(weights.w[0]), four(weights.w[1]));
}

template <class Source>
void ownForward(Source source, int16_t* dst, const uint16_t* table) {
  if constexpr (simd::kEnabled) {
    Saturating<BlockRow> rows[8];
    simd::unroll<8>([&](auto k) { rows[k] = {source.row(k)}; });
    ownForwardColumns(rows);
    rows[0].v = Source::centred(rows[0].v);
    simd::unroll<8 / kRows>([&](auto i) {
      constexpr int k = i * kRows;
      const WideRows x = ownForwardRows(joinRows(rows + k), kForwardWeights[i]);
      store(row(dst, 16, k), ownQuantise(x, loadRows(table, k)));
    });
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
