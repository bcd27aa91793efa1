// Texture blocks beside libsquish and stb_dxt, on photographs: opaque for DXT1, and with a made alpha channel for the
// others. Encoders' rows name the PSNR of both sides.
#include <squish.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "qelj.h"
#include "support/pair.h"
#include "support/pictures.h"
#define STB_DXT_IMPLEMENTATION
#define STB_DXT_STATIC
#include <stb/stb_dxt.h>

using namespace qelj::bench;

namespace {

using Bytes = std::vector<uint8_t>;

struct Image {
  int width, height;
  Bytes rgba;
  size_t blocks() const { return size_t(width / 4) * size_t(height / 4); }
  QelSize size() const { return {width, height}; }
  double megapixels() const { return double(width) * height / 1e6; }
};

// A photograph cut to whole blocks. Alpha is the green channel smoothed along the row, or opaque.
Image load(const std::string& name, bool opaque) {
  const Photo photo = loadPhoto(name + ".png");
  Image image{photo.width / 4 * 4, photo.height / 4 * 4, {}};
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const uint8_t* p = &photo.rgb[3 * (size_t(y) * size_t(photo.width) + size_t(x))];
      const uint8_t* left = x ? p - 3 : p;
      for (int c = 0; c < 3; ++c) image.rgba.push_back(p[c]);
      image.rgba.push_back(opaque ? 255 : uint8_t((p[1] + left[1]) / 2));
    }
  return image;
}

Bytes channels(const Image& image, int count) {
  Bytes all;
  for (size_t i = 0; i < image.rgba.size(); ++i)
    if (int(i % 4) < count) all.push_back(image.rgba[i]);
  return all;
}

// BC7 blocks of mode 6 and BC6 blocks of mode 11 (one region of plain 10-bit end-points), both with the
// corners of the bounding box and the nearest of 16 steps along its diagonal. Not good blocks, but ones of a
// photograph.
struct BitWriter {
  uint8_t* bytes;
  int at = 0;
  void put(unsigned value, int bits) {
    for (int i = 0; i < bits; ++i, ++at) bytes[at / 8] = uint8_t(bytes[at / 8] | (value >> i & 1) << at % 8);
  }
};
Bytes packOneSubset(const Image& image, bool bc7) {
  const int channelCount = bc7 ? 4 : 3;
  Bytes all(image.blocks() * 16);
  for (size_t b = 0; b < image.blocks(); ++b) {
    const size_t across = size_t(image.width / 4), x = b % across * 4, y = b / across * 4;
    const auto pixel = [&](size_t i) { return &image.rgba[4 * ((y + i / 4) * size_t(image.width) + x + i % 4)]; };
    int low[4] = {255, 255, 255, 255}, high[4] = {}, span = 1;
    for (size_t i = 0; i < 16; ++i)
      for (int c = 0; c < 4; ++c)
        low[c] = std::min<int>(low[c], pixel(i)[c]), high[c] = std::max<int>(high[c], pixel(i)[c]);
    for (int c = 0; c < channelCount; ++c) span += high[c] - low[c];
    int indices[16];
    for (size_t i = 0; i < 16; ++i) {
      int sum = 0;
      for (int c = 0; c < channelCount; ++c) sum += pixel(i)[c] - low[c];
      indices[i] = sum * 16 / span;
    }
    if (indices[0] >= 8) {  // the first index has three bits
      std::swap(low, high);
      for (int& index : indices) index = 15 - index;
    }
    BitWriter block{&all[16 * b]};
    if (bc7) {
      block.put(1 << 6, 7);
      for (int c = 0; c < 4; ++c) block.put(unsigned(low[c] >> 1), 7), block.put(unsigned(high[c] >> 1), 7);
      block.put(2, 2);
    } else {
      block.put(3, 5);
      for (int c = 0; c < 3; ++c) block.put(unsigned(low[c] * 2 + 256), 10);
      for (int c = 0; c < 3; ++c) block.put(unsigned(high[c] * 2 + 256), 10);
    }
    for (int i = 0; i < 16; ++i) block.put(unsigned(indices[i]), i ? 4 : 3);
  }
  return all;
}

