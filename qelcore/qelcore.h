/* qelcore: the five services that libqelj takes from outside.
 *
 * libqelj.so leaves these five names undefined; libqelcore.so supplies them. An application that wants its own
 * memory, thread count or cache figure defines functions of these names itself and links in front of
 * libqelcore, or instead of it. All five may be called from any thread at any time.
 */
#ifndef QELCORE_H
#define QELCORE_H

#include <stdint.h>

#if defined(__GNUC__)
#define QELCORE_API __attribute__((visibility("default")))
#else
#define QELCORE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Features of the processor, as bits of qelGetEnabledCpuFeatures(). */
enum {
  qelCpuSSE2 = 1,
  qelCpuSSSE3 = 2,
  qelCpuSSE41 = 4,
  qelCpuSSE42 = 8,
  qelCpuAVX = 16,         /* the processor has AVX */
  qelCpuAVXEnabled = 32,  /* the operating system keeps the 256-bit registers */
  qelCpuAVX2 = 64,
  qelCpuFMA = 128,
  qelCpuAVX512BW = 256
};

/* Returns a block of at least `bytes` bytes, aligned to 64, or null. `bytes` is at least 1. */
QELCORE_API void* qelMalloc(int32_t bytes);

/* Releases a block of qelMalloc; null is ignored. */
QELCORE_API void qelFree(void* block);

/* The number of threads that the library may use for one call: the processors of the calling process's
 * affinity mask, or the first number of OMP_NUM_THREADS when that is set to one of at least 1. */
QELCORE_API int32_t ownGetNumThreads(void);

/* Stores the size in bytes of the processor's largest cache. Returns 0, or a negative status (and stores 0)
 * when the size is not known. */
QELCORE_API int32_t qelGetMaxCacheSizeB(int32_t* bytes);

/* The features that the processor has and the operating system supports. 0 on processors without CPUID. */
QELCORE_API uint64_t qelGetEnabledCpuFeatures(void);

#ifdef __cplusplus
}
#endif
#endif
