// The symbols of a block's coefficients (ITU-T T.832, 8.7): a first index, then for every further coefficient
// an index, each with a sign, and where they are needed a level and a run of zeros. One encoder and one
// decoder serve the block coders and the DC coders.
#ifndef QELJ_JPEGXR_SYMBOLS_H
#define QELJ_JPEGXR_SYMBOLS_H

#include <algorithm>
#include <array>
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
};
inline constexpr BlockKind kBlock = {kHighFirst, kHighNext, kHighLevel, 1, 0};
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

// What the further indices and the levels of a block sum up to, each in context 0 and in context 1, as an encoder meets
// them.
struct Sums {
  uint32_t index[2] = {}, level[2] = {};
  void adapt(VLCState& state, int next, int levels) const {
    for (int context = 0; context < 2; ++context) {
      jpegxr::adapt(state, next + context, int16_t(index[context] >> 16));
      jpegxr::adapt(state, levels + context, int16_t(level[context] >> 16));
    }
  }
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

// Appends a level of kLevels - 1 or more, behind its sign: the code of an escape, a length, and as many bits.
QELJ_INLINE void appendEscape(UnitWriter& bits, const int32_t* codes, uint32_t size) {
  const uint32_t a = size - 2;
  const int length = escapeLength(a), count = length + kEscapeBits;
  bits.settle();
  bits.append(uint32_t(at(codes, 1 + 2 * kEscape)), uint32_t(at(codes, 2 + 2 * kEscape)));
  if (length < 15) bits.append(uint32_t(length), 4);
  else if (length < 18) bits.append(15u << 2 | uint32_t(length - 15), 6);
  else bits.append(15u << 5 | 3u << 3 | (uint32_t(length - 18) & 7), 9);  // beyond 25 the low bits of the length go out
  bits.settle();
  bits.append(a & ((1u << count) - 1), uint32_t(count));
}

// The number of a level in the tables of levels.
template <class U>
constexpr U levelNumber(U size, U sign) {
  return min(size, all<U>(kLevels - 1)) | (sign & kSigned);
}

// What an encoder has to know of a block, by place: which coefficients are significant, the indices that they would have
// in the middle of a list, as the tables of further indices have them, and the numbers of their levels.
struct Significant {
  uint32_t places;
  uint8_t indices[kPlaces], levels[kPlaces];
};
template <bool kResidual, class T>
QELJ_INLINE Significant significantOf(const ScanEntry* scan, const T* src, ptrdiff_t step, uint32_t modelBits,
                                      uint32_t trimBits, uint32_t* residual) {
  Significant block;
  block.places = 0;
  const auto index = [](int place, bool large, bool adjacent) {
    const uint32_t then = adjacent ? kAdjacent : kBehindRun;
    return uint8_t(uint32_t(kIndices * std::max(place - kFixedPlace + 1, 0)) + large + 2 * then);
  };
  if constexpr (!simd::kEnabled) {
    uint32_t large = 0;
    for (int k = 1; k < kPlaces; ++k) {
      const uint32_t position = inBlock(scan[k].position);
      const int32_t v = position ? at(row(src, step, kRow[position]), kColumn[position]) : 0;  // the DC never counts
      const uint32_t size = magnitude(v) >> modelBits;
      block.places |= uint32_t(size != 0) << k, large |= uint32_t(size > 1) << k;
      block.levels[k] = uint8_t(levelNumber(size, uint32_t(v >> 31)));
      if constexpr (kResidual) put(residual, position, residualOf(v, modelBits, trimBits));
    }
    for (uint32_t left = block.places; left; left &= left - 1) {
      const int k = std::countr_zero(left);
      block.indices[k] = index(k, large >> k & 1, block.places >> k & 2);
    }
  } else {
    using simd::I32x4, simd::U32x4, simd::U8x16;
    I32x4 rows[4];
    for (int y = 0; y < 4; ++y) rows[y] = simd::loadAs<I32x4, T>(row(src, step, y));
    const I32x4 quads[4] = {
        __builtin_shufflevector(rows[0], rows[1], 0, 1, 4, 5), __builtin_shufflevector(rows[0], rows[1], 3, 2, 7, 6),
        __builtin_shufflevector(rows[3], rows[2], 0, 1, 4, 5), __builtin_shufflevector(rows[3], rows[2], 3, 2, 7, 6)};
    U32x4 numbers[4];
    for (int i = 0; i < 4; ++i) {
      numbers[i] = levelNumber(magnitude(quads[i]) >> modelBits, as<uint32_t>(shr(quads[i], 31)));
      if constexpr (kResidual) putResiduals(residual, i, quads[i], modelBits, trimBits);
    }
    numbers[0] &= U32x4{0, ~0u, ~0u, ~0u};
    const auto halves = [](U32x4 v, U32x4 w) { return simd::packI16(as<int32_t>(v), as<int32_t>(w)); };
    const U8x16 unordered = simd::packU8(halves(numbers[0], numbers[1]), halves(numbers[2], numbers[3]));
    constexpr auto kSize = uint8_t(kSigned - 1);
    if (simd::isZero(U8x16(unordered & kSize))) return block;
    const U8x16 levels = simd::shuffleBytes(unordered, orderOf(scan)), sizes = levels & kSize;
    const auto any = as<uint8_t>(sizes != U8x16{}), large = as<uint8_t>(sizes > uint8_t(1));
    const U8x16 adjacent = simd::oneAfter(any, U8x16{});
    static constexpr auto kAlone = [index] {
      std::array<uint8_t, kPlaces> indices{};
      for (int k = 0; k < kPlaces; ++k) indices[size_t(k)] = index(k, false, false);
      return indices;
    }();
    block.places = simd::topBits(any) & 0xFFFE;
    store(block.indices, U8x16(load<U8x16>(kAlone.data()) + adjacent + adjacent - large));
    store(block.levels, levels);
  }
  return block;
}

// A block's bits, from the tables in use for its kind.
template <const BlockKind& kind>
class BlockEncoder {
 public:
  BlockEncoder(const BitStream<uint8_t>& stream, UnitWriter::Room& room, VLCState& state, int32_t chroma)
      : bits_(stream, room),
        state_(state),
        first_(kind.first + kChromaStep * (chroma != 0)),
        next_(kind.next + kChromaStep * (chroma != 0)),
        runs_(looksOf<RunCodes>(state.codeTable[kRunClass])),
        firsts_(looksOf<FirstCodes>(state.codeTable[first_])),
        indices_{looksOf<NextCodes>(state.codeTable[next_]), looksOf<NextCodes>(state.codeTable[next_ + 1])},
        levels_{looksOf<LevelCodes>(state.codeTable[kind.level]),
                looksOf<LevelCodes>(state.codeTable[kind.level + 1])} {}

