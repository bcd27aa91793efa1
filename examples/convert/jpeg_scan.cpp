// Entropy-coded scans to and from blocks of coefficients, by the library's Huffman coders.
#include <algorithm>
#include <type_traits>

#include "jpeg.h"
#include "qelj_typical.h"

namespace qelconv::jpeg {
namespace {

// --- the library's records, released by their scope --------------------------------------------------------

template <class Record, auto Free>
struct Release {
  void operator()(Record* record) const { Free(record); }
};
template <class Record, auto Free>
using Owned = std::unique_ptr<Record, Release<Record, Free>>;

using DecodeTable = Owned<QelDecodeHuffmanSpec, qeliDecodeHuffmanSpecFree_JPEG_8u>;
using EncodeTable = Owned<QelEncodeHuffmanSpec, qeliEncodeHuffmanSpecFree_JPEG_8u>;
using DecodeState = Owned<QelDecodeHuffmanState, qeliDecodeHuffmanStateFree_JPEG_8u>;
using EncodeState = Owned<QelEncodeHuffmanState, qeliEncodeHuffmanStateFree_JPEG_8u>;

// The record is stored even when the lists are not usable, so it is owned before the status is looked at.
template <class Table, class Record>
Table makeTable(const HuffmanList& list, QelStatus (*initAlloc)(const uint8_t*, const uint8_t*, Record**)) {
  Record* record = nullptr;
  const QelStatus status = initAlloc(list.bits.data(), list.vals.data(), &record);
  Table table(record);
  expectOk(status, "making a Huffman table");
  return table;
}
DecodeTable decodeTable(const HuffmanList& list) {
  if (!list.symbols()) throw Error("a Huffman table is missing");
  return makeTable<DecodeTable>(list, qeliDecodeHuffmanSpecInitAlloc_JPEG_8u);
}
template <class State, class Record>
State makeState(QelStatus (*initAlloc)(Record**)) {
  Record* record = nullptr;
  expectOk(initAlloc(&record), "making a coder state");
  return State(record);
}

void expectRow(QelStatus status, int32_t row) {
  if (status < 0)
    throw Damaged("row " + std::to_string(row) + " of a scan " +
                  (status == qelStatusJpegOutOfBuffer ? "is cut off" : "makes no sense"));
}

// The restart intervals of a scan, one after the other, and where the decoder stands in the present one.
struct IntervalReader {
  explicit IntervalReader(const Scan& scan) : scan(scan) {}
  void next() {
    if (started == scan.intervals.size()) throw Damaged("a scan's data end early");
    data = scan.intervals[started++];
    data = data.first(std::min(data.size(), size_t(INT32_MAX)));
    position = marker = 0;
    expectOk(qeliDecodeHuffmanStateInit_JPEG_8u(state.get()), "starting a restart interval");
  }
  const Scan& scan;
  size_t started = 0;
  Bytes data;
  int32_t position = 0, marker = 0;
  DecodeState state = makeState<DecodeState>(qeliDecodeHuffmanStateInitAlloc_JPEG_8u);
};

// Coded data at the end of a growing file.
class IntervalWriter {
 public:
  explicit IntervalWriter(std::vector<uint8_t>& bytes) : bytes_(bytes), start_(bytes.size()) {}
  void room(size_t more) {
    const size_t need = start_ + size_t(position) + more;
    if (bytes_.size() < need) bytes_.resize(std::max(need, 2 * bytes_.size()));
  }
  uint8_t* data() { return bytes_.data() + start_; }
  int32_t length() const { return int32_t(std::min(bytes_.size() - start_, size_t(INT32_MAX))); }
  void putRestartMarker() {
    room(2);
    data()[position++] = 0xFF;
    data()[position++] = uint8_t(RST0 + restarts_++ % 8);
  }
  void finish() { bytes_.resize(start_ + size_t(position)); }
  void drain(Destination& file) {
    file.put(Bytes(bytes_).first(start_ + size_t(position)));
    start_ = 0, position = 0;
  }

