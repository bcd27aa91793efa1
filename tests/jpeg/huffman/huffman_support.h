// Huffman tables, records and blocks for tests.
#ifndef QELJ_TESTS_HUFFMAN_SUPPORT_H
#define QELJ_TESTS_HUFFMAN_SUPPORT_H

#include <algorithm>
#include <array>
#include <numeric>
#include <string>
#include <vector>

#include "qelj.h"
#include "support/pages.h"

namespace qelj::test {

using Block = std::array<int16_t, 64>;

inline constexpr int kScan[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                  12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                  35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                  58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The lists of a DHT segment.
struct Lists {
  std::array<uint8_t, 16> bits{};
  std::vector<uint8_t> vals;

  // Codes of up to 16 bits for `symbols` of the 256 symbols in random order, no code all ones. `skew` makes
  // short codes rarer and long ones more.
  static Lists random(Random& r, int symbols = 256, int skew = 50) {
    Lists t;
    std::vector<uint8_t> order(256);
    std::iota(order.begin(), order.end(), uint8_t(0));
    for (size_t i = 255; i > 0; --i) std::swap(order[i], order[size_t(r.in(0, int64_t(i)))]);
    int64_t left = 1, todo = symbols;
    for (int l = 1; l <= 16; ++l) {
      left *= 2;
      const int64_t most = std::min({todo, left - 1, int64_t(255)});
      int64_t n = l == 16 ? most : r.chance(skew) ? r.in(0, most / (l < 8 ? 3 : 1)) : 0;
      while (n > 0 && ((left - n) << (16 - l)) - 1 < todo - n) --n;  // the others need room
      t.bits[size_t(l - 1)] = uint8_t(n);
      left -= n, todo -= n;
    }
    t.vals.assign(order.begin(), order.begin() + (symbols - todo));
    return t;
  }
  // As random, with all 256 symbols (one length holds 255), and without 16-bit codes on both sides of 0x8000, some
  // of which a decoder would not find.
  static Lists decodable(Random& r, int skew) {
    for (;;) {
      const Lists t = random(r, 256, skew);
      unsigned code = 0;
      for (size_t l = 1; l < 16; ++l) code = (code + t.bits[l - 1]) * 2;
      if (t.vals.size() == 256 && (code >= 0x8000 || code + t.bits[15] <= 0x8000)) return t;
    }
  }
  // Every symbol, eight bits or nine each: any block can be coded.
  static Lists flat() {
    Lists t;
    t.bits[7] = 254, t.bits[8] = 2;
    t.vals.resize(256);
    std::iota(t.vals.begin(), t.vals.end(), uint8_t(0));
    return t;
  }
  // The code of every symbol as a text of 0 and 1, empty where it has none (C.2).
  std::array<std::string, 256> codes() const {
    std::array<std::string, 256> all;
    unsigned code = 0;
    size_t k = 0;
    for (size_t l = 1; l <= 16; ++l, code *= 2)
      for (int i = 0; i < bits[l - 1]; ++i, ++code) {
        std::string& text = all[vals[k++]];
        text.clear();
        for (size_t b = l; b-- > 0;) text += char('0' + (code >> b & 1));
      }
    return all;
  }
};

// The records of one table, at odd addresses.
class Tables {
 public:
  explicit Tables(const Lists& from) : lists(from) {
    encoderStatus = qeliEncodeHuffmanSpecInit_JPEG_8u(lists.bits.data(), vals(), encoder());
    decoderStatus = qeliDecodeHuffmanSpecInit_JPEG_8u(lists.bits.data(), vals(), decoder());
  }
  QelEncodeHuffmanSpec* encoder() { return reinterpret_cast<QelEncodeHuffmanSpec*>(encoder_.data() + 1); }
  QelDecodeHuffmanSpec* decoder() { return reinterpret_cast<QelDecodeHuffmanSpec*>(decoder_.data() + 1); }

  Lists lists;
  QelStatus encoderStatus, decoderStatus;

 private:
  const uint8_t* vals() const {
    static const uint8_t none = 0;
    return lists.vals.empty() ? &none : lists.vals.data();
  }
  std::vector<uint8_t> encoder_ = std::vector<uint8_t>(1 + 1024), decoder_ = std::vector<uint8_t>(1 + 1644);
};

class EncodeState {
 public:
  EncodeState() { qeliEncodeHuffmanStateInit_JPEG_8u(*this); }
  operator QelEncodeHuffmanState*() { return reinterpret_cast<QelEncodeHuffmanState*>(bytes.data() + 1); }
  std::array<uint8_t, 1049> bytes{};
};
class DecodeState {
 public:
  DecodeState() { qeliDecodeHuffmanStateInit_JPEG_8u(*this); }
  operator QelDecodeHuffmanState*() { return reinterpret_cast<QelDecodeHuffmanState*>(bytes.data() + 1); }
  std::array<uint8_t, 25> bytes{};
};

// A bit stream as text, and as the stuffed bytes of an entropy-coded segment.
inline std::string bitText(int64_t value, int length) {
  std::string text;
  for (int b = length; b-- > 0;) text += char('0' + (value >> b & 1));
  return text;
}
inline std::vector<uint8_t> stuffed(std::string text) {
  while (text.size() % 8) text += '1';
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size(); i += 8) {
    bytes.push_back(uint8_t(std::stoi(text.substr(i, 8), nullptr, 2)));
    if (bytes.back() == 0xFF) bytes.push_back(0);
  }
  return bytes;
}

// A block with about `percent` % of its coefficients not zero, of up to `bits` bits.
inline Block randomBlock(Random& r, int percent, int bits) {
  Block block{};
  for (auto& c : block)
    if (r.chance(percent)) {
      const int64_t limit = (int64_t(1) << r.in(1, bits)) - 1;
      c = int16_t(r.in(-limit, limit));
    }
  return block;
}

}  // namespace qelj::test

#endif
