#include "support/pictures.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "support/pair.h"

namespace qelj::bench {
namespace {

uint64_t next(uint64_t& state) { return (state = state * 6364136223846793005u + 1442695040888963407u) >> 32; }

// One plane of noise between -1 and 1 an octave, from a lattice of `cell` pixels by cubic splines.
void addOctave(std::vector<float>& plane, int width, int height, int cell, uint64_t seed) {
  const int across = width / cell + 4, down = height / cell + 4;
  std::vector<float> lattice(size_t(across) * size_t(down));
  for (float& v : lattice) v = float(next(seed)) * 0x1p-31f - 1;
  // The rows of the lattice spread across first.
  const auto weights = [&](int at, float* w) {
    const float t = float(at % cell) / float(cell), u = 1 - t;
    w[0] = u * u * u / 6, w[3] = t * t * t / 6;
    w[1] = (4 - 6 * t * t + 3 * t * t * t) / 6, w[2] = (4 - 6 * u * u + 3 * u * u * u) / 6;
  };
  std::vector<float> spread(size_t(width) * size_t(down));
  float w[4];
  for (int x = 0; x < width; ++x) {
    weights(x, w);
    for (int j = 0; j < down; ++j) {
      const float* from = &lattice[size_t(j) * size_t(across) + size_t(x / cell)];
      spread[size_t(j) * size_t(width) + size_t(x)] = w[0] * from[0] + w[1] * from[1] + w[2] * from[2] + w[3] * from[3];
    }
  }
  for (int y = 0; y < height; ++y) {
    weights(y, w);
    const float* from = &spread[size_t(y / cell) * size_t(width)];
    float* to = &plane[size_t(y) * size_t(width)];
    for (int x = 0; x < width; ++x)
      for (int k = 0; k < 4; ++k) to[x] += w[k] * from[k * width + x];
  }
}

}  // namespace

Photo loadPhoto(const std::string& name) {
  const std::string path = std::string(QELJ_IMAGES) + "/" + name;
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  Photo photo;
  if (png_image_begin_read_from_file(&png, path.c_str())) {
    png.format = PNG_FORMAT_RGB;
    photo = {int(png.width), int(png.height), std::vector<uint8_t>(PNG_IMAGE_SIZE(png))};
    png_image_finish_read(&png, nullptr, photo.rgb.data(), 0, nullptr);
  }
  require(!PNG_IMAGE_FAILED(png), path + ": " + png.message);
  return photo;
}

Photo halved(const Photo& photo) {
  Photo half{photo.width / 2, photo.height / 2, {}};
  for (int y = 0; y < half.height; ++y)
    for (int x = 0; x < 3 * half.width; ++x) {
      const uint8_t *a = photo.row(2 * y) + x / 3 * 6 + x % 3, *b = a + 3 * photo.width;
      half.rgb.push_back(uint8_t((a[0] + a[3] + b[0] + b[3] + 2) / 4));
    }
  return half;
}

Photo noise(int width, int height) {
  Photo photo{width, height, std::vector<uint8_t>(size_t(width) * size_t(height) * 3)};
  uint64_t state = 1;
  for (auto& v : photo.rgb) v = uint8_t(next(state) >> 24);
  return photo;
}

Photo octaves(int width, int height) {
  const size_t count = size_t(width) * size_t(height);
  std::vector<float> planes[3];
  for (uint64_t c = 0; c < 3; ++c) {
    planes[c].resize(count);
    for (int cell = 2; cell <= 512; cell *= 2) addOctave(planes[c], width, height, cell, 3 * uint64_t(cell) + c);
  }
  Photo photo{width, height, std::vector<uint8_t>(3 * count)};
  for (size_t i = 0; i < count; ++i)
    for (size_t c = 0; c < 3; ++c) {
      // Colours differ much less than brightness does.
      const float v = 128 + 40 * planes[0][i] + (c ? 8 * planes[c][i] : 0);
      photo.rgb[3 * i + c] = uint8_t(std::clamp(v, 0.f, 255.f));
    }
  return photo;
}

Photo mosaic(const Photo& photo) {
  constexpr int kSide = 2048, kTile = 256;
  Photo all{kSide, kSide, std::vector<uint8_t>(size_t(kSide) * kSide * 3)};
  require(photo.width > kTile + 128 && photo.height > kTile, "a picture is too small for a mosaic");
  // Every other crop is mirrored.
  uint64_t state = 1;
  for (int y = 0; y < kSide; y += kTile)
    for (int x = 0; x < kSide; x += kTile) {
      const int left = int(next(state) >> 1) % (photo.width - kTile),
                top = int(next(state) >> 1) % (photo.height - kTile);
      for (int v = 0; v < kTile; ++v)
        for (int h = 0; h < kTile; ++h)
          std::memcpy(all.row(y + v) + 3 * (x + h),
                      photo.row(top + v) + 3 * (left + (x / kTile % 2 ? kTile - 1 - h : h)), 3);
    }
  return all;
}

const std::vector<CodedPicture>& codedPictures() {
  static const std::vector<CodedPicture> all = {
      {"raccoon halved", [] { return mosaic(halved(loadPhoto("raccoon.png"))); }},
      {"coffee", [] { return mosaic(loadPhoto("coffee.png")); }},
      {"1/f noise", [] { return octaves(2048, 2048); }},
  };
  return all;
}

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return 10 * std::log10(255.0 * 255 * double(a.size()) / sum);
}

Samples::Samples(int rowBytes, int height, int border) : step_((rowBytes + 2 * border + 127) / 64 * 64) {
  bytes_.resize(size_t(step_) * size_t(height + 2) + 64);
  auto* start = bytes_.data() + (64 - reinterpret_cast<uintptr_t>(bytes_.data()) % 64) + (border + 63) / 64 * 64;
  for (int y = -1; y <= height; ++y) rows_.push_back(start + size_t(y + 1) * size_t(step_));
}

Samples::Samples(const Photo& photo) : Samples(photo.width * 3, photo.height) {
  for (int y = 0; y < photo.height; ++y) std::memcpy(row(y), photo.row(y), size_t(photo.width) * 3);
}

}  // namespace qelj::bench
