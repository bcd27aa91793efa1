// The bit writer of every Huffman encoder, and the counter that stands in its place when statistics are taken.
//
// Encoders are templates over a sink with three operations:
//   code(table, symbol, bits, length)   a Huffman symbol and the `length` bits behind it
//   hold(table, symbol, bits, length)   the same where no more than kHeldBits of bits come until the next other operation
//                                       has come, too: that one, or the end, stores them all
//   plain(bits, length)                 bits without a symbol
//   corrections(bits, length)           up to 63 of them, also behind hold; what stands above them doesn't count
// BitWriter defines the bytes: it tests the room byte by byte. WideWriter gives the same bytes where there is
// room for whatever a step can make, and WordWriter those of a step that fits a word; SymbolCounter counts symbols instead
// of storing them.
#ifndef QELJ_JPEG_HUFFMAN_BITWRITER_H
#define QELJ_JPEG_HUFFMAN_BITWRITER_H

#include <algorithm>
#include <array>

#include "frame/lanes.h"
#include "jpeg/huffman/bits.h"
#include "jpeg/huffman/records.h"

namespace qelj::jpeg {

// The room for what one step can add at most: `bits` bits behind a partial byte, every byte stuffed, and the slack
// of a vector-wide store.
constexpr int64_t roomFor(int bits) { return 2 * ((bits + 7) / 8 + 1) + simd::kBytes; }

// The bits of a state that wait for a byte, right-aligned; those above them don't count. Calls leave 0 to 7, and
// whatever a record holds, no shift and no store may follow more.
struct Pending {
  explicit Pending(const QelEncodeHuffmanState* state)
      : count(state->bitCount & 7), bits(state->bitBuffer >> (24 - count)) {}

  int32_t count;
  uint32_t bits;
};

// The longest code. A table that no Init has filled may claim more: a writer then stays in its memory all the same.
inline constexpr int kMaxCode = 16;
// A word less 7 bits in front of the first byte.
inline constexpr int kHeldBits = 64 - 7;

class BitWriter {
 public:
  using Table = const QelEncodeHuffmanSpec*;

  // A position outside the destination counts as its end.
  BitWriter(uint8_t* dst, int32_t length, int32_t position, Pending pending)
      : dst_(dst),
        position_(position),
        buffer_(pending.bits << (24 - pending.count) & 0xFFFFFF),
        count_(pending.count) {
    end_ = uint32_t(position) <= uint32_t(length) ? length : position;
  }

  int32_t position() const { return position_; }
  uint32_t buffer() const { return buffer_; }
  int32_t count() const { return count_; }

  QelStatus code(Table table, size_t symbol, uint64_t bits = 0, size_t length = 0) {
    const uint32_t entry = symbol < 256 ? table->codes[symbol] : 0;
    if (entry == 0) return qelStatusJpegHuffTable;
    if (auto s = plain(entry & 0xFFFF, std::min(int(entry >> 16), kMaxCode)); s) return s;
    return length ? plain(uint32_t(bits), int(length)) : qelStatusOk;
  }

  QelStatus hold(Table table, size_t symbol, uint64_t bits, size_t length) { return code(table, symbol, bits, length); }

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

  QelStatus corrections(uint64_t bits, int length) {
    while (length > 0) {
      const int count = length >= 8 ? 8 : 1;
      length -= count;
      if (auto s = plain(uint32_t(bits >> length), count); s) return s;
    }
    return qelStatusOk;
  }

