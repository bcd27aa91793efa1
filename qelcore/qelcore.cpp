#include "qelcore.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "machine_texts.h"

#if defined(__x86_64__) || defined(__i386__)
#  include <cpuid.h>
#endif

namespace qelcore {
namespace {

constexpr int32_t kUnknown = -7, kNullPointer = -8;

// --- What is read once -------------------------------------------------------------------------------------

std::string_view readFile(const char* path, char* buffer, size_t size) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return {};
  size_t filled = 0;
  for (ssize_t bytes; filled < size && (bytes = read(file, buffer + filled, size - filled)) > 0;)
    filled += size_t(bytes);
  close(file);
  return {buffer, filled};
}

int32_t readThreadCount() {
  if (const char* list = std::getenv("OMP_NUM_THREADS"))
    if (const int32_t asked = threadsAsked(list)) return asked;
  cpu_set_t masks[8]{};  // room for the 8192 processors that a kernel knows at most
  const int allowed = sched_getaffinity(0, sizeof masks, masks) ? 1 : CPU_COUNT_S(sizeof masks, masks);
  return std::max(1, std::min(allowed, processorsOfQuotas(readFile)));
}

// The system's description of the first processor's caches. (sysconf counts every third-level cache of a
// processor in several parts as one, on some versions of the C library.)
int32_t readCacheSize() {
  char path[] = "/sys/devices/system/cpu/cpu0/cache/index0/size", text[32];
  long largest = 0;
  for (char& index = path[sizeof "/sys/devices/system/cpu/cpu0/cache/index" - 1]; index < '8'; ++index) {
    const std::string_view described = readFile(path, text, sizeof text);
    if (described.empty()) break;
    largest = std::max<long>(largest, cacheSize(described));
  }
#ifdef _SC_LEVEL3_CACHE_SIZE
  if (!largest)
    for (const int level : {_SC_LEVEL2_CACHE_SIZE, _SC_LEVEL3_CACHE_SIZE, _SC_LEVEL4_CACHE_SIZE})
      largest = std::max(largest, sysconf(level));
#endif
  return largest > 0 ? int32_t(std::min<long>(largest, INT_MAX)) : kUnknown;
}

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

// The answer, read now if nobody has yet; the first one to be kept stays.
template <class Value, class Read>
Value kept(std::atomic<Value>& answer, Read&& read) {
  Value value = answer.load(std::memory_order_relaxed);
  if (value) return value;
  const Value now = read();
  return answer.compare_exchange_strong(value, now, std::memory_order_relaxed) ? now : value;
}

int32_t keptThreadCount() { return kept(threadCount, readThreadCount); }
int32_t keptCacheSize() { return kept(cacheBytes, readCacheSize); }
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
  pthread_atfork(nullptr, nullptr, stayOnOneThread);
}

}  // namespace
}  // namespace qelcore

using namespace qelcore;

extern "C" {

void* qelMalloc(int32_t bytes) {
  constexpr size_t kAlignment = 64;
  if (bytes < 1) return nullptr;
  const size_t rounded = (size_t(bytes) + kAlignment - 1) / kAlignment * kAlignment;
  return std::aligned_alloc(kAlignment, rounded);
}

void qelFree(void* block) { std::free(block); }

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
