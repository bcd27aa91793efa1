// TIFF and BigTIFF, through libtiff, which reads and writes directories, LZW and Deflate, and reads fax and JPEG; PackBits
// and byte planes are the library's. The first picture of a file is read.
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <optional>
#include <ostream>

#include "exif.h"
#include "file_limits.h"
#include "format.h"
#include "orientation.h"

namespace qelconv {
namespace {

// --- files in memory, as libtiff asks for them -------------------------------------------------------------

class File {
 public:
  explicit File(Bytes file) : file_(file), tiff_(open("rmc")) {
    if (!tiff_) fail();
  }
  // For writing; `mode` as libtiff knows it.
  explicit File(const std::string& mode) : tiff_(open(mode.c_str())) {
    if (!tiff_) fail();
  }
  File(const File&) = delete;

  operator TIFF*() { return tiff_.get(); }
  Bytes file() const { return file_; }
  // Behind what is written so far; libtiff goes to the end before it writes. Gives the place, 0 of nothing.
  uint64_t append(const std::vector<Field>& fields) {
    const bool big = (written_[2] | written_[3]) == 43;  // libtiff tells wrongly of big-endian files that it writes
    return appendDirectory(written_, fields, TIFFIsBigEndian(*this), big);
  }
  // Throws what libtiff has said last.
  [[noreturn]] void fail() const { throw Damaged(message_.empty() ? "not a readable TIFF" : message_); }
  void expect(bool success) const {
    if (!success) fail();
  }
  std::vector<uint8_t> finish() {
    tiff_.reset();
    return std::move(written_);
  }

  template <class T>
  T field(uint32_t tag, T fallback) {
    T value = fallback;
    return TIFFGetFieldDefaulted(*this, tag, &value) ? value : fallback;
  }

 private:
  struct Close {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
  };

  TIFF* open(const char* mode) {
    const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                               TIFFOpenOptionsFree);
    constexpr tmsize_t kMostAtOnce = 64 << 20;  // beyond a file's own size
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMostAtOnce + tmsize_t(file_.size()));
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), remember, this);
    TIFFOpenOptionsSetWarningHandlerExtR(
        options.get(), [](TIFF*, void*, const char*, const char*, va_list) { return 1; }, nullptr);
    return TIFFClientOpenExt("the file", mode, this, read, write, seek, close, size, nullptr, nullptr, options.get());
  }

  static File& of(thandle_t handle) { return *static_cast<File*>(handle); }
  size_t end() const { return file_.empty() ? written_.size() : file_.size(); }

  static int remember(TIFF*, void* handle, const char*, const char* format, va_list values) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, values);
    of(handle).message_ = text;
    return 1;
  }
  static tmsize_t read(thandle_t handle, void* to, tmsize_t n) {
    File& f = of(handle);
    const uint8_t* const from = f.file_.empty() ? f.written_.data() : f.file_.data();
    const auto count = size_t(std::clamp<uint64_t>(f.end() - std::min<uint64_t>(f.at_, f.end()), 0, uint64_t(n)));
    if (count) std::memcpy(to, from + f.at_, count);
    f.at_ += count;
    return tmsize_t(count);
  }
  static tmsize_t write(thandle_t handle, void* from, tmsize_t n) {
    File& f = of(handle);
    if (f.at_ + uint64_t(n) > f.written_.size()) f.written_.resize(size_t(f.at_) + size_t(n));
    std::memcpy(f.written_.data() + f.at_, from, size_t(n));
    f.at_ += uint64_t(n);
    return n;
  }
  static toff_t seek(thandle_t handle, toff_t offset, int from) {
    File& f = of(handle);
    return f.at_ = offset + (from == SEEK_CUR ? f.at_ : from == SEEK_END ? f.end() : 0);
  }
  static int close(thandle_t) { return 0; }
  static toff_t size(thandle_t handle) { return of(handle).end(); }

  Bytes file_;                    // that is read
  std::vector<uint8_t> written_;  // or written
  uint64_t at_ = 0;
  std::string message_;
  std::unique_ptr<TIFF, Close> tiff_;
};

// --- reading -----------------------------------------------------------------------------------------------

