// TIFF 6.0, baseline: strips of 8- and 16-bit grey, RGB and CMYK with or without alpha, interleaved,
// uncompressed or PackBits, in both byte orders. The first picture of a file is read.
#include <algorithm>
#include <array>
#include <climits>
#include <map>
#include <ostream>

#include "file_limits.h"
#include "format.h"

namespace qelconv {
namespace {

enum Tag : uint16_t {
  kImageWidth = 256,
  kImageLength = 257,
  kBitsPerSample = 258,
  kCompression = 259,
  kPhotometric = 262,
  kFillOrder = 266,
  kStripOffsets = 273,
  kSamplesPerPixel = 277,
  kRowsPerStrip = 278,
  kStripByteCounts = 279,
  kXResolution = 282,
  kYResolution = 283,
  kPlanarConfiguration = 284,
  kResolutionUnit = 296,
  kTileWidth = 322,
  kExtraSamples = 338,
  kSampleFormat = 339
};
enum Compression { kNone = 1, kPackBits = 32773 };
enum Photometric { kWhiteIsZero = 0, kBlackIsZero = 1, kRgb = 2, kSeparated = 5 };

// --- files in both byte orders -----------------------------------------------------------------------------

class OrderedReader {
 public:
  explicit OrderedReader(Bytes file) : in_(file), file_(file) {
    big_ = in_.u8() == 'M';
    in_.skip(3);
  }
  bool big() const { return big_; }
  Bytes file() const { return file_; }
  void seek(size_t at) { in_.seek(at); }
  uint16_t u16() { return big_ ? in_.u16be() : in_.u16le(); }
  uint32_t u32() { return big_ ? in_.u32be() : in_.u32le(); }
  uint8_t u8() { return in_.u8(); }
  size_t position() const { return in_.position(); }
  void skip(size_t n) { in_.skip(n); }

 private:
  Reader in_;
  Bytes file_;
  bool big_;
};

// The whole numbers of one directory, by tag, read when they are asked for: a field can name any place of the
// file, and there are up to 65,535 of them.
class Directory {
 public:
  Directory(OrderedReader& in, size_t at) : in_(in) {
    in.seek(at);
    const int count = in.u16();
    for (int i = 0; i < count; ++i) {
      const uint16_t tag = in.u16(), type = in.u16();
      const uint32_t n = in.u32();
      const size_t place = in.position();
      in.skip(4);
      // BYTE, SHORT, LONG; others are skipped.
      const size_t bytes = type == 1 ? 1 : type == 3 ? 2 : type == 4 ? 4 : 0;
      if (bytes && n) fields_.try_emplace(tag, Field{n, bytes, place});
    }
    next_ = in.u32();
  }
  size_t next() const { return next_; }  // 0: the last
  bool has(Tag tag) const { return fields_.contains(tag); }
  std::vector<uint32_t> all(Tag tag) const { return values(tag, UINT32_MAX); }
  uint32_t value(Tag tag) const { return values(tag, 1)[0]; }
  uint32_t value(Tag tag, uint32_t fallback) const { return has(tag) ? value(tag) : fallback; }

 private:
  struct Field {
    uint32_t count;
    size_t bytes;  // of one value
    size_t place;  // in the file: of the values, or of their offset
  };
  std::vector<uint32_t> values(Tag tag, uint32_t most) const {
    if (!has(tag)) throw Error("the field " + std::to_string(tag) + " is missing");
    const Field& field = fields_.at(tag);
    in_.seek(field.place);
    if (field.count > in_.file().size()) throw Truncated();
    if (field.count * field.bytes > 4) in_.seek(in_.u32());
    std::vector<uint32_t> values(std::min(field.count, most));
    for (uint32_t& v : values) v = field.bytes == 1 ? in_.u8() : field.bytes == 2 ? in_.u16() : in_.u32();
    return values;
  }

