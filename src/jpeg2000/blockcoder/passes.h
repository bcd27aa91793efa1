// The three coding passes (ISO/IEC 15444-1, D.3), once for the encoder and the decoders.
//
// What is known of a stripe's samples lies in groups of eight columns, a bit a sample and fact, in the order in which
// the samples are coded. So a few operations on words tell all samples of a group that a pass has to code, a count of
// zeros leads from one to the next, and a sample's neighbourhood is a shift and a mask. A pass hands every symbol to a
// coder, which codes it or decodes it:
//
//   void group(stripe, g)              the next symbols belong to this group
//   uint32_t significance(context, p)  whether the sample at p (see below) is significant in this plane
//   uint32_t sign(entry, p)            the sign of that sample, which has become significant; an entry of kSignTable
//   void refine(context, p)            one more bit of that sample
//   int run(p)                         the first significant sample of a column coded as a run, 4 for none
#ifndef QELJ_JPEG2000_PASSES_H
#define QELJ_JPEG2000_PASSES_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "jpeg2000/blockcoder/contexts.h"

namespace qelj::jpeg2000 {

inline constexpr int32_t kStripe = 4, kGroup = 8;

// A word of a group: ten columns of six bits, the group's own in the middle, with the rows above and below and the
// columns beside it. The sample in row r (0 to 3) of column c (0 to 7) has place 6 * (c + 1) + r + 1.
namespace place {
// The rows of bits `rows`, 0 being the row above, in each of the group's columns.
constexpr uint64_t inEachColumn(uint64_t rows) { return rows * 0x0001041041041040; }
inline constexpr uint64_t kAbove = inEachColumn(1), kFirstRow = inEachColumn(2), kAndBelow = inEachColumn(0x3E);

// Between places and indices, which are 4 * c + r. (Tables both made by the function: linked with the whole program in
// view, GCC 12 fails on a table that is made from another.)
constexpr uint64_t ofIndex(uint32_t i) { return 6 * (i / kStripe + 1) + i % kStripe + 1; }
inline constexpr auto kOfIndex = [] {
  std::array<uint64_t, kGroup * kStripe> all{};
  for (uint32_t i = 0; i < all.size(); ++i) all[i] = ofIndex(i);
  return all;
}();
inline constexpr auto kIndex = [] {
  std::array<uint8_t, 64> all{};
  for (uint32_t i = 0; i < kGroup * kStripe; ++i) all[ofIndex(i)] = uint8_t(i);
  return all;
}();
}  // namespace place

struct FlagGroup {
  // These two with the row below, as far as it was known when its samples became significant.
  uint64_t significant, negative;
  uint64_t visited;  // coded in the significance pass of this plane
  uint64_t refined;
};

// A row of groups a stripe. Between the rows, in front of the first and behind the last, stands an empty group.
struct FlagGrid {
  FlagGroup* memory;
  int32_t width, height;

  static int64_t groups(int64_t width) { return (width + kGroup - 1) / kGroup; }
  static int64_t stripes(int64_t height) { return (height + kStripe - 1) / kStripe; }
  static int64_t bytes(int64_t width, int64_t height) {
    return ((groups(width) + 1) * stripes(height) + 1) * int64_t(sizeof(FlagGroup));
  }
  int32_t groups() const { return int32_t(groups(width)); }
  int32_t stripes() const { return int32_t(stripes(height)); }
};

// One stripe's groups.
struct FlagStripe {
  FlagGroup* group;
  ptrdiff_t above;      // where the groups of the stripe above stand; where there is none, the masks are empty
  uint64_t seen, told;  // the row that is seen of it, and the row that it gets to know of
  uint64_t samples, lastSamples;  // that exist in a group, and in the last one
  int32_t groups;

  FlagStripe(const FlagGrid& grid, int32_t s, bool causal)
      : group(grid.memory + 1 + s * (ptrdiff_t(grid.groups()) + 1)),
        above(s > 0 ? -(ptrdiff_t(grid.groups()) + 1) : 0),
        seen(s > 0 ? place::kAbove : 0),
        told(s > 0 && !causal ? place::kFirstRow : 0),
        groups(grid.groups()) {
    const int32_t rows = grid.height - s * kStripe, columns = grid.width - (groups - 1) * kGroup;
    samples = place::inEachColumn((2u << (rows < kStripe ? rows : kStripe)) - 2);
    lastSamples = samples & (~uint64_t(0) >> (64 - 6 * (columns + 1)));
  }

  uint64_t samplesOf(int32_t g) const { return g + 1 < groups ? samples : lastSamples; }
  uint64_t withAbove(uint64_t FlagGroup::* fact, int32_t g) const {
    return group[g].*fact | (group[g + above].*fact >> kStripe & seen);
  }
  // The columns beside it too.
  static uint64_t window(uint64_t left, uint64_t own, uint64_t right) {
    return (left >> 48 & 0x3F) | own | (right & 0xFC0) << 48;
  }
};

// The samples that have a significant neighbour.
constexpr uint64_t neighboursOf(uint64_t significant) {
  const uint64_t beside = significant << 1 | significant >> 1, columns = significant | beside;
  return columns << 6 | columns >> 6 | beside;
}

// Three rows of three columns around a sample, and of two facts its four neighbours', next to each other.
constexpr uint64_t kThreeColumns = 0x71C7, kCross = 0x2142, kGather = 1 | 1 << 9 | 1 << 18;
QELJ_INLINE uint32_t nineAround(uint64_t significant, int p) {
  return uint32_t((significant >> (p - 7) & kThreeColumns) * kGather >> 12 & 511);
}
QELJ_INLINE uint32_t crossAround(uint64_t significant, uint64_t negative, int p) {
  const uint64_t both = (significant >> (p - 7) & kCross) | (negative >> (p - 7) & kCross) << 1;
  return uint32_t(both * kGather >> 13 & 255);
}

// A sample is significant; its sign follows.
template <class Coder>
QELJ_INLINE void codeSign(Coder& coder, int p, uint64_t& significant, uint64_t& negative) {
  const uint64_t bit = coder.sign(kSignTable[crossAround(significant, negative, p)], p);
  significant |= uint64_t(1) << p;
  negative |= bit << p;
}

// Calls work(g, significant, samples) for a stripe's groups in turn, with the window of what is significant, which it
// may change, and the samples that exist.
template <class Work>
QELJ_INLINE void forEachGroup(const FlagStripe& stripe, Work&& work) {
  uint64_t left = 0, own = stripe.withAbove(&FlagGroup::significant, 0);
  for (int32_t g = 0; g < stripe.groups; ++g) {
    const uint64_t right = stripe.withAbove(&FlagGroup::significant, g + 1);
    uint64_t significant = FlagStripe::window(left, own, right);
    work(g, significant, stripe.samplesOf(g));
    left = significant;
    own = right;
  }
}

// A group in a pass in which samples become significant.
struct GroupOfSigns {
  const FlagStripe& stripe;
  FlagGroup& group;
  int32_t g;
  uint64_t before, negative;

