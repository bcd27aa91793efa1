// MCU conversion, inverse: the level-shifted blocks of one minimum coded unit to pixels, with repeated chroma.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "jpeg/sample/mcu.h"

namespace qelj {
namespace {

using namespace jpeg::mcu;
using jpeg::colour::kChroma, jpeg::colour::kChromaQ16;

// --- arithmetic --------------------------------------------------------------------------------------------

// One output channel:
//   term  = saturate16((cb * Cb + cr * Cr + bias) >> shift), the sum wrapping at 32 bits
//   value = clamp(Y + term, Y - term, or the term alone, + the form's offset)
enum class Luma { kPlus, kMinus, kNone };
struct Channel {
  int32_t cb, cr, bias;
  Luma luma;
};
struct InverseForm {
  Channel channel[3];
  int shift, offset;
  bool clampBlack;  // K + 128 is clamped, or else reduced to its low eight bits
};

// Q14, rounded, the level shift within the term, which has 128 and a half. Where chroma is repeated, green is Y less
// its term, which rounds ties the other way.
constexpr int32_t kHalfQ14 = (128 << 14) + 8192;
template <class Mcu>
constexpr InverseForm kRounded = {
    {{0, kChroma<14>.rCr, kHalfQ14, Luma::kPlus},
     Mcu::kAcross == 1 ? Channel{kChroma<14>.gCb, kChroma<14>.gCr, kHalfQ14, Luma::kPlus}
                       : Channel{-kChroma<14>.gCb, -kChroma<14>.gCr, 16384 - kHalfQ14, Luma::kMinus},
     {kChroma<14>.bCb, 0, kHalfQ14, Luma::kPlus}},
    14,
    0,
    true};

// Q16, truncated: the form of some members for blocks that are not 16-byte aligned. Its terms always fit 16 bits.
constexpr InverseForm kTruncated = {{{0, kChromaQ16.rCr, 0, Luma::kPlus},
                                     {kChromaQ16.gCb, kChromaQ16.gCr, 0, Luma::kPlus},
                                     {kChromaQ16.bCb, 0, 0, Luma::kPlus}},
                                    16,
                                    128,
                                    false};

// No colour conversion.
constexpr InverseForm kSampled = {
    {{0, 0, 128, Luma::kPlus}, {1, 0, 128, Luma::kNone}, {0, 1, 128, Luma::kNone}}, 0, 0, true};

int32_t ownChannel(const Channel& c, const InverseForm& f, int16_t y, int16_t cb, int16_t cr) {
  const int32_t sum = addWrap(addWrap(mulWrap(c.cb, cb), mulWrap(c.cr, cr)), c.bias);
  const int32_t term = clampI16(sum >> f.shift);
  const int32_t value = c.luma == Luma::kPlus ? y + term : c.luma == Luma::kMinus ? y - term : term;
  return value + f.offset;
}

// The terms of the vector's octets from their interleaved chroma (Cb, Cr, Cb, Cr, ...).
template <Channel C, int Shift>
I16 ownTerms(I16 low, I16 high) {
  if constexpr (C.cb == 0 && C.cr == 0) return all<I16>(int16_t(C.bias >> Shift));
  const auto sums = [](I16 chroma) {
    I32 sum;
    if constexpr (C.cb == int16_t(C.cb) && C.cr == int16_t(C.cr)) {
      sum = simd::mulAddPairs(chroma, simd::pairs(C.cb, C.cr));
    } else {
      const I32 cb = shlWrap(as<int32_t>(chroma), 16) >> 16, cr = as<int32_t>(chroma) >> 16;
      sum = addWrap(mulWrap(cb, all<I32>(C.cb)), mulWrap(cr, all<I32>(C.cr)));
    }
    return addWrap(sum, all<I32>(C.bias)) >> Shift;
  };
  return simd::packI16(sums(low), sums(high));
}

// Adds the offset behind the luma: only then does a saturated sum lie on the same side of the range as the true one.
template <Channel C, int Offset>
I16 ownValues(I16 y, I16 term) {
  const I16 value = C.luma == Luma::kPlus ? addSat(y, term) : C.luma == Luma::kMinus ? subSat(y, term) : term;
  return Offset ? addSat(value, all<I16>(int16_t(Offset))) : value;
}

// --- one MCU -----------------------------------------------------------------------------------------------

template <class Pixels, class Mcu, const InverseForm& F>
void ownInverseOctets(const int16_t* const* src, uint8_t* dst, ptrdiff_t dstStep) {
  constexpr int kDown = Mcu::kDown;
  const int16_t *const luma = src[0], *const cb = src[1], *const cr = src[2];
  const int16_t* const black = Pixels::kChannels == 4 ? src[3] : nullptr;

  for (int r = 0; r < 8; r += kOctets) {  // rows r, r + 1 of the chroma blocks
    const I16 cbs = loadOctets<1>(offset(cb, 8 * r)), crs = loadOctets<1>(offset(cr, 8 * r));
    const I16 low = simd::unpackLow(cbs, crs), high = simd::unpackHigh(cbs, crs);
    const I16 terms[3] = {ownTerms<F.channel[0], F.shift>(low, high), ownTerms<F.channel[1], F.shift>(low, high),
                          ownTerms<F.channel[2], F.shift>(low, high)};
    simd::unroll<Mcu::kAcross>([&](auto h) {
      const auto repeated = [&](int c) {
        if constexpr (Mcu::kAcross == 1) return terms[c];
        else return h == 0 ? simd::unpackLow(terms[c], terms[c]) : simd::unpackHigh(terms[c], terms[c]);
      };
      const I16 t[3] = {repeated(0), repeated(1), repeated(2)};
      simd::unroll<kDown>([&](auto v) {
        const int x = 8 * h, y = kDown * r + v;
        const I16 ys = loadOctets<kDown>(offset(luma, Mcu::luma(x, y)));
        I16 c[4] = {ownValues<F.channel[0], F.offset>(ys, t[0]), ownValues<F.channel[1], F.offset>(ys, t[1]),
                    ownValues<F.channel[2], F.offset>(ys, t[2])};
        if constexpr (Pixels::kChannels == 4) {
          const I16 ks = loadOctets<kDown>(offset(black, Mcu::luma(x, y))), shift = all<I16>(128);
          c[3] = F.clampBlack ? addSat(ks, shift) : addWrap(ks, shift) & int16_t(0xFF);
        }
        Pixels::store(row(dst, dstStep, y) + x * Pixels::kPixelBytes, kDown * dstStep, c);
      });
    });
  }
}

// Out of line, so that its registers don't burden the call of the octets.
template <class Pixels, class Mcu, const InverseForm& F>
[[gnu::noinline]] void ownInversePixels(const int16_t* const* src, uint8_t* dst, ptrdiff_t dstStep) {
  for (int y = 0; y < Mcu::kHeight; ++y)
    for (int x = 0; x < Mcu::kWidth; ++x) {
      const int16_t luma = at(src[0], Mcu::luma(x, y));
      const int chroma = y / Mcu::kDown * 8 + x / Mcu::kAcross;
      const int16_t cb = at(src[1], chroma), cr = at(src[2], chroma);
      Pixel p{};
      for (int c = 0; c < 3; ++c) p.c[c] = ownChannel(F.channel[c], F, luma, cb, cr);
      if constexpr (Pixels::kChannels == 4) {
        p.c[3] = at(src[3], Mcu::luma(x, y)) + 128;
        if (!F.clampBlack) p.c[3] &= 0xFF;
      }
      Pixels::put(row(dst, dstStep, y), x, p);
    }
}

template <class Pixels, class Mcu, const InverseForm& F>
void ownInverse(const int16_t* const* src, uint8_t* dst, ptrdiff_t dstStep) {
  // Rows that overlap are written in order, top to bottom; octets are not.
  if (simd::kEnabled && dstStep >= Mcu::kWidth * Pixels::kPixelBytes)
    ownInverseOctets<Pixels, Mcu, F>(src, dst, dstStep);
  else ownInversePixels<Pixels, Mcu, F>(src, dst, dstStep);
}

// --- fronts ------------------------------------------------------------------------------------------------

// Aligned and Misaligned are the forms for the two cases of an address test on the planes Tested.
template <class Pixels, class Mcu, const InverseForm& Aligned, const InverseForm& Misaligned = Aligned,
          unsigned Tested = kNoPlane>
QelStatus inverse(const int16_t* const* src, typename Pixels::Sample* dst, int32_t dstStep) {
  if (auto s = check(nonNull(src, dst), planes(src, Pixels::kChannels), step(dstStep)); s) return s;
  auto* bytes = reinterpret_cast<uint8_t*>(dst);
  if (Tested && misaligned<Tested>(src)) ownInverse<Pixels, Mcu, Misaligned>(src, bytes, dstStep);
  else ownInverse<Pixels, Mcu, Aligned>(src, bytes, dstStep);
  return qelStatusOk;
}

template <class Pixels, class Mcu, unsigned Tested = kNoPlane>
QelStatus convert(const int16_t* const* src, typename Pixels::Sample* dst, int32_t dstStep) {
  return inverse<Pixels, Mcu, kRounded<Mcu>, kTruncated, Tested>(src, dst, dstStep);
}
template <class Pixels, class Mcu>
QelStatus sampleUp(const int16_t* const* src, uint8_t* dst, int32_t dstStep) {
  return inverse<Pixels, Mcu, kSampled>(src, dst, dstStep);
}

}  // namespace

QelStatus qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return convert<RgbPixels, Mcu444, kThreePlanes>(src, dst, dstStep);
}
QelStatus qeliYCbCr422ToRGBLS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return convert<RgbPixels, Mcu422, kThreePlanes>(src, dst, dstStep);
}
QelStatus qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return convert<RgbPixels, Mcu411, kThreePlanes>(src, dst, dstStep);
}

