// A block of 64 coefficients: clearing it, and which of its coefficients count, as a bit set in zig-zag order, so that
// encoders visit only those; categories and value bits.
#ifndef QELJ_JPEG_HUFFMAN_SCAN_H
#define QELJ_JPEG_HUFFMAN_SCAN_H

#include <array>

#include "frame/lanes.h"
#include "jpeg/huffman/records.h"
#include "jpeg/zigzag.h"

namespace qelj::jpeg {

inline void ownClear(int16_t* block) {
  for (int i = 0; i < 64; i += simd::kLanes<simd::I16>) store(offset(block, i), simd::I16{});
}

// A block's coefficients as bytes, in vectors as a pack of natural vectors leaves them.
inline constexpr int kByteVectors = 64 / simd::kBytes;
using PackedBytes = simd::U8[kByteVectors];

// For each vector of bytes in zig-zag order, or in the order from the last position on, their places in four vectors: the
// packed ones, and, where they are wider than a shuffle's 16 bytes, the same with their halves swapped. A pack of four
// rows leaves the even ones in its lower half, the odd ones in the upper half; one of two rows leaves them as they are.
template <bool kFromLast>
inline constexpr auto kZigZagPlaces = [] {
  std::array<std::array<std::array<uint8_t, simd::kBytes>, 4>, kByteVectors> places{};
  for (int i = 0; i < 64; ++i) {
    const int k = kFromLast ? 63 - i : i, y = kZigZag.natural[k] / 8, x = kZigZag.natural[k] % 8;
    const bool swapped = y % 2 != i / 16 % 2;
    const int vector = kByteVectors == 2 ? y / 4 * 2 + swapped : y / 2;
    const int place = kByteVectors == 2 ? y / 2 % 2 * 8 + x : y % 2 * 8 + x;
    for (int j = 0; j < 4; ++j)
      places[size_t(i / simd::kBytes)][size_t(j)][size_t(i % simd::kBytes)] = uint8_t(j == vector ? place : 0x80);
  }
  return places;
}();
// Calls take(i, bytes) with bytes i, i + 1, ... in that order, a vector a call.
template <bool kFromLast = false, class Take>
QELJ_INLINE void ownInZigZag(const PackedBytes& packed, Take&& take) {
  simd::U8 from[4];
  for (int j = 0; j < 4; ++j) {
    from[j] = packed[j * kByteVectors / 4];
    if constexpr (kByteVectors == 2)
      if (j % 2) from[j] = simd::join(simd::upper(from[j]), simd::lower(from[j]));
  }
  for (int i = 0; i < kByteVectors; ++i) {
    simd::U8 bytes[4];
    for (int j = 0; j < 4; ++j)
      bytes[j] = simd::shuffleBytes(from[j], load<simd::U8>(kZigZagPlaces<kFromLast>[size_t(i)][size_t(j)].data()));
    take(simd::kBytes * i, (bytes[0] | bytes[1]) | (bytes[2] | bytes[3]));
  }
}

// Bit k of the result, or bit 63 - k, tells whether flag(coefficient at zig-zag position k) is non-zero. `flag` maps an
// int16_t to an integer, and a vector of them to a vector.
template <bool kFromLast = false, class Flag>
inline uint64_t ownScanSet(const int16_t* block, Flag&& flag) {
  uint64_t set = 0;
  if constexpr (simd::kShuffles) {
    using simd::I16, simd::kBytes;
    PackedBytes packed;
    for (int i = 0; i < kByteVectors; ++i) {
      const auto flags = [&](int at) { return as<int16_t>(flag(load<I16>(offset(block, at)))); };
      packed[i] = as<uint8_t>(simd::packI8(flags(kBytes * i), flags(kBytes * i + kBytes / 2)));
    }
    ownInZigZag<kFromLast>(packed, [&](int i, simd::U8 bytes) { set |= uint64_t(simd::topBits(bytes == 0)) << i; });
    return ~set;
  } else {
    for (int k = 0; k < 64; ++k) set |= uint64_t(flag(at(block, kZigZag.natural[k])) != 0) << (kFromLast ? 63 - k : k);
  }
  return set;
}

template <bool kFromLast = false>
inline uint64_t ownNonZero(const int16_t* block) {
  return ownScanSet<kFromLast>(block, [](auto c) { return c; });
}

// The AC coefficients of a block: which are not 0, and the category and bits of each, by zig-zag position.
class AcValues {
 public:
  static constexpr int kMaxCategory = 16;
  explicit AcValues(const int16_t* block) : block_(block), set_(ownNonZero(block) & ~uint64_t(1)) {}
  uint64_t set() const { return set_; }
  ValueCode operator[](size_t k) const { return ownValueCode(at(block_, kZigZag.natural[k])); }

