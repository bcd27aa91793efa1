// The JPEG format: options, and which road a picture takes.
#include "jpeg.h"

#include <algorithm>
#include <fstream>
#include <ostream>
#include <sstream>

#include "orientation.h"
#include "parallel.h"
#include "pipeline.h"
#include "qelj_typical.h"

namespace qelconv {
namespace {

using namespace jpeg;

bool recognises(Bytes file) { return file.size() > 3 && file[0] == 0xFF && file[1] == SOI && file[2] == 0xFF; }

Image read(Bytes bytes, const Options& options, Stages& stages) {
  const Limits limits(bytes, options);
  const File file = stages.time("markers", [&] { return parse(bytes); });
  const Frame& frame = file.frame;
  if (!file.missing.empty()) limits.expectWhole(file.missing);
  if (file.profileLost) stages.lose("parts of the colour profile are missing: it is dropped");
  constexpr int kSizes[] = {8, 4, 2, 1};
  const int size = kSizes[options.choice("scale", {"1/1", "1/2", "1/4", "1/8"}, 0)];
  const auto filter = options.choice("filter", {"box", "triangle"}, 1) ? Filter::triangle : Filter::box;
  // One scan with everything: a strip at a time, while it is in the cache.
  const bool byStrips =
      file.scans.size() == 1 && frame.process != SOF2 && file.scans[0].header.parts.size() == frame.components.size();
  const bool lossless = frame.process == SOF3;
  expectData(file, limits);
  limits.expectPicture(frame.width, frame.height, int(frame.components.size()), frame.precision,
                       byStrips || lossless ? 0 : Coefficients::bytes(frame, frame.mcusHigh));
  if (lossless) {
    Image image = stages.time("lossless decoding", [&] { return readLossless(file, limits); });
    image.metadata = file.metadata;
    return image;
  }

  // Decodes as far as there are data that make sense.
  std::string missing = file.missing;
  const auto decode = [&](auto&& work) {
    try {
      work();
      return true;
    } catch (const Error& e) {
      limits.expectWhole(e.what());
      missing = e.what();
      return false;
    }
  };
  const auto decodeRows = [](ScanDecoder& decoder, int32_t first, int32_t end, Coefficients& coefficients) {
    for (int32_t row = first; row < end; ++row) decoder.decodeRow(row, coefficients);
  };
  constexpr const char *kTransform = "inverse DCT", *kConvert = "upsampling and colour";
  const Strips strips(frame);
  Pipeline pipeline(strips.count);
  PixelWriter pixels(file, size, filter, strips, pipeline.slots());
  const auto convert = [&](int32_t i) { pixels.convert(i); };
  if (byStrips) {
    std::vector<Coefficients> slots(size_t(pipeline.slots()), Coefficients(frame, strips.rows));
    const auto slot = [&](int32_t i) -> Coefficients& { return slots[size_t(i) % slots.size()]; };
    ScanDecoder decoder(frame, file.scans[0]);
    bool more = true;
    pipeline.run(
        stages, {"Huffman decoding", kTransform, kConvert},
        [&](int32_t i) {
          slot(i).moveTo(strips.first(i));
          if (limits.partial()) slot(i).clear();
          more = more && decode([&] { decodeRows(decoder, strips.first(i), strips.end(i), slot(i)); });
        },
        [&](int32_t i) { pixels.transform(i, slot(i)); }, convert);
  } else {
    Coefficients coefficients(frame, frame.mcusHigh);
    stages.time("Huffman decoding", [&] {
      decode([&] {
        for (const Scan& scan : file.scans) {
          ScanDecoder decoder(frame, scan);
          decodeRows(decoder, 0, decoder.rows(), coefficients);
        }
      });
    });
    pipeline.run(
        stages, {nullptr, kTransform, kConvert}, [](int32_t) {}, [&](int32_t i) { pixels.transform(i, coefficients); },
        convert);
  }
  Image image = pixels.finish();
  image.metadata = file.metadata;
  if (!missing.empty()) limits.onlyPart(image, missing);
  return image;
}

std::string textOfFile(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  if (!file) throw Error(path + ": can't be read");
  return text.str();
}

// The frame of a picture in a colour space, chroma sampled as asked for.
Frame makeFrame(const Image& image, Space space, const Options& options) {
  Frame frame;
  frame.width = image.width, frame.height = image.height;
  if (image.width > 65535 || image.height > 65535) throw Error("JPEG holds sides up to 65535");
  const bool hasChroma = space == Space::ycc || space == Space::ycck;
  if (options.has("sampling") && !hasChroma) throw Error("--sampling needs a picture with chroma planes");
  constexpr int kAcross[] = {1, 2, 2, 1, 4, 4}, kDown[] = {1, 1, 2, 2, 1, 2};
  const int sampling = hasChroma ? options.choice("sampling", {"444", "422", "420", "440", "411", "410"}, 2) : 0;
  for (int i = 0; i < image.channels(); ++i) {
    const bool chroma = hasChroma && (i == 1 || i == 2);
    const int id = space == Space::rgb ? "RGB"[i] : i + 1;
    frame.components.push_back({id, chroma ? 1 : kAcross[sampling], chroma ? 1 : kDown[sampling], chroma});
  }
  frame.layOut();
  return frame;
}

// One scan of all components with everything in it.
ScanHeader wholeScan(const Frame& frame) {
  ScanHeader whole;
  for (size_t i = 0; i < frame.components.size(); ++i) {
    const int table = frame.components[i].quantTable;
    whole.parts.push_back({int(i), table, table});
  }
  return whole;
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  if (options.has("lossless")) {
    Image adapted;
    const Image& image = adapt(original, adapted, stages, {Colour::grey, Colour::rgb});
    return stages.time("lossless coding", [&] {
      return writeLossless(image, options.integer("predictor", 1, 1, 7), options.integer("point-transform", 0, 0, 15),
                           options.integer("restart", 0, 0, 65535), stages);
    });
  }
  const int bits = options.choice("bits", {"8", "12"}, 0) ? 12 : 8;
  Image adapted;
  const Image* const fit = &adapt(original, adapted, stages, {Colour::rgb, Colour::grey, Colour::cmyk}, bits);
  const Image& image = fit->bits == bits ? * fit : adapted = withBits(*fit, bits);
  Space space = image.colour == Colour::grey ? Space::grey : image.colour == Colour::rgb ? Space::ycc : Space::ycck;
  if (options.has("plain-colour"))
    space = image.colour == Colour::rgb ? Space::rgb : image.colour == Colour::cmyk ? Space::cmyk : space;

  Frame frame = makeFrame(image, space, options);
  std::vector<RawQuantTable> quant = {std::to_array(qelTypicalQuantisers[0])};
  if (space == Space::ycc || space == Space::ycck) quant.push_back(std::to_array(qelTypicalQuantisers[1]));
  for (auto& table : quant)
    expectOk(qeliQuantFwdRawTableInit_JPEG_8u(table.data(), options.integer("quality", 85, 1, 100)),
             "scaling a quantiser");
  frame.precision = bits;
  const int32_t restart = options.integer("restart", 0, 0, 65535) * frame.mcusWide;
  std::vector<ScanHeader> script = {wholeScan(frame)};
  if (options.has("scans")) script = parseScanScript(textOfFile(options.text("scans")));
  else if (options.has("progressive")) script = usualProgression(frame);
  frame.process = !isSequential(script) ? SOF2 : bits == 8 ? SOF0 : SOF1;
  checkScanScript(script, frame);

  Writer out;
  out.bytes.reserve(image.data.size() / 4 + 1024);
  writeHeader(out, frame, space, quant, image.metadata, stages);
  writeRestartInterval(out, restart);
  const Strips strips(frame);
  Pipeline pipeline(strips.count);
  PixelReader pixels(image, frame, space, quant, strips, pipeline.slots());
  constexpr const char *kTransform = "colour and forward DCT", *kCoding = "Huffman coding";

  // The typical tables end with the categories of 8-bit samples.
  if (bits == 8 && !options.has("scans") && !options.has("progressive") && !options.has("optimize")) {
    std::array<HuffmanList, 4> dc, ac;
    for (size_t i = 0; i < quant.size(); ++i) {
      writeHuffman(out, 0, int(i), dc[i] = typicalTable(false, int(i)));
      writeHuffman(out, 1, int(i), ac[i] = typicalTable(true, int(i)));
    }
    writeScanHeader(out, frame, script[0]);
    std::vector<Coefficients> slots(size_t(pipeline.slots()), Coefficients(frame, strips.rows));
    const auto slot = [&](int32_t i) -> Coefficients& { return slots[size_t(i) % slots.size()]; };
    SequentialEncoder encoder(frame, script[0], dc, ac, restart, out.bytes);
    pipeline.run(
        stages, {nullptr, kTransform, kCoding}, [](int32_t) {},
        [&](int32_t i) {
          slot(i).moveTo(strips.first(i));
          pixels.transform(i, slot(i));
        },
        [&](int32_t i) {
          for (int32_t row = strips.first(i); row < strips.end(i); ++row) encoder.encodeRow(row, slot(i));
        });
    encoder.finish();
  } else {
    Coefficients coefficients(frame, frame.mcusHigh);
    const auto nothing = [](int32_t) {};
    pipeline.run(
        stages, {nullptr, kTransform, nullptr}, nothing, [&](int32_t i) { pixels.transform(i, coefficients); },
        nothing);
    // The scans don't depend on one another.
    stages.time(kCoding, [&] {
      std::vector<Writer> scans(script.size());
      inParallel(scans.size(), [&](size_t i) { writeOptimalScan(scans[i], frame, script[i], restart, coefficients); });
      for (const Writer& scan : scans) out.put(scan.bytes);
    });
  }
  out.u8(0xFF), out.u8(EOI);
  return std::move(out.bytes);
}

// The tables that the scans use, each where it comes into force.
void describeTables(const File& file, Facts& facts) {
  std::array<std::array<HuffmanList, 4>, 2> told;
  for (size_t s = 0; s < file.scans.size(); ++s) {
    const Scan& scan = file.scans[s];
    const bool progressive = file.frame.process == SOF2;
    for (const auto& part : scan.header.parts) {
      const auto tell = [&](int ac, int number, const HuffmanList& list) {
        HuffmanList& last = told[size_t(ac)][size_t(number)];
        if (!list.symbols() || (list.bits == last.bits && list.vals == last.vals)) return;
        last = list;
        std::string lengths, symbols;
        const auto append = [](std::string& text, const char* form, unsigned value) {
          char digits[8];
          std::snprintf(digits, sizeof digits, form, value);
          if (!text.empty()) text += ',';
          text += digits;
        };
        for (const uint8_t n : list.bits) append(lengths, "%u", n);
        for (const uint8_t v : Bytes(list.vals).first(size_t(list.symbols()))) append(symbols, "%02x", v);
        facts.another("Huffman tables")
            .add("scan", s)
            .add("class", ac ? "AC" : "DC")
            .add("number", number)
            .add("codes of 1 to 16 bits", lengths)
            .add("symbols", symbols);
      };
      const bool lossless = file.frame.process == SOF3, refines = progressive && scan.header.ah;
      if (lossless || (scan.header.ss == 0 && !refines)) tell(0, part.dcTable, scan.dc[size_t(part.dcTable)]);
      if (!lossless && scan.header.se > 0) tell(1, part.acTable, scan.ac[size_t(part.acTable)]);
    }
  }
}

void describe(Bytes bytes, Facts& facts) {
  const File file = parse(bytes);
  const Frame& frame = file.frame;
  constexpr const char* kProcesses[] = {"baseline", "extended sequential", "progressive", "lossless"};
  constexpr const char* kSpaces[] = {"grey", "YCbCr", "RGB", "CMYK", "YCCK"};
  facts.picture("JPEG", frame.width, frame.height, kSpaces[int(spaceOf(file))], frame.precision);
  facts.add("process", kProcesses[frame.process - SOF0]);
  if (file.scans[0].restartInterval) facts.add("restart interval", file.scans[0].restartInterval);
  for (const Component& c : frame.components)
    facts.another("components")
        .add("id", c.id)
        .add("sampling", std::to_string(c.h) + "x" + std::to_string(c.v))
        .add("quantisation table", c.quantTable);
  for (const Scan& scan : file.scans) {
    std::string components;
    size_t coded = 0;
    for (const auto& part : scan.header.parts) {
      if (!components.empty()) components += ',';
      components += std::to_string(part.component);
    }
    for (const Bytes interval : scan.intervals) coded += interval.size();
    facts.another("scans")
        .add("components", components)
        .add("coefficients", std::to_string(scan.header.ss) + "-" + std::to_string(scan.header.se))
        .add("bits", std::to_string(scan.header.ah) + "-" + std::to_string(scan.header.al))
        .add("bytes", coded);
  }
  describeTables(file, facts);
  if (!file.metadata.exif.empty())
    facts.add("EXIF bytes", file.metadata.exif.size()).add("orientation", orientationOf(file.metadata));
  if (!file.metadata.profile.empty()) facts.add("colour profile bytes", file.metadata.profile.size());
  if (!file.missing.empty()) facts.add("missing", file.missing);
}

}  // namespace

extern const Format kJpeg;
const Format kJpeg = {"JPEG",
                      {".jpg", ".jpeg"},
                      {{"quality", "N", "1 to 100 (85)"},
                       {"sampling", "444|422|420|440|411|410",
                        "chroma planes: full, halved across, both ways (420), down, a quarter across, and half down"},
                       {"bits", "8|12", "bits of a sample, which few readers take but for 8 (8)"},
                       {"restart", "N", "a restart marker after every N rows of MCUs"},
                       {"optimize", nullptr, "Huffman tables made for the picture"},
                       {"progressive", nullptr, "several scans, coarse to fine"},
                       {"scans", "FILE", "the scan script of a file: progressive, or sequential in several scans"},
                       {"plain-colour", nullptr, "keep RGB or CMYK as it is, without luminance and chrominance"},
                       {"lossless", nullptr, "the lossless process, 2 to 16 bits"},
                       {"predictor", "N", "of the lossless process, 1 to 7 (1)"},
                       {"point-transform", "N", "low bits that the lossless process drops (0)"},
                       {"scale", "1/1|1/2|1/4|1/8", "read a reduced picture"},
                       {"filter", "box|triangle", "how chroma is spread when reading (triangle)"}},
                      recognises,
                      read,
                      write,
                      describe,
                      kProfile | kExif};

}  // namespace qelconv
