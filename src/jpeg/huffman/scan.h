// A block of 64 coefficients: clearing it, and which of its coefficients count, as a bit set in zig-zag
// order, so that encoders visit only those; categories and value bits.
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

// The AC coefficients of a block: which are not 0, and the category and bits of each, by zig-zag position.
struct AcValues {
  explicit AcValues(const int16_t* block) : block(block), set(ownNonZero(block) & ~uint64_t(1)) {}
  ValueCode operator[](int k) const { return ownValueCode(at(block, kZigzag[k])); }

  const int16_t* block;
  uint64_t set;
};

// The same where categories and bits fit a byte, which nearly all blocks' do: all 64 at once.
class AcBytes {
 public:
  explicit AcBytes(const int16_t* block) {
    // A pack of four rows leaves the even ones in its lower half, the odd ones in the upper half.
    U categories[2], bits[2];
    U16 magnitudes{};
    for (int i = 0; i < 2; ++i) {
      I16 a = simd::load<I16>(row(block, 64, i));
      const I16 b = simd::load<I16>(row(block, 64, i) + 16);
      if (i == 0) a &= I16{0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};  // not the DC
      const I16 absA = simd::absWrap(a), absB = simd::absWrap(b);
      magnitudes |= (U16)(absA | absB);
      const U magnitude = (U)simd::packU8(absA, absB);
      // By half byte; the larger of the two counts.
      static constexpr uint8_t kLow[16] = {0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4};
      static constexpr uint8_t kHigh[16] = {0, 5, 6, 6, 7, 7, 7, 7, 8, 8, 8, 8, 8, 8, 8, 8};
      categories[i] =
          simd::max(simd::shuffleBytes(simd::blockPattern<U>(kLow), magnitude & 15),
                    simd::shuffleBytes(simd::blockPattern<U>(kHigh), (U)((U16)magnitude >> 4) & 15));
      // A negative value's bits are those of its magnitude, inverted.
      static constexpr uint8_t kOnes[16] = {0, 1, 3, 7, 15, 31, 63, 127, 255};
      const U negative = (U)(simd::packI8(a, b) < 0);
      bits[i] = magnitude ^ (negative & simd::shuffleBytes(simd::blockPattern<U>(kOnes), categories[i]));
    }
    fit = simd::isZero((U16)(magnitudes >> 8));
    set = ~ownZigzag(categories, categories_);
    ownZigzag(bits, bits_);
  }
  ValueCode operator[](int k) const {
    if (categories_[k] > 8) __builtin_unreachable();
    return {categories_[k], bits_[k]};
  }

  uint64_t set;
  bool fit;  // if not, nothing else counts

 private:
  using U = simd::Vec<uint8_t, 32>;
  using U16 = simd::Vec<uint16_t, 32>;
  using I16 = simd::Vec<int16_t, 32>;

  // Stores the bytes in zig-zag order, and tells which are zero.
  static uint64_t ownZigzag(const U (&packed)[2], uint8_t* ordered) {
    const U from[4] = {packed[0], swapHalves(packed[0]), packed[1], swapHalves(packed[1])};
    uint64_t zero = 0;
    for (int i = 0; i < 2; ++i) {
      U bytes[4];
      for (int j = 0; j < 4; ++j) bytes[j] = simd::shuffleBytes(from[j], simd::load<U>(kPlaces[i][j].data()));
      const U all = (bytes[0] | bytes[1]) | (bytes[2] | bytes[3]);
      simd::store(ordered + 32 * i, all);
      zero |= uint64_t(simd::topBits((U)(all == 0))) << (32 * i);
    }
    return zero;
  }
  static U swapHalves(U v) { return simd::join(simd::upper(v), simd::lower(v)); }

  // For 32 positions, their places in each of the four vectors.
  static constexpr auto kPlaces = [] {
    std::array<std::array<std::array<uint8_t, 32>, 4>, 2> places{};
    for (int k = 0; k < 64; ++k)
      for (int j = 0; j < 4; ++j) {
        const int y = kZigzag[k] / 8, x = kZigzag[k] % 8;
        const bool swapped = y % 2 != k / 16 % 2;
        places[size_t(k / 32)][size_t(j)][size_t(k % 32)] =
            uint8_t(j == y / 4 * 2 + swapped ? y / 2 % 2 * 8 + x : 0x80);
      }
    return places;
  }();

  alignas(64) uint8_t categories_[64], bits_[64];
};

// work(ac), with whichever fits the block.
template <class Work>
[[gnu::noinline]] QelStatus ownWithAcValues(const int16_t* block, Work work) {
  return work(AcValues(block));
}
template <class Work>
[[gnu::always_inline]] inline QelStatus ownWithAc(const int16_t* block, Work work) {
  if constexpr (simd::kEnabled) {
    const AcBytes ac(block);
    if (ac.fit) [[likely]]
      return work(ac);
  }
  return ownWithAcValues(block, work);
}

// The positions ss to se of a scan set.
constexpr uint64_t ownBand(int ss, int se) { return ~uint64_t(0) << ss & ~uint64_t(0) >> (63 - se); }

}  // namespace qelj

#endif
