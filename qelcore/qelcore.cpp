#include "qelcore.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

#if defined(__x86_64__) || defined(__i386__)
#  include <cpuid.h>
#endif

namespace {

constexpr int32_t kUnknown = -7;

int32_t affinityCount() {
  cpu_set_t mask;
  if (sched_getaffinity(0, sizeof mask, &mask) == 0) return std::max(1, CPU_COUNT(&mask));
  // More processors than a cpu_set_t holds: the call refuses the small mask.
  return int32_t(std::clamp(sysconf(_SC_NPROCESSORS_ONLN), 1L, 65536L));
}

// OMP_NUM_THREADS is a list, one entry a nesting level; the first counts here.
int32_t environmentCount() {
  const char* text = std::getenv("OMP_NUM_THREADS");
  if (!text) return 0;
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  const bool wellFormed = end != text && (*end == '\0' || *end == ',' || *end == ' ');
  return wellFormed && value >= 1 && value <= 65536 ? int32_t(value) : 0;
}

// The system's description of the first processor's caches. (sysconf counts every third-level cache of a processor
// in several parts as one, on some versions of the C library.)
long describedCache() {
  long largest = 0;
  for (int i = 0; i < 8; ++i) {
    char path[64];
    std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu0/cache/index%d/size", i);
    std::FILE* file = std::fopen(path, "r");
    if (!file) break;
    long count = 0;
    char unit = 0;
    if (std::fscanf(file, "%9ld%c", &count, &unit) >= 1)
      largest = std::max(largest, unit == 'M' ? count << 20 : unit == 'K' ? count << 10 : count);
    std::fclose(file);
  }
  return largest;
}

long largestCache() {
  if (const long described = describedCache()) return described;
#ifdef _SC_LEVEL3_CACHE_SIZE
  return std::max({0L, sysconf(_SC_LEVEL2_CACHE_SIZE), sysconf(_SC_LEVEL3_CACHE_SIZE), sysconf(_SC_LEVEL4_CACHE_SIZE)});
#else
  return 0;
#endif
}

}  // namespace

extern "C" {

void* qelMalloc(int32_t bytes) {
  constexpr size_t kAlignment = 64;
  if (bytes < 1) return nullptr;
  const size_t rounded = (size_t(bytes) + kAlignment - 1) / kAlignment * kAlignment;
  return std::aligned_alloc(kAlignment, rounded);
}

void qelFree(void* block) { std::free(block); }

int32_t ownGetNumThreads() {
  // The environment is read once, as the OpenMP runtime does; the affinity mask may change at any time.
  static const int32_t fromEnvironment = environmentCount();
  return fromEnvironment ? fromEnvironment : affinityCount();
}

int32_t qelGetMaxCacheSizeB(int32_t* bytes) {
  if (!bytes) return -8;
  static const long largest = largestCache();
  *bytes = largest > 0 ? int32_t(std::min<long>(largest, INT_MAX)) : 0;
  return *bytes ? 0 : kUnknown;
}

uint64_t qelGetEnabledCpuFeatures() {
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

}  // extern "C"
