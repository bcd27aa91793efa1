// What both directions of the MCU conversion share: the geometry of a minimum coded unit (ISO/IEC 10918-1, A.2.3) in
// its three samplings, and the pixel formats.
//
// The vector kernels work by octets, the eight neighbouring pixels that make one row of one block. A vector of 16-bit
// samples holds one octet in each 16-byte block, from kOctets rows of the picture. Its sums pair 16-bit products and
// its results saturate, where the scalar kernels go pixel by pixel in 32 bits: the two share their constants only.
#ifndef QELJ_JPEG_SAMPLE_MCU_H
#define QELJ_JPEG_SAMPLE_MCU_H

#include "frame/arith.h"
#include "frame/lanes.h"
#include "jpeg/sample/pixels.h"

namespace qelj::jpeg::mcu {

using simd::I16;
using simd::I32;
using simd::U16;
using simd::U8;

constexpr int kOctets = simd::kBytes / 16;
static_assert(kOctets <= 2);

// --- geometry ----------------------------------------------------------------------------------------------

// One chroma sample serves Across x Down pixels.
template <int Across, int Down>
struct Sampling {
  static constexpr int kAcross = Across, kDown = Down, kLog2n = Across * Down / 2;  // n = Across * Down
  static constexpr int kWidth = 8 * Across, kHeight = 8 * Down;
  // Where pixel (x, y) has its sample in the luma blocks (and K blocks), which follow one another in raster order.
  static constexpr int luma(int x, int y) { return (y / 8 * Across + x / 8) * 64 + y % 8 * 8 + x % 8; }
};
using Mcu444 = Sampling<1, 1>;
using Mcu422 = Sampling<2, 1>;
using Mcu411 = Sampling<2, 2>;

// Planes of an MCU, for the members whose arithmetic depends on an address.
constexpr unsigned kNoPlane = 0, kLuma = 1, kLumaAndK = 1 | 8, kThreePlanes = 7, kFourPlanes = 15;

// Whether one of the chosen planes does not start on a 16-byte boundary.
template <unsigned Planes, class Sample>
inline bool misaligned(Sample* const* planes) {
  uintptr_t bits = 0;
  simd::unroll<4>([&](auto i) {
    if constexpr (Planes >> i & 1) bits |= reinterpret_cast<uintptr_t>(planes[i]);
  });
  return bits % 16 != 0;
}

// --- octets in memory --------------------------------------------------------------------------------------

// The 16 bytes at p, and at p + apart where vectors have two blocks.
template <class V = U8>
inline V loadBlocks(const uint8_t* p, ptrdiff_t apart) {
  using Octet = simd::Vec<simd::Lane<V>, 16>;
  if constexpr (kOctets == 1) return load<V>(p);
  else return simd::join(load<Octet>(p), load<Octet>(p + apart));
}
template <class V>
inline void storeBlocks(uint8_t* p, ptrdiff_t apart, V v) {
  if constexpr (kOctets == 1) store(p, v);
  else store(p, simd::lower(v)), store(p + apart, simd::upper(v));
}

// The octets of block row `y` and, `Down` picture rows further, of the next row of the vector.
template <int Down>
inline I16 loadOctets(const int16_t* block) {
  if constexpr (Down == 1) return load<I16>(block);
  else return loadBlocks<I16>(reinterpret_cast<const uint8_t*>(block), Down * 16);
}
template <int Down>
inline void storeOctets(int16_t* block, I16 v) {
  if constexpr (Down == 1) store(block, v);
  else storeBlocks(reinterpret_cast<uint8_t*>(block), Down * 16, v);
}

// --- pixel formats -----------------------------------------------------------------------------------------

// One pixel: its channels in the order of the colour model (R, G, B or Y, Cb, Cr), then K.
struct Pixel {
  int32_t c[4];
};

// The pixels of a vector's octets as 32-bit lanes, each a pair of 16-bit samples: channels 0 and 1, channels 2 and 3.
struct Pairs {
  I16 c01, c23;
};
struct Octets {
  Pairs low, high;  // the first four pixels of every octet, the last four
};

// Pixels of bytes. Layout tells where channel c of pixel x lies; everything else follows.
template <class Layout>
struct BytePixels {
  using Sample = uint8_t;
  static constexpr int kPixelBytes = Layout::kPixelBytes, kChannels = Layout::kChannels;
  static constexpr bool kComplement = Layout::kComplement;

  static Pixel get(const uint8_t* line, int x) {
    Pixel p{};
    for (int c = 0; c < kChannels; ++c) p.c[c] = line[Layout::at(x, c)] ^ (kComplement && c < 3 ? 0xFF : 0);
    return p;
  }
  static void put(uint8_t* line, int x, const Pixel& p) {
    for (int c = 0; c < kChannels; ++c)
      line[Layout::at(x, c)] = uint8_t(clampU8(p.c[c]) ^ (kComplement && c < 3 ? 0xFF : 0));
  }

  // Octets lie in two 16-byte parts, the second of which ends where the octet ends.
  static constexpr int kSecondPart = 8 * kPixelBytes - 16;

