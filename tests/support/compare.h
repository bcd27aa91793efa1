// What every export gives on drawn data, to compare images of the library and to hold them to tests/digests.txt. A
// family registers, in a *_compare.cpp file, how to call each of its functions:
//
//   QELJ_COMPARE(qeliFoo_8u16s_C1R, [](auto* foo, Case& c) {
//     const QelSize size = c.size(300, 40);
//     auto& src = c.rows<uint8_t>(size.width, size.height);
//     auto& dst = c.rows<int16_t>(size.width, size.height);
//     c.call(foo, src.data(), Step{src.step()}, dst.data(), Step{dst.step()}, size);
//   });
//
// The operation runs for many rounds on each image, with the same numbers for all, and what it gives must be the same
// everywhere: statuses, values and the whole of every buffer that the case handed out, sources included.
//
// So that it is, on any processor and by any compiler:
// - a number is drawn in a statement of its own (compilers differ in the order in which they evaluate arguments);
// - nothing goes in that may differ rightly: a private record's content, a pointer, a platform's struct size;
// - functions of integers are called in all floating-point environments by turns;
// - buffers are exactly as long as the header says. They lie by turns directly behind an inaccessible page, in front
//   of one, and at any distance from a 64-byte boundary between.
#ifndef QELJ_TESTS_COMPARE_H
#define QELJ_TESTS_COMPARE_H

#include <cstdlib>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "qelj.h"
#include "support/core.h"
#include "support/float_environment.h"
#include "support/pages.h"
#include "support/random.h"

namespace qelj::test {

// The functions of one image by name, for operations that need more than the compared one (a table to decode by).
class Image {
 public:
  Image(std::string path, void* handle) : path_(std::move(path)), handle_(handle) {}
  void* find(const char* name) const;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  void* handle_;
};

// Arguments whose checks a case tries, by the values that a check must refuse: steps and lengths that the function
// tests, and the pointers of a plane array. Plain pointers are tried as null, a QelSize with each side 0 and negative;
// an integer that is not marked, and a pointer marked so, is left alone.
struct Step {
  int32_t bytes;
};
struct Length {
  int32_t count;
};
template <class T>
struct Planes {
  T* const* array;
  int count;
};
template <class T>
Planes(T* const*, int) -> Planes<T>;
template <class T>
struct Unchecked {
  T* pointer;
};
template <class T>
Unchecked(T*) -> Unchecked<T>;
// A value out of its domain, beside a good one.
template <class T>
struct Domain {
  T good;
  std::vector<T> bad;
};

namespace argument {

// The value that a call gets, the number of ways to damage it, and an argument damaged in one of them. `Kept` holds
// what a damaged argument points to.
using Kept = std::vector<void*>;
template <class T>
struct Traits {
  static T plain(const T& value) { return value; }
  static int ways(const T&) { return std::is_pointer_v<T> ? 1 : 0; }
  static T damaged(const T& value, int, Kept&) {
    if constexpr (std::is_pointer_v<T>) return nullptr;
    else return value;
  }
};
template <>
struct Traits<Step> {
  static int32_t plain(Step s) { return s.bytes; }
  static int ways(Step) { return 2; }
  static Step damaged(Step, int way, Kept&) { return {-way}; }
};
template <>
struct Traits<Length> {
  static int32_t plain(Length l) { return l.count; }
  static int ways(Length) { return 2; }
  static Length damaged(Length, int way, Kept&) { return {-way}; }
};
template <>
struct Traits<QelSize> {
  static QelSize plain(QelSize s) { return s; }
  static int ways(QelSize) { return 4; }
  static QelSize damaged(QelSize s, int way, Kept&) {
    (way & 1 ? s.width : s.height) = way & 2 ? -5 : 0;
    return s;
  }
};
template <class T>
struct Traits<Planes<T>> {
  static T* const* plain(const Planes<T>& p) { return p.array; }
  static int ways(const Planes<T>& p) { return 1 + p.count; }
  static Planes<T> damaged(const Planes<T>& p, int way, Kept& kept) {
    if (way == 0) return {nullptr, p.count};
    kept.resize(size_t(p.count));
    for (int i = 0; i < p.count; ++i)
      kept[size_t(i)] = i == way - 1 ? nullptr : const_cast<void*>(static_cast<const void*>(p.array[i]));
    return {reinterpret_cast<T* const*>(kept.data()), p.count};
  }
};
template <class T>
struct Traits<Unchecked<T>> {
  static T* plain(const Unchecked<T>& u) { return u.pointer; }
  static int ways(const Unchecked<T>&) { return 0; }
  static Unchecked<T> damaged(const Unchecked<T>& u, int, Kept&) { return u; }
};
template <class T>
struct Traits<Domain<T>> {
  static T plain(const Domain<T>& d) { return d.good; }
  static int ways(const Domain<T>& d) { return int(d.bad.size()); }
  static Domain<T> damaged(const Domain<T>& d, int way, Kept&) { return {d.bad[size_t(way)], {}}; }
};

}  // namespace argument

// Rows of samples in memory of an exact length; the last row ends with its last sample. With a negative step, the first
// row does.
class Buffer {
 public:
  Buffer(Random& random, size_t rowBytes, size_t rows, int32_t step)
      : memory_(Pages::drawn(random, rows ? size_t(std::abs(step)) * (rows - 1) + rowBytes : 0)),
        rowBytes_(rowBytes),
        rows_(rows),
        step_(step) {
    random.fill(memory_.data(), memory_.size());
  }
  virtual ~Buffer() = default;

