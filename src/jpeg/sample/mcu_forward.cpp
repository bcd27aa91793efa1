// MCU conversion, forward: the pixels of one minimum coded unit to level-shifted blocks.
#include "frame/arith.h"
#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/lanes.h"
#include "jpeg/sample/colour_forms.h"
#include "jpeg/sample/mcu.h"

namespace qelj {
namespace {

using namespace jpeg::mcu;

// --- arithmetic --------------------------------------------------------------------------------------------

// One output sample from the sums rs, gs, bs of n = 1, 2 or 4 pixels:
//   (r rs + g gs + b bs + round * n) >> (shift + log2 n)
// Sums are made before the multiplication. The rounding term takes luma's level shift with it; chroma is
// centred on zero by its weights.
using jpeg::colour::kQ14, jpeg::colour::kQ16, jpeg::colour::Matrix, jpeg::colour::Weights;
constexpr Weights rounded(Weights w, int32_t round) { return {w.r, w.g, w.b, round}; }

// The 4:4:4 CMYK member rounds chroma with a little less than a half.
template <class Pixels, class Mcu>
constexpr int32_t kChromaRound = std::is_same_v<Pixels, CmykPixels> && std::is_same_v<Mcu, Mcu444> ? 8133 : 8192;
template <class Pixels, class Mcu>
constexpr Matrix kRounded = {14, rounded(kQ14.y, 8192 - (128 << 14)), rounded(kQ14.cb, kChromaRound<Pixels, Mcu>),
                             rounded(kQ14.cr, kChromaRound<Pixels, Mcu>)};

// The form of some members for blocks that are not 16-byte aligned.
constexpr Matrix kTruncated = {16, rounded(kQ16.y, -(128 << 16)), rounded(kQ16.cb, 0), rounded(kQ16.cr, 0)};

// No colour conversion: the level shift, and the truncated mean of chroma.
constexpr Matrix kSampled = {0, {1, 0, 0, -128}, {0, 1, 0, -128}, {0, 0, 1, -128}};

[[maybe_unused]] inline int16_t ownWeigh(const Weights& w, const Pixel& sums, int log2n, int shift) {
  const int32_t sum = w.r * sums.c[0] + w.g * sums.c[1] + w.b * sums.c[2] + (w.round << log2n);
  return int16_t(sum >> (shift + log2n));
}

template <Weights W>
I32 ownProducts(Pairs p) {
  constexpr auto fits = [](int32_t w) { return w == int16_t(w); };
  if constexpr (fits(W.r) && fits(W.g) && fits(W.b)) {
    if constexpr (W.b == 0) return simd::mulAddPairs(p.c01, simd::pairs(W.r, W.g));
    else if constexpr (W.r == 0 && W.g == 0) return simd::mulAddPairs(p.c23, simd::pairs(W.b, 0));
    else return simd::mulAddPairs(p.c01, simd::pairs(W.r, W.g)) + simd::mulAddPairs(p.c23, simd::pairs(W.b, 0));
  } else {
    const I32 c01 = as<int32_t>(p.c01), c23 = as<int32_t>(p.c23);
    return (c01 & 0xFFFF) * W.r + (c01 >> 16) * W.g + (c23 & 0xFFFF) * W.b;
  }
}
template <Weights W, int Log2n, int Shift>
I16 ownWeighOctets(const Octets& sums) {
  constexpr int32_t kRound = W.round * (1 << Log2n);
  return simd::packI16((ownProducts<W>(sums.low) + kRound) >> (Shift + Log2n),
                       (ownProducts<W>(sums.high) + kRound) >> (Shift + Log2n));
}

inline Pairs operator+(const Pairs& a, const Pairs& b) { return {a.c01 + b.c01, a.c23 + b.c23}; }

// The four sums of two neighbouring pixels in every octet.
inline Pairs ownSumsAcross(const Octets& o) {
  const auto sums = [](I16 low, I16 high) {
    return as<int16_t>(simd::addNeighbours(as<int32_t>(low), as<int32_t>(high)));
  };
  return {sums(o.low.c01, o.high.c01), sums(o.low.c23, o.high.c23)};
}

// --- one MCU -----------------------------------------------------------------------------------------------

template <class Pixels, class Mcu, const Matrix& M>
void ownForwardOctets(const uint8_t* src, ptrdiff_t srcStep, int16_t* const* dst) {
  constexpr int kAcross = Mcu::kAcross, kDown = Mcu::kDown;
  int16_t *const luma = dst[0], *const cb = dst[1], *const cr = dst[2];
  int16_t* const black = Pixels::kChannels == 4 ? dst[3] : nullptr;

  for (int r = 0; r < 8; r += kOctets) {  // rows r, r + 1 of the chroma blocks
    Octets sums[kAcross];
    simd::unroll<kAcross * kDown>([&](auto i) {
      constexpr int h = i / kDown, v = i % kDown, x = 8 * h;
      const int y = kDown * r + v;
      const Octets o = Pixels::load(row(src, srcStep, y) + x * Pixels::kPixelBytes, kDown * srcStep);
      storeOctets<kDown>(offset(luma, Mcu::luma(x, y)), ownWeighOctets<M.y, 0, M.shift>(o));
      if constexpr (Pixels::kChannels == 4) {
        const I16 k = simd::packI16(as<int32_t>(o.low.c23) >> 16, as<int32_t>(o.high.c23) >> 16);
        storeOctets<kDown>(offset(black, Mcu::luma(x, y)), k - int16_t(128));
      }
      sums[h] = v == 0 ? o : Octets{sums[h].low + o.low, sums[h].high + o.high};
    });
    if constexpr (kAcross == 2) sums[0] = {ownSumsAcross(sums[0]), ownSumsAcross(sums[1])};
    storeOctets<1>(offset(cb, 8 * r), ownWeighOctets<M.cb, Mcu::kLog2n, M.shift>(sums[0]));
    storeOctets<1>(offset(cr, 8 * r), ownWeighOctets<M.cr, Mcu::kLog2n, M.shift>(sums[0]));
  }
}

template <class Pixels, class Mcu, const Matrix& M>
void ownForwardPixels(const uint8_t* src, ptrdiff_t srcStep, int16_t* const* dst) {
  for (int r = 0; r < 8; ++r)
    for (int s = 0; s < 8; ++s) {
      Pixel sums{};
      for (int y = Mcu::kDown * r; y < Mcu::kDown * (r + 1); ++y)
        for (int x = Mcu::kAcross * s; x < Mcu::kAcross * (s + 1); ++x) {
          const Pixel p = Pixels::get(row(src, srcStep, y), x);
          put(dst[0], Mcu::luma(x, y), ownWeigh(M.y, p, 0, M.shift));
          if constexpr (Pixels::kChannels == 4) put(dst[3], Mcu::luma(x, y), int16_t(p.c[3] - 128));
          for (int c = 0; c < 3; ++c) sums.c[c] += p.c[c];
        }
      put(dst[1], 8 * r + s, ownWeigh(M.cb, sums, Mcu::kLog2n, M.shift));
      put(dst[2], 8 * r + s, ownWeigh(M.cr, sums, Mcu::kLog2n, M.shift));
    }
}

template <class Pixels, class Mcu, const Matrix& M>
void ownForward(const uint8_t* src, ptrdiff_t srcStep, int16_t* const* dst) {
  if constexpr (simd::kEnabled) ownForwardOctets<Pixels, Mcu, M>(src, srcStep, dst);
  else ownForwardPixels<Pixels, Mcu, M>(src, srcStep, dst);
}

// --- fronts ------------------------------------------------------------------------------------------------

// Aligned and Misaligned are the forms for the two cases of an address test on the planes Tested.
template <class Pixels, class Mcu, const Matrix& Aligned, const Matrix& Misaligned = Aligned,
          unsigned Tested = kNoPlane>
QelStatus forward(const typename Pixels::Sample* src, int32_t srcStep, int16_t* const* dst) {
  if (auto s = check(nonNull(src, dst), step(srcStep), planes(dst, Pixels::kChannels)); s) return s;
  const auto* bytes = reinterpret_cast<const uint8_t*>(src);
  if (Tested && misaligned<Tested>(dst)) ownForward<Pixels, Mcu, Misaligned>(bytes, srcStep, dst);
  else ownForward<Pixels, Mcu, Aligned>(bytes, srcStep, dst);
  return qelStatusOk;
}

template <class Pixels, class Mcu, unsigned Tested = kNoPlane>
QelStatus convert(const typename Pixels::Sample* src, int32_t srcStep, int16_t* const* dst) {
  return forward<Pixels, Mcu, kRounded<Pixels, Mcu>, kTruncated, Tested>(src, srcStep, dst);
}
template <class Pixels, class Mcu>
QelStatus sampleDown(const uint8_t* src, int32_t srcStep, int16_t* const* dst) {
  return forward<Pixels, Mcu, kSampled>(src, srcStep, dst);
}

}  // namespace

QelStatus qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<RgbPixels, Mcu444>(src, srcStep, dst);
}
QelStatus qeliRGBToYCbCr422LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<RgbPixels, Mcu422>(src, srcStep, dst);
}
QelStatus qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<RgbPixels, Mcu411, kLuma>(src, srcStep, dst);
}

