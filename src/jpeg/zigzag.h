// The zig-zag sequence of an 8x8 block (ISO/IEC 10918-1, figure A.6).
#ifndef QELJ_JPEG_ZIGZAG_H
#define QELJ_JPEG_ZIGZAG_H

#include <cstdint>

namespace qelj::jpeg {

struct ZigZag {
  uint8_t natural[64 + 16];  // of each place in the sequence, its place in natural row order; then 63s
  uint8_t scan[64];          // of each place in natural row order, its place in the sequence
};

// The sequence runs along the anti-diagonals x + y = d, up the even ones and down the odd ones. A corrupt stream can
// run past its end, up to 78: there, too, stands a place in the block.
inline constexpr ZigZag kZigZag = [] {
  ZigZag z{};
  int place = 0;
  for (int d = 0; d < 15; ++d)
    for (int i = d < 8 ? 0 : d - 7; i <= (d < 8 ? d : 7); ++i) {
      const int x = d % 2 ? d - i : i, n = 8 * (d - x) + x;
      z.natural[place] = uint8_t(n);
      z.scan[n] = uint8_t(place++);
    }
  while (place < 64 + 16) z.natural[place++] = 63;
  return z;
}();
static_assert(kZigZag.scan[2] == 5 && kZigZag.scan[8] == 2 && kZigZag.scan[15] == 42 && kZigZag.scan[62] == 62);
inline constexpr int kGuarded = 64 + 8;  // decoders of sequential blocks refuse positions from here on

}  // namespace qelj::jpeg

#endif
