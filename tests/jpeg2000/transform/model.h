// The lifting of one line from its formulas, sample by sample, for the tests to hold the library against. A
// form gives the value of stage t of sample k: 1 and up are lifting steps, 0 is a scaling in front, kStages +
// 1 one behind.
#ifndef QELJ_TESTS_JPEG2000_TRANSFORM_MODEL_H
#define QELJ_TESTS_JPEG2000_TRANSFORM_MODEL_H

#include <algorithm>
#include <cstdint>
#include <vector>

namespace qelj::test {

inline int32_t wrap(int64_t x) { return int32_t(uint32_t(uint64_t(x))); }
inline int16_t sat16(int64_t x) { return int16_t(std::clamp<int64_t>(x, -32768, 32767)); }
// Rounded by itself, whatever the compiler would like to fuse.
inline float product(float a, float b) {
  volatile float p = a * b;
  return p;
}

// What a step may depend on besides its samples: the sample's number, the line's length and phase.
struct Place {
  bool forward;
  int k, w, q;
};

// 5/3 with sums of 32 bits that wrap.
template <class T>
struct Model53 {
  using Sample = T;
  using Work = T;
  static constexpr int kStages = 2;
  static T step(Place p, int t, T x, T l, T r) {
    if (t < 1 || t > 2) return x;
    const int64_t term = (t == 1) == p.forward ? wrap(int64_t(l) + r) >> 1 : wrap(int64_t(l) + r + 2) >> 2;
    return T(t == 1 ? x - term : x + term);
  }
};

// Tiles of 16 bits: 14 fractional bits, everything cut.
struct Tile97_16s {
  using Sample = int16_t;
  using Work = int16_t;
  static constexpr int kStages = 4;
  static int16_t step(Place p, int t, int16_t x, int16_t l, int16_t r) {
    const auto r14 = [](int64_t v) { return (v + 8192) >> 14; };
    constexpr int c[2][5] = {{0, 7266, 14466, -868, -25987}, {0, -25987, -868, 14466, 7266}};
    if (t == 0) return p.forward ? x : int16_t(r14(13318 * x));
    if (t == 5) return p.forward ? int16_t(r14(20155 * x)) : x;
    const int64_t term = r14(int64_t(c[p.forward][t]) * (l + r));
    if (!p.forward) return int16_t((t == 1 ? r14(20155 * x) : x) - term);
    return t == 4 ? int16_t(r14(13318 * int16_t(x + term))) : int16_t(x + term);
  }
};

constexpr float kAlpha = -1.5861343f, kBeta = -0.052980117f, kGamma = 0.8829111f, kDelta = 0.44350687f,
                kK = 1.2301741f, kInvK = 0.8128931f, kDeltaOverK = 0.36052364f;

// Single precision, for rows and columns.
struct Model97_32f {
  using Sample = float;
  using Work = float;
  static constexpr int kStages = 4;
  static float step(Place p, int t, float x, float l, float r) {
    constexpr float c[2][5] = {{0, kDeltaOverK, kGamma, kBeta, kAlpha}, {0, kAlpha, kBeta, kGamma, kDelta}};
    if (t == 0) return x;
    if (t == 5) return p.forward ? product(x, kK) : x;
    const float term = product(c[p.forward][t], l + r);
    if (!p.forward) return (t == 1 ? product(kK, x) : t == 2 ? product(kInvK, x) : x) - term;
    return t == 4 ? product(x + term, kInvK) : x + term;
  }
};

// Tiles of 32 bits: the same between integers, but with delta for delta / K.
struct Tile97_32s {
  using Sample = int32_t;
  struct Work {
    int32_t i;
    float f;
    Work(int32_t x = 0) : i(x), f(float(x)) {}
    Work(float x) : i(0), f(x) {}
    operator int32_t() const {
      return f >= 2147483648.0f ? INT32_MAX : f < -2147483648.0f ? INT32_MIN : int32_t(f);
    }
  };
  static constexpr int kStages = 4;
  static Work step(Place p, int t, Work x, Work l, Work r) {
    if (t == 0) return p.forward ? x : Work(product(kInvK, x.f));
    if (p.forward && t == 1) return x.f + product(kAlpha, float(wrap(int64_t(l.i) + r.i)));
    if (p.forward) return Model97_32f::step(p, t, x.f, l.f, r.f);
    if (t == 1) return product(kK, x.f) - product(kDelta, l.f + r.f);
    if (t == 2) return x.f - product(kGamma, l.f + r.f);
    return Model97_32f::step(p, t, x.f, l.f, r.f);
  }
};

inline int64_t q16(int64_t c, int64_t x) { return (c * x + 32768) >> 16; }

// Rows of 32 bits: 16.16 fixed point.
struct Model97_32s {
  using Sample = int32_t;
  using Work = int32_t;
  static constexpr int kStages = 4;
  static int32_t step(Place p, int t, int32_t x, int32_t l, int32_t r) {
    constexpr int c[2][5] = {{0, 0, 0, -3472, -103949}, {0, -103949, -3472, 57862, 29066}};
    const int64_t sum = int64_t(l) + r;
    if (t == 0) return x;
    if (t == 5) return p.forward ? wrap(q16(80621, x)) : x;
    if (!p.forward && t == 1) return wrap((int64_t(80621) * x - 23627 * sum + 32768) >> 16);
    if (!p.forward && t == 2) return wrap((int64_t(53274) * x - 57862 * sum + 32768) >> 16);
    const int64_t term = wrap(q16(c[p.forward][t], wrap(sum)));
    if (t < 4 || !p.forward) return wrap(p.forward ? x + term : x - term);
    const bool last = p.k >= p.w - 1 - p.q;
    return wrap(last ? q16(53274, wrap(x + term)) : (int64_t(53274) * x + 23627 * sum + 32768) >> 16);
  }
};

// Rows of 16 bits: saturating lanes inside, wider sums near the ends. kStep is the form of single steps.
template <bool kStep>
struct Model97_16s {
  using Sample = int16_t;
  using Work = int16_t;
  static constexpr int kStages = 4;
  static bool inside(Place p, int t) {
    // First and, from the line's end on, last sample of stages 1 to 5: forward and inverse, phase 0 and not
    // 0.
    constexpr int from[2][2][6] = {{{0, 2, 1, 1, 0, 0}, {0, 2, 2, 1, 1, 0}},
                                   {{0, 2, 2, 1, 1, 0}, {0, 2, 1, 1, 0, 0}}};
    constexpr int to[2][2][6] = {{{0, 1, 2, 2, 3, 0}, {0, 1, 1, 2, 2, 0}},
                                 {{0, 1, 1, 2, 2, 3}, {0, 1, 2, 2, 3, 3}}};
    return kStep || (p.k >= from[p.forward][p.q][t] && p.k <= p.w - to[p.forward][p.q][t]);
  }
  static int16_t mulrs(int a, int c) { return int16_t((a * c + 16384) >> 15); }
  static int16_t step(Place p, int t, int16_t x, int16_t l, int16_t r) {
    if (t == 0 || (t == 5 && !p.forward)) return x;
    const int64_t sum = int64_t(l) + r;
    const int16_t s = sat16(sum), doubled = sat16(2 * s), x2 = sat16(2 * x);
    if (inside(p, t) && p.forward)
      return t == 1   ? sat16(x + mulrs(doubled, -25987))
             : t == 2 ? sat16(x + mulrs(s, -1736))
             : t == 3 ? sat16(x + mulrs(s, 28931))
             : t == 4 ? sat16((mulrs(s, 23627) >> 1) + mulrs(x, 26637))
                      : mulrs(x2, 20155);
    if (inside(p, t))
      return t == 1   ? sat16(mulrs(x2, 20155) - (kStep ? mulrs(s, 23627) >> 1 : mulrs(s, 11813)))
             : t == 2 ? sat16(mulrs(x, 26637) - mulrs(s, 28931))
             : t == 3 ? sat16(x + mulrs(s, 1736))
                      : sat16(x + mulrs(doubled, 25987));
    const auto narrow = [](int64_t v) { return wrap(v + 32768) >> 16; };
    if (p.forward) {
      if (t == 1) return sat16(x + q16(-103949, sum));
      if (t == 2) return sat16(x + q16(-3472, sum));
      if (t == 3) return sat16(x + (!p.q && p.k == -1 ? narrow(57862 * sum) : q16(57862, sum)));
      if (t == 5) return sat16(q16(80621, x));
      if (!p.q && p.k == 0) return sat16((53274 * x + 23627 * sum + 32768) >> 16);
      return int16_t(q16(53274, sat16(x + q16(29066, sum))));
    }
    if (t == 1) return sat16((int64_t(80621) * x - 23627 * sum + 32768) >> 16);
    if (t == 2) {
      const int64_t v = int64_t(53274) * x - 57862 * sum;
      return sat16(!p.q && p.k == p.w ? narrow(v) : (v + 32768) >> 16);
    }
    if (t == 3) return sat16(x - q16(-3472, sum));
    return sat16(x - (!p.q && p.k == p.w - 1 ? narrow(-103949 * sum) : q16(-103949, sum)));
  }
};

// The line whose first sample stands at position `first`, lifted; its samples lose their meaning towards both
// ends, one more with every stage.
template <class Model, class T>
std::vector<T> lifted(bool forward, const std::vector<T>& in, int first, int w, int q) {
  std::vector<typename Model::Work> v(in.begin(), in.end());
  for (int t = 0; t <= Model::kStages + 1; ++t) {
    const bool scaling = t == 0 || t > Model::kStages;
    for (int i = scaling ? 0 : 1; i < int(v.size()) - !scaling; ++i) {
      const int m = first + i;
      if ((((m ^ q) & 1) == (t & 1)) != forward) continue;
      const size_t left = size_t(scaling ? i : i - 1), right = size_t(scaling ? i : i + 1);
      v[size_t(i)] = Model::step({forward, m >> 1, w, q}, t, v[size_t(i)], v[left], v[right]);
    }
  }
  return {v.begin(), v.end()};
}

}  // namespace qelj::test

#endif
