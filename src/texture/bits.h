// The 128 bits of a BC6 or BC7 block, numbered from the lowest of byte 0.
#ifndef QELJ_TEXTURE_BITS_H
#define QELJ_TEXTURE_BITS_H

#include "frame/arith.h"

namespace qelj::texture {

struct Bits {
  uint64_t low, high;

  explicit Bits(const uint8_t* block) : low(load<uint64_t>(block)), high(load<uint64_t>(block + 8)) {}
  // `count` bits, at most 64, from `position` on.
  constexpr uint64_t at(int position, int count) const {
    const uint64_t v = position >= 64  ? high >> (position - 64)
                       : position == 0 ? low
                                       : low >> position | high << (64 - position);
    return count >= 64 ? v : v & ((uint64_t(1) << count) - 1);
  }
};

}  // namespace qelj::texture

#endif
