// Memory of an exact length beside inaccessible pages, so that an access outside it is a fault in every build. The
// pages are kept for the next one to use.
#ifndef QELJ_TESTS_PAGES_H
#define QELJ_TESTS_PAGES_H

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "support/random.h"
#include "support/system.h"

namespace qelj::test {

class Pages {
 public:
  // Where the memory lies in its pages: directly behind an inaccessible page, directly in front of one, or anywhere
  // between, at a given distance from a 64-byte boundary.
  enum Place { behind, before, between };

  Pages(size_t bytes, Place place, size_t offset = 0) : bytes_(bytes) {
    const size_t room = bytes + (place == between ? 64 + 63 + kMargin : 0);
    slot_ = take(size_t(std::bit_width((room + kPage - 1) / kPage)));
    const size_t whole = slot_.bytes;
    data_ = slot_.body + (place == behind ? 0 : place == before ? whole - bytes : 64 + offset);
    front_ = std::min(kMargin, size_t(data_ - slot_.body));
    back_ = std::min(kMargin, size_t(slot_.body + whole - data_ - bytes));
    std::memset(data_ - front_, kFill, front_);
    std::memset(data_ + bytes, kFill, back_);
  }
  // At a drawn place.
  static Pages drawn(Random& random, size_t bytes) {
    const auto place = Place(random.in(0, 2));
    const auto offset = size_t(random.in(0, 63));
    return {bytes, place, offset};
  }
  // Bytes behind which nothing can be read.
  static Pages copyOf(const std::vector<uint8_t>& bytes) {
    Pages pages(bytes.size(), before);
    if (!bytes.empty()) std::memcpy(pages.data(), bytes.data(), bytes.size());
    return pages;
  }
  Pages(Pages&& other) noexcept
      : slot_(std::exchange(other.slot_, {})),
        data_(other.data_),
        bytes_(other.bytes_),
        front_(other.front_),
        back_(other.back_) {}
  Pages& operator=(Pages&&) = delete;
  ~Pages() {
    if (slot_.body) kept()[slot_.scale].push_back(slot_);
  }

  uint8_t* data() const { return data_; }
  size_t size() const { return bytes_; }
  // Whether the accessible bytes beside the memory are as they were.
  bool intact() const { return filled(data_ - front_, front_) && filled(data_ + bytes_, back_); }

 private:
  static constexpr size_t kMargin = 128;
  static constexpr int kFill = 0xA5;
  static inline const size_t kPage = pageSize();

  struct Slot {
    uint8_t* body = nullptr;
    size_t bytes = 0, scale = 0;
  };
  static std::array<std::vector<Slot>, 48>& kept() {
    static std::array<std::vector<Slot>, 48> slots;
    return slots;
  }
  static Slot take(size_t scale) {
    auto& free = kept()[scale];
    if (!free.empty()) {
      const Slot slot = free.back();
      free.pop_back();
      return slot;
    }
    const size_t bytes = kPage << scale;
    return {guardedMemory(bytes), bytes, scale};
  }
  static bool filled(const uint8_t* p, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i)
      if (p[i] != kFill) return false;
    return true;
  }

  Slot slot_;
  uint8_t* data_ = nullptr;
  size_t bytes_, front_ = 0, back_ = 0;
};

}  // namespace qelj::test

#endif
