// DirectDraw Surface: textures of BC1 to BC7 blocks behind a legacy or a DX10 header. Of a chain of mip maps,
// of an array and of a cube the first picture is read; one picture is written.
#include <algorithm>
#include <ostream>

#include "file_limits.h"
#include "format.h"
#include "parallel.h"

namespace qelconv {
namespace {

enum class Sample { grey, redGreen, rgb, rgba, half };  // what a decoder writes

using Decode = QelStatus (*)(const uint8_t*, uint8_t*, int32_t, QelSize);
using Encode = QelStatus (*)(const uint8_t*, int32_t, QelSize, uint8_t*);

template <auto kDecode, class T>
QelStatus decodeHalf(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return kDecode(src, reinterpret_cast<T*>(dst), dstStep, size.width, size.height);
}

struct Block {
  const char* name;  // as --block takes it
  size_t bytes;
  Sample sample;
  Decode decode;
  Encode encode;  // null: only read
  uint32_t dxgi;  // the number of the unsigned normalised (BC6: float) form; other forms of the same blocks follow
  std::initializer_list<uint32_t> alsoDxgi;
  std::initializer_list<const char*> codes;  // of a legacy header, the written one first
};
const Block kBlocks[] = {
    {"bc1",
     8,
     Sample::rgb,
     qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R,
     qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R,
     71,
     {70, 72},
     {"DXT1"}},
    {"bc2",
     16,
     Sample::rgba,
     qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R,
     qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R,
     74,
     {73, 75},
     {"DXT3", "DXT2"}},
    {"bc3",
     16,
     Sample::rgba,
     qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R,
     qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R,
     77,
     {76, 78},
     {"DXT5", "DXT4"}},
    {"bc4",
     8,
     Sample::grey,
     qeliTextureDecodeBlock_BC4_8u_C1R,
     qeliTextureEncodeBlock_BC4_8u_C1R,
     80,
     {79},
     {"ATI1", "BC4U"}},
    {"bc5",
     16,
     Sample::redGreen,
     qeliTextureDecodeBlockToRG_BC5_8u_C1C2R,
     qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R,
     83,
     {82},
     {"ATI2", "BC5U"}},
    {"bc6", 16, Sample::half, decodeHalf<qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R, uint16_t>, nullptr, 95, {94}, {}},
    {"bc6s", 16, Sample::half, decodeHalf<qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R, int16_t>, nullptr, 96, {}, {}},
    {"bc7",
     16,
     Sample::rgba,
     qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R,
     qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R,
     98,
     {97, 99},
     {}},
};

constexpr uint32_t kHeaderBytes = 124, kPixelFormatBytes = 32, kFourCode = 4;
constexpr char kScaledYCoCg[] = "YCG2";  // left in a reserved word by the writer: a DXT5 of scaled chroma

struct Header {
  int64_t width, height;
  const Block* block;
  bool dx10, scaledYCoCg;
  Bytes blocks;  // all that follows the header

