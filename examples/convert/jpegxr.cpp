// JPEG XR: the container (ITU-T T.832, Annex A) and the headers of the codestream.
#include "jpegxr.h"

#include <cmath>
#include <ostream>

namespace qelconv {
namespace {

using namespace jxr;

enum Tag : uint16_t { kPixelFormat = 0xBC01, kWidth = 0xBC80, kHeight = 0xBC81, kOffset = 0xBCC0, kByteCount = 0xBCC1 };
constexpr uint8_t kFormatFamily[15] = {0x24, 0xC3, 0xDD, 0x6F, 0x03, 0x4E, 0xFE, 0x4B,
                                       0xB1, 0x85, 0x3D, 0x77, 0x76, 0x8D, 0xC9};
enum PixelFormat : uint8_t { kGrey8 = 0x08, kBgr24 = 0x0C, kRgb24 = 0x0D };
enum ColourFormat { kYOnly = 0, kYuv420 = 1, kYuv422 = 2, kYuv444 = 3, kRgbOut = 7 };

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

struct Codestream {
  Header header;
  std::vector<Bytes> packets;
  bool cut = false;  // the file ends before the codestream does
};

Bytes findCodestream(Bytes file, bool& cut) {
  Reader in(file);
  in.skip(4);
  in.seek(in.u32le());
  const int entries = in.u16le();
  size_t offset = 0, bytes = 0;
  for (int i = 0; i < entries; ++i) {
    const int tag = in.u16le(), type = in.u16le();
    in.u32le();
    const size_t place = in.position();
    const uint32_t value = type == 1 ? in.u8() : type == 3 ? in.u16le() : in.u32le();
    if (tag == kOffset) offset = value;
    if (tag == kByteCount) bytes = value;
    if (tag == kPixelFormat) {
      Reader id(file, value);
      const Bytes guid = id.take(16);
      const uint8_t last = guid[15];
      need(std::equal(kFormatFamily, kFormatFamily + 15, guid.begin()) &&
               (last == kGrey8 || last == kBgr24 || last == kRgb24),
           "a pixel format other than 8-bit grey and 24-bit RGB");
    }
    in.seek(place + 4);
  }
  if (!offset) throw Error("the file has no picture");
  Reader at(file, 0);
  at.seek(offset);
  cut = bytes > at.left();
  return at.take(bytes ? std::min(bytes, at.left()) : at.left());
}

void readQuantizers(HeaderBits& bits, Header& header, Band band) {
  need(bits(1), "quantisers that vary by tile");
  const uint32_t mode = header.planes > 1 ? bits(2) : 0;  // one for all, luma and chroma, or each its own
  uint8_t* const q = header.quantizer[band];
  q[0] = uint8_t(bits(8));
  q[1] = q[2] = mode ? uint8_t(bits(8)) : q[0];
  if (mode == 2 && header.planes > 1) q[2] = uint8_t(bits(8));
  need(mode < 3, "a reserved quantiser mode");
}

Header readHeader(Reader& in) {
  const Bytes signature = in.take(8);
  if (std::memcmp(signature.data(), "WMPHOTO", 8) != 0) throw Error("the codestream has no signature");
  Header header;
  HeaderBits bits(in);
  bits(8);  // versions and hard tiling
  need(!bits(1), "several tiles");
  header.frequency = bits(1);
  need(!bits(3), "a rotation");
  header.indexTable = bits(1);
  need(!bits(2), "overlap filters");
  const bool shortHeader = bits(1);
  bits(1);  // 32-bit arithmetic is always used here
  const bool windowing = bits(1);
  header.trimFlag = bits(1);
  bits(3);  // the order of red and blue is that of the pixel format; premultiplication has no alpha to apply
            // to
  need(!bits(1), "an alpha plane");
  const uint32_t output = bits(4), depth = bits(4);
  need(depth == 1, "samples other than 8-bit");
  const int sides = shortHeader ? 16 : 32;
  const int64_t width = int64_t(bits(sides)) + 1, height = int64_t(bits(sides)) + 1;
  checkDimensions(width, height, 3);
  header.width = int32_t(width), header.height = int32_t(height);
  if (windowing) need(!bits(24), "a window");

  const uint32_t internal = bits(3);
  need(internal == kYOnly || internal == kYuv444, "subsampled or other than three-channel colour");
  need(output == (internal == kYOnly ? kYOnly : kRgbOut), "an unusual output colour");
  header.planes = internal == kYOnly ? 1 : 3;
  header.scaled = bits(1);
  const uint32_t bands = bits(4);
  need(bands <= 3, "a reserved choice of bands");
  header.bands = Bands(bands);
  if (header.planes > 1) bits(8);
  readQuantizers(bits, header, kDC);
  if (header.bands < Bands::dcOnly) {
    bits(1);
    readQuantizers(bits, header, kLP);
  }
  if (header.bands < Bands::noHighPass) {
    bits(1);
    readQuantizers(bits, header, kHP);
  }
  bits.align();
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

Codestream readCodestream(Bytes file) {
  Codestream c;
  Reader in(findCodestream(file, c.cut));
  c.header = readHeader(in);
  const size_t count = c.header.frequency ? size_t(c.header.packets()) : 1;
  std::vector<uint64_t> offsets(count);
  if (c.header.indexTable) {
    if (in.u16be() != 1) throw Error("the index table has no start code");
    for (auto& offset : offsets) offset = readLength(in);
  }
  in.skip(size_t(std::min<uint64_t>(readLength(in), in.left())));  // profile and level
  const Bytes body = in.take(in.left());
  for (size_t i = 0; i < count; ++i) {
    // A band without a packet has no bits to read.
    if (i && !offsets[i]) {
      c.packets.push_back({});
      continue;
    }
    // The bands that a cut file still has; a packet has a start code of four bytes.
    if (body.size() < 4 || offsets[i] > body.size() - 4) {
      c.cut = true;
      c.header.bands = Bands(4 - int(i));
      break;
    }
    c.packets.push_back(body.subspan(size_t(offsets[i])));
  }
  if (c.packets.empty()) throw Truncated();
  return c;
}

Image read(Bytes file, const Options& options, Stages& stages) {
  const Limits limits(file, options);
  const Codestream c = readCodestream(file);
  if (c.cut) limits.expectWhole(Truncated().what());
  Image image = decodeTile(c.header, c.packets, limits, stages);
  if (c.cut) limits.onlyPart(image, Truncated().what());
  return image;
}

void describe(Bytes file, std::ostream& out) {
  const Header h = readCodestream(file).header;
  out << "JPEG XR, " << h.width << " x " << h.height << ", " << (h.planes == 1 ? "grey" : "RGB as YUV 4:4:4") << ", "
      << (h.frequency ? "frequency" : "spatial") << " mode, quantisers " << int(h.quantizer[0][0]) << " "
      << int(h.quantizer[1][0]) << " " << int(h.quantizer[2][0]) << "\n";
}

// --- writing -----------------------------------------------------------------------------------------------

std::vector<uint8_t> writeHeader(const Header& header) {
  Writer out;
  out.put({reinterpret_cast<const uint8_t*>("WMPHOTO"), 8});
  HeaderWriter bits(out);
  bits(0x11, 8);
  bits(0, 8);  // one tile, spatial, upright, no index table, no overlap
  const bool longSides = header.width > 65536 || header.height > 65536;
  bits(!longSides, 1), bits(1, 1), bits(0, 6);
  bits(header.planes == 1 ? kYOnly : kRgbOut, 4), bits(1, 4);
  bits(uint32_t(header.width - 1), longSides ? 32 : 16), bits(uint32_t(header.height - 1), longSides ? 32 : 16);
  bits(header.planes == 1 ? kYOnly : kYuv444, 3), bits(header.scaled, 1), bits(0, 4);
  if (header.planes > 1) bits(0, 8);
  for (const Band band : {kDC, kLP, kHP}) {
    if (band != kDC) bits(0, 1);
    bits(1, 1);
    if (header.planes > 1) bits(0, 2);
    bits(header.quantizer[band][0], 8);
  }
  bits.align();
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

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  const Image image = adapt(original, {Colour::rgb, Colour::grey}, 8);
  if (image.bits != 8) throw Error("JPEG XR is written with 8 bits a sample only");
  Header header;
  header.width = image.width, header.height = image.height;
  header.planes = image.colour == Colour::grey ? 1 : 3;
  const uint8_t quantizer = quantizerOf(options);
  std::memset(header.quantizer, quantizer, sizeof header.quantizer);
  header.scaled = quantizer > 1;
  const auto head = writeHeader(header), tile = encodeTile(image, header, stages);

  constexpr uint32_t kFormatAt = 8, kDirectoryAt = 24, kEntries = 5, kStreamAt = kDirectoryAt + 2 + 12 * kEntries + 4;
  Writer out;
  for (const uint8_t byte : {0x49, 0x49, 0xBC, 0x01}) out.u8(byte);
  out.u32le(kDirectoryAt);
  out.put(kFormatFamily);
  out.u8(header.planes == 1 ? kGrey8 : kRgb24);
  out.u16le(kEntries);
  const auto entry = [&](Tag tag, unsigned type, uint32_t count, uint32_t value) {
    out.u16le(tag), out.u16le(type), out.u32le(count), out.u32le(value);
  };
  entry(kPixelFormat, 1, 16, kFormatAt);
  entry(kWidth, 4, 1, uint32_t(header.width));
  entry(kHeight, 4, 1, uint32_t(header.height));
  entry(kOffset, 4, 1, kStreamAt);
  entry(kByteCount, 4, 1, uint32_t(head.size() + tile.size()));
  out.u32le(0);
  out.put(head);
  out.put(tile);
  return std::move(out.bytes);
}

}  // namespace

extern const Format kJpegXr;
const Format kJpegXr = {
    "JPEG XR",
    {".jxr", ".wdp", ".hdp"},
    {{"quality", "N", "1 to 100; 100 is lossless"}, {"quantizer", "N", "1 (lossless) to 255, in place of a quality"}},
    recognises,
    read,
    write,
    describe};

}  // namespace qelconv
