// JPEG XR: the container (ITU-T T.832, Annex A) and the headers of the codestream.
#include "jpegxr.h"

#include <cmath>
#include <ostream>

#include "exif.h"
#include "orientation.h"

namespace qelconv {
namespace {

using namespace jxr;

enum Tag : uint16_t {
  kColourProfile = 0x8773,
  kPixelFormat = 0xBC01,
  kWidth = 0xBC80,
  kHeight = 0xBC81,
  kOffset = 0xBCC0,
  kByteCount = 0xBCC1,
  kAlphaOffset = 0xBCC2,
  kAlphaByteCount = 0xBCC3
};
constexpr uint8_t kFormatFamily[15] = {0x24, 0xC3, 0xDD, 0x6F, 0x03, 0x4E, 0xFE, 0x4B,
                                       0xB1, 0x85, 0x3D, 0x77, 0x76, 0x8D, 0xC9};

bool recognises(Bytes file) {
  return file.size() > 8 && file[0] == 'I' && file[1] == 'I' && file[2] == 0xBC && file[3] <= 1;
}

// Bits from the top of each byte, for the headers.
class HeaderBits {
 public:
  explicit HeaderBits(Reader& reader) : reader_(reader) {}
  uint32_t operator()(int count) {
    uint32_t value = 0;
    for (; count; --count) {
      if (!left_) byte_ = reader_.u8(), left_ = 8;
      value = value << 1 | (byte_ >> --left_ & 1);
    }
    return value;
  }
  void align() { left_ = 0; }

 private:
  Reader& reader_;
  int left_ = 0;
  uint8_t byte_ = 0;
};
class HeaderWriter {
 public:
  explicit HeaderWriter(Writer& out) : out_(out) {}
  void operator()(uint32_t value, int count) {
    while (count--) {
      byte_ = uint8_t(byte_ << 1 | (value >> count & 1));
      if (++used_ == 8) out_.u8(byte_), used_ = 0;
    }
  }
  void align() {
    while (used_) (*this)(0, 1);
  }

