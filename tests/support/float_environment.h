// The floating-point environments that a caller may have set: what functions of integers give does not depend on them.
#ifndef QELJ_TESTS_FLOAT_ENVIRONMENT_H
#define QELJ_TESTS_FLOAT_ENVIRONMENT_H

#include <cfenv>
#include <cstdint>

#if defined(__SSE2__)
#  include <xmmintrin.h>
#endif

namespace qelj::test {

struct FloatEnvironment {
  int rounding;
  bool flushing;  // denormal numbers count as zero and become zero, on processors that can
};
// The first one is what a program starts with, and the only one that WebAssembly has, where there are no flags either.
inline constexpr FloatEnvironment kFloatEnvironments[] = {{FE_TONEAREST, false},
#if !defined(__EMSCRIPTEN__)
                                                          {FE_UPWARD, false},
                                                          {FE_DOWNWARD, false},
                                                          {FE_TOWARDZERO, false},
                                                          {FE_TONEAREST, true}
#endif
};

inline void setFlushing([[maybe_unused]] bool on) {
#if defined(__SSE2__)
  constexpr unsigned kBits = 0x8040;  // flush to zero, denormals are zero
  _mm_setcsr((_mm_getcsr() & ~kBits) | (on ? kBits : 0));
#elif defined(__aarch64__)
  constexpr uint64_t kBit = 1 << 24;
  uint64_t control = 0;
  asm volatile("mrs %0, fpcr" : "=r"(control));
  asm volatile("msr fpcr, %0" : : "r"((control & ~kBit) | (on ? kBit : 0)));
#endif
}

// Sets it on this thread, with no flag raised, until the end of the block.
class InFloatEnvironment {
 public:
  explicit InFloatEnvironment(const FloatEnvironment& e) : rounding_(e.rounding) {
    std::fegetenv(&before_);
    std::fesetround(e.rounding);
    setFlushing(e.flushing);
    std::feclearexcept(FE_ALL_EXCEPT);
  }
  ~InFloatEnvironment() {
    std::fesetenv(&before_);
    std::fesetround(FE_TONEAREST);  // of both units: MinGW's C library forgets one of them above
    setFlushing(false);
  }
  InFloatEnvironment(const InFloatEnvironment&) = delete;
  InFloatEnvironment& operator=(const InFloatEnvironment&) = delete;

  bool kept() const { return std::fegetround() == rounding_; }
  // Whether a flag says more than that a result was rounded.
#if defined(FE_INEXACT)
  bool raised() const { return std::fetestexcept(FE_ALL_EXCEPT & ~FE_INEXACT) != 0; }
#else
  bool raised() const { return false; }
#endif

 private:
  int rounding_;
  std::fenv_t before_;
};

}  // namespace qelj::test

#endif
