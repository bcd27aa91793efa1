// One block of a sequential scan (ISO/IEC 10918-1, F.1.2 and F.2.2), with a buffer length and a state record.
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/aheadreader.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

using namespace jpeg;

struct DecodedBlock {
  int16_t* dst;
  int16_t* lastDC;
  const QelDecodeHuffmanSpec *dcTable, *acTable;
};

// The DC coefficient is the last one and a difference.
inline void ownStoreDc(const DecodedBlock& block, int32_t difference) {
  *block.lastDC = addWrap(*block.lastDC, int16_t(difference));
  put(block.dst, 0, *block.lastDC);
}

// What an AC symbol says, with its value: whether the block goes on behind it. k is the position, 0 behind a failure.
inline bool ownStoreAc(const DecodedBlock& block, unsigned symbol, int32_t value, unsigned& k, QelStatus& status) {
  if ((symbol & 15) == 0) {
    if (symbol < 0xF0) return false;
    k += 16;
    return k < 64;
  }
  k += symbol >> 4;
  put(block.dst, kZigZag.natural[k], int16_t(value));
  if (++k < 64) [[likely]]
    return true;
  if (k > kGuarded) {
    put(block.dst, 63, 0);  // nothing else has been stored there: position 63 ends a block
    k = 0;
    status = qelStatusJpegBlockOverrun;
  }
  return false;
}

// How far a block has been decoded.
struct Progress {
  unsigned k = 0;  // the next position; 0 also behind a failure
  bool more = true;
  QelStatus status = qelStatusOk;
};

// Decodes on while the reader can.
QELJ_INLINE void ownDecodeAhead(AheadReader& reader, const DecodedBlock& block, Progress& progress) {
  unsigned k = progress.k;
  if (k == 0 && reader.refill()) [[likely]] {
    if (uint32_t entry = reader.peek(block.dcTable)) [[likely]]
      ownStoreDc(block, reader.take(entry));
    else if ((entry = reader.peekLong(block.dcTable))) ownStoreDc(block, reader.takeLong(entry));
    else return;
    k = 1;
  }
  for (;;) {
    if (!reader.refill()) [[unlikely]]
      break;
    uint32_t entry = reader.peek(block.acTable);
    if (entry != 0) [[likely]] {
      const int32_t value = reader.take(entry);
      progress.more = ownStoreAc(block, uint8_t(entry), value, k, progress.status);
      if (!progress.more) break;
      entry = reader.peek(block.acTable);
    }
    int32_t value;
    if (entry != 0) [[likely]] {
      value = reader.take(entry);
    } else {
      entry = reader.peekLong(block.acTable);
      if (entry == 0) break;
      value = reader.takeLong(entry);
    }
    progress.more = ownStoreAc(block, uint8_t(entry), value, k, progress.status);
    if (!progress.more) break;
  }
  progress.k = k;
}

// Decodes on as fast as possible; the result is how many bytes a BitReader should decode in any case before it is tried
// again.
QELJ_INLINE int32_t ownTryAhead(const CodedSource& source, const DecodedBlock& block, Progress& progress) {
  if constexpr (!simd::kShuffles) return INT32_MAX;
  AheadReader::Unstuffed memory;
  AheadReader reader(source.src, source.length, *source.position, *source.marker, *source.state, memory);
  if (!reader.usable()) [[unlikely]]
    return INT32_MAX;
  ownDecodeAhead(reader, block, progress);
  reader.leave(source.position, source.state);
  return reader.atEnd() ? AheadReader::kReach : 0;
}

// Decodes a symbol by the defining reader.
inline void ownDecodeSymbol(BitReader<true>& reader, const DecodedBlock& block, Progress& progress) {
  const bool dc = progress.k == 0;
  int32_t symbol, value = 0;
  progress.more = false;
  progress.status = reader.symbol(dc ? block.dcTable : block.acTable, symbol);
  if (progress.status) return;
  if (symbol & 15) progress.status = reader.value(symbol & 15, value);
  if (progress.status) {
    progress.k = 0;
  } else if (dc) {
    ownStoreDc(block, value);
    progress.k = 1;
    progress.more = true;
  } else {
    progress.more = ownStoreAc(block, unsigned(symbol), value, progress.k, progress.status);
  }
}

// Decodes on to the end: by the defining reader as long as must be, and ahead of it where that is possible. The records
// are made for the call: those that the fast half works on stay in registers.
[[gnu::noinline]] QelStatus ownDecodeRest(const CodedSource& source, const DecodedBlock& block, unsigned k,
                                          int32_t bytes) {
  Progress progress{k};
  for (;;) {
    ownDecode(source, [&](BitReader<true>& reader) {
      const int32_t start = reader.position();
      do ownDecodeSymbol(reader, block, progress);
      while (progress.more && reader.position() - start < bytes);
      return progress.status;
    });
    if (!progress.more) break;
    bytes = ownTryAhead(source, block, progress);
    if (!progress.more) break;
  }
  source.state->blockPosition = int(progress.k);
  return progress.status;
}

}  // namespace

QelStatus qeliDecodeHuffman8x8_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                             int16_t* lastDC, int32_t* marker, const QelDecodeHuffmanSpec* dcTable,
                                             const QelDecodeHuffmanSpec* acTable, QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), require(srcLen >= 0, qelStatusBadArg),
                     nonNull(srcPos, dst, lastDC, marker, dcTable, acTable, state));
      s)
    return s;
  const DecodedBlock block{dst, lastDC, dcTable, acTable};
  const CodedSource source{src, srcLen, srcPos, marker, state};
  Progress progress;
  ownClear(dst);
  const int32_t bytes = ownTryAhead(source, block, progress);
  if (progress.more) [[unlikely]]
    return ownDecodeRest({src, srcLen, srcPos, marker, state}, {dst, lastDC, dcTable, acTable}, progress.k, bytes);
  state->blockPosition = int(progress.k);
  return progress.status;
}

QelStatus qeliEncodeHuffman8x8_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                             int16_t* lastDC, const QelEncodeHuffmanSpec* dcTable,
                                             const QelEncodeHuffmanSpec* acTable, QelEncodeHuffmanState* state,
                                             int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, state)); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = nonNull(src, lastDC, dcTable, acTable); s) return s;
  const int32_t d = ownDcDifference(at(src, 0), lastDC);
  return ownWithAc(src, [=](const auto& ac) {
    return ownEncode<kMaxBlockBits>(dst, dstLen, dstPos, state,
                                    [=, &ac](auto& sink) { return ownCodeBlock(sink, ac, d, dcTable, acTable); });
  });
}

}  // namespace qelj
