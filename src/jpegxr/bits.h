// The bit position of the coefficient coders: a byte pointer and a left-aligned accumulator of 32 bits that the caller
// keeps between calls. The stream is big-endian in units of 16 bits, and the position that a call leaves follows from
// the number of bits alone: a writer ends with at most 16 bits held, a reader with at least 16.
#ifndef QELJ_JPEGXR_BITS_H
#define QELJ_JPEGXR_BITS_H

#include <algorithm>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/simd.h"
#include "jpegxr/tables.h"

namespace qelj::jpegxr {

// A position in a stream as the caller keeps it; Byte is const where the stream is read.
template <class Byte>
struct BitStream {
  Byte** bytes;
  uint32_t* bitBuffer;
  int32_t* bitCount;
};

template <class Byte>
constexpr QelStatus nonNull(const BitStream<Byte>& stream) {
  return require(stream.bytes && *stream.bytes && stream.bitBuffer && stream.bitCount, qelStatusNullPointer);
}
constexpr QelStatus bitsHeld(int32_t bitCount) { return require(bitCount >= 0 && bitCount <= 32, qelStatusOutOfRange); }
constexpr QelStatus fieldBits(uint32_t bits) { return require(bits <= 15, qelStatusOutOfRange); }

// A position is worked on by value, so that it can live in registers, and handed back by finish(). Until then the bits
// gather in an array of the writer's user: where a unit ends no predictor learns, and there eight bytes can be stored
// without a look at how many of them count.
class UnitWriter {
 public:
  // For the bytes of a call and those that the caller held.
  struct Room {
    uint8_t bytes[128 + sizeof(uint64_t)];
  };

  UnitWriter(const BitStream<uint8_t>& stream, Room& room)
      : stream_(stream), bytes_(room.bytes), end_(uint32_t(*stream.bitCount)) {
    held_ = uint64_t(*stream.bitBuffer) >> (32 - end_);
  }

  // Appends the low `count` bits of `bits`, whose others are 0: 32 at most, or 57 behind settle().
  void append(uint64_t bits, uint32_t count) {
    held_ = held_ << (count & 63) | bits;
    end_ += count & 63;
  }
  void append(Code code) { append(code.value, code.sums); }
  void settle() {
    const uint32_t whole = settled_ >> 3;
    store(bytes_ + whole, __builtin_bswap64(held_ << ((8 * whole - end_) & 63)));
    settled_ = end_;
  }

  // Hands back the position behind all whole units but for one that is the last. Nothing behind them is written.
  void finish() {
    settle();
    const uint32_t units = (end_ - (end_ > 0)) >> 4, size = 2 * units, rest = end_ - 16 * units;
    uint8_t* const to = *stream_.bytes;
    // Two pieces that overlap.
    const auto copy = [=, this]<class Piece>(Piece) QELJ_INLINE_LAMBDA {
      store(to, load<Piece>(bytes_));
      store(to + size - sizeof(Piece), load<Piece>(bytes_ + size - sizeof(Piece)));
    };
    if (size > 2 * sizeof(simd::U8x16)) [[unlikely]]
      std::memcpy(to, bytes_, size);
    else if (size >= sizeof(simd::U8x16)) copy(simd::U8x16());
    else if (size >= 8) copy(uint64_t());
    else if (size >= 4) copy(uint32_t());
    else if (size) copy(uint16_t());
    *stream_.bytes = to + size;
    *stream_.bitBuffer = uint32_t(held_ << (32 - rest));
    *stream_.bitCount = int32_t(rest);
  }

 private:
  BitStream<uint8_t> stream_;
  uint8_t* const bytes_;
  uint64_t held_;               // the last bits, of which those of whole bytes in front of settled_ are stored
  uint32_t end_, settled_ = 0;  // in bits: now, and when they were stored
};

class UnitReader {
 public:
  explicit UnitReader(const BitStream<const uint8_t>& stream)
      : stream_(stream), next_(*stream.bytes), count_(uint32_t(*stream.bitCount)) {
    held_ = uint64_t(*stream.bitBuffer) << 32 & ~(~uint64_t(0) >> count_);
    refill();
  }

  // Behind it, at least 56 bits are held. Without a branch, as no predictor learns where units end: eight bytes are
  // read from wherever the held ones end, at most 14 bytes behind the pointer that the caller gets back; callers keep
  // 16 readable.
  void refill() {
    held_ |= __builtin_bswap64(load<uint64_t>(next_)) >> (count_ & 63);
    next_ += ~count_ >> 3 & 7;
    count_ |= 56;
  }

  // Whether any of the first bits is 1 that are 0 in `mask`, which has 1 behind them.
  bool exceeds(uint64_t mask) const { return held_ > mask; }
  // The next `count` bits, 1 to 32; held bits have to suffice for peek, skip and take.
  uint32_t peek(int count) const { return uint32_t(held_ >> (64 - count)); }
  // As many bits as the low six of `count` tell: what stands above them is left to wrap. Before they are skipped, 1 to
  // 63 of them have these at their end.
  uint32_t last(uint32_t count) const { return uint32_t(held_ >> (-count & 63)); }
  void skip(uint32_t count) {
    held_ <<= count & 63;
    count_ -= count;
  }
  uint32_t take(int count) {  // 0 as well
    const auto bits = uint32_t(held_ >> 1 >> (63 - count));
    skip(uint32_t(count));
    return bits;
  }

  // In units, the position is where a reader stands that holds 16 bits at least and fetches two bytes when it must. The
  // next call waits for it.
  void finish() {
    const ptrdiff_t taken = 8 * (next_ - *stream_.bytes) - (count_ & 63);  // below 0 where the caller's bits sufficed
    const ptrdiff_t units = std::max<ptrdiff_t>((taken + 31) >> 4, 0);
    const auto count = int(16 * units - taken);
    refill();
    *stream_.bytes += 2 * units;
    *stream_.bitBuffer = uint32_t(held_ >> 32) & uint32_t(~uint64_t(0) << (32 - count));
    *stream_.bitCount = count;
  }

 private:
  BitStream<const uint8_t> stream_;
  const uint8_t* next_;
  uint64_t held_;   // left-aligned; behind the bits held, what of the next byte fits
  uint32_t count_;  // in its low six bits
};

}  // namespace qelj::jpegxr

#endif
