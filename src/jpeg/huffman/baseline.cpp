// One block of a sequential scan (ISO/IEC 10918-1, F.1.2 and F.2.2), with a buffer length and a state record.
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/bitreader.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

inline QelStatus ownDecodeBlock(BitReader<true>& reader, int16_t* dst, int16_t* lastDC,
                                const QelDecodeHuffmanSpec* dcTable, const QelDecodeHuffmanSpec* acTable,
                                int32_t& blockPosition) {
  ownClear(dst);
  blockPosition = 0;
  int32_t symbol, value;
  if (auto s = reader.symbol(dcTable, symbol); s) return s;
  if (symbol != 0) {
    if (auto s = reader.value(symbol & 15, value); s) return s;
    *lastDC = addWrap(*lastDC, int16_t(value));
  }
  put(dst, 0, *lastDC);

  unsigned k = 1;
  QelStatus status;
  for (;;) {
    status = reader.symbol(acTable, symbol);
    if (status) break;
    const int run = symbol >> 4, length = symbol & 15;
    if (length == 0) {
      if (run < 15) break;
      k += 16;
      if (k >= 64) break;
      continue;
    }
    k += unsigned(run);
    if (auto s = reader.value(length, value); s) return s;
    put(dst, kZigzag[k], int16_t(value));
    if (++k < 64) [[likely]]
      continue;
    if (k > kGuarded) {
      put(dst, 63, 0);  // nothing else has been stored there: position 63 ends a block
      return qelStatusJpegBlockOverrun;
    }
    break;
  }
  blockPosition = int(k);
  return status;
}

}  // namespace

QelStatus qeliDecodeHuffman8x8_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos,
                                             int16_t* dst, int16_t* lastDC, int32_t* marker,
                                             const QelDecodeHuffmanSpec* dcTable,
                                             const QelDecodeHuffmanSpec* acTable,
                                             QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), require(srcLen >= 0, qelStatusBadArg), nonNull(srcPos), nonNull(dst),
                     nonNull(lastDC), nonNull(marker), nonNull(dcTable), nonNull(acTable), nonNull(state));
      s)
    return s;
  return ownDecode(src, srcLen, srcPos, marker, state, [&](BitReader<true>& reader) {
    int32_t blockPosition;
    const QelStatus s = ownDecodeBlock(reader, dst, lastDC, dcTable, acTable, blockPosition);
    state->blockPosition = blockPosition;
    return s;
  });
}

QelStatus qeliEncodeHuffman8x8_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen,
                                             int32_t* dstPos, int16_t* lastDC,
                                             const QelEncodeHuffmanSpec* dcTable,
                                             const QelEncodeHuffmanSpec* acTable,
                                             QelEncodeHuffmanState* state, int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos), nonNull(state)); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = check(nonNull(src), nonNull(lastDC), nonNull(dcTable), nonNull(acTable)); s) return s;
  const int32_t d = ownDcDifference(at(src, 0), lastDC);
  return ownWithAc(src, [=](const auto& ac) {
    return ownEncode<kMaxBlockBits>(dst, dstLen, dstPos, state, [=, &ac](auto& sink) {
      return ownCodeBlock(sink, ac, d, dcTable, acTable);
    });
  });
}

}  // namespace qelj
