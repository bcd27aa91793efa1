// JPEG files (ISO/IEC 10918-1): what the marker segments say, and the roads between pixels and scans.
//
//   jpeg_markers.cpp   marker segments, read and written
//   jpeg_progression.cpp  the order of scans, and scan scripts
//   jpeg_scan.cpp      entropy-coded scans to and from coefficients, by the library's block coders
//   jpeg_samples.cpp   coefficients to and from pixels, by the library's transforms and conversions
//   jpeg_lossless.cpp  the lossless process, rows of differences
//   jpeg.cpp           the format's record: options, and which road a picture takes
#ifndef QELCONV_JPEG_H
#define QELCONV_JPEG_H

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "file_limits.h"
#include "format.h"
#include "image.h"
#include "rows.h"

namespace qelconv::jpeg {

// --- what the markers say ----------------------------------------------------------------------------------

enum Marker : uint8_t {
  SOF0 = 0xC0,
  SOF1 = 0xC1,
  SOF2 = 0xC2,
  SOF3 = 0xC3,
  DHT = 0xC4,
  JPG = 0xC8,
  DAC = 0xCC,
  SOF15 = 0xCF,
  RST0 = 0xD0,
  RST7 = 0xD7,
  SOI = 0xD8,
  EOI = 0xD9,
  SOS = 0xDA,
  DQT = 0xDB,
  DNL = 0xDC,
  DRI = 0xDD,
  APP0 = 0xE0,
  APP1 = 0xE1,
  APP2 = 0xE2,
  APP13 = 0xED,
  APP14 = 0xEE,
  COM = 0xFE
};

using RawQuantTable = std::array<uint8_t, 64>;    // zig-zag order
using FileQuantTable = std::array<uint16_t, 64>;  // the same; other encoders' coarsest tables have wide entries

struct HuffmanList {
  std::array<uint8_t, 16> bits{};   // number of codes of each length
  std::array<uint8_t, 256> vals{};  // symbols in order of increasing code
  int symbols() const;
};

struct Component {
  int id = 0, h = 1, v = 1, quantTable = 0;
  // Geometry, from the frame: samples, blocks that hold them, and blocks up to whole MCUs.
  int32_t width = 0, height = 0, blocksWide = 0, blocksHigh = 0, paddedWide = 0, paddedHigh = 0;
};

struct Frame {
  uint8_t process = SOF0;  // SOF0 baseline, SOF1 extended sequential, SOF2 progressive, SOF3 lossless
  int precision = 8;
  int32_t width = 0, height = 0;
  std::vector<Component> components;
  int hMax = 1, vMax = 1;
  int32_t mcusWide = 0, mcusHigh = 0;
  void layOut();  // fills in the geometry
};

struct ScanHeader {
  struct Part {
    int component, dcTable, acTable;
  };
  std::vector<Part> parts;
  int ss = 0, se = 63, ah = 0, al = 0;
};

struct Scan {
  ScanHeader header;
  std::array<HuffmanList, 4> dc, ac;  // as they are in force
  int32_t restartInterval = 0;        // MCUs, 0: none
  std::vector<Bytes> intervals;       // entropy-coded data, each with the marker behind it (if there is one)
};

struct File {
  Frame frame;
  std::vector<FileQuantTable> quant;  // one a component, as in force at its first scan
  bool jfif = false;
  int adobe = -1;  // the colour transform of an Adobe segment, or -1
  Metadata metadata{};
  bool profileLost = false;  // parts of it are missing
  std::vector<Scan> scans;
  std::string missing;  // why the file seems to end early, or makes no sense behind the last scan
};

enum class Space { grey, ycc, rgb, cmyk, ycck };
Space spaceOf(const File& file);

File parse(const Contents& contents);  // throws where there is no scan to be had
void writeHeader(Writer& out, const Frame& frame, Space space, const std::vector<RawQuantTable>& quant,
                 const Metadata& metadata, Stages& stages);
void writeHuffman(Writer& out, int tableClass, int index, const HuffmanList& list);
void writeRestartInterval(Writer& out, int64_t interval);
void writeScanHeader(Writer& out, const Frame& frame, const ScanHeader& scan);

// --- coefficients and scans --------------------------------------------------------------------------------

// A picture's rows of MCUs, as many together as are worth a step of their own.
struct Strips {
  explicit Strips(const Frame& frame);
  int32_t first(int32_t strip) const { return strip * rows; }
  int32_t end(int32_t strip) const { return std::min(first(strip) + rows, mcusHigh); }
  int32_t rows, count, mcusHigh;
};

// The blocks of all components in some rows of MCUs, 64 coefficients each. There is room for whole MCUs, so
// that scans of any kind find their blocks.
class Coefficients {
 public:
  Coefficients(const Frame& frame, int32_t mcuRows);
  static uint64_t bytes(const Frame& frame, int32_t mcuRows);
  // The rows of MCUs are those from this one on; the blocks keep what is in them.
  void moveTo(int32_t mcuRow) { firstMcuRow_ = mcuRow; }
  void clear();
  // A row of a component's blocks, by its number in the picture.
  int16_t* row(size_t component, int32_t blockRow) {
    Plane& plane = planes_[component];
    const int32_t r = blockRow - firstMcuRow_ * plane.rowsOfMcu;
    if (r < 0 || r >= plane.rows) throw std::logic_error("a row of blocks lies outside its buffer");
    return plane.data.data() + size_t(r) * plane.step;
  }

