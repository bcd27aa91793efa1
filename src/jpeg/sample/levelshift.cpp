// The level shift of 8-bit samples (ISO/IEC 10918-1, A.3.1) as functions of their own.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "frame/rows.h"

namespace qelj {
namespace {

void ownSub128Row(const uint8_t* src, int16_t* dst, ptrdiff_t width) {
  constexpr int kGroup = simd::kLanes<simd::I16>;
  ptrdiff_t x = 0;
  if constexpr (simd::kEnabled)
    for (; x + kGroup <= width; x += kGroup)
      store(offset(dst, x), simd::loadAs<simd::I16, uint8_t>(src + x) - int16_t(128));
  for (; x < width; ++x) put(dst, x, int16_t(src[x] - 128));
}

void ownAdd128Row(const int16_t* src, uint8_t* dst, ptrdiff_t width) {
  constexpr int kGroup = simd::kLanes<simd::U8>;
  ptrdiff_t x = 0;
  if constexpr (simd::kEnabled) {
    const auto shift = all<simd::I16>(128);
    for (; x + kGroup <= width; x += kGroup) {
      const auto low = load<simd::I16>(offset(src, x));
      const auto high = load<simd::I16>(offset(src, x + kGroup / 2));
      store(dst + x, simd::orderPacked(simd::packU8(addSat(low, shift), addSat(high, shift))));
    }
  }
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