 private:
  const int16_t* block_;
  uint64_t set_;
};

// A block without any, of which most pictures have many.
struct AcNone {
  static constexpr int kMaxCategory = 0;
  static constexpr uint64_t set() { return 0; }
  ValueCode operator[](size_t) const { return {}; }
};

// The coefficients as vectors, with 0 in place of the DC one.
struct AcVectors {
  static constexpr int kCount = 64 / simd::kLanes<simd::I16>;

  explicit AcVectors(const int16_t* block) : block(block) {
    for (int i = 0; i < kCount; ++i) {
      values[i] = load<simd::I16>(offset(block, simd::kLanes<simd::I16> * i));
      if (i == 0) values[i] &= notDc();
      bits |= as<uint16_t>(absWrap(values[i]));
    }
  }

  const int16_t* block;
  simd::I16 values[kCount];
  simd::U16 bits{};  // of any magnitude

  // Of the first vector.
  static simd::I16 notDc() { return load<simd::I16>(kNotDc.data()); }

 private:
  static constexpr auto kNotDc = [] {
    std::array<int16_t, simd::kLanes<simd::I16>> mask{};
    for (size_t i = 1; i < mask.size(); ++i) mask[i] = -1;
    return mask;
  }();
};

// A block with some: all 64 at once, as signed bytes, which nearly all blocks' fit. kAny: also one with others.
template <bool kAny>
class AcBytes {
 public:
  static constexpr int kMaxCategory = kAny ? 16 : 7;
  static bool fit(const AcVectors& ac) { return simd::isZero(ac.bits >> 7); }
  explicit AcBytes(const int16_t* block) : AcBytes(AcVectors(block)) {}
  explicit AcBytes(const AcVectors& ac) : block_(ac.block) {
    using namespace simd;
    PackedBytes packed;
    for (int i = 0; i < kByteVectors; ++i) packed[i] = as<uint8_t>(packI8(ac.values[2 * i], ac.values[2 * i + 1]));
    set_ = ~uint64_t(0);
    ownInZigZag(packed, [this](int k, U8 bytes) {
      store(bytes_ + k, bytes);
      set_ ^= uint64_t(topBits(bytes == 0)) << k;
    });
  }
  uint64_t set() const {
    if (!kAny && set_ == 0) __builtin_unreachable();
    return set_;
  }
  ValueCode operator[](size_t k) const {
    const Code& code = kCodes[bytes_[k]];
    if (kAny && code.category == 0) [[unlikely]]
      return ownValueCode(at(block_, kZigZag.natural[k]));
    return {code.category, code.bits};
  }

 private:
  // By byte: none for those that may stand for a larger value.
  struct Code {
    uint8_t category, bits;
  };
  static constexpr auto kCodes = [] {
    std::array<Code, 256> codes{};
    for (int value = -127; value < (kAny ? 127 : 128); ++value) {
      const ValueCode code = ownValueCode(value);
      codes[uint8_t(value)] = {uint8_t(code.category), uint8_t(code.bits)};
    }
    return codes;
  }();

  const int16_t* block_;
  uint64_t set_;
  alignas(64) uint8_t bytes_[64];  // in zig-zag order; a byte of a store across cache lines would come late
};

// work(ac), with whichever fits the block. That for any is out of the way of the others' registers.
using AcAny = std::conditional_t<simd::kShuffles, AcBytes<true>, AcValues>;
template <class Work>
[[gnu::noinline]] QelStatus ownWithAcAny(const int16_t* block, Work work) {
  return work(AcAny(block));
}
template <class Work>
[[gnu::always_inline]] inline QelStatus ownWithAc(const int16_t* block, Work work) {
  if constexpr (simd::kShuffles) {
    const AcVectors ac(block);
    if (simd::isZero(ac.bits)) return work(AcNone());
    if (AcBytes<false>::fit(ac)) [[likely]]
      return work(AcBytes<false>(ac));
  }
  return ownWithAcAny(block, work);
}

// The positions ss to se of a scan set.
template <bool kFromLast = false>
constexpr uint64_t ownBand(int ss, int se) {
  return kFromLast ? ~uint64_t(0) >> ss & ~uint64_t(0) << (63 - se) : ~uint64_t(0) << ss & ~uint64_t(0) >> (63 - se);
}

// The band's coefficients, shifted: magnitudes in 32 bits, so that -32768 has one.
inline auto ownShifted(uint32_t al) {
  return [al](auto c) {
    if constexpr (OneSample<decltype(c)>) return (c < 0 ? -c : c) >> al;
    else return as<int16_t>(as<uint16_t>(absWrap(c)) >> uint16_t(al));
  };
}

// What a refinement of the positions ss to se finds, magnitudes shifted by the point transform; position k is at bit
// 63 - k.
struct RefineSets {
  uint64_t fresh = 0;        // magnitudes of 1, whose symbols are to come
  uint64_t known = 0;        // larger ones, each of which has a bit to correct it
  uint64_t positive = 0;     // not negative, of those above at least
  uint64_t corrections = 0;  // the bits of the known ones, in order; the last one is bit 0
  int knownCount = 0;

