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

// Three planes with one step, and the pixels that they make.
template <class T, class Use>
void withComponents(Random& random, Trace& trace, Use use) {
  const auto width = size_t(random.in(1, 120)), height = size_t(random.in(1, 9));
  constexpr int64_t kRange = std::is_floating_point_v<T> ? 1000000 : 0;
  auto all = plane<T>(random, width, 3 * height, kRange),
       pixels = plane<T>(random, 3 * width, height, kRange);
  T* const planes[3] = {all.template data<T>(), all.template data<T>(height),
                        all.template data<T>(2 * height)};
  use(planes, all.step(), pixels.template data<T>(), pixels.step(), QelSize{int32_t(width), int32_t(height)});
  trace.buffer(all), trace.buffer(pixels);
}
template <class T>
constexpr auto planesInPlace = [](auto* function, Random& random, Trace& trace) {
  withComponents<T>(random, trace, [&](T* const* planes, int32_t step, T*, int32_t, QelSize size) {
    trace.status(function(planes, step, size));
  });
};
template <class T>
constexpr auto toPlanes = [](auto* function, Random& random, Trace& trace) {
  withComponents<T>(random, trace,
                    [&](T* const* planes, int32_t step, T* pixels, int32_t pixelStep, QelSize size) {
                      trace.status(function(pixels, pixelStep, planes, step, size));
                    });
};
template <class T>
constexpr auto toPixels = [](auto* function, Random& random, Trace& trace) {
  withComponents<T>(random, trace,
                    [&](T* const* planes, int32_t step, T* pixels, int32_t pixelStep, QelSize size) {
                      const T* const sources[3] = {planes[0], planes[1], planes[2]};
                      trace.status(function(sources, step, pixels, pixelStep, size));
                    });
};

// Lines of 1 to 4 samples have forms of their own, beside short lines and long ones.
QelRect randomTile(Random& random) {
  const auto length = [&](int64_t most) { return int32_t(random.in(1, random.chance(50) ? 4 : most)); };
  const auto x = int32_t(random.in(-9, 9)), y = int32_t(random.in(-9, 9));
  const int32_t width = length(random.chance(10) ? 1400 : 90);
  return {x, y, width, length(70)};
}

// A work buffer that is always large enough; its contents are not compared.
std::vector<uint8_t> workBuffer(const QelRect& tile) {
  return std::vector<uint8_t>(size_t(4 * (tile.width + 8) * (tile.height + 2) + 4 * (tile.height + 8) + 64));
}

template <class T>
constexpr auto inPlace = [](auto* function, Random& random, Trace& trace) {
  const QelRect tile = randomTile(random);
  auto data = plane<T>(random, size_t(tile.width), size_t(tile.height), 0);
  auto work = workBuffer(tile);
  trace.status(function(data.template data<T>(), data.step(), &tile, work.data() + random.in(0, 7)));
  trace.buffer(data);
};

template <class T, bool forward>
constexpr auto withBands = [](auto* function, Random& random, Trace& trace) {
  const QelRect tile = randomTile(random);
  const size_t w = size_t(tile.width), h = size_t(tile.height);
  auto whole = plane<T>(random, w, h, 0);
  Guarded bands[4] = {plane<T>(random, w - w / 2, h - h / 2, 0), plane<T>(random, w - w / 2, h / 2, 0),
                      plane<T>(random, w / 2, h - h / 2, 0), plane<T>(random, w / 2, h / 2, 0)};
  T* const planes[4] = {bands[0].data<T>(), bands[1].data<T>(), bands[2].data<T>(), bands[3].data<T>()};
  int32_t steps[4];
  for (int i = 0; i < 4; ++i) steps[i] = std::max(bands[i].step(), 1);
  auto work = workBuffer(tile);
  uint8_t* const buffer = work.data() + random.in(0, 7);
  if constexpr (forward) {
    trace.status(function(whole.template data<T>(), whole.step(), &tile, planes, steps, buffer));
    for (const auto& band : bands) trace.buffer(band);
  } else {
    const T* const sources[4] = {planes[0], planes[1], planes[2], planes[3]};
    trace.status(function(sources, steps, whole.template data<T>(), whole.step(), &tile, buffer));
    trace.buffer(whole);
  }
};

constexpr auto bufferSize = [](auto* function, Random& random, Trace& trace) {
  QelRect tile = randomTile(random);
  if (random.chance(20)) random.fill(&tile, sizeof tile);
  int32_t size = 0;
  trace.status(function(&tile, &size));
  trace.value(size);
};

QELJ_COMPARE(qeliRCTFwd_JPEG2K_16s_C3P3R, toPlanes<int16_t>);
QELJ_COMPARE(qeliRCTFwd_JPEG2K_32s_C3P3R, toPlanes<int32_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_32f_C3P3R, toPlanes<float>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_16s_P3C3R, toPixels<int16_t>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_32s_P3C3R, toPixels<int32_t>);
QELJ_COMPARE(qeliICTInv_JPEG2K_32f_P3C3R, toPixels<float>);
QELJ_COMPARE(qeliRCTFwd_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliRCTFwd_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliRCTInv_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliICTFwd_JPEG2K_32f_P3IR, planesInPlace<float>);
QELJ_COMPARE(qeliICTInv_JPEG2K_16s_P3IR, planesInPlace<int16_t>);
QELJ_COMPARE(qeliICTInv_JPEG2K_32s_P3IR, planesInPlace<int32_t>);
QELJ_COMPARE(qeliICTInv_JPEG2K_32f_P3IR, planesInPlace<float>);

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

#define COMPARE_TILES(wavelet, type, T)                                         \
  QELJ_COMPARE(qeliWTFwd_##wavelet##_JPEG2K_##type##_C1IR, inPlace<T>);         \
  QELJ_COMPARE(qeliWTInv_##wavelet##_JPEG2K_##type##_C1IR, inPlace<T>);         \
  QELJ_COMPARE(qeliWTFwd_##wavelet##_JPEG2K_##type##_C1R, withBands<T, true>);  \
  QELJ_COMPARE(qeliWTInv_##wavelet##_JPEG2K_##type##_C1R, withBands<T, false>); \
  QELJ_COMPARE(qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1IR, bufferSize);  \
  QELJ_COMPARE(qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1R, bufferSize)
COMPARE_TILES(B53, 16s, int16_t);
COMPARE_TILES(B53, 32s, int32_t);
COMPARE_TILES(D97, 16s, int16_t);
COMPARE_TILES(D97, 32s, int32_t);

}  // namespace
}  // namespace qelj::test
