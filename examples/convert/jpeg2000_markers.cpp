// Marker segments of codestreams (ISO/IEC 15444-1, Annex A) and the boxes of JP2 files (Annex I).
#include <algorithm>
#include <set>
#include <string_view>

#include "jpeg2000.h"

namespace qelconv::jpeg2000 {
namespace {

enum Marker : uint16_t {
  SOC = 0xFF4F,
  SIZ = 0xFF51,
  COD = 0xFF52,
  COC = 0xFF53,
  QCD = 0xFF5C,
  QCC = 0xFF5D,
  RGN = 0xFF5E,
  POC = 0xFF5F,
  PPM = 0xFF60,
  PPT = 0xFF61,
  SOT = 0xFF90,
  SOD = 0xFF93,
  EOC = 0xFFD9
};

constexpr uint32_t box(const char (&name)[5]) {
  return uint32_t(uint8_t(name[0])) << 24 | uint32_t(uint8_t(name[1])) << 16 | uint32_t(uint8_t(name[2])) << 8 |
         uint8_t(name[3]);
}

// --- reading -----------------------------------------------------------------------------------------------

class Parser {
 public:
  explicit Parser(Bytes bytes) : in_(bytes) {}

  Codestream parse() {
    if (in_.u16be() != SOC) throw Error("not a JPEG 2000 codestream");
    uint16_t marker;
    while ((marker = in_.u16be()) != SOT) mainSegment(marker);
    if (p_.bits.empty()) throw Error("the codestream has no size");
    if (!told_.coding || !told_.steps) throw Error("the codestream has no coding parameters");
    expectPossible(p_);
    mainEnded_ = true;
    for (const auto& [index, part] : mainHeaders_) packed_.insert(packed_.end(), part.begin(), part.end());
    out_.headersPacked = !mainHeaders_.empty();
    out_.tileParts.resize(size_t(p_.tilesWide()) * size_t(p_.tilesHigh()));
    // What is wrong from here on leaves the tiles in front of it.
    try {
      for (; marker != EOC; marker = in_.u16be())
        if (marker == SOT) tilePart();
        else mainSegment(marker);
    } catch (const Damaged& e) {
      out_.missing = e.what();
    }
    out_.parameters = std::move(p_);
    return std::move(out_);
  }

 private:
  void mainSegment(uint16_t marker) {
    const int length = in_.u16be();
    if (marker < 0xFF00 || length < 2) throw Damaged("a marker segment is damaged");
    Reader body(in_.take(size_t(length - 2)));
    segment(marker, body, kMain);
  }

  // `tile`: whose header this stands in.
  void segment(uint16_t marker, Reader& body, int32_t tile) {
    const bool inTile = tile != kMain;
    switch (marker) {
      case SIZ:
        size(body);
        break;
      case COD:
      case COC:
      case QCD:
      case QCC:
      case RGN:
      case POC: {
        if (p_.bits.empty()) throw Error("the codestream does not start with its size");
        // All tile-parts may change the progression; what else there is to tell has to come in front of all packets.
        const bool late = inTile ? marker != POC && !out_.tileParts[size_t(tile)].empty() : mainEnded_;
        if (late) throw Damaged("coding parameters come too late");
        parameter(marker, body, inTile ? out_.tileParameters.try_emplace(tile, p_).first->second : p_, tile);
        break;
      }
      case PPM:
        if (!inTile) keepHeaders(mainHeaders_, body);
        break;
      case PPT:
        if (inTile) keepHeaders(partHeaders_, body);
        break;
      default:
        break;  // comments and lengths
    }
  }

