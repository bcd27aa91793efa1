// The zig-zag sequence of an 8x8 block (ISO/IEC 10918-1, figure A.6).
#ifndef QELJ_JPEG_ZIGZAG_H
#define QELJ_JPEG_ZIGZAG_H

#include <array>
#include <cstdint>

namespace qelj::jpeg {

struct ZigZag {
  std::array<uint8_t, 64> natural;  // of each place in the sequence, its place in natural row order
  std::array<uint8_t, 64> scan;     // of each place in natural row order, its place in the sequence
};

// The sequence runs along the anti-diagonals x + y = d, up the even ones and down the odd ones.
inline constexpr ZigZag kZigZag = [] {
  ZigZag z{};
  uint8_t place = 0;
  for (int d = 0; d < 15; ++d)
    for (int i = d < 8 ? 0 : d - 7; i <= (d < 8 ? d : 7); ++i) {
      const int x = d % 2 ? d - i : i, n = 8 * (d - x) + x;
      z.natural[place] = uint8_t(n);
      z.scan[size_t(n)] = place++;
    }
  return z;
}();
static_assert(kZigZag.scan[2] == 5 && kZigZag.scan[8] == 2 && kZigZag.scan[15] == 42 && kZigZag.scan[62] == 62);

}  // namespace qelj::jpeg

#endif