 private:
  uint8_t* dst_;
  int32_t position_, end_;
  uint32_t buffer_;
  int32_t count_;
};

// Memory for a step's bits, up to 7 in front of them, and the slack of word-wide access on both sides. It has room for
// lengths of 255, the most that a byte of any table can claim, in the place of each code of 16 bits.
template <int kMaxBits>
struct StepBits {
  alignas(64) uint8_t bytes[8 + (255 / kMaxCode + 1) * (kMaxBits + 7 + 7) / 8 + simd::kBytes];
};

// Which of the next simd::kBytes bytes are among the first n, and which of those are 0xFF.
struct Ahead {
  simd::I8 bytes, inside;
  uint32_t ff;
};
inline Ahead lookAhead(const uint8_t* src, int n) {
  static constexpr auto kLane = [] {
    std::array<int8_t, simd::kBytes> lane{};
    for (int i = 0; i < simd::kBytes; ++i) lane[size_t(i)] = int8_t(i);
    return lane;
  }();
  const auto bytes = load<simd::I8>(src);
  const auto inside = as<int8_t>(load<simd::I8>(kLane.data()) < all<simd::I8>(int8_t(n)));
  return {bytes, inside, simd::topBits(as<int8_t>(bytes == -1) & inside)};
}

// Copies bytes with a zero behind each 0xFF, touching no byte behind the end, which it returns.
inline uint8_t* ownStuffExactly(uint8_t* dst, const uint8_t* src, int bytes) {
  const auto ends = [&]<class Word>(Word) {  // two words, which may overlap
    store(dst, load<Word>(src));
    store(dst + bytes - sizeof(Word), load<Word>(src + bytes - sizeof(Word)));
    return dst + bytes;
  };
  if (simd::kShuffles && bytes <= simd::kBytes && lookAhead(src, bytes).ff == 0) [[likely]] {
    if (bytes >= 16) return ends(simd::Vec<uint8_t, 16>());
    if (bytes >= 8) return ends(uint64_t());
    if (bytes >= 4) return ends(uint32_t());
    if (bytes >= 2) return ends(uint16_t());
  }
  for (int i = 0; i < bytes; ++i) {
    *dst++ = src[i];
    if (src[i] == 0xFF) *dst++ = 0;
  }
  return dst;
}
// The same with room behind the end: bytes there keep their values, though up to simd::kBytes of them are loaded and
// stored again.
inline uint8_t* ownStuff(uint8_t* dst, const uint8_t* src, int bytes) {
  if constexpr (!simd::kShuffles) return ownStuffExactly(dst, src, bytes);
  for (;;) {
    int n = std::min(bytes, simd::kBytes);
    const Ahead ahead = lookAhead(src, n);
    store(dst, select(ahead.inside, ahead.bytes, load<simd::I8>(dst)));
    if (ahead.ff != 0) [[unlikely]] {
      n = std::countr_zero(ahead.ff) + 1;
      dst[n] = 0;
      dst += 1;
    }
    dst += n;
    bytes -= n;
    if (bytes == 0) return dst;
    src += n;
  }
}

// The operations of a sink that puts bits without a branch. kChecked: a symbol without a code stops the step, with
// everything before it stored; otherwise such a symbol adds no bits.
template <bool kChecked, class Writer>
class FastSink {
 public:
  using Table = const QelEncodeHuffmanSpec*;

  QELJ_INLINE QelStatus code(Table table, size_t symbol, uint64_t bits = 0, size_t length = 0) {
    const QelStatus s = hold(table, symbol, bits, length);
    writer()->keep();
    return s;
  }
  QELJ_INLINE QelStatus hold(Table table, size_t symbol, uint64_t bits, size_t length) {
    if (symbol > 255) [[unlikely]]
      return kChecked ? qelStatusJpegHuffTable : qelStatusOk;
    const auto* entry = reinterpret_cast<const uint8_t*>(&table->codes[symbol]);
    const size_t codeLength = at(entry, 2);  // its low byte, which one load gets
    if (kChecked && codeLength == 0) [[unlikely]]
      return qelStatusJpegHuffTable;
    writer()->add(uint64_t(load<uint16_t>(entry)) << (length & 63) | bits, codeLength + length);
    return qelStatusOk;
  }
  QelStatus plain(uint32_t bits, int length) {
    writer()->add(bits, length);
    writer()->keep();
    return qelStatusOk;
  }
  QELJ_INLINE QelStatus corrections(uint64_t bits, int length) {
    if (length > 32) [[unlikely]] {
      length -= 32;
      writer()->add(bits >> length & 0xFFFFFFFF, 32);
      writer()->keep();
    }
    writer()->add(bits & ((uint64_t(1) << length) - 1), length);
    writer()->keep();
    return qelStatusOk;
  }