  // The significant coefficients of a block, one at least; sorts their scan. Nothing but how many there are, and how many
  // of them are neighbours, is a branch: where others are and how large they are is a toss of a coin each. Of a level that
  // has no number of its own, sizeOf(place) is the magnitude.
  template <class SizeOf>
  QELJ_INLINE void encode(ScanEntry* scan, Significant& block, SizeOf&& sizeOf) {
    // Up to the last one of the neighbours from the first place on, indices are of context 1, and in front of it, levels.
    const int end = std::countr_one(block.places >> 1);
    const bool adjacent = end > 1;
    uint8_t& lastIndex = block.indices[31 - std::countl_zero(block.places)];
    lastIndex = uint8_t(lastIndex - 2 * kBehindRun);  // nothing comes behind it

    int place = std::countr_zero(block.places);
    const auto size = [&] { return sizeOf(place); };
    Sums sums;
    sums.level[adjacent] = putFirst((place == 1) + 2 * (block.indices[place] % kIndices), block.levels[place], adjacent,
                                    runs_[kRuns * (kRooms - 1) + place - 1], size);
    countSignificant(scan, place);
    uint32_t indices = 0, levels = 0;
    const auto putNext = [&](Code run, const Code* table, bool context) QELJ_INLINE_LAMBDA {
      const Code index = table[block.indices[place]];
      indices += index.sums;
      levels += put(run.before(index), block.levels[place], context, {}, size);
      countSignificant<0>(scan, place);
    };
    for (place = 2; place < end; ++place) putNext({}, indices_[1], true);
    int before = place - 1;
    uint32_t left = block.places & (~0u << end);
    if (adjacent) {
      sums.index[1] = indices + indices_[1][block.indices[end]].sums;
      sums.level[1] += levels;
      levels = 0;
    } else {
      before = std::countr_zero(block.places);
      left = block.places & (block.places - 1);
    }
    for (const Code* table = indices_[adjacent]; left; left &= left - 1) {
      place = std::countr_zero(left);
      putNext(runs_[kRuns * (kFixedPlace - before) + (place - before - 1)], table, false);
      before = place, table = indices_[0];
    }
    sums.index[0] = indices - sums.index[1];
    sums.level[0] += levels;
    adapt(sums);
  }

