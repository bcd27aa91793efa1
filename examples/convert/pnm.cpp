// Portable any-maps: PGM and PPM (P2, P3, P5, P6), and PAM (P7) where there is alpha or CMYK.
#include <algorithm>
#include <bit>
#include <ostream>

#include "file_limits.h"
#include "format.h"

namespace qelconv {
namespace {

struct Header {
  char kind = 0;  // the digit behind the P
  int64_t width = 0, height = 0, depth = 0, top = 0;
  Colour colour = Colour::grey;
  int bits = 8;
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
  std::string line() {
    std::string text;
    for (char c; (c = char(reader_.u8())) != '\n';) text += c;
    return text;
  }

 private:
  static bool isSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
  Reader reader_;
};

bool recognises(Bytes file) {
  return file.size() > 2 && file[0] == 'P' && (file[1] == '2' || file[1] == '3' || (file[1] >= '5' && file[1] <= '7'));
}

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
    header.width = in.number(), header.height = in.number(), header.top = in.number();
    header.colour = header.kind == '3' || header.kind == '6' ? Colour::rgb : Colour::grey;
  }
  if (header.top < 1 || header.top > 65535) throw Error("the largest sample value must be from 1 to 65535");
  checkDimensions(header.width, header.height, channelsOf(header.colour));
  header.bits = std::bit_width(uint32_t(header.top));
  return header;
}

void readSamples(Scanner& in, const Header& header, bool text, bool wide, bool whole, Image& image) {
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
    const int bits = whole ? header.bits : header.bits > 8 ? 16 : 8;
    const bool text = header.kind == '2' || header.kind == '3', wide = header.top > 255;
    const int channels = channelsOf(header.colour);
    const auto samples = size_t(header.width * header.height * channels);
    // A sample of text is a digit and a space, the last one a digit.
    limits.expectData(in.reader().left() + text, samples, text || wide ? 16 : 8);
    limits.expectPicture(header.width, header.height, channels, bits);
    Image image(int32_t(header.width), int32_t(header.height), header.colour, bits);
    try {
      readSamples(in, header, text, wide, whole, image);
    } catch (const Damaged& e) {
      limits.onlyPart(image, e.what());
    }
    return image;
  });
}

// Any picture, or where the file's name says so, grey or RGB only.
template <Colour... kAccepted>
std::vector<uint8_t> write(const Image& original, const Options&, Stages& stages) {
  return stages.time("write PNM", [&] {
    if (original.half) throw Error("half-float samples can be written as PFM only");
    Image adapted;
    const Image& image = sizeof...(kAccepted) ? adapt(original, adapted, stages, {kAccepted...}) : original;
    const std::string size = std::to_string(image.width) + " " + std::to_string(image.height);
    const std::string top = std::to_string((1u << image.bits) - 1);
    Writer out;
    if (image.colour == Colour::grey || image.colour == Colour::rgb) {
      out.text(((image.colour == Colour::grey ? "P5\n" : "P6\n") + size + "\n" + top + "\n").c_str());
    } else {
      const char* type = image.colour == Colour::cmyk ? "CMYK"
                         : image.channels() == 2      ? "GRAYSCALE_ALPHA"
                                                      : "RGB_ALPHA";
      out.text(("P7\nWIDTH " + std::to_string(image.width) + "\nHEIGHT " + std::to_string(image.height) + "\nDEPTH " +
                std::to_string(image.channels()) + "\nMAXVAL " + top + "\nTUPLTYPE " + type + "\nENDHDR\n")
                   .c_str());
    }
    if (image.sampleBytes() == 1) {
      out.put(image.data);
    } else {
      out.bytes.reserve(out.bytes.size() + image.data.size());
      for (size_t i = 0; i < image.data.size() / 2; ++i) out.u16be(image.sample(i));
    }
    return std::move(out.bytes);
  });
}

void describe(Bytes file, Facts& facts) {
  Scanner in(file);
  const Header header = readHeader(in);
  facts.picture("PNM", header.width, header.height, nameOf(header.colour), header.bits);
  facts.add("kind", std::string("P") + header.kind).add("largest value", header.top);
}

}  // namespace

extern const Format kPnm, kPgm, kPpm;
const Format kPnm = {"PNM", {".pnm", ".pam"}, {}, recognises, read, write<>, describe};
const Format kPgm = {"PGM", {".pgm"}, {}, recognises, read, write<Colour::grey>, describe};
const Format kPpm = {"PPM", {".ppm"}, {}, recognises, read, write<Colour::rgb>, describe};

}  // namespace qelconv
