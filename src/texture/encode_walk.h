// The walk of all block encoders over an image.
#ifndef QELJ_TEXTURE_ENCODE_WALK_H
#define QELJ_TEXTURE_ENCODE_WALK_H

#include <algorithm>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/lanes.h"

namespace qelj::texture {

// An encoder's Format has
//   kBlockBytes, kPixelBytes
//   block(src, srcStep, dst)   encodes the 4x4 pixels of one block
// and may have another form for blocks side by side:
//   kGroup                     how many
//   group(src, srcStep, dst)   encodes kGroup blocks
//   kGroupDiffers              present where a group's bytes are not those of its blocks one by one: then
//                              groups are used on every build
// or may be an object whose block() puts blocks off, and
//   finish()                   encodes what was put off
// Groups start at multiples of kGroup blocks, in complete rows of blocks; every block that can be in a group is in one.
// clang-format off
template <class Format>
concept GroupEncoder = requires { Format::kGroup; } && (requires { Format::kGroupDiffers; } || simd::kEnabled);
// clang-format on

// The 16 pixels of a block that crosses the right or bottom edge: columns beyond the edge repeat the row's
// last pixel inside the image, rows below it repeat the last row. Reads `columns` x `rows` pixels.
template <int kPixel>
void padBlock(const uint8_t* src, ptrdiff_t srcStep, ptrdiff_t columns, ptrdiff_t rows,
              uint8_t (&pixels)[16 * kPixel]) {
  for (ptrdiff_t y = 0; y < 4; ++y) {
    const uint8_t* from = row(src, srcStep, std::min(y, rows - 1));
    for (ptrdiff_t x = 0; x < 4; ++x)
      std::memcpy(pixels + (4 * y + x) * kPixel, from + std::min(x, columns - 1) * kPixel, kPixel);
  }
}

// Writes the blocks in raster order.
template <class Format>
QelStatus encodeBlocks(const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst) {
  if (auto s = check(nonNull(src, dst), require(srcStep != 0, qelStatusBadStep), area(size)); s) return s;
  constexpr ptrdiff_t kPixel = Format::kPixelBytes;
  const ptrdiff_t width = size.width, height = size.height, step = srcStep;
  Format format;
  for (ptrdiff_t y = 0; y < height; y += 4) {
    const uint8_t* const from = row(src, step, y);
    const ptrdiff_t rows = std::min<ptrdiff_t>(4, height - y);
    ptrdiff_t x = 0;
    if (rows == 4) {
      if constexpr (GroupEncoder<Format>)
        for (; x + 4 * Format::kGroup <= width; x += 4 * Format::kGroup, dst += Format::kGroup * Format::kBlockBytes)
          format.group(from + x * kPixel, step, dst);
      for (; x + 4 <= width; x += 4, dst += Format::kBlockBytes) format.block(from + x * kPixel, step, dst);
    }
    for (; x < width; x += 4, dst += Format::kBlockBytes) {
      uint8_t pixels[16 * kPixel];
      padBlock<kPixel>(from + x * kPixel, step, std::min<ptrdiff_t>(4, width - x), rows, pixels);
      format.block(pixels, 4 * kPixel, dst);
    }
  }
  if constexpr (requires { format.finish(); }) format.finish();
  return qelStatusOk;
}

}  // namespace qelj::texture

#endif
