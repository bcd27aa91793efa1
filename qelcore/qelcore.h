/* qelcore: what libqelj takes from outside, memory, the number of threads and facts of the machine, and the
 * say that a program has in the number of threads.
 *
 * libqelj.so leaves five names undefined: qelMalloc, qelFree, ownGetNumThreads, qelGetMaxCacheSizeB and
 * qelGetEnabledCpuFeatures. libqelcore.so supplies them. An application that wants its own memory, thread
 * count or cache figure defines functions of these names itself and links in front of libqelcore, or instead
 * of it; what is said below of the functions that it replaces then holds no more. (On Windows, where a library's
 * imports are tied to the file that they come from, it puts a libqelcore.dll of its own in place of this one.)
 *
 * What the machine says is read once, when libqelcore is loaded, or in the first call if that comes earlier
 * (from an earlier constructor). After that the functions for threads, cache and features neither allocate nor
 * lock nor enter the kernel, and may be called from a signal handler too. All functions may be called from any
 * thread at any time. libqelcore stays loaded until the process ends, whatever dlclose() is told.
 */
#ifndef QELCORE_H
#define QELCORE_H

#include <stdint.h>

#if defined(_WIN32) && defined(QELJ_STATIC)
#  define QELCORE_API
#elif defined(_WIN32) && defined(QELCORE_BUILDING)
#  define QELCORE_API __declspec(dllexport)
#elif defined(_WIN32)
#  define QELCORE_API __declspec(dllimport)
#elif defined(__GNUC__)
#  define QELCORE_API __attribute__((visibility("default")))
#else
#  define QELCORE_API
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
  qelCpuAVX = 16,        /* the processor has AVX */
  qelCpuAVXEnabled = 32, /* the operating system keeps the 256-bit registers */
  qelCpuAVX2 = 64,
  qelCpuFMA = 128,
  qelCpuAVX512BW = 256
};

/* Returns a block of at least `bytes` bytes, aligned to 64, or null. `bytes` is at least 1. */
QELCORE_API void* qelMalloc(int32_t bytes);

/* Releases a block of qelMalloc; null is ignored. */
QELCORE_API void qelFree(void* block);

/* The number of threads that the library may use for a call of the calling thread, 1 to 1024: the first of
 * these that there is.
 *
 *   1. What the thread has set by qelSetNumThreads.
 *   2. In a child of fork(): 1. OpenMP runtimes need not survive a fork (GNU's doesn't: a child's first team
 *      waits for ever if its parent had one). A child made without fork(), by a bare clone system call, is
 *      not noticed.
 *   3. The first number of OMP_NUM_THREADS, when that is a list that starts with a number from 1 up. It may
 *      exceed the number of processors; above 1024 it counts as 1024.
 *   4. The processors that the process may use: those of the affinity mask, but no more than the processor
 *      quotas of its control group and of all above it grant (cpu.max, or cpu.cfs_quota_us of the first
 *      version, below /sys/fs/cgroup), rounded up.
 *
 * 3 and 4 are what held at load: later changes of the environment, of the mask or of a quota go unseen. The
 * mask is that of the thread that loaded the library. A thread that binds itself to fewer processors calls
 * qelSetNumThreads. */
QELCORE_API int32_t ownGetNumThreads(void);

/* Sets the number of threads that the library may use for calls of the calling thread, other threads' calls
 * aside.
 *
 * From 1 up it holds, whatever the environment, the affinity mask and quotas say, and in a child of fork()
 * too, until the thread sets another or ends; above 1024 it counts as 1024. 0 restores what holds without a
 * setting, and so does a negative number. A new thread has no setting, also one that OpenMP started, and
 * neither has a child of fork(), whatever its parent had set: a child that sets more than 1 answers for the
 * OpenMP runtime's behaviour after a fork.
 *
 * Returns what had been set before, 0 for nothing, so that a caller can put it back:
 *
 *   const int32_t before = qelSetNumThreads(1);
 *   ... calls that stay on this thread ...
 *   qelSetNumThreads(before);
 *
 * The number of threads changes no byte of what the library gives. libqelj doesn't call this function. */
QELCORE_API int32_t qelSetNumThreads(int32_t threads);

/* Stores the size in bytes of the processor's largest cache. Returns 0, or a negative status (and stores 0)
 * when the size is not known, or -8 (and stores nothing) for a null pointer. */
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
 * it was built, "x86-64-v2", "x86-64-v3", "x86-64-v4", "armv8-a" or "portable". Null where no image lies. The text is the
 * image's own. Takes the dynamic loader's lock. */
QELCORE_API const char* qelGetImageName(const void* address);

/* 0 if the processor or the operating system lacks something that an image of this name may use, otherwise 1. Names
 * other than those of the x86-64 levels, and null, count as an image that can run. */
QELCORE_API int32_t qelCanRunImage(const char* name);

#ifdef __cplusplus
}
#endif
#endif
