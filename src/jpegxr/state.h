// The adaptive state of the coefficient coders: which code table every class of symbols uses, and the three
// scans. The record lies in the caller's storage, at any address.
#ifndef QELJ_JPEGXR_STATE_H
#define QELJ_JPEGXR_STATE_H

#include <bit>
#include <cstddef>
#include <utility>

#include "frame/arith.h"
#include "frame/lanes.h"
#include "qelj.h"

namespace qelj::jpegxr {

// A coefficient's place in a scan. Places move up as their counts of significant coefficients grow.
struct __attribute__((packed)) ScanEntry {
  int32_t count;
  uint32_t position;     // 0..15
  uint32_t column, row;  // of that position in a block
};

// One class of symbols.
struct __attribute__((packed)) VLCEntry {
  int32_t alphabet;
  int32_t tableIndex;
  uint32_t initialised;
  int32_t upperBound, lowerBound;
};

inline constexpr int kEntries = 21, kPlaces = 16;

}  // namespace qelj::jpegxr

struct __attribute__((packed)) VLCState {
  qelj::jpegxr::ScanEntry* currentScan;
  const int32_t* codeTable[qelj::jpegxr::kEntries];     // the symbol count, then (code, length) a symbol
  const int32_t* deltaTable[qelj::jpegxr::kEntries];    // what a symbol adds to `discriminant`
  const int32_t* deltaTable2[qelj::jpegxr::kEntries];   // ... and to `discriminant2`
  const int16_t* decodeTable[qelj::jpegxr::kEntries];   // by the next 5 bits, longer codes by nodes behind
  const int16_t* decodeTable2[qelj::jpegxr::kEntries];  // for alphabets of codes above 5 bits, by the next 8 bits
  qelj::jpegxr::VLCEntry entry[qelj::jpegxr::kEntries];
  int32_t discriminant[qelj::jpegxr::kEntries];
  int32_t discriminant2[qelj::jpegxr::kEntries];
  qelj::jpegxr::ScanEntry scanTable2[qelj::jpegxr::kPlaces];
  qelj::jpegxr::ScanEntry scanTable1[qelj::jpegxr::kPlaces];
  qelj::jpegxr::ScanEntry scanTable0[qelj::jpegxr::kPlaces];
};

