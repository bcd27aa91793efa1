// The reversible 5/3 wavelet by rows, by columns and by single steps. 16-bit sums wrap at 16 bits, which is exact for
// data whose sums of two neighbours fit.
#include "frame/fronts.h"
#include "jpeg2000/transform/filters53.h"
#include "jpeg2000/transform/region.h"

namespace qelj {

using namespace jpeg2000::lifting;

QelStatus qeliWTFwdRow_B53_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dstLow, int32_t dstLowStep,
                                          int16_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<Forward53<int16_t>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep}, size, phase);
}
QelStatus qeliWTInvRow_B53_JPEG2K_16s_C1R(const int16_t* srcLow, int32_t srcLowStep, const int16_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int16_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<Inverse53<int16_t>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdCol_B53_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dstLow, int32_t dstLowStep,
                                          int16_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardColumns<Forward53<int16_t>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep}, size, phase);
}
QelStatus qeliWTInvCol_B53_JPEG2K_16s_C1R(const int16_t* srcLow, int32_t srcLowStep, const int16_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int16_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseColumns<Inverse53<int16_t>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdColLift_B53_JPEG2K_16s_C1(const int16_t* srcEven, const int16_t* srcOdd, const int16_t* srcEvenNext,
                                             int16_t* dstLow, const int16_t* srcHighPrev, int16_t* dstHigh,
                                             int32_t width) {
  return liftRows<Forward53<int16_t>>({srcEvenNext, srcOdd, srcEven, srcHighPrev}, {nullptr, dstHigh, dstLow, nullptr},
                                      width);
}
QelStatus qeliWTInvColLift_B53_JPEG2K_16s_C1(const int16_t* srcLow, const int16_t* srcHighPrev, const int16_t* srcHigh,
                                             const int16_t* srcEvenPrev, int16_t* dstOdd, int16_t* dstEven,
                                             int32_t width) {
  return liftRows<Inverse53<int16_t>>({srcHigh, srcLow, srcHighPrev, srcEvenPrev}, {nullptr, dstEven, dstOdd, nullptr},
                                      width);
}

QelStatus qeliWTFwdRow_B53_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, int32_t* dstLow, int32_t dstLowStep,
                                          int32_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<Forward53<int32_t>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep}, size, phase);
}
QelStatus qeliWTInvRow_B53_JPEG2K_32s_C1R(const int32_t* srcLow, int32_t srcLowStep, const int32_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int32_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<Inverse53<int32_t>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdCol_B53_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, int32_t* dstLow, int32_t dstLowStep,
                                          int32_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardColumns<Forward53<int32_t>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep}, size, phase);
}
QelStatus qeliWTInvCol_B53_JPEG2K_32s_C1R(const int32_t* srcLow, int32_t srcLowStep, const int32_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int32_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseColumns<Inverse53<int32_t>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst, dstStep, phase);
}
QelStatus qeliWTFwdColLift_B53_JPEG2K_32s_C1(const int32_t* srcEven, const int32_t* srcOdd, const int32_t* srcEvenNext,
                                             int32_t* dstLow, const int32_t* srcHighPrev, int32_t* dstHigh,
                                             int32_t width) {
  return liftRows<Forward53<int32_t>>({srcEvenNext, srcOdd, srcEven, srcHighPrev}, {nullptr, dstHigh, dstLow, nullptr},
                                      width);
}
QelStatus qeliWTInvColLift_B53_JPEG2K_32s_C1(const int32_t* srcLow, const int32_t* srcHighPrev, const int32_t* srcHigh,
                                             const int32_t* srcEvenPrev, int32_t* dstOdd, int32_t* dstEven,
                                             int32_t width) {
  return liftRows<Inverse53<int32_t>>({srcHigh, srcLow, srcHighPrev, srcEvenPrev}, {nullptr, dstEven, dstOdd, nullptr},
                                      width);
}

}  // namespace qelj
