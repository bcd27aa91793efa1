// The symbols of a block's coefficients (ITU-T T.832, 8.7): a first index, then for every further coefficient
// an index, each with a sign, and where they are needed a level and a run of zeros. One encoder and one
// decoder serve the block coders and the DC coders.
#ifndef QELJ_JPEGXR_SYMBOLS_H
#define QELJ_JPEGXR_SYMBOLS_H

#include <algorithm>
#include <bit>

#include "jpegxr/bits.h"
#include "jpegxr/state.h"
#include "jpegxr/tables.h"

namespace qelj::jpegxr {

// The shape of a kind of block. A chroma form has its first and next index kChromaStep entries further on.
struct BlockKind {
  int first, next, level;  // entries; next and level take the context bit on top
  int firstPlace;          // where a first coefficient without a run stands; the block ends behind place 15
  int firstRow;            // row of the run tables for the first run
  bool fits = false;       // whether pairs to code are known to fit the block: they are not a caller's
};
inline constexpr BlockKind kBlock = {kHighFirst, kHighNext, kHighLevel, 1, 0, true};
inline constexpr BlockKind kDC444 = {kLowFirst, kLowNext, kLowLevel, 1, 0};
inline constexpr BlockKind kDC422 = {kLowFirst + kChromaStep, kLowNext + kChromaStep, kLowLevel, 2, 0};
inline constexpr BlockKind kDC420 = {kLowFirst + kChromaStep, kLowNext + kChromaStep, kLowLevel, 10, 2};

// What an index says about the next coefficient.
enum Following : uint32_t { kLast = 0, kAdjacent = 1, kBehindRun = 2 };

// The looks behind a table of the record.
template <class Table, class T>
inline const auto* looksOf(const T* table) {
  return reinterpret_cast<const Table*>(table)->looks.data();
}
template <class Table, class T>
inline size_t numberOf(const T* table) {
  return size_t(reinterpret_cast<const Table*>(table)->number);
}

// --- adaptation --------------------------------------------------------------------------------------------

// Adds what symbols sum up to. A block has no more than sixteen of a class, which keeps the two sums apart.
inline void adapt(VLCState& state, int entry, int32_t deltas) {
  const auto first = int8_t(deltas);
  state.discriminant[entry] = addWrap<int32_t>(state.discriminant[entry], first);
  state.discriminant2[entry] = addWrap<int32_t>(state.discriminant2[entry], (deltas - first) >> 8);
}

// The sums of a block's further indices and of its levels, each in context 0 and in context 1, as an encoder meets
// them: in one register, as numbers of 16 bits.
class Sums {
 public:
  void index(int16_t deltas, int context) { add(deltas, 2 * context); }
  void level(int16_t deltas, int context) { add(deltas, 2 * context + 1); }
  void adapt(VLCState& state, int next, int level) {
    for (const int entry : {next, level, next + 1, level + 1}) {
      const auto sum = int16_t(all_);
      jpegxr::adapt(state, entry, sum);
      all_ = (all_ - sum) >> 16;
    }
  }

 private:
  void add(int32_t deltas, int which) { all_ += int64_t(uint64_t(int64_t(deltas)) << 16 * which); }
  int64_t all_ = 0;
};

// The same of one context, as a decoder meets them.
class LookSums {
 public:
  void add(NextLook look) { all_ += look.deltas(); }
  void level(int16_t deltas) { all_ += uint32_t(int32_t(deltas)) << NextLook::kLevelDeltaAt; }
  void adapt(VLCState& state, int next, int level) const {
    const auto lowest = [](int32_t v, int bits) { return int32_t(uint32_t(v) << (32 - bits)) >> (32 - bits); };
    const int32_t all = lowest(int32_t(all_), NextLook::kDeltasBits), first = lowest(all, NextLook::kDeltaBits);
    const int32_t behind = (all - first) >> NextLook::kDeltaBits, second = lowest(behind, NextLook::kDeltaBits);
    jpegxr::adapt(state, next, first + 256 * second);
    jpegxr::adapt(state, level, (behind - second) >> NextLook::kDeltaBits);
  }

