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
};
inline constexpr BlockKind kBlock = {kHighFirst, kHighNext, kHighLevel, 1, 0};
inline constexpr BlockKind kDC444 = {kLowFirst, kLowNext, kLowLevel, 1, 0};
inline constexpr BlockKind kDC422 = {kLowFirst + kChromaStep, kLowNext + kChromaStep, kLowLevel, 2, 0};
inline constexpr BlockKind kDC420 = {kLowFirst + kChromaStep, kLowNext + kChromaStep, kLowLevel, 10, 2};

// What an index says about the next coefficient.
enum Following : uint32_t { kLast = 0, kAdjacent = 1, kBehindRun = 2 };

// --- runs --------------------------------------------------------------------------------------------------

// A run of zeros in `room` places: below 5 places a unary code, above it a class of the row for that much
// room, and extra bits.
struct RunClass {
  uint8_t base, extraBits;
};
inline constexpr RunClass kRunClasses[3][5] = {
    {{1, 0}, {2, 0}, {3, 1}, {5, 1}, {7, 3}},
    {{1, 0}, {2, 0}, {3, 1}, {5, 1}, {7, 2}},
    {{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 1}},
};
// The class of a run, of 7 and more alike; in row 2 the last class begins at 5.
inline constexpr uint8_t kRunSymbol[2][8] = {{0, 0, 1, 2, 2, 3, 3, 4}, {0, 0, 1, 2, 3, 4, 4, 4}};
constexpr int runRow(int64_t room) { return room >= 11 ? 0 : room >= 7 ? 1 : 2; }

// --- levels ------------------------------------------------------------------------------------------------

// A magnitude of 2 or more, less 2, below 16: symbol, and bits behind its code. From 16 on the symbol is kEscape.
inline constexpr uint8_t kLevelSymbol[16] = {0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};
inline constexpr uint8_t kLevelBits[6] = {0, 0, 1, 2, 2, 2}, kLevelBase[6] = {2, 3, 4, 6, 10, 14};
inline constexpr int kEscape = 6, kEscapeBits = 4;

// --- adaptation --------------------------------------------------------------------------------------------

inline void adaptFirst(VLCState& state, int entry, int symbol) {
  state.discriminant[entry] = addWrap<int32_t>(state.discriminant[entry], state.deltaTable[entry][symbol]);
}
inline void adaptBoth(VLCState& state, int entry, int symbol) {
  adaptFirst(state, entry, symbol);
  state.discriminant2[entry] = addWrap<int32_t>(state.discriminant2[entry], state.deltaTable2[entry][symbol]);
}

// --- encoder -----------------------------------------------------------------------------------------------

// The bits of a run, an index with its sign, and a level below the escape are at most 28, so that a
// coefficient is settled once.
class SymbolWriter {
 public:
  SymbolWriter(UnitWriter& out, VLCState& state) : out_(out), state_(state) {}

  // A symbol's code and `extraBits` bits behind it.
  void code(int entry, int symbol, uint32_t extra = 0, int extraBits = 0) {
    const int32_t* const pair = state_.codeTable[entry] + 1 + 2 * symbol;
    out_.add(uint32_t(pair[0]) << extraBits | (extra & ((1u << extraBits) - 1)), pair[1] + extraBits);
  }
  void index(int entry, int symbol, bool negative) {
    adaptBoth(state_, entry, symbol);
    code(entry, symbol, negative, 1);
  }
  void level(int entry, uint32_t magnitude) {
    const uint32_t a = magnitude - 2;
    if (a < 16) {
      const int symbol = kLevelSymbol[a];
      adaptFirst(state_, entry, symbol);
      code(entry, symbol, a, kLevelBits[symbol]);
      return;
    }
    adaptFirst(state_, entry, kEscape);
    const int length = std::bit_width(a >> 5);
    out_.settle();
    if (length < 15) code(entry, kEscape, uint32_t(length), 4);
    else if (length < 18) code(entry, kEscape, 15u << 2 | uint32_t(length - 15), 6);
    else  // beyond 25 the length does not fit, and its low bits go out
      code(entry, kEscape, 15u << 5 | 3u << 3 | (uint32_t(length - 18) & 7), 9);
    out_.settle();
    out_.add(a, length + kEscapeBits);
  }
  void run(int32_t run, int64_t room) {
    if (room < 2) return;
    if (room < 5) out_.add(run < room, int(std::min<int64_t>(run, room - 1)));
    else runClass(run, runRow(room));
  }
  void runClass(int32_t run, int row) {
    const int symbol = kRunSymbol[row == 2][std::min(run, 7)];
    const RunClass c = kRunClasses[row][symbol];
    code(kRunClass, symbol, uint32_t(run - c.base), c.extraBits);
  }

 private:
  UnitWriter& out_;
  VLCState& state_;
};

