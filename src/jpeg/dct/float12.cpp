// The 12-bit DCTs with quantisation, both directions, in single precision. Every operation is rounded as it is written:
// no reassociation, no fused multiply-add.
#include <array>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "frame/rounding.h"
#include "jpeg/dct/cosines.h"

namespace qelj {
namespace {

// --- constants ---------------------------------------------------------------------------------------------

using jpeg::dct::cosine, jpeg::dct::tangent;
constexpr auto kCos4 = float(cosine(4));
constexpr auto kTan1 = float(tangent(1)), kTan2 = float(tangent(2)), kTan3 = float(tangent(3));
static_assert(kCos4 == 0.707106769f && kTan1 == 0.198912367f && kTan2 == 0.414213568f && kTan3 == 0.668178618f);
constexpr float kMiddle = 2048.0f;

// What the one-dimensional transforms leave out: c(y) c(x) / 8 with c(0) = c(4) = 1, c(i) = sqrt(2) cos(i pi/16) =
// c(8 - i), for coefficient row y and column x.
constexpr std::array<float, 64> kScale = [] {
  constexpr auto c = [](size_t i) { return jpeg::dct::scaledCosine(jpeg::dct::kWeightSet[i]); };
  std::array<float, 64> all{};
  for (size_t i = 0; i < 64; ++i) all[i] = float(c(i / 8) * c(i % 8) / 8);
  return all;
}();
static_assert(kScale[0] == 0.125f && kScale[1] == 0.173379987f && kScale[18] == 0.213388354f);

// --- one-dimensional transforms, of one line (V is float) or of several (a vector) -------------------------

template <class V>
inline void ownForwardLine(V (&c)[8]) {
  const V p07 = c[0] + c[7], m07 = c[0] - c[7], p16 = c[1] + c[6], m16 = c[1] - c[6];
  const V p25 = c[2] + c[5], m25 = c[2] - c[5], p34 = c[3] + c[4], m34 = c[3] - c[4];
  const V u = (m16 + m25) * kCos4, v = (m16 - m25) * kCos4;
  const V a = p07 - p34, b = p07 + p34, d = p16 + p25, e = p16 - p25;
  const V g0 = m07 + u, g1 = m07 - u, h0 = m34 + v, h1 = m34 - v;
  c[0] = b + d;
  c[4] = b - d;
  c[2] = a + e * kTan2;
  c[6] = a * kTan2 - e;
  c[1] = g0 + h0 * kTan1;
  c[7] = g0 * kTan1 - h0;
  c[5] = g1 * kTan3 + h1;
  c[3] = g1 - h1 * kTan3;
}

template <class V>
inline void ownInverseLine(V (&z)[8]) {
  const V a = z[5] * kTan3 + z[3], b = z[5] - z[3] * kTan3;
  const V p = z[1] + z[7] * kTan1, q = z[1] * kTan1 - z[7];
  const V e0 = p + a, e1 = p - a, e2 = q + b, e3 = q - b;
  const V h1 = (e1 + e3) * kCos4, h0 = (e1 - e3) * kCos4;
  const V s0 = z[0] + z[4], s1 = z[0] - z[4];
  const V g0 = z[2] + z[6] * kTan2, g1 = z[2] * kTan2 - z[6];
  const V f0 = s0 + g0, f3 = s0 - g0, f1 = s1 + g1, f2 = s1 - g1;
  z[0] = f0 + e0;
  z[1] = f1 + h1;
  z[2] = f2 + h0;
  z[3] = f3 + e2;
  z[4] = f3 - e2;
  z[5] = f2 - h0;
  z[6] = f1 - h1;
  z[7] = f0 - e0;
}

// --- blocks ------------------------------------------------------------------------------------------------

// 64 values, as scalars.
template <void Line(float (&)[8])>
void ownRowsThenColumns(float (&block)[8][8]) {
  for (auto& row : block) Line(row);
  for (int x = 0; x < 8; ++x) {
    float column[8];
    for (int y = 0; y < 8; ++y) column[y] = block[y][x];
    Line(column);
    for (int y = 0; y < 8; ++y) block[y][x] = column[y];
  }
}

// 64 values as vectors: kParts of kLanes lanes make up a row.
using simd::F32;
constexpr int kLanes = simd::kLanes<F32>, kParts = 8 / kLanes;
using FloatBlock = F32[kParts][8];

inline void transpose(FloatBlock& m) {
  FloatBlock from;
  std::memcpy(&from, &m, sizeof m);
  // Of four rows, by blocks: the first columns, the second ones, ...
  const auto four = [](const F32* r, F32(&u)[4]) {
    const auto pairs = [](F32 a, F32 b) { return as<uint64_t>(simd::unpackLow(a, b)); };
    const auto highPairs = [](F32 a, F32 b) { return as<uint64_t>(simd::unpackHigh(a, b)); };
    const auto low01 = pairs(r[0], r[1]), low23 = pairs(r[2], r[3]);
    const auto high01 = highPairs(r[0], r[1]), high23 = highPairs(r[2], r[3]);
    u[0] = as<float>(simd::unpackLow(low01, low23));
    u[1] = as<float>(simd::unpackHigh(low01, low23));
    u[2] = as<float>(simd::unpackLow(high01, high23));
    u[3] = as<float>(simd::unpackHigh(high01, high23));
  };
  for (int part = 0; part < kParts; ++part) {
    F32 top[4], bottom[4];
    four(from[part], top);
    four(from[part] + 4, bottom);
    for (int i = 0; i < 4; ++i) {
      if constexpr (kParts == 1) {
        m[0][i] = simd::lowBlocks(top[i], bottom[i]);
        m[0][i + 4] = simd::highBlocks(top[i], bottom[i]);
      } else {
        m[0][4 * part + i] = top[i];
        m[kParts - 1][4 * part + i] = bottom[i];
      }
    }
  }
}

template <void Line(F32 (&)[8])>
inline void ownRowsThenColumns(FloatBlock& block) {
  for (int pass = 0; pass < 2; ++pass) {
    transpose(block);
    for (auto& part : block) Line(part);
  }
}

// A row of 8 numbers, of 16-bit samples or of a table, as floats.
inline F32 samples(const int16_t* base, int part) {
  return convert<float>(convert<int32_t>(load<simd::Vec<int16_t, 2 * kLanes>>(offset(base, part * kLanes))));
}
inline F32 numbers(const float* table, int y, int part) { return load<F32>(offset(table, 8 * y + part * kLanes)); }

// Rows y and y + 1 of converted values, saturated to 16 bits.
template <class Convert>
inline auto packed(const FloatBlock& block, int y, Convert convert) {
  if constexpr (kParts == 1) {
    const auto both = simd::orderPacked(simd::packI16(convert(block[0][y]), convert(block[0][y + 1])));
    return std::pair(simd::lower(both), simd::upper(both));
  } else {
    const auto one = [&](int k) { return simd::packI16(convert(block[0][k]), convert(block[kParts - 1][k])); };
    return std::pair(one(y), one(y + 1));
  }
}

void ownForward12(const int16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
  if constexpr (simd::kEnabled) {
    FloatBlock block;
    for (int y = 0; y < 8; ++y)
      for (int part = 0; part < kParts; ++part) block[part][y] = samples(row(src, srcStep, y), part) - kMiddle;
    ownRowsThenColumns<ownForwardLine<F32>>(block);
    for (int y = 0; y < 8; ++y)
      for (int part = 0; part < kParts; ++part)
        block[part][y] = block[part][y] * numbers(kScale.data(), y, part) * numbers(table, y, part);
    for (int y = 0; y < 8; y += 2) {
      const auto [first, second] = packed(block, y, [](F32 v) { return roundToInt(v); });
      store(row(dst, 16, y), first);
      store(row(dst, 16, y + 1), second);
    }
  } else {
    float block[8][8];
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) block[y][x] = float(at(row(src, srcStep, y), x)) - kMiddle;
    ownRowsThenColumns<ownForwardLine<float>>(block);
    for (int i = 0; i < 64; ++i)
      put(dst, i, clampI16(roundToInt(block[i / 8][i % 8] * kScale[size_t(i)] * at(table, i))));
  }
}

void ownInverse12(const int16_t* src, uint16_t* dst, int32_t dstStep, const float* table) {
  if constexpr (simd::kEnabled) {
    FloatBlock block;
    for (int y = 0; y < 8; ++y)
      for (int part = 0; part < kParts; ++part)
        block[part][y] = samples(row(src, 16, y), part) * numbers(table, y, part) * numbers(kScale.data(), y, part);
    ownRowsThenColumns<ownInverseLine<F32>>(block);
    const auto clamp12 = [](simd::Vec<int16_t, 16> v) {
      using V = decltype(v);
      return min(max(v, V{}), all<V>(4095));
    };
    for (int y = 0; y < 8; y += 2) {
      const auto [first, second] = packed(block, y, [](F32 v) { return truncateToInt(v + kMiddle); });
      store(row(dst, dstStep, y), clamp12(first));
      store(row(dst, dstStep, y + 1), clamp12(second));
    }
  } else {
    float block[8][8];
    for (int i = 0; i < 64; ++i) block[i / 8][i % 8] = float(at(src, i)) * at(table, i) * kScale[size_t(i)];
    ownRowsThenColumns<ownInverseLine<float>>(block);
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) {
        const int16_t v = clampI16(truncateToInt(block[y][x] + kMiddle));
        put(row(dst, dstStep, y), x, uint16_t(v < 0 ? 0 : v > 4095 ? 4095 : v));
      }
  }
}

}  // namespace

QelStatus qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R(const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table) {
  if (auto s = check(nonNull(src, dst), step(srcStep), nonNull(table)); s) return s;
  const RoundToNearest rounding;
  // A sample counts as a signed number.
  ownForward12(reinterpret_cast<const int16_t*>(src), srcStep, dst, table);
  return qelStatusOk;
}

QelStatus qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R(const int16_t* src, uint16_t* dst, int32_t dstStep, const float* table) {
  if (auto s = check(nonNull(src, dst), step(dstStep), nonNull(table)); s) return s;
  const RoundToNearest rounding;
  ownInverse12(src, dst, dstStep, table);
  return qelStatusOk;
}

}  // namespace qelj
