// The walk of all block decoders over an image.
#ifndef QELJ_TEXTURE_DECODE_WALK_H
#define QELJ_TEXTURE_DECODE_WALK_H

#include <algorithm>
#include <bit>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/lanes.h"

namespace qelj::texture {

// A decoder's Format has
//   kBlockBytes, kPixelBytes
//   block(src, dst, dstStep)   writes the 4x4 pixels of one block
// and may have a faster form for blocks side by side:
//   kInSixteen                    how many in 16 bytes of a vector
//   Widest                        the widest vector of bytes that pays
//   group<V>(src, dst, dstStep)   writes the 4 rows of as many as the vector V takes
// or has, instead of block(), one for each kind of block:
//   kKinds, kindOf(first)              how many kinds; the one that a block's first byte tells
//   isOfKind<kKind>(first)             whether it does, for a vector of them: a mask
//   ofKind<kKind>(src, dst, dstStep)   writes a block of this kind
// clang-format off
template <class Format>
concept GroupDecoder = requires { Format::kInSixteen; } && simd::kShuffles;
template <class Format>
concept KindDecoder = requires { Format::kKinds; };
// clang-format on

template <class Format>
void decodeBlock(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
  if constexpr (KindDecoder<Format>)
    withConstant<0, Format::kKinds - 1>(Format::kindOf(src[0]),
                                        [&](auto kind) { Format::template ofKind<kind>(src, dst, dstStep); });
  else Format::block(src, dst, dstStep);
}

// Blocks side by side of one kind, from the first on: how many, at most `most`.
template <class Format, int kKind>
[[gnu::noinline]] ptrdiff_t decodeRun(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep, ptrdiff_t most) {
  const uint8_t *from = src, *const end = src + most * Format::kBlockBytes;
  do {
    Format::template ofKind<kKind>(from, dst, dstStep);
    from += Format::kBlockBytes, dst += 4 * Format::kPixelBytes;
  } while (from != end && Format::kindOf(*from) == kKind);
  return (from - src) / Format::kBlockBytes;
}
// Those of which `members` has a bit.
template <class Format, int kKind>
[[gnu::noinline]] void decodeMembers(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep, uint64_t members) {
  for (; members; members &= members - 1) {
    const int at = std::countr_zero(members);
    Format::template ofKind<kKind>(src + at * Format::kBlockBytes, dst + at * (4 * Format::kPixelBytes), dstStep);
  }
}

// Blocks side by side, those of one kind behind one another: nothing tells which kind comes next, and a processor that
// guesses wrong loses the time of a block. Runs of one kind, which some encoders make of whole images, need no sorting.
template <class Format>
void decodeByKind(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep, ptrdiff_t count) {
  constexpr ptrdiff_t kMost = 64, kRun = 8, kBlock = Format::kBlockBytes, kRowBytes = 4 * Format::kPixelBytes;
  for (ptrdiff_t some; count > 0; count -= some, src += some * kBlock, dst += some * kRowBytes) {
    const int first = Format::kindOf(src[0]);
    const ptrdiff_t run = std::min(kRun, count);
    for (some = 1; some < run && Format::kindOf(src[some * kBlock]) == first; ++some) {
    }
    if (some == run) {
      withConstant<0, Format::kKinds - 1>(first,
                                          [&](auto kind) { some = decodeRun<Format, kind>(src, dst, dstStep, count); });
      continue;
    }
    some = std::min(kMost, count);
    uint8_t firstBytes[kMost] = {};
    ptrdiff_t i = 0;
    for (; i + 8 <= some; i += 8) simd::unroll<8>([&](auto k) { firstBytes[i + k] = src[(i + k) * kBlock]; });
    for (; i < some; ++i) firstBytes[i] = src[i * kBlock];
    // Of all kinds before any is decoded, for what is written to memory might be what has been read from it.
    uint64_t members[Format::kKinds] = {};
    for (int from = 0; from < kMost; from += simd::kBytes) {
      const auto bytes = load<simd::U8>(firstBytes + from);
      simd::unroll<Format::kKinds>(
          [&](auto kind) { members[kind] |= uint64_t(simd::topBits(Format::template isOfKind<kind>(bytes))) << from; });
    }
    simd::unroll<Format::kKinds>([&](auto kind) {
      const uint64_t of = members[kind] & ~uint64_t(0) >> (kMost - some);
      if (of) decodeMembers<Format, kind>(src, dst, dstStep, of);
    });
  }
}

// Blocks lie in raster order. One that lies inside the image is decoded in place; one that crosses the right
// or bottom edge goes through a buffer, from which the covered pixels are copied.
template <class Format>
QelStatus decodeBlocks(const void* source, void* destination, int32_t dstStep, QelSize size) {
  if (auto s = check(nonNull(source, destination), require(dstStep != 0, qelStatusBadStep), area(size)); s) return s;
  constexpr ptrdiff_t kPixel = Format::kPixelBytes;
  auto* src = static_cast<const uint8_t*>(source);
  const ptrdiff_t width = size.width, height = size.height, step = dstStep;
  for (ptrdiff_t y = 0; y < height; y += 4) {
    uint8_t* const dst = row(static_cast<uint8_t*>(destination), step, y);
    const ptrdiff_t rows = std::min<ptrdiff_t>(4, height - y);
    ptrdiff_t x = 0;
    if (rows == 4) {
      if constexpr (GroupDecoder<Format>) {
        const auto groups = [&]<class V>(V, ptrdiff_t end) {
          constexpr ptrdiff_t kGroup = Format::kInSixteen * ptrdiff_t(sizeof(V)) / 16;
          for (; x + 4 * kGroup <= end; x += 4 * kGroup, src += kGroup * Format::kBlockBytes)
            Format::template group<V>(src, dst + x * kPixel, step);
        };
        using Widest = typename Format::Widest;
        constexpr ptrdiff_t kBytes = sizeof(Widest);
        // In images beyond the first cache, stores across two lines take longer than a few blocks by themselves in front
        // of the first that is aligned.
        if constexpr (kBytes > 16 && 4 * kPixel == 16) {
          const auto beyond = ptrdiff_t(reinterpret_cast<uintptr_t>(dst) % kBytes);
          if (width >= 256 && beyond % 16 == 0)
            groups(simd::U8x16{}, std::min(width, (kBytes - beyond) % kBytes / kPixel));
        }
        groups(Widest{}, width);
        if constexpr (kBytes > simd::kBytes) groups(simd::U8{}, width);
        if constexpr (simd::kBytes > 16) groups(simd::U8x16{}, width);
      }
      if constexpr (KindDecoder<Format> && simd::kShuffles) {
        const ptrdiff_t count = width / 4;
        decodeByKind<Format>(src, dst, step, count);
        x += 4 * count, src += count * Format::kBlockBytes;
      }
      for (; x + 4 <= width; x += 4, src += Format::kBlockBytes) decodeBlock<Format>(src, dst + x * kPixel, step);
    }
    for (; x < width; x += 4, src += Format::kBlockBytes) {
      uint8_t pixels[16 * kPixel];
      decodeBlock<Format>(src, pixels, 4 * kPixel);
      const auto bytes = size_t(std::min<ptrdiff_t>(4, width - x) * kPixel);
      for (ptrdiff_t r = 0; r < rows; ++r) std::memcpy(row(dst, step, r) + x * kPixel, pixels + r * 4 * kPixel, bytes);
    }
  }
  return qelStatusOk;
}

}  // namespace qelj::texture

#endif