// A picture in strips or tiles, of all channels or of one.
struct Picture {
  int64_t width, height, across, down;  // of the picture, and of one segment
  Colour colour;
  int channels, bits;
  bool tiled, separate, inverted, multiplied, half, reversed, swapped;
  unsigned compression;
  std::vector<std::array<uint8_t, 3>> palette;

  int planes() const { return separate ? channels : 1; }
  int together() const { return separate ? 1 : channels; }  // channels of a segment
  size_t rowBytes() const { return size_t(across * together() * bits + 7) / 8; }
  bool packBits() const { return compression == COMPRESSION_PACKBITS; }
  const char* packing() const {
    switch (compression) {
      case COMPRESSION_NONE:
        return "uncompressed";
      case COMPRESSION_PACKBITS:
        return "PackBits";
      case COMPRESSION_LZW:
        return "LZW";
      case COMPRESSION_DEFLATE:
      case COMPRESSION_ADOBE_DEFLATE:
        return "Deflate";
      case COMPRESSION_JPEG:
        return "JPEG";
      default:
        return "fax";
    }
  }
};

// What a byte of a segment makes at most; fax has no such bound.
std::optional<uint64_t> densest(const Picture& p) {
  switch (p.compression) {
    case COMPRESSION_NONE:
      return 1;
    case COMPRESSION_PACKBITS:
      return 64;
    case COMPRESSION_LZW:
      return 2731;  // strings of up to 4096 bytes for 12 bits
    case COMPRESSION_DEFLATE:
    case COMPRESSION_ADOBE_DEFLATE:
      return 1032;
    case COMPRESSION_JPEG:
      return 512;  // 16 x 16 pixels for 12 bits, two a block
    default:
      return {};
  }
}

void readPalette(File& in, Picture& p) {
  uint16_t* map[3];
  if (p.channels != 1 || p.bits > 8 || !TIFFGetField(in, TIFFTAG_COLORMAP, &map[0], &map[1], &map[2]))
    throw Error("a palette of this kind can't be read");
  p.palette.resize(size_t(1) << p.bits);
  // Some writers give bytes in place of 16-bit values.
  int shift = 0;
  for (const uint16_t* values : map)
    for (size_t i = 0; i < p.palette.size(); ++i) shift = values[i] > 255 ? 8 : shift;
  for (size_t i = 0; i < p.palette.size(); ++i)
    for (size_t c = 0; c < 3; ++c) p.palette[i][c] = uint8_t(map[c][i] >> shift);
}

