// The one place that chooses whose forms of the operations an image has.
//
//   kBytes     bytes of this image's natural vector
//   kWideBytes bytes of its widest one: of 64 in the image for AVX-512, else kBytes. A kernel takes it (as Wide<T>) where
//              that gains a fifth or more: short functions and those that shuffle much are as fast with kBytes
//   kEnabled   false in the image that runs every kernel in its scalar form; a kernel's vector loop starts with
//              `if constexpr (simd::kEnabled)`
//   kShuffles  whether byte shuffles and masks are instructions; where they are loops, a kernel that lives on them
//              does better in its scalar form
//   kMasks     whether loading and storing the first lanes of a vector, any number of them, are an instruction each
//   kBytePairs whether sums of products of pairs of bytes are an instruction; where they are several, other ways are as
//              good
//   kSplits    whether vectors wider than the processor's are halved in front of its forms; on x86-64 compilers lower the
//              definitions with fewer instructions
#ifndef QELJ_FRAME_SIMD_FAMILY_H
#define QELJ_FRAME_SIMD_FAMILY_H

#if defined(QELJ_PORTABLE)
#elif defined(__SSE4_1__)
#  define QELJ_SIMD_FORMS "frame/simd/x86.h"
#  ifdef __AVX2__
#    define QELJ_HAS_AVX2 1
#  endif
#  if defined(__AVX512BW__) && defined(__AVX512DQ__) && defined(__AVX512VL__)
#    define QELJ_HAS_AVX512 1
#  endif
#elif defined(__aarch64__) && defined(__ARM_NEON)
#  define QELJ_SIMD_FORMS "frame/simd/neon.h"
#elif defined(__wasm_simd128__)
#  define QELJ_SIMD_FORMS "frame/simd/wasm.h"
#endif

namespace qelj::simd {

#ifdef QELJ_SCALAR
inline constexpr bool kEnabled = false;
#else
inline constexpr bool kEnabled = true;
#endif
#ifdef QELJ_SIMD_FORMS
inline constexpr bool kShuffles = true;
#else
inline constexpr bool kShuffles = false;
#endif
#ifdef __SSE4_1__
inline constexpr bool kBytePairs = kShuffles, kSplits = false;
#else
inline constexpr bool kBytePairs = false, kSplits = true;
#endif
#ifdef QELJ_HAS_AVX2
inline constexpr int kBytes = 32;
#else
inline constexpr int kBytes = 16;
#endif
#ifdef QELJ_HAS_AVX512
inline constexpr int kWideBytes = 64;
inline constexpr bool kMasks = kEnabled;
#else
inline constexpr int kWideBytes = kBytes;
inline constexpr bool kMasks = false;
#endif

}  // namespace qelj::simd

#endif
