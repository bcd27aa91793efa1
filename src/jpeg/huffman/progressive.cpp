// One block of a progressive scan: DC and AC, first scans and refinements (ISO/IEC 10918-1, Annex G).
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/bitreader.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

using namespace jpeg;

// --- decoding ----------------------------------------------------------------------------------------------

inline QelStatus ownDecodeFirst(BitReader<true>& reader, int16_t* dst, int ss, int se, uint32_t al,
                                const QelDecodeHuffmanSpec* table, int32_t& eobRun) {
  for (int k = ss; k <= se;) {
    int32_t symbol, value;
    if (auto s = reader.symbol(table, symbol); s) return s;
    const int run = symbol >> 4, length = symbol & 15;
    if (length == 0) {
      if (run < 15) {
        if (auto s = reader.need(run); s) return s;
        eobRun = int32_t(1u << run | reader.take(run)) - 1;
        break;
      }
      k += 16;
      continue;
    }
    k += run;
    if (auto s = reader.value(length, value); s) return s;
    if (k > 63) return qelStatusJpegCoeffRange;
    put(dst, kZigZag.natural[k], shlWrap(int16_t(value), int(al)));
    ++k;
  }
  return qelStatusOk;
}

// One correction bit for each coefficient of the set: it completes a magnitude that has not got this bit yet.
inline QelStatus ownCorrect(BitReader<true>& reader, int16_t* dst, uint64_t set, int32_t bit) {
  for (; set; set &= set - 1) {
    if (auto s = reader.need(1); s) return s;
    const int i = kZigZag.natural[std::countr_zero(set)];
    const int16_t c = at(dst, i);
    const int32_t add = reader.take(1) && (std::abs(int32_t(c)) & bit) == 0 ? bit : 0;
    put(dst, i, addWrap(c, int16_t(c < 0 ? -add : add)));
  }
  return qelStatusOk;
}

inline QelStatus ownDecodeRefine(BitReader<true>& reader, int16_t* dst, int ss, int se, uint32_t al,
                                 const QelDecodeHuffmanSpec* table, int32_t& eobRun) {
  const int32_t bit = 1 << al;
  const uint64_t set = ownNonZero(dst) & ownBand(ss, se), zeros = ~set & ownBand(ss, se);
  uint64_t ahead = ~uint64_t(0);  // the positions from k on
  int k = ss;
  while (eobRun == 0 && k <= se) {
    ahead = ~uint64_t(0) << k;
    int32_t symbol, value = 0;
    if (auto s = reader.symbol(table, symbol); s) return s;
    const int run = symbol >> 4, length = symbol & 15;
    if (length > 1) return qelStatusJpegCoeffRange;
    if (length == 1) {
      if (auto s = reader.need(1); s) return s;
      value = reader.take(1) ? bit : -bit;
    } else if (run < 15) {
      if (auto s = reader.need(run); s) return s;
      eobRun = int32_t(1u << run | reader.take(run));
      break;
    }
    // Past `run` zeros, to the zero behind them, or to the band's end.
    uint64_t free = zeros & ahead;
    for (int n = 0; n < run; ++n) free &= free - 1;
    k = free ? std::countr_zero(free) : se + 1;
    const uint64_t passed = k < 64 ? ahead & ~(~uint64_t(0) << k) : ahead;
    if (auto s = ownCorrect(reader, dst, set & passed, bit); s) return s;
    if (length == 1) {
      if (k > se) return qelStatusJpegCoeffRange;
      put(dst, kZigZag.natural[k], int16_t(value));
    }
    ++k;
  }
  if (eobRun > 0) {
    if (auto s = ownCorrect(reader, dst, set & ahead, bit); s) return s;
    --eobRun;
  }
  return qelStatusOk;
}

// Runs one of the AC decoders; the end-of-band run is part of the state.
template <class Decode>
inline QelStatus ownDecodeBand(const CodedSource& source, Decode&& decode) {
  int32_t eobRun = source.state->eobRun;
  const QelStatus s = ownDecode(source, [&](BitReader<true>& reader) { return decode(reader, eobRun); });
  source.state->eobRun = eobRun;
  return s;
}

constexpr QelStatus checkBandDecoder(const CodedSource& source, const int16_t* dst, QelStatus bandStatus,
                                     const QelDecodeHuffmanSpec* table) {
  return check(nonNull(source.src), length(source.length), nonNull(source.position, dst, source.marker), bandStatus,
               nonNull(table, source.state));
}

// --- encoding ----------------------------------------------------------------------------------------------

// Ends a segment: the pending run, then the last byte. A run that cannot be stored leaves the state as it is.
inline QelStatus ownFlushBand(uint8_t* dst, int32_t dstLen, int32_t* dstPos, const QelEncodeHuffmanSpec* table,
                              QelEncodeHuffmanState* state) {
  if (auto s = ownEncode<kMaxRefinedRunBits>(dst, dstLen, dstPos, state,
                                             [=](auto& sink) { return ownStoreRefinedRun(sink, table, state); });
      s)
    return s;
  return ownFlush(dst, dstLen, dstPos, state);
}