  GroupOfSigns(const FlagStripe& s, int32_t at, uint64_t significant)
      : stripe(s), group(s.group[at]), g(at), before(significant) {
    const auto negativeOf = [&](int32_t i) { return s.withAbove(&FlagGroup::negative, i); };
    negative = FlagStripe::window(negativeOf(at - 1), negativeOf(at), negativeOf(at + 1));
  }
  void keep(uint64_t significant) const {
    if (significant == before) return;
    group.significant = significant & place::kAndBelow;
    group.negative = negative & place::kAndBelow;
    const uint64_t news = (significant ^ before) & stripe.told;
    FlagGroup& upper = stripe.group[g + stripe.above];
    upper.significant |= news << kStripe;
    upper.negative |= (news & negative) << kStripe;
  }
};

template <class Coder>
QELJ_INLINE void ownSignificancePass(const FlagGrid grid, bool causal, const SignificanceTable& table, Coder& coder) {
  for (int32_t s = 0; s < grid.stripes(); ++s) {
    const FlagStripe stripe(grid, s, causal);
    forEachGroup(stripe, [&](int32_t g, uint64_t& significant, uint64_t samples) QELJ_INLINE_LAMBDA {
      uint64_t todo = neighboursOf(significant) & ~significant & samples;
      if (!todo) return;
      GroupOfSigns signs(stripe, g, significant);
      uint64_t visited = todo;
      coder.group(s, g);
      do {
        const int p = std::countr_zero(todo);
        todo &= todo - 1;
        if (coder.significance(table[nineAround(significant, p)], p)) {
          codeSign(coder, p, significant, signs.negative);
          // South of it, and the column in the east.
          const uint64_t more = uint64_t(0xE2) << p & ~significant & samples;
          todo |= more;
          visited |= more;
        }
      } while (todo);
      signs.group.visited |= visited;
      signs.keep(significant);
    });
  }
}

template <class Coder>
QELJ_INLINE void ownRefinementPass(const FlagGrid grid, Coder& coder) {
  for (int32_t s = 0; s < grid.stripes(); ++s) {
    const FlagStripe stripe(grid, s, true);
    forEachGroup(stripe, [&](int32_t g, const uint64_t& significant, uint64_t samples) QELJ_INLINE_LAMBDA {
      FlagGroup& group = stripe.group[g];
      uint64_t todo = significant & ~group.visited & samples;
      if (!todo) return;
      // Table D.4.
      const uint64_t again = group.refined, beside = neighboursOf(significant) & ~again;
      group.refined |= todo;
      coder.group(s, g);
      do {
        const int p = std::countr_zero(todo);
        todo &= todo - 1;
        coder.refine(kRefinement + uint32_t(beside >> p & 1) + 2 * uint32_t(again >> p & 1), p);
      } while (todo);
    });
  }
}

template <class Coder>
QELJ_INLINE void ownCleanupPass(const FlagGrid grid, bool causal, const SignificanceTable& table, Coder& coder) {
  for (int32_t s = 0; s < grid.stripes(); ++s) {
    const FlagStripe stripe(grid, s, causal);
    const uint64_t firstOfFull = stripe.samples == place::inEachColumn(0x1E) ? place::kFirstRow : 0;
    forEachGroup(stripe, [&](int32_t g, uint64_t& significant, uint64_t samples) QELJ_INLINE_LAMBDA {
      FlagGroup& group = stripe.group[g];
      uint64_t todo = samples & ~significant & ~group.visited;
      group.visited = 0;
      if (!todo) return;
      GroupOfSigns signs(stripe, g, significant);
      // The first samples of columns in which and around which nothing is significant.
      uint64_t any = significant | significant << 6 | significant >> 6;
      any |= any >> 1;
      any |= any >> 2 | any >> 4;
      uint64_t runs = ~(any << 1) & firstOfFull;
      coder.group(s, g);
      do {
        int p = std::countr_zero(todo);
        if (runs >> p & 1) {
          const int first = coder.run(p);
          todo &= first == kStripe ? ~(uint64_t(15) << p) : ~uint64_t(1) << (p + first);
          if (first == kStripe) continue;
          p += first;
        } else {
          todo &= todo - 1;
          if (!coder.significance(table[nineAround(significant, p)], p)) continue;
        }
        codeSign(coder, p, significant, signs.negative);
        runs &= ~(uint64_t(0x1FE) << p);
      } while (todo);
      signs.keep(significant);
    });
  }
}

}  // namespace qelj::jpeg2000

#endif