  int32_t position = 0;

 private:
  std::vector<uint8_t>& bytes_;
  size_t start_;
  int32_t restarts_ = 0;
};

// --- the order of blocks -----------------------------------------------------------------------------------

// Walks the blocks of a scan, a row of MCUs at a time, with the restarts between them. A scan of one
// component has no MCU structure: its rows are the component's own block rows (A.2.2).
class Walk {
 public:
  Walk(const Frame& frame, const ScanHeader& scan, int32_t restartInterval)
      : interval_(restartInterval), left_(restartInterval) {
    const bool single = scan.parts.size() == 1;
    for (size_t p = 0; p < scan.parts.size(); ++p) {
      const auto index = size_t(scan.parts[p].component);
      const Component& c = frame.components[index];
      const int h = single ? 1 : c.h, v = single ? 1 : c.v;
      for (int line = 0; line < v; ++line) lines_.push_back({p, index, h, v, line});
      rows_ = single ? c.blocksHigh : frame.mcusHigh;
      columns_ = single ? c.blocksWide : frame.mcusWide;
    }
  }
  int32_t rows() const { return rows_; }

  // onBlock(index of the part in the scan, block); onRestart() between two intervals.
  template <class OnRestart, class OnBlock>
  void row(int32_t row, Coefficients& coefficients, OnRestart&& onRestart, OnBlock&& onBlock) {
    for (Line& line : lines_) line.next = coefficients.row(line.component, row * line.linesOfMcu + line.number);
    for (int32_t column = 0; column < columns_; ++column) {
      if (interval_ && left_-- == 0) {
        onRestart();
        left_ = interval_ - 1;
      }
      for (Line& line : lines_)
        for (int h = 0; h < line.blocks; ++h, line.next += 64) onBlock(line.part, line.next);
    }
  }
  size_t blocksInRow() const {
    size_t blocks = 0;
    for (const Line& line : lines_) blocks += size_t(line.blocks);
    return blocks * size_t(columns_);
  }

 private:
  // What an MCU has of one row of a component's blocks.
  struct Line {
    size_t part, component;
    int blocks, linesOfMcu, number;
    int16_t* next = nullptr;
  };

