// Portable float map: the samples of half-float pictures as 32-bit floats, bottom row first.
#include <cmath>
#include <ostream>

#include "file_limits.h"
#include "format.h"

namespace qelconv {
namespace {

float fromHalf(uint32_t half) {
  const int exponent = half >> 10 & 31;
  const auto mantissa = float(half & 0x3FF);
  const float magnitude = exponent == 0    ? std::ldexp(mantissa, -24)
                          : exponent == 31 ? (mantissa == 0 ? INFINITY : NAN)
                                           : std::ldexp(1024 + mantissa, exponent - 25);
  return half & 0x8000 ? -magnitude : magnitude;
}

// The nearest half, ties to even; values beyond the largest become infinite.
uint16_t toHalf(float value) {
  const auto sign = uint16_t(std::signbit(value) ? 0x8000 : 0);
  const float magnitude = std::fabs(value);
  if (magnitude == 0) return sign;
  if (std::isnan(value)) return uint16_t(sign | 0x7E00);
  if (magnitude >= 65520) return uint16_t(sign | 0x7C00);
  int exponent;
  std::frexp(magnitude, &exponent);
  const int unit = std::max(exponent - 11, -24);  // the exponent of the last place
  const auto units = uint32_t(std::nearbyint(std::ldexp(magnitude, -unit)));
  // A subnormal's units are its bits; above them, every step of the exponent adds 1024.
  return uint16_t(sign | (units + uint32_t(unit + 24) * 1024));
}

// std::bit_cast, which the C++ library of Clang 13 does not have.
float floatOf(uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}
uint32_t bitsOf(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

struct Header {
  int64_t width, height;
  bool colour, littleEndian;
};

bool recognises(Bytes file) { return file.size() > 2 && file[0] == 'P' && (file[1] == 'F' || file[1] == 'f'); }

Header readHeader(Reader& in) {
  in.seek(1);
  Header header{};
  header.colour = in.u8() == 'F';
  const auto word = [&] {
    std::string text;
    for (char c; (c = char(in.u8())) > ' ' || text.empty();)
      if (c > ' ') text += c;
    return text;
  };
  header.width = std::atoll(word().c_str());
  header.height = std::atoll(word().c_str());
  header.littleEndian = std::atof(word().c_str()) < 0;
  checkDimensions(header.width, header.height, 3);
  return header;
}

Image read(Bytes file, const Options& options, Stages& stages) {
  return stages.time("read PFM", [&] {
    const Limits limits(file, options);
    Reader in(file);
    const Header header = readHeader(in);
    const int channels = header.colour ? 3 : 1;
    limits.expectData(in.left(), uint64_t(header.width * header.height * channels), 32);
    limits.expectPicture(header.width, header.height, channels, 16);
    Image image(int32_t(header.width), int32_t(header.height), header.colour ? Colour::rgb : Colour::grey, 16);
    image.half = true;
    const auto samples = size_t(image.width) * size_t(image.channels());
    for (int32_t y = image.height - 1; y >= 0; --y)
      for (size_t i = 0; i < samples; ++i) {
        if (in.left() < 4) {
          limits.onlyPart(image, Truncated().what());
          return image;
        }
        image.setSample(size_t(y) * samples + i, toHalf(floatOf(header.littleEndian ? in.u32le() : in.u32be())));
      }
    return image;
  });
}

std::vector<uint8_t> write(const Image& original, const Options&, Stages& stages) {
  return stages.time("write PFM", [&] {
    Image image = original;
    if (!image.half) {
      image = adapt(image, stages, {Colour::rgb, Colour::grey});
    } else if (image.hasAlpha()) {
      splitAlpha(image);
      stages.lose("alpha is dropped");
    }
    Writer out;
    out.text(image.colour == Colour::rgb ? "PF\n" : "Pf\n");
    out.text((std::to_string(image.width) + " " + std::to_string(image.height) + "\n-1.0\n").c_str());
    const auto samples = size_t(image.width) * size_t(image.channels());
    out.bytes.reserve(out.bytes.size() + size_t(image.height) * samples * 4);
    const auto top = float((1u << image.bits) - 1);
    for (int32_t y = image.height - 1; y >= 0; --y)
      for (size_t i = 0; i < samples; ++i) {
        const uint32_t v = image.sample(size_t(y) * samples + i);
        out.u32le(bitsOf(image.half ? fromHalf(v) : float(v) / top));
      }
    return std::move(out.bytes);
  });
}

void describe(Bytes file, Facts& facts) {
  Reader in(file);
  const Header header = readHeader(in);
  facts.picture("PFM", header.width, header.height, header.colour ? "RGB" : "grey", 32);
  facts.add("floats", true).add("big-endian", !header.littleEndian);
}

}  // namespace

extern const Format kPfm;
const Format kPfm = {"PFM", {".pfm"}, {}, recognises, read, write, describe};

}  // namespace qelconv
