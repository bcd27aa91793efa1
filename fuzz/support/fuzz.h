// What every fuzz target is written against. A target defines run() and seeds(); both lay out their bytes in
// the same order, so that a seed is the input that run() takes apart.
#ifndef QELJ_FUZZ_H
#define QELJ_FUZZ_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qelj.h"

namespace qelj::fuzz {

// Takes an input apart, parameters first. Behind its end there are zeros.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), left_(size) {}

  size_t left() const { return left_; }
  template <class T = uint8_t>
  T take() {
    T value{};
    const size_t n = std::min(left_, sizeof value);
    std::memcpy(&value, data_, n);
    data_ += n, left_ -= n;
    return value;
  }
  // Uniform enough in low..high, both included.
  int32_t in(int32_t low, int32_t high) { return low + int32_t(take<uint16_t>() % uint32_t(high - low + 1)); }
  // Exactly `bytes` bytes on the heap, between the sanitizer's red zones.
  std::vector<uint8_t> bytes(size_t bytes) {
    std::vector<uint8_t> all(bytes);
    const size_t n = std::min(left_, bytes);
    std::copy_n(data_, n, all.begin());
    data_ += n, left_ -= n;
    return all;
  }
  std::vector<uint8_t> rest() { return bytes(left_); }

 private:
  const uint8_t* data_;
  size_t left_;
};

// Puts an input together.
class Seed {
 public:
  template <class T>
  Seed& put(T value) {
    const auto* p = reinterpret_cast<const uint8_t*>(&value);
    bytes_.insert(bytes_.end(), p, p + sizeof value);
    return *this;
  }
  Seed& byte(int value) { return put(uint8_t(value)); }
  Seed& in(int32_t low, int32_t value) { return put(uint16_t(value - low)); }
  Seed& bytes(const std::vector<uint8_t>& all) {
    bytes_.insert(bytes_.end(), all.begin(), all.end());
    return *this;
  }
  const std::vector<uint8_t>& all() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

// A promise of the library that must hold for every input.
#define FUZZ_EXPECT(condition) ((condition) ? void() : qelj::fuzz::broken(#condition, __FILE__, __LINE__))
[[noreturn]] void broken(const char* condition, const char* file, int line);

// A record in memory of its own, of the size that the library tells.
template <class T, auto GetBufSize>
class Record {
 public:
  Record() {
    int32_t size = 0;
    GetBufSize(&size);
    bytes_.resize(size_t(size));
  }
  T* get() { return reinterpret_cast<T*>(bytes_.data()); }

 private:
  std::vector<uint8_t> bytes_;
};

void run(Input input);
std::vector<Seed> seeds();

}  // namespace qelj::fuzz

#endif
