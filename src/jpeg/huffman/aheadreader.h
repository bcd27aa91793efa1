// The fast half of the Huffman decoders: a bit reader without a branch on how many bits are left, and the loop in which
// it and the defining reader take turns.
#ifndef QELJ_JPEG_HUFFMAN_AHEADREADER_H
#define QELJ_JPEG_HUFFMAN_AHEADREADER_H

#include <array>

#include "jpeg/huffman/bitreader.h"

namespace qelj::jpeg {

// Reads symbols from the next bytes: each refill brings 56 bits or more. Beside them it keeps the end of what a
// BitReader's refills would have taken in, so that a BitReader can go on in front of any symbol. Positions are in bits
// of data, without stuffed zeros; 0 is where the BitReader would take in its next byte.
//
// Between any two operations:
//   - bits_ holds, from its top bit down, the data from position_ on: all up to loaded_, and behind that the right bits
//     or zeros, so that a later refill may add any of them again.
//   - taken_ - position_ is the bit count of the BitReader, 0 to 32; taken_ and loaded_ are multiples of 8, and either
//     can be ahead of the other.
//   - A refill at limit_ or before it keeps no bit from the next 0xFF on, and neither would a BitReader until the next.
//
// A refill where the state leaves 5 bits: position_ is -5, loaded_ and taken_ are 0. The word from byte 0 on goes
// behind the 5 bits, and 59 of its own find room; 7 whole bytes count, loaded_ = (-5 + 63) & ~7 = 56, and 3 bits of the
// eighth stand behind them. In front of a code of 6 bits the BitReader has too few, 5 of 8, and would take in 3 bytes:
// taken_ = (-5 + 32) & ~7 = 24. Behind the code and its value of 4 bits, position_ is 5. The next refill loads the word
// from byte 56 / 8 = 7 on and shifts it down by the 56 - 5 bits in front: the 3 bits fall on themselves, 13 bits of the
// word have room, and loaded_ is 64.
class AheadReader {
 public:
  // The bytes that are looked at.
  static constexpr int kWindow = 64;
  // Memory for data whose stuffed zeros are taken out.
  struct Unstuffed {
    uint8_t bytes[2 * kWindow];
  };

  AheadReader(const uint8_t* src, int32_t length, int32_t position, int32_t marker, const QelDecodeHuffmanState& state,
              Unstuffed& unstuffed)
      : unstuffed_(unstuffed.bytes), buffer_(state.bitBuffer) {
    if (marker != 0 || uint32_t(state.bitCount) > 32 || position < 0 || length - position < 2 * kWindow + 2) return;
    src_ = data_ = src + position;
    position_ = -state.bitCount;
    bits_ = position_ ? buffer_ << (64 + position_) : 0;
    for (int i = 0; i < kWindow; i += simd::kBytes) ff_ |= uint64_t(simd::topBits(load<simd::I8>(src_ + i) == -1)) << i;
    limit_ = 8 * std::countr_zero(ff_) - kAhead;
  }

  // Whether there is anything to read.
  bool usable() const { return limit_ != kNone; }
  // How many data bytes a BitReader should decode before a new reader is tried: none where it has come to its window's
  // end, a symbol for one that it cannot read, and all in front of a marker.
  static constexpr int kNoBytes = -1;
  int stop() const { return position_ <= limit_ ? 0 : ff_ == 0 ? kNoBytes : kAhead / 8 + 2; }

  // The bits that a refill brings at least.
  static constexpr int kBits = 56;
  // Makes room for a code of up to 8 bits with its value, and any code with its value behind that; or for any code with
  // kCorrections bits behind its value of one bit. Fails at the end.
  bool refill() {
    while (position_ > limit_) [[unlikely]]
      if (!unstuff()) return false;
    bits_ |= streamOrder(load<uint64_t>(data_ + (loaded_ >> 3))) >> ((loaded_ - position_) & 63);
    loaded_ = (position_ + 63) & ~7;
    return true;
  }

  // The code of up to 8 bits that comes next, as length << 16 | symbol, or 0; and the value behind it.
  uint32_t peek(const QelDecodeHuffmanSpec* table) const { return table->lookup[bits_ >> 56]; }
  int32_t take(uint32_t entry) { return take(entry, refilled(8)); }

  // The same for longer codes. A BitReader searches for these bit by bit where it has too few: it refills in front of
  // the ninth bit, or once it has used its last one.
  uint32_t peekLong(const QelDecodeHuffmanSpec* table) const { return longCode(table, uint32_t(bits_ >> 48)); }
  int32_t takeLong(uint32_t entry) {
    const int taken = refilled(8), count = taken - position_;
    if (int(entry >> 16) <= count) return take(entry, taken);
    return take(entry, count < 9 ? refilled(9) : taken + 32);
  }

