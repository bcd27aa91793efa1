// The bit writer of every Huffman encoder, and the counter that stands in its place when statistics are
// taken.
//
// Encoders are templates over a sink with two operations:
//   code(table, symbol, bits, length)   a Huffman symbol and the `length` bits behind it
//   plain(bits, length)                 bits without a symbol
// BitWriter defines the bytes: it tests the room byte by byte. WideWriter gives the same bytes where there is
// room for whatever a step can make; SymbolCounter counts symbols instead of storing them.
#ifndef QELJ_JPEG_HUFFMAN_BITWRITER_H
#define QELJ_JPEG_HUFFMAN_BITWRITER_H

#include "frame/simd.h"
#include "jpeg/huffman/bits.h"
#include "jpeg/huffman/records.h"

namespace qelj {

// What one step can add at most: `bits` bits behind a partial byte, every byte stuffed, and the slack of a
// word-wide store.
constexpr int64_t ownRoomFor(int bits) { return 2 * ((bits + 7) / 8 + 1) + 8; }

class BitWriter {
 public:
  using Table = const QelEncodeHuffmanSpec*;

  // A position outside the destination counts as its end.
  BitWriter(uint8_t* dst, int32_t length, int32_t position, uint32_t buffer, int32_t count)
      : dst_(dst), position_(position), buffer_(buffer), count_(count) {
    end_ = uint32_t(position) <= uint32_t(length) ? length : position;
  }

  int32_t position() const { return position_; }
  uint32_t buffer() const { return buffer_; }
  int32_t count() const { return count_; }

  QelStatus code(Table table, unsigned symbol, uint64_t bits = 0, int length = 0) {
    const uint32_t entry = symbol < 256 ? table->codes[symbol] : 0;
    if (entry == 0) return qelStatusJpegHuffTable;
    if (auto s = plain(entry & 0xFFFF, int(entry >> 16)); s) return s;
    return length ? plain(uint32_t(bits), length) : qelStatusOk;
  }

  // Where it fails, the bytes that fit are stored and the pending bits are those before the call.
  QelStatus plain(uint32_t bits, int length) {
    int total = count_ + length;
    uint32_t pending = buffer_ | (bits & ((1u << length) - 1)) << (24 - total);
    for (; total >= 8; total -= 8, pending <<= 8) {
      const auto byte = uint8_t(pending >> 16);
      if (position_ >= end_) return qelStatusJpegOutOfBuffer;
      dst_[position_++] = byte;
      if (byte == 0xFF) {
        if (position_ >= end_) return qelStatusJpegOutOfBuffer;
        dst_[position_++] = 0;
      }
    }
    buffer_ = pending & 0xFFFFFF;
    count_ = total;
    return qelStatusOk;
  }

 private:
  uint8_t* dst_;
  int32_t position_, end_;
  uint32_t buffer_;
  int32_t count_;
};

// Stores eight bytes at a time. kChecked: a symbol without a code stops it, with everything before it stored;
// otherwise such a symbol adds no bits.
template <bool kChecked>
class WideWriter {
 public:
  using Table = const QelEncodeHuffmanSpec*;

  // `pending` are `count` (0 to 7) bits in front of the first.
  WideWriter(uint8_t* dst, uint32_t pending, int count) : dst_(dst), word_(pending), free_(64 - count) {}

  QelStatus code(Table table, unsigned symbol, uint64_t bits = 0, int length = 0) {
    if (symbol > 255) [[unlikely]]
      return kChecked ? qelStatusJpegHuffTable : qelStatusOk;
    const uint32_t entry = table->codes[symbol];
    if (kChecked && entry == 0) [[unlikely]]
      return qelStatusJpegHuffTable;
    put(uint64_t(entry & 0xFFFF) << length | bits, int(entry >> 16) + length);
    return qelStatusOk;
  }
  QelStatus plain(uint32_t bits, int length) {
    put(bits, length);
    return qelStatusOk;
  }

  // Stores the whole bytes; fewer than 8 bits stay pending. With room behind them, as one word in which the
  // bytes behind keep their values.
  void finish() {
    const uint64_t word = leftAligned();
    const int bytes = settle();
    if (!ownHasFF(word)) [[likely]] {
      const uint64_t behind = ~uint64_t(0) >> 8 * bytes;
      store(dst_, ownStreamOrder((word & ~behind) | (ownStreamOrder(load<uint64_t>(dst_)) & behind)));
      dst_ += bytes;
    } else {
      dst_ = stuffed(dst_, word, bytes);
    }
  }
  // Stores the whole bytes and a last partial one, which end() names, and touches no other.
  void finishExactly() {
    const uint64_t word = leftAligned();
    const int bytes = settle();
    const auto partial = uint8_t(pending_ << (8 - count_));
    if (!ownHasFF(word) && bytes >= 4) [[likely]] {
      store(dst_, ownStreamOrder(uint32_t(word >> 32)));
      store(dst_ + bytes - 4, ownStreamOrder(uint32_t(word >> (64 - 8 * bytes))));
      dst_ += bytes;
    } else {
      dst_ = stuffed(dst_, word, bytes);
    }
    if (count_ > 0) *dst_ = partial;
  }
  uint8_t* end() const { return dst_; }
  int count() const { return count_; }
  uint32_t pending() const { return pending_; }  // right-aligned

