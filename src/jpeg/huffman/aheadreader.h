// The fast half of the Huffman decoders: a bit reader without a branch on how many bits are left, and the loop in which
// it and the defining reader take turns.
#ifndef QELJ_JPEG_HUFFMAN_AHEADREADER_H
#define QELJ_JPEG_HUFFMAN_AHEADREADER_H

#include <array>

#include "jpeg/huffman/bitreader.h"

namespace qelj::jpeg {

// Reads symbols from the next bytes: each refill brings 56 bits or more. Beside them it keeps how many bits a BitReader
// would have, so that one can go on in front of any symbol. Bits are those of data, without stuffed zeros.
//
// Between any two operations:
//   - bits_ holds, from its top bit down, the next bits of the data: `left_` of them, which end in front of next_, and
//     behind those the right ones or zeros, so that a later refill may add any of them again.
//   - 32 - room_ is the bit count of the BitReader, 0 to 32. What it has taken in ends with a byte, before next_ or
//     behind it.
//   - A refill in front of end_ keeps no bit from the next 0xFF on, and neither would a BitReader until the next.
//
// A refill where the state leaves 5 bits: left_ is 5, next_ at byte 0. The word from there on goes behind the 5 bits, and
// 59 of its own find room; 7 whole bytes count: next_ moves by (63 - 5) / 8 = 7, left_ is 5 + 56, and 3 bits of the
// eighth stand behind them. room_ is 27: in front of a code of 6 bits the BitReader has too few, 5 of 8, and would take
// in 3 bytes, after which it has room for 27 % 8 = 3 bits. Behind the code and its value of 4 bits, left_ is 51 and room_
// 13. The next refill loads the word from byte 7 on and shifts it down by the 51 bits in front: the 3 bits fall on
// themselves, 13 bits of the word have room, of which one byte counts.
class AheadReader {
 public:
  // The bytes that are looked at.
  static constexpr int kBytes = 64;
  // Where they are, and what is done to them while they are read.
  struct Window {
    const uint8_t* src;         // as they are
    uint64_t ff;                // the 0xFF that are still ahead, by source byte
    uint64_t stuffed;           // those that were stuffed, by data byte
    uint8_t bytes[2 * kBytes];  // the data, once stuffed zeros had to be taken out
  };

  AheadReader(const uint8_t* src, int32_t length, int32_t position, int32_t marker, const QelDecodeHuffmanState& state,
              Window& window)
      : window_(&window), left_(uint32_t(state.bitCount)), room_(int(32 - left_)) {
    if (marker != 0 || left_ > 32 || position < 0 || length - position < 2 * kBytes + 2) return;
    next_ = src + position;
    bits_ = uint64_t(state.bitBuffer) << 32 << room_;
    uint64_t ff = 0;
    for (int i = 0; i < kBytes; i += simd::kBytes) ff |= uint64_t(simd::topBits(load<simd::I8>(next_ + i) == -1)) << i;
    end_ = endAt(next_, std::countr_zero(ff));
    window.src = next_;
    window.ff = ff;
    window.stuffed = 0;
  }

  // Whether there is anything to read.
  bool usable() const { return next_ != nullptr; }
  // How many data bytes a BitReader should decode before a new reader is tried: none where it has come to its window's
  // end, a symbol for one that it cannot read, and all in front of a marker.
  static constexpr int kNoBytes = -1;
  int stop() const { return uintptr_t(next_) < end_ ? 0 : window_->ff == 0 ? kNoBytes : kAhead + 2; }

  // The bits that a refill brings at least.
  static constexpr int kBits = 56;
  // Makes room for a code of up to 8 bits with its value, and any code with its value behind that; or for any code with
  // kCorrections bits behind its value of one bit. Fails at the end.
  QELJ_INLINE bool refill() {
    while (uintptr_t(next_) >= end_) [[unlikely]] {
      const auto [next, end] = unstuff(*window_, next_);
      if (next == nullptr) return false;
      next_ = next;
      end_ = end;
    }
    bits_ |= streamOrder(load<uint64_t>(next_)) >> (left_ & 63);
    next_ += (63 - left_) >> 3 & 7;
    left_ |= 56;
    return true;
  }

