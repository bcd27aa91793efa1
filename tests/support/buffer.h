// Memory for tests: rows between guard bytes, and buffers that end at an inaccessible page.
#ifndef QELJ_TESTS_BUFFER_H
#define QELJ_TESTS_BUFFER_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "qelj.h"
#include "support/random.h"

namespace qelj::test {

// `rows` rows of `rowBytes` used bytes, `step` bytes apart, at a chosen offset from a 64-byte boundary, with
// guard bytes in front, behind and between the rows. Filled with random bytes; intact() tells whether every
// byte outside the used ones still has its first value.
class Guarded {
 public:
  static constexpr size_t kMargin = 192;

  Guarded(Random& random, size_t rowBytes, size_t rows = 1, size_t step = 0, size_t offset = 0)
      : rowBytes_(rowBytes), rows_(rows), step_(step ? step : rowBytes) {
    bytes_.resize(kMargin * 2 + 64 + offset + step_ * rows_);
    const auto address = reinterpret_cast<uintptr_t>(bytes_.data()) + kMargin;
    start_ = size_t((address + 63) / 64 * 64 - reinterpret_cast<uintptr_t>(bytes_.data())) + offset;
    // From the first guard byte on, so that the contents don't depend on where the buffer was allocated.
    random.fill(bytes_.data() + start_ - kMargin, whole().size());
    first_ = bytes_;
  }

  template <class T = uint8_t>
  T* data(size_t y = 0) {
    return reinterpret_cast<T*>(bytes_.data() + start_ + y * step_);
  }
  int32_t step() const { return int32_t(step_); }
  size_t rowBytes() const { return rowBytes_; }
  size_t rows() const { return rows_; }

  bool intact() const {
    const auto same = [&](size_t from, size_t to) {
      return from >= to || std::memcmp(&bytes_[from], &first_[from], to - from) == 0;
    };
    size_t from = 0;
    for (size_t y = 0; y < rows_; ++y) {
      if (!same(from, start_ + y * step_)) return false;
      from = start_ + y * step_ + rowBytes_;
    }
    return same(from, bytes_.size());
  }
  // Whether no byte at all was written.
  bool untouched() const { return bytes_ == first_; }

  // The buffer from the first guard byte to the last, wherever it was allocated.
  std::vector<uint8_t> whole() const {
    return {bytes_.begin() + std::ptrdiff_t(start_ - kMargin),
            bytes_.begin() + std::ptrdiff_t(start_ + step_ * rows_ + 64)};
  }

 private:
  size_t rowBytes_, rows_, step_, start_ = 0;
  std::vector<uint8_t> bytes_, first_;
};

// `bytes` bytes that end directly in front of an inaccessible page (or, with atStart, begin directly behind
// one).
class PageBuffer {
 public:
  explicit PageBuffer(size_t bytes, bool atStart = false) : bytes_(bytes) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    const size_t body = (bytes + page - 1) / page * page;
    mapped_ = body + 2 * page;
    void* memory = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("mmap");
    base_ = static_cast<uint8_t*>(memory);
    mprotect(base_, page, PROT_NONE);
    mprotect(base_ + page + body, page, PROT_NONE);
    data_ = atStart ? base_ + page : base_ + page + body - bytes;
  }
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;
  ~PageBuffer() { munmap(base_, mapped_); }

  template <class T = uint8_t>
  T* data() {
    return reinterpret_cast<T*>(data_);
  }
  size_t size() const { return bytes_; }
  void assign(const void* from, size_t bytes) { std::memcpy(data_, from, bytes); }

 private:
  size_t bytes_, mapped_ = 0;
  uint8_t *base_ = nullptr, *data_ = nullptr;
};

}  // namespace qelj::test

#endif
