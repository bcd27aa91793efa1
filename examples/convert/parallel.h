// Loops over all cores.
#ifndef QELCONV_PARALLEL_H
#define QELCONV_PARALLEL_H

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>

namespace qelconv {

// work(i) for 0..count-1 on all cores, on one inside another such loop. The first exception of any of them is
// thrown behind the loop, and nothing more is begun. Waking the other cores takes tens of microseconds, on a
// busy machine milliseconds: one loop over a whole picture's strips, tiles or blocks, and not one a row.
// Inside, the library's calls stay on one thread: the runtime runs a parallel region within another on the
// thread that meets it.
template <class Work>
void inParallel(size_t count, Work&& work) {
  if (count < 2 || omp_in_parallel()) {
    for (size_t i = 0; i < count; ++i) work(i);
    return;
  }
  std::exception_ptr failure;
  std::atomic<bool> failed = false;
#pragma omp parallel for schedule(dynamic)
  for (size_t i = 0; i < count; ++i) {
    if (failed) continue;
    try {
      work(i);
    } catch (...) {
      if (!failed.exchange(true)) failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

// The same by strips of whole rows: work(first, end), as many rows as make some 64K pixels.
template <class Work>
void inStrips(int32_t width, int32_t height, Work&& work) {
  const int32_t rows = std::clamp(65536 / width, 1, height);
  inParallel(size_t((height + rows - 1) / rows), [&](size_t i) {
    const int32_t first = int32_t(i) * rows;
    work(first, std::min(first + rows, height));
  });
}

}  // namespace qelconv

#endif