Bytes random(size_t bytes) {
  std::mt19937 engine(1);
  Bytes all(bytes);
  for (auto& b : all) b = uint8_t(engine());
  return all;
}
// Random blocks of the eight BC7 modes in equal parts.
Bytes randomBc7(size_t blocks) {
  Bytes all = random(16 * blocks);
  for (size_t b = 0; b < blocks; ++b) {
    const int mode = all[16 * b + 15] % 8;
    all[16 * b] = uint8_t(all[16 * b] << mode << 1 | 1 << mode);
  }
  return all;
}

using Encode = decltype(&qeliTextureEncodeBlock_BC4_8u_C1R);
using Decode = decltype(&qeliTextureDecodeBlock_BC4_8u_C1R);

struct Format {
  const char* name;
  Encode encode;
  Decode decode;
  int channels, blockBytes, squish;
};
constexpr Format kDxt1{
    "DXT1",       qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R, qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, 4, 8,
    squish::kDxt1};
constexpr Format kDxt5{
    "DXT5",       qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R, qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, 4, 16,
    squish::kDxt5};
constexpr Format kFormats[] = {
    kDxt1,
    {"DXT3", qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R, qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, 4, 16,
     squish::kDxt3},
    kDxt5,
    {"BC4", qeliTextureEncodeBlock_BC4_8u_C1R, qeliTextureDecodeBlock_BC4_8u_C1R, 1, 8, squish::kBc4},
    {"BC5", qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R, qeliTextureDecodeBlockToRG_BC5_8u_C1C2R, 2, 16, squish::kBc5},
};

// Of the channels in front of alpha.
double psnrOf(const Image& image, const Format& f, const Bytes& blocks) {
  const Bytes pixels = channels(image, f.channels);
  Bytes decoded(pixels.size());
  f.decode(blocks.data(), decoded.data(), image.width * f.channels, image.size());
  Bytes a, b;
  for (size_t i = 0; i < pixels.size(); ++i)
    if (f.channels < 4 || i % 4 != 3) a.push_back(pixels[i]), b.push_back(decoded[i]);
  return qelj::bench::psnr(a, b);
}

void encodeByStb(const Image& image, bool alpha, Bytes& blocks) {
  uint8_t* to = blocks.data();
  for (int y = 0; y < image.height; y += 4)
    for (int x = 0; x < image.width; x += 4, to += alpha ? 16 : 8) {
      uint8_t block[64];
      for (int r = 0; r < 4; ++r)
        std::memcpy(block + 16 * r, &image.rgba[4 * (size_t(y + r) * size_t(image.width) + size_t(x))], 16);
      stb_compress_dxt_block(to, block, alpha, STB_DXT_NORMAL);
    }
}

void beside(const Format& f, const std::string& name, const Image& image, bool decoding, bool stb) {
  const double units = image.megapixels();
  const Bytes pixels = channels(image, f.channels);
  Bytes coded(image.blocks() * size_t(f.blockBytes)), theirs = coded, out(image.rgba.size()), copy = out;
  const int32_t step = image.width * f.channels;
  f.encode(pixels.data(), step, image.size(), coded.data());
  const Work peerEncode = [&] {
    if (stb) encodeByStb(image, f.squish == squish::kDxt5, theirs);
    else
      squish::CompressImage(image.rgba.data(), image.width, image.height, theirs.data(),
                            f.squish | squish::kColourRangeFit);
  };
  peerEncode();
  if (decoding)
    row(
        name, units, [&] { f.decode(coded.data(), out.data(), step, image.size()); },
        [&] { squish::DecompressImage(out.data(), image.width, image.height, coded.data(), f.squish); },
        [&] { std::memcpy(copy.data(), out.data(), (coded.size() + pixels.size()) / 2); });
  else
    row(
        name, units, [&] { f.encode(pixels.data(), step, image.size(), coded.data()); }, peerEncode, {},
        text("PSNR %.2f, %.2f dB", psnrOf(image, f, coded), psnrOf(image, f, theirs)));
}

}  // namespace