 private:
  struct Plane {
    int32_t rowsOfMcu, rows;
    size_t step;
    std::vector<int16_t> data;
  };
  std::vector<Plane> planes_;
  int32_t firstMcuRow_ = 0;
};

// Throws where the bytes of a file's scans can't hold what they are to hold.
void expectData(const File& file, const Limits& limits);

// Decodes a scan, a row of MCUs (of blocks, where the scan has one component) at a time.
class ScanDecoder {
 public:
  ScanDecoder(const Frame& frame, const Scan& scan);
  ~ScanDecoder();
  int32_t rows() const;
  void decodeRow(int32_t row, Coefficients& coefficients);
  const uint8_t* position() const;  // in the file; what is in front of it has been decoded

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Encodes a sequential scan with given tables, a row of MCUs at a time, into `out`.
class SequentialEncoder {
 public:
  SequentialEncoder(const Frame& frame, const ScanHeader& scan, const std::array<HuffmanList, 4>& dc,
                    const std::array<HuffmanList, 4>& ac, int32_t restartInterval, std::vector<uint8_t>& out);
  ~SequentialEncoder();
  void encodeRow(int32_t row, Coefficients& coefficients);
  void drain(Destination& file);  // hands on what is in `out` so far
  void finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// The typical tables of Annex K.3: DC and AC, luminance (0) and chrominance (1).
HuffmanList typicalTable(bool ac, int index);

// Writes one scan of complete coefficients with tables made for it: DHT, SOS and data. Any kind of scan.
void writeOptimalScan(Writer& out, const Frame& frame, const ScanHeader& scan, int32_t restartInterval,
                      Coefficients& coefficients);

// --- the order of scans ------------------------------------------------------------------------------------

// What the scans of a file have given so far, and whether the next one may stand behind them: in a sequential
// file each component once, in a progressive one the bits of its coefficients in the order of G.1.1.1.
class Progression {
 public:
  explicit Progression(const Frame& frame);
  void add(const ScanHeader& scan);  // throws where the standard has no such scan here
  int firstWithoutScan() const;      // a component, or -1
  bool complete() const;             // all bits of all coefficients are there

 private:
  bool progressive_;
  int scans_ = 0;
  std::vector<int> blocksOfMcu_;                   // of each component, where a scan has several
  std::vector<std::array<int8_t, 64>> lowestBit_;  // of each component's coefficients, so far
};

// The progression that encoders usually take for a frame's components, and one in the notation of scan
// files, which may be that of a sequential file. The check throws for a script that makes no file of the
// frame.
std::vector<ScanHeader> usualProgression(const Frame& frame);
std::vector<ScanHeader> parseScanScript(const std::string& text);
bool isSequential(const std::vector<ScanHeader>& script);
void checkScanScript(const std::vector<ScanHeader>& script, const Frame& frame);

// --- coefficients and pixels -------------------------------------------------------------------------------

enum class Filter { box, triangle };

// The picture of a file, where a block becomes samples of this side: 8 is full size, 4, 2 and 1 are the reduced sizes.
Shape shapeOf(const File& file, int size);
// Whether a row of the picture wants samples of the next row of MCUs.
bool looksAhead(const Frame& frame, int size, Filter filter);

// From blocks to pixels, a strip after the other. Samples are kept for some strips, by slot (see pipeline.h),
// since the triangle filter looks into the strips above and below.
class PixelWriter {
 public:
  struct Impl;  // for the samples' size
  PixelWriter(const File& file, int size, Filter filter, const Strips& strips, int32_t slots, Rows& rows);
  ~PixelWriter();
  void transform(int32_t strip, Coefficients& coefficients);  // in any order
  void convert(int32_t strip);                                // one after the other

 private:
  std::unique_ptr<Impl> impl_;
};

// From pixels to quantised blocks, rows of MCUs in any order, one user of a slot at a time.
class PixelReader {
 public:
  struct Impl;
  PixelReader(const Shape& shape, const Rows& rows, const Frame& frame, Space space,
              const std::vector<RawQuantTable>& quant, int32_t slots);
  ~PixelReader();
  void transform(int32_t mcuRow, int32_t slot, Coefficients& coefficients);

 private:
  std::unique_ptr<Impl> impl_;
};

// --- lossless ----------------------------------------------------------------------------------------------

// Interleaved rows of differences, one plane a component.
class DifferenceDecoder {
 public:
  explicit DifferenceDecoder(const Scan& scan);
  ~DifferenceDecoder();
  void startInterval();
  void decodeRow(int32_t row, int16_t* const* planes, int32_t width);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
class DifferenceEncoder {
 public:
  DifferenceEncoder(const HuffmanList& list, int channels, std::vector<uint8_t>& out);
  ~DifferenceEncoder();
  void encodeRow(const int16_t* const* planes, int32_t width);
  void restart();
  void finish();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

Image readLossless(const File& file, const Limits& limits);
std::vector<uint8_t> writeLossless(const Image& image, int predictor, int pointTransform, int32_t restartRows,
                                   Stages& stages);

}  // namespace qelconv::jpeg

#endif