 private:
  Writer* writer() { return static_cast<Writer*>(this); }
};

// Gathers a step's bits in memory, and stores the bytes at its end.
template <bool kChecked>
class WideWriter : public FastSink<kChecked, WideWriter<kChecked>> {
 public:
  // `pending` are `count` (0 to 7) bits in front of the first; what stands above them is not stored.
  template <int kMaxBits>
  WideWriter(StepBits<kMaxBits>& memory, uint32_t pending, int count)
      : bytes_(memory.bytes), word_(pending), end_(size_t(count) + 7) {}

  // At most 32 bits, with nothing above them.
  QELJ_INLINE void add(uint64_t bits, size_t length) {
    word_ = word_ << (length & 63) | bits;
    end_ += length;
  }
  // Stores what has been added since the last time.
  QELJ_INLINE void keep() const { store(bytes_ + (end_ >> 3), streamOrder(word_ << (~end_ & 7))); }

  // Whether there are no more bits than a step's.
  bool fits(int maxBits) const { return end_ <= size_t(maxBits) + 7 + 7; }
  // Stores the whole bytes; fewer than 8 bits stay pending.
  uint8_t* finish(uint8_t* dst) const {
    keep();
    return ownStuff(dst, bytes_ + 8, whole());
  }
  // Stores the whole bytes and a last partial one, which the result names, and touches no other.
  uint8_t* finishExactly(uint8_t* dst) const {
    keep();
    dst = ownStuffExactly(dst, bytes_ + 8, whole());
    if (count() > 0) *dst = uint8_t(pending() << (8 - count()));
    return dst;
  }
  int count() const { return int((end_ + 1) & 7); }
  uint32_t pending() const { return uint32_t(word_) & ((1u << count()) - 1); }  // right-aligned

 private:
  int whole() const { return int((end_ - 7) >> 3); }

  uint8_t* bytes_;  // eight in front of the first
  uint64_t word_;   // the last 64 bits, right-aligned
  size_t end_;      // bits, and 7
};

// Stores the low `bytes` (0 to 7) bytes of a word and touches no other, without a branch that depends on how many: parts
// that there are none of go elsewhere. (To load what stands behind them would be to wait for the last call's store.)
inline uint8_t* ownStoreFew(uint8_t* dst, uint64_t word, int bytes) {
  uint8_t elsewhere[4];
  const auto part = [&]<class Part>(Part) {
    const int size = bytes & int(sizeof(Part));
    store(size ? dst : elsewhere, Part(word));
    word >>= 8 * size;
    dst += size;
  };
  part(uint32_t()), part(uint16_t()), part(uint8_t());
  return dst;
}

// The same for steps whose bits fit a word with those that are pending: no memory, which costs a short step more than
// its bits.
template <bool kChecked>
class WordWriter : public FastSink<kChecked, WordWriter<kChecked>> {
 public:
  static constexpr int kMostBits = 63 - 7;

  template <int kMaxBits>
  WordWriter(StepBits<kMaxBits>&, uint32_t pending, int count) : word_(pending), end_(size_t(count)) {}

  void add(uint64_t bits, size_t length) {
    word_ = word_ << (length & 63) | bits;
    end_ += length;
  }
  void keep() const {}

  bool fits(int maxBits) const { return end_ <= size_t(maxBits) + 7; }
  uint8_t* finish(uint8_t* dst) const {
    const int whole = int(end_ >> 3);
    const uint64_t bits = word_ >> count() & ((uint64_t(1) << 8 * whole) - 1);
    const uint64_t bytes = streamOrder(bits << 8 * (7 - whole)) >> 8;  // the first one is the low one
    if (!hasFF(bits)) [[likely]]
      return ownStoreFew(dst, bytes, whole);
    uint8_t memory[8 + simd::kBytes];
    store(memory, bytes);
    return ownStuffExactly(dst, memory, whole);
  }
  uint8_t* finishExactly(uint8_t* dst) const {
    dst = finish(dst);
    if (count() > 0) *dst = uint8_t(pending() << (8 - count()));
    return dst;
  }
  int count() const { return int(end_ & 7); }
  uint32_t pending() const { return uint32_t(word_) & ((1u << count()) - 1); }