  static Octets load(const uint8_t* p, ptrdiff_t apart) {
    const auto half = [&](int which) {
      const U8 bytes = loadBlocks(p + which * kSecondPart, apart);
      Pairs v{as<int16_t>(simd::shuffleBytes(bytes, simd::blockPattern(kShuffles.split[which][0]))),
              as<int16_t>(simd::shuffleBytes(bytes, simd::blockPattern(kShuffles.split[which][1])))};
      if constexpr (kComplement) v.c01 ^= int16_t(0xFF), v.c23 ^= simd::pairs(0xFF, 0);
      return v;
    };
    return {half(0), half(1)};
  }
  // Clamps and stores the vector's octets, given by channels.
  static void store(uint8_t* p, ptrdiff_t apart, const I16 (&c)[4]) {
    U8 c01 = simd::packU8(c[0], c[1]), c23 = simd::packU8(c[2], c[kChannels == 4 ? 3 : 2]);
    if constexpr (kComplement) c01 = ~c01, c23 ^= simd::blockPattern(kComplementLow);
    for (int part = 0; part < (kSecondPart ? 2 : 1); ++part)
      storeBlocks(p + part * kSecondPart, apart,
                  simd::shuffleBytes(c01, simd::blockPattern(kShuffles.merge[part][0])) |
                      simd::shuffleBytes(c23, simd::blockPattern(kShuffles.merge[part][1])));
  }

 private:
  struct Shuffles {
    uint8_t split[2][2][16];  // [half][pair]: which byte of the part each byte of a pair of samples is
    uint8_t merge[2][2][16];  // [part][pair]: which byte of two packed channels each byte of the part is
  };
  static constexpr Shuffles makeShuffles() {
    Shuffles s{};
    for (int part = 0; part < 2; ++part)
      for (int pair = 0; pair < 2; ++pair)
        for (int i = 0; i < 16; ++i) {
          s.split[part][pair][i] = s.merge[part][pair][i] = 0x80;
          const int channel = 2 * pair + i % 4 / 2;
          if (i % 2 == 0 && channel < kChannels)
            s.split[part][pair][i] = uint8_t(Layout::at(4 * part + i / 4, channel) - part * kSecondPart);
          for (int k = 0; k < 16; ++k)
            if (2 * pair + k / 8 < kChannels && Layout::at(k % 8, 2 * pair + k / 8) == i + part * kSecondPart)
              s.merge[part][pair][i] = uint8_t(k);
        }
    return s;
  }
  static constexpr Shuffles kShuffles = makeShuffles();
  static constexpr uint8_t kComplementLow[16] = {255, 255, 255, 255, 255, 255, 255, 255};
};

struct RgbLayout {
  static constexpr int kPixelBytes = 3, kChannels = 3;
  static constexpr bool kComplement = false;
  static constexpr int at(int x, int c) { return 3 * x + c; }
};
struct BgrLayout : RgbLayout {
  static constexpr int at(int x, int c) { return 3 * x + 2 - c; }
};
// C, M, Y stand for R, G, B as their complements; K stands for itself.
struct CmykLayout {
  static constexpr int kPixelBytes = 4, kChannels = 4;
  static constexpr bool kComplement = true;
  static constexpr int at(int x, int c) { return 4 * x + c; }
};
// Packed 4:2:2, Y0 Cb Y1 Cr: both pixels of a pair have the pair's chroma.
struct YuyvLayout {
  static constexpr int kPixelBytes = 2, kChannels = 3;
  static constexpr bool kComplement = false;
  static constexpr int at(int x, int c) { return x / 2 * 4 + (c == 0 ? x % 2 * 2 : 2 * c - 1); }
};
using RgbPixels = BytePixels<RgbLayout>;
using YCbCrPixels = BytePixels<RgbLayout>;
using BgrPixels = BytePixels<BgrLayout>;
using CmykPixels = BytePixels<CmykLayout>;
using YuyvPixels = BytePixels<YuyvLayout>;

// 16-bit pixels with blue in the low bits: fields widen with zero low bits, and bytes lose their low bits.
template <int GreenBits>
struct PackedPixels {
  using Sample = uint16_t;
  using Source = colour::PackedSource<colour::BgrOrder, GreenBits>;
  using Sink = colour::PackedSink<colour::BgrOrder, GreenBits>;
  static constexpr int kPixelBytes = 2, kChannels = 3;

  static Pixel get(const uint8_t* line, int x) {
    const auto p = Source::template unpack<int32_t>(qelj::load<uint16_t>(line + 2 * x));
    return {{p.r, p.g, p.b, 0}};
  }
  static void put(uint8_t* line, int x, const Pixel& p) {
    const uint32_t r = clampU8(p.c[0]), g = clampU8(p.c[1]), b = clampU8(p.c[2]);
    qelj::store(line + 2 * x, uint16_t(Sink::pack(r, g, b)));
  }

  static Octets load(const uint8_t* p, ptrdiff_t apart) {
    const auto [r, g, b] = Source::unpack(loadBlocks<U16>(p, apart));
    const auto low = [](U16 a, U16 c) { return as<int16_t>(simd::unpackLow(a, c)); };
    const auto high = [](U16 a, U16 c) { return as<int16_t>(simd::unpackHigh(a, c)); };
    return {{low(r, g), low(b, U16{})}, {high(r, g), high(b, U16{})}};
  }
  static void store(uint8_t* p, ptrdiff_t apart, const I16 (&c)[4]) {
    const auto byte = [](I16 v) { return as<uint16_t>(min(max(v, I16{}), all<I16>(255))); };
    storeBlocks(p, apart, Sink::pack(byte(c[0]), byte(c[1]), byte(c[2])));
  }
};
using Bgr555Pixels = PackedPixels<5>;
using Bgr565Pixels = PackedPixels<6>;

}  // namespace qelj::jpeg::mcu

#endif
