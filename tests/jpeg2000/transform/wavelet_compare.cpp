#include "support/compare.h"

namespace qelj::test {
namespace {

// Random bits, or with a range finite samples.
template <class T>
Guarded plane(Random& random, size_t width, size_t height, int64_t range) {
  Guarded p(random, width * sizeof(T), height, width * sizeof(T) + size_t(random.in(0, 9)),
            size_t(random.in(0, 33)));
  for (size_t y = 0; range && y < height; ++y)
    for (size_t x = 0; x < width; ++x) {
      const T value = T(random.in(-range, range)) / T(std::is_floating_point_v<T> ? 16 : 1);
      std::memcpy(p.data(y) + x * sizeof(T), &value, sizeof value);
    }
  return p;
}

constexpr size_t kBorder = 4;

// A region of w by h samples a band, the signal twice as long in one direction, and the border around all.
template <class T, bool rows, bool forward, int64_t range>
constexpr auto region = [](auto* function, Random& random, Trace& trace) {
  const auto extent = [&] { return size_t(random.chance(40) ? random.in(1, 6) : random.in(1, 140)); };
  const size_t w = rows && random.chance(15) ? size_t(random.in(500, 1100)) : extent();
  const size_t h = rows ? size_t(random.in(1, 4)) : w > 30 ? size_t(random.in(1, 9)) : extent();
  auto signal = plane<T>(random, (rows ? 2 * w : w) + 2 * kBorder, (rows ? h : 2 * h) + 2 * kBorder, range);
  auto low = plane<T>(random, w + 2 * kBorder, h + 2 * kBorder, range);
  auto high = plane<T>(random, w + 2 * kBorder, h + 2 * kBorder, range);
  const auto inside = [](Guarded& g) { return g.data<T>(kBorder) + kBorder; };
  const auto phase = uint32_t(random.in(0, 2));
  const QelSize size{int32_t(w), int32_t(h)};
  if constexpr (forward)
    trace.status(function(inside(signal), signal.step(), inside(low), low.step(), inside(high), high.step(),
                          size, phase));
  else
    trace.status(function(inside(low), low.step(), inside(high), high.step(), size, inside(signal),
                          signal.step(), phase));
  trace.buffer(signal), trace.buffer(low), trace.buffer(high);
};

// The rows of a step, all of them random.
template <class T, int64_t range>
constexpr auto step = [](auto* function, Random& random, Trace& trace) {
  const auto width = size_t(random.in(1, 150));
  constexpr bool six = std::is_invocable_v<decltype(function), T*, T*, T*, T*, T*, T*, int32_t>;
  std::vector<Guarded> r;
  for (int i = 0; i < (six ? 6 : 8); ++i) r.push_back(plane<T>(random, width, 1, range));
  const auto p = [&](size_t i) { return r[i].template data<T>(); };
  if constexpr (six)
    trace.status(function(p(0), p(1), p(2), p(3), p(4), p(5), int32_t(width)));
  else
    trace.status(function(p(0), p(1), p(2), p(3), p(4), p(5), p(6), p(7), int32_t(width)));
  for (const auto& row : r) trace.buffer(row);
};

#define COMPARE_ROWS(wavelet, type, T, range)                                                \
  QELJ_COMPARE(qeliWTFwdRow_##wavelet##_JPEG2K_##type##_C1R, region<T, true, true, range>);  \
  QELJ_COMPARE(qeliWTInvRow_##wavelet##_JPEG2K_##type##_C1R, region<T, true, false, range>); \
  QELJ_COMPARE(qeliWTFwdColLift_##wavelet##_JPEG2K_##type##_C1, step<T, range>);             \
  QELJ_COMPARE(qeliWTInvColLift_##wavelet##_JPEG2K_##type##_C1, step<T, range>)
#define COMPARE_COLUMNS(wavelet, type, T, range)                                             \
  QELJ_COMPARE(qeliWTFwdCol_##wavelet##_JPEG2K_##type##_C1R, region<T, false, true, range>); \
  QELJ_COMPARE(qeliWTInvCol_##wavelet##_JPEG2K_##type##_C1R, region<T, false, false, range>)
COMPARE_ROWS(B53, 16s, int16_t, 0);
COMPARE_ROWS(B53, 32s, int32_t, 0);
COMPARE_ROWS(D97, 16s, int16_t, 0);
COMPARE_ROWS(D97, 32s, int32_t, 0);
COMPARE_ROWS(D97, 32f, float, 1000000);
COMPARE_COLUMNS(B53, 16s, int16_t, 0);
COMPARE_COLUMNS(B53, 32s, int32_t, 0);
COMPARE_COLUMNS(D97, 32f, float, 1000000);

}  // namespace
}  // namespace qelj::test