 private:
  uint32_t all_ = 0;
};

// --- the last places ---------------------------------------------------------------------------------------

// Place 14 has room for one neighbour and place 15 for none: their indices have fixed codes, which adapt nothing. The
// table of place 14, then that of place 15.
inline constexpr int kFixedPlace = 14;
struct FixedIndex {
  int symbol;
  uint32_t code;
  int length;
};
inline constexpr FixedIndex kFixedIndices[2][4] = {{{0, 0, 1}, {2, 2, 2}, {1, 6, 3}, {3, 7, 3}},
                                                   {{0, 0, 1}, {1, 1, 1}}};
inline constexpr auto kFixedCodes = [] {
  std::array<std::array<Look, 12>, 2> all{};
  for (size_t last = 0; last < 2; ++last)
    for (const FixedIndex& index : kFixedIndices[last])
      for (uint32_t negative = 0; index.length && negative < 2; ++negative)
        all[last][size_t(2 * index.symbol) + negative] = {index.code << 1 | negative, uint8_t(index.length + 1), 0};
  return all;
}();
inline constexpr int kFixedBits = 4;
inline constexpr auto kFixedDecoding = [] {
  std::array<std::array<NextLook, 1 << kFixedBits>, 2> all{};
  for (size_t last = 0; last < 2; ++last)
    for (const FixedIndex& index : kFixedIndices[last])
      for (uint32_t bits = 0; index.length && bits < 1 << kFixedBits; ++bits)
        if (bits >> (kFixedBits - index.length) == index.code) {
          const auto symbol = uint32_t(index.symbol), sign = bits >> (kFixedBits - 1 - index.length) & 1;
          all[last][bits] = {symbol >> 1, symbol & 1 ? 0 : 2 + sign, index.length + 1, {}};
        }
  return all;
}();

// --- encoder -----------------------------------------------------------------------------------------------

// Appends a level from 128 on, which is none of the looks: the code of an escape, a length, and as many bits.
inline void appendEscape(UnitWriter& bits, const int32_t* codes, uint32_t size) {
  const uint32_t a = size - 2;
  const int length = escapeLength(a);
  bits.settle();
  bits.add(uint32_t(at(codes, 1 + 2 * kEscape)), at(codes, 2 + 2 * kEscape));
  if (length < 15) bits.add(uint32_t(length), 4);
  else if (length < 18) bits.add(15u << 2 | uint32_t(length - 15), 6);
  else bits.add(15u << 5 | 3u << 3 | (uint32_t(length - 18) & 7), 9);  // beyond 25 the low bits of the length go out
  bits.settle();
  bits.add(a, length + kEscapeBits);
  bits.settle();
}

// Codes `count` pairs (run, level). A list that doesn't fit its block gives a stream that no decoder follows,
// but nothing is written elsewhere.
template <const BlockKind& kind>
inline void ownEncodePairs(const BitStream<uint8_t>& stream, VLCState& state, const int32_t* pairs, int32_t count,
                           int32_t chroma) {
  UnitWriter bits(stream);
  if (count < 1) return bits.finish();
  const int first = kind.first + kChromaStep * (chroma != 0), next = kind.next + kChromaStep * (chroma != 0);
  const Look* const runs = looksOf<RunCodes>(state.codeTable[kRunClass]);
  const Look* const levels[2] = {looksOf<LevelCodes>(state.codeTable[kind.level]),
                                 looksOf<LevelCodes>(state.codeTable[kind.level + 1])};
  Sums sums;

  // Runs of 16 and more, which fit no block, end in the bits of one that is shorter by eights.
  const auto appendRun = [&](int32_t run, int64_t room) {
    if constexpr (kind.fits) return bits.append(runs[kRuns * room + run]);
    const int known = run < 0 ? 0 : run < kRuns ? run : kRuns / 2 + run % (kRuns / 2);
    bits.append(runs[kRuns * std::clamp<int64_t>(room, 0, kRooms - 1) + known]);
  };
  // A coefficient's bits are at most 9, 16 and 7 where its level is looked up, so that it is settled once.
  const auto appendLevel = [&](uint32_t size, int context) {
    const Look& look = (context ? levels[1] : levels[0])[size < kLevels ? size : kLevels - 1];
    sums.level(look.deltas, context);
    if (size < kLevels) [[likely]]
      bits.append(look);
    else appendEscape(bits, state.codeTable[kind.level + context], size);
  };

  int32_t level = at(pairs, 1), run = at(pairs, 0), nextRun = count > 1 ? at(pairs, 2) : 0;
  uint32_t size = magnitude(level);
  int then = count == 1 ? kLast : nextRun == 0 ? kAdjacent : kBehindRun;
  int context = run == 0 && then == kAdjacent;
  const int symbol = int(run == 0) + 2 * int(size > 1) + 4 * then;
  const Look& index = looksOf<IndexCodes<12>>(state.codeTable[first])[2 * symbol + int(level < 0)];
  adapt(state, first, index.deltas);
  bits.append(index);
  appendLevel(size, context);
  appendRun(run, kind.firstRow ? 5 : kRooms - 1);
  bits.settle();

  if (count > 1) {
    const Look* const indices[2] = {looksOf<IndexCodes<6>>(state.codeTable[next]),
                                    looksOf<IndexCodes<6>>(state.codeTable[next + 1])};
    int64_t room = int64_t(14 - kind.firstPlace) - run;
    const auto append = [&](int following) {
      const Look* const looks = room <= 0 ? kFixedCodes[room < 0].data() : context ? indices[1] : indices[0];
      const int fitting = (int(size > 1) + 2 * following) & (room > 0 ? 7 : room == 0 ? 3 : 1);
      const Look& look = looks[2 * fitting + int(level < 0)];
      sums.index(look.deltas, context);
      bits.append(look);
      context &= int(following == kAdjacent);
      appendLevel(size, context);
      bits.settle();
    };
    for (int32_t i = 1; i < count; ++i) {
      run = nextRun;
      appendRun(run, room);
      room -= int64_t(run) + 1;
      level = at(pairs, 2 * ptrdiff_t(i) + 1);
      size = magnitude(level);
      if (i + 1 == count) break;
      nextRun = at(pairs, 2 * ptrdiff_t(i) + 2);
      append(nextRun == 0 ? kAdjacent : kBehindRun);
    }
    append(kLast);
  }
  sums.adapt(state, next, kind.level);
  bits.finish();
}

// --- decoder -----------------------------------------------------------------------------------------------

// A level from 18 on, behind the code of its escape.
QELJ_INLINE uint32_t takeEscape(UnitReader& bits) {
  bits.refill();
  int length = int(bits.take(4));
  if (length == 15) length += int(bits.take(2));
  if (length == 18) length += int(bits.take(3));
  length += kEscapeBits;
  return (1u << length) + 2 + bits.take(length);
}

// In place of a number of coefficients, where the stream sends one behind place 15.
inline constexpr int kStopped = 16;

// Decoding is a chain in which each look waits for the length that the one before has found, and most branches are
// tosses of a coin: what remains of them is whether a coefficient or a run follows. Refilling stays beside the chain.
// What is taken between two refills fits the 56 bits: index, sign, level and run take up to 35 of them, and an escape,
// which refills, leaves 18, enough for a run and the next look.
template <const BlockKind& kind>
class BlockDecoder {
 public:
  BlockDecoder(const BitStream<const uint8_t>& stream, VLCState& state, int32_t chroma)
      : bits_(stream),
        state_(state),
        first_(kind.first + kChromaStep * (chroma != 0)),
        next_(kind.next + kChromaStep * (chroma != 0)),
        runs_(looksOf<Runs>(state.decodeTable[kRunClass])) {}

