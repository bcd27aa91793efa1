// What the system and the processor say, and the memory that they give: one file for each kind of system defines these.
#ifndef QELCORE_MACHINE_H
#define QELCORE_MACHINE_H

#include <cstddef>
#include <cstdint>

namespace qelcore {

// The most threads that are ever answered, whoever asks for more.
inline constexpr int32_t kMostThreads = 1024;

// What OMP_NUM_THREADS asks for, or else the processors that the process may use; at least 1.
int32_t readThreadCount();
// The size in bytes of the largest cache; 0 when it is not known.
int32_t readCacheSize();

// Memory aligned to 64 bytes, or null; `bytes` is not 0.
void* allocate(size_t bytes);
void release(void* block);

// Has `prepare` called in every child of a fork().
void inEveryChild(void (*prepare)());

}  // namespace qelcore

#endif
