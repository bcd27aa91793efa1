// The irreversible 9/7 wavelet by rows, by columns and by single steps.
#include "frame/fronts.h"
#include "jpeg2000/transform/filters97.h"
#include "jpeg2000/transform/region.h"

namespace qelj {

using namespace jpeg2000::lifting;

// --- single precision --------------------------------------------------------------------------------------

QelStatus qeliWTFwdRow_D97_JPEG2K_32f_C1R(const float* src, int32_t srcStep, float* dstLow, int32_t dstLowStep,
                                          float* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<Forward97Float, Direct97<DirectFloat>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep},
                                                            size, phase);
}
QelStatus qeliWTInvRow_D97_JPEG2K_32f_C1R(const float* srcLow, int32_t srcLowStep, const float* srcHigh,
                                          int32_t srcHighStep, QelSize size, float* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<Inverse97Float, Direct97<DirectFloat>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst,
                                                            dstStep, phase);
}
QelStatus qeliWTFwdCol_D97_JPEG2K_32f_C1R(const float* src, int32_t srcStep, float* dstLow, int32_t dstLowStep,
                                          float* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardColumns<Forward97Float, Direct97<DirectFloat>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep},
                                                               size, phase);
}
QelStatus qeliWTInvCol_D97_JPEG2K_32f_C1R(const float* srcLow, int32_t srcLowStep, const float* srcHigh,
                                          int32_t srcHighStep, QelSize size, float* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseColumns<Inverse97Float, Direct97<DirectFloat>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst,
                                                               dstStep, phase);
}
QelStatus qeliWTFwdColLift_D97_JPEG2K_32f_C1(const float* srcEven, const float* srcOdd, const float* srcEvenNext,
                                             float* srcDstLow, float* dstLowNext, float* srcDstHigh,
                                             float* srcDstHighNext, float* dstHighNext, int32_t width) {
  return liftRows<Forward97Float>({srcEvenNext, srcOdd, srcEven, srcDstHighNext, srcDstLow, srcDstHigh},
                                  {nullptr, dstHighNext, dstLowNext, srcDstHighNext, srcDstLow, srcDstHigh}, width);
}
QelStatus qeliWTInvColLift_D97_JPEG2K_32f_C1(const float* srcLow, const float* srcHighPrev, const float* srcHigh,
                                             const float* srcEvenDone, float* srcDstOdd, float* srcDstEven,
                                             float* dstOddNext, float* dstEvenNext, int32_t width) {
  return liftRows<Inverse97Float>({srcHigh, srcLow, srcHighPrev, srcDstEven, srcDstOdd, srcEvenDone},
                                  {nullptr, dstEvenNext, dstOddNext, srcDstEven, srcDstOdd, nullptr}, width);
}

// --- 16.16 fixed point -------------------------------------------------------------------------------------

QelStatus qeliWTFwdRow_D97_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, int32_t* dstLow, int32_t dstLowStep,
                                          int32_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<Forward97WideRow, Direct97<DirectWide>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep},
                                                             size, phase);
}
QelStatus qeliWTInvRow_D97_JPEG2K_32s_C1R(const int32_t* srcLow, int32_t srcLowStep, const int32_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int32_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<Inverse97Wide, Direct97<DirectWide>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst,
                                                          dstStep, phase);
}
QelStatus qeliWTFwdColLift_D97_JPEG2K_32s_C1(const int32_t* srcEven, const int32_t* srcOdd, const int32_t* srcEvenNext,
                                             int32_t* srcDstLow, int32_t* dstLowNext, int32_t* srcDstHigh,
                                             int32_t* srcDstHighNext, int32_t* dstHighNext, int32_t width) {
  return liftRows<Forward97Wide>({srcEvenNext, srcOdd, srcEven, srcDstHighNext, srcDstLow, srcDstHigh},
                                 {nullptr, dstHighNext, dstLowNext, srcDstHighNext, srcDstLow, srcDstHigh}, width);
}
QelStatus qeliWTInvColLift_D97_JPEG2K_32s_C1(const int32_t* srcLow, const int32_t* srcHighPrev, const int32_t* srcHigh,
                                             const int32_t* srcEvenDone, int32_t* srcDstOdd, int32_t* srcDstEven,
                                             int32_t* dstOddNext, int32_t* dstEvenNext, int32_t width) {
  return liftRows<Inverse97Wide>({srcHigh, srcLow, srcHighPrev, srcDstEven, srcDstOdd, srcEvenDone},
                                 {nullptr, dstEvenNext, dstOddNext, srcDstEven, srcDstOdd, nullptr}, width);
}

// --- 16-bit samples ----------------------------------------------------------------------------------------

QelStatus qeliWTFwdRow_D97_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dstLow, int32_t dstLowStep,
                                          int16_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase) {
  return forwardRows<Forward97HighRow, Direct97<DirectHigh>>(src, srcStep, {dstLow, dstLowStep, dstHigh, dstHighStep},
                                                             size, phase);
}
QelStatus qeliWTInvRow_D97_JPEG2K_16s_C1R(const int16_t* srcLow, int32_t srcLowStep, const int16_t* srcHigh,
                                          int32_t srcHighStep, QelSize size, int16_t* dst, int32_t dstStep,
                                          uint32_t phase) {
  return inverseRows<Inverse97HighRow, Direct97<DirectHigh>>({srcLow, srcLowStep, srcHigh, srcHighStep}, size, dst,
                                                             dstStep, phase);
}
QelStatus qeliWTFwdColLift_D97_JPEG2K_16s_C1(const int16_t* srcEven, const int16_t* srcOdd, const int16_t* srcEvenNext,
                                             int16_t* srcDstLow, int16_t* dstLowNext, int16_t* srcDstHigh,
                                             int16_t* srcDstHighNext, int16_t* dstHighNext, int32_t width) {
  return liftRows<Forward97High>({srcEvenNext, srcOdd, srcEven, srcDstHighNext, srcDstLow, srcDstHigh},
                                 {nullptr, dstHighNext, dstLowNext, srcDstHighNext, srcDstLow, srcDstHigh}, width);
}
QelStatus qeliWTInvColLift_D97_JPEG2K_16s_C1(const int16_t* srcLow, const int16_t* srcHighPrev, const int16_t* srcHigh,
                                             const int16_t* srcEvenDone, int16_t* srcDstOdd, int16_t* srcDstEven,
                                             int16_t* dstOddNext, int16_t* dstEvenNext, int32_t width) {
  return liftRows<Inverse97High>({srcHigh, srcLow, srcHighPrev, srcDstEven, srcDstOdd, srcEvenDone},
                                 {nullptr, dstEvenNext, dstOddNext, srcDstEven, srcDstOdd, nullptr}, width);
}

}  // namespace qelj
