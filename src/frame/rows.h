// The row driver: the one place that knows OpenMP. Without it (QELJ_OPENMP=OFF) all loops stay on the calling thread, and
// the thread count is asked for all the same.
#ifndef QELJ_FRAME_ROWS_H
#define QELJ_FRAME_ROWS_H

#ifdef _OPENMP
#  include <omp.h>
#else
inline int omp_get_num_threads() { return 1; }
inline int omp_get_thread_num() { return 0; }
#endif

#include "frame/arith.h"
#include "qelcore.h"
#include "qelj.h"

namespace qelj {

// An image of at most this many pixels stays on the calling thread.
inline constexpr int32_t kForkThreshold = 0x2000;

// The region, in a function of its own: Clang asks the runtime for the thread's number where a function with a region
// begins, and the first to ask pays for the runtime's start. Where the runtime refuses to nest, it runs on the calling
// thread alone.
template <class RowOperation>
[[gnu::noinline]] void ownForkRows(int32_t height, [[maybe_unused]] int32_t threads, RowOperation& rowOperation) {
#pragma omp parallel for schedule(static) num_threads(threads)
  for (int32_t y = 0; y < height; ++y) rowOperation(y);
}

// Runs rowOperation(y) for every row of `size`, on several threads when the image is large. Each thread gets one
// contiguous block of rows. A row operation cannot fail, and it writes nothing that another one reads or writes, so the
// bytes do not depend on the split. The thread count is asked for on every call, and the pixel count wraps at 32 bits
// like the product it stands for. One thread alone needs no region, for whose team the runtime would allocate.
template <class RowOperation>
inline QelStatus forEachRow(QelSize size, RowOperation&& rowOperation) {
  const int32_t threads = ownGetNumThreads();
  const int32_t pixels = mulWrap(size.width, size.height);
  if (pixels <= kForkThreshold || threads <= 1) {
    for (int32_t y = 0; y < size.height; ++y) rowOperation(y);
  } else {
    auto shared = rowOperation;  // a copy: what is in the one above may stay in registers, as none else sees it
    ownForkRows(size.height, threads, shared);
  }
  return qelStatusOk;
}

// The same loop for the functions that never fork; it asks for no thread count.
template <class RowOperation>
inline QelStatus forEachRowSerial(QelSize size, RowOperation&& rowOperation) {
  for (int32_t y = 0; y < size.height; ++y) rowOperation(y);
  return qelStatusOk;
}

// The rule of its own that a loop over table entries has. From this many entries on it may fork, into two threads
// at most; only then is the thread count asked for.
inline constexpr int32_t kShareThreshold = 2048;

// Runs operation(first, count) over shares that make up the entries 0 to count - 1: equal shares, the last one with the
// remainder. The operation tells whether it met what it looks for; the result is the number of shares that did.
template <class Operation>
inline int32_t forEachShare(int32_t count, Operation&& operation) {
  if (count < kShareThreshold) return operation(0, count);
  const int32_t threads = ownGetNumThreads();
  if (threads <= 1 || count < threads) return operation(0, count);
  int32_t found = 0, team = 1, share = count, remainder = 0;
#pragma omp parallel num_threads(2)
  {
#pragma omp master
    {
      team = omp_get_num_threads();
      share = count / team;
      remainder = count % team;
    }
#pragma omp barrier
    const int32_t thread = omp_get_thread_num();
    if (operation(thread * share, share + (thread == team - 1 ? remainder : 0))) {
#pragma omp atomic
      ++found;
    }
  }
  return found;
}

}  // namespace qelj

#endif
