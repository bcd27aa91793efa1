// One block of a progressive scan: DC and AC, first scans and refinements (ISO/IEC 10918-1, Annex G).
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/aheadreader.h"
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

// Adds bit al to the magnitudes of the set's coefficients that have not got it yet; position k is bit 63 - k.
inline void ownCorrect(int16_t* dst, uint64_t set, uint32_t al) {
  using simd::I16, simd::U16;
  if (set == 0) return;
  static constexpr auto kByte = [] {
    std::array<uint8_t, 128> byte{};
    for (size_t i = 0; i < 64; ++i) byte[2 * i] = uint8_t((63 - kZigZag.scan[i]) / 8), byte[2 * i + 1] = 0x80;
    return byte;
  }();
  static constexpr auto kBit = [] {
    std::array<uint16_t, 64> bit{};
    for (size_t i = 0; i < 64; ++i) bit[i] = uint16_t(1 << (63 - kZigZag.scan[i]) % 8);
    return bit;
  }();
  const auto bytes = as<uint8_t>(all<simd::U64>(set));
  const I16 bit = all<I16>(int16_t(1 << al));
  for (int i = 0; i < 64; i += simd::kLanes<I16>) {
    const auto wanted = load<U16>(&kBit[size_t(i)]);
    const auto chosen = as<int16_t>(
        (as<uint16_t>(simd::shuffleBytes(bytes, load<simd::U8>(&kByte[size_t(2 * i)]))) & wanted) == wanted);
    const auto c = load<I16>(offset(dst, i));
    const auto negative = as<int16_t>(c < 0);
    const I16 add = chosen & bit & ~absWrap(c);
    store(offset(dst, i), addWrap(c, subWrap(add ^ negative, negative)));
  }
}

// The positions of a set, position k at bit 63 - k, in order; how many there are. Stores up to eight bytes behind them.
inline int ownListPositions(uint64_t set, uint8_t* positions) {
  // By byte: where its ones are, from the top bit on.
  static constexpr auto kOnes = [] {
    std::array<uint64_t, 256> ones{};
    for (unsigned byte = 0; byte < 256; ++byte)
      for (int i = 0, n = 0; i < 8; ++i)
        if (byte >> (7 - i) & 1) ones[byte] |= uint64_t(i) << (8 * n++);
    return ones;
  }();
  int count = 0;
  for (int i = 0; i < 64; i += 8) {
    const unsigned byte = set >> (56 - i) & 0xFF;
    store(positions + count, kOnes[byte] + uint64_t(i) * 0x0101010101010101);
    count += std::popcount(byte);
  }
  return count;
}

// A call for a block of a refinement scan. Sets have position k at bit 63 - k, so that bits are in the stream's order.
struct RefineCall : DecoderCall {
  RefineCall(int16_t* dst, int ss, int se, uint32_t al, const QelDecodeHuffmanSpec* table, int32_t eobRun)
      : dst(dst),
        k(ss),
        se(se),
        al(al),
        table(table),
        eobRun(eobRun),
        band(ownBand<true>(ss, se)),
        known(ownNonZero<true>(dst) & band) {}

  // A run leads past zeros, whose positions are listed. The coefficients passed between them have a correction bit each:
  // these are read at once, gathered over the whole block, and added at its end.
  QELJ_INLINE void ahead(AheadReader& reader) {
    const uint64_t behind = ~uint64_t(0) >> k, toCorrect = known & behind;
    const int all = std::popcount(toCorrect);
    uint64_t bits = 0;
    int done = 0;
    const auto correct = [&](int count) QELJ_INLINE_LAMBDA {
      bits = bits << count | reader.corrections(count);
      done += count;
    };
    if (eobRun == 0) {
      uint8_t zeros[64 + 8];
      const int first = k;
      int count = -1;  // of the zeros, once they are listed: many a block ends at once
      // A short code is looked up in front of the refill, which then takes no time of its own.
      bool filled = reader.refill();
      for (int passed = 0; filled;) {
        auto code = reader.peek(table);
        if (!reader.refill()) break;
        const bool isShort = code.length != 0;
        if (!isShort) code = reader.peekLong(table);
        const int run = code.symbol >> 4, length = code.symbol & 15;
        if (code.length == 0 || length > 1) break;
        if (length == 0 && run < 15) {
          if (isShort) reader.takeCode(code);
          else reader.takeLong(code);
          eobRun = int32_t(1u << run | reader.bits(run));
          break;
        }
        if (count < 0) {
          count = ownListPositions(~known & band & behind, zeros);
          zeros[count] = uint8_t(se + 1);
        }
        const int place = std::min(passed + run, count), corrections = zeros[place] - first - place - done;
        if (corrections > AheadReader::kCorrections) [[unlikely]]
          break;
        const int32_t value = isShort ? reader.take(code) : reader.takeLong(code);
        correct(corrections);
        k = zeros[place] + 1;
        more = k <= se;
        if (place == count) [[unlikely]] {
          if (length == 1) status = qelStatusJpegCoeffRange;
          break;
        }
        put(dst, kZigZag.natural[zeros[place]], shlWrap(int16_t(value), int(al)));
        passed = place + 1;
        if (!more) break;
        filled = isShort || reader.refill();
      }
    }
    if (eobRun > 0) {
      while (done < all && reader.refill()) correct(std::min(all - done, AheadReader::kCorrections));
      if (done == all) {
        eobRun -= 1;
        more = false;
      } else {
        uint64_t left = toCorrect;
        for (int n = 0; n < done; ++n) left ^= std::bit_floor(left);
        k = std::countl_zero(left);
      }
    }
    ownCorrect(dst, simd::depositBits(bits << ((all - done) & 63), toCorrect), al);
  }

