// Portable any-maps: PGM and PPM (P2, P3, P5, P6), PAM (P7) where there is alpha or CMYK, and bitmaps (P1, P4), which are
// only read.
#include <algorithm>
#include <bit>
#include <optional>
#include <ostream>

#include "file_limits.h"
#include "format.h"
#include "rows.h"

namespace qelconv {
namespace {

struct Header {
  char kind = 0;  // the digit behind the P
  int64_t width = 0, height = 0, depth = 0, top = 0;
  Colour colour = Colour::grey;
  int bits = 8;

  bool isText() const { return kind <= '3'; }
  bool isBitmap() const { return kind == '1' || kind == '4'; }
};

class Scanner {
 public:
  explicit Scanner(Bytes file) : reader_(file) {}
  Reader& reader() { return reader_; }

  // A number behind white space and comments; the one byte behind it is taken as well.
  int64_t number() {
    int c = reader_.u8();
    while (c == '#' || isSpace(c)) {
      if (c == '#')
        while (c != '\n') c = reader_.u8();
      c = reader_.u8();
    }
    if (c < '0' || c > '9') throw Damaged("a number was expected in the header or the samples");
    int64_t value = 0;
    while (c >= '0' && c <= '9') {
      value = value * 10 + (c - '0');
      if (value > 1 << 30) throw Damaged("a number is too large");
      if (!reader_.left()) break;
      c = reader_.u8();
    }
    return value;
  }
  // A digit of a bitmap, which needs no space in front.
  int bit() {
    int c = reader_.u8();
    while (isSpace(c)) c = reader_.u8();
    if (c != '0' && c != '1') throw Damaged("a number was expected in the header or the samples");
    return c - '0';
  }
  std::string line() {
    std::string text;
    for (char c; (c = char(reader_.u8())) != '\n';) text += c;
    return text;
  }

