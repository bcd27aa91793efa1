// The integer transforms, one number at a time, written out from their formulas.
#ifndef QELJ_TESTS_JPEG_DCT_MODEL_H
#define QELJ_TESTS_JPEG_DCT_MODEL_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace qelj::test::model {

using Block = std::array<int16_t, 64>;
using Table = std::array<uint16_t, 64>;

inline int sat(int64_t v) { return int(std::clamp<int64_t>(v, -32768, 32767)); }
inline int hi(int a, int b) { return (a * b) >> 16; }
inline int16_t low16(int64_t v) { return int16_t(uint16_t(uint64_t(v))); }
inline int32_t low32(int64_t v) { return int32_t(uint32_t(uint64_t(v))); }

constexpr int kW[8][8] = {{16384, 22725, 21407, 19266, 16384, 12873, 8867, 4520},
                          {22725, 31521, 29692, 26722, 22725, 17855, 12299, 6270},
                          {21407, 29692, 27969, 25172, 21407, 16819, 11585, 5906},
                          {19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315},
                          {16384, 22725, 21407, 19266, 16384, 12873, 8867, 4520},
                          {19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315},
                          {21407, 29692, 27969, 25172, 21407, 16819, 11585, 5906},
                          {22725, 31521, 29692, 26722, 22725, 17855, 12299, 6270}};

inline Block forward(const Block& in, const Table& table) {
  int y[8][8];
  for (size_t x = 0; x < 8; ++x) {
    int r[8];
    for (size_t k = 0; k < 8; ++k) r[k] = in[8 * k + x];
    const auto sum = [&](int a, int b) { return low16(sat(r[a] + r[b]) * 8); };
    const auto difference = [&](int a, int b, int scale) { return low16(sat(r[a] - r[b]) * scale); };
    const int t0 = sum(0, 7), t1 = sum(1, 6), t2 = sum(2, 5), t3 = sum(3, 4);
    const int t4 = difference(3, 4, 8), t7 = difference(0, 7, 8), t5 = difference(2, 5, 16),
              t6 = difference(1, 6, 16);
    const int a0 = sat(t0 + t3), a3 = sat(t0 - t3), a1 = sat(t1 + t2), a2 = sat(t1 - t2);
    const int c0 = hi(sat(t6 + t5), 23170) | 1, c1 = hi(sat(t6 - t5), 23170);
    const int d0 = sat(t7 + c0), d1 = sat(t7 - c0), e0 = sat(t4 + c1), e1 = sat(t4 - c1);
    y[0][x] = sat(a0 + a1);
    y[4][x] = sat(a0 - a1);
    y[2][x] = sat(a3 + hi(a2, 27146)) | 1;
    y[6][x] = sat(hi(a3, 27146) - a2) | 1;
    y[1][x] = sat(d0 + hi(e0, 13036)) | 1;
    y[7][x] = sat(hi(d0, 13036) - e0);
    y[5][x] = sat(sat(hi(d1, -21746) + d1) + e1);
    y[3][x] = sat(d1 - sat(hi(e1, -21746) + e1));
  }
  Block out;
  for (size_t k = 0; k < 8; ++k) {
    const auto& x = y[k];
    const auto& W = kW[k];
    int64_t s[4], d[4];
    for (int n = 0; n < 4; ++n) s[n] = sat(x[n] + x[7 - n]), d[n] = sat(x[n] - x[7 - n]);
    const int64_t o[8] = {W[0] * (s[0] + s[1] + s[2] + s[3]),
                          W[1] * d[0] + W[3] * d[1] + W[5] * d[2] + W[7] * d[3],
                          W[2] * s[0] + W[6] * s[1] - W[6] * s[2] - W[2] * s[3],
                          W[3] * d[0] - W[7] * d[1] - W[1] * d[2] - W[5] * d[3],
                          W[0] * (s[0] - s[1] - s[2] + s[3]),
                          W[5] * d[0] - W[1] * d[1] + W[7] * d[2] + W[3] * d[3],
                          W[6] * s[0] - W[2] * s[1] + W[2] * s[2] - W[6] * s[3],
                          W[7] * d[0] - W[5] * d[1] + W[3] * d[2] - W[1] * d[3]};
    for (size_t u = 0; u < 8; ++u) {
      const int64_t p = int64_t(table[8 * k + u]) * sat(low32(o[u] + 524288) >> 20);
      out[8 * k + u] = int16_t(sat((p + 16383 + ((p >> 15) & 1)) >> 15));
    }
  }
  return out;
}

struct Odd {
  int e0, e1, e2, e3;
};
inline Odd odd(const int (&y)[8]) {
  const int a = sat(sat(hi(y[5], -21746) + y[5]) + y[3]), b = sat(y[5] - sat(hi(y[3], -21746) + y[3]));
  const int p = sat(y[1] + hi(y[7], 13036)), q = sat(hi(y[1], 13036) - y[7]);
  return {sat(p + a), sat(p - a), sat(q + b), sat(q - b)};
}
inline int cos4(int v) { return sat(hi(v, -19195) + v); }

