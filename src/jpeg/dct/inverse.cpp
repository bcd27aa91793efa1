// The 8-bit inverse DCT with dequantisation: the functions of the whole block. Kernels: inverse.h.
#include "jpeg/dct/inverse.h"

#include "frame/check.h"
#include "frame/fronts.h"

namespace qelj {
namespace {

using namespace jpeg::dct;

template <class Destination>
QELJ_INLINE void ownInverse(const int16_t* src, const uint16_t* table, Destination destination) {
  if constexpr (simd::kEnabled) {
    const auto rows = [&](int i) {
      return ownInverseRows<8>(ownDequantiseRows(src, table, i * kRows), kInverseWeights[size_t(i)]);
    };
    if constexpr (kRows == 2) {
      using S = Saturating<WideRows>;
      destination.rows(ownInverseColumns(S{rows(0)}, S{rows(1)}, S{rows(2)}, S{rows(3)}));
    } else {
      Saturating<BlockRow> y[8], samples[8];
      simd::unroll<8>([&](auto k) { splitRows(inOrder(rows(k)), y + k); });
      ownInverseColumns(samples, y[0], y[1], y[2], y[3], y[4], y[5], y[6], y[7]);
      destination.rows(samples);
    }
  } else {
    int16_t coefficients[8][8];
    for (int i = 0; i < 64; ++i) coefficients[i / 8][i % 8] = ownDequantise(src, table, i);
    ownInverseScalar(coefficients, destination);
  }
}

}  // namespace

QelStatus qeliDCTQuantInv8x8_JPEG_16s_C1(const int16_t* src, int16_t* dst, const uint16_t* table) {
  if (auto s = nonNull(src, dst, table); s) return s;
  ownInverse(src, table, CentredOut{dst});
  return qelStatusOk;
}

QelStatus qeliDCTQuantInv8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table) {
  return qeliDCTQuantInv8x8_JPEG_16s_C1(srcDst, srcDst, table);
}

QelStatus qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R(const int16_t* src, uint8_t* dst, int32_t dstStep,
                                              const uint16_t* table) {
  if (auto s = check(nonNull(src, dst), step(dstStep), nonNull(table)); s) return s;
  ownInverse(src, table, LevelShiftedOut{dst, dstStep});
  return qelStatusOk;
}

}  // namespace qelj
