// Scalar arithmetic that C++ leaves undefined or implementation-defined, made exact: saturation, wrap-around,
// unaligned access, row addresses. A build that would not do float operations one by one, in single precision and in
// the order that is written, ends here.
#ifndef QELJ_FRAME_ARITH_H
#define QELJ_FRAME_ARITH_H

#include <cfloat>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__) || \
    defined(__NO_SIGNED_ZEROS__) || __FINITE_MATH_ONLY__
#  error "qelj keeps the order of its float operations: leave -ffast-math and its parts away"
#endif
#if FLT_EVAL_METHOD != 0
#  error "qelj rounds every float operation to single precision: use instructions that do (-mfpmath=sse)"
#endif

// For the pieces of a kernel that pass vectors by value: a call would send every one of them through memory.
#define QELJ_INLINE __attribute__((always_inline)) inline
#define QELJ_INLINE_LAMBDA __attribute__((always_inline))

namespace qelj {

// The same bits as another type: std::bit_cast, which the C++ library of Clang 13 and before does not have.
template <class T, class From>
constexpr T bitCast(const From& x) {
  return __builtin_bit_cast(T, x);
}

// Unaligned, aliasing-safe access. Compiles to one move.
template <class T>
inline T load(const void* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}
template <class T>
inline void store(void* p, T value) {
  std::memcpy(p, &value, sizeof value);
}

// Row `y` of an image whose rows are `step` bytes apart. A pointer-width product: steps near 2^31 are legal.
template <class T>
inline T* row(T* base, ptrdiff_t step, ptrdiff_t y) {
  using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + step * y);
}

// Element `i` of a sample array that may lie at any address: its place, its value, and a new value for it.
template <class T>
inline T* offset(T* base, ptrdiff_t i) {
  return row(base, sizeof(T), i);
}
template <class T>
inline T at(const T* base, ptrdiff_t i) {
  return load<T>(offset(base, i));
}
template <class T>
inline void put(T* base, ptrdiff_t i, std::type_identity_t<T> value) {
  store(offset(base, i), value);
}

// Saturation of any integer to the range of To.
template <class To, class From>
constexpr To saturate(From value) {
  static_assert(std::is_integral_v<To> && std::is_integral_v<From>);
  if (std::cmp_less(value, std::numeric_limits<To>::min())) return std::numeric_limits<To>::min();
  if (std::cmp_greater(value, std::numeric_limits<To>::max())) return std::numeric_limits<To>::max();
  return To(value);
}
constexpr uint8_t clampU8(int32_t value) { return saturate<uint8_t>(value); }
constexpr int16_t clampI16(int32_t value) { return saturate<int16_t>(value); }

// Float to integer: to nearest with ties to even, and cut towards zero. What doesn't fit in 32 bits, and NaN, gives
// -2147483648.
constexpr bool fitsI32(float value) { return value >= -2147483648.0f && value < 2147483648.0f; }
inline int32_t roundToInt(float value) { return fitsI32(value) ? int32_t(std::nearbyintf(value)) : INT32_MIN; }
inline int32_t truncateToInt(float value) { return fitsI32(value) ? int32_t(value) : INT32_MIN; }

// Two's-complement wrap-around in the width of T (never narrower arithmetic that promotes to a signed int).
template <class T>
using Unsigned = std::make_unsigned_t<T>;
template <std::integral T>
constexpr T addWrap(T a, std::type_identity_t<T> b) {
  return T(Unsigned<T>(Unsigned<T>(a) + Unsigned<T>(b)));
}
template <std::integral T>
constexpr T subWrap(T a, std::type_identity_t<T> b) {
  return T(Unsigned<T>(Unsigned<T>(a) - Unsigned<T>(b)));
}
template <std::integral T>
constexpr T mulWrap(T a, std::type_identity_t<T> b) {
  // 64-bit factors: the product of two promoted uint16_t would be a signed int.
  return T(Unsigned<T>(uint64_t(Unsigned<T>(a)) * uint64_t(Unsigned<T>(b))));
}
template <std::integral T>
constexpr T shlWrap(T a, int bits) {
  return T(Unsigned<T>(uint64_t(Unsigned<T>(a)) << bits));
}
template <std::integral T>
constexpr T negWrap(T a) {
  return subWrap(T(0), a);
}

// Saturating sums and differences.
template <std::integral T>
constexpr T addSat(T a, std::type_identity_t<T> b) {
  return saturate<T>(int64_t(a) + int64_t(b));
}
template <std::integral T>
constexpr T subSat(T a, std::type_identity_t<T> b) {
  return saturate<T>(int64_t(a) - int64_t(b));
}

// Calls work(std::integral_constant<int, value>()) where the value is kFirst to kLast, and tells whether it is.
template <int kFirst, int kLast, class Work>
inline bool withConstant(int value, Work&& work) {
  const auto is = [&](auto constant) { return value == constant && (work(constant), true); };
  return [&]<int... i>(std::integer_sequence<int, i...>) {
    return (is(std::integral_constant<int, kFirst + i>()) || ...);
  }(std::make_integer_sequence<int, kLast - kFirst + 1>());
}

// x < limit ? a : b, for outcomes that no branch predictor can learn. Beside that expression, decoding baseline JPEG of
// the qualities 50, 85 and 95 (bench_huffman) gains 1, 2 and 0 % with GCC 12, which would branch in places, and 4, 6
// and 4 % with Clang 14.
inline int selectLess(int x, int limit, int a, int b) {
#if defined(__x86_64__) && !defined(QELJ_PORTABLE)
  asm("cmpl %2, %1\n\tcmovl %3, %0" : "+r"(b) : "r"(x), "ri"(limit), "r"(a) : "cc");
  return b;
#else
  return x < limit ? a : b;
#endif
}

}  // namespace qelj

#endif