QelStatus qeliBGRToYCbCr444LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<BgrPixels, Mcu444>(src, srcStep, dst);
}
QelStatus qeliBGRToYCbCr422LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<BgrPixels, Mcu422>(src, srcStep, dst);
}
QelStatus qeliBGRToYCbCr411LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<BgrPixels, Mcu411, kLuma>(src, srcStep, dst);
}

QelStatus qeliBGR555ToYCbCr444LS_MCU_16u16s_C3P3R(const uint16_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<Bgr555Pixels, Mcu444>(src, srcStep, dst);
}
QelStatus qeliBGR555ToYCbCr422LS_MCU_16u16s_C3P3R(const uint16_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<Bgr555Pixels, Mcu422>(src, srcStep, dst);
}
QelStatus qeliBGR555ToYCbCr411LS_MCU_16u16s_C3P3R(const uint16_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<Bgr555Pixels, Mcu411>(src, srcStep, dst);
}

QelStatus qeliBGR565ToYCbCr444LS_MCU_16u16s_C3P3R(const uint16_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<Bgr565Pixels, Mcu444>(src, srcStep, dst);
}
QelStatus qeliBGR565ToYCbCr422LS_MCU_16u16s_C3P3R(const uint16_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<Bgr565Pixels, Mcu422>(src, srcStep, dst);
}
QelStatus qeliBGR565ToYCbCr411LS_MCU_16u16s_C3P3R(const uint16_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return convert<Bgr565Pixels, Mcu411>(src, srcStep, dst);
}

