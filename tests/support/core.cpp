#include "support/core.h"

#include "machine.h"

using namespace qelj::test;

namespace {

Core theCore;

template <class Work>
void uncounted(Work&& work) {
  if (theCore.uncounted) theCore.uncounted();
  work();
  if (theCore.uncounted) theCore.uncounted();
}

}  // namespace

namespace qelj::test {
Core* qeljTestCore() { return &theCore; }
}  // namespace qelj::test

extern "C" {

int32_t ownGetNumThreads() {
  ++theCore.threadQuestions;
  return theCore.threads;
}

int32_t qelGetMaxCacheSizeB(int32_t* bytes) {
  *bytes = 1 << 20;
  return 0;
}

uint64_t qelGetEnabledCpuFeatures() { return 0; }

void* qelMalloc(int32_t bytes) {
  void* memory = nullptr;
  uncounted([&] {
    if (++theCore.asked == theCore.refused) return;
    ++theCore.allocated;
    memory = qelcore::allocate(size_t(bytes));
  });
  return memory;
}

void qelFree(void* memory) {
  uncounted([&] {
    theCore.allocated -= memory != nullptr;
    qelcore::release(memory);
  });
}

}  // extern "C"
