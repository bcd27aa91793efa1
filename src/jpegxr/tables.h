// The code tables of the coefficient coders (ITU-T T.832, 8.8 and tables there) and, made from them when this
// is compiled, the tables to decode by, and those that the coders look into.
#ifndef QELJ_JPEGXR_TABLES_H
#define QELJ_JPEGXR_TABLES_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace qelj::jpegxr {

// A code table is the symbol count, then (code, length) a symbol. A table of deltas is what each symbol adds
// to a discriminant; with several of them, table i belongs to the step between code tables i and i + 1.
template <int symbols>
using CodeTable = std::array<int32_t, 2 * symbols + 1>;
template <int symbols>
using DeltaTable = std::array<int32_t, symbols>;

template <int symbols>
struct Codes;

// clang-format off
template <>
struct Codes<4> {
  static constexpr int start = 0;
  static constexpr CodeTable<4> codes[] = {
      {4,  1, 1,  1, 2,  0, 3,  1, 3},
  };
  static constexpr std::array<DeltaTable<4>, 0> deltas{};
};
template <>
struct Codes<5> {
  static constexpr int start = 0;
  static constexpr CodeTable<5> codes[] = {
      {5,  1, 1,  1, 2,  1, 3,  0, 4,  1, 4},
      {5,  1, 1,  0, 3,  1, 3,  2, 3,  3, 3},
  };
  static constexpr DeltaTable<5> deltas[] = {
      {0, -1, 0, 1, 1},
  };
};
template <>
struct Codes<6> {
  static constexpr int start = 1;
  static constexpr CodeTable<6> codes[] = {
      {6,  1, 1,  0, 5,  1, 3,  1, 5,  1, 2,  1, 4},
      {6,  1, 2,  0, 4,  2, 2,  1, 4,  3, 2,  1, 3},
      {6,  0, 4,  1, 4,  1, 2,  2, 2,  3, 2,  1, 3},
      {6,  0, 5,  1, 5,  1, 2,  1, 1,  1, 4,  1, 3},
  };
  static constexpr DeltaTable<6> deltas[] = {
      {-1, 1, 1, 1, 0, 1},
      {-2, 0, 0, 2, 0, 0},
      {-1, -1, 0, 1, -2, 0},
  };
};
template <>
struct Codes<7> {
  static constexpr int start = 0;
  static constexpr CodeTable<7> codes[] = {
      {7,  1, 2,  2, 2,  3, 2,  1, 3,  1, 4,  0, 5,  1, 5},
      {7,  1, 1,  1, 2,  1, 3,  1, 4,  1, 5,  0, 6,  1, 6},
  };
  static constexpr DeltaTable<7> deltas[] = {
      {1, 0, -1, -1, -1, -1, -1},
  };
};
template <>
struct Codes<8> {
  static constexpr int start = 0;
  static constexpr CodeTable<8> codes[] = {
      {8,  2, 2,  1, 3,  1, 5,  1, 4,  3, 2,  2, 3,  0, 5,  3, 3},
      {8,  1, 3,  2, 3,  1, 4,  3, 3,  4, 3,  5, 3,  0, 4,  3, 2},
  };
  static constexpr std::array<DeltaTable<8>, 0> deltas{};
};
template <>
struct Codes<9> {
  static constexpr int start = 0;
  static constexpr CodeTable<9> codes[] = {
      {9,  2, 3,  0, 5,  2, 4,  1, 5,  2, 5,  1, 1,  3, 3,  3, 5,  3, 4},
      {9,  1, 1,  1, 3,  2, 3,  1, 4,  1, 6,  3, 3,  1, 5,  0, 7,  1, 7},
  };
  static constexpr DeltaTable<9> deltas[] = {
      {2, 2, 1, 1, -1, -2, -2, -2, -3},
  };
};
template <>
struct Codes<12> {
  static constexpr int start = 1;
  static constexpr CodeTable<12> codes[] = {
      {12,  1, 5,  1, 6,  0, 7,  1, 7,  4, 5,  2, 3,  5, 5,  1, 1,  6, 5,  1, 4,  7, 5,  3, 3},
      {12,  2, 4,  2, 5,  0, 6,  1, 6,  3, 4,  2, 3,  3, 5,  3, 2,  3, 3,  4, 3,  1, 5,  5, 3},
      {12,  3, 2,  1, 3,  0, 7,  1, 7,  1, 5,  2, 3,  2, 7,  3, 3,  4, 3,  5, 3,  3, 7,  1, 4},
      {12,  1, 3,  3, 2,  0, 7,  1, 5,  2, 5,  2, 3,  1, 7,  3, 3,  3, 5,  4, 3,  1, 6,  5, 3},
      {12,  2, 3,  1, 1,  1, 7,  1, 4,  2, 7,  3, 3,  0, 8,  2, 4,  3, 7,  3, 4,  1, 8,  1, 5},
  };
  static constexpr DeltaTable<12> deltas[] = {
      {1, 1, 1, 1, 1, 0, 0, -1, 2, 1, 0, 0},
      {2, 2, -1, -1, -1, 0, -2, -1, 0, 0, -2, -1},
      {-1, 1, 0, 2, 0, 0, 0, 0, -2, 0, 1, 1},
      {0, 1, 0, 1, -2, 0, -1, -1, -2, -1, -2, -2},
  };
};
// clang-format on

