// Decoders of DXT1, DXT3, DXT5 (BC1 to BC3), BC4 and BC5.
//
// A colour block is two 5:6:5 colours and 16 two-bit indices into a palette of four; a ramp block (DXT5 alpha, BC4, the
// channels of BC5) is two bytes and 16 three-bit indices into a ramp of eight. Each has a scalar form, which is the
// definition, and a vector form, which handles as many blocks at once as the vector V has 16 bytes.
#include "frame/fronts.h"
#include "texture/decode_walk.h"
#include "texture/indices.h"

namespace qelj {
namespace texture {
namespace {

using simd::blockLanes, simd::blockPattern, simd::shuffleBytes;
using simd::U8, simd::With;

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

// Blocks of 8 bytes in the lower halves of the vector's blocks.
template <class V>
inline V loadBlocks(const uint8_t* src) {
  With<uint64_t, V> v{};
  for (int i = 0; i < int(sizeof(V)) / 16; ++i) v[2 * i] = load<uint64_t>(src + 8 * i);
  return as<V>(v);
}
// The second halves of blocks of 16 bytes, of which `blocks` are the whole.
template <class V>
inline V secondHalves(const uint8_t* src, V blocks) {
  if constexpr (sizeof(V) == 16) return loadBlocks<V>(src + 8);
  else return as<V>(simd::unpackHigh(as<uint64_t>(blocks), as<uint64_t>(blocks)));
}

// A palette of four RGBA pixels in each block, of a colour block that begins at byte kAt. A field of n bits at the top of 16 expands to 8 bits, its high
// bits repeated below, as the high half of its product with 2^8 + 2^(8-n).
template <Colours kColours, uint8_t kAt, class V>
inline With<uint32_t, V> colourPalettes(V blocks, uint16_t alpha) {
  using W = With<uint16_t, V>;
  constexpr uint8_t a = kAt, b = kAt + 1, c = kAt + 2, d = kAt + 3;
  const auto packed = as<W>(shuffleBytes(blocks, blockPattern<V>({a, b, a, b, a, b, a, b, c, d, c, d, c, d, c, d})));
  const auto fields = (packed * blockLanes<W>({1, 1 << 5, 1 << 11, 0, 1, 1 << 5, 1 << 11, 0})) &
                      blockLanes<W>({0xF800, 0xFC00, 0xF800, 0, 0xF800, 0xFC00, 0xF800, 0});
  const auto ends = mulHi(fields, blockLanes<W>({264, 260, 264, 0, 264, 260, 264, 0})) |
                    blockLanes<W>({0, 0, 0, alpha, 0, 0, 0, alpha});
  const auto swapHalves = blockPattern<V>({8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7});
  const auto swapped = as<W>(shuffleBytes(as<V>(ends), swapHalves));
  W mixed = simd::divide<3, 3 * 255>(ends + ends + swapped);
  if constexpr (kColours == Colours::kFourOrThree) {
    const auto c0 = as<W>(shuffleBytes(blocks, blockPattern<V>({a, b, a, b, a, b, a, b, a, b, a, b, a, b, a, b})));
    const auto c1 = as<W>(shuffleBytes(blocks, blockPattern<V>({c, d, c, d, c, d, c, d, c, d, c, d, c, d, c, d})));
    const auto three = ((ends + swapped) >> 1) | blockLanes<W>({0, 0, 0, 0, 255, 255, 255, 255});
    mixed = select(c0 > c1, mixed, three);
  }
  return as<uint32_t>(simd::packU8(as<int16_t>(ends), as<int16_t>(mixed)));
}

// The pixels of a row of each block, as its indices pick them from the palettes: by lanes, or, where a processor can't
// pick them, by bytes.
template <class V, uint8_t kAt>
struct PixelPicker {
  static constexpr bool kLanes = sizeof(V) > 16;
  using L = With<uint32_t, V>;
  L palettes, selectors;