  // Hands the coefficients to store(place, level), levels with sign and never 0. Returns their number, or kStopped.
  template <class Store>
  QELJ_INLINE int decode(Store&& store) {
    const Look& look = looksOf<LongIndices>(state_.decodeTable2[first_])[bits_.peek(kDirectBits)];
    adapt(state_, first_, look.deltas);
    const uint32_t symbol = look.value, negative = bits_.peek(look.length) & 1;
    bits_.skip(look.length);
    // In context 1, as long as neighbours follow from the first place on.
    if (symbol & symbol >> 2 & 1) {
      const int32_t level = takeLevel(symbol & 2, true, negative);
      const int count = decodeAdjacent(level, store);
      adjacentSums_.adapt(state_, next_ + 1, kind.level + 1);
      return adapted(count);
    }
    const int32_t level = takeLevel(symbol & 2, false, negative);
    const int place = kind.firstPlace + (symbol & 1 ? 0 : takeRun(kind.firstRow ? kPlaces - 1 - 5 : 0));
    return adapted(place < kPlaces ? decodeOthers(place, 0, level, symbol >> 2, store) : kStopped);
  }
  // Hands the position in the stream back.
  void finish() { bits_.finish(); }

 private:
  QELJ_INLINE int adapted(int count) {
    sums_.adapt(state_, next_, kind.level);
    return count;
  }