// --- decode tables -----------------------------------------------------------------------------------------
// Indexed by the next 5 bits: symbol << 3 | length. A negative value stands for a longer code: less its top bit it is
// the index of a node of the same table, where the next bit chooses between two values: a symbol, or again a negative
// value.
inline constexpr int kFirstBits = 5, kDirectBits = 8;
using DecodeTable = std::array<int16_t, (1 << kFirstBits) + 16>;
// The same codes indexed by the next 8 bits, so that no walk is left: symbol << 4 | length.
using DirectTable = std::array<int16_t, 1 << kDirectBits>;

// Returns 0, 1 or 2 for no, one, or more codes that begin with these bits; `symbol` is the one.
template <int symbols>
constexpr int codesBelow(const CodeTable<symbols>& codes, int bits, int length, int& symbol) {
  int found = 0;
  for (int s = 0; s < symbols; ++s) {
    const int code = codes[size_t(2 * s + 1)], n = codes[size_t(2 * s + 2)];
    const bool same = n >= length ? code >> (n - length) == bits : code == bits >> (length - n);
    if (!same) continue;
    ++found;
    symbol = s;
    if (n <= length) return 1;
  }
  return found > 1 ? 2 : found;
}

template <int symbols>
constexpr DecodeTable makeDecodeTable(const CodeTable<symbols>& codes) {
  DecodeTable table{};
  size_t nodes = 1 << kFirstBits;
  const auto fill = [&](auto& self, size_t place, int bits, int length) -> void {
    int symbol = 0;
    if (codesBelow<symbols>(codes, bits, length, symbol) == 1) {
      const int n = codes[size_t(2 * symbol + 2)];
      table[place] = int16_t(length == kFirstBits ? symbol << 3 | n : symbol);
      return;
    }
    const size_t node = nodes;
    nodes += 2;
    table[place] = int16_t(-32768 + int(node));
    self(self, node, 2 * bits, length + 1);
    self(self, node + 1, 2 * bits + 1, length + 1);
  };
  for (int bits = 0; bits < 1 << kFirstBits; ++bits) fill(fill, size_t(bits), bits, kFirstBits);
  return table;
}

template <int symbols>
constexpr DirectTable makeDirectTable(const CodeTable<symbols>& codes) {
  DirectTable table{};
  for (int bits = 0; bits < 1 << kDirectBits; ++bits) {
    int symbol = 0;
    codesBelow<symbols>(codes, bits, kDirectBits, symbol);
    table[size_t(bits)] = int16_t(symbol << 4 | codes[size_t(2 * symbol + 2)]);
  }
  return table;
}

