#include "frame/memory.h"

#include <bit>
#include <cstring>

#include "frame/arith.h"
#include "frame/check.h"
#include "frame/lanes.h"
#include "qelcore.h"

namespace qelj {
namespace {

// Fills with a 4-byte pattern whose phase is that of `dst`.
void fillCached(char* dst, uint32_t pattern, int64_t bytes) {
  int64_t i = 0;
  for (; i + 4 <= bytes; i += 4) store(dst + i, pattern);
  std::memcpy(dst + i, &pattern, size_t(bytes - i));
}

void fillStreaming(char* dst, uint32_t pattern, int64_t bytes) {
  // Up to the first 64-byte boundary through the cache; then whole lines; then the rest. The pattern is
  // rotated by the head's length so that its phase stays that of `dst`.
  const int64_t head = int64_t(-reinterpret_cast<uintptr_t>(dst) & 63);
  fillCached(dst, pattern, head);
  const uint32_t turned = std::rotr(pattern, int(head & 3) * 8);
  int64_t i = head;
  for (; i + 64 <= bytes; i += 64)
    for (int part = 0; part < 64; part += simd::kBytes) simd::stream(dst + i + part, all<simd::U32>(turned));
  fillCached(dst + i, turned, bytes - i);
  simd::streamFence();
}

void fill(void* dst, uint32_t pattern, int64_t bytes) {
  const auto work = ownPastTheCaches(bytes) ? fillStreaming : fillCached;
  work(static_cast<char*>(dst), pattern, bytes);
}

QelStatus checkedFill(void* dst, uint32_t pattern, int32_t count, int32_t elementBytes) {
  if (auto s = check(nonNull(dst), length(count)); s) return s;
  fill(dst, pattern, int64_t(count) * elementBytes);
  return qelStatusOk;
}

}  // namespace

bool ownExceedsTheCache(int64_t bytes) {
  int32_t cache = 0;
  return qelGetMaxCacheSizeB(&cache) == qelStatusOk && cache > 0 && bytes > cache;
}

void* ownAlloc(int32_t bytes) { return bytes < 1 ? nullptr : qelMalloc(bytes); }
void ownFree(void* block) { qelFree(block); }

QelStatus ownSet8u(uint8_t value, void* dst, int32_t bytes) { return checkedFill(dst, value * 0x01010101u, bytes, 1); }
QelStatus ownZero8u(void* dst, int32_t bytes) { return checkedFill(dst, 0, bytes, 1); }
QelStatus ownZero16s(int16_t* dst, int32_t count) { return checkedFill(dst, 0, count, 2); }
QelStatus ownZero32f(float* dst, int32_t count) { return checkedFill(dst, 0, count, 4); }
void ownSet32s(int32_t value, int32_t* dst, int32_t count) { fill(dst, uint32_t(value), int64_t(count) * 4); }

QelStatus ownCopy8u(const void* src, void* dst, int32_t bytes) {
  if (auto s = check(nonNull(src, dst), length(bytes)); s) return s;
  // The C library's copy takes the block-move path for long runs by itself.
  std::memcpy(dst, src, size_t(bytes));
  return qelStatusOk;
}

}  // namespace qelj