  // Of one header: a segment for a component comes before that for all of them, wherever it stands. A tile's header
  // begins anew, so that what it says for all comes before what the main one says for one (A.6).
  void parameter(uint16_t marker, Reader& body, Parameters& p, int32_t tile) {
    switch (marker) {
      case COD: {
        const int scod = body.u8();
        p.sop = scod & 2, p.eph = scod & 4;
        p.progression = progression(body);
        p.layers = body.u16be();
        if (p.layers < 1) throw Error("the codestream has no layer");
        p.colourTransform = body.u8();
        for (size_t c = 0; c < p.bits.size(); ++c)
          if (!told_.codingOf[c]) {
            Reader copy = body;
            coding(copy, scod & 1, p.coding[c]);
          }
        told_.coding = true;
        break;
      }
      case COC: {
        const size_t c = componentIndex(body);
        const int flags = body.u8();
        coding(body, flags & 1, p.coding[c]);
        told_.codingOf[c] = true;
        break;
      }
      case QCD:
        for (size_t c = 0; c < p.bits.size(); ++c)
          if (!told_.stepsOf[c]) {
            Reader copy = body;
            quantisation(copy, p.coding[c]);
          }
        told_.steps = true;
        break;
      case QCC: {
        const size_t c = componentIndex(body);
        quantisation(body, p.coding[c]);
        told_.stepsOf[c] = true;
        break;
      }
      case RGN: {
        const size_t c = componentIndex(body);
        if (body.u8() != 0) throw Error("an unknown kind of region of interest");
        p.coding[c].roiShift = body.u8();
        if (p.coding[c].roiShift > 37) throw Error("a region of interest is impossible");
        break;
      }
      case POC:
        if (tile != kMain && changed_.insert(tile).second) p.changes.clear();
        progressions(body, p.changes);
        break;
      default:
        break;
    }
  }

  void size(Reader& body) {
    if (!p_.bits.empty()) throw Error("the codestream has two sizes");
    body.skip(2);
    uint32_t fields[8];
    for (uint32_t& f : fields) {
      f = body.u32be();
      if (f > INT32_MAX) throw Error("the picture is too large");
    }
    const auto at = [&](int i) { return int32_t(fields[i]); };
    p_.width = at(0), p_.height = at(1), p_.x0 = at(2), p_.y0 = at(3);
    p_.tileWidth = at(4), p_.tileHeight = at(5), p_.tileX0 = at(6), p_.tileY0 = at(7);
    const int count = body.u16be();
    if (count < 1 || count > kMostComponents)
      throw Error("pictures of " + std::to_string(count) + " components can't be read");
    if (p_.width <= p_.x0 || p_.height <= p_.y0) throw Error("the picture is empty");
    const bool good = p_.tileWidth > 0 && p_.tileHeight > 0 && p_.tileX0 <= p_.x0 && p_.tileY0 <= p_.y0 &&
                      int64_t(p_.tileX0) + p_.tileWidth > p_.x0 && int64_t(p_.tileY0) + p_.tileHeight > p_.y0;
    if (!good) throw Error("the tile grid is impossible");
    if (int64_t(p_.tilesWide()) * p_.tilesHigh() > 65535) throw Error("the file has too many tiles");
    for (int c = 0; c < count; ++c) {
      const int depth = body.u8(), dx = body.u8(), dy = body.u8();
      // Signed samples differ only in that nothing is added in the end; pictures have the middle of their range there.
      const int bits = (depth & 0x7F) + 1;
      if (bits > kMostBits) throw Error("samples of more than " + std::to_string(kMostBits) + " bits can't be read");
      if (dx == 0 || dy == 0) throw Error("the sampling of a component is impossible");
      p_.bits.push_back(bits);
      p_.spacing.push_back({dx, dy});
      const Area area = p_.areaOf(size_t(c));
      if (area.empty()) throw Error("a component has no samples");
      checkDimensions(area.width(), area.height(), 1);
    }
    p_.coding.resize(size_t(count));
    told_ = {};
  }

  static Progression progression(Reader& body) {
    const int order = body.u8();
    if (order > 4) throw Error("an unknown progression order");
    return Progression(order);
  }

  static void progressions(Reader& body, std::vector<Progress>& changes) {
    while (body.left() > 0) {
      Progress p;
      p.firstResolution = body.u8(), p.firstComponent = body.u8(), p.endLayer = body.u16be();
      p.endResolution = body.u8(), p.endComponent = body.u8();
      if (p.endComponent == 0) p.endComponent = 256;
      p.order = progression(body);
      changes.push_back(p);
    }
  }

  size_t componentIndex(Reader& body) {
    const size_t c = body.u8();
    if (c >= p_.bits.size()) throw Error("parameters of a component that is not there");
    return c;
  }

  static void coding(Reader& body, bool precincts, Coding& c) {
    c.levels = body.u8();
    c.blockWidthLog2 = (body.u8() & 15) + 2, c.blockHeightLog2 = (body.u8() & 15) + 2;
    c.style = body.u8();
    const int transform = body.u8();
    if (c.levels > 32 || c.blockWidthLog2 > 10 || c.blockHeightLog2 > 10 || c.blockWidthLog2 + c.blockHeightLog2 > 12)
      throw Error("the coding parameters are impossible");
    if (c.style & 0xC0) throw Error("high-throughput block coding can't be read");
    if (transform > 1) throw Error("an unknown wavelet");
    c.reversible = transform == 1;
    for (int r = 0; r <= c.levels; ++r) c.precincts[size_t(r)] = precincts ? body.u8() : 0xFF;
  }

