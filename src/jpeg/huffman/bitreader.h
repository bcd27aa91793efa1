// The bit reader of every Huffman decoder: refill with the removal of stuffed and fill bytes, Huffman symbols, plain
// bits (ISO/IEC 10918-1, F.2.2).
//
// A table that no Init has filled may claim codes of any length: counts then mean nothing, but shifts stay defined and
// reads within the source.
//
// Bytes are taken in at fixed moments: when fewer than 8 bits are left in front of a symbol, or fewer than a value
// needs, until there are 25 bits or more. Position, marker and accumulator are part of a call's result, so there is no
// other read-ahead; a refill finds four bytes without a 0xFF most of the time and takes them in one step.
#ifndef QELJ_JPEG_HUFFMAN_BITREADER_H
#define QELJ_JPEG_HUFFMAN_BITREADER_H

#include <algorithm>

#include "frame/lanes.h"
#include "jpeg/huffman/bits.h"
#include "jpeg/huffman/records.h"

namespace qelj::jpeg {

// The code of 9 to 16 bits that the 16 bits `next` begin with, as length << 16 | symbol; 0 where there is none or where
// only the search, length by length, can tell. All lengths at once: a length's code is the high part of
// next * 2^length.
inline uint32_t longCode(const QelDecodeHuffmanSpec* table, uint32_t next) {
  if constexpr (!simd::kShuffles) return 0;
  using U = simd::Vec<uint16_t, 16>;
  using I = simd::Vec<int16_t, 16>;
  const U bits = all<U>(uint16_t(next));
  const U codes = mulHi(bits, U{1 << 9, 1 << 10, 1 << 11, 1 << 12, 1 << 13, 1 << 14, 1 << 15, 0}) |
                  (bits & U{0, 0, 0, 0, 0, 0, 0, 0xFFFF});
  const I max = load<I>(reinterpret_cast<const char*>(table) + offsetof(QelDecodeHuffmanSpec, maxCode[9]));
  // A length without codes has a maximum of -1, which only codes of 16 bits can seem to reach; none of these is an
  // index.
  const uint32_t found = ~simd::topBits(as<int16_t>(codes) > max) & 0xFFFF;
  if (found == 0) return 0;
  const int l = 9 + std::countr_zero(found) / 2;
  const int index = table->valueIndex[l] - table->minCode[l] + int(next >> (16 - l));
  return unsigned(index) < 256 ? uint32_t(l) << 16 | table->symbols[index] : 0;
}

// kBounded: the source has a length. Without one, a marker is the only end, and no byte is touched that the
// byte-by-byte refill would not touch.
template <bool kBounded>
class BitReader {
 public:
  // What a failed search leaves as the symbol.
  static constexpr int32_t kNoCode = 0, kRanOut = -1;

  // A position outside the source counts as its end.
  BitReader(const uint8_t* src, int32_t length, int32_t position, int32_t marker, uint32_t buffer, int32_t count)
      : src_(src), position_(position), marker_(marker), count_(count), buffer_(buffer) {
    end_ = uint32_t(position) <= uint32_t(length) ? length : position;
    wordEnd_ = marker == 0 ? end_ - 4 : INT64_MIN;
  }

  int32_t position() const { return int32_t(position_); }
  int32_t marker() const { return marker_; }
  int32_t count() const { return count_; }
  uint32_t buffer() const { return uint32_t(buffer_); }

  // Makes `needed` bits available, 25 at most.
  QelStatus need(int needed) { return count_ >= needed ? qelStatusOk : refill(needed); }

  // Takes in bytes up to 25 bits or more; fails where fewer than `needed` bits can be had.
  QelStatus refill(int needed) {
    if (takeWord()) [[likely]]
      return qelStatusOk;
    BitReader reader = *this;  // keeps the accumulator of the caller's loop in registers
    const QelStatus s = reader.refillByBytes(needed);
    *this = reader;
    return s;
  }

  // The next `length` available bits.
  uint32_t peek(int length) const { return uint32_t(buffer_ >> ((count_ - length) & 63)) & ((1u << length) - 1); }
  uint32_t take(int length) {
    const uint32_t bits = peek(length);
    count_ -= length;
    return bits;
  }
  void drop(int length) { count_ -= length; }

  // The next 16 bits, with zeros behind the available ones.
  uint32_t peek16() const { return count_ >= 16 ? peek(16) : uint32_t(buffer_ << ((16 - count_) & 63)) & 0xFFFF; }

  // One Huffman symbol.
  QelStatus symbol(const QelDecodeHuffmanSpec* table, int32_t& symbol) {
    if (count_ < 8) [[unlikely]] {
      if (auto s = refill(0); s) return s;
      if (count_ < 8) return search(table, 1, symbol);
    }
    uint32_t entry = table->lookup[peek(8)];
    if (entry == 0) [[unlikely]] {
      entry = longCode(table, peek16());
      if (entry == 0 || int(entry >> 16) > count_) return search(table, 9, symbol);
    }
    count_ -= int(entry >> 16);
    symbol = uint8_t(entry);
    return qelStatusOk;
  }

  // A symbol with a code of up to 8 bits, of 8 available bits or more, and the value behind it, if that is available.
  bool codeAndValue(const QelDecodeHuffmanSpec* table, int32_t& symbol, int32_t& value) {
    const uint32_t entry = table->lookup[peek(8)];
    const int length = int(entry & 15), left = count_ - int(entry >> 16) - length;
    if (entry == 0 || left < 0) return false;
    count_ = left;
    symbol = int32_t(entry & 0xFFFF);
    value = valueBehind(length);
    return true;
  }