// Codes `count` pairs (run, level). A list that doesn't fit its block gives a stream that no decoder follows,
// but nothing is written elsewhere.
template <const BlockKind& kind>
inline UnitWriter ownEncodePairs(UnitWriter bits, VLCState& state, const int32_t* pairs, int32_t count,
                                 int32_t chroma) {
  if (count < 1) return bits;
  SymbolWriter out(bits, state);
  const int first = kind.first + kChromaStep * (chroma != 0), next = kind.next + kChromaStep * (chroma != 0);
  int32_t run = at(pairs, 0), nextRun = 0, level = at(pairs, 1);
  const auto following = [&](int32_t i) -> int {
    if (i + 1 >= count) return kLast;
    nextRun = at(pairs, 2 * ptrdiff_t(i + 1));
    return nextRun == 0 ? kAdjacent : kBehindRun;
  };

  uint32_t size = magnitude(level);
  int then = following(0);
  int context = run == 0 && then == kAdjacent;
  out.index(first, int(run == 0) + 2 * int(size > 1) + 4 * then, level < 0);
  if (size > 1) out.level(kind.level + context, size);
  bits.settle();
  if (run > 0) out.runClass(run, kind.firstRow);
  bits.settle();

  int64_t room = int64_t(14 - kind.firstPlace) - run;
  for (int32_t i = 1; i < count; ++i) {
    run = nextRun;
    if (run > 0) out.run(run, room);
    room -= int64_t(run) + 1;
    level = at(pairs, 2 * ptrdiff_t(i) + 1);
    size = magnitude(level);
    then = following(i);
    const int symbol = int(size > 1) + 2 * then;
    if (room > 0) {
      out.index(next + context, symbol, level < 0);
    } else if (room == 0) {
      // Place 14: a last coefficient or one with a neighbour, in a fixed code.
      constexpr uint8_t kCode[4] = {0, 6, 2, 7}, kLength[4] = {1, 3, 2, 3};
      bits.add(uint32_t(kCode[symbol & 3] << 1 | int(level < 0)), kLength[symbol & 3] + 1);
    } else {
      bits.add(uint32_t(int(size > 1) << 1 | int(level < 0)), 2);
    }
    if (then != kAdjacent) context = 0;
    if (size > 1) out.level(kind.level + context, size);
    bits.settle();
  }
  return bits;
}

// --- decoder -----------------------------------------------------------------------------------------------

class SymbolReader {
 public:
  SymbolReader(UnitReader& in, VLCState& state) : in_(in), state_(state) {}

  // Codes of at most 5 bits, by one look; at most 8 bits, by one look.
  int shortCode(int entry) {
    const int value = state_.decodeTable[entry][in_.peek(kFirstBits)];
    in_.skip(value & 7);
    return value >> 3;
  }
  int longCode(int entry) {
    const int value = state_.decodeTable2[entry][in_.peek(kDirectBits)];
    in_.skip(value & 15);
    return value >> 4;
  }
  int firstIndex(int entry) {
    const int symbol = longCode(entry);
    adaptBoth(state_, entry, symbol);
    return symbol;
  }
  int nextIndex(int entry) {
    const int symbol = shortCode(entry);
    adaptBoth(state_, entry, symbol);
    return symbol;
  }
  // Place 14 has room for one neighbour, place 15 for none.
  int fixedIndex(int place) {
    if (place > 14) return int(in_.take(1));
    if (!in_.take(1)) return 0;
    if (!in_.take(1)) return 2;
    return 1 + 2 * int(in_.take(1));
  }
  // Takes at most 15 bits before it refills, and leaves at least 16 held.
  uint32_t level(int entry) {
    const int symbol = longCode(entry);
    adaptFirst(state_, entry, symbol);
    uint32_t magnitude;
    if (symbol < kEscape) {
      magnitude = kLevelBase[symbol] + in_.take(kLevelBits[symbol]);
    } else {
      int length = int(in_.take(4));
      if (length == 15) length += int(in_.take(2));
      if (length == 18) length += int(in_.take(3));
      length += kEscapeBits;
      magnitude = (1u << length) + 2;
      if (length > 16) {
        in_.refill();
        length -= 16;
        magnitude += in_.take(length) << 16;
        length = 16;
      }
      in_.refill();
      magnitude += in_.take(length);
    }
    in_.refill();
    return magnitude;
  }
  // A run of 1 or more in `room` places, 1 or more. It may be longer than that.
  int run(int room) {
    if (room >= 5) return runClass(runRow(room));
    int run = 1;
    while (run < room && !in_.take(1)) ++run;
    return run;
  }
  int runClass(int row) {
    const RunClass c = kRunClasses[row][shortCode(kRunClass)];
    return c.base + int(in_.take(c.extraBits));
  }

 private:
  UnitReader& in_;
  VLCState& state_;
};

// Decodes one block's coefficients and hands them to store(place, level, sign), sign being 1 for a negative
// one. Returns their number, or kStopped when the stream sends a coefficient behind place 15.
inline constexpr int kStopped = 16;
template <const BlockKind& kind, class Store>
inline int ownDecodeCoefficients(UnitReader& bits, VLCState& state, int32_t chroma, Store&& store) {
  SymbolReader in(bits, state);
  const int first = kind.first + kChromaStep * (chroma != 0), next = kind.next + kChromaStep * (chroma != 0);

  // Index, sign and run take up to 16 bits.
  int symbol = in.firstIndex(first);
  uint32_t negative = bits.take(1), level = 1;
  int then = symbol >> 2, context = symbol & then & 1, place = kind.firstPlace;
  if (symbol & 2) {
    bits.refill();
    level = in.level(kind.level + context);
  }
  if (!(symbol & 1)) place += in.runClass(kind.firstRow);

  for (int count = 1;; ++count) {
    if (place >= kPlaces) return kStopped;
    store(place, level, negative);
    if (then == kLast) return count;
    ++place;
    bits.refill();
    if (then == kBehindRun) {
      if (place >= kPlaces - 1) return kStopped;
      place += in.run(kPlaces - 1 - place);
    }
    if (place >= kPlaces) return kStopped;
    symbol = place < 14 ? in.nextIndex(next + context) : in.fixedIndex(place);
    then = symbol >> 1;
    context &= then;
    negative = bits.take(1);
    level = 1;
    if (symbol & 1) {
      bits.refill();
      level = in.level(kind.level + context);
    }
  }
}

}  // namespace qelj::jpegxr

#endif
