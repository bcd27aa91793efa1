// The walk of all block decoders over an image.
#ifndef QELJ_TEXTURE_DECODE_WALK_H
#define QELJ_TEXTURE_DECODE_WALK_H

#include <algorithm>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/lanes.h"

namespace qelj::texture {

// A decoder's Format has
//   kBlockBytes, kPixelBytes
//   block(src, dst, dstStep)   writes the 4x4 pixels of one block
// and may have a faster form for blocks side by side:
//   kGroup                     how many
//   group(src, dst, dstStep)   writes the 4 rows of kGroup blocks
// clang-format off
template <class Format>
concept GroupDecoder = requires { Format::kGroup; } && simd::kShuffles;
// clang-format on

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
      if constexpr (GroupDecoder<Format>)
        for (; x + 4 * Format::kGroup <= width; x += 4 * Format::kGroup, src += Format::kGroup * Format::kBlockBytes)
          Format::group(src, dst + x * kPixel, step);
      for (; x + 4 <= width; x += 4, src += Format::kBlockBytes) Format::block(src, dst + x * kPixel, step);
    }
    for (; x < width; x += 4, src += Format::kBlockBytes) {
      uint8_t pixels[16 * kPixel];
      Format::block(src, pixels, 4 * kPixel);
      const auto bytes = size_t(std::min<ptrdiff_t>(4, width - x) * kPixel);
      for (ptrdiff_t r = 0; r < rows; ++r) std::memcpy(row(dst, step, r) + x * kPixel, pixels + r * 4 * kPixel, bytes);
    }
  }
  return qelStatusOk;
}

}  // namespace qelj::texture

#endif
