#include "qelcore.h"

#include <algorithm>
#include <atomic>

#include "machine.h"

#if defined(__x86_64__) || defined(__i386__)
#  include <cpuid.h>
#endif

namespace qelcore {
namespace {

constexpr int32_t kUnknown = -7, kNullPointer = -8;

uint64_t readFeatures() {
  uint64_t features = 0;
#if defined(__x86_64__) || defined(__i386__)
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
  if (d & bit_SSE2) features |= qelCpuSSE2;
  if (c & bit_SSSE3) features |= qelCpuSSSE3;
  if (c & bit_SSE4_1) features |= qelCpuSSE41;
  if (c & bit_SSE4_2) features |= qelCpuSSE42;
  if (c & bit_AVX) features |= qelCpuAVX;
  if (!(c & bit_OSXSAVE)) return features;
  unsigned xcr0 = 0, high = 0;
  __asm__("xgetbv" : "=a"(xcr0), "=d"(high) : "c"(0));
  const bool ymm = (xcr0 & 0x06) == 0x06, zmm = (xcr0 & 0xE6) == 0xE6;
  if (!ymm) return features;
  if (c & bit_AVX) features |= qelCpuAVXEnabled;
  if (c & bit_FMA) features |= qelCpuFMA;
  if (__get_cpuid_count(7, 0, &a, &b, &c, &d)) {
    if (b & bit_AVX2) features |= qelCpuAVX2;
    if (zmm && (b & bit_AVX512BW)) features |= qelCpuAVX512BW;
  }
#endif
  return features;
}

// --- What is answered -------------------------------------------------------------------------------------

// Finished answers; 0 while nothing has been read. Each is a fact of its own, so that no order is needed
// between them, and threads that come first at the same time read the same.
constinit std::atomic<int32_t> threadCount{0};
constinit std::atomic<int32_t> cacheBytes{0};  // or kUnknown
constinit std::atomic<uint64_t> features{0};   // with kRead, for a processor may have none
constexpr uint64_t kRead = uint64_t(1) << 63;

// The answer, read now if nobody has yet; the first one to be kept stays. Reading is out of the way of every call that
// finds an answer.
template <class Value>
[[gnu::noinline, gnu::cold]] Value readAndKeep(std::atomic<Value>& answer, Value (*read)()) {
  Value value = 0;
  const Value now = read();
  return answer.compare_exchange_strong(value, now, std::memory_order_relaxed) ? now : value;
}
template <class Value>
Value kept(std::atomic<Value>& answer, std::type_identity_t<Value> (*read)()) {
  const Value value = answer.load(std::memory_order_relaxed);
  return value ? value : readAndKeep(answer, read);
}

int32_t keptThreadCount() { return kept(threadCount, readThreadCount); }
int32_t keptCacheSize() {
  return kept(cacheBytes, [] {
    const int32_t size = readCacheSize();
    return size ? size : kUnknown;
  });
}
uint64_t keptFeatures() {
  return kept(features, [] { return readFeatures() | kRead; });
}

// What the calling thread has asked for; 0: nothing. The C library of GNU would allocate a late-loaded library's
// variable in a thread's first use of it; in the initial-exec model it stands in memory that each thread has.
#ifdef __GLIBC__
__attribute__((tls_model("initial-exec")))
#endif
constinit thread_local int32_t threadSetting = 0;

// Of the parent's threads only the caller of fork() lives on in the child, and a team of GNU's OpenMP runtime
// waits for the others for ever.
void stayOnOneThread() {
  threadSetting = 0;
  threadCount.store(1, std::memory_order_relaxed);
}

// As early as a constructor may run, for the others of a program that this library is linked into. The thread count is
// read again if it has been: who asks in front of the C library's own constructor finds no environment.
__attribute__((constructor(101))) void load() {
  threadCount.store(readThreadCount(), std::memory_order_relaxed);
  keptCacheSize();
  keptFeatures();
  inEveryChild(stayOnOneThread);
}

}  // namespace
}  // namespace qelcore

using namespace qelcore;

extern "C" {

void* qelMalloc(int32_t bytes) { return bytes < 1 ? nullptr : allocate(size_t(bytes)); }

void qelFree(void* block) { release(block); }

int32_t qelSetNumThreads(int32_t threads) {
  const int32_t before = threadSetting;
  threadSetting = std::clamp(threads, 0, kMostThreads);
  return before;
}

int32_t ownGetNumThreads() { return threadSetting ? threadSetting : keptThreadCount(); }

int32_t qelGetMaxCacheSizeB(int32_t* bytes) {
  if (!bytes) return kNullPointer;
  const int32_t size = keptCacheSize();
  *bytes = std::max(size, 0);
  return std::min(size, 0);
}

uint64_t qelGetEnabledCpuFeatures() { return keptFeatures() & ~kRead; }

}  // extern "C"
