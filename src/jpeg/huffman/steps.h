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

// The symbol of `run` zeros and a value, and the value's bits.
template <int kMaxCategory = kNoLimit, bool kHold = false, class Sink>
inline QelStatus ownCodeValue(Sink& sink, typename Sink::Table table, unsigned run, ValueCode value) {
  if (kMaxCategory < kNoLimit && value.category > kMaxCategory) return qelStatusJpegCoeffRange;
  const unsigned symbol = run * 16 + unsigned(value.category);
  if constexpr (kHold) return sink.hold(table, symbol, value.bits, value.category);
  else return sink.code(table, symbol, value.bits, value.category);
}

// A block of a sequential scan (F.1.2), with its AC coefficients as AcValues, AcBytes or AcNone.
template <int kMaxDc = kNoLimit, int kMaxAc = kNoLimit, class Sink, class Ac>
[[gnu::always_inline]] inline QelStatus ownCodeBlock(Sink& sink, const Ac& ac, int32_t dcDifference,
                                                     typename Sink::Table dcTable, typename Sink::Table acTable) {
  // Of two operations, the second stores both where they fit.
  constexpr bool kHold = kMaxCode + 16 + kMaxCode + Ac::kMaxCategory <= kHeldBits;
  if (auto s = ownCodeValue<kMaxDc, kHold>(sink, dcTable, 0, ownValueCode(dcDifference)); s) return s;
  int next = 1;
  uint64_t set = ac.set();
  const auto one = [&](auto hold) QELJ_INLINE_LAMBDA {
    const int k = std::countr_zero(set);
    set &= set - 1;
    auto run = unsigned(k - next);
    next = k + 1;
    for (; run > 15; run -= 16) [[unlikely]]
      if (auto s = sink.code(acTable, 0xF0); s) return s;
    return ownCodeValue<kMaxAc, hold>(sink, acTable, run, ac[k]);
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

// Correction bits, one a byte.
template <class Sink>
inline QelStatus ownStoreCorrections(Sink& sink, const uint8_t* bits, int32_t count) {
  // Eight at a time: the product gathers byte i's bit at 63 - i.
  for (; count >= 8; bits += 8, count -= 8)
    if (auto s = sink.plain(uint32_t(load<uint64_t>(bits) * 0x8040201008040201u >> 56), 8); s) return s;
  for (; count > 0; ++bits, --count)
    if (auto s = sink.plain(*bits & 1, 1); s) return s;
  return qelStatusOk;
}

// Whether the pending run must be stored before another block is counted. A call stores such a run at its end, so
// that one finds it only behind a failure. Unsigned: a negative count, which no call leaves, is full as well.
inline bool ownRunIsFull(const QelEncodeHuffmanState* state) { return uint32_t(state->eobRun) >= kLongestRun; }
inline bool ownRefinedRunIsFull(const QelEncodeHuffmanState* state) {
  return ownRunIsFull(state) || uint32_t(state->correctionCount) > kMostCorrectionBits;
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
  return ownStoreCorrections(sink, state->correctionBits, count);
}
inline constexpr int kMaxRefinedRunBits = kMaxRunBits + int(sizeof(QelEncodeHuffmanState::correctionBits));

// The band's coefficients, shifted: magnitudes in 32 bits, so that -32768 has one.
inline auto ownShifted(uint32_t al) {
  return [al](auto c) {
    if constexpr (OneSample<decltype(c)>) return (c < 0 ? -c : c) >> al;
    else return as<int16_t>(as<uint16_t>(absWrap(c)) >> uint16_t(al));
  };
}

// A block of the first scan of a band.
template <class Sink>
inline QelStatus ownCodeFirst(Sink& sink, const int16_t* src, int ss, int se, uint32_t al, typename Sink::Table table,
                              QelEncodeHuffmanState* state) {
  uint64_t set = ownScanSet(src, ownShifted(al)) & ownBand(ss, se);
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

// A block of a refinement scan of a band.
template <class Sink>
[[gnu::always_inline]] inline QelStatus ownCodeRefine(Sink& sink, const int16_t* src, int ss, int se, uint32_t al,
                                                      typename Sink::Table table, QelEncodeHuffmanState* state) {
  const uint64_t band = ownBand(ss, se);
  const auto shifted = ownShifted(al);
  uint64_t set = ownScanSet(src, shifted) & band;
  // Of the coefficients that count, those with a magnitude of 1 are new, and the others have a bit to correct.
  const uint64_t fresh = set ? ownScanSet(src, [&](auto c) { return shifted(c) == 1; }) & band : 0;
  const uint64_t ones = set & ~fresh ? ownScanSet(src, [&](auto c) { return shifted(c) & 1; }) : 0;

  // The pending run comes before any symbol of this block.
  if (fresh || ownRefinedRunIsFull(state))
    if (auto s = ownStoreRefinedRun(sink, table, state); s) return s;

  uint8_t* bits = state->correctionBits + state->correctionCount;  // of this block, behind the pending ones
  int32_t count = 0, run = 0;
  const auto storeBits = [&] {
    const QelStatus s = ownStoreCorrections(sink, bits, count);
    count = 0;
    return s;
  };
  int last = ss - 1;
  for (; set; set &= set - 1) {
    const int k = std::countr_zero(set);
    run += k - last - 1;
    last = k;
    // A run of 16 zeros is stored only while a new coefficient is to come; else it belongs to the end of the band.
    for (; run > 15 && fresh >> k; run -= 16) {
      if (auto s = sink.code(table, 0xF0); s) return s;
      if (auto s = storeBits(); s) return s;
    }
    if (fresh >> k & 1) {
      if (auto s = sink.code(table, unsigned(run) * 16 + 1, at(src, kZigZag.natural[k]) >= 0, 1); s) return s;
      if (auto s = storeBits(); s) return s;
      run = 0;
    } else {
      bits[count++] = uint8_t(ones >> k & 1);
    }
  }
  if (last < se || run > 0 || count > 0) {
    state->eobRun += 1;
    state->correctionCount += count;
    if (ownRefinedRunIsFull(state)) return ownStoreRefinedRun(sink, table, state);
  }
  return qelStatusOk;
}
// A run with its pending bits, and 63 coefficients with three runs of 16 zeros; a run behind the block takes less.
inline constexpr int kMaxRefineBits = kMaxRefinedRunBits + 63 * 17 + 3 * 16;

}  // namespace qelj::jpeg

#endif