  PixelPicker(V blocks, L of) : palettes(of) {
    constexpr uint8_t a = kAt + 4, b = kAt + 5, c = kAt + 6, d = kAt + 7;
    if constexpr (kLanes)
      selectors =
          as<uint32_t>(shuffleBytes(blocks, blockPattern<V>({a, b, c, d, a, b, c, d, a, b, c, d, a, b, c, d}))) >>
          blockLanes<L>({0, 2, 4, 6});
    else selectors = as<uint32_t>(as<uint16_t>(unpackIndices<2, a>(blocks)) << 2);
  }
  V rowOf(int y) const {
    if constexpr (kLanes) return as<V>(simd::pickLanes(palettes, selectors >> uint32_t(8 * y)));
    const auto i = uint8_t(4 * y), i1 = uint8_t(i + 1), i2 = uint8_t(i + 2), i3 = uint8_t(i + 3);
    const V first =
        shuffleBytes(as<V>(selectors), blockPattern<V>({i, i, i, i, i1, i1, i1, i1, i2, i2, i2, i2, i3, i3, i3, i3}));
    return shuffleBytes(as<V>(palettes), first + blockPattern<V>({0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3}));
  }
};

// The 16 values of each ramp block. The weights of end value 1 stand beside those of end value 0; an end
// value itself comes out of the division as it went in.
template <class V>
inline V rampValues(V blocks) {
  using W = With<uint16_t, V>;
  const auto ends = shuffleBytes(blocks, blockPattern<V>({0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1}));
  const auto sevenths =
      simd::mulAddBytes(ends, as<int8_t>(blockPattern<V>({7, 0, 0, 7, 6, 1, 5, 2, 4, 3, 3, 4, 2, 5, 1, 6})));
  const auto fifths =
      simd::mulAddBytes(ends, as<int8_t>(blockPattern<V>({5, 0, 0, 5, 4, 1, 3, 2, 2, 3, 1, 4, 0, 0, 0, 0})));
  const auto eight = simd::divide<7, 7 * 255 + 3>(as<W>(sevenths) + uint16_t(3));
  const auto six =
      simd::divide<5, 5 * 255 + 2>(as<W>(fifths) + uint16_t(2)) | blockLanes<W>({0, 0, 0, 0, 0, 0, 0, 255});
  const W a0 = as<W>(ends) & uint16_t(0xFF), a1 = as<W>(ends) >> 8;
  const W values = select(a0 > a1, eight, six);
  const V ramp = simd::packU8(as<int16_t>(values), as<int16_t>(values));
  return shuffleBytes(ramp, unpackIndices<3, 2>(blocks));
}

// Stores two rows of blocks that lie side by side: each 16 bytes of the vector hold 8 of the one row and 8 of
// the other.
template <class V>
inline void storeTwoRows(uint8_t* dst, ptrdiff_t dstStep, V pairs) {
  const V rows = simd::orderPacked(pairs);
  store(dst, simd::lower(rows));
  store(row(dst, dstStep, 1), simd::upper(rows));
}

// The same for two vectors, which become four rows: a and b are interleaved in units of T.
template <class T, class V>
inline void storeFourRows(uint8_t* dst, ptrdiff_t dstStep, V a, V b) {
  storeTwoRows(dst, dstStep, as<V>(simd::unpackLow(as<T>(a), as<T>(b))));
  storeTwoRows(row(dst, dstStep, 2), dstStep, as<V>(simd::unpackHigh(as<T>(a), as<T>(b))));
}

// --- formats -----------------------------------------------------------------------------------------------

struct Dxt1Decoder {
  static constexpr int kBlockBytes = 8, kPixelBytes = 4, kInSixteen = 1;
  using Widest = U8;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    ownColourBlock<Colours::kFourOrThree>(src, 255, dst, dstStep);
  }
  template <class V>
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const V blocks = loadBlocks<V>(src);
    const PixelPicker<V, 0> pixels(blocks, colourPalettes<Colours::kFourOrThree, 0>(blocks, 255));
    for (int y = 0; y < 4; ++y) store(row(dst, dstStep, y), pixels.rowOf(y));
  }
};

// A colour block behind 8 bytes of alpha.
template <class Alpha>
struct ColourAndAlphaDecoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 4, kInSixteen = 1;
  using Widest = typename Alpha::Widest;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    ownColourBlock<Colours::kFour>(src + 8, 0, dst, dstStep);
    Alpha::block(src, dst + 3, dstStep);
  }
  template <class V>
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const V blocks = load<V>(src);
    const PixelPicker<V, 8> pixels(blocks, colourPalettes<Colours::kFour, 8>(blocks, 0));
    const V alphas = Alpha::values(blocks);
    for (uint8_t y = 0; y < 4; ++y) {
      const auto i = uint8_t(4 * y), i1 = uint8_t(i + 1), i2 = uint8_t(i + 2), i3 = uint8_t(i + 3);
      const V alpha = shuffleBytes(
          alphas, blockPattern<V>({128, 128, 128, i, 128, 128, 128, i1, 128, 128, 128, i2, 128, 128, 128, i3}));
      store(row(dst, dstStep, y), pixels.rowOf(y) | alpha);
    }
  }
};

// Four bits a pixel, at the top of the byte and not repeated below: 15 is 240.
struct FourBitAlpha {
  using Widest = U8;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const auto alphas = load<uint64_t>(src);
    for (int i = 0; i < 16; ++i) row(dst, dstStep, i / 4)[i % 4 * 4] = uint8_t(indexAt<4>(alphas, i) << 4);
  }
  template <class V>
  static V values(V blocks) {
    return simd::unpackLow(as<V>(as<uint16_t>(blocks) << 4) & uint8_t(0xF0), blocks & uint8_t(0xF0));
  }
};

struct RampAlpha {
  using Widest = simd::Wide<uint8_t>;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) { ownRampBlock<4>(src, dst, dstStep); }
  template <class V>
  static V values(V blocks) {
    return rampValues(blocks);
  }
};

struct Bc4Decoder {
  static constexpr int kBlockBytes = 8, kPixelBytes = 1, kInSixteen = 2;
  using Widest = simd::Wide<uint8_t>;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) { ownRampBlock<1>(src, dst, dstStep); }
  template <class V>
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const V blocks = load<V>(src);
    storeFourRows<uint32_t>(dst, dstStep, rampValues(blocks), rampValues(secondHalves(src, blocks)));
  }
};

struct Bc5Decoder {
  static constexpr int kBlockBytes = 16, kPixelBytes = 2, kInSixteen = 1;
  using Widest = simd::Wide<uint8_t>;
  static void block(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    ownRampBlock<2>(src, dst, dstStep);
    ownRampBlock<2>(src + 8, dst + 1, dstStep);
  }
  template <class V>
  static void group(const uint8_t* src, uint8_t* dst, ptrdiff_t dstStep) {
    const V blocks = load<V>(src);
    storeFourRows<uint8_t>(dst, dstStep, rampValues(blocks), rampValues(secondHalves(src, blocks)));
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
