// The library's memory work: allocation through qelcore, fills and copies.
#ifndef QELJ_FRAME_MEMORY_H
#define QELJ_FRAME_MEMORY_H

#include "qelj.h"

namespace qelj {

// Null for a count below 1 (without asking qelcore), else qelMalloc's result.
void* ownAlloc(int32_t bytes);
// Hands the pointer to qelFree as it is.
void ownFree(void* block);

// Whether so many bytes, written in one go, had better pass the caches by: more than 2 MiB, and more than the
// largest cache holds.
bool ownExceedsTheCache(int64_t bytes);
inline bool ownPastTheCaches(int64_t bytes) {
  constexpr int64_t kStreamingMinimum = 0x200000;
  return bytes > kStreamingMinimum && ownExceedsTheCache(bytes);
}

// Fills. A null pointer is qelStatusNullPointer, a count below 1 qelStatusBadSize. A fill of more than 2 MiB
// that is also larger than the largest cache goes past the caches with streaming stores.
QelStatus ownSet8u(uint8_t value, void* dst, int32_t bytes);
QelStatus ownZero8u(void* dst, int32_t bytes);
QelStatus ownZero16s(int16_t* dst, int32_t count);
QelStatus ownZero32f(float* dst, int32_t count);
// As the fills, for a 4-byte aligned pointer; makes no argument test.
void ownSet32s(int32_t value, int32_t* dst, int32_t count);

// Copies forward. Null: qelStatusNullPointer; a count below 1: qelStatusBadSize.
QelStatus ownCopy8u(const void* src, void* dst, int32_t bytes);

}  // namespace qelj

#endif