 private:
  static bool isSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
  Reader reader_;
};

bool recognises(Bytes file) { return file.size() > 2 && file[0] == 'P' && file[1] >= '1' && file[1] <= '7'; }

void readPamHeader(Scanner& in, Header& header) {
  std::string type;
  in.line();
  for (std::string text; (text = in.line()) != "ENDHDR";) {
    const size_t space = text.find(' ');
    const std::string key = text.substr(0, space), value = space == std::string::npos ? "" : text.substr(space + 1);
    if (key == "TUPLTYPE") type = value;
    const int64_t number = std::atoll(value.c_str());
    if (key == "WIDTH") header.width = number;
    if (key == "HEIGHT") header.height = number;
    if (key == "DEPTH") header.depth = number;
    if (key == "MAXVAL") header.top = number;
  }
  constexpr Colour kByDepth[] = {Colour::grey, Colour::greyAlpha, Colour::rgb, Colour::rgba};
  if (header.depth < 1 || header.depth > 4) throw Error("a PAM of " + std::to_string(header.depth) + " channels");
  header.colour = type == "CMYK" && header.depth == 4 ? Colour::cmyk : kByDepth[header.depth - 1];
}

Header readHeader(Scanner& in) {
  Header header;
  header.kind = char(in.reader().take(2)[1]);
  if (header.kind == '7') {
    readPamHeader(in, header);
  } else {
    header.width = in.number(), header.height = in.number(), header.top = header.isBitmap() ? 1 : in.number();
    header.colour = header.kind == '3' || header.kind == '6' ? Colour::rgb : Colour::grey;
  }
  if (header.top < 1 || header.top > 65535) throw Error("the largest sample value must be from 1 to 65535");
  checkDimensions(header.width, header.height, channelsOf(header.colour));
  header.bits = std::bit_width(uint32_t(header.top));
  return header;
}

// Ones are black; in bytes, rows begin with one of their own.
void readBits(Scanner& in, const Header& header, Image& image) {
  for (size_t y = 0; y < size_t(header.height); ++y)
    for (size_t x = 0, byte = 0; x < size_t(header.width); ++x) {
      if (!header.isText()) byte = x % 8 ? byte << 1 : in.reader().u8();
      image.data[y * size_t(header.width) + x] = uint8_t(header.isText() ? 1 - in.bit() : ~byte >> 7 & 1);
    }
}

// Files may hold several.
void tellOthers(Bytes rest, Stages& stages) {
  while (!rest.empty() && (rest[0] == ' ' || rest[0] == '\n')) rest = rest.subspan(1);
  if (recognises(rest)) stages.lose("the pictures behind the first one are left out");
}

void readSamples(Scanner& in, const Header& header, bool text, bool wide, bool whole, Image& image) {
  if (header.isBitmap()) return readBits(in, header, image);
  const size_t samples = image.data.size() / size_t(image.sampleBytes());
  if (!text && whole && !wide) {
    const Bytes raw = in.reader().take(std::min(samples, in.reader().left()));
    std::memcpy(image.data.data(), raw.data(), raw.size());
    if (raw.size() < samples) throw Truncated();
    return;
  }
  const int64_t top = (int64_t(1) << image.bits) - 1;
  for (size_t i = 0; i < samples; ++i) {
    const int64_t value = text ? in.number() : wide ? in.reader().u16be() : in.reader().u8();
    if (value > header.top) throw Damaged("a sample is above the header's largest value");
    image.setSample(i, uint32_t(whole ? value : (value * top + header.top / 2) / header.top));
  }
}

Image read(Bytes file, const Options& options, Stages& stages) {
  return stages.time("read PNM", [&] {
    const Limits limits(file, options);
    Scanner in(file);
    const Header header = readHeader(in);
    // Largest values that fill no whole number of bits are spread to 8 or 16 bits.
    const bool whole = header.top == (int64_t(1) << header.bits) - 1;
    const int depth = whole ? header.bits : header.bits > 8 ? 16 : 8;
    const bool text = header.isText(), wide = header.top > 255;
    const int channels = channelsOf(header.colour);
    const auto samples = size_t(header.width * header.height * channels);
    // A sample of text is a digit and a space, the last one a digit.
    limits.expectData(in.reader().left() + text, samples, header.isBitmap() ? (text ? 8 : 1) : text || wide ? 16 : 8);
    limits.expectPicture(header.width, header.height, channels, depth);
    Image image(int32_t(header.width), int32_t(header.height), header.colour, depth);
    try {
      readSamples(in, header, text, wide, whole, image);
      tellOthers(in.reader().take(in.reader().left()), stages);
    } catch (const Damaged& e) {
      limits.onlyPart(image, e.what());
    }
    return image;
  });
}

// Bytes as they stand in the file.
class Source : public RowSource {
 public:
  Source(const Contents& contents, const Header& header, Bytes samples) : contents_(contents), samples_(samples) {
    shape_ = {int32_t(header.width), int32_t(header.height), header.colour, header.bits};
  }
  StripRows strips() const override { return StripRows::of(shape_); }
  std::vector<Step> steps(Rows& rows, int32_t) override {
    return {{"read PNM", true, [this, &rows](int32_t strip) {
               const auto step = size_t(rows.step());
               rows.byPieces(strips().first(strip), strips().behind(strip), [&](int32_t first, int32_t count) {
                 std::memcpy(rows.row(first), &samples_[size_t(first) * step], size_t(count) * step);
                 contents_.forget(size_t(&samples_[size_t(first) * step] - contents_.bytes().data()));
               });
             }}};
  }

