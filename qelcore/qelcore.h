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

/* ---- The image at work: for programs; libqelj takes neither of these two ----
 *
 * An image of libqelj is compiled for one generation of processors. It loads, and qeljGetLibVersion() works, on any of
 * the family; its other functions may use instructions that an older processor does not have. A program that may
 * meet one asks first:
 *
 *   if (!qelCanRunImage(qelGetImageName(qeljGetLibVersion()))) ...
 */

/* The name of the image that lies at `address`, such as the record of its qeljGetLibVersion(): what QELJ_CPU was when
 * it was built, "x86-64-v2", "x86-64-v3", "x86-64-v4" or "portable". Null where no image lies. The text is the
 * image's own. Takes the dynamic loader's lock. */
QELCORE_API const char* qelGetImageName(const void* address);

/* 0 if the processor or the operating system lacks something that an image of this name may use, otherwise 1. Names
 * other than those of the x86-64 levels, and null, count as an image that can run. */
QELCORE_API int32_t qelCanRunImage(const char* name);

#ifdef __cplusplus
}
#endif
#endif
