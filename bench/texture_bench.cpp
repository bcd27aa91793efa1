// Texture blocks beside libsquish and stb_dxt, on a photograph with a made alpha channel. One thread: run
// with OMP_NUM_THREADS=1, since libsquish forks over rows.
#include <squish.h>

#include <algorithm>
#include <random>

#include "qelj.h"
#include "support/pair.h"
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

// The photograph cut to whole blocks. Alpha is the green channel smoothed along the row.
Image load() {
  const Photo photo = loadPhoto("raccoon.png");
  Image image{photo.width / 4 * 4, photo.height / 4 * 4, {}};
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const uint8_t* p = &photo.rgb[3 * (size_t(y) * size_t(photo.width) + size_t(x))];
      const uint8_t* left = x ? p - 3 : p;
      for (int c = 0; c < 3; ++c) image.rgba.push_back(p[c]);
      image.rgba.push_back(uint8_t((p[1] + left[1]) / 2));
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

}  // namespace

int main(int argc, char** argv) {
  const Image image = load();
  const double units = image.megapixels();
  static Bytes out, theirs;
  out.resize(image.rgba.size());
  theirs.resize(image.rgba.size());

  struct Format {
    const char* name;
    Encode encode;
    Decode decode;
    int channels, blockBytes, squish;
  };
  const Format formats[] = {
      {"DXT1", qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R, qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R, 4, 8,
       squish::kDxt1},
      {"DXT3", qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R, qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R, 4, 16,
       squish::kDxt3},
      {"DXT5", qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R, qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R, 4, 16,
       squish::kDxt5},
      {"BC4", qeliTextureEncodeBlock_BC4_8u_C1R, qeliTextureDecodeBlock_BC4_8u_C1R, 1, 8, squish::kBc4},
      {"BC5", qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R, qeliTextureDecodeBlockToRG_BC5_8u_C1C2R, 2, 16, squish::kBc5},
  };
  static std::vector<Bytes> keep;
  keep.reserve(64);
  const auto hold = [](Bytes bytes) -> const Bytes& { return keep.emplace_back(std::move(bytes)); };

  for (const Format& f : formats) {
    const Bytes& pixels = hold(channels(image, f.channels));
    Bytes blocks(image.blocks() * size_t(f.blockBytes));
    f.encode(pixels.data(), image.width * f.channels, image.size(), blocks.data());
    const Bytes& coded = hold(blocks);
    pair(
        std::string(f.name) + " decode", units, "MPix/s",
        [&image, &coded, f] { f.decode(coded.data(), out.data(), image.width * f.channels, image.size()); },
        [&image, &coded, f] {
          squish::DecompressImage(theirs.data(), image.width, image.height, coded.data(), f.squish);
        },
        [&coded, &pixels] {
          std::memcpy(theirs.data(), coded.data(), coded.size());
          std::memcpy(out.data(), pixels.data(), pixels.size());
        });
    pair(
        std::string(f.name) + " encode, range fit", units, "MPix/s",
        [&image, &pixels, f] { f.encode(pixels.data(), image.width * f.channels, image.size(), out.data()); },
        [&image, f] {
          squish::CompressImage(image.rgba.data(), image.width, image.height, theirs.data(),
                                f.squish | squish::kColourRangeFit);
        });
  }
  for (const bool alpha : {false, true})
    pair(
        alpha ? "DXT5 encode, stb_dxt" : "DXT1 encode, stb_dxt", units, "MPix/s",
        [&image, encode = formats[alpha ? 2 : 0].encode] {
          encode(image.rgba.data(), image.width * 4, image.size(), out.data());
        },
        [&image, alpha] {
          uint8_t* to = theirs.data();
          for (int y = 0; y < image.height; y += 4)
            for (int x = 0; x < image.width; x += 4, to += alpha ? 16 : 8) {
              uint8_t block[64];
              for (int r = 0; r < 4; ++r)
                std::memcpy(block + 16 * r, &image.rgba[4 * (size_t(y + r) * size_t(image.width) + size_t(x))], 16);
              stb_compress_dxt_block(to, block, alpha, STB_DXT_NORMAL);
            }
        });
  const Bytes& ycocg = hold(channels(image, 3));
  pair("YCoCg to DXT5 encode", units, "MPix/s",
       [&] { qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R(ycocg.data(), image.width * 3, image.size(), out.data()); });

  static Bytes opaque = image.rgba;
  for (size_t i = 3; i < opaque.size(); i += 4) opaque[i] = 255;
  const auto encodeBc7 = [&image](const Bytes& pixels, Bytes& blocks) {
    qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(pixels.data(), image.width * 4, image.size(), blocks.data());
  };
  static Bytes bc7Blocks(16 * image.blocks());
  encodeBc7(opaque, bc7Blocks);
  pair("BC7 encode, opaque", units, "MPix/s", [=] { encodeBc7(opaque, out); });
  pair("BC7 encode, alpha", units, "MPix/s", [=, &image] { encodeBc7(image.rgba, out); });

  static std::vector<uint16_t> halves(3 * image.blocks() * 16);
  const auto bc7 = [&](const char* name, const Bytes& blocks) {
    pair(name, units, "MPix/s", [&image, &blocks] {
      qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R(blocks.data(), out.data(), image.width * 4, image.size());
    });
  };
  const auto bc6 = [&](const char* name, const Bytes& blocks) {
    pair(name, units, "MPix/s", [&image, &blocks] {
      qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R(blocks.data(), halves.data(), image.width * 6, image.width,
                                                image.height);
    });
  };
  bc7("BC7 decode, photograph", bc7Blocks);
  bc7("BC7 decode, photograph in mode 6", hold(packOneSubset(image, true)));
  bc7("BC7 decode, random modes", hold(randomBc7(image.blocks())));
  const Bytes& bc6Photo = hold(packOneSubset(image, false));
  bc6("BC6 decode, photograph in one region", bc6Photo);
  pair("BC6 decode, photograph in one region, signed", units, "MPix/s", [&] {
    qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R(bc6Photo.data(), reinterpret_cast<int16_t*>(halves.data()),
                                              image.width * 6, image.width, image.height);
  });
  bc6("BC6 decode, random modes", hold(random(16 * image.blocks())));
  return runPairs(argc, argv);
}