QelStatus qeliYCbCr444ToBGRLS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return convert<BgrPixels, Mcu444, kThreePlanes>(src, dst, dstStep);
}
QelStatus qeliYCbCr422ToBGRLS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return convert<BgrPixels, Mcu422, kThreePlanes>(src, dst, dstStep);
}
QelStatus qeliYCbCr411ToBGRLS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return convert<BgrPixels, Mcu411, kThreePlanes>(src, dst, dstStep);
}

QelStatus qeliYCbCr444ToBGR555LS_MCU_16s16u_P3C3R(const int16_t* const src[3], uint16_t* dst, int32_t dstStep) {
  return convert<Bgr555Pixels, Mcu444>(src, dst, dstStep);
}
QelStatus qeliYCbCr422ToBGR555LS_MCU_16s16u_P3C3R(const int16_t* const src[3], uint16_t* dst, int32_t dstStep) {
  return convert<Bgr555Pixels, Mcu422>(src, dst, dstStep);
}
QelStatus qeliYCbCr411ToBGR555LS_MCU_16s16u_P3C3R(const int16_t* const src[3], uint16_t* dst, int32_t dstStep) {
  return convert<Bgr555Pixels, Mcu411>(src, dst, dstStep);
}

QelStatus qeliYCbCr444ToBGR565LS_MCU_16s16u_P3C3R(const int16_t* const src[3], uint16_t* dst, int32_t dstStep) {
  return convert<Bgr565Pixels, Mcu444>(src, dst, dstStep);
}
QelStatus qeliYCbCr422ToBGR565LS_MCU_16s16u_P3C3R(const int16_t* const src[3], uint16_t* dst, int32_t dstStep) {
  return convert<Bgr565Pixels, Mcu422>(src, dst, dstStep);
}
QelStatus qeliYCbCr411ToBGR565LS_MCU_16s16u_P3C3R(const int16_t* const src[3], uint16_t* dst, int32_t dstStep) {
  return convert<Bgr565Pixels, Mcu411>(src, dst, dstStep);
}

