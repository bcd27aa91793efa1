// The integer transforms, one number at a time, written out from their formulas.
#ifndef QELJ_TESTS_JPEG_DCT_MODEL_H
#define QELJ_TESTS_JPEG_DCT_MODEL_H

#include <algorithm>
#include <array>
#include <cstdint>

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
    const int a = sat(sat(hi(y[5], -21746) + y[5]) + y[3]), b = sat(y[5] - sat(hi(y[3], -21746) + y[3]));
    const int p = sat(y[1] + hi(y[7], 13036)), q = sat(hi(y[1], 13036) - y[7]);
    const int e0 = sat(p + a), e1 = sat(p - a), e2 = sat(q + b), e3 = sat(q - b);
    const int g0 = sat(y[2] + hi(y[6], 27146)), g1 = sat(hi(y[2], 27146) - y[6]);
    const int m = sat(e1 - e3), n = sat(e1 + e3), h0 = sat(hi(m, -19195) + m), h1 = sat(hi(n, -19195) + n);
    const int s0 = sat(y[0] + y[4]), s1 = sat(y[0] - y[4]);
    const int f[4] = {sat(s0 + g0), sat(s1 + g1), sat(s1 - g1), sat(s0 - g0)}, t[4] = {e0, h1, h0, e2};
    for (size_t k = 0; k < 4; ++k) {
      out[8 * k + x] = int16_t(sat(f[k] + t[k]) >> 6);
      out[8 * (7 - k) + x] = int16_t(sat(f[k] - t[k]) >> 6);
    }
  }
  return out;
}

}  // namespace qelj::test::model

#endif