// --- runs and levels -----------------------------------------------------------------------------------------

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
constexpr int runRow(int room) { return room >= 11 ? 0 : room >= 7 ? 1 : 2; }

// A magnitude of 2 or more, less 2, below 16: symbol, and bits behind its code. From 16 on the symbol is kEscape.
inline constexpr uint8_t kLevelSymbol[16] = {0, 1, 2, 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5};
inline constexpr uint8_t kLevelBits[6] = {0, 0, 1, 2, 2, 2}, kLevelBase[6] = {2, 3, 4, 6, 10, 14};
inline constexpr int kEscape = 6, kEscapeBits = 4;

// --- what one look finds -----------------------------------------------------------------------------------
// A code with all that belongs to it, so that coding takes a load and no branch: most branches of these coders are
// tosses of a coin. An encoder finds the bits to write, a decoder what they mean.
struct Look {
  uint32_t value;
  uint8_t length;  // in bits
  int16_t deltas;  // what is added to the first discriminant + 256 * what is added to the second
};

// The bits that an encoder writes for one, and what it sums up over a block.
struct Code {
  uint32_t value = 0;
  uint32_t sums = 0;  // the number of bits, and deltas * 2^16

  constexpr Code() = default;
  constexpr Code(Look look) : value(look.value), sums(look.length + (uint32_t(uint16_t(look.deltas)) << 16)) {}
  // This code and the next one, which have 32 bits at most together.
  constexpr Code before(Code next) const {
    Code both;
    both.value = value << (next.sums & 31) | next.value;
    both.sums = sums + next.sums;
    return both;
  }
};

// The number of a table that the record points to, and looks made from it, behind it.
template <class Table, class T, size_t n>
struct WithLooks {
  Table table;
  int number;
  std::array<T, n> looks;
};

// The steps between tables that the discriminants watch: to the table below, and to the table above.
template <int symbols>
inline constexpr int kSteps = int(std::size(Codes<symbols>::deltas));
template <int symbols>
constexpr int stepBelow(int t) {
  return std::clamp(t - 1, 0, kSteps<symbols> - 1);
}
template <int symbols>
constexpr int stepAbove(int t) {
  return std::clamp(t, 0, kSteps<symbols> - 1);
}
template <int symbols>
constexpr int16_t deltasOf(int t, int symbol) {
  int deltas = 0;
  if constexpr (kSteps<symbols> > 0) deltas += Codes<symbols>::deltas[stepBelow<symbols>(t)][size_t(symbol)];
  if constexpr (kSteps<symbols> > 1) deltas += 256 * Codes<symbols>::deltas[stepAbove<symbols>(t)][size_t(symbol)];
  return int16_t(deltas);
}

// Encoding: of an index by its symbol; of a level with its sign in front by kSigned and its magnitude, where kLevels - 1
// stands for all that are as large or larger: a sign with what the escape adds up; of a run in so much room by
// kRuns * room + run, where there is none by 0.
inline constexpr uint32_t kLevels = 128, kSigned = 128;  // levels fit a byte
inline constexpr int kRooms = 15, kRuns = 16;
using FirstCodes = WithLooks<CodeTable<12>, Code, 12>;
using LevelCodes = WithLooks<CodeTable<7>, Code, 2 * kLevels>;
using RunCodes = WithLooks<CodeTable<5>, Code, kRooms * kRuns>;

// Place 14 has room for one neighbour and place 15 for none: their indices have fixed codes, which adapt nothing. Behind
// the codes of a further index stand those for place 14, then those for place 15, from a multiple of kIndices on.
inline constexpr int kFixedPlace = 14, kIndices = 8;
struct FixedIndex {
  int symbol;
  uint32_t code;
  int length;
};
inline constexpr FixedIndex kFixedIndices[2][4] = {{{0, 0, 1}, {2, 2, 2}, {1, 6, 3}, {3, 7, 3}},
                                                   {{0, 0, 1}, {1, 1, 1}}};
