// One block of a sequential scan without buffer lengths or records: the position is a bit offset, and a
// marker is the only end of a segment (ISO/IEC 10918-1, F.1.2 and F.2.2).
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/bitreader.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

using namespace jpeg;

using DirectReader = BitReader<false>;

enum class Found { symbol, noCode, noBits };

// A symbol from the bits at hand; a code that is longer than the bits in front of a marker is "no bits".
inline Found ownDirectSymbol(DirectReader& reader, const QelDecodeHuffmanSpec* table, int32_t& symbol) {
  const uint32_t next = reader.peek16();
  uint32_t entry = table->lookup[next >> 8];
  if (entry != 0) [[likely]] {
    if (int(entry >> 16) > reader.count()) return Found::noBits;
  } else {
    entry = longCode(table, next);
    if (entry == 0 || int(entry >> 16) > reader.count()) {
      if (reader.search(table, 9, symbol) == qelStatusOk) return Found::symbol;
      return symbol == DirectReader::kNoCode ? Found::noCode : Found::noBits;
    }
  }
  reader.drop(int(entry >> 16));
  symbol = int32_t(entry & 0xFFFF);
  return Found::symbol;
}

inline QelStatus ownDecodeBlockDirect(DirectReader& reader, int16_t* dst, int16_t* lastDC,
                                      const QelDecodeHuffmanSpec* dcTable, const QelDecodeHuffmanSpec* acTable) {
  ownClear(dst);
  int32_t symbol, value;
  if (reader.count() < 8) {
    reader.refill(0);
    if (reader.count() == 0) return qelStatusOk;
  }
  const Found found = ownDirectSymbol(reader, dcTable, symbol);
  if (found != Found::symbol) return found == Found::noCode ? qelStatusJpegCoeffRange : qelStatusOk;
  if (symbol != 0) {
    if (reader.value(symbol & 15, value)) return qelStatusJpegOutOfBuffer;
    *lastDC = addWrap(*lastDC, int16_t(value));
  }
  put(dst, 0, *lastDC);

  for (int k = 1; k < 64;) {
    // Fewer than 8 bits in front of a marker end the block, whatever they are.
    if (reader.count() < 8) {
      reader.refill(0);
      if (reader.count() < 8) {
        reader.drop(reader.count());
        return qelStatusOk;
      }
    }
    if (!reader.codeAndValue(acTable, symbol, value)) {
      switch (ownDirectSymbol(reader, acTable, symbol)) {
        case Found::symbol:
          break;
        case Found::noCode:
          return qelStatusJpegCoeffRange;
        case Found::noBits:
          reader.drop(reader.count());
          return qelStatusOk;
      }
      if (symbol & 15)
        if (reader.value(symbol & 15, value)) return qelStatusJpegOutOfBuffer;
    }
    const int run = symbol >> 4;
    if ((symbol & 15) == 0) {
      if (run < 15) break;
      k += 16;
      continue;
    }
    k += run;
    if (k < kGuarded) put(dst, kZigZag.natural[k], int16_t(value));
    ++k;
  }
  return qelStatusOk;
}

}  // namespace

QelStatus qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(const uint8_t* src, int32_t* srcBitPos, int16_t* dst,
                                                    int16_t* lastDC, int32_t* marker, uint32_t* bitBuffer,
                                                    int32_t* bitCount, const QelDecodeHuffmanSpec* dcTable,
                                                    const QelDecodeHuffmanSpec* acTable) {
  if (auto s = nonNull(src, srcBitPos); s) return s;
  if (auto s = check(require(*srcBitPos >= 0, qelStatusBadArg), nonNull(dst, lastDC, marker, bitBuffer, bitCount)); s)
    return s;
  if (auto s = check(require(*bitCount >= 0, qelStatusBadArg), nonNull(dcTable, acTable)); s) return s;
  DirectReader reader(src, 0, *srcBitPos >> 3, *marker, *bitBuffer, std::min(*bitCount, 32));
  const QelStatus s = ownDecodeBlockDirect(reader, dst, lastDC, dcTable, acTable);
  *srcBitPos = int32_t(uint32_t(reader.position()) * 8);
  *marker = reader.marker();
  *bitBuffer = reader.buffer();
  *bitCount = reader.count();
  return s;
}

QelStatus qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t* dstBitPos,
                                                    int16_t* lastDC, const QelEncodeHuffmanSpec* dcTable,
                                                    const QelEncodeHuffmanSpec* acTable) {
  if (auto s = nonNull(src, dst, dstBitPos, lastDC, dcTable, acTable); s) return s;
  const int32_t d = ownDcDifference(at(src, 0), lastDC);
  return ownWithAc(src, [=]<class Ac>(const Ac& ac) {
    uint8_t* const start = dst + (*dstBitPos >> 3);
    const int pendingCount = *dstBitPos & 7;
    StepBits<kMaxBlockBits<Ac>> memory;
    FastWriter<kMaxBlockBits<Ac>, false> sink(memory, pendingCount ? *start >> (8 - pendingCount) : 0, pendingCount);
    ownCodeBlock(sink, ac, d, dcTable, acTable);
    // Neither a code nor a value has more than 16 bits: no more than 513 bytes, one of them partial, with all stuffed.
    if (!sink.fits(std::min(64 * 32, kMaxBlockBits<Ac>))) [[unlikely]]
      return QelStatus(qelStatusJpegHuffTable);
    const uint8_t* const end = sink.finishExactly(start);
    *dstBitPos = int32_t(uint32_t(end - dst) * 8 + uint32_t(sink.count()));
    return QelStatus(qelStatusOk);
  });
}

}  // namespace qelj
