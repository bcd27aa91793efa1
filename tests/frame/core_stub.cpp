#include "frame/core_stub.h"

#include <cstdlib>

#include "qelcore.h"

namespace qelj::test {
// Constant-initialised: the library's load step asks before any constructor of this program has run.
constinit Core core;
}  // namespace qelj::test

using qelj::test::core;

extern "C" {
void* qelMalloc(int32_t bytes) {
  core.requestedBytes = bytes;
  return core.refuseAllocations ? nullptr : std::malloc(size_t(bytes));
}
void qelFree(void* block) { std::free(block); }
int32_t ownGetNumThreads(void) { return core.threads; }
int32_t qelGetMaxCacheSizeB(int32_t* bytes) {
  *bytes = 0;
  return -7;  // not known
}
uint64_t qelGetEnabledCpuFeatures(void) {
  ++core.featureQuestions;
  return 0;
}
}
