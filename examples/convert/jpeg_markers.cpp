// Marker segments of JPEG files (ISO/IEC 10918-1, Annex B), with the application segments of JFIF, Adobe, EXIF and ICC.
#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <optional>

#include "exif.h"
#include "jpeg.h"
#include "qelj_typical.h"

namespace qelconv::jpeg {
namespace {

constexpr int32_t divideUp(int32_t a, int32_t b) { return (a + b - 1) / b; }

// What the segments of metadata begin with, with the zero at the end; behind that of a profile stand the number of
// this part of it, from 1 on, and how many there are (ICC.1, B.4).
constexpr std::string_view kExifHead("Exif\0\0", 6), kProfileHead("ICC_PROFILE\0", 12);
// And those that nothing is taken of.
constexpr std::string_view kXmpHead = "http://ns.adobe.com/", kPhotoshopHead = "Photoshop ";

// Reads the segments of one file into a File.
class Parser {
 public:
  explicit Parser(const Contents& contents) : contents_(contents), bytes_(contents), in_(bytes_) {}

  File parse() {
    if (in_.u16be() != (0xFF00 | SOI)) throw Error("not a JPEG file");
    bool ended = false;
    try {
      while (const uint8_t marker = ended ? 0 : nextMarker()) {
        ended = marker == EOI;
        segment(marker);
      }
    } catch (const Error& e) {
      // Behind a scan there is something to be had of the file.
      if (file_.scans.empty()) throw;
      file_.missing = e.what();
    }
    joinProfile();
    if (file_.frame.components.empty()) throw Error("the file has no frame header");
    if (file_.scans.empty()) throw Error("the file has no scan");
    if (const int component = progression_->firstWithoutScan(); component >= 0)
      file_.missing = "the file ends before component " + std::to_string(component) + " has a scan";
    else if (!ended && file_.missing.empty() && !progression_->complete()) file_.missing = Truncated().what();
    return std::move(file_);
  }

 private:
  // The next marker, or 0 at the end of the file (a missing EOI is forgiven, and so is what stands in between).
  uint8_t nextMarker() {
    for (uint8_t last = 0; in_.left();) {
      const uint8_t byte = in_.u8();
      if (last == 0xFF && byte != 0xFF && byte != 0) return byte;
      last = byte;
    }
    return 0;
  }

  void segment(uint8_t marker) {
    if (marker == 0x01 || (marker >= RST0 && marker <= EOI)) return;  // without parameters
    const int length = in_.u16be();
    if (length < 2) throw Error("a marker segment has an impossible length");
    Reader body(in_.take(size_t(length - 2)));
    switch (marker) {
      case DQT:
        quantTables(body);
        break;
      case DHT:
        huffmanTables(body);
        break;
      case DRI:
        restartInterval_ = body.u16be();
        break;
      case SOS:
        scan(body);
        break;
      case APP0:
        if (startsWith(body, "JFIF")) jfif(body);
        break;
      case APP1:
        if (Reader again = body; startsWith(again, kXmpHead)) file_.metadata.others.push_back("XMP data");
        if (startsWith(body, kExifHead) && file_.metadata.exif.empty()) file_.metadata.exif = rest(body);
        break;
      case APP2:
        if (startsWith(body, kProfileHead) && body.left() >= 2) {
          const int number = body.u8();
          partsOfProfile_ = body.u8();
          profile_.emplace(number, rest(body));
        }
        break;
      case APP13:
        if (startsWith(body, kPhotoshopHead)) file_.metadata.others.push_back("Photoshop data");
        break;
      case COM:
        file_.metadata.others.push_back("comments");
        break;
      case APP14:
        if (startsWith(body, "Adobe") && body.left() >= 7) body.skip(6), file_.adobe = body.u8();
        break;
      case DNL:  // known since the frame header
        break;
      case DAC:
        throw Error("arithmetic coding can't be read");
      default:
        if (marker >= SOF0 && marker <= SOF15 && marker != JPG) frame(marker, body);
    }
  }

  void jfif(Reader& body) {
    file_.jfif = true;
    if (body.left() < 8) return;
    body.skip(3);  // the end of the name, the version
    const unsigned unit = body.u8();
    const double x = body.u16be(), y = body.u16be();
    if (unit <= Density::kCentimetre) file_.metadata.density = {x, y, Density::Unit(unit)};
  }

  static bool startsWith(Reader& body, std::string_view text) {
    return body.left() >= text.size() && std::memcmp(body.take(text.size()).data(), text.data(), text.size()) == 0;
  }
  static std::vector<uint8_t> rest(Reader& body) {
    const Bytes bytes = body.take(body.left());
    return {bytes.begin(), bytes.end()};
  }

