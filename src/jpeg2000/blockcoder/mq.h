// The MQ arithmetic coder (ISO/IEC 15444-1, Annex C; the decoder in the software convention of J.1) and the raw bits of
// the bypass mode, both ways. The registers live in small records that a pass copies into locals.
#ifndef QELJ_JPEG2000_MQ_H
#define QELJ_JPEG2000_MQ_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "frame/arith.h"
#include "jpeg2000/blockcoder/contexts.h"

namespace qelj::jpeg2000 {

// Table C.2: Qe, the next state after an MPS and after an LPS, whether an LPS exchanges the symbols.
struct MqRow {
  uint16_t qe;
  uint8_t afterMps, afterLps, exchange;
};
inline constexpr std::array<MqRow, 47> kMqRows = {{
    {0x5601, 1, 1, 1},   {0x3401, 2, 6, 0},   {0x1801, 3, 9, 0},   {0x0ac1, 4, 12, 0},  {0x0521, 5, 29, 0},
    {0x0221, 38, 33, 0}, {0x5601, 7, 6, 1},   {0x5401, 8, 14, 0},  {0x4801, 9, 14, 0},  {0x3801, 10, 14, 0},
    {0x3001, 11, 17, 0}, {0x2401, 12, 18, 0}, {0x1c01, 13, 20, 0}, {0x1601, 29, 21, 0}, {0x5601, 15, 14, 1},
    {0x5401, 16, 14, 0}, {0x5101, 17, 15, 0}, {0x4801, 18, 16, 0}, {0x3801, 19, 17, 0}, {0x3401, 20, 18, 0},
    {0x3001, 21, 19, 0}, {0x2801, 22, 19, 0}, {0x2401, 23, 20, 0}, {0x2201, 24, 21, 0}, {0x1c01, 25, 22, 0},
    {0x1801, 26, 23, 0}, {0x1601, 27, 24, 0}, {0x1401, 28, 25, 0}, {0x1201, 29, 26, 0}, {0x1101, 30, 27, 0},
    {0x0ac1, 31, 28, 0}, {0x09c1, 32, 29, 0}, {0x08a1, 33, 30, 0}, {0x0521, 34, 31, 0}, {0x0441, 35, 32, 0},
    {0x02a1, 36, 33, 0}, {0x0221, 37, 34, 0}, {0x0141, 38, 35, 0}, {0x0111, 39, 36, 0}, {0x0085, 40, 37, 0},
    {0x0049, 41, 38, 0}, {0x0025, 42, 39, 0}, {0x0015, 43, 40, 0}, {0x0009, 44, 41, 0}, {0x0005, 45, 42, 0},
    {0x0001, 45, 43, 0}, {0x5601, 46, 46, 0},
}};

// A context's state: 2 * row + MPS. Beside it, in the highest bit, may stand the symbol that led to it.
using MqState = uint8_t;
inline constexpr MqState kSymbolBit = 128;

// What states say: Qe in the highest bits, and the next states, with their symbols: without renormalisation, which is
// after an MPS, and with it after an MPS and an LPS.
struct MqTables {
  uint64_t qe[256];
  MqState stay[256], after[2][256];
};
inline constexpr auto kMq = [] {
  MqTables t{};
  for (uint32_t i = 0; i < 256; ++i) {
    const uint32_t state = i % kSymbolBit, mps = i & 1;
    const MqRow& r = kMqRows[state / 2 % kMqRows.size()];  // any byte is a state: records are the caller's memory
    t.qe[i] = uint64_t(r.qe) << 48;
    t.stay[i] = MqState(state | kSymbolBit * mps);
    t.after[0][i] = MqState(2 * r.afterMps + mps + kSymbolBit * mps);
    t.after[1][i] = MqState(2 * r.afterLps + (mps ^ r.exchange) + kSymbolBit * (mps ^ 1));
  }
  return t;
}();

struct MqContexts {
  MqState state[kContexts];

