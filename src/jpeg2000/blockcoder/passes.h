// The three coding passes (ISO/IEC 15444-1, D.3), once for the encoder and the decoders.
//
// The flags of a stripe column, four samples of 16 bits, make one 64-bit word, so that one test finds the samples that
// a pass has to code in a column, and an empty column is a zero. A pass hands every symbol to a coder, which codes it
// or decodes it:
//
//   void column(stripe, x)             the next symbols belong to this stripe column
//   uint32_t significance(context, i)  whether sample i (0 to 3) of the column is significant in this plane
//   uint32_t sign(entry, i)            the sign of sample i, which has become significant; an entry of kSignTable
//   void refine(context, i)            one more bit of sample i
//   int run()                          the first significant sample of a column coded as a run, 4 for none
#ifndef QELJ_JPEG2000_PASSES_H
#define QELJ_JPEG2000_PASSES_H

#include <bit>
#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "jpeg2000/blockcoder/contexts.h"

namespace qelj::jpeg2000 {

inline constexpr int32_t kStripe = 4;
// Bit 0 of each sample.
inline constexpr uint64_t kEachSample = 0x0001000100010001;
constexpr uint64_t ofSample(uint32_t bits, int i) { return i < 0 || i > 3 ? 0 : uint64_t(bits) << (16 * i); }

// A row of words a stripe, with one more left and right that catch what goes beyond the block.
struct FlagGrid {
  uint64_t* words;
  int32_t width, height;

  static int64_t count(int64_t width, int64_t height) { return (width + 2) * ((height + 3) / kStripe); }
  ptrdiff_t stride() const { return ptrdiff_t(width) + 2; }
  int32_t stripes() const { return int32_t((int64_t(height) + 3) / kStripe); }
  uint64_t* stripe(int32_t s) const { return words + s * stride() + 1; }
  // One bit a row that exists.
  uint64_t rows(int32_t s) const {
    const int32_t n = height - s * kStripe;
    return n >= kStripe ? kEachSample : kEachSample >> (16 * (kStripe - n));
  }
};

// What a sample that becomes significant adds to three columns' words: those of its own stripe, and those of the
// stripe above or below, which samples 1 and 2 don't reach.
struct FlagSpread {
  uint64_t left, centre, right, farLeft, far, farRight;
};
inline constexpr auto kFlagSpread = [] {
  std::array<std::array<FlagSpread, kStripe>, 2> all{};  // by sign, by row
  for (int negative = 0; negative < 2; ++negative)
    for (int i = 0; i < kStripe; ++i) {
      const auto sign = [=](uint32_t bit) { return kNeighbour | (negative ? bit : 0); };
      // In rows j of a stripe `up` stripes away.
      const auto words = [=](int up) {
        const int above = i - 1 + up * kStripe, own = i + up * kStripe, below = i + 1 + up * kStripe;
        return std::array<uint64_t, 3>{
            ofSample(kNeighbour | kSouthEast, above) | ofSample(sign(kEastNegative) | kEast, own) |
                ofSample(kNeighbour | kNorthEast, below),
            ofSample(sign(kSouthNegative) | kSouth, above) | ofSample(kSignificant, own) |
                ofSample(sign(kNorthNegative) | kNorth, below),
            ofSample(kNeighbour | kSouthWest, above) | ofSample(sign(kWestNegative) | kWest, own) |
                ofSample(kNeighbour | kNorthWest, below)};
      };
      const auto near = words(0), far = words(i == 0 ? 1 : -1);
      all[size_t(negative)][size_t(i)] = {near[0], near[1], near[2], far[0], far[1], far[2]};
    }
  return all;
}();

// A stripe's words, and for each row how far off the other stripe's words stand that its samples reach. Where there
// is none, or it must see nothing of this stripe, the mask is empty.
struct FlagStripe {
  uint64_t* word;
  uint64_t rows;
  ptrdiff_t away[kStripe];
  uint64_t mask[kStripe];

  FlagStripe(const FlagGrid& grid, int32_t s, bool causal) : word(grid.stripe(s)), rows(grid.rows(s)), away{}, mask{} {
    if (s > 0 && !causal) away[0] = -grid.stride(), mask[0] = ~uint64_t(0);
    if (s + 1 < grid.stripes()) away[3] = grid.stride(), mask[3] = ~uint64_t(0);
  }

