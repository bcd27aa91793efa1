// Quantisation tables in their three forms (raw, forward, inverse), and quantisation without a transform.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "frame/rows.h"
#include "jpeg/zigzag.h"

namespace qelj {
namespace {

using namespace jpeg;

// A forward table holds 1/q with 15 fraction bits.
constexpr uint16_t kOne = 0x8000;
constexpr uint16_t kReciprocalOfZero = 0xFFFF;

// --- tables ------------------------------------------------------------------------------------------------

void ownScaleTable(uint8_t* table, int32_t quality) {
  // In percent: 100 at quality 50, 0 at 100. Above 100 it is negative, and the small entries become 1, as at 100.
  const int32_t scale = quality < 50 ? 5000 / quality : subWrap(200, mulWrap(2, quality));
  for (int i = 0; i < 64; ++i) {
    const int32_t scaled = addWrap(mulWrap(int32_t(table[i]), scale), 50) / 100;
    table[i] = scaled >= 255 ? 255 : scaled <= 0 ? 1 : uint8_t(scaled);
  }
}

// Widens a raw table and brings it from zig-zag to natural order.
void ownNaturalTable(const uint8_t* rawTable, uint16_t* table) {
  uint16_t natural[64];
  for (int n = 0; n < 64; ++n) natural[n] = rawTable[kZigZag.scan[n]];
  std::memcpy(table, natural, sizeof natural);
}

// Replaces each divisor x by the integer nearest to kOne / x. No quotient of 16-bit numbers lies on a half.
QelStatus ownqelsDivCRev_16u_omp(uint16_t* divisors, int32_t count) {
  const int32_t sharesWithZero = forEachShare(count, [=](int32_t first, int32_t shareCount) {
    bool zero = false;
    for (int32_t i = first; i < first + shareCount; ++i) {
      const uint32_t x = at(divisors, i);
      put(divisors, i, x ? uint16_t((2 * kOne + x) / (2 * x)) : kReciprocalOfZero);
      zero |= x == 0;
    }
    return zero;
  });
  return sharesWithZero ? qelStatusZeroDivisorWarning : qelStatusOk;
}

// --- blocks ------------------------------------------------------------------------------------------------

// Three fraction bits more on x and one fewer on t leave x t / 2^15 with one fraction bit in the high half of the
// product. The coefficient wraps at 4096.
struct Quantise {
  template <class V, class U>
  V operator()(V x, U t) const {
    return shr(addWrap(mulHi(shlWrap(x, 3), as<int16_t>(shr(t, 1))), all<V>(1)), 1);
  }
};
struct Dequantise {
  template <class V, class U>
  V operator()(V x, U t) const {
    return mulWrap(x, as<int16_t>(t));
  }
};

template <class Operation>
QelStatus block(int16_t* srcDst, const uint16_t* table) {
  if (auto s = nonNull(srcDst, table); s) return s;
  const auto group = [=]<class V>(int i, V) {
    int16_t* const x = offset(srcDst, i);
    store(x, Operation()(load<V>(x), load<With<uint16_t, V>>(offset(table, i))));
  };
  constexpr int kGroup = simd::kEnabled ? simd::kLanes<simd::I16> : 1;
  for (int i = 0; i < 64; i += kGroup) group(i, std::conditional_t<simd::kEnabled, simd::I16, int16_t>());
  return qelStatusOk;
}

}  // namespace

QelStatus qeliQuantFwdRawTableInit_JPEG_8u(uint8_t* table, int32_t quality) {
  if (auto s = check(nonNull(table), require(quality >= 1, qelStatusBadArg)); s) return s;
  ownScaleTable(table, quality);
  return qelStatusOk;
}

QelStatus qeliQuantFwdTableInit_JPEG_8u16u(const uint8_t* rawTable, uint16_t* table) {
  if (auto s = nonNull(rawTable, table); s) return s;
  ownNaturalTable(rawTable, table);
  return ownqelsDivCRev_16u_omp(table, 64);
}

QelStatus qeliQuantInvTableInit_JPEG_8u16u(const uint8_t* rawTable, uint16_t* table) {
  if (auto s = nonNull(rawTable, table); s) return s;
  ownNaturalTable(rawTable, table);
  return qelStatusOk;
}

QelStatus qeliQuantFwd8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table) {
  return block<Quantise>(srcDst, table);
}
QelStatus qeliQuantInv8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table) {
  return block<Dequantise>(srcDst, table);
}

}  // namespace qelj