 private:
  Writer& out_;
  int used_ = 0;
  uint8_t byte_ = 0;
};

void need(bool supported, const char* what) {
  if (!supported) throw Error(std::string("JPEG XR with ") + what + " isn't supported");
}

// --- reading -----------------------------------------------------------------------------------------------

struct Container {
  Bytes picture, alpha;  // codestreams; alpha may be one of its own
  Bytes profile;
  bool cut = false;  // the file ends before they do
};

Container readContainer(Bytes file) {
  Reader in(file);
  in.skip(4);
  in.seek(in.u32le());
  const int entries = in.u16le();
  std::array<uint32_t, 4> places = {};  // offset and size, of the picture and of alpha
  std::pair<uint32_t, uint32_t> profile;
  for (int i = 0; i < entries; ++i) {
    const int tag = in.u16le(), type = in.u16le();
    const uint32_t count = in.u32le();
    const size_t place = in.position();
    const uint32_t value = type == 1 ? in.u8() : type == 3 ? in.u16le() : in.u32le();
    if (tag >= kOffset && tag <= kAlphaByteCount) places[size_t(tag - kOffset)] = value;
    if (tag == kColourProfile && count > 4) profile = {value, count};
    in.seek(place + 4);
  }
  if (!places[0]) throw Error("the file has no picture");
  Container c;
  const auto take = [&](uint32_t offset, uint32_t bytes) {
    Reader at(file);
    at.seek(offset);
    return at.take(bytes ? std::min<size_t>(bytes, at.left()) : at.left());
  };
  c.picture = take(places[0], places[1]);
  if (profile.first < file.size() && profile.second <= file.size() - profile.first)
    c.profile = file.subspan(profile.first, profile.second);
  c.cut = c.picture.size() < places[1] || places[2] > file.size();
  // Of alpha, some writers give the place of its end in place of its size.
  if (places[2] && places[2] <= file.size()) c.alpha = take(places[2], places[3]);
  return c;
}

void readQuantizers(HeaderBits& bits, PlaneHeader& plane, Band band) {
  need(bits(1), "quantisers that vary by tile");
  const uint32_t mode = plane.planes() > 1 ? bits(2) : 0;  // one for all, luma and chroma, or each its own
  need(mode < 3, "a reserved quantiser mode");
  uint8_t* const q = plane.quantizer[band];
  q[0] = uint8_t(bits(8));
  for (int p = 1; p < plane.planes(); ++p)
    q[p] = mode == 2 || (mode == 1 && p == 1) ? uint8_t(bits(8)) : q[p > 1 && mode];
}

PlaneHeader readPlaneHeader(HeaderBits& bits, Depth depth) {
  PlaneHeader plane;
  const uint32_t coded = bits(3);
  need(coded <= uint32_t(Coded::cmyk), "planes without a common colour");
  plane.coded = Coded(coded);
  plane.scaled = bits(1);
  const uint32_t bands = bits(4);
  need(bands <= 3, "a reserved choice of bands");
  plane.bands = Bands(bands);
  if (plane.yuv()) bits(8);  // where chroma lies: it is spread in one way
  if (depth == Depth::bits16) plane.dropped = int(bits(8));
  need(plane.dropped < 16, "samples that lose all of their bits");
  readQuantizers(bits, plane, kDC);
  if (plane.bands < Bands::dcOnly) {
    bits(1);
    readQuantizers(bits, plane, kLP);
  }
  if (plane.bands < Bands::noHighPass) {
    bits(1);
    readQuantizers(bits, plane, kHP);
  }
  bits.align();
  return plane;
}

// Where the tiles of one direction begin, and where the last one ends, whose size the header leaves out.
std::vector<int32_t> startsOf(const std::vector<uint32_t>& sizes, int32_t samples) {
  const int32_t macroblocks = (samples + 15) / 16;
  std::vector<int32_t> starts = {0};
  for (const uint32_t size : sizes) {
    if (size < 1 || size >= uint32_t(macroblocks - starts.back()))
      throw Damaged("the tiles don't fit into the picture");
    starts.push_back(starts.back() + int32_t(size));
  }
  starts.push_back(macroblocks);
  return starts;
}

Header readHeader(Reader& in) {
  const Bytes signature = in.take(8);
  if (std::memcmp(signature.data(), "WMPHOTO", 8) != 0) throw Error("the codestream has no signature");
  Header header;
  HeaderBits bits(in);
  bits(4);  // version
  header.hardTiles = bits(1);
  bits(3);
  const bool tiled = bits(1);
  header.frequency = bits(1);
  need(!bits(3), "a rotation");
  header.indexTable = bits(1);
  header.overlap = int(bits(2));
  need(header.overlap < 3, "a reserved overlap mode");
  const bool shortHeader = bits(1);
  bits(1);  // 32-bit arithmetic is always used here
  const bool windowing = bits(1);
  header.trimFlag = bits(1);
  bits(2);  // the order of red and blue is that of the pixel format
  header.premultiplied = bits(1);
  header.alphaPlane = bits(1);
  const uint32_t output = bits(4), depth = bits(4);
  need(output == uint32_t(Output::grey) || output == uint32_t(Output::cmyk) || output == uint32_t(Output::rgb),
       "an unusual output colour");
  header.output = Output(output);
  constexpr uint32_t kFixed16 = 3, kFixed32 = 6, kFloat32 = 7;
  need(depth != kFixed16 && depth != kFixed32, "fixed-point samples");
  need(depth != kFloat32, "32-bit floats");
  need(depth != 0 && depth != 10 && depth != 15, "samples of a bit, or of five and six,");
  need(depth != 5 && depth < 11, "a reserved depth");
  header.depth = Depth(depth);
  const int sides = shortHeader ? 16 : 32;
  const int64_t width = int64_t(bits(sides)) + 1, height = int64_t(bits(sides)) + 1;
  checkDimensions(width, height, 3);
  header.width = int32_t(width), header.height = int32_t(height);
  const uint32_t columns = tiled ? bits(12) + 1 : 1, rows = tiled ? bits(12) + 1 : 1;
  const int tileBits = shortHeader ? 8 : 16;
  std::vector<uint32_t> sizes[2];
  for (uint32_t i = 1; i < columns; ++i) sizes[0].push_back(bits(tileBits));
  for (uint32_t i = 1; i < rows; ++i) sizes[1].push_back(bits(tileBits));
  int32_t right = 0, bottom = 0;
  if (windowing) {
    header.top = int32_t(bits(6)), header.left = int32_t(bits(6));
    bottom = int32_t(bits(6)), right = int32_t(bits(6));
  }
  header.columns = startsOf(sizes[0], header.left + header.width + right);
  header.rows = startsOf(sizes[1], header.top + header.height + bottom);
  header.main = readPlaneHeader(bits, header.depth);
  if (header.alphaPlane) header.alpha = readPlaneHeader(bits, header.depth);
  const Output usual = header.main.coded == Coded::cmyk ? Output::cmyk
                       : header.main.yuv()              ? Output::rgb
                                                        : header.output;
  need(header.output == usual && (header.output != Output::cmyk || header.main.coded == Coded::cmyk),
       "an unusual output colour");
  need(!header.alphaPlane || header.alpha.coded == Coded::grey, "alpha of several planes");
  return header;
}

// A length or offset: 16, 32 or 64 bits. The escapes stand for nothing.
uint64_t readLength(Reader& in) {
  const uint8_t first = in.u8();
  if (first < 0xFB) return uint64_t(first) << 8 | in.u8();
  if (first == 0xFB) return in.u32be();
  if (first == 0xFC) return in.u64be();
  return 0;
}

Codestream readCodestream(Bytes bytes, bool& cut) {
  Codestream c;
  Reader in(bytes);
  c.header = readHeader(in);
  const size_t bands = c.header.frequency ? size_t(c.header.main.packets()) : 1, count = c.header.tiles() * bands;
  if (count > 1) need(c.header.indexTable, "several packets and no index of them");
  if (count > in.left()) throw Truncated();
  std::vector<uint64_t> offsets(count);
  if (c.header.indexTable) {
    if (in.u16be() != 1) throw Error("the index table has no start code");
    for (auto& offset : offsets) offset = readLength(in);
  }
  in.skip(size_t(std::min<uint64_t>(readLength(in), in.left())));  // profile and level
  c.body = in.take(in.left());

  // A packet ends where the next one begins.
  std::vector<uint64_t> starts = offsets;
  std::sort(starts.begin(), starts.end());
  c.packets.resize(c.header.tiles());
  for (size_t i = 0; i < count; ++i) {
    // Only the first packet lies at 0; another one there is a band without bits.
    if (i && !offsets[i]) {
      c.packets[i / bands].push_back(c.body.first(0));
      continue;
    }
    // A packet has a start code of four bytes.
    if (c.body.size() < 4 || offsets[i] > c.body.size() - 4) {
      cut = true;
      c.packets[i / bands].push_back({});
      continue;
    }
    const auto next = std::upper_bound(starts.begin(), starts.end(), offsets[i]);
    const uint64_t end = next == starts.end() ? c.body.size() : std::min<uint64_t>(*next, c.body.size());
    c.packets[i / bands].push_back(c.body.subspan(size_t(offsets[i]), size_t(end - offsets[i])));
  }
  return c;
}

Metadata metadataOf(Bytes file, const Container& container, Stages& stages) {
  Metadata metadata = qelconv::metadataOf(takeExif(file, stages));
  metadata.profile.assign(container.profile.begin(), container.profile.end());
  return metadata;
}

Image read(Bytes file, const Options& options, Stages& stages) {
  const Contents contents(file);
  const Limits limits(file, options);
  Container container = readContainer(file);
  Codestream c = readCodestream(container.picture, container.cut);
  c.metadata = metadataOf(file, container, stages);
  if (container.cut) limits.expectWhole(Truncated().what());
  const bool premultiplied = c.header.premultiplied;
  Image image = readWhole(*decodeTiles(std::move(c), contents, limits), stages);
  if (!container.alpha.empty()) {
    try {
      Codestream alpha = readCodestream(container.alpha, container.cut);
      const Image plane = readWhole(*decodeTiles(std::move(alpha), contents, limits), stages);
      if (!plane.missing.empty()) image.missing = plane.missing;
      joinAlpha(image, plane, stages);
    } catch (const Damaged& e) {
      limits.onlyPart(image, e.what());
    }
  }
  if (premultiplied && image.hasAlpha()) divideByAlpha(image);
  if (container.cut) limits.onlyPart(image, Truncated().what());
  return image;
}

// Alpha of a codestream of its own, or that colours were multiplied by, takes the whole picture; so does one of which
// a part is missing.
std::unique_ptr<RowSource> readRows(const Contents& contents, const Options& options, Stages& stages) {
  const Limits limits(contents, options);
  Container container = readContainer(contents);
  Codestream c = readCodestream(container.picture, container.cut);
  if (container.cut || !container.alpha.empty() || c.header.premultiplied) return nullptr;
  c.metadata = metadataOf(contents, container, stages);
  return decodeTiles(std::move(c), contents, limits);
}

void describe(Bytes file, Facts& facts) {
  Container container = readContainer(file);
  const Header h = readCodestream(container.picture, container.cut).header;
  constexpr const char* kCoded[] = {"grey", "YUV 4:2:0", "YUV 4:2:2", "YUV 4:4:4", "CMYK"};
  const PlaneHeader& p = h.main;
  facts.picture("JPEG XR", h.width, h.height, kCoded[int(p.coded)], bitsOf(h.depth));
  facts.add("floats", h.depth == Depth::half)
      .add("alpha", h.alphaPlane              ? "among the planes"
                    : container.alpha.empty() ? "none"
                                              : "beside the picture")
      .add("order", h.frequency ? "frequency" : "spatial")
      .add("overlap levels", h.overlap)
      .add("tiles across", h.columns.size() - 1)
      .add("tiles down", h.rows.size() - 1)
      .add("bands", p.packets());
  Stages stages;
  const Metadata metadata = metadataOf(file, container, stages);
  if (!metadata.profile.empty()) facts.add("colour profile bytes", metadata.profile.size());
  if (!metadata.exif.empty()) facts.add("EXIF bytes", metadata.exif.size()).add("orientation", orientationOf(metadata));
  for (int plane = 0; plane < p.planes(); ++plane)
    facts.another("quantisers")
        .add("DC", int(p.quantizer[kDC][plane]))
        .add("low-pass", int(p.quantizer[kLP][plane]))
        .add("high-pass", int(p.quantizer[kHP][plane]));
}

// --- writing -----------------------------------------------------------------------------------------------

void writeLength(Writer& out, uint64_t length) {
  if (length < 0xFB00) out.u16be(unsigned(length));
  else out.u8(0xFB), out.u32be(uint32_t(length));
}

// What stands in front of the packets of a codestream.
std::vector<uint8_t> headOf(const Header& header, const std::vector<std::vector<Packet>>& tiles) {
  Writer out;
  out.put({reinterpret_cast<const uint8_t*>("WMPHOTO"), 8});
  HeaderWriter bits(out);
  const bool tiled = header.tiles() > 1, index = tiled || header.frequency;
  bool longSizes = header.width > 65536 || header.height > 65536;
  for (const auto* starts : {&header.columns, &header.rows})
    for (size_t i = 0; i + 2 < starts->size(); ++i) longSizes |= (*starts)[i + 1] - (*starts)[i] > 255;
  bits(0x11, 8);
  bits(tiled, 1), bits(header.frequency, 1), bits(0, 3), bits(index, 1), bits(uint32_t(header.overlap), 2);
  bits(!longSizes, 1), bits(1, 1), bits(0, 6);
  bits(uint32_t(header.output), 4), bits(uint32_t(header.depth), 4);
  const int sides = longSizes ? 32 : 16;
  bits(uint32_t(header.width - 1), sides), bits(uint32_t(header.height - 1), sides);
  if (tiled) {
    for (const auto* starts : {&header.columns, &header.rows}) bits(uint32_t(starts->size() - 2), 12);
    for (const auto* starts : {&header.columns, &header.rows})
      for (size_t i = 0; i + 2 < starts->size(); ++i) bits(uint32_t((*starts)[i + 1] - (*starts)[i]), sides / 2);
  }
  const PlaneHeader& plane = header.main;
  bits(uint32_t(plane.coded), 3), bits(plane.scaled, 1), bits(0, 4);
  if (plane.yuv()) bits(0, 8);
  if (header.depth == Depth::bits16) bits(0, 8);
  for (const Band band : {kDC, kLP, kHP}) {
    if (band != kDC) bits(0, 1);
    bits(1, 1);
    if (plane.planes() > 1) bits(0, 2);
    bits(plane.quantizer[band][0], 8);
  }
  bits.align();
  if (index) {
    out.u16be(1);
    uint64_t offset = 0;
    for (const auto& tile : tiles)
      for (const auto& packet : tile) writeLength(out, offset), offset += packet.size();
  }
  for (const uint8_t byte : {0, 4, 111, 255, 0, 1})
    out.u8(byte);  // four bytes: the highest profile and level, and no more
  return std::move(out.bytes);
}

// The quantiser of a quality: 100 loses nothing; the step doubles every 16.
uint8_t quantizerOf(const Options& options) {
  if (options.has("quantizer")) return uint8_t(options.integer("quantizer", 1, 1, 255));
  const int quality = options.integer("quality", 100, 1, 100);
  return quality == 100 ? 1 : uint8_t(std::lround(8 + 0.8 * (100 - quality)));
}

// Starts of tiles of this many samples, rounded up to whole macroblocks.
std::vector<int32_t> tilesOf(int32_t samples, int32_t size) {
  const int32_t macroblocks = (samples + 15) / 16, step = (size + 15) / 16;
  std::vector<int32_t> starts;
  for (int32_t at = 0; at < macroblocks; at += step) starts.push_back(at);
  starts.push_back(macroblocks);
  if (starts.size() > 4097) throw Error("JPEG XR has at most 4096 tiles in a row");
  return starts;
}

// How pictures are stored: the last byte of the pixel format's name.
struct PixelFormat {
  Output output;
  Depth depth;
  bool alpha;
  uint8_t name;
};
constexpr PixelFormat kFormats[] = {
    {Output::grey, Depth::bits8, false, 0x08},  {Output::rgb, Depth::bits8, false, 0x0D},
    {Output::rgb, Depth::bits8, true, 0x0F},    {Output::cmyk, Depth::bits8, false, 0x1C},
    {Output::grey, Depth::bits16, false, 0x0B}, {Output::rgb, Depth::bits16, false, 0x15},
    {Output::rgb, Depth::bits16, true, 0x16},   {Output::cmyk, Depth::bits16, false, 0x1F},
    {Output::rgb, Depth::bits5, false, 0x09},   {Output::rgb, Depth::bits10, false, 0x14},
    {Output::grey, Depth::half, false, 0x3E},   {Output::rgb, Depth::half, false, 0x3B}};

// How a picture is written.
struct Plan {
  Header header;
  PixelFormat format;
  std::vector<uint8_t> profile;
  Exif exif;
};

Plan planOf(const Shape& image, const Options& options, Stages& stages) {
  Header header;
  header.width = image.width, header.height = image.height;
  header.output = image.colour == Colour::grey   ? Output::grey
                  : image.colour == Colour::cmyk ? Output::cmyk
                                                 : Output::rgb;
  header.depth = image.half         ? Depth::half
                 : image.bits == 5  ? Depth::bits5
                 : image.bits == 10 ? Depth::bits10
                 : image.bits == 16 ? Depth::bits16
                                    : Depth::bits8;
  const auto format = std::find_if(std::begin(kFormats), std::end(kFormats), [&](const PixelFormat& f) {
    return f.output == header.output && f.depth == header.depth && f.alpha == image.hasAlpha();
  });
  if (format == std::end(kFormats)) throw Error("half-floats with alpha can't be written");

  const int sampling = options.choice("sampling", {"444", "422", "420"}, 0);
  header.main.coded = header.output == Output::grey   ? Coded::grey
                      : header.output == Output::cmyk ? Coded::cmyk
                                                      : Coded(int(Coded::yuv444) - sampling);
  const uint8_t quantizer = quantizerOf(options);
  header.main.scaled = quantizer > 1;
  std::memset(header.main.quantizer, quantizer, sizeof header.main.quantizer);
  header.frequency = options.has("frequency");
  header.overlap = options.integer("overlap", quantizer > 1 ? 1 : 0, 0, 2);
  if (header.overlap == 2 && header.main.subsampled() && image.width <= 16)
    throw Error("two levels of overlap on halved chroma take a picture of more than 16 columns");
  const auto [across, down] = options.size("tiles", {image.width, image.height});
  header.columns = tilesOf(image.width, across), header.rows = tilesOf(image.height, down);
  return {std::move(header), *format, image.metadata.profile, fieldsOf(image.metadata, stages)};
}

// A codestream to be written.
struct WholeStream {
  std::vector<uint8_t> head;
  std::vector<std::vector<Packet>> tiles;

