// One block of a sequential scan (ISO/IEC 10918-1, F.1.2 and F.2.2), with a buffer length and a state record.
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/aheadreader.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

using namespace jpeg;

// A call for a block.
struct BlockCall : DecoderCall {
  BlockCall(int16_t* dst, int16_t* lastDC, const QelDecodeHuffmanSpec* dcTable, const QelDecodeHuffmanSpec* acTable)
      : dst(dst), lastDC(lastDC), dcTable(dcTable), acTable(acTable) {}

  // Each code is looked up in front of a refill, which then takes no time of its own: 10 bits are there, for behind a
  // refill two codes of up to 8 bits and their values are taken, or one of 16.
  QELJ_INLINE void ahead(AheadReader& reader) {
    if (!reader.refill()) [[unlikely]]
      return;
    if (k == 0) [[likely]] {
      if (auto code = reader.peek(dcTable); code.length != 0) [[likely]]
        storeDc(reader.take(code));
      else if (code = reader.peekLong(dcTable); code.length != 0) storeDc(reader.takeLong(code));
      else return;
    }
    for (;;) {
      auto code = reader.peek(acTable);
      if (!reader.refill()) [[unlikely]]
        return;
      if (code.length != 0) [[likely]] {
        if (!takeAc(reader, code)) return;
        code = reader.peek(acTable);
        if (code.length != 0) [[likely]] {
          if (!takeAc(reader, code)) return;
          continue;
        }
        if (!reader.refill()) [[unlikely]]
          return;
      }
      code = reader.peekLong(acTable);
      if (code.length == 0 || !storeAc(code.symbol, reader.takeLong(code))) return;
    }
  }

  void step(BitReader<true>& reader) {
    int32_t symbol, value = 0;
    status = reader.symbol(k == 0 ? dcTable : acTable, symbol);
    if (status == qelStatusOk && symbol & 15) {
      status = reader.value(symbol & 15, value);
      if (status) k = 0;
    }
    if (status) more = false;
    else if (k == 0) storeDc(value);
    else storeAc(unsigned(symbol), value);
  }

  int16_t *dst, *lastDC;
  const QelDecodeHuffmanSpec *dcTable, *acTable;
  unsigned k = 0;  // the next position; 0 also behind a failure

 private:
  // The DC coefficient is the last one and a difference.
  QELJ_INLINE void storeDc(int32_t difference) {
    *lastDC = addWrap(*lastDC, int16_t(difference));
    put(dst, 0, *lastDC);
    k = 1;
  }
  QELJ_INLINE bool takeAc(AheadReader& reader, AheadReader::Code code) {
    if ((code.symbol & 15) != 0) [[likely]]
      return storeAc(code.symbol, reader.take<true>(code));
    reader.takeCode(code);
    return storeAc(code.symbol, 0);
  }
  // What an AC symbol says, with its value; the result is whether there is more to come.
  QELJ_INLINE bool storeAc(unsigned symbol, int32_t value) {
    if ((symbol & 15) == 0) return (more = symbol == 0xF0 && (k += 16) < 64);
    k += symbol >> 4;
    put(dst, kZigZag.natural[k], int16_t(value));
    if (++k < 64) [[likely]]
      return true;
    if (k > kGuarded) {
      put(dst, 63, 0);  // nothing else has been stored there: position 63 ends a block
      k = 0;
      status = qelStatusJpegBlockOverrun;
    }
    return more = false;
  }
};

// Any block, also with little room behind the position; out of the way of the usual ones' registers.
[[gnu::noinline]] QelStatus ownEncodeAny(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos, int32_t d,
                                         const QelEncodeHuffmanSpec* dcTable, const QelEncodeHuffmanSpec* acTable,
                                         QelEncodeHuffmanState* state) {
  const AcAny ac(src);
  return ownEncode<kMaxBlockBits<AcAny>>(dst, dstLen, dstPos, state,
                                         [=, &ac](auto& sink) { return ownCodeBlock(sink, ac, d, dcTable, acTable); });
}

}  // namespace

QelStatus qeliDecodeHuffman8x8_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                             int16_t* lastDC, int32_t* marker, const QelDecodeHuffmanSpec* dcTable,
                                             const QelDecodeHuffmanSpec* acTable, QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), require(srcLen >= 0, qelStatusBadArg),
                     nonNull(srcPos, dst, lastDC, marker, dcTable, acTable, state));
      s)
    return s;
  // Blocks of a whole picture come from memory as fast as they are decoded: a row's next but one is asked for.
  for (int i = 128; i < 192; i += 32) __builtin_prefetch(dst + i, 1);
  ownClear(dst);
  BlockCall block(dst, lastDC, dcTable, acTable);
  ownDecodeCall({src, srcLen, srcPos, marker, state}, block);
  state->blockPosition = int(block.k);
  return block.status;
}

QelStatus qeliEncodeHuffman8x8_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                             int16_t* lastDC, const QelEncodeHuffmanSpec* dcTable,
                                             const QelEncodeHuffmanSpec* acTable, QelEncodeHuffmanState* state,
                                             int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, state)); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = nonNull(src, lastDC, dcTable, acTable); s) return s;
  const int32_t d = ownDcDifference(at(src, 0), lastDC);
  if (!simd::kShuffles || !ownHasRoom<kMaxBlockBits<AcAny>>(dstLen, *dstPos)) [[unlikely]]
    return ownEncodeAny(src, dst, dstLen, dstPos, d, dcTable, acTable, state);
  const auto code = [=]<class Ac>(const Ac& ac) QELJ_INLINE_LAMBDA {
    return ownEncodeAhead<kMaxBlockBits<Ac>>(dst, dstPos, state, [=, &ac](auto& sink) QELJ_INLINE_LAMBDA {
      return ownCodeBlock(sink, ac, d, dcTable, acTable);
    });
  };
  const AcVectors ac(src);
  if (simd::isZero(ac.bits)) return code(AcNone());
  if (AcBytes<false>::fit(ac)) [[likely]]
    return code(AcBytes<false>(ac));
  return ownEncodeAny(src, dst, dstLen, dstPos, d, dcTable, acTable, state);
}

}  // namespace qelj
