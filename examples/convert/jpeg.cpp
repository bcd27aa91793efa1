// The JPEG format: options, and which road a picture takes.
#include "jpeg.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <ostream>
#include <sstream>

#include "orientation.h"
#include "parallel.h"
#include "qelj_typical.h"
#include "rows.h"

namespace qelconv {
namespace {

using namespace jpeg;

bool recognises(Bytes file) { return file.size() > 3 && file[0] == 0xFF && file[1] == SOI && file[2] == 0xFF; }

// A file, and what it may ask for.
struct Input {
  Input(const Contents& contents, const Options& options, Stages& stages)
      : contents(contents),
        limits(contents, options),
        file(stages.time("markers", [&] { return parse(contents); })),
        // One scan with everything: a strip at a time, while it is in the cache.
        byStrips(file.scans.size() == 1 && !isLossless() && file.frame.process != SOF2 &&
                 file.scans[0].header.parts.size() == file.frame.components.size()) {
    if (!file.missing.empty()) limits.expectWhole(file.missing);
    if (file.profileLost) stages.lose("parts of the colour profile are missing: it is dropped");
    const Frame& frame = file.frame;
    expectData(file, limits);
    limits.expectPicture(frame.width, frame.height, int(frame.components.size()), frame.precision,
                         byStrips || isLossless() ? 0 : Coefficients::bytes(frame, frame.mcusHigh));
  }
  bool isLossless() const { return file.frame.process == SOF3; }

  const Contents& contents;
  const Limits limits;
  const File file;
  const bool byStrips;
};

// The picture of a file of transformed blocks.
class Source : public RowSource {
 public:
  Source(std::unique_ptr<Input> input, const Options& options, Stages& stages)
      : input_(std::move(input)), stages_(stages), strips_(input_->file.frame), missing_(input_->file.missing) {
    constexpr int kSizes[] = {8, 4, 2, 1};
    size_ = kSizes[options.choice("scale", {"1/1", "1/2", "1/4", "1/8"}, 0)];
    filter_ = options.choice("filter", {"box", "triangle"}, 1) ? Filter::triangle : Filter::box;
    shape_ = shapeOf(input_->file, size_);
  }

  StripRows strips() const override {
    const Frame& frame = input_->file.frame;
    return {strips_.count, strips_.rows * frame.vMax * size_, looksAhead(frame, size_, filter_), shape_.height};
  }

  std::vector<Step> steps(Rows& rows, int32_t slots) override {
    const File& file = input_->file;
    const Frame& frame = file.frame;
    pixels_.emplace(file, size_, filter_, strips_, slots, rows);
    std::vector<Step> steps;
    if (input_->byStrips) {
      for (int32_t i = 0; i < slots; ++i) coefficients_.emplace_back(frame, strips_.rows);
      decoder_.emplace(frame, file.scans[0]);
      steps.push_back({kDecoding, true, [this](int32_t i) { decodeStrip(i); }});
    } else {
      coefficients_.emplace_back(frame, frame.mcusHigh);
      stages_.time(kDecoding, [&] { decodeScans(); });
    }
    steps.push_back({"inverse DCT", false, [this](int32_t i) { pixels_->transform(i, slot(i)); }});
    steps.push_back({"upsampling and colour", true, [this](int32_t i) { pixels_->convert(i); }});
    return steps;
  }

  std::string missing() const override { return missing_; }

 private:
  static constexpr const char* kDecoding = "Huffman decoding";

  Coefficients& slot(int32_t strip) { return coefficients_[size_t(strip) % coefficients_.size()]; }

  // Decodes as far as there are data that make sense.
  template <class Work>
  void decode(Work&& work) {
    if (!more_) return;
    try {
      work();
    } catch (const Error& e) {
      input_->limits.expectWhole(e.what());
      missing_ = e.what();
      more_ = false;
    }
  }
  void decodeStrip(int32_t strip) {
    slot(strip).moveTo(strips_.first(strip));
    if (input_->limits.partial()) slot(strip).clear();
    decode([&] {
      for (int32_t row = strips_.first(strip); row < strips_.end(strip); ++row) decoder_->decodeRow(row, slot(strip));
    });
    input_->contents.forget(size_t(decoder_->position() - input_->contents.bytes().data()));
  }
  void decodeScans() {
    decode([&] {
      for (const Scan& scan : input_->file.scans) {
        ScanDecoder decoder(input_->file.frame, scan);
        for (int32_t row = 0; row < decoder.rows(); ++row) decoder.decodeRow(row, coefficients_[0]);
      }
    });
  }

