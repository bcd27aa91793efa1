#include "jpeg/sample/operand.h"

namespace qelj::test {
namespace {

// Planes. The source has exactly the samples that the destination's size asks for; srcSize is only tested.
template <bool kUp, int kRows>
constexpr auto plane = [](auto* function, Case& c) {
  const QelSize size = drawnExtent(c).size;
  const int32_t width = kUp ? size.width / 2 + 2 : 2 * size.width;
  const int32_t height = kRows == 1 ? size.height : kUp ? size.height / 2 + 2 : 2 * size.height;
  const int32_t srcStep = drawnStep(c, width, Overlap::yes, Tested::yes);
  const int32_t dstStep = drawnStep(c, size.width, Overlap::no, Tested::yes);
  const QelSize srcSize = c.size(9, 9);
  auto& src = drawnSamples<uint8_t>(c, width, height, srcStep);
  auto& dst = c.region<uint8_t>(size.width, size.height, dstStep);
  const uint8_t* first = src.data(kUp && kRows == 2) + kUp;  // inside the borders that are read
  c.call(function, first, Step{srcStep}, srcSize, dst.data(), Step{dstStep}, size);
};
QELJ_COMPARE(qeliSampleDownH2V1_JPEG_8u_C1R, plane<false, 1>);
QELJ_COMPARE(qeliSampleDownH2V2_JPEG_8u_C1R, plane<false, 2>);
QELJ_COMPARE(qeliSampleUpH2V1_JPEG_8u_C1R, plane<true, 1>);
QELJ_COMPARE(qeliSampleUpH2V2_JPEG_8u_C1R, plane<true, 2>);

// Rows. The short ones depend on their width and on the destination's address.
template <bool kUp, int kRows>
constexpr auto line = [](auto* function, Case& c) {
  const bool isShort = c.chance(60);
  const auto width = int32_t(c.in(1, isShort ? 40 : 300));
  const int32_t written = kUp ? 2 * width : (width + (kRows == 2 && width < 32)) / 2;
  const int32_t read = kUp ? width : std::max(width, 2 * written);
  auto& first = drawnSamples<uint8_t>(c, read, 1, 0);
  auto& second = drawnSamples<uint8_t>(c, read, 1, 0);
  auto& dst = c.region<uint8_t>(written, 1, 0);
  if constexpr (kRows == 2) c.call(function, first.data(), second.data(), Length{width}, dst.data());
  else c.call(function, first.data(), Length{width}, dst.data());
};
QELJ_COMPARE(qeliSampleDownRowH2V1_Box_JPEG_8u_C1, line<false, 1>, 4000);
QELJ_COMPARE(qeliSampleDownRowH2V2_Box_JPEG_8u_C1, line<false, 2>, 2000);
QELJ_COMPARE(qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1, line<true, 1>, 2000);
QELJ_COMPARE(qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1, line<true, 2>, 2000);

}  // namespace
}  // namespace qelj::test
