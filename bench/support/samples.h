// Memory for benchmarks of sample functions: rows aligned to 64 bytes with room behind each, and pointers to
// them.
#ifndef QELJ_BENCH_SAMPLES_H
#define QELJ_BENCH_SAMPLES_H

#include <cstdint>
#include <memory>
#include <vector>

#include "support/pair.h"

namespace qelj::bench {

class Samples {
 public:
  Samples(int rowBytes, int height, int border = 0) : step_((rowBytes + 2 * border + 127) / 64 * 64) {
    bytes_.resize(size_t(step_) * size_t(height + 2) + 64);
    auto* start = bytes_.data() + (64 - reinterpret_cast<uintptr_t>(bytes_.data()) % 64) + (border + 63) / 64 * 64;
    for (int y = -1; y <= height; ++y) rows_.push_back(start + size_t(y + 1) * size_t(step_));
  }
  Samples(const Samples&) = delete;

  // Rows -1 and `height` exist.
  uint8_t* row(int y) const { return rows_[size_t(y + 1)]; }
  uint8_t** rows(int from = 0) const { return const_cast<uint8_t**>(rows_.data()) + from + 1; }
  int32_t step() const { return step_; }
  size_t bytes() const { return bytes_.size(); }

 private:
  int32_t step_;
  std::vector<uint8_t> bytes_;
  std::vector<uint8_t*> rows_;
};

inline Photo noise(int width, int height) {
  Photo photo{width, height, std::vector<uint8_t>(size_t(width) * size_t(height) * 3)};
  uint64_t z = 1;
  for (auto& v : photo.rgb) v = uint8_t((z = z * 6364136223846793005u + 1442695040888963407u) >> 56);
  return photo;
}

}  // namespace qelj::bench

#endif