  void joinProfile() {
    int next = 1;
    for (const auto& [number, part] : profile_) {
      file_.profileLost |= number != next++;
      file_.metadata.profile.insert(file_.metadata.profile.end(), part.begin(), part.end());
    }
    file_.profileLost |= next != partsOfProfile_ + 1;
    if (file_.profileLost) file_.metadata.profile.clear();
  }

  void quantTables(Reader& body) {
    while (body.left()) {
      const int head = body.u8();
      if ((head & 15) > 3) throw Error("a quantisation table has a bad number");
      for (uint16_t& q : quant_[size_t(head & 15)]) q = head >> 4 ? body.u16be() : body.u8();
      quantDefined_[size_t(head & 15)] = true;
    }
  }

  void huffmanTables(Reader& body) {
    while (body.left()) {
      const int head = body.u8();
      if ((head & 15) > 3 || head >> 4 > 1) throw Error("a Huffman table has a bad number");
      HuffmanList list;
      const Bytes bits = body.take(16);
      std::copy(bits.begin(), bits.end(), list.bits.begin());
      if (list.symbols() > 256) throw Error("a Huffman table has more than 256 codes");
      const Bytes vals = body.take(size_t(list.symbols()));
      std::copy(vals.begin(), vals.end(), list.vals.begin());
      (head >> 4 ? ac_ : dc_)[size_t(head & 15)] = list;
    }
  }

  void frame(uint8_t marker, Reader& body) {
    Frame& frame = file_.frame;
    if (!frame.components.empty()) throw Error("the file has two frame headers");
    if (marker > JPG) throw Error("arithmetic coding can't be read");
    if (marker > SOF3) throw Error("hierarchical files can't be read");
    frame.process = marker;
    frame.precision = body.u8();
    frame.height = body.u16be(), frame.width = body.u16be();
    if (frame.height == 0) frame.height = linesBehindScan();
    const int count = body.u8();
    if (marker == SOF3 ? frame.precision < 2 || frame.precision > 16 : frame.precision != 8 && frame.precision != 12)
      throw Error("a precision of " + std::to_string(frame.precision) + " bits can't be read");
    if (count != 1 && count != 3 && count != 4)
      throw Error("a frame of " + std::to_string(count) + " components can't be read");
    checkDimensions(frame.width, frame.height, count);
    for (int i = 0; i < count; ++i) {
      Component c;
      c.id = body.u8();
      const int sampling = body.u8();
      c.h = sampling >> 4, c.v = sampling & 15, c.quantTable = body.u8();
      if (c.h < 1 || c.h > 4 || c.v < 1 || c.v > 4 || c.quantTable > 3) throw Error("a component is described wrongly");
      // An only component has nothing to be sampled against, and its scan no MCUs (A.2.2): its factors mean
      // nothing.
      if (count == 1) c.h = c.v = 1;
      frame.components.push_back(c);
    }
    frame.layOut();
    file_.quant.resize(size_t(count));
    progression_.emplace(frame);
  }

  // What a DNL segment behind the first scan tells (B.2.5), which no coded data can look like.
  int32_t linesBehindScan() const {
    constexpr uint8_t kSegment[] = {0xFF, DNL, 0, 4};
    const Bytes rest = bytes_.subspan(in_.position());
    const auto found = std::search(rest.begin(), rest.end(), std::begin(kSegment), std::end(kSegment));
    if (rest.end() - found < 6) throw Error("the number of lines is missing");
    return found[4] << 8 | found[5];
  }

  // The typical tables where a sequential file brings none.
  static HuffmanList orTypical(const HuffmanList& list, const uint8_t (&bits)[16], Bytes vals) {
    HuffmanList typical = list;
    if (list.symbols()) return typical;
    std::copy(std::begin(bits), std::end(bits), typical.bits.begin());
    std::copy(vals.begin(), vals.end(), typical.vals.begin());
    return typical;
  }