  void reset() {  // Table D.7
    std::fill(state, state + kContexts, MqState(0));
    state[kUniform] = 2 * 46;
    state[kRunLength] = 2 * 3;
    state[kSignificance] = 2 * 4;
  }
};

// For outcomes that no branch predictor can learn; compilers make branches of conditions. x < limit ? a : b.
template <class Word>
QELJ_INLINE Word selectBelow(std::type_identity_t<Word> x, std::type_identity_t<Word> limit, Word a, Word b) {
#if defined(__x86_64__) && !defined(QELJ_PORTABLE)
  asm("cmp %2, %1\n\tcmovb %3, %0" : "+r"(b) : "r"(x), "re"(limit), "r"(a) : "cc");
  return b;
#else
  return b ^ ((a ^ b) & (0 - Word(x < limit)));
#endif
}
// x < 0 ? a : b.
template <class Index, class Word>
QELJ_INLINE Word selectNegative(Index x, Word a, Word b) {
#if defined(__x86_64__) && !defined(QELJ_PORTABLE)
  asm("test %1, %1\n\tcmovs %2, %0" : "+r"(b) : "r"(x), "r"(a) : "cc");
  return b;
#else
  return b ^ ((a ^ b) & Word(x >> (8 * sizeof(Index) - 1)));
#endif
}
// Takes `amount` from x where x has as much, and then the others' second values.
QELJ_INLINE void subtractUnlessBelow(uint64_t& x, uint64_t amount, uint64_t& a, uint64_t a2, uint64_t& b, uint64_t b2) {
#if defined(__x86_64__) && !defined(QELJ_PORTABLE)
  uint64_t rest = x;
  asm("sub %4, %0\n\tcmovae %0, %1\n\tcmovae %5, %2\n\tcmovae %6, %3"
      : "+&r"(rest), "+&r"(x), "+&r"(a), "+&r"(b)
      : "r"(amount), "r"(a2), "r"(b2)
      : "cc");
#else
  const uint64_t enough = 0 - uint64_t(x >= amount);
  x -= amount & enough;
  a ^= (a ^ a2) & enough;
  b ^= (b ^ b2) & enough;
#endif
}

// Bytes of one codeword segment; behind its end there are only ones.
struct SegmentBytes {
  const uint8_t* bytes;
  size_t length, index;

  uint32_t operator[](size_t i) const { return i < length ? bytes[i] : 255; }
  // Four that exist, the first one in the highest bits.
  uint32_t word(size_t i) const {
    const uint8_t* b = bytes + i;
    return uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
  }
};

class MqDecoder {
 public:
  static constexpr bool kRaw = false;

  MqDecoder(const uint8_t* bytes, size_t length) : in_{bytes, length, 0} {
    c_ = uint64_t(255 - in_[0]) << 48;
    ct_ = 0;
    fetch();
    c_ <<= 7;
    ct_ -= 7;
  }

  // Without branches but for the next byte: what a stream says no processor foretells, and a wrong bet costs more
  // than the longer road. What follows from either part of the interval is ready before C tells which it is.
  QELJ_INLINE uint32_t decode(MqState& context) {
    const size_t s = context;
    const uint64_t mps = kMq.after[0][s], lps = kMq.after[1][s], qe = kMq.qe[s], upper = a_ - qe;
    // In the upper part, in the lower one; the smaller part is the LPS's.
    const uint64_t low = selectBelow<uint64_t>(upper, qe, mps, lps);
    uint64_t next = selectBelow<uint64_t>(upper, qe, lps, mps);
    next = selectNegative<int64_t, uint64_t>(int64_t(upper), kMq.stay[s], next);
    a_ = upper;
    subtractUnlessBelow(c_, upper, a_, qe, next, low);
    context = MqState(next);
    renormalise(std::countl_zero(a_));
    return uint32_t(next) / kSymbolBit;
  }

  // The same, for a symbol that hardly ever is the less probable one.
  QELJ_INLINE uint32_t decodeLikely(MqState& context) {
    const uint64_t upper = a_ - kMq.qe[context];
    if (int64_t(upper) >= 0 || upper <= c_) return decode(context);
    a_ = upper;
    return context & 1;
  }

  // Whether the segment ends otherwise than an encoder with predictable termination ends it (D.4.2). Of no
  // use but at a segment's end.
  bool terminatedBadly() const {
    // The bytes behind the one that CT counts have not been taken.
    const size_t index = in_.index - size_t(ct_) / 8;
    int ct = ct_ & 7;
    if (index < in_.length && in_[index] < 255 && !marker_) return true;
    if (ct != 0) {
      if (!marker_) return true;
      if (ct == 1) return false;
    } else {
      if (!marker_ && in_[index + 1] < 144) return true;
      ct = 8;
    }
    return a_ - (uint64_t(1) << (64 - ct)) > c_;
  }

 private:
  QELJ_INLINE void renormalise(int shift) {
    a_ <<= shift;
    while (__builtin_expect(shift > ct_, 0)) {
      c_ <<= ct_;
      shift -= ct_;
      fetch();
    }
    c_ <<= shift;
    ct_ -= shift;
  }

  // C is inverted, so that the ones that follow the end of a segment add nothing. Four bytes at a time where no bit is
  // stuffed in front of one.
  QELJ_INLINE void fetch() {
    if (in_.index + 5 <= in_.length) {
      const uint32_t before = in_.word(in_.index);
      if (((~before - 0x01010101) & before & 0x80808080) == 0) {  // no byte of 255
        c_ += uint64_t(~in_.word(in_.index + 1)) << 16;
        ct_ = 32;
        in_.index += 4;
        return;
      }
    }
    ct_ = 8;
    if (marker_) return;
    const uint64_t next = in_[in_.index + 1];
    if (in_[in_.index] < 255) {
      c_ += (0xFF00 - (next << 8)) << 32;
    } else if (next > 143) {
      marker_ = true;
      return;
    } else {
      c_ += (0xFE00 - (next << 9)) << 32;  // below zero where the stuffed bit is a carry
      ct_ = 7;
    }
    ++in_.index;
  }