QelStatus qeliYCCK444ToCMYKLS_MCU_16s8u_P4C4R(const int16_t* const src[4], uint8_t* dst, int32_t dstStep) {
  return convert<CmykPixels, Mcu444, kFourPlanes>(src, dst, dstStep);
}
QelStatus qeliYCCK422ToCMYKLS_MCU_16s8u_P4C4R(const int16_t* const src[4], uint8_t* dst, int32_t dstStep) {
  return convert<CmykPixels, Mcu422, kFourPlanes>(src, dst, dstStep);
}
QelStatus qeliYCCK411ToCMYKLS_MCU_16s8u_P4C4R(const int16_t* const src[4], uint8_t* dst, int32_t dstStep) {
  return convert<CmykPixels, Mcu411, kFourPlanes>(src, dst, dstStep);
}

QelStatus qeliSampleUp444LS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return sampleUp<YCbCrPixels, Mcu444>(src, dst, dstStep);
}
QelStatus qeliSampleUp422LS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return sampleUp<YCbCrPixels, Mcu422>(src, dst, dstStep);
}
QelStatus qeliSampleUp411LS_MCU_16s8u_P3C3R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return sampleUp<YCbCrPixels, Mcu411>(src, dst, dstStep);
}
QelStatus qeliJoin422LS_MCU_16s8u_P3C2R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep) {
  return sampleUp<YuyvPixels, Mcu422>(src, dst, dstStep);
}

}  // namespace qelj
