// The split of 16-bit samples into a plane of high and a plane of low bytes, and the join of both.
#include <algorithm>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"

namespace qelj {
namespace {

// A length that is not positive is reported as a step.
QelStatus ownCheck(const void* src, const void* dst, int32_t len) {
  return check(nonNull(src, dst), require(len >= 1, qelStatusBadStep));
}

// The low bytes (first) and the high ones of two vectors of words from `at` on.
template <class V>
QELJ_INLINE simd::VectorPair<V> ownBytes(const uint16_t* src, ptrdiff_t at) {
  const auto* words = reinterpret_cast<const uint8_t*>(offset(src, at));
  return simd::deinterleave(load<V>(words), load<V>(words + sizeof(V)));
}

// By whole lines of a cache, each of which is filled at once, in each plane from its own first line on: planes that grow
// by turns in smaller steps, or across lines, take up to twice as long where they don't fit the first cache. The words of
// a line of either plane lie close enough to each other to be read twice; the source's lines are called for in time. By
// 16 bytes in every image, which is how malloc aligns: longer vectors of the source would cross lines.
constexpr ptrdiff_t kLine = 64, kFewLines = 4 * kLine, kAhead = 16 * kLine;

void ownSplitLines(const uint16_t* src, uint8_t* high, uint8_t* low, ptrdiff_t len) {
  using V = simd::U8x16;
  constexpr int kStep = int(sizeof(V));
  const auto highLine = [=](ptrdiff_t at) QELJ_INLINE_LAMBDA {
    for (ptrdiff_t i = at; i < at + kLine; i += kStep) store(high + i, ownBytes<V>(src, i).second);
  };
  const auto lowLine = [=](ptrdiff_t at) QELJ_INLINE_LAMBDA {
    for (ptrdiff_t i = at; i < at + kLine; i += kStep) store(low + i, ownBytes<V>(src, i).first);
  };
  const auto head = [](const uint8_t* plane) { return ptrdiff_t(-reinterpret_cast<uintptr_t>(plane) % kLine); };
  const ptrdiff_t highHead = head(high), lowHead = head(low), last = len - kLine;
  highLine(0), lowLine(0);
  ptrdiff_t i = 0;
  for (; i <= last - kLine; i += kLine) {
    const char* ahead = reinterpret_cast<const char*>(offset(src, i)) + kAhead;
    __builtin_prefetch(ahead), __builtin_prefetch(ahead + kLine);
    highLine(i + highHead), lowLine(i + lowHead);
  }
  highLine(std::min(i + highHead, last)), lowLine(std::min(i + lowHead, last));
  highLine(last), lowLine(last);
}

}  // namespace

QelStatus qeliSplitRow_TIFF_16u8u_C1(const uint16_t* src, uint8_t* const* dst, int32_t len) {
  if (auto s = ownCheck(src, dst, len); s) return s;
  uint8_t *high = dst[0], *low = dst[1];
  if (simd::kEnabled && len >= kFewLines) {
    ownSplitLines(src, high, low, len);
    return qelStatusOk;
  }
  const auto vector = [=]<class V>(V, ptrdiff_t at) QELJ_INLINE_LAMBDA {
    const auto bytes = ownBytes<V>(src, at);
    store(low + at, bytes.first), store(high + at, bytes.second);
  };
  ptrdiff_t i = simd::coverByWidest(0, len, vector);
  if (i == 0) i = simd::coverByVectors<16>(0, len, [=](ptrdiff_t at) QELJ_INLINE_LAMBDA { vector(simd::U8x16(), at); });
  for (; i < len; ++i) {
    const uint16_t word = at(src, i);
    high[i] = uint8_t(word >> 8);
    low[i] = uint8_t(word);
  }
  return qelStatusOk;
}

QelStatus qeliJoinRow_TIFF_8u16u_C1(const uint8_t* const* src, uint16_t* dst, int32_t len) {
  if (auto s = ownCheck(src, dst, len); s) return s;
  const uint8_t *high = src[0], *low = src[1];
  ptrdiff_t i = simd::coverByWidest(0, len, [=]<class V>(V, ptrdiff_t at) QELJ_INLINE_LAMBDA {
    const auto words = simd::interleave(load<V>(low + at), load<V>(high + at));
    uint8_t* to = reinterpret_cast<uint8_t*>(dst) + 2 * at;
    store(to, words.first);
    store(to + sizeof(V), words.second);
  });
  for (; i < len; ++i) put(dst, i, uint16_t(high[i] << 8 | low[i]));
  return qelStatusOk;
}

}  // namespace qelj