  // `length` (0 to 15) bits behind a symbol, as a value.
  QelStatus value(int length, int32_t& value) {
    if (auto s = need(length); s) return s;
    count_ -= length;
    value = valueBehind(length);
    return qelStatusOk;
  }

  // The search of F.2.2.3 from codes of `length` bits on, bit by bit.
  QelStatus search(const QelDecodeHuffmanSpec* table, int length, int32_t& symbol) {
    BitReader reader = *this;
    int32_t found;
    const QelStatus s = reader.searchByBits(table, length, found);
    *this = reader;
    symbol = found;
    return s;
  }

 private:
  // The last `length` bits that have been taken, as a value.
  int32_t valueBehind(int length) const {
    const uint32_t ones = (1u << length) - 1, bits = uint32_t(buffer_ >> (count_ & 63)) & ones;
    return int32_t(bits <= ones >> 1 ? bits - ones : bits);  // EXTEND, F.2.2.1
  }

  // Takes in all the bytes of a refill in one step where no 0xFF stands among the next four. Without a length
  // it reads pairs: behind a byte that is not 0xFF, a marker is still to come.
  bool takeWord() {
    if constexpr (!simd::kEnabled) {
      return false;
    } else if constexpr (kBounded) {
      if (position_ > wordEnd_) return false;
      const uint32_t word = streamOrder(load<uint32_t>(src_ + position_));
      if (hasFF(word)) return false;
      const int bits = (32 - count_) & ~7;
      buffer_ = (buffer_ << 32 | word) >> ((32 - bits) & 63);
      count_ += bits;
      position_ += bits >> 3;
    } else {
      if (marker_ != 0 || count_ > 16) return false;
      const uint16_t pair = streamOrder(load<uint16_t>(src_ + position_));
      if (hasFF(pair)) return false;
      buffer_ = buffer_ << 16 | pair;
      count_ += 16;
      position_ += 2;
      if (count_ < 25) {
        const uint8_t byte = src_[position_];
        if (byte == 0xFF) return false;
        buffer_ = buffer_ << 8 | byte;
        count_ += 8;
        position_ += 1;
        if (count_ == 24) return false;
      }
    }
    return true;
  }

  [[gnu::noinline]] QelStatus refillByBytes(int needed) {
    if (marker_ != 0) return needed > count_ ? qelStatusJpegCoeffRange : qelStatusOk;
    while (count_ < 25) {
      if (kBounded && position_ >= end_) return needed > count_ ? qelStatusJpegOutOfBuffer : qelStatusOk;
      int64_t next = position_;
      const uint32_t byte = src_[next++];
      if (byte == 0xFF) {
        uint32_t second;
        do {
          if (kBounded && next >= end_) return qelStatusJpegOutOfBuffer;
          second = src_[next++];
        } while (second == 0xFF);
        if (second != 0) {
          marker_ = int32_t(second);
          wordEnd_ = INT64_MIN;
          position_ = next;
          return needed > count_ ? qelStatusJpegCoeffRange : qelStatusOk;
        }
      }
      position_ = next;
      buffer_ = buffer_ << 8 | byte;
      count_ += 8;
    }
    return qelStatusOk;
  }

  [[gnu::noinline]] QelStatus searchByBits(const QelDecodeHuffmanSpec* table, int length, int32_t& symbol) {
    symbol = kRanOut;
    if (auto s = need(length); s) return s;
    int code = int(take(length));
    for (int l = length;; ++l) {
      // Compared as 16-bit signed values, as the table holds them.
      if (int16_t(code) <= int16_t(table->maxCode[l])) {
        const int index = table->valueIndex[l] - table->minCode[l] + code;
        if (unsigned(index) < 256) {
          symbol = uint8_t(table->symbols[index]);
          return qelStatusOk;
        }
      }
      if (l == 16) {
        symbol = kNoCode;
        return qelStatusJpegCoeffRange;
      }
      if (auto s = need(1); s) {
        if (!kBounded) count_ += l;  // no more bits in front of the marker: they stay where they are
        return s;
      }
      code = code << 1 | int(take(1));
    }
  }

  const uint8_t* src_;
  int64_t position_, end_;
  int64_t wordEnd_;  // the last position of four bytes, while no marker has been met
  int32_t marker_, count_;
  uint64_t buffer_;
};

// What a decoder reads, and how far it has come.
struct CodedSource {
  const uint8_t* src;
  int32_t length;
  int32_t *position, *marker;
  QelDecodeHuffmanState* state;
};

// Runs step(reader), and leaves position, marker and state as the step left them.
template <class Step>
inline QelStatus ownDecode(const CodedSource& source, Step&& step) {
  // Calls leave a count of 0 to 32; whatever a record holds, no shift may pass the accumulator.
  BitReader<true> reader(source.src, source.length, *source.position, *source.marker, source.state->bitBuffer,
                         source.state->bitCount & 63);
  const QelStatus s = step(reader);
  *source.position = reader.position();
  *source.marker = reader.marker();
  source.state->bitBuffer = reader.buffer();
  source.state->bitCount = reader.count();
  return s;
}

}  // namespace qelj::jpeg

#endif
