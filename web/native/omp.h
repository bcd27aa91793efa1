/* The codecs' loops on the one thread that a module has. */
#ifndef QELJ_WEB_OMP_H
#define QELJ_WEB_OMP_H

#include <chrono>

inline int omp_in_parallel() { return 0; }
inline int omp_get_max_threads() { return 1; }
inline int omp_get_thread_num() { return 0; }
inline double omp_get_wtime() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

#endif
