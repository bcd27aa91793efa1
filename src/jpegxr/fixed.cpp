// Fixed-length coding (ITU-T T.832, 8.7.20): the low bits of a block's coefficients, which the adaptive codes left.
#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "frame/fronts.h"
#include "jpegxr/bits.h"
#include "jpegxr/state.h"

namespace qelj {
namespace {

using namespace jpegxr;

// The positions in coding order; the DC has no field. Behind its value, a field has the sign where the level
// coder sent none.
constexpr uint8_t kFieldOrder[] = {5, 1, 6, 10, 12, 8, 14, 2, 4, 3, 7, 9, 13, 11, 15};
constexpr int kFields = std::size(kFieldOrder);

// Calls field(place, position) for all, with both known to the compiler: their addresses are.
template <class Field>
QELJ_INLINE void forEachField(Field&& field) {
  [&]<int... place>(std::integer_sequence<int, place...>)
      QELJ_INLINE_LAMBDA { (field(place, kFieldOrder[place]), ...); }(std::make_integer_sequence<int, kFields>());
}

// What a sample sends in its field, over a bit that says whether the field has a sign. That goes with any value above 0,
// also with one whose low bits are all 0.
template <class V>
constexpr With<uint32_t, V> fieldOf(V sample, uint32_t n, uint32_t trimBits) {
  using U = With<uint32_t, V>;
  const U a = magnitude(sample) >> trimBits;
  return select(a != U{}, 4 * (a & ((1u << n) - 1)) + 2 * shr(as<uint32_t>(sample), 31) + 1, U{});
}

// Where the fields lie by position, and in the rows of a block.
constexpr auto kByPosition = [] {
  std::array<uint8_t, kPlaces> places{};
  std::copy(std::begin(kFieldOrder), std::end(kFieldOrder), places.begin());
  return places;
}();
constexpr auto kByRow = [] {
  std::array<uint8_t, kPlaces> places{};
  for (size_t i = 0; i < kFields; ++i) places[i] = uint8_t(4 * kRow[kFieldOrder[i]] + kColumn[kFieldOrder[i]]);
  return places;
}();

// Fields of up to six bits, joined by fours without a shift for each of them: products with the powers of two of what is
// behind are added up in pairs, then pairs likewise. One more without bits ends the last four.
constexpr uint32_t kMostJoined = 5;
QELJ_INLINE void ownJoinFields(UnitWriter& bits, uint32_t n, const simd::U32x4 (&fields)[4],
                               const std::array<uint8_t, kPlaces>& places) {
  using simd::I16x8, simd::U16x8, simd::U32x4, simd::U8x16;
  constexpr uint8_t kAll = 0xFF, kOne = 1;
  const U8x16 there = {kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, 0};
  const U8x16 all15 = packBytes(fields[0] & 127u, fields[1] & 127u, fields[2] & 127u, fields[3] & 127u);
  const U8x16 field = simd::shuffleBytes(all15, load<U8x16>(places.data())) & there, hasSign = field & kOne;
  const U8x16 counts = (all<U8x16>(uint8_t(n)) & there) + hasSign;
  const U8x16 least = all<U8x16>(uint8_t(1 << n)) & there, powers = least + (least & -hasSign) - U8x16(~there);
  const U8x16 values = (field >> 1) & U8x16(powers - kOne);
  const auto twos = as<uint16_t>(powers);
  const U16x8 fours = (twos & uint16_t(255)) * (twos >> 8);
  const I16x8 pairs = simd::mulAddBytes(values, as<int8_t>(twos >> 8 | uint16_t(1 << 8)));
  const auto joined = as<uint32_t>(simd::mulAddPairs(pairs, as<int16_t>(as<uint32_t>(fours) >> 16 | 1u << 16)));
  const auto count = as<uint32_t>(simd::mulAddPairs(simd::addBytePairs(counts), simd::pairs<I16x8>(1, 1)));
  bits.settle();
  for (int i = 0; i < 4; i += 2) {
    bits.append(uint64_t(joined[i]) << count[i + 1] | joined[i + 1], count[i] + count[i + 1]);
    bits.settle();
  }
}

template <class T>
QELJ_INLINE QelStatus encode(const T* src, int32_t srcStep, const uint32_t* residual, BitStream<uint8_t> stream,
                             uint32_t flexBits, uint32_t trimBits, int32_t fromResidual) {
  if (auto s = check(nonNull(src, residual), nonNull(stream)); s) return s;
  if (auto s = check(bitsHeld(*stream.bitCount), fieldBits(flexBits), fieldBits(trimBits)); s) return s;
  UnitWriter::Room room;
  UnitWriter bits(stream, room);
  if (simd::kEnabled && simd::kShuffles && flexBits <= kMostJoined) {
    using simd::I32x4, simd::U32x4;
    U32x4 fields[4];
    for (int i = 0; i < 4; ++i)
      fields[i] = fromResidual ? load<U32x4>(offset(residual, 4 * i))
                               : fieldOf(simd::loadAs<I32x4, T>(row(src, srcStep, i)), flexBits, trimBits);
    ownJoinFields(bits, flexBits, fields, fromResidual ? kByPosition : kByRow);
  } else {
    // As many fields are settled at once as fit 32 bits.
    const int together = flexBits < 2 ? 16 : flexBits < 4 ? 8 : flexBits < 8 ? 4 : 2;
    forEachField([&](int place, int position) {
      const uint32_t field =
          fromResidual ? at(residual, position)
                       : fieldOf(int32_t(at(row(src, srcStep, kRow[position]), kColumn[position])), flexBits, trimBits);
      const uint32_t count = flexBits + (field & 1);
      bits.append(field >> 1 & ((1u << count) - 1), count);
      if (!((place + 1) & (together - 1))) bits.settle();
    });
  }
  bits.finish();
  return qelStatusOk;
}

// The fields of a block as they stand in the stream, each with the bit behind it, by column and row; `unsent` tells in
// the same order whose sign is not sent, as the level coder has sent it.
QELJ_INLINE void ownTakeFields(UnitReader& bits, int n, uint32_t unsent, uint32_t (&fields)[kPlaces]) {
  forEachField([&](int place, int position) {
    const int at = 4 * kRow[position] + kColumn[position];
    // 56 bits are 18 fields with a sign, or 8, or 3.
    if (n > 6 ? place % 3 == 0 : n > 2 && place == 8) bits.refill();
    fields[at] = bits.peek(n + 1);
    // Without a branch, and the next field waits for nothing but one comparison.
    const bool isSigned = bits.exceeds(~uint64_t(0) >> n | (0u - uint64_t(unsent >> at & 1)));
    bits.skip(n);
    bits.skip(isSigned);
  });
}

// A field of 0 adds 0. A sample that is replaced counts as 0 where it is.
template <bool kRefine, class V>
inline V withField(V old, With<uint32_t, V> field, uint32_t scale) {
  using U = With<uint32_t, V>;
  const U low = field >> 1;
  const V v = kRefine ? old : select(low == U{}, old, V{});
  const U sent = U{} - (field & 1), sign = kRefine ? select(v == V{}, sent, as<uint32_t>(shr(v, 31))) : sent;
  return as<int32_t>(as<uint32_t>(v) + ((low * scale ^ sign) - sign));  // wraps
}

template <bool kRefine, class T>
inline void ownDecodeFields(UnitReader& bits, T* srcDst, ptrdiff_t step, int n, uint32_t scale) {
  uint32_t fields[kPlaces] = {};
  if constexpr (simd::kEnabled) {
    using simd::I32x4, simd::U32x4;
    I32x4 old[4];
    for (int r = 0; r < 4; ++r) old[r] = simd::loadAs<I32x4, T>(row(srcDst, step, r));
    uint32_t unsent = 0;
    if constexpr (kRefine) {
      const auto sent = [&](int r) {
        return simd::packI16(as<int32_t>(old[r] == I32x4{}), as<int32_t>(old[r + 1] == I32x4{}));
      };
      unsent = ~simd::topBits(as<uint8_t>(simd::packI8(sent(0), sent(2))));
    }
    ownTakeFields(bits, n, unsent, fields);
    for (int r = 0; r < 4; ++r) {
      const I32x4 v = withField<kRefine>(old[r], load<U32x4>(fields + 4 * r), scale);
      if (r == 0)
        for (int c = 1; c < 4; ++c) put(srcDst, c, T(v[c]));
      else store(row(srcDst, step, r), simd::convert<T>(v));
    }
  } else {
    uint32_t unsent = 0;
    for (int k = 1; kRefine && k < kPlaces; ++k) unsent |= uint32_t(at(row(srcDst, step, k / 4), k % 4) != 0) << k;
    ownTakeFields(bits, n, unsent, fields);
    for (int k = 1; k < kPlaces; ++k) {
      T* const line = row(srcDst, step, k / 4);
      put(line, k % 4, T(withField<kRefine>(int32_t(at(line, k % 4)), fields[k], scale)));
    }
  }
}

template <class T>
QELJ_INLINE QelStatus decode(BitStream<const uint8_t> stream, T* srcDst, int32_t srcDstStep, uint32_t flexBits, T scale,
                             int32_t refine) {
  if (auto s = check(nonNull(srcDst), nonNull(stream)); s) return s;
  if (auto s = check(bitsHeld(*stream.bitCount), fieldBits(flexBits)); s) return s;
  UnitReader bits(stream);
  if (flexBits) {
    if (refine) ownDecodeFields<true>(bits, srcDst, srcDstStep, int(flexBits), uint32_t(scale));
    else ownDecodeFields<false>(bits, srcDst, srcDstStep, int(flexBits), uint32_t(scale));
  }
  bits.finish();
  return qelStatusOk;
}

}  // namespace

QelStatus qeliFLCEncode4x4_JPEGXR_16s1u_C1R(const int16_t* src, int32_t srcStep, const uint32_t* residual,
                                            uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, uint32_t flexBits,
                                            uint32_t trimBits, int32_t fromResidual) {
  return encode(src, srcStep, residual, {stream, bitBuffer, bitCount}, flexBits, trimBits, fromResidual);
}
QelStatus qeliFLCEncode4x4_JPEGXR_32s1u_C1R(const int32_t* src, int32_t srcStep, const uint32_t* residual,
                                            uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, uint32_t flexBits,
                                            uint32_t trimBits, int32_t fromResidual) {
  return encode(src, srcStep, residual, {stream, bitBuffer, bitCount}, flexBits, trimBits, fromResidual);
}

QelStatus qeliFLCDecode4x4_JPEGXR_1u16s_C1IR(const uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount,
                                             int16_t* srcDst, int32_t srcDstStep, uint32_t flexBits, int16_t scale,
                                             int32_t refine) {
  return decode({stream, bitBuffer, bitCount}, srcDst, srcDstStep, flexBits, scale, refine);
}
QelStatus qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(const uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount,
                                             int32_t* srcDst, int32_t srcDstStep, uint32_t flexBits, int32_t scale,
                                             int32_t refine) {
  return decode({stream, bitBuffer, bitCount}, srcDst, srcDstStep, flexBits, scale, refine);
}

}  // namespace qelj