  int32_t step() const { return step_; }
  size_t rowBytes() const { return rowBytes_; }
  size_t rowCount() const { return rows_; }
  // Where row y lies in the memory.
  size_t place(size_t y) const { return size_t(std::abs(step_)) * (step_ < 0 ? rows_ - 1 - y : y); }
  uint8_t* raw(size_t y = 0) const { return memory_.data() + place(y); }
  size_t bytes() const { return memory_.size(); }
  bool intact() const { return memory_.intact(); }
  // Adds the content. Of NaNs only that they are some.
  virtual void trace(std::vector<uint8_t>& to) const { to.insert(to.end(), memory_.data(), memory_.data() + bytes()); }

 private:
  Pages memory_;
  size_t rowBytes_, rows_;
  int32_t step_;
};

template <class T>
class Rows : public Buffer {
 public:
  using Buffer::Buffer;
  T* data(size_t y = 0) const { return reinterpret_cast<T*>(raw(y)); }
  size_t width() const { return rowBytes() / sizeof(T); }
  // Sample access at any alignment.
  T get(size_t x, size_t y = 0) const {
    T value;
    std::memcpy(&value, raw(y) + x * sizeof(T), sizeof(T));
    return value;
  }
  void set(size_t x, size_t y, T value) const { std::memcpy(raw(y) + x * sizeof(T), &value, sizeof(T)); }
  // Every sample from draw().
  template <class Draw>
  void fill(Draw&& draw) const {
    for (size_t y = 0; y < rowCount(); ++y)
      for (size_t x = 0; x < width(); ++x) set(x, y, T(draw()));
  }
  void trace(std::vector<uint8_t>& to) const override {
    const size_t from = to.size();
    Buffer::trace(to);
    if constexpr (std::is_floating_point_v<T>)
      for (size_t y = 0; y < rowCount(); ++y)
        for (size_t x = 0; x < width(); ++x)
          if (const T value = get(x, y); value != value) {
            constexpr T nan = std::numeric_limits<T>::quiet_NaN();
            std::memcpy(&to[from + place(y) + x * sizeof(T)], &nan, sizeof nan);
          }
  }
};

// One round of one export on one image.
class Case {
 public:
  Case(const Image& of, Random numbers, bool tryChecks) : image(of), random(numbers), tryChecks_(tryChecks) {}

  const Image& image;
  Random random;
  // What the function is called in, and whether it may raise flags.
  FloatEnvironment environment = kFloatEnvironments[0];
  bool mayRaiseFlags = false;
  // Called in front of and behind each call, which then runs in the environment as it is: what counts instructions.
  static inline void (*aroundCall)() = nullptr;

  int64_t in(int64_t low, int64_t high) { return random.in(low, high); }
  bool chance(int percent) { return random.chance(percent); }
  // One of the values.
  template <class T>
  T of(std::initializer_list<T> values) {
    return values.begin()[in(0, int64_t(values.size()) - 1)];
  }
  // 1 to `most`, the small ones often.
  int32_t extent(int32_t most) {
    const int32_t limit = chance(50) ? most : std::min(most, 20);
    return int32_t(in(1, limit));
  }
  QelSize size(int32_t mostWidth, int32_t mostHeight) {
    const int32_t width = extent(mostWidth);
    const int32_t height = extent(mostHeight);
    return {width, height};
  }

  // Random bytes as `height` rows of `width` samples. The step is drawn; or `gap` bytes lie between two rows.
  template <class T>
  Rows<T>& rows(int64_t width, int64_t height = 1, int64_t gap = -1) {
    const int64_t drawn = chance(30) ? 0 : in(0, chance(50) ? 9 : 70);
    return region<T>(width, height, width * int64_t(sizeof(T)) + (gap < 0 ? drawn : gap));
  }
  // The same with a given step: also one short of a row, zero or negative.
  template <class T>
  Rows<T>& region(int64_t width, int64_t height, int64_t step) {
    auto made = std::make_unique<Rows<T>>(random, size_t(width) * sizeof(T), size_t(height), int32_t(step));
    Rows<T>& rows = *made;
    buffers_.push_back(std::move(made));
    return rows;
  }
  // Memory whose content is the library's own: its surroundings are watched, but it is not compared.
  uint8_t* scratch(size_t bytes) {
    scratch_.push_back(Pages::drawn(random, bytes));
    Random(random.bits()).fill(scratch_.back().data(), bytes);  // as many numbers drawn for a record of any size
    return scratch_.back().data();
  }

