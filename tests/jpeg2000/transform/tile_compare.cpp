#include "support/compare.h"

namespace qelj::test {
namespace {

QelRect randomTile(Random& random) {
  const bool tiny = random.chance(40), wide = random.chance(10);
  return {int32_t(random.in(-9, 9)), int32_t(random.in(-9, 9)),
          int32_t(random.in(1, tiny   ? 6
                               : wide ? 1400
                                      : 90)),
          int32_t(random.in(1, tiny ? 6 : 70))};
}

template <class T>
Guarded image(Random& random, size_t width, size_t height) {
  return {random, width * sizeof(T), height, width * sizeof(T) + size_t(random.in(0, 9)),
          size_t(random.in(0, 33))};
}

// A work buffer that is always large enough; its contents are not compared.
std::vector<uint8_t> workBuffer(const QelRect& tile) {
  return std::vector<uint8_t>(size_t(4 * (tile.width + 8) * (tile.height + 2) + 4 * (tile.height + 8) + 64));
}

template <class T>
constexpr auto inPlace = [](auto* function, Random& random, Trace& trace) {
  const QelRect tile = randomTile(random);
  auto data = image<T>(random, size_t(tile.width), size_t(tile.height));
  auto work = workBuffer(tile);
  trace.status(function(data.template data<T>(), data.step(), &tile, work.data() + random.in(0, 7)));
  trace.buffer(data);
};

template <class T, bool forward>
constexpr auto withBands = [](auto* function, Random& random, Trace& trace) {
  const QelRect tile = randomTile(random);
  const size_t w = size_t(tile.width), h = size_t(tile.height);
  auto whole = image<T>(random, w, h);
  Guarded bands[4] = {image<T>(random, w - w / 2, h - h / 2), image<T>(random, w - w / 2, h / 2),
                      image<T>(random, w / 2, h - h / 2), image<T>(random, w / 2, h / 2)};
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
