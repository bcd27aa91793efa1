// Loops over all cores.
#ifndef QELCONV_PARALLEL_H
#define QELCONV_PARALLEL_H

#include <cstddef>
#include <exception>

namespace qelconv {

// work(i) for 0..count-1 on all cores. The first exception of any of them is thrown behind the loop. Waking the
// other cores takes tens of microseconds, on a busy machine milliseconds: one loop over a whole picture's strips,
// tiles or blocks, and not one a row. Inside, the library's calls stay on one thread: the runtime runs a parallel
// region within another on the thread that meets it.
template <class Work>
void inParallel(size_t count, Work&& work) {
  std::exception_ptr failure;
#pragma omp parallel for schedule(dynamic) if (count > 1)
  for (size_t i = 0; i < count; ++i) {
    try {
      work(i);
    } catch (...) {
#pragma omp critical
      failure = std::current_exception();
    }
  }
  if (failure) std::rethrow_exception(failure);
}

}  // namespace qelconv

#endif
