// The weights between RGB and YCbCr (ISO/IEC 10918-5, 7, and 15444-1, G.3, after ITU-R BT.601), with the digits that
// the standards print: kCbR is what R weighs in Cb. Conversions have them in fixed point, as q14(kCbR).
#ifndef QELJ_FRAME_YCBCR_WEIGHTS_H
#define QELJ_FRAME_YCBCR_WEIGHTS_H

#include "frame/fixed_point.h"

namespace qelj::ycbcr {

inline constexpr double kYR = 0.299, kYG = 0.587, kYB = 0.114;
inline constexpr double kCbR = -0.16875, kCbG = -0.33126, kCbB = 0.5;
inline constexpr double kCrR = 0.5, kCrG = -0.41869, kCrB = -0.08131;

// What Cb and Cr add to Y.
inline constexpr double kRCr = 1.402, kGCb = -0.34413, kGCr = -0.71414, kBCb = 1.772;

// Chroma as a difference from luma: Cb = kCbOfDifference (B - Y), Cr = kCrOfDifference (R - Y).
inline constexpr double kCbOfDifference = 0.5 / (1 - kYB), kCrOfDifference = 0.5 / (1 - kYR);

// As they are best known.
static_assert(q14(kYR) == 4899 && q14(kYG) == 9617 && q14(kYB) == 1868);
static_assert(q14(kCbR) == -2765 && q14(kCbG) == -5427 && q14(kCrG) == -6860 && q14(kCrB) == -1332);
static_assert(q14(kRCr) == 22970 && q14(kGCb) == -5638 && q14(kGCr) == -11700 && q14(kBCb) == 29032);
static_assert(q14(kCbOfDifference) == 9246 && q14(kCrOfDifference) == 11686);

}  // namespace qelj::ycbcr

#endif
