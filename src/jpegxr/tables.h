// The code tables of the coefficient coders (ITU-T T.832, 8.8 and tables there) and, made from them when this
// is compiled, the tables to decode by.
#ifndef QELJ_JPEGXR_TABLES_H
#define QELJ_JPEGXR_TABLES_H

#include <array>
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

}  // namespace qelj::jpegxr

#endif
