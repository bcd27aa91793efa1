// Rounding to nearest in kernels that compute in floats behind an integer interface, whatever the caller has set.
#ifndef QELJ_FRAME_ROUNDING_H
#define QELJ_FRAME_ROUNDING_H

#include <cfenv>

namespace qelj {

// To nearest, ties to even, from here to the end of the block, on this thread. It costs a few instructions where that
// is the mode anyway.
class RoundToNearest {
 public:
  RoundToNearest() {
    if (isSet()) return;
    caller_ = std::fegetround();
    std::fesetround(FE_TONEAREST);
  }
  ~RoundToNearest() {
    if (caller_ != FE_TONEAREST) std::fesetround(caller_);
  }
  RoundToNearest(const RoundToNearest&) = delete;
  RoundToNearest& operator=(const RoundToNearest&) = delete;

 private:
  // By a sum and a difference, of which each other mode rounds one otherwise: no call, and no processor's register.
  static bool isSet() {
    const volatile float memory = 1;  // the compiler must not know it
    const float one = memory;
    return one + 0x1p-30f == one && one - 0x1p-30f == one;
  }
  int caller_ = FE_TONEAREST;
};

// For templates of which some members compute in integers only.
struct AnyRounding {};

}  // namespace qelj

#endif