  static void quantisation(Reader& body, Coding& c) {
    const int style = body.u8();
    c.guardBits = style >> 5;
    c.steps.clear();
    if ((style & 31) > 2) throw Error("an unknown quantisation");
    while (body.left() && c.steps.size() < 3 * 32 + 1) {
      if ((style & 31) == 0) {
        c.steps.push_back({body.u8() >> 3, 0});
      } else {
        const int word = body.u16be();
        c.steps.push_back({word >> 11, word & 2047});
      }
    }
    if ((style & 31) == 1 && c.steps.size() > 1) c.steps.resize(1);
  }

  // The rest of a tile-part behind its SOT marker.
  void tilePart() {
    const size_t start = in_.position() - 2;
    if (in_.u16be() != 10) throw Damaged("a tile-part header is damaged");
    const int32_t tile = in_.u16be();
    const uint32_t length = in_.u32be();
    in_.skip(2);
    if (size_t(tile) >= out_.tileParts.size()) throw Damaged("a tile-part header is damaged");
    partHeaders_.clear();
    told_ = {};
    for (uint16_t marker; (marker = in_.u16be()) != SOD;) {
      const int bytes = in_.u16be();
      if (bytes < 2) throw Damaged("a marker segment is damaged");
      Reader body(in_.take(size_t(bytes - 2)));
      segment(marker, body, tile);
    }
    if (const auto own = out_.tileParameters.find(tile); own != out_.tileParameters.end()) expectPossible(own->second);
    takeHeaders(tile);
    const size_t header = in_.position() - start;
    if (length && length < header) throw Damaged("a tile-part header is damaged");
    // A length of 0 means up to the end marker; a file that is cut short gives what it has.
    const size_t left = in_.left(), wanted = length ? length - header : std::max<size_t>(left, 2) - 2;
    out_.tileParts[size_t(tile)].push_back(in_.take(std::min(wanted, left)));
    if (wanted > left) throw Truncated();
  }

  static void keepHeaders(std::map<int, Bytes>& headers, Reader& body) {
    const int index = body.u8();
    headers[index] = body.take(body.left());
  }

  // The packet headers of a tile-part, from its own header or from the next piece of those in the main one.
  void takeHeaders(int32_t tile) {
    if (!out_.headersPacked && partHeaders_.empty()) return;
    auto& headers = out_.packedHeaders[tile];
    const auto add = [&](Bytes more) { headers.insert(headers.end(), more.begin(), more.end()); };
    if (!out_.headersPacked) {
      for (const auto& [index, part] : partHeaders_) add(part);
      return;
    }
    Reader packed(packed_, packedTaken_);
    const uint32_t length = packed.u32be();
    add(packed.take(length));
    packedTaken_ = packed.position();
  }

  static void expectPossible(const Parameters& p) {
    for (const Coding& c : p.coding) {
      const bool derived = c.steps.size() == 1, few = c.steps.size() < size_t(3 * c.levels + 1);
      if (derived ? c.reversible && c.levels > 0 : few) throw Error("quantisation steps are missing");
    }
    if (!p.colourTransform) return;
    if (p.bits.size() < 3) throw Error("a colour transform of fewer than three components");
    for (size_t c = 1; c < 3; ++c)
      if (p.coding[c].reversible != p.coding[0].reversible || p.spacing[c] != p.spacing[0])
        throw Error("a colour transform over different wavelets or sizes");
  }

