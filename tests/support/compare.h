// The comparison of several images of the library over every export. A family registers, in a *_compare.cpp
// file, what to do with each of its functions:
//
//   QELJ_COMPARE(qeliFoo_8u_C1R, [](auto* foo, Random& random, Trace& trace) {
//     Guarded src(random, ...), dst(random, ...);
//     trace.status(foo(src.data(), ...));
//     trace.buffer(dst);
//   });
//
// The operation runs many times on each image, with the same random numbers for all images, and everything
// that it traces must be the same. Arguments should cover small and large sizes, odd offsets and steps.
#ifndef QELJ_TESTS_COMPARE_H
#define QELJ_TESTS_COMPARE_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qelj.h"
#include "support/buffer.h"
#include "support/random.h"

namespace qelj::test {

class Trace {
 public:
  void status(QelStatus s) { bytes(&s, sizeof s); }
  template <class T>
  void value(T v) {
    bytes(&v, sizeof v);
  }
  void buffer(const Guarded& b) {
    const auto all = b.whole();
    bytes(all.data(), all.size());
  }
  void bytes(const void* p, size_t n) {
    const auto* b = static_cast<const uint8_t*>(p);
    all_.insert(all_.end(), b, b + n);
  }
  const std::vector<uint8_t>& all() const { return all_; }

 private:
  std::vector<uint8_t> all_;
};

// The functions of one image by name, for operations that need more than the compared one (a table to decode
// by).
class Image {
 public:
  Image(std::string path, void* handle) : path_(std::move(path)), handle_(handle) {}
  void* find(const char* name) const;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  void* handle_;
};

using Comparison = std::function<void(void* function, const Image& image, Random& random, Trace& trace)>;

inline std::map<std::string, Comparison>& comparisons() {
  static std::map<std::string, Comparison> all;
  return all;
}

template <class Function, class Operation>
bool addComparison(const char* name, Operation operation) {
  comparisons()[name] = [operation](void* function, const Image& image, Random& random, Trace& trace) {
    auto* f = reinterpret_cast<Function*>(function);
    if constexpr (std::is_invocable_v<Operation, Function*, const Image&, Random&, Trace&>)
      operation(f, image, random, trace);
    else
      operation(f, random, trace);
  };
  return true;
}

}  // namespace qelj::test

#define QELJ_COMPARE(name, ...)                        \
  [[maybe_unused]] static const bool compared_##name = \
      qelj::test::addComparison<decltype(::name)>(#name, __VA_ARGS__)
// For an operation that calls other functions of the same image: image.find("name"), cast by the name's type.
#define QELJ_FIND(image, name) reinterpret_cast<decltype(&::name)>((image).find(#name))

#endif