 private:
  uint64_t leftAligned() const { return word_ << (free_ & 63); }
  // Parts whole bytes (0 to 7) from pending bits.
  int settle() {
    count_ = (64 - free_) & 7;
    pending_ = uint32_t(word_) & ((1u << count_) - 1);
    return (64 - free_) >> 3;
  }

  // At most 32 bits, with nothing above them.
  void put(uint64_t bits, int length) {
    if (length < free_) [[likely]] {
      free_ -= length;
      word_ = word_ << length | bits;
    } else {
      // Bits that went into the full word stay above the others; the next full word shifts them out.
      const uint64_t full = word_ << free_ | bits >> (length - free_);
      word_ = bits;
      free_ += 64 - length;
      if (!ownHasFF(full)) [[likely]] {
        store(dst_, ownStreamOrder(full));
        dst_ += 8;
      } else {
        dst_ = stuffed(dst_, full, 8);
      }
    }
  }
  // Static, so that the writer's members stay in registers.
  [[gnu::noinline]] static uint8_t* stuffed(uint8_t* dst, uint64_t word, int bytes) {
    for (; bytes > 0; --bytes, word <<= 8) {
      const auto byte = uint8_t(word >> 56);
      *dst++ = byte;
      if (byte == 0xFF) *dst++ = 0;
    }
    return dst;
  }

  uint8_t* dst_;
  uint64_t word_;  // right-aligned; above its 64 - free_ bits stands what has been stored
  int free_;       // 1 to 64
  int count_ = 0;
  uint32_t pending_ = 0;
};

// Counts symbols by the same operations.
class SymbolCounter {
 public:
  using Table = int32_t*;  // 256 counters

  QelStatus code(Table counters, unsigned symbol, uint64_t = 0, int = 0) {
    if (symbol > 255) return qelStatusJpegCoeffRange;
    put(counters, symbol, addWrap(at(counters, symbol), 1));
    return qelStatusOk;
  }
  QelStatus plain(uint32_t, int) { return qelStatusOk; }
};

// Ends a segment: pads the partial byte with ones and re-initialises the state, whether or not the byte
// fitted.
inline QelStatus ownFlush(uint8_t* dst, int32_t dstLen, int32_t* dstPos, QelEncodeHuffmanState* state) {
  BitWriter sink(dst, dstLen, *dstPos, state->bitBuffer, state->bitCount);
  const QelStatus s = sink.plain(0x7F, 7);
  *dstPos = sink.position();
  std::memset(static_cast<void*>(state), 0, sizeof *state);
  return s;
}

// The byte-by-byte half of ownEncode, out of the way of the fast half's registers.
template <class Step>
[[gnu::noinline]] QelStatus ownEncodeByBytes(uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                             QelEncodeHuffmanState* state, Step step) {
  BitWriter sink(dst, dstLen, *dstPos, state->bitBuffer, state->bitCount);
  const QelStatus s = step(sink);
  *dstPos = sink.position();
  state->bitCount = sink.count();
  state->bitBuffer = sink.buffer();
  return s;
}

// Runs step(sink) on an encode state: a step that adds at most `maxBits` bits, and captures by value.
// Position and state are those behind the last operation that succeeded.
template <class Step>
inline QelStatus ownEncode(uint8_t* dst, int32_t dstLen, int32_t* dstPos, QelEncodeHuffmanState* state,
                           int maxBits, Step step) {
  const int32_t position = *dstPos;
  if (!simd::kEnabled || position < 0 || int64_t(dstLen) - position < ownRoomFor(maxBits)) [[unlikely]]
    return ownEncodeByBytes(dst, dstLen, dstPos, state, step);
  WideWriter<true> sink(dst + position, state->bitBuffer >> (24 - state->bitCount), state->bitCount);
  const QelStatus s = step(sink);
  sink.finish();
  *dstPos = int32_t(sink.end() - dst);
  state->bitCount = sink.count();
  state->bitBuffer = sink.pending() << (24 - sink.count());
  return s;
}

}  // namespace qelj

#endif