using NextCodes = WithLooks<CodeTable<6>, Code, 3 * kIndices>;

// A symbol's code with bits behind it.
template <int symbols>
constexpr Look makeCode(int t, int symbol, uint32_t extra, int extraBits) {
  const auto& codes = Codes<symbols>::codes[t];
  return {uint32_t(codes[size_t(2 * symbol + 1)]) << extraBits | (extra & ((1u << extraBits) - 1)),
          uint8_t(codes[size_t(2 * symbol + 2)] + extraBits), deltasOf<symbols>(t, symbol)};
}
// How many bits an escape's length tells, less kEscapeBits.
constexpr int escapeLength(uint32_t a) { return std::bit_width(a >> 5); }

template <int symbols>
constexpr auto makeEncodeTable(int t) {
  const auto& codes = Codes<symbols>::codes[t];
  if constexpr (symbols == 6) {
    NextCodes table{codes, t, {}};
    for (int i = 0; i < symbols; ++i) table.looks[size_t(i)] = makeCode<symbols>(t, i, 0, 0);
    for (size_t last = 0; last < 2; ++last)
      for (const FixedIndex& index : kFixedIndices[last])
        if (index.length)
          table.looks[(last + 1) * kIndices + size_t(index.symbol)] = Look{index.code, uint8_t(index.length), 0};
    return table;
  } else if constexpr (symbols == 12) {
    FirstCodes table{codes, t, {}};
    for (int i = 0; i < symbols; ++i) table.looks[size_t(i)] = makeCode<symbols>(t, i, 0, 0);
    return table;
  } else if constexpr (symbols == 7) {
    LevelCodes table{codes, t, {}};
    for (uint32_t negative = 0; negative < 2; ++negative)
      for (uint32_t size = 0; size < kLevels; ++size) {
        Look look = {0, 0, size + 1 == kLevels ? deltasOf<symbols>(t, kEscape) : int16_t(0)};
        if (size > 1 && size + 1 < kLevels) {
          const uint32_t a = size - 2;
          const int length = escapeLength(a), bits = length + kEscapeBits;
          const int symbol = a < 16 ? kLevelSymbol[a] : kEscape;
          look = symbol == kEscape
                     ? makeCode<symbols>(t, symbol, uint32_t(length) << bits | (a & ((1u << bits) - 1)), 4 + bits)
                     : makeCode<symbols>(t, symbol, a, kLevelBits[symbol]);
        }
        look.value |= negative << look.length;
        ++look.length;
        table.looks[kSigned * negative + size] = look;
      }
    return table;
  } else if constexpr (symbols == 5) {
    RunCodes table{codes, t, {}};
    for (int room = 2; room < kRooms; ++room)
      for (int run = 1; run < kRuns; ++run) {
        const RunClass* const classes = kRunClasses[runRow(room)];
        const int symbol = kRunSymbol[runRow(room) == 2][std::min(run, 7)];
        Code& look = table.looks[size_t(kRuns * room + run)];
        if (room < 5) look = Look{run < room, uint8_t(std::min(run, room - 1)), 0};
        else look = makeCode<symbols>(t, symbol, uint32_t(run - classes[symbol].base), classes[symbol].extraBits);
      }
    return table;
  } else {
    return WithLooks<CodeTable<symbols>, Look, 0>{codes, t, {}};
  }
}

// Decoding: of a first index with its sign, whose bit is the last of its length, by the next kDirectBits; of a level
// with the bits behind its code by the next kDirectBits, 0 standing for an escape, and of the level 1, which has no
// code, behind all others; of a run by the places in front of it and the next kRunBits.
inline constexpr int kRunBits = 7;
struct RunLook {
  uint8_t length, run;
};
using ShortIndices = WithLooks<DecodeTable, Look, 0>;
using LongIndices = WithLooks<DirectTable, Look, 1 << kDirectBits>;
using Levels = WithLooks<DirectTable, Look, (1 << kDirectBits) + 1>;
using Runs = WithLooks<DecodeTable, RunLook, kRuns << kRunBits>;