QelStatus qeliCMYKToYCCK444LS_MCU_8u16s_C4P4R(const uint8_t* src, int32_t srcStep, int16_t* const dst[4]) {
  return convert<CmykPixels, Mcu444, kFourPlanes>(src, srcStep, dst);
}
QelStatus qeliCMYKToYCCK422LS_MCU_8u16s_C4P4R(const uint8_t* src, int32_t srcStep, int16_t* const dst[4]) {
  return convert<CmykPixels, Mcu422, kLumaAndK>(src, srcStep, dst);
}
QelStatus qeliCMYKToYCCK411LS_MCU_8u16s_C4P4R(const uint8_t* src, int32_t srcStep, int16_t* const dst[4]) {
  return convert<CmykPixels, Mcu411, kLumaAndK>(src, srcStep, dst);
}

QelStatus qeliSampleDown444LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return sampleDown<YCbCrPixels, Mcu444>(src, srcStep, dst);
}
QelStatus qeliSampleDown422LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return sampleDown<YCbCrPixels, Mcu422>(src, srcStep, dst);
}
QelStatus qeliSampleDown411LS_MCU_8u16s_C3P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return sampleDown<YCbCrPixels, Mcu411>(src, srcStep, dst);
}
// Both pixels of a pair bring the pair's chroma, so that its mean is the sample itself.
QelStatus qeliSplit422LS_MCU_8u16s_C2P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]) {
  return sampleDown<YuyvPixels, Mcu422>(src, srcStep, dst);
}

}  // namespace qelj