  std::vector<Line> lines_;
  int32_t rows_ = 0, columns_ = 0, interval_, left_;
};

enum class Pass { sequential, dcFirst, dcRefine, acFirst, acRefine };
Pass passOf(const Frame& frame, const ScanHeader& scan) {
  if (frame.process != SOF2) return Pass::sequential;
  if (scan.ss == 0) return scan.ah ? Pass::dcRefine : Pass::dcFirst;
  return scan.ah ? Pass::acRefine : Pass::acFirst;
}

}  // namespace

Strips::Strips(const Frame& frame) : mcusHigh(frame.mcusHigh) {
  constexpr int32_t kBlocks = 1024;  // some 100 us of work, and what caches hold
  int32_t blocksInRow = 0;
  for (const Component& c : frame.components) blocksInRow += c.paddedWide * c.v;
  rows = std::clamp(kBlocks / blocksInRow, 1, mcusHigh);
  count = (mcusHigh + rows - 1) / rows;
}

Coefficients::Coefficients(const Frame& frame, int32_t mcuRows) {
  for (const Component& c : frame.components) {
    Plane plane{c.v, mcuRows * c.v, size_t(c.paddedWide) * 64, {}};
    plane.data.resize(plane.step * size_t(plane.rows));
    planes_.push_back(std::move(plane));
  }
}

uint64_t Coefficients::bytes(const Frame& frame, int32_t mcuRows) {
  uint64_t blocks = 0;
  for (const Component& c : frame.components) blocks += uint64_t(c.paddedWide) * uint64_t(mcuRows * c.v);
  return blocks * 64 * sizeof(int16_t);
}

void Coefficients::clear() {
  for (Plane& plane : planes_) std::fill(plane.data.begin(), plane.data.end(), int16_t(0));
}

// --- decoding ----------------------------------------------------------------------------------------------

void expectData(const File& file, const Limits& limits) {
  const Frame& frame = file.frame;
  uint64_t visits = 0;
  for (const Scan& scan : file.scans) {
    size_t coded = 0;
    for (const Bytes interval : scan.intervals) coded += interval.size();
    const Walk walk(frame, scan.header, 0);
    const uint64_t blocks = walk.blocksInRow() * uint64_t(walk.rows());
    // No code is shorter than a bit. A sequential block has two of them; a band of AC coefficients may end
    // for 32767 blocks at once, and costs a visit to each.
    if (frame.process == SOF3)
      limits.expectData(coded, uint64_t(frame.width) * uint64_t(frame.height) * scan.header.parts.size(), 1);
    else if (frame.process != SOF2) limits.expectData(coded, blocks, 2);
    else if (scan.header.ss == 0) limits.expectData(coded, blocks, 1);
    else visits += blocks;
  }
  limits.expectWork(visits);
}

struct ScanDecoder::Impl {
  Impl(const Frame& frame, const Scan& scan)
      : header(scan.header),
        walk(frame, scan.header, scan.restartInterval),
        pass(passOf(frame, scan.header)),
        in(scan) {
    for (const auto& part : header.parts) {
      const bool needsDc = pass == Pass::sequential || pass == Pass::dcFirst;
      const bool needsAc = pass == Pass::sequential || pass == Pass::acFirst || pass == Pass::acRefine;
      dc.push_back(needsDc ? decodeTable(scan.dc[size_t(part.dcTable)]) : nullptr);
      ac.push_back(needsAc ? decodeTable(scan.ac[size_t(part.acTable)]) : nullptr);
    }
    startInterval();
  }

  void startInterval() {
    in.next();
    lastDc.fill(0);
  }

  QelStatus decode(Pass kind, size_t part, int16_t* block) {
    const uint8_t* src = in.data.data();
    const auto length = int32_t(in.data.size());
    const auto al = uint32_t(header.al);
    int32_t *position = &in.position, *marker = &in.marker;
    QelDecodeHuffmanState* state = in.state.get();
    switch (kind) {
      case Pass::sequential:
        return qeliDecodeHuffman8x8_JPEG_1u16s_C1(src, length, position, block, &lastDc[part], marker, dc[part].get(),
                                                  ac[part].get(), state);
      case Pass::dcFirst:
        return qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(src, length, position, block, &lastDc[part], marker, al,
                                                          dc[part].get(), state);
      case Pass::dcRefine:
        return qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(src, length, position, block, marker, al, state);
      case Pass::acFirst:
        return qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(src, length, position, block, marker, header.ss, header.se,
                                                          al, ac[part].get(), state);
      case Pass::acRefine:
        return qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(src, length, position, block, marker, header.ss, header.se,
                                                           al, ac[part].get(), state);
    }
    return qelStatusBadArg;
  }

  const ScanHeader& header;
  Walk walk;
  Pass pass;
  std::vector<DecodeTable> dc, ac;
  IntervalReader in;
  std::array<int16_t, 4> lastDc{};
};

ScanDecoder::ScanDecoder(const Frame& frame, const Scan& scan) : impl_(std::make_unique<Impl>(frame, scan)) {}
ScanDecoder::~ScanDecoder() = default;
int32_t ScanDecoder::rows() const { return impl_->walk.rows(); }
const uint8_t* ScanDecoder::position() const { return impl_->in.data.data() + impl_->in.position; }

void ScanDecoder::decodeRow(int32_t row, Coefficients& coefficients) {
  const auto decodeAll = [&](auto pass) {
    impl_->walk.row(
        row, coefficients, [&] { impl_->startInterval(); },
        [&](size_t part, int16_t* block) { expectRow(impl_->decode(pass, part, block), row); });
  };
  // The blocks of most files are decided on once a row.
  if (impl_->pass == Pass::sequential) decodeAll(std::integral_constant<Pass, Pass::sequential>());
  else decodeAll(impl_->pass);
}

// --- encoding ----------------------------------------------------------------------------------------------

namespace {

// Codes the blocks of one scan, of any kind, with given tables.
class BlockEncoder {
 public:
  using Lists = std::array<HuffmanList, 4>;