  SegmentBytes in_;
  uint64_t a_ = uint64_t(1) << 63, c_;  // A in the highest 16 bits, as C has it, and below the bits to come
  int ct_;                              // how many of them
  bool marker_ = false;
};

class RawDecoder {
 public:
  static constexpr bool kRaw = true;

  RawDecoder(const uint8_t* bytes, size_t length) : in_{bytes, length, 0} {}
  QELJ_INLINE uint32_t decode(MqState&) {
    if (count_ < 0) {
      count_ = last_ == 255 ? 6 : 7;
      last_ = in_[in_.index++];
    }
    return last_ >> count_-- & 1;
  }
  QELJ_INLINE uint32_t decodeLikely(MqState& context) { return decode(context); }

 private:
  SegmentBytes in_;
  uint32_t last_ = 0;
  int count_ = -1;
};

// Both encoders write at `end`, and end[-1] always exists: the byte before the segment.

class MqEncoder {
 public:
  explicit MqEncoder(uint8_t* end) : start_(end - 1), at_(end - 1), ct_(*at_ == 255 ? 13 : 12) {}

  // `symbols`: context << 1 | bit.
  void encode(const uint8_t* symbols, const uint8_t* symbolsEnd, MqContexts& contexts) {
    MqEncoder local = *this;  // registers
    MqContexts states = contexts;
    for (; symbols != symbolsEnd; ++symbols) local.encodeOne(states.state[*symbols >> 1], *symbols & 1);
    *this = local;
    contexts = states;
  }

  // FLUSH (C.2.9): the end of the segment, which is never 0xFF.
  uint8_t* flush() {
    const uint32_t top = c_ + a_;
    c_ |= 0xFFFF;
    if (c_ >= top) c_ -= 0x8000;
    for (int i = 0; i < 2; ++i) {
      c_ <<= ct_;
      byteOut();
    }
    return *at_ == 255 ? at_ : at_ + 1;
  }

  // The end of what has left the byte register.
  uint8_t* written() const { return at_ == start_ ? at_ + 1 : at_; }
  // At most this many bytes more, of the byte register and C, decide all symbols so far.
  int pending() const {
    const int bits = 27 - ct_;
    return (bits > (*at_ < 254 ? 23 : 22) ? 5 : 4) - (at_ == start_);
  }

 private:
  QELJ_INLINE void encodeOne(MqState& context, uint32_t bit) {
    const size_t s = context;
    const uint32_t lps = uint32_t(s ^ bit) & 1, qe = uint32_t(kMq.qe[s] >> 48), next = kMq.after[lps][s];
    // Negative for the lower part of the interval, whose size is Qe: for an LPS, but the larger part is the MPS's.
    const int32_t part = int32_t(a_ - 2 * qe) ^ -int32_t(lps);
    c_ += qe & ~uint32_t(part >> 31);
    a_ = selectNegative<int32_t, uint32_t>(part, qe, a_ - qe);
    context = MqState(selectBelow<uint32_t>(a_, 0x8000, next, uint32_t(s)));
    int shift = __builtin_clz(a_) - 16;  // never of 0
    a_ <<= shift;
    while (__builtin_expect(shift >= ct_, 0)) {
      c_ <<= ct_;
      shift -= ct_;
      byteOut();
    }
    c_ <<= shift;
    ct_ -= shift;
  }

  QELJ_INLINE void byteOut() {  // BYTEOUT (C.2.8)
    if (*at_ != 255) {
      *at_ = uint8_t(*at_ + (c_ >> 27));
      c_ &= *at_ == 255 ? 0x7FFFFFF : ~0u;
    }
    const bool stuff = *at_ == 255;
    *++at_ = uint8_t(c_ >> (stuff ? 20 : 19));
    c_ &= stuff ? 0xFFFFF : 0x7FFFF;
    ct_ = stuff ? 7 : 8;
  }

  uint8_t *start_, *at_;  // the byte register is *at_
  uint32_t a_ = 0x8000, c_ = 0;
  int ct_;
};

class RawEncoder {
 public:
  explicit RawEncoder(uint8_t* end) : end_(end) {}

  void encode(const uint8_t* symbols, const uint8_t* symbolsEnd) {
    for (; symbols != symbolsEnd; ++symbols) {
      byte_ = byte_ << 1 | (*symbols & 1);
      if (--free_ == 0) {
        *end_++ = uint8_t(byte_);
        free_ = byte_ == 255 ? 7 : 8;
        full_ = free_;
        byte_ = 0;
      }
    }
  }

  // Fills the last byte with alternating bits, the last one 0, so that the segment doesn't end in 0xFF.
  uint8_t* flush() {
    if (free_ < 8) *end_++ = uint8_t(byte_ << free_ | (0x2A & ((1u << free_) - 1)));
    return end_;
  }

  uint8_t* written() const { return end_; }
  int pending() const { return free_ != full_; }

 private:
  uint8_t* end_;
  uint32_t byte_ = 0;
  int free_ = 8, full_ = 8;
};

}  // namespace qelj::jpeg2000

#endif
