// The lossless process (ISO/IEC 10918-1, Annex H): rows of differences from a predictor.
#include <algorithm>
#include <numeric>

#include "jpeg.h"

namespace qelconv::jpeg {
namespace {

// The standard predicts unsigned samples, the library signed ones. So samples go through the rows less 32768:
// with their top bit flipped. Every prediction from neighbours shrinks by as much, and their differences
// stay; only the first difference of a scan or behind a restart, from a fixed prediction, has to be flipped
// as well.
using Row = std::vector<int16_t>;
constexpr int kFlip = 0x8000;

void readScan(const Frame& frame, const Scan& scan, Image& image) {
  const auto& parts = scan.header.parts;
  const int predictor = scan.header.ss, shift = scan.header.al;
  const int32_t restartRows = scan.restartInterval / frame.width;
  const uint32_t top = (1u << frame.precision) - 1;
  const auto channels = size_t(image.channels());

  std::vector<Row> rows(parts.size(), Row(size_t(frame.width))), above = rows, differences = rows;
  std::vector<int16_t*> planes;
  for (auto& row : differences) planes.push_back(row.data());
  DifferenceDecoder decoder(scan);
  for (int32_t y = 0; y < frame.height; ++y) {
    const bool first = restartRows ? y % restartRows == 0 : y == 0;
    if (first) decoder.startInterval();
    decoder.decodeRow(y, planes.data(), frame.width);
    for (size_t p = 0; p < parts.size(); ++p) {
      std::swap(rows[p], above[p]);
      if (first) differences[p][0] = int16_t(differences[p][0] ^ kFlip);
      expectOk(first ? qeliReconstructPredFirstRow_JPEG_16s_C1(differences[p].data(), rows[p].data(), frame.width,
                                                               frame.precision, shift)
                     : qeliReconstructPredRow_JPEG_16s_C1(differences[p].data(), above[p].data(), rows[p].data(),
                                                          frame.width, predictor),
               "undoing the prediction");
      const size_t at = size_t(y) * size_t(frame.width);
      for (size_t x = 0; x < size_t(frame.width); ++x)
        image.setSample((at + x) * channels + size_t(parts[p].component),
                        uint32_t(uint16_t(rows[p][x] ^ kFlip)) << shift & top);
    }
  }
}

}  // namespace

Image readLossless(const File& file, const Limits& limits) {
  const Frame& frame = file.frame;
  if (frame.components.size() > 3) throw Error("lossless files of more than three components can't be read");
  for (const Component& c : frame.components)
    if (c.h != frame.hMax || c.v != frame.vMax) throw Error("lossless files with subsampled components can't be read");
  Image image(frame.width, frame.height, frame.components.size() == 1 ? Colour::grey : Colour::rgb, frame.precision);
  for (const Scan& scan : file.scans) {
    const ScanHeader& header = scan.header;
    if (header.ss < 1 || header.ss > 7 || header.al >= frame.precision) throw Error("a lossless scan header is wrong");
    if (header.parts.size() > 1 && frame.hMax * frame.vMax > 1)
      throw Error("lossless files with several samples of a component in an MCU can't be read");
    if (scan.restartInterval % frame.width) throw Error("restarts inside a row can't be read");
  }
  if (!file.missing.empty()) limits.onlyPart(image, file.missing);
  try {
    for (const Scan& scan : file.scans) readScan(frame, scan, image);
  } catch (const Error& e) {
    limits.onlyPart(image, e.what());
  }
  return image;
}

std::vector<uint8_t> writeLossless(const Image& image, int predictor, int shift, int32_t restartRows, Stages& stages) {
  if (image.bits < 2) throw Error("the lossless process holds 2 to 16 bits");
  if (shift >= image.bits) throw Error("the point transform drops every bit");
  const auto channels = size_t(image.channels());
  const auto width = size_t(image.width);

  // Differences of the whole picture, a row of each component after the other.
  std::vector<int16_t> differences(size_t(image.height) * channels * width);
  std::vector<Row> rows(channels, Row(width)), above = rows;
  std::array<int32_t, 256> counters{};
  for (int32_t y = 0; y < image.height; ++y) {
    const bool first = restartRows ? y % restartRows == 0 : y == 0;
    for (size_t c = 0; c < channels; ++c) {
      std::swap(rows[c], above[c]);
      for (size_t x = 0; x < width; ++x)
        rows[c][x] = int16_t(image.sample((size_t(y) * width + x) * channels + c) >> shift ^ kFlip);
      int16_t* out = &differences[(size_t(y) * channels + c) * width];
      expectOk(first ? qeliDiffPredFirstRow_JPEG_16s_C1(rows[c].data(), out, image.width, image.bits, shift)
                     : qeliDiffPredRow_JPEG_16s_C1(rows[c].data(), above[c].data(), out, image.width, predictor),
               "predicting a row");
      if (first) out[0] = int16_t(out[0] ^ kFlip);
      for (size_t x = 0; x < width; ++x)
        expectOk(qeliGetHuffmanStatisticsOne_JPEG_16s_C1(out + x, counters.data()), "counting symbols");
    }
  }

  Frame frame;
  frame.process = SOF3;
  frame.precision = image.bits;
  frame.width = image.width, frame.height = image.height;
  for (size_t c = 0; c < channels; ++c) frame.components.push_back({channels == 1 ? 1 : "RGB"[c], 1, 1, 0});
  frame.layOut();
  ScanHeader scan{{}, predictor, 0, 0, shift};
  for (int c = 0; c < int(channels); ++c) scan.parts.push_back({c, 0, 0});
  HuffmanList list;
  expectOk(qeliEncodeHuffmanRawTableInit_JPEG_8u(counters.data(), list.bits.data(), list.vals.data()),
           "making an optimal Huffman table");

  Writer out;
  writeHeader(out, frame, channels == 1 ? Space::grey : Space::rgb, {}, image.metadata, stages);
  writeRestartInterval(out, int64_t(restartRows) * image.width);
  writeHuffman(out, 0, 0, list);
  writeScanHeader(out, frame, scan);
  DifferenceEncoder encoder(list, int(channels), out.bytes);
  for (int32_t y = 0; y < image.height; ++y) {
    if (y && restartRows && y % restartRows == 0) encoder.restart();
    std::vector<const int16_t*> planes;
    for (size_t c = 0; c < channels; ++c) planes.push_back(&differences[(size_t(y) * channels + c) * width]);
    encoder.encodeRow(planes.data(), image.width);
  }
  encoder.finish();
  out.u8(0xFF), out.u8(EOI);
  return std::move(out.bytes);
}

}  // namespace qelconv::jpeg
