// Symbol counts for an optimising encoder, which runs the encoders' own steps on a counter, and the code
// lengths that minimise the size (ISO/IEC 10918-1, K.2).
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

using namespace jpeg;

// The limits of what the sequential statistics count; encoders go on to whatever symbol a table has.
constexpr int kMaxDcCategory = 15, kMaxAcCategory = 14;

// Counts the pending run, as a flush stores it.
QelStatus ownCountLastRun(int32_t* counters, QelEncodeHuffmanState* state) {
  SymbolCounter sink;
  if (state->eobRun > kLongestRun) {
    sink.code(counters, 0xE0);
    state->eobRun -= kLongestRun;
  }
  if (auto s = ownStoreRefinedRun(sink, counters, state); s) return s;
  std::memset(static_cast<void*>(state), 0, sizeof *state);
  return qelStatusOk;
}

template <class Step>
inline QelStatus ownCountBand(const int16_t* src, int32_t* counters, QelStatus bandStatus, QelEncodeHuffmanState* state,
                              int32_t last, Step&& step) {
  if (auto s = nonNull(counters, state); s) return s;
  if (last) return ownCountLastRun(counters, state);
  if (auto s = check(nonNull(src), bandStatus); s) return s;
  SymbolCounter sink;
  return step(sink);
}

// Lengths of the optimal prefix code of 257 symbols, the last of which is reserved: it gets one of the
// longest codes, so that no other is all ones. Ties go to the larger symbol.
constexpr int kReserved = 256, kSymbols = 257, kLongest = 32;

bool ownCodeSizes(const int32_t* counters, int (&sizes)[kSymbols]) {
  int64_t counts[kSymbols];
  int others[kSymbols];  // the next symbol of the same branch
  for (int i = 0; i < kReserved; ++i) counts[i] = at(counters, i) > 0 ? at(counters, i) : 0;
  counts[kReserved] = 1;
  for (int i = 0; i < kSymbols; ++i) others[i] = -1, sizes[i] = 0;

  const auto rarest = [&](int except) {
    int found = -1;
    for (int i = 0; i < kSymbols; ++i)
      if (counts[i] > 0 && i != except && (found < 0 || counts[i] <= counts[found])) found = i;
    return found;
  };
  for (;;) {
    int first = rarest(-1);
    const int second = rarest(first);
    if (second < 0) break;
    counts[first] += counts[second];
    counts[second] = 0;
    for (++sizes[first]; others[first] >= 0; ++sizes[first]) first = others[first];
    others[first] = second;
    for (int i = second; i >= 0; i = others[i]) ++sizes[i];
  }
  for (int size : sizes)
    if (size > kLongest) return false;
  return true;
}

// Moves codes of more than 16 bits up (Figure K.3), then takes the reserved symbol's code away.
void ownLimitSizes(int (&lengths)[kLongest + 1]) {
  for (int i = kLongest; i > 16; --i)
    while (lengths[i] > 0) {
      int j = i - 2;
      while (lengths[j] == 0) --j;
      lengths[i] -= 2;
      lengths[i - 1] += 1;
      lengths[j + 1] += 2;
      lengths[j] -= 1;
    }
  int i = 16;
  while (i > 0 && lengths[i] == 0) --i;
  if (i > 0) --lengths[i];
}

}  // namespace

QelStatus qeliGetHuffmanStatistics8x8_JPEG_16s_C1(const int16_t* src, int32_t* dcStatistics, int32_t* acStatistics,
                                                  int16_t* lastDC) {
  if (auto s = nonNull(src, dcStatistics, acStatistics, lastDC); s) return s;
  const int32_t d = ownDcDifference(at(src, 0), lastDC);
  return ownWithAc(src, [=](const auto& ac) {
    SymbolCounter sink;
    return ownCodeBlock<kMaxDcCategory, kMaxAcCategory>(sink, ac, d, dcStatistics, acStatistics);
  });
}

QelStatus qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(const int16_t* src, int32_t* dcStatistics, int16_t* lastDC,
                                                          uint32_t al) {
  if (auto s = check(nonNull(src, dcStatistics, lastDC), pointTransform(al)); s) return s;
  SymbolCounter sink;
  return ownCodeValue<kMaxDcFirstCategory>(sink, dcStatistics, 0,
                                           ownValueCode(ownDcDifference(at(src, 0) >> al, lastDC)));
}

QelStatus qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(const int16_t* src, int32_t* acStatistics, int32_t ss,
                                                          int32_t se, uint32_t al, QelEncodeHuffmanState* state,
                                                          int32_t last) {
  return ownCountBand(src, acStatistics, band(ss, se, al), state, last, [&](SymbolCounter& sink) {
    return ownCodeFirst(sink, src, ownFirstSet(src, ss, se, al), ss, se, al, acStatistics, state);
  });
}

QelStatus qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(const int16_t* src, int32_t* acStatistics, int32_t ss,
                                                           int32_t se, uint32_t al, QelEncodeHuffmanState* state,
                                                           int32_t last) {
  return ownCountBand(src, acStatistics, band(ss, se, al), state, last, [&](SymbolCounter& sink) {
    return ownCodeRefine(sink, RefineSets(src, ss, se, al), ss, se, acStatistics, state);
  });
}

QelStatus qeliGetHuffmanStatisticsOne_JPEG_16s_C1(const int16_t* src, int32_t* statistics) {
  if (auto s = nonNull(src, statistics); s) return s;
  SymbolCounter sink;
  return sink.code(statistics, unsigned(ownCategory(at(src, 0))));  // 16 at most
}

QelStatus qeliEncodeHuffmanRawTableInit_JPEG_8u(const int32_t* statistics, uint8_t* bits, uint8_t* vals) {
  if (auto s = nonNull(statistics, bits, vals); s) return s;
  int sizes[kSymbols];
  if (!ownCodeSizes(statistics, sizes)) return qelStatusJpegHuffTable;
  int lengths[kLongest + 1] = {};
  for (int size : sizes)
    if (size > 0) ++lengths[size];
  ownLimitSizes(lengths);
  for (int l = 1; l <= 16; ++l) bits[l - 1] = uint8_t(lengths[l]);
  for (int l = 1; l <= kLongest; ++l)
    for (int i = 0; i < kReserved; ++i)
      if (sizes[i] == l) *vals++ = uint8_t(i);
  return qelStatusOk;
}

}  // namespace qelj
