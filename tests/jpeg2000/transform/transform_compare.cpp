#include <algorithm>
#include <utility>

#include "support/compare.h"

namespace qelj::test {
namespace {

// --- samples -----------------------------------------------------------------------------------------------

template <class T>
constexpr int64_t kMost = std::is_floating_point_v<T> ? 0 : int64_t(std::numeric_limits<T>::max());

// Integers up to `most` either way: all over that range, small, its ends, or near each other. Floats of ordinary size,
// with infinities and the like among them, or any bits.
template <class T>
void drawSamples(Case& c, const Rows<T>& rows, int64_t most = kMost<T>) {
  const auto kind = c.in(0, 4);
  if constexpr (std::is_floating_point_v<T>) {
    using Limits = std::numeric_limits<T>;
    if (kind == 4) return;
    rows.fill([&] {
      if (kind == 3 && c.chance(2)) return c.of({-T(0), Limits::infinity(), Limits::denorm_min(), Limits::max()});
      return T(c.in(-(1 << 24), 1 << 24)) / 512;
    });
  } else if (kind == 0 && most != kMost<T>) {
    rows.fill([&] { return c.in(-most, most); });
  } else if (kind == 1) {
    const int64_t small = most >> c.in(1, 8 * int64_t(sizeof(T)) - 2);
    rows.fill([&] { return c.in(-small, small); });
  } else if (kind == 2) {
    rows.fill([&] { return c.of<int64_t>({-most, most, -most - (most == kMost<T>), most / 2, -1, 0}); });
  } else if (kind == 3) {
    const int64_t spread = most / 8;
    const int64_t centre = c.in(-7 * spread, 7 * spread);
    rows.fill([&] { return centre + c.in(-spread, spread); });
  } else if (most != kMost<T>) {
    rows.fill([&] { return c.of({-most, most}); });
  }
}

template <class T>
struct Plane {
  T* first;
  int32_t step;
};
template <class T>
Plane<T> drawnPlane(Case& c, int64_t width, int64_t height, int64_t most = kMost<T>) {
  auto& rows = c.rows<T>(width, height);
  drawSamples(c, rows, most);
  return {rows.data(), std::max(rows.step(), 1)};
}
// Where results are not specified, what is written is only watched, not compared.
template <class T>
Plane<T> outputPlane(Case& c, int64_t width, int64_t height, bool compared) {
  if (compared) return drawnPlane<T>(c, width, height);
  return {reinterpret_cast<T*>(c.scratch(size_t(width * height) * sizeof(T))), int32_t(width * int64_t(sizeof(T)))};
}

// --- component transforms ----------------------------------------------------------------------------------

// Three planes with one step, each in memory of its own.
template <class T>
struct Components {
  QelSize size;
  int32_t step = 0;
  T* plane[3];
  explicit Components(Case& c) : size(c.size(300, 40)) {
    const int64_t gap = c.chance(50) ? 0 : c.in(1, 70);
    for (T*& p : plane) {
      auto& rows = c.rows<T>(size.width, size.height, gap);
      drawSamples(c, rows);
      p = rows.data(), step = rows.step();
    }
  }
};
template <class T>
constexpr auto planesInPlace = [](auto* function, Case& c) {
  const Components<T> in(c);
  c.call(function, Planes{in.plane, 3}, Step{in.step}, in.size);
};
template <class T>
constexpr auto toPlanes = [](auto* function, Case& c) {
  const Components<T> out(c);
  const auto pixels = drawnPlane<T>(c, 3 * out.size.width, out.size.height);
  c.call(function, pixels.first, Step{pixels.step}, Planes{out.plane, 3}, Step{out.step}, out.size);
};
template <class T>
constexpr auto toPixels = [](auto* function, Case& c) {
  const Components<T> in(c);
  const T* const plane[3] = {in.plane[0], in.plane[1], in.plane[2]};
  const auto pixels = drawnPlane<T>(c, 3 * in.size.width, in.size.height);
  c.call(function, Planes{plane, 3}, Step{in.step}, pixels.first, Step{pixels.step}, in.size);
};

#define COMPARE_PIXELS(transform, type, T)                               \
  QELJ_COMPARE(qeli##transform##Fwd_JPEG2K_##type##_C3P3R, toPlanes<T>); \
  QELJ_COMPARE(qeli##transform##Inv_JPEG2K_##type##_P3C3R, toPixels<T>)
#define COMPARE_PLANES(transform, type, T)                                   \
  QELJ_COMPARE(qeli##transform##Fwd_JPEG2K_##type##_P3IR, planesInPlace<T>); \
  QELJ_COMPARE(qeli##transform##Inv_JPEG2K_##type##_P3IR, planesInPlace<T>)
COMPARE_PIXELS(RCT, 16s, int16_t);
COMPARE_PIXELS(RCT, 32s, int32_t);
COMPARE_PIXELS(ICT, 32f, float);
COMPARE_PLANES(RCT, 16s, int16_t);
COMPARE_PLANES(RCT, 32s, int32_t);
COMPARE_PLANES(ICT, 16s, int16_t);
COMPARE_PLANES(ICT, 32s, int32_t);
COMPARE_PLANES(ICT, 32f, float);

// --- rows, columns and single steps ------------------------------------------------------------------------

// The samples for which a function's results are specified. Where these are not all, it runs on others too.
template <class T>
struct AnySamples {
  static constexpr int64_t kSignal = kMost<T>, kLow = kMost<T>, kHigh = kMost<T>;
  static constexpr bool kAll = true;
};
// No sum of two neighbours passes 16 bits, nor that of two high samples and 2.
struct Sums53 {
  static constexpr int64_t kSignal = 8191, kLow = 8191, kHigh = 16382;
  static constexpr bool kAll = false;
};
// The first inverse stage of an odd sample doesn't saturate: its high sample is small, or all lie near values at which
// the difference is.
struct Differences97 {
  static constexpr int64_t kLow = kMost<int16_t>, kHigh = 4700;
  static constexpr bool kAll = false;
};
constexpr int64_t lowBeside(int64_t high) { return high * 3 / 4; }
constexpr int64_t evenBeside(int64_t high) { return high / 5; }

enum Along { kRows, kColumns };

// A region with a band length of `length` along the transform, and exactly the border that the transform reads.
template <class T, int stages, Along along, bool forward, class Specified>
constexpr auto region = [](auto* function, Case& c) {
  const bool specified = Specified::kAll || !c.chance(15);
  const bool together = std::is_same_v<Specified, Differences97> && specified && c.chance(30);
  const int64_t highs = c.in(-32000, 32000);
  const auto phase = uint32_t(c.of<int64_t>({0, 0, 1, 2, 0x80000000}));
  const int q = phase != 0;
  int64_t length = c.extent(along == kRows ? 300 : 40);
  int64_t breadth = c.extent(along == kRows ? 8 : 300);
  if (c.chance(10)) {  // where lines and strips are cut
    const int64_t cuts = c.in(1, 4);
    const int64_t cut = 256 * cuts + c.in(-1, 1);
    const int64_t few = c.in(1, 4);
    length = along == kRows ? cut : few;
    breadth = along == kRows ? few : cut;
  }
  const auto plane = [&](int64_t before, int64_t count, int64_t after, int64_t most, int64_t centre) {
    const int64_t all = before + count + after;
    auto& rows = along == kRows ? c.rows<T>(all, breadth) : c.rows<T>(breadth, all);
    if (together) rows.fill([&] { return centre + c.in(-500, 500); });
    else if (specified) drawSamples(c, rows, most);
    return Plane<T>{along == kRows ? rows.data() + before : rows.data(size_t(before)), rows.step()};
  };
  const auto output = [&](int64_t count) {
    return along == kRows ? outputPlane<T>(c, count, breadth, specified) : outputPlane<T>(c, breadth, count, specified);
  };
  const QelSize size{int32_t(along == kRows ? length : breadth), int32_t(along == kRows ? breadth : length)};
  if constexpr (forward) {
    const auto signal = plane(stages - q, 2 * length, stages - 1 + q, Specified::kSignal, 0);
    const auto low = output(length);
    const auto high = output(length);
    c.call(function, signal.first, Step{signal.step}, low.first, Step{low.step}, high.first, Step{high.step}, size,
           phase);
  } else {
    const auto low = plane(stages / 2 - 1 + q, length, stages / 2 - q, Specified::kLow, lowBeside(highs));
    const auto high = plane(stages / 2, length, stages / 2, Specified::kHigh, highs);
    const auto signal = output(2 * length);
    c.call(function, low.first, Step{low.step}, high.first, Step{high.step}, size, signal.first, Step{signal.step},
           phase);
  }
};

// Six rows for 5/3, eight for 9/7, in the order of the arguments.
template <class T, int stages, class Specified>
constexpr auto step = [](auto* function, Case& c) {
  constexpr size_t kCount = stages == 2 ? 6 : 8;
  const bool specified = Specified::kAll || !c.chance(15);
  const bool together = !Specified::kAll && specified && c.chance(30);
  const int64_t highs = c.in(-32000, 32000);
  const int64_t centre[8] = {lowBeside(highs), highs, highs, 0, 0, evenBeside(highs), 0, 0};
  const int32_t width = c.extent(300);
  T* row[kCount];
  for (size_t i = 0; i < kCount; ++i)
    if (specified) {
      auto& rows = c.rows<T>(width);
      row[i] = rows.data();
      if (together) rows.fill([&] { return centre[i] + c.in(-500, 500); });
      else drawSamples(c, rows, i == 1 ? Specified::kHigh : kMost<T>);
    } else {
      row[i] = outputPlane<T>(c, width, 1, false).first;
    }
  [&]<size_t... i>(std::index_sequence<i...>) {
    c.call(function, row[i]..., Length{width});
  }(std::make_index_sequence<kCount>());
};

#define COMPARE_REGIONS(shape, along, wavelet, stages, type, T, ForwardSamples, InverseSamples)                     \
  QELJ_COMPARE(qeliWTFwd##shape##_##wavelet##_JPEG2K_##type##_C1R, region<T, stages, along, true, ForwardSamples>,  \
               1000);                                                                                               \
  QELJ_COMPARE(qeliWTInv##shape##_##wavelet##_JPEG2K_##type##_C1R, region<T, stages, along, false, InverseSamples>, \
               1000)
#define COMPARE_STEPS(wavelet, stages, type, T, InverseSamples)                                        \
  QELJ_COMPARE(qeliWTFwdColLift_##wavelet##_JPEG2K_##type##_C1, step<T, stages, AnySamples<T>>, 1000); \
  QELJ_COMPARE(qeliWTInvColLift_##wavelet##_JPEG2K_##type##_C1, step<T, stages, InverseSamples>, 1000)
COMPARE_REGIONS(Row, kRows, B53, 2, 16s, int16_t, Sums53, Sums53);
COMPARE_REGIONS(Row, kRows, B53, 2, 32s, int32_t, AnySamples<int32_t>, AnySamples<int32_t>);
COMPARE_REGIONS(Row, kRows, D97, 4, 16s, int16_t, AnySamples<int16_t>, Differences97);
COMPARE_REGIONS(Row, kRows, D97, 4, 32s, int32_t, AnySamples<int32_t>, AnySamples<int32_t>);
COMPARE_REGIONS(Row, kRows, D97, 4, 32f, float, AnySamples<float>, AnySamples<float>);
COMPARE_REGIONS(Col, kColumns, B53, 2, 16s, int16_t, Sums53, Sums53);
COMPARE_REGIONS(Col, kColumns, B53, 2, 32s, int32_t, AnySamples<int32_t>, AnySamples<int32_t>);
COMPARE_REGIONS(Col, kColumns, D97, 4, 32f, float, AnySamples<float>, AnySamples<float>);
COMPARE_STEPS(B53, 2, 16s, int16_t, AnySamples<int16_t>);
COMPARE_STEPS(B53, 2, 32s, int32_t, AnySamples<int32_t>);
COMPARE_STEPS(D97, 4, 16s, int16_t, Differences97);
COMPARE_STEPS(D97, 4, 32s, int32_t, AnySamples<int32_t>);
COMPARE_STEPS(D97, 4, 32f, float, AnySamples<float>);

// --- whole tiles -------------------------------------------------------------------------------------------

// Lines of one, two and three samples at both parities are most of the cases that differ.
QelRect drawnTile(Case& c) {
  const auto kind = c.in(0, 9);
  const QelSize size = kind < 6    ? c.size(4, 4)
                       : kind == 6 ? c.size(300, 4)
                       : kind == 7 ? c.size(4, 300)
                       : kind == 8 ? c.size(1300, 3)
                                   : c.size(300, 40);
  QelRect tile{0, 0, size.width, size.height};
  tile.x = int32_t(c.random.bits());
  tile.y = int32_t(c.random.bits());
  return tile;
}

// 32-bit sums wrap and results pass 2^31 with these, but none is 2^31 itself, which only just saturates.
template <class T>
constexpr int64_t kMostInTile = sizeof(T) == 4 ? (int64_t(3) << 28) + 12345 : kMost<T>;

constexpr QelRect kNarrow{0, 0, 0, 3}, kFlat{1, 1, 3, -1};  // an error with bands; nothing is done in place
Domain<const QelRect*> tileOr(const QelRect& tile) { return {&tile, {nullptr, &kNarrow, &kFlat}}; }

template <class T>
constexpr auto tileInPlace = [](auto* function, Case& c, const QelRect& tile, uint8_t* work) {
  c.mayRaiseFlags = sizeof(T) == 4;  // where 9/7 saturates
  const auto image = drawnPlane<T>(c, tile.width, tile.height, kMostInTile<T>);
  c.call(function, image.first, Step{image.step}, tileOr(tile), work);
};
template <class T, bool forward>
constexpr auto tileWithBands = [](auto* function, Case& c, const QelRect& tile, uint8_t* work) {
  c.mayRaiseFlags = sizeof(T) == 4;
  const auto image = drawnPlane<T>(c, tile.width, tile.height, kMostInTile<T>);
  std::conditional_t<forward, T, const T>* plane[4];
  int32_t steps[4];
  for (int i = 0; i < 4; ++i) {
    const int32_t width = tile.width / 2, height = tile.height / 2;
    const auto band =
        drawnPlane<T>(c, i / 2 ? width : tile.width - width, i % 2 ? height : tile.height - height, kMostInTile<T>);
    plane[i] = band.first, steps[i] = band.step;
  }
  static constexpr int32_t kBad[4][4] = {{0, 8, 8, 8}, {8, -4, 8, 8}, {8, 8, 0, 8}, {8, 8, 8, -4}};
  const Domain<const int32_t*> planeSteps{steps, {nullptr, kBad[0], kBad[1], kBad[2], kBad[3]}};
  if constexpr (forward)
    c.call(function, image.first, Step{image.step}, tileOr(tile), Planes{plane, 4}, planeSteps, work);
  else c.call(function, Planes{plane, 4}, planeSteps, image.first, Step{image.step}, tileOr(tile), work);
};

constexpr auto bufferSize = [](auto* function, Case& c) {
  for (int i = 0; i < 20; ++i) {
    QelRect tile = drawnTile(c);
    if (c.chance(30)) c.random.fill(&tile, sizeof tile);
    int32_t size = 77;
    c.call(function, &tile, &size);
    c.value(size);
  }
};

// The work buffer is exactly as long as the size function tells.
#define COMPARE_TILE(direction, layout, wavelet, type, ...)                                             \
  QELJ_COMPARE(qeliWT##direction##_##wavelet##_JPEG2K_##type##_##layout, ([](auto* function, Case& c) { \
                 const QelRect tile = drawnTile(c);                                                     \
                 int32_t bytes = -1;                                                                    \
                 QELJ_FIND(c, qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_##layout)(&tile, &bytes);    \
                 __VA_ARGS__(function, c, tile, c.scratch(size_t(bytes)));                              \
               }),                                                                                      \
               2000)
#define COMPARE_TILES(wavelet, type, T)                                        \
  COMPARE_TILE(Fwd, C1IR, wavelet, type, tileInPlace<T>);                      \
  COMPARE_TILE(Inv, C1IR, wavelet, type, tileInPlace<T>);                      \
  COMPARE_TILE(Fwd, C1R, wavelet, type, tileWithBands<T, true>);               \
  COMPARE_TILE(Inv, C1R, wavelet, type, tileWithBands<T, false>);              \
  QELJ_COMPARE(qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1IR, bufferSize); \
  QELJ_COMPARE(qeliWTGetBufSize_##wavelet##_JPEG2K_##type##_C1R, bufferSize)
COMPARE_TILES(B53, 16s, int16_t);
COMPARE_TILES(B53, 32s, int32_t);
COMPARE_TILES(D97, 16s, int16_t);
COMPARE_TILES(D97, 32s, int32_t);

}  // namespace
}  // namespace qelj::test
