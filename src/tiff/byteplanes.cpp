// The split of 16-bit samples into a plane of high and a plane of low bytes, and the join of both.
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

}  // namespace

QelStatus qeliSplitRow_TIFF_16u8u_C1(const uint16_t* src, uint8_t* const* dst, int32_t len) {
  if (auto s = ownCheck(src, dst, len); s) return s;
  uint8_t *high = dst[0], *low = dst[1];
  // By whole lines of a cache, each of which is filled at once: planes that grow by turns in smaller steps take one and a
  // half times as long where they don't fit the first cache.
  constexpr int kLine = 64;
  const auto split = [=]<class V, int kCount>(V, ptrdiff_t at, std::integral_constant<int, kCount>) QELJ_INLINE_LAMBDA {
    simd::VectorPair<V> bytes[kCount];
    const auto* words = reinterpret_cast<const uint8_t*>(src) + 2 * at;
    constexpr int kStep = int(sizeof(V));
    simd::unroll<kCount>([&](auto k) QELJ_INLINE_LAMBDA {
      bytes[k] = simd::deinterleave(load<V>(words + 2 * k * kStep), load<V>(words + (2 * k + 1) * kStep));
    });
    simd::unroll<kCount>([&](auto k) QELJ_INLINE_LAMBDA { store(low + at + k * kStep, bytes[k].first); });
    simd::unroll<kCount>([&](auto k) QELJ_INLINE_LAMBDA { store(high + at + k * kStep, bytes[k].second); });
  };
  ptrdiff_t i = simd::coverByVectors<kLine>(0, len, [=](ptrdiff_t at) QELJ_INLINE_LAMBDA {
    split(simd::Wide<uint8_t>(), at, std::integral_constant<int, kLine / simd::kWideBytes>());
  });
  if (i == 0)
    i = simd::coverByVectors(
        0, len, [=](ptrdiff_t at) QELJ_INLINE_LAMBDA { split(simd::U8(), at, std::integral_constant<int, 1>()); });
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