  BlockEncoder(const Frame& frame, const ScanHeader& scan, const Lists& dc, const Lists& ac, int32_t restartInterval,
               std::vector<uint8_t>& out)
      : scan_(scan), walk_(frame, scan, restartInterval), pass_(passOf(frame, scan)), out_(out) {
    for (const auto& part : scan.parts) {
      dc_.push_back(table(dc[size_t(part.dcTable)]));
      ac_.push_back(table(ac[size_t(part.acTable)]));
    }
  }
  Walk& walk() { return walk_; }

  void encodeRow(int32_t row, Coefficients& coefficients) {
    walk_.row(
        row, coefficients, [&] { restart(); },
        [&](size_t part, int16_t* block) {
          out_.room(kBlockRoom);
          expectOk(encode(part, block, qelFlushNo), "coding a block");
        });
  }
  void drain(Destination& file) { out_.drain(file); }
  void finish() {
    flush();
    out_.finish();
  }

 private:
  // A block takes at most 64 codes of 16 bits with 11 bits behind each, every byte stuffed; a refinement
  // pass may bring the correction bits of a whole end-of-band run besides.
  static constexpr size_t kEndOfIntervalRoom = 4096, kBlockRoom = 512 + kEndOfIntervalRoom;

  static EncodeTable table(const HuffmanList& list) {
    if (!list.symbols()) return nullptr;
    return makeTable<EncodeTable>(list, qeliEncodeHuffmanSpecInitAlloc_JPEG_8u);
  }

  void flush() {
    out_.room(kEndOfIntervalRoom);
    expectOk(encode(0, nullptr, qelFlushYes), "ending a scan");
  }

  void restart() {
    flush();
    out_.putRestartMarker();
    lastDc_.fill(0);
  }

  QelStatus encode(size_t part, const int16_t* block, int32_t flush) {
    uint8_t* dst = out_.data();
    const int32_t length = out_.length();
    int32_t* position = &out_.position;
    const auto al = uint32_t(scan_.al);
    switch (pass_) {
      case Pass::sequential:
        return qeliEncodeHuffman8x8_JPEG_16s1u_C1(block, dst, length, position, &lastDc_[part], dc_[part].get(),
                                                  ac_[part].get(), state_.get(), flush);
      case Pass::dcFirst:
        return qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(block, dst, length, position, &lastDc_[part], al,
                                                          dc_[part].get(), state_.get(), flush);
      case Pass::dcRefine:
        return qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(block, dst, length, position, al, state_.get(), flush);
      case Pass::acFirst:
        return qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(block, dst, length, position, scan_.ss, scan_.se, al,
                                                          ac_[part].get(), state_.get(), flush);
      case Pass::acRefine:
        return qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(block, dst, length, position, scan_.ss, scan_.se, al,
                                                           ac_[part].get(), state_.get(), flush);
    }
    return qelStatusBadArg;
  }

