// What an encoder decides, block by block: which symbols and bits make up a block. Encoders and statistics
// run the same steps on their own sinks (see bitwriter.h).
#ifndef QELJ_JPEG_HUFFMAN_STEPS_H
#define QELJ_JPEG_HUFFMAN_STEPS_H

#include "jpeg/huffman/bitwriter.h"
#include "jpeg/huffman/scan.h"

namespace qelj {

// The difference of the DC coefficient from the last one, which it replaces.
inline int32_t ownDcDifference(int32_t dc, int16_t* lastDC) {
  const int32_t d = dc - *lastDC;
  *lastDC = int16_t(dc);
  return d;
}

inline constexpr int kNoLimit = 17;  // above every category of a 16-bit coefficient

// The symbol of `run` zeros and a value, and the value's bits.
template <class Sink>
inline QelStatus ownCodeValue(Sink& sink, typename Sink::Table table, int run, int32_t value,
                              int maxCategory) {
  const int t = ownCategory(value);
  if (t > maxCategory) return qelStatusJpegCoeffRange;
  return sink.code(table, run * 16 + t, ownValueBits(value, t), t);
}

// A block of a sequential scan (F.1.2).
template <class Sink>
inline QelStatus ownCodeBlock(Sink& sink, const int16_t* src, int32_t dcDifference,
                              typename Sink::Table dcTable, typename Sink::Table acTable,
                              int maxDc = kNoLimit, int maxAc = kNoLimit) {
  uint64_t set = ownNonZero(src) & ~uint64_t(1);
  if (auto s = ownCodeValue(sink, dcTable, 0, dcDifference, maxDc); s) return s;
  int last = 0;
  for (; set; set &= set - 1) {
    const int k = std::countr_zero(set);
    int run = k - last - 1;
    last = k;
    for (; run > 15; run -= 16)
      if (auto s = sink.code(acTable, 0xF0); s) return s;
    if (auto s = ownCodeValue(sink, acTable, run, at(src, kZigzag[k]), maxAc); s) return s;
  }
  return last < 63 ? sink.code(acTable, 0) : qelStatusOk;
}
// A block's symbols and bits: 32 at most for each coefficient, and an end of block.
inline constexpr int kMaxBlockBits = 64 * 32 + 3 * 16 + 16;

}  // namespace qelj

#endif