constexpr QelStatus checkEncoder(const uint8_t* dst, int32_t dstLen, const int32_t* dstPos,
                                 const QelEncodeHuffmanState* state) {
  return check(nonNull(dst), length(dstLen), nonNull(dstPos, state));
}

}  // namespace

QelStatus qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                                     int16_t* lastDC, int32_t* marker, uint32_t al,
                                                     const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), length(srcLen), nonNull(srcPos, dst, lastDC, marker), pointTransform(al),
                     nonNull(table, state));
      s)
    return s;
  return ownDecode({src, srcLen, srcPos, marker, state}, [&](BitReader<true>& reader) {
    int32_t symbol, value;
    if (auto s = reader.symbol(table, symbol); s) return s;
    if (symbol != 0) {
      if (auto s = reader.value(symbol & 15, value); s) return s;
      *lastDC = addWrap(*lastDC, int16_t(value));
    }
    put(dst, 0, shlWrap(*lastDC, int(al)));
    return QelStatus(qelStatusOk);
  });
}

QelStatus qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                                      int32_t* marker, uint32_t al, QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), length(srcLen), nonNull(srcPos, dst, marker), pointTransform(al), nonNull(state)); s)
    return s;
  return ownDecode({src, srcLen, srcPos, marker, state}, [&](BitReader<true>& reader) {
    if (auto s = reader.need(1); s) return s;
    put(dst, 0, int16_t(at(dst, 0) | int32_t(reader.take(1) << al)));
    return QelStatus(qelStatusOk);
  });
}

QelStatus qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                                     int32_t* marker, int32_t ss, int32_t se, uint32_t al,
                                                     const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state) {
  const CodedSource source{src, srcLen, srcPos, marker, state};
  if (auto s = checkBandDecoder(source, dst, band(ss, se, al), table); s) return s;
  if (state->eobRun > 0) {
    state->eobRun -= 1;
    return qelStatusOk;
  }
  return ownDecodeBand(source, [&](BitReader<true>& reader, int32_t& eobRun) {
    return ownDecodeFirst(reader, dst, ss, se, al, table, eobRun);
  });
}

QelStatus qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                                      int32_t* marker, int32_t ss, int32_t se, uint32_t al,
                                                      const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state) {
  const CodedSource source{src, srcLen, srcPos, marker, state};
  if (auto s = checkBandDecoder(source, dst, band(ss, se, al), table); s) return s;
  return ownDecodeBand(source, [&](BitReader<true>& reader, int32_t& eobRun) {
    return ownDecodeRefine(reader, dst, ss, se, al, table, eobRun);
  });
}

QelStatus qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                                     int16_t* lastDC, uint32_t al, const QelEncodeHuffmanSpec* table,
                                                     QelEncodeHuffmanState* state, int32_t flush) {
  if (auto s = checkEncoder(dst, dstLen, dstPos, state); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = check(nonNull(src, lastDC), pointTransform(al), nonNull(table)); s) return s;
  const int32_t d = ownDcDifference(at(src, 0) >> al, lastDC);
  return ownEncode<32>(dst, dstLen, dstPos, state,
                       [=](auto& sink) { return ownCodeValue<kMaxDcFirstCategory>(sink, table, 0, ownValueCode(d)); });
}

QelStatus qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                                      uint32_t al, QelEncodeHuffmanState* state, int32_t flush) {
  if (auto s = checkEncoder(dst, dstLen, dstPos, state); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = check(nonNull(src), pointTransform(al)); s) return s;
  return ownEncode<1>(dst, dstLen, dstPos, state,
                      [=](auto& sink) { return sink.plain(uint32_t(at(src, 0) >> al) & 1, 1); });
}

QelStatus qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                                     int32_t ss, int32_t se, uint32_t al,
                                                     const QelEncodeHuffmanSpec* table, QelEncodeHuffmanState* state,
                                                     int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, table, state)); s) return s;
  if (flush) return ownFlushBand(dst, dstLen, dstPos, table, state);
  if (auto s = check(nonNull(src), band(ss, se, al)); s) return s;
  return ownEncode<kMaxFirstBits>(dst, dstLen, dstPos, state,
                                  [=](auto& sink) { return ownCodeFirst(sink, src, ss, se, al, table, state); });
}

QelStatus qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                                      int32_t ss, int32_t se, uint32_t al,
                                                      const QelEncodeHuffmanSpec* table, QelEncodeHuffmanState* state,
                                                      int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, table, state)); s) return s;
  if (flush) return ownFlushBand(dst, dstLen, dstPos, table, state);
  if (auto s = check(nonNull(src), band(ss, se, al)); s) return s;
  return ownEncode<kMaxRefineBits>(dst, dstLen, dstPos, state,
                                   [=](auto& sink) { return ownCodeRefine(sink, src, ss, se, al, table, state); });
}

}  // namespace qelj
