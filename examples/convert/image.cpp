#include "image.h"

#include <algorithm>

namespace qelconv {

void expectOk(QelStatus status, const char* what) {
  if (status < 0) throw Error(std::string(what) + " failed with status " + std::to_string(status));
}

int channelsOf(Colour colour) {
  constexpr int kChannels[] = {1, 2, 3, 4, 4};
  return kChannels[int(colour)];
}

const char* nameOf(Colour colour) {
  constexpr const char* kNames[] = {"grey", "grey with alpha", "RGB", "RGBA", "CMYK"};
  return kNames[int(colour)];
}

Image::Image(int32_t width_, int32_t height_, Colour colour_, int bits_)
    : width(width_), height(height_), colour(colour_), bits(bits_) {
  checkDimensions(width, height, channels());
  data.resize(size_t(step()) * size_t(height));
}

void checkDimensions(int64_t width, int64_t height, int channels) {
  constexpr int64_t kMaxSide = 65535, kMaxSamples = int64_t(1) << 30;
  if (width < 1 || height < 1) throw Error("the picture is empty");
  if (width > kMaxSide || height > kMaxSide || width * height * channels > kMaxSamples)
    throw Error("the picture is too large: " + std::to_string(width) + " x " + std::to_string(height));
}

namespace {

// What is lost on the way from one colour to another; nothing on the way to itself or into a wider one.
constexpr int kNoRoad = 99;
int loss(Colour from, Colour to) {
  if (from == to) return 0;
  const auto opaque = [](Colour c) {
    return c == Colour::greyAlpha ? Colour::grey : c == Colour::rgba ? Colour::rgb : c;
  };
  const bool dropsAlpha = opaque(from) != from && opaque(to) == to;
  const Colour a = opaque(from), b = opaque(to);
  if (a == b || (a == Colour::grey && b == Colour::rgb)) return dropsAlpha ? 2 : 1;
  if (a == Colour::cmyk && b == Colour::rgb) return 3;
  return kNoRoad;
}

void convertPixel(const Image& from, size_t pixel, Image& to) {
  const uint32_t top = (1u << from.bits) - 1;
  const size_t n = size_t(from.channels()), first = pixel * n;
  uint32_t rgba[4] = {0, 0, 0, top};
  switch (from.colour) {
    case Colour::grey:
    case Colour::greyAlpha:
      rgba[0] = rgba[1] = rgba[2] = from.sample(first);
      if (n == 2) rgba[3] = from.sample(first + 1);
      break;
    case Colour::rgb:
    case Colour::rgba:
      for (size_t c = 0; c < n; ++c) rgba[c] = from.sample(first + c);
      break;
    case Colour::cmyk:
      for (size_t c = 0; c < 3; ++c)
        rgba[c] = uint32_t((uint64_t(top - from.sample(first + c)) * (top - from.sample(first + 3)) + top / 2) / top);
      break;
  }
  const size_t m = size_t(to.channels()), out = pixel * m;
  if (m <= 2) {
    to.setSample(out, rgba[0]);
    if (m == 2) to.setSample(out + 1, rgba[3]);
  } else {
    for (size_t c = 0; c < m; ++c) to.setSample(out + c, rgba[c]);
  }
}

}  // namespace

const Image& adapt(const Image& image, Image& storage, std::initializer_list<Colour> accepted, int maxBits) {
  const bool fits = std::find(accepted.begin(), accepted.end(), image.colour) != accepted.end();
  if (fits && image.bits <= maxBits && !image.half) return image;
  return storage = adapt(image, accepted, maxBits);
}

Image adapt(const Image& image, std::initializer_list<Colour> accepted, int maxBits) {
  const Colour best = *std::min_element(accepted.begin(), accepted.end(), [&](Colour a, Colour b) {
    return loss(image.colour, a) < loss(image.colour, b);
  });
  if (image.half) throw Error("half-float samples have no place in this format");
  if (loss(image.colour, best) == kNoRoad)
    throw Error(std::string("this format has no place for ") + nameOf(image.colour) + " pictures");

  Image result = image;
  if (best != image.colour) {
    result = Image(image.width, image.height, best, image.bits);
    for (size_t i = 0; i < size_t(image.width) * size_t(image.height); ++i) convertPixel(image, i, result);
  }
  if (result.bits > maxBits) {
    Image narrow(result.width, result.height, result.colour, maxBits);
    const uint64_t from = (1u << result.bits) - 1, to = (1u << maxBits) - 1;
    const size_t samples = narrow.data.size() / size_t(narrow.sampleBytes());
    for (size_t i = 0; i < samples; ++i) narrow.setSample(i, uint32_t((result.sample(i) * to + from / 2) / from));
    result = std::move(narrow);
  }
  return result;
}

Image wholeBytes(Image image) {
  if (image.bits == 8 || image.bits == 16) return image;
  Image spread(image.width, image.height, image.colour, image.bits > 8 ? 16 : 8);
  const uint64_t from = (1u << image.bits) - 1, to = (1u << spread.bits) - 1;
  for (size_t i = 0; i < spread.data.size() / size_t(spread.sampleBytes()); ++i)
    spread.setSample(i, uint32_t((image.sample(i) * to + from / 2) / from));
  return spread;
}

}  // namespace qelconv