 private:
  uint64_t word_;  // right-aligned
  size_t end_;     // bits
};

// The writer of a step.
template <int kMaxBits, bool kChecked>
using FastWriter =
    std::conditional_t<kMaxBits <= WordWriter<kChecked>::kMostBits, WordWriter<kChecked>, WideWriter<kChecked>>;

// Counts symbols by the same operations.
class SymbolCounter {
 public:
  using Table = int32_t*;  // 256 counters

  QelStatus code(Table counters, size_t symbol, uint64_t = 0, size_t = 0) {
    if (symbol > 255) return qelStatusJpegCoeffRange;
    put(counters, symbol, addWrap(at(counters, symbol), 1));
    return qelStatusOk;
  }
  QelStatus hold(Table counters, size_t symbol, uint64_t, size_t) { return code(counters, symbol); }
  QelStatus plain(uint32_t, int) { return qelStatusOk; }
  QelStatus corrections(uint64_t, int) { return qelStatusOk; }
};

// Ends a segment: pads the partial byte with ones and re-initialises the state, whether or not the byte fitted.
[[gnu::noinline]] inline QelStatus ownFlush(uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                            QelEncodeHuffmanState* state) {
  BitWriter sink(dst, dstLen, *dstPos, Pending(state));
  const QelStatus s = sink.plain(0x7F, 7);
  *dstPos = sink.position();
  std::memset(static_cast<void*>(state), 0, sizeof *state);
  return s;
}

// The byte-by-byte half of ownEncode, out of the way of the fast half's registers.
template <class Step>
[[gnu::noinline]] QelStatus ownEncodeByBytes(uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                             QelEncodeHuffmanState* state, Step step) {
  BitWriter sink(dst, dstLen, *dstPos, Pending(state));
  const QelStatus s = step(sink);
  *dstPos = sink.position();
  state->bitCount = sink.count();
  state->bitBuffer = sink.buffer();
  return s;
}

// A step that adds no bits: the state as the others leave it.
inline QelStatus ownEncodeNothing(QelEncodeHuffmanState* state) {
  const int32_t count = state->bitCount & 7;
  state->bitCount = count;
  state->bitBuffer &= 0xFFFFFF & ~(0xFFFFFFu >> count);
  return qelStatusOk;
}

// Whether there is room for whatever a step of at most kMaxBits bits can make.
template <int kMaxBits>
inline bool ownHasRoom(int32_t dstLen, int32_t position) {
  return simd::kEnabled && position >= 0 && int64_t(dstLen) - position >= roomFor(kMaxBits);
}

// Runs step(sink) on an encode state, with such room.
template <int kMaxBits, class Step>
QELJ_INLINE QelStatus ownEncodeAhead(uint8_t* dst, int32_t* dstPos, QelEncodeHuffmanState* state, Step&& step) {
  const int32_t position = *dstPos;
  StepBits<kMaxBits> memory;
  const Pending pending(state);
  FastWriter<kMaxBits, true> sink(memory, pending.bits, pending.count);
  const QelStatus s = step(sink);
  if (!sink.fits(kMaxBits)) [[unlikely]]
    return qelStatusJpegHuffTable;
  *dstPos = int32_t(sink.finish(dst + position) - dst);
  state->bitCount = sink.count();
  state->bitBuffer = sink.pending() << (24 - sink.count());
  return s;
}

// Runs step(sink) on an encode state: a step that adds at most kMaxBits bits, and captures by value.
// Position and state are those behind the last operation that succeeded.
template <int kMaxBits, class Step>
QELJ_INLINE QelStatus ownEncode(uint8_t* dst, int32_t dstLen, int32_t* dstPos, QelEncodeHuffmanState* state,
                                Step step) {
  if (!ownHasRoom<kMaxBits>(dstLen, *dstPos)) [[unlikely]]
    return ownEncodeByBytes(dst, dstLen, dstPos, state, step);
  return ownEncodeAhead<kMaxBits>(dst, dstPos, state, step);
}

}  // namespace qelj::jpeg

#endif