  const ScanHeader& scan_;
  Walk walk_;
  Pass pass_;
  IntervalWriter out_;
  std::vector<EncodeTable> dc_, ac_;
  EncodeState state_ = makeState<EncodeState>(qeliEncodeHuffmanStateInitAlloc_JPEG_8u);
  std::array<int16_t, 4> lastDc_{};
};

// Counts the symbols that BlockEncoder would store for the same scan, and makes the best tables for them.
class TableMaker {
 public:
  TableMaker(const Frame& frame, const ScanHeader& scan, int32_t restartInterval, Coefficients& coefficients)
      : scan_(scan), pass_(passOf(frame, scan)) {
    Walk walk(frame, scan, restartInterval);
    const auto endInterval = [&] {
      count(0, nullptr, qelFlushYes);
      lastDc_.fill(0);
    };
    for (int32_t row = 0; row < walk.rows(); ++row)
      walk.row(row, coefficients, endInterval, [&](size_t part, int16_t* block) { count(part, block, qelFlushNo); });
    endInterval();
  }

  // The list of one class (0 DC, 1 AC) and index; empty where nothing was counted.
  HuffmanList list(int tableClass, int index) {
    HuffmanList list;
    auto& counters = counters_[size_t(tableClass)][size_t(index)];
    expectOk(qeliEncodeHuffmanRawTableInit_JPEG_8u(counters.data(), list.bits.data(), list.vals.data()),
             "making an optimal Huffman table");
    return list;
  }

 private:
  void count(size_t part, const int16_t* block, int32_t last) {
    const auto& tables = scan_.parts[part];
    int32_t* dc = counters_[0][size_t(tables.dcTable)].data();
    int32_t* ac = counters_[1][size_t(tables.acTable)].data();
    const auto al = uint32_t(scan_.al);
    QelStatus status = qelStatusOk;
    switch (pass_) {
      case Pass::sequential:
        if (!last) status = qeliGetHuffmanStatistics8x8_JPEG_16s_C1(block, dc, ac, &lastDc_[part]);
        break;
      case Pass::dcFirst:
        if (!last) status = qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(block, dc, &lastDc_[part], al);
        if (status == qelStatusJpegCoeffRange)
          throw Error(
              "a DC difference has 12 bits or more, for which progressive scans have no place (a sequential "
              "file has, and a lower quality makes it smaller)");
        break;
      case Pass::dcRefine:
        break;  // plain bits
      case Pass::acFirst:
        status = qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(block, ac, scan_.ss, scan_.se, al, state_.get(), last);
        break;
      case Pass::acRefine:
        status =
            qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(block, ac, scan_.ss, scan_.se, al, state_.get(), last);
        break;
    }
    expectOk(status, "counting symbols");
  }

