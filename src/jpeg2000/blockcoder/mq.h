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

// A context's state: 2 * row + MPS. What it says: Qe in the high half, and the next states after an MPS and an LPS.
using MqState = uint8_t;
struct MqStep {
  uint32_t qe;
  MqState after[2];
};
inline constexpr auto kMqSteps = [] {
  std::array<MqStep, 2 * kMqRows.size()> all{};
  for (uint32_t i = 0; i < all.size(); ++i) {
    const MqRow& r = kMqRows[i / 2];
    const uint32_t mps = i & 1;
    all[i] = {uint32_t(r.qe) << 16, {MqState(2 * r.afterMps + mps), MqState(2 * r.afterLps + (mps ^ r.exchange))}};
  }
  return all;
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

// x < limit ? a : b and x < 0 ? a : b, for outcomes that no branch predictor can learn. Compilers make branches of
// conditions.
inline uint32_t selectBelow(uint32_t x, uint32_t limit, uint32_t a, uint32_t b) {
#if defined(__x86_64__) && !defined(QELJ_PORTABLE)
  asm("cmpl %2, %1\n\tcmovbl %3, %0" : "+r"(b) : "r"(x), "ri"(limit), "r"(a) : "cc");
  return b;
#else
  return b ^ ((a ^ b) & uint32_t((int64_t(x) - int64_t(limit)) >> 63));
#endif
}
inline uint32_t selectNegative(int32_t x, uint32_t a, uint32_t b) {
#if defined(__x86_64__) && !defined(QELJ_PORTABLE)
  asm("testl %1, %1\n\tcmovsl %2, %0" : "+r"(b) : "r"(x), "r"(a) : "cc");
  return b;
#else
  return b ^ ((a ^ b) & uint32_t(x >> 31));
#endif
}

// Bytes of one codeword segment; behind its end there are only ones.
struct SegmentBytes {
  const uint8_t* bytes;
  size_t length, index;

  uint32_t operator[](size_t i) const { return i < length ? bytes[i] : 255; }
};

class MqDecoder {
 public:
  static constexpr bool kRaw = false;

  MqDecoder(const uint8_t* bytes, size_t length) : in_{bytes, length, 0} {
    const uint32_t first = in_[0];
    c_ = (255 - first) << 16;
    ct_ = 0;
    fetch();
    c_ <<= 7;
    ct_ -= 7;
  }

  // Without branches but for the next byte: what a stream says no processor foretells, and a wrong bet costs more
  // than the longer road. What follows from either part of the interval is ready before C tells which it is.
  QELJ_INLINE uint32_t decode(MqState& context) {
    const uint32_t s = context;
    const MqStep& step = kMqSteps[s];
    const uint32_t qe = step.qe, upper = a_ - qe, mps = step.after[0], lps = step.after[1];
    const uint32_t nextHigh = selectBelow(upper, qe, lps, mps), nextLow = selectBelow(upper, qe, mps, lps);
    const uint32_t high = selectNegative(int32_t(upper), s, nextHigh);
    context = MqState(selectBelow(c_, upper, high, nextLow));
    const uint32_t symbol = s ^ uint32_t(upper < qe) ^ uint32_t(c_ >= upper);
    a_ = selectBelow(c_, upper, upper, qe);
    c_ = selectBelow(c_, upper, c_, c_ - upper);
    renormalise(__builtin_clz(a_));  // never of 0
    return symbol & 1;
  }

  // The same, for a symbol that hardly ever is the less probable one.
  QELJ_INLINE uint32_t decodeLikely(MqState& context) {
    const uint32_t upper = a_ - kMqSteps[context].qe;
    if (upper < 0x80000000 || upper <= c_) return decode(context);
    a_ = upper;
    return context & 1;
  }

  // Whether the segment ends otherwise than an encoder with predictable termination ends it (D.4.2). Of no
  // use but at a segment's end.
  bool terminatedBadly() const {
    if (in_.index < in_.length && in_[in_.index] < 255 && !marker_) return true;
    int ct = ct_;
    if (ct != 0) {
      if (!marker_) return true;
      if (ct == 1) return false;
    } else {
      if (!marker_ && in_[in_.index + 1] < 144) return true;
      ct = 8;
    }
    return a_ - (0x80000000u >> (ct - 1)) > c_;
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

  // C is inverted, so that the ones that follow the end of a segment add nothing.
  QELJ_INLINE void fetch() {
    ct_ = 8;
    if (marker_) return;
    const uint32_t next = in_[in_.index + 1];
    if (in_[in_.index] < 255) {
      c_ += 0xFF00 - (next << 8);
    } else if (next > 143) {
      marker_ = true;
      return;
    } else {
      c_ += 0xFE00 - (next << 9);  // below zero where the stuffed bit is a carry
      ct_ = 7;
    }
    ++in_.index;
  }

  SegmentBytes in_;
  uint32_t a_ = 0x80000000, c_;  // A in the high half, as C has it
  int ct_;
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
    for (; symbols != symbolsEnd; ++symbols) local.encodeOne(contexts.state[*symbols >> 1], *symbols & 1);
    *this = local;
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
    const uint32_t s = context, lps = (s ^ bit) & 1;
    const MqStep& step = kMqSteps[s];
    const uint32_t qe = step.qe >> 16, next = step.after[lps];
    // Negative for the lower part of the interval, whose size is Qe: for an LPS, but the larger part is the MPS's.
    const int32_t part = int32_t(a_ - 2 * qe) ^ -int32_t(lps);
    c_ += qe & ~uint32_t(part >> 31);
    a_ = selectNegative(part, qe, a_ - qe);
    context = MqState(selectBelow(a_, 0x8000, next, s));
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
