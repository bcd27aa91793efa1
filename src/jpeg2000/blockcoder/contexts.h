// The coding contexts of a code-block and the tables that lead from a sample's neighbourhood to its context
// (ISO/IEC 15444-1, D.3).
#ifndef QELJ_JPEG2000_CONTEXTS_H
#define QELJ_JPEG2000_CONTEXTS_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "qelj.h"

namespace qelj::jpeg2000 {

// The highest bit plane has number 30: bit 31 of a sample is its sign.
inline constexpr int32_t kMagnitudeBits = 31;
// With bypass, this many planes from the top have no raw pass.
inline constexpr int32_t kPlanesBeforeBypass = 4;

inline constexpr int kContexts = 19;
inline constexpr uint8_t kUniform = 0, kRunLength = 1, kSignificance = 2, kSign = 11, kRefinement = 16;

// Nine samples as an index: the column in the east of a sample in bits 0 to 2, from north to south, the sample's own in
// 3 to 5, that in the west in 6 to 8. The sample itself, bit 4, is no neighbour.
enum : uint32_t {
  kNorthEast = 1 << 0,
  kEast = 1 << 1,
  kSouthEast = 1 << 2,
  kNorth = 1 << 3,
  kSouth = 1 << 5,
  kNorthWest = 1 << 6,
  kWest = 1 << 7,
  kSouthWest = 1 << 8,
};

// Context of a sample's significance, by its significant neighbours (Table D.1).
using SignificanceTable = std::array<uint8_t, 512>;
namespace detail {
enum class Band { lowLow, highLow, highHigh };
// The labels of Table D.1, by the significant neighbours along the band's own direction, those across it, and diagonal
// ones up to 2; of the HH band by diagonal ones up to 3, and all others up to 2.
inline constexpr uint8_t kLabels[3][3][3] = {
    {{0, 1, 2}, {3, 3, 3}, {4, 4, 4}}, {{5, 6, 6}, {7, 7, 7}, {7, 7, 7}}, {{8, 8, 8}, {8, 8, 8}, {8, 8, 8}}};
inline constexpr uint8_t kHighHighLabels[4][3] = {{0, 1, 2}, {3, 4, 5}, {6, 7, 7}, {8, 8, 8}};

constexpr SignificanceTable significanceTable(Band band) {
  SignificanceTable table{};
  for (uint32_t n = 0; n < table.size(); ++n) {
    const int h = !!(n & kEast) + !!(n & kWest), v = !!(n & kNorth) + !!(n & kSouth);
    const int d = !!(n & kSouthEast) + !!(n & kSouthWest) + !!(n & kNorthEast) + !!(n & kNorthWest);
    const int label = band == Band::highHigh  ? kHighHighLabels[std::min(d, 3)][std::min(h + v, 2)]
                      : band == Band::highLow ? kLabels[v][h][std::min(d, 2)]
                                              : kLabels[h][v][std::min(d, 2)];
    table[n] = uint8_t(kSignificance + label);
  }
  return table;
}
}  // namespace detail
// 0: LL and LH bands, 1: HL, 2: HH.
inline constexpr SignificanceTable kSignificanceTables[3] = {detail::significanceTable(detail::Band::lowLow),
                                                             detail::significanceTable(detail::Band::highLow),
                                                             detail::significanceTable(detail::Band::highHigh)};
constexpr int bandTable(int32_t subband) { return subband == qelSubbandHL ? 1 : subband == qelSubbandHH ? 2 : 0; }

// Context of a sample's sign, and in bit 7 what the sign is XORed with (Tables D.2 and D.3). Index: two bits each for
// the neighbours east, north, south and west, the first of which says that one is significant, the second that it is
// negative.
inline constexpr auto kSignTable = [] {
  std::array<uint8_t, 256> table{};
  for (uint32_t i = 0; i < table.size(); ++i) {
    const auto one = [i](int neighbour) {
      const uint32_t n = i >> 2 * neighbour;
      return n & 1 ? (n & 2 ? -1 : 1) : 0;
    };
    const int h = std::clamp(one(0) + one(3), -1, 1), v = std::clamp(one(1) + one(2), -1, 1);
    const bool flip = h < 0 || (h == 0 && v < 0);
    const int label = h == 0 ? (v != 0) : 3 + (flip ? -v : v);
    table[i] = uint8_t((kSign + label) | (flip ? 0x80 : 0));
  }
  return table;
}();

}  // namespace qelj::jpeg2000

#endif