  std::unique_ptr<Input> input_;
  Stages& stages_;
  const Strips strips_;
  int size_;
  Filter filter_;
  std::vector<Coefficients> coefficients_;  // by slot, or all
  std::optional<ScanDecoder> decoder_;
  std::optional<PixelWriter> pixels_;
  bool more_ = true;
  std::string missing_;
};

Image read(Bytes bytes, const Options& options, Stages& stages) {
  const Contents contents(bytes);
  auto input = std::make_unique<Input>(contents, options, stages);
  const Limits limits = input->limits;
  if (input->isLossless()) {
    Image image = stages.time("lossless decoding", [&] { return readLossless(input->file, limits); });
    image.metadata = input->file.metadata;
    return image;
  }
  Source source(std::move(input), options, stages);
  Image image = readWhole(source, stages);
  if (!image.missing.empty()) limits.expectWhole(image.missing);
  return image;
}

std::unique_ptr<RowSource> readRows(const Contents& contents, const Options& options, Stages& stages) {
  auto input = std::make_unique<Input>(contents, options, stages);
  if (input->isLossless()) return nullptr;
  return std::make_unique<Source>(std::move(input), options, stages);
}

std::string textOfFile(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  if (!file) throw Error(path + ": can't be read");
  return text.str();
}

// The frame of a picture in a colour space, chroma sampled as asked for.
Frame makeFrame(const Shape& image, Space space, const Options& options) {
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

int bitsOf(const Options& options) { return options.choice("bits", {"8", "12"}, 0) ? 12 : 8; }

// A file of transformed blocks, of grey, RGB or CMYK pictures.
class Sink : public RowSink {
 public:
  Sink(const Shape& shape, const Options& options, Stages& stages, Destination& out)
      : shape_(shape), stages_(stages), out_(out) {
    const Colour colour = shape.colour;
    space_ = colour == Colour::grey ? Space::grey : colour == Colour::rgb ? Space::ycc : Space::ycck;
    if (options.has("plain-colour"))
      space_ = colour == Colour::rgb ? Space::rgb : colour == Colour::cmyk ? Space::cmyk : space_;
    frame_ = makeFrame(shape, space_, options);
    quant_ = {std::to_array(qelTypicalQuantisers[0])};
    if (space_ == Space::ycc || space_ == Space::ycck) quant_.push_back(std::to_array(qelTypicalQuantisers[1]));
    for (auto& table : quant_)
      expectOk(qeliQuantFwdRawTableInit_JPEG_8u(table.data(), options.integer("quality", 85, 1, 100)),
               "scaling a quantiser");
    frame_.precision = shape.bits;
    restart_ = options.integer("restart", 0, 0, 65535) * frame_.mcusWide;
    script_ = {wholeScan(frame_)};
    if (options.has("scans")) script_ = parseScanScript(textOfFile(options.text("scans")));
    else if (options.has("progressive")) script_ = usualProgression(frame_);
    frame_.process = !isSequential(script_) ? SOF2 : shape.bits == 8 ? SOF0 : SOF1;
    checkScanScript(script_, frame_);
    // The typical tables end with the categories of 8-bit samples.
    byStrips_ = shape.bits == 8 && !options.has("scans") && !options.has("progressive") && !options.has("optimize");
    writeHeader(coded_, frame_, space_, quant_, shape.metadata, stages);
    writeRestartInterval(coded_, restart_);
  }

  // As many as are worth a step.
  int32_t rowsOfStrip() const { return Strips(frame_).rows * rowsOfMcu(); }

  std::vector<Step> steps(const Rows& rows, const StripRows& strips, int32_t slots) override {
    pixels_.emplace(shape_, rows, frame_, space_, quant_, slots);
    if (byStrips_) startScan();
    // A strip's rows of MCUs, which may begin with what the strip before has left.
    const auto begin = [=, this](int32_t strip) {
      const int32_t there = strips.first(strip);
      return there == shape_.height ? frame_.mcusHigh : there / rowsOfMcu();
    };
    int32_t most = 1;
    for (int32_t strip = 0; strip < strips.strips; ++strip) most = std::max(most, begin(strip + 1) - begin(strip));
    if (!byStrips_) most = frame_.mcusHigh;
    for (int32_t i = 0; i < (byStrips_ ? slots : 1); ++i) coefficients_.emplace_back(frame_, most);
    std::vector<Step> steps;
    steps.push_back({"colour and forward DCT", false, [=, this](int32_t strip) {
                       if (byStrips_) slot(strip).moveTo(begin(strip));
                       for (int32_t row = begin(strip); row < begin(strip + 1); ++row)
                         pixels_->transform(row, strip % slots, slot(strip));
                     }});
    if (byStrips_)
      steps.push_back({kCoding, true, [=, this](int32_t strip) {
                         for (int32_t row = begin(strip); row < begin(strip + 1); ++row)
                           encoder_->encodeRow(row, slot(strip));
                         encoder_->drain(out_);
                       }});
    return steps;
  }

  void finish() override {
    if (byStrips_) {
      encoder_->finish();
    } else {
      // The scans don't depend on one another.
      stages_.time(kCoding, [&] {
        out_.put(coded_.bytes);
        coded_.bytes.clear();
        std::vector<Writer> scans(script_.size());
        inParallel(scans.size(),
                   [&](size_t i) { writeOptimalScan(scans[i], frame_, script_[i], restart_, coefficients_[0]); });
        for (const Writer& scan : scans) out_.put(scan.bytes);
      });
    }
    coded_.u8(0xFF), coded_.u8(EOI);
    out_.put(coded_.bytes);
  }

 private:
  static constexpr const char* kCoding = "Huffman coding";

  int32_t rowsOfMcu() const { return 8 * frame_.vMax; }
  Coefficients& slot(int32_t strip) { return coefficients_[size_t(strip) % coefficients_.size()]; }

  void startScan() {
    std::array<HuffmanList, 4> dc, ac;
    for (size_t i = 0; i < quant_.size(); ++i) {
      writeHuffman(coded_, 0, int(i), dc[i] = typicalTable(false, int(i)));
      writeHuffman(coded_, 1, int(i), ac[i] = typicalTable(true, int(i)));
    }
    writeScanHeader(coded_, frame_, script_[0]);
    encoder_.emplace(frame_, script_[0], dc, ac, restart_, coded_.bytes);
  }

  const Shape shape_;
  Stages& stages_;
  Destination& out_;
  Space space_;
  Frame frame_;
  std::vector<RawQuantTable> quant_;
  std::vector<ScanHeader> script_;
  int32_t restart_;
  bool byStrips_;
  Writer coded_;                            // not yet in the file
  std::vector<Coefficients> coefficients_;  // by slot, or all
  std::optional<PixelReader> pixels_;
  std::optional<SequentialEncoder> encoder_;
};

// Options that the process has no use for.
void tellUnused(const Options& options, Stages& stages) {
  const bool lossless = options.has("lossless");
  if (lossless)
    for (const char* name : {"quality", "sampling", "bits", "progressive", "scans"})
      if (options.has(name)) stages.lose(std::string("--") + name + " has no meaning for the lossless process");
  if (!lossless)
    for (const char* name : {"predictor", "point-transform"})
      if (options.has(name)) stages.lose(std::string("--") + name + " has no meaning without --lossless");
}

std::vector<uint8_t> write(const Image& original, const Options& options, Stages& stages) {
  tellUnused(options, stages);
  Image adapted;
  if (options.has("lossless")) {
    const Image& image = adapt(original, adapted, stages, {Colour::grey, Colour::rgb});
    return stages.time("lossless coding", [&] {
      return writeLossless(image, options.integer("predictor", 1, 1, 7), options.integer("point-transform", 0, 0, 15),
                           options.integer("restart", 0, 0, 65535), stages);
    });
  }
  const int bits = bitsOf(options);
  const Image* image = &adapt(original, adapted, stages, {Colour::rgb, Colour::grey, Colour::cmyk}, bits);
  if (image->bits != bits) image = &(adapted = withBits(*image, bits));
  MemoryOutput out;
  out.bytes.reserve(image->data.size() / 4 + 1024);
  Sink sink(*image, options, stages, out);
  writeWhole(*image, sink.rowsOfStrip(), sink, stages);
  return std::move(out.bytes);
}

std::unique_ptr<RowSink> writeRows(const Shape& shape, const Options& options, Stages& stages, Destination& out) {
  if (options.has("lossless") || shape.half || shape.hasAlpha() || shape.bits != bitsOf(options)) return nullptr;
  tellUnused(options, stages);
  return std::make_unique<Sink>(shape, options, stages, out);
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
  const File file = parse(Contents(bytes));
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
                      kProfile | kExif,
                      readRows,
                      writeRows};

}  // namespace qelconv
