// The tests of the vectors for another image's processor; left out where this is none.
#include <unistd.h>

#include "frame/simd_test.cpp"
#include "qelcore.h"

namespace {

// In front of whatever else is compiled for that processor.
[[gnu::constructor(101)]] void guard() {
  if (!qelCanRunImage(QELJ_IMAGE)) _exit(77);
}

}  // namespace