  // Makes sample i of column x significant, whose word the caller holds in `own`. Without a branch on the row, which
  // no processor can foretell.
  QELJ_INLINE void spread(int32_t x, int i, uint32_t negative, uint64_t& own) const {
    const FlagSpread& s = kFlagSpread[negative][size_t(i)];
    uint64_t* w = word + x;
    own |= s.centre;
    w[-1] |= s.left;
    w[1] |= s.right;
    w += away[i];
    w[-1] |= s.farLeft & mask[i];
    w[0] |= s.far & mask[i];
    w[1] |= s.farRight & mask[i];
  }
};

// The first of the samples that have bit 0 of their lane set.
QELJ_INLINE int firstSample(uint64_t lanes) { return std::countr_zero(lanes) >> 4; }

// A sample's significance is known to be coded now; and what follows from it.
template <class Coder>
QELJ_INLINE void codeSign(Coder& coder, const FlagStripe& stripe, int32_t x, int i, uint64_t& f) {
  const uint32_t entry = kSignTable[f >> (16 * i + 4) & 511];
  stripe.spread(x, i, coder.sign(entry, i), f);
}

template <class Coder>
QELJ_INLINE void ownSignificancePass(const FlagGrid grid, bool causal, const SignificanceTable& table, Coder& coder) {
  for (int32_t s = 0; s < grid.stripes(); ++s) {
    const FlagStripe stripe(grid, s, causal);
    const auto wanted = [&](uint64_t f) { return f >> 13 & ~(f >> 15) & stripe.rows; };
    for (int32_t x = 0; x < grid.width; ++x) {
      uint64_t f = stripe.word[x];
      uint64_t todo = wanted(f);
      if (!todo) continue;
      coder.column(s, x);
      do {
        const int i = firstSample(todo);
        const uint64_t below = ~uint64_t(1) << (16 * i);
        if (coder.significance(table[f >> (16 * i) & 255], i)) {
          codeSign(coder, stripe, x, i, f);
          todo = wanted(f);
        }
        f |= ofSample(kVisited, i);
        todo &= below;
      } while (todo);
      stripe.word[x] = f;
    }
  }
}

template <class Coder>
QELJ_INLINE void ownRefinementPass(const FlagGrid grid, Coder& coder) {
  for (int32_t s = 0; s < grid.stripes(); ++s) {
    uint64_t* const word = grid.stripe(s);
    const uint64_t rows = grid.rows(s);
    for (int32_t x = 0; x < grid.width; ++x) {
      const uint64_t f = word[x];
      uint64_t todo = f >> 15 & ~(f >> 14) & rows;
      if (!todo) continue;
      word[x] = f | todo << 8;
      coder.column(s, x);
      do {
        const int i = firstSample(todo);
        coder.refine(refinementContext(uint32_t(f >> (16 * i))), i);
        todo &= todo - 1;
      } while (todo);
    }
  }
}

template <class Coder>
QELJ_INLINE void ownCleanupPass(const FlagGrid grid, bool causal, const SignificanceTable& table, Coder& coder) {
  for (int32_t s = 0; s < grid.stripes(); ++s) {
    const FlagStripe stripe(grid, s, causal);
    const bool full = stripe.rows == kEachSample;
    for (int32_t x = 0; x < grid.width; ++x) {
      uint64_t f = stripe.word[x];
      uint64_t todo = ~(f >> 14 | f >> 15) & stripe.rows;
      if (todo) {
        coder.column(s, x);
        if (f == 0 && full) {
          const int first = coder.run();
          if (first == 4) continue;
          codeSign(coder, stripe, x, first, f);
          todo &= ~uint64_t(1) << (16 * first);
        }
        for (; todo; todo &= todo - 1) {
          const int i = firstSample(todo);
          if (coder.significance(table[f >> (16 * i) & 255], i)) codeSign(coder, stripe, x, i, f);
        }
      }
      stripe.word[x] = f & ~(kEachSample * kVisited);
    }
  }
}

}  // namespace qelj::jpeg2000

#endif
