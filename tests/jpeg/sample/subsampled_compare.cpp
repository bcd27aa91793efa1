#include "jpeg/sample/operand.h"

namespace qelj::test {
namespace {

constexpr int kMany = 1000;

// Three planes with steps of their own, chroma of half the columns and 1 / kRows of the rows.
struct Planes3 {
  std::array<uint8_t*, 3> plane{};
  std::array<int32_t, 3> step{};

  Planes3(Case& c, Extent e, int32_t rows, Overlap overlap) {
    for (size_t i = 0; i < 3; ++i) {
      const int32_t width = i ? e.size.width / 2 : e.size.width;
      const int32_t height = i ? e.size.height / rows : e.size.height;
      const int32_t drawn = drawnStep(c, width, overlap, Tested::no);
      step[i] = e.huge ? kLittleMemory : drawn;
      plane[i] = drawnSamples<uint8_t>(c, width, height, step[i]).data();
    }
  }
};

// At least a pair of columns, for 411 also of rows.
template <int kRows>
Extent pairExtent(Case& c, int32_t streamedBytes = 0) {
  Extent e = drawnExtent(c, streamedBytes);
  e.size.width = std::max(e.size.width, 2), e.size.height = std::max(e.size.height, kRows);
  return e;
}
template <int kRows>
Domain<QelSize> area(QelSize s) {
  Domain<QelSize> d{s, {{1, s.height}, {0, s.height}, {-5, s.height}, {s.width, 0}, {s.width, -5}}};
  if (kRows == 2) d.bad.push_back({s.width, 1});
  return d;
}

template <int kChannels, int kRows>
constexpr auto forward = [](auto* function, Case& c) {
  const Extent e = pairExtent<kRows>(c);
  const auto src = Operand<uint8_t, kChannels, 0>::source(c, e, Tested::no);
  const Planes3 dst(c, e, kRows, Overlap::no);
  c.call(function, src.argument(), src.step, Planes{dst.plane.data(), 3}, Unchecked{dst.step.data()},
         area<kRows>(e.size));
};
template <int kChannels, int kRows>
constexpr auto inverse =
    []<class... Alpha>(
        QelStatus (*function)(const uint8_t* const*, const int32_t*, uint8_t*, int32_t, QelSize, Alpha...), Case& c) {
      const Extent e = pairExtent<kRows>(c, kChannels);
      const Planes3 src(c, e, kRows, Overlap::yes);
      const auto dst = Operand<uint8_t, kChannels, 0>::destination(c, e.size, Tested::no);
      [[maybe_unused]] const auto alpha = uint8_t(c.in(0, 255));
      c.call(function, Planes{src.plane.data(), 3}, Unchecked{src.step.data()}, dst.argument(), dst.step,
             area<kRows>(e.size), Alpha(alpha)...);
    };

QELJ_COMPARE_ORDERS(qeli, ToYCbCr422_JPEG_8u_C3P3R, forward<3, 1>, kMany);
QELJ_COMPARE_ORDERS(qeli, ToYCbCr422_JPEG_8u_C4P3R, forward<4, 1>, kMany);
QELJ_COMPARE_ORDERS(qeli, ToYCbCr411_JPEG_8u_C3P3R, forward<3, 2>, kMany);
QELJ_COMPARE_ORDERS(qeli, ToYCbCr411_JPEG_8u_C4P3R, forward<4, 2>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCr422To, _JPEG_8u_P3C3R, inverse<3, 1>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCr422To, _JPEG_8u_P3C4R, inverse<4, 1>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCr411To, _JPEG_8u_P3C3R, inverse<3, 2>, kMany);
QELJ_COMPARE_ORDERS(qeliYCbCr411To, _JPEG_8u_P3C4R, inverse<4, 2>, kMany);

// Pairs are read and written whole, also the one that an odd width begins; rows may overlap on both sides.
constexpr auto packedPairs = [](auto* function, Case& c) {
  const Extent e = drawnExtent(c, 3);
  const int32_t pairs = (e.size.width + 1) / 2;
  const int32_t drawn = drawnStep(c, 4 * pairs, Overlap::yes, Tested::no);
  const int32_t srcStep = e.huge ? kLittleMemory : drawn;
  const int32_t wide = drawnStep(c, 6 * pairs, Overlap::yes, Tested::no);
  const int32_t dstStep = c.chance(30) ? 3 * e.size.width : wide;
  auto& src = drawnSamples<uint8_t>(c, 4 * pairs, e.size.height, srcStep);
  auto& dst = c.region<uint8_t>(6 * pairs, e.size.height, dstStep);
  c.call(function, src.data(), srcStep, dst.data(), dstStep, e.size);
};
QELJ_COMPARE(qeliYCbCr422ToRGB_JPEG_8u_C2C3R, packedPairs, kMany);

}  // namespace
}  // namespace qelj::test