  // A code's length, 0 where there is none, and its symbol: run * 16 + category.
  struct Code {
    uint32_t length, symbol;
  };
  // The code of up to 8 bits that comes next, and the value behind it. kSome: which has bits.
  Code peek(const QelDecodeHuffmanSpec* table) const {
    const uint32_t entry = table->lookup[bits_ >> 56];
    return {entry >> 16, uint8_t(entry)};
  }
  template <bool kSome = false>
  QELJ_INLINE int32_t take(Code code) {
    takeCode(code);
    return takeValue<kSome>(code.symbol & 15);
  }
  // The same for a code without a value.
  QELJ_INLINE void takeCode(Code code) { drop(code.length, roomForCode() + int(code.length)); }

  // The same for longer codes. A BitReader searches for these bit by bit where it has too few: it refills in front of
  // the ninth bit, or once it has used its last one.
  Code peekLong(const QelDecodeHuffmanSpec* table) const {
    const uint32_t entry = longCode(table, uint32_t(bits_ >> 48));
    return {entry >> 16, uint8_t(entry)};
  }
  template <bool kSome = false>
  QELJ_INLINE int32_t takeLong(Code code) {
    const int length = int(code.length), room = roomForCode(), count = 32 - room;
    drop(code.length, length + (length <= count ? room : count < 9 ? room & 7 : room - 32));
    return takeValue<kSome>(code.symbol & 15);
  }

  // The same for a code that a table of the caller's tells by the next bits, which takes `all` bits with its value; and
  // where the table tells the value, too.
  uint32_t next(int count) const { return uint32_t(bits_ >> (64 - count)); }
  QELJ_INLINE int32_t takeBoth(uint32_t code, uint32_t all) {
    drop(code, roomForCode() + int(code));
    return takeValue(all - code);
  }

  // The same for a code and its value, or for two of these, with another code behind them: codes of up to 7 bits,
  // values of up to 9, a second one of up to 7 with its code, 11 bits in all at most. The room for a code must be made
  // before; that for the next one is made. On the way a BitReader refills once at most. That brings 3 bytes, but 4 in
  // front of a code where it has used its last bit: behind a first value that took 8 bits or more, of which `mark`
  // tells, 8 << these bits.
  QELJ_INLINE void makeRoom() { room_ = roomForCode(); }
  QELJ_INLINE void skipValues(uint32_t all, uint32_t mark) {
    const int room = room_ + int(all), fourth = int(uint64_t(mark) >> (32 - room_)) & 8;
    drop(all, selectLess(room, 25, room, room - 24 - fourth));
  }

  // Up to 15 bits without a code.
  uint32_t bits(int count) {
    const auto next = uint32_t(bits_ >> 1 >> (63 - count));
    drop(uint32_t(count), roomBehind(room_, count));
    return next;
  }
  // Up to kCorrections bits, for each of which a BitReader refills where it has none left: it brings four bytes then.
  static constexpr int kCorrections = 32;
  uint64_t corrections(int count) {
    const uint64_t next = bits_ >> 1 >> (63 - count);
    drop(uint32_t(count), selectLess(room_ + count, 33, room_ + count, room_ + count - 32));
    return next;
  }

  // Leaves position and state where a BitReader would.
  void leave(int32_t* position, QelDecodeHuffmanState* state) const {
    const uint64_t stuffed = window_->stuffed;
    const uint8_t* const data = stuffed == 0 ? window_->src : window_->bytes;
    // No table that Init has filled leads behind the window.
    const uint32_t taken = uint32_t(next_ - data) * 8 - left_ + 32 - uint32_t(room_);
    const int bytes = int(std::min(taken >> 3, kBytes - 1u)), last = selectLess(bytes, 4, bytes, 4);
    const uint64_t word = streamOrder(load<uint32_t>(data + (bytes - last)));
    state->bitBuffer = uint32_t((uint64_t(state->bitBuffer) << 32 | word) >> (32 - 8 * last));
    state->bitCount = 32 - room_;
    *position += bytes;
    if (stuffed != 0) [[unlikely]]
      *position += std::popcount(stuffed & ((uint64_t(1) << bytes) - 1));
  }

 private:
  // Bytes. Between two refills, a BitReader's last one can be behind a code of 8 bits, a value of 15 and a code of 16,
  // or behind a code of 16, a value of 1 and all but one of the corrections, or behind all bits but a last value, and
  // bring 32 bits; one more, as the limit itself is allowed.
  static constexpr int kAhead = (std::max({8 + 15 + 16, 16 + 1 + kCorrections - 1, kBits - 1}) + 32 + 1) / 8;
  // Where refills end, `ff` bytes in front of a 0xFF.
  static uintptr_t endAt(const uint8_t* data, int ff) { return uintptr_t(data) + uintptr_t(ff - kAhead + 1); }

