// The core library that programs of the comparison supply: a processor of three threads and small caches in the place of
// this machine's, so that large images are divided and take the stores that pass the caches by wherever the comparison
// runs. It is part of the program; on Windows, where imports are tied to a file, it is a libqelcore.dll beside it.
#ifndef QELJ_TESTS_CORE_H
#define QELJ_TESTS_CORE_H

#include "qelcore.h"

namespace qelj::test {

struct Core {
  // What the library is told of threads, and how often it has asked, which functions that fork do once, behind their
  // checks.
  int32_t threads = 3;
  int threadQuestions = 0;
  // Blocks that the library holds, and has asked for; one that it is refused, by its number from 1 on.
  int allocated = 0, asked = 0, refused = 0;
  // Called in front of and behind what the C library does for it, while a call is counted: how memory is found is no
  // fixed number of instructions.
  void (*uncounted)() = nullptr;
};

extern "C" QELCORE_API Core* qeljTestCore(void);
inline Core& core() { return *qeljTestCore(); }

}  // namespace qelj::test

#endif