// The symbol that the next `count` bits begin with, and the bits behind its code.
struct Found {
  int symbol, length;
  constexpr uint32_t behind(uint32_t bits, int count, int wanted) const {
    return bits >> (count - length - wanted) & ((1u << wanted) - 1);
  }
};
template <int symbols>
constexpr Found find(int t, uint32_t bits, int count) {
  int symbol = 0;
  codesBelow<symbols>(Codes<symbols>::codes[t], int(bits), count, symbol);
  return {symbol, Codes<symbols>::codes[t][size_t(2 * symbol + 2)]};
}

template <int symbols>
constexpr auto makeShortTable(int t) {
  const auto& codes = Codes<symbols>::codes[t];
  if constexpr (symbols == 5) {
    Runs table{makeDecodeTable<symbols>(codes), t, {}};
    for (uint32_t bits = 0; bits < 1 << kRunBits; ++bits) {
      const Found found = find<symbols>(t, bits, kRunBits);
      for (int room = 1; room < kRuns; ++room) {
        RunLook& look = table.looks[size_t((kRuns - 1 - room) << kRunBits) + bits];
        const RunClass c = kRunClasses[runRow(room)][found.symbol];
        const int zeros = std::min(std::countl_zero(bits << (32 - kRunBits)), room - 1);
        if (room < 5) look = {uint8_t(std::min(zeros + 1, room - 1)), uint8_t(zeros + 1)};
        else look = {uint8_t(found.length + c.extraBits), uint8_t(c.base + found.behind(bits, kRunBits, c.extraBits))};
      }
    }
    return table;
  } else {
    return ShortIndices{makeDecodeTable<symbols>(codes), t, {}};
  }
}

template <int symbols>
constexpr auto makeLongTable(int t) {
  const auto direct = makeDirectTable<symbols>(Codes<symbols>::codes[t]);
  if constexpr (symbols == 12) {
    LongIndices table{direct, t, {}};
    for (uint32_t bits = 0; bits < 1 << kDirectBits; ++bits) {
      const Found found = find<symbols>(t, bits, kDirectBits);
      table.looks[bits] = {uint32_t(found.symbol), uint8_t(found.length + 1), deltasOf<symbols>(t, found.symbol)};
    }
    return table;
  } else if constexpr (symbols == 7) {
    Levels table{direct, t, {}};
    table.looks.back() = {1, 0, 0};
    for (uint32_t bits = 0; bits < 1 << kDirectBits; ++bits) {
      const Found found = find<symbols>(t, bits, kDirectBits);
      Look& look = table.looks[bits];
      look = {0, uint8_t(found.length), deltasOf<symbols>(t, found.symbol)};
      if (found.symbol == kEscape) continue;
      const int extra = kLevelBits[found.symbol];
      look.value = kLevelBase[found.symbol] + found.behind(bits, kDirectBits, extra);
      look.length = uint8_t(look.length + extra);
    }
    return table;
  } else {
    return WithLooks<DirectTable, Look, 0>{direct, t, {}};
  }
}

// Of a further coefficient by the next kNextBits, with the tables of its index and its level: nearly all of them, at
// once and in one number, as decoding is a chain in which each look waits for the length that the one before has found.
// That stands in the low bits, which 64-bit shifts take from a register as it is.
inline constexpr int kNextBits = 11;
class NextLook {
 public:
  // The deltas of an index and, behind them, of a level: numbers with a sign that can be added up to those of a block,
  // which has no more than twelve such looks and fifteen levels.
  static constexpr int kDeltaBits = 6, kLevelDeltaAt = 2 * kDeltaBits, kDeltasBits = 17;

