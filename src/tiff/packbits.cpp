// PackBits rows (TIFF 6.0, section 9). A token is a byte n of 0..127 and n + 1 literal bytes, or a byte 1 - c
// and the value of a run of c, 2 to 128; -128 is no token.
#include <algorithm>
#include <bit>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"

namespace qelj {
namespace {

using simd::U8, simd::U8x16;
constexpr int64_t kMaxToken = 128;

// --- copies and fills --------------------------------------------------------------------------------------

// Of 1 to 128 bytes, exactly these. Two stores that overlap serve every length between one size and two; and as many
// vectors as the most bytes take serve all longer ones, without a loop whose end no predictor can learn.
template <class Make>  // Make(Type{}, offset): the value of this type at this byte
inline void ownStoreExactly(uint8_t* dst, int64_t n, Make make) {
  const auto both = [&](auto type) {
    store(dst, make(type, 0));
    store(dst + n - int64_t(sizeof type), make(type, n - int64_t(sizeof type)));
  };
  if (n > simd::kBytes) {
    constexpr int64_t kVectors = kMaxToken / simd::kBytes;
    simd::unroll<int(kVectors)>([&](auto i) {
      const int64_t fromStart = i * simd::kBytes, fromEnd = n - (kVectors - i) * simd::kBytes;
      const int64_t at = i < kVectors / 2 ? std::min(fromStart, n - simd::kBytes) : std::max<int64_t>(fromEnd, 0);
      store(dst + at, make(U8{}, at));
    });
  } else if (n >= 16) {
    both(U8x16{});
  } else if (n >= 8) {
    both(uint64_t{});
  } else if (n >= 4) {
    both(uint32_t{});
  } else if (n >= 2) {
    both(uint16_t{});
  } else {
    both(uint8_t{});
  }
}

inline void ownCopyLiteral(uint8_t* dst, const uint8_t* src, int64_t n) {
  if constexpr (simd::kEnabled)
    ownStoreExactly(dst, n, [=](auto type, int64_t i) { return load<decltype(type)>(src + i); });
  else std::memcpy(dst, src, size_t(n));
}

inline void ownFillRun(uint8_t* dst, uint8_t value, int64_t n) {
  if constexpr (simd::kEnabled) {
    const U8 values = all<U8>(value);
    ownStoreExactly(dst, n, [&](auto type, int64_t) { return load<decltype(type)>(&values); });
  } else {
    std::memset(dst, value, size_t(n));
  }
}

// --- the encoder's scanner ---------------------------------------------------------------------------------

// The length of the run at src, of at most `limit` bytes.
inline int64_t ownRun(const uint8_t* src, int64_t limit) {
  int64_t n = 1;
  if constexpr (simd::kEnabled) {
    const U8 value = all<U8>(src[0]);
    for (; n + simd::kBytes <= limit; n += simd::kBytes) {
      const uint32_t same = simd::topBits(load<U8>(src + n) == value);
      const int count = std::countr_one(same);
      if (count < simd::kBytes) return n + count;
    }
  }
  while (n < limit && src[n] == src[0]) ++n;
  return n;
}

// The length of the literal at src, whose first two bytes differ. It ends before three equal bytes, before
// two equal bytes that end the row, and at 128 bytes. `left` bytes remain in the row.
inline int64_t ownLiteral(const uint8_t* src, int64_t left) {
  const int64_t limit = left < kMaxToken ? left : kMaxToken;
  int64_t n = 1;
  if constexpr (simd::kEnabled) {
    for (; n < limit && n + simd::kBytes + 2 <= left; n += simd::kBytes) {
      const U8 here = load<U8>(src + n), next = load<U8>(src + n + 1), third = load<U8>(src + n + 2);
      const uint32_t equal = simd::topBits((here == next) & (next == third));
      if (equal) {
        n += std::countr_zero(equal);
        return n < limit ? n : limit;
      }
    }
  }
  for (; n < limit; ++n) {
    const bool pair = n + 1 < left && src[n] == src[n + 1];
    if (pair && (n + 2 == left || src[n + 1] == src[n + 2])) return n;
  }
  return limit;
}

// --- the decoder -------------------------------------------------------------------------------------------

// The vector form for a token of n, at most 16, bytes takes no branch on what it is. Its last 16 bytes of
// output are stored as one vector that ends with the token: the upper n bytes are new, and the others are the
// ones in front of it, which `tail` still holds. So every store is exact.
namespace short_token {
struct Windows {
  uint8_t older[32] = {};         // from n on: moves 16 bytes down by n
  uint8_t newer[2][17][16] = {};  // [is a run][n]: to the upper n bytes the bytes themselves, or the last one
  constexpr Windows() {
    for (int i = 0; i < 16; ++i) {
      older[i] = uint8_t(i);
      older[16 + i] = 0x80;
      for (int n = 0; n <= 16; ++n) {
        newer[0][n][i] = uint8_t(i < 16 - n ? 0x80 : i);
        newer[1][n][i] = uint8_t(i < 16 - n ? 0x80 : 15);
      }
    }
  }
};
constexpr Windows kWindows;

// `data` is the 16 bytes of source that end with the literal or with the run's value.
inline U8x16 join(U8x16 tail, U8x16 data, int64_t n, bool isRun) {
  return simd::shuffleBytes(tail, load<U8x16>(kWindows.older + n)) |
         simd::shuffleBytes(data, load<U8x16>(kWindows.newer[isRun][n]));
}
}  // namespace short_token

// Where the decoder is in its row.
struct Unpacker {
  const uint8_t* src;
  uint8_t* dst;
  int64_t position, count = 0;
  U8x16 tail{};  // dst[count - 16 .. count), once there are as many