  void scan(Reader& body) {
    Frame& frame = file_.frame;
    if (frame.components.empty()) throw Error("a scan stands in front of the frame header");
    Scan scan;
    const int count = body.u8();
    if (count < 1 || count > 4) throw Error("a scan has a bad number of components");
    for (int i = 0; i < count; ++i) {
      const int id = body.u8(), tables = body.u8();
      const auto found =
          std::find_if(frame.components.begin(), frame.components.end(), [&](auto& c) { return c.id == id; });
      if (found == frame.components.end() || (tables & 15) > 3 || tables >> 4 > 3)
        throw Error("a scan header is wrong");
      scan.header.parts.push_back({int(found - frame.components.begin()), tables >> 4, tables & 15});
    }
    ScanHeader& h = scan.header;
    h.ss = body.u8(), h.se = body.u8();
    const int approximation = body.u8();
    h.ah = approximation >> 4, h.al = approximation & 15;
    progression_->add(h);
    for (const auto& part : h.parts) {
      const auto index = size_t(part.component);
      const auto table = size_t(frame.components[index].quantTable);
      if (frame.process == SOF3 || (frame.process == SOF2 && (h.ss || h.ah))) continue;
      // The table in force at a component's first scan is its own.
      if (!quantDefined_[table]) throw Error("a quantisation table is missing");
      file_.quant[index] = quant_[table];
    }
    scan.dc = dc_, scan.ac = ac_;
    for (size_t i = 0; i < 2 && frame.process <= SOF1; ++i) {
      scan.dc[i] = orTypical(dc_[i], qelTypicalDcBits[i], qelTypicalDcVals);
      scan.ac[i] = orTypical(ac_[i], qelTypicalAcBits[i], qelTypicalAcVals[i]);
    }
    scan.restartInterval = restartInterval_;
    entropyCoded(scan);
    file_.scans.push_back(std::move(scan));
  }

  // Finds the end of the data that follows, and the restart markers in it.
  void entropyCoded(Scan& scan) {
    size_t start = in_.position(), at = start;
    for (;;) {
      const void* found = at < bytes_.size() ? std::memchr(&bytes_[at], 0xFF, bytes_.size() - at) : nullptr;
      at = found ? size_t(static_cast<const uint8_t*>(found) - bytes_.data()) : bytes_.size();
      contents_.forget(at);
      if (at + 1 >= bytes_.size()) {
        scan.intervals.push_back(bytes_.subspan(start));
        in_.seek(bytes_.size());
        return;
      }
      const uint8_t next = bytes_[at + 1];
      if (next == 0xFF) {
        ++at;
      } else if (next == 0) {
        at += 2;
      } else {
        scan.intervals.push_back(bytes_.subspan(start, at + 2 - start));
        if (next < RST0 || next > RST7) break;
        start = at += 2;
      }
    }
    in_.seek(at);
  }