  static constexpr int32_t kMain = -1;
  Reader in_;
  Parameters p_;
  Codestream out_;
  bool mainEnded_ = false;
  // What the header at hand has told, of all components and of single ones.
  struct {
    bool coding = false, steps = false;
    std::array<bool, kMostComponents> codingOf{}, stepsOf{};
  } told_;
  std::set<int32_t> changed_;  // tiles with changes of the progression of their own
  // By their number: the pieces of packed headers in the main header, which together are one run of lengths and
  // headers, and those of the tile-part at hand.
  std::map<int, Bytes> mainHeaders_, partHeaders_;
  std::vector<uint8_t> packed_;
  size_t packedTaken_ = 0;
};

// Begins the box with EXIF data, as the programs that put them into JP2 files agree on.
constexpr std::string_view kExifBox = "JpgTiffExif->JP2";

// The first colour box whose method is known counts (I.5.3.3).
void readColour(Reader& body, Jp2Header& header) {
  if (header.colourSpace || !header.metadata.profile.empty()) return;
  const int method = body.u8();
  body.skip(2);
  const bool byProfile = method == 2 || method == 3;
  header.colourUnknown = method != 1 && !byProfile;
  if (method == 1) {
    header.colourSpace = body.u32be();
    constexpr uint32_t kFollowed[] = {kSrgb, kGrey, kYcc, kCmyk, kCieLab};
    header.colourUnknown =
        std::find(std::begin(kFollowed), std::end(kFollowed), header.colourSpace) == std::end(kFollowed);
  }
  if (!byProfile) return;
  const Bytes profile = body.take(body.left());
  header.metadata.profile.assign(profile.begin(), profile.end());
}

// The boxes that tell what the components are (I.5.3).
void readHeader(Bytes content, Jp2Header& header) {
  Reader boxes(content);
  while (boxes.left() >= 8) {
    const uint32_t n = boxes.u32be(), kind = boxes.u32be();
    if (n < 8) break;
    Reader body(boxes.take(std::min<size_t>(n - 8, boxes.left())));
    if (kind == box("colr")) readColour(body, header);
    if (kind == box("pclr")) {
      const size_t entries = body.u16be(), columns = body.u8();
      if (entries < 1 || entries > 1024 || columns < 1) throw Error("the palette is impossible");
      header.paletteBits.clear(), header.palette.clear();
      for (size_t i = 0; i < columns; ++i) header.paletteBits.push_back(body.u8() + 1);
      for (size_t i = 0; i < entries * columns; ++i) {
        const int bits = header.paletteBits[i % columns];
        if (bits > 16) throw Error("a palette of signed entries or more than 16 bits can't be read");
        header.palette.push_back((bits > 8 ? body.u16be() : body.u8()) & ((1u << bits) - 1));
      }
    }
    if (kind == box("cmap")) {
      header.channels.clear();
      while (body.left() >= 4) {
        const int component = body.u16be(), mapped = body.u8(), column = body.u8();
        header.channels.push_back({component, mapped ? column : -1});
      }
    }
    if (kind == box("cdef")) {
      header.definitions.clear();
      for (int count = body.u16be(); count > 0; --count) {
        const int channel = body.u16be(), type = body.u16be(), association = body.u16be();
        header.definitions.push_back({channel, type, association});
      }
    }
  }
}

// The codestream of a JP2 file. `cut`: the file ends within it or behind it, in the middle of a box.
Bytes unwrapJp2(Bytes file, bool& cut, Jp2Header& header) {
  Reader in(file);
  Bytes codestream;
  while (in.left() >= 8) {
    const size_t start = in.position();
    uint64_t length = in.u32be();
    const uint32_t type = in.u32be();
    if (length == 1) length = in.u64be();
    const size_t head = in.position() - start;
    if (length && length < head) {
      if (codestream.empty()) throw Error("a box has an impossible length");
      cut = true;
      break;
    }
    const uint64_t body = length ? length - head : in.left();
    cut = body > in.left();
    const Bytes content = in.take(size_t(std::min<uint64_t>(body, in.left())));
    if (type == box("jp2c") && codestream.empty()) codestream = content;
    if (type == box("jp2h")) readHeader(content, header);
    if (type == box("uuid") && content.size() > kExifBox.size() &&
        std::equal(kExifBox.begin(), kExifBox.end(), content.begin()))
      header.metadata.exif.assign(content.begin() + ptrdiff_t(kExifBox.size()), content.end());
  }
  cut |= in.left() > 0;
  if (codestream.empty() && cut) throw Truncated();
  if (codestream.empty()) throw Error("the file has no codestream");
  return codestream;
}

// --- writing -----------------------------------------------------------------------------------------------

void endSegment(Writer& out, size_t start) {
  const size_t length = out.bytes.size() - start;
  out.bytes[start] = uint8_t(length >> 8), out.bytes[start + 1] = uint8_t(length);
}

template <class Body>
void segment(Writer& out, Marker marker, Body&& body) {
  out.u16be(marker);
  const size_t start = out.bytes.size();
  out.u16be(0);
  body();
  endSegment(out, start);
}

template <class Body>
void putBox(Writer& out, const char (&name)[5], Body&& body) {
  const size_t start = out.bytes.size();
  out.u32be(0), out.u32be(box(name));
  body();
  const size_t length = out.bytes.size() - start;
  for (size_t i = 0; i < 4; ++i) out.bytes[start + i] = uint8_t(length >> (24 - 8 * i));
}

}  // namespace

bool isJp2(Bytes file) { return file.size() >= 12 && std::equal(file.begin(), file.begin() + 8, "\0\0\0\x0CjP  "); }

Codestream parse(Bytes file) {
  bool cut = false;
  Jp2Header jp2;
  Codestream stream = Parser(isJp2(file) ? unwrapJp2(file, cut, jp2) : file).parse();
  stream.jp2 = std::move(jp2);
  if (cut && stream.missing.empty()) stream.missing = Truncated().what();
  return stream;
}

std::vector<uint8_t> writeMainHeader(const Parameters& p) {
  Writer out;
  const Coding& c = p.coding[0];
  out.u16be(SOC);
  segment(out, SIZ, [&] {
    out.u16be(0);
    for (const int32_t v : {p.width, p.height, p.x0, p.y0, p.tileWidth, p.tileHeight, p.tileX0, p.tileY0})
      out.u32be(uint32_t(v));
    out.u16be(unsigned(p.bits.size()));
    for (const int bits : p.bits) out.u8(unsigned(bits - 1)), out.u8(1), out.u8(1);
  });
  segment(out, COD, [&] {
    out.u8(0);
    out.u8(unsigned(p.progression)), out.u16be(unsigned(p.layers)), out.u8(p.colourTransform);
    out.u8(unsigned(c.levels)), out.u8(unsigned(c.blockWidthLog2 - 2)), out.u8(unsigned(c.blockHeightLog2 - 2));
    out.u8(unsigned(c.style)), out.u8(c.reversible);
  });
  segment(out, QCD, [&] {
    out.u8(unsigned(c.guardBits << 5 | (c.reversible ? 0 : 2)));
    for (const StepSize& s : c.steps)
      if (c.reversible) out.u8(unsigned(s.exponent << 3));
      else out.u16be(unsigned(s.exponent << 11 | s.mantissa));
  });
  return std::move(out.bytes);
}

void writeTile(std::vector<uint8_t>& bytes, int32_t index, Bytes packets) {
  Writer out;
  out.u16be(SOT), out.u16be(10), out.u16be(unsigned(index));
  out.u32be(uint32_t(packets.size() + 14)), out.u8(0), out.u8(1), out.u16be(SOD);
  bytes.insert(bytes.end(), out.bytes.begin(), out.bytes.end());
  bytes.insert(bytes.end(), packets.begin(), packets.end());
}

std::vector<uint8_t> wrapJp2(const Parameters& p, const Metadata& metadata, Bytes codestream) {
  Writer out;
  const bool grey = p.colour == Colour::grey || p.colour == Colour::greyAlpha;
  const bool alpha = p.colour == Colour::greyAlpha || p.colour == Colour::rgba;
  putBox(out, "jP  ", [&] { out.u32be(0x0D0A870A); });
  putBox(out, "ftyp", [&] { out.u32be(box("jp2 ")), out.u32be(0), out.u32be(box("jp2 ")); });
  putBox(out, "jp2h", [&] {
    putBox(out, "ihdr", [&] {
      out.u32be(uint32_t(p.height - p.y0)), out.u32be(uint32_t(p.width - p.x0)), out.u16be(unsigned(p.bits.size()));
      out.u8(unsigned(p.bits[0] - 1)), out.u8(7), out.u8(0), out.u8(0);
    });
    putBox(out, "colr", [&] {
      out.u8(metadata.profile.empty() ? 1 : 2), out.u8(0), out.u8(0);
      if (metadata.profile.empty()) out.u32be(grey ? kGrey : kSrgb);
      else out.put(metadata.profile);
    });
    if (alpha)
      putBox(out, "cdef", [&] {
        const unsigned channels = unsigned(p.bits.size());
        out.u16be(channels);
        for (unsigned i = 0; i < channels; ++i) {
          const bool isAlpha = i + 1 == channels;  // opacity of the whole picture
          out.u16be(i), out.u16be(isAlpha), out.u16be(isAlpha ? 0 : i + 1);
        }
      });
  });
  if (!metadata.exif.empty())
    putBox(out, "uuid", [&] {
      out.put({reinterpret_cast<const uint8_t*>(kExifBox.data()), kExifBox.size()});
      out.put(metadata.exif);
    });
  putBox(out, "jp2c", [&] { out.put(codestream); });
  return std::move(out.bytes);
}

}  // namespace qelconv::jpeg2000
