// The level shift of 8-bit samples (ISO/IEC 10918-1, A.3.1) as functions of their own.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "frame/rows.h"

namespace qelj {
namespace {

void ownSub128Row(const uint8_t* src, int16_t* dst, ptrdiff_t width) {
  ptrdiff_t x = simd::coverByWidest(0, width, [=]<class V>(V, ptrdiff_t at) QELJ_INLINE_LAMBDA {
    using Words = With<int16_t, V>;
    for (int half = 0; half < int(sizeof(V)); half += simd::kLanes<Words>)
      store(offset(dst, at + half), simd::loadAs<Words, uint8_t>(src + at + half) - int16_t(128));
  });
  if (x == 0)  // the rows of blocks
    x = simd::coverByVectors<8>(0, width, [=](ptrdiff_t at) QELJ_INLINE_LAMBDA {
      store(offset(dst, at), simd::loadAs<simd::I16x8, uint8_t>(src + at) - int16_t(128));
    });
  for (; x < width; ++x) put(dst, x, int16_t(src[x] - 128));
}

void ownAdd128Row(const int16_t* src, uint8_t* dst, ptrdiff_t width) {
  ptrdiff_t x = simd::coverByWidest(0, width, [=]<class V>(V, ptrdiff_t at) QELJ_INLINE_LAMBDA {
    using Words = With<int16_t, V>;
    const auto shifted = [=](ptrdiff_t from)
                             QELJ_INLINE_LAMBDA { return addSat(load<Words>(offset(src, from)), all<Words>(128)); };
    store(dst + at, simd::orderPacked(simd::packU8(shifted(at), shifted(at + simd::kLanes<Words>))));
  });
  if (x == 0)
    x = simd::coverByVectors<8>(0, width, [=](ptrdiff_t at) QELJ_INLINE_LAMBDA {
      const auto shifted = addSat(load<simd::I16x8>(offset(src, at)), all<simd::I16x8>(128));
      store(dst + at, as<uint64_t>(simd::packU8(shifted, shifted))[0]);
    });
  for (; x < width; ++x) dst[x] = clampU8(at(src, x) + 128);
}

}  // namespace

QelStatus qeliSub128_JPEG_8u16s_C1R(const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QelSize size) {
  if (auto s = check(nonNull(src), step(srcStep), nonNull(dst), step(dstStep), area(size)); s) return s;
  return forEachRow(size, [=](int32_t y) { ownSub128Row(row(src, srcStep, y), row(dst, dstStep, y), size.width); });
}

QelStatus qeliAdd128_JPEG_16s8u_C1R(const int16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size) {
  if (auto s = check(nonNull(src), step(srcStep), nonNull(dst), step(dstStep), area(size)); s) return s;
  return forEachRow(size, [=](int32_t y) { ownAdd128Row(row(src, srcStep, y), row(dst, dstStep, y), size.width); });
}

}  // namespace qelj
