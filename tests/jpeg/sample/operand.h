// What the conversions of whole images read and write.
#ifndef QELJ_TESTS_JPEG_SAMPLE_OPERAND_H
#define QELJ_TESTS_JPEG_SAMPLE_OPERAND_H

#include <array>

#include "support/compare.h"

namespace qelj::test {

// Small images, with narrow high ones for the arithmetic of a row's last pixels, a few that are wide and fork, and in
// one of 200 cases one whose `streamedBytes` a pixel come to more than 2 MiB.
struct Extent {
  QelSize size;
  bool huge;  // its source has kLittleMemory as its step
};
constexpr int32_t kLittleMemory = 3;
inline Extent drawnExtent(Case& c, int32_t streamedBytes = 0) {
  const auto kind = c.in(0, 199);
  if (kind == 0 && streamedBytes) {
    const auto width = int32_t(c.in(1000, 3000));
    return {{width, (2 << 20) / (width * streamedBytes) + 1}, true};
  }
  if (kind < 4) {
    const auto width = int32_t(c.in(8000, 8500));
    const auto height = int32_t(c.in(1, 3));
    return {{width, height}, false};
  }
  if (kind < 60) {
    const auto width = int32_t(c.in(1, 9));
    const auto height = int32_t(c.in(1, 1000));
    return {{width, height}, false};
  }
  return {c.size(300, 40), false};
}

// The bytes from row to row: at least those of a row, now and then fewer where rows may overlap, and also none or
// negative where a function tests no step.
enum class Overlap { no, yes };
enum class Tested { no, yes };
inline int32_t drawnStep(Case& c, int32_t rowBytes, Overlap overlap, Tested tested) {
  const auto gap = int32_t(c.chance(50) ? 0 : c.in(0, 40));
  const auto kind = c.in(0, 11);
  if (kind == 0 && overlap == Overlap::yes) return int32_t(c.in(tested == Tested::yes ? 1 : -rowBytes, rowBytes));
  if (kind == 1 && tested == Tested::no) return 0;
  if (kind == 2 && tested == Tested::no) return -rowBytes - gap;
  return rowBytes + gap;
}

// Random samples, or mostly the ends of their range.
template <class T>
Rows<T>& drawnSamples(Case& c, int32_t width, int32_t height, int32_t step) {
  auto& rows = c.region<T>(width, height, step);
  if (c.chance(20)) rows.fill([&] { return c.of<T>({0, 0, 0, 1, 128, T(-2), T(-1), T(-1), T(-1)}); });
  return rows;
}

// Pixels of kChannels samples, or kPlanes planes (0: pixels) with one step.
template <class T, int kChannels, int kPlanes>
struct Operand {
  static constexpr int32_t kPixelBytes = kChannels * int32_t(sizeof(T));
  // Planes are never streamed.
  static constexpr int32_t kStreamedBytes = kPixelBytes > 1 ? kPixelBytes : 0;
  int32_t step;
  std::array<T*, std::max(kPlanes, 1)> pointers{};

  static Operand source(Case& c, Extent extent, Tested tested) {
    const int32_t drawn = drawnStep(c, extent.size.width * kPixelBytes, Overlap::yes, tested);
    Operand o{extent.huge ? kLittleMemory : drawn};
    for (auto& p : o.pointers) p = drawnSamples<T>(c, extent.size.width * kChannels, extent.size.height, o.step).data();
    return o;
  }
  static Operand destination(Case& c, QelSize size, Tested tested, Overlap overlap = Overlap::no) {
    Operand o{drawnStep(c, size.width * kPixelBytes, overlap, tested)};
    for (auto& p : o.pointers) p = c.region<T>(size.width * kChannels, size.height, o.step).data();
    return o;
  }
  // As the function takes it, with the checks that it makes.
  auto argument() const {
    if constexpr (kPlanes) return Planes{pointers.data(), kPlanes};
    else return pointers[0];
  }
};

}  // namespace qelj::test

// The two members of a pair whose names differ in the order of colours.
#define QELJ_COMPARE_ORDERS(before, after, ...)  \
  QELJ_COMPARE(before##RGB##after, __VA_ARGS__); \
  QELJ_COMPARE(before##BGR##after, __VA_ARGS__)

#endif