  QelSize size() const { return {int32_t(width), int32_t(height)}; }
};

size_t blockCount(QelSize size) { return size_t((size.width + 3) / 4) * size_t((size.height + 3) / 4); }

bool recognises(Bytes file) { return file.size() >= 4 && std::memcmp(file.data(), "DDS ", 4) == 0; }

template <class Matches>
const Block* find(Matches matches) {
  const auto found = std::find_if(std::begin(kBlocks), std::end(kBlocks), matches);
  return found == std::end(kBlocks) ? nullptr : found;
}

Header readHeader(Bytes file) {
  Reader in(file, 4);
  if (in.u32le() != kHeaderBytes) throw Error("the header's size is wrong");
  in.skip(4);  // which fields are in use: writers don't agree, and all of these always are
  Header header{};
  header.height = in.u32le();
  header.width = in.u32le();
  in.skip(4 * 3);  // pitch, depth, count of mip maps
  header.scaledYCoCg = std::memcmp(in.take(4 * 11).data(), kScaledYCoCg, 4) == 0;
  in.skip(4);
  if (!(in.u32le() & kFourCode)) throw Error("only textures of BC1 to BC7 blocks can be read");
  const Bytes four = in.take(4);
  const std::string code(four.begin(), four.end());
  in.seek(4 + kHeaderBytes);
  header.dx10 = code == "DX10";
  if (header.dx10) {
    const uint32_t dxgi = in.u32le();
    in.skip(4 * 4);
    header.block = find([&](const Block& b) {
      return b.dxgi == dxgi || std::find(b.alsoDxgi.begin(), b.alsoDxgi.end(), dxgi) != b.alsoDxgi.end();
    });
    if (!header.block) throw Error("the DXGI format " + std::to_string(dxgi) + " can't be read");
  } else {
    header.block = find([&](const Block& b) {
      return std::any_of(b.codes.begin(), b.codes.end(), [&](const char* c) { return code == c; });
    });
    if (!header.block) throw Error("textures of the kind " + code + " can't be read");
  }
  checkDimensions(header.width, header.height, 4);
  header.blocks = in.take(in.left());
  return header;
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

Image read(Bytes file, const Options& options, Stages& stages) {
  const Limits limits(file, options);
  const Header header = readHeader(file);
  const QelSize size = header.size();
  const size_t blockBytes = header.block->bytes, wanted = blockCount(size) * blockBytes;
  limits.expectData(header.blocks.size(), wanted, 8);
  limits.expectPicture(size.width, size.height, 4, header.block->sample == Sample::half ? 16 : 8);
  const bool whole = header.blocks.size() >= wanted;
  std::vector<uint8_t> padded;  // zeros in place of blocks that aren't there
  Bytes blocks = header.blocks;
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
        expectOk(header.block->decode(blocks.data() + block * blockBytes, &pixels[row * size_t(step)], step, strip),
                 "decoding blocks");
      });
    });
    return pixels;
  };
  switch (header.block->sample) {
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
      if (header.scaledYCoCg) {
        image.data = fromScaledYCoCg(image.data);
      } else if (isOpaque(image.data)) {
        image.data = selectChannels(image.data, 4, 3);
      } else {
        image.colour = Colour::rgba;
      }
      break;
  }
  if (!whole) limits.onlyPart(image, Truncated().what());
  return image;
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
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
  if (image.channels() != used) image.data = selectChannels(image.data, 4, size_t(used));  // red, or red and green
  Encode encode = block.encode;
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

  const bool dx10 = options.has("dx10") || !block.codes.size();
  constexpr uint32_t kCaps = 1, kHeight = 2, kWidth = 4, kPixelFormat = 0x1000, kMipMapCount = 0x20000,
                     kLinearSize = 0x80000, kTexture = 0x1000, kTexture2D = 3;
  Writer out;
  out.text("DDS ");
  for (uint32_t v : {kHeaderBytes, kCaps | kHeight | kWidth | kPixelFormat | kMipMapCount | kLinearSize,
                     uint32_t(size.height), uint32_t(size.width), uint32_t(blocks.size()), 0u, 1u})
    out.u32le(v);
  out.put({reinterpret_cast<const uint8_t*>(ycocg ? kScaledYCoCg : "\0\0\0\0"), 4});
  out.bytes.resize(out.bytes.size() + 4 * 10);
  out.u32le(kPixelFormatBytes);
  out.u32le(kFourCode);
  out.text(dx10 ? "DX10" : *block.codes.begin());
  out.bytes.resize(out.bytes.size() + 4 * 5);
  out.u32le(kTexture);
  out.bytes.resize(out.bytes.size() + 4 * 4);
  if (dx10)
    for (uint32_t v : {block.dxgi, kTexture2D, 0u, 1u, 0u}) out.u32le(v);
  out.put(blocks);
  return std::move(out.bytes);
}

void describe(Bytes file, std::ostream& out) {
  const Header header = readHeader(file);
  out << "DDS, " << header.width << " x " << header.height << ", " << header.block->name << " blocks"
      << (header.scaledYCoCg ? " of scaled YCoCg" : "") << (header.dx10 ? ", DX10 header" : ", legacy header") << "\n";
}

}  // namespace

extern const Format kDds;
const Format kDds = {"DDS",
                     {".dds"},
                     {{"block", "KIND", "bc1|bc2|bc3|bc4|bc5|bc7|ycocg (grey bc4, RGB bc1, alpha bc3)"},
                      {"dx10", nullptr, "write a DX10 header for BC1 to BC5 too"}},
                     recognises,
                     read,
                     write,
                     describe};

}  // namespace qelconv
