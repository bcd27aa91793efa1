#include "image.h"

#include <algorithm>

#include "format.h"

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

bool isProfileOf(const std::vector<uint8_t>& profile, Colour colour) {
  constexpr const char* kSpaces[] = {"GRAY", "GRAY", "RGB ", "RGB ", "CMYK"};
  constexpr size_t kPlace = 16;  // ICC.1, 7.2.6
  return profile.size() >= 128 && std::memcmp(&profile[kPlace], kSpaces[int(colour)], 4) == 0;
}

Image::Image(int32_t width_, int32_t height_, Colour colour_, int bits_) : Image({width_, height_}, colour_, bits_) {}

Image::Image(const Shape& shape, Colour colour_, int bits_) : Shape(shape) {
  colour = colour_, bits = bits_;
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

bool isOpaque(const Image& image) {
  const auto channels = size_t(image.channels());
  const uint32_t top = (1u << image.bits) - 1;
  for (size_t i = channels - 1; i < image.data.size() / size_t(image.sampleBytes()); i += channels)
    if (image.sample(i) != top) return false;
  return true;
}

// A colour profile is made for one of these.
int kindOf(Colour colour) { return colour == Colour::cmyk ? 2 : colour == Colour::rgb || colour == Colour::rgba; }

// Samples of another depth, over the full range of both.
Image rescaled(const Image& image, int bits) {
  Image result(image, image.colour, bits);
  const uint64_t from = (1u << image.bits) - 1, to = (1u << bits) - 1;
  for (size_t i = 0; i < result.data.size() / size_t(result.sampleBytes()); ++i)
    result.setSample(i, uint32_t((image.sample(i) * to + from / 2) / from));
  return result;
}

}  // namespace

Image adapt(const Image& image, Stages& stages, std::initializer_list<Colour> accepted, int maxBits) {
  const Colour best = *std::min_element(accepted.begin(), accepted.end(), [&](Colour a, Colour b) {
    return loss(image.colour, a) < loss(image.colour, b);
  });
  if (image.half) throw Error("half-float samples have no place in this format");
  if (loss(image.colour, best) == kNoRoad)
    throw Error(std::string("this format has no place for ") + nameOf(image.colour) + " pictures");

  Image result = image;
  if (best != image.colour) {
    result = Image(image, best, image.bits);
    if (kindOf(best) != kindOf(image.colour) && !image.metadata.profile.empty()) {
      result.metadata.profile.clear();
      stages.lose("the colour profile is dropped");
    }
    for (size_t i = 0; i < size_t(image.width) * size_t(image.height); ++i) convertPixel(image, i, result);
    if (image.hasAlpha() && !result.hasAlpha() && !isOpaque(image)) stages.lose("alpha is dropped");
    if (image.colour == Colour::cmyk) stages.lose("CMYK becomes RGB, without a colour profile");
  }
  if (result.bits > maxBits) {
    stages.lose(std::to_string(result.bits) + " bits become " + std::to_string(maxBits));
    result = rescaled(result, maxBits);
  }
  return result;
}

const Image& adapt(const Image& image, Image& storage, Stages& stages, std::initializer_list<Colour> accepted,
                   int maxBits) {
  const bool fits = std::find(accepted.begin(), accepted.end(), image.colour) != accepted.end();
  if (fits && image.bits <= maxBits && !image.half) return image;
  return storage = adapt(image, stages, accepted, maxBits);
}

void joinAlpha(Image& image, const Image& alpha, Stages& stages) {
  if (alpha.colour != Colour::grey || alpha.width != image.width || alpha.height != image.height)
    throw Damaged("the alpha is of another size than the picture");
  if (image.colour == Colour::cmyk || image.hasAlpha()) return stages.lose("alpha is dropped");
  if (alpha.half != image.half) throw Error("alpha of another kind than the picture's samples can't be read");
  const auto channels = size_t(image.channels());
  Image joined(image, channels == 1 ? Colour::greyAlpha : Colour::rgba, image.bits);
  joined.missing = image.missing.empty() ? alpha.missing : image.missing;
  const uint64_t from = (1u << alpha.bits) - 1, to = (1u << image.bits) - 1;
  for (size_t i = 0; i < size_t(image.width) * size_t(image.height); ++i) {
    for (size_t c = 0; c < channels; ++c) joined.setSample(i * (channels + 1) + c, image.sample(i * channels + c));
    joined.setSample(i * (channels + 1) + channels, uint32_t((alpha.sample(i) * to + from / 2) / from));
  }
  image = std::move(joined);
}

Image splitAlpha(Image& image) {
  const auto channels = size_t(image.channels() - 1);
  Image alpha(image.width, image.height, Colour::grey, image.bits);
  Image opaque(image, channels == 1 ? Colour::grey : Colour::rgb, image.bits);
  alpha.half = image.half;
  for (size_t i = 0; i < size_t(image.width) * size_t(image.height); ++i) {
    for (size_t c = 0; c < channels; ++c) opaque.setSample(i * channels + c, image.sample(i * (channels + 1) + c));
    alpha.setSample(i, image.sample(i * (channels + 1) + channels));
  }
  image = std::move(opaque);
  return alpha;
}

void divideByAlpha(const Shape& shape, uint8_t* row) {
  if (shape.half) throw Error("half-float samples that were multiplied by alpha can't be read");
  const auto channels = size_t(shape.channels());
  const uint64_t top = (1u << shape.bits) - 1;
  for (size_t i = 0; i < size_t(shape.width) * channels; i += channels) {
    const uint64_t alpha = shape.sampleIn(row, i + channels - 1);
    for (size_t c = i; alpha && c < i + channels - 1; ++c)
      shape.setSampleIn(row, c, uint32_t(std::min((shape.sampleIn(row, c) * top + alpha / 2) / alpha, top)));
  }
}

void divideByAlpha(Image& image) {
  for (int32_t y = 0; y < image.height; ++y) divideByAlpha(image, image.row(y));
}

Image withBits(Image image, int bits) { return image.bits == bits ? std::move(image) : rescaled(image, bits); }

Image wholeBytes(Image image) {
  const int bits = image.bits > 8 ? 16 : 8;
  return withBits(std::move(image), bits);
}

}  // namespace qelconv