  NextLook() = default;
  // `level` is an index of kNextLevels; `length` has its bits, too.
  constexpr NextLook(uint32_t then, uint32_t level, int length, Look index, Look code = {})
      : bits_(level << kLevelAt | deltasOf(index, code) << kDeltasAt | then << kThenAt | uint32_t(length)) {}
  uint32_t then() const { return bits_ >> kThenAt & 3; }
  uint32_t level() const { return bits_ >> kLevelAt; }
  uint32_t deltas() const { return bits_ >> kDeltasAt; }  // in its low kDeltasBits
  uint32_t length() const { return bits_; }               // in its low six bits

 private:
  static constexpr int kThenAt = 6, kDeltasAt = 8, kLevelAt = 26;
  static constexpr uint32_t deltasOf(Look index, Look code) {
    const auto first = int8_t(index.deltas);
    const int second = (index.deltas - first) >> 8;
    return uint32_t(first + (second << kDeltaBits) + (code.deltas << kLevelDeltaAt)) & ((1u << kDeltasBits) - 1);
  }
  uint32_t bits_;
};
using NextTable = std::array<NextLook, 1 << kNextBits>;

// Levels with their sign, by twice a number and the sign: from 2 on those without an escape, then those of escapes by
// the bits that they send. Number 0 stands for all others, which are looked up by themselves, behind the sign.
struct NextLevel {
  int32_t base;
  uint16_t bits;
  int16_t sign;  // -1 or 0
};
inline constexpr uint32_t kPlainLevels = 18, kMostNextLevels = 32;
inline constexpr int kMostEscapeBits = kEscapeBits + int(kMostNextLevels - kPlainLevels) - 1;
inline constexpr auto kNextLevels = [] {
  std::array<NextLevel, 2 * kMostNextLevels> all{};
  for (uint32_t number = 1; number < kMostNextLevels; ++number) {
    const bool plain = number < kPlainLevels;
    const int bits = plain ? 0 : kEscapeBits + int(number - kPlainLevels), base = plain ? int(number) : 2 + (1 << bits);
    all[2 * number] = {base, uint16_t(bits), 0}, all[2 * number + 1] = {-base, uint16_t(bits), -1};
  }
  return all;
}();

// Behind the last neighbour of context 1, a level is one of context 0: there, it is looked up by itself.
constexpr NextTable makeNextTable(int t, int levels, int context) {
  NextTable table{};
  const auto fill = [&table](uint32_t code, int length, NextLook look) {
    const auto first = table.begin() + (code << (kNextBits - length));
    std::fill(first, first + (1 << (kNextBits - length)), look);
  };
  for (uint32_t i = 0; i < 2 * 6; ++i) {
    const uint32_t symbol = i >> 1, then = symbol >> 1, sign = i & 1;
    const Look index = makeCode<6>(t, int(symbol), sign, 1);
    fill(index.value, index.length, {then, symbol & 1 ? 0 : 2 + sign, index.length, index});
    if (!(symbol & 1) || (context && !(then & 1))) continue;
    const auto add = [&](uint32_t number, Look code, int behind) {
      const int length = index.length + code.length;
      if (length <= kNextBits)
        fill(index.value << code.length | code.value, length, {then, 2 * number + sign, length + behind, index, code});
    };
    for (uint32_t a = 0; a + 2 < kPlainLevels; ++a)
      add(a + 2, makeCode<7>(levels, kLevelSymbol[a], a, kLevelBits[kLevelSymbol[a]]), 0);
    for (int bits = kEscapeBits; bits <= kMostEscapeBits; ++bits)
      add(kPlainLevels + uint32_t(bits - kEscapeBits), makeCode<7>(levels, kEscape, uint32_t(bits - kEscapeBits), 4),
          bits);
  }
  return table;
}
// By the context, the table of the index, then that of the level.
inline constexpr auto kNext = [] {
  std::array<std::array<std::array<NextTable, 2>, 4>, 2> all{};
  for (int context = 0; context < 2; ++context)
    for (int t = 0; t < 4; ++t)
      for (int levels = 0; levels < 2; ++levels)
        all[size_t(context)][size_t(t)][size_t(levels)] = makeNextTable(t, levels, context);
  return all;
}();

}  // namespace qelj::jpegxr

#endif