  // Writes a token of n bytes, whose `taken` bytes follow in the source. kInside: neither is near its start.
  template <bool kInside>
  void take(int64_t n, int64_t taken, bool isRun) {
    position += taken;  // behind the source's end where a run's header was its last byte
    if (simd::kShuffles && n <= 16 && (kInside || (count >= 16 && position >= 16))) {
      tail = short_token::join(tail, load<U8x16>(src + position - 16), n, isRun);
      store(dst + count + n - 16, tail);
      count += n;
      return;
    }
    if (isRun) ownFillRun(dst + count, src[position - 1], n);
    else ownCopyLiteral(dst + count, src + position - n, n);
    count += n;
    if constexpr (simd::kShuffles) {
      if (isRun && n >= 16) tail = all<U8x16>(src[position - 1]);
      else if (n >= 16) tail = load<U8x16>(src + position - 16);
      else if (count >= 16) tail = load<U8x16>(dst + count - 16);
    }
  }

  // Decodes tokens while any that comes next lies within srcLen and has room within dstLen.
  void takeInside(int64_t srcLen, int64_t dstLen) {
    while (srcLen - position > kMaxToken && dstLen - count >= kMaxToken) {
      const auto header = int8_t(src[position++]);
      // Full literals have a branch of their own: while it is predicted, no header waits for the one before it.
      if (header == 127) take<true>(kMaxToken, kMaxToken, false);
      else if (header >= 0) take<true>(header + 1, header + 1, false);
      else if (header != -128) take<true>(1 - header, 1, true);
    }
  }
};

// Decodes tokens until dst is full (true) or the next one can't be taken (false).
bool ownUnpack(const uint8_t* src, int64_t& position, int64_t srcLen, uint8_t* dst, int64_t dstLen) {
  Unpacker at{src, dst, position};
  bool full = false;
  while (at.position < srcLen) {
    const auto header = int8_t(src[at.position++]);
    if (header == -128) continue;
    const bool isRun = header < 0;
    const int64_t n = isRun ? 1 - header : header + 1, taken = isRun ? 1 : n;
    if (n > dstLen - at.count || (!isRun && at.position + n > srcLen)) break;
    at.take<false>(n, taken, isRun);
    if (simd::kShuffles && at.count >= 16 && at.position >= 16) at.takeInside(srcLen, dstLen);
    full = at.count == dstLen;
    if (full) break;
  }
  position = at.position;
  return full;
}

}  // namespace

QelStatus qeliPackBitsRow_TIFF_8u_C1(const uint8_t* src, int32_t srcLen, uint8_t* dst, uint32_t* dstPos,
                                     int32_t dstLen) {
  if (auto s = check(nonNull(src, dstPos, dst), length(srcLen), length(dstLen)); s) return s;
  int64_t position = *dstPos;
  for (int64_t i = 0; i < srcLen;) {
    const int64_t left = srcLen - i, room = dstLen - position;
    int64_t taken;
    if (left >= 2 && src[i] == src[i + 1]) {
      taken = ownRun(src + i, left < kMaxToken ? left : kMaxToken);
      if (room < 2) break;
      dst[position] = uint8_t(1 - taken);
      dst[position + 1] = src[i];
      position += 2;
    } else {
      taken = ownLiteral(src + i, left);
      if (room < taken + 1) break;
      dst[position] = uint8_t(taken - 1);
      ownCopyLiteral(dst + position + 1, src + i, taken);
      position += taken + 1;
    }
    i += taken;
    if (i == srcLen) {
      *dstPos = uint32_t(position);
      return qelStatusOk;
    }
  }
  *dstPos = uint32_t(position);
  return qelStatusOutOfBuffer;
}

QelStatus qeliUnpackBitsRow_TIFF_8u_C1(const uint8_t* src, uint32_t* srcPos, int32_t srcLen, uint8_t* dst,
                                       int32_t dstLen) {
  if (auto s = check(nonNull(src, srcPos, dst), length(srcLen), length(dstLen)); s) return s;
  int64_t position = *srcPos;
  const bool full = ownUnpack(src, position, srcLen, dst, dstLen);
  *srcPos = uint32_t(position);
  return full ? qelStatusOk : qelStatusOutOfBuffer;
}

}  // namespace qelj