  WholeStream() = default;
  WholeStream(const Header& header, std::vector<std::vector<Packet>> packets)
      : head(headOf(header, packets)), tiles(std::move(packets)) {}
  uint32_t size() const {
    size_t sum = head.size();
    for (const auto& tile : tiles)
      for (const Packet& packet : tile) sum += packet.size();
    return uint32_t(sum);
  }
  void putInto(Destination& out) const {
    out.put(head);
    for (const auto& tile : tiles)
      for (const Packet& packet : tile) packet.putInto(out);
  }
};

// A file, at whose beginning is the size of what follows: that is put at the end.
class Sink : public RowSink {
 public:
  Sink(const Shape& shape, Plan plan, Destination& out, WholeStream alpha = {})
      : plan_(std::move(plan)), out_(out), encoder_(encodeTiles(shape, plan_.header)), alpha_(std::move(alpha)) {}

  std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t slots) override {
    return encoder_->steps(rows, strips, slots);
  }

  void finish() override {
    const WholeStream picture(plan_.header, std::move(encoder_->packets));
    // Its size doesn't depend on what it says of the codestreams' places.
    const auto size = uint32_t(container(0, picture.size()).size());
    out_.put(container(size, picture.size()));
    picture.putInto(out_);
    if (plan_.format.alpha) alpha_.putInto(out_);
  }