  OrderedReader& in_;
  std::map<uint16_t, Field> fields_;
  size_t next_ = 0;
};

struct Picture {
  int64_t width, height, rowsPerStrip;
  Colour colour;
  int channels, bits;
  bool inverted, packBits;
  std::vector<uint32_t> offsets, counts;
};

Picture examine(const Directory& d) {
  Picture p{};
  p.width = d.value(kImageWidth);
  p.height = d.value(kImageLength);
  if (d.has(kTileWidth)) throw Error("TIFF files in tiles can't be read");
  p.channels = int(std::min(d.value(kSamplesPerPixel, 1), 99u));
  p.bits = int(d.value(kBitsPerSample, 1));
  if (d.has(kBitsPerSample))
    for (uint32_t bits : d.all(kBitsPerSample))
      if (int(bits) != p.bits) throw Error("channels of different depths can't be read");
  if ((p.bits != 8 && p.bits != 16) || d.value(kSampleFormat, 1) != 1)
    throw Error("only unsigned samples of 8 and 16 bits can be read");
  if (p.channels > 1 && d.value(kPlanarConfiguration, 1) != 1) throw Error("separate planes can't be read");
  if (d.value(kFillOrder, 1) != 1) throw Error("reversed bits can't be read");
  const uint32_t compression = d.value(kCompression, kNone);
  if (compression != kNone && compression != kPackBits)
    throw Error("the compression " + std::to_string(compression) + " can't be read");
  p.packBits = compression == kPackBits;

  const uint32_t photometric = d.value(kPhotometric);
  p.inverted = photometric == kWhiteIsZero;
  constexpr Colour kColours[] = {Colour::grey, Colour::greyAlpha, Colour::rgb, Colour::rgba};
  const bool grey = photometric <= kBlackIsZero && p.channels <= 2;
  const bool rgb = photometric == kRgb && (p.channels == 3 || p.channels == 4);
  if (grey || rgb) p.colour = kColours[p.channels - 1];
  else if (photometric == kSeparated && p.channels == 4) p.colour = Colour::cmyk;
  else
    throw Error("the photometric interpretation " + std::to_string(photometric) + " with " +
                std::to_string(p.channels) + " channels can't be read");
  checkDimensions(p.width, p.height, p.channels);
  p.rowsPerStrip = std::min<int64_t>(std::max(d.value(kRowsPerStrip, 0xFFFFFFFF), 1u), p.height);
  p.offsets = d.all(kStripOffsets);
  const auto strips = size_t((p.height + p.rowsPerStrip - 1) / p.rowsPerStrip);
  // A file of one strip may do without its size.
  p.counts = d.has(kStripByteCounts) || strips > 1 || p.packBits
                 ? d.all(kStripByteCounts)
                 : std::vector{uint32_t(p.width * p.height * p.channels * (p.bits / 8))};
  if (p.offsets.size() < strips || p.counts.size() < strips) throw Error("strips are missing");
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

// Rows of one strip, from `top` on. A row of PackBits may be cut anywhere by a damaged file: a byte that is
// no token follows the strip, so that no run's header is the source's last byte, and a run that ends in it
// isn't whole.
void readStrip(const Picture& p, Bytes file, bool big, size_t index, int32_t top, int32_t rows, Image& image) {
  constexpr uint8_t kNoToken = 0x80;
  const int32_t rowBytes = image.step();
  Reader in(file);
  in.seek(p.offsets[index]);
  const Bytes coded = in.take(std::min<size_t>(p.counts[index], in.left()));
  std::vector<uint8_t> strip, scratch;
  if (p.packBits) {
    if (coded.size() >= INT32_MAX) throw Damaged("a strip's size can't be right");
    strip.assign(coded.begin(), coded.end());
    strip.push_back(kNoToken);
  }
  uint32_t position = 0;
  for (int32_t y = top; y < top + rows; ++y) {
    if (p.packBits) {
      if (qeliUnpackBitsRow_TIFF_8u_C1(strip.data(), &position, int32_t(strip.size()), image.row(y), rowBytes) !=
              qelStatusOk ||
          position > coded.size())
        throw Damaged("the PackBits data of row " + std::to_string(y) + " is damaged");
    } else {
      const size_t at = size_t(y - top) * size_t(rowBytes);
      if (coded.size() < at + size_t(rowBytes)) throw Damaged("a strip is too short");
      std::memcpy(image.row(y), coded.data() + at, size_t(rowBytes));
    }
    if (p.bits == 16 && big) swapBytes(image.row(y), image.width * image.channels(), scratch);
  }
  if (coded.size() < p.counts[index]) throw Truncated();
}

Image readPicture(OrderedReader& in, const Picture& p, const Limits& limits) {
  const auto strips = size_t((p.height + p.rowsPerStrip - 1) / p.rowsPerStrip);
  uint64_t coded = 0;
  for (size_t i = 0; i < strips; ++i) coded += std::min<size_t>(p.counts[i], in.file().size());
  // PackBits makes 128 bytes of two.
  const auto bytes = uint64_t(p.width * p.height * p.channels * (p.bits / 8));
  limits.expectData(coded, p.packBits ? bytes / 64 : bytes, 8);
  limits.expectWork(coded / 4);  // strips may share their bytes
  limits.expectPicture(p.width, p.height, p.channels, p.bits);
  Image image(int32_t(p.width), int32_t(p.height), p.colour, p.bits);
  FirstWrong wrong(limits);
  for (size_t i = 0; i < strips; ++i) {
    const auto top = int32_t(int64_t(i) * p.rowsPerStrip);
    try {
      readStrip(p, in.file(), in.big(), i, top, int32_t(std::min<int64_t>(p.rowsPerStrip, p.height - top)), image);
    } catch (const Damaged& e) {
      wrong.note(i, e.what());
    }
  }
  wrong.settle(image);
  if (p.inverted) {
    const auto channels = size_t(p.channels);
    for (size_t i = 0; i < image.data.size() / size_t(image.sampleBytes()); i += channels)
      image.setSample(i, ~image.sample(i));
  }
  return image;
}

// --- byte planes: a 16-bit picture as two 8-bit ones, high bytes first -------------------------------------

std::array<Image, 2> split(const Image& wide) {
  std::array<Image, 2> planes = {Image(wide.width, wide.height, wide.colour, 8),
                                 Image(wide.width, wide.height, wide.colour, 8)};
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
  Image wide(high.width, high.height, high.colour, 16);
  for (int32_t y = 0; y < wide.height; ++y) {
    const uint8_t* const rows[] = {high.row(y), low.row(y)};
    expectOk(qeliJoinRow_TIFF_8u16u_C1(rows, reinterpret_cast<uint16_t*>(wide.row(y)), wide.width * wide.channels()),
             "joining samples");
  }
  return wide;
}

// --- the format --------------------------------------------------------------------------------------------

bool recognises(Bytes file) {
  return file.size() >= 8 && (std::memcmp(file.data(), "II*\0", 4) == 0 || std::memcmp(file.data(), "MM\0*", 4) == 0);
}

Image read(Bytes file, const Options& options, Stages& stages) {
  return stages.time("read TIFF", [&] {
    const Limits limits(file, options);
    OrderedReader in(file);
    const Directory first(in, in.u32());
    Image image = readPicture(in, examine(first), limits);
    if (!options.has("byte-planes")) return image;
    if (!first.next()) throw Error("there is no second picture with the low bytes");
    const Image low = readPicture(in, examine(Directory(in, first.next())), limits);
    Image wide = join(image, low);
    wide.missing = image.missing.empty() ? low.missing : image.missing;
    return wide;
  });
}

class OrderedWriter {
 public:
  explicit OrderedWriter(bool big) : big_(big) {
    out_.text(big ? "MM" : "II");
    u16(42);
  }
  bool big() const { return big_; }
  void u16(unsigned v) { big_ ? out_.u16be(v) : out_.u16le(v); }
  void u32(uint32_t v) { big_ ? out_.u32be(v) : out_.u32le(v); }
  uint32_t here() {
    if (out_.bytes.size() & 1) out_.u8(0);  // directories and values start at even offsets
    if (out_.bytes.size() > 0xFFFF0000u) throw Error("the picture is too large for a TIFF file");
    return uint32_t(out_.bytes.size());
  }
  void setU32(size_t at, uint32_t v) {
    for (size_t i = 0; i < 4; ++i) out_.bytes[at + i] = uint8_t(v >> 8 * (big_ ? 3 - i : i));
  }
  std::vector<uint8_t>& bytes() { return out_.bytes; }

 private:
  Writer out_;
  bool big_;
};

// Writes the strips and then the directory; returns the place of the directory's link to the next one.
size_t writePicture(OrderedWriter& out, const Image& image, bool packBits, size_t link) {
  const int32_t rowBytes = image.step();
  const int32_t rowsPerStrip = std::clamp(65536 / rowBytes, 1, image.height);
  std::vector<uint32_t> offsets, counts;
  std::vector<uint8_t> row, scratch;
  for (int32_t y = 0; y < image.height; ++y) {
    if (y % rowsPerStrip == 0) offsets.push_back(out.here());
    row.assign(image.row(y), image.row(y) + rowBytes);
    if (image.bits == 16 && out.big()) swapBytes(row.data(), image.width * image.channels(), scratch);
    if (packBits) {
      scratch.resize(row.size() + (row.size() + 127) / 128);
      uint32_t position = 0;
      expectOk(qeliPackBitsRow_TIFF_8u_C1(row.data(), rowBytes, scratch.data(), &position, int32_t(scratch.size())),
               "packing a row");
      scratch.resize(position);
      row.swap(scratch);
    }
    out.bytes().insert(out.bytes().end(), row.begin(), row.end());
    if ((y + 1) % rowsPerStrip == 0 || y + 1 == image.height)
      counts.push_back(uint32_t(out.bytes().size() - offsets.back()));
  }

  enum Type { kShort = 3, kLong = 4, kRational = 5 };
  struct Field {
    Tag tag;
    Type type;
    std::vector<uint32_t> values;  // a rational is two
    size_t bytes() const { return values.size() * (type == kShort ? 2 : 4); }
    uint32_t count() const { return uint32_t(values.size() / (type == kRational ? 2 : 1)); }
    void put(OrderedWriter& to) const {
      for (uint32_t v : values) type == kShort ? to.u16(v) : to.u32(v);
    }
  };
  const bool alpha = image.colour == Colour::greyAlpha || image.colour == Colour::rgba;
  const uint32_t photometric = image.colour == Colour::cmyk ? kSeparated : image.channels() <= 2 ? kBlackIsZero : kRgb;
  constexpr uint32_t kInch = 2, kUnassociatedAlpha = 2;
  std::vector<Field> fields = {
      {kImageWidth, kLong, {uint32_t(image.width)}},
      {kImageLength, kLong, {uint32_t(image.height)}},
      {kBitsPerSample, kShort, std::vector<uint32_t>(size_t(image.channels()), uint32_t(image.bits))},
      {kCompression, kShort, {packBits ? kPackBits : kNone}},
      {kPhotometric, kShort, {photometric}},
      {kStripOffsets, kLong, offsets},
      {kSamplesPerPixel, kShort, {uint32_t(image.channels())}},
      {kRowsPerStrip, kLong, {uint32_t(rowsPerStrip)}},
      {kStripByteCounts, kLong, counts},
      {kXResolution, kRational, {72, 1}},
      {kYResolution, kRational, {72, 1}},
      {kPlanarConfiguration, kShort, {1}},
      {kResolutionUnit, kShort, {kInch}},
  };
  if (alpha) fields.push_back({kExtraSamples, kShort, {kUnassociatedAlpha}});
  std::vector<uint32_t> places;  // of values that don't fit into the directory
  for (const Field& field : fields) {
    places.push_back(out.here());
    if (field.bytes() > 4) field.put(out);
  }
  out.setU32(link, out.here());
  out.u16(unsigned(fields.size()));
  for (size_t i = 0; i < fields.size(); ++i) {
    const Field& field = fields[i];
    out.u16(field.tag);
    out.u16(field.type);
    out.u32(field.count());
    if (field.bytes() > 4) {
      out.u32(places[i]);
    } else {
      field.put(out);
      for (size_t pad = field.bytes(); pad < 4; pad += 2) out.u16(0);
    }
  }
  out.u32(0);
  return out.bytes().size() - 4;
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  const Image image =
      wholeBytes(adapt(original, stages, {Colour::rgb, Colour::rgba, Colour::grey, Colour::greyAlpha, Colour::cmyk}));
  const bool packBits = options.choice("packing", {"packbits", "none"}, 0) == 0;
  return stages.time("write TIFF", [&] {
    OrderedWriter out(options.has("big-endian"));
    size_t link = out.bytes().size();
    out.u32(0);
    if (options.has("byte-planes")) {
      if (image.bits != 16) throw Error("only pictures of more than 8 bits have byte planes");
      for (const Image& plane : split(image)) link = writePicture(out, plane, packBits, link);
    } else {
      writePicture(out, image, packBits, link);
    }
    return std::move(out.bytes());
  });
}

void describe(Bytes file, std::ostream& out) {
  OrderedReader in(file);
  const Directory directory(in, in.u32());
  const Picture p = examine(directory);
  out << "TIFF, " << p.width << " x " << p.height << ", " << nameOf(p.colour) << " of " << p.bits << " bits, "
      << (p.packBits ? "PackBits" : "uncompressed") << (in.big() ? ", big-endian" : "")
      << (directory.next() ? ", more pictures behind the first" : "") << "\n";
}

}  // namespace

extern const Format kTiff;
const Format kTiff = {"TIFF",
                      {".tif", ".tiff"},
                      {{"packing", "packbits|none", "how strips are compressed (packbits)"},
                       {"big-endian", nullptr, "write the file in big-endian order"},
                       {"byte-planes", nullptr, "16-bit pictures as two of 8 bits, high bytes first, and back"}},
                      recognises,
                      read,
                      write,
                      describe};

}  // namespace qelconv
