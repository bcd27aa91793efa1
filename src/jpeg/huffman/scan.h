// A block of 64 coefficients: clearing it, and which of its coefficients count, as a bit set in zig-zag
// order, so that encoders visit only those.
#ifndef QELJ_JPEG_HUFFMAN_SCAN_H
#define QELJ_JPEG_HUFFMAN_SCAN_H

#include <array>

#include "frame/simd.h"
#include "jpeg/huffman/records.h"

namespace qelj {

inline void ownClear(int16_t* block) {
  for (int i = 0; i < 128; i += simd::kBytes) simd::store(row(block, 1, i), simd::I16{});
}

// Bit k of the result tells whether flag(coefficient at zig-zag position k) is non-zero. `flag` maps an
// int16_t to an integer, and a vector of them to a vector.
template <class Flag>
inline uint64_t ownScanSet(const int16_t* block, Flag&& flag) {
  uint64_t set = 0;
  if constexpr (simd::kEnabled) {
    using I = simd::Vec<int16_t, 16>;
    using U = simd::Vec<uint8_t, 16>;
    // Two rows a vector, one byte a coefficient; then the bytes of each 16 positions from the rows they stand
    // in.
    U rows[4];
    for (int i = 0; i < 4; ++i)
      rows[i] = (U)simd::packI8(I(flag(simd::load<I>(row(block, 32, i)))),
                                I(flag(simd::load<I>(row(block, 32, i) + 8))));
    static constexpr auto kFrom = [] {
      std::array<std::array<std::array<uint8_t, 16>, 4>, 4> from{};
      for (int k = 0; k < 64; ++k)
        for (int i = 0; i < 4; ++i) from[k / 16][i][k % 16] = kZigzag[k] / 16 == i ? kZigzag[k] % 16 : 0x80;
      return from;
    }();
    for (int group = 0; group < 4; ++group) {
      U bytes{};
      for (int i = 0; i < 4; ++i)
        if (!(group == 0 && i == 3) && !(group == 3 && i == 0))  // the corners hold none of these
          bytes |= simd::shuffleBytes(rows[i], simd::load<U>(kFrom[group][i].data()));
      set |= uint64_t(simd::topBits((U)(bytes == 0))) << (16 * group);
    }
    return ~set;
  } else {
    for (int k = 0; k < 64; ++k) set |= uint64_t(flag(at(block, kZigzag[k])) != 0) << k;
  }
  return set;
}

inline uint64_t ownNonZero(const int16_t* block) {
  return ownScanSet(block, [](auto c) { return c; });
}

// The positions ss to se of a scan set.
constexpr uint64_t ownBand(int ss, int se) { return ~uint64_t(0) << ss & ~uint64_t(0) >> (63 - se); }

}  // namespace qelj

#endif
