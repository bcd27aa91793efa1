// Texture decoders: any bytes are blocks, and nothing outside the image's pixels is written.
#include "support/fuzz.h"

namespace qelj::fuzz {
namespace {

struct Format {
  size_t blockBytes, pixelBytes;
  QelStatus (*decode)(const uint8_t*, uint8_t*, int32_t, QelSize);
};
template <auto F, class Pixel>
QelStatus numbers(const uint8_t* src, uint8_t* dst, int32_t step, QelSize size) {
  return F(src, reinterpret_cast<Pixel*>(dst), step, size.width, size.height);
}
constexpr Format kFormats[] = {
    {8, 4, qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R},
    {16, 4, qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R},
    {16, 4, qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R},
    {8, 1, qeliTextureDecodeBlock_BC4_8u_C1R},
    {16, 2, qeliTextureDecodeBlockToRG_BC5_8u_C1C2R},
    {16, 6, numbers<qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R, uint16_t>},
    {16, 6, numbers<qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R, int16_t>},
    {16, 4, qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R},
};

}  // namespace

void run(Input input) {
  const Format& f = kFormats[input.take() % std::size(kFormats)];
  const QelSize size{input.in(1, 37), input.in(1, 9)};
  const size_t row = size_t(size.width) * f.pixelBytes, gap = input.take() % 4, step = row + gap;
  const auto src = input.bytes(size_t((size.width + 3) / 4 * ((size.height + 3) / 4)) * f.blockBytes);
  std::vector<uint8_t> dst(step * size_t(size.height) - gap, 0xA5);
  FUZZ_EXPECT(f.decode(src.data(), dst.data(), int32_t(step), size) == qelStatusOk);
  for (size_t end = row; end < dst.size(); end += step)
    for (size_t i = 0; i < gap; ++i) FUZZ_EXPECT(dst[end + i] == 0xA5);
}

std::vector<Seed> seeds() {
  std::vector<Seed> all;
  for (size_t format = 0; format < std::size(kFormats); ++format) {
    Seed seed;
    seed.byte(int(format)).in(1, 18).in(1, 7).byte(1);
    // One block of every low mode byte, with the rest in a pattern.
    for (int block = 0; block < 10; ++block)
      for (size_t i = 0; i < kFormats[format].blockBytes; ++i)
        seed.byte(i == 0 ? 1 << block % 8 : int(i) * 41 + block * 17);
    all.push_back(seed);
  }
  return all;
}

}  // namespace qelj::fuzz