  // Takes the zero behind the next 0xFF out of the data ahead, and gives the new next_ and end_; fails at a marker and
  // at the end of the window.
  struct Place {
    const uint8_t* next;
    uintptr_t end;
  };
  [[gnu::noinline]] static Place unstuff(Window& w, const uint8_t* next) {
    const int at = std::countr_zero(w.ff), removed = std::popcount(w.stuffed), index = at - removed;
    if (w.ff == 0 || w.src[at + 1] != 0) return {};
    if (removed == 0) {
      std::memcpy(w.bytes, w.src, kBytes);
      next = w.bytes + (next - w.src);
    }
    std::memcpy(w.bytes + index + 1, w.src + at + 2, kBytes);
    w.stuffed |= uint64_t(1) << index;
    w.ff &= w.ff - 1;
    return {next, endAt(w.bytes, std::countr_zero(w.ff) - removed - 1)};
  }

  // The room of a BitReader behind `length` bits, for which it takes in whole bytes up to 25 bits or more if it has
  // fewer.
  static int roomBehind(int room, int length) {
    return selectLess(room + length, 33, room + length, (room & 7) + length);
  }
  // In front of a code it has 8 bits.
  int roomForCode() const { return selectLess(room_, 25, room_, room_ & 7); }

  QELJ_INLINE void drop(uint32_t count, int room) {
    room_ = room;
    left_ -= count;
    bits_ <<= count & 63;
  }
  template <bool kSome = false>
  QELJ_INLINE int32_t takeValue(uint32_t length) {
    const uint64_t behind = bits_;
    drop(length, roomBehind(room_, int(length)));
    const auto value = uint32_t(kSome ? behind >> (-length & 63) : behind >> 1 >> (~length & 63));
    // EXTEND, F.2.2.1: the values of a category that begin with a 0 are negative.
    return int32_t(value - simd::lowBits(uint32_t(int64_t(~behind) >> 63), length));
  }

  Window* window_;
  const uint8_t* next_ = nullptr;  // behind the bytes whose bits are there
  uintptr_t end_ = 0;              // of the places for a refill: an address, which can be in front of the data
  uint64_t bits_ = 0;              // left-aligned
  uint32_t left_;                  // how many count
  int room_;                       // of a BitReader's 32 bits, those that it would lack
};

// A decoder's call, of which both readers do a part. What is derived has two operations:
//   ahead(reader)   goes on while an AheadReader can
//   step(reader)    goes on by a symbol or a few, with a BitReader
struct DecoderCall {
  bool more = true;  // whether there is more to do
  QelStatus status = qelStatusOk;
};

// A call by the defining reader alone.
template <class Call>
QELJ_INLINE void ownDecodeBySteps(const CodedSource& source, Call& call) {
  ownDecode(source, [&call](BitReader<true>& reader) {
    do call.step(reader);
    while (call.more);
    return call.status;
  });
}

// Decodes on as fast as possible; the result is how many bytes a BitReader should decode in any case before it is tried
// again.
template <class Call>
QELJ_INLINE int32_t ownTryAhead(const CodedSource& source, Call& call) {
  AheadReader::Window window;
  AheadReader reader(source.src, source.length, *source.position, *source.marker, *source.state, window);
  if (!reader.usable()) [[unlikely]]
    return INT32_MAX;
  call.ahead(reader);
  reader.leave(source.position, source.state);
  return call.more ? reader.stop() : 0;
}

// Decodes on to the end: by the defining reader as long as must be, and ahead of it where that is possible. The records
// are made for the call: those that the fast half works on stay in registers.
template <class Call>
[[gnu::noinline]] Call ownDecodeRest(const CodedSource& source, Call call, int32_t bytes) {
  do {
    if (bytes != AheadReader::kNoBytes)
      ownDecode(source, [&](BitReader<true>& reader) {
        const int32_t start = reader.position();
        do call.step(reader);
        while (call.more && reader.position() - start < bytes);
        return call.status;
      });
    if (call.more) bytes = ownTryAhead(source, call);
  } while (call.more);
  return call;
}

// The whole of a call.
template <class Call>
QELJ_INLINE void ownDecodeCall(const CodedSource& source, Call& call) {
  if constexpr (!simd::kShuffles) return ownDecodeBySteps(source, call);
  const int32_t bytes = ownTryAhead(source, call);
  if (call.more) [[unlikely]]
    call = ownDecodeRest({source.src, source.length, source.position, source.marker, source.state}, Call(call), bytes);
}

}  // namespace qelj::jpeg

#endif