  template <class Store>
  QELJ_INLINE int decodeAdjacent(int32_t level, Store& store) {
    const NextLook* const looks = looksIn(1);
    int place = kind.firstPlace;
    do {
      store(place++, level);
      const NextLook found = looks[bits_.peek(kNextBits)];
      adjacentSums_.add(found);
      const uint32_t last = takeBehind(found);
      if (found.then() != kAdjacent)
        // A level of context 0.
        return decodeOthers(place, place - kind.firstPlace, takeLevel(!found.level(), false, last & 1), found.then(),
                            store);
      level = levelIn(found, last, true);
    } while (place + 1 < kFixedPlace);
    store(place++, level);
    return decodeLast(place, place - kind.firstPlace, true, store);
  }

  template <class Store>
  QELJ_INLINE int decodeOthers(int place, int count, int32_t level, uint32_t then, Store& store) {
    const NextLook* const looks = looksIn(0);
    while (true) {
      store(place, level), ++count;
      if (then == kLast) return count;
      ++place;
      if (then == kBehindRun) {
        if (place >= kPlaces - 1) return kStopped;
        place += takeRun(place);
      }
      if (place >= kFixedPlace) return decodeLast(place, count, false, store);
      const NextLook found = looks[bits_.peek(kNextBits)];
      sums_.add(found);
      const uint32_t last = takeBehind(found);
      then = found.then();
      level = levelIn(found, last, false);
    }
  }

  template <class Store>
  QELJ_INLINE int decodeLast(int place, int count, bool adjacent, Store& store) {
    for (; place < kPlaces; ++place) {
      const NextLook found = kFixedDecoding[size_t(place - kFixedPlace)][bits_.peek(kFixedBits)];
      const uint32_t last = takeBehind(found);
      adjacent &= found.then() == kAdjacent;
      store(place, levelIn(found, last, adjacent)), ++count;
      if (found.then() == kLast) return count;
    }
    return kStopped;
  }

  QELJ_INLINE const NextLook* looksIn(int context) const {
    return kNext[size_t(context)][numberOf<ShortIndices>(state_.decodeTable[next_ + context])]
                [numberOf<Levels>(state_.decodeTable2[kind.level + context])]
                    .data();
  }
  // What is behind a look; its last bit is the sign where the level is looked up by itself.
  QELJ_INLINE uint32_t takeBehind(NextLook found) {
    bits_.refill();
    const uint32_t last = bits_.last(found.length());
    bits_.skip(found.length());
    return last;
  }
  QELJ_INLINE int32_t levelIn(NextLook found, uint32_t last, bool context) {
    const NextLevel& known = kNextLevels[found.level()];
    const int32_t level = known.base + signedBy(last & ((1u << known.bits) - 1), uint32_t(int32_t(known.sign)));
    if (found.level()) [[likely]]
      return level;
    return takeLevel(true, context, last & 1);
  }
  // Whether a level is sent is tossed as well: 1 is looked up too.
  QELJ_INLINE int32_t takeLevel(bool sent, bool context, uint32_t negative) {
    const Look& look =
        looksOf<Levels>(state_.decodeTable2[kind.level + context])[sent ? bits_.peek(kDirectBits) : 1u << kDirectBits];
    sums_.level(context ? 0 : look.deltas), adjacentSums_.level(context ? look.deltas : 0);
    bits_.skip(look.length);
    const uint32_t level = look.value ? look.value : takeEscape(bits_);
    return signedBy(level, 0u - negative);
  }
  QELJ_INLINE int takeRun(int places) {
    const RunLook look = runs_[places << kRunBits | int(bits_.peek(kRunBits))];
    bits_.skip(look.length);
    return int(look.run);
  }

  UnitReader bits_;
  VLCState& state_;
  const int first_, next_;
  const RunLook* const runs_;
  LookSums sums_, adjacentSums_;  // of context 0 and of context 1
};

}  // namespace qelj::jpegxr

#endif