  // A call that counts: its status does, and whether it asks for threads. In some rounds all its checks are tried
  // before, one and two at a time, and nothing may have been written then.
  template <class Function, class... Argument>
  QelStatus call(Function* function, const Argument&... argument) {
    if (tryChecks_) checks(function, argument...);
    const int asked = core().threadQuestions;
    const QelStatus s = run(function, argument::Traits<Argument>::plain(argument)...);
    value(s);
    value(core().threadQuestions - asked);
    return s;
  }
  // The call alone: nothing of it goes in by itself.
  template <class Function, class... Argument>
  QelStatus run(Function* function, Argument... argument) {
    if (aroundCall) {
      core().uncounted = aroundCall;
      aroundCall();
      const QelStatus s = function(argument...);
      aroundCall();
      core().uncounted = nullptr;
      return s;
    }
    const InFloatEnvironment set(environment);
    const QelStatus s = function(argument...);
    if (!set.kept()) fault("a call left another rounding mode");
    if (set.raised() && !mayRaiseFlags) fault("a call raised a floating-point flag");
    return s;
  }
  template <class Function, class... Argument>
  void checks(Function* function, const Argument&... argument) {
    const auto before = contents();
    const int asked = core().threadQuestions;
    const auto all = std::make_tuple(argument...);
    const auto call = [&](const auto& arguments) {
      value(std::apply(
          [&](const auto&... a) { return function(argument::Traits<std::decay_t<decltype(a)>>::plain(a)...); },
          arguments));
    };
    forEachDamage(all, 0, [&](const auto& one, size_t next) {
      call(one);
      forEachDamage(one, next, [&](const auto& two, size_t) { call(two); });
    });
    if (contents() != before) fault("a call that failed a check wrote");
    if (core().threadQuestions != asked) fault("a call that failed a check asked for threads");
  }

  template <class T>
  void value(const T& v) {
    static_assert(!std::is_pointer_v<T> && std::has_unique_object_representations_v<T>);
    bytes(&v, sizeof v);
  }
  void value(float v) { number(v); }
  void value(double v) { number(v); }
  // The content of a buffer as it is now; at the end of the round that of every buffer goes in by itself.
  void now(const Buffer& buffer) { buffer.trace(all_); }
  void bytes(const void* p, size_t n) {
    const auto* b = static_cast<const uint8_t*>(p);
    all_.insert(all_.end(), b, b + n);
  }
  void fault(std::string what) {
    if (fault_.empty()) fault_ = std::move(what);
  }

  // Ends the round.
  const std::vector<uint8_t>& finish() {
    for (const auto& b : buffers_) {
      b->trace(all_);
      if (!b->intact()) fault("bytes beside a buffer were written");
    }
    for (const auto& s : scratch_)
      if (!s.intact()) fault("bytes beside a work buffer were written");
    return all_;
  }
  const std::string& fault() const { return fault_; }

 private:
  template <class T>
  void number(T v) {
    if (v != v) v = std::numeric_limits<T>::quiet_NaN();
    bytes(&v, sizeof v);
  }
  std::vector<uint8_t> contents() const {
    std::vector<uint8_t> all;
    for (const auto& b : buffers_) b->trace(all);
    return all;
  }
  // work(arguments, index + 1) for every way to damage one argument from `first` on.
  template <size_t index = 0, class Tuple, class Work>
  static void forEachDamage(const Tuple& all, size_t first, Work&& work) {
    if constexpr (index < std::tuple_size_v<Tuple>) {
      using Argument = std::tuple_element_t<index, Tuple>;
      using Traits = argument::Traits<Argument>;
      if (index >= first)
        for (int way = 0; way < Traits::ways(std::get<index>(all)); ++way) {
          Tuple damaged = all;
          argument::Kept kept;
          std::get<index>(damaged) = Traits::damaged(std::get<index>(all), way, kept);
          work(damaged, index + 1);
        }
      forEachDamage<index + 1>(all, first, work);
    }
  }

  bool tryChecks_;
  std::vector<uint8_t> all_;
  std::deque<std::unique_ptr<Buffer>> buffers_;
  std::deque<Pages> scratch_;
  std::string fault_;
};

struct Comparison {
  std::function<void(void* function, Case& c)> run;
  int rounds;
};
// A twentieth of the rounds is what slow runs do.
inline constexpr int kRounds = 1000;
inline constexpr int kQuickShare = 20;

inline std::map<std::string, Comparison>& comparisons() {
  static std::map<std::string, Comparison> all;
  return all;
}
template <class Function, class Operation>
bool addComparison(const char* name, Operation operation, int rounds = kRounds) {
  comparisons()[name] = {[operation](void* function, Case& c) { operation(reinterpret_cast<Function*>(function), c); },
                         rounds};
  return true;
}

}  // namespace qelj::test

// QELJ_COMPARE(name, operation) or, with a number of rounds that is a multiple of kQuickShare,
// QELJ_COMPARE(name, operation, rounds).
#define QELJ_COMPARE(name, ...) \
  [[maybe_unused]] static const bool compared_##name = qelj::test::addComparison<decltype(::name)>(#name, __VA_ARGS__)
// Another function of the same image.
#define QELJ_FIND(c, name) reinterpret_cast<decltype(&::name)>((c).image.find(#name))

#endif