int main(int argc, char** argv) {
  begin(argc, argv);
  struct Input {
    const char* name;
    Image opaque, alpha;
  };
  const Input inputs[] = {{"raccoon", load("raccoon", true), load("raccoon", false)},
                          {"coffee", load("coffee", true), load("coffee", false)}};
  const auto each = [&](auto call) {
    for (const Input& input : inputs)
      if (wanted(input.name)) call(input);
  };

  for (const Format& f : kFormats) {
    const auto imageOf = [&](const Input& input) -> const Image& {
      return f.squish == squish::kDxt1 ? input.opaque : input.alpha;
    };
    road(std::string(f.name) + " decoding", "MPix/s", "libsquish");
    each([&](const Input& input) { beside(f, input.name, imageOf(input), true, false); });
    road(std::string(f.name) + " encoding beside range fit", "MPix/s", "libsquish");
    each([&](const Input& input) { beside(f, input.name, imageOf(input), false, false); });
  }
  for (const Format& f : {kDxt1, kDxt5}) {
    road(std::string(f.name) + " encoding", "MPix/s", "stb_dxt");
    each([&](const Input& input) {
      beside(f, input.name, f.squish == squish::kDxt1 ? input.opaque : input.alpha, false, true);
    });
  }
  road("YCoCg to DXT5 encoding", "MPix/s");
  each([&](const Input& input) {
    const Bytes ycocg = channels(input.opaque, 3);
    Bytes out(16 * input.opaque.blocks());
    row(input.name, input.opaque.megapixels(), [&] {
      qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R(ycocg.data(), input.opaque.width * 3, input.opaque.size(),
                                                    out.data());
    });
  });

  constexpr Format kBc7{
      "BC7", qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R, qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R, 4, 16, 0};
  road("BC7 encoding", "MPix/s", "", 25);
  each([&](const Input& input) {
    for (const Image* image : {&input.opaque, &input.alpha}) {
      Bytes blocks(16 * image->blocks());
      const Work encode = [&] { kBc7.encode(image->rgba.data(), image->width * 4, image->size(), blocks.data()); };
      encode();
      row(input.name + std::string(image == &input.opaque ? ", opaque" : ", alpha"), image->megapixels(), encode, {},
          {}, text("PSNR %.2f dB", psnrOf(*image, kBc7, blocks)));
    }
  });
  const Image& image = inputs[0].opaque;
  Bytes out(image.rgba.size());
  const auto bc7 = [&](const std::string& name, const Bytes& blocks) {
    row(name, image.megapixels(), [&] { kBc7.decode(blocks.data(), out.data(), image.width * 4, image.size()); });
  };
  Bytes encoded(16 * image.blocks());
  kBc7.encode(image.rgba.data(), image.width * 4, image.size(), encoded.data());
  road("BC7 decoding, mixed modes", "MPix/s", "", 2000);
  bc7("random modes", randomBc7(image.blocks()));
  bc7("raccoon as we encode it", encoded);
  road("BC7 decoding, mode 6", "MPix/s");
  bc7("raccoon", packOneSubset(image, true));

  std::vector<uint16_t> halves(3 * image.blocks() * 16);
  const Bytes oneRegion = packOneSubset(image, false), randomBlocks = random(16 * image.blocks());
  road("BC6 decoding", "MPix/s", "", 1200);
  for (const Bytes* blocks : {&oneRegion, &randomBlocks}) {
    const std::string name = blocks == &oneRegion ? "raccoon in one region" : "random modes";
    row(name, image.megapixels(), [&] {
      qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R(blocks->data(), halves.data(), image.width * 6, image.width,
                                                image.height);
    });
    row(name + ", signed", image.megapixels(), [&] {
      qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R(blocks->data(), reinterpret_cast<int16_t*>(halves.data()),
                                                image.width * 6, image.width, image.height);
    });
  }
  return finish();
}
