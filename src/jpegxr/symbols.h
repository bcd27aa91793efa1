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

// The sums of a block's further indices and of its levels, each in context 0 and in context 1: in one register, as
// numbers of 16 bits.
class Sums {
 public:
  void index(int16_t deltas, int context) { add(deltas, 2 * context); }
  void level(int16_t deltas, int context) { add(deltas, 2 * context + 1); }
  // Both in one context, the level's from bit 16 on.
  void indexAndLevel(int32_t deltas, int context) { add(deltas, 2 * context); }
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

// --- the last places ---------------------------------------------------------------------------------------

// Place 14 has room for one neighbour and place 15 for none: their indices have fixed codes, which adapt nothing. The
// table of place 14, then that of place 15.
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
inline constexpr auto kFixedDecoding = [] {
  std::array<NextTable, 2> all{};
  for (size_t last = 0; last < 2; ++last)
    for (const FixedIndex& index : kFixedIndices[last])
      for (uint32_t bits = 0; index.length && bits < 1 << kNextBits; ++bits)
        if (bits >> (kNextBits - index.length) == index.code) {
          const auto length = uint8_t(index.length + 1);
          const int sign = bits >> (kNextBits - length) & 1 ? -1 : 1;
          all[last][bits] = {uint8_t(index.symbol >> 1), int8_t(index.symbol & 1 ? 0 : sign), length, length, 0};
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
inline uint32_t takeEscape(UnitReader& bits) {
  bits.refill();
  int length = int(bits.take(4));
  if (length == 15) length += int(bits.take(2));
  if (length == 18) length += int(bits.take(3));
  length += kEscapeBits;
  return (1u << length) + 2 + bits.take(length);
}

// Decodes one block's coefficients and hands them to store(place, level), levels with their sign and never 0. Returns
// their number, or kStopped when the stream sends a coefficient behind place 15.
inline constexpr int kStopped = 16;
template <const BlockKind& kind, class Store>
inline int ownDecodeCoefficients(UnitReader& bits, VLCState& state, int32_t chroma, Store&& store) {
  const int first = kind.first + kChromaStep * (chroma != 0), next = kind.next + kChromaStep * (chroma != 0);
  const RunLook* const runs = looksOf<Runs>(state.decodeTable[kRunClass]);
  const Look* const levels[2] = {looksOf<Levels>(state.decodeTable2[kind.level]),
                                 looksOf<Levels>(state.decodeTable2[kind.level + 1])};
  const auto looksIn = [&](int context) {
    return kNext[numberOf<ShortIndices>(state.decodeTable[next + context])]
                [numberOf<Levels>(state.decodeTable2[kind.level + context])]
                    .data();
  };
  const NextLook* const nexts[2] = {looksIn(0), looksIn(1)};
  Sums sums;

  // Whether a level is sent is tossed as well: 1 is looked up too.
  const auto takeLevel = [&](bool sent, int context, uint32_t negative) {
    const Look& look = (context ? levels[1] : levels[0])[sent ? bits.peek(kDirectBits) : 1u << kDirectBits];
    sums.level(look.deltas, context);
    bits.skip(look.length);
    const uint32_t level = look.value ? look.value : takeEscape(bits);
    return signedBy(level, 0u - negative);
  };
  const auto takeRun = [&](int room) {
    const RunLook look = runs[room << kRunBits | int(bits.peek(kRunBits))];
    bits.skip(look.length);
    return int(look.run);
  };

  // Decoding is a chain in which each look waits for the length that the one before has found. Refilling stays beside
  // it: index, sign, level and run take up to 24 bits of 56, and an escape, which refills, leaves 18 of them.
  const Look& look = looksOf<LongIndices>(state.decodeTable2[first])[bits.peek(kDirectBits)];
  adapt(state, first, look.deltas);
  const auto symbol = int(look.value);
  const uint32_t negative = bits.peek(look.length) & 1;
  bits.skip(look.length);
  int then = symbol >> 2, context = symbol & then & 1, place = kind.firstPlace;
  int32_t level = takeLevel(symbol & 2, context, negative);
  if (!(symbol & 1)) place += takeRun(kind.firstRow ? 5 : kRuns - 1);
  bits.refill();

  const auto takeRest = [&] {
    if (place >= kPlaces) return kStopped;
    for (int count = 1;; ++count) {
      store(place, level);
      if (then == kLast) return count;
      ++place;
      if (then == kBehindRun) {
        if (place >= kPlaces - 1) return kStopped;
        place += takeRun(kPlaces - 1 - place);
      }
      if (place >= kPlaces) return kStopped;
      const NextLook* const looks = place >= 14 ? kFixedDecoding[size_t(place - 14)].data()
                                    : context   ? nexts[1]
                                                : nexts[0];
      const NextLook& following = looks[bits.peek(kNextBits)];
      bits.refill();
      const int indexContext = context;
      then = following.then;
      level = following.level;
      context &= then;
      // A level behind the last neighbour of context 1 is one of context 0.
      const bool other = !level || (context != indexContext && magnitude(level) > 1);
      if (!other) [[likely]] {
        bits.skip(following.length);
        sums.indexAndLevel(following.deltas, indexContext);
      } else {
        sums.index(int16_t(following.deltas), indexContext);
        const uint32_t sign = bits.peek(following.indexLength) & 1;
        bits.skip(following.indexLength);
        level = takeLevel(true, context, sign);
      }
    }
  };
  const int count = takeRest();
  sums.adapt(state, next, kind.level);
  return count;
}

}  // namespace qelj::jpegxr

#endif