namespace qelj::jpegxr {

// Entries of the record: the class of run lengths, the low-pass classes, and the high-pass classes. A class
// with a chroma form has it three entries later; next index and level take the context bit on top.
enum : int {
  kRunClass = 0,
  kLowFirst = 5,
  kLowNext = 6,
  kLowLevel = 11,
  kHighFirst = 13,
  kHighNext = 14,
  kHighLevel = 19
};
inline constexpr int kChromaStep = 3;

// Where `position` lies in a block.
inline constexpr uint8_t kColumn[kPlaces] = {0, 1, 0, 1, 3, 2, 3, 2, 0, 1, 0, 1, 3, 2, 3, 2};
inline constexpr uint8_t kRow[kPlaces] = {0, 0, 1, 1, 0, 0, 1, 1, 3, 3, 2, 2, 3, 3, 2, 2};

// The scan that the block coders use: null where the record points elsewhere, as one does that was never filled, or was
// copied to another address.
inline ScanEntry* scanInUse(VLCState& state) {
  // The three lie one behind another: only their distances from the first are small numbers, turned by their size.
  constexpr size_t kBytes = sizeof state.scanTable2;
  static_assert(std::has_single_bit(kBytes) &&
                offsetof(VLCState, scanTable0) == offsetof(VLCState, scanTable2) + 2 * kBytes);
  const auto distance = reinterpret_cast<uintptr_t>(state.currentScan) - reinterpret_cast<uintptr_t>(state.scanTable2);
  return std::rotr(distance, std::countr_zero(kBytes)) <= 2 ? state.currentScan : nullptr;
}
// A scan's content is the caller's memory too: whatever it holds, a position stays in its block.
template <class U>
constexpr U inBlock(U position) {
  return position & uint32_t(kPlaces - 1);
}

// A significant coefficient at `place`: its count rises, and it changes places with the one before when it
// has been significant more often. From `firstMoving` on, places can move.
template <int firstMoving = 2>
inline void countSignificant(ScanEntry* scan, int place) {
  scan[place].count = addWrap<int32_t>(scan[place].count, 1);
  if (place >= firstMoving && scan[place].count > scan[place - 1].count) [[unlikely]]
    std::swap(scan[place], scan[place - 1]);
}

// --- what of a block's coefficients is coded as levels, and what stays behind ------------------------------
// `modelBits` low bits of a coefficient are split off. What remains of its magnitude is its level; a coefficient of
// level 0 is not significant. V is int32_t or a vector of them.

template <class V>
constexpr With<uint32_t, V> magnitude(V v) {
  return as<uint32_t>(absWrap(v));
}
// The number of this magnitude and of the sign of -1 or 0, without a branch, which would be a toss of a coin.
template <class U>
constexpr With<int32_t, U> signedBy(U magnitude, U sign) {
  return as<int32_t>((magnitude ^ sign) - sign);
}
template <class V>
constexpr V levelOf(V v, uint32_t modelBits) {
  return signedBy(magnitude(v) >> modelBits, as<uint32_t>(shr(v, 31)));
}

// The bits split off, less `trimBits` of them, as the fixed-length layer codes them: the lowest bit says that
// a sign belongs to the field.
template <class V>
constexpr With<uint32_t, V> residualOf(V v, uint32_t modelBits, uint32_t trimBits) {
  using U = With<uint32_t, V>;
  const U a = magnitude(v), t = (a & ((1u << modelBits) - 1)) >> trimBits;
  const U any = min(t, all<U>(1)), sign = shr(as<uint32_t>(v), 31);
  return select(a >> modelBits != U{}, 2 * t, 4 * t + 2 * (any & sign) + any);
}

// Sixteen numbers as bytes, signed ones saturated.
inline simd::U8x16 packBytes(simd::U32x4 a, simd::U32x4 b, simd::U32x4 c, simd::U32x4 d) {
  const auto halves = [](auto v, auto w) { return simd::packI16(as<int32_t>(v), as<int32_t>(w)); };
  return as<uint8_t>(simd::packI8(halves(a, b), halves(c, d)));
}
// The positions along a scan, a byte each. Counts are left alone: a vector over one that was stored by itself a moment
// ago would wait for it.
inline simd::U8x16 orderOf(const ScanEntry* scan) {
  using simd::U32x4, simd::U64x2;
  U32x4 order[4];
  for (int i = 0; i < 4; ++i) {
    const auto two = [=](int k) {
      const auto first = reinterpret_cast<const char*>(scan + 4 * i + k) + offsetof(ScanEntry, position);
      return as<uint32_t>(U64x2{load<uint64_t>(first), load<uint64_t>(first + sizeof(ScanEntry))});
    };
    order[i] = inBlock(__builtin_shufflevector(two(0), two(2), 0, 2, 4, 6));
  }
  return packBytes(order[0], order[1], order[2], order[3]);
}
// The residuals of four coefficients from position 4 * i on, but for that of the DC.
inline void putResiduals(uint32_t* residual, int i, simd::I32x4 quad, uint32_t modelBits, uint32_t trimBits) {
  const simd::U32x4 r = residualOf(quad, modelBits, trimBits);
  if (i) return store(offset(residual, 4 * i), r);
  for (int k = 1; k < 4; ++k) put(residual, k, r[k]);
}

// The significant places of a scan, place k in bit k, and the residuals if they are asked for. Place 0 is the
// DC's and stays out. A walk along the scan may move an entry that it has passed, never one to come, so that
// the order in force at each visit is that of before the walk. The coefficients come in the order of their
// positions and become levels.
template <bool kResidual>
inline uint32_t significantPlaces(const ScanEntry* scan, uint32_t modelBits, uint32_t trimBits, uint32_t* residual,
                                  int32_t (&coefficients)[kPlaces]) {
  uint32_t places = 0;
  if constexpr (!simd::kEnabled) {
    for (int k = 1; k < kPlaces; ++k) {
      const uint32_t position = inBlock(scan[k].position);
      const int32_t v = coefficients[position];
      places |= uint32_t(magnitude(v) >> modelBits != 0) << k;
      if constexpr (kResidual) put(residual, position, residualOf(v, modelBits, trimBits));
    }
    for (int32_t& v : coefficients) v = levelOf(v, modelBits);
    return places;
  } else {
    using simd::I32x4, simd::U32x4, simd::U8x16;
    U32x4 significant[4];
    for (int i = 0; i < 4; ++i) {
      const auto quad = load<I32x4>(coefficients + 4 * i), level = levelOf(quad, modelBits);
      store(coefficients + 4 * i, level);
      significant[i] = as<uint32_t>(level != I32x4{});
      if constexpr (kResidual) putResiduals(residual, i, quad, modelBits, trimBits);
    }
    const U8x16 any = packBytes(significant[0], significant[1], significant[2], significant[3]);
    if (simd::isZero(any)) return 0;
    return simd::topBits(simd::shuffleBytes(any, orderOf(scan))) & 0xFFFE;
  }
}

// Hands the pairs (run, position) of the significant places out in the order of the scan, and sorts the scan.
template <class Append>
inline void walkSignificant(ScanEntry* scan, uint32_t places, Append&& append) {
  for (int last = 0; places; places &= places - 1) {
    const int k = std::countr_zero(places);
    append(k - last - 1, inBlock(scan[k].position));
    countSignificant(scan, k);
    last = k;
  }
}

}  // namespace qelj::jpegxr

#endif
