// Random data that a failing test can replay: QELJ_SEED=<number> in the environment replaces the fixed seed.
#ifndef QELJ_TESTS_RANDOM_H
#define QELJ_TESTS_RANDOM_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace qelj::test {

class Random {
 public:
  explicit Random(uint64_t stream = 0) : state_(seed() + stream * 0x9E3779B97F4A7C15u) {}
  // Numbers that these bytes choose, as long as there are some; then others, which depend on the bytes too.
  Random(const uint8_t* bytes, size_t count) : state_(count), bytes_(bytes), left_(count) {}

  static uint64_t seed() {
    static const char* text = std::getenv("QELJ_SEED");
    return text ? std::strtoull(text, nullptr, 0) : 20120723;
  }

  uint64_t bits() {
    if (left_ > 0) return chosen(8);
    uint64_t z = state_ += 0x9E3779B97F4A7C15u;  // splitmix64
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
    z = (z ^ z >> 27) * 0x94D049BB133111EBu;
    return z ^ z >> 31;
  }
  // Uniform in low..high, both included.
  int64_t in(int64_t low, int64_t high) {
    const uint64_t range = uint64_t(high - low);
    const uint64_t drawn = left_ == 0 ? bits() : chosen(range < 0x100 ? 1 : range < 0x10000 ? 2 : 8);
    return low + int64_t(drawn % (range + 1));
  }
  bool chance(int percent) { return in(0, 99) < percent; }

  void fill(void* data, size_t bytes) {
    auto* p = static_cast<uint8_t*>(data);
    for (; bytes >= 8; bytes -= 8, p += 8) {
      const uint64_t word = bits();
      std::memcpy(p, &word, 8);
    }
    const uint64_t word = bits();
    if (bytes > 0) std::memcpy(p, &word, bytes);  // p may be null behind nothing
  }
  template <class T>
  std::vector<T> vector(size_t count, int64_t low, int64_t high) {
    std::vector<T> v(count);
    for (auto& x : v) x = T(in(low, high));
    return v;
  }

 private:
  uint64_t chosen(size_t count) {
    uint64_t value = 0;
    const size_t n = count < left_ ? count : left_;
    std::memcpy(&value, bytes_, n);
    bytes_ += n, left_ -= n;
    state_ = (state_ ^ value) * 0x9E3779B97F4A7C15u;
    return value;
  }

  uint64_t state_;
  const uint8_t* bytes_ = nullptr;
  size_t left_ = 0;
};

}  // namespace qelj::test

#endif