  const Contents& contents_;
  Bytes bytes_;
  Reader in_;
  File file_;
  std::array<FileQuantTable, 4> quant_{};
  std::array<bool, 4> quantDefined_{};
  std::array<HuffmanList, 4> dc_, ac_;
  int32_t restartInterval_ = 0;
  std::optional<Progression> progression_;
  std::map<int, std::vector<uint8_t>> profile_;  // by number
  int partsOfProfile_ = 0;
};

void marker(Writer& out, uint8_t m) { out.u8(0xFF), out.u8(m); }

constexpr size_t kMostOfSegment = 65533;  // beside its length

// As whole numbers, by the unit that they fit best.
Density wholeDensity(const Metadata& metadata) {
  const auto rounded = [](Density d, double scale, Density::Unit unit) {
    return Density{std::round(d.x * scale), std::round(d.y * scale), unit};
  };
  constexpr double kCentimetres = 2.54;  // an inch
  const Density exact = densityOf(metadata);
  Density best = rounded(exact, 1, exact.unit);
  if (exact.unit != Density::kNone) {
    const bool inches = exact.unit == Density::kInch;
    const double scale = inches ? 1 / kCentimetres : kCentimetres;
    const Density other = rounded(exact, scale, inches ? Density::kCentimetre : Density::kInch);
    if (std::abs(other.x / (exact.x * scale) - 1) < std::abs(best.x / exact.x - 1)) best = other;
  }
  const bool fits = best.isKnown() && std::max(best.x, best.y) < 65536;
  return fits ? best : Density{1, 1};
}

// Tells what has no place in the file.
void writeMetadata(Writer& out, const Metadata& metadata, Stages& stages) {
  const auto begin = [&](uint8_t m, std::string_view head, size_t more) {
    marker(out, m), out.u16be(unsigned(2 + head.size() + more));
    out.put({reinterpret_cast<const uint8_t*>(head.data()), head.size()});
  };
  const std::vector<uint8_t>&profile = metadata.profile, &exif = metadata.exif;
  if (exif.size() > kMostOfSegment - kExifHead.size()) {
    stages.lose("the EXIF data are too long, and dropped");
  } else if (!exif.empty()) {
    begin(APP1, kExifHead, exif.size());
    out.put(exif);
  }
  const size_t most = kMostOfSegment - kProfileHead.size() - 2, parts = (profile.size() + most - 1) / most;
  if (parts > 255) return stages.lose("the colour profile is too long, and dropped");
  for (size_t i = 0; i < parts; ++i) {
    const Bytes part = Bytes(profile).subspan(i * most, std::min(most, profile.size() - i * most));
    begin(APP2, kProfileHead, 2 + part.size());
    out.u8(unsigned(i + 1)), out.u8(unsigned(parts));
    out.put(part);
  }
}

}  // namespace

int HuffmanList::symbols() const { return std::accumulate(bits.begin(), bits.end(), 0); }

void Frame::layOut() {
  hMax = vMax = 1;
  for (const Component& c : components) hMax = std::max(hMax, c.h), vMax = std::max(vMax, c.v);
  mcusWide = divideUp(width, 8 * hMax);
  mcusHigh = divideUp(height, 8 * vMax);
  for (Component& c : components) {
    c.width = divideUp(width * c.h, hMax), c.height = divideUp(height * c.v, vMax);
    c.blocksWide = divideUp(c.width, 8), c.blocksHigh = divideUp(c.height, 8);
    c.paddedWide = mcusWide * c.h, c.paddedHigh = mcusHigh * c.v;
  }
}

Space spaceOf(const File& file) {
  const auto& c = file.frame.components;
  if (c.size() == 1) return Space::grey;
  if (c.size() == 4) return file.adobe > 0 ? Space::ycck : Space::cmyk;
  if (file.jfif) return Space::ycc;
  if (file.adobe >= 0) return file.adobe == 0 ? Space::rgb : Space::ycc;
  return c[0].id == 'R' && c[1].id == 'G' && c[2].id == 'B' ? Space::rgb : Space::ycc;
}

File parse(const Contents& contents) { return Parser(contents).parse(); }

void writeHeader(Writer& out, const Frame& frame, Space space, const std::vector<RawQuantTable>& quant,
                 const Metadata& metadata, Stages& stages) {
  marker(out, SOI);
  if (space == Space::grey || space == Space::ycc) {
    marker(out, APP0), out.u16be(16), out.text("JFIF"), out.u8(0);
    const Density density = wholeDensity(metadata);
    out.u16be(0x0102), out.u8(density.unit), out.u16be(unsigned(density.x)), out.u16be(unsigned(density.y)),
        out.u16be(0);
  } else {
    marker(out, APP14), out.u16be(14), out.text("Adobe");
    out.u16be(100), out.u16be(0), out.u16be(0), out.u8(space == Space::ycck ? 2 : 0);
  }
  writeMetadata(out, metadata, stages);
  for (size_t i = 0; i < quant.size(); ++i) {
    marker(out, DQT), out.u16be(67), out.u8(unsigned(i));
    out.put(quant[i]);
  }
  marker(out, frame.process);
  out.u16be(unsigned(8 + 3 * frame.components.size()));
  out.u8(unsigned(frame.precision)), out.u16be(unsigned(frame.height)), out.u16be(unsigned(frame.width));
  out.u8(unsigned(frame.components.size()));
  for (const Component& c : frame.components)
    out.u8(unsigned(c.id)), out.u8(unsigned(c.h << 4 | c.v)), out.u8(unsigned(c.quantTable));
}

void writeHuffman(Writer& out, int tableClass, int index, const HuffmanList& list) {
  marker(out, DHT), out.u16be(unsigned(19 + list.symbols())), out.u8(unsigned(tableClass << 4 | index));
  out.put(list.bits), out.put(Bytes(list.vals).first(size_t(list.symbols())));
}

void writeRestartInterval(Writer& out, int64_t interval) {
  if (!interval) return;
  if (interval > 65535) throw Error("the restart interval is above 65535 MCUs");
  marker(out, DRI), out.u16be(4), out.u16be(unsigned(interval));
}

void writeScanHeader(Writer& out, const Frame& frame, const ScanHeader& scan) {
  marker(out, SOS), out.u16be(unsigned(6 + 2 * scan.parts.size())), out.u8(unsigned(scan.parts.size()));
  for (const auto& part : scan.parts)
    out.u8(unsigned(frame.components[size_t(part.component)].id)), out.u8(unsigned(part.dcTable << 4 | part.acTable));
  out.u8(unsigned(scan.ss)), out.u8(unsigned(scan.se)), out.u8(unsigned(scan.ah << 4 | scan.al));
}

}  // namespace qelconv::jpeg