 private:
  const Contents& contents_;
  Bytes samples_;
};

std::unique_ptr<RowSource> readRows(const Contents& contents, const Options& options, Stages& stages) {
  const Bytes file = contents;
  const Limits limits(file, options);
  Scanner in(file);
  const Header header = readHeader(in);
  const Bytes samples = file.subspan(in.reader().position());
  const auto count = size_t(header.width * header.height * channelsOf(header.colour));
  if (header.isText() || header.isBitmap() || header.bits > 8 || header.top != (1 << header.bits) - 1 ||
      samples.size() < count)
    return nullptr;
  tellOthers(samples.subspan(count), stages);
  limits.expectPicture(header.width, header.height, channelsOf(header.colour), header.bits);
  return std::make_unique<Source>(contents, header, samples);
}

class Sink : public RowSink {
 public:
  Sink(const Shape& shape, Destination& out) : shape_(shape), out_(out) {
    if (shape.half) throw Error("half-float samples can be written as PFM only");
    const std::string size = std::to_string(shape.width) + " " + std::to_string(shape.height);
    const std::string top = std::to_string((1u << shape.bits) - 1);
    Writer head;
    if (shape.colour == Colour::grey || shape.colour == Colour::rgb) {
      head.text(((shape.colour == Colour::grey ? "P5\n" : "P6\n") + size + "\n" + top + "\n").c_str());
    } else {
      const char* type = shape.colour == Colour::cmyk ? "CMYK"
                         : shape.channels() == 2      ? "GRAYSCALE_ALPHA"
                                                      : "RGB_ALPHA";
      head.text(("P7\nWIDTH " + std::to_string(shape.width) + "\nHEIGHT " + std::to_string(shape.height) + "\nDEPTH " +
                 std::to_string(shape.channels()) + "\nMAXVAL " + top + "\nTUPLTYPE " + type + "\nENDHDR\n")
                    .c_str());
    }
    out.put(head.bytes);
  }
  std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t) override {
    return {{"write PNM", true, [this, &rows, strips](int32_t strip) {
               rows.byPieces(strips.first(strip), strips.behind(strip),
                             [&](int32_t first, int32_t count) { putRows(rows.row(first), size_t(count)); });
             }}};
  }
  void finish() override {}

 private:
  void putRows(const uint8_t* samples, size_t count) {
    const size_t bytes = count * size_t(shape_.step());
    if (shape_.sampleBytes() == 1) return out_.put({samples, bytes});
    Writer swapped;
    swapped.bytes.reserve(bytes);
    for (size_t i = 0; i < bytes; i += 2) {
      uint16_t v;
      std::memcpy(&v, samples + i, 2);
      swapped.u16be(v);
    }
    out_.put(swapped.bytes);
  }
  const Shape shape_;
  Destination& out_;
};

// Any picture, or where the file's name says so, grey or RGB only.
template <Colour... kAccepted>
std::vector<uint8_t> write(const Image& original, const Options&, Stages& stages) {
  Image adapted;
  const Image& image =
      sizeof...(kAccepted) && !original.half ? adapt(original, adapted, stages, {kAccepted...}) : original;
  MemoryOutput out;
  out.bytes.reserve(image.data.size() + 100);
  Sink sink(image, out);
  writeWhole(image, StripRows::rowsOfStrip(image), sink, stages);
  return std::move(out.bytes);
}

template <Colour... kAccepted>
std::unique_ptr<RowSink> writeRows(const Shape& shape, const Options&, Stages&, Destination& out) {
  if (sizeof...(kAccepted) && !((shape.colour == kAccepted) || ...)) return nullptr;
  return std::make_unique<Sink>(shape, out);
}

void describe(Bytes file, Facts& facts) {
  Scanner in(file);
  const Header header = readHeader(in);
  facts.picture("PNM", header.width, header.height, nameOf(header.colour), header.bits);
  facts.add("kind", std::string("P") + header.kind).add("largest value", header.top);
}

}  // namespace

extern const Format kPnm, kPgm, kPpm;
const Format kPnm = {"PNM", {".pnm", ".pam"}, {}, recognises, read, write<>, describe, kNothing, readRows, writeRows<>};
const Format kPgm = {
    "PGM", {".pgm"}, {}, recognises, read, write<Colour::grey>, describe, kNothing, readRows, writeRows<Colour::grey>};
const Format kPpm = {
    "PPM", {".ppm"}, {}, recognises, read, write<Colour::rgb>, describe, kNothing, readRows, writeRows<Colour::rgb>};

}  // namespace qelconv
