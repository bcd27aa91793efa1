// Constants of the 8-bit transforms as vectors; see transform.h.
#include "jpeg/dct/transform.h"

namespace qelj::jpeg::dct {
namespace {

template <class T>
consteval LaneConstant<T> every(T value) {
  LaneConstant<T> constant{};
  for (T& lane : constant.lane) lane = value;
  return constant;
}
consteval LaneConstant<int16_t> fours(int16_t outer, int16_t middle) {
  LaneConstant<int16_t> constant = every(outer);
  for (int i = 0; i < 16; i += 4) constant.lane[i + 1] = constant.lane[i + 2] = middle;
  return constant;
}
consteval LaneConstant<int16_t> halves(int16_t lower, int16_t upper) {
  LaneConstant<int16_t> constant = every(lower);
  for (int i = 8; i < 16; ++i) constant.lane[i] = upper;
  return constant;
}
consteval LaneConstant<int8_t> sumAndDifference(int8_t sum, int8_t difference) {
  LaneConstant<int8_t> constant = every(sum);
  for (int i = 16; i < 32; ++i) constant.lane[i] = int8_t(i % 2 ? -difference : difference);
  return constant;
}

// A high multiplier takes 16 fraction bits.
consteval int16_t factor(double x) { return int16_t(q16(x)); }
constexpr int16_t kTangent1 = factor(tangent(1)), kTangent2 = factor(tangent(2));
constexpr int16_t kTangent3Less1 = factor(tangent(3) - 1);
static_assert(kTangent1 == 13036 && kTangent3Less1 == -21746);

}  // namespace

constinit const LaneConstant<int16_t> kTan1 = every(kTangent1);
constinit const LaneConstant<int16_t> kTan2 = every(kTangent2);
constinit const LaneConstant<int16_t> kTan3Less1 = every(kTangent3Less1);
constinit const LaneConstant<int16_t> kCos4Less1 = every(factor(cosine(4) - 1));
constinit const LaneConstant<int16_t> kHalfCos4 = every(factor(cosine(4) / 2));
constinit const LaneConstant<int16_t> kTan1331 = fours(kTangent1, kTangent3Less1);
constinit const LaneConstant<int16_t> kNoneTan1 = halves(0, kTangent1);
constinit const LaneConstant<int16_t> kNoneTan3Less1 = halves(0, kTangent3Less1);
constinit const LaneConstant<int16_t> kTan2Tan1 = halves(kTangent2, kTangent1);
constinit const LaneConstant<int16_t> kTan2Tan3Less1 = halves(kTangent2, kTangent3Less1);
constinit const LaneConstant<int8_t> kSum8Difference8 = sumAndDifference(8, 8);
constinit const LaneConstant<int8_t> kSum8Difference16 = sumAndDifference(8, 16);
constinit const LaneConstant<int16_t> kMiddleLanes = fours(0, -1);
constinit const LaneConstant<int16_t> kOddOne = every<int16_t>(1);
constinit const LaneConstant<int16_t> kHalfOf16 = every<int16_t>(8);
constinit const LaneConstant<int16_t> kOneOf16 = every<int16_t>(1 << 11);
constinit const LaneConstant<int16_t> kSecondBit = every<int16_t>(0x4000);
constinit const LaneConstant<int16_t> kTopBit = every<int16_t>(-0x8000);
constinit const LaneConstant<uint8_t> kTopBits = every<uint8_t>(0x80);

}  // namespace qelj::jpeg::dct