  // `count` pairs (run, level), one at least. A list that doesn't fit its block gives a stream that no decoder follows,
  // but nothing is written elsewhere.
  QELJ_INLINE void encodePairs(const int32_t* pairs, int32_t count) {
    Sums sums;
    int64_t room = kind.firstRow ? 5 : kRooms - 1;
    bool adjacent = true;
    for (int32_t i = 0; i < count; ++i) {
      const int32_t run = at(pairs, 2 * ptrdiff_t(i)), level = at(pairs, 2 * ptrdiff_t(i) + 1);
      const uint32_t size = magnitude(level), number = levelNumber(size, uint32_t(level >> 31));
      const int then = i + 1 == count ? kLast : at(pairs, 2 * ptrdiff_t(i) + 2) == 0 ? kAdjacent : kBehindRun;
      // Runs of 16 and more, which fit no block, end in the bits of one that is shorter by eights.
      const int known = run < 0 ? 0 : run < kRuns ? run : kRuns / 2 + run % (kRuns / 2);
      const Code code = runs_[kRuns * std::clamp<int64_t>(room, 0, kRooms - 1) + known];
      const auto exactly = [=] { return size; };
      if (i == 0) {
        adjacent = run == 0 && then == kAdjacent;
        sums.level[adjacent] += putFirst((run == 0) + 2 * (size > 1) + 4 * then, number, adjacent, code, exactly);
        room = int64_t(14 - kind.firstPlace) - run;
        continue;
      }
      room -= int64_t(run) + 1;
      const int symbol = int(size > 1) + 2 * then;
      const Code index = indices_[adjacent][room > 0    ? symbol
                                            : room == 0 ? kIndices + symbol % 4
                                                        : 2 * kIndices + symbol % 2];
      sums.index[adjacent] += index.sums;
      adjacent &= then == kAdjacent;
      sums.level[adjacent] += put(code.before(index), number, adjacent, {}, exactly);
    }
    adapt(sums);
  }

  // Hands the position in the stream back.
  void finish() { bits_.finish(); }

 private:
  void adapt(const Sums& sums) { sums.adapt(state_, next_, kind.level); }

  template <class Size>
  QELJ_INLINE uint32_t putFirst(int symbol, uint32_t number, bool adjacent, Code run, Size&& size) {
    const Code index = firsts_[symbol];
    jpegxr::adapt(state_, first_, int16_t(index.sums >> 16));
    return put(index, number, adjacent, run, size);
  }
  // What belongs to a coefficient in one piece: what comes in front of its level and what comes behind, which are no
  // more than 32 bits if the level has a number. Returns what the level sums up.
  template <class Size>
  QELJ_INLINE uint32_t put(Code front, uint32_t number, bool adjacent, Code behind, Size&& size) {
    const Code level = levels_[adjacent][number];
    const Code both = front.before(level);
    if (number % kSigned == kLevels - 1) [[unlikely]] {
      bits_.append(both);
      appendEscape(bits_, state_.codeTable[kind.level + adjacent], size());
      bits_.settle();
      bits_.append(behind);
    } else {
      bits_.append(both.before(behind));
    }
    bits_.settle();
    return level.sums;
  }

  UnitWriter bits_;
  VLCState& state_;
  const int first_, next_;
  const Code* const runs_;
  const Code* const firsts_;
  const Code* const indices_[2];
  const Code* const levels_[2];
};

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
