// Linux, as far as there are its files, and other systems of the POSIX kind.
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "machine.h"
#include "machine_texts.h"

namespace qelcore {
namespace {

std::string_view readFile(const char* path, char* buffer, size_t size) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return {};
  size_t filled = 0;
  for (ssize_t bytes; filled < size && (bytes = read(file, buffer + filled, size - filled)) > 0;)
    filled += size_t(bytes);
  close(file);
  return {buffer, filled};
}

int processorsAllowed() {
#if defined(__linux__)
  cpu_set_t masks[8]{};  // room for the 8192 processors that a kernel knows at most
  if (!sched_getaffinity(0, sizeof masks, masks)) return CPU_COUNT_S(sizeof masks, masks);
  return 1;
#else
  return int(std::min<long>(sysconf(_SC_NPROCESSORS_ONLN), kMostThreads));
#endif
}

}  // namespace

int32_t readThreadCount() {
  if (const char* list = std::getenv("OMP_NUM_THREADS"))
    if (const int32_t asked = threadsAsked(list)) return asked;
  return std::max(1, std::min(processorsAllowed(), processorsOfQuotas(readFile)));
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
  return int32_t(std::clamp<long>(largest, 0, INT_MAX));
}

void* allocate(size_t bytes) {
  constexpr size_t kAlignment = 64;
  return std::aligned_alloc(kAlignment, (bytes + kAlignment - 1) / kAlignment * kAlignment);
}
void release(void* block) { std::free(block); }

void inEveryChild(void (*prepare)()) { pthread_atfork(nullptr, nullptr, prepare); }

}  // namespace qelcore
