#include "support/compare.h"

namespace qelj::test {
namespace {

struct Shape {
  size_t width, height, blocks;
  QelSize size() const { return {int32_t(width), int32_t(height)}; }
  explicit Shape(Random& random)
      : width(size_t(random.in(1, random.chance(50) ? 20 : 90))),
        height(size_t(random.in(1, 18))),
        blocks((width + 3) / 4 * ((height + 3) / 4)) {}
};

// Random blocks have all modes; half of the rounds repeat a few bytes, for equal and extreme end-points.
using Touch = void (*)(Random&, uint8_t* block);
void anyBytes(Random&, uint8_t*) {}
void everyBc7Mode(Random& random, uint8_t* block) {
  const int64_t mode = random.in(0, 8);
  block[0] = uint8_t(block[0] << mode << 1 | 1 << mode);
}

template <size_t kBlock, size_t kPixel, Touch touch = anyBytes>
constexpr auto decode = [](auto* function, Random& random, Trace& trace) {
  const Shape shape(random);
  Guarded src(random, shape.blocks * kBlock, 1, 0, size_t(random.in(0, 33)));
  Guarded dst(random, shape.width * kPixel, shape.height, shape.width * kPixel + size_t(random.in(0, 9)),
              size_t(random.in(0, 33)));
  if (random.chance(50))
    for (size_t i = 0; i + 1 < src.rowBytes(); ++i)
      if (random.chance(30)) src.data()[i + 1] = src.data()[i];
  for (size_t i = 0; i < src.rowBytes(); i += kBlock) touch(random, src.data() + i);
  const bool upwards = random.chance(20);
  auto* first = dst.data(upwards ? shape.height - 1 : 0);
  const int32_t step = upwards ? -dst.step() : dst.step();
  if constexpr (std::is_same_v<decltype(function), decltype(&qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R)>)
    trace.status(function(src.data(), reinterpret_cast<uint16_t*>(first), step, shape.size().width,
                          shape.size().height));
  else if constexpr (std::is_same_v<decltype(function), decltype(&qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R)>)
    trace.status(function(src.data(), reinterpret_cast<int16_t*>(first), step, shape.size().width,
                          shape.size().height));
  else
    trace.status(function(src.data(), first, step, shape.size()));
  trace.buffer(dst);
};
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, decode<8, 4>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, decode<16, 4>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, decode<16, 4>);
QELJ_COMPARE(qeliTextureDecodeBlock_BC4_8u_C1R, decode<8, 1>);
QELJ_COMPARE(qeliTextureDecodeBlockToRG_BC5_8u_C1C2R, decode<16, 2>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R, decode<16, 4, everyBc7Mode>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R, decode<16, 6>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R, decode<16, 6>);

// Pixels around a colour, with small and large spans.
template <size_t kBlock, size_t kPixel>
constexpr auto encode = [](auto* function, Random& random, Trace& trace) {
  const Shape shape(random);
  Guarded src(random, shape.width * kPixel, shape.height, shape.width * kPixel + size_t(random.in(0, 9)),
              size_t(random.in(0, 33)));
  const int64_t spans[] = {0, 1, 2, 7, 40, 255, 255};
  for (size_t c = 0; c < kPixel; ++c) {
    const int64_t span = spans[random.in(0, 6)], base = random.in(0, 255 - span);
    for (size_t y = 0; y < shape.height; ++y)
      for (size_t x = 0; x < shape.width; ++x)
        src.data(y)[x * kPixel + c] = uint8_t(base + random.in(0, span));
  }
  Guarded dst(random, shape.blocks * kBlock, 1, 0, size_t(random.in(0, 33)));
  const bool upwards = random.chance(20);
  auto* first = src.data(upwards ? shape.height - 1 : 0);
  trace.status(function(first, upwards ? -src.step() : src.step(), shape.size(), dst.data()));
  trace.buffer(dst);
};
QELJ_COMPARE(qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R, encode<16, 4>);
QELJ_COMPARE(qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R, encode<8, 4>);
QELJ_COMPARE(qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R, encode<16, 4>);
QELJ_COMPARE(qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R, encode<16, 4>);
QELJ_COMPARE(qeliTextureEncodeBlock_BC4_8u_C1R, encode<8, 1>);
QELJ_COMPARE(qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R, encode<16, 2>);
QELJ_COMPARE(qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R, encode<16, 3>);

}  // namespace
}  // namespace qelj::test