inline Block inverse(const Block& in, const Table& table) {
  constexpr int kRound[8] = {65536, 2901, 2260, 1704, 1024, 455, 512, 373};
  int rows[8][8];
  for (size_t k = 0; k < 8; ++k) {
    int64_t x[8];
    for (size_t u = 0; u < 8; ++u) x[u] = low16(int64_t(in[8 * k + u]) * table[8 * k + u]);
    const auto& W = kW[k];
    const int64_t R = kRound[k];
    const int64_t e[4] = {W[0] * x[0] + W[2] * x[2] + W[0] * x[4] + W[6] * x[6] + R,
                          W[0] * x[0] + W[6] * x[2] - W[0] * x[4] - W[2] * x[6] + R,
                          W[0] * x[0] - W[6] * x[2] - W[0] * x[4] + W[2] * x[6] + R,
                          W[0] * x[0] - W[2] * x[2] + W[0] * x[4] - W[6] * x[6] + R};
    const int64_t o[4] = {W[1] * x[1] + W[3] * x[3] + W[5] * x[5] + W[7] * x[7],
                          W[3] * x[1] - W[7] * x[3] - W[1] * x[5] - W[5] * x[7],
                          W[5] * x[1] - W[1] * x[3] + W[7] * x[5] + W[3] * x[7],
                          W[7] * x[1] - W[5] * x[3] + W[3] * x[5] - W[1] * x[7]};
    for (int n = 0; n < 4; ++n) {
      rows[k][n] = sat(low32(e[n] + o[n]) >> 11);
      rows[k][7 - n] = sat(low32(e[n] - o[n]) >> 11);
    }
  }
  Block out;
  for (size_t x = 0; x < 8; ++x) {
    int y[8];
    for (size_t k = 0; k < 8; ++k) y[k] = rows[k][x];
    const auto [e0, e1, e2, e3] = odd(y);
    const int g0 = sat(y[2] + hi(y[6], 27146)), g1 = sat(hi(y[2], 27146) - y[6]);
    const int h0 = cos4(sat(e1 - e3)), h1 = cos4(sat(e1 + e3));
    const int s0 = sat(y[0] + y[4]), s1 = sat(y[0] - y[4]);
    const int f[4] = {sat(s0 + g0), sat(s1 + g1), sat(s1 - g1), sat(s0 - g0)}, t[4] = {e0, h1, h0, e2};
    for (size_t k = 0; k < 4; ++k) {
      out[8 * k + x] = int16_t(sat(f[k] + t[k]) >> 6);
      out[8 * (7 - k) + x] = int16_t(sat(f[k] - t[k]) >> 6);
    }
  }
  return out;
}

// The weights of row sets, by sample of the left half and coefficient.
constexpr int kToTwo[4][1][8] = {{{16384, 14846, 0, -5213, 0, 3483, 0, -2953}},
                                 {{22725, 20592, 0, -7231, 0, 4832, 0, -4096}},
                                 {},
                                 {{19266, 17457, 0, -6130, 0, 4096, 0, -3472}}};
constexpr int kToFour[4][2][8] = {{{16384, 20995, 15137, 7373, 0, -4926, -6270, -4176},
                                   {16384, 8697, -15137, -17799, 0, 11893, 6270, -1730}},
                                  {{22725, 29121, 20995, 10226, 0, -6833, -8697, -5793},
                                   {22725, 12063, -20995, -24688, 0, 16496, 8697, -2399}},
                                  {{21407, 27432, 19777, 9633, 0, -6436, -8192, -5457},
                                   {21407, 11363, -19777, -23256, 0, 15539, 8192, -2260}},
                                  {{19266, 24688, 17799, 8669, 0, -5793, -7373, -4911},
                                   {19266, 10226, -17799, -20929, 0, 13985, 7373, -2034}}};

inline std::vector<uint8_t> reduced(const Block& in, const Table& table, size_t size) {
  constexpr int kRound[2][8] = {{67072, 5802, 0, 3408, 0, 910, 0, 746},
                                {66560, 5802, 4520, 3408, 0, 910, 1024, 746}};
  int rows[8][4];
  for (size_t k = 0; k < 8; ++k)
    for (size_t n = 0; n < size; ++n) {
      const size_t set = k < 4 ? k : 8 - k, mirrored = std::min(n, size - 1 - n);
      int64_t sum = kRound[size / 4][k];
      for (size_t u = 0; u < 8 && k != 4; ++u) {
        const int w = size == 2 ? kToTwo[set][mirrored][u] : kToFour[set][mirrored][u];
        sum += (u % 2 && n != mirrored ? -w : w) * int64_t(low16(int64_t(in[8 * k + u]) * table[8 * k + u]));
      }
      rows[k][n] = sat(low32(sum) >> 12);
    }
  std::vector<uint8_t> samples(size * size);
  for (size_t x = 0; x < size; ++x) {
    int y[8];
    for (size_t k = 0; k < 8; ++k) y[k] = rows[k][x];
    const auto [e0, e1, e2, e3] = odd(y);
    const int z2 = sat(2 * y[0]), z4 = sat(2 * z2), h = cos4(e1), d = sat(sat(e2 + e0) + sat(h + h));
    const int g = sat(sat(y[2] + hi(y[6], 27146)) + sat(hi(y[2], 27146) - y[6])), a = sat(z2 + g),
              b = sat(z2 - g);
    const int c = sat(e0 + cos4(sat(e1 + e3))), f = sat(e2 + cos4(sat(e1 - e3)));
    const int two[2] = {sat(z4 + d) >> 7, sat(z4 - d) >> 7};
    const int four[4] = {sat(a + c) >> 6, sat(b + f) >> 6, sat(b - f) >> 6, sat(a - c) >> 6};
    for (size_t k = 0; k < size; ++k)
      samples[k * size + x] = uint8_t(std::clamp((size == 2 ? two[k] : four[k]) + 128, 0, 255));
  }
  return samples;
}

}  // namespace qelj::test::model

#endif