  const ScanHeader& scan_;
  Pass pass_;
  std::array<std::array<std::array<int32_t, 256>, 4>, 2> counters_{};
  EncodeState state_ = makeState<EncodeState>(qeliEncodeHuffmanStateInitAlloc_JPEG_8u);
  std::array<int16_t, 4> lastDc_{};
};

}  // namespace

struct SequentialEncoder::Impl : BlockEncoder {
  using BlockEncoder::BlockEncoder;
};

SequentialEncoder::SequentialEncoder(const Frame& frame, const ScanHeader& scan, const std::array<HuffmanList, 4>& dc,
                                     const std::array<HuffmanList, 4>& ac, int32_t restartInterval,
                                     std::vector<uint8_t>& out)
    : impl_(std::make_unique<Impl>(frame, scan, dc, ac, restartInterval, out)) {}
SequentialEncoder::~SequentialEncoder() = default;
void SequentialEncoder::encodeRow(int32_t row, Coefficients& c) { impl_->encodeRow(row, c); }
void SequentialEncoder::drain(Destination& file) { impl_->drain(file); }
void SequentialEncoder::finish() { impl_->finish(); }

void writeOptimalScan(Writer& out, const Frame& frame, const ScanHeader& scan, int32_t restartInterval,
                      Coefficients& coefficients) {
  TableMaker maker(frame, scan, restartInterval, coefficients);
  std::array<std::array<HuffmanList, 4>, 2> lists;
  for (int tableClass = 0; tableClass < 2; ++tableClass)
    for (int index = 0; index < 4; ++index) {
      auto& list = lists[size_t(tableClass)][size_t(index)];
      list = maker.list(tableClass, index);
      if (list.symbols()) writeHuffman(out, tableClass, index, list);
    }
  writeScanHeader(out, frame, scan);
  BlockEncoder encoder(frame, scan, lists[0], lists[1], restartInterval, out.bytes);
  for (int32_t row = 0; row < encoder.walk().rows(); ++row) encoder.encodeRow(row, coefficients);
  encoder.finish();
}

// --- rows of differences -----------------------------------------------------------------------------------

struct DifferenceDecoder::Impl {
  explicit Impl(const Scan& scan) : scan(scan) {
    for (const auto& part : scan.header.parts) {
      tables.push_back(decodeTable(scan.dc[size_t(part.dcTable)]));
      records.push_back(tables.back().get());
    }
  }
  const Scan& scan;
  std::vector<DecodeTable> tables;
  std::vector<const QelDecodeHuffmanSpec*> records;
  IntervalReader in{scan};
};

DifferenceDecoder::DifferenceDecoder(const Scan& scan) : impl_(std::make_unique<Impl>(scan)) {}
DifferenceDecoder::~DifferenceDecoder() = default;
void DifferenceDecoder::startInterval() { impl_->in.next(); }
void DifferenceDecoder::decodeRow(int32_t row, int16_t* const* planes, int32_t width) {
  IntervalReader& in = impl_->in;
  expectRow(qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(in.data.data(), int32_t(in.data.size()), &in.position, planes, width,
                                                 int32_t(impl_->records.size()), &in.marker, impl_->records.data(),
                                                 in.state.get()),
            row);
}

struct DifferenceEncoder::Impl {
  Impl(const HuffmanList& list, int channels, std::vector<uint8_t>& out)
      : table(makeTable<EncodeTable>(list, qeliEncodeHuffmanSpecInitAlloc_JPEG_8u)),
        records(size_t(channels), table.get()),
        out(out) {}
  void encode(const int16_t* const* planes, int32_t width, int32_t flush) {
    out.room(size_t(width) * records.size() * 8 + 16);  // a code and its bits, every byte stuffed
    expectOk(qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(planes, width, int32_t(records.size()), out.data(), out.length(),
                                                  &out.position, records.data(), state.get(), flush),
             "coding a row");
  }
  EncodeTable table;
  std::vector<const QelEncodeHuffmanSpec*> records;
  IntervalWriter out;
  EncodeState state = makeState<EncodeState>(qeliEncodeHuffmanStateInitAlloc_JPEG_8u);
};

DifferenceEncoder::DifferenceEncoder(const HuffmanList& list, int channels, std::vector<uint8_t>& out)
    : impl_(std::make_unique<Impl>(list, channels, out)) {}
DifferenceEncoder::~DifferenceEncoder() = default;
void DifferenceEncoder::encodeRow(const int16_t* const* planes, int32_t width) {
  impl_->encode(planes, width, qelFlushNo);
}
void DifferenceEncoder::restart() {
  impl_->encode(nullptr, 1, qelFlushYes);
  impl_->out.putRestartMarker();
}
void DifferenceEncoder::finish() {
  impl_->encode(nullptr, 1, qelFlushYes);
  impl_->out.finish();
}

// --- tables ------------------------------------------------------------------------------------------------

HuffmanList typicalTable(bool ac, int index) {
  HuffmanList list;
  std::copy_n(ac ? qelTypicalAcBits[index] : qelTypicalDcBits[index], list.bits.size(), list.bits.begin());
  if (ac) std::copy_n(qelTypicalAcVals[index], std::size(qelTypicalAcVals[index]), list.vals.begin());
  else std::copy_n(qelTypicalDcVals, std::size(qelTypicalDcVals), list.vals.begin());
  return list;
}

}  // namespace qelconv::jpeg
