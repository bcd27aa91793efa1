// Decoders of DXT1, DXT3, DXT5 (BC1 to BC3), BC4 and BC5.
//
// A colour block is two 5:6:5 colours and 16 two-bit indices into a palette of four; a ramp block (DXT5 alpha, BC4, the
// channels of BC5) is two bytes and 16 three-bit indices into a ramp of eight. Each has a scalar form, which is the
// definition, and a vector form, which handles the kAcross blocks of a vector at once, each in its 16 bytes.
#include "frame/fronts.h"
#include "texture/decode_walk.h"
#include "texture/indices.h"

namespace qelj {
namespace texture {
namespace {

using simd::blockLanes, simd::blockPattern, simd::shuffleBytes;
using simd::I16, simd::I8, simd::U16, simd::U32, simd::U64, simd::U8;

// Whether equal or ascending colours select the palette of three colours and white (DXT1 only).
enum class Colours { kFourOrThree, kFour };

// --- scalar form -------------------------------------------------------------------------------------------

// RGBA entries. Colours are interpolated on their expanded 8-bit channels, truncating.
template <Colours kColours>
void fillPalette(const uint8_t* block, uint8_t alpha, uint8_t (&palette)[4][4]) {
  const unsigned colours[2] = {load<uint16_t>(block), load<uint16_t>(block + 2)};
  for (int i = 0; i < 2; ++i) {
    const unsigned r = colours[i] >> 11, g = colours[i] >> 5 & 63, b = colours[i] & 31;
    palette[i][0] = uint8_t(r << 3 | r >> 2);
    palette[i][1] = uint8_t(g << 2 | g >> 4);
    palette[i][2] = uint8_t(b << 3 | b >> 2);
    palette[i][3] = alpha;
  }
  const bool three = kColours == Colours::kFourOrThree && colours[1] >= colours[0];
  for (int c = 0; c < 4; ++c) {
    const int c0 = palette[0][c], c1 = palette[1][c];
    palette[2][c] = uint8_t(three ? (c0 + c1) / 2 : (2 * c0 + c1) / 3);
    palette[3][c] = uint8_t(three ? 255 : (c0 + 2 * c1) / 3);
  }
}

template <Colours kColours>
void ownColourBlock(const uint8_t* block, uint8_t alpha, uint8_t* dst, ptrdiff_t dstStep) {
  uint8_t palette[4][4];
  fillPalette<kColours>(block, alpha, palette);
  const uint32_t indices = load<uint32_t>(block + 4);
  for (int i = 0; i < 16; ++i) std::memcpy(row(dst, dstStep, i / 4) + i % 4 * 4, palette[indexAt<2>(indices, i)], 4);
}

// Interpolated values are rounded to nearest: 3 of 7, 2 of 5.
void fillRamp(const uint8_t* block, uint8_t (&ramp)[8]) {
  const int a0 = block[0], a1 = block[1];
  ramp[0] = block[0];
  ramp[1] = block[1];
  ramp[6] = 0;
  ramp[7] = 255;
  if (a0 > a1)
    for (int i = 1; i < 7; ++i) ramp[i + 1] = uint8_t(((7 - i) * a0 + i * a1 + 3) / 7);
  else
    for (int i = 1; i < 5; ++i) ramp[i + 1] = uint8_t(((5 - i) * a0 + i * a1 + 2) / 5);
}

// Writes every kPixelBytes-th byte.
template <int kPixelBytes>
void ownRampBlock(const uint8_t* block, uint8_t* dst, ptrdiff_t dstStep) {
  uint8_t ramp[8];
  fillRamp(block, ramp);
  const uint64_t indices = load<uint64_t>(block) >> 16;
  for (int i = 0; i < 16; ++i) row(dst, dstStep, i / 4)[i % 4 * kPixelBytes] = ramp[indexAt<3>(indices, i)];
}

// --- vector form -------------------------------------------------------------------------------------------

// Eight bytes of kAcross blocks that lie `stride` bytes apart, in the lower halves of the vector's blocks.
inline U8 loadBlocks(const uint8_t* src, ptrdiff_t stride) {
  U64 v{};
  for (int i = 0; i < kAcross; ++i) v[2 * i] = load<uint64_t>(src + i * stride);
  return as<U8>(v);
}

// A palette of four RGBA pixels in each block. A field of n bits at the top of 16 expands to 8 bits, its high
// bits repeated below, as the high half of its product with 2^8 + 2^(8-n).
template <Colours kColours>
inline U32 colourPalettes(U8 blocks, uint16_t alpha) {
  const auto packed = as<U16>(shuffleBytes(blocks, blockPattern({0, 1, 0, 1, 0, 1, 0, 1, 2, 3, 2, 3, 2, 3, 2, 3})));
  const auto fields = (packed * blockLanes<U16>({1, 1 << 5, 1 << 11, 0, 1, 1 << 5, 1 << 11, 0})) &
                      blockLanes<U16>({0xF800, 0xFC00, 0xF800, 0, 0xF800, 0xFC00, 0xF800, 0});
  const auto ends = mulHi(fields, blockLanes<U16>({264, 260, 264, 0, 264, 260, 264, 0})) |
                    blockLanes<U16>({0, 0, 0, alpha, 0, 0, 0, alpha});
  const auto swapHalves = blockPattern({8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7});
  const auto swapped = as<U16>(shuffleBytes(as<U8>(ends), swapHalves));
  U16 mixed = simd::divide<3, 3 * 255>(ends + ends + swapped);
  if constexpr (kColours == Colours::kFourOrThree) {
    const auto c0 = as<U16>(shuffleBytes(blocks, blockPattern({0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1})));
    const auto c1 = as<U16>(shuffleBytes(blocks, blockPattern({2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3})));
    const auto three = ((ends + swapped) >> 1) | blockLanes<U16>({0, 0, 0, 0, 255, 255, 255, 255});
    mixed = select(c0 > c1, mixed, three);
  }
  return as<U32>(simd::packU8(as<I16>(ends), as<I16>(mixed)));
}

// The pixels of a row of each block, as its indices pick them from the palettes: by lanes, or, where a processor can't
// pick them, by bytes.
struct PixelPicker {
  static constexpr bool kLanes = simd::kBytes > 16;
  U32 palettes, selectors;

