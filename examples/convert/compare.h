// How far two pictures are apart.
#ifndef QELCONV_COMPARE_H
#define QELCONV_COMPARE_H

#include "image.h"

namespace qelconv {

struct Difference {
  double psnr = 0;  // dB over all samples; infinite for equal pictures
  double ssim = 0;  // structural similarity: the mean of all channels' windows of 8x8 samples, every fourth one
  uint32_t largest = 0;
};
// `b` in the colour and depth of `a`; throws where they are of another size.
Difference compare(const Image& a, const Image& b);

}  // namespace qelconv

#endif
