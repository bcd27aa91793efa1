// WebAssembly: one thread, no files, and nothing that tells of caches.
#include <cstdlib>

#include "machine.h"

namespace qelcore {

int32_t readThreadCount() { return 1; }
int32_t readCacheSize() { return 0; }

void* allocate(size_t bytes) {
  constexpr size_t kAlignment = 64;
  return std::aligned_alloc(kAlignment, (bytes + kAlignment - 1) / kAlignment * kAlignment);
}
void release(void* block) { std::free(block); }

void inEveryChild(void (*)()) {}  // no such thing here

}  // namespace qelcore