  PixelPicker(U8 blocks, U32 of) : palettes(of) {
    if constexpr (kLanes)
      selectors = as<U32>(shuffleBytes(blocks, blockPattern({4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7, 4, 5, 6, 7}))) >>
                  blockLanes<U32>({0, 2, 4, 6});
    else selectors = as<U32>(as<U16>(unpackIndices<2, 4>(blocks)) << 2);
  }
  U8 rowOf(int y) const {
    if constexpr (kLanes) return as<U8>(simd::pickLanes(palettes, selectors >> uint32_t(8 * y)));
    const auto i = uint8_t(4 * y), i1 = uint8_t(i + 1), i2 = uint8_t(i + 2), i3 = uint8_t(i + 3);
    const U8 first =
        shuffleBytes(as<U8>(selectors), blockPattern({i, i, i, i, i1, i1, i1, i1, i2, i2, i2, i2, i3, i3, i3, i3}));
    return shuffleBytes(as<U8>(palettes), first + blockPattern({0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3}));
  }
};

// The 16 values of each ramp block. The weights of end value 1 stand beside those of end value 0; an end
// value itself comes out of the division as it went in.
inline U8 rampValues(U8 blocks) {
  const auto ends = shuffleBytes(blocks, blockPattern({0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1}));
  const auto sevenths = simd::mulAddBytes(ends, as<I8>(blockPattern({7, 0, 0, 7, 6, 1, 5, 2, 4, 3, 3, 4, 2, 5, 1, 6})));
  const auto fifths = simd::mulAddBytes(ends, as<I8>(blockPattern({5, 0, 0, 5, 4, 1, 3, 2, 2, 3, 1, 4, 0, 0, 0, 0})));
  const auto eight = simd::divide<7, 7 * 255 + 3>(as<U16>(sevenths) + uint16_t(3));
  const auto six =
      simd::divide<5, 5 * 255 + 2>(as<U16>(fifths) + uint16_t(2)) | blockLanes<U16>({0, 0, 0, 0, 0, 0, 0, 255});
  const U16 a0 = as<U16>(ends) & uint16_t(0xFF), a1 = as<U16>(ends) >> 8;
  const U16 values = select(a0 > a1, eight, six);
  const U8 ramp = simd::packU8(as<I16>(values), as<I16>(values));
  return shuffleBytes(ramp, unpackIndices<3, 2>(blocks));
}

// Stores two rows of blocks that lie side by side: each 16 bytes of the vector hold 8 of the one row and 8 of
// the other.
inline void storeTwoRows(uint8_t* dst, ptrdiff_t dstStep, U8 pairs) {
  const U8 rows = simd::orderPacked(pairs);
  store(dst, simd::lower(rows));
  store(row(dst, dstStep, 1), simd::upper(rows));
}

// The same for two vectors, which become four rows: a and b are interleaved in units of T.
template <class T>
inline void storeFourRows(uint8_t* dst, ptrdiff_t dstStep, U8 a, U8 b) {
  storeTwoRows(dst, dstStep, as<U8>(simd::unpackLow(as<T>(a), as<T>(b))));
  storeTwoRows(row(dst, dstStep, 2), dstStep, as<U8>(simd::unpackHigh(as<T>(a), as<T>(b))));
}

// --- formats -----------------------------------------------------------------------------------------------

struct Dxt1Decoder {
  static constexpr int kBlockBytes = 8, kPixelBytes = 4, kGroup = kAcross;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    ownColourBlock<Colours::kFourOrThree>(src, 255, dst, dstStep);
  }
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const U8 blocks = loadBlocks(src, kBlockBytes);
    const PixelPicker pixels(blocks, colourPalettes<Colours::kFourOrThree>(blocks, 255));
    for (int y = 0; y < 4; ++y) store(row(dst, dstStep, y), pixels.rowOf(y));
  }
};

// A colour block behind 8 bytes of alpha.
template <class Alpha>
struct ColourAndAlphaDecoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4, kGroup = kAcross;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    ownColourBlock<Colours::kFour>(src + 8, 0, dst, dstStep);
    Alpha::block(src, dst + 3, dstStep);
  }
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const U8 colours = loadBlocks(src + 8, kBlockBytes);
    const PixelPicker pixels(colours, colourPalettes<Colours::kFour>(colours, 0));
    const U8 alphas = Alpha::values(loadBlocks(src, kBlockBytes));
    for (uint8_t y = 0; y < 4; ++y) {
      const auto i = uint8_t(4 * y), i1 = uint8_t(i + 1), i2 = uint8_t(i + 2), i3 = uint8_t(i + 3);
      const U8 alpha = shuffleBytes(
          alphas, blockPattern({128, 128, 128, i, 128, 128, 128, i1, 128, 128, 128, i2, 128, 128, 128, i3}));
      store(row(dst, dstStep, y), pixels.rowOf(y) | alpha);
    }
  }
};

