// Constants of the 8-bit transforms as vectors; see transform.h.
#include "jpeg/dct/transform.h"

namespace qelj::jpeg::dct {
namespace {
template <class T>
consteval Lanes<T> all(T value) {
  Lanes<T> constant{};
  for (T& lane : constant.lane) lane = value;
  return constant;
}
consteval Lanes<int16_t> fours(int16_t outer, int16_t middle) {
  Lanes<int16_t> constant = all(outer);
  for (int i = 0; i < 16; i += 4) constant.lane[i + 1] = constant.lane[i + 2] = middle;
  return constant;
}
}  // namespace

constinit const Lanes<int16_t> kTan1 = all<int16_t>(13036);
constinit const Lanes<int16_t> kTan2 = all<int16_t>(27146);
constinit const Lanes<int16_t> kTan3Less1 = all<int16_t>(-21746);
constinit const Lanes<int16_t> kCos4Less1 = all<int16_t>(-19195);
constinit const Lanes<int16_t> kHalfCos4 = all<int16_t>(23170);
constinit const Lanes<int16_t> kTan1331 = fours(13036, -21746);
constinit const Lanes<int16_t> kMiddleLanes = fours(0, -1);
constinit const Lanes<int16_t> kOddOne = all<int16_t>(1);
constinit const Lanes<uint8_t> kTopBits = all<uint8_t>(0x80);

}  // namespace qelj::jpeg::dct