  // The same for a code that a table of the caller's tells by the next 8 bits, which takes `all` bits with its value.
  uint32_t next8() const { return uint32_t(bits_ >> 56); }
  int32_t takeBoth(int code, int all) { return take(code, all - code, refilled(8)); }

  // Up to 15 bits without a code.
  uint32_t bits(int count) {
    const auto next = uint32_t(bits_ >> 1 >> (63 - count));
    taken_ = refilled(count);
    position_ += count;
    bits_ <<= count;
    return next;
  }
  // Up to kCorrections bits, for each of which a BitReader refills where it has none left: it brings four bytes then.
  static constexpr int kCorrections = 32;
  uint64_t corrections(int count) {
    const uint64_t next = bits_ >> 1 >> (63 - count);
    position_ += count;
    bits_ <<= count;
    taken_ = selectLess(taken_, position_, taken_ + 32, taken_);
    return next;
  }

  // Leaves position and state where a BitReader would.
  void leave(int32_t* position, QelDecodeHuffmanState* state) const {
    // No table that Init has filled leads behind the window.
    const int bytes = std::min(taken_ >> 3, kWindow - 1), last = std::min(bytes, 4);
    const uint64_t word = streamOrder(load<uint32_t>(data_ + (bytes - last)));
    state->bitBuffer = uint32_t((buffer_ << 32 | word) >> (32 - 8 * last));
    state->bitCount = taken_ - position_;
    *position += bytes + std::popcount(stuffed_ & ((uint64_t(1) << bytes) - 1));
  }

 private:
  static constexpr int kNone = INT32_MIN;
  // Between two refills, a BitReader's last one can be behind a code of 8 bits, a value of 15 and a code of 16, or
  // behind a code of 16, a value of 1 and all but one of the corrections, or behind all bits but a last value, and bring
  // 32 bits; one more, as the limit itself is allowed.
  static constexpr int kAhead = std::max({8 + 15 + 16, 16 + 1 + kCorrections - 1, kBits - 1}) + 32 + 1;
  static constexpr auto kLowest = [] {
    std::array<int32_t, 16> lowest{};
    for (int i = 0; i < 16; ++i) lowest[size_t(i)] = 1 - (1 << i);
    return lowest;
  }();

  // Takes the zero behind the next 0xFF out of the data ahead; fails at a marker and at the end of the window.
  bool unstuff() {
    const int at = std::countr_zero(ff_), removed = std::popcount(stuffed_), index = at - removed;
    if (ff_ == 0 || src_[at + 1] != 0) return false;
    if (removed == 0) std::memcpy(unstuffed_, src_, kWindow);
    std::memcpy(unstuffed_ + index + 1, src_ + at + 2, kWindow);
    data_ = unstuffed_;
    stuffed_ |= uint64_t(1) << index;
    ff_ &= ff_ - 1;
    limit_ = 8 * (std::countr_zero(ff_) - removed - 1) - kAhead;
    return true;
  }

  int32_t take(uint32_t entry, int taken) { return take(int(entry >> 16), int(entry & 15), taken); }
  int32_t take(int code, int length, int taken) {
    const uint64_t behind = bits_ << (code & 63);
    taken_ = taken;
    position_ += code;
    taken_ = refilled(length);
    position_ += length;
    bits_ <<= (code + length) & 63;
    // EXTEND, F.2.2.1: the values of a category that begin with a 0 are negative.
    const auto notNegative = int32_t(int64_t(behind) >> 63);
    return int32_t(behind >> 1 >> (63 - length)) + (kLowest[size_t(length)] & ~notNegative);
  }

  // The end of what a BitReader has taken in once it needs some bits: if it has to refill, 25 or more, by whole bytes.
  int refilled(int needed) const { return selectLess(taken_ - position_, needed, (position_ + 32) & ~7, taken_); }

  const uint8_t *src_, *data_;
  uint8_t* unstuffed_;
  uint64_t ff_ = 0;       // the 0xFF that are still ahead, by source byte
  uint64_t stuffed_ = 0;  // those that were stuffed, by data byte
  uint64_t bits_;         // left-aligned
  int position_ = 0;      // of the first of them
  int loaded_ = 0;        // their end
  int taken_ = 0;         // the end of what a BitReader would have
  int limit_ = kNone;     // the last position of a refill
  uint64_t buffer_;       // of the state
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
  AheadReader::Unstuffed memory;
  AheadReader reader(source.src, source.length, *source.position, *source.marker, *source.state, memory);
  if (!reader.usable()) [[unlikely]]
    return INT32_MAX;
  call.ahead(reader);
  reader.leave(source.position, source.state);
  return reader.stop();
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
