// What an encoder decides, block by block: which symbols and bits make up a block. Encoders and statistics
// run the same steps on their own sinks (see bitwriter.h).
#ifndef QELJ_JPEG_HUFFMAN_STEPS_H
#define QELJ_JPEG_HUFFMAN_STEPS_H

#include "frame/check.h"
#include "jpeg/huffman/bitwriter.h"
#include "jpeg/huffman/scan.h"

namespace qelj::jpeg {

// The difference of the DC coefficient from the last one, which it replaces.
inline int32_t ownDcDifference(int32_t dc, int16_t* lastDC) {
  const int32_t d = dc - *lastDC;
  *lastDC = int16_t(dc);
  return d;
}

inline constexpr int kNoLimit = 17;  // above every category of a 16-bit coefficient

// The symbol of `run` zeros, 15 at most, and a value, and the value's bits. kMaxCategory is the largest that has a
// symbol, kLargest the largest that there is.
template <int kMaxCategory = kNoLimit, bool kHold = false, int kLargest = kNoLimit, class Sink>
inline QelStatus ownCodeValue(Sink& sink, typename Sink::Table table, size_t run, ValueCode value) {
  if (kMaxCategory < kNoLimit && value.category > size_t(kMaxCategory)) return qelStatusJpegCoeffRange;
  const size_t symbol = run * 16 + value.category;
  if (kLargest < 16 && symbol > 255) __builtin_unreachable();
  if constexpr (kHold) return sink.hold(table, symbol, value.bits, value.category);
  else return sink.code(table, symbol, value.bits, value.category);
}

// A block of a sequential scan (F.1.2), with its AC coefficients as AcAny, AcBytes or AcNone.
template <int kMaxDc = kNoLimit, int kMaxAc = kNoLimit, class Sink, class Ac>
[[gnu::always_inline]] inline QelStatus ownCodeBlock(Sink& sink, const Ac& ac, int32_t dcDifference,
                                                     typename Sink::Table dcTable, typename Sink::Table acTable) {
  // Of two operations, the second stores both where they fit.
  constexpr bool kHold = kMaxCode + 16 + kMaxCode + Ac::kMaxCategory <= kHeldBits;
  if (auto s = ownCodeValue<kMaxDc, kHold>(sink, dcTable, 0, ownValueCode(dcDifference)); s) return s;
  size_t next = 1;
  uint64_t set = ac.set();
  const auto one = [&](auto hold) QELJ_INLINE_LAMBDA {
    const auto k = size_t(std::countr_zero(set));
    set &= set - 1;
    size_t run = k - next;
    next = k + 1;
    for (; run > 15; run -= 16) [[unlikely]]
      if (auto s = sink.code(acTable, 0xF0); s) return s;
    return ownCodeValue<kMaxAc, hold, Ac::kMaxCategory>(sink, acTable, run, ac[k]);
  };
  while (set) {
    if (auto s = one(std::false_type()); s) return s;
    if (!set) break;
    if (auto s = one(std::bool_constant<kHold>()); s) return s;
  }
  return next < 64 ? sink.code(acTable, 0) : qelStatusOk;
}
// A block's symbols and bits: 32 at most for each coefficient, and an end of block.
template <class Ac>
inline constexpr int kMaxBlockBits = 32 + (std::is_same_v<Ac, AcNone> ? 0 : 63 * 32 + 3 * 16) + 16;

// --- progressive scans (Annex G.1.2) -----------------------------------------------------------------------
// The state carries the run of blocks that ended early, and the correction bits of those blocks.

inline constexpr uint32_t kMaxPointTransform = 13;
constexpr QelStatus pointTransform(uint32_t al) { return require(al <= kMaxPointTransform, qelStatusBadArg); }
constexpr QelStatus band(int32_t ss, int32_t se, uint32_t al) {
  return check(require(ss >= 1 && ss <= 63 && se >= ss && se <= 63, qelStatusBadArg), pointTransform(al));
}

inline constexpr int kMaxDcFirstCategory = 11;
inline constexpr int32_t kLongestRun = 0x7FFF;
// A refinement run is stored when more bits than this are pending: another block's 63 still fit, in the 1000
// bits that decoders and encoders commonly keep.
inline constexpr int32_t kMostCorrectionBits = 937;

// Correction bits, one a byte of the state's.
template <class Sink>
inline QelStatus ownStoreCorrections(Sink& sink, const QelEncodeHuffmanState* state, int32_t count) {
  // Eight at a time, the last ones with what the record has behind them: the product gathers byte i's bit at 63 - i.
  const auto eight = [state](int32_t i) {
    return (load<uint64_t>(state->correctionBits + i) & 0x0101010101010101) * 0x8040201008040201 >> 56;
  };
  int32_t i = 0;
  for (; count - i >= 32; i += 32)
    if (auto s = sink.corrections(eight(i) << 24 | eight(i + 8) << 16 | eight(i + 16) << 8 | eight(i + 24), 32); s)
      return s;
  uint64_t last = 0;
  for (; i < count; i += 8) last = last << 8 | eight(i);
  return sink.corrections(last >> (-count & 7), count & 31);
}

// Whether the pending run must be stored before another block is counted. A call stores such a run at its end, so
// that one finds it only behind a failure. Unsigned: a negative count, which no call leaves, is full as well.
inline bool ownRunIsFull(const QelEncodeHuffmanState* state) { return uint32_t(state->eobRun) >= kLongestRun; }
inline bool ownRefinedRunIsFull(const QelEncodeHuffmanState* state) {
  return ownRunIsFull(state) || uint32_t(state->correctionCount) > kMostCorrectionBits;
}
// Whether it is neither full nor will be behind another block: one without symbols then adds no bits.
inline bool ownRunHasRoom(const QelEncodeHuffmanState* state) { return uint32_t(state->eobRun) < kLongestRun - 1; }
inline bool ownRefinedRunHasRoom(const QelEncodeHuffmanState* state) {
  return ownRunHasRoom(state) && uint32_t(state->correctionCount) <= kMostCorrectionBits - 63;
}

// The pending end-of-band run. One that no call leaves has no symbol.
template <class Sink>
inline QelStatus ownStoreRun(Sink& sink, typename Sink::Table table, QelEncodeHuffmanState* state) {
  const int32_t run = state->eobRun;
  if (run == 0) return qelStatusOk;
  if (uint32_t(run) > kLongestRun) return qelStatusJpegCoeffRange;
  const int n = std::bit_width(uint32_t(run)) - 1;
  if (auto s = sink.code(table, unsigned(n) * 16, uint32_t(run) & ((1u << n) - 1), n); s) return s;
  state->eobRun = 0;
  return qelStatusOk;
}
inline constexpr int kMaxRunBits = 16 + 14;

// The same with the correction bits of its blocks; more than there is room for, or bits of no run, are none.
template <class Sink>
inline QelStatus ownStoreRefinedRun(Sink& sink, typename Sink::Table table, QelEncodeHuffmanState* state) {
  const int32_t count = state->correctionCount;
  if (uint32_t(count) > (state->eobRun ? sizeof state->correctionBits : 0)) return qelStatusJpegCoeffRange;
  if (auto s = ownStoreRun(sink, table, state); s) return s;
  state->correctionCount = 0;
  return ownStoreCorrections(sink, state, count);
}
inline constexpr int kMaxRefinedRunBits = kMaxRunBits + int(sizeof(QelEncodeHuffmanState::correctionBits));

// The coefficients that count in the first scan of a band.
inline uint64_t ownFirstSet(const int16_t* src, int ss, int se, uint32_t al) {
  return ownScanSet(src, ownShifted(al)) & ownBand(ss, se);
}
// A block of the first scan of a band.
template <class Sink>
inline QelStatus ownCodeFirst(Sink& sink, const int16_t* src, uint64_t set, int ss, int se, uint32_t al,
                              typename Sink::Table table, QelEncodeHuffmanState* state) {
  if (set || ownRunIsFull(state))
    if (auto s = ownStoreRun(sink, table, state); s) return s;
  int last = ss - 1;
  for (; set; set &= set - 1) {
    const int k = std::countr_zero(set);
    int run = k - last - 1;
    last = k;
    for (; run > 15; run -= 16)
      if (auto s = sink.code(table, 0xF0); s) return s;
    const int32_t c = at(src, kZigZag.natural[k]);
    if (auto s = ownCodeValue(sink, table, unsigned(run), ownValueCode(c < 0 ? -(-c >> al) : c >> al)); s) return s;
  }
  if (last < se && (state->eobRun += 1) == kLongestRun) return ownStoreRun(sink, table, state);
  return qelStatusOk;
}
// A run, and 63 coefficients of up to 32 bits with three runs of 16 zeros; a run in place of the last takes less.
inline constexpr int kMaxFirstBits = kMaxRunBits + 63 * 32 + 3 * 16;

// Counts a block in the pending run, with its correction bits but the first `done`.
inline void ownExtendRefinedRun(const RefineSets& sets, int done, QelEncodeHuffmanState* state) {
  state->eobRun += 1;
  if (sets.known == 0) return;
  const int count = sets.knownCount - done;
  ownSpreadBits(state->correctionBits + state->correctionCount, sets.corrections << 1 << (63 - count));
  state->correctionCount += count;
}

// A block of a refinement scan of a band.
template <class Sink>
[[gnu::always_inline]] inline QelStatus ownCodeRefine(Sink& sink, const RefineSets& sets, int ss, int se,
                                                      typename Sink::Table table, QelEncodeHuffmanState* state) {
  // The pending run comes before any symbol of this block.
  if (sets.fresh || ownRefinedRunIsFull(state))
    if (auto s = ownStoreRefinedRun(sink, table, state); s) return s;

  int first = ss, done = 0;  // the position behind the last symbol's, and the correction bits in front of that
  // The bits up to a position come behind its symbol.
  const auto correct = [&](int k) QELJ_INLINE_LAMBDA {
    const int before = std::popcount(sets.known >> (64 - k)), count = before - done;
    first = k + 1;
    done = before;
    return sink.corrections(sets.corrections >> (sets.knownCount - before), count);
  };
  for (uint64_t fresh = sets.fresh; fresh;) {
    const int k = std::countl_zero(fresh);
    fresh &= ~uint64_t(0) >> 1 >> k;
    int run = k - first - (std::popcount(sets.known >> (64 - k)) - done);
    // A run of 16 zeros has a symbol only where a new coefficient comes behind it; else it belongs to the band's end.
    for (; run > 15; run -= 16) [[unlikely]] {
      uint64_t zeros = ~(sets.known | sets.fresh) & ~uint64_t(0) >> first;
      for (int n = 0; n < 15; ++n) zeros ^= std::bit_floor(zeros);
      if (auto s = sink.code(table, 0xF0); s) return s;
      if (auto s = correct(std::countl_zero(zeros)); s) return s;
    }
    if (auto s = sink.hold(table, unsigned(run) * 16 + 1, sets.positive >> (63 - k) & 1, 1); s) return s;
    if (auto s = correct(k); s) return s;
  }
  if (first <= se) {
    ownExtendRefinedRun(sets, done, state);
    if (ownRefinedRunIsFull(state)) return ownStoreRefinedRun(sink, table, state);
  }
  return qelStatusOk;
}
// A run with its pending bits, and 63 coefficients with three runs of 16 zeros; a run behind the block takes less.
inline constexpr int kMaxRefineBits = kMaxRefinedRunBits + 63 * 17 + 3 * 16;

}  // namespace qelj::jpeg

#endif
