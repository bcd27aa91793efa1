// The split of 16-bit samples into a plane of high and a plane of low bytes, and the join of both.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"

namespace qelj {
namespace {

using Bytes = simd::Wide<uint8_t>;

// A length that is not positive is reported as a step.
QelStatus ownCheck(const void* src, const void* dst, int32_t len) {
  return check(nonNull(src, dst), require(len >= 1, qelStatusBadStep));
}

}  // namespace

QelStatus qeliSplitRow_TIFF_16u8u_C1(const uint16_t* src, uint8_t* const* dst, int32_t len) {
  if (auto s = ownCheck(src, dst, len); s) return s;
  uint8_t *high = dst[0], *low = dst[1];
  ptrdiff_t i = simd::coverByVectors<simd::kWideBytes>(0, len, [=](ptrdiff_t at) QELJ_INLINE_LAMBDA {
    const auto words = reinterpret_cast<const uint8_t*>(src) + 2 * at;
    const auto bytes = simd::deinterleave(load<Bytes>(words), load<Bytes>(words + simd::kWideBytes));
    store(low + at, bytes.first);
    store(high + at, bytes.second);
  });
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
  ptrdiff_t i = simd::coverByVectors<simd::kWideBytes>(0, len, [=](ptrdiff_t at) QELJ_INLINE_LAMBDA {
    const auto words = simd::interleave(load<Bytes>(low + at), load<Bytes>(high + at));
    uint8_t* to = reinterpret_cast<uint8_t*>(dst) + 2 * at;
    store(to, words.first);
    store(to + simd::kWideBytes, words.second);
  });
  for (; i < len; ++i) put(dst, i, uint16_t(high[i] << 8 | low[i]));
  return qelStatusOk;
}

}  // namespace qelj