Picture examine(File& in) {
  Picture p{};
  p.width = in.field<uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
  p.height = in.field<uint32_t>(TIFFTAG_IMAGELENGTH, 0);
  p.channels = in.field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL, 1);
  p.bits = in.field<uint16_t>(TIFFTAG_BITSPERSAMPLE, 1);
  const int kind = in.field<uint16_t>(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  p.half = kind == SAMPLEFORMAT_IEEEFP && p.bits == 16;
  const bool whole = kind == SAMPLEFORMAT_UINT || kind == SAMPLEFORMAT_VOID;
  if (!p.half && (!whole || (p.bits != 1 && p.bits != 2 && p.bits != 4 && p.bits != 8 && p.bits != 16)))
    throw Error("only unsigned samples of 1, 2, 4, 8 and 16 bits and half-floats can be read");
  p.compression = in.field<uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  constexpr unsigned kRead[] = {COMPRESSION_NONE,      COMPRESSION_PACKBITS,      COMPRESSION_LZW,
                                COMPRESSION_DEFLATE,   COMPRESSION_ADOBE_DEFLATE, COMPRESSION_CCITTRLE,
                                COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4,     COMPRESSION_JPEG};
  if (std::find(std::begin(kRead), std::end(kRead), p.compression) == std::end(kRead))
    throw Error("the compression " + std::to_string(p.compression) + " can't be read");

  unsigned photometric = in.field<uint16_t>(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  p.inverted = photometric == PHOTOMETRIC_MINISWHITE;
  const uint16_t* extras = nullptr;
  uint16_t extra = 0;
  TIFFGetFieldDefaulted(in, TIFFTAG_EXTRASAMPLES, &extra, &extras);
  constexpr Colour kColours[] = {Colour::grey, Colour::greyAlpha, Colour::rgb, Colour::rgba};
  p.separate = p.channels > 1 && in.field<uint16_t>(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
  // The chroma of JPEG comes back as RGB where all channels are together.
  if (p.compression == COMPRESSION_JPEG && photometric == PHOTOMETRIC_YCBCR && !p.separate &&
      TIFFSetField(in, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB))
    photometric = PHOTOMETRIC_RGB;
  const bool grey = photometric <= PHOTOMETRIC_MINISBLACK && p.channels <= 2;
  const bool rgb = photometric == PHOTOMETRIC_RGB && (p.channels == 3 || p.channels == 4);
  if (photometric == PHOTOMETRIC_PALETTE) {
    readPalette(in, p);
    p.colour = Colour::rgb;
  } else if (p.channels >= 1 && (grey || rgb)) {
    p.colour = kColours[p.channels - 1];
    p.multiplied = p.channels % 2 == 0 && extra && extras[0] == EXTRASAMPLE_ASSOCALPHA;
  } else if (photometric == PHOTOMETRIC_SEPARATED && p.channels == 4) {
    p.colour = Colour::cmyk;
  } else {
    throw Error("the photometric interpretation " + std::to_string(photometric) + " with " +
                std::to_string(p.channels) + " channels can't be read");
  }
  checkDimensions(p.width, p.height, p.channels);
  p.tiled = TIFFIsTiled(in);
  p.reversed = in.field<uint16_t>(TIFFTAG_FILLORDER, FILLORDER_MSB2LSB) == FILLORDER_LSB2MSB;
  p.swapped = TIFFIsByteSwapped(in);
  p.across = p.tiled ? in.field<uint32_t>(TIFFTAG_TILEWIDTH, 0) : p.width;
  p.down = p.tiled ? in.field<uint32_t>(TIFFTAG_TILELENGTH, 0)
                   : std::min<int64_t>(std::max(in.field<uint32_t>(TIFFTAG_ROWSPERSTRIP, UINT32_MAX), 1u), p.height);
  if (p.tiled) checkDimensions(p.across, p.down, p.together());
  if (p.rowBytes() * uint64_t(p.down) >= INT32_MAX) throw Error("a strip or tile is too large");
  return p;
}

// Exchanges the bytes of samples: a split into planes, and a join of the planes the other way round.
void swapBytes(uint8_t* row, int32_t samples, std::vector<uint8_t>& scratch) {
  scratch.resize(2 * size_t(samples));
  uint8_t* const planes[] = {scratch.data(), scratch.data() + samples};
  const uint8_t* const exchanged[] = {planes[1], planes[0]};
  auto* words = reinterpret_cast<uint16_t*>(row);
  expectOk(qeliSplitRow_TIFF_16u8u_C1(words, planes, samples), "splitting samples");
  expectOk(qeliJoinRow_TIFF_8u16u_C1(exchanged, words, samples), "joining samples");
}

class Segments {
 public:
  Segments(File& in, const Picture& p, Image& image) : in_(in), p_(p), image_(image) {}

  // The segment that begins at (x, y), of one plane or of all: `rows` of it are in the picture.
  void read(int64_t x, int64_t y, int plane) {
    const uint32_t index = p_.tiled ? TIFFComputeTile(in_, uint32_t(x), uint32_t(y), 0, uint16_t(plane))
                                    : TIFFComputeStrip(in_, uint32_t(y), uint16_t(plane));
    const auto inside = int32_t(std::min(p_.down, p_.height - y));
    const int32_t rows = p_.tiled ? int32_t(p_.down) : inside;
    segment_.assign(size_t(rows) * p_.rowBytes(), 0);
    const auto put = [&](int32_t first, int32_t end) {
      for (int32_t r = first; r < std::min(end, inside); ++r)
        putRow(&segment_[size_t(r) * p_.rowBytes()], x, int32_t(y) + r, plane);
    };
    if (p_.packBits()) return unpack(index, int32_t(y), rows, put);
    const auto bytes = tmsize_t(segment_.size());
    const tmsize_t done = p_.tiled ? TIFFReadEncodedTile(in_, index, segment_.data(), bytes)
                                   : TIFFReadEncodedStrip(in_, index, segment_.data(), bytes);
    put(0, rows);  // what there is of a damaged one too
    in_.expect(done == bytes);
  }

 private:
  // A row of PackBits may be cut anywhere by a damaged file: a byte that is no token follows the strip, so that no
  // run's header is the source's last byte, and a run that ends in it isn't whole.
  template <class Put>
  void unpack(uint32_t index, int32_t top, int32_t rows, Put&& put) {
    constexpr uint8_t kNoToken = 0x80;
    const uint64_t offset = TIFFGetStrileOffset(in_, index), count = TIFFGetStrileByteCount(in_, index);
    Reader at(in_.file());
    at.seek(size_t(std::min<uint64_t>(offset, SIZE_MAX)));
    const Bytes coded = at.take(size_t(std::min<uint64_t>(count, at.left())));
    if (coded.size() >= INT32_MAX) throw Damaged("a strip's size can't be right");
    packed_.assign(coded.begin(), coded.end());
    if (p_.reversed) TIFFReverseBits(packed_.data(), tmsize_t(packed_.size()));
    packed_.push_back(kNoToken);
    uint32_t position = 0;
    const auto rowBytes = int32_t(p_.rowBytes());
    for (int32_t r = 0; r < rows; ++r) {
      uint8_t* const row = &segment_[size_t(r) * p_.rowBytes()];
      if (qeliUnpackBitsRow_TIFF_8u_C1(packed_.data(), &position, int32_t(packed_.size()), row, rowBytes) !=
              qelStatusOk ||
          position > coded.size())
        throw Damaged("the PackBits data of row " + std::to_string(top + r) + " is damaged");
      if (p_.bits == 16 && p_.swapped) swapBytes(row, rowBytes / 2, scratch_);
      put(r, r + 1);
    }
    if (coded.size() < count) throw Truncated();
  }

  // A row of a segment into the picture.
  void putRow(const uint8_t* from, int64_t x, int32_t y, int plane) {
    const auto columns = size_t(std::min(p_.across, p_.width - x));
    const auto channels = size_t(p_.channels), together = size_t(p_.together());
    if (p_.bits >= 8 && !p_.separate && p_.palette.empty()) {
      const auto pixel = size_t(image_.pixelBytes());
      std::memcpy(image_.row(y) + size_t(x) * pixel, from, columns * pixel);
      return;
    }
    const size_t first = (size_t(y) * size_t(p_.width) + size_t(x)) * channels + size_t(plane);
    for (size_t i = 0; i < columns * together; ++i) {
      uint32_t v = 0;
      if (p_.bits == 16) {
        uint16_t word;
        std::memcpy(&word, from + 2 * i, 2);
        v = word;
      } else {
        const size_t bit = i * size_t(p_.bits);
        v = from[bit / 8] >> (8 - p_.bits - int(bit % 8)) & ((1u << p_.bits) - 1);
      }
      const size_t at = first + (p_.separate ? i * channels : i);
      if (p_.palette.empty()) image_.setSample(at, v);
      else std::memcpy(&image_.data[3 * at], p_.palette[v].data(), 3);
    }
  }

  File& in_;
  const Picture& p_;
  Image& image_;
  std::vector<uint8_t> segment_, packed_, scratch_;
};

Metadata metadataOf(File& in, Stages& stages) {
  Metadata metadata;
  uint32_t length = 0;
  const uint8_t* profile = nullptr;
  if (TIFFGetField(in, TIFFTAG_ICCPROFILE, &length, &profile)) metadata.profile.assign(profile, profile + length);
  metadata.exif = makeExif(takeExif(in.file(), stages));
  setOrientation(metadata, in.field<uint16_t>(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT));
  return metadata;
}

Image readPicture(File& in, const Picture& p, const Limits& limits) {
  uint64_t coded = 0;
  const auto bytes = uint64_t((p.width * p.channels * p.bits + 7) / 8 * p.height);
  const int64_t segments = (p.width + p.across - 1) / p.across * ((p.height + p.down - 1) / p.down) * p.planes();
  const uint64_t claimed = p.tiled ? TIFFNumberOfTiles(in) : TIFFNumberOfStrips(in);
  if (claimed < uint64_t(segments)) throw Error("strips are missing");
  for (int64_t i = 0; i < segments; ++i)
    coded += std::min<uint64_t>(TIFFGetStrileByteCount(in, uint32_t(i)), in.file().size());
  if (densest(p)) limits.expectData(coded, bytes / *densest(p), 8);
  limits.expectWork(coded / 4);  // strips may share their bytes
  // What tiles have beyond the picture is decoded as well.
  limits.expectWork(uint64_t(segments) * uint64_t(p.down) * p.rowBytes() / 16);
  limits.expectPicture(p.width, p.height, p.palette.empty() ? p.channels : 3, p.bits,
                       3 * uint64_t(p.down) * p.rowBytes());
  Image image(int32_t(p.width), int32_t(p.height), p.colour, p.palette.empty() ? p.bits : 8);
  image.half = p.half;
  Segments reader(in, p, image);
  FirstWrong wrong(limits);
  size_t index = 0;
  for (int plane = 0; plane < p.planes(); ++plane)
    for (int64_t y = 0; y < p.height; y += p.down)
      for (int64_t x = 0; x < p.width; x += p.across, ++index) {
        try {
          reader.read(x, y, plane);
        } catch (const Damaged& e) {
          wrong.note(index, e.what());
        }
      }
  wrong.settle(image);
  if (p.inverted) {
    const uint32_t top = (1u << image.bits) - 1;
    const auto channels = size_t(p.channels);
    for (size_t i = 0; i < image.data.size() / size_t(image.sampleBytes()); i += channels)
      image.setSample(i, image.sample(i) ^ top);
  }
  if (p.multiplied) divideByAlpha(image);
  return image;
}

// --- byte planes: a 16-bit picture as two 8-bit ones, high bytes first -------------------------------------

std::array<Image, 2> split(const Image& wide) {
  std::array<Image, 2> planes = {Image(wide, wide.colour, 8), Image(wide, wide.colour, 8)};
  for (int32_t y = 0; y < wide.height; ++y) {
    uint8_t* const rows[] = {planes[0].row(y), planes[1].row(y)};
    expectOk(
        qeliSplitRow_TIFF_16u8u_C1(reinterpret_cast<const uint16_t*>(wide.row(y)), rows, wide.width * wide.channels()),
        "splitting samples");
  }
  return planes;
}

Image join(const Image& high, const Image& low) {
  if (high.bits != 8 || low.bits != 8 || high.width != low.width || high.height != low.height ||
      high.colour != low.colour)
    throw Error("the first two pictures are no byte planes of one");
  Image wide(high, high.colour, 16);
  for (int32_t y = 0; y < wide.height; ++y) {
    const uint8_t* const rows[] = {high.row(y), low.row(y)};
    expectOk(qeliJoinRow_TIFF_8u16u_C1(rows, reinterpret_cast<uint16_t*>(wide.row(y)), wide.width * wide.channels()),
             "joining samples");
  }
  return wide;
}

// --- the format --------------------------------------------------------------------------------------------

bool recognises(Bytes file) {
  return file.size() >= 8 && (std::memcmp(file.data(), "II*\0", 4) == 0 || std::memcmp(file.data(), "MM\0*", 4) == 0 ||
                              std::memcmp(file.data(), "II+\0", 4) == 0 || std::memcmp(file.data(), "MM\0+", 4) == 0);
}

Image read(Bytes file, const Options& options, Stages& stages) {
  return stages.time("read TIFF", [&] {
    const Limits limits(file, options);
    File in(file);
    Image image = readPicture(in, examine(in), limits);
    image.metadata = metadataOf(in, stages);
    if (!options.has("byte-planes")) {
      if (!TIFFLastDirectory(in)) stages.lose("the pictures behind the first one are left out");
      return image;
    }
    if (!TIFFReadDirectory(in)) throw Error("there is no second picture with the low bytes");
    const Image low = readPicture(in, examine(in), limits);
    Image wide = join(image, low);
    wide.missing = image.missing.empty() ? low.missing : image.missing;
    return wide;
  });
}

// Rows of one strip, or the picture's part of a tile's rows, whose rest repeats the last sample.
std::vector<uint8_t> rowsOf(const Image& image, int32_t left, int32_t top, int32_t across, int32_t down) {
  const auto pixel = size_t(image.pixelBytes());
  const int32_t columns = std::min(across, image.width - left);
  std::vector<uint8_t> rows;
  rows.reserve(size_t(across) * size_t(down) * pixel);
  for (int32_t y = top; y < top + down; ++y) {
    const uint8_t* const row = image.row(std::min(y, image.height - 1)) + size_t(left) * pixel;
    rows.insert(rows.end(), row, row + size_t(columns) * pixel);
    for (int32_t x = columns; x < across; ++x)
      rows.insert(rows.end(), row + size_t(columns - 1) * pixel, row + size_t(columns) * pixel);
  }
  return rows;
}

// The library packs row by row.
std::vector<uint8_t> packRows(std::vector<uint8_t>& rows, size_t rowBytes, bool swapped) {
  std::vector<uint8_t> packed, scratch;
  for (size_t at = 0; at < rows.size(); at += rowBytes) {
    if (swapped) swapBytes(&rows[at], int32_t(rowBytes / 2), scratch);
    scratch.resize(rowBytes + (rowBytes + 127) / 128);
    uint32_t position = 0;
    expectOk(
        qeliPackBitsRow_TIFF_8u_C1(&rows[at], int32_t(rowBytes), scratch.data(), &position, int32_t(scratch.size())),
        "packing a row");
    packed.insert(packed.end(), scratch.data(), scratch.data() + position);
  }
  return packed;
}

// The fields of EXIF data, whose own directories lie in the file already.
struct Described {
  Exif exif;
  uint64_t taken = 0, place = 0;
};

void describePicture(File& out, const Described& described) {
  const auto set = [&](uint32_t tag, auto value) { out.expect(TIFFSetField(out, tag, value)); };
  constexpr unsigned kTexts[] = {kDescription, kMake, kModel, kSoftware, kDateTime, kArtist, kHostComputer, kCopyright};
  for (const unsigned tag : kTexts)
    if (const Field* field = described.exif.find(tag); field && !field->text().empty()) set(tag, field->text().c_str());
  for (const unsigned tag : {kXResolution, kYResolution}) {
    const Field* const field = described.exif.find(tag);
    set(tag, field && field->number() > 0 ? field->number() : 72.0);
  }
  const Field* const unit = described.exif.find(kResolutionUnit);
  set(TIFFTAG_RESOLUTIONUNIT, unit && unit->number() == 3 ? RESUNIT_CENTIMETER : RESUNIT_INCH);
  if (described.taken) set(TIFFTAG_EXIFIFD, described.taken);
  if (described.place) set(TIFFTAG_GPSIFD, described.place);
}

void writePicture(File& out, const Image& image, const Described& described, unsigned compression,
                  std::pair<int, int> tiles) {
  const bool tiled = tiles.first > 0;
  const int32_t across = tiled ? tiles.first : image.width;
  const int32_t down = tiled ? tiles.second : std::clamp(65536 / image.step(), 1, image.height);
  const auto set = [&](uint32_t tag, auto value) { out.expect(TIFFSetField(out, tag, value)); };
  set(TIFFTAG_IMAGEWIDTH, uint32_t(image.width));
  set(TIFFTAG_IMAGELENGTH, uint32_t(image.height));
  set(TIFFTAG_BITSPERSAMPLE, image.bits);
  set(TIFFTAG_SAMPLESPERPIXEL, image.channels());
  set(TIFFTAG_SAMPLEFORMAT, image.half ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
  set(TIFFTAG_COMPRESSION, compression);
  set(TIFFTAG_PHOTOMETRIC, image.colour == Colour::cmyk ? PHOTOMETRIC_SEPARATED
                           : image.channels() <= 2      ? PHOTOMETRIC_MINISBLACK
                                                        : PHOTOMETRIC_RGB);
  set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  describePicture(out, described);
  if (compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE)
    set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  const Metadata& metadata = image.metadata;
  if (!metadata.profile.empty())
    out.expect(TIFFSetField(out, TIFFTAG_ICCPROFILE, uint32_t(metadata.profile.size()), metadata.profile.data()));
  set(TIFFTAG_ORIENTATION, orientationOf(metadata));
  if (image.hasAlpha()) {
    const uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    out.expect(TIFFSetField(out, TIFFTAG_EXTRASAMPLES, 1, &alpha));
  }
  if (tiled) set(TIFFTAG_TILEWIDTH, uint32_t(across)), set(TIFFTAG_TILELENGTH, uint32_t(down));
  else set(TIFFTAG_ROWSPERSTRIP, uint32_t(down));

  uint32_t index = 0;
  for (int32_t y = 0; y < image.height; y += down)
    for (int32_t x = 0; x < image.width; x += across, ++index) {
      auto rows = rowsOf(image, x, y, across, tiled ? down : std::min(down, image.height - y));
      if (compression == COMPRESSION_PACKBITS) {
        rows = packRows(rows, size_t(across) * size_t(image.pixelBytes()), image.bits == 16 && TIFFIsByteSwapped(out));
        out.expect((tiled ? TIFFWriteRawTile : TIFFWriteRawStrip)(out, index, rows.data(), tmsize_t(rows.size())) >= 0);
      } else {
        out.expect((tiled ? TIFFWriteEncodedTile : TIFFWriteEncodedStrip)(out, index, rows.data(),
                                                                          tmsize_t(rows.size())) >= 0);
      }
    }
  out.expect(TIFFWriteDirectory(out));
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  const Image image =
      original.half ? original
                    : wholeBytes(adapt(original, stages,
                                       {Colour::rgb, Colour::rgba, Colour::grey, Colour::greyAlpha, Colour::cmyk}));
  Described described{takeExif(image.metadata.exif, stages)};
  constexpr unsigned kCompressions[] = {COMPRESSION_PACKBITS, COMPRESSION_NONE, COMPRESSION_LZW,
                                        COMPRESSION_ADOBE_DEFLATE};
  const unsigned compression = kCompressions[options.choice("packing", {"packbits", "none", "lzw", "deflate"}, 0)];
  const auto tiles = options.size("tiles", {0, 0});
  if (tiles.first % 16 || tiles.second % 16) throw Error("--tiles takes multiples of 16 for TIFF");
  return stages.time("write TIFF", [&] {
    File out(std::string("w") + (options.has("big-endian") ? "b" : "l") + (options.has("big-tiff") ? "8" : ""));
    described.taken = out.append(described.exif.taken), described.place = out.append(described.exif.place);
    if (options.has("byte-planes")) {
      if (image.bits != 16 || image.half) throw Error("only pictures of more than 8 bits have byte planes");
      for (const Image& plane : split(image)) writePicture(out, plane, described, compression, tiles);
    } else {
      writePicture(out, image, described, compression, tiles);
    }
    return out.finish();
  });
}

void describe(Bytes file, Facts& facts) {
  File in(file);
  const Picture p = examine(in);
  const std::string segment = std::to_string(p.across) + "x" + std::to_string(p.down);
  facts.picture(TIFFIsBigTIFF(in) ? "BigTIFF" : "TIFF", p.width, p.height,
                p.palette.empty() ? nameOf(p.colour) : "palette", p.bits);
  facts.add("floats", p.half)
      .add("packing", p.packing())
      .add(p.tiled ? "tiles of" : "strips of", segment)
      .add("separate planes", p.separate)
      .add("big-endian", bool(TIFFIsBigEndian(in)))
      .add("pictures", size_t(TIFFNumberOfDirectories(in)));
}

}  // namespace

extern const Format kTiff;
const Format kTiff = {"TIFF",
                      {".tif", ".tiff"},
                      {{"packing", "KIND", "packbits|none|lzw|deflate, how strips are compressed (packbits)"},
                       {"tiles", "WxH", "tiles in place of strips, of multiples of 16"},
                       {"big-endian", nullptr, "write the file in big-endian order"},
                       {"big-tiff", nullptr, "write a BigTIFF, for more than 4 GB"},
                       {"byte-planes", nullptr, "16-bit pictures as two of 8 bits, high bytes first, and back"}},
                      recognises,
                      read,
                      write,
                      describe,
                      kProfile | kExif};

}  // namespace qelconv
