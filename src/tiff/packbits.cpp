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
// ones in front of it, which `tail` still holds. So every store is exact. A token of up to 32 bytes is two of these.
namespace short_token {
struct Windows {
  uint8_t older[32];     // from n on: moves 16 bytes down by n
  uint8_t fresh[32];     // from n on: marks the upper n bytes
  uint8_t value[2][16];  // [is a run]: the bytes themselves, or the last one in all places
  constexpr Windows() : older{}, fresh{}, value{} {
    for (int i = 0; i < 16; ++i) {
      older[i] = uint8_t(i);
      older[16 + i] = 0x80;
      fresh[16 + i] = 0xFF;
      value[0][i] = uint8_t(i);
      value[1][i] = 15;
    }
  }
};
constexpr Windows kWindows;

// `data` is the 16 bytes of source that end with the literal or with the run's value.
inline U8x16 join(U8x16 tail, U8x16 data, int64_t n, bool isRun) {
  const U8x16 bytes = simd::shuffleBytes(data, load<U8x16>(kWindows.value[isRun]));
  const U8x16 before = simd::shuffleBytes(tail, load<U8x16>(kWindows.older + n));
  return select(load<U8x16>(kWindows.fresh + n), bytes, before);
}
}  // namespace short_token

// Decodes tokens until dst is full (true) or the next one can't be taken (false).
bool ownUnpack(const uint8_t* src, int64_t& position, int64_t srcLen, uint8_t* dst, int64_t& count, int64_t dstLen) {
  [[maybe_unused]] U8x16 tail{};  // dst[count - 16 .. count), once there are as many
  while (position < srcLen) {
    const auto header = int8_t(src[position++]);
    const int64_t room = dstLen - count;
    if constexpr (simd::kShuffles) {
      // Full literals have a branch of their own: while it is predicted, no header waits for the one before it.
      if (header == 127 && room >= kMaxToken && position + kMaxToken <= srcLen) {
        ownCopyLiteral(dst + count, src + position, kMaxToken);
        position += kMaxToken;
        count += kMaxToken;
        tail = load<U8x16>(src + position - 16);
        if (count == dstLen) return true;
        continue;
      }
    }
    if (header == -128) continue;
    const bool isRun = header < 0;
    const int64_t n = isRun ? 1 - header : header + 1, taken = isRun ? 1 : n;
    if (n > room || (!isRun && position + n > srcLen)) return false;
    position += taken;  // behind the source's end where a run's header was its last byte
    if (simd::kShuffles && n <= 32 && count >= 16 && position - taken >= 16) {
      const int64_t first = std::min<int64_t>(n, 16), start = position - taken;
      tail = short_token::join(tail, load<U8x16>(src + start + (isRun ? 1 : first) - 16), first, isRun);
      store(dst + count + first - 16, tail);
      tail = short_token::join(tail, load<U8x16>(src + position - 16), n - first, isRun);
      store(dst + count + n - 16, tail);
      count += n;
    } else {
      if (isRun) ownFillRun(dst + count, src[position - 1], n);
      else ownCopyLiteral(dst + count, src + position - n, n);
      count += n;
      if constexpr (simd::kShuffles) {
        if (isRun && n >= 16) tail = all<U8x16>(src[position - 1]);
        else if (n >= 16) tail = load<U8x16>(src + position - 16);
        else if (count >= 16) tail = load<U8x16>(dst + count - 16);
      }
    }
    if (count == dstLen) return true;
  }
  return false;
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
  int64_t position = *srcPos, count = 0;
  const bool full = ownUnpack(src, position, srcLen, dst, count, dstLen);
  *srcPos = uint32_t(position);
  return full ? qelStatusOk : qelStatusOutOfBuffer;
}

}  // namespace qelj
