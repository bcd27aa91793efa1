// The picture that every format reads into and writes from, and what all formats share.
#ifndef QELCONV_IMAGE_H
#define QELCONV_IMAGE_H

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "qelj.h"

namespace qelconv {

using Bytes = std::span<const uint8_t>;

// What a person needs to know about a file that can't be converted. The name of the file is added by the
// caller.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// Of data that can't be right, in contrast to what this program can't do: readers may still have part of a
// picture.
struct Damaged : Error {
  using Error::Error;
};
struct Truncated : Damaged {
  Truncated() : Damaged("the file is truncated") {}
};
// Throws for a negative status of the library: `what` was being done.
void expectOk(QelStatus status, const char* what);

enum class Colour { grey, greyAlpha, rgb, rgba, cmyk };
int channelsOf(Colour colour);
const char* nameOf(Colour colour);

// Pixels that are as long as a unit, across and down: 0 where that is not known. Without a unit their ratio counts.
struct Density {
  enum Unit { kNone, kInch, kCentimetre };
  double x = 0, y = 0;
  Unit unit = kNone;

  bool isKnown() const { return x > 0 && y > 0 && (unit != kNone || x != y); }
};

// What belongs to a picture beside its samples.
struct Metadata {
  std::vector<uint8_t> profile;     // of its colours (ICC)
  std::vector<uint8_t> exif;        // the TIFF structure of EXIF data, from its byte order on
  Density density{};                // as the file itself tells it: EXIF data may tell one, too (see exif.h)
  std::vector<const char*> others;  // what the file has that no format here keeps, such as "comments"
};
// Whether a profile says that it is of such colours.
bool isProfileOf(const std::vector<uint8_t>& profile, Colour colour);

// A picture but for its samples, which are interleaved, in rows without gaps. Samples are unsigned: one byte up to 8
// bits, two (host order) up to 16; or half-precision floats in two bytes. CMYK counts ink: 0 is none.
struct Shape {
  int32_t width = 0, height = 0;
  Colour colour = Colour::rgb;
  int bits = 8;
  bool half = false;
  Metadata metadata{};

  int channels() const { return channelsOf(colour); }
  bool hasAlpha() const { return colour == Colour::greyAlpha || colour == Colour::rgba; }
  int sampleBytes() const { return bits > 8 ? 2 : 1; }
  int pixelBytes() const { return channels() * sampleBytes(); }
  int32_t step() const { return width * pixelBytes(); }
  double megapixels() const { return double(width) * height / 1e6; }

  // Sample i of a row or of all rows, whatever its width. For code off the hot roads.
  uint32_t sampleIn(const uint8_t* samples, size_t i) const {
    if (sampleBytes() == 1) return samples[i];
    uint16_t v;
    std::memcpy(&v, samples + 2 * i, 2);
    return v;
  }
  void setSampleIn(uint8_t* samples, size_t i, uint32_t value) const {
    if (sampleBytes() == 1) {
      samples[i] = uint8_t(value);
    } else {
      const auto v = uint16_t(value);
      std::memcpy(samples + 2 * i, &v, 2);
    }
  }
};

struct Image : Shape {
  std::vector<uint8_t> data;
  std::string missing;  // why this is only part of the file's picture; empty: all of it

  Image() = default;
  Image(int32_t width, int32_t height, Colour colour, int bits = 8);
  // Like another picture, in samples of its own.
  Image(const Shape& shape, Colour colour, int bits);

  uint8_t* row(int32_t y) { return data.data() + size_t(y) * size_t(step()); }
  const uint8_t* row(int32_t y) const { return data.data() + size_t(y) * size_t(step()); }

  // Sample i of the picture.
  uint32_t sample(size_t i) const { return sampleIn(data.data(), i); }
  void setSample(size_t i, uint32_t value) { setSampleIn(data.data(), i, value); }
};

// Throws where a picture of this size can't be held: sides of 1 to 65,535 and at most 2^30 samples.
void checkDimensions(int64_t width, int64_t height, int channels);

class Stages;

// The picture in one of the accepted colours and with at most `maxBits` bits a sample: the first of
// `accepted` that loses nothing, else the first one to which there is a road (alpha dropped, CMYK mixed to
// RGB, grey spread to RGB), and then the stages are told what is lost. Throws when there is none. Returns the
// picture itself when it is acceptable as it is.
Image adapt(const Image& image, Stages& stages, std::initializer_list<Colour> accepted, int maxBits = 16);
// Copies nothing when the picture is acceptable as it is: then gives the picture itself, and otherwise
// `storage`.
const Image& adapt(const Image& image, Image& storage, Stages& stages, std::initializer_list<Colour> accepted,
                   int maxBits = 16);

// A grey picture as the alpha of another one of its size, and back.
void joinAlpha(Image& image, const Image& alpha, Stages& stages);
Image splitAlpha(Image& image);
// From colours that were multiplied by alpha: those of a row, and of all.
void divideByAlpha(const Shape& shape, uint8_t* row);
void divideByAlpha(Image& image);

// The picture with samples spread to the full range of so many bits, or of 8 or 16, for formats that know no other
// depth.
Image withBits(Image image, int bits);
Image wholeBytes(Image image);

// Reads multi-byte fields of a file in memory; throws Truncated past its end.
class Reader {
 public:
  explicit Reader(Bytes bytes, size_t at = 0) : bytes_(bytes), at_(at) {}
  size_t position() const { return at_; }
  size_t left() const { return bytes_.size() - at_; }
  void seek(size_t at) { need(0, at), at_ = at; }
  void skip(size_t n) { need(n, at_), at_ += n; }
  Bytes take(size_t n) {
    need(n, at_);
    at_ += n;
    return bytes_.subspan(at_ - n, n);
  }
  uint8_t u8() { return take(1)[0]; }
  uint16_t u16be() { return uint16_t(number(2, true)); }
  uint32_t u32be() { return uint32_t(number(4, true)); }
  uint64_t u64be() { return number(8, true); }
  uint16_t u16le() { return uint16_t(number(2, false)); }
  uint32_t u32le() { return uint32_t(number(4, false)); }
  uint64_t u64le() { return number(8, false); }

 private:
  void need(size_t n, size_t at) const {
    if (at > bytes_.size() || n > bytes_.size() - at) throw Truncated();
  }
  uint64_t number(size_t n, bool bigEndian) {
    uint64_t value = 0;
    const Bytes b = take(n);
    for (size_t i = 0; i < n; ++i) value = value << 8 | b[bigEndian ? i : n - 1 - i];
    return value;
  }
  Bytes bytes_;
  size_t at_;
};

// Appends multi-byte fields to a file in memory.
struct Writer {
  std::vector<uint8_t> bytes;
  void u8(unsigned v) { bytes.push_back(uint8_t(v)); }
  void u16be(unsigned v) { u8(v >> 8), u8(v); }
  void u32be(uint32_t v) { u16be(v >> 16), u16be(v & 0xFFFF); }
  void u16le(unsigned v) { u8(v), u8(v >> 8); }
  void u32le(uint32_t v) { u16le(v & 0xFFFF), u16le(v >> 16); }
  void put(Bytes b) { bytes.insert(bytes.end(), b.begin(), b.end()); }
  void text(const char* s) { put({reinterpret_cast<const uint8_t*>(s), std::strlen(s)}); }
};

}  // namespace qelconv

#endif