  void step(BitReader<true>& reader) {
    status = refine(reader);
    if (status) more = false;
  }

  int16_t* dst;
  int k, se;  // the next position, and the last one
  uint32_t al;
  const QelDecodeHuffmanSpec* table;
  int32_t eobRun;
  uint64_t band, known;

 private:
  // A symbol with the correction bits up to its place; in an end-of-band run, those of the rest of the band.
  QelStatus refine(BitReader<true>& reader) {
    uint64_t behind = ~uint64_t(0) >> k;
    if (eobRun == 0) {
      int32_t symbol, value = 0;
      if (auto s = reader.symbol(table, symbol); s) return s;
      const int run = symbol >> 4, length = symbol & 15;
      if (length > 1) return qelStatusJpegCoeffRange;
      if (length == 1) {
        if (auto s = reader.need(1); s) return s;
        value = reader.take(1) ? 1 : -1;
      } else if (run < 15) {
        if (auto s = reader.need(run); s) return s;
        eobRun = int32_t(1u << run | reader.take(run));
      }
      if (eobRun == 0) {
        // Past `run` zeros, to the zero behind them, or to the band's end.
        uint64_t zeros = ~known & band & behind;
        for (int n = 0; n < run; ++n) zeros &= ~std::bit_floor(zeros);
        k = zeros ? std::countl_zero(zeros) : se + 1;
        if (k < 64) behind &= ~(~uint64_t(0) >> k);
        if (auto s = correct(reader, known & behind); s) return s;
        if (length == 1) {
          if (k > se) return qelStatusJpegCoeffRange;
          put(dst, kZigZag.natural[k], shlWrap(int16_t(value), int(al)));
        }
        more = ++k <= se;
        return qelStatusOk;
      }
    }
    if (auto s = correct(reader, known & behind); s) return s;
    eobRun -= 1;
    more = false;
    return qelStatusOk;
  }

  // One correction bit for each coefficient of the set: it completes a magnitude that has not got this bit yet.
  QelStatus correct(BitReader<true>& reader, uint64_t set) {
    const int32_t bit = 1 << al;
    for (; set; set ^= std::bit_floor(set)) {
      if (auto s = reader.need(1); s) return s;
      const int i = kZigZag.natural[std::countl_zero(set)];
      const int16_t c = at(dst, i);
      const int32_t add = (0 - int32_t(reader.take(1))) & bit & ~std::abs(int32_t(c)), negative = c >> 15;
      put(dst, i, addWrap(c, int16_t((add ^ negative) - negative)));
    }
    return qelStatusOk;
  }
};

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
  int32_t eobRun = 0;
  const QelStatus s = ownDecode(
      source, [&](BitReader<true>& reader) { return ownDecodeFirst(reader, dst, ss, se, al, table, eobRun); });
  state->eobRun = eobRun;
  return s;
}

QelStatus qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                                      int32_t* marker, int32_t ss, int32_t se, uint32_t al,
                                                      const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state) {
  const CodedSource source{src, srcLen, srcPos, marker, state};
  if (auto s = checkBandDecoder(source, dst, band(ss, se, al), table); s) return s;
  RefineCall block(dst, ss, se, al, table, state->eobRun);
  if (block.eobRun < 0) return qelStatusOk;  // no call leaves this
  if (block.eobRun > 0 && block.known == 0) {
    state->eobRun -= 1;
    return qelStatusOk;
  }
  ownDecodeCall(source, block);
  state->eobRun = block.eobRun;
  return block.status;
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
  const uint64_t set = ownFirstSet(src, ss, se, al);
  if (set == 0 && ownRunHasRoom(state)) {
    state->eobRun += 1;
    return ownEncodeNothing(state);
  }
  return ownEncode<kMaxFirstBits>(dst, dstLen, dstPos, state,
                                  [=](auto& sink) { return ownCodeFirst(sink, src, set, ss, se, al, table, state); });
}

QelStatus qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                                      int32_t ss, int32_t se, uint32_t al,
                                                      const QelEncodeHuffmanSpec* table, QelEncodeHuffmanState* state,
                                                      int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, table, state)); s) return s;
  if (flush) return ownFlushBand(dst, dstLen, dstPos, table, state);
  if (auto s = check(nonNull(src), band(ss, se, al)); s) return s;
  const RefineSets sets(src, ss, se, al);
  if (sets.fresh == 0 && ownRefinedRunHasRoom(state)) {
    ownExtendRefinedRun(sets, 0, state);
    return ownEncodeNothing(state);
  }
  return ownEncode<kMaxRefineBits>(dst, dstLen, dstPos, state,
                                   [=](auto& sink) { return ownCodeRefine(sink, sets, ss, se, table, state); });
}

}  // namespace qelj
