// Inverse DCTs that save work: of blocks with few coefficients (LS_1x1, LS_2x2, LS_4x4), and to fewer samples
// (To2x2LS, To4x4LS), where a sample stands for 4x4 or 2x2 samples of the whole block.
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/dct/inverse.h"

namespace qelj {
namespace {

using namespace jpeg::dct;

// --- few coefficients --------------------------------------------------------------------------------------

void ownInverse1(const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table) {
  // Not rounded, and cut to 16 bits before it is clamped.
  const uint32_t product = uint32_t(at(src, 0) * int32_t(at(table, 0)));
  const uint64_t sample = clampU8(int16_t((product >> 3) + 128));
  for (int y = 0; y < 8; ++y) store(row(dst, dstStep, y), sample * 0x0101010101010101u);
}

// A row without coefficients still has its rounding term: 1 in row 2, 0 further down.
constexpr int16_t emptyRow(int k) { return int16_t(kInverseRound[k] >> kInverseShift); }
static_assert(emptyRow(2) == 1 && emptyRow(3) == 0 && emptyRow(4) == 0 && emptyRow(5) == 0 && emptyRow(6) == 0 &&
              emptyRow(7) == 0);

// The whole transform of a block whose coefficients stand in the top left kSize x kSize places, 2 or 4.
template <int kSize>
void ownInverseCorner(const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table) {
  const LevelShiftedOut destination{dst, dstStep};
  if constexpr (simd::kEnabled) {
    Saturating<BlockRow> y[4] = {{}, {}, {all<BlockRow>(emptyRow(2))}, {}}, rows[8];
    simd::unroll<kSize / kRows>([&](auto i) {
      constexpr int k = i * kRows;
      WideRows x = ownDequantiseRows(src, table, k);
      if constexpr (kSize == 2) x = as<int16_t>(as<uint64_t>(x) & 0xFFFFFFFFu);
      splitRows(inOrder(ownInverseRows<4>(x, kInverseWeights[i])), y + k);
    });
    constexpr Zero zero;
    if constexpr (kSize == 2) ownInverseColumns(rows, y[0], y[1], y[2], zero, zero, zero, zero, zero);
    else ownInverseColumns(rows, y[0], y[1], y[2], y[3], zero, zero, zero, zero);
    destination.rows(rows);
  } else {
    int16_t coefficients[8][8] = {};
    for (int v = 0; v < kSize; ++v)
      for (int u = 0; u < kSize; ++u) coefficients[v][u] = ownDequantise(src, table, 8 * v + u);
    ownInverseScalar(coefficients, destination);
  }
}

// --- fewer samples: along the rows -------------------------------------------------------------------------
// A weight is the mean of the whole transform's weights over the samples that one sample stands for. They stand by row
// set, sample of the left half, and coefficient; the mirrored sample has the opposite sign for odd coefficients.

constexpr int kReducedShift = 12;  // one more than the whole transform's

// Rows of kSize samples, 4 or 2.
template <int kSize>
struct Reduced {
  int16_t weights[4][kSize / 2][8];
  int32_t round[8];
};
template <int kSize>
constexpr Reduced<kSize> kReduced = [] {
  constexpr int kSpan = 8 / kSize;
  Reduced<kSize> all{};
  for (int k = 0; k < 4; ++k)
    for (int n = 0; n < kSize / 2; ++n)
      for (int u = 0; u < 8; ++u) {
        double sum = 0;
        for (int i = kSpan * n; i < kSpan * (n + 1); ++i) sum += scaledCosine((2 * i + 1) * u);
        all.weights[k][n][u] = int16_t(q14(scaledCosine(k) * sum / kSpan));
      }
  for (int k = 1; k < 8; ++k) all.round[k] = 2 * kInverseRound[k];
  // Row 0's: the half of the columns' shift, as in the whole transform, and a part of what the shift here cuts off.
  all.round[0] = kInverseRound[0] + (kSize == 4 ? 1024 : 1536);
  return all;
}();
static_assert(kReduced<4>.weights[0][1][3] == -17799 && kReduced<4>.weights[1][0][1] == 29121);
static_assert(kReduced<2>.weights[0][0][1] == 14846 && kReduced<2>.weights[3][0][7] == -3472);

template <int kSize>
void ownReducedRow(const int16_t* src, const uint16_t* table, int k, Saturating<int16_t> (&y)[kSize]) {
  for (int n = 0; n < kSize / 2; ++n) {
    const auto& w = kReduced<kSize>.weights[kWeightSet[k]][n];
    uint32_t even = uint32_t(kReduced<kSize>.round[k]), odd = 0;
    for (int u = 0; u < 8; u += 2) {
      even += uint32_t(w[u] * ownDequantise(src, table, 8 * k + u));
      odd += uint32_t(w[u + 1] * ownDequantise(src, table, 8 * k + u + 1));
    }
    y[n] = {clampI16(int32_t(even + odd) >> kReducedShift)};
    y[kSize - 1 - n] = {clampI16(int32_t(even - odd) >> kReducedShift)};
  }
}

// The same as vectors. A vector of rows holds row k, or rows k and k + 1, k even; the sums of rows 0, 2, 4
// and 6 come together in one block of 16 bytes, and those of rows 1, 3, 5 and 7 in another. Weights and
// rounding terms stand by block (0 and 1) in one structure where vectors have both, else in two.
template <class W>
using ByBlock = std::array<W, 2 / kRows>;
// f(i) for the vectors that begin with block i: the rows of blocks 0 and 1.
struct RowBlocks {
  BlockRow even, odd;
};
template <class F>
inline RowBlocks bothBlocks(F f) {
  const auto v = f(0);
  if constexpr (sizeof v == sizeof(BlockRow)) return {v, f(1)};
  else return {simd::lower(v), simd::upper(v)};
}

// By blocks: even + odd, and the mirrored even - odd behind it.
inline WideRows mirroredSums(simd::I32 even, simd::I32 odd) {
  return simd::packI16(addWrap(even, odd) >> kReducedShift, subWrap(even, odd) >> kReducedShift);
}

struct alignas(simd::kBytes) FourWeights {
  // [which pair of rows]: the weights of coefficients 0 2, 0 2, 1 3, 1 3 and of 4 6, 4 6, 5 7, 5 7, which
  // give the even parts of two samples and their odd parts.
  int16_t low[4][8 * kRows], high[4][8 * kRows];
  int32_t round[2][4 * kRows];  // of the even parts of two pairs of rows
};
constexpr auto kFourWeights = [] {
  ByBlock<FourWeights> all{};
  for (int k = 0; k < 8; ++k) {
    const int block = k % kRows;
    auto& one = all[size_t(k % 2 / kRows)];
    for (int n = 0; n < 2; ++n) {
      const auto& w = kReduced<4>.weights[kWeightSet[k]][n];
      for (int u = 0; u < 4; ++u) {
        const int place = 8 * block + u % 2 * 4 + 2 * n + u / 2;
        one.low[k / 2][place] = w[u];
        one.high[k / 2][place] = w[u + 4];
      }
      one.round[k / 4][4 * block + k / 2 % 2 * 2 + n] = kReduced<4>.round[k];
    }
  }
  return all;
}();

// Of four samples a row: samples 0, 1 of row k, then of row k + 2; samples 3, 2 of row k, then of row k + 2. Of k = i and
// k = i + 4, step by step, as the steps of one wait for each other.
inline std::array<WideRows, 2> ownRowsToFour(const int16_t* src, const uint16_t* table, int i,
                                             const FourWeights& weights) {
  const auto sums = [&](int row) {
    const WideRows x = ownDequantiseRows(src, table, i + row);
    const auto low = simd::shuffle8<0, 2, 0, 2, 1, 3, 1, 3>(x), high = simd::shuffle8<4, 6, 4, 6, 5, 7, 5, 7>(x);
    return as<uint64_t>(addWrap(simd::mulAddPairs(low, load<WideRows>(weights.low[row / 2])),
                                simd::mulAddPairs(high, load<WideRows>(weights.high[row / 2]))));
  };
  const auto s0 = sums(0), s2 = sums(2), s4 = sums(4), s6 = sums(6);
  const auto even0 = addWrap(as<int32_t>(simd::unpackLow(s0, s2)), load<simd::I32>(weights.round[0]));
  const auto even4 = addWrap(as<int32_t>(simd::unpackLow(s4, s6)), load<simd::I32>(weights.round[1]));
  const auto odd0 = as<int32_t>(simd::unpackHigh(s0, s2)), odd4 = as<int32_t>(simd::unpackHigh(s4, s6));
  return {mirroredSums(even0, odd0), mirroredSums(even4, odd4)};
}

struct alignas(simd::kBytes) TwoWeights {
  // [coefficients 1 3 or 5 7][rows of two pairs]: the odd parts, as sums over two lanes.
  int16_t odd[2][2][8 * kRows];
  int16_t even[8 * kRows];  // of coefficient 0 of the rows of four pairs
  int32_t round[4 * kRows];
};
constexpr auto kTwoWeights = [] {
  ByBlock<TwoWeights> all{};
  for (int k = 0; k < 8; ++k) {
    const int block = k % kRows, pair = k / 2;
    auto& one = all[size_t(k % 2 / kRows)];
    const auto& w = kReduced<2>.weights[kWeightSet[k]][0];
    const bool counts = k % 2 || k == 0;
    for (int u = 1; u < 8 && counts; u += 2) one.odd[u / 4][pair / 2][8 * block + pair % 2 * 4 + u % 4] = w[u];
    if (counts) one.even[8 * block + 2 * pair] = w[0];
    one.round[4 * block + pair] = kReduced<2>.round[k];
  }
  return all;
}();

// The same weights, of values that the compiler doesn't know: GCC 12 loads a vector of a known value into a register of its
// own where a multiplication could take it from memory, which made a block take 1.03 times as long.
inline const TwoWeights& fromMemory(const TwoWeights& weights) {
  const TwoWeights* address = &weights;
#if defined(__x86_64__) && !defined(QELJ_PORTABLE)
  asm("" : "+r"(address));
#endif
  return *address;
}

// Of two samples a row: sample 0 of row i, i + 2, i + 4, i + 6; sample 1 of the same. Of the even rows only
// row 0 counts.
inline WideRows ownRowsToTwo(const int16_t* src, const uint16_t* table, int i, const TwoWeights& weights) {
  using Quads = simd::U64;  // four coefficients
  const auto row = [&](int k) { return as<uint64_t>(ownDequantiseRows(src, table, i + k)); };
  const auto products = [](auto x, const int16_t* w) { return simd::mulAddPairs(as<int16_t>(x), load<WideRows>(w)); };
  const Quads x0 = row(0), x2 = row(2), x4 = row(4), x6 = row(6);
  const Quads low02 = simd::unpackLow(x0, x2), low46 = simd::unpackLow(x4, x6);
  const auto odd02 = addWrap(products(low02, weights.odd[0][0]), products(simd::unpackHigh(x0, x2), weights.odd[1][0]));
  const auto odd46 = addWrap(products(low46, weights.odd[0][1]), products(simd::unpackHigh(x4, x6), weights.odd[1][1]));
  const auto odd = addWrap(simd::shuffleTwo4<0, 2, 0, 2>(odd02, odd46), simd::shuffleTwo4<1, 3, 1, 3>(odd02, odd46));
  const auto first = simd::shuffleTwo4<0, 2, 0, 2>(as<int32_t>(low02), as<int32_t>(low46));
  return mirroredSums(addWrap(products(first, weights.even), load<simd::I32>(weights.round)), odd);
}

// --- fewer samples: down the columns -----------------------------------------------------------------------
// The means of two or four neighbours among the samples of the whole transform, before its final shift. Every row that
// counts is an argument, as there.

// A sample of the upper half, even + odd, and the one that mirrors it, even - odd, with odd = e + timesCos4(h).
template <class S>
struct Mirrored {
  S even, e, h;
};
template <class S>
inline std::array<Mirrored<S>, 2> ownColumnsToFour(S y0, S y1, S y2, S y3, S y5, S y6, S y7) {
  const auto [e0, e1, e2, e3] = ownOddRows(y1, y3, y5, y7);
  const S g = (y2 + hi(y6, kTan2)) + (hi(y2, kTan2) - y6), z = y0 + y0;
  return {{{z + g, e0, e1 + e3}, {z - g, e2, e1 - e3}}};
}
template <class S>
inline std::pair<S, S> ownMirroredSamples(const Mirrored<S>& c) {
  const S odd = c.e + timesCos4(c.h);
  return {(c.even + odd) >> 6, (c.even - odd) >> 6};
}

template <class S>
inline void ownColumnsToTwo(S (&row)[2], S y0, S y1, S y3, S y5, S y7) {
  const auto odd = ownOddRows(y1, y3, y5, y7);
  const S h = timesCos4(odd.e1), d = (odd.e2 + odd.e0) + (h + h);
  const S two = y0 + y0, z = two + two;
  row[0] = (z + d) >> 7;
  row[1] = (z - d) >> 7;
}

// Lane n of each half, in lane 0 of the half. A rotation where it needs no copy: of shifts, a processor has fewer units.
template <int n>
inline Saturating<BlockRow> fromLane(Saturating<BlockRow> v) {
  if constexpr (kRows == 1) return {as<int16_t>(as<uint64_t>(v.v) >> (16 * n))};
  else return {simd::shuffle8<n, n + 1, n + 2, n + 3, n + 4, (n + 5) % 8, (n + 6) % 8, (n + 7) % 8>(v.v)};
}

// The same of two columns as vectors: y0 stands in lane 0 of each half, and y1, y3, y5, y7 in the four lanes of each
// half of y. Samples are the high bytes of the lanes 0, 2, 4 and 6, row by row: of a sum doubled with saturation, this is
// the sum >> 7, clamped to a signed byte. It saves half of the operations on whole lanes of rows.
inline BlockRow ownColumnsToTwo(Saturating<BlockRow> y0, Saturating<BlockRow> y) {
  using S = Saturating<BlockRow>;
  // y tan, with the 1 that the middle two lanes' tangents lack, and y mirrored: y7, y5, y3, y1.
  const S f = hi(y, kTan1331) + S{y.v & lanes<BlockRow>(kMiddleLanes)};
  const S mirrored = {simd::shuffle8<3, 2, 1, 0, 7, 6, 5, 4>(y.v)};
  const S sum = f + mirrored;
  const S a = fromLane<2>(sum), p = fromLane<3>(sum), b = fromLane<1>(mirrored - f), q = f - mirrored;
  const S e0 = p + a, e1 = p - a, e2 = q + b;
  const S h = timesCos4(e1), d = (e2 + e0) + (h + h);
  const S two = y0 + y0, z = two + two;
  const S sums = {as<int16_t>(simd::shuffleTwo4<0, 2, 0, 2>(as<int32_t>((z + d).v), as<int32_t>((z - d).v)))};
  return (sums + sums).v;
}

// --- fewer samples: blocks ---------------------------------------------------------------------------------

void ownInverseToFour(const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table) {
  if constexpr (simd::kEnabled) {
    std::array<WideRows, 2> rows[2 / kRows];
    for (int i = 0; i < 2 / kRows; ++i) rows[i] = ownRowsToFour(src, table, i, kFourWeights[size_t(i)]);
    const RowBlocks top = bothBlocks([&](int i) { return rows[i][0]; });
    const RowBlocks bottom = bothBlocks([&](int i) { return rows[i][1]; });
    // From here on the lanes 0, 1, 5 and 4 are the four columns; the others have no meaning.
    using S = Saturating<BlockRow>;
    const auto second = [](BlockRow v) { return S{as<int16_t>(as<uint64_t>(v) >> 32)}; };
    const auto [outer, inner] = ownColumnsToFour(S{top.even}, S{top.odd}, second(top.even), second(top.odd),
                                                 S{bottom.odd}, second(bottom.even), second(bottom.odd));
    // Both in one vector: rows 0 and 1, and rows 3 and 2.
    const auto two = [](S a, S b) {
      return S{as<int16_t>(simd::shuffleTwo4<0, 2, 0, 2>(as<int32_t>(a.v), as<int32_t>(b.v)))};
    };
    const auto [rows01, rows32] =
        ownMirroredSamples(Mirrored<S>{two(outer.even, inner.even), two(outer.e, inner.e), two(outer.h, inner.h)});
    constexpr uint8_t kColumns[16] = {0, 1, 3, 2, 4, 5, 7, 6, 12, 13, 15, 14, 8, 9, 11, 10};
    const auto bytes = LevelShiftedOut::bytes(rows01.v, rows32.v);
    const auto samples = as<uint32_t>(simd::shuffleBytes(bytes, simd::blockPattern<simd::Vec<uint8_t, 16>>(kColumns)));
    simd::unroll<4>([&](auto y) { store(row(dst, dstStep, y), uint32_t(samples[int(y)])); });
  } else {
    Saturating<int16_t> y[8][4];
    for (const int k : {0, 1, 2, 3, 5, 6, 7}) ownReducedRow(src, table, k, y[k]);
    for (int x = 0; x < 4; ++x) {
      const auto halves = ownColumnsToFour(y[0][x], y[1][x], y[2][x], y[3][x], y[5][x], y[6][x], y[7][x]);
      for (int k = 0; k < 2; ++k) std::tie(y[k][x], y[3 - k][x]) = ownMirroredSamples(halves[size_t(k)]);
    }
    for (int i = 0; i < 16; ++i) LevelShiftedOut{dst, dstStep}.sample(i / 4, i % 4, y[i / 4][i % 4].v);
  }
}

void ownInverseToTwo(const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table) {
  if constexpr (simd::kEnabled) {
    const RowBlocks of =
        bothBlocks([&](int i) { return ownRowsToTwo(src, table, i, fromMemory(kTwoWeights[size_t(i)])); });
    const auto bytes = as<uint8_t>(ownColumnsToTwo({of.even}, {of.odd}));
    constexpr uint8_t kColumns[16] = {1, 5, 9, 13, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128, 128};
    const auto four = simd::shuffleBytes(bytes, simd::blockPattern<simd::Vec<uint8_t, 16>>(kColumns));
    const uint32_t samples = as<uint32_t>(four)[0] ^ 0x80808080u;  // + 128
    store(row(dst, dstStep, 0), uint16_t(samples));
    store(row(dst, dstStep, 1), uint16_t(samples >> 16));
  } else {
    Saturating<int16_t> y[8][2];
    for (const int k : {0, 1, 3, 5, 7}) ownReducedRow(src, table, k, y[k]);
    for (int x = 0; x < 2; ++x) {
      Saturating<int16_t> column[2];
      ownColumnsToTwo(column, y[0][x], y[1][x], y[3][x], y[5][x], y[7][x]);
      for (int k = 0; k < 2; ++k) y[k][x] = column[k];
    }
    for (int i = 0; i < 4; ++i) LevelShiftedOut{dst, dstStep}.sample(i / 2, i % 2, y[i / 2][i % 2].v);
  }
}

template <void Inverse(const int16_t*, uint8_t*, int32_t, const uint16_t*)>
QelStatus block(const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table) {
  if (auto s = check(nonNull(src, dst), step(dstStep), nonNull(table)); s) return s;
  Inverse(src, dst, dstStep, table);
  return qelStatusOk;
}

}  // namespace

QelStatus qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(const int16_t* src, uint8_t* dst, int32_t dstStep,
                                                  const uint16_t* table) {
  return block<ownInverse1>(src, dst, dstStep, table);
}
QelStatus qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(const int16_t* src, uint8_t* dst, int32_t dstStep,
                                                  const uint16_t* table) {
  return block<ownInverseCorner<2>>(src, dst, dstStep, table);
}
QelStatus qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(const int16_t* src, uint8_t* dst, int32_t dstStep,
                                                  const uint16_t* table) {
  return block<ownInverseCorner<4>>(src, dst, dstStep, table);
}
QelStatus qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R(const int16_t* src, uint8_t* dst, int32_t dstStep,
                                                   const uint16_t* table) {
  return block<ownInverseToTwo>(src, dst, dstStep, table);
}
QelStatus qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R(const int16_t* src, uint8_t* dst, int32_t dstStep,
                                                   const uint16_t* table) {
  return block<ownInverseToFour>(src, dst, dstStep, table);
}

}  // namespace qelj
