#include "textures.h"

#include <algorithm>
#include <ostream>

#include "parallel.h"

namespace qelconv {
namespace {

using Decode = Block::Decode;

template <auto kDecode, class T>
QelStatus decodeHalf(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return kDecode(src, reinterpret_cast<T*>(dst), dstStep, size.width, size.height);
}

const Block kBlocks[] = {
    {"bc1",
     8,
     Sample::rgb,
     qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R,
     qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R,
     {71, 70, 72},
     {133, 131, 132, 134},
     {"DXT1"},
     128},
    {"bc2",
     16,
     Sample::rgba,
     qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R,
     qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R,
     {74, 73, 75},
     {135, 136},
     {"DXT3", "DXT2"},
     129},
    {"bc3",
     16,
     Sample::rgba,
     qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R,
     qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R,
     {77, 76, 78},
     {137, 138},
     {"DXT5", "DXT4"},
     130},
    {"bc4",
     8,
     Sample::grey,
     qeliTextureDecodeBlock_BC4_8u_C1R,
     qeliTextureEncodeBlock_BC4_8u_C1R,
     {80, 79},
     {139},
     {"ATI1", "BC4U"},
     131},
    {"bc5",
     16,
     Sample::redGreen,
     qeliTextureDecodeBlockToRG_BC5_8u_C1C2R,
     qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R,
     {83, 82},
     {141},
     {"ATI2", "BC5U"},
     132},
    {"bc6",
     16,
     Sample::half,
     decodeHalf<qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R, uint16_t>,
     nullptr,
     {95, 94},
     {143},
     {},
     133},
    {"bc6s",
     16,
     Sample::half,
     decodeHalf<qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R, int16_t>,
     nullptr,
     {96},
     {144},
     {},
     133},
    {"bc7",
     16,
     Sample::rgba,
     qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R,
     qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R,
     {98, 97, 99},
     {145, 146},
     {},
     134},
    {"signed BC4", 8, Sample::grey, nullptr, nullptr, {81}, {140}, {"BC4S"}, 131},
    {"signed BC5", 16, Sample::redGreen, nullptr, nullptr, {84}, {142}, {"BC5S"}, 132},
};

size_t blockCount(QelSize size) { return size_t((size.width + 3) / 4) * size_t((size.height + 3) / 4); }

const Block& find(const std::string& what, auto&& matches) {
  const auto found = std::find_if(std::begin(kBlocks), std::end(kBlocks), matches);
  if (found == std::end(kBlocks)) throw Error(what + " can't be read");
  if (!found->decode) throw Error(std::string(found->name) + " blocks can't be read: the library's are unsigned");
  return *found;
}

bool has(std::initializer_list<uint32_t> list, uint32_t number) {
  return std::find(list.begin(), list.end(), number) != list.end();
}

// --- from what the blocks hold to the picture, and back ----------------------------------------------------

// The first `to` of the `from` channels of every pixel; channels that are not there are 0.
std::vector<uint8_t> selectChannels(const std::vector<uint8_t>& pixels, size_t from, size_t to) {
  std::vector<uint8_t> result(pixels.size() / from * to);
  const uint8_t* p = pixels.data();
  for (size_t i = 0; i < result.size(); i += to, p += from)
    for (size_t c = 0; c < std::min(from, to); ++c) result[i + c] = p[c];
  return result;
}

bool isOpaque(const std::vector<uint8_t>& rgba) {
  for (size_t i = 3; i < rgba.size(); i += 4)
    if (rgba[i] != 255) return false;
  return true;
}

uint8_t clamp(int value) { return uint8_t(std::clamp(value, 0, 255)); }

// RGB and Y, Co, Cg with the chroma around 128.
std::vector<uint8_t> toYCoCg(const std::vector<uint8_t>& rgb) {
  std::vector<uint8_t> result(rgb.size());
  for (size_t i = 0; i < rgb.size(); i += 3) {
    const int r = rgb[i], g = rgb[i + 1], b = rgb[i + 2];
    result[i] = uint8_t((r + 2 * g + b + 2) >> 2);
    result[i + 1] = clamp(((r - b + 1) >> 1) + 128);
    result[i + 2] = clamp(((2 * g - r - b + 2) >> 2) + 128);
  }
  return result;
}
// From a decoded DXT5: Co and Cg in red and green, multiplied by the factor that the upper bits of blue tell,
// Y in alpha.
std::vector<uint8_t> fromScaledYCoCg(const std::vector<uint8_t>& rgba) {
  std::vector<uint8_t> result;
  result.reserve(rgba.size() / 4 * 3);
  for (size_t i = 0; i < rgba.size(); i += 4) {
    const int factor = (rgba[i + 2] >> 3) + 1;
    const int co = (rgba[i] - 128) / factor, cg = (rgba[i + 1] - 128) / factor, y = rgba[i + 3];
    for (int value : {y + co - cg, y + cg, y - co - cg}) result.push_back(clamp(value));
  }
  return result;
}

// work(rows of pixels, the first of them, the first row of blocks): strips of whole blocks.
template <class Work>
void inBlockStrips(QelSize size, Work&& work) {
  inStrips(4 * size.width, (size.height + 3) / 4, [&](int32_t first, int32_t end) {
    work(QelSize{size.width, std::min(4 * end, size.height) - 4 * first}, size_t(4 * first),
         blockCount({size.width, 4 * first}));
  });
}

// What a BC1 block's fourth index stands for where the block has three colours.
void replaceFourth(Bytes blocks, const Texture& texture, QelSize size, std::vector<uint8_t>& rgba) {
  const uint8_t pixel[4] = {0, 0, 0, uint8_t(texture.fourth == FourthColour::clear ? 0 : 255)};
  const int32_t across = (size.width + 3) / 4;
  for (size_t i = 0; i < blockCount(size); ++i) {
    Reader in(blocks, 8 * i);
    const uint16_t first = in.u16le(), second = in.u16le();
    if (first > second) continue;
    const uint32_t indices = in.u32le();
    for (int p = 0; p < 16; ++p) {
      const int32_t x = 4 * int32_t(i % size_t(across)) + p % 4, y = 4 * int32_t(i / size_t(across)) + p / 4;
      if ((indices >> 2 * p & 3) == 3 && x < size.width && y < size.height)
        std::memcpy(&rgba[4 * (size_t(y) * size_t(size.width) + size_t(x))], pixel, 4);
    }
  }
}

}  // namespace

size_t Texture::bytes(int64_t level) const { return blockCount(size(level)) * block->bytes; }

Which chosen(const Texture& texture, const Options& options, Stages& stages) {
  const Which which = {options.integer("level", 0, 0, 99), options.integer("layer", 0, 0, INT32_MAX)};
  if (which.level >= texture.levels || which.layer >= texture.layers)
    throw Error("the texture has " + std::to_string(texture.levels) + " levels and " + std::to_string(texture.layers) +
                " layers, counted from 0");
  if (texture.layers > 1 && !options.has("layer"))
    stages.lose("the layers behind the first one are left out (--layer N takes another)");
  return which;
}

const Block& blockOfDxgi(uint32_t number) {
  return find("the DXGI format " + std::to_string(number), [&](const Block& b) { return has(b.dxgi, number); });
}
const Block& blockOfVulkan(uint32_t number) {
  return find("the Vulkan format " + std::to_string(number), [&](const Block& b) { return has(b.vulkan, number); });
}
const Block& blockOfCode(const std::string& code) {
  return find("a texture of the kind " + code, [&](const Block& b) {
    return std::any_of(b.codes.begin(), b.codes.end(), [&](const char* c) { return code == c; });
  });
}

Image decodeTexture(const Texture& texture, QelSize size, Bytes blocks, const Limits& limits, Stages& stages) {
  const size_t blockBytes = texture.block->bytes, wanted = blockCount(size) * blockBytes;
  limits.expectData(blocks.size(), wanted, 8);
  limits.expectPicture(size.width, size.height, 4, texture.block->sample == Sample::half ? 16 : 8);
  const bool whole = blocks.size() >= wanted;
  std::vector<uint8_t> padded;  // zeros in place of blocks that aren't there
  if (!whole) {
    padded.assign(blocks.begin(), blocks.end());
    padded.resize(padded.size() / blockBytes * blockBytes);
    padded.resize(wanted);
    blocks = padded;
  }
  Image image;
  image.width = size.width;
  image.height = size.height;
  const auto decode = [&](int pixelBytes) {
    std::vector<uint8_t> pixels(size_t(size.width) * size_t(size.height) * size_t(pixelBytes));
    const int32_t step = size.width * pixelBytes;
    stages.time("decode blocks", [&] {
      inBlockStrips(size, [&](QelSize strip, size_t row, size_t block) {
        expectOk(texture.block->decode(blocks.data() + block * blockBytes, &pixels[row * size_t(step)], step, strip),
                 "decoding blocks");
      });
    });
    return pixels;
  };
  switch (texture.block->sample) {
    case Sample::grey:
      image.colour = Colour::grey;
      image.data = decode(1);
      break;
    case Sample::redGreen:  // as a shader reads it: blue is 0
      image.data = selectChannels(decode(2), 2, 3);
      break;
    case Sample::half:
      image.bits = 16;
      image.half = true;
      image.data = decode(6);
      break;
    case Sample::rgb:
    case Sample::rgba:
      image.data = decode(4);
      if (texture.block->sample == Sample::rgb) replaceFourth(blocks, texture, size, image.data);
      if (texture.scaledYCoCg) {
        image.data = fromScaledYCoCg(image.data);
      } else if (isOpaque(image.data)) {
        image.data = selectChannels(image.data, 4, 3);
      } else {
        image.colour = Colour::rgba;
        if (texture.multiplied) divideByAlpha(image);
      }
      break;
  }
  if (!whole) limits.onlyPart(image, Truncated().what());
  return image;
}

Encoded encodeTexture(const Image& original, const Options& options, Stages& stages) {
  // Grey as BC4, RGB as BC1, alpha as BC3 unless told otherwise.
  const int standard = original.colour == Colour::grey                                           ? 3
                       : original.colour == Colour::greyAlpha || original.colour == Colour::rgba ? 2
                                                                                                 : 0;
  const int choice = options.choice("block", {"bc1", "bc2", "bc3", "bc4", "bc5", "ycocg", "bc7"}, standard);
  const bool ycocg = choice == 5;
  const Block& block = kBlocks[ycocg ? 2 : choice == 6 ? 7 : choice];

  const int used = block.sample == Sample::grey ? 1 : block.sample == Sample::redGreen ? 2 : ycocg ? 3 : 4;
  const bool isGrey = used == 1 && (original.colour == Colour::grey || original.colour == Colour::greyAlpha);
  Image image = wholeBytes(adapt(original, stages, {isGrey ? Colour::grey : ycocg ? Colour::rgb : Colour::rgba}, 8));
  const bool isColoured = original.colour != Colour::grey && original.colour != Colour::greyAlpha;
  if (used <= 2 && isColoured) stages.lose(used == 1 ? "green and blue are dropped" : "blue is dropped");
  if (image.channels() == 4 && block.sample != Sample::rgba && !isOpaque(image.data)) stages.lose("alpha is dropped");
  if (image.channels() != used) image.data = selectChannels(image.data, 4, size_t(used));  // red, or red and green
  Block::Encode encode = block.encode;
  if (ycocg) {
    image.data = stages.time("RGB to YCoCg", [&] { return toYCoCg(image.data); });
    encode = qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R;
  }
  const QelSize size{image.width, image.height};
  std::vector<uint8_t> blocks(blockCount(size) * block.bytes);
  stages.time("encode blocks", [&] {
    inBlockStrips(size, [&](QelSize strip, size_t row, size_t first) {
      expectOk(encode(&image.data[row * size_t(image.width * used)], image.width * used, strip,
                      &blocks[first * block.bytes]),
               "encoding blocks");
    });
  });

  return {&block, ycocg, size, std::move(blocks)};
}

void describeTexture(const std::string& format, const Texture& texture, Facts& facts) {
  constexpr const char* kColours[] = {"grey", "red and green", "RGB", "RGBA", "RGB"};
  const Block& block = *texture.block;
  facts.picture(format, texture.width, texture.height, kColours[int(block.sample)],
                block.sample == Sample::half ? 16 : 8);
  facts.add("blocks", texture.scaledYCoCg ? "bc3 of scaled YCoCg" : block.name)
      .add("floats", block.sample == Sample::half)
      .add("multiplied by alpha", texture.multiplied)
      .add("levels", texture.levels)
      .add("layers", texture.layers);
}

}  // namespace qelconv