 private:
  // What stands in front of the codestreams.
  std::vector<uint8_t> container(uint32_t streamAt, uint32_t streamBytes) const {
    std::vector<uint8_t> bytes = {0x49, 0x49, 0xBC, 0x01, 0, 0, 0, 0};
    std::vector<Field> fields = appendOthers(bytes, plan_.exif, false);
    std::vector<uint8_t> name(std::begin(kFormatFamily), std::end(kFormatFamily));
    name.push_back(plan_.format.name);
    fields.push_back({kPixelFormat, kByte, std::move(name)});
    if (!plan_.profile.empty()) fields.push_back({kColourProfile, kUndefined, plan_.profile});
    fields.push_back(longField(kWidth, uint32_t(plan_.header.width)));
    fields.push_back(longField(kHeight, uint32_t(plan_.header.height)));
    fields.push_back(longField(kOffset, streamAt));
    fields.push_back(longField(kByteCount, streamBytes));
    if (plan_.format.alpha) {
      fields.push_back(longField(kAlphaOffset, streamAt + streamBytes));
      fields.push_back(longField(kAlphaByteCount, alpha_.size()));
    }
    const uint64_t place = appendDirectory(bytes, fields, false);
    for (size_t i = 0; i < 4; ++i) bytes[4 + i] = uint8_t(place >> 8 * i);
    return bytes;
  }

