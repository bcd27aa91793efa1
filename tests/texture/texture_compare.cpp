#include <algorithm>

#include "support/compare.h"

namespace qelj::test {
namespace {

// Rows may run upwards: only a step of 0 is refused.
Domain<int32_t> anyStep(int32_t step) { return {step, {0}}; }

size_t blocksOf(QelSize size) { return size_t((size.width + 3) / 4) * size_t((size.height + 3) / 4); }

// --- decoders ----------------------------------------------------------------------------------------------
// Every bit pattern is a block. Half of the rounds repeat bytes, for equal and extreme end-points.

using Touch = void (*)(Case&, uint8_t* block);
void anyBytes(Case&, uint8_t*) {}
// Mode m stands as m zeros and a one; the rest, which is random, has the partition next to it. 8: reserved.
void everyBc7Mode(Case& c, uint8_t* block) {
  const int64_t mode = c.in(0, 8);
  block[0] = uint8_t(block[0] << mode << 1 | 1 << mode);
}
// The mode is in the low 5 bits, and for the first two in 2 of them; shapes stand in the top bits of byte 9 and byte 10.
void everyBc6Mode(Case& c, uint8_t* block) {
  const int64_t mode = c.in(0, 31);
  block[0] = uint8_t((block[0] & 0xE0) | mode);
}

template <class Pixel, size_t kBlock, int kChannels, Touch touch = anyBytes>
constexpr auto decode = [](auto* function, Case& c) {
  const bool plenty = c.chance(30);
  const QelSize size = c.size(plenty ? 300 : 90, plenty ? 40 : 12);
  auto& src = c.rows<uint8_t>(int64_t(blocksOf(size) * kBlock));
  if (c.chance(50))
    for (size_t i = 1; i < src.bytes(); ++i)
      if (c.chance(30)) src.raw()[i] = src.raw()[i - 1];
  for (size_t i = 0; i < src.bytes(); i += kBlock) touch(c, src.raw() + i);
  auto& dst = c.rows<Pixel>(kChannels * size.width, size.height);
  const bool upwards = c.chance(20);
  Pixel* first = dst.data(upwards ? size_t(size.height) - 1 : 0);
  const auto step = anyStep(upwards ? -dst.step() : dst.step());
  constexpr bool kTogether = std::is_invocable_v<decltype(function), uint8_t*, Pixel*, int32_t, QelSize>;
  if constexpr (kTogether) c.call(function, src.data(), first, step, size);
  else c.call(function, src.data(), first, step, Length{size.width}, Length{size.height});
};
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, decode<uint8_t, 8, 4>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, decode<uint8_t, 16, 4>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, decode<uint8_t, 16, 4>);
QELJ_COMPARE(qeliTextureDecodeBlock_BC4_8u_C1R, decode<uint8_t, 8, 1>);
QELJ_COMPARE(qeliTextureDecodeBlockToRG_BC5_8u_C1C2R, decode<uint8_t, 16, 2>);
QELJ_COMPARE(qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R, decode<uint8_t, 16, 4, everyBc7Mode>, 6000);
QELJ_COMPARE(qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R, decode<uint16_t, 16, 3, everyBc6Mode>, 3000);
QELJ_COMPARE(qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R, decode<int16_t, 16, 3, everyBc6Mode>, 3000);

// --- encoders ----------------------------------------------------------------------------------------------

// Draws pixels as an encoder's choices need them: every 4x4 block on its own is flat, a gradient, two or three colours in
// stripes or at random, noise around a colour in spans from 1 up, or noise; a channel may be constant or extreme.
template <int kChannels>
void drawBlocks(Case& c, const Rows<uint8_t>& image) {
  const size_t width = image.width() / kChannels;
  for (size_t y0 = 0; y0 < image.rowCount(); y0 += 4)
    for (size_t x0 = 0; x0 < width; x0 += 4) {
      const int64_t kind = c.in(0, 6);
      const int64_t span = c.of<int64_t>({1, 2, 7, 16, 40, 90});
      uint8_t colours[3][kChannels];
      for (auto& colour : colours) c.random.fill(colour, sizeof colour);
      if (c.chance(50)) {
        const int64_t channel = c.in(0, kChannels - 1);
        const uint8_t fixed = c.of<uint8_t>({0, 255, 128});
        for (auto& colour : colours) colour[channel] = fixed;
      }
      if (kChannels == 4 && c.chance(60))
        for (auto& colour : colours) colour[kChannels - 1] = 255;
      const bool across = c.chance(50);
      for (size_t y = y0; y < std::min(y0 + 4, image.rowCount()); ++y)
        for (size_t x = x0; x < std::min(x0 + 4, width); ++x) {
          const auto place = int(across ? x % 4 : y % 4);
          const int64_t one = kind == 3 ? c.in(0, 1) : kind == 4 ? c.in(0, 2) : kind == 2 ? place / 2 : 0;
          for (int ch = 0; ch < kChannels; ++ch) {
            const int value = colours[one][ch];
            int64_t drawn = value;
            if (kind == 1) drawn = (value * (3 - place) + colours[1][ch] * place) / 3;
            if (kind == 5) drawn = std::min<int64_t>(255, value + c.in(0, span));
            if (kind == 6) drawn = c.in(0, 255);
            image.set(kChannels * x + size_t(ch), y, uint8_t(drawn));
          }
        }
    }
}

template <size_t kBlock, int kChannels>
constexpr auto encode = [](auto* function, Case& c) {
  const bool plenty = c.chance(20);
  const QelSize size = c.size(plenty ? 300 : 50, plenty ? 40 : 10);
  auto& src = c.rows<uint8_t>(kChannels * size.width, size.height);
  drawBlocks<kChannels>(c, src);
  auto& dst = c.rows<uint8_t>(int64_t(blocksOf(size) * kBlock));
  const bool upwards = c.chance(20);
  const uint8_t* first = src.data(upwards ? size_t(size.height) - 1 : 0);
  c.call(function, first, anyStep(upwards ? -src.step() : src.step()), size, dst.data());
};
QELJ_COMPARE(qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R, encode<16, 4>, 8000);
QELJ_COMPARE(qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R, encode<8, 4>);
QELJ_COMPARE(qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R, encode<16, 4>);
QELJ_COMPARE(qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R, encode<16, 4>);
QELJ_COMPARE(qeliTextureEncodeBlock_BC4_8u_C1R, encode<8, 1>);
QELJ_COMPARE(qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R, encode<16, 2>);
QELJ_COMPARE(qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R, encode<16, 3>);

}  // namespace
}  // namespace qelj::test