  RefineSets(const int16_t* block, int ss, int se, uint32_t al) {
    if constexpr (simd::kShuffles) {
      using namespace simd;
      // Of each magnitude a byte: whether it is odd, whether it is above 1, and, as the top bit, the sign.
      U16 any{};
      const auto flags = [&](int at, bool first) QELJ_INLINE_LAMBDA {
        const auto c = load<I16>(offset(block, at));
        const auto magnitude = as<uint16_t>(absWrap(c)) >> uint16_t(al);
        any |= first ? magnitude & as<uint16_t>(AcVectors::notDc()) : magnitude;
        return as<int16_t>(min(magnitude, (magnitude & 1) | 2) | (as<uint16_t>(c) >> 8 & 0x80));
      };
      PackedBytes packed;
      for (int i = 0; i < kByteVectors; ++i)
        packed[i] = packU8(flags(kBytes * i, i == 0), flags(kBytes * i + kBytes / 2, false));
      if (isZero(any)) return;
      uint64_t ones = 0;
      ownInZigZag<true>(packed, [&](int i, U8 bytes) {
        const auto bit = [&](int n) {
          return uint64_t(topBits(as<int8_t>(as<uint16_t>(bytes) << uint16_t(7 - n)))) << i;
        };
        ones |= bit(0), known |= bit(1), positive |= bit(7);
      });
      const uint64_t band = ownBand<true>(ss, se);
      fresh = ones & ~known & band, known &= band, positive = ~positive;
      corrections = extractBits(ones, known);
      knownCount = std::popcount(known);
    } else {
      for (uint64_t set = ownScanSet<true>(block, ownShifted(al)) & ownBand<true>(ss, se); set;) {
        const int k = std::countl_zero(set);
        const int32_t c = at(block, kZigZag.natural[k]), magnitude = ownShifted(al)(c);
        const uint64_t bit = uint64_t(1) << (63 - k), isKnown = magnitude > 1;
        set ^= bit;
        fresh |= bit & (isKnown - 1), known |= bit & (0 - isKnown), positive |= bit & (0 - uint64_t(c >= 0));
        corrections = corrections << isKnown | (uint64_t(magnitude) & isKnown);
        knownCount += int(isKnown);
      }
    }
  }
};

// Stores the 64 bits of a word as bytes, from the top one on.
inline void ownSpreadBits(uint8_t* dst, uint64_t bits) {
  if constexpr (simd::kShuffles) {
    using simd::U8, simd::kBytes;
    static constexpr auto kByte = [] {
      std::array<uint8_t, 64> byte{};
      for (size_t i = 0; i < 64; ++i) byte[i] = uint8_t(7 - i / 8);
      return byte;
    }();
    static constexpr uint8_t kBit[16] = {128, 64, 32, 16, 8, 4, 2, 1, 128, 64, 32, 16, 8, 4, 2, 1};
    const auto bytes = as<uint8_t>(all<simd::U64>(bits));
    for (int i = 0; i < 64; i += kBytes)
      store(dst + i,
            min(simd::shuffleBytes(bytes, load<U8>(&kByte[size_t(i)])) & simd::blockPattern(kBit), all<U8>(1)));
  } else {
    // Eight at a time: of the byte in each place one bit, by carry at the top, then at the bottom.
    for (int i = 0; i < 64; i += 8, bits <<= 8) {
      const uint64_t each = (bits >> 56) * 0x0101010101010101 & 0x0102040810204080;
      store(dst + i, (each + 0x7F7F7F7F7F7F7F7F) >> 7 & 0x0101010101010101);
    }
  }
}

}  // namespace qelj::jpeg

#endif
