// Windows.
#include <malloc.h>
#include <windows.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "machine.h"
#include "machine_texts.h"

namespace qelcore {

int32_t readThreadCount() {
  if (const char* list = std::getenv("OMP_NUM_THREADS"))
    if (const int32_t asked = threadsAsked(list)) return asked;
  DWORD_PTR process = 0, system = 0;
  // A process that runs in several groups of processors has no mask: 0.
  if (GetProcessAffinityMask(GetCurrentProcess(), &process, &system) && process)
    return std::popcount(uint64_t(process));
  return std::clamp(int32_t(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS)), 1, kMostThreads);
}

int32_t readCacheSize() {
  using Relation = SYSTEM_LOGICAL_PROCESSOR_INFORMATION;
  DWORD bytes = 0;
  GetLogicalProcessorInformation(nullptr, &bytes);
  auto* const all = static_cast<Relation*>(std::malloc(std::max<DWORD>(bytes, 1)));
  DWORD largest = 0;
  if (all && GetLogicalProcessorInformation(all, &bytes))
    for (DWORD i = 0; i < bytes / sizeof *all; ++i)
      if (all[i].Relationship == RelationCache) largest = std::max(largest, all[i].Cache.Size);
  std::free(all);
  return int32_t(std::min<DWORD>(largest, INT_MAX));
}

void* allocate(size_t bytes) { return _aligned_malloc(bytes, 64); }
void release(void* block) { _aligned_free(block); }

void inEveryChild(void (*)()) {}  // no such thing here

}  // namespace qelcore