  const Plan plan_;
  Destination& out_;
  std::unique_ptr<TileEncoder> encoder_;
  const WholeStream alpha_;
};

constexpr int32_t kRowsOfStrip = 16;

// Alpha beside the picture, without loss.
WholeStream codeAlpha(const Image& alpha, Header header, Stages& stages) {
  header.output = Output::grey;
  header.main = {.coded = Coded::grey};
  std::memset(header.main.quantizer, 1, sizeof header.main.quantizer);
  const auto encoder = encodeTiles(alpha, header);
  writeWhole(alpha, kRowsOfStrip, *encoder, stages);
  return {header, std::move(encoder->packets)};
}

bool isPacked(const Shape& image) {
  return image.colour == Colour::rgb && !image.half && (image.bits == 5 || image.bits == 10);
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  Image storage;
  const Image* image = &original;
  if (!original.half)
    image = &adapt(original, storage, stages, {Colour::rgb, Colour::grey, Colour::rgba, Colour::cmyk});
  if (!isPacked(*image) && image->bits != 8 && image->bits != 16) image = &(storage = wholeBytes(*image));
  Plan plan = planOf(*image, options, stages);
  WholeStream alpha;
  if (plan.format.alpha) {
    if (image != &storage) image = &(storage = *image);
    alpha = codeAlpha(splitAlpha(storage), plan.header, stages);
  }
  MemoryOutput out;
  Sink sink(*image, std::move(plan), out, std::move(alpha));
  writeWhole(*image, kRowsOfStrip, sink, stages);
  return std::move(out.bytes);
}

std::unique_ptr<RowSink> writeRows(const Shape& shape, const Options& options, Stages& stages, Destination& out) {
  if (shape.hasAlpha() || (!isPacked(shape) && shape.bits != 8 && shape.bits != 16)) return nullptr;
  return std::make_unique<Sink>(shape, planOf(shape, options, stages), out);
}

}  // namespace

extern const Format kJpegXr;
const Format kJpegXr = {"JPEG XR",
                        {".jxr", ".wdp", ".hdp"},
                        {{"quality", "N", "1 to 100; 100 is lossless"},
                         {"quantizer", "N", "1 (lossless) to 255, in place of a quality"},
                         {"overlap", "0|1|2", "levels of filters across blocks (0 without loss, else 1)"},
                         {"sampling", "444|422|420", "chroma planes: full, halved across, halved both ways (444)"},
                         {"frequency", nullptr, "band by band in place of macroblock by macroblock"},
                         {"tiles", "WxH", "tile size, rounded up to multiples of 16 (one tile)"}},
                        recognises,
                        read,
                        write,
                        describe,
                        kProfile | kExif,
                        readRows,
                        writeRows};

}  // namespace qelconv