// Four bits a pixel, at the top of the byte and not repeated below: 15 is 240.
struct FourBitAlpha {
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const auto alphas = load<uint64_t>(src);
    for (int i = 0; i < 16; ++i) row(dst, dstStep, i / 4)[i % 4 * 4] = uint8_t(indexAt<4>(alphas, i) << 4);
  }
  static U8 values(U8 blocks) {
    return simd::unpackLow(as<U8>(as<U16>(blocks) << 4) & uint8_t(0xF0), blocks & uint8_t(0xF0));
  }
};

struct RampAlpha {
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) { ownRampBlock<4>(src, dst, dstStep); }
  static U8 values(U8 blocks) { return rampValues(blocks); }
};

struct Bc4Decoder {
  static constexpr int kBlockBytes = 8, kPixelBytes = 1, kGroup = 2 * kAcross;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) { ownRampBlock<1>(src, dst, dstStep); }
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const U8 even = rampValues(loadBlocks(src, 2 * kBlockBytes));
    const U8 odd = rampValues(loadBlocks(src + kBlockBytes, 2 * kBlockBytes));
    storeFourRows<uint32_t>(dst, dstStep, even, odd);
  }
};

struct Bc5Decoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 2, kGroup = kAcross;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    ownRampBlock<2>(src, dst, dstStep);
    ownRampBlock<2>(src + 8, dst + 1, dstStep);
  }
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const U8 red = rampValues(loadBlocks(src, kBlockBytes));
    const U8 green = rampValues(loadBlocks(src + 8, kBlockBytes));
    storeFourRows<uint8_t>(dst, dstStep, red, green);
  }
};

}  // namespace
}  // namespace texture

QelStatus qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return texture::decodeBlocks<texture::Dxt1Decoder>(src, dst, dstStep, size);
}
QelStatus qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return texture::decodeBlocks<texture::ColourAndAlphaDecoder<texture::FourBitAlpha>>(src, dst, dstStep, size);
}
QelStatus qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return texture::decodeBlocks<texture::ColourAndAlphaDecoder<texture::RampAlpha>>(src, dst, dstStep, size);
}
QelStatus qeliTextureDecodeBlock_BC4_8u_C1R(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return texture::decodeBlocks<texture::Bc4Decoder>(src, dst, dstStep, size);
}
QelStatus qeliTextureDecodeBlockToRG_BC5_8u_C1C2R(const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size) {
  return texture::decodeBlocks<texture::Bc5Decoder>(src, dst, dstStep, size);
}

}  // namespace qelj
